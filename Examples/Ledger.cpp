// Several processes, each with several threads, append records to one file, while a reader follows it. At the end the
// sum is exact: threads are kept apart by the in-process lock that every file object holds, processes by the record
// locks.
//
// The file begins with the number of its records. A record counts when that number counts it, so a process that is
// killed leaves no half record behind; and nobody has to ask for the size of the file, which a distributed file system
// may tell too late.
//
//     Ledger PATH [PROCESSES [THREADS [RECORDS]]]

#include <FileSystem/WFileSystem.h>

#include <Base/Conversion.h>
#include <Base/System.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr unsigned int HEAD_SIZE = 4;
constexpr unsigned int RECORD_SIZE = 8;

struct Totals {
    unsigned long count = 0;
    unsigned long sum = 0;
};

/// The number of records in a file that is locked; none in one that was just created.
unsigned int ReadCount(WFileSystem::ReadableFile& file) {
    auto const head = WDataType::CreateBinary(HEAD_SIZE, nullptr);
    file.Read(*head, 0);
    unsigned int count = 0;
    if (!head->IsEmpty()) {
        file.SetPosition(0);
        file.ReadLittleEndian(count);
    }
    return count;
}

long long PositionOf(unsigned long record) {
    return HEAD_SIZE + static_cast<long long>(record) * RECORD_SIZE;
}

/// Appends a record, an account and an amount, and adds the time that the locks took to `waited`.
void Append(wchar_t const* path, unsigned int account, unsigned int amount, std::chrono::nanoseconds& waited) {
    auto const file = WFileSystem::OpenUpdateableFile(path, WFileSystem::KEEP_FILE);
    {
        WFileSystem::WriteableFile::WriteSmartLock const lock(*file);
        unsigned int const count = ReadCount(*file);
        file->SetPosition(PositionOf(count));
        file->WriteLittleEndian(account);
        file->WriteLittleEndian(amount);
        file->SetPosition(0);
        file->WriteLittleEndian(count + 1);
    }
    file->CommitAndClose();
    waited += file->GetWriteLockTimer().GetTotal();
}

/// Reads the records that came since the last call.
void Follow(wchar_t const* path, Totals& totals) {
    auto const file = WFileSystem::OpenReadableFile(path);
    WFileSystem::ReadableFile::ReadSmartLock const lock(*file);
    unsigned int const count = ReadCount(*file);
    file->SetPosition(PositionOf(totals.count));
    while (totals.count < count) {
        unsigned int account = 0;
        unsigned int amount = 0;
        file->ReadLittleEndian(account);
        file->ReadLittleEndian(amount);
        ++totals.count;
        totals.sum += amount;
    }
}

/// What one writing process does; returns how long its threads waited for locks.
std::chrono::nanoseconds
RunWriter(wchar_t const* path, unsigned int process, unsigned int threads, unsigned int records) {
    WFileSystem::Initializer const initializer;
    std::vector<std::chrono::nanoseconds> waited(threads);
    std::vector<std::thread> workers;
    for (unsigned int thread = 0; thread < threads; ++thread) {
        workers.emplace_back([=, &waited] {
            for (unsigned int amount = 1; amount <= records; ++amount) {
                Append(path, process * threads + thread, amount, waited[thread]);
            }
        });
    }
    for (std::thread& worker : workers) {
        worker.join();
    }
    std::chrono::nanoseconds total{};
    for (std::chrono::nanoseconds const wait : waited) {
        total += wait;
    }
    return total;
}

/// Memory that the processes share, for the time that each of them waited.
std::chrono::nanoseconds* ShareTimes(unsigned int processes) {
    void* const memory = ::mmap(
        nullptr, processes * sizeof(std::chrono::nanoseconds), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1,
        0);
    if (memory == MAP_FAILED) {
        std::perror("mmap");
        std::exit(EXIT_FAILURE);
    }
    return static_cast<std::chrono::nanoseconds*>(memory);
}

pid_t StartWriter(
    wchar_t const* path, unsigned int process, unsigned int threads, unsigned int records,
    std::chrono::nanoseconds& waited) {
    pid_t const child = ::fork();
    if (child == -1) {
        std::perror("fork");
        std::exit(EXIT_FAILURE);
    }
    if (child == 0) {
        int status = EXIT_SUCCESS;
        try {
            waited = RunWriter(path, process, threads, records);
        } catch (std::exception const& failure) {
            std::fprintf(stderr, "%s\n", failure.what());
            status = EXIT_FAILURE;
        }
        ::_exit(status);
    }
    return child;
}

int Run(wchar_t const* path, unsigned int processes, unsigned int threads, unsigned int records) {
    std::chrono::nanoseconds* const waited = ShareTimes(processes);
    unsigned int running = 0;
    for (; running < processes; ++running) {
        StartWriter(path, running, threads, records, waited[running]);
    }
    // Only now: a child must not inherit a module that is in use.
    WFileSystem::Initializer const initializer;
    Totals totals;
    bool haveAllSucceeded = true;
    while (running > 0) {
        int status = 0;
        if (::waitpid(-1, &status, WNOHANG) > 0) {
            haveAllSucceeded = haveAllSucceeded && WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
            --running;
        } else {
            if (WFileSystem::Path::IsFile(path)) {
                Follow(path, totals);
            }
            WBase::Sleep(1);
        }
    }
    Follow(path, totals);

    unsigned long const writers = static_cast<unsigned long>(processes) * threads;
    unsigned long const expectedSum = writers * records * (records + 1UL) / 2;
    std::chrono::nanoseconds total{};
    for (unsigned int process = 0; process < processes; ++process) {
        total += waited[process];
    }
    std::printf(
        "%u processes with %u threads each wrote %lu records, %lu are expected\n", processes, threads, totals.count,
        writers * records);
    std::printf("the sum is %lu, %lu is expected\n", totals.sum, expectedSum);
    std::printf("the writers waited %.1f ms for record locks, all together\n", Milliseconds(total).count());
    bool const isExact = totals.count == writers * records && totals.sum == expectedSum;
    return haveAllSucceeded && isExact ? EXIT_SUCCESS : EXIT_FAILURE;
}

unsigned int NumberOr(unsigned int standard, char const* text) {
    return text != nullptr ? static_cast<unsigned int>(std::strtoul(text, nullptr, 10)) : standard;
}

} // namespace

int main(int count, char** arguments) {
    if (count < 2 || count > 5) {
        std::fprintf(stderr, "usage: %s PATH [PROCESSES [THREADS [RECORDS]]]\n", arguments[0]);
        return 2;
    }
    auto const argument = [=](int index) { return index < count ? arguments[index] : nullptr; };
    try {
        return Run(
            WBase::UTF8ToWideChar(arguments[1], false).c_str(), NumberOr(3, argument(2)), NumberOr(4, argument(3)),
            NumberOr(250, argument(4)));
    } catch (std::exception const& failure) {
        std::fprintf(stderr, "%s\n", failure.what());
        return EXIT_FAILURE;
    }
}
