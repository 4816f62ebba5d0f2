#ifndef WFILESYSTEM_BENCHMARKS_SUPPORT_H
#define WFILESYSTEM_BENCHMARKS_SUPPORT_H

// What the benchmarks share. Each is named `operation/who`:
//   raw    as few system calls as a careful C programmer needs for the job: the limit
//   same   the calls that the library promises, in their order, made bare
//   wfs    the library
//   std, boost, poco, glib, apr, qt    what people use otherwise
// All of an operation work on the same files, in the same process.

#include <benchmark/benchmark.h>

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

namespace Benchmarks {

/// A name in both forms, made before anything is measured.
struct Name {
    explicit Name(std::string text) : narrow(std::move(text)), wide(narrow.begin(), narrow.end()) {}

    char const* Narrow() const { return narrow.c_str(); }
    wchar_t const* Wide() const { return wide.c_str(); }

    std::string narrow; // ASCII
    std::wstring wide;
};

/// An absolute path of an entry in the directory of the run.
Name InPlace(std::string_view entry);

/// Makes InPlace name entries of this directory, and makes it the working one.
void SetPlace(std::string const& directory);

/// The result of a system call that must not fail.
template <class Result>
Result Must(Result result) {
    if (result == static_cast<Result>(-1)) {
        throw std::system_error(errno, std::generic_category(), "a call that is measured");
    }
    return result;
}

/// Stops the run when what was measured did not do its work.
inline void Require(bool isDone) {
    if (!isDone) {
        throw std::system_error(errno, std::generic_category(), "an operation that is measured failed");
    }
}

/// Makes the file hold so many bytes, letters in lines of 64 bytes.
void MakeFile(Name const& name, unsigned long size);

/// Shows on a terminal what is running.
void ShowProgress(std::string const& name);

/// Adds a benchmark.
/// \param prepare is called before each measurement; what it returns is one operation, and is called again and again
template <class Prepare>
void AddPrepared(std::string const& name, Prepare prepare) {
    benchmark::RegisterBenchmark(name.c_str(), [name, prepare](benchmark::State& state) {
        ShowProgress(name);
        auto operation = prepare();
        for (auto _ : state) {
            operation();
        }
    });
}

/// Adds a benchmark that needs no preparation.
template <class Operation>
void Add(std::string const& name, Operation operation) {
    AddPrepared(name, [operation] { return operation; });
}

/// Adds a benchmark whose operation must be prepared each time.
/// \param prepare is called before each operation, and is not measured
template <class Prepare, class Operation>
void AddAfter(std::string const& name, Prepare prepare, Operation operation) {
    benchmark::RegisterBenchmark(name.c_str(), [name, prepare, operation](benchmark::State& state) {
        ShowProgress(name);
        for (auto _ : state) {
            state.PauseTiming();
            prepare();
            state.ResumeTiming();
            operation();
        }
    });
}

void AddFiles();
void AddTransfers();
void AddWholeFiles();
void AddPaths();
void AddDirectories();
void AddPipes();
void AddManyOpenFiles();

} // namespace Benchmarks

#endif
