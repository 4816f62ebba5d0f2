// What is particular to the updateable file: its reading side, and how its two sides share one file. What it has in
// common with the writeable file: WritingFile*Test.cpp.

#include <DataType/Binary.h>
#include <Tests/Support/Descriptors.h>
#include <Tests/Support/Messages.h>
#include <Tests/Support/RecordLocks.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/Text.h>
#include <Tests/WritingFiles.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <unistd.h>

namespace {

using namespace WFileSystem;
using ::testing::ElementsAre;
using TestSupport::Recorder;

class UpdateableFileTest : public WritingFiles::Test<WritingFiles::Updateable> {
protected:
    static std::string ReadAll(ReadableFile& file) {
        auto const buffer = WDataType::CreateBinary(64, nullptr);
        file.Read(*buffer, 0);
        return std::string(buffer->GetBuffer(), buffer->GetSize());
    }
};

// One file, four views

TEST_F(UpdateableFileTest, OneLockedUpdateMakesTheseCallsAndNoOthers) {
    Recorder recorder;
    {
        auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
        WriteableFile::WriteSmartLock const lock(*file);
        unsigned int count;
        file->ReadLittleEndian(count);
        file->SetPosition(0);
        file->WriteLittleEndian(count + 1);
        file->CommitAndClose();
    }
    EXPECT_THAT(
        recorder.Calls(),
        ElementsAre(
            "stat(\"" + path_ + "\")", "chmod(\"" + path_ + "\", 0664)",
            "open(\"" + path_ + "\", O_RDWR|O_CREAT|O_NOCTTY, 0664)", "fcntl(F_GETFD)", "fcntl(F_SETFD, FD_CLOEXEC)",
            "fstat()", "fcntl(F_SETLKW, F_WRLCK 0+0)", "read(4)", "lseek(0, SEEK_SET)", "write(4)", "close()"));
    EXPECT_EQ(TestSupport::ReadFile(path_), "1123456789");
}

TEST_F(UpdateableFileTest, ItsFourViewsAreOneObject) {
    auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
    ReadableFile& readable = *file;
    WriteableFile& writeable = *file;
    GenericFile& generic = *file;
    EXPECT_EQ(static_cast<GenericFile*>(&readable), &generic);
    EXPECT_EQ(static_cast<GenericFile*>(&writeable), &generic);
    EXPECT_EQ(dynamic_cast<WriteableFile*>(&readable), &writeable);
    EXPECT_EQ(dynamic_cast<UpdateableFile*>(&generic), file.get());
}

TEST_F(UpdateableFileTest, EachViewWorksOnTheSameFile) {
    auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
    ReadableFile& readable = *file;
    WriteableFile& writeable = *file;
    GenericFile& generic = *file;
    writeable.Write("ab", 0);
    EXPECT_EQ(readable.GetPosition(), 2);
    EXPECT_EQ(readable.SetPosition(1), 1);
    EXPECT_EQ(ReadAll(readable), "b23456789");
    EXPECT_EQ(generic.GetPosition(), 10);
    EXPECT_EQ(generic.MovePosition(-5), 5);
    writeable.Truncate();
    EXPECT_EQ(file->GetSize(), 5);
    EXPECT_EQ(readable.GetSize(), 5);
    EXPECT_EQ(generic.GetPath(), writeable.GetPath());
    EXPECT_EQ(generic.GetPath(), readable.GetPath());
}

TEST_F(UpdateableFileTest, TheViewsShareLocksTimersAndTheCommit) {
    auto const file = Open();
    ReadableFile& readable = *file;
    WriteableFile& writeable = *file;
    GenericFile& generic = *file;
    EXPECT_TRUE(readable.ReadLock(false) && file->IsReadLocked());
    EXPECT_TRUE(writeable.WriteLock(false) && file->IsWriteLocked());
    generic.SetPositionToEnd();
    EXPECT_FALSE(file->IsLockTouched());
    readable.ReadUnlock();
    writeable.WriteUnlock();
    EXPECT_FALSE(file->IsReadLocked() || file->IsWriteLocked());
    EXPECT_EQ(&readable.GetReadTimer(), &file->GetReadTimer());
    EXPECT_EQ(&readable.GetReadLockTimer(), &file->GetReadLockTimer());
    EXPECT_EQ(&writeable.GetWriteTimer(), &file->GetWriteTimer());
    EXPECT_EQ(&writeable.GetWriteLockTimer(), &file->GetWriteLockTimer());
    EXPECT_TRUE(generic.IsAccessibleViaPath(nullptr));
    writeable.CommitAndClose();
    EXPECT_FALSE(generic.IsAccessibleViaPath(nullptr));
    EXPECT_THROW(readable.GetPosition(), WBase::Message);
}

template <class View>
void EndThroughView(std::wstring const& path) {
    std::unique_ptr<View> file = OpenUpdateableFile(path.c_str(), DELETE_FILE);
    file.reset();
    EXPECT_FALSE(TestSupport::Exists(TestSupport::Narrow(path)));
}

TEST_F(UpdateableFileTest, EachViewCanEndTheObject) {
    EndThroughView<UpdateableFile>(widePath_);
    EndThroughView<ReadableFile>(widePath_);
    EndThroughView<WriteableFile>(widePath_);
    EndThroughView<GenericFile>(widePath_);
}

TEST_F(UpdateableFileTest, WhatTheFileHeldCanBeReadAtOnce) {
    auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
    EXPECT_EQ(ReadAll(*file), WritingFiles::CONTENT);
}

TEST_F(UpdateableFileTest, AStandardDescriptorIsAccepted) {
    for (int const fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        TestSupport::CloseDuring const closed(fd);
        auto const file = Open();
        EXPECT_EQ(file->GetDescriptor(), fd);
        file->Write("ab", 2);
        file->SetPosition(0);
        EXPECT_EQ(ReadAll(*file), "ab23456789");
        EXPECT_TRUE(file->WriteLock(true));
        EXPECT_TRUE(TestSupport::IsCloseOnExec(fd));
        file->CommitAndClose();
        EXPECT_FALSE(TestSupport::IsOpen(fd));
    }
}

TEST_F(UpdateableFileTest, AStandardDescriptorIsUnlockedAndClosedByThePolicyLikeAnyOther) {
    for (int const fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        TestSupport::WriteFile(path_, WritingFiles::CONTENT);
        TestSupport::CloseDuring const closed(fd);
        auto file = OpenUpdateableFile(widePath_.c_str(), TRUNCATE_FILE);
        file->ReadLock(false);
        file->ReadUnlock();
        EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "");
        file->WriteLock(false);
        file->WriteUnlock();
        EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "");
        file.reset();
        EXPECT_FALSE(TestSupport::IsOpen(fd));
        EXPECT_EQ(TestSupport::ReadFile(path_), "");
    }
}

// Reading

TEST_F(UpdateableFileTest, ReadingGivesBytesValuesAndLines) {
    TestSupport::WriteFile(path_, "ab\x04\x03\x02\x01xy\nz");
    auto const file = Open();
    char bytes[3] = "";
    file->Read(bytes, 2);
    EXPECT_STREQ(bytes, "ab");
    unsigned int value = 0;
    file->ReadLittleEndian(value);
    EXPECT_EQ(value, 0x01020304U);
    auto const buffer = WDataType::CreateBinary(16, nullptr);
    file->ReadLine(*buffer);
    EXPECT_EQ(std::string(buffer->GetBuffer(), buffer->GetSize()), "xy\n");
    file->Read(*buffer, 5);
    EXPECT_EQ(std::string(buffer->GetBuffer(), buffer->GetSize()), "z");
}

TEST_F(UpdateableFileTest, FailuresOfReadingNameTheFile) {
    auto const file = Open();
    auto const buffer = WDataType::CreateBinary(16, nullptr);
    unsigned int value = 77;
    auto const expectFailures = [&](int error) {
        std::wstring const from = L" bytes from file '" + widePath_ + L"'.";
        EXPECT_WRAPPED(file->Read(&value, 3), L"Failed to read 3" + from, error);
        EXPECT_WRAPPED(file->Read(*buffer, 5), L"Failed to read 5" + from, error);
        EXPECT_WRAPPED(file->ReadLittleEndian(value), L"Failed to read 4" + from, error);
        EXPECT_WRAPPED(file->ReadLine(*buffer), L"Failed to read 16" + from, error);
        EXPECT_WRAPPED(file->ReadLock(false), L"Failed to lock file '" + widePath_ + L"'.", error);
    };
    {
        Recorder recorder;
        recorder.On("*").Fail(EIO);
        expectFailures(EIO);
    }
    file->CommitAndClose();
    expectFailures(EBADF);
    EXPECT_EQ(value, 77U);
}

// Timers and flags

using Operation = std::function<void(UpdateableFile&)>;
using Times = std::array<std::chrono::nanoseconds, 4>;

Times TimesOf(UpdateableFile const& file) {
    return {
        file.GetReadTimer().GetTotal(), file.GetReadLockTimer().GetTotal(), file.GetWriteTimer().GetTotal(),
        file.GetWriteLockTimer().GetTotal()};
}

/// The timer that an operation moves.
enum Timer : unsigned int { READ, READ_LOCK, WRITE, WRITE_LOCK, NONE };

/// What an operation does to the lock-touched flag.
enum class Flag { CLEARS, LEAVES, SETS, SETS_WHILE_OPEN };

struct Row {
    char const* name;
    Timer timer;
    Flag flag;
    Operation call;
};

unsigned int value;

Row const ROWS[] = {
    {"Read", READ, Flag::CLEARS, [](UpdateableFile& file) { file.Read(&value, 1); }},
    {"Read into a buffer", READ, Flag::CLEARS,
     [](UpdateableFile& file) { file.Read(*WDataType::CreateBinary(8, nullptr), 1); }},
    {"ReadLine", READ, Flag::CLEARS, [](UpdateableFile& file) { file.ReadLine(*WDataType::CreateBinary(8, nullptr)); }},
    {"ReadLittleEndian", READ, Flag::CLEARS, [](UpdateableFile& file) { file.ReadLittleEndian(value); }},
    {"ReadLock", READ_LOCK, Flag::SETS, [](UpdateableFile& file) { file.ReadLock(false); }},
    {"ReadUnlock", READ_LOCK, Flag::SETS_WHILE_OPEN, [](UpdateableFile& file) { file.ReadUnlock(); }},
    {"Write a text", WRITE, Flag::CLEARS, [](UpdateableFile& file) { file.Write("abcd", 0); }},
    {"Write", WRITE, Flag::CLEARS, [](UpdateableFile& file) { file.Write(&value, sizeof value); }},
    {"WriteLittleEndian", WRITE, Flag::CLEARS, [](UpdateableFile& file) { file.WriteLittleEndian(1); }},
    {"Flush", WRITE, Flag::LEAVES, [](UpdateableFile& file) { file.Flush(); }},
    {"WriteLock", WRITE_LOCK, Flag::SETS, [](UpdateableFile& file) { file.WriteLock(false); }},
    {"WriteUnlock", WRITE_LOCK, Flag::SETS_WHILE_OPEN, [](UpdateableFile& file) { file.WriteUnlock(); }},
    {"SetPosition", NONE, Flag::CLEARS, [](UpdateableFile& file) { file.SetPosition(1); }},
    {"SetPositionToEnd", NONE, Flag::CLEARS, [](UpdateableFile& file) { file.SetPositionToEnd(); }},
    {"MovePosition", NONE, Flag::LEAVES, [](UpdateableFile& file) { file.MovePosition(-1); }}, // on purpose
    {"GetPath", NONE, Flag::LEAVES, [](UpdateableFile& file) { file.GetPath(); }},
    {"IsAccessibleViaPath", NONE, Flag::LEAVES, [](UpdateableFile& file) { file.IsAccessibleViaPath(nullptr); }},
    {"GetSize", NONE, Flag::LEAVES, [](UpdateableFile& file) { file.GetSize(); }},
    {"GetPosition", NONE, Flag::LEAVES, [](UpdateableFile& file) { file.GetPosition(); }},
    {"GetReadTimer", NONE, Flag::LEAVES, [](UpdateableFile& file) { file.GetReadTimer(); }},
    {"GetReadLockTimer", NONE, Flag::LEAVES, [](UpdateableFile& file) { file.GetReadLockTimer(); }},
    {"GetWriteTimer", NONE, Flag::LEAVES, [](UpdateableFile& file) { file.GetWriteTimer(); }},
    {"GetWriteLockTimer", NONE, Flag::LEAVES, [](UpdateableFile& file) { file.GetWriteLockTimer(); }},
    {"Truncate", WRITE, Flag::LEAVES, [](UpdateableFile& file) { file.Truncate(); }},
    {"CommitAndClose", WRITE, Flag::LEAVES, [](UpdateableFile& file) { file.CommitAndClose(); }}};

/// The operation moves its timer, and no other. It may fail.
void ExpectTimes(UpdateableFile& file, Row const& row) {
    Times const before = TimesOf(file);
    try {
        row.call(file);
    } catch (WBase::Message const&) {
    }
    Times const after = TimesOf(file);
    for (unsigned int timer = READ; timer != NONE; ++timer) {
        if (timer == row.timer) {
            EXPECT_GE((after[timer] - before[timer]).count(), std::chrono::nanoseconds(WritingFiles::MOMENT).count())
                << row.name;
        } else {
            EXPECT_EQ(after[timer].count(), before[timer].count()) << row.name << ", timer " << timer;
        }
    }
}

TEST_F(UpdateableFileTest, EachOperationMovesItsTimerOnly) {
    auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
    EXPECT_EQ(TimesOf(*file), Times());
    Recorder recorder;
    WritingFiles::LetCallsTakeTime(recorder);
    for (Row const& row : ROWS) {
        ExpectTimes(*file, row);
    }
}

TEST_F(UpdateableFileTest, EachOperationThatFailsMovesItsTimerOnly) {
    auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
    file->CommitAndClose();
    Recorder recorder;
    WritingFiles::LetCallsTakeTime(recorder);
    for (Row const& row : ROWS) {
        if (row.flag != Flag::SETS_WHILE_OPEN) {
            ExpectTimes(*file, row);
        }
    }
}

TEST_F(UpdateableFileTest, AfterTheCommitUnlockingMovesNoTimer) {
    auto const file = OpenUpdateableFile(widePath_.c_str(), KEEP_FILE);
    file->CommitAndClose();
    Times const before = TimesOf(*file);
    Recorder recorder;
    for (int i = 0; i < 100; ++i) {
        file->ReadUnlock();
        file->WriteUnlock();
    }
    EXPECT_EQ(TimesOf(*file), before);
    EXPECT_EQ(recorder.Names(), "");
}

TEST_F(UpdateableFileTest, EachOperationClearsSetsOrLeavesTheLockTouchedFlag) {
    for (Row const& row : ROWS) {
        for (bool const before : {false, true}) {
            TestSupport::WriteFile(path_, WritingFiles::CONTENT);
            auto const file = Open();
            file->SetPosition(5);
            if (before) {
                file->ReadLock(false);
            }
            row.call(*file);
            bool const sets = row.flag == Flag::SETS || row.flag == Flag::SETS_WHILE_OPEN;
            EXPECT_EQ(file->IsLockTouched(), sets || (row.flag == Flag::LEAVES && before)) << row.name;
        }
    }
}

TEST_F(UpdateableFileTest, AnOperationThatFailsLeavesTheFlags) {
    auto const file = Open();
    file->ReadLock(false);
    file->WriteLock(false);
    Recorder recorder;
    recorder.On("*").Fail(EIO);
    for (Row const& row : ROWS) {
        if (row.flag == Flag::CLEARS) {
            EXPECT_THROW(row.call(*file), WBase::Message) << row.name;
            EXPECT_TRUE(file->IsLockTouched() && file->IsReadLocked() && file->IsWriteLocked()) << row.name;
        }
    }
    EXPECT_THROW(file->ReadLock(true), WBase::Message);
    EXPECT_TRUE(file->IsReadLocked());
}

TEST_F(UpdateableFileTest, MovePositionLeavesTheLockTouchedFlagThroughEveryView) {
    auto const file = Open();
    GenericFile* const views[] = {
        file.get(), static_cast<ReadableFile*>(file.get()), static_cast<WriteableFile*>(file.get())};
    for (GenericFile* const view : views) {
        file->SetPosition(0);
        EXPECT_EQ(view->MovePosition(3), 3);
        EXPECT_FALSE(file->IsLockTouched());
        file->ReadLock(false);
        EXPECT_EQ(view->MovePosition(-1), 2);
        EXPECT_TRUE(file->IsLockTouched());
    }
}

// Locks

TEST_F(UpdateableFileTest, ALockOfTheOtherKindTakesThePlaceOfTheFirst) {
    auto const file = Open();
    file->WriteLock(false);
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "WRITE");
    file->ReadLock(false);
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "READ");
    EXPECT_TRUE(file->IsReadLocked());
    EXPECT_TRUE(file->IsWriteLocked());
}

TEST_F(UpdateableFileTest, ReadUnlockDropsTheWriteLockAndLeavesItsFlag) {
    auto const file = Open();
    file->WriteLock(false);
    file->ReadLock(false);
    file->WriteLock(false);
    file->ReadUnlock();
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "");
    EXPECT_TRUE(file->IsWriteLocked());
    EXPECT_FALSE(file->IsReadLocked());
}

TEST_F(UpdateableFileTest, WriteUnlockDropsTheReadLockAndLeavesItsFlag) {
    auto const file = Open();
    file->WriteLock(false);
    file->ReadLock(false);
    file->WriteUnlock();
    EXPECT_EQ(TestSupport::RecordLockSeenByOthers(path_), "");
    EXPECT_TRUE(file->IsReadLocked());
    EXPECT_FALSE(file->IsWriteLocked());
}

TEST_F(UpdateableFileTest, ReadLockKeepsItsResult) {
    auto const file = Open();
    EXPECT_FALSE(file->IsReadLocked());
    EXPECT_TRUE(file->ReadLock(false));
    EXPECT_TRUE(file->IsReadLocked());
    Recorder recorder;
    recorder.On("fcntl").Fail(EAGAIN);
    EXPECT_FALSE(file->ReadLock(true));
    EXPECT_FALSE(file->IsReadLocked());
    EXPECT_FALSE(file->IsWriteLocked());
}

TEST_F(UpdateableFileTest, AfterTheCommitReadUnlockClearsTheReadLockedFlagOnly) {
    auto const file = Open();
    file->ReadLock(false);
    file->WriteLock(false);
    file->SetPosition(0);
    file->CommitAndClose();
    file->ReadUnlock();
    EXPECT_FALSE(file->IsReadLocked());
    EXPECT_TRUE(file->IsWriteLocked());
    EXPECT_FALSE(file->IsLockTouched());
}

} // namespace
