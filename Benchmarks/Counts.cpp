// Counts DIRECTORY counts what does not depend on the machine's speed. By itself it prints the bytes that an open file
// takes; under valgrind's callgrind, with --collect-atstart=no, it makes one dump for each path operation, named after
// it, with the instructions of one call.

#include <FileSystem/Initializer.h>
#include <FileSystem/Path.h>
#include <FileSystem/ReadableFile.h>
#include <FileSystem/UpdateableFile.h>
#include <FileSystem/WriteableFile.h>

#include <cstdio>
#include <cstdlib>
#include <new>
#include <string>
#include <unistd.h>
#include <valgrind/callgrind.h>

namespace {

/// The bytes that were asked for and not given back, as far as `operator new` saw them.
unsigned long bytes = 0;
bool isCounting = false;

using WFileSystem::Path;

std::wstring Repeat(std::wstring const& piece, unsigned long count) {
    std::wstring path;
    for (; count > 0; --count) {
        path += piece;
    }
    return path;
}

template <class Operation>
void CountInstructions(std::string const& name, Operation operation) {
    operation(); // what is linked and allocated at the first call only, is
    CALLGRIND_ZERO_STATS;
    CALLGRIND_TOGGLE_COLLECT;
    operation();
    CALLGRIND_TOGGLE_COLLECT;
    CALLGRIND_DUMP_STATS_AT(name.c_str());
}

/// Brings a path to canonical form, natively and for both platforms.
void CountCanonicalForms(std::string const& name, std::wstring const& path) {
    CountInstructions(name + " native", [&] { Path::Combine(path.c_str(), L""); });
    CountInstructions(name + " POSIX", [&] { Path::CombineCrossPlatform(path.c_str(), L"", FileDestPlatformPosix); });
    CountInstructions(
        name + " Windows", [&] { Path::CombineCrossPlatform(path.c_str(), L"", FileDestPlatformWindows); });
}

void CountPathOperations() {
    static constexpr wchar_t PATH[] = L"/home/user/project/source.cpp";
    CountInstructions("Combine", [] { Path::Combine(L"/home/user/project", L"../other/./source.cpp"); });
    CountInstructions("CombineCrossPlatform POSIX", [] {
        Path::CombineCrossPlatform(L"/home/user/project", L"../other/./source.cpp", FileDestPlatformPosix);
    });
    CountInstructions("CombineCrossPlatform Windows", [] {
        Path::CombineCrossPlatform(L"C:\\home\\user\\project", L"..\\other\\.\\source.cpp", FileDestPlatformWindows);
    });
    CountInstructions("ToAbsolute", [] { Path::ToAbsolute(PATH); });
    CountInstructions("GetParent", [] { Path::GetParent(PATH); });
    CountInstructions("GetDirname", [] { Path::GetDirname(PATH); });
    CountInstructions("GetBasename", [] { Path::GetBasename(PATH); });
    CountInstructions("GetBasenameWithoutExtension", [] { Path::GetBasenameWithoutExtension(PATH); });
    CountInstructions("GetExtension", [] { Path::GetExtension(PATH); });
    CountInstructions("Internalize", [] { Path::Internalize(L"\\\\server\\share\\file"); });
    CountInstructions("IsAbsolute", [] { Path::IsAbsolute(PATH); });
    CountInstructions(
        "IsAbsoluteCrossPlatform Windows", [] { Path::IsAbsoluteCrossPlatform(PATH, FileDestPlatformWindows); });
    CountInstructions("GetAbsoluteRoot", [] { WFileSystem::GetAbsoluteRoot(L"\\\\server\\share\\file"); });

    for (unsigned long const parts : {10000UL, 100000UL}) {
        std::string const name = "canonical " + std::to_string(parts) + ' ';
        CountCanonicalForms(name + "names", Repeat(L"a/", parts));
        CountCanonicalForms(name + "pairs", Repeat(L"a/../", parts / 2));
        CountCanonicalForms(name + "halves", Repeat(L"a/", parts / 2) + Repeat(L"../", parts / 2));
        CountCanonicalForms(name + "climbs", Repeat(L"../", parts));
        CountCanonicalForms(name + "nothing", Repeat(L"./", parts));
    }
}

template <class Open>
void PrintBytes(char const* name, Open open) {
    bytes = 0;
    isCounting = true;
    auto const file = open();
    isCounting = false;
    std::printf("%s %lu\n", name, bytes);
}

/// Bytes are counted for a path that hardly takes any: it stands in the object itself.
void PrintBytesOfFileObjects() {
    using namespace WFileSystem;
    static constexpr wchar_t PATH[] = L"f";
    PrintBytes("writeable", [] { return OpenWriteableFile(PATH, KEEP_FILE); });
    PrintBytes("updateable", [] { return OpenUpdateableFile(PATH, KEEP_FILE); });
    PrintBytes("readable", [] { return OpenReadableFile(PATH); });
}

/// A block remembers its size in front of itself.
constexpr std::size_t HEADER = 16;

void* Allocate(std::size_t size) {
    auto* const block = static_cast<char*>(std::malloc(size + HEADER));
    if (block == nullptr) {
        throw std::bad_alloc();
    }
    *reinterpret_cast<std::size_t*>(block) = isCounting ? size : 0;
    bytes += isCounting ? size : 0;
    return block + HEADER;
}

void Release(void* memory) noexcept {
    if (memory != nullptr) {
        char* const block = static_cast<char*>(memory) - HEADER;
        bytes -= isCounting ? *reinterpret_cast<std::size_t*>(block) : 0;
        std::free(block);
    }
}

} // namespace

void* operator new(std::size_t size) {
    return Allocate(size);
}
void* operator new[](std::size_t size) {
    return Allocate(size);
}
void operator delete(void* memory) noexcept {
    Release(memory);
}
void operator delete[](void* memory) noexcept {
    Release(memory);
}
void operator delete(void* memory, std::size_t /*size*/) noexcept {
    Release(memory);
}
void operator delete[](void* memory, std::size_t /*size*/) noexcept {
    Release(memory);
}

int main(int count, char** arguments) {
    if (count != 2 || ::chdir(arguments[1]) != 0) {
        std::fprintf(stderr, "usage: %s DIRECTORY\n", arguments[0]);
        return 2;
    }
    WFileSystem::Initializer const initializer;
    if (RUNNING_ON_VALGRIND != 0) {
        CountPathOperations();
    } else {
        PrintBytesOfFileObjects();
    }
    return 0;
}
