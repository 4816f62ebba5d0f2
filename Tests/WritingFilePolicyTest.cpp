// How a file that was open for writing ends: committed, or by its policy.

#include <Tests/Support/Allocations.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Recorder.h>
#include <Tests/WritingFiles.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <memory>
#include <new>
#include <string>
#include <thread>
#include <unistd.h>

namespace {

using namespace WFileSystem;
using ::testing::ElementsAre;
using TestSupport::Child;
using TestSupport::Recorder;

IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED const POLICIES[] = {TRUNCATE_FILE, DELETE_FILE, KEEP_FILE};

template <class Kind>
class WritingFilePolicyTest : public WritingFiles::Test<Kind> {
protected:
    /// Opens the file and writes its first bytes.
    std::unique_ptr<typename Kind::Impl> Write(IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy) const {
        auto file = this->Open(policy);
        file->Write("abc", 3);
        return file;
    }

    /// The file that is open gets a second name, and its first name another file.
    void Replace() const {
        ASSERT_EQ(::rename(this->path_.c_str(), (this->scratch_ / "old").c_str()), 0);
        TestSupport::WriteFile(this->path_, "new");
    }

    std::wstring const closeFailure_ = L"Failed to close handle of file '" + this->widePath_ + L"'.";
};

TYPED_TEST_SUITE(WritingFilePolicyTest, WritingFiles::Kinds);

// Without a commit

TYPED_TEST(WritingFilePolicyTest, TruncateEmptiesTheFileAndClosesIt) {
    auto file = this->Write(TRUNCATE_FILE);
    Recorder recorder;
    file.reset();
    EXPECT_THAT(recorder.Calls(), ElementsAre("lseek(0, SEEK_SET)", "lseek(0, SEEK_CUR)", "ftruncate(0)", "close()"));
    EXPECT_EQ(TestSupport::ReadFile(this->path_), "");
}

TYPED_TEST(WritingFilePolicyTest, DeleteEmptiesTheFileClosesItAndDeletesIt) {
    auto file = this->Write(DELETE_FILE);
    ASSERT_EQ(::link(this->path_.c_str(), (this->scratch_ / "link").c_str()), 0);
    Recorder recorder;
    file.reset();
    EXPECT_THAT(
        recorder.Calls(),
        ElementsAre(
            "lseek(0, SEEK_SET)", "lseek(0, SEEK_CUR)", "ftruncate(0)", "close()", "unlink(\"" + this->path_ + "\")"));
    EXPECT_THAT(TestSupport::List(this->scratch_.Path()), ElementsAre("link"));
    EXPECT_EQ(TestSupport::ReadFile(this->scratch_ / "link"), "");
}

TYPED_TEST(WritingFilePolicyTest, KeepClosesTheFile) {
    auto file = this->Write(KEEP_FILE);
    int const fd = file->GetDescriptor();
    Recorder recorder;
    file.reset();
    EXPECT_THAT(recorder.Calls(Recorder::DESCRIPTORS), ElementsAre("close(" + std::to_string(fd) + ")"));
    EXPECT_EQ(TestSupport::ReadFile(this->path_), "abc3456789");
}

TYPED_TEST(WritingFilePolicyTest, AnyOtherPolicyLeavesTheDescriptorOpen) {
    for (int const number : {-1, 3, 0x12345678}) {
        TestSupport::DescriptorCheck const check(1); // intended
        auto file = this->Write(static_cast<IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED>(number));
        int const fd = file->GetDescriptor();
        Recorder recorder;
        file.reset();
        EXPECT_EQ(recorder.Names(), "");
        EXPECT_TRUE(TestSupport::IsOpen(fd));
        EXPECT_EQ(TestSupport::ReadFile(this->path_), "abc3456789");
    }
}

TYPED_TEST(WritingFilePolicyTest, ThePolicyAppliesAlsoWhenNothingWasWritten) {
    this->Open(TRUNCATE_FILE);
    EXPECT_EQ(TestSupport::ReadFile(this->path_), "") << "what was there before is gone";
    this->Open(DELETE_FILE);
    EXPECT_FALSE(TestSupport::Exists(this->path_));
}

TYPED_TEST(WritingFilePolicyTest, ThePolicyAppliesAfterFailedOperations) {
    auto file = this->Write(TRUNCATE_FILE);
    Recorder recorder;
    recorder.On("*").Fail(EIO);
    EXPECT_THROW(file->Write("x", 1), WBase::Message);
    EXPECT_THROW(file->Flush(), WBase::Message);
    EXPECT_THROW(file->Truncate(), WBase::Message);
    EXPECT_THROW(file->WriteLock(false), WBase::Message);
    recorder.Stop();
    EXPECT_EQ(TestSupport::ReadFile(this->path_), "abc3456789");
    file.reset();
    EXPECT_EQ(TestSupport::ReadFile(this->path_), "");
}

TYPED_TEST(WritingFilePolicyTest, NoPolicyAppliesInAProcessThatIsKilled) {
    for (auto const policy : POLICIES) {
        Child child([&](Child::Parent&) {
            auto const file = this->Write(policy);
            ::raise(SIGKILL);
        });
        EXPECT_EQ(child.Wait(), -SIGKILL);
        EXPECT_EQ(TestSupport::ReadFile(this->path_), "abc3456789");
    }
}

TYPED_TEST(WritingFilePolicyTest, ThePolicyAppliesInAForkedChildThatDestroysItsCopy) {
    auto file = this->Write(TRUNCATE_FILE);
    Child child([&](Child::Parent&) { file.reset(); });
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(TestSupport::ReadFile(this->path_), "");
}

TYPED_TEST(WritingFilePolicyTest, ThePolicyAppliesBeforeTheLockIsGivenUp) {
    for (auto const policy : POLICIES) {
        auto file = this->Write(policy);
        Recorder recorder("close unlink pthread_mutex_lock pthread_mutex_destroy");
        file.reset();
        std::string const last = policy == DELETE_FILE ? "unlink" : "close";
        EXPECT_THAT(
            recorder.Names(),
            ::testing::EndsWith(last + " pthread_mutex_lock pthread_mutex_lock pthread_mutex_destroy"));
    }
}

TYPED_TEST(WritingFilePolicyTest, TheLockIsGivenUpByEveryPolicy) {
    for (int const policy : {0, 1, 2, 3}) {
        TestSupport::DescriptorCheck const check(policy == 3 ? 1 : 0);
        this->Write(static_cast<IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED>(policy));
        this->Write(KEEP_FILE);
    }
}

TYPED_TEST(WritingFilePolicyTest, TheRecordLockGoesWithTheDescriptor) {
    auto file = this->Write(KEEP_FILE);
    file->WriteLock(false);
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(this->path_), "WRITE");
    file.reset();
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(this->path_), "");
}

TYPED_TEST(WritingFilePolicyTest, AFailedPositioningSkipsTheTruncationOnly) {
    auto file = this->Write(DELETE_FILE);
    Recorder recorder("lseek ftruncate close unlink");
    recorder.On("lseek").Fail(EIO);
    file.reset();
    EXPECT_EQ(recorder.Names(), "lseek close unlink");
}

TYPED_TEST(WritingFilePolicyTest, AFailedTruncationIsIgnored) {
    auto file = this->Write(TRUNCATE_FILE);
    Recorder recorder("lseek ftruncate close");
    recorder.On("ftruncate").Fail(EIO);
    file.reset();
    EXPECT_EQ(recorder.Names(), "lseek lseek ftruncate close");
    EXPECT_EQ(TestSupport::ReadFile(this->path_), "abc3456789");
}

TYPED_TEST(WritingFilePolicyTest, AFailedCloseIsIgnored) {
    for (auto const policy : POLICIES) {
        auto file = this->Write(policy);
        Recorder recorder;
        recorder.On("close").Fail(EIO);
        file.reset();
        EXPECT_EQ(recorder.Count("close"), 1U);
        EXPECT_EQ(recorder.Count("unlink"), policy == DELETE_FILE ? 1U : 0U);
    }
}

TYPED_TEST(WritingFilePolicyTest, AnInterruptedCloseIsTriedTenTimesAtMost) {
    TestSupport::DescriptorCheck const check(1);
    auto file = this->Write(KEEP_FILE);
    Recorder recorder;
    recorder.On("close").FailWithoutCalling(EINTR);
    file.reset();
    EXPECT_EQ(recorder.Count("close"), 10U);
}

TYPED_TEST(WritingFilePolicyTest, AFailedDeletionIsIgnoredAndNotRepeated) {
    for (int const error : {EACCES, EINTR}) {
        auto file = this->Write(DELETE_FILE);
        Recorder recorder;
        recorder.On("unlink").Fail(error);
        file.reset();
        EXPECT_EQ(recorder.Count("unlink"), 1U);
        EXPECT_EQ(TestSupport::ReadFile(this->path_), "");
    }
}

// The path leads elsewhere by then

TYPED_TEST(WritingFilePolicyTest, AFileDeletedMeanwhileDoesNotComeBack) {
    for (auto const policy : POLICIES) {
        TestSupport::DescriptorCheck const check;
        auto file = this->Write(policy);
        ASSERT_EQ(::unlink(this->path_.c_str()), 0);
        file.reset();
        EXPECT_FALSE(TestSupport::Exists(this->path_));
    }
}

TYPED_TEST(WritingFilePolicyTest, TruncateEmptiesTheFileThatIsOpenNotTheOneThatTookItsName) {
    auto file = this->Write(TRUNCATE_FILE);
    this->Replace();
    file.reset();
    EXPECT_EQ(TestSupport::ReadFile(this->scratch_ / "old"), "");
    EXPECT_EQ(TestSupport::ReadFile(this->path_), "new");
}

TYPED_TEST(WritingFilePolicyTest, KeepKeepsTheFileThatIsOpenAndTheOneThatTookItsName) {
    auto file = this->Write(KEEP_FILE);
    this->Replace();
    file.reset();
    EXPECT_EQ(TestSupport::ReadFile(this->scratch_ / "old"), "abc3456789");
    EXPECT_EQ(TestSupport::ReadFile(this->path_), "new");
}

TYPED_TEST(WritingFilePolicyTest, DeleteDeletesWhateverHasTheNameByThen) {
    auto file = this->Write(DELETE_FILE);
    this->Replace();
    file.reset();
    EXPECT_THAT(TestSupport::List(this->scratch_.Path()), ElementsAre("old")) << "the innocent file is gone";
    EXPECT_EQ(TestSupport::ReadFile(this->scratch_ / "old"), "");
}

TYPED_TEST(WritingFilePolicyTest, DeleteEmptiesWhatALinkLeadsToAndDeletesTheLink) {
    ASSERT_EQ(::symlink("data", (this->scratch_ / "link").c_str()), 0);
    TypeParam::Open(this->scratch_.Wide("link").c_str(), DELETE_FILE);
    EXPECT_THAT(TestSupport::List(this->scratch_.Path()), ElementsAre("data"));
    EXPECT_EQ(TestSupport::ReadFile(this->path_), "");
}

TYPED_TEST(WritingFilePolicyTest, DeleteSeeksARelativePathInTheWorkingDirectoryOfTheMoment) {
    TestSupport::MakeDirectory(this->scratch_ / "other");
    TestSupport::WriteFile(this->scratch_ / "other/data", "");
    TestSupport::WorkingDirectory const directory(this->scratch_.Path());
    auto file = TypeParam::Open(L"data", DELETE_FILE);
    TestSupport::WorkingDirectory const other(this->scratch_ / "other");
    file.reset();
    EXPECT_TRUE(TestSupport::Exists(this->path_));
    EXPECT_FALSE(TestSupport::Exists(this->scratch_ / "other/data"));
}

TYPED_TEST(WritingFilePolicyTest, AWriterThatWaitedBehindTheDeletePolicyCommitsIntoAFileWithoutAName) {
    auto first = this->Write(DELETE_FILE);
    Recorder recorder("pthread_cond_wait", Recorder::Threads::ALL);
    std::thread second([this] {
        auto const file = TypeParam::Open(this->widePath_.c_str(), DELETE_FILE);
        file->Write("lost", 0);
        EXPECT_EQ(file->GetSize(), 4);
        EXPECT_FALSE(file->IsAccessibleViaPath(nullptr));
        EXPECT_NO_THROW(file->CommitAndClose());
    });
    EXPECT_TRUE(recorder.WaitForCall("pthread_cond_wait"));
    first.reset();
    second.join();
    EXPECT_FALSE(TestSupport::Exists(this->path_));
}

// With a commit

TYPED_TEST(WritingFilePolicyTest, CommitAndCloseKeepsWhatWasWritten) {
    TestSupport::WriteFile(this->path_, std::string(100, 'x'));
    for (auto const policy : POLICIES) {
        auto const file = this->Open(policy);
        file->Write("0123456789", 10);
        file->CommitAndClose();
        EXPECT_EQ(TestSupport::ReadFile(this->path_), "0123456789" + std::string(90, 'x'));
    }
    EXPECT_EQ(TestSupport::ReadFile(this->path_), "0123456789" + std::string(90, 'x'));
}

TYPED_TEST(WritingFilePolicyTest, CommitAndCloseClosesAndThenGivesTheLockUp) {
    auto const file = this->Write(DELETE_FILE);
    file->WriteLock(false);
    int const fd = file->GetDescriptor();
    Recorder recorder(Recorder::EVERY_CALL);
    file->CommitAndClose();
    EXPECT_EQ(
        recorder.Names(),
        "close "
        "pthread_mutex_lock pthread_mutex_unlock " // the semaphore, then the registry
        "pthread_mutex_lock pthread_cond_destroy pthread_mutex_destroy pthread_mutex_unlock");
    EXPECT_EQ(file->GetDescriptor(), -1);
    EXPECT_FALSE(TestSupport::IsOpen(fd));
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(this->path_), "");
}

TYPED_TEST(WritingFilePolicyTest, AfterTheCommitTheNextOpeningIsLetIn) {
    auto const file = this->Write(DELETE_FILE);
    file->CommitAndClose();
    EXPECT_EQ(OpenReadableFile_InProcessLockNoWait(this->widePath_.c_str())->GetSize(), 10);
}

TYPED_TEST(WritingFilePolicyTest, AfterTheCommitTheEndDoesNothing) {
    for (int const policy : {0, 1, 2, 3}) {
        auto file = this->Write(static_cast<IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED>(policy));
        file->CommitAndClose();
        Recorder recorder(Recorder::EVERY_CALL);
        file.reset();
        EXPECT_EQ(recorder.Names(), "");
    }
}

TYPED_TEST(WritingFilePolicyTest, ACloseThatFailsInTheCommitIsReported) {
    auto const file = this->Write(DELETE_FILE);
    int const fd = file->GetDescriptor();
    Recorder recorder;
    recorder.On("close").Fail(EIO);
    EXPECT_WRAPPED(file->CommitAndClose(), this->closeFailure_, EIO);
    EXPECT_EQ(recorder.Names(), "close");
    EXPECT_EQ(file->GetDescriptor(), -1);
    EXPECT_FALSE(TestSupport::IsOpen(fd));
}

TYPED_TEST(WritingFilePolicyTest, AfterACommitThatFailedNoPolicyApplies) {
    for (auto const policy : POLICIES) {
        auto file = this->Write(policy);
        Recorder recorder;
        recorder.On("close").Fail(EIO);
        EXPECT_THROW(file->CommitAndClose(), WBase::Message);
        recorder.Clear();
        file.reset();
        EXPECT_EQ(recorder.Names(), "");
        EXPECT_EQ(TestSupport::ReadFile(this->path_), "abc3456789");
    }
}

TYPED_TEST(WritingFilePolicyTest, AfterACommitThatFailedTheLockStaysUntilTheEnd) {
    TestSupport::DescriptorCheck const check(1);
    auto file = this->Write(KEEP_FILE);
    Recorder recorder(Recorder::EVERY_CALL);
    recorder.On("close").Nth(1).Fail(EIO);
    EXPECT_THROW(file->CommitAndClose(), WBase::Message);
    recorder.Clear();
    file.reset();
    EXPECT_THAT(recorder.Names(), ::testing::StartsWith("pthread_mutex_lock pthread_mutex_unlock"));

    file = this->Write(KEEP_FILE);
    recorder.On("close").Nth(1).Fail(EIO);
    EXPECT_THROW(file->CommitAndClose(), WBase::Message);
    recorder.On("pthread_cond_timedwait").Return(ETIMEDOUT);
    EXPECT_THROW(OpenReadableFile_InProcessLockNoWait(this->widePath_.c_str()), WBase::Message);
}

TYPED_TEST(WritingFilePolicyTest, AnInterruptedCloseInTheCommitIsTriedTenTimesAtMost) {
    TestSupport::DescriptorCheck const check(1);
    auto const file = this->Write(KEEP_FILE);
    Recorder recorder;
    recorder.On("close").FailWithoutCalling(EINTR);
    EXPECT_WRAPPED(file->CommitAndClose(), this->closeFailure_, EINTR);
    EXPECT_EQ(recorder.Count("close"), 10U);
}

TYPED_TEST(WritingFilePolicyTest, AnInterruptedCloseInTheCommitIsRepeated) {
    auto const file = this->Write(KEEP_FILE);
    Recorder recorder;
    recorder.On("close").First(9).FailWithoutCalling(EINTR);
    EXPECT_NO_THROW(file->CommitAndClose());
}

TYPED_TEST(WritingFilePolicyTest, ASecondCommitReportsThatNothingIsOpen) {
    auto const file = this->Write(DELETE_FILE);
    file->CommitAndClose();
    Recorder recorder;
    EXPECT_WRAPPED(file->CommitAndClose(), this->closeFailure_, EBADF);
    EXPECT_THAT(recorder.Calls(Recorder::DESCRIPTORS), ElementsAre("close(-1)"));
    EXPECT_EQ(TestSupport::ReadFile(this->path_), "abc3456789");
}

// An exception while a file is ended ends the process

struct NoMessage {};

template <class Kind>
class WritingFilePolicyDeathTest : public WritingFilePolicyTest<Kind> {};

TYPED_TEST_SUITE(WritingFilePolicyDeathTest, WritingFiles::Kinds);

TYPED_TEST(WritingFilePolicyDeathTest, AnExceptionOfTheClose) {
    auto const end = [this](IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy) {
        auto file = this->Write(policy);
        Recorder recorder;
        recorder.On("close").Instead([](TestSupport::Call const&) -> long { throw NoMessage(); });
        try {
            file.reset();
        } catch (NoMessage const&) {
            std::_Exit(1);
        }
    };
    for (auto const policy : POLICIES) {
        EXPECT_EXIT(end(policy), ::testing::KilledBySignal(SIGABRT), "");
    }
}

TYPED_TEST(WritingFilePolicyDeathTest, AnExceptionOfTheDeletion) {
    auto const end = [this] {
        auto file = this->Write(DELETE_FILE);
        Recorder recorder;
        recorder.On("unlink").Instead([](TestSupport::Call const&) -> long { throw NoMessage(); });
        try {
            file.reset();
        } catch (NoMessage const&) {
            std::_Exit(1);
        }
    };
    EXPECT_EXIT(end(), ::testing::KilledBySignal(SIGABRT), "");
}

TYPED_TEST(WritingFilePolicyDeathTest, AReportOfTheTruncationThatRunsOutOfMemory) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    auto const end = [this] {
        auto file = this->Write(TRUNCATE_FILE);
        Recorder recorder;
        recorder.On("ftruncate").Fail(EIO);
        TestSupport::Allocations allocations;
        allocations.FailFrom(1);
        try {
            file.reset();
        } catch (std::bad_alloc const&) {
            std::_Exit(1);
        }
    };
    EXPECT_EXIT(end(), ::testing::KilledBySignal(SIGABRT), "");
}

} // namespace
