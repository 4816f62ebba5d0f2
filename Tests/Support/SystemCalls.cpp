/// \file
/// \brief The interposed functions: each is the program's own definition of a system's function, and passes the call on.
///
/// Rules for whoever adds one: no function here may be called by its C name; nothing may be needed that is made by a
/// dynamic initialiser, since the start-up code of libraries calls these functions before the program's initialisers
/// have run.

#include <Tests/Support/CallText.h>
#include <Tests/Support/Interposition.h>
#include <Tests/Support/Next.h>

#include <algorithm>
#include <string>
#include <string_view>

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <ctime>

#include <fcntl.h>
#include <glob.h>
#include <pthread.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>
#include <utime.h>

namespace TestSupport {
namespace {

using CallText::Octal;
using CallText::Quoted;

void SetDescriptor(Call& call, int fd) {
    call.fd = fd;
    call.hasDescriptor = true;
}

void SetStream(Call& call, FILE* stream) {
    call.stream = stream;
    SetDescriptor(call, stream == nullptr ? -1 : ::fileno(stream));
}

// The test framework's own output goes there, and a null stream means all of them.
bool IsStandardOutput(FILE* stream) {
    return stream == stdout || stream == stderr || stream == nullptr;
}

void SetPath(Call& call, char const* path) {
    call.path = path == nullptr ? "" : path;
    call.details = Quoted(path);
}

void SetSize(Call& call, void const* data, unsigned long size) {
    call.data = const_cast<void*>(data);
    call.size = size;
    call.details = std::to_string(size);
}

std::string TimeText(timespec const& time) {
    return std::to_string(time.tv_sec) + "s " + std::to_string(time.tv_nsec) + "ns";
}

template <class Object>
auto Unnamed(Object* object) {
    return [object](Call& call) { call.data = object; };
}

template <class Object>
auto WithAttributes(Object* object, void const* attributes) {
    return [=](Call& call) {
        call.data = object;
        call.details = attributes == nullptr ? "null" : "attributes";
    };
}

} // namespace

// The labels let the definitions do without the attributes and exception specifications of the system's declarations.
#define INTERPOSE(result, name, ...)                                                                                   \
    extern "C" result Interposed_##name(__VA_ARGS__) __asm__(#name);                                                   \
    static Next<result(__VA_ARGS__)> next_##name(#name);                                                               \
    extern "C" result Interposed_##name(__VA_ARGS__)

// Descriptors and paths

INTERPOSE(int, open, char const* path, int flags, ...) {
    mode_t mode = 0;
    if ((flags & O_CREAT) != 0) {
        va_list arguments;
        va_start(arguments, flags);
        mode = va_arg(arguments, mode_t);
        va_end(arguments);
    }
    return Observe<int>(
        "open", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetPath(call, path);
            call.flags = flags;
            call.mode = mode;
            call.details += ", " + CallText::OpenFlags(flags) + ((flags & O_CREAT) != 0 ? ", " + Octal(mode) : "");
        },
        [&](unsigned long) { return next_open(path, flags, mode); });
}

INTERPOSE(int, close, int fd) {
    return Observe<int>(
        "close", FailsWith::MINUS_ONE, [&](Call& call) { SetDescriptor(call, fd); },
        [&](unsigned long) { return next_close(fd); });
}

INTERPOSE(ssize_t, read, int fd, void* data, size_t size) {
    return Observe<ssize_t>(
        "read", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetDescriptor(call, fd);
            SetSize(call, data, size);
        },
        [&](unsigned long limit) { return next_read(fd, data, std::min(size, limit)); });
}

INTERPOSE(ssize_t, write, int fd, void const* data, size_t size) {
    return Observe<ssize_t>(
        "write", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetDescriptor(call, fd);
            SetSize(call, data, size);
        },
        [&](unsigned long limit) { return next_write(fd, data, std::min(size, limit)); });
}

INTERPOSE(off_t, lseek, int fd, off_t offset, int whence) {
    return Observe<off_t>(
        "lseek", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetDescriptor(call, fd);
            call.offset = offset;
            call.whence = whence;
            call.details = std::to_string(offset) + ", " + CallText::Whence(whence);
        },
        [&](unsigned long) { return next_lseek(fd, offset, whence); });
}

INTERPOSE(int, fstat, int fd, struct stat* status) {
    return Observe<int>(
        "fstat", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetDescriptor(call, fd);
            call.data = status;
        },
        [&](unsigned long) { return next_fstat(fd, status); });
}

INTERPOSE(int, stat, char const* path, struct stat* status) {
    return Observe<int>(
        "stat", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetPath(call, path);
            call.data = status;
        },
        [&](unsigned long) { return next_stat(path, status); });
}

INTERPOSE(int, fsync, int fd) {
    return Observe<int>(
        "fsync", FailsWith::MINUS_ONE, [&](Call& call) { SetDescriptor(call, fd); },
        [&](unsigned long) { return next_fsync(fd); });
}

INTERPOSE(int, ftruncate, int fd, off_t length) {
    return Observe<int>(
        "ftruncate", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetDescriptor(call, fd);
            call.offset = length;
            call.details = std::to_string(length);
        },
        [&](unsigned long) { return next_ftruncate(fd, length); });
}

INTERPOSE(int, fcntl, int fd, int command, ...) {
    // As in the C library itself: whatever the command takes has the size of a pointer at most.
    va_list arguments;
    va_start(arguments, command);
    void* const argument = va_arg(arguments, void*);
    va_end(arguments);
    return Observe<int>(
        "fcntl", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetDescriptor(call, fd);
            call.command = command;
            if (CallText::IsLockCommand(command)) {
                call.lock = *static_cast<struct flock const*>(argument);
                call.data = argument;
            }
            call.details = CallText::Control(command, argument);
        },
        [&](unsigned long) { return next_fcntl(fd, command, argument); });
}

INTERPOSE(int, rename, char const* from, char const* to) {
    return Observe<int>(
        "rename", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetPath(call, from);
            call.secondPath = to;
            call.details += ", " + Quoted(to);
        },
        [&](unsigned long) { return next_rename(from, to); });
}

INTERPOSE(int, unlink, char const* path) {
    return Observe<int>(
        "unlink", FailsWith::MINUS_ONE, [&](Call& call) { SetPath(call, path); },
        [&](unsigned long) { return next_unlink(path); });
}

INTERPOSE(int, rmdir, char const* path) {
    return Observe<int>(
        "rmdir", FailsWith::MINUS_ONE, [&](Call& call) { SetPath(call, path); },
        [&](unsigned long) { return next_rmdir(path); });
}

INTERPOSE(int, chdir, char const* path) {
    return Observe<int>(
        "chdir", FailsWith::MINUS_ONE, [&](Call& call) { SetPath(call, path); },
        [&](unsigned long) { return next_chdir(path); });
}

INTERPOSE(int, mkdir, char const* path, mode_t mode) {
    return Observe<int>(
        "mkdir", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetPath(call, path);
            call.mode = mode;
            call.details += ", " + Octal(mode);
        },
        [&](unsigned long) { return next_mkdir(path, mode); });
}

INTERPOSE(int, chmod, char const* path, mode_t mode) {
    return Observe<int>(
        "chmod", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetPath(call, path);
            call.mode = mode;
            call.details += ", " + Octal(mode);
        },
        [&](unsigned long) { return next_chmod(path, mode); });
}

INTERPOSE(int, mkfifo, char const* path, mode_t mode) {
    return Observe<int>(
        "mkfifo", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetPath(call, path);
            call.mode = mode;
            call.details += ", " + Octal(mode);
        },
        [&](unsigned long) { return next_mkfifo(path, mode); });
}

INTERPOSE(int, chown, char const* path, uid_t owner, gid_t group) {
    return Observe<int>(
        "chown", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetPath(call, path);
            call.owner = owner;
            call.group = group;
            call.details += ", " + std::to_string(owner) + ", " + std::to_string(group);
        },
        [&](unsigned long) { return next_chown(path, owner, group); });
}

INTERPOSE(int, utime, char const* path, utimbuf const* times) {
    return Observe<int>(
        "utime", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetPath(call, path);
            call.data = const_cast<utimbuf*>(times);
            call.details += times == nullptr
                                ? std::string(", null")
                                : ", " + std::to_string(times->actime) + ", " + std::to_string(times->modtime);
        },
        [&](unsigned long) { return next_utime(path, times); });
}

INTERPOSE(int, access, char const* path, int mode) {
    return Observe<int>(
        "access", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetPath(call, path);
            call.mode = static_cast<unsigned int>(mode);
            call.details += ", " + CallText::AccessMode(mode);
        },
        [&](unsigned long) { return next_access(path, mode); });
}

INTERPOSE(mode_t, umask, mode_t mode) {
    return Observe<mode_t>(
        "umask", FailsWith::NEVER,
        [&](Call& call) {
            call.mode = mode;
            call.details = Octal(mode);
        },
        [&](unsigned long) { return next_umask(mode); });
}

INTERPOSE(char*, getcwd, char* buffer, size_t size) {
    return Observe<char*>(
        "getcwd", FailsWith::NULL_POINTER, [&](Call& call) { SetSize(call, buffer, size); },
        [&](unsigned long) { return next_getcwd(buffer, size); });
}

INTERPOSE(char*, tempnam, char const* directory, char const* prefix) {
    return Observe<char*>(
        "tempnam", FailsWith::NULL_POINTER,
        [&](Call& call) {
            SetPath(call, directory);
            call.secondPath = prefix == nullptr ? "" : prefix;
            call.details += ", " + Quoted(prefix);
        },
        [&](unsigned long) { return next_tempnam(directory, prefix); });
}

INTERPOSE(char*, getenv, char const* name) {
    return Observe<char*>(
        "getenv", FailsWith::NEVER, [&](Call& call) { SetPath(call, name); },
        [&](unsigned long) { return next_getenv(name); });
}

// The GNU form; where the other one is the system's, nobody calls this.
INTERPOSE(char*, strerror_r, int error, char* buffer, size_t size) {
    return Observe<char*>(
        "strerror_r", FailsWith::NEVER, [&](Call& call) { SetSize(call, buffer, size); },
        [&](unsigned long) { return next_strerror_r(error, buffer, size); });
}

INTERPOSE(int, glob, char const* pattern, int flags, int (*onError)(char const*, int), glob_t* result) {
    return Observe<int>(
        "glob", FailsWith::ERROR_NUMBER,
        [&](Call& call) {
            SetPath(call, pattern);
            call.flags = flags;
            call.data = result;
            call.details += ", " + std::to_string(flags) + (onError == nullptr ? "" : ", handler");
        },
        [&](unsigned long) { return next_glob(pattern, flags, onError, result); });
}

INTERPOSE(void, globfree, glob_t* result) {
    Observe<int>("globfree", FailsWith::NEVER, Unnamed(result), [&](unsigned long) {
        next_globfree(result);
        return 0;
    });
}

// Streams

INTERPOSE(FILE*, fopen, char const* path, char const* mode) {
    return Observe<FILE*>(
        "fopen", FailsWith::NULL_POINTER,
        [&](Call& call) {
            SetPath(call, path);
            call.details += ", " + Quoted(mode);
        },
        [&](unsigned long) { return next_fopen(path, mode); });
}

INTERPOSE(int, fclose, FILE* stream) {
    return Observe<int>(
        "fclose", FailsWith::MINUS_ONE, [&](Call& call) { SetStream(call, stream); },
        [&](unsigned long) { return next_fclose(stream); });
}

INTERPOSE(size_t, fread, void* data, size_t size, size_t count, FILE* stream) {
    return Observe<size_t>(
        "fread", FailsWith::NO_ITEMS,
        [&](Call& call) {
            SetStream(call, stream);
            SetSize(call, data, count);
            call.itemSize = size;
            call.details = std::to_string(size) + ", " + call.details;
        },
        [&](unsigned long limit) { return next_fread(data, size, std::min(count, limit), stream); });
}

INTERPOSE(size_t, fwrite, void const* data, size_t size, size_t count, FILE* stream) {
    if (IsStandardOutput(stream)) {
        return next_fwrite(data, size, count, stream);
    }
    return Observe<size_t>(
        "fwrite", FailsWith::NO_ITEMS,
        [&](Call& call) {
            SetStream(call, stream);
            SetSize(call, data, count);
            call.itemSize = size;
            call.details = std::to_string(size) + ", " + call.details;
        },
        [&](unsigned long limit) { return next_fwrite(data, size, std::min(count, limit), stream); });
}

INTERPOSE(char*, fgets, char* buffer, int size, FILE* stream) {
    return Observe<char*>(
        "fgets", FailsWith::NULL_POINTER,
        [&](Call& call) {
            SetStream(call, stream);
            SetSize(call, buffer, static_cast<unsigned long>(size));
        },
        [&](unsigned long) { return next_fgets(buffer, size, stream); });
}

INTERPOSE(int, fflush, FILE* stream) {
    if (IsStandardOutput(stream)) {
        return next_fflush(stream);
    }
    return Observe<int>(
        "fflush", FailsWith::MINUS_ONE, [&](Call& call) { SetStream(call, stream); },
        [&](unsigned long) { return next_fflush(stream); });
}

INTERPOSE(int, fseeko, FILE* stream, off_t offset, int whence) {
    return Observe<int>(
        "fseeko", FailsWith::MINUS_ONE,
        [&](Call& call) {
            SetStream(call, stream);
            call.offset = offset;
            call.whence = whence;
            call.details = std::to_string(offset) + ", " + CallText::Whence(whence);
        },
        [&](unsigned long) { return next_fseeko(stream, offset, whence); });
}

INTERPOSE(off_t, ftello, FILE* stream) {
    return Observe<off_t>(
        "ftello", FailsWith::MINUS_ONE, [&](Call& call) { SetStream(call, stream); },
        [&](unsigned long) { return next_ftello(stream); });
}

// Signals and time

INTERPOSE(int, sigaction, int signal, struct sigaction const* action, struct sigaction* previous) {
    return Observe<int>(
        "sigaction", FailsWith::MINUS_ONE,
        [&](Call& call) {
            call.data = previous;
            if (action != nullptr) {
                call.action = *action;
            }
            call.details = CallText::SignalAction(signal, action);
        },
        [&](unsigned long) { return next_sigaction(signal, action, previous); });
}

INTERPOSE(unsigned int, sleep, unsigned int seconds) {
    return Observe<unsigned int>(
        "sleep", FailsWith::TIME_LEFT,
        [&](Call& call) {
            call.size = seconds;
            call.details = std::to_string(seconds);
        },
        [&](unsigned long) { return next_sleep(seconds); });
}

INTERPOSE(int, nanosleep, timespec const* time, timespec* left) {
    return Observe<int>(
        "nanosleep", FailsWith::MINUS_ONE,
        [&](Call& call) {
            call.data = left;
            call.details = TimeText(*time);
            if (left != nullptr) {
                *left = *time; // stays when a rule lets the call fail
            }
        },
        [&](unsigned long) { return next_nanosleep(time, left); });
}

INTERPOSE(int, clock_nanosleep, clockid_t clock, int flags, timespec const* time, timespec* left) {
    return Observe<int>(
        "clock_nanosleep", FailsWith::ERROR_NUMBER,
        [&](Call& call) {
            call.data = left;
            call.flags = flags;
            call.details = std::to_string(clock) + ", " + std::to_string(flags) + ", " + TimeText(*time);
            if (left != nullptr) {
                *left = *time; // stays when a rule lets the call fail
            }
        },
        [&](unsigned long) { return next_clock_nanosleep(clock, flags, time, left); });
}

INTERPOSE(int, gettimeofday, timeval* time, void* zone) {
    return Observe<int>("gettimeofday", FailsWith::MINUS_ONE, Unnamed(time), [&](unsigned long) {
        return next_gettimeofday(time, zone);
    });
}

INTERPOSE(int, clock_gettime, clockid_t clock, timespec* time) {
    return Observe<int>("clock_gettime", FailsWith::MINUS_ONE, Unnamed(time), [&](unsigned long) {
        return next_clock_gettime(clock, time);
    });
}

// Mutexes and condition variables

INTERPOSE(int, pthread_mutex_init, pthread_mutex_t* mutex, pthread_mutexattr_t const* attributes) {
    return Observe<int>(
        "pthread_mutex_init", FailsWith::ERROR_NUMBER, WithAttributes(mutex, attributes),
        [&](unsigned long) { return next_pthread_mutex_init(mutex, attributes); });
}

INTERPOSE(int, pthread_mutex_lock, pthread_mutex_t* mutex) {
    return Observe<int>("pthread_mutex_lock", FailsWith::ERROR_NUMBER, Unnamed(mutex), [&](unsigned long) {
        return next_pthread_mutex_lock(mutex);
    });
}

INTERPOSE(int, pthread_mutex_unlock, pthread_mutex_t* mutex) {
    return Observe<int>("pthread_mutex_unlock", FailsWith::ERROR_NUMBER, Unnamed(mutex), [&](unsigned long) {
        return next_pthread_mutex_unlock(mutex);
    });
}

INTERPOSE(int, pthread_mutex_destroy, pthread_mutex_t* mutex) {
    return Observe<int>("pthread_mutex_destroy", FailsWith::ERROR_NUMBER, Unnamed(mutex), [&](unsigned long) {
        return next_pthread_mutex_destroy(mutex);
    });
}

INTERPOSE(int, pthread_cond_init, pthread_cond_t* condition, pthread_condattr_t const* attributes) {
    return Observe<int>(
        "pthread_cond_init", FailsWith::ERROR_NUMBER, WithAttributes(condition, attributes),
        [&](unsigned long) { return next_pthread_cond_init(condition, attributes); });
}

INTERPOSE(int, pthread_cond_wait, pthread_cond_t* condition, pthread_mutex_t* mutex) {
    return Observe<int>("pthread_cond_wait", FailsWith::ERROR_NUMBER, Unnamed(condition), [&](unsigned long) {
        return next_pthread_cond_wait(condition, mutex);
    });
}

INTERPOSE(int, pthread_cond_timedwait, pthread_cond_t* condition, pthread_mutex_t* mutex, timespec const* end) {
    return Observe<int>(
        "pthread_cond_timedwait", FailsWith::ERROR_NUMBER,
        [&](Call& call) {
            call.data = condition;
            call.deadline = *end;
        },
        [&](unsigned long) { return next_pthread_cond_timedwait(condition, mutex, end); });
}

INTERPOSE(int, pthread_cond_signal, pthread_cond_t* condition) {
    return Observe<int>("pthread_cond_signal", FailsWith::ERROR_NUMBER, Unnamed(condition), [&](unsigned long) {
        return next_pthread_cond_signal(condition);
    });
}

INTERPOSE(int, pthread_cond_destroy, pthread_cond_t* condition) {
    return Observe<int>("pthread_cond_destroy", FailsWith::ERROR_NUMBER, Unnamed(condition), [&](unsigned long) {
        return next_pthread_cond_destroy(condition);
    });
}

#ifdef __GLIBC__

// What _FORTIFY_SOURCE calls instead. A size beyond the buffer's is left to the original, which ends the process.

INTERPOSE(int, __open_2, char const* path, int flags) {
    return (flags & O_CREAT) != 0 ? next___open_2(path, flags) : Interposed_open(path, flags);
}

INTERPOSE(ssize_t, __read_chk, int fd, void* data, size_t size, size_t room) {
    return size > room ? next___read_chk(fd, data, size, room) : Interposed_read(fd, data, size);
}

INTERPOSE(char*, __getcwd_chk, char* buffer, size_t size, size_t room) {
    return size > room ? next___getcwd_chk(buffer, size, room) : Interposed_getcwd(buffer, size);
}

INTERPOSE(size_t, __fread_chk, void* data, size_t room, size_t size, size_t count, FILE* stream) {
    bool const isTooMuch = size != 0 && count > room / size;
    return isTooMuch ? next___fread_chk(data, room, size, count, stream) : Interposed_fread(data, size, count, stream);
}

INTERPOSE(char*, __fgets_chk, char* buffer, size_t room, int size, FILE* stream) {
    bool const isTooMuch = size > 0 && static_cast<size_t>(size) > room;
    return isTooMuch ? next___fgets_chk(buffer, room, size, stream) : Interposed_fgets(buffer, size, stream);
}

#endif

bool IsInterposed(std::string_view function) {
    return (' ' + std::string(Recorder::EVERY_CALL) + " clock_gettime strerror_r ")
               .find(' ' + std::string(function) + ' ') != std::string::npos;
}

#define FILE_CALL_NAMES                                                                                                \
    "open close read write lseek fstat stat fsync ftruncate fcntl rename unlink rmdir chdir mkdir chmod mkfifo chown " \
    "utime access umask getcwd tempnam glob globfree fopen fclose fread fwrite fgets fflush fseeko ftello sigaction "  \
    "sleep "                                                                                                           \
    "nanosleep clock_nanosleep"
#define THREAD_CALL_NAMES                                                                                              \
    "pthread_mutex_init pthread_mutex_lock pthread_mutex_unlock pthread_mutex_destroy pthread_cond_init "              \
    "pthread_cond_wait pthread_cond_timedwait pthread_cond_signal pthread_cond_destroy gettimeofday"

char const* const Recorder::FILE_CALLS = FILE_CALL_NAMES;
char const* const Recorder::THREAD_CALLS = THREAD_CALL_NAMES;
char const* const Recorder::EVERY_CALL = FILE_CALL_NAMES " " THREAD_CALL_NAMES " getenv";

} // namespace TestSupport
