#include <FileSystem/Path.h>
#include <Tests/PathCorpus.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Text.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <cstring>
#include <string>
#include <vector>

#include <unistd.h>

using PathCorpus::TextOf;
using TestSupport::Allocations;
using TestSupport::MakeDirectory;
using TestSupport::Readable;
using TestSupport::Recorder;
using TestSupport::ScratchDirectory;
using TestSupport::WorkingDirectory;
using WFileSystem::GetAbsoluteRoot;
using WFileSystem::IsDriveRootRelative;
using WFileSystem::Path;

namespace {

std::wstring Combine(std::wstring const& first, std::wstring const& second) {
    return TextOf(Path::Combine(first.c_str(), second.c_str()));
}

struct Row {
    wchar_t const* path;
    wchar_t const* result;
};

void ExpectRows(WBase::ReturnWString (*operation)(wchar_t const*), std::initializer_list<Row> rows) {
    for (Row const& row : rows) {
        EXPECT_EQ(TextOf(operation(row.path)), row.result) << Readable(row.path);
    }
}

struct Combination {
    wchar_t const* first;
    wchar_t const* second;
    wchar_t const* result;
};

void ExpectCombinations(std::initializer_list<Combination> rows) {
    for (Combination const& row : rows) {
        EXPECT_EQ(Combine(row.first, row.second), row.result) << Readable(row.first) << ", " << Readable(row.second);
    }
}

/// Lets the system report this working directory.
void SetWorkingDirectory(Recorder& recorder, std::string directory) {
    recorder.On("getcwd").Instead([directory](TestSupport::Call const& call) {
        std::memcpy(call.data, directory.c_str(), directory.size() + 1);
        return reinterpret_cast<long>(call.data);
    });
}

TEST(PathTest, OnlyALeadingSlashMakesAPathAbsolute) {
    for (wchar_t const* const path : {L"/", L"/a", L"//", L"/\\", L"/..", L"/é"}) {
        EXPECT_TRUE(Path::IsAbsolute(path)) << Readable(path);
    }
    for (wchar_t const* const path : {L"", L"a", L"a/", L"\\a", L"\\\\srv\\share", L".", L"..", L" /", L"C:/", L"~/"}) {
        EXPECT_FALSE(Path::IsAbsolute(path)) << Readable(path);
    }
}

TEST(PathTest, AnAbsolutePathIsMadeAbsoluteByLeavingItAsItIs) {
    Recorder const recorder;
    ExpectRows(
        &Path::ToAbsolute,
        {{L"/", L"/"}, {L"/a/../b", L"/a/../b"}, {L"//a/./b//", L"//a/./b//"}, {L"/..", L"/.."}, {L"/a\\b", L"/a\\b"}});
    EXPECT_EQ(recorder.Names(), "");
}

TEST(PathTest, ARelativePathIsMadeAbsoluteByCombiningItWithTheWorkingDirectory) {
    Recorder recorder;
    SetWorkingDirectory(recorder, "/w");
    ExpectRows(
        &Path::ToAbsolute, {{L"a/../b", L"/w/b"},
                            {L"", L"/w"},
                            {L".", L"/w"},
                            {L"..", L"/"},
                            {L"../..", L"/"},
                            {L"\\x", L"/w/x"},
                            {L"é", L"/w/é"},
                            {L"%1", L"/w/%1"}});
    EXPECT_EQ(recorder.Names(), "getcwd getcwd getcwd getcwd getcwd getcwd getcwd getcwd");
}

TEST(PathTest, TheRealWorkingDirectoryIsAsked) {
    ScratchDirectory const scratch;
    MakeDirectory(scratch / "é");
    WorkingDirectory const workingDirectory(scratch / "é");
    EXPECT_EQ(TextOf(Path::ToAbsolute(L"a")), scratch.Wide("é/a"));
}

TEST(PathTest, TheFailureToReadTheWorkingDirectoryPasses) {
    Recorder recorder;
    recorder.On("getcwd").Nth(1).Fail(EACCES);
    EXPECT_REPORT(Path::ToAbsolute(L"a"), L"WFileSystem::GetCurrentWorkingDirectory: ::getcwd failed.", EACCES);
}

TEST(PathTest, AWorkingDirectoryThatIsNotUTF8FailsForRelativePathsOnly) {
    ScratchDirectory const scratch;
    MakeDirectory(scratch / "\xFF");
    WorkingDirectory const workingDirectory(scratch / "\xFF");
    EXPECT_THROW(Path::ToAbsolute(L"a"), WBase::StringConversionException);
    EXPECT_EQ(TextOf(Path::ToAbsolute(L"/a")), L"/a");
}

TEST(PathTest, AWorkingDirectoryLongerThan1024BytesFailsForRelativePathsOnly) {
    ScratchDirectory const scratch;
    WorkingDirectory const workingDirectory(scratch.Path());
    for (int depth = 0; depth < 6; ++depth) {
        std::string const name(200, 'd');
        MakeDirectory(name);
        ASSERT_EQ(::chdir(name.c_str()), 0);
    }
    EXPECT_REPORT(Path::ToAbsolute(L"a"), L"WFileSystem::GetCurrentWorkingDirectory: ::getcwd failed.", ERANGE);
    EXPECT_EQ(TextOf(Path::ToAbsolute(L"/a")), L"/a");
}

TEST(PathTest, CombineJoinsPathsInCanonicalForm) {
    ExpectCombinations({
        {L"a", L"b", L"a/b"},
        {L"/a", L"b", L"/a/b"},
        {L"/a//b/", L"./c", L"/a/b/c"},
        {L"/x/", L"", L"/x"},
        {L"a/b/c/../..", L"../d", L"d"},
        {L"/data/é", L"%1.bin", L"/data/é/%1.bin"},
    });
}

TEST(PathTest, CombineIgnoresTheFirstPathWhenTheSecondIsAbsolute) {
    ExpectCombinations({
        {L"/a", L"/b/../c", L"/c"},
        {L"a", L"/", L"/"},
        {L"..", L"/..", L"/"},
        {L"a", L"//b//", L"/b"},
        {L"", L"/../../b", L"/b"},
    });
}

TEST(PathTest, CombineTakesTheBackslashForASeparator) {
    ExpectCombinations({
        {L"/a", L"\\x", L"/a/x"},
        {L"a\\b", L"c\\d", L"a/b/c/d"},
        {L"/a", L"..\\b", L"/b"},
        {L"\\a", L"b", L"/a/b"},
        {L"a\\", L"\\b", L"a/b"},
        {L"a\\.\\\\b", L"", L"a/b"},
    });
}

TEST(PathTest, CombineTakesTheOtherPathWhenOneIsEmpty) {
    ExpectCombinations({
        {L"", L"a", L"a"},
        {L"a", L"", L"a"},
        {L"", L"", L""},
        {L"", L"/", L"/"},
        {L"/", L"", L"/"},
        {L"", L"./a/", L"a"},
        {L"", L"..", L".."},
    });
}

TEST(PathTest, NothingLiesAboveTheRoot) {
    ExpectCombinations({
        {L"/", L"..", L"/"},
        {L"/", L"../../a", L"/a"},
        {L"/a", L"../../..", L"/"},
        {L"/a/..", L"../b", L"/b"},
        {L"/./..", L".", L"/"},
    });
}

TEST(PathTest, ARelativePathClimbsAboveItsBeginning) {
    ExpectCombinations({
        {L"..", L"..", L"../.."},
        {L"a", L"../..", L".."},
        {L"a/b", L"../../../..", L"../.."},
        {L"../a", L"../..", L"../.."},
        {L"../../a", L"b", L"../../a/b"},
        {L".", L"..", L".."},
    });
}

TEST(PathTest, WhatVanishesAsAWholeLeavesADot) {
    ExpectCombinations({
        {L"a", L"..", L"."},
        {L".", L"", L"."},
        {L".", L".", L"."},
        {L"a/b", L"../..", L"."},
        {L"\\a", L"..\\..", L"."},
    });
}

TEST(PathTest, NamesThatOnlyLookLikeDotsAreOrdinary) {
    ExpectCombinations({
        {L"a", L"...", L"a/..."},
        {L"a/...", L"..", L"a"},
        {L"a", L".b/..c/d..", L"a/.b/..c/d.."},
        {L"a", L" ..", L"a/ .."},
        {L"a", L". ", L"a/. "},
    });
}

TEST(PathTest, AnEmptyPartThatComesFirstMakesARelativePathAbsolute) {
    ExpectCombinations({
        {L"a", L"..//b", L"/b"},
        {L"a/..//b", L"", L"/b"},
        {L".//", L"b", L"/b"},
        {L"a/b", L"../..//", L"/"},
        {L".//..", L"", L"."},
    });
}

TEST(PathTest, CombiningIsLexicalAndResolvesNoLink) {
    ScratchDirectory const scratch;
    MakeDirectory(scratch / "far");
    MakeDirectory(scratch / "far/away");
    TestSupport::WriteFile(scratch / "far/file", "");
    ASSERT_EQ(::symlink("far/away", (scratch / "link").c_str()), 0);
    EXPECT_TRUE(Path::IsFile(scratch.Wide("link/../file").c_str()));
    EXPECT_FALSE(Path::IsFile(Combine(scratch.Wide("link"), L"../file").c_str()));
}

TEST(PathTest, AFileWhoseNameHoldsABackslashIsOutOfReachOfCombine) {
    ScratchDirectory const scratch;
    TestSupport::WriteFile(scratch / "a\\b", "");
    EXPECT_TRUE(Path::IsFile(scratch.Wide("a\\b").c_str()));
    EXPECT_FALSE(Path::IsFile(Combine(scratch.Wide(), L"a\\b").c_str()));
}

TEST(PathTest, TheParentEndsWithTheLastSeparatorThatIsNotTheLastCharacter) {
    ExpectRows(
        &Path::GetParent, {{L"/a/b", L"/a/"},
                           {L"/a/b/", L"/a/"},
                           {L"/a", L"/"},
                           {L"a\\b", L"a\\"},
                           {L"a/b\\", L"a/"},
                           {L"a\\b/c", L"a\\b/"},
                           {L"a/b\\c", L"a/b\\"},
                           {L"a//", L"a/"},
                           {L"//", L"/"},
                           {L"\\\\", L"\\"},
                           {L"/a/..", L"/a/"}});
}

TEST(PathTest, TheParentOfAPathWithoutASeparatorBeforeItsLastCharacterIsEmpty) {
    ExpectRows(
        &Path::GetParent, {{L"", L""},
                           {L"/", L""},
                           {L"\\", L""},
                           {L"a", L""},
                           {L"abc", L""},
                           {L"a/", L""},
                           {L"abc\\", L""},
                           {L"..", L""}});
}

TEST(PathTest, InternalizeTurnsANetworkPathIntoANativeOne) {
    ExpectRows(
        &Path::Internalize, {{L"\\\\server\\share\\d", L"/server/share/d"},
                             {L"\\\\", L"/"},
                             {L"\\\\\\", L"//"},
                             {L"\\\\a/b\\c.d\\", L"/a/b/c.d/"},
                             {L"\\\\a\\..\\b", L"/a/../b"}});
}

TEST(PathTest, InternalizeLeavesOtherPathsAsTheyAre) {
    ExpectRows(
        &Path::Internalize, {{L"", L""},
                             {L"\\", L"\\"},
                             {L"\\a", L"\\a"},
                             {L"a", L"a"},
                             {L"\\/a\\b", L"\\/a\\b"},
                             {L"/\\a\\b", L"/\\a\\b"},
                             {L"//a\\b", L"//a\\b"},
                             {L"a\\\\b", L"a\\\\b"},
                             {L"C:\\a", L"C:\\a"}});
}

TEST(PathTest, TheDirnameEndsBeforeTheLastSlash) {
    ExpectRows(
        &Path::GetDirname, {{L"/a/b", L"/a"},
                            {L"/a", L""},
                            {L"/", L""},
                            {L"a/", L"a"},
                            {L"a/b", L"a"},
                            {L"a//b", L"a/"},
                            {L"a\\b/c\\d", L"a\\b"}});
}

TEST(PathTest, TheDirnameOfAPathWithoutASlashIsADot) {
    ExpectRows(&Path::GetDirname, {{L"a", L"."}, {L"", L"."}, {L"a\\b", L"."}, {L"..", L"."}});
}

TEST(PathTest, TheNarrowBasenameIsAPointerIntoThePath) {
    for (auto const& [path, offset] : std::vector<std::pair<char const*, int>>{
             {"/a/b", 3}, {"/a", 1}, {"a/", 2}, {"/", 1}, {"a//b", 3}, {"a", 0}, {"", 0}, {"a\\b", 0}, {"/a\\b", 1}}) {
        Allocations allocations;
        char const* const basename = Path::GetBasename(path);
        EXPECT_EQ(allocations.Stop(), 0U);
        EXPECT_EQ(basename, path + offset) << path;
    }
}

TEST(PathTest, TheBasenameBeginsBehindTheLastSlash) {
    using Wide = WBase::ReturnWString (*)(wchar_t const*);
    ExpectRows(
        static_cast<Wide>(&Path::GetBasename), {{L"/a/b", L"b"},
                                                {L"a/", L""},
                                                {L"/", L""},
                                                {L"a", L"a"},
                                                {L"", L""},
                                                {L"a\\b", L"a\\b"},
                                                {L"/a\\b", L"a\\b"},
                                                {L"a//b.c", L"b.c"},
                                                {L"/é", L"é"}});
}

TEST(PathTest, TheExtensionBeginsBehindTheLastDotOfTheWholePath) {
    ExpectRows(
        &Path::GetExtension, {{L"a.txt", L"txt"},
                              {L"a.tar.gz", L"gz"},
                              {L"noext", L""},
                              {L"a.", L""},
                              {L"", L""},
                              {L".profile", L"profile"},
                              {L"dir.d/file", L"d/file"},
                              {L"dir.d\\file", L"d\\file"},
                              {L"a..", L""},
                              {L"/d/x.é", L"é"}});
}

TEST(PathTest, TheExtensionEndsBeforeWhiteSpace) {
    ExpectRows(&Path::GetExtension, {{L"a.b c", L"b"}, {L"a. b", L""}, {L"a b.c d e", L"c"}, {L"a.b ", L"b"}});
    for (unsigned int character = 1; character <= 0x3001; ++character) {
        bool const isWhiteSpace = (character >= 0x09 && character <= 0x0D) || character == 0x20 || character == 0x85;
        std::wstring const tail = std::wstring(L"b") + static_cast<wchar_t>(character) + L"c";
        if (character != L'.') {
            EXPECT_EQ(TextOf(Path::GetExtension((L"a." + tail).c_str())), isWhiteSpace ? L"b" : tail) << character;
        }
    }
}

TEST(PathTest, TheBasenameIsCutAtItsLastDot) {
    ExpectRows(
        &Path::GetBasenameWithoutExtension, {{L"/d/x.tar.gz", L"x.tar"},
                                             {L".profile", L""},
                                             {L"/d/.profile", L""},
                                             {L"x", L"x"},
                                             {L"d.d/x", L"x"},
                                             {L"d.d/", L""},
                                             {L"x.", L"x"},
                                             {L"..", L"."},
                                             {L"", L""},
                                             {L"x.b c", L"x"},
                                             {L"d\\x.y", L"d\\x"}});
}

TEST(PathTest, ALeadingSlashOrBackslashMakesAPathRelativeToTheRootOfTheDrive) {
    for (wchar_t const* const path : {L"/", L"\\", L"/a", L"\\a", L"\\\\a", L"//a"}) {
        EXPECT_TRUE(IsDriveRootRelative(path)) << Readable(path);
    }
    for (wchar_t const* const path : {L"", L"a", L"a/", L"C:\\", L".", L" /"}) {
        EXPECT_FALSE(IsDriveRootRelative(path)) << Readable(path);
    }
}

TEST(PathTest, TheAbsoluteRootOfADrivePathIsItsFirstThreeCharacters) {
    for (auto const& [path, root] : std::vector<Row>{
             {L"c:/x", L"c:/"},
             {L"C:\\", L"C:\\"},
             {L"A:\\x\\y", L"A:\\"},
             {L"Z:/", L"Z:/"},
             {L"a:\\", L"a:\\"},
             {L"z:/z", L"z:/"}}) {
        EXPECT_EQ(GetAbsoluteRoot(path), root) << Readable(path);
    }
}

TEST(PathTest, TheAbsoluteRootOfANetworkPathIsItsServerAndShare) {
    for (auto const& [path, root] : std::vector<Row>{
             {L"\\\\server\\share\\dir", L"\\\\server\\share"},
             {L"\\\\server\\share\\", L"\\\\server\\share"},
             {L"\\\\server\\share\\a\\b", L"\\\\server\\share"},
             {L"\\\\srv\\share", L"\\\\srv\\share"},
             {L"\\\\srv\\", L"\\\\srv\\"},
             {L"\\\\srv", L"\\\\srv"},
             {L"\\\\", L"\\\\"},
             {L"\\\\\\\\x", L"\\\\\\"},
             {L"\\\\srv/share\\dir", L"\\\\srv/share\\dir"},
             {L"\\\\srv\\share/dir", L"\\\\srv\\share/dir"}}) {
        EXPECT_EQ(GetAbsoluteRoot(path), root) << Readable(path);
    }
}

TEST(PathTest, TheAbsoluteRootOfAnyOtherPathIsEmpty) {
    for (wchar_t const* const path :
         {L"",     L"a",    L"C", L"C:",   L"C:x", L"1:\\x",  L"@:\\",    L"[:\\",    L"`:\\",      L"{:\\",
          L"é:\\", L"C;\\", L"/", L"/a/b", L"\\",  L"\\a\\b", L"/\\a\\b", L"\\/a\\b", L"//a\\b\\c", L" C:\\"}) {
        EXPECT_EQ(GetAbsoluteRoot(path), L"") << Readable(path);
    }
}

} // namespace
