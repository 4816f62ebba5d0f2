// A main without a fuzzer: gives the target every file of a directory, as a test does with the seeds.

#include <Tests/Fuzz/Fuzz.h>

#include <fstream>
#include <iterator>

int main(int count, char** arguments) {
    Fuzz::Require(count == 2, "the one argument is a directory");
    unsigned int replayed = 0;
    for (auto const& entry : std::filesystem::directory_iterator(arguments[1])) {
        std::ifstream file(entry.path(), std::ios::binary);
        std::string const input{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
        std::printf("%s\n", entry.path().c_str());
        std::fflush(stdout);
        LLVMFuzzerTestOneInput(reinterpret_cast<std::uint8_t const*>(input.data()), input.size());
        ++replayed;
    }
    Fuzz::Require(replayed > 0, "there is an input in the directory");
    return 0;
}
