#include <Benchmarks/Support.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <unistd.h>

namespace Benchmarks {
namespace {

std::string place;

} // namespace

Name InPlace(std::string_view entry) {
    return Name(place + '/' + std::string(entry));
}

void SetPlace(std::string const& directory) {
    Must(::chdir(directory.c_str()));
    char path[1024];
    Require(::getcwd(path, sizeof path) != nullptr);
    place = path;
}

void MakeFile(Name const& name, unsigned long size) {
    constexpr unsigned long LINE = 64;
    std::string bytes(size, 'x');
    for (unsigned long end = LINE - 1; end < size; end += LINE) {
        bytes[end] = '\n';
    }
    int const fd = Must(::open(name.Narrow(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0664));
    for (std::string_view rest = bytes; !rest.empty();) {
        rest.remove_prefix(static_cast<std::size_t>(Must(::write(fd, rest.data(), rest.size()))));
    }
    Must(::close(fd));
}

void ShowProgress(std::string const& name) {
    static bool const isTerminal = ::isatty(STDERR_FILENO) == 1;
    static auto const begin = std::chrono::steady_clock::now();
    if (isTerminal) {
        auto const seconds = std::chrono::duration_cast<std::chrono::seconds>(std::chrono::steady_clock::now() - begin);
        std::fprintf(stderr, "\r\x1b[K%4lld s  %s", static_cast<long long>(seconds.count()), name.c_str());
    }
}

} // namespace Benchmarks
