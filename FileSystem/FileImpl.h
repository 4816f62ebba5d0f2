#ifndef WFILESYSTEM_FILESYSTEM_FILEIMPL_H
#define WFILESYSTEM_FILESYSTEM_FILEIMPL_H

/// \file
/// \brief Operations on an open descriptor that name its file when they fail.

#include <Base/Message.h>
#include <DataType/Binary.h>
#include <Defines/Export.h>

namespace WFileSystem {

/// Operations on an open descriptor on behalf of the file objects. The class has no state and is never made.
///
/// Every operation takes the path of the file only to name it in a failure. A failure is a plain `WBase::Message` in
/// the domain `WBase::MESSAGE_DOMAIN_SERVER` with the ID FILESYSTEM_MESSAGE_ID and the text quoted here, in which the
/// path is made absolute; its cause is the system's error, unless "without cause" is said. After a failure the
/// descriptor is still open, except where closing was what failed.
///
/// \warning To make a relative path absolute needs the working directory. Where that is not UTF-8, takes 1024 bytes or
///     more, or was removed, what GetCurrentWorkingDirectory throws replaces every failure.
///
/// \par Retries
///     `fstat`, `stat`, `fsync`, `ftruncate`, `read`, `write` and the locks are repeated without limit while a signal
///     interrupts them; `lseek` is not. For `close` see WPDCHeader::close.
/// \par Threads
///     Nothing is locked here. A descriptor has one position, so one thread at a time uses one descriptor.
class WFILESYSTEM_EXPORT FileImpl {
public:
    FileImpl() = delete;

    /// The size of the file in bytes.
    /// \throws WBase::Message "Failed to get size of file '…'."
    static long long GetSize(wchar_t const* path, int fd);

    /// Writes `n` bytes of a text, or, where `n` is 0, the text up to its NUL.
    /// \throws WBase::Message as the other Write
    static void Write(wchar_t const* path, int fd, char const* text, unsigned long n);

    /// Writes exactly `n` bytes, at most 1 MiB a call; no call at all where `n` is 0.
    /// \throws WBase::Message "Failed to write … bytes to file '…'.": with the length of the 1 MiB chunk, when its
    ///     first `write` failed; without cause and with the number of its bytes that are missing, when a later one did
    /// \warning Data is written in place and not synced.
    /// \warning A `write` that writes nothing is no failure: it is made again, without limit.
    static void Write(wchar_t const* path, int fd, void const* data, unsigned long n);

    /// Reads exactly `n` bytes, at most 1 MiB a call; no call at all where `n` is 0.
    /// \throws WBase::Message "Failed to read … bytes from file '…'.": with the length of the 1 MiB chunk, when its
    ///     first `read` failed; without cause and with the number of its bytes that are missing, when a later one did
    ///     or the file ended. What was read by then is in `data`.
    static void Read(wchar_t const* path, int fd, void* data, unsigned long n);

    /// Reads up to `n` bytes, and never more than the buffer's full size, which also stands for `n` = 0. The buffer's
    /// size tells how many came; at the end of the file it is 0. A failure after the first bytes ends the reading like
    /// the end of the file.
    /// \throws WBase::Message "Failed to read … bytes from file '…'." with the number wanted, when nothing was read
    static void Read(wchar_t const* path, int fd, WDataType::Binary& buffer, unsigned long n);

    /// Reads one line, with its line feed, and leaves the position behind it. A line longer than the buffer comes in
    /// pieces. The buffer is empty at the end of the file.
    /// \throws WBase::Message as Read, and "Failed to set current position of file '…'."
    /// \warning For text only: a line without a line feed in the buffer's reach ends before the first zero byte, and
    ///     the position stays at that byte. The next call then gives an empty buffer, as at the end of the file.
    /// \warning The file must be one that can be positioned: not a pipe, not a terminal.
    /// \warning The buffer must be smaller than 2 GiB.
    static void ReadLine(wchar_t const* path, int fd, WDataType::Binary& buffer);

    /// Moves the position by `offset` bytes.
    /// \return the new position
    /// \throws WBase::Message "Failed to set current position of file '…'."
    static long long MovePosition(wchar_t const* path, int fd, long long offset);

    /// Waits until the file's data and attributes are on the device (`fsync`).
    /// \return 0
    /// \throws WBase::Message "Failed to flush file '…'."
    static int Flush(wchar_t const* path, int fd);

    /// Cuts, or extends, the file at the position.
    /// \return 0
    /// \throws WBase::Message "Failed to get current position of file '…'." or "Failed to truncate file '…'."
    static int Truncate(wchar_t const* path, int fd);

    /// The position.
    /// \throws WBase::Message "Failed to get current position of file '…'."
    static long long GetPosition(wchar_t const* path, int fd);

    /// Sets the position to `offset` bytes from the start.
    /// \return the new position
    /// \throws WBase::Message "Failed to set current position of file '…'."
    static long long SetPosition(wchar_t const* path, int fd, long long offset);

    /// Sets the position to the end.
    /// \return the new position, which is the size
    /// \throws WBase::Message "Failed to set current position of file '…'."
    static long long SetPositionToEnd(wchar_t const* path, int fd);

    /// Sets the variable to -1, then closes the descriptor that it held.
    /// \return 0
    /// \throws WBase::Message "Failed to close handle of file '…'."; the variable is -1 then, too
    static int CloseAndGroundHandle(wchar_t const* path, int& fd);

    /// Sets the variable to -1, then closes the descriptor that it held.
    /// \return the result of WPDCHeader::close
    static int CloseAndGroundHandle_NoThrow(int& fd) noexcept;

    /// Sets the variable to -1, empties the file of the descriptor that it held, and closes that descriptor. A file
    /// that can't be emptied is closed all the same. An exception other than a `WBase::Message` ends the process.
    /// \return the result of WPDCHeader::close
    static int TruncateFile_ThenCloseAndGroundHandle_NoThrow(int& fd) noexcept;

    /// Tells whether the path names the open file: whether both have the same device and inode.
    /// \param path the path
    /// \param fd the open file
    /// \param out null, or the message that a failure is prepended to: "Failed to get attributes of file '…'." A path
    ///     that names nothing is no failure.
    /// \return true: it does; false: it does not, or that could not be found out
    /// \throws WBase::StringConversionException the path can't be converted
    /// \throws what GetCurrentWorkingDirectory throws, for the report on a relative path
    static bool DoesPathMatchFileHandle(wchar_t const* path, int fd, WBase::Message* out);

    /// Takes the exclusive record lock on the whole file, however it grows.
    ///
    /// \param path names the file in a failure
    /// \param fd a descriptor that is open for writing
    /// \param dontWait true: don't wait; false: wait until the lock is granted. The flags of File have the opposite
    ///     sense.
    /// \return true: the lock is taken; false, only with `dontWait`: the file system does not support locks (`ENOTSUP`)
    /// \throws WBase::Message "Failed to lock file '…'." for any other failure. A lock held elsewhere is one, with
    ///     `EAGAIN`, also with `dontWait`, unlike with ReadLock.
    /// \warning As File::WriteLock.
    static bool WriteLock(wchar_t const* path, int fd, bool dontWait);

    /// Takes the shared record lock on the whole file, however it grows.
    ///
    /// \param path names the file in a failure
    /// \param fd a descriptor that is open for reading
    /// \param dontWait as WriteLock
    /// \return true: the lock is taken; false, only with `dontWait`: another process holds the exclusive lock
    ///     (`EAGAIN`), or the file system does not support locks (`ENOTSUP`)
    /// \throws WBase::Message "Failed to lock file '…'." for any other failure
    /// \warning As File::WriteLock.
    static bool ReadLock(wchar_t const* path, int fd, bool dontWait);

    /// Drops whatever record lock the process has on the file, whichever descriptor it was taken through; failures are
    /// ignored. Descriptor -1 stands for no file.
    static void Unlock(int fd) noexcept;
};

} // namespace WFileSystem

#endif
