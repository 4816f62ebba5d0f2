#ifndef WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_FILEOBJECT_H
#define WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_FILEOBJECT_H

// What the file objects have in common. Their own sources show what is particular to each.
//
// The sides are stacked: a readable file is a ReadSide over a GenericSide. No side has a destructor that touches the file: an
// object whose construction fails must leave its descriptor alone. The classes at the end call ApplyPolicy or close.

#include <Base/TotalTimer.h>
#include <FileSystem/FileImpl.h>
#include <FileSystem/PrivateSource/ModuleMain.h>

#include <string>
#include <sys/types.h>
#include <type_traits>

namespace WFileSystem::FileObject {

/// Whether descriptors 0 to 2 are refused.
enum class StandardDescriptors { REFUSED, ACCEPTED };

/// The module, without which there are no file objects.
/// \param constructor the full name of the constructor, for reports
/// \throws WBase::ExceptionImpl<WBase::Message> "…: Can't open '…'." and "No WFileSystem::Initializer lives.", with the ID -1
ModuleMain& GetModule(wchar_t const* constructor, wchar_t const* path);

/// Opens the file, with O_NOCTTY, and sets close-on-exec.
/// \throws WBase::ExceptionImpl<WBase::Message> "…: ::open failed for '…'.", "…: ::open '…' and get system file handle." or
///     "::fcntl() failed"; with the last one the descriptor stays open, on purpose
int Open(
    wchar_t const* constructor, wchar_t const* path, char const* narrowPath, int flags, mode_t mode,
    StandardDescriptors standardDescriptors);

/// The file's locker. Closes the descriptor when that fails.
WBase::ReturnPtrI<InprocessFileLocker> GetLocker(ModuleMain& module, wchar_t const* path, int fd);

/// Reads 4 bytes, the least significant first.
unsigned int ReadLittleEndian(wchar_t const* path, int fd);

/// What every file object has.
template <class Interface>
class GenericSide : public virtual Interface {
public:
    wchar_t const* GetPath() const override { return path_.c_str(); }

    bool IsAccessibleViaPath(WBase::Message* message) const override {
        return FileImpl::DoesPathMatchFileHandle(GetPath(), descriptor_, message);
    }

    long long GetSize() const override { return FileImpl::GetSize(GetPath(), descriptor_); }

    long long GetPosition() const override { return FileImpl::GetPosition(GetPath(), descriptor_); }

    long long MovePosition(long long offset) override {
        return ClearLockTouched(FileImpl::MovePosition(GetPath(), descriptor_, offset));
    }

    long long SetPosition(long long offset) override {
        return ClearLockTouched(FileImpl::SetPosition(GetPath(), descriptor_, offset));
    }

    long long SetPositionToEnd() override {
        return ClearLockTouched(FileImpl::SetPositionToEnd(GetPath(), descriptor_));
    }

    /// -1 when none is open.
    int GetDescriptor() const noexcept { return descriptor_; }

    /// Set by locking and unlocking, cleared by transfers and positioning. Nothing in the library asks for it.
    bool IsLockTouched() const noexcept { return isLockTouched_; }

protected:
    explicit GenericSide(wchar_t const* path) : path_(path) {}

    long long ClearLockTouched(long long position) noexcept {
        isLockTouched_ = false;
        return position;
    }

    // The descriptor is closed first, by the classes at the end; then the lock is given up; the path goes last.
    std::wstring const path_;
    int descriptor_ = -1;
    bool isLockTouched_ = false;
    InprocessFileLocker::LockPtr inprocessLock_;
};

/// Takes the place of a timer where no time is measured.
struct Untimed {
    explicit Untimed(WBase::TotalTimer& /*total*/) noexcept {}
};

/// What can be read has.
/// \tparam Timer WBase::TotalTimer::Timer or Untimed
template <class Base, class Timer>
class ReadSide : public Base {
public:
    void Read(void* data, unsigned long n) override {
        [[maybe_unused]] Timer const timer(readTimer_);
        FileImpl::Read(this->GetPath(), this->descriptor_, data, n);
        this->isLockTouched_ = false;
    }

    void Read(WDataType::Binary& buffer, unsigned long n) override {
        [[maybe_unused]] Timer const timer(readTimer_);
        FileImpl::Read(this->GetPath(), this->descriptor_, buffer, n);
        this->isLockTouched_ = false;
    }

    void ReadLittleEndian(unsigned int& value) override {
        [[maybe_unused]] Timer const timer(readTimer_);
        value = FileObject::ReadLittleEndian(this->GetPath(), this->descriptor_);
        this->isLockTouched_ = false;
    }

    void ReadLine(WDataType::Binary& buffer) override {
        [[maybe_unused]] Timer const timer(readTimer_);
        FileImpl::ReadLine(this->GetPath(), this->descriptor_, buffer);
        this->isLockTouched_ = false;
    }

    WBase::TotalTimer const& GetReadTimer() const override { return readTimer_; }
    WBase::TotalTimer const& GetReadLockTimer() const override { return readLockTimer_; }

    bool ReadLock(bool dontWait) override {
        [[maybe_unused]] Timer const timer(readLockTimer_);
        isReadLocked_ = FileImpl::ReadLock(this->GetPath(), this->descriptor_, dontWait);
        this->isLockTouched_ = true;
        return isReadLocked_;
    }

    void ReadUnlock() override {
        if (this->descriptor_ != -1) {
            [[maybe_unused]] Timer const timer(readLockTimer_);
            FileImpl::Unlock(this->descriptor_);
            this->isLockTouched_ = true;
        }
        isReadLocked_ = false;
    }

    /// The result of the last ReadLock; false after ReadUnlock.
    bool IsReadLocked() const noexcept { return isReadLocked_; }

protected:
    using Base::Base;

private:
    bool isReadLocked_ = false;
    WBase::TotalTimer readTimer_;
    WBase::TotalTimer readLockTimer_;
};

} // namespace WFileSystem::FileObject

#endif
