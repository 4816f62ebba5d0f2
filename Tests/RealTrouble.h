#ifndef WFILESYSTEM_TESTS_REALTROUBLE_H
#define WFILESYSTEM_TESTS_REALTROUBLE_H

/// \file
/// \brief Trouble that the system makes itself. Each test has a child process, whose mounts, limits and rights go with it.

#include <FileSystem/File.h>
#include <FileSystem/Initializer.h>
#include <FileSystem/UpdateableFile.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <string>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#ifdef __linux__
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#endif

namespace RealTrouble {

using namespace WFileSystem;
using TestSupport::Child;
using TestSupport::DescriptorCheck;

constexpr IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED POLICIES[] = {TRUNCATE_FILE, DELETE_FILE, KEEP_FILE};

/// Says why this machine, or this user, can't have the trouble.
class Refusal : public std::runtime_error {
public:
    explicit Refusal(std::string const& what) : std::runtime_error(what + ": " + std::strerror(errno) + ".") {}
};

/// Bytes that show where they belong.
inline std::string Bytes(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t index = 0; index < size; ++index) {
        bytes[index] = static_cast<char>('a' + (index / 4096 + index) % 26);
    }
    return bytes;
}

class RealTroubleTest : public ::testing::Test {
protected:
    RealTroubleTest() { TestSupport::MakeDirectory(mount_); }

    void TearDown() override {
        if (TestSupport::Exists(MOUNTS)) {
            EXPECT_THAT(TestSupport::ReadFile(MOUNTS), ::testing::Not(::testing::HasSubstr(scratch_.Path())))
                << "A mount is left.";
        }
    }

    /// Runs the code in a child process. Skips the test when the machine refuses what the code needs.
    template <class Code>
    void InAChild(Code code) const {
        constexpr int REFUSED = 77;
        Child child([&](Child::Parent&) {
            Initializer const initializer;
            try {
                code();
            } catch (Refusal const& refusal) {
                TestSupport::WriteFile(scratch_ / "refusal", refusal.what());
                return REFUSED;
            }
            return 0;
        });
        int const result = child.Wait();
        if (result == REFUSED) {
            GTEST_SKIP() << TestSupport::ReadFile(scratch_ / "refusal");
        }
        EXPECT_EQ(result, 0);
    }

    /// Lets what is mounted from now on be seen by this process and its children only.
    static void HaveOwnMounts() {
#ifdef __linux__
        if (::unshare(CLONE_NEWNS) == -1 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == -1) {
            throw Refusal("This process can't have mounts of its own");
        }
#else
        errno = ENOSYS;
        throw Refusal("This system has no mounts of a process's own");
#endif
    }

    /// Mounts a file system in memory that only this process and its children see.
    void MountMemory([[maybe_unused]] std::string const& options) const {
        HaveOwnMounts();
#ifdef __linux__
        if (::mount("memory", mount_.c_str(), "tmpfs", 0, options.c_str()) == -1) {
            throw Refusal("This process can't mount a file system in memory");
        }
#endif
    }

    /// Lets the mounted file system be read only.
    void Remount() const {
#ifdef __linux__
        if (::mount("memory", mount_.c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr) == -1) {
            throw Refusal("This process can't make a mount read-only");
        }
#endif
    }

    /// Mounts "merged" over "lower" and "upper", all in the mounted file system in memory, with a file in "lower".
    void MountOverlay() const {
        MountMemory("size=1m");
        for (char const* const name : {"/lower", "/upper", "/work", "/merged"}) {
            TestSupport::MakeDirectory(mount_ + name);
        }
        TestSupport::WriteFile(lower_, "below");
#ifdef __linux__
        std::string const options =
            "lowerdir=" + mount_ + "/lower,upperdir=" + mount_ + "/upper,workdir=" + mount_ + "/work";
        if (::mount("overlay", (mount_ + "/merged").c_str(), "overlay", 0, options.c_str()) == -1) {
            throw Refusal("This process can't mount an overlay");
        }
#endif
    }

    /// Gives up the rights of the superuser, who is refused nothing, and leaves the test's files to the new user.
    void DropRights() const {
#ifdef __linux__
        constexpr uid_t NOBODY = 65534;
        if (::geteuid() != 0) {
            return;
        }
        for (std::string const& path : {scratch_.Path(), mount_}) {
            EXPECT_EQ(::chown(path.c_str(), NOBODY, NOBODY), 0);
        }
        if (::setgroups(0, nullptr) == -1 || ::setgid(NOBODY) == -1 || ::setuid(NOBODY) == -1) {
            throw Refusal("This process can't become another user's");
        }
        ::prctl(PR_SET_PDEATHSIG, SIGKILL); // the change took it back
#else
        if (::geteuid() == 0) {
            errno = EPERM;
            throw Refusal("The superuser is refused nothing");
        }
#endif
    }

    unsigned long FreeBytes() const {
        struct statvfs status = {};
        EXPECT_EQ(::statvfs(mount_.c_str(), &status), 0);
        return static_cast<unsigned long>(status.f_bfree) * status.f_frsize;
    }

    /// No way to open the file for writing succeeds.
    static void ExpectNoOpeningForWriting(std::wstring const& path, int error) {
        wchar_t const* const name = path.c_str();
        EXPECT_REPORT(
            OpenWriteableFile(name, DELETE_FILE),
            L"WFileSystem::WriteableFileImpl::WriteableFileImpl: ::open failed for '" + path + L"'.", error);
        EXPECT_REPORT(
            OpenUpdateableFile(name, DELETE_FILE),
            L"WFileSystem::UpdateableFileImpl::UpdateableFileImpl: ::open failed for '" + path + L"'.", error);
        EXPECT_REPORT(
            File::OpenDescriptor(name, File::OPEN_WRITE_CREATE, File::SHARE_IGNORED),
            L"WFileSystem::File::OpenDescriptor: ::open failed for '" + path + L"'.", error);
        EXPECT_REPORT(
            File::OpenStream(name, File::OPEN_WRITE_TRUNCATE, File::SHARE_IGNORED),
            L"WFileSystem::File::OpenStream: ::fopen failed for '" + path + L"'.", error);
    }

    /// No way to open the file succeeds.
    static void ExpectNoOpening(std::wstring const& path, int error) {
        wchar_t const* const name = path.c_str();
        ExpectNoOpeningForWriting(path, error);
        EXPECT_REPORT(
            OpenReadableFile(name),
            L"WFileSystem::ReadableFileImpl::ReadableFileImpl: ::open failed for '" + path + L"'.", error);
        EXPECT_REPORT(
            File::OpenDescriptor(name, File::OPEN_READ, File::SHARE_IGNORED),
            L"WFileSystem::File::OpenDescriptor: ::open failed for '" + path + L"'.", error);
        EXPECT_REPORT(
            File::OpenStream(name, File::OPEN_READ, File::SHARE_IGNORED),
            L"WFileSystem::File::OpenStream: ::fopen failed for '" + path + L"'.", error);
    }

    /// The report of an operation that takes a pointer for it, and which must fail.
    template <class Operation>
    static void ExpectReported(Operation operation, std::wstring const& firstLine, int error) {
        WBase::Message report;
        EXPECT_FALSE(operation(&report));
        EXPECT_EQ(report.FindID(WBase::MESSAGE_DOMAIN_ERRNO), error);
        EXPECT_EQ(std::wstring(report.GetMessage()), firstLine + L'\n' + TestSupport::ErrorDescription(error));
    }

    static void ExpectNoDeletion(std::wstring const& path, int error) {
        ExpectReported(
            [&](WBase::Message* report) { return File::Delete(path.c_str(), report); },
            L"Failed to delete file '" + path + L"'.", error);
    }

    /// Nothing holds the file's in-process lock any more.
    void ExpectLockIsFree() const {
        EXPECT_NO_THROW(OpenReadableFile_InProcessLockNoWait(widePath_.c_str()));
    }

    static constexpr char MOUNTS[] = "/proc/self/mountinfo";

    TestSupport::ScratchDirectory const scratch_;
    std::string const mount_ = scratch_ / "mount";
    std::string const path_ = mount_ + "/data";
    std::wstring const widePath_ = scratch_.Wide("mount/data");
    std::string const lower_ = mount_ + "/lower/data";
    std::string const merged_ = mount_ + "/merged/data";
    std::wstring const wideMerged_ = scratch_.Wide("mount/merged/data");
};

} // namespace RealTrouble

#endif
