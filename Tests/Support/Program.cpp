#include <Tests/Support/Program.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/Waiting.h>

#include <gtest/gtest.h>

#include <system_error>
#include <utility>

#include <cerrno>
#include <csignal>

#include <fcntl.h>
#include <unistd.h>

extern char** environ; // NOLINT(readability-redundant-declaration): not every system declares it

namespace TestSupport {
namespace {

// The two ends of a line to or from the program.
struct Line {
    explicit Line(bool isInput) {
        int ends[2];
        if (::pipe(ends) == -1) {
            throw std::system_error(errno, std::generic_category(), "pipe");
        }
        // Above the standard descriptors, also where a test has closed some of those.
        ours = MoveUp(ends[isInput ? 1 : 0]);
        theirs = MoveUp(ends[isInput ? 0 : 1]);
        ::fcntl(ours, F_SETFL, O_NONBLOCK);
    }

    static int MoveUp(int fd) {
        int const copy = ::fcntl(fd, F_DUPFD_CLOEXEC, 3);
        ::close(fd);
        return copy;
    }

    int ours;
    int theirs;
};

std::vector<char*> PointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    pointers.reserve(texts.size() + 1);
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

// Later settings of a name win.
std::vector<std::string> Environment(std::vector<std::string> const& additions) {
    auto const nameOf = [](std::string const& setting) { return setting.substr(0, setting.find('=')); };
    std::vector<std::string> result = additions;
    for (char** setting = environ; *setting != nullptr; ++setting) {
        bool isReplaced = false;
        for (std::string const& addition : additions) {
            isReplaced = isReplaced || nameOf(addition) == nameOf(*setting);
        }
        if (!isReplaced) {
            result.emplace_back(*setting);
        }
    }
    return result;
}

void Close(int& fd) {
    if (fd != -1) {
        ::close(std::exchange(fd, -1));
    }
}

// Takes what is there; at the end of the stream the descriptor is closed.
void Receive(int& fd, std::string& text) {
    char buffer[65536];
    while (fd != -1) {
        ssize_t const count = ::read(fd, buffer, sizeof buffer);
        if (count > 0) {
            text.append(buffer, static_cast<std::size_t>(count));
        } else if (count == -1 && errno == EAGAIN) {
            return;
        } else if (count == 0 || errno != EINTR) {
            Close(fd);
        }
    }
}

// As write; SIGPIPE is swallowed when the program has closed its input.
ssize_t WriteWithoutSignal(int fd, std::string const& text) {
    sigset_t pipeSignal;
    sigset_t previous;
    sigset_t pending;
    ::sigemptyset(&pipeSignal);
    ::sigaddset(&pipeSignal, SIGPIPE);
    ::pthread_sigmask(SIG_BLOCK, &pipeSignal, &previous);
    // None of the calls after this one touches errno.
    ssize_t const count = ::write(fd, text.data(), text.size());
    ::sigpending(&pending);
    if (count == -1 && errno == EPIPE && ::sigismember(&pending, SIGPIPE) == 1) {
        int signal;
        ::sigwait(&pipeSignal, &signal);
    }
    ::pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    return count;
}

} // namespace

ProgramResult
RunProgram(std::vector<std::string> const& command, std::string const& input, ProgramOptions const& options) {
    Program program(command, options);
    program.Write(input);
    return program.Wait();
}

Program::Program(std::vector<std::string> const& command, ProgramOptions const& options) {
    Unobserved const unobserved;
    std::vector<std::string> arguments = command;
    std::vector<std::string> environment = Environment(options.environment);
    std::vector<char*> const argumentPointers = PointersTo(arguments);
    std::vector<char*> const environmentPointers = PointersTo(environment);
    Line const input(true);
    Line const output(false);
    Line const errors(false);
    if (Fork() == 0) {
        ::dup2(input.theirs, STDIN_FILENO);
        ::dup2(output.theirs, STDOUT_FILENO);
        ::dup2(errors.theirs, STDERR_FILENO);
        for (int const fd : options.closed) {
            ::close(fd);
        }
        if (options.directory.empty() || ::chdir(options.directory.c_str()) == 0) {
            ::execvpe(argumentPointers[0], argumentPointers.data(), environmentPointers.data());
        }
        ::_exit(127);
    }
    for (Line const* const line : {&input, &output, &errors}) {
        ::close(line->theirs);
    }
    input_ = input.ours;
    output_ = output.ours;
    errors_ = errors.ours;
}

Program::~Program() {
    if (!HasEnded()) {
        Destroy();
        Finish();
    }
}

void Program::Write(std::string const& text) {
    Unobserved const unobserved;
    pending_ += text;
    Transfer();
}

void Program::CloseInput() {
    Unobserved const unobserved;
    isInputEnding_ = true;
    Transfer();
}

bool Program::WaitForOutput(std::string const& text) {
    return WaitForText(result_.output, text);
}

bool Program::WaitForErrors(std::string const& text) {
    return WaitForText(result_.errors, text);
}

ProgramResult Program::Wait() {
    CloseInput();
    return Finish();
}

ProgramResult Program::Kill(int signal) {
    Signal(signal);
    return Finish();
}

bool Program::WaitForText(std::string const& caught, std::string const& text) {
    Unobserved const unobserved;
    auto const hasCome = [&] { return caught.find(text) != std::string::npos; };
    // A program whose output is closed says nothing more.
    WaitUntil([&] {
        Transfer();
        return hasCome() || (output_ == -1 && errors_ == -1);
    });
    EXPECT_TRUE(hasCome()) << "Waited in vain for '" << text << "'. Standard output: " << result_.output
                           << "\nStandard error: " << result_.errors;
    return hasCome();
}

void Program::Transfer() {
    Receive(output_, result_.output);
    Receive(errors_, result_.errors);
    if (input_ != -1 && !pending_.empty()) {
        ssize_t const count = WriteWithoutSignal(input_, pending_);
        if (count != -1) {
            pending_.erase(0, static_cast<std::size_t>(count));
        } else if (errno != EAGAIN && errno != EINTR) {
            pending_.clear();
            Close(input_);
        }
    }
    if (isInputEnding_ && pending_.empty()) {
        Close(input_);
    }
}

ProgramResult Program::Finish() {
    Unobserved const unobserved;
    // Its output may be shared by processes that it has left behind: what counts is its own end.
    result_.status = WaitForEnd([&] { Transfer(); });
    Transfer();
    Close(input_);
    Close(output_);
    Close(errors_);
    return result_;
}

} // namespace TestSupport
