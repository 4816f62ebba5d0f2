#ifndef WFILESYSTEM_FILESYSTEM_FILESYSTEM_H
#define WFILESYSTEM_FILESYSTEM_FILESYSTEM_H

/// \file
/// \brief The working directory and temporary files.
///
/// A report is a `WBase::ExceptionImpl<WBase::Message>` in the domain `WBase::MESSAGE_DOMAIN_UNKNOWN`: its ID is the
/// system's error number, the text quoted here is its first line, and the system's description of the error is the
/// second.

#include <Base/ReturnString.h>
#include <Defines/Export.h>

namespace WFileSystem {

/// The absolute path of the process's working directory.
///
/// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::GetCurrentWorkingDirectory: ::getcwd failed.", a report:
///     the directory was removed, can't be read, or its path takes 1024 bytes or more (no larger buffer is tried)
/// \throws WBase::StringConversionException the path is not valid UTF-8
/// \warning Every report that names an absolute path asks for the working directory when the path was relative. Where
///     this function fails, that failure replaces the report.
/// \par Threads
///     Any thread; the working directory is one for the process.
WFILESYSTEM_EXPORT WBase::ReturnWString GetCurrentWorkingDirectory();

/// Changes the process's working directory, for all threads.
///
/// \param path the new directory; a relative one starts at the current one
/// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::SetCurrentWorkingDirectory: ::chdir failed for '…'.", a
///     report with the path as given
/// \throws WBase::StringConversionException the path can't be converted
/// \warning Whatever uses a relative path, in any thread, starts at the new directory from then on.
/// \par Threads
///     Any thread.
WFILESYSTEM_EXPORT void SetCurrentWorkingDirectory(wchar_t const* path);

/// The directory for temporary files, see WBase::GetContainerPath; no separator is added or removed.
///
/// \throws WBase::StringConversionException the path is not valid UTF-8
/// \par Threads
///     Any thread, while none changes the environment.
WFILESYSTEM_EXPORT WBase::ReturnWString GetTemporaryPath();

/// Creates an empty file with a name that was not taken a moment before. The caller deletes it.
///
/// The system chooses the name and, by its own rules, the directory: usually that of GetTemporaryPath. The permission
/// bits are those of File::OpenDescriptor.
///
/// \param prefix begins the file's name; the system uses at most five bytes of it; may be empty
/// \return the path of the file, which is closed
/// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::CreateTemporaryFile: ::tempnam failed for '…'.", a report
///     with the prefix
/// \throws WBase::ExceptionImpl<WBase::Message> what File::OpenDescriptor throws
/// \throws WBase::StringConversionException the prefix or the name can't be converted;
///     nothing is created then
/// \warning The file is named first and opened afterwards, without exclusive creation: where others can write to the
///     directory, a file or a link that they put there in between is opened and emptied.
/// \warning A prefix of more than five bytes is cut after the fifth, be it inside a character. The name is then not
///     valid UTF-8, and no file is created.
/// \par Threads
///     Any thread, while none changes the environment.
WFILESYSTEM_EXPORT WBase::ReturnWString CreateTemporaryFile(wchar_t const* prefix);

} // namespace WFileSystem

#endif
