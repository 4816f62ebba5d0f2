// The working directory and temporary files.

#include <FileSystem/FileSystem.h>

#include <Base/Exception.h>
#include <FileSystem/Initializer.h>
#include <FileSystem/Path.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Environment.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Text.h>

#include <gmock/gmock.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <limits.h>
#include <optional>
#include <string>
#include <sys/mman.h>
#include <sys/stat.h>
#include <thread>
#include <typeinfo>
#include <unistd.h>
#include <vector>

namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::StartsWith;
using TestSupport::Call;
using TestSupport::Environment;
using TestSupport::Exists;
using TestSupport::List;
using TestSupport::MakeDirectory;
using TestSupport::ReadFile;
using TestSupport::Recorder;
using TestSupport::Widen;
using TestSupport::WorkingDirectory;
using TestSupport::WriteFile;
using WFileSystem::CreateTemporaryFile;
using WFileSystem::GetCurrentWorkingDirectory;
using WFileSystem::GetTemporaryPath;
using WFileSystem::SetCurrentWorkingDirectory;

constexpr wchar_t SURROGATE = static_cast<wchar_t>(0xD800);

/// What the conversions throw for a text with one bad character.
TestSupport::ExpectedMessage ConversionFailure(std::wstring const& text) {
    return {&typeid(WBase::StringConversionException), WBase::MESSAGE_DOMAIN_ERRNO, EILSEQ, text};
}

TestSupport::ExpectedMessage WideConversionFailure(unsigned int index) {
    return ConversionFailure(
        L"Failed to convert wide text: the character U+D800 at index " + std::to_wstring(index) +
        L" is not a Unicode scalar value.");
}

TestSupport::ExpectedMessage NarrowConversionFailure(char const* byte, std::size_t index) {
    return ConversionFailure(
        L"Failed to convert UTF-8 text: the byte 0x" + Widen(byte) + L" at index " + std::to_wstring(index) +
        L" does not begin or continue a valid sequence.");
}

/// Makes directories inside each other, below the given one, until the path of the innermost takes so many bytes.
std::string MakeDeepDirectory(std::string const& root, std::size_t length) {
    std::string path = root + '/' + std::to_string(length);
    MakeDirectory(path);
    while (path.size() < length) {
        // No part may be left without a name.
        std::size_t const rest = length - path.size() - 1;
        path += '/' + std::string(rest <= 100 ? rest : 98, 'd');
        MakeDirectory(path);
    }
    return path;
}

// The working directory

class WorkingDirectoryTest : public testing::Test {
protected:
    static std::wstring Get() { return GetCurrentWorkingDirectory().c_str(); }

    static std::wstring SetFailure(std::wstring const& path) {
        return L"WFileSystem::SetCurrentWorkingDirectory: ::chdir failed for '" + path + L"'.";
    }

    TestSupport::ScratchDirectory scratch_;
};

static std::wstring const GET_FAILURE = L"WFileSystem::GetCurrentWorkingDirectory: ::getcwd failed.";

TEST_F(WorkingDirectoryTest, ItIsAskedForWithABufferOf1024Bytes) {
    WorkingDirectory const inside(scratch_.Path());
    Recorder recorder;
    EXPECT_EQ(Get(), scratch_.Wide());
    EXPECT_THAT(recorder.Calls(), ElementsAre("getcwd(1024)"));
}

TEST_F(WorkingDirectoryTest, EachNameComesOutAsItIs) {
    for (std::string const name :
         {"Stra\u00DFe", "\u65E5\u672C", "\U0001F600", "%1", "back\\slash", "line\nfeed", " "}) {
        MakeDirectory(scratch_ / name);
        WorkingDirectory const inside(scratch_ / name);
        EXPECT_EQ(Get(), scratch_.Wide(name));
    }
}

TEST_F(WorkingDirectoryTest, APathOf1023BytesIsTheLongest) {
    std::string const path = MakeDeepDirectory(scratch_.Path(), 1023);
    WorkingDirectory const inside(path);
    EXPECT_EQ(Get(), Widen(path));
}

TEST_F(WorkingDirectoryTest, ALongerPathIsReportedAndNoLargerBufferIsTried) {
    for (std::size_t const length : {1024U, 1025U, 3000U}) {
        WorkingDirectory const inside(MakeDeepDirectory(scratch_.Path(), length));
        Recorder recorder;
        EXPECT_REPORT(Get(), GET_FAILURE, ERANGE);
        EXPECT_THAT(recorder.Calls(), ElementsAre("getcwd(1024)"));
    }
}

TEST_F(WorkingDirectoryTest, ARemovedDirectoryIsReported) {
    MakeDirectory(scratch_ / "gone");
    WorkingDirectory const inside(scratch_ / "gone");
    ::rmdir((scratch_ / "gone").c_str());
    EXPECT_REPORT(Get(), GET_FAILURE, ENOENT);
}

TEST_F(WorkingDirectoryTest, EachErrorIsReportedAtOnce) {
    for (int const error : {EINTR, EACCES, ENOMEM}) {
        Recorder recorder;
        recorder.On("getcwd").Fail(error);
        EXPECT_REPORT(Get(), GET_FAILURE, error);
        EXPECT_EQ(recorder.Names(), "getcwd");
    }
}

TEST_F(WorkingDirectoryTest, APathThatIsNotUTF8Throws) {
    MakeDirectory(scratch_ / "a\xFF");
    WorkingDirectory const inside(scratch_ / "a\xFF");
    WFILESYSTEM_EXPECT_MESSAGE(Get(), NarrowConversionFailure("FF", scratch_.Path().size() + 2));
}

TEST_F(WorkingDirectoryTest, TheResultIsTheOnlyAllocation) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::Allocations allocations;
    GetCurrentWorkingDirectory();
    EXPECT_EQ(allocations.Stop(), 1U);
}

TEST_F(WorkingDirectoryTest, ItIsChangedByOneCall) {
    WorkingDirectory const restored(scratch_.Path());
    MakeDirectory(scratch_ / "Stra\u00DFe");
    Recorder recorder;
    SetCurrentWorkingDirectory(scratch_.Wide("Stra\u00DFe").c_str());
    EXPECT_THAT(recorder.Calls(), ElementsAre("chdir(\"" + (scratch_ / "Stra\u00DFe") + "\")"));
    recorder.Stop();
    EXPECT_EQ(Get(), scratch_.Wide("Stra\u00DFe"));
}

TEST_F(WorkingDirectoryTest, ARelativePathStartsAtTheCurrentDirectory) {
    WorkingDirectory const restored(scratch_.Path());
    MakeDirectory(scratch_ / "a");
    MakeDirectory(scratch_ / "a/%1");
    SetCurrentWorkingDirectory(L"a");
    SetCurrentWorkingDirectory(L"./%1");
    EXPECT_EQ(Get(), scratch_.Wide("a/%1"));
    SetCurrentWorkingDirectory(L"../..");
    EXPECT_EQ(Get(), scratch_.Wide());
}

TEST_F(WorkingDirectoryTest, AChangeCountsForAllThreads) {
    WorkingDirectory const restored(scratch_.Path());
    MakeDirectory(scratch_ / "a");
    std::thread thread([] { SetCurrentWorkingDirectory(L"a"); });
    thread.join();
    EXPECT_EQ(Get(), scratch_.Wide("a"));
    EXPECT_EQ(std::wstring(WFileSystem::Path::ToAbsolute(L"f").c_str()), scratch_.Wide("a/f"));
}

TEST_F(WorkingDirectoryTest, AFailedChangeIsReportedWithThePathAsItWasGiven) {
    WorkingDirectory const inside(scratch_.Path());
    WriteFile(scratch_ / "file", "");
    struct Row {
        std::wstring path;
        int error;
    };
    std::vector<Row> const rows = {
        {L"missing", ENOENT},
        {L"./a/../missing", ENOENT},
        {L"", ENOENT},
        {L"/no/%1/Stra\u00DFe", ENOENT},
        {L"file", ENOTDIR},
        {std::wstring(NAME_MAX + 1, L'x'), ENAMETOOLONG},
        {std::wstring(PATH_MAX, L'/'), ENAMETOOLONG},
    };
    for (Row const& row : rows) {
        EXPECT_REPORT(SetCurrentWorkingDirectory(row.path.c_str()), SetFailure(row.path), row.error);
    }
    EXPECT_EQ(Get(), scratch_.Wide());
}

TEST_F(WorkingDirectoryTest, AnInterruptedChangeIsNotRepeated) {
    Recorder recorder;
    recorder.On("chdir").Fail(EINTR);
    EXPECT_REPORT(SetCurrentWorkingDirectory(L"/a"), SetFailure(L"/a"), EINTR);
    EXPECT_EQ(recorder.Names(), "chdir");
}

TEST_F(WorkingDirectoryTest, OnlyMinusOneIsAFailedChange) {
    for (int const result : {5, -2}) {
        Recorder recorder;
        recorder.On("chdir").Script({result});
        EXPECT_NO_THROW(SetCurrentWorkingDirectory(L"/a"));
    }
}

TEST_F(WorkingDirectoryTest, AChangeToAPathThatCannotBeConvertedThrows) {
    std::wstring const path = std::wstring(L"/a") + SURROGATE;
    Recorder recorder;
    WFILESYSTEM_EXPECT_MESSAGE(SetCurrentWorkingDirectory(path.c_str()), WideConversionFailure(2));
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(WorkingDirectoryTest, TheNarrowPathOfAChangeIsReleasedBeforeAnythingElse) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::Allocations allocations;
    EXPECT_THROW(SetCurrentWorkingDirectory(L"/no/such/directory"), WBase::Message);
    allocations.Stop();
    ASSERT_THAT(allocations.ReleasedTexts(), testing::Not(IsEmpty()));
    EXPECT_EQ(allocations.ReleasedTexts().front(), "/no/such/directory");
}

TEST_F(WorkingDirectoryTest, TheErrorOfAChangeIsReadBeforeThePathIsReleased) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::Allocations const allocations; // a release changes errno
    EXPECT_REPORT(SetCurrentWorkingDirectory(L"/no/such/directory"), SetFailure(L"/no/such/directory"), ENOENT);
}

// Temporary files

/// The directory for temporary files is the test's own.
class TemporaryFileTest : public testing::Test {
protected:
    static std::wstring Create(std::wstring const& prefix) { return CreateTemporaryFile(prefix.c_str()).c_str(); }

    /// Creates a file and gives its name.
    std::string CreateAndGetName(std::wstring const& prefix) const {
        std::string const path = TestSupport::Narrow(Create(prefix));
        EXPECT_THAT(path, StartsWith(scratch_.Path() + '/'));
        return path.substr(scratch_.Path().size() + 1);
    }

    static std::wstring NameFailure(std::wstring const& prefix) {
        return L"WFileSystem::CreateTemporaryFile: ::tempnam failed for '" + prefix + L"'.";
    }

    TestSupport::ScratchDirectory scratch_;
    Environment const environment_{"TMPDIR", scratch_.Path()};
};

TEST_F(TemporaryFileTest, TheTemporaryPathIsTheContainerPathAsItIs) {
    MakeDirectory(scratch_ / "Stra\u00DFe %1");
    for (std::string const path : {"/", "/tmp", "/tmp/", "/tmp//", "/tmp/../tmp/."}) {
        Environment const environment("TMPDIR", path);
        EXPECT_EQ(std::wstring(GetTemporaryPath().c_str()), Widen(path));
    }
    Environment const environment("TMPDIR", scratch_ / "Stra\u00DFe %1");
    EXPECT_EQ(std::wstring(GetTemporaryPath().c_str()), scratch_.Wide("Stra\u00DFe %1"));
}

TEST_F(TemporaryFileTest, ATemporaryPathThatIsNotUTF8Throws) {
    MakeDirectory(scratch_ / "a\xFF");
    Environment const environment("TMPDIR", scratch_ / "a\xFF");
    auto const failure = NarrowConversionFailure("FF", scratch_.Path().size() + 2);
    WFILESYSTEM_EXPECT_MESSAGE(GetTemporaryPath(), failure);
    WFILESYSTEM_EXPECT_MESSAGE(Create(L"p"), failure);
    EXPECT_THAT(List(scratch_ / "a\xFF"), IsEmpty());
}

TEST_F(TemporaryFileTest, TheNarrowContainerPathIsReleasedAfterItsConversionAlsoWhenThatThrows) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    MakeDirectory(scratch_ / "a\xFF");
    TestSupport::Allocations allocations;
    GetTemporaryPath();
    EXPECT_EQ(allocations.ReleasedTexts().at(0), scratch_.Path());
    Environment const environment("TMPDIR", scratch_ / "a\xFF");
    EXPECT_THROW(GetTemporaryPath(), WBase::StringConversionException);
    allocations.Stop();
    EXPECT_THAT(allocations.ReleasedTexts(), testing::Contains(scratch_ / "a\xFF"));
}

TEST_F(TemporaryFileTest, AFileIsCreatedEmptyAndClosed) {
    TestSupport::DescriptorCheck const check;
    std::string const name = CreateAndGetName(L"abc");
    EXPECT_THAT(name, StartsWith("abc"));
    EXPECT_THAT(List(scratch_.Path()), ElementsAre(name));
    EXPECT_EQ(ReadFile(scratch_ / name), "");
}

TEST_F(TemporaryFileTest, EachFileHasANameOfItsOwn) {
    std::string const first = CreateAndGetName(L"abc");
    std::string const second = CreateAndGetName(L"abc");
    EXPECT_NE(first, second);
    EXPECT_THAT(List(scratch_.Path()), testing::UnorderedElementsAre(first, second));
}

TEST_F(TemporaryFileTest, TheSystemNamesTheFileAndItIsOpenedByThatName) {
    Recorder recorder;
    std::string const path = '"' + TestSupport::Narrow(Create(L"abc")) + '"';
    recorder.Stop();
    std::string const directory = '"' + scratch_.Path() + '"';
    EXPECT_THAT(
        recorder.Calls(),
        ElementsAre(
            "stat(" + directory + ")", "tempnam(" + directory + ", \"abc\")",
            "open(" + path + ", O_WRONLY|O_CREAT|O_TRUNC|O_NOCTTY, 0664)", "fcntl(F_SETFD, FD_CLOEXEC)", "close()"));
}

TEST_F(TemporaryFileTest, AnEmptyPrefixIsPassedAsAnEmptyText) {
    Recorder recorder;
    Create(L"");
    EXPECT_EQ(recorder.Calls().at(1), "tempnam(\"" + scratch_.Path() + "\", \"\")");
}

TEST_F(TemporaryFileTest, AFileHasThePermissionBitsOfTheModule) {
    Environment const mode("VUSK_FILE_MODE", "600");
    WFileSystem::Initializer const initializer;
    mode_t const mask = ::umask(0);
    std::string const name = CreateAndGetName(L"abc");
    ::umask(mask);
    EXPECT_EQ(TestSupport::ModeOf(scratch_ / name), 0660U);
}

TEST_F(TemporaryFileTest, TheCloseIsMadeOnceAndItsResultIsIgnored) {
    TestSupport::DescriptorCheck const check;
    for (int const error : {EINTR, EIO}) {
        Recorder recorder;
        recorder.On("close").Fail(error);
        std::string const path = TestSupport::Narrow(Create(L"abc"));
        EXPECT_EQ(recorder.Count("close"), 1U);
        EXPECT_TRUE(Exists(path));
    }
}

TEST_F(TemporaryFileTest, EveryPrefixThatFitsBeginsTheName) {
    for (std::wstring const prefix : {L"abcde", L"%1 ", L"\u00E9\u00E9", L"\U0001F600", L"a.b"}) {
        EXPECT_THAT(CreateAndGetName(prefix), StartsWith(TestSupport::Narrow(prefix)));
    }
}

TEST_F(TemporaryFileTest, TheSystemUsesFiveBytesOfThePrefix) {
    std::string const name = CreateAndGetName(L"abcde-fgh"); // no name has a hyphen of the system's own
    EXPECT_THAT(name, StartsWith("abcde"));
    EXPECT_EQ(name.find('-'), std::string::npos);
}

/// The greatest length of a container path that leaves room for a name with a prefix of three bytes: "/abcXXXXXX".
constexpr std::size_t LONGEST_CONTAINER_PATH = PATH_MAX - 1 - 10;

TEST_F(TemporaryFileTest, AFileIsCreatedWhereItsPathHasTheGreatestLength) {
    std::string const directory = MakeDeepDirectory(scratch_.Path(), LONGEST_CONTAINER_PATH);
    Environment const environment("TMPDIR", directory);
    std::string const path = TestSupport::Narrow(Create(L"abc"));
    EXPECT_THAT(path, StartsWith(directory + "/abc"));
    EXPECT_EQ(path.size(), PATH_MAX - 1U);
    EXPECT_EQ(ReadFile(path), "");
}

// ---- Failures

TEST_F(TemporaryFileTest, AContainerPathWithoutRoomForANameIsReported) {
    for (std::size_t const length : {LONGEST_CONTAINER_PATH + 1, LONGEST_CONTAINER_PATH + 2, PATH_MAX - 1UL}) {
        std::string const directory = MakeDeepDirectory(scratch_.Path(), length);
        Environment const environment("TMPDIR", directory);
        EXPECT_REPORT(Create(L"abc"), NameFailure(L"abc"), EINVAL);
        EXPECT_THAT(List(directory), IsEmpty());
    }
}

TEST_F(TemporaryFileTest, AContainerPathThatNoCallTakesIsNotUsed) {
    Environment const environment("TMPDIR", scratch_.Path() + std::string(PATH_MAX - scratch_.Path().size(), '/'));
    Recorder recorder("tempnam");
    recorder.On("tempnam").Fail(EEXIST);
    EXPECT_REPORT(Create(L"abc"), NameFailure(L"abc"), EEXIST);
    EXPECT_THAT(recorder.Calls(), ElementsAre("tempnam(\"/tmp\", \"abc\")"));
}

TEST_F(TemporaryFileTest, APrefixThatIsCutInsideACharacterThrowsAndCreatesNothing) {
    auto const failure = NarrowConversionFailure("C3", scratch_.Path().size() + 5);
    WFILESYSTEM_EXPECT_MESSAGE(Create(L"abcd\u00E9"), failure);
    EXPECT_THAT(List(scratch_.Path()), IsEmpty());
}

TEST_F(TemporaryFileTest, APrefixThatCannotBeConvertedThrowsBeforeTheSystemIsAsked) {
    std::wstring const prefix(1, SURROGATE);
    Recorder recorder;
    WFILESYSTEM_EXPECT_MESSAGE(Create(prefix), WideConversionFailure(0));
    EXPECT_EQ(recorder.Count("tempnam"), 0U);
}

TEST_F(TemporaryFileTest, AMissingNameIsReportedAtOnceWithThePrefixAsItWasGiven) {
    for (int const error : {EEXIST, ENOMEM, EINTR}) {
        for (std::wstring const prefix : {L"abc", L"", L"%1", L"\u00E9 a prefix that is long"}) {
            Recorder recorder("tempnam open");
            recorder.On("tempnam").Fail(error);
            EXPECT_REPORT(Create(prefix), NameFailure(prefix), error);
            EXPECT_EQ(recorder.Names(), "tempnam");
        }
    }
}

TEST_F(TemporaryFileTest, ThePrefixAndThenTheDirectoryAreReleasedBeforeTheNameIsLookedAt) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::Allocations allocations;
    Recorder recorder;
    recorder.On("tempnam").Fail(ENOMEM);
    EXPECT_THROW(CreateTemporaryFile(L"prefix"), WBase::Message);
    allocations.Stop();
    ASSERT_GE(allocations.ReleasedTexts().size(), 2U);
    EXPECT_EQ(allocations.ReleasedTexts()[0], "prefix");
    EXPECT_EQ(allocations.ReleasedTexts()[1], scratch_.Path());
}

TEST_F(TemporaryFileTest, TheErrorOfAMissingNameIsReadBeforeTheTextsAreReleased) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::Allocations const allocations; // a release changes errno
    Recorder recorder;
    recorder.On("tempnam").Fail(EEXIST);
    EXPECT_REPORT(Create(L"prefix"), NameFailure(L"prefix"), EEXIST);
}

TEST_F(TemporaryFileTest, AFailedOpenIsReportedAsByTheOpenAndNotTriedAgain) {
    Recorder recorder("tempnam open unlink");
    recorder.On("open").Fail(ENOSPC);
    std::wstring path;
    recorder.On("tempnam").After([&](Call const& call) { path = Widen(reinterpret_cast<char const*>(call.result)); });
    try {
        Create(L"abc");
        ADD_FAILURE() << "It throws nothing.";
    } catch (WBase::Message const& message) {
        EXPECT_TRUE(TestSupport::Matches(
            message,
            TestSupport::Report(L"WFileSystem::File::OpenDescriptor: ::open failed for '" + path + L"'.", ENOSPC)));
    }
    EXPECT_EQ(recorder.Names(), "tempnam open");
    EXPECT_THAT(List(scratch_.Path()), IsEmpty());
}

TEST_F(TemporaryFileTest, AFileOnAStandardDescriptorIsRefusedAndStays) {
    TestSupport::CloseDuring const closed(0);
    EXPECT_THROW(Create(L"abc"), WBase::ExceptionImpl<WBase::Message>);
    EXPECT_EQ(List(scratch_.Path()).size(), 1U);
}

/// A name in memory of which it can be told later whether it was freed.
class TracedName {
public:
    explicit TracedName(std::string const& name) : name_(std::malloc(SIZE)) {
        std::strcpy(static_cast<char*>(name_), name.c_str());
    }

    long Get() const { return reinterpret_cast<long>(name_); }

    bool IsFreed() const {
        // A sanitizer's allocator knows its blocks. Otherwise a large block is a mapping of its own, which ends with
        // it.
        if (void* const function = ::dlsym(RTLD_DEFAULT, "__sanitizer_get_ownership")) {
            return reinterpret_cast<int (*)(void const*)>(function)(name_) == 0;
        }
        auto const page = reinterpret_cast<unsigned long>(name_) & -static_cast<unsigned long>(::sysconf(_SC_PAGESIZE));
        return ::msync(reinterpret_cast<void*>(page), 1, MS_ASYNC) == -1 && errno == ENOMEM;
    }

private:
    static constexpr unsigned long SIZE = 64 << 20;

    void* name_;
};

TEST_F(TemporaryFileTest, TheSystemsNameIsFreed) {
    TracedName const name(scratch_ / "name");
    Recorder recorder;
    recorder.On("tempnam").Return(name.Get());
    recorder.On("open").Before([&](Call const&) { EXPECT_FALSE(name.IsFreed()); });
    EXPECT_EQ(Create(L"abc"), scratch_.Wide("name"));
    EXPECT_TRUE(name.IsFreed());
}

TEST_F(TemporaryFileTest, TheSystemsNameIsFreedWhenTheOpenFails) {
    TracedName const name(scratch_ / "no/such/directory");
    Recorder recorder;
    recorder.On("tempnam").Return(name.Get());
    EXPECT_THROW(Create(L"abc"), WBase::ExceptionImpl<WBase::Message>);
    EXPECT_TRUE(name.IsFreed());
}

TEST_F(TemporaryFileTest, TheSystemsNameIsFreedWhenItCannotBeConverted) {
    TracedName const name(scratch_ / "a\xFF");
    Recorder recorder;
    recorder.On("tempnam").Return(name.Get());
    EXPECT_THROW(Create(L"abc"), WBase::StringConversionException);
    EXPECT_TRUE(name.IsFreed());
}

// ---- Surprises

TEST_F(TemporaryFileTest, AFileThatAppearsInBetweenIsEmptiedAndUsed) {
    Recorder recorder;
    recorder.On("open").Before([](Call const& call) { WriteFile(call.path, "of somebody else"); });
    std::string const name = CreateAndGetName(L"abc");
    EXPECT_EQ(recorder.Count("tempnam"), 1U);
    EXPECT_EQ(ReadFile(scratch_ / name), "");
}

TEST_F(TemporaryFileTest, APlantedLinkIsFollowed) {
    WriteFile(scratch_ / "victim", "precious");
    Recorder recorder;
    recorder.On("open").Before([](Call const& call) { EXPECT_EQ(::symlink("victim", call.path.c_str()), 0); });
    CreateAndGetName(L"abc");
    EXPECT_EQ(ReadFile(scratch_ / "victim"), "");
}

} // namespace
