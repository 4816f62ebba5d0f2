#include <Synch/Atomic.h>

#include <gtest/gtest.h>

#include <limits>
#include <thread>
#include <type_traits>
#include <vector>

namespace {

using WSynch::AtomicLong;

TEST(AtomicTest, ACellBeginsWithItsInitialValue) {
    EXPECT_EQ(AtomicLong(0).Get(), 0);
    EXPECT_EQ(AtomicLong(-5).Get(), -5);
}

TEST(AtomicTest, ToSetReturnsThePreviousValue) {
    AtomicLong cell(1);
    EXPECT_EQ(WSynch_AtomicSet(cell, 0x12345678), 1);
    EXPECT_EQ(WSynch_AtomicSet(cell, 3), 0x12345678);
    EXPECT_EQ(cell.Get(), 3);
}

TEST(AtomicTest, ToIncrementAndToDecrementReturnTheNewValue) {
    AtomicLong cell(0);
    EXPECT_EQ(WSynch_AtomicIncrement(cell), 1);
    EXPECT_EQ(WSynch_AtomicIncrement(cell), 2);
    EXPECT_EQ(WSynch_AtomicDecrement(cell), 1);
    EXPECT_EQ(WSynch_AtomicDecrement(cell), 0);
    EXPECT_EQ(WSynch_AtomicDecrement(cell), -1);
    EXPECT_EQ(cell.Get(), -1);
}

TEST(AtomicTest, ACellHoldsAMachineWord) {
    AtomicLong cell(0);
    WSynch_AtomicSet(cell, std::numeric_limits<long>::max());
    EXPECT_EQ(cell.Get(), std::numeric_limits<long>::max());
    EXPECT_EQ(sizeof cell, sizeof(void*));
}

TEST(AtomicTest, ACellNeedsNoInitialiserAndNoDestructor) {
    [[maybe_unused]] static constexpr AtomicLong CONSTANT(7);
    EXPECT_TRUE(std::is_trivially_destructible_v<AtomicLong>);
}

TEST(AtomicTest, NoChangeIsLostBetweenThreads) {
    constexpr int THREADS = 4;
    constexpr int ROUNDS = 10000;
    AtomicLong up(0);
    AtomicLong down(0);
    AtomicLong token(1);
    long tokens = 0; // written by whoever has taken the token
    std::vector<std::thread> threads;
    for (int thread = 0; thread < THREADS; ++thread) {
        threads.emplace_back([&] {
            for (int round = 0; round < ROUNDS; ++round) {
                WSynch_AtomicIncrement(up);
                WSynch_AtomicDecrement(down);
                if (WSynch_AtomicSet(token, 0) == 1) {
                    ++tokens;
                    WSynch_AtomicSet(token, 1);
                }
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(up.Get(), THREADS * ROUNDS);
    EXPECT_EQ(down.Get(), -THREADS * ROUNDS);
    EXPECT_GT(tokens, 0);
}

} // namespace
