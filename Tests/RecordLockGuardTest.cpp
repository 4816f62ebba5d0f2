// The guards of the record locks of WFileSystem::File.

#include <FileSystem/File.h>

#include <Tests/Support/Messages.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <string>
#include <type_traits>
#include <unistd.h>
#include <utility>

namespace {

using testing::ElementsAre;
using TestSupport::Recorder;
using TestSupport::RecordLockSeenByOthers;
using WFileSystem::File;

int OpenFile(std::string const& path) {
    return ::open(path.c_str(), O_RDWR | O_CLOEXEC);
}

struct WriteGuard {
    using Guard = File::WriteSmartLock;
    static constexpr char const* RECORD = "F_SETLKW, F_WRLCK 0+0 self";
    static constexpr wchar_t const* FUNCTION = L"WriteLock";
    static constexpr char const* SEEN = "WRITE";
};

struct ReadGuard {
    using Guard = File::ReadSmartLock;
    static constexpr char const* RECORD = "F_SETLKW, F_RDLCK 0+0 self";
    static constexpr wchar_t const* FUNCTION = L"ReadLock";
    static constexpr char const* SEEN = "READ";
};

/// A file and a descriptor of it, and the calls that a guard makes.
template <class Kind>
class RecordLockGuardTest : public testing::Test {
protected:
    RecordLockGuardTest() { TestSupport::WriteFile(file_, "0123456789"); }
    ~RecordLockGuardTest() override { ::close(fd_); }

    static std::string Show(int fd, std::string const& record) {
        return "fcntl(" + std::to_string(fd) + ", " + record + ")";
    }

    static std::wstring Failure(int fd) {
        return std::wstring(L"WFileSystem::File::") + Kind::FUNCTION + L": Failed to lock file #" +
               std::to_wstring(fd) + L".";
    }

    static constexpr char const* UNLOCK = "F_SETLK, F_UNLCK 0+0 self";

    TestSupport::ScratchDirectory scratch_;
    std::string const file_ = scratch_ / "file";
    int const fd_ = ::open(file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    std::string const lock_ = Show(fd_, Kind::RECORD);
    std::string const unlock_ = Show(fd_, UNLOCK);
};

struct GuardNames {
    template <class Kind>
    static std::string GetName(int) {
        return Kind::SEEN;
    }
};

using GuardKinds = testing::Types<WriteGuard, ReadGuard>;
TYPED_TEST_SUITE(RecordLockGuardTest, GuardKinds, GuardNames);

static_assert(!std::is_polymorphic_v<File::WriteSmartLock> && !std::is_polymorphic_v<File::ReadSmartLock>);
static_assert(std::is_standard_layout_v<File::WriteSmartLock> && sizeof(File::WriteSmartLock) == 2 * sizeof(int));
static_assert(!std::is_copy_constructible_v<File::WriteSmartLock> && !std::is_copy_assignable_v<File::WriteSmartLock>);
static_assert(!std::is_move_constructible_v<File::ReadSmartLock> && !std::is_move_assignable_v<File::ReadSmartLock>);
static_assert(std::is_nothrow_destructible_v<File::WriteSmartLock>);
static_assert(noexcept(std::declval<File::WriteSmartLock&>().Unlock()));
static_assert(!std::is_same_v<File::WriteSmartLock, File::ReadSmartLock>);

TYPED_TEST(RecordLockGuardTest, AGuardWaitsForTheLockAndDropsItAtItsEnd) {
    Recorder recorder;
    {
        typename TypeParam::Guard const guard(this->fd_);
        EXPECT_TRUE(guard.IsLocked());
        EXPECT_EQ(RecordLockSeenByOthers(this->file_), TypeParam::SEEN);
    }
    EXPECT_THAT(recorder.Calls(Recorder::DESCRIPTORS), ElementsAre(this->lock_, this->unlock_));
    EXPECT_EQ(RecordLockSeenByOthers(this->file_), "");
}

TYPED_TEST(RecordLockGuardTest, AGuardHoldsADescriptorAndThenAFlag) {
    typename TypeParam::Guard guard(this->fd_);
    int fd = -1;
    bool isLocked = false;
    auto const* const bytes = reinterpret_cast<char const*>(&guard);
    std::memcpy(&fd, bytes, sizeof fd);
    std::memcpy(&isLocked, bytes + sizeof fd, sizeof isLocked);
    EXPECT_EQ(fd, this->fd_);
    EXPECT_TRUE(isLocked);
}

TYPED_TEST(RecordLockGuardTest, AGuardLocksTheDescriptorOfAStream) {
    FILE* const stream = std::fopen(this->file_.c_str(), "r+e");
    Recorder recorder("fcntl");
    { typename TypeParam::Guard const guard(stream); }
    EXPECT_THAT(
        recorder.Calls(Recorder::DESCRIPTORS),
        ElementsAre(
            this->Show(::fileno(stream), TypeParam::RECORD), this->Show(::fileno(stream), TestFixture::UNLOCK)));
    std::fclose(stream);
}

TYPED_TEST(RecordLockGuardTest, AGuardOfANullStreamTriesDescriptorMinusOne) {
    Recorder recorder;
    EXPECT_REPORT(typename TypeParam::Guard(static_cast<FILE*>(nullptr)), this->Failure(-1), EBADF);
    EXPECT_THAT(recorder.Calls(Recorder::DESCRIPTORS), ElementsAre(this->Show(-1, TypeParam::RECORD)));
}

TYPED_TEST(RecordLockGuardTest, AGuardThatGetsNoLockUnlocksNothing) {
    Recorder recorder;
    recorder.On("fcntl").Fail(EDEADLK);
    EXPECT_REPORT(typename TypeParam::Guard guard(this->fd_), this->Failure(this->fd_), EDEADLK);
    EXPECT_EQ(recorder.Count("fcntl"), 1U);
}

TYPED_TEST(RecordLockGuardTest, LockingTwiceLocksOnce) {
    typename TypeParam::Guard guard(this->fd_);
    Recorder recorder;
    guard.Lock();
    EXPECT_EQ(recorder.Names(), "");
    EXPECT_TRUE(guard.IsLocked());
}

TYPED_TEST(RecordLockGuardTest, UnlockingTwiceUnlocksOnce) {
    Recorder recorder;
    {
        typename TypeParam::Guard guard(this->fd_);
        guard.Unlock();
        EXPECT_FALSE(guard.IsLocked());
        EXPECT_EQ(RecordLockSeenByOthers(this->file_), "");
        guard.Unlock();
    }
    EXPECT_THAT(recorder.Calls(Recorder::DESCRIPTORS), ElementsAre(this->lock_, this->unlock_));
}

TYPED_TEST(RecordLockGuardTest, AGuardCanLockAgain) {
    Recorder recorder;
    {
        typename TypeParam::Guard guard(this->fd_);
        guard.Unlock();
        guard.Lock();
        EXPECT_TRUE(guard.IsLocked());
    }
    EXPECT_THAT(
        recorder.Calls(Recorder::DESCRIPTORS), ElementsAre(this->lock_, this->unlock_, this->lock_, this->unlock_));
}

TYPED_TEST(RecordLockGuardTest, AFailedLockLeavesTheGuardUnlocked) {
    Recorder recorder;
    {
        typename TypeParam::Guard guard(this->fd_);
        guard.Unlock();
        recorder.On("fcntl").Fail(ENOLCK);
        EXPECT_REPORT(guard.Lock(), this->Failure(this->fd_), ENOLCK);
        EXPECT_FALSE(guard.IsLocked());
    }
    EXPECT_THAT(recorder.Calls(Recorder::DESCRIPTORS), ElementsAre(this->lock_, this->unlock_, this->lock_));
}

TYPED_TEST(RecordLockGuardTest, AFailedUnlockIsIgnoredAndNotTriedAgain) {
    Recorder recorder;
    {
        typename TypeParam::Guard guard(this->fd_);
        recorder.On("fcntl").Fail(EBADF);
        guard.Unlock();
        EXPECT_FALSE(guard.IsLocked());
    }
    EXPECT_EQ(recorder.Count("fcntl"), 2U);
}

TYPED_TEST(RecordLockGuardTest, AnInterruptedLockOrUnlockIsRepeated) {
    Recorder recorder;
    recorder.On("fcntl").Command(F_SETLKW).First(20).Fail(EINTR);
    recorder.On("fcntl").Command(F_SETLK).First(20).Fail(EINTR);
    { typename TypeParam::Guard const guard(this->fd_); }
    EXPECT_EQ(recorder.Count("fcntl"), 42U);
    EXPECT_EQ(RecordLockSeenByOthers(this->file_), "");
}

TYPED_TEST(RecordLockGuardTest, AGuardMayOutliveItsDescriptor) {
    int const fd = OpenFile(this->file_);
    typename TypeParam::Guard const guard(fd);
    ::close(fd);
    EXPECT_TRUE(guard.IsLocked());
}

TYPED_TEST(RecordLockGuardTest, TheEndOfAnInnerGuardDropsTheLockOfTheOuter) {
    File::WriteSmartLock const outer(this->fd_);
    {
        typename TypeParam::Guard const inner(this->fd_);
        EXPECT_EQ(RecordLockSeenByOthers(this->file_), TypeParam::SEEN);
    }
    EXPECT_TRUE(outer.IsLocked());
    EXPECT_EQ(RecordLockSeenByOthers(this->file_), "");
}

} // namespace
