#ifndef WFILESYSTEM_TESTS_PATHMODEL_H
#define WFILESYSTEM_TESTS_PATHMODEL_H

/// \file
/// \brief Combining paths as a list of parts that is edited step by step: slow, and near to how one would explain it.

#include <Defines/StrongObjects.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace PathModel {

using Parts = std::vector<std::wstring>;

/// What a platform makes of paths.
struct Rules {
    std::wstring separators; ///< what ends a part
    std::wstring separator;  ///< what stands between the parts of a result
    bool isWindows = false;

    bool HasSeparators() const { return !separators.empty(); }
};

inline Rules Native() {
    return {L"/\\", L"/", false};
}

inline Rules RulesOf(EnumFileDestPlatforms platform) {
    switch (platform) {
    case FileDestPlatformWindows:
        return {L"/\\", L"\\", true};
    case FileDestPlatformPosix:
        return {L"/", L"/", false};
    }
    return {};
}

inline bool IsLetter(wchar_t character) {
    return std::wstring_view(L"ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz").find(character) !=
           std::wstring_view::npos;
}

inline bool IsDriveRooted(std::wstring const& path) {
    return path.size() >= 3 && IsLetter(path[0]) && path[1] == L':' && (path[2] == L'\\' || path[2] == L'/');
}

inline bool IsAbsolute(std::wstring const& path, Rules const& rules) {
    if (rules.isWindows) {
        return IsDriveRooted(path) || path.substr(0, 2) == L"\\\\";
    }
    return rules.HasSeparators() && path.substr(0, 1) == L"/";
}

inline Parts Split(std::wstring const& path, Rules const& rules) {
    Parts parts;
    std::wstring part;
    for (wchar_t const character : path) {
        if (rules.separators.find(character) != std::wstring::npos) {
            parts.push_back(part);
            part.clear();
        } else {
            part += character;
        }
    }
    if (!part.empty()) {
        parts.push_back(part);
    }
    return parts;
}

inline void Canonise(Parts& parts, bool isAbsolute, Rules const& rules) {
    bool const isNetwork = rules.isWindows && parts.size() >= 2 && parts[0].empty() && parts[1].empty();
    std::size_t const lastOfRoot = isNetwork ? 1 : 0; // an empty part up to there stays
    std::size_t const underRoot = isNetwork ? 4 : 1;
    bool isChanged = false;
    for (std::size_t i = 0; i < parts.size();) {
        auto const part = parts.begin() + static_cast<std::ptrdiff_t>(i);
        if (part->empty() && i > lastOfRoot && rules.HasSeparators()) {
            parts.erase(part);
        } else if (*part == L".") {
            parts.erase(part);
            isChanged = true;
        } else if (*part == L".." && isAbsolute && i == underRoot) {
            parts.erase(part);
        } else if (
            *part != L".." || i == 0 || part[-1] == L".." || !rules.HasSeparators() ||
            (rules.isWindows && part[-1].empty())) {
            ++i;
        } else {
            parts.erase(part - 1, part + 1);
            isChanged = true;
            --i;
        }
    }
    if (isChanged && parts.empty()) {
        parts.push_back(L".");
    }
}

inline std::wstring Merge(Parts const& parts, Rules const& rules) {
    std::wstring path;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        path += (i > 0 ? rules.separator : L"") + parts[i];
    }
    if (rules.isWindows) {
        bool const isDrive = path.size() == 2 && IsLetter(path[0]) && path[1] == L':';
        bool const isNetworkRoot = parts == Parts{L"", L""};
        return isDrive || isNetworkRoot ? path + L"\\" : path;
    }
    return rules.HasSeparators() && parts == Parts{L""} ? L"/" : path;
}

inline std::wstring
Canonical(std::wstring const& first, std::wstring const& second, bool isAbsolute, Rules const& rules) {
    Parts parts = Split(first, rules);
    for (std::wstring const& part : Split(second, rules)) {
        parts.push_back(part);
    }
    Canonise(parts, isAbsolute, rules);
    return Merge(parts, rules);
}

/// Of a path that is absolute for Windows.
inline std::wstring RootOf(std::wstring const& path) {
    if (IsDriveRooted(path)) {
        return path.substr(0, 3);
    }
    int backslashes = 0;
    for (std::size_t i = 2; i < path.size(); ++i) {
        if (path[i] == L'\\' && ++backslashes == 2) {
            return path.substr(0, i);
        }
    }
    return path;
}

inline std::wstring Combine(std::wstring const& first, std::wstring const& second, Rules const& rules) {
    if (IsAbsolute(second, rules)) {
        return Canonical(L"", second, true, rules);
    }
    if (rules.isWindows && !second.empty() && (second[0] == L'\\' || second[0] == L'/')) {
        if (!IsAbsolute(first, rules)) {
            return Canonical(L"", second, false, rules);
        }
        std::wstring const root = RootOf(first);
        return Canonical(root, second, IsAbsolute(root, rules), rules);
    }
    return Canonical(first, second, IsAbsolute(first, rules), rules);
}

} // namespace PathModel

#endif
