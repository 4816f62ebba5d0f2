#include <Tests/Tools/WfsProgram.h>

#include <gmock/gmock.h>

#include <sstream>

namespace {

using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::Not;
using ::testing::UnorderedElementsAre;
using ::testing::UnorderedElementsAreArray;
using TestSupport::ProgramResult;

constexpr int NOT_FOUND = 127;

std::string Join(std::vector<std::string> const& words) {
    std::string text;
    for (std::string const& word : words) {
        text += (text.empty() ? "" : " ") + word;
    }
    return text;
}

void Erase(std::string& text, std::string const& part) {
    for (std::size_t begin = text.find(part); begin != std::string::npos; begin = text.find(part, begin)) {
        text.erase(begin, part.size());
    }
}

std::vector<std::string> Lines(std::string const& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// The manual page

class ManualPageTest : public WfsTest {
protected:
    /// The page without the changes of the font and the escapes of hyphens.
    static std::string GetPage() {
        std::string page = TestSupport::ReadFile(WFS_MANUAL_PAGE);
        for (char const* const escape : {"\\fB", "\\fI", "\\fR", "\\"}) {
            Erase(page, escape);
        }
        return page;
    }

    /// What follows the heading, up to the next one of the same kind.
    static std::string GetSection(std::string const& heading) {
        std::string const page = GetPage();
        std::size_t const begin = page.find("\n" + heading);
        if (begin == std::string::npos) {
            ADD_FAILURE() << "There is no section " << heading;
            return "";
        }
        return page.substr(begin, page.find(heading.substr(0, 4), begin + heading.size()) - begin);
    }
};

TEST_F(ManualPageTest, MandocFindsNothingWrong) {
    ProgramResult const result = TestSupport::RunProgram({"mandoc", "-T", "lint", "-W", "warning", WFS_MANUAL_PAGE});
    if (result.status == NOT_FOUND) {
        GTEST_SKIP() << "mandoc is not installed.";
    }
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(ManualPageTest, GroffFindsNothingWrong) {
    ProgramResult const result = TestSupport::RunProgram({"groff", "-man", "-ww", "-z", "-T", "utf8", WFS_MANUAL_PAGE});
    if (result.status == NOT_FOUND) {
        GTEST_SKIP() << "groff is not installed.";
    }
    EXPECT_EQ(result.output + result.errors, "");
    EXPECT_EQ(result.status, 0);
}

TEST_F(ManualPageTest, ItTellsEachVerbWithItsOptions) {
    for (Arguments const& verb : AllVerbs()) {
        std::string const section = GetSection(".SS \"wfs " + Join(verb) + " [OPTIONS]");
        for (std::string const& option : OptionsOf(verb)) {
            if (option != "-h,--help") {
                EXPECT_THAT(section, HasSubstr("\n.TP\n" + option + '\n')) << Join(verb);
            }
        }
        EXPECT_THAT(section, HasSubstr("\nExit status:\n")) << Join(verb);
    }
}

TEST_F(ManualPageTest, ItTellsTheOptionsAndStatusesOfTheProgram) {
    std::string const options = GetSection(".SH OPTIONS");
    EXPECT_THAT(options, HasSubstr("\n-h, --help\n"));
    EXPECT_THAT(options, HasSubstr("\n--version\n"));
    EXPECT_THAT(GetSection(".SH \"EXIT STATUS\""), HasSubstr("75 a lock was not obtained"));
}

TEST_F(ManualPageTest, ItShowsTheExamplesAsTheyAreTyped) {
    ProgramResult const page = TestSupport::RunProgram({"mandoc", "-T", "utf8", WFS_MANUAL_PAGE});
    if (page.status == NOT_FOUND) {
        GTEST_SKIP() << "mandoc is not installed.";
    }
    int examples = 0;
    for (Arguments const& verb : AllVerbs()) {
        Arguments arguments = verb;
        arguments.emplace_back("--help");
        std::string const help = Run(arguments).output;
        for (std::string const& line : Lines(help.substr(help.find("\nExample") + 1))) {
            if (line.substr(0, 2) == "  ") {
                EXPECT_THAT(page.output, HasSubstr(line + '\n'));
                ++examples;
            }
        }
    }
    EXPECT_GE(examples, 20);
    EXPECT_THAT(page.output, HasSubstr("'C:\\data' ..\\\\backup"));
}

// The completion

class CompletionTest : public WfsTest {
protected:
    using Words = std::vector<std::string>;

    /// What the completion offers for the last of the words.
    Words Complete(Words const& words) const {
        std::string const script = "source \"$0\"; COMP_WORDS=(\"$@\"); COMP_CWORD=$(($# - 1)); _wfs;"
                                   "((${#COMPREPLY[@]} == 0)) || printf '%s\\n' \"${COMPREPLY[@]}\"";
        Words command = {"bash", "-c", script, WFS_COMPLETION, "wfs"};
        command.insert(command.end(), words.begin(), words.end());
        ProgramResult const result = TestSupport::RunProgram(command, "", Options());
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.status, 0);
        return Lines(result.output);
    }
};

TEST_F(CompletionTest, BashTakesIt) {
    ProgramResult const result =
        TestSupport::RunProgram({"bash", "-c", "source \"$0\" && complete -p wfs", WFS_COMPLETION});
    EXPECT_EQ(result.output, "complete -o default -F _wfs wfs\n");
    EXPECT_EQ(result.errors, "");
}

TEST_F(CompletionTest, ItOffersTheVerbs) {
    EXPECT_THAT(Complete({"p"}), UnorderedElementsAre("put", "path", "pipe"));
    EXPECT_THAT(Complete({"pipe", ""}), UnorderedElementsAre("serve", "call"));
    EXPECT_THAT(Complete({"help", "pi"}), UnorderedElementsAre("pipe"));
    EXPECT_THAT(Complete({"help", "pipe", "s"}), UnorderedElementsAre("serve"));
    EXPECT_THAT(Complete({"help", "cat", ""}), UnorderedElementsAre());
}

TEST_F(CompletionTest, ItOffersEachVerb) {
    for (Arguments const& verb : AllVerbs()) {
        EXPECT_THAT(Complete(verb), Contains(verb.back()));
    }
}

TEST_F(CompletionTest, ItOffersTheOptionsOfEachVerb) {
    for (Arguments const& verb : AllVerbs()) {
        if (verb == Arguments{"help"}) {
            continue; // behind it come verbs
        }
        Words expected;
        for (std::string const& option : OptionsOf(verb)) {
            if (option == "-h,--help") {
                expected.insert(expected.end(), {"-h", "--help"});
            } else {
                expected.push_back(option.substr(0, option.find(' ')));
            }
        }
        Words words = verb;
        words.emplace_back("-");
        EXPECT_THAT(Complete(words), UnorderedElementsAreArray(expected)) << Join(verb);
    }
    EXPECT_THAT(Complete({"--"}), UnorderedElementsAre("--help", "--version"));
}

TEST_F(CompletionTest, ItOffersTheValuesThatHaveNames) {
    EXPECT_THAT(Complete({"put", "--on-failure", ""}), UnorderedElementsAre("truncate", "delete", "keep"));
    EXPECT_THAT(Complete({"put", "--on-failure", "="}), UnorderedElementsAre("truncate", "delete", "keep"));
    EXPECT_THAT(Complete({"put", "--on-failure", "=", "d"}), UnorderedElementsAre("delete"));
    EXPECT_THAT(Complete({"path", "combine", "--platform", "w"}), UnorderedElementsAre("windows"));
}

TEST_F(CompletionTest, ItOffersNothingForANumber) {
    Write("1", "");
    EXPECT_THAT(Complete({"cat", "--wait", ""}), UnorderedElementsAre());
    EXPECT_THAT(Complete({"cat", "--wait", "=", "1"}), UnorderedElementsAre());
    EXPECT_THAT(Complete({"cat", "--wait", "1", ""}), UnorderedElementsAre("1"));
}

TEST_F(CompletionTest, ItOffersFileNames) {
    for (char const* const name : {"a b", "ab", "\u00E4", "-x", "$c"}) {
        Write(name, "");
    }
    EXPECT_THAT(Complete({"cat", "a"}), UnorderedElementsAre("a b", "ab"));
    EXPECT_THAT(Complete({"cat", "ab", "\u00E4"}), UnorderedElementsAre("\u00E4"));
    EXPECT_THAT(Complete({"cat", ""}), UnorderedElementsAre("a b", "ab", "\u00E4", "-x", "$c"));
    EXPECT_THAT(Complete({"cat", "--", "-"}), UnorderedElementsAre("-x"));
    EXPECT_THAT(Complete({"cat", "--lines", "ab", "--no-wait", "ab"}), UnorderedElementsAre("ab"));
}

TEST_F(CompletionTest, ItOffersNoMoreFileNamesThanThereAreArguments) {
    Write("a", "");
    EXPECT_THAT(Complete({"copy", "a", ""}), UnorderedElementsAre("a"));
    EXPECT_THAT(Complete({"copy", "a", "b", ""}), UnorderedElementsAre());
}

TEST_F(CompletionTest, AFileThatIsCalledAsAVerbIsNone) {
    Write("help", "");
    EXPECT_THAT(Complete({"cat", "help", "he"}), UnorderedElementsAre("help"));
}

TEST_F(CompletionTest, ItOffersDirectoriesWhereThereMustBeOne) {
    Write("file", "");
    TestSupport::MakeDirectory(scratch_ / "folder");
    EXPECT_THAT(Complete({"rmdir", "f"}), UnorderedElementsAre("folder"));
    EXPECT_THAT(Complete({"mkdir", "x", "f"}), UnorderedElementsAre("folder"));
}

TEST_F(CompletionTest, ItOffersCommandsBehindTheDashes) {
    Write("printfile", "");
    EXPECT_THAT(Complete({"lock", "printfile", ""}), UnorderedElementsAre("--"));
    EXPECT_THAT(Complete({"lock", "printfile", "--", "printf"}), Contains("printf"));
    EXPECT_THAT(Complete({"lock", "printfile", "--", "printf"}), Not(Contains("printfile")));
    EXPECT_THAT(Complete({"lock", "printfile", "--", "cat", "printf"}), UnorderedElementsAre("printfile"));
}

} // namespace
