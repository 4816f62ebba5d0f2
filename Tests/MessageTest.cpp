#include <Base/Message.h>

#include <Base/Exception.h>
#include <Base/System.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Text.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <exception>
#include <new>
#include <optional>
#include <string>
#include <type_traits>

namespace {

using TestSupport::ErrorDescription;
using WBase::Message;
using WBase::MESSAGE_DOMAIN_ERRNO;
using WBase::MESSAGE_DOMAIN_SERVER;
using WBase::MESSAGE_DOMAIN_UNKNOWN;

std::wstring TextOf(Message const& message) {
    return message.GetMessage();
}

void ExpectHead(Message const& message, unsigned short domain, int id) {
    EXPECT_EQ(message.GetDomain(), domain);
    EXPECT_EQ(message.GetID(), id);
}

/// The text that a template gives when these arguments are streamed into it.
template <class... Arguments>
std::wstring Filled(char const* text, Arguments... arguments) {
    Message message(MESSAGE_DOMAIN_SERVER, 1, text);
    (message << ... << arguments);
    return message.GetMessage();
}

// ---- The parts of a message

TEST(MessageTest, TheDomainsDiffer) {
    EXPECT_NE(MESSAGE_DOMAIN_ERRNO, MESSAGE_DOMAIN_SERVER);
    EXPECT_NE(MESSAGE_DOMAIN_ERRNO, MESSAGE_DOMAIN_UNKNOWN);
    EXPECT_NE(MESSAGE_DOMAIN_SERVER, MESSAGE_DOMAIN_UNKNOWN);
    EXPECT_EQ(sizeof MESSAGE_DOMAIN_ERRNO, 2U);
}

TEST(MessageTest, ADefaultMessageIsEmpty) {
    Message const message;
    ExpectHead(message, MESSAGE_DOMAIN_UNKNOWN, 0);
    EXPECT_EQ(TextOf(message), L"");
    EXPECT_STREQ(message.what(), "");
}

TEST(MessageTest, AMessageHasItsDomainIDAndText) {
    Message const message(
        MESSAGE_DOMAIN_SERVER, -7,
        "Gr\xC3\xB6\xC3\x9F"
        "e");
    ExpectHead(message, MESSAGE_DOMAIN_SERVER, -7);
    EXPECT_EQ(TextOf(message), L"Gr\u00F6\u00DFe");
}

TEST(MessageTest, BadBytesOfATextAreReplaced) {
    EXPECT_EQ(
        TextOf(Message(
            MESSAGE_DOMAIN_SERVER, 1,
            "a\xFF"
            "b")),
        L"a\uFFFDb");
}

TEST(MessageTest, AnErrnoMessageWithoutTextReadsAsTheSystemsDescription) {
    Message const message(MESSAGE_DOMAIN_ERRNO, ENOENT, nullptr);
    ExpectHead(message, MESSAGE_DOMAIN_ERRNO, ENOENT);
    EXPECT_EQ(TextOf(message), ErrorDescription(ENOENT));
}

TEST(MessageTest, AnErrnoMessageWithATextReadsAsTheText) {
    EXPECT_EQ(TextOf(Message(MESSAGE_DOMAIN_ERRNO, ENOENT, "gone")), L"gone");
    EXPECT_EQ(TextOf(Message(MESSAGE_DOMAIN_ERRNO, ENOENT, "")), L"");
}

TEST(MessageTest, OnlyErrnoMessagesAreDescribedByTheSystem) {
    EXPECT_EQ(TextOf(Message(MESSAGE_DOMAIN_SERVER, ENOENT, nullptr)), L"");
    EXPECT_EQ(TextOf(Message(MESSAGE_DOMAIN_UNKNOWN, ENOENT, nullptr)), L"");
}

TEST(MessageTest, TheWholeTextIsGivenInUTF8Too) {
    Message message(MESSAGE_DOMAIN_SERVER, 1, "b");
    message.WrapBy(MESSAGE_DOMAIN_SERVER, 2, "a \xE2\x82\xAC");
    std::exception const& exception = message;
    EXPECT_STREQ(exception.what(), "a \xE2\x82\xAC\nb");
}

TEST(MessageTest, UTF8ReplacesWhatItCanNotExpress) {
    Message message(MESSAGE_DOMAIN_SERVER, 1, "<%1>");
    std::wstring const notScalar = {static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000)};
    message << notScalar.c_str();
    EXPECT_EQ(TextOf(message), L"<" + notScalar + L">");
    EXPECT_STREQ(message.what(), "<\xEF\xBF\xBD\xEF\xBF\xBD>");
}

// ---- Setting the parts

TEST(MessageTest, DomainAndIDCanBeSet) {
    Message message(MESSAGE_DOMAIN_SERVER, 1, "text");
    message.SetDomainAndID(MESSAGE_DOMAIN_UNKNOWN, 2);
    ExpectHead(message, MESSAGE_DOMAIN_UNKNOWN, 2);
    EXPECT_EQ(TextOf(message), L"text");
}

TEST(MessageTest, AnEmptyMessageKeepsItsEmptyTextWhenItGetsADomain) {
    Message message;
    message.SetDomainAndID(MESSAGE_DOMAIN_ERRNO, ENOENT);
    ExpectHead(message, MESSAGE_DOMAIN_ERRNO, ENOENT);
    EXPECT_EQ(TextOf(message), L"");
}

TEST(MessageTest, AnEmptyMessageKeepsItsDomainAndIDWhenItGetsAText) {
    Message message;
    message.SetMessage(L"text");
    ExpectHead(message, MESSAGE_DOMAIN_UNKNOWN, 0);
    EXPECT_EQ(TextOf(message), L"text");
}

TEST(MessageTest, ANewTextReplacesTheOutermostOneAndKeepsTheCauses) {
    Message message(MESSAGE_DOMAIN_ERRNO, EIO, "cause");
    message.WrapBy(MESSAGE_DOMAIN_SERVER, 1, "old");
    message.SetMessage(L"new");
    ExpectHead(message, MESSAGE_DOMAIN_SERVER, 1);
    EXPECT_EQ(TextOf(message), L"new\ncause");
}

TEST(MessageTest, ANewTextHasItsPlaceholdersOpen) {
    Message message(MESSAGE_DOMAIN_SERVER, 1, "%1 and no more");
    message << L"long text";
    message.SetMessage(L"%1");
    message << L"a";
    EXPECT_EQ(TextOf(message), L"a");
}

TEST(MessageTest, ANullTextIsNoText) {
    Message message(MESSAGE_DOMAIN_ERRNO, EIO, "text");
    message.SetMessage(nullptr);
    EXPECT_EQ(TextOf(message), ErrorDescription(EIO));
}

TEST(MessageTest, ATextMayComeFromTheMessageItself) {
    Message message(MESSAGE_DOMAIN_SERVER, 1, "%1-%1");
    message << message.GetMessage();
    EXPECT_EQ(TextOf(message), L"%1-%1-%1");
    message.SetMessage(message.GetMessage() + 3);
    EXPECT_EQ(TextOf(message), L"%1-%1");
}

// ---- Placeholders

TEST(MessageTest, ArgumentsFillThePlaceholdersFromTheLeft) {
    EXPECT_EQ(
        Filled("Failed to write %1 bytes to file '%1'.", 4096UL, L"/tmp/a"),
        L"Failed to write 4096 bytes to file '/tmp/a'.");
}

TEST(MessageTest, EachArgumentReturnsTheSameMessage) {
    Message message(MESSAGE_DOMAIN_SERVER, 1, "%1%1%1");
    EXPECT_EQ(&(message << "a"), &message);
    EXPECT_EQ(&(message << L"b"), &message);
    EXPECT_EQ(&(message << 3UL), &message);
    EXPECT_EQ(TextOf(message), L"ab3");
}

TEST(MessageTest, FillingLeavesDomainAndID) {
    Message message(MESSAGE_DOMAIN_SERVER, 5, "%1");
    message << "a";
    ExpectHead(message, MESSAGE_DOMAIN_SERVER, 5);
}

TEST(MessageTest, NarrowArgumentsAreUTF8WithBadBytesReplaced) {
    EXPECT_EQ(Filled("'%1'", "\xC3\xA4\xFF"), L"'\u00E4\uFFFD'");
}

TEST(MessageTest, NumbersAreDecimal) {
    EXPECT_EQ(Filled("%1", 0UL), L"0");
    EXPECT_EQ(Filled("%1", ~0UL), L"18446744073709551615");
}

TEST(MessageTest, NullArgumentsAreEmpty) {
    EXPECT_EQ(Filled("'%1' '%1'", static_cast<char const*>(nullptr), static_cast<wchar_t const*>(nullptr)), L"'' ''");
}

TEST(MessageTest, AnyDigitFrom1To9MakesAPlaceholder) {
    EXPECT_EQ(Filled("%9%5%1", "a", "b", "c"), L"abc");
}

TEST(MessageTest, OtherPercentSignsAreText) {
    EXPECT_EQ(Filled("%0 %x % 1 %%1 100%", "a", "b"), L"%0 %x % 1 %a 100%");
}

TEST(MessageTest, OnlyOneDigitBelongsToAPlaceholder) {
    EXPECT_EQ(Filled("%12", "a"), L"a2");
}

TEST(MessageTest, FilledInTextIsNotSearchedAgain) {
    EXPECT_EQ(Filled("'%1' '%1'", L"/%1/%2", L"b"), L"'/%1/%2' 'b'");
}

TEST(MessageTest, FilledInTextMakesNoPlaceholderWithWhatFollows) {
    EXPECT_EQ(Filled("%11 %1", "%", "b"), L"%1 b");
}

TEST(MessageTest, AnArgumentTooManyIsDropped) {
    EXPECT_EQ(Filled("%1.", "a", "b"), L"a.");
    EXPECT_EQ(Filled("none", "a"), L"none");
}

TEST(MessageTest, AMessageWithoutTextHasNoPlaceholders) {
    Message message(MESSAGE_DOMAIN_ERRNO, EIO, nullptr);
    message << "a";
    EXPECT_EQ(TextOf(message), ErrorDescription(EIO));
}

TEST(MessageTest, AnEmptyMessageStaysEmptyWhenAnArgumentIsDropped) {
    Message message;
    message << L"a" << "b" << 1UL;
    ExpectHead(message, MESSAGE_DOMAIN_UNKNOWN, 0);
    message.PrependBy(Message(MESSAGE_DOMAIN_SERVER, 1, "front"));
    EXPECT_EQ(TextOf(message), L"front");
}

TEST(MessageTest, OnlyTheOutermostTextIsFilled) {
    Message message(MESSAGE_DOMAIN_SERVER, 1, "cause %1");
    message.WrapBy(MESSAGE_DOMAIN_SERVER, 2, "%1");
    message << "a"
            << "b";
    EXPECT_EQ(TextOf(message), L"a\ncause %1");
}

// ---- Wrapping

TEST(MessageTest, WrappingMakesTheContentTheCause) {
    Message message(MESSAGE_DOMAIN_ERRNO, EIO, nullptr);
    EXPECT_EQ(&message.WrapBy(MESSAGE_DOMAIN_SERVER, 0x12345678, "Failed to flush file '%1'."), &message);
    message << L"/a";
    ExpectHead(message, MESSAGE_DOMAIN_SERVER, 0x12345678);
    EXPECT_EQ(TextOf(message), L"Failed to flush file '/a'.\n" + ErrorDescription(EIO));
}

TEST(MessageTest, CausesFollowOutermostFirst) {
    Message message(MESSAGE_DOMAIN_SERVER, 1, "first");
    message.WrapBy(MESSAGE_DOMAIN_SERVER, 2, "second").WrapBy(MESSAGE_DOMAIN_SERVER, 3, "third");
    ExpectHead(message, MESSAGE_DOMAIN_SERVER, 3);
    EXPECT_EQ(TextOf(message), L"third\nsecond\nfirst");
}

TEST(MessageTest, AnEmptyMessageIsNoCause) {
    Message message;
    message.WrapBy(MESSAGE_DOMAIN_SERVER, 1, "text");
    EXPECT_EQ(TextOf(message), L"text");
}

TEST(MessageTest, AMessageThatWasSetIsACauseEvenWithAnEmptyText) {
    Message message;
    message.SetDomainAndID(MESSAGE_DOMAIN_UNKNOWN, 0);
    message.WrapBy(MESSAGE_DOMAIN_SERVER, 1, "text");
    EXPECT_EQ(TextOf(message), L"text\n");
}

TEST(MessageTest, AMessageMayBeWrappedWithoutAText) {
    Message message(MESSAGE_DOMAIN_SERVER, 1, "cause");
    message.WrapBy(MESSAGE_DOMAIN_ERRNO, EIO, nullptr);
    EXPECT_EQ(TextOf(message), ErrorDescription(EIO) + L"\ncause");
}

// ---- Prepending

TEST(MessageTest, PrependingPutsTheOtherInFrontWithItsCauses) {
    Message other(MESSAGE_DOMAIN_ERRNO, EIO, "b");
    other.WrapBy(MESSAGE_DOMAIN_SERVER, 2, "a");
    Message message(MESSAGE_DOMAIN_UNKNOWN, 4, "d");
    message.WrapBy(MESSAGE_DOMAIN_SERVER, 3, "c");
    EXPECT_EQ(&message.PrependBy(other), &message);
    ExpectHead(message, MESSAGE_DOMAIN_SERVER, 2);
    EXPECT_EQ(TextOf(message), L"a\nb\nc\nd");
    EXPECT_EQ(TextOf(other), L"a\nb");
}

TEST(MessageTest, PrependingMakesAnEmptyMessageACopy) {
    Message message;
    message.PrependBy(Message(MESSAGE_DOMAIN_ERRNO, EIO, nullptr));
    ExpectHead(message, MESSAGE_DOMAIN_ERRNO, EIO);
    EXPECT_EQ(TextOf(message), ErrorDescription(EIO));
}

TEST(MessageTest, AnEmptyMessageInFrontIsAMessageOfItsOwn) {
    Message message(MESSAGE_DOMAIN_SERVER, 1, "text");
    message.PrependBy(Message());
    ExpectHead(message, MESSAGE_DOMAIN_UNKNOWN, 0);
    EXPECT_EQ(TextOf(message), L"\ntext");
}

TEST(MessageTest, AMessageCanBePrependedByItself) {
    Message message(MESSAGE_DOMAIN_SERVER, 1, "text");
    message.PrependBy(message);
    EXPECT_EQ(TextOf(message), L"text\ntext");
}

TEST(MessageTest, AnEmptyMessageInFrontOfAnEmptyOneLeavesItEmpty) {
    Message message;
    message.PrependBy(Message()).PrependBy(message);
    message.WrapBy(MESSAGE_DOMAIN_SERVER, 1, "text");
    EXPECT_EQ(TextOf(message), L"text");
}

TEST(MessageTest, PrependedPlaceholdersStayOpenBehindWhatIsFilled) {
    Message other(MESSAGE_DOMAIN_SERVER, 1, "%1 %1");
    other << "%2";
    Message message(MESSAGE_DOMAIN_SERVER, 2, "%1");
    message.PrependBy(other) << "b";
    EXPECT_EQ(TextOf(message), L"%2 b\n%1");
}

// ---- Finding an ID

TEST(MessageTest, TheIDOfTheOutermostMessageOfADomainIsFound) {
    Message message(MESSAGE_DOMAIN_ERRNO, EIO, nullptr);
    message.WrapBy(MESSAGE_DOMAIN_ERRNO, ENOENT, nullptr).WrapBy(MESSAGE_DOMAIN_SERVER, 3, "a");
    EXPECT_EQ(message.FindID(MESSAGE_DOMAIN_ERRNO), ENOENT);
    EXPECT_EQ(message.FindID(MESSAGE_DOMAIN_SERVER), 3);
    EXPECT_EQ(message.FindID(MESSAGE_DOMAIN_UNKNOWN), std::nullopt);
}

TEST(MessageTest, InnerMessagesOfADomainAreFoundByTheirNumber) {
    Message message(MESSAGE_DOMAIN_ERRNO, EIO, nullptr);
    message.WrapBy(MESSAGE_DOMAIN_SERVER, 3, "a").WrapBy(MESSAGE_DOMAIN_ERRNO, ENOENT, nullptr);
    EXPECT_EQ(message.FindID(MESSAGE_DOMAIN_ERRNO, 1), EIO);
    EXPECT_EQ(message.FindID(MESSAGE_DOMAIN_ERRNO, 2), std::nullopt);
    EXPECT_EQ(message.FindID(MESSAGE_DOMAIN_SERVER, 1), std::nullopt);
    EXPECT_EQ(Message().FindID(MESSAGE_DOMAIN_UNKNOWN, 1), std::nullopt);
}

TEST(MessageTest, AnEmptyMessageHasAnIDInTheUnknownDomainOnly) {
    EXPECT_EQ(Message().FindID(MESSAGE_DOMAIN_UNKNOWN), 0);
    EXPECT_EQ(Message().FindID(MESSAGE_DOMAIN_ERRNO), std::nullopt);
}

// ---- Copies

TEST(MessageTest, CopiesAreIndependent) {
    Message const original(MESSAGE_DOMAIN_SERVER, 1, "%1");
    Message copy(original);
    copy << "a";
    EXPECT_EQ(TextOf(original), L"%1");
    EXPECT_EQ(TextOf(copy), L"a");
    copy = original;
    EXPECT_EQ(TextOf(copy), L"%1");
}

TEST(MessageTest, TheTextOfACopyOutlivesTheOriginal) {
    std::optional<Message> original(std::in_place, MESSAGE_DOMAIN_SERVER, 1, "text");
    Message const copy = *original;
    original.reset();
    EXPECT_EQ(TextOf(copy), L"text");
}

TEST(MessageTest, ToCopyAndToReadAllocatesNothing) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    Message const message(MESSAGE_DOMAIN_ERRNO, EIO, nullptr);
    TestSupport::Allocations allocations;
    Message const copy = message;
    bool const isSame = copy.GetMessage() == message.GetMessage() && copy.what() == message.what();
    EXPECT_EQ(allocations.Stop(), 0U);
    EXPECT_TRUE(isSame);
}

TEST(MessageTest, ToCopyDoesNotThrow) {
    EXPECT_TRUE(std::is_nothrow_copy_constructible_v<Message>);
    EXPECT_TRUE(std::is_nothrow_copy_assignable_v<Message>);
}

// ---- Short of memory

/// Makes each allocation of the change fail in turn; the message must stay as it was each time.
template <class Change>
void ExpectUnchangedWithoutMemory(Message const& original, Change change) {
    for (unsigned long n = 1;; ++n) {
        Message message = original;
        TestSupport::Allocations allocations;
        allocations.FailNth(n);
        try {
            change(message);
        } catch (std::bad_alloc const&) {
        }
        allocations.Stop();
        if (!allocations.HasFailed()) {
            EXPECT_GT(n, 1U);
            return;
        }
        ExpectHead(message, original.GetDomain(), original.GetID());
        EXPECT_EQ(TextOf(message), TextOf(original)) << "when allocation " << n << " failed";
    }
}

TEST(MessageTest, AMessageStaysAsItWasWhenMemoryIsShort) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    std::wstring const longText(100, L'x');
    Message original(MESSAGE_DOMAIN_ERRNO, EIO, nullptr);
    original.WrapBy(MESSAGE_DOMAIN_SERVER, 1, "Failed to write %1 bytes to file '%1', which is bad.");
    Message const other = original;
    ExpectUnchangedWithoutMemory(original, [](Message& message) { message.SetDomainAndID(MESSAGE_DOMAIN_ERRNO, 3); });
    ExpectUnchangedWithoutMemory(original, [&](Message& message) { message.SetMessage(longText.c_str()); });
    ExpectUnchangedWithoutMemory(original, [](Message& message) { message.WrapBy(MESSAGE_DOMAIN_ERRNO, 4, nullptr); });
    ExpectUnchangedWithoutMemory(original, [&](Message& message) { message.PrependBy(other); });
    ExpectUnchangedWithoutMemory(original, [&](Message& message) { message << longText.c_str(); });
    ExpectUnchangedWithoutMemory(original, [](Message& message) { message << "narrow"; });
    ExpectUnchangedWithoutMemory(Message(), [](Message& message) { message.SetMessage(L"text"); });
}

} // namespace
