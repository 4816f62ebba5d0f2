#include <FileSystem/PrivateSource/FileObject.h>

#include <Base/Conversion.h>
#include <FileSystem/File.h>
#include <FileSystem/Path.h>
#include <FileSystem/PrivateSource/Failure.h>
#include <PDCHeader/PDCfcntl.h>
#include <PDCHeader/PDCstat.h>
#include <PDCHeader/PDCunistd.h>

namespace WFileSystem::FileObject {

ModuleMain& GetModule(wchar_t const* constructor, wchar_t const* path) {
    ModuleMain* const module = gModuleMainPtr.Get();
    if (module == nullptr) {
        std::wstring const text = std::wstring(constructor) + L": Can't open '" + path + L"'.";
        throw SystemCallReport(text.c_str(), SystemCallReport("No WFileSystem::Initializer lives."));
    }
    return *module;
}

int Open(
    wchar_t const* constructor, wchar_t const* path, char const* narrowPath, int flags, mode_t mode,
    StandardDescriptors standardDescriptors) {
    int const fd = WPDCHeader::RetryWhileInterrupted([&] { return ::open(narrowPath, flags | O_NOCTTY, mode); });
    if (fd == -1) {
        throw MakeReport(WBase::GetLastError(), constructor, L": ::open failed for '", path, L"'.");
    }
    if (standardDescriptors == StandardDescriptors::REFUSED && fd <= STDERR_FILENO) {
        unsigned int const error = WBase::GetLastError();
        WPDCHeader::close(fd);
        throw MakeReport(error, constructor, L": ::open '", path, L"' and get system file handle.");
    }
    int const descriptorFlags = WPDCHeader::RetryWhileInterrupted([&] { return ::fcntl(fd, F_GETFD); });
    if (descriptorFlags == -1) {
        throw SystemCallReport("::fcntl() failed", WBase::GetLastError()); // the descriptor stays open; intended
    }
    WPDCHeader::RetryWhileInterrupted([&] { return ::fcntl(fd, F_SETFD, descriptorFlags | FD_CLOEXEC); });
    return fd;
}

WBase::ReturnPtrI<InprocessFileLocker> GetLocker(ModuleMain& module, wchar_t const* path, int fd) {
    try {
        return module.GetInprocessFileLocker(path, fd);
    } catch (...) {
        WPDCHeader::close(fd);
        throw;
    }
}

int OpenForWriting(
    ModuleMain const& module, wchar_t const* constructor, wchar_t const* path, int flags,
    StandardDescriptors standardDescriptors) {
    // By another conversion than the readable file's; both give UTF-8. Intended.
    WBase::ReturnString const narrowPath = WBase::WideCharToMultiByte(path, false);
    mode_t const mode = module.GetFileMode();
    if (Path::IsFile(path)) {
        ::chmod(narrowPath.c_str(), mode);
    }
    return Open(constructor, path, narrowPath.c_str(), flags | O_CREAT, mode, standardDescriptors);
}

void ApplyPolicy(IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy, wchar_t const* path, int& fd) noexcept {
    switch (policy) {
    case TRUNCATE_FILE:
        FileImpl::TruncateFile_ThenCloseAndGroundHandle_NoThrow(fd);
        break;
    case DELETE_FILE:
        FileImpl::TruncateFile_ThenCloseAndGroundHandle_NoThrow(fd);
        File::Delete(path, nullptr);
        break;
    case KEEP_FILE:
        FileImpl::CloseAndGroundHandle_NoThrow(fd);
        break;
    }
}

unsigned int ReadLittleEndian(wchar_t const* path, int fd) {
    unsigned char bytes[4] = {};
    FileImpl::Read(path, fd, bytes, sizeof bytes);
    return bytes[0] | static_cast<unsigned int>(bytes[1]) << 8 | static_cast<unsigned int>(bytes[2]) << 16 |
           static_cast<unsigned int>(bytes[3]) << 24;
}

void WriteLittleEndian(wchar_t const* path, int fd, unsigned int value) {
    unsigned char const bytes[4] = {
        static_cast<unsigned char>(value), static_cast<unsigned char>(value >> 8),
        static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
    FileImpl::Write(path, fd, static_cast<void const*>(bytes), sizeof bytes);
}

} // namespace WFileSystem::FileObject
