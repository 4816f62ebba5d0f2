// Messages: placeholders, chains, copies, and their text, against a list of links that is rendered from scratch.

#include <Base/Exception.h>
#include <Base/Message.h>
#include <Tests/Fuzz/Fuzz.h>

#include <cstring>
#include <optional>
#include <vector>

using Fuzz::Input;
using Fuzz::RequireEqual;
using WBase::Message;

namespace {

namespace Model {

/// A text as what is fixed and where arguments go; what was filled in is fixed.
struct Piece {
    std::wstring text;
    bool isPlaceholder;
};

struct Link {
    unsigned short domain = WBase::MESSAGE_DOMAIN_UNKNOWN;
    int id = 0;
    std::optional<std::vector<Piece>> text = std::vector<Piece>();
};

using Chain = std::vector<Link>; // outermost first; empty for an empty message

std::vector<Piece> Parse(std::wstring const& text) {
    std::vector<Piece> pieces;
    for (std::size_t i = 0; i < text.size();) {
        bool const isPlaceholder = text[i] == L'%' && i + 1 < text.size() &&
                                   std::wstring_view(L"123456789").find(text[i + 1]) != std::wstring::npos;
        std::size_t const size = isPlaceholder ? 2 : 1;
        pieces.push_back({text.substr(i, size), isPlaceholder});
        i += size;
    }
    return pieces;
}

std::wstring Render(Chain const& chain) {
    std::wstring rendered;
    for (std::size_t i = 0; i < chain.size(); ++i) {
        rendered += i > 0 ? L"\n" : L"";
        if (chain[i].text) {
            for (Piece const& piece : *chain[i].text) {
                rendered += piece.text;
            }
        } else if (chain[i].domain == WBase::MESSAGE_DOMAIN_ERRNO) {
            rendered += TestSupport::Widen(std::strerror(chain[i].id));
        }
    }
    return rendered;
}

std::string RenderNarrow(Chain const& chain) {
    std::string narrow;
    for (wchar_t const character : Render(chain)) {
        auto const value = static_cast<unsigned int>(character);
        bool const isGood = value < 0xD800 || (value >= 0xE000 && value < 0x110000);
        narrow += TestSupport::Narrow(std::wstring(1, isGood ? character : L'\xFFFD'));
    }
    return narrow;
}

void Fill(Chain& chain, std::wstring const& argument) {
    if (chain.empty() || !chain.front().text) {
        return;
    }
    for (Piece& piece : *chain.front().text) {
        if (piece.isPlaceholder) {
            piece = {argument, false};
            return;
        }
    }
}

std::optional<int> FindID(Chain const& chain, unsigned short domain) {
    Chain const links = chain.empty() ? Chain(1) : chain;
    for (Link const& link : links) {
        if (link.domain == domain) {
            return link.id;
        }
    }
    return std::nullopt;
}

} // namespace Model

/// A text of the input as narrow and wide arguments take it; each can be null.
struct Text {
    explicit Text(Input& input) : isNull(input.OneOf("0-") == '0'), narrow(input.Line()), wide(Fuzz::Widened(narrow)) {
        for (wchar_t& character : wide) {
            // Some characters become such as UTF-8 can't express.
            character = character == L'\x7F'   ? L'\xD800'
                        : character == L'\x7E' ? static_cast<wchar_t>(0x110000)
                                               : character;
        }
        for (char& byte : narrow) {
            byte = static_cast<char>(byte & 0x7F); // bad bytes are another target's business
        }
        narrow = narrow.substr(0, narrow.find('\0'));
    }

    char const* Narrow() const { return isNull ? nullptr : narrow.c_str(); }
    wchar_t const* Wide() const { return isNull ? nullptr : wide.c_str(); }
    std::wstring NarrowText() const { return isNull ? L"" : Fuzz::Widened(narrow); }
    std::wstring WideText() const { return isNull ? L"" : wide; }

    bool isNull;
    std::string narrow;
    std::wstring wide;
};

/// A message and what it should be.
struct Pair {
    Message message;
    Model::Chain chain;

    void Check() const {
        RequireEqual<std::wstring>(message.GetMessage(), Model::Render(chain), "the text");
        RequireEqual<std::string>(message.what(), Model::RenderNarrow(chain), "what()");
        Model::Link const outermost = chain.empty() ? Model::Link() : chain.front();
        RequireEqual<long long>(message.GetDomain(), outermost.domain, "the domain");
        RequireEqual<long long>(message.GetID(), outermost.id, "the ID");
        for (unsigned short domain = 0; domain <= 3; ++domain) {
            std::optional<int> const actual = message.FindID(domain);
            std::optional<int> const expected = Model::FindID(chain, domain);
            RequireEqual<long long>(actual ? 1 : 0, expected ? 1 : 0, "whether the domain is found");
            RequireEqual<long long>(actual.value_or(0), expected.value_or(0), "the ID found");
        }
    }
};

void Step(Input& input, Pair& pair, Pair& other) {
    constexpr std::size_t LONGEST_CHAIN = 50;
    auto const domain = [&] { return static_cast<unsigned short>(input.Byte() % 4); };
    auto const id = [&] { return static_cast<int>(input.Byte()) - 10; };
    auto& [message, chain] = pair;
    switch (input.OneOf("newdt=pfFNx")) {
    case 'n': // nothing
        message = Message();
        chain.clear();
        break;
    case 'e': { // a message with an ID
        unsigned short const itsDomain = domain();
        int const itsID = id();
        Text const text(input);
        message = Message(itsDomain, itsID, text.Narrow());
        chain = {{itsDomain, itsID, Model::Parse(text.NarrowText())}};
        if (text.isNull) {
            chain.front().text.reset();
        }
        break;
    }
    case 'w': { // wrapped
        unsigned short const itsDomain = domain();
        int const itsID = id();
        Text const text(input);
        if (chain.size() >= LONGEST_CHAIN) {
            break;
        }
        message.WrapBy(itsDomain, itsID, text.Narrow());
        chain.insert(chain.begin(), {itsDomain, itsID, Model::Parse(text.NarrowText())});
        if (text.isNull) {
            chain.front().text.reset();
        }
        break;
    }
    case 'd': { // domain and ID
        unsigned short const itsDomain = domain();
        int const itsID = id();
        message.SetDomainAndID(itsDomain, itsID);
        if (chain.empty()) {
            chain.emplace_back();
        }
        chain.front().domain = itsDomain;
        chain.front().id = itsID;
        break;
    }
    case 't': { // text
        Text const text(input);
        message.SetMessage(text.Wide());
        if (chain.empty()) {
            chain.emplace_back();
        }
        chain.front().text = Model::Parse(text.WideText());
        if (text.isNull) {
            chain.front().text.reset();
        }
        break;
    }
    case '=': // a copy
        message = other.message;
        chain = other.chain;
        break;
    case 'p': { // prepended, at times to itself
        Pair const& front = input.OneOf("so") == 's' ? pair : other;
        if (chain.size() + front.chain.size() > LONGEST_CHAIN) {
            break;
        }
        Model::Chain links = front.chain.empty() && !chain.empty() ? Model::Chain(1) : front.chain;
        links.insert(links.end(), chain.begin(), chain.end());
        message.PrependBy(front.message);
        chain = links;
        break;
    }
    case 'f': { // filled
        Text const text(input);
        message << text.Wide();
        Model::Fill(chain, text.WideText());
        break;
    }
    case 'F': {
        Text const text(input);
        message << text.Narrow();
        Model::Fill(chain, text.NarrowText());
        break;
    }
    case 'N': {
        unsigned long const number = input.Byte() * 0x0101010101010101UL;
        message << number;
        Model::Fill(chain, std::to_wstring(number));
        break;
    }
    default: { // an exception that was caught by its base
        Text const text(input);
        try {
            throw WBase::ExceptionImpl<Message>(text.Wide(), other.message);
        } catch (Message const& caught) {
            message = caught;
        }
        Model::Link const outermost = other.chain.empty() ? Model::Link() : other.chain.front();
        std::wstring const itsText = text.WideText() + L'\n' + Model::Render(other.chain);
        chain = {{outermost.domain, outermost.id, Model::Parse(itsText)}};
        break;
    }
    }
}

} // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    constexpr std::size_t LONGEST_TEXT = 5000;
    Input input(data, size);
    Pair pairs[2];
    while (!input.IsEmpty()) {
        bool const isFirst = input.OneOf("ab") == 'a';
        Step(input, pairs[isFirst ? 0 : 1], pairs[isFirst ? 1 : 0]);
        for (Pair const& pair : pairs) {
            pair.Check();
        }
        if (Model::Render(pairs[0].chain).size() + Model::Render(pairs[1].chain).size() > LONGEST_TEXT) {
            break;
        }
    }
    return 0;
}
