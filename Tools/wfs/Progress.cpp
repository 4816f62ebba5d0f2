#include <Tools/wfs/Progress.h>

#include <Tools/wfs/Terminal.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace Wfs {

Progress::Progress(long long total)
    : total_(total), canShow_(CanShowProgress()), next_(Clock::now() + std::chrono::seconds(1)) {}

Progress::~Progress() {
    if (isShown_) {
        std::fputs("\r\033[K", stderr);
    }
}

void Progress::Add(unsigned long bytes) {
    done_ += static_cast<long long>(bytes);
    if (canShow_ && Clock::now() >= next_) {
        Show();
        next_ = Clock::now() + std::chrono::milliseconds(100);
    }
}

void Progress::Show() {
    constexpr long long WIDTH = 40;
    constexpr long long MEBIBYTE = 1024LL * 1024;
    // A file may grow while it is copied.
    long long const filled = total_ > 0 ? std::min(WIDTH, WIDTH * done_ / total_) : 0;
    std::string bar(static_cast<std::size_t>(WIDTH), ' ');
    std::fill_n(bar.begin(), filled, '#');
    std::fprintf(stderr, "\r[%s] %lld MiB", bar.c_str(), done_ / MEBIBYTE);
    if (total_ > 0) {
        std::fprintf(stderr, " of %lld", total_ / MEBIBYTE);
    }
    isShown_ = true;
}

} // namespace Wfs
