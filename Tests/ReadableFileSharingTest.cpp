// Several openings of one file: in one process they follow each other, processes exclude each other by record locks.

#include <FileSystem/File.h>
#include <FileSystem/Initializer.h>
#include <FileSystem/ReadableFile.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Waiting.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/time.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace WFileSystem;
using ::testing::ElementsAre;
using TestSupport::Child;
using TestSupport::Recorder;

/// The report of a no-wait opening whose time is over.
TestSupport::ExpectedMessage NotObtained() {
    return {
        &typeid(WBase::ExceptionImpl<WBase::Message>), WBase::MESSAGE_DOMAIN_UNKNOWN, -1,
        L"WFileSystem::InprocessFileLocker::LockPtr::Assign() failed to get the InprocessLock"};
}

class ReadableFileSharingTest : public ::testing::Test {
protected:
    ReadableFileSharingTest() { TestSupport::WriteFile(path_, "one\ntwo\n"); }

    std::unique_ptr<ReadableFile> Open() const { return OpenReadableFile(widePath_.c_str()); }
    std::unique_ptr<ReadableFile> OpenNoWait() const { return OpenReadableFile_InProcessLockNoWait(widePath_.c_str()); }

    /// Opens a file in another thread while `first` is open, and sees that it waits for `first` to end.
    static void ExpectToWaitFor(std::unique_ptr<ReadableFile> first, std::wstring const& path) {
        Recorder recorder("pthread_cond_wait", Recorder::Threads::ALL);
        std::atomic<bool> isOpen{false};
        std::thread second([&] {
            auto const file = OpenReadableFile(path.c_str());
            isOpen = true;
        });
        EXPECT_TRUE(recorder.WaitForCall("pthread_cond_wait"));
        EXPECT_FALSE(isOpen);
        first.reset();
        second.join();
        EXPECT_TRUE(isOpen);
    }

    /// Lets time run out at once for whoever waits with a limit.
    static void LetTimeRunOut(Recorder& recorder) { recorder.On("pthread_cond_timedwait").Return(ETIMEDOUT); }

    Initializer const initializer_;
    TestSupport::ScratchDirectory const scratch_;
    std::string const path_ = scratch_ / "data";
    std::wstring const widePath_ = scratch_.Wide("data");
};

// In one process

TEST_F(ReadableFileSharingTest, TwoThreadsThatOpenOneFileFollowEachOther) {
    ExpectToWaitFor(Open(), widePath_);
}

TEST_F(ReadableFileSharingTest, AHardLinkNamesTheSameFile) {
    ASSERT_EQ(::link(path_.c_str(), (scratch_ / "link").c_str()), 0);
    ExpectToWaitFor(Open(), scratch_.Wide("link"));
}

TEST_F(ReadableFileSharingTest, ASymbolicLinkNamesTheSameFile) {
    ASSERT_EQ(::symlink("data", (scratch_ / "link").c_str()), 0);
    ExpectToWaitFor(Open(), scratch_.Wide("link"));
}

TEST_F(ReadableFileSharingTest, AFileFromTheNoWaitFactoryKeepsOthersWaitingAsWell) {
    ExpectToWaitFor(OpenNoWait(), widePath_);
}

TEST_F(ReadableFileSharingTest, AFileThatTookThePlaceOfAnotherIsAnotherFile) {
    auto const first = Open();
    TestSupport::WriteFile(scratch_ / "new", "new");
    ASSERT_EQ(::rename((scratch_ / "new").c_str(), path_.c_str()), 0);
    EXPECT_EQ(Open()->GetSize(), 3);
}

TEST_F(ReadableFileSharingTest, ManyThreadsUseAFewFilesOneAfterAnother) {
    constexpr unsigned int FILES = 3;
    constexpr unsigned int THREADS = 6;
    constexpr unsigned int OPENINGS = 100;
    std::vector<std::wstring> paths;
    for (unsigned int i = 0; i < FILES; ++i) {
        TestSupport::WriteFile(scratch_ / std::to_string(i), std::string(1, static_cast<char>(i)));
        paths.push_back(scratch_.Wide(std::to_string(i)));
    }
    // Not atomic: what keeps the threads apart are the file objects.
    unsigned int counts[FILES] = {};
    std::vector<std::thread> threads;
    for (unsigned int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&, thread] {
            for (unsigned int i = 0; i < OPENINGS; ++i) {
                auto const file = OpenReadableFile(paths[(thread + i) % FILES].c_str());
                char which;
                file->Read(&which, 1);
                ++counts[static_cast<unsigned char>(which)];
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counts[0] + counts[1] + counts[2], THREADS * OPENINGS);
}

TEST_F(ReadableFileSharingTest, ASecondOpeningByTheSameThreadWouldWaitForEver) {
    auto const first = Open();
    TestSupport::DescriptorCheck const check(1);
    Recorder recorder("pthread_cond_wait");
    recorder.On("pthread_cond_wait").Nth(3).Fail(EDEADLK); // what ends this test
    recorder.On("pthread_cond_wait").First(2).Return(0);
    EXPECT_REPORT(Open(), L"::pthread_cond_wait failed", EDEADLK);
    EXPECT_EQ(recorder.Count("pthread_cond_wait"), 3U);
}

TEST_F(ReadableFileSharingTest, ANoWaitOpeningGivesUpWhenTheTimeIsOver) {
    auto const first = Open();
    TestSupport::DescriptorCheck const check(1);
    WFILESYSTEM_EXPECT_MESSAGE(OpenNoWait(), NotObtained());
}

TEST_F(ReadableFileSharingTest, ANoWaitOpeningWaitsForOneSecond) {
    auto const first = Open();
    TestSupport::DescriptorCheck const check(1);
    Recorder recorder(Recorder::THREAD_CALLS);
    // Long ago, so that the time is over at once.
    recorder.On("gettimeofday").After([](TestSupport::Call& call) { *static_cast<timeval*>(call.data) = {4711, 5}; });
    WFILESYSTEM_EXPECT_MESSAGE(OpenNoWait(), NotObtained());
    timespec const deadline = recorder.Find("pthread_cond_timedwait").deadline;
    EXPECT_EQ(deadline.tv_sec, 4712);
    EXPECT_EQ(deadline.tv_nsec, 5000);
}

TEST_F(ReadableFileSharingTest, ANoWaitOpeningGetsAFileThatComesFreeInTime) {
    auto first = Open();
    std::thread releasing;
    Recorder recorder(Recorder::THREAD_CALLS);
    // Time enough, also on a slow machine.
    recorder.On("gettimeofday").After([](TestSupport::Call& call) { static_cast<timeval*>(call.data)->tv_sec += 20; });
    recorder.On("pthread_cond_timedwait").First(1).Before([&](TestSupport::Call const&) {
        releasing = std::thread([&] { first.reset(); });
    });
    EXPECT_EQ(OpenNoWait()->GetSize(), 8);
    releasing.join();
}

TEST_F(ReadableFileSharingTest, ANoWaitOpeningThatGivesUpLeavesItsDescriptor) {
    auto const first = Open();
    TestSupport::DescriptorCheck const check(1); // intended
    Recorder recorder(Recorder::EVERY_CALL);
    LetTimeRunOut(recorder);
    WFILESYSTEM_EXPECT_MESSAGE(OpenNoWait(), NotObtained());
    EXPECT_EQ(recorder.Count("open"), 1U);
    EXPECT_EQ(recorder.Count("close"), 0U);
}

TEST_F(ReadableFileSharingTest, ANoWaitOpeningThatGivesUpLetsTheNextOneIn) {
    auto const first = Open();
    TestSupport::DescriptorCheck const check(1);
    Recorder recorder(Recorder::THREAD_CALLS);
    LetTimeRunOut(recorder);
    WFILESYSTEM_EXPECT_MESSAGE(OpenNoWait(), NotObtained());
    recorder.Clear();
    auto const second = Open(); // intended, although the first lives
    EXPECT_EQ(recorder.Count("pthread_cond_wait"), 0U);
    EXPECT_EQ(first->GetSize() + second->GetSize(), 16);
}

TEST_F(ReadableFileSharingTest, ANoWaitOpeningThatGivesUpReleasesItsReference) {
    TestSupport::DescriptorCheck const check(1);
    auto first = Open();
    Recorder recorder(Recorder::THREAD_CALLS);
    LetTimeRunOut(recorder);
    WFILESYSTEM_EXPECT_MESSAGE(OpenNoWait(), NotObtained());
    EXPECT_EQ(recorder.Count("pthread_cond_destroy"), 0U);
    first.reset();
    EXPECT_EQ(recorder.Count("pthread_cond_destroy"), 1U) << "the locker ends with the last of its users";
}

TEST_F(ReadableFileSharingTest, AfterTheEndOfTheFirstTheFileCanBeOpenedAgain) {
    Open().reset();
    EXPECT_EQ(OpenNoWait()->GetSize(), 8);
    EXPECT_EQ(Open()->GetSize(), 8);
}

// Between processes

/// Takes the exclusive lock as another program would.
int LockExclusively(std::string const& path) {
    int const fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    File::WriteLock(fd, true);
    return fd;
}

/// A process that locks the file exclusively, says "locked", and keeps the lock until it is told "end".
Child LockElsewhere(std::string const& path) {
    return Child([&path](Child::Parent& parent) {
        LockExclusively(path);
        parent.Say("locked");
        parent.WaitFor("end");
    });
}

TEST_F(ReadableFileSharingTest, ReadersOfTwoProcessesShareTheLock) {
    Child child([this](Child::Parent& parent) {
        auto const file = Open();
        ReadableFile::ReadSmartLock const lock(*file);
        parent.Say("locked");
        parent.WaitFor("end");
    });
    ASSERT_TRUE(child.WaitFor("locked"));
    auto const file = Open();
    EXPECT_TRUE(file->ReadLock(true));
    EXPECT_TRUE(file->ReadLock(false));
    child.Say("end");
    EXPECT_EQ(child.Wait(), 0);
}

TEST_F(ReadableFileSharingTest, AWriterInAnotherProcessKeepsReadersOut) {
    Child child = LockElsewhere(path_);
    ASSERT_TRUE(child.WaitFor("locked"));
    auto const file = Open();
    EXPECT_FALSE(file->ReadLock(true));
    EXPECT_FALSE(ReadableFile::ReadSmartLock_NoWait(*file).IsLocked());
    EXPECT_FALSE(ReadableFile::ReadSmartLock_Wait(*file, 0).IsLocked());
    child.Say("end");
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_TRUE(ReadableFile::ReadSmartLock_NoWait(*file).IsLocked());
}

TEST_F(ReadableFileSharingTest, ATryThatIsRefusedAllocatesNothing) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    Child child = LockElsewhere(path_);
    ASSERT_TRUE(child.WaitFor("locked"));
    auto const file = Open();
    TestSupport::Allocations allocations;
    bool const isLocked = file->ReadLock(true);
    EXPECT_EQ(allocations.Stop(), 0U);
    EXPECT_FALSE(isLocked);
    child.Say("end");
    EXPECT_EQ(child.Wait(), 0);
}

TEST_F(ReadableFileSharingTest, AReaderWaitsForTheWriterInAnotherProcess) {
    Child child([this](Child::Parent& parent) {
        int const fd = LockExclusively(path_);
        parent.Say("locked");
        parent.WaitFor("I wait");
        EXPECT_EQ(::pwrite(fd, "1", 1, 0), 1);
        File::Unlock(fd);
    });
    ASSERT_TRUE(child.WaitFor("locked"));
    auto const file = Open();
    Recorder recorder;
    recorder.On("fcntl").Before([&](TestSupport::Call const&) { child.Say("I wait"); });
    ReadableFile::ReadSmartLock const lock(*file);
    EXPECT_TRUE(lock.IsLocked());
    char byte;
    file->Read(&byte, 1);
    EXPECT_EQ(byte, '1');
    EXPECT_EQ(recorder.Names(), "fcntl read");
}

TEST_F(ReadableFileSharingTest, AWriterInAnotherProcessIsKeptOut) {
    auto const file = Open();
    ReadableFile::ReadSmartLock const lock(*file);
    Child child([this](Child::Parent&) {
        int const fd = ::open(path_.c_str(), O_RDWR | O_CLOEXEC);
        EXPECT_THROW(File::WriteLock(fd, false), WBase::Message);
    });
    EXPECT_EQ(child.Wait(), 0);
}

/// What can end a lock of another process.
struct LockEnd {
    char const* name;
    void (*action)(std::unique_ptr<ReadableFile>& file);
    bool endsProcess;
};

LockEnd const LOCK_ENDS[] = {
    {"Unlock", [](std::unique_ptr<ReadableFile>& file) { file->ReadUnlock(); }, false},
    {"Destruction", [](std::unique_ptr<ReadableFile>& file) { file.reset(); }, false},
    {"Exit", [](std::unique_ptr<ReadableFile>&) { ::_exit(0); }, true},
    {"Kill", [](std::unique_ptr<ReadableFile>&) { ::raise(SIGKILL); }, true}};

class ReadLockEndTest : public ReadableFileSharingTest, public ::testing::WithParamInterface<LockEnd> {};

INSTANTIATE_TEST_SUITE_P(Ends, ReadLockEndTest, ::testing::ValuesIn(LOCK_ENDS), [](auto const& row) {
    return std::string(row.param.name);
});

TEST_P(ReadLockEndTest, TheLockOfAnotherProcessFalls) {
    Child child([this](Child::Parent& parent) {
        auto file = Open();
        file->ReadLock(false);
        parent.Say("locked");
        parent.WaitFor("end the lock");
        GetParam().action(file);
        parent.Say("unlocked");
        parent.WaitFor("end");
    });
    ASSERT_TRUE(child.WaitFor("locked"));
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "READ");
    child.Say("end the lock");
    if (GetParam().endsProcess) {
        child.Wait();
    } else {
        ASSERT_TRUE(child.WaitFor("unlocked"));
    }
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "");
    child.Say("end");
}

TEST_F(ReadableFileSharingTest, AChildDoesNotInheritTheLocksOfItsParent) {
    auto const file = Open();
    file->ReadLock(false);
    Child child([](Child::Parent& parent) { parent.WaitFor("end"); });
    file->ReadUnlock();
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "") << "the child has the descriptor, but no lock";
    child.Say("end");
    EXPECT_EQ(child.Wait(), 0);
}

TEST_F(ReadableFileSharingTest, ClosingAFileObjectDropsTheLocksOfOtherDescriptors) {
    int const fd = LockExclusively(path_);
    auto file = Open();
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "WRITE");
    file.reset();
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "");
    ::close(fd);
}

TEST_F(ReadableFileSharingTest, ClosingAnotherDescriptorDropsTheLockOfAFileObject) {
    auto const file = Open();
    file->ReadLock(false);
    ::close(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "");
}

TEST_F(ReadableFileSharingTest, ARefusedOpeningDropsTheLockOfTheFileObjectThatHasTheFile) {
    auto const file = Open();
    file->ReadLock(false);
    TestSupport::CloseDuring const closed(STDIN_FILENO);
    EXPECT_THROW(Open(), WBase::Message);
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "");
}

TEST_F(ReadableFileSharingTest, AGuardThatWaitsSeesAnUnlockAtTheEndOfItsSlice) {
    Child child([this](Child::Parent& parent) {
        int const fd = LockExclusively(path_);
        parent.Say("locked");
        parent.WaitFor("unlock");
        File::Unlock(fd);
        parent.Say("unlocked");
        parent.WaitFor("end");
    });
    ASSERT_TRUE(child.WaitFor("locked"));
    auto const file = Open();
    Recorder recorder;
    recorder.On("nanosleep").Instead([&](TestSupport::Call const&) {
        child.Say("unlock");
        return child.WaitFor("unlocked") ? 0 : -1;
    });
    EXPECT_TRUE(ReadableFile::ReadSmartLock_Wait(*file, 12000).IsLocked());
    EXPECT_THAT(
        recorder.Calls(), ElementsAre(
                              "fcntl(F_SETLK, F_RDLCK 0+0)", "nanosleep(5s 0ns)", "fcntl(F_SETLK, F_RDLCK 0+0)",
                              "fcntl(F_SETLK, F_UNLCK 0+0)"));
    child.Say("end");
    EXPECT_EQ(child.Wait(), 0);
}

TEST_F(ReadableFileSharingTest, AGuardGivesUpWhenTheOtherProcessKeepsItsLock) {
    Child child = LockElsewhere(path_);
    ASSERT_TRUE(child.WaitFor("locked"));
    auto const file = Open();
    Recorder recorder;
    recorder.On("nanosleep").Return(0);
    EXPECT_FALSE(ReadableFile::ReadSmartLock_Wait(*file, 5000).IsLocked());
    EXPECT_EQ(recorder.Names(), "fcntl nanosleep fcntl");
    child.Say("end");
    EXPECT_EQ(child.Wait(), 0);
}

} // namespace
