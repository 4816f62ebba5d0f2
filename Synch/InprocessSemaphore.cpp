#include <Synch/InprocessSemaphore.h>

#include <Base/Exception.h>

#include <cerrno>
#include <ctime>
#include <sys/time.h>

namespace WSynch {
namespace {

[[noreturn]] void ThrowFailure(char const* text, int code) {
    throw WBase::ExceptionImpl<WBase::Message>(text, static_cast<unsigned int>(code));
}

timespec DeadlineAfter(unsigned long milliseconds) {
    timeval now;
    int const result = ::gettimeofday(&now, nullptr);
    if (result != 0) {
        ThrowFailure("::gettimeofday failed", result);
    }
    constexpr long MICROSECONDS_A_SECOND = 1000000;
    long seconds = static_cast<long>(now.tv_sec) + static_cast<long>(milliseconds / 1000);
    long microseconds = static_cast<long>(now.tv_usec) + static_cast<long>(milliseconds % 1000) * 1000;
    if (microseconds >= MICROSECONDS_A_SECOND) {
        microseconds -= MICROSECONDS_A_SECOND;
        ++seconds;
    }
    timespec deadline;
    deadline.tv_sec = seconds;
    deadline.tv_nsec = microseconds * 1000;
    return deadline;
}

} // namespace

/// Counts the calling thread as a waiter for a scope, in which it holds the mutex.
class InprocessSemaphore::Waiting {
public:
    explicit Waiting(InprocessSemaphore& semaphore) : lock_(semaphore.mutex_), waiters_(semaphore.waiters_) {
        ++waiters_;
    }
    Waiting(Waiting const&) = delete;
    Waiting& operator=(Waiting const&) = delete;
    ~Waiting() { --waiters_; }

private:
    InprocessRecursiveMutex::Lock lock_;
    unsigned int& waiters_;
};

InprocessSemaphore::InprocessSemaphore(unsigned int count, unsigned int maximum) : maximum_(maximum), count_(count) {
    int const result = ::pthread_cond_init(&condition_, nullptr);
    if (result != 0) {
        ::pthread_mutex_destroy(mutex_.Get());
        ThrowFailure("::pthread_cond_init failed", result);
    }
}

InprocessSemaphore::~InprocessSemaphore() {
    ::pthread_cond_destroy(&condition_);
    ::pthread_mutex_destroy(mutex_.Get());
}

void InprocessSemaphore::WaitForeverForResource() {
    Waiting const waiting(*this);
    while (count_ == 0) {
        int const result = ::pthread_cond_wait(&condition_, mutex_.Get());
        if (result != 0) {
            ThrowFailure("::pthread_cond_wait failed", result);
        }
    }
    --count_;
}

bool InprocessSemaphore::WaitForResource(unsigned long milliseconds) {
    Waiting const waiting(*this);
    timespec const deadline = DeadlineAfter(milliseconds);
    while (count_ == 0) {
        int const result = ::pthread_cond_timedwait(&condition_, mutex_.Get(), &deadline);
        if (result == ETIMEDOUT) {
            return false; // without another look at the count, on purpose
        }
        if (result != 0) {
            ThrowFailure("::pthread_cond_timedwait failed", result);
        }
    }
    --count_;
    return true;
}

void InprocessSemaphore::ReleaseResource() {
    InprocessRecursiveMutex::Lock const lock(mutex_);
    if (count_ == maximum_) {
        throw WBase::ExceptionImpl<WBase::Message>(
            "WSynch::InprocessSemaphore::ReleaseResource: exceeded the maximum.");
    }
    if (waiters_ > 0) {
        int const result = ::pthread_cond_signal(&condition_);
        if (result != 0) {
            ThrowFailure("::pthread_cond_signal failed", result);
        }
    }
    ++count_;
}

} // namespace WSynch
