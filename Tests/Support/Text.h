#ifndef WFILESYSTEM_TESTS_SUPPORT_TEXT_H
#define WFILESYSTEM_TESTS_SUPPORT_TEXT_H

/// \file
/// \brief Wide and narrow text, converted independently of the library.

#include <string>
#include <string_view>
#include <typeinfo>

namespace TestSupport {

/// The wide form of valid UTF-8.
/// \throws std::invalid_argument for anything else
std::wstring Widen(std::string_view text);

/// UTF-8 of a text of Unicode scalar values.
/// \throws std::invalid_argument for other characters
std::string Narrow(std::wstring_view text);

/// As it stands in failures: in quotes, UTF-8, with \n for a line feed and \x{...} for what is not a Unicode scalar
/// value or does not show.
std::string Readable(std::wstring_view text);

/// The name of a type as it is written in a program.
std::string NameOf(std::type_info const& type);

/// The system's words for an error number.
std::wstring ErrorDescription(int error);

} // namespace TestSupport

#endif
