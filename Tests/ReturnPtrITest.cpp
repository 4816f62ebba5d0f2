#include <Base/ReturnPtrI.h>

#include <gtest/gtest.h>

#include <type_traits>
#include <utility>

namespace {

struct Shared {
    void Release() const { ++releases; }

    mutable int releases = 0;
};

using Holder = WBase::ReturnPtrI<Shared>;

TEST(ReturnPtrITest, AHolderIsEmptyByDefault) {
    EXPECT_EQ(Holder().Get(), nullptr);
}

TEST(ReturnPtrITest, AHolderReleasesWhatItStillHolds) {
    Shared object;
    {
        Holder const holder(&object);
        EXPECT_EQ(holder.Get(), &object);
        EXPECT_EQ(object.releases, 0);
    }
    EXPECT_EQ(object.releases, 1);
}

TEST(ReturnPtrITest, WhatIsDetachedIsNotReleased) {
    Shared object;
    {
        Holder holder(&object);
        EXPECT_EQ(holder.Detach(), &object);
        EXPECT_EQ(holder.Get(), nullptr);
        EXPECT_EQ(holder.Detach(), nullptr);
    }
    EXPECT_EQ(object.releases, 0);
}

TEST(ReturnPtrITest, AConstHolderHandsItsPointerOverToo) {
    Shared object;
    {
        Holder const holder(&object);
        EXPECT_EQ(holder.Detach(), &object);
        EXPECT_EQ(holder.Get(), nullptr);
    }
    EXPECT_EQ(object.releases, 0);
}

TEST(ReturnPtrITest, AMoveCarriesTheReference) {
    Shared object;
    {
        Holder source(&object);
        Holder const target(std::move(source));
        EXPECT_EQ(source.Get(), nullptr);
        EXPECT_EQ(target.Get(), &object);
    }
    EXPECT_EQ(object.releases, 1);
}

TEST(ReturnPtrITest, AnAssignmentReleasesWhatTheTargetHad) {
    Shared first;
    Shared second;
    Holder source(&second);
    Holder target(&first);
    target = std::move(source);
    EXPECT_EQ(first.releases, 1);
    EXPECT_EQ(source.Get(), nullptr);
    EXPECT_EQ(target.Get(), &second);
    EXPECT_EQ(second.releases, 0);
}

TEST(ReturnPtrITest, AnAssignmentToItselfChangesNothing) {
    Shared object;
    Holder holder(&object);
    Holder& same = holder;
    holder = std::move(same);
    EXPECT_EQ(holder.Get(), &object);
    EXPECT_EQ(object.releases, 0);
}

TEST(ReturnPtrITest, OneReferenceIsNotCopied) {
    EXPECT_FALSE(std::is_copy_constructible_v<Holder> || std::is_copy_assignable_v<Holder>);
    EXPECT_TRUE(std::is_nothrow_move_constructible_v<Holder> && std::is_nothrow_move_assignable_v<Holder>);
}

TEST(ReturnPtrITest, AReferenceIsNotTakenOverUnasked) {
    EXPECT_FALSE((std::is_convertible_v<Shared*, Holder>));
}

TEST(ReturnPtrITest, AHolderIsAsLargeAsAPointer) {
    EXPECT_EQ(sizeof(Holder), sizeof(void*));
}

} // namespace
