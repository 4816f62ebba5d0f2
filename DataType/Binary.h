#ifndef WFILESYSTEM_DATATYPE_BINARY_H
#define WFILESYSTEM_DATATYPE_BINARY_H

/// \file
/// \brief The byte buffer that callers lend to reading operations.

#include <Defines/Export.h>

#include <memory>

namespace WBase {
class Buffer;
}

namespace WDataType {

/// A byte buffer with a full size, which is allocated, and a current size, which can be lowered and restored. Nothing
/// here changes the allocation.
///
/// \par Threads
///     Not synchronised: one thread at a time.
class WFILESYSTEM_EXPORT Binary {
public:
    Binary(Binary const&) = delete;
    Binary& operator=(Binary const&) = delete;
    virtual ~Binary() = default;

    /// True when the current size is 0.
    virtual bool IsEmpty() const;

    /// Lowers the current size to 0.
    virtual void Clear();

    /// Sets every byte of the current size.
    virtual void Fill(char value);

    /// The current size in bytes.
    virtual unsigned long GetSize() const = 0;

    /// The first byte; valid while the buffer lives.
    virtual char* GetBuffer() const = 0;

    /// Drops `count` bytes from the end of the current size.
    /// \pre count is at most GetSize()
    virtual void ReduceSize(unsigned long count) = 0;

    /// Makes the current size `size` bytes, or the full size where that is less.
    virtual void SetSize(unsigned long size);

    /// Raises the current size to the full size again; the bytes are as they were left.
    virtual void RestoreFullSize() = 0;

protected:
    Binary() = default;
};

/// Makes a buffer of zero bytes.
/// \param size its full size in bytes
/// \param storage null; the buffer allocates its own memory
/// \return a buffer that the caller owns, at its full size
/// \throws std::bad_alloc
WFILESYSTEM_EXPORT std::unique_ptr<Binary> CreateBinary(unsigned long size, WBase::Buffer* storage);

} // namespace WDataType

#endif
