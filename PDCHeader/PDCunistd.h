#ifndef WFILESYSTEM_PDCHEADER_PDCUNISTD_H
#define WFILESYSTEM_PDCHEADER_PDCUNISTD_H

/// \file
/// \brief The system's `unistd.h`, and the rules for calls that a signal interrupts.

#include <Defines/Export.h>

#include <cerrno>
#include <unistd.h>

namespace WPDCHeader {

/// Closes a descriptor; the library's one way of doing so.
///
/// A close that fails with `EINTR` is repeated, ten calls at most in all.
///
/// \return 0, or -1 with `errno` set: by the first failure other than `EINTR`, or by the tenth call.
/// \warning On Linux an interrupted close has released the descriptor already. When another thread opens a file between
///     two tries, the repetition closes that thread's descriptor. Linux file systems on local disks do not interrupt a
///     close.
/// \par Threads
///     Any thread; the caller sees to it that nobody else uses the descriptor.
WFILESYSTEM_EXPORT int close(int fd) noexcept;

/// Makes a system call, again and without limit while it fails with `EINTR`.
///
/// \param call makes the call and returns its result, -1 for a failure with `errno` set.
/// \return the last result; `errno` is that of the last call.
///
/// \code
/// int const fd = WPDCHeader::RetryWhileInterrupted([&] { return ::open(path, O_RDONLY); });
/// \endcode
template <class Call>
auto RetryWhileInterrupted(Call call) {
    auto result = call();
    while (result == -1 && errno == EINTR) {
        result = call();
    }
    return result;
}

} // namespace WPDCHeader

#endif
