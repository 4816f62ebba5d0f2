// Verbs for whole files.

#include <Base/Conversion.h>
#include <DataType/Binary.h>
#include <DataType/DateTime.h>
#include <FileSystem/File.h>
#include <FileSystem/FileImpl.h>
#include <FileSystem/Path.h>
#include <Tools/wfs/Paths.h>
#include <Tools/wfs/Progress.h>
#include <Tools/wfs/Results.h>
#include <Tools/wfs/Stream.h>
#include <Tools/wfs/Verb.h>

#include <cstdio>
#include <memory>
#include <string>
#include <system_error>
#include <vector>

namespace Wfs {
namespace {

using WFileSystem::File;
using WFileSystem::Path;

struct CopyOptions {
    std::string from;
    std::string to;
    bool withAttributes = false;
};

/// The library's copy of a file step by step, with two differences: the progress shows, and a target that can't be
/// closed is a failure.
void CopyContent(wchar_t const* from, wchar_t const* to) {
    constexpr unsigned long BLOCK_SIZE = 256UL * 1024;
    StreamPtr const source(File::OpenStream(from, File::OPEN_READ, File::SHARE_IGNORED));
    StreamPtr target(File::OpenStream(to, File::OPEN_WRITE_TRUNCATE, File::SHARE_IGNORED));
    std::unique_ptr<WDataType::Binary> const block = WDataType::CreateBinary(BLOCK_SIZE, nullptr);
    Progress progress(File::GetSize(source.get()));
    for (File::Read(source.get(), *block, 0); !block->IsEmpty(); File::Read(source.get(), *block, 0)) {
        File::Write(target.get(), static_cast<void const*>(block->GetBuffer()), block->GetSize());
        progress.Add(block->GetSize());
    }
    File::Flush(target.get());
    if (std::fclose(target.release()) != 0) {
        throw Failure("The file can't be closed: " + std::generic_category().message(errno));
    }
}

bool IsSameFile(wchar_t const* from, wchar_t const* to) {
    StreamPtr const source(File::OpenStream(from, File::OPEN_READ, File::SHARE_IGNORED));
    return WFileSystem::FileImpl::DoesPathMatchFileHandle(to, ::fileno(source.get()), nullptr);
}

ExitStatus Copy(CopyOptions const& options) {
    return ForTwoPaths(options.from, options.to, [&](wchar_t const* from, wchar_t const* to) {
        // The library would empty the target before it fails, or succeed in emptying the file.
        if (Path::IsDirectory(from)) {
            throw Failure("'" + options.from + "' is a directory, which is not copied.");
        }
        if (IsSameFile(from, to)) {
            throw Failure("'" + options.from + "' and '" + options.to + "' are the same file, which is not copied.");
        }
        CopyContent(from, to);
        WBase::Message report;
        if (options.withAttributes && !File::CopyAttributes(from, to, &report)) {
            throw Failure(std::string("The content is copied, but not all attributes.\n") + report.what());
        }
    });
}

Work DefineCopy(CLI::App& verb) {
    auto const options = std::make_shared<CopyOptions>();
    AddPath(verb, "FROM", options->from, "The file");
    AddPath(verb, "TO", options->to, "Its copy, created or replaced");
    verb.add_flag("--attributes", options->withAttributes, "Copy times, owner and permission bits as well")
        ->option_text(" ");
    return [options] { return Copy(*options); };
}

struct MoveOptions {
    std::string from;
    std::string to;
};

Work DefineMove(CLI::App& verb) {
    auto const options = std::make_shared<MoveOptions>();
    AddPath(verb, "FROM", options->from, "The file or directory");
    AddPath(verb, "TO", options->to, "Its new name, replaced where it exists");
    return [options] { return ForTwoPaths(options->from, options->to, File::Move); };
}

Work DefineDelete(CLI::App& verb) {
    auto const paths = std::make_shared<std::vector<std::string>>();
    AddPaths(verb, *paths);
    return [paths] {
        return ForEachPath(*paths, [](wchar_t const* path) {
            WBase::Message report;
            if (!File::Delete(path, &report)) {
                throw WBase::Message(report);
            }
        });
    };
}

struct StatOptions {
    std::vector<std::string> paths;
    Results results;
};

nlohmann::ordered_json Describe(wchar_t const* path) {
    WDataType::DateTime modified;
    unsigned long const size = File::GetSize(path);
    File::GetLastModified(path, modified);
    char time[64];
    std::snprintf(
        time, sizeof time, "%04d-%02d-%02dT%02d:%02d:%02dZ", modified.GetYear(), modified.GetMonth(), modified.GetDay(),
        modified.GetHour(), modified.GetMinute(), modified.GetSecond());
    nlohmann::ordered_json description;
    description["size"] = size;
    description["modified"] = time;
    description["kind"] = Path::IsFile(path) ? "file" : Path::IsDirectory(path) ? "directory" : "other";
    description["readable"] = Path::IsReadable(path);
    description["writeable"] = Path::IsWriteable(path);
    return description;
}

std::string ToText(std::string const& path, nlohmann::ordered_json const& description) {
    std::string text = path + '\n';
    for (auto const& [name, value] : description.items()) {
        text += "  " + name + ": ";
        text += value.is_boolean()  ? (value.get<bool>() ? "yes" : "no")
                : value.is_string() ? value.get<std::string>()
                                    : value.dump();
        text += '\n';
    }
    return text;
}

ExitStatus Stat(StatOptions& options) {
    ExitStatus const status = ForEachPath(options.paths, [&](wchar_t const* path) {
        std::string const name = WBase::WideCharToUTF8(path, false).c_str();
        nlohmann::ordered_json const description = Describe(path);
        nlohmann::ordered_json result = {{"path", name}};
        result.update(description);
        options.results.Add(result, ToText(name, description));
    });
    options.results.Finish();
    return status;
}

Work DefineStat(CLI::App& verb) {
    auto const options = std::make_shared<StatOptions>();
    AddPaths(verb, options->paths);
    options->results.AddOption(verb, "objects");
    return [options] { return Stat(*options); };
}

} // namespace

Verb const COPY = {
    "copy", "Copy a file's content",
    R"(The target is created, or emptied and overwritten. It is not locked. On a terminal
a copy that takes longer than a second shows its progress. After a failure the
target holds what was written by then.

Exit status: 0 all was copied; 1 a failure; 2 wrong usage.

Example: a copy with the times, owner and permission bits of the original
  wfs copy --attributes settings.txt settings.bak)",
    DefineCopy};

Verb const MOVE = {
    "move", "Give a file another name in the same file system",
    R"(Exit status: 0 it is moved; 1 a failure; 2 wrong usage.

Example:
  wfs move settings.new settings.txt)",
    DefineMove};

Verb const DELETE = {
    "delete", "Delete files",
    R"(A link is deleted, not what it names. Directories are not deleted. After a failure
it goes on with the next path.

Exit status: 0 all are deleted; 1 a failure; 2 wrong usage.

Example:
  wfs delete settings.bak settings.new)",
    DefineDelete};

Verb const STAT = {
    "stat", "Tell size, last modification, kind and access of files",
    R"(Links are followed. The size is in bytes, the time in UTC; times after 19 January
2038 come out wrong. Readable and writeable are for the user who asks. After a
failure it goes on with the next path.

The objects of --json have the members path, size, modified, kind ("file",
"directory" or "other"), readable and writeable.

Exit status: 0 all are told about; 1 a failure; 2 wrong usage.

Example: the size of a file for a script
  wfs stat --json settings.txt | jq '.[0].size')",
    DefineStat};

} // namespace Wfs
