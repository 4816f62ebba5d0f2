// Opening a file while many others are open, and in two threads at once.

#include <Benchmarks/Others.h>
#include <Benchmarks/SameCalls.h>

#include <FileSystem/ReadableFile.h>

#include <fcntl.h>
#include <memory>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Benchmarks {
namespace {

/// Descriptors that are left for other things.
constexpr unsigned long SPARE = 50;

std::vector<Name> const& Files() {
    static std::vector<Name> const files = [] {
        std::vector<Name> names;
        Must(::mkdir(InPlace("many").Narrow(), 0777));
        for (int index = 0; index < 19000; ++index) {
            names.push_back(InPlace("many/" + std::to_string(index)));
            MakeFile(names.back(), 0);
        }
        return names;
    }();
    return files;
}

/// Opens one after the other and keeps them.
/// \param openOther returns what closes its file at its end
template <class OpenOther, class OpenAndClose>
void AddAmong(std::string const& who, unsigned long others, OpenOther openOther, OpenAndClose openAndClose) {
    std::string const name = "open_among_" + std::to_string(others) + '/' + who;
    benchmark::RegisterBenchmark(name.c_str(), [=](benchmark::State& state) {
        ShowProgress(name);
        struct rlimit limit;
        Must(::getrlimit(RLIMIT_NOFILE, &limit));
        if (limit.rlim_cur < others + SPARE) {
            state.SkipWithError("The system does not allow so many open files.");
            return;
        }
        std::vector<decltype(openOther(Files().front()))> open;
        for (unsigned long index = 1; index < others; ++index) {
            open.push_back(openOther(Files()[index]));
        }
        Name const& file = Files().front();
        for (auto _ : state) {
            openAndClose(file);
        }
    });
}

void CloseAfter(int fd) {
    Must(::close(fd));
}

struct CloseAtEnd {
    explicit CloseAtEnd(int fd) : fd_(fd) {}
    CloseAtEnd(CloseAtEnd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    CloseAtEnd& operator=(CloseAtEnd&&) = delete;
    ~CloseAtEnd() {
        if (fd_ != -1) {
            ::close(fd_);
        }
    }

private:
    int fd_;
};

int OpenRaw(Name const& name) {
    return Must(::open(name.Narrow(), O_RDONLY | O_CLOEXEC));
}

int OpenSame(Name const& name) {
    return OpenReadableBare(name.Narrow());
}

std::unique_ptr<WFileSystem::ReadableFile> OpenByLibrary(Name const& name) {
    return WFileSystem::OpenReadableFile(name.Wide());
}

template <class Open>
void AddThreads(std::string const& name, Open open) {
    benchmark::RegisterBenchmark(
        name.c_str(),
        [=](benchmark::State& state) {
            ShowProgress(name);
            Name const file = Files()[static_cast<std::size_t>(state.thread_index())];
            for (auto _ : state) {
                open(file);
            }
        })
        ->Threads(2)
        ->UseRealTime();
}

} // namespace

void AddManyOpenFiles() {
    auto const openOther = [](Name const& name) { return CloseAtEnd(OpenRaw(name)); };
    auto const raw = [](Name const& name) { CloseAfter(OpenRaw(name)); };
    auto const same = [](Name const& name) { CloseAfter(OpenSame(name)); };
    auto const library = [](Name const& name) { OpenByLibrary(name); };
    for (unsigned long const others : {10UL, 1000UL, 19000UL}) {
        AddAmong("raw", others, openOther, raw);
        AddAmong("same", others, openOther, same);
        AddAmong("wfs", others, OpenByLibrary, library);
    }
    AddThreads("open_in_two_threads/raw", raw);
    AddThreads("open_in_two_threads/same", same);
    AddThreads("open_in_two_threads/wfs", library);
}

} // namespace Benchmarks
