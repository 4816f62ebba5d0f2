// The server's side of a channel, call by call. Clients in other processes are in NamedPipeTest.cpp.

#include <FileSystem/PrivateSource/NamedPipeServerImpl.h>

#include <Base/Exception.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/NamedPipes.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <cstddef>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace TestSupport;
using namespace WFileSystem;
using ::testing::ElementsAre;

constexpr int PAUSE = 7;

/// The base path of a channel, and the client's ends of it.
class NamedPipeServerTest : public ::testing::Test {
protected:
    NamedPipeServerTest() { ::umask(0022); }
    ~NamedPipeServerTest() override {
        ::close(toServer_);
        ::close(toClient_);
        ::umask(0022);
    }

    std::unique_ptr<NamedPipeServer> MakeServer() const {
        return CreateNamedPipeServer(scratch_.Wide("p").c_str(), NamedPipeStory::Cancel, PAUSE);
    }

    // What a client does, but without waiting.
    void OpenAsClient() {
        Unobserved const unobserved;
        toServer_ = ::open(readerPath_.c_str(), O_WRONLY | O_NONBLOCK);
        toClient_ = ::open(writerPath_.c_str(), O_RDONLY | O_NONBLOCK);
        ASSERT_NE(toServer_, -1);
        ASSERT_NE(toClient_, -1);
    }

    std::unique_ptr<NamedPipeServer> MakeConnectedServer() {
        auto server = MakeServer();
        OpenAsClient();
        EXPECT_EQ(server->Listen(), 0);
        return server;
    }

    static ino_t IdentityOf(std::string const& path) {
        struct stat status = {};
        EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
        return status.st_ino;
    }

    static bool IsFifo(std::string const& path) {
        struct stat status = {};
        return ::lstat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode);
    }

    std::vector<std::string> Files() const { return List(scratch_.Path()); }

    ScratchDirectory scratch_;
    std::string readerPath_ = scratch_ / "p.ServerReader";
    std::string writerPath_ = scratch_ / "p.ServerWriter";
    std::string lockPath_ = scratch_ / "p.Lock";
    int toServer_ = -1;
    int toClient_ = -1;
};

std::string Quoted(std::string const& text) {
    return '"' + text + '"';
}

// ---- Creation

TEST_F(NamedPipeServerTest, CreationMakesTheFifosAndTheLockFileAndOpensTheFifoToTheServer) {
    Recorder recorder;
    auto const server = MakeServer();
    recorder.Stop();
    EXPECT_THAT(
        recorder.Calls(),
        ElementsAre(
            "stat(" + Quoted(readerPath_) + ")", "umask(0000)", "mkfifo(" + Quoted(readerPath_) + ", 0660)",
            "umask(0022)", "stat(" + Quoted(writerPath_) + ")", "umask(0000)",
            "mkfifo(" + Quoted(writerPath_) + ", 0660)", "umask(0022)",
            "open(" + Quoted(lockPath_) + ", O_WRONLY|O_CREAT|O_TRUNC|O_NOCTTY, 0664)", "fcntl(F_SETFD, FD_CLOEXEC)",
            "open(" + Quoted(readerPath_) + ", O_RDONLY|O_NONBLOCK)", "close()"));
    EXPECT_EQ(recorder.Find("close").fd, recorder.Find("fcntl").fd);
}

TEST_F(NamedPipeServerTest, CreationDeletesWhatHasTheNameOfAFifo) {
    WriteFile(readerPath_, "");
    WriteFile(writerPath_, "");
    Recorder recorder;
    auto const server = MakeServer();
    recorder.Stop();
    EXPECT_EQ(recorder.Names(), "stat unlink umask mkfifo umask stat unlink umask mkfifo umask open fcntl open close");
    EXPECT_EQ(recorder.Find("unlink", 1).path, readerPath_);
    EXPECT_EQ(recorder.Find("unlink", 2).path, writerPath_);
    EXPECT_TRUE(IsFifo(readerPath_));
    EXPECT_TRUE(IsFifo(writerPath_));
}

TEST_F(NamedPipeServerTest, CreationReplacesStaleFifosByNewOnes) {
    MakeServer();
    toServer_ = ::open(readerPath_.c_str(), O_RDONLY | O_NONBLOCK); // so that the identities are not given away again
    toClient_ = ::open(writerPath_.c_str(), O_RDONLY | O_NONBLOCK);
    ino_t const oldReader = IdentityOf(readerPath_);
    ino_t const oldWriter = IdentityOf(writerPath_);
    auto const server = MakeServer();
    EXPECT_NE(IdentityOf(readerPath_), oldReader);
    EXPECT_NE(IdentityOf(writerPath_), oldWriter);
}

TEST_F(NamedPipeServerTest, TheFifosHaveTheMode0660WhateverTheMaskAndTheLockFileFollowsIt) {
    ::umask(0077);
    auto const server = MakeServer();
    EXPECT_EQ(ModeOf(readerPath_), 0660U);
    EXPECT_EQ(ModeOf(writerPath_), 0660U);
    EXPECT_EQ(ModeOf(lockPath_), 0600U);
    EXPECT_EQ(::umask(0022), 0077U);
}

TEST_F(NamedPipeServerTest, AnExistingLockFileIsEmptiedAndKept) {
    WriteFile(lockPath_, "old");
    ino_t const identity = IdentityOf(lockPath_);
    auto const server = MakeServer();
    EXPECT_EQ(ReadFile(lockPath_), "");
    EXPECT_EQ(IdentityOf(lockPath_), identity);
}

TEST_F(NamedPipeServerTest, TheServerKeepsOneDescriptorAndProgramsInheritIt) {
    std::size_t const before = OpenDescriptors().size();
    Recorder recorder;
    auto const server = MakeServer();
    recorder.Stop();
    EXPECT_EQ(OpenDescriptors().size(), before + 1);
    EXPECT_FALSE(IsCloseOnExec(static_cast<int>(recorder.Find("open", 2).result)));
}

TEST_F(NamedPipeServerTest, TheFieldsStandInTheirOrder) {
    Recorder recorder;
    auto const server = MakeServer();
    recorder.Stop();
    struct Fields {
        void* table;
        bool (*cancel)();
        std::wstring base;
        int numbers[3];
    };
    static_assert(sizeof(NamedPipeServerImpl) == sizeof(Fields));
    auto const* const object = reinterpret_cast<char const*>(server.get());
    bool (*cancel)() = nullptr;
    std::memcpy(&cancel, object + offsetof(Fields, cancel), sizeof cancel);
    EXPECT_EQ(cancel, &NamedPipeStory::Cancel);
    int numbers[3] = {};
    std::memcpy(numbers, object + offsetof(Fields, numbers), sizeof numbers);
    EXPECT_THAT(numbers, ElementsAre(PAUSE, recorder.Find("open", 2).result, -1));
}

TEST_F(NamedPipeServerTest, WhatCannotBeLookedAtIsDeletedAllTheSame) {
    MakeServer();
    Recorder recorder;
    recorder.On("stat").Fail(EACCES);
    auto const server = MakeServer();
    EXPECT_EQ(recorder.Names(), "stat unlink umask mkfifo umask stat unlink umask mkfifo umask open fcntl open close");
}

TEST_F(NamedPipeServerTest, ALinkThatLeadsNowhereIsNotDeletedAndMakesTheCreationFail) {
    ASSERT_EQ(::symlink("nothing", readerPath_.c_str()), 0);
    Recorder const recorder;
    EXPECT_EQ(NamedPipeErrorOf([&] { MakeServer(); }), "Failed to create name pipe");
    EXPECT_EQ(recorder.Names(), "stat umask mkfifo");
    EXPECT_THAT(Files(), ElementsAre("p.ServerReader"));
}

TEST_F(NamedPipeServerTest, ALinkInPlaceOfTheLockFileIsFollowedAndItsFileEmptied) {
    WriteFile(scratch_ / "precious", "data");
    ASSERT_EQ(::symlink("precious", lockPath_.c_str()), 0);
    auto const server = MakeServer();
    EXPECT_EQ(ReadFile(scratch_ / "precious"), "");
}

TEST_F(NamedPipeServerTest, AFailedCreationPrintsNothing) {
    for (unsigned int const nth : {1U, 2U}) {
        Recorder recorder;
        recorder.On("mkfifo").Nth(nth).Fail(EACCES);
        EXPECT_EQ(PrintedBy([&] { EXPECT_NE(NamedPipeErrorOf([&] { MakeServer(); }), "nothing is thrown"); }), "");
    }
    Recorder recorder;
    recorder.On("open").Nth(2).Fail(EACCES);
    EXPECT_EQ(PrintedBy([&] { EXPECT_NE(NamedPipeErrorOf([&] { MakeServer(); }), "nothing is thrown"); }), "");
}

TEST_F(NamedPipeServerTest, CreationFailsWhereSomethingInTheWayCannotBeDeletedAndTheMaskStaysZero) {
    ASSERT_EQ(::mkdir(readerPath_.c_str(), 0700), 0);
    EXPECT_EQ(NamedPipeErrorOf([&] { MakeServer(); }), "Failed to create name pipe");
    EXPECT_THAT(Files(), ElementsAre("p.ServerReader"));
    EXPECT_EQ(::umask(0022), 0U);
}

TEST_F(NamedPipeServerTest, AFailureOfTheSecondFifoLeavesTheFirst) {
    ASSERT_EQ(::mkdir(writerPath_.c_str(), 0700), 0);
    EXPECT_EQ(NamedPipeErrorOf([&] { MakeServer(); }), "Failed to create name pipe");
    EXPECT_THAT(Files(), ElementsAre("p.ServerReader", "p.ServerWriter"));
    EXPECT_TRUE(IsFifo(readerPath_));
}

TEST_F(NamedPipeServerTest, AFailureOfTheLockFileIsTheReportOfItsOpening) {
    ASSERT_EQ(::mkdir(lockPath_.c_str(), 0700), 0);
    DescriptorCheck const check;
    EXPECT_REPORT(
        MakeServer(), L"WFileSystem::File::OpenDescriptor: ::open failed for '" + scratch_.Wide("p.Lock") + L"'.",
        EISDIR);
    EXPECT_THAT(Files(), ElementsAre("p.Lock", "p.ServerReader", "p.ServerWriter"));
}

TEST_F(NamedPipeServerTest, AFifoThatCannotBeOpenedIsAFailureThatClosesTheLockFile) {
    for (int const error : {EACCES, EINTR, EMFILE}) {
        DescriptorCheck const check;
        Recorder recorder;
        recorder.On("open").Nth(2).Fail(error);
        EXPECT_EQ(NamedPipeErrorOf([&] { MakeServer(); }), "Can't open pipe for read") << error;
        recorder.Stop();
        EXPECT_EQ(recorder.Count("open"), 2U);
        EXPECT_EQ(recorder.Calls().back(), "close()");
        EXPECT_EQ(recorder.Find("close").fd, recorder.Find("open", 1).result);
    }
    EXPECT_THAT(Files(), ElementsAre("p.Lock", "p.ServerReader", "p.ServerWriter"));
}

TEST_F(NamedPipeServerTest, ABaseThatCannotBeConvertedIsReportedBeforeAnyCall) {
    constexpr wchar_t UNCONVERTIBLE[] = {L'a', static_cast<wchar_t>(0xD800), L'\0'};
    Recorder const recorder;
    EXPECT_THROW(CreateNamedPipeServer(UNCONVERTIBLE, NamedPipeStory::Cancel, PAUSE), WBase::StringConversionException);
    EXPECT_EQ(recorder.Names(), "");
}

// ---- Listen and Disconnect

TEST_F(NamedPipeServerTest, ListenConnectsToAClientThatIsThere) {
    auto const server = MakeServer();
    OpenAsClient();
    NamedPipeStory const story;
    EXPECT_EQ(server->Listen(), 0);
    EXPECT_EQ(story.Tell(), "cancel open(" + Quoted(writerPath_) + ", O_WRONLY|O_NONBLOCK)");
    EXPECT_FALSE(IsCloseOnExec(static_cast<int>(story.recorder.Find("open").result)));
}

TEST_F(NamedPipeServerTest, ListenSleepsAndAsksWhileNoClientIsThere) {
    auto const server = MakeServer();
    NamedPipeStory story;
    story.recorder.On("sleep").Nth(1).Return(0);
    story.recorder.On("sleep").Nth(2).Instead([&](Call const&) {
        OpenAsClient();
        return 0L;
    });
    EXPECT_EQ(server->Listen(), 0);
    std::string const open = "open(" + Quoted(writerPath_) + ", O_WRONLY|O_NONBLOCK)";
    EXPECT_EQ(story.Tell(), "cancel " + open + " sleep(7) cancel " + open + " sleep(7) cancel " + open);
}

TEST_F(NamedPipeServerTest, ListenThatIsCancelledOpensNothingAndReturnsZero) {
    auto const server = MakeServer();
    OpenAsClient();
    NamedPipeStory const story(1);
    EXPECT_EQ(server->Listen(), 0);
    EXPECT_EQ(story.Tell(), "cancel");
}

TEST_F(NamedPipeServerTest, ListenIsCancelledAfterASleep) {
    auto const server = MakeServer();
    NamedPipeStory story(2);
    story.recorder.On("sleep").Return(0);
    EXPECT_EQ(server->Listen(), 0);
    EXPECT_EQ(story.Tell(), "cancel open(" + Quoted(writerPath_) + ", O_WRONLY|O_NONBLOCK) sleep(7) cancel");
}

TEST_F(NamedPipeServerTest, AfterACancelledListenAWriteIsCancelledTooAndFailsOnceTheCallbackAnswersFalse) {
    auto const server = MakeServer();
    {
        NamedPipeStory const story(1);
        EXPECT_EQ(server->Listen(), 0);
        EXPECT_EQ(server->Write("x", 1), -1);
    }
    EXPECT_EQ(
        NamedPipeErrorOf([&] { server->Write("x", 1); }),
        std::string("Named pipe write error : ") + std::strerror(EBADF));
}

TEST_F(NamedPipeServerTest, AfterACancelledListenTheNextOneConnects) {
    auto const server = MakeServer();
    {
        NamedPipeStory const story(1);
        EXPECT_EQ(server->Listen(), 0);
    }
    OpenAsClient();
    EXPECT_EQ(server->Listen(), 0);
    EXPECT_EQ(server->Write("x", 1), 0);
}

TEST_F(NamedPipeServerTest, ListenWithAConnectionMakesNoCallAndAsksNobody) {
    auto const server = MakeConnectedServer();
    NamedPipeStory const story;
    EXPECT_EQ(server->Listen(), 0);
    EXPECT_EQ(story.Tell(), "");
}

TEST_F(NamedPipeServerTest, DescriptorZeroIsAConnectionLikeAnyOther) {
    auto server = MakeServer();
    OpenAsClient();
    CloseDuring const noInput(0);
    EXPECT_EQ(server->Listen(), 0);
    NamedPipeStory const story;
    EXPECT_EQ(server->Listen(), 0);
    EXPECT_EQ(story.Tell(), "");
    EXPECT_EQ(server->Write("x", 1), 0);
    EXPECT_EQ(story.recorder.Find("write").fd, 0);
    server.reset();
}

TEST_F(NamedPipeServerTest, ListenPrintsAndReportsEveryFailureButAMissingClient) {
    auto const server = MakeServer();
    for (int const error : {ENOENT, EINTR, EACCES, EMFILE}) {
        NamedPipeStory story;
        story.recorder.On("open").Fail(error);
        std::string const printed = PrintedBy(
            [&] { EXPECT_EQ(NamedPipeErrorOf([&] { server->Listen(); }), "Can't open named pipe for write"); });
        EXPECT_EQ(printed, std::string("open write error\n: ") + std::strerror(error) + "\n");
        EXPECT_EQ(story.recorder.Names(), "open");
    }
}

TEST_F(NamedPipeServerTest, ListenFailsWhereItsFifoHasGone) {
    auto const server = MakeServer();
    ASSERT_EQ(::unlink(writerPath_.c_str()), 0);
    std::string const printed =
        PrintedBy([&] { EXPECT_EQ(NamedPipeErrorOf([&] { server->Listen(); }), "Can't open named pipe for write"); });
    EXPECT_EQ(printed, std::string("open write error\n: ") + std::strerror(ENOENT) + "\n");
}

TEST_F(NamedPipeServerTest, AMissingClientPrintsNothing) {
    auto const server = MakeServer();
    NamedPipeStory story(3);
    story.recorder.On("sleep").Return(0);
    EXPECT_EQ(PrintedBy([&] { EXPECT_EQ(server->Listen(), 0); }), "");
}

TEST_F(NamedPipeServerTest, DisconnectDoesNothing) {
    auto const server = MakeConnectedServer();
    NamedPipeStory const story;
    EXPECT_EQ(server->Disconnect(), 0);
    EXPECT_EQ(story.Tell(), "");
    EXPECT_EQ(server->Write("x", 1), 0);
}

// ---- Read, Write and the end

TEST_F(NamedPipeServerTest, ReadPollsWithTheCallbackAndThePauseOfTheServer) {
    auto const server = MakeConnectedServer();
    NamedPipeStory story;
    story.recorder.On("sleep").Instead([&](Call const&) { return ::write(toServer_, "data", 4) - 4L; });
    char data[4] = {};
    EXPECT_EQ(server->Read(data, 4), 0);
    EXPECT_EQ(story.Tell(), "cancel read(4) sleep(7) cancel read(4)");
    EXPECT_EQ(std::string(data, 4), "data");
}

TEST_F(NamedPipeServerTest, WritePollsWithTheCallbackAndThePauseOfTheServer) {
    auto const server = MakeConnectedServer();
    NamedPipeStory story;
    story.recorder.On("write").Nth(1).Fail(EAGAIN);
    story.recorder.On("sleep").Return(0);
    EXPECT_EQ(server->Write("data", 4), 0);
    EXPECT_EQ(story.recorder.Names(), "sigaction write sleep write sigaction");
    story.recorder.Stop();
    char data[4] = {};
    EXPECT_EQ(::read(toClient_, data, 4), 4);
    EXPECT_EQ(std::string(data, 4), "data");
}

TEST_F(NamedPipeServerTest, ReadAndWriteAreCancelled) {
    auto const server = MakeConnectedServer();
    NamedPipeStory const story(1);
    char data[4] = {};
    EXPECT_EQ(server->Read(data, 4), -1);
    EXPECT_EQ(server->Write(data, 4), -1);
}

TEST_F(NamedPipeServerTest, AReadBeforeListenGetsWhatAClientHasSent) {
    auto const server = MakeServer();
    OpenAsClient();
    ASSERT_EQ(::write(toServer_, "data", 4), 4);
    char data[4] = {};
    EXPECT_EQ(server->Read(data, 4), 0);
    EXPECT_EQ(std::string(data, 4), "data");
}

TEST_F(NamedPipeServerTest, TheEndClosesTheReadAndThenTheWriteDescriptorAndLeavesTheFiles) {
    Recorder recorder;
    auto server = MakeServer();
    OpenAsClient();
    server->Listen();
    auto const read = static_cast<int>(recorder.Find("open", 2).result);
    auto const write = static_cast<int>(recorder.Find("open", 3).result);
    recorder.Clear();
    server.reset();
    EXPECT_THAT(
        recorder.Calls(Recorder::DESCRIPTORS),
        ElementsAre("close(" + std::to_string(read) + ")", "close(" + std::to_string(write) + ")"));
    EXPECT_THAT(Files(), ElementsAre("p.Lock", "p.ServerReader", "p.ServerWriter"));
}

TEST_F(NamedPipeServerTest, TheEndClosesTheWriteDescriptorAlsoWhereThereIsNone) {
    auto server = MakeServer();
    Recorder const recorder;
    server.reset();
    EXPECT_EQ(recorder.Names(), "close close");
    EXPECT_EQ(recorder.Find("close", 2).fd, -1);
}

TEST_F(NamedPipeServerTest, TheEndRepeatsAnInterruptedClose) {
    for (unsigned int const nth : {1U, 2U}) {
        auto server = MakeServer();
        Recorder recorder;
        recorder.On("close").Nth(nth).FailWithoutCalling(EINTR);
        server.reset();
        EXPECT_EQ(recorder.Names(), "close close close");
        EXPECT_EQ(recorder.Find("close", nth).fd, recorder.Find("close", nth + 1).fd);
    }
}

TEST_F(NamedPipeServerTest, CreationRepeatsAnInterruptedClose) {
    DescriptorCheck const check;
    Recorder recorder;
    recorder.On("close").Nth(1).FailWithoutCalling(EINTR);
    MakeServer();
    EXPECT_EQ(recorder.Find("close", 1).fd, recorder.Find("close", 2).fd);
}

// ---- Surprises

TEST_F(NamedPipeServerTest, ASecondServerOfTheSameBaseDeletesTheFifosOfTheFirst) {
    auto const first = MakeServer();
    auto const second = MakeServer();
    OpenAsClient();
    ASSERT_EQ(::write(toServer_, "data", 4), 4);
    char data[4] = {};
    {
        NamedPipeStory story(2);
        story.recorder.On("sleep").Return(0);
        EXPECT_EQ(first->Read(data, 4), -1); // its FIFO has no name and no writer any more
    }
    EXPECT_EQ(second->Read(data, 4), 0);
}

TEST_F(NamedPipeServerTest, AReadAfterTheClientHasGonePollsUntilItIsCancelled) {
    auto const server = MakeConnectedServer();
    ::close(std::exchange(toServer_, -1));
    NamedPipeStory story(100);
    story.recorder.On("sleep").Return(0);
    char data[4];
    EXPECT_EQ(server->Read(data, 4), -1);
    EXPECT_EQ(story.recorder.Count("read"), 99U);
}

TEST_F(NamedPipeServerTest, AWriteAfterTheClientHasGoneFails) {
    auto const server = MakeConnectedServer();
    ::close(std::exchange(toClient_, -1));
    EXPECT_EQ(
        NamedPipeErrorOf([&] { server->Write("x", 1); }),
        std::string("Named pipe write error : ") + std::strerror(EPIPE));
}

TEST_F(NamedPipeServerTest, WithoutAPauseThePollingAsksForNoSleep) {
    auto const server = CreateNamedPipeServer(scratch_.Wide("p").c_str(), NamedPipeStory::Cancel, 0);
    NamedPipeStory const story(4);
    char data[4];
    EXPECT_EQ(server->Read(data, 4), -1);
    EXPECT_EQ(story.Tell(), "cancel read(4) sleep(0) cancel read(4) sleep(0) cancel read(4) sleep(0) cancel");
}

} // namespace
