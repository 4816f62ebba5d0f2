#ifndef WFILESYSTEM_FILESYSTEM_PATH_H
#define WFILESYSTEM_FILESYSTEM_PATH_H

/// \file
/// \brief Paths: pure string rules, a few questions to the file system, and patterns.

#include <Base/ReturnString.h>
#include <DataType/StringCollection.h>
#include <Defines/Export.h>
#include <Defines/StrongObjects.h>

#include <memory>
#include <string>

namespace WFileSystem {

/// Operations on paths. The class has no state and is never made.
///
/// A path is a wide string, never null. The separator is "/". Combine and what stands on it take `\` for a separator as
/// well, but only "/" is ever produced and only a leading "/" makes a path absolute.
///
/// A result is owned by the caller and is the only memory that an operation allocates; all can throw std::bad_alloc.
///
/// \par Threads
///     Any thread.
class WFILESYSTEM_EXPORT Path {
public:
    Path() = delete;

    /// True when the path begins with "/".
    static bool IsAbsolute(wchar_t const* path) noexcept;

    /// An absolute path as it stands, and a relative one combined with the working directory.
    /// \throws what GetCurrentWorkingDirectory throws, for a relative path
    /// \warning An absolute path is not canonised: "/a/../b" stays as it is.
    /// \warning A working directory whose path is not UTF-8, or takes 1024 bytes or more, fails every relative path.
    ///     Reports that name an absolute path are then replaced by this failure.
    static WBase::ReturnWString ToAbsolute(wchar_t const* path);

    /// The second path as seen from the first, in canonical form; the second alone where it is absolute.
    ///
    /// Empty and "." parts vanish, and ".." cancels the part before it, though never the root.
    /// \code
    ///   "/a//b/", "./c"  => "/a/b/c"        "a",  ".."    => "."
    ///   "/a", "/b/../c"  => "/c"            "..", ".."    => "../.."
    ///   "/", ".."        => "/"             "a",  "../.." => ".."
    ///   "/a", "\x"       => "/a/x"          "",   ""      => ""
    /// \endcode
    /// \warning Combining is lexical: no link is resolved, so ".." may lead elsewhere than the system would go.
    /// \warning An empty part that comes to stand first makes the result absolute: "a" and "..//b" give "/b".
    /// \warning A backslash separates parts, so a file whose name holds one can't be named by a combined path.
    static WBase::ReturnWString Combine(wchar_t const* first, wchar_t const* second);

    /// True when the path names a directory; links are followed.
    ///
    /// As with the three that follow, one system call is made and not repeated after a signal. Its failure means false
    /// and leaves `errno` as the system set it.
    /// \throws WBase::StringConversionException the path can't be converted
    static bool IsDirectory(wchar_t const* path);

    /// True when the path names a regular file; links are followed.
    /// \throws WBase::StringConversionException the path can't be converted
    static bool IsFile(wchar_t const* path);

    /// True when the process's real user may read what the path names (`access`); links are followed.
    /// \throws WBase::StringConversionException the path can't be converted
    static bool IsReadable(wchar_t const* path);

    /// True when the process's real user may write what the path names (`access`); links are followed.
    /// \throws WBase::StringConversionException the path can't be converted
    static bool IsWriteable(wchar_t const* path);

    /// The path up to and with the last separator, `/` or `\`, that is not its last character; empty where there is
    /// none.
    /// \code
    ///   "/a/b" => "/a/"    "/a/b/" => "/a/"    "/a" => "/"    "a\b" => "a\"    "a" => ""
    /// \endcode
    static WBase::ReturnWString GetParent(wchar_t const* path);

    /// Turns a network path with backslashes into a native one; any other path is returned as it stands.
    /// \code
    ///   "\\server\share\d" => "/server/share/d"    "\a" => "\a"
    /// \endcode
    static WBase::ReturnWString Internalize(wchar_t const* path);

    /// What stands before the last "/"; "." where there is none.
    /// \code
    ///   "/a/b" => "/a"    "a/" => "a"    "a" => "."    "/a" => ""
    /// \endcode
    /// \warning The result for a file in the root directory is empty, not "/".
    static WBase::ReturnWString GetDirname(wchar_t const* path);

    /// A pointer into the path, behind its last "/"; the path itself where there is none.
    static char const* GetBasename(char const* path) noexcept;

    /// What stands behind the last "/"; the whole path where there is none.
    static WBase::ReturnWString GetBasename(wchar_t const* path);

    /// What stands behind the last ".", up to white space; empty where there is none.
    ///
    /// White space is U+0009 to U+000D, U+0020 and U+0085.
    /// \code
    ///   "a.tar.gz" => "gz"    "a.b c" => "b"    "a" => ""
    /// \endcode
    /// \warning The dot is looked for in the whole path: "dir.d/file" gives "d/file".
    static WBase::ReturnWString GetExtension(wchar_t const* path);

    /// The basename before its last "."; the whole basename where there is none.
    /// \code
    ///   "/d/x.tar.gz" => "x.tar"    ".profile" => ""
    /// \endcode
    static WBase::ReturnWString GetBasenameWithoutExtension(wchar_t const* path);

    /// Lists the paths that match a shell pattern with `*`, `?` and `[…]`, sorted by the system (`glob`).
    ///
    /// The pattern is canonised first, as Combine does it: "/d/./x/../*" lists the entries of "/d".
    /// \return the paths as the pattern leads to them, absolute for an absolute pattern; empty where nothing matches
    /// \throws WBase::ExceptionImpl<WBase::Message> with the domain `WBase::MESSAGE_DOMAIN_UNKNOWN` and the ID -1:
    ///     "Unable to find file (GLOB_NOSYS).", "Unable to find file (GLOB_ABORTED).", "Unable to find file
    ///     (GLOB_NOSPACE)." or "Unable to find file."
    /// \throws WBase::StringConversionException the pattern can't be converted
    /// \warning A name that begins with a dot matches only a pattern that spells the dot.
    /// \warning A match whose name is not valid UTF-8 is left out, without a word.
    /// \warning A backslash is a separator and never takes the meaning from a pattern character: a file whose name
    ///     holds one can't be named exactly.
    /// \warning A directory that can't be read counts as empty.
    static std::unique_ptr<WDataType::StringCollection> GetFileNamesWithPattern(wchar_t const* pattern);

    /// True when the path is absolute on the platform: for Windows, `X:\`, `X:/` or `\\` at its head; for POSIX, `/`.
    static bool IsAbsoluteCrossPlatform(wchar_t const* path, EnumFileDestPlatforms platform) noexcept;

    /// Combine by the rules of a platform, wherever the library runs.
    ///
    /// Windows: `/` and `\` separate and `\` is produced; ".." climbs neither above a drive nor above a network share;
    /// a second path with one leading separator starts at the root of the first. POSIX: `/` alone separates. Any other
    /// number: nothing separates.
    /// \code
    ///   Windows:  "C:\a\b", "..\..\.." => "C:\"        "\\srv\share\d", "..\.." => "\\srv\share"
    ///             "C:\a", "\b"         => "C:\b"       "x", ""                  => "x"
    ///   POSIX:    "/a", "b\c"          => "/a/b\c"     7:  "a", "b"             => "ab"
    /// \endcode
    /// \warning As Combine, less the backslash for POSIX.
    static WBase::ReturnWString
    CombineCrossPlatform(wchar_t const* first, wchar_t const* second, EnumFileDestPlatforms platform);
};

/// True when the path begins with `/` or `\`: on Windows it starts at the root of the current drive.
WFILESYSTEM_EXPORT bool IsDriveRootRelative(wchar_t const* path) noexcept;

/// The root of a Windows path: `X:\` or `X:/`, or `\\server\share` (the whole path where that is shorter); empty for
/// any other.
/// \throws std::bad_alloc
WFILESYSTEM_EXPORT std::wstring GetAbsoluteRoot(wchar_t const* path);

} // namespace WFileSystem

#endif
