#include <Tools/wfs/Verb.h>

#include <memory>
#include <utility>
#include <vector>

namespace Wfs {
namespace {

class Formatter : public CLI::Formatter {
public:
    std::string make_usage(CLI::App const* app, std::string name) const override {
        std::string usage = "Usage: " + name + " [OPTIONS]";
        for (CLI::Option const* const argument :
             app->get_options([](CLI::Option const* option) { return option->get_positional(); })) {
            bool const isCommand = argument->get_name(true) == "COMMAND";
            usage += (isCommand ? " -- " : " ") + make_option_usage(argument);
        }
        return usage + (app->get_subcommands({}).empty() ? "\n" : " VERB\n");
    }
};

} // namespace

CLI::App& AddVerb(CLI::App& parent, char const* name, char const* summary, char const* notes) {
    CLI::App* const verb = parent.add_subcommand(name, summary);
    verb->footer(notes);
    verb->group("Verbs");
    return *verb;
}

Work AddVerbs(CLI::App& parent, std::initializer_list<Verb> verbs) {
    parent.formatter(std::make_shared<Formatter>());
    // What follows a verb is never another one of these: a file may be called "cat". That one is given is seen to
    // below.
    parent.require_subcommand(0, 1);
    std::vector<std::pair<CLI::App const*, Work>> works;
    for (Verb const& verb : verbs) {
        CLI::App& options = AddVerb(parent, verb.name, verb.summary, verb.notes);
        works.emplace_back(&options, verb.define(options));
    }
    return [works = std::move(works)] {
        for (auto const& [verb, work] : works) {
            if (verb->parsed()) {
                return work();
            }
        }
        throw CLI::ParseError("a verb is missing", CLI::ExitCodes::RequiredError);
    };
}

std::string GetFullName(CLI::App const& verb) {
    CLI::App const* const parent = verb.get_parent();
    return (parent != nullptr ? GetFullName(*parent) + ' ' : "") + verb.get_name();
}

std::string GetHelp(CLI::App const& verb) {
    // App::help would tell about the verb that was given.
    return verb.get_formatter()->make_help(&verb, GetFullName(verb), CLI::AppFormatMode::Normal);
}

std::string GetUsage(CLI::App const& verb) {
    constexpr std::size_t LABEL_SIZE = sizeof "Usage: " - 1;
    std::string const usage = Formatter().make_usage(&verb, GetFullName(verb));
    return usage.substr(LABEL_SIZE, usage.size() - LABEL_SIZE - 1);
}

} // namespace Wfs
