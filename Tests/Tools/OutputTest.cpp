#include <Tests/Support/Terminal.h>
#include <Tests/Tools/WfsProgram.h>

#include <gmock/gmock.h>

#include <csignal>

namespace {

using TestSupport::ProgramResult;

class OutputTest : public WfsTest {
protected:
    /// What a failure shows on a terminal.
    std::string ShownReport(std::string const& settings) const {
        TestSupport::Terminal terminal;
        RunScript(settings + " \"$WFS\" delete missing 2>" + terminal.Path());
        return terminal.ReadToEnd();
    }
};

std::string const REPORT = " Failed to delete file 'missing'.\nNo such file or directory\n";

TEST_F(OutputTest, OnATerminalTheNameInAReportIsRed) {
    EXPECT_EQ(ShownReport("TERM=xterm NO_COLOR="), "\033[1;31mwfs:\033[0m" + REPORT);
}

TEST_F(OutputTest, OnATerminalEachReportOfSeveralIsRed) {
    TestSupport::Terminal terminal;
    RunScript("mkdir -p a/.b a/c/.d; export TERM=xterm NO_COLOR=; \"$WFS\" rmdir --recursive a 2>" + terminal.Path());
    EXPECT_EQ(
        terminal.ReadToEnd(), "\033[1;31mwfs:\033[0m Failed to delete directory 'a'.\nDirectory not empty\n"
                              "\033[1;31mwfs:\033[0m Failed to delete directory 'a/c'.\nDirectory not empty\n");
}

TEST_F(OutputTest, ThereAreNoColoursWhereNobodyWantsThem) {
    EXPECT_EQ(ShownReport("TERM=xterm NO_COLOR=1"), "wfs:" + REPORT);
    EXPECT_EQ(ShownReport("TERM=dumb NO_COLOR="), "wfs:" + REPORT);
    EXPECT_EQ(RunScript("TERM=xterm NO_COLOR= \"$WFS\" delete missing").errors, "wfs:" + REPORT);
}

TEST_F(OutputTest, AVerbThatPrintsEndsQuietlyWhenItsReaderIsGone) {
    Write("file", "text");
    for (std::string const arguments :
         {"cat file", "cat --lines file", "stat file", "stat --json file", "list '*'", "list --json '*'",
          "path basename file", "path combine --json a b", "help", "help cat", "path dirname --help", "--version"}) {
        // A named pipe that has lost its reader before the program starts.
        ProgramResult const result =
            RunScript("mkfifo lost; exec 3<>lost 4>lost 3<&-; rm lost; \"$WFS\" " + arguments + " >&4; echo $?");
        EXPECT_EQ(result.output, std::to_string(128 + SIGPIPE) + "\n") << arguments;
        EXPECT_EQ(result.errors, "") << arguments;
    }
}

TEST_F(OutputTest, EachVerbWorksWithNamesThatAreNotASCIIInEachLocale) {
    for (std::string const locale : {"C", "C.UTF-8", "de_DE.ISO-8859-1"}) {
        ProgramResult const result = RunScript("export LC_ALL=" + locale + R"(
            set -e
            "$WFS" mkdir --parents "Ä/日本"
            echo text | "$WFS" put "Ä/日本/😀 é"
            "$WFS" cat "Ä/日本/😀 é"
            "$WFS" copy "Ä/日本/😀 é" "Ä/ö"
            "$WFS" move "Ä/ö" "Ä/ü"
            "$WFS" list "?/日*/*"
            "$WFS" list --json "Ä/[ü]"
            "$WFS" stat --json "Ä/ü" | grep path
            "$WFS" lock "Ä/ü" -- echo "ß"
            "$WFS" path combine "Ä/x" "../ü"
            "$WFS" pipe serve "Ä/ñ" --pause 0 --once -- cat & server=$!
            while ! [ -p "Ä/ñ.ServerWriter" ]; do sleep 0.01; done
            echo "Ω" | "$WFS" pipe call "Ä/ñ"
            wait $server
            "$WFS" delete "Ä/ü" "Ä/ñ.Lock" "Ä/ñ.ServerReader" "Ä/ñ.ServerWriter"
            "$WFS" rmdir --recursive "Ä")");
        EXPECT_EQ(result.output, "text\nÄ/日本/😀 é\n[\n  \"Ä/ü\"\n]\n    \"path\": \"Ä/ü\",\nß\nÄ/ü\nΩ\n") << locale;
        EXPECT_EQ(result.errors, "") << locale;
        EXPECT_EQ(result.status, 0) << locale;
        EXPECT_EQ(TestSupport::List(scratch_.Path()), std::vector<std::string>());
    }
}

} // namespace
