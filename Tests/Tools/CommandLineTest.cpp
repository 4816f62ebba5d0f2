#include <Defines/Version.h>
#include <Tests/Tools/WfsProgram.h>

#include <gmock/gmock.h>

#include <map>

namespace {

using ::testing::ContainsRegex;
using ::testing::HasSubstr;
using ::testing::StartsWith;
using TestSupport::ProgramResult;

using CommandLineTest = WfsTest;

constexpr int WRONG_USAGE = 2;

constexpr char const* VERBS[] = {"cat",  "put",   "copy",  "move", "delete", "stat", "lock",
                                 "list", "mkdir", "rmdir", "path", "pipe",   "help"};

std::string Join(std::vector<std::string> const& words) {
    std::string text;
    for (std::string const& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

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
    EXPECT_THAT(result.output, HasSubstr("Usage: wfs [OPTIONS] VERB\n"));
    for (std::string const verb : VERBS) {
        EXPECT_THAT(result.output, HasSubstr("\n  " + verb + " "));
    }
    EXPECT_THAT(result.output, HasSubstr("75 a lock was not obtained, or a server did not answer, in time"));
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(CommandLineTest, HelpIsTheSameAsAVerbAndAsAnOption) {
    std::string const help = Run({"help"}).output;
    EXPECT_EQ(Run({"--help"}).output, help);
    EXPECT_EQ(Run({"-h"}).output, help);
}

TEST_F(CommandLineTest, HelpOfEachVerbHasItsUsageStatusesAndAnExample) {
    for (Arguments const& verb : AllVerbs()) {
        Arguments byVerb = verb;
        byVerb.insert(byVerb.begin(), "help");
        ProgramResult const result = Run(byVerb);
        EXPECT_THAT(result.output, HasSubstr("Usage: wfs " + Join(verb) + " [OPTIONS] "));
        EXPECT_THAT(result.output, HasSubstr("\nExit status: "));
        EXPECT_THAT(result.output, ContainsRegex("\nExample:[^\n]*\n  .*wfs " + Join(verb)));
        EXPECT_EQ(result.status, 0);
        Arguments byOption = verb;
        byOption.emplace_back("--help");
        EXPECT_EQ(Run(byOption).output, result.output);
    }
}

TEST_F(CommandLineTest, AnOptionHasTheSameValueInEachVerb) {
    std::map<std::string, std::string> values;
    for (Arguments const& verb : AllVerbs()) {
        for (std::string const& option : OptionsOf(verb)) {
            std::string const name = option.substr(0, option.find(' '));
            EXPECT_EQ(values.emplace(name, option).first->second, option) << Join(verb);
        }
    }
    EXPECT_EQ(values["--wait"], "--wait MS");
}

TEST_F(CommandLineTest, AnUnknownOptionIsWrongUsageOfEachVerb) {
    for (Arguments const& verb : AllVerbs()) {
        Arguments arguments = verb;
        arguments.insert(arguments.end(), {"--bogus", "a", "b"});
        ProgramResult const result = Run(arguments);
        EXPECT_THAT(result.errors, HasSubstr("\nTry: wfs help " + Join(verb) + '\n'));
        EXPECT_EQ(result.status, WRONG_USAGE) << Join(verb);
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
             {{"help", "cat", "cat"}, "wfs: there is no verb 'cat cat'\nTry: wfs help help\n"},
             {{"pipe"}, "wfs: a verb is missing\nTry: wfs help pipe\n"},
             {{"pipe", "call"}, "wfs: BASE is required\nTry: wfs help pipe call\n"},
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
    for (std::string const arguments : {"--version", "--help", "help", "help cat", "pipe call --help"}) {
        ProgramResult const result = RunScript("\"$WFS\" " + arguments + " >/dev/full");
        EXPECT_THAT(result.errors, StartsWith("wfs: standard output: "));
        EXPECT_EQ(result.status, 1);
    }
}

} // namespace
