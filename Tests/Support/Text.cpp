#include <Tests/Support/Text.h>

#include <memory>
#include <stdexcept>
#include <system_error>

#include <cstdio>
#include <cstdlib>
#include <cxxabi.h>

namespace TestSupport {
namespace {

bool IsScalarValue(unsigned long character) {
    return character < 0xD800 || (character > 0xDFFF && character <= 0x10FFFF);
}

// How many bytes UTF-8 needs.
unsigned int LengthOf(unsigned long character) {
    return character < 0x80 ? 1 : character < 0x800 ? 2 : character < 0x10000 ? 3 : 4;
}

void Append(std::string& text, unsigned long character) {
    static constexpr unsigned int LEADS[] = {0, 0x00, 0xC0, 0xE0, 0xF0};
    unsigned int const length = LengthOf(character);
    text += static_cast<char>(LEADS[length] | (character >> (6 * (length - 1))));
    for (unsigned int left = length - 1; left > 0; --left) {
        text += static_cast<char>(0x80 | ((character >> (6 * (left - 1))) & 0x3F));
    }
}

} // namespace

std::wstring Widen(std::string_view text) {
    auto const check = [&](bool isGood) {
        if (!isGood) {
            throw std::invalid_argument("This is not UTF-8: " + std::string(text));
        }
    };
    std::wstring result;
    for (std::size_t i = 0; i < text.size();) {
        unsigned long const lead = static_cast<unsigned char>(text[i]);
        unsigned int const length = lead < 0x80 ? 1 : lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
        check(lead < 0x80 || (lead >= 0xC0 && lead < 0xF8));
        check(i + length <= text.size());
        unsigned long character = length == 1 ? lead : lead & (0x7FU >> length);
        for (unsigned int k = 1; k < length; ++k) {
            unsigned long const byte = static_cast<unsigned char>(text[i + k]);
            check((byte & 0xC0) == 0x80);
            character = character << 6 | (byte & 0x3F);
        }
        check(IsScalarValue(character) && LengthOf(character) == length);
        result += static_cast<wchar_t>(character);
        i += length;
    }
    return result;
}

std::string Narrow(std::wstring_view text) {
    std::string result;
    for (wchar_t const character : text) {
        unsigned long const value = static_cast<unsigned int>(character);
        if (!IsScalarValue(value)) {
            throw std::invalid_argument("This is not a text of Unicode scalar values: " + Readable(text));
        }
        Append(result, value);
    }
    return result;
}

std::string Readable(std::wstring_view text) {
    std::string result = "\"";
    for (wchar_t const character : text) {
        unsigned long const value = static_cast<unsigned int>(character);
        if (value == 0x0A) {
            result += "\\n";
        } else if (value < 0x20 || value == 0x7F || !IsScalarValue(value)) {
            char escaped[16];
            std::snprintf(escaped, sizeof escaped, "\\x{%lX}", value);
            result += escaped;
        } else {
            Append(result, value);
        }
    }
    return result + '"';
}

std::string NameOf(std::type_info const& type) {
    int status = 0;
    std::unique_ptr<char, void (*)(void*)> const name(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), &std::free);
    return name == nullptr ? type.name() : name.get();
}

std::wstring ErrorDescription(int error) {
    return Widen(std::generic_category().message(error));
}

} // namespace TestSupport
