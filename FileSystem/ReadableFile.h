#ifndef WFILESYSTEM_FILESYSTEM_READABLEFILE_H
#define WFILESYSTEM_FILESYSTEM_READABLEFILE_H

/// \file
/// \brief Files open for reading.

#include <Base/TotalTimer.h>
#include <DataType/Binary.h>
#include <Defines/Export.h>
#include <FileSystem/GenericFile.h>
#include <FileSystem/SmartLock.h>

#include <memory>

namespace WFileSystem {

/// A file open for reading.
///
/// \code
/// WFileSystem::Initializer const initializer;
/// auto const file = WFileSystem::OpenReadableFile(L"/etc/hostname");
/// WFileSystem::ReadableFile::ReadSmartLock const lock(*file);
/// auto const line = WDataType::CreateBinary(256, nullptr);
/// file->ReadLine(*line);
/// \endcode
class WFILESYSTEM_EXPORT ReadableFile : public virtual GenericFile {
public:
    class ReadSmartLock;
    class ReadSmartLock_NoWait;
    class ReadSmartLock_Wait;

    /// Reads exactly so many bytes, see FileImpl::Read; meeting the end of the file before is a failure.
    virtual void Read(void* data, unsigned long n) = 0;

    /// Reads up to so many bytes, up to the buffer's full size when 0, see FileImpl::Read; the buffer's size tells how
    /// many came.
    virtual void Read(WDataType::Binary& buffer, unsigned long n) = 0;

    /// Reads 4 bytes, the least significant first.
    virtual void ReadLittleEndian(unsigned int& value) = 0;

    /// Reads one line, see FileImpl::ReadLine and its warnings.
    virtual void ReadLine(WDataType::Binary& buffer) = 0;

    /// The time spent in reading; always zero for a file from OpenReadableFile.
    virtual WBase::TotalTimer const& GetReadTimer() const = 0;

    /// The time spent in taking and dropping read locks; always zero for a file from OpenReadableFile.
    virtual WBase::TotalTimer const& GetReadLockTimer() const = 0;

    /// Takes the shared record lock on the whole file, see FileImpl::ReadLock and its warnings.
    /// \param dontWait false: wait until it is granted; true: try once
    /// \return true: the lock is held; false, only with `dontWait`: another process holds the exclusive lock
    virtual bool ReadLock(bool dontWait) = 0;

    /// Drops the record lock, whatever its kind. Does not throw.
    virtual void ReadUnlock() = 0;
};

/// Holds the shared record lock of a file object for a scope.
class ReadableFile::ReadSmartLock : public SmartLock<ReadableFile, &ReadableFile::ReadLock, &ReadableFile::ReadUnlock> {
public:
    /// Locks nothing.
    ReadSmartLock() noexcept = default;

    /// Waits for the lock.
    /// \throws WBase::Message "Failed to lock file '…'."
    explicit ReadSmartLock(ReadableFile& file) : SmartLock(file, false) {}

protected:
    using SmartLock::SmartLock;
};

/// Tries once; IsLocked() tells the result.
class ReadableFile::ReadSmartLock_NoWait : public ReadSmartLock {
public:
    /// \throws WBase::Message "Failed to lock file '…'." for any other failure than a lock held elsewhere
    explicit ReadSmartLock_NoWait(ReadableFile& file) : ReadSmartLock(file, true) {}
};

/// Tries for some time, at once and then at the end of each slice of 5 seconds, the last of which may be shorter;
/// IsLocked() tells the result. A lock that comes free inside a slice is taken at the end of that slice.
class ReadableFile::ReadSmartLock_Wait : public ReadSmartLock {
public:
    /// \param file the file to lock
    /// \param milliseconds the time; 0 tries once
    /// \throws WBase::Message "Failed to lock file '…'." for any other failure than a lock held elsewhere
    ReadSmartLock_Wait(ReadableFile& file, unsigned long milliseconds) : ReadSmartLock(file, milliseconds) {}
};

/// Opens an existing file for reading, with close-on-exec set, and waits, without limit, until no other file object of
/// this process has the file. An interrupted `open` is repeated without limit.
///
/// \param path the file; a relative one starts at the working directory
/// \return the file object, which the caller owns; its destruction closes the file and drops the record locks
/// \throws WBase::ExceptionImpl<WBase::Message> in the domain `WBase::MESSAGE_DOMAIN_UNKNOWN`, with the system's error
///     number as ID and the system's description on the second line:
///     - "WFileSystem::ReadableFileImpl::ReadableFileImpl: ::open failed for '…'.";
///     - "WFileSystem::ReadableFileImpl::ReadableFileImpl: ::open '…' and get system file handle.", when a standard
///       stream was closed and its number, 0 to 2, came up; the error number is whatever it was before;
///     - "::fcntl() failed", when the descriptor's flags can't be read;
///     - "WFileSystem::InprocessFileLocker::ID::ID: ::fstat failed for '…'.";
///     - the failures of the process's mutexes, see WSynch::InprocessSemaphore;
///     - "WFileSystem::ReadableFileImpl::ReadableFileImpl: Can't open '…'." with the ID -1 and
///       "No WFileSystem::Initializer lives." on the second line
/// \throws WBase::StringConversionException the path can't be converted
/// \warning When the descriptor's flags can't be read, or the wait for the other file objects fails, the descriptor
///     stays open. After such a wait the in-process lock is released although it was never obtained.
/// \warning Closing the file drops all record locks that the process has on it, also those of other descriptors. So
///     does the closing of a refused descriptor, when another file object of this process has the file.
/// \par Threads
///     Any thread.
WFILESYSTEM_EXPORT std::unique_ptr<ReadableFile> OpenReadableFile(wchar_t const* path);

/// As OpenReadableFile, but waits at most 1 second for the other file objects of this process.
///
/// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::InprocessFileLocker::LockPtr::Assign() failed to get the
///     InprocessLock" with the ID -1, when the time is over; and what OpenReadableFile throws
/// \warning When the time is over, the descriptor stays open, and the other holder's in-process lock is released
///     although it was never obtained: the next opening is let in beside that holder.
WFILESYSTEM_EXPORT std::unique_ptr<ReadableFile> OpenReadableFile_InProcessLockNoWait(wchar_t const* path);

} // namespace WFileSystem

#endif
