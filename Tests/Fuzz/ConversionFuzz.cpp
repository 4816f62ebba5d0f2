// The conversions: which texts they take, what they make of them, and how they refuse the others.

#include <Base/Conversion.h>
#include <Base/Exception.h>
#include <Tests/Fuzz/Fuzz.h>

#include <cerrno>
#include <cwchar>
#include <vector>

using Fuzz::FailureOf;
using Fuzz::Require;
using Fuzz::RequireEqual;
using WBase::StringConversionException;

namespace {

/// An independent reader of UTF-8. It reasons with ranges of numbers: the beginning of a sequence stands for all
/// numbers that it can still become.
namespace Model {

constexpr unsigned long NO_LENGTH = 0;

unsigned long LengthAfter(unsigned char lead) {
    unsigned long ones = 0;
    while (ones < 8 && (lead >> (7 - ones) & 1) != 0) {
        ++ones;
    }
    return ones == 0 ? 1 : ones >= 2 && ones <= 4 ? ones : NO_LENGTH;
}

/// Whether some number from `low` to `high` is a scalar value that needs so many bytes.
bool HoldsCharacter(unsigned long length, unsigned long low, unsigned long high) {
    static constexpr struct {
        unsigned long length, low, high;
    } RANGES[] = {{1, 0, 0x7F}, {2, 0x80, 0x7FF}, {3, 0x800, 0xD7FF}, {3, 0xE000, 0xFFFF}, {4, 0x10000, 0x10FFFF}};
    for (auto const& range : RANGES) {
        if (range.length == length && low <= range.high && high >= range.low) {
            return true;
        }
    }
    return false;
}

struct Character {
    wchar_t value; // of a bad sequence: U+FFFD
    unsigned long size;
    bool isGood;
};

Character First(std::string_view text) {
    auto const lead = static_cast<unsigned char>(text[0]);
    unsigned long const length = LengthAfter(lead);
    Character const bad = {0xFFFD, 1, false};
    if (length == NO_LENGTH) {
        return bad;
    }
    unsigned long value = length == 1 ? lead : lead % (1UL << (7 - length));
    unsigned long taken = 1;
    for (;; ++taken) {
        unsigned long const open = 6 * (length - taken); // bits
        if (!HoldsCharacter(length, value << open, (value << open) + (1UL << open) - 1)) {
            return {0xFFFD, std::max(taken - 1, 1UL), false}; // what stands before the last byte could go on
        }
        if (taken == length) {
            return {static_cast<wchar_t>(value), length, true};
        }
        if (taken == text.size() || static_cast<unsigned char>(text[taken]) / 64 != 2) {
            return {0xFFFD, taken, false};
        }
        value = value * 64 + static_cast<unsigned char>(text[taken]) % 64;
    }
}

} // namespace Model

std::wstring Text(WBase::ReturnWString const& text) {
    RequireEqual<long long>(
        static_cast<long long>(text.size()), static_cast<long long>(std::wcslen(text.c_str())), "the size");
    return text.c_str();
}

std::string Text(WBase::ReturnString const& text) {
    RequireEqual<long long>(
        static_cast<long long>(text.size()), static_cast<long long>(std::strlen(text.c_str())), "the size");
    return text.c_str();
}

void RequireFailure(
    StringConversionException const& failure, char const* format, unsigned int unit, std::size_t index) {
    char text[200];
    std::snprintf(text, sizeof text, format, unit, index);
    RequireEqual<std::string_view>(failure.what(), text, "the failure's text");
    Require(failure.GetDomain() == WBase::MESSAGE_DOMAIN_ERRNO && failure.GetID() == EILSEQ, "the failure is EILSEQ");
}

void DecodeNarrow(std::string const& text) {
    std::wstring decoded;
    std::size_t badIndex = std::string::npos;
    for (std::size_t index = 0; index < text.size();) {
        Model::Character const character = Model::First(std::string_view(text).substr(index));
        if (!character.isGood) {
            badIndex = std::min(badIndex, index);
        }
        decoded += character.value;
        index += character.size;
    }
    RequireEqual(Text(WBase::UTF8ToWideChar(text.c_str(), true)), decoded, "the text, decoded leniently,");

    using Conversion = WBase::ReturnWString (*)(char const*, bool);
    struct {
        Conversion convert;
        bool flag;
    } const strict[] = {
        {WBase::UTF8ToWideChar, false}, {WBase::MultiByteToWideChar, false}, {WBase::MultiByteToWideChar, true}};
    for (auto const& conversion : strict) {
        auto const convert = [&] { return conversion.convert(text.c_str(), conversion.flag); };
        if (badIndex == std::string::npos) {
            RequireEqual(Text(convert()), decoded, "the decoded text");
        } else {
            RequireFailure(
                FailureOf<StringConversionException>(convert, "decoding a bad text"),
                "Failed to convert UTF-8 text: the byte 0x%X at index %zu does not begin or continue a valid sequence.",
                static_cast<unsigned char>(text[badIndex]), badIndex);
        }
    }
    if (badIndex == std::string::npos) {
        RequireEqual(Text(WBase::WideCharToUTF8(decoded.c_str(), false)), text, "the text, decoded and encoded,");
    }
}

void EncodeWide(std::wstring const& text) {
    auto const isBad = [](wchar_t character) {
        auto const value = static_cast<unsigned int>(character);
        return value / 0x800 == 0x1B || value >= 0x110000; // surrogates are 0x1B * 0x800 and what follows
    };
    auto const bad = std::find_if(text.begin(), text.end(), isBad);
    using Conversion = WBase::ReturnString (*)(wchar_t const*, bool);
    for (Conversion const conversion : {WBase::WideCharToUTF8, WBase::WideCharToMultiByte}) {
        for (bool const flag : {false, true}) {
            auto const convert = [&] { return conversion(text.c_str(), flag); };
            if (bad == text.end()) {
                std::string const encoded = Text(convert());
                RequireEqual(encoded, TestSupport::Narrow(text), "the encoded text");
                RequireEqual(
                    Text(WBase::MultiByteToWideChar(encoded.c_str(), false)), text, "the text, encoded and decoded,");
            } else {
                RequireFailure(
                    FailureOf<StringConversionException>(convert, "encoding a bad text"),
                    "Failed to convert wide text: the character U+%X at index %zu is not a Unicode scalar value.",
                    static_cast<unsigned int>(*bad), static_cast<std::size_t>(bad - text.begin()));
            }
        }
    }
}

} // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    std::string const bytes(reinterpret_cast<char const*>(data), size);
    DecodeNarrow(bytes.substr(0, bytes.find('\0')));

    // The same bytes as characters of four bytes each, and as the code points that a lenient reader would see.
    std::wstring wide(size / sizeof(wchar_t), L'\0');
    std::memcpy(wide.data(), bytes.data(), wide.size() * sizeof(wchar_t));
    EncodeWide(wide.substr(0, wide.find(L'\0')));
    for (wchar_t& character : wide) {
        character = static_cast<wchar_t>(static_cast<unsigned int>(character) % 0x120000);
    }
    EncodeWide(wide.substr(0, wide.find(L'\0')));
    return 0;
}
