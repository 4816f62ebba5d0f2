#include <Tools/wfs/Interruption.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <fcntl.h>
#include <poll.h>
#include <system_error>
#include <unistd.h>

namespace Wfs {
namespace {

// The handler writes the signal's number into a pipe, which a wait looks at beside the input: no moment is missed.
std::array<int, 2> gPipe = {-1, -1};

void PassOn(int signal) {
    int const error = errno;
    auto const number = static_cast<unsigned char>(signal);
    [[maybe_unused]] ssize_t const result = ::write(gPipe[1], &number, sizeof number);
    errno = error;
}

void Handle(int signal, struct sigaction& previous) {
    struct sigaction action = {};
    action.sa_handler = PassOn;
    action.sa_flags = SA_RESTART;
    ::sigaction(signal, nullptr, &previous);
    if (previous.sa_handler != SIG_IGN) {
        ::sigaction(signal, &action, nullptr);
    }
}

} // namespace

Interruption::Interruption() {
    if (::pipe(gPipe.data()) != 0) {
        throw std::system_error(errno, std::generic_category(), "a pipe for signals");
    }
    for (int const fd : gPipe) {
        ::fcntl(fd, F_SETFD, FD_CLOEXEC);
        ::fcntl(fd, F_SETFL, O_NONBLOCK);
    }
    Handle(SIGINT, previousInterrupt_);
    Handle(SIGTERM, previousTermination_);
}

Interruption::~Interruption() {
    ::sigaction(SIGINT, &previousInterrupt_, nullptr);
    ::sigaction(SIGTERM, &previousTermination_, nullptr);
    for (int& fd : gPipe) {
        ::close(fd);
        fd = -1;
    }
}

// NOLINTNEXTLINE(readability-convert-member-functions-to-static): needs the handlers
void Interruption::WaitForInput(int fd) const {
    std::array<pollfd, 2> ends = {{{fd, POLLIN, 0}, {gPipe[0], POLLIN, 0}}};
    while (::poll(ends.data(), ends.size(), -1) == -1 && errno == EINTR) {
    }
    unsigned char signal = 0;
    if (ends[1].revents != 0 && ::read(gPipe[0], &signal, sizeof signal) == 1) {
        throw Interrupted{signal};
    }
}

void EndBy(Interrupted const& interrupted) {
    ::signal(interrupted.signal, SIG_DFL);
    ::raise(interrupted.signal);
    std::abort();
}

} // namespace Wfs
