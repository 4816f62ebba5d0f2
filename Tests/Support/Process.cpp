#include <Tests/Support/Process.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/Waiting.h>

#include <gtest/gtest.h>

#include <system_error>

#include <cerrno>
#include <cstdio>

#include <sys/wait.h>
#include <unistd.h>
#ifdef __linux__
#include <sys/prctl.h>
#endif

namespace TestSupport {

void Process::Signal(int signal) const {
    // The number of a process that was reaped may be another's by now.
    if (!hasEnded_) {
        ::kill(pid_, signal);
    }
}

pid_t Process::Fork() {
    // What stands in the buffer would come out twice.
    std::fflush(stdout);
    pid_ = ::fork();
    if (pid_ == -1) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
#ifdef __linux__
    if (pid_ == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    }
#endif
    return pid_;
}

int Process::WaitForEnd(std::function<void()> const& meanwhile) {
    bool const hasCome = WaitUntil([&] {
        meanwhile();
        return TryToReap();
    });
    if (!hasCome) {
        ADD_FAILURE() << "The child process " << pid_ << " does not end; it is killed.";
        Destroy();
    }
    return WIFEXITED(status_) ? WEXITSTATUS(status_) : -WTERMSIG(status_);
}

void Process::Destroy() {
    Signal(SIGKILL);
    // Its end is certain and needs no more than a turn of the processor.
    EXPECT_TRUE(WaitUntil([&] { return TryToReap(); }, std::chrono::minutes(1)))
        << "The process " << pid_ << " is left.";
}

bool Process::TryToReap() {
    Unobserved const unobserved;
    hasEnded_ = hasEnded_ || ::waitpid(pid_, &status_, WNOHANG) == pid_;
    return hasEnded_;
}

} // namespace TestSupport
