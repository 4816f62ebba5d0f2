#include <Tools/wfs/Waiting.h>

#include <Base/Message.h>
#include <Base/System.h>
#include <Tools/wfs/Failure.h>

#include <algorithm>
#include <cerrno>
#include <string>

namespace Wfs {
namespace {

[[noreturn]] void ThrowHeldElsewhere() {
    throw Failure("Another process holds the record lock.", LOCK_NOT_OBTAINED);
}

[[noreturn]] void ThrowNoLocks() {
    throw Failure("The file system does not support record locks.");
}

/// True where the message says that another process holds a lock.
bool IsHeldElsewhere(WBase::Message const& message) {
    // A report has the system's error in the unknown domain, a wrapped message in its cause.
    int const report = message.FindID(WBase::MESSAGE_DOMAIN_UNKNOWN).value_or(0);
    int const error = message.FindID(WBase::MESSAGE_DOMAIN_ERRNO).value_or(report);
    return error == EAGAIN || error == EACCES;
}

/// \return false: another process holds the lock
bool TryToLock(std::function<bool(bool dontWait)> const& lock) {
    try {
        if (!lock(true)) {
            ThrowNoLocks();
        }
        return true;
    } catch (WBase::Message const& message) {
        if (!IsHeldElsewhere(message)) {
            throw;
        }
        return false;
    }
}

} // namespace

std::string CheckNumber(std::string const& text) {
    constexpr std::size_t MOST_DIGITS = 18;
    bool const isNumber =
        !text.empty() && text.size() <= MOST_DIGITS && text.find_first_not_of("0123456789") == std::string::npos;
    return isNumber ? "" : "'" + ToUTF8(text) + "' is not a number";
}

CLI::Option& AddMilliseconds(CLI::App& verb, char const* description, std::optional<unsigned long>& milliseconds) {
    CLI::Option* const option = verb.add_option_function<std::string>(
        "--wait", [&milliseconds](std::string const& text) { milliseconds = std::stoul(text); }, description);
    return *option->option_text("MS")->check(CheckNumber);
}

void Waiting::AddOptions(CLI::App& verb) {
    CLI::Option* const noWait =
        verb.add_flag("--no-wait", isForbidden, "Fail with status 75 when another process holds the lock");
    noWait->option_text(" ");
    AddMilliseconds(verb, "Try for so many milliseconds, then fail with status 75", milliseconds).excludes(noWait);
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
        ThrowNoLocks();
    }
    ThrowHeldElsewhere();
}

void TakeLock(Waiting const& waiting, std::function<bool(bool dontWait)> const& lock) {
    if (!waiting.isForbidden && !waiting.milliseconds) {
        lock(false);
        return;
    }
    // At the same moments as the library's guards try.
    constexpr unsigned long LONGEST_SLICE = 5000;
    unsigned long remaining = waiting.milliseconds.value_or(0);
    while (!TryToLock(lock)) {
        if (remaining == 0) {
            ThrowHeldElsewhere();
        }
        unsigned long const slice = std::min(remaining, LONGEST_SLICE);
        WBase::Sleep(slice);
        remaining -= slice;
    }
}

} // namespace Wfs
