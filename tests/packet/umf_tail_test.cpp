#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <testing/bytes.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::IsEmpty;

namespace {

using Index = UmfPacket::UmfIndex;
using Filler = UmfPacket::UmfFillerData;

Bytes indexBytes() {
    return {0x01, 0x81, 0x02, 0x82, 0x03, 0x83, 0x04, 0x84,
            0x05, 0x85, 0x06, 0x86, 0x07, 0x87, 0x08, 0x88};
}

Index filledIndex() {
    Index index;
    Bytes bytes = indexBytes();
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_TRUE(index.decode(buffer, 16));
    return index;
}

void expectFailure(OpResult const& result, int code, std::string const& text) {
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), code);
    EXPECT_EQ(result.getText(), text);
}

void expectPlace(OpResult const& result, char const* function) {
    EXPECT_STREQ(result.getLocation().file, "umf_tail.cpp");
    EXPECT_STREQ(result.getLocation().function, function);
}

} // namespace

TEST(UmfIndex, New) {
    Index const index;
    for (unsigned const word : index.words) {
        EXPECT_EQ(word, 0U);
    }
    EXPECT_FALSE(index.valid);
    EXPECT_EQ(index.size(), 0U);
    EXPECT_EQ(index.getXmlLength(), 0U);
}

TEST(UmfIndex, DecodesEightWords) {
    Index index;
    Bytes bytes = indexBytes().u8(0x77);
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_EQ(index.decode(buffer, 16).getType(), OpResult::Ok);
    EXPECT_EQ(buffer.nOccupied(), 1U);
    for (unsigned i = 0; i < 8; ++i) {
        EXPECT_EQ(index.words[i], 0x8101U + i * 0x0101U);
    }
    EXPECT_TRUE(index.valid);
    EXPECT_EQ(index.size(), 16U);
    EXPECT_EQ(index.getXmlLength(), 0x8505U);
}

TEST(UmfIndex, SizesThatFail) {
    struct Row {
        unsigned present;
        unsigned size;
        int code;
        char const* text;
    };
    constexpr Row rows[] = {
        {15, 15, 10, "UMF index size 15b != 16b"},
        {17, 17, 10, "UMF index size 17b != 16b"},
        {16, 15, 10, "UMF index size 15b != 16b"},
        {20, 17, 10, "UMF index size 17b != 16b"},
        {0, 0, 10, "UMF index size 0b != 16b"},
        {16, 0, 10, "UMF index size 0b != 16b"},
        {32, 32, 10, "UMF index size 32b != 16b"},
        {14, 15, 9, ""},
        {16, 17, 9, ""},
        {15, 16, 9, ""},
        {0, 16, 9, ""},
        {1, 16, 9, ""},
        {40, 0xFFFFFFFF, 9, ""},
        {40, 0x10000010, 9, ""},
    };
    for (Row const& row : rows) {
        for (bool const wasValid : {true, false}) {
            Index index = filledIndex();
            index.valid = wasValid;
            Index const before = index;
            Bytes bytes = Bytes().fill(row.present, 0x33);
            GxfBuffer buffer = bytes.filledBuffer();
            OpResult const result = index.decode(buffer, row.size);
            expectFailure(result, row.code, row.text);
            if (row.code == 9) {
                expectPlace(result, "decode");
            }
            EXPECT_TRUE(index.isEqual(before));
            EXPECT_EQ(buffer.nOccupied(), row.present);
        }
    }
}

TEST(UmfIndex, EncodesEightWords) {
    Index index = filledIndex();
    Bytes storage = Bytes().fill(17, 0xAA);
    GxfBuffer out = storage.emptyBuffer();
    EXPECT_EQ(index.encode(out).getType(), OpResult::Ok);
    EXPECT_EQ(Bytes::occupied(out), indexBytes());

    index.setXmlOffset(0x1234);
    index.setXmlLength(0x5678);
    EXPECT_EQ(index.getXmlLength(), 0x5678U);
    GxfBuffer again = storage.emptyBuffer();
    EXPECT_TRUE(index.encode(again));
    EXPECT_EQ(Bytes::occupied(again), (Bytes{0x01, 0x81, 0x02, 0x82, 0x34, 0x12, 0x04, 0x84, 0x78,
                                             0x56, 0x06, 0x86, 0x07, 0x87, 0x08, 0x88}));
}

TEST(UmfIndex, EncodeWithoutRoom) {
    for (unsigned room = 0; room < 16; ++room) {
        Bytes storage = Bytes().fill(16, 0xAA);
        GxfBuffer out(storage.data(), room, GxfBuffer::DataState::empty, MediaAgent(nullptr));
        OpResult const result = filledIndex().encode(out);
        expectFailure(result, 12, "");
        expectPlace(result, "encode");
        EXPECT_EQ(out.nOccupied(), 0U);
        EXPECT_EQ(storage, Bytes().fill(16, 0xAA));
    }
}

TEST(UmfIndex, DiscardedKeepsItsWordsAndWritesNothing) {
    Index index = filledIndex();
    index.discard();
    EXPECT_FALSE(index.valid);
    EXPECT_EQ(index.size(), 0U);
    EXPECT_EQ(index.getXmlLength(), 0x8505U);
    EXPECT_EQ(index.words[0], 0x8101U);
    EXPECT_EQ(index.words[7], 0x8808U);
    index.setXmlLength(7);
    EXPECT_EQ(index.getXmlLength(), 7U);
    EXPECT_EQ(index.size(), 0U);
    GxfBuffer out{MediaAgent(nullptr)};
    EXPECT_EQ(index.encode(out).getType(), OpResult::Ok);
    EXPECT_EQ(out.nOccupied(), 0U);
}

TEST(UmfIndex, EqualByWordsAndValidity) {
    Index const index = filledIndex();
    EXPECT_TRUE(index.isEqual(filledIndex()));
    EXPECT_TRUE(Index().isEqual(Index()));
    for (unsigned i = 0; i < 8; ++i) {
        Index other = index;
        other.words[i] ^= 0x8000U;
        EXPECT_FALSE(index.isEqual(other));
        EXPECT_FALSE(other.isEqual(index));
    }
    Index other = index;
    other.discard();
    EXPECT_FALSE(index.isEqual(other));
    EXPECT_FALSE(other.isEqual(index));
}

TEST(UmfIndex, CodersAreSilent) {
    ChannelSetting const decodeLevel(gxfDecodeDetail, 9);
    ChannelSetting const encodeLevel(gxfEncodeDetail, 9);
    MessageCapture const capture;
    Bytes storage = Bytes().fill(16);
    GxfBuffer out = storage.emptyBuffer();
    Index index = filledIndex();
    EXPECT_TRUE(index.encode(out));
    EXPECT_TRUE(index.decode(out, 16));
    EXPECT_THAT(capture.texts(), IsEmpty());
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(UmfFillerData, CountsBytes) {
    Filler filler;
    EXPECT_EQ(filler.fillBytes, 0U);
    EXPECT_EQ(filler.size(), 0U);
    filler.addFillBytes(5);
    filler.addFillBytes(7);
    EXPECT_EQ(filler.size(), 12U);
    filler.addFillBytes(0xFFFFFFFF);
    EXPECT_EQ(filler.fillBytes, 11U);
    filler.erase();
    EXPECT_EQ(filler.size(), 0U);
}

TEST(UmfFillerData, WritesZeros) {
    for (unsigned n = 0; n <= 9; ++n) {
        Filler filler;
        filler.addFillBytes(n);
        Bytes storage = Bytes().fill(10, 0xAA);
        GxfBuffer out = storage.emptyBuffer();
        out.encode<unsigned char>(0x77);
        EXPECT_EQ(filler.encode(out).getType(), OpResult::Ok);
        EXPECT_EQ(storage, Bytes{0x77}.fill(n).fill(9 - n, 0xAA));
        EXPECT_EQ(out.nOccupied(), n + 1);
        EXPECT_EQ(filler.size(), n);
    }
}

TEST(UmfFillerData, NoBytesNeedNoStorage) {
    GxfBuffer out{MediaAgent(nullptr)};
    MessageCapture const capture;
    EXPECT_EQ(Filler().encode(out).getType(), OpResult::Ok);
    EXPECT_EQ(out.nOccupied(), 0U);
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(UmfFillerData, EncodeWithoutRoom) {
    for (unsigned const n : {9U, 10U, 0x80000000U, 0xFFFFFFFFU}) {
        Filler filler;
        filler.addFillBytes(n);
        Bytes storage = Bytes().fill(8, 0xAA);
        GxfBuffer out = storage.emptyBuffer();
        OpResult const result = filler.encode(out);
        expectFailure(result, 12, "");
        expectPlace(result, "encode");
        EXPECT_EQ(out.nOccupied(), 0U);
        EXPECT_EQ(storage, Bytes().fill(8, 0xAA));
        // A buffer that could grow has no room either.
        GxfBuffer growing{MediaAgent(nullptr)};
        expectFailure(filler.encode(growing), 12, "");
        EXPECT_EQ(growing.nOccupied(), 0U);
    }
}

TEST(UmfFillerData, SurvivesRecycling) {
    PacketPool pool;
    UmfPacket const* first = nullptr;
    {
        AutoRefPtr<UmfPacket> const umf = pool.alloc(packetTypeUmfFile)->getUmfPacket();
        EXPECT_EQ(umf->fillerData.size(), 0U);
        umf->addFillerBytes(40);
        first = umf.get();
    }
    AutoRefPtr<UmfPacket> const again = pool.alloc(packetTypeUmfFile)->getUmfPacket();
    EXPECT_EQ(again.get(), first);
    EXPECT_EQ(again->fillerData.size(), 40U);
}
