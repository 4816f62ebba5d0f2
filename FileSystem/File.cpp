#include <FileSystem/File.h>

#include <Base/Conversion.h>
#include <FileSystem/PrivateSource/Failure.h>
#include <FileSystem/PrivateSource/ModuleMain.h>
#include <FileSystem/PrivateSource/RecordLock.h>
#include <PDCHeader/PDCfcntl.h>
#include <PDCHeader/PDCstat.h>
#include <PDCHeader/PDCunistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utime.h>

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

/// The system's error of the moment for a path that has been converted.
WBase::Message MakeErrnoMessageFor(wchar_t const* path, char const* text) {
    WBase::Message message = MakeErrnoMessage(text);
    message << WBase::WideCharToUTF8(path, false).c_str();
    return message;
}

struct stat GetStatus(wchar_t const* path, char const* narrowPath) {
    struct stat status;
    if (WPDCHeader::RetryWhileInterrupted([&] { return ::stat(narrowPath, &status); }) != 0) {
        throw MakeErrnoMessageFor(path, "Failed to get attributes of file '%1'.");
    }
    return status;
}

struct stat GetStatus(wchar_t const* path) {
    return GetStatus(path, WBase::WideCharToMultiByte(path, false).c_str());
}

struct StreamCloser {
    void operator()(FILE* stream) const noexcept { std::fclose(stream); }
};

using StreamPtr = std::unique_ptr<FILE, StreamCloser>;

StreamPtr OpenCopyTarget(wchar_t const* path) {
    return StreamPtr(File::OpenStream(path, File::OPEN_WRITE_TRUNCATE, File::SHARE_IGNORED));
}

std::unique_ptr<WDataType::Binary> CreateCopyBuffer() {
    constexpr unsigned long COPY_BUFFER_SIZE = 16384;
    return WDataType::CreateBinary(COPY_BUFFER_SIZE, nullptr);
}

long long Seek(wchar_t const* function, int fd, long long offset, int whence) {
    off_t const position = ::lseek(fd, offset, whence);
    if (position == -1) {
        throw MakeReport(WBase::GetLastError(), function, L": ::lseek failed.");
    }
    return position;
}

long long Seek(wchar_t const* function, FILE* stream, long long offset, int whence) {
    if (::fseeko(stream, offset, whence) != 0) {
        throw MakeReport(WBase::GetLastError(), function, L": ::fseeko failed.");
    }
    return 0; // not the position, unlike for descriptors; intended
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

int File::Copy(int from, int to, WDataType::Binary& buffer) {
    buffer.RestoreFullSize();
    auto const chunk = static_cast<std::uint32_t>(buffer.GetSize());
    for (;;) {
        ssize_t const received = ::read(from, buffer.GetBuffer(), chunk);
        if (received == 0) {
            return Flush(to);
        }
        // A failed read is not looked at by itself: -1 goes on as 4294967295 bytes, and equals a failed write.
        // Intended.
        auto const written =
            static_cast<std::int32_t>(::write(to, buffer.GetBuffer(), static_cast<std::uint32_t>(received)));
        if (written != received) {
            throw MakeReport(WBase::GetLastError(), L"WFileSystem::File::Copy: ::write failed for file #", to, L".");
        }
    }
}

int File::Copy(FILE* from, FILE* to, WDataType::Binary& buffer) {
    buffer.RestoreFullSize();
    unsigned long const wanted = buffer.GetSize();
    do {
        Read(from, buffer, wanted);
        if (buffer.GetSize() > 0) {
            Write(to, static_cast<void const*>(buffer.GetBuffer()), buffer.GetSize());
        }
    } while (buffer.GetSize() >= wanted);
    return Flush(to);
}

int File::Read(FILE* stream, WDataType::Binary& buffer, unsigned long n) {
    buffer.RestoreFullSize();
    if (n != 0 && buffer.GetSize() > n) {
        buffer.ReduceSize(buffer.GetSize() - n);
    }
    unsigned long const wanted = buffer.GetSize();
    unsigned long const received = std::fread(buffer.GetBuffer(), 1, wanted, stream);
    if (std::ferror(stream) != 0) {
        throw MakeReport(WBase::GetLastError(), L"WFileSystem::File::Read: ::fread failed.");
    }
    if (received < wanted) {
        buffer.ReduceSize(wanted - received);
    }
    return 0;
}

int File::Write(FILE* stream, void const* data, unsigned long n) {
    if (n != 0 && std::fwrite(data, n, 1, stream) != 1) {
        throw MakeReport(WBase::GetLastError(), L"WFileSystem::File::Write: Failed.");
    }
    return 0;
}

int File::Write(FILE* stream, char const* text, unsigned long n) {
    return Write(stream, static_cast<void const*>(text), n == 0 ? std::strlen(text) : n);
}

int File::ReadLine(FILE* stream, WDataType::Binary& buffer) {
    buffer.RestoreFullSize();
    unsigned long const size = buffer.GetSize();
    char const* const line = std::fgets(buffer.GetBuffer(), static_cast<int>(size), stream);
    if (std::ferror(stream) != 0) {
        throw MakeReport(WBase::GetLastError(), L"WFileSystem::File::ReadLine: ::fgets failed.");
    }
    unsigned long const length = line != nullptr ? std::strlen(line) : 0;
    if (length < size) {
        buffer.ReduceSize(size - length);
    }
    return 0;
}

int File::Flush(int fd) {
    if (WPDCHeader::RetryWhileInterrupted([fd] { return ::fsync(fd); }) != 0) {
        // The text names another call than the one that is made; kept on purpose.
        throw MakeReport(WBase::GetLastError(), L"WFileSystem::File::Flush: ::fdatasync failed.");
    }
    return 0;
}

int File::Flush(FILE* stream) {
    if (std::fflush(stream) != 0) {
        throw MakeReport(WBase::GetLastError(), L"WFileSystem::File::Flush: ::fflush failed.");
    }
    return 0;
}

long long File::GetSize(int fd) {
    struct stat status;
    if (WPDCHeader::RetryWhileInterrupted([&] { return ::fstat(fd, &status); }) != 0) {
        throw MakeReport(WBase::GetLastError(), L"WFileSystem::File::GetSize: ::fstat failed for #", fd, L".");
    }
    return status.st_size;
}

long long File::GetSize(FILE* stream) {
    return GetSize(::fileno(stream));
}

int File::Truncate(int fd, long long length) {
    if (WPDCHeader::RetryWhileInterrupted([&] { return ::ftruncate(fd, length); }) != 0) {
        throw MakeReport(WBase::GetLastError(), L"WFileSystem::File::Truncate: ::ftruncate failed.");
    }
    return 0;
}

int File::Truncate(FILE* stream, long long length) {
    return Truncate(::fileno(stream), length);
}

long long File::GetPosition(int fd) {
    return Seek(L"WFileSystem::File::GetPosition", fd, 0, SEEK_CUR);
}

long long File::GetPosition(FILE* stream) {
    off_t const position = ::ftello(stream);
    if (position == -1) {
        throw MakeReport(WBase::GetLastError(), L"WFileSystem::File::GetPosition: ::ftello failed.");
    }
    return position;
}

long long File::MovePosition(int fd, long long offset) {
    return Seek(L"WFileSystem::File::MovePosition", fd, offset, SEEK_CUR);
}

long long File::MovePosition(FILE* stream, long long offset) {
    return Seek(L"WFileSystem::File::MovePosition", stream, offset, SEEK_CUR);
}

long long File::SetPosition(int fd, long long offset) {
    return Seek(L"WFileSystem::File::SetPosition", fd, offset, SEEK_SET);
}

long long File::SetPosition(FILE* stream, long long offset) {
    return Seek(L"WFileSystem::File::SetPosition", stream, offset, SEEK_SET);
}

int File::CopyBlock(FILE* stream, WDataType::Binary& buffer, long long destination, long long size) {
    long long const source = GetPosition(stream);
    if (source == destination) {
        return 0;
    }
    if (size == 0) {
        size = GetSize(::fileno(stream)) - source;
        if (size == 0) {
            return 0;
        }
    }
    buffer.RestoreFullSize();
    auto const block = static_cast<long long>(buffer.GetSize());
    long long const distance = destination - source;
    long long const blocks = size / block;
    // Moves what is at the position; ends behind its new place.
    auto const move = [&](long long length) {
        Read(stream, buffer, static_cast<unsigned long>(length));
        MovePosition(stream, distance - length);
        Write(stream, static_cast<void const*>(buffer.GetBuffer()), static_cast<unsigned long>(length));
    };
    if (distance > 0) {
        // From the back, so that nothing is overwritten before it was read.
        if (block <= size) {
            SetPosition(stream, source + size - block);
            for (long long pass = 1; pass <= blocks; ++pass) {
                move(block);
                if (pass < blocks) {
                    MovePosition(stream, -distance - 2 * block);
                }
            }
            SetPosition(stream, source);
        }
    } else {
        for (long long pass = 1; pass <= blocks; ++pass) {
            move(block);
            MovePosition(stream, -distance);
        }
    }
    long long const remainder = size % block;
    if (remainder > 0) {
        move(remainder);
    }
    return 0;
}

bool File::Delete(wchar_t const* path, WBase::Message* report) {
    constexpr char FAILURE[] = "Failed to delete file '%1'.";
    try {
        WBase::ReturnString const narrowPath = WBase::WideCharToMultiByte(path, false);
        if (::unlink(narrowPath.c_str()) == 0) {
            return true;
        }
        if (report != nullptr) {
            report->PrependBy(MakeErrnoMessage(FAILURE) << path);
        }
    } catch (WBase::Message const& failure) {
        ReportCaught(report, failure, FAILURE, path);
    }
    return false;
}

void File::Move(wchar_t const* from, wchar_t const* to) {
    WBase::ReturnString const narrowFrom = WBase::WideCharToMultiByte(from, false);
    WBase::ReturnString const narrowTo = WBase::WideCharToMultiByte(to, false);
    if (std::rename(narrowFrom.c_str(), narrowTo.c_str()) == -1) {
        throw MakeErrnoMessage("Failed to move file '%1' to '%2'.") << from << to;
    }
}

void File::Copy(wchar_t const* from, wchar_t const* to, WDataType::Binary& buffer) {
    StreamPtr const source(OpenStream(from, OPEN_READ, SHARE_IGNORED));
    StreamPtr const target = OpenCopyTarget(to); // closed before the source
    Copy(source.get(), target.get(), buffer);
}

void File::Copy(wchar_t const* from, wchar_t const* to) {
    Copy(from, to, *CreateCopyBuffer());
}

void File::Copy(int from, wchar_t const* to) {
    struct Descriptor {
        int fd;
        ~Descriptor() { WPDCHeader::close(fd); }
    };
    Descriptor const target = {OpenDescriptor(to, OPEN_WRITE_TRUNCATE, SHARE_IGNORED)};
    Copy(from, target.fd, *CreateCopyBuffer());
}

void File::Copy(FILE* from, wchar_t const* to) {
    StreamPtr const target = OpenCopyTarget(to);
    Copy(from, target.get(), *CreateCopyBuffer());
}

bool File::CopyAttributes(wchar_t const* from, wchar_t const* to, WBase::Message* report) {
    WBase::ReturnString const narrowFrom = WBase::WideCharToMultiByte(from, false);
    WBase::ReturnString const narrowTo = WBase::WideCharToMultiByte(to, false);
    struct stat const status = GetStatus(from, narrowFrom.c_str());
    bool areAllApplied = true;
    auto const check = [&](int result, char const* failure) {
        // Without a report a failure does not show in the result either, on purpose.
        if (result != 0 && report != nullptr) {
            report->PrependBy(MakeErrnoMessageFor(to, failure));
            areAllApplied = false;
        }
    };
    utimbuf times;
    times.actime = status.st_atime;
    times.modtime = status.st_mtime;
    check(::utime(narrowTo.c_str(), &times), "Failed to change times of file '%1'.");
    check(::chown(narrowTo.c_str(), status.st_uid, status.st_gid), "Failed to change owner of file '%1'.");
    check(::chmod(narrowTo.c_str(), status.st_mode), "Failed to change permissions of file '%1'.");
    return areAllApplied;
}

unsigned long File::GetSize(wchar_t const* path) {
    return static_cast<unsigned long>(GetStatus(path).st_size);
}

unsigned long long File::GetSize64(wchar_t const* path) {
    return GetSize(path);
}

void File::GetLastModified(wchar_t const* path, WDataType::DateTime& result) {
    auto const seconds = static_cast<std::int32_t>(GetStatus(path).st_mtime); // cut to 32 bits on purpose
    WDataType::DateTime const epoch(1970, 1, 1, 0, 0, 0, 0, 0, 0);
    result = epoch + WDataType::TimeSpan(0, 0, 0, seconds, 0);
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
