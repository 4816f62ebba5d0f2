#include <Tools/wfs/Waiting.h>

#include <Base/System.h>
#include <Tools/wfs/Failure.h>

#include <cerrno>
#include <string>

namespace Wfs {
namespace {

/// An option's number in decimal digits. CLI11 by itself would take "010" for eight.
std::string CheckMilliseconds(std::string const& text) {
    constexpr std::size_t MOST_DIGITS = 18;
    bool const isNumber =
        !text.empty() && text.size() <= MOST_DIGITS && text.find_first_not_of("0123456789") == std::string::npos;
    return isNumber ? "" : "'" + ToUTF8(text) + "' is not a number of milliseconds";
}

} // namespace

void Waiting::AddOptions(CLI::App& verb) {
    CLI::Option* const noWait =
        verb.add_flag("--no-wait", isForbidden, "Fail with status 75 when another process holds the lock");
    noWait->option_text(" ");
    verb.add_option_function<std::string>(
            "--wait", [this](std::string const& text) { milliseconds = std::stoul(text); },
            "Try for so many milliseconds, then fail with status 75")
        ->option_text("MS")
        ->check(CheckMilliseconds)
        ->excludes(noWait);
}

ReadLock::Guard ReadLock::Take(WFileSystem::ReadableFile& file, Waiting const& waiting) {
    using WFileSystem::ReadableFile;
    if (waiting.isForbidden) {
        return Guard(std::in_place_type<ReadableFile::ReadSmartLock_NoWait>, file);
    }
    if (waiting.milliseconds) {
        return Guard(std::in_place_type<ReadableFile::ReadSmartLock_Wait>, file, *waiting.milliseconds);
    }
    return Guard(std::in_place_type<ReadableFile::ReadSmartLock>, file);
}

ReadLock::ReadLock(WFileSystem::ReadableFile& file, Waiting const& waiting) : guard_(Take(file, waiting)) {
    unsigned int const error = WBase::GetLastError();
    if (std::visit([](auto const& guard) { return guard.IsLocked(); }, guard_)) {
        return;
    }
    // A guard that does not wait stays without the lock in both cases, and only the last system call tells them apart.
    if (error == ENOTSUP) {
        throw Failure("The file system does not support record locks.");
    }
    throw Failure("Another process holds the record lock.", LOCK_NOT_OBTAINED);
}

} // namespace Wfs
