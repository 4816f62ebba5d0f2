// Several processes with several threads each over a few files, while signals rain. How much they do is fixed, not how
// long; what is drawn by lot has a fixed seed.

#include <FileSystem/Initializer.h>
#include <FileSystem/PrivateSource/ModuleMain.h>
#include <FileSystem/UpdateableFile.h>
#include <Synch/Initializer.h>
#include <Tests/Support/Child.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/ScratchDirectory.h>
#include <Tests/Support/Waiting.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstring>
#include <ctime>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <sys/mman.h>
#include <system_error>
#include <thread>
#include <unistd.h>
#include <vector>

namespace {

using namespace WFileSystem;
using TestSupport::Child;

constexpr unsigned int PROCESSES = 3;
constexpr unsigned int THREADS = 4;
constexpr unsigned int ROUNDS = 6;
constexpr unsigned int WRITERS = PROCESSES * THREADS * ROUNDS;

/// A signal a millisecond for the thread that made it, which interrupts what that thread waits in. A timer of the
/// process would not do: the system gives its signals to the first thread, which only waits for the others.
class Rain {
public:
    Rain() {
        struct sigaction action = {};
        action.sa_handler = [](int) { ++gDrops; }; // without SA_RESTART
        ::sigaction(SIGALRM, &action, nullptr);    // for good: a last drop may be on its way at the end
        sigevent event = {};
        event.sigev_signo = SIGALRM;
#ifdef __linux__
        event.sigev_notify = SIGEV_THREAD_ID;
        event._sigev_un._tid = ::gettid();
#else
        event.sigev_notify = SIGEV_SIGNAL;
#endif
        EXPECT_EQ(::timer_create(CLOCK_MONOTONIC, &event, &timer_), 0);
        timespec const millisecond = {0, 1000000};
        itimerspec const times = {millisecond, millisecond};
        EXPECT_EQ(::timer_settime(timer_, 0, &times, nullptr), 0);
    }

    ~Rain() {
        EXPECT_TRUE(TestSupport::WaitUntil([] { return gDrops > 0; })) << "No signal came.";
        ::timer_delete(timer_);
    }

    Rain(Rain const&) = delete;
    Rain& operator=(Rain const&) = delete;

private:
    static inline std::atomic<unsigned int> gDrops{0};
    static_assert(std::atomic<unsigned int>::is_always_lock_free, "A signal's handler counts.");

    timer_t timer_ = {};
};

/// What the processes tell each other; it outlives those that are killed.
struct Board {
    /// How many records of the writer are committed.
    std::array<std::atomic<unsigned int>, WRITERS> committed;
    /// Whether the writer is between asking for the record lock and giving it up.
    std::array<std::atomic<bool>, WRITERS> isLocking;
};

class SharedBoard {
public:
    SharedBoard() {
        void* const memory = ::mmap(nullptr, sizeof(Board), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
        if (memory == MAP_FAILED) {
            throw std::system_error(errno, std::generic_category(), "mmap");
        }
        board_ = new (memory) Board();
    }
    ~SharedBoard() { ::munmap(board_, sizeof(Board)); }

    SharedBoard(SharedBoard const&) = delete;
    SharedBoard& operator=(SharedBoard const&) = delete;

    Board* operator->() const { return board_; }

private:
    Board* board_;
};

/// One record. A page holds a whole number of them, so that the system does not tear one when it kills a process.
struct Record {
    unsigned int place;
    unsigned int writer;
    unsigned int sequence;
    std::array<unsigned int, 13> check;
};

static_assert(4096 % sizeof(Record) == 0);

Record MakeRecord(long long size, unsigned int writer, unsigned int sequence) {
    Record record = {static_cast<unsigned int>(size / static_cast<long long>(sizeof record)), writer, sequence, {}};
    for (unsigned int index = 0; index < record.check.size(); ++index) {
        record.check[index] = (record.place * 31 + writer) * 31 + sequence * 7919 + index;
    }
    return record;
}

/// Fails the test unless the bytes are whole records in their places, from the one at `position`.
std::vector<Record> ReadRecords(std::string const& bytes, long long position) {
    EXPECT_EQ(bytes.size() % sizeof(Record), 0U) << "A record is torn.";
    std::vector<Record> records(bytes.size() / sizeof(Record));
    for (std::size_t index = 0; index < records.size(); ++index) {
        Record& record = records[index];
        std::memcpy(&record, bytes.data() + index * sizeof record, sizeof record);
        Record const expected = MakeRecord(position, record.writer, record.sequence);
        EXPECT_EQ(std::memcmp(&record, &expected, sizeof record), 0)
            << "The record at " << position << " is not whole.";
        position += sizeof record;
    }
    return records;
}

/// Takes a record lock. Linux looks for deadlocks between processes and not threads, so it sees some that are none.
template <class Lock>
void TakeLock(Lock lock) {
    for (;;) {
        try {
            lock();
            return;
        } catch (WBase::Message const& failure) {
            if (failure.FindID(WBase::MESSAGE_DOMAIN_ERRNO) != EDEADLK) {
                throw;
            }
        }
    }
}

class StressTest : public ::testing::Test {
protected:
    StressTest() {
        for (unsigned int index = 0; index < FILES; ++index) {
            std::string const name(1, static_cast<char>('a' + index));
            paths_[index] = scratch_ / name;
            widePaths_[index] = scratch_.Wide(name);
            TestSupport::WriteFile(paths_[index], "");
        }
    }

    void Append(std::wstring const& path, unsigned int writer) const {
        auto const file = OpenUpdateableFile(path.c_str(), KEEP_FILE);
        board_->isLocking[writer] = true;
        TakeLock([&] { file->WriteLock(false); });
        Record const record = MakeRecord(file->SetPositionToEnd(), writer, board_->committed[writer]);
        file->Write(static_cast<void const*>(&record), sizeof record);
        file->CommitAndClose();
        board_->isLocking[writer] = false;
        ++board_->committed[writer];
    }

    /// Looks at the last records while nobody writes.
    static void LookAtTheEnd(std::wstring const& path) {
        constexpr long long LOOKED_AT = 10 * sizeof(Record);
        auto const file = OpenReadableFile(path.c_str());
        TakeLock([&] { file->ReadLock(false); });
        long long const size = file->GetSize();
        long long const position = file->SetPosition(std::max(0LL, size - LOOKED_AT));
        std::string bytes(static_cast<std::size_t>(size - position), '\0');
        file->Read(bytes.data(), bytes.size());
        ReadRecords(bytes, position);
    }

    /// Locks the file, leaves it as it is, and does not commit.
    static void ThinkBetterOfIt(std::wstring const& path) {
        auto const file = OpenWriteableFile(path.c_str(), KEEP_FILE);
        TakeLock([&] { file->WriteLock(false); });
    }

    /// What one writer does.
    void Work(unsigned int writer, unsigned int operations) const {
        std::mt19937 random(writer);
        for (unsigned int operation = 0; operation < operations; ++operation) {
            std::wstring const& path = widePaths_[random() % FILES];
            switch (random() % 8) {
            case 0:
                LookAtTheEnd(path);
                break;
            case 1:
                ThinkBetterOfIt(path);
                break;
            default:
                Append(path, writer);
            }
        }
    }

    /// Calls the function in several threads, with the number of a writer each, while signals rain on them.
    template <class Code>
    static void InThreads(unsigned int firstWriter, unsigned int count, Code code) {
        std::vector<std::thread> threads;
        for (unsigned int thread = 0; thread < count; ++thread) {
            threads.emplace_back([=] {
                Rain const rain;
                code(firstWriter + thread);
            });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    }

    /// A process whose threads work.
    std::unique_ptr<Child> StartWorkers(unsigned int firstWriter, unsigned int operations) const {
        return std::make_unique<Child>([this, firstWriter, operations](Child::Parent&) {
            Initializer const initializer;
            TestSupport::DescriptorCheck const check;
            InThreads(firstWriter, THREADS, [&](unsigned int writer) { Work(writer, operations); });
        });
    }

    unsigned int CountCommitted(unsigned int firstWriter) const {
        unsigned int count = 0;
        for (unsigned int thread = 0; thread < THREADS; ++thread) {
            count += board_->committed[firstWriter + thread];
        }
        return count;
    }

    /// Nothing that was committed is lost, nothing comes twice, nothing is torn, nothing is locked.
    /// \param extra how many records a writer may have written without having come to tell
    void CheckFiles(unsigned int extra) const {
        std::map<unsigned int, std::vector<unsigned int>> sequences;
        for (std::string const& path : paths_) {
            EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path), "");
            for (Record const& record : ReadRecords(TestSupport::ReadFile(path), 0)) {
                sequences[record.writer].push_back(record.sequence);
            }
        }
        for (unsigned int writer = 0; writer < WRITERS; ++writer) {
            std::vector<unsigned int>& written = sequences[writer];
            std::sort(written.begin(), written.end());
            for (unsigned int sequence = 0; sequence < written.size(); ++sequence) {
                ASSERT_EQ(written[sequence], sequence) << "of writer " << writer;
            }
            unsigned int const committed = board_->committed[writer];
            EXPECT_GE(written.size(), committed) << "of writer " << writer;
            EXPECT_LE(written.size(), committed + extra) << "of writer " << writer;
        }
    }

    static constexpr unsigned int FILES = 3;

    TestSupport::ScratchDirectory const scratch_;
    std::array<std::string, FILES> paths_;
    std::array<std::wstring, FILES> widePaths_;
    SharedBoard const board_;
};

TEST_F(StressTest, UpdatesOfSeveralThreadsAreExact) {
    constexpr unsigned int OPERATIONS = 400;
    TestSupport::DescriptorCheck const check;
    Initializer const initializer;
    InThreads(0, 2 * THREADS, [this](unsigned int writer) { Work(writer, OPERATIONS); });
    EXPECT_GT(CountCommitted(0), THREADS * OPERATIONS / 2);
    CheckFiles(0);
}

TEST_F(StressTest, UpdatesOfSeveralProcessesWithSeveralThreadsAreExact) {
    constexpr unsigned int OPERATIONS = 250;
    std::vector<std::unique_ptr<Child>> children;
    for (unsigned int process = 0; process < PROCESSES; ++process) {
        children.push_back(StartWorkers(process * THREADS, OPERATIONS));
    }
    for (unsigned int process = 0; process < PROCESSES; ++process) {
        EXPECT_EQ(children[process]->Wait(), 0);
        EXPECT_GT(CountCommitted(process * THREADS), THREADS * OPERATIONS / 2);
    }
    CheckFiles(0);
}

TEST_F(StressTest, KilledProcessesLeaveNoLockAndNoTornRecord) {
    constexpr unsigned int NO_END = 1000000;
    std::mt19937 random(1);
    unsigned int killedWhileLocking = 0;
    for (unsigned int round = 0; round < ROUNDS; ++round) {
        std::vector<std::unique_ptr<Child>> children;
        auto const firstWriter = [&](unsigned int process) { return (round * PROCESSES + process) * THREADS; };
        for (unsigned int process = 0; process < PROCESSES; ++process) {
            children.push_back(StartWorkers(firstWriter(process), NO_END));
        }
        for (unsigned int process = 0; process < PROCESSES; ++process) {
            // It goes on although those before it were killed, and is killed in the middle of something.
            auto const goal = CountCommitted(firstWriter(process)) + 1 + random() % 12;
            ASSERT_TRUE(TestSupport::WaitUntil([&] { return CountCommitted(firstWriter(process)) >= goal; }));
            auto const moment = std::chrono::steady_clock::now() + std::chrono::microseconds(random() % 2000);
            while (std::chrono::steady_clock::now() < moment) {
            }
            ASSERT_EQ(children[process]->Kill(), -SIGKILL);
            auto const isLocking = board_->isLocking.begin() + firstWriter(process);
            killedWhileLocking += std::any_of(isLocking, isLocking + THREADS, [](bool is) { return is; }) ? 1 : 0;
        }
    }
    EXPECT_GT(killedWhileLocking, 0U);
    CheckFiles(1);
}

TEST_F(StressTest, StartUpAndShutDownRaceWithoutLoss) {
    constexpr unsigned int ENTRIES = 50000;
    constexpr unsigned int ENTRIES_A_RECORD = 250;
    std::atomic<unsigned int> shutDowns{0};
    TestSupport::DescriptorCheck const check;
    InThreads(0, THREADS, [&](unsigned int writer) {
        std::mt19937 random(writer);
        for (unsigned int entry = 0; entry < ENTRIES; ++entry) {
            {
                Initializer const initializer;
                if (entry % ENTRIES_A_RECORD == 0) {
                    Append(widePaths_[random() % FILES], writer);
                }
            }
            shutDowns += gModuleMainPtr.Get() == nullptr ? 1 : 0;
        }
    });
    EXPECT_EQ(gModuleMainPtr.Get(), nullptr);
    EXPECT_EQ(WSynch::Initializer::GetCount(), 0);
    EXPECT_GT(shutDowns, 1U);
    EXPECT_EQ(CountCommitted(0), THREADS * ENTRIES / ENTRIES_A_RECORD);
    CheckFiles(0);
}

} // namespace
