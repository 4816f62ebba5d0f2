#ifndef WFILESYSTEM_TESTS_SUPPORT_TERMINAL_H
#define WFILESYSTEM_TESTS_SUPPORT_TERMINAL_H

/// \file
/// \brief A terminal that is none.

#include <string>

namespace TestSupport {

/// A pseudo-terminal. What is written to it comes out as it is, line feeds as well; as long as nobody reads it has room
/// for a few lines.
///
/// \code
/// TestSupport::Terminal terminal;
/// TestSupport::RunProgram({"sh", "-c", "ls missing 2>" + terminal.Path()});
/// EXPECT_THAT(terminal.ReadToEnd(), HasSubstr("missing"));
/// \endcode
class Terminal {
public:
    Terminal();
    ~Terminal();

    Terminal(Terminal const&) = delete;
    Terminal& operator=(Terminal const&) = delete;

    /// The descriptor of the terminal.
    int Get() const { return terminal_; }

    /// The name of the terminal, which others can open.
    std::string Path() const;

    /// Closes the descriptor, and takes what was written until everybody else has closed theirs, too. The test fails
    /// when that does not come about.
    std::string ReadToEnd();

private:
    int reader_ = -1;
    int terminal_ = -1;
};

} // namespace TestSupport

#endif
