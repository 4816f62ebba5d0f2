// Opening, using and destroying one readable file. How several of them get along: ReadableFileSharingTest.cpp.

#include <FileSystem/Initializer.h>
#include <FileSystem/PrivateSource/ReadableFileImpl.h>
#include <FileSystem/ReadableFile.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Program.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Text.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <functional>
#include <limits.h>
#include <memory>
#include <new>
#include <string>
#include <unistd.h>
#include <utility>

namespace {

using namespace WFileSystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr wchar_t CONSTRUCTOR[] = L"WFileSystem::ReadableFileImpl::ReadableFileImpl";

/// A readable file whose descriptor a test can take away.
class GroundableFile : public ReadableFileImpl {
public:
    using ReadableFileImpl::ReadableFileImpl;

    int Ground() { return std::exchange(descriptor_, -1); }
};

class ReadableFileTest : public ::testing::Test {
protected:
    ReadableFileTest() { TestSupport::WriteFile(path_, "0123456789\n"); }

    /// Opens the file, and does not forget what it is.
    std::unique_ptr<ReadableFileImpl> Open() const {
        return std::make_unique<ReadableFileImpl>(widePath_.c_str(), false);
    }

    Initializer const initializer_;
    TestSupport::ScratchDirectory const scratch_;
    std::string const path_ = scratch_ / "data";
    std::wstring const widePath_ = scratch_.Wide("data");
};

// Opening

TEST_F(ReadableFileTest, AnOpenFileHoldsADescriptorAndNothingElseYet) {
    auto const file = Open();
    EXPECT_GT(file->GetDescriptor(), STDERR_FILENO);
    EXPECT_FALSE(file->IsLockTouched());
    EXPECT_FALSE(file->IsReadLocked());
    EXPECT_EQ(file->GetReadTimer().GetTotal().count(), 0);
    EXPECT_EQ(file->GetReadLockTimer().GetTotal().count(), 0);
    EXPECT_EQ(file->GetPosition(), 0);
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "");
}

TEST_F(ReadableFileTest, OneLockedReadMakesTheseCallsAndNoOthers) {
    TestSupport::Recorder recorder;
    {
        auto const file = OpenReadableFile(widePath_.c_str());
        ReadableFile::ReadSmartLock const lock(*file);
        char bytes[10];
        file->Read(bytes, sizeof bytes);
    }
    EXPECT_THAT(
        recorder.Calls(),
        ElementsAre(
            "open(\"" + path_ + "\", O_RDONLY|O_NOCTTY)", "fcntl(F_GETFD)", "fcntl(F_SETFD, FD_CLOEXEC)", "fstat()",
            "fcntl(F_SETLKW, F_RDLCK 0+0)", "read(10)", "fcntl(F_SETLK, F_UNLCK 0+0)", "close()"));
}

TEST_F(ReadableFileTest, TheLockerIsLookedUpAndTakenAfterTheDescriptorIsSetUp) {
    TestSupport::Recorder recorder(TestSupport::Recorder::EVERY_CALL);
    auto const file = OpenReadableFile(widePath_.c_str());
    EXPECT_EQ(
        recorder.Names(),
        "open fcntl fcntl fstat "
        "pthread_mutex_lock pthread_mutex_init pthread_cond_init pthread_mutex_unlock " // the registry
        "pthread_mutex_lock pthread_mutex_unlock");                                     // the semaphore
}

TEST_F(ReadableFileTest, BothFactoriesOpenTheFile) {
    auto const file = OpenReadableFile(widePath_.c_str());
    TestSupport::WriteFile(scratch_ / "other", "");
    auto const other = OpenReadableFile_InProcessLockNoWait(scratch_.Wide("other").c_str());
    EXPECT_EQ(file->GetSize(), 11);
    EXPECT_EQ(other->GetSize(), 0);
}

TEST_F(ReadableFileTest, ThePathIsKeptAsItWasGiven) {
    std::wstring path = scratch_.Wide() + L"/./data";
    std::wstring const copy = path;
    auto const file = OpenReadableFile(path.c_str());
    path.assign(path.size(), L'x');
    EXPECT_EQ(file->GetPath(), copy);
    EXPECT_EQ(file->GetPath(), file->GetPath());
}

TEST_F(ReadableFileTest, AnInterruptedOpenIsRepeatedWithoutLimit) {
    TestSupport::Recorder recorder;
    recorder.On("open").First(25).Fail(EINTR);
    auto const file = Open();
    EXPECT_EQ(recorder.Count("open"), 26U);
    EXPECT_EQ(file->GetSize(), 11);
}

TEST_F(ReadableFileTest, AFailingOpenIsReportedAndLeavesNothing) {
    TestSupport::DescriptorCheck const check;
    for (int const error : {ENOENT, EACCES, EMFILE, EIO}) {
        TestSupport::Recorder recorder;
        recorder.On("open").Fail(error);
        EXPECT_REPORT(
            OpenReadableFile(widePath_.c_str()), CONSTRUCTOR + (L": ::open failed for '" + widePath_) + L"'.", error);
        EXPECT_EQ(recorder.Names(), "open");
    }
}

TEST_F(ReadableFileTest, AMissingFileIsReportedAndNotMade) {
    TestSupport::DescriptorCheck const check;
    std::wstring const missing = scratch_.Wide("missing");
    std::wstring const text = CONSTRUCTOR + (L": ::open failed for '" + missing) + L"'.";
    EXPECT_REPORT(OpenReadableFile(missing.c_str()), text, ENOENT);
    EXPECT_REPORT(OpenReadableFile_InProcessLockNoWait(missing.c_str()), text, ENOENT);
    EXPECT_THAT(TestSupport::List(scratch_.Path()), ElementsAre("data"));
}

TEST_F(ReadableFileTest, ARelativePathStandsInTheReportAsItIs) {
    EXPECT_REPORT(
        OpenReadableFile(L"./no such file"), CONSTRUCTOR + std::wstring(L": ::open failed for './no such file'."),
        ENOENT);
}

TEST_F(ReadableFileTest, AStandardDescriptorIsRefusedAndClosedAgain) {
    std::wstring const text = CONSTRUCTOR + (L": ::open '" + widePath_) + L"' and get system file handle.";
    for (int const fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        TestSupport::CloseDuring const closed(fd);
        TestSupport::Recorder recorder;
        recorder.On("open").After([](TestSupport::Call&) { errno = EXDEV; });
        recorder.On("close").Fail(EIO); // the error of the close is not the one that is reported
        EXPECT_REPORT(OpenReadableFile(widePath_.c_str()), text, EXDEV);
        EXPECT_THAT(recorder.Names(), "open close");
        EXPECT_EQ(recorder.Find("close").fd, fd);
        EXPECT_FALSE(TestSupport::IsOpen(fd));
    }
}

TEST_F(ReadableFileTest, TheCloseOfARefusedDescriptorIsRepeatedWhileInterrupted) {
    TestSupport::CloseDuring const closed(STDIN_FILENO);
    TestSupport::Recorder recorder;
    recorder.On("close").First(3).FailWithoutCalling(EINTR);
    EXPECT_THROW(OpenReadableFile(widePath_.c_str()), WBase::Message);
    EXPECT_EQ(recorder.Names(), "open close close close close");
    EXPECT_FALSE(TestSupport::IsOpen(STDIN_FILENO));
}

TEST_F(ReadableFileTest, UnreadableDescriptorFlagsAreReportedAndTheDescriptorStaysOpen) {
    TestSupport::DescriptorCheck const check(1); // intended: nobody closes it
    {
        TestSupport::Recorder recorder;
        recorder.On("fcntl").Command(F_GETFD).Fail(EIO);
        EXPECT_REPORT(OpenReadableFile(widePath_.c_str()), L"::fcntl() failed", EIO);
        EXPECT_EQ(recorder.Names(), "open fcntl");
    }
    EXPECT_EQ(OpenReadableFile_InProcessLockNoWait(widePath_.c_str())->GetSize(), 11) << "nothing was locked";
}

TEST_F(ReadableFileTest, CloseOnExecIsAddedToTheFlags) {
    TestSupport::Recorder recorder;
    recorder.On("fcntl").Command(F_GETFD).Return(8);
    auto const file = Open();
    EXPECT_THAT(recorder.Calls(), ::testing::Contains("fcntl(F_SETFD, FD_CLOEXEC|0x8)"));
    EXPECT_TRUE(TestSupport::IsCloseOnExec(file->GetDescriptor()));
}

TEST_F(ReadableFileTest, AnotherProgramDoesNotInheritTheDescriptor) {
    auto const file = Open();
    std::string const test = "test -e /dev/fd/" + std::to_string(file->GetDescriptor());
    EXPECT_NE(TestSupport::RunProgram({"sh", "-c", test}).status, 0);
    EXPECT_EQ(TestSupport::RunProgram({"sh", "-c", "test -e /dev/fd/0"}).status, 0);
}

TEST_F(ReadableFileTest, WhenCloseOnExecCantBeSetTheFileIsOpenAllTheSame) {
    TestSupport::Recorder recorder;
    recorder.On("fcntl").Command(F_SETFD).Fail(EIO);
    auto const file = Open();
    EXPECT_EQ(recorder.Names(), "open fcntl fcntl fstat");
    EXPECT_FALSE(TestSupport::IsCloseOnExec(file->GetDescriptor()));
    EXPECT_EQ(file->GetSize(), 11);
}

TEST_F(ReadableFileTest, TheInterruptionOfACallHasNoOtherEffectThanItsRepetition) {
    std::string const names[] = {
        "open open fcntl fcntl fstat", "open fcntl fcntl fcntl fstat", "open fcntl fcntl fcntl fstat",
        "open fcntl fcntl fstat fstat"};
    for (unsigned int n = 1; n <= 4; ++n) {
        TestSupport::Recorder recorder;
        recorder.On("*").Nth(n).Fail(EINTR);
        auto const file = Open();
        EXPECT_EQ(recorder.Names(), names[n - 1]);
        EXPECT_TRUE(TestSupport::IsCloseOnExec(file->GetDescriptor()));
    }
}

TEST_F(ReadableFileTest, AnUnknownIdentityIsReportedAndTheDescriptorClosed) {
    TestSupport::DescriptorCheck const check;
    TestSupport::Recorder recorder;
    recorder.On("fstat").Fail(EIO);
    EXPECT_REPORT(
        OpenReadableFile(widePath_.c_str()),
        L"WFileSystem::InprocessFileLocker::ID::ID: ::fstat failed for '" + widePath_ + L"'.", EIO);
    EXPECT_EQ(recorder.Names(), "open fcntl fcntl fstat close");
}

TEST_F(ReadableFileTest, TheCloseForAnUnknownIdentityIsRepeatedWhileInterrupted) {
    TestSupport::DescriptorCheck const check;
    TestSupport::Recorder recorder;
    recorder.On("fstat").Fail(EIO);
    recorder.On("close").First(3).FailWithoutCalling(EINTR);
    EXPECT_THROW(OpenReadableFile(widePath_.c_str()), WBase::Message);
    EXPECT_EQ(recorder.Count("close"), 4U);
}

TEST_F(ReadableFileTest, ALockedRegistryIsReportedAndTheDescriptorClosed) {
    TestSupport::DescriptorCheck const check;
    TestSupport::Recorder recorder;
    recorder.On("pthread_mutex_lock").Fail(EINVAL);
    EXPECT_REPORT(OpenReadableFile(widePath_.c_str()), L"::pthread_mutex_lock failed", EINVAL);
}

TEST_F(ReadableFileTest, ALockThatCantBeTakenIsReportedAndTheDescriptorStaysOpen) {
    auto const holder = Open();
    TestSupport::DescriptorCheck const check(1); // intended, as when the time is over
    TestSupport::Recorder recorder;
    recorder.On("pthread_cond_wait").Fail(EPERM);
    EXPECT_REPORT(OpenReadableFile(widePath_.c_str()), L"::pthread_cond_wait failed", EPERM);
}

TEST_F(ReadableFileTest, AnOpeningThatRunsOutOfMemoryLeavesNothing) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::DescriptorCheck const check;
    bool hasFailed = true;
    unsigned long n = 0;
    while (hasFailed) {
        TestSupport::Allocations allocations;
        allocations.FailNth(++n);
        try {
            OpenReadableFile_InProcessLockNoWait(widePath_.c_str());
        } catch (std::bad_alloc const&) {
        }
        hasFailed = allocations.HasFailed();
    }
    EXPECT_GT(n, 4U) << "the object, its path, the locker and its entry";
}

TEST(ReadableFileWithoutModuleTest, OpeningIsReportedAndTouchesNothing) {
    TestSupport::Recorder recorder(TestSupport::Recorder::EVERY_CALL);
    TestSupport::ExpectedMessage const expected = {
        &typeid(WBase::ExceptionImpl<WBase::Message>), WBase::MESSAGE_DOMAIN_UNKNOWN, -1,
        CONSTRUCTOR + std::wstring(L": Can't open '/a'.\nNo WFileSystem::Initializer lives.")};
    WFILESYSTEM_EXPECT_MESSAGE(OpenReadableFile(L"/a"), expected);
    WFILESYSTEM_EXPECT_MESSAGE(OpenReadableFile_InProcessLockNoWait(L"/a"), expected);
    EXPECT_EQ(recorder.Names(), "");
}

// Paths

TEST_F(ReadableFileTest, AnyNameLeadsToItsFileAndStandsInItsReports) {
    std::string const names[] = {
        "\xC3\xA4", "\xE6\x97\xA5\xE6\x9C\xAC", "\xF0\x9F\x98\x80", "e\xCC\x81", "%1", "%1%2%%", "a\\b", " ", "a\nb",
        "'",        std::string(255, 'x')};
    for (std::string const& name : names) {
        TestSupport::WriteFile(scratch_ / name, name);
        std::wstring const path = scratch_.Wide(name);
        auto const file = OpenReadableFile(path.c_str());
        std::string bytes(name.size(), '\0');
        file->Read(bytes.data(), bytes.size());
        EXPECT_EQ(bytes, name);
        EXPECT_TRUE(file->IsAccessibleViaPath(nullptr));
        EXPECT_WRAPPED_NO_CAUSE(file->Read(bytes.data(), 1), L"Failed to read 1 bytes from file '" + path + L"'.");
        std::wstring const missing = path.substr(0, path.size() - 1) + L"\x263A";
        EXPECT_REPORT(
            OpenReadableFile(missing.c_str()), CONSTRUCTOR + (L": ::open failed for '" + missing) + L"'.",
            name.size() == 255 ? ENAMETOOLONG : ENOENT);
    }
}

TEST_F(ReadableFileTest, ThePathMayBeAsLongAsTheSystemAllows) {
    std::string path = scratch_.Path();
    while (path.size() + 202 < PATH_MAX - 1) {
        path += '/' + std::string(200, 'd');
        TestSupport::MakeDirectory(path);
    }
    path += '/' + std::string(PATH_MAX - 1 - path.size() - 1, 'f');
    TestSupport::WriteFile(path, "far away");
    EXPECT_EQ(OpenReadableFile(TestSupport::Widen(path).c_str())->GetSize(), 8);

    std::wstring const tooLong = TestSupport::Widen(path + "f");
    EXPECT_REPORT(
        OpenReadableFile(tooLong.c_str()), CONSTRUCTOR + (L": ::open failed for '" + tooLong) + L"'.", ENAMETOOLONG);
}

TEST_F(ReadableFileTest, AnEmptyPathIsReported) {
    EXPECT_REPORT(OpenReadableFile(L""), CONSTRUCTOR + std::wstring(L": ::open failed for ''."), ENOENT);
}

TEST_F(ReadableFileTest, APathThatCantBeConvertedTouchesNothing) {
    TestSupport::Recorder recorder(TestSupport::Recorder::EVERY_CALL);
    wchar_t const paths[][4] = {{L'a', static_cast<wchar_t>(0xD800), L'b', 0}, {static_cast<wchar_t>(0x110000), 0}};
    for (wchar_t const* const path : paths) {
        EXPECT_THROW(OpenReadableFile(path), WBase::StringConversionException);
        EXPECT_THROW(OpenReadableFile_InProcessLockNoWait(path), WBase::StringConversionException);
    }
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(ReadableFileTest, ADirectoryCanBeOpenedButNotRead) {
    std::wstring const path = scratch_.Wide();
    auto const file = OpenReadableFile(path.c_str());
    char byte;
    EXPECT_WRAPPED(file->Read(&byte, 1), L"Failed to read 1 bytes from file '" + path + L"'.", EISDIR);
}

TEST_F(ReadableFileTest, TheFailuresOfOperationsNameTheAbsolutePath) {
    TestSupport::WorkingDirectory const directory(scratch_.Path());
    auto const file = OpenReadableFile(L"./data");
    EXPECT_STREQ(file->GetPath(), L"./data");
    char bytes[12];
    EXPECT_WRAPPED_NO_CAUSE(
        file->Read(bytes, sizeof bytes), L"Failed to read 1 bytes from file '" + scratch_.Wide("data") + L"'.");
}

TEST_F(ReadableFileTest, ADirectoryWhoseNameIsNoTextChangesTheReportsOfOperationsOnly) {
    TestSupport::MakeDirectory(scratch_ / "\xFF");
    TestSupport::WorkingDirectory const directory(scratch_ / "\xFF");
    TestSupport::WriteFile("data", "");
    auto const file = OpenReadableFile(L"data");
    EXPECT_TRUE(file->IsAccessibleViaPath(nullptr));
    char byte;
    EXPECT_THROW(file->Read(&byte, 1), WBase::StringConversionException);
    EXPECT_REPORT(OpenReadableFile(L"x"), CONSTRUCTOR + std::wstring(L": ::open failed for 'x'."), ENOENT);
}

TEST_F(ReadableFileTest, ARelativePathIsSoughtInTheWorkingDirectoryOfTheMoment) {
    TestSupport::WorkingDirectory const directory(scratch_.Path());
    auto const file = OpenReadableFile(L"data");
    TestSupport::MakeDirectory("inner");
    TestSupport::WorkingDirectory const inner("inner");
    EXPECT_FALSE(file->IsAccessibleViaPath(nullptr));
    EXPECT_EQ(file->GetSize(), 11);
}

// Operations

TEST_F(ReadableFileTest, ReadGivesExactlySoManyBytes) {
    auto const file = Open();
    TestSupport::Recorder recorder;
    char bytes[5] = "";
    file->Read(bytes, 4);
    EXPECT_STREQ(bytes, "0123");
    EXPECT_EQ(
        recorder.Calls(TestSupport::Recorder::DESCRIPTORS).at(0),
        "read(" + std::to_string(file->GetDescriptor()) + ", 4)");
    EXPECT_EQ(file->GetPosition(), 4);
}

TEST_F(ReadableFileTest, ReadIntoABufferGivesWhatThereIs) {
    auto const file = Open();
    auto const buffer = WDataType::CreateBinary(16, nullptr);
    file->Read(*buffer, 4);
    EXPECT_EQ(std::string(buffer->GetBuffer(), buffer->GetSize()), "0123");
    file->Read(*buffer, 0);
    EXPECT_EQ(std::string(buffer->GetBuffer(), buffer->GetSize()), "456789\n");
    file->Read(*buffer, 0);
    EXPECT_EQ(buffer->GetSize(), 0U);
}

TEST_F(ReadableFileTest, ReadLittleEndianTakesTheLeastSignificantByteFirst) {
    TestSupport::WriteFile(path_, "\x04\x03\x02\x01\xFF\xFE\xFD\xFC");
    auto const file = Open();
    unsigned int value = 0;
    file->ReadLittleEndian(value);
    EXPECT_EQ(value, 0x01020304U);
    file->ReadLittleEndian(value);
    EXPECT_EQ(value, 0xFCFDFEFFU);
}

TEST_F(ReadableFileTest, ReadLittleEndianNeedsFourBytes) {
    auto const file = Open();
    file->SetPosition(8);
    unsigned int value = 77;
    EXPECT_WRAPPED_NO_CAUSE(file->ReadLittleEndian(value), L"Failed to read 1 bytes from file '" + widePath_ + L"'.");
    EXPECT_EQ(value, 77U);
}

TEST_F(ReadableFileTest, ReadLineGivesALineAndStaysBehindIt) {
    TestSupport::WriteFile(path_, "ab\ncd");
    auto const file = Open();
    auto const buffer = WDataType::CreateBinary(8, nullptr);
    file->ReadLine(*buffer);
    EXPECT_EQ(std::string(buffer->GetBuffer(), buffer->GetSize()), "ab\n");
    EXPECT_EQ(file->GetPosition(), 3);
    file->ReadLine(*buffer);
    EXPECT_EQ(std::string(buffer->GetBuffer(), buffer->GetSize()), "cd");
}

TEST_F(ReadableFileTest, ThePositionMovesAsAsked) {
    auto const file = Open();
    TestSupport::Recorder recorder;
    EXPECT_EQ(file->SetPosition(4), 4);
    EXPECT_EQ(file->MovePosition(-1), 3);
    EXPECT_EQ(file->GetPosition(), 3);
    EXPECT_EQ(file->SetPositionToEnd(), 11);
    EXPECT_EQ(file->GetSize(), 11);
    EXPECT_THAT(
        recorder.Calls(),
        ElementsAre(
            "lseek(4, SEEK_SET)", "lseek(-1, SEEK_CUR)", "lseek(0, SEEK_CUR)", "lseek(0, SEEK_END)", "fstat()"));
}

TEST_F(ReadableFileTest, FailuresOfOperationsNameTheFile) {
    auto const file = Open();
    auto const buffer = WDataType::CreateBinary(16, nullptr);
    unsigned int value;
    std::wstring const from = L"from file '" + widePath_ + L"'.";
    std::wstring const of = L"of file '" + widePath_ + L"'.";
    TestSupport::Recorder recorder;
    recorder.On("*").Fail(EIO);
    EXPECT_WRAPPED(file->Read(&value, 3), L"Failed to read 3 bytes " + from, EIO);
    EXPECT_WRAPPED(file->Read(*buffer, 5), L"Failed to read 5 bytes " + from, EIO);
    EXPECT_WRAPPED(file->ReadLittleEndian(value), L"Failed to read 4 bytes " + from, EIO);
    EXPECT_WRAPPED(file->ReadLine(*buffer), L"Failed to read 16 bytes " + from, EIO);
    EXPECT_WRAPPED(file->GetSize(), L"Failed to get size " + of, EIO);
    EXPECT_WRAPPED(file->GetPosition(), L"Failed to get current position " + of, EIO);
    EXPECT_WRAPPED(file->MovePosition(1), L"Failed to set current position " + of, EIO);
    EXPECT_WRAPPED(file->SetPosition(1), L"Failed to set current position " + of, EIO);
    EXPECT_WRAPPED(file->SetPositionToEnd(), L"Failed to set current position " + of, EIO);
    EXPECT_WRAPPED(file->ReadLock(false), L"Failed to lock file '" + widePath_ + L"'.", EIO);
    EXPECT_WRAPPED(file->ReadLock(true), L"Failed to lock file '" + widePath_ + L"'.", EIO);
}

TEST_F(ReadableFileTest, TheTimersStayAtZero) {
    auto const file = Open();
    auto const buffer = WDataType::CreateBinary(16, nullptr);
    for (int i = 0; i < 100; ++i) {
        unsigned int value;
        file->SetPosition(0);
        file->ReadLock(false);
        file->Read(&value, 1);
        file->Read(*buffer, 1);
        file->ReadLittleEndian(value);
        file->ReadLine(*buffer);
        file->ReadUnlock();
    }
    EXPECT_EQ(file->GetReadTimer().GetTotal().count(), 0);
    EXPECT_EQ(file->GetReadLockTimer().GetTotal().count(), 0);
    EXPECT_NE(&file->GetReadTimer(), &file->GetReadLockTimer());
}

// The path and the open file

TEST_F(ReadableFileTest, AFileIsAccessibleWhileItsPathNamesIt) {
    auto const file = Open();
    WBase::Message message;
    EXPECT_TRUE(file->IsAccessibleViaPath(&message));
    EXPECT_STREQ(message.GetMessage(), L"");
}

TEST_F(ReadableFileTest, ADeletedFileIsReadButNotAccessible) {
    auto const file = Open();
    ASSERT_EQ(::unlink(path_.c_str()), 0);
    WBase::Message message;
    EXPECT_FALSE(file->IsAccessibleViaPath(&message));
    EXPECT_FALSE(file->IsAccessibleViaPath(nullptr));
    EXPECT_STREQ(message.GetMessage(), L"") << "a missing file has no message";
    char bytes[4];
    file->Read(bytes, sizeof bytes);
    EXPECT_EQ(std::string(bytes, sizeof bytes), "0123");
}

TEST_F(ReadableFileTest, AReplacedFileIsReadButNotAccessible) {
    auto const file = Open();
    TestSupport::WriteFile(scratch_ / "new", "abc");
    ASSERT_EQ(::rename((scratch_ / "new").c_str(), path_.c_str()), 0);
    WBase::Message message;
    EXPECT_FALSE(file->IsAccessibleViaPath(&message));
    EXPECT_STREQ(message.GetMessage(), L"");
    EXPECT_EQ(file->GetSize(), 11);
}

TEST_F(ReadableFileTest, AFailingQuestionForThePathGoesInFrontOfTheMessage) {
    auto const file = Open();
    for (char const* const call : {"stat", "fstat"}) {
        TestSupport::Recorder recorder;
        recorder.On(call).Fail(EIO);
        WBase::Message message(WBase::MESSAGE_DOMAIN_SERVER, 5, "before");
        EXPECT_FALSE(file->IsAccessibleViaPath(&message));
        EXPECT_FALSE(file->IsAccessibleViaPath(nullptr));
        EXPECT_TRUE(TestSupport::Matches(
            message, TestSupport::WrappedWithoutCause(
                         L"Failed to get attributes of file '" + widePath_ + L"'.\n" +
                         TestSupport::ErrorDescription(EIO) + L"\nbefore")));
    }
}

// Locks and flags

TEST_F(ReadableFileTest, ReadLockWaitsUnlessItIsAskedNotTo) {
    auto const file = Open();
    TestSupport::Recorder recorder;
    EXPECT_TRUE(file->ReadLock(false));
    EXPECT_TRUE(file->ReadLock(true));
    EXPECT_THAT(recorder.Calls(), ElementsAre("fcntl(F_SETLKW, F_RDLCK 0+0)", "fcntl(F_SETLK, F_RDLCK 0+0)"));
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "READ");
}

TEST_F(ReadableFileTest, ReadLockKeepsItsResult) {
    auto const file = Open();
    EXPECT_TRUE(file->ReadLock(true));
    EXPECT_TRUE(file->IsReadLocked());
    for (int const error : {EAGAIN, ENOTSUP}) {
        TestSupport::Recorder recorder;
        recorder.On("fcntl").Fail(error);
        EXPECT_FALSE(file->ReadLock(true));
        EXPECT_FALSE(file->IsReadLocked());
        EXPECT_TRUE(file->IsLockTouched());
        recorder.Stop();
        EXPECT_TRUE(file->ReadLock(true));
    }
}

TEST_F(ReadableFileTest, ReadUnlockDropsTheLock) {
    auto const file = Open();
    file->ReadLock(false);
    char byte;
    file->Read(&byte, 1);
    EXPECT_FALSE(file->IsLockTouched());
    file->ReadUnlock();
    EXPECT_TRUE(file->IsLockTouched());
    EXPECT_FALSE(file->IsReadLocked());
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "");
}

TEST_F(ReadableFileTest, AFailingUnlockLeavesNoTrace) {
    auto const file = Open();
    file->ReadLock(false);
    TestSupport::Recorder recorder;
    recorder.On("fcntl").Fail(EIO);
    EXPECT_NO_THROW(file->ReadUnlock());
    EXPECT_FALSE(file->IsReadLocked());
    EXPECT_THAT(recorder.Calls(), ElementsAre("fcntl(F_SETLK, F_UNLCK 0+0)"));
}

TEST_F(ReadableFileTest, WithoutADescriptorReadUnlockClearsTheReadLockedFlagOnly) {
    GroundableFile file(widePath_.c_str(), false);
    file.ReadLock(false);
    file.SetPosition(0);
    ::close(file.Ground());
    TestSupport::Recorder recorder;
    file.ReadUnlock();
    EXPECT_FALSE(file.IsReadLocked());
    EXPECT_FALSE(file.IsLockTouched());
    EXPECT_EQ(recorder.Names(), "");
}

using Operation = std::function<void(ReadableFile&)>;

Operation const TRANSFERS_AND_POSITIONS[] = {
    [](ReadableFile& file) { file.MovePosition(1); },
    [](ReadableFile& file) { file.SetPosition(1); },
    [](ReadableFile& file) { file.SetPositionToEnd(); },
    [](ReadableFile& file) {
        char byte;
        file.Read(&byte, 1);
    },
    [](ReadableFile& file) { file.Read(*WDataType::CreateBinary(8, nullptr), 1); },
    [](ReadableFile& file) {
        unsigned int value;
        file.ReadLittleEndian(value);
    },
    [](ReadableFile& file) { file.ReadLine(*WDataType::CreateBinary(8, nullptr)); }};

TEST_F(ReadableFileTest, TransfersAndPositionsClearTheLockTouchedFlag) {
    auto const file = Open();
    for (Operation const& operation : TRANSFERS_AND_POSITIONS) {
        file->SetPosition(0);
        file->ReadLock(false);
        ASSERT_TRUE(file->IsLockTouched());
        operation(*file);
        EXPECT_FALSE(file->IsLockTouched());
        EXPECT_TRUE(file->IsReadLocked());
    }
}

TEST_F(ReadableFileTest, OperationsThatFailLeaveTheFlags) {
    auto const file = Open();
    file->ReadLock(false);
    for (Operation const& operation : TRANSFERS_AND_POSITIONS) {
        TestSupport::Recorder recorder;
        recorder.On("*").Fail(EIO);
        EXPECT_THROW(operation(*file), WBase::Message);
        EXPECT_TRUE(file->IsLockTouched());
        EXPECT_TRUE(file->IsReadLocked());
    }
}

TEST_F(ReadableFileTest, ALockThatFailsLeavesTheFlags) {
    auto const file = Open();
    auto const fail = [&file] {
        TestSupport::Recorder recorder;
        recorder.On("fcntl").Fail(EIO);
        EXPECT_THROW(file->ReadLock(true), WBase::Message);
    };
    fail();
    EXPECT_FALSE(file->IsLockTouched());
    EXPECT_FALSE(file->IsReadLocked());
    file->ReadLock(true);
    file->SetPosition(0);
    fail();
    EXPECT_FALSE(file->IsLockTouched());
    EXPECT_TRUE(file->IsReadLocked());
}

TEST_F(ReadableFileTest, QuestionsLeaveTheFlags) {
    auto const file = Open();
    auto const ask = [&file] {
        file->GetPath();
        file->IsAccessibleViaPath(nullptr);
        file->GetSize();
        file->GetPosition();
        file->GetReadTimer();
        file->GetReadLockTimer();
    };
    ask();
    EXPECT_FALSE(file->IsLockTouched());
    file->ReadLock(false);
    ask();
    EXPECT_TRUE(file->IsLockTouched());
    EXPECT_TRUE(file->IsReadLocked());
}

// The end

TEST_F(ReadableFileTest, TheDescriptorIsClosedBeforeTheLockIsGivenUp) {
    auto file = Open();
    file->ReadLock(false);
    int const fd = file->GetDescriptor();
    TestSupport::Recorder recorder(TestSupport::Recorder::EVERY_CALL);
    file.reset();
    EXPECT_EQ(
        recorder.Names(),
        "close "
        "pthread_mutex_lock pthread_mutex_unlock " // the semaphore, then the registry
        "pthread_mutex_lock pthread_cond_destroy pthread_mutex_destroy pthread_mutex_unlock");
    EXPECT_EQ(recorder.Find("close").fd, fd);
    EXPECT_FALSE(TestSupport::IsOpen(fd));
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "") << "the record lock goes with the descriptor";
}

TEST_F(ReadableFileTest, TheLastCloseIsTriedTenTimesAtMostAndItsFailureIgnored) {
    auto file = Open();
    int const fd = file->GetDescriptor();
    TestSupport::Recorder recorder;
    recorder.On("close").FailWithoutCalling(EINTR);
    file.reset();
    EXPECT_EQ(recorder.Count("close"), 10U);
    recorder.Stop();
    ::close(fd);
    EXPECT_EQ(OpenReadableFile_InProcessLockNoWait(widePath_.c_str())->GetSize(), 11);
}

TEST_F(ReadableFileTest, WithoutADescriptorTheEndClosesNothing) {
    auto file = std::make_unique<GroundableFile>(widePath_.c_str(), false);
    ::close(file->Ground());
    TestSupport::Recorder recorder;
    file.reset();
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(ReadableFileTest, AFileCanBeOpenedAgainAndAgain) {
    TestSupport::DescriptorCheck const check;
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(OpenReadableFile(widePath_.c_str())->GetSize(), 11);
    }
}

TEST_F(ReadableFileTest, AFailureWhileTheLockIsGivenUpEndsTheProcess) {
    auto const end = [this] {
        auto file = Open();
        TestSupport::Recorder recorder;
        recorder.On("pthread_mutex_lock").Fail(EINVAL);
        file.reset();
    };
    GTEST_FLAG_SET(death_test_style, "fast");
    EXPECT_EXIT(end(), ::testing::KilledBySignal(SIGABRT), "");
}

} // namespace
