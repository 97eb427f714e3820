#include <gxftypes/support/bitset.h>

#include <random>

#include <gtest/gtest.h>
#include <testing/bytes.h>

using namespace GxfTypes;

namespace {

constexpr unsigned largestSize = 70; // past two words

void setAll(Bitset& bits, unsigned size) {
    for (unsigned i = 0; i < size; ++i) {
        bits.set(i);
    }
}

class BitsetOfSize : public testing::TestWithParam<unsigned> {
  protected:
    unsigned size = GetParam();
    Bitset bits{static_cast<int>(GetParam()), false};
};

TEST_P(BitsetOfSize, StartsWithAllBitsClear) {
    for (unsigned i = 0; i < size; ++i) {
        EXPECT_FALSE(bits.get(i)) << i;
    }
    EXPECT_EQ(bits.findFirstClear(), 0U);
}

TEST_P(BitsetOfSize, StartsWithAllBitsSetOnDemand) {
    Bitset const full(static_cast<int>(size), true);
    for (unsigned i = 0; i < size; ++i) {
        EXPECT_TRUE(full.get(i)) << i;
    }
    EXPECT_EQ(full.findFirstClear(), size);
}

TEST_P(BitsetOfSize, SetsOneBitAlone) {
    for (unsigned i = 0; i < size; ++i) {
        bits.set(i);
        for (unsigned other = 0; other < size; ++other) {
            ASSERT_EQ(bits.get(other), other == i) << i << ' ' << other;
        }
        bits.clear(i);
        ASSERT_FALSE(bits.get(i));
    }
}

TEST_P(BitsetOfSize, ClearsOneBitAlone) {
    setAll(bits, size);
    for (unsigned i = 0; i < size; ++i) {
        bits.clear(i);
        for (unsigned other = 0; other < size; ++other) {
            ASSERT_EQ(bits.get(other), other != i) << i << ' ' << other;
        }
        ASSERT_EQ(bits.findFirstClear(), i);
        bits.set(i);
    }
}

TEST_P(BitsetOfSize, FindsTheLowestClearBitWhileFilling) {
    for (unsigned i = 0; i < size; ++i) {
        ASSERT_EQ(bits.findFirstClear(), i);
        bits.set(i);
    }
    EXPECT_EQ(bits.findFirstClear(), size);
}

TEST_P(BitsetOfSize, FindsTheLowestOfTwoClearBits) {
    setAll(bits, size);
    for (unsigned low = 0; low < size; ++low) {
        for (unsigned high = low + 1; high < size; ++high) {
            bits.clear(low);
            bits.clear(high);
            ASSERT_EQ(bits.findFirstClear(), low);
            bits.set(low);
            ASSERT_EQ(bits.findFirstClear(), high);
            bits.set(high);
        }
    }
}

TEST_P(BitsetOfSize, ClearAllClearsAll) {
    setAll(bits, size);
    bits.clearAll();
    for (unsigned i = 0; i < size; ++i) {
        EXPECT_FALSE(bits.get(i)) << i;
    }
    EXPECT_EQ(bits.findFirstClear(), 0U);
}

INSTANTIATE_TEST_SUITE_P(Bitset, BitsetOfSize, testing::Range(1U, largestSize + 1));

TEST(Bitset, OfNoBitsHasNoClearOne) {
    Bitset none(0, false);
    EXPECT_EQ(none.findFirstClear(), 0U);
    none.clearAll();
    EXPECT_EQ(none.findFirstClear(), 0U);
}

TEST(Bitset, FullSetsGiveTheirSize) {
    Bitset forty(40, true);
    EXPECT_EQ(forty.findFirstClear(), 40U);
    forty.clear(33);
    EXPECT_EQ(forty.findFirstClear(), 33U);
    EXPECT_EQ(Bitset(32, true).findFirstClear(), 32U);
}

TEST(Bitset, HoldsTheIdentifiersOfUserData) {
    constexpr unsigned size = 65535;
    Bitset ids(size, false);
    setAll(ids, size - 1);
    EXPECT_EQ(ids.findFirstClear(), 65534U);
    ids.set(65534);
    EXPECT_EQ(ids.findFirstClear(), size);
    ids.clear(65534);
    EXPECT_EQ(ids.findFirstClear(), 65534U);
    ids.clear(32768);
    EXPECT_EQ(ids.findFirstClear(), 32768U);
    ids.clearAll();
    EXPECT_EQ(ids.findFirstClear(), 0U);
}

TEST(Bitset, TakesTheIdentifierBehindTheLastBit) {
    Bitset ids(65535, false);
    ids.set(65535);
    EXPECT_TRUE(ids.get(65535));
    EXPECT_EQ(ids.findFirstClear(), 0U);
    setAll(ids, 65535);
    EXPECT_EQ(ids.findFirstClear(), 65535U);
    ids.clear(65535);
    EXPECT_EQ(ids.findFirstClear(), 65535U);
}

TEST(Bitset, FindsTheLowestClearBitOfAWord) {
    EXPECT_EQ(Bitset::findFirstClear(0U), 0U);
    for (unsigned bit = 0; bit < 32; ++bit) {
        unsigned const below = (1U << bit) - 1;
        EXPECT_EQ(Bitset::findFirstClear(~(1U << bit)), bit) << "only that bit is clear";
        EXPECT_EQ(Bitset::findFirstClear(below), bit) << "all from that bit on are clear";
    }
}

TEST(Bitset, FindsTheLowestClearBitOfAnyWord) {
    std::mt19937 random(1);
    for (int i = 0; i < 100000; ++i) {
        // The or of several numbers has few clear bits.
        auto const word = static_cast<unsigned>(random() | random() | random() | random());
        if (word == ~0U) {
            continue;
        }
        unsigned lowest = 0;
        while ((word >> lowest & 1U) != 0) {
            ++lowest;
        }
        ASSERT_EQ(Bitset::findFirstClear(word), lowest) << word;
    }
}

} // namespace
