#include <FileSystem/PrivateSource/NamedPipeClientImpl.h>

#include <Base/Conversion.h>
#include <FileSystem/FileImpl.h>
#include <FileSystem/PrivateSource/NamedPipeUtil.h>
#include <PDCHeader/PDCfcntl.h>
#include <PDCHeader/PDCunistd.h>

#include <cstdio>
#include <cstdlib>

namespace WFileSystem {
namespace {

/// Tries once, and without close-on-exec, unlike where this library opens files; both intended.
void Open(int& fd, std::wstring const& path, int flags, char const* failure) {
    fd = ::open(WBase::WideCharToUTF8(path.c_str(), false).c_str(), flags);
    if (fd == -1) {
        throw NamedPipe::NamedPipeError(failure);
    }
}

void Print(WBase::Message const& message) {
    char text[1024] = {}; // ends with a NUL also where the conversion stops early
    std::wcstombs(text, message.GetMessage(), sizeof text - 1);
    std::fprintf(stderr, "%s\n", text);
}

} // namespace

NamedPipeClientImpl::NamedPipeClientImpl(wchar_t const* base) : base_(base) {}

int NamedPipeClientImpl::Read(void* buf, unsigned long n) {
    return NamedPipeUtil::Read(readDescriptor_, buf, n);
}

int NamedPipeClientImpl::Write(void const* buf, unsigned long n) {
    return NamedPipeUtil::Write(writeDescriptor_, buf, n);
}

int NamedPipeClientImpl::Connect() {
    // What a failure leaves open, the lock with it, stays until Disconnect; intended.
    std::wstring const lockPath = NamedPipeUtil::GetLockPathFromBasicPath(base_);
    Open(lockDescriptor_, lockPath, O_WRONLY, "Can't open lock for pipe");
    try {
        FileImpl::WriteLock(lockPath.c_str(), lockDescriptor_, false);
    } catch (WBase::Message const& message) {
        Print(message);
        return -1;
    }
    // In this order: the server finds a writer on the FIFO that it reads, and then, when it listens, a reader on the
    // other.
    std::wstring const toServer = NamedPipeUtil::GetServerReaderPathFromBasicPath(base_);
    Open(writeDescriptor_, toServer, O_WRONLY, "Can't open pipe for write");
    std::wstring const toClient = NamedPipeUtil::GetServerWriterPathFromBasicPath(base_);
    Open(readDescriptor_, toClient, O_RDONLY, "Can't open pipe for read");
    return 0;
}

int NamedPipeClientImpl::Disconnect() {
    FileImpl::Unlock(lockDescriptor_);
    // The fields keep their numbers; intended.
    WPDCHeader::close(lockDescriptor_);
    WPDCHeader::close(readDescriptor_);
    WPDCHeader::close(writeDescriptor_);
    return 0;
}

std::unique_ptr<NamedPipeClient> CreateNamedPipeClient(wchar_t const* base) {
    return std::make_unique<NamedPipeClientImpl>(base);
}

} // namespace WFileSystem
