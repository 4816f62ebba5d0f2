// The cost of path operations, as the number of basic blocks that run: the same in each run, whatever the machine does.

#include <FileSystem/Path.h>
#include <FileSystem/PrivateSource/WorkingDirectory.h>
#include <Tests/PathCorpus.h>
#include <Tests/Support/Text.h>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

using PathCorpus::Repeat;
using WFileSystem::Path;

namespace {

unsigned long blocks = 0;

} // namespace

/// What the compiler calls at each basic block of Path.cpp.
extern "C" void __sanitizer_cov_trace_pc() {
    ++blocks;
}

/// This program is without the rest of the library, and asks for no working directory.
std::size_t WFileSystem::ReadCurrentWorkingDirectory(wchar_t (&)[WORKING_DIRECTORY_CAPACITY]) {
    throw std::logic_error("There is no working directory here.");
}

namespace {

using Operation = void (*)(wchar_t const* path);

unsigned long CostOf(Operation operation, std::wstring const& path) {
    blocks = 0;
    operation(path.c_str());
    return blocks;
}

/// How many parts the paths have at least.
constexpr unsigned long LEAST_PARTS = 200;

/// Ten times the length may cost twelve times as much, which no quadratic step keeps to.
void ExpectLinear(Operation operation, std::wstring const& path, std::wstring const& longPath) {
    unsigned long const cost = CostOf(operation, path);
    // Each part costs a block at least; optimised loops come near to that.
    EXPECT_GT(cost, LEAST_PARTS) << "The blocks are not counted.";
    EXPECT_LE(CostOf(operation, longPath), 12 * cost) << TestSupport::Readable(path.substr(0, 20));
}

void CombineNatively(wchar_t const* path) {
    Path::Combine(path, path);
}

void CombineForWindows(wchar_t const* path) {
    Path::CombineCrossPlatform(path, path, FileDestPlatformWindows);
}

void CombineForPOSIX(wchar_t const* path) {
    Path::CombineCrossPlatform(path, path, FileDestPlatformPosix);
}

class PathCostTest : public ::testing::TestWithParam<Operation> {};

INSTANTIATE_TEST_SUITE_P(
    Platforms, PathCostTest, ::testing::Values(&CombineNatively, &CombineForWindows, &CombineForPOSIX));

TEST_P(PathCostTest, CombiningCostsNoMoreThanTheLengthOfThePaths) {
    for (wchar_t const* const piece :
         {L"a/", L"../", L"./", L"/", L"a/../", L"a/b/../", L"../a/", L"a/b/c/../../../", L"//../", L"/a//.//..//"}) {
        ExpectLinear(GetParam(), Repeat(piece, LEAST_PARTS), Repeat(piece, 10 * LEAST_PARTS));
    }
}

TEST_P(PathCostTest, CancellingALongTailCostsNoMoreThanItsLength) {
    auto const path = [](std::size_t count) { return Repeat(L"a/", count) + Repeat(L"../", count); };
    ExpectLinear(GetParam(), path(LEAST_PARTS), path(10 * LEAST_PARTS));
}

TEST_P(PathCostTest, CancellingLongNamesCostsNoMoreThanTheirLength) {
    auto const path = [](std::size_t count) { return Repeat(std::wstring(count, L'n') + L"/../", 100); };
    ExpectLinear(GetParam(), path(100), path(1000));
}

} // namespace
