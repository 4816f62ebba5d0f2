// HoldLock PATH: holds the exclusive record lock of an existing file until its standard input ends.
//
// Try it in two terminals: while `HoldLock notes.txt` runs in one, `wfs cat --no-wait notes.txt` in the other says that
// the file is locked. Control-D in the first ends it.

#include <Base/Conversion.h>
#include <Base/Message.h>
#include <FileSystem/File.h>
#include <PDCHeader/PDCunistd.h>

#include <cstdlib>
#include <iostream>
#include <limits>

namespace {

// Owns a descriptor: File works on bare ones.
struct Descriptor {
    int const fd;

    explicit Descriptor(int value) : fd(value) {}
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    ~Descriptor() { WPDCHeader::close(fd); }
};

void HoldLock(char const* path) {
    using WFileSystem::File;

    // An exclusive lock needs a descriptor that can write.
    WBase::ReturnWString const widePath = WBase::UTF8ToWideChar(path, false);
    Descriptor const file(File::OpenDescriptor(widePath.c_str(), File::OPEN_READ_WRITE, File::SHARE_IGNORED));
    File::WriteSmartLock const lock(file.fd);

    std::cout << "locked" << std::endl;
    std::cin.ignore(std::numeric_limits<std::streamsize>::max());
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 2) {
        std::cerr << "Usage: HoldLock PATH\n";
        return 2;
    }
    try {
        HoldLock(argv[1]);
        return EXIT_SUCCESS;
    } catch (WBase::Message const& message) {
        std::cerr << message.what() << '\n';
        return EXIT_FAILURE;
    }
}
