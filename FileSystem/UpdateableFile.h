#ifndef WFILESYSTEM_FILESYSTEM_UPDATEABLEFILE_H
#define WFILESYSTEM_FILESYSTEM_UPDATEABLEFILE_H

/// \file
/// \brief Files open for reading and writing.

#include <Defines/Export.h>
#include <FileSystem/ReadableFile.h>
#include <FileSystem/WriteableFile.h>

#include <memory>

namespace WFileSystem {

/// A file open for reading and writing. Both sides share one descriptor, one position and one record lock; all four
/// timers run.
///
/// \code
/// auto const file = WFileSystem::OpenUpdateableFile(L"counter", WFileSystem::KEEP_FILE);
/// WFileSystem::WriteableFile::WriteSmartLock const lock(*file);
/// unsigned int count = 0;
/// if (file->GetSize() > 0) {
///     file->ReadLittleEndian(count);
/// }
/// file->SetPosition(0);
/// file->WriteLittleEndian(count + 1);
/// file->CommitAndClose();
/// \endcode
/// \warning A process has one record lock on a file: ReadUnlock and WriteUnlock each drop it, whatever its kind, and a
///     lock of the other kind replaces it.
class WFILESYSTEM_EXPORT UpdateableFile : public virtual ReadableFile, public virtual WriteableFile {};

/// Opens a file for reading and writing; otherwise as OpenWriteableFile. Its descriptor may be any, 0 to 2 as well.
///
/// \param path the file; a relative one starts at the working directory
/// \param policy what becomes of the file without CommitAndClose
/// \return the file object, which the caller owns
/// \throws WBase::ExceptionImpl<WBase::Message> as OpenWriteableFile, with
///     "WFileSystem::UpdateableFileImpl::UpdateableFileImpl" for its function, less the refusal of descriptors 0 to 2
/// \throws WBase::StringConversionException the path can't be converted
/// \warning As OpenWriteableFile.
/// \par Threads
///     Any thread.
WFILESYSTEM_EXPORT std::unique_ptr<UpdateableFile>
OpenUpdateableFile(wchar_t const* path, IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy);

} // namespace WFileSystem

#endif
