#include <Base/System.h>

#include <Tests/Support/Environment.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Text.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <optional>
#include <string>
#include <thread>

#include <signal.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using ::testing::ElementsAre;
using TestSupport::Call;
using TestSupport::Environment;
using TestSupport::Recorder;

// ---- The last error and its description

TEST(SystemTest, TheLastErrorIsErrno) {
    errno = ENOSPC;
    EXPECT_EQ(WBase::GetLastError(), static_cast<unsigned int>(ENOSPC));
    errno = 0;
    EXPECT_EQ(WBase::GetLastError(), 0U);
}

TEST(SystemTest, EachThreadHasItsOwnLastError) {
    errno = ENOSPC;
    unsigned int other = 0;
    std::thread([&] {
        errno = EIO;
        other = WBase::GetLastError();
    }).join();
    EXPECT_EQ(other, static_cast<unsigned int>(EIO));
    EXPECT_EQ(WBase::GetLastError(), static_cast<unsigned int>(ENOSPC));
}

TEST(SystemTest, EveryErrorIsDescribedInTheSystemsWords) {
    for (int error = 0; error < 200; ++error) {
        EXPECT_EQ(
            WBase::GetSystemErrorDescription(static_cast<unsigned int>(error)).c_str(),
            TestSupport::ErrorDescription(error));
    }
}

TEST(SystemTest, AnUnknownErrorIsDescribedToo) {
    EXPECT_GT(WBase::GetSystemErrorDescription(123456).size(), 0U);
    EXPECT_GT(WBase::GetSystemErrorDescription(0xFFFFFFFF).size(), 0U);
}

TEST(SystemTest, BadBytesInTheSystemsWordsAreReplaced) {
    char words[] = "Zugriff f\xFCr alle verweigert";
    Recorder recorder("strerror_r");
    recorder.On("strerror_r").Instead([&](Call const&) { return reinterpret_cast<long>(words); });
    EXPECT_STREQ(WBase::GetSystemErrorDescription(EACCES).c_str(), L"Zugriff f\uFFFDr alle verweigert");
}

// ---- The directory for temporary files

std::string ContainerPathWith(std::optional<std::string> const& value) {
    Environment const variable("TMPDIR", value);
    return WBase::GetContainerPath().c_str();
}

TEST(SystemTest, TemporaryFilesAreMadeInTheDirectoryOfTheEnvironment) {
    TestSupport::ScratchDirectory const scratch;
    EXPECT_EQ(ContainerPathWith(scratch.Path()), scratch.Path());
}

TEST(SystemTest, TheDirectoryOfTheEnvironmentIsTakenAsItIs) {
    TestSupport::ScratchDirectory const scratch;
    std::string const link = scratch / "Verzeichnis-\xC3\xA4";
    ASSERT_EQ(::symlink("/", link.c_str()), 0);
    EXPECT_EQ(ContainerPathWith(link + "//"), link + "//");
    EXPECT_EQ(ContainerPathWith("."), ".");
}

TEST(SystemTest, WhatIsNoDirectoryGivesWayToTmp) {
    TestSupport::ScratchDirectory const scratch;
    TestSupport::WriteFile(scratch / "file", "");
    EXPECT_EQ(ContainerPathWith(std::nullopt), "/tmp");
    EXPECT_EQ(ContainerPathWith(""), "/tmp");
    EXPECT_EQ(ContainerPathWith(scratch / "file"), "/tmp");
    EXPECT_EQ(ContainerPathWith(scratch / "missing"), "/tmp");
}

// ---- Sleeping

TEST(SystemTest, SleepTakesMilliseconds) {
    Recorder recorder;
    recorder.On("nanosleep").Return(0);
    WBase::Sleep(0);
    WBase::Sleep(1);
    WBase::Sleep(5000);
    WBase::Sleep(1234);
    EXPECT_THAT(
        recorder.Calls(),
        ElementsAre("nanosleep(0s 0ns)", "nanosleep(0s 1000000ns)", "nanosleep(5s 0ns)", "nanosleep(1s 234000000ns)"));
}

TEST(SystemTest, SleepGoesOnForTheRestAfterASignal) {
    Recorder recorder;
    recorder.On("nanosleep").Return(0);
    recorder.On("nanosleep").First(2).Instead([rest = 9](Call const& call) mutable -> long {
        *static_cast<timespec*>(call.data) = {rest--, 500};
        errno = EINTR;
        return -1;
    });
    WBase::Sleep(10000);
    EXPECT_THAT(recorder.Calls(), ElementsAre("nanosleep(10s 0ns)", "nanosleep(9s 500ns)", "nanosleep(8s 500ns)"));
}

TEST(SystemTest, SleepEndsAtAnyOtherFailure) {
    Recorder recorder;
    recorder.On("nanosleep").FailWithoutCalling(EINVAL);
    WBase::Sleep(10000);
    EXPECT_EQ(recorder.Count("nanosleep"), 1U);
}

TEST(SystemTest, SleepLastsItsTimeThroughRealSignals) {
    struct sigaction action = {};
    action.sa_handler = [](int) {};
    ASSERT_EQ(::sigaction(SIGALRM, &action, nullptr), 0);
    itimerval const every5Milliseconds = {{0, 5000}, {0, 5000}};
    ASSERT_EQ(::setitimer(ITIMER_REAL, &every5Milliseconds, nullptr), 0);
    auto const start = std::chrono::steady_clock::now();
    WBase::Sleep(60);
    auto const elapsed = std::chrono::steady_clock::now() - start;
    itimerval const off = {};
    ::setitimer(ITIMER_REAL, &off, nullptr);
    EXPECT_GE(elapsed, std::chrono::milliseconds(60));
}

} // namespace
