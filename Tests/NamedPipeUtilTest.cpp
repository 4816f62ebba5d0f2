// The transfers behind the named pipes, the FIFOs and their names.

#include <FileSystem/PrivateSource/NamedPipeUtil.h>

#include <Base/Exception.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/NamedPipes.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace TestSupport;
using namespace WFileSystem;
using ::testing::ElementsAre;

constexpr int PAUSE = 7;
constexpr wchar_t UNCONVERTIBLE[] = {L'a', static_cast<wchar_t>(0xD800), L'\0'};

// What the count of a message can hold, and a size that it can't.
constexpr long LARGEST_COUNT = 0x7FFFFFFF;
constexpr unsigned long TOO_LARGE = 0x80000002;

/// A pipe whose ends do not block, and ten bytes.
class NamedPipeUtilTest : public ::testing::Test {
protected:
    NamedPipeUtilTest() {
        int ends[2];
        EXPECT_EQ(::pipe(ends), 0);
        readEnd_ = ends[0];
        writeEnd_ = ends[1];
        SetBlocking(false);
    }
    ~NamedPipeUtilTest() override {
        ::close(readEnd_);
        ::close(writeEnd_);
    }

    void SetBlocking(bool blocks) const {
        ::fcntl(readEnd_, F_SETFL, blocks ? 0 : O_NONBLOCK);
        ::fcntl(writeEnd_, F_SETFL, blocks ? 0 : O_NONBLOCK);
    }

    // What the pipe gives is in buffer_ afterwards.
    int PollRead(unsigned long n) { return NamedPipeUtil::Read(readEnd_, buffer_, n, NamedPipeStory::Cancel, PAUSE); }
    int BlockRead(unsigned long n) { return NamedPipeUtil::Read(readEnd_, buffer_, n); }

    int PollWrite(unsigned long n) const {
        return NamedPipeUtil::Write(writeEnd_, "0123456789", n, NamedPipeStory::Cancel, PAUSE);
    }
    int BlockWrite(unsigned long n) const { return NamedPipeUtil::Write(writeEnd_, "0123456789", n); }

    void Send(std::string_view bytes) const {
        Unobserved const unobserved;
        ASSERT_EQ(::write(writeEnd_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
    }

    // All that is in the pipe.
    std::string Receive() const {
        Unobserved const unobserved;
        char bytes[64];
        ssize_t const n = ::read(readEnd_, bytes, sizeof bytes);
        return std::string(bytes, n == -1 ? 0 : static_cast<std::size_t>(n));
    }

    std::string Got() const { return buffer_; }

    SigpipeDisposition const disposition_{SIG_DFL};
    int readEnd_ = -1;
    int writeEnd_ = -1;
    char buffer_[64] = {};
};

std::string WriteError(int error) {
    return std::string("Named pipe write error : ") + std::strerror(error);
}

// ---- The polling read

TEST_F(NamedPipeUtilTest, PollingReadAsksTheCallbackFirstAndDoesNotSleepAfterTheLastByte) {
    Send("0123456789");
    NamedPipeStory const story;
    EXPECT_EQ(PollRead(10), 0);
    EXPECT_EQ(story.Tell(), "cancel read(10)");
    EXPECT_EQ(Got(), "0123456789");
}

TEST_F(NamedPipeUtilTest, PollingReadSleepsAndAsksBeforeItReadsTheRest) {
    Send("0123456789");
    NamedPipeStory story;
    story.recorder.On("read").First(2).Limit(4);
    story.recorder.On("sleep").Return(0);
    EXPECT_EQ(PollRead(10), 0);
    EXPECT_EQ(story.Tell(), "cancel read(10) sleep(7) cancel read(6) sleep(7) cancel read(2)");
    EXPECT_EQ(Got(), "0123456789");
}

TEST_F(NamedPipeUtilTest, PollingReadKeepsItsCountWhileThereIsNothing) {
    Send("0123");
    NamedPipeStory story;
    story.recorder.On("sleep").Nth(1).Return(0);
    story.recorder.On("sleep").Nth(2).Instead([&](Call const&) {
        Send("456789");
        return 0L;
    });
    EXPECT_EQ(PollRead(10), 0);
    EXPECT_EQ(story.Tell(), "cancel read(10) sleep(7) cancel read(6) sleep(7) cancel read(6)");
    EXPECT_EQ(Got(), "0123456789");
}

TEST_F(NamedPipeUtilTest, PollingReadTakesTheEndOfFileForAShortReadAndGoesOn) {
    ::close(std::exchange(writeEnd_, -1));
    NamedPipeStory story(4);
    story.recorder.On("sleep").Return(0);
    EXPECT_EQ(PollRead(4), -1);
    EXPECT_EQ(story.Tell(), "cancel read(4) sleep(7) cancel read(4) sleep(7) cancel read(4) sleep(7) cancel");
}

TEST_F(NamedPipeUtilTest, PollingReadThatIsCancelledAtOnceTouchesNothing) {
    NamedPipeStory const story(1);
    EXPECT_EQ(PollRead(4), -1);
    EXPECT_EQ(story.Tell(), "cancel");
}

TEST_F(NamedPipeUtilTest, PollingReadIsCancelledAfterTheSleepThatFollowsAShortRead) {
    Send("01");
    NamedPipeStory story(2);
    story.recorder.On("sleep").Return(0);
    EXPECT_EQ(PollRead(4), -1);
    EXPECT_EQ(story.Tell(), "cancel read(4) sleep(7) cancel");
    EXPECT_EQ(Got(), "01");
}

TEST_F(NamedPipeUtilTest, PollingReadIsCancelledAfterTheSleepThatFollowsAnEmptyPipe) {
    NamedPipeStory story(2);
    story.recorder.On("sleep").Return(0);
    EXPECT_EQ(PollRead(4), -1);
    EXPECT_EQ(story.Tell(), "cancel read(4) sleep(7) cancel");
}

TEST_F(NamedPipeUtilTest, PollingReadOfNothingReadsNothingOnce) {
    NamedPipeStory const story;
    EXPECT_EQ(PollRead(0), 0);
    EXPECT_EQ(story.Tell(), "cancel read(0)");
}

TEST_F(NamedPipeUtilTest, PollingReadFailsAtOnceForEveryErrorButEmptiness) {
    for (int const error : {EINTR, EIO, EBADF, EISDIR}) {
        NamedPipeStory story;
        story.recorder.On("read").Fail(error);
        EXPECT_EQ(NamedPipeErrorOf([&] { PollRead(4); }), "Named pipe read error") << error;
        EXPECT_EQ(story.Tell(), "cancel read(4)") << error;
    }
}

TEST_F(NamedPipeUtilTest, PollingReadFailsAlsoInTheMiddle) {
    NamedPipeStory story;
    story.recorder.On("read").Script({1, -1}, EINTR);
    story.recorder.On("sleep").Return(0);
    EXPECT_EQ(NamedPipeErrorOf([&] { PollRead(4); }), "Named pipe read error");
    EXPECT_EQ(story.Tell(), "cancel read(4) sleep(7) cancel read(3)");
}

TEST_F(NamedPipeUtilTest, PollingReadCountsIn32BitsAndEndsWhenTheCountOverflows) {
    NamedPipeStory story;
    story.recorder.On("read").Script({LARGEST_COUNT, 1});
    story.recorder.On("sleep").Return(0);
    EXPECT_EQ(PollRead(TOO_LARGE), 0);
    EXPECT_EQ(story.Tell(), "cancel read(2147483650) sleep(7) cancel read(3)");
}

// ---- The polling write

constexpr char IGNORE[] = "sigaction(SIGPIPE, SIG_IGN) ";
constexpr char RESTORE[] = " sigaction(SIGPIPE, SIG_DFL)";

// The story of a write between its first and its last call.
std::string Ignoring(std::string const& story) {
    return IGNORE + story + RESTORE;
}

TEST_F(NamedPipeUtilTest, PollingWriteIgnoresSigpipeThenAsksAndDoesNotSleepAfterTheLastByte) {
    NamedPipeStory const story;
    EXPECT_EQ(PollWrite(10), 0);
    EXPECT_EQ(story.Tell(), Ignoring("cancel write(10)"));
    EXPECT_EQ(Receive(), "0123456789");
}

TEST_F(NamedPipeUtilTest, PollingWriteSleepsAndAsksBeforeItWritesTheRest) {
    NamedPipeStory story;
    story.recorder.On("write").First(2).Limit(4);
    story.recorder.On("sleep").Return(0);
    EXPECT_EQ(PollWrite(10), 0);
    EXPECT_EQ(story.Tell(), Ignoring("cancel write(10) sleep(7) cancel write(6) sleep(7) cancel write(2)"));
    EXPECT_EQ(Receive(), "0123456789");
}

TEST_F(NamedPipeUtilTest, PollingWriteKeepsItsCountWhileThereIsNoRoom) {
    NamedPipeStory story;
    story.recorder.On("write").Script({4, -1}, EAGAIN);
    story.recorder.On("sleep").Return(0);
    EXPECT_EQ(PollWrite(10), 0);
    EXPECT_EQ(story.Tell(), Ignoring("cancel write(10) sleep(7) cancel write(6) sleep(7) cancel write(6)"));
    EXPECT_EQ(Receive(), "456789");
}

TEST_F(NamedPipeUtilTest, PollingWriteToAFullPipeWaitsForRoom) {
    std::string const page(4096, 'x');
    while (::write(writeEnd_, page.data(), page.size()) > 0) {
    }
    NamedPipeStory story;
    story.recorder.On("sleep").Instead([&](Call const&) {
        std::string room(4096, '\0');
        EXPECT_EQ(::read(readEnd_, room.data(), room.size()), 4096);
        return 0L;
    });
    EXPECT_EQ(PollWrite(10), 0);
    EXPECT_EQ(story.Tell(), Ignoring("cancel write(10) sleep(7) cancel write(10)"));
}

TEST_F(NamedPipeUtilTest, PollingWriteThatIsCancelledAtOnceWritesNothing) {
    NamedPipeStory const story(1);
    EXPECT_EQ(PollWrite(4), -1);
    EXPECT_EQ(story.Tell(), Ignoring("cancel"));
    EXPECT_EQ(Receive(), "");
}

TEST_F(NamedPipeUtilTest, PollingWriteIsCancelledAfterTheSleepThatFollowsAShortWrite) {
    NamedPipeStory story(2);
    story.recorder.On("write").Limit(2);
    story.recorder.On("sleep").Return(0);
    EXPECT_EQ(PollWrite(4), -1);
    EXPECT_EQ(story.Tell(), Ignoring("cancel write(4) sleep(7) cancel"));
    EXPECT_EQ(Receive(), "01");
}

TEST_F(NamedPipeUtilTest, PollingWriteIsCancelledAfterTheSleepThatFollowsAFullPipe) {
    NamedPipeStory story(2);
    story.recorder.On("write").Fail(EAGAIN);
    story.recorder.On("sleep").Return(0);
    EXPECT_EQ(PollWrite(4), -1);
    EXPECT_EQ(story.Tell(), Ignoring("cancel write(4) sleep(7) cancel"));
}

TEST_F(NamedPipeUtilTest, PollingWriteOfNothingWritesNothingOnce) {
    NamedPipeStory const story;
    EXPECT_EQ(PollWrite(0), 0);
    EXPECT_EQ(story.Tell(), Ignoring("cancel write(0)"));
}

TEST_F(NamedPipeUtilTest, PollingWriteFailsAtOnceForEveryErrorButAFullPipe) {
    for (int const error : {EINTR, EPIPE, EIO, EBADF}) {
        NamedPipeStory story;
        story.recorder.On("write").Fail(error);
        EXPECT_EQ(NamedPipeErrorOf([&] { PollWrite(4); }), WriteError(error));
        EXPECT_EQ(story.Tell(), Ignoring("cancel write(4)")) << error;
    }
}

TEST_F(NamedPipeUtilTest, PollingWriteCountsIn32BitsAndEndsWhenTheCountOverflows) {
    NamedPipeStory story;
    story.recorder.On("write").Script({LARGEST_COUNT, 1});
    story.recorder.On("sleep").Return(0);
    EXPECT_EQ(PollWrite(TOO_LARGE), 0);
    EXPECT_EQ(story.Tell(), Ignoring("cancel write(2147483650) sleep(7) cancel write(3)"));
}

// ---- The blocking read

TEST_F(NamedPipeUtilTest, BlockingReadReadsTheRestAtOnceAndAsksNobody) {
    Send("0123456789");
    NamedPipeStory story;
    story.recorder.On("read").First(2).Limit(4);
    EXPECT_EQ(BlockRead(10), 0);
    EXPECT_EQ(story.Tell(), "read(10) read(6) read(2)");
    EXPECT_EQ(Got(), "0123456789");
}

TEST_F(NamedPipeUtilTest, BlockingReadOfNothingMakesNoCall) {
    NamedPipeStory const story;
    EXPECT_EQ(BlockRead(0), 0);
    EXPECT_EQ(story.Tell(), "");
}

TEST_F(NamedPipeUtilTest, BlockingReadRepeatsAtOnceAtTheEndOfFile) {
    NamedPipeStory story;
    story.recorder.On("read").Script({0, 2, 0, 2});
    EXPECT_EQ(BlockRead(4), 0);
    EXPECT_EQ(story.Tell(), "read(4) read(4) read(2) read(2)");
}

TEST_F(NamedPipeUtilTest, BlockingReadFailsForEveryError) {
    for (int const error : {EAGAIN, EINTR, EIO, EBADF}) {
        NamedPipeStory story;
        story.recorder.On("read").Script({1, -1}, error);
        EXPECT_EQ(NamedPipeErrorOf([&] { BlockRead(4); }), "Named pipe read error") << error;
        EXPECT_EQ(story.Tell(), "read(4) read(3)") << error;
    }
}

TEST_F(NamedPipeUtilTest, BlockingReadFailsWhereTheDescriptorDoesNotBlock) {
    EXPECT_EQ(NamedPipeErrorOf([&] { BlockRead(4); }), "Named pipe read error");
}

TEST_F(NamedPipeUtilTest, BlockingReadCountsIn32BitsAndEndsWhenTheCountOverflows) {
    NamedPipeStory story;
    story.recorder.On("read").Script({LARGEST_COUNT, 1});
    EXPECT_EQ(BlockRead(TOO_LARGE), 0);
    EXPECT_EQ(story.Tell(), "read(2147483650) read(3)");
}

// ---- The blocking write

TEST_F(NamedPipeUtilTest, BlockingWriteWritesTheRestAtOnceAndAsksNobody) {
    NamedPipeStory story;
    story.recorder.On("write").First(2).Limit(4);
    EXPECT_EQ(BlockWrite(10), 0);
    EXPECT_EQ(story.Tell(), Ignoring("write(10) write(6) write(2)"));
    EXPECT_EQ(Receive(), "0123456789");
}

TEST_F(NamedPipeUtilTest, BlockingWriteOfNothingWritesNothing) {
    NamedPipeStory const story;
    EXPECT_EQ(BlockWrite(0), 0);
    EXPECT_EQ(story.recorder.Names(), "sigaction sigaction");
}

TEST_F(NamedPipeUtilTest, BlockingWriteFailsForEveryError) {
    for (int const error : {EAGAIN, EINTR, EPIPE, EIO, EBADF}) {
        NamedPipeStory story;
        story.recorder.On("write").Script({1, -1}, error);
        EXPECT_EQ(NamedPipeErrorOf([&] { BlockWrite(4); }), WriteError(error));
        EXPECT_EQ(story.Tell(), Ignoring("write(4) write(3)")) << error;
    }
}

TEST_F(NamedPipeUtilTest, BlockingWriteCountsIn32BitsAndEndsWhenTheCountOverflows) {
    NamedPipeStory story;
    story.recorder.On("write").Script({LARGEST_COUNT, 1});
    EXPECT_EQ(BlockWrite(TOO_LARGE), 0);
    EXPECT_EQ(story.Tell(), Ignoring("write(2147483650) write(3)"));
}

// ---- Failures

TEST_F(NamedPipeUtilTest, NoTransferPrintsAnything) {
    std::string const printed = PrintedBy([&] {
        EXPECT_EQ(
            NamedPipeErrorOf([&] { NamedPipeUtil::Read(-1, buffer_, 4, NamedPipeStory::Cancel, 0); }),
            "Named pipe read error");
        EXPECT_EQ(NamedPipeErrorOf([&] { NamedPipeUtil::Read(-1, buffer_, 4); }), "Named pipe read error");
        EXPECT_EQ(
            NamedPipeErrorOf([&] { NamedPipeUtil::Write(-1, "data", 4, NamedPipeStory::Cancel, 0); }),
            WriteError(EBADF));
        EXPECT_EQ(NamedPipeErrorOf([&] { NamedPipeUtil::Write(-1, "data", 4); }), WriteError(EBADF));
    });
    EXPECT_EQ(printed, "");
}

// ---- The disposition of SIGPIPE

volatile sig_atomic_t arrivedSignals = 0;

void CountSignal(int) {
    arrivedSignals = arrivedSignals + 1;
}

/// One of the two writes, of the first `n` of ten bytes.
using Transfer = int (*)(int fd, unsigned long n);

class SigpipeTest : public NamedPipeUtilTest, public ::testing::WithParamInterface<Transfer> {
protected:
    SigpipeTest() { arrivedSignals = 0; }
};

INSTANTIATE_TEST_SUITE_P(
    BothWrites, SigpipeTest,
    ::testing::Values(
        [](int fd, unsigned long n) { return NamedPipeUtil::Write(fd, "0123456789", n, NamedPipeStory::Cancel, 0); },
        [](int fd, unsigned long n) { return NamedPipeUtil::Write(fd, "0123456789", n); }));

TEST_P(SigpipeTest, TheSignalIsIgnoredWhileAWriteRuns) {
    SigpipeDisposition const disposition(CountSignal, SA_RESTART);
    Recorder recorder;
    recorder.On("write").Before([](Call const&) { EXPECT_TRUE(SigpipeDisposition::IsIgnored()); });
    EXPECT_EQ(GetParam()(writeEnd_, 4), 0);
    EXPECT_TRUE(disposition.IsInForce());
}

TEST_P(SigpipeTest, AWriteThatFailsPutsTheDispositionBack) {
    SigpipeDisposition const disposition(CountSignal, SA_RESTART | SA_NODEFER);
    EXPECT_EQ(NamedPipeErrorOf([&] { GetParam()(-1, 4); }), WriteError(EBADF));
    EXPECT_TRUE(disposition.IsInForce());
}

TEST_P(SigpipeTest, AWriteThatFailsInTheMiddlePutsTheDispositionBack) {
    SigpipeDisposition const disposition(CountSignal, SA_RESTART);
    Recorder recorder;
    recorder.On("write").Script({1, -1}, EIO);
    EXPECT_EQ(NamedPipeErrorOf([&] { GetParam()(writeEnd_, 4); }), WriteError(EIO));
    EXPECT_TRUE(disposition.IsInForce());
}

TEST_P(SigpipeTest, AReaderThatHasGoneIsAnErrorAndNoSignal) {
    SigpipeDisposition const disposition(CountSignal);
    ::close(std::exchange(readEnd_, -1));
    EXPECT_EQ(NamedPipeErrorOf([&] { GetParam()(writeEnd_, 4); }), WriteError(EPIPE));
    EXPECT_EQ(arrivedSignals, 0);
    EXPECT_TRUE(disposition.IsInForce());
}

TEST_P(SigpipeTest, AReaderThatHasGoneDoesNotEndTheProcess) {
    SigpipeDisposition const disposition(SIG_DFL);
    ::close(std::exchange(readEnd_, -1));
    EXPECT_EQ(NamedPipeErrorOf([&] { GetParam()(writeEnd_, 4); }), WriteError(EPIPE));
    EXPECT_TRUE(disposition.IsInForce());
}

TEST_P(SigpipeTest, AWriteThatCannotIgnoreTheSignalWritesNothing) {
    SigpipeDisposition const disposition(CountSignal);
    Recorder recorder;
    recorder.On("sigaction").Fail(EINVAL);
    EXPECT_EQ(NamedPipeErrorOf([&] { GetParam()(writeEnd_, 4); }), "Failed to do sigaction()");
    EXPECT_THAT(recorder.Calls(), ElementsAre("sigaction(SIGPIPE, SIG_IGN)"));
    EXPECT_TRUE(disposition.IsInForce());
}

TEST_P(SigpipeTest, WhileAWriteRunsTheSignalIsIgnoredInEveryThread) {
    SigpipeDisposition const disposition(CountSignal);
    Recorder recorder;
    recorder.On("write").Before([](Call const&) { std::thread([] { std::raise(SIGPIPE); }).join(); });
    EXPECT_EQ(GetParam()(writeEnd_, 4), 0);
    EXPECT_EQ(arrivedSignals, 0);
    std::raise(SIGPIPE);
    EXPECT_EQ(arrivedSignals, 1);
}

TEST_F(NamedPipeUtilTest, TheIgnoringHasAnEmptyMaskAndNoFlags) {
    Recorder const recorder;
    BlockWrite(4);
    struct sigaction const ignore = recorder.Find("sigaction").action;
    EXPECT_EQ(ignore.sa_handler, SIG_IGN);
    EXPECT_EQ(ignore.sa_flags, 0);
    for (int signal = 1; signal < 32; ++signal) {
        EXPECT_EQ(sigismember(&ignore.sa_mask, signal), 0) << signal;
    }
}

TEST_F(NamedPipeUtilTest, AWriteThatIsCancelledPutsTheDispositionBack) {
    for (std::size_t const cancelAt : {1U, 2U}) {
        SigpipeDisposition const disposition(CountSignal, SA_RESTART);
        NamedPipeStory story(cancelAt);
        story.recorder.On("write").Optional().Fail(EAGAIN);
        story.recorder.On("sleep").Optional().Return(0);
        EXPECT_EQ(PollWrite(4), -1);
        EXPECT_TRUE(disposition.IsInForce()) << cancelAt;
    }
}

TEST_F(NamedPipeUtilTest, AWriteWhoseCallbackThrowsPutsTheDispositionBack) {
    SigpipeDisposition const disposition(CountSignal, SA_RESTART);
    EXPECT_THROW(
        NamedPipeUtil::Write(
            writeEnd_, "x", 1, []() -> bool { throw 1; }, 0),
        int);
    EXPECT_TRUE(disposition.IsInForce());
}

TEST_F(NamedPipeUtilTest, AGuardIgnoresItsSignalForItsScope) {
    SigpipeDisposition const disposition(CountSignal);
    {
        NamedPipeUtil::SmartSignalIgnore const guard(SIGPIPE);
        EXPECT_TRUE(SigpipeDisposition::IsIgnored());
    }
    EXPECT_TRUE(disposition.IsInForce());
}

TEST_F(NamedPipeUtilTest, AGuardOfASignalThatCannotBeIgnoredFails) {
    EXPECT_EQ(
        NamedPipeErrorOf([] { NamedPipeUtil::SmartSignalIgnore const guard(SIGKILL); }), "Failed to do sigaction()");
}

// ---- The pause

TEST_F(NamedPipeUtilTest, APauseIsOneSleepOfWholeSeconds) {
    Recorder recorder;
    recorder.On("sleep").Return(0);
    NamedPipeUtil::Pause(3);
    EXPECT_THAT(recorder.Calls(), ElementsAre("sleep(3)"));
}

TEST_F(NamedPipeUtilTest, APauseThatASignalEndsIsNotContinued) {
    Recorder recorder;
    recorder.On("sleep").Return(2);
    NamedPipeUtil::Pause(3);
    EXPECT_THAT(recorder.Calls(), ElementsAre("sleep(3)"));
}

TEST_F(NamedPipeUtilTest, APauseOfNothingReturnsAtOnce) {
    Recorder const recorder;
    NamedPipeUtil::Pause(0);
    EXPECT_THAT(recorder.Calls(), ElementsAre("sleep(0)"));
}

// ---- FIFOs and names

class NamedPipeFileTest : public ::testing::Test {
protected:
    NamedPipeFileTest() { ::umask(0022); }
    ~NamedPipeFileTest() override { ::umask(0022); }

    // Sets the mask to 0022 again.
    static mode_t MaskOfProcess() { return ::umask(0022); }

    bool IsFileExist(std::string_view name) const { return NamedPipeUtil::IsFileExist(scratch_.Wide(name)); }

    ScratchDirectory scratch_;
};

TEST_F(NamedPipeFileTest, EverythingThatStatFindsExists) {
    WriteFile(scratch_ / "file", "");
    ASSERT_EQ(::mkdir((scratch_ / "directory").c_str(), 0700), 0);
    ASSERT_EQ(::mkfifo((scratch_ / "fifo").c_str(), 0), 0);
    ASSERT_EQ(::symlink("file", (scratch_ / "link").c_str()), 0);
    for (char const* const name : {"file", "directory", "fifo", "link"}) {
        EXPECT_TRUE(IsFileExist(name)) << name;
    }
}

TEST_F(NamedPipeFileTest, NeitherAMissingFileNorALinkToOneExists) {
    ASSERT_EQ(::symlink("nothing", (scratch_ / "link").c_str()), 0);
    EXPECT_FALSE(IsFileExist("nothing"));
    EXPECT_FALSE(IsFileExist("link"));
    EXPECT_FALSE(IsFileExist("nothing/file"));
}

TEST_F(NamedPipeFileTest, AFileThatCannotBeLookedAtIsAssumedToExist) {
    WriteFile(scratch_ / "file", "");
    EXPECT_TRUE(IsFileExist("file/below")); // ENOTDIR
    for (int const error : {EACCES, ELOOP, ENAMETOOLONG, EIO}) {
        Recorder recorder;
        recorder.On("stat").Fail(error);
        EXPECT_TRUE(IsFileExist("nothing")) << error;
    }
}

TEST_F(NamedPipeFileTest, AFileBelowADirectoryWithoutSearchPermissionIsAssumedToExist) {
    ASSERT_EQ(::mkdir((scratch_ / "closed").c_str(), 0), 0);
    Child child([&](Child::Parent&) {
        if (::geteuid() == 0) {
            ASSERT_EQ(::setuid(65534), 0); // root may search everywhere
        }
        EXPECT_TRUE(IsFileExist("closed/nothing"));
    });
    EXPECT_EQ(child.Wait(), 0);
}

TEST_F(NamedPipeFileTest, LookingAtAFileIsRepeatedWhileInterrupted) {
    Recorder recorder;
    recorder.On("stat").First(20).Fail(EINTR);
    EXPECT_FALSE(IsFileExist("nothing"));
    EXPECT_EQ(recorder.Count("stat"), 21U);
}

TEST_F(NamedPipeFileTest, AFifoHasExactlyTheModeWhateverTheMask) {
    for (mode_t const mask : {0777U, 0022U, 0U}) {
        ::umask(mask);
        std::string const name = "fifo" + std::to_string(mask);
        EXPECT_EQ(NamedPipeUtil::Mkfifo(scratch_.Wide(name), 0646), 0);
        EXPECT_EQ(MaskOfProcess(), mask);
        EXPECT_EQ(ModeOf(scratch_ / name), 0646U);
        struct stat status;
        ASSERT_EQ(::stat((scratch_ / name).c_str(), &status), 0);
        EXPECT_TRUE(S_ISFIFO(status.st_mode));
    }
}

TEST_F(NamedPipeFileTest, MakingAFifoTakesTheMaskAwayForAMoment) {
    Recorder const recorder;
    NamedPipeUtil::Mkfifo(scratch_.Wide("fifo"), 0660);
    EXPECT_THAT(
        recorder.Calls(), ElementsAre("umask(0000)", "mkfifo(\"" + scratch_ / "fifo" + "\", 0660)", "umask(0022)"));
}

TEST_F(NamedPipeFileTest, AFileThatAnotherThreadMakesMeanwhileGetsAllItsBits) {
    Recorder recorder;
    recorder.On("mkfifo").Before([&](Call const&) {
        std::thread([&] { ::close(::open((scratch_ / "other").c_str(), O_WRONLY | O_CREAT, 0666)); }).join();
    });
    NamedPipeUtil::Mkfifo(scratch_.Wide("fifo"), 0660);
    EXPECT_EQ(ModeOf(scratch_ / "other"), 0666U);
}

TEST_F(NamedPipeFileTest, AFifoThatCannotBeMadeLeavesTheMaskAtZero) {
    WriteFile(scratch_ / "fifo", "");
    EXPECT_EQ(
        NamedPipeErrorOf([&] { NamedPipeUtil::Mkfifo(scratch_.Wide("fifo"), 0660); }), "Failed to create name pipe");
    EXPECT_EQ(MaskOfProcess(), 0U);
}

TEST_F(NamedPipeFileTest, MakingAFifoIsNotRepeatedWhenInterrupted) {
    Recorder recorder;
    recorder.On("mkfifo").Fail(EINTR);
    EXPECT_EQ(
        NamedPipeErrorOf([&] { NamedPipeUtil::Mkfifo(scratch_.Wide("fifo"), 0660); }), "Failed to create name pipe");
    EXPECT_EQ(recorder.Names(), "umask mkfifo");
}

TEST_F(NamedPipeFileTest, APathThatCannotBeConvertedIsReportedBeforeAnyCall) {
    Recorder const recorder;
    EXPECT_THROW(NamedPipeUtil::IsFileExist(UNCONVERTIBLE), WBase::StringConversionException);
    EXPECT_THROW(NamedPipeUtil::Mkfifo(UNCONVERTIBLE, 0660), WBase::StringConversionException);
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(NamedPipeFileTest, PathsAreUtf8) {
    EXPECT_EQ(NamedPipeUtil::Mkfifo(scratch_.Wide("größe"), 0660), 0);
    EXPECT_TRUE(IsFileExist("größe"));
    EXPECT_THAT(List(scratch_.Path()), ElementsAre("größe"));
}

TEST_F(NamedPipeFileTest, TheFilesOfAChannelAreNamedByTheBaseAndASuffix) {
    EXPECT_EQ(NamedPipeUtil::GetServerReaderPathFromBasicPath(L"/tmp/p"), L"/tmp/p.ServerReader");
    EXPECT_EQ(NamedPipeUtil::GetServerWriterPathFromBasicPath(L"/tmp/p"), L"/tmp/p.ServerWriter");
    EXPECT_EQ(NamedPipeUtil::GetLockPathFromBasicPath(L"/tmp/p"), L"/tmp/p.Lock");
    EXPECT_EQ(NamedPipeUtil::GetLockPathFromBasicPath(L""), L".Lock");
}

} // namespace
