#ifndef WFILESYSTEM_BASE_TOTALTIMER_H
#define WFILESYSTEM_BASE_TOTALTIMER_H

/// \file
/// \brief An accumulator of elapsed time.

#include <chrono>

namespace WBase {

/// Adds up the time of the intervals that Timer objects measure into it.
///
/// \par Threads
///     Not synchronised: one thread at a time.
class TotalTimer {
public:
    class Timer;

    /// The sum of all intervals that have ended, by a steady clock.
    std::chrono::nanoseconds GetTotal() const noexcept { return total_; }

private:
    std::chrono::nanoseconds total_{};
};

/// Measures one interval, from its construction to Stop() or else to its destruction.
class TotalTimer::Timer {
public:
    /// Starts measuring into `total`, which must outlive this object.
    explicit Timer(TotalTimer& total) noexcept : total_(&total), start_(Clock::now()) {}
    Timer(Timer const&) = delete;
    Timer& operator=(Timer const&) = delete;
    ~Timer() { Stop(); }

    /// Ends the interval and adds it to the total; has no effect when repeated.
    void Stop() noexcept {
        if (total_ != nullptr) {
            total_->total_ += std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - start_);
            total_ = nullptr;
        }
    }

private:
    using Clock = std::chrono::steady_clock;

    TotalTimer* total_;
    Clock::time_point start_;
};

} // namespace WBase

#endif
