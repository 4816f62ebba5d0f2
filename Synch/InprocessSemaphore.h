#ifndef WFILESYSTEM_SYNCH_INPROCESSSEMAPHORE_H
#define WFILESYSTEM_SYNCH_INPROCESSSEMAPHORE_H

/// \file
/// \brief A counting semaphore for the threads of one process.

#include <Defines/Export.h>
#include <Synch/InprocessRecursiveMutex.h>

#include <pthread.h>

namespace WSynch {

/// A counting semaphore.
///
/// With one unit it serves as a lock that one thread holds at a time, but it goes on counting: a release without an
/// acquisition adds a unit, and then admits one holder more.
///
/// \par Threads
///     Any thread may call any operation. No thread may use the object while it is destroyed.
class WFILESYSTEM_EXPORT InprocessSemaphore {
public:
    /// \param count the units that are free at first
    /// \param maximum the number of free units at which no release is allowed; more than that do not hinder one
    /// \throws WBase::ExceptionImpl<WBase::Message> "::pthread_mutex_init failed" or "::pthread_cond_init failed" with
    ///     the code that the call returned
    explicit InprocessSemaphore(unsigned int count = 1, unsigned int maximum = 0x7FFFFFFF);
    InprocessSemaphore(InprocessSemaphore const&) = delete;
    InprocessSemaphore& operator=(InprocessSemaphore const&) = delete;
    ~InprocessSemaphore();

    /// Takes a unit; waits for it without limit.
    /// \throws WBase::ExceptionImpl<WBase::Message> "::pthread_mutex_lock failed" or "::pthread_cond_wait failed" with
    ///     the code that the call returned; no unit is taken then
    void WaitForeverForResource();

    /// Takes a unit; waits for it up to so many milliseconds of the system's real-time clock.
    /// \return true: a unit was taken; false: the time is over
    /// \throws WBase::ExceptionImpl<WBase::Message> "::pthread_mutex_lock failed", "::gettimeofday failed" or
    ///     "::pthread_cond_timedwait failed" with the code that the call returned; no unit is taken then
    bool WaitForResource(unsigned long milliseconds);

    /// Gives a unit back and wakes one waiter.
    /// \throws WBase::ExceptionImpl<WBase::Message> "::pthread_mutex_lock failed" or "::pthread_cond_signal failed"
    ///     with the code that the call returned, or "WSynch::InprocessSemaphore::ReleaseResource: exceeded the
    ///     maximum." with the ID -1; nothing is given back then
    void ReleaseResource();

private:
    class Waiting;

    InprocessRecursiveMutex mutex_;
    pthread_cond_t condition_;
    unsigned int maximum_;
    unsigned int count_;
    unsigned int waiters_ = 0;
};

} // namespace WSynch

#endif
