#ifndef WFILESYSTEM_BASE_MESSAGE_H
#define WFILESYSTEM_BASE_MESSAGE_H

/// \file
/// \brief The message: what every failure outside the named pipes is reported by.

#include <Defines/Export.h>

#include <exception>
#include <memory>
#include <optional>

namespace WBase {

/// The space of a message's ID: the ID is a system error number (`errno`).
extern WFILESYSTEM_EXPORT unsigned short const MESSAGE_DOMAIN_ERRNO;
/// The space of a message's ID: the ID is a number of the library's own.
extern WFILESYSTEM_EXPORT unsigned short const MESSAGE_DOMAIN_SERVER;
/// The space of a message's ID: the ID is an error number of no declared space, or -1.
extern WFILESYSTEM_EXPORT unsigned short const MESSAGE_DOMAIN_UNKNOWN;

/// A report: a domain, an ID in it, a text, and a chain of causes, each with its own domain, ID and text.
///
/// The text may hold placeholders, `%` and a digit from 1 to 9. Each `<<` fills the leftmost placeholder of the
/// outermost text that is still open, whatever its digit. What was filled in is never searched again, so a path that
/// holds "%1" comes out unharmed. An argument without an open placeholder is dropped.
///
/// \code
/// WBase::Message message(WBase::MESSAGE_DOMAIN_ERRNO, ENOENT, nullptr);
/// message.WrapBy(WBase::MESSAGE_DOMAIN_SERVER, 1, "Failed to read %1 bytes from file '%1'.") << 4096UL << L"/data/x";
/// // GetMessage(): L"Failed to read 4096 bytes from file '/data/x'.\nNo such file or directory"
/// \endcode
///
/// Every function that changes a message throws std::bad_alloc when memory is short, and leaves the message as it was
/// then.
///
/// \par Threads
///     Many threads may read one message; changing it needs exclusive access. Copies are independent.
class WFILESYSTEM_EXPORT Message : public std::exception {
public:
    /// An empty message: no text, domain MESSAGE_DOMAIN_UNKNOWN, ID 0. Only such a message counts as empty, and only as
    /// long as nothing was set.
    Message() noexcept;

    /// \param domain the space of the ID
    /// \param id the number within that space
    /// \param text UTF-8; bad bytes in it become U+FFFD. Null: no text of its own; in the domain MESSAGE_DOMAIN_ERRNO
    ///     the message then reads as the system's description of the ID.
    Message(unsigned short domain, int id, char const* text);

    /// A copy shares the texts until one of the two is changed, so that it can't fail.
    Message(Message const& other) noexcept;
    /// As the copy.
    Message& operator=(Message const& other) noexcept;
    ~Message() override;

    /// Replaces the outermost domain and ID.
    void SetDomainAndID(unsigned short domain, int id);

    /// Replaces the outermost text, with open placeholders, and keeps the causes. Null: no text.
    void SetMessage(wchar_t const* text);

    /// The whole text: the message's own, then that of each cause, outermost first, one line feed between them.
    /// \return never null; valid until the message changes or dies
    wchar_t const* GetMessage() const noexcept;

    /// The ID of the outermost message.
    int GetID() const noexcept;

    /// The domain of the outermost message.
    unsigned short GetDomain() const noexcept;

    /// The ID of a message in the domain, counted from the outermost one inwards; nothing where there are not as many.
    /// \code
    ///   message.FindID(WBase::MESSAGE_DOMAIN_ERRNO) == ENOENT // a wrapped message whose cause is a missing file
    /// \endcode
    /// \param domain the domain
    /// \param index how many messages in the domain to pass over
    std::optional<int> FindID(unsigned short domain, unsigned int index = 0) const noexcept;

    /// Makes what the message held the cause of a new outermost domain, ID and text. An empty message gets no cause.
    /// \param domain,id,text as in the constructor
    /// \return this message
    Message& WrapBy(unsigned short domain, int id, char const* text);

    /// Puts `other`, with its causes, in front of what the message held, which follows as the innermost causes. An
    /// empty message becomes a copy of `other`.
    /// \return this message
    Message& PrependBy(Message const& other);

    /// Fills the next open placeholder with UTF-8 text; bad bytes become U+FFFD, null is the empty text.
    Message& operator<<(char const* argument);
    /// Fills the next open placeholder; null is the empty text.
    Message& operator<<(wchar_t const* argument);
    /// Fills the next open placeholder with a decimal number.
    Message& operator<<(unsigned long argument);

    /// GetMessage() in UTF-8, with U+FFFD for what UTF-8 can't express; valid as long.
    char const* what() const noexcept override;

private:
    class Content;

    /// Gives the message what `edit` makes of a copy of its content.
    template <class Edit>
    Message& Change(Edit edit);

    // Shared between copies and never changed: to copy a message, as throwing one does, can't fail. Null when empty.
    std::shared_ptr<Content const> content_;
};

} // namespace WBase

#endif
