#include <FileSystem/File.h>

#include <Base/Conversion.h>
#include <FileSystem/PrivateSource/Failure.h>
#include <FileSystem/PrivateSource/ModuleMain.h>
#include <FileSystem/PrivateSource/RecordLock.h>
#include <PDCHeader/PDCfcntl.h>
#include <PDCHeader/PDCunistd.h>

#include <cerrno>

namespace WFileSystem {
namespace {

/// What an open mode means for a descriptor and for a stream.
struct OpenModeRow {
    int flags;
    char const* streamMode;
};

constexpr OpenModeRow OPEN_MODES[] = {
    {O_RDONLY, "r"},                      // OPEN_READ
    {O_WRONLY | O_CREAT | O_TRUNC, "w"},  // OPEN_WRITE_TRUNCATE
    {O_WRONLY | O_CREAT | O_APPEND, "a"}, // OPEN_WRITE_APPEND
    {O_RDWR, "r+"},                       // OPEN_READ_WRITE
    {O_RDWR | O_CREAT | O_TRUNC, "w+"},   // OPEN_READ_WRITE_TRUNCATE
    {O_RDWR | O_CREAT | O_APPEND, "a+"},  // OPEN_READ_APPEND
    {O_WRONLY | O_CREAT, "r+"},           // OPEN_WRITE_CREATE: creates as a descriptor, not as a stream, on purpose
};

constexpr OpenModeRow GetOpenModeRow(File::OpenMode mode) noexcept {
    constexpr OpenModeRow OUTSIDE_THE_LIST = {O_RDONLY, nullptr};
    return mode < sizeof OPEN_MODES / sizeof *OPEN_MODES ? OPEN_MODES[mode] : OUTSIDE_THE_LIST;
}

WBase::ReturnString ConvertPath(wchar_t const* function, wchar_t const* path) {
    try {
        return WBase::WideCharToMultiByte(path, false);
    } catch (WBase::StringConversionException const& failure) {
        std::wstring const text = std::wstring(function) + L": Failed to convert file path '" + path + L"' to UTF-8.";
        throw SystemCallReport(text.c_str(), failure);
    }
}

mode_t GetCreationMode() noexcept {
    constexpr mode_t WITHOUT_MODULE = 0664;
    ModuleMain const* const module = gModuleMainPtr.Get();
    return module != nullptr ? module->GetFileMode() : WITHOUT_MODULE;
}

/// The descriptor's other flags are not read first, unlike in the file objects: a new descriptor has none. Intended.
void SetCloseOnExec(int fd) noexcept {
    WPDCHeader::RetryWhileInterrupted([fd] { return ::fcntl(fd, F_SETFD, FD_CLOEXEC); });
}

void TakeRecordLock(wchar_t const* function, int fd, int type, bool wait) {
    if (SetRecordLock(fd, wait ? F_SETLKW : F_SETLK, type, ::getpid()) == -1) {
        throw MakeReport(WBase::GetLastError(), function, L": Failed to lock file #", fd, L".");
    }
}

} // namespace

int File::OpenDescriptor(wchar_t const* path, OpenMode mode, ShareMode /*share*/) {
    WBase::ReturnString const narrowPath = ConvertPath(L"WFileSystem::File::OpenDescriptor", path);
    int const flags = GetOpenModeRow(mode).flags | O_NOCTTY;
    mode_t const creationMode = GetCreationMode();
    int const fd = WPDCHeader::RetryWhileInterrupted([&] { return ::open(narrowPath.c_str(), flags, creationMode); });
    if (fd == -1) {
        throw MakeReport(WBase::GetLastError(), L"WFileSystem::File::OpenDescriptor: ::open failed for '", path, L"'.");
    }
    if (fd <= STDERR_FILENO) {
        unsigned int const error = WBase::GetLastError();
        WPDCHeader::close(fd);
        throw MakeReport(error, L"WFileSystem::File::OpenDescriptor: ::open '", path, L"' and get system handle.");
    }
    SetCloseOnExec(fd);
    return fd;
}

FILE* File::OpenStream(wchar_t const* path, OpenMode mode, ShareMode /*share*/) {
    WBase::ReturnString const narrowPath = ConvertPath(L"WFileSystem::File::OpenStream", path);
    char const* const streamMode = GetOpenModeRow(mode).streamMode;
    FILE* stream = nullptr;
    if (streamMode != nullptr) {
        stream = std::fopen(narrowPath.c_str(), streamMode);
    } else {
        errno = EINVAL; // a C library may crash on a null mode instead of rejecting it
    }
    if (stream == nullptr) {
        throw MakeReport(WBase::GetLastError(), L"WFileSystem::File::OpenStream: ::fopen failed for '", path, L"'.");
    }
    SetCloseOnExec(::fileno(stream));
    return stream;
}

void File::WriteLock(int fd, bool wait) {
    TakeRecordLock(L"WFileSystem::File::WriteLock", fd, F_WRLCK, wait);
}

void File::ReadLock(int fd, bool wait) {
    TakeRecordLock(L"WFileSystem::File::ReadLock", fd, F_RDLCK, wait);
}

void File::Unlock(int fd) noexcept {
    SetRecordLock(fd, F_SETLK, F_UNLCK, ::getpid());
}

} // namespace WFileSystem
