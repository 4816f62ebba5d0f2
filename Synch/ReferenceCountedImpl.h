#ifndef WFILESYSTEM_SYNCH_REFERENCECOUNTEDIMPL_H
#define WFILESYSTEM_SYNCH_REFERENCECOUNTEDIMPL_H

/// \file
/// \brief Reference counting for objects that threads share.

#include <Base/ReferenceCounted.h>
#include <Synch/Atomic.h>

namespace WSynch {

/// Counts references in a cell; the object deletes itself with the last one. A new object has none.
///
/// \tparam Cell AtomicLong, or what the functions WSynch_AtomicIncrement and WSynch_AtomicDecrement and `Get()` fit
///     alike
template <class Cell>
class ReferenceCountedImpl : public virtual WBase::ReferenceCounted {
public:
    void AddRef() const noexcept override { WSynch_AtomicIncrement(count_); }

    void Release() const noexcept override {
        if (count_.Get() == 1) {
            ReferenceCountIsAboutToReachZero();
        }
        if (WSynch_AtomicDecrement(count_) == 0) {
            delete this;
        }
    }

    void ReferenceCountIsAboutToReachZero() const noexcept override {}

    /// The number of references at this moment.
    long GetReferenceCount() const noexcept { return count_.Get(); }

protected:
    ReferenceCountedImpl() noexcept : count_(0) {}
    ReferenceCountedImpl(ReferenceCountedImpl const&) = delete;
    ReferenceCountedImpl& operator=(ReferenceCountedImpl const&) = delete;
    ~ReferenceCountedImpl() override = default;

private:
    mutable Cell count_;
};

} // namespace WSynch

#endif
