#include <FileSystem/PrivateSource/InprocessFileLocker.h>

#include <FileSystem/PrivateSource/ModuleMain.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/VirtualSlots.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using ::testing::ElementsAre;
using ::testing::KilledBySignal;
using TestSupport::Call;
using TestSupport::Recorder;
using TestSupport::SlotOf;
using WFileSystem::InprocessFileLocker;
using WFileSystem::ModuleMain;
using ID = WFileSystem::InprocessFileLocker::ID;
using LockPtr = WFileSystem::InprocessFileLocker::LockPtr;
using Holder = WBase::ReturnPtrI<InprocessFileLocker>;

constexpr wchar_t NOT_OBTAINED[] =
    L"WFileSystem::InprocessFileLocker::LockPtr::Assign() failed to get the InprocessLock";

/// Two files that are open, and a registry.
class LockerTest : public ::testing::Test {
protected:
    LockerTest() {
        for (char const* const name : {"a", "b"}) {
            TestSupport::WriteFile(scratch_ / name, name);
            descriptors_.push_back(::open((scratch_ / name).c_str(), O_RDONLY));
        }
    }

    ~LockerTest() override {
        for (int const fd : descriptors_) {
            ::close(fd);
        }
    }

    /// The locker of the first or second file, with a reference.
    Holder Get(std::size_t file = 0) { return module_.GetInprocessFileLocker(L"path", descriptors_.at(file)); }

    TestSupport::ScratchDirectory const scratch_;
    std::vector<int> descriptors_;
    ModuleMain module_;
};

/// Whether the lock is free; it is afterwards as it was.
bool IsFree(InprocessFileLocker& locker) {
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_cond_timedwait").Optional().Fail(ETIMEDOUT);
    bool const isFree = locker.LockWithTimeOut();
    if (isFree) {
        locker.Unlock();
    }
    return isFree;
}

/// Takes the lock as often as that is possible at once.
int CountOfHolders(InprocessFileLocker& locker) {
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_cond_timedwait").Fail(ETIMEDOUT);
    int count = 0;
    while (locker.LockWithTimeOut()) {
        ++count;
    }
    return count;
}

// ---- The identity of a file

class LockerIDTest : public LockerTest {};

TEST_F(LockerIDTest, AnIDIsTheFilesDeviceAndInode) {
    struct stat status;
    ASSERT_EQ(::stat((scratch_ / "a").c_str(), &status), 0);
    ID const id(L"path", descriptors_[0]);
    EXPECT_EQ(id.device, static_cast<int>(status.st_dev));
    EXPECT_EQ(id.inode, status.st_ino);
}

TEST_F(LockerIDTest, DeviceHas32BitsWithASignAndInode64Without) {
    Recorder recorder;
    recorder.On("fstat").After([](Call& call) {
        auto& status = *static_cast<struct stat*>(call.data);
        status.st_dev = 0x1'8000'0001;
        status.st_ino = 0xFFFF'FFFF'FFFF'FFFE;
    });
    ID const id(L"path", descriptors_[0]);
    EXPECT_EQ(id.device, -0x7FFF'FFFF);
    EXPECT_EQ(id.inode, 0xFFFF'FFFF'FFFF'FFFE);
}

TEST_F(LockerIDTest, AnIDIsAValueOfDeviceThenInode) {
    EXPECT_TRUE(std::is_trivially_copyable_v<ID>);
    EXPECT_EQ(offsetof(ID, device), 0U);
    EXPECT_EQ(offsetof(ID, inode), 8U);
}

TEST_F(LockerIDTest, AnInterruptedCallIsRepeated) {
    Recorder recorder;
    recorder.On("fstat").First(20).FailWithoutCalling(EINTR);
    ID const id(L"path", descriptors_[0]);
    EXPECT_EQ(recorder.Count("fstat"), 21U);
    recorder.Stop();
    EXPECT_EQ(id, ID(L"path", descriptors_[0]));
}

TEST_F(LockerIDTest, AClosedDescriptorIsReportedWithThePathAsItWasGiven) {
    EXPECT_REPORT(
        ID(L"a/../d\u00E4ta %1", -1),
        L"WFileSystem::InprocessFileLocker::ID::ID: ::fstat failed for 'a/../d\u00E4ta %1'.", EBADF);
}

TEST_F(LockerIDTest, AnyOtherFailureIsReportedAtOnce) {
    Recorder recorder;
    recorder.On("fstat").FailWithoutCalling(EIO);
    EXPECT_REPORT(ID(L"", descriptors_[0]), L"WFileSystem::InprocessFileLocker::ID::ID: ::fstat failed for ''.", EIO);
    EXPECT_EQ(recorder.Names(), "fstat");
}

// ---- The locker

class InprocessFileLockerTest : public LockerTest {
protected:
    /// A locker outside the registry, without references.
    InprocessFileLocker locker_{ID(L"path", descriptors_[0]), &module_};
};

TEST_F(InprocessFileLockerTest, ANewLockerIsFreeWithoutReferences) {
    EXPECT_EQ(locker_.GetReferenceCount(), 0);
    EXPECT_EQ(locker_.GetID(), ID(L"path", descriptors_[0]));
    EXPECT_EQ(CountOfHolders(locker_), 1);
}

TEST_F(InprocessFileLockerTest, TheConditionVariableIsDestroyedBeforeTheMutex) {
    auto locker = std::make_unique<InprocessFileLocker>(locker_.GetID(), &module_);
    Recorder const recorder(Recorder::THREAD_CALLS);
    locker.reset();
    EXPECT_EQ(recorder.Names(), "pthread_cond_destroy pthread_mutex_destroy");
}

TEST_F(InprocessFileLockerTest, AFailedConditionVariableIsReportedAndLeavesNoMutex) {
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_cond_init").Fail(EAGAIN);
    EXPECT_REPORT(InprocessFileLocker(locker_.GetID(), &module_), L"::pthread_cond_init failed", EAGAIN);
    EXPECT_EQ(recorder.Names(), "pthread_mutex_init pthread_cond_init pthread_mutex_destroy");
}

TEST_F(InprocessFileLockerTest, ALockIsHeldUntilItIsUnlocked) {
    locker_.Lock();
    EXPECT_FALSE(IsFree(locker_));
    locker_.Unlock();
    EXPECT_TRUE(IsFree(locker_));
}

TEST_F(InprocessFileLockerTest, LockWaitsWithoutLimit) {
    locker_.Lock();
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_cond_wait").First(3).Return(0);
    recorder.On("pthread_cond_wait").Nth(4).Instead([this](Call const&) {
        locker_.Unlock();
        return 0;
    });
    locker_.Lock(); // the same thread waits for itself
    EXPECT_EQ(recorder.Count("pthread_cond_wait"), 4U);
    EXPECT_EQ(recorder.Count("gettimeofday"), 0U);
}

TEST_F(InprocessFileLockerTest, LockWithTimeOutWaits1000Milliseconds) {
    locker_.Lock();
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("gettimeofday").Instead([](Call const& call) {
        *static_cast<timeval*>(call.data) = {100, 123456};
        return 0;
    });
    EXPECT_FALSE(locker_.LockWithTimeOut()); // really: the time is long over
    timespec const deadline = recorder.Find("pthread_cond_timedwait").deadline;
    EXPECT_EQ(deadline.tv_sec, 101);
    EXPECT_EQ(deadline.tv_nsec, 123456000);
}

TEST_F(InprocessFileLockerTest, LockWithTimeOutTellsOfSuccess) {
    EXPECT_TRUE(locker_.LockWithTimeOut());
    EXPECT_FALSE(IsFree(locker_));
}

TEST_F(InprocessFileLockerTest, AnUnlockWithoutALockAdmitsTwo) {
    locker_.Unlock();
    Recorder const recorder(Recorder::THREAD_CALLS);
    locker_.Lock();
    locker_.Lock();
    EXPECT_EQ(recorder.Count("pthread_cond_wait"), 0U);
    EXPECT_FALSE(IsFree(locker_));
}

TEST_F(InprocessFileLockerTest, FailuresOfWaitingAreReported) {
    locker_.Lock();
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_cond_wait").Fail(EPERM);
    recorder.On("pthread_cond_timedwait").Fail(EINVAL);
    EXPECT_REPORT(locker_.Lock(), L"::pthread_cond_wait failed", EPERM);
    EXPECT_REPORT(locker_.LockWithTimeOut(), L"::pthread_cond_timedwait failed", EINVAL);
}

TEST_F(InprocessFileLockerTest, ToGiveUpDoesNotThrow) {
    EXPECT_TRUE(noexcept(locker_.AddRef()));
    EXPECT_TRUE(noexcept(locker_.Release()));
    EXPECT_TRUE(noexcept(locker_.Unlock()));
    EXPECT_TRUE(noexcept(locker_.ReferenceCountIsAboutToReachZero()));
    EXPECT_TRUE(std::is_nothrow_destructible_v<LockPtr>);
    EXPECT_FALSE(noexcept(locker_.Lock()));
    EXPECT_FALSE(noexcept(locker_.LockWithTimeOut()));
}

TEST_F(InprocessFileLockerTest, TheOperationsHaveTheirSlots) {
    EXPECT_EQ(SlotOf(&InprocessFileLocker::AddRef), 2U);
    EXPECT_EQ(SlotOf(&InprocessFileLocker::Release), 3U);
    EXPECT_EQ(SlotOf(&InprocessFileLocker::ReferenceCountIsAboutToReachZero), 4U);
}

TEST_F(InprocessFileLockerTest, TheSemaphoreFollowsCountOwnerAndID) {
    Recorder const recorder(Recorder::THREAD_CALLS);
    InprocessFileLocker const locker(locker_.GetID(), &module_);
    auto const* const semaphore = static_cast<char const*>(recorder.Find("pthread_mutex_init").data);
    EXPECT_EQ(
        semaphore - reinterpret_cast<char const*>(&locker),
        sizeof(WSynch::ReferenceCountedImpl<WSynch::AtomicLong>) + sizeof(ModuleMain*) + sizeof(ID));
}

// ---- Failures that end the process

using InprocessFileLockerDeathTest = InprocessFileLockerTest;

TEST_F(InprocessFileLockerDeathTest, AnUnlockThatFailsEndsTheProcess) {
    auto const unlock = [this] {
        Recorder recorder(Recorder::THREAD_CALLS);
        recorder.On("pthread_mutex_lock").Fail(EINVAL);
        locker_.Unlock();
    };
    EXPECT_EXIT(unlock(), KilledBySignal(SIGABRT), "");
}

TEST_F(InprocessFileLockerDeathTest, AnUnlockBeyondTheMaximumEndsTheProcess) {
    Recorder const recorder(Recorder::THREAD_CALLS);
    InprocessFileLocker locker(locker_.GetID(), &module_);
    auto* const condition = static_cast<char*>(recorder.Find("pthread_cond_init").data);
    unsigned int const maximumAndCount[] = {0x7FFFFFFF, 0x7FFFFFFF};
    std::memcpy(condition + sizeof(pthread_cond_t), maximumAndCount, sizeof maximumAndCount);
    EXPECT_EXIT(locker.Unlock(), KilledBySignal(SIGABRT), "");
}

TEST_F(InprocessFileLockerDeathTest, AReleaseThatFailsEndsTheProcess) {
    Holder const holder = Get();
    auto const release = [&] {
        Recorder recorder(Recorder::THREAD_CALLS);
        recorder.On("pthread_mutex_lock").Fail(EINVAL);
        holder.Get()->Release();
    };
    EXPECT_EXIT(release(), KilledBySignal(SIGABRT), "");
}

TEST_F(InprocessFileLockerDeathTest, ALockPtrWhoseUnlockFailsEndsTheProcess) {
    auto const clear = [this] {
        LockPtr holder;
        holder.Assign(Get(), false);
        Recorder recorder(Recorder::THREAD_CALLS);
        recorder.On("pthread_mutex_lock").Fail(EINVAL);
        holder.Clear();
    };
    EXPECT_EXIT(clear(), KilledBySignal(SIGABRT), "");
}

// ---- The holder of a lock

class LockPtrTest : public LockerTest {
protected:
    LockPtrTest() : source_(Get()), locker_(source_.Get()) { locker_->AddRef(); }
    ~LockPtrTest() override { locker_->Release(); }

    Holder const source_;
    InprocessFileLocker* const locker_; // with a reference of the test's own
};

TEST_F(LockPtrTest, AHolderIsEmptyAtFirst) {
    Recorder const recorder(Recorder::EVERY_CALL);
    {
        LockPtr const holder;
        EXPECT_EQ(holder.Get(), nullptr);
    }
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(LockPtrTest, AHolderIsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<LockPtr> || std::is_copy_assignable_v<LockPtr>);
    EXPECT_FALSE(std::is_move_constructible_v<LockPtr> || std::is_move_assignable_v<LockPtr>);
}

TEST_F(LockPtrTest, AnAssignmentTakesTheReferenceOverAndLocks) {
    LockPtr holder;
    EXPECT_EQ(&holder.Assign(source_, false), &holder);
    EXPECT_EQ(holder.Get(), locker_);
    EXPECT_EQ(source_.Get(), nullptr);
    EXPECT_EQ(locker_->GetReferenceCount(), 2); // that of the source, and the test's
    EXPECT_FALSE(IsFree(*locker_));
}

TEST_F(LockPtrTest, AHolderUnlocksAndThenDropsItsReferenceAtItsEnd) {
    long countAtUnlock = 0;
    {
        LockPtr holder;
        holder.Assign(source_, false);
        Recorder recorder(Recorder::THREAD_CALLS);
        recorder.On("pthread_mutex_lock").Nth(1).Before([&](Call const&) {
            countAtUnlock = locker_->GetReferenceCount();
        });
        holder.Clear();
        EXPECT_EQ(holder.Get(), nullptr);
        EXPECT_EQ(recorder.Names(), "pthread_mutex_lock pthread_mutex_unlock pthread_mutex_lock pthread_mutex_unlock");
    }
    EXPECT_EQ(countAtUnlock, 2);
    EXPECT_EQ(locker_->GetReferenceCount(), 1);
    EXPECT_EQ(CountOfHolders(*locker_), 1);
}

TEST_F(LockPtrTest, TheEndOfAHolderIsToClearIt) {
    std::optional<LockPtr> holder(std::in_place);
    holder->Assign(source_, false);
    holder.reset();
    EXPECT_EQ(locker_->GetReferenceCount(), 1);
    EXPECT_EQ(CountOfHolders(*locker_), 1);
}

TEST_F(LockPtrTest, AnAssignmentOfNothingGivesUpWhatWasHeld) {
    LockPtr holder;
    holder.Assign(source_, false);
    EXPECT_EQ(&holder.Assign(Holder(), false), &holder);
    EXPECT_EQ(holder.Get(), nullptr);
    EXPECT_EQ(locker_->GetReferenceCount(), 1);
    EXPECT_TRUE(IsFree(*locker_));
}

TEST_F(LockPtrTest, AnAssignmentOfNothingToAnEmptyHolderDoesNothing) {
    Recorder const recorder(Recorder::EVERY_CALL);
    LockPtr holder;
    holder.Assign(Holder(), true);
    EXPECT_EQ(holder.Get(), nullptr);
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(LockPtrTest, AnAssignmentOfTheSameLockerDoesNotWaitForItself) {
    for (bool const withTimeOut : {false, true}) {
        LockPtr holder;
        holder.Assign(Get(), withTimeOut);
        Recorder const recorder(Recorder::THREAD_CALLS);
        holder.Assign(Get(), withTimeOut);
        EXPECT_EQ(recorder.Count("pthread_cond_wait") + recorder.Count("pthread_cond_timedwait"), 0U);
        EXPECT_EQ(holder.Get(), locker_);
        EXPECT_EQ(locker_->GetReferenceCount(), 3); // those of the holder, the test and its source
        EXPECT_FALSE(IsFree(*locker_));
    }
    EXPECT_TRUE(IsFree(*locker_));
}

TEST_F(LockPtrTest, AnAssignmentOfAnotherLockerGivesUpTheFirstBeforeItLocksTheSecond) {
    LockPtr holder;
    holder.Assign(source_, false);
    Holder const second = Get(1);
    InprocessFileLocker& other = *second.Get();
    bool wasFree = false;
    long references = 0;
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_mutex_lock").Nth(3).Before([&](Call const&) { // after those of the first and of the registry
        wasFree = IsFree(*locker_);
        references = locker_->GetReferenceCount();
    });
    holder.Assign(second, false);
    EXPECT_TRUE(wasFree);
    EXPECT_EQ(references, 1);
    EXPECT_EQ(holder.Get(), &other);
    EXPECT_FALSE(IsFree(other));
}

TEST_F(LockPtrTest, WithoutTimeOutAnAssignmentWaitsWithoutLimit) {
    locker_->Lock();
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_cond_wait").Instead([this](Call const&) {
        locker_->Unlock();
        return 0;
    });
    LockPtr holder;
    holder.Assign(source_, false);
    EXPECT_EQ(recorder.Count("pthread_cond_wait"), 1U);
    EXPECT_EQ(recorder.Count("gettimeofday"), 0U);
}

TEST_F(LockPtrTest, WithTimeOutAnAssignmentFailsWhenTheTimeIsOver) {
    locker_->Lock();
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_cond_timedwait").Fail(ETIMEDOUT);
    LockPtr holder;
    EXPECT_REPORT_NO_ERROR(holder.Assign(source_, true), NOT_OBTAINED);
    EXPECT_EQ(recorder.Count("pthread_cond_timedwait"), 1U);
}

TEST_F(LockPtrTest, WithTimeOutAnAssignmentLocksWhatIsFree) {
    LockPtr holder;
    holder.Assign(source_, true);
    EXPECT_FALSE(IsFree(*locker_));
}

TEST_F(LockPtrTest, TheReferenceIsStoredBeforeTheLockIsTried) {
    LockPtr holder;
    InprocessFileLocker const* during = nullptr;
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_mutex_lock").Nth(1).Before([&](Call const&) { during = holder.Get(); });
    holder.Assign(source_, false);
    EXPECT_EQ(during, locker_);
}

TEST_F(LockPtrTest, AHolderThatWaitedInVainUnlocksAllTheSame) {
    locker_->Lock();
    {
        Recorder recorder(Recorder::THREAD_CALLS);
        recorder.On("pthread_cond_timedwait").Fail(ETIMEDOUT);
        LockPtr holder;
        EXPECT_REPORT_NO_ERROR(holder.Assign(source_, true), NOT_OBTAINED);
        EXPECT_EQ(holder.Get(), locker_);
        EXPECT_EQ(source_.Get(), nullptr);
        EXPECT_EQ(locker_->GetReferenceCount(), 2);
    }
    EXPECT_EQ(locker_->GetReferenceCount(), 1);
    locker_->Unlock(); // by the one who really had it
    EXPECT_EQ(CountOfHolders(*locker_), 2);
}

TEST_F(LockPtrTest, AHolderWhoseWaitFailedKeepsTheReference) {
    locker_->Lock();
    LockPtr holder;
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_cond_wait").Fail(EPERM);
    EXPECT_REPORT(holder.Assign(source_, false), L"::pthread_cond_wait failed", EPERM);
    EXPECT_EQ(holder.Get(), locker_);
}

} // namespace
