#include <Tests/Support/RecordLocks.h>
#include <Tests/Tools/WfsProgram.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using ::testing::HasSubstr;
using TestSupport::Program;
using TestSupport::ProgramResult;

constexpr int SUCCESS = 0;
constexpr int FAILURE = 1;
constexpr int WRONG_USAGE = 2;
constexpr int LOCK_NOT_OBTAINED = 75;
constexpr int NOT_STARTED = 127;

class LockTest : public WfsTest {
protected:
    std::string LockSeenByOthers() const { return TestSupport::RecordLockSeenByOthers(scratch_ / "file"); }

    Arguments const waitingCommand_ = {"sh", "-c", "echo ready; read line"};

    Arguments Lock(Arguments options, Arguments const& command) const {
        options.insert(options.begin(), "lock");
        options.emplace_back("file");
        options.emplace_back("--");
        options.insert(options.end(), command.begin(), command.end());
        return Command(options);
    }

    ProgramResult RunLocked(Arguments const& options, Arguments const& command) const {
        return TestSupport::RunProgram(Lock(options, command), "", Options());
    }
};

TEST_F(LockTest, HoldsTheExclusiveLockWhileTheCommandRuns) {
    Program program(Lock({}, waitingCommand_), Options());
    ASSERT_TRUE(program.WaitForOutput("ready\n"));
    EXPECT_EQ(LockSeenByOthers(), "WRITE");
    EXPECT_EQ(program.Wait().status, FAILURE); // of `read` at the end of its input
    EXPECT_EQ(LockSeenByOthers(), "");
}

TEST_F(LockTest, SharedHoldsTheSharedLock) {
    Write("file", "");
    Program program(Lock({"--shared"}, waitingCommand_), Options());
    ASSERT_TRUE(program.WaitForOutput("ready\n"));
    EXPECT_EQ(LockSeenByOthers(), "READ");
    EXPECT_EQ(RunLocked({"--shared", "--no-wait"}, {"true"}).status, SUCCESS);
    EXPECT_EQ(RunLocked({"--no-wait"}, {"true"}).status, LOCK_NOT_OBTAINED);
}

TEST_F(LockTest, MakesAMissingFileUnlessShared) {
    EXPECT_THAT(RunLocked({"--shared"}, {"true"}).errors, HasSubstr("::open failed for 'file'."));
    EXPECT_FALSE(TestSupport::Exists(scratch_ / "file"));
    EXPECT_EQ(RunLocked({}, {"true"}).status, SUCCESS);
    EXPECT_TRUE(TestSupport::Exists(scratch_ / "file"));
}

TEST_F(LockTest, LeavesTheFileAndItsPermissionBitsAlone) {
    Write("file", "text");
    ASSERT_EQ(::chmod((scratch_ / "file").c_str(), 0600), 0);
    RunLocked({}, {"true"});
    EXPECT_EQ(TestSupport::ReadFile(scratch_ / "file"), "text");
    EXPECT_EQ(TestSupport::ModeOf(scratch_ / "file"), 0600U);
}

TEST_F(LockTest, PassesTheExitStatusOn) {
    EXPECT_EQ(RunLocked({}, {"true"}).status, 0);
    EXPECT_EQ(RunLocked({}, {"sh", "-c", "exit 42"}).status, 42);
    EXPECT_EQ(RunLocked({}, {"sh", "-c", "kill -KILL $$"}).status, 128 + SIGKILL);
}

TEST_F(LockTest, PassesArgumentsAndOutputThrough) {
    ProgramResult const result = RunLocked({}, {"printf", "%s.", "[a,b]", "--no-wait", "", "\u00E4"});
    EXPECT_EQ(result.output, "[a,b].--no-wait..\u00E4.");
    EXPECT_EQ(result.errors, "");
}

TEST_F(LockTest, ALockHeldElsewhereKeepsTheCommandFromRunning) {
    Write("file", "");
    LockHolder const holder(scratch_ / "file");
    for (Arguments const& options :
         std::vector<Arguments>{{"--no-wait"}, {"--wait=1"}, {"--shared", "--no-wait"}, {"--shared", "--wait", "1"}}) {
        ProgramResult const result = RunLocked(options, {"echo", "It runs."});
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, "wfs: 'file': Another process holds the record lock.\n");
        EXPECT_EQ(result.status, LOCK_NOT_OBTAINED);
    }
}

TEST_F(LockTest, WithoutOptionsItWaitsForTheLock) {
    Program holder(Lock({}, waitingCommand_), Options());
    ASSERT_TRUE(holder.WaitForOutput("ready\n"));
    Program program(Lock({}, {"echo", "It runs."}), Options());
    holder.Wait();
    EXPECT_EQ(program.Wait().output, "It runs.\n");
}

TEST_F(LockTest, TheLockOutlivesASignalThatEndsTheCommand) {
    for (int const signal : {SIGTERM, SIGHUP}) {
        Program program(
            Lock(
                {},
                {"sh", "-c", "trap 'echo ended; read line; exit 3' TERM HUP; echo ready; while read line; do :; done"}),
            Options());
        ASSERT_TRUE(program.WaitForOutput("ready\n"));
        program.Signal(signal);
        ASSERT_TRUE(program.WaitForOutput("ended\n"));
        EXPECT_EQ(LockSeenByOthers(), "WRITE");
        program.Write("\n");
        EXPECT_EQ(program.Wait().status, 3);
        EXPECT_EQ(LockSeenByOthers(), "");
    }
}

TEST_F(LockTest, IgnoresTheKeyboardsSignalsWhileTheCommandDoesNot) {
    for (int const signal : {SIGINT, SIGQUIT}) {
        Program program(Lock({}, waitingCommand_), Options());
        ASSERT_TRUE(program.WaitForOutput("ready\n"));
        program.Signal(signal);
        program.Write("\n");
        EXPECT_EQ(program.Wait().status, SUCCESS);
    }
    ProgramResult const result = RunLocked({}, {"sh", "-c", "kill -INT $$"});
    EXPECT_EQ(result.status, 128 + SIGINT);
}

TEST_F(LockTest, ReportsACommandThatCannotBeStarted) {
    ProgramResult const result = RunLocked({}, {"./missing"});
    EXPECT_EQ(result.errors, "wfs: 'file': './missing' can't be started: No such file or directory\n");
    EXPECT_EQ(result.status, NOT_STARTED);
}

TEST_F(LockTest, AMissingCommandIsWrongUsage) {
    EXPECT_EQ(Run({"lock", "file"}).status, WRONG_USAGE);
    EXPECT_EQ(Run({"lock"}).status, WRONG_USAGE);
}

} // namespace
