// Verbs that read.

#include <DataType/Binary.h>
#include <FileSystem/ReadableFile.h>
#include <Tools/wfs/Output.h>
#include <Tools/wfs/Paths.h>
#include <Tools/wfs/Verb.h>
#include <Tools/wfs/Waiting.h>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Wfs {
namespace {

struct CatOptions {
    std::vector<std::string> paths;
    Waiting waiting;
    bool byLine = false;
};

std::string_view GetBytes(WDataType::Binary const& buffer) {
    return {buffer.GetBuffer(), buffer.GetSize()};
}

void CopyBlocks(WFileSystem::ReadableFile& file) {
    constexpr unsigned long BLOCK_SIZE = 256UL * 1024;
    std::unique_ptr<WDataType::Binary> const block = WDataType::CreateBinary(BLOCK_SIZE, nullptr);
    // Only an empty block is the end: a block that is merely short can also be what came before a failure.
    for (file.Read(*block, 0); !block->IsEmpty(); file.Read(*block, 0)) {
        WriteOutput(GetBytes(*block));
    }
}

void CopyLines(WFileSystem::ReadableFile& file) {
    // What was read behind a line's end is read again, so the buffer is small. A longer line comes in pieces.
    constexpr unsigned long USUAL_LINE_SIZE = 4096;
    std::unique_ptr<WDataType::Binary> const line = WDataType::CreateBinary(USUAL_LINE_SIZE, nullptr);
    for (;;) {
        file.ReadLine(*line);
        if (line->IsEmpty()) {
            // Either the end of the file or a zero byte, which would stop the lines for good.
            file.Read(*line, 1);
            if (line->IsEmpty()) {
                return;
            }
            if (*line->GetBuffer() == '\0') {
                throw Failure(
                    "Stopped at a zero byte, at offset " + std::to_string(file.GetPosition() - 1) +
                    "; --lines is for text.");
            }
        }
        WriteOutput(GetBytes(*line));
    }
}

ExitStatus Cat(CatOptions const& options) {
    return ForEachPath(options.paths, [&options](wchar_t const* path) {
        if (IsOutput(path)) {
            throw Failure("Not read, because standard output goes into this file.");
        }
        std::unique_ptr<WFileSystem::ReadableFile> const file = WFileSystem::OpenReadableFile(path);
        ReadLock const lock(*file, options.waiting);
        options.byLine ? CopyLines(*file) : CopyBlocks(*file);
    });
}

Work DefineCat(CLI::App& verb) {
    auto const options = std::make_shared<CatOptions>();
    AddPaths(verb, options->paths);
    options->waiting.AddOptions(verb);
    verb.add_flag("--lines", options->byLine, "Read line by line; a zero byte in the text is a failure");
    return [options] { return Cat(*options); };
}

} // namespace

Verb const CAT = {
    "cat", "Write files to standard output, each read under its shared record lock",
    R"(Without --no-wait and --wait it waits until the lock is granted. --wait looks at
once, every 5 seconds, and at the end of the time.

After a failure it goes on with the next path. When standard output can't be
written it stops; when its reader has gone, it ends by SIGPIPE without a word.

Exit status: 0 all was written; 75 a lock was not obtained in time, and nothing
else failed; 1 any other failure; 2 wrong usage.

Example: read a settings file while other programs may be writing it
  wfs cat --wait 10000 settings.txt)",
    DefineCat};

} // namespace Wfs
