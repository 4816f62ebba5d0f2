// Full and read-only file systems, missing rights, loops of links, files that are replaced, limits, overlays.

#include <DataType/StringCollection.h>
#include <FileSystem/Directory.h>
#include <FileSystem/FileImpl.h>
#include <FileSystem/Path.h>
#include <FileSystem/PrivateSource/InprocessFileLocker.h>
#include <PDCHeader/PDCunistd.h>
#include <Tests/RealTrouble.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Sanitizers.h>

#include <algorithm>
#include <fcntl.h>
#include <memory>
#include <sys/resource.h>
#include <vector>

namespace RealTrouble {

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

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

TEST_F(RealTroubleTest, AFileOfAnOverlayThatWasReplacedBelowIsStaleAndStays) {
    InAChild([this] {
        MountOverlay();
        TestSupport::WriteFile(merged_, "above"); // copies it up
        // Behind the overlay's back; it remembers the file that had the name.
        std::string const upper = mount_ + "/upper/data";
        ASSERT_EQ(::rename(upper.c_str(), (mount_ + "/upper/moved").c_str()), 0);
        TestSupport::WriteFile(upper, "another");
        DescriptorCheck const check;
        ExpectNoDeletion(wideMerged_, ESTALE);
        std::wstring const other = scratch_.Wide("mount/merged/other");
        EXPECT_WRAPPED(
            File::Move(wideMerged_.c_str(), other.c_str()),
            L"Failed to move file '" + wideMerged_ + L"' to '" + other + L"'.", ESTALE);
        OpenUpdateableFile(wideMerged_.c_str(), DELETE_FILE)->Write("x", 1); // its deletion fails, too
        EXPECT_EQ(TestSupport::ReadFile(upper), "another");
    });
}

} // namespace

} // namespace RealTrouble
