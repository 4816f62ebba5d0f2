#include <DataType/StringCollection.h>

#include <Tests/Support/Allocations.h>
#include <Tests/Support/VirtualSlots.h>

#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using WDataType::CreateStringCollection;
using WDataType::StringCollection;

TEST(StringCollectionTest, ANewCollectionIsEmpty) {
    auto const collection = CreateStringCollection();
    EXPECT_EQ(collection->GetCount(), 0U);
    EXPECT_THROW(collection->GetAt(0), std::out_of_range);
}

TEST(StringCollectionTest, StringsAreAppendedAtTheEnd) {
    auto const collection = CreateStringCollection();
    collection->Append(L"b");
    collection->Append(L"");
    collection->Append(L"a\u20AC");
    ASSERT_EQ(collection->GetCount(), 3U);
    EXPECT_STREQ(collection->GetAt(0), L"b");
    EXPECT_STREQ(collection->GetAt(1), L"");
    EXPECT_STREQ(collection->GetAt(2), L"a\u20AC");
    EXPECT_THROW(collection->GetAt(3), std::out_of_range);
}

TEST(StringCollectionTest, TheStringsAreCopies) {
    auto const collection = CreateStringCollection();
    std::wstring text = L"abc";
    collection->Append(text.c_str());
    text = L"xyz";
    EXPECT_STREQ(collection->GetAt(0), L"abc");
}

TEST(StringCollectionTest, ANullPointerIsTheEmptyString) {
    auto const collection = CreateStringCollection();
    collection->Append(nullptr);
    ASSERT_EQ(collection->GetCount(), 1U);
    EXPECT_STREQ(collection->GetAt(0), L"");
}

TEST(StringCollectionTest, AStringStaysWhereItIsWhenOthersFollow) {
    auto const collection = CreateStringCollection();
    collection->Append(L"abc");
    wchar_t const* const first = collection->GetAt(0);
    for (int i = 0; i < 1000; ++i) {
        collection->Append(L"x");
    }
    EXPECT_EQ(collection->GetAt(0), first);
    EXPECT_STREQ(first, L"abc");
}

TEST(StringCollectionTest, AStringMayBeOfAnyLength) {
    auto const collection = CreateStringCollection();
    std::vector<std::wstring> texts;
    for (std::size_t const size : {1000U, 23U, 1024U, 1023U, 5000U, 1U}) {
        texts.emplace_back(size, L'x');
        collection->Append(texts.back().c_str());
    }
    for (unsigned long index = 0; index < texts.size(); ++index) {
        EXPECT_EQ(collection->GetAt(index), texts[index]) << index;
    }
}

TEST(StringCollectionTest, AStringThatFindsNoMemoryIsNotAppended) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    auto const collection = CreateStringCollection();
    std::wstring const text(2000, L'x');
    bool hasFailed = true;
    for (unsigned long n = 1; hasFailed; ++n) {
        TestSupport::Allocations allocations;
        allocations.FailNth(n);
        try {
            collection->Append(text.c_str());
        } catch (std::bad_alloc const&) {
        }
        allocations.Stop();
        hasFailed = allocations.HasFailed();
        EXPECT_EQ(collection->GetCount(), hasFailed ? 0U : 1U) << n;
    }
    EXPECT_EQ(collection->GetAt(0), text);
}

TEST(StringCollectionTest, ToAppendIsTheThirdSlot) {
    EXPECT_EQ(TestSupport::SlotOf(&StringCollection::Append), 2U);
}

TEST(StringCollectionTest, TheSecondSlotFreesTheCollection) {
    SKIP_UNLESS_ALLOCATIONS_ARE_OBSERVED();
    TestSupport::Allocations allocations;
    auto collection = CreateStringCollection();
    collection->Append(L"a text that needs memory of its own");
    TestSupport::CallSlot(collection.release(), TestSupport::SLOT_OF_DELETING_DESTRUCTOR);
    EXPECT_EQ(allocations.ReleasedTexts().size(), allocations.Stop());
}

} // namespace
