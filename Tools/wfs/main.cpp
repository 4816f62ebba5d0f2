// wfs: the file system library's operations as a command.

#include <Tools/wfs/CommandLine.h>

int main(int argc, char** argv) {
    return Wfs::Run(argc, argv);
}
