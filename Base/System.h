#ifndef WFILESYSTEM_BASE_SYSTEM_H
#define WFILESYSTEM_BASE_SYSTEM_H

/// \file
/// \brief What the library asks of the system beside files.

#include <Base/ReturnString.h>
#include <Defines/Export.h>

namespace WBase {

/// The calling thread's last system error number (`errno`).
WFILESYSTEM_EXPORT unsigned int GetLastError() noexcept;

/// The system's words for an error number, in the language of the locale. Any number has a description.
/// \throws std::bad_alloc
/// \par Threads
///     Any thread.
WFILESYSTEM_EXPORT ReturnWString GetSystemErrorDescription(unsigned int error);

/// The directory in which temporary files are made: the value of the environment variable `TMPDIR` where it is set, not
/// empty and names a directory; otherwise "/tmp".
/// \throws std::bad_alloc
/// \par Threads
///     Any thread, as long as none changes the environment.
WFILESYSTEM_EXPORT ReturnString GetContainerPath();

/// Blocks the calling thread for so many milliseconds, also when signals come in between.
WFILESYSTEM_EXPORT void Sleep(unsigned long milliseconds) noexcept;

} // namespace WBase

#endif
