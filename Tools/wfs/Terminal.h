#ifndef WFILESYSTEM_TOOLS_WFS_TERMINAL_H
#define WFILESYSTEM_TOOLS_WFS_TERMINAL_H

// Whether somebody is looking.

namespace Wfs {

/// Standard error is a terminal that can do more than print.
bool CanShowProgress() noexcept;

/// As CanShowProgress, and colours are welcome.
bool CanShowColours() noexcept;

} // namespace Wfs

#endif
