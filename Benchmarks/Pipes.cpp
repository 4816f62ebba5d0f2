// A client and a server on two FIFOs, each a thread, both on one processor.

#include <Benchmarks/SameCalls.h>
#include <Benchmarks/Support.h>

#include <FileSystem/NamedPipe.h>

#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <memory>
#include <sched.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

namespace Benchmarks {
namespace {

constexpr unsigned long REQUEST = 64;
constexpr unsigned long MESSAGE = 64UL << 10;
constexpr unsigned long MESSAGES = 1024;

/// Keeps the calling thread, and threads that it starts, on the processor on which it runs.
class OneProcessor {
public:
    OneProcessor() {
        Must(::sched_getaffinity(0, sizeof former_, &former_));
        cpu_set_t one;
        CPU_ZERO(&one);
        CPU_SET(static_cast<unsigned int>(Must(::sched_getcpu())), &one);
        Must(::sched_setaffinity(0, sizeof one, &one));
    }
    OneProcessor(OneProcessor const&) = delete;
    OneProcessor& operator=(OneProcessor const&) = delete;
    ~OneProcessor() { ::sched_setaffinity(0, sizeof former_, &former_); }

private:
    cpu_set_t former_;
};

bool NeverCancel() {
    return false;
}

/// Both sides through the library.
class LibraryChannel {
public:
    LibraryChannel()
        : server_(WFileSystem::CreateNamedPipeServer(BASE.Wide(), NeverCancel, 0)),
          client_(WFileSystem::CreateNamedPipeClient(BASE.Wide())) {}
    LibraryChannel(LibraryChannel const&) = delete;
    LibraryChannel& operator=(LibraryChannel const&) = delete;
    ~LibraryChannel() { client_->Disconnect(); }

    void Connect() { Require(client_->Connect() == 0); }
    void Listen() { Require(server_->Listen() == 0); }
    void ReadAsServer(char* data, unsigned long n) { Require(server_->Read(data, n) == 0); }
    void WriteAsServer(char const* data, unsigned long n) { Require(server_->Write(data, n) == 0); }
    void ReadAsClient(char* data, unsigned long n) { Require(client_->Read(data, n) == 0); }
    void WriteAsClient(char const* data, unsigned long n) { Require(client_->Write(data, n) == 0); }

private:
    inline static Name const BASE = Name("pipe");

    std::unique_ptr<WFileSystem::NamedPipeServer> server_;
    std::unique_ptr<WFileSystem::NamedPipeClient> client_;
};

/// The descriptors of both sides.
class BareChannel {
public:
    explicit BareChannel(bool isServerBlocking) {
        for (char const* const path : {TO_SERVER, TO_CLIENT}) {
            ::unlink(path);
            Must(::mkfifo(path, 0660));
        }
        // The readers first, so that nobody waits.
        serverReads = Must(::open(TO_SERVER, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        clientReads = Must(::open(TO_CLIENT, O_RDONLY | O_NONBLOCK | O_CLOEXEC));
        serverWrites = Must(::open(TO_CLIENT, O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        clientWrites = Must(::open(TO_SERVER, O_WRONLY | O_NONBLOCK | O_CLOEXEC));
        Must(::fcntl(clientReads, F_SETFL, 0));
        Must(::fcntl(clientWrites, F_SETFL, 0));
        if (isServerBlocking) {
            Must(::fcntl(serverReads, F_SETFL, 0));
            Must(::fcntl(serverWrites, F_SETFL, 0));
        }
    }
    BareChannel(BareChannel const&) = delete;
    BareChannel& operator=(BareChannel const&) = delete;
    ~BareChannel() {
        for (int const fd : {serverReads, serverWrites, clientReads, clientWrites}) {
            ::close(fd);
        }
    }

    void Connect() {}
    void Listen() {}

protected:
    static constexpr char const* TO_SERVER = "bare.ServerReader";
    static constexpr char const* TO_CLIENT = "bare.ServerWriter";

    static void ReadAll(int fd, char* data, unsigned long n) {
        for (unsigned long done = 0; done < n;) {
            ssize_t const count = Must(::read(fd, data + done, n - done));
            Require(count > 0);
            done += static_cast<unsigned long>(count);
        }
    }

    static void WriteAll(int fd, char const* data, unsigned long n) {
        for (unsigned long done = 0; done < n;) {
            done += static_cast<unsigned long>(Must(::write(fd, data + done, n - done)));
        }
    }

    int serverReads = -1;
    int serverWrites = -1;
    int clientReads = -1;
    int clientWrites = -1;
};

/// Both sides wait in the system.
class RawChannel : public BareChannel {
public:
    RawChannel() : BareChannel(true) {}

    void ReadAsServer(char* data, unsigned long n) { ReadAll(serverReads, data, n); }
    void WriteAsServer(char const* data, unsigned long n) { WriteAll(serverWrites, data, n); }
    void ReadAsClient(char* data, unsigned long n) { ReadAll(clientReads, data, n); }
    void WriteAsClient(char const* data, unsigned long n) { WriteAll(clientWrites, data, n); }
};

/// The calls that the library promises: the server asks again and again, with a sleep of no time between, and who writes
/// ignores SIGPIPE meanwhile.
class SameChannel : public BareChannel {
public:
    SameChannel() : BareChannel(false) {}

    void ReadAsServer(char* data, unsigned long n) {
        Poll(n, [&](unsigned long done) { return ::read(serverReads, data + done, n - done); });
    }
    void WriteAsServer(char const* data, unsigned long n) {
        WithoutSigpipe(
            [&] { Poll(n, [&](unsigned long done) { return ::write(serverWrites, data + done, n - done); }); });
    }
    void ReadAsClient(char* data, unsigned long n) { ReadAll(clientReads, data, n); }
    void WriteAsClient(char const* data, unsigned long n) {
        WithoutSigpipe([&] { WriteAll(clientWrites, data, n); });
    }

private:
    template <class Transfer>
    static void Poll(unsigned long n, Transfer transfer) {
        for (unsigned long done = 0;;) {
            ssize_t const count = transfer(done);
            if (count != -1) {
                done += static_cast<unsigned long>(count);
                if (done >= n) {
                    return;
                }
            } else {
                Require(errno == EAGAIN);
            }
            ::sleep(0);
        }
    }

    template <class Write>
    static void WithoutSigpipe(Write write) {
        struct sigaction ignore = {};
        struct sigaction former;
        ignore.sa_handler = SIG_IGN;
        Must(::sigaction(SIGPIPE, &ignore, &former));
        write();
        Must(::sigaction(SIGPIPE, &former, nullptr));
    }
};

// The first byte of what a client writes.
constexpr char ANSWER = 'a';
constexpr char GO_ON = 'g';
constexpr char END = 'e';

/// Answers what asks for it, until the end.
template <class Channel>
void Serve(Channel& channel, unsigned long size) {
    std::unique_ptr<char[]> const data(new char[size]);
    channel.Listen();
    for (;;) {
        channel.ReadAsServer(data.get(), size);
        if (data[0] == END) {
            return;
        }
        if (data[0] == ANSWER) {
            channel.WriteAsServer(data.get(), REQUEST);
        }
    }
}

/// Writes so many messages and reads the answer to the last.
/// \param iterations the same for everybody: how long one takes depends on when the system lets the threads run
template <class Channel>
void AddExchange(std::string const& name, unsigned long size, unsigned long count, int iterations) {
    benchmark::RegisterBenchmark(
        name.c_str(),
        [name, size, count](benchmark::State& state) {
            ShowProgress(name);
            OneProcessor const processor;
            Channel channel;
            std::thread server([&] { Serve(channel, size); });
            channel.Connect();
            std::unique_ptr<char[]> const data(new char[size]());
            auto const write = [&](char kind) {
                data[0] = kind;
                channel.WriteAsClient(data.get(), size);
            };
            for (auto _ : state) {
                for (unsigned long message = 1; message < count; ++message) {
                    write(GO_ON);
                }
                write(ANSWER);
                channel.ReadAsClient(data.get(), REQUEST);
            }
            write(END);
            server.join();
        })
        ->UseRealTime()
        ->Iterations(iterations);
}

template <class Channel>
void AddExchanges(std::string const& who) {
    AddExchange<Channel>("pipe_64B_and_back/" + who, REQUEST, 1, 500);
    AddExchange<Channel>("pipe_64MiB_by_64KiB/" + who, MESSAGE, MESSAGES, 1);
}

} // namespace

void AddPipes() {
    AddExchanges<RawChannel>("raw");
    AddExchanges<SameChannel>("same");
    AddExchanges<LibraryChannel>("wfs");
}

} // namespace Benchmarks
