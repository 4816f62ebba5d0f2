// Descriptor and stream I/O of WFileSystem::File: copying, reading and writing through a buffer, lines, positions, and
// moving a block inside a stream.

#include <FileSystem/File.h>

#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gmock/gmock.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <random>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

namespace {

using TestSupport::Call;
using TestSupport::Recorder;
using WFileSystem::File;

std::unique_ptr<WDataType::Binary> MakeBuffer(unsigned long size) {
    return WDataType::CreateBinary(size, nullptr);
}

std::string TextOf(WDataType::Binary const& buffer) {
    return std::string(buffer.GetBuffer(), buffer.GetSize());
}

/// Text without a period that a block size could hide.
std::string MakeText(unsigned long size) {
    std::string text(size, '\0');
    for (unsigned long index = 0; index < size; ++index) {
        text[index] = static_cast<char>('a' + (index * index + index / 7) % 26);
    }
    return text;
}

/// A buffer over memory of the test's own, that says it has any size.
class LentBuffer : public WDataType::Binary {
public:
    LentBuffer(char* memory, unsigned long size) : memory_(memory), fullSize_(size), size_(size) {}
    unsigned long GetSize() const override { return size_; }
    char* GetBuffer() const override { return memory_; }
    void ReduceSize(unsigned long count) override { size_ -= count; }
    void RestoreFullSize() override { size_ = fullSize_; }

private:
    char* memory_;
    unsigned long fullSize_;
    unsigned long size_;
};

class FileStreamTest : public testing::Test {
protected:
    ~FileStreamTest() override {
        for (FILE* const stream : streams_) {
            std::fclose(stream);
        }
        for (int const fd : descriptors_) {
            ::close(fd);
        }
    }

    std::string Make(std::string const& name, std::string const& content) {
        TestSupport::WriteFile(scratch_ / name, content);
        return scratch_ / name;
    }

    std::string Read(std::string const& name) { return TestSupport::ReadFile(scratch_ / name); }

    FILE* OpenStream(std::string const& name, char const* mode) {
        FILE* const stream = std::fopen((scratch_ / name).c_str(), mode);
        EXPECT_NE(stream, nullptr);
        streams_.push_back(stream);
        return stream;
    }

    int OpenDescriptor(std::string const& name, int flags) {
        int const fd = ::open((scratch_ / name).c_str(), flags | O_CLOEXEC, 0600);
        EXPECT_NE(fd, -1);
        descriptors_.push_back(fd);
        return fd;
    }

    TestSupport::ScratchDirectory scratch_;

private:
    std::vector<FILE*> streams_;
    std::vector<int> descriptors_;
};

// Copying descriptors

TEST_F(FileStreamTest, CopyOfDescriptorsBeginsAtThePositionAndEndsWithASync) {
    Make("from", "0123456789");
    int const from = OpenDescriptor("from", O_RDONLY);
    int const to = OpenDescriptor("to", O_WRONLY | O_CREAT);
    ::lseek(from, 3, SEEK_SET);
    auto const buffer = MakeBuffer(4);

    Recorder recorder;
    EXPECT_EQ(File::Copy(from, to, *buffer), 0);
    recorder.Stop();

    EXPECT_EQ(Read("to"), "3456789");
    EXPECT_THAT(
        recorder.Calls(Recorder::RESULTS),
        testing::ElementsAre(
            "read(4) = 4", "write(4) = 4", "read(4) = 3", "write(3) = 3", "read(4) = 0", "fsync() = 0"));
    EXPECT_EQ(recorder.Find("fsync").fd, to);
}

TEST_F(FileStreamTest, CopyOfDescriptorsUsesTheFullSizeOfTheBuffer) {
    Make("from", MakeText(10));
    auto const buffer = MakeBuffer(8);
    buffer->ReduceSize(7);
    Recorder recorder;
    File::Copy(OpenDescriptor("from", O_RDONLY), OpenDescriptor("to", O_WRONLY | O_CREAT), *buffer);
    EXPECT_EQ(recorder.Find("read").size, 8);
    EXPECT_EQ(Read("to"), MakeText(10));
}

TEST_F(FileStreamTest, CopyOfDescriptorsReportsAWriteThatFails) {
    Make("from", "text");
    int const from = OpenDescriptor("from", O_RDONLY);
    int const to = OpenDescriptor("to", O_WRONLY | O_CREAT);
    auto const buffer = MakeBuffer(16);
    Recorder recorder;
    recorder.On("write").Fail(ENOSPC);
    EXPECT_REPORT(
        File::Copy(from, to, *buffer),
        L"WFileSystem::File::Copy: ::write failed for file #" + std::to_wstring(to) + L".", ENOSPC);
    EXPECT_EQ(recorder.Names(), "read write");
}

TEST_F(FileStreamTest, CopyOfDescriptorsReportsAWriteThatFallsShort) {
    Make("from", "text");
    int const from = OpenDescriptor("from", O_RDONLY);
    int const to = OpenDescriptor("to", O_WRONLY | O_CREAT);
    auto const buffer = MakeBuffer(16);
    Recorder recorder;
    recorder.On("write").Limit(3);
    errno = EDQUOT; // no call has failed, so the error number is whatever it was
    EXPECT_REPORT(
        File::Copy(from, to, *buffer),
        L"WFileSystem::File::Copy: ::write failed for file #" + std::to_wstring(to) + L".", EDQUOT);
    recorder.Stop();
    EXPECT_EQ(Read("to"), "tex");
}

TEST_F(FileStreamTest, CopyOfDescriptorsDoesNotRepeatAnInterruptedWrite) {
    Make("from", "text");
    int const from = OpenDescriptor("from", O_RDONLY);
    int const to = OpenDescriptor("to", O_WRONLY | O_CREAT);
    auto const buffer = MakeBuffer(16);
    Recorder recorder;
    recorder.On("write").First(1).Fail(EINTR);
    EXPECT_REPORT(
        File::Copy(from, to, *buffer),
        L"WFileSystem::File::Copy: ::write failed for file #" + std::to_wstring(to) + L".", EINTR);
}

TEST_F(FileStreamTest, CopyOfDescriptorsTurnsAFailedReadIntoAWriteOfFourGigabytes) {
    int const to = OpenDescriptor("to", O_WRONLY | O_CREAT);
    auto const buffer = MakeBuffer(16);
    Recorder recorder;
    recorder.On("read").Script({-1, 0}, EIO);
    recorder.On("write").FailWithoutCalling(EFAULT);
    // The failed write equals the failed read, so the copying goes on.
    EXPECT_EQ(File::Copy(0, to, *buffer), 0);
    EXPECT_EQ(recorder.Names(), "read write read fsync");
    EXPECT_EQ(recorder.Find("write").size, 4294967295UL);
}

TEST_F(FileStreamTest, CopyOfDescriptorsTakesAnInterruptedReadForAFailedOne) {
    int const to = OpenDescriptor("to", O_WRONLY | O_CREAT);
    auto const buffer = MakeBuffer(16);
    Recorder recorder;
    recorder.On("read").Script({-1, 0}, EINTR);
    recorder.On("write").FailWithoutCalling(EFAULT);
    EXPECT_EQ(File::Copy(0, to, *buffer), 0);
    EXPECT_EQ(recorder.Names(), "read write read fsync");
}

TEST_F(FileStreamTest, CopyOfDescriptorsAfterAFailedReadReportsAWriteThatTransfersSomething) {
    int const to = OpenDescriptor("to", O_WRONLY | O_CREAT);
    auto const buffer = MakeBuffer(16);
    Recorder recorder;
    recorder.On("read").Fail(EISDIR);
    recorder.On("write").Script({4096});
    EXPECT_THROW(File::Copy(0, to, *buffer), WBase::ExceptionImpl<WBase::Message>);
}

TEST_F(FileStreamTest, CopyOfDescriptorsCutsTheChunkTo32Bits) {
    LentBuffer buffer(nullptr, 0x100000005UL);
    Recorder recorder;
    recorder.On("read").Script({0});
    recorder.On("fsync").Return(0);
    File::Copy(0, 1, buffer);
    EXPECT_EQ(recorder.Find("read").size, 5);
}

TEST_F(FileStreamTest, CopyOfDescriptorsLooksAtTheLower32BitsOfWhatWasWritten) {
    Recorder recorder;
    recorder.On("read").Script({3, -1, 0});
    recorder.On("write").Script({0x100000003L, 0xFFFFFFFFL});
    recorder.On("fsync").Return(0);
    EXPECT_EQ(File::Copy(0, 1, *MakeBuffer(16)), 0);
    EXPECT_EQ(recorder.Names(), "read write read write read fsync");
}

TEST_F(FileStreamTest, CopyOfDescriptorsTakesAWriteOfTwoGigabytesForAFailure) {
    auto const buffer = MakeBuffer(16);
    Recorder recorder;
    recorder.On("read").Script({0x80000000L});
    recorder.On("write").Script({0x80000000L});
    errno = EDQUOT; // no call has failed, so the error number is whatever it was
    EXPECT_REPORT(File::Copy(0, 1, *buffer), L"WFileSystem::File::Copy: ::write failed for file #1.", EDQUOT);
}

TEST_F(FileStreamTest, CopyOfDescriptorsAfterAFailedReadWritesTheMemoryBehindTheBuffer) {
    auto const page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    void* const memory = ::mmap(nullptr, 3 * page, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    ASSERT_NE(memory, MAP_FAILED);
    std::memset(memory, 'x', 2 * page);
    ASSERT_EQ(::mprotect(static_cast<char*>(memory) + 2 * page, page, PROT_NONE), 0);
    LentBuffer buffer(static_cast<char*>(memory), 16);
    int const to = OpenDescriptor("to", O_WRONLY | O_CREAT);
    Recorder recorder;
    recorder.On("read").Optional().Script({-1, 0}, EISDIR);
    try {
        File::Copy(0, to, buffer);
    } catch (WBase::ExceptionImpl<WBase::Message> const&) { // NOLINT(bugprone-empty-catch): what was written counts
    }
    recorder.Stop();
    ::munmap(memory, 3 * page);
    if (recorder.Find("write").result == -1) {
        GTEST_SKIP() << "this system does not write a part of such a buffer";
    }
    EXPECT_EQ(Read("to"), std::string(2 * page, 'x'));
}

TEST_F(FileStreamTest, CopyOfDescriptorsThroughAnEmptyBufferCopiesNothing) {
    Make("from", "text");
    EXPECT_EQ(
        File::Copy(OpenDescriptor("from", O_RDONLY), OpenDescriptor("to", O_WRONLY | O_CREAT), *MakeBuffer(0)), 0);
    EXPECT_EQ(Read("to"), "");
}

TEST_F(FileStreamTest, CopyOfDescriptorsWithinAFileThatIsAppendedToNeverEnds) {
    Make("file", "1234");
    int const from = OpenDescriptor("file", O_RDONLY);
    int const to = OpenDescriptor("file", O_WRONLY | O_APPEND);
    Recorder recorder;
    recorder.On("write").Nth(1000).Fail(ENOSPC);
    EXPECT_REPORT(
        File::Copy(from, to, *MakeBuffer(16)),
        L"WFileSystem::File::Copy: ::write failed for file #" + std::to_wstring(to) + L".", ENOSPC);
    EXPECT_EQ(File::GetSize(from), 4 * 1000);
}

TEST_F(FileStreamTest, CopyOfDescriptorsWithinAFileNeverEndsWhereItWritesAheadOfWhatItReads) {
    Make("file", "1234");
    int const to = OpenDescriptor("file", O_RDWR);
    File::SetPosition(to, 1);
    Recorder recorder;
    recorder.On("write").Nth(1000).Fail(ENOSPC);
    EXPECT_THROW(
        File::Copy(OpenDescriptor("file", O_RDONLY), to, *MakeBuffer(16)), WBase::ExceptionImpl<WBase::Message>);
    EXPECT_EQ(recorder.Count("write"), 1000U);
    EXPECT_GE(File::GetSize(to), 1000) << "It grows by a byte a step at least.";
}

TEST_F(FileStreamTest, CopyOfDescriptorsWithinAFileEndsWhereItWritesBehindWhatItReads) {
    Make("file", "1234567");
    int const from = OpenDescriptor("file", O_RDONLY);
    File::SetPosition(from, 2);
    EXPECT_EQ(File::Copy(from, OpenDescriptor("file", O_WRONLY), *MakeBuffer(2)), 0);
    EXPECT_EQ(Read("file"), "3456767");
}

TEST_F(FileStreamTest, CopyOfDescriptorsReportsASyncThatFails) {
    Make("from", "");
    int const from = OpenDescriptor("from", O_RDONLY);
    int const to = OpenDescriptor("to", O_WRONLY | O_CREAT);
    auto const buffer = MakeBuffer(16);
    Recorder recorder;
    recorder.On("fsync").Fail(EIO);
    EXPECT_REPORT(File::Copy(from, to, *buffer), L"WFileSystem::File::Flush: ::fdatasync failed.", EIO);
}

// Copying streams

TEST_F(FileStreamTest, CopyOfAStreamOfOneBufferMakesTwoReadsAndOneWrite) {
    Make("from", MakeText(16384));
    FILE* const from = OpenStream("from", "r");
    FILE* const to = OpenStream("to", "w");
    auto const buffer = MakeBuffer(16384);
    Recorder recorder;
    EXPECT_EQ(File::Copy(from, to, *buffer), 0);
    recorder.Stop();
    EXPECT_THAT(
        recorder.Calls(), testing::ElementsAre("fread(1, 16384)", "fwrite(16384, 1)", "fread(1, 16384)", "fflush()"));
    EXPECT_EQ(Read("to"), MakeText(16384));
}

TEST_F(FileStreamTest, CopyOfAStreamEndsWithTheFirstShortRead) {
    Make("from", MakeText(11));
    FILE* const from = OpenStream("from", "r");
    FILE* const to = OpenStream("to", "w");
    auto const buffer = MakeBuffer(4);
    Recorder recorder;
    File::Copy(from, to, *buffer);
    recorder.Stop();
    EXPECT_THAT(
        recorder.Calls(),
        testing::ElementsAre(
            "fread(1, 4)", "fwrite(4, 1)", "fread(1, 4)", "fwrite(4, 1)", "fread(1, 4)", "fwrite(3, 1)", "fflush()"));
    EXPECT_EQ(Read("to"), MakeText(11));
}

TEST_F(FileStreamTest, CopyOfStreamsBeginsAtThePosition) {
    Make("from", "0123456789");
    FILE* const from = OpenStream("from", "r");
    std::fseek(from, 8, SEEK_SET);
    File::Copy(from, OpenStream("to", "w"), *MakeBuffer(64));
    EXPECT_EQ(Read("to"), "89");
}

TEST_F(FileStreamTest, CopyOfStreamsUsesTheFullSizeOfTheBuffer) {
    Make("from", MakeText(10));
    FILE* const from = OpenStream("from", "r");
    FILE* const to = OpenStream("to", "w");
    auto const buffer = MakeBuffer(8);
    buffer->ReduceSize(7);
    Recorder recorder;
    File::Copy(from, to, *buffer);
    EXPECT_EQ(recorder.Names(), "fread fwrite fread fwrite fflush");
}

TEST_F(FileStreamTest, CopyOfStreamsThroughAnEmptyBufferGoesOnForEver) {
    Make("from", "text");
    FILE* const from = OpenStream("from", "r");
    FILE* const to = OpenStream("to", "w");
    Recorder recorder;
    recorder.On("fread").Nth(1000).Fail(EIO);
    EXPECT_REPORT(File::Copy(from, to, *MakeBuffer(0)), L"WFileSystem::File::Read: ::fread failed.", EIO);
    EXPECT_EQ(recorder.Count("fread"), 1000);
}

TEST_F(FileStreamTest, CopyOfStreamsWithinALongFileThatIsAppendedToNeverEnds) {
    constexpr unsigned long SIZE = 0x10000;
    Make("file", MakeText(SIZE));
    FILE* const from = OpenStream("file", "r");
    FILE* const to = OpenStream("file", "a");
    Recorder recorder;
    recorder.On("fwrite").Nth(1000).Fail(ENOSPC);
    EXPECT_REPORT(File::Copy(from, to, *MakeBuffer(4096)), L"WFileSystem::File::Write: Failed.", ENOSPC);
    EXPECT_EQ(File::GetPosition(from), 1000 * 4096) << "far beyond what the file held";
}

// Reading a stream

TEST_F(FileStreamTest, ReadOfAStreamTakesTheFullSizeOfTheBufferForZero) {
    Make("file", MakeText(20));
    auto const buffer = MakeBuffer(8);
    buffer->ReduceSize(8);
    EXPECT_EQ(File::Read(OpenStream("file", "r"), *buffer, 0), 0);
    EXPECT_EQ(TextOf(*buffer), MakeText(8));
}

TEST_F(FileStreamTest, ReadOfAStreamTakesAtMostWhatWasAskedFor) {
    Make("file", MakeText(20));
    auto const buffer = MakeBuffer(8);
    Recorder recorder;
    File::Read(OpenStream("file", "r"), *buffer, 5);
    EXPECT_EQ(TextOf(*buffer), MakeText(5));
    EXPECT_EQ(recorder.Count("fread"), 1);
    EXPECT_EQ(recorder.Find("fread").size, 5);
}

TEST_F(FileStreamTest, ReadOfAStreamNeverEnlargesTheBuffer) {
    Make("file", MakeText(20));
    auto const buffer = MakeBuffer(8);
    File::Read(OpenStream("file", "r"), *buffer, 9);
    EXPECT_EQ(TextOf(*buffer), MakeText(8));
}

TEST_F(FileStreamTest, ReadOfAStreamAtItsEndLeavesTheBufferEmpty) {
    Make("file", "abc");
    FILE* const stream = OpenStream("file", "r");
    auto const buffer = MakeBuffer(8);
    File::Read(stream, *buffer, 0);
    EXPECT_EQ(TextOf(*buffer), "abc");
    File::Read(stream, *buffer, 0);
    EXPECT_EQ(buffer->GetSize(), 0);
}

TEST_F(FileStreamTest, ReadOfAStreamReportsAFailure) {
    Make("file", "abc");
    FILE* const stream = OpenStream("file", "r");
    auto const buffer = MakeBuffer(8);
    Recorder recorder;
    recorder.On("fread").Fail(EIO);
    EXPECT_REPORT(File::Read(stream, *buffer, 0), L"WFileSystem::File::Read: ::fread failed.", EIO);
    EXPECT_EQ(recorder.Names(), "fread");
}

TEST_F(FileStreamTest, AStreamThatOnceFailedMakesEveryLaterReadFail) {
    Make("file", "abc");
    FILE* const stream = OpenStream("file", "r");
    auto const buffer = MakeBuffer(8);
    EXPECT_EQ(std::fputc('x', stream), EOF);
    EXPECT_THROW(File::Read(stream, *buffer, 0), WBase::ExceptionImpl<WBase::Message>);
    EXPECT_THROW(File::Read(stream, *buffer, 0), WBase::ExceptionImpl<WBase::Message>);
    EXPECT_NE(std::ferror(stream), 0);
}

// Writing a stream

TEST_F(FileStreamTest, WriteOfAStreamWritesOneItemOfAllBytes) {
    FILE* const stream = OpenStream("file", "w");
    Recorder recorder;
    EXPECT_EQ(File::Write(stream, static_cast<void const*>("a\0b"), 3), 0);
    File::Flush(stream);
    EXPECT_THAT(recorder.Calls(), testing::ElementsAre("fwrite(3, 1)", "fflush()"));
    EXPECT_EQ(Read("file"), std::string("a\0b", 3));
}

TEST_F(FileStreamTest, WriteOfNothingMakesNoCall) {
    FILE* const stream = OpenStream("file", "w");
    Recorder recorder;
    EXPECT_EQ(File::Write(stream, static_cast<void const*>("abc"), 0), 0);
    EXPECT_EQ(File::Write(stream, "", 0), 0);
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(FileStreamTest, WriteOfATextWithoutALengthWritesUpToItsNul) {
    FILE* const stream = OpenStream("file", "w");
    File::Write(stream, "abc", 0);
    File::Write(stream, "defgh", 2);
    File::Flush(stream);
    EXPECT_EQ(Read("file"), "abcde");
}

TEST_F(FileStreamTest, WriteOfAStreamReportsAFailure) {
    FILE* const stream = OpenStream("file", "w");
    Recorder recorder;
    recorder.On("fwrite").Fail(EFBIG);
    EXPECT_REPORT(File::Write(stream, "abc", 0), L"WFileSystem::File::Write: Failed.", EFBIG);
}

// Lines of a stream

TEST_F(FileStreamTest, ReadLineOfAStreamKeepsTheLineFeed) {
    Make("file", "one\ntwo");
    FILE* const stream = OpenStream("file", "r");
    auto const buffer = MakeBuffer(16);
    EXPECT_EQ(File::ReadLine(stream, *buffer), 0);
    EXPECT_EQ(TextOf(*buffer), "one\n");
    File::ReadLine(stream, *buffer);
    EXPECT_EQ(TextOf(*buffer), "two");
    File::ReadLine(stream, *buffer);
    EXPECT_EQ(buffer->GetSize(), 0);
}

TEST_F(FileStreamTest, ReadLineOfAStreamGivesALongLineInPieces) {
    Make("file", "abcdefg\n");
    FILE* const stream = OpenStream("file", "r");
    auto const buffer = MakeBuffer(4);
    File::ReadLine(stream, *buffer);
    EXPECT_EQ(TextOf(*buffer), "abc");
    File::ReadLine(stream, *buffer);
    EXPECT_EQ(TextOf(*buffer), "def");
    File::ReadLine(stream, *buffer);
    EXPECT_EQ(TextOf(*buffer), "g\n");
}

TEST_F(FileStreamTest, ReadLineOfAStreamReportsAFailure) {
    Make("file", "abc");
    FILE* const stream = OpenStream("file", "r");
    auto const buffer = MakeBuffer(8);
    Recorder recorder;
    recorder.On("fgets").Fail(EIO);
    EXPECT_REPORT(File::ReadLine(stream, *buffer), L"WFileSystem::File::ReadLine: ::fgets failed.", EIO);
}

TEST_F(FileStreamTest, AStreamThatOnceFailedMakesEveryLaterReadLineFail) {
    Make("file", "abc\ndef\n");
    FILE* const stream = OpenStream("file", "r");
    EXPECT_EQ(std::fputc('x', stream), EOF);
    EXPECT_THROW(File::ReadLine(stream, *MakeBuffer(8)), WBase::ExceptionImpl<WBase::Message>);
    EXPECT_THROW(File::ReadLine(stream, *MakeBuffer(8)), WBase::ExceptionImpl<WBase::Message>);
    EXPECT_NE(std::ferror(stream), 0);
}

TEST_F(FileStreamTest, ReadLineOfAStreamCountsTheBufferIn32Bits) {
    Make("file", "abcdefg\n");
    char memory[16];
    LentBuffer buffer(memory, 0x100000004UL);
    File::ReadLine(OpenStream("file", "r"), buffer);
    EXPECT_EQ(TextOf(buffer), "abc");
}

TEST_F(FileStreamTest, ReadLineOfAStreamLosesWhatFollowsAZeroByte) {
    Make("file", std::string("ab\0cd\nef", 8));
    FILE* const stream = OpenStream("file", "r");
    auto const buffer = MakeBuffer(16);
    File::ReadLine(stream, *buffer);
    EXPECT_EQ(TextOf(*buffer), "ab");
    File::ReadLine(stream, *buffer);
    EXPECT_EQ(TextOf(*buffer), "ef");
}

TEST_F(FileStreamTest, ReadLineOfAStreamIntoOneByteLooksLikeTheEnd) {
    Make("file", "abc\n");
    auto const buffer = MakeBuffer(1);
    File::ReadLine(OpenStream("file", "r"), *buffer);
    EXPECT_EQ(buffer->GetSize(), 0);
}

TEST_F(FileStreamTest, ReadLineOfAStreamIntoAnEmptyBufferReadsNothing) {
    Make("file", "abc\n");
    FILE* const stream = OpenStream("file", "r");
    auto const buffer = MakeBuffer(0);
    File::ReadLine(stream, *buffer);
    EXPECT_EQ(buffer->GetSize(), 0U);
    EXPECT_EQ(std::ftell(stream), 0);
}

// Sizes, truncation, flushing

TEST_F(FileStreamTest, FlushOfADescriptorSyncsAndIsRepeatedWhileInterrupted) {
    int const fd = OpenDescriptor("file", O_WRONLY | O_CREAT);
    Recorder recorder;
    recorder.On("fsync").First(3).Fail(EINTR);
    EXPECT_EQ(File::Flush(fd), 0);
    EXPECT_EQ(recorder.Names(), "fsync fsync fsync fsync");
}

TEST_F(FileStreamTest, FlushOfADescriptorNamesAnotherCall) {
    EXPECT_REPORT(File::Flush(-1), L"WFileSystem::File::Flush: ::fdatasync failed.", EBADF);
}

TEST_F(FileStreamTest, FlushOfAStreamIsNotRepeated) {
    FILE* const stream = OpenStream("file", "w");
    Recorder recorder;
    recorder.On("fflush").Fail(EINTR);
    EXPECT_REPORT(File::Flush(stream), L"WFileSystem::File::Flush: ::fflush failed.", EINTR);
    EXPECT_EQ(recorder.Names(), "fflush");
}

TEST_F(FileStreamTest, GetSizeGoesAboveFourGigabytes) {
    int const fd = OpenDescriptor("file", O_RDWR | O_CREAT);
    File::Truncate(fd, 0x123456789LL);
    EXPECT_EQ(File::GetSize(fd), 0x123456789LL);
}

TEST_F(FileStreamTest, GetSizeIsRepeatedWhileInterrupted) {
    Make("file", "12345");
    int const fd = OpenDescriptor("file", O_RDONLY);
    Recorder recorder;
    recorder.On("fstat").First(2).Fail(EINTR);
    EXPECT_EQ(File::GetSize(fd), 5);
    EXPECT_EQ(recorder.Names(), "fstat fstat fstat");
}

TEST_F(FileStreamTest, GetSizeOfAClosedDescriptorNamesItsNumber) {
    EXPECT_REPORT(File::GetSize(1234567), L"WFileSystem::File::GetSize: ::fstat failed for #1234567.", EBADF);
}

TEST_F(FileStreamTest, GetSizeOfAStreamLeavesOutWhatTheStreamHoldsBack) {
    FILE* const stream = OpenStream("file", "w");
    File::Write(stream, "abc", 0);
    EXPECT_EQ(File::GetSize(stream), 0);
    File::Flush(stream);
    EXPECT_EQ(File::GetSize(stream), 3);
}

TEST_F(FileStreamTest, TruncateSetsTheLengthAndIsRepeatedWhileInterrupted) {
    Make("file", "12345");
    int const fd = OpenDescriptor("file", O_RDWR);
    Recorder recorder;
    recorder.On("ftruncate").First(2).Fail(EINTR);
    EXPECT_EQ(File::Truncate(fd, 2), 0);
    EXPECT_EQ(recorder.Names(), "ftruncate ftruncate ftruncate");
    EXPECT_EQ(Read("file"), "12");
}

TEST_F(FileStreamTest, TruncateReportsAFailure) {
    Make("file", "12345");
    int const fd = OpenDescriptor("file", O_RDWR);
    EXPECT_REPORT(File::Truncate(fd, -1), L"WFileSystem::File::Truncate: ::ftruncate failed.", EINVAL);
}

TEST_F(FileStreamTest, TruncateOfAStreamSetsTheLengthOfItsFile) {
    FILE* const stream = OpenStream("file", "w");
    EXPECT_EQ(File::Truncate(stream, 0x123456789LL), 0);
    EXPECT_EQ(File::GetSize(stream), 0x123456789LL);
}

TEST_F(FileStreamTest, TruncateOfAStreamDoesNotFlushIt) {
    FILE* const stream = OpenStream("file", "w");
    File::Write(stream, "abc", 0);
    Recorder recorder;
    EXPECT_EQ(File::Truncate(stream, 0), 0);
    EXPECT_EQ(recorder.Names(), "ftruncate");
    recorder.Stop();
    File::Flush(stream);
    EXPECT_EQ(Read("file"), "abc");
}

// Positions

TEST_F(FileStreamTest, PositionsOfADescriptorAreGivenBack) {
    Make("file", "12345");
    int const fd = OpenDescriptor("file", O_RDONLY);
    Recorder recorder;
    EXPECT_EQ(File::SetPosition(fd, 4), 4);
    EXPECT_EQ(File::MovePosition(fd, -1), 3);
    EXPECT_EQ(File::GetPosition(fd), 3);
    EXPECT_THAT(
        recorder.Calls(), testing::ElementsAre("lseek(4, SEEK_SET)", "lseek(-1, SEEK_CUR)", "lseek(0, SEEK_CUR)"));
}

TEST_F(FileStreamTest, PositionsOfAStreamAreNotGivenBackBySetting) {
    Make("file", "12345");
    FILE* const stream = OpenStream("file", "r");
    Recorder recorder;
    EXPECT_EQ(File::SetPosition(stream, 4), 0);
    EXPECT_EQ(File::MovePosition(stream, -1), 0);
    EXPECT_EQ(File::GetPosition(stream), 3);
    EXPECT_THAT(recorder.Calls(), testing::ElementsAre("fseeko(4, SEEK_SET)", "fseeko(-1, SEEK_CUR)", "ftello()"));
}

TEST_F(FileStreamTest, PositionsGoAboveFourGigabytes) {
    int const fd = OpenDescriptor("file", O_RDWR | O_CREAT);
    EXPECT_EQ(File::SetPosition(fd, 0x123456789LL), 0x123456789LL);
    EXPECT_EQ(File::MovePosition(fd, 0x100000000LL), 0x223456789LL);
    EXPECT_EQ(File::GetPosition(fd), 0x223456789LL);
    FILE* const stream = OpenStream("file", "r+");
    File::SetPosition(stream, 0x123456789LL);
    File::MovePosition(stream, 0x100000000LL);
    EXPECT_EQ(File::GetPosition(stream), 0x223456789LL);
}

TEST_F(FileStreamTest, PositionsOfADescriptorAreTriedOnce) {
    Make("file", "12345");
    int const fd = OpenDescriptor("file", O_RDONLY);
    Recorder recorder;
    recorder.On("lseek").Fail(EINTR);
    EXPECT_REPORT(File::SetPosition(fd, 4), L"WFileSystem::File::SetPosition: ::lseek failed.", EINTR);
    EXPECT_REPORT(File::MovePosition(fd, 1), L"WFileSystem::File::MovePosition: ::lseek failed.", EINTR);
    EXPECT_REPORT(File::GetPosition(fd), L"WFileSystem::File::GetPosition: ::lseek failed.", EINTR);
    EXPECT_EQ(recorder.Count("lseek"), 3);
}

TEST_F(FileStreamTest, PositionsOfAStreamAreTriedOnce) {
    Make("file", "12345");
    FILE* const stream = OpenStream("file", "r");
    Recorder recorder;
    recorder.On("fseeko").Fail(EINTR);
    recorder.On("ftello").Fail(EINTR);
    EXPECT_REPORT(File::SetPosition(stream, 4), L"WFileSystem::File::SetPosition: ::fseeko failed.", EINTR);
    EXPECT_REPORT(File::MovePosition(stream, 1), L"WFileSystem::File::MovePosition: ::fseeko failed.", EINTR);
    EXPECT_REPORT(File::GetPosition(stream), L"WFileSystem::File::GetPosition: ::ftello failed.", EINTR);
    EXPECT_EQ(recorder.Names(), "fseeko fseeko ftello");
}

// Moving a block

struct BlockMove {
    long long source;
    long long destination;
    long long size;
    unsigned long bufferSize;
};

std::string MovedInMemory(std::string text, BlockMove const& move) {
    auto const size = static_cast<std::size_t>(move.size);
    auto const end = static_cast<std::size_t>(std::max(move.source, move.destination)) + size;
    text.resize(std::max(text.size(), end));
    std::memmove(text.data() + move.destination, text.data() + move.source, size);
    return text;
}

class FileBlockTest : public FileStreamTest {
protected:
    void ExpectMoveLikeMemory(std::string const& text, BlockMove const& move) {
        SCOPED_TRACE(
            testing::Message() << move.source << " to " << move.destination << ", " << move.size << " bytes by "
                               << move.bufferSize);
        Make("file", text);
        FILE* const stream = std::fopen((scratch_ / "file").c_str(), "r+");
        ASSERT_NE(stream, nullptr);
        File::SetPosition(stream, move.source);
        EXPECT_EQ(File::CopyBlock(stream, *MakeBuffer(move.bufferSize), move.destination, move.size), 0);
        std::fclose(stream);
        EXPECT_TRUE(Read("file") == (move.source == move.destination ? text : MovedInMemory(text, move)));
    }
};

TEST_F(FileBlockTest, SmallBlocksMoveLikeMemory) {
    std::string const text = MakeText(40);
    for (unsigned long const bufferSize : {1UL, 2UL, 3UL, 4UL, 7UL, 16UL, 64UL}) {
        for (long long const source : {0LL, 1LL, 5LL, 13LL}) {
            for (long long const destination : {0LL, 1LL, 4LL, 6LL, 12LL, 14LL, 30LL}) {
                for (long long const size : {1LL, 2LL, 3LL, 4LL, 8LL, 9LL, 20LL, 27LL}) {
                    ExpectMoveLikeMemory(text, {source, destination, size, bufferSize});
                }
            }
        }
    }
}

TEST_F(FileBlockTest, BlocksBeyondTheStreamsOwnBufferMoveLikeMemory) {
    constexpr long long FILE_SIZE = 20000;
    std::string const text = MakeText(FILE_SIZE);
    std::mt19937 random(1);
    auto const upTo = [&](long long most) { return std::uniform_int_distribution<long long>(0, most)(random); };
    for (int round = 0; round < 300; ++round) {
        long long const source = upTo(FILE_SIZE - 1);
        long long const size = 1 + upTo(FILE_SIZE - source - 1);
        long long const distance = round % 2 == 0 ? upTo(FILE_SIZE) - source : upTo(40) - 20;
        long long const destination = std::max(0LL, source + distance);
        ExpectMoveLikeMemory(text, {source, destination, size, 20 + static_cast<unsigned long>(upTo(10000))});
    }
}

TEST_F(FileStreamTest, CopyBlockWorksAboveFourGigabytes) {
    constexpr long long START = 0x123456789LL;
    FILE* const stream = OpenStream("file", "w+");
    File::SetPosition(stream, START);
    File::Write(stream, "0123456789", 0);
    File::SetPosition(stream, START);
    File::CopyBlock(stream, *MakeBuffer(4), START + 2, 10);
    File::SetPosition(stream, START);
    File::Flush(stream);
    File::CopyBlock(stream, *MakeBuffer(5), 1, 0);
    auto const buffer = MakeBuffer(13);
    File::SetPosition(stream, 0);
    File::Read(stream, *buffer, 0);
    EXPECT_EQ(
        TextOf(*buffer), std::string(
                             "\0"
                             "010123456789",
                             13));
    EXPECT_EQ(File::GetSize(stream), START + 12);
}

TEST_F(FileStreamTest, CopyBlockUsesTheFullSizeOfTheBuffer) {
    Make("file", MakeText(10));
    FILE* const stream = OpenStream("file", "r+");
    auto const buffer = MakeBuffer(8);
    buffer->ReduceSize(7);
    Recorder recorder;
    File::CopyBlock(stream, *buffer, 1, 8);
    EXPECT_EQ(recorder.Names(), "ftello fseeko fread fseeko fwrite fseeko");
}

TEST_F(FileStreamTest, CopyBlockTakesABufferOfFourGigabytes) {
    Make("file", "0123456789");
    FILE* const stream = OpenStream("file", "r+");
    char memory[16];
    LentBuffer buffer(memory, 0x100000000UL);
    File::CopyBlock(stream, buffer, 4, 8);
    File::Flush(stream);
    EXPECT_EQ(Read("file"), "012301234567");
}

TEST_F(FileStreamTest, CopyBlockEndsWhereItsLastStepLeavesThePosition) {
    struct Row {
        long long source, destination, size, end;
    };
    for (Row const& row : std::vector<Row>{{1, 3, 8, 1}, {1, 3, 9, 4}, {3, 1, 8, 11}, {3, 1, 9, 10}}) {
        Make("file", MakeText(12));
        FILE* const stream = OpenStream("file", "r+");
        File::SetPosition(stream, row.source);
        File::CopyBlock(stream, *MakeBuffer(4), row.destination, row.size);
        EXPECT_EQ(File::GetPosition(stream), row.end);
    }
}

TEST_F(FileStreamTest, CopyBlockFromBehindTheEndWithoutASizeDoesNothing) {
    Make("file", "0123");
    FILE* const stream = OpenStream("file", "r+");
    for (long long const destination : {0LL, 20LL}) {
        File::SetPosition(stream, 9);
        Recorder recorder;
        File::CopyBlock(stream, *MakeBuffer(4), destination, 0);
        EXPECT_EQ(recorder.Names(), "ftello fstat");
    }
}

TEST_F(FileStreamTest, CopyBlockCopiesAnOverlapFromTheBack) {
    Make("file", "0123456789");
    FILE* const stream = OpenStream("file", "r+");
    File::CopyBlock(stream, *MakeBuffer(4), 4, 10);
    File::Flush(stream);
    EXPECT_EQ(Read("file"), "01230123456789");
}

TEST_F(FileStreamTest, CopyBlockWithoutASizeMovesAllUpToTheEnd) {
    Make("file", "0123456789");
    FILE* const stream = OpenStream("file", "r+");
    File::SetPosition(stream, 6);
    File::CopyBlock(stream, *MakeBuffer(3), 1, 0);
    File::Flush(stream);
    EXPECT_EQ(Read("file"), "0678956789");
}

TEST_F(FileStreamTest, CopyBlockToItsOwnPlaceOnlyAsksForThePosition) {
    Make("file", "0123456789");
    FILE* const stream = OpenStream("file", "r+");
    File::SetPosition(stream, 4);
    Recorder recorder;
    EXPECT_EQ(File::CopyBlock(stream, *MakeBuffer(4), 4, 3), 0);
    EXPECT_EQ(File::CopyBlock(stream, *MakeBuffer(4), 4, 0), 0);
    EXPECT_EQ(recorder.Names(), "ftello ftello");
}

TEST_F(FileStreamTest, CopyBlockOfNothingAtTheEndDoesNothing) {
    Make("file", "0123");
    FILE* const stream = OpenStream("file", "r+");
    File::SetPosition(stream, 4);
    Recorder recorder;
    EXPECT_EQ(File::CopyBlock(stream, *MakeBuffer(0), 0, 0), 0); // not even the buffer is looked at
    EXPECT_EQ(recorder.Names(), "ftello fstat");
}

TEST_F(FileStreamTest, CopyBlockTowardsTheEndTakesTheseSteps) {
    Make("file", MakeText(10));
    FILE* const stream = OpenStream("file", "r+");
    File::SetPosition(stream, 1);
    Recorder recorder;
    File::CopyBlock(stream, *MakeBuffer(4), 3, 9);
    EXPECT_THAT(
        recorder.Calls(), testing::ElementsAre(
                              "ftello()", "fseeko(6, SEEK_SET)",                                              //
                              "fread(1, 4)", "fseeko(-2, SEEK_CUR)", "fwrite(4, 1)", "fseeko(-10, SEEK_CUR)", //
                              "fread(1, 4)", "fseeko(-2, SEEK_CUR)", "fwrite(4, 1)",                          //
                              "fseeko(1, SEEK_SET)",                                                          //
                              "fread(1, 1)", "fseeko(1, SEEK_CUR)", "fwrite(1, 1)"));
}

TEST_F(FileStreamTest, CopyBlockTowardsTheStartTakesTheseSteps) {
    Make("file", MakeText(12));
    FILE* const stream = OpenStream("file", "r+");
    File::SetPosition(stream, 3);
    Recorder recorder;
    File::CopyBlock(stream, *MakeBuffer(4), 1, 9);
    EXPECT_THAT(
        recorder.Calls(),
        testing::ElementsAre(
            "ftello()",                                                                   //
            "fread(1, 4)", "fseeko(-6, SEEK_CUR)", "fwrite(4, 1)", "fseeko(2, SEEK_CUR)", //
            "fread(1, 4)", "fseeko(-6, SEEK_CUR)", "fwrite(4, 1)", "fseeko(2, SEEK_CUR)", //
            "fread(1, 1)", "fseeko(-3, SEEK_CUR)", "fwrite(1, 1)"));
}

TEST_F(FileStreamTest, CopyBlockStopsAtTheFirstStepThatFails) {
    Make("file", "0123456789");
    FILE* const stream = OpenStream("file", "r+");
    Recorder recorder;
    recorder.On("fwrite").Nth(2).Fail(ENOSPC);
    EXPECT_REPORT(File::CopyBlock(stream, *MakeBuffer(4), 10, 10), L"WFileSystem::File::Write: Failed.", ENOSPC);
    recorder.Stop();
    File::Flush(stream);
    EXPECT_EQ(Read("file").substr(0, 10), "0123456789");
    EXPECT_EQ(Read("file").substr(16), "6789");
}

TEST_F(FileStreamTest, CopyBlockEndsAtWhicheverCallFails) {
    for (long long const destination : {0LL, 3LL}) {
        bool hasFailed = true;
        for (unsigned int n = 1; hasFailed; ++n) {
            Make("file", MakeText(11));
            FILE* const stream = OpenStream("file", "r+");
            File::SetPosition(stream, 1);
            Recorder recorder;
            recorder.On("*").Nth(n).Optional().Fail(EIO);
            try {
                File::CopyBlock(stream, *MakeBuffer(4), destination, 0);
                hasFailed = false;
            } catch (WBase::ExceptionImpl<WBase::Message> const& failure) {
                EXPECT_EQ(failure.GetID(), EIO);
                EXPECT_EQ(recorder.All().size(), n);
            }
            EXPECT_EQ(recorder.Interventions(), hasFailed ? 1U : 0U);
        }
    }
}

TEST_F(FileStreamTest, CopyBlockPastTheEndWritesWhatTheBufferHeldBeforeAndToAnotherPlace) {
    Make("file", "0123");
    FILE* const stream = OpenStream("file", "r+");
    auto const buffer = MakeBuffer(8);
    std::fill_n(buffer->GetBuffer(), 8, '#');
    File::CopyBlock(stream, *buffer, 6, 8);
    File::Flush(stream);
    EXPECT_EQ(Read("file"), "010123####");
}

TEST(FileStreamDeathTest, CopyBlockThroughAnEmptyBufferDies) {
    FILE* const stream = std::tmpfile();
    ASSERT_NE(stream, nullptr);
    EXPECT_DEATH(File::CopyBlock(stream, *MakeBuffer(0), 1, 1), "");
    std::fclose(stream);
}

} // namespace
