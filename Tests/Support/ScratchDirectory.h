#ifndef WFILESYSTEM_TESTS_SUPPORT_SCRATCHDIRECTORY_H
#define WFILESYSTEM_TESTS_SUPPORT_SCRATCHDIRECTORY_H

/// \file
/// \brief A directory of a test's own, and files in it, handled independently of the library.
///
/// All of it is unobserved by recorders. What goes wrong is thrown as std::system_error.

#include <string>
#include <string_view>
#include <vector>

namespace TestSupport {

/// A new directory below the system's directory for temporary files. At the end everything in it is removed, also what
/// lies in directories without permissions; links are removed, not followed, and other mounted file systems are left
/// alone. What can't be removed fails the test.
///
/// \code
/// TestSupport::ScratchDirectory scratch;
/// TestSupport::WriteFile(scratch / "data", "123");
/// auto const file = WFileSystem::OpenReadableFile(scratch.Wide("data").c_str());
/// EXPECT_EQ(TestSupport::List(scratch.Path()), std::vector<std::string>{"data"});
/// \endcode
class ScratchDirectory {
public:
    ScratchDirectory();
    ~ScratchDirectory();

    ScratchDirectory(ScratchDirectory const&) = delete;
    ScratchDirectory& operator=(ScratchDirectory const&) = delete;

    /// Its absolute path, without links, ASCII.
    std::string const& Path() const { return path_; }

    /// The path of an entry.
    std::string operator/(std::string_view name) const;

    /// The path of an entry, or the directory's own, in wide form. The name is UTF-8.
    std::wstring Wide(std::string_view name = "") const;

private:
    std::string path_;
};

/// Makes a directory the working one while this object lives; then the former one is the working one again.
class WorkingDirectory {
public:
    explicit WorkingDirectory(std::string const& path);
    ~WorkingDirectory();

    WorkingDirectory(WorkingDirectory const&) = delete;
    WorkingDirectory& operator=(WorkingDirectory const&) = delete;

private:
    int former_;
};

/// Makes a directory with the permission bits 0755, less those of the process's umask.
void MakeDirectory(std::string const& path);

/// Makes the file hold these bytes and no others. A new file has the permission bits 0644 as far as the mask
/// allows.
void WriteFile(std::string const& path, std::string_view bytes);

/// All bytes of the file.
std::string ReadFile(std::string const& path);

/// The names in a directory but for "." and "..", sorted by their bytes.
std::vector<std::string> List(std::string const& directory);

/// Whether something has this name, be it a link that leads nowhere.
bool Exists(std::string const& path);

/// The permission bits, with set-id and sticky bits, of what the path names.
unsigned int ModeOf(std::string const& path);

} // namespace TestSupport

#endif
