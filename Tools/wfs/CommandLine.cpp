#include <Tools/wfs/CommandLine.h>

#include <Defines/Version.h>
#include <FileSystem/Initializer.h>
#include <Tools/wfs/Output.h>
#include <Tools/wfs/Paths.h>

#include <algorithm>
#include <clocale>
#include <exception>
#include <iterator>
#include <utility>

namespace Wfs {
namespace {

constexpr char const NOTES[] = R"(wfs help VERB tells more about a verb. Paths are UTF-8, whatever the locale.

JSON: with --json the verbs list, path and stat print one array when all is done.
Its elements are in the order of the arguments; what failed is missing in it, is
reported on standard error, and shows in the exit status.

Exit status: 0 success; 1 a failure, reported on standard error; 2 wrong usage;
75 a lock was not obtained, or a server did not answer, in time; 127 a command
can't be started. A command that was started gives its own, or 128 and the number
of the signal that ended it.

Environment: VUSK_FILE_MODE holds the permission bits for written files, in octal
digits; without it they are 0664. Colours and progress are for terminals only; with
NO_COLOR set there are no colours, and with TERM=dumb neither.

Example: read a file while no other program writes it
  wfs cat settings.txt)";

constexpr char const HELP_NOTES[] = R"(Exit status: 0 success; 2 there is no such verb.

Example:
  wfs help pipe serve)";

std::string GetVersion() {
    return "wfs " + std::to_string(WFILESYSTEM_VERSION_MAJOR) + '.' + std::to_string(WFILESYSTEM_VERSION_MINOR) + '.' +
           std::to_string(WFILESYSTEM_VERSION_PATCH);
}

} // namespace

CommandLine::CommandLine() {
    program_.set_version_flag("--version", GetVersion(), "Print the version");
    program_.set_help_flag("-h,--help", "Print this help");
    program_.footer(NOTES);
    work_ = AddVerbs(program_, {CAT, PUT, COPY, MOVE, DELETE, STAT, LOCK, LIST, MKDIR, RMDIR, PATH, PIPE});
    help_ = &AddVerb(program_, "help", "Tell about the program or a verb", HELP_NOTES);
    help_->add_option("VERB", helpTopic_, "The verb; without one the program")->option_text("...");
}

ExitStatus CommandLine::Run(int argc, char const* const* argv) {
    try {
        // CLI11 takes the arguments from the end of the list.
        std::vector<std::string> arguments(
            std::reverse_iterator(argv + argc), std::reverse_iterator(argv + std::min(argc, 1)));
        std::transform(arguments.begin(), arguments.end(), arguments.begin(), Shield);
        program_.parse(std::move(arguments));
        if (help_->parsed()) {
            return Help();
        }
        WFileSystem::Initializer const initializer;
        return work_();
    } catch (CLI::CallForVersion const& version) {
        WriteOutput(version.what() + std::string("\n"));
    } catch (CLI::Success const&) {
        WriteOutput(GetHelp(GetGivenVerb()));
    } catch (CLI::ParseError const& error) {
        return RefuseUsage(error.what());
    }
    return SUCCESS;
}

/// The program itself where no verb was given.
CLI::App const& CommandLine::GetGivenVerb() const {
    CLI::App const* verb = &program_;
    while (!verb->get_subcommands().empty()) {
        verb = verb->get_subcommands().front();
    }
    return *verb;
}

ExitStatus CommandLine::Help() const {
    CLI::App const* topic = &program_;
    std::string name;
    for (std::string const& word : helpTopic_) {
        name += (name.empty() ? "" : " ") + word;
        auto const verbs = topic->get_subcommands([&](CLI::App const* verb) { return verb->get_name() == word; });
        if (verbs.empty()) {
            return RefuseUsage("there is no verb '" + name + "'");
        }
        topic = verbs.front();
    }
    WriteOutput(GetHelp(*topic));
    return SUCCESS;
}

ExitStatus CommandLine::RefuseUsage(std::string text) const {
    text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
    std::string const verb = GetFullName(GetGivenVerb()).substr(program_.get_name().size());
    Report(ToUTF8(text) + "\nTry: wfs help" + verb);
    return WRONG_USAGE;
}

ExitStatus Run(int argc, char const* const* argv) noexcept {
    try {
        OpenStandardStreams();
        // So that a ? in a pattern is a character. Systems that do not know this locale take it for a byte.
        std::setlocale(LC_CTYPE, "C.UTF-8");
        ExitStatus const status = CommandLine().Run(argc, argv);
        CloseOutput();
        return status;
    } catch (std::exception const& failure) {
        Report(failure.what());
    } catch (...) {
        Report("an unknown failure");
    }
    return FAILURE;
}

} // namespace Wfs
