#ifndef WFILESYSTEM_BASE_CONVERSION_H
#define WFILESYSTEM_BASE_CONVERSION_H

/// \file
/// \brief Conversions between wide and narrow text.
///
/// Wide text holds one code point a character. Narrow text is UTF-8 whatever the locale says, so that a path means the
/// same file in every process; the system's multi-byte encoding and UTF-8 are therefore one.
///
/// The conversions are strict: a surrogate, a code point above U+10FFFF, and an overlong, malformed or truncated
/// sequence are refused. A null pointer counts as the empty string.
///
/// \par Threads
///     Any thread, at any time.

#include <Base/ReturnString.h>
#include <Defines/Export.h>

namespace WBase {

/// Converts a wide text to the system's multi-byte encoding. The flag changes nothing.
/// \throws WBase::StringConversionException domain MESSAGE_DOMAIN_ERRNO, ID `EILSEQ`, text "Failed to convert wide
///     text: the character U+%X at index %I is not a Unicode scalar value." with the character in hexadecimal and its
///     index from 0.
/// \throws std::bad_alloc
WFILESYSTEM_EXPORT ReturnString WideCharToMultiByte(wchar_t const* text, bool flag);

/// Converts a wide text to UTF-8. The flag changes nothing.
/// \throws WBase::StringConversionException as WideCharToMultiByte
/// \throws std::bad_alloc
WFILESYSTEM_EXPORT ReturnString WideCharToUTF8(wchar_t const* text, bool flag);

/// Converts a text in the system's multi-byte encoding. The flag changes nothing.
/// \throws WBase::StringConversionException domain MESSAGE_DOMAIN_ERRNO, ID `EILSEQ`, text "Failed to convert UTF-8
///     text: the byte 0x%X at index %I does not begin or continue a valid sequence." with the first byte of the bad
///     sequence in hexadecimal and its index from 0.
/// \throws std::bad_alloc
WFILESYSTEM_EXPORT ReturnWString MultiByteToWideChar(char const* text, bool flag);

/// Converts a UTF-8 text.
/// \param text the text to convert
/// \param lenient true: each bad sequence (the longest beginning of a valid one, or else one byte) becomes U+FFFD, so
///     that a report can always be built; false: as MultiByteToWideChar
/// \throws WBase::StringConversionException as MultiByteToWideChar, unless `lenient`
/// \throws std::bad_alloc
WFILESYSTEM_EXPORT ReturnWString UTF8ToWideChar(char const* text, bool lenient);

} // namespace WBase

#endif
