#ifndef WFILESYSTEM_BASE_RETURNPTRI_H
#define WFILESYSTEM_BASE_RETURNPTRI_H

/// \file
/// \brief The pointer that carries one reference out of a function.

#include <utility>

namespace WBase {

/// Carries one reference to a reference-counted object. It can be moved, not copied.
///
/// \tparam T has `Release()`, see ReferenceCounted
template <class T>
class ReturnPtrI {
public:
    /// Takes over a reference that was added already, or nothing when null.
    explicit ReturnPtrI(T* pointer = nullptr) noexcept : pointer_(pointer) {}

    /// Takes over the other's reference.
    ReturnPtrI(ReturnPtrI&& other) noexcept : pointer_(other.Detach()) {}

    /// Releases its reference and takes over the other's.
    ReturnPtrI& operator=(ReturnPtrI&& other) noexcept {
        ReturnPtrI(std::move(other)).Swap(*this);
        return *this;
    }

    /// Releases the reference unless it was handed over.
    ~ReturnPtrI() {
        if (pointer_ != nullptr) {
            pointer_->Release();
        }
    }

    /// The object, or null; the reference stays here.
    T* Get() const noexcept { return pointer_; }

    /// Hands the reference over to the caller; this holder is null afterwards, even when it is seen as const.
    T* Detach() const noexcept { return std::exchange(pointer_, nullptr); }

private:
    void Swap(ReturnPtrI& other) noexcept { std::swap(pointer_, other.pointer_); }

    mutable T* pointer_;
};

} // namespace WBase

#endif
