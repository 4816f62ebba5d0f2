#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Waiting.h>
#include <Tests/Tools/WfsProgram.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using TestSupport::Call;
using TestSupport::Child;
using TestSupport::Program;
using TestSupport::ProgramResult;
using TestSupport::Recorder;

using CatTest = WfsTest;

constexpr int SUCCESS = 0;
constexpr int FAILURE = 1;
constexpr int LOCK_NOT_OBTAINED = 75;

std::string const MISSING_FILE = "wfs: WFileSystem::ReadableFileImpl::ReadableFileImpl: ::open failed for 'missing'.\n"
                                 "No such file or directory\n";
std::string const LOCKED_FILE = "wfs: 'locked': Another process holds the record lock.\n";

/// Every byte value but zero, in lines of many lengths.
std::string MakeText(std::size_t size) {
    std::string text;
    for (std::size_t index = 0; index < size; ++index) {
        text.push_back(static_cast<char>(index % 251 == 0 ? '\n' : index % 255 + 1));
    }
    return text;
}

// What is written

TEST_F(CatTest, WritesTheFile) {
    Write("file", "first line\nlast line");
    ProgramResult const result = Run({"cat", "file"});
    EXPECT_EQ(result.output, "first line\nlast line");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, SUCCESS);
}

TEST_F(CatTest, WritesTheFilesInTheirOrder) {
    Write("a", "1");
    Write("b", "2");
    EXPECT_EQ(Run({"cat", "b", "a", "b"}).output, "212");
}

TEST_F(CatTest, WritesNothingForAnEmptyFile) {
    Write("empty", "");
    ProgramResult const result = Run({"cat", "empty"});
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_EQ(result.status, SUCCESS);
}

TEST_F(CatTest, WritesZeroBytesAndABigFileAsTheyAre) {
    std::string const bytes = MakeText(3'000'000) + std::string(1000, '\0') + "end";
    Write("big", bytes);
    ProgramResult const result = Run({"cat", "big"});
    EXPECT_TRUE(result.output == bytes);
    EXPECT_EQ(result.status, SUCCESS);
}

TEST_F(CatTest, ReadsBlocksOf256KiBUpToAnEmptyOne) {
    Write("big", MakeText(1024UL * 1024));
    ProgramResult const result = RunObserved({"cat", "big"}, [](Recorder& recorder, Child::Parent&) {
        recorder.On("read").First(4).Before([](Call const& call) { EXPECT_EQ(call.size, 256UL * 1024); });
        recorder.On("read").Nth(5).After([](Call const& call) { EXPECT_EQ(call.result, 0); });
    });
    EXPECT_EQ(result.status, SUCCESS) << result.errors;
}

TEST_F(CatTest, ReportsAReadFailureAfterTheFirstBytes) {
    Write("file", "some text");
    ProgramResult const result = RunObserved({"cat", "file"}, [](Recorder& recorder, Child::Parent&) {
        recorder.On("read").Nth(1).Limit(4);
        recorder.On("read").From(2).Fail(EIO);
    });
    EXPECT_EQ(result.output, "some");
    EXPECT_THAT(result.errors, EndsWith("file'.\nInput/output error\n"));
    EXPECT_EQ(result.status, FAILURE);
}

// Names

TEST_F(CatTest, ReadsFilesOfUnusualNames) {
    for (std::string const name :
         {"cat", "help", "-", "%1", "%%", "{}", "[a,b]", "[", "a b", "a\nb", "Ärger", "日本.txt", "\U0001F600"}) {
        Write(name, "content of " + name);
        ProgramResult const result = Run({"cat", name});
        EXPECT_EQ(result.output, "content of " + name);
        EXPECT_EQ(result.errors, "");
    }
}

TEST_F(CatTest, ReadsAFileThatLooksLikeAnOptionBehindTwoDashes) {
    Write("--lines", "text");
    EXPECT_EQ(Run({"cat", "--", "--lines"}).output, "text");
}

TEST_F(CatTest, ReadsAFileByTheLongestPath) {
    constexpr std::size_t LONGEST = 4095;
    Write("file", "text");
    std::string path = "file";
    path = std::string((LONGEST - path.size()) / 2 * 2, '.') + path;
    for (std::size_t index = 1; index < path.size() - 4; index += 2) {
        path[index] = '/';
    }
    EXPECT_EQ(Run({"cat", path}).output, "text");
    EXPECT_THAT(Run({"cat", "./././" + path}).errors, EndsWith("/file'.\nFile name too long\n"));
}

TEST_F(CatTest, ReportsAnArgumentThatIsNotUTF8) {
    ProgramResult const result = Run({"cat", "bad\xFFname"});
    EXPECT_EQ(
        result.errors, "wfs: 'bad\uFFFDname': Failed to convert UTF-8 text: the byte 0xFF at index 3 does not begin or "
                       "continue a valid sequence.\n");
    EXPECT_EQ(result.status, FAILURE);
}

TEST_F(CatTest, ReportsAMissingFileInTwoLines) {
    ProgramResult const result = Run({"cat", "missing"});
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, MISSING_FILE);
    EXPECT_EQ(result.status, FAILURE);
}

TEST_F(CatTest, ReportsAnEmptyPath) {
    ProgramResult const result = Run({"cat", ""});
    EXPECT_THAT(result.errors, EndsWith("::open failed for ''.\nNo such file or directory\n"));
    EXPECT_EQ(result.status, FAILURE);
}

TEST_F(CatTest, ReportsMissingFilesByNamesInUTF8) {
    EXPECT_THAT(Run({"cat", "日本 %1"}).errors, HasSubstr("::open failed for '日本 %1'.\n"));
}

TEST_F(CatTest, NamesADirectoryAsItWasGivenBesideItsAbsolutePath) {
    ProgramResult const result = Run({"cat", "."});
    EXPECT_EQ(
        result.errors, "wfs: '.': Failed to read 262144 bytes from file '" + scratch_.Path() + "'.\nIs a directory\n");
    EXPECT_EQ(result.status, FAILURE);
}

TEST_F(CatTest, NamesThePathWhereTheWorkingDirectoryIsNotUTF8) {
    ProgramResult const result = RunScript("mkdir \"$(printf 'b\\377d')\" && cd b* && \"$WFS\" cat .");
    EXPECT_THAT(result.errors, HasSubstr("wfs: '.': Failed to convert UTF-8 text: "));
    EXPECT_EQ(result.status, FAILURE);
}

TEST_F(CatTest, GoesOnAfterAFailureInTheOrderOfThePaths) {
    Write("a", "1\n");
    Write("b", "2\n");
    ProgramResult const result = RunScript("\"$WFS\" cat a missing b 2>&1");
    EXPECT_EQ(result.output, "1\n" + MISSING_FILE + "2\n");
    EXPECT_EQ(result.status, FAILURE);
}

// Locks

TEST_F(CatTest, HoldsTheSharedRecordLockWhileItReads) {
    Write("big", MakeText(8'000'000));
    Program program(Command({"cat", "big"}), Options());
    // It can't write all of the file as long as nobody takes the output.
    EXPECT_TRUE(
        TestSupport::WaitUntil([&] { return TestSupport::RecordLockSeenByOthers(scratch_ / "big") == "READ"; }));
    EXPECT_EQ(program.Wait().status, SUCCESS);
}

TEST_F(CatTest, SharesTheFileWithAnotherReader) {
    Write("big", MakeText(8'000'000));
    Program other(Command({"cat", "big"}), Options());
    ASSERT_TRUE(other.WaitForOutput("\n"));
    EXPECT_EQ(Run({"cat", "--no-wait", "big"}).status, SUCCESS);
    EXPECT_EQ(other.Wait().status, SUCCESS);
}

TEST_F(CatTest, NoWaitFailsAtOnceWhileAnotherProcessHoldsTheFile) {
    Write("locked", "text");
    LockHolder const holder(scratch_ / "locked");
    ProgramResult const result = Run({"cat", "--no-wait", "locked"});
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.errors, LOCKED_FILE);
    EXPECT_EQ(result.status, LOCK_NOT_OBTAINED);
}

TEST_F(CatTest, NoWaitTriesOnce) {
    Write("locked", "text");
    LockHolder const holder(scratch_ / "locked");
    ProgramResult const result = RunObserved({"cat", "--no-wait", "locked"}, [](Recorder& recorder, Child::Parent&) {
        recorder.On("fcntl").Command(F_SETLK).Nth(1).After([](Call const& call) { EXPECT_EQ(call.result, -1); });
        recorder.On("fcntl").Command(F_SETLK).From(2).Optional().Before([](Call const&) { ADD_FAILURE(); });
        recorder.On("nanosleep").Optional().Before([](Call const&) { ADD_FAILURE(); });
    });
    EXPECT_EQ(result.status, LOCK_NOT_OBTAINED) << result.errors;
}

TEST_F(CatTest, WaitFailsWhenTheTimeIsOver) {
    Write("locked", "text");
    LockHolder const holder(scratch_ / "locked");
    for (std::string const time : {"0", "1", "010"}) {
        ProgramResult const result = Run({"cat", "--wait", time, "locked"});
        EXPECT_EQ(result.errors, LOCKED_FILE);
        EXPECT_EQ(result.status, LOCK_NOT_OBTAINED);
    }
}

TEST_F(CatTest, WaitSleepsForTheTimeItWasGiven) {
    Write("locked", "text");
    LockHolder const holder(scratch_ / "locked");
    ProgramResult const result = RunObserved({"cat", "--wait=7010", "locked"}, [](Recorder& recorder, Child::Parent&) {
        recorder.On("nanosleep").Nth(1).Instead([](Call const& call) {
            EXPECT_EQ(call.details, "5s 0ns");
            return 0;
        });
        recorder.On("nanosleep").Nth(2).Instead([](Call const& call) {
            EXPECT_EQ(call.details, "2s 10000000ns");
            return 0;
        });
    });
    EXPECT_EQ(result.errors, LOCKED_FILE);
    EXPECT_EQ(result.status, LOCK_NOT_OBTAINED);
}

TEST_F(CatTest, WaitGetsTheLockThatComesFreeWhileItSleeps) {
    Write("locked", "text");
    LockHolder const holder(scratch_ / "locked");
    auto const sleep = [](Recorder& recorder, Child::Parent& parent) {
        recorder.On("nanosleep").Instead([&parent](Call const&) {
            parent.Say("sleeping");
            parent.WaitFor("released");
            return 0;
        });
    };
    ProgramResult const result = RunObserved({"cat", "--wait", "60000", "locked"}, sleep, [&](Child& child) {
        ASSERT_TRUE(child.WaitFor("sleeping"));
        holder.Release();
        child.Say("released");
    });
    EXPECT_EQ(result.output, "text");
    EXPECT_EQ(result.status, SUCCESS) << result.errors;
}

TEST_F(CatTest, WaitGetsTheLockWhenTheHoldersProcessReleasesIt) {
    Write("free", "It runs.");
    Write("locked", "text");
    Child holder([this](Child::Parent& parent) {
        LockHolder const lock(scratch_ / "locked");
        parent.Say("locked");
        parent.WaitFor("release");
    });
    ASSERT_TRUE(holder.WaitFor("locked"));
    Program program(Command({"cat", "--wait", "500", "free", "locked"}), Options());
    ASSERT_TRUE(program.WaitForOutput("It runs."));
    holder.Say("release");
    ProgramResult const result = program.Wait();
    EXPECT_EQ(result.output, "It runs.text");
    EXPECT_EQ(result.status, SUCCESS) << result.errors;
}

TEST_F(CatTest, WithoutOptionsItWaitsUntilTheHolderHasReleasedTheLock) {
    Write("locked", "text");
    LockHolder const holder(scratch_ / "locked");
    auto const observe = [](Recorder& recorder, Child::Parent& parent) {
        recorder.On("fcntl").Command(F_SETLKW).Before([&parent](Call const&) { parent.Say("waiting"); });
    };
    ProgramResult const result = RunObserved({"cat", "locked"}, observe, [&](Child& child) {
        ASSERT_TRUE(child.WaitFor("waiting"));
        holder.Release();
    });
    EXPECT_EQ(result.output, "text");
    EXPECT_EQ(result.status, SUCCESS) << result.errors;
}

TEST_F(CatTest, ReportsALockThatCannotBeTaken) {
    Write("file", "text");
    for (std::string const option : {"--no-wait", "--wait=1", "--"}) {
        ProgramResult const result = RunObserved({"cat", option, "file"}, [](Recorder& recorder, Child::Parent&) {
            auto const isLock = [](Call const& call) { return call.command == F_SETLK || call.command == F_SETLKW; };
            recorder.On("fcntl").Where(isLock).Fail(ENOLCK);
        });
        EXPECT_EQ(
            result.errors, "wfs: 'file': Failed to lock file '" + (scratch_ / "file") + "'.\nNo locks available\n");
        EXPECT_EQ(result.status, FAILURE);
    }
}

TEST_F(CatTest, ReportsAFileSystemWithoutRecordLocks) {
    Write("file", "text");
    ProgramResult const result = RunObserved({"cat", "--no-wait", "file"}, [](Recorder& recorder, Child::Parent&) {
        recorder.On("fcntl").Command(F_SETLK).Fail(ENOTSUP);
    });
    EXPECT_EQ(result.errors, "wfs: 'file': The file system does not support record locks.\n");
    EXPECT_EQ(result.status, FAILURE);
}

TEST_F(CatTest, StatusIs75OnlyWhenNothingWorseHappened) {
    Write("locked", "");
    Write("file", "text");
    LockHolder const holder(scratch_ / "locked");
    struct Case {
        std::vector<std::string> paths;
        std::string output;
        std::string errors;
        int status;
    };
    for (Case const& row : std::vector<Case>{
             {{"locked", "file"}, "text", LOCKED_FILE, LOCK_NOT_OBTAINED},
             {{"file", "locked"}, "text", LOCKED_FILE, LOCK_NOT_OBTAINED},
             {{"locked", "locked"}, "", LOCKED_FILE + LOCKED_FILE, LOCK_NOT_OBTAINED},
             {{"locked", "missing", "file"}, "text", LOCKED_FILE + MISSING_FILE, FAILURE},
             {{"missing", "locked", "file"}, "text", MISSING_FILE + LOCKED_FILE, FAILURE}}) {
        std::vector<std::string> arguments = {"cat", "--no-wait"};
        arguments.insert(arguments.end(), row.paths.begin(), row.paths.end());
        ProgramResult const result = Run(arguments);
        EXPECT_EQ(result.output, row.output);
        EXPECT_EQ(result.errors, row.errors);
        EXPECT_EQ(result.status, row.status);
    }
}

// --lines

TEST_F(CatTest, LinesWritesTextAsItIs) {
    for (std::string const& text :
         {std::string(), std::string("\n"), std::string("no line feed"), std::string("a\n\nb\n"),
          std::string(10'000, 'x') + "\ny", MakeText(100'000)}) {
        Write("text", text);
        ProgramResult const result = Run({"cat", "--lines", "text"});
        EXPECT_TRUE(result.output == text);
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.status, SUCCESS);
    }
}

TEST_F(CatTest, LinesReadsByLine) {
    Write("text", "a\nb\n");
    ProgramResult const result = RunObserved({"cat", "--lines", "text"}, [](Recorder& recorder, Child::Parent&) {
        recorder.On("lseek").Nth(1).Before([](Call const& call) { EXPECT_EQ(call.offset, -2); });
    });
    EXPECT_EQ(result.output, "a\nb\n");
    EXPECT_EQ(result.status, SUCCESS) << result.errors;
}

TEST_F(CatTest, LinesReportsAZeroByteThatStopsIt) {
    Write("binary", std::string("a\nbc\0d", 6));
    Write("text", "rest\n");
    ProgramResult const result = Run({"cat", "--lines", "binary", "text"});
    EXPECT_EQ(result.output, "a\nbcrest\n");
    EXPECT_EQ(result.errors, "wfs: 'binary': Stopped at a zero byte, at offset 4; --lines is for text.\n");
    EXPECT_EQ(result.status, FAILURE);
}

TEST_F(CatTest, LinesGoesOnWhereTheFileHasGrownAtItsEnd) {
    Write("text", "a\n");
    std::string const path = scratch_ / "text";
    ProgramResult const result = RunObserved({"cat", "--lines", "text"}, [&](Recorder& recorder, Child::Parent&) {
        // The first two belong to the first line; the third one finds the end.
        recorder.On("read").Nth(3).After([&](Call const& call) {
            EXPECT_EQ(call.result, 0);
            TestSupport::WriteFile(path, "a\nbc\n");
        });
    });
    EXPECT_EQ(result.output, "a\nbc\n");
    EXPECT_EQ(result.status, SUCCESS) << result.errors;
}

TEST_F(CatTest, LinesReportsAFileThatCannotBePositioned) {
    ASSERT_EQ(::mkfifo((scratch_ / "fifo").c_str(), 0600), 0);
    ProgramResult const result = RunScript("printf 'a\\nb\\n' >fifo & \"$WFS\" cat --lines fifo");
    EXPECT_THAT(result.errors, HasSubstr("Failed to set current position of file"));
    EXPECT_EQ(result.status, FAILURE);
}

// Standard streams

TEST_F(CatTest, StopsWhenStandardOutputIsFull) {
    if (!TestSupport::Exists("/dev/full")) {
        GTEST_SKIP() << "This system has no /dev/full.";
    }
    Write("file", "text");
    for (std::string const option : {"", "--lines"}) {
        ProgramResult const result = RunScript("\"$WFS\" cat " + option + " file missing >/dev/full");
        EXPECT_EQ(result.errors, "wfs: standard output: WFileSystem::File::Write: Failed.\nNo space left on device\n");
        EXPECT_EQ(result.status, FAILURE);
    }
}

TEST_F(CatTest, EndsQuietlyWhenItsReaderGoesAway) {
    Write("big", MakeText(8'000'000));
    ProgramResult const result = RunScript("{ \"$WFS\" cat big; echo $? >status; } | head -c 1");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(TestSupport::ReadFile(scratch_ / "status"), std::to_string(128 + SIGPIPE) + "\n");
}

TEST_F(CatTest, ReportsAReaderThatGoesAwayWhereSIGPIPEIsIgnored) {
    Write("big", MakeText(8'000'000));
    ProgramResult const result = RunScript("{ trap '' PIPE; \"$WFS\" cat big; echo $? >status; } | head -c 1");
    EXPECT_EQ(result.errors, "wfs: standard output: WFileSystem::File::Write: Failed.\nBroken pipe\n");
    EXPECT_EQ(TestSupport::ReadFile(scratch_ / "status"), "1\n");
}

TEST_F(CatTest, ReportsAClosedStandardOutput) {
    Write("file", "text");
    TestSupport::ProgramOptions options = Options();
    options.closed = {STDOUT_FILENO};
    ProgramResult const result = TestSupport::RunProgram(Command({"cat", "file"}), "", options);
    EXPECT_EQ(result.errors, "wfs: standard output: WFileSystem::File::Write: Failed.\nBad file descriptor\n");
    EXPECT_EQ(result.status, FAILURE);
    EXPECT_EQ(TestSupport::ReadFile(scratch_ / "file"), "text");
}

TEST_F(CatTest, ReportsAFailureToCloseStandardOutput) {
    Write("empty", "");
    ProgramResult const result = RunObserved({"cat", "empty"}, [](Recorder& recorder, Child::Parent&) {
        recorder.On("read").After([](Call const&) { ::close(STDOUT_FILENO); });
    });
    EXPECT_EQ(result.errors, "wfs: standard output: Bad file descriptor\n");
    EXPECT_EQ(result.status, FAILURE);
}

TEST_F(CatTest, DoesNotNeedStandardInputAndError) {
    Write("file", "text");
    TestSupport::ProgramOptions options = Options();
    options.closed = {STDIN_FILENO, STDERR_FILENO};
    ProgramResult const result = TestSupport::RunProgram(Command({"cat", "missing", "file"}), "", options);
    EXPECT_EQ(result.output, "text");
    EXPECT_EQ(result.status, FAILURE);
}

TEST_F(CatTest, RefusesTheFileThatStandardOutputGoesInto) {
    Write("file", "text");
    Write("other", "other");
    ProgramResult const result = RunScript("\"$WFS\" cat ./file other >>file");
    EXPECT_EQ(result.errors, "wfs: './file': Not read, because standard output goes into this file.\n");
    EXPECT_EQ(result.status, FAILURE);
    EXPECT_EQ(TestSupport::ReadFile(scratch_ / "file"), "textother");
}

TEST_F(CatTest, ReadsADeviceThatIsAlsoStandardOutput) {
    ProgramResult const result = RunScript("\"$WFS\" cat /dev/null >/dev/null");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, SUCCESS);
}

} // namespace
