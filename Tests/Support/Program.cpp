#include <Tests/Support/Program.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/Waiting.h>

#include <gtest/gtest.h>

#include <system_error>
#include <utility>

#include <cerrno>

#include <fcntl.h>
#include <sys/socket.h>
#include <unistd.h>

extern "C" char** environ;

namespace TestSupport {
namespace {

// The two ends of a line to or from the program; sockets, so that a write to a program that has ended raises no signal.
struct Line {
    Line() {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == -1) {
            throw std::system_error(errno, std::generic_category(), "socketpair");
        }
        // Above the standard descriptors, also where a test has closed some of those.
        ours = MoveUp(ends[0]);
        theirs = MoveUp(ends[1]);
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
        ssize_t const count = ::recv(fd, buffer, sizeof buffer, 0);
        if (count > 0) {
            text.append(buffer, static_cast<std::size_t>(count));
        } else if (count == -1 && errno == EAGAIN) {
            return;
        } else if (count == 0 || errno != EINTR) {
            Close(fd);
        }
    }
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
    Line input;
    Line output;
    Line errors;
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
    for (Line* const line : {&input, &output, &errors}) {
        ::close(line->theirs);
    }
    input_ = input.ours;
    output_ = output.ours;
    errors_ = errors.ours;
}

Program::~Program() {
    if (!HasEnded()) {
        Kill();
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
        ssize_t const count = ::send(input_, pending_.data(), pending_.size(), MSG_NOSIGNAL);
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
