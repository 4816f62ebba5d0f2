// Patterns: the names that are found in a fixed tree are those of `glob`, in its order, less what is not UTF-8.

#include <FileSystem/Path.h>
#include <Tests/Fuzz/Fuzz.h>
#include <Tests/PathModel.h>

#include <fstream>
#include <glob.h>
#include <stdexcept>
#include <vector>

using Fuzz::RequireEqual;

namespace {

/// A directory with entries of all kinds.
class Tree {
public:
    Tree() {
        for (char const* const directory : {"d", "d/sub", "d/sub/deep", ".hidden", "[ab]", "e"}) {
            std::filesystem::create_directory(scratch_ / directory);
        }
        for (char const* const file :
             {"a",
              "b",
              "ab",
              "abc",
              "a.txt",
              "b.txt",
              ".profile",
              "a b",
              "*",
              "?",
              "[",
              "]",
              "-",
              "!",
              "^",
              "~",
              "{a,b}",
              "\xC3\xA9",
              "\xF0\x9F\x98\x80",
              "\xFF",
              "a\xC3",
              "a\\b",
              "line\nfeed",
              "d/a",
              "d/.b",
              "d/\x80",
              "d/sub/x1",
              "d/sub/deep/x",
              ".hidden/seen",
              "[ab]/in",
              "e/0123456789"}) {
            std::ofstream(scratch_ / file);
        }
        std::filesystem::create_directory_symlink("d", scratch_ / "link");
        std::filesystem::create_symlink("nowhere", scratch_ / "dangling");
    }

    std::wstring Path() const { return Fuzz::Widened(scratch_.Path()); }

private:
    Fuzz::Scratch const scratch_;
};

std::vector<std::wstring> Expected(std::wstring const& canonical) {
    std::vector<std::wstring> names;
    glob_t matches = {};
    if (::glob(TestSupport::Narrow(canonical).c_str(), 0, nullptr, &matches) == 0) {
        for (std::size_t i = 0; i < matches.gl_pathc; ++i) {
            try {
                names.push_back(TestSupport::Widen(matches.gl_pathv[i]));
            } catch (std::invalid_argument const&) {
                continue; // not UTF-8
            }
        }
    }
    ::globfree(&matches);
    return names;
}

/// Whether a part but the last may stand for "..", and so lead out of the tree.
bool MayClimb(std::wstring const& canonical) {
    constexpr std::size_t NONE = std::wstring::npos;
    for (std::size_t part = canonical.find(L"/."); part != NONE; part = canonical.find(L"/.", part + 1)) {
        std::size_t const end = canonical.find(L'/', part + 1);
        if (end != NONE && canonical.find_first_of(L"*?[", part) < end) {
            return true;
        }
    }
    return false;
}

} // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Tree const tree;
    constexpr std::size_t LONGEST_PATTERN = 60; // the system's matcher takes exponential time
    std::wstring const pattern =
        tree.Path() + L'/' + Fuzz::Widened(Fuzz::Input(data, std::min(size, LONGEST_PATTERN)).Line());
    std::wstring const canonical = PathModel::Combine(pattern, L"", PathModel::Native());
    if (canonical.rfind(tree.Path(), 0) != 0 || MayClimb(canonical)) {
        return 0; // it leads out of the tree, where names come and go
    }
    std::vector<std::wstring> const expected = Expected(canonical);
    auto const names = WFileSystem::Path::GetFileNamesWithPattern(pattern.c_str());
    for (std::size_t i = 0; i < std::min(expected.size(), names->GetCount()); ++i) {
        RequireEqual<std::wstring>(names->GetAt(i), expected[i], "a name");
    }
    RequireEqual<long long>(
        static_cast<long long>(names->GetCount()), static_cast<long long>(expected.size()), "the number of names");
    return 0;
}
