#include <gtest/gtest.h>

#include <climits>
#include <limits>
#include <thread>
#include <type_traits>

#include <gxftypes/packet/gxf.h>

using namespace GxfTypes;

namespace {

TEST(Atomics, CountAndReturnTheNewValue) {
    zvAtomic_t word = -1;
    EXPECT_EQ(atomicGet32(&word), -1);
    EXPECT_EQ(atomicInc32(&word), 0);
    EXPECT_EQ(atomicInc32(&word), 1);
    EXPECT_EQ(atomicDec32(&word), 0);
    EXPECT_EQ(atomicDec32(&word), -1);
    EXPECT_EQ(word, -1);
}

TEST(Atomics, TemplatesSelectTheFormsForInt) {
    int word = 41;
    EXPECT_EQ(atomicInc<int>(&word), 42);
    EXPECT_EQ(atomicGet<int>(&word), 42);
    EXPECT_EQ(atomicDec<int>(&word), 41);
    EXPECT_EQ(__Atomics<sizeof(int)>::inc(&word), 42);
    EXPECT_EQ(__Atomics<sizeof(int)>::dec(&word), 41);
    EXPECT_EQ(__Atomics<sizeof(int)>::get(&word), 41);
}

TEST(Atomics, WrapAroundWithoutUndefinedBehaviour) {
    zvAtomic_t word = INT_MAX;
    EXPECT_EQ(atomicInc32(&word), INT_MIN);
    EXPECT_EQ(atomicDec32(&word), INT_MAX);
    AtomicCounter counter(INT_MAX);
    EXPECT_EQ(counter++, INT_MAX);
    EXPECT_EQ(counter.getCount(), INT_MIN);
}

TEST(AtomicCounter, IsOneSignedWord) {
    EXPECT_EQ(sizeof(AtomicCounter), 4U);
    EXPECT_FALSE(std::is_copy_constructible_v<AtomicCounter>);
}

TEST(AtomicCounter, PrefixGivesTheNewValueAndPostfixTheOld) {
    AtomicCounter counter(-2);
    EXPECT_EQ(counter.getCount(), -2);
    EXPECT_EQ(++counter, -1);
    EXPECT_EQ(counter++, -1);
    EXPECT_EQ(counter.getCount(), 0);
    EXPECT_EQ(--counter, -1);
    EXPECT_EQ(counter.getCount(), -1);
}

TEST(AtomicCounter, LosesNothingBetweenTwoThreads) {
    constexpr int rounds = 50000;
    AtomicCounter counter(7);
    auto const count = [&counter] {
        for (int i = 0; i < rounds; ++i) {
            ++counter;
            counter++;
            --counter;
        }
    };
    std::thread other(count);
    count();
    other.join();
    EXPECT_EQ(counter.getCount(), 7 + 2 * rounds);
}

TEST(AtomicCounter, CountsReferences) {
    AtomicCounter counter(0);
    EXPECT_FALSE(counter.isOnlyReference());
    EXPECT_EQ(counter.takeFirstReference(), 1);
    EXPECT_EQ(counter.getCount(), 1);
    EXPECT_TRUE(counter.isOnlyReference());
    EXPECT_EQ(++counter, 2);
    EXPECT_FALSE(counter.isOnlyReference());
    EXPECT_EQ(counter.dropReference(), 1);
    EXPECT_TRUE(counter.isOnlyReference());
    EXPECT_EQ(counter.dropReference(), 0);
    EXPECT_EQ(counter.getCount(), 0);
}

TEST(AtomicCounter, CountsReferencesThatAreWrong) {
    AtomicCounter counter(0);
    EXPECT_EQ(counter.dropReference(), -1);
    EXPECT_EQ(counter.dropReference(), -2);
    EXPECT_EQ(counter.takeFirstReference(), -1);
    AtomicCounter most(std::numeric_limits<int>::max());
    EXPECT_EQ(most.takeFirstReference(), std::numeric_limits<int>::min());
}

TEST(AtomicCounter, TheLastOfTwoThreadsSeesWhatTheOtherDid) {
    for (int round = 0; round < 2000; ++round) {
        AtomicCounter counter(2);
        int mine = 0;
        int others = 0;
        int seen = 0;
        auto const drop = [&](int& own) {
            own = 1;
            if (counter.dropReference() == 0) {
                seen = mine + others;
            }
        };
        std::thread other([&] { drop(others); });
        drop(mine);
        other.join();
        ASSERT_EQ(seen, 2);
        ASSERT_EQ(counter.getCount(), 0);
    }
}

} // namespace
