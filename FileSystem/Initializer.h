#ifndef WFILESYSTEM_FILESYSTEM_INITIALIZER_H
#define WFILESYSTEM_FILESYSTEM_INITIALIZER_H

/// \file
/// \brief The start and the end of the library's use.

#include <Defines/Export.h>

namespace WFileSystem {

/// Keeps the library's module alive. Construct one before the first file object; destroy the last one after the last
/// file object.
///
/// The first initializer creates the module, the last one destroys it. The module holds the in-process lockers of all
/// open files, and the permission bits for new files: 0664, or what the environment variable `VUSK_FILE_MODE` says when
/// the module is created. Its value is read as an octal number, of which what follows the digits is ignored; from 1 to
/// 0777 it counts, and owner and group can always read and write (0660 is added). Any other value leaves 0664 without a
/// word.
///
/// The operations on descriptors, streams and paths work without an initializer; files are then created with 0664.
///
/// \warning A file object that outlives the last initializer has undefined behaviour when it is destroyed.
/// \par Threads
///     Any thread; a constructor or destructor waits while another one runs.
class WFILESYSTEM_EXPORT Initializer {
public:
    /// \throws std::bad_alloc
    /// \throws WBase::ExceptionImpl<WBase::Message> "::pthread_mutex_init failed" with the code that the call returned
    Initializer();
    Initializer(Initializer const&) = delete;
    Initializer& operator=(Initializer const&) = delete;
    ~Initializer();
};

} // namespace WFileSystem

#endif
