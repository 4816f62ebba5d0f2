#include <Tools/wfs/Results.h>

#include <Tools/wfs/Output.h>

namespace Wfs {

void Results::AddOption(CLI::App& verb, std::string const& element) {
    verb.add_flag("--json", isJson_, "Print a JSON array of " + element)->option_text(" ");
}

void Results::Add(nlohmann::ordered_json const& result) {
    Add(result, (result.is_string() ? result.get<std::string>() : result.dump()) + '\n');
}

void Results::Add(nlohmann::ordered_json const& result, std::string const& text) {
    if (isJson_) {
        all_.push_back(result);
    } else {
        WriteOutput(text);
    }
}

void Results::Finish() const {
    if (isJson_) {
        constexpr int INDENTATION = 2;
        WriteOutput(all_.dump(INDENTATION) + '\n');
    }
}

} // namespace Wfs
