#include <FileSystem/Interop.h>

#include <Base/Exception.h>
#include <DataType/StringCollection.h>
#include <Defines/StrongObjects.h>
#include <FileSystem/FileImpl.h>
#include <FileSystem/Initializer.h>
#include <FileSystem/ReadableFile.h>
#include <FileSystem/UpdateableFile.h>
#include <FileSystem/WriteableFile.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Text.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <ios>
#include <istream>
#include <iterator>
#include <memory>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <vector>

namespace {

using namespace std::string_literals;
using namespace WFileSystem;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::Recorder;

class InteropTest : public ::testing::Test {
protected:
    /// Opens a file that holds these bytes.
    std::unique_ptr<ReadableFile> OpenToRead(std::string_view bytes) const {
        TestSupport::WriteFile(path_, bytes);
        return OpenReadableFile(widePath_.c_str());
    }

    std::unique_ptr<WriteableFile> OpenToWrite(IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy = KEEP_FILE) const {
        return OpenWriteableFile(widePath_.c_str(), policy);
    }

    std::string Content() const { return TestSupport::ReadFile(path_); }

    Initializer const initializer_;
    TestSupport::ScratchDirectory const scratch_;
    std::string const path_ = scratch_ / "data";
    std::wstring const widePath_ = scratch_.Wide("data");
    std::wstring const positionFailure_ = L"Failed to set current position of file '" + widePath_ + L"'.";
};

using ToWidePathTest = InteropTest;
using ReadableFileBufferTest = InteropTest;
using WriteableFileBufferTest = InteropTest;
using ReadableFileLinesTest = InteropTest;
using ToErrorCodeTest = InteropTest;

// Paths

TEST_F(ToWidePathTest, UTF8BecomesWide) {
    EXPECT_EQ(ToWidePath(std::string_view("a/\u00E9\u20AC\U0001F600")), L"a/\u00E9\u20AC\U0001F600");
    EXPECT_EQ(ToWidePath(std::string_view()), L"");
}

TEST_F(ToWidePathTest, AViewIsTakenAsLongAsItIs) {
    EXPECT_EQ(ToWidePath(std::string_view("abcdef").substr(1, 3)), L"bcd");
}

TEST_F(ToWidePathTest, AStandardPathNamesTheSameFile) {
    std::filesystem::path const directory = scratch_.Path();
    TestSupport::WriteFile(scratch_ / "\u00E9", "12");
    EXPECT_EQ(OpenReadableFile(ToWidePath(directory / "\u00E9").c_str())->GetSize(), 2);
}

TEST_F(ToWidePathTest, LiteralsAndStringsAreUTF8) {
    char const* const pointer = "\u00E9";
    EXPECT_EQ(ToWidePath("\u00E9"), L"\u00E9");
    EXPECT_EQ(ToWidePath(pointer), L"\u00E9");
    EXPECT_EQ(ToWidePath("\u00E9"s), L"\u00E9");
}

TEST_F(ToWidePathTest, AZeroByteIsRefusedWhereverItStands) {
    std::wstring const text = L"Failed to convert UTF-8 text: the zero byte at index 1 would cut the path.";
    TestSupport::ExpectedMessage const expected{
        &typeid(WBase::StringConversionException), WBase::MESSAGE_DOMAIN_ERRNO, EILSEQ, text};
    WFILESYSTEM_EXPECT_MESSAGE(ToWidePath("a\0b"s), expected);
    WFILESYSTEM_EXPECT_MESSAGE(ToWidePath(std::string_view("a\0", 2)), expected);
    WFILESYSTEM_EXPECT_MESSAGE(ToWidePath(std::filesystem::path("a\0b"s)), expected);
}

TEST_F(ToWidePathTest, WhatIsNoUTF8IsRefused) {
    EXPECT_THROW(ToWidePath("a\xFF"), WBase::StringConversionException);
    EXPECT_THROW(ToWidePath(std::filesystem::path("a\xFF")), WBase::StringConversionException);
}

// Reading by a stream

TEST_F(ReadableFileBufferTest, AFileIsReadABufferAtATime) {
    std::string const content(10, 'x');
    auto const file = OpenToRead(content);
    ReadableFileStream stream(*file, 4);
    Recorder recorder;
    std::string received;
    for (char character; stream.get(character);) {
        received += character;
    }
    EXPECT_EQ(received, content);
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(4)", "read(4)", "read(4)", "read(2)", "read(4)"));
    EXPECT_TRUE(stream.eof());
    EXPECT_FALSE(stream.bad());
}

TEST_F(ReadableFileBufferTest, WithoutASizeTheBufferHolds16KiB) {
    auto const file = OpenToRead("a");
    ReadableFileBuffer buffer(*file);
    Recorder recorder;
    EXPECT_EQ(buffer.sgetc(), 'a');
    EXPECT_THAT(recorder.Calls(), ElementsAre("read(16384)", "read(16383)"));
}

TEST_F(ReadableFileBufferTest, ASizeOf0CountsAs1) {
    auto const file = OpenToRead("ab");
    ReadableFileStream stream(*file, 0);
    std::string word;
    stream >> word;
    EXPECT_EQ(word, "ab");
}

TEST_F(ReadableFileBufferTest, ReadingBeginsAtTheFilesPosition) {
    auto const file = OpenToRead("12 345");
    file->SetPosition(1);
    ReadableFileStream stream(*file, 2);
    int first = 0;
    int second = 0;
    stream >> first >> second;
    EXPECT_EQ(first, 2);
    EXPECT_EQ(second, 345);
}

TEST_F(ReadableFileBufferTest, AByteAbove127IsNotTheEnd) {
    auto const file = OpenToRead("\xFF\x80");
    ReadableFileBuffer buffer(*file, 1);
    EXPECT_EQ(buffer.sbumpc(), 0xFF);
    EXPECT_EQ(buffer.sbumpc(), 0x80);
    EXPECT_EQ(buffer.sbumpc(), std::char_traits<char>::eof());
}

TEST_F(ReadableFileBufferTest, ReadingAllocatesNothing) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    auto const file = OpenToRead(std::string(100, 'x'));
    ReadableFileBuffer buffer(*file, 8);
    TestSupport::Allocations allocations;
    while (buffer.sbumpc() != std::char_traits<char>::eof()) {
    }
    EXPECT_EQ(allocations.Stop(), 0U);
}

TEST_F(ReadableFileBufferTest, AFailureLeavesTheBufferAsTheLibrarysException) {
    auto const file = OpenToRead("abc");
    ReadableFileBuffer buffer(*file, 8);
    Recorder recorder;
    recorder.On("read").Fail(EIO);
    EXPECT_WRAPPED(buffer.sgetc(), L"Failed to read 8 bytes from file '" + widePath_ + L"'.", EIO);
}

TEST_F(ReadableFileBufferTest, AStreamThatIsToldToThrowsTheSameException) {
    auto const file = OpenToRead("abc");
    ReadableFileBuffer buffer(*file, 8);
    std::istream stream(&buffer);
    stream.exceptions(std::ios_base::badbit);
    Recorder recorder;
    recorder.On("read").Fail(EIO);
    std::string line;
    EXPECT_WRAPPED(std::getline(stream, line), L"Failed to read 8 bytes from file '" + widePath_ + L"'.", EIO);
}

TEST_F(ReadableFileBufferTest, AStreamThatIsNotToldToKeepsTheFailureInItsBadBit) {
    auto const file = OpenToRead("abc");
    ReadableFileBuffer buffer(*file, 8);
    std::istream stream(&buffer);
    Recorder recorder;
    recorder.On("read").Fail(EIO);
    EXPECT_NO_THROW(stream.get());
    EXPECT_TRUE(stream.bad());
}

TEST_F(ReadableFileBufferTest, AnOutputStreamThatTakesTheBufferThrowsByItsFailBit) {
    auto const file = OpenToRead("abc");
    ReadableFileBuffer buffer(*file, 8);
    std::ostringstream stream;
    stream.exceptions(std::ios_base::failbit);
    Recorder recorder;
    recorder.On("read").First(1).Fail(EIO);
    EXPECT_WRAPPED(stream << &buffer, L"Failed to read 8 bytes from file '" + widePath_ + L"'.", EIO);
    stream.clear();
    stream << &buffer;
    EXPECT_EQ(stream.str(), "abc");
}

TEST_F(ReadableFileBufferTest, AFileStreamThrowsAndThenGoesOnWhereItWas) {
    auto const file = OpenToRead("abcdef");
    ReadableFileStream stream(*file, 3);
    Recorder recorder;
    recorder.On("read").Nth(2).Fail(EIO);
    char bytes[3];
    stream.read(bytes, sizeof bytes);
    EXPECT_WRAPPED(stream.get(), L"Failed to read 3 bytes from file '" + widePath_ + L"'.", EIO);
    EXPECT_THROW(stream.get(), std::ios_base::failure);
    stream.clear();
    EXPECT_EQ(stream.get(), 'd');
}

TEST_F(ReadableFileBufferTest, WhatCameBeforeAFailureIsGivenOutFirst) {
    auto const file = OpenToRead("abcdef");
    ReadableFileBuffer buffer(*file, 6);
    Recorder recorder;
    recorder.On("read").Nth(1).Limit(2);
    recorder.On("read").From(2).Fail(EIO);
    EXPECT_EQ(buffer.sbumpc(), 'a');
    EXPECT_EQ(buffer.sbumpc(), 'b');
    EXPECT_WRAPPED(buffer.sbumpc(), L"Failed to read 6 bytes from file '" + widePath_ + L"'.", EIO);
}

TEST_F(ReadableFileBufferTest, ACharacterCanBePutBackAlsoAtTheEnd) {
    auto const file = OpenToRead("ab");
    ReadableFileStream stream(*file, 2);
    EXPECT_EQ(stream.get(), 'a');
    EXPECT_EQ(stream.get(), 'b');
    EXPECT_EQ(stream.peek(), std::char_traits<char>::eof());
    stream.clear();
    EXPECT_EQ(stream.unget().get(), 'b');
}

TEST_F(ReadableFileBufferTest, ACharacterCanNotBePutBackAcrossARefill) {
    auto const file = OpenToRead("abc");
    ReadableFileBuffer buffer(*file, 2);
    EXPECT_EQ(buffer.sbumpc(), 'a');
    EXPECT_EQ(buffer.sbumpc(), 'b');
    EXPECT_EQ(buffer.sbumpc(), 'c');
    EXPECT_EQ(buffer.sungetc(), 'c');
    EXPECT_EQ(buffer.sungetc(), std::char_traits<char>::eof());
}

TEST_F(ReadableFileBufferTest, SyncSetsTheFilesPositionToWhatComesNext) {
    auto const file = OpenToRead("head\n\x01\x02\x03\x04");
    ReadableFileStream stream(*file);
    std::string head;
    std::getline(stream, head);
    EXPECT_EQ(file->GetPosition(), 9);
    stream.sync();
    unsigned int number = 0;
    file->ReadLittleEndian(number);
    EXPECT_EQ(number, 0x04030201U);
}

TEST_F(ReadableFileBufferTest, SyncForgetsWhatWasReadAhead) {
    auto const file = OpenToRead("old");
    ReadableFileStream stream(*file);
    EXPECT_EQ(stream.get(), 'o');
    TestSupport::WriteFile(path_, "new");
    stream.sync();
    EXPECT_EQ(stream.get(), 'e');
}

TEST_F(ReadableFileBufferTest, SyncWithNothingReadAheadMakesNoCall) {
    auto const file = OpenToRead("ab");
    ReadableFileStream stream(*file, 2);
    char bytes[2];
    stream.read(bytes, sizeof bytes);
    Recorder recorder;
    stream.sync();
    EXPECT_THAT(recorder.Calls(), IsEmpty());
}

TEST_F(ReadableFileBufferTest, ToTellThePositionKeepsWhatWasReadAhead) {
    auto const file = OpenToRead("abcdef");
    ReadableFileStream stream(*file, 4);
    stream.ignore(3);
    Recorder recorder;
    EXPECT_EQ(stream.tellg(), std::streampos(3));
    EXPECT_EQ(stream.get(), 'd');
    EXPECT_EQ(recorder.Names(), "lseek");
}

TEST_F(ReadableFileBufferTest, ThePositionIsSetFromAllThreeOrigins) {
    auto const file = OpenToRead("abcdef");
    ReadableFileStream stream(*file, 4);
    EXPECT_EQ(stream.get(), 'a');
    EXPECT_EQ(stream.seekg(2, std::ios_base::cur).get(), 'd');
    EXPECT_EQ(stream.seekg(-1, std::ios_base::end).get(), 'f');
    EXPECT_EQ(stream.seekg(1, std::ios_base::beg).get(), 'b');
    EXPECT_EQ(stream.seekg(4).get(), 'e');
}

TEST_F(ReadableFileBufferTest, TheStartAndTheEndThemselvesAreOriginsToo) {
    auto const file = OpenToRead("abcdef");
    ReadableFileStream stream(*file, 4);
    EXPECT_EQ(stream.get(), 'a');
    EXPECT_EQ(stream.seekg(0, std::ios_base::end).tellg(), 6);
    EXPECT_EQ(stream.seekg(0, std::ios_base::beg).get(), 'a');
}

TEST_F(ReadableFileBufferTest, APositionThatCanNotBeSetIsTheLibrarysException) {
    auto const file = OpenToRead("abcdef");
    ReadableFileStream stream(*file);
    EXPECT_WRAPPED(stream.seekg(-1), positionFailure_, EINVAL);
}

TEST_F(ReadableFileBufferTest, ThereIsNoPositionToWriteAt) {
    auto const file = OpenToRead("abcdef");
    ReadableFileBuffer buffer(*file);
    EXPECT_EQ(buffer.pubseekoff(0, std::ios_base::cur, std::ios_base::out), std::streampos(-1));
    EXPECT_EQ(buffer.pubseekpos(1, std::ios_base::out), std::streampos(-1));
    EXPECT_EQ(file->GetPosition(), 0);
}

// Writing by a stream

TEST_F(WriteableFileBufferTest, SmallPiecesGoToTheFileInOneCallAtTheFlush) {
    auto const file = OpenToWrite();
    WriteableFileStream stream(*file);
    Recorder recorder;
    for (int number = 0; number < 1000; ++number) {
        stream << number % 10 << '\n';
    }
    EXPECT_THAT(recorder.Calls(), IsEmpty());
    stream << std::flush;
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(2000)"));
    EXPECT_EQ(Content().substr(1996), "8\n9\n");
}

TEST_F(WriteableFileBufferTest, AFlushOfNothingMakesNoCall) {
    auto const file = OpenToWrite();
    WriteableFileStream stream(*file);
    Recorder recorder;
    stream << std::flush;
    EXPECT_THAT(recorder.Calls(), IsEmpty());
    EXPECT_EQ(file->GetWriteTimer().GetTotal().count(), 0); // the file is not even asked
}

TEST_F(WriteableFileBufferTest, WithoutASizeTheBufferHolds16KiB) {
    auto const file = OpenToWrite();
    WriteableFileBuffer buffer(*file);
    Recorder recorder;
    for (int count = 0; count < 16385; ++count) {
        buffer.sputc('x');
    }
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(16384)"));
}

TEST_F(WriteableFileBufferTest, CharactersFillTheBuffer) {
    auto const file = OpenToWrite();
    WriteableFileStream stream(*file, 4);
    Recorder recorder;
    for (char const character : "abcde\xFFg"s) {
        stream.put(character);
    }
    stream.flush();
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(4)", "write(3)"));
    EXPECT_EQ(Content(), "abcde\xFFg");
}

TEST_F(WriteableFileBufferTest, ToMakeRoomForNothingWritesWhatWasCollected) {
    struct Opened : WriteableFileBuffer {
        using WriteableFileBuffer::overflow;
        using WriteableFileBuffer::WriteableFileBuffer;
    };
    auto const file = OpenToWrite();
    Opened buffer(*file);
    buffer.sputn("ab", 2);
    EXPECT_NE(buffer.overflow(Opened::traits_type::eof()), Opened::traits_type::eof());
    buffer.pubsync();
    EXPECT_EQ(Content(), "ab");
}

TEST_F(WriteableFileBufferTest, ATextThatFitsIntoTheBufferIsNotTorn) {
    auto const file = OpenToWrite();
    WriteableFileStream stream(*file, 8);
    Recorder recorder;
    stream << "abc"
           << "defgh"
           << "ijk"
           << "lmnopq" << std::flush;
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(8)", "write(3)", "write(6)"));
    EXPECT_EQ(Content(), "abcdefghijklmnopq");
}

TEST_F(WriteableFileBufferTest, ATextLongerThanTheBufferIsWrittenAtOnce) {
    auto const file = OpenToWrite();
    WriteableFileStream stream(*file, 4);
    Recorder recorder;
    stream << "ab"
           << "cdefg";
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(2)", "write(5)"));
    stream << "hijk"; // as long as the buffer
    EXPECT_EQ(recorder.Count("write"), 2U);
    stream << "l" << std::flush;
    EXPECT_EQ(Content(), "abcdefghijkl");
}

TEST_F(WriteableFileBufferTest, NoCharactersAreNoWrite) {
    auto const file = OpenToWrite();
    WriteableFileBuffer buffer(*file);
    EXPECT_EQ(buffer.sputn("abc", 0), 0);
    EXPECT_EQ(buffer.sputn("abc", -1), 0);
    EXPECT_EQ(buffer.pubsync(), 0);
    EXPECT_EQ(Content(), "");
}

TEST_F(WriteableFileBufferTest, ASizeOf0CountsAs1) {
    auto const file = OpenToWrite();
    WriteableFileStream stream(*file, 0);
    stream << 'a' << "bc" << 'd' << std::flush;
    EXPECT_EQ(Content(), "abcd");
}

TEST_F(WriteableFileBufferTest, WritingBeginsAtTheFilesPosition) {
    TestSupport::WriteFile(path_, "0123456789");
    auto const file = OpenToWrite();
    file->SetPosition(2);
    WriteableFileStream(*file) << "ab" << std::flush;
    EXPECT_EQ(Content(), "01ab456789");
}

TEST_F(WriteableFileBufferTest, WritingAllocatesNothing) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    auto const file = OpenToWrite();
    WriteableFileBuffer buffer(*file, 8);
    TestSupport::Allocations allocations;
    for (int count = 0; count < 10; ++count) {
        buffer.sputn("abc", 3);
        buffer.sputn("0123456789", 10);
    }
    EXPECT_EQ(allocations.Stop(), 0U);
}

TEST_F(WriteableFileBufferTest, DestructionWritesTheRestAndDoesNotCommit) {
    auto file = OpenToWrite(TRUNCATE_FILE);
    {
        WriteableFileStream stream(*file);
        stream << "rest";
        Recorder recorder;
        { WriteableFileBuffer const other(*file); }
        EXPECT_THAT(recorder.Calls(), IsEmpty());
    }
    EXPECT_EQ(Content(), "rest");
    file.reset();
    EXPECT_EQ(Content(), "");
}

TEST_F(WriteableFileBufferTest, DestructionMakesOneWriteAndNothingElse) {
    auto const file = OpenToWrite();
    auto buffer = std::make_unique<WriteableFileBuffer>(*file);
    buffer->sputn("rest", 4);
    Recorder recorder;
    buffer.reset();
    EXPECT_THAT(recorder.Calls(), ElementsAre("write(4)"));
}

TEST_F(WriteableFileBufferTest, DestructionNeverThrows) {
    static_assert(std::is_nothrow_destructible_v<WriteableFileBuffer>);
    static_assert(std::is_nothrow_destructible_v<WriteableFileStream>);
    auto const file = OpenToWrite();
    auto stream = std::make_unique<WriteableFileStream>(*file);
    *stream << "rest";
    Recorder recorder;
    recorder.On("write").Fail(ENOSPC);
    EXPECT_NO_THROW(stream.reset());
    EXPECT_EQ(recorder.Names(), "write");
}

TEST_F(WriteableFileBufferTest, DestructionAfterTheCommitMakesNoCallWhereAllWasFlushed) {
    auto const file = OpenToWrite(DELETE_FILE);
    auto stream = std::make_unique<WriteableFileStream>(*file);
    *stream << "all" << std::flush;
    file->CommitAndClose();
    Recorder recorder;
    stream.reset();
    EXPECT_THAT(recorder.Calls(), IsEmpty());
    EXPECT_EQ(Content(), "all");
}

TEST_F(WriteableFileBufferTest, TheFileMayGoOnceAllIsFlushed) {
    auto file = OpenToWrite();
    WriteableFileStream stream(*file);
    stream << "all" << std::flush;
    file->CommitAndClose();
    file.reset();
    EXPECT_EQ(Content(), "all");
}

TEST_F(WriteableFileBufferTest, AFailureLeavesTheBufferAsTheLibrarysException) {
    auto const file = OpenToWrite();
    WriteableFileBuffer buffer(*file, 4);
    Recorder recorder;
    recorder.On("write").First(1).Fail(ENOSPC);
    EXPECT_WRAPPED(buffer.sputn("12345", 5), L"Failed to write 5 bytes to file '" + widePath_ + L"'.", ENOSPC);
}

TEST_F(WriteableFileBufferTest, AfterAFailureNothingIsWrittenAndTheFailureComesAgain) {
    auto const file = OpenToWrite();
    auto buffer = std::make_unique<WriteableFileBuffer>(*file, 4);
    std::wstring const text = L"Failed to write 3 bytes to file '" + widePath_ + L"'.";
    Recorder recorder;
    recorder.On("write").First(1).Fail(ENOSPC);
    buffer->sputn("abc", 3);
    EXPECT_WRAPPED(buffer->pubsync(), text, ENOSPC);
    EXPECT_WRAPPED(buffer->pubsync(), text, ENOSPC);
    EXPECT_WRAPPED(buffer->sputc('d'), text, ENOSPC);
    EXPECT_WRAPPED(buffer->sputn("e", 1), text, ENOSPC);
    EXPECT_WRAPPED(buffer->sputn("fghij", 5), text, ENOSPC);
    EXPECT_WRAPPED(buffer->pubseekpos(0), text, ENOSPC);
    buffer.reset();
    EXPECT_EQ(recorder.Names(), "write");
    EXPECT_EQ(Content(), "");
}

TEST_F(WriteableFileBufferTest, AStreamThatIsToldToThrowsTheSameException) {
    auto const file = OpenToWrite();
    WriteableFileBuffer buffer(*file);
    std::ostream stream(&buffer);
    stream.exceptions(std::ios_base::badbit);
    Recorder recorder;
    recorder.On("write").Fail(ENOSPC);
    stream << "abc";
    EXPECT_WRAPPED(stream.flush(), L"Failed to write 3 bytes to file '" + widePath_ + L"'.", ENOSPC);
}

TEST_F(WriteableFileBufferTest, AFileStreamStaysBadAfterAFailure) {
    auto const file = OpenToWrite();
    WriteableFileStream stream(*file, 4);
    std::wstring const text = L"Failed to write 5 bytes to file '" + widePath_ + L"'.";
    Recorder recorder;
    recorder.On("write").First(1).Fail(ENOSPC);
    EXPECT_WRAPPED(stream << "12345", text, ENOSPC);
    EXPECT_THROW(stream << 'a', std::ios_base::failure);
    stream.clear();
    EXPECT_WRAPPED(stream << 'a', text, ENOSPC);
}

TEST_F(WriteableFileBufferTest, ToTellThePositionWritesNothing) {
    auto const file = OpenToWrite();
    WriteableFileStream stream(*file);
    stream << "abc";
    Recorder recorder;
    EXPECT_EQ(stream.tellp(), std::streampos(3));
    EXPECT_EQ(recorder.Names(), "lseek");
    stream << "d" << std::flush;
    EXPECT_EQ(Content(), "abcd");
}

TEST_F(WriteableFileBufferTest, ThePositionIsSetFromAllThreeOriginsAfterWriting) {
    auto const file = OpenToWrite();
    WriteableFileStream stream(*file);
    stream << "abcdef";
    stream.seekp(1) << 'B';
    stream.seekp(1, std::ios_base::cur) << 'D';
    stream.seekp(-1, std::ios_base::end) << 'F';
    stream.seekp(0, std::ios_base::beg) << 'A' << std::flush;
    EXPECT_EQ(Content(), "ABcDeF");
}

TEST_F(WriteableFileBufferTest, ThereIsNoPositionToReadAt) {
    auto const file = OpenToWrite();
    WriteableFileBuffer buffer(*file);
    EXPECT_EQ(buffer.pubseekoff(0, std::ios_base::cur, std::ios_base::in), std::streampos(-1));
}

TEST_F(WriteableFileBufferTest, BothBuffersServeAnUpdateableFile) {
    TestSupport::WriteFile(path_, "41 apples");
    auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
    int count = 0;
    ReadableFileStream(*file) >> count;
    file->SetPosition(0);
    WriteableFileStream(*file) << count + 1 << std::flush;
    EXPECT_EQ(Content(), "42 apples");
}

TEST(FileBufferTest, BuffersAndLinesAreNeitherCopiedNorMoved) {
    EXPECT_FALSE(std::is_copy_constructible_v<ReadableFileBuffer>);
    EXPECT_FALSE(std::is_move_constructible_v<ReadableFileBuffer>);
    EXPECT_FALSE(std::is_copy_constructible_v<WriteableFileBuffer>);
    EXPECT_FALSE(std::is_move_constructible_v<WriteableFileBuffer>);
    EXPECT_FALSE(std::is_move_constructible_v<WriteableFileStream>);
    EXPECT_FALSE(std::is_move_constructible_v<ReadableFileLines>);
}

// Lines

std::vector<std::string> Read(ReadableFile& file, std::size_t size = STREAM_BUFFER_SIZE) {
    std::vector<std::string> lines;
    for (std::string const& line : ReadableFileLines(file, size)) {
        lines.push_back(line);
    }
    return lines;
}

TEST_F(ReadableFileLinesTest, EachLineComesWithoutItsLineFeed) {
    EXPECT_THAT(Read(*OpenToRead("a\n\nbc\n")), ElementsAre("a", "", "bc"));
    EXPECT_THAT(Read(*OpenToRead("a\r\n\n")), ElementsAre("a\r", ""));
}

TEST_F(ReadableFileLinesTest, TheLastLineNeedsNoLineFeed) {
    EXPECT_THAT(Read(*OpenToRead("a\nb")), ElementsAre("a", "b"));
}

TEST_F(ReadableFileLinesTest, AnEmptyFileHasNoLines) {
    EXPECT_THAT(Read(*OpenToRead("")), IsEmpty());
}

TEST_F(ReadableFileLinesTest, ALineLongerThanTheBufferIsWhole) {
    EXPECT_THAT(Read(*OpenToRead("0123456789\nab\n"), 3), ElementsAre("0123456789", "ab"));
    EXPECT_THAT(Read(*OpenToRead("ab\ncd"), 0), ElementsAre("ab", "cd"));
}

TEST_F(ReadableFileLinesTest, AZeroByteIsAByteOfItsLine) {
    EXPECT_THAT(Read(*OpenToRead("a\0b\n\0"s)), ElementsAre("a\0b"s, "\0"s));
}

TEST_F(ReadableFileLinesTest, LinesBeginAtTheFilesPosition) {
    auto const file = OpenToRead("abc\nd\n");
    file->SetPosition(2);
    EXPECT_THAT(Read(*file), ElementsAre("c", "d"));
}

TEST_F(ReadableFileLinesTest, ManyLinesTakeFewCallsAndNoneThatPositions) {
    std::string content;
    for (int line = 0; line < 1000; ++line) {
        content += "123456789\n";
    }
    auto const file = OpenToRead(content);
    Recorder recorder;
    EXPECT_EQ(Read(*file).size(), 1000U);
    EXPECT_EQ(recorder.Names(), "read read read"); // all, none, and none once more
}

TEST_F(ReadableFileLinesTest, AFailureLeavesTheLoopAsTheLibrarysException) {
    auto const file = OpenToRead("a\nb\n");
    Recorder recorder;
    recorder.On("read").From(2).Fail(EIO);
    ReadableFileLines lines(*file, 2);
    auto line = lines.begin();
    EXPECT_EQ(*line, "a");
    EXPECT_WRAPPED(++line, L"Failed to read 2 bytes from file '" + widePath_ + L"'.", EIO);
    EXPECT_THROW(lines.begin(), std::ios_base::failure); // not the end
}

TEST_F(ReadableFileLinesTest, AlgorithmsTakeTheIterators) {
    auto const file = OpenToRead("b\na\nb\n");
    ReadableFileLines lines(*file);
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "b"), 2);
}

TEST_F(ReadableFileLinesTest, TheIteratorIsAnInputIterator) {
    auto const file = OpenToRead("ab\nc\n");
    ReadableFileLines lines(*file);
    auto line = lines.begin();
    EXPECT_EQ(line->size(), 2U);
    EXPECT_EQ(*line++, "ab");
    EXPECT_EQ(*line, "c");
    EXPECT_TRUE(line != lines.end());
    EXPECT_TRUE(++line == lines.end());
    EXPECT_TRUE(lines.begin() == lines.end());
}

// Collections

TEST(StringCollectionRangeTest, ARangeForGoesThroughTheStringsInOrder) {
    auto const collection = WDataType::CreateStringCollection();
    collection->Append(L"b");
    collection->Append(L"");
    collection->Append(L"a");
    std::vector<std::wstring> strings;
    for (wchar_t const* const string : *collection) {
        strings.emplace_back(string);
    }
    EXPECT_THAT(strings, ElementsAre(L"b", L"", L"a"));
}

TEST(StringCollectionRangeTest, AnEmptyCollectionIsAnEmptyRange) {
    auto const collection = WDataType::CreateStringCollection();
    EXPECT_TRUE(begin(*collection) == end(*collection));
}

TEST(StringCollectionRangeTest, AStringThatIsAppendedMeanwhileIsNotSeenByTheLoop) {
    auto const names = WDataType::CreateStringCollection();
    names->Append(L"a");
    int seen = 0;
    for (wchar_t const* const name : *names) {
        names->Append(name);
        ++seen;
    }
    EXPECT_EQ(seen, 1);
}

TEST(StringCollectionRangeTest, TheIteratorsFillAContainer) {
    auto const collection = WDataType::CreateStringCollection();
    collection->Append(L"a");
    collection->Append(L"b");
    auto string = begin(*collection);
    EXPECT_STREQ(*string++, L"a");
    EXPECT_TRUE(string != begin(*collection));
    EXPECT_THAT(std::vector<std::wstring>(begin(*collection), end(*collection)), ElementsAre(L"a", L"b"));
}

// Error codes

WBase::Message Wrapped(WBase::Message message, unsigned short domain, int id) {
    return message.WrapBy(domain, id, "text");
}

TEST_F(ToErrorCodeTest, AReportOfASystemCallGivesItsError) {
    try {
        OpenReadableFile(scratch_.Wide("missing").c_str());
        FAIL();
    } catch (WBase::Message const& message) {
        EXPECT_EQ(ToErrorCode(message), std::errc::no_such_file_or_directory);
    }
}

TEST_F(ToErrorCodeTest, AWrappedMessageGivesTheErrorOfItsCause) {
    auto const file = OpenToWrite();
    Recorder recorder;
    recorder.On("fcntl").Fail(EAGAIN);
    try {
        WriteableFile::WriteSmartLock_NoWait const lock(*file);
        FAIL();
    } catch (WBase::Message const& message) {
        EXPECT_EQ(ToErrorCode(message), std::errc::resource_unavailable_try_again);
    }
}

TEST_F(ToErrorCodeTest, TheErrorIsFoundHoweverDeepItIs) {
    WBase::ExceptionImpl<WBase::Message> const report("f: ::open failed.", EACCES);
    auto const once = Wrapped(report, WBase::MESSAGE_DOMAIN_SERVER, FILESYSTEM_MESSAGE_ID);
    EXPECT_EQ(ToErrorCode(Wrapped(once, WBase::MESSAGE_DOMAIN_SERVER, 7)), std::errc::permission_denied);
    WBase::Message const error(WBase::MESSAGE_DOMAIN_ERRNO, EIO, nullptr);
    auto const wrapped = Wrapped(error, WBase::MESSAGE_DOMAIN_SERVER, FILESYSTEM_MESSAGE_ID);
    EXPECT_EQ(ToErrorCode(Wrapped(wrapped, WBase::MESSAGE_DOMAIN_UNKNOWN, -1)), std::errc::io_error);
    EXPECT_EQ(ToErrorCode(Wrapped(report, WBase::MESSAGE_DOMAIN_UNKNOWN, -1)), std::errc::permission_denied);
}

TEST_F(ToErrorCodeTest, AnErrorInTheSystemsOwnSpaceComesFirst) {
    WBase::Message const error(WBase::MESSAGE_DOMAIN_ERRNO, EIO, nullptr);
    EXPECT_EQ(ToErrorCode(Wrapped(error, WBase::MESSAGE_DOMAIN_UNKNOWN, EACCES)), std::errc::io_error);
}

TEST_F(ToErrorCodeTest, TheNumberZeroIsPassedOver) {
    WBase::Message const error(WBase::MESSAGE_DOMAIN_ERRNO, EIO, nullptr);
    EXPECT_EQ(ToErrorCode(Wrapped(error, WBase::MESSAGE_DOMAIN_ERRNO, 0)), std::errc::io_error);
}

TEST_F(ToErrorCodeTest, TextThatCanNotBeConvertedIsAnErrorToo) {
    try {
        ToWidePath("\xFF");
        FAIL();
    } catch (WBase::Message const& message) {
        EXPECT_EQ(ToErrorCode(message), std::errc::illegal_byte_sequence);
    }
}

TEST_F(ToErrorCodeTest, AMessageWithoutASystemErrorGivesNone) {
    EXPECT_FALSE(ToErrorCode(WBase::Message()));
    EXPECT_FALSE(ToErrorCode(WBase::ExceptionImpl<WBase::Message>("text"))); // the ID -1
    EXPECT_FALSE(ToErrorCode(WBase::Message(WBase::MESSAGE_DOMAIN_SERVER, EIO, "text")));
    auto const file = OpenToRead("");
    char byte;
    try {
        file->Read(&byte, 1); // meets the end
        FAIL();
    } catch (WBase::Message const& message) {
        EXPECT_FALSE(ToErrorCode(message));
    }
}

TEST_F(ToErrorCodeTest, TheCategoryIsTheGenericOne) {
    std::error_code const code = ToErrorCode(WBase::Message(WBase::MESSAGE_DOMAIN_ERRNO, EIO, nullptr));
    EXPECT_EQ(code, std::error_code(EIO, std::generic_category()));
}

} // namespace
