#include <FileSystem/PrivateSource/InprocessFileLocker.h>

#include <FileSystem/PrivateSource/Failure.h>
#include <FileSystem/PrivateSource/ModuleMain.h>
#include <PDCHeader/PDCstat.h>
#include <PDCHeader/PDCunistd.h>

#include <tuple>
#include <utility>

namespace WFileSystem {

InprocessFileLocker::ID::ID(wchar_t const* path, int fd) {
    struct stat status;
    if (WPDCHeader::RetryWhileInterrupted([&] { return ::fstat(fd, &status); }) != 0) {
        throw MakeReport(
            WBase::GetLastError(), L"WFileSystem::InprocessFileLocker::ID::ID: ::fstat failed for '", path, L"'.");
    }
    device = static_cast<int>(status.st_dev);
    inode = status.st_ino;
}

void InprocessFileLocker::Release() const noexcept {
    owner_->Release(this);
}

void InprocessFileLocker::ReferenceCountIsAboutToReachZero() const noexcept {
    owner_->ReferenceCountIsAboutToReachZero(*this);
}

bool operator==(InprocessFileLocker::ID const& left, InprocessFileLocker::ID const& right) noexcept {
    return left.device == right.device && left.inode == right.inode;
}

bool operator<(InprocessFileLocker::ID const& left, InprocessFileLocker::ID const& right) noexcept {
    return std::tie(left.device, left.inode) < std::tie(right.device, right.inode);
}

InprocessFileLocker::LockPtr&
InprocessFileLocker::LockPtr::Assign(WBase::ReturnPtrI<InprocessFileLocker> const& source, bool withTimeOut) {
    Clear();
    locker_ = source.Detach();
    if (locker_ == nullptr) {
        return *this;
    }
    if (!withTimeOut) {
        locker_->Lock();
    } else if (!locker_->LockWithTimeOut()) {
        throw SystemCallReport("WFileSystem::InprocessFileLocker::LockPtr::Assign() failed to get the InprocessLock");
    }
    return *this;
}

void InprocessFileLocker::LockPtr::Clear() noexcept {
    if (InprocessFileLocker* const locker = std::exchange(locker_, nullptr)) {
        locker->Unlock();
        locker->Release();
    }
}

} // namespace WFileSystem
