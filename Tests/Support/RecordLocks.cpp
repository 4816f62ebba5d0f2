#include <Tests/Support/Child.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/ScratchDirectory.h>

#include <iterator>
#include <sstream>

#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace TestSupport {

// A line reads: "lock:\t1: POSIX  ADVISORY  READ 4711 00:2f:815 0 EOF".
std::vector<std::string> RecordLocksOf(int fd) {
    std::istringstream lines(ReadFile("/proc/self/fdinfo/" + std::to_string(fd)));
    std::vector<std::string> locks;
    for (std::string line; std::getline(lines, line);) {
        std::istringstream words(line);
        std::vector<std::string> word{std::istream_iterator<std::string>(words), {}};
        if (word.size() == 9 && word[0] == "lock:" && word[2] == "POSIX") {
            locks.push_back(word[4].append(" ").append(word[7]).append("-").append(word[8]));
        }
    }
    return locks;
}

bool AreRecordLocksListed() {
    return Exists("/proc/self/fdinfo");
}

std::string RecordLockSeenByOthers(std::string const& path) {
    enum Answer { NONE, READ, WRITE, FAILED };
    Child child([&](Child::Parent&) -> int {
        struct flock lock = {};
        lock.l_type = F_WRLCK;
        lock.l_whence = SEEK_SET;
        int const fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd == -1 || ::fcntl(fd, F_GETLK, &lock) == -1) {
            return FAILED;
        }
        return lock.l_type == F_UNLCK ? NONE : lock.l_type == F_RDLCK ? READ : WRITE;
    });
    int const answer = child.Wait();
    EXPECT_TRUE(answer >= NONE && answer < FAILED) << "Could not ask for the locks of " << path;
    return answer == READ ? "READ" : answer == WRITE ? "WRITE" : "";
}

} // namespace TestSupport
