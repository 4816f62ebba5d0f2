#include <Synch/Initializer.h>

#include <gtest/gtest.h>

#include <optional>

namespace {

using WSynch::Initializer;

TEST(SynchInitializerTest, TheLiveInitializersAreCounted) {
    EXPECT_EQ(Initializer::GetCount(), 0);
    std::optional<Initializer> first(std::in_place);
    EXPECT_EQ(Initializer::GetCount(), 1);
    {
        Initializer const second;
        EXPECT_EQ(Initializer::GetCount(), 2);
    }
    EXPECT_EQ(Initializer::GetCount(), 1);
    first.reset();
    EXPECT_EQ(Initializer::GetCount(), 0);
}

} // namespace
