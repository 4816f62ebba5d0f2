#include <Tools/wfs/Command.h>

#include <PDCHeader/PDCunistd.h>
#include <Tools/wfs/Paths.h>

#include <sys/wait.h>
#include <system_error>

namespace Wfs {

void AddCommand(CLI::App& verb, std::vector<std::string>& command) {
    verb.add_option("COMMAND", command, "The command and its arguments")
        ->required()
        ->option_text("...")
        ->transform(Unshield);
}

std::vector<char*> ArgumentsOf(std::vector<std::string> const& command) {
    std::vector<char*> arguments;
    arguments.reserve(command.size() + 1);
    for (std::string const& argument : command) {
        arguments.push_back(const_cast<char*>(argument.c_str())); // which is how the system wants it, and reads it only
    }
    arguments.push_back(nullptr);
    return arguments;
}

int WaitForEnd(pid_t child) {
    int status = 0;
    if (WPDCHeader::RetryWhileInterrupted([&] { return ::waitpid(child, &status, 0); }) == -1) {
        throw std::system_error(errno, std::generic_category(), "the end of a command can't be seen");
    }
    return WIFSIGNALED(status) ? KILLED + WTERMSIG(status) : WEXITSTATUS(status);
}

} // namespace Wfs
