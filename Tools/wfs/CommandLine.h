#ifndef WFILESYSTEM_TOOLS_WFS_COMMANDLINE_H
#define WFILESYSTEM_TOOLS_WFS_COMMANDLINE_H

// The whole program but for `main`.

#include <Tools/wfs/Failure.h>

namespace Wfs {

/// Understands the command line, does what it asks for, and reports what goes wrong.
ExitStatus Run(int argc, char const* const* argv) noexcept;

} // namespace Wfs

#endif
