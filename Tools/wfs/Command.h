#ifndef WFILESYSTEM_TOOLS_WFS_COMMAND_H
#define WFILESYSTEM_TOOLS_WFS_COMMAND_H

// Other programs that a verb runs.

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

namespace Wfs {

/// Declares a command with its arguments, which stand behind "--".
void AddCommand(CLI::App& verb, std::vector<std::string>& command);

/// The command as the system wants it; valid as long as `command`.
std::vector<char*> ArgumentsOf(std::vector<std::string> const& command);

/// Waits for the end of a child.
/// \return its exit status, or 128 and the number of the signal that ended it
/// \throws std::system_error
int WaitForEnd(pid_t child);

} // namespace Wfs

#endif
