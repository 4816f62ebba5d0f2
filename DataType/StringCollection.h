#ifndef WFILESYSTEM_DATATYPE_STRINGCOLLECTION_H
#define WFILESYSTEM_DATATYPE_STRINGCOLLECTION_H

/// \file
/// \brief An ordered collection of wide strings.

#include <Defines/Export.h>

#include <memory>

namespace WDataType {

/// An ordered collection of wide strings.
///
/// \par Threads
///     Many readers, or one writer.
class WFILESYSTEM_EXPORT StringCollection {
public:
    StringCollection(StringCollection const&) = delete;
    StringCollection& operator=(StringCollection const&) = delete;
    virtual ~StringCollection() = default;

    /// Appends a copy of `text`. A null pointer counts as the empty string.
    /// \throws std::bad_alloc
    virtual void Append(wchar_t const* text) = 0;

    /// The number of strings.
    virtual unsigned long GetCount() const = 0;

    /// The string at `index`, counted from 0; valid while the collection lives.
    /// \throws std::out_of_range `index` is not below GetCount()
    virtual wchar_t const* GetAt(unsigned long index) const = 0;

protected:
    StringCollection() = default;
};

/// Makes an empty collection that the caller owns.
/// \throws std::bad_alloc
WFILESYSTEM_EXPORT std::unique_ptr<StringCollection> CreateStringCollection();

} // namespace WDataType

#endif
