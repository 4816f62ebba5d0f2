// Benchmarks DIRECTORY [OPTION OF GOOGLE BENCHMARK]...: measures in the directory, which should be empty. What it makes
// there stays.

#include <Benchmarks/Support.h>

#include <FileSystem/Initializer.h>

#include <cstdio>
#include <iostream>
#include <sys/resource.h>

int main(int count, char** arguments) {
    benchmark::Initialize(&count, arguments);
    if (count != 2) {
        std::fprintf(stderr, "usage: %s DIRECTORY [--benchmark_...]\n", arguments[0]);
        return 2;
    }
    // As many open files as the system allows.
    struct rlimit files;
    Benchmarks::Must(::getrlimit(RLIMIT_NOFILE, &files));
    files.rlim_cur = files.rlim_max;
    Benchmarks::Must(::setrlimit(RLIMIT_NOFILE, &files));

    WFileSystem::Initializer const initializer;
    Benchmarks::SetPlace(arguments[1]);
    Benchmarks::AddFiles();
    Benchmarks::AddTransfers();
    Benchmarks::AddWholeFiles();
    Benchmarks::AddPaths();
    Benchmarks::AddDirectories();
    Benchmarks::AddPipes();
    Benchmarks::AddManyOpenFiles();
    // What is told at the beginning goes where the figures go: the terminal shows the progress.
    benchmark::ConsoleReporter reporter;
    reporter.SetErrorStream(&std::cout);
    benchmark::RunSpecifiedBenchmarks(&reporter);
    benchmark::Shutdown();
    return 0;
}
