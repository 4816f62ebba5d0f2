#ifndef WFILESYSTEM_TOOLS_WFS_INTERRUPTION_H
#define WFILESYSTEM_TOOLS_WFS_INTERRUPTION_H

// Signals that end a verb in good order.

#include <csignal>

namespace Wfs {

/// Thrown when SIGINT or SIGTERM came.
struct Interrupted {
    int signal;
};

/// While it lives, SIGINT and SIGTERM do not end the process, but the next wait for input. A signal that was ignored
/// before stays so. One at a time.
class Interruption {
public:
    Interruption();
    ~Interruption();

    Interruption(Interruption const&) = delete;
    Interruption& operator=(Interruption const&) = delete;

    /// Waits until the descriptor can be read, or is at its end.
    /// \throws Interrupted
    void WaitForInput(int fd) const;

private:
    struct sigaction previousInterrupt_ = {};
    struct sigaction previousTermination_ = {};
};

/// Ends the process by the signal, as if it had not been caught.
[[noreturn]] void EndBy(Interrupted const& interrupted);

} // namespace Wfs

#endif
