// What is particular to the writeable file. What it has in common with the updateable file: WritingFile*Test.cpp.

#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>
#include <Tests/WritingFiles.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

using namespace WFileSystem;
using ::testing::ElementsAre;
using TestSupport::Recorder;

class WriteableFileTest : public WritingFiles::Test<WritingFiles::Writeable> {
protected:
    static std::wstring Refused(std::wstring const& path) {
        return L"WFileSystem::WriteableFileImpl::WriteableFileImpl: ::open '" + path + L"' and get system file handle.";
    }
};

TEST_F(WriteableFileTest, OneLockedWriteMakesTheseCallsAndNoOthers) {
    Recorder recorder;
    {
        auto const file = OpenWriteableFile(widePath_.c_str(), DELETE_FILE);
        WriteableFile::WriteSmartLock const lock(*file);
        file->Write("text", 0);
        file->Truncate();
        file->CommitAndClose();
    }
    EXPECT_THAT(
        recorder.Calls(),
        ElementsAre(
            "stat(\"" + path_ + "\")", "chmod(\"" + path_ + "\", 0664)",
            "open(\"" + path_ + "\", O_WRONLY|O_CREAT|O_NOCTTY, 0664)", "fcntl(F_GETFD)", "fcntl(F_SETFD, FD_CLOEXEC)",
            "fstat()", "fcntl(F_SETLKW, F_WRLCK 0+0)", "write(4)", "lseek(0, SEEK_CUR)", "ftruncate(4)", "close()"));
    EXPECT_EQ(TestSupport::ReadFile(path_), "text");
}

TEST_F(WriteableFileTest, AStandardDescriptorIsRefusedAndClosedAgain) {
    for (int const fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        TestSupport::CloseDuring const closed(fd);
        Recorder recorder;
        recorder.On("open").After([](TestSupport::Call&) { errno = EXDEV; });
        recorder.On("close").Fail(EIO); // the error of the close is not the one that is reported
        EXPECT_REPORT(OpenWriteableFile(widePath_.c_str(), DELETE_FILE), Refused(widePath_), EXDEV);
        EXPECT_EQ(recorder.Names(), "stat chmod open close");
        EXPECT_EQ(recorder.Find("close").fd, fd);
        EXPECT_FALSE(TestSupport::IsOpen(fd));
    }
    EXPECT_EQ(TestSupport::ReadFile(path_), WritingFiles::CONTENT) << "no policy applies";
}

TEST_F(WriteableFileTest, AFileMadeForARefusedDescriptorStays) {
    TestSupport::CloseDuring const closed(STDIN_FILENO);
    std::wstring const path = scratch_.Wide("new");
    Recorder recorder;
    recorder.On("open").After([](TestSupport::Call&) { errno = 0; });
    EXPECT_REPORT(OpenWriteableFile(path.c_str(), DELETE_FILE), Refused(path), 0);
    EXPECT_THAT(TestSupport::List(scratch_.Path()), ElementsAre("data", "new"));
}

TEST_F(WriteableFileTest, TheCloseOfARefusedDescriptorIsRepeatedWhileInterrupted) {
    TestSupport::CloseDuring const closed(STDIN_FILENO);
    Recorder recorder;
    recorder.On("close").First(3).FailWithoutCalling(EINTR);
    EXPECT_THROW(OpenWriteableFile(widePath_.c_str(), KEEP_FILE), WBase::Message);
    EXPECT_EQ(recorder.Count("close"), 4U);
    EXPECT_FALSE(TestSupport::IsOpen(STDIN_FILENO));
}

TEST_F(WriteableFileTest, MovePositionClearsTheLockTouchedFlag) {
    auto const file = Open();
    file->WriteLock(false);
    file->MovePosition(1);
    EXPECT_FALSE(file->IsLockTouched());
    EXPECT_TRUE(file->IsWriteLocked());
}

TEST_F(WriteableFileTest, TheFileCantBeReadThroughItsDescriptor) {
    auto const file = Open();
    char byte;
    EXPECT_EQ(::read(file->GetDescriptor(), &byte, 1), -1);
    EXPECT_EQ(errno, EBADF);
}

} // namespace
