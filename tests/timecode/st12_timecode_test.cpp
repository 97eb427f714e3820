#include <gxftypes/timecode/st12_timecode.h>

#include <limits>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>
#include <gxftypes/timecode/timecode.h>
#include <testing/bytes.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

Bytes timeBytes(ST12Timecode const& value) {
    return {value.timeBytes[0], value.timeBytes[1], value.timeBytes[2], value.timeBytes[3]};
}

Bytes userBytes(ST12Timecode const& value) {
    return {value.userBytes[0], value.userBytes[1], value.userBytes[2], value.userBytes[3]};
}

std::string text(ST12Timecode const& value, unsigned rate = 25) {
    FormatStr result(128U);
    value.toString(rate, result);
    return result.get();
}

ST12Timecode ofBytes(unsigned frames, unsigned seconds, unsigned minutes, unsigned hours) {
    ST12Timecode value;
    value.timeBytes[0] = static_cast<std::uint8_t>(frames);
    value.timeBytes[1] = static_cast<std::uint8_t>(seconds);
    value.timeBytes[2] = static_cast<std::uint8_t>(minutes);
    value.timeBytes[3] = static_cast<std::uint8_t>(hours);
    return value;
}

TEST(ST12Timecode, IsZeroAtFirst) {
    ST12Timecode const value;
    EXPECT_EQ(timeBytes(value), Bytes({0, 0, 0, 0}));
    EXPECT_EQ(userBytes(value), Bytes({0, 0, 0, 0}));
    EXPECT_TRUE(std::has_virtual_destructor_v<ST12Timecode>);
    EXPECT_EQ(text(value), "00:00:00:00");
}

TEST(ST12Timecode, DecodesTheNibbles) {
    unsigned char const wire[] = {0x1A, 0x2B, 0x3C, 0x4D, 0x5E, 0x6F, 0x70, 0x81};
    ST12Timecode value;
    EXPECT_TRUE(value.decode(wire, 8));
    EXPECT_EQ(timeBytes(value), Bytes({0xBA, 0xDC, 0xFE, 0x10}));
    // The high nibble of the last byte isn't read, that of the one before comes twice.
    EXPECT_EQ(userBytes(value), Bytes({0x21, 0x43, 0x65, 0x77}));
}

TEST(ST12Timecode, EveryBitOfTheWireGoesToItsPlace) {
    for (unsigned byte = 0; byte < 8; ++byte) {
        for (unsigned bit = 0; bit < 8; ++bit) {
            unsigned char wire[8] = {};
            wire[byte] = static_cast<unsigned char>(1U << bit);
            ST12Timecode value;
            ASSERT_TRUE(value.decode(wire, 8));

            Bytes time{0, 0, 0, 0};
            Bytes user{0, 0, 0, 0};
            unsigned const shift = byte % 2 * 4;
            if (bit < 4) {
                time[byte / 2] = static_cast<unsigned char>(1U << bit << shift);
            } else if (byte < 6) {
                user[byte / 2] = static_cast<unsigned char>(1U << (bit - 4) << shift);
            } else if (byte == 6) {
                user[3] = static_cast<unsigned char>(0x11U << (bit - 4));
            }
            EXPECT_EQ(timeBytes(value), time) << byte << ' ' << bit;
            EXPECT_EQ(userBytes(value), user) << byte << ' ' << bit;
        }
    }
}

TEST(ST12Timecode, DoesntDecodeFewerThanEightBytes) {
    unsigned char const wire[] = {1, 2, 3, 4, 5, 6, 7, 8};
    for (unsigned size = 0; size < 8; ++size) {
        ST12Timecode value = ofBytes(0x11, 0x22, 0x33, 0x44);
        value.userBytes[2] = 0x55;
        EXPECT_FALSE(value.decode(wire, size));
        EXPECT_EQ(timeBytes(value), Bytes({0x11, 0x22, 0x33, 0x44}));
        EXPECT_EQ(userBytes(value), Bytes({0, 0, 0x55, 0}));
    }
    ST12Timecode value;
    EXPECT_FALSE(value.decode(nullptr, 0));
    EXPECT_TRUE(value.decode(wire, 9));
}

TEST(ST12Timecode, CopiesAllBytes) {
    unsigned char const wire[] = {0x1A, 0x2B, 0x3C, 0x4D, 0x5E, 0x6F, 0x70, 0x81};
    ST12Timecode source;
    ASSERT_TRUE(source.decode(wire, 8));
    ST12Timecode const copied(source);
    EXPECT_EQ(timeBytes(copied), timeBytes(source));
    EXPECT_EQ(userBytes(copied), userBytes(source));
    ST12Timecode other;
    EXPECT_TRUE(other.set(source));
    EXPECT_EQ(timeBytes(other), Bytes({0xBA, 0xDC, 0xFE, 0x10}));
    EXPECT_EQ(userBytes(other), Bytes({0x21, 0x43, 0x65, 0x77}));
    EXPECT_TRUE(other.set(other));
    EXPECT_EQ(timeBytes(other), Bytes({0xBA, 0xDC, 0xFE, 0x10}));
}

TEST(ST12Timecode, RulesByTheFrameRate) {
    for (unsigned rate = 0; rate < 300; ++rate) {
        EXPECT_EQ(ST12Timecode::useHalfFrameCnt(rate), rate > 30) << rate;
        EXPECT_EQ(ST12Timecode::usePalFormat(rate), rate == 25 || rate == 50) << rate;
        EXPECT_EQ(ST12Timecode::isNtscRate(rate), rate == 30 || rate == 60) << rate;
    }
    EXPECT_TRUE(ST12Timecode::useHalfFrameCnt(0xFFFFFFFFU));
}

TEST(ST12Timecode, TheFieldMarkLiesWhereTheRateSays) {
    for (unsigned const rate : {0U, 1U, 24U, 25U, 26U, 30U, 31U, 50U, 59U, 60U}) {
        bool const isPal = rate == 25 || rate == 50;
        ST12Timecode const inSeconds = ofBytes(0, 0x80, 0, 0);
        ST12Timecode const inHours = ofBytes(0, 0, 0, 0x80);
        ST12Timecode const elsewhere = ofBytes(0xFF, 0x7F, 0xFF, 0x7F);
        EXPECT_EQ(inSeconds.field(rate), !isPal) << rate;
        EXPECT_EQ(inHours.field(rate), isPal) << rate;
        EXPECT_FALSE(elsewhere.field(rate)) << rate;
    }
}

TEST(ST12Timecode, SetFieldSetsTheMarkWhateverTheValue) {
    for (bool const value : {true, false}) {
        ST12Timecode ntsc = ofBytes(0x01, 0x02, 0x03, 0x04);
        ntsc.setField(30, value);
        EXPECT_EQ(timeBytes(ntsc), Bytes({0x01, 0x82, 0x03, 0x04}));
        ntsc.setField(30, value);
        EXPECT_EQ(timeBytes(ntsc), Bytes({0x01, 0x82, 0x03, 0x04}));
        ST12Timecode pal = ofBytes(0x01, 0x02, 0x03, 0x04);
        pal.setField(50, value);
        EXPECT_EQ(timeBytes(pal), Bytes({0x01, 0x02, 0x03, 0x84}));
    }
}

TEST(ST12Timecode, ToString) {
    EXPECT_EQ(text(ofBytes(0x24, 0x59, 0x58, 0x23)), "23:58:59:24");
    EXPECT_EQ(text(ofBytes(0x40, 0, 0, 0)), "00:00:00;00");
    EXPECT_EQ(text(ofBytes(0x69, 0x01, 0x02, 0x03)), "03:02:01;29");
    // Flag bits don't show.
    EXPECT_EQ(text(ofBytes(0x92, 0xB4, 0xD6, 0xD1)), "11:56:34:12");
    EXPECT_EQ(text(ofBytes(0xBF, 0xFF, 0xFF, 0xFF)), "45:85:85:45");
    // Digits above 9.
    EXPECT_EQ(text(ofBytes(0x0A, 0x1B, 0x2C, 0x1D)), "23:32:21:10");
    EXPECT_EQ(text(ofBytes(0x3F, 0x7F, 0x7F, 0x3F)), "45:85:85:45");
}

TEST(ST12Timecode, ToStringDoesntDependOnTheRate) {
    for (unsigned const rate : {0U, 1U, 25U, 30U, 50U, 60U}) {
        EXPECT_EQ(text(ofBytes(0x65, 0x80, 0x00, 0x80), rate), "00:00:00;25");
    }
}

TEST(ST12Timecode, ToStringAppendsAndReturnsTheText) {
    FormatStr result("tc=");
    ST12Timecode const value;
    EXPECT_EQ(&value.toString(25, result), &result);
    EXPECT_STREQ(result.get(), "tc=00:00:00:00");
}

struct Count {
    unsigned long long counter;
    unsigned rate;
    bool drop;
    Bytes time;
};

TEST(ST12Timecode, SetCounter) {
    static Count const counts[] = {
        {0, 25, false, {0, 0, 0, 0}},
        {24, 25, false, {0x24, 0, 0, 0}},
        {25, 25, false, {0, 0x01, 0, 0}},
        {1802, 30, false, {0x02, 0, 0x01, 0}},
        {1799, 30, true, {0x69, 0x59, 0, 0}},
        {1800, 30, true, {0x42, 0, 0x01, 0}},
        {17981, 30, true, {0x69, 0x59, 0x09, 0}},
        {17982, 30, true, {0x40, 0, 0x10, 0}},
        {107892, 30, true, {0x40, 0, 0, 0x01}},
        {70, 60, false, {0x05, 0x01, 0, 0}},
        {71, 60, false, {0x05, 0x81, 0, 0}},
        {3599, 60, true, {0x69, 0xD9, 0, 0}},
        {3600, 60, true, {0x42, 0x00, 0x01, 0}},
        {3601, 60, true, {0x42, 0x80, 0x01, 0}},
        {61, 50, false, {0x05, 0x01, 0, 0x80}},
        {49, 50, false, {0x24, 0, 0, 0x80}},
        {2159999, 25, false, {0x24, 0x59, 0x59, 0x23}},
        {2160000, 25, false, {0, 0, 0, 0}},
        {4319999, 50, false, {0x24, 0x59, 0x59, 0xA3}},
        {5178815, 60, true, {0x69, 0xD9, 0x59, 0x23}},
        {5178816, 60, true, {0x40, 0, 0, 0}},
        // Drop frame at a rate that has none counts as non-drop.
        {1502, 25, true, {0x02, 0, 0x01, 0}},
        {3004, 50, true, {0x02, 0, 0x01, 0}},
        {1440, 24, true, {0, 0, 0x01, 0}},
        // Rates off the table: up to 30 hertz each frame has its digits, above every second one.
        {1463, 24, false, {0x23, 0, 0x01, 0}},
        {30, 31, false, {0x15, 0, 0, 0}},
        {47, 48, false, {0x23, 0x80, 0, 0}},
        {7, 1, false, {0, 0x07, 0, 0}},
        {12345, 0, false, {0, 0, 0, 0}},
        {12345, 0, true, {0, 0, 0, 0}},
    };
    for (Count const& row : counts) {
        ST12Timecode const built(row.counter, row.rate, row.drop);
        EXPECT_EQ(timeBytes(built), row.time) << row.counter << " at " << row.rate;
        EXPECT_EQ(userBytes(built), Bytes({0, 0, 0, 0}));
    }
}

TEST(ST12Timecode, SetCounterReplacesTheTimeAndLeavesTheUserBits) {
    unsigned char const wire[] = {0x1F, 0x2F, 0x3F, 0x4F, 0x5F, 0x6F, 0x7F, 0x8F};
    ST12Timecode value;
    ASSERT_TRUE(value.decode(wire, 8));
    value.setCounter(26, 25, false);
    EXPECT_EQ(timeBytes(value), Bytes({0x01, 0x01, 0, 0}));
    EXPECT_EQ(userBytes(value), Bytes({0x21, 0x43, 0x65, 0x77}));
}

struct Rate {
    char const* name;
    unsigned rate;
    bool drop;
    unsigned long long perDay;
};

void PrintTo(Rate const& rate, std::ostream* out) { *out << rate.name; }

/// A clock that counts frame after frame and leaves numbers out as drop frame does.
class FrameClock {
  public:
    explicit FrameClock(Rate const& rate) : m_rate(rate) {}

    void tick() {
        ++frame;
        if (frame < m_rate.rate) {
            return;
        }
        frame = 0;
        if (++seconds < 60) {
            return;
        }
        seconds = 0;
        if (++minutes == 60) {
            minutes = 0;
            hours = (hours + 1) % 24;
        }
        if (m_rate.drop && minutes % 10 != 0) {
            frame = m_rate.rate == 60 ? 4 : 2;
        }
    }

    unsigned framesPerNumber() const { return m_rate.rate > 30 ? 2 : 1; }
    unsigned number() const { return frame / framesPerNumber(); }
    bool isSecondField() const { return frame % framesPerNumber() == 1; }
    bool isNearMinute() const { return seconds == 0 || seconds == 59; }

    void fill(unsigned char (&bytes)[4]) const {
        bool const isPal = m_rate.rate == 25 || m_rate.rate == 50;
        unsigned const mark = isSecondField() ? 0x80 : 0;
        bytes[0] = static_cast<unsigned char>(bcd(number()) | (m_rate.drop ? 0x40U : 0U));
        bytes[1] = static_cast<unsigned char>(bcd(seconds) | (isPal ? 0U : mark));
        bytes[2] = static_cast<unsigned char>(bcd(minutes));
        bytes[3] = static_cast<unsigned char>(bcd(hours) | (isPal ? mark : 0U));
    }

    std::string text() const {
        return digits(hours) + ":" + digits(minutes) + ":" + digits(seconds) +
               (m_rate.drop ? ";" : ":") + digits(number());
    }

    unsigned hours = 0;
    unsigned minutes = 0;
    unsigned seconds = 0;
    unsigned frame = 0;

  private:
    static unsigned bcd(unsigned value) { return value / 10 * 16 + value % 10; }
    static std::string digits(unsigned value) {
        return {static_cast<char>('0' + value / 10), static_cast<char>('0' + value % 10)};
    }

    Rate m_rate;
};

class ST12TimecodeDay : public testing::TestWithParam<Rate> {
  protected:
    Rate rate = GetParam();
};

TEST_P(ST12TimecodeDay, SetCounterCountsEveryFrame) {
    FrameClock clock(rate);
    ST12Timecode value;
    unsigned char expected[4];
    for (unsigned long long counter = 0; counter < rate.perDay; ++counter, clock.tick()) {
        value.setCounter(counter, rate.rate, rate.drop);
        clock.fill(expected);
        if (!std::equal(expected, expected + 4, value.timeBytes)) {
            FAIL() << counter << ": " << timeBytes(value) << " and not " << clock.text();
        }
    }
    EXPECT_EQ(clock.text(), rate.drop ? "00:00:00;00" : "00:00:00:00");
    EXPECT_EQ(clock.frame, 0U);
}

TEST_P(ST12TimecodeDay, ToStringAndFieldFollowTheClock) {
    FrameClock clock(rate);
    for (unsigned long long counter = 0; counter < rate.perDay; ++counter, clock.tick()) {
        if (!clock.isNearMinute() && counter % 101 != 0) {
            continue;
        }
        ST12Timecode const value(counter, rate.rate, rate.drop);
        ASSERT_EQ(text(value, rate.rate), clock.text());
        ASSERT_EQ(value.field(rate.rate), clock.isSecondField()) << clock.text();
        ASSERT_EQ(value.isDropFrame(), rate.drop);
    }
}

TEST_P(ST12TimecodeDay, GetCounterIsTheInverse) {
    FrameClock clock(rate);
    for (unsigned long long counter = 0; clock.hours < 16; ++counter, clock.tick()) {
        Timecode value;
        value.hours = clock.hours & 0xF;
        value.minutes = clock.minutes & 0xFF;
        value.seconds = clock.seconds & 0xFF;
        value.frames = clock.number() & 0xFF;
        value.dropFrame = rate.drop ? 1 : 0;
        // The field mark, which a Timecode hasn't, tells the second frame of a number.
        unsigned long long const expected = counter - (clock.isSecondField() ? 1 : 0);
        if (value.getCounter(rate.rate) != expected) {
            FAIL() << clock.text() << ": " << value.getCounter(rate.rate) << " and not "
                   << expected;
        }
    }
}

TEST_P(ST12TimecodeDay, WrapsBehind24Hours) {
    constexpr unsigned long long largest = std::numeric_limits<unsigned long long>::max();
    for (unsigned long long const within :
         {0ULL, 1ULL, 2ULL, 3597ULL, 3600ULL, 3601ULL, rate.perDay / 3, rate.perDay - 1}) {
        Bytes const expected = timeBytes(ST12Timecode(within, rate.rate, rate.drop));
        for (unsigned long long const days :
             {1ULL, 2ULL, 1000ULL, 1ULL << 32, largest / rate.perDay - 1}) {
            ST12Timecode const value(days * rate.perDay + within, rate.rate, rate.drop);
            EXPECT_EQ(timeBytes(value), expected) << days << " days and " << within;
        }
    }
    EXPECT_EQ(timeBytes(ST12Timecode(largest, rate.rate, rate.drop)),
              timeBytes(ST12Timecode(largest % rate.perDay, rate.rate, rate.drop)));
}

INSTANTIATE_TEST_SUITE_P(
    Rates, ST12TimecodeDay,
    testing::Values(Rate{"25", 25, false, 2160000}, Rate{"30", 30, false, 2592000},
                    Rate{"30drop", 30, true, 2589408}, Rate{"50", 50, false, 4320000},
                    Rate{"60", 60, false, 5184000}, Rate{"60drop", 60, true, 5178816}),
    [](auto const& rate) { return "Of" + std::string(rate.param.name); });

TEST(PerFrameTimecode, IsInvalidAtFirst) {
    PerFrameTimecode const value;
    EXPECT_FALSE(value.valid);
    EXPECT_EQ(timeBytes(value), Bytes({0, 0, 0, 0}));
    FormatStr result("<");
    EXPECT_EQ(&value.toString(25, result), &result);
    EXPECT_STREQ(result.get(), "<inv");
}

TEST(PerFrameTimecode, OfATimecodeIsValid) {
    ST12Timecode source = ofBytes(0x01, 0x02, 0x03, 0x04);
    source.userBytes[1] = 0x77;
    PerFrameTimecode const value(source);
    EXPECT_TRUE(value.valid);
    EXPECT_EQ(timeBytes(value), Bytes({0x01, 0x02, 0x03, 0x04}));
    EXPECT_EQ(userBytes(value), Bytes({0, 0x77, 0, 0}));
    FormatStr result("<");
    EXPECT_EQ(&value.toString(25, result), &result);
    EXPECT_STREQ(result.get(), "<04:03:02:01");
}

TEST(PerFrameTimecode, AssignmentCopiesBytesAndValidity) {
    ST12Timecode source = ofBytes(0x01, 0x02, 0x03, 0x04);
    source.userBytes[3] = 0x99;
    PerFrameTimecode const valid(source);
    PerFrameTimecode value;
    value = valid;
    EXPECT_TRUE(value.valid);
    EXPECT_EQ(timeBytes(value), Bytes({0x01, 0x02, 0x03, 0x04}));
    EXPECT_EQ(userBytes(value), Bytes({0, 0, 0, 0x99}));
    PerFrameTimecode const& itself = value;
    value = itself;
    EXPECT_TRUE(value.valid);
    EXPECT_EQ(timeBytes(value), Bytes({0x01, 0x02, 0x03, 0x04}));
    value = PerFrameTimecode();
    EXPECT_FALSE(value.valid);
    EXPECT_EQ(timeBytes(value), Bytes({0, 0, 0, 0}));
    EXPECT_EQ(userBytes(value), Bytes({0, 0, 0, 0}));
}

TEST(PerFrameTimecode, ACopyKeepsTheValidity) {
    PerFrameTimecode const invalid;
    PerFrameTimecode const copied(invalid);
    EXPECT_FALSE(copied.valid);
}

TEST(PerFrameTimecode, DecodeMakesItValid) {
    unsigned char const wire[] = {0x02, 0x01, 0x04, 0x03, 0x06, 0x05, 0x08, 0x01};
    PerFrameTimecode value;
    EXPECT_TRUE(value.decode(wire));
    EXPECT_TRUE(value.valid);
    EXPECT_EQ(timeBytes(value), Bytes({0x12, 0x34, 0x56, 0x18}));
}

} // namespace
