// Trouble that the system makes itself: full and read-only file systems, missing rights, loops of links, limits,
// overlays. Each test has a child process, whose mounts, limits and rights go with it.

#include <DataType/StringCollection.h>
#include <FileSystem/Directory.h>
#include <FileSystem/File.h>
#include <FileSystem/FileImpl.h>
#include <FileSystem/Initializer.h>
#include <FileSystem/Path.h>
#include <FileSystem/PrivateSource/InprocessFileLocker.h>
#include <FileSystem/UpdateableFile.h>
#include <PDCHeader/PDCunistd.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Sanitizers.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <stdexcept>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>
#include <vector>
#ifdef __linux__
#include <grp.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#endif

namespace {

using namespace WFileSystem;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using TestSupport::Child;
using TestSupport::DescriptorCheck;
using TestSupport::Wrapped;

constexpr IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED POLICIES[] = {TRUNCATE_FILE, DELETE_FILE, KEEP_FILE};

/// Says why this machine, or this user, can't have the trouble.
class Refusal : public std::runtime_error {
public:
    explicit Refusal(std::string const& what) : std::runtime_error(what + ": " + std::strerror(errno) + ".") {}
};

/// Bytes that show where they belong.
std::string Bytes(std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t index = 0; index < size; ++index) {
        bytes[index] = static_cast<char>('a' + (index / 4096 + index) % 26);
    }
    return bytes;
}

/// Lowers a limit of the process while it lives.
class Limit {
public:
    Limit(int resource, rlim_t value) : resource_(resource) {
        ::getrlimit(static_cast<decltype(RLIMIT_NOFILE)>(resource_), &former_);
        rlimit limit = former_;
        limit.rlim_cur = value;
        EXPECT_EQ(::setrlimit(static_cast<decltype(RLIMIT_NOFILE)>(resource_), &limit), 0);
    }
    ~Limit() { ::setrlimit(static_cast<decltype(RLIMIT_NOFILE)>(resource_), &former_); }

    Limit(Limit const&) = delete;
    Limit& operator=(Limit const&) = delete;

private:
    int resource_;
    rlimit former_ = {};
};

/// Leaves the process so many descriptors that it can still open.
class FreeDescriptors : public Limit {
public:
    explicit FreeDescriptors(unsigned int count) : Limit(RLIMIT_NOFILE, FindLimit(count)) {}

private:
    static rlim_t FindLimit(unsigned int count) {
#ifdef TESTSUPPORT_ADDRESS_SANITIZER
        // UndefinedBehaviorSanitizer, which comes with it, makes a pipe to look at an object, and else takes it for a
        // wrong one.
        errno = EMFILE;
        throw Refusal("UndefinedBehaviorSanitizer needs descriptors of its own");
#endif
        std::vector<int> descriptors(count + 1);
        for (int& fd : descriptors) {
            fd = ::fcntl(STDERR_FILENO, F_DUPFD, 0);
        }
        std::for_each(descriptors.begin(), descriptors.end(), ::close);
        return static_cast<rlim_t>(descriptors.back());
    }
};

class RealTroubleTest : public ::testing::Test {
protected:
    RealTroubleTest() { TestSupport::MakeDirectory(mount_); }

    void TearDown() override {
        if (TestSupport::Exists(MOUNTS)) {
            EXPECT_THAT(TestSupport::ReadFile(MOUNTS), Not(HasSubstr(scratch_.Path()))) << "A mount is left.";
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

    /// Mounts a file system in memory that only this process and its children see.
    void MountMemory(std::string const& options) const {
#ifdef __linux__
        if (::unshare(CLONE_NEWNS) == -1 || ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == -1 ||
            ::mount("memory", mount_.c_str(), "tmpfs", 0, options.c_str()) == -1) {
            throw Refusal("This process can't mount a file system in memory");
        }
#else
        errno = ENOSYS;
        throw Refusal("This system has no mounts of a process's own (" + options + ")");
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

// A full file system

TEST_F(RealTroubleTest, AWriteThatFillsTheFileSystemTellsHowMuchIsMissing) {
    InAChild([this] {
        MountMemory("size=256k");
        unsigned long const room = FreeBytes();
        std::string const bytes = Bytes(room + 5000);
        auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
        EXPECT_WRAPPED_NO_CAUSE(
            file->Write(bytes.data(), bytes.size()), L"Failed to write 5000 bytes to file '" + widePath_ + L"'.");
        EXPECT_EQ(file->GetPosition(), static_cast<long long>(room));
        EXPECT_EQ(TestSupport::ReadFile(path_), bytes.substr(0, room));
        EXPECT_WRAPPED(file->Write("x", 1), L"Failed to write 1 bytes to file '" + widePath_ + L"'.", ENOSPC);
    });
}

TEST_F(RealTroubleTest, AFileThatCouldNotGrowCanBeUsedWhenThereIsRoomAgain) {
    InAChild([this] {
        MountMemory("size=256k");
        std::string const bytes = Bytes(FreeBytes() + 1);
        auto const file = OpenWriteableFile(widePath_.c_str(), DELETE_FILE);
        EXPECT_THROW(file->Write(bytes.data(), bytes.size()), WBase::Message);
        file->SetPosition(0);
        file->Truncate();
        file->Write("all is well", 0);
        file->CommitAndClose();
        EXPECT_EQ(TestSupport::ReadFile(path_), "all is well");
    });
}

TEST_F(RealTroubleTest, EveryPolicyDoesWhatItSaysOnAFullFileSystem) {
    InAChild([this] {
        MountMemory("size=256k");
        unsigned long const room = FreeBytes();
        std::string const bytes = Bytes(room + 1);
        for (auto const policy : POLICIES) {
            DescriptorCheck const check;
            auto file = OpenWriteableFile(widePath_.c_str(), policy);
            EXPECT_THROW(file->Write(bytes.data(), bytes.size()), WBase::Message);
            EXPECT_EQ(FreeBytes(), 0U);
            file.reset();
            EXPECT_EQ(FreeBytes(), policy == KEEP_FILE ? 0 : room);
            EXPECT_EQ(TestSupport::Exists(path_), policy != DELETE_FILE);
            if (policy != DELETE_FILE) {
                EXPECT_EQ(TestSupport::ReadFile(path_), policy == KEEP_FILE ? bytes.substr(0, room) : "");
                ExpectLockIsFree();
            }
        }
    });
}

TEST_F(RealTroubleTest, WhatAFullFileSystemHoldsCanBeWrittenAnew) {
    InAChild([this] {
        MountMemory("size=256k");
        TestSupport::WriteFile(path_, Bytes(FreeBytes()));
        auto const file = OpenWriteableFile(widePath_.c_str(), KEEP_FILE);
        file->Write("0123", 4);
        EXPECT_NO_THROW(file->Flush());
        file->CommitAndClose();
        EXPECT_EQ(TestSupport::ReadFile(path_).substr(0, 8), "0123" + Bytes(8).substr(4));
    });
}

TEST_F(RealTroubleTest, ACopyThatFindsNoRoomIsReportedAndNothingStaysOpen) {
    InAChild([this] {
        MountMemory("size=256k");
        TestSupport::WriteFile(scratch_ / "source", Bytes(FreeBytes() + 0x10000));
        DescriptorCheck const check;
        EXPECT_REPORT(
            File::Copy(scratch_.Wide("source").c_str(), widePath_.c_str()), L"WFileSystem::File::Write: Failed.",
            ENOSPC);
        EXPECT_EQ(FreeBytes(), 0U);
        int const source = ::open((scratch_ / "source").c_str(), O_RDONLY | O_CLOEXEC);
        int const target = ::fcntl(source, F_DUPFD_CLOEXEC, 0);
        WPDCHeader::close(target); // the next opening gets its number
        EXPECT_REPORT(
            File::Copy(source, widePath_.c_str()),
            L"WFileSystem::File::Copy: ::write failed for file #" + std::to_wstring(target) + L".", ENOSPC);
        WPDCHeader::close(source);
    });
}

TEST_F(RealTroubleTest, AStreamThatFindsNoRoomTellsSoWhenItIsFlushed) {
    InAChild([this] {
        MountMemory("size=256k");
        FILE* const stream = File::OpenStream(widePath_.c_str(), File::OPEN_WRITE_TRUNCATE, File::SHARE_IGNORED);
        TestSupport::WriteFile(mount_ + "/other", Bytes(FreeBytes()));
        File::Write(stream, "x", 1); // goes into the stream's buffer
        EXPECT_REPORT(File::Flush(stream), L"WFileSystem::File::Flush: ::fflush failed.", ENOSPC);
        std::fclose(stream);
    });
}

TEST_F(RealTroubleTest, NothingIsMadeWhereNoMoreFilesFit) {
    InAChild([this] {
        MountMemory("size=256k,nr_inodes=2"); // the directory itself is one
        TestSupport::WriteFile(mount_ + "/other", "");
        DescriptorCheck const check;
        ExpectNoOpeningForWriting(widePath_, ENOSPC);
        EXPECT_WRAPPED(
            Directory::Create(widePath_.c_str(), true), L"Failed to create directory '" + widePath_ + L"'.", ENOSPC);
        EXPECT_THAT(TestSupport::List(mount_), ElementsAre("other"));
        ASSERT_EQ(::unlink((mount_ + "/other").c_str()), 0);
        EXPECT_NO_THROW(OpenWriteableFile(widePath_.c_str(), KEEP_FILE));
    });
}

// A read-only mount

TEST_F(RealTroubleTest, AReadOnlyFileSystemIsNotWritten) {
    InAChild([this] {
        MountMemory("size=256k");
        TestSupport::WriteFile(path_, "stays");
        ASSERT_EQ(::chmod(path_.c_str(), 0600), 0);
        Remount();
        DescriptorCheck const check;
        ExpectNoOpeningForWriting(widePath_, EROFS);
        ExpectNoOpeningForWriting(scratch_.Wide("mount/new"), EROFS);
        EXPECT_EQ(TestSupport::ModeOf(path_), 0600U);
        EXPECT_EQ(TestSupport::ReadFile(path_), "stays");
        EXPECT_FALSE(Path::IsWriteable(widePath_.c_str()));
    });
}

TEST_F(RealTroubleTest, AReadOnlyFileSystemKeepsItsNames) {
    InAChild([this] {
        MountMemory("size=256k");
        TestSupport::WriteFile(path_, "stays");
        Remount();
        std::wstring const other = scratch_.Wide("mount/other");
        ExpectNoDeletion(widePath_, EROFS);
        EXPECT_WRAPPED(
            File::Move(widePath_.c_str(), other.c_str()),
            L"Failed to move file '" + widePath_ + L"' to '" + other + L"'.", EROFS);
        EXPECT_WRAPPED(Directory::Create(other.c_str(), false), L"Failed to create directory '" + other + L"'.", EROFS);
        EXPECT_THAT(TestSupport::List(mount_), ElementsAre("data"));
    });
}

TEST_F(RealTroubleTest, AReadOnlyFileSystemIsReadUnderLocks) {
    InAChild([this] {
        MountMemory("size=256k");
        TestSupport::WriteFile(path_, "stays");
        Remount();
        auto const file = OpenReadableFile(widePath_.c_str());
        ReadableFile::ReadSmartLock const lock(*file);
        EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "READ");
        char bytes[5];
        file->Read(bytes, sizeof bytes);
        EXPECT_EQ(std::string(bytes, sizeof bytes), "stays");
    });
}

// Missing rights

TEST_F(RealTroubleTest, NothingOpensInADirectoryThatCanNotBeSearched) {
    InAChild([this] {
        DropRights();
        TestSupport::WriteFile(path_, "stays");
        ASSERT_EQ(::chmod(mount_.c_str(), 0), 0);
        DescriptorCheck const check;
        ExpectNoOpening(widePath_, EACCES);
        ExpectNoDeletion(widePath_, EACCES);
        EXPECT_FALSE(Path::IsFile(widePath_.c_str()));
        EXPECT_EQ(Path::GetFileNamesWithPattern(scratch_.Wide("mount/*").c_str())->GetCount(), 0U);
    });
}

TEST_F(RealTroubleTest, AnOpenFileOutlivesTheRightToItsDirectory) {
    InAChild([this] {
        DropRights();
        auto const file = OpenWriteableFile(widePath_.c_str(), DELETE_FILE);
        ASSERT_EQ(::chmod(mount_.c_str(), 0), 0);
        ExpectReported(
            [&](WBase::Message* report) { return file->IsAccessibleViaPath(report); },
            L"Failed to get attributes of file '" + widePath_ + L"'.", EACCES);
        file->Write("written", 0);
        file->CommitAndClose();
        ASSERT_EQ(::chmod(mount_.c_str(), 0700), 0);
        EXPECT_EQ(TestSupport::ReadFile(path_), "written");
    });
}

TEST_F(RealTroubleTest, WhatMayNotBeDeletedIsEmptiedAllTheSame) {
    InAChild([this] {
        DropRights();
        DescriptorCheck const check;
        auto file = OpenWriteableFile(widePath_.c_str(), DELETE_FILE);
        file->Write("goes", 0);
        ASSERT_EQ(::chmod(mount_.c_str(), 0500), 0);
        file.reset();
        EXPECT_EQ(TestSupport::ReadFile(path_), "");
        ExpectLockIsFree();
    });
}

TEST_F(RealTroubleTest, WhatMayNotBeDeletedStaysInItsDirectory) {
    InAChild([this] {
        DropRights();
        TestSupport::WriteFile(path_, "stays");
        ASSERT_EQ(::chmod(mount_.c_str(), 0500), 0);
        WBase::Message report;
        EXPECT_FALSE(Directory::DeleteRecursively(scratch_.Wide("mount").c_str(), &report));
        EXPECT_THAT(report.GetMessage(), ::testing::HasSubstr(L"Failed to delete file '" + widePath_ + L"'."));
        EXPECT_EQ(TestSupport::ReadFile(path_), "stays");
        ExpectNoOpeningForWriting(scratch_.Wide("mount/new"), EACCES);
    });
}

// Links that lead to each other

TEST_F(RealTroubleTest, NothingOpensThroughALoopOfLinks) {
    ASSERT_EQ(::symlink("other", path_.c_str()), 0);
    ASSERT_EQ(::symlink("data", (mount_ + "/other").c_str()), 0);
    InAChild([this] {
        DescriptorCheck const check;
        ExpectNoOpening(widePath_, ELOOP);
        ExpectNoOpening(scratch_.Wide("mount/other/below"), ELOOP);
        EXPECT_FALSE(Path::IsFile(widePath_.c_str()));
        EXPECT_WRAPPED(
            File::GetSize64(widePath_.c_str()), L"Failed to get attributes of file '" + widePath_ + L"'.", ELOOP);
        EXPECT_TRUE(File::Delete(widePath_.c_str(), nullptr)) << "The link itself can be deleted.";
    });
    EXPECT_THAT(TestSupport::List(mount_), ElementsAre("other"));
}

TEST_F(RealTroubleTest, AnOpenFileIsNotAccessibleWhenItsPathBecomesALoop) {
    InAChild([this] {
        auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
        ASSERT_EQ(::rename(path_.c_str(), (mount_ + "/moved").c_str()), 0);
        ASSERT_EQ(::symlink("data", path_.c_str()), 0);
        ExpectReported(
            [&](WBase::Message* report) { return file->IsAccessibleViaPath(report); },
            L"Failed to get attributes of file '" + widePath_ + L"'.", ELOOP);
        file->Write("written", 0);
        file->CommitAndClose();
        EXPECT_EQ(TestSupport::ReadFile(mount_ + "/moved"), "written");
    });
}

// A file that another process replaces while it is open

class ReplacedFileTest : public RealTroubleTest {
protected:
    ReplacedFileTest() { TestSupport::WriteFile(path_, "old file"); }

    /// As programs do that write files anew.
    void Replace() const {
        Child child([this](Child::Parent&) {
            TestSupport::WriteFile(mount_ + "/new", "new");
            return ::rename((mount_ + "/new").c_str(), path_.c_str()) == 0 ? 0 : 1;
        });
        EXPECT_EQ(child.Wait(), 0);
    }
};

TEST_F(ReplacedFileTest, ItsPathNamesItNoMoreAndThatIsNoFailure) {
    InAChild([this] {
        auto const file = OpenReadableFile(widePath_.c_str());
        EXPECT_TRUE(file->IsAccessibleViaPath(nullptr));
        Replace();
        WBase::Message report;
        EXPECT_FALSE(file->IsAccessibleViaPath(&report));
        EXPECT_FALSE(report.FindID(WBase::MESSAGE_DOMAIN_ERRNO).has_value());
        EXPECT_EQ(file->GetSize(), 8);
        EXPECT_EQ(OpenReadableFile(widePath_.c_str())->GetSize(), 3) << "The new file has a lock of its own.";
    });
}

TEST_F(ReplacedFileTest, ItsLockDoesNotProtectTheFileThatTookItsPlace) {
    InAChild([this] {
        auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
        WriteableFile::WriteSmartLock const lock(*file);
        ASSERT_EQ(::link(path_.c_str(), (mount_ + "/old").c_str()), 0);
        Replace();
        EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "");
        EXPECT_EQ(TestSupport::RecordLockSeenByOthers(mount_ + "/old"), "WRITE");
    });
}

TEST_F(ReplacedFileTest, TheNewOneStaysUnlessThePolicyDeletesIt) {
    InAChild([this] {
        for (auto const policy : POLICIES) {
            TestSupport::WriteFile(path_, "old file");
            auto file = OpenUpdateableFile(widePath_.c_str(), policy);
            file->Write("x", 1);
            Replace();
            file.reset();
            EXPECT_EQ(TestSupport::Exists(path_), policy != DELETE_FILE);
            EXPECT_EQ(policy != DELETE_FILE ? TestSupport::ReadFile(path_) : "new", "new");
        }
    });
}

// No more descriptors

TEST_F(RealTroubleTest, WithoutAFreeDescriptorNothingOpensAndNothingIsMade) {
    InAChild([this] {
        DescriptorCheck const check;
        FreeDescriptors const none(0);
        ExpectNoOpening(widePath_, EMFILE);
        EXPECT_FALSE(TestSupport::Exists(path_));
    });
}

TEST_F(RealTroubleTest, TheOnlyFreeDescriptorIsGivenBackAgainAndAgain) {
    TestSupport::WriteFile(path_, "stays");
    InAChild([this] {
        DescriptorCheck const check;
        FreeDescriptors const one(1);
        for (int round = 0; round < 100; ++round) {
            auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
            WriteableFile::WriteSmartLock const lock(*file);
            EXPECT_TRUE(file->IsAccessibleViaPath(nullptr));
            ExpectNoOpening(widePath_, EMFILE);
        }
    });
    EXPECT_EQ(TestSupport::ReadFile(path_), "stays");
}

TEST_F(RealTroubleTest, ARefusedOpeningKeepsTheLocksOfTheFileThatIsOpen) {
    TestSupport::WriteFile(path_, "stays");
    InAChild([this] {
        auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
        WriteableFile::WriteSmartLock const lock(*file);
        {
            FreeDescriptors const none(0);
            ExpectNoOpening(widePath_, EMFILE);
        }
        EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "WRITE");
    });
}

TEST_F(RealTroubleTest, ACopyThatCanOpenItsSourceOnlyMakesNoTarget) {
    TestSupport::WriteFile(path_, "stays");
    InAChild([this] {
        DescriptorCheck const check;
        FreeDescriptors const one(1);
        std::wstring const target = scratch_.Wide("mount/target");
        EXPECT_REPORT(
            File::Copy(widePath_.c_str(), target.c_str()),
            L"WFileSystem::File::OpenStream: ::fopen failed for '" + target + L"'.", EMFILE);
        EXPECT_FALSE(TestSupport::Exists(mount_ + "/target"));
    });
}

TEST_F(RealTroubleTest, ADirectoryThatCanNotBeListedForWantOfADescriptorKeepsItsEntries) {
    TestSupport::WriteFile(path_, "stays");
    InAChild([this] {
        FreeDescriptors const none(0);
        std::wstring const directory = scratch_.Wide("mount");
        ExpectReported(
            [&](WBase::Message* report) { return Directory::DeleteRecursively(directory.c_str(), report); },
            L"Failed to delete directory '" + directory + L"'.", ENOTEMPTY);
    });
    EXPECT_EQ(TestSupport::ReadFile(path_), "stays");
}

// Files that may not grow

class FileSizeTest : public RealTroubleTest {
protected:
    static constexpr unsigned long LARGEST = 100000;
    static constexpr rlim_t FILE_SIZE = LARGEST;
};

TEST_F(FileSizeTest, AWriteAcrossTheLimitTellsHowMuchIsMissing) {
    InAChild([this] {
        ::signal(SIGXFSZ, SIG_IGN);
        Limit const limit(RLIMIT_FSIZE, FILE_SIZE);
        std::string const bytes = Bytes(LARGEST + 5000);
        auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
        EXPECT_WRAPPED_NO_CAUSE(
            file->Write(bytes.data(), bytes.size()), L"Failed to write 5000 bytes to file '" + widePath_ + L"'.");
        EXPECT_WRAPPED(file->Write("x", 1), L"Failed to write 1 bytes to file '" + widePath_ + L"'.", EFBIG);
        EXPECT_EQ(TestSupport::ReadFile(path_), bytes.substr(0, LARGEST));
    });
}

TEST_F(FileSizeTest, AFileIsNotExtendedBeyondTheLimit) {
    InAChild([this] {
        ::signal(SIGXFSZ, SIG_IGN);
        Limit const limit(RLIMIT_FSIZE, FILE_SIZE);
        auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
        file->SetPosition(LARGEST + 1);
        EXPECT_WRAPPED(file->Truncate(), L"Failed to truncate file '" + widePath_ + L"'.", EFBIG);
        EXPECT_EQ(file->GetSize(), 0);
        file->SetPosition(LARGEST);
        EXPECT_NO_THROW(file->Truncate());
        EXPECT_EQ(file->GetSize(), static_cast<long long>(LARGEST));
    });
}

TEST_F(FileSizeTest, EveryPolicyDoesWhatItSaysAtTheLimit) {
    InAChild([this] {
        ::signal(SIGXFSZ, SIG_IGN);
        Limit const limit(RLIMIT_FSIZE, FILE_SIZE);
        std::string const bytes = Bytes(LARGEST + 1);
        for (auto const policy : POLICIES) {
            auto file = OpenWriteableFile(widePath_.c_str(), policy);
            EXPECT_THROW(file->Write(bytes.data(), bytes.size()), WBase::Message);
            file.reset();
            EXPECT_EQ(TestSupport::Exists(path_), policy != DELETE_FILE);
            if (policy != DELETE_FILE) {
                EXPECT_EQ(TestSupport::ReadFile(path_), policy == KEEP_FILE ? bytes.substr(0, LARGEST) : "");
            }
        }
    });
}

TEST_F(FileSizeTest, AStreamTellsTheLimitWhenItIsFlushed) {
    InAChild([this] {
        ::signal(SIGXFSZ, SIG_IGN);
        Limit const limit(RLIMIT_FSIZE, FILE_SIZE);
        FILE* const stream = File::OpenStream(widePath_.c_str(), File::OPEN_WRITE_TRUNCATE, File::SHARE_IGNORED);
        File::SetPosition(stream, LARGEST);
        File::Write(stream, "x", 1);
        EXPECT_REPORT(File::Flush(stream), L"WFileSystem::File::Flush: ::fflush failed.", EFBIG);
        std::fclose(stream);
    });
}

TEST_F(FileSizeTest, TheSignalEndsAProcessThatDoesNotIgnoreItAndItsLockGoes) {
    Child child([this](Child::Parent&) {
        Limit const noCore(RLIMIT_CORE, 0);
        Limit const limit(RLIMIT_FSIZE, FILE_SIZE);
        Initializer const initializer;
        auto const file = OpenWriteableFile(widePath_.c_str(), TRUNCATE_FILE);
        WriteableFile::WriteSmartLock const lock(*file);
        file->SetPosition(LARGEST);
        file->Write("x", 1);
    });
    EXPECT_EQ(child.Wait(), -SIGXFSZ);
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "");
}

// An overlay: the first writing moves a file from one file system to another

TEST_F(RealTroubleTest, AFileOfAnOverlayStaysTheSameFileWhenItIsCopiedUp) {
    InAChild([this] {
        MountOverlay();
        int const before = File::OpenDescriptor(wideMerged_.c_str(), File::OPEN_READ, File::SHARE_IGNORED);
        int const after = File::OpenDescriptor(wideMerged_.c_str(), File::OPEN_READ_WRITE, File::SHARE_IGNORED);
        FileImpl::Write(wideMerged_.c_str(), after, "above", 0);
        EXPECT_TRUE(
            InprocessFileLocker::ID(wideMerged_.c_str(), before) ==
            InprocessFileLocker::ID(wideMerged_.c_str(), after));
        EXPECT_TRUE(FileImpl::DoesPathMatchFileHandle(wideMerged_.c_str(), before, nullptr));
        EXPECT_EQ(TestSupport::ReadFile(merged_), "above");
        EXPECT_EQ(TestSupport::ReadFile(lower_), "below");
        WPDCHeader::close(before);
        WPDCHeader::close(after);
    });
}

TEST_F(RealTroubleTest, ALockFromBeforeTheCopyUpKeepsWritersAway) {
    InAChild([this] {
        MountOverlay();
        // Made first: it would have the in-process lock of a file that is open.
        Child writer([this](Child::Parent& parent) {
            parent.WaitFor("locked");
            auto const file = OpenUpdateableFile(wideMerged_.c_str(), KEEP_FILE); // copies it up
            EXPECT_WRAPPED(file->WriteLock(true), L"Failed to lock file '" + wideMerged_ + L"'.", EAGAIN);
            parent.Say("refused");
            parent.WaitFor("closed");
            EXPECT_TRUE(file->WriteLock(true));
        });
        auto file = OpenReadableFile(wideMerged_.c_str());
        ASSERT_TRUE(file->ReadLock(true));
        writer.Say("locked");
        ASSERT_TRUE(writer.WaitFor("refused"));
        file.reset();
        writer.Say("closed");
        EXPECT_EQ(writer.Wait(), 0);
    });
}

TEST_F(RealTroubleTest, ThePoliciesLeaveTheLowerFileOfAnOverlayAlone) {
    InAChild([this] {
        MountOverlay();
        OpenUpdateableFile(wideMerged_.c_str(), TRUNCATE_FILE);
        EXPECT_EQ(TestSupport::ReadFile(merged_), "");
        OpenUpdateableFile(wideMerged_.c_str(), DELETE_FILE);
        EXPECT_THAT(TestSupport::List(mount_ + "/merged"), IsEmpty());
        EXPECT_EQ(TestSupport::ReadFile(lower_), "below");
    });
}

} // namespace
