#ifndef WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_WRITEABLEFILEIMPL_H
#define WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_WRITEABLEFILEIMPL_H

#include <FileSystem/PrivateSource/FileObject.h>
#include <FileSystem/WriteableFile.h>

namespace WFileSystem {

/// A file open for writing only.
class WriteableFileImpl : public FileObject::WriteSide<FileObject::GenericSide<WriteableFile>> {
public:
    WriteableFileImpl(wchar_t const* path, IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy);
    ~WriteableFileImpl() override;
};

} // namespace WFileSystem

#endif
