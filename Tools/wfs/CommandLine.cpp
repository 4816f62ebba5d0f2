#include <Tools/wfs/CommandLine.h>

#include <Defines/Version.h>
#include <FileSystem/Initializer.h>
#include <Tools/wfs/Output.h>
#include <Tools/wfs/Paths.h>
#include <Tools/wfs/Verb.h>

#include <CLI/CLI.hpp>

#include <algorithm>
#include <exception>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

namespace Wfs {
namespace {

constexpr Verb const* VERBS[] = {&CAT, &PUT, &COPY, &MOVE, &DELETE, &STAT, &LOCK, &LIST, &MKDIR, &RMDIR, &PATH, &PIPE};

constexpr char const NOTES[] = R"(wfs help VERB tells more about a verb.

Exit status: 0 success; 1 a failure, reported on standard error; 2 wrong usage;
75 a lock was not obtained in time.)";

std::string GetVersion() {
    return "wfs " + std::to_string(WFILESYSTEM_VERSION_MAJOR) + '.' + std::to_string(WFILESYSTEM_VERSION_MINOR) + '.' +
           std::to_string(WFILESYSTEM_VERSION_PATCH);
}

/// The program's options and verbs.
class CommandLine {
public:
    CommandLine() {
        program_.set_version_flag("--version", GetVersion(), "Print the version");
        program_.set_help_flag("-h,--help", "Print this help");
        program_.footer(NOTES);
        program_.get_formatter()->label("SUBCOMMAND", "VERB");
        // What follows the first verb is never another verb: a file may be called "cat".
        program_.require_subcommand(0, 1);
        for (Verb const* const verb : VERBS) {
            CLI::App& options = AddVerb(verb->name, verb->summary, verb->notes);
            verbs_.emplace_back(&options, verb->define(options));
        }
        CLI::App& help = AddVerb("help", "Tell about the program or a verb", "Example:\n  wfs help cat");
        help.add_option("VERB", helpTopic_, "The verb; without one the program")->option_text(" ");
        verbs_.emplace_back(&help, [this] { return Help(); });
    }

    ExitStatus Run(int argc, char const* const* argv) {
        try {
            // CLI11 takes the arguments from the end of the list.
            std::vector<std::string> arguments(
                std::reverse_iterator(argv + argc), std::reverse_iterator(argv + std::min(argc, 1)));
            std::transform(arguments.begin(), arguments.end(), arguments.begin(), Shield);
            program_.parse(std::move(arguments));
            return DoWork();
        } catch (CLI::CallForVersion const& version) {
            WriteOutput(version.what() + std::string("\n"));
        } catch (CLI::Success const&) {
            WriteOutput(program_.help());
        } catch (CLI::ParseError const& error) {
            return RefuseUsage(error.what());
        }
        return SUCCESS;
    }

private:
    using DefinedVerb = std::pair<CLI::App const*, Work>;

    CLI::App& AddVerb(char const* name, char const* summary, char const* notes) {
        CLI::App* const verb = program_.add_subcommand(name, summary);
        verb->footer(notes);
        verb->group("Verbs");
        return *verb;
    }

    /// The first verb for which the condition holds, or null.
    template <class Condition>
    DefinedVerb const* FindVerb(Condition condition) const {
        auto const verb = std::find_if(
            verbs_.begin(), verbs_.end(), [&](DefinedVerb const& candidate) { return condition(*candidate.first); });
        return verb != verbs_.end() ? &*verb : nullptr;
    }

    DefinedVerb const* FindGivenVerb() const {
        return FindVerb([](CLI::App const& verb) { return verb.parsed(); });
    }

    ExitStatus DoWork() const {
        if (DefinedVerb const* const verb = FindGivenVerb()) {
            WFileSystem::Initializer const initializer;
            return verb->second();
        }
        return RefuseUsage("a verb is missing");
    }

    ExitStatus Help() const {
        if (helpTopic_.empty()) {
            // App::help would tell about the verb that was given.
            WriteOutput(program_.get_formatter()->make_help(&program_, "wfs", CLI::AppFormatMode::Normal));
            return SUCCESS;
        }
        if (DefinedVerb const* const topic =
                FindVerb([this](CLI::App const& verb) { return verb.get_name() == helpTopic_; })) {
            WriteOutput(topic->first->help("wfs"));
            return SUCCESS;
        }
        return RefuseUsage("there is no verb '" + helpTopic_ + "'");
    }

    ExitStatus RefuseUsage(std::string text) const {
        DefinedVerb const* const verb = FindGivenVerb();
        text.erase(std::remove(text.begin(), text.end(), '\0'), text.end());
        Report(ToUTF8(text) + "\nTry: wfs help" + (verb != nullptr ? ' ' + verb->first->get_name() : ""));
        return WRONG_USAGE;
    }

    CLI::App program_{"Reads and writes files by the rules of the WFileSystem library.", "wfs"};
    std::vector<DefinedVerb> verbs_;
    std::string helpTopic_;
};

} // namespace

ExitStatus Run(int argc, char const* const* argv) noexcept {
    try {
        OpenStandardStreams();
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
