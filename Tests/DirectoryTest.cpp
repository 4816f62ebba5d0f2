#include <Base/Exception.h>
#include <FileSystem/Directory.h>
#include <Tests/DirectoryFixture.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Text.h>

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <cerrno>
#include <climits>

#include <sys/stat.h>
#include <unistd.h>

using DirectoryFixture::CONVERSION_FAILURE;
using DirectoryFixture::DeletionFailure;
using DirectoryFixture::DirectoryTest;
using DirectoryFixture::UNCONVERTIBLE;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::Child;
using TestSupport::ErrorDescription;
using TestSupport::Exists;
using TestSupport::List;
using TestSupport::MakeDirectory;
using TestSupport::Matches;
using TestSupport::ModeOf;
using TestSupport::Wrapped;
using TestSupport::WriteFile;
using WFileSystem::Directory;

namespace {

using DirectoryCreateTest = DirectoryTest;
using DirectoryDeleteEmptyTest = DirectoryTest;

std::wstring CreationFailure(std::wstring const& path) {
    return L"Failed to create directory '" + path + L"'.";
}

TEST_F(DirectoryTest, TheTestsOfDirectoriesDeleteNothingOutsideTheirOwn) {
    EXPECT_NONFATAL_FAILURE(::rmdir("/missing"), "outside");
    EXPECT_NONFATAL_FAILURE(::rmdir(".."), "outside");
    EXPECT_NONFATAL_FAILURE(::rmdir("../missing/"), "outside");
    EXPECT_NONFATAL_FAILURE(::unlink("/tmp/missing"), "outside");
    EXPECT_NONFATAL_FAILURE(::unlink("./../missing"), "outside");
    EXPECT_EQ(::rmdir(""), -1);
    EXPECT_EQ(::unlink("missing"), -1);
    EXPECT_EQ(::unlink((scratch_ / "missing").c_str()), -1);
}

TEST_F(DirectoryCreateTest, ADirectoryIsMade) {
    Directory::Create(scratch_.Wide("é").c_str(), false);
    EXPECT_THAT(recorder_.Calls(), ElementsAre("mkdir(\"" + scratch_ / "é" + "\", 0777)"));
    EXPECT_THAT(List("é"), IsEmpty());
}

TEST_F(DirectoryCreateTest, TheUmaskApplies) {
    mode_t const former = ::umask(027);
    Directory::Create(L"a", false);
    Directory::Create(L"b/c", true);
    ::umask(former);
    EXPECT_EQ(ModeOf("a"), 0750U);
    EXPECT_EQ(ModeOf("b"), 0750U);
    EXPECT_EQ(ModeOf("b/c"), 0750U);
}

TEST_F(DirectoryCreateTest, AnExistingDirectoryIsAFailure) {
    MakeDirectory("a");
    EXPECT_WRAPPED(Directory::Create(L"a", false), CreationFailure(L"a"), EEXIST);
    EXPECT_WRAPPED(Directory::Create(L"a", true), CreationFailure(L"a"), EEXIST);
}

TEST_F(DirectoryCreateTest, ThePathStandsInTheReportAsItWasGiven) {
    WriteFile("file", "");
    EXPECT_WRAPPED(Directory::Create(L".//file", false), CreationFailure(L".//file"), EEXIST);
    EXPECT_WRAPPED(Directory::Create(L"%1/é", false), CreationFailure(L"%1/é"), ENOENT);
    EXPECT_WRAPPED(Directory::Create(L"", false), CreationFailure(L""), ENOENT);
    EXPECT_WRAPPED(Directory::Create(L"", true), CreationFailure(L""), ENOENT);
}

TEST_F(DirectoryCreateTest, AFailureIsNotRepeated) {
    recorder_.On("mkdir").First(1).Fail(EINTR);
    EXPECT_WRAPPED(Directory::Create(L"a", false), CreationFailure(L"a"), EINTR);
    EXPECT_EQ(recorder_.Names(), "mkdir");
}

TEST_F(DirectoryCreateTest, TheFailureToConvertThePathPasses) {
    EXPECT_THROW(Directory::Create(UNCONVERTIBLE, false), WBase::StringConversionException);
    EXPECT_THROW(Directory::Create(UNCONVERTIBLE, true), WBase::StringConversionException);
    EXPECT_THROW(
        Directory::Create((UNCONVERTIBLE + std::wstring(L"/b")).c_str(), true), WBase::StringConversionException);
    EXPECT_EQ(recorder_.Count("mkdir"), 0U);
}

TEST_F(DirectoryCreateTest, WithoutParentsAMissingParentIsAFailure) {
    EXPECT_WRAPPED(Directory::Create(L"a/b", false), CreationFailure(L"a/b"), ENOENT);
    EXPECT_EQ(recorder_.Names(), "mkdir");
    EXPECT_THAT(List("."), IsEmpty());
}

TEST_F(DirectoryCreateTest, MissingParentsAreFoundUpwardsAndMadeDownwards) {
    MakeDirectory("a");
    Directory::Create(L"a/b/c/d", true);
    EXPECT_THAT(
        recorder_.Calls(), ElementsAre(
                               "stat(\"a/b/c\")", "stat(\"a/b\")", "stat(\"a\")", "mkdir(\"a/b\", 0777)",
                               "mkdir(\"a/b/c\", 0777)", "mkdir(\"a/b/c/d\", 0777)"));
    EXPECT_TRUE(Exists("a/b/c/d"));
}

TEST_F(DirectoryCreateTest, ThePathItselfIsNotMadeCanonical) {
    Directory::Create(L"a//b/", true);
    EXPECT_THAT(
        recorder_.Calls(), ElementsAre("stat(\"a\")", "stat(\".\")", "mkdir(\"a\", 0777)", "mkdir(\"a//b/\", 0777)"));
}

TEST_F(DirectoryCreateTest, TheClimbEndsAtTheRoot) {
    recorder_.On("stat").From(1).Fail(EIO);
    recorder_.On("mkdir").From(1).Fail(EROFS);
    EXPECT_WRAPPED(Directory::Create(L"/a/b", true), CreationFailure(L"/"), EROFS);
    EXPECT_THAT(recorder_.Calls(), ElementsAre("stat(\"/a\")", "stat(\"/\")", "mkdir(\"/\", 0777)"));
    recorder_.Clear();
    EXPECT_WRAPPED(Directory::Create(L"/", true), CreationFailure(L"/"), EROFS);
    EXPECT_EQ(recorder_.Names(), "mkdir");
}

TEST_F(DirectoryCreateTest, AParentThatIsAFileIsAFailureOfItsOwn) {
    WriteFile("a", "");
    EXPECT_WRAPPED(Directory::Create(L"a/b", true), CreationFailure(L"a"), EEXIST);
}

TEST_F(DirectoryCreateTest, AParentThatIsALinkToADirectoryIsOne) {
    MakeDirectory("a");
    ASSERT_EQ(::symlink("a", "link"), 0);
    Directory::Create(L"link/b/c", true);
    EXPECT_TRUE(Exists("a/b/c"));
}

TEST_F(DirectoryCreateTest, WhatWasMadeStaysAfterAFailure) {
    recorder_.On("mkdir").Nth(3).Fail(ENOSPC);
    EXPECT_WRAPPED(Directory::Create(L"a/b/c/d", true), CreationFailure(L"a/b/c"), ENOSPC);
    EXPECT_THAT(List("a"), ElementsAre("b"));
    EXPECT_THAT(List("a/b"), IsEmpty());
    EXPECT_EQ(recorder_.Count("rmdir"), 0U);
}

TEST_F(DirectoryCreateTest, ParentsAreFoundLexically) {
    EXPECT_WRAPPED(Directory::Create(L"missing/../a", true), CreationFailure(L"missing/../a"), ENOENT);
    Directory::Create(L"b\\c", true);
    EXPECT_THAT(List("."), ElementsAre("b", "b\\c"));
}

/// The last path of a climb that goes on above the working directory: one part more, and it would be too long.
std::wstring EndOfClimb() {
    std::wstring path = L"..";
    while (path.size() + 3 < PATH_MAX) {
        path += L"/..";
    }
    return path;
}

TEST_F(DirectoryCreateTest, TheClimbEndsWhereNoAncestorIsFound) {
    recorder_.On("stat").From(1).Fail(EACCES);
    recorder_.On("mkdir").From(1).Fail(EACCES);
    EXPECT_WRAPPED(Directory::Create(L"a/b", true), CreationFailure(EndOfClimb()), EACCES);
    auto const calls = recorder_.Calls();
    EXPECT_THAT(
        std::vector<std::string>(calls.begin(), calls.begin() + 4),
        ElementsAre("stat(\"a\")", "stat(\".\")", "stat(\"..\")", "stat(\"../..\")"));
    EXPECT_EQ(recorder_.Count("mkdir"), 1U);
}

TEST_F(DirectoryCreateTest, TheClimbEndsInAWorkingDirectoryThatCannotBeSearched) {
    MakeDirectory("unsearchable");
    Child child([](Child::Parent&) {
        constexpr uid_t NOBODY = 65534;
        ASSERT_EQ(::chdir("unsearchable"), 0);
        ASSERT_EQ(::chmod(".", 0), 0);
        if (::geteuid() == 0) {
            ASSERT_EQ(::seteuid(NOBODY), 0); // root may search everything
        }
        EXPECT_WRAPPED(Directory::Create(L"a", true), CreationFailure(EndOfClimb()), EACCES);
    });
    EXPECT_EQ(child.Wait(), 0);
}

/// So many of the longest names, with separators between them.
std::wstring Names(int count) {
    std::wstring path(NAME_MAX, L'n');
    for (int index = 1; index < count; ++index) {
        path += L'/' + std::wstring(NAME_MAX, L'n');
    }
    return path;
}

TEST_F(DirectoryCreateTest, TheLongestPathIsMade) {
    static_assert(16 * (NAME_MAX + 1) == PATH_MAX);
    Directory::Create(Names(16).c_str(), true);
    EXPECT_EQ(recorder_.Count("mkdir"), 16U);
}

TEST_F(DirectoryCreateTest, APathWhoseParentIsTooLongFailsAtOnce) {
    EXPECT_WRAPPED(Directory::Create(Names(18).c_str(), true), CreationFailure(Names(18)), ENAMETOOLONG);
    EXPECT_EQ(recorder_.Names(), "mkdir");
    recorder_.Clear();
    EXPECT_WRAPPED(Directory::Create(Names(17).c_str(), true), CreationFailure(Names(17)), ENAMETOOLONG);
    EXPECT_EQ(recorder_.Count("mkdir"), 17U);
    std::wstring const path = std::wstring(PATH_MAX, L'n') + L"/x";
    EXPECT_WRAPPED(Directory::Create(path.c_str(), true), CreationFailure(path), ENAMETOOLONG);
}

TEST_F(DirectoryDeleteEmptyTest, AnEmptyDirectoryIsDeleted) {
    MakeDirectory("é");
    EXPECT_TRUE(Directory::DeleteEmpty(scratch_.Wide("é").c_str(), nullptr));
    EXPECT_THAT(recorder_.Calls(), ElementsAre("rmdir(\"" + scratch_ / "é" + "\")"));
    EXPECT_THAT(List("."), IsEmpty());
}

TEST_F(DirectoryDeleteEmptyTest, ASuccessLeavesTheReportAsItIs) {
    MakeDirectory("a");
    WBase::Message report;
    EXPECT_TRUE(Directory::DeleteEmpty(L"a", &report));
    EXPECT_EQ(report.GetMessage(), std::wstring());
    EXPECT_EQ(report.GetID(), 0);
}

TEST_F(DirectoryDeleteEmptyTest, ADirectoryThatIsNotEmptyStaysAndIsReported) {
    MakeDirectory("a");
    WriteFile("a/file", "");
    WBase::Message report;
    EXPECT_FALSE(Directory::DeleteEmpty(L"a", &report));
    EXPECT_TRUE(Matches(report, Wrapped(DeletionFailure(L"a"), ENOTEMPTY)));
    EXPECT_THAT(List("a"), ElementsAre("file"));
}

TEST_F(DirectoryDeleteEmptyTest, WithoutAReportAFailureOnlyShowsInTheResult) {
    EXPECT_FALSE(Directory::DeleteEmpty(L"missing", nullptr));
    EXPECT_FALSE(Directory::DeleteEmpty(UNCONVERTIBLE, nullptr));
}

TEST_F(DirectoryDeleteEmptyTest, ThePathStandsInTheReportAsItWasGiven) {
    WBase::Message report;
    EXPECT_FALSE(Directory::DeleteEmpty(L"./%1/../é", &report));
    EXPECT_TRUE(Matches(report, Wrapped(DeletionFailure(L"./%1/../é"), ENOENT)));
}

TEST_F(DirectoryDeleteEmptyTest, AFailureComesBeforeWhatTheReportHeld) {
    WBase::Message report(WBase::MESSAGE_DOMAIN_UNKNOWN, 1, "Before.");
    EXPECT_FALSE(Directory::DeleteEmpty(L"missing", &report));
    EXPECT_EQ(report.GetMessage(), DeletionFailure(L"missing") + L'\n' + ErrorDescription(ENOENT) + L'\n' + L"Before.");
}

TEST_F(DirectoryDeleteEmptyTest, AFailureIsNotRepeated) {
    MakeDirectory("a");
    recorder_.On("rmdir").First(1).Fail(EINTR);
    WBase::Message report;
    EXPECT_FALSE(Directory::DeleteEmpty(L"a", &report));
    EXPECT_TRUE(Matches(report, Wrapped(DeletionFailure(L"a"), EINTR)));
    EXPECT_EQ(recorder_.Names(), "rmdir");
}

TEST_F(DirectoryDeleteEmptyTest, TheFailureToConvertThePathIsReported) {
    WBase::Message report;
    EXPECT_FALSE(Directory::DeleteEmpty(UNCONVERTIBLE, &report));
    EXPECT_TRUE(
        Matches(report, TestSupport::WrappedWithoutCause(DeletionFailure(UNCONVERTIBLE) + L'\n' + CONVERSION_FAILURE)));
}

TEST_F(DirectoryDeleteEmptyTest, ALinkIsNoDirectory) {
    MakeDirectory("a");
    ASSERT_EQ(::symlink("a", "link"), 0);
    WBase::Message report;
    EXPECT_FALSE(Directory::DeleteEmpty(L"link", &report));
    EXPECT_TRUE(Matches(report, Wrapped(DeletionFailure(L"link"), ENOTDIR)));
    EXPECT_THAT(List("."), ElementsAre("a", "link"));
}

} // namespace
