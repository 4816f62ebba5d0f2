#ifndef WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_FILEOBJECT_H
#define WFILESYSTEM_FILESYSTEM_PRIVATESOURCE_FILEOBJECT_H

// What the file objects have in common. Their own sources show what is particular to each.
//
// The sides are stacked: a readable file is a ReadSide over a GenericSide, a writeable file a WriteSide over one, and
// an updateable file a ReadSide over such a WriteSide. No side has a destructor that touches the file: an object whose
// construction fails must leave its descriptor alone. The classes at the end do so in theirs.

#include <Base/TotalTimer.h>
#include <FileSystem/FileImpl.h>
#include <FileSystem/GenericFile.h>
#include <FileSystem/PrivateSource/ModuleMain.h>

#include <string>
#include <sys/types.h>
#include <type_traits>

namespace WFileSystem::FileObject {

/// Whether descriptors 0 to 2 are refused.
enum class StandardDescriptors { REFUSED, ACCEPTED };

/// The module, without which there are no file objects.
/// \param constructor the full name of the constructor, for reports
/// \throws WBase::ExceptionImpl<WBase::Message> "…: Can't open '…'." and "No WFileSystem::Initializer lives.", with the
///     ID -1
ModuleMain& GetModule(wchar_t const* constructor, wchar_t const* path);

/// Opens the file, with O_NOCTTY, and sets close-on-exec.
/// \throws WBase::ExceptionImpl<WBase::Message> "…: ::open failed for '…'.", "…: ::open '…' and get system file
///     handle." or "::fcntl() failed"; with the last one the descriptor stays open, on purpose
int Open(
    wchar_t const* constructor, wchar_t const* path, char const* narrowPath, int flags, mode_t mode,
    StandardDescriptors standardDescriptors);

/// The file's locker. Closes the descriptor when that fails.
WBase::ReturnPtrI<InprocessFileLocker> GetLocker(ModuleMain& module, wchar_t const* path, int fd);

/// Opens the file for writing, created when missing, with the module's permission bits, which an existing regular file
/// is given before.
/// \param flags O_WRONLY or O_RDWR
/// \throws as Open; WBase::StringConversionException
int OpenForWriting(
    ModuleMain const& module, wchar_t const* constructor, wchar_t const* path, int flags,
    StandardDescriptors standardDescriptors);

/// Does to an open file what the policy says; with any other number nothing. An exception ends the process.
void ApplyPolicy(IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy, wchar_t const* path, int& fd) noexcept;

/// Reads 4 bytes, the least significant first.
unsigned int ReadLittleEndian(wchar_t const* path, int fd);

/// Writes 4 bytes, the least significant first.
void WriteLittleEndian(wchar_t const* path, int fd, unsigned int value);

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

/// What can be written has. Its operations are timed.
template <class Base>
class WriteSide : public Base {
public:
    void Write(char const* text, unsigned long n) override {
        Timer const timer(writeTimer_);
        FileImpl::Write(this->GetPath(), this->descriptor_, text, n);
        this->isLockTouched_ = false;
    }

    void Write(void const* data, unsigned long n) override {
        Timer const timer(writeTimer_);
        FileImpl::Write(this->GetPath(), this->descriptor_, data, n);
        this->isLockTouched_ = false;
    }

    void WriteLittleEndian(unsigned int const& value) override {
        Timer const timer(writeTimer_);
        FileObject::WriteLittleEndian(this->GetPath(), this->descriptor_, value);
        this->isLockTouched_ = false;
    }

    void Flush() override {
        Timer const timer(writeTimer_);
        FileImpl::Flush(this->GetPath(), this->descriptor_);
    }

    void Truncate() override {
        Timer const timer(writeTimer_);
        FileImpl::Truncate(this->GetPath(), this->descriptor_);
    }

    void CommitAndClose() override {
        Timer const timer(writeTimer_);
        // When this fails, the descriptor is gone and the in-process lock stays; intended.
        FileImpl::CloseAndGroundHandle(this->GetPath(), this->descriptor_);
        this->inprocessLock_.Clear();
    }

    WBase::TotalTimer const& GetWriteTimer() const override { return writeTimer_; }
    WBase::TotalTimer const& GetWriteLockTimer() const override { return writeLockTimer_; }

    bool WriteLock(bool dontWait) override {
        Timer const timer(writeLockTimer_);
        isWriteLocked_ = FileImpl::WriteLock(this->GetPath(), this->descriptor_, dontWait);
        this->isLockTouched_ = true;
        return isWriteLocked_;
    }

    void WriteUnlock() override {
        if (this->descriptor_ != -1) {
            Timer const timer(writeLockTimer_);
            FileImpl::Unlock(this->descriptor_);
            this->isLockTouched_ = true;
        }
        isWriteLocked_ = false;
    }

    /// The result of the last WriteLock; false after WriteUnlock.
    bool IsWriteLocked() const noexcept { return isWriteLocked_; }

protected:
    WriteSide(wchar_t const* path, IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy) : Base(path), policy_(policy) {}

    /// For the destructors: without a successful CommitAndClose the policy decides.
    void CloseByPolicy() noexcept {
        if (this->descriptor_ != -1) {
            ApplyPolicy(policy_, this->GetPath(), this->descriptor_);
        }
    }

private:
    using Timer = WBase::TotalTimer::Timer;

    IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy_;
    bool isWriteLocked_ = false;
    WBase::TotalTimer writeTimer_;
    WBase::TotalTimer writeLockTimer_;
};

} // namespace WFileSystem::FileObject

#endif
