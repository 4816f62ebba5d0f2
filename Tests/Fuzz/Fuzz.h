#ifndef WFILESYSTEM_TESTS_FUZZ_FUZZ_H
#define WFILESYSTEM_TESTS_FUZZ_FUZZ_H

/// \file
/// \brief What the fuzz targets share.

#include <Base/Message.h>
#include <Tests/Support/Text.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

/// What a target does with one input. It returns when all is well and aborts otherwise.
extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace Fuzz {

inline std::string Shown(std::wstring_view text) {
    return TestSupport::Readable(text);
}

inline std::string Shown(std::string_view text) {
    // Each byte by itself: it need not be UTF-8.
    return TestSupport::Readable(std::wstring(
        reinterpret_cast<unsigned char const*>(text.data()),
        reinterpret_cast<unsigned char const*>(text.data()) + text.size()));
}

inline std::string Shown(long long number) {
    return std::to_string(number);
}

/// Ends the process when a statement does not hold.
inline void Require(bool isTrue, std::string const& statement) {
    if (!isTrue) {
        std::fprintf(stderr, "Does not hold: %s\n", statement.c_str());
        std::abort();
    }
}

/// Ends the process when two values, both texts or both numbers, differ.
template <class Value>
void RequireEqual(Value const& actual, Value const& expected, char const* what) {
    if (!(actual == expected)) {
        std::fprintf(stderr, "%s is %s, not %s\n", what, Shown(actual).c_str(), Shown(expected).c_str());
        std::abort();
    }
}

/// The message that the action throws.
template <class Failure = WBase::Message, class Action>
Failure FailureOf(Action action, char const* what) {
    try {
        action();
    } catch (Failure const& failure) {
        return failure;
    }
    Require(false, std::string(what) + " fails");
    std::abort();
}

/// An input, taken piece by piece. At its end come zeros and empty texts.
class Input {
public:
    Input(std::uint8_t const* data, std::size_t size) : rest_(reinterpret_cast<char const*>(data), size) {}

    bool IsEmpty() const { return rest_.empty(); }

    unsigned int Byte() {
        std::string const byte = Bytes(1);
        return byte.empty() ? 0 : static_cast<unsigned char>(byte[0]);
    }

    std::string Bytes(std::size_t count) {
        std::string const bytes(rest_.substr(0, count));
        rest_.remove_prefix(bytes.size());
        return bytes;
    }

    /// All up to the next line feed, which vanishes, without what stands behind a NUL.
    std::string Line() {
        std::string line = Bytes(std::min(rest_.find('\n'), rest_.size()));
        Bytes(1);
        return line.substr(0, line.find('\0'));
    }

    std::string Rest() { return Bytes(rest_.size()); }

    /// One of the letters. In a seed it stands as itself; any other byte stands for one as well.
    char OneOf(std::string_view letters) {
        auto const byte = static_cast<char>(Byte());
        bool const isLetter = letters.find(byte) != std::string_view::npos;
        return isLetter ? byte : letters[static_cast<unsigned char>(byte) % letters.size()];
    }

private:
    std::string_view rest_;
};

/// Each byte as a character.
inline std::wstring Widened(std::string const& text) {
    return std::wstring(
        reinterpret_cast<unsigned char const*>(text.data()),
        reinterpret_cast<unsigned char const*>(text.data()) + text.size());
}

/// A directory in TMPDIR, or in /tmp, which is removed when the process exits.
class Scratch {
public:
    Scratch() {
        char const* const parent = std::getenv("TMPDIR");
        path_ = std::string(parent != nullptr ? parent : "/tmp") + "/WFileSystemFuzz.XXXXXX";
        Require(::mkdtemp(path_.data()) != nullptr, "a scratch directory can be made in TMPDIR");
    }
    Scratch(Scratch const&) = delete;
    Scratch& operator=(Scratch const&) = delete;
    ~Scratch() {
        std::error_code ignored;
        std::filesystem::remove_all(path_, ignored);
    }

    std::string operator/(std::string const& name) const { return path_ + '/' + name; }
    std::string const& Path() const { return path_; }

private:
    std::string path_;
};

} // namespace Fuzz

#endif
