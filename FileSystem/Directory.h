#ifndef WFILESYSTEM_FILESYSTEM_DIRECTORY_H
#define WFILESYSTEM_FILESYSTEM_DIRECTORY_H

/// \file
/// \brief Directories: creating them, and deleting them empty or with all that is in them.

#include <Base/Message.h>
#include <Defines/Export.h>

namespace WFileSystem {

/// Operations on directories. The class has no state and is never made.
///
/// A failure is a plain `WBase::Message` in the domain `WBase::MESSAGE_DOMAIN_SERVER` with the ID FILESYSTEM_MESSAGE_ID
/// and the text quoted here, with the path as the caller gave it; its cause is the system's error. Nothing is repeated.
///
/// \par Threads
///     Any thread. Nothing keeps others from changing the same directories meanwhile.
class WFILESYSTEM_EXPORT Directory {
public:
    Directory() = delete;

    /// Creates a directory, with the permission bits 0777 less those of the process's umask.
    ///
    /// \param path the directory; a relative one starts at the working directory
    /// \param createParents true: create the missing ones of the directories above first, from the top down
    /// \throws WBase::Message "Failed to create directory '…'.", for the first directory that can't be created. One
    ///     that exists is such a failure, also with `createParents`. What was created by then stays.
    /// \throws WBase::StringConversionException the path can't be converted
    /// \warning What lies above is found lexically, by combining with "..": where the path leads through a link, that
    ///     need not be where the system goes. A backslash separates there, but not for the system: `a\b` creates the
    ///     directory `a` and then one named `a\b`.
    /// \warning Where the working directory can't be searched, nothing above a relative path is found. The climb ends
    ///     at `PATH_MAX` characters, and the failure names a path like "../../..".
    static void Create(wchar_t const* path, bool createParents);

    /// Deletes an empty directory.
    ///
    /// \param path the directory
    /// \param report null, or the message that the failure is prepended to: "Failed to delete directory '…'."
    /// \return true: it is deleted. A path that can't be converted is a failure like any other; no `WBase::Message` is
    ///     thrown.
    static bool DeleteEmpty(wchar_t const* path, WBase::Message* report);

    /// Deletes a directory with what is in it, as far as a pattern finds it; it goes on after a failure.
    ///
    /// Entries are deleted in the order of Path::GetFileNamesWithPattern, a directory after what is in it.
    ///
    /// \param path the directory
    /// \param report null, or the message that each failure is prepended to: "Failed to delete file '…'." or "Failed to
    ///     delete directory '…'."
    /// \return true: the directory is deleted; no `WBase::Message` is thrown
    /// \throws std::bad_alloc
    /// \warning Links to directories are followed, inside and at the end of the path: what they lead to is emptied, and
    ///     the link itself stays.
    /// \warning Entries whose names begin with a dot stay, and so the directory stays after the rest has gone.
    /// \warning `*`, `?` and `[` in the path are taken for a pattern: for a directory "[ab]" the directories "a" and
    ///     "b" are emptied. A backslash is taken for a separator.
    /// \warning ".." in the path cancels the name before it, also when that is a link: another directory than the
    ///     system would find is emptied.
    /// \warning For "" and "." the working directory is emptied.
    /// \warning Entries whose names are not UTF-8 stay.
    static bool DeleteRecursively(wchar_t const* path, WBase::Message* report);
};

} // namespace WFileSystem

#endif
