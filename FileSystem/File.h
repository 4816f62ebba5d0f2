#ifndef WFILESYSTEM_FILESYSTEM_FILE_H
#define WFILESYSTEM_FILESYSTEM_FILE_H

/// \file
/// \brief Operations on bare descriptors, streams and paths.

#include <Defines/Export.h>

#include <cstdio>

namespace WFileSystem {

/// Operations on bare descriptors, streams and paths. The class has no state and is never made.
///
/// A report, as this class throws it, is a `WBase::ExceptionImpl<WBase::Message>` in the domain
/// `WBase::MESSAGE_DOMAIN_UNKNOWN`: its ID is the system's error number, the text quoted here is its first line, and the
/// system's description of the error is the second. Paths stand in it as the caller gave them.
class WFILESYSTEM_EXPORT File {
public:
    File() = delete;

    /// How a file is opened. The numbers are part of the interface.
    ///
    /// The underlying type is fixed, so any number may be passed. One above 6 opens a descriptor for reading, and makes the
    /// opening of a stream fail.
    enum OpenMode : unsigned int {
        OPEN_READ = 0,                ///< read an existing file; stream "r"
        OPEN_WRITE_TRUNCATE = 1,      ///< write; created when missing, emptied when not; stream "w"
        OPEN_WRITE_APPEND = 2,        ///< write at the end; created when missing; stream "a"
        OPEN_READ_WRITE = 3,          ///< read and write an existing file; stream "r+"
        OPEN_READ_WRITE_TRUNCATE = 4, ///< read and write; created when missing, emptied when not; stream "w+"
        OPEN_READ_APPEND = 5,         ///< read, and write at the end; created when missing; stream "a+"
        /// Not the same for both, on purpose. A descriptor: write; created when missing, not emptied. A stream ("r+"): read
        /// and write an existing file.
        OPEN_WRITE_CREATE = 6
    };

    /// Accepted for the sake of other systems, and ignored: it selects nothing and is not checked.
    enum ShareMode : unsigned int { SHARE_IGNORED = 0 };

    /// Opens a file as a descriptor, with close-on-exec set. An interrupted `open` is repeated without limit.
    ///
    /// A new file gets the permission bits of the module (see Initializer), or 0664 where there is no module, less those of
    /// the process's umask. A terminal does not become the controlling terminal.
    ///
    /// \param path the file; a relative one starts at the working directory
    /// \param mode see OpenMode
    /// \param share ignored
    /// \return a descriptor, 3 or higher, that the caller owns and closes with WPDCHeader::close
    /// \throws WBase::ExceptionImpl<WBase::Message> with nothing left open:
    ///     - "WFileSystem::File::OpenDescriptor: Failed to convert file path '…' to UTF-8." with the domain and ID of the
    ///       conversion failure and its text on the second line;
    ///     - "WFileSystem::File::OpenDescriptor: ::open failed for '…'.", a report;
    ///     - "WFileSystem::File::OpenDescriptor: ::open '…' and get system handle.", a report, when a standard stream was
    ///       closed and its number, 0 to 2, came up; a file created by then stays. The call did not fail, so the error number
    ///       is whatever it was before.
    /// \warning Close-on-exec is set by a second call after the opening: a program that another thread starts in between
    ///     inherits the descriptor.
    /// \warning Links are followed.
    /// \par Threads
    ///     Any thread.
    static int OpenDescriptor(wchar_t const* path, OpenMode mode, ShareMode share);

    /// Opens a file as a stream, with close-on-exec set on its descriptor, which may be any. An interrupted `fopen` is not
    /// repeated. A new file gets the C library's permission bits, 0666 less those of the umask.
    ///
    /// \param path the file; a relative one starts at the working directory
    /// \param mode see OpenMode
    /// \param share ignored
    /// \return a stream that the caller owns and closes with `fclose`
    /// \throws WBase::ExceptionImpl<WBase::Message> with nothing left open:
    ///     - "WFileSystem::File::OpenStream: Failed to convert file path '…' to UTF-8." as OpenDescriptor;
    ///     - "WFileSystem::File::OpenStream: ::fopen failed for '…'.", a report; its error is `EINVAL` for a mode above 6
    /// \warning As OpenDescriptor.
    /// \par Threads
    ///     Any thread.
    static FILE* OpenStream(wchar_t const* path, OpenMode mode, ShareMode share);

    /// Takes the exclusive record lock on the whole file, however it grows. An interrupted call is repeated without limit.
    ///
    /// \param fd a descriptor that is open for writing
    /// \param wait true: wait until the lock is granted; false: fail at once when another process holds one. The flags of
    ///     FileImpl have the opposite sense.
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::WriteLock: Failed to lock file #…." with the
    ///     descriptor's number, a report, for any failure; a lock held elsewhere is `EAGAIN` or `EACCES`
    /// \warning Record locks belong to the process. A second lock of the same file by any thread of this process is granted at
    ///     once; closing any descriptor of the file, also one opened by other code, drops them all; a child made by `fork`
    ///     does not have them.
    /// \warning The system looks for deadlocks by process: with several threads that hold one file and wait for another, a
    ///     waiting lock can fail with `EDEADLK` although no deadlock exists. Callers that hold several files retry it.
    /// \par Threads
    ///     Any thread, but see the warning.
    static void WriteLock(int fd, bool wait);

    /// Takes the shared record lock on the whole file; otherwise as WriteLock.
    ///
    /// \param fd a descriptor that is open for reading
    /// \param wait as WriteLock
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::ReadLock: Failed to lock file #….", as WriteLock
    /// \warning As WriteLock.
    static void ReadLock(int fd, bool wait);

    /// Drops whatever record lock the process has on the file. An interrupted call is repeated without limit; any other
    /// failure is ignored.
    static void Unlock(int fd) noexcept;

    /// Holds a record lock for a scope. It does not own the descriptor, which must stay open as long.
    ///
    /// \tparam lock WriteLock or ReadLock
    template <void (*lock)(int, bool)>
    class SmartLock {
    public:
        /// Waits for the lock.
        /// \throws what the lock operation throws; the guard holds nothing then
        explicit SmartLock(int fd) : descriptor_(fd) { Lock(); }

        /// Waits for the lock on the stream's descriptor, or on descriptor -1, which fails, when the stream is null.
        /// \throws what the lock operation throws; the guard holds nothing then
        explicit SmartLock(FILE* stream) : SmartLock(stream != nullptr ? ::fileno(stream) : -1) {}

        SmartLock(SmartLock const&) = delete;
        SmartLock& operator=(SmartLock const&) = delete;
        ~SmartLock() { Unlock(); }

        /// Waits for the lock, unless this guard holds it.
        /// \throws what the lock operation throws; the guard holds nothing then
        void Lock() {
            if (!locked_) {
                lock(descriptor_, true);
                locked_ = true;
            }
        }

        /// Drops the lock if this guard holds it; failures are ignored.
        void Unlock() noexcept {
            if (locked_) {
                File::Unlock(descriptor_);
                locked_ = false;
            }
        }

        /// True while this guard holds the lock.
        bool IsLocked() const noexcept { return locked_; }

    private:
        int descriptor_;
        bool locked_ = false;
    };

    /// Holds the exclusive lock for a scope.
    using WriteSmartLock = SmartLock<&File::WriteLock>;
    /// Holds the shared lock for a scope.
    using ReadSmartLock = SmartLock<&File::ReadLock>;
};

} // namespace WFileSystem

#endif
