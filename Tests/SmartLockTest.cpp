// The six guards that hold a file object's record lock for a scope. Reading and writing differ in nothing but the
// calls.

#include <FileSystem/ReadableFile.h>
#include <FileSystem/UpdateableFile.h>
#include <FileSystem/WriteableFile.h>
#include <Tests/Support/Recorder.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace {

using namespace WFileSystem;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

/// What a lock operation does.
enum class Answer { YES, NO, EXCEPTION };

/// A file that does nothing but write down the calls of its lock operations. The answers are given in turn, then again
/// and again the last one.
class FakeFile : public UpdateableFile {
public:
    explicit FakeFile(std::deque<Answer> answers = {Answer::YES}) : answers_(std::move(answers)) {}

    std::vector<std::string> calls;

    bool ReadLock(bool dontWait) override { return Lock("Read", dontWait); }
    void ReadUnlock() override { calls.emplace_back("ReadUnlock()"); }
    bool WriteLock(bool dontWait) override { return Lock("Write", dontWait); }
    void WriteUnlock() override { calls.emplace_back("WriteUnlock()"); }

    wchar_t const* GetPath() const override { return L""; }
    bool IsAccessibleViaPath(WBase::Message*) const override { return false; }
    long long GetSize() const override { return 0; }
    long long GetPosition() const override { return 0; }
    long long MovePosition(long long) override { return 0; }
    long long SetPosition(long long) override { return 0; }
    long long SetPositionToEnd() override { return 0; }
    void Read(void*, unsigned long) override {}
    void Read(WDataType::Binary&, unsigned long) override {}
    void ReadLittleEndian(unsigned int&) override {}
    void ReadLine(WDataType::Binary&) override {}
    WBase::TotalTimer const& GetReadTimer() const override { return timer_; }
    WBase::TotalTimer const& GetReadLockTimer() const override { return timer_; }
    void Write(char const*, unsigned long) override {}
    void Write(void const*, unsigned long) override {}
    void WriteLittleEndian(unsigned int const&) override {}
    void Flush() override {}
    void Truncate() override {}
    void CommitAndClose() override {}
    WBase::TotalTimer const& GetWriteTimer() const override { return timer_; }
    WBase::TotalTimer const& GetWriteLockTimer() const override { return timer_; }

private:
    bool Lock(std::string const& kind, bool dontWait) {
        calls.push_back(kind + (dontWait ? "Lock(true)" : "Lock(false)"));
        Answer const answer = answers_.front();
        if (answers_.size() > 1) {
            answers_.pop_front();
        }
        if (answer == Answer::EXCEPTION) {
            throw std::runtime_error("no lock");
        }
        return answer == Answer::YES;
    }

    std::deque<Answer> answers_;
    WBase::TotalTimer timer_;
};

struct Reading {
    using File = ReadableFile;
    using Waiting = ReadableFile::ReadSmartLock;
    using NoWait = ReadableFile::ReadSmartLock_NoWait;
    using Wait = ReadableFile::ReadSmartLock_Wait;
    static std::string Name() { return "Read"; }
};

struct Writing {
    using File = WriteableFile;
    using Waiting = WriteableFile::WriteSmartLock;
    using NoWait = WriteableFile::WriteSmartLock_NoWait;
    using Wait = WriteableFile::WriteSmartLock_Wait;
    static std::string Name() { return "Write"; }
};

template <class Guard>
constexpr bool STAYS_WHERE_IT_IS = !std::is_copy_constructible_v<Guard> && !std::is_move_constructible_v<Guard> &&
                                   !std::is_copy_assignable_v<Guard> && !std::is_move_assignable_v<Guard>;

template <class Kind>
constexpr bool ARE_GUARDS = STAYS_WHERE_IT_IS<typename Kind::Waiting>&& STAYS_WHERE_IT_IS<typename Kind::NoWait>&&
                                STAYS_WHERE_IT_IS<typename Kind::Wait>&&
                                    std::is_base_of_v<typename Kind::Waiting, typename Kind::NoWait>&&
                                        std::is_base_of_v<typename Kind::Waiting, typename Kind::Wait> &&
                            sizeof(typename Kind::NoWait) == sizeof(typename Kind::Waiting) &&
                            sizeof(typename Kind::Wait) == sizeof(typename Kind::Waiting);

static_assert(ARE_GUARDS<Reading>);
static_assert(ARE_GUARDS<Writing>);

template <class Kind>
class SmartLockTest : public ::testing::Test {
protected:
    /// The calls as a file of this kind gets them: "ReadLock(true)" for "Lock(true)".
    static std::vector<std::string> Calls(std::vector<std::string> calls) {
        for (std::string& call : calls) {
            call.insert(0, call.find("sleep") == 0 ? "" : Kind::Name());
        }
        return calls;
    }

    /// No thread sleeps in these tests; the file writes it down instead.
    void WriteDownSleeps(FakeFile& file, TestSupport::Recorder& recorder) {
        auto const writeDown = [&file](TestSupport::Call const& call) {
            file.calls.push_back("sleep " + call.details);
            return 0L;
        };
        recorder.On("nanosleep").Optional().Instead(writeDown);
        recorder.On("clock_nanosleep").Optional().Instead(writeDown);
    }
};

using Kinds = ::testing::Types<Reading, Writing>;
TYPED_TEST_SUITE(SmartLockTest, Kinds);

TYPED_TEST(SmartLockTest, AGuardOfNothingTouchesNoFile) {
    typename TypeParam::Waiting guard;
    EXPECT_FALSE(guard.IsLocked());
    guard.Unlock();
    EXPECT_FALSE(guard.IsLocked());
}

TYPED_TEST(SmartLockTest, AGuardHoldsItsFileAndThenItsFlag) {
    FakeFile file;
    typename TypeParam::Waiting const guard(file);
    struct Fields {
        typename TypeParam::File* file;
        bool isLocked;
    } fields;
    static_assert(sizeof fields == sizeof guard);
    std::memcpy(&fields, &guard, sizeof fields);
    EXPECT_EQ(fields.file, &file);
    EXPECT_TRUE(fields.isLocked);
}

TYPED_TEST(SmartLockTest, TheWaitingGuardWaitsForTheLockAndDropsItAtItsEnd) {
    FakeFile file;
    {
        typename TypeParam::Waiting const guard(file);
        EXPECT_TRUE(guard.IsLocked());
        EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(false)"})));
    }
    EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(false)", "Unlock()"})));
}

TYPED_TEST(SmartLockTest, TheWaitingGuardKeepsTheResultOfItsLockOperation) {
    FakeFile file({Answer::NO});
    {
        typename TypeParam::Waiting const guard(file);
        EXPECT_FALSE(guard.IsLocked());
    }
    EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(false)"})));
}

TYPED_TEST(SmartLockTest, AnExceptionLeavesTheWaitingGuardWithoutALockToDrop) {
    FakeFile file({Answer::EXCEPTION});
    EXPECT_THROW(typename TypeParam::Waiting guard(file), std::runtime_error);
    EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(false)"})));
}

TYPED_TEST(SmartLockTest, UnlockingTwiceUnlocksOnce) {
    FakeFile file;
    typename TypeParam::Waiting guard(file);
    guard.Unlock();
    EXPECT_FALSE(guard.IsLocked());
    guard.Unlock();
    EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(false)", "Unlock()"})));
}

TYPED_TEST(SmartLockTest, AGuardUnlockedByHandUnlocksNothingAtItsEnd) {
    FakeFile file;
    {
        typename TypeParam::Waiting guard(file);
        guard.Unlock();
    }
    EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(false)", "Unlock()"})));
}

TYPED_TEST(SmartLockTest, TheNoWaitGuardTriesOnceAndDropsTheLockAtItsEnd) {
    FakeFile file;
    {
        typename TypeParam::NoWait const guard(file);
        EXPECT_TRUE(guard.IsLocked());
        EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(true)"})));
    }
    EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(true)", "Unlock()"})));
}

TYPED_TEST(SmartLockTest, TheNoWaitGuardWithoutTheLockDropsNothing) {
    FakeFile file({Answer::NO});
    TestSupport::Recorder recorder;
    this->WriteDownSleeps(file, recorder);
    {
        typename TypeParam::NoWait guard(file);
        EXPECT_FALSE(guard.IsLocked());
        guard.Unlock();
    }
    EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(true)"})));
}

TYPED_TEST(SmartLockTest, AnExceptionLeavesTheNoWaitGuardWithoutALockToDrop) {
    FakeFile file({Answer::EXCEPTION});
    EXPECT_THROW(typename TypeParam::NoWait guard(file), std::runtime_error);
    EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(true)"})));
}

TYPED_TEST(SmartLockTest, TheWaitGuardTriesAtOnceAndAtTheEndOfEachSlice) {
    std::pair<unsigned long, std::vector<std::string>> const rows[] = {
        {0, {"Lock(true)"}},
        {1, {"Lock(true)", "sleep 0s 1000000ns", "Lock(true)"}},
        {4999, {"Lock(true)", "sleep 4s 999000000ns", "Lock(true)"}},
        {5000, {"Lock(true)", "sleep 5s 0ns", "Lock(true)"}},
        {5001, {"Lock(true)", "sleep 5s 0ns", "Lock(true)", "sleep 0s 1000000ns", "Lock(true)"}},
        {10000, {"Lock(true)", "sleep 5s 0ns", "Lock(true)", "sleep 5s 0ns", "Lock(true)"}},
        {12000,
         {"Lock(true)", "sleep 5s 0ns", "Lock(true)", "sleep 5s 0ns", "Lock(true)", "sleep 2s 0ns", "Lock(true)"}}};
    for (auto const& [milliseconds, expected] : rows) {
        FakeFile file({Answer::NO});
        TestSupport::Recorder recorder;
        this->WriteDownSleeps(file, recorder);
        std::optional<typename TypeParam::Wait> guard(std::in_place, file, milliseconds);
        EXPECT_FALSE(guard->IsLocked());
        guard.reset();
        EXPECT_THAT(file.calls, ElementsAreArray(this->Calls(expected))) << milliseconds << " ms";
    }
}

TYPED_TEST(SmartLockTest, TheWaitGuardThatGetsTheLockAtOnceDoesNotSleep) {
    FakeFile file;
    TestSupport::Recorder recorder;
    this->WriteDownSleeps(file, recorder);
    std::optional<typename TypeParam::Wait> guard(std::in_place, file, 12000UL);
    EXPECT_TRUE(guard->IsLocked());
    guard.reset();
    EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(true)", "Unlock()"})));
}

TYPED_TEST(SmartLockTest, TheWaitGuardStopsWithTheFirstTryThatSucceeds) {
    FakeFile file({Answer::NO, Answer::YES});
    TestSupport::Recorder recorder;
    this->WriteDownSleeps(file, recorder);
    std::optional<typename TypeParam::Wait> guard(std::in_place, file, 12000UL);
    EXPECT_TRUE(guard->IsLocked());
    guard.reset();
    EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(true)", "sleep 5s 0ns", "Lock(true)", "Unlock()"})));
}

TYPED_TEST(SmartLockTest, TheWaitGuardHoldsALockThatCameWithTheLastTry) {
    FakeFile file({Answer::NO, Answer::NO, Answer::YES});
    TestSupport::Recorder recorder;
    this->WriteDownSleeps(file, recorder);
    typename TypeParam::Wait guard(file, 6000);
    EXPECT_TRUE(guard.IsLocked());
    guard.Unlock();
    EXPECT_THAT(
        file.calls, ElementsAreArray(this->Calls(
                        {"Lock(true)", "sleep 5s 0ns", "Lock(true)", "sleep 1s 0ns", "Lock(true)", "Unlock()"})));
}

TYPED_TEST(SmartLockTest, AnExceptionOfTheFirstTryLeavesTheWaitGuard) {
    FakeFile file({Answer::EXCEPTION});
    EXPECT_THROW(typename TypeParam::Wait guard(file, 12000), std::runtime_error);
    EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(true)"})));
}

TYPED_TEST(SmartLockTest, AnExceptionOfALaterTryLeavesTheWaitGuardWithoutALockToDrop) {
    FakeFile file({Answer::NO, Answer::EXCEPTION});
    TestSupport::Recorder recorder;
    this->WriteDownSleeps(file, recorder);
    EXPECT_THROW(typename TypeParam::Wait guard(file, 12000), std::runtime_error);
    EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(true)", "sleep 5s 0ns", "Lock(true)"})));
}

TYPED_TEST(SmartLockTest, AnInterruptedSleepGoesOn) {
    FakeFile file({Answer::NO, Answer::YES});
    TestSupport::Recorder recorder;
    recorder.On("nanosleep").Return(0);
    recorder.On("nanosleep").Nth(1).Fail(EINTR);
    typename TypeParam::Wait const guard(file, 3000);
    EXPECT_THAT(recorder.Calls(), ElementsAre("nanosleep(3s 0ns)", "nanosleep(3s 0ns)"));
    EXPECT_THAT(file.calls, ElementsAreArray(this->Calls({"Lock(true)", "Lock(true)"})));
}

} // namespace
