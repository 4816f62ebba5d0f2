#ifndef WFILESYSTEM_TOOLS_WFS_COMMANDLINE_H
#define WFILESYSTEM_TOOLS_WFS_COMMANDLINE_H

// The whole program but for `main`.

#include <Tools/wfs/Failure.h>
#include <Tools/wfs/Verb.h>

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace Wfs {

/// The program's options and verbs.
class CommandLine {
public:
    CommandLine();

    CommandLine(CommandLine const&) = delete;
    CommandLine& operator=(CommandLine const&) = delete;

    CLI::App const& GetProgram() const { return program_; }

    /// Understands the command line and does what it asks for.
    /// \throws what leaves the verbs
    ExitStatus Run(int argc, char const* const* argv);

private:
    CLI::App const& GetGivenVerb() const;
    ExitStatus Help() const;
    ExitStatus RefuseUsage(std::string text) const;

    CLI::App program_{"Reads and writes files by the rules of the WFileSystem library.", "wfs"};
    Work work_;
    CLI::App* help_ = nullptr;
    std::vector<std::string> helpTopic_;
};

/// Understands the command line, does what it asks for, and reports what goes wrong.
ExitStatus Run(int argc, char const* const* argv) noexcept;

} // namespace Wfs

#endif
