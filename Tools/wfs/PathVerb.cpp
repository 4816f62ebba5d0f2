// The verb that works on paths as texts.

#include <Base/Conversion.h>
#include <FileSystem/Path.h>
#include <Tools/wfs/Output.h>
#include <Tools/wfs/Paths.h>
#include <Tools/wfs/Verb.h>

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Wfs {
namespace {

using WFileSystem::Path;

struct PathOptions {
    std::string operation;
    std::vector<std::string> arguments;
    std::optional<EnumFileDestPlatforms> platform; ///< nothing: the host's own rules
};

WBase::ReturnWString Combine(PathOptions const& options, wchar_t const* first, wchar_t const* second) {
    return options.platform ? Path::CombineCrossPlatform(first, second, *options.platform)
                            : Path::Combine(first, second);
}

void WriteLine(WBase::ReturnWString const& text) {
    WriteOutput(WBase::WideCharToUTF8(text.c_str(), false).c_str() + std::string("\n"));
}

/// All arguments combined, the first with the second, the result with the third and so on.
ExitStatus CombineAll(PathOptions const& options) {
    WBase::ReturnWString result(L"");
    bool isFirst = true;
    ExitStatus const status = ForEachPath(options.arguments, [&](wchar_t const* path) {
        result = isFirst ? Combine(options, path, L"") : Combine(options, result.c_str(), path);
        isFirst = false;
    });
    if (status == SUCCESS) {
        WriteLine(result);
    }
    return status;
}

WBase::ReturnWString TellWhetherAbsolute(PathOptions const& options, wchar_t const* path) {
    bool const isAbsolute =
        options.platform ? Path::IsAbsoluteCrossPlatform(path, *options.platform) : Path::IsAbsolute(path);
    return WBase::ReturnWString(isAbsolute ? L"true" : L"false");
}

using Operation = WBase::ReturnWString (*)(wchar_t const*);

// Those that know the host's rules only.
std::map<std::string, Operation> const& HostOperations() {
    static std::map<std::string, Operation> const operations = {
        {"absolute", Path::ToAbsolute},
        {"parent", Path::GetParent},
        {"dirname", Path::GetDirname},
        {"basename", Path::GetBasename},
        {"extension", Path::GetExtension}};
    return operations;
}

ExitStatus Run(PathOptions const& options) {
    if (options.operation == "combine") {
        return CombineAll(options);
    }
    return ForEachPath(options.arguments, [&](wchar_t const* path) {
        auto const operation = HostOperations().find(options.operation);
        WriteLine(operation != HostOperations().end() ? operation->second(path) : TellWhetherAbsolute(options, path));
    });
}

Work DefinePath(CLI::App& verb) {
    auto const options = std::make_shared<PathOptions>();
    std::vector<std::string> names = {"combine", "is-absolute"};
    for (auto const& operation : HostOperations()) {
        names.push_back(operation.first);
    }
    verb.add_option("OPERATION", options->operation, "What to do, see below")
        ->required()
        ->option_text(" ")
        ->check(CLI::IsMember(names));
    AddPaths(verb, options->arguments, "ARG", "The paths");
    std::map<std::string, EnumFileDestPlatforms> const platforms = {
        {"posix", FileDestPlatformPosix}, {"windows", FileDestPlatformWindows}};
    verb.add_option_function<std::string>(
            "--platform", [options, platforms](std::string const& name) { options->platform = platforms.at(name); },
            "Go by the rules of posix or windows; with combine and is-absolute")
        ->option_text("PLATFORM")
        ->check(CLI::IsMember(platforms));
    verb.callback([options] {
        if (options->platform && HostOperations().count(options->operation) != 0) {
            throw CLI::ValidationError("--platform", "goes with combine and is-absolute only");
        }
    });
    return [options] { return Run(*options); };
}

} // namespace

Verb const PATH = {
    "path", "Work on paths as texts",
    R"(Operations:
  combine      all paths in turn, each as seen from the one before, in canonical form
  absolute     as seen from the working directory; an absolute path stays as it is
  parent       up to and with the last separator that is not the last character
  dirname      what stands before the last /
  basename     what stands behind the last /
  extension    what stands behind the last dot, of the whole path
  is-absolute  true or false

Results come one on a line. Without --platform the rules are those of this
system, on which a backslash separates names as / does. No link is resolved.

Exit status: 0 success; 1 a failure; 2 wrong usage.

Example: a path for a Windows machine
  wfs path combine --platform windows 'C:\data' ..\\backup file.txt)",
    DefinePath};

} // namespace Wfs
