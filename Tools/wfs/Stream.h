#ifndef WFILESYSTEM_TOOLS_WFS_STREAM_H
#define WFILESYSTEM_TOOLS_WFS_STREAM_H

#include <cstdio>
#include <memory>

namespace Wfs {

/// For a StreamPtr.
struct StreamCloser {
    void operator()(FILE* stream) const noexcept { std::fclose(stream); }
};

/// A stream, closed at the end without a word about it.
using StreamPtr = std::unique_ptr<FILE, StreamCloser>;

} // namespace Wfs

#endif
