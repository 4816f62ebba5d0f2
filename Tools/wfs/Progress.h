#ifndef WFILESYSTEM_TOOLS_WFS_PROGRESS_H
#define WFILESYSTEM_TOOLS_WFS_PROGRESS_H

// The bar of a long operation.

#include <chrono>

namespace Wfs {

/// Shows on standard error, where that is a terminal, how far an operation has come, from its second second on.
class Progress {
public:
    /// \param total what Add will come to, in bytes; 0 or less when nobody knows
    explicit Progress(long long total);
    /// Takes the bar away.
    ~Progress();

    Progress(Progress const&) = delete;
    Progress& operator=(Progress const&) = delete;

    void Add(unsigned long bytes);

private:
    using Clock = std::chrono::steady_clock;

    void Show();

    long long total_;
    long long done_ = 0;
    bool canShow_;
    bool isShown_ = false;
    Clock::time_point next_;
};

} // namespace Wfs

#endif
