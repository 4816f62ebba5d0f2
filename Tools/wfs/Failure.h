#ifndef WFILESYSTEM_TOOLS_WFS_FAILURE_H
#define WFILESYSTEM_TOOLS_WFS_FAILURE_H

// How a verb fails: exit statuses, failures of the program's own, and the reports on standard error.

#include <stdexcept>
#include <string>
#include <string_view>

namespace Wfs {

/// What the program ends with.
enum ExitStatus : int {
    SUCCESS = 0,
    FAILURE = 1,
    WRONG_USAGE = 2,
    LOCK_NOT_OBTAINED = 75, ///< a temporary failure, as in sysexits.h: try again later
    NOT_STARTED = 127,      ///< a command, as with the shell
    KILLED = 128            ///< a command; to this the signal's number is added
};

/// A failure that concerns one path. The report adds the path.
class Failure : public std::runtime_error {
public:
    explicit Failure(std::string const& text, ExitStatus status = FAILURE)
        : std::runtime_error(text), status_(status) {}

    ExitStatus GetStatus() const noexcept { return status_; }

private:
    ExitStatus status_;
};

/// Standard output can't be written. No other path is tried then.
class OutputFailure : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// Any text as valid UTF-8; bad bytes become U+FFFD.
std::string ToUTF8(std::string const& text);

/// Writes "wfs: text" to standard error. On a terminal the program's name is red, also in the lines of the text that
/// begin with it.
void Report(std::string const& text);

/// Writes "wfs: text", or "wfs: 'path': text" where the text does not name the path as it was given.
void Report(std::string const& path, std::string_view text);

} // namespace Wfs

#endif
