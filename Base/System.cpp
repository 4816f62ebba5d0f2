#include <Base/System.h>

#include <Base/Conversion.h>
#include <PDCHeader/PDCstat.h>
#include <PDCHeader/PDCunistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace WBase {
namespace {

// strerror_r comes in two forms; overloads on its result tell which one the C library has.
[[maybe_unused]] char const* DescriptionOf(char const* result, char const* /*buffer*/) {
    return result;
}

[[maybe_unused]] char const* DescriptionOf(int /*result*/, char const* buffer) {
    return buffer;
}

bool IsDirectory(char const* path) {
    struct stat status;
    return ::stat(path, &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

unsigned int GetLastError() noexcept {
    return static_cast<unsigned int>(errno);
}

ReturnWString GetSystemErrorDescription(unsigned int error) {
    char buffer[1024] = "";
    return UTF8ToWideChar(DescriptionOf(::strerror_r(static_cast<int>(error), buffer, sizeof buffer), buffer), true);
}

ReturnString GetContainerPath() {
    char const* const directory = std::getenv("TMPDIR");
    bool const isUsable = directory != nullptr && *directory != '\0' && IsDirectory(directory);
    return ReturnString(isUsable ? directory : "/tmp");
}

void Sleep(unsigned long milliseconds) noexcept {
    timespec remaining;
    remaining.tv_sec = static_cast<time_t>(milliseconds / 1000);
    remaining.tv_nsec = static_cast<long>(milliseconds % 1000 * 1000000);
    WPDCHeader::RetryWhileInterrupted([&] { return ::nanosleep(&remaining, &remaining); });
}

} // namespace WBase
