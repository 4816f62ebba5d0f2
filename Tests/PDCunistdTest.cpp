// WPDCHeader: the close that is repeated, and the rule for calls that a signal interrupts.

#include <PDCHeader/PDCunistd.h>

#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Recorder.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <vector>

namespace {

using testing::Each;
using testing::ElementsAre;
using TestSupport::Call;
using TestSupport::Recorder;

int OpenNull() {
    return ::open("/dev/null", O_RDWR | O_CLOEXEC);
}

static_assert(noexcept(WPDCHeader::close(0)), "A close never throws.");

TEST(CloseTest, CloseIsOneCallWhenItSucceeds) {
    TestSupport::DescriptorCheck const check;
    int const fd = OpenNull();
    Recorder recorder;
    EXPECT_EQ(WPDCHeader::close(fd), 0);
    EXPECT_THAT(
        recorder.Calls(Recorder::DESCRIPTORS | Recorder::RESULTS),
        ElementsAre("close(" + std::to_string(fd) + ") = 0"));
}

TEST(CloseTest, EveryResultButMinusOneIsReturned) {
    for (int const result : {5, -2}) {
        Recorder recorder;
        recorder.On("close").Script({result});
        errno = EINTR;
        EXPECT_EQ(WPDCHeader::close(100), result);
        EXPECT_EQ(recorder.Names(), "close");
    }
}

TEST(CloseTest, AnErrorOtherThanAnInterruptionEndsIt) {
    for (int const error : {EBADF, EIO, ENOSPC, EDQUOT, EAGAIN}) {
        Recorder recorder;
        recorder.On("close").FailWithoutCalling(error);
        EXPECT_EQ(WPDCHeader::close(100), -1);
        EXPECT_EQ(errno, error);
        EXPECT_EQ(recorder.Names(), "close");
    }
}

TEST(CloseTest, AClosedDescriptorIsAFailure) {
    EXPECT_EQ(WPDCHeader::close(-1), -1);
    EXPECT_EQ(errno, EBADF);
}

TEST(CloseTest, CloseIsRepeatedNineTimesAfterInterruptions) {
    TestSupport::DescriptorCheck const check;
    int const fd = OpenNull();
    Recorder recorder;
    recorder.On("close").First(9).FailWithoutCalling(EINTR);
    EXPECT_EQ(WPDCHeader::close(fd), 0);
    std::vector<std::string> const calls = recorder.Calls(Recorder::DESCRIPTORS);
    EXPECT_EQ(calls.size(), 10U);
    EXPECT_THAT(calls, Each("close(" + std::to_string(fd) + ")"));
}

TEST(CloseTest, CloseIsCalledTenTimesAtMost) {
    Recorder recorder;
    recorder.On("close").FailWithoutCalling(EINTR);
    EXPECT_EQ(WPDCHeader::close(100), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(recorder.Count("close"), 10U);
}

TEST(CloseTest, TheTenthCallsErrorIsLeft) {
    Recorder recorder;
    recorder.On("close").FailWithoutCalling(EINTR);
    recorder.On("close").Nth(10).FailWithoutCalling(EIO);
    EXPECT_EQ(WPDCHeader::close(100), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(recorder.Count("close"), 10U);
}

TEST(CloseTest, AnotherErrorAfterAnInterruptionEndsIt) {
    Recorder recorder;
    recorder.On("close").Nth(1).FailWithoutCalling(EINTR);
    recorder.On("close").Nth(2).FailWithoutCalling(EIO);
    EXPECT_EQ(WPDCHeader::close(100), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(recorder.Count("close"), 2U);
}

// Linux has released the number when it says that a close was interrupted.
TEST(CloseTest, ARepeatedCloseClosesWhateverGotTheNumberInBetween) {
    int const fd = OpenNull();
    int other = -1;
    Recorder recorder;
    recorder.On("close").Nth(1).After([&](Call& call) {
        other = OpenNull();
        call.result = -1;
        errno = EINTR;
    });
    EXPECT_EQ(WPDCHeader::close(fd), 0);
    EXPECT_EQ(other, fd);
    EXPECT_FALSE(TestSupport::IsOpen(other));
}

/// A call that gives these results in turn, with this errno.
struct Scripted {
    std::vector<long> results;
    int error;
    unsigned long calls = 0;

    long operator()() {
        errno = error;
        return results.at(calls++);
    }
};

TEST(RetryWhileInterruptedTest, ACallIsRepeatedWithoutLimit) {
    std::vector<long> results(10000, -1);
    results.push_back(3);
    Scripted call{results, EINTR};
    EXPECT_EQ(WPDCHeader::RetryWhileInterrupted([&] { return call(); }), 3);
    EXPECT_EQ(call.calls, 10001U);
}

TEST(RetryWhileInterruptedTest, AnotherErrorIsNotRepeated) {
    Scripted call{{-1, 0}, EAGAIN};
    EXPECT_EQ(WPDCHeader::RetryWhileInterrupted([&] { return call(); }), -1);
    EXPECT_EQ(errno, EAGAIN);
    EXPECT_EQ(call.calls, 1U);
}

TEST(RetryWhileInterruptedTest, OnlyMinusOneIsAFailure) {
    for (long const result : {0L, 5L, -2L}) {
        Scripted call{{result, 1}, EINTR}; // left over from an earlier call
        EXPECT_EQ(WPDCHeader::RetryWhileInterrupted([&] { return call(); }), result);
        EXPECT_EQ(call.calls, 1U);
    }
}

TEST(RetryWhileInterruptedTest, TheResultKeepsItsType) {
    constexpr long LONG_RESULT = 0x1FFFFFFFFL;
    auto const result = WPDCHeader::RetryWhileInterrupted([] { return LONG_RESULT; });
    EXPECT_EQ(result, LONG_RESULT);
}

} // namespace
