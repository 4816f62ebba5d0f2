#ifndef WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_NAMEDPIPEUTIL_H
#define WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_NAMEDPIPEUTIL_H

// What both sides of a channel are made of. All failures are NamedPipeErrors, and nothing is repeated after a signal
// but the stat of IsFileExist.

#include <FileSystem/NamedPipe.h>

#include <csignal>
#include <string>

namespace WFileSystem::NamedPipeUtil {

/// Ignores a signal in the whole process for a scope.
class SmartSignalIgnore {
public:
    /// \throws NamedPipe::NamedPipeError "Failed to do sigaction()"
    explicit SmartSignalIgnore(int signal);
    SmartSignalIgnore(SmartSignalIgnore const&) = delete;
    SmartSignalIgnore& operator=(SmartSignalIgnore const&) = delete;
    ~SmartSignalIgnore();

private:
    int signal_;
    struct sigaction previous_;
};

/// Reads exactly `n` bytes by polling, see NamedPipe::Read.
/// \return 0, or -1: cancelled
int Read(int fd, void* buf, unsigned long n, bool (*cancel)(), int pauseSeconds);

/// Writes exactly `n` bytes by polling, see NamedPipe::Write.
/// \return 0, or -1: cancelled
int Write(int fd, void const* buf, unsigned long n, bool (*cancel)(), int pauseSeconds);

/// Reads exactly `n` bytes; a descriptor that has nothing at the moment is a failure.
/// \return 0
int Read(int fd, void* buf, unsigned long n);

/// Writes exactly `n` bytes; a descriptor that has no room at the moment is a failure.
/// \return 0
int Write(int fd, void const* buf, unsigned long n);

/// Sleeps; a signal ends it early.
void Pause(int seconds);

/// False only if the system says that there is no such file.
bool IsFileExist(std::wstring const& path);

/// Makes a FIFO with exactly these permission bits.
/// \return 0
/// \throws NamedPipe::NamedPipeError "Failed to create name pipe"; the process's mask is 0 then
int Mkfifo(std::wstring const& path, unsigned short mode);

std::wstring GetServerReaderPathFromBasicPath(std::wstring const& base);
std::wstring GetServerWriterPathFromBasicPath(std::wstring const& base);
std::wstring GetLockPathFromBasicPath(std::wstring const& base);

} // namespace WFileSystem::NamedPipeUtil

#endif
