#ifndef WFILESYSTEM_TESTS_PATHCORPUS_H
#define WFILESYSTEM_TESTS_PATHCORPUS_H

/// \file
/// \brief The paths over which statements about all paths are tested.

#include <Base/ReturnString.h>

#include <gtest/gtest.h>

#include <cwchar>
#include <random>
#include <string>
#include <vector>

namespace PathCorpus {

/// What a path operation returned, as an ordinary string.
inline std::wstring TextOf(WBase::ReturnWString const& result) {
    EXPECT_EQ(std::wcslen(result.c_str()), result.size());
    return std::wstring(result.c_str(), result.size());
}

/// Every text of at most so many characters of the alphabet.
inline std::vector<std::wstring> AllTexts(std::wstring const& alphabet, std::size_t longest) {
    std::vector<std::wstring> texts = {L""};
    std::size_t begin = 0;
    for (std::size_t size = 0; size < longest; ++size) {
        std::size_t const end = texts.size();
        for (; begin < end; ++begin) {
            for (wchar_t const character : alphabet) {
                texts.push_back(texts[begin] + character);
            }
        }
    }
    return texts;
}

/// Random paths, the same ones in each run.
class RandomPaths {
public:
    /// \param separators what stands between the parts
    explicit RandomPaths(std::wstring separators) : separators_(std::move(separators)) {}

    /// A path of at most 20 parts. Half the parts are "", "." or "..".
    std::wstring Next() {
        static wchar_t const* const PARTS[] = {L"",   L"",  L"..",  L"..",    L"..",  L".",    L"a",   L"bc",
                                               L"C:", L"z", L"...", L"x.tar", L" . ", L"\xE9", L".git"};
        std::wstring path;
        for (std::size_t count = Below(21); count > 0; --count) {
            path += PARTS[Below(std::size(PARTS))];
            if (count > 1 || Below(4) == 0) {
                path += separators_[Below(separators_.size())];
            }
        }
        return path;
    }

private:
    // Not a distribution of the standard library: each library has its own.
    std::size_t Below(std::size_t bound) { return engine_() % bound; }

    std::wstring separators_;
    std::mt19937 engine_{20110815};
};

/// The piece so many times.
inline std::wstring Repeat(std::wstring const& piece, std::size_t count) {
    std::wstring path;
    for (; count > 0; --count) {
        path += piece;
    }
    return path;
}

/// The piece again and again, 100,000 characters in all.
inline std::wstring LongPath(std::wstring const& piece) {
    constexpr std::size_t LENGTH = 100000;
    std::wstring path;
    while (path.size() < LENGTH) {
        path += piece;
    }
    path.resize(LENGTH);
    return path;
}

/// Paths of 100,000 characters: one part, all separators, and all that makes parts stay, vanish and cancel each other.
inline std::vector<std::wstring> LongPaths() {
    std::vector<std::wstring> paths;
    for (wchar_t const* const piece :
         {L"a", L"/", L"\\", L"a/", L"a\\", L"./", L"../", L"..\\", L"a/../", L"a\\..\\", L"//a", L"\\\\a", L".",
          L"a."}) {
        paths.push_back(LongPath(piece));
    }
    paths.push_back(LongPath(L"a/").replace(50000, 50000, LongPath(L"../"), 0, 50000));
    paths.push_back(LongPath(L"a\\").replace(50000, 50000, LongPath(L"..\\"), 0, 50000));
    return paths;
}

} // namespace PathCorpus

#endif
