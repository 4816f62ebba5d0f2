#include <FileSystem/Path.h>

#include <Base/Conversion.h>
#include <Base/Exception.h>
#include <Base/PrivateSource/UTF8.h>
#include <FileSystem/PrivateSource/WorkingDirectory.h>
#include <PDCHeader/PDCstat.h>

#include <algorithm>
#include <cstring>
#include <glob.h>
#include <string_view>
#include <unistd.h>

namespace WFileSystem {
namespace {

/// What a platform makes of paths.
struct PathRules {
    wchar_t separators[2]; ///< what ends a part; NUL: nothing
    wchar_t separator;     ///< what stands between the parts of a result; NUL: nothing, and no part cancels another
    bool hasDrives;        ///< drives and network shares, as on Windows

    constexpr bool IsSeparator(wchar_t character) const noexcept {
        return character == separators[0] || character == separators[1];
    }
};

constexpr PathRules NATIVE = {{L'/', L'\\'}, L'/', false};
constexpr PathRules POSIX = {{L'/', L'/'}, L'/', false};
constexpr PathRules WINDOWS = {{L'/', L'\\'}, L'\\', true};
constexpr PathRules WITHOUT_SEPARATORS = {{L'\0', L'\0'}, L'\0', false};

constexpr PathRules const& RulesOf(EnumFileDestPlatforms platform) noexcept {
    switch (platform) {
    case FileDestPlatformWindows:
        return WINDOWS;
    case FileDestPlatformPosix:
        return POSIX;
    }
    return WITHOUT_SEPARATORS;
}

constexpr bool IsDriveLetter(wchar_t character) noexcept {
    return (character >= L'A' && character <= L'Z') || (character >= L'a' && character <= L'z');
}

bool HasDriveRoot(std::wstring_view path) noexcept {
    return path.size() >= 3 && IsDriveLetter(path[0]) && path[1] == L':' && WINDOWS.IsSeparator(path[2]);
}

bool IsNetworkPath(std::wstring_view path) noexcept {
    return path.size() >= 2 && path[0] == L'\\' && path[1] == L'\\';
}

bool IsAbsoluteBy(PathRules const& rules, std::wstring_view path) noexcept {
    if (rules.hasDrives) {
        return HasDriveRoot(path) || IsNetworkPath(path);
    }
    return !path.empty() && path[0] == rules.separator;
}

/// Joins the parts of up to two paths in canonical form. Each part is looked at once, against those that stay before
/// it, so that the cost follows the length and the result is the only memory.
class Canoniser {
public:
    Canoniser(PathRules const& rules, std::wstring_view first, std::wstring_view second, bool isAbsolute)
        : rules_(rules), isAbsolute_(isAbsolute), hasParts_(!first.empty() || !second.empty()),
          // A separator between the two, and one that is appended to a root, and the NUL.
          result_(new wchar_t[first.size() + second.size() + 3]) {
        // The first alone tells: a second that begins with a separator is joined to a drive or a network path only.
        bool const isNetworkPath =
            rules_.hasDrives && first.size() >= 2 && rules_.IsSeparator(first[0]) && rules_.IsSeparator(first[1]);
        if (isNetworkPath) {
            emptyParts_ = 2;
            rootParts_ = 4;
        }
        Append(first);
        Append(second);
    }

    WBase::ReturnWString GetResult() {
        Finish();
        *end_ = L'\0';
        std::size_t const size = GetWhole().size();
        return WBase::ReturnWString(std::move(result_), size);
    }

private:
    /// Each separator ends a part, be it empty, and the end of the path one that is not.
    void Append(std::wstring_view path) {
        // A copy, which the compiler knows to stay while characters are written.
        PathRules const rules = rules_;
        wchar_t const* next = path.data();
        wchar_t const* const end = next + path.size();
        while (next != end) {
            // Written where it belongs if it stays; otherwise the next part goes there.
            wchar_t* out = end_;
            if (count_ > 0 && rules.separator != L'\0') {
                *out++ = rules.separator;
            }
            wchar_t* const begin = out;
            while (next != end && !rules.IsSeparator(*next)) {
                *out++ = *next++;
            }
            if (next != end) {
                ++next;
            }
            std::wstring_view const part(begin, static_cast<std::size_t>(out - begin));
            bool const isName = part.size() > 2 || (!part.empty() && part[0] != L'.');
            if (isName || IsToStay(part)) {
                end_ = out;
                ++count_;
            }
        }
    }

    /// Whether a part stays that is empty or begins with a dot. If it takes away the last one, that is done here.
    bool IsToStay(std::wstring_view part) {
        if (part.empty()) {
            return count_ < emptyParts_; // the empty parts of the root stay; the others vanish
        }
        bool const isItself = part.size() == 1;
        bool const isParent = !isItself && part[1] == L'.';
        return !isItself && !(isParent && CancelWithParent());
    }

    /// \return false: ".." stays, because it cancels nothing
    bool CancelWithParent() {
        if (isAbsolute_ && count_ == rootParts_) {
            return true; // nothing lies above the root
        }
        if (count_ == 0 || rules_.separator == L'\0') {
            return false;
        }
        std::size_t const lastBegin = GetLastBegin();
        std::wstring_view const last = GetWhole().substr(lastBegin);
        bool const isLastParent = last.size() == 2 && last[0] == L'.' && last[1] == L'.';
        if (isLastParent || (rules_.hasDrives && last.empty())) {
            return false;
        }
        end_ = result_.get() + (count_ == 1 ? 0 : lastBegin - 1);
        --count_;
        return true;
    }

    /// Where the last part begins; no part holds the separator that is produced.
    std::size_t GetLastBegin() const noexcept {
        return GetWhole().rfind(rules_.separator) + 1; // 0 where it stands nowhere
    }

    std::wstring_view GetWhole() const noexcept {
        return std::wstring_view(result_.get(), static_cast<std::size_t>(end_ - result_.get()));
    }

    void Finish() {
        if (count_ == 0) {
            // A path that vanished as a whole; "" stays "".
            if (hasParts_) {
                *end_++ = L'.';
            }
        } else if (!rules_.hasDrives) {
            bool const isRoot = count_ == 1 && GetWhole().empty();
            if (isRoot) {
                *end_++ = rules_.separator;
            }
        } else {
            std::size_t const size = GetWhole().size();
            bool const isDrive = size == 2 && IsDriveLetter(result_[0]) && result_[1] == L':';
            bool const isNetworkRoot = count_ == 2 && size == 1;
            if (isDrive || isNetworkRoot) {
                *end_++ = rules_.separator;
            }
        }
    }

    PathRules const& rules_;
    bool isAbsolute_;
    bool hasParts_;
    unsigned long emptyParts_ = 1;
    unsigned long rootParts_ = 1;

    std::unique_ptr<wchar_t[]> result_;
    wchar_t* end_ = result_.get();
    unsigned long count_ = 0;
};

WBase::ReturnWString Canonise(PathRules const& rules, std::wstring_view path, bool isAbsolute) {
    return Canoniser(rules, path, {}, isAbsolute).GetResult();
}

WBase::ReturnWString CombineUnconditionally(PathRules const& rules, std::wstring_view first, std::wstring_view second) {
    return Canoniser(rules, first, second, IsAbsoluteBy(rules, first)).GetResult();
}

WBase::ReturnWString CombineBy(PathRules const& rules, std::wstring_view first, std::wstring_view second) {
    return IsAbsoluteBy(rules, second) ? Canonise(rules, second, true) : CombineUnconditionally(rules, first, second);
}

std::wstring_view AbsoluteRootOf(std::wstring_view path) noexcept {
    if (HasDriveRoot(path)) {
        return path.substr(0, 3);
    }
    if (!IsNetworkPath(path)) {
        return {};
    }
    std::size_t const serverEnd = path.find(L'\\', 2);
    std::size_t const shareEnd = serverEnd == std::wstring_view::npos ? serverEnd : path.find(L'\\', serverEnd + 1);
    return path.substr(0, shareEnd);
}

WBase::ReturnWString Copy(std::wstring_view text) {
    return WBase::ReturnWString(text.size(), text.data());
}

std::wstring_view BasenameOf(std::wstring_view path) noexcept {
    return path.substr(path.rfind(L'/') + 1);
}

bool HasType(wchar_t const* path, mode_t type) {
    WBase::ReturnString const narrowPath = WBase::WideCharToMultiByte(path, false);
    struct stat status;
    return ::stat(narrowPath.c_str(), &status) == 0 && (status.st_mode & S_IFMT) == type;
}

bool IsAccessible(wchar_t const* path, int mode) {
    return ::access(WBase::WideCharToMultiByte(path, false).c_str(), mode) == 0;
}

/// The result of a `glob` call, freed on every way out.
class GlobResult {
public:
    GlobResult() = default;
    GlobResult(GlobResult const&) = delete;
    GlobResult& operator=(GlobResult const&) = delete;
    ~GlobResult() { ::globfree(&result_); }

    int Find(char const* pattern) { return ::glob(pattern, 0, nullptr, &result_); }

    void AppendTo(WDataType::StringCollection& names) const {
        std::wstring name; // one for all
        for (std::size_t index = 0; index < result_.gl_pathc; ++index) {
            char const* const narrowName = result_.gl_pathv[index];
            name.resize(std::max(name.size(), std::strlen(narrowName) + 1));
            try {
                WBase::DecodeUTF8(narrowName, false, name.data());
                names.Append(name.c_str());
            } catch (WBase::StringConversionException const&) { // NOLINT(bugprone-empty-catch): such a name is left out
            }
        }
    }

private:
    glob_t result_ = {};
};

[[noreturn]] void ThrowGlobFailure(int result) {
    using Failure = WBase::ExceptionImpl<WBase::Message>;
    switch (result) {
#ifdef GLOB_NOSYS
    case GLOB_NOSYS:
        throw Failure("Unable to find file (GLOB_NOSYS).");
#endif
    case GLOB_ABORTED:
        throw Failure("Unable to find file (GLOB_ABORTED).");
    case GLOB_NOSPACE:
        throw Failure("Unable to find file (GLOB_NOSPACE).");
    default:
        throw Failure("Unable to find file.");
    }
}

} // namespace

bool Path::IsAbsolute(wchar_t const* path) noexcept {
    return *path == L'/';
}

WBase::ReturnWString Path::ToAbsolute(wchar_t const* path) {
    if (IsAbsolute(path)) {
        return WBase::ReturnWString(path);
    }
    wchar_t directory[WORKING_DIRECTORY_CAPACITY];
    std::size_t const size = ReadCurrentWorkingDirectory(directory);
    return CombineBy(NATIVE, std::wstring_view(directory, size), path);
}

WBase::ReturnWString Path::Combine(wchar_t const* first, wchar_t const* second) {
    return CombineBy(NATIVE, first, second);
}

bool Path::IsDirectory(wchar_t const* path) {
    return HasType(path, S_IFDIR);
}

bool Path::IsFile(wchar_t const* path) {
    return HasType(path, S_IFREG);
}

bool Path::IsReadable(wchar_t const* path) {
    return IsAccessible(path, R_OK);
}

bool Path::IsWriteable(wchar_t const* path) {
    return IsAccessible(path, W_OK);
}

WBase::ReturnWString Path::GetParent(wchar_t const* path) {
    std::wstring_view const whole = path;
    for (std::size_t size = whole.empty() ? 0 : whole.size() - 1; size > 0; --size) {
        if (NATIVE.IsSeparator(whole[size - 1])) {
            return Copy(whole.substr(0, size));
        }
    }
    return Copy(L"");
}

WBase::ReturnWString Path::Internalize(wchar_t const* path) {
    if (!IsNetworkPath(path)) {
        return WBase::ReturnWString(path);
    }
    std::wstring_view const tail = std::wstring_view(path).substr(1);
    std::unique_ptr<wchar_t[]> result(new wchar_t[tail.size() + 1]);
    std::replace_copy(tail.begin(), tail.end(), result.get(), L'\\', L'/');
    result[tail.size()] = L'\0';
    return WBase::ReturnWString(std::move(result), tail.size());
}

WBase::ReturnWString Path::GetDirname(wchar_t const* path) {
    std::wstring_view const whole = path;
    std::size_t const separator = whole.rfind(L'/');
    return Copy(separator == std::wstring_view::npos ? L"." : whole.substr(0, separator));
}

char const* Path::GetBasename(char const* path) noexcept {
    char const* const separator = std::strrchr(path, '/');
    return separator != nullptr ? separator + 1 : path;
}

WBase::ReturnWString Path::GetBasename(wchar_t const* path) {
    return Copy(BasenameOf(path));
}

WBase::ReturnWString Path::GetExtension(wchar_t const* path) {
    std::wstring_view const whole = path;
    std::size_t const dot = whole.rfind(L'.');
    if (dot == std::wstring_view::npos) {
        return Copy(L"");
    }
    std::wstring_view const extension = whole.substr(dot + 1);
    return Copy(extension.substr(0, extension.find_first_of(L"\t\n\v\f\r \u0085")));
}

WBase::ReturnWString Path::GetBasenameWithoutExtension(wchar_t const* path) {
    std::wstring_view const basename = BasenameOf(path);
    return Copy(basename.substr(0, basename.rfind(L'.')));
}

std::unique_ptr<WDataType::StringCollection> Path::GetFileNamesWithPattern(wchar_t const* pattern) {
    std::unique_ptr<WDataType::StringCollection> names = WDataType::CreateStringCollection();
    WBase::ReturnString const narrowPattern = WBase::WideCharToMultiByte(Combine(pattern, L"").c_str(), false);
    GlobResult matches;
    int const result = matches.Find(narrowPattern.c_str());
    if (result == 0) {
        matches.AppendTo(*names);
    } else if (result != GLOB_NOMATCH) {
        ThrowGlobFailure(result);
    }
    return names;
}

bool Path::IsAbsoluteCrossPlatform(wchar_t const* path, EnumFileDestPlatforms platform) noexcept {
    return IsAbsoluteBy(RulesOf(platform), path);
}

WBase::ReturnWString
Path::CombineCrossPlatform(wchar_t const* first, wchar_t const* second, EnumFileDestPlatforms platform) {
    PathRules const& rules = RulesOf(platform);
    bool const isDriveRootRelative = rules.hasDrives && IsDriveRootRelative(second) && !IsAbsoluteBy(rules, second);
    if (!isDriveRootRelative) {
        return CombineBy(rules, first, second);
    }
    if (!IsAbsoluteBy(rules, first)) {
        return Canonise(rules, second, false);
    }
    return CombineUnconditionally(rules, AbsoluteRootOf(first), second);
}

bool IsDriveRootRelative(wchar_t const* path) noexcept {
    return NATIVE.IsSeparator(*path);
}

std::wstring GetAbsoluteRoot(wchar_t const* path) {
    return std::wstring(AbsoluteRootOf(path));
}

} // namespace WFileSystem
