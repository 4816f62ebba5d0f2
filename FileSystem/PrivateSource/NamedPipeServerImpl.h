#ifndef WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_NAMEDPIPESERVERIMPL_H
#define WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_NAMEDPIPESERVERIMPL_H

#include <FileSystem/NamedPipe.h>

#include <string>

namespace WFileSystem {

/// The server's side of a channel whose FIFOs exist.
class NamedPipeServerImpl : public NamedPipeServer {
public:
    /// \throws NamedPipeError "Can't open pipe for read"
    NamedPipeServerImpl(wchar_t const* base, bool (*cancel)(), int pauseSeconds);
    ~NamedPipeServerImpl() override;

    int Read(void* buf, unsigned long n) override;
    int Write(void const* buf, unsigned long n) override;
    int Listen() override;
    int Disconnect() override;

private:
    bool (*cancel_)();
    std::wstring base_;
    int pauseSeconds_;
    int readDescriptor_;
    int writeDescriptor_ = -1; // until Listen has found a client
};

} // namespace WFileSystem

#endif
