// PipeEcho serve BASE [PAUSE]: sends every message back to its client, until SIGINT or SIGTERM. Between two looks at
// the channel it sleeps PAUSE seconds, 1 unless told otherwise; with 0 it answers at once, and keeps a processor busy.
//
// PipeEcho call BASE TEXT...: sends each text as a message, and prints the replies, one a line. Several may be started
// at once: they are served in turn.
//
// Try it in two terminals: `PipeEcho serve /tmp/echo` in one, `PipeEcho call /tmp/echo hello world` in the other.

#include <Base/Conversion.h>
#include <Base/Message.h>
#include <FileSystem/NamedPipe.h>

#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <stdexcept>
#include <string>

namespace {

using WFileSystem::NamedPipe;

volatile std::sig_atomic_t isStopped = 0;

extern "C" void Stop(int /*signal*/) {
    isStopped = 1;
}

// The server asks this before it looks at the channel. The signal also ends its sleep.
bool IsStopped() {
    return isStopped != 0;
}

// The channel carries bytes. So that the other side knows where a message ends, its length goes first; both sides are
// on the same machine, so the order of its bytes does not matter.
using Length = std::uint32_t;
constexpr Length LONGEST = 1U << 20;

// False: the server was stopped.
bool Send(NamedPipe& pipe, std::string const& message) {
    auto const length = static_cast<Length>(message.size());
    std::string bytes(sizeof length, '\0');
    std::memcpy(bytes.data(), &length, sizeof length);
    bytes += message;
    return pipe.Write(bytes.data(), bytes.size()) == 0;
}

// False: the server was stopped.
bool Receive(NamedPipe& pipe, std::string& message) {
    Length length = 0;
    if (pipe.Read(&length, sizeof length) != 0) {
        return false;
    }
    if (length > LONGEST) {
        throw std::length_error("A message is too long.");
    }
    message.resize(length);
    return pipe.Read(message.data(), length) == 0;
}

// A client that is killed leaves the bytes of a half message behind, or makes the reply fail. This server then ends
// with an error or waits; start it anew, and the channel is new, too.
void Serve(wchar_t const* base, int pauseSeconds) {
    std::signal(SIGINT, Stop);
    std::signal(SIGTERM, Stop);
    auto const server = WFileSystem::CreateNamedPipeServer(base, IsStopped, pauseSeconds);
    std::cout << "ready" << std::endl;
    server->Listen();
    std::string message;
    while (Receive(*server, message) && Send(*server, message)) {
    }
}

// Disconnecting is due whatever happens: the client's destructor would leave the next client waiting.
struct Disconnection {
    WFileSystem::NamedPipeClient& client;

    explicit Disconnection(WFileSystem::NamedPipeClient& value) : client(value) {}
    Disconnection(Disconnection const&) = delete;
    Disconnection& operator=(Disconnection const&) = delete;
    ~Disconnection() { client.Disconnect(); }
};

int Call(wchar_t const* base, char** texts) {
    auto const client = WFileSystem::CreateNamedPipeClient(base);
    Disconnection const disconnection(*client);
    if (client->Connect() != 0) {
        return EXIT_FAILURE; // it has printed why
    }
    std::string reply;
    for (; *texts != nullptr; ++texts) {
        if (std::strlen(*texts) > LONGEST) {
            throw std::length_error("A text is too long.");
        }
        Send(*client, *texts);
        Receive(*client, reply);
        std::cout << reply << '\n';
    }
    return EXIT_SUCCESS;
}

} // namespace

int main(int argc, char** argv) {
    std::string const verb = argc > 1 ? argv[1] : "";
    if (argc < 3 || (verb != "call" && (verb != "serve" || argc > 4))) {
        std::cerr << "Usage: PipeEcho serve BASE [PAUSE]\n       PipeEcho call BASE TEXT...\n";
        return 2;
    }
    try {
        WBase::ReturnWString const base = WBase::UTF8ToWideChar(argv[2], false);
        if (verb == "call") {
            return Call(base.c_str(), argv + 3);
        }
        Serve(base.c_str(), argc == 4 ? std::stoi(argv[3]) : 1);
        return EXIT_SUCCESS;
    } catch (NamedPipe::NamedPipeError const& error) { // derived from nothing
        std::cerr << error.GetMessage() << '\n';
    } catch (std::exception const& error) { // also a WBase::Message
        std::cerr << error.what() << '\n';
    }
    return EXIT_FAILURE;
}
