#ifndef WFILESYSTEM_DEFINES_EXPORT_H
#define WFILESYSTEM_DEFINES_EXPORT_H

/// \file
/// \brief The one export macro of the library.
///
/// The library is built with hidden visibility; what carries this macro is its binary interface. The macro is the same
/// for the shared and the static library, so that a client compiles alike against both.

/// Makes a class or a function visible to clients.
#define WFILESYSTEM_EXPORT __attribute__((visibility("default")))

#endif
