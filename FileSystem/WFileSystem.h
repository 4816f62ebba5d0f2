#ifndef WFILESYSTEM_FILESYSTEM_WFILESYSTEM_H
#define WFILESYSTEM_FILESYSTEM_WFILESYSTEM_H

/// \file
/// \brief Every public header of the file system, for those who want one line.

#include <FileSystem/Directory.h>
#include <FileSystem/File.h>
#include <FileSystem/FileImpl.h>
#include <FileSystem/FileSystem.h>
#include <FileSystem/GenericFile.h>
#include <FileSystem/Initializer.h>
#include <FileSystem/Interop.h>
#include <FileSystem/NamedPipe.h>
#include <FileSystem/Path.h>
#include <FileSystem/ReadableFile.h>
#include <FileSystem/UpdateableFile.h>
#include <FileSystem/WriteableFile.h>

#endif
