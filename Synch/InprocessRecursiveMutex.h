#ifndef WFILESYSTEM_SYNCH_INPROCESSRECURSIVEMUTEX_H
#define WFILESYSTEM_SYNCH_INPROCESSRECURSIVEMUTEX_H

/// \file
/// \brief The system's recursive mutex.

#include <Defines/Export.h>

#include <pthread.h>

namespace WSynch {

/// A system mutex of the recursive kind, initialised in place.
///
/// \warning There is no destructor that does anything: the owner destroys the mutex with
///     `pthread_mutex_destroy(mutex.Get())`.
class WFILESYSTEM_EXPORT InprocessRecursiveMutex {
public:
    class Lock;

    /// \throws WBase::ExceptionImpl<WBase::Message> "::pthread_mutex_init failed" with the code that the call returned
    InprocessRecursiveMutex();
    InprocessRecursiveMutex(InprocessRecursiveMutex const&) = delete;
    InprocessRecursiveMutex& operator=(InprocessRecursiveMutex const&) = delete;
    ~InprocessRecursiveMutex() = default;

    /// The system's mutex, for the system's calls.
    pthread_mutex_t* Get() noexcept { return &mutex_; }

private:
    pthread_mutex_t mutex_;
};

/// Holds a mutex for a scope.
class WFILESYSTEM_EXPORT InprocessRecursiveMutex::Lock {
public:
    /// \throws WBase::ExceptionImpl<WBase::Message> "::pthread_mutex_lock failed" with the code that the call returned
    explicit Lock(InprocessRecursiveMutex& mutex);
    Lock(Lock const&) = delete;
    Lock& operator=(Lock const&) = delete;
    ~Lock();

private:
    pthread_mutex_t* mutex_;
};

} // namespace WSynch

#endif
