#include <FileSystem/PrivateSource/UpdateableFileImpl.h>

#include <PDCHeader/PDCfcntl.h>

namespace WFileSystem {

UpdateableFileImpl::UpdateableFileImpl(wchar_t const* path, IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy)
    : ReadSide(path, policy) {
    constexpr wchar_t CONSTRUCTOR[] = L"WFileSystem::UpdateableFileImpl::UpdateableFileImpl";
    ModuleMain& module = FileObject::GetModule(CONSTRUCTOR, path);
    // Descriptors 0 to 2 are accepted, unlike by the other file objects; intended.
    descriptor_ =
        FileObject::OpenForWriting(module, CONSTRUCTOR, path, O_RDWR, FileObject::StandardDescriptors::ACCEPTED);
    inprocessLock_.Assign(FileObject::GetLocker(module, path, descriptor_), false);
}

UpdateableFileImpl::~UpdateableFileImpl() {
    CloseByPolicy();
}

long long UpdateableFileImpl::MovePosition(long long offset) {
    return FileImpl::MovePosition(GetPath(), descriptor_, offset);
}

std::unique_ptr<UpdateableFile> OpenUpdateableFile(wchar_t const* path, IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy) {
    return std::make_unique<UpdateableFileImpl>(path, policy);
}

} // namespace WFileSystem
