#include <FileSystem/PrivateSource/NamedPipeServerImpl.h>

#include <Base/Conversion.h>
#include <FileSystem/File.h>
#include <FileSystem/PrivateSource/NamedPipeUtil.h>
#include <PDCHeader/PDCfcntl.h>
#include <PDCHeader/PDCunistd.h>

#include <cerrno>
#include <cstdio>

namespace WFileSystem {
namespace {

void MakeNewFifo(std::wstring const& path) {
    constexpr unsigned short MODE = 0660;
    if (NamedPipeUtil::IsFileExist(path)) {
        File::Delete(path.c_str(), nullptr);
    }
    NamedPipeUtil::Mkfifo(path, MODE);
}

/// Makes sure that clients find a lock file. Open while it lives.
class LockFile {
public:
    explicit LockFile(std::wstring const& path)
        : fd_(File::OpenDescriptor(path.c_str(), File::OPEN_WRITE_TRUNCATE, File::SHARE_IGNORED)) {}
    LockFile(LockFile const&) = delete;
    LockFile& operator=(LockFile const&) = delete;
    ~LockFile() { WPDCHeader::close(fd_); }

private:
    int fd_;
};

} // namespace

NamedPipeServerImpl::NamedPipeServerImpl(wchar_t const* base, bool (*cancel)(), int pauseSeconds)
    : cancel_(cancel), base_(base), pauseSeconds_(pauseSeconds) {
    std::wstring const path = NamedPipeUtil::GetServerReaderPathFromBasicPath(base_);
    readDescriptor_ = ::open(WBase::WideCharToUTF8(path.c_str(), false).c_str(), O_RDONLY | O_NONBLOCK);
    if (readDescriptor_ == -1) {
        throw NamedPipeError("Can't open pipe for read");
    }
}

NamedPipeServerImpl::~NamedPipeServerImpl() {
    WPDCHeader::close(readDescriptor_);
    WPDCHeader::close(writeDescriptor_); // also -1; intended
}

int NamedPipeServerImpl::Read(void* buf, unsigned long n) {
    return NamedPipeUtil::Read(readDescriptor_, buf, n, cancel_, pauseSeconds_);
}

int NamedPipeServerImpl::Write(void const* buf, unsigned long n) {
    return NamedPipeUtil::Write(writeDescriptor_, buf, n, cancel_, pauseSeconds_);
}

int NamedPipeServerImpl::Listen() {
    std::wstring const path = NamedPipeUtil::GetServerWriterPathFromBasicPath(base_);
    WBase::ReturnString const narrowPath = WBase::WideCharToUTF8(path.c_str(), false);
    while (writeDescriptor_ == -1 && !cancel_()) {
        writeDescriptor_ = ::open(narrowPath.c_str(), O_WRONLY | O_NONBLOCK);
        if (writeDescriptor_ == -1) {
            if (errno != ENXIO) {
                std::perror("open write error\n");
                throw NamedPipeError("Can't open named pipe for write");
            }
            NamedPipeUtil::Pause(pauseSeconds_);
        }
    }
    return 0;
}

int NamedPipeServerImpl::Disconnect() {
    return 0; // the first connection stays; intended
}

std::unique_ptr<NamedPipeServer> CreateNamedPipeServer(wchar_t const* base, bool (*cancel)(), int pauseSeconds) {
    MakeNewFifo(NamedPipeUtil::GetServerReaderPathFromBasicPath(base));
    MakeNewFifo(NamedPipeUtil::GetServerWriterPathFromBasicPath(base));
    LockFile const lockFile(NamedPipeUtil::GetLockPathFromBasicPath(base));
    return std::make_unique<NamedPipeServerImpl>(base, cancel, pauseSeconds);
}

} // namespace WFileSystem
