#include <FileSystem/PrivateSource/WriteableFileImpl.h>

#include <PDCHeader/PDCfcntl.h>

namespace WFileSystem {

WriteableFileImpl::WriteableFileImpl(wchar_t const* path, IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy)
    : WriteSide(path, policy) {
    constexpr wchar_t CONSTRUCTOR[] = L"WFileSystem::WriteableFileImpl::WriteableFileImpl";
    ModuleMain& module = FileObject::GetModule(CONSTRUCTOR, path);
    descriptor_ =
        FileObject::OpenForWriting(module, CONSTRUCTOR, path, O_WRONLY, FileObject::StandardDescriptors::REFUSED);
    inprocessLock_.Assign(FileObject::GetLocker(module, path, descriptor_), false);
}

WriteableFileImpl::~WriteableFileImpl() {
    CloseByPolicy();
}

std::unique_ptr<WriteableFile> OpenWriteableFile(wchar_t const* path, IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy) {
    return std::make_unique<WriteableFileImpl>(path, policy);
}

} // namespace WFileSystem
