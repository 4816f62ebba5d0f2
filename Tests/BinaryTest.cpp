#include <DataType/Binary.h>

#include <Tests/Support/Allocations.h>
#include <Tests/Support/VirtualSlots.h>

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <string_view>

namespace {

using TestSupport::SlotOf;
using WDataType::Binary;
using WDataType::CreateBinary;

std::unique_ptr<Binary> MakeBuffer(std::string_view bytes) {
    auto buffer = CreateBinary(bytes.size(), nullptr);
    std::memcpy(buffer->GetBuffer(), bytes.data(), bytes.size());
    return buffer;
}

std::string BytesOf(Binary const& buffer) {
    return std::string(buffer.GetBuffer(), buffer.GetSize());
}

TEST(BinaryTest, ANewBufferHasItsFullSizeOfZeroBytes) {
    auto const buffer = CreateBinary(16384, nullptr);
    EXPECT_EQ(buffer->GetSize(), 16384U);
    EXPECT_EQ(BytesOf(*buffer), std::string(16384, '\0'));
}

TEST(BinaryTest, ANewBufferHasNoBytesOfAFormerOne) {
    CreateBinary(1000, nullptr)->Fill('x'); // its memory is the first to be given again
    EXPECT_EQ(BytesOf(*CreateBinary(1000, nullptr)), std::string(1000, '\0'));
}

TEST(BinaryTest, ABufferMayHaveNoBytes) {
    auto const buffer = CreateBinary(0, nullptr);
    EXPECT_EQ(buffer->GetSize(), 0U);
    EXPECT_TRUE(buffer->IsEmpty());
    buffer->Fill('x');
    buffer->RestoreFullSize();
    EXPECT_EQ(buffer->GetSize(), 0U);
}

TEST(BinaryTest, BytesAreDroppedFromTheEnd) {
    auto const buffer = MakeBuffer("abcdef");
    buffer->ReduceSize(2);
    EXPECT_EQ(BytesOf(*buffer), "abcd");
    buffer->ReduceSize(1);
    EXPECT_EQ(BytesOf(*buffer), "abc");
    buffer->ReduceSize(0);
    EXPECT_EQ(BytesOf(*buffer), "abc");
    buffer->ReduceSize(3);
    EXPECT_EQ(BytesOf(*buffer), "");
}

TEST(BinaryTest, TheFullSizeComesBackWithItsBytes) {
    auto const buffer = MakeBuffer("abcdef");
    buffer->ReduceSize(6);
    buffer->RestoreFullSize();
    EXPECT_EQ(BytesOf(*buffer), "abcdef");
    buffer->RestoreFullSize();
    EXPECT_EQ(BytesOf(*buffer), "abcdef");
}

TEST(BinaryTest, NothingChangesTheAllocation) {
    auto const buffer = MakeBuffer("abcdef");
    char const* const address = buffer->GetBuffer();
    TestSupport::Allocations allocations;
    buffer->ReduceSize(2);
    buffer->Fill('x');
    buffer->SetSize(1);
    buffer->Clear();
    buffer->RestoreFullSize();
    EXPECT_EQ(allocations.Stop(), 0U);
    EXPECT_EQ(buffer->GetBuffer(), address);
}

TEST(BinaryTest, ABufferWithoutBytesIsEmpty) {
    auto const buffer = MakeBuffer("ab");
    EXPECT_FALSE(buffer->IsEmpty());
    buffer->ReduceSize(1);
    EXPECT_FALSE(buffer->IsEmpty());
    buffer->ReduceSize(1);
    EXPECT_TRUE(buffer->IsEmpty());
}

TEST(BinaryTest, ToClearIsToDropAllBytes) {
    auto const buffer = MakeBuffer("abc");
    buffer->Clear();
    EXPECT_EQ(buffer->GetSize(), 0U);
    buffer->RestoreFullSize();
    EXPECT_EQ(BytesOf(*buffer), "abc");
}

TEST(BinaryTest, ToFillSetsTheBytesOfTheCurrentSize) {
    auto const buffer = MakeBuffer("abcdef");
    buffer->ReduceSize(4);
    buffer->Fill('x');
    buffer->RestoreFullSize();
    EXPECT_EQ(BytesOf(*buffer), "xxcdef");
}

TEST(BinaryTest, TheSizeCanBeSetUpToTheFullSize) {
    auto const buffer = MakeBuffer("abcdef");
    buffer->SetSize(2);
    EXPECT_EQ(BytesOf(*buffer), "ab");
    buffer->SetSize(4);
    EXPECT_EQ(BytesOf(*buffer), "abcd");
    buffer->SetSize(0);
    EXPECT_EQ(BytesOf(*buffer), "");
    buffer->SetSize(7);
    EXPECT_EQ(BytesOf(*buffer), "abcdef");
}

TEST(BinaryTest, MemoryThatIsNotToBeHadIsReported) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    for (unsigned long n = 1; n <= 2; ++n) {
        TestSupport::Allocations allocations;
        allocations.FailNth(n);
        EXPECT_THROW(CreateBinary(10, nullptr), std::bad_alloc);
    }
}

TEST(BinaryTest, TheOperationsHaveTheirSlots) {
    EXPECT_EQ(SlotOf(&Binary::GetSize), 5U);
    EXPECT_EQ(SlotOf(&Binary::GetBuffer), 6U);
    EXPECT_EQ(SlotOf(&Binary::ReduceSize), 7U);
    EXPECT_EQ(SlotOf(&Binary::RestoreFullSize), 9U);
}

TEST(BinaryTest, TheSecondSlotFreesTheBuffer) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::Allocations allocations;
    TestSupport::CallSlot(CreateBinary(10, nullptr).release(), TestSupport::SLOT_OF_DELETING_DESTRUCTOR);
    EXPECT_EQ(allocations.ReleasedTexts().size(), allocations.Stop());
}

} // namespace
