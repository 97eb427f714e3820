#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <limits>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include <gxftypes/packet/gxf.h>
#include <testing/allocation_count.h>
#include <testing/bytes.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;
using DataState = GxfBuffer::DataState;

namespace {

MediaAgent const nullAgent(nullptr);

/// Appends bytes to a buffer that grows.
void append(GxfBuffer& buffer, Bytes const& bytes) {
    ASSERT_TRUE(buffer.allowFor(static_cast<unsigned>(bytes.size()), false));
    ASSERT_TRUE(buffer.encodeBlob(bytes.data(), static_cast<unsigned>(bytes.size())));
}

void expectState(GxfBuffer const& buffer, Bytes const& occupied, unsigned long long offset) {
    EXPECT_EQ(Bytes::occupied(buffer), occupied);
    EXPECT_EQ(buffer.nOccupied(), occupied.size());
    EXPECT_EQ(buffer.beginOffset(), offset);
}

TEST(GxfBuffer, StatesHaveTheirValues) {
    EXPECT_EQ(static_cast<unsigned>(DataState::noData), 0U);
    EXPECT_EQ(static_cast<unsigned>(DataState::empty), 1U);
    EXPECT_EQ(static_cast<unsigned>(DataState::filled), 2U);
}

TEST(GxfBuffer, StartsEmptyWithoutStorage) {
    auto const allocations = allocationCount();
    GxfBuffer const buffer(nullAgent);
    EXPECT_EQ(allocationCount(), allocations);
    expectState(buffer, {}, 0);
    EXPECT_EQ(buffer.nUnoccupied(), 0U);
    EXPECT_EQ(buffer.ptrBegin(), buffer.ptrEnd());
}

TEST(GxfBuffer, IsAWindowOverAFilledArray) {
    unsigned char bytes[] = {1, 2, 3};
    {
        GxfBuffer buffer(bytes, 3, DataState::filled, nullAgent);
        expectState(buffer, {1, 2, 3}, 0);
        EXPECT_EQ(buffer.nUnoccupied(), 0U);
        EXPECT_EQ(buffer.ptrBegin(), bytes);
        EXPECT_EQ(buffer.ptrEnd(), bytes + 3);
        GxfBuffer const& constant = buffer;
        EXPECT_EQ(constant.ptrBegin(), bytes);
        EXPECT_EQ(constant.ptrEnd(), bytes + 3);
        EXPECT_TRUE((std::is_same_v<decltype(constant.ptrBegin()), unsigned char const*>));
    }
    EXPECT_EQ(bytes[2], 3);
}

TEST(GxfBuffer, IsAWindowOverAnEmptyArray) {
    unsigned char bytes[] = {1, 2, 3};
    GxfBuffer buffer(bytes, 3, DataState::empty, nullAgent);
    expectState(buffer, {}, 0);
    EXPECT_EQ(buffer.nUnoccupied(), 3U);
    EXPECT_EQ(buffer.ptrEnd(), bytes);
    EXPECT_EQ(bytes[0], 1);
}

TEST(GxfBuffer, AWindowWithoutDataHoldsNothing) {
    unsigned char bytes[] = {1, 2, 3};
    GxfBuffer const buffer(bytes, 3, DataState::noData, nullAgent);
    expectState(buffer, {}, 0);
}

TEST(GxfBuffer, RemovesInput) {
    Bytes bytes{1, 2, 3, 4};
    GxfBuffer buffer = bytes.filledBuffer();
    buffer.removeInput(0);
    expectState(buffer, {1, 2, 3, 4}, 0);
    buffer.removeInput(1);
    expectState(buffer, {2, 3, 4}, 1);
    EXPECT_EQ(buffer.ptrBegin(), bytes.data() + 1);
    EXPECT_EQ(buffer.nUnoccupied(), 0U);
    buffer.removeInput(3);
    expectState(buffer, {}, 4);
    EXPECT_EQ(buffer.ptrBegin(), bytes.data() + 4);
    EXPECT_EQ(buffer.nUnoccupied(), 0U);
    buffer.removeInput(0);
    expectState(buffer, {}, 4);
    EXPECT_EQ(buffer.ptrBegin(), bytes.data() + 4);
}

TEST(GxfBuffer, RemovesInputBeyondItsEnd) {
    Bytes bytes{1, 2, 3, 4};
    for (unsigned consumed = 0; consumed <= 4; ++consumed) {
        GxfBuffer buffer = bytes.filledBuffer();
        buffer.removeInput(consumed);
        buffer.removeInput(4 - consumed + 5);
        expectState(buffer, {}, 9);
        EXPECT_EQ(buffer.ptrBegin(), bytes.data());
        EXPECT_EQ(buffer.nUnoccupied(), 4U);
    }
}

TEST(GxfBuffer, RemovesMoreInputThan32BitsCount) {
    Bytes bytes{1, 2, 3, 4};
    GxfBuffer buffer = bytes.filledBuffer();
    buffer.removeInput(1);
    buffer.removeInput(0x1'0000'0001ULL);
    expectState(buffer, {}, 0x1'0000'0002ULL);
    buffer.removeInput(0x1'0000'0000ULL);
    expectState(buffer, {}, 0x2'0000'0002ULL);
}

TEST(GxfBuffer, CountsStreamPositionsModulo64Bits) {
    GxfBuffer buffer(nullAgent);
    buffer.reset(DataState::noData, std::numeric_limits<unsigned long long>::max());
    buffer.removeInput(5);
    expectState(buffer, {}, 4);
    buffer.removeInput(std::numeric_limits<unsigned long long>::max());
    expectState(buffer, {}, 3);
}

TEST(GxfBuffer, ReadsTheRoomAsASignedNumber) {
    unsigned char byte = 0;
    GxfBuffer largest(&byte, 0x7fffffff, DataState::empty, nullAgent);
    EXPECT_EQ(largest.nUnoccupied(), 0x7fffffffU);
    GxfBuffer tooLarge(&byte, 0x80000000, DataState::empty, nullAgent);
    EXPECT_EQ(tooLarge.nUnoccupied(), 0U);
    EXPECT_FALSE(tooLarge.encode<unsigned char>(1));
    EXPECT_FALSE(tooLarge.addOccupied(1));
    EXPECT_TRUE(tooLarge.addOccupied(0));
    EXPECT_EQ(byte, 0);
    GxfBuffer const minusOne(&byte, 0xffffffff, DataState::empty, nullAgent);
    EXPECT_EQ(minusOne.nUnoccupied(), 0U);
}

TEST(GxfBuffer, ResetsAWindow) {
    Bytes bytes{1, 2, 3, 4};
    GxfBuffer buffer = bytes.filledBuffer();
    buffer.removeInput(2);
    buffer.reset(DataState::filled, 100);
    expectState(buffer, {1, 2, 3, 4}, 100);
    buffer.removeInput(1);
    buffer.reset(DataState::empty, 200);
    expectState(buffer, {}, 200);
    EXPECT_EQ(buffer.nUnoccupied(), 4U);
    buffer.reset(DataState::noData, 300);
    expectState(buffer, {}, 300);
    EXPECT_EQ(buffer.nUnoccupied(), 0U);
}

TEST(GxfBuffer, AWindowThatGaveUpItsArrayNeverWritesIntoIt) {
    Bytes bytes{1, 2, 3, 4};
    GxfBuffer buffer = bytes.filledBuffer();
    buffer.reset(DataState::noData, 0);
    ASSERT_TRUE(buffer.addOutputZeros(4));
    expectState(buffer, {0, 0, 0, 0}, 0);
    EXPECT_EQ(bytes, (Bytes{1, 2, 3, 4}));
}

TEST(GxfBuffer, ResetsABufferThatGrows) {
    GxfBuffer buffer(nullAgent);
    append(buffer, {1, 2, 3});
    buffer.removeInput(2);
    buffer.reset(DataState::noData, 7);
    expectState(buffer, {}, 7);
    append(buffer, {4});
    expectState(buffer, {4}, 7);
}

TEST(GxfBuffer, CountsBytesAsOccupied) {
    unsigned char bytes[] = {1, 2, 3};
    GxfBuffer buffer(bytes, 3, DataState::empty, nullAgent);
    EXPECT_TRUE(buffer.addOccupied(0));
    EXPECT_TRUE(buffer.addOccupied(2));
    expectState(buffer, {1, 2}, 0);
    EXPECT_EQ(buffer.nUnoccupied(), 1U);
    EXPECT_FALSE(buffer.addOccupied(2));
    EXPECT_FALSE(buffer.addOccupied(0xffffffff));
    EXPECT_FALSE(buffer.addOccupiedSlow(2));
    expectState(buffer, {1, 2}, 0);
    EXPECT_TRUE(buffer.addOccupiedSlow(1));
    expectState(buffer, {1, 2, 3}, 0);
    EXPECT_TRUE(buffer.addOccupied(0));
    EXPECT_FALSE(buffer.addOccupied(1));
}

TEST(GxfBuffer, AWindowMakesNoRoomOfConsumedBytes) {
    Bytes bytes{1, 2, 3, 4};
    GxfBuffer buffer = bytes.filledBuffer();
    buffer.removeInput(3);
    EXPECT_FALSE(buffer.addOccupied(1));
    EXPECT_FALSE(buffer.addOutputZeros(1));
    EXPECT_FALSE(buffer.allowFor(1, false));
    EXPECT_FALSE(buffer.encode<unsigned char>(1));
    expectState(buffer, {4}, 3);
    EXPECT_EQ(bytes, (Bytes{1, 2, 3, 4}));
}

TEST(GxfBuffer, MakesRoomOnDemand) {
    GxfBuffer buffer(nullAgent);
    EXPECT_TRUE(buffer.addOccupiedSlow(3));
    expectState(buffer, {0, 0, 0}, 0);
    buffer.ptrBegin()[1] = 9;
    buffer.removeInput(1);
    EXPECT_TRUE(buffer.addOccupied(1000));
    expectState(buffer, Bytes{9}.fill(1001), 1);
}

TEST(GxfBuffer, AllowsForMoreBytes) {
    for (bool const flag : {false, true}) {
        GxfBuffer buffer(nullAgent);
        append(buffer, {1, 2});
        buffer.removeInput(1);
        EXPECT_TRUE(buffer.allowFor(0, flag));
        EXPECT_TRUE(buffer.allowFor(16, flag));
        EXPECT_GE(buffer.nUnoccupied(), 16U);
        expectState(buffer, {2}, 1);
        EXPECT_TRUE(buffer.encode<unsigned long long>(3));
        EXPECT_TRUE(buffer.encode<unsigned long long>(4));

        unsigned char bytes[16] = {};
        GxfBuffer window(bytes, 16, DataState::empty, nullAgent);
        EXPECT_TRUE(window.allowFor(16, flag));
        EXPECT_FALSE(window.allowFor(17, flag));
        window.encode<unsigned char>(1);
        EXPECT_FALSE(window.allowFor(16, flag));
        EXPECT_TRUE(window.allowFor(15, flag));
        expectState(window, {1}, 0);
    }
}

TEST(GxfBuffer, AppendsZeros) {
    unsigned char bytes[] = {1, 2, 3, 4};
    GxfBuffer buffer(bytes, 4, DataState::empty, nullAgent);
    buffer.addOccupied(1);
    EXPECT_TRUE(buffer.addOutputZeros(2));
    expectState(buffer, {1, 0, 0}, 0);
    EXPECT_FALSE(buffer.addOutputZeros(2));
    EXPECT_TRUE(buffer.addOutputZeros(0));
    expectState(buffer, {1, 0, 0}, 0);
    EXPECT_EQ(bytes[3], 4);
}

TEST(GxfBuffer, AppendsNoZerosWithoutStorage) {
    GxfBuffer buffer(nullAgent);
    auto const allocations = allocationCount();
    EXPECT_TRUE(buffer.addOutputZeros(0));
    EXPECT_EQ(allocationCount(), allocations);
    expectState(buffer, {}, 0);
}

TEST(GxfBuffer, AppendsZerosWhereverTheStorageGoes) {
    GxfBuffer buffer(nullAgent);
    append(buffer, Bytes().fill(100, 0xee));
    buffer.removeInput(98);
    EXPECT_TRUE(buffer.addOutputZeros(3));
    expectState(buffer, {0xee, 0xee, 0, 0, 0}, 98);
    EXPECT_TRUE(buffer.addOutputZeros(500));
    expectState(buffer, Bytes{0xee, 0xee}.fill(503), 98);
    buffer.reset(DataState::noData, 0);
    EXPECT_TRUE(buffer.addOutputZeros(10));
    expectState(buffer, Bytes().fill(10), 0);
}

TEST(GxfBuffer, AtLeastDoublesWhenItGrows) {
    GxfBuffer buffer(nullAgent);
    auto const allocations = allocationCount();
    for (unsigned i = 0; i < 100000; ++i) {
        ASSERT_TRUE(buffer.addOutputZeros(1));
    }
    EXPECT_LE(allocationCount() - allocations, 18U);
    EXPECT_LE(buffer.nOccupied() + buffer.nUnoccupied(), 200000U);
}

TEST(GxfBuffer, StaysSmallWhenWhatComesIsConsumed) {
    GxfBuffer buffer(nullAgent);
    auto const allocations = allocationCount();
    for (unsigned i = 0; i < 10000; ++i) {
        ASSERT_TRUE(buffer.addOutputZeros(100));
        buffer.removeInput(i < 3 ? 50 : 100);
    }
    expectState(buffer, Bytes().fill(150), 999850);
    EXPECT_LE(allocationCount() - allocations, 8U);
    EXPECT_LE(buffer.nOccupied() + buffer.nUnoccupied(), 2000U);
}

TEST(GxfBuffer, GrowsToNoMoreThanItsRoomCanCount) {
    GxfBuffer buffer(nullAgent);
    append(buffer, {1});
    auto const allocations = allocationCount();
    EXPECT_FALSE(buffer.addOccupied(0x7fffffff));
    EXPECT_FALSE(buffer.addOccupied(0xffffffff));
    EXPECT_FALSE(buffer.addOutputZeros(0x80000000));
    EXPECT_FALSE(buffer.allowFor(0xffffffff, false));
    EXPECT_EQ(allocationCount(), allocations);
    expectState(buffer, {1}, 0);
}

TEST(GxfBuffer, StaysAsItWasWhenMemoryEnds) {
    auto const arrays = liveArrays();
    {
        GxfBuffer buffer(nullAgent);
        append(buffer, {1, 2, 3});
        buffer.removeInput(1);
        Bytes more = Bytes().fill(100, 7);
        GxfBuffer source = more.filledBuffer();
        {
            AllocationLimit const limit(50);
            EXPECT_THROW(buffer.addOccupied(100), std::bad_alloc);
            EXPECT_THROW(buffer.addOutputZeros(100), std::bad_alloc);
            EXPECT_THROW(buffer.allowFor(100, false), std::bad_alloc);
            EXPECT_THROW(buffer.moveFrom(source, 100), std::bad_alloc);
            EXPECT_THROW(source.decodeString(100), std::bad_alloc);
            EXPECT_THROW(source.decodeBlob(100), std::bad_alloc);
        }
        expectState(buffer, {2, 3}, 1);
        expectState(source, more, 0);
    }
    EXPECT_EQ(liveArrays(), arrays);
}

// What every decoder makes of the bytes 81 82 ... 88, of which only the first few are present.

using Decode = std::uint64_t (*)(GxfBuffer&);

struct DecoderRow {
    char const* name;
    Decode decode;
    /// The value for 0, 1, ... bytes present, up to the decoder's width.
    std::vector<std::uint64_t> values;
};

std::vector<DecoderRow> const& decoderRows() {
    static std::vector<DecoderRow> const rows = {
        {"decodeUint8", [](GxfBuffer& b) -> std::uint64_t { return b.decodeUint8(); }, {0, 0x81}},
        {"decodeUint16",
         [](GxfBuffer& b) -> std::uint64_t { return b.decodeUint16(); },
         {0, 0x8100, 0x8182}},
        {"decodeUint32",
         [](GxfBuffer& b) -> std::uint64_t { return b.decodeUint32(); },
         {0, 0x81000000, 0x81820000, 0x81828300, 0x81828384}},
        {"decodeUint64",
         [](GxfBuffer& b) -> std::uint64_t { return b.decodeUint64(); },
         {0, 0x8100000000000000, 0x8182000000000000, 0x8182830000000000, 0x8182838400000000,
          0x8182838485000000, 0x8182838485860000, 0x8182838485868700, 0x8182838485868788}},
        {"decodeUint16Lsbf",
         [](GxfBuffer& b) -> std::uint64_t { return b.decodeUint16Lsbf(); },
         {0, 0x81, 0x8281}},
        {"decodeUint32Lsbf",
         [](GxfBuffer& b) -> std::uint64_t { return b.decodeUint32Lsbf(); },
         {0, 0x81, 0x8281, 0x838281, 0x84838281}},
        {"decodeFloat64Lsbf",
         [](GxfBuffer& b) { return std::bit_cast<std::uint64_t>(b.decodeFloat64Lsbf()); },
         {0, 0x81, 0x8281, 0x838281, 0x84838281, 0x8584838281, 0x868584838281, 0x87868584838281,
          0x8887868584838281}},
    };
    return rows;
}

TEST(GxfBuffer, DecodesWhatIsPresentAndZerosForTheRest) {
    for (DecoderRow const& row : decoderRows()) {
        unsigned const width = static_cast<unsigned>(row.values.size()) - 1;
        for (unsigned present = 0; present <= width; ++present) {
            SCOPED_TRACE(row.name + (" with " + std::to_string(present)));
            // One byte in front, and bytes behind the end that must not be read.
            Bytes bytes{0xee, 0x81, 0x82, 0x83, 0x84, 0x85, 0x86, 0x87, 0x88};
            GxfBuffer buffer(bytes.data(), 1 + present, DataState::filled, nullAgent);
            buffer.removeInput(1);
            EXPECT_EQ(row.decode(buffer), row.values[present]);
            expectState(buffer, {}, 1 + width);
            EXPECT_EQ(buffer.ptrBegin(), bytes.data() + (present == width ? 1 + width : 0));
        }
    }
}

TEST(GxfBuffer, DecodesNothingOfStaleBytes) {
    for (DecoderRow const& row : decoderRows()) {
        SCOPED_TRACE(row.name);
        GxfBuffer buffer(nullAgent);
        append(buffer, Bytes().fill(16, 0xee));
        buffer.reset(DataState::empty, 40);
        EXPECT_EQ(row.decode(buffer), 0U);
        expectState(buffer, {}, 40 + row.values.size() - 1);
    }
}

TEST(GxfBuffer, DecodesWithoutStorage) {
    for (DecoderRow const& row : decoderRows()) {
        SCOPED_TRACE(row.name);
        GxfBuffer buffer(nullAgent);
        EXPECT_EQ(row.decode(buffer), 0U);
        expectState(buffer, {}, row.values.size() - 1);
    }
}

TEST(GxfBuffer, DecodesOneAfterAnother) {
    Bytes bytes = Bytes{0x01}
                      .u16(0x0203)
                      .u32(0x04050607)
                      .u64(0xf8090a0b0c0d0e0f)
                      .text("\x11\x10")
                      .u32Lsbf(0xf5141312)
                      .add({0, 0, 0, 0, 0, 0, 0xf0, 0xbf});
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_EQ(buffer.decodeUint8(), 0x01);
    EXPECT_EQ(buffer.decodeUint16(), 0x0203);
    EXPECT_EQ(buffer.decodeUint32(), 0x04050607U);
    EXPECT_EQ(buffer.decodeUint64(), 0xf8090a0b0c0d0e0fULL);
    EXPECT_EQ(buffer.decodeUint16Lsbf(), 0x1011);
    EXPECT_EQ(buffer.decodeUint32Lsbf(), 0xf5141312U);
    EXPECT_EQ(buffer.decodeFloat64Lsbf(), -1.0);
    expectState(buffer, {}, 29);
}

TEST(GxfBuffer, DecodersGiveTheirTypes) {
    Bytes bytes;
    GxfBuffer b = bytes.filledBuffer();
    EXPECT_TRUE((std::is_same_v<decltype(b.decodeUint8()), unsigned char>));
    EXPECT_TRUE((std::is_same_v<decltype(b.decodeUint16()), unsigned short>));
    EXPECT_TRUE((std::is_same_v<decltype(b.decodeUint32()), unsigned int>));
    EXPECT_TRUE((std::is_same_v<decltype(b.decodeUint64()), unsigned long long>));
    EXPECT_TRUE((std::is_same_v<decltype(b.decodeUint16Lsbf()), unsigned short>));
    EXPECT_TRUE((std::is_same_v<decltype(b.decodeUint32Lsbf()), unsigned int>));
    EXPECT_TRUE((std::is_same_v<decltype(b.decodeFloat64Lsbf()), double>));
    EXPECT_TRUE((std::is_same_v<decltype(b.decodeString(0)), AutoArrayPtr<char>>));
    EXPECT_TRUE((std::is_same_v<decltype(b.decodeBlob(0)), AutoArrayPtr<unsigned char>>));
}

TEST(GxfBuffer, DecodersAllocateNothing) {
    Bytes bytes = Bytes().fill(100, 1);
    GxfBuffer buffer = bytes.filledBuffer();
    auto const& rows = decoderRows();
    auto const allocations = allocationCount();
    for (DecoderRow const& row : rows) {
        row.decode(buffer);
    }
    EXPECT_EQ(allocationCount(), allocations);
}

TEST(GxfBuffer, DecodesAString) {
    Bytes bytes = Bytes().text("ab").u8(0).text("cdX");
    GxfBuffer buffer = bytes.filledBuffer();
    AutoArrayPtr<char> const text = buffer.decodeString(5);
    EXPECT_EQ(std::string(text.get(), 6), std::string("ab\0cd\0", 6));
    expectState(buffer, Bytes().text("X"), 5);
}

TEST(GxfBuffer, DecodesAnEmptyString) {
    Bytes bytes{1};
    GxfBuffer buffer = bytes.filledBuffer();
    AutoArrayPtr<char> const text = buffer.decodeString(0);
    ASSERT_NE(text.get(), nullptr);
    EXPECT_EQ(text[0], '\0');
    expectState(buffer, {1}, 0);

    GxfBuffer nothing(nullAgent);
    EXPECT_STREQ(nothing.decodeString(0).get(), "");
    EXPECT_NE(nothing.decodeBlob(0).get(), nullptr);
}

TEST(GxfBuffer, DecodesABlob) {
    Bytes bytes{1, 0, 3, 4};
    GxfBuffer buffer = bytes.filledBuffer();
    AutoArrayPtr<unsigned char> const blob = buffer.decodeBlob(3);
    EXPECT_EQ(blob[0], 1);
    EXPECT_EQ(blob[1], 0);
    EXPECT_EQ(blob[2], 3);
    EXPECT_NE(blob.get(), bytes.data());
    expectState(buffer, {4}, 3);
}

TEST(GxfBuffer, TakesBytesOfAFixedNumber) {
    Bytes const expected[] = {
        {0, 0, 0, 0},          {0x81, 0, 0, 0},          {0x81, 0x82, 0, 0},
        {0x81, 0x82, 0x83, 0}, {0x81, 0x82, 0x83, 0x84},
    };
    for (unsigned present = 0; present <= 4; ++present) {
        SCOPED_TRACE(present);
        Bytes bytes{0xee, 0x81, 0x82, 0x83, 0x84, 0x85};
        GxfBuffer buffer(bytes.data(), 1 + present, DataState::filled, nullAgent);
        buffer.removeInput(1);
        unsigned char spare[4] = {0xcc, 0xcc, 0xcc, 0xcc};
        unsigned char const* const taken = buffer.takeBytes(spare);
        EXPECT_EQ(taken == spare, present < 4);
        EXPECT_EQ((Bytes{taken[0], taken[1], taken[2], taken[3]}), expected[present]);
        expectState(buffer, {}, 5);
    }
}

TEST(GxfBuffer, DecodesTheBytesPresentOfAString) {
    Bytes bytes = Bytes().text("abXX");
    GxfBuffer buffer(bytes.data(), 2, DataState::filled, nullAgent);
    EXPECT_STREQ(buffer.decodeString(4).get(), "ab");
    expectState(buffer, {}, 4);
    EXPECT_STREQ(buffer.decodeString(4).get(), "");
    expectState(buffer, {}, 8);
}

TEST(GxfBuffer, TakesNoMemoryForAStringThatIsNotThere) {
    Bytes bytes = Bytes().text("ab");
    GxfBuffer buffer = bytes.filledBuffer();
    AllocationLimit const limit(64);
    AutoArrayPtr<char> const text = buffer.decodeString(0xffffffff);
    EXPECT_STREQ(text.get(), "ab");
    EXPECT_EQ(buffer.nOccupied(), 0U);
    EXPECT_EQ(buffer.beginOffset(), 0xffffffffULL);
    EXPECT_STREQ(buffer.decodeString(0xffffffff).get(), "");
    EXPECT_EQ(buffer.beginOffset(), 0x1fffffffeULL);
}

TEST(GxfBuffer, FillsABlobUpWithZeros) {
    constexpr unsigned claimed = 1U << 20;
    Bytes bytes{1, 2, 0xee, 0xee};
    GxfBuffer buffer(bytes.data(), 2, DataState::filled, nullAgent);
    AutoArrayPtr<unsigned char> const blob = buffer.decodeBlob(claimed);
    Bytes const expected = Bytes{1, 2}.fill(claimed - 2);
    EXPECT_EQ(std::memcmp(blob.get(), expected.data(), claimed), 0);
    expectState(buffer, {}, claimed);
}

TEST(GxfBuffer, EncodesIntegersBigEndian) {
    Bytes room = Bytes().fill(19, 0xee);
    GxfBuffer buffer = room.emptyBuffer();
    EXPECT_TRUE(buffer.encode<unsigned char>(0xf1));
    EXPECT_TRUE(buffer.encode<unsigned short>(0xf203));
    EXPECT_TRUE(buffer.encode<unsigned int>(0x01020304));
    EXPECT_TRUE(buffer.encode<int>(-2));
    EXPECT_TRUE(buffer.encode<unsigned long long>(0xf102030405060708));
    expectState(buffer,
                {0xf1, 0xf2, 0x03, 0x01, 0x02, 0x03, 0x04, 0xff, 0xff, 0xff, 0xfe, 0xf1, 0x02, 0x03,
                 0x04, 0x05, 0x06, 0x07, 0x08},
                0);
    EXPECT_EQ(buffer.nUnoccupied(), 0U);
}

TEST(GxfBuffer, EncodesIntegersLittleEndian) {
    Bytes room = Bytes().fill(7, 0xee);
    GxfBuffer buffer = room.emptyBuffer();
    EXPECT_TRUE(buffer.encodeLsbf<unsigned char>(0xf1));
    EXPECT_TRUE(buffer.encodeLsbf<unsigned short>(0xf203));
    EXPECT_TRUE(buffer.encodeLsbf<unsigned int>(0x01020304));
    expectState(buffer, {0xf1, 0x03, 0xf2, 0x04, 0x03, 0x02, 0x01}, 0);
}

TEST(GxfBuffer, EncodesDoublesLittleEndian) {
    Bytes room = Bytes().fill(24, 0xee);
    GxfBuffer buffer = room.emptyBuffer();
    EXPECT_TRUE(buffer.encodeLsbf<double>(1.0));
    EXPECT_TRUE(buffer.encodeLsbf<double>(-0.0));
    EXPECT_TRUE(buffer.encodeLsbf<double>(25.5));
    expectState(buffer, {0, 0, 0, 0,    0, 0, 0xf0, 0x3f, 0, 0,    0,    0,
                         0, 0, 0, 0x80, 0, 0, 0,    0,    0, 0x80, 0x39, 0x40},
                0);
    EXPECT_EQ(buffer.decodeFloat64Lsbf(), 1.0);
}

TEST(GxfBuffer, RefusesEveryIntegerWithoutRoom) {
    struct Row {
        unsigned size;
        bool (*encode)(GxfBuffer&);
    };
    Row const rows[] = {
        {1, [](GxfBuffer& b) { return b.encode<unsigned char>(0x11); }},
        {2, [](GxfBuffer& b) { return b.encode<unsigned short>(0x1111); }},
        {4, [](GxfBuffer& b) { return b.encode<unsigned int>(0x11111111); }},
        {4, [](GxfBuffer& b) { return b.encode<int>(0x11111111); }},
        {8, [](GxfBuffer& b) { return b.encode<unsigned long long>(0x1111111111111111); }},
        {1, [](GxfBuffer& b) { return b.encodeLsbf<unsigned char>(0x11); }},
        {2, [](GxfBuffer& b) { return b.encodeLsbf<unsigned short>(0x1111); }},
        {4, [](GxfBuffer& b) { return b.encodeLsbf<unsigned int>(0x11111111); }},
        {8, [](GxfBuffer& b) { return b.encodeLsbf<double>(1.0); }},
    };
    for (Row const& row : rows) {
        for (unsigned room = 0; room <= row.size; ++room) {
            Bytes bytes = Bytes().fill(room, 0xee);
            GxfBuffer buffer = bytes.emptyBuffer();
            EXPECT_EQ(row.encode(buffer), room == row.size);
            EXPECT_EQ(buffer.nOccupied(), room == row.size ? room : 0);
            EXPECT_EQ(buffer.nUnoccupied(), room == row.size ? 0 : room);
            EXPECT_EQ(bytes == Bytes().fill(room, 0xee), room != row.size);
        }
        // Encoders make no room, also where it could be made.
        GxfBuffer growing(nullAgent);
        EXPECT_FALSE(row.encode(growing));
        expectState(growing, {}, 0);
    }
}

TEST(GxfBuffer, EncodesBlobs) {
    Bytes room = Bytes().fill(4, 0xee);
    GxfBuffer buffer = room.emptyBuffer();
    unsigned char const blob[] = {1, 2, 3, 4, 5};
    EXPECT_FALSE(buffer.encodeBlob(blob, 5));
    EXPECT_EQ(room, Bytes().fill(4, 0xee));
    EXPECT_TRUE(buffer.encodeBlob(blob, 3));
    EXPECT_FALSE(buffer.encodeBlob(blob, 2));
    EXPECT_TRUE(buffer.encodeBlob(blob, 0));
    EXPECT_TRUE(buffer.encodeBlob(blob + 3, 1));
    expectState(buffer, {1, 2, 3, 4}, 0);
    EXPECT_TRUE(buffer.encodeBlob(blob, 0));
    EXPECT_FALSE(buffer.encodeBlob(blob, 0xffffffff));
}

TEST(GxfBuffer, RefusesNullBlobs) {
    Bytes room = Bytes().fill(4, 0xee);
    GxfBuffer buffer = room.emptyBuffer();
    EXPECT_FALSE(buffer.encodeBlob(nullptr, 0));
    EXPECT_FALSE(buffer.encodeBlob(nullptr, 1));
    expectState(buffer, {}, 0);
}

TEST(GxfBuffer, EncodesStrings) {
    Bytes room = Bytes().fill(4, 0xee);
    GxfBuffer buffer = room.emptyBuffer();
    EXPECT_FALSE(buffer.encodeString(nullptr));
    EXPECT_FALSE(buffer.encodeString("abcd"));
    EXPECT_EQ(room, Bytes().fill(4, 0xee));
    expectState(buffer, {}, 0);
    EXPECT_TRUE(buffer.encodeString("ab"));
    EXPECT_FALSE(buffer.encodeString("a"));
    EXPECT_TRUE(buffer.encodeString(""));
    EXPECT_FALSE(buffer.encodeString(""));
    expectState(buffer, {'a', 'b', 0, 0}, 0);
}

TEST(GxfBuffer, EncodesPaddedStrings) {
    struct Row {
        char const* text;
        unsigned size;
        char pad;
        unsigned room;
        bool written;
        Bytes expected;
    };
    Row const rows[] = {
        {"ab", 2, ' ', 8, false, {}},
        {"ab", 3, ' ', 8, true, {'a', 'b', 0}},
        {"ab", 5, ' ', 8, true, {'a', 'b', 0, ' ', ' '}},
        {"ab", 5, '\0', 5, true, {'a', 'b', 0, 0, 0}},
        {"ab", 5, '\xff', 5, true, {'a', 'b', 0, 0xff, 0xff}},
        {"ab", 5, ' ', 4, false, {}},
        {"ab", 1, ' ', 8, false, {}},
        {"ab", 0, ' ', 8, false, {}},
        {"", 0, ' ', 8, false, {}},
        {"", 1, ' ', 8, true, {0}},
        {"", 3, '.', 8, true, {0, '.', '.'}},
        {"", 1, ' ', 0, false, {}},
        {"ab", 0xffffffff, ' ', 8, false, {}},
        {nullptr, 5, ' ', 8, false, {}},
        {nullptr, 0, ' ', 8, false, {}},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(testing::Message() << (row.text ? row.text : "null") << ' ' << row.size);
        Bytes room = Bytes().fill(row.room, 0xee);
        GxfBuffer buffer = room.emptyBuffer();
        EXPECT_EQ(buffer.encodePaddedString(row.text, row.size, row.pad), row.written);
        expectState(buffer, row.expected, 0);
        Bytes const whole = Bytes(row.expected).fill(row.room - row.expected.size(), 0xee);
        EXPECT_EQ(room, whole);
    }
}

TEST(GxfBuffer, MovesFromAWindowIntoAWindow) {
    Bytes from{1, 2, 3, 4};
    Bytes to = Bytes().fill(4, 0xee);
    GxfBuffer source = from.filledBuffer();
    GxfBuffer target = to.emptyBuffer();
    source.removeInput(1);
    target.encode<unsigned char>(9);
    EXPECT_TRUE(target.moveFrom(source, 2).success());
    expectState(source, {4}, 3);
    expectState(target, {9, 2, 3}, 0);
    EXPECT_EQ(to, (Bytes{9, 2, 3, 0xee}));
    EXPECT_EQ(from, (Bytes{1, 2, 3, 4}));
}

TEST(GxfBuffer, MovesNothingThatTheSourceDoesNotHold) {
    for (unsigned const n : {3U, 4U, 0x80000000U, 0xffffffffU}) {
        Bytes from{1, 2, 3};
        Bytes to = Bytes().fill(8, 0xee);
        GxfBuffer source = from.filledBuffer();
        source.removeInput(1);
        GxfBuffer window = to.emptyBuffer();
        GxfBuffer growing(nullAgent);
        AllocationLimit const limit(1000);
        MessageCapture const messages;
        for (GxfBuffer* const target : {&window, &growing}) {
            OpResult const result = target->moveFrom(source, n);
            EXPECT_EQ(result.getType(), 4);
            EXPECT_EQ(result.getCode(), 9);
            expectState(*target, {}, 0);
            expectState(source, {2, 3}, 1);
        }
        EXPECT_EQ(messages.count(MessageKind::Trace), 2U);
    }
}

TEST(GxfBuffer, MovesNothingIntoAWindowWithoutRoom) {
    Bytes from{1, 2, 3};
    Bytes to = Bytes().fill(3, 0xee);
    GxfBuffer source = from.filledBuffer();
    GxfBuffer target = to.emptyBuffer();
    target.encode<unsigned char>(9);
    OpResult const result = target.moveFrom(source, 3);
    EXPECT_EQ(result.getType(), 4);
    EXPECT_EQ(result.getCode(), 12);
    expectState(source, {1, 2, 3}, 0);
    expectState(target, {9}, 0);
    EXPECT_EQ(to, (Bytes{9, 0xee, 0xee}));
    EXPECT_TRUE(target.moveFrom(source, 2).success());
    expectState(target, {9, 1, 2}, 0);
    EXPECT_TRUE(target.moveFrom(source, 0).success());
    EXPECT_EQ(target.moveFrom(source, 1).getCode(), 12);
    expectState(source, {3}, 2);
}

TEST(GxfBuffer, AnEmptyGrowingBufferTakesOverTheStreamPosition) {
    Bytes from{1, 2, 3, 4, 5};
    GxfBuffer source = from.filledBuffer();
    source.reset(DataState::filled, 0x1'0000'0000ULL);
    source.removeInput(1);
    GxfBuffer target(nullAgent);
    EXPECT_TRUE(target.moveFrom(source, 2).success());
    expectState(target, {2, 3}, 0x1'0000'0001ULL);
    expectState(source, {4, 5}, 0x1'0000'0003ULL);
    // Bytes are there already: the position is theirs.
    source.reset(DataState::filled, 77);
    EXPECT_TRUE(target.moveFrom(source, 1).success());
    expectState(target, {2, 3, 1}, 0x1'0000'0001ULL);
    // Empty again, with the begin behind consumed bytes.
    target.removeInput(3);
    EXPECT_TRUE(target.moveFrom(source, 1).success());
    expectState(target, {2}, 78);
    target.removeInput(100);
    EXPECT_TRUE(target.moveFrom(source, 1).success());
    expectState(target, {3}, 79);
}

TEST(GxfBuffer, AWindowKeepsItsOwnStreamPosition) {
    Bytes from{1, 2};
    Bytes to = Bytes().fill(4);
    GxfBuffer source = from.filledBuffer();
    source.reset(DataState::filled, 50);
    GxfBuffer target = to.emptyBuffer();
    target.reset(DataState::empty, 10);
    EXPECT_TRUE(target.moveFrom(source, 2).success());
    expectState(target, {1, 2}, 10);
}

TEST(GxfBuffer, MovesBetweenBuffersThatGrow) {
    GxfBuffer source(nullAgent);
    append(source, Bytes{1}.fill(5000, 7));
    source.removeInput(1);
    GxfBuffer target(nullAgent);
    auto const allocations = allocationCount();
    EXPECT_TRUE(target.moveFrom(source, 4000).success());
    EXPECT_LE(allocationCount() - allocations, 1U);
    EXPECT_TRUE(target.moveFrom(source, 1000).success());
    expectState(target, Bytes().fill(5000, 7), 1);
    expectState(source, {}, 5001);
}

TEST(GxfBuffer, MovesNothingFromAnEmptyBuffer) {
    GxfBuffer source(nullAgent);
    GxfBuffer target(nullAgent);
    append(target, {1});
    EXPECT_TRUE(target.moveFrom(source, 0).success());
    EXPECT_EQ(target.moveFrom(source, 1).getCode(), 9);
    expectState(target, {1}, 0);
    expectState(source, {}, 0);
}

TEST(GxfBuffer, IsNeverMovedOntoItself) {
    GxfBuffer buffer(nullAgent);
    append(buffer, {1, 2});
    EXPECT_EQ(buffer.moveFrom(buffer, 1).getCode(), 7);
    expectState(buffer, {1, 2}, 0);
}

TEST(GxfBuffer, TakesOverAWindow) {
    Bytes bytes{1, 2, 3, 4};
    GxfBuffer other(bytes.data(), 4, DataState::empty, nullAgent);
    other.reset(DataState::empty, 20);
    other.addOccupied(3);
    other.removeInput(1);
    auto const arrays = liveArrays();
    {
        GxfBuffer buffer(nullAgent);
        append(buffer, {9, 9});
        buffer.replaceWith(other);
        EXPECT_EQ(liveArrays(), arrays);
        expectState(buffer, {2, 3}, 21);
        EXPECT_EQ(buffer.ptrBegin(), bytes.data() + 1);
        EXPECT_EQ(buffer.nUnoccupied(), 1U);
        EXPECT_FALSE(buffer.addOccupied(2));
        expectState(other, {}, 0);
        EXPECT_EQ(other.nUnoccupied(), 0U);
    }
    EXPECT_EQ(bytes, (Bytes{1, 2, 3, 4}));
}

TEST(GxfBuffer, TakesOverStorage) {
    auto const arrays = liveArrays();
    {
        Bytes bytes{1, 2};
        GxfBuffer window = bytes.filledBuffer();
        GxfBuffer other(nullAgent);
        append(other, {5, 6, 7});
        other.removeInput(1);
        unsigned char const* const storage = other.ptrBegin();
        window.replaceWith(other);
        expectState(window, {6, 7}, 1);
        EXPECT_EQ(window.ptrBegin(), storage);
        expectState(other, {}, 0);
        // The storage's owner may grow it, and the one left behind may get new storage.
        EXPECT_TRUE(window.addOutputZeros(100));
        EXPECT_TRUE(other.addOutputZeros(2));
        expectState(window, Bytes{6, 7}.fill(100), 1);
        expectState(other, {0, 0}, 0);
        EXPECT_EQ(bytes, (Bytes{1, 2}));
    }
    EXPECT_EQ(liveArrays(), arrays);
}

TEST(GxfBuffer, KeepsItsContentsWhenReplacedWithItself) {
    GxfBuffer buffer(nullAgent);
    append(buffer, {1, 2});
    buffer.removeInput(1);
    GxfBuffer& same = buffer;
    buffer.replaceWith(same);
    expectState(buffer, {2}, 1);
}

// Random operations, each done on a buffer and on a model of it.

/// A buffer as its contract describes it, without any storage.
struct Model {
    bool isWindow = false;
    std::uint64_t capacity = 0; ///< of a window
    std::uint64_t begin = 0;    ///< of a window
    std::uint64_t offset = 0;   ///< stream position of the next byte
    std::vector<unsigned char> bytes;

    std::uint64_t room() const { return capacity - begin - bytes.size(); }

    std::vector<unsigned char> take(std::uint64_t n) {
        auto const present = static_cast<std::size_t>(std::min<std::uint64_t>(n, bytes.size()));
        std::vector<unsigned char> taken(bytes.begin(),
                                         bytes.begin() + static_cast<std::ptrdiff_t>(present));
        bytes.erase(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(present));
        begin = n > present ? 0 : begin + n;
        offset += n;
        return taken;
    }

    void append(std::vector<unsigned char> const& more) {
        bytes.insert(bytes.end(), more.begin(), more.end());
    }
};

/// A buffer and its model.
class Twin {
  public:
    explicit Twin(std::mt19937& random) : m_random(random) {
        if (below(2) == 0) {
            buffer = std::make_unique<GxfBuffer>(nullAgent);
            return;
        }
        m_array.resize(below(80));
        fillRandom(m_array);
        bool const filled = below(2) == 0;
        buffer =
            std::make_unique<GxfBuffer>(m_array.data(), static_cast<unsigned>(m_array.size()),
                                        filled ? DataState::filled : DataState::empty, nullAgent);
        model.isWindow = true;
        model.capacity = m_array.size();
        if (filled) {
            model.bytes = m_array;
        }
    }

    void check() const {
        ASSERT_EQ(std::vector<unsigned char>(buffer->ptrBegin(), buffer->ptrEnd()), model.bytes);
        ASSERT_EQ(buffer->nOccupied(), model.bytes.size());
        ASSERT_EQ(buffer->beginOffset(), model.offset);
        if (model.isWindow) {
            ASSERT_EQ(buffer->nUnoccupied(), model.room());
        }
    }

    unsigned below(unsigned limit) {
        return std::uniform_int_distribution<unsigned>(0, limit - 1)(m_random);
    }

    std::uint64_t anyNumber() { return std::uint64_t{m_random()} << 32 | m_random(); }

    void remove() {
        std::uint64_t const n = below(20) == 0 ? anyNumber() >> below(64) : below(30);
        buffer->removeInput(n);
        model.take(n);
    }

    void decodeInteger() {
        auto const& row = decoderRows()[below(static_cast<unsigned>(decoderRows().size()))];
        std::size_t const width = row.values.size() - 1;
        std::uint64_t const value = row.decode(*buffer);
        std::vector<unsigned char> taken = model.take(width);
        taken.resize(width);
        // Least significant first is decided by the decoder's name.
        if (std::string(row.name).ends_with("Lsbf")) {
            std::reverse(taken.begin(), taken.end());
        }
        std::uint64_t expected = 0;
        for (unsigned char const byte : taken) {
            expected = expected * 256 + byte;
        }
        ASSERT_EQ(value, expected) << row.name;
    }

    void takeBytes() {
        unsigned char spare[13];
        unsigned char const* const bytes = buffer->takeBytes(spare);
        std::vector<unsigned char> taken = model.take(13);
        taken.resize(13);
        ASSERT_TRUE(std::equal(taken.begin(), taken.end(), bytes));
    }

    void decodeArray() {
        unsigned const n = below(40);
        if (below(2) == 0) {
            AutoArrayPtr<char> const text = buffer->decodeString(n);
            std::vector<unsigned char> taken = model.take(n);
            taken.push_back(0);
            ASSERT_EQ(std::memcmp(text.get(), taken.data(), taken.size()), 0);
        } else {
            AutoArrayPtr<unsigned char> const blob = buffer->decodeBlob(n);
            std::vector<unsigned char> taken = model.take(n);
            taken.resize(n);
            ASSERT_TRUE(std::equal(taken.begin(), taken.end(), blob.get()));
        }
    }

    void encodeInteger() {
        std::uint64_t const v = anyNumber();
        switch (below(9)) {
        case 0:
            return expectEncoded(1, v, false, [v](auto& b) {
                return b.template encode<unsigned char>(static_cast<unsigned char>(v));
            });
        case 1:
            return expectEncoded(2, v, false, [v](auto& b) {
                return b.template encode<unsigned short>(static_cast<unsigned short>(v));
            });
        case 2:
            return expectEncoded(4, v, false, [v](auto& b) {
                return b.template encode<unsigned int>(static_cast<unsigned>(v));
            });
        case 3:
            return expectEncoded(
                4, v, false, [v](auto& b) { return b.template encode<int>(static_cast<int>(v)); });
        case 4:
            return expectEncoded(8, v, false,
                                 [v](auto& b) { return b.template encode<unsigned long long>(v); });
        case 5:
            return expectEncoded(1, v, true, [v](auto& b) {
                return b.template encodeLsbf<unsigned char>(static_cast<unsigned char>(v));
            });
        case 6:
            return expectEncoded(2, v, true, [v](auto& b) {
                return b.template encodeLsbf<unsigned short>(static_cast<unsigned short>(v));
            });
        case 7:
            return expectEncoded(4, v, true, [v](auto& b) {
                return b.template encodeLsbf<unsigned int>(static_cast<unsigned>(v));
            });
        default:
            return expectEncoded(8, v, true, [v](auto& b) {
                return b.template encodeLsbf<double>(std::bit_cast<double>(v));
            });
        }
    }

    void encodeArray() {
        std::vector<unsigned char> blob(below(40));
        fillRandom(blob);
        bool const fits = blob.size() <= buffer->nUnoccupied();
        ASSERT_EQ(buffer->encodeBlob(blob.data() != nullptr ? blob.data() : &m_none,
                                     static_cast<unsigned>(blob.size())),
                  fits);
        if (fits) {
            model.append(blob);
        }
    }

    void encodeText() {
        std::string const text(below(20), 't');
        std::vector<unsigned char> written(text.begin(), text.end());
        written.push_back(0);
        bool done = false;
        if (below(2) == 0) {
            done = buffer->nUnoccupied() >= written.size();
            ASSERT_EQ(buffer->encodeString(text.c_str()), done);
        } else {
            unsigned const size = below(25);
            done = size <= buffer->nUnoccupied() && written.size() <= size;
            ASSERT_EQ(buffer->encodePaddedString(text.c_str(), size, 'p'), done);
            written.resize(std::max<std::size_t>(written.size(), size), 'p');
        }
        if (done) {
            model.append(written);
        }
    }

    void addZeros() {
        unsigned const n = below(60);
        bool const fits = !model.isWindow || n <= model.room();
        ASSERT_EQ(buffer->addOutputZeros(n), fits);
        if (fits) {
            model.append(std::vector<unsigned char>(n));
        }
    }

    void addOccupied() {
        std::vector<unsigned char> bytes(below(60));
        fillRandom(bytes);
        auto const n = static_cast<unsigned>(bytes.size());
        bool const fits = !model.isWindow || n <= model.room();
        ASSERT_EQ(below(2) == 0 ? buffer->addOccupied(n) : buffer->addOccupiedSlow(n), fits);
        if (fits) {
            std::copy(bytes.begin(), bytes.end(), buffer->ptrEnd() - n);
            model.append(bytes);
        }
    }

    void allow() {
        unsigned const n = below(100);
        bool const fits = !model.isWindow || n <= model.room();
        ASSERT_EQ(buffer->allowFor(n, below(2) == 0), fits);
        if (fits) {
            ASSERT_GE(buffer->nUnoccupied(), n);
        }
    }

    void moveFrom(Twin& source) {
        unsigned const n = below(60);
        OpResult const result = buffer->moveFrom(*source.buffer, n);
        if (n > source.model.bytes.size()) {
            ASSERT_EQ(result.getCode(), 9);
            return;
        }
        if (model.isWindow && n > model.room()) {
            ASSERT_EQ(result.getCode(), 12);
            return;
        }
        ASSERT_TRUE(result.success());
        if (model.bytes.empty() && !model.isWindow) {
            model.offset = source.model.offset;
        }
        model.append(source.model.take(n));
    }

    void replaceWith(Twin& other) {
        buffer->replaceWith(*other.buffer);
        model = other.model;
        other.model = Model();
        m_array.swap(other.m_array);
    }

    void reset() {
        std::uint64_t const offset = anyNumber();
        if (model.isWindow && below(2) == 0) {
            buffer->reset(DataState::filled, offset);
            model.bytes = m_array;
        } else if (below(4) != 0) {
            buffer->reset(DataState::empty, offset);
            model.bytes.clear();
        } else {
            buffer->reset(DataState::noData, offset);
            model = Model();
        }
        model.begin = 0;
        model.offset = offset;
    }

    std::unique_ptr<GxfBuffer> buffer;
    Model model;

  private:
    void fillRandom(std::vector<unsigned char>& bytes) {
        for (unsigned char& byte : bytes) {
            byte = static_cast<unsigned char>(below(256));
        }
    }

    template <typename Encode>
    void expectEncoded(unsigned size, std::uint64_t value, bool leastFirst, Encode encode) {
        bool const fits = size <= buffer->nUnoccupied();
        ASSERT_EQ(encode(*buffer), fits);
        if (!fits) {
            return;
        }
        std::vector<unsigned char> written;
        for (unsigned i = 0; i < size; ++i) {
            unsigned const shift = 8 * (leastFirst ? i : size - 1 - i);
            written.push_back(static_cast<unsigned char>(value >> shift));
        }
        model.append(written);
    }

    std::mt19937& m_random;
    std::vector<unsigned char> m_array;
    unsigned char m_none = 0;
};

void doSomething(Twin& twin, Twin& other) {
    switch (twin.below(13)) {
    case 0:
        return twin.remove();
    case 1:
    case 2:
        return twin.decodeInteger();
    case 3:
        return twin.below(4) == 0 ? twin.takeBytes() : twin.decodeArray();
    case 4:
    case 5:
        return twin.encodeInteger();
    case 6:
        return twin.encodeArray();
    case 7:
        return twin.encodeText();
    case 8:
        return twin.addZeros();
    case 9:
        return twin.addOccupied();
    case 10:
        return twin.allow();
    case 11:
        return twin.moveFrom(other);
    default:
        return twin.below(4) == 0 ? (twin.below(2) == 0 ? twin.replaceWith(other) : twin.reset())
                                  : twin.remove();
    }
}

TEST(GxfBuffer, BehavesAsItsModel) {
    for (unsigned seed = 0; seed < 300; ++seed) {
        std::mt19937 random(seed);
        Twin first(random);
        Twin second(random);
        for (unsigned step = 0; step < 150; ++step) {
            SCOPED_TRACE(testing::Message() << "seed " << seed << " step " << step);
            bool const swapped = first.below(2) == 0;
            doSomething(swapped ? second : first, swapped ? first : second);
            first.check();
            second.check();
            if (testing::Test::HasFatalFailure()) {
                return;
            }
        }
    }
}

} // namespace
