// What the three file objects cost: the memory of one, and the calls and allocations of its operations.

#include <DataType/Binary.h>
#include <FileSystem/Initializer.h>
#include <FileSystem/ReadableFile.h>
#include <FileSystem/UpdateableFile.h>
#include <FileSystem/WriteableFile.h>
#include <Tests/Support/Allocations.h>
#include <Tests/Support/Recorder.h>
#include <Tests/Support/ScratchDirectory.h>

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace WFileSystem;
using TestSupport::Allocations;
using TestSupport::Recorder;

/// A call of an operation and the system calls that it makes.
template <class File>
using Operation = std::pair<std::function<void(File&)>, char const*>;

template <class File>
std::vector<Operation<File>> GenericOperations() {
    return {
        {[](File& file) { file.GetPath(); }, ""},
        {[](File& file) { file.GetSize(); }, "fstat"},
        {[](File& file) { file.GetPosition(); }, "lseek"},
        {[](File& file) { file.SetPosition(1); }, "lseek"},
        {[](File& file) { file.MovePosition(-1); }, "lseek"},
        {[](File& file) { file.SetPositionToEnd(); }, "lseek"},
        {[](File& file) { file.SetPosition(0); }, "lseek"}};
}

template <class File>
std::vector<Operation<File>> ReadingOperations() {
    static std::unique_ptr<WDataType::Binary> const buffer = WDataType::CreateBinary(8, nullptr);
    static unsigned int value;
    return {
        {[](File& file) { file.ReadLock(false); }, "fcntl"},
        {[](File& file) { file.Read(&value, sizeof value); }, "read"},
        {[](File& file) { file.ReadLittleEndian(value); }, "read"},
        {[](File& file) { file.Read(*buffer, 4); }, "read"},
        {[](File& file) { file.ReadLine(*buffer); }, "read lseek"},
        {[](File& file) { file.GetReadTimer(); }, ""},
        {[](File& file) { file.GetReadLockTimer(); }, ""},
        {[](File& file) { file.ReadUnlock(); }, "fcntl"},
        {[](File& file) { typename File::ReadSmartLock const lock(file); }, "fcntl fcntl"},
        {[](File& file) { typename File::ReadSmartLock_NoWait const lock(file); }, "fcntl fcntl"},
        {[](File& file) { typename File::ReadSmartLock_Wait const lock(file, 1000); }, "fcntl fcntl"}};
}

template <class File>
std::vector<Operation<File>> WritingOperations() {
    static unsigned int const value = 0x61626364;
    return {
        {[](File& file) { file.WriteLock(false); }, "fcntl"},
        {[](File& file) { file.Write("text", 0); }, "write"},
        {[](File& file) { file.Write(&value, sizeof value); }, "write"},
        {[](File& file) { file.WriteLittleEndian(value); }, "write"},
        {[](File& file) { file.Flush(); }, "fsync"},
        {[](File& file) { file.Truncate(); }, "lseek ftruncate"},
        {[](File& file) { file.GetWriteTimer(); }, ""},
        {[](File& file) { file.GetWriteLockTimer(); }, ""},
        {[](File& file) { file.WriteUnlock(); }, "fcntl"},
        {[](File& file) { typename File::WriteSmartLock const lock(file); }, "fcntl fcntl"},
        {[](File& file) { typename File::WriteSmartLock_NoWait const lock(file); }, "fcntl fcntl"},
        {[](File& file) { typename File::WriteSmartLock_Wait const lock(file, 1000); }, "fcntl fcntl"}};
}

template <class File>
std::vector<Operation<File>> Join(std::vector<Operation<File>> first, std::vector<Operation<File>> const& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

struct Readable {
    using File = ReadableFile;
    static std::unique_ptr<File> Open(wchar_t const* path) { return OpenReadableFile(path); }
    static std::vector<Operation<File>> Operations() {
        return Join(GenericOperations<File>(), ReadingOperations<File>());
    }
};

struct Writeable {
    using File = WriteableFile;
    static std::unique_ptr<File> Open(wchar_t const* path) { return OpenWriteableFile(path, KEEP_FILE); }
    static std::vector<Operation<File>> Operations() {
        return Join(GenericOperations<File>(), WritingOperations<File>());
    }
};

struct Updateable {
    using File = UpdateableFile;
    static std::unique_ptr<File> Open(wchar_t const* path) { return OpenUpdateableFile(path, KEEP_FILE); }
    static std::vector<Operation<File>> Operations() {
        return Join(Join(GenericOperations<File>(), ReadingOperations<File>()), WritingOperations<File>());
    }
};

template <class Kind>
class FileObjectCostTest : public ::testing::Test {
protected:
    FileObjectCostTest() { TestSupport::WriteFile(scratch_ / "f", "0123456789ab\ncdefghijklm"); }

    Initializer const initializer_;
    TestSupport::ScratchDirectory const scratch_;
};

using Kinds = ::testing::Types<Readable, Writeable, Updateable>;
TYPED_TEST_SUITE(FileObjectCostTest, Kinds);

TYPED_TEST(FileObjectCostTest, AnOperationAllocatesNothing) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    auto const file = TypeParam::Open(this->scratch_.Wide("f").c_str());
    auto const operations = TypeParam::Operations();
    Allocations allocations;
    for (auto const& [operation, calls] : operations) {
        operation(*file);
    }
    EXPECT_EQ(allocations.Stop(), 0U);
}

TYPED_TEST(FileObjectCostTest, AnOperationMakesItsOwnCallsAndNoOthers) {
    auto const file = TypeParam::Open(this->scratch_.Wide("f").c_str());
    unsigned int n = 0;
    for (auto const& [operation, calls] : TypeParam::Operations()) {
        Recorder recorder(Recorder::EVERY_CALL);
        operation(*file);
        EXPECT_EQ(recorder.Names(), calls) << "operation " << n;
        ++n;
    }
}

TYPED_TEST(FileObjectCostTest, AFileObjectItsLockerAndItsEntryTakeHalfAKilobyteAtMost) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::WorkingDirectory const directory(this->scratch_.Path());
    Allocations allocations;
    auto const file = TypeParam::Open(L"f"); // hardly any bytes for the path
    allocations.Stop();
    EXPECT_GE(allocations.GetCount(), 3U);
    EXPECT_LE(allocations.GetBytes(), 512U);
}

} // namespace
