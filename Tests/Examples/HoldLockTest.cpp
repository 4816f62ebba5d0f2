#include <Tests/Support/Program.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gtest/gtest.h>

namespace {

using TestSupport::Program;
using TestSupport::ProgramResult;

TEST(HoldLockTest, HoldsTheExclusiveLockUntilItsInputEnds) {
    TestSupport::ScratchDirectory const scratch;
    std::string const path = scratch / "Ä.txt";
    TestSupport::WriteFile(path, "text");
    Program program({HOLD_LOCK_PROGRAM, path});
    ASSERT_TRUE(program.WaitForOutput("locked\n"));
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path), "WRITE");

    EXPECT_EQ(program.Wait().status, 0);
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path), "");
    EXPECT_EQ(TestSupport::ReadFile(path), "text");
}

TEST(HoldLockTest, ReportsAMissingFileAndDoesNotCreateIt) {
    TestSupport::ScratchDirectory const scratch;
    ProgramResult const result = TestSupport::RunProgram({HOLD_LOCK_PROGRAM, scratch / "missing"});
    EXPECT_EQ(
        result.errors, "WFileSystem::File::OpenDescriptor: ::open failed for '" + (scratch / "missing") +
                           "'.\nNo such file or directory\n");
    EXPECT_EQ(result.status, 1);
    EXPECT_FALSE(TestSupport::Exists(scratch / "missing"));
}

TEST(HoldLockTest, TellsItsUsage) {
    ProgramResult const result = TestSupport::RunProgram({HOLD_LOCK_PROGRAM});
    EXPECT_EQ(result.errors, "Usage: HoldLock PATH\n");
    EXPECT_EQ(result.status, 2);
}

} // namespace
