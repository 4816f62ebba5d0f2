#ifndef WFILESYSTEM_BASE_PRIVATESOURCE_UTF8_H
#define WFILESYSTEM_BASE_PRIVATESOURCE_UTF8_H

#include <cstddef>

namespace WBase {

constexpr wchar_t REPLACEMENT_CHARACTER = 0xFFFD;

/// True for what UTF-8 can express: every code point but the surrogates.
constexpr bool IsScalarValue(wchar_t character) noexcept {
    auto const codePoint = static_cast<char32_t>(character);
    return codePoint < 0xD800 || (codePoint > 0xDFFF && codePoint <= 0x10FFFF);
}

/// Decodes `text` into `out`, which has room for a character for each byte and for the NUL that this writes as well.
/// \return the number of characters before the NUL
/// \throws as UTF8ToWideChar
std::size_t DecodeUTF8(char const* text, bool lenient, wchar_t* out);

} // namespace WBase

#endif
