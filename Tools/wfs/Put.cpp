// The verb that writes.

#include <DataType/Binary.h>
#include <FileSystem/FileImpl.h>
#include <FileSystem/Path.h>
#include <FileSystem/WriteableFile.h>
#include <PDCHeader/PDCunistd.h>
#include <Tools/wfs/Interruption.h>
#include <Tools/wfs/Paths.h>
#include <Tools/wfs/Verb.h>
#include <Tools/wfs/Waiting.h>

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

namespace Wfs {
namespace {

struct PutOptions {
    std::string path;
    Waiting waiting;
    WFileSystem::IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy = WFileSystem::KEEP_FILE;
    bool isTruncated = false;
    bool isAppended = false;
    std::optional<long long> offset;
};

/// Copies standard input to the position of the file.
void CopyInput(WFileSystem::WriteableFile& file, Interruption const& interruption) {
    constexpr unsigned long BLOCK_SIZE = 256UL * 1024;
    std::unique_ptr<WDataType::Binary> const block = WDataType::CreateBinary(BLOCK_SIZE, nullptr);
    for (;;) {
        interruption.WaitForInput(STDIN_FILENO);
        ssize_t const received = WPDCHeader::RetryWhileInterrupted(
            [&] { return ::read(STDIN_FILENO, block->GetBuffer(), block->GetSize()); });
        if (received == -1) {
            throw Failure("Standard input can't be read: " + std::generic_category().message(errno));
        }
        if (received == 0) {
            return;
        }
        file.Write(static_cast<void const*>(block->GetBuffer()), static_cast<unsigned long>(received));
    }
}

void PutInto(wchar_t const* path, PutOptions const& options) {
    if (WFileSystem::Path::IsFile(path) &&
        WFileSystem::FileImpl::DoesPathMatchFileHandle(path, STDIN_FILENO, nullptr)) {
        throw Failure("Not written, because standard input comes from this file.");
    }
    std::unique_ptr<WFileSystem::WriteableFile> const file = WFileSystem::OpenWriteableFile(path, options.policy);
    try {
        TakeLock(options.waiting, [&](bool dontWait) { return file->WriteLock(dontWait); });
    } catch (...) {
        file->CommitAndClose(); // nothing was written, so that no policy must touch what the file holds
        throw;
    }
    Interruption const interruption;
    if (options.isAppended) {
        file->SetPositionToEnd();
    } else {
        file->SetPosition(options.offset.value_or(0));
    }
    CopyInput(*file, interruption);
    if (options.isTruncated) {
        file->Truncate();
    }
    file->CommitAndClose();
}

ExitStatus Put(PutOptions const& options) {
    try {
        return ForEachPath({options.path}, [&](wchar_t const* path) { PutInto(path, options); });
    } catch (Interrupted const& interrupted) {
        Report(options.path, "Interrupted before the end of the input.");
        EndBy(interrupted);
    }
}

Work DefinePut(CLI::App& verb) {
    auto const options = std::make_shared<PutOptions>();
    AddPath(verb, "PATH", options->path, "The file, created when missing");
    std::map<std::string, WFileSystem::IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED> const policies = {
        {"truncate", WFileSystem::TRUNCATE_FILE},
        {"delete", WFileSystem::DELETE_FILE},
        {"keep", WFileSystem::KEEP_FILE}};
    verb.add_option_function<std::string>(
            "--on-failure", [options, policies](std::string const& name) { options->policy = policies.at(name); },
            "What becomes of the file when not all is written (keep)")
        ->option_text("truncate|delete|keep")
        ->check(CLI::IsMember(policies));
    CLI::Option* const truncate =
        verb.add_flag("--truncate", options->isTruncated, "Cut the file behind the input's end");
    truncate->option_text(" ");
    CLI::Option* const at = verb.add_option_function<std::string>(
        "--at", [options](std::string const& text) { options->offset = std::stoll(text); },
        "Begin at so many bytes from the start, and keep the rest");
    at->option_text("OFFSET")->check(CheckNumber);
    CLI::Option* const append = verb.add_flag("--append", options->isAppended, "Begin at the end");
    append->option_text(" ");
    truncate->excludes(at)->excludes(append);
    at->excludes(append);
    options->waiting.AddOptions(verb);
    return [options] { return Put(*options); };
}

} // namespace

Verb const PUT = {
    "put", "Write standard input into a file under its exclusive record lock",
    R"(Without --truncate, --at and --append the input overwrites the file from its
start, and what lies behind the input's end stays.

Nothing is written before the lock is obtained; without --no-wait and --wait it
waits for it. --wait looks at once, every 5 seconds, and at the end of the time.
An existing file is given the permission bits of the library, see VUSK_FILE_MODE.

When standard input can't be read to its end, the file can't be written, or
SIGINT or SIGTERM comes, --on-failure decides. Both truncate and delete also
destroy what the file held before.

Exit status: 0 all was written; 75 the lock was not obtained in time; 1 any other
failure; 2 wrong usage. A signal ends it as a signal does.

Example: replace a settings file that other programs read under its lock
  wfs put --truncate settings.txt < new-settings.txt)",
    DefinePut};

} // namespace Wfs
