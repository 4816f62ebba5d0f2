#include <FileSystem/PrivateSource/RecordLock.h>

#include <PDCHeader/PDCunistd.h>

namespace WFileSystem {

int SetRecordLock(int fd, int command, int type, pid_t process) noexcept {
    struct flock record = {};
    record.l_start = 0;
    record.l_len = 0;
    record.l_pid = process;
    record.l_type = static_cast<short>(type);
    record.l_whence = SEEK_SET;
    return WPDCHeader::RetryWhileInterrupted([&] { return ::fcntl(fd, command, &record); });
}

} // namespace WFileSystem
