#include <Synch/InprocessRecursiveMutex.h>

#include <Base/Exception.h>

namespace WSynch {
namespace {

void ThrowUnlessZero(char const* text, int result) {
    if (result != 0) {
        throw WBase::ExceptionImpl<WBase::Message>(text, static_cast<unsigned int>(result));
    }
}

} // namespace

InprocessRecursiveMutex::InprocessRecursiveMutex() {
    pthread_mutexattr_t attributes;
    ::pthread_mutexattr_init(&attributes);
    ::pthread_mutexattr_settype(&attributes, PTHREAD_MUTEX_RECURSIVE);
    int const result = ::pthread_mutex_init(&mutex_, &attributes);
    ::pthread_mutexattr_destroy(&attributes);
    ThrowUnlessZero("::pthread_mutex_init failed", result);
}

InprocessRecursiveMutex::Lock::Lock(InprocessRecursiveMutex& mutex) : mutex_(mutex.Get()) {
    ThrowUnlessZero("::pthread_mutex_lock failed", ::pthread_mutex_lock(mutex_));
}

InprocessRecursiveMutex::Lock::~Lock() {
    ::pthread_mutex_unlock(mutex_);
}

} // namespace WSynch
