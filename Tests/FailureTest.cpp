#include <FileSystem/PrivateSource/Failure.h>

#include <Tests/Support/Allocations.h>
#include <Tests/Support/Messages.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <new>

namespace {

using TestSupport::ErrorDescription;
using TestSupport::Matches;
using WBase::Message;
using WBase::MESSAGE_DOMAIN_SERVER;

TEST(FailureTest, TheLibraryHasOneIDForItsOwnMessages) {
    EXPECT_EQ(WFileSystem::FILESYSTEM_MESSAGE_ID, 305419896);
}

TEST(FailureTest, AReportIsMadeOfPiecesInTheirOrder) {
    wchar_t const* const path = L"d\u00E4ta/%1";
    EXPECT_TRUE(Matches(
        WFileSystem::MakeReport(ENOENT, L"F: ::dup failed for '", path, L"', ", -12, L"."),
        TestSupport::Report(L"F: ::dup failed for 'd\u00E4ta/%1', -12.", ENOENT)));
}

TEST(FailureTest, ATextThatCanNotBePutTogetherIsNoReport) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::Allocations allocations;
    allocations.FailNth(1);
    EXPECT_THROW(
        WFileSystem::MakeReport(ENOENT, L"A text that needs memory of its own, as almost all reports do."),
        std::bad_alloc);
}

TEST(FailureTest, AMessageHasNoCause) {
    Message message = WFileSystem::MakeMessage("Failed to read %1 bytes from file '%1'.");
    message << 6UL << L"/x";
    EXPECT_TRUE(Matches(message, TestSupport::WrappedWithoutCause(L"Failed to read 6 bytes from file '/x'.")));
}

TEST(FailureTest, AnErrnoMessageIsCausedByTheLastError) {
    errno = EIO;
    Message message = WFileSystem::MakeErrnoMessage("Failed to flush file '%1'.");
    message << L"/x";
    EXPECT_TRUE(Matches(message, TestSupport::Wrapped(L"Failed to flush file '/x'.", EIO)));
    EXPECT_EQ(message.FindID(WBase::MESSAGE_DOMAIN_ERRNO), EIO);
}

TEST(FailureTest, ACaughtFailureIsPutInFrontOfTheReport) {
    Message report(MESSAGE_DOMAIN_SERVER, 1, "earlier");
    WFileSystem::ReportCaught(&report, Message(WBase::MESSAGE_DOMAIN_ERRNO, EIO, nullptr), "Failed: '%1'.", L"/x");
    EXPECT_TRUE(
        Matches(report, TestSupport::WrappedWithoutCause(L"Failed: '/x'.\n" + ErrorDescription(EIO) + L"\nearlier")));
    WFileSystem::ReportCaught(nullptr, Message(), "Failed: '%1'.", L"/x"); // nobody wants to know
}

} // namespace
