// The record locks of WFileSystem::File and WFileSystem::FileImpl.

#include <FileSystem/File.h>
#include <FileSystem/FileImpl.h>

#include <Tests/Support/Allocations.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Waiting.h>

#include <gmock/gmock.h>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <string>
#include <sys/mman.h>
#include <thread>
#include <tuple>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using TestSupport::Call;
using TestSupport::Child;
using TestSupport::Recorder;
using TestSupport::RecordLockSeenByOthers;
using WFileSystem::File;
using WFileSystem::FileImpl;

constexpr wchar_t SURROGATE = static_cast<wchar_t>(0xD800);

int OpenFile(std::string const& path, int flags = O_RDWR) {
    int const fd = ::open(path.c_str(), flags | O_CLOEXEC);
    EXPECT_NE(fd, -1);
    return fd;
}

/// Whether the code throws a message with this error number, as its ID or as its cause's.
bool FailsWith(int error, std::function<void()> const& code) {
    try {
        code();
    } catch (WBase::Message const& message) {
        std::wstring const text = message.GetMessage();
        std::wstring const description = L'\n' + TestSupport::ErrorDescription(error);
        return text.size() >= description.size() &&
               text.compare(text.size() - description.size(), description.size(), description) == 0;
    }
    return false;
}

/// A file and a descriptor of it.
class RecordLockTest : public testing::Test {
protected:
    RecordLockTest() {
        TestSupport::WriteFile(file_, "0123456789");
        fd_ = OpenFile(file_);
    }
    ~RecordLockTest() override { ::close(fd_); }

    std::wstring FileFailure(std::wstring const& function, int fd) const {
        return L"WFileSystem::File::" + function + L": Failed to lock file #" + std::to_wstring(fd) + L".";
    }

    std::wstring FileImplFailure() const { return L"Failed to lock file '" + path_ + L"'."; }

    TestSupport::ScratchDirectory scratch_;
    std::string const file_ = scratch_ / "file";
    std::wstring const path_ = scratch_.Wide("file");
    int fd_ = -1;
};

// One system call, and its record

static_assert(noexcept(File::Unlock(0)) && noexcept(FileImpl::Unlock(0)), "An unlock never throws.");

TEST_F(RecordLockTest, EachOperationPassesItsRecordToTheSystem) {
    std::vector<std::pair<std::function<void()>, std::string>> const rows = {
        {[&] { File::WriteLock(fd_, true); }, "F_SETLKW, F_WRLCK 0+0 self"},
        {[&] { File::WriteLock(fd_, false); }, "F_SETLK, F_WRLCK 0+0 self"},
        {[&] { File::ReadLock(fd_, true); }, "F_SETLKW, F_RDLCK 0+0 self"},
        {[&] { File::ReadLock(fd_, false); }, "F_SETLK, F_RDLCK 0+0 self"},
        {[&] { File::Unlock(fd_); }, "F_SETLK, F_UNLCK 0+0 self"},
        {[&] { FileImpl::WriteLock(L"f", fd_, true); }, "F_SETLK, F_WRLCK 0+0"},
        {[&] { FileImpl::WriteLock(L"f", fd_, false); }, "F_SETLKW, F_WRLCK 0+0"},
        {[&] { FileImpl::ReadLock(L"f", fd_, true); }, "F_SETLK, F_RDLCK 0+0"},
        {[&] { FileImpl::ReadLock(L"f", fd_, false); }, "F_SETLKW, F_RDLCK 0+0"},
        {[&] { FileImpl::Unlock(fd_); }, "F_SETLK, F_UNLCK 0+0"},
    };
    for (auto const& [operation, record] : rows) {
        Recorder recorder;
        operation();
        EXPECT_THAT(
            recorder.Calls(Recorder::DESCRIPTORS), ElementsAre("fcntl(" + std::to_string(fd_) + ", " + record + ")"));
        EXPECT_EQ(recorder.Find("fcntl").lock.l_whence, SEEK_SET);
    }
}

TEST_F(RecordLockTest, EachOperationIsRepeatedWithoutLimitWhileInterrupted) {
    std::vector<std::function<void()>> const operations = {
        [&] { File::WriteLock(fd_, true); },
        [&] { File::WriteLock(fd_, false); },
        [&] { File::ReadLock(fd_, true); },
        [&] { File::ReadLock(fd_, false); },
        [&] { File::Unlock(fd_); },
        [&] { EXPECT_TRUE(FileImpl::WriteLock(L"f", fd_, true)); },
        [&] { EXPECT_TRUE(FileImpl::WriteLock(L"f", fd_, false)); },
        [&] { EXPECT_TRUE(FileImpl::ReadLock(L"f", fd_, true)); },
        [&] { EXPECT_TRUE(FileImpl::ReadLock(L"f", fd_, false)); },
        [&] { FileImpl::Unlock(fd_); },
    };
    for (auto const& operation : operations) {
        Recorder recorder;
        recorder.On("fcntl").First(100).Fail(EINTR);
        operation();
        EXPECT_EQ(recorder.Count("fcntl"), 101U);
        EXPECT_EQ(recorder.Calls().front(), recorder.Calls().back());
    }
}

TEST_F(RecordLockTest, TheKernelHoldsALockOnTheWholeFile) {
    SKIP_UNLESS_RECORD_LOCKS_ARE_LISTED();
    ::lseek(fd_, 5, SEEK_SET); // the position does not matter
    File::WriteLock(fd_, true);
    EXPECT_THAT(TestSupport::RecordLocksOf(fd_), ElementsAre("WRITE 0-EOF"));
    File::ReadLock(fd_, true);
    EXPECT_THAT(TestSupport::RecordLocksOf(fd_), ElementsAre("READ 0-EOF"));
    FileImpl::WriteLock(L"f", fd_, false);
    EXPECT_THAT(TestSupport::RecordLocksOf(fd_), ElementsAre("WRITE 0-EOF"));
    FileImpl::ReadLock(L"f", fd_, false);
    EXPECT_THAT(TestSupport::RecordLocksOf(fd_), ElementsAre("READ 0-EOF"));
    FileImpl::Unlock(fd_);
    EXPECT_THAT(TestSupport::RecordLocksOf(fd_), ElementsAre());
}

TEST_F(RecordLockTest, LocksAndUnlocksAllocateNothing) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::Allocations allocations;
    File::WriteLock(fd_, true);
    File::ReadLock(fd_, false);
    File::Unlock(fd_);
    FileImpl::WriteLock(L"f", fd_, false);
    FileImpl::ReadLock(L"f", fd_, true);
    FileImpl::Unlock(fd_);
    { File::WriteSmartLock const guard(fd_); }
    { File::ReadSmartLock const guard(fd_); }
    EXPECT_EQ(allocations.Stop(), 0U);
}

// Failures

TEST_F(RecordLockTest, DescriptorLocksReportEveryFailure) {
    // Locks held elsewhere and file systems without locks, too: the result never says that a lock would block.
    for (int const error : {EAGAIN, EACCES, ENOTSUP, EBADF, EDEADLK, ENOLCK, EINVAL}) {
        for (bool const wait : {true, false}) {
            Recorder recorder;
            recorder.On("fcntl").Fail(error);
            EXPECT_REPORT(File::WriteLock(7, wait), FileFailure(L"WriteLock", 7), error);
            EXPECT_REPORT(File::ReadLock(7, wait), FileFailure(L"ReadLock", 7), error);
            EXPECT_EQ(recorder.Names(), "fcntl fcntl");
        }
    }
}

TEST_F(RecordLockTest, DescriptorLocksNameTheNumberAsItIs) {
    for (int const fd : {-1, -20, 1000000}) {
        EXPECT_REPORT(File::WriteLock(fd, false), FileFailure(L"WriteLock", fd), EBADF);
        EXPECT_REPORT(File::ReadLock(fd, false), FileFailure(L"ReadLock", fd), EBADF);
    }
}

TEST_F(RecordLockTest, OnlyTheCodesOfItsOwnTellThatAFileImplLockWouldBlock) {
    struct Row {
        int error;
        bool isWriteLockRefused; // false instead of an exception
        bool isReadLockRefused;
    };
    for (Row const& row :
         {Row{ENOTSUP, true, true}, Row{EAGAIN, false, true}, Row{EACCES, false, false}, Row{EBADF, false, false},
          Row{EDEADLK, false, false}, Row{ENOLCK, false, false}}) {
        Recorder recorder;
        recorder.On("fcntl").Fail(row.error);
        if (row.isWriteLockRefused) {
            EXPECT_FALSE(FileImpl::WriteLock(path_.c_str(), fd_, true));
        } else {
            EXPECT_WRAPPED(FileImpl::WriteLock(path_.c_str(), fd_, true), FileImplFailure(), row.error);
        }
        if (row.isReadLockRefused) {
            EXPECT_FALSE(FileImpl::ReadLock(path_.c_str(), fd_, true));
        } else {
            EXPECT_WRAPPED(FileImpl::ReadLock(path_.c_str(), fd_, true), FileImplFailure(), row.error);
        }
        EXPECT_EQ(recorder.Names(), "fcntl fcntl");
    }
}

TEST_F(RecordLockTest, AFileImplLockThatMayWaitThrowsEveryFailure) {
    for (int const error : {ENOTSUP, EAGAIN, EACCES, EBADF, EDEADLK, ENOLCK}) {
        Recorder recorder;
        recorder.On("fcntl").Fail(error);
        EXPECT_WRAPPED(FileImpl::WriteLock(path_.c_str(), fd_, false), FileImplFailure(), error);
        EXPECT_WRAPPED(FileImpl::ReadLock(path_.c_str(), fd_, false), FileImplFailure(), error);
        EXPECT_EQ(recorder.Names(), "fcntl fcntl");
    }
}

TEST_F(RecordLockTest, ADescriptorLockSucceedsWithEveryResultButMinusOne) {
    for (int const result : {5, -2}) {
        Recorder recorder;
        recorder.On("fcntl").Script({result, result, result});
        errno = EINTR; // left over, and no reason to repeat the call
        EXPECT_NO_THROW(File::WriteLock(fd_, true));
        EXPECT_NO_THROW(File::ReadLock(fd_, true));
        File::Unlock(fd_);
        EXPECT_EQ(recorder.Count("fcntl"), 3U);
    }
}

TEST_F(RecordLockTest, AFileImplLockSucceedsWithZeroOnly) {
    for (int const error : {EINTR, EIO}) {
        Recorder recorder;
        recorder.On("fcntl").Instead([error](Call const&) {
            errno = error;
            return 5;
        });
        EXPECT_WRAPPED(FileImpl::WriteLock(path_.c_str(), fd_, true), FileImplFailure(), error);
        EXPECT_WRAPPED(FileImpl::ReadLock(path_.c_str(), fd_, true), FileImplFailure(), error);
        EXPECT_EQ(recorder.Names(), "fcntl fcntl");
    }
}

TEST_F(RecordLockTest, AFileImplLockNamesTheAbsolutePath) {
    TestSupport::WorkingDirectory const inside(scratch_.Path());
    struct Row {
        std::wstring path;
        std::wstring absolute;
    };
    std::vector<Row> const rows = {
        {L"data/x.bin", scratch_.Wide("data/x.bin")},
        {L"./a/../%1", scratch_.Wide("%1")},
        {L"/a/../%1", L"/a/../%1"},
        {L"Stra\u00DFe", scratch_.Wide("Stra\u00DFe")},
        {L"", scratch_.Wide()},
        {std::wstring(1, SURROGATE), scratch_.Wide() + L'/' + SURROGATE},
    };
    for (Row const& row : rows) {
        std::wstring const failure = L"Failed to lock file '" + row.absolute + L"'.";
        EXPECT_WRAPPED(FileImpl::WriteLock(row.path.c_str(), -1, false), failure, EBADF);
        EXPECT_WRAPPED(FileImpl::ReadLock(row.path.c_str(), -1, true), failure, EBADF);
    }
}

TEST_F(RecordLockTest, TheErrorIsThatOfTheLockNotOfTheWorkingDirectory) {
    Recorder recorder;
    recorder.On("fcntl").Fail(ENOLCK);
    recorder.On("getcwd").Before([](Call const&) { errno = EIO; });
    EXPECT_TRUE(FailsWith(ENOLCK, [&] { FileImpl::WriteLock(L"f", fd_, false); }));
    EXPECT_EQ(recorder.Names(), "fcntl getcwd");
}

TEST_F(RecordLockTest, TheErrorIsReadBeforeAnythingIsAllocated) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::Allocations const allocations; // each changes errno
    EXPECT_REPORT(File::WriteLock(-1, true), FileFailure(L"WriteLock", -1), EBADF);
    EXPECT_REPORT(File::ReadLock(-1, false), FileFailure(L"ReadLock", -1), EBADF);
    EXPECT_WRAPPED(FileImpl::WriteLock(L"/f", -1, false), L"Failed to lock file '/f'.", EBADF);
    EXPECT_WRAPPED(FileImpl::ReadLock(L"/f", -1, true), L"Failed to lock file '/f'.", EBADF);
}

TEST_F(RecordLockTest, AnUnknownWorkingDirectoryReplacesTheFailureOfARelativePath) {
    Recorder recorder;
    recorder.On("getcwd").Fail(ENOENT);
    EXPECT_REPORT(
        FileImpl::ReadLock(L"f", -1, false), L"WFileSystem::GetCurrentWorkingDirectory: ::getcwd failed.", ENOENT);
    EXPECT_WRAPPED(FileImpl::ReadLock(L"/f", -1, false), L"Failed to lock file '/f'.", EBADF);
}

TEST_F(RecordLockTest, AnUnlockIgnoresFailures) {
    for (int const error : {EBADF, EAGAIN, ENOLCK, EINVAL}) {
        Recorder recorder;
        recorder.On("fcntl").Fail(error);
        File::Unlock(fd_);
        FileImpl::Unlock(fd_);
        EXPECT_EQ(recorder.Names(), "fcntl fcntl");
    }
}

TEST_F(RecordLockTest, OnlyAFileImplUnlockLeavesDescriptorMinusOneAlone) {
    Recorder recorder;
    FileImpl::Unlock(-1);
    EXPECT_EQ(recorder.Names(), "");
    FileImpl::Unlock(-2);
    File::Unlock(-1);
    EXPECT_THAT(
        recorder.Calls(Recorder::DESCRIPTORS),
        ElementsAre("fcntl(-2, F_SETLK, F_UNLCK 0+0)", "fcntl(-1, F_SETLK, F_UNLCK 0+0 self)"));
}

TEST_F(RecordLockTest, ALockNeedsADescriptorOfItsKind) {
    int const reading = OpenFile(file_, O_RDONLY);
    int const writing = OpenFile(file_, O_WRONLY);
    EXPECT_REPORT(File::WriteLock(reading, true), FileFailure(L"WriteLock", reading), EBADF);
    EXPECT_REPORT(File::ReadLock(writing, true), FileFailure(L"ReadLock", writing), EBADF);
    EXPECT_WRAPPED(FileImpl::WriteLock(path_.c_str(), reading, true), FileImplFailure(), EBADF);
    EXPECT_WRAPPED(FileImpl::ReadLock(path_.c_str(), writing, true), FileImplFailure(), EBADF);
    EXPECT_NO_THROW(File::ReadLock(reading, true));
    EXPECT_NO_THROW(File::WriteLock(writing, true));
    ::close(reading);
    ::close(writing);
}

// Two processes

/// How a process takes and drops a lock.
struct Family {
    char const* name;
    void (*writeLock)(int fd);
    void (*readLock)(int fd);
    void (*unlock)(int fd);
};

constexpr Family FAMILIES[] = {
    {"File", [](int fd) { File::WriteLock(fd, true); }, [](int fd) { File::ReadLock(fd, true); }, &File::Unlock},
    {"FileImpl", [](int fd) { FileImpl::WriteLock(L"/f", fd, false); },
     [](int fd) { FileImpl::ReadLock(L"/f", fd, false); }, &FileImpl::Unlock},
};

/// The ways out of a lock.
enum class Way { UNLOCK, CLOSE, EXIT, KILL };

/// What this process can do while the other holds a lock.
void ExpectReadLockIsGranted(int fd, bool isGranted) {
    EXPECT_EQ(FailsWith(EAGAIN, [fd] { File::ReadLock(fd, false); }), !isGranted);
    EXPECT_EQ(FileImpl::ReadLock(L"/f", fd, true), isGranted);
    File::Unlock(fd);
}

void ExpectWriteLockIsGranted(int fd, bool isGranted) {
    EXPECT_EQ(FailsWith(EAGAIN, [fd] { File::WriteLock(fd, false); }), !isGranted);
    EXPECT_EQ(FailsWith(EAGAIN, [fd] { FileImpl::WriteLock(L"/f", fd, true); }), !isGranted);
    File::Unlock(fd);
}

class RecordLockStoryTest : public RecordLockTest, public testing::WithParamInterface<std::tuple<Family, Way>> {
protected:
    /// A child that takes a lock, says so, and drops it in the test's way when it is told.
    std::unique_ptr<Child> StartHolder(void (*lock)(int fd)) {
        auto const [family, way] = GetParam();
        return std::make_unique<Child>([this, lock, unlock = family.unlock, way = way](Child::Parent& parent) {
            int const fd = OpenFile(file_);
            lock(fd);
            parent.Say("locked");
            parent.WaitFor("release");
            if (way == Way::UNLOCK) {
                unlock(fd);
            } else if (way == Way::CLOSE) {
                ::close(fd);
            } else {
                return;
            }
            parent.Say("released");
            parent.WaitFor("end");
        });
    }

    static void Release(Child& holder) {
        switch (std::get<Way>(GetParam())) {
        case Way::UNLOCK:
        case Way::CLOSE:
            holder.Say("release");
            ASSERT_TRUE(holder.WaitFor("released"));
            break;
        case Way::EXIT:
            holder.Say("release");
            ASSERT_EQ(holder.Wait(), 0);
            break;
        case Way::KILL:
            ASSERT_EQ(holder.Kill(SIGKILL), -SIGKILL);
            break;
        }
    }

    static void End(Child& holder) {
        if (!holder.HasEnded()) {
            holder.Say("end");
        }
    }
};

std::string NameOf(testing::TestParamInfo<std::tuple<Family, Way>> const& test) {
    constexpr char const* WAYS[] = {"Unlock", "Close", "Exit", "Kill"};
    return std::get<Family>(test.param).name + std::string(WAYS[static_cast<int>(std::get<Way>(test.param))]);
}

INSTANTIATE_TEST_SUITE_P(
    All, RecordLockStoryTest,
    testing::Combine(testing::ValuesIn(FAMILIES), testing::Values(Way::UNLOCK, Way::CLOSE, Way::EXIT, Way::KILL)),
    &NameOf);

TEST_P(RecordLockStoryTest, AnExclusiveLockKeepsOtherProcessesOutUntilItIsReleased) {
    auto const holder = StartHolder(std::get<Family>(GetParam()).writeLock);
    ASSERT_TRUE(holder->WaitFor("locked"));
    ExpectReadLockIsGranted(fd_, false);
    ExpectWriteLockIsGranted(fd_, false);
    Release(*holder);
    ExpectReadLockIsGranted(fd_, true);
    ExpectWriteLockIsGranted(fd_, true);
    End(*holder);
}

TEST_P(RecordLockStoryTest, ASharedLockKeepsOnlyExclusiveLocksOutUntilItIsReleased) {
    auto const holder = StartHolder(std::get<Family>(GetParam()).readLock);
    ASSERT_TRUE(holder->WaitFor("locked"));
    ExpectReadLockIsGranted(fd_, true);
    ExpectWriteLockIsGranted(fd_, false);
    Release(*holder);
    ExpectWriteLockIsGranted(fd_, true);
    End(*holder);
}

TEST_P(RecordLockStoryTest, AWaitingLockIsGrantedWhenTheOtherProcessReleases) {
    auto const holder = StartHolder(std::get<Family>(GetParam()).writeLock);
    ASSERT_TRUE(holder->WaitFor("locked"));
    Recorder recorder("fcntl", Recorder::Threads::ALL);
    std::atomic<bool> isGranted{false};
    std::thread waiter([&] {
        std::get<Family>(GetParam()).writeLock(fd_);
        isGranted = true;
    });
    EXPECT_TRUE(recorder.WaitForCall("fcntl"));
    EXPECT_FALSE(isGranted);
    Release(*holder);
    waiter.join();
    EXPECT_TRUE(isGranted);
    End(*holder);
}

TEST_F(RecordLockTest, LocksHeldElsewhereAreReported) {
    Child holder([&](Child::Parent& parent) {
        File::WriteLock(OpenFile(file_), true);
        parent.Say("locked");
        parent.WaitFor("end");
    });
    ASSERT_TRUE(holder.WaitFor("locked"));
    EXPECT_REPORT(File::WriteLock(fd_, false), FileFailure(L"WriteLock", fd_), EAGAIN);
    EXPECT_REPORT(File::ReadLock(fd_, false), FileFailure(L"ReadLock", fd_), EAGAIN);
    EXPECT_WRAPPED(FileImpl::WriteLock(path_.c_str(), fd_, true), FileImplFailure(), EAGAIN);
    EXPECT_FALSE(FileImpl::ReadLock(path_.c_str(), fd_, true));
    holder.Say("end");
}

TEST_F(RecordLockTest, ALockOnAnEmptyFileCoversBytesAppendedLater) {
    ::ftruncate(fd_, 0);
    File::WriteLock(fd_, true);
    ASSERT_EQ(::pwrite(fd_, "appended", 8, 1000), 8);
    Child other([&](Child::Parent&) {
        struct flock record = {};
        record.l_type = F_RDLCK;
        record.l_whence = SEEK_SET;
        record.l_start = 1003;
        record.l_len = 2;
        EXPECT_EQ(::fcntl(OpenFile(file_), F_SETLK, &record), -1);
        EXPECT_EQ(errno, EAGAIN);
    });
    EXPECT_EQ(other.Wait(), 0);
}

/// How often the child has asked for its lock, seen by both processes.
class SharedCount {
public:
    SharedCount()
        : count_(new (::mmap(nullptr, sizeof *count_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0))
                     std::atomic<int>(0)) {}
    SharedCount(SharedCount const&) = delete;
    SharedCount& operator=(SharedCount const&) = delete;
    ~SharedCount() { ::munmap(count_, sizeof *count_); }

    std::atomic<int>& operator*() const { return *count_; }

private:
    std::atomic<int>* count_;
};

TEST_F(RecordLockTest, ASignalDoesNotEndTheWaiting) {
    for (Family const& family : FAMILIES) {
        SharedCount const asked;
        File::WriteLock(fd_, true);
        Child waiter([&](Child::Parent& parent) {
            struct sigaction action = {};
            action.sa_handler = [](int) {};
            ::sigaction(SIGUSR1, &action, nullptr); // without SA_RESTART
            parent.Say("ready");
            Recorder recorder;
            recorder.On("fcntl").Before([&](Call const&) { ++*asked; });
            family.writeLock(OpenFile(file_));
        });
        ASSERT_TRUE(waiter.WaitFor("ready"));
        EXPECT_TRUE(TestSupport::WaitUntil([&] {
            waiter.Signal(SIGUSR1);
            return *asked >= 5;
        }));
        File::Unlock(fd_);
        EXPECT_EQ(waiter.Wait(), 0);
    }
}

// Surprises

TEST_F(RecordLockTest, ASecondLockByTheSameProcessIsGrantedAtOnce) {
    int const other = OpenFile(file_);
    File::WriteLock(fd_, true);
    std::thread thread([&] {
        EXPECT_NO_THROW(File::WriteLock(other, false));
        EXPECT_TRUE(FileImpl::ReadLock(path_.c_str(), other, true));
    });
    thread.join();
    ::close(other);
}

TEST_F(RecordLockTest, ASecondLockByTheSameProcessReplacesTheFirst) {
    int const other = OpenFile(file_);
    File::WriteLock(fd_, true);
    File::ReadLock(other, true);
    EXPECT_EQ(RecordLockSeenByOthers(file_), "READ");
    ::close(other);
}

TEST_F(RecordLockTest, ClosingAnyDescriptorOfTheFileDropsTheLock) {
    int const other = OpenFile(file_, O_RDONLY);
    File::WriteLock(fd_, true);
    ASSERT_EQ(RecordLockSeenByOthers(file_), "WRITE");
    ::close(other);
    EXPECT_EQ(RecordLockSeenByOthers(file_), "");
}

TEST_F(RecordLockTest, ReadingTheFileByItsPathDropsTheLock) {
    File::ReadLock(fd_, true);
    ASSERT_EQ(RecordLockSeenByOthers(file_), "READ");
    TestSupport::ReadFile(file_);
    EXPECT_EQ(RecordLockSeenByOthers(file_), "");
}

TEST_F(RecordLockTest, UnlockingAnyDescriptorOfTheFileDropsTheLock) {
    for (Family const& family : FAMILIES) {
        int const other = OpenFile(file_);
        family.writeLock(fd_);
        family.unlock(other);
        EXPECT_EQ(RecordLockSeenByOthers(file_), "");
        ::close(other);
    }
}

TEST_F(RecordLockTest, AForkedChildDoesNotHaveTheLock) {
    File::WriteLock(fd_, true);
    Child child([&](Child::Parent&) {
        EXPECT_TRUE(FailsWith(EAGAIN, [&] { File::WriteLock(fd_, false); }));
        EXPECT_FALSE(FileImpl::ReadLock(path_.c_str(), fd_, true));
        File::Unlock(fd_);
        ::close(fd_);
    });
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(RecordLockSeenByOthers(file_), "WRITE");
}

// This process holds "file" in one thread and waits for "other" in a second one, the child holds "other" and waits for
// "file". The first thread could go on and unlock, yet the system refuses whichever wait comes last.
TEST_F(RecordLockTest, ADeadlockIsReportedAlthoughAThreadCouldStillUnlock) {
    std::string const otherFile = scratch_ / "other";
    TestSupport::WriteFile(otherFile, "");
    int const other = OpenFile(otherFile);
    Child child([&](Child::Parent& parent) {
        int const held = OpenFile(otherFile);
        File::WriteLock(held, true);
        parent.Say("locked");
        parent.WaitFor("lock");
        bool const isRefused = FailsWith(EDEADLK, [&] { File::WriteLock(OpenFile(file_), true); });
        File::Unlock(held);
        return isRefused ? 1 : 0;
    });
    ASSERT_TRUE(child.WaitFor("locked"));
    File::WriteLock(fd_, true);
    child.Say("lock");
    bool isRefusedHere = false;
    std::thread waiter([&] { isRefusedHere = FailsWith(EDEADLK, [&] { File::WriteLock(other, true); }); });
    waiter.join(); // granted or refused without the unlock that could come here
    File::Unlock(fd_);
    EXPECT_EQ(child.Wait(), isRefusedHere ? 0 : 1);
    ::close(other);
}

} // namespace
