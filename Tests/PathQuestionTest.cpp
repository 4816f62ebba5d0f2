#include <Base/Exception.h>
#include <FileSystem/Path.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

using TestSupport::Recorder;
using TestSupport::ScratchDirectory;
using WFileSystem::Path;

namespace {

struct Question {
    bool (*ask)(wchar_t const*);
    char const* function;
    char const* callForE; ///< the call that is made for "/é"
};

constexpr Question QUESTIONS[] = {
    {&Path::IsDirectory, "stat", "stat(\"/é\")"},
    {&Path::IsFile, "stat", "stat(\"/é\")"},
    {&Path::IsReadable, "access", "access(\"/é\", R_OK)"},
    {&Path::IsWriteable, "access", "access(\"/é\", W_OK)"},
};

class PathQuestionTest : public ::testing::TestWithParam<Question> {};

INSTANTIATE_TEST_SUITE_P(All, PathQuestionTest, ::testing::ValuesIn(QUESTIONS));

TEST_P(PathQuestionTest, OneCallIsMadeWithTheConvertedPath) {
    Recorder const recorder;
    GetParam().ask(L"/é");
    EXPECT_EQ(recorder.Calls(), std::vector<std::string>{GetParam().callForE});
}

TEST_P(PathQuestionTest, AFailureMeansNoAndLeavesTheErrorNumber) {
    for (int const error : {ENOENT, EACCES, EIO, ELOOP, EINTR}) {
        Recorder recorder;
        recorder.On(GetParam().function).First(1).Fail(error);
        EXPECT_FALSE(GetParam().ask(L"/"));
        int const left = errno;
        EXPECT_EQ(left, error);
        EXPECT_EQ(recorder.Names(), GetParam().function); // not repeated either
    }
}

TEST_P(PathQuestionTest, ASuccessLeavesTheErrorNumberAlone) {
    errno = 4711;
    GetParam().ask(L"/");
    int const left = errno;
    EXPECT_EQ(left, 4711);
}

TEST_P(PathQuestionTest, TheFailureToConvertThePathPassesBeforeAnyCall) {
    Recorder const recorder;
    EXPECT_THROW(GetParam().ask(L"/\xD800"), WBase::StringConversionException);
    EXPECT_EQ(recorder.Names(), "");
}

TEST_P(PathQuestionTest, TheEmptyPathMeansNo) {
    EXPECT_FALSE(GetParam().ask(L""));
    EXPECT_EQ(errno, ENOENT);
}

TEST_P(PathQuestionTest, ALinkThatLeadsNowhereMeansNo) {
    ScratchDirectory const scratch;
    ASSERT_EQ(::symlink("nowhere", (scratch / "link").c_str()), 0);
    EXPECT_FALSE(GetParam().ask(scratch.Wide("link").c_str()));
}

struct Kind {
    mode_t type;
    bool isDirectory;
    bool isFile;
};

TEST(PathTypeTest, TheWholeTypeTellsFilesAndDirectoriesFromTheRest) {
    for (Kind const& kind : std::vector<Kind>{
             {S_IFDIR, true, false},
             {S_IFREG, false, true},
             {S_IFBLK, false, false},
             {S_IFCHR, false, false},
             {S_IFIFO, false, false},
             {S_IFLNK, false, false},
             {S_IFSOCK, false, false}}) {
        Recorder recorder;
        recorder.On("stat").First(2).After([&](TestSupport::Call& call) {
            static_cast<struct stat*>(call.data)->st_mode = kind.type | S_ISUID | 0777;
        });
        EXPECT_EQ(Path::IsDirectory(L"/"), kind.isDirectory) << kind.type;
        EXPECT_EQ(Path::IsFile(L"/"), kind.isFile) << kind.type;
    }
}

TEST(PathTypeTest, LinksAreFollowed) {
    ScratchDirectory const scratch;
    TestSupport::WriteFile(scratch / "file", "");
    ASSERT_EQ(::symlink("file", (scratch / "to file").c_str()), 0);
    ASSERT_EQ(::symlink(".", (scratch / "to directory").c_str()), 0);
    EXPECT_TRUE(Path::IsFile(scratch.Wide("to file").c_str()));
    EXPECT_FALSE(Path::IsDirectory(scratch.Wide("to file").c_str()));
    EXPECT_TRUE(Path::IsDirectory(scratch.Wide("to directory").c_str()));
    EXPECT_FALSE(Path::IsFile(scratch.Wide("to directory").c_str()));
    EXPECT_TRUE(Path::IsReadable(scratch.Wide("to file").c_str()));
    EXPECT_TRUE(Path::IsWriteable(scratch.Wide("to file").c_str()));
}

TEST(PathTypeTest, AFIFOIsNeitherFileNorDirectory) {
    ScratchDirectory const scratch;
    ASSERT_EQ(::mkfifo((scratch / "fifo").c_str(), 0666), 0);
    EXPECT_FALSE(Path::IsFile(scratch.Wide("fifo").c_str()));
    EXPECT_FALSE(Path::IsDirectory(scratch.Wide("fifo").c_str()));
    EXPECT_TRUE(Path::IsReadable(scratch.Wide("fifo").c_str()));
}

TEST(PathAccessTest, WhatTheSystemGrantsIsReadableOrWriteable) {
    for (bool const isGranted : {true, false}) {
        Recorder recorder;
        recorder.On("access").First(2).Return(isGranted ? 0 : -1);
        EXPECT_EQ(Path::IsReadable(L"/x"), isGranted);
        EXPECT_EQ(Path::IsWriteable(L"/x"), isGranted);
    }
}

} // namespace
