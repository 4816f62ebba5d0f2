#ifndef WFILESYSTEM_BENCHMARKS_SAMECALLS_H
#define WFILESYSTEM_BENCHMARKS_SAMECALLS_H

// The system calls that the library promises for what several groups measure, made bare; and record locks.

namespace Benchmarks {

/// What opening a readable file calls.
int OpenReadableBare(char const* path);

/// What opening a file for writing calls.
/// \param access O_WRONLY or O_RDWR
int OpenForWritingBare(char const* path, int access);

/// A record lock on the whole file.
/// \param type F_RDLCK, F_WRLCK or F_UNLCK
void LockBare(int fd, int type);

} // namespace Benchmarks

#endif
