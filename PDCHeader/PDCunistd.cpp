#include <PDCHeader/PDCunistd.h>

namespace WPDCHeader {

int close(int fd) noexcept {
    constexpr int MAXIMAL_CALLS = 10;
    int result = ::close(fd);
    for (int calls = 1; calls < MAXIMAL_CALLS && result == -1 && errno == EINTR; ++calls) {
        result = ::close(fd);
    }
    return result;
}

} // namespace WPDCHeader
