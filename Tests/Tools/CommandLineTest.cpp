#include <Defines/Version.h>
#include <Tests/Tools/WfsProgram.h>

#include <gmock/gmock.h>

namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using TestSupport::ProgramResult;

using CommandLineTest = WfsTest;

constexpr int WRONG_USAGE = 2;

constexpr char const* VERBS[] = {"cat", "help"};

TEST_F(CommandLineTest, VersionIsThatOfTheLibrary) {
    ProgramResult const result = Run({"--version"});
    EXPECT_EQ(
        result.output, "wfs " + std::to_string(WFILESYSTEM_VERSION_MAJOR) + "." +
                           std::to_string(WFILESYSTEM_VERSION_MINOR) + "." + std::to_string(WFILESYSTEM_VERSION_PATCH) +
                           "\n");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(CommandLineTest, HelpListsTheVerbsAndTheStatuses) {
    ProgramResult const result = Run({"help"});
    EXPECT_THAT(result.output, HasSubstr("Usage: wfs [OPTIONS] [VERB]\n"));
    for (std::string const verb : VERBS) {
        EXPECT_THAT(result.output, HasSubstr("\n  " + verb + " "));
    }
    EXPECT_THAT(result.output, HasSubstr("75 a lock was not obtained in time"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(CommandLineTest, HelpIsTheSameAsAVerbAndAsAnOption) {
    std::string const help = Run({"help"}).output;
    EXPECT_EQ(Run({"--help"}).output, help);
    EXPECT_EQ(Run({"-h"}).output, help);
}

TEST_F(CommandLineTest, HelpOfEachVerbHasItsUsageAndAnExample) {
    for (std::string const verb : VERBS) {
        ProgramResult const result = Run({"help", verb});
        EXPECT_THAT(result.output, HasSubstr("Usage: wfs " + verb + " "));
        EXPECT_THAT(result.output, HasSubstr("\nExample"));
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(Run({verb, "--help"}).output, result.output);
    }
}

TEST_F(CommandLineTest, HelpOfCatTellsItsOptionsAndStatuses) {
    std::string const help = Run({"help", "cat"}).output;
    for (char const* const text :
         {"cat [OPTIONS] PATH...", "--no-wait ", "--wait MS ", "--lines ", "Exit status: 0 "}) {
        EXPECT_THAT(help, HasSubstr(text));
    }
}

TEST_F(CommandLineTest, WrongUsageIsReportedWithStatus2) {
    struct Case {
        Arguments arguments;
        std::string errors;
    };
    for (Case const& row : std::vector<Case>{
             {{}, "wfs: a verb is missing\nTry: wfs help\n"},
             {{"dog"}, "wfs: The following argument was not expected: dog\nTry: wfs help\n"},
             {{"[dog]"}, "wfs: The following argument was not expected: [dog]\nTry: wfs help\n"},
             {{"--lines"}, "wfs: The following argument was not expected: --lines\nTry: wfs help\n"},
             {{"help", "dog"}, "wfs: there is no verb 'dog'\nTry: wfs help help\n"},
             {{"help", "[a,b]"}, "wfs: there is no verb '[a,b]'\nTry: wfs help help\n"},
             {{"help", "cat", "cat"}, "wfs: The following argument was not expected: cat\nTry: wfs help help\n"},
             {{"cat"}, "wfs: PATH is required\nTry: wfs help cat\n"},
             {{"cat", "--bogus", "x"}, "wfs: The following argument was not expected: --bogus\nTry: wfs help cat\n"},
             {{"cat", "--no-wait", "--wait", "1", "x"}, "wfs: --no-wait excludes --wait\nTry: wfs help cat\n"}}) {
        ProgramResult const result = Run(row.arguments);
        EXPECT_EQ(result.output, "");
        EXPECT_EQ(result.errors, row.errors);
        EXPECT_EQ(result.status, WRONG_USAGE);
    }
}

TEST_F(CommandLineTest, TimesMustBeDecimalNumbers) {
    for (std::string const time : {"", "-1", "+1", "1.5", "0x10", "5s", "[5]", "1000000000000000000", "ä"}) {
        ProgramResult const result = Run({"cat", "--wait", time, "x"});
        EXPECT_EQ(result.errors, "wfs: --wait: '" + time + "' is not a number\nTry: wfs help cat\n");
        EXPECT_EQ(result.status, WRONG_USAGE);
    }
}

TEST_F(CommandLineTest, ReportsAreValidUTF8) {
    EXPECT_THAT(
        Run({"b\xFF"
             "d"})
            .errors,
        HasSubstr("b\uFFFDd"));
}

TEST_F(CommandLineTest, HelpAndVersionThatCannotBeWrittenFail) {
    if (!TestSupport::Exists("/dev/full")) {
        GTEST_SKIP() << "This system has no /dev/full.";
    }
    for (std::string const arguments : {"--version", "--help", "help", "help cat"}) {
        ProgramResult const result = RunScript("\"$WFS\" " + arguments + " >/dev/full");
        EXPECT_THAT(result.errors, StartsWith("wfs: standard output: "));
        EXPECT_EQ(result.status, 1);
    }
}

} // namespace
