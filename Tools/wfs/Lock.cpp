// The verb that holds a lock for another program.

#include <FileSystem/File.h>
#include <PDCHeader/PDCunistd.h>
#include <Tools/wfs/Command.h>
#include <Tools/wfs/Paths.h>
#include <Tools/wfs/Verb.h>
#include <Tools/wfs/Waiting.h>

#include <csignal>
#include <memory>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <system_error>
#include <vector>

extern char** environ; // NOLINT(readability-redundant-declaration): not every system declares it

namespace Wfs {
namespace {

struct LockOptions {
    std::string path;
    std::vector<std::string> command;
    Waiting waiting;
    bool isShared = false;
};

/// A file that holds a record lock until it is closed.
class LockedFile {
public:
    LockedFile(wchar_t const* path, LockOptions const& options)
        // The exclusive lock needs a file open for writing, which is created when missing and otherwise left alone.
        : fd_(File::OpenDescriptor(
              path, options.isShared ? File::OPEN_READ : File::OPEN_WRITE_CREATE, File::SHARE_IGNORED)) {
        try {
            TakeLock(options.waiting, [&](bool dontWait) {
                options.isShared ? File::ReadLock(fd_, !dontWait) : File::WriteLock(fd_, !dontWait);
                return true;
            });
        } catch (...) {
            WPDCHeader::close(fd_);
            throw;
        }
    }
    LockedFile(LockedFile const&) = delete;
    LockedFile& operator=(LockedFile const&) = delete;
    ~LockedFile() { WPDCHeader::close(fd_); }

private:
    using File = WFileSystem::File;

    int fd_;
};

volatile std::sig_atomic_t gCommand = 0;

void PassOnToCommand(int signal) {
    ::kill(gCommand, signal);
}

/// What becomes of signals from before the command's start to its end. Those of the keyboard reach the command by
/// themselves and are ignored; the others are passed on. So the lock outlives the command in any case but SIGKILL.
class SignalsForCommand {
public:
    SignalsForCommand() {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &mask_); // until there is a command to pass signals on to
        ::sigemptyset(&ignored_);
        Set(SIGINT, SIG_IGN, interrupt_);
        Set(SIGQUIT, SIG_IGN, quit_);
        Set(SIGTERM, PassOnToCommand, termination_);
        Set(SIGHUP, PassOnToCommand, hangUp_);
    }
    SignalsForCommand(SignalsForCommand const&) = delete;
    SignalsForCommand& operator=(SignalsForCommand const&) = delete;
    ~SignalsForCommand() {
        ::sigaction(SIGINT, &interrupt_, nullptr);
        ::sigaction(SIGQUIT, &quit_, nullptr);
        ::sigaction(SIGTERM, &termination_, nullptr);
        ::sigaction(SIGHUP, &hangUp_, nullptr);
        ::pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
    }

    /// Starts the command with the signals as they were before.
    /// \return an error number, or 0
    int Start(char* const* arguments, pid_t& command) const {
        posix_spawnattr_t attributes;
        ::posix_spawnattr_init(&attributes);
        ::posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
        ::posix_spawnattr_setsigmask(&attributes, &mask_);
        ::posix_spawnattr_setsigdefault(&attributes, &ignored_);
        int const error = ::posix_spawnp(&command, arguments[0], nullptr, &attributes, arguments, environ);
        ::posix_spawnattr_destroy(&attributes);
        if (error == 0) {
            gCommand = command;
            ::pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
        }
        return error;
    }

private:
    void Set(int signal, void (*handler)(int), struct sigaction& previous) {
        struct sigaction action = {};
        action.sa_handler = handler;
        ::sigaction(signal, nullptr, &previous);
        if (previous.sa_handler != SIG_IGN) {
            ::sigaction(signal, &action, nullptr);
            ::sigaddset(&ignored_, signal);
        }
    }

    sigset_t mask_ = {};
    sigset_t ignored_ = {};
    struct sigaction interrupt_ = {};
    struct sigaction quit_ = {};
    struct sigaction termination_ = {};
    struct sigaction hangUp_ = {};
};

/// \return as WaitForEnd
int RunCommand(std::vector<std::string> const& command) {
    std::vector<char*> const arguments = ArgumentsOf(command);
    pid_t child = 0;
    {
        SignalsForCommand const signals;
        int const error = signals.Start(arguments.data(), child);
        if (error != 0) {
            throw Failure(
                "'" + command[0] + "' can't be started: " + std::generic_category().message(error), NOT_STARTED);
        }
        // The process stays as it is, so that no signal is passed on to another one that gets its number.
        siginfo_t end;
        WPDCHeader::RetryWhileInterrupted(
            [&] { return ::waitid(P_PID, static_cast<id_t>(child), &end, WEXITED | WNOWAIT); });
    }
    return WaitForEnd(child);
}

ExitStatus Lock(LockOptions const& options) {
    int commandStatus = SUCCESS;
    ExitStatus const status = ForEachPath({options.path}, [&](wchar_t const* path) {
        LockedFile const file(path, options);
        commandStatus = RunCommand(options.command);
    });
    return status == SUCCESS ? static_cast<ExitStatus>(commandStatus) : status;
}

Work DefineLock(CLI::App& verb) {
    auto const options = std::make_shared<LockOptions>();
    AddPath(verb, "PATH", options->path, "The file, created when missing unless --shared");
    AddCommand(verb, options->command);
    verb.add_flag("--shared", options->isShared, "Take the shared lock instead of the exclusive one")->option_text(" ");
    options->waiting.AddOptions(verb);
    return [options] { return Lock(*options); };
}

} // namespace

Verb const LOCK = {
    "lock", "Run a command while holding a file's record lock",
    R"(The file is neither read nor changed. Without --no-wait and --wait it waits until
the lock is granted. --wait looks at once, every 5 seconds, and at the end of the
time.

The lock belongs to this program, and the command does not inherit it: a command
that asks for a lock on the same file waits for ever. SIGTERM and SIGHUP are
passed on to the command, and the lock is dropped after its end.

Exit status: that of the command, or 128 and the number of the signal that ended
it, or 127 where it can't be started; 75 the lock was not obtained in time; 1 any
other failure; 2 wrong usage.

Example: let only one backup run at a time
  wfs lock --no-wait /run/lock/backup -- rsync -a /home/ /backup/)",
    DefineLock};

} // namespace Wfs
