#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Waiting.h>
#include <Tests/Tools/WfsProgram.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <unistd.h>

namespace {

using ::testing::EndsWith;
using ::testing::HasSubstr;
using TestSupport::Call;
using TestSupport::Child;
using TestSupport::Program;
using TestSupport::ProgramResult;
using TestSupport::Recorder;

constexpr int SUCCESS = 0;
constexpr int FAILURE = 1;
constexpr int WRONG_USAGE = 2;
constexpr int LOCK_NOT_OBTAINED = 75;

class PutTest : public WfsTest {
protected:
    ProgramResult Put(Arguments arguments, std::string const& input) const {
        arguments.insert(arguments.begin(), "put");
        return TestSupport::RunProgram(Command(arguments), input, Options());
    }

    std::string Read(std::string const& name) const { return TestSupport::ReadFile(scratch_ / name); }

    bool Exists(std::string const& name) const { return TestSupport::Exists(scratch_ / name); }
};

TEST_F(PutTest, MakesAFileOfTheInput) {
    ProgramResult const result = Put({"file"}, "some text");
    EXPECT_EQ(Read("file"), "some text");
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_EQ(result.status, SUCCESS);
}

TEST_F(PutTest, OverwritesFromTheStartAndKeepsTheRest) {
    Write("file", "0123456789");
    Put({"file"}, "abc");
    EXPECT_EQ(Read("file"), "abc3456789");
}

TEST_F(PutTest, TruncateCutsTheFileBehindTheInput) {
    Write("file", "0123456789");
    Put({"--truncate", "file"}, "abc");
    EXPECT_EQ(Read("file"), "abc");
}

TEST_F(PutTest, AtBeginsAtTheOffset) {
    Write("file", "0123456789");
    Put({"--at", "4", "file"}, "abc");
    EXPECT_EQ(Read("file"), "0123abc789");
}

TEST_F(PutTest, AtGoesBeyondTheEnd) {
    Put({"--at", "2", "file"}, "abc");
    EXPECT_EQ(Read("file"), std::string("\0\0abc", 5));
}

TEST_F(PutTest, AppendBeginsAtTheEnd) {
    Write("file", "0123");
    Put({"--append", "file"}, "abc");
    EXPECT_EQ(Read("file"), "0123abc");
}

TEST_F(PutTest, WritesABigInputWithZeroBytesAsItIs) {
    std::string const bytes = std::string(3'000'000, 'x') + std::string(1000, '\0') + "end";
    Put({"big"}, bytes);
    EXPECT_TRUE(Read("big") == bytes);
}

TEST_F(PutTest, OptionsThatContradictEachOtherAreWrongUsage) {
    for (Arguments const& options : std::vector<Arguments>{
             {"--truncate", "--append"},
             {"--truncate", "--at=1"},
             {"--append", "--at=1"},
             {"--at=-1"},
             {"--at=x"},
             {"--on-failure=burn"},
             {"--no-wait", "--wait=1"},
             {"second"}}) {
        Arguments arguments = options;
        arguments.emplace_back("file");
        EXPECT_EQ(Put(arguments, "text").status, WRONG_USAGE) << options[0];
    }
    EXPECT_FALSE(Exists("file"));
}

TEST_F(PutTest, HoldsTheExclusiveLockWhileItWrites) {
    Program program(Command({"put", "file"}), Options());
    program.Write("x");
    ASSERT_TRUE(TestSupport::WaitUntil([&] { return Exists("file") && Read("file") == "x"; }));
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(scratch_ / "file"), "WRITE");
    EXPECT_EQ(program.Wait().status, SUCCESS);
}

TEST_F(PutTest, ALockHeldElsewhereLeavesTheFileAloneWhateverThePolicy) {
    Write("locked", "text");
    LockHolder const holder(scratch_ / "locked");
    for (std::string const policy : {"truncate", "delete", "keep"}) {
        for (std::string const waiting : {"--no-wait", "--wait=1"}) {
            ProgramResult const result = Put({"--on-failure", policy, waiting, "locked"}, "other");
            EXPECT_EQ(result.errors, "wfs: 'locked': Another process holds the record lock.\n");
            EXPECT_EQ(result.status, LOCK_NOT_OBTAINED);
        }
    }
    EXPECT_EQ(Read("locked"), "text"); // only now: closing the file drops the lock
}

TEST_F(PutTest, WaitTriesAtOnceAfterEachSliceAndAtTheEnd) {
    Write("locked", "text");
    LockHolder const holder(scratch_ / "locked");
    ProgramResult const result = RunObserved({"put", "--wait=7010", "locked"}, [](Recorder& recorder, Child::Parent&) {
        recorder.On("nanosleep").Nth(1).Instead([](Call const& call) {
            EXPECT_EQ(call.details, "5s 0ns");
            return 0L;
        });
        recorder.On("nanosleep").Nth(2).Instead([](Call const& call) {
            EXPECT_EQ(call.details, "2s 10000000ns");
            return 0L;
        });
        recorder.On("fcntl").Command(F_SETLK).Nth(3).After([](Call const& call) { EXPECT_EQ(call.result, -1); });
    });
    EXPECT_EQ(result.status, LOCK_NOT_OBTAINED) << result.errors;
}

TEST_F(PutTest, WithoutOptionsItWaitsForTheLock) {
    Write("locked", "text");
    LockHolder const holder(scratch_ / "locked");
    Program program(Command({"put", "--truncate", "locked"}), Options());
    program.Write("new");
    program.CloseInput();
    holder.Release();
    EXPECT_EQ(program.Wait().status, SUCCESS);
    EXPECT_EQ(Read("locked"), "new");
}

struct PolicyCase {
    char const* policy;
    bool exists;
    char const* content;
};

class PutPolicyTest : public PutTest, public ::testing::WithParamInterface<PolicyCase> {
protected:
    void ExpectThePolicysResult() const {
        EXPECT_EQ(Exists("file"), GetParam().exists);
        if (GetParam().exists) {
            EXPECT_EQ(Read("file"), GetParam().content);
        }
    }
};

INSTANTIATE_TEST_SUITE_P(
    , PutPolicyTest,
    ::testing::Values(
        PolicyCase{"truncate", true, ""}, PolicyCase{"delete", false, ""}, PolicyCase{"keep", true, "new text"}));

TEST_P(PutPolicyTest, ASignalBeforeTheEndLeavesThePolicysResult) {
    for (int const signal : {SIGINT, SIGTERM}) {
        Write("file", "old text");
        Program program(Command({"put", "--on-failure", GetParam().policy, "file"}), Options());
        program.Write("new");
        ASSERT_TRUE(TestSupport::WaitUntil([&] { return Read("file") == "new text"; }));
        ProgramResult const result = program.Kill(signal);
        EXPECT_EQ(result.status, -signal);
        EXPECT_EQ(result.errors, "wfs: 'file': Interrupted before the end of the input.\n");
        ExpectThePolicysResult();
    }
}

TEST_P(PutPolicyTest, AFailingWriteLeavesThePolicysResult) {
    Write("file", "new text");
    ProgramResult const result =
        RunObserved({"put", "--on-failure", GetParam().policy, "file"}, [](Recorder& recorder, Child::Parent&) {
            recorder.On("read").First(1).Return(3);
            recorder.On("write").Fail(ENOSPC);
        });
    EXPECT_THAT(result.errors, HasSubstr("Failed to write 3 bytes to file"));
    EXPECT_THAT(result.errors, EndsWith("No space left on device\n"));
    EXPECT_EQ(result.status, FAILURE);
    ExpectThePolicysResult();
}

TEST_P(PutPolicyTest, AnInputThatCannotBeReadLeavesThePolicysResult) {
    Write("file", "new text");
    ProgramResult const result = TestSupport::RunProgram(
        {"sh", "-c", "exec \"$0\" put --on-failure \"$1\" file < .", PROGRAM, GetParam().policy}, "", Options());
    EXPECT_EQ(result.errors, "wfs: 'file': Standard input can't be read: Is a directory\n");
    EXPECT_EQ(result.status, FAILURE);
    ExpectThePolicysResult();
}

TEST_F(PutTest, ASignalThatWasIgnoredStaysSo) {
    Program program({"sh", "-c", "trap '' INT; exec \"$0\" put file", PROGRAM}, Options());
    program.Write("one ");
    ASSERT_TRUE(TestSupport::WaitUntil([&] { return Exists("file") && Read("file") == "one "; }));
    program.Signal(SIGINT);
    program.Write("two");
    EXPECT_EQ(program.Wait().status, SUCCESS);
    EXPECT_EQ(Read("file"), "one two");
}

TEST_F(PutTest, AFailingCloseIsReported) {
    ProgramResult const result = RunObserved({"put", "file"}, [this](Recorder& recorder, Child::Parent&) {
        recorder.On("read").Return(0);
        recorder.On("close")
            .Where([this](Call const& call) {
                return TestSupport::Exists(scratch_ / "file") && ::lseek(call.fd, 0, SEEK_CUR) == 0;
            })
            .Fail(EIO);
    });
    EXPECT_THAT(result.errors, HasSubstr("Failed to close handle of file"));
    EXPECT_EQ(result.status, FAILURE);
}

TEST_F(PutTest, RefusesTheFileThatTheInputComesFrom) {
    Write("file", "text");
    ProgramResult const result = RunScript("\"$WFS\" put --append file < file");
    EXPECT_EQ(result.errors, "wfs: 'file': Not written, because standard input comes from this file.\n");
    EXPECT_EQ(result.status, FAILURE);
    EXPECT_EQ(Read("file"), "text");
}

TEST_F(PutTest, ReportsAPathThatCannotBeOpened) {
    ProgramResult const result = Put({"missing/file"}, "text");
    EXPECT_EQ(
        result.errors, "wfs: WFileSystem::WriteableFileImpl::WriteableFileImpl: ::open failed for 'missing/file'.\n"
                       "No such file or directory\n");
    EXPECT_EQ(result.status, FAILURE);
}

} // namespace
