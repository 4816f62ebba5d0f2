#include <FileSystem/PrivateSource/ReadableFileImpl.h>

#include <Base/Conversion.h>
#include <PDCHeader/PDCfcntl.h>

namespace WFileSystem {

ReadableFileImpl::ReadableFileImpl(wchar_t const* path, bool inprocessNoWait) : ReadSide(path) {
    constexpr wchar_t CONSTRUCTOR[] = L"WFileSystem::ReadableFileImpl::ReadableFileImpl";
    constexpr mode_t NO_CREATION = 0;
    ModuleMain& module = FileObject::GetModule(CONSTRUCTOR, path);
    WBase::ReturnString const narrowPath = WBase::WideCharToUTF8(path, false);
    descriptor_ = FileObject::Open(
        CONSTRUCTOR, path, narrowPath.c_str(), O_RDONLY, NO_CREATION, FileObject::StandardDescriptors::REFUSED);
    // When the time is over, the descriptor stays open and the holder unlocks what it never locked; both intended.
    inprocessLock_.Assign(FileObject::GetLocker(module, path, descriptor_), inprocessNoWait);
}

ReadableFileImpl::~ReadableFileImpl() {
    if (descriptor_ != -1) {
        FileImpl::CloseAndGroundHandle_NoThrow(descriptor_);
    }
}

std::unique_ptr<ReadableFile> OpenReadableFile(wchar_t const* path) {
    return std::make_unique<ReadableFileImpl>(path, false);
}

std::unique_ptr<ReadableFile> OpenReadableFile_InProcessLockNoWait(wchar_t const* path) {
    return std::make_unique<ReadableFileImpl>(path, true);
}

} // namespace WFileSystem
