#include <FileSystem/Initializer.h>

#include <FileSystem/PrivateSource/ModuleMain.h>

namespace WFileSystem {

Initializer::Initializer() {
    gModuleMainPtr.Initialize();
}

Initializer::~Initializer() {
    gModuleMainPtr.Finalize();
}

} // namespace WFileSystem
