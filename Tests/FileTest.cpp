// Opening files with WFileSystem::File, as descriptors and as streams.

#include <FileSystem/File.h>

#include <FileSystem/Initializer.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Environment.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Program.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Text.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <fcntl.h>
#include <limits.h>
#include <string>
#include <sys/stat.h>
#include <thread>
#include <type_traits>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using TestSupport::Call;
using TestSupport::CloseDuring;
using TestSupport::DescriptorCheck;
using TestSupport::Environment;
using TestSupport::Exists;
using TestSupport::ModeOf;
using TestSupport::ReadFile;
using TestSupport::Recorder;
using TestSupport::WriteFile;
using WFileSystem::File;

/// Short forms of the opens, and a directory for the files.
class FileTest : public testing::Test {
protected:
    static int OpenDescriptor(std::wstring const& path, unsigned int mode = File::OPEN_READ) {
        return File::OpenDescriptor(path.c_str(), static_cast<File::OpenMode>(mode), File::SHARE_IGNORED);
    }

    static FILE* OpenStream(std::wstring const& path, unsigned int mode = File::OPEN_READ) {
        return File::OpenStream(path.c_str(), static_cast<File::OpenMode>(mode), File::SHARE_IGNORED);
    }

    static void OpenAndCloseDescriptor(std::wstring const& path, unsigned int mode) {
        ::close(OpenDescriptor(path, mode));
    }

    static void OpenAndCloseStream(std::wstring const& path, unsigned int mode) { std::fclose(OpenStream(path, mode)); }

    static std::wstring OpenFailure(std::wstring const& path) {
        return L"WFileSystem::File::OpenDescriptor: ::open failed for '" + path + L"'.";
    }

    static std::wstring StreamFailure(std::wstring const& path) {
        return L"WFileSystem::File::OpenStream: ::fopen failed for '" + path + L"'.";
    }

    std::string Make(std::string const& name, std::string const& content = "") const {
        WriteFile(scratch_ / name, content);
        return scratch_ / name;
    }

    /// A path of exactly so many bytes that leads to the entry.
    std::string PathOfLength(std::size_t length, std::string const& name) const {
        std::string path = scratch_.Path();
        while (path.size() + 2 + 1 + name.size() <= length) {
            path += "/.";
        }
        return path + std::string(length - path.size() - name.size(), '/') + name;
    }

    TestSupport::ScratchDirectory scratch_;
    std::wstring const path_ = scratch_.Wide("file");
};

/// Takes back the umask at the end.
class Umask {
public:
    explicit Umask(mode_t mask) : former_(::umask(mask)) {}
    Umask(Umask const&) = delete;
    Umask& operator=(Umask const&) = delete;
    ~Umask() { ::umask(former_); }

private:
    mode_t former_;
};

constexpr wchar_t SURROGATE = static_cast<wchar_t>(0xD800);

// Modes

static_assert(std::is_same_v<std::underlying_type_t<File::OpenMode>, unsigned int>);
static_assert(std::is_same_v<std::underlying_type_t<File::ShareMode>, unsigned int>);
static_assert(File::OPEN_READ == 0 && File::OPEN_WRITE_TRUNCATE == 1 && File::OPEN_WRITE_APPEND == 2);
static_assert(File::OPEN_READ_WRITE == 3 && File::OPEN_READ_WRITE_TRUNCATE == 4 && File::OPEN_READ_APPEND == 5);
static_assert(File::OPEN_WRITE_CREATE == 6 && File::SHARE_IGNORED == 0);

TEST_F(FileTest, EachModeHasItsFlagsAsADescriptor) {
    std::string const quoted = '"' + Make("file") + '"';
    std::vector<std::pair<unsigned int, std::string>> const rows = {
        {0, "O_RDONLY|O_NOCTTY"},
        {1, "O_WRONLY|O_CREAT|O_TRUNC|O_NOCTTY, 0664"},
        {2, "O_WRONLY|O_CREAT|O_APPEND|O_NOCTTY, 0664"},
        {3, "O_RDWR|O_NOCTTY"},
        {4, "O_RDWR|O_CREAT|O_TRUNC|O_NOCTTY, 0664"},
        {5, "O_RDWR|O_CREAT|O_APPEND|O_NOCTTY, 0664"},
        {6, "O_WRONLY|O_CREAT|O_NOCTTY, 0664"},
        {7, "O_RDONLY|O_NOCTTY"},
        {8, "O_RDONLY|O_NOCTTY"},
        {0x80000000, "O_RDONLY|O_NOCTTY"},
        {0xFFFFFFFF, "O_RDONLY|O_NOCTTY"},
    };
    for (auto const& [mode, flags] : rows) {
        Recorder recorder;
        OpenAndCloseDescriptor(path_, mode);
        EXPECT_EQ(recorder.Calls().at(0), "open(" + quoted + ", " + flags + ")") << mode;
    }
}

TEST_F(FileTest, EachModeHasItsTextAsAStream) {
    std::string const quoted = '"' + Make("file") + '"';
    std::vector<std::string> const texts = {"r", "w", "a", "r+", "w+", "a+", "r+"};
    for (unsigned int mode = 0; mode < texts.size(); ++mode) {
        Recorder recorder;
        OpenAndCloseStream(path_, mode);
        EXPECT_EQ(recorder.Calls().at(0), "fopen(" + quoted + ", \"" + texts[mode] + "\")");
    }
}

TEST_F(FileTest, AModeAboveTheListOpensNoStream) {
    Make("file");
    for (unsigned int const mode : {7U, 8U, 0x80000000U, 0xFFFFFFFFU}) {
        Recorder recorder;
        errno = EIO; // what a former call left
        EXPECT_REPORT(OpenStream(path_, mode), StreamFailure(path_), EINVAL);
        EXPECT_EQ(recorder.Names(), "");
    }
}

TEST_F(FileTest, AModeAboveTheListReadsAsADescriptor) {
    Make("file", "text");
    int const fd = OpenDescriptor(path_, 7);
    char bytes[4];
    EXPECT_EQ(::read(fd, bytes, sizeof bytes), 4);
    EXPECT_EQ(::write(fd, "x", 1), -1);
    ::close(fd);
}

TEST_F(FileTest, WriteCreateMakesAMissingFileAsADescriptorOnly) {
    EXPECT_REPORT(OpenStream(path_, File::OPEN_WRITE_CREATE), StreamFailure(path_), ENOENT);
    EXPECT_FALSE(Exists(scratch_ / "file"));
    OpenAndCloseDescriptor(path_, File::OPEN_WRITE_CREATE);
    EXPECT_TRUE(Exists(scratch_ / "file"));
}

TEST_F(FileTest, WriteCreateKeepsWhatAnExistingFileHolds) {
    Make("file", "text");
    OpenAndCloseDescriptor(path_, File::OPEN_WRITE_CREATE);
    OpenAndCloseStream(path_, File::OPEN_WRITE_CREATE);
    EXPECT_EQ(ReadFile(scratch_ / "file"), "text");
}

TEST_F(FileTest, WriteCreateReadsAsAStreamOnly) {
    Make("file", "text");
    char byte = '\0';
    int const fd = OpenDescriptor(path_, File::OPEN_WRITE_CREATE);
    EXPECT_EQ(::read(fd, &byte, 1), -1);
    ::close(fd);
    FILE* const stream = OpenStream(path_, File::OPEN_WRITE_CREATE);
    EXPECT_EQ(std::fgetc(stream), 't');
    std::fclose(stream);
}

TEST_F(FileTest, TheShareModeSelectsNothing) {
    Make("file");
    for (unsigned int const share : {0U, 1U, 0x10U, 0xFFFFFFFFU}) {
        Recorder recorder;
        ::close(File::OpenDescriptor(path_.c_str(), File::OPEN_READ, static_cast<File::ShareMode>(share)));
        std::fclose(File::OpenStream(path_.c_str(), File::OPEN_READ, static_cast<File::ShareMode>(share)));
        EXPECT_THAT(
            recorder.Calls(), ElementsAre(
                                  testing::EndsWith("O_RDONLY|O_NOCTTY)"), "fcntl(F_SETFD, FD_CLOEXEC)", "close()",
                                  testing::EndsWith("\"r\")"), "fcntl(F_SETFD, FD_CLOEXEC)", "fclose()"));
    }
}

// Permission bits of new files

TEST_F(FileTest, WithoutAModuleNewFilesGet0664) {
    Environment const mode("VUSK_FILE_MODE", "600");
    Umask const none(0);
    OpenAndCloseDescriptor(path_, File::OPEN_WRITE_CREATE);
    EXPECT_EQ(ModeOf(scratch_ / "file"), 0664U);
}

TEST_F(FileTest, NewFilesGetThePermissionBitsOfTheModule) {
    Environment const mode("VUSK_FILE_MODE", "777");
    WFileSystem::Initializer const initializer;
    Umask const none(0);
    for (unsigned int const openMode : {1U, 2U, 4U, 5U, 6U}) {
        OpenAndCloseDescriptor(path_, openMode);
        EXPECT_EQ(ModeOf(scratch_ / "file"), 0777U) << openMode;
        ::unlink((scratch_ / "file").c_str());
    }
}

TEST_F(FileTest, WithoutTheModuleAnyMoreNewFilesGet0664) {
    Environment const mode("VUSK_FILE_MODE", "777");
    { WFileSystem::Initializer const initializer; }
    Umask const none(0);
    OpenAndCloseDescriptor(path_, File::OPEN_WRITE_CREATE);
    EXPECT_EQ(ModeOf(scratch_ / "file"), 0664U);
}

TEST_F(FileTest, TheUmaskApplies) {
    Umask const forOthers(027);
    OpenAndCloseDescriptor(path_, File::OPEN_WRITE_CREATE);
    EXPECT_EQ(ModeOf(scratch_ / "file"), 0640U);
}

TEST_F(FileTest, AnExistingFileKeepsItsPermissionBits) {
    ::chmod(Make("file").c_str(), 0600);
    OpenAndCloseDescriptor(path_, File::OPEN_WRITE_TRUNCATE);
    EXPECT_EQ(ModeOf(scratch_ / "file"), 0600U);
}

TEST_F(FileTest, StreamsLeaveThePermissionBitsToTheCLibrary) {
    Environment const mode("VUSK_FILE_MODE", "660");
    WFileSystem::Initializer const initializer;
    Umask const none(0);
    OpenAndCloseStream(path_, File::OPEN_WRITE_TRUNCATE);
    EXPECT_EQ(ModeOf(scratch_ / "file"), 0666U);
}

// Close-on-exec

TEST_F(FileTest, CloseOnExecIsSetByASecondCallWithoutReadingTheFlags) {
    std::string const quoted = '"' + Make("file") + '"';
    Recorder recorder;
    int const fd = OpenDescriptor(path_);
    FILE* const stream = OpenStream(path_);
    recorder.Stop();
    std::string const number = std::to_string(fd);
    std::string const streamNumber = std::to_string(::fileno(stream));
    EXPECT_THAT(
        recorder.Calls(Recorder::DESCRIPTORS),
        ElementsAre(
            "open(" + quoted + ", O_RDONLY|O_NOCTTY)", "fcntl(" + number + ", F_SETFD, FD_CLOEXEC)",
            "fopen(" + quoted + ", \"r\")", "fcntl(" + streamNumber + ", F_SETFD, FD_CLOEXEC)"));
    ::close(fd);
    std::fclose(stream);
}

TEST_F(FileTest, WhatIsOpenedIsNotInheritedByPrograms) {
    Make("file");
    int const fd = OpenDescriptor(path_);
    FILE* const stream = OpenStream(path_);
    int const inherited = ::dup(fd);
    auto const isInherited = [](int number) {
        return TestSupport::RunProgram({"test", "-e", "/dev/fd/" + std::to_string(number)}).status == 0;
    };
    EXPECT_FALSE(isInherited(fd));
    EXPECT_FALSE(isInherited(::fileno(stream)));
    EXPECT_TRUE(isInherited(inherited));
    ::close(inherited);
    std::fclose(stream);
    ::close(fd);
}

TEST_F(FileTest, SettingCloseOnExecIsRepeatedWhileInterrupted) {
    Make("file");
    Recorder recorder;
    recorder.On("fcntl").Command(F_SETFD).First(50).Fail(EINTR);
    int const fd = OpenDescriptor(path_);
    EXPECT_EQ(recorder.Count("fcntl"), 51U);
    recorder.On("fcntl").Command(F_SETFD).First(50).Fail(EINTR);
    FILE* const stream = OpenStream(path_);
    EXPECT_EQ(recorder.Count("fcntl"), 102U);
    EXPECT_TRUE(TestSupport::IsCloseOnExec(fd));
    EXPECT_TRUE(TestSupport::IsCloseOnExec(::fileno(stream)));
    ::close(fd);
    std::fclose(stream);
}

TEST_F(FileTest, AnotherFailureToSetCloseOnExecIsIgnored) {
    Make("file");
    Recorder recorder;
    recorder.On("fcntl").Fail(EIO);
    int const fd = OpenDescriptor(path_);
    FILE* const stream = OpenStream(path_);
    EXPECT_EQ(recorder.Names(), "open fcntl fopen fcntl");
    EXPECT_EQ(::close(fd), 0);
    EXPECT_EQ(std::fclose(stream), 0);
}

// Interruptions and failures

TEST_F(FileTest, AnInterruptedOpenIsRepeatedWithoutLimit) {
    std::string const open = "open(\"" + Make("file") + "\", O_RDONLY|O_NOCTTY)";
    Recorder recorder;
    recorder.On("open").First(100).Fail(EINTR);
    ::close(OpenDescriptor(path_));
    std::vector<std::string> const calls = recorder.Calls();
    ASSERT_EQ(calls.size(), 103U);
    EXPECT_EQ(std::vector<std::string>(calls.begin(), calls.begin() + 101), std::vector<std::string>(101, open));
}

TEST_F(FileTest, AnInterruptedOpenOfAStreamIsNotRepeated) {
    Make("file");
    Recorder recorder;
    recorder.On("fopen").Fail(EINTR);
    EXPECT_REPORT(OpenStream(path_), StreamFailure(path_), EINTR);
    EXPECT_EQ(recorder.Names(), "fopen");
}

TEST_F(FileTest, AFailedOpenIsReportedWithItsErrorAndLeavesNothingOpen) {
    DescriptorCheck const check;
    for (int const error : {ENOENT, EACCES, EMFILE, ENOSPC, EAGAIN}) {
        Recorder recorder;
        recorder.On("open").Fail(error);
        recorder.On("fopen").Fail(error);
        EXPECT_REPORT(OpenDescriptor(path_, File::OPEN_WRITE_CREATE), OpenFailure(path_), error);
        EXPECT_REPORT(OpenStream(path_), StreamFailure(path_), error);
        EXPECT_EQ(recorder.Names(), "open fopen");
    }
}

TEST_F(FileTest, ErrorsAreReadBeforeAnythingIsAllocated) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::Allocations const allocations; // each changes errno
    EXPECT_REPORT(OpenDescriptor(path_), OpenFailure(path_), ENOENT);
    EXPECT_REPORT(OpenStream(path_), StreamFailure(path_), ENOENT);
}

TEST_F(FileTest, PathsStandInReportsAsTheyWereGiven) {
    std::string const longest = PathOfLength(PATH_MAX, "x"); // one byte too many, with the NUL
    struct Row {
        std::wstring path;
        int error;
    };
    std::vector<Row> const rows = {
        {L"no/such/file", ENOENT},
        {L"./no/../no//such", ENOENT},
        {L"", ENOENT},
        {L"no\\such\\file", ENOENT},
        {L"/no/%1/%2", ENOENT},
        {L"/no/Stra\u00DFe/\u65E5\u672C/\U0001F600", ENOENT},
        {L"/no/'quoted'\nline", ENOENT},
        {TestSupport::Widen(longest), ENAMETOOLONG},
        {std::wstring(5000, L'x'), ENAMETOOLONG},
    };
    for (Row const& row : rows) {
        EXPECT_REPORT(OpenDescriptor(row.path), OpenFailure(row.path), row.error);
        EXPECT_REPORT(OpenStream(row.path), StreamFailure(row.path), row.error);
    }
}

TEST_F(FileTest, EveryNameLeadsToItsFile) {
    std::vector<std::string> const names = {
        "plain",
        "%1 and %2",
        "Stra\u00DFe",
        "\u65E5\u672C",
        "\U0001F600",
        "back\\slash",
        "line\nfeed",
        " ",
        "'quoted'",
        "*?[a]",
        std::string(NAME_MAX, 'x'),
    };
    for (std::string const& name : names) {
        Make(name, name);
        FILE* const stream = OpenStream(scratch_.Wide(name));
        char content[NAME_MAX + 1] = "";
        EXPECT_EQ(std::fread(content, 1, sizeof content, stream), name.size());
        EXPECT_EQ(content, name);
        std::fclose(stream);
        ::close(OpenDescriptor(scratch_.Wide(name), File::OPEN_WRITE_TRUNCATE));
        EXPECT_EQ(ReadFile(scratch_ / name), "");
    }
}

TEST_F(FileTest, APathOfTheGreatestLengthIsOpened) {
    Make("file");
    std::string const longest = PathOfLength(PATH_MAX - 1, "file");
    ASSERT_EQ(longest.size(), PATH_MAX - 1U);
    OpenAndCloseDescriptor(TestSupport::Widen(longest), File::OPEN_READ);
    OpenAndCloseStream(TestSupport::Widen(longest), File::OPEN_READ);
}

TEST_F(FileTest, ReportsOnRelativePathsDoNotNeedTheWorkingDirectory) {
    std::string const undecodable = scratch_ / "a\xFF";
    TestSupport::MakeDirectory(undecodable);
    TestSupport::WorkingDirectory const inside(undecodable);
    OpenAndCloseDescriptor(L"file", File::OPEN_WRITE_CREATE);
    OpenAndCloseStream(L"file", File::OPEN_READ);
    Recorder recorder;
    EXPECT_REPORT(OpenDescriptor(L"missing"), OpenFailure(L"missing"), ENOENT);
    EXPECT_REPORT(OpenStream(L"missing"), StreamFailure(L"missing"), ENOENT);
    EXPECT_EQ(recorder.Names(), "open fopen");
}

TEST_F(FileTest, APathThatCannotBeConvertedIsReportedWithTheConversionsFailure) {
    std::wstring const path = std::wstring(L"/no/%1/\u00E9") + SURROGATE;
    std::wstring const tail = L": Failed to convert file path '" + path +
                              L"' to UTF-8.\nFailed to convert wide text: the character U+D800 at index 8 is not a "
                              L"Unicode scalar value.";
    TestSupport::ExpectedMessage expected = {
        &typeid(WBase::ExceptionImpl<WBase::Message>), WBase::MESSAGE_DOMAIN_ERRNO, EILSEQ,
        L"WFileSystem::File::OpenDescriptor" + tail};
    Recorder recorder;
    EXPECT_TRUE(TestSupport::Throws([&] { OpenDescriptor(path); }, expected));
    expected.text = L"WFileSystem::File::OpenStream" + tail;
    EXPECT_TRUE(TestSupport::Throws([&] { OpenStream(path); }, expected));
    EXPECT_TRUE(TestSupport::Throws([&] { OpenStream(path, 7); }, expected)); // before the mode is looked at
    EXPECT_EQ(recorder.Names(), "");
}

// Standard descriptors

class FileStandardDescriptorTest : public FileTest, public testing::WithParamInterface<int> {
protected:
    static std::wstring Failure(std::wstring const& path) {
        return L"WFileSystem::File::OpenDescriptor: ::open '" + path + L"' and get system handle.";
    }
};

INSTANTIATE_TEST_SUITE_P(All, FileStandardDescriptorTest, testing::Values(0, 1, 2));

TEST_P(FileStandardDescriptorTest, ItIsRefusedAndClosed) {
    Make("file");
    CloseDuring const closed(GetParam());
    Recorder recorder;
    recorder.On("open").After([](Call&) { errno = EXDEV; });
    recorder.On("close").Fail(EIO); // comes too late to be the report's error
    EXPECT_REPORT(OpenDescriptor(path_), Failure(path_), EXDEV);
    EXPECT_FALSE(TestSupport::IsOpen(GetParam()));
    EXPECT_EQ(recorder.Names(), "open close");
    EXPECT_EQ(recorder.Find("close").fd, GetParam());
}

TEST_P(FileStandardDescriptorTest, ItsCloseIsRepeatedWhileInterrupted) {
    Make("file");
    CloseDuring const closed(GetParam());
    Recorder recorder;
    recorder.On("open").After([](Call&) { errno = 0; });
    recorder.On("close").First(9).FailWithoutCalling(EINTR);
    EXPECT_REPORT(OpenDescriptor(path_), Failure(path_), 0);
    EXPECT_EQ(recorder.Count("close"), 10U);
    EXPECT_FALSE(TestSupport::IsOpen(GetParam()));
}

TEST_P(FileStandardDescriptorTest, TheReportHoldsThePathAsItWasGiven) {
    TestSupport::WorkingDirectory const inside(scratch_.Path());
    Make("%1 \u00E9");
    CloseDuring const closed(GetParam());
    Recorder recorder;
    recorder.On("open").After([](Call&) { errno = 0; });
    EXPECT_REPORT(OpenDescriptor(L"./%1 \u00E9"), Failure(L"./%1 \u00E9"), 0);
}

TEST_P(FileStandardDescriptorTest, AFileThatWasCreatedOrEmptiedByThenStaysSo) {
    Make("full", "text");
    CloseDuring const closed(GetParam());
    EXPECT_THROW(OpenDescriptor(path_, File::OPEN_WRITE_CREATE), WBase::Message);
    EXPECT_THROW(OpenDescriptor(scratch_.Wide("full"), File::OPEN_WRITE_TRUNCATE), WBase::Message);
    EXPECT_TRUE(Exists(scratch_ / "file"));
    EXPECT_EQ(ReadFile(scratch_ / "full"), "");
}

TEST_P(FileStandardDescriptorTest, AStreamMayHaveIt) {
    Make("file", "text");
    CloseDuring const closed(GetParam());
    FILE* const stream = OpenStream(path_);
    EXPECT_EQ(::fileno(stream), GetParam());
    EXPECT_TRUE(TestSupport::IsCloseOnExec(GetParam()));
    EXPECT_EQ(std::fgetc(stream), 't');
    std::fclose(stream);
}

TEST_F(FileTest, DescriptorThreeIsTheFirstThatIsHandedOut) {
    Make("file");
    CloseDuring const closed(3);
    int const fd = OpenDescriptor(path_);
    EXPECT_EQ(fd, 3);
    ::close(fd);
}

// Surprises, costs and threads

TEST_F(FileTest, LinksAreFollowed) {
    Make("file", "text");
    ASSERT_EQ(::symlink("file", (scratch_ / "link").c_str()), 0);
    OpenAndCloseDescriptor(scratch_.Wide("link"), File::OPEN_WRITE_TRUNCATE);
    EXPECT_EQ(ReadFile(scratch_ / "file"), "");
    ASSERT_EQ(::symlink("new", (scratch_ / "dangling").c_str()), 0);
    OpenAndCloseStream(scratch_.Wide("dangling"), File::OPEN_WRITE_TRUNCATE);
    EXPECT_TRUE(Exists(scratch_ / "new"));
}

TEST_F(FileTest, AProgramStartedBetweenTheTwoCallsInheritsTheDescriptor) {
    Make("file");
    int status = -1;
    Recorder recorder;
    recorder.On("fcntl").Command(F_SETFD).Before([&](Call const& call) {
        status = TestSupport::RunProgram({"test", "-e", "/dev/fd/" + std::to_string(call.fd)}).status;
    });
    ::close(OpenDescriptor(path_));
    EXPECT_EQ(status, 0);
}

TEST_F(FileTest, AnOpenAllocatesTheNarrowPathOnly) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    Make("file");
    TestSupport::Allocations allocations;
    int const fd = OpenDescriptor(path_);
    EXPECT_EQ(allocations.GetCount(), 1U);
    FILE* const stream = OpenStream(path_);
    EXPECT_EQ(allocations.Stop(), 2U);
    std::fclose(stream);
    ::close(fd);
}

TEST_F(FileTest, ThreadsOpenFilesAtTheSameTime) {
    DescriptorCheck const check;
    WFileSystem::Initializer const initializer;
    std::vector<std::thread> threads;
    for (int number = 0; number < 4; ++number) {
        threads.emplace_back([this, name = std::to_string(number)] {
            for (int times = 0; times < 50; ++times) {
                OpenAndCloseDescriptor(scratch_.Wide(name), File::OPEN_WRITE_CREATE);
                OpenAndCloseStream(scratch_.Wide(name), File::OPEN_READ);
                EXPECT_REPORT(
                    OpenDescriptor(L"/no/" + TestSupport::Widen(name)), OpenFailure(L"/no/" + TestSupport::Widen(name)),
                    ENOENT);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_THAT(TestSupport::List(scratch_.Path()), ElementsAre("0", "1", "2", "3"));
}

} // namespace
