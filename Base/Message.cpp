#include <Base/Message.h>

#include <Base/Conversion.h>
#include <Base/PrivateSource/UTF8.h>
#include <Base/System.h>

#include <algorithm>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace WBase {

unsigned short const MESSAGE_DOMAIN_UNKNOWN = 0;
unsigned short const MESSAGE_DOMAIN_ERRNO = 1;
unsigned short const MESSAGE_DOMAIN_SERVER = 2;

namespace {

/// One message of a chain.
struct Link {
    unsigned short domain = MESSAGE_DOMAIN_UNKNOWN;
    int id = 0;
    std::optional<std::wstring> text;
    /// Where the search for the next open placeholder begins: behind what was filled in.
    std::size_t open = 0;

    void Fill(std::wstring_view argument) {
        if (!text) {
            return;
        }
        for (std::size_t index = text->find(L'%', open); index != std::wstring::npos;
             index = text->find(L'%', index + 1)) {
            if (index + 1 < text->size() && (*text)[index + 1] >= L'1' && (*text)[index + 1] <= L'9') {
                text->replace(index, 2, argument);
                open = index + argument.size();
                return;
            }
        }
    }
};

std::optional<std::wstring> DecodeText(char const* text) {
    if (text == nullptr) {
        return std::nullopt;
    }
    return std::wstring(UTF8ToWideChar(text, true));
}

} // namespace

class Message::Content {
public:
    std::vector<Link> chain; // outermost first; not empty once the content is in place
    std::wstring rendered;
    std::string renderedNarrow;

    void Render() {
        rendered.clear();
        for (Link const& link : chain) {
            if (&link != &chain.front()) {
                rendered += L'\n';
            }
            if (link.text) {
                rendered += *link.text;
            } else if (link.domain == MESSAGE_DOMAIN_ERRNO) {
                rendered += GetSystemErrorDescription(static_cast<unsigned int>(link.id));
            }
        }
        std::wstring encodable = rendered;
        std::replace_if(
            encodable.begin(), encodable.end(), [](wchar_t character) { return !IsScalarValue(character); },
            REPLACEMENT_CHARACTER);
        renderedNarrow = WideCharToUTF8(encodable.c_str(), false).c_str();
    }
};

template <class Edit>
Message& Message::Change(Edit edit) {
    auto const content = content_ ? std::make_shared<Content>(*content_) : std::make_shared<Content>();
    edit(content->chain);
    content->Render();
    content_ = content;
    return *this;
}

Message::Message() noexcept = default;

Message::Message(unsigned short domain, int id, char const* text) {
    WrapBy(domain, id, text);
}

Message::Message(Message const& other) noexcept = default;
Message& Message::operator=(Message const& other) noexcept = default;
Message::~Message() = default;

void Message::SetDomainAndID(unsigned short domain, int id) {
    Change([&](std::vector<Link>& chain) {
        if (chain.empty()) {
            chain.push_back({MESSAGE_DOMAIN_UNKNOWN, 0, std::wstring(), 0});
        }
        chain.front().domain = domain;
        chain.front().id = id;
    });
}

void Message::SetMessage(wchar_t const* text) {
    Change([&](std::vector<Link>& chain) {
        if (chain.empty()) {
            chain.emplace_back();
        }
        chain.front().text = text ? std::optional<std::wstring>(text) : std::nullopt;
        chain.front().open = 0;
    });
}

wchar_t const* Message::GetMessage() const noexcept {
    return content_ ? content_->rendered.c_str() : L"";
}

int Message::GetID() const noexcept {
    return content_ ? content_->chain.front().id : 0;
}

unsigned short Message::GetDomain() const noexcept {
    return content_ ? content_->chain.front().domain : MESSAGE_DOMAIN_UNKNOWN;
}

std::optional<int> Message::FindID(unsigned short domain, unsigned int index) const noexcept {
    if (content_) {
        for (Link const& link : content_->chain) {
            if (link.domain == domain && index-- == 0) {
                return link.id;
            }
        }
    } else if (domain == MESSAGE_DOMAIN_UNKNOWN && index == 0) {
        return 0;
    }
    return std::nullopt;
}

Message& Message::WrapBy(unsigned short domain, int id, char const* text) {
    return Change([&](std::vector<Link>& chain) {
        chain.insert(chain.begin(), Link{domain, id, DecodeText(text), 0});
    });
}

Message& Message::PrependBy(Message const& other) {
    if (!content_) {
        content_ = other.content_;
        return *this;
    }
    // An empty message in front still is a message of its own, with an empty text.
    std::vector<Link> const front =
        other.content_ ? other.content_->chain : std::vector<Link>{{MESSAGE_DOMAIN_UNKNOWN, 0, std::wstring(), 0}};
    return Change([&](std::vector<Link>& chain) { chain.insert(chain.begin(), front.begin(), front.end()); });
}

Message& Message::operator<<(char const* argument) {
    return *this << UTF8ToWideChar(argument, true).c_str();
}

Message& Message::operator<<(wchar_t const* argument) {
    if (!content_) {
        return *this; // an empty message has no placeholder, and stays empty
    }
    return Change([&](std::vector<Link>& chain) { chain.front().Fill(argument ? argument : L""); });
}

Message& Message::operator<<(unsigned long argument) {
    return *this << std::to_wstring(argument).c_str();
}

char const* Message::what() const noexcept {
    return content_ ? content_->renderedNarrow.c_str() : "";
}

} // namespace WBase
