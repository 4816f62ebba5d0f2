// Paths: what is combined equals the model, is canonical, fits its bounds, and is cut into the parts it should be.

#include <FileSystem/Path.h>
#include <Tests/Fuzz/Fuzz.h>
#include <Tests/PathModel.h>

#include <cwchar>

using Fuzz::Require;
using Fuzz::RequireEqual;
using WFileSystem::Path;

namespace {

std::wstring Text(WBase::ReturnWString const& text) {
    RequireEqual<long long>(
        static_cast<long long>(text.size()), static_cast<long long>(std::wcslen(text.c_str())), "the size");
    return text.c_str();
}

/// Combines natively or for a platform.
class Combiner {
public:
    Combiner() : rules_(PathModel::Native()) {}
    explicit Combiner(EnumFileDestPlatforms platform)
        : isNative_(false), platform_(platform), rules_(PathModel::RulesOf(platform)) {}

    std::wstring Combine(std::wstring const& first, std::wstring const& second) const {
        return Text(
            isNative_ ? Path::Combine(first.c_str(), second.c_str())
                      : Path::CombineCrossPlatform(first.c_str(), second.c_str(), platform_));
    }

    void Check(std::wstring const& first, std::wstring const& second) const {
        std::wstring const combined = Combine(first, second);
        RequireEqual(combined, PathModel::Combine(first, second, rules_), "the combined path");
        Require(combined.size() <= first.size() + second.size() + 2, "a combined path has at most two more characters");
        for (wchar_t const character : combined) {
            Require(
                (first + second + rules_.separator + L".").find(character) != std::wstring::npos,
                "a combined path has no characters of its own");
        }
        // Read again, a network path that began with slashes is absolute, and loses what would climb above its share.
        bool const isClimbingOut = rules_.isWindows && combined.rfind(L"\\\\..\\..\\..", 0) == 0;
        if (!isClimbingOut) {
            RequireEqual(Combine(combined, L""), combined, "the combined path, combined with nothing,");
        }
        if (!isNative_) {
            Require(
                Path::IsAbsoluteCrossPlatform(first.c_str(), platform_) == PathModel::IsAbsolute(first, rules_),
                "the path is absolute where the model's is");
        }
    }

private:
    bool isNative_ = true;
    EnumFileDestPlatforms platform_ = FileDestPlatformPosix;
    PathModel::Rules rules_;
};

void RequireCuts(std::wstring const& path) {
    wchar_t const* const text = path.c_str();
    std::size_t const slash = path.rfind(L'/');
    std::wstring const basename = Text(Path::GetBasename(text));
    std::wstring const dirname = Text(Path::GetDirname(text));
    if (slash == std::wstring::npos) {
        RequireEqual<std::wstring>(dirname, L".", "the directory's name");
        RequireEqual(basename, path, "the basename");
    } else {
        RequireEqual(dirname + L'/' + basename, path, "directory and basename, joined,");
        Require(basename.find(L'/') == std::wstring::npos, "a basename has no slash");
    }

    std::wstring const stem = Text(Path::GetBasenameWithoutExtension(text));
    std::wstring const suffix = basename.substr(std::min(stem.size(), basename.size()));
    RequireEqual(stem + suffix, basename, "stem and suffix, joined,");
    Require(
        suffix.empty() ? basename.find(L'.') == std::wstring::npos
                       : suffix[0] == L'.' && suffix.find(L'.', 1) == std::wstring::npos,
        "the suffix is what stands from the last dot on");

    std::wstring extension;
    std::size_t const dot = path.rfind(L'.');
    for (std::size_t i = dot + 1; dot != std::wstring::npos && i < path.size(); ++i) {
        bool const isSpace = (path[i] >= 9 && path[i] <= 13) || path[i] == 32 || path[i] == 0x85;
        if (isSpace) {
            break;
        }
        extension += path[i];
    }
    RequireEqual(Text(Path::GetExtension(text)), extension, "the extension");

    std::wstring parent = path.substr(0, path.empty() ? 0 : path.size() - 1);
    while (!parent.empty() && parent.back() != L'/' && parent.back() != L'\\') {
        parent.pop_back();
    }
    RequireEqual(Text(Path::GetParent(text)), parent, "the parent");
}

void RequireRoots(std::wstring const& path) {
    wchar_t const* const text = path.c_str();
    auto const windows = PathModel::RulesOf(FileDestPlatformWindows);
    Require(Path::IsAbsolute(text) == (path.rfind(L'/', 0) == 0), "a leading slash makes a path absolute");
    Require(
        WFileSystem::IsDriveRootRelative(text) == (path.find_first_of(L"/\\") == 0),
        "a leading separator starts at the drive's root");
    RequireEqual(
        WFileSystem::GetAbsoluteRoot(text),
        PathModel::IsAbsolute(path, windows) ? PathModel::RootOf(path) : std::wstring(), "the absolute root");

    std::wstring internal = path;
    if (path.rfind(L"\\\\", 0) == 0) {
        internal.erase(0, 1);
        std::replace(internal.begin(), internal.end(), L'\\', L'/');
    }
    RequireEqual(Text(Path::Internalize(text)), internal, "the internalised path");

    static std::wstring const directory = std::filesystem::current_path().wstring();
    RequireEqual(
        Text(Path::ToAbsolute(text)),
        Path::IsAbsolute(text) ? path : PathModel::Combine(directory, path, PathModel::Native()), "the absolute path");
}

} // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Fuzz::Input input(data, size);
    auto const otherPlatform = static_cast<EnumFileDestPlatforms>(2 + input.Byte());
    std::string const narrowFirst = input.Line();
    std::wstring const first = Fuzz::Widened(narrowFirst);
    std::wstring const second = Fuzz::Widened(input.Line());

    Combiner const native;
    Combiner const posix(FileDestPlatformPosix);
    for (Combiner const& combiner : {native, posix, Combiner(FileDestPlatformWindows), Combiner(otherPlatform)}) {
        combiner.Check(first, second);
    }
    if ((first + second).find(L'\\') == std::wstring::npos) {
        RequireEqual(
            native.Combine(first, second), posix.Combine(first, second), "the native path without backslashes");
    }
    for (std::wstring const& path : {first, second}) {
        RequireCuts(path);
        RequireRoots(path);
    }
    std::string const narrowBasename = Path::GetBasename(narrowFirst.c_str());
    RequireEqual(Fuzz::Widened(narrowBasename), Text(Path::GetBasename(first.c_str())), "the narrow basename");
    return 0;
}
