// SharedFile PATH: opens an updateable file object, keeps it, and does with it what standard input says, a command a
// line. It answers each by one line: the result, "done", or "failed: " and why.
//
//     lock, unlock   the exclusive record lock; waits for it
//     size           the size
//     read           the whole text, with "/" in place of each line feed
//     append TEXT    the text and a line feed behind the end
//     commit         the object is gone then

#include <FileSystem/WFileSystem.h>

#include <Base/Conversion.h>

#include <algorithm>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using WFileSystem::UpdateableFile;

std::string InOneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', '/');
    return text;
}

std::string ReadAll(UpdateableFile& file) {
    constexpr unsigned long MOST = 64UL * 1024;
    std::unique_ptr<WDataType::Binary> const text = WDataType::CreateBinary(MOST, nullptr);
    file.SetPosition(0);
    file.Read(*text, 0);
    return {text->GetBuffer(), text->GetSize()};
}

std::string Do(UpdateableFile& file, std::string const& command) {
    std::string const append = "append ";
    if (command == "size") {
        return std::to_string(file.GetSize());
    }
    if (command == "read") {
        return InOneLine(ReadAll(file));
    }
    if (command == "lock") {
        file.WriteLock(false);
    } else if (command == "unlock") {
        file.WriteUnlock();
    } else if (command == "commit") {
        file.CommitAndClose();
    } else if (command.compare(0, append.size(), append) == 0) {
        std::string const line = command.substr(append.size()) + '\n';
        file.SetPositionToEnd();
        file.Write(static_cast<void const*>(line.data()), line.size());
    } else {
        throw std::invalid_argument("no such command: " + command);
    }
    return "done";
}

std::string Answer(UpdateableFile& file, std::string const& command) {
    try {
        return Do(file, command);
    } catch (std::exception const& failure) {
        return "failed: " + InOneLine(failure.what());
    }
}

void Run(char const* path) {
    WFileSystem::Initializer const initializer;
    auto const file =
        WFileSystem::OpenUpdateableFile(WBase::UTF8ToWideChar(path, false).c_str(), WFileSystem::KEEP_FILE);
    std::cout << "open" << std::endl;
    std::string command;
    while (std::getline(std::cin, command)) {
        std::cout << Answer(*file, command) << std::endl;
    }
}

} // namespace

int main(int count, char** arguments) {
    if (count != 2) {
        std::cerr << "usage: SharedFile PATH\n";
        return 2;
    }
    try {
        Run(arguments[1]);
        return EXIT_SUCCESS;
    } catch (std::exception const& failure) {
        std::cout << "failed: " << InOneLine(failure.what()) << std::endl;
        return EXIT_FAILURE;
    }
}
