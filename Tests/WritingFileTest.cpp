// The operations of a file that is open for writing: what they do, their timers, their flags and their locks.

#include <FileSystem/File.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Recorder.h>
#include <Tests/WritingFiles.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <string>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using namespace WFileSystem;
using ::testing::ElementsAre;
using TestSupport::Child;
using TestSupport::Recorder;
using WritingFiles::LetCallsTakeTime;
using WritingFiles::MOMENT;

template <class Kind>
class WritingFileTest : public WritingFiles::Test<Kind> {
protected:
    std::wstring const toFile_ = L" bytes to file '" + this->widePath_ + L"'.";
    std::wstring const ofFile_ = L" of file '" + this->widePath_ + L"'.";
    std::wstring const lockFailure_ = L"Failed to lock file '" + this->widePath_ + L"'.";
};

TYPED_TEST_SUITE(WritingFileTest, WritingFiles::Kinds);

TYPED_TEST(WritingFileTest, WriteOverwritesInPlace) {
    auto const file = this->Open();
    char const data[] = {'a', '\0', 'b'};
    Recorder recorder;
    file->Write(static_cast<void const*>(data), sizeof data);
    file->Write("cd", 1);
    file->Write("ef", 0); // up to the text's end
    file->Write(static_cast<void const*>(data), 0);
    file->Write("", 0);
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(3)", "write(1)", "write(2)"));
    EXPECT_EQ(TestSupport::ReadFile(this->path_), std::string(data, sizeof data) + "cef6789");
    EXPECT_EQ(file->GetPosition(), 6);
}

TYPED_TEST(WritingFileTest, WriteLittleEndianGivesTheLeastSignificantByteFirst) {
    auto const file = this->Open();
    Recorder recorder;
    file->WriteLittleEndian(0x01020304);
    file->WriteLittleEndian(0xFCFDFEFF);
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(4)", "write(4)"));
    EXPECT_EQ(
        TestSupport::ReadFile(this->path_), "\x04\x03\x02\x01\xFF\xFE\xFD\xFC"
                                            "89");
}

TYPED_TEST(WritingFileTest, FlushSyncs) {
    auto const file = this->Open();
    Recorder recorder;
    file->Flush();
    EXPECT_EQ(recorder.Names(), "fsync");
}

TYPED_TEST(WritingFileTest, TruncateCutsAtThePosition) {
    auto const file = this->Open();
    file->SetPosition(4);
    Recorder recorder;
    file->Truncate();
    EXPECT_THAT(recorder.Calls(), ElementsAre("lseek(0, SEEK_CUR)", "ftruncate(4)"));
    EXPECT_EQ(TestSupport::ReadFile(this->path_), "0123");
}

TYPED_TEST(WritingFileTest, ThePositionMovesAsAsked) {
    auto const file = this->Open();
    Recorder recorder;
    EXPECT_EQ(file->SetPosition(4), 4);
    EXPECT_EQ(file->MovePosition(-1), 3);
    EXPECT_EQ(file->GetPosition(), 3);
    EXPECT_EQ(file->SetPositionToEnd(), 10);
    EXPECT_EQ(file->GetSize(), 10);
    EXPECT_THAT(
        recorder.Calls(),
        ElementsAre(
            "lseek(4, SEEK_SET)", "lseek(-1, SEEK_CUR)", "lseek(0, SEEK_CUR)", "lseek(0, SEEK_END)", "fstat()"));
}

TYPED_TEST(WritingFileTest, AFileIsAccessibleWhileItsPathNamesIt) {
    auto const file = this->Open();
    WBase::Message message;
    EXPECT_TRUE(file->IsAccessibleViaPath(&message));
    ASSERT_EQ(::unlink(this->path_.c_str()), 0);
    EXPECT_FALSE(file->IsAccessibleViaPath(&message));
    TestSupport::WriteFile(this->path_, "another");
    EXPECT_FALSE(file->IsAccessibleViaPath(&message));
    EXPECT_STREQ(message.GetMessage(), L"");
}

// Failures

TYPED_TEST(WritingFileTest, FailuresNameTheFile) {
    auto const file = this->Open();
    Recorder recorder;
    recorder.On("*").Fail(EIO);
    EXPECT_WRAPPED(file->Write("abc", 3), L"Failed to write 3" + this->toFile_, EIO);
    EXPECT_WRAPPED(file->Write(static_cast<void const*>("abc"), 2), L"Failed to write 2" + this->toFile_, EIO);
    EXPECT_WRAPPED(file->WriteLittleEndian(1), L"Failed to write 4" + this->toFile_, EIO);
    EXPECT_WRAPPED(file->Flush(), L"Failed to flush file '" + this->widePath_ + L"'.", EIO);
    EXPECT_WRAPPED(file->Truncate(), L"Failed to get current position" + this->ofFile_, EIO);
    EXPECT_WRAPPED(file->GetSize(), L"Failed to get size" + this->ofFile_, EIO);
    EXPECT_WRAPPED(file->GetPosition(), L"Failed to get current position" + this->ofFile_, EIO);
    EXPECT_WRAPPED(file->MovePosition(1), L"Failed to set current position" + this->ofFile_, EIO);
    EXPECT_WRAPPED(file->SetPosition(1), L"Failed to set current position" + this->ofFile_, EIO);
    EXPECT_WRAPPED(file->SetPositionToEnd(), L"Failed to set current position" + this->ofFile_, EIO);
    EXPECT_WRAPPED(file->WriteLock(false), this->lockFailure_, EIO);
    EXPECT_WRAPPED(file->WriteLock(true), this->lockFailure_, EIO);
}

TYPED_TEST(WritingFileTest, AFailedTruncationIsReported) {
    auto const file = this->Open();
    Recorder recorder;
    recorder.On("ftruncate").Fail(EIO);
    EXPECT_WRAPPED(file->Truncate(), L"Failed to truncate file '" + this->widePath_ + L"'.", EIO);
}

TYPED_TEST(WritingFileTest, AfterTheCommitOperationsFail) {
    auto const file = this->Open();
    file->CommitAndClose();
    EXPECT_WRAPPED(file->Write("abc", 0), L"Failed to write 3" + this->toFile_, EBADF);
    EXPECT_WRAPPED(file->Write(static_cast<void const*>("abc"), 2), L"Failed to write 2" + this->toFile_, EBADF);
    EXPECT_WRAPPED(file->WriteLittleEndian(1), L"Failed to write 4" + this->toFile_, EBADF);
    EXPECT_WRAPPED(file->Flush(), L"Failed to flush file '" + this->widePath_ + L"'.", EBADF);
    EXPECT_WRAPPED(file->Truncate(), L"Failed to get current position" + this->ofFile_, EBADF);
    EXPECT_WRAPPED(file->GetSize(), L"Failed to get size" + this->ofFile_, EBADF);
    EXPECT_WRAPPED(file->GetPosition(), L"Failed to get current position" + this->ofFile_, EBADF);
    EXPECT_WRAPPED(file->MovePosition(1), L"Failed to set current position" + this->ofFile_, EBADF);
    EXPECT_WRAPPED(file->SetPosition(1), L"Failed to set current position" + this->ofFile_, EBADF);
    EXPECT_WRAPPED(file->SetPositionToEnd(), L"Failed to set current position" + this->ofFile_, EBADF);
    EXPECT_WRAPPED(file->WriteLock(false), this->lockFailure_, EBADF);
    EXPECT_EQ(file->GetPath(), this->widePath_);
}

TYPED_TEST(WritingFileTest, AfterTheCommitTheFileIsNotAccessible) {
    auto const file = this->Open();
    file->CommitAndClose();
    WBase::Message message;
    EXPECT_FALSE(file->IsAccessibleViaPath(&message));
    EXPECT_TRUE(
        TestSupport::Matches(message, TestSupport::Wrapped(L"Failed to get attributes" + this->ofFile_, EBADF)));
}

// Timers

using Operation = std::function<void(WriteableFile&)>;

Operation const TRANSFERS[] = {
    [](WriteableFile& file) { file.Write("abc", 0); },
    [](WriteableFile& file) { file.Write(static_cast<void const*>("abc"), 3); },
    [](WriteableFile& file) { file.WriteLittleEndian(1); }};

Operation const CHANGES[] = {[](WriteableFile& file) { file.Flush(); }, [](WriteableFile& file) { file.Truncate(); }};

Operation const QUESTIONS[] = {
    [](WriteableFile& file) { file.GetPath(); },       [](WriteableFile& file) { file.IsAccessibleViaPath(nullptr); },
    [](WriteableFile& file) { file.GetSize(); },       [](WriteableFile& file) { file.GetPosition(); },
    [](WriteableFile& file) { file.GetWriteTimer(); }, [](WriteableFile& file) { file.GetWriteLockTimer(); }};

Operation const POSITIONS[] = {
    [](WriteableFile& file) { file.SetPosition(1); }, [](WriteableFile& file) { file.SetPositionToEnd(); }};

template <class... Tables>
std::vector<Operation> Join(Tables const&... tables) {
    std::vector<Operation> operations;
    (operations.insert(operations.end(), std::begin(tables), std::end(tables)), ...);
    return operations;
}

/// By how much an operation moves the write timer and the write-lock timer. It may fail.
std::pair<std::chrono::nanoseconds, std::chrono::nanoseconds> TimesOf(WriteableFile& file, Operation const& operation) {
    auto const write = file.GetWriteTimer().GetTotal();
    auto const lock = file.GetWriteLockTimer().GetTotal();
    try {
        operation(file);
    } catch (WBase::Message const&) {
    }
    return {file.GetWriteTimer().GetTotal() - write, file.GetWriteLockTimer().GetTotal() - lock};
}

constexpr std::chrono::nanoseconds NO_TIME(0);

TYPED_TEST(WritingFileTest, TransfersAndChangesMoveTheWriteTimerOnly) {
    auto const file = this->Open();
    for (int const error : {0, EIO}) {
        Recorder recorder;
        LetCallsTakeTime(recorder, error);
        for (Operation const& operation : Join(TRANSFERS, CHANGES)) {
            auto const [write, lock] = TimesOf(*file, operation);
            EXPECT_GE(write, MOMENT);
            EXPECT_EQ(lock, NO_TIME);
        }
    }
}

TYPED_TEST(WritingFileTest, LocksMoveTheWriteLockTimerOnly) {
    auto const file = this->Open();
    Operation const locks[] = {
        [](WriteableFile& locked) { locked.WriteLock(false); }, [](WriteableFile& locked) { locked.WriteLock(true); },
        [](WriteableFile& locked) { locked.WriteUnlock(); }};
    for (int const error : {0, EIO}) {
        Recorder recorder;
        LetCallsTakeTime(recorder, error);
        for (Operation const& operation : locks) {
            auto const [write, lock] = TimesOf(*file, operation);
            EXPECT_EQ(write, NO_TIME);
            EXPECT_GE(lock, MOMENT);
        }
    }
}

TYPED_TEST(WritingFileTest, PositionsAndQuestionsMoveNoTimer) {
    auto const file = this->Open();
    Recorder recorder;
    LetCallsTakeTime(recorder);
    Operation const move[] = {[](WriteableFile& moved) { moved.MovePosition(0); }};
    for (Operation const& operation : Join(POSITIONS, QUESTIONS, move)) {
        EXPECT_EQ(TimesOf(*file, operation), std::pair(NO_TIME, NO_TIME));
    }
}

TYPED_TEST(WritingFileTest, TheCommitMovesTheWriteTimerOnlyWithItsCloseAndItsUnlock) {
    Operation const commit = [](WriteableFile& file) { file.CommitAndClose(); };
    for (char const* const functions : {"close", "pthread_mutex_lock"}) {
        auto const file = this->Open();
        Recorder recorder(functions);
        LetCallsTakeTime(recorder);
        auto const [write, lock] = TimesOf(*file, commit);
        EXPECT_GE(write, MOMENT);
        EXPECT_EQ(lock, NO_TIME);
    }
}

TYPED_TEST(WritingFileTest, ACommitThatFailsMovesTheWriteTimer) {
    auto const file = this->Open();
    Recorder recorder("close");
    LetCallsTakeTime(recorder);
    file->CommitAndClose();
    auto const [write, lock] = TimesOf(*file, [](WriteableFile& committed) { committed.CommitAndClose(); });
    EXPECT_GE(write, MOMENT);
    EXPECT_EQ(lock, NO_TIME);
}

TYPED_TEST(WritingFileTest, AfterTheCommitUnlockingMovesNoTimer) {
    auto const file = this->Open();
    file->CommitAndClose();
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(
            TimesOf(*file, [](WriteableFile& committed) { committed.WriteUnlock(); }), std::pair(NO_TIME, NO_TIME));
    }
}

// Flags

TYPED_TEST(WritingFileTest, WriteLockKeepsItsResult) {
    auto const file = this->Open();
    Recorder recorder;
    EXPECT_TRUE(file->WriteLock(false));
    EXPECT_TRUE(file->IsWriteLocked());
    EXPECT_TRUE(file->IsLockTouched());
    recorder.On("fcntl").Fail(ENOTSUP);
    EXPECT_FALSE(file->WriteLock(true));
    EXPECT_FALSE(file->IsWriteLocked());
    EXPECT_TRUE(file->IsLockTouched());
    EXPECT_THAT(recorder.Calls(), ElementsAre("fcntl(F_SETLKW, F_WRLCK 0+0)", "fcntl(F_SETLK, F_WRLCK 0+0)"));
}

TYPED_TEST(WritingFileTest, WriteUnlockDropsTheLock) {
    auto const file = this->Open();
    file->WriteLock(true);
    file->SetPosition(0);
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(this->path_), "WRITE");
    Recorder recorder;
    file->WriteUnlock();
    EXPECT_TRUE(file->IsLockTouched());
    EXPECT_FALSE(file->IsWriteLocked());
    EXPECT_THAT(recorder.Calls(), ElementsAre("fcntl(F_SETLK, F_UNLCK 0+0)"));
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(this->path_), "");
}

TYPED_TEST(WritingFileTest, AfterTheCommitWriteUnlockClearsTheWriteLockedFlagOnly) {
    auto const file = this->Open();
    file->WriteLock(false);
    file->SetPosition(0);
    file->CommitAndClose();
    EXPECT_TRUE(file->IsWriteLocked()) << "the commit leaves the flags";
    Recorder recorder;
    file->WriteUnlock();
    EXPECT_FALSE(file->IsWriteLocked());
    EXPECT_FALSE(file->IsLockTouched());
    EXPECT_EQ(recorder.Names(), "");
}

TYPED_TEST(WritingFileTest, TransfersAndPositionsClearTheLockTouchedFlag) {
    auto const file = this->Open();
    for (Operation const& operation : Join(TRANSFERS, POSITIONS)) {
        file->WriteLock(false);
        ASSERT_TRUE(file->IsLockTouched());
        operation(*file);
        EXPECT_FALSE(file->IsLockTouched());
        EXPECT_TRUE(file->IsWriteLocked());
    }
}

TYPED_TEST(WritingFileTest, ChangesAndQuestionsLeaveTheFlags) {
    auto const file = this->Open();
    for (Operation const& operation : Join(CHANGES, QUESTIONS)) {
        operation(*file);
        EXPECT_FALSE(file->IsLockTouched());
        EXPECT_FALSE(file->IsWriteLocked());
    }
    file->WriteLock(false);
    for (Operation const& operation : Join(CHANGES, QUESTIONS)) {
        operation(*file);
        EXPECT_TRUE(file->IsLockTouched());
        EXPECT_TRUE(file->IsWriteLocked());
    }
}

TYPED_TEST(WritingFileTest, TheCommitLeavesTheFlags) {
    auto const file = this->Open();
    file->WriteLock(false);
    file->CommitAndClose();
    EXPECT_TRUE(file->IsLockTouched());
    EXPECT_TRUE(file->IsWriteLocked());
}

TYPED_TEST(WritingFileTest, OperationsThatFailLeaveTheFlags) {
    auto const file = this->Open();
    file->WriteLock(false);
    Operation const move[] = {[](WriteableFile& moved) { moved.MovePosition(1); }};
    for (Operation const& operation : Join(TRANSFERS, CHANGES, POSITIONS, move)) {
        Recorder recorder;
        recorder.On("*").Fail(EIO);
        EXPECT_THROW(operation(*file), WBase::Message);
        EXPECT_TRUE(file->IsLockTouched());
        EXPECT_TRUE(file->IsWriteLocked());
    }
}

TYPED_TEST(WritingFileTest, ALockThatFailsLeavesTheFlags) {
    auto const file = this->Open();
    auto const fail = [&file] {
        Recorder recorder;
        recorder.On("fcntl").Fail(EIO);
        EXPECT_THROW(file->WriteLock(true), WBase::Message);
    };
    fail();
    EXPECT_FALSE(file->IsLockTouched());
    EXPECT_FALSE(file->IsWriteLocked());
    file->WriteLock(true);
    file->SetPosition(0);
    fail();
    EXPECT_FALSE(file->IsLockTouched());
    EXPECT_TRUE(file->IsWriteLocked());
}

// Locks between processes

TYPED_TEST(WritingFileTest, ALockHeldElsewhereIsAFailureOfWriteLockAndOfTheGuardsThatDoNotWait) {
    Child child([this](Child::Parent& parent) {
        auto const file = this->Open();
        WriteableFile::WriteSmartLock const lock(*file);
        parent.Say("locked");
        parent.WaitFor("end");
    });
    ASSERT_TRUE(child.WaitFor("locked"));
    auto const file = this->Open();
    EXPECT_WRAPPED(file->WriteLock(true), this->lockFailure_, EAGAIN);
    EXPECT_WRAPPED(WriteableFile::WriteSmartLock_NoWait lock(*file), this->lockFailure_, EAGAIN);
    Recorder recorder;
    EXPECT_WRAPPED(WriteableFile::WriteSmartLock_Wait lock(*file, 12000), this->lockFailure_, EAGAIN);
    EXPECT_EQ(recorder.Names(), "fcntl") << "there is no second try";
    child.Say("end");
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_TRUE(WriteableFile::WriteSmartLock_NoWait(*file).IsLocked());
}

TYPED_TEST(WritingFileTest, AWriterWaitsForTheReaderInAnotherProcess) {
    Child child([this](Child::Parent& parent) {
        auto const file = OpenReadableFile(this->widePath_.c_str());
        ReadableFile::ReadSmartLock const lock(*file);
        parent.Say("locked");
        parent.WaitFor("I wait");
    });
    ASSERT_TRUE(child.WaitFor("locked"));
    auto const file = this->Open();
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(this->path_), "READ");
    Recorder recorder;
    recorder.On("fcntl").First(1).Before([&](TestSupport::Call const&) { child.Say("I wait"); });
    WriteableFile::WriteSmartLock const lock(*file);
    EXPECT_TRUE(lock.IsLocked());
    EXPECT_EQ(recorder.Names(), "fcntl");
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(this->path_), "WRITE");
}

TYPED_TEST(WritingFileTest, TheLockOfAnotherProcessFallsHoweverItEnds) {
    struct End {
        std::function<void(std::unique_ptr<typename TypeParam::Impl>&)> action;
        bool endsProcess;
    };
    End const ends[] = {
        {[](auto& file) { file->WriteUnlock(); }, false},
        {[](auto& file) { file->CommitAndClose(); }, false},
        {[](auto& file) { file.reset(); }, false},
        {[](auto&) { ::_exit(0); }, true},
        {[](auto&) { ::raise(SIGKILL); }, true}};
    for (End const& end : ends) {
        Child child([&](Child::Parent& parent) {
            auto file = this->Open();
            file->WriteLock(false);
            parent.Say("locked");
            parent.WaitFor("end the lock");
            end.action(file);
            parent.Say("unlocked");
            parent.WaitFor("end");
        });
        ASSERT_TRUE(child.WaitFor("locked"));
        EXPECT_EQ(TestSupport::RecordLockSeenByOthers(this->path_), "WRITE");
        child.Say("end the lock");
        if (end.endsProcess) {
            child.Wait();
        } else {
            ASSERT_TRUE(child.WaitFor("unlocked"));
        }
        EXPECT_EQ(TestSupport::RecordLockSeenByOthers(this->path_), "");
        child.Say("end");
    }
}

} // namespace
