#include <Base/TotalTimer.h>

#include <gtest/gtest.h>

#include <chrono>
#include <memory>
#include <stdexcept>

namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;
using WBase::TotalTimer;
using Timer = WBase::TotalTimer::Timer;

/// Lets the clock go on.
nanoseconds Pass(nanoseconds duration = std::chrono::milliseconds(2)) {
    auto const start = steady_clock::now();
    while (steady_clock::now() - start < duration) {
    }
    return duration;
}

TEST(TotalTimerTest, ATotalBeginsWithZero) {
    EXPECT_EQ(TotalTimer().GetTotal(), nanoseconds(0));
}

TEST(TotalTimerTest, AnIntervalIsAddedWhenItIsStopped) {
    TotalTimer total;
    auto const start = steady_clock::now();
    Timer timer(total);
    nanoseconds const least = Pass();
    EXPECT_EQ(total.GetTotal(), nanoseconds(0));
    timer.Stop();
    auto const most = steady_clock::now() - start;
    EXPECT_GE(total.GetTotal(), least);
    EXPECT_LE(total.GetTotal(), most);
}

TEST(TotalTimerTest, IntervalsAddUp) {
    TotalTimer total;
    auto const start = steady_clock::now();
    nanoseconds least(0);
    for (int i = 0; i < 5; ++i) {
        Timer timer(total);
        least += Pass();
        timer.Stop();
    }
    EXPECT_GE(total.GetTotal(), least);
    EXPECT_LE(total.GetTotal(), steady_clock::now() - start);
}

TEST(TotalTimerTest, TimeBetweenIntervalsDoesNotCount) {
    TotalTimer total;
    auto const start = steady_clock::now();
    nanoseconds between(0);
    for (int i = 0; i < 5; ++i) {
        between += Pass();
        Timer(total).Stop();
    }
    EXPECT_LE(total.GetTotal(), steady_clock::now() - start - between);
}

TEST(TotalTimerTest, ASecondStopHasNoEffect) {
    TotalTimer total;
    Timer timer(total);
    timer.Stop();
    nanoseconds const atFirst = total.GetTotal();
    Pass();
    timer.Stop();
    EXPECT_EQ(total.GetTotal(), atFirst);
}

TEST(TotalTimerTest, ATimerStopsAtTheLatestWithItsEnd) {
    TotalTimer total;
    nanoseconds least(0);
    try {
        Timer const timer(total);
        least = Pass();
        throw std::runtime_error("the timed call fails");
    } catch (std::runtime_error const&) {
    }
    EXPECT_GE(total.GetTotal(), least);
}

TEST(TotalTimerTest, TheEndOfAStoppedTimerAddsNothing) {
    TotalTimer total;
    auto timer = std::make_unique<Timer>(total);
    timer->Stop();
    nanoseconds const atStop = total.GetTotal();
    Pass();
    timer.reset();
    EXPECT_EQ(total.GetTotal(), atStop);
}

} // namespace
