#ifndef WFILESYSTEM_FILESYSTEM_FILE_H
#define WFILESYSTEM_FILESYSTEM_FILE_H

/// \file
/// \brief Operations on bare descriptors, streams and paths.

#include <Base/Message.h>
#include <DataType/Binary.h>
#include <DataType/DateTime.h>
#include <Defines/Export.h>

#include <cstdio>

namespace WFileSystem {

/// Operations on bare descriptors, streams and paths. The class has no state and is never made.
///
/// A report, as this class throws it, is a `WBase::ExceptionImpl<WBase::Message>` in the domain
/// `WBase::MESSAGE_DOMAIN_UNKNOWN`: its ID is the system's error number, the text quoted here is its first line, and
/// the system's description of the error is the second. Paths stand in it as the caller gave them.
///
/// A wrapped message, as the operations on whole files use it, is a plain `WBase::Message` in the domain
/// `WBase::MESSAGE_DOMAIN_SERVER` with the ID FILESYSTEM_MESSAGE_ID and the text quoted here, with the path as the
/// caller gave it; its cause is the system's error.
///
/// The operations on descriptors and streams transfer through a buffer of the caller's; its full size is the unit.
class WFILESYSTEM_EXPORT File {
public:
    File() = delete;

    /// How a file is opened. The numbers are part of the interface.
    ///
    /// The underlying type is fixed, so any number may be passed. One above 6 opens a descriptor for reading, and makes
    /// the opening of a stream fail.
    enum OpenMode : unsigned int {
        OPEN_READ = 0,                ///< read an existing file; stream "r"
        OPEN_WRITE_TRUNCATE = 1,      ///< write; created when missing, emptied when not; stream "w"
        OPEN_WRITE_APPEND = 2,        ///< write at the end; created when missing; stream "a"
        OPEN_READ_WRITE = 3,          ///< read and write an existing file; stream "r+"
        OPEN_READ_WRITE_TRUNCATE = 4, ///< read and write; created when missing, emptied when not; stream "w+"
        OPEN_READ_APPEND = 5,         ///< read, and write at the end; created when missing; stream "a+"
        /// Not the same for both, on purpose. A descriptor: write; created when missing, not emptied. A stream ("r+"):
        /// read and write an existing file.
        OPEN_WRITE_CREATE = 6
    };

    /// Accepted for the sake of other systems, and ignored: it selects nothing and is not checked.
    enum ShareMode : unsigned int { SHARE_IGNORED = 0 };

    /// Opens a file as a descriptor, with close-on-exec set. An interrupted `open` is repeated without limit.
    ///
    /// A new file gets the permission bits of the module (see Initializer), or 0664 where there is no module, less
    /// those of the process's umask. A terminal does not become the controlling terminal.
    ///
    /// \param path the file; a relative one starts at the working directory
    /// \param mode see OpenMode
    /// \param share ignored
    /// \return a descriptor, 3 or higher, that the caller owns and closes with WPDCHeader::close
    /// \throws WBase::ExceptionImpl<WBase::Message> with nothing left open:
    ///     - "WFileSystem::File::OpenDescriptor: Failed to convert file path '…' to UTF-8." with the domain and ID of
    ///       the conversion failure and its text on the second line;
    ///     - "WFileSystem::File::OpenDescriptor: ::open failed for '…'.", a report;
    ///     - "WFileSystem::File::OpenDescriptor: ::open '…' and get system handle.", a report, when a standard stream
    ///       was closed and its number, 0 to 2, came up; a file created or emptied by then stays so. The call did not
    ///       fail, so the error number is whatever it was before.
    /// \warning Close-on-exec is set by a second call after the opening: a program that another thread starts in
    ///     between inherits the descriptor.
    /// \warning Links are followed.
    /// \par Threads
    ///     Any thread.
    static int OpenDescriptor(wchar_t const* path, OpenMode mode, ShareMode share);

    /// Opens a file as a stream, with close-on-exec set on its descriptor, which may be any. An interrupted `fopen` is
    /// not repeated. A new file gets the C library's permission bits, 0666 less those of the umask.
    ///
    /// \param path the file; a relative one starts at the working directory
    /// \param mode see OpenMode
    /// \param share ignored
    /// \return a stream that the caller owns and closes with `fclose`
    /// \throws WBase::ExceptionImpl<WBase::Message> with nothing left open:
    ///     - "WFileSystem::File::OpenStream: Failed to convert file path '…' to UTF-8." as OpenDescriptor;
    ///     - "WFileSystem::File::OpenStream: ::fopen failed for '…'.", a report; its error is `EINVAL` for a mode above
    ///       6
    /// \warning As OpenDescriptor.
    /// \par Threads
    ///     Any thread.
    static FILE* OpenStream(wchar_t const* path, OpenMode mode, ShareMode share);

    /// Copies from the position of `from` to its end, then flushes `to` to the device.
    ///
    /// `read` and `write` are made once a step, `fsync` is repeated while a signal interrupts it.
    /// \return 0
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::Copy: ::write failed for file #….", a report,
    ///     when less than what was read could be written; and what Flush throws
    /// \warning A failing `read` is not noticed by itself. It becomes a write of 4,294,967,295 bytes from the buffer,
    ///     which lets memory behind the buffer reach the target where the system writes a part of it; where that write
    ///     fails as well, the copying goes on, for ever if `read` goes on failing. A directory as the source is such a
    ///     case.
    /// \warning The buffer must not be empty: nothing is copied then, and no failure is reported.
    /// \warning Where both are open on the same file, and `to` writes ahead of where `from` reads, at the end for
    ///     example (OPEN_WRITE_APPEND), the copying reads what it has written and never ends of itself: the file grows
    ///     until a write fails.
    static int Copy(int from, int to, WDataType::Binary& buffer);

    /// Copies from the position of `from` to its end, then flushes the stream `to`, though not to the device.
    /// \return 0
    /// \throws what Read, Write and Flush throw
    /// \warning The buffer must not be empty: the copying would never end.
    /// \warning Within one file as Copy of descriptors, once more is left to read than the buffers hold.
    static int Copy(FILE* from, FILE* to, WDataType::Binary& buffer);

    /// Reads up to `n` bytes, and never more than the buffer's full size, which also stands for `n` = 0. The buffer's
    /// size tells how many came; at the end of the file it is 0.
    /// \return 0
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::Read: ::fread failed.", a report, when the
    ///     stream's error indicator is set, be it by an earlier failure: it is tested and never cleared
    static int Read(FILE* stream, WDataType::Binary& buffer, unsigned long n);

    /// Writes `n` bytes; no call at all where `n` is 0.
    /// \return 0
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::Write: Failed.", a report
    static int Write(FILE* stream, void const* data, unsigned long n);

    /// Writes `n` bytes of a text, or, where `n` is 0, the text up to its NUL.
    /// \return 0
    /// \throws as the other Write
    static int Write(FILE* stream, char const* text, unsigned long n);

    /// Reads one line, with its line feed. A line longer than the buffer less one byte comes in pieces. The buffer is
    /// empty at the end of the file.
    /// \return 0
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::ReadLine: ::fgets failed.", a report, as with
    ///     Read
    /// \warning For text only: what follows a zero byte in a line is lost.
    /// \warning With a buffer of one byte the result is always empty, as at the end of the file.
    /// \warning The buffer must be smaller than 2 GiB.
    static int ReadLine(FILE* stream, WDataType::Binary& buffer);

    /// Waits until the file's data and attributes are on the device (`fsync`, repeated while a signal interrupts it).
    /// \return 0
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::Flush: ::fdatasync failed.", a report
    static int Flush(int fd);

    /// Hands what the stream holds back to the system (`fflush`).
    /// \return 0
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::Flush: ::fflush failed.", a report
    static int Flush(FILE* stream);

    /// The size of the file in bytes (`fstat`, repeated while a signal interrupts it).
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::GetSize: ::fstat failed for #….", a report
    static long long GetSize(int fd);

    /// The size of the file under a stream; what the stream holds back is not counted.
    /// \throws as the other GetSize
    static long long GetSize(FILE* stream);

    /// Makes the file `length` bytes long (`ftruncate`, repeated while a signal interrupts it).
    /// \return 0
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::Truncate: ::ftruncate failed.", a report
    static int Truncate(int fd, long long length);

    /// Truncates the file under a stream; what the stream holds back is not cut.
    /// \return 0
    /// \throws as the other Truncate
    static int Truncate(FILE* stream, long long length);

    /// The position.
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::GetPosition: ::lseek failed.", a report
    static long long GetPosition(int fd);

    /// The position.
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::GetPosition: ::ftello failed.", a report
    static long long GetPosition(FILE* stream);

    /// Moves the position by `offset` bytes.
    /// \return the new position
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::MovePosition: ::lseek failed.", a report
    static long long MovePosition(int fd, long long offset);

    /// Moves the position by `offset` bytes.
    /// \return 0, unlike the operation on a descriptor
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::MovePosition: ::fseeko failed.", a report
    static long long MovePosition(FILE* stream, long long offset);

    /// Sets the position to `offset` bytes from the start.
    /// \return the new position
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::SetPosition: ::lseek failed.", a report
    static long long SetPosition(int fd, long long offset);

    /// Sets the position to `offset` bytes from the start.
    /// \return 0, unlike the operation on a descriptor
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::SetPosition: ::fseeko failed.", a report
    static long long SetPosition(FILE* stream, long long offset);

    /// Moves `size` bytes at the position to `destination`, inside one stream; the two places may overlap.
    ///
    /// \param stream a stream open for reading and writing
    /// \param buffer what the bytes go through
    /// \param destination the bytes' new place, counted from the start; nothing is done when it is the position
    /// \param size the number of bytes; 0 stands for all up to the end
    /// \return 0; the position is where the last step left it
    /// \throws what the operations throw that it is made of; what was moved by then stays moved
    /// \warning Bytes beyond the end of the stream are not there to be moved: what the buffer held before is written
    ///     instead, and what was read before the end lands elsewhere than at `destination`.
    /// \warning The buffer must not be empty: the process dies of a division by zero.
    static int CopyBlock(FILE* stream, WDataType::Binary& buffer, long long destination, long long size);

    /// Deletes a file, or a link to one (`unlink`). Nothing is repeated; a missing file is a failure like any other.
    ///
    /// \param path the file
    /// \param report null, or the message that a failure is prepended to: "Failed to delete file '…'.", caused by the
    ///     system's error or by the failure to convert the path
    /// \return true: it is deleted; no `WBase::Message` is thrown
    static bool Delete(wchar_t const* path, WBase::Message* report);

    /// Gives a file another name in the same file system (`rename`); a file of that name is replaced. Nothing is
    /// repeated.
    /// \throws WBase::Message "Failed to move file '…' to '…'.", wrapped
    /// \throws WBase::StringConversionException a path can't be converted
    static void Move(wchar_t const* from, wchar_t const* to);

    /// Copies a file's content, as streams, into a file that is created or emptied first.
    /// \throws what OpenStream and Copy of streams throw; the streams are closed then
    /// \warning Copying a file onto itself empties it. When the source can't be read, a directory for example, the
    ///     target is empty already.
    /// \warning The results of closing the files are not looked at: an error that the system reports only then goes
    ///     unnoticed.
    static void Copy(wchar_t const* from, wchar_t const* to, WDataType::Binary& buffer);

    /// As the operation above, in steps of 16 KiB.
    static void Copy(wchar_t const* from, wchar_t const* to);

    /// Copies from the position of a descriptor to its end, in steps of 16 KiB, into a file that is created or emptied
    /// first and flushed to the device at last. The source stays open.
    /// \throws what OpenDescriptor and Copy of descriptors throw; the target is closed then
    /// \warning As Copy of descriptors. Copying a file onto itself empties it. The result of closing the target is not
    ///     looked at.
    static void Copy(int from, wchar_t const* to);

    /// Copies from the position of a stream to its end, in steps of 16 KiB, into a file that is created or emptied
    /// first. The source stays open.
    /// \throws what OpenStream and Copy of streams throw; the target is closed then
    /// \warning Copying a file onto itself empties it. When the source can't be read, the target is empty already. The
    ///     result of closing the target is not looked at.
    static void Copy(FILE* from, wchar_t const* to);

    /// Gives a file the times, the owner and the permission bits of another. All three are tried, in this order.
    ///
    /// \param from the file whose attributes count (`stat`, repeated while a signal interrupts it)
    /// \param to the file that gets them
    /// \param report null, or the message that each failure is prepended to: "Failed to change times of file '…'.",
    ///     "Failed to change owner of file '…'." or "Failed to change permissions of file '…'."
    /// \return false: some attribute could not be set, and there is a report
    /// \throws WBase::Message "Failed to get attributes of file '…'.", wrapped, for `from` only
    /// \throws WBase::StringConversionException a path can't be converted
    /// \warning With a null report, the result is true whatever could not be set.
    /// \warning Fractions of seconds are dropped.
    static bool CopyAttributes(wchar_t const* from, wchar_t const* to, WBase::Message* report);

    /// The size of what the path names, in bytes (`stat`, repeated while a signal interrupts it).
    /// \throws WBase::Message "Failed to get attributes of file '…'.", wrapped
    /// \throws WBase::StringConversionException the path can't be converted
    static unsigned long GetSize(wchar_t const* path);

    /// As GetSize, on every platform in 64 bits.
    static unsigned long long GetSize64(wchar_t const* path);

    /// The time of the last modification, in UTC, to the second.
    /// \throws as GetSize
    /// \warning The seconds are cut to 32 bits: a time after 19 January 2038, or before 13 December 1901, comes out
    ///     wrong.
    static void GetLastModified(wchar_t const* path, WDataType::DateTime& result);

    /// Takes the exclusive record lock on the whole file, however it grows. An interrupted call is repeated without
    /// limit.
    ///
    /// \param fd a descriptor that is open for writing
    /// \param wait true: wait until the lock is granted; false: fail at once when another process holds one. The flags
    ///     of FileImpl have the opposite sense.
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::WriteLock: Failed to lock file #…." with the
    ///     descriptor's number, a report, for any failure; a lock held elsewhere is `EAGAIN` or `EACCES`
    /// \warning Record locks belong to the process. A second lock of the same file by any thread of this process is
    ///     granted at once and replaces the first; unlocking or closing any descriptor of the file, also one opened by
    ///     other code, drops them all; a child made by `fork` does not have them.
    /// \warning The system looks for deadlocks by process: with several threads that hold one file and wait for
    ///     another, a waiting lock can fail with `EDEADLK` although no deadlock exists. Callers that hold several files
    ///     retry it.
    /// \par Threads
    ///     Any thread, but see the warning.
    static void WriteLock(int fd, bool wait);

    /// Takes the shared record lock on the whole file; otherwise as WriteLock.
    ///
    /// \param fd a descriptor that is open for reading
    /// \param wait as WriteLock
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::File::ReadLock: Failed to lock file #….", as
    ///     WriteLock
    /// \warning As WriteLock.
    static void ReadLock(int fd, bool wait);

    /// Drops whatever record lock the process has on the file, whichever descriptor it was taken through. An
    /// interrupted call is repeated without limit; any other failure is ignored.
    static void Unlock(int fd) noexcept;

    /// Holds a record lock for a scope. It does not own the descriptor, which must stay open as long.
    ///
    /// \warning As WriteLock. Two guards of one file in a process share one lock: the latter's kind counts, and the end
    ///     of either leaves the file unlocked, although the other still says that it is locked.
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
