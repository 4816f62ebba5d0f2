#ifndef WFILESYSTEM_DEFINES_STRONGOBJECTS_H
#define WFILESYSTEM_DEFINES_STRONGOBJECTS_H

/// \file
/// \brief Definitions that the whole library shares.

/// The platform for which a path is meant, see WFileSystem::Path::CombineCrossPlatform.
///
/// The underlying type is fixed, so any number may be passed. A number outside the list stands for a platform without
/// separators, on which no path is absolute.
enum EnumFileDestPlatforms : unsigned int { FileDestPlatformWindows = 0, FileDestPlatformPosix = 1 };

namespace WFileSystem {

/// The ID of every message of the library's own in the domain WBase::MESSAGE_DOMAIN_SERVER. The messages share it on
/// purpose and are told apart by their texts.
constexpr int FILESYSTEM_MESSAGE_ID = 0x12345678;

} // namespace WFileSystem

#endif
