#include <Tests/Tools/WfsProgram.h>

#include <gmock/gmock.h>

namespace {

using ::testing::HasSubstr;
using TestSupport::ProgramResult;

constexpr int SUCCESS = 0;
constexpr int FAILURE = 1;
constexpr int WRONG_USAGE = 2;

using PathVerbTest = WfsTest;

TEST_F(PathVerbTest, OperationsPrintTheirResults) {
    struct Row {
        std::vector<std::string> arguments;
        std::string output;
    };
    for (Row const& row : std::vector<Row>{
             {{"combine", "a//b/.", "../c"}, "a/c\n"},
             {{"combine", "a"}, "a\n"},
             {{"combine", "a", "b", "..", "c"}, "a/c\n"},
             {{"combine", "/a", "x\\y"}, "/a/x/y\n"},
             {{"combine", "--platform", "posix", "/a", "x\\y"}, "/a/x\\y\n"},
             {{"combine", "--platform", "windows", "C:\\a", "..", "\u00E4/b"}, "C:\\\u00E4\\b\n"},
             {{"absolute", "/a/../b"}, "/a/../b\n"},
             {{"parent", "/a/b/", "a"}, "/a/\n\n"},
             {{"dirname", "/a/b", "a"}, "/a\n.\n"},
             {{"basename", "/a/b", "a/"}, "b\n\n"},
             {{"extension", "a.tar.gz", "a"}, "gz\n\n"},
             {{"is-absolute", "/a", "a", "C:\\a"}, "true\nfalse\nfalse\n"},
             {{"is-absolute", "--platform=windows", "/a", "C:\\a"}, "false\ntrue\n"},
             {{"is-absolute", "--platform=posix", "/a"}, "true\n"}}) {
        Arguments arguments = row.arguments;
        arguments.insert(arguments.begin(), "path");
        ProgramResult const result = Run(arguments);
        EXPECT_EQ(result.output, row.output) << row.arguments[0];
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.status, SUCCESS);
    }
}

TEST_F(PathVerbTest, AbsoluteBeginsAtTheWorkingDirectory) {
    std::string const& directory = scratch_.Path();
    EXPECT_EQ(Run({"path", "absolute", "x"}).output, directory + "/x\n");
    EXPECT_EQ(Run({"path", "absolute", "../x"}).output, directory.substr(0, directory.rfind('/')) + "/x\n");
}

TEST_F(PathVerbTest, ABadArgumentIsReportedAndTheOthersAreDone) {
    ProgramResult const result = Run({"path", "basename", "a/b", "\xFF", "c/d"});
    EXPECT_EQ(result.output, "b\nd\n");
    EXPECT_THAT(result.errors, HasSubstr("Failed to convert UTF-8 text"));
    EXPECT_EQ(result.status, FAILURE);
}

TEST_F(PathVerbTest, ABadArgumentLeavesNothingCombined) {
    ProgramResult const result = Run({"path", "combine", "a", "\xFF", "b"});
    EXPECT_EQ(result.output, "");
    EXPECT_EQ(result.status, FAILURE);
}

TEST_F(PathVerbTest, JsonIsAnArrayOfTheResults) {
    EXPECT_EQ(
        Run({"path", "basename", "--json", "x/\u00E4", "y/\"\n\\"}).output, "[\n  \"\u00E4\",\n  \"\\\"\\n\\\\\"\n]\n");
    EXPECT_EQ(Run({"path", "is-absolute", "--json", "/", "a"}).output, "[\n  true,\n  false\n]\n");
    EXPECT_EQ(Run({"path", "combine", "--json", "a", "b"}).output, "[\n  \"a/b\"\n]\n");
}

TEST_F(PathVerbTest, JsonStaysWholeAfterAFailure) {
    ProgramResult const result = Run({"path", "basename", "--json", "\xFF", "a/b"});
    EXPECT_EQ(result.output, "[\n  \"b\"\n]\n");
    EXPECT_EQ(result.status, FAILURE);
    EXPECT_EQ(Run({"path", "combine", "--json", "a", "\xFF"}).output, "[]\n");
}

TEST_F(PathVerbTest, WhatIsNoOperationOrPlatformIsWrongUsage) {
    for (Arguments const& arguments : std::vector<Arguments>{
             {"path"},
             {"path", "combine"},
             {"path", "turn", "a"},
             {"path", "combine", "--platform=plan9", "a"},
             {"path", "basename", "--platform=windows", "a"}}) {
        EXPECT_EQ(Run(arguments).status, WRONG_USAGE);
    }
}

} // namespace
