// Lines: both ways of reading them, through buffers of any size, against what is read by hand.

#include <DataType/Binary.h>
#include <FileSystem/File.h>
#include <FileSystem/FileImpl.h>
#include <PDCHeader/PDCunistd.h>
#include <Tests/Fuzz/Fuzz.h>

#include <fstream>

using Fuzz::RequireEqual;
using WDataType::Binary;
using WFileSystem::File;
using WFileSystem::FileImpl;

namespace {

std::string TakeText(Binary const& buffer) {
    return std::string(buffer.GetBuffer(), buffer.GetSize());
}

/// What stands before and with the first such byte; all where there is none.
std::string UpTo(char byte, std::string const& text) {
    return text.substr(0, text.find(byte) == std::string::npos ? text.size() : text.find(byte) + 1);
}

std::string Before(char byte, std::string const& text) {
    return text.substr(0, text.find(byte));
}

void ReadByDescriptor(std::wstring const& path, std::string const& content, Binary& buffer, unsigned long bufferSize) {
    int fd = File::OpenDescriptor(path.c_str(), File::OPEN_READ, File::SHARE_IGNORED);
    for (std::string line = "first"; !line.empty();) {
        auto const position = static_cast<unsigned long>(FileImpl::GetPosition(path.c_str(), fd));
        std::string const seen = content.substr(position, bufferSize);
        line = seen.find('\n') != std::string::npos ? UpTo('\n', seen) : Before('\0', seen);
        FileImpl::ReadLine(path.c_str(), fd, buffer);
        RequireEqual(TakeText(buffer), line, "the descriptor's line");
        RequireEqual<long long>(
            FileImpl::GetPosition(path.c_str(), fd), static_cast<long long>(position + line.size()),
            "the descriptor's position");
    }
    FileImpl::CloseAndGroundHandle(path.c_str(), fd);
}

void ReadByStream(std::wstring const& path, std::string const& content, Binary& buffer, unsigned long bufferSize) {
    FILE* const stream = File::OpenStream(path.c_str(), File::OPEN_READ, File::SHARE_IGNORED);
    bool isFirst = true;
    for (unsigned long position = 0; isFirst || (position < content.size() && bufferSize > 1); isFirst = false) {
        std::string const taken = UpTo('\n', content.substr(position, bufferSize - 1));
        File::ReadLine(stream, buffer);
        RequireEqual(TakeText(buffer), Before('\0', taken), "the stream's line");
        position += taken.size();
        RequireEqual<long long>(File::GetPosition(stream), static_cast<long long>(position), "the stream's position");
    }
    File::ReadLine(stream, buffer);
    RequireEqual<long long>(static_cast<long long>(buffer.GetSize()), 0, "the size at the end");
    std::fclose(stream);
}

} // namespace

int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    static Fuzz::Scratch const scratch;
    static std::string const narrowPath = scratch / "lines";
    static std::wstring const path = Fuzz::Widened(narrowPath);
    Fuzz::Input input(data, size);
    unsigned long const bufferSize = input.Byte() + 1;
    std::string const content = input.Rest();
    std::ofstream(narrowPath, std::ios::binary | std::ios::trunc) << content;

    auto const buffer = WDataType::CreateBinary(bufferSize, nullptr);
    ReadByDescriptor(path, content, *buffer, bufferSize);
    ReadByStream(path, content, *buffer, bufferSize);
    buffer->RestoreFullSize();
    RequireEqual<long long>(
        static_cast<long long>(buffer->GetSize()), static_cast<long long>(bufferSize), "the buffer's full size");
    return 0;
}
