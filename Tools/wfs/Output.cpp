#include <Tools/wfs/Output.h>

#include <Base/Message.h>
#include <FileSystem/File.h>
#include <FileSystem/FileImpl.h>
#include <FileSystem/Path.h>
#include <Tools/wfs/Failure.h>

#include <cstdio>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <unistd.h>

namespace Wfs {

void OpenStandardStreams() {
    for (int const fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (::fcntl(fd, F_GETFD) == -1) {
            // The lowest free number is this one. Reading the input and writing the others fail, as they would closed.
            int const mode = fd == STDIN_FILENO ? O_WRONLY : O_RDONLY;
            if (::open("/dev/null", mode) != fd) {
                throw std::system_error(errno, std::generic_category(), "a standard stream is closed, and /dev/null");
            }
        }
    }
    std::setvbuf(stdout, nullptr, _IONBF, 0);
}

void WriteOutput(std::string_view data) {
    try {
        WFileSystem::File::Write(stdout, static_cast<void const*>(data.data()), data.size());
    } catch (WBase::Message const& message) {
        throw OutputFailure(std::string("standard output: ") + message.what());
    }
}

void CloseOutput() {
    if (std::fclose(stdout) != 0) {
        throw OutputFailure("standard output: " + std::generic_category().message(errno));
    }
}

bool IsOutput(wchar_t const* path) {
    return WFileSystem::Path::IsFile(path) &&
           WFileSystem::FileImpl::DoesPathMatchFileHandle(path, STDOUT_FILENO, nullptr);
}

} // namespace Wfs
