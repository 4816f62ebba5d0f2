#include <Base/Exception.h>

#include <Base/System.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/Text.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <csignal>
#include <exception>
#include <string>
#include <type_traits>

namespace {

using TestSupport::ErrorDescription;
using TestSupport::ExpectedMessage;
using TestSupport::Matches;
using WBase::Message;
using WBase::MESSAGE_DOMAIN_ERRNO;
using WBase::MESSAGE_DOMAIN_SERVER;
using WBase::MESSAGE_DOMAIN_UNKNOWN;
using WBase::StringConversionException;
using Report = WBase::ExceptionImpl<Message>;

ExpectedMessage Expected(unsigned short domain, int id, std::wstring const& text) {
    return {&typeid(Report), domain, id, text};
}

// ---- The four constructors

TEST(ExceptionTest, ANarrowTextIsFollowedByTheDescriptionOfTheError) {
    Report const report("WFileSystem::File::Flush: ::fdatasync failed.", EIO);
    EXPECT_TRUE(Matches(
        report,
        Expected(
            MESSAGE_DOMAIN_UNKNOWN, EIO, L"WFileSystem::File::Flush: ::fdatasync failed.\n" + ErrorDescription(EIO))));
}

TEST(ExceptionTest, AWideTextIsFollowedByTheDescriptionOfTheError) {
    Report const report(L"WFileSystem::File::OpenDescriptor: ::open failed for 'd\u00E4ta/x.bin'.", ENOENT);
    EXPECT_TRUE(Matches(
        report,
        Expected(
            MESSAGE_DOMAIN_UNKNOWN, ENOENT,
            L"WFileSystem::File::OpenDescriptor: ::open failed for 'd\u00E4ta/x.bin'.\n" + ErrorDescription(ENOENT))));
}

TEST(ExceptionTest, ErrorZeroIsDescribedToo) {
    std::wstring const expected = L"text\n" + ErrorDescription(0);
    EXPECT_TRUE(Matches(Report(L"text", 0), Expected(MESSAGE_DOMAIN_UNKNOWN, 0, expected)));
    EXPECT_TRUE(Matches(Report("text", 0), Expected(MESSAGE_DOMAIN_UNKNOWN, 0, expected)));
}

TEST(ExceptionTest, AnyErrorBecomesTheIDAsItIs) {
    EXPECT_EQ(Report(L"text", 0xFFFFFFFF).GetID(), -1);
    EXPECT_EQ(Report("text", 123456).GetID(), 123456);
    EXPECT_EQ(Report(L"text", 123456).GetMessage(), L"text\n" + std::wstring(WBase::GetSystemErrorDescription(123456)));
}

TEST(ExceptionTest, ACauseGivesDomainIDAndItsWholeText) {
    Message cause(MESSAGE_DOMAIN_UNKNOWN, 4, "inner");
    cause.WrapBy(MESSAGE_DOMAIN_SERVER, 3, "outer");
    EXPECT_TRUE(Matches(Report(L"text", cause), Expected(MESSAGE_DOMAIN_SERVER, 3, L"text\nouter\ninner")));
}

TEST(ExceptionTest, ACauseInTheErrnoDomainIsNoException) {
    StringConversionException const cause(MESSAGE_DOMAIN_ERRNO, EILSEQ, "bad text");
    EXPECT_TRUE(Matches(Report(L"text", cause), Expected(MESSAGE_DOMAIN_ERRNO, EILSEQ, L"text\nbad text")));
}

TEST(ExceptionTest, ATextAloneHasTheIDMinus1) {
    EXPECT_TRUE(Matches(Report("t\xC3\xA4xt"), Expected(MESSAGE_DOMAIN_UNKNOWN, -1, L"t\u00E4xt")));
}

TEST(ExceptionTest, ANullTextAloneIsTheEmptyText) {
    EXPECT_TRUE(Matches(Report(nullptr), Expected(MESSAGE_DOMAIN_UNKNOWN, -1, L"")));
}

TEST(ExceptionTest, ANullFirstLineIsEmpty) {
    std::wstring const expected = L"\n" + ErrorDescription(EIO);
    EXPECT_EQ(Report(static_cast<char const*>(nullptr), EIO).GetMessage(), expected);
    EXPECT_EQ(Report(static_cast<wchar_t const*>(nullptr), EIO).GetMessage(), expected);
    EXPECT_EQ(Report(nullptr, Message(MESSAGE_DOMAIN_SERVER, 1, "cause")).GetMessage(), std::wstring(L"\ncause"));
}

TEST(ExceptionTest, ABadByteInANarrowTextStillGivesAReport) {
    EXPECT_EQ(Report("a\xFFz", EIO).GetMessage(), L"a\uFFFDz\n" + ErrorDescription(EIO));
    EXPECT_EQ(Report("a\xFFz").GetMessage(), std::wstring(L"a\uFFFDz"));
}

TEST(ExceptionTest, PathsThatLookLikePlaceholdersStayAsTheyAre) {
    EXPECT_EQ(Report(L"'/%1/%2'", EIO).GetMessage(), L"'/%1/%2'\n" + ErrorDescription(EIO));
}

// ---- The types

TEST(ExceptionTest, AReportIsCaughtAsItselfAsAMessageAndAsAStandardException) {
    EXPECT_THROW(throw Report("text", EIO), Report);
    EXPECT_THROW(throw Report("text", EIO), Message);
    EXPECT_THROW(throw Report("text", EIO), std::exception);
}

TEST(ExceptionTest, AWrappedMessageIsNoReport) {
    Message message(MESSAGE_DOMAIN_ERRNO, EIO, nullptr);
    message.WrapBy(MESSAGE_DOMAIN_SERVER, 1, "text");
    try {
        throw message;
    } catch (Report const&) {
        FAIL() << "It is caught as a report.";
    } catch (Message const& caught) {
        EXPECT_EQ(caught.GetMessage(), L"text\n" + ErrorDescription(EIO));
    }
}

TEST(ExceptionTest, AConversionFailureIsAMessageButNoReport) {
    try {
        throw StringConversionException(MESSAGE_DOMAIN_ERRNO, EILSEQ, "text");
    } catch (Report const&) {
        FAIL() << "It is caught as a report.";
    } catch (Message const& caught) {
        ExpectedMessage const expected = {&typeid(StringConversionException), MESSAGE_DOMAIN_ERRNO, EILSEQ, L"text"};
        EXPECT_TRUE(Matches(caught, expected));
    }
}

TEST(ExceptionTest, TheTypesAddNoDataToAMessage) {
    EXPECT_EQ(sizeof(Report), sizeof(Message));
    EXPECT_EQ(sizeof(StringConversionException), sizeof(Message));
}

TEST(ExceptionTest, NothingLeavesAConstructor) {
    EXPECT_TRUE((std::is_nothrow_constructible_v<Report, char const*, unsigned int>));
    EXPECT_TRUE((std::is_nothrow_constructible_v<Report, wchar_t const*, unsigned int>));
    EXPECT_TRUE((std::is_nothrow_constructible_v<Report, wchar_t const*, Message const&>));
    EXPECT_TRUE((std::is_nothrow_constructible_v<Report, char const*>));
    EXPECT_TRUE(std::is_nothrow_copy_constructible_v<Report>);
    EXPECT_TRUE(std::is_nothrow_copy_constructible_v<StringConversionException>);
}

// ---- Short of memory

/// How constructing a report ends when one of its allocations fails.
enum Ending { WITHOUT_FAILURE, WITHOUT_TEXT, WITH_WRONG_CONTENT };

/// Makes the n-th allocation of a constructor fail, in a process of its own.
/// \return an Ending, or the negative number of the signal that ended the process
template <class Construct>
int EndingWhenAllocationFails(unsigned long n, Construct construct) {
    TestSupport::Child child([&](TestSupport::Child::Parent&) -> int {
        TestSupport::Allocations allocations;
        allocations.FailNth(n);
        Report const report = construct();
        allocations.Stop();
        if (!allocations.HasFailed()) {
            return WITHOUT_FAILURE;
        }
        bool const isTextless = report.GetDomain() == MESSAGE_DOMAIN_UNKNOWN && report.GetID() == EIO &&
                                *report.GetMessage() == L'\0' && *report.what() == '\0';
        return isTextless ? WITHOUT_TEXT : WITH_WRONG_CONTENT;
    });
    return child.Wait();
}

constexpr wchar_t LONG_TEXT[] = L"A text that is longer than what fits into a string without an allocation";

TEST(ExceptionTest, AReportWhoseLinesCanNotBePutTogetherHasNoText) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    unsigned long n = 1;
    auto const next = [&n] { return EndingWhenAllocationFails(n++, [] { return Report(LONG_TEXT, EIO); }); };
    int ending = next();
    // Until its domain and ID and the description are there, a report can't be built at all.
    EXPECT_EQ(ending, -SIGABRT);
    while (ending == -SIGABRT) {
        ending = next();
    }
    EXPECT_EQ(ending, WITHOUT_TEXT);
    while (ending == WITHOUT_TEXT) {
        ending = next();
    }
    EXPECT_EQ(ending, WITHOUT_FAILURE);
}

TEST(ExceptionTest, ATextAloneThatCanNotBeStoredEndsTheProcess) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    unsigned long n = 1;
    auto const next = [&n] { return EndingWhenAllocationFails(n++, [] { return Report("text"); }); };
    int ending = next();
    EXPECT_EQ(ending, -SIGABRT);
    while (ending == -SIGABRT) {
        ending = next();
    }
    EXPECT_EQ(ending, WITHOUT_FAILURE);
}

} // namespace
