#include <gxftypes/support/fixed_point.h>

#include <bit>
#include <cmath>
#include <limits>
#include <random>
#include <vector>

#include <gtest/gtest.h>
#include <testing/bytes.h>

using namespace GxfTypes;

namespace {

using Fixed = FixedPoint<16U>;
using Limits = std::numeric_limits<long long>;
__extension__ using Int128 = __int128;

static_assert(sizeof(Fixed) == 8);

long long word(Fixed const& value) { return std::bit_cast<long long>(value); }
Fixed ofWord(long long value) { return {value, alreadyFixed}; }

constexpr long long one = 65536;

TEST(FixedPoint, OfAnInteger) {
    EXPECT_EQ(word(Fixed(0)), 0);
    EXPECT_EQ(word(Fixed(1)), 65536);
    EXPECT_EQ(word(Fixed(-1)), -65536);
    EXPECT_EQ(word(Fixed(2147483647)), 140737488289792);
    EXPECT_EQ(word(Fixed(std::numeric_limits<int>::min())), -140737488355328);
}

TEST(FixedPoint, OfADoubleIsTruncated) {
    EXPECT_EQ(word(Fixed(2.5)), 163840);
    EXPECT_EQ(word(Fixed(-2.5)), -163840);
    EXPECT_EQ(word(Fixed(0.99999)), 65535); // 65535.34
    EXPECT_EQ(word(Fixed(-0.99999)), -65535);
    EXPECT_EQ(word(Fixed(1.0 / 65536)), 1);
    EXPECT_EQ(word(Fixed(0.99 / 65536)), 0);
    EXPECT_EQ(word(Fixed(-0.99 / 65536)), 0);
    EXPECT_EQ(word(Fixed(59.94)), 3928227); // 3928227.84
    EXPECT_EQ(word(Fixed(3000000000.0)), 196608000000000);
}

TEST(FixedPoint, OfADoubleThatDoesntFitIsTheLowestNumber) {
    for (double const value : {140737488355328.0, 1e300, -1e300, std::nan(""),
                               std::numeric_limits<double>::infinity()}) {
        EXPECT_EQ(word(Fixed(value)), Limits::min()) << value;
    }
    EXPECT_EQ(word(Fixed(-140737488355328.0)), Limits::min()); // -2^47, which fits
}

TEST(FixedPoint, OfAWordTakesItAsItIs) {
    for (long long const value : {0LL, 1LL, -1LL, Limits::max(), Limits::min()}) {
        EXPECT_EQ(word(ofWord(value)), value);
    }
}

TEST(FixedPoint, Uint32ValueCutsTheFractionOff) {
    EXPECT_EQ(Fixed(7).uint32Value(), 7U);
    EXPECT_EQ(ofWord(8 * one - 1).uint32Value(), 7U);
    EXPECT_EQ(Fixed(3000000000.0).uint32Value(), 3000000000U);
    EXPECT_EQ(Fixed(-1).uint32Value(), 0xFFFFFFFFU);
    EXPECT_EQ(ofWord(-1).uint32Value(), 0xFFFFFFFFU);
    EXPECT_EQ(ofWord(0x7654FFFFFFFFABCD).uint32Value(), 0xFFFFFFFFU);
    EXPECT_EQ(ofWord(0x7654123456789ABC).uint32Value(), 0x12345678U);
}

TEST(FixedPoint, FractionMask) { EXPECT_EQ(Fixed::fractionMask(), 65535U); }

TEST(FixedPoint, MultipliesAndDividesTheRatesOfTracks) {
    EXPECT_EQ((Fixed(3) * Fixed(2.5)).uint32Value(), 7U);
    EXPECT_EQ(word(Fixed(30000) / Fixed(1001)), 1964115);
    EXPECT_EQ(word(30000 / Fixed(1001)), 1964115);
    EXPECT_EQ((960000 * (30000 / Fixed(1001))).uint32Value(), 28771215U);
    EXPECT_EQ((1920000 * (30000 / Fixed(1001))).uint32Value(), 57542431U);
    EXPECT_EQ((3840000 * (60000 / Fixed(1001))).uint32Value(), 230169785U);
    EXPECT_EQ((Fixed(3840000) * (30000 / Fixed(1001))).uint32Value(), 115084863U);
}

TEST(FixedPoint, AnIntegerInFrontIsConverted) {
    EXPECT_EQ(word(3 * Fixed(0.5)), 98304);
    EXPECT_EQ(word(-3 * Fixed(0.5)), -98304);
    EXPECT_EQ(word(1 / Fixed(3)), 21845);
    EXPECT_EQ(word(-1 / Fixed(3)), -21845); // truncated, not rounded down
}

TEST(FixedPoint, AProductRoundsDownAndAQuotientTowardsZero) {
    EXPECT_EQ(word(ofWord(3) * ofWord(32768)), 1);   // 1.5
    EXPECT_EQ(word(ofWord(-3) * ofWord(32768)), -2); // -1.5
    EXPECT_EQ(word(ofWord(3) / ofWord(2 * one)), 1);
    EXPECT_EQ(word(ofWord(-3) / ofWord(2 * one)), -1);
    EXPECT_EQ(word(ofWord(3) / ofWord(-2 * one)), -1);
}

/// Words around every power of two, of both signs, and random ones of every length.
std::vector<long long> interestingWords() {
    std::vector<long long> words = {0, Limits::min(), Limits::max()};
    for (int bit = 0; bit < 63; ++bit) {
        for (long long const delta : {-1, 0, 1}) {
            words.push_back((1LL << bit) + delta);
            words.push_back(-(1LL << bit) - delta);
        }
    }
    std::mt19937_64 random(2);
    for (unsigned bits = 1; bits <= 64; ++bits) {
        for (int i = 0; i < 4; ++i) {
            words.push_back(static_cast<long long>(random()) >> (64 - bits));
        }
    }
    return words;
}

TEST(FixedPoint, ProductsMatchWideArithmetic) {
    std::vector<long long> const words = interestingWords();
    for (long long const a : words) {
        for (long long const b : words) {
            auto const expected = static_cast<long long>((Int128{a} * b) >> 16);
            ASSERT_EQ(word(ofWord(a) * ofWord(b)), expected) << a << " * " << b;
        }
    }
}

TEST(FixedPoint, QuotientsMatchWideArithmetic) {
    constexpr Int128 wide = Int128{1} << 63;
    std::vector<long long> const words = interestingWords();
    unsigned compared[2] = {};
    for (long long const a : words) {
        for (long long const b : words) {
            if (b == 0) {
                continue;
            }
            Int128 const shiftedRest = Int128{a} % b * one;
            bool const isLarge = a <= -(1LL << 47) || a >= 1LL << 47;
            if (isLarge && (shiftedRest < -wide || shiftedRest >= wide)) {
                continue; // wraps, see the next test
            }
            auto const expected = static_cast<long long>(Int128{a} * one / b);
            ASSERT_EQ(word(ofWord(a) / ofWord(b)), expected) << a << " / " << b;
            ++compared[isLarge ? 1 : 0];
        }
    }
    EXPECT_GT(compared[0], 100000U);
    EXPECT_GT(compared[1], 50000U);
}

TEST(FixedPoint, ARestTooLargeToShiftWraps) {
    // The rest 2^47 becomes 2^63 when it is shifted, which wraps to -2^63.
    EXPECT_EQ(word(ofWord(1LL << 47) / ofWord(1LL << 48)), -(1LL << 15));
    // One less, and the dividend can be shifted as it is.
    EXPECT_EQ(word(ofWord((1LL << 47) - 1) / ofWord(1LL << 48)), (1LL << 15) - 1);
    // The rest 2^48 becomes 2^64 and wraps to 0.
    EXPECT_EQ(word(ofWord(5LL << 48) / ofWord(1LL << 49)), 2 * one);
}

TEST(FixedPoint, AZeroDivisorGivesZero) {
    for (long long const a : {0LL, 1LL, -1LL, 1LL << 47, Limits::min(), Limits::max()}) {
        EXPECT_EQ(word(ofWord(a) / ofWord(0)), 0) << a;
    }
}

TEST(FixedPoint, TheLowestNumberOverMinusTheSmallestWraps) {
    EXPECT_EQ(word(ofWord(Limits::min()) / ofWord(-1)), 0); // 2^79
    EXPECT_EQ(word(ofWord(Limits::min()) / ofWord(-one)), Limits::min());
}

TEST(FixedPoint, TruncateToInt64) {
    EXPECT_EQ(truncateToInt64(0.0), 0);
    EXPECT_EQ(truncateToInt64(1.99), 1);
    EXPECT_EQ(truncateToInt64(-1.99), -1);
    EXPECT_EQ(truncateToInt64(9223372036854774784.0), 9223372036854774784);
    EXPECT_EQ(truncateToInt64(-9223372036854775808.0), Limits::min());
    EXPECT_EQ(truncateToInt64(9223372036854775808.0), Limits::min());
    EXPECT_EQ(truncateToInt64(-9223372036854777856.0), Limits::min());
    EXPECT_EQ(truncateToInt64(std::nan("")), Limits::min());
}

} // namespace
