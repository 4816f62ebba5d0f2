// Servers and clients in different processes, and the shape of the interfaces.

#include <FileSystem/NamedPipe.h>

#include <Tests/Support/Child.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/NamedPipes.h>
#include <Tests/Support/Program.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/VirtualSlots.h>
#include <Tests/Support/Waiting.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <exception>
#include <fstream>
#include <list>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

namespace {

using namespace TestSupport;
using namespace WFileSystem;
using ::testing::ElementsAre;

// ---- The shape of the interfaces

using NamedPipeError = NamedPipe::NamedPipeError;

static_assert(sizeof(NamedPipeError) == 1024);
static_assert(!std::is_polymorphic_v<NamedPipeError>);
static_assert(!std::is_base_of_v<std::exception, NamedPipeError>);
static_assert(std::is_trivially_copyable_v<NamedPipeError>);
static_assert(!std::is_convertible_v<char const*, NamedPipeError>);

static_assert(std::is_base_of_v<NamedPipe, NamedPipeServer> && std::is_base_of_v<NamedPipe, NamedPipeClient>);
static_assert(std::is_abstract_v<NamedPipe> && std::has_virtual_destructor_v<NamedPipe>);
static_assert(std::is_abstract_v<NamedPipeServer> && std::is_abstract_v<NamedPipeClient>);

TEST(NamedPipeErrorTest, KeepsItsText) {
    EXPECT_STREQ(NamedPipeError("Named pipe read error").GetMessage(), "Named pipe read error");
    EXPECT_STREQ(NamedPipeError("").GetMessage(), "");
    std::string text = "copied";
    NamedPipeError const error(text.c_str());
    text = "changed";
    EXPECT_STREQ(error.GetMessage(), "copied");
}

TEST(NamedPipeErrorTest, EndsItsTextInsideOf1024Bytes) {
    for (std::size_t const size : {1022U, 1023U, 1024U, 1025U, 5000U}) {
        std::string const text(size, 'x');
        EXPECT_EQ(NamedPipeError(text.c_str()).GetMessage(), text.substr(0, 1023)) << size;
    }
}

TEST(NamedPipeErrorTest, IsCaughtByItsTypeAlone) {
    std::string caughtAs;
    try {
        throw NamedPipeError("text");
    } catch (std::exception const&) {
        caughtAs = "std::exception";
    } catch (NamedPipeError const& error) {
        caughtAs = error.GetMessage();
    }
    EXPECT_EQ(caughtAs, "text");
}

#ifdef __GXX_ABI_VERSION

TEST(NamedPipeInterfaceTest, TheSlotsFollowTheTwoOfTheDestructorInTheirOrder) {
    EXPECT_EQ(SlotOf(&NamedPipe::Read), 2U);
    EXPECT_EQ(SlotOf(&NamedPipe::Write), 3U);
    EXPECT_EQ(SlotOf(&NamedPipeServer::Listen), 4U);
    EXPECT_EQ(SlotOf(&NamedPipeServer::Disconnect), 5U);
    EXPECT_EQ(SlotOf(&NamedPipeClient::Connect), 4U);
    EXPECT_EQ(SlotOf(&NamedPipeClient::Disconnect), 5U);
}

#endif

// ---- Channels

// Bytes that tell their place, so that lost, doubled and exchanged ones show.
std::string MakeMessage(std::size_t size, unsigned int seed) {
    std::string message(size, '\0');
    unsigned int state = seed * 2654435761U + 1;
    for (char& byte : message) {
        state = state * 1664525U + 1013904223U;
        byte = static_cast<char>(state >> 24);
    }
    return message;
}

std::string ReadMessage(NamedPipe& pipe, std::size_t size) {
    std::string message(size, '\0');
    EXPECT_EQ(pipe.Read(message.data(), size), 0);
    return message;
}

int WriteMessage(NamedPipe& pipe, std::string const& message) {
    return pipe.Write(message.data(), message.size());
}

std::string WriteError(int error) {
    return std::string("Named pipe write error : ") + std::strerror(error);
}

/// A channel. Servers of the test's own process end their waiting at the usual limit. Children are made before servers,
/// so that they do not inherit a server's ends.
class NamedPipeTest : public ::testing::Test {
protected:
    std::unique_ptr<NamedPipeServer> MakeServer(bool (*cancel)() = NamedPipeStory::Cancel, int pause = 0) const {
        ServerTimeLimit::Restart();
        return CreateNamedPipeServer(base_.c_str(), cancel, pause);
    }

    // Waits for the word "connect" and connects.
    std::unique_ptr<NamedPipeClient> Connect(Child::Parent& parent) const {
        parent.WaitFor("connect");
        auto client = CreateNamedPipeClient(base_.c_str());
        EXPECT_EQ(client->Connect(), 0);
        return client;
    }

    // Lets a child connect to a server of this process.
    static void LetConnect(Child& child, NamedPipeServer& server) {
        child.Say("connect");
        EXPECT_EQ(server.Listen(), 0);
    }

    // A process that makes a server, says "made", and listens until it is killed.
    Child ListenElsewhere() const {
        return Child([this](Child::Parent& parent) {
            auto const pipe = MakeServer();
            parent.Say("made");
            pipe->Listen();
            parent.WaitFor("the end");
        });
    }

    ScratchDirectory scratch_;
    std::wstring base_ = scratch_.Wide("p");
    std::string readerPath_ = scratch_ / "p.ServerReader";
    std::string writerPath_ = scratch_ / "p.ServerWriter";
    std::string lockPath_ = scratch_ / "p.Lock";
};

class MessageSizeTest : public NamedPipeTest, public ::testing::WithParamInterface<std::size_t> {};

INSTANTIATE_TEST_SUITE_P(
    FromOneByteTo16MiB, MessageSizeTest,
    ::testing::Values(1U, 2U, 4095U, 4096U, 4097U, 65535U, 65536U, 65537U, 1U << 20, 16U << 20));

TEST_P(MessageSizeTest, MessagesGoBothWays) {
    std::string const request = MakeMessage(GetParam(), 1);
    std::string const reply = MakeMessage(GetParam(), 2);
    Child child([&](Child::Parent& parent) {
        auto const client = Connect(parent);
        EXPECT_EQ(WriteMessage(*client, request), 0);
        EXPECT_TRUE(ReadMessage(*client, reply.size()) == reply);
        client->Disconnect();
    });
    auto const server = MakeServer();
    LetConnect(child, *server);
    EXPECT_TRUE(ReadMessage(*server, request.size()) == request);
    EXPECT_EQ(WriteMessage(*server, reply), 0);
    EXPECT_EQ(child.Wait(), 0);
}

TEST_F(NamedPipeTest, OneServerServesSeveralClientsInTurn) {
    std::list<Child> children;
    for (unsigned int i = 0; i < 3; ++i) {
        children.emplace_back([&, i](Child::Parent& parent) {
            auto const client = Connect(parent);
            WriteMessage(*client, MakeMessage(100, i));
            EXPECT_TRUE(ReadMessage(*client, 100) == MakeMessage(100, i + 10));
            client->Disconnect();
        });
    }
    auto const server = MakeServer();
    unsigned int i = 0;
    for (Child& child : children) {
        LetConnect(child, *server);
        EXPECT_TRUE(ReadMessage(*server, 100) == MakeMessage(100, i));
        EXPECT_EQ(WriteMessage(*server, MakeMessage(100, i + 10)), 0);
        EXPECT_EQ(child.Wait(), 0);
        ++i;
    }
}

TEST_F(NamedPipeTest, ASecondClientWaitsUntilTheFirstHasDisconnected) {
    Child first([&](Child::Parent& parent) {
        auto const client = Connect(parent);
        parent.Say("connected");
        parent.WaitFor("disconnect");
        WriteFile(scratch_ / "disconnecting", "");
        client->Disconnect();
    });
    Child second([&](Child::Parent& parent) {
        Recorder recorder;
        recorder.On("fcntl").Before([&](Call const&) { parent.Say("locking"); });
        auto const client = Connect(parent);
        EXPECT_TRUE(Exists(scratch_ / "disconnecting"));
        client->Disconnect();
    });
    auto const server = MakeServer();
    LetConnect(first, *server);
    ASSERT_TRUE(first.WaitFor("connected"));
    second.Say("connect");
    ASSERT_TRUE(second.WaitFor("locking"));
    EXPECT_EQ(RecordLockSeenByOthers(lockPath_), "WRITE");
    first.Say("disconnect");
    EXPECT_EQ(first.Wait(), 0);
    EXPECT_EQ(second.Wait(), 0);
}

/// What a request and its reply begin with.
struct Header {
    unsigned int client;
    unsigned int sequence;
    unsigned int size;
};

TEST_F(NamedPipeTest, AThousandExchangesByEightClientsInTurnLoseAndMixNothing) {
    constexpr unsigned int CLIENTS = 8;
    constexpr unsigned int EXCHANGES = 125; // of each client
    std::list<Child> children;
    for (unsigned int number = 0; number < CLIENTS; ++number) {
        children.emplace_back([&, number](Child::Parent& parent) {
            parent.WaitFor("begin");
            auto const client = CreateNamedPipeClient(base_.c_str());
            for (unsigned int sequence = 0; sequence < EXCHANGES; ++sequence) {
                std::string const payload = MakeMessage(sequence * 131 % 9000, number * EXCHANGES + sequence);
                Header const header = {number, sequence, static_cast<unsigned int>(payload.size())};
                ASSERT_EQ(client->Connect(), 0);
                client->Write(&header, sizeof header);
                WriteMessage(*client, payload);
                Header answer = {};
                client->Read(&answer, sizeof answer);
                ASSERT_EQ(std::memcmp(&answer, &header, sizeof header), 0);
                ASSERT_TRUE(ReadMessage(*client, answer.size) == std::string(payload.rbegin(), payload.rend()));
                client->Disconnect();
            }
        });
    }
    auto const server = MakeServer();
    for (Child& child : children) {
        child.Say("begin");
    }
    server->Listen();
    std::array<unsigned int, CLIENTS> served = {};
    for (unsigned int i = 0; i < CLIENTS * EXCHANGES; ++i) {
        ServerTimeLimit::Restart();
        Header header = {};
        ASSERT_EQ(server->Read(&header, sizeof header), 0);
        ASSERT_LT(header.client, CLIENTS);
        ASSERT_EQ(header.sequence, served.at(header.client)++);
        std::string payload = ReadMessage(*server, header.size);
        std::reverse(payload.begin(), payload.end());
        server->Write(&header, sizeof header);
        WriteMessage(*server, payload);
    }
    EXPECT_THAT(served, ::testing::Each(EXCHANGES));
    for (Child& child : children) {
        EXPECT_EQ(child.Wait(), 0);
    }
}

// ---- Waiting and cancelling

/// Whether a process sleeps in a system call, or "unknown" where the system does not tell.
std::string StateOf(pid_t process) {
    std::ifstream file("/proc/" + std::to_string(process) + "/stat");
    std::string text;
    std::getline(file, text);
    std::size_t const end = text.rfind(')'); // of the program's name
    return end == std::string::npos ? "unknown" : text.substr(end + 2, 1);
}

#define SKIP_UNLESS_PROCESS_STATES_ARE_TOLD()                                                                          \
    if (StateOf(::getpid()) == "unknown")                                                                              \
    GTEST_SKIP() << "This system does not tell the state of a process."

bool WaitUntilAsleep(Child const& child) {
    return WaitUntil([&] { return StateOf(child.GetPid()) == "S"; });
}

TEST_F(NamedPipeTest, ConnectWaitsUntilTheServerListens) {
    SKIP_UNLESS_PROCESS_STATES_ARE_TOLD();
    Child child([&](Child::Parent& parent) {
        Recorder recorder;
        recorder.On("open").Nth(3).Before([&](Call const& call) {
            EXPECT_EQ(call.path, writerPath_);
            parent.Say("opening");
        });
        auto const client = Connect(parent);
        EXPECT_TRUE(Exists(scratch_ / "listening"));
        client->Disconnect();
    });
    auto const server = MakeServer();
    child.Say("connect");
    ASSERT_TRUE(child.WaitFor("opening"));
    ASSERT_TRUE(WaitUntilAsleep(child));
    WriteFile(scratch_ / "listening", "");
    EXPECT_EQ(server->Listen(), 0);
    EXPECT_EQ(child.Wait(), 0);
}

volatile sig_atomic_t isTerminated = 0;

void Terminate(int) {
    isTerminated = 1;
}

bool IsTerminated() {
    return isTerminated != 0;
}

/// A step of a server that waits, and what it returns when it is cancelled.
struct WaitingStep {
    int (*step)(NamedPipeServer&, std::string const& writerPath);
    int result;
};

class WaitingStepTest : public NamedPipeTest, public ::testing::WithParamInterface<WaitingStep> {};

constexpr unsigned long MORE_THAN_A_FIFO_HOLDS = 16UL << 20;

INSTANTIATE_TEST_SUITE_P(
    EachStep, WaitingStepTest,
    ::testing::Values(
        WaitingStep{[](NamedPipeServer& server, std::string const&) { return server.Listen(); }, 0},
        WaitingStep{
            [](NamedPipeServer& server, std::string const&) {
                char byte = 0;
                return server.Read(&byte, 1);
            },
            -1},
        WaitingStep{
            [](NamedPipeServer& server, std::string const& writerPath) {
                int const clientsEnd = ::open(writerPath.c_str(), O_RDONLY | O_NONBLOCK);
                server.Listen();
                std::string const message(MORE_THAN_A_FIFO_HOLDS, 'x');
                int const result = server.Write(message.data(), message.size());
                ::close(clientsEnd);
                return result;
            },
            -1}));

TEST_P(WaitingStepTest, ASignalEndsTheSleepAndTheCallbackTheWaiting) {
    SKIP_UNLESS_PROCESS_STATES_ARE_TOLD();
    constexpr int LONGER_THAN_ANY_TEST = 100000;
    Child child([&](Child::Parent& parent) {
        ::signal(SIGTERM, Terminate);
        auto const server = MakeServer(IsTerminated, LONGER_THAN_ANY_TEST);
        Recorder recorder;
        recorder.On("sleep").Before([&](Call const&) { parent.Say("sleeping"); });
        EXPECT_EQ(GetParam().step(*server, writerPath_), GetParam().result);
    });
    ASSERT_TRUE(child.WaitFor("sleeping"));
    ASSERT_TRUE(WaitUntilAsleep(child));
    child.Signal(SIGTERM);
    EXPECT_EQ(child.Wait(), 0);
}

// ---- When a side dies

TEST_F(NamedPipeTest, AClientThatIsKilledInTheMiddleOfAMessageLeavesTheServerWaitingAndTheLockFree) {
    Child child([&](Child::Parent& parent) {
        auto const client = Connect(parent);
        WriteMessage(*client, "half");
        parent.Say("written");
        parent.WaitFor("the end");
    });
    auto const server = MakeServer();
    LetConnect(child, *server);
    ASSERT_TRUE(child.WaitFor("written"));
    EXPECT_EQ(RecordLockSeenByOthers(lockPath_), "WRITE");
    EXPECT_EQ(child.Kill(), -SIGKILL);
    EXPECT_EQ(RecordLockSeenByOthers(lockPath_), "");
    NamedPipeStory const story(50);
    char message[8] = {};
    EXPECT_EQ(server->Read(message, 8), -1);
    EXPECT_STREQ(message, "half");
}

TEST_F(NamedPipeTest, AReplyToAClientThatIsKilledFails) {
    Child child([&](Child::Parent& parent) {
        auto const client = Connect(parent);
        parent.Say("connected");
        parent.WaitFor("the end");
    });
    auto const server = MakeServer();
    LetConnect(child, *server);
    ASSERT_TRUE(child.WaitFor("connected"));
    EXPECT_EQ(child.Kill(), -SIGKILL);
    EXPECT_EQ(NamedPipeErrorOf([&] { WriteMessage(*server, "reply"); }), WriteError(EPIPE));
}

TEST_F(NamedPipeTest, AReplyToAClientThatIsKilledWhileItComesFails) {
    Child child([&](Child::Parent& parent) {
        auto const client = Connect(parent);
        parent.WaitFor("the end");
    });
    auto const server = MakeServer();
    LetConnect(child, *server);
    NamedPipeStory story;
    story.recorder.On("sleep").Nth(1).Before([&](Call const&) { EXPECT_EQ(child.Kill(), -SIGKILL); });
    std::string const reply(MORE_THAN_A_FIFO_HOLDS, 'x');
    EXPECT_EQ(NamedPipeErrorOf([&] { WriteMessage(*server, reply); }), WriteError(EPIPE));
    EXPECT_EQ(story.recorder.Names(), "sigaction write sleep write sigaction");
}

TEST_F(NamedPipeTest, AMessageThatAClientDidNotFinishIsFilledUpByTheNextClient) {
    std::list<Child> children;
    for (int i = 0; i < 2; ++i) {
        children.emplace_back([&](Child::Parent& parent) {
            auto const client = Connect(parent);
            WriteMessage(*client, "half");
            client->Disconnect();
        });
    }
    auto const server = MakeServer();
    for (Child& child : children) {
        LetConnect(child, *server);
        EXPECT_EQ(child.Wait(), 0);
    }
    EXPECT_EQ(ReadMessage(*server, 8), "halfhalf");
}

TEST_F(NamedPipeTest, ANewServerDropsTheMessageThatAKilledClientDidNotFinish) {
    Child killed([&](Child::Parent& parent) {
        auto const client = Connect(parent);
        WriteMessage(*client, "half");
        parent.Say("written");
        parent.WaitFor("the end");
    });
    Child next([&](Child::Parent& parent) {
        auto const client = Connect(parent);
        WriteMessage(*client, "a whole one");
        client->Disconnect();
    });
    auto server = MakeServer();
    LetConnect(killed, *server);
    ASSERT_TRUE(killed.WaitFor("written"));
    EXPECT_EQ(killed.Kill(), -SIGKILL);
    server = MakeServer(); // before the former one ends
    LetConnect(next, *server);
    EXPECT_EQ(ReadMessage(*server, 11), "a whole one");
    EXPECT_EQ(next.Wait(), 0);
}

TEST_F(NamedPipeTest, ALaterClientReadsWhatTheFormerLeftUnread) {
    Child first([&](Child::Parent& parent) {
        auto const client = Connect(parent);
        parent.Say("connected");
        parent.WaitFor("disconnect");
        client->Disconnect();
    });
    Child second([&](Child::Parent& parent) {
        auto const client = Connect(parent);
        EXPECT_EQ(ReadMessage(*client, 5), "first");
        client->Disconnect();
    });
    auto const server = MakeServer();
    LetConnect(first, *server);
    ASSERT_TRUE(first.WaitFor("connected"));
    EXPECT_EQ(WriteMessage(*server, "first"), 0);
    first.Say("disconnect");
    EXPECT_EQ(first.Wait(), 0);
    LetConnect(second, *server);
    EXPECT_EQ(second.Wait(), 0);
}

TEST_F(NamedPipeTest, AClientWhoseServerDiesReadsForEverAndFailsToWrite) {
    Child client([&](Child::Parent& parent) {
        auto const pipe = Connect(parent);
        parent.Say("connected");
        parent.WaitFor("talk");
        EXPECT_EQ(NamedPipeErrorOf([&] { WriteMessage(*pipe, "x"); }), WriteError(EPIPE));
        Recorder recorder;
        recorder.On("read").Nth(1000).Fail(EIO); // the only way out
        EXPECT_EQ(NamedPipeErrorOf([&] { ReadMessage(*pipe, 1); }), "Named pipe read error");
        EXPECT_EQ(recorder.Count("read"), 1000U);
    });
    Child server = ListenElsewhere();
    ASSERT_TRUE(server.WaitFor("made"));
    client.Say("connect");
    ASSERT_TRUE(client.WaitFor("connected"));
    EXPECT_EQ(server.Kill(), -SIGKILL);
    client.Say("talk");
    EXPECT_EQ(client.Wait(), 0);
}

TEST_F(NamedPipeTest, ARequestToAServerThatIsKilledWhileItComesFails) {
    SKIP_UNLESS_PROCESS_STATES_ARE_TOLD();
    Child client([&](Child::Parent& parent) {
        auto const pipe = Connect(parent);
        Recorder recorder;
        recorder.On("write").Nth(1).Before([&](Call const&) { parent.Say("writing"); });
        std::string const request(MORE_THAN_A_FIFO_HOLDS, 'x');
        EXPECT_EQ(NamedPipeErrorOf([&] { WriteMessage(*pipe, request); }), WriteError(EPIPE));
        EXPECT_EQ(recorder.Names(), "sigaction write write sigaction");
    });
    Child server = ListenElsewhere();
    ASSERT_TRUE(server.WaitFor("made"));
    client.Say("connect");
    ASSERT_TRUE(client.WaitFor("writing"));
    ASSERT_TRUE(WaitUntilAsleep(client));
    EXPECT_EQ(server.Kill(), -SIGKILL);
    EXPECT_EQ(client.Wait(), 0);
}

TEST_F(NamedPipeTest, AServerThatDiedComesBackOverItsStaleFifos) {
    Child client([&](Child::Parent& parent) {
        auto const pipe = Connect(parent);
        WriteMessage(*pipe, "request");
        EXPECT_EQ(ReadMessage(*pipe, 5), "reply");
        pipe->Disconnect();
    });
    Child former([&](Child::Parent& parent) {
        auto const pipe = MakeServer();
        parent.Say("made");
        parent.WaitFor("the end");
    });
    ASSERT_TRUE(former.WaitFor("made"));
    EXPECT_EQ(former.Kill(), -SIGKILL);
    EXPECT_THAT(List(scratch_.Path()), ElementsAre("p.Lock", "p.ServerReader", "p.ServerWriter"));
    auto const server = MakeServer();
    LetConnect(client, *server);
    EXPECT_EQ(ReadMessage(*server, 7), "request");
    EXPECT_EQ(WriteMessage(*server, "reply"), 0);
    EXPECT_EQ(client.Wait(), 0);
}

TEST_F(NamedPipeTest, AClientThatConnectsAfterItsServerDiedWaitsAtTheStaleFifoAlsoWhenANewServerComes) {
    SKIP_UNLESS_PROCESS_STATES_ARE_TOLD();
    Child client([&](Child::Parent& parent) {
        Recorder recorder;
        recorder.On("open").Nth(2).Before([&](Call const&) { parent.Say("opening"); });
        Connect(parent);
    });
    MakeServer(); // and its end
    client.Say("connect");
    ASSERT_TRUE(client.WaitFor("opening"));
    ASSERT_TRUE(WaitUntilAsleep(client));
    auto const server = MakeServer();
    NamedPipeStory story(100);
    EXPECT_EQ(server->Listen(), 0);
    EXPECT_EQ(story.recorder.Count("open"), 99U); // no client came
    story.recorder.Stop();
    EXPECT_EQ(StateOf(client.GetPid()), "S");
    EXPECT_EQ(RecordLockSeenByOthers(lockPath_), "WRITE");
    EXPECT_EQ(client.Kill(), -SIGKILL);
}

TEST_F(NamedPipeTest, AProgramThatTheServerRunsKeepsItsEndOfTheChannelOpen) {
    auto server = MakeServer();
    Program program({"cat"});
    program.Write("running\n");
    ASSERT_TRUE(program.WaitForOutput("running\n"));
    server.reset();
    int const toServer = ::open(readerPath_.c_str(), O_WRONLY | O_NONBLOCK);
    EXPECT_NE(toServer, -1); // somebody reads
    EXPECT_EQ(program.Wait().status, 0);
    ::close(toServer);
    EXPECT_EQ(::open(readerPath_.c_str(), O_WRONLY | O_NONBLOCK), -1); // nobody reads any more
    EXPECT_EQ(errno, ENXIO);
}

} // namespace
