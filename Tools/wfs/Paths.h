#ifndef WFILESYSTEM_TOOLS_WFS_PATHS_H
#define WFILESYSTEM_TOOLS_WFS_PATHS_H

// Paths on the command line.

#include <Tools/wfs/Failure.h>

#include <CLI/CLI.hpp>

#include <functional>
#include <string>
#include <vector>

namespace Wfs {

/// An argument as CLI11 must get it, which else has a syntax of its own inside arguments: "[a,b]" and "{}" are lists,
/// "%%" separates. Where it looks so, it gets a NUL at its end, which AddPaths takes away.
std::string Shield(std::string argument);

/// The argument again.
std::string Unshield(std::string const& argument);

/// Declares one or more paths.
void AddPaths(
    CLI::App& verb, std::vector<std::string>& paths, char const* name = "PATH", char const* description = "The files");

/// Declares one path.
void AddPath(CLI::App& verb, char const* name, std::string& path, char const* description);

/// Does the work for each path, one after the other, and goes on after a failure, which it reports.
/// \param paths in UTF-8; one that is not fails
/// \param work gets the path; throws a Failure or a WBase::Message to say that it failed
/// \return SUCCESS; LOCK_NOT_OBTAINED where nothing else failed than locks not obtained in time; FAILURE
/// \throws whatever else leaves the work
ExitStatus ForEachPath(std::vector<std::string> const& paths, std::function<void(wchar_t const* path)> const& work);

/// As ForEachPath, for an operation from one path to another.
ExitStatus ForTwoPaths(
    std::string const& from, std::string const& to,
    std::function<void(wchar_t const* from, wchar_t const* to)> const& work);

} // namespace Wfs

#endif
