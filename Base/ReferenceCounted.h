#ifndef WFILESYSTEM_BASE_REFERENCECOUNTED_H
#define WFILESYSTEM_BASE_REFERENCECOUNTED_H

/// \file
/// \brief The interface of objects that live as long as somebody refers to them.

#include <Defines/Export.h>

namespace WBase {

/// An object with a count of references. The operations are const: to share an object that one may only read is to
/// count.
///
/// \par Threads
///     AddRef and Release may be called from any thread.
class WFILESYSTEM_EXPORT ReferenceCounted {
public:
    virtual ~ReferenceCounted() = default;

    /// Adds one reference.
    virtual void AddRef() const noexcept = 0;

    /// Drops one reference; dropping the last one destroys the object.
    virtual void Release() const noexcept = 0;

    /// Called by Release before the last reference is dropped. Does nothing unless overridden.
    virtual void ReferenceCountIsAboutToReachZero() const noexcept {}

protected:
    ReferenceCounted() = default;
    /// References are not copied: each object has its own.
    ReferenceCounted(ReferenceCounted const&) = default;
    /// As the copy.
    ReferenceCounted& operator=(ReferenceCounted const&) = default;
};

} // namespace WBase

#endif
