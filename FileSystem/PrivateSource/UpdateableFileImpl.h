#ifndef WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_UPDATEABLEFILEIMPL_H
#define WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_UPDATEABLEFILEIMPL_H

#include <FileSystem/PrivateSource/FileObject.h>
#include <FileSystem/UpdateableFile.h>

namespace WFileSystem {

/// A file open for reading and writing.
class UpdateableFileImpl
    : public FileObject::ReadSide<
          FileObject::WriteSide<FileObject::GenericSide<UpdateableFile>>, WBase::TotalTimer::Timer> {
public:
    UpdateableFileImpl(wchar_t const* path, IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy);
    ~UpdateableFileImpl() override;

    /// Leaves the lock-touched flag as it is, unlike in the other file objects; intended.
    long long MovePosition(long long offset) override;
};

} // namespace WFileSystem

#endif
