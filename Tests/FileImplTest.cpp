// The operations of WFileSystem::FileImpl on a descriptor, but for its locks, which RecordLockTest.cpp tests.

#include <FileSystem/FileImpl.h>

#include <Tests/Support/Allocations.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <functional>
#include <memory>
#include <new>
#include <signal.h>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
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

constexpr wchar_t SURROGATE = static_cast<wchar_t>(0xD800);
constexpr unsigned long CHUNK = 1048576;
constexpr long long BEYOND_32_BITS = 5LL << 30;

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
class FileImplTest : public testing::Test {
protected:
    FileImplTest() { fd_ = ::open(file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600); }
    ~FileImplTest() override { ::close(fd_); }

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
    std::wstring const path_ = scratch_.Wide("file");
    int fd_ = -1;
};

// Size

TEST_F(FileImplTest, GetSizeAsksTheDescriptor) {
    Fill("12345");
    ::lseek(fd_, 2, SEEK_SET);
    Recorder recorder;
    EXPECT_EQ(FileImpl::GetSize(L"/f", fd_), 5);
    EXPECT_EQ(recorder.Names(), "fstat");
    EXPECT_EQ(recorder.Find("fstat").fd, fd_);
}

TEST_F(FileImplTest, GetSizeHas64Bits) {
    ASSERT_EQ(::ftruncate(fd_, BEYOND_32_BITS), 0);
    EXPECT_EQ(FileImpl::GetSize(L"/f", fd_), BEYOND_32_BITS);
}

// Writing from memory

TEST_F(FileImplTest, WriteOfNothingIsNoCall) {
    Recorder recorder;
    FileImpl::Write(L"/f", -1, static_cast<void const*>(nullptr), 0);
    FileImpl::Write(L"/f", -1, "", 0);
    FileImpl::Read(L"/f", -1, static_cast<void*>(nullptr), 0);
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(FileImplTest, WriteBeginsAtThePositionAndMovesIt) {
    Fill("0123456789");
    ::lseek(fd_, 3, SEEK_SET);
    Recorder recorder;
    Write(fd_, "abc");
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(3)"));
    EXPECT_EQ(recorder.Find("write").fd, fd_);
    EXPECT_EQ(Content(), "012abc6789");
    EXPECT_EQ(Position(), 6);
}

TEST_F(FileImplTest, WriteGoesChunkByChunk) {
    std::string const text = MakeText(3 * CHUNK + 5);
    Recorder recorder;
    Write(fd_, text);
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(1048576)", "write(1048576)", "write(1048576)", "write(5)"));
    EXPECT_TRUE(Content() == text);
}

TEST_F(FileImplTest, WriteOfOneFullChunkIsOneCall) {
    Recorder recorder;
    Write(fd_, MakeText(CHUNK));
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(1048576)"));
}

TEST_F(FileImplTest, WriteGoesOnAfterAPartOfAChunk) {
    std::string const text = MakeText(CHUNK + 10);
    Recorder recorder;
    recorder.On("write").Nth(1).Limit(1000000);
    recorder.On("write").Nth(3).Limit(4);
    Write(fd_, text);
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(1048576)", "write(48576)", "write(10)", "write(6)"));
    EXPECT_TRUE(Content() == text);
}

TEST_F(FileImplTest, WriteGoesOnAfterACallThatWroteNothing) {
    Recorder recorder;
    recorder.On("write").Script({0, 0});
    Write(fd_, "text");
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(4)", "write(4)", "write(4)"));
    EXPECT_EQ(Content(), "text");
}

TEST_F(FileImplTest, WriteIsRepeatedWithoutLimitWhileInterrupted) {
    Recorder recorder;
    recorder.On("write").First(100).Fail(EINTR);
    recorder.On("write").Nth(101).Limit(1);
    recorder.On("write").Where([](Call const& call) { return call.size == 3; }).First(100).Fail(EINTR);
    Write(fd_, "text");
    EXPECT_EQ(recorder.Count("write"), 202U);
    EXPECT_EQ(Content(), "text");
}

TEST_F(FileImplTest, AWriteThatFailsAtTheStartOfAChunkNamesItsLengthAndTheError) {
    std::string const text = MakeText(3 * CHUNK + 5);
    std::vector<std::pair<unsigned int, unsigned long>> const rows = {{1, CHUNK}, {2, CHUNK}, {3, CHUNK}, {4, 5}};
    for (auto const& [call, bytes] : rows) {
        Recorder recorder;
        recorder.On("write").Nth(call).Fail(ENOSPC);
        EXPECT_WRAPPED(Write(fd_, text), WriteFailure(bytes), ENOSPC);
        EXPECT_EQ(recorder.Count("write"), call);
    }
}

TEST_F(FileImplTest, AWriteThatFailsInsideAChunkNamesWhatIsMissingOfItWithoutACause) {
    std::string const text = MakeText(2 * CHUNK);
    Recorder recorder;
    recorder.On("write").Nth(2).Limit(1000);
    recorder.On("write").Nth(3).Fail(ENOSPC);
    EXPECT_WRAPPED_NO_CAUSE(Write(fd_, text), WriteFailure(CHUNK - 1000));
    EXPECT_EQ(recorder.Count("write"), 3U);
    EXPECT_EQ(FileImpl::GetSize(L"/f", fd_), static_cast<long long>(CHUNK + 1000));
}

TEST_F(FileImplTest, WriteOfATextTakesItsLengthFromTheText) {
    Recorder recorder;
    FileImpl::Write(L"/f", fd_, "one\0two", 0);
    FileImpl::Write(L"/f", fd_, "one\0two", 7);
    FileImpl::Write(L"/f", fd_, "three", 2);
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(3)", "write(7)", "write(2)"));
    EXPECT_EQ(Content(), std::string("oneone\0twoth", 12));
}

TEST_F(FileImplTest, WriteOfATextFailsAsWriteOfMemory) {
    Recorder recorder;
    recorder.On("write").Fail(EIO);
    EXPECT_WRAPPED(FileImpl::Write(L"/f", fd_, "text", 0), WriteFailure(4), EIO);
}

// Reading into memory

TEST_F(FileImplTest, ReadBeginsAtThePositionAndMovesIt) {
    Fill("0123456789");
    ::lseek(fd_, 3, SEEK_SET);
    Recorder recorder;
    EXPECT_EQ(Read(fd_, 4), "3456");
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(4)"));
    EXPECT_EQ(recorder.Find("read").fd, fd_);
    EXPECT_EQ(Position(), 7);
}

TEST_F(FileImplTest, ReadGoesChunkByChunk) {
    std::string const text = MakeText(3 * CHUNK + 5);
    Fill(text);
    Recorder recorder;
    EXPECT_TRUE(Read(fd_, text.size()) == text);
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(1048576)", "read(1048576)", "read(1048576)", "read(5)"));
}

TEST_F(FileImplTest, ReadGoesOnAfterAPartOfAChunk) {
    std::string const text = MakeText(CHUNK + 10);
    Fill(text);
    Recorder recorder;
    recorder.On("read").Nth(1).Limit(1000000);
    recorder.On("read").Nth(3).Limit(4);
    EXPECT_TRUE(Read(fd_, text.size()) == text);
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(1048576)", "read(48576)", "read(10)", "read(6)"));
}

TEST_F(FileImplTest, ReadIsRepeatedWithoutLimitWhileInterrupted) {
    Fill("text");
    Recorder recorder;
    recorder.On("read").First(100).Fail(EINTR);
    recorder.On("read").Nth(101).Limit(1);
    recorder.On("read").Where([](Call const& call) { return call.size == 3; }).First(100).Fail(EINTR);
    EXPECT_EQ(Read(fd_, 4), "text");
    EXPECT_EQ(recorder.Count("read"), 202U);
}

TEST_F(FileImplTest, AReadThatFailsAtTheStartOfAChunkNamesItsLengthAndTheError) {
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

TEST_F(FileImplTest, AReadThatFailsInsideAChunkNamesWhatIsMissingOfItWithoutACause) {
    Fill(MakeText(2 * CHUNK));
    Recorder recorder;
    recorder.On("read").Nth(2).Limit(1000);
    recorder.On("read").Nth(3).Fail(EIO);
    EXPECT_WRAPPED_NO_CAUSE(Read(fd_, 2 * CHUNK), ReadFailure(CHUNK - 1000));
    EXPECT_EQ(recorder.Count("read"), 3U);
}

TEST_F(FileImplTest, AReadThatMeetsTheEndOfTheFileNamesWhatIsMissingWithoutACause) {
    Fill("1234");
    char data[] = "..........";
    Recorder recorder;
    EXPECT_WRAPPED_NO_CAUSE(FileImpl::Read(L"/f", fd_, static_cast<void*>(data), 10), ReadFailure(6));
    EXPECT_STREQ(data, "1234......");
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(10)", "read(6)"));
    EXPECT_EQ(Position(), 4);
}

TEST_F(FileImplTest, AReadAtTheEndOfTheFileIsAFailureWithoutACause) {
    Recorder recorder;
    EXPECT_WRAPPED_NO_CAUSE(Read(fd_, 10), ReadFailure(10));
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(10)"));
}

TEST_F(FileImplTest, TheEndOfTheFileInALaterChunkIsCountedWithinThatChunk) {
    Fill(MakeText(CHUNK + 3));
    EXPECT_WRAPPED_NO_CAUSE(Read(fd_, 3 * CHUNK), ReadFailure(CHUNK - 3));
}

// Reading into a buffer

TEST_F(FileImplTest, AReadIntoABufferTakesItsFullSizeForZero) {
    Fill("0123456789");
    auto const buffer = MakeBuffer(6);
    buffer->ReduceSize(4); // its current size does not count
    Recorder recorder;
    EXPECT_EQ(ReadIntoBuffer(*buffer, 0), "012345");
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(6)"));
}

TEST_F(FileImplTest, AReadIntoABufferTakesWhatIsWantedUpToItsFullSize) {
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

TEST_F(FileImplTest, AReadIntoABufferThatComesShortReducesItsSize) {
    Fill("1234");
    auto const buffer = MakeBuffer(16);
    Recorder recorder;
    EXPECT_EQ(ReadIntoBuffer(*buffer, 0), "1234");
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(16)", "read(12)"));
    EXPECT_EQ(ReadIntoBuffer(*buffer, 8), "");
    EXPECT_EQ(recorder.Calls().back(), "read(8)");
}

TEST_F(FileImplTest, AReadIntoABufferKnowsNoChunks) {
    Fill(MakeText(3 * CHUNK));
    auto const buffer = MakeBuffer(3 * CHUNK);
    Recorder recorder;
    FileImpl::Read(L"/f", fd_, *buffer, 0);
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(3145728)"));
}

TEST_F(FileImplTest, AReadIntoAnEmptyBufferIsNoCall) {
    Fill("text");
    auto const buffer = MakeBuffer(0);
    Recorder recorder;
    EXPECT_EQ(ReadIntoBuffer(*buffer, 0), "");
    EXPECT_EQ(ReadIntoBuffer(*buffer, 10), "");
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(FileImplTest, AReadIntoABufferIsRepeatedWithoutLimitWhileInterrupted) {
    Fill("text");
    auto const buffer = MakeBuffer(4);
    Recorder recorder;
    recorder.On("read").First(100).Fail(EINTR);
    recorder.On("read").Nth(101).Limit(1);
    recorder.On("read").Where([](Call const& call) { return call.size == 3; }).First(100).Fail(EINTR);
    EXPECT_EQ(ReadIntoBuffer(*buffer, 0), "text");
    EXPECT_EQ(recorder.Count("read"), 202U);
}

TEST_F(FileImplTest, AReadIntoABufferThatFailsAtOnceNamesWhatWasWanted) {
    auto const buffer = MakeBuffer(3 * CHUNK);
    Recorder recorder;
    recorder.On("read").Fail(EIO);
    EXPECT_WRAPPED(FileImpl::Read(L"/f", fd_, *buffer, 0), ReadFailure(3 * CHUNK), EIO);
    EXPECT_WRAPPED(FileImpl::Read(L"/f", fd_, *buffer, 10), ReadFailure(10), EIO);
    EXPECT_EQ(recorder.Count("read"), 2U);
}

TEST_F(FileImplTest, AFailureAfterTheFirstBytesEndsAReadIntoABuffer) {
    Fill("0123456789");
    auto const buffer = MakeBuffer(10);
    Recorder recorder;
    recorder.On("read").Nth(1).Limit(4);
    recorder.On("read").Nth(2).Fail(EIO);
    EXPECT_EQ(ReadIntoBuffer(*buffer, 0), "0123");
    EXPECT_EQ(recorder.Count("read"), 2U);
}

TEST_F(FileImplTest, AReadIntoABufferCollectsWhatAPipeGives) {
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

TEST_F(FileImplTest, AReadReducesTheBufferOnlyByWhatIsTooMuch) {
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

TEST_F(FileImplTest, ReadLineKeepsTheLineFeedAndGoesBackBehindIt) {
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

TEST_F(FileImplTest, ReadLineGivesALongLineInPieces) {
    Fill("0123456789\nx\n");
    auto const buffer = MakeBuffer(4);
    std::vector<std::string> lines;
    do {
        lines.push_back(ReadLine(*buffer));
    } while (!lines.back().empty());
    EXPECT_THAT(lines, ElementsAre("0123", "4567", "89\n", "x\n", ""));
}

TEST_F(FileImplTest, ReadLineTakesTheFullSizeOfTheBuffer) {
    Fill("01234567");
    auto const buffer = MakeBuffer(8);
    buffer->ReduceSize(7);
    EXPECT_EQ(ReadLine(*buffer), "01234567");
}

TEST_F(FileImplTest, ReadLineStaysWhereItIsWithoutALineEnd) {
    Fill("0123");
    auto const buffer = MakeBuffer(4);
    Recorder recorder;
    EXPECT_EQ(ReadLine(*buffer), "0123");
    EXPECT_EQ(ReadLine(*buffer), "");
    EXPECT_EQ(recorder.Names(), "read read");
}

TEST_F(FileImplTest, ReadLineMovesByNothingWhenTheLineFillsTheBuffer) {
    Fill("abc\nd");
    auto const buffer = MakeBuffer(4);
    Recorder recorder;
    EXPECT_EQ(ReadLine(*buffer), "abc\n");
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(4)", "lseek(0, SEEK_CUR)"));
}

TEST_F(FileImplTest, ReadLineStopsAtAZeroByteAndStaysThere) {
    Fill(std::string("ab\0cd", 5));
    auto const buffer = MakeBuffer(8);
    EXPECT_EQ(ReadLine(*buffer), "ab");
    for (int times = 0; times < 3; ++times) {
        EXPECT_EQ(Position(), 2);
        EXPECT_EQ(ReadLine(*buffer), ""); // as at the end of the file
    }
}

TEST_F(FileImplTest, ReadLinePrefersALineFeedToAnEarlierZeroByte) {
    Fill(std::string("a\0b\nc\0d\n", 8));
    auto const buffer = MakeBuffer(6);
    EXPECT_EQ(ReadLine(*buffer), std::string("a\0b\n", 4));
    EXPECT_EQ(ReadLine(*buffer), std::string("c\0d\n", 4));
}

TEST_F(FileImplTest, ReadLineLooksForNoLineEndBehindWhatCame) {
    auto const buffer = MakeBuffer(8);
    std::memset(buffer->GetBuffer(), '\n', 8);
    Fill("ab");
    EXPECT_EQ(ReadLine(*buffer), "ab");
}

TEST_F(FileImplTest, ReadLineFailsAsReadDoes) {
    auto const buffer = MakeBuffer(8);
    Recorder recorder;
    recorder.On("read").Fail(EIO);
    EXPECT_WRAPPED(FileImpl::ReadLine(L"/f", fd_, *buffer), ReadFailure(8), EIO);
    EXPECT_EQ(recorder.Names(), "read");
}

TEST_F(FileImplTest, ReadLineNeedsAFileThatCanBePositioned) {
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

TEST_F(FileImplTest, ReadLineCountsTheExcessIn32Bits) {
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

// Positions

TEST_F(FileImplTest, EachPositionIsOneCall) {
    Fill("0123456789");
    Recorder recorder;
    EXPECT_EQ(FileImpl::SetPosition(L"/f", fd_, 7), 7);
    EXPECT_EQ(FileImpl::MovePosition(L"/f", fd_, -4), 3);
    EXPECT_EQ(FileImpl::GetPosition(L"/f", fd_), 3);
    EXPECT_EQ(FileImpl::SetPositionToEnd(L"/f", fd_), 10);
    EXPECT_THAT(
        recorder.Calls(),
        ElementsAre("lseek(7, SEEK_SET)", "lseek(-4, SEEK_CUR)", "lseek(0, SEEK_CUR)", "lseek(0, SEEK_END)"));
    for (Call const& call : recorder.All()) {
        EXPECT_EQ(call.fd, fd_);
    }
}

TEST_F(FileImplTest, PositionsHave64Bits) {
    EXPECT_EQ(FileImpl::SetPosition(L"/f", fd_, BEYOND_32_BITS), BEYOND_32_BITS);
    EXPECT_EQ(FileImpl::GetPosition(L"/f", fd_), BEYOND_32_BITS);
    EXPECT_EQ(FileImpl::MovePosition(L"/f", fd_, BEYOND_32_BITS), 2 * BEYOND_32_BITS);
    FileImpl::Truncate(L"/f", fd_);
    EXPECT_EQ(FileImpl::SetPositionToEnd(L"/f", fd_), 2 * BEYOND_32_BITS);
}

TEST_F(FileImplTest, PositionsAreNotRepeatedWhenInterrupted) {
    Recorder recorder;
    recorder.On("lseek").Fail(EINTR);
    std::wstring const getting = L"Failed to get current position of file '/f'.";
    std::wstring const setting = L"Failed to set current position of file '/f'.";
    EXPECT_WRAPPED(FileImpl::GetPosition(L"/f", fd_), getting, EINTR);
    EXPECT_WRAPPED(FileImpl::SetPosition(L"/f", fd_, 0), setting, EINTR);
    EXPECT_WRAPPED(FileImpl::MovePosition(L"/f", fd_, 0), setting, EINTR);
    EXPECT_WRAPPED(FileImpl::SetPositionToEnd(L"/f", fd_), setting, EINTR);
    EXPECT_EQ(recorder.Count("lseek"), 4U);
}

// Flush and truncation

TEST_F(FileImplTest, FlushSyncsDataAndAttributes) {
    Recorder recorder;
    EXPECT_EQ(FileImpl::Flush(L"/f", fd_), 0);
    EXPECT_EQ(recorder.Names(), "fsync");
    EXPECT_EQ(recorder.Find("fsync").fd, fd_);
}

TEST_F(FileImplTest, TruncateCutsAtThePosition) {
    Fill("0123456789");
    FileImpl::SetPosition(L"/f", fd_, 5);
    Recorder recorder;
    EXPECT_EQ(FileImpl::Truncate(L"/f", fd_), 0);
    EXPECT_THAT(recorder.Calls(), ElementsAre("lseek(0, SEEK_CUR)", "ftruncate(5)"));
    EXPECT_EQ(recorder.Find("ftruncate").fd, fd_);
    EXPECT_EQ(Content(), "01234");
    EXPECT_EQ(Position(), 5);
}

TEST_F(FileImplTest, TruncateExtendsUpToThePosition) {
    FileImpl::SetPosition(L"/f", fd_, 3);
    FileImpl::Truncate(L"/f", fd_);
    EXPECT_EQ(Content(), std::string(3, '\0'));
}

TEST_F(FileImplTest, TruncateWithoutAPositionReportsThat) {
    Recorder recorder;
    recorder.On("lseek").Fail(EIO);
    EXPECT_WRAPPED(FileImpl::Truncate(L"/f", fd_), L"Failed to get current position of file '/f'.", EIO);
    EXPECT_EQ(recorder.Names(), "lseek");
}

TEST_F(FileImplTest, CallsOnTheFileAreRepeatedWithoutLimitWhileInterrupted) {
    Recorder recorder;
    for (char const* const function : {"fstat", "fsync", "ftruncate"}) {
        recorder.On(function).First(100).Fail(EINTR);
    }
    EXPECT_EQ(FileImpl::GetSize(L"/f", fd_), 0);
    EXPECT_EQ(FileImpl::Flush(L"/f", fd_), 0);
    EXPECT_EQ(FileImpl::Truncate(L"/f", fd_), 0);
    EXPECT_EQ(recorder.Count("fstat"), 101U);
    EXPECT_EQ(recorder.Count("fsync"), 101U);
    EXPECT_EQ(recorder.Count("ftruncate"), 101U);
    EXPECT_EQ(recorder.Count("lseek"), 1U);
}

// Closing

/// A second descriptor of the file, which the test closes.
class FileImplCloseTest : public FileImplTest {
protected:
    FileImplCloseTest() : number_(::fcntl(fd_, F_DUPFD_CLOEXEC, 0)), closing_(number_) {}

    ~FileImplCloseTest() override {
        EXPECT_EQ(closing_, -1);
        EXPECT_FALSE(TestSupport::IsOpen(number_));
    }

    int const number_;
    int closing_;
};

static_assert(noexcept(FileImpl::CloseAndGroundHandle_NoThrow(std::declval<int&>())));
static_assert(noexcept(FileImpl::TruncateFile_ThenCloseAndGroundHandle_NoThrow(std::declval<int&>())));

TEST_F(FileImplCloseTest, CloseIsOneCallWithTheVariableGroundedBefore) {
    Recorder recorder;
    recorder.On("close").Before([this](Call const& call) {
        EXPECT_EQ(closing_, -1);
        EXPECT_EQ(call.fd, number_);
    });
    EXPECT_EQ(FileImpl::CloseAndGroundHandle(L"/f", closing_), 0);
    EXPECT_EQ(recorder.Names(), "close");
}

TEST_F(FileImplCloseTest, CloseWithoutExceptionsIsOneCallWithTheVariableGroundedBefore) {
    Recorder recorder;
    recorder.On("close").Before([this](Call const& call) {
        EXPECT_EQ(closing_, -1);
        EXPECT_EQ(call.fd, number_);
    });
    EXPECT_EQ(FileImpl::CloseAndGroundHandle_NoThrow(closing_), 0);
    EXPECT_EQ(recorder.Names(), "close");
}

TEST_F(FileImplCloseTest, AFailedCloseIsReportedWithTheVariableGrounded) {
    for (int const error : {EIO, ENOSPC, EDQUOT}) {
        closing_ = number_;
        Recorder recorder;
        recorder.On("close").Fail(error);
        EXPECT_WRAPPED(FileImpl::CloseAndGroundHandle(L"/f", closing_), L"Failed to close handle of file '/f'.", error);
        EXPECT_EQ(closing_, -1);
        EXPECT_EQ(recorder.Names(), "close");
    }
}

TEST_F(FileImplCloseTest, ACloseOfAClosedDescriptorIsReportedWithTheVariableGrounded) {
    ::close(number_);
    EXPECT_WRAPPED(FileImpl::CloseAndGroundHandle(L"/f", closing_), L"Failed to close handle of file '/f'.", EBADF);
    EXPECT_EQ(closing_, -1);
    EXPECT_WRAPPED(FileImpl::CloseAndGroundHandle(L"/f", closing_), L"Failed to close handle of file '/f'.", EBADF);
}

TEST_F(FileImplCloseTest, EveryResultButZeroIsAFailedClose) {
    Recorder recorder;
    recorder.On("close").After([](Call& call) {
        errno = EXDEV;
        call.result = 5;
    });
    EXPECT_WRAPPED(FileImpl::CloseAndGroundHandle(L"/f", closing_), L"Failed to close handle of file '/f'.", EXDEV);
}

TEST_F(FileImplCloseTest, AnInterruptedCloseIsRepeated) {
    Recorder recorder;
    recorder.On("close").First(9).FailWithoutCalling(EINTR);
    EXPECT_EQ(FileImpl::CloseAndGroundHandle(L"/f", closing_), 0);
    EXPECT_EQ(recorder.Count("close"), 10U);
}

TEST_F(FileImplCloseTest, TheErrorOfTheLastCloseIsReported) {
    Recorder recorder;
    recorder.On("close").FailWithoutCalling(EINTR);
    recorder.On("close").Nth(10).Fail(EIO);
    EXPECT_WRAPPED(FileImpl::CloseAndGroundHandle(L"/f", closing_), L"Failed to close handle of file '/f'.", EIO);
    EXPECT_EQ(recorder.Count("close"), 10U);
}

TEST_F(FileImplCloseTest, CloseWithoutExceptionsGivesTheResultOfTheClose) {
    for (int const result : {0, -1, 5}) {
        closing_ = number_;
        Recorder recorder;
        recorder.On("close").Script({result}, EIO);
        EXPECT_EQ(FileImpl::CloseAndGroundHandle_NoThrow(closing_), result);
        EXPECT_EQ(closing_, -1);
    }
    closing_ = number_;
    Recorder recorder;
    recorder.On("close").First(9).FailWithoutCalling(EINTR);
    EXPECT_EQ(FileImpl::CloseAndGroundHandle_NoThrow(closing_), 0);
}

TEST_F(FileImplCloseTest, TruncationAndCloseEmptyTheFile) {
    Fill("0123456789");
    ::lseek(number_, 7, SEEK_SET);
    Recorder recorder;
    recorder.On("lseek").Nth(1).Before([this](Call const&) { EXPECT_EQ(closing_, -1); });
    EXPECT_EQ(FileImpl::TruncateFile_ThenCloseAndGroundHandle_NoThrow(closing_), 0);
    recorder.Stop();
    std::string const fd = std::to_string(number_);
    EXPECT_THAT(
        recorder.Calls(Recorder::DESCRIPTORS), ElementsAre(
                                                   "lseek(" + fd + ", 0, SEEK_SET)", "lseek(" + fd + ", 0, SEEK_CUR)",
                                                   "ftruncate(" + fd + ", 0)", "close(" + fd + ")"));
    EXPECT_EQ(Content(), "");
}

TEST_F(FileImplCloseTest, AFailedPositioningSkipsTheTruncationButNotTheClose) {
    Fill("text");
    for (auto const& [failing, calls] :
         {std::pair(1U, "lseek getcwd close"), std::pair(2U, "lseek lseek getcwd close")}) {
        closing_ = number_;
        Recorder recorder;
        recorder.On("lseek").Nth(failing).Fail(EIO);
        recorder.On("close").Return(0);
        EXPECT_EQ(FileImpl::TruncateFile_ThenCloseAndGroundHandle_NoThrow(closing_), 0);
        EXPECT_EQ(recorder.Names(), calls);
        EXPECT_EQ(closing_, -1);
    }
    EXPECT_EQ(Content(), "text");
    ::close(number_);
}

TEST_F(FileImplCloseTest, AFailedTruncationDoesNotKeepFromTheClose) {
    Recorder recorder;
    recorder.On("ftruncate").Fail(EIO);
    EXPECT_EQ(FileImpl::TruncateFile_ThenCloseAndGroundHandle_NoThrow(closing_), 0);
    EXPECT_EQ(recorder.Names(), "lseek lseek ftruncate getcwd close");
}

TEST_F(FileImplCloseTest, AnUnknownWorkingDirectoryDoesNotKeepFromTheClose) {
    for (bool const isUndecodable : {false, true}) {
        closing_ = number_;
        Recorder recorder;
        recorder.On("lseek").Fail(EIO);
        recorder.On("close").Return(0);
        if (isUndecodable) {
            recorder.On("getcwd").After([](Call& call) { std::strcpy(static_cast<char*>(call.data), "/\xFF"); });
        } else {
            recorder.On("getcwd").Fail(ENOENT);
        }
        EXPECT_EQ(FileImpl::TruncateFile_ThenCloseAndGroundHandle_NoThrow(closing_), 0);
        EXPECT_EQ(recorder.Names(), "lseek getcwd close");
    }
    ::close(number_);
}

TEST_F(FileImplCloseTest, TruncationAndCloseGiveTheResultOfTheClose) {
    for (int const result : {-1, 5}) {
        closing_ = number_;
        Recorder recorder;
        recorder.On("close").Script({result}, EIO);
        EXPECT_EQ(FileImpl::TruncateFile_ThenCloseAndGroundHandle_NoThrow(closing_), result);
        EXPECT_EQ(closing_, -1);
    }
    closing_ = number_;
    Recorder recorder;
    recorder.On("ftruncate").First(100).Fail(EINTR);
    recorder.On("close").First(9).FailWithoutCalling(EINTR);
    EXPECT_EQ(FileImpl::TruncateFile_ThenCloseAndGroundHandle_NoThrow(closing_), 0);
    EXPECT_EQ(recorder.Count("ftruncate"), 101U);
}

TEST_F(FileImplTest, AnotherExceptionDuringTruncationAndCloseEndsTheProcess) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    Child child([](Child::Parent&) {
        int closing = -1;
        TestSupport::Allocations allocations;
        allocations.FailFrom(1); // no memory for the report that the positioning failed
        FileImpl::TruncateFile_ThenCloseAndGroundHandle_NoThrow(closing);
    });
    EXPECT_EQ(child.Wait(), -SIGABRT);
}

// Path and descriptor

TEST_F(FileImplTest, APathMatchesByAnyNameOfTheFile) {
    ASSERT_EQ(::link(file_.c_str(), (scratch_ / "hard").c_str()), 0);
    ASSERT_EQ(::symlink("file", (scratch_ / "soft").c_str()), 0);
    TestSupport::WorkingDirectory const inside(scratch_.Path());
    WBase::Message report;
    for (wchar_t const* const path : {path_.c_str(), L"file", L"./file", L"hard", L"soft"}) {
        EXPECT_TRUE(FileImpl::DoesPathMatchFileHandle(path, fd_, &report));
        EXPECT_TRUE(FileImpl::DoesPathMatchFileHandle(path, fd_, nullptr));
    }
    EXPECT_STREQ(report.GetMessage(), L"");
}

TEST_F(FileImplTest, MatchingAsksTheDescriptorAndThenThePath) {
    Recorder recorder;
    EXPECT_TRUE(FileImpl::DoesPathMatchFileHandle(path_.c_str(), fd_, nullptr));
    std::string const fd = std::to_string(fd_);
    EXPECT_THAT(recorder.Calls(Recorder::DESCRIPTORS), ElementsAre("fstat(" + fd + ")", "stat(\"" + file_ + "\")"));
}

TEST_F(FileImplTest, MatchingIsRepeatedWithoutLimitWhileInterrupted) {
    Recorder recorder;
    recorder.On("fstat").First(100).Fail(EINTR);
    recorder.On("stat").First(100).Fail(EINTR);
    EXPECT_TRUE(FileImpl::DoesPathMatchFileHandle(path_.c_str(), fd_, nullptr));
    EXPECT_EQ(recorder.Count("fstat"), 101U);
    EXPECT_EQ(recorder.Count("stat"), 101U);
}

TEST_F(FileImplTest, AMatchNeedsTheSameDeviceAndTheSameInode) {
    Recorder recorder;
    recorder.On("stat").Nth(1).After([](Call& call) { ++static_cast<struct stat*>(call.data)->st_dev; });
    recorder.On("stat").Nth(2).After([](Call& call) { ++static_cast<struct stat*>(call.data)->st_ino; });
    EXPECT_FALSE(FileImpl::DoesPathMatchFileHandle(path_.c_str(), fd_, nullptr));
    EXPECT_FALSE(FileImpl::DoesPathMatchFileHandle(path_.c_str(), fd_, nullptr));
    EXPECT_TRUE(FileImpl::DoesPathMatchFileHandle(path_.c_str(), fd_, nullptr));
}

TEST_F(FileImplTest, ADeletedOrReplacedPathDoesNotMatchAndIsNoFailure) {
    WBase::Message report;
    ::unlink(file_.c_str());
    EXPECT_FALSE(FileImpl::DoesPathMatchFileHandle(path_.c_str(), fd_, &report));
    WriteFile(file_, "another");
    EXPECT_FALSE(FileImpl::DoesPathMatchFileHandle(path_.c_str(), fd_, &report));
    EXPECT_FALSE(FileImpl::DoesPathMatchFileHandle(L"", fd_, &report));
    EXPECT_STREQ(report.GetMessage(), L"");
}

TEST_F(FileImplTest, AMatchThatCannotBeFoundOutIsReportedInFrontOfTheMessage) {
    std::wstring const failure = L"Failed to get attributes of file '/no/%1'.";
    for (char const* const function : {"fstat", "stat"}) {
        for (int const error : {EACCES, ENOTDIR, ELOOP, EIO}) {
            WBase::Message report(WBase::MESSAGE_DOMAIN_SERVER, 1, "earlier");
            Recorder recorder;
            recorder.On(function).Fail(error);
            EXPECT_FALSE(FileImpl::DoesPathMatchFileHandle(L"/no/%1", fd_, &report));
            auto expected = TestSupport::Wrapped(failure, error);
            expected.text += L"\nearlier";
            EXPECT_TRUE(TestSupport::Matches(report, expected));
            EXPECT_FALSE(FileImpl::DoesPathMatchFileHandle(L"/no/%1", fd_, nullptr));
        }
    }
}

TEST_F(FileImplTest, AMissingDescriptorIsReportedBeforeThePathIsLookedAt) {
    std::wstring const path = std::wstring(L"/") + SURROGATE;
    WBase::Message report;
    Recorder recorder;
    recorder.On("fstat").Fail(ENOENT); // of the descriptor, it is a failure
    EXPECT_FALSE(FileImpl::DoesPathMatchFileHandle(path.c_str(), fd_, &report));
    EXPECT_EQ(recorder.Names(), "fstat");
    EXPECT_TRUE(TestSupport::Matches(
        report, TestSupport::Wrapped(L"Failed to get attributes of file '" + path + L"'.", ENOENT)));
}

TEST_F(FileImplTest, AMatchWithAPathThatCannotBeConvertedThrows) {
    std::wstring const path = std::wstring(L"a") + SURROGATE;
    WBase::Message report;
    Recorder recorder;
    TestSupport::ExpectedMessage const expected = {
        &typeid(WBase::StringConversionException), WBase::MESSAGE_DOMAIN_ERRNO, EILSEQ,
        L"Failed to convert wide text: the character U+D800 at index 1 is not a Unicode scalar value."};
    WFILESYSTEM_EXPECT_MESSAGE(FileImpl::DoesPathMatchFileHandle(path.c_str(), fd_, &report), expected);
    WFILESYSTEM_EXPECT_MESSAGE(FileImpl::DoesPathMatchFileHandle(path.c_str(), fd_, nullptr), expected);
    EXPECT_EQ(recorder.Names(), "fstat fstat");
    EXPECT_STREQ(report.GetMessage(), L"");
}

// Every operation

struct Operation {
    std::wstring failure; // in front of the path
    std::string call;     // the first that it makes
    std::function<void(wchar_t const* path, int fd)> run;
};

std::vector<Operation> Operations() {
    std::wstring const set = L"Failed to set current position of file '";
    std::wstring const get = L"Failed to get current position of file '";
    static char data[8];
    return {
        {L"Failed to get size of file '", "fstat", [](auto path, int fd) { FileImpl::GetSize(path, fd); }},
        {L"Failed to write 4 bytes to file '", "write",
         [](auto path, int fd) { FileImpl::Write(path, fd, "text", 0); }},
        {L"Failed to write 8 bytes to file '", "write",
         [](auto path, int fd) { FileImpl::Write(path, fd, static_cast<void const*>(data), 8); }},
        {L"Failed to read 8 bytes from file '", "read",
         [](auto path, int fd) { FileImpl::Read(path, fd, static_cast<void*>(data), 8); }},
        {L"Failed to read 7 bytes from file '", "read",
         [](auto path, int fd) { FileImpl::Read(path, fd, *MakeBuffer(7), 0); }},
        {L"Failed to read 6 bytes from file '", "read",
         [](auto path, int fd) { FileImpl::ReadLine(path, fd, *MakeBuffer(6)); }},
        {set, "lseek", [](auto path, int fd) { FileImpl::MovePosition(path, fd, 1); }},
        {set, "lseek", [](auto path, int fd) { FileImpl::SetPosition(path, fd, 1); }},
        {set, "lseek", [](auto path, int fd) { FileImpl::SetPositionToEnd(path, fd); }},
        {get, "lseek", [](auto path, int fd) { FileImpl::GetPosition(path, fd); }},
        {L"Failed to flush file '", "fsync", [](auto path, int fd) { FileImpl::Flush(path, fd); }},
        {get, "lseek", [](auto path, int fd) { FileImpl::Truncate(path, fd); }},
        {L"Failed to truncate file '", "ftruncate", [](auto path, int fd) { FileImpl::Truncate(path, fd); }},
        {L"Failed to close handle of file '", "close",
         [](auto path, int fd) { FileImpl::CloseAndGroundHandle(path, fd); }},
    };
}

TEST_F(FileImplTest, EachFailureNamesTheAbsolutePath) {
    TestSupport::WorkingDirectory const inside(scratch_.Path());
    std::vector<std::pair<std::wstring, std::wstring>> const rows = {
        {L"data/x.bin", scratch_.Wide("data/x.bin")},
        {L"./a/../%1", scratch_.Wide("%1")},
        {L"/a/../%1/%2", L"/a/../%1/%2"},
        {L"Stra\u00DFe \U0001F600", scratch_.Wide("Stra\u00DFe \U0001F600")},
        {L"", scratch_.Wide()},
        {std::wstring(1, SURROGATE), scratch_.Wide() + L'/' + SURROGATE},
        {L'/' + std::wstring(5000, L'x'), L'/' + std::wstring(5000, L'x')},
    };
    for (auto const& [path, absolute] : rows) {
        for (auto const& [failure, call, run] : Operations()) {
            Recorder recorder;
            recorder.On(call).FailWithoutCalling(EIO);
            EXPECT_WRAPPED(run(path.c_str(), fd_), failure + absolute + L"'.", EIO);
        }
    }
}

TEST_F(FileImplTest, EachFailureLeavesTheDescriptorOpen) {
    TestSupport::DescriptorCheck const check;
    for (auto const& [failure, call, run] : Operations()) {
        Recorder recorder;
        recorder.On(call).FailWithoutCalling(EIO);
        EXPECT_THROW(run(L"/f", fd_), WBase::Message);
        EXPECT_EQ(recorder.Count("close"), call == "close" ? 1U : 0U);
    }
}

TEST_F(FileImplTest, EachErrorIsThatOfTheCallNotOfTheWorkingDirectory) {
    TestSupport::WorkingDirectory const inside(scratch_.Path());
    for (auto const& [failure, call, run] : Operations()) {
        Recorder recorder;
        recorder.On(call).FailWithoutCalling(EIO);
        recorder.On("getcwd").After([](Call&) { errno = ERANGE; });
        EXPECT_WRAPPED(run(L"f", fd_), failure + scratch_.Wide("f") + L"'.", EIO);
    }
}

TEST_F(FileImplTest, AnUnknownWorkingDirectoryReplacesEachFailureOfARelativePath) {
    std::wstring const failure = L"WFileSystem::GetCurrentWorkingDirectory: ::getcwd failed.";
    for (auto const& operation : Operations()) {
        Recorder recorder;
        recorder.On(operation.call).FailWithoutCalling(EIO);
        recorder.On("getcwd").Fail(ENOENT);
        EXPECT_REPORT(operation.run(L"f", fd_), failure, ENOENT);
    }
    Recorder recorder;
    recorder.On("getcwd").Fail(ENOENT);
    EXPECT_REPORT(FileImpl::Read(L"f", fd_, static_cast<void*>(nullptr), 1), failure, ENOENT); // the end of the file
    WBase::Message report;
    EXPECT_REPORT(FileImpl::DoesPathMatchFileHandle(L"f", -1, &report), failure, ENOENT);
}

TEST_F(FileImplTest, AnUndecodableWorkingDirectoryReplacesEachFailureOfARelativePath) {
    TestSupport::MakeDirectory(scratch_ / "a\xFF");
    TestSupport::WorkingDirectory const inside(scratch_ / "a\xFF");
    for (auto const& operation : Operations()) {
        Recorder recorder;
        recorder.On(operation.call).FailWithoutCalling(EIO);
        EXPECT_THROW(operation.run(L"f", fd_), WBase::StringConversionException);
        EXPECT_WRAPPED(operation.run(L"/f", fd_), operation.failure + L"/f'.", EIO);
    }
}

TEST_F(FileImplTest, OperationsAllocateNothing) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    Fill("line\nnext line\n");
    auto const buffer = MakeBuffer(8);
    char data[4];
    TestSupport::Allocations allocations;
    FileImpl::Read(L"f", fd_, static_cast<void*>(data), sizeof data);
    FileImpl::Read(L"f", fd_, *buffer, 1);
    FileImpl::ReadLine(L"f", fd_, *buffer);
    FileImpl::Write(L"f", fd_, "text", 0);
    FileImpl::Write(L"f", fd_, static_cast<void const*>(data), sizeof data);
    FileImpl::Flush(L"f", fd_);
    FileImpl::SetPosition(L"f", fd_, FileImpl::MovePosition(L"f", fd_, -1) - FileImpl::GetPosition(L"f", fd_));
    FileImpl::SetPositionToEnd(L"f", fd_);
    FileImpl::Truncate(L"f", fd_);
    FileImpl::GetSize(L"f", fd_);
    EXPECT_EQ(allocations.GetCount(), 0U);
    FileImpl::DoesPathMatchFileHandle(L"f", fd_, nullptr);
    EXPECT_EQ(allocations.Stop(), 1U); // the narrow path
}

} // namespace
