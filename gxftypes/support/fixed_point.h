#pragma once

#include <bit>
#include <cstdint>
#include <limits>

namespace Zorvan {

/// The double cut to a whole number; the lowest 64-bit number for what doesn't fit, NaN included.
inline long long truncateToInt64(double value) {
    constexpr double limit = 9223372036854775808.0; // 2^63
    if (!(value >= -limit && value < limit)) {
        return std::numeric_limits<long long>::min();
    }
    return static_cast<long long>(value);
}

/// Says that a word is a fixed-point number already.
enum AlreadyFixed { alreadyFixed };

/// A signed fixed-point number in a 64-bit word with `Fraction` bits behind the point. Every
/// overflow wraps, and a division by zero gives zero.
template <unsigned Fraction> class FixedPoint {
  public:
    FixedPoint(int value) : m_word(shiftUp(value)) {}
    FixedPoint(double value) : m_word(truncateToInt64(value * (1LL << Fraction))) {}
    FixedPoint(long long word, AlreadyFixed) : m_word(word) {}

    /// The integer part, cut to 32 bits.
    std::uint32_t uint32Value() const {
        return static_cast<std::uint32_t>(static_cast<std::uint64_t>(m_word) >> Fraction);
    }

    static constexpr unsigned fractionMask() { return (1U << Fraction) - 1; }

    FixedPoint operator/(FixedPoint const& divisor) const {
        std::int64_t const a = m_word;
        std::int64_t const b = divisor.m_word;
        if (magnitude(a) < (std::uint64_t{1} << (63 - Fraction))) {
            return {quotient(shiftUp(a), b), alreadyFixed};
        }
        std::int64_t const whole = quotient(a, b);
        std::int64_t const rest = wrap(bits(a) - bits(b) * bits(whole));
        return {wrap(bits(shiftUp(whole)) + bits(quotient(shiftUp(rest), b))), alreadyFixed};
    }

    FixedPoint operator*(FixedPoint const& factor) const {
        std::int64_t const a = m_word;
        std::int64_t const b = factor.m_word;
        // A negative operand has its top bit set and so counts as large.
        if ((bits(a) | bits(b)) < (std::uint64_t{1} << 31)) {
            return {(a * b) >> Fraction, alreadyFixed};
        }
        std::uint64_t const aFraction = bits(a) & fractionMask();
        std::uint64_t const bFraction = bits(b) & fractionMask();
        return {wrap(bits(b) * bits(a >> Fraction) + aFraction * bits(b >> Fraction) +
                     ((aFraction * bFraction) >> Fraction)),
                alreadyFixed};
    }

  private:
    static std::uint64_t bits(std::int64_t value) { return static_cast<std::uint64_t>(value); }
    static std::int64_t wrap(std::uint64_t value) { return static_cast<std::int64_t>(value); }
    static std::int64_t shiftUp(std::int64_t value) { return wrap(bits(value) << Fraction); }
    static std::uint64_t magnitude(std::int64_t value) {
        return value < 0 ? 0 - bits(value) : bits(value);
    }

    static std::int64_t quotient(std::int64_t a, std::int64_t b) {
        if (b == 0) {
            return 0;
        }
        return b == -1 ? wrap(0 - bits(a)) : a / b;
    }

    std::int64_t m_word;
};

template <unsigned Fraction> FixedPoint<Fraction> operator/(int a, FixedPoint<Fraction> const& b) {
    return FixedPoint<Fraction>(a) / b;
}

template <unsigned Fraction> FixedPoint<Fraction> operator*(int a, FixedPoint<Fraction> const& b) {
    return FixedPoint<Fraction>(a) * b;
}

} // namespace Zorvan
