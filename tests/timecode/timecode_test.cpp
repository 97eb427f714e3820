#include <gxftypes/timecode/timecode.h>

#include <bit>

#include <gtest/gtest.h>
#include <testing/bytes.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

static_assert(sizeof(Timecode) == 4);

Timecode timecode(unsigned hours, unsigned minutes, unsigned seconds, unsigned frames,
                  bool drop = false) {
    Timecode result;
    result.hours = hours & 0xF;
    result.minutes = minutes & 0xFF;
    result.seconds = seconds & 0xFF;
    result.frames = frames & 0xFF;
    result.dropFrame = drop ? 1 : 0;
    result.invalid = 0;
    return result;
}

std::string text(Timecode const& value) {
    FormatStr result(128U);
    value.toString(result);
    return result.get();
}

Timecode decoded(Bytes bytes) {
    GxfBuffer buffer = bytes.filledBuffer();
    Timecode result;
    EXPECT_TRUE(result.decode(buffer, 4));
    EXPECT_EQ(buffer.beginOffset(), 4U);
    return result;
}

Bytes encoded(Timecode const& value) {
    Bytes room;
    room.fill(4, 0x55);
    GxfBuffer out = room.emptyBuffer();
    EXPECT_TRUE(value.encode(out));
    return Bytes::occupied(out);
}

void expectError(OpResult const& result, int code, char const* function) {
    EXPECT_FALSE(result);
    EXPECT_EQ(result.getCode(), code);
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().function, function);
    EXPECT_STREQ(result.getLocation().file, "timecode.cpp");
    EXPECT_NE(result.getLocation().line, 0U);
}

TEST(Timecode, IsInvalidAndZeroAtFirst) {
    Timecode const value;
    EXPECT_EQ(value.frames, 0U);
    EXPECT_EQ(value.seconds, 0U);
    EXPECT_EQ(value.minutes, 0U);
    EXPECT_EQ(value.hours, 0U);
    EXPECT_EQ(value.dropFrame, 0U);
    EXPECT_EQ(value.reservedFlag, 0U);
    EXPECT_EQ(value.invalid, 1U);
    EXPECT_TRUE(value.isInvalid());
    EXPECT_FALSE(value.isDropFrame());
    EXPECT_EQ(text(value), "inv");
}

/// The seven fields as they lie in the word; its top bit is unused.
std::uint32_t fieldBits(Timecode const& value) {
    return std::bit_cast<std::uint32_t>(value) & 0x7FFFFFFFU;
}

TEST(Timecode, HoldsItsFieldsFromTheLowestBitUp) {
    Timecode value = timecode(4, 0x33, 0x22, 0x11);
    EXPECT_EQ(fieldBits(value), 0x04332211U);
    value.dropFrame = 1;
    EXPECT_EQ(fieldBits(value), 0x14332211U);
    value.reservedFlag = 1;
    EXPECT_EQ(fieldBits(value), 0x34332211U);
    value.invalid = 1;
    EXPECT_EQ(fieldBits(value), 0x74332211U);
}

TEST(Timecode, DecodesAnInvalidOne) {
    Timecode const value = decoded({0x00, 0x00, 0x00, 0x80});
    EXPECT_TRUE(value.isInvalid());
    EXPECT_TRUE(value == Timecode());
}

TEST(Timecode, DecodesAndEncodes) {
    Timecode const value = decoded({0x0A, 0x3B, 0x3B, 0x37});
    EXPECT_EQ(value.hours, 7U);
    EXPECT_EQ(value.minutes, 59U);
    EXPECT_EQ(value.seconds, 59U);
    EXPECT_EQ(value.frames, 10U);
    EXPECT_TRUE(value.isDropFrame());
    EXPECT_FALSE(value.isInvalid());
    EXPECT_EQ(value.reservedFlag, 0U);
    EXPECT_EQ(encoded(value), Bytes({0x0A, 0x3B, 0x3B, 0x27}));
}

TEST(Timecode, EveryLastByteComesBackWithoutBit4) {
    for (unsigned last = 0; last < 256; ++last) {
        Timecode const value = decoded({0xFF, 0xFE, 0xFD, last});
        EXPECT_EQ(value.frames, 0xFFU);
        EXPECT_EQ(value.seconds, 0xFEU);
        EXPECT_EQ(value.minutes, 0xFDU);
        EXPECT_EQ(value.hours, last & 0x0F);
        EXPECT_EQ(value.dropFrame, last >> 5 & 1U);
        EXPECT_EQ(value.reservedFlag, last >> 6 & 1U);
        EXPECT_EQ(value.invalid, last >> 7);
        EXPECT_EQ(encoded(value), Bytes({0xFF, 0xFE, 0xFD, last & 0xEF}));
    }
}

TEST(Timecode, ReadsFourBytesOfMoreThatAreGranted) {
    Bytes bytes{1, 2, 3, 4, 5};
    GxfBuffer buffer = bytes.filledBuffer();
    Timecode value;
    EXPECT_TRUE(value.decode(buffer, 5));
    EXPECT_EQ(buffer.nOccupied(), 1U);
    EXPECT_TRUE(value == timecode(4, 3, 2, 1));
}

TEST(Timecode, FailsToDecodeWhenFewerThanFourAreGranted) {
    for (unsigned size = 0; size < 4; ++size) {
        Bytes bytes{1, 2, 3, 4};
        GxfBuffer buffer = bytes.filledBuffer();
        Timecode value = timecode(1, 1, 1, 1, true);
        MessageCapture const messages;
        expectError(value.decode(buffer, size), 9, "decode");
        EXPECT_EQ(messages.count(MessageKind::Trace), 1U);
        EXPECT_TRUE(messages.texts().empty());
        EXPECT_EQ(buffer.nOccupied(), 4U);
        EXPECT_TRUE(value == timecode(1, 1, 1, 1, true));
    }
}

TEST(Timecode, BytesThatArentThereAreZero) {
    for (unsigned present = 0; present < 4; ++present) {
        Bytes bytes;
        bytes.fill(present, 0x0C);
        GxfBuffer buffer = bytes.filledBuffer();
        Timecode value;
        EXPECT_TRUE(value.decode(buffer, 4));
        EXPECT_TRUE(value ==
                    timecode(0, present > 2 ? 12 : 0, present > 1 ? 12 : 0, present > 0 ? 12 : 0));
        EXPECT_EQ(buffer.beginOffset(), 4U);
    }
}

TEST(Timecode, FailsToEncodeWithoutRoom) {
    for (unsigned size = 0; size < 4; ++size) {
        Bytes room;
        room.fill(size, 0x55);
        GxfBuffer out = room.emptyBuffer();
        expectError(timecode(1, 2, 3, 4).encode(out), 12, "encode");
        EXPECT_EQ(out.nOccupied(), 0U);
        EXPECT_EQ(room, Bytes().fill(size, 0x55));
    }
}

TEST(Timecode, EqualityLooksAtEveryField) {
    Timecode const value = timecode(1, 2, 3, 4);
    EXPECT_TRUE(value == timecode(1, 2, 3, 4));
    EXPECT_FALSE(value == timecode(2, 2, 3, 4));
    EXPECT_FALSE(value == timecode(1, 3, 3, 4));
    EXPECT_FALSE(value == timecode(1, 2, 4, 4));
    EXPECT_FALSE(value == timecode(1, 2, 3, 5));
    EXPECT_FALSE(value == timecode(1, 2, 3, 4, true));
    Timecode other = value;
    other.reservedFlag = 1;
    EXPECT_FALSE(value == other);
    other = value;
    other.invalid = 1;
    EXPECT_FALSE(value == other);
}

TEST(Timecode, InvalidOnesWithDifferentDigitsDiffer) {
    Timecode value;
    value.frames = 1;
    EXPECT_FALSE(value == Timecode());
}

struct Counter {
    Timecode value;
    unsigned rate;
    unsigned long long frames;
};

TEST(Timecode, GetCounter) {
    static Counter const counters[] = {
        {timecode(0, 1, 0, 2), 30, 1802},
        {timecode(0, 1, 0, 2, true), 30, 1800},
        {timecode(1, 0, 0, 0, true), 30, 107892},
        {timecode(1, 0, 0, 0, true), 60, 215784},
        {timecode(0, 10, 0, 0, true), 30, 17982},
        {timecode(0, 10, 0, 0, true), 60, 35964},
        {timecode(0, 9, 59, 29, true), 30, 17981},
        {timecode(0, 9, 59, 29, true), 60, 35962},
        {timecode(15, 59, 59, 29, true), 30, 1726271},
        {timecode(15, 59, 59, 29, true), 60, 3452542},
        {timecode(0, 0, 1, 5), 60, 70},
        {timecode(0, 0, 1, 5, true), 60, 70},
        {timecode(0, 0, 1, 5), 30, 35},
        {timecode(0, 0, 1, 5), 31, 41}, // from 31 hertz on the digits count every second frame
        {timecode(0, 0, 1, 5), 50, 60},
        {timecode(15, 59, 59, 24), 25, 1439999},
        {timecode(15, 59, 59, 24), 50, 2879998},
        {timecode(15, 59, 59, 29), 30, 1727999},
        {timecode(0, 0, 1, 1, true), 25, 0},
        {timecode(1, 1, 1, 1, true), 50, 0},
        {timecode(1, 1, 1, 1, true), 24, 0},
        {timecode(1, 1, 1, 1, true), 29, 0},
        {timecode(1, 1, 1, 1, true), 59, 0},
        {timecode(1, 1, 1, 1, true), 90, 0},
        {timecode(1, 2, 3, 4), 24, 89356},
        {timecode(1, 2, 3, 4), 0, 4},
        // The fields aren't checked.
        {timecode(0, 255, 255, 255), 25, 389130},
        {timecode(0, 255, 255, 255, true), 30, 25 * 17982 + 5 * 1798 + 255 * 30 + 255},
        // The reckoning is done in 32 bits.
        {timecode(0, 1, 0, 0), 0x10000000, 0xC0000000},
        {timecode(0, 0, 2, 3), 0x80000001, 8},
        {timecode(0, 0, 255, 255), 0xFFFFFFFF, 255},
    };
    for (Counter const& row : counters) {
        EXPECT_EQ(row.value.getCounter(row.rate), row.frames)
            << text(row.value) << " at " << row.rate;
    }
}

TEST(Timecode, GetCounterLooksNeitherAtValidityNorAtTheReservedFlag) {
    Timecode value = timecode(0, 0, 1, 2);
    value.invalid = 1;
    value.reservedFlag = 1;
    EXPECT_EQ(value.getCounter(25), 27U);
}

TEST(Timecode, ToString) {
    EXPECT_EQ(text(timecode(1, 2, 3, 4)), "01:02:03;04");
    EXPECT_EQ(text(timecode(1, 2, 3, 4, true)), "01:02:03;04,drop");
    EXPECT_EQ(text(timecode(0, 0, 0, 0)), "00:00:00;00");
    EXPECT_EQ(text(timecode(15, 255, 254, 253)), "15:255:254;253");
    Timecode value = timecode(11, 22, 33, 44);
    value.reservedFlag = 1;
    EXPECT_EQ(text(value), "11:22:33;44");
    value.dropFrame = 1;
    value.invalid = 1;
    EXPECT_EQ(text(value), "inv");
}

TEST(Timecode, ToStringAppendsAndReturnsTheText) {
    FormatStr result("in=");
    EXPECT_EQ(&timecode(1, 2, 3, 4).toString(result), &result);
    EXPECT_EQ(&Timecode().toString(result), &result);
    EXPECT_STREQ(result.get(), "in=01:02:03;04inv");
}

TEST(DropFrame, CountsFramesOf2997Hertz) {
    EXPECT_EQ(DropFrame::framesPerMinute, 60U * 30 - 2);
    EXPECT_EQ(DropFrame::framesPerTenMinutes, 10U * 60 * 30 - 18);
    EXPECT_EQ(DropFrame::framesPerHour, 60U * 60 * 30 - 108);
}

TEST(AuxTimecode, IsInvalidAndZeroAtFirst) {
    AuxTimecode const value;
    EXPECT_TRUE(value.isInvalid());
    EXPECT_FALSE(value.isStriped());
    EXPECT_TRUE(value == Timecode());
    for (unsigned const byte : value.userBytes) {
        EXPECT_EQ(byte, 0U);
    }
}

TEST(AuxTimecode, DecodesEightBytes) {
    Bytes bytes{0x0A, 0x3B, 0x3B, 0x27, 0xC1, 0xC2, 0xC3, 0xC4, 0xEE};
    GxfBuffer buffer = bytes.filledBuffer();
    AuxTimecode value;
    EXPECT_TRUE(value.decode(buffer, 9));
    EXPECT_EQ(Bytes::occupied(buffer), Bytes({0xEE}));
    EXPECT_TRUE(value == timecode(7, 59, 59, 10, true));
    EXPECT_EQ(
        Bytes({value.userBytes[0], value.userBytes[1], value.userBytes[2], value.userBytes[3]}),
        Bytes({0xC1, 0xC2, 0xC3, 0xC4}));
    EXPECT_TRUE(value.isStriped());
}

TEST(AuxTimecode, IsntStripedWhenInvalid) {
    Bytes bytes{0x0A, 0x3B, 0x3B, 0x87, 1, 2, 3, 4};
    GxfBuffer buffer = bytes.filledBuffer();
    AuxTimecode value;
    EXPECT_TRUE(value.decode(buffer, 8));
    EXPECT_FALSE(value.isStriped());
    EXPECT_EQ(value.userBytes[3], 4U);
}

TEST(AuxTimecode, FailsToDecodeWhenFewerThanEightAreGranted) {
    for (unsigned size = 0; size < 8; ++size) {
        Bytes bytes{1, 2, 3, 4, 5, 6, 7, 8};
        GxfBuffer buffer = bytes.filledBuffer();
        AuxTimecode value;
        value.userBytes[0] = 9;
        expectError(value.decode(buffer, size), 9, "decode");
        EXPECT_EQ(buffer.nOccupied(), 8U);
        EXPECT_TRUE(value == Timecode());
        EXPECT_EQ(value.userBytes[0], 9U);
    }
}

TEST(AuxTimecode, BytesThatArentThereAreZero) {
    for (unsigned present = 4; present < 8; ++present) {
        Bytes bytes{1, 2, 3, 4, 0xC1, 0xC2, 0xC3, 0xC4};
        GxfBuffer buffer(bytes.data(), present, GxfBuffer::DataState::filled, MediaAgent(nullptr));
        AuxTimecode value;
        EXPECT_TRUE(value.decode(buffer, 8));
        EXPECT_TRUE(value == timecode(4, 3, 2, 1));
        for (unsigned i = 0; i < 4; ++i) {
            EXPECT_EQ(value.userBytes[i], i + 4 < present ? 0xC1U + i : 0U);
        }
        EXPECT_EQ(buffer.beginOffset(), 8U);
    }
}

} // namespace
