#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <numeric>
#include <string>

#include <fcntl.h>
#include <unistd.h>

namespace TestSupport {
namespace {

// Far above what tests open, and below every usual limit.
constexpr int FIRST_NUMBER_FOR_COPIES = 200;

constexpr char const* DESCRIPTORS = "/proc/self/fd";

// What has the descriptor, as far as the system tells.
std::string NameOf(int fd) {
    char target[4096];
    ssize_t const length =
        ::readlink((std::string(DESCRIPTORS) + '/' + std::to_string(fd)).c_str(), target, sizeof target);
    return std::to_string(fd) + (length > 0 ? " (" + std::string(target, static_cast<std::size_t>(length)) + ")" : "");
}

std::string NamesOf(std::vector<int> const& descriptors) {
    std::string names;
    for (int const fd : descriptors) {
        names += (names.empty() ? "" : ", ") + NameOf(fd);
    }
    return names;
}

std::vector<int> Difference(std::vector<int> const& some, std::vector<int> const& others) {
    std::vector<int> result;
    std::set_difference(some.begin(), some.end(), others.begin(), others.end(), std::back_inserter(result));
    return result;
}

} // namespace

std::vector<int> OpenDescriptors() {
    std::vector<int> descriptors;
    if (Exists(DESCRIPTORS)) {
        for (std::string const& name : List(DESCRIPTORS)) {
            descriptors.push_back(std::stoi(name));
        }
        std::sort(descriptors.begin(), descriptors.end());
    } else {
        descriptors.resize(static_cast<std::size_t>(std::min(::sysconf(_SC_OPEN_MAX), 65536L)));
        std::iota(descriptors.begin(), descriptors.end(), 0);
    }
    // The descriptor that listed the others is gone by now.
    auto const isClosed = [](int fd) { return !IsOpen(fd); };
    descriptors.erase(std::remove_if(descriptors.begin(), descriptors.end(), isClosed), descriptors.end());
    return descriptors;
}

bool IsOpen(int fd) {
    Unobserved const unobserved;
    return ::fcntl(fd, F_GETFD) != -1;
}

bool IsCloseOnExec(int fd) {
    Unobserved const unobserved;
    int const flags = ::fcntl(fd, F_GETFD);
    return flags != -1 && (flags & FD_CLOEXEC) != 0;
}

DescriptorCheck::DescriptorCheck(unsigned int leaks) : leaks_(leaks), before_(OpenDescriptors()) {}

DescriptorCheck::~DescriptorCheck() {
    Unobserved const unobserved;
    std::vector<int> const now = OpenDescriptors();
    std::vector<int> const leaked = Difference(now, before_);
    EXPECT_EQ(leaked.size(), leaks_) << "Descriptors left open: " << NamesOf(leaked);
    std::vector<int> const lost = Difference(before_, now);
    EXPECT_TRUE(lost.empty()) << "Descriptors closed that the code had not opened: " << NamesOf(lost);
    for (int const fd : leaked) {
        ::close(fd);
    }
}

CloseDuring::CloseDuring(int fd) : fd_(fd) {
    Unobserved const unobserved;
    copy_ = ::fcntl(fd, F_DUPFD_CLOEXEC, FIRST_NUMBER_FOR_COPIES);
    ::close(fd);
}

CloseDuring::~CloseDuring() {
    Unobserved const unobserved;
    if (copy_ == -1) {
        ::close(fd_);
    } else {
        ::dup2(copy_, fd_);
        ::close(copy_);
    }
}

} // namespace TestSupport
