#include <FileSystem/NamedPipe.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Sanitizers.h>
#include <Tests/Support/Waiting.h>
#include <Tests/Tools/WfsProgram.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <csignal>
#include <memory>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

namespace {

using ::testing::HasSubstr;
using TestSupport::Child;
using TestSupport::Program;
using TestSupport::ProgramResult;
using TestSupport::Recorder;

constexpr int SUCCESS = 0;
constexpr int FAILURE = 1;
constexpr int WRONG_USAGE = 2;
constexpr int NO_ANSWER = 75;

class PipeVerbTest : public WfsTest {
protected:
    /// Starts a server on the base "b", which runs a shell script, and waits until it can be called.
    void Serve(std::string const& script, Arguments const& options = {}) {
        ::remove((scratch_ / "b.ServerWriter").c_str()); // of an earlier server, so that this one is waited for
        Arguments arguments = {"pipe", "serve", "b", "--pause", "0"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.insert(arguments.end(), {"--", "sh", "-c", script});
        server_ = std::make_unique<Program>(Command(arguments), Options());
        ASSERT_TRUE(TestSupport::WaitUntil([&] { return TestSupport::Exists(scratch_ / "b.ServerWriter"); }));
    }

    ProgramResult Call(std::string const& request) const {
        return TestSupport::RunProgram(Command({"pipe", "call", "b"}), request, Options());
    }

    ProgramResult StopServer(int signal = SIGTERM) const {
        server_->Signal(signal);
        return server_->Wait();
    }

    /// A client that is greeted, sends these bytes, says "sent" and stays connected until it is killed.
    Child Connect(std::string const& bytes) const {
        return Child([this, bytes](Child::Parent& parent) {
            auto const client = WFileSystem::CreateNamedPipeClient(scratch_.Wide("b").c_str());
            client->Connect();
            unsigned char greeting[4];
            client->Read(greeting, sizeof greeting);
            client->Write(bytes.data(), bytes.size());
            parent.Say("sent");
            parent.WaitFor("never said");
        });
    }

    /// How many seconds the timer of a call with this --timeout has left when it comes to the channel, MOST_SECONDS at
    /// most.
    int SecondsLeft(std::string const& timeout) const {
        Write("b.Lock", "");
        return RunObserved(
                   {"pipe", "call", "b", "--timeout", timeout},
                   [](Recorder& recorder, Child::Parent&) {
                       recorder.On("open").Nth(2).Instead([](TestSupport::Call const&) -> long {
                           itimerval timer = {};
                           ::getitimer(ITIMER_REAL, &timer);
                           ::_exit(static_cast<int>(std::min<time_t>(timer.it_value.tv_sec, MOST_SECONDS)));
                       });
                   })
            .status;
    }

    /// Fits into an exit status.
    static constexpr int MOST_SECONDS = 99;

    std::unique_ptr<Program> server_;
};

TEST_F(PipeVerbTest, TheReplyIsTheCommandsOutputForTheRequest) {
    Serve("tr a-z A-Z");
    EXPECT_EQ(Call("some text").output, "SOME TEXT");
    EXPECT_EQ(Call("").output, "");
    ProgramResult const result = Call("more");
    EXPECT_EQ(result.output, "MORE");
    EXPECT_EQ(result.errors, "");
    EXPECT_EQ(result.status, SUCCESS);
}

TEST_F(PipeVerbTest, TheCallerEndsWithTheCommandsStatus) {
    Serve("read status; exit $status");
    EXPECT_EQ(Call("0\n").status, 0);
    EXPECT_EQ(Call("42\n").status, 42);
}

TEST_F(PipeVerbTest, ABigRequestAndReplyWithZeroBytesGoThrough) {
    std::string const bytes = std::string(3'000'000, 'x') + std::string(1000, '\0') + "end";
    Serve("cat");
    EXPECT_TRUE(Call(bytes).output == bytes);
}

TEST_F(PipeVerbTest, CallersInTurnLoseAndMixNothing) {
    Serve("cat");
    std::vector<std::unique_ptr<Program>> callers;
    for (int caller = 0; caller < 8; ++caller) {
        std::string const script =
            "for i in 1 2 3 4 5; do [ \"$(echo $0-$i | \"$1\" pipe call b)\" = $0-$i ] || echo $0-$i; done";
        callers.push_back(
            std::make_unique<Program>(Arguments{"sh", "-c", script, std::to_string(caller), PROGRAM}, Options()));
    }
    for (auto const& caller : callers) {
        ProgramResult const result = caller->Wait();
        EXPECT_EQ(result.output + result.errors, "");
    }
}

TEST_F(PipeVerbTest, SignalsEndAServerThatHasHadNoClient) {
#ifdef TESTSUPPORT_THREAD_SANITIZER
    GTEST_SKIP() << "ThreadSanitizer loses a signal that comes while a program prepares for its first sleep.";
#endif
    for (int const signal : {SIGINT, SIGTERM}) {
        Serve("cat");
        ProgramResult const result = StopServer(signal);
        EXPECT_EQ(result.status, SUCCESS);
        EXPECT_EQ(result.errors, "");
    }
}

TEST_F(PipeVerbTest, SignalsEndAServerBetweenTwoClients) {
    for (int const signal : {SIGINT, SIGTERM}) {
        Serve("cat");
        EXPECT_EQ(Call("text").output, "text");
        ProgramResult const result = StopServer(signal);
        EXPECT_EQ(result.status, SUCCESS);
        EXPECT_EQ(result.errors, "");
    }
}

TEST_F(PipeVerbTest, ASignalLetsTheRequestAtWorkBeDone) {
    Serve("echo begun > begun; for i in $(seq 2000); do [ -e go ] && break; sleep 0.01; done; echo done");
    Program caller(Command({"pipe", "call", "b"}), Options());
    caller.CloseInput();
    ASSERT_TRUE(TestSupport::WaitUntil([&] { return TestSupport::Exists(scratch_ / "begun"); }));
    server_->Signal(SIGTERM);
    Write("go", "");
    EXPECT_EQ(caller.Wait().output, "done\n");
    EXPECT_EQ(server_->Wait().status, SUCCESS);
}

TEST_F(PipeVerbTest, OnceServesOneRequest) {
    Serve("cat", {"--once"});
    EXPECT_EQ(Call("text").output, "text");
    EXPECT_EQ(server_->Wait().status, SUCCESS);
}

TEST_F(PipeVerbTest, ACommandThatCannotBeStartedDoesNotEndTheServer) {
    server_ = std::make_unique<Program>(Command({"pipe", "serve", "b", "--pause=0", "--", "./missing"}), Options());
    ASSERT_TRUE(TestSupport::WaitUntil([&] { return TestSupport::Exists(scratch_ / "b.ServerWriter"); }));
    EXPECT_EQ(Call("text").status, 127);
    EXPECT_EQ(Call("text").status, 127);
    std::string const report = "wfs: './missing' can't be started: No such file or directory\n";
    EXPECT_EQ(StopServer().errors, report + report);
}

TEST_F(PipeVerbTest, ABadLengthIsReportedAndDoesNotEndTheServer) {
    Serve("cat");
    Child client = Connect("\xFF\xFF\xFF\xFF");
    ASSERT_TRUE(client.WaitFor("sent"));
    ASSERT_TRUE(server_->WaitForErrors("wfs: 'b': A client sent a bad length.\n"));
    client.Kill();
    EXPECT_EQ(Call("text").output, "text");
}

TEST_F(PipeVerbTest, AClientThatDiesInTheMiddleOfAMessageIsGivenUpAtOnce) {
    Serve("cat", {"--idle", "100000"});
    Child client = Connect(std::string("\x09\0\0\0half", 8));
    ASSERT_TRUE(client.WaitFor("sent"));
    client.Kill();
    ASSERT_TRUE(server_->WaitForErrors("wfs: 'b': A client went away in the middle of a message.\n"));
    EXPECT_EQ(Call("text").output, "text");
}

TEST_F(PipeVerbTest, TheNextClientIsServedAfterOneThatDied) {
    Serve("cat", {"--idle", "100000"});
    for (int round = 0; round < 5; ++round) {
        Child client = Connect(std::string("\x09\0\0\0half", 8));
        ASSERT_TRUE(client.WaitFor("sent"));
        Program caller(Command({"pipe", "call", "b"}), Options());
        caller.Write("text");
        caller.CloseInput();
        client.Kill();
        EXPECT_EQ(caller.Wait().output, "text");
    }
}

TEST_F(PipeVerbTest, AFileThatIsMissingWhileTheChannelIsMadeAnewIsSoughtAgain) {
    Serve("cat");
    for (unsigned int const nth : {2U, 3U}) {
        ProgramResult const result = RunObserved({"pipe", "call", "b"}, [nth](Recorder& recorder, Child::Parent&) {
            recorder.On("open").Nth(nth).Fail(ENOENT);
        });
        EXPECT_EQ(result.errors, "");
        EXPECT_EQ(result.status, SUCCESS);
    }
}

TEST_F(PipeVerbTest, AClientThatDiesBeforeItsMessageIsNotMissed) {
    Serve("cat", {"--idle", "100000"});
    for (int round = 0; round < 5; ++round) {
        Child client = Connect("");
        ASSERT_TRUE(client.WaitFor("sent"));
        client.Kill();
        EXPECT_EQ(Call("text").output, "text");
    }
    EXPECT_EQ(StopServer().errors, "");
}

TEST_F(PipeVerbTest, AnIdleClientIsGivenUpAfterTheIdleTime) {
    Serve("cat", {"--idle", "1"});
    Child client = Connect(std::string("\x09\0\0\0half", 8));
    ASSERT_TRUE(client.WaitFor("sent"));
    ASSERT_TRUE(server_->WaitForErrors("wfs: 'b': A client went away in the middle of a message.\n"));
    client.Kill();
    EXPECT_EQ(Call("text").output, "text");
}

TEST_F(PipeVerbTest, TheCommandDoesNotInheritTheChannel) {
    std::string const list = "for fd in 3 4 5 6 7 8 9; do [ -e /dev/fd/$fd ] && echo $fd; done; true";
    Serve(list);
    EXPECT_EQ(Call("").output, "");
}

TEST_F(PipeVerbTest, AServerReplacesWhatADeadOneLeft) {
    Serve("cat");
    EXPECT_EQ(Call("one").output, "one");
    server_->Kill();
    Serve("cat");
    EXPECT_EQ(Call("two").output, "two");
}

TEST_F(PipeVerbTest, CallGivesUpWhenNoServerAnswersInTime) {
    Write("b.Lock", "");
    ASSERT_EQ(::mkfifo((scratch_ / "b.ServerReader").c_str(), 0600), 0);
    ProgramResult const result = Run({"pipe", "call", "b", "--wait", "10"});
    EXPECT_EQ(result.errors, "wfs: No server answered in time.\n");
    EXPECT_EQ(result.status, NO_ANSWER);
}

TEST_F(PipeVerbTest, CallWithoutTimeGivesUpAtOnce) {
    Write("b.Lock", "");
    ASSERT_EQ(::mkfifo((scratch_ / "b.ServerReader").c_str(), 0600), 0);
    EXPECT_EQ(Run({"pipe", "call", "b", "--wait", "0"}).status, NO_ANSWER);
    EXPECT_EQ(Run({"pipe", "call", "b", "--timeout", "0"}).status, NO_ANSWER);
}

TEST_F(PipeVerbTest, TheTimeoutIsInSeconds) {
    int const seconds = SecondsLeft("7");
    EXPECT_GE(seconds, 1);
    EXPECT_LE(seconds, 7);
}

TEST_F(PipeVerbTest, ATimeoutThatMillisecondsCannotCountIsAsLongAsTheyCan) {
    EXPECT_GE(SecondsLeft("18446744073709552"), MOST_SECONDS); // 2^64 milliseconds and some
}

TEST_F(PipeVerbTest, CallThatIsAnsweredInTimeSucceeds) {
    Serve("cat");
    ProgramResult const result =
        TestSupport::RunProgram(Command({"pipe", "call", "--wait", "20000", "b"}), "text", Options());
    EXPECT_EQ(result.output, "text");
    EXPECT_EQ(result.status, SUCCESS);
}

TEST_F(PipeVerbTest, CallEndsQuietlyWhenItsReaderIsGone) {
    Serve("cat");
    ProgramResult const result =
        RunScript("mkfifo lost; exec 3<>lost 4>lost 3<&-; echo text | { \"$WFS\" pipe call b >&4; echo $?; }");
    EXPECT_EQ(result.output, std::to_string(128 + SIGPIPE) + "\n");
    EXPECT_EQ(result.errors, "");
}

TEST_F(PipeVerbTest, CallFailsWhereThereNeverWasAServer) {
    ProgramResult const result = Run({"pipe", "call", "missing"});
    EXPECT_EQ(result.errors, "wfs: 'missing': Can't open lock for pipe\n");
    EXPECT_EQ(result.status, FAILURE);
}

TEST_F(PipeVerbTest, ServeReportsABaseThatCannotBeUsed) {
    ProgramResult const result = Run({"pipe", "serve", "missing/b", "--", "cat"});
    EXPECT_THAT(result.errors, HasSubstr("::open failed for 'missing/b.Lock'."));
    EXPECT_EQ(result.status, FAILURE);
}

TEST_F(PipeVerbTest, WhatIsMissingIsWrongUsage) {
    for (Arguments const& arguments : std::vector<Arguments>{
             {"pipe"},
             {"pipe", "turn"},
             {"pipe", "call"},
             {"pipe", "serve"},
             {"pipe", "serve", "b"},
             {"pipe", "call", "b", "--wait=soon"},
             {"pipe", "serve", "b", "--pause=-1", "--", "cat"}}) {
        EXPECT_EQ(Run(arguments).status, WRONG_USAGE);
    }
}

} // namespace
