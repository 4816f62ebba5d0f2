#include <Tests/Support/Terminal.h>
#include <Tests/Tools/WfsProgram.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdlib>
#include <ctime>
#include <fcntl.h>
#include <memory>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using TestSupport::Call;
using TestSupport::Child;
using TestSupport::ProgramResult;
using TestSupport::Recorder;

constexpr int SUCCESS = 0;
constexpr int FAILURE = 1;
constexpr int WRONG_USAGE = 2;

class FilesTest : public WfsTest {
protected:
    std::string Read(std::string const& name) const { return TestSupport::ReadFile(scratch_ / name); }

    bool Exists(std::string const& name) const { return TestSupport::Exists(scratch_ / name); }

    void ExpectFailure(Arguments const& arguments, std::string const& errors) const {
        ProgramResult const result = Run(arguments);
        EXPECT_EQ(result.errors, errors);
        EXPECT_EQ(result.status, FAILURE);
    }

    void SetModification(std::string const& name, time_t seconds) const {
        timespec const times[] = {{seconds, 0}, {seconds, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, (scratch_ / name).c_str(), times, 0), 0);
    }
};

// copy

TEST_F(FilesTest, CopyMakesAnEqualFile) {
    std::string const bytes = std::string(1'000'000, 'x') + std::string(10, '\0') + "end";
    Write("from", bytes);
    Write("to", std::string(2'000'000, 'y'));
    ProgramResult const result = Run({"copy", "from", "to"});
    EXPECT_TRUE(Read("to") == bytes);
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_EQ(result.status, SUCCESS);
}

TEST_F(FilesTest, CopyWithAttributesCopiesThemToo) {
    Write("from", "text");
    ASSERT_EQ(::chmod((scratch_ / "from").c_str(), 0640), 0);
    SetModification("from", 1000);
    EXPECT_EQ(Run({"copy", "--attributes", "from", "to"}).status, SUCCESS);
    struct stat status = {};
    ASSERT_EQ(::stat((scratch_ / "to").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777U, 0640U);
    EXPECT_EQ(status.st_mtime, 1000);
}

TEST_F(FilesTest, CopyReportsAttributesThatCannotBeCopied) {
    Write("from", "text");
    ProgramResult const result =
        RunObserved({"copy", "--attributes", "from", "to"}, [](Recorder& recorder, Child::Parent&) {
            recorder.On("chown").Fail(EPERM);
        });
    EXPECT_EQ(
        result.errors, "wfs: The content is copied, but not all attributes.\n"
                       "Failed to change owner of file 'to'.\nOperation not permitted\n");
    EXPECT_EQ(result.status, FAILURE);
    EXPECT_EQ(Read("to"), "text");
}

TEST_F(FilesTest, CopyRefusesTheFileItselfUnderEachOfItsNames) {
    Write("file", "text");
    ASSERT_EQ(::symlink("file", (scratch_ / "link").c_str()), 0);
    ExpectFailure({"copy", "file", "file"}, "wfs: 'file' and 'file' are the same file, which is not copied.\n");
    ExpectFailure({"copy", "file", "link"}, "wfs: 'file' and 'link' are the same file, which is not copied.\n");
    EXPECT_EQ(Read("file"), "text");
}

TEST_F(FilesTest, CopyOfADirectoryLeavesTheTargetAlone) {
    Write("to", "text");
    ExpectFailure({"copy", ".", "to"}, "wfs: '.' is a directory, which is not copied.\n");
    EXPECT_EQ(Read("to"), "text");
}

TEST_F(FilesTest, CopyNamesThePathThatCannotBeOpened) {
    Write("from", "text");
    ExpectFailure(
        {"copy", "missing", "to"},
        "wfs: WFileSystem::File::OpenStream: ::fopen failed for 'missing'.\nNo such file or directory\n");
    ExpectFailure(
        {"copy", "from", "missing/to"},
        "wfs: WFileSystem::File::OpenStream: ::fopen failed for 'missing/to'.\nNo such file or directory\n");
}

TEST_F(FilesTest, CopyNamesTheTargetThatCannotBeWritten) {
    Write("from", "text");
    ExpectFailure(
        {"copy", "from", "/dev/full"}, "wfs: '/dev/full': WFileSystem::File::Flush: ::fflush failed.\n"
                                       "No space left on device\n");
}

TEST_F(FilesTest, CopyReportsATargetThatCannotBeClosed) {
    Write("from", "text");
    ProgramResult const result = RunObserved(
        {"copy", "from", "to"}, [](Recorder& recorder, Child::Parent&) { recorder.On("fclose").Nth(2).Fail(EDQUOT); });
    EXPECT_EQ(result.errors, "wfs: 'to': The file can't be closed: Disk quota exceeded\n");
    EXPECT_EQ(result.status, FAILURE);
}

class ProgressTest : public FilesTest {
protected:
    static constexpr std::size_t MEBIBYTE = 1024UL * 1024;

    /// Copies four MiB, which are 16 blocks; by the program's clock a look at it takes so many milliseconds.
    ProgramResult CopySlowly(long milliseconds, Prepare const& prepare) {
        Write("from", std::string(4 * MEBIBYTE, 'x'));
        Meanwhile const read = [this](Child&) { shown_ = terminal_.ReadToEnd(); };
        return RunObserved(
            {"copy", "from", "to"},
            [&](Recorder& recorder, Child::Parent& parent) {
                prepare(recorder, parent);
                auto const time = std::make_shared<long>(0);
                recorder.On("clock_gettime").After([time, milliseconds](Call& call) {
                    *time += milliseconds;
                    timespec const now = {*time / 1000, *time % 1000 * 1'000'000};
                    *static_cast<timespec*>(call.data) = now;
                });
            },
            read);
    }

    /// Makes standard error of the program the terminal.
    Prepare UseTerminal() const {
        return [this](Recorder&, Child::Parent&) {
            ::dup2(terminal_.Get(), STDERR_FILENO);
            ::unsetenv("TERM");
        };
    }

    TestSupport::Terminal terminal_;
    std::string shown_;
};

std::string Bar(int filled, std::string const& mebibytes) {
    auto const size = static_cast<std::size_t>(filled);
    return "\r[" + std::string(size, '#') + std::string(40 - size, ' ') + "] " + mebibytes + " MiB of 4";
}

TEST_F(ProgressTest, ACopyShowsItFromTheSecondSecondOnAndTakesItAway) {
    // The first look is at the beginning, the fifth a second later, at the fourth block.
    EXPECT_EQ(CopySlowly(250, UseTerminal()).status, SUCCESS);
    std::string expected;
    for (int block = 4; block <= 16; ++block) {
        expected += Bar(40 * block / 16, std::to_string(block / 4));
    }
    EXPECT_EQ(shown_, expected + "\r\033[K");
}

TEST_F(ProgressTest, ItIsRenewedEvery100MillisecondsAtMost) {
    // The twelfth block is the first after a second. The clock is looked at again when the bar is there, and at the
    // next block it is 90 milliseconds later.
    EXPECT_EQ(CopySlowly(90, UseTerminal()).status, SUCCESS);
    EXPECT_EQ(shown_, Bar(30, "3") + Bar(35, "3") + Bar(40, "4") + "\r\033[K");
}

TEST_F(ProgressTest, AShortCopyShowsNone) {
    EXPECT_EQ(CopySlowly(10, UseTerminal()).status, SUCCESS);
    EXPECT_EQ(shown_, "");
}

TEST_F(ProgressTest, ADumbTerminalShowsNone) {
    Prepare const use = UseTerminal();
    CopySlowly(1000, [use](Recorder& recorder, Child::Parent& parent) {
        use(recorder, parent);
        ::setenv("TERM", "dumb", 1);
    });
    EXPECT_EQ(shown_, "");
}

TEST_F(ProgressTest, AFileShowsNone) {
    ProgramResult const result = CopySlowly(1000, [](Recorder&, Child::Parent&) {});
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, SUCCESS);
}

// move

TEST_F(FilesTest, MoveGivesTheFileAnotherName) {
    Write("from", "new");
    Write("to", "old");
    ProgramResult const result = Run({"move", "from", "to"});
    EXPECT_EQ(Read("to"), "new");
    EXPECT_FALSE(Exists("from"));
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_EQ(result.status, SUCCESS);
}

TEST_F(FilesTest, MoveNamesBothPathsWhenItFails) {
    ExpectFailure(
        {"move", "missing", "to"}, "wfs: Failed to move file 'missing' to 'to'.\nNo such file or directory\n");
}

TEST_F(FilesTest, MoveReportsAnArgumentThatIsNotUTF8) {
    ProgramResult const result = Run({"move", "bad\xFF", "to"});
    EXPECT_THAT(result.errors, HasSubstr("wfs: 'bad\uFFFD': Failed to convert UTF-8 text"));
    EXPECT_EQ(result.status, FAILURE);
}

// delete

TEST_F(FilesTest, DeleteRemovesEachFile) {
    Write("a", "");
    Write("[b]", "");
    ProgramResult const result = Run({"delete", "a", "[b]"});
    EXPECT_EQ(TestSupport::List(scratch_.Path()), std::vector<std::string>{});
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_EQ(result.status, SUCCESS);
}

TEST_F(FilesTest, DeleteGoesOnAfterAFailure) {
    Write("a", "");
    ExpectFailure({"delete", "missing", "a"}, "wfs: Failed to delete file 'missing'.\nNo such file or directory\n");
    EXPECT_FALSE(Exists("a"));
}

TEST_F(FilesTest, DeleteRemovesALinkAndKeepsWhatItNames) {
    Write("file", "");
    ASSERT_EQ(::symlink("file", (scratch_ / "link").c_str()), 0);
    Run({"delete", "link"});
    EXPECT_EQ(TestSupport::List(scratch_.Path()), std::vector<std::string>{"file"});
}

TEST_F(FilesTest, DeleteLeavesDirectoriesAlone) {
    ASSERT_EQ(::mkdir((scratch_ / "directory").c_str(), 0700), 0);
    ProgramResult const result = Run({"delete", "directory"});
    EXPECT_THAT(result.errors, HasSubstr("Failed to delete file 'directory'."));
    EXPECT_EQ(result.status, FAILURE);
    EXPECT_TRUE(Exists("directory"));
}

// stat

TEST_F(FilesTest, StatTellsAboutAFile) {
    Write("\u00E4", "12345");
    SetModification("\u00E4", 951782399);
    ProgramResult const result = Run({"stat", "\u00E4"});
    EXPECT_EQ(
        result.output, "\u00E4\n  size: 5\n  modified: 2000-02-28T23:59:59Z\n  kind: file\n  readable: yes\n"
                       "  writeable: yes\n");
    EXPECT_EQ(result.status, SUCCESS);
}

TEST_F(FilesTest, StatTellsTheKind) {
    ASSERT_EQ(::mkfifo((scratch_ / "pipe").c_str(), 0600), 0);
    EXPECT_THAT(Run({"stat", "."}).output, HasSubstr("kind: directory\n"));
    EXPECT_THAT(Run({"stat", "pipe"}).output, HasSubstr("kind: other\n"));
}

TEST_F(FilesTest, StatTellsWhoMayDoWhat) {
    Write("file", "");
    ProgramResult const result =
        RunObserved({"stat", "file"}, [](Recorder& recorder, Child::Parent&) { recorder.On("access").Fail(EACCES); });
    EXPECT_THAT(result.output, EndsWith("readable: no\n  writeable: no\n"));
}

TEST_F(FilesTest, StatPrintsJson) {
    Write("a \"b\"\n", "12");
    SetModification("a \"b\"\n", 0);
    EXPECT_EQ(
        Run({"stat", "--json", "a \"b\"\n"}).output, "[\n"
                                                     "  {\n"
                                                     "    \"path\": \"a \\\"b\\\"\\n\",\n"
                                                     "    \"size\": 2,\n"
                                                     "    \"modified\": \"1970-01-01T00:00:00Z\",\n"
                                                     "    \"kind\": \"file\",\n"
                                                     "    \"readable\": true,\n"
                                                     "    \"writeable\": true\n"
                                                     "  }\n"
                                                     "]\n");
}

TEST_F(FilesTest, StatGoesOnAfterAFailureAndItsJsonStaysWhole) {
    Write("file", "");
    ProgramResult const result = Run({"stat", "--json", "missing", "file"});
    EXPECT_EQ(result.errors, "wfs: Failed to get attributes of file 'missing'.\nNo such file or directory\n");
    EXPECT_THAT(result.output, HasSubstr("\"path\": \"file\""));
    EXPECT_THAT(result.output, EndsWith("]\n"));
    EXPECT_EQ(result.status, FAILURE);
}

// usage

TEST_F(FilesTest, AMissingPathIsWrongUsage) {
    for (Arguments const& arguments : std::vector<Arguments>{
             {"copy"}, {"copy", "from"}, {"copy", "a", "b", "c"}, {"move", "from"}, {"delete"}, {"stat"}}) {
        EXPECT_EQ(Run(arguments).status, WRONG_USAGE) << arguments[0];
    }
}

} // namespace
