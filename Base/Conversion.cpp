#include <Base/Conversion.h>

#include <Base/Exception.h>
#include <Base/PrivateSource/UTF8.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <cwchar>

namespace WBase {
namespace {

struct Sequence {
    char32_t codePoint;
    unsigned int length;
    bool isValid;
};

/// Reads the sequence at the head of a NUL-terminated text that does not begin with ASCII. Of a bad one, the length is
/// that of the longest beginning that a valid sequence could have, at least 1.
Sequence ReadSequence(char const* text) noexcept {
    auto const byteAt = [text](unsigned int index) { return static_cast<unsigned char>(text[index]); };
    unsigned int const lead = byteAt(0);
    if (lead < 0xC2 || lead > 0xF4) {
        return {0, 1, false};
    }
    unsigned int const length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    // The second byte's bounds keep out overlong forms, surrogates and what lies above U+10FFFF.
    unsigned int lowest = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    unsigned int highest = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    char32_t codePoint = lead & (0x7FU >> length);
    for (unsigned int index = 1; index < length; ++index) {
        unsigned int const byte = byteAt(index);
        if (byte < lowest || byte > highest) {
            return {0, index, false};
        }
        codePoint = codePoint << 6 | (byte & 0x3F);
        lowest = 0x80;
        highest = 0xBF;
    }
    return {codePoint, length, true};
}

/// Writes a code point that is not ASCII; returns the end.
char* WriteSequence(char32_t codePoint, char* out) noexcept {
    auto const put = [&out](char32_t byte) { *out++ = static_cast<char>(byte); };
    if (codePoint < 0x800) {
        put(0xC0 | codePoint >> 6);
        put(0x80 | (codePoint & 0x3F));
    } else if (codePoint < 0x10000) {
        put(0xE0 | codePoint >> 12);
        put(0x80 | (codePoint >> 6 & 0x3F));
        put(0x80 | (codePoint & 0x3F));
    } else {
        put(0xF0 | codePoint >> 18);
        put(0x80 | (codePoint >> 12 & 0x3F));
        put(0x80 | (codePoint >> 6 & 0x3F));
        put(0x80 | (codePoint & 0x3F));
    }
    return out;
}

[[noreturn]] void ThrowConversionFailure(char const* format, unsigned int unit, std::size_t index) {
    char text[128];
    std::snprintf(text, sizeof text, format, unit, index);
    throw StringConversionException(MESSAGE_DOMAIN_ERRNO, EILSEQ, text);
}

} // namespace

std::size_t DecodeUTF8(char const* text, bool lenient, wchar_t* out) {
    wchar_t* end = out;
    for (char const* next = text; *next != '\0';) {
        if (static_cast<unsigned char>(*next) < 0x80) { // most text is nothing else
            *end++ = static_cast<wchar_t>(*next++);
            continue;
        }
        Sequence const sequence = ReadSequence(next);
        if (!sequence.isValid && !lenient) {
            ThrowConversionFailure(
                "Failed to convert UTF-8 text: the byte 0x%X at index %zu does not begin or continue a valid sequence.",
                static_cast<unsigned char>(*next), static_cast<std::size_t>(next - text));
        }
        *end++ = sequence.isValid ? static_cast<wchar_t>(sequence.codePoint) : REPLACEMENT_CHARACTER;
        next += sequence.length;
    }
    *end = L'\0';
    return static_cast<std::size_t>(end - out);
}

ReturnString WideCharToMultiByte(wchar_t const* text, bool flag) {
    return WideCharToUTF8(text, flag);
}

ReturnString WideCharToUTF8(wchar_t const* text, bool /*flag*/) {
    if (text == nullptr) {
        return ReturnString(nullptr);
    }
    constexpr std::size_t LONGEST_SEQUENCE = 4;
    std::unique_ptr<char[]> out(new char[std::wcslen(text) * LONGEST_SEQUENCE + 1]);
    char* end = out.get();
    for (wchar_t const* next = text; *next != L'\0'; ++next) {
        if (static_cast<char32_t>(*next) < 0x80) { // most text is nothing else
            *end++ = static_cast<char>(*next);
            continue;
        }
        if (!IsScalarValue(*next)) {
            ThrowConversionFailure(
                "Failed to convert wide text: the character U+%X at index %zu is not a Unicode scalar value.",
                static_cast<unsigned int>(*next), static_cast<std::size_t>(next - text));
        }
        end = WriteSequence(static_cast<char32_t>(*next), end);
    }
    *end = '\0';
    auto const size = static_cast<unsigned long>(end - out.get());
    return ReturnString(std::move(out), size);
}

ReturnWString MultiByteToWideChar(char const* text, bool /*flag*/) {
    return UTF8ToWideChar(text, false);
}

ReturnWString UTF8ToWideChar(char const* text, bool lenient) {
    if (text == nullptr) {
        return ReturnWString(nullptr);
    }
    std::unique_ptr<wchar_t[]> out(new wchar_t[std::strlen(text) + 1]);
    unsigned long const size = DecodeUTF8(text, lenient, out.get());
    return ReturnWString(std::move(out), size);
}

} // namespace WBase
