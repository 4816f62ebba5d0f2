#ifndef WFILESYSTEM_TESTS_DIRECTORYFIXTURE_H
#define WFILESYSTEM_TESTS_DIRECTORYFIXTURE_H

/// \file
/// \brief Where directories are made and deleted by tests.

#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>
#include <system_error>

namespace DirectoryFixture {

/// A path that can't be converted.
inline constexpr wchar_t UNCONVERTIBLE[] = L"a\xD800";

/// The text of the failure to convert it.
inline constexpr wchar_t CONVERSION_FAILURE[] =
    L"Failed to convert wide text: the character U+D800 at index 1 is not a Unicode scalar value.";

inline std::wstring DeletionFailure(std::wstring const& path) {
    return L"Failed to delete directory '" + path + L"'.";
}

/// A working directory in which each test can do as it likes: no deletion reaches anything outside of it.
class DirectoryTest : public ::testing::Test {
protected:
    DirectoryTest() {
        for (char const* const function : {"unlink", "rmdir"}) {
            recorder_.On(function)
                .Where([this](TestSupport::Call const& call) { return LiesOutside(call.path); })
                .Optional()
                .Instead([](TestSupport::Call const& call) {
                    ADD_FAILURE() << "This would have deleted something outside: " << call.path;
                    errno = EPERM;
                    return -1;
                });
        }
    }

    TestSupport::ScratchDirectory const scratch_;
    TestSupport::WorkingDirectory const workingDirectory_{scratch_.Path()};
    TestSupport::Recorder recorder_{"stat mkdir unlink rmdir glob globfree"};

private:
    /// Judges by the resolved directory that the entry would lie in; where there is none, nothing can be deleted.
    bool LiesOutside(std::filesystem::path entry) const {
        if (!entry.has_filename() && entry.has_relative_path()) {
            entry = entry.parent_path(); // less the separator at the end
        }
        bool const isDots = entry.filename() == "." || entry.filename() == "..";
        std::error_code error;
        auto const directory = std::filesystem::canonical(isDots ? entry : "." / entry.parent_path(), error);
        return !error && (directory / "").native().rfind(scratch_.Path() + '/', 0) != 0;
    }
};

} // namespace DirectoryFixture

#endif
