// A client's test that reaches into the library.

#include <FileSystem/Initializer.h>
#include <FileSystem/PrivateSource/ModuleMain.h>

int main() {
    bool const isAbsentBefore = WFileSystem::gModuleMainPtr.Get() == nullptr;
    WFileSystem::Initializer const initializer;
    bool const isPresentAfter = WFileSystem::gModuleMainPtr.Get() != nullptr;
    return isAbsentBefore && isPresentAfter && WFileSystem::ModuleMain().GetFileMode() != 0 ? 0 : 1;
}
