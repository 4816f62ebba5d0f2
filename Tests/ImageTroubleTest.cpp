// Trouble of file systems that stand in an image: a quota that is used up, and a server in user space that dies. The image
// goes with the test's directory, the mount and the loop device with its child process.

#ifdef __linux__

#include <FileSystem/Directory.h>
#include <FileSystem/Path.h>
#include <Tests/RealTrouble.h>
#include <Tests/Support/Program.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Waiting.h>

#include <cerrno>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <linux/btrfs.h>
#include <linux/loop.h>
#include <linux/magic.h>
#include <sys/ioctl.h>
#include <sys/vfs.h>

namespace RealTrouble {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class ImageTroubleTest : public RealTroubleTest {
protected:
    /// Makes an image that holds an empty file system.
    void MakeImage(std::vector<std::string> command, off_t size) const {
        TestSupport::WriteFile(image_, "");
        ASSERT_EQ(::truncate(image_.c_str(), size), 0);
        std::string const program = command.front();
        command.push_back(image_);
        auto const result = TestSupport::RunProgram(command);
        RefuseWithout(program, result);
        ASSERT_EQ(result.status, 0) << result.errors;
    }

    static void RefuseWithout(std::string const& program, TestSupport::ProgramResult const& result) {
        constexpr int CAN_NOT_BE_RUN = 127;
        if (result.status == CAN_NOT_BE_RUN) {
            errno = ENOENT;
            throw Refusal("The program " + program + " can't be run");
        }
    }

    std::string const image_ = scratch_ / "image";
};

// A quota

class QuotaTest : public ImageTroubleTest {
protected:
    /// Mounts a file system whose files may take up so many bytes together, less a few for itself.
    void MountQuota() const {
        HaveOwnMounts();
        constexpr off_t IMAGE_SIZE = 0x2000000;
        MakeImage({"mkfs.btrfs", "-q", "--mixed"}, IMAGE_SIZE);
        std::string device;
        int const loop = Attach(device);
        bool const isMounted = ::mount(device.c_str(), mount_.c_str(), "btrfs", 0, nullptr) == 0;
        int const error = errno;
        ::close(loop); // the device lasts as long as the mount
        errno = error;
        if (!isMounted) {
            throw Refusal("This process can't mount Btrfs");
        }
        LimitAll();
    }

    /// Uses the quota up, by a file beside the test's.
    void UseUp() const {
        int const fd = ::open(other_.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0600);
        std::string const bytes = Bytes(4096);
        while (::write(fd, bytes.data(), bytes.size()) > 0) {
        }
        EXPECT_EQ(errno, EDQUOT);
        ::close(fd);
    }

    static constexpr unsigned long QUOTA = 0x100000;

    std::string const other_ = mount_ + "/other";

private:
    /// Makes a loop device of the image, which goes with its last user.
    int Attach(std::string& device) const {
        int const control = ::open("/dev/loop-control", O_RDWR | O_CLOEXEC);
        int const image = ::open(image_.c_str(), O_RDWR | O_CLOEXEC);
        loop_config config = {};
        config.fd = static_cast<unsigned int>(image);
        config.info.lo_flags = LO_FLAGS_AUTOCLEAR;
        int loop = -1;
        bool const isAttached = control != -1 && TestSupport::WaitUntil([&] {
                                    device = "/dev/loop" + std::to_string(::ioctl(control, LOOP_CTL_GET_FREE));
                                    loop = ::open(device.c_str(), O_RDWR | O_CLOEXEC);
                                    if (::ioctl(loop, LOOP_CONFIGURE, &config) == 0) {
                                        return true;
                                    }
                                    int const error = errno;
                                    ::close(loop);
                                    errno = error;
                                    loop = -1;
                                    return error != EBUSY; // else another process was faster
                                });
        int const error = errno;
        ::close(image);
        ::close(control);
        errno = error;
        if (!isAttached || loop == -1) {
            throw Refusal("This process can't have a loop device");
        }
        return loop;
    }

    void LimitAll() const {
        int const fd = ::open(mount_.c_str(), O_RDONLY | O_CLOEXEC);
        btrfs_ioctl_quota_ctl_args control = {};
        control.cmd = BTRFS_QUOTA_CTL_ENABLE;
        btrfs_ioctl_qgroup_limit_args limit = {};
        limit.lim.flags = BTRFS_QGROUP_LIMIT_MAX_RFER;
        limit.lim.max_rfer = QUOTA;
        bool const isLimited = ::ioctl(fd, BTRFS_IOC_QUOTA_CTL, &control) == 0 &&
                               ::ioctl(fd, BTRFS_IOC_QUOTA_RESCAN_WAIT) == 0 &&
                               ::ioctl(fd, BTRFS_IOC_QGROUP_LIMIT, &limit) == 0;
        int const error = errno;
        ::close(fd);
        errno = error;
        if (!isLimited) {
            throw Refusal("This system has no quotas");
        }
    }
};

TEST_F(QuotaTest, AWriteThatMeetsTheQuotaTellsHowMuchIsMissing) {
    InAChild([this] {
        MountQuota();
        DescriptorCheck const check;
        std::string const bytes = Bytes(QUOTA);
        auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
        WBase::Message failure;
        try {
            file->Write(bytes.data(), bytes.size());
        } catch (WBase::Message const& message) {
            failure = message;
        }
        auto const written = static_cast<unsigned long>(file->GetPosition());
        EXPECT_GT(written, QUOTA / 2);
        EXPECT_EQ(
            std::wstring(failure.GetMessage()),
            L"Failed to write " + std::to_wstring(QUOTA - written) + L" bytes to file '" + widePath_ + L"'.");
        EXPECT_TRUE(TestSupport::ReadFile(path_) == bytes.substr(0, written));
    });
}

TEST_F(QuotaTest, AWriteOverTheQuotaIsReportedWithThePath) {
    InAChild([this] {
        MountQuota();
        auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
        UseUp();
        std::string const bytes = Bytes(QUOTA);
        EXPECT_WRAPPED(
            file->Write(bytes.data(), bytes.size()),
            L"Failed to write " + std::to_wstring(QUOTA) + L" bytes to file '" + widePath_ + L"'.", EDQUOT);
        EXPECT_EQ(file->GetSize(), 0);
    });
}

TEST_F(QuotaTest, ACopyOverTheQuotaIsReportedAndNothingStaysOpen) {
    InAChild([this] {
        MountQuota();
        TestSupport::WriteFile(scratch_ / "source", Bytes(QUOTA));
        DescriptorCheck const check;
        EXPECT_REPORT(
            File::Copy(scratch_.Wide("source").c_str(), widePath_.c_str()), L"WFileSystem::File::Write: Failed.",
            EDQUOT);
    });
}

TEST_F(QuotaTest, EveryPolicyGivesTheFileBackOverTheQuota) {
    InAChild([this] {
        MountQuota();
        std::string const bytes = Bytes(QUOTA);
        for (auto const policy : POLICIES) {
            DescriptorCheck const check;
            auto file = OpenWriteableFile(widePath_.c_str(), policy);
            EXPECT_THROW(file->Write(bytes.data(), bytes.size()), WBase::Message);
            auto const written = static_cast<unsigned long>(file->GetPosition());
            file.reset();
            EXPECT_EQ(TestSupport::Exists(path_), policy != DELETE_FILE);
            if (policy != DELETE_FILE) {
                // Btrfs refuses to truncate a file over its quota, and the policy does not look at that.
                std::string const kept = TestSupport::ReadFile(path_);
                EXPECT_TRUE(kept == bytes.substr(0, written) || (policy == TRUNCATE_FILE && kept.empty()));
                ExpectLockIsFree();
            }
            ::unlink(path_.c_str());
        }
    });
}

TEST_F(QuotaTest, AFileThatCouldNotGrowCanBeUsedWhenTheQuotaLeavesRoomAgain) {
    InAChild([this] {
        MountQuota();
        auto const file = OpenWriteableFile(widePath_.c_str(), DELETE_FILE);
        UseUp();
        std::string const bytes = Bytes(QUOTA / 2);
        EXPECT_THROW(file->Write(bytes.data(), bytes.size()), WBase::Message);
        ASSERT_EQ(::unlink(other_.c_str()), 0);
        file->SetPosition(0);
        file->Write(bytes.data(), bytes.size());
        file->CommitAndClose();
        EXPECT_TRUE(TestSupport::ReadFile(path_) == bytes);
    });
}

// A server in user space

class UserSpaceTest : public ImageTroubleTest {
protected:
    /// Mounts a file system that a program serves.
    void MountUserSpace() {
        HaveOwnMounts();
        if (::access("/dev/fuse", R_OK | W_OK) == -1) {
            throw Refusal("There is no /dev/fuse for this process");
        }
        constexpr off_t IMAGE_SIZE = 0x400000;
        MakeImage({"mkfs.ext4", "-q", "-F", "-O", "^has_journal"}, IMAGE_SIZE);
        RefuseWithout("fuse2fs", TestSupport::RunProgram({"fuse2fs", "--version"}));
        server_.emplace(std::vector<std::string>{"fuse2fs", image_, mount_, "-f"});
        bool const isMounted = TestSupport::WaitUntil([this] {
            struct statfs status = {};
            return ::statfs(mount_.c_str(), &status) == 0 && status.f_type == FUSE_SUPER_MAGIC;
        });
        ASSERT_TRUE(isMounted) << server_->Kill().errors;
    }

    void KillTheServer() {
        server_->Signal(SIGKILL);
        EXPECT_TRUE(TestSupport::WaitUntil([this] {
            struct statfs status = {};
            return ::statfs(mount_.c_str(), &status) == -1 && errno == ENOTCONN;
        }));
    }

private:
    std::optional<TestSupport::Program> server_;
};

TEST_F(UserSpaceTest, WhatIsCommittedIsReadBack) {
    InAChild([this] {
        MountUserSpace();
        DescriptorCheck const check;
        std::string const bytes = Bytes(100000);
        auto const file = OpenUpdateableFile(widePath_.c_str(), DELETE_FILE);
        file->Write(bytes.data(), bytes.size());
        file->SetPosition(90000);
        file->Truncate();
        EXPECT_NO_THROW(file->Flush());
        EXPECT_TRUE(file->IsAccessibleViaPath(nullptr));
        file->CommitAndClose();
        EXPECT_EQ(TestSupport::ReadFile(path_), bytes.substr(0, 90000));
        std::string back(90000, '\0');
        OpenReadableFile(widePath_.c_str())->Read(back.data(), back.size());
        EXPECT_EQ(back, bytes.substr(0, 90000));
    });
}

TEST_F(UserSpaceTest, EachPolicyDoesWhatItSays) {
    InAChild([this] {
        MountUserSpace();
        for (auto const policy : POLICIES) {
            OpenWriteableFile(widePath_.c_str(), policy)->Write("written", 0);
            EXPECT_EQ(TestSupport::Exists(path_), policy != DELETE_FILE);
            if (policy != DELETE_FILE) {
                EXPECT_EQ(TestSupport::ReadFile(path_), policy == KEEP_FILE ? "written" : "");
            }
        }
    });
}

TEST_F(UserSpaceTest, NamesAreMadeMovedListedAndDeleted) {
    InAChild([this] {
        MountUserSpace();
        std::wstring const directory = scratch_.Wide("mount/made/inner");
        std::wstring const moved = directory + L"/moved";
        Directory::Create(directory.c_str(), true);
        OpenWriteableFile(widePath_.c_str(), KEEP_FILE)->Write("written", 0);
        File::Move(widePath_.c_str(), moved.c_str());
        EXPECT_FALSE(TestSupport::Exists(path_));
        EXPECT_EQ(Path::GetFileNamesWithPattern((directory + L"/*").c_str())->GetCount(), 1U);
        File::Copy(moved.c_str(), widePath_.c_str());
        EXPECT_EQ(TestSupport::ReadFile(path_), "written");
        EXPECT_TRUE(File::Delete(moved.c_str(), nullptr));
        EXPECT_TRUE(Directory::DeleteRecursively(scratch_.Wide("mount/made").c_str(), nullptr));
        EXPECT_THAT(TestSupport::List(mount_), ElementsAre("data", "lost+found"));
    });
}

TEST_F(UserSpaceTest, ARecordLockKeepsOtherProcessesAway) {
    InAChild([this] {
        MountUserSpace();
        auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
        {
            WriteableFile::WriteSmartLock const lock(*file);
            EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "WRITE");
        }
        {
            ReadableFile::ReadSmartLock const lock(*file);
            EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "READ");
        }
        EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "");
    });
}

TEST_F(UserSpaceTest, WhenTheServerHasDiedEveryOperationOfAnOpenFileButItsCloseTellsSo) {
    InAChild([this] {
        MountUserSpace();
        TestSupport::WriteFile(path_, Bytes(100));
        DescriptorCheck const check;
        {
            auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
            KillTheServer();
            EXPECT_WRAPPED(file->Write("x", 1), L"Failed to write 1 bytes to file '" + widePath_ + L"'.", ENOTCONN);
            EXPECT_WRAPPED(file->Truncate(), L"Failed to truncate file '" + widePath_ + L"'.", ENOTCONN);
            EXPECT_WRAPPED(file->Flush(), L"Failed to flush file '" + widePath_ + L"'.", ENOTCONN);
            EXPECT_NO_THROW(file->CommitAndClose()); // this server is not asked at a close
        }
        ExpectNoOpening(widePath_, ENOTCONN);
    });
}

TEST_F(UserSpaceTest, WhenTheServerHasDiedAReadIsReportedWithThePath) {
    InAChild([this] {
        MountUserSpace();
        TestSupport::WriteFile(path_, Bytes(100));
        DescriptorCheck const check;
        auto const file = OpenReadableFile(widePath_.c_str());
        KillTheServer();
        char byte = 0;
        EXPECT_WRAPPED(file->Read(&byte, 1), L"Failed to read 1 bytes from file '" + widePath_ + L"'.", ENOTCONN);
        ExpectReported(
            [&](WBase::Message* report) { return file->IsAccessibleViaPath(report); },
            L"Failed to get attributes of file '" + widePath_ + L"'.", ENOTCONN);
    });
}

TEST_F(UserSpaceTest, WhenTheServerHasDiedNoPolicyLeavesADescriptor) {
    for (auto const policy : POLICIES) {
        InAChild([this, policy] {
            MountUserSpace();
            DescriptorCheck const check;
            auto const file = OpenWriteableFile(widePath_.c_str(), policy);
            file->Write("written", 0);
            KillTheServer();
        });
    }
}

TEST_F(UserSpaceTest, WhenTheServerHasDiedNoNameIsMadeMovedOrDeleted) {
    InAChild([this] {
        MountUserSpace();
        TestSupport::WriteFile(path_, "stays");
        KillTheServer();
        DescriptorCheck const check;
        std::wstring const other = scratch_.Wide("mount/other");
        ExpectNoDeletion(widePath_, ENOTCONN);
        EXPECT_WRAPPED(
            File::Move(widePath_.c_str(), other.c_str()),
            L"Failed to move file '" + widePath_ + L"' to '" + other + L"'.", ENOTCONN);
        EXPECT_WRAPPED(
            Directory::Create(other.c_str(), false), L"Failed to create directory '" + other + L"'.", ENOTCONN);
        EXPECT_FALSE(Path::IsFile(widePath_.c_str()));
    });
}

} // namespace

} // namespace RealTrouble

#endif
