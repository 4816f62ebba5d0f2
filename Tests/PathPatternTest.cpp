#include <Base/Exception.h>
#include <FileSystem/Path.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Text.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <string>
#include <vector>

#include <glob.h>
#include <sys/stat.h>
#include <unistd.h>

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using TestSupport::Allocations;
using TestSupport::MakeDirectory;
using TestSupport::Narrow;
using TestSupport::Recorder;
using TestSupport::ScratchDirectory;
using TestSupport::WorkingDirectory;
using TestSupport::WriteFile;
using WFileSystem::Path;

namespace {

/// The entries in UTF-8.
std::vector<std::string> Find(std::wstring const& pattern) {
    auto const names = Path::GetFileNamesWithPattern(pattern.c_str());
    std::vector<std::string> entries;
    for (unsigned long index = 0; index < names->GetCount(); ++index) {
        entries.push_back(Narrow(names->GetAt(index)));
    }
    return entries;
}

/// A working directory with these files.
class PathPatternTest : public ::testing::Test {
protected:
    PathPatternTest() {
        for (char const* const name : {"b", "a", "é", "c.txt", ".hidden"}) {
            WriteFile(name, "");
        }
        MakeDirectory("sub");
        WriteFile("sub/x", "");
    }

    ScratchDirectory const scratch_;
    WorkingDirectory const workingDirectory_{scratch_.Path()};
};

TEST_F(PathPatternTest, MatchesAreListedInSortedOrder) {
    EXPECT_THAT(Find(L"*"), ElementsAre("a", "b", "c.txt", "sub", "é"));
    EXPECT_THAT(Find(L"[ab]"), ElementsAre("a", "b"));
    EXPECT_THAT(Find(L"?.txt"), ElementsAre("c.txt"));
    EXPECT_THAT(Find(L"*/*"), ElementsAre("sub/x"));
}

TEST_F(PathPatternTest, MatchesCarryTheDirectoryOfThePattern) {
    EXPECT_THAT(Find(L"sub/*"), ElementsAre("sub/x"));
    EXPECT_THAT(Find(scratch_.Wide("[ab]")), ElementsAre(scratch_ / "a", scratch_ / "b"));
    WorkingDirectory const inside("sub"); // so that what is above it belongs to this test alone
    EXPECT_THAT(Find(L"../*/x"), ElementsAre("../sub/x"));
}

TEST_F(PathPatternTest, APatternThatMatchesNothingGivesAnEmptyCollection) {
    EXPECT_THAT(Find(L"*.missing"), IsEmpty());
    EXPECT_THAT(Find(L"missing/*"), IsEmpty());
    EXPECT_THAT(Find(L"a/*"), IsEmpty());
    EXPECT_THAT(Find(L"["), IsEmpty());
    EXPECT_THAT(Find(L""), IsEmpty());
}

TEST_F(PathPatternTest, APatternWithoutPatternCharactersNamesOneEntry) {
    EXPECT_THAT(Find(L"é"), ElementsAre("é"));
    EXPECT_THAT(Find(L".hidden"), ElementsAre(".hidden"));
    EXPECT_THAT(Find(L"missing"), IsEmpty());
}

TEST_F(PathPatternTest, ThePatternIsCanonisedFirst) {
    Recorder const recorder;
    EXPECT_THAT(
        Find(scratch_.Wide("./x/../*/")),
        ElementsAre(scratch_ / "a", scratch_ / "b", scratch_ / "c.txt", scratch_ / "sub", scratch_ / "é"));
    EXPECT_EQ(recorder.Find("glob").path, scratch_ / "*");
}

TEST_F(PathPatternTest, ATrailingSeparatorChangesNothing) {
    EXPECT_THAT(Find(L"[as]*/"), ElementsAre("a", "sub"));
    EXPECT_THAT(Find(L"[as]*//"), ElementsAre("a", "sub"));
    EXPECT_THAT(Find(L"[as]*\\"), ElementsAre("a", "sub"));
}

TEST_F(PathPatternTest, ABackslashSeparatesAndNeverEscapes) {
    WriteFile("sub/*", "");
    EXPECT_THAT(Find(L"sub\\*"), ElementsAre("sub/*", "sub/x"));
    WriteFile("b\\c", "");
    EXPECT_THAT(Find(L"b\\c"), IsEmpty());
    EXPECT_THAT(Find(L"b?c"), ElementsAre("b\\c"));
}

TEST_F(PathPatternTest, HiddenEntriesMatchOnlyAPatternThatSpellsTheDot) {
    EXPECT_THAT(Find(L"?hidden"), IsEmpty());
    EXPECT_THAT(Find(L"[.]hidden"), IsEmpty());
    EXPECT_THAT(Find(L".h*"), ElementsAre(".hidden"));
    EXPECT_THAT(Find(L"sub/.*"), ElementsAre("sub/.", "sub/.."));
}

TEST_F(PathPatternTest, ANameThatIsNotUTF8IsLeftOut) {
    WriteFile("sub/a\xFF", "");
    WriteFile("sub/z", "");
    EXPECT_THAT(Find(L"sub/*"), ElementsAre("sub/x", "sub/z"));
}

TEST_F(PathPatternTest, ADirectoryThatCannotBeReadCountsAsEmpty) {
    ASSERT_EQ(::chmod(".", 0755), 0);
    ASSERT_EQ(::chmod("sub", 0), 0);
    TestSupport::Child child([](TestSupport::Child::Parent&) {
        constexpr uid_t NOBODY = 65534;
        if (::geteuid() == 0) {
            ASSERT_EQ(::seteuid(NOBODY), 0); // root may read everything
        }
        EXPECT_THAT(Find(L"sub/*"), IsEmpty());
        EXPECT_THAT(Find(L"s*"), ElementsAre("sub"));
    });
    EXPECT_EQ(child.Wait(), 0);
}

TEST(PathPatternCallTest, GlobIsCalledOnceWithoutFlagsAndWithoutACallback) {
    Recorder const recorder;
    Find(L"/\\é*/./");
    EXPECT_THAT(recorder.Calls(), ElementsAre("glob(\"/é*\", 0)", "globfree()"));
}

struct Failure {
    int result;
    wchar_t const* text;
};

TEST(PathPatternCallTest, EachFailureHasItsReport) {
    for (Failure const& failure : std::vector<Failure>{
             {GLOB_NOSYS, L"Unable to find file (GLOB_NOSYS)."},
             {GLOB_ABORTED, L"Unable to find file (GLOB_ABORTED)."},
             {GLOB_NOSPACE, L"Unable to find file (GLOB_NOSPACE)."},
             {4711, L"Unable to find file."},
             {-1, L"Unable to find file."}}) {
        Recorder recorder;
        recorder.On("glob").First(1).Return(failure.result);
        TestSupport::ExpectedMessage const expected = {
            &typeid(WBase::ExceptionImpl<WBase::Message>), WBase::MESSAGE_DOMAIN_UNKNOWN, -1, failure.text};
        EXPECT_TRUE(TestSupport::Throws([] { Path::GetFileNamesWithPattern(L"*"); }, expected));
        EXPECT_EQ(recorder.Names(), "glob globfree");
    }
}

TEST(PathPatternCallTest, NoMatchIsNoFailure) {
    Recorder recorder;
    recorder.On("glob").First(1).Return(GLOB_NOMATCH);
    EXPECT_THAT(Find(L"*"), IsEmpty());
    EXPECT_EQ(recorder.Names(), "glob globfree");
}

TEST(PathPatternCallTest, WhatAFailingGlobFoundIsFreedAndNotReturned) {
    Recorder recorder;
    recorder.On("glob").First(1).After([](TestSupport::Call& call) {
        EXPECT_EQ(static_cast<glob_t const*>(call.data)->gl_pathc, 1U);
        call.result = GLOB_ABORTED;
    });
    EXPECT_THROW(Path::GetFileNamesWithPattern(L"/"), WBase::ExceptionImpl<WBase::Message>);
    EXPECT_EQ(recorder.Find("globfree").data, recorder.Find("glob").data);
}

TEST(PathPatternCallTest, TheFailureToConvertThePatternPassesBeforeAnyCall) {
    Recorder const recorder;
    EXPECT_THROW(Path::GetFileNamesWithPattern(L"/\xD800"), WBase::StringConversionException);
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(PathPatternTest, EachFailingAllocationFreesTheResultAndPasses) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    unsigned long const count = Find(L"*").size();
    bool hasFailed = true;
    for (unsigned int n = 1; hasFailed; ++n) {
        Recorder const recorder;
        std::unique_ptr<WDataType::StringCollection> names;
        Allocations allocations;
        allocations.FailNth(n);
        try {
            names = Path::GetFileNamesWithPattern(L"*");
        } catch (std::bad_alloc const&) {
            EXPECT_TRUE(allocations.HasFailed());
        }
        allocations.Stop();
        hasFailed = allocations.HasFailed();
        EXPECT_EQ(names != nullptr ? names->GetCount() : 0, hasFailed ? 0 : count) << n;
        EXPECT_EQ(recorder.Count("globfree"), recorder.Count("glob")) << n;
    }
}

} // namespace
