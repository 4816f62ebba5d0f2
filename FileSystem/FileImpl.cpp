#include <FileSystem/FileImpl.h>

#include <Base/Conversion.h>
#include <FileSystem/Path.h>
#include <FileSystem/PrivateSource/Failure.h>
#include <FileSystem/PrivateSource/RecordLock.h>
#include <PDCHeader/PDCfcntl.h>
#include <PDCHeader/PDCstat.h>
#include <PDCHeader/PDCunistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <initializer_list>

namespace WFileSystem {
namespace {

/// How much of plain memory one call transfers.
constexpr unsigned long TRANSFER_CHUNK = 0x100000;

WBase::Message MakeErrnoMessageFor(wchar_t const* path, char const* text) {
    WBase::Message message = MakeErrnoMessage(text);
    message << Path::ToAbsolute(path).c_str();
    return message;
}

[[noreturn]] void ThrowTransferFailure(wchar_t const* path, WBase::Message message, unsigned long bytes) {
    throw message << bytes << Path::ToAbsolute(path).c_str();
}

/// Reads until `n` bytes came, the file ends or a call fails.
/// \return the number of bytes read, or -1 with errno set when the first call failed
long ReadUntilEnd(int fd, char* data, unsigned long n) {
    unsigned long received = 0;
    while (received < n) {
        ssize_t const result =
            WPDCHeader::RetryWhileInterrupted([&] { return ::read(fd, data + received, n - received); });
        if (result == -1 && received == 0) {
            return -1;
        }
        if (result <= 0) {
            break;
        }
        received += static_cast<unsigned long>(result);
    }
    return static_cast<long>(received);
}

/// Writes until `n` bytes went or a call fails.
/// \return as ReadUntilEnd
long WriteUntilEnd(int fd, char const* data, unsigned long n) {
    unsigned long written = 0;
    while (written < n) {
        ssize_t const result =
            WPDCHeader::RetryWhileInterrupted([&] { return ::write(fd, data + written, n - written); });
        if (result == -1) {
            return written == 0 ? -1 : static_cast<long>(written);
        }
        written += static_cast<unsigned long>(result); // writing nothing is no failure and no end
    }
    return static_cast<long>(written);
}

/// Transfers `n` bytes chunk by chunk; each chunk must go through as a whole.
template <class Byte>
void TransferInChunks(
    wchar_t const* path, int fd, Byte* data, unsigned long n, long (*transfer)(int, Byte*, unsigned long),
    char const* failureText) {
    while (n > 0) {
        unsigned long const chunk = std::min(n, TRANSFER_CHUNK);
        long const transferred = transfer(fd, data, chunk);
        if (transferred == -1) {
            ThrowTransferFailure(path, MakeErrnoMessage(failureText), chunk);
        }
        if (static_cast<unsigned long>(transferred) < chunk) {
            ThrowTransferFailure(path, MakeMessage(failureText), chunk - static_cast<unsigned long>(transferred));
        }
        data += chunk;
        n -= chunk;
    }
}

constexpr char WRITE_FAILURE[] = "Failed to write %1 bytes to file '%1'.";
constexpr char READ_FAILURE[] = "Failed to read %1 bytes from file '%1'.";

long long Seek(wchar_t const* path, int fd, long long offset, int whence, char const* failureText) {
    off_t const position = ::lseek(fd, offset, whence);
    if (position == -1) {
        throw MakeErrnoMessageFor(path, failureText);
    }
    return position;
}

constexpr char SET_POSITION_FAILURE[] = "Failed to set current position of file '%1'.";

/// \param wouldBlock the errors that are answered with false when waiting was not asked for
bool TakeRecordLock(wchar_t const* path, int fd, int type, bool dontWait, std::initializer_list<int> wouldBlock) {
    constexpr pid_t NO_PROCESS = 0; // unlike the descriptor locks of File, on purpose
    if (SetRecordLock(fd, dontWait ? F_SETLK : F_SETLKW, type, NO_PROCESS) == 0) {
        return true;
    }
    if (dontWait && std::find(wouldBlock.begin(), wouldBlock.end(), errno) != wouldBlock.end()) {
        return false;
    }
    throw MakeErrnoMessageFor(path, "Failed to lock file '%1'.");
}

} // namespace

long long FileImpl::GetSize(wchar_t const* path, int fd) {
    struct stat status;
    if (WPDCHeader::RetryWhileInterrupted([&] { return ::fstat(fd, &status); }) != 0) {
        throw MakeErrnoMessageFor(path, "Failed to get size of file '%1'.");
    }
    return status.st_size;
}

void FileImpl::Write(wchar_t const* path, int fd, char const* text, unsigned long n) {
    Write(path, fd, static_cast<void const*>(text), n == 0 ? std::strlen(text) : n);
}

void FileImpl::Write(wchar_t const* path, int fd, void const* data, unsigned long n) {
    TransferInChunks(path, fd, static_cast<char const*>(data), n, WriteUntilEnd, WRITE_FAILURE);
}

void FileImpl::Read(wchar_t const* path, int fd, void* data, unsigned long n) {
    TransferInChunks(path, fd, static_cast<char*>(data), n, ReadUntilEnd, READ_FAILURE);
}

void FileImpl::Read(wchar_t const* path, int fd, WDataType::Binary& buffer, unsigned long n) {
    buffer.RestoreFullSize();
    if (n != 0 && buffer.GetSize() > n) {
        buffer.ReduceSize(buffer.GetSize() - n);
    }
    unsigned long const wanted = buffer.GetSize();
    // In one run, without chunks, unlike plain memory; intended.
    long const received = ReadUntilEnd(fd, buffer.GetBuffer(), wanted);
    if (received == -1) {
        ThrowTransferFailure(path, MakeErrnoMessage(READ_FAILURE), wanted);
    }
    if (static_cast<unsigned long>(received) < wanted) {
        buffer.ReduceSize(wanted - static_cast<unsigned long>(received));
    }
}

void FileImpl::ReadLine(wchar_t const* path, int fd, WDataType::Binary& buffer) {
    Read(path, fd, buffer, 0);
    unsigned long const size = buffer.GetSize();
    if (size == 0) {
        return;
    }
    char const* const bytes = buffer.GetBuffer();
    unsigned long lineSize = 0;
    if (void const* const lineFeed = std::memchr(bytes, '\n', size)) {
        lineSize = static_cast<unsigned long>(static_cast<char const*>(lineFeed) - bytes) + 1;
    } else if (void const* const zero = std::memchr(bytes, '\0', size)) {
        lineSize = static_cast<unsigned long>(static_cast<char const*>(zero) - bytes);
    } else {
        return;
    }
    // In 32 bits, on purpose: cut, negated, and widened with its sign.
    auto const excess = static_cast<unsigned int>(size - lineSize);
    MovePosition(path, fd, static_cast<int>(0U - excess));
    buffer.ReduceSize(static_cast<unsigned long>(static_cast<int>(excess)));
}

long long FileImpl::MovePosition(wchar_t const* path, int fd, long long offset) {
    return Seek(path, fd, offset, SEEK_CUR, SET_POSITION_FAILURE);
}

int FileImpl::Flush(wchar_t const* path, int fd) {
    if (WPDCHeader::RetryWhileInterrupted([&] { return ::fsync(fd); }) != 0) {
        throw MakeErrnoMessageFor(path, "Failed to flush file '%1'.");
    }
    return 0;
}

int FileImpl::Truncate(wchar_t const* path, int fd) {
    long long const position = GetPosition(path, fd);
    if (WPDCHeader::RetryWhileInterrupted([&] { return ::ftruncate(fd, position); }) != 0) {
        throw MakeErrnoMessageFor(path, "Failed to truncate file '%1'.");
    }
    return 0;
}

long long FileImpl::GetPosition(wchar_t const* path, int fd) {
    return Seek(path, fd, 0, SEEK_CUR, "Failed to get current position of file '%1'.");
}

long long FileImpl::SetPosition(wchar_t const* path, int fd, long long offset) {
    return Seek(path, fd, offset, SEEK_SET, SET_POSITION_FAILURE);
}

long long FileImpl::SetPositionToEnd(wchar_t const* path, int fd) {
    return Seek(path, fd, 0, SEEK_END, SET_POSITION_FAILURE);
}

int FileImpl::CloseAndGroundHandle(wchar_t const* path, int& fd) {
    if (CloseAndGroundHandle_NoThrow(fd) != 0) {
        throw MakeErrnoMessageFor(path, "Failed to close handle of file '%1'.");
    }
    return 0;
}

int FileImpl::CloseAndGroundHandle_NoThrow(int& fd) noexcept {
    return WPDCHeader::close(std::exchange(fd, -1));
}

int FileImpl::TruncateFile_ThenCloseAndGroundHandle_NoThrow(int& fd) noexcept {
    int const closing = std::exchange(fd, -1);
    try {
        SetPosition(L"", closing, 0);
        Truncate(L"", closing);
    } catch (WBase::Message const&) { // NOLINT(bugprone-empty-catch): the file is closed all the same
    }
    return WPDCHeader::close(closing);
}

bool FileImpl::DoesPathMatchFileHandle(wchar_t const* path, int fd, WBase::Message* out) {
    auto const report = [&] {
        if (out != nullptr) {
            out->PrependBy(MakeErrnoMessageFor(path, "Failed to get attributes of file '%1'."));
        }
        return false;
    };
    struct stat opened;
    if (WPDCHeader::RetryWhileInterrupted([&] { return ::fstat(fd, &opened); }) != 0) {
        return report();
    }
    WBase::ReturnString const narrowPath = WBase::WideCharToMultiByte(path, false);
    struct stat named;
    if (WPDCHeader::RetryWhileInterrupted([&] { return ::stat(narrowPath.c_str(), &named); }) != 0) {
        return errno == ENOENT ? false : report();
    }
    return opened.st_dev == named.st_dev && opened.st_ino == named.st_ino;
}

bool FileImpl::WriteLock(wchar_t const* path, int fd, bool dontWait) {
    return TakeRecordLock(path, fd, F_WRLCK, dontWait, {ENOTSUP}); // not EAGAIN, unlike ReadLock; intended
}

bool FileImpl::ReadLock(wchar_t const* path, int fd, bool dontWait) {
    return TakeRecordLock(path, fd, F_RDLCK, dontWait, {ENOTSUP, EAGAIN});
}

void FileImpl::Unlock(int fd) noexcept {
    if (fd != -1) {
        SetRecordLock(fd, F_SETLK, F_UNLCK, 0);
    }
}

} // namespace WFileSystem
