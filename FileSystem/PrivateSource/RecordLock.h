#ifndef WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_RECORDLOCK_H
#define WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_RECORDLOCK_H

// Record locks, once and for all places that use them.
//
// A record lock belongs to a process and to a file, not to a descriptor and not to a thread:
//
// - A second lock by the same process on the same file is granted at once and replaces the first, whichever thread and
//   whichever descriptor asks. Threads are kept apart by the in-process locker instead, see InprocessFileLocker.h.
// - Closing any descriptor of the file drops all the locks that the process has on it, also when other code opened that
//   descriptor. Therefore the locker is shared by file identity and joined before a file object is used, and no unit
//   here opens a file that it may hold locked.
// - A child made by fork has none of its parent's locks.
// - The kernel drops the locks of a process that ends, however it ends.
// - Linux looks for deadlocks between processes, not threads: when threads of two processes each hold one file and wait
//   for another, a waiting lock can fail with EDEADLK although no deadlock exists.
//
// All locks here cover the whole file however it grows: from the start, with length 0.

#include <PDCHeader/PDCfcntl.h>

#include <sys/types.h>

namespace WFileSystem {

/// Sets or removes the whole-file lock; repeated while it fails with EINTR.
/// \param command F_SETLK or F_SETLKW
/// \param type F_RDLCK, F_WRLCK or F_UNLCK
/// \param process what stands in the record's process field, which the system does not look at
/// \return -1 on failure, with errno set
int SetRecordLock(int fd, int command, int type, pid_t process) noexcept;

} // namespace WFileSystem

#endif
