#ifndef WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_FAILURE_H
#define WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_FAILURE_H

#include <Base/Exception.h>
#include <Base/System.h>
#include <Defines/StrongObjects.h>

#include <string>

namespace WFileSystem {

using SystemCallReport = WBase::ExceptionImpl<WBase::Message>;

inline void AppendPiece(std::wstring& text, wchar_t const* piece) {
    text += piece;
}

inline void AppendPiece(std::wstring& text, int piece) {
    text += std::to_wstring(piece);
}

/// The report of a failed system call. The pieces are plain values, so that nothing at the call site can change the
/// error before it is read.
template <class... Pieces>
SystemCallReport MakeReport(unsigned int error, Pieces... pieces) {
    std::wstring text;
    (AppendPiece(text, pieces), ...);
    return SystemCallReport(text.c_str(), error);
}

/// A message of the library's own, without a cause.
inline WBase::Message MakeMessage(char const* text) {
    return WBase::Message(WBase::MESSAGE_DOMAIN_SERVER, FILESYSTEM_MESSAGE_ID, text);
}

/// A message of the library's own, caused by the system error of the moment.
inline WBase::Message MakeErrnoMessage(char const* text) {
    WBase::Message message(WBase::MESSAGE_DOMAIN_ERRNO, static_cast<int>(WBase::GetLastError()), nullptr);
    message.WrapBy(WBase::MESSAGE_DOMAIN_SERVER, FILESYSTEM_MESSAGE_ID, text);
    return message;
}

/// Prepends a caught failure to the report, if there is one, as the cause of a message about the path.
inline void ReportCaught(WBase::Message* report, WBase::Message failure, char const* text, wchar_t const* path) {
    if (report != nullptr) {
        failure.WrapBy(WBase::MESSAGE_DOMAIN_SERVER, FILESYSTEM_MESSAGE_ID, text) << path;
        report->PrependBy(failure);
    }
}

} // namespace WFileSystem

#endif
