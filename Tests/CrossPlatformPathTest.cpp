#include <FileSystem/Path.h>
#include <Tests/PathCorpus.h>
#include <Tests/PathModel.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/Text.h>

#include <gtest/gtest.h>

#include <initializer_list>
#include <string>

using PathCorpus::AllTexts;
using PathCorpus::LongPath;
using PathCorpus::LongPaths;
using PathCorpus::RandomPaths;
using PathCorpus::TextOf;
using TestSupport::Allocations;
using TestSupport::Readable;
using TestSupport::Recorder;
using WFileSystem::Path;

namespace {

constexpr EnumFileDestPlatforms WINDOWS = FileDestPlatformWindows;
constexpr EnumFileDestPlatforms POSIX = FileDestPlatformPosix;
constexpr auto NO_PLATFORM = static_cast<EnumFileDestPlatforms>(7);

std::wstring Combine(std::wstring const& first, std::wstring const& second, EnumFileDestPlatforms platform) {
    return TextOf(Path::CombineCrossPlatform(first.c_str(), second.c_str(), platform));
}

struct Combination {
    wchar_t const* first;
    wchar_t const* second;
    wchar_t const* result;
};

void ExpectCombinations(EnumFileDestPlatforms platform, std::initializer_list<Combination> rows) {
    for (Combination const& row : rows) {
        EXPECT_EQ(Combine(row.first, row.second, platform), row.result)
            << Readable(row.first) << ", " << Readable(row.second);
    }
}

void ExpectAbsolute(bool isAbsolute, EnumFileDestPlatforms platform, std::initializer_list<wchar_t const*> paths) {
    for (wchar_t const* const path : paths) {
        EXPECT_EQ(Path::IsAbsoluteCrossPlatform(path, platform), isAbsolute) << Readable(path);
    }
}

TEST(CrossPlatformPathTest, ThePlatformsHaveTheirNumbers) {
    EXPECT_EQ(static_cast<unsigned int>(FileDestPlatformWindows), 0U);
    EXPECT_EQ(static_cast<unsigned int>(FileDestPlatformPosix), 1U);
}

TEST(CrossPlatformPathTest, ADriveWithASeparatorIsAbsoluteForWindows) {
    ExpectAbsolute(true, WINDOWS, {L"C:\\", L"c:/", L"c:/x", L"A:\\x", L"Z:\\", L"a:/", L"z:\\\\"});
    ExpectAbsolute(
        false, WINDOWS, {L"C", L"C:", L"C:x", L"1:\\", L"@:\\", L"[:\\", L"`:\\", L"{:\\", L"é:\\", L"C;\\"});
}

TEST(CrossPlatformPathTest, TwoBackslashesMakeAPathAbsoluteForWindows) {
    ExpectAbsolute(true, WINDOWS, {L"\\\\", L"\\\\srv", L"\\\\srv\\share\\d", L"\\\\\\"});
    ExpectAbsolute(false, WINDOWS, {L"", L"\\", L"\\x", L"/x", L"//srv", L"\\/srv", L"/\\srv", L"x", L".", L".."});
}

TEST(CrossPlatformPathTest, OnlyALeadingSlashMakesAPathAbsoluteForPOSIX) {
    ExpectAbsolute(true, POSIX, {L"/", L"/x", L"//", L"/\\"});
    ExpectAbsolute(false, POSIX, {L"", L"x", L"x/", L"\\", L"\\\\srv", L"C:\\", L"C:/", L"."});
}

TEST(CrossPlatformPathTest, NothingIsAbsoluteForOtherPlatforms) {
    for (unsigned int const platform : {2U, 7U, 0xFFFFFFFFU}) {
        ExpectAbsolute(
            false, static_cast<EnumFileDestPlatforms>(platform),
            {L"", L"/", L"/x", L"C:\\x", L"C:/x", L"\\\\srv", L"x"});
    }
}

TEST(CrossPlatformPathTest, WindowsPathsAreJoinedWithBackslashesInCanonicalForm) {
    ExpectCombinations(
        WINDOWS, {
                     {L"x", L"", L"x"},
                     {L"", L"x", L"x"},
                     {L"", L"", L""},
                     {L"a/b", L"c/d", L"a\\b\\c\\d"},
                     {L"a\\\\b\\", L".\\c//", L"a\\b\\c"},
                     {L"C:\\a", L"b", L"C:\\a\\b"},
                     {L"c:/a", L"../b", L"c:\\b"},
                     {L"\\\\srv\\share", L"d", L"\\\\srv\\share\\d"},
                     {L"a", L"..", L"."},
                     {L"a", L"../..", L".."},
                     {L"..", L"..", L"..\\.."},
                     {L".", L".", L"."},
                     {L"é", L"%1", L"é\\%1"},
                 });
}

TEST(CrossPlatformPathTest, AnAbsoluteSecondPathStandsAlone) {
    ExpectCombinations(
        WINDOWS, {
                     {L"C:\\a", L"D:\\b\\..\\c", L"D:\\c"},
                     {L"C:\\a", L"d:/", L"d:\\"},
                     {L"a", L"\\\\srv\\share\\.", L"\\\\srv\\share"},
                     {L"\\\\srv\\share", L"C:\\..\\..", L"C:\\"},
                 });
    ExpectCombinations(POSIX, {{L"/a", L"/b/../c", L"/c"}, {L"a", L"//", L"/"}, {L"a", L"/..", L"/"}});
}

TEST(CrossPlatformPathTest, NothingLiesAboveADrive) {
    ExpectCombinations(
        WINDOWS, {
                     {L"C:\\a\\b", L"..\\..\\..", L"C:\\"},
                     {L"C:\\", L"..", L"C:\\"},
                     {L"C:/..", L"../a", L"C:\\a"},
                     {L"C:\\", L"..\\..\\a\\..\\..", L"C:\\"},
                 });
}

TEST(CrossPlatformPathTest, NothingLiesAboveAShare) {
    ExpectCombinations(
        WINDOWS, {
                     {L"\\\\srv\\share\\d", L"..\\..", L"\\\\srv\\share"},
                     {L"\\\\srv\\share", L"..", L"\\\\srv\\share"},
                     {L"\\\\srv\\share\\..", L"..\\..\\a", L"\\\\srv\\share\\a"},
                 });
}

TEST(CrossPlatformPathTest, InsideTheRootOfANetworkPathServerAndShareCancelLikeNames) {
    ExpectCombinations(
        WINDOWS, {
                     {L"\\\\srv", L"..", L"\\\\"},
                     {L"\\\\srv", L"..\\x", L"\\\\x"},
                     {L"\\\\srv", L"..\\..", L"\\\\.."},
                     {L"\\\\", L"..", L"\\\\.."},
                     {L"\\\\", L"..\\..\\..", L"\\\\..\\.."},
                     {L"\\\\.\\srv", L"\\\\share", L"\\\\share"},
                 });
}

TEST(CrossPlatformPathTest, ANetworkPathKeepsItsTwoEmptyParts) {
    ExpectCombinations(
        WINDOWS, {
                     {L"\\\\", L"", L"\\\\"},
                     {L"\\\\\\\\srv\\\\share", L"", L"\\\\srv\\share"},
                     {L"\\\\", L"srv", L"\\\\srv"},
                 });
}

TEST(CrossPlatformPathTest, TwoLeadingSlashesAreTheRootOfANetworkPathThatIsNotAbsolute) {
    ExpectCombinations(
        WINDOWS, {
                     {L"//srv/share", L"d", L"\\\\srv\\share\\d"},
                     {L"//srv/share", L"..", L"\\\\srv"},
                     {L"//srv/share", L"../..", L"\\\\"},
                     {L"//srv/share", L"../../..", L"\\\\.."},
                     {L"x", L"//srv//share", L"\\\\srv\\share"},
                     {L"/\\srv", L"", L"\\\\srv"},
                 });
}

TEST(CrossPlatformPathTest, ASecondPathWithOneLeadingSeparatorStartsAtTheRootOfTheFirst) {
    ExpectCombinations(
        WINDOWS, {
                     {L"C:\\a", L"\\b", L"C:\\b"},
                     {L"c:/a", L"/b", L"c:\\b"},
                     {L"C:\\a", L"\\", L"C:\\"},
                     {L"C:\\a", L"/..\\b", L"C:\\b"},
                     {L"\\\\srv\\share\\d", L"\\b", L"\\\\srv\\share\\b"},
                     {L"\\\\srv\\share\\d\\e", L"/b/..", L"\\\\srv\\share"},
                     {L"\\\\srv\\share", L"\\..", L"\\\\srv\\share"},
                     {L"\\\\srv", L"\\b", L"\\\\srv\\b"},
                     {L"\\\\", L"\\b", L"\\\\b"},
                     {L"C:\\a", L"//b", L"C:\\b"},
                     // The root reaches to the second backslash, also when that is one of a kind with the first.
                     {L"\\\\srv\\\\share\\d", L"\\b", L"\\\\srv\\b"},
                     // Slashes do not end the root.
                     {L"\\\\srv\\share/d", L"\\b", L"\\\\srv\\share\\d\\b"},
                 });
}

TEST(CrossPlatformPathTest, ASecondPathWithOneLeadingSeparatorStandsAloneBehindARelativePath) {
    ExpectCombinations(
        WINDOWS, {
                     {L"a", L"\\b", L"\\b"},
                     {L"", L"/b/c", L"\\b\\c"},
                     {L"C:", L"\\b", L"\\b"},
                     {L"C:a", L"/b", L"\\b"},
                     {L"\\a", L"\\b", L"\\b"},
                     {L"//srv/share/d", L"\\b", L"\\b"},
                     {L"a", L"\\..", L"\\.."},
                     {L"a", L"\\..\\..", L"\\..\\.."},
                     {L"a", L"\\b\\..\\..", L"\\.."},
                     {L"a", L"\\", L""},
                     {L"a", L"/.", L""},
                 });
}

TEST(CrossPlatformPathTest, ADriveAloneGetsABackslash) {
    ExpectCombinations(
        WINDOWS, {
                     {L"C:", L"", L"C:\\"},
                     {L"z:", L"a\\..", L"z:\\"},
                     {L".", L"a:", L"a:\\"},
                     {L"C:a", L"", L"C:a"},
                     {L"C:", L"a", L"C:\\a"},
                     {L"C:", L"..", L"."},
                     {L"1:", L"", L"1:"},
                     {L"é:", L"", L"é:"},
                     {L"CC", L"", L"CC"},
                 });
}

TEST(CrossPlatformPathTest, AnEmptyPartThatComesFirstRootsAWindowsPathOnTheDrive) {
    ExpectCombinations(
        WINDOWS, {
                     {L"a", L"..\\\\b", L"\\b"},
                     {L"a\\..\\\\..", L"", L"\\.."},
                     {L".\\\\b", L"c", L"\\b\\c"},
                     {L"\\", L"b", L"\\b"},
                     {L"\\", L"", L""},
                 });
}

TEST(CrossPlatformPathTest, ABackslashIsAnOrdinaryCharacterForPOSIX) {
    ExpectCombinations(
        POSIX, {
                   {L"/a", L"b\\c", L"/a/b\\c"},
                   {L"/a", L"\\c", L"/a/\\c"},
                   {L"a\\b", L"..", L"."},
                   {L"a", L"..\\b", L"a/..\\b"},
                   {L"\\\\srv\\share", L"..\\d", L"\\\\srv\\share/..\\d"},
                   {L"C:\\a", L"D:\\b", L"C:\\a/D:\\b"},
                   {L"a", L".\\", L"a/.\\"},
               });
}

TEST(CrossPlatformPathTest, POSIXPathsAreJoinedWithSlashesInCanonicalForm) {
    ExpectCombinations(
        POSIX, {
                   {L"/a//b/", L"./c", L"/a/b/c"},
                   {L"", L"", L""},
                   {L"/", L"..", L"/"},
                   {L"/a", L"../..", L"/"},
                   {L"a", L"..", L"."},
                   {L"..", L"..", L"../.."},
                   {L"//", L"", L"/"},
                   {L"a", L"..//b", L"/b"},
                   {L"C:", L"", L"C:"},
               });
}

TEST(CrossPlatformPathTest, OtherPlatformsConcatenate) {
    ExpectCombinations(
        NO_PLATFORM, {
                         {L"a", L"b", L"ab"},
                         {L"a/", L"/b\\", L"a//b\\"},
                         {L"/a", L"/b", L"/a/b"},
                         {L"C:\\a", L"\\b", L"C:\\a\\b"},
                         {L"C:", L"", L"C:"},
                         {L"/", L"", L"/"},
                         {L"", L"", L""},
                     });
}

TEST(CrossPlatformPathTest, ForOtherPlatformsADotVanishesAndTwoStay) {
    ExpectCombinations(
        NO_PLATFORM, {
                         {L".", L"a", L"a"},
                         {L"a", L".", L"a"},
                         {L".", L".", L"."},
                         {L"", L".", L"."},
                         {L"a", L"..", L"a.."},
                         {L"..", L"..", L"...."},
                         {L"..", L"", L".."},
                         {L"a/.", L"./b", L"a/../b"},
                     });
}

TEST(CrossPlatformPathTest, TheSystemIsNotAsked) {
    Recorder const recorder;
    for (EnumFileDestPlatforms const platform : {WINDOWS, POSIX, NO_PLATFORM}) {
        Combine(L"a", L"..", platform);
        Path::IsAbsoluteCrossPlatform(L"a", platform);
    }
    EXPECT_EQ(recorder.Names(), "");
}

class EachPlatformPathTest : public ::testing::TestWithParam<EnumFileDestPlatforms> {};

INSTANTIATE_TEST_SUITE_P(Platforms, EachPlatformPathTest, ::testing::Values(WINDOWS, POSIX, NO_PLATFORM));

TEST_P(EachPlatformPathTest, CombineEqualsTheModelForAllShortPaths) {
    auto const paths = AllTexts(L"/\\.a:", 3);
    for (auto const& first : paths) {
        ASSERT_EQ(
            Path::IsAbsoluteCrossPlatform(first.c_str(), GetParam()),
            PathModel::IsAbsolute(first, PathModel::RulesOf(GetParam())));
        for (auto const& second : paths) {
            ASSERT_EQ(
                Combine(first, second, GetParam()), PathModel::Combine(first, second, PathModel::RulesOf(GetParam())))
                << Readable(first) << ", " << Readable(second);
        }
    }
    for (auto const& path : AllTexts(L"/\\.a", 6)) {
        ASSERT_EQ(Combine(path, L"", GetParam()), PathModel::Combine(path, L"", PathModel::RulesOf(GetParam())))
            << Readable(path);
        ASSERT_EQ(Combine(L"", path, GetParam()), PathModel::Combine(L"", path, PathModel::RulesOf(GetParam())))
            << Readable(path);
    }
}

TEST_P(EachPlatformPathTest, CombineEqualsTheModelForRandomPaths) {
    RandomPaths paths(L"/\\");
    for (int round = 0; round < 5000; ++round) {
        std::wstring const first = paths.Next();
        std::wstring const second = paths.Next();
        ASSERT_EQ(Combine(first, second, GetParam()), PathModel::Combine(first, second, PathModel::RulesOf(GetParam())))
            << Readable(first) << ", " << Readable(second);
    }
}

TEST_P(EachPlatformPathTest, ACombinedPathIsCanonical) {
    RandomPaths paths(L"/\\");
    for (int round = 0; round < 5000; ++round) {
        std::wstring const first = paths.Next();
        std::wstring const second = paths.Next();
        std::wstring const result = Combine(first, second, GetParam());
        bool const isClimbingOut = GetParam() == WINDOWS && result.rfind(L"\\\\..\\..\\..", 0) == 0;
        if (!isClimbingOut) {
            ASSERT_EQ(Combine(result, L"", GetParam()), result) << Readable(first) << ", " << Readable(second);
        }
    }
}

TEST(CrossPlatformPathTest, ANetworkPathThatClimbsIsAbsoluteOnlyWhenReadAgain) {
    ExpectCombinations(WINDOWS, {{L"//../../..", L"", L"\\\\..\\..\\.."}, {L"\\\\..\\..\\..", L"", L"\\\\..\\.."}});
}

void ExpectOneAllocation(std::wstring const& first, std::wstring const& second, EnumFileDestPlatforms platform) {
    Allocations allocations;
    Path::CombineCrossPlatform(first.c_str(), second.c_str(), platform);
    ASSERT_EQ(allocations.Stop(), 1U) << Readable(first.substr(0, 100)) << ", " << Readable(second.substr(0, 100));
}

TEST_P(EachPlatformPathTest, CombineAllocatesItsResultAndNothingElse) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    RandomPaths random(L"/\\");
    for (auto const& path : AllTexts(L"/\\.a", 4)) {
        ExpectOneAllocation(path, L"", GetParam());
        ExpectOneAllocation(L"C:\\a", path, GetParam());
    }
    for (int round = 0; round < 1000; ++round) {
        std::wstring const first = random.Next();
        ExpectOneAllocation(first, random.Next(), GetParam());
    }
}

TEST_P(EachPlatformPathTest, AlsoTheLongestPathCostsOneAllocation) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    for (auto const& path : LongPaths()) {
        ExpectOneAllocation(path, path, GetParam());
        ExpectOneAllocation(L"C:\\" + path, L"/" + path, GetParam());
        ExpectOneAllocation(L"\\\\srv" + path, path, GetParam());
    }
}

TEST(CrossPlatformPathTest, ALongPathIsCombinedAsAShortOneIs) {
    // 50,000 parts, of which 33,333 are cancelled.
    EXPECT_EQ(Combine(LongPath(L"a/"), LongPath(L"..\\"), WINDOWS), LongPath(L"a\\").substr(0, 2 * 16667 - 1));
    EXPECT_EQ(Combine(LongPath(L"a/"), LongPath(L"../"), POSIX), LongPath(L"a/").substr(0, 2 * 16667 - 1));
    EXPECT_EQ(Combine(LongPath(L"a/"), LongPath(L"../"), NO_PLATFORM), LongPath(L"a/") + LongPath(L"../"));
}

TEST(CrossPlatformPathTest, WithoutBackslashesPOSIXPathsAreCombinedAsNativeOnes) {
    RandomPaths paths(L"/");
    for (int round = 0; round < 5000; ++round) {
        std::wstring const first = paths.Next();
        std::wstring const second = paths.Next();
        ASSERT_EQ(Combine(first, second, POSIX), TextOf(Path::Combine(first.c_str(), second.c_str())))
            << Readable(first) << ", " << Readable(second);
        ASSERT_EQ(Path::IsAbsoluteCrossPlatform(first.c_str(), POSIX), Path::IsAbsolute(first.c_str()))
            << Readable(first);
    }
}

} // namespace
