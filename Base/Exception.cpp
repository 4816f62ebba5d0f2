#include <Base/Exception.h>

#include <Base/Conversion.h>
#include <Base/System.h>

#include <string>

namespace WBase {

template <class MessageType>
ExceptionImpl<MessageType>::ExceptionImpl(char const* text, unsigned int error) noexcept
    : ExceptionImpl(UTF8ToWideChar(text, true).c_str(), error) {}

template <class MessageType>
ExceptionImpl<MessageType>::ExceptionImpl(wchar_t const* text, unsigned int error) noexcept {
    this->SetDomainAndID(MESSAGE_DOMAIN_UNKNOWN, static_cast<int>(error));
    Concatenate(text, GetSystemErrorDescription(error).c_str());
}

template <class MessageType>
ExceptionImpl<MessageType>::ExceptionImpl(wchar_t const* text, MessageType const& cause) noexcept {
    this->SetDomainAndID(cause.GetDomain(), cause.GetID());
    Concatenate(text, cause.GetMessage());
}

template <class MessageType>
ExceptionImpl<MessageType>::ExceptionImpl(char const* text) noexcept {
    this->SetDomainAndID(MESSAGE_DOMAIN_UNKNOWN, -1);
    this->SetMessage(UTF8ToWideChar(text, true).c_str());
}

template <class MessageType>
ExceptionImpl<MessageType>::~ExceptionImpl() = default;

template <class MessageType>
void ExceptionImpl<MessageType>::Concatenate(wchar_t const* first, wchar_t const* second) noexcept {
    try {
        std::wstring text(first != nullptr ? first : L"");
        text += L'\n';
        text += second;
        this->SetMessage(text.c_str());
    } catch (...) { // NOLINT(bugprone-empty-catch): a report without its text is worth more than none
    }
}

template class ExceptionImpl<Message>;

StringConversionException::StringConversionException(unsigned short domain, int id, char const* text)
    : Message(domain, id, text) {}

StringConversionException::~StringConversionException() = default;

} // namespace WBase
