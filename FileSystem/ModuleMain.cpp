#include <FileSystem/PrivateSource/ModuleMain.h>

#include <cstdlib>
#include <memory>

namespace WFileSystem {
namespace {

unsigned short ReadFileMode() {
    constexpr unsigned long DEFAULT = 0664;
    constexpr unsigned long ALL_BITS = 0777;
    constexpr unsigned long ALWAYS = 0660;
    char const* const value = std::getenv("VUSK_FILE_MODE");
    unsigned long const mode = value != nullptr ? std::strtoul(value, nullptr, 8) : 0;
    return static_cast<unsigned short>(mode >= 1 && mode <= ALL_BITS ? mode | ALWAYS : DEFAULT);
}

} // namespace

WBase::ModuleMainPtr<ModuleMain, ModuleMain> gModuleMainPtr;

ModuleMain::ModuleMain() {
    fileMode_ = ReadFileMode();
}

ModuleMain::~ModuleMain() {
    registry_.clear();
    ::pthread_mutex_destroy(registryMutex_.Get());
}

WBase::ReturnPtrI<InprocessFileLocker> ModuleMain::GetInprocessFileLocker(wchar_t const* path, int fd) {
    InprocessFileLocker::ID const id(path, fd);
    WSynch::InprocessRecursiveMutex::Lock const lock(registryMutex_);
    auto position = registry_.lower_bound(id);
    if (position == registry_.end() || id < position->first) {
        auto locker = std::make_unique<InprocessFileLocker>(id, this);
        position = registry_.emplace_hint(position, id, locker.get());
        static_cast<void>(locker.release()); // it owns itself from now on
    }
    position->second->AddRef();
    return WBase::ReturnPtrI<InprocessFileLocker>(position->second);
}

void ModuleMain::Release(InprocessFileLocker const* locker) {
    WSynch::InprocessRecursiveMutex::Lock const lock(registryMutex_);
    locker->ReferenceCountedImpl::Release();
}

void ModuleMain::ReferenceCountIsAboutToReachZero(InprocessFileLocker const& locker) {
    if (locker.GetReferenceCount() == 1) {
        registry_.erase(locker.GetID());
    }
}

} // namespace WFileSystem
