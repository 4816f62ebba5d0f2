#ifndef WFILESYSTEM_TESTS_SUPPORT_PROGRAM_H
#define WFILESYSTEM_TESTS_SUPPORT_PROGRAM_H

/// \file
/// \brief Another program, run with arguments, its input given and its output caught.

#include <Tests/Support/Process.h>

#include <string>
#include <vector>

namespace TestSupport {

/// How a program is run.
struct ProgramOptions {
    std::vector<std::string> environment; ///< "NAME=value", added to the environment of this process
    std::string directory;                ///< the working directory; empty: that of this process
    std::vector<int> closed;              ///< of the descriptors 0 to 2 those that the program does not get
};

/// How a program ended.
struct ProgramResult {
    int status = 0;     ///< the exit code; for a program that a signal ended the signal's number, negative
    std::string output; ///< all that it wrote to its standard output
    std::string errors; ///< all that it wrote to its standard error
};

/// Runs a program to its end, within the usual limit of waiting.
/// \param command the program, looked up as the shell does, and its arguments
/// \param input what it finds on its standard input
///
/// \code
/// auto const result = TestSupport::RunProgram({"wc", "-c"}, "four");
/// EXPECT_EQ(result.output, "4\n");
/// EXPECT_EQ(result.status, 0);
/// \endcode
ProgramResult RunProgram(
    std::vector<std::string> const& command, std::string const& input = "",
    ProgramOptions const& options = ProgramOptions());

/// A program that runs beside the test. A program that can't be run ends with status 127.
///
/// \code
/// TestSupport::Program program({"sh", "-c", "echo ready; read line; echo $line"});
/// ASSERT_TRUE(program.WaitForOutput("ready\n"));
/// program.Write("go on\n");
/// EXPECT_EQ(program.Wait().output, "ready\ngo on\n");
/// \endcode
class Program : public Process {
public:
    explicit Program(std::vector<std::string> const& command, ProgramOptions const& options = ProgramOptions());

    /// Kills the program when its end was not seen.
    ~Program();

    /// Gives the program input; what it does not read yet is kept for it.
    void Write(std::string const& text);

    /// Ends its input, after what was given.
    void CloseInput();

    /// Waits until its whole standard output so far contains the text.
    /// \return false, with the test failed, when that does not come about
    bool WaitForOutput(std::string const& text);

    /// As WaitForOutput, for its standard error.
    bool WaitForErrors(std::string const& text);

    /// Ends its input, and waits for its end.
    ProgramResult Wait();

    /// Ends the program by a signal.
    ProgramResult Kill(int signal = SIGKILL);

private:
    bool WaitForText(std::string const& caught, std::string const& text);
    void Transfer();
    ProgramResult Finish();

    std::string pending_;
    bool isInputEnding_ = false;
    ProgramResult result_;
    int input_ = -1;
    int output_ = -1;
    int errors_ = -1;
};

} // namespace TestSupport

#endif
