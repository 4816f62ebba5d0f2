// Rows for the driver of FaultLoop.h: file objects from opening to destruction, named pipes, and the module.

#include <FileSystem/NamedPipe.h>
#include <FileSystem/UpdateableFile.h>
#include <Tests/FaultLoop.h>
#include <Tests/Support/Recorder.h>

#include <gtest/gtest.h>

#include <cerrno>

#include <fcntl.h>
#include <unistd.h>

namespace FaultLoop {
namespace {

using TestSupport::Unobserved;
using WFileSystem::IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED;
using WFileSystem::ReadableFile;
using WFileSystem::WriteableFile;

using Changes = std::vector<std::string>;
using Reactions = std::vector<Reaction>;

constexpr char LOCK_FAILURE[] = "Failed to lock file '{}/data'.";

Reactions operator+(Reactions first, Reactions const& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

/// Of the opening and the end of a file object.
Reactions Opening(std::string const& constructor) {
    return {
        Reports("open(", constructor + ": ::open failed for '{}/data'.").Repeated(),
        Reports("fcntl(F_GETFD", "::fcntl() failed").Repeated().Leaks(1),
        Reports("fstat(#1", "WFileSystem::InprocessFileLocker::ID::ID: ::fstat failed for '{}/data'.").Repeated(),
        Reports("pthread_mutex_init(", "::pthread_mutex_init failed"),
        Reports("pthread_cond_init(", "::pthread_cond_init failed"),
        Reports("pthread_mutex_lock(#1", "::pthread_mutex_lock failed"),          // the registry's
        Reports("pthread_mutex_lock(#2", "::pthread_mutex_lock failed").Leaks(1), // the file's
        Ends("pthread_mutex_lock(")};
}

Reactions OpeningToRead() {
    return Opening("WFileSystem::ReadableFileImpl::ReadableFileImpl");
}

/// Which file is opened for writing, and how.
struct Kind {
    std::string name;
    std::string constructor;
    std::unique_ptr<WriteableFile> (*open)(wchar_t const* path, IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy);
};

Kind const KINDS[] = {
    {"Writeable", "WFileSystem::WriteableFileImpl::WriteableFileImpl", WFileSystem::OpenWriteableFile},
    {"Updateable", "WFileSystem::UpdateableFileImpl::UpdateableFileImpl",
     [](wchar_t const* path, IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy) -> std::unique_ptr<WriteableFile> {
         return WFileSystem::OpenUpdateableFile(path, policy);
     }}};

struct Policy {
    std::string name;
    IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy;

    /// What is left of a file that holds the content.
    Changes Leaves(std::string const& content) const {
        return {
            policy == WFileSystem::DELETE_FILE     ? "-data"
            : policy == WFileSystem::TRUNCATE_FILE ? "data="
                                                   : "data=" + content};
    }
};

Policy const POLICIES[] = {
    {"Truncate", WFileSystem::TRUNCATE_FILE}, {"Delete", WFileSystem::DELETE_FILE}, {"Keep", WFileSystem::KEEP_FILE}};

/// The permission bits are no condition for the rest.
Reactions OpeningToWrite(Kind const& kind) {
    return Opening(kind.constructor) + Reactions{Passes("stat("), Passes("chmod(")};
}

Row Committing(Kind const& kind, Policy const& policy) {
    auto const after = [&](std::string const& content) { return policy.Leaves(content); };
    std::string const whole = "ABCDEabcdond";
    return {
        "Committing" + kind.name + policy.name, nullptr,
        [=](World& world) {
            auto const file = kind.open(world.Wide("data"), policy.policy);
            WriteableFile::WriteSmartLock const lock(*file);
            file->Write("ABC", 0);
            file->Write(static_cast<void const*>("DE"), 2);
            file->WriteLittleEndian(0x64636261);
            file->Flush();
            file->Truncate();
            file->CommitAndClose();
        },
        Reactions{
            Wraps("fcntl(F_SETLKW", LOCK_FAILURE).Repeated().After(after(World::DATA)), Passes("write(").For({SHORT}),
            Wraps("write(#1", "Failed to write 3 bytes to file '{}/data'.").Repeated().After(after(World::DATA)),
            Wraps("write(#2", "Failed to write 2 bytes to file '{}/data'.").Repeated().After(after("ABCst\nsecond")),
            Wraps("write(#3", "Failed to write 4 bytes to file '{}/data'.").Repeated().After(after("ABCDE\nsecond")),
            Wraps("fsync(", "Failed to flush file '{}/data'.").Repeated().After(after(whole)),
            // Once only: the policy, too, would fail for ever.
            Wraps("lseek(", "Failed to get current position of file '{}/data'.").OnceOnly().After(after(whole)),
            Wraps("ftruncate(", "Failed to truncate file '{}/data'.").Repeated().OnceOnly().After(after(whole)),
            // Closed all the same, and no policy applies.
            Wraps("close(", "Failed to close handle of file '{}/data'.").Repeated().After({"data=ABCDEabcd"})} +
            OpeningToWrite(kind)};
}

Row Abandoning(Kind const& kind, Policy const& policy) {
    bool const isDeleting = policy.policy == WFileSystem::DELETE_FILE;
    Changes const notEmptied = isDeleting ? Changes{"-data"} : Changes{"data=ABCst\nsecond"};
    Row row = {
        "Abandoning" + kind.name + policy.name, nullptr,
        [=](World& world) { kind.open(world.Wide("data"), policy.policy)->Write("ABC", 0); },
        Reactions{
            Passes("write(").For({SHORT}),
            WrapsNothing("write(", "Failed to write 2 bytes to file '{}/data'.")
                .For({SHORT_THEN_EIO})
                .After(policy.Leaves("Airst\nsecond")),
            Wraps("write(", "Failed to write 3 bytes to file '{}/data'.").Repeated().After(policy.Leaves(World::DATA)),
            Passes("lseek(").After(notEmptied), Passes("ftruncate(").For({EINTR}).Repeated(),
            Passes("ftruncate(").After(notEmptied), Passes("unlink(").After({"data="})} +
            OpeningToWrite(kind)};
    row.fatalAllocations = isDeleting ? 1 : 0; // the narrow path, in the destructor
    return row;
}

std::vector<Row> WritingRows() {
    std::vector<Row> rows;
    for (Kind const& kind : KINDS) {
        for (Policy const& policy : POLICIES) {
            rows.push_back(Committing(kind, policy));
            rows.push_back(Abandoning(kind, policy));
        }
        rows.push_back(
            {"NewFile" + kind.name, nullptr,
             [=](World& world) { kind.open(world.Wide("new"), WFileSystem::KEEP_FILE)->CommitAndClose(); },
             Reactions{
                 Reports("open(", kind.constructor + ": ::open failed for '{}/new'.").Repeated(),
                 Reports("fcntl(F_GETFD", "::fcntl() failed").Repeated().Leaks(1).After({"new="}),
                 Reports("fstat(", "WFileSystem::InprocessFileLocker::ID::ID: ::fstat failed for '{}/new'.")
                     .Repeated()
                     .After({"new="}),
                 Reports("pthread_mutex_init(", "::pthread_mutex_init failed").After({"new="}),
                 Reports("pthread_cond_init(", "::pthread_cond_init failed").After({"new="}),
                 Reports("pthread_mutex_lock(#1", "::pthread_mutex_lock failed").After({"new="}),
                 Reports("pthread_mutex_lock(#2", "::pthread_mutex_lock failed").After({"new="}).Leaks(1),
                 Ends("pthread_mutex_lock("), Passes("stat("),
                 Wraps("close(", "Failed to close handle of file '{}/new'.").Repeated().After({"new="})}});
        rows.push_back(
            {"WriteGuardNoWait" + kind.name, nullptr,
             [=](World& world) {
                 auto const file = kind.open(world.Wide("data"), WFileSystem::KEEP_FILE);
                 world.Say(WriteableFile::WriteSmartLock_NoWait(*file).IsLocked());
             },
             Reactions{
                 Passes("fcntl(F_SETLK, F_UNLCK").Repeated(), Returns("fcntl(F_SETLK", "[0]").For({ENOTSUP}),
                 Wraps("fcntl(F_SETLK", LOCK_FAILURE).Repeated()} +
                 OpeningToWrite(kind)});
    }
    return rows;
}

void ReadInEveryWay(World& world, ReadableFile& file) {
    world.Say(file.GetSize());
    world.Say(file.GetPosition());
    char bytes[6] = {};
    file.Read(bytes, 5);
    world.Say(bytes);
    world.Say(file.MovePosition(1));
    file.Read(*world.buffer, 6);
    file.SetPosition(0);
    file.ReadLine(*world.buffer);
    world.Say(std::string_view(world.buffer->GetBuffer(), world.buffer->GetSize()));
    world.Say(file.SetPositionToEnd());
    file.SetPosition(1);
    unsigned int number = 0;
    file.ReadLittleEndian(number);
    world.Say(number);
    WBase::Message report;
    world.Say(file.IsAccessibleViaPath(&report));
    world.Say(report.GetMessage());
}

/// After those of the locking, before those of the opening.
Reactions Reading() {
    std::string const inaccessible =
        "[12][0][first][6][first\n][12][1953722985][0][Failed to get attributes of file '{}/data'.\n{e}]";
    return {
        Wraps("fstat(#2", "Failed to get size of file '{}/data'.").Repeated(),
        Returns("fstat(#3", inaccessible).Repeated(),
        Wraps("lseek(0, SEEK_CUR", "Failed to get current position of file '{}/data'."),
        Wraps("lseek(", "Failed to set current position of file '{}/data'."),
        Passes("read(").For({SHORT}),
        Wraps("read(#1", "Failed to read 5 bytes from file '{}/data'.").Repeated(),
        Wraps("read(#2", "Failed to read 6 bytes from file '{}/data'.").Repeated(),
        Wraps("read(#3", "Failed to read 8 bytes from file '{}/data'.").Repeated(),
        Wraps("read(#4", "Failed to read 4 bytes from file '{}/data'.").Repeated()};
}

std::vector<Row> ReadingRows() {
    std::string const inaccessible = Reading()[1].text;
    return {
        {"ReadingReadable", nullptr,
         [](World& world) {
             auto const file = WFileSystem::OpenReadableFile(world.Wide("data"));
             ReadableFile::ReadSmartLock lock(*file);
             ReadInEveryWay(world, *file);
             lock.Unlock();
         },
         Reactions{Wraps("fcntl(F_SETLKW", LOCK_FAILURE).Repeated(), Returns("stat(", inaccessible).Repeated()} +
             Reading() + OpeningToRead()},
        {"ReadingUpdateable", nullptr,
         [](World& world) {
             auto const file = WFileSystem::OpenUpdateableFile(world.Wide("data"), WFileSystem::KEEP_FILE);
             ReadableFile::ReadSmartLock lock(*file);
             ReadInEveryWay(world, *file);
             lock.Unlock();
         },
         Reactions{
             Wraps("fcntl(F_SETLKW", LOCK_FAILURE).Repeated(), Passes("stat(#1"),
             Returns("stat(#2", inaccessible).Repeated()} +
             Reading() + OpeningToWrite(KINDS[1])},
        {"OpeningNoWait", nullptr,
         [](World& world) {
             world.Say(WFileSystem::OpenReadableFile_InProcessLockNoWait(world.Wide("data"))->GetPosition());
         },
         Reactions{Wraps("lseek(", "Failed to get current position of file '{}/data'.")} + OpeningToRead()},
        {"ReadGuardNoWait", nullptr,
         [](World& world) {
             auto const file = WFileSystem::OpenReadableFile(world.Wide("data"));
             world.Say(ReadableFile::ReadSmartLock_NoWait(*file).IsLocked());
         },
         Reactions{
             Passes("fcntl(F_SETLK, F_UNLCK").Repeated(), Returns("fcntl(F_SETLK", "[0]").For({ENOTSUP, EAGAIN}),
             Wraps("fcntl(F_SETLK", LOCK_FAILURE).Repeated()} +
             OpeningToRead()},
        {"ReadGuardWaitingSomeTime", nullptr,
         [](World& world) {
             auto const file = WFileSystem::OpenReadableFile(world.Wide("data"));
             world.Say(ReadableFile::ReadSmartLock_Wait(*file, 1).IsLocked());
         },
         Reactions{
             Passes("fcntl(F_SETLK, F_UNLCK").Repeated(), Passes("fcntl(F_SETLK").For({ENOTSUP, EAGAIN}).OnceOnly(),
             Wraps("fcntl(F_SETLK", LOCK_FAILURE).Repeated()} +
             OpeningToRead()},
    };
}

// Pipes

void MakeServer(World& world) {
    world.server = WFileSystem::CreateNamedPipeServer(world.Wide("pipe"), World::Cancel, 0);
}

/// A server, and a descriptor that is open on both ends of the FIFO to the client.
void MakeServerForConnecting(World& world) {
    MakeServer(world);
    world.fd = ::open((world.scratch / "pipe.ServerWriter").c_str(), O_RDWR | O_CLOEXEC);
}

/// Both sides, connected.
void Connect(World& world) {
    MakeServerForConnecting(world);
    world.client = WFileSystem::CreateNamedPipeClient(world.Wide("pipe"));
    world.client->Connect();
    world.server->Listen();
}

void ConnectAndWriteToServer(World& world) {
    Connect(world);
    world.client->Write("four", 4);
}

void ConnectAndWriteToClient(World& world) {
    Connect(world);
    world.server->Write("four", 4);
}

template <class Side>
std::function<void(World&)> ReadBy(std::unique_ptr<Side> World::*side) {
    return [side](World& world) {
        char bytes[5] = {};
        world.Say((world.*side)->Read(bytes, 4));
        world.Say(bytes);
        world.ClosePipes();
    };
}

template <class Side>
std::function<void(World&)> WriteBy(std::unique_ptr<Side> World::*side) {
    return [side](World& world) {
        world.Say((world.*side)->Write("four", 4));
        world.ClosePipes();
    };
}

Reactions const WRITING_TO_A_PIPE = {
    FailsThePipe("sigaction(SIGPIPE, SIG_IGN", "Failed to do sigaction()"),
    Passes("sigaction(").After({"SIGPIPE=ignored"}), Passes("write(").For({SHORT}),
    FailsThePipe("write(", "Named pipe write error : {e}").For({SHORT_THEN_EIO}),
    FailsThePipe("write(", "Named pipe write error : {e}")};

Reactions const READING_FROM_A_PIPE = {
    Passes("read(").For({SHORT}), FailsThePipe("read(", "Named pipe read error").For({SHORT_THEN_EIO}),
    FailsThePipe("read(", "Named pipe read error")};

Row Creating(std::string name, std::function<void(World&)> prepare, Reactions const& ofOldFifos) {
    constexpr char NO_FIFO[] = "Failed to create name pipe";
    bool const isNew = prepare == nullptr;
    auto const made = [isNew](Changes changes) { return isNew ? changes : Changes(); };
    auto const withMask = [&](Changes changes) {
        changes.emplace_back("umask=0000");
        return changes;
    };
    Row row = {
        std::move(name), std::move(prepare),
        [](World& world) { WFileSystem::CreateNamedPipeServer(world.Wide("pipe"), World::Cancel, 0); },
        ofOldFifos +
            Reactions{
                Passes("stat(").Repeated(),
                FailsThePipe("mkfifo(\"{}/pipe.ServerReader", NO_FIFO)
                    .After(withMask(isNew ? Changes() : Changes{"-pipe.ServerReader"})),
                FailsThePipe("mkfifo(", NO_FIFO)
                    .After(withMask(isNew ? Changes{"pipe.ServerReader=|"} : Changes{"-pipe.ServerWriter"})),
                Reports("open(\"{}/pipe.Lock", "WFileSystem::File::OpenDescriptor: ::open failed for '{}/pipe.Lock'.")
                    .Repeated()
                    .After(made({"pipe.ServerReader=|", "pipe.ServerWriter=|"})),
                FailsThePipe("open(", "Can't open pipe for read")
                    .After(made({"pipe.ServerReader=|", "pipe.ServerWriter=|", "pipe.Lock="}))}};
    row.halfWay = isNew ? std::vector<Changes>{{"pipe.ServerReader=|"}, {"pipe.ServerReader=|", "pipe.ServerWriter=|"}}
                        : std::vector<Changes>{{"-pipe.ServerReader"}, {"-pipe.ServerWriter"}};
    return row;
}

std::vector<Row> PipeRows() {
    constexpr char NOT_DELETED[] = "Failed to create name pipe";
    Row listening = {
        "ServerListen",
        MakeServerForConnecting,
        [](World& world) {
            world.Say(world.server->Listen());
            world.ClosePipes();
        },
        {Passes("open(").For({ENXIO}).OnceOnly(), // no client yet
         FailsThePipe("open(", "Can't open named pipe for write").Prints("open write error\n: {e}\n")}};
    listening.isPrinting = true;
    Row cancelling = listening;
    cancelling.name = "ServerListenCancelled";
    cancelling.prepare = MakeServer;
    Row connecting = {
        "ClientConnect",
        MakeServerForConnecting,
        [](World& world) {
            world.client = WFileSystem::CreateNamedPipeClient(world.Wide("pipe"));
            struct Closing {
                World& world;
                ~Closing() { // due after a failure, too
                    world.client->Disconnect();
                    world.client.reset();
                }
            } const closing = {world};
            world.Say(world.client->Connect());
        },
        {FailsThePipe("open(\"{}/pipe.Lock", "Can't open lock for pipe"),
         Returns("fcntl(F_SETLKW", "[-1]").Repeated().Prints("Failed to lock file '{}/pipe.Lock'.\n{e}\n"),
         FailsThePipe("open(\"{}/pipe.ServerReader", "Can't open pipe for write"),
         FailsThePipe("open(", "Can't open pipe for read")}};
    connecting.isPrinting = true;
    Reaction const noneYet = Passes("read(").For({EAGAIN}).OnceOnly();
    Reaction const noRoom = Passes("write(").For({EAGAIN}).OnceOnly();
    return {
        Creating("CreateServer", nullptr, {}),
        Creating(
            "CreateServerAnew",
            [](World& world) {
                MakeServer(world);
                world.server.reset();
            },
            {FailsThePipe("unlink(", NOT_DELETED).After({"umask=0000"})}),
        listening,
        cancelling,
        connecting,
        {"ServerRead", ConnectAndWriteToServer, ReadBy(&World::server), Reactions{noneYet} + READING_FROM_A_PIPE},
        {"ServerWrite", Connect, WriteBy(&World::server), Reactions{noRoom} + WRITING_TO_A_PIPE},
        {"ClientRead", ConnectAndWriteToClient, ReadBy(&World::client), READING_FROM_A_PIPE},
        {"ClientWrite", Connect, WriteBy(&World::client), WRITING_TO_A_PIPE},
    };
}

std::vector<Row> ModuleRows() {
    return {
        {"Initializer",
         [](World& world) { world.module.reset(); },
         [](World&) { WFileSystem::Initializer const first; },
         {Reports("pthread_mutex_init(", "::pthread_mutex_init failed")}},
        {"SecondInitializer", nullptr, [](World&) { WFileSystem::Initializer const second; }, {}},
    };
}

INSTANTIATE_TEST_SUITE_P(Writing, FaultLoopTest, ::testing::ValuesIn(WritingRows()), NameOf);
INSTANTIATE_TEST_SUITE_P(Reading, FaultLoopTest, ::testing::ValuesIn(ReadingRows()), NameOf);
INSTANTIATE_TEST_SUITE_P(Pipes, FaultLoopTest, ::testing::ValuesIn(PipeRows()), NameOf);
INSTANTIATE_TEST_SUITE_P(Module, FaultLoopTest, ::testing::ValuesIn(ModuleRows()), NameOf);

} // namespace
} // namespace FaultLoop
