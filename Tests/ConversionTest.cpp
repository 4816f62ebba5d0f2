#include <Base/Conversion.h>

#include <Base/Exception.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Text.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <clocale>
#include <optional>
#include <stdexcept>
#include <string>

namespace {

using TestSupport::Narrow;
using TestSupport::Throws;
using TestSupport::Widen;

TestSupport::ExpectedMessage ConversionFailure(std::wstring const& text) {
    return {&typeid(WBase::StringConversionException), WBase::MESSAGE_DOMAIN_ERRNO, EILSEQ, text};
}

TestSupport::ExpectedMessage BadByte(std::wstring const& byte, unsigned int index) {
    return ConversionFailure(
        L"Failed to convert UTF-8 text: the byte 0x" + byte + L" at index " + std::to_wstring(index) +
        L" does not begin or continue a valid sequence.");
}

TestSupport::ExpectedMessage BadCharacter(std::wstring const& character, unsigned int index) {
    return ConversionFailure(
        L"Failed to convert wide text: the character U+" + character + L" at index " + std::to_wstring(index) +
        L" is not a Unicode scalar value.");
}

/// The text converted strictly, or nothing when it is refused.
std::optional<std::wstring> Strict(std::string const& text) {
    try {
        return std::wstring(WBase::UTF8ToWideChar(text.c_str(), false));
    } catch (WBase::StringConversionException const&) {
        return std::nullopt;
    }
}

std::wstring Lenient(char const* text) {
    return std::wstring(WBase::UTF8ToWideChar(text, true));
}

// ---- Valid text

TEST(ConversionTest, EveryScalarValueIsConvertedBothWays) {
    constexpr unsigned int PLANE = 0x10000;
    for (unsigned int first = 0; first <= 0x10FFFF; first += PLANE) {
        std::wstring wide;
        for (unsigned int character = first; character < first + PLANE; ++character) {
            if (character != 0 && (character < 0xD800 || character > 0xDFFF)) {
                wide += static_cast<wchar_t>(character);
            }
        }
        std::string const narrow = Narrow(wide);
        EXPECT_TRUE(WBase::WideCharToUTF8(wide.c_str(), false).c_str() == narrow) << "from " << first;
        EXPECT_TRUE(WBase::UTF8ToWideChar(narrow.c_str(), false).c_str() == wide) << "from " << first;
    }
}

TEST(ConversionTest, TheMultiByteEncodingIsUTF8InEveryLocale) {
    ASSERT_STREQ(std::setlocale(LC_ALL, "C"), "C");
    std::wstring const wide = L"a\u00E4\u20AC\U0001F600";
    std::string const narrow = "a\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80";
    EXPECT_EQ(WBase::WideCharToMultiByte(wide.c_str(), false).c_str(), narrow);
    EXPECT_EQ(WBase::WideCharToUTF8(wide.c_str(), false).c_str(), narrow);
    EXPECT_EQ(WBase::MultiByteToWideChar(narrow.c_str(), false).c_str(), wide);
    EXPECT_EQ(WBase::UTF8ToWideChar(narrow.c_str(), false).c_str(), wide);
}

TEST(ConversionTest, TheSizeIsThatOfTheResult) {
    EXPECT_EQ(WBase::WideCharToUTF8(L"a\u20AC", false).size(), 4U);
    EXPECT_EQ(WBase::UTF8ToWideChar("a\xE2\x82\xAC", false).size(), 2U);
}

TEST(ConversionTest, NullAndEmptyTextGiveTheEmptyString) {
    for (bool const flag : {false, true}) {
        EXPECT_STREQ(WBase::WideCharToMultiByte(nullptr, flag).c_str(), "");
        EXPECT_STREQ(WBase::WideCharToUTF8(nullptr, flag).c_str(), "");
        EXPECT_STREQ(WBase::MultiByteToWideChar(nullptr, flag).c_str(), L"");
        EXPECT_STREQ(WBase::UTF8ToWideChar(nullptr, flag).c_str(), L"");
        EXPECT_STREQ(WBase::WideCharToMultiByte(L"", flag).c_str(), "");
        EXPECT_STREQ(WBase::WideCharToUTF8(L"", flag).c_str(), "");
        EXPECT_STREQ(WBase::MultiByteToWideChar("", flag).c_str(), L"");
        EXPECT_STREQ(WBase::UTF8ToWideChar("", flag).c_str(), L"");
    }
}

// ---- What wide text can't hold

TEST(ConversionTest, WideTextOfOtherThanScalarValuesIsRefusedWithItsPlace) {
    struct {
        unsigned int character;
        wchar_t const* shown;
    } const cases[] = {{0xD800, L"D800"},     {0xDBFF, L"DBFF"},         {0xDC00, L"DC00"},         {0xDFFF, L"DFFF"},
                       {0x110000, L"110000"}, {0x7FFFFFFF, L"7FFFFFFF"}, {0x80000000, L"80000000"}, {~0U, L"FFFFFFFF"}};
    for (auto const& [character, shown] : cases) {
        std::wstring const text = L"\u20ACb" + std::wstring(1, static_cast<wchar_t>(character)) + L"c";
        for (bool const flag : {false, true}) {
            EXPECT_TRUE(Throws([&] { WBase::WideCharToMultiByte(text.c_str(), flag); }, BadCharacter(shown, 2)));
            EXPECT_TRUE(Throws([&] { WBase::WideCharToUTF8(text.c_str(), flag); }, BadCharacter(shown, 2)));
        }
    }
}

TEST(ConversionTest, ASurrogatePairIsNotJoined) {
    std::wstring const pair = {static_cast<wchar_t>(0xD83D), static_cast<wchar_t>(0xDE00)};
    EXPECT_TRUE(Throws([&] { WBase::WideCharToUTF8(pair.c_str(), false); }, BadCharacter(L"D83D", 0)));
}

// ---- What UTF-8 can't hold

TEST(ConversionTest, BadUTF8IsRefusedWithTheFirstByteOfTheSequenceAndItsPlace) {
    struct {
        char const* text;
        wchar_t const* byte;
        unsigned int index;
    } const cases[] = {
        {"\x80", L"80", 0},                 // a continuation alone
        {"ab\xBF", L"BF", 2},               //
        {"\xC3\xA4\xC3", L"C3", 2},         // truncated by the end
        {"\xE2\x82", L"E2", 0},             //
        {"\xF0\x9F\x98", L"F0", 0},         //
        {"\xC3(", L"C3", 0},                // truncated by a letter
        {"\xE2\x82(", L"E2", 0},            //
        {"\xC0\xAF", L"C0", 0},             // overlong
        {"\xC1\xBF", L"C1", 0},             //
        {"\xE0\x9F\xBF", L"E0", 0},         //
        {"\xF0\x8F\xBF\xBF", L"F0", 0},     //
        {"a\xED\xA0\x80", L"ED", 1},        // a surrogate
        {"\xED\xBF\xBF", L"ED", 0},         //
        {"\xF4\x90\x80\x80", L"F4", 0},     // above U+10FFFF
        {"\xF5\x80\x80\x80", L"F5", 0},     //
        {"\xF8\x88\x80\x80\x80", L"F8", 0}, // lengths that there are no more
        {"\xFE", L"FE", 0},                 //
        {"\xFF", L"FF", 0},                 //
    };
    for (auto const& [text, byte, index] : cases) {
        EXPECT_TRUE(Throws([text = text] { WBase::UTF8ToWideChar(text, false); }, BadByte(byte, index)));
        for (bool const flag : {false, true}) {
            EXPECT_TRUE(Throws([text = text, flag] { WBase::MultiByteToWideChar(text, flag); }, BadByte(byte, index)));
        }
    }
}

/// The text as an independent decoder reads it.
std::optional<std::wstring> Expected(std::string const& text) {
    try {
        return Widen(text);
    } catch (std::invalid_argument const&) {
        return std::nullopt;
    }
}

TEST(ConversionTest, EveryPairOfBytesIsJudgedRightly) {
    for (unsigned int pair = 0x0101; pair <= 0xFFFF; ++pair) {
        std::string const text = {static_cast<char>(pair >> 8), static_cast<char>(pair & 0xFF)};
        if ((pair & 0xFF) != 0) {
            ASSERT_EQ(Strict(text), Expected(text)) << std::hex << pair;
        }
    }
}

TEST(ConversionTest, LongerSequencesAreJudgedRightlyAtEveryBoundary) {
    for (char const lead : std::string("\xE0\xE1\xEC\xED\xEE\xEF\xF0\xF1\xF3\xF4\xF5\xFF")) {
        std::string const following = "\x01\x7F\x80\x8F\x90\x9F\xA0\xBF\xC0\xFF";
        for (char const second : following) {
            for (char const third : following) {
                std::string const text = {lead, second, third};
                ASSERT_EQ(Strict(text), Expected(text));
                for (char const fourth : following) {
                    ASSERT_EQ(Strict(text + fourth), Expected(text + fourth));
                }
            }
        }
    }
}

TEST(ConversionTest, LenientConversionReplacesEachBadSequence) {
    struct {
        char const* text;
        wchar_t const* expected;
    } const cases[] = {
        {"a\xC3\xA4z", L"a\u00E4z"},
        {"\x80", L"\uFFFD"},
        {"\xC3", L"\uFFFD"},
        {"\xE2\x82", L"\uFFFD"},
        {"\xF0\x9F\x98", L"\uFFFD"},
        {"\xE2\x82(", L"\uFFFD("},
        {"\xC0\xAF\xE0\x80\xBF\xF0\x81\x82"
         "A",
         L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA"},
        {"\xED\xA0\x80\xED\xBF\xBF\xED\xAF"
         "A",
         L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA"},
        {"\xF4\x91\x92\x93\xFF"
         "A\x80\xBF"
         "B",
         L"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFDA\uFFFD\uFFFDB"},
        {"\xE1\x80\xE2\xF0\x91\x92\xF1\xBF"
         "A",
         L"\uFFFD\uFFFD\uFFFD\uFFFDA"},
    };
    for (auto const& [text, expected] : cases) {
        EXPECT_EQ(Lenient(text), expected);
    }
}

} // namespace
