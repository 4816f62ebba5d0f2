#include <Tests/Support/Program.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gmock/gmock.h>

namespace {

using ::testing::HasSubstr;

TEST(LedgerTest, TheSumOfSeveralProcessesAndThreadsIsExact) {
    TestSupport::ScratchDirectory const scratch;
    TestSupport::ProgramResult const result =
        TestSupport::RunProgram({LEDGER_PROGRAM, scratch / "ledger", "3", "4", "50"});
    EXPECT_THAT(result.output, HasSubstr("wrote 600 records, 600 are expected\n"));
    EXPECT_THAT(result.output, HasSubstr("the sum is 15300, 15300 is expected\n"));
    EXPECT_THAT(result.output, HasSubstr(" ms for record locks"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(TestSupport::ReadFile(scratch / "ledger").size(), 4 + 600 * 8U);
}

TEST(LedgerTest, ALedgerThatHeldSomethingBeforeIsNoSuccess) {
    TestSupport::ScratchDirectory const scratch;
    TestSupport::WriteFile(scratch / "ledger", std::string("\1\0\0\0", 4) + "12345678"); // a record, and how many
    EXPECT_EQ(TestSupport::RunProgram({LEDGER_PROGRAM, scratch / "ledger", "1", "1", "1"}).status, 1);
}

TEST(LedgerTest, AFailureNamesTheFile) {
    TestSupport::ProgramResult const result =
        TestSupport::RunProgram({LEDGER_PROGRAM, "/no/such/ledger", "1", "1", "1"});
    EXPECT_THAT(result.errors, HasSubstr("::open failed for '/no/such/ledger'.\nNo such file or directory\n"));
    EXPECT_EQ(result.status, 1);
}

} // namespace
