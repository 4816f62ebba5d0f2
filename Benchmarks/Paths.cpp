// Combining paths and bringing them to canonical form. No file is touched.

#include <Benchmarks/Others.h>

#include <FileSystem/Path.h>

#include <cstdlib>
#include <cwchar>
#include <memory>
#include <unistd.h>

namespace Benchmarks {
namespace {

struct Free {
    void operator()(void* memory) const { std::free(memory); }
};

using RawPath = std::unique_ptr<wchar_t[], Free>;

/// Joins two paths, the first absolute, and brings the result to canonical form, as one would in C.
/// \param separators what separates parts; the first is produced
/// \param root how many characters of the first path no ".." takes away: 1, or 3 with a drive
RawPath CombineRaw(wchar_t const* first, wchar_t const* second, wchar_t const (&separators)[2], std::size_t root) {
    RawPath memory(
        static_cast<wchar_t*>(std::malloc((std::wcslen(first) + std::wcslen(second) + 2) * sizeof(wchar_t))));
    wchar_t* const out = memory.get();
    for (std::size_t index = 0; index < root; ++index) {
        out[index] = first[index];
    }
    out[root - 1] = separators[0];
    wchar_t* const begin = out + root;
    wchar_t* end = begin; // behind the last part, or behind the root
    auto const isSeparator = [&](wchar_t character) {
        return character == separators[0] || character == separators[1];
    };
    for (wchar_t const* next : {first + root, second}) {
        while (*next != L'\0') {
            wchar_t const* const part = next;
            while (*next != L'\0' && !isSeparator(*next)) {
                ++next;
            }
            auto const size = static_cast<std::size_t>(next - part);
            if (*next != L'\0') {
                ++next;
            }
            if (size == 0 || (size == 1 && part[0] == L'.')) {
                continue;
            }
            if (size == 2 && part[0] == L'.' && part[1] == L'.') {
                while (end > begin && *--end != separators[0]) {
                }
                continue;
            }
            if (end > begin) {
                *end++ = separators[0];
            }
            std::wmemcpy(end, part, size);
            end += size;
        }
    }
    *end = L'\0';
    return memory;
}

constexpr wchar_t NATIVE[] = {L'/', L'\\'};
constexpr wchar_t POSIX[] = {L'/', L'/'};
constexpr wchar_t WINDOWS[] = {L'\\', L'/'};

struct Pair {
    Name first;
    Name second;
    Name result;
};

Pair ShortPair(std::string const& root) {
    return {Name(root + "home/user/project"), Name("../other/./source.cpp"), Name("/home/user/other/source.cpp")};
}

/// 40 parts in all, of which the second path's take away some.
Pair LongPair(std::string const& root) {
    std::string first = root + "directory";
    std::string result = "/directory";
    for (int count = 1; count < 30; ++count) {
        first += "/directory";
        if (count < 25) {
            result += "/directory";
        }
    }
    return {Name(first), Name("../../../../../one/two/three/four/file"), Name(result + "/one/two/three/four/file")};
}

void AddNativeCombination(std::string const& operation, Pair const& pair) {
    AddPrepared(operation + "/raw", [pair] {
        Require(pair.result.wide == CombineRaw(pair.first.Wide(), pair.second.Wide(), NATIVE, 1).get());
        return [pair] { benchmark::DoNotOptimize(CombineRaw(pair.first.Wide(), pair.second.Wide(), NATIVE, 1).get()); };
    });
    AddPrepared(operation + "/wfs", [pair] {
        using WFileSystem::Path;
        Require(pair.result.wide == Path::Combine(pair.first.Wide(), pair.second.Wide()).c_str());
        return [pair] { benchmark::DoNotOptimize(Path::Combine(pair.first.Wide(), pair.second.Wide()).c_str()); };
    });
    // The others are given their paths in the form that they prefer.
    AddPrepared(operation + "/std", [pair] {
        std::filesystem::path const first(pair.first.narrow);
        std::filesystem::path const second(pair.second.narrow);
        Require((first / second).lexically_normal() == pair.result.narrow);
        return [first, second] { benchmark::DoNotOptimize((first / second).lexically_normal()); };
    });
#if WITH_BOOST
    AddPrepared(operation + "/boost", [pair] {
        boost::filesystem::path const first(pair.first.narrow);
        boost::filesystem::path const second(pair.second.narrow);
        Require((first / second).lexically_normal() == pair.result.narrow);
        return [first, second] { benchmark::DoNotOptimize((first / second).lexically_normal()); };
    });
#endif
#if WITH_POCO
    AddPrepared(operation + "/poco", [pair] {
        // Only parsing cancels parts.
        auto const combine = [pair] { return Poco::Path(pair.first.narrow + '/' + pair.second.narrow).toString(); };
        Require(combine() == pair.result.narrow);
        return [combine] { benchmark::DoNotOptimize(combine()); };
    });
#endif
#if WITH_GLIB
    AddPrepared(operation + "/glib", [pair] {
        using Text = std::unique_ptr<char, decltype(&g_free)>;
        auto const combine = [pair] {
            return Text(g_canonicalize_filename(pair.second.Narrow(), pair.first.Narrow()), g_free);
        };
        Require(combine().get() == pair.result.narrow);
        return [combine] { benchmark::DoNotOptimize(combine().get()); };
    });
#endif
#if WITH_APR
    AddPrepared(operation + "/apr", [pair] {
        return [pair, pool = std::make_unique<Pool>()] {
            char* result = nullptr;
            Require(
                apr_filepath_merge(&result, pair.first.Narrow(), pair.second.Narrow(), 0, pool->Get()) == APR_SUCCESS);
            benchmark::DoNotOptimize(result);
            pool->Clear();
        };
    });
#endif
#if WITH_QT
    AddPrepared(operation + "/qt", [pair] {
        QString const first = ToQt(pair.first);
        QString const second = ToQt(pair.second);
        Require(QDir::cleanPath(first + QLatin1Char('/') + second) == ToQt(pair.result));
        return [first, second] { benchmark::DoNotOptimize(QDir::cleanPath(first + QLatin1Char('/') + second)); };
    });
#endif
}

void AddCombinationFor(
    std::string const& operation, EnumFileDestPlatforms platform, wchar_t const (&separators)[2], Pair const& pair) {
    std::size_t const root = platform == FileDestPlatformWindows ? 3 : 1;
    Add(operation + "/raw", [=, &separators] {
        benchmark::DoNotOptimize(CombineRaw(pair.first.Wide(), pair.second.Wide(), separators, root).get());
    });
    AddPrepared(operation + "/wfs", [=, &separators] {
        auto const combine = [=] {
            return WFileSystem::Path::CombineCrossPlatform(pair.first.Wide(), pair.second.Wide(), platform);
        };
        std::wstring const result = CombineRaw(pair.first.Wide(), pair.second.Wide(), separators, root).get();
        Require(combine().c_str() == result);
        return [combine] { benchmark::DoNotOptimize(combine().c_str()); };
    });
#if WITH_POCO
    auto const style = platform == FileDestPlatformWindows ? Poco::Path::PATH_WINDOWS : Poco::Path::PATH_UNIX;
    Add(operation + "/poco", [=] {
        benchmark::DoNotOptimize(Poco::Path(pair.first.narrow + '/' + pair.second.narrow, style).toString(style));
    });
#endif
}

void AddAbsolute() {
    Name const relative("directory/../file");
    Add("make_absolute/raw", [relative] {
        char narrow[1024];
        Require(::getcwd(narrow, sizeof narrow) != nullptr);
        wchar_t wide[sizeof narrow];
        wchar_t* end = wide;
        for (char const* next = narrow; (*end = static_cast<unsigned char>(*next)) != L'\0'; ++next) {
            ++end;
        }
        benchmark::DoNotOptimize(CombineRaw(wide, relative.Wide(), NATIVE, 1).get());
    });
    Add("make_absolute/wfs",
        [relative] { benchmark::DoNotOptimize(WFileSystem::Path::ToAbsolute(relative.Wide()).c_str()); });
    AddPrepared("make_absolute/std", [relative] {
        return [path = std::filesystem::path(relative.narrow)] {
            benchmark::DoNotOptimize(std::filesystem::absolute(path).lexically_normal());
        };
    });
#if WITH_BOOST
    AddPrepared("make_absolute/boost", [relative] {
        return [path = boost::filesystem::path(relative.narrow)] {
            benchmark::DoNotOptimize(boost::filesystem::absolute(path).lexically_normal());
        };
    });
#endif
#if WITH_POCO
    AddPrepared("make_absolute/poco", [relative] {
        return [path = Poco::Path(relative.narrow)] { benchmark::DoNotOptimize(path.absolute().toString()); };
    });
#endif
#if WITH_GLIB
    Add("make_absolute/glib", [relative] {
        char* const result = g_canonicalize_filename(relative.Narrow(), nullptr);
        benchmark::DoNotOptimize(result);
        g_free(result);
    });
#endif
#if WITH_APR
    AddPrepared("make_absolute/apr", [relative] {
        return [relative, pool = std::make_unique<Pool>()] {
            char* result = nullptr;
            Require(apr_filepath_merge(&result, nullptr, relative.Narrow(), 0, pool->Get()) == APR_SUCCESS);
            benchmark::DoNotOptimize(result);
            pool->Clear();
        };
    });
#endif
#if WITH_QT
    AddPrepared("make_absolute/qt", [relative] {
        return
            [path = ToQt(relative)] { benchmark::DoNotOptimize(QDir::cleanPath(QFileInfo(path).absoluteFilePath())); };
    });
#endif
}

} // namespace

void AddPaths() {
    AddNativeCombination("combine_short", ShortPair("/"));
    AddNativeCombination("combine_40_parts", LongPair("/"));
    AddCombinationFor("combine_short_for_POSIX", FileDestPlatformPosix, POSIX, ShortPair("/"));
    AddCombinationFor("combine_40_parts_for_POSIX", FileDestPlatformPosix, POSIX, LongPair("/"));
    AddCombinationFor("combine_short_for_Windows", FileDestPlatformWindows, WINDOWS, ShortPair("C:/"));
    AddCombinationFor("combine_40_parts_for_Windows", FileDestPlatformWindows, WINDOWS, LongPair("C:/"));
    AddAbsolute();
}

} // namespace Benchmarks
