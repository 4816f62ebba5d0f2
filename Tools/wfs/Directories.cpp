// Verbs for directories and patterns.

#include <Base/Conversion.h>
#include <FileSystem/Directory.h>
#include <FileSystem/Path.h>
#include <Tools/wfs/Paths.h>
#include <Tools/wfs/Results.h>
#include <Tools/wfs/Verb.h>

#include <memory>
#include <string>
#include <string_view>
#include <sys/stat.h>
#include <vector>

namespace Wfs {
namespace {

using WFileSystem::Directory;
using WFileSystem::Path;

struct ListOptions {
    std::vector<std::string> patterns;
    Results results;
};

ExitStatus List(ListOptions& options) {
    ExitStatus const status = ForEachPath(options.patterns, [&](wchar_t const* pattern) {
        std::unique_ptr<WDataType::StringCollection> const names = Path::GetFileNamesWithPattern(pattern);
        for (unsigned long index = 0; index < names->GetCount(); ++index) {
            options.results.Add(WBase::WideCharToUTF8(names->GetAt(index), false).c_str());
        }
    });
    options.results.Finish();
    return status;
}

Work DefineList(CLI::App& verb) {
    auto const options = std::make_shared<ListOptions>();
    AddPaths(verb, options->patterns, "PATTERN", "The patterns, quoted so that the shell leaves them alone");
    options->results.AddOption(verb, "texts");
    return [options] { return List(*options); };
}

struct DirectoryOptions {
    std::vector<std::string> paths;
    bool isDeep = false; ///< --parents or --recursive
};

Work DefineMkdir(CLI::App& verb) {
    auto const options = std::make_shared<DirectoryOptions>();
    AddPaths(verb, options->paths, "DIRECTORY", "The directories");
    verb.add_flag("--parents", options->isDeep, "Create missing parents as well")->option_text(" ");
    return [options] {
        return ForEachPath(options->paths, [&](wchar_t const* path) { Directory::Create(path, options->isDeep); });
    };
}

bool IsLink(WBase::ReturnWString const& path) {
    struct stat status = {};
    return ::lstat(WBase::WideCharToMultiByte(path.c_str(), false).c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

/// Keeps from the library what it would do something else with than is asked for.
/// \throws Failure
void Refuse(wchar_t const* path) {
    std::wstring_view const given = path;
    if (given.find_first_of(L"*?[") != std::wstring_view::npos) {
        throw Failure("Refused, because it holds one of *?[, and would be taken for a pattern.");
    }
    if (given.find(L'\\') != std::wstring_view::npos) {
        throw Failure("Refused, because it holds a backslash, and would be taken for several names.");
    }
    WBase::ReturnWString const canonical = Path::Combine(path, L"");
    std::wstring_view const name = canonical;
    bool const isAbove = name == L".." || (name.size() > 2 && name.substr(name.size() - 3) == L"/..");
    if (name.empty() || name == L"." || name == L"/" || isAbove) {
        throw Failure("Refused, because it names the root, the working directory or one above it, or nothing.");
    }
    if (IsLink(canonical)) {
        throw Failure("Refused, because it is a link: what it leads to would be emptied, and the link would stay.");
    }
}

/// A text of several failures with the program's name before each.
std::string Divide(std::string text) {
    constexpr char const BEGIN[] = "\nFailed to delete ";
    constexpr char const NAME[] = "wfs: ";
    for (std::size_t index = text.find(BEGIN); index != std::string::npos; index = text.find(BEGIN, index + 1)) {
        text.insert(index + 1, NAME);
    }
    return text;
}

Work DefineRmdir(CLI::App& verb) {
    auto const options = std::make_shared<DirectoryOptions>();
    AddPaths(verb, options->paths, "DIRECTORY", "The directories");
    verb.add_flag("--recursive", options->isDeep, "Delete all that is in them first")->option_text(" ");
    return [options] {
        return ForEachPath(options->paths, [&](wchar_t const* path) {
            Refuse(path);
            WBase::Message report;
            bool const isDeleted =
                options->isDeep ? Directory::DeleteRecursively(path, &report) : Directory::DeleteEmpty(path, &report);
            if (!isDeleted) {
                throw Failure(Divide(report.what()));
            }
        });
    };
}

} // namespace

Verb const LIST = {
    "list", "List the paths that match patterns",
    R"(In a pattern * stands for any text, ? for one character, and [...] for one of
these. Names that begin with a dot match only a pattern that spells the dot. A
backslash separates names as / does. The paths of a pattern come sorted, one on a
line; a name that is not UTF-8 is left out. A pattern without a match lists nothing.
After a failure it goes on with the next pattern.

Exit status: 0 success; 1 a failure; 2 wrong usage.

Example: the settings of all users
  wfs list '/home/*/settings.txt')",
    DefineList};

Verb const MKDIR = {
    "mkdir", "Create directories",
    R"(A directory that exists is a failure, also with --parents. After a failure it goes
on with the next path.

Exit status: 0 all are created; 1 a failure; 2 wrong usage.

Example:
  wfs mkdir --parents backup/2026/11)",
    DefineMkdir};

Verb const RMDIR = {
    "rmdir", "Delete directories",
    R"(Without --recursive only an empty directory is deleted. With it, links to
directories inside are followed and what they lead to is emptied; entries whose
names begin with a dot stay, and so does their directory; every failure is
reported, and the rest is deleted.

Refused is a path that holds *, ?, [ or a backslash, that names the root, the
working directory or one above it, or that is a link.

Exit status: 0 all are deleted; 1 a failure; 2 wrong usage.

Example:
  wfs rmdir --recursive backup/2025)",
    DefineRmdir};

} // namespace Wfs
