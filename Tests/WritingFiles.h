#ifndef WFILESYSTEM_TESTS_WRITINGFILES_H
#define WFILESYSTEM_TESTS_WRITINGFILES_H

/// \file
/// \brief The writeable and the updateable file, for tests of what they have in common: all but the reading.

#include <FileSystem/Initializer.h>
#include <FileSystem/PrivateSource/UpdateableFileImpl.h>
#include <FileSystem/PrivateSource/WriteableFileImpl.h>
#include <FileSystem/UpdateableFile.h>
#include <FileSystem/WriteableFile.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace WritingFiles {

using WFileSystem::IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED;

struct Writeable {
    using Impl = WFileSystem::WriteableFileImpl;
    static constexpr wchar_t CONSTRUCTOR[] = L"WFileSystem::WriteableFileImpl::WriteableFileImpl";
    static constexpr char ACCESS[] = "O_WRONLY";
    static std::unique_ptr<WFileSystem::WriteableFile>
    Open(wchar_t const* path, IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy) {
        return WFileSystem::OpenWriteableFile(path, policy);
    }
};

struct Updateable {
    using Impl = WFileSystem::UpdateableFileImpl;
    static constexpr wchar_t CONSTRUCTOR[] = L"WFileSystem::UpdateableFileImpl::UpdateableFileImpl";
    static constexpr char ACCESS[] = "O_RDWR";
    static std::unique_ptr<WFileSystem::UpdateableFile>
    Open(wchar_t const* path, IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy) {
        return WFileSystem::OpenUpdateableFile(path, policy);
    }
};

using Kinds = ::testing::Types<Writeable, Updateable>;

/// What a test file holds.
constexpr char CONTENT[] = "0123456789";

/// A scratch directory with a file of ten bytes in it, "data".
template <class Kind>
class Test : public ::testing::Test {
protected:
    Test() { TestSupport::WriteFile(path_, CONTENT); }

    /// Opens the file, and does not forget what it is.
    std::unique_ptr<typename Kind::Impl>
    Open(IF_COMMIT_AND_CLOSE_WAS_NOT_CALLED policy = WFileSystem::KEEP_FILE) const {
        return std::make_unique<typename Kind::Impl>(widePath_.c_str(), policy);
    }

    std::optional<WFileSystem::Initializer> initializer_{std::in_place};
    TestSupport::ScratchDirectory const scratch_;
    std::string const path_ = scratch_ / "data";
    std::wstring const widePath_ = scratch_.Wide("data");
};

/// A time that every clock can see.
constexpr std::chrono::microseconds MOMENT(200);

/// Lets every call that the recorder records take a moment, and then fail if an error is given.
inline void LetCallsTakeTime(TestSupport::Recorder& recorder, int error = 0) {
    auto const spend = [] {
        auto const end = std::chrono::steady_clock::now() + MOMENT;
        while (std::chrono::steady_clock::now() < end) {
        }
    };
    if (error == 0) {
        recorder.On("*").Before([spend](TestSupport::Call const&) { spend(); });
    } else {
        recorder.On("*").Instead([spend, error](TestSupport::Call const&) {
            spend();
            errno = error;
            return -1L;
        });
    }
}

} // namespace WritingFiles

#endif
