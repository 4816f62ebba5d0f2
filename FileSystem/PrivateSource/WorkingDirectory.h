#ifndef WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_WORKINGDIRECTORY_H
#define WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_WORKINGDIRECTORY_H

#include <cstddef>

namespace WFileSystem {

/// The longest path of a working directory that is read, with its NUL.
constexpr std::size_t WORKING_DIRECTORY_CAPACITY = 1024;

/// GetCurrentWorkingDirectory into memory of the caller's, for those who must not allocate.
/// \return the number of characters before the NUL
std::size_t ReadCurrentWorkingDirectory(wchar_t (&path)[WORKING_DIRECTORY_CAPACITY]);

} // namespace WFileSystem

#endif
