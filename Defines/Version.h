#ifndef WFILESYSTEM_DEFINES_VERSION_H
#define WFILESYSTEM_DEFINES_VERSION_H

/// \file
/// \brief The version of the library. The build reads it from here; it is written nowhere else.
///
/// The binary interface is compatible within one major version, which is also the number in the name of the shared
/// library.

/// \{
/// A part of the version, as a number.
#define WFILESYSTEM_VERSION_MAJOR 1
#define WFILESYSTEM_VERSION_MINOR 0
#define WFILESYSTEM_VERSION_PATCH 0
/// \}

#endif
