#ifndef WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_MODULEMAIN_H
#define WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_MODULEMAIN_H

#include <Base/ModuleMainPtr.h>
#include <Base/ReturnPtrI.h>
#include <FileSystem/PrivateSource/InprocessFileLocker.h>
#include <Synch/Initializer.h>
#include <Synch/InprocessRecursiveMutex.h>

#include <map>

namespace WFileSystem {

/// The library's one piece of process-wide state: the permission bits for new files, and the registry of lockers.
class ModuleMain {
public:
    ModuleMain();
    ModuleMain(ModuleMain const&) = delete;
    ModuleMain& operator=(ModuleMain const&) = delete;
    ~ModuleMain();

    unsigned short GetFileMode() const noexcept { return fileMode_; }

    /// The one locker of the file that is open on `fd`, with a reference for the caller.
    /// \param path names the file in a report
    WBase::ReturnPtrI<InprocessFileLocker> GetInprocessFileLocker(wchar_t const* path, int fd);

    /// Drops one reference. To do so under the registry's mutex decides between the last release of a locker and a
    /// concurrent look-up of the same file.
    void Release(InprocessFileLocker const* locker);

    /// Takes the locker out of the registry if its count is still 1; called under the registry's mutex.
    void ReferenceCountIsAboutToReachZero(InprocessFileLocker const& locker);

private:
    WSynch::Initializer synchInitializer_;
    unsigned short fileMode_ = 0;
    WSynch::InprocessRecursiveMutex registryMutex_;
    // The lockers own themselves through their counts.
    std::map<InprocessFileLocker::ID, InprocessFileLocker*> registry_;
};

extern WBase::ModuleMainPtr<ModuleMain, ModuleMain> gModuleMainPtr;

} // namespace WFileSystem

#endif
