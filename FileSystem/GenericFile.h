#ifndef WFILESYSTEM_FILESYSTEM_GENERICFILE_H
#define WFILESYSTEM_FILESYSTEM_GENERICFILE_H

/// \file
/// \brief What every open file object can do.

#include <Base/Message.h>
#include <Defines/Export.h>

namespace WFileSystem {

/// What becomes of a writeable or updateable file whose object is destroyed without a successful `CommitAndClose`.
///
/// \warning Any other value closes nothing: the descriptor stays open for the life of the process.
/// \warning TRUNCATE_FILE and DELETE_FILE also destroy what the file held before it was opened.
/// \warning DELETE_FILE deletes whatever has the name at that moment, a link and not what it leads to; a relative path
///     starts at the working directory of that moment. A writer that waited for the file meanwhile commits into a file
///     without a name.
enum IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED : int {
    TRUNCATE_FILE = 0, ///< it is cut to length 0 and closed; the empty file stays
    DELETE_FILE = 1,   ///< it is cut to length 0, closed, and deleted by its path
    KEEP_FILE = 2      ///< it is closed; whatever was written stays
};

/// An open file.
///
/// While a file object lives, it holds the file's in-process lock: a second opening of the same file (the same device
/// and inode) in this process waits until the first object is destroyed or committed. Record locks, which keep
/// processes apart, are taken by the caller.
///
/// A failure of an operation is a `WBase::Message` as FileImpl throws it; the object stays as it was.
///
/// \warning A second opening of the same file by the same thread waits for ever.
/// \warning A child made by `fork` has a copy of the object, on the same descriptor and position. Its destruction there
///     applies the policy to the same file: let the child run another program, or end by `_exit`.
/// \par Threads
///     One thread at a time uses one object. Objects of different files are independent.
class WFILESYSTEM_EXPORT GenericFile {
public:
    GenericFile(GenericFile const&) = delete;
    GenericFile& operator=(GenericFile const&) = delete;
    virtual ~GenericFile() = default;

    /// The path as it was given at the opening; valid while the object lives.
    virtual wchar_t const* GetPath() const = 0;

    /// Tells whether the path still names the open file, see FileImpl::DoesPathMatchFileHandle.
    /// \param message null, or what the reason for a failure is prepended to
    virtual bool IsAccessibleViaPath(WBase::Message* message) const = 0;

    /// The size in bytes.
    virtual long long GetSize() const = 0;

    /// The position, in bytes from the start.
    virtual long long GetPosition() const = 0;

    /// Moves the position by so many bytes and returns the new one.
    virtual long long MovePosition(long long offset) = 0;

    /// Sets the position to so many bytes from the start and returns it.
    virtual long long SetPosition(long long offset) = 0;

    /// Sets the position to the end and returns it.
    virtual long long SetPositionToEnd() = 0;

protected:
    GenericFile() = default;
};

} // namespace WFileSystem

#endif
