#ifndef WFILESYSTEM_TESTS_SUPPORT_PROCESS_H
#define WFILESYSTEM_TESTS_SUPPORT_PROCESS_H

/// \file
/// \brief The end of a child process, waited for with a bound; the base of Child and Program.

#include <functional>

#include <csignal>

#include <sys/types.h>

namespace TestSupport {

/// A child of this process.
class Process {
public:
    Process(Process const&) = delete;
    Process& operator=(Process const&) = delete;

    pid_t GetPid() const { return pid_; }

    /// Whether its end was seen by Wait() or Kill().
    bool HasEnded() const { return hasEnded_; }

    /// Sends a signal.
    void Signal(int signal) const;

protected:
    Process() = default;
    ~Process() = default;

    /// Forks. In the child, which dies with the thread that made it where the system can do that, the result is 0.
    pid_t Fork();

    /// Waits for the end, and calls `meanwhile` again and again; a process that does not come to it is killed, and the
    /// test fails.
    /// \return the exit code; for a process that a signal ended the signal's number, negative
    int WaitForEnd(std::function<void()> const& meanwhile = [] {});

    /// Kills it.
    void Destroy();

private:
    bool TryToReap();

    pid_t pid_ = -1;
    bool hasEnded_ = false;
    int status_ = 0;
};

} // namespace TestSupport

#endif
