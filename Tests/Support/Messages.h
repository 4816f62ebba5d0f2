#ifndef WFILESYSTEM_TESTS_SUPPORT_MESSAGES_H
#define WFILESYSTEM_TESTS_SUPPORT_MESSAGES_H

/// \file
/// \brief Assertions for the library's failures.
///
/// \code
/// EXPECT_REPORT(File::Seek(fd, 0), L"WFileSystem::File::Seek: ::lseek failed.", EBADF);
/// EXPECT_REPORT_NO_ERROR(semaphore.ReleaseResource(), L"WSynch::InprocessSemaphore::ReleaseResource: exceeded the maximum.");
/// EXPECT_WRAPPED(FileImpl::Flush(L"/x", fd), L"Failed to flush file '/x'.", EIO);
/// EXPECT_WRAPPED_NO_CAUSE(FileImpl::Read(L"/x", fd, data, 10), L"Failed to read 6 bytes from file '/x'.");
/// \endcode
///
/// The message is compared as a whole: exact type, domain, ID and text.

#include <Base/Exception.h>
#include <Base/Message.h>
#include <Tests/Support/Text.h>

#include <gtest/gtest.h>

#include <exception>
#include <string>
#include <typeinfo>
#include <utility>

namespace TestSupport {

/// What a message should be.
struct ExpectedMessage {
    std::type_info const* type;
    unsigned short domain;
    int id;
    std::wstring text;
};

/// A system-call report: an ExceptionImpl with the error number as its ID and the system's words on the second line.
inline ExpectedMessage Report(std::wstring const& firstLine, int error) {
    return {
        &typeid(WBase::ExceptionImpl<WBase::Message>), WBase::MESSAGE_DOMAIN_UNKNOWN, error,
        firstLine + L'\n' + ErrorDescription(error)};
}

/// A report without a system error: the ID is -1.
inline ExpectedMessage ReportWithoutError(std::wstring const& text) {
    return {&typeid(WBase::ExceptionImpl<WBase::Message>), WBase::MESSAGE_DOMAIN_UNKNOWN, -1, text};
}

/// A wrapped message without a cause: a plain Message with the library's one ID.
inline ExpectedMessage WrappedWithoutCause(std::wstring const& text) {
    return {&typeid(WBase::Message), WBase::MESSAGE_DOMAIN_SERVER, 0x12345678, text};
}

/// A wrapped errno message: as above, with the system's words on the second line.
inline ExpectedMessage Wrapped(std::wstring const& firstLine, int error) {
    return WrappedWithoutCause(firstLine + L'\n' + ErrorDescription(error));
}

/// Compares a message; also for those that a function hands out by pointer.
inline ::testing::AssertionResult Matches(WBase::Message const& message, ExpectedMessage const& expected) {
    auto const show = [](std::type_info const& type, unsigned short domain, int id, std::wstring const& text) {
        return std::string("type ") + NameOf(type) + ", domain " + std::to_string(domain) + ", ID " +
               std::to_string(id) + ", text " + Readable(text);
    };
    std::wstring const text = message.GetMessage();
    if (typeid(message) == *expected.type && message.GetDomain() == expected.domain && message.GetID() == expected.id &&
        text == expected.text) {
        return ::testing::AssertionSuccess();
    }
    return ::testing::AssertionFailure() << "  Actual: "
                                         << show(typeid(message), message.GetDomain(), message.GetID(), text)
                                         << "\nExpected: "
                                         << show(*expected.type, expected.domain, expected.id, expected.text);
}

/// Runs the code, which should throw the message.
template <class Code>
::testing::AssertionResult Throws(Code code, ExpectedMessage const& expected) {
    try {
        code();
    } catch (WBase::Message const& message) {
        return Matches(message, expected);
    } catch (std::exception const& exception) {
        return ::testing::AssertionFailure() << "It throws " << NameOf(typeid(exception)) << ": " << exception.what();
    } catch (...) {
        return ::testing::AssertionFailure() << "It throws something that is no std::exception.";
    }
    return ::testing::AssertionFailure() << "It throws nothing. Expected: " << Readable(expected.text);
}

} // namespace TestSupport

#define WFILESYSTEM_EXPECT_MESSAGE(statement, expected)                                                                \
    GTEST_AMBIGUOUS_ELSE_BLOCKER_                                                                                      \
    if (::testing::AssertionResult const result_ = ::TestSupport::Throws([&] { statement; }, expected))                \
        ;                                                                                                              \
    else                                                                                                               \
        ADD_FAILURE() << #statement "\n" << result_.message()

/// The statement throws a system-call report with this first line and error number.
#define EXPECT_REPORT(statement, firstLine, error)                                                                     \
    WFILESYSTEM_EXPECT_MESSAGE(statement, ::TestSupport::Report(firstLine, error))

/// The statement throws a report of this text alone, with the ID -1.
#define EXPECT_REPORT_NO_ERROR(statement, text)                                                                        \
    WFILESYSTEM_EXPECT_MESSAGE(statement, ::TestSupport::ReportWithoutError(text))

/// The statement throws a wrapped errno message with this first line and error number.
#define EXPECT_WRAPPED(statement, firstLine, error)                                                                    \
    WFILESYSTEM_EXPECT_MESSAGE(statement, ::TestSupport::Wrapped(firstLine, error))

/// The statement throws a wrapped message of this text alone.
#define EXPECT_WRAPPED_NO_CAUSE(statement, text)                                                                       \
    WFILESYSTEM_EXPECT_MESSAGE(statement, ::TestSupport::WrappedWithoutCause(text))

#endif
