#include <Base/ReturnString.h>

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>

namespace {

template <class Character>
using Holder = WBase::BasicReturnString<Character>;

template <class Character>
class ReturnStringTest : public ::testing::Test {
protected:
    using String = std::basic_string<Character>;

    static String Make(std::string_view ascii) { return String(ascii.begin(), ascii.end()); }

    static void ExpectEmpty(Holder<Character> const& holder) {
        EXPECT_EQ(String(holder.c_str()), String());
        EXPECT_EQ(holder.size(), 0U);
    }
};

class CharacterNames {
public:
    template <class Character>
    static std::string GetName(int) {
        return sizeof(Character) == 1 ? "Narrow" : "Wide";
    }
};

using Characters = ::testing::Types<char, wchar_t>;
TYPED_TEST_SUITE(ReturnStringTest, Characters, CharacterNames);

TYPED_TEST(ReturnStringTest, ATextIsCopiedUpToItsEnd) {
    auto text = this->Make("abc");
    Holder<TypeParam> const holder(text.c_str());
    text = this->Make("xyz");
    EXPECT_EQ(holder.c_str(), this->Make("abc"));
    EXPECT_EQ(holder.size(), 3U);
}

TYPED_TEST(ReturnStringTest, TheFirstCharactersAreCopied) {
    auto const text = this->Make("abcdef");
    Holder<TypeParam> const holder(2, text.c_str());
    EXPECT_EQ(holder.c_str(), this->Make("ab"));
    EXPECT_EQ(holder.size(), 2U);
}

TYPED_TEST(ReturnStringTest, NoCharactersMakeTheEmptyString) {
    auto const text = this->Make("abc");
    this->ExpectEmpty(Holder<TypeParam>(0, text.c_str()));
    this->ExpectEmpty(Holder<TypeParam>(this->Make("").c_str()));
}

TYPED_TEST(ReturnStringTest, ANullPointerIsTheEmptyString) {
    this->ExpectEmpty(Holder<TypeParam>(nullptr));
    this->ExpectEmpty(Holder<TypeParam>(5, nullptr));
    this->ExpectEmpty(Holder<TypeParam>(nullptr, 5));
}

TYPED_TEST(ReturnStringTest, AnArrayCanBeTakenOver) {
    std::unique_ptr<TypeParam[]> array(new TypeParam[3]{'a', 'b', '\0'});
    TypeParam const* const address = array.get();
    Holder<TypeParam> const holder(std::move(array), 2);
    EXPECT_EQ(holder.c_str(), address);
    EXPECT_EQ(holder.size(), 2U);
}

TYPED_TEST(ReturnStringTest, AMoveHandsTheStringOver) {
    Holder<TypeParam> source(this->Make("abc").c_str());
    TypeParam const* const address = source.c_str();
    Holder<TypeParam> const target(std::move(source));
    EXPECT_EQ(target.c_str(), address);
    EXPECT_EQ(target.size(), 3U);
    this->ExpectEmpty(source);
}

TYPED_TEST(ReturnStringTest, AnAssignmentHandsTheStringOver) {
    Holder<TypeParam> source(this->Make("abc").c_str());
    Holder<TypeParam> target(this->Make("x").c_str());
    TypeParam const* const address = source.c_str();
    target = std::move(source);
    EXPECT_EQ(target.c_str(), address);
    EXPECT_EQ(target.size(), 3U);
    this->ExpectEmpty(source);
}

TYPED_TEST(ReturnStringTest, CopiesAreNotMade) {
    EXPECT_FALSE(std::is_copy_constructible_v<Holder<TypeParam>> || std::is_copy_assignable_v<Holder<TypeParam>>);
    EXPECT_TRUE(
        std::is_nothrow_move_constructible_v<Holder<TypeParam>> &&
        std::is_nothrow_move_assignable_v<Holder<TypeParam>>);
}

TYPED_TEST(ReturnStringTest, TheHolderSeenAsAViewHasAllCharacters) {
    auto const text = std::basic_string<TypeParam>{'a', '\0', 'b'};
    Holder<TypeParam> const holder(3, text.c_str());
    std::basic_string_view<TypeParam> const view = holder;
    EXPECT_EQ(view, text);
    EXPECT_EQ(view.data(), holder.c_str());
}

TYPED_TEST(ReturnStringTest, AnEmptyHolderSeenAsAViewIsEmpty) {
    std::basic_string_view<TypeParam> const view = Holder<TypeParam>(nullptr);
    EXPECT_TRUE(view.empty());
}

} // namespace
