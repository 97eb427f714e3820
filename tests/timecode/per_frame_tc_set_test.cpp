#include <gxftypes/timecode/per_frame_tc_set.h>

#include <cstddef>
#include <cstdio>
#include <memory>

#include <gtest/gtest.h>
#include <testing/bytes.h>
#include <testing/capture.h>
#include <testing/stream_builder.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

constexpr unsigned gxfDebugArraysOnly = 0x2;

/// A block without a valid entry.
Bytes emptyBlock() { return Bytes().fill(4096); }

void put(Bytes& block, unsigned entry, Bytes const& wire) {
    for (unsigned i = 0; i < 8; ++i) {
        block[entry * 8 + i] = wire.vector()[i];
    }
}

void markValid(Bytes& block, unsigned entry) {
    unsigned char& flags = block[4032 + entry / 8];
    flags = static_cast<unsigned char>(flags | 1U << entry % 8);
}

void decode(PerFrameTcSet& set, Bytes block) {
    GxfBuffer buffer = block.filledBuffer();
    set.decode(buffer);
    EXPECT_EQ(buffer.beginOffset(), 4096U);
}

std::string text(PerFrameTcSet const& set, unsigned indent = 0) {
    FormatStr result(128U);
    EXPECT_EQ(&set.toString(indent, result), &result);
    return result.get();
}

Bytes timeBytes(ST12Timecode const& value) {
    return {value.timeBytes[0], value.timeBytes[1], value.timeBytes[2], value.timeBytes[3]};
}

TEST(PerFrameTcSet, NewOne) {
    PerFrameTcSet const set(1000, 77);
    EXPECT_EQ(set.mediaField, 1000U);
    EXPECT_EQ(set.timeline, 77U);
    EXPECT_EQ(set.timecodeHz, 1U);
    EXPECT_FALSE(set.fieldBitForced);
    EXPECT_EQ(set.link.owner, &set);
    EXPECT_EQ(set.link.previous, nullptr);
    EXPECT_EQ(set.link.next, nullptr);
    EXPECT_EQ(static_cast<void const*>(&set.link), static_cast<void const*>(&set));
    EXPECT_EQ(sizeof(set.validFlags), 63U);
    EXPECT_EQ(sizeof(set.timecodes) / sizeof(set.timecodes[0]), 504U);
    for (unsigned i = 0; i < 504; ++i) {
        EXPECT_FALSE(set.isValid(i)) << i;
        EXPECT_FALSE(set.timecodes[i].valid) << i;
    }
}

TEST(PerFrameTcSet, FlagHelpers) {
    for (unsigned i = 0; i < 504; ++i) {
        EXPECT_EQ(PerFrameTcSet::flagIndex(i), i / 8);
        EXPECT_EQ(PerFrameTcSet::flagMask(i), 1U << i % 8);
    }
}

TEST(PerFrameTcSet, EachBitIsThatOfItsEntry) {
    for (unsigned i = 0; i < 504; ++i) {
        Bytes block = emptyBlock();
        put(block, i, st12(1, 2, 3, 4));
        block[4032 + i / 8] = static_cast<unsigned char>(1U << i % 8);
        PerFrameTcSet set(0, 0);
        decode(set, block);
        for (unsigned other = 0; other < 504; ++other) {
            ASSERT_EQ(set.isValid(other), other == i) << i << ' ' << other;
            ASSERT_EQ(set.timecodes[other].valid, other == i) << i << ' ' << other;
        }
        ASSERT_EQ(timeBytes(set.timecodes[i]),
                  Bytes({0x04, i % 2 != 0 ? 0x83U : 0x03U, 0x02, 0x01}));
    }
}

TEST(PerFrameTcSet, DecodesEveryEntryFromItsPlace) {
    Bytes block;
    for (unsigned i = 0; i < 504; ++i) {
        block.add(st12(i % 24, i % 60, i / 60, i % 30));
    }
    block.fill(63, 0xFF).u8(0xEE);
    PerFrameTcSet set(0, 0);
    decode(set, block);
    for (unsigned i = 0; i < 504; ++i) {
        ASSERT_TRUE(set.isValid(i));
        char expected[16];
        std::snprintf(expected, sizeof(expected), "%02u:%02u:%02u:%02u", i % 24, i % 60, i / 60,
                      i % 30);
        FormatStr entry(128U);
        ASSERT_STREQ(set.timecodes[i].toString(25, entry).get(), expected);
    }
}

TEST(PerFrameTcSet, TheLastByteIsntRead) {
    Bytes block = emptyBlock();
    block[4095] = 0xFF;
    PerFrameTcSet set(0, 0);
    decode(set, block);
    for (unsigned i = 0; i < 504; ++i) {
        EXPECT_FALSE(set.isValid(i));
    }
}

TEST(PerFrameTcSet, WithoutValidityBitsAllEntriesAreInvalid) {
    Bytes block = timecodeBlock(504, 25);
    for (unsigned i = 4032; i < 4095; ++i) {
        block[i] = 0;
    }
    block.u8(0xAB);
    GxfBuffer buffer = block.filledBuffer();
    PerFrameTcSet set(0, 0);
    set.decode(buffer);
    EXPECT_EQ(Bytes::occupied(buffer), Bytes({0xAB}));
    EXPECT_EQ(text(set), "tc f0={inv, inv, inv, ..., inv}");
    EXPECT_EQ(timeBytes(set.timecodes[503]), Bytes({0, 0, 0, 0}));
    EXPECT_FALSE(set.fieldBitForced);
}

TEST(PerFrameTcSet, ForcesTheFieldMarkOfOddEntries) {
    Bytes block = emptyBlock();
    put(block, 1, st12(10, 11, 12, 13));
    markValid(block, 1);
    PerFrameTcSet set(0, 0);
    decode(set, block);
    EXPECT_TRUE(set.timecodes[1].field(1));
    EXPECT_TRUE(set.fieldBitForced);
    EXPECT_EQ(timeBytes(set.timecodes[1]), Bytes({0x13, 0x92, 0x11, 0x10}));
}

TEST(PerFrameTcSet, LeavesTheFieldMarkOfEvenEntries) {
    Bytes block = emptyBlock();
    put(block, 2, st12(10, 11, 12, 13));
    markValid(block, 2);
    PerFrameTcSet set(0, 0);
    decode(set, block);
    EXPECT_FALSE(set.timecodes[2].field(1));
    EXPECT_FALSE(set.fieldBitForced);
    EXPECT_EQ(timeBytes(set.timecodes[2]), Bytes({0x13, 0x12, 0x11, 0x10}));
}

TEST(PerFrameTcSet, AFieldMarkThatIsThereIsntForced) {
    Bytes block = emptyBlock();
    Bytes marked = st12(10, 11, 12, 13);
    marked[3] = 0x09; // tens of the seconds with the mark
    put(block, 2, marked);
    put(block, 503, marked);
    markValid(block, 2);
    markValid(block, 503);
    PerFrameTcSet set(0, 0);
    decode(set, block);
    EXPECT_FALSE(set.fieldBitForced);
    EXPECT_EQ(timeBytes(set.timecodes[2]), Bytes({0x13, 0x92, 0x11, 0x10}));
    EXPECT_EQ(timeBytes(set.timecodes[503]), Bytes({0x13, 0x92, 0x11, 0x10}));
}

TEST(PerFrameTcSet, AnInvalidOddEntryIsntForced) {
    Bytes block = emptyBlock();
    put(block, 3, st12(10, 11, 12, 13));
    PerFrameTcSet set(0, 0);
    decode(set, block);
    EXPECT_FALSE(set.fieldBitForced);
    EXPECT_EQ(timeBytes(set.timecodes[3]), Bytes({0, 0, 0, 0}));
}

TEST(PerFrameTcSet, TheMarkOf25HertzDoesntCountBeforeTheRateIsSet) {
    Bytes block = emptyBlock();
    Bytes marked = st12(10, 11, 12, 13);
    marked[7] = 0x09; // tens of the hours with the mark of 25 hertz
    put(block, 1, marked);
    markValid(block, 1);
    PerFrameTcSet set(0, 0);
    decode(set, block);
    EXPECT_TRUE(set.fieldBitForced);
    EXPECT_EQ(timeBytes(set.timecodes[1]), Bytes({0x13, 0x92, 0x11, 0x90}));
}

TEST(PerFrameTcSet, TheMarkIsThatOfTheRateWhenDecoded) {
    Bytes block = emptyBlock();
    put(block, 1, st12(10, 11, 12, 13));
    markValid(block, 1);
    PerFrameTcSet set(0, 0);
    set.setTimecodeHz(25);
    EXPECT_EQ(set.timecodeHz, 25U);
    decode(set, block);
    EXPECT_TRUE(set.fieldBitForced);
    EXPECT_EQ(timeBytes(set.timecodes[1]), Bytes({0x13, 0x12, 0x11, 0x90}));
}

TEST(PerFrameTcSet, ASecondDecodeLeavesEntriesThatArentValid) {
    Bytes first = emptyBlock();
    put(first, 0, st12(1, 2, 3, 4));
    put(first, 1, st12(1, 2, 3, 4));
    markValid(first, 0);
    markValid(first, 1);
    PerFrameTcSet set(0, 0);
    decode(set, first);
    Bytes second = emptyBlock();
    put(second, 0, st12(5, 6, 7, 8));
    put(second, 2, st12(5, 6, 7, 8));
    markValid(second, 2);
    decode(set, second);
    EXPECT_FALSE(set.isValid(0));
    EXPECT_TRUE(set.isValid(2));
    EXPECT_EQ(timeBytes(set.timecodes[0]), Bytes({0x04, 0x03, 0x02, 0x01}));
    EXPECT_EQ(timeBytes(set.timecodes[2]), Bytes({0x08, 0x07, 0x06, 0x05}));
    EXPECT_TRUE(set.fieldBitForced);
}

TEST(PerFrameTcSet, BytesThatArentThereAreZero) {
    Bytes const block = timecodeBlock(504, 25);
    for (unsigned const present : {0U, 1U, 8U, 4031U, 4032U, 4033U, 4050U, 4094U, 4095U}) {
        // An array of its own, so that reading behind it is noticed.
        auto const copied = std::make_unique<unsigned char[]>(present);
        std::copy_n(block.data(), present, copied.get());
        GxfBuffer buffer(copied.get(), present, GxfBuffer::DataState::filled, MediaAgent(nullptr));
        PerFrameTcSet set(0, 0);
        set.decode(buffer);
        EXPECT_EQ(buffer.nOccupied(), 0U);
        EXPECT_EQ(buffer.beginOffset(), 4096U);
        unsigned const flagBytes = present > 4032 ? std::min(present - 4032, 63U) : 0;
        for (unsigned i = 0; i < 504; ++i) {
            ASSERT_EQ(set.isValid(i), i / 8 < flagBytes) << present << ' ' << i;
        }
    }
}

TEST(PerFrameTcSet, BeginsOnAMultipleOf504) {
    struct Row {
        unsigned mediaField;
        unsigned first;
        char const* text;
    };
    static Row const rows[] = {
        {0, 0, "tc f0={inv, inv, inv, ..., inv}"},
        {503, 0, "tc f0={inv, inv, inv, ..., inv}"},
        {504, 504, "tc f504={inv, inv, inv, ..., inv}"},
        {1000, 504, "tc f504={inv, inv, inv, ..., inv}"},
        {1007, 504, "tc f504={inv, inv, inv, ..., inv}"},
        {1008, 1008, "tc f1008={inv, inv, inv, ..., inv}"},
        {0xFFFFFFFF, 4294967040, "tc f-256={inv, inv, inv, ..., inv}"},
    };
    for (Row const& row : rows) {
        PerFrameTcSet const set(row.mediaField, 0);
        EXPECT_EQ(set.firstField(), row.first);
        EXPECT_EQ(text(set), row.text);
        EXPECT_EQ(text(set, 8), row.text);
    }
}

TEST(PerFrameTcSet, PrintsFourEntries) {
    PerFrameTcSet set(600, 0);
    decode(set, timecodeBlock(504, 25));
    set.setTimecodeHz(25);
    EXPECT_EQ(text(set), "tc f504={00:00:00:00, 00:00:00:00, 00:00:00:01, ..., 00:00:10:01}");

    PerFrameTcSet part(600, 0);
    decode(part, timecodeBlock(2, 25));
    EXPECT_EQ(text(part), "tc f504={00:00:00:00, 00:00:00:00, inv, ..., inv}");
}

TEST(PerFrameTcSet, PrintsAllEntriesWithArrays) {
    ChannelSetting const arrays(gxfDebug, gxfDebugArraysOnly);
    for (unsigned const indent : {0U, 3U}) {
        PerFrameTcSet set(1000, 0);
        decode(set, timecodeBlock(6, 25));
        std::string const margin(indent, ' ');
        std::string expected =
            "tc f504={\n" + margin +
            "i=  0,f=504: 00:00:00:00, 00:00:00:00, 00:00:00:01, 00:00:00:01,\n" + margin +
            "i=  4,f=508: 00:00:00:02, 00:00:00:02, inv, inv";
        for (unsigned i = 8; i < 504; i += 4) {
            std::string const number = std::to_string(i);
            expected += ",\n" + margin + "i=" + std::string(3 - number.size(), ' ') + number +
                        ",f=" + std::to_string(504 + i) + ": inv, inv, inv, inv";
        }
        EXPECT_EQ(text(set, indent), expected + "}");
    }
}

TEST(PerFrameTcSet, OnlyTheBitOfArraysPrintsAllEntries) {
    PerFrameTcSet const set(0, 0);
    ChannelSetting const others(gxfDebug, ~gxfDebugArraysOnly);
    EXPECT_EQ(text(set), "tc f0={inv, inv, inv, ..., inv}");
}

} // namespace
