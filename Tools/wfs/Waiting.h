#ifndef WFILESYSTEM_TOOLS_WFS_WAITING_H
#define WFILESYSTEM_TOOLS_WFS_WAITING_H

// The options --no-wait and --wait, and the locks that obey them.

#include <FileSystem/ReadableFile.h>

#include <CLI/CLI.hpp>

#include <optional>
#include <variant>

namespace Wfs {

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

} // namespace Wfs

#endif
