#ifndef WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_READABLEFILEIMPL_H
#define WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_READABLEFILEIMPL_H

#include <FileSystem/PrivateSource/FileObject.h>
#include <FileSystem/ReadableFile.h>

namespace WFileSystem {

/// A file open for reading only. It measures no time, unlike the other file objects, on purpose: its timers stay at
/// zero.
class ReadableFileImpl : public FileObject::ReadSide<FileObject::GenericSide<ReadableFile>, FileObject::Untimed> {
public:
    /// \param inprocessNoWait true: wait at most the locker's time-out for the other file objects of this process
    ReadableFileImpl(wchar_t const* path, bool inprocessNoWait);
    ~ReadableFileImpl() override;
};

} // namespace WFileSystem

#endif
