#ifndef WFILESYSTEM_FILESYSTEM_WRITEABLEFILE_H
#define WFILESYSTEM_FILESYSTEM_WRITEABLEFILE_H

/// \file
/// \brief Files open for writing.

#include <Base/TotalTimer.h>
#include <Defines/Export.h>
#include <FileSystem/GenericFile.h>
#include <FileSystem/SmartLock.h>

#include <memory>

namespace WFileSystem {

/// A file open for writing.
///
/// What is written counts only after CommitAndClose. An object that is destroyed without it does to the file what its
/// policy says, see IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED.
///
/// \code
/// auto const file = WFileSystem::OpenWriteableFile(L"report.txt", WFileSystem::DELETE_FILE);
/// WFileSystem::WriteableFile::WriteSmartLock const lock(*file);
/// file->Write("All is well.\n", 0);
/// file->Truncate();
/// file->CommitAndClose();
/// \endcode
/// \warning Data is written in place and CommitAndClose does not sync it: a crash can leave a torn file. Flush syncs.
class WFILESYSTEM_EXPORT WriteableFile : public virtual GenericFile {
public:
    class WriteSmartLock;
    class WriteSmartLock_NoWait;
    class WriteSmartLock_Wait;

    /// Writes so many bytes of a text, up to its NUL when 0, see FileImpl::Write.
    virtual void Write(char const* text, unsigned long n) = 0;

    /// Writes exactly so many bytes, see FileImpl::Write.
    virtual void Write(void const* data, unsigned long n) = 0;

    /// Writes 4 bytes, the least significant first.
    virtual void WriteLittleEndian(unsigned int const& value) = 0;

    /// Waits until the file's data and attributes are on the device, see FileImpl::Flush.
    virtual void Flush() = 0;

    /// Cuts, or extends, the file at the position, see FileImpl::Truncate.
    virtual void Truncate() = 0;

    /// Closes the file for good, keeps what was written, and lets the next file object of this process have the file.
    /// Every later operation on the descriptor fails, a second CommitAndClose as well.
    /// \throws WBase::Message "Failed to close handle of file '…'."; the file is closed then all the same, no policy
    ///     applies, and the in-process lock is held until the object is destroyed
    /// \warning The record lock is dropped with the descriptor, as are all that the process has on the file.
    virtual void CommitAndClose() = 0;

    /// The time spent in writing, flushing, truncating and committing.
    virtual WBase::TotalTimer const& GetWriteTimer() const = 0;

    /// The time spent in taking and dropping write locks.
    virtual WBase::TotalTimer const& GetWriteLockTimer() const = 0;

    /// Takes the exclusive record lock on the whole file, see FileImpl::WriteLock and its warnings.
    /// \param dontWait false: wait until it is granted; true: try once
    /// \return true: the lock is held; false, only with `dontWait`: the file system does not support locks
    /// \throws WBase::Message "Failed to lock file '…'.", also with `dontWait` for a lock held elsewhere
    virtual bool WriteLock(bool dontWait) = 0;

    /// Drops the record lock, whatever its kind. Does not throw.
    virtual void WriteUnlock() = 0;
};

/// Holds the exclusive record lock of a file object for a scope.
class WriteableFile::WriteSmartLock
    : public SmartLock<WriteableFile, &WriteableFile::WriteLock, &WriteableFile::WriteUnlock> {
public:
    /// Locks nothing.
    WriteSmartLock() noexcept = default;

    /// Waits for the lock.
    /// \throws WBase::Message "Failed to lock file '…'."
    explicit WriteSmartLock(WriteableFile& file) : SmartLock(file, false) {}

protected:
    using SmartLock::SmartLock;
};

/// Tries once; IsLocked() tells the result.
class WriteableFile::WriteSmartLock_NoWait : public WriteSmartLock {
public:
    /// \throws WBase::Message "Failed to lock file '…'."
    /// \warning A lock held elsewhere is such a failure, unlike for a read lock: IsLocked() is false only where the
    ///     file system does not support locks.
    explicit WriteSmartLock_NoWait(WriteableFile& file) : WriteSmartLock(file, true) {}
};

/// Tries for some time, see ReadableFile::ReadSmartLock_Wait; IsLocked() tells the result.
class WriteableFile::WriteSmartLock_Wait : public WriteSmartLock {
public:
    /// \param file the file to lock
    /// \param milliseconds the time; 0 tries once
    /// \throws WBase::Message "Failed to lock file '…'."
    /// \warning A lock held elsewhere ends the first try with an exception, unlike for a read lock: there is no further
    ///     one.
    WriteSmartLock_Wait(WriteableFile& file, unsigned long milliseconds) : WriteSmartLock(file, milliseconds) {}
};

/// Opens a file for writing at its start, created when missing, never emptied, with close-on-exec set, and waits,
/// without limit, until no other file object of this process has the file. An interrupted `open` is repeated without
/// limit.
///
/// An existing regular file is given the permission bits of the module, see Initializer; a new one gets them less those
/// of the process's umask.
///
/// \param path the file; a relative one starts at the working directory
/// \param policy what becomes of the file without CommitAndClose
/// \return the file object, which the caller owns
/// \throws WBase::ExceptionImpl<WBase::Message> as OpenReadableFile, with
///     "WFileSystem::WriteableFileImpl::WriteableFileImpl" for its function. A file that was created by then stays, and
///     permission bits are not restored.
/// \throws WBase::StringConversionException the path can't be converted
/// \warning The permission bits are set before anything is locked, also when nothing is written then, and through
///     links.
/// \warning When the descriptor's flags can't be read, or the wait for the other file objects fails, the descriptor
///     stays open. After such a wait the in-process lock is released although it was never obtained.
/// \warning Closing the file drops all record locks that the process has on it, also those of other descriptors. So
///     does the closing of a refused descriptor, when another file object of this process has the file.
/// \par Threads
///     Any thread.
WFILESYSTEM_EXPORT std::unique_ptr<WriteableFile>
OpenWriteableFile(wchar_t const* path, IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy);

} // namespace WFileSystem

#endif
