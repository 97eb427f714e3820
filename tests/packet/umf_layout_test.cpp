#include <cstdint>
#include <random>
#include <string>
#include <type_traits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <testing/bytes.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using Preamble = UmfPacket::Preamble;
using PayloadDesc = UmfPacket::PayloadDesc;

static_assert(std::is_base_of_v<Packet, UmfPacket>);
static_assert(
    std::is_same_v<decltype(UmfPacket::trackDescs), FixedMinVector<UmfPacket::TrackDesc, 20U>>);
static_assert(
    std::is_same_v<decltype(UmfPacket::mediaDescs), FixedMinVector<UmfPacket::MediaDesc, 17U>>);
static_assert(std::is_same_v<decltype(UmfPacket::preservedData), GxfPreservedData[2]>);
static_assert(std::is_same_v<decltype(UmfPacket::decodedPayloadSize), std::uint32_t>);
static_assert(!std::is_polymorphic_v<Preamble> && !std::is_polymorphic_v<PayloadDesc>);

void expectFailure(OpResult const& result, int code, char const* function) {
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), code);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().file, "umf_layout.cpp");
    EXPECT_STREQ(result.getLocation().function, function);
}

template <typename Section> std::string textAt(Section const& section, unsigned indent) {
    FormatStr text(128);
    text.cat(">");
    EXPECT_EQ(&section.toString(indent, text), &text);
    return text.get();
}

template <typename Section> void expectNoRoom(Section const& section, unsigned size) {
    for (unsigned room = 0; room < size; ++room) {
        Bytes storage = Bytes().fill(size, 0xAA);
        GxfBuffer buffer(storage.data(), room, GxfBuffer::DataState::empty, MediaAgent(nullptr));
        expectFailure(section.encode(buffer), 12, "encode");
        EXPECT_EQ(buffer.nOccupied(), 0U);
        EXPECT_EQ(storage, Bytes().fill(size, 0xAA));
    }
}

struct WordRow {
    std::uint32_t PayloadDesc::*field;
    std::uint32_t value;
};

/// In the order of the wire, a valid description.
constexpr WordRow wordRows[] = {
    {&PayloadDesc::totalLength, 0x7F6E5D4C},
    {&PayloadDesc::version, 3},
    {&PayloadDesc::numTracks, 5},
    {&PayloadDesc::trackDescOffset, 0x81020304},
    {&PayloadDesc::trackDescSize, 0x01030507},
    {&PayloadDesc::numSegments, 0xF1F2F3F4},
    {&PayloadDesc::mediaDescOffset, 0x91929394},
    {&PayloadDesc::mediaDescSize, 0x02040608},
    {&PayloadDesc::userDataOffset, 0xA1A2A3A4},
    {&PayloadDesc::userDataLength, 0x0306090C},
    {&PayloadDesc::indexOffset, 0xB1B2B3B4},
    {&PayloadDesc::indexLength, 0xC1C2C3C4},
};

Bytes wireOf(PayloadDesc const& desc) {
    Bytes bytes;
    for (WordRow const& row : wordRows) {
        bytes.u32Lsbf(desc.*row.field);
    }
    return bytes;
}

PayloadDesc filledDesc() {
    PayloadDesc desc;
    for (WordRow const& row : wordRows) {
        desc.*row.field = row.value;
    }
    return desc;
}

/// The least that decodes: no sections but the two fixed ones.
PayloadDesc smallDesc() {
    PayloadDesc desc;
    desc.totalLength = 104;
    desc.version = 3;
    return desc;
}

OpResult decodeInto(PayloadDesc& desc, Bytes bytes) {
    GxfBuffer buffer = bytes.filledBuffer();
    OpResult const result = desc.decode(buffer, static_cast<unsigned>(bytes.size()));
    EXPECT_EQ(buffer.nOccupied(), bytes.size() - 48);
    return result;
}

AutoRefPtr<UmfPacket> newUmf(PacketPool& pool) {
    return pool.alloc(packetTypeUmfFile)->getUmfPacket();
}

void preserve(GxfPreservedData& data, unsigned n) {
    Bytes bytes = Bytes().fill(n, 0x42);
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_TRUE(data.decode(buffer, n, GxfPreservedData::keep));
}

/// The packets' bytes one packet at a time.
std::uint32_t lengthPacketByPacket(std::uint32_t payload) {
    std::uint32_t total = 0;
    while (payload != 0) {
        std::uint32_t const fragment = payload < 32768 ? payload : 32768;
        total += (21 + fragment + 3) / 4 * 4;
        payload -= fragment;
    }
    return total;
}

} // namespace

TEST(UmfPreamble, New) {
    Preamble preamble;
    EXPECT_EQ(preamble.packetOrder, umfPacketOrderUninit);
    EXPECT_EQ(static_cast<int>(preamble.getPacketOrder()), -1);
    EXPECT_EQ(preamble.getPayloadLength(), 0U);
    EXPECT_FALSE(preamble.valid);
    EXPECT_STREQ(preamble.toString().get(), "Uninit,payloadLen=0");
}

TEST(UmfPreamble, WithOrderAndLength) {
    Preamble preamble(umfPacketOrderLast, 0xFFFFFFFE);
    EXPECT_EQ(preamble.getPacketOrder(), umfPacketOrderLast);
    EXPECT_EQ(preamble.getPayloadLength(), 0xFFFFFFFEU);
    EXPECT_TRUE(preamble.valid);
    preamble.reset();
    EXPECT_EQ(static_cast<int>(preamble.packetOrder), -1);
    EXPECT_EQ(preamble.payloadLength, 0U);
    EXPECT_FALSE(preamble.valid);
}

TEST(UmfPreamble, CodesEachOrder) {
    char const* const texts[] = {"Middle,payloadLen=16909060", "First,payloadLen=16909060",
                                 "Last,payloadLen=16909060", "Only,payloadLen=16909060"};
    for (unsigned order = 0; order < 4; ++order) {
        Bytes bytes{order, 1, 2, 3, 4, 0x77};
        GxfBuffer in = bytes.filledBuffer();
        Preamble preamble;
        EXPECT_EQ(preamble.decode(in, 6).getType(), OpResult::Ok);
        EXPECT_EQ(in.nOccupied(), 1U);
        EXPECT_EQ(static_cast<unsigned>(preamble.packetOrder), order);
        EXPECT_EQ(preamble.payloadLength, 0x01020304U);
        EXPECT_TRUE(preamble.valid);
        EXPECT_STREQ(preamble.toString().get(), texts[order]);
        EXPECT_EQ(textAt(preamble, 7), ">" + std::string(texts[order]));

        Bytes storage = Bytes().fill(5, 0xAA);
        GxfBuffer out = storage.emptyBuffer();
        EXPECT_EQ(preamble.encode(out).getType(), OpResult::Ok);
        EXPECT_EQ(Bytes::occupied(out), (Bytes{order, 1, 2, 3, 4}));
    }
}

TEST(UmfPreamble, TextOfALengthBeyondTheSignedNumbers) {
    EXPECT_STREQ(Preamble(umfPacketOrderOnly, 0x80000000).toString().get(),
                 "Only,payloadLen=-2147483648");
    EXPECT_STREQ(Preamble(static_cast<UmfPacketOrder>(4), 0xFFFFFFFF).toString().get(),
                 "Uninit,payloadLen=-1");
}

TEST(UmfPreamble, ShortDecodeReadsNothing) {
    for (unsigned available = 0; available < 5; ++available) {
        Bytes bytes{3, 1, 2, 3, 4};
        GxfBuffer buffer = bytes.filledBuffer();
        Preamble preamble(umfPacketOrderLast, 77);
        expectFailure(preamble.decode(buffer, available), 9, "decode");
        EXPECT_FALSE(preamble.valid);
        EXPECT_EQ(preamble.packetOrder, umfPacketOrderLast);
        EXPECT_EQ(preamble.payloadLength, 77U);
        EXPECT_EQ(buffer.nOccupied(), 5U);
    }
}

TEST(UmfPreamble, BytesThatAreClaimedButMissing) {
    for (unsigned present = 0; present < 5; ++present) {
        Bytes bytes{3, 1, 2, 3, 4};
        GxfBuffer buffer(bytes.data(), present, GxfBuffer::DataState::filled, MediaAgent(nullptr));
        Preamble preamble(umfPacketOrderLast, 77);
        expectFailure(preamble.decode(buffer, 5), 9, "decode");
        EXPECT_FALSE(preamble.valid);
    }
}

TEST(UmfPreamble, UnknownOrderLeavesTheLengthUnread) {
    for (unsigned order = 4; order < 256; ++order) {
        Bytes bytes{order, 1, 2, 3, 4};
        GxfBuffer buffer = bytes.filledBuffer();
        Preamble preamble(umfPacketOrderLast, 77);
        expectFailure(preamble.decode(buffer, 5), 10, "decode");
        EXPECT_FALSE(preamble.valid);
        EXPECT_EQ(static_cast<unsigned>(preamble.packetOrder), order);
        EXPECT_EQ(preamble.payloadLength, 77U);
        EXPECT_EQ(Bytes::occupied(buffer), (Bytes{1, 2, 3, 4}));
    }
}

TEST(UmfPreamble, EncodeWithoutRoom) { expectNoRoom(Preamble(umfPacketOrderOnly, 1), 5); }

TEST(UmfPreamble, EncodesWhatStandsThere) {
    Bytes storage = Bytes().fill(12, 0xAA);
    GxfBuffer out = storage.emptyBuffer();
    EXPECT_TRUE(Preamble().encode(out));
    EXPECT_TRUE(Preamble(static_cast<UmfPacketOrder>(0x1234), 0xFFFEFDFC).encode(out));
    EXPECT_EQ(Bytes::occupied(out), (Bytes{0xFF, 0, 0, 0, 0, 0x34, 0xFF, 0xFE, 0xFD, 0xFC}));
}

TEST(UmfPreamble, Messages) {
    Preamble const preamble(umfPacketOrderFirst, 32768);
    Bytes storage = Bytes().fill(5);
    MessageCapture capture;
    {
        ChannelSetting const level(gxfEncodeDetail, 2);
        GxfBuffer out = storage.emptyBuffer();
        EXPECT_TRUE(preamble.encode(out));
        EXPECT_THAT(capture.texts(), IsEmpty());
    }
    ChannelSetting const level(gxfEncodeDetail, 3);
    ChannelSetting const decodeLevel(gxfDecodeDetail, 9);
    GxfBuffer out = storage.emptyBuffer();
    out.reset(GxfBuffer::DataState::empty, 7000000000);
    EXPECT_TRUE(preamble.encode(out));
    EXPECT_THAT(capture.texts(MessageKind::Info),
                ElementsAre("start Preamble encode @7000000000\n",
                            "end Preamble encode First,payloadLen=32768\n"));
    EXPECT_EQ(capture.texts().size(), 2U);
    capture.clear();
    EXPECT_FALSE(preamble.encode(out));
    EXPECT_THAT(capture.texts(), ElementsAre("start Preamble encode @7000000000\n"));
    capture.clear();
    Preamble read;
    EXPECT_TRUE(read.decode(out, 5));
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(UmfPayloadDesc, New) {
    PayloadDesc const desc;
    for (WordRow const& row : wordRows) {
        EXPECT_EQ(desc.*row.field, 0U);
    }
    EXPECT_FALSE(desc.isValid());
}

TEST(UmfPayloadDesc, DecodesTwelveWords) {
    PayloadDesc desc;
    Bytes bytes;
    for (WordRow const& row : wordRows) {
        bytes.u8(row.value).u8(row.value >> 8).u8(row.value >> 16).u8(row.value >> 24);
    }
    bytes.fill(3, 0xEE);
    EXPECT_EQ(decodeInto(desc, bytes).getType(), OpResult::Ok);
    for (WordRow const& row : wordRows) {
        EXPECT_EQ(desc.*row.field, row.value);
    }
    EXPECT_TRUE(desc.isValid());
    EXPECT_EQ(desc.getNTracks(), 5U);
    EXPECT_EQ(desc.getUserDataLength(), 0x0306090CU);
    EXPECT_EQ(desc.getIndexLength(), 0xC1C2C3C4U);

    desc.reset();
    EXPECT_FALSE(desc.valid);
    for (WordRow const& row : wordRows) {
        EXPECT_EQ(desc.*row.field, 0U);
    }
}

TEST(UmfPayloadDesc, EncodesTheWordsAsTheyStand) {
    PayloadDesc desc = filledDesc();
    desc.version = 0x01020304;
    desc.numTracks = 0xFFFFFFFF;
    Bytes storage = Bytes().fill(48, 0xAA);
    GxfBuffer out = storage.emptyBuffer();
    EXPECT_EQ(desc.encode(out).getType(), OpResult::Ok);
    EXPECT_EQ(out.nOccupied(), 48U);
    EXPECT_EQ(storage, wireOf(desc));
    Bytes start;
    for (std::size_t i = 0; i < 12; ++i) {
        start.u8(storage[i]);
    }
    EXPECT_EQ(start, (Bytes{0x4C, 0x5D, 0x6E, 0x7F, 4, 3, 2, 1, 0xFF, 0xFF, 0xFF, 0xFF}));
}

TEST(UmfPayloadDesc, Setters) {
    PayloadDesc desc = filledDesc();
    PayloadDesc expected = filledDesc();
    desc.setUserDataLength(11);
    desc.setIndexOffset(22);
    desc.setIndexSize(33);
    expected.userDataLength = 11;
    expected.indexOffset = 22;
    expected.indexLength = 33;
    EXPECT_EQ(wireOf(desc), wireOf(expected));
}

TEST(UmfPayloadDesc, Checks) {
    struct Row {
        std::uint32_t total, version, tracks, trackBytes, mediaBytes, userBytes;
        bool passes;
    };
    constexpr Row rows[] = {
        {104, 3, 0, 0, 0, 0, true},
        {104, 2, 0, 0, 0, 0, false},
        {104, 4, 0, 0, 0, 0, false},
        {104, 0, 0, 0, 0, 0, false},
        {104, 0x103, 0, 0, 0, 0, false},
        {104, 0x03000000, 0, 0, 0, 0, false},
        {104, 3, 128, 0, 0, 0, true},
        {104, 3, 129, 0, 0, 0, false},
        {104, 3, 0xFFFFFFFF, 0, 0, 0, false},
        {104, 3, 0x80000000, 0, 0, 0, false},
        {48, 3, 0, 0, 0, 0, true},
        {47, 3, 0, 0, 0, 0, false},
        {0, 3, 0, 0, 0, 0, false},
        {600, 3, 0, 552, 0, 0, true},
        {600, 3, 0, 553, 0, 0, false},
        {600, 3, 0, 0, 552, 0, true},
        {600, 3, 0, 0, 553, 0, false},
        {600, 3, 0, 0, 0, 552, true},
        {600, 3, 0, 0, 0, 553, false},
        {600, 3, 0, 12, 320, 220, true},
        {600, 3, 0, 12, 320, 221, false},
        {0xFFFFFFFF, 3, 0, 0xFFFFFFCF, 0, 0, true},
        {0x80000000, 3, 0, 0x80000000, 0, 0, false},
        // The sum is taken in 32 bits: intended.
        {0, 3, 0, 0xFFFFFFD0, 0, 0, true},
        {1, 3, 0, 0x80000000, 0x7FFFFFD1, 0, true},
        {0, 3, 0, 0x80000000, 0x7FFFFFD1, 0, false},
    };
    for (Row const& row : rows) {
        PayloadDesc wire;
        wire.totalLength = row.total;
        wire.version = row.version;
        wire.numTracks = row.tracks;
        wire.trackDescSize = row.trackBytes;
        wire.mediaDescSize = row.mediaBytes;
        wire.userDataLength = row.userBytes;
        // Nothing is checked of these.
        wire.trackDescOffset = 0xFFFFFFFF;
        wire.numSegments = 0xFFFFFFFF;
        wire.mediaDescOffset = 0xFFFFFFFF;
        wire.userDataOffset = 0xFFFFFFFF;
        wire.indexOffset = 0xFFFFFFFF;
        wire.indexLength = 0xFFFFFFFF;
        PayloadDesc desc;
        desc.valid = !row.passes;
        OpResult const result = decodeInto(desc, wireOf(wire));
        EXPECT_EQ(desc.isValid(), row.passes);
        EXPECT_EQ(wireOf(desc), wireOf(wire));
        if (row.passes) {
            EXPECT_EQ(result.getType(), OpResult::Ok);
        } else {
            expectFailure(result, 10, "decode");
        }
    }
}

TEST(UmfPayloadDesc, ShortDecodeReadsNothing) {
    for (unsigned size = 0; size < 48; ++size) {
        Bytes bytes = wireOf(smallDesc());
        GxfBuffer whole = bytes.filledBuffer();
        PayloadDesc desc = filledDesc();
        desc.valid = true;
        expectFailure(desc.decode(whole, size), 9, "decode");
        EXPECT_FALSE(desc.isValid());
        EXPECT_EQ(wireOf(desc), wireOf(filledDesc()));
        EXPECT_EQ(whole.nOccupied(), 48U);

        GxfBuffer cut(bytes.data(), size, GxfBuffer::DataState::filled, MediaAgent(nullptr));
        desc.valid = true;
        expectFailure(desc.decode(cut, 48), 9, "decode");
        EXPECT_FALSE(desc.isValid());
        EXPECT_EQ(cut.nOccupied(), size);
    }
}

TEST(UmfPayloadDesc, EncodeWithoutRoom) { expectNoRoom(filledDesc(), 48); }

TEST(UmfPayloadDesc, EqualByTheTwelveWords) {
    PayloadDesc const desc = filledDesc();
    PayloadDesc other = filledDesc();
    other.valid = !desc.valid;
    EXPECT_TRUE(desc.isEqual(other));
    for (WordRow const& row : wordRows) {
        other = filledDesc();
        other.*row.field ^= 0x80000000;
        EXPECT_FALSE(desc.isEqual(other));
        EXPECT_FALSE(other.isEqual(desc));
    }
}

TEST(UmfPayloadDesc, Text) {
    PayloadDesc desc;
    std::uint32_t value = 0;
    for (WordRow const& row : wordRows) {
        desc.*row.field = ++value;
    }
    std::string const text = "totLen=1,v2,nTrk=3(5b@4),nSeg=6,media=(8b@7),ud=10b@9,idx=12b@11";
    EXPECT_EQ(desc.toString().get(), text);
    EXPECT_EQ(textAt(desc, 9), ">" + text);
    for (WordRow const& row : wordRows) {
        desc.*row.field = 0xFFFFFFFF;
    }
    EXPECT_STREQ(desc.toString().get(),
                 "totLen=-1,v-1,nTrk=-1(-1b@-1),nSeg=-1,media=(-1b@-1),ud=-1b@-1,"
                 "idx=4294967295b@4294967295");
}

TEST(UmfPayloadDesc, Messages) {
    PayloadDesc const desc = smallDesc();
    Bytes storage = Bytes().fill(48);
    MessageCapture capture;
    {
        ChannelSetting const level(gxfEncodeDetail, 2);
        GxfBuffer out = storage.emptyBuffer();
        EXPECT_TRUE(desc.encode(out));
        EXPECT_THAT(capture.texts(), IsEmpty());
    }
    ChannelSetting const level(gxfEncodeDetail, 3);
    ChannelSetting const decodeLevel(gxfDecodeDetail, 9);
    GxfBuffer out = storage.emptyBuffer();
    out.reset(GxfBuffer::DataState::empty, 7000000000);
    EXPECT_TRUE(desc.encode(out));
    EXPECT_THAT(capture.texts(MessageKind::Info),
                ElementsAre("start Payload Desc encode @7000000000\n",
                            "end Payload Desc encode "
                            "totLen=104,v3,nTrk=0(0b@0),nSeg=0,media=(0b@0),ud=0b@0,idx=0b@0\n"));
    EXPECT_EQ(capture.texts().size(), 2U);
    capture.clear();
    EXPECT_FALSE(desc.encode(out));
    EXPECT_THAT(capture.texts(), ElementsAre("start Payload Desc encode @7000000000\n"));
    capture.clear();
    PayloadDesc read;
    EXPECT_TRUE(read.decode(out, 48));
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(UmfPacketLayout, PartsOfAPacket) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const umf = newUmf(pool);
    Packet const& packet = *umf;
    Bytes bytes{0};
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_EQ(packet.getPart1Length(), 5U);
    EXPECT_EQ(packet.getPart2Length(), 0U);
    EXPECT_EQ(packet.getPacketOrder(), umfPacketOrderUninit);
    EXPECT_TRUE(packet.needsAllData(buffer));
    umf->preamble = Preamble(umfPacketOrderMiddle, 0xFEDCBA98);
    EXPECT_EQ(packet.getPart1Length(), 5U);
    EXPECT_EQ(packet.getPart2Length(), 0xFEDCBA98U);
    EXPECT_EQ(packet.getPacketOrder(), umfPacketOrderMiddle);
    EXPECT_TRUE(packet.needsAllData(buffer));
}

TEST(UmfPacketLayout, Padding) {
    unsigned const pads[] = {0, 3, 2, 1};
    for (unsigned n = 0; n < 20; ++n) {
        EXPECT_EQ(UmfPacket::calcPacketPad(n), pads[n % 4]);
    }
    EXPECT_EQ(UmfPacket::calcPacketPad(21 + 32768), 3U);
    EXPECT_EQ(UmfPacket::calcPacketPad(0xFFFFFFFF), 1U);
    EXPECT_EQ(UmfPacket::calcPacketPad(0xFFFFFFFC), 0U);
}

TEST(UmfPacketLayout, TrackNumberOfACharacter) {
    for (unsigned c = 0; c < 600; ++c) {
        unsigned expected = 0xFFFFFFFF;
        if (c >= 48 && c <= 57) {
            expected = c - 48;
        } else if (c >= 65 && c <= 86) {
            expected = c - 55;
        }
        EXPECT_EQ(UmfPacket::trackNumberOf(static_cast<TrackNumberEncoding>(c)), expected) << c;
    }
    EXPECT_EQ(UmfPacket::trackNumberOf(static_cast<TrackNumberEncoding>('9')), 9U);
    EXPECT_EQ(UmfPacket::trackNumberOf(static_cast<TrackNumberEncoding>(':')), 0xFFFFFFFFU);
    EXPECT_EQ(UmfPacket::trackNumberOf(static_cast<TrackNumberEncoding>('@')), 0xFFFFFFFFU);
    EXPECT_EQ(UmfPacket::trackNumberOf(static_cast<TrackNumberEncoding>('A')), 10U);
    EXPECT_EQ(UmfPacket::trackNumberOf(static_cast<TrackNumberEncoding>('V')), 31U);
    EXPECT_EQ(UmfPacket::trackNumberOf(static_cast<TrackNumberEncoding>('W')), 0xFFFFFFFFU);
    EXPECT_EQ(UmfPacket::trackNumberOf(static_cast<TrackNumberEncoding>(0xFFFFFFFF)), 0xFFFFFFFFU);
    EXPECT_EQ(UmfPacket::trackNumberOf(static_cast<TrackNumberEncoding>(0x80000030)), 0xFFFFFFFFU);
}

TEST(UmfPacketLayout, EmptyPacket) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const umf = newUmf(pool);
    EXPECT_EQ(umf->calcTrackDescSize(), 0U);
    EXPECT_EQ(umf->calcMediaDescSize(), 0U);
    EXPECT_EQ(umf->calcUserDataSize(), 0U);
    EXPECT_EQ(umf->calcPayloadSize(), 104U);
    EXPECT_EQ(umf->calcIndexOffset(), 0U);
    EXPECT_EQ(umf->calcXmlOffset(), 0U);
    EXPECT_EQ(umf->calcLength(), 128U);
    EXPECT_EQ(umf->getMediaDesc().size(), 0U);
    EXPECT_EQ(umf->decodedPayloadSize, 0U);
}

TEST(UmfPacketLayout, EachSectionCounts) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const umf = newUmf(pool);
    umf->trackDescs.resize(25);
    EXPECT_EQ(umf->calcTrackDescSize(), 100U);
    EXPECT_EQ(umf->calcPayloadSize(), 204U);
    umf->mediaDescs.resize(18);
    EXPECT_EQ(umf->calcMediaDescSize(), 2880U);
    EXPECT_EQ(umf->calcPayloadSize(), 3084U);
    EXPECT_EQ(&umf->getMediaDesc(), &umf->mediaDescs);
    unsigned char const value[] = {1, 2, 3};
    EXPECT_TRUE(umf->userData.addUserData("name", UmfTrackNum(),
                                          static_cast<UmfPacket::GxfUserDataType>(0), value, 3));
    EXPECT_EQ(umf->calcUserDataSize(), 319U);
    EXPECT_EQ(umf->calcPayloadSize(), 3403U);

    // Without a valid index, its words don't count.
    umf->umfIndex.setXmlLength(500);
    preserve(umf->preservedData[1], 7);
    EXPECT_EQ(umf->calcPayloadSize(), 3410U);
    EXPECT_EQ(umf->calcIndexOffset(), 0U);
    EXPECT_EQ(umf->calcXmlOffset(), 0U);
    preserve(umf->preservedData[0], 1000);
    EXPECT_EQ(umf->calcPayloadSize(), 4410U);
    EXPECT_EQ(umf->calcIndexOffset(), 0U);
    EXPECT_EQ(umf->calcXmlOffset(), 3403U);
    umf->addFillerBytes(6);
    umf->addFillerBytes(4);
    EXPECT_EQ(umf->fillerData.size(), 10U);
    EXPECT_EQ(umf->calcPayloadSize(), 4420U);
    EXPECT_EQ(umf->calcIndexOffset(), 0U);
    EXPECT_EQ(umf->calcXmlOffset(), 3403U);

    umf->umfIndex.valid = true;
    EXPECT_EQ(umf->calcPayloadSize(), 4436U);
    EXPECT_EQ(umf->calcIndexOffset(), 3403U);
    EXPECT_EQ(umf->calcXmlOffset(), 3419U);
    EXPECT_EQ(umf->calcLength(), 4460U);
    umf->preservedData[0].discard();
    EXPECT_EQ(umf->calcPayloadSize(), 3436U);
    EXPECT_EQ(umf->calcIndexOffset(), 3403U);
    EXPECT_EQ(umf->calcXmlOffset(), 0U);

    // Nothing of it was computed into the description that goes out.
    EXPECT_TRUE(umf->payloadDesc.isEqual(PayloadDesc()));
}

TEST(UmfPacketLayout, LengthOnTheWire) {
    struct Row {
        unsigned payload;
        unsigned length;
    };
    constexpr Row rows[] = {
        {104, 128},     {105, 128},     {107, 128},          {108, 132},     {32766, 32788},
        {32767, 32788}, {32768, 32792}, {32769, 32816},      {32771, 32816}, {32772, 32820},
        {65535, 65580}, {65536, 65584}, {65537, 65608},      {98304, 98376}, {98305, 98400},
        {0, 0},         {1, 24},        {1u << 20, 1049344},
    };
    PacketPool pool;
    AutoRefPtr<UmfPacket> const umf = newUmf(pool);
    for (Row const& row : rows) {
        // Below 104 the 32 bits wrap.
        umf->fillerData.erase();
        umf->addFillerBytes(row.payload - 104);
        EXPECT_EQ(umf->calcPayloadSize(), row.payload);
        EXPECT_EQ(umf->calcLength(), row.length) << row.payload;
    }
}

TEST(UmfPacketLayout, LengthIsThatOfAllPackets) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const umf = newUmf(pool);
    std::mt19937 random(360);
    for (unsigned i = 0; i < 200; ++i) {
        unsigned const payload = i == 0 ? 0xFFFFFFFF : static_cast<unsigned>(random()) >> (i % 16);
        umf->fillerData.erase();
        umf->addFillerBytes(payload - 104);
        EXPECT_EQ(umf->calcLength(), lengthPacketByPacket(payload)) << payload;
    }
}
