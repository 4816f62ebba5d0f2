#ifndef WFILESYSTEM_TOOLS_WFS_WAITING_H
#define WFILESYSTEM_TOOLS_WFS_WAITING_H

// The options --no-wait and --wait, and the locks that obey them.

#include <FileSystem/ReadableFile.h>

#include <CLI/CLI.hpp>

#include <functional>
#include <optional>
#include <string>
#include <variant>

namespace Wfs {

/// Checks an option's number, in decimal digits: CLI11 by itself would take "010" for eight.
/// \return what is wrong with it, or nothing
std::string CheckNumber(std::string const& text);

/// Declares --wait with a number of milliseconds.
CLI::Option& AddMilliseconds(CLI::App& verb, char const* description, std::optional<unsigned long>& milliseconds);

/// How long a verb waits for a record lock.
struct Waiting {
    bool isForbidden = false;                  ///< --no-wait
    std::optional<unsigned long> milliseconds; ///< --wait; without either the wait has no limit

    void AddOptions(CLI::App& verb);
};

/// Holds a file's shared record lock.
class ReadLock {
public:
    /// \throws Failure with LOCK_NOT_OBTAINED: another process held the exclusive lock until the end of the wait
    /// \throws WBase::Message the lock can't be taken
    ReadLock(WFileSystem::ReadableFile& file, Waiting const& waiting);

private:
    using Guard = std::variant<
        WFileSystem::ReadableFile::ReadSmartLock, WFileSystem::ReadableFile::ReadSmartLock_NoWait,
        WFileSystem::ReadableFile::ReadSmartLock_Wait>;

    static Guard Take(WFileSystem::ReadableFile& file, Waiting const& waiting);

    Guard guard_;
};

/// Takes a record lock for which the library has no guard that tries again: an exclusive lock that is held elsewhere
/// ends the library's guards with an exception.
/// \param lock takes the lock, waiting for it or not; throws a message with `EAGAIN` or `EACCES` where another process
///     holds it, and returns false where there are no record locks
/// \throws Failure with LOCK_NOT_OBTAINED: another process held the lock until the end of the wait
/// \throws what `lock` throws
void TakeLock(Waiting const& waiting, std::function<bool(bool dontWait)> const& lock);

} // namespace Wfs

#endif
