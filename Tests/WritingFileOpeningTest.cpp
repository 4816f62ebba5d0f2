// Opening a file for writing, alone or with reading.

#include <Tests/Support/Allocations.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Environment.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Recorder.h>
#include <Tests/WritingFiles.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <fcntl.h>
#include <memory>
#include <new>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace WFileSystem;
using ::testing::ElementsAre;
using TestSupport::Recorder;

template <class Kind>
class WritingFileOpeningTest : public WritingFiles::Test<Kind> {
protected:
    /// The module reads the environment when it is made.
    void MakeModuleWithFileMode(char const* mode) {
        TestSupport::Environment const environment("VUSK_FILE_MODE", mode);
        this->initializer_.reset();
        this->initializer_.emplace();
    }

    std::string OpenCall(std::string const& path, char const* mode = "0664") const {
        return "open(\"" + path + "\", " + Kind::ACCESS + "|O_CREAT|O_NOCTTY, " + mode + ")";
    }

    std::wstring const openFailure_ = Kind::CONSTRUCTOR + (L": ::open failed for '" + this->widePath_) + L"'.";
};

TYPED_TEST_SUITE(WritingFileOpeningTest, WritingFiles::Kinds);

TYPED_TEST(WritingFileOpeningTest, AnOpenFileHoldsADescriptorAndNothingElseYet) {
    auto const file = this->Open();
    EXPECT_GT(file->GetDescriptor(), STDERR_FILENO);
    EXPECT_FALSE(file->IsLockTouched());
    EXPECT_FALSE(file->IsWriteLocked());
    EXPECT_EQ(file->GetWriteTimer().GetTotal().count(), 0);
    EXPECT_EQ(file->GetWriteLockTimer().GetTotal().count(), 0);
    EXPECT_EQ(file->GetPosition(), 0);
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(this->path_), "");
}

TYPED_TEST(WritingFileOpeningTest, AnExistingFileGetsItsPermissionsBeforeItIsOpened) {
    Recorder recorder;
    auto const file = TypeParam::Open(this->widePath_.c_str(), KEEP_FILE);
    EXPECT_THAT(
        recorder.Calls(), ElementsAre(
                              "stat(\"" + this->path_ + "\")", "chmod(\"" + this->path_ + "\", 0664)",
                              this->OpenCall(this->path_), "fcntl(F_GETFD)", "fcntl(F_SETFD, FD_CLOEXEC)", "fstat()"));
}

TYPED_TEST(WritingFileOpeningTest, AMissingFileIsMade) {
    std::string const path = this->scratch_ / "new";
    Recorder recorder;
    auto const file = TypeParam::Open(this->scratch_.Wide("new").c_str(), KEEP_FILE);
    EXPECT_THAT(
        recorder.Calls(),
        ElementsAre(
            "stat(\"" + path + "\")", this->OpenCall(path), "fcntl(F_GETFD)", "fcntl(F_SETFD, FD_CLOEXEC)", "fstat()"));
    EXPECT_EQ(TestSupport::ReadFile(path), "");
}

TYPED_TEST(WritingFileOpeningTest, TheLockerIsLookedUpAndTakenAfterTheDescriptorIsSetUp) {
    Recorder recorder(Recorder::THREAD_CALLS);
    auto const file = this->Open();
    EXPECT_EQ(
        recorder.Names(),
        "pthread_mutex_lock pthread_mutex_init pthread_cond_init pthread_mutex_unlock " // the registry
        "pthread_mutex_lock pthread_mutex_unlock");                                     // the semaphore
}

TYPED_TEST(WritingFileOpeningTest, ThePathIsKeptAsItWasGiven) {
    std::wstring path = this->scratch_.Wide() + L"/./data";
    std::wstring const copy = path;
    auto const file = TypeParam::Open(path.c_str(), KEEP_FILE);
    path.assign(path.size(), L'x');
    EXPECT_EQ(file->GetPath(), copy);
}

TYPED_TEST(WritingFileOpeningTest, AnExistingFileKeepsItsContent) {
    this->Open();
    EXPECT_EQ(TestSupport::ReadFile(this->path_), WritingFiles::CONTENT);
}

// Permissions

TYPED_TEST(WritingFileOpeningTest, AnExistingFileGetsTheModulesPermissionsWhateverTheMask) {
    ASSERT_EQ(::chmod(this->path_.c_str(), 0600), 0);
    mode_t const before = ::umask(077);
    this->Open();
    ::umask(before);
    EXPECT_EQ(TestSupport::ModeOf(this->path_), 0664U);
}

TYPED_TEST(WritingFileOpeningTest, ANewFileGetsTheModulesPermissionsLessTheMask) {
    mode_t const before = ::umask(027);
    TypeParam::Open(this->scratch_.Wide("new").c_str(), KEEP_FILE);
    ::umask(before);
    EXPECT_EQ(TestSupport::ModeOf(this->scratch_ / "new"), 0640U);
}

TYPED_TEST(WritingFileOpeningTest, ThePermissionsAreThoseOfTheModule) {
    this->MakeModuleWithFileMode("700");
    Recorder recorder;
    this->Open();
    EXPECT_EQ(recorder.Find("chmod").mode, 0760U);
    EXPECT_EQ(recorder.Find("open").mode, 0760U);
}

TYPED_TEST(WritingFileOpeningTest, ThePermissionsAreSetThroughALink) {
    ASSERT_EQ(::chmod(this->path_.c_str(), 0600), 0);
    ASSERT_EQ(::symlink("data", (this->scratch_ / "link").c_str()), 0);
    TypeParam::Open(this->scratch_.Wide("link").c_str(), KEEP_FILE);
    EXPECT_EQ(TestSupport::ModeOf(this->path_), 0664U);
}

TYPED_TEST(WritingFileOpeningTest, ThePermissionsOfOtherThanRegularFilesStay) {
    Recorder recorder;
    recorder.On("chmod").Optional().Return(0);
    TypeParam::Open(L"/dev/null", KEEP_FILE);
    EXPECT_EQ(recorder.Names(), "stat open fcntl fcntl fstat close");
}

TYPED_TEST(WritingFileOpeningTest, AnInterruptedQuestionForTheKindIsNotRepeated) {
    Recorder recorder;
    recorder.On("stat").Fail(EINTR);
    auto const file = this->Open();
    EXPECT_EQ(recorder.Names(), "stat open fcntl fcntl fstat");
}

TYPED_TEST(WritingFileOpeningTest, PermissionsThatCantBeSetAreOfNoConsequence) {
    for (int const error : {EPERM, EINTR}) {
        Recorder recorder;
        recorder.On("chmod").Fail(error);
        auto const file = this->Open();
        EXPECT_EQ(recorder.Names(), "stat chmod open fcntl fcntl fstat");
        EXPECT_EQ(file->GetSize(), 10);
    }
}

TYPED_TEST(WritingFileOpeningTest, ThePermissionsAreSetWhileAnotherProcessHoldsTheLock) {
    ASSERT_EQ(::chmod(this->path_.c_str(), 0600), 0);
    TestSupport::Child child([this](TestSupport::Child::Parent& parent) {
        auto const file = this->Open();
        file->WriteLock(false);
        ::chmod(this->path_.c_str(), 0600);
        parent.Say("locked");
        parent.WaitFor("end");
    });
    ASSERT_TRUE(child.WaitFor("locked"));
    this->Open();
    EXPECT_EQ(TestSupport::ModeOf(this->path_), 0664U);
    child.Say("end");
}

TYPED_TEST(WritingFileOpeningTest, ThePermissionsAreSetWhileAnotherThreadHoldsTheFile) {
    auto first = this->Open();
    ASSERT_EQ(::chmod(this->path_.c_str(), 0600), 0);
    Recorder recorder("pthread_cond_wait", Recorder::Threads::ALL);
    std::thread second([this] { this->Open(); });
    EXPECT_TRUE(recorder.WaitForCall("pthread_cond_wait"));
    EXPECT_EQ(TestSupport::ModeOf(this->path_), 0664U);
    first.reset();
    second.join();
}

// Failures

TYPED_TEST(WritingFileOpeningTest, AnInterruptedOpenIsRepeatedWithoutLimit) {
    Recorder recorder;
    recorder.On("open").First(25).Fail(EINTR);
    EXPECT_EQ(this->Open()->GetSize(), 10);
    EXPECT_EQ(recorder.Count("open"), 26U);
}

TYPED_TEST(WritingFileOpeningTest, AFailingOpenIsReportedAndThePermissionsStaySet) {
    TestSupport::DescriptorCheck const check;
    for (int const error : {EACCES, EROFS, EMFILE, EIO}) {
        ASSERT_EQ(::chmod(this->path_.c_str(), 0600), 0);
        Recorder recorder;
        recorder.On("open").Fail(error);
        EXPECT_REPORT(TypeParam::Open(this->widePath_.c_str(), DELETE_FILE), this->openFailure_, error);
        EXPECT_EQ(recorder.Names(), "stat chmod open");
        EXPECT_EQ(TestSupport::ModeOf(this->path_), 0664U);
        EXPECT_EQ(TestSupport::ReadFile(this->path_), WritingFiles::CONTENT) << "no policy applies";
    }
}

TYPED_TEST(WritingFileOpeningTest, ARelativePathStandsInTheReportAsItIs) {
    std::wstring const text = TypeParam::CONSTRUCTOR + std::wstring(L": ::open failed for './no such/file'.");
    EXPECT_REPORT(TypeParam::Open(L"./no such/file", KEEP_FILE), text, ENOENT);
}

TYPED_TEST(WritingFileOpeningTest, ADirectoryCantBeOpened) {
    std::wstring const path = this->scratch_.Wide();
    EXPECT_REPORT(
        TypeParam::Open(path.c_str(), KEEP_FILE), TypeParam::CONSTRUCTOR + (L": ::open failed for '" + path) + L"'.",
        EISDIR);
}

TYPED_TEST(WritingFileOpeningTest, UnreadableDescriptorFlagsAreReportedAndTheDescriptorStaysOpen) {
    TestSupport::DescriptorCheck const check(1); // intended: nobody closes it
    {
        Recorder recorder;
        recorder.On("fcntl").Command(F_GETFD).Fail(EIO);
        EXPECT_REPORT(TypeParam::Open(this->widePath_.c_str(), DELETE_FILE), L"::fcntl() failed", EIO);
        EXPECT_EQ(recorder.Names(), "stat chmod open fcntl");
    }
    EXPECT_EQ(this->Open()->GetSize(), 10) << "nothing was locked, no policy applied";
}

TYPED_TEST(WritingFileOpeningTest, CloseOnExecIsAddedToTheFlags) {
    Recorder recorder;
    recorder.On("fcntl").Command(F_GETFD).Return(8);
    auto const file = this->Open();
    EXPECT_THAT(recorder.Calls(), ::testing::Contains("fcntl(F_SETFD, FD_CLOEXEC|0x8)"));
    EXPECT_TRUE(TestSupport::IsCloseOnExec(file->GetDescriptor()));
}

TYPED_TEST(WritingFileOpeningTest, WhenCloseOnExecCantBeSetTheFileIsOpenAllTheSame) {
    Recorder recorder;
    recorder.On("fcntl").Command(F_SETFD).Fail(EIO);
    EXPECT_EQ(this->Open()->GetSize(), 10);
    EXPECT_EQ(recorder.Count("fcntl"), 2U);
}

TYPED_TEST(WritingFileOpeningTest, TheInterruptionOfACallHasNoOtherEffectThanItsRepetition) {
    std::string const names[] = {
        "stat chmod open open fcntl fcntl fstat", "stat chmod open fcntl fcntl fcntl fstat",
        "stat chmod open fcntl fcntl fcntl fstat", "stat chmod open fcntl fcntl fstat fstat"};
    for (unsigned int n = 3; n <= 6; ++n) {
        Recorder recorder;
        recorder.On("*").Nth(n).Fail(EINTR);
        auto const file = this->Open();
        EXPECT_EQ(recorder.Names(), names[n - 3]);
        EXPECT_TRUE(TestSupport::IsCloseOnExec(file->GetDescriptor()));
    }
}

TYPED_TEST(WritingFileOpeningTest, AnUnknownIdentityIsReportedAndTheDescriptorClosed) {
    TestSupport::DescriptorCheck const check;
    Recorder recorder;
    recorder.On("fstat").Fail(EIO);
    EXPECT_REPORT(
        TypeParam::Open(this->widePath_.c_str(), DELETE_FILE),
        L"WFileSystem::InprocessFileLocker::ID::ID: ::fstat failed for '" + this->widePath_ + L"'.", EIO);
    EXPECT_EQ(recorder.Names(), "stat chmod open fcntl fcntl fstat close");
    EXPECT_EQ(TestSupport::ReadFile(this->path_), WritingFiles::CONTENT) << "no policy applies";
}

TYPED_TEST(WritingFileOpeningTest, AnOpeningThatRunsOutOfMemoryLeavesNothing) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::DescriptorCheck const check;
    bool hasFailed = true;
    unsigned long n = 0;
    while (hasFailed) {
        TestSupport::Allocations allocations;
        allocations.FailNth(++n);
        try {
            TypeParam::Open(this->widePath_.c_str(), KEEP_FILE);
        } catch (std::bad_alloc const&) {
        }
        hasFailed = allocations.HasFailed();
    }
    EXPECT_EQ(TestSupport::ReadFile(this->path_), WritingFiles::CONTENT);
}

TYPED_TEST(WritingFileOpeningTest, APathThatCantBeConvertedTouchesNothing) {
    Recorder recorder(Recorder::EVERY_CALL);
    wchar_t const path[] = {L'a', static_cast<wchar_t>(0xD800), 0};
    EXPECT_THROW(TypeParam::Open(path, DELETE_FILE), WBase::StringConversionException);
    EXPECT_EQ(recorder.Names(), "");
}

TYPED_TEST(WritingFileOpeningTest, AnyNameLeadsToItsFileAndStandsInItsReports) {
    for (std::string const name : {"\xC3\xA4", "\xF0\x9F\x98\x80", "%1", "%1%2%%", "a\\b", "a\nb"}) {
        std::wstring const path = this->scratch_.Wide(name);
        auto const file = TypeParam::Open(path.c_str(), KEEP_FILE);
        file->Write(name.c_str(), 0);
        file->CommitAndClose();
        EXPECT_EQ(TestSupport::ReadFile(this->scratch_ / name), name);
        EXPECT_WRAPPED(file->Flush(), L"Failed to flush file '" + path + L"'.", EBADF);
    }
}

TYPED_TEST(WritingFileOpeningTest, WithoutAModuleOpeningIsReportedAndTouchesNothing) {
    this->initializer_.reset();
    Recorder recorder(Recorder::EVERY_CALL);
    TestSupport::ExpectedMessage const expected = {
        &typeid(WBase::ExceptionImpl<WBase::Message>), WBase::MESSAGE_DOMAIN_UNKNOWN, -1,
        TypeParam::CONSTRUCTOR + std::wstring(L": Can't open '/a'.\nNo WFileSystem::Initializer lives.")};
    WFILESYSTEM_EXPECT_MESSAGE(TypeParam::Open(L"/a", KEEP_FILE), expected);
    EXPECT_EQ(recorder.Names(), "");
}

// The in-process lock

TYPED_TEST(WritingFileOpeningTest, ASecondOpeningWaitsForTheEndOfTheFirst) {
    auto first = this->Open();
    Recorder recorder("pthread_cond_wait", Recorder::Threads::ALL);
    std::atomic<bool> isOpen{false};
    std::thread second([&] {
        auto const file = TypeParam::Open(this->widePath_.c_str(), KEEP_FILE);
        isOpen = true;
    });
    EXPECT_TRUE(recorder.WaitForCall("pthread_cond_wait"));
    EXPECT_FALSE(isOpen);
    first.reset();
    second.join();
    EXPECT_TRUE(isOpen);
}

TYPED_TEST(WritingFileOpeningTest, AReaderWaitsForAWriterAsWell) {
    auto const file = this->Open();
    TestSupport::DescriptorCheck const check(1);
    Recorder recorder("pthread_cond_timedwait");
    recorder.On("pthread_cond_timedwait").Return(ETIMEDOUT);
    EXPECT_THROW(OpenReadableFile_InProcessLockNoWait(this->widePath_.c_str()), WBase::Message);
}

TYPED_TEST(WritingFileOpeningTest, ALockThatCantBeTakenIsReportedAndTheDescriptorStaysOpen) {
    auto const holder = this->Open();
    TestSupport::DescriptorCheck const check(1); // intended, as for the readable file
    Recorder recorder("pthread_cond_wait");
    recorder.On("pthread_cond_wait").Fail(EPERM);
    EXPECT_REPORT(TypeParam::Open(this->widePath_.c_str(), DELETE_FILE), L"::pthread_cond_wait failed", EPERM);
}

TYPED_TEST(WritingFileOpeningTest, AWaitThatFailsLetsTheNextOpeningIn) {
    auto const holder = this->Open();
    TestSupport::DescriptorCheck const check(1);
    Recorder recorder("pthread_cond_wait");
    recorder.On("pthread_cond_wait").Fail(EPERM);
    EXPECT_THROW(this->Open(), WBase::Message);
    EXPECT_NO_THROW(this->Open()); // intended, although the first lives
    EXPECT_EQ(recorder.Count("pthread_cond_wait"), 1U);
}

} // namespace
