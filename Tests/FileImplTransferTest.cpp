// The transfers of WFileSystem::FileImpl: writing, reading into memory and into a buffer, and lines.

#include <FileSystem/FileImpl.h>

#include <Tests/Support/Child.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <utility>
#include <vector>

namespace {

using testing::ElementsAre;
using TestSupport::Call;
using TestSupport::Child;
using TestSupport::ReadFile;
using TestSupport::Recorder;
using TestSupport::WriteFile;
using WFileSystem::FileImpl;

constexpr unsigned long CHUNK = 1048576;

std::unique_ptr<WDataType::Binary> MakeBuffer(unsigned long size) {
    return WDataType::CreateBinary(size, nullptr);
}

std::string TextOf(WDataType::Binary const& buffer) {
    return std::string(buffer.GetBuffer(), buffer.GetSize());
}

/// Text without a period that a chunk could hide.
std::string MakeText(unsigned long size) {
    std::string text(size, '\0');
    for (unsigned long index = 0; index < size; ++index) {
        text[index] = static_cast<char>(index * index + index / 7);
    }
    return text;
}

std::wstring WriteFailure(unsigned long bytes) {
    return L"Failed to write " + std::to_wstring(bytes) + L" bytes to file '/f'.";
}

std::wstring ReadFailure(unsigned long bytes) {
    return L"Failed to read " + std::to_wstring(bytes) + L" bytes from file '/f'.";
}

/// A file, open for reading and writing. Failures name it "/f".
class FileImplTransferTest : public testing::Test {
protected:
    FileImplTransferTest() { fd_ = ::open(file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600); }
    ~FileImplTransferTest() override { ::close(fd_); }

    void Fill(std::string const& content) { WriteFile(file_, content); }

    std::string Content() const { return ReadFile(file_); }

    static void Write(int fd, std::string const& data) {
        FileImpl::Write(L"/f", fd, static_cast<void const*>(data.data()), data.size());
    }

    static std::string Read(int fd, unsigned long n) {
        std::string data(n, '\0');
        FileImpl::Read(L"/f", fd, static_cast<void*>(data.data()), n);
        return data;
    }

    std::string ReadIntoBuffer(WDataType::Binary& buffer, unsigned long n) const {
        FileImpl::Read(L"/f", fd_, buffer, n);
        return TextOf(buffer);
    }

    std::string ReadLine(WDataType::Binary& buffer) const {
        FileImpl::ReadLine(L"/f", fd_, buffer);
        return TextOf(buffer);
    }

    long Position() const { return ::lseek(fd_, 0, SEEK_CUR); }

    TestSupport::ScratchDirectory scratch_;
    std::string const file_ = scratch_ / "file";
    int fd_ = -1;
};

// Writing from memory

TEST_F(FileImplTransferTest, WriteOfNothingIsNoCall) {
    Recorder recorder;
    FileImpl::Write(L"/f", -1, static_cast<void const*>(nullptr), 0);
    FileImpl::Write(L"/f", -1, "", 0);
    FileImpl::Read(L"/f", -1, static_cast<void*>(nullptr), 0);
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(FileImplTransferTest, WriteBeginsAtThePositionAndMovesIt) {
    Fill("0123456789");
    ::lseek(fd_, 3, SEEK_SET);
    Recorder recorder;
    Write(fd_, "abc");
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(3)"));
    EXPECT_EQ(recorder.Find("write").fd, fd_);
    EXPECT_EQ(Content(), "012abc6789");
    EXPECT_EQ(Position(), 6);
}

TEST_F(FileImplTransferTest, WriteGoesChunkByChunk) {
    std::string const text = MakeText(3 * CHUNK + 5);
    Recorder recorder;
    Write(fd_, text);
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(1048576)", "write(1048576)", "write(1048576)", "write(5)"));
    EXPECT_TRUE(Content() == text);
}

TEST_F(FileImplTransferTest, WriteOfOneFullChunkIsOneCall) {
    Recorder recorder;
    Write(fd_, MakeText(CHUNK));
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(1048576)"));
}

TEST_F(FileImplTransferTest, WriteGoesOnAfterAPartOfAChunk) {
    std::string const text = MakeText(CHUNK + 10);
    Recorder recorder;
    recorder.On("write").Nth(1).Limit(1000000);
    recorder.On("write").Nth(3).Limit(4);
    Write(fd_, text);
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(1048576)", "write(48576)", "write(10)", "write(6)"));
    EXPECT_TRUE(Content() == text);
}

TEST_F(FileImplTransferTest, WriteGoesOnAfterACallThatWroteNothing) {
    Recorder recorder;
    recorder.On("write").Script({0, 0});
    Write(fd_, "text");
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(4)", "write(4)", "write(4)"));
    EXPECT_EQ(Content(), "text");
}

TEST_F(FileImplTransferTest, WriteIsRepeatedWithoutLimitWhileInterrupted) {
    Recorder recorder;
    recorder.On("write").First(100).Fail(EINTR);
    recorder.On("write").Nth(101).Limit(1);
    recorder.On("write").Where([](Call const& call) { return call.size == 3; }).First(100).Fail(EINTR);
    Write(fd_, "text");
    EXPECT_EQ(recorder.Count("write"), 202U);
    EXPECT_EQ(Content(), "text");
}

TEST_F(FileImplTransferTest, AWriteThatFailsAtTheStartOfAChunkNamesItsLengthAndTheError) {
    std::string const text = MakeText(3 * CHUNK + 5);
    std::vector<std::pair<unsigned int, unsigned long>> const rows = {{1, CHUNK}, {2, CHUNK}, {3, CHUNK}, {4, 5}};
    for (auto const& [call, bytes] : rows) {
        Recorder recorder;
        recorder.On("write").Nth(call).Fail(ENOSPC);
        EXPECT_WRAPPED(Write(fd_, text), WriteFailure(bytes), ENOSPC);
        EXPECT_EQ(recorder.Count("write"), call);
    }
}

TEST_F(FileImplTransferTest, AWriteThatFailsInsideAChunkNamesWhatIsMissingOfItWithoutACause) {
    std::string const text = MakeText(2 * CHUNK);
    Recorder recorder;
    recorder.On("write").Nth(2).Limit(1000);
    recorder.On("write").Nth(3).Fail(ENOSPC);
    EXPECT_WRAPPED_NO_CAUSE(Write(fd_, text), WriteFailure(CHUNK - 1000));
    EXPECT_EQ(recorder.Count("write"), 3U);
    EXPECT_EQ(FileImpl::GetSize(L"/f", fd_), static_cast<long long>(CHUNK + 1000));
}

TEST_F(FileImplTransferTest, WriteOfATextTakesItsLengthFromTheText) {
    Recorder recorder;
    FileImpl::Write(L"/f", fd_, "one\0two", 0);
    FileImpl::Write(L"/f", fd_, "one\0two", 7);
    FileImpl::Write(L"/f", fd_, "three", 2);
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(3)", "write(7)", "write(2)"));
    EXPECT_EQ(Content(), std::string("oneone\0twoth", 12));
}

TEST_F(FileImplTransferTest, WriteOfATextFailsAsWriteOfMemory) {
    Recorder recorder;
    recorder.On("write").Fail(EIO);
    EXPECT_WRAPPED(FileImpl::Write(L"/f", fd_, "text", 0), WriteFailure(4), EIO);
}

// Reading into memory

TEST_F(FileImplTransferTest, ReadBeginsAtThePositionAndMovesIt) {
    Fill("0123456789");
    ::lseek(fd_, 3, SEEK_SET);
    Recorder recorder;
    EXPECT_EQ(Read(fd_, 4), "3456");
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(4)"));
    EXPECT_EQ(recorder.Find("read").fd, fd_);
    EXPECT_EQ(Position(), 7);
}

TEST_F(FileImplTransferTest, ReadGoesChunkByChunk) {
    std::string const text = MakeText(3 * CHUNK + 5);
    Fill(text);
    Recorder recorder;
    EXPECT_TRUE(Read(fd_, text.size()) == text);
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(1048576)", "read(1048576)", "read(1048576)", "read(5)"));
}

TEST_F(FileImplTransferTest, ReadGoesOnAfterAPartOfAChunk) {
    std::string const text = MakeText(CHUNK + 10);
    Fill(text);
    Recorder recorder;
    recorder.On("read").Nth(1).Limit(1000000);
    recorder.On("read").Nth(3).Limit(4);
    EXPECT_TRUE(Read(fd_, text.size()) == text);
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(1048576)", "read(48576)", "read(10)", "read(6)"));
}

TEST_F(FileImplTransferTest, ReadIsRepeatedWithoutLimitWhileInterrupted) {
    Fill("text");
    Recorder recorder;
    recorder.On("read").First(100).Fail(EINTR);
    recorder.On("read").Nth(101).Limit(1);
    recorder.On("read").Where([](Call const& call) { return call.size == 3; }).First(100).Fail(EINTR);
    EXPECT_EQ(Read(fd_, 4), "text");
    EXPECT_EQ(recorder.Count("read"), 202U);
}

TEST_F(FileImplTransferTest, AReadThatFailsAtTheStartOfAChunkNamesItsLengthAndTheError) {
    Fill(MakeText(3 * CHUNK + 5));
    std::vector<std::pair<unsigned int, unsigned long>> const rows = {{1, CHUNK}, {2, CHUNK}, {3, CHUNK}, {4, 5}};
    for (auto const& [call, bytes] : rows) {
        ::lseek(fd_, 0, SEEK_SET);
        Recorder recorder;
        recorder.On("read").Nth(call).Fail(EIO);
        EXPECT_WRAPPED(Read(fd_, 3 * CHUNK + 5), ReadFailure(bytes), EIO);
        EXPECT_EQ(recorder.Count("read"), call);
    }
}

TEST_F(FileImplTransferTest, AReadThatFailsInsideAChunkNamesWhatIsMissingOfItWithoutACause) {
    Fill(MakeText(2 * CHUNK));
    Recorder recorder;
    recorder.On("read").Nth(2).Limit(1000);
    recorder.On("read").Nth(3).Fail(EIO);
    EXPECT_WRAPPED_NO_CAUSE(Read(fd_, 2 * CHUNK), ReadFailure(CHUNK - 1000));
    EXPECT_EQ(recorder.Count("read"), 3U);
}

TEST_F(FileImplTransferTest, AReadThatMeetsTheEndOfTheFileNamesWhatIsMissingWithoutACause) {
    Fill("1234");
    char data[] = "..........";
    Recorder recorder;
    EXPECT_WRAPPED_NO_CAUSE(FileImpl::Read(L"/f", fd_, static_cast<void*>(data), 10), ReadFailure(6));
    EXPECT_STREQ(data, "1234......");
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(10)", "read(6)"));
    EXPECT_EQ(Position(), 4);
}

TEST_F(FileImplTransferTest, AReadAtTheEndOfTheFileIsAFailureWithoutACause) {
    Recorder recorder;
    EXPECT_WRAPPED_NO_CAUSE(Read(fd_, 10), ReadFailure(10));
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(10)"));
}

TEST_F(FileImplTransferTest, TheEndOfTheFileInALaterChunkIsCountedWithinThatChunk) {
    Fill(MakeText(CHUNK + 3));
    EXPECT_WRAPPED_NO_CAUSE(Read(fd_, 3 * CHUNK), ReadFailure(CHUNK - 3));
}

// Reading into a buffer

TEST_F(FileImplTransferTest, AReadIntoABufferTakesItsFullSizeForZero) {
    Fill("0123456789");
    auto const buffer = MakeBuffer(6);
    buffer->ReduceSize(4); // its current size does not count
    Recorder recorder;
    EXPECT_EQ(ReadIntoBuffer(*buffer, 0), "012345");
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(6)"));
}

TEST_F(FileImplTransferTest, AReadIntoABufferTakesWhatIsWantedUpToItsFullSize) {
    Fill("0123456789");
    auto const buffer = MakeBuffer(6);
    for (auto const& [wanted, text] :
         {std::pair(1, "0"), std::pair(5, "01234"), std::pair(6, "012345"), std::pair(7, "012345"),
          std::pair(1000, "012345")}) {
        ::lseek(fd_, 0, SEEK_SET);
        EXPECT_EQ(ReadIntoBuffer(*buffer, static_cast<unsigned long>(wanted)), text);
        EXPECT_EQ(Position(), static_cast<long>(std::strlen(text)));
    }
}

TEST_F(FileImplTransferTest, AReadIntoABufferThatComesShortReducesItsSize) {
    Fill("1234");
    auto const buffer = MakeBuffer(16);
    Recorder recorder;
    EXPECT_EQ(ReadIntoBuffer(*buffer, 0), "1234");
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(16)", "read(12)"));
    EXPECT_EQ(ReadIntoBuffer(*buffer, 8), "");
    EXPECT_EQ(recorder.Calls().back(), "read(8)");
}

TEST_F(FileImplTransferTest, AReadIntoABufferKnowsNoChunks) {
    Fill(MakeText(3 * CHUNK));
    auto const buffer = MakeBuffer(3 * CHUNK);
    Recorder recorder;
    FileImpl::Read(L"/f", fd_, *buffer, 0);
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(3145728)"));
}

TEST_F(FileImplTransferTest, AReadIntoAnEmptyBufferIsNoCall) {
    Fill("text");
    auto const buffer = MakeBuffer(0);
    Recorder recorder;
    EXPECT_EQ(ReadIntoBuffer(*buffer, 0), "");
    EXPECT_EQ(ReadIntoBuffer(*buffer, 10), "");
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(FileImplTransferTest, AReadIntoABufferIsRepeatedWithoutLimitWhileInterrupted) {
    Fill("text");
    auto const buffer = MakeBuffer(4);
    Recorder recorder;
    recorder.On("read").First(100).Fail(EINTR);
    recorder.On("read").Nth(101).Limit(1);
    recorder.On("read").Where([](Call const& call) { return call.size == 3; }).First(100).Fail(EINTR);
    EXPECT_EQ(ReadIntoBuffer(*buffer, 0), "text");
    EXPECT_EQ(recorder.Count("read"), 202U);
}

TEST_F(FileImplTransferTest, AReadIntoABufferThatFailsAtOnceNamesWhatWasWanted) {
    auto const buffer = MakeBuffer(3 * CHUNK);
    Recorder recorder;
    recorder.On("read").Fail(EIO);
    EXPECT_WRAPPED(FileImpl::Read(L"/f", fd_, *buffer, 0), ReadFailure(3 * CHUNK), EIO);
    EXPECT_WRAPPED(FileImpl::Read(L"/f", fd_, *buffer, 10), ReadFailure(10), EIO);
    EXPECT_EQ(recorder.Count("read"), 2U);
}

TEST_F(FileImplTransferTest, AFailureAfterTheFirstBytesEndsAReadIntoABuffer) {
    Fill("0123456789");
    auto const buffer = MakeBuffer(10);
    Recorder recorder;
    recorder.On("read").Nth(1).Limit(4);
    recorder.On("read").Nth(2).Fail(EIO);
    EXPECT_EQ(ReadIntoBuffer(*buffer, 0), "0123");
    EXPECT_EQ(recorder.Count("read"), 2U);
}

TEST_F(FileImplTransferTest, AReadIntoABufferCollectsWhatAPipeGives) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    Child writer([&](Child::Parent&) {
        for (char const* const piece : {"one ", "two ", "three"}) {
            EXPECT_GT(::write(ends[1], piece, std::strlen(piece)), 0);
        }
    });
    ::close(ends[1]);
    auto const buffer = MakeBuffer(100);
    FileImpl::Read(L"/f", ends[0], *buffer, 0);
    EXPECT_EQ(TextOf(*buffer), "one two three");
    ::close(ends[0]);
}

/// Notes what is asked of it. Its size is only a claim beyond the first pages, which are made when they are touched.
class ObservedBuffer : public WDataType::Binary {
public:
    explicit ObservedBuffer(unsigned long fullSize) : fullSize_(fullSize), size_(fullSize) {
        buffer_ = ::mmap(nullptr, fullSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
        if (buffer_ == MAP_FAILED) {
            throw std::bad_alloc();
        }
    }
    ObservedBuffer(ObservedBuffer const&) = delete;
    ObservedBuffer& operator=(ObservedBuffer const&) = delete;
    ~ObservedBuffer() override { ::munmap(buffer_, fullSize_); }

    unsigned long GetSize() const override { return size_; }
    char* GetBuffer() const override { return static_cast<char*>(buffer_); }
    void ReduceSize(unsigned long count) override {
        changes_.push_back(count);
        size_ -= count;
    }
    void RestoreFullSize() override {
        ++restorations_;
        size_ = fullSize_;
    }

    std::vector<unsigned long> const& Reductions() const { return changes_; }
    int Restorations() const { return restorations_; }

private:
    unsigned long fullSize_;
    unsigned long size_;
    void* buffer_;
    std::vector<unsigned long> changes_;
    int restorations_ = 0;
};

TEST_F(FileImplTransferTest, AReadReducesTheBufferOnlyByWhatIsTooMuch) {
    Fill("0123456789");
    for (auto const& [wanted, reductions] : std::vector<std::pair<unsigned long, std::vector<unsigned long>>>{
             {0, {}}, {6, {}}, {7, {}}, {4, {2}}, {100, {}}}) {
        ::lseek(fd_, 0, SEEK_SET);
        ObservedBuffer buffer(6);
        FileImpl::Read(L"/f", fd_, buffer, wanted);
        EXPECT_EQ(buffer.Restorations(), 1);
        EXPECT_EQ(buffer.Reductions(), reductions) << wanted;
    }
    ::lseek(fd_, 8, SEEK_SET);
    ObservedBuffer buffer(6);
    FileImpl::Read(L"/f", fd_, buffer, 5);
    EXPECT_THAT(buffer.Reductions(), ElementsAre(1, 3));
}

// Lines

TEST_F(FileImplTransferTest, ReadLineKeepsTheLineFeedAndGoesBackBehindIt) {
    Fill("ab\ncd");
    auto const buffer = MakeBuffer(8);
    Recorder recorder;
    EXPECT_EQ(ReadLine(*buffer), "ab\n");
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(8)", "read(3)", "lseek(-2, SEEK_CUR)"));
    recorder.Stop();
    EXPECT_EQ(Position(), 3);
    EXPECT_EQ(ReadLine(*buffer), "cd");
    EXPECT_EQ(Position(), 5);
    EXPECT_EQ(ReadLine(*buffer), "");
}

TEST_F(FileImplTransferTest, ReadLineGivesALongLineInPieces) {
    Fill("0123456789\nx\n");
    auto const buffer = MakeBuffer(4);
    std::vector<std::string> lines;
    do {
        lines.push_back(ReadLine(*buffer));
    } while (!lines.back().empty());
    EXPECT_THAT(lines, ElementsAre("0123", "4567", "89\n", "x\n", ""));
}

TEST_F(FileImplTransferTest, ReadLineTakesTheFullSizeOfTheBuffer) {
    Fill("01234567");
    auto const buffer = MakeBuffer(8);
    buffer->ReduceSize(7);
    EXPECT_EQ(ReadLine(*buffer), "01234567");
}

TEST_F(FileImplTransferTest, ReadLineStaysWhereItIsWithoutALineEnd) {
    Fill("0123");
    auto const buffer = MakeBuffer(4);
    Recorder recorder;
    EXPECT_EQ(ReadLine(*buffer), "0123");
    EXPECT_EQ(ReadLine(*buffer), "");
    EXPECT_EQ(recorder.Names(), "read read");
}

TEST_F(FileImplTransferTest, ReadLineMovesByNothingWhenTheLineFillsTheBuffer) {
    Fill("abc\nd");
    auto const buffer = MakeBuffer(4);
    Recorder recorder;
    EXPECT_EQ(ReadLine(*buffer), "abc\n");
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(4)", "lseek(0, SEEK_CUR)"));
}

TEST_F(FileImplTransferTest, ReadLineStopsAtAZeroByteAndStaysThere) {
    Fill(std::string("ab\0cd", 5));
    auto const buffer = MakeBuffer(8);
    EXPECT_EQ(ReadLine(*buffer), "ab");
    for (int times = 0; times < 3; ++times) {
        EXPECT_EQ(Position(), 2);
        EXPECT_EQ(ReadLine(*buffer), ""); // as at the end of the file
    }
}

TEST_F(FileImplTransferTest, ReadLineStopsAtAZeroByteThatCameLast) {
    Fill(std::string("ab\0", 3));
    for (unsigned long const size : {3UL, 8UL}) {
        ::lseek(fd_, 0, SEEK_SET);
        EXPECT_EQ(ReadLine(*MakeBuffer(size)), "ab");
        EXPECT_EQ(Position(), 2);
    }
}

TEST_F(FileImplTransferTest, ReadLinePrefersALineFeedToAnEarlierZeroByte) {
    Fill(std::string("a\0b\nc\0d\n", 8));
    auto const buffer = MakeBuffer(6);
    EXPECT_EQ(ReadLine(*buffer), std::string("a\0b\n", 4));
    EXPECT_EQ(ReadLine(*buffer), std::string("c\0d\n", 4));
}

TEST_F(FileImplTransferTest, ReadLineLooksForNoLineEndBehindWhatCame) {
    auto const buffer = MakeBuffer(8);
    std::memset(buffer->GetBuffer(), '\n', 8);
    Fill("ab");
    EXPECT_EQ(ReadLine(*buffer), "ab");
}

TEST_F(FileImplTransferTest, ReadLineIntoAnEmptyBufferIsNoCall) {
    Fill("text\n");
    Recorder recorder;
    EXPECT_EQ(ReadLine(*MakeBuffer(0)), "");
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(FileImplTransferTest, ReadLineFailsAsReadDoes) {
    auto const buffer = MakeBuffer(8);
    Recorder recorder;
    recorder.On("read").Fail(EIO);
    EXPECT_WRAPPED(FileImpl::ReadLine(L"/f", fd_, *buffer), ReadFailure(8), EIO);
    EXPECT_EQ(recorder.Names(), "read");
}

TEST_F(FileImplTransferTest, ReadLineNeedsAFileThatCanBePositioned) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    ASSERT_EQ(::write(ends[1], "a\nb", 3), 3);
    ::close(ends[1]);
    auto const buffer = MakeBuffer(8);
    EXPECT_WRAPPED(
        FileImpl::ReadLine(L"/f", ends[0], *buffer), L"Failed to set current position of file '/f'.", ESPIPE);
    EXPECT_EQ(TextOf(*buffer), "a\nb"); // not yet cut to the line
    ::close(ends[0]);
}

TEST_F(FileImplTransferTest, ReadLineCountsTheExcessIn32Bits) {
    struct Row {
        unsigned long excess;
        long long move;
        unsigned long reduction;
    };
    for (Row const& row : {
             Row{0x7FFFFFFF, -0x7FFFFFFFLL, 0x7FFFFFFF},
             Row{0x80000000, -0x80000000LL, 0xFFFFFFFF80000000},
             Row{0x80000001, 0x7FFFFFFF, 0xFFFFFFFF80000001},
             Row{0xFFFFFFFF, 1, 0xFFFFFFFFFFFFFFFF},
             Row{0x100000000, 0, 0},
             Row{0x100000005, -5, 5},
         }) {
        auto const claimed = static_cast<long>(row.excess + 1); // the line is a line feed alone
        ObservedBuffer buffer(row.excess + 1);
        buffer.GetBuffer()[0] = '\n';
        Recorder recorder;
        recorder.On("read").Script({claimed});
        recorder.On("lseek").Return(0);
        FileImpl::ReadLine(L"/f", fd_, buffer);
        EXPECT_EQ(recorder.Find("lseek").offset, row.move) << row.excess;
        EXPECT_THAT(buffer.Reductions(), ElementsAre(row.reduction)) << row.excess;
    }
}

} // namespace
