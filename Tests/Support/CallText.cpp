#include <Tests/Support/CallText.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <initializer_list>
#include <utility>

#include <unistd.h>

namespace TestSupport::CallText {
namespace {

using NamedBits = std::initializer_list<std::pair<int, char const*>>;

std::string Formatted(char const* format, unsigned int number) {
    char text[32];
    std::snprintf(text, sizeof text, format, number);
    return text;
}

// What is left of the bits follows in hexadecimal.
std::string AppendBits(std::string text, int bits, NamedBits names) {
    auto const append = [&](std::string const& name) { text += (text.empty() ? "" : "|") + name; };
    for (auto const& [bit, name] : names) {
        if ((bits & bit) == bit) {
            append(name);
            bits &= ~bit;
        }
    }
    if (bits != 0) {
        append(Formatted("%#x", static_cast<unsigned int>(bits)));
    }
    return text;
}

std::string NameOf(int value, NamedBits names) {
    for (auto const& [number, name] : names) {
        if (number == value) {
            return name;
        }
    }
    return std::to_string(value);
}

} // namespace

std::string Quoted(char const* text) {
    return text == nullptr ? "null" : '"' + std::string(text) + '"';
}

std::string Octal(unsigned int mode) {
    return Formatted("%#04o", mode);
}

std::string OpenFlags(int flags) {
    return AppendBits(
        NameOf(flags & O_ACCMODE, {{O_RDONLY, "O_RDONLY"}, {O_WRONLY, "O_WRONLY"}, {O_RDWR, "O_RDWR"}}),
        flags & ~O_ACCMODE,
        {{O_CREAT, "O_CREAT"},
         {O_EXCL, "O_EXCL"},
         {O_TRUNC, "O_TRUNC"},
         {O_APPEND, "O_APPEND"},
         {O_NOCTTY, "O_NOCTTY"},
         {O_NONBLOCK, "O_NONBLOCK"},
         {O_DIRECTORY, "O_DIRECTORY"},
         {O_NOFOLLOW, "O_NOFOLLOW"},
         {O_SYNC, "O_SYNC"},
         {O_CLOEXEC, "O_CLOEXEC"}});
}

std::string AccessMode(int mode) {
    return mode == F_OK ? "F_OK" : AppendBits("", mode, {{R_OK, "R_OK"}, {W_OK, "W_OK"}, {X_OK, "X_OK"}});
}

std::string Whence(int whence) {
    return NameOf(whence, {{SEEK_SET, "SEEK_SET"}, {SEEK_CUR, "SEEK_CUR"}, {SEEK_END, "SEEK_END"}});
}

std::string Lock(struct flock const& lock) {
    std::string text = NameOf(lock.l_type, {{F_RDLCK, "F_RDLCK"}, {F_WRLCK, "F_WRLCK"}, {F_UNLCK, "F_UNLCK"}}) + ' ';
    if (lock.l_whence != SEEK_SET) {
        text += Whence(lock.l_whence) + ' ';
    }
    text += std::to_string(lock.l_start) + '+' + std::to_string(lock.l_len);
    if (lock.l_pid != 0) {
        text += lock.l_pid == ::getpid() ? " self" : " " + std::to_string(lock.l_pid);
    }
    return text;
}

bool IsLockCommand(int command) {
    return command == F_SETLK || command == F_SETLKW || command == F_GETLK;
}

std::string Control(int command, void const* argument) {
    std::string name = NameOf(
        command, {{F_GETFD, "F_GETFD"},
                  {F_SETFD, "F_SETFD"},
                  {F_GETFL, "F_GETFL"},
                  {F_SETFL, "F_SETFL"},
                  {F_GETLK, "F_GETLK"},
                  {F_SETLK, "F_SETLK"},
                  {F_SETLKW, "F_SETLKW"},
                  {F_DUPFD, "F_DUPFD"},
                  {F_DUPFD_CLOEXEC, "F_DUPFD_CLOEXEC"}});
    if (IsLockCommand(command)) {
        return name + ", " + Lock(*static_cast<struct flock const*>(argument));
    }
    int const number = static_cast<int>(reinterpret_cast<std::intptr_t>(argument));
    switch (command) {
    case F_GETFD:
    case F_GETFL:
        return name;
    case F_SETFD:
        return name + ", " + (number == 0 ? "0" : AppendBits("", number, {{FD_CLOEXEC, "FD_CLOEXEC"}}));
    case F_SETFL:
        return name + ", " + OpenFlags(number);
    default:
        return name + ", " + std::to_string(number);
    }
}

std::string SignalAction(int signal, struct sigaction const* action) {
    std::string const text =
        NameOf(signal, {{SIGPIPE, "SIGPIPE"}, {SIGALRM, "SIGALRM"}, {SIGINT, "SIGINT"}, {SIGTERM, "SIGTERM"}}) + ", ";
    if (action == nullptr) {
        return text + "null";
    }
    if ((action->sa_flags & SA_SIGINFO) != 0) {
        return text + "handler";
    }
    return text + (action->sa_handler == SIG_IGN ? "SIG_IGN" : action->sa_handler == SIG_DFL ? "SIG_DFL" : "handler");
}

std::string ErrorName(int error) {
#ifdef __GLIBC__
    if (char const* const name = ::strerrorname_np(error)) {
        return name;
    }
#endif
    return std::to_string(error);
}

} // namespace TestSupport::CallText
