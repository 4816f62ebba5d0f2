#include <FileSystem/FileSystem.h>

#include <Base/Conversion.h>
#include <Base/PrivateSource/UTF8.h>
#include <FileSystem/File.h>
#include <FileSystem/PrivateSource/Failure.h>
#include <FileSystem/PrivateSource/WorkingDirectory.h>

#include <cstdio>
#include <cstdlib>
#include <memory>
#include <unistd.h>

namespace WFileSystem {

std::size_t ReadCurrentWorkingDirectory(wchar_t (&path)[WORKING_DIRECTORY_CAPACITY]) {
    char narrowPath[WORKING_DIRECTORY_CAPACITY];
    if (::getcwd(narrowPath, sizeof narrowPath) == nullptr) {
        throw MakeReport(WBase::GetLastError(), L"WFileSystem::GetCurrentWorkingDirectory: ::getcwd failed.");
    }
    return WBase::DecodeUTF8(narrowPath, false, path);
}

WBase::ReturnWString GetCurrentWorkingDirectory() {
    wchar_t path[WORKING_DIRECTORY_CAPACITY];
    std::size_t const size = ReadCurrentWorkingDirectory(path);
    return WBase::ReturnWString(size, path);
}

void SetCurrentWorkingDirectory(wchar_t const* path) {
    int result = 0;
    unsigned int error = 0;
    {
        WBase::ReturnString const narrowPath = WBase::WideCharToMultiByte(path, false);
        result = ::chdir(narrowPath.c_str());
        error = WBase::GetLastError();
    }
    if (result == -1) {
        throw MakeReport(error, L"WFileSystem::SetCurrentWorkingDirectory: ::chdir failed for '", path, L"'.");
    }
}

WBase::ReturnWString GetTemporaryPath() {
    return WBase::UTF8ToWideChar(WBase::GetContainerPath().c_str(), false);
}

WBase::ReturnWString CreateTemporaryFile(wchar_t const* prefix) {
    struct Free {
        void operator()(char* text) const noexcept { std::free(text); }
    };
    std::unique_ptr<char, Free> name;
    unsigned int error = 0;
    {
        WBase::ReturnString const directory = WBase::GetContainerPath();
        WBase::ReturnString const narrowPrefix = WBase::WideCharToMultiByte(prefix, false);
        name.reset(::tempnam(directory.c_str(), narrowPrefix.c_str()));
        error = WBase::GetLastError();
    }
    if (name == nullptr) {
        throw MakeReport(error, L"WFileSystem::CreateTemporaryFile: ::tempnam failed for '", prefix, L"'.");
    }
    WBase::ReturnWString path = WBase::UTF8ToWideChar(name.get(), false);
    int const fd = File::OpenDescriptor(path.c_str(), File::OPEN_WRITE_TRUNCATE, File::SHARE_IGNORED);
    ::close(fd); // the system's own, once, unlike everywhere else; intended
    return path;
}

} // namespace WFileSystem
