#ifndef WFILESYSTEM_BASE_EXCEPTION_H
#define WFILESYSTEM_BASE_EXCEPTION_H

/// \file
/// \brief The exception types that derive from the message.
///
/// A failure is thrown in one of two styles. A *system-call report* is an ExceptionImpl<Message>: its text names the
/// function and the system call, its ID is the system's error number, and the system's description follows on the
/// second line. A *wrapped message* is a plain Message: a text of the library's own in the domain
/// MESSAGE_DOMAIN_SERVER, and the system's error as its cause. `catch (WBase::Message const&)` sees both.

#include <Base/Message.h>
#include <Defines/Export.h>

namespace WBase {

/// An exception made of a message type.
///
/// No constructor lets an exception out: when memory runs short inside one, the process ends through std::terminate,
/// except that a text that can't be put together is left empty.
///
/// \par Threads
///     As for Message.
template <class MessageType>
class WFILESYSTEM_EXPORT ExceptionImpl : public MessageType {
public:
    /// \param text UTF-8; bad bytes become U+FFFD
    /// \param error a system error number, which becomes the ID; its description becomes the second line
    ExceptionImpl(char const* text, unsigned int error) noexcept;

    /// \param text the first line, kept as it is
    /// \param error as above
    ExceptionImpl(wchar_t const* text, unsigned int error) noexcept;

    /// \param text the first line, kept as it is
    /// \param cause gives its domain and ID, and its whole text as what follows the first line
    ExceptionImpl(wchar_t const* text, MessageType const& cause) noexcept;

    /// A report without a system error: the ID is -1.
    /// \param text UTF-8; bad bytes become U+FFFD; null is the empty text
    explicit ExceptionImpl(char const* text) noexcept;

    /// A copy shares the text, so that it can't fail.
    ExceptionImpl(ExceptionImpl const&) noexcept = default;
    /// As the copy.
    ExceptionImpl& operator=(ExceptionImpl const&) noexcept = default;
    ~ExceptionImpl() override;

private:
    /// Makes the two texts, with a line feed between them, the message's own text.
    void Concatenate(wchar_t const* first, wchar_t const* second) noexcept;
};

extern template class ExceptionImpl<Message>;

/// Text that can't be converted between wide and narrow form.
class WFILESYSTEM_EXPORT StringConversionException : public Message {
public:
    /// \see Message::Message(unsigned short, int, char const*)
    StringConversionException(unsigned short domain, int id, char const* text);

    /// A copy shares the text, so that it can't fail.
    StringConversionException(StringConversionException const&) noexcept = default;
    /// As the copy.
    StringConversionException& operator=(StringConversionException const&) noexcept = default;
    ~StringConversionException() override;
};

} // namespace WBase

#endif
