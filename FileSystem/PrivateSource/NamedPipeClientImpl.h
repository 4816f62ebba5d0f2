#ifndef WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_NAMEDPIPECLIENTIMPL_H
#define WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_NAMEDPIPECLIENTIMPL_H

#include <FileSystem/NamedPipe.h>

#include <string>

namespace WFileSystem {

/// The client's side of a channel. The destructor closes nothing, on purpose.
class NamedPipeClientImpl : public NamedPipeClient {
public:
    explicit NamedPipeClientImpl(wchar_t const* base);

    int Read(void* buf, unsigned long n) override;
    int Write(void const* buf, unsigned long n) override;
    int Connect() override;
    int Disconnect() override;

private:
    std::wstring base_;
    [[maybe_unused]] int reserved_ = 2; // part of the layout; no operation reads it
    int readDescriptor_ = -1;
    int writeDescriptor_ = -1;
    int lockDescriptor_ = -1;
};

} // namespace WFileSystem

#endif
