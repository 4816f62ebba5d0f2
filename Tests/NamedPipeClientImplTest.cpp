// The client's side of a channel, call by call. Ordinary files stand for the FIFOs where nothing shall wait. Servers in
// other processes are in NamedPipeTest.cpp.

#include <FileSystem/PrivateSource/NamedPipeClientImpl.h>

#include <Base/Exception.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/NamedPipes.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Text.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <clocale>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

using namespace TestSupport;
using namespace WFileSystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// The files of a channel, as ordinary files.
class NamedPipeClientTest : public ::testing::Test {
protected:
    NamedPipeClientTest() {
        for (std::string const& path : {readerPath_, writerPath_, lockPath_}) {
            WriteFile(path, "");
        }
    }

    std::unique_ptr<NamedPipeClient> MakeClient(std::string_view base = "p") const {
        return CreateNamedPipeClient(scratch_.Wide(base).c_str());
    }

    // "fd fd fd", what the opens that went well gave.
    static std::string Opened(Recorder const& recorder) {
        std::string text;
        for (Call const& call : recorder.All()) {
            if (call.function == "open" && call.result != -1) {
                text += (text.empty() ? "" : " ") + std::to_string(call.result);
            }
        }
        return text;
    }

    ScratchDirectory scratch_;
    std::string readerPath_ = scratch_ / "p.ServerReader";
    std::string writerPath_ = scratch_ / "p.ServerWriter";
    std::string lockPath_ = scratch_ / "p.Lock";
};

std::string Quoted(std::string const& text) {
    return '"' + text + '"';
}

// ---- Creation

TEST_F(NamedPipeClientTest, CreationOpensNothing) {
    Recorder const recorder;
    auto const client = MakeClient("missing");
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(NamedPipeClientTest, TheBasePathIsCopied) {
    std::wstring base = scratch_.Wide("p");
    auto const client = CreateNamedPipeClient(base.c_str());
    base.assign(base.size(), L'x');
    EXPECT_EQ(client->Connect(), 0);
    client->Disconnect();
}

TEST_F(NamedPipeClientTest, TheFieldsStandInTheirOrderAndTheUnusedOneIsTwo) {
    NamedPipeClientImpl const client(L"p");
    struct Fields {
        void* table;
        std::wstring base;
        int numbers[4];
    };
    static_assert(sizeof(NamedPipeClientImpl) == sizeof(Fields));
    int numbers[4] = {};
    std::memcpy(numbers, reinterpret_cast<char const*>(&client) + offsetof(Fields, numbers), sizeof numbers);
    EXPECT_THAT(numbers, ElementsAre(2, -1, -1, -1));
}

// ---- Connect

TEST_F(NamedPipeClientTest, ConnectOpensAndLocksTheLockFileAndThenOpensTheFifoToTheServerAndTheOneToTheClient) {
    DescriptorCheck const check(3);
    Recorder recorder;
    EXPECT_EQ(MakeClient()->Connect(), 0);
    recorder.Stop();
    EXPECT_THAT(
        recorder.Calls(),
        ElementsAre(
            "open(" + Quoted(lockPath_) + ", O_WRONLY)", "fcntl(F_SETLKW, F_WRLCK 0+0)",
            "open(" + Quoted(readerPath_) + ", O_WRONLY)", "open(" + Quoted(writerPath_) + ", O_RDONLY)"));
    EXPECT_EQ(recorder.Find("fcntl").fd, recorder.Find("open", 1).result);
}

TEST_F(NamedPipeClientTest, WhileConnectedTheLockFileIsLockedForOthers) {
    auto const client = MakeClient();
    client->Connect();
    EXPECT_EQ(RecordLockSeenByOthers(lockPath_), "WRITE");
    client->Disconnect();
    EXPECT_EQ(RecordLockSeenByOthers(lockPath_), "");
}

TEST_F(NamedPipeClientTest, TheDescriptorsAreInheritedByPrograms) {
    auto const client = MakeClient();
    Recorder recorder;
    client->Connect();
    recorder.Stop();
    for (unsigned int n = 1; n <= 3; ++n) {
        EXPECT_FALSE(IsCloseOnExec(static_cast<int>(recorder.Find("open", n).result)));
    }
    client->Disconnect();
}

TEST_F(NamedPipeClientTest, ConnectWithoutALockFileFailsAndMakesNone) {
    ASSERT_EQ(::unlink(lockPath_.c_str()), 0);
    DescriptorCheck const check;
    EXPECT_EQ(NamedPipeErrorOf([&] { MakeClient()->Connect(); }), "Can't open lock for pipe");
    EXPECT_FALSE(Exists(lockPath_));
}

TEST_F(NamedPipeClientTest, ConnectFailsWhereTheLockFileMayNotBeWritten) {
    ASSERT_EQ(::chmod(lockPath_.c_str(), 0444), 0);
    ASSERT_EQ(::chmod(scratch_.Path().c_str(), 0755), 0);
    Child child([&](Child::Parent&) {
        if (::geteuid() == 0) {
            ASSERT_EQ(::setuid(65534), 0); // root may write everywhere
        }
        EXPECT_EQ(NamedPipeErrorOf([&] { MakeClient()->Connect(); }), "Can't open lock for pipe");
    });
    EXPECT_EQ(child.Wait(), 0);
}

struct FailingOpen {
    unsigned int nth;
    char const* text;
};

class FailingOpenTest : public NamedPipeClientTest, public ::testing::WithParamInterface<FailingOpen> {};

INSTANTIATE_TEST_SUITE_P(
    EachOpen, FailingOpenTest,
    ::testing::Values(
        FailingOpen{1, "Can't open lock for pipe"}, FailingOpen{2, "Can't open pipe for write"},
        FailingOpen{3, "Can't open pipe for read"}));

TEST_P(FailingOpenTest, AnOpenIsNotRepeatedAndLeavesOpenWhatWasOpened) {
    for (int const error : {EINTR, ENOENT, EACCES}) {
        DescriptorCheck const check(GetParam().nth - 1);
        Recorder recorder;
        recorder.On("open").Nth(GetParam().nth).Fail(error);
        EXPECT_EQ(NamedPipeErrorOf([&] { MakeClient()->Connect(); }), GetParam().text);
        recorder.Stop();
        EXPECT_EQ(recorder.Count("open"), GetParam().nth);
        EXPECT_EQ(recorder.Count("close"), 0U);
    }
}

TEST_P(FailingOpenTest, AFailedOpenPrintsNothing) {
    auto const client = MakeClient();
    Recorder recorder;
    recorder.On("open").Nth(GetParam().nth).Fail(EACCES);
    EXPECT_EQ(PrintedBy([&] { EXPECT_NE(NamedPipeErrorOf([&] { client->Connect(); }), "nothing is thrown"); }), "");
    client->Disconnect();
}

TEST_P(FailingOpenTest, TheLockOfAFailedConnectStaysUntilDisconnect) {
    DescriptorCheck const check;
    auto const client = MakeClient();
    Recorder recorder;
    recorder.On("open").Nth(GetParam().nth).Fail(EINTR);
    EXPECT_NE(NamedPipeErrorOf([&] { client->Connect(); }), "nothing is thrown");
    recorder.Stop();
    EXPECT_EQ(RecordLockSeenByOthers(lockPath_), GetParam().nth == 1 ? "" : "WRITE");
    EXPECT_EQ(client->Disconnect(), 0);
    EXPECT_EQ(RecordLockSeenByOthers(lockPath_), "");
}

TEST_F(NamedPipeClientTest, WaitingForTheLockIsRepeatedWhileInterrupted) {
    auto const client = MakeClient();
    Recorder recorder;
    recorder.On("fcntl").First(20).Fail(EINTR);
    EXPECT_EQ(client->Connect(), 0);
    recorder.Stop();
    EXPECT_EQ(recorder.Count("fcntl"), 21U);
    client->Disconnect();
}

TEST_F(NamedPipeClientTest, ALockThatCannotBeHadIsPrintedAndLeavesTheLockFileOpen) {
    DescriptorCheck const check(1);
    Recorder recorder;
    recorder.On("fcntl").Fail(ENOLCK);
    std::string const printed = PrintedBy([&] { EXPECT_EQ(MakeClient()->Connect(), -1); });
    EXPECT_EQ(printed, "Failed to lock file '" + lockPath_ + "'.\n" + std::strerror(ENOLCK) + "\n");
    recorder.Stop();
    EXPECT_EQ(recorder.Names(), "open fcntl");
}

TEST_F(NamedPipeClientTest, DisconnectClosesTheLockFileAlsoWhereTheLockCouldNotBeHad) {
    DescriptorCheck const check;
    auto const client = MakeClient();
    Recorder recorder;
    recorder.On("fcntl").Nth(1).Fail(ENOLCK);
    PrintedBy([&] { EXPECT_EQ(client->Connect(), -1); });
    EXPECT_EQ(client->Disconnect(), 0);
    EXPECT_EQ(recorder.Names(), "open fcntl fcntl close close close");
}

TEST_F(NamedPipeClientTest, TheLockFileIsNamedByItsAbsolutePath) {
    ASSERT_EQ(::chdir(scratch_.Path().c_str()), 0);
    auto const client = CreateNamedPipeClient(L"p");
    Recorder recorder;
    recorder.On("fcntl").Fail(EDEADLK);
    std::string const printed = PrintedBy([&] { EXPECT_EQ(client->Connect(), -1); });
    EXPECT_EQ(printed, "Failed to lock file '" + lockPath_ + "'.\n" + std::strerror(EDEADLK) + "\n");
    client->Disconnect();
    ASSERT_EQ(::chdir("/"), 0);
}

TEST_F(NamedPipeClientTest, AFailureToNameTheLockFileIsPrintedInstead) {
    auto const client = CreateNamedPipeClient(L"p");
    Recorder recorder;
    recorder.On("open").Instead([](Call const&) { return 0L; });
    recorder.On("fcntl").Fail(EDEADLK);
    recorder.On("getcwd").Fail(EACCES);
    std::string const printed = PrintedBy([&] { EXPECT_EQ(client->Connect(), -1); });
    EXPECT_EQ(
        printed,
        std::string("WFileSystem::GetCurrentWorkingDirectory: ::getcwd failed.\n") + std::strerror(EACCES) + "\n");
}

TEST_F(NamedPipeClientTest, WhatIsPrintedIsCutAt1023Bytes) {
    std::string const base = '/' + std::string(2000, 'a');
    auto const client = CreateNamedPipeClient(Widen(base).c_str());
    Recorder recorder;
    recorder.On("open").Instead([](Call const&) { return 0L; });
    recorder.On("fcntl").Fail(ENOLCK);
    std::string const printed = PrintedBy([&] { EXPECT_EQ(client->Connect(), -1); });
    EXPECT_EQ(printed, ("Failed to lock file '" + base).substr(0, 1023) + "\n");
}

/// What a failing lock prints for a base outside ASCII.
std::string PrintedInLocale(char const* locale) {
    std::string const before = std::setlocale(LC_CTYPE, nullptr);
    if (std::setlocale(LC_CTYPE, locale) == nullptr) {
        return "no such locale";
    }
    auto const client = CreateNamedPipeClient(L"/tmp/a\x00FCz");
    Recorder recorder;
    recorder.On("open").Instead([](Call const&) { return 0L; });
    recorder.On("fcntl").Fail(ENOLCK);
    std::string printed = PrintedBy([&] { EXPECT_EQ(client->Connect(), -1); });
    std::setlocale(LC_CTYPE, before.c_str());
    return printed;
}

TEST_F(NamedPipeClientTest, WhatIsPrintedEndsAtTheFirstCharacterThatTheLocaleDoesNotKnow) {
    EXPECT_EQ(PrintedInLocale("C"), "Failed to lock file '/tmp/a\n");
}

TEST_F(NamedPipeClientTest, WhatIsPrintedIsInTheEncodingOfTheLocale) {
    std::string const printed = PrintedInLocale("C.UTF-8");
    if (printed == "no such locale") {
        GTEST_SKIP() << "The system has no locale C.UTF-8.";
    }
    EXPECT_EQ(printed, std::string("Failed to lock file '/tmp/a\xC3\xBCz.Lock'.\n") + std::strerror(ENOLCK) + "\n");
}

TEST_F(NamedPipeClientTest, OtherExceptionsThanMessagesPassThroughConnect) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    auto const client = MakeClient();
    Allocations allocations;
    Recorder recorder;
    recorder.On("fcntl").Instead([&](Call const&) {
        allocations.FailFrom(allocations.GetCount() + 1);
        errno = ENOLCK;
        return -1L;
    });
    bool isPassed = false;
    try {
        client->Connect();
    } catch (std::bad_alloc const&) {
        isPassed = true;
    }
    allocations.Stop();
    recorder.Stop();
    EXPECT_TRUE(isPassed);
    client->Disconnect();
}

TEST_F(NamedPipeClientTest, ABaseThatCannotBeConvertedPassesThroughConnect) {
    constexpr wchar_t UNCONVERTIBLE[] = {L'a', static_cast<wchar_t>(0xD800), L'\0'};
    auto const client = CreateNamedPipeClient(UNCONVERTIBLE);
    Recorder const recorder;
    EXPECT_THROW(client->Connect(), WBase::StringConversionException);
    EXPECT_EQ(recorder.Names(), "");
}

// ---- Read and Write

TEST_F(NamedPipeClientTest, ReadReadsTheFifoToTheClientAndNeverSleeps) {
    WriteFile(writerPath_, "data");
    auto const client = MakeClient();
    client->Connect();
    Recorder recorder;
    recorder.On("read").Nth(1).Limit(1);
    char data[4] = {};
    EXPECT_EQ(client->Read(data, 4), 0);
    recorder.Stop();
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(4)", "read(3)"));
    EXPECT_EQ(std::string(data, 4), "data");
    client->Disconnect();
}

TEST_F(NamedPipeClientTest, WriteWritesTheFifoToTheServerAndNeverSleeps) {
    auto const client = MakeClient();
    client->Connect();
    Recorder recorder;
    recorder.On("write").Nth(1).Limit(1);
    EXPECT_EQ(client->Write("data", 4), 0);
    recorder.Stop();
    EXPECT_EQ(recorder.Names(), "sigaction write write sigaction");
    EXPECT_EQ(ReadFile(readerPath_), "data");
    client->Disconnect();
}

TEST_F(NamedPipeClientTest, TransfersWithoutAConnectionFail) {
    auto const client = MakeClient();
    char data[4] = {};
    EXPECT_EQ(NamedPipeErrorOf([&] { client->Read(data, 4); }), "Named pipe read error");
    EXPECT_EQ(
        NamedPipeErrorOf([&] { client->Write(data, 4); }),
        std::string("Named pipe write error : ") + std::strerror(EBADF));
}

TEST_F(NamedPipeClientTest, AReadAtTheEndOfFileAsksAgainForEver) {
    auto const client = MakeClient();
    client->Connect();
    Recorder recorder;
    recorder.On("read").First(1000).After([](Call& call) { EXPECT_EQ(call.result, 0); });
    recorder.On("read").Nth(1001).Fail(EIO); // the only way out
    char data[4];
    EXPECT_EQ(NamedPipeErrorOf([&] { client->Read(data, 4); }), "Named pipe read error");
    recorder.Stop();
    EXPECT_EQ(recorder.Count("read"), 1001U);
    EXPECT_EQ(recorder.Count("sleep"), 0U);
    client->Disconnect();
}

// ---- Disconnect and the end

TEST_F(NamedPipeClientTest, DisconnectUnlocksAndClosesLockReadAndWriteDescriptor) {
    auto const client = MakeClient();
    Recorder recorder;
    client->Connect();
    std::string const lock = std::to_string(recorder.Find("open", 1).result);
    std::string const write = std::to_string(recorder.Find("open", 2).result);
    std::string const read = std::to_string(recorder.Find("open", 3).result);
    recorder.Clear();
    EXPECT_EQ(client->Disconnect(), 0);
    recorder.Stop();
    EXPECT_THAT(
        recorder.Calls(Recorder::DESCRIPTORS), ElementsAre(
                                                   "fcntl(" + lock + ", F_SETLK, F_UNLCK 0+0)", "close(" + lock + ")",
                                                   "close(" + read + ")", "close(" + write + ")"));
}

TEST_F(NamedPipeClientTest, DisconnectWithoutAConnectionClosesMinusOneThreeTimes) {
    auto const client = MakeClient();
    Recorder const recorder;
    EXPECT_EQ(client->Disconnect(), 0);
    EXPECT_THAT(recorder.Calls(Recorder::DESCRIPTORS), ElementsAre("close(-1)", "close(-1)", "close(-1)"));
}

TEST_F(NamedPipeClientTest, DisconnectReportsNoFailure) {
    auto const client = MakeClient();
    client->Connect();
    Recorder recorder;
    recorder.On("fcntl").Fail(EBADF);
    recorder.On("close").Fail(EIO);
    EXPECT_EQ(client->Disconnect(), 0);
    EXPECT_EQ(recorder.Names(), "fcntl close close close");
}

TEST_F(NamedPipeClientTest, DisconnectRepeatsAnInterruptedClose) {
    DescriptorCheck const check;
    for (unsigned int const nth : {1U, 2U, 3U}) {
        auto const client = MakeClient();
        client->Connect();
        Recorder recorder;
        recorder.On("close").Nth(nth).FailWithoutCalling(EINTR);
        client->Disconnect();
        EXPECT_EQ(recorder.Names(), "fcntl close close close close");
        EXPECT_EQ(recorder.Find("close", nth).fd, recorder.Find("close", nth + 1).fd);
    }
}

TEST_F(NamedPipeClientTest, AClientConnectsAgainAfterDisconnect) {
    DescriptorCheck const check;
    auto const client = MakeClient();
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(client->Connect(), 0);
        EXPECT_EQ(client->Disconnect(), 0);
    }
}

TEST_F(NamedPipeClientTest, ASecondConnectWithoutDisconnectLosesTheFormerDescriptors) {
    DescriptorCheck const check(3);
    auto const client = MakeClient();
    EXPECT_EQ(client->Connect(), 0);
    EXPECT_EQ(client->Connect(), 0);
    client->Disconnect();
}

TEST_F(NamedPipeClientTest, ASecondDisconnectMakesTheSameCallsAgain) {
    auto const client = MakeClient();
    client->Connect();
    Recorder recorder;
    client->Disconnect();
    auto const calls = recorder.Calls(Recorder::DESCRIPTORS);
    recorder.Clear();
    EXPECT_EQ(client->Disconnect(), 0);
    EXPECT_EQ(recorder.Calls(Recorder::DESCRIPTORS), calls);
}

TEST_F(NamedPipeClientTest, ALockFileThatIsNotOpenedAgainIsNotClosedAgainButTheFifosAre) {
    auto const client = MakeClient();
    client->Connect();
    client->Disconnect();
    ASSERT_EQ(::unlink(lockPath_.c_str()), 0);
    EXPECT_EQ(NamedPipeErrorOf([&] { client->Connect(); }), "Can't open lock for pipe");
    Recorder const recorder;
    EXPECT_EQ(client->Disconnect(), 0);
    EXPECT_EQ(recorder.Names(), "close close close");
    EXPECT_EQ(recorder.Find("close", 1).fd, -1);
    EXPECT_NE(recorder.Find("close", 2).fd, -1);
}

TEST_F(NamedPipeClientTest, ASecondDisconnectClosesNumbersThatBelongToOthersByThen) {
    auto const client = MakeClient();
    client->Connect();
    client->Disconnect();
    int const other = ::open("/dev/null", O_RDONLY); // gets the number of the lock file
    EXPECT_EQ(client->Disconnect(), 0);
    EXPECT_FALSE(IsOpen(other));
}

TEST_F(NamedPipeClientTest, TheEndOfAClientClosesNothingAndKeepsTheLock) {
    DescriptorCheck const check(3);
    auto client = MakeClient();
    client->Connect();
    Recorder recorder;
    client.reset();
    recorder.Stop();
    EXPECT_EQ(recorder.Names(), "");
    EXPECT_EQ(RecordLockSeenByOthers(lockPath_), "WRITE");
}

TEST_F(NamedPipeClientTest, ASecondClientOfTheSameProcessIsLetInBesideTheFirst) {
    auto const first = MakeClient();
    auto const second = MakeClient();
    EXPECT_EQ(first->Connect(), 0);
    EXPECT_EQ(second->Connect(), 0);
    second->Disconnect();
    EXPECT_EQ(RecordLockSeenByOthers(lockPath_), ""); // the first one's lock has gone, too
    first->Disconnect();
}

TEST_F(NamedPipeClientTest, AServerMadeInTheProcessOfAClientDropsItsLock) {
    auto const client = MakeClient();
    client->Connect();
    auto const server = CreateNamedPipeServer(scratch_.Wide("p").c_str(), NamedPipeStory::Cancel, 0);
    EXPECT_EQ(RecordLockSeenByOthers(lockPath_), "");
    client->Disconnect();
}

} // namespace
