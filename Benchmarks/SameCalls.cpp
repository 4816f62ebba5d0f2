#include <Benchmarks/SameCalls.h>
#include <Benchmarks/Support.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Benchmarks {
namespace {

/// Close-on-exec, and the identity for the locker.
int Prepare(int fd) {
    int const flags = Must(::fcntl(fd, F_GETFD));
    Must(::fcntl(fd, F_SETFD, flags | FD_CLOEXEC));
    struct stat status;
    Must(::fstat(fd, &status));
    benchmark::DoNotOptimize(status);
    return fd;
}

} // namespace

int OpenReadableBare(char const* path) {
    return Prepare(Must(::open(path, O_RDONLY | O_NOCTTY)));
}

int OpenForWritingBare(char const* path, int access) {
    constexpr mode_t MODE = 0664;
    struct stat status;
    if (::stat(path, &status) == 0 && S_ISREG(status.st_mode)) {
        ::chmod(path, MODE);
    }
    return Prepare(Must(::open(path, access | O_CREAT | O_NOCTTY, MODE)));
}

void LockBare(int fd, int type) {
    struct flock record = {};
    record.l_type = static_cast<short>(type);
    record.l_whence = SEEK_SET;
    Must(::fcntl(fd, type == F_UNLCK ? F_SETLK : F_SETLKW, &record));
}

} // namespace Benchmarks
