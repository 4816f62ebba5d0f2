#include <Tests/Support/Child.h>
#include <Tests/Support/Interposition.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/Waiting.h>

#include <gtest/gtest.h>

#include <chrono>
#include <system_error>

#include <cerrno>
#include <cstdio>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace TestSupport {

/// One end of the line between the two sides. A word ends with a line feed.
class Channel {
public:
    explicit Channel(int fd) : fd_(fd) { ::fcntl(fd_, F_SETFD, FD_CLOEXEC); }

    ~Channel() {
        Unobserved const unobserved;
        ::close(fd_);
    }

    Channel(Channel const&) = delete;
    Channel& operator=(Channel const&) = delete;

    // A side that is gone is noticed by whoever waits for it.
    void Send(std::string_view word) const {
        std::string const line = std::string(word) + '\n';
        ::send(fd_, line.data(), line.size(), MSG_NOSIGNAL);
    }

    void EndSending() const { ::shutdown(fd_, SHUT_WR); }

    /// \return what is wrong, empty when the word came
    std::string Expect(std::string_view word) {
        Unobserved const unobserved;
        std::string const wanted = "Waited for '" + std::string(word) + "', but ";
        auto const end = std::chrono::steady_clock::now() + waitLimit;
        std::size_t length;
        while ((length = received_.find('\n')) == std::string::npos) {
            auto const left =
                std::chrono::duration_cast<std::chrono::milliseconds>(end - std::chrono::steady_clock::now()).count();
            pollfd waiting = {fd_, POLLIN, 0};
            int const result = left <= 0 ? 0 : ::poll(&waiting, 1, static_cast<int>(left));
            if (result == 0) {
                return wanted + "nothing came.";
            }
            char buffer[256];
            ssize_t const count = result == -1 ? -1 : ::recv(fd_, buffer, sizeof buffer, 0);
            if (count > 0) {
                received_.append(buffer, static_cast<std::size_t>(count));
            } else if (count == 0 || errno != EINTR) {
                return wanted + "the other side is gone.";
            }
        }
        std::string const next = received_.substr(0, length);
        received_.erase(0, length + 1);
        return next == word ? std::string() : wanted + "'" + next + "' came.";
    }

private:
    int fd_;
    std::string received_;
};

namespace {

// The child's exit code.
int RunAndReport(std::function<int(Child::Parent&)> const& code, Channel& channel) {
    bool const hadFailed = ::testing::Test::HasFailure();
    Child::Parent parent(channel);
    int result = Child::EXIT_EXCEPTION;
    try {
        result = code(parent);
        if (!hadFailed && ::testing::Test::HasFailure()) {
            result = Child::EXIT_FAILED_ASSERTION;
        }
    } catch (std::exception const& exception) {
        std::fprintf(stderr, "An exception left the code of a child process: %s\n", exception.what());
    }
    return result;
}

[[noreturn]] void ExitChild(int status) {
    std::fflush(stdout);
    ::_exit(status);
}

} // namespace

void Child::Parent::Say(std::string_view word) {
    channel_.Send(word);
}

void Child::Parent::WaitFor(std::string_view word) {
    std::string const problem = channel_.Expect(word);
    if (!problem.empty()) {
        std::fprintf(stderr, "In a child process: %s\n", problem.c_str());
        ExitChild(EXIT_OUT_OF_STEP);
    }
}

Child::Child(IntCode const& code) {
    bool isChild = false;
    {
        Unobserved const unobserved;
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == -1) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
        channel_ = std::make_unique<Channel>(ends[0]);
        auto other = std::make_unique<Channel>(ends[1]);
        isChild = Fork() == 0;
        if (isChild) {
            channel_ = std::move(other);
        }
    }
    if (isChild) {
        // The parent may be in the middle of an observed call.
        IsUnobserved() = false;
        ExitChild(RunAndReport(code.call, *channel_));
    }
}

Child::~Child() {
    if (!HasEnded()) {
        EXPECT_EQ(Wait(), 0) << "The child process failed.";
    }
}

void Child::Say(std::string_view word) {
    channel_->Send(word);
}

bool Child::WaitFor(std::string_view word) {
    std::string const problem = channel_->Expect(word);
    if (problem.empty()) {
        return true;
    }
    ADD_FAILURE() << problem;
    Destroy();
    return false;
}

int Child::Wait() {
    // A child that still waits for a word learns that none will come; what it says itself is not read any more.
    channel_->EndSending();
    return WaitForEnd();
}

int Child::Kill(int signal) {
    Signal(signal);
    return WaitForEnd();
}

} // namespace TestSupport
