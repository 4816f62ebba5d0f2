#ifndef WFILESYSTEM_TOOLS_WFS_OUTPUT_H
#define WFILESYSTEM_TOOLS_WFS_OUTPUT_H

// Standard output.

#include <string_view>

namespace Wfs {

/// Gives each closed standard stream a descriptor that fails when it is used. Otherwise the first file that is opened
/// would get the number, and be taken for the stream.
void OpenStandardStreams();

/// Writes at once, so that the order of output and reports is kept.
/// \throws OutputFailure
void WriteOutput(std::string_view data);

/// Closes standard output, which is when some file systems tell that earlier data could not be stored.
/// \throws OutputFailure
void CloseOutput();

/// True when standard output is the regular file that the path names.
bool IsOutput(wchar_t const* path);

} // namespace Wfs

#endif
