#ifndef WFILESYSTEM_FILESYSTEM_SMARTLOCK_H
#define WFILESYSTEM_FILESYSTEM_SMARTLOCK_H

/// \file
/// \brief The guard behind the read and write guards of the file objects.

#include <Base/System.h>

#include <algorithm>

namespace WFileSystem {

/// Holds a file object's record lock for a scope. The file object must outlive the guard.
///
/// \tparam File the interface that is locked
/// \tparam lock its lock operation; true asks it not to wait
/// \tparam unlock its unlock operation
template <class File, bool (File::*lock)(bool), void (File::*unlock)()>
class SmartLock {
public:
    SmartLock(SmartLock const&) = delete;
    SmartLock& operator=(SmartLock const&) = delete;

    ~SmartLock() { Unlock(); }

    /// Drops the lock if this guard holds it.
    void Unlock() {
        if (locked_) {
            (file_->*unlock)();
            locked_ = false;
        }
    }

    /// True while this guard holds the lock.
    bool IsLocked() const noexcept { return locked_; }

protected:
    /// A guard of nothing.
    SmartLock() noexcept = default;

    /// Waits for the lock, or tries once.
    SmartLock(File& file, bool dontWait) : file_(&file) { locked_ = (file.*lock)(dontWait); }

    /// Tries at once, then after every full slice of 5 seconds and at the end of the time, at most.
    SmartLock(File& file, unsigned long milliseconds) : SmartLock(file, true) {
        constexpr unsigned long LONGEST_SLICE = 5000;
        while (!locked_ && milliseconds > 0) {
            unsigned long const slice = std::min(milliseconds, LONGEST_SLICE);
            WBase::Sleep(slice);
            locked_ = (file.*lock)(true);
            milliseconds -= slice;
        }
    }

private:
    File* file_ = nullptr;
    bool locked_ = false;
};

} // namespace WFileSystem

#endif
