#include <cstring>
#include <limits>
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

/// The trace of an error that was raised in a function of the frame.
auto raised(std::string const& codeName, std::string const& function) {
    return MatchesRegex("error " + codeName + " \\(" + function + ", gxf\\.cpp:[0-9]+\\)\n");
}

void expectError(OpResult const& result, int code, char const* function) {
    EXPECT_FALSE(result);
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), code);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().file, "gxf.cpp");
    EXPECT_STREQ(result.getLocation().function, function);
}

/// The least that a class of packets must have: all else is the base's.
class BarePacket : public Packet {
  public:
    BarePacket(PacketType packetType, PacketPool& owner) : Packet(packetType, owner) {}
    explicit BarePacket(Packet& source) : Packet(source) {}

    void reset(Packet const& source) override { resetPrivate(source); }
    void reset(PacketType newType) override { resetPrivate(newType); }
    OpResult decode(GxfBuffer&) override { return OpResult::Ok; }
    bool isEqual(Packet const&) const override { return false; }
};

PacketType typeOf(unsigned value) { return static_cast<PacketType>(value); }

void setOddFields(Packet& packet) {
    packet.fileOffset = 0x0102030405060708;
    packet.leader = 0x11121314;
    packet.leaderMark = 0x21;
    packet.type = packetTypeMap;
    packet.length = 0x31323334;
    packet.reserved = 0x41424344;
    packet.trailerE1 = 0x51;
    packet.trailerE2 = 0x61;
}

void expectOddFields(Packet const& packet) {
    EXPECT_EQ(packet.fileOffset, 0x0102030405060708U);
    EXPECT_EQ(packet.leader, 0x11121314U);
    EXPECT_EQ(packet.leaderMark, 0x21U);
    EXPECT_EQ(packet.type, packetTypeMap);
    EXPECT_EQ(packet.length, 0x31323334U);
    EXPECT_EQ(packet.reserved, 0x41424344U);
    EXPECT_EQ(packet.trailerE1, 0x51U);
    EXPECT_EQ(packet.trailerE2, 0x61U);
}

void expectNewFields(Packet const& packet, PacketType type) {
    EXPECT_EQ(packet.fileOffset, 0U);
    EXPECT_EQ(packet.leader, 0U);
    EXPECT_EQ(packet.leaderMark, 1U);
    EXPECT_EQ(packet.type, type);
    EXPECT_EQ(packet.length, 16U);
    EXPECT_EQ(packet.reserved, 0U);
    EXPECT_EQ(packet.trailerE1, 0xE1U);
    EXPECT_EQ(packet.trailerE2, 0xE2U);
}

std::string textOfPacket(Packet const& packet) { return packet.toString().get(); }

} // namespace

TEST(Packet, NewPacketHasTheFieldsOfItsType) {
    PacketPool pool;
    BarePacket const packet(packetTypeReserved, pool);
    expectNewFields(packet, packetTypeReserved);
}

TEST(Packet, PacketFromASourceHasItsFieldsAndNoReference) {
    PacketPool pool;
    BarePacket source(packetTypeReserved, pool);
    setOddFields(source);
    BarePacket packet(static_cast<Packet&>(source));
    expectOddFields(packet);

    MessageCapture const capture;
    EXPECT_EQ(packet.preserve(), 1);
    EXPECT_EQ(packet.preserve(), 2);
    EXPECT_EQ(packet.release(), 1);
    packet.type = packetTypeReserved; // nobody's slot
    EXPECT_EQ(packet.release(), 0);
}

TEST(Packet, ResetByTypeSetsEveryHeaderField) {
    PacketPool pool;
    for (unsigned const type : {0U, 188U, 191U, 250U, 251U, 252U, 253U, 256U, 0xFFFFFFFFU}) {
        BarePacket packet(packetTypeReserved, pool);
        setOddFields(packet);
        packet.reset(typeOf(type));
        expectNewFields(packet, typeOf(type));
    }
}

TEST(Packet, ResetBySourceCopiesEveryHeaderField) {
    PacketPool pool;
    BarePacket source(packetTypeReserved, pool);
    setOddFields(source);
    BarePacket packet(packetTypeEos, pool);
    packet.reset(source);
    expectOddFields(packet);
}

TEST(Packet, ResetLeavesTheCount) {
    PacketPool pool;
    AutoRefPtr<Packet> const packet = pool.alloc(packetTypeEos);
    AutoRefPtr<Packet> const model = pool.alloc(packetTypeEos);
    EXPECT_EQ(packet->preserve(), 2);
    packet->reset(packetTypeEos);
    EXPECT_EQ(packet->preserve(), 3);
    packet->reset(*model);
    EXPECT_EQ(packet->release(), 2);
    EXPECT_EQ(packet->release(), 1);
}

TEST(Packet, ValidTypes) {
    for (unsigned value = 0; value <= 1000; ++value) {
        bool const expected = value == 188 || value == 191 || (value >= 250 && value <= 255);
        EXPECT_EQ(Packet::isValid(typeOf(value)), expected) << value;
    }
    for (unsigned const value : {0x80000000U, 0xFFFFFFFFU, 0x100U + 188U, 0x10000U + 251U}) {
        EXPECT_FALSE(Packet::isValid(typeOf(value))) << value;
    }
}

TEST(Packet, EveryHeaderFieldCountsForValidity) {
    PacketPool pool;
    auto const isValidWith = [&](auto change) {
        BarePacket packet(packetTypeReserved, pool);
        change(packet);
        return packet.isValid();
    };
    EXPECT_TRUE(isValidWith([](Packet&) {}));
    EXPECT_TRUE(isValidWith([](Packet& packet) { packet.fileOffset = ~0ULL; }));
    EXPECT_TRUE(isValidWith([](Packet& packet) { packet.length = 0xFFFFFFFF; }));
    EXPECT_TRUE(isValidWith([](Packet& packet) { packet.length = 17; }));
    EXPECT_FALSE(isValidWith([](Packet& packet) { packet.length = 15; }));
    EXPECT_FALSE(isValidWith([](Packet& packet) { packet.length = 0; }));
    EXPECT_FALSE(isValidWith([](Packet& packet) { packet.type = packetTypeHeader; }));
    EXPECT_FALSE(isValidWith([](Packet& packet) { packet.type = packetTypeInternalUmfChunk; }));
    EXPECT_FALSE(isValidWith([](Packet& packet) { packet.leaderMark = 0; }));
    EXPECT_FALSE(isValidWith([](Packet& packet) { packet.leaderMark = 2; }));
    EXPECT_FALSE(isValidWith([](Packet& packet) { packet.leader = 1; }));
    EXPECT_FALSE(isValidWith([](Packet& packet) { packet.leader = 0x80000000; }));
    EXPECT_FALSE(isValidWith([](Packet& packet) { packet.reserved = 1; }));
    EXPECT_FALSE(isValidWith([](Packet& packet) { packet.reserved = 0x80000000; }));
    EXPECT_FALSE(isValidWith([](Packet& packet) { packet.trailerE1 = 0xE2; }));
    EXPECT_FALSE(isValidWith([](Packet& packet) { packet.trailerE2 = 0xE1; }));
}

TEST(Packet, BaseAnswers) {
    PacketPool pool;
    BarePacket packet(packetTypeReserved, pool);
    Bytes bytes{0};
    GxfBuffer buffer(bytes.data(), 1, GxfBuffer::DataState::filled, MediaAgent(nullptr));
    EXPECT_EQ(packet.getAutoHdrPtr().get(), nullptr);
    EXPECT_FALSE(packet.needsAllData(buffer));
    packet.length = 100;
    EXPECT_EQ(packet.getCodedLength(), 100U);
    EXPECT_EQ(packet.getPayloadLength(), 84U);
    EXPECT_EQ(packet.getPart1Length(), 84U);
    EXPECT_EQ(packet.getPart2Length(), 0U);
    EXPECT_EQ(packet.calcLength(), 100U);
    packet.length = 15;
    EXPECT_EQ(packet.getPayloadLength(), 0xFFFFFFFFU);
    EXPECT_EQ(packet.getPart1Length(), 0xFFFFFFFFU);
    EXPECT_EQ(static_cast<std::uint32_t>(packet.getPacketOrder()), 0xFFFFFFFFU);
    EXPECT_STREQ(getName(packet.getPacketOrder()), "Uninit");
    EXPECT_EQ(packet.getMapPacket().get(), nullptr);
    EXPECT_EQ(packet.getMediaPacket().get(), nullptr);
    EXPECT_EQ(packet.getUmfPacket().get(), nullptr);
    EXPECT_EQ(packet.getFltPacket().get(), nullptr);
    EXPECT_EQ(packet.getEosPacket().get(), nullptr);
}

TEST(Packet, RecalcOffsetSetsThePosition) {
    PacketPool pool;
    for (unsigned const type : {0U, 188U, 191U, 251U, 252U, 253U, 256U}) {
        AutoRefPtr<Packet> const packet = pool.alloc(typeOf(type));
        packet->recalcOffset(0xFEDCBA9876543210);
        EXPECT_EQ(packet->getFileOffset(), 0xFEDCBA9876543210U);
        EXPECT_EQ(packet->fileOffset, 0xFEDCBA9876543210U);
        EXPECT_EQ(packet->getType(), typeOf(type));
        EXPECT_EQ(packet->length, 16U);
    }
}

TEST(Packet, LengthsOfEveryClass) {
    struct Row {
        unsigned type;
        std::uint32_t length;
        std::uint32_t payload;
        std::uint32_t part1;
        std::uint32_t part2;
    };
    // Lengths below 16 and payloads below the fixed description wrap.
    constexpr Row rows[] = {
        {0, 0, 0xFFFFFFF0, 0xFFFFFFF0, 0},
        {0, 16, 0, 0, 0},
        {0, 100, 84, 84, 0},
        {0, 0xFFFFFFFF, 0xFFFFFFEF, 0xFFFFFFEF, 0},
        {256, 15, 0xFFFFFFFF, 0xFFFFFFFF, 0},
        {256, 16, 0, 0, 0},
        {256, 32789, 32773, 32773, 0},
        {251, 0, 0, 0, 0},
        {251, 16, 0, 0, 0},
        {251, 100, 0, 0, 0},
        {251, 0xFFFFFFFF, 0, 0, 0},
        {188, 0, 0xFFFFFFF0, 2, 0xFFFFFFEE},
        {188, 16, 0, 2, 0xFFFFFFFE},
        {188, 17, 1, 2, 0xFFFFFFFF},
        {188, 18, 2, 2, 0},
        {188, 100, 84, 2, 82},
        {188, 0xFFFFFFFF, 0xFFFFFFEF, 2, 0xFFFFFFED},
        {252, 0, 0xFFFFFFF0, 8, 0xFFFFFFE8},
        {252, 16, 0, 8, 0xFFFFFFF8},
        {252, 23, 7, 8, 0xFFFFFFFF},
        {252, 24, 8, 8, 0},
        {252, 100, 84, 8, 76},
        {252, 0xFFFFFFFF, 0xFFFFFFEF, 8, 0xFFFFFFE7},
        {191, 0, 0xFFFFFFF0, 80, 0xFFFFFFA0},
        {191, 16, 0, 80, 0xFFFFFFB0},
        {191, 95, 79, 80, 0xFFFFFFFF},
        {191, 96, 80, 80, 0},
        {191, 100, 84, 80, 4},
        {191, 0xFFFFFFFF, 0xFFFFFFEF, 80, 0xFFFFFF9F},
        {253, 0, 0xFFFFFFF0, 5, 0},
        {253, 16, 0, 5, 0},
        {253, 32792, 32776, 5, 0},
        {253, 0xFFFFFFFF, 0xFFFFFFEF, 5, 0},
    };
    PacketPool pool;
    for (Row const& row : rows) {
        SCOPED_TRACE(testing::Message() << row.type << ", " << row.length);
        AutoRefPtr<Packet> const packet = pool.alloc(typeOf(row.type));
        packet->length = row.length;
        EXPECT_EQ(packet->getCodedLength(), row.length);
        EXPECT_EQ(packet->getPayloadLength(), row.payload);
        EXPECT_EQ(packet->getPart1Length(), row.part1);
        EXPECT_EQ(packet->getPart2Length(), row.part2);
        // That of a UMF counts its content: the two descriptions that it always has, 104 bytes.
        EXPECT_EQ(packet->calcLength(), row.type == 253 ? 16 + 5 + 104 + 3 : row.length);
    }
}

TEST(Packet, WhoNeedsAllData) {
    struct Row {
        unsigned type;
        unsigned firstByte;
        bool expected;
    };
    constexpr Row rows[] = {
        {0, 7, false},   {188, 0, true}, {252, 0, true},  {251, 7, false},  {253, 0, true},
        {256, 7, false}, {191, 7, true}, {191, 9, false}, {191, 11, false},
    };
    PacketPool pool;
    for (Row const& row : rows) {
        Bytes bytes{row.firstByte};
        GxfBuffer buffer = bytes.filledBuffer();
        EXPECT_EQ(pool.alloc(typeOf(row.type))->needsAllData(buffer), row.expected)
            << row.type << ", " << row.firstByte;
        EXPECT_EQ(buffer.nOccupied(), 1U);
    }
}

TEST(Packet, TypedPointers) {
    PacketPool pool;
    for (unsigned const type : {0U, 188U, 191U, 251U, 252U, 253U, 256U}) {
        SCOPED_TRACE(type);
        AutoRefPtr<Packet> const packet = pool.alloc(typeOf(type));
        Packet* const none = nullptr;
        Packet* const self = packet.get();
        EXPECT_EQ(packet->getMapPacket().get(), type == 188 ? self : none);
        EXPECT_EQ(packet->getMediaPacket().get(), type == 191 ? self : none);
        EXPECT_EQ(packet->getUmfPacket().get(), type == 253 ? self : none);
        EXPECT_EQ(packet->getFltPacket().get(), type == 252 ? self : none);
        EXPECT_EQ(packet->getEosPacket().get(), type == 251 ? self : none);
        EXPECT_EQ(packet->getPacketOrder(), umfPacketOrderUninit);
    }
}

TEST(Packet, TypedPointerIsAReferenceOfItsOwn) {
    PacketPool pool;
    AutoRefPtr<EndOfStreamPacket> eos;
    {
        AutoRefPtr<Packet> const packet = pool.alloc(packetTypeEos);
        eos = packet->getEosPacket();
        EXPECT_EQ(packet->preserve(), 3);
        EXPECT_EQ(packet->release(), 2);
    }
    EXPECT_EQ(eos->preserve(), 2);
    EXPECT_EQ(eos->release(), 1);
}

TEST(Packet, OnlyAHeaderIsAHeader) {
    PacketPool pool;
    for (unsigned const type : {188U, 191U, 251U, 252U, 253U, 256U}) {
        AutoRefPtr<Packet> const packet = pool.alloc(typeOf(type));
        packet->type = packetTypeHeader;
        EXPECT_EQ(packet->getAutoHdrPtr().get(), nullptr) << type;
        packet->type = typeOf(type);
    }
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    header->type = packetTypeMedia;
    EXPECT_EQ(header->getAutoHdrPtr().forget(), header.get());
}

TEST(Packet, ClassesWithAPayloadAreValidByTheirOwnFlagAndTheHeader) {
    PacketPool pool;
    AutoRefPtr<Packet> const map = pool.alloc(packetTypeMap);
    AutoRefPtr<Packet> const flt = pool.alloc(packetTypeFieldLocTbl);
    AutoRefPtr<Packet> const media = pool.alloc(packetTypeMedia);
    AutoRefPtr<Packet> const umf = pool.alloc(packetTypeUmfFile);
    for (Packet* const packet : {map.get(), flt.get(), media.get(), umf.get()}) {
        EXPECT_TRUE(packet->isValid());
        packet->leaderMark = 0;
        EXPECT_FALSE(packet->isValid());
        packet->leaderMark = 1;
    }
    map->getMapPacket()->packetValid = false;
    flt->getFltPacket()->packetValid = false;
    media->getMediaPacket()->valid = false;
    umf->getUmfPacket()->valid = false;
    for (Packet const* const packet : {map.get(), flt.get(), media.get(), umf.get()}) {
        EXPECT_FALSE(packet->isValid());
    }
}

TEST(Packet, EncodeWritesTheFieldsAsTheyStand) {
    PacketPool pool;
    BarePacket packet(packetTypeMap, pool);
    setOddFields(packet);
    Bytes storage = Bytes().fill(16);
    GxfBuffer buffer = storage.emptyBuffer();
    EXPECT_TRUE(packet.encode(buffer));
    EXPECT_EQ(Bytes::occupied(buffer), (Bytes{0x11, 0x12, 0x13, 0x14, 0x21, 0xBC, 0x31, 0x32, 0x33,
                                              0x34, 0x41, 0x42, 0x43, 0x44, 0x51, 0x61}));
    expectOddFields(packet);
}

TEST(Packet, TypeOnTheWire) {
    struct Row {
        unsigned type;
        unsigned wireByte;
    };
    constexpr Row rows[] = {{0, 0x00},   {188, 0xBC}, {191, 0xBF}, {250, 0xFA},
                            {251, 0xFB}, {252, 0xFC}, {253, 0xFD}, {254, 0xFE},
                            {255, 0xFF}, {256, 0xFD}, {257, 0x01}, {0x1BC, 0xBC}};
    PacketPool pool;
    for (Row const& row : rows) {
        BarePacket const packet(typeOf(row.type), pool);
        Bytes storage = Bytes().fill(16);
        GxfBuffer buffer = storage.emptyBuffer();
        EXPECT_TRUE(packet.encode(buffer));
        EXPECT_EQ(Bytes::occupied(buffer),
                  (Bytes{0, 0, 0, 0, 1, row.wireByte, 0, 0, 0, 16, 0, 0, 0, 0, 0xE1, 0xE2}));
        EXPECT_EQ(packet.type, typeOf(row.type));
    }
}

TEST(Packet, ClassesWithoutAnEncodeOfTheirOwnWriteTheirHeaderOnly) {
    struct Row {
        unsigned type;
        unsigned wireByte;
    };
    constexpr Row rows[] = {{0, 0x00}, {252, 0xFC}, {191, 0xBF}, {256, 0xFD}};
    PacketPool pool;
    for (Row const& row : rows) {
        AutoRefPtr<Packet> const packet = pool.alloc(typeOf(row.type));
        packet->length = 0x01020304;
        Bytes storage = Bytes().fill(16);
        GxfBuffer buffer = storage.emptyBuffer();
        EXPECT_TRUE(packet->encode(buffer));
        EXPECT_EQ(Bytes::occupied(buffer),
                  (Bytes{0, 0, 0, 0, 1, row.wireByte, 1, 2, 3, 4, 0, 0, 0, 0, 0xE1, 0xE2}));
    }
}

TEST(Packet, EncodeWithoutRoom) {
    PacketPool pool;
    BarePacket const packet(packetTypeMap, pool);
    for (unsigned room = 0; room < 16; ++room) {
        Bytes storage = Bytes().fill(room + 1, 0xAA);
        GxfBuffer buffer(storage.data(), room, GxfBuffer::DataState::empty, MediaAgent(nullptr));
        expectError(packet.encode(buffer), 12, "encode");
        EXPECT_EQ(buffer.nOccupied(), 0U);
        EXPECT_EQ(storage, Bytes().fill(room + 1, 0xAA));
    }
    // Room that could be made doesn't count.
    GxfBuffer growing{MediaAgent(nullptr)};
    expectError(packet.encode(growing), 12, "encode");
}

TEST(Packet, EncodeMessages) {
    PacketPool pool;
    BarePacket const packet(packetTypeReserved, pool);
    Bytes storage = Bytes().fill(32);
    GxfBuffer buffer = storage.emptyBuffer();
    MessageCapture capture;
    {
        ChannelSetting const level(gxfEncodeDetail, 3);
        ChannelSetting const other(gxfDecodeDetail, 9);
        EXPECT_TRUE(packet.encode(buffer));
    }
    EXPECT_THAT(capture.texts(), IsEmpty());

    ChannelSetting const level(gxfEncodeDetail, 4);
    EXPECT_TRUE(packet.encode(buffer));
    EXPECT_THAT(capture.texts(), ElementsAre("start Packet Header encode\n",
                                             "end Packet Header encode: reserved:16b@0\n"));
    EXPECT_EQ(capture.count(MessageKind::Info), 2U);
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);

    capture.clear();
    EXPECT_FALSE(packet.encode(buffer));
    EXPECT_THAT(capture.texts(), ElementsAre("start Packet Header encode\n"));
    EXPECT_THAT(capture.texts(MessageKind::Trace), ElementsAre(raised("badEncodeSize", "encode")));
}

TEST(Packet, Text) {
    PacketPool pool;
    BarePacket packet(packetTypeReserved, pool);
    EXPECT_EQ(textOfPacket(packet), "reserved:16b@0");
    packet.length = 0x7FFFFFFF;
    packet.fileOffset = 0x7FFFFFFFFFFFFFFF;
    EXPECT_EQ(textOfPacket(packet), "reserved:2147483647b@9223372036854775807");
    packet.length = 0xFFFFFFFF;
    packet.fileOffset = 0xFFFFFFFFFFFFFFFF;
    EXPECT_EQ(textOfPacket(packet), "reserved:-1b@-1");
    packet.reset(typeOf(254));
    EXPECT_EQ(textOfPacket(packet), "?(type=0xfe):16b@0");
    packet.reserved = 1;
    EXPECT_EQ(textOfPacket(packet), "?(type=0xfe):16b@0,invalid");
    packet.reset(packetTypeInternalUmfChunk);
    EXPECT_EQ(textOfPacket(packet), "internalUmfChunk:16b@0,invalid");
}

TEST(Packet, TextIsAppendedAndTheIndentIsNotUsed) {
    PacketPool pool;
    BarePacket const packet(packetTypeReserved, pool);
    FormatStr text("before ");
    EXPECT_EQ(&packet.toString(7, text), &text);
    EXPECT_STREQ(text.get(), "before reserved:16b@0");
    EXPECT_EQ(&packet.toString(0, text), &text);
    EXPECT_STREQ(text.get(), "before reserved:16b@0reserved:16b@0");
}

TEST(Packet, TextAsksTheClassForValidity) {
    class NeverValid : public BarePacket {
      public:
        using BarePacket::BarePacket;
        bool isValid() const override { return false; }
    };
    PacketPool pool;
    EXPECT_EQ(textOfPacket(NeverValid(packetTypeReserved, pool)), "reserved:16b@0,invalid");
}

TEST(Packet, CountsReferences) {
    PacketPool pool;
    MessageCapture const capture;
    AutoRefPtr<Packet> const packet = pool.alloc(packetTypeEos);
    EXPECT_EQ(packet->preserve(), 2);
    EXPECT_EQ(packet->preserve(), 3);
    EXPECT_EQ(packet->release(), 2);
    EXPECT_EQ(packet->release(), 1);
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(Packet, PreserveWithoutAReferenceIsReported) {
    PacketPool pool;
    BarePacket packet(packetTypeReserved, pool);
    MessageCapture capture;
    EXPECT_EQ(packet.preserve(), 1);
    EXPECT_THAT(capture.texts(MessageKind::Trace),
                ElementsAre(raised("internalError", "notifyBadCount")));
    EXPECT_THAT(capture.texts(), IsEmpty());
    capture.clear();
    EXPECT_EQ(packet.preserve(), 2);
    EXPECT_EQ(packet.release(), 1);
    EXPECT_EQ(packet.release(), 0);
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(Packet, ReleaseWithoutAReferenceIsReportedAndNotRepaired) {
    PacketPool pool;
    BarePacket packet(packetTypeReserved, pool);
    MessageCapture capture;
    EXPECT_EQ(packet.release(), -1);
    EXPECT_EQ(packet.release(), -2);
    EXPECT_THAT(capture.texts(MessageKind::Trace),
                ElementsAre(raised("internalError", "notifyBadCount"),
                            raised("internalError", "notifyBadCount")));
    capture.clear();
    EXPECT_EQ(packet.preserve(), -1);
    EXPECT_EQ(packet.preserve(), 0);
    EXPECT_EQ(packet.preserve(), 1);
    EXPECT_EQ(capture.count(MessageKind::Trace), 3U);
    EXPECT_EQ(packet.release(), 0);
    EXPECT_EQ(capture.count(MessageKind::Trace), 3U);
}

TEST(Packet, DestructionWhileReferencedIsReported) {
    PacketPool pool;
    MessageCapture capture;
    {
        BarePacket packet(packetTypeReserved, pool);
        packet.preserve();
        capture.clear();
    }
    EXPECT_THAT(capture.texts(MessageKind::Trace), ElementsAre(raised("internalError", "~Packet")));
    capture.clear();
    {
        BarePacket packet(packetTypeReserved, pool);
        packet.release();
        capture.clear();
    }
    EXPECT_THAT(capture.texts(MessageKind::Trace), ElementsAre(raised("internalError", "~Packet")));
    capture.clear();
    { BarePacket const packet(packetTypeReserved, pool); }
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(Packet, CreateActualKnowsTheKindsOfTheWire) {
    PacketPool pool;
    MessageCapture const capture;
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    for (unsigned const type : {188U, 191U, 251U, 252U, 253U}) {
        SCOPED_TRACE(type);
        setOddFields(*header);
        header->type = typeOf(type);
        AutoRefPtr<Packet> const actual = header->createActual();
        ASSERT_NE(actual.get(), nullptr);
        EXPECT_EQ(actual->type, typeOf(type));
        EXPECT_EQ(dynamic_cast<MapPacket*>(actual.get()) != nullptr, type == 188);
        EXPECT_EQ(dynamic_cast<MediaPacket*>(actual.get()) != nullptr, type == 191);
        EXPECT_EQ(dynamic_cast<EndOfStreamPacket*>(actual.get()) != nullptr, type == 251);
        EXPECT_EQ(dynamic_cast<FieldLocTblPacket*>(actual.get()) != nullptr, type == 252);
        EXPECT_EQ(dynamic_cast<UmfPacket*>(actual.get()) != nullptr, type == 253);
        EXPECT_EQ(actual->preserve(), 2);
        EXPECT_EQ(actual->release(), 1);
        actual->type = packetTypeMap;
        expectOddFields(*actual);
        actual->type = typeOf(type);
    }
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(Packet, CreateActualGivesNothingForOtherTypesAndStaysSilent) {
    PacketPool pool;
    MessageCapture const capture;
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    for (unsigned type = 0; type <= 600; ++type) {
        if (type != 188 && type != 191 && (type < 251 || type > 253)) {
            header->type = typeOf(type);
            EXPECT_EQ(header->createActual().get(), nullptr) << type;
        }
    }
    for (unsigned const type : {0x800000BCU, 0x100BFU, 0xFFFFFFFFU}) {
        header->type = typeOf(type);
        EXPECT_EQ(header->createActual().get(), nullptr) << type;
    }
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(Packet, ReservedTypeIsValidAndYetNotMade) {
    PacketPool pool;
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    Bytes bytes = GxfTesting::header(250, 16);
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_TRUE(header->decode(buffer));
    EXPECT_TRUE(header->isValid());
    EXPECT_EQ(header->createActual().get(), nullptr);
}

TEST(Packet, AnyPacketCreatesItsActual) {
    PacketPool pool;
    AutoRefPtr<Packet> const eos = pool.alloc(packetTypeEos);
    eos->fileOffset = 77;
    AutoRefPtr<Packet> const other = eos->createActual();
    ASSERT_NE(other.get(), nullptr);
    EXPECT_NE(other.get(), eos.get());
    EXPECT_EQ(other->getFileOffset(), 77U);
    EXPECT_NE(other->getEosPacket().get(), nullptr);
}

TEST(PacketHeader, NewHeaderIsNotValid) {
    PacketPool pool;
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    expectNewFields(*header, packetTypeHeader);
    EXPECT_FALSE(header->isValid());
    EXPECT_EQ(textOfPacket(*header), "packet header:16b@0,invalid");
}

TEST(PacketHeader, DecodesTheFieldsInWireOrderWithoutJudging) {
    PacketPool pool;
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    Bytes bytes{0x11, 0x12, 0x13, 0x14, 0x21, 0xBC, 0x31, 0x32, 0x33,
                0x34, 0x41, 0x42, 0x43, 0x44, 0x51, 0x61, 0x99};
    GxfBuffer buffer = bytes.filledBuffer();
    buffer.reset(GxfBuffer::DataState::filled, 0x0102030405060708);
    MessageCapture const capture;
    EXPECT_TRUE(header->decode(buffer));
    expectOddFields(*header);
    EXPECT_FALSE(header->isValid());
    EXPECT_EQ(buffer.nOccupied(), 1U);
    EXPECT_EQ(buffer.beginOffset(), 0x0102030405060718U);
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(PacketHeader, TakesEveryTypeByteAsItIs) {
    PacketPool pool;
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    for (unsigned type = 0; type < 256; ++type) {
        Bytes bytes = GxfTesting::header(type, 16);
        GxfBuffer buffer = bytes.filledBuffer();
        EXPECT_TRUE(header->decode(buffer));
        EXPECT_EQ(header->type, typeOf(type));
        EXPECT_EQ(header->isValid(), type == 188 || type == 191 || type >= 250) << type;
        EXPECT_EQ(buffer.nOccupied(), 0U);
    }
}

TEST(PacketHeader, TruncatedHeaderChangesNothing) {
    PacketPool pool;
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    setOddFields(*header);
    for (unsigned size = 0; size < 16; ++size) {
        Bytes bytes = endOfStream();
        GxfBuffer buffer(bytes.data(), size, GxfBuffer::DataState::filled, MediaAgent(nullptr));
        expectError(header->decode(buffer), 9, "decode");
        EXPECT_EQ(buffer.nOccupied(), size);
        EXPECT_EQ(buffer.beginOffset(), 0U);
        expectOddFields(*header);
    }
}

TEST(PacketHeader, LengthBelowTheHeaderIsConsumedAndInvalid) {
    PacketPool pool;
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    for (unsigned const length : {0U, 1U, 15U}) {
        Bytes bytes = GxfTesting::header(251, length);
        GxfBuffer buffer = bytes.filledBuffer();
        EXPECT_TRUE(header->decode(buffer));
        EXPECT_FALSE(header->isValid());
        EXPECT_EQ(buffer.nOccupied(), 0U);
        EXPECT_EQ(header->length, length);
    }
}

TEST(PacketHeader, ReusedHeaderTakesEveryFieldAnew) {
    PacketPool pool;
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    Bytes bytes = Bytes().fill(16, 0xFF).add(GxfTesting::header(188, 64));
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_TRUE(header->decode(buffer));
    EXPECT_EQ(textOfPacket(*header), "?(type=0xff):-1b@0,invalid");
    EXPECT_TRUE(header->decode(buffer));
    EXPECT_EQ(textOfPacket(*header), "map:64b@16");
}

TEST(PacketHeader, EqualsEverything) {
    PacketPool pool;
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    AutoRefPtr<Packet> const map = pool.alloc(packetTypeMap);
    setOddFields(*header);
    EXPECT_TRUE(header->isEqual(*header));
    EXPECT_TRUE(header->isEqual(*map));
}

TEST(PacketHeader, ResetsAsAnyPacket) {
    PacketPool pool;
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    BarePacket source(packetTypeReserved, pool);
    setOddFields(source);
    header->reset(source);
    expectOddFields(*header);
    header->reset(packetTypeFieldLocTbl);
    expectNewFields(*header, packetTypeFieldLocTbl);
}

TEST(PacketHeader, DecodeMessages) {
    PacketPool pool;
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    Bytes bytes = endOfStream().add(endOfStream()).add(Bytes{0});
    GxfBuffer buffer = bytes.filledBuffer();
    MessageCapture capture;
    {
        ChannelSetting const level(gxfDecodeDetail, 3);
        ChannelSetting const other(gxfEncodeDetail, 9);
        EXPECT_TRUE(header->decode(buffer));
    }
    EXPECT_THAT(capture.texts(), IsEmpty());

    ChannelSetting const level(gxfDecodeDetail, 4);
    EXPECT_TRUE(header->decode(buffer));
    EXPECT_THAT(capture.texts(), ElementsAre("start Packet Header decode\n",
                                             "end Packet Header decode: EOS:16b@16\n"));
    EXPECT_EQ(capture.count(MessageKind::Info), 2U);

    capture.clear();
    EXPECT_FALSE(header->decode(buffer));
    EXPECT_THAT(capture.texts(), ElementsAre("start Packet Header decode\n"));
    EXPECT_THAT(capture.texts(MessageKind::Trace), ElementsAre(raised("badDecodeSize", "decode")));
}

TEST(PacketHeader, RoundTrip) {
    PacketPool pool;
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    Bytes bytes;
    for (unsigned i = 0; i < 16; ++i) {
        bytes.u8(0x0F + i * 0x10);
    }
    Bytes const original = bytes;
    GxfBuffer in = bytes.filledBuffer();
    EXPECT_TRUE(header->decode(in));
    Bytes storage = Bytes().fill(16);
    GxfBuffer out = storage.emptyBuffer();
    EXPECT_TRUE(header->encode(out));
    EXPECT_EQ(Bytes::occupied(out), original);
}

TEST(EndOfStreamPacket, Encoded) {
    PacketPool pool;
    AutoRefPtr<Packet> const eos = pool.alloc(packetTypeEos);
    EXPECT_TRUE(eos->isValid());
    EXPECT_EQ(textOfPacket(*eos), "EOS:16b@0");
    Bytes storage = Bytes().fill(16);
    GxfBuffer buffer = storage.emptyBuffer();
    EXPECT_TRUE(eos->encode(buffer));
    EXPECT_EQ(Bytes::occupied(buffer),
              (Bytes{0, 0, 0, 0, 1, 0xFB, 0, 0, 0, 0x10, 0, 0, 0, 0, 0xE1, 0xE2}));
}

TEST(EndOfStreamPacket, ReadersRoad) {
    PacketPool pool;
    Bytes bytes{0, 0, 0, 0, 1, 0xFB, 0, 0, 0, 0x10, 0, 0, 0, 0, 0xE1, 0xE2, 0x55};
    GxfBuffer buffer = bytes.filledBuffer();
    buffer.reset(GxfBuffer::DataState::filled, 4096);
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    ASSERT_TRUE(header->decode(buffer));
    ASSERT_TRUE(header->isValid());
    AutoRefPtr<Packet> const actual = header->createActual();
    ASSERT_NE(actual.get(), nullptr);
    ASSERT_NE(actual->getEosPacket().get(), nullptr);
    EXPECT_EQ(actual->getCodedLength(), 16U);
    EXPECT_EQ(actual->getPayloadLength(), 0U);
    EXPECT_FALSE(actual->needsAllData(buffer));
    EXPECT_TRUE(actual->decode(buffer));
    EXPECT_EQ(buffer.nOccupied(), 1U);
    EXPECT_EQ(buffer.beginOffset(), 4112U);
    EXPECT_TRUE(actual->isValid());
    EXPECT_EQ(textOfPacket(*actual), "EOS:16b@4096");
}

TEST(EndOfStreamPacket, DecodeReadsNothingWhateverTheLength) {
    PacketPool pool;
    AutoRefPtr<Packet> const eos = pool.alloc(packetTypeEos);
    eos->length = 100;
    Bytes bytes{1, 2, 3};
    GxfBuffer buffer = bytes.filledBuffer();
    MessageCapture const capture;
    ChannelSetting const level(gxfDecodeDetail, 9);
    OpResult const result = eos->decode(buffer);
    EXPECT_TRUE(result);
    EXPECT_EQ(result.getType(), OpResult::Ok);
    EXPECT_EQ(buffer.nOccupied(), 3U);
    EXPECT_EQ(eos->length, 100U);
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(EndOfStreamPacket, EncodeLooksAtItsLengthFirst) {
    PacketPool pool;
    AutoRefPtr<Packet> const eos = pool.alloc(packetTypeEos);
    ChannelSetting const level(gxfEncodeDetail, 4);
    MessageCapture capture;
    Bytes storage = Bytes().fill(16);

    GxfBuffer tooLong = storage.emptyBuffer();
    eos->length = 17;
    expectError(eos->encode(tooLong), 12, "encode");
    EXPECT_EQ(tooLong.nOccupied(), 0U);
    EXPECT_THAT(capture.texts(), ElementsAre("start EndOfStream encode @0\n"));
    EXPECT_EQ(capture.count(MessageKind::Trace), 1U);
    eos->length = 0xFFFFFFFF;
    expectError(eos->encode(tooLong), 12, "encode");

    // A length that fits doesn't help a header that doesn't.
    capture.clear();
    GxfBuffer shortOfHeader(storage.data(), 15, GxfBuffer::DataState::empty, MediaAgent(nullptr));
    eos->length = 15;
    expectError(eos->encode(shortOfHeader), 12, "encode");
    EXPECT_EQ(shortOfHeader.nOccupied(), 0U);
    EXPECT_THAT(capture.texts(),
                ElementsAre("start EndOfStream encode @0\n", "start Packet Header encode\n"));
    EXPECT_EQ(capture.count(MessageKind::Trace), 1U);
}

TEST(EndOfStreamPacket, EncodeWritesALengthAsItStands) {
    PacketPool pool;
    AutoRefPtr<Packet> const eos = pool.alloc(packetTypeEos);
    eos->length = 0;
    Bytes storage = Bytes().fill(16);
    GxfBuffer buffer = storage.emptyBuffer();
    EXPECT_TRUE(eos->encode(buffer));
    EXPECT_EQ(Bytes::occupied(buffer), GxfTesting::header(251, 0));
    eos->length = 20;
    storage = Bytes().fill(20);
    GxfBuffer longer = storage.emptyBuffer();
    EXPECT_TRUE(eos->encode(longer));
    EXPECT_EQ(Bytes::occupied(longer), GxfTesting::header(251, 20));
}

TEST(EndOfStreamPacket, EncodeMessages) {
    PacketPool pool;
    AutoRefPtr<Packet> const eos = pool.alloc(packetTypeEos);
    Bytes storage = Bytes().fill(48);
    GxfBuffer buffer = storage.emptyBuffer();
    buffer.reset(GxfBuffer::DataState::empty, 5000000000);
    MessageCapture capture;
    {
        ChannelSetting const level(gxfEncodeDetail, 1);
        ChannelSetting const other(gxfDecodeDetail, 9);
        EXPECT_TRUE(eos->encode(buffer));
    }
    EXPECT_THAT(capture.texts(), IsEmpty());
    {
        ChannelSetting const level(gxfEncodeDetail, 2);
        EXPECT_TRUE(eos->encode(buffer));
    }
    EXPECT_THAT(capture.texts(), ElementsAre("start EndOfStream encode @5000000000\n",
                                             "end EndOfStream encode: EOS:16b@0\n"));
    EXPECT_EQ(capture.count(MessageKind::Info), 2U);
    capture.clear();
    ChannelSetting const level(gxfEncodeDetail, 4);
    EXPECT_TRUE(eos->encode(buffer));
    EXPECT_THAT(capture.texts(),
                ElementsAre("start EndOfStream encode @5000000000\n",
                            "start Packet Header encode\n", "end Packet Header encode: EOS:16b@0\n",
                            "end EndOfStream encode: EOS:16b@0\n"));
}

TEST(EndOfStreamPacket, EqualsEverything) {
    PacketPool pool;
    AutoRefPtr<Packet> const eos = pool.alloc(packetTypeEos);
    AutoRefPtr<Packet> const map = pool.alloc(packetTypeMap);
    eos->length = 5;
    EXPECT_TRUE(eos->isEqual(*eos));
    EXPECT_TRUE(eos->isEqual(*map));
}

TEST(EndOfStreamPacket, ResetsAsAnyPacket) {
    PacketPool pool;
    AutoRefPtr<Packet> const eos = pool.alloc(packetTypeEos);
    BarePacket source(packetTypeReserved, pool);
    setOddFields(source);
    eos->reset(source);
    expectOddFields(*eos);
    eos->reset(packetTypeEos);
    expectNewFields(*eos, packetTypeEos);
}
