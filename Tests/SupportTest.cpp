// The tests' own tools, tested.

#include <Base/Exception.h>
#include <Base/Message.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Environment.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Program.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Text.h>
#include <Tests/Support/VirtualSlots.h>
#include <Tests/Support/Waiting.h>

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <filesystem>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

#include <fcntl.h>
#include <glob.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <utime.h>

namespace {

using namespace TestSupport;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Strings = std::vector<std::string>;

// The messages of the assertions that fail in the code.
template <class Code>
Strings FailuresOf(Code code) {
    ::testing::TestPartResultArray results;
    {
        ::testing::ScopedFakeTestPartResultReporter const reporter(
            ::testing::ScopedFakeTestPartResultReporter::INTERCEPT_ONLY_CURRENT_THREAD, &results);
        code();
    }
    Strings messages;
    for (int i = 0; i < results.size(); ++i) {
        messages.emplace_back(results.GetTestPartResult(i).message());
    }
    return messages;
}

// As EXPECT_NONFATAL_FAILURE, but the statement may use local variables.
#define EXPECT_FAILURE(statement, text) EXPECT_THAT(FailuresOf([&] { statement; }), ElementsAre(HasSubstr(text)))

// For the time of a test that waits in vain.
class ShortWaits {
public:
    ShortWaits() { waitLimit = std::chrono::milliseconds(20); }
    ~ShortWaits() { waitLimit = previous_; }

private:
    std::chrono::milliseconds const previous_ = waitLimit;
};

// For results that a compiler wants to be looked at.
template <class Result>
void Ignore(Result /*result*/) {}

// A file of ten bytes, open for reading and writing.
class RecorderTest : public ::testing::Test {
protected:
    RecorderTest() {
        WriteFile(path_, "0123456789");
        fd_ = ::open(path_.c_str(), O_RDWR);
    }
    ~RecorderTest() override { ::close(fd_); }

    ScratchDirectory const scratch_;
    std::string const path_ = scratch_ / "file";
    int fd_ = -1;
};

// ---- What is recorded

TEST_F(RecorderTest, NamesStandInTheOrderOfTheCalls) {
    Recorder recorder;
    int const fd = ::open(path_.c_str(), O_RDONLY);
    ::fcntl(fd, F_GETFD);
    ::close(fd);
    EXPECT_EQ(recorder.Names(), "open fcntl close");
}

TEST_F(RecorderTest, ArgumentsOfDescriptorCallsAreShown) {
    char buffer[4];
    struct stat status;
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    lock.l_pid = ::getpid();
    Recorder recorder;
    Ignore(::read(fd_, buffer, 4));
    Ignore(::write(fd_, "ab", 2));
    ::lseek(fd_, -1, SEEK_CUR);
    ::fstat(fd_, &status);
    ::fsync(fd_);
    Ignore(::ftruncate(fd_, 5));
    ::fcntl(fd_, F_SETFD, FD_CLOEXEC);
    ::fcntl(fd_, F_SETLKW, &lock);
    ::close(-1);
    EXPECT_THAT(
        recorder.Calls(), ElementsAre(
                              "read(4)", "write(2)", "lseek(-1, SEEK_CUR)", "fstat()", "fsync()", "ftruncate(5)",
                              "fcntl(F_SETFD, FD_CLOEXEC)", "fcntl(F_SETLKW, F_RDLCK 0+0 self)", "close()"));
}

TEST_F(RecorderTest, ArgumentsOfPathCallsAreShown) {
    std::string const other = scratch_ / "other";
    char const* const a = path_.c_str();
    char const* const b = other.c_str();
    std::string const file = '"' + path_ + '"';
    std::string const second = '"' + other + '"';
    struct stat status;
    utimbuf const times = {5, 6};
    Recorder recorder;
    ::close(::open(b, O_RDWR | O_CREAT | O_NOCTTY, 0640));
    ::stat(a, &status);
    ::chmod(a, 0600);
    Ignore(::chown(a, ::getuid(), ::getgid()));
    ::utime(a, &times);
    Ignore(::access(a, R_OK | W_OK));
    ::rename(a, b);
    ::unlink(b);
    ::mkdir(b, 0777);
    ::rmdir(b);
    ::mkfifo(b, 0600);
    Ignore(::chdir("."));
    recorder.Stop();
    std::string const ids = std::to_string(::getuid()) + ", " + std::to_string(::getgid());
    EXPECT_THAT(
        recorder.Calls(),
        ElementsAre(
            "open(" + second + ", O_RDWR|O_CREAT|O_NOCTTY, 0640)", "close()", "stat(" + file + ")",
            "chmod(" + file + ", 0600)", "chown(" + file + ", " + ids + ")", "utime(" + file + ", 5, 6)",
            "access(" + file + ", R_OK|W_OK)", "rename(" + file + ", " + second + ")", "unlink(" + second + ")",
            "mkdir(" + second + ", 0777)", "rmdir(" + second + ")", "mkfifo(" + second + ", 0600)", "chdir(\".\")"));
}

TEST_F(RecorderTest, ArgumentsOfStreamCallsAreShown) {
    char buffer[8];
    Recorder recorder;
    FILE* const stream = std::fopen(path_.c_str(), "rb+");
    Ignore(std::fread(buffer, 2, 3, stream));
    ::fseeko(stream, 0, SEEK_SET);
    std::fwrite("ab", 1, 2, stream);
    std::fflush(stream);
    Ignore(::ftello(stream));
    Ignore(std::fgets(buffer, 8, stream));
    std::fclose(stream);
    EXPECT_THAT(
        recorder.Calls(), ElementsAre(
                              "fopen(\"" + path_ + "\", \"rb+\")", "fread(2, 3)", "fseeko(0, SEEK_SET)", "fwrite(1, 2)",
                              "fflush()", "ftello()", "fgets(8)", "fclose()"));
}

TEST_F(RecorderTest, ArgumentsOfOtherCallsAreShown) {
    char buffer[4096];
    glob_t matches = {};
    struct sigaction action = {};
    action.sa_handler = SIG_IGN;
    struct sigaction previous = {};
    timespec const moment = {0, 1};
    Recorder recorder;
    mode_t const mask = ::umask(022);
    ::umask(mask);
    Ignore(::getcwd(buffer, sizeof buffer));
    std::free(::tempnam("/tmp", "abc"));
    ::glob("/*", 0, nullptr, &matches);
    ::globfree(&matches);
    ::sigaction(SIGPIPE, &action, &previous);
    ::sigaction(SIGPIPE, &previous, nullptr);
    ::sleep(0);
    ::nanosleep(&moment, nullptr);
    ::clock_nanosleep(CLOCK_MONOTONIC, 0, &moment, nullptr);
    EXPECT_EQ(
        recorder.Names(),
        "umask umask getcwd tempnam glob globfree sigaction sigaction sleep nanosleep clock_nanosleep");
    Strings const calls = recorder.Calls();
    EXPECT_EQ(calls[0], "umask(0022)");
    EXPECT_EQ(calls[2], "getcwd(4096)");
    EXPECT_EQ(calls[3], "tempnam(\"/tmp\", \"abc\")");
    EXPECT_EQ(calls[4], "glob(\"/*\", 0)");
    EXPECT_EQ(calls[6], "sigaction(SIGPIPE, SIG_IGN)");
    EXPECT_EQ(recorder.Find("sigaction").action.sa_handler, SIG_IGN);
    EXPECT_EQ(calls[8], "sleep(0)");
    EXPECT_EQ(calls[9], "nanosleep(0s 1ns)");
    EXPECT_EQ(calls[10], "clock_nanosleep(1, 0, 0s 1ns)");
}

TEST_F(RecorderTest, ThreadCallsAreRecordedOnDemand) {
    pthread_mutex_t mutex;
    pthread_cond_t condition;
    timespec const past = {};
    timeval now;
    Recorder recorder(Recorder::THREAD_CALLS);
    ::pthread_mutex_init(&mutex, nullptr);
    ::pthread_cond_init(&condition, nullptr);
    ::pthread_mutex_lock(&mutex);
    ::gettimeofday(&now, nullptr);
    EXPECT_EQ(::pthread_cond_timedwait(&condition, &mutex, &past), ETIMEDOUT);
    ::pthread_cond_signal(&condition);
    ::pthread_mutex_unlock(&mutex);
    ::pthread_cond_destroy(&condition);
    ::pthread_mutex_destroy(&mutex);
    recorder.Stop();
    EXPECT_EQ(
        recorder.Names(), "pthread_mutex_init pthread_cond_init pthread_mutex_lock gettimeofday pthread_cond_timedwait "
                          "pthread_cond_signal "
                          "pthread_mutex_unlock pthread_cond_destroy pthread_mutex_destroy");
    EXPECT_EQ(recorder.Find("pthread_cond_timedwait").error, ETIMEDOUT);
    EXPECT_EQ(recorder.Calls()[0], "pthread_mutex_init(null)");
    EXPECT_EQ(recorder.Calls()[1], "pthread_cond_init(null)");
}

TEST_F(RecorderTest, OnlyTheWantedFunctionsAreRecorded) {
    Recorder recorder("lseek getenv");
    ::lseek(fd_, 0, SEEK_SET);
    ::fsync(fd_);
    EXPECT_NE(std::getenv("PATH"), nullptr);
    EXPECT_EQ(recorder.Names(), "lseek getenv");
}

TEST_F(RecorderTest, DescriptorsAndResultsAreShownOnDemand) {
    Recorder recorder;
    ::lseek(fd_, 3, SEEK_SET);
    ::close(-1);
    std::string const fd = std::to_string(fd_);
    EXPECT_THAT(
        recorder.Calls(Recorder::DESCRIPTORS | Recorder::RESULTS),
        ElementsAre("lseek(" + fd + ", 3, SEEK_SET) = 3", "close(-1) = -1 EBADF"));
}

TEST_F(RecorderTest, FieldsOfACallCanBeLookedAt) {
    struct flock lock = {};
    lock.l_type = F_WRLCK;
    lock.l_start = 2;
    lock.l_len = 3;
    Recorder recorder;
    ::fcntl(fd_, F_GETFD);
    ::fcntl(fd_, F_SETLK, &lock);
    Call const call = recorder.Find("fcntl", 2);
    EXPECT_EQ(call.fd, fd_);
    EXPECT_EQ(call.command, F_SETLK);
    EXPECT_EQ(call.lock.l_type, F_WRLCK);
    EXPECT_EQ(call.lock.l_start, 2);
    EXPECT_EQ(call.lock.l_pid, 0);
    EXPECT_EQ(call.data, &lock);
    EXPECT_EQ(call.details, "F_SETLK, F_WRLCK 2+3");
}

TEST_F(RecorderTest, ALookUpOfAMissingCallFailsTheTest) {
    Recorder const recorder;
    EXPECT_FAILURE(recorder.Find("read"), "There is no call 1 of 'read'");
}

TEST_F(RecorderTest, CallsAreCountedAndForgotten) {
    Recorder recorder;
    ::fsync(fd_);
    ::fsync(fd_);
    EXPECT_EQ(recorder.Count("fsync"), 2U);
    recorder.Clear();
    ::fsync(fd_);
    EXPECT_EQ(recorder.Names(), "fsync");
}

TEST_F(RecorderTest, RecordingEndsWithStop) {
    Recorder recorder;
    recorder.On("fsync").Optional().Fail(EIO);
    recorder.Stop();
    EXPECT_EQ(::fsync(fd_), 0);
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(RecorderTest, TheInnermostRecorderSeesTheCall) {
    Recorder outer;
    {
        Recorder const inner;
        ::fsync(fd_);
        EXPECT_EQ(inner.Names(), "fsync");
    }
    ::lseek(fd_, 0, SEEK_SET);
    EXPECT_EQ(outer.Names(), "lseek");
}

TEST_F(RecorderTest, AnOuterRecorderMayStopFirst) {
    Recorder const outermost;
    Recorder outer;
    Recorder inner;
    outer.Stop();
    ::fsync(fd_);
    inner.Stop();
    ::lseek(fd_, 0, SEEK_SET);
    EXPECT_EQ(inner.Names(), "fsync");
    EXPECT_EQ(outer.Names(), "");
    EXPECT_EQ(outermost.Names(), "lseek");
}

TEST_F(RecorderTest, ErrnoIsThatOfTheCallOrTheCallers) {
    Recorder recorder;
    recorder.On("fsync")
        .Where([](Call const&) {
            errno = EPERM;
            return true;
        })
        .Before([](Call const&) {});
    errno = ERANGE;
    ::fsync(fd_);
    EXPECT_EQ(errno, ERANGE);
    ::fsync(-1);
    EXPECT_EQ(errno, EBADF);
}

TEST_F(RecorderTest, StandardOutputIsLeftToTheTestFramework) {
    Recorder recorder;
    std::fwrite("", 1, 0, stdout);
    std::fflush(stderr);
    std::fflush(nullptr);
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(RecorderTest, UnobservedCallsAreNotRecorded) {
    Recorder recorder;
    {
        Unobserved const unobserved;
        ::fsync(fd_);
    }
    WriteFile(path_, "other");
    EXPECT_EQ(ReadFile(path_), "other");
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(RecorderTest, CallsOfASharedLibraryAreRecorded) {
    Recorder recorder;
    std::filesystem::rename(path_, path_ + "2");
    EXPECT_EQ(recorder.Names(), "rename");
}

TEST_F(RecorderTest, CallsOfASignalHandlerThatComesInBetweenPass) {
    static int fd;
    fd = fd_;
    struct sigaction action = {};
    struct sigaction previous;
    action.sa_handler = [](int) { ::fsync(fd); };
    ASSERT_EQ(::sigaction(SIGUSR1, &action, &previous), 0);
    // The first call looks the function up, which allocates: not a thing for a handler.
    ASSERT_EQ(::fsync(fd_), 0);
    Recorder recorder;
    recorder.On("fsync").Before([](Call const&) { ::raise(SIGUSR1); });
    EXPECT_EQ(::fsync(fd_), 0);
    EXPECT_EQ(recorder.Names(), "fsync");
    ::sigaction(SIGUSR1, &previous, nullptr);
}

TEST_F(RecorderTest, UnknownFunctionsAreRefused) {
    EXPECT_THROW(Recorder("open opne"), std::invalid_argument);
    Recorder recorder;
    EXPECT_THROW((void)recorder.On("opne"), std::invalid_argument);
}

TEST_F(RecorderTest, NoRecorderChangesNothing) {
    EXPECT_EQ(::write(fd_, "abc", 3), 3);
    EXPECT_EQ(ReadFile(path_), "abc3456789");
}

#ifdef __GLIBC__

extern "C" ssize_t FortifiedRead(int fd, void* data, size_t size, size_t room) __asm__("__read_chk");
extern "C" int FortifiedOpen(char const* path, int flags) __asm__("__open_2");

TEST_F(RecorderTest, FortifiedCallsAreRecordedUnderTheirPlainNames) {
    char buffer[4];
    Recorder recorder;
    int const fd = FortifiedOpen(path_.c_str(), O_RDONLY);
    EXPECT_EQ(FortifiedRead(fd, buffer, 4, sizeof buffer), 4);
    ::close(fd);
    EXPECT_EQ(recorder.Names(), "open read close");
}

#endif

// ---- Threads and processes

TEST_F(RecorderTest, OtherThreadsAreNotRecorded) {
    Recorder recorder;
    recorder.On("fsync").Optional().Fail(EIO);
    std::thread([&] { EXPECT_EQ(::fsync(fd_), 0); }).join();
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(RecorderTest, AllThreadsAreRecordedOnDemand) {
    Recorder recorder("fsync", Recorder::Threads::ALL);
    recorder.On("fsync").Nth(1000).Fail(EIO);
    std::atomic<int> failures{0};
    auto const syncOften = [&] {
        for (int i = 0; i < 500; ++i) {
            failures += ::fsync(-1) == -1 && errno == EIO ? 1 : 0;
        }
    };
    std::thread first(syncOften);
    std::thread second(syncOften);
    first.join();
    second.join();
    EXPECT_EQ(recorder.Count("fsync"), 1000U);
    EXPECT_EQ(failures, 1);
}

TEST_F(RecorderTest, ThereIsOneRecorderOfAllThreads) {
    Recorder const recorder("fsync", Recorder::Threads::ALL);
    EXPECT_THROW(Recorder("fsync", Recorder::Threads::ALL), std::logic_error);
}

TEST_F(RecorderTest, ACallThatDoesNotComeFailsTheTest) {
    Recorder const recorder;
    EXPECT_TRUE(recorder.WaitForCall("fsync", 0));
    ShortWaits const shortWaits;
    EXPECT_FAILURE(recorder.WaitForCall("fsync"), "Waited in vain for call 1 of 'fsync'.");
}

TEST_F(RecorderTest, AThreadThatHasComeToABlockingCallIsNoticed) {
    Recorder recorder("pthread_cond_wait", Recorder::Threads::ALL);
    std::mutex mutex;
    std::condition_variable condition;
    bool isDone = false;
    std::thread thread([&] {
        std::unique_lock lock(mutex);
        condition.wait(lock, [&] { return isDone; });
    });
    EXPECT_TRUE(recorder.WaitForCall("pthread_cond_wait"));
    {
        std::lock_guard const lock(mutex);
        isDone = true;
    }
    condition.notify_one();
    thread.join();
}

TEST_F(RecorderTest, AChildProcessStartsWithoutTheRecorder) {
    Recorder recorder;
    recorder.On("fsync").Optional().Fail(EIO);
    Child child([&](Child::Parent&) {
        EXPECT_EQ(::fsync(fd_), 0);
        recorder.Stop();
        Recorder const own(Recorder::FILE_CALLS, Recorder::Threads::ALL);
        ::lseek(fd_, 0, SEEK_SET);
        EXPECT_EQ(own.Names(), "lseek");
    });
    EXPECT_EQ(child.Wait(), 0);
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(RecorderTest, AChildProcessMadeInTheMiddleOfACallMayHaveARecorder) {
    Recorder recorder;
    recorder.On("fsync").Before([&](Call const&) {
        Child child([&](Child::Parent&) {
            Recorder const own;
            ::lseek(fd_, 0, SEEK_SET);
            EXPECT_EQ(own.Names(), "lseek");
        });
        EXPECT_EQ(child.Wait(), 0);
    });
    EXPECT_EQ(::fsync(fd_), 0);
}

// ---- Rules

TEST_F(RecorderTest, TheNthCallFails) {
    Recorder recorder;
    recorder.On("fsync").Nth(2).Fail(EIO);
    EXPECT_EQ(::fsync(fd_), 0);
    EXPECT_EQ(::fsync(fd_), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(::fsync(fd_), 0);
    EXPECT_EQ(recorder.Interventions(), 1U);
    EXPECT_THAT(recorder.Calls(Recorder::RESULTS), ElementsAre("fsync() = 0", "fsync() = -1 EIO", "fsync() = 0"));
}

TEST_F(RecorderTest, TheFirstCallsFail) {
    Recorder recorder;
    recorder.On("lseek").First(2).Fail(ESPIPE);
    EXPECT_EQ(::lseek(fd_, 0, SEEK_END), -1);
    EXPECT_EQ(::lseek(fd_, 0, SEEK_END), -1);
    EXPECT_EQ(::lseek(fd_, 0, SEEK_END), 10);
}

TEST_F(RecorderTest, CallsFromTheNthOnFail) {
    Recorder recorder;
    recorder.On("fsync").From(2).Fail(EIO);
    EXPECT_EQ(::fsync(fd_), 0);
    EXPECT_EQ(::fsync(fd_), -1);
    EXPECT_EQ(::fsync(fd_), -1);
}

TEST_F(RecorderTest, RulesCountFromWhenTheyWereMade) {
    Recorder recorder;
    ::fsync(fd_);
    recorder.On("fsync").Nth(1).Fail(EIO);
    EXPECT_EQ(::fsync(fd_), -1);
}

TEST_F(RecorderTest, OnlyOneCommandFails) {
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    Recorder recorder;
    recorder.On("fcntl").Command(F_SETLK).Fail(ENOLCK);
    EXPECT_NE(::fcntl(fd_, F_GETFD), -1);
    EXPECT_EQ(::fcntl(fd_, F_SETLK, &lock), -1);
    EXPECT_EQ(errno, ENOLCK);
}

TEST_F(RecorderTest, OnlyCallsThatMeetAConditionFail) {
    Recorder recorder;
    recorder.On("access").Where([&](Call const& call) { return call.path == path_; }).Fail(EACCES);
    EXPECT_EQ(::access("/", F_OK), 0);
    EXPECT_EQ(::access(path_.c_str(), F_OK), -1);
}

TEST_F(RecorderTest, TheLastRuleForACallApplies) {
    Recorder recorder;
    recorder.On("fsync").Fail(EIO);
    recorder.On("fsync").Nth(2).Fail(ENOSPC);
    EXPECT_EQ(::fsync(fd_), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(::fsync(fd_), -1);
    EXPECT_EQ(errno, ENOSPC);
}

TEST_F(RecorderTest, ARuleForAllFunctionsCountsRecordedCalls) {
    Recorder recorder("lseek fsync");
    recorder.On("*").Nth(2).Fail(EIO);
    EXPECT_EQ(::lseek(fd_, 0, SEEK_SET), 0);
    EXPECT_EQ(::fcntl(fd_, F_GETFD), 0);
    EXPECT_EQ(::fsync(fd_), -1);
}

TEST_F(RecorderTest, RulesApplyToFunctionsThatAreNotRecorded) {
    pthread_mutex_t mutex;
    Recorder recorder;
    recorder.On("pthread_mutex_init").Fail(ENOMEM);
    errno = 0;
    EXPECT_EQ(::pthread_mutex_init(&mutex, nullptr), ENOMEM);
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(RecorderTest, FunctionsThatCannotFailAreNotMadeTo) {
    Recorder recorder;
    EXPECT_THROW(recorder.On("umask").Fail(EIO), std::invalid_argument);
    recorder.On("*").Nth(1).Fail(EIO);
    ::umask(::umask(022));
    EXPECT_EQ(recorder.Interventions(), 0U);
    EXPECT_EQ(::fsync(fd_), -1);
}

TEST_F(RecorderTest, ARuleThatNeverAppliesFailsTheTest) {
    EXPECT_FAILURE(
        {
            Recorder recorder;
            recorder.On("read").Fail(EIO);
        },
        "A rule for 'read' applied to 0 calls, not to 1.");
}

TEST_F(RecorderTest, AnOptionalRuleNeedNotApply) {
    Recorder recorder;
    recorder.On("read").Optional().Fail(EIO);
    EXPECT_EQ(recorder.Interventions(), 0U);
}

TEST_F(RecorderTest, AFailingCloseClosesAllTheSame) {
    int const fd = ::dup(fd_);
    Recorder recorder;
    recorder.On("close").Fail(EIO);
    EXPECT_EQ(::close(fd), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_FALSE(IsOpen(fd));
}

TEST_F(RecorderTest, AFailingCloseCanLeaveTheDescriptorOpen) {
    int const fd = ::dup(fd_);
    Recorder recorder;
    recorder.On("close").First(2).FailWithoutCalling(EINTR);
    EXPECT_EQ(::close(fd), -1);
    EXPECT_TRUE(IsOpen(fd));
    EXPECT_EQ(::close(fd), -1);
    EXPECT_EQ(::close(fd), 0);
}

TEST_F(RecorderTest, ACallCanFailAfterItWasMade) {
    Recorder recorder;
    recorder.On("unlink").CallThenFail(EIO);
    EXPECT_EQ(::unlink(path_.c_str()), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_FALSE(Exists(path_));
}

TEST_F(RecorderTest, AnInterruptedWriteCanHaveWrittenHalf) {
    Recorder recorder;
    recorder.On("write").HalfThenFail(EINTR);
    EXPECT_EQ(::write(fd_, "abcd", 4), -1);
    EXPECT_EQ(errno, EINTR);
    EXPECT_EQ(ReadFile(path_), "ab23456789");
}

TEST_F(RecorderTest, TransfersCanBeShort) {
    char buffer[10];
    Recorder recorder;
    recorder.On("read").Limit(3);
    recorder.On("write").Limit(1);
    EXPECT_EQ(::read(fd_, buffer, 10), 3);
    EXPECT_EQ(::write(fd_, "abc", 3), 1);
    EXPECT_THAT(recorder.Calls(Recorder::RESULTS), ElementsAre("read(10) = 3", "write(3) = 1"));
    EXPECT_EQ(ReadFile(path_), "012a456789");
}

TEST_F(RecorderTest, AResultCanBeClaimedWithoutACall) {
    char buffer[4] = "xyz";
    Recorder recorder;
    recorder.On("read").Return(3);
    recorder.On("open").Return(77);
    recorder.On("tempnam").Return(0);
    EXPECT_EQ(::read(fd_, buffer, 3), 3);
    EXPECT_STREQ(buffer, "xyz");
    EXPECT_EQ(::open(path_.c_str(), O_RDONLY), 77);
    EXPECT_EQ(::tempnam("/tmp", "a"), nullptr);
}

TEST_F(RecorderTest, ALoopIsDrivenByAScript) {
    char buffer[20];
    Recorder recorder;
    recorder.On("read").Script({1, 0, -1}, EIO);
    EXPECT_EQ(::read(fd_, buffer, 20), 1);
    EXPECT_EQ(::read(fd_, buffer, 20), 0);
    EXPECT_EQ(::read(fd_, buffer, 20), -1);
    EXPECT_EQ(errno, EIO);
    EXPECT_EQ(::read(fd_, buffer, 20), 10);
}

TEST_F(RecorderTest, AScriptThatIsNotUsedUpFailsTheTest) {
    EXPECT_FAILURE(
        {
            char buffer[4];
            Recorder recorder;
            recorder.On("read").Script({1, 2});
            EXPECT_EQ(::read(fd_, buffer, 4), 1);
        },
        "A rule for 'read' applied to 1 calls, not to 2.");
}

TEST_F(RecorderTest, TheTestsFunctionRunsBeforeTheCall) {
    Recorder recorder;
    recorder.On("unlink").Before([&](Call const& call) { ::rename(path_.c_str(), (call.path + "2").c_str()); });
    EXPECT_EQ(::unlink(path_.c_str()), -1);
    EXPECT_EQ(errno, ENOENT);
    EXPECT_EQ(recorder.Names(), "unlink");
}

TEST_F(RecorderTest, TheTestsFunctionChangesWhatACallGave) {
    struct stat status;
    Recorder recorder;
    recorder.On("fstat").After([](Call& call) { static_cast<struct stat*>(call.data)->st_size = 1LL << 40; });
    EXPECT_EQ(::fstat(fd_, &status), 0);
    EXPECT_EQ(status.st_size, 1LL << 40);
}

TEST_F(RecorderTest, TheTestsFunctionReplacesTheCall) {
    Recorder recorder;
    recorder.On("write").Instead([](Call const& call) {
        errno = EDQUOT;
        return call.size == 3 ? -1L : 0L;
    });
    EXPECT_EQ(::write(fd_, "abc", 3), -1);
    EXPECT_EQ(errno, EDQUOT);
    EXPECT_EQ(ReadFile(path_), "0123456789");
}

TEST_F(RecorderTest, FailingStreamsHaveTheirErrorIndicatorSet) {
    char buffer[4];
    FILE* const stream = std::fopen(path_.c_str(), "rb+");
    Recorder recorder;
    for (char const* const function : {"fread", "fwrite", "fgets", "fflush", "fclose"}) {
        recorder.On(function).Fail(EIO);
    }
    EXPECT_EQ(std::fread(buffer, 1, 4, stream), 0U);
    EXPECT_NE(std::ferror(stream), 0);
    std::clearerr(stream);
    EXPECT_EQ(std::fwrite(buffer, 1, 4, stream), 0U);
    EXPECT_NE(std::ferror(stream), 0);
    std::clearerr(stream);
    EXPECT_EQ(std::fgets(buffer, 4, stream), nullptr);
    EXPECT_NE(std::ferror(stream), 0);
    EXPECT_EQ(std::fflush(stream), EOF);
    EXPECT_EQ(std::fclose(stream), EOF);
    EXPECT_EQ(errno, EIO);
}

TEST_F(RecorderTest, EveryFunctionFailsInItsOwnWay) {
    char buffer[16];
    timespec const time = {3, 4};
    timespec left = {};
    glob_t matches = {};
    timeval now;
    pthread_cond_t condition = PTHREAD_COND_INITIALIZER;
    Recorder recorder;
    for (char const* const function :
         {"fopen", "getcwd", "tempnam", "sleep", "nanosleep", "clock_nanosleep", "gettimeofday", "pthread_cond_signal",
          "mkfifo"}) {
        recorder.On(function).Fail(EINTR);
    }
    recorder.On("glob").Fail(GLOB_NOSPACE);
    EXPECT_EQ(std::fopen(path_.c_str(), "r"), nullptr);
    EXPECT_EQ(::getcwd(buffer, sizeof buffer), nullptr);
    EXPECT_EQ(::tempnam("/tmp", "a"), nullptr);
    EXPECT_EQ(::sleep(7), 7U);
    EXPECT_EQ(::nanosleep(&time, &left), -1);
    EXPECT_EQ(left.tv_sec, 3);
    EXPECT_EQ(::clock_nanosleep(CLOCK_MONOTONIC, 0, &time, nullptr), EINTR);
    EXPECT_EQ(::gettimeofday(&now, nullptr), -1);
    EXPECT_EQ(::pthread_cond_signal(&condition), EINTR);
    EXPECT_EQ(::mkfifo("", 0), -1);
    EXPECT_EQ(::glob("", 0, nullptr, &matches), GLOB_NOSPACE);
}

TEST_F(RecorderTest, ARuleCanSayHowMuchOfASleepIsLeft) {
    timespec const wanted = {10, 0};
    timespec left = {};
    Recorder recorder;
    recorder.On("nanosleep").Instead([](Call const& call) -> long {
        *static_cast<timespec*>(call.data) = {9, 8};
        errno = EINTR;
        return -1;
    });
    EXPECT_EQ(::nanosleep(&wanted, &left), -1);
    EXPECT_EQ(left.tv_sec, 9);
    EXPECT_EQ(left.tv_nsec, 8);
}

// ---- Allocations

// Called like this, an allocation can't be optimised away.
void AllocateAndFree() {
    ::operator delete(::operator new(8));
}

TEST(AllocationsTest, AllocationsOfEachFormAreCountedOnce) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    Allocations allocations;
    AllocateAndFree();
    ::operator delete[](::operator new[](8));
    ::operator delete(::operator new(8, std::nothrow), std::nothrow);
    ::operator delete[](::operator new[](8, std::nothrow), std::nothrow);
    EXPECT_EQ(allocations.Stop(), 4U);
    AllocateAndFree();
    EXPECT_EQ(allocations.GetCount(), 4U);
}

TEST(AllocationsTest, AllocationsOfTheStandardLibraryAreCounted) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    std::filesystem::path const path(std::string(100, 'x'));
    Allocations allocations;
    std::filesystem::path const copy = path.parent_path();
    std::filesystem::path const name = path.filename();
    EXPECT_GT(allocations.Stop(), 0U);
}

TEST(AllocationsTest, TheBytesOfAllocationsAreCounted) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    Allocations allocations;
    ::operator delete(::operator new(100));
    ::operator delete[](::operator new[](8, std::nothrow), std::nothrow);
    allocations.Stop();
    ::operator delete(::operator new(1));
    EXPECT_EQ(allocations.GetBytes(), 108U);
}

TEST(AllocationsTest, BlocksThatAreNotReleasedAreHeld) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    std::string before(100, 'x');
    Allocations allocations;
    auto const held = std::make_unique<int>(1);
    std::make_unique<int>(2).reset();
    before = std::string();
    before.shrink_to_fit();
    allocations.Stop();
    EXPECT_EQ(allocations.GetHeld(), 1U);
}

TEST(AllocationsTest, OtherThreadsAreNotCounted) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    std::atomic<bool> isStarted{false};
    std::atomic<bool> isDone{false};
    std::thread thread([&] {
        WaitUntil([&] { return isStarted.load(); });
        AllocateAndFree();
        isDone = true;
    });
    Allocations allocations;
    isStarted = true;
    EXPECT_TRUE(WaitUntil([&] { return isDone.load(); }));
    EXPECT_EQ(allocations.Stop(), 0U);
    thread.join();
}

TEST(AllocationsTest, TheNthAllocationThrows) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    Allocations allocations;
    allocations.FailNth(2);
    EXPECT_NO_THROW(AllocateAndFree());
    EXPECT_FALSE(allocations.HasFailed());
    EXPECT_THROW(AllocateAndFree(), std::bad_alloc);
    EXPECT_TRUE(allocations.HasFailed());
    EXPECT_NO_THROW(AllocateAndFree());
}

TEST(AllocationsTest, AllocationsFromTheNthOnFail) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    Allocations allocations;
    allocations.FailFrom(2);
    EXPECT_NO_THROW(AllocateAndFree());
    EXPECT_THROW(AllocateAndFree(), std::bad_alloc);
    EXPECT_EQ(::operator new(8, std::nothrow), nullptr);
}

TEST(AllocationsTest, WithoutAFailureNoneIsReported) {
    Allocations allocations;
    allocations.FailNth(1);
    EXPECT_FALSE(allocations.HasFailed());
}

TEST(AllocationsTest, ReleasedTextsStandInTheOrderOfTheReleases) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    // As in AllocateAndFree, nothing of this can be optimised away.
    auto const make = [](std::string_view text) {
        void* const block = ::operator new(text.size());
        std::memcpy(block, text.data(), text.size());
        return block;
    };
    void* const earlier = make("earlier");
    Allocations allocations;
    void* const first = make("one");
    void* const second = make(std::string_view("two\0three", 9));
    ::operator delete(second);
    ::operator delete(first);
    ::operator delete(earlier);
    void* const unreleased = make("four");
    allocations.Stop();
    EXPECT_THAT(allocations.ReleasedTexts(), ElementsAre("two", "one"));
    ::operator delete(unreleased);
}

TEST(AllocationsTest, AllocationsAndReleasesChangeErrno) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    Allocations allocations;
    errno = 0;
    void* const block = ::operator new(8);
    EXPECT_EQ(std::exchange(errno, 0), Allocations::ERRNO_AFTERWARDS);
    ::operator delete(block);
    EXPECT_EQ(std::exchange(errno, 0), Allocations::ERRNO_AFTERWARDS);
    allocations.Stop();
    AllocateAndFree();
    EXPECT_EQ(errno, 0);
}

TEST(AllocationsTest, RecordersAreNotCounted) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    Recorder recorder;
    Allocations allocations;
    recorder.On("fsync").Fail(EIO);
    ::fsync(-1);
    ::close(-1);
    EXPECT_EQ(allocations.Stop(), 0U);
    EXPECT_EQ(recorder.Names(), "fsync close");
}

// ---- The environment

TEST(EnvironmentTest, AVariableIsSetAndRestored) {
    Environment const outer("WFILESYSTEM_TEST", "outer");
    {
        Environment const inner("WFILESYSTEM_TEST", "inner");
        EXPECT_STREQ(std::getenv("WFILESYSTEM_TEST"), "inner");
    }
    EXPECT_STREQ(std::getenv("WFILESYSTEM_TEST"), "outer");
}

TEST(EnvironmentTest, AVariableIsRemovedAndRestored) {
    Environment const outer("WFILESYSTEM_TEST", "outer");
    {
        Environment const inner("WFILESYSTEM_TEST", std::nullopt);
        EXPECT_EQ(std::getenv("WFILESYSTEM_TEST"), nullptr);
    }
    EXPECT_STREQ(std::getenv("WFILESYSTEM_TEST"), "outer");
}

TEST(EnvironmentTest, AVariableThatWasNotThereIsRemovedAgain) {
    { Environment const variable("WFILESYSTEM_TEST", ""); }
    EXPECT_EQ(std::getenv("WFILESYSTEM_TEST"), nullptr);
}

// ---- Processes

TEST(ChildTest, TheExitCodeIsThatOfTheCode) {
    EXPECT_EQ(Child([](Child::Parent&) { return 7; }).Wait(), 7);
    EXPECT_EQ(Child([](Child::Parent&) {}).Wait(), 0);
}

TEST(ChildTest, TheSidesFollowEachOther) {
    Child child([](Child::Parent& parent) {
        parent.Say("ready");
        parent.WaitFor("go on");
        parent.Say("one");
        parent.Say("two");
    });
    EXPECT_TRUE(child.WaitFor("ready"));
    child.Say("go on");
    EXPECT_TRUE(child.WaitFor("one"));
    EXPECT_TRUE(child.WaitFor("two"));
    EXPECT_EQ(child.Wait(), 0);
}

TEST(ChildTest, AWrongWordFailsTheTestAndKillsTheChild) {
    Child child([](Child::Parent& parent) {
        parent.Say("other");
        parent.WaitFor("never said");
    });
    EXPECT_FAILURE(child.WaitFor("ready"), "Waited for 'ready', but 'other' came.");
    EXPECT_TRUE(child.HasEnded());
}

TEST(ChildTest, AChildThatEndsInsteadOfSpeakingFailsTheTest) {
    Child child([](Child::Parent&) {});
    EXPECT_FAILURE(child.WaitFor("ready"), "the other side is gone");
}

TEST(ChildTest, AChildThatWaitsInVainEnds) {
    Child child([](Child::Parent& parent) { parent.WaitFor("never said"); });
    EXPECT_EQ(child.Wait(), Child::EXIT_OUT_OF_STEP);
}

TEST(ChildTest, AnExceptionEndsTheChild) {
    Child child([](Child::Parent&) { throw std::runtime_error("on purpose"); });
    EXPECT_EQ(child.Wait(), Child::EXIT_EXCEPTION);
}

TEST(ChildTest, AFailedAssertionShowsInTheExitCode) {
    Child child([](Child::Parent&) {
        ::close(STDOUT_FILENO);
        ADD_FAILURE();
    });
    EXPECT_EQ(child.Wait(), Child::EXIT_FAILED_ASSERTION);
}

TEST(ChildTest, AFailedAssertionOutweighsTheExitCodeOfTheCode) {
    Child child([](Child::Parent&) {
        ::close(STDOUT_FILENO);
        ADD_FAILURE();
        return 75;
    });
    EXPECT_EQ(child.Wait(), Child::EXIT_FAILED_ASSERTION);
}

TEST(ChildTest, AChildCanBeKilled) {
    Child child([](Child::Parent& parent) { parent.WaitFor("never said"); });
    EXPECT_EQ(child.Kill(), -SIGKILL);
}

TEST(ChildTest, AFailedChildThatNobodyWaitsForFailsTheTest) {
    EXPECT_FAILURE(Child([](Child::Parent&) { return 3; }), "The child process failed.");
}

TEST(ChildTest, AChildThatDoesNotSpeakIsKilledAndFailsTheTest) {
    Child child([](Child::Parent&) { ::sleep(60); });
    ShortWaits const shortWaits;
    EXPECT_FAILURE(child.WaitFor("ready"), "Waited for 'ready', but nothing came.");
    EXPECT_EQ(child.Wait(), -SIGKILL);
}

TEST(ChildTest, AChildThatDoesNotEndIsKilledAndFailsTheTest) {
    Child child([](Child::Parent&) { ::sleep(60); });
    ShortWaits const shortWaits;
    EXPECT_FAILURE(EXPECT_EQ(child.Wait(), -SIGKILL), "does not end; it is killed");
}

TEST(ProgramTest, AProgramThatDoesNotEndIsKilledAndFailsTheTest) {
    ShortWaits const shortWaits;
    EXPECT_FAILURE(EXPECT_EQ(RunProgram({"sleep", "60"}).status, -SIGKILL), "does not end; it is killed");
}

TEST(ProgramTest, AProgramThatDoesNotReadItsInputRaisesNoSignal) {
    EXPECT_EQ(RunProgram({"sh", "-c", "exec <&-; echo closed"}, std::string(1000000, 'x')).output, "closed\n");
}

TEST(ProgramTest, StandardDescriptorsCanBeOpenedByName) {
    EXPECT_EQ(RunProgram({"sh", "-c", "cat /dev/stdin >/dev/stdout"}, "text").output, "text");
}

TEST(ProgramTest, OutputErrorsAndStatusAreCaught) {
    auto const result = RunProgram({"sh", "-c", "cat; echo wrong >&2; exit 3"}, "text");
    EXPECT_EQ(result.output, "text");
    EXPECT_EQ(result.errors, "wrong\n");
    EXPECT_EQ(result.status, 3);
}

TEST(ProgramTest, MuchInputAndOutputPasses) {
    std::string const input(3000000, 'x');
    EXPECT_EQ(RunProgram({"cat"}, input).output, input);
}

TEST(ProgramTest, EnvironmentAndDirectoryAreSet) {
    auto const result = RunProgram({"sh", "-c", "pwd; echo $HOME $OTHER"}, "", {{"HOME=a", "OTHER=b"}, "/", {}});
    EXPECT_EQ(result.output, "/\na b\n");
}

TEST(ProgramTest, StandardDescriptorsCanBeClosed) {
    auto const result = RunProgram({"sh", "-c", "[ -e /dev/fd/0 ] || echo closed"}, "", {{}, "", {0}});
    EXPECT_EQ(result.output, "closed\n");
}

TEST(ProgramTest, DescriptorsOfTheTestDoNotGetIntoTheProgram) {
    std::vector<std::string> const list = {
        "sh", "-c", "for fd in 3 4 5 6 7 8 9; do [ -e /dev/fd/$fd ] && echo $fd; done; true"};
    std::string const inherited = RunProgram(list).output; // from whoever runs the tests
    Program const other({"cat"});
    Child child([](Child::Parent& parent) { parent.WaitFor("end"); });
    EXPECT_EQ(RunProgram(list).output, inherited);
    child.Kill();
}

TEST(ProgramTest, AMissingProgramHasStatus127) {
    EXPECT_EQ(RunProgram({"/no/such/program"}).status, 127);
}

TEST(ProgramTest, AProgramRunsBesideTheTest) {
    Program program({"sh", "-c", "echo ready; read line; echo $line >&2"});
    EXPECT_TRUE(program.WaitForOutput("ready\n"));
    program.Write("go on\n");
    EXPECT_TRUE(program.WaitForErrors("go on\n"));
    EXPECT_EQ(program.Wait().status, 0);
}

TEST(ProgramTest, OutputThatDoesNotComeFailsTheTest) {
    EXPECT_FAILURE(Program({"echo", "other"}).WaitForOutput("ready"), "Waited in vain for 'ready'.");
}

TEST(ProgramTest, AProgramCanBeKilled) {
    Program program({"cat"});
    EXPECT_EQ(program.Kill().status, -SIGKILL);
}

TEST(WaitingTest, TheWaitEndsAtItsLimit) {
    EXPECT_FALSE(WaitUntil([] { return false; }, std::chrono::milliseconds(2)));
    EXPECT_TRUE(WaitUntil([] { return true; }, std::chrono::milliseconds(0)));
}

// ---- Files

TEST(ScratchDirectoryTest, ItIsRemovedWithAllThatIsInIt) {
    ScratchDirectory const outer;
    std::string path;
    WriteFile(outer / "kept", "x");
    {
        ScratchDirectory const scratch;
        path = scratch.Path();
        EXPECT_THAT(List(path), IsEmpty());
        ::mkdir((scratch / "a").c_str(), 0777);
        WriteFile(scratch / "a/file", "y");
        ASSERT_EQ(::symlink(outer.Path().c_str(), (scratch / "a/link").c_str()), 0);
        ASSERT_EQ(::symlink("nowhere", (scratch / ".hidden").c_str()), 0);
        ::mkfifo((scratch / "pipe").c_str(), 0);
        ::chmod((scratch / "a/file").c_str(), 0);
        ::chmod((scratch / "a").c_str(), 0);
    }
    EXPECT_FALSE(Exists(path));
    EXPECT_THAT(List(outer.Path()), ElementsAre("kept"));
}

TEST(ScratchDirectoryTest, EachIsItsOwn) {
    ScratchDirectory const first;
    ScratchDirectory const second;
    EXPECT_NE(first.Path(), second.Path());
}

TEST(ScratchDirectoryTest, PathsAreGivenInBothForms) {
    ScratchDirectory const scratch;
    EXPECT_EQ(scratch / "ä", scratch.Path() + "/ä");
    EXPECT_EQ(Narrow(scratch.Wide("ä")), scratch / "ä");
    EXPECT_EQ(Narrow(scratch.Wide()), scratch.Path());
}

TEST(ScratchDirectoryTest, AWorkingDirectoryIsLeftAgain) {
    ScratchDirectory const scratch;
    std::filesystem::path const former = std::filesystem::current_path();
    {
        Recorder const recorder;
        WorkingDirectory const workingDirectory(scratch.Path());
        EXPECT_EQ(std::filesystem::current_path(), scratch.Path());
        EXPECT_EQ(recorder.Count("chdir"), 0U);
    }
    EXPECT_EQ(std::filesystem::current_path(), former);
    EXPECT_THROW(WorkingDirectory{scratch / "missing"}, std::system_error);
}

TEST(ScratchDirectoryTest, DirectoriesAreMade) {
    ScratchDirectory const scratch;
    MakeDirectory(scratch / "directory");
    EXPECT_TRUE(std::filesystem::is_directory(scratch / "directory"));
    EXPECT_THROW(MakeDirectory(scratch / "directory"), std::system_error);
}

TEST(ScratchDirectoryTest, FilesAreWrittenReadAndListed) {
    ScratchDirectory const scratch;
    std::string const bytes("a\0b\nc", 5);
    WriteFile(scratch / "b", "longer than the bytes");
    WriteFile(scratch / "b", bytes);
    WriteFile(scratch / ".a", "");
    EXPECT_EQ(ReadFile(scratch / "b"), bytes);
    EXPECT_THAT(List(scratch.Path()), ElementsAre(".a", "b"));
    ::chmod((scratch / "b").c_str(), 04750);
    EXPECT_EQ(ModeOf(scratch / "b"), 04750U);
    EXPECT_THROW(ReadFile(scratch / "c"), std::system_error);
}

TEST(TextTest, WideAndNarrowFormsMatch) {
    EXPECT_EQ(Widen("a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"), L"a\u00E4\u20AC\U0001F600");
    EXPECT_EQ(Narrow(L"a\u00E4\u20AC\U0001F600"), "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80");
}

TEST(TextTest, BadTextIsRefused) {
    for (char const* const text :
         {"\x80", "\xC3", "\xC0\x80", "\xE0\x80\x80", "\xED\xA0\x80", "\xF4\x90\x80\x80", "\xFF"}) {
        EXPECT_THROW(Widen(text), std::invalid_argument);
    }
    EXPECT_THROW(Narrow(std::wstring(1, static_cast<wchar_t>(0xD800))), std::invalid_argument);
}

TEST(TextTest, TextIsShownReadably) {
    std::wstring const text = L"ä\n\x01" + std::wstring(1, static_cast<wchar_t>(0xD800));
    EXPECT_EQ(Readable(text), "\"ä\\n\\x{1}\\x{D800}\"");
}

// ---- Descriptors and locks

TEST(DescriptorsTest, OpenDescriptorsAreListed) {
    int const fd = ::open("/", O_RDONLY | O_CLOEXEC);
    EXPECT_TRUE(IsOpen(fd));
    EXPECT_TRUE(IsCloseOnExec(fd));
    EXPECT_THAT(OpenDescriptors(), ::testing::Contains(fd));
    ::close(fd);
    EXPECT_FALSE(IsOpen(fd));
    EXPECT_THAT(OpenDescriptors(), ::testing::Not(::testing::Contains(fd)));
}

TEST(DescriptorsTest, ADescriptorLeftOpenFailsTheTest) {
    EXPECT_FAILURE(
        {
            DescriptorCheck const check;
            ::open("/", O_RDONLY);
        },
        "Descriptors left open: ");
}

TEST(DescriptorsTest, ADocumentedLeakIsExpectedAndThenClosed) {
    int fd;
    {
        DescriptorCheck const check(1);
        fd = ::open("/", O_RDONLY);
    }
    EXPECT_FALSE(IsOpen(fd));
    EXPECT_FAILURE(DescriptorCheck(1), "Descriptors left open: ");
}

TEST(DescriptorsTest, AForeignDescriptorClosedFailsTheTest) {
    int const fd = ::open("/", O_RDONLY);
    EXPECT_FAILURE(
        {
            DescriptorCheck const check;
            ::close(fd);
        },
        "Descriptors closed that the code had not opened: ");
}

TEST(DescriptorsTest, ADescriptorIsClosedForAWhile) {
    int const fd = ::open("/", O_RDONLY);
    struct stat before;
    struct stat during;
    struct stat after;
    ASSERT_EQ(::fstat(fd, &before), 0);
    {
        CloseDuring const close(fd);
        EXPECT_FALSE(IsOpen(fd));
        EXPECT_EQ(::open("/dev/null", O_RDONLY), fd);
        EXPECT_EQ(::fstat(fd, &during), 0);
    }
    EXPECT_EQ(::fstat(fd, &after), 0);
    EXPECT_NE(during.st_ino, before.st_ino);
    EXPECT_EQ(after.st_ino, before.st_ino);
    ::close(fd);
}

TEST(RecordLocksTest, LocksOfADescriptorAreListed) {
    SKIP_UNLESS_RECORD_LOCKS_ARE_LISTED();
    ScratchDirectory const scratch;
    WriteFile(scratch / "file", "0123456789");
    int const fd = ::open((scratch / "file").c_str(), O_RDWR);
    EXPECT_THAT(RecordLocksOf(fd), IsEmpty());
    struct flock lock = {};
    lock.l_type = F_RDLCK;
    ASSERT_EQ(::fcntl(fd, F_SETLK, &lock), 0);
    EXPECT_THAT(RecordLocksOf(fd), ElementsAre("READ 0-EOF"));
    lock.l_type = F_WRLCK;
    lock.l_start = 2;
    lock.l_len = 3;
    ASSERT_EQ(::fcntl(fd, F_SETLK, &lock), 0);
    EXPECT_THAT(RecordLocksOf(fd), ElementsAre("READ 0-1", "WRITE 2-4", "READ 5-EOF"));
    ::close(fd);
}

TEST(RecordLocksTest, AnotherProcessSeesTheLock) {
    ScratchDirectory const scratch;
    std::string const path = scratch / "file";
    WriteFile(path, "");
    int const fd = ::open(path.c_str(), O_RDWR);
    struct flock lock = {};
    EXPECT_EQ(RecordLockSeenByOthers(path), "");
    for (auto const& [type, name] : {std::pair(F_RDLCK, "READ"), std::pair(F_WRLCK, "WRITE"), std::pair(F_UNLCK, "")}) {
        lock.l_type = static_cast<short>(type);
        ASSERT_EQ(::fcntl(fd, F_SETLK, &lock), 0);
        EXPECT_EQ(RecordLockSeenByOthers(path), name);
    }
    ::close(fd);
}

TEST(RecordLocksTest, AMissingFileFailsTheTest) {
    EXPECT_FAILURE(RecordLockSeenByOthers("/no/such/file"), "Could not ask for the locks of /no/such/file");
}

// ---- Messages

void ThrowReport(wchar_t const* text, unsigned int error) {
    throw WBase::ExceptionImpl<WBase::Message>(text, error);
}

WBase::Message MakeWrapped(int error) {
    WBase::Message message(WBase::MESSAGE_DOMAIN_ERRNO, error, nullptr);
    message.WrapBy(WBase::MESSAGE_DOMAIN_SERVER, 0x12345678, "Failed to do '%1'.") << L"\u00E4";
    return message;
}

TEST(MessagesTest, ReportsAreRecognised) {
    EXPECT_REPORT(ThrowReport(L"F: ::open failed.", ENOENT), L"F: ::open failed.", ENOENT);
    EXPECT_FAILURE(EXPECT_REPORT(ThrowReport(L"F.", ENOENT), L"G.", ENOENT), "text \"F.\\nNo such file or directory\"");
    EXPECT_FAILURE(EXPECT_REPORT(ThrowReport(L"F.", ENOENT), L"F.", EIO), "ID 2");
    EXPECT_FAILURE(EXPECT_REPORT(throw MakeWrapped(EIO), L"Failed to do '\u00E4'.", EIO), "domain");
}

TEST(MessagesTest, ReportsWithoutAnErrorAreRecognised) {
    EXPECT_REPORT_NO_ERROR(throw WBase::ExceptionImpl<WBase::Message>("F."), L"F.");
    EXPECT_NONFATAL_FAILURE(EXPECT_REPORT_NO_ERROR(ThrowReport(L"F.", EIO), L"F."), "ID 5");
}

TEST(MessagesTest, WrappedMessagesAreRecognised) {
    EXPECT_WRAPPED(throw MakeWrapped(EIO), L"Failed to do '\u00E4'.", EIO);
    EXPECT_FAILURE(
        EXPECT_WRAPPED(throw MakeWrapped(EIO), L"Failed to do '\u00E4'.", ENOENT), "Failed to do 'ä'.\\nInput");
    EXPECT_FAILURE(EXPECT_WRAPPED_NO_CAUSE(throw MakeWrapped(EIO), L"Failed to do '\u00E4'."), "Actual");
    EXPECT_FAILURE(EXPECT_WRAPPED(ThrowReport(L"F.", EIO), L"F.", EIO), "ExceptionImpl");
}

TEST(MessagesTest, WrappedMessagesWithoutACauseAreRecognised) {
    EXPECT_WRAPPED_NO_CAUSE(
        throw WBase::Message(WBase::MESSAGE_DOMAIN_SERVER, 0x12345678, "Failed to do it."), L"Failed to do it.");
}

TEST(MessagesTest, OtherEndsOfAStatementFailTheTest) {
    EXPECT_FAILURE(EXPECT_WRAPPED_NO_CAUSE((void)0, L"F."), "It throws nothing. Expected: \"F.\"");
    EXPECT_FAILURE(EXPECT_WRAPPED_NO_CAUSE(throw std::runtime_error("why"), L"F."), "why");
    EXPECT_FAILURE(EXPECT_WRAPPED_NO_CAUSE(throw 1, L"F."), "no std::exception");
}

TEST(MessagesTest, DomainIDAndExactTypeCount) {
    EXPECT_FALSE(Matches(WBase::Message(WBase::MESSAGE_DOMAIN_ERRNO, 0x12345678, "F."), WrappedWithoutCause(L"F.")));
    EXPECT_FALSE(Matches(WBase::Message(WBase::MESSAGE_DOMAIN_SERVER, 1, "F."), WrappedWithoutCause(L"F.")));
    EXPECT_TRUE(Matches(WBase::Message(WBase::MESSAGE_DOMAIN_SERVER, 0x12345678, "F."), WrappedWithoutCause(L"F.")));
    WBase::StringConversionException const derived(WBase::MESSAGE_DOMAIN_SERVER, 0x12345678, "F.");
    EXPECT_FALSE(Matches(derived, WrappedWithoutCause(L"F.")));
}

// ---- Virtual functions

struct Virtual {
    virtual ~Virtual() = default;
    virtual int First() = 0;
    virtual void Second() = 0;
    virtual void Third(int) const = 0;
};

struct Overriding : Virtual {
    int First() override { return 1; }
    void Second() override { ++calls; }
    void Third(int) const override {}

    int calls = 0;
};

TEST(VirtualSlotsTest, FunctionsStandInTheOrderOfTheirDeclarations) {
    EXPECT_EQ(SlotOf(&Virtual::First), 2U);
    EXPECT_EQ(SlotOf(&Virtual::Second), 3U);
    EXPECT_EQ(SlotOf(&Virtual::Third), 4U);
}

TEST(VirtualSlotsTest, AFunctionIsCalledByItsSlot) {
    Overriding object;
    CallSlot<Virtual>(&object, 3);
    EXPECT_EQ(object.calls, 1);
}

} // namespace
