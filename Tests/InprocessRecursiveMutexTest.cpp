#include <Synch/InprocessRecursiveMutex.h>

#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <optional>
#include <thread>

#include <pthread.h>

namespace {

using TestSupport::Recorder;
using WSynch::InprocessRecursiveMutex;

/// What another thread gets that tries to lock the mutex.
int TriedByAnother(InprocessRecursiveMutex& mutex) {
    int result = -1;
    std::thread([&] {
        result = ::pthread_mutex_trylock(mutex.Get());
        if (result == 0) {
            ::pthread_mutex_unlock(mutex.Get());
        }
    }).join();
    return result;
}

class InprocessRecursiveMutexTest : public ::testing::Test {
protected:
    ~InprocessRecursiveMutexTest() override { ::pthread_mutex_destroy(mutex_.Get()); }

    InprocessRecursiveMutex mutex_;
};

TEST_F(InprocessRecursiveMutexTest, TheMutexIsInitialisedInPlace) {
    EXPECT_EQ(static_cast<void*>(mutex_.Get()), static_cast<void*>(&mutex_));
    EXPECT_EQ(sizeof mutex_, sizeof(pthread_mutex_t));
}

TEST_F(InprocessRecursiveMutexTest, AThreadMayLockAgain) {
    EXPECT_EQ(::pthread_mutex_lock(mutex_.Get()), 0);
    EXPECT_EQ(::pthread_mutex_lock(mutex_.Get()), 0);
    EXPECT_EQ(::pthread_mutex_unlock(mutex_.Get()), 0);
    EXPECT_EQ(TriedByAnother(mutex_), EBUSY);
    EXPECT_EQ(::pthread_mutex_unlock(mutex_.Get()), 0);
    EXPECT_EQ(TriedByAnother(mutex_), 0);
}

TEST_F(InprocessRecursiveMutexTest, AFailedInitialisationIsReportedWithItsCode) {
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_mutex_init").Fail(EAGAIN);
    EXPECT_REPORT(InprocessRecursiveMutex(), L"::pthread_mutex_init failed", EAGAIN);
    EXPECT_EQ(recorder.Names(), "pthread_mutex_init");
}

TEST(InprocessRecursiveMutexLifeTest, TheOwnerDestroysTheMutex) {
    Recorder const recorder(Recorder::THREAD_CALLS);
    std::optional<InprocessRecursiveMutex> mutex(std::in_place);
    ::pthread_mutex_destroy(mutex->Get());
    mutex.reset();
    EXPECT_EQ(recorder.Names(), "pthread_mutex_init pthread_mutex_destroy");
}

TEST_F(InprocessRecursiveMutexTest, ALockHoldsTheMutexForAScope) {
    {
        InprocessRecursiveMutex::Lock const lock(mutex_);
        InprocessRecursiveMutex::Lock const again(mutex_);
        EXPECT_EQ(TriedByAnother(mutex_), EBUSY);
    }
    EXPECT_EQ(TriedByAnother(mutex_), 0);
}

TEST_F(InprocessRecursiveMutexTest, ALockThatFailsIsReportedWithItsCode) {
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_mutex_lock").Fail(EINVAL);
    EXPECT_REPORT(InprocessRecursiveMutex::Lock{mutex_}, L"::pthread_mutex_lock failed", EINVAL);
    EXPECT_EQ(recorder.Names(), "pthread_mutex_lock");
}

} // namespace
