#include <Tests/Support/Recorder.h>
#include <Tests/Support/Terminal.h>
#include <Tests/Support/Waiting.h>

#include <gtest/gtest.h>

#include <system_error>
#include <utility>

#include <cerrno>
#include <cstdlib>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

namespace TestSupport {
namespace {

void Check(bool isGood, char const* call) {
    if (!isGood) {
        throw std::system_error(errno, std::generic_category(), call);
    }
}

} // namespace

Terminal::Terminal() {
    Unobserved const unobserved;
    reader_ = ::posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    Check(reader_ != -1, "posix_openpt");
    Check(::grantpt(reader_) == 0, "grantpt");
    Check(::unlockpt(reader_) == 0, "unlockpt");
    terminal_ = ::open(Path().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    Check(terminal_ != -1, "open");
    termios settings = {};
    Check(::tcgetattr(terminal_, &settings) == 0, "tcgetattr");
    settings.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    Check(::tcsetattr(terminal_, TCSANOW, &settings) == 0, "tcsetattr");
    ::fcntl(reader_, F_SETFL, O_NONBLOCK);
}

Terminal::~Terminal() {
    Unobserved const unobserved;
    ::close(reader_);
    if (terminal_ != -1) {
        ::close(terminal_);
    }
}

std::string Terminal::Path() const {
    return ::ptsname(reader_);
}

std::string Terminal::ReadToEnd() {
    Unobserved const unobserved;
    ::close(std::exchange(terminal_, -1));
    std::string text;
    bool const hasEnded = WaitUntil([&] {
        char buffer[4096];
        ssize_t count = 0;
        while ((count = ::read(reader_, buffer, sizeof buffer)) > 0) {
            text.append(buffer, static_cast<std::size_t>(count));
        }
        // A terminal that nobody has open fails, or is at its end.
        return count == 0 || (errno != EAGAIN && errno != EINTR);
    });
    EXPECT_TRUE(hasEnded) << "The terminal is still open. It shows: " << text;
    return text;
}

} // namespace TestSupport
