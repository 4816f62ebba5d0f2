#ifndef WFILESYSTEM_TESTS_SUPPORT_CALLTEXT_H
#define WFILESYSTEM_TESTS_SUPPORT_CALLTEXT_H

/// \file
/// \brief How the arguments of observed calls are shown; not for tests.

#include <string>

#include <csignal>

#include <fcntl.h>

namespace TestSupport::CallText {

/// The text in quotes, or "null".
std::string Quoted(char const* text);

/// "0644"
std::string Octal(unsigned int mode);

/// "O_RDWR|O_CREAT": the access mode, then the flags in a fixed order, then unknown bits in hexadecimal.
std::string OpenFlags(int flags);

/// "R_OK|W_OK"
std::string AccessMode(int mode);

/// "SEEK_SET"
std::string Whence(int whence);

/// "F_RDLCK 0+0", start and length. In front of the start stands the whence unless it is SEEK_SET; at the end the
/// process id, "self" for the own one, unless it is 0.
std::string Lock(struct flock const& lock);

/// Whether the command of `fcntl` takes a lock record.
bool IsLockCommand(int command);

/// "F_SETFD, FD_CLOEXEC"
std::string Control(int command, void const* argument);

/// "SIGPIPE, SIG_IGN"; a null action is "null", any other function "handler".
std::string SignalAction(int signal, struct sigaction const* action);

/// "EINTR", or the number where the system has no name for it.
std::string ErrorName(int error);

} // namespace TestSupport::CallText

#endif
