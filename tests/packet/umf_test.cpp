#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <testing/bytes.h>
#include <testing/capture.h>
#include <testing/stream_builder.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

using Chunk = UmfPacket::UmfPacketChunk;

/// A header as the wire could have it, with a value of its own in each field.
void setOddFields(Packet& packet, PacketType type) {
    packet.fileOffset = 0x0102030405060708;
    packet.leader = 0x11121314;
    packet.leaderMark = 0x21;
    packet.type = type;
    packet.length = 0x31323334;
    packet.reserved = 0x41424344;
    packet.trailerE1 = 0x51;
    packet.trailerE2 = 0x61;
}

void expectOddFields(Packet const& packet, PacketType type) {
    EXPECT_EQ(packet.fileOffset, 0x0102030405060708U);
    EXPECT_EQ(packet.leader, 0x11121314U);
    EXPECT_EQ(packet.leaderMark, 0x21U);
    EXPECT_EQ(packet.type, type);
    EXPECT_EQ(packet.length, 0x31323334U);
    EXPECT_EQ(packet.reserved, 0x41424344U);
    EXPECT_EQ(packet.trailerE1, 0x51U);
    EXPECT_EQ(packet.trailerE2, 0x61U);
}

} // namespace

TEST(UmfPacketChunk, NewChunk) {
    PacketPool pool;
    Chunk const chunk(pool);
    EXPECT_EQ(chunk.getType(), packetTypeInternalUmfChunk);
    EXPECT_EQ(chunk.getFileOffset(), 0U);
    EXPECT_EQ(chunk.length, 16U);
    EXPECT_FALSE(chunk.isValid());
    EXPECT_STREQ(chunk.toString().get(), "internalUmfChunk:16b@0,invalid");
}

TEST(UmfPacketChunk, FromAPacketHasItsHeader) {
    PacketPool pool;
    AutoRefPtr<Packet> const source = pool.alloc(packetTypeHeader);
    setOddFields(*source, packetTypeUmfFile);
    Chunk const chunk(*source);
    expectOddFields(chunk, packetTypeUmfFile);
}

TEST(UmfPacketChunk, ResetsAsAnyPacket) {
    PacketPool pool;
    Chunk chunk(pool);
    AutoRefPtr<Packet> const source = pool.alloc(packetTypeHeader);
    setOddFields(*source, packetTypeUmfFile);
    chunk.reset(*source);
    expectOddFields(chunk, packetTypeUmfFile);
    chunk.reset(packetTypeInternalUmfChunk);
    EXPECT_STREQ(chunk.toString().get(), "internalUmfChunk:16b@0,invalid");
    EXPECT_EQ(chunk.leader, 0U);
    EXPECT_EQ(chunk.leaderMark, 1U);
    EXPECT_EQ(chunk.reserved, 0U);
    EXPECT_EQ(chunk.trailerE1, 0xE1U);
    EXPECT_EQ(chunk.trailerE2, 0xE2U);
}

TEST(UmfPacketChunk, EncodesTheTypeOfAUmf) {
    PacketPool pool;
    Chunk chunk(pool);
    chunk.length = 16 + 5 + 32768;
    Bytes storage = Bytes().fill(16);
    GxfBuffer buffer = storage.emptyBuffer();
    EXPECT_TRUE(chunk.encode(buffer));
    EXPECT_EQ(Bytes::occupied(buffer),
              (Bytes{0, 0, 0, 0, 1, 0xFD, 0, 0, 0x80, 0x15, 0, 0, 0, 0, 0xE1, 0xE2}));
    EXPECT_EQ(chunk.getType(), packetTypeInternalUmfChunk);

    // Nothing maps the type back.
    GxfBuffer written = storage.filledBuffer();
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    EXPECT_TRUE(header->decode(written));
    EXPECT_TRUE(header->isValid());
    EXPECT_EQ(header->getType(), packetTypeUmfFile);
}

TEST(UmfPacketChunk, EncodeWithoutRoom) {
    PacketPool pool;
    Chunk const chunk(pool);
    Bytes storage = Bytes().fill(15);
    GxfBuffer buffer = storage.emptyBuffer();
    OpResult const result = chunk.encode(buffer);
    EXPECT_FALSE(result);
    EXPECT_EQ(result.getCode(), 12);
    EXPECT_EQ(buffer.nOccupied(), 0U);
}

TEST(UmfPacketChunk, IsNeverDecoded) {
    PacketPool pool;
    Chunk chunk(pool);
    chunk.length = 24;
    Bytes bytes = Bytes().fill(8, 1);
    GxfBuffer buffer = bytes.filledBuffer();
    MessageCapture const capture;
    ChannelSetting const level(gxfDecodeDetail, 9);
    OpResult const result = chunk.decode(buffer);
    EXPECT_FALSE(result);
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), 14);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().function, "decode");
    EXPECT_EQ(buffer.nOccupied(), 8U);
    EXPECT_THAT(capture.texts(MessageKind::Trace),
                ElementsAre(MatchesRegex("error unimplemented \\(decode, umf[a-z_]*\\.(h|cpp):"
                                         "[0-9]+\\)\n")));
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(UmfPacketChunk, EqualsNothing) {
    PacketPool pool;
    Chunk const chunk(pool);
    Chunk const other(pool);
    MessageCapture const capture;
    EXPECT_FALSE(chunk.isEqual(chunk));
    EXPECT_FALSE(chunk.isEqual(other));
    auto const raised =
        MatchesRegex("error unimplemented \\(isEqual, umf[a-z_]*\\.(h|cpp):[0-9]+\\)\n");
    EXPECT_THAT(capture.texts(MessageKind::Trace), ElementsAre(raised, raised));
}

TEST(UmfPacketChunk, AnswersAsTheBase) {
    PacketPool pool;
    Chunk chunk(pool);
    chunk.length = 100;
    Bytes bytes{0};
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_FALSE(chunk.needsAllData(buffer));
    EXPECT_EQ(chunk.getAutoHdrPtr().get(), nullptr);
    EXPECT_EQ(chunk.getCodedLength(), 100U);
    EXPECT_EQ(chunk.getPayloadLength(), 84U);
    EXPECT_EQ(chunk.getPart1Length(), 84U);
    EXPECT_EQ(chunk.getPart2Length(), 0U);
    EXPECT_EQ(chunk.calcLength(), 100U);
    EXPECT_EQ(chunk.getPacketOrder(), umfPacketOrderUninit);
    EXPECT_EQ(chunk.getUmfPacket().get(), nullptr);
    EXPECT_EQ(chunk.getMapPacket().get(), nullptr);
}

TEST(UmfPacketChunk, ComesFromThePool) {
    PacketPool pool;
    Packet* first = nullptr;
    {
        AutoRefPtr<Packet> const chunk = pool.alloc(packetTypeInternalUmfChunk);
        ASSERT_NE(dynamic_cast<Chunk*>(chunk.get()), nullptr);
        first = chunk.get();
        first->length = 99;
    }
    AutoRefPtr<Packet> const again = pool.alloc(packetTypeInternalUmfChunk);
    EXPECT_EQ(again.get(), first);
    EXPECT_EQ(again->length, 16U);
}
