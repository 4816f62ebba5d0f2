#include <Synch/InprocessSemaphore.h>

#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/Waiting.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>
#include <vector>

#include <pthread.h>
#include <sys/time.h>

namespace {

using TestSupport::Call;
using TestSupport::Recorder;
using TestSupport::WaitUntil;
using WSynch::InprocessSemaphore;

constexpr wchar_t EXCEEDED[] = L"WSynch::InprocessSemaphore::ReleaseResource: exceeded the maximum.";

/// Whether a unit is free. Where it is, it is taken.
bool TryToTake(InprocessSemaphore& semaphore) {
    return semaphore.WaitForResource(0);
}

/// Lets the clock stand still.
void SetTime(Recorder& recorder, long seconds, long microseconds) {
    recorder.On("gettimeofday").Instead([=](Call const& call) {
        *static_cast<timeval*>(call.data) = {seconds, microseconds};
        return 0;
    });
}

class InprocessSemaphoreTest : public ::testing::Test {
protected:
    InprocessSemaphore free_{1};
    InprocessSemaphore taken_{0};
    Recorder recorder_{Recorder::THREAD_CALLS};
};

// ---- Life

TEST(InprocessSemaphoreLifeTest, TheConditionVariableIsDestroyedBeforeTheMutex) {
    Recorder const recorder(Recorder::THREAD_CALLS);
    { InprocessSemaphore const semaphore; }
    EXPECT_EQ(recorder.Names(), "pthread_mutex_init pthread_cond_init pthread_cond_destroy pthread_mutex_destroy");
}

TEST(InprocessSemaphoreLifeTest, TheConditionVariableHasTheDefaultAttributes) {
    Recorder const recorder(Recorder::THREAD_CALLS);
    InprocessSemaphore const semaphore;
    EXPECT_EQ(recorder.Calls().at(1), "pthread_cond_init(null)");
}

TEST(InprocessSemaphoreLifeTest, AFailedMutexIsReportedWithItsCode) {
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_mutex_init").Fail(EAGAIN);
    EXPECT_REPORT(InprocessSemaphore(), L"::pthread_mutex_init failed", EAGAIN);
    EXPECT_EQ(recorder.Names(), "pthread_mutex_init");
}

TEST(InprocessSemaphoreLifeTest, AFailedConditionVariableIsReportedWithItsCodeAndLeavesNoMutex) {
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_cond_init").Fail(ENOMEM);
    EXPECT_REPORT(InprocessSemaphore(), L"::pthread_cond_init failed", ENOMEM);
    EXPECT_EQ(recorder.Names(), "pthread_mutex_init pthread_cond_init pthread_mutex_destroy");
    EXPECT_EQ(recorder.Find("pthread_mutex_destroy").data, recorder.Find("pthread_mutex_init").data);
}

TEST(InprocessSemaphoreLifeTest, TheFieldsStandInTheirOrder) {
    struct Fields {
        pthread_mutex_t mutex;
        pthread_cond_t condition;
        unsigned int maximum;
        unsigned int count;
        unsigned int waiters;
    };
    Recorder const recorder(Recorder::THREAD_CALLS);
    InprocessSemaphore const semaphore;
    auto const offsetOf = [&](Call const& call) {
        return static_cast<char const*>(call.data) - reinterpret_cast<char const*>(&semaphore);
    };
    EXPECT_EQ(offsetOf(recorder.Find("pthread_mutex_init")), offsetof(Fields, mutex));
    EXPECT_EQ(offsetOf(recorder.Find("pthread_cond_init")), offsetof(Fields, condition));
    Fields fields;
    ASSERT_EQ(sizeof semaphore, sizeof fields);
    std::memcpy(&fields, &semaphore, sizeof fields);
    EXPECT_EQ(fields.maximum, 0x7FFFFFFFU);
    EXPECT_EQ(fields.count, 1U);
    EXPECT_EQ(fields.waiters, 0U);
}

// ---- Taking a unit without waiting

TEST_F(InprocessSemaphoreTest, AFreeUnitIsTakenAtOnce) {
    free_.WaitForeverForResource();
    EXPECT_EQ(recorder_.Names(), "pthread_mutex_lock pthread_mutex_unlock");
    EXPECT_FALSE(TryToTake(free_));
}

TEST_F(InprocessSemaphoreTest, AFreeUnitIsTakenAtOnceAlsoWithALimit) {
    EXPECT_TRUE(free_.WaitForResource(1000));
    EXPECT_EQ(recorder_.Names(), "pthread_mutex_lock gettimeofday pthread_mutex_unlock");
    EXPECT_FALSE(TryToTake(free_));
}

TEST_F(InprocessSemaphoreTest, AsManyUnitsCanBeTakenAsThereAre) {
    InprocessSemaphore semaphore(3);
    EXPECT_TRUE(TryToTake(semaphore));
    semaphore.WaitForeverForResource();
    EXPECT_TRUE(TryToTake(semaphore));
    EXPECT_FALSE(TryToTake(semaphore));
}

// ---- Waiting with a limit

TEST_F(InprocessSemaphoreTest, TimeIsOverWhenTheSystemSaysSo) {
    recorder_.On("pthread_cond_timedwait").Fail(ETIMEDOUT);
    EXPECT_FALSE(taken_.WaitForResource(1000));
    EXPECT_EQ(recorder_.Names(), "pthread_mutex_lock gettimeofday pthread_cond_timedwait pthread_mutex_unlock");
}

TEST_F(InprocessSemaphoreTest, TimeIsReallyOver) {
    EXPECT_FALSE(taken_.WaitForResource(1));
    EXPECT_EQ(recorder_.Names(), "pthread_mutex_lock gettimeofday pthread_cond_timedwait pthread_mutex_unlock");
}

TEST_F(InprocessSemaphoreTest, TheDeadlineIsTheTimeAndTheMilliseconds) {
    struct {
        long microseconds;
        unsigned long milliseconds;
        timespec deadline;
    } const cases[] = {
        {0, 0, {100, 0}},
        {5, 1000, {101, 5000}},
        {999999, 1000, {101, 999999000}},
        {0, 1, {100, 1000000}},
        {250000, 2749, {102, 999000000}},
        {500000, 499, {100, 999000000}},
        {500000, 500, {101, 0}}, // exactly 1,000,000 microseconds
        {500000, 501, {101, 1000000}},
        {999999, 999, {101, 998999000}},
        {999999, 5999, {106, 998999000}},
    };
    for (auto const& [microseconds, milliseconds, deadline] : cases) {
        Recorder recorder(Recorder::THREAD_CALLS);
        SetTime(recorder, 100, microseconds);
        recorder.On("pthread_cond_timedwait").Fail(ETIMEDOUT);
        EXPECT_FALSE(taken_.WaitForResource(milliseconds));
        timespec const actual = recorder.Find("pthread_cond_timedwait").deadline;
        EXPECT_EQ(actual.tv_sec, deadline.tv_sec) << microseconds << " + " << milliseconds;
        EXPECT_EQ(actual.tv_nsec, deadline.tv_nsec) << microseconds << " + " << milliseconds;
    }
}

TEST_F(InprocessSemaphoreTest, SpuriousWakeUpsWaitForTheSameDeadline) {
    recorder_.On("pthread_cond_timedwait").Fail(ETIMEDOUT);
    recorder_.On("pthread_cond_timedwait").First(3).Return(0);
    EXPECT_FALSE(taken_.WaitForResource(1000));
    EXPECT_EQ(recorder_.Count("gettimeofday"), 1U);
    ASSERT_EQ(recorder_.Count("pthread_cond_timedwait"), 4U);
    timespec const first = recorder_.Find("pthread_cond_timedwait", 1).deadline;
    for (unsigned int n = 2; n <= 4; ++n) {
        timespec const next = recorder_.Find("pthread_cond_timedwait", n).deadline;
        EXPECT_EQ(next.tv_sec, first.tv_sec);
        EXPECT_EQ(next.tv_nsec, first.tv_nsec);
    }
}

TEST_F(InprocessSemaphoreTest, AUnitThatIsFreeAfterAWakeUpIsTaken) {
    recorder_.On("pthread_cond_timedwait").Instead([this](Call const&) {
        taken_.ReleaseResource();
        return 0;
    });
    EXPECT_TRUE(taken_.WaitForResource(1000));
    EXPECT_EQ(recorder_.Names(), "pthread_mutex_lock gettimeofday pthread_cond_timedwait pthread_mutex_unlock");
    recorder_.Stop();
    EXPECT_FALSE(TryToTake(taken_));
}

TEST_F(InprocessSemaphoreTest, AUnitThatComesWithTheEndOfTheTimeIsLeft) {
    recorder_.On("pthread_cond_timedwait").Instead([this](Call const&) {
        taken_.ReleaseResource();
        return ETIMEDOUT;
    });
    EXPECT_FALSE(taken_.WaitForResource(1000));
    EXPECT_TRUE(TryToTake(taken_));
}

// ---- Waiting without limit

TEST_F(InprocessSemaphoreTest, SpuriousWakeUpsWaitOn) {
    int wakeUps = 0;
    recorder_.On("pthread_cond_wait").Instead([&](Call const&) {
        if (++wakeUps == 3) {
            taken_.ReleaseResource();
        }
        return 0;
    });
    taken_.WaitForeverForResource();
    EXPECT_EQ(
        recorder_.Names(),
        "pthread_mutex_lock pthread_cond_wait pthread_cond_wait pthread_cond_wait pthread_mutex_unlock");
    EXPECT_FALSE(TryToTake(taken_));
}

// ---- Failures, and the waiters that they must not leave behind

/// A release signals only where somebody is counted as a waiter.
void ExpectNoWaiters(InprocessSemaphore& semaphore) {
    Recorder const recorder(Recorder::THREAD_CALLS);
    semaphore.ReleaseResource();
    EXPECT_EQ(recorder.Names(), "pthread_mutex_lock pthread_mutex_unlock");
}

TEST_F(InprocessSemaphoreTest, AMutexThatCanNotBeLockedIsReportedWithItsCode) {
    recorder_.On("pthread_mutex_lock").Fail(EINVAL);
    EXPECT_REPORT(free_.WaitForeverForResource(), L"::pthread_mutex_lock failed", EINVAL);
    EXPECT_REPORT(free_.WaitForResource(1000), L"::pthread_mutex_lock failed", EINVAL);
    EXPECT_REPORT(free_.ReleaseResource(), L"::pthread_mutex_lock failed", EINVAL);
    EXPECT_EQ(recorder_.Names(), "pthread_mutex_lock pthread_mutex_lock pthread_mutex_lock");
    recorder_.Stop();
    EXPECT_TRUE(TryToTake(free_));
    EXPECT_FALSE(TryToTake(free_));
    ExpectNoWaiters(free_);
}

TEST_F(InprocessSemaphoreTest, AWaitThatFailsIsReportedWithItsCode) {
    recorder_.On("pthread_cond_wait").Fail(EPERM);
    EXPECT_REPORT(taken_.WaitForeverForResource(), L"::pthread_cond_wait failed", EPERM);
    EXPECT_EQ(recorder_.Names(), "pthread_mutex_lock pthread_cond_wait pthread_mutex_unlock");
    ExpectNoWaiters(taken_);
}

TEST_F(InprocessSemaphoreTest, AWaitWithoutLimitHasNoTimeThatCouldBeOver) {
    recorder_.On("pthread_cond_wait").Fail(ETIMEDOUT);
    EXPECT_REPORT(taken_.WaitForeverForResource(), L"::pthread_cond_wait failed", ETIMEDOUT);
}

TEST_F(InprocessSemaphoreTest, AWaitWithALimitThatFailsIsReportedWithItsCode) {
    recorder_.On("pthread_cond_timedwait").Fail(EINVAL);
    EXPECT_REPORT(taken_.WaitForResource(1000), L"::pthread_cond_timedwait failed", EINVAL);
    EXPECT_EQ(recorder_.Names(), "pthread_mutex_lock gettimeofday pthread_cond_timedwait pthread_mutex_unlock");
    ExpectNoWaiters(taken_);
}

TEST_F(InprocessSemaphoreTest, AWaitWithALimitIsNotRepeatedAfterAnInterruption) {
    recorder_.On("pthread_cond_timedwait").First(1).Fail(EINTR);
    EXPECT_REPORT(taken_.WaitForResource(1000), L"::pthread_cond_timedwait failed", EINTR);
    EXPECT_EQ(recorder_.Count("pthread_cond_timedwait"), 1U);
}

TEST_F(InprocessSemaphoreTest, AFailingClockIsReportedWithWhatItReturned) {
    recorder_.On("gettimeofday").Fail(EFAULT);
    EXPECT_REPORT(free_.WaitForResource(1000), L"::gettimeofday failed", -1);
    EXPECT_EQ(recorder_.Names(), "pthread_mutex_lock gettimeofday pthread_mutex_unlock");
    recorder_.Stop();
    EXPECT_TRUE(TryToTake(free_));
    ExpectNoWaiters(free_);
}

TEST_F(InprocessSemaphoreTest, AWaiterIsNoneAnyMoreWhenItHasAUnit) {
    free_.WaitForeverForResource();
    ExpectNoWaiters(free_);
    EXPECT_TRUE(free_.WaitForResource(1000));
    ExpectNoWaiters(free_);
}

TEST_F(InprocessSemaphoreTest, AWaiterIsNoneAnyMoreWhenItsTimeIsOver) {
    EXPECT_FALSE(TryToTake(taken_));
    ExpectNoWaiters(taken_);
}

// ---- Releasing

TEST_F(InprocessSemaphoreTest, AReleaseAddsAUnit) {
    taken_.ReleaseResource();
    EXPECT_EQ(recorder_.Names(), "pthread_mutex_lock pthread_mutex_unlock");
    EXPECT_TRUE(TryToTake(taken_));
    EXPECT_FALSE(TryToTake(taken_));
}

TEST_F(InprocessSemaphoreTest, AReleaseWithoutAnAcquisitionAdmitsASecondHolder) {
    free_.ReleaseResource();
    free_.WaitForeverForResource();
    EXPECT_TRUE(free_.WaitForResource(1000));
    EXPECT_EQ(recorder_.Count("pthread_cond_wait") + recorder_.Count("pthread_cond_timedwait"), 0U);
    EXPECT_FALSE(TryToTake(free_));
}

TEST_F(InprocessSemaphoreTest, NoMoreUnitsThanTheMaximumAreFree) {
    InprocessSemaphore semaphore(0, 2);
    semaphore.ReleaseResource();
    semaphore.ReleaseResource();
    recorder_.Clear();
    EXPECT_REPORT_NO_ERROR(semaphore.ReleaseResource(), EXCEEDED);
    EXPECT_EQ(recorder_.Names(), "pthread_mutex_lock pthread_mutex_unlock");
    EXPECT_TRUE(TryToTake(semaphore));
    EXPECT_TRUE(TryToTake(semaphore));
    EXPECT_FALSE(TryToTake(semaphore));
}

TEST_F(InprocessSemaphoreTest, WhoBeginsAboveTheMaximumIsNotStoppedByIt) {
    InprocessSemaphore semaphore(2, 1);
    EXPECT_NO_THROW(semaphore.ReleaseResource());
    for (int unit = 0; unit < 3; ++unit) {
        EXPECT_TRUE(TryToTake(semaphore));
    }
    EXPECT_FALSE(TryToTake(semaphore));
}

TEST_F(InprocessSemaphoreTest, TheMaximumIsTheGreatestSignedNumberByDefault) {
    InprocessSemaphore semaphore(0x7FFFFFFE);
    semaphore.ReleaseResource();
    EXPECT_REPORT_NO_ERROR(semaphore.ReleaseResource(), EXCEEDED);
}

/// Does something while a thread waits in `wait`, and until it has gone on.
void WhileAThreadWaits(
    Recorder const& recorder, char const* call, std::function<void()> const& wait,
    std::function<void()> const& meanwhile) {
    std::thread thread(wait);
    EXPECT_TRUE(recorder.WaitForCall(call));
    meanwhile();
    thread.join();
}

class InprocessSemaphoreThreadsTest : public ::testing::Test {
protected:
    InprocessSemaphore semaphore_{0};
    std::atomic<int> admitted_{0};
    Recorder recorder_{Recorder::THREAD_CALLS, Recorder::Threads::ALL};
};

TEST_F(InprocessSemaphoreThreadsTest, AReleaseWakesAWaiter) {
    WhileAThreadWaits(
        recorder_, "pthread_cond_wait", [this] { semaphore_.WaitForeverForResource(); },
        [this] { semaphore_.ReleaseResource(); });
    EXPECT_EQ(recorder_.Count("pthread_cond_signal"), 1U);
    EXPECT_FALSE(TryToTake(semaphore_));
}

TEST_F(InprocessSemaphoreThreadsTest, AReleaseWakesAWaiterWithALimit) {
    WhileAThreadWaits(
        recorder_, "pthread_cond_timedwait", [this] { admitted_ = semaphore_.WaitForResource(60000); },
        [this] { semaphore_.ReleaseResource(); });
    EXPECT_EQ(admitted_, 1);
    EXPECT_FALSE(TryToTake(semaphore_));
}

TEST_F(InprocessSemaphoreThreadsTest, AFailingSignalIsReportedWithItsCodeAndNothingIsGivenBack) {
    recorder_.On("pthread_cond_signal").Nth(1).Fail(EINVAL);
    WhileAThreadWaits(
        recorder_, "pthread_cond_wait", [this] { semaphore_.WaitForeverForResource(); },
        [this] {
            EXPECT_REPORT(semaphore_.ReleaseResource(), L"::pthread_cond_signal failed", EINVAL);
            EXPECT_FALSE(TryToTake(semaphore_));
            semaphore_.ReleaseResource();
        });
    EXPECT_FALSE(TryToTake(semaphore_));
}

TEST_F(InprocessSemaphoreThreadsTest, EachReleaseAdmitsOneWaiter) {
    constexpr int THREADS = 4;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([this] {
            semaphore_.WaitForeverForResource();
            ++admitted_;
        });
    }
    EXPECT_TRUE(recorder_.WaitForCall("pthread_cond_wait", THREADS));
    for (int releases = 1; releases <= THREADS; ++releases) {
        semaphore_.ReleaseResource();
        EXPECT_TRUE(WaitUntil([&] { return admitted_ == releases; }));
        EXPECT_FALSE(TryToTake(semaphore_));
        EXPECT_EQ(admitted_, releases);
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(recorder_.Count("pthread_cond_signal"), static_cast<unsigned int>(THREADS));
}

TEST(InprocessSemaphoreLockTest, OneUnitLetsOneThreadInAtATime) {
    InprocessSemaphore semaphore;
    int inside = 0;
    int total = 0;
    std::vector<std::thread> threads;
    for (int thread = 0; thread < 4; ++thread) {
        threads.emplace_back([&, isLimited = thread % 2 == 0] {
            for (int round = 0; round < 500; ++round) {
                if (isLimited) {
                    EXPECT_TRUE(semaphore.WaitForResource(60000));
                } else {
                    semaphore.WaitForeverForResource();
                }
                EXPECT_EQ(++inside, 1);
                ++total;
                --inside;
                semaphore.ReleaseResource();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(total, 2000);
}

} // namespace
