// Statements about all paths.

#include <FileSystem/Path.h>
#include <Tests/PathCorpus.h>
#include <Tests/PathModel.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Text.h>

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

using PathCorpus::AllTexts;
using PathCorpus::LongPath;
using PathCorpus::LongPaths;
using PathCorpus::RandomPaths;
using PathCorpus::TextOf;
using TestSupport::Allocations;
using TestSupport::Readable;
using WFileSystem::Path;

namespace {

std::wstring Combine(std::wstring const& first, std::wstring const& second) {
    return TextOf(Path::Combine(first.c_str(), second.c_str()));
}

TEST(PathPropertyTest, CombineEqualsTheModelForAllShortPaths) {
    auto const paths = AllTexts(L"/\\.a", 3);
    for (auto const& first : paths) {
        for (auto const& second : paths) {
            ASSERT_EQ(Combine(first, second), PathModel::Combine(first, second, PathModel::Native()))
                << Readable(first) << ", " << Readable(second);
        }
    }
    for (auto const& path : AllTexts(L"/.a", 8)) {
        ASSERT_EQ(Combine(path, L""), PathModel::Combine(path, L"", PathModel::Native())) << Readable(path);
    }
}

TEST(PathPropertyTest, CombineEqualsTheModelForRandomPaths) {
    RandomPaths paths(L"///\\");
    for (int round = 0; round < 5000; ++round) {
        std::wstring const first = paths.Next();
        std::wstring const second = paths.Next();
        ASSERT_EQ(Combine(first, second), PathModel::Combine(first, second, PathModel::Native()))
            << Readable(first) << ", " << Readable(second);
    }
}

TEST(PathPropertyTest, ACombinedPathIsCanonical) {
    RandomPaths paths(L"///\\");
    for (int round = 0; round < 5000; ++round) {
        std::wstring const first = paths.Next();
        std::wstring const second = paths.Next();
        std::wstring const result = Combine(first, second);
        ASSERT_EQ(Combine(result, L""), result) << Readable(first) << ", " << Readable(second);
        ASSERT_EQ(Combine(L"", result), result) << Readable(first) << ", " << Readable(second);
    }
}

using Operation = std::function<WBase::ReturnWString(std::wstring const&)>;

std::vector<Operation> const OPERATIONS = {
    [](std::wstring const& path) { return Path::Combine(path.c_str(), L""); },
    [](std::wstring const& path) { return Path::Combine(L"", path.c_str()); },
    [](std::wstring const& path) { return Path::Combine(path.c_str(), path.c_str()); },
    [](std::wstring const& path) { return Path::ToAbsolute(path.c_str()); },
    [](std::wstring const& path) { return Path::GetParent(path.c_str()); },
    [](std::wstring const& path) { return Path::Internalize(path.c_str()); },
    [](std::wstring const& path) { return Path::GetDirname(path.c_str()); },
    [](std::wstring const& path) { return Path::GetBasename(path.c_str()); },
    [](std::wstring const& path) { return Path::GetExtension(path.c_str()); },
    [](std::wstring const& path) { return Path::GetBasenameWithoutExtension(path.c_str()); },
};

void ExpectOneAllocation(std::wstring const& path) {
    for (std::size_t index = 0; index < OPERATIONS.size(); ++index) {
        Allocations allocations;
        OPERATIONS[index](path);
        ASSERT_EQ(allocations.Stop(), 1U) << "operation " << index << ", " << Readable(path.substr(0, 100));
    }
}

TEST(PathPropertyTest, EachOperationAllocatesItsResultAndNothingElse) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    RandomPaths random(L"///\\");
    for (auto const& path : AllTexts(L"/\\.a", 4)) {
        ExpectOneAllocation(path);
    }
    for (int round = 0; round < 1000; ++round) {
        ExpectOneAllocation(random.Next());
    }
}

TEST(PathPropertyTest, AlsoTheLongestPathCostsOneAllocation) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    for (auto const& path : LongPaths()) {
        ExpectOneAllocation(path);
        ExpectOneAllocation(L"/" + path);
    }
}

TEST(PathPropertyTest, ALongPathIsCombinedAsAShortOneIs) {
    // 50,000 parts, of which 33,333 are cancelled.
    EXPECT_EQ(Combine(LongPath(L"a/"), LongPath(L"../")), LongPath(L"a/").substr(0, 2 * 16667 - 1));
}

TEST(PathPropertyTest, TheAbsoluteRootCostsOneAllocationAtMost) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    std::wstring const path = L"\\\\" + LongPath(L"a");
    Allocations allocations;
    EXPECT_EQ(WFileSystem::GetAbsoluteRoot(path.c_str()).size(), path.size());
    EXPECT_EQ(allocations.Stop(), 1U);
}

} // namespace
