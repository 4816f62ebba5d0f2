#ifndef WFILESYSTEM_BASE_RETURNSTRING_H
#define WFILESYSTEM_BASE_RETURNSTRING_H

/// \file
/// \brief The strings that functions return.

#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace WBase {

/// Owns a NUL-terminated string that a function returns. It can be moved, not copied.
///
/// A moved-from object holds the empty string.
///
/// \par Threads
///     As for a `std::string`: many readers, or one writer.
template <class Character>
class BasicReturnString {
public:
    /// How characters are measured and copied.
    using Traits = std::char_traits<Character>;
    /// The string view of the same kind.
    using View = std::basic_string_view<Character>;

    /// Copies `text` up to its NUL. A null pointer counts as the empty string.
    /// \throws std::bad_alloc
    explicit BasicReturnString(Character const* text) : BasicReturnString(text ? Traits::length(text) : 0, text) {}

    /// Copies the first `size` characters of `text`. A null pointer counts as the empty string.
    /// \throws std::bad_alloc
    BasicReturnString(unsigned long size, Character const* text) {
        if (text != nullptr) {
            text_.reset(new Character[size + 1]);
            Traits::copy(text_.get(), text, size);
            text_[size] = Character();
            size_ = size;
        }
    }

    /// Takes over an array that holds `size` characters and a NUL behind them.
    BasicReturnString(std::unique_ptr<Character[]> text, unsigned long size) noexcept
        : text_(std::move(text)), size_(text_ ? size : 0) {}

    /// Takes over what the other holds.
    BasicReturnString(BasicReturnString&& other) noexcept
        : text_(std::move(other.text_)), size_(std::exchange(other.size_, 0)) {}

    /// Drops its string and takes over what the other holds.
    BasicReturnString& operator=(BasicReturnString&& other) noexcept {
        text_ = std::move(other.text_);
        size_ = std::exchange(other.size_, 0);
        return *this;
    }

    ~BasicReturnString() = default;

    /// The string, never null; valid until this object is moved from, assigned to or destroyed.
    Character const* c_str() const noexcept { return text_ ? text_.get() : &NUL; }

    /// The number of characters before the NUL.
    unsigned long size() const noexcept { return size_; }

    /// The string as a view; valid as long as c_str().
    operator View() const noexcept { return View(c_str(), size_); }

private:
    static constexpr Character NUL = Character();

    std::unique_ptr<Character[]> text_;
    unsigned long size_ = 0;
};

/// A narrow string, in UTF-8 wherever this library makes one.
using ReturnString = BasicReturnString<char>;

/// A wide string, one code point a character.
using ReturnWString = BasicReturnString<wchar_t>;

} // namespace WBase

#endif
