#include <gxftypes/support/bit_chunk_parser.h>

#include <random>
#include <vector>

#include <gtest/gtest.h>
#include <testing/bytes.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

constexpr unsigned untouched = 0xDEADBEEF;

unsigned take(BitChunkParser& parser, unsigned count) {
    unsigned value = untouched;
    EXPECT_TRUE(parser.getBits(count, value));
    return value;
}

bool hasBits(BitChunkParser& parser, unsigned count) {
    unsigned value = untouched;
    bool const there = parser.getBits(count, value);
    if (!there) {
        EXPECT_EQ(value, untouched);
    }
    return there;
}

TEST(BitChunkParser, HasNothingAtFirst) {
    BitChunkParser parser;
    EXPECT_FALSE(hasBits(parser, 1));
    parser.alignToByte();
    EXPECT_FALSE(hasBits(parser, 32));
    EXPECT_EQ(take(parser, 0), 0U);
}

TEST(BitChunkParser, ReadsTheHighestBitFirst) {
    Bytes bytes{0xA5, 0x3C, 0xF0, 0x0F, 0x80};
    initSgl_t list(bytes.data(), 5);
    BitChunkParser parser;
    parser.setList(1, &list);
    EXPECT_EQ(take(parser, 1), 1U);
    EXPECT_EQ(take(parser, 3), 2U);
    EXPECT_EQ(take(parser, 4), 5U);
    EXPECT_EQ(take(parser, 12), 0x3CFU);
    EXPECT_EQ(take(parser, 2), 0U);
    EXPECT_EQ(take(parser, 10), 0x0FU); // 00 and 00001111
    EXPECT_EQ(take(parser, 1), 1U);
    EXPECT_EQ(take(parser, 7), 0U);
    EXPECT_FALSE(hasBits(parser, 1));
}

TEST(BitChunkParser, ReadsWholeWordsAtAnyBit) {
    Bytes bytes{0x01, 0x23, 0x45, 0x67, 0x89, 0xAB, 0xCD, 0xEF};
    initSgl_t list(bytes.data(), 8);
    for (unsigned lead = 0; lead < 32; ++lead) {
        BitChunkParser parser;
        parser.setList(1, &list);
        take(parser, lead);
        auto const expected = static_cast<unsigned>(0x0123456789ABCDEFULL >> (32 - lead));
        EXPECT_EQ(take(parser, 32), expected) << lead;
    }
}

TEST(BitChunkParser, ConsumesNothingWhenTooFewAreLeft) {
    Bytes bytes{0x12, 0x34};
    initSgl_t list(bytes.data(), 2);
    BitChunkParser parser;
    parser.setList(1, &list);
    EXPECT_FALSE(hasBits(parser, 17));
    EXPECT_FALSE(hasBits(parser, 32));
    EXPECT_EQ(take(parser, 3), 0U);
    EXPECT_FALSE(hasBits(parser, 14));
    EXPECT_EQ(take(parser, 13), 0x1234U);
    EXPECT_FALSE(hasBits(parser, 1));
    EXPECT_EQ(take(parser, 0), 0U);
}

TEST(BitChunkParser, AlignsToTheNextByte) {
    Bytes bytes{0x80, 0x40, 0x20};
    initSgl_t list(bytes.data(), 3);
    for (unsigned lead = 1; lead <= 7; ++lead) {
        BitChunkParser parser;
        parser.setList(1, &list);
        parser.alignToByte();
        take(parser, lead);
        parser.alignToByte();
        parser.alignToByte();
        EXPECT_EQ(take(parser, 8), 0x40U) << lead;
        parser.alignToByte();
        EXPECT_EQ(take(parser, 8), 0x20U) << lead;
    }
}

TEST(BitChunkParser, AligningMayReachTheEnd) {
    Bytes bytes{0xFF};
    initSgl_t list(bytes.data(), 1);
    BitChunkParser parser;
    parser.setList(1, &list);
    take(parser, 1);
    parser.alignToByte();
    EXPECT_FALSE(hasBits(parser, 1));
    parser.alignToByte();
    EXPECT_FALSE(hasBits(parser, 1));
}

TEST(BitChunkParser, SetListStartsAnew) {
    Bytes bytes{0x12, 0x34};
    initSgl_t list(bytes.data(), 2);
    BitChunkParser parser;
    parser.setList(1, &list);
    take(parser, 11);
    parser.setList(1, &list);
    EXPECT_EQ(take(parser, 16), 0x1234U);
    parser.setList(1, &list);
    parser.setList(0, nullptr);
    EXPECT_FALSE(hasBits(parser, 1));
}

TEST(BitChunkParser, PassesEmptyEntries) {
    Bytes bytes{0x12, 0x34};
    simpleSgl_s list[6];
    list[1] = initSgl_t(bytes.data(), 1);
    list[2] = initSgl_t(bytes.data(), 0);
    list[4] = initSgl_t(bytes.data() + 1, 1);
    BitChunkParser parser;
    parser.setList(6, list);
    EXPECT_EQ(take(parser, 16), 0x1234U);
    EXPECT_FALSE(hasBits(parser, 1));

    simpleSgl_s empty[3];
    parser.setList(3, empty);
    EXPECT_FALSE(hasBits(parser, 1));
    parser.alignToByte();
    EXPECT_FALSE(hasBits(parser, 1));
}

TEST(BitChunkParser, TakesOnlyTheEntriesThatAreCounted) {
    Bytes bytes{0x12, 0x34};
    simpleSgl_s list[2];
    list[0] = initSgl_t(bytes.data(), 1);
    list[1] = initSgl_t(bytes.data() + 1, 1);
    BitChunkParser parser;
    parser.setList(1, list);
    EXPECT_EQ(take(parser, 8), 0x12U);
    EXPECT_FALSE(hasBits(parser, 1));
}

TEST(BitChunkParser, ReadsAnyCountsAcrossAnyEntries) {
    std::mt19937 random(3);
    for (int run = 0; run < 300; ++run) {
        Bytes bytes;
        std::vector<bool> bits;
        for (unsigned i = 0; i < 40; ++i) {
            auto const byte = static_cast<unsigned>(random() & 0xFF);
            bytes.u8(byte);
            for (unsigned bit = 8; bit-- > 0;) {
                bits.push_back((byte >> bit & 1U) != 0);
            }
        }
        std::vector<simpleSgl_s> list;
        for (unsigned from = 0; from < bytes.size();) {
            auto const left = static_cast<unsigned>(bytes.size()) - from;
            unsigned const length = std::min(left, static_cast<unsigned>(random() % 6));
            list.push_back(initSgl_t(bytes.data() + from, length));
            from += length;
        }
        BitChunkParser parser;
        parser.setList(static_cast<unsigned>(list.size()), list.data());

        std::size_t position = 0;
        while (position < bits.size()) {
            auto const count = static_cast<unsigned>(random() % 33);
            if (position + count > bits.size()) {
                ASSERT_FALSE(hasBits(parser, count));
                break;
            }
            unsigned expected = 0;
            for (unsigned i = 0; i < count; ++i) {
                expected = expected << 1 | (bits[position++] ? 1U : 0U);
            }
            ASSERT_EQ(take(parser, count), expected);
            if (random() % 8 == 0) {
                parser.alignToByte();
                position = (position + 7) / 8 * 8;
            }
        }
    }
}

} // namespace
