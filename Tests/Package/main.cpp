// A client of the installed library: reads the file that its argument names, by block and by line, and a file that is
// missing.

#include <Base/Message.h>
#include <DataType/Binary.h>
#include <FileSystem/Initializer.h>
#include <FileSystem/ReadableFile.h>

#include <cerrno>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

namespace {

void Expect(bool condition, char const* what) {
    if (!condition) {
        std::cerr << "not so: " << what << '\n';
        std::exit(EXIT_FAILURE);
    }
}

std::string ReadLine(WFileSystem::ReadableFile& file, WDataType::Binary& buffer) {
    file.ReadLine(buffer);
    return std::string(buffer.GetBuffer(), buffer.GetSize());
}

void ReadFile(std::wstring const& path) {
    std::unique_ptr<WFileSystem::ReadableFile> const file = WFileSystem::OpenReadableFile(path.c_str());
    WFileSystem::ReadableFile::ReadSmartLock const lock(*file);
    Expect(lock.IsLocked(), "the file is locked");
    Expect(file->GetSize() == 21, "the file has 21 bytes");

    char block[6] = {};
    file->Read(block, 5);
    Expect(std::strcmp(block, "first") == 0, "the first block is \"first\"");

    std::unique_ptr<WDataType::Binary> const buffer = WDataType::CreateBinary(64, nullptr);
    Expect(ReadLine(*file, *buffer) == " line\n", "the rest of the first line is \" line\"");
    Expect(ReadLine(*file, *buffer) == "last line\n", "the second line is \"last line\"");
    Expect(ReadLine(*file, *buffer).empty(), "there is no third line");
}

void ReadMissingFile(std::wstring const& path) {
    try {
        WFileSystem::OpenReadableFile(path.c_str());
        Expect(false, "opening a missing file throws");
    } catch (WBase::Message const& message) {
        std::cout << message.what() << '\n';
        Expect(message.GetID() == ENOENT, "the message has the system's error number");
        Expect(std::wstring(message.GetMessage()).find(path) != std::wstring::npos, "the message names the path");
    }
}

} // namespace

int main(int argc, char** argv) {
    Expect(argc == 2, "one argument is given");
    std::string const argument = argv[1];
    std::wstring const path(argument.begin(), argument.end());

    WFileSystem::Initializer const initializer;
    ReadFile(path);
    ReadMissingFile(path + L".missing");
}
