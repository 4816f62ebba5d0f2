// Operations of WFileSystem::File on whole files: deleting, moving, copying, attributes, size and time.

#include <FileSystem/File.h>

#include <Tests/Support/Allocations.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <fcntl.h>
#include <functional>
#include <new>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using TestSupport::Recorder;
using WFileSystem::File;

/// A path that no conversion accepts.
constexpr wchar_t const UNCONVERTIBLE[] = {L'a', static_cast<wchar_t>(0xD800), L'\0'};

class WholeFileTest : public testing::Test {
protected:
    std::string Make(std::string const& name, std::string const& content) {
        TestSupport::WriteFile(scratch_ / name, content);
        return scratch_ / name;
    }

    std::wstring Wide(std::string const& name) const { return scratch_.Wide(name); }

    std::string Read(std::string const& name) const { return TestSupport::ReadFile(scratch_ / name); }

    bool Exists(std::string const& name) const { return TestSupport::Exists(scratch_ / name); }

    struct stat StatusOf(std::string const& name) const {
        struct stat status = {};
        EXPECT_EQ(::stat((scratch_ / name).c_str(), &status), 0);
        return status;
    }

    void SetTimes(std::string const& name, timespec access, timespec modification) const {
        timespec const times[] = {access, modification};
        ASSERT_EQ(::utimensat(AT_FDCWD, (scratch_ / name).c_str(), times, 0), 0);
    }

    TestSupport::ScratchDirectory scratch_;
};

/// A source that a copy must leave open: closing it succeeds at the end.
template <class Handle, int (*close)(Handle)>
class Source {
public:
    explicit Source(Handle handle) : handle_(handle) {}
    Source(Source const&) = delete;
    Source& operator=(Source const&) = delete;
    ~Source() { EXPECT_EQ(close(handle_), 0); }
    operator Handle() const { return handle_; }

private:
    Handle handle_;
};

using SourceDescriptor = Source<int, &::close>;
using SourceStream = Source<FILE*, &std::fclose>;

std::wstring Described(std::wstring const& text, int error) {
    return text + L"\n" + TestSupport::ErrorDescription(error);
}

// Deleting

TEST_F(WholeFileTest, DeleteRemovesAFileWithOneCall) {
    std::string const path = Make("file", "");
    Recorder recorder;
    EXPECT_TRUE(File::Delete(Wide("file").c_str(), nullptr));
    EXPECT_THAT(recorder.Calls(), testing::ElementsAre("unlink(\"" + path + "\")"));
    EXPECT_FALSE(Exists("file"));
}

TEST_F(WholeFileTest, DeleteOfAMissingFileTellsItsReport) {
    WBase::Message report;
    EXPECT_FALSE(File::Delete(Wide("missing").c_str(), &report));
    EXPECT_TRUE(Matches(report, TestSupport::Wrapped(L"Failed to delete file '" + Wide("missing") + L"'.", ENOENT)));
}

TEST_F(WholeFileTest, DeleteWithoutAReportOnlyAnswers) {
    EXPECT_FALSE(File::Delete(Wide("missing").c_str(), nullptr));
}

TEST_F(WholeFileTest, DeleteKeepsWhatTheReportHeldBehindTheNewFailure) {
    WBase::Message report(WBase::MESSAGE_DOMAIN_SERVER, 1, "earlier");
    File::Delete(L"missing", &report);
    EXPECT_EQ(report.GetMessage(), Described(L"Failed to delete file 'missing'.", ENOENT) + L"\nearlier");
}

TEST_F(WholeFileTest, DeleteDoesNotRepeatAnInterruptedCall) {
    Make("file", "");
    Recorder recorder;
    recorder.On("unlink").Fail(EINTR);
    EXPECT_FALSE(File::Delete(Wide("file").c_str(), nullptr));
    EXPECT_EQ(recorder.Names(), "unlink");
}

TEST_F(WholeFileTest, DeleteOfAnUnconvertiblePathAnswersFalse) {
    WBase::Message report;
    Recorder recorder;
    EXPECT_FALSE(File::Delete(UNCONVERTIBLE, nullptr));
    EXPECT_FALSE(File::Delete(UNCONVERTIBLE, &report));
    EXPECT_EQ(recorder.Names(), "");
    EXPECT_TRUE(Matches(
        report,
        TestSupport::WrappedWithoutCause(
            std::wstring(L"Failed to delete file '") + UNCONVERTIBLE +
            L"'.\nFailed to convert wide text: the character U+D800 at index 1 is not a Unicode scalar value.")));
}

TEST_F(WholeFileTest, DeleteRemovesALinkAndNotWhatItNames) {
    std::string const path = Make("file", "");
    ASSERT_EQ(::symlink(path.c_str(), (scratch_ / "link").c_str()), 0);
    EXPECT_TRUE(File::Delete(Wide("link").c_str(), nullptr));
    EXPECT_TRUE(Exists("file"));
}

// Moving

TEST_F(WholeFileTest, MoveRenamesAndReplaces) {
    Make("from", "new");
    Make("to", "old");
    Recorder recorder;
    File::Move(Wide("from").c_str(), Wide("to").c_str());
    EXPECT_EQ(recorder.Names(), "rename");
    recorder.Stop();
    EXPECT_EQ(Read("to"), "new");
    EXPECT_FALSE(Exists("from"));
}

TEST_F(WholeFileTest, MoveReportsBothPathsAsGiven) {
    Recorder recorder;
    recorder.On("rename").Fail(EXDEV);
    EXPECT_WRAPPED(File::Move(L"from", L"to%1"), L"Failed to move file 'from' to 'to%1'.", EXDEV);
}

TEST_F(WholeFileTest, MoveOfAPathWithAPlaceholderComesOutUnharmed) {
    EXPECT_WRAPPED(File::Move(L"missing%2", L"to"), L"Failed to move file 'missing%2' to 'to'.", ENOENT);
}

TEST_F(WholeFileTest, MoveAcrossFileSystemsFails) {
    Make("from", "text");
    struct stat elsewhere = {};
    if (::stat("/dev/shm", &elsewhere) != 0 || elsewhere.st_dev == StatusOf("from").st_dev) {
        GTEST_SKIP() << "/dev/shm is no second file system here";
    }
    std::wstring const target = L"/dev/shm/" + std::to_wstring(::getpid()) + L"-moved";
    EXPECT_WRAPPED(
        File::Move(Wide("from").c_str(), target.c_str()),
        L"Failed to move file '" + Wide("from") + L"' to '" + target + L"'.", EXDEV);
    EXPECT_EQ(Read("from"), "text");
}

TEST_F(WholeFileTest, MoveDoesNotRepeatAnInterruptedCall) {
    Recorder recorder;
    recorder.On("rename").Fail(EINTR);
    EXPECT_WRAPPED(File::Move(L"a", L"b"), L"Failed to move file 'a' to 'b'.", EINTR);
    EXPECT_EQ(recorder.Names(), "rename");
}

TEST_F(WholeFileTest, MoveLetsAFailedConversionPass) {
    EXPECT_THROW(File::Move(UNCONVERTIBLE, L"b"), WBase::StringConversionException);
    EXPECT_THROW(File::Move(L"a", UNCONVERTIBLE), WBase::StringConversionException);
}

// Copying

TEST_F(WholeFileTest, CopyLeavesExactlyTheBytesOfTheSource) {
    Make("from", "short");
    Make("to", "a much longer text");
    File::Copy(Wide("from").c_str(), Wide("to").c_str());
    EXPECT_EQ(Read("to"), "short");
    EXPECT_EQ(Read("from"), "short");
}

TEST_F(WholeFileTest, CopyOpensTheSourceFirstAndClosesItLast) {
    std::string const from = Make("from", "text");
    TestSupport::DescriptorCheck const descriptors;
    Recorder recorder;
    File::Copy(Wide("from").c_str(), Wide("to").c_str());
    recorder.Stop();
    EXPECT_EQ(recorder.Names(), "fopen fcntl fopen fcntl fread fwrite fflush fclose fclose");
    EXPECT_THAT(recorder.Calls()[0], "fopen(\"" + from + "\", \"r\")");
    EXPECT_THAT(recorder.Calls()[2], "fopen(\"" + (scratch_ / "to") + "\", \"w\")");
    EXPECT_EQ(recorder.Find("fclose", 1).fd, recorder.Find("fcntl", 2).fd);
    EXPECT_EQ(recorder.Find("fclose", 2).fd, recorder.Find("fcntl", 1).fd);
}

TEST_F(WholeFileTest, CopyGoesInStepsOf16KiB) {
    Make("from", std::string(40000, 'x'));
    Recorder recorder;
    File::Copy(Wide("from").c_str(), Wide("to").c_str());
    EXPECT_EQ(recorder.Count("fread"), 3);
    EXPECT_EQ(recorder.Find("fread").size, 16384);
}

TEST_F(WholeFileTest, CopyUsesTheBufferOfTheCaller) {
    Make("from", "0123456789");
    auto const buffer = WDataType::CreateBinary(4, nullptr);
    Recorder recorder;
    File::Copy(Wide("from").c_str(), Wide("to").c_str(), *buffer);
    EXPECT_EQ(recorder.Find("fread").size, 4);
    recorder.Stop();
    EXPECT_EQ(Read("to"), "0123456789");
}

TEST_F(WholeFileTest, CopyIgnoresStreamsThatCannotBeClosed) {
    Make("from", "text");
    Recorder recorder;
    recorder.On("fclose").Fail(EIO);
    EXPECT_NO_THROW(File::Copy(Wide("from").c_str(), Wide("to").c_str()));
}

TEST_F(WholeFileTest, CopyThatFailsClosesWhatItOpened) {
    Make("from", "text");
    for (char const* const function : {"fread", "fwrite", "fflush"}) {
        SCOPED_TRACE(function);
        TestSupport::DescriptorCheck const descriptors;
        Recorder recorder;
        recorder.On(function).Fail(EIO);
        EXPECT_THROW(File::Copy(Wide("from").c_str(), Wide("to").c_str()), WBase::ExceptionImpl<WBase::Message>);
        EXPECT_EQ(recorder.Count("fclose"), 2);
    }
}

TEST_F(WholeFileTest, CopyToAPathThatCannotBeOpenedClosesTheSource) {
    Make("from", "text");
    TestSupport::DescriptorCheck const descriptors;
    EXPECT_REPORT(
        File::Copy(Wide("from").c_str(), Wide("missing/to").c_str()),
        L"WFileSystem::File::OpenStream: ::fopen failed for '" + Wide("missing/to") + L"'.", ENOENT);
}

TEST_F(WholeFileTest, CopyFromAMissingPathDoesNotTouchTheTarget) {
    Make("to", "text");
    EXPECT_REPORT(
        File::Copy(Wide("missing").c_str(), Wide("to").c_str()),
        L"WFileSystem::File::OpenStream: ::fopen failed for '" + Wide("missing") + L"'.", ENOENT);
    EXPECT_EQ(Read("to"), "text");
}

TEST_F(WholeFileTest, CopyOntoItselfEmptiesTheFile) {
    Make("file", "text");
    File::Copy(Wide("file").c_str(), Wide("file").c_str());
    EXPECT_EQ(Read("file"), "");
}

TEST_F(WholeFileTest, CopyOfADirectoryEmptiesTheTargetBeforeItFails) {
    Make("to", "text");
    ASSERT_EQ(::mkdir((scratch_ / "directory").c_str(), 0700), 0);
    EXPECT_REPORT(
        File::Copy(Wide("directory").c_str(), Wide("to").c_str()), L"WFileSystem::File::Read: ::fread failed.", EISDIR);
    EXPECT_EQ(Read("to"), "");
}

TEST_F(WholeFileTest, CopyOfADescriptorBeginsAtThePositionAndLeavesItOpen) {
    std::string const path = Make("from", "0123456789");
    SourceDescriptor const from(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    ::lseek(from, 4, SEEK_SET);
    TestSupport::DescriptorCheck const descriptors;
    Recorder recorder;
    File::Copy(from, Wide("to").c_str());
    recorder.Stop();
    EXPECT_EQ(recorder.Names(), "open fcntl read write read fsync close");
    EXPECT_EQ(recorder.Find("read").size, 16384);
    EXPECT_EQ(recorder.Find("open").flags, O_WRONLY | O_CREAT | O_TRUNC | O_NOCTTY);
    EXPECT_EQ(Read("to"), "456789");
}

TEST_F(WholeFileTest, CopyOfADescriptorThatFailsClosesTheTarget) {
    std::string const path = Make("from", "text");
    SourceDescriptor const from(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    TestSupport::DescriptorCheck const descriptors;
    Recorder recorder;
    recorder.On("write").Fail(ENOSPC);
    EXPECT_THROW(File::Copy(from, Wide("to").c_str()), WBase::ExceptionImpl<WBase::Message>);
    EXPECT_EQ(recorder.Names(), "open fcntl read write close");
}

TEST_F(WholeFileTest, CopyOfADescriptorIgnoresATargetThatCannotBeClosed) {
    std::string const path = Make("from", "text");
    SourceDescriptor const from(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    Recorder recorder;
    recorder.On("close").Fail(EIO);
    EXPECT_NO_THROW(File::Copy(from, Wide("to").c_str()));
}

TEST_F(WholeFileTest, CopyOfADescriptorRepeatsAnInterruptedClose) {
    std::string const path = Make("from", "text");
    SourceDescriptor const from(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    TestSupport::DescriptorCheck const descriptors;
    Recorder recorder;
    recorder.On("close").First(9).FailWithoutCalling(EINTR);
    File::Copy(from, Wide("to").c_str());
    EXPECT_EQ(recorder.Count("close"), 10);
}

TEST_F(WholeFileTest, CopyOfADescriptorOrStreamOntoItsOwnFileEmptiesIt) {
    std::string const first = Make("first", "text");
    SourceDescriptor const descriptor(::open(first.c_str(), O_RDONLY | O_CLOEXEC));
    File::Copy(descriptor, Wide("first").c_str());
    EXPECT_EQ(Read("first"), "");
    std::string const second = Make("second", "text");
    SourceStream const stream(std::fopen(second.c_str(), "r"));
    File::Copy(stream, Wide("second").c_str());
    EXPECT_EQ(Read("second"), "");
}

TEST_F(WholeFileTest, CopyOfADescriptorToAPathThatCannotBeOpenedIsReported) {
    EXPECT_REPORT(
        File::Copy(0, Wide("missing/to").c_str()),
        L"WFileSystem::File::OpenDescriptor: ::open failed for '" + Wide("missing/to") + L"'.", ENOENT);
}

TEST_F(WholeFileTest, CopyOfAStreamBeginsAtThePositionAndLeavesItOpen) {
    std::string const path = Make("from", "0123456789");
    SourceStream const from(std::fopen(path.c_str(), "r"));
    std::fseek(from, 7, SEEK_SET);
    TestSupport::DescriptorCheck const descriptors;
    Recorder recorder;
    File::Copy(from, Wide("to").c_str());
    recorder.Stop();
    EXPECT_EQ(recorder.Names(), "fopen fcntl fread fwrite fflush fclose");
    EXPECT_EQ(recorder.Find("fread").size, 16384);
    EXPECT_EQ(Read("to"), "789");
}

TEST_F(WholeFileTest, CopyOfAStreamThatFailsClosesTheTarget) {
    std::string const path = Make("from", "text");
    SourceStream const from(std::fopen(path.c_str(), "r"));
    TestSupport::DescriptorCheck const descriptors;
    Recorder recorder;
    recorder.On("fwrite").Fail(ENOSPC);
    EXPECT_REPORT(File::Copy(from, Wide("to").c_str()), L"WFileSystem::File::Write: Failed.", ENOSPC);
    EXPECT_EQ(recorder.Count("fclose"), 1);
}

TEST_F(WholeFileTest, CopyClosesWhatItOpenedWhenAnAllocationFails) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    std::string const path = Make("from", "text");
    std::wstring const from = Wide("from");
    std::wstring const to = Wide("to");
    SourceDescriptor const descriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    SourceStream const stream(std::fopen(path.c_str(), "r"));
    for (std::function<void()> const& copy : std::initializer_list<std::function<void()>>{
             [&] { File::Copy(from.c_str(), to.c_str()); }, [&] { File::Copy(descriptor, to.c_str()); },
             [&] { File::Copy(stream, to.c_str()); }}) {
        bool hasFailed = true;
        for (unsigned int n = 1; hasFailed; ++n) {
            TestSupport::DescriptorCheck const descriptors;
            TestSupport::Allocations allocations;
            allocations.FailNth(n);
            try {
                copy();
            } catch (std::bad_alloc const&) { // NOLINT(bugprone-empty-catch): what was open then is checked
            }
            allocations.Stop();
            hasFailed = allocations.HasFailed();
        }
    }
}

// Attributes

TEST_F(WholeFileTest, CopyAttributesAppliesTimesOwnerAndPermissionsInThisOrder) {
    Make("from", "");
    Make("to", "");
    ASSERT_EQ(::chmod((scratch_ / "from").c_str(), 0640), 0);
    SetTimes("from", {1000, 900000000}, {2000, 900000000});
    WBase::Message report;
    Recorder recorder;
    EXPECT_TRUE(File::CopyAttributes(Wide("from").c_str(), Wide("to").c_str(), &report));
    EXPECT_EQ(recorder.Names(), "stat utime chown chmod");
    EXPECT_EQ(recorder.Find("chmod").mode, S_IFREG | 0640U);
    recorder.Stop();
    struct stat const status = StatusOf("to");
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
    EXPECT_EQ(status.st_uid, StatusOf("from").st_uid);
    EXPECT_EQ(status.st_gid, StatusOf("from").st_gid);
    EXPECT_STREQ(report.GetMessage(), L"");
}

TEST_F(WholeFileTest, CopyAttributesPassesUserAndGroupOn) {
    Recorder recorder;
    recorder.On("stat").Instead([](TestSupport::Call const& call) {
        struct stat status = {};
        status.st_uid = 11;
        status.st_gid = 12;
        *static_cast<struct stat*>(call.data) = status;
        return 0L;
    });
    recorder.On("chown").Return(0);
    File::CopyAttributes(L"from", L"to", nullptr);
    EXPECT_THAT(recorder.Calls(), testing::Contains("chown(\"to\", 11, 12)"));
}

TEST_F(WholeFileTest, CopyAttributesDropsFractionsOfSeconds) {
    Make("from", "");
    Make("to", "");
    SetTimes("from", {1000, 900000000}, {2000, 900000000});
    EXPECT_TRUE(File::CopyAttributes(Wide("from").c_str(), Wide("to").c_str(), nullptr));
    struct stat const status = StatusOf("to");
    EXPECT_EQ(status.st_atim.tv_sec, 1000);
    EXPECT_EQ(status.st_atim.tv_nsec, 0);
    EXPECT_EQ(status.st_mtim.tv_sec, 2000);
    EXPECT_EQ(status.st_mtim.tv_nsec, 0);
}

TEST_F(WholeFileTest, CopyAttributesGoesBeyond32BitsOfSeconds) {
    Recorder recorder;
    recorder.On("stat").Instead([](TestSupport::Call const& call) {
        struct stat status = {};
        status.st_atim.tv_sec = -0x80000001LL;
        status.st_mtim.tv_sec = 0x123456789LL;
        *static_cast<struct stat*>(call.data) = status;
        return 0L;
    });
    for (char const* const function : {"utime", "chown", "chmod"}) {
        recorder.On(function).Return(0);
    }
    EXPECT_TRUE(File::CopyAttributes(L"from", L"to", nullptr));
    EXPECT_THAT(recorder.Calls(), testing::Contains("utime(\"to\", -2147483649, 4886718345)"));
}

TEST_F(WholeFileTest, CopyAttributesRepeatsAnInterruptedLookAtTheSource) {
    Make("from", "");
    Recorder recorder;
    recorder.On("stat").First(2).Fail(EINTR);
    EXPECT_TRUE(File::CopyAttributes(Wide("from").c_str(), Wide("from").c_str(), nullptr));
    EXPECT_EQ(recorder.Count("stat"), 3);
}

TEST_F(WholeFileTest, CopyAttributesOfAMissingSourceThrowsWithAndWithoutAReport) {
    Make("to", "");
    WBase::Message report;
    for (WBase::Message* const out : {static_cast<WBase::Message*>(nullptr), &report}) {
        EXPECT_WRAPPED(
            File::CopyAttributes(L"missing", Wide("to").c_str(), out), L"Failed to get attributes of file 'missing'.",
            ENOENT);
    }
    EXPECT_STREQ(report.GetMessage(), L"");
}

TEST_F(WholeFileTest, CopyAttributesTriesEachStepAndReportsEachFailure) {
    Make("from", "");
    std::wstring const to = Wide("to\xC3\xA4");
    WBase::Message report;
    Recorder recorder;
    recorder.On("utime").Fail(EACCES);
    recorder.On("chown").Fail(EPERM);
    recorder.On("chmod").Fail(EROFS);
    EXPECT_FALSE(File::CopyAttributes(Wide("from").c_str(), to.c_str(), &report));
    EXPECT_EQ(recorder.Names(), "stat utime chown chmod");
    EXPECT_EQ(
        report.GetMessage(), Described(L"Failed to change permissions of file '" + to + L"'.", EROFS) + L"\n" +
                                 Described(L"Failed to change owner of file '" + to + L"'.", EPERM) + L"\n" +
                                 Described(L"Failed to change times of file '" + to + L"'.", EACCES));
}

TEST_F(WholeFileTest, CopyAttributesWithoutAReportIsTrueWhateverFailed) {
    Make("from", "");
    Recorder recorder;
    recorder.On("utime").Fail(EACCES);
    recorder.On("chown").Fail(EPERM);
    recorder.On("chmod").Fail(EROFS);
    EXPECT_TRUE(File::CopyAttributes(Wide("from").c_str(), L"to", nullptr));
    EXPECT_EQ(recorder.Names(), "stat utime chown chmod");
}

TEST_F(WholeFileTest, CopyAttributesByAnOrdinaryUserReportsTheOwner) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can make a file that belongs to somebody else";
    }
    constexpr uid_t ORDINARY = 65534;
    Make("from", "");
    Make("to", "");
    ASSERT_EQ(::chmod(scratch_.Path().c_str(), 0777), 0);
    ASSERT_EQ(::seteuid(ORDINARY), 0);
    WBase::Message report;
    bool const withReport = File::CopyAttributes(Wide("from").c_str(), Wide("to").c_str(), &report);
    bool const withoutReport = File::CopyAttributes(Wide("from").c_str(), Wide("to").c_str(), nullptr);
    ASSERT_EQ(::seteuid(0), 0);
    EXPECT_FALSE(withReport);
    EXPECT_TRUE(withoutReport);
    EXPECT_THAT(
        report.GetMessage(),
        testing::HasSubstr(Described(L"Failed to change owner of file '" + Wide("to") + L"'.", EPERM)));
}

TEST_F(WholeFileTest, CopyAttributesByAnOrdinaryUserOntoAnOwnFileLacksTheOwnerOnly) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "only root can make a file that belongs to somebody else";
    }
    constexpr uid_t ORDINARY = 65534;
    Make("from", "");
    std::string const to = Make("to", "");
    ASSERT_EQ(::chmod((scratch_ / "from").c_str(), 0604), 0);
    SetTimes("from", {1000, 0}, {2000, 0});
    ASSERT_EQ(::chown(to.c_str(), ORDINARY, ORDINARY), 0);
    ASSERT_EQ(::chmod(scratch_.Path().c_str(), 0777), 0);
    ASSERT_EQ(::seteuid(ORDINARY), 0);
    WBase::Message report;
    bool const result = File::CopyAttributes(Wide("from").c_str(), Wide("to").c_str(), &report);
    ASSERT_EQ(::seteuid(0), 0);
    EXPECT_FALSE(result);
    EXPECT_TRUE(Matches(report, TestSupport::Wrapped(L"Failed to change owner of file '" + Wide("to") + L"'.", EPERM)));
    EXPECT_EQ(StatusOf("to").st_mode & 07777U, 0604U);
    EXPECT_EQ(StatusOf("to").st_mtime, 2000);
}

// Size and time

TEST_F(WholeFileTest, GetSizeGoesAboveFourGigabytes) {
    Make("file", "");
    ASSERT_EQ(::truncate((scratch_ / "file").c_str(), 0x123456789LL), 0);
    EXPECT_EQ(File::GetSize(Wide("file").c_str()), 0x123456789UL);
    EXPECT_EQ(File::GetSize64(Wide("file").c_str()), 0x123456789ULL);
}

TEST_F(WholeFileTest, GetSizeOfADirectoryIsWhatTheSystemSays) {
    EXPECT_EQ(File::GetSize(scratch_.Wide().c_str()), static_cast<unsigned long>(StatusOf(".").st_size));
}

TEST_F(WholeFileTest, QuestionsAboutAFileAreRepeatedWhileInterrupted) {
    Make("file", "abc");
    WDataType::DateTime time;
    Recorder recorder;
    recorder.On("stat").First(2).Fail(EINTR);
    EXPECT_EQ(File::GetSize(Wide("file").c_str()), 3);
    recorder.On("stat").First(2).Fail(EINTR);
    EXPECT_EQ(File::GetSize64(Wide("file").c_str()), 3);
    recorder.On("stat").First(2).Fail(EINTR);
    File::GetLastModified(Wide("file").c_str(), time);
    EXPECT_EQ(recorder.Count("stat"), 9);
}

TEST_F(WholeFileTest, QuestionsAboutAMissingFileNameThePathAsGiven) {
    WDataType::DateTime time;
    std::wstring const text = L"Failed to get attributes of file 'missing%1\u00E4'.";
    EXPECT_WRAPPED(File::GetSize(L"missing%1\u00E4"), text, ENOENT);
    EXPECT_WRAPPED(File::GetSize64(L"missing%1\u00E4"), text, ENOENT);
    EXPECT_WRAPPED(File::GetLastModified(L"missing%1\u00E4", time), text, ENOENT);
}

TEST_F(WholeFileTest, QuestionsLetAFailedConversionPass) {
    WDataType::DateTime time;
    EXPECT_THROW(File::GetSize(UNCONVERTIBLE), WBase::StringConversionException);
    EXPECT_THROW(File::GetSize64(UNCONVERTIBLE), WBase::StringConversionException);
    EXPECT_THROW(File::GetLastModified(UNCONVERTIBLE, time), WBase::StringConversionException);
    EXPECT_THROW(File::CopyAttributes(UNCONVERTIBLE, L"to", nullptr), WBase::StringConversionException);
    EXPECT_THROW(File::CopyAttributes(L"from", UNCONVERTIBLE, nullptr), WBase::StringConversionException);
}

WDataType::DateTime At(int year, int month, int day, int hour, int minute, int second) {
    return WDataType::DateTime(year, month, day, hour, minute, second, 0, 0, 0);
}

TEST_F(WholeFileTest, GetLastModifiedCountsWholeSecondsFromTheEpoch) {
    Make("file", "");
    WDataType::DateTime time;
    SetTimes("file", {0, 0}, {1, 999999999});
    File::GetLastModified(Wide("file").c_str(), time);
    EXPECT_TRUE(time == At(1970, 1, 1, 0, 0, 1));
    EXPECT_EQ(time.GetMillisecond(), 0);
}

TEST_F(WholeFileTest, GetLastModifiedGoesBackBefore1970) {
    Make("file", "");
    WDataType::DateTime time;
    SetTimes("file", {0, 0}, {-1, 0});
    File::GetLastModified(Wide("file").c_str(), time);
    EXPECT_TRUE(time == At(1969, 12, 31, 23, 59, 59));
}

TEST_F(WholeFileTest, GetLastModifiedIsRightUpTo19January2038) {
    Make("file", "");
    WDataType::DateTime time;
    SetTimes("file", {0, 0}, {0x7FFFFFFF, 0});
    File::GetLastModified(Wide("file").c_str(), time);
    EXPECT_TRUE(time == At(2038, 1, 19, 3, 14, 7));
}

TEST_F(WholeFileTest, GetLastModifiedOutsideOf32BitsIsCut) {
    Make("file", "");
    WDataType::DateTime time;
    long long seconds = 0;
    Recorder recorder;
    recorder.On("stat").After(
        [&](TestSupport::Call& call) { static_cast<struct stat*>(call.data)->st_mtim.tv_sec = seconds; });
    seconds = 0x80000000LL; // 2038
    File::GetLastModified(Wide("file").c_str(), time);
    EXPECT_TRUE(time == At(1901, 12, 13, 20, 45, 52));
    seconds = -0x80000001LL; // 1901
    File::GetLastModified(Wide("file").c_str(), time);
    EXPECT_TRUE(time == At(2038, 1, 19, 3, 14, 7));
    seconds = 0x100000001LL; // 2106
    File::GetLastModified(Wide("file").c_str(), time);
    EXPECT_TRUE(time == At(1970, 1, 1, 0, 0, 1));
}

} // namespace
