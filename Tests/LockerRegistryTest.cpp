#include <FileSystem/PrivateSource/ModuleMain.h>

#include <Tests/Support/Allocations.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <new>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using TestSupport::Call;
using TestSupport::Recorder;
using WFileSystem::InprocessFileLocker;
using WFileSystem::ModuleMain;
using ID = WFileSystem::InprocessFileLocker::ID;
using LockPtr = WFileSystem::InprocessFileLocker::LockPtr;
using Holder = WBase::ReturnPtrI<InprocessFileLocker>;

class LockerRegistryTest : public ::testing::Test {
protected:
    ~LockerRegistryTest() override {
        for (int const fd : descriptors_) {
            ::close(fd);
        }
    }

    int Open(std::string const& name) {
        descriptors_.push_back(::open((scratch_ / name).c_str(), O_RDONLY));
        EXPECT_NE(descriptors_.back(), -1);
        return descriptors_.back();
    }

    int Create(std::string const& name) {
        TestSupport::WriteFile(scratch_ / name, "content");
        return Open(name);
    }

    Holder Get(int fd) { return module_.GetInprocessFileLocker(L"path", fd); }

    /// Whether the file has a locker in the registry: a look-up makes one where not.
    bool IsRegistered(int fd) {
        Recorder const recorder(Recorder::THREAD_CALLS);
        Get(fd);
        return recorder.Count("pthread_cond_init") == 0;
    }

    TestSupport::ScratchDirectory const scratch_;
    std::vector<int> descriptors_;
    ModuleMain module_;
    int const fd_ = Create("file");
};

// ---- Finding a locker

TEST_F(LockerRegistryTest, ALookUpGivesOneReference) {
    Holder const first = Get(fd_);
    ASSERT_NE(first.Get(), nullptr);
    EXPECT_EQ(first.Get()->GetReferenceCount(), 1);
    EXPECT_EQ(first.Get()->GetID(), ID(L"path", fd_));
    Holder const second = Get(fd_);
    EXPECT_EQ(second.Get(), first.Get());
    EXPECT_EQ(first.Get()->GetReferenceCount(), 2);
}

TEST_F(LockerRegistryTest, OneFileHasOneLockerWhateverItsPath) {
    ASSERT_EQ(::link((scratch_ / "file").c_str(), (scratch_ / "hard link").c_str()), 0);
    ASSERT_EQ(::symlink("file", (scratch_ / "symbolic link").c_str()), 0);
    Holder const holder = Get(fd_);
    for (char const* const name : {"file", "hard link", "symbolic link", "./file"}) {
        EXPECT_EQ(Get(Open(name)).Get(), holder.Get()) << name;
    }
}

TEST_F(LockerRegistryTest, OtherFilesHaveOtherLockers) {
    Holder const holder = Get(fd_);
    Holder const other = Get(Create("other"));
    EXPECT_NE(other.Get(), holder.Get());
}

TEST_F(LockerRegistryTest, AFileThatReplacesAnotherHasALockerOfItsOwn) {
    Holder const holder = Get(fd_);
    TestSupport::WriteFile(scratch_ / "new", "content");
    ASSERT_EQ(::rename((scratch_ / "new").c_str(), (scratch_ / "file").c_str()), 0);
    Holder const other = Get(Open("file"));
    EXPECT_NE(other.Get(), holder.Get());
    EXPECT_EQ(Get(fd_).Get(), holder.Get());
}

TEST_F(LockerRegistryTest, ModulesHaveRegistriesOfTheirOwn) {
    ModuleMain otherModule;
    Holder const holder = Get(fd_);
    Holder const other = otherModule.GetInprocessFileLocker(L"path", fd_);
    EXPECT_NE(other.Get(), holder.Get());
}

TEST_F(LockerRegistryTest, TheFileIsIdentifiedBeforeTheRegistryIsLocked) {
    Recorder recorder(std::string(Recorder::THREAD_CALLS) + " fstat");
    Holder const first = Get(fd_);
    EXPECT_EQ(recorder.Names(), "fstat pthread_mutex_lock pthread_mutex_init pthread_cond_init pthread_mutex_unlock");
    recorder.Clear();
    Holder const second = Get(fd_);
    EXPECT_EQ(recorder.Names(), "fstat pthread_mutex_lock pthread_mutex_unlock");
}

TEST_F(LockerRegistryTest, TheReferenceIsAddedUnderTheMutex) {
    Holder const first = Get(fd_);
    long references = 0;
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_mutex_unlock").Before([&](Call const&) { references = first.Get()->GetReferenceCount(); });
    Holder const second = Get(fd_);
    EXPECT_EQ(references, 2);
}

// ---- The key

ID MakeID(int device, unsigned long inode) {
    ID id(L"", STDIN_FILENO);
    id.device = device;
    id.inode = inode;
    return id;
}

constexpr unsigned long ABOVE_THE_SIGN = 0x8000'0000'0000'0000;
constexpr std::pair<int, unsigned long> ASCENDING[] = {
    {-0x7FFF'FFFF - 1, 5},
    {-1, 0},
    {-1, 1},
    {-1, ABOVE_THE_SIGN},
    {0, 0},
    {0, ~0UL},
    {1, 0},
    {1, 0x7FFF'FFFF'FFFF'FFFF},
    {1, ABOVE_THE_SIGN},
    {1, ~0UL},
    {0x7FFF'FFFF, 0}};

TEST(LockerKeyTest, KeysAreOrderedBySignedDeviceAndThenByUnsignedInode) {
    for (auto const& left : ASCENDING) {
        for (auto const& right : ASCENDING) {
            ID const leftID = MakeID(left.first, left.second);
            ID const rightID = MakeID(right.first, right.second);
            EXPECT_EQ(leftID < rightID, &left < &right);
            EXPECT_EQ(leftID == rightID, &left == &right);
        }
    }
}

TEST_F(LockerRegistryTest, EveryKeyFindsItsLocker) {
    std::pair<int, unsigned long> key;
    Recorder recorder;
    recorder.On("fstat").After([&](Call& call) {
        auto& status = *static_cast<struct stat*>(call.data);
        status.st_dev = static_cast<dev_t>(key.first);
        status.st_ino = key.second;
    });
    std::vector<Holder> holders;
    for (auto const& each : ASCENDING) {
        key = each;
        holders.push_back(Get(fd_));
        EXPECT_EQ(holders.back().Get()->GetReferenceCount(), 1);
    }
    for (std::size_t index = 0; index < holders.size(); ++index) {
        key = ASCENDING[index];
        EXPECT_EQ(Get(fd_).Get(), holders[index].Get());
    }
}

// ---- Releasing

TEST_F(LockerRegistryTest, TheLastReleaseErasesTheEntryAndDestroysTheLockerUnderTheMutex) {
    Holder holder = Get(fd_);
    Recorder recorder(Recorder::THREAD_CALLS);
    holder.Detach()->Release();
    EXPECT_EQ(recorder.Names(), "pthread_mutex_lock pthread_cond_destroy pthread_mutex_destroy pthread_mutex_unlock");
    EXPECT_EQ(recorder.Find("pthread_mutex_lock").data, recorder.Find("pthread_mutex_unlock").data);
    recorder.Stop();
    EXPECT_FALSE(IsRegistered(fd_));
}

TEST_F(LockerRegistryTest, AnEarlierReleaseKeepsTheEntry) {
    Holder const first = Get(fd_);
    Holder second = Get(fd_);
    Recorder recorder(Recorder::THREAD_CALLS);
    second.Detach()->Release();
    EXPECT_EQ(recorder.Names(), "pthread_mutex_lock pthread_mutex_unlock");
    recorder.Stop();
    EXPECT_EQ(first.Get()->GetReferenceCount(), 1);
    EXPECT_TRUE(IsRegistered(fd_));
}

TEST_F(LockerRegistryTest, OnlyTheLockersOwnEntryIsErased) {
    int const other = Create("other");
    Holder const kept = Get(other);
    Get(fd_);
    EXPECT_TRUE(IsRegistered(other));
    EXPECT_FALSE(IsRegistered(fd_));
}

TEST_F(LockerRegistryTest, TheEntryOfALockerWithMoreReferencesStays) {
    Holder const first = Get(fd_);
    Holder const second = Get(fd_);
    module_.ReferenceCountIsAboutToReachZero(*first.Get());
    EXPECT_TRUE(IsRegistered(fd_));
}

TEST_F(LockerRegistryTest, TheEntryIsErasedOnTheLockersOwnRequest) {
    Holder const holder = Get(fd_);
    holder.Get()->ReferenceCountIsAboutToReachZero();
    EXPECT_FALSE(IsRegistered(fd_));
}

TEST_F(LockerRegistryTest, ALookUpThatComesBeforeTheLastReleaseKeepsTheLocker) {
    Holder first = Get(fd_);
    InprocessFileLocker const* const locker = first.Get();
    Holder second;
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_mutex_lock").Nth(1).Before([&](Call const&) { second = Get(fd_); });
    first.Detach()->Release();
    recorder.Stop();
    EXPECT_EQ(second.Get(), locker);
    EXPECT_EQ(locker->GetReferenceCount(), 1);
    EXPECT_EQ(Get(fd_).Get(), locker);
}

TEST_F(LockerRegistryTest, ALookUpThatComesAfterTheLastReleaseMakesANewLocker) {
    Holder first = Get(fd_);
    Recorder recorder(std::string(Recorder::THREAD_CALLS) + " fstat");
    recorder.On("fstat").Before([&](Call const&) { first.Detach()->Release(); });
    Holder const second = Get(fd_);
    EXPECT_EQ(recorder.Count("pthread_cond_init"), 1U);
    EXPECT_EQ(second.Get()->GetReferenceCount(), 1);
}

TEST_F(LockerRegistryTest, TheEndOfTheModuleLeavesTheLockersAlone) {
    std::optional<ModuleMain> module(std::in_place);
    InprocessFileLocker const* const locker = module->GetInprocessFileLocker(L"path", fd_).Detach();
    Recorder const recorder(Recorder::THREAD_CALLS);
    module.reset();
    EXPECT_EQ(recorder.Names(), "pthread_mutex_destroy");
    EXPECT_EQ(locker->GetReferenceCount(), 1);
    delete locker; // its release would look for the module
}

// ---- Failures

TEST_F(LockerRegistryTest, AFileThatCanNotBeIdentifiedIsReportedBeforeAnyLock) {
    Recorder const recorder(Recorder::THREAD_CALLS);
    EXPECT_REPORT(
        module_.GetInprocessFileLocker(L"a/b", -1),
        L"WFileSystem::InprocessFileLocker::ID::ID: ::fstat failed for 'a/b'.", EBADF);
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(LockerRegistryTest, AMutexThatCanNotBeLockedIsReportedWithItsCode) {
    Holder const holder = Get(fd_);
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_mutex_lock").Fail(EDEADLK);
    EXPECT_REPORT(Get(fd_), L"::pthread_mutex_lock failed", EDEADLK);
    EXPECT_REPORT(module_.Release(holder.Get()), L"::pthread_mutex_lock failed", EDEADLK);
    EXPECT_EQ(recorder.Names(), "pthread_mutex_lock pthread_mutex_lock");
    recorder.Stop();
    EXPECT_EQ(holder.Get()->GetReferenceCount(), 1);
}

/// A failed look-up must have given back all mutexes, and must not have left a locker.
void ExpectNothingLeft(Recorder const& recorder) {
    EXPECT_EQ(recorder.Count("pthread_mutex_lock"), recorder.Count("pthread_mutex_unlock"));
    EXPECT_EQ(recorder.Count("pthread_mutex_init"), recorder.Count("pthread_mutex_destroy"));
}

TEST_F(LockerRegistryTest, ALockerThatCanNotBeMadeIsReportedAndLeavesNothing) {
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_cond_init").Fail(EAGAIN);
    EXPECT_REPORT(Get(fd_), L"::pthread_cond_init failed", EAGAIN);
    ExpectNothingLeft(recorder);
    recorder.Stop();
    EXPECT_FALSE(IsRegistered(fd_));
}

TEST_F(LockerRegistryTest, ALookUpWithoutMemoryLeavesNothing) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    for (unsigned long n = 1; n <= 2; ++n) { // the locker, and its entry
        Recorder recorder(Recorder::THREAD_CALLS);
        {
            TestSupport::Allocations allocations;
            allocations.FailNth(n);
            EXPECT_THROW(Get(fd_), std::bad_alloc);
        }
        ExpectNothingLeft(recorder);
        recorder.Stop();
        EXPECT_FALSE(IsRegistered(fd_));
    }
}

TEST_F(LockerRegistryTest, ALookUpAllocatesALockerAndItsEntryAndLaterOnesNothing) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::Allocations allocations;
    Holder const first = Get(fd_);
    unsigned long const ofTheFirst = allocations.GetCount();
    Holder const second = Get(fd_);
    EXPECT_EQ(allocations.Stop(), 2U);
    EXPECT_EQ(ofTheFirst, 2U);
}

// ---- The mutexes

TEST_F(LockerRegistryTest, TheRegistrysMutexAndASemaphoresAreNeverHeldTogether) {
    Recorder recorder(Recorder::THREAD_CALLS);
    recorder.On("pthread_cond_timedwait").Fail(ETIMEDOUT);
    {
        LockPtr holder;
        holder.Assign(Get(fd_), false);
        LockPtr other;
        EXPECT_THROW(other.Assign(Get(fd_), true), WBase::Message);
    }
    std::set<void*> held;
    for (Call const& call : recorder.All()) {
        if (call.function == "pthread_mutex_lock") {
            EXPECT_TRUE(held.empty());
            held.insert(call.data);
        } else if (call.function == "pthread_mutex_unlock") {
            held.erase(call.data);
        }
    }
    EXPECT_EQ(recorder.Count("pthread_mutex_lock"), 8U); // look-up, lock, look-up, lock, and twice unlock and release
}

TEST_F(LockerRegistryTest, ManyThreadsOpenAndDropTheSameFewFiles) {
    constexpr int THREADS = 4;
    constexpr int FILES = 3;
    constexpr int ROUNDS = 1500;
    int inside[FILES] = {};
    int total[FILES] = {};
    std::vector<int> files = {fd_};
    for (char const* const name : {"second", "third"}) {
        files.push_back(Create(name));
    }
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&, thread] {
            for (int round = 0; round < ROUNDS; ++round) {
                auto const file = static_cast<std::size_t>((round + thread) % FILES);
                Get(files[file]); // dropped again without having been locked
                LockPtr holder;
                holder.Assign(Get(files[file]), false);
                EXPECT_EQ(++inside[file], 1);
                ++total[file];
                --inside[file];
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(total[0] + total[1] + total[2], THREADS * ROUNDS);
    for (int const file : files) {
        EXPECT_FALSE(IsRegistered(file));
    }
}

} // namespace
