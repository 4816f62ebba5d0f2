#ifndef WFILESYSTEM_TOOLS_WFS_RESULTS_H
#define WFILESYSTEM_TOOLS_WFS_RESULTS_H

// The output of verbs that find something out.

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <string>

namespace Wfs {

/// Results for standard output: each as text at once, or with --json all of them as one array at the end.
class Results {
public:
    /// Declares --json.
    /// \param element what the array holds
    void AddOption(CLI::App& verb, std::string const& element);

    /// A text or truth value; as text it is a line.
    /// \throws OutputFailure
    void Add(nlohmann::ordered_json const& result);

    /// \param text what is written without --json
    /// \throws OutputFailure
    void Add(nlohmann::ordered_json const& result, std::string const& text);

    /// After the last one.
    /// \throws OutputFailure
    void Finish() const;

private:
    bool isJson_ = false;
    nlohmann::ordered_json all_ = nlohmann::ordered_json::array();
};

} // namespace Wfs

#endif
