// The verb that works on paths as texts.

#include <Base/Conversion.h>
#include <FileSystem/Path.h>
#include <Tools/wfs/Paths.h>
#include <Tools/wfs/Results.h>
#include <Tools/wfs/Verb.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Wfs {
namespace {

using WFileSystem::Path;

struct PathOptions {
    std::vector<std::string> paths;
    std::optional<EnumFileDestPlatforms> platform; ///< nothing: the host's own rules
    Results results;
};

std::shared_ptr<PathOptions> AddOptions(CLI::App& verb, char const* element) {
    auto options = std::make_shared<PathOptions>();
    AddPaths(verb, options->paths, "PATH", "The paths");
    options->results.AddOption(verb, element);
    return options;
}

void AddPlatform(CLI::App& verb, PathOptions& options) {
    std::map<std::string, EnumFileDestPlatforms> const platforms = {
        {"posix", FileDestPlatformPosix}, {"windows", FileDestPlatformWindows}};
    verb.add_option_function<std::string>(
            "--platform", [&options, platforms](std::string const& name) { options.platform = platforms.at(name); },
            "Whose rules to go by (this system's)")
        ->option_text("posix|windows")
        ->check(CLI::IsMember(platforms));
}

void AddResult(Results& results, WBase::ReturnWString const& path) {
    results.Add(WBase::WideCharToUTF8(path.c_str(), false).c_str());
}

WBase::ReturnWString Combine(PathOptions const& options, wchar_t const* first, wchar_t const* second) {
    return options.platform ? Path::CombineCrossPlatform(first, second, *options.platform)
                            : Path::Combine(first, second);
}

ExitStatus CombineAll(PathOptions& options) {
    WBase::ReturnWString result(L"");
    bool isFirst = true;
    ExitStatus const status = ForEachPath(options.paths, [&](wchar_t const* path) {
        result = isFirst ? Combine(options, path, L"") : Combine(options, result.c_str(), path);
        isFirst = false;
    });
    if (status == SUCCESS) {
        AddResult(options.results, result);
    }
    options.results.Finish();
    return status;
}

Work DefineCombine(CLI::App& verb) {
    auto const options = AddOptions(verb, "one text");
    AddPlatform(verb, *options);
    return [options] { return CombineAll(*options); };
}

Work DefineIsAbsolute(CLI::App& verb) {
    auto const options = AddOptions(verb, "truth values");
    AddPlatform(verb, *options);
    return [options] {
        ExitStatus const status = ForEachPath(options->paths, [&](wchar_t const* path) {
            options->results.Add(
                options->platform ? Path::IsAbsoluteCrossPlatform(path, *options->platform) : Path::IsAbsolute(path));
        });
        options->results.Finish();
        return status;
    };
}

/// An operation that knows the host's rules only.
template <WBase::ReturnWString (*operation)(wchar_t const*)>
Work DefineOperation(CLI::App& verb) {
    auto const options = AddOptions(verb, "texts");
    return [options] {
        ExitStatus const status =
            ForEachPath(options->paths, [&](wchar_t const* path) { AddResult(options->results, operation(path)); });
        options->results.Finish();
        return status;
    };
}

constexpr Verb COMBINE = {
    "combine", "Combine paths: each as seen from the one before",
    R"(The result is in canonical form: without . and empty names, and with .. only at
the beginning.

Exit status: 0 success; 1 a failure; 2 wrong usage.

Example: a path for a Windows machine
  wfs path combine --platform windows 'C:\data' ..\\backup file.txt)",
    DefineCombine};

constexpr Verb ABSOLUTE = {
    "absolute", "Give paths as seen from the working directory",
    R"(An absolute path stays as it is.

Exit status: 0 success; 1 a failure; 2 wrong usage.

Example:
  wfs path absolute ../settings.txt)",
    DefineOperation<Path::ToAbsolute>};

constexpr Verb PARENT = {
    "parent", "Give paths up to and with the last separator that is not the last character",
    R"(Exit status: 0 success; 1 a failure; 2 wrong usage.

Example: prints /home/
  wfs path parent /home/guest/)",
    DefineOperation<Path::GetParent>};

constexpr Verb DIRNAME = {
    "dirname", "Give what stands before the last / of paths",
    R"(Exit status: 0 success; 1 a failure; 2 wrong usage.

Example: prints /home/guest
  wfs path dirname /home/guest/settings.txt)",
    DefineOperation<Path::GetDirname>};

constexpr Verb BASENAME = {
    "basename", "Give what stands behind the last / of paths",
    R"(Exit status: 0 success; 1 a failure; 2 wrong usage.

Example: prints settings.txt
  wfs path basename /home/guest/settings.txt)",
    DefineOperation<Path::GetBasename>};

constexpr Verb EXTENSION = {
    "extension", "Give what stands behind the last dot of paths",
    R"(The dot is looked for in the whole path, not in the last name alone.

Exit status: 0 success; 1 a failure; 2 wrong usage.

Example: prints txt
  wfs path extension /home/guest/settings.txt)",
    DefineOperation<Path::GetExtension>};

constexpr Verb IS_ABSOLUTE = {
    "is-absolute", "Tell whether paths are absolute",
    R"(It prints true or false.

Exit status: 0 success, whatever the answers; 1 a failure; 2 wrong usage.

Example: prints true
  wfs path is-absolute --platform windows 'C:\data')",
    DefineIsAbsolute};

Work DefinePath(CLI::App& verb) {
    return AddVerbs(verb, {COMBINE, ABSOLUTE, PARENT, DIRNAME, BASENAME, EXTENSION, IS_ABSOLUTE});
}

} // namespace

Verb const PATH = {
    "path", "Work on paths as texts",
    R"(Results come one on a line. Without --platform the rules are those of this system,
on which a backslash separates names as / does. No link is resolved. After a
failure it goes on with the next path, but combine does not print anything then.

Exit status: 0 success; 1 a failure; 2 wrong usage.

Example: the extension of a file as a JSON text
  wfs path extension --json settings.txt)",
    DefinePath};

} // namespace Wfs
