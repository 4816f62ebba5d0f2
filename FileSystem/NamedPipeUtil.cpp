#include <FileSystem/PrivateSource/NamedPipeUtil.h>

#include <Base/Conversion.h>
#include <PDCHeader/PDCstat.h>
#include <PDCHeader/PDCunistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace WFileSystem {

NamedPipe::NamedPipeError::NamedPipeError(char const* text) noexcept {
    std::memcpy(text_, text, ::strnlen(text, sizeof text_ - 1));
}

namespace NamedPipeUtil {
namespace {

/// How far a message has gone. The count has 32 bits, on purpose; one that overflows ends the message, so that nothing
/// outside the buffer is touched.
class Progress {
public:
    explicit Progress(unsigned long size) : size_(size) {}

    bool IsComplete() const { return static_cast<unsigned long>(count_) >= size_; }

    /// Makes one system call for all that is left.
    /// \return false: it failed
    template <class Transfer>
    bool Advance(Transfer transfer) {
        ssize_t const transferred = transfer(count_, size_ - static_cast<unsigned long>(count_));
        if (transferred == -1) {
            return false;
        }
        count_ = static_cast<int>(count_ + transferred);
        return true;
    }

private:
    unsigned long size_;
    int count_ = 0;
};

/// For the server, in both directions. At least one call is made, also for no bytes at all.
template <class Transfer, class Fail>
int TransferByPolling(unsigned long n, bool (*cancel)(), int pauseSeconds, Transfer transfer, Fail fail) {
    Progress progress(n);
    while (!cancel()) {
        if (progress.Advance(transfer)) {
            if (progress.IsComplete()) {
                return 0;
            }
        } else if (errno != EAGAIN) {
            fail();
        }
        Pause(pauseSeconds);
    }
    return -1;
}

/// For the client, in both directions. EAGAIN is a failure like any other, and no call is made for no bytes.
template <class Transfer, class Fail>
int TransferByBlocking(unsigned long n, Transfer transfer, Fail fail) {
    Progress progress(n);
    while (!progress.IsComplete()) {
        if (!progress.Advance(transfer)) {
            fail();
        }
    }
    return 0;
}

auto ReadInto(int fd, void* buf) {
    return [=](int offset, unsigned long n) { return ::read(fd, static_cast<char*>(buf) + offset, n); };
}

auto WriteFrom(int fd, void const* buf) {
    return [=](int offset, unsigned long n) { return ::write(fd, static_cast<char const*>(buf) + offset, n); };
}

[[noreturn]] void FailToRead() {
    throw NamedPipe::NamedPipeError("Named pipe read error"); // without the system's words, unlike a write; intended
}

[[noreturn]] void FailToWrite() {
    char text[1024];
    std::snprintf(text, sizeof text, "Named pipe write error : %s", std::strerror(errno));
    throw NamedPipe::NamedPipeError(text);
}

} // namespace

SmartSignalIgnore::SmartSignalIgnore(int signal) : signal_(signal) {
    struct sigaction ignore = {};
    ignore.sa_handler = SIG_IGN;
    sigemptyset(&ignore.sa_mask);
    if (::sigaction(signal_, &ignore, &previous_) != 0) {
        throw NamedPipe::NamedPipeError("Failed to do sigaction()");
    }
}

SmartSignalIgnore::~SmartSignalIgnore() {
    ::sigaction(signal_, &previous_, nullptr);
}

int Read(int fd, void* buf, unsigned long n, bool (*cancel)(), int pauseSeconds) {
    return TransferByPolling(n, cancel, pauseSeconds, ReadInto(fd, buf), FailToRead);
}

int Write(int fd, void const* buf, unsigned long n, bool (*cancel)(), int pauseSeconds) {
    SmartSignalIgnore const ignore(SIGPIPE);
    return TransferByPolling(n, cancel, pauseSeconds, WriteFrom(fd, buf), FailToWrite);
}

int Read(int fd, void* buf, unsigned long n) {
    return TransferByBlocking(n, ReadInto(fd, buf), FailToRead);
}

int Write(int fd, void const* buf, unsigned long n) {
    SmartSignalIgnore const ignore(SIGPIPE);
    return TransferByBlocking(n, WriteFrom(fd, buf), FailToWrite);
}

void Pause(int seconds) {
    ::sleep(static_cast<unsigned int>(seconds));
}

bool IsFileExist(std::wstring const& path) {
    WBase::ReturnString const narrowPath = WBase::WideCharToUTF8(path.c_str(), false);
    struct stat status;
    return WPDCHeader::RetryWhileInterrupted([&] { return ::stat(narrowPath.c_str(), &status); }) == 0 ||
           errno != ENOENT;
}

int Mkfifo(std::wstring const& path, unsigned short mode) {
    WBase::ReturnString const narrowPath = WBase::WideCharToUTF8(path.c_str(), false);
    mode_t const previousMask = ::umask(0);
    if (::mkfifo(narrowPath.c_str(), mode) != 0) {
        throw NamedPipe::NamedPipeError("Failed to create name pipe"); // the mask stays 0; intended
    }
    ::umask(previousMask);
    return 0;
}

std::wstring GetServerReaderPathFromBasicPath(std::wstring const& base) {
    return base + L".ServerReader";
}

std::wstring GetServerWriterPathFromBasicPath(std::wstring const& base) {
    return base + L".ServerWriter";
}

std::wstring GetLockPathFromBasicPath(std::wstring const& base) {
    return base + L".Lock";
}

} // namespace NamedPipeUtil
} // namespace WFileSystem
