// The operations of WFileSystem::FileImpl on a descriptor, but for its transfers and locks.

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
#include <signal.h>
#include <string>
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
constexpr long long BEYOND_32_BITS = 5LL << 30;

std::unique_ptr<WDataType::Binary> MakeBuffer(unsigned long size) {
    return WDataType::CreateBinary(size, nullptr);
}

/// A file, open for reading and writing. Failures name it "/f".
class FileImplTest : public testing::Test {
protected:
    FileImplTest() { fd_ = ::open(file_.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600); }
    ~FileImplTest() override { ::close(fd_); }

    void Fill(std::string const& content) { WriteFile(file_, content); }

    std::string Content() const { return ReadFile(file_); }

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

TEST_F(FileImplTest, OnlyMinusOneIsAFailedPositioning) {
    Recorder recorder;
    recorder.On("lseek").Script({-2, -2}); // a position of some devices
    EXPECT_EQ(FileImpl::GetPosition(L"/f", fd_), -2);
    EXPECT_EQ(FileImpl::SetPosition(L"/f", fd_, -2), -2);
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

TEST_F(FileImplTest, AMatchThatCannotBeFoundOutNeedsNoWorkingDirectoryWithoutAMessage) {
    Recorder recorder;
    recorder.On("stat").Fail(EIO);
    EXPECT_FALSE(FileImpl::DoesPathMatchFileHandle(L"f", -1, nullptr));
    EXPECT_FALSE(FileImpl::DoesPathMatchFileHandle(L"f", fd_, nullptr));
    EXPECT_EQ(recorder.Names(), "fstat fstat stat");
}

TEST_F(FileImplTest, TheReportOfAMatchNamesTheAbsolutePathAndTheErrorOfTheCall) {
    TestSupport::WorkingDirectory const inside(scratch_.Path());
    for (char const* const function : {"fstat", "stat"}) {
        WBase::Message report;
        Recorder recorder;
        recorder.On(function).Fail(EIO);
        recorder.On("getcwd").After([](Call&) { errno = ERANGE; });
        EXPECT_FALSE(FileImpl::DoesPathMatchFileHandle(L"./a/../f", fd_, &report));
        EXPECT_TRUE(TestSupport::Matches(
            report, TestSupport::Wrapped(L"Failed to get attributes of file '" + scratch_.Wide("f") + L"'.", EIO)));
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
    struct Row {
        std::wstring path;
        std::wstring absolute;
    };
    std::vector<Row> const rows = {
        {L"data/x.bin", scratch_.Wide("data/x.bin")},
        {L"./a/../%1", scratch_.Wide("%1")},
        {L"/a/../%1/%2", L"/a/../%1/%2"},
        {L"Stra\u00DFe \U0001F600", scratch_.Wide("Stra\u00DFe \U0001F600")},
        {L"", scratch_.Wide()},
        {std::wstring(1, SURROGATE), scratch_.Wide() + L'/' + SURROGATE},
        {L'/' + std::wstring(5000, L'x'), L'/' + std::wstring(5000, L'x')},
    };
    for (Row const& row : rows) {
        for (Operation const& operation : Operations()) {
            Recorder recorder;
            recorder.On(operation.call).FailWithoutCalling(EIO);
            EXPECT_WRAPPED(operation.run(row.path.c_str(), fd_), operation.failure + row.absolute + L"'.", EIO);
        }
    }
}

TEST_F(FileImplTest, EachFailureLeavesTheDescriptorOpen) {
    TestSupport::DescriptorCheck const check;
    for (Operation const& operation : Operations()) {
        Recorder recorder;
        recorder.On(operation.call).FailWithoutCalling(EIO);
        EXPECT_THROW(operation.run(L"/f", fd_), WBase::Message);
        EXPECT_EQ(recorder.Count("close"), operation.call == "close" ? 1U : 0U);
    }
}

TEST_F(FileImplTest, EachErrorIsThatOfTheCallNotOfTheWorkingDirectory) {
    TestSupport::WorkingDirectory const inside(scratch_.Path());
    for (Operation const& operation : Operations()) {
        Recorder recorder;
        recorder.On(operation.call).FailWithoutCalling(EIO);
        recorder.On("getcwd").After([](Call&) { errno = ERANGE; });
        EXPECT_WRAPPED(operation.run(L"f", fd_), operation.failure + scratch_.Wide("f") + L"'.", EIO);
    }
}

TEST_F(FileImplTest, EachErrorIsReadBeforeAnythingIsAllocated) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::Allocations const allocations; // each changes errno
    for (Operation const& operation : Operations()) {
        Recorder recorder;
        recorder.On(operation.call).FailWithoutCalling(EIO);
        EXPECT_WRAPPED(operation.run(L"/f", fd_), operation.failure + L"/f'.", EIO);
    }
}

TEST_F(FileImplTest, AnUnknownWorkingDirectoryReplacesEachFailureOfARelativePath) {
    std::wstring const failure = L"WFileSystem::GetCurrentWorkingDirectory: ::getcwd failed.";
    for (Operation const& operation : Operations()) {
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
    for (Operation const& operation : Operations()) {
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
