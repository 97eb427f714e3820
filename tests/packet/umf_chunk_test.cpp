#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <testing/bytes.h>
#include <testing/capture.h>
#include <testing/stream_builder.h>
#include <testing/umf_builder.h>

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

void expectError(OpResult const& result, int code) {
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), code);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().function, "encode");
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
    EXPECT_STREQ(chunk.preamble.toString().get(), "Uninit,payloadLen=0");
    EXPECT_FALSE(chunk.preamble.valid);
    EXPECT_EQ(chunk.payloadLength, 0U);
    EXPECT_EQ(chunk.padLength, 0U);
    EXPECT_FALSE(chunk.initialised);
}

TEST(UmfPacketChunk, FromAPacketHasItsHeader) {
    PacketPool pool;
    AutoRefPtr<Packet> const source = pool.alloc(packetTypeHeader);
    setOddFields(*source, packetTypeUmfFile);
    Chunk const chunk(*source);
    expectOddFields(chunk, packetTypeUmfFile);
    EXPECT_STREQ(chunk.preamble.toString().get(), "Uninit,payloadLen=0");
    EXPECT_EQ(chunk.payloadLength, 0U);
    EXPECT_EQ(chunk.padLength, 0U);
    EXPECT_FALSE(chunk.initialised);
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

TEST(UmfPacketChunk, InitCountsFragmentAndPadding) {
    struct Row {
        UmfPacketOrder order;
        unsigned fragment;
        unsigned pad;
        unsigned length;
    };
    constexpr Row rows[] = {
        {umfPacketOrderFirst, 0, 3, 24},          {umfPacketOrderMiddle, 1, 2, 24},
        {umfPacketOrderLast, 2, 1, 24},           {umfPacketOrderOnly, 3, 0, 24},
        {umfPacketOrderFirst, 4, 3, 28},          {umfPacketOrderOnly, 104, 3, 128},
        {umfPacketOrderMiddle, 32767, 0, 32788},  {umfPacketOrderFirst, 32768, 3, 32792},
        {umfPacketOrderFirst, 0xFFFFFFFF, 0, 20},
    };
    PacketPool pool;
    for (Row const& row : rows) {
        SCOPED_TRACE(row.fragment);
        Chunk chunk(pool);
        chunk.init(row.order, row.fragment);
        EXPECT_EQ(chunk.preamble.packetOrder, row.order);
        EXPECT_EQ(chunk.preamble.payloadLength, row.fragment);
        EXPECT_TRUE(chunk.preamble.valid);
        EXPECT_EQ(chunk.payloadLength, row.fragment);
        EXPECT_EQ(chunk.padLength, row.pad);
        EXPECT_EQ(chunk.length, row.length);
        EXPECT_TRUE(chunk.initialised);
    }
}

TEST(UmfPacketChunk, ResetsTakeBackTheInitButNotThePreamble) {
    PacketPool pool;
    AutoRefPtr<Packet> const source = pool.alloc(packetTypeHeader);
    for (bool const byType : {false, true}) {
        Chunk chunk(pool);
        chunk.init(umfPacketOrderLast, 4);
        if (byType) {
            chunk.reset(packetTypeInternalUmfChunk);
        } else {
            chunk.reset(*source);
        }
        EXPECT_EQ(chunk.payloadLength, 0U);
        EXPECT_EQ(chunk.padLength, 0U);
        EXPECT_FALSE(chunk.initialised);
        EXPECT_STREQ(chunk.preamble.toString().get(), "Last,payloadLen=4");
        Bytes bytes = Bytes().fill(4);
        GxfBuffer payload = bytes.filledBuffer();
        Bytes storage = Bytes().fill(40);
        GxfBuffer out = storage.emptyBuffer();
        expectError(chunk.encode(out, payload), 7);
    }
}

TEST(UmfPacketChunk, EncodesAPacketAndTakesItsFragment) {
    PacketPool pool;
    Chunk chunk(pool);
    Bytes bytes{1, 2, 3, 4, 5, 6, 7, 8, 9};
    GxfBuffer payload = bytes.filledBuffer();
    Bytes storage = Bytes().fill(52, 0xAA);
    GxfBuffer out = storage.emptyBuffer();
    chunk.init(umfPacketOrderFirst, 5);
    EXPECT_TRUE(chunk.encode(out, payload));
    EXPECT_EQ(Bytes::occupied(out), (Bytes{0,    0,    0, 0, 1, 0xFD, 0, 0, 0, 28, 0, 0, 0, 0,
                                           0xE1, 0xE2, 1, 0, 0, 0,    5, 1, 2, 3,  4, 5, 0, 0}));
    EXPECT_EQ(Bytes::occupied(payload), (Bytes{6, 7, 8, 9}));

    // The same chunk again, to the last byte of both.
    chunk.init(umfPacketOrderLast, 3);
    EXPECT_TRUE(chunk.encode(out, payload));
    EXPECT_EQ(Bytes::occupied(out), umfPacket(1, {1, 2, 3, 4, 5}).add(umfPacket(2, {6, 7, 8})));
    EXPECT_EQ(Bytes::occupied(payload), Bytes{9});
    EXPECT_EQ(out.nUnoccupied(), 0U);
}

TEST(UmfPacketChunk, EncodeFailures) {
    struct Row {
        char const* name;
        bool initialised;
        unsigned room;
        unsigned payloadBytes;
        unsigned length; ///< instead of what init() counted; 0 for that
        int code;
        unsigned written;
    };
    // A chunk of 5 bytes takes 28.
    constexpr Row rows[] = {
        {"before init", false, 100, 100, 0, 7, 0},
        {"one byte short of room", true, 27, 100, 0, 12, 0},
        {"no room", true, 0, 100, 0, 12, 0},
        {"one byte short of payload", true, 28, 4, 0, 12, 0},
        {"no payload", true, 28, 0, 0, 12, 0},
        {"header without room", true, 15, 5, 1, 12, 0},
        {"preamble without room", true, 20, 5, 1, 12, 16},
        {"fragment without room", true, 25, 5, 1, 13, 21},
        {"padding without room", true, 27, 5, 1, 13, 26},
    };
    PacketPool pool;
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        Chunk chunk(pool);
        if (row.initialised) {
            chunk.init(umfPacketOrderOnly, 5);
        }
        if (row.length != 0) {
            chunk.length = row.length;
        }
        Bytes bytes = Bytes().fill(row.payloadBytes, 7);
        GxfBuffer payload = bytes.filledBuffer();
        Bytes storage = Bytes().fill(row.room);
        GxfBuffer out = storage.emptyBuffer();
        expectError(chunk.encode(out, payload), row.code);
        EXPECT_EQ(out.nOccupied(), row.written);
        EXPECT_EQ(payload.nOccupied(), row.payloadBytes);
    }
}

TEST(UmfPacketChunk, NothingFromAPayloadWithoutStorage) {
    PacketPool pool;
    Chunk chunk(pool);
    chunk.init(umfPacketOrderOnly, 0);
    GxfBuffer payload{MediaAgent(nullptr)};
    Bytes storage = Bytes().fill(24);
    GxfBuffer out = storage.emptyBuffer();
    expectError(chunk.encode(out, payload), 13);
}
