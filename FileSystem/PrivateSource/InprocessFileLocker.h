#ifndef WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_INPROCESSFILELOCKER_H
#define WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_INPROCESSFILELOCKER_H

// How the threads of one process are kept apart; for processes see RecordLock.h.
//
// There is one locker for each file identity that is open as a file object, found through the module's registry. A file
// object holds it, through a LockPtr, from its opening to its end.
//
// The rules of the mutexes:
// 1. The registry's mutex guards the map and every decision about a locker's last reference.
// 2. A semaphore's mutex guards its count and its waiters, and is released before a wait returns.
// 3. The two are never held together. The registry's mutex may be taken inside the module's busy word, never the
//    reverse.
// 4. The reference count is atomic: references may be added and dropped in any thread, and only the fall from 1 to 0
//    needs the registry's mutex.
//
//   state of the semaphore           Lock()                 LockWithTimeOut()          Unlock()
//   free (count 1)                   held                   held, true                 over-released
//   held (count 0)                   waits                  false after 1000 ms        free, wakes one waiter
//   over-released (count 2 or more)  count - 1, no waiting  count - 1, true            count + 1

#include <Base/ReturnPtrI.h>
#include <Synch/InprocessSemaphore.h>
#include <Synch/ReferenceCountedImpl.h>

namespace WFileSystem {

class ModuleMain;

/// The lock that all file objects of one file share inside the process. It belongs to the file, not to a thread: a
/// thread that asks twice waits for itself.
class InprocessFileLocker : public virtual WBase::ReferenceCounted,
                            public WSynch::ReferenceCountedImpl<WSynch::AtomicLong> {
public:
    class LockPtr;

    /// The identity of a file.
    struct ID {
        /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::InprocessFileLocker::ID::ID: ::fstat failed for
        ///     '…'."
        ID(wchar_t const* path, int fd);

        int device = 0;
        unsigned long inode = 0;
    };

    /// \param owner the registry, which outlives the locker
    /// \throws WBase::ExceptionImpl<WBase::Message> as WSynch::InprocessSemaphore
    InprocessFileLocker(ID const& id, ModuleMain* owner) : owner_(owner), id_(id) {}

    ID const& GetID() const noexcept { return id_; }

    /// Waits without limit.
    void Lock() { semaphore_.WaitForeverForResource(); }

    /// \return false: the lock was not to be had within 1000 ms
    bool LockWithTimeOut() { return semaphore_.WaitForResource(1000); }

    /// A failure ends the process.
    void Unlock() noexcept { semaphore_.ReleaseResource(); }

    /// A failure ends the process.
    void Release() const noexcept override;
    void ReferenceCountIsAboutToReachZero() const noexcept override;

private:
    ModuleMain* owner_;
    ID id_;
    WSynch::InprocessSemaphore semaphore_;
};

bool operator==(InprocessFileLocker::ID const& left, InprocessFileLocker::ID const& right) noexcept;
bool operator<(InprocessFileLocker::ID const& left, InprocessFileLocker::ID const& right) noexcept;

/// Owns one reference to a locker, or none, and the lock with it, except after an Assign that failed.
class InprocessFileLocker::LockPtr {
public:
    LockPtr() = default;
    LockPtr(LockPtr const&) = delete;
    LockPtr& operator=(LockPtr const&) = delete;
    ~LockPtr() { Clear(); }

    /// Gives up what this holder has, takes the reference over from `source`, which is null afterwards, and then locks.
    ///
    /// The reference is stored before the lock is tried, on purpose: when that fails, the holder has the reference
    /// without the lock, and will unlock all the same when it is cleared.
    ///
    /// \throws WBase::ExceptionImpl<WBase::Message> "WFileSystem::InprocessFileLocker::LockPtr::Assign() failed to get
    ///     the InprocessLock", with the ID -1, when the time is over; and what waiting throws
    LockPtr& Assign(WBase::ReturnPtrI<InprocessFileLocker> const& source, bool withTimeOut);

    /// Unlocks and drops the reference.
    void Clear() noexcept;

    /// The locker, or null.
    InprocessFileLocker* Get() const noexcept { return locker_; }

private:
    InprocessFileLocker* locker_ = nullptr;
};

} // namespace WFileSystem

#endif
