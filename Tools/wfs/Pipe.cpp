// The verb for named pipes: a server that runs a command for each request, and its client.
//
// Who the client is, the server learns from the lock file: it is the process that holds the record lock. The server
// greets it with 4 bytes, its process number, and only then the client sends its request, so that all that comes is
// known to be from one client, also when others died in the middle of theirs. A request is 4 bytes of length and the
// bytes. A reply is 4 bytes with the command's exit status, 4 bytes of length, and the command's output. The client
// then sends one byte more, which tells that it has the reply and that nothing is left in the channel. Where that is
// not certain, the server makes the channel anew, and tells the client that may be there to try again. All numbers have
// their least significant byte first.

#include <Base/Conversion.h>
#include <FileSystem/File.h>
#include <FileSystem/NamedPipe.h>
#include <PDCHeader/PDCfcntl.h>
#include <PDCHeader/PDCunistd.h>
#include <Tools/wfs/Command.h>
#include <Tools/wfs/Output.h>
#include <Tools/wfs/Paths.h>
#include <Tools/wfs/Stream.h>
#include <Tools/wfs/Verb.h>
#include <Tools/wfs/Waiting.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <limits>
#include <memory>
#include <optional>
#include <spawn.h>
#include <string>
#include <sys/time.h>
#include <system_error>
#include <thread>
#include <vector>

extern char** environ; // NOLINT(readability-redundant-declaration): not every system declares it

namespace Wfs {
namespace {

using WFileSystem::NamedPipe;
using Clock = std::chrono::steady_clock;

constexpr unsigned long LONGEST_MESSAGE = 256UL * 1024 * 1024;
/// As much as a pipe holds, and what must come or go within the idle time.
constexpr unsigned long PIECE = 64UL * 1024;
constexpr unsigned int TRY_AGAIN = 0xFFFFFFFF; ///< in the place of an exit status
constexpr char RECEIVED = '.';

/// Transfers a message piece by piece; `transfer` answers false when it was cancelled.
template <class Byte, class Transfer>
bool ForEachPiece(Byte* data, unsigned long size, Transfer transfer) {
    while (size > 0) {
        unsigned long const piece = std::min(size, PIECE);
        if (!transfer(data, piece)) {
            return false;
        }
        data += piece;
        size -= piece;
    }
    return true;
}

using Number = std::array<unsigned char, 4>;

Number Encode(unsigned long value) {
    Number bytes = {};
    for (unsigned char& byte : bytes) {
        byte = static_cast<unsigned char>(value);
        value >>= 8U;
    }
    return bytes;
}

unsigned int Decode(Number const& bytes) {
    unsigned int value = 0;
    for (std::size_t index = bytes.size(); index > 0; --index) {
        value = value << 8U | bytes[index - 1];
    }
    return value;
}

// The server

struct ServeOptions {
    std::string base;
    std::vector<std::string> command;
    int pause = 1;
    long idle = 10;
    bool once = false;
};

/// The channel may hold something that is for nobody any more.
struct Abandoned {
    char const* reason; ///< null: nothing was lost
};

// The library's cancel callback is a plain function, so that what it looks at is global.
volatile std::sig_atomic_t gIsStopped = 0;

/// What the server waits for, as its cancel callback sees it.
class Watch {
public:
    void SetUp(int lockFile, std::chrono::seconds idle) {
        lockFile_ = lockFile;
        idle_ = idle;
    }

    /// No client: until a signal comes.
    void EndServing() { client_ = NOBODY; }

    /// Signals wait, but not for a client that is gone or idle.
    void BeginServing(pid_t client) {
        client_ = client;
        RestartIdleTime();
    }

    void RestartIdleTime() {
        deadline_ = Clock::now() + idle_;
        isGone_ = false;
    }

    bool IsOver() {
        if (client_ == NOBODY) {
            return gIsStopped != 0;
        }
        // What a client left behind is still to be read once.
        bool const wasGone = std::exchange(isGone_, !IsClientThere());
        return (wasGone && isGone_) || IsIdle();
    }

    bool IsIdle() const { return Clock::now() >= deadline_; }

    bool IsClientThere() const { return FindClient() == client_; }

    /// The process that holds the lock, or NOBODY.
    pid_t FindClient() const {
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        return ::fcntl(lockFile_, F_GETLK, &lock) == 0 && lock.l_type != F_UNLCK ? lock.l_pid : NOBODY;
    }

    static constexpr pid_t NOBODY = 0;

private:
    int lockFile_ = -1;
    std::chrono::seconds idle_{};
    pid_t client_ = NOBODY;
    bool isGone_ = false;
    Clock::time_point deadline_;
};

Watch gWatch;

bool IsWatchOver() {
    return gWatch.IsOver();
}

void Stop(int /*signal*/) {
    gIsStopped = 1;
}

/// The library's descriptors are inherited by programs, which would keep the channel open.
void KeepDescriptorsFromCommands() {
    constexpr int MORE_THAN_ARE_OPEN = 64;
    for (int fd = STDERR_FILENO + 1; fd < MORE_THAN_ARE_OPEN; ++fd) {
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    }
}

struct Result {
    unsigned int status = 0;
    std::string output;
};

StreamPtr MakeTemporaryStream() {
    StreamPtr stream(std::tmpfile());
    if (stream == nullptr) {
        throw std::system_error(errno, std::generic_category(), "a temporary file");
    }
    ::fcntl(::fileno(stream.get()), F_SETFD, FD_CLOEXEC);
    return stream;
}

std::string ReadAll(FILE* stream) {
    std::string text;
    auto const block = WDataType::CreateBinary(PIECE, nullptr);
    for (WFileSystem::File::Read(stream, *block, 0); !block->IsEmpty(); WFileSystem::File::Read(stream, *block, 0)) {
        text.append(block->GetBuffer(), block->GetSize());
    }
    return text;
}

/// Runs the command with the request as its standard input. Files stand between, so that neither side waits for the
/// other.
Result RunCommand(std::vector<std::string> const& command, std::string const& request) {
    StreamPtr const input = MakeTemporaryStream();
    StreamPtr const output = MakeTemporaryStream();
    WFileSystem::File::Write(input.get(), static_cast<void const*>(request.data()), request.size());
    WFileSystem::File::Flush(input.get());
    std::rewind(input.get());

    posix_spawn_file_actions_t actions;
    ::posix_spawn_file_actions_init(&actions);
    ::posix_spawn_file_actions_adddup2(&actions, ::fileno(input.get()), STDIN_FILENO);
    ::posix_spawn_file_actions_adddup2(&actions, ::fileno(output.get()), STDOUT_FILENO);
    std::vector<char*> const arguments = ArgumentsOf(command);
    pid_t child = 0;
    int const error = ::posix_spawnp(&child, arguments[0], &actions, nullptr, arguments.data(), environ);
    ::posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        Report("'" + command[0] + "' can't be started: " + std::generic_category().message(error));
        return {NOT_STARTED, ""};
    }
    auto const status = static_cast<unsigned int>(WaitForEnd(child));
    std::rewind(output.get());
    std::string text = ReadAll(output.get());
    if (text.size() > LONGEST_MESSAGE) {
        Report("'" + command[0] + "' wrote more than a reply can hold.");
        return {FAILURE, ""};
    }
    return {status, std::move(text)};
}

/// One channel and what goes on in it.
class Service {
public:
    explicit Service(wchar_t const* base, ServeOptions const& options)
        : options_(options), server_(WFileSystem::CreateNamedPipeServer(base, IsWatchOver, options.pause)) {}

    /// Serves clients until a signal comes, or one where only one is asked for.
    /// \throws Abandoned
    void Run() {
        gWatch.EndServing();
        server_->Listen();
        KeepDescriptorsFromCommands();
        pid_t client = Watch::NOBODY;
        do {
            client = AwaitClientAfter(client);
            if (client == Watch::NOBODY) {
                return;
            }
            Serve(client);
        } while (!options_.once);
    }

    /// Tells the client that may be there to try again.
    void SendAway() noexcept {
        try {
            gWatch.RestartIdleTime();
            Number const again = Encode(TRY_AGAIN);
            server_->Write(again.data(), again.size());
        } catch (NamedPipe::NamedPipeError const&) { // NOLINT(bugprone-empty-catch): then nobody is there
        }
    }

private:
    /// \param served the client that was served last, which may not have disconnected yet
    /// \return NOBODY: a signal came
    pid_t AwaitClientAfter(pid_t served) const {
        gWatch.RestartIdleTime();
        while (gIsStopped == 0) {
            pid_t const client = gWatch.FindClient();
            // The same process may have come again faster than it could be seen.
            if (client != Watch::NOBODY && (client != served || gWatch.IsIdle())) {
                return client;
            }
            if (client == Watch::NOBODY) {
                served = client;
            }
            Pause();
        }
        return Watch::NOBODY;
    }

    void Serve(pid_t client) {
        gWatch.BeginServing(client);
        Greet(client);
        Number length = {};
        if (server_->Read(length.data(), 1) != 0) {
            throw Abandoned{nullptr};
        }
        Read(length.data() + 1, length.size() - 1);
        std::string const request = ReadRequest(Decode(length));
        Result const result = RunCommand(options_.command, request);
        gWatch.RestartIdleTime();
        Write(Encode(result.status));
        Write(Encode(result.output.size()));
        bool const isWritten =
            ForEachPiece(result.output.data(), result.output.size(), [&](char const* data, unsigned long n) {
                gWatch.RestartIdleTime();
                return server_->Write(data, n) == 0;
            });
        if (!isWritten) {
            throw Abandoned{GONE};
        }
        char received = 0;
        Read(&received, 1);
    }

    /// The client has the lock, but may still be opening the pipes.
    void Greet(pid_t client) {
        for (;;) {
            try {
                Write(Encode(static_cast<unsigned long>(client)));
                return;
            } catch (NamedPipe::NamedPipeError const&) {
                if (!gWatch.IsClientThere() || gWatch.IsIdle()) {
                    throw Abandoned{nullptr};
                }
                Pause();
            }
        }
    }

    std::string ReadRequest(unsigned long length) {
        if (length > LONGEST_MESSAGE) {
            throw Abandoned{"A client sent a bad length."};
        }
        std::string request(length, '\0');
        bool const isRead = ForEachPiece(request.data(), length, [&](char* data, unsigned long n) {
            gWatch.RestartIdleTime();
            return server_->Read(data, n) == 0;
        });
        if (!isRead) {
            throw Abandoned{GONE};
        }
        return request;
    }

    void Read(void* data, unsigned long n) {
        gWatch.RestartIdleTime();
        if (server_->Read(data, n) != 0) {
            throw Abandoned{GONE};
        }
    }

    void Write(Number const& number) {
        if (server_->Write(number.data(), number.size()) != 0) {
            throw Abandoned{GONE};
        }
    }

    void Pause() const { ::sleep(static_cast<unsigned int>(options_.pause)); }

    static constexpr char const* GONE = "A client went away in the middle of a message.";

    ServeOptions const& options_;
    std::unique_ptr<WFileSystem::NamedPipeServer> server_;
};

/// The channel's lock file, to see who holds it.
class LockFile {
public:
    explicit LockFile(std::wstring const& path)
        : fd_(WFileSystem::File::OpenDescriptor(
              path.c_str(), WFileSystem::File::OPEN_WRITE_CREATE, WFileSystem::File::SHARE_IGNORED)) {}
    LockFile(LockFile const&) = delete;
    LockFile& operator=(LockFile const&) = delete;
    ~LockFile() { WPDCHeader::close(fd_); }

    int Get() const { return fd_; }

private:
    int fd_;
};

/// \return false: the channel can't be used any further
bool RunAndReport(Service& service, ServeOptions const& options) {
    try {
        service.Run();
        return true;
    } catch (Abandoned const& abandoned) {
        if (abandoned.reason != nullptr) {
            Report(options.base, abandoned.reason);
        }
    } catch (NamedPipe::NamedPipeError const& error) {
        Report(options.base, error.GetMessage());
    }
    return false;
}

void ServeAt(wchar_t const* base, ServeOptions const& options) {
    struct sigaction stop = {};
    stop.sa_handler = Stop; // without SA_RESTART, so that a sleep ends
    ::sigaction(SIGINT, &stop, nullptr);
    ::sigaction(SIGTERM, &stop, nullptr);
    LockFile const lockFile(base + std::wstring(L".Lock"));
    gWatch.SetUp(lockFile.Get(), std::chrono::seconds(options.idle));
    auto service = std::make_unique<Service>(base, options);
    while (!RunAndReport(*service, options)) {
        // The new files take the place of the old ones while these are still served: a client never waits at files
        // without a server.
        auto next = std::make_unique<Service>(base, options);
        service->SendAway();
        service = std::move(next);
    }
}

ExitStatus Serve(ServeOptions const& options) {
    return ForEachPath({options.base}, [&](wchar_t const* base) {
        try {
            ServeAt(base, options);
        } catch (NamedPipe::NamedPipeError const& error) {
            throw Failure(error.GetMessage());
        }
    });
}

// The client

struct CallOptions {
    std::string base;
    std::optional<unsigned long> milliseconds; ///< how long to wait; nothing: without limit
};

/// Gives up in the middle of whatever the client waits for: no call of the library's ends by itself.
void GiveUp(int /*signal*/) {
    constexpr char TEXT[] = "wfs: No server answered in time.\n";
    [[maybe_unused]] ssize_t const result = ::write(STDERR_FILENO, TEXT, sizeof TEXT - 1);
    ::_exit(LOCK_NOT_OBTAINED);
}

void StartTimeout(unsigned long milliseconds) {
    struct sigaction giveUp = {};
    giveUp.sa_handler = GiveUp;
    ::sigaction(SIGALRM, &giveUp, nullptr);
    // A timer of no time would be none.
    unsigned long const time = std::max(milliseconds, 1UL);
    itimerval timer = {};
    timer.it_value.tv_sec = static_cast<time_t>(time / 1000);
    timer.it_value.tv_usec = static_cast<suseconds_t>(time % 1000 * 1000);
    ::setitimer(ITIMER_REAL, &timer, nullptr);
}

/// Disconnects at the end, also after a failure.
class Connection {
public:
    explicit Connection(wchar_t const* base) : client_(WFileSystem::CreateNamedPipeClient(base)) {
        try {
            if (client_->Connect() == 0) {
                return;
            }
        } catch (...) {
            client_->Disconnect();
            throw;
        }
        client_->Disconnect();
        throw Failure("The channel's lock can't be had.");
    }
    Connection(Connection const&) = delete;
    Connection& operator=(Connection const&) = delete;
    ~Connection() { client_->Disconnect(); }

    WFileSystem::NamedPipeClient& Get() const { return *client_; }

private:
    std::unique_ptr<WFileSystem::NamedPipeClient> client_;
};

constexpr int MOST_TRIES = 10;

/// While a server makes the channel anew, a file of it is missing for a moment.
std::unique_ptr<Connection> ConnectTo(wchar_t const* base) {
    constexpr std::chrono::milliseconds MOMENT(20);
    for (int tries = 1;; ++tries) {
        try {
            return std::make_unique<Connection>(base);
        } catch (NamedPipe::NamedPipeError const&) {
            if (tries == MOST_TRIES) {
                throw;
            }
        }
        std::this_thread::sleep_for(MOMENT);
    }
}

/// \return false: the server made the channel anew before it took the request
bool Exchange(wchar_t const* base, std::string const& request, Result& result) {
    std::unique_ptr<Connection> const connection = ConnectTo(base);
    WFileSystem::NamedPipeClient& client = connection->Get();
    auto const read = [&client] {
        Number number = {};
        client.Read(number.data(), number.size());
        return Decode(number);
    };
    for (unsigned int greeted = 0; greeted != static_cast<unsigned int>(::getpid()); greeted = read()) {
        if (greeted == TRY_AGAIN) {
            return false;
        }
    }
    Number const length = Encode(request.size());
    try {
        client.Write(length.data(), length.size());
        client.Write(request.data(), request.size());
    } catch (NamedPipe::NamedPipeError const&) {
        return false; // nobody reads this end any more
    }
    result.status = read();
    if (result.status == TRY_AGAIN) {
        return false;
    }
    result.output.resize(read());
    client.Read(result.output.data(), result.output.size());
    client.Write(&RECEIVED, sizeof RECEIVED);
    return true;
}

ExitStatus Call(CallOptions const& options) {
    Result result;
    ExitStatus const status = ForEachPath({options.base}, [&](wchar_t const* base) {
        std::string const request = ReadAll(stdin);
        if (request.size() > LONGEST_MESSAGE) {
            throw Failure("The request is longer than 256 MiB.");
        }
        if (options.milliseconds) {
            StartTimeout(*options.milliseconds);
        }
        try {
            bool isAnswered = false;
            for (int tries = 0; !isAnswered && tries < MOST_TRIES; ++tries) {
                isAnswered = Exchange(base, request, result);
            }
            if (!isAnswered) {
                throw Failure("The server made the channel anew again and again.");
            }
        } catch (NamedPipe::NamedPipeError const& error) {
            throw Failure(error.GetMessage());
        }
        itimerval const none = {};
        ::setitimer(ITIMER_REAL, &none, nullptr);
        WriteOutput(result.output);
    });
    return status == SUCCESS ? static_cast<ExitStatus>(result.status) : status;
}

// The options

/// An option with a number of seconds.
template <class Seconds>
void AddSeconds(CLI::App& verb, char const* name, Seconds& seconds, char const* description) {
    verb.add_option_function<std::string>(
            name, [&seconds](std::string const& text) { seconds = static_cast<Seconds>(std::stol(text)); }, description)
        ->option_text("SECONDS")
        ->check(CheckNumber);
}

Work DefineServe(CLI::App& verb) {
    auto const options = std::make_shared<ServeOptions>();
    AddPath(verb, "BASE", options->base, "The path from which the names of the channel's files are made");
    AddCommand(verb, options->command);
    AddSeconds(
        verb, "--pause", options->pause,
        "Sleep so long between two looks at the channel (1); 0 keeps a processor busy");
    AddSeconds(verb, "--idle", options->idle, "Give up a client that was not heard of for so long (10)");
    verb.add_flag("--once", options->once, "End after one request")->option_text(" ");
    return [options] { return Serve(*options); };
}

Work DefineCall(CLI::App& verb) {
    auto const options = std::make_shared<CallOptions>();
    AddPath(verb, "BASE", options->base, "The path that the server was given");
    CLI::Option& wait =
        AddMilliseconds(verb, "Wait for so many milliseconds, then fail with status 75", options->milliseconds);
    constexpr unsigned long MILLISECONDS_A_SECOND = 1000;
    verb.add_option_function<std::string>(
            "--timeout",
            [&milliseconds = options->milliseconds](std::string const& text) {
                constexpr unsigned long MOST = std::numeric_limits<unsigned long>::max() / MILLISECONDS_A_SECOND;
                milliseconds = std::min(std::stoul(text), MOST) * MILLISECONDS_A_SECOND;
            },
            "As --wait, in seconds")
        ->option_text("SECONDS")
        ->check(CheckNumber)
        ->excludes(&wait);
    return [options] { return Call(*options); };
}

constexpr Verb SERVE = {
    "serve", "Run a command for each request",
    R"(The server runs the command for one request after the other, with the request as
its standard input; its standard output is the reply. Requests and replies have
256 MiB at most. A command that can't be started, a bad length and a client that
goes away are reported and do not end the server; SIGINT and SIGTERM do, when the
request at work is done. The channel's files are BASE.ServerReader,
BASE.ServerWriter and BASE.Lock; they stay. Only one server may use a BASE.

Exit status: 0 ended by a signal or --once; 1 a failure; 2 wrong usage.

Example: a service that counts words
  wfs pipe serve /tmp/count -- wc -w)",
    DefineServe};

constexpr Verb CALL = {
    "call", "Send standard input as a request, and print the reply",
    R"(Without --wait it waits for other callers, for a server and for the reply until
they come.

Exit status: that of the command, or 128 and the number of the signal that ended
it, or 127 where it can't be started; 75 no answer in time; 1 any other failure; 2
wrong usage.

Example: ask the service that counts words, for ten seconds at most
  echo how many words | wfs pipe call --wait 10000 /tmp/count)",
    DefineCall};

Work DefinePipe(CLI::App& verb) {
    return AddVerbs(verb, {SERVE, CALL});
}

} // namespace

Verb const PIPE = {
    "pipe", "Serve and make requests over a named pipe",
    R"(A server and its callers are given the same path, BASE, and need the right to read
and write the files whose names begin with it.

Exit status: that of the verb, see there.

Example: a service that turns text into capital letters, and a request
  wfs pipe serve /tmp/capitals -- tr a-z A-Z &
  echo some text | wfs pipe call /tmp/capitals)",
    DefinePipe};

} // namespace Wfs
