#include <Base/Exception.h>
#include <FileSystem/Directory.h>
#include <Tests/DirectoryFixture.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Text.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <utility>
#include <vector>

#include <cerrno>

#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

using DirectoryFixture::CONVERSION_FAILURE;
using DirectoryFixture::DeletionFailure;
using DirectoryFixture::DirectoryTest;
using DirectoryFixture::UNCONVERTIBLE;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::Allocations;
using TestSupport::Call;
using TestSupport::ErrorDescription;
using TestSupport::Exists;
using TestSupport::List;
using TestSupport::MakeDirectory;
using TestSupport::Matches;
using TestSupport::Wrapped;
using TestSupport::WriteFile;
using WFileSystem::Directory;

namespace {

using DirectoryDeleteRecursivelyTest = DirectoryTest;

std::wstring FileDeletionFailure(std::wstring const& path) {
    return L"Failed to delete file '" + path + L"'.";
}

TEST_F(DirectoryDeleteRecursivelyTest, AnEmptyDirectoryIsDeleted) {
    MakeDirectory("a");
    EXPECT_TRUE(Directory::DeleteRecursively(L"a", nullptr));
    EXPECT_THAT(recorder_.Calls(), ElementsAre("glob(\"a/*\", 0)", "globfree()", "rmdir(\"a\")"));
    EXPECT_THAT(List("."), IsEmpty());
}

TEST_F(DirectoryDeleteRecursivelyTest, EntriesGoInTheirOrderAndEachDirectoryBeforeTheNextEntry) {
    MakeDirectory("a");
    WriteFile("a/1", "");
    MakeDirectory("a/2");
    WriteFile("a/2/x", "");
    WriteFile("a/3", "");
    EXPECT_TRUE(Directory::DeleteRecursively(L"./a//", nullptr));
    EXPECT_THAT(
        recorder_.Calls(), ElementsAre(
                               "glob(\"a/*\", 0)", "globfree()",       //
                               "stat(\"a/1\")", "unlink(\"a/1\")",     //
                               "stat(\"a/2\")",                        //
                               "glob(\"a/2/*\", 0)", "globfree()",     //
                               "stat(\"a/2/x\")", "unlink(\"a/2/x\")", //
                               "rmdir(\"a/2\")",                       //
                               "stat(\"a/3\")", "unlink(\"a/3\")",     //
                               "rmdir(\"./a//\")"));
    EXPECT_THAT(List("."), IsEmpty());
}

TEST_F(DirectoryDeleteRecursivelyTest, AnAbsolutePathIsAsGood) {
    MakeDirectory("é");
    MakeDirectory("é/b");
    WriteFile("é/b/c", "");
    WBase::Message report;
    EXPECT_TRUE(Directory::DeleteRecursively(scratch_.Wide("é").c_str(), &report));
    EXPECT_EQ(report.GetMessage(), std::wstring());
    EXPECT_THAT(List("."), IsEmpty());
}

TEST_F(DirectoryDeleteRecursivelyTest, AFileThatCannotBeDeletedIsReportedWithAllDirectoriesAboveIt) {
    MakeDirectory("a");
    MakeDirectory("a/b");
    WriteFile("a/b/bad", "");
    WriteFile("a/b/good", "");
    WriteFile("a/c", "");
    recorder_.On("unlink").Where([](Call const& call) { return call.path == "a/b/bad"; }).Fail(EACCES);
    WBase::Message report(WBase::MESSAGE_DOMAIN_UNKNOWN, 1, "Before.");
    EXPECT_FALSE(Directory::DeleteRecursively(L"a", &report));
    EXPECT_EQ(
        report.GetMessage(), DeletionFailure(L"a") + L'\n' + ErrorDescription(ENOTEMPTY) + L'\n' +
                                 DeletionFailure(L"a/b") + L'\n' + ErrorDescription(ENOTEMPTY) + L'\n' +
                                 FileDeletionFailure(L"a/b/bad") + L'\n' + ErrorDescription(EACCES) + L"\nBefore.");
    EXPECT_THAT(List("a"), ElementsAre("b"));
    EXPECT_THAT(List("a/b"), ElementsAre("bad"));
}

TEST_F(DirectoryDeleteRecursivelyTest, WithoutAReportAFailureOnlyShowsInTheResult) {
    MakeDirectory("a");
    WriteFile("a/bad", "");
    WriteFile("a/good", "");
    recorder_.On("unlink").Nth(1).Fail(EACCES);
    EXPECT_FALSE(Directory::DeleteRecursively(L"a", nullptr));
    EXPECT_FALSE(Directory::DeleteRecursively(UNCONVERTIBLE, nullptr));
    EXPECT_THAT(List("a"), ElementsAre("bad"));
}

TEST_F(DirectoryDeleteRecursivelyTest, TheResultIsThatOfTheDirectoryAlone) {
    MakeDirectory("a");
    WriteFile("a/file", "");
    recorder_.On("unlink").Nth(1).CallThenFail(EIO);
    WBase::Message report;
    EXPECT_TRUE(Directory::DeleteRecursively(L"a", &report));
    EXPECT_TRUE(Matches(report, Wrapped(FileDeletionFailure(L"a/file"), EIO)));
}

TEST_F(DirectoryDeleteRecursivelyTest, WhatIsMissingOrNoDirectoryIsReported) {
    WriteFile("file", "");
    WBase::Message missing;
    EXPECT_FALSE(Directory::DeleteRecursively(L"missing", &missing));
    EXPECT_TRUE(Matches(missing, Wrapped(DeletionFailure(L"missing"), ENOENT)));
    WBase::Message noDirectory;
    EXPECT_FALSE(Directory::DeleteRecursively(L"file", &noDirectory));
    EXPECT_TRUE(Matches(noDirectory, Wrapped(DeletionFailure(L"file"), ENOTDIR)));
    EXPECT_TRUE(Exists("file"));
}

TEST_F(DirectoryDeleteRecursivelyTest, AFailureToListADirectoryIsReportedAndTheRestIsDeleted) {
    MakeDirectory("a");
    MakeDirectory("a/b");
    WriteFile("a/c", "");
    recorder_.On("glob").Where([](Call const& call) { return call.path == "a/b/*"; }).Return(GLOB_NOSPACE);
    WBase::Message report(WBase::MESSAGE_DOMAIN_UNKNOWN, 1, "Before.");
    EXPECT_FALSE(Directory::DeleteRecursively(L"a", &report));
    EXPECT_TRUE(Matches(
        report, TestSupport::WrappedWithoutCause(
                    DeletionFailure(L"a") + L'\n' + ErrorDescription(ENOTEMPTY) + L'\n' + DeletionFailure(L"a/b") +
                    L"\nUnable to find file (GLOB_NOSPACE).\nBefore.")));
    EXPECT_THAT(List("a"), ElementsAre("b"));
}

TEST_F(DirectoryDeleteRecursivelyTest, TheFailureToConvertThePathIsReported) {
    WBase::Message report;
    EXPECT_FALSE(Directory::DeleteRecursively(UNCONVERTIBLE, &report));
    EXPECT_TRUE(
        Matches(report, TestSupport::WrappedWithoutCause(DeletionFailure(UNCONVERTIBLE) + L'\n' + CONVERSION_FAILURE)));
    EXPECT_EQ(recorder_.Names(), "");
}

TEST_F(DirectoryDeleteRecursivelyTest, OtherExceptionsPassAndFreeWhatWasListed) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    bool hasFailed = true;
    for (unsigned int n = 1; hasFailed; ++n) {
        ::mkdir("a", 0700);
        ::mkdir("a/b", 0700);
        WriteFile("a/b/file", "");
        recorder_.Clear();
        bool hasThrown = false;
        Allocations allocations;
        allocations.FailNth(n);
        try {
            Directory::DeleteRecursively(L"a", nullptr);
        } catch (std::bad_alloc const&) {
            hasThrown = true;
        }
        allocations.Stop();
        hasFailed = allocations.HasFailed();
        EXPECT_EQ(hasThrown, hasFailed) << n;
        EXPECT_EQ(Exists("a"), hasFailed) << n;
        EXPECT_EQ(recorder_.Count("globfree"), recorder_.Count("glob")) << n;
    }
}

TEST_F(DirectoryDeleteRecursivelyTest, LinksToDirectoriesAreFollowedAndStay) {
    MakeDirectory("a");
    MakeDirectory("elsewhere");
    WriteFile("elsewhere/file", "");
    ASSERT_EQ(::symlink("../elsewhere", "a/link"), 0);
    WBase::Message report;
    EXPECT_FALSE(Directory::DeleteRecursively(L"a", &report));
    EXPECT_EQ(
        report.GetMessage(), DeletionFailure(L"a") + L'\n' + ErrorDescription(ENOTEMPTY) + L'\n' +
                                 DeletionFailure(L"a/link") + L'\n' + ErrorDescription(ENOTDIR));
    EXPECT_THAT(List("elsewhere"), IsEmpty());
    EXPECT_THAT(List("a"), ElementsAre("link"));
}

TEST_F(DirectoryDeleteRecursivelyTest, OtherLinksAreDeletedThemselves) {
    MakeDirectory("a");
    WriteFile("file", "");
    ASSERT_EQ(::symlink("../file", "a/link"), 0);
    ASSERT_EQ(::symlink("nowhere", "a/link that leads nowhere"), 0);
    EXPECT_TRUE(Directory::DeleteRecursively(L"a", nullptr));
    EXPECT_THAT(List("."), ElementsAre("file"));
}

TEST_F(DirectoryDeleteRecursivelyTest, ALinkToItsOwnDirectoryEndsWhereTheSystemFollowsNoMore) {
    MakeDirectory("a");
    ASSERT_EQ(::symlink(".", "a/link"), 0);
    Directory::DeleteRecursively(L"a", nullptr);
    EXPECT_LT(recorder_.Count("glob"), 1000U);
}

TEST_F(DirectoryDeleteRecursivelyTest, HiddenEntriesStayAndSoDoesTheDirectory) {
    MakeDirectory("a");
    WriteFile("a/.hidden", "");
    MakeDirectory("a/.directory");
    WriteFile("a/file", "");
    WBase::Message report;
    EXPECT_FALSE(Directory::DeleteRecursively(L"a", &report));
    EXPECT_TRUE(Matches(report, Wrapped(DeletionFailure(L"a"), ENOTEMPTY)));
    EXPECT_THAT(List("a"), ElementsAre(".directory", ".hidden"));
}

TEST_F(DirectoryDeleteRecursivelyTest, EntriesWhoseNamesAreNotUTF8Stay) {
    MakeDirectory("a");
    WriteFile("a/\xFF", "");
    WriteFile("a/file", "");
    WBase::Message report;
    EXPECT_FALSE(Directory::DeleteRecursively(L"a", &report));
    EXPECT_TRUE(Matches(report, Wrapped(DeletionFailure(L"a"), ENOTEMPTY)));
    EXPECT_THAT(List("a"), ElementsAre("\xFF"));
}

TEST_F(DirectoryDeleteRecursivelyTest, ThePathIsTakenAsAPattern) {
    for (char const* const name : {"[ab]", "a", "b", "c"}) {
        MakeDirectory(name);
        WriteFile(name + std::string("/file"), "");
    }
    WBase::Message report;
    EXPECT_FALSE(Directory::DeleteRecursively(L"[ab]", &report));
    EXPECT_TRUE(Matches(report, Wrapped(DeletionFailure(L"[ab]"), ENOTEMPTY)));
    EXPECT_THAT(List("[ab]"), ElementsAre("file"));
    EXPECT_THAT(List("a"), IsEmpty());
    EXPECT_THAT(List("b"), IsEmpty());
    EXPECT_THAT(List("c"), ElementsAre("file"));
}

TEST_F(DirectoryDeleteRecursivelyTest, ABackslashInThePathSeparates) {
    MakeDirectory("a");
    MakeDirectory("a/b");
    WriteFile("a/b/file", "");
    MakeDirectory("a\\b");
    EXPECT_TRUE(Directory::DeleteRecursively(L"a\\b", nullptr));
    EXPECT_THAT(List("."), ElementsAre("a"));
    EXPECT_THAT(List("a/b"), IsEmpty());
}

TEST_F(DirectoryDeleteRecursivelyTest, TwoDotsInThePathCancelALink) {
    MakeDirectory("far");
    MakeDirectory("far/away");
    WriteFile("far/file", "");
    MakeDirectory("a");
    WriteFile("a/file", "");
    ASSERT_EQ(::symlink("../far/away", "a/link"), 0);
    EXPECT_FALSE(Directory::DeleteRecursively(L"a/link/..", nullptr)); // the system says that this is "far"
    EXPECT_THAT(List("far"), ElementsAre("away", "file"));
    EXPECT_THAT(List("a"), ElementsAre("link"));
}

TEST_F(DirectoryDeleteRecursivelyTest, TheEmptyPathAndTheDotEmptyTheWorkingDirectory) {
    for (auto const& [path, error] : std::vector<std::pair<wchar_t const*, int>>{{L"", ENOENT}, {L".", EINVAL}}) {
        WriteFile("file", "");
        MakeDirectory("a");
        WBase::Message report;
        EXPECT_FALSE(Directory::DeleteRecursively(path, &report));
        EXPECT_TRUE(Matches(report, Wrapped(DeletionFailure(path), error)));
        EXPECT_THAT(List("."), IsEmpty());
    }
}

} // namespace
