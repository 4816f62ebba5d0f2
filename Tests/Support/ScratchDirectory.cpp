#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Text.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <system_error>

#include <cerrno>
#include <cstdlib>
#include <cstring>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace TestSupport {
namespace {

[[noreturn]] void ThrowError(std::string const& what) {
    throw std::system_error(errno, std::generic_category(), what);
}

class Descriptor {
public:
    Descriptor(std::string const& path, int flags) : fd_(::open(path.c_str(), flags | O_CLOEXEC, 0644)) {
        if (fd_ == -1) {
            ThrowError(path);
        }
    }
    ~Descriptor() { ::close(fd_); }

    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;

    int Get() const { return fd_; }

private:
    int fd_;
};

// Takes the descriptor over.
std::vector<std::string> ListAndClose(int fd) {
    std::unique_ptr<DIR, int (*)(DIR*)> const directory(::fdopendir(fd), &::closedir);
    if (directory == nullptr) {
        ThrowError("fdopendir");
    }
    std::vector<std::string> names;
    while (dirent const* const entry = ::readdir(directory.get())) {
        if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) {
            names.emplace_back(entry->d_name);
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

// Removes a directory's entries. Each step works on a name in an open directory, so that no link can lead out of it.
// NOLINTNEXTLINE(misc-no-recursion): as deep as the tests' own directories
void Empty(int directory, dev_t device) {
    int const copy = ::openat(directory, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (copy == -1) {
        return;
    }
    for (std::string const& name : ListAndClose(copy)) {
        if (::unlinkat(directory, name.c_str(), 0) == 0) {
            continue;
        }
        struct stat status;
        bool const isOwnDirectory = ::fstatat(directory, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                                    S_ISDIR(status.st_mode) && status.st_dev == device;
        if (!isOwnDirectory) {
            continue;
        }
        bool const isOpenable = ::fchmodat(directory, name.c_str(), 0700, 0) == 0;
        int const inner =
            isOpenable ? ::openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC) : -1;
        if (inner != -1) {
            Empty(inner, device);
            ::close(inner);
        }
        ::unlinkat(directory, name.c_str(), AT_REMOVEDIR);
    }
}

} // namespace

ScratchDirectory::ScratchDirectory() {
    Unobserved const unobserved;
    char const* const parent = std::getenv("TMPDIR");
    std::string const wanted = parent != nullptr && *parent != '\0' ? parent : "/tmp";
    std::unique_ptr<char, void (*)(void*)> const resolved(::realpath(wanted.c_str(), nullptr), &std::free);
    if (resolved == nullptr) {
        ThrowError(wanted);
    }
    path_ = std::string(resolved.get()) + "/WFileSystemTest.XXXXXX";
    if (::mkdtemp(path_.data()) == nullptr) {
        ThrowError(path_);
    }
}

ScratchDirectory::~ScratchDirectory() {
    Unobserved const unobserved;
    try {
        ::chmod(path_.c_str(), 0700);
        Descriptor const directory(path_, O_RDONLY | O_DIRECTORY | O_NOFOLLOW);
        struct stat status;
        if (::fstat(directory.Get(), &status) == 0) {
            Empty(directory.Get(), status.st_dev);
        }
        if (::rmdir(path_.c_str()) == -1) {
            ThrowError(path_);
        }
    } catch (std::exception const& exception) {
        ADD_FAILURE() << "The scratch directory can't be removed. " << exception.what();
    }
}

std::string ScratchDirectory::operator/(std::string_view name) const {
    return path_ + '/' + std::string(name);
}

std::wstring ScratchDirectory::Wide(std::string_view name) const {
    return Widen(name.empty() ? path_ : *this / name);
}

WorkingDirectory::WorkingDirectory(std::string const& path) {
    Unobserved const unobserved;
    former_ = ::open(".", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (former_ == -1) {
        ThrowError("open");
    }
    if (::chdir(path.c_str()) == -1) {
        ::close(former_);
        ThrowError(path);
    }
}

WorkingDirectory::~WorkingDirectory() {
    Unobserved const unobserved;
    EXPECT_EQ(::fchdir(former_), 0) << "Could not go back to the former working directory: " << std::strerror(errno);
    ::close(former_);
}

void MakeDirectory(std::string const& path) {
    Unobserved const unobserved;
    if (::mkdir(path.c_str(), 0755) == -1) {
        ThrowError(path);
    }
}

void WriteFile(std::string const& path, std::string_view bytes) {
    Unobserved const unobserved;
    Descriptor const file(path, O_WRONLY | O_CREAT | O_TRUNC);
    while (!bytes.empty()) {
        ssize_t const count = ::write(file.Get(), bytes.data(), bytes.size());
        if (count != -1) {
            bytes.remove_prefix(static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            ThrowError(path);
        }
    }
}

std::string ReadFile(std::string const& path) {
    Unobserved const unobserved;
    Descriptor const file(path, O_RDONLY);
    std::string bytes;
    std::vector<char> buffer(65536);
    for (;;) {
        ssize_t const count = ::read(file.Get(), buffer.data(), buffer.size());
        if (count == 0) {
            return bytes;
        }
        if (count != -1) {
            bytes.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (errno != EINTR) {
            ThrowError(path);
        }
    }
}

std::vector<std::string> List(std::string const& directory) {
    Unobserved const unobserved;
    int const fd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd == -1) {
        ThrowError(directory);
    }
    return ListAndClose(fd);
}

bool Exists(std::string const& path) {
    Unobserved const unobserved;
    struct stat status;
    return ::lstat(path.c_str(), &status) == 0;
}

unsigned int ModeOf(std::string const& path) {
    Unobserved const unobserved;
    struct stat status;
    if (::stat(path.c_str(), &status) == -1) {
        ThrowError(path);
    }
    return status.st_mode & 07777;
}

} // namespace TestSupport
