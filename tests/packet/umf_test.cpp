#include <fstream>
#include <iterator>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <testing/allocation_count.h>
#include <testing/bytes.h>
#include <testing/capture.h>
#include <testing/umf_builder.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

void expectError(OpResult const& result, int code) {
    EXPECT_FALSE(result);
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), code);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_GT(result.getLocation().line, 0U);
}

/// A track of two segments and one of one, a pair of user data, an index, 300 bytes in the place of
/// the XML, 20 bytes behind them: 592 + 321 + 16 + 300 + 20 bytes.
UmfContent sampleContent() {
    UmfContent content;
    content.addTrack({'0', 'M', 2});
    content.addTrack({'1', 'A', 1});
    content.userData = umfPair(0, "Title", Bytes().text("abcde"));
    content.hasIndex = true;
    content.indexWords = {0x0102, 0x0304, 0, 0x0506, 0, 0x0708, 0x090A, 0x0B0C};
    content.xml = Bytes().fill(300, 0x5A);
    content.rest = Bytes().fill(20, 0x77);
    return content;
}

AutoRefPtr<UmfPacket> decoded(PacketPool& pool, std::vector<Bytes> const& packets) {
    AutoRefPtr<UmfPacket> packet = gathered(pool, packets);
    packet->decodeFinal();
    return packet;
}

AutoRefPtr<UmfPacket> decoded(PacketPool& pool, UmfContent const& content) {
    return decoded(pool, umfPackets(content.payload()));
}

/// Nothing when encode() fails.
Bytes encoded(UmfPacket const& packet) {
    Bytes storage = Bytes().fill(packet.getCodedLength());
    GxfBuffer out = storage.emptyBuffer();
    return packet.encode(out) ? Bytes::occupied(out) : Bytes();
}

Bytes bytesOf(GxfPreservedData const& data) {
    Bytes bytes;
    for (unsigned i = 0; i < data.size(); ++i) {
        bytes.u8(data.getData()[i]);
    }
    return bytes;
}

void keep(GxfPreservedData& data, Bytes bytes) {
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_TRUE(data.decode(buffer, buffer.nOccupied(), GxfPreservedData::keep));
}

template <typename Section> std::string textOfSection(Section const& section, unsigned indent) {
    FormatStr text(128);
    section.toString(indent, text);
    return text.get();
}

} // namespace

TEST(UmfPacket, NewPacketIsValidAndEmpty) {
    PacketPool pool;
    AutoRefPtr<Packet> const made = pool.alloc(packetTypeUmfFile);
    AutoRefPtr<UmfPacket> const packet = made->getUmfPacket();
    ASSERT_EQ(packet.get(), made.get());
    EXPECT_TRUE(packet->isValid());
    EXPECT_EQ(packet->getType(), packetTypeUmfFile);
    EXPECT_EQ(packet->getPacketOrder(), umfPacketOrderUninit);
    EXPECT_EQ(packet->getPart1Length(), 5U);
    EXPECT_EQ(packet->getPart2Length(), 0U);
    EXPECT_EQ(packet->calcPayloadSize(), 104U);
    EXPECT_EQ(packet->calcTrackDescSize(), 0U);
    EXPECT_EQ(packet->calcMediaDescSize(), 0U);
    EXPECT_EQ(packet->calcUserDataSize(), 0U);
    EXPECT_EQ(packet->calcIndexOffset(), 0U);
    EXPECT_EQ(packet->calcXmlOffset(), 0U);
    EXPECT_EQ(packet->calcLength(), 128U);
    EXPECT_EQ(packet->decodedPayloadSize, 0U);
    EXPECT_EQ(packet->gatherBuffer.nOccupied(), 0U);
    EXPECT_STREQ(packet->toString().get(), "umfFile:16b@0\n  preamble={Uninit,payloadLen=0}");
}

TEST(UmfPacket, PacketFromAHeaderIsNotValidYet) {
    PacketPool pool;
    Bytes bytes = umfPacket(3, Bytes().fill(104));
    GxfBuffer buffer = bytes.filledBuffer();
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    EXPECT_TRUE(header->decode(buffer));
    EXPECT_FALSE(header->createActual()->isValid());
    AutoRefPtr<Packet> const byType = pool.alloc(packetTypeUmfFile);
    {
        UmfPacket const packet(*byType);
        EXPECT_FALSE(packet.isValid());
        EXPECT_EQ(packet.getType(), packetTypeUmfFile);
    }
    UmfPacket packet(pool);
    EXPECT_TRUE(packet.isValid());
    packet.reset(*byType);
    EXPECT_FALSE(packet.isValid());
    packet.reset(packetTypeUmfFile);
    EXPECT_TRUE(packet.isValid());
    packet.trailerE1 = 0;
    EXPECT_FALSE(packet.isValid());
}

TEST(UmfPacket, PadsToAMultipleOfFour) {
    unsigned const pads[] = {0, 3, 2, 1, 0, 3, 2, 1, 0};
    for (unsigned length = 0; length < std::size(pads); ++length) {
        EXPECT_EQ(UmfPacket::calcPacketPad(length), pads[length]) << length;
    }
    EXPECT_EQ(UmfPacket::calcPacketPad(32789), 3U);
    EXPECT_EQ(UmfPacket::calcPacketPad(0xFFFFFFFF), 1U);
}

TEST(UmfPacket, TrackNumbers) {
    for (unsigned c = 0; c < 256; ++c) {
        unsigned expected = 0xFFFFFFFF;
        if (c >= 48 && c <= 57) {
            expected = c - 48;
        } else if (c >= 65 && c <= 86) {
            expected = c - 55;
        }
        EXPECT_EQ(UmfPacket::trackNumberOf(static_cast<TrackNumberEncoding>(c)), expected) << c;
    }
    EXPECT_EQ(UmfPacket::trackNumberOf(static_cast<TrackNumberEncoding>(0x100 + 48)), 0xFFFFFFFFU);
}

TEST(UmfPacket, LengthOnTheWire) {
    struct Row {
        unsigned payload;
        unsigned length;
    };
    constexpr Row rows[] = {
        {104, 128},          {105, 128},
        {106, 128},          {107, 128},
        {108, 132},          {32767, 32788},
        {32768, 32792},      {32769, 32792 + 24},
        {32771, 32792 + 24}, {32772, 32792 + 28},
        {65536, 2 * 32792},  {65537, 2 * 32792 + 24},
        {98304, 3 * 32792},  {100000, 3 * 32792 + 21 + 1696 + 3},
    };
    PacketPool pool;
    UmfPacket packet(pool);
    for (Row const& row : rows) {
        packet.fillerData.fillBytes = row.payload - 104;
        EXPECT_EQ(packet.calcPayloadSize(), row.payload);
        EXPECT_EQ(packet.calcLength(), row.length) << row.payload;
    }
    packet.fillerData.fillBytes = 0U - 104;
    EXPECT_EQ(packet.calcPayloadSize(), 0U);
    EXPECT_EQ(packet.calcLength(), 0U);
}

TEST(UmfPacket, SizesAndOffsets) {
    PacketPool pool;
    UmfPacket packet(pool);
    packet.trackDescs.resize(3);
    packet.mediaDescs.resize(2);
    unsigned char const value[] = {1};
    packet.userData.addUserData("n", {}, userDataByte, value, 1);
    EXPECT_EQ(packet.calcTrackDescSize(), 12U);
    EXPECT_EQ(packet.calcMediaDescSize(), 320U);
    EXPECT_EQ(packet.calcUserDataSize(), 317U);
    EXPECT_EQ(packet.calcPayloadSize(), 753U);

    keep(packet.preservedData[0], Bytes().fill(100));
    keep(packet.preservedData[1], Bytes().fill(7));
    packet.addFillerBytes(20);
    packet.addFillerBytes(30);
    EXPECT_EQ(packet.fillerData.size(), 50U);
    EXPECT_EQ(packet.calcPayloadSize(), 910U);
    EXPECT_EQ(packet.calcXmlOffset(), 753U);
    EXPECT_EQ(packet.calcIndexOffset(), 0U);
    packet.umfIndex.valid = true;
    EXPECT_EQ(packet.calcPayloadSize(), 926U);
    EXPECT_EQ(packet.calcXmlOffset(), 769U);
    EXPECT_EQ(packet.calcIndexOffset(), 753U);
    packet.preservedData[0].discard();
    EXPECT_EQ(packet.calcXmlOffset(), 0U);
    EXPECT_EQ(packet.calcIndexOffset(), 753U);
    EXPECT_EQ(&packet.getMediaDesc(), &packet.mediaDescs);
}

TEST(UmfPacket, DecodeTellsWhetherMoreFollows) {
    struct Row {
        unsigned order;
        int code;
        char const* name;
    };
    constexpr Row rows[] = {{0, 0, "Middle"}, {1, 0, "First"}, {2, 1, "Last"}, {3, 1, "Only"}};
    PacketPool pool;
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        // 21 bytes and 6: one of padding; the next packet's bytes behind it.
        Bytes bytes = umfPacket(row.order, {1, 2, 3, 4, 5, 6}).add({0x99, 0x98});
        ASSERT_EQ(bytes.size(), 30U);
        GxfBuffer buffer = bytes.filledBuffer();
        AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
        EXPECT_TRUE(header->decode(buffer));
        AutoRefPtr<UmfPacket> const packet = header->createActual()->getUmfPacket();
        EXPECT_FALSE(packet->isValid());
        EXPECT_TRUE(packet->needsAllData(buffer));
        OpResult const result = packet->decode(buffer);
        EXPECT_TRUE(result);
        EXPECT_EQ(result.getType(), OpResult::Info);
        EXPECT_EQ(result.getCode(), row.code);
        EXPECT_STREQ(result.getText(), "");
        EXPECT_TRUE(packet->isValid());
        EXPECT_EQ(packet->getPacketOrder(), static_cast<UmfPacketOrder>(row.order));
        EXPECT_STREQ(getName(packet->getPacketOrder()), row.name);
        EXPECT_EQ(packet->getPart2Length(), 6U);
        EXPECT_EQ(Bytes::occupied(packet->gatherBuffer), (Bytes{1, 2, 3, 4, 5, 6}));
        EXPECT_EQ(Bytes::occupied(buffer), (Bytes{0x99, 0x98}));
        EXPECT_EQ(buffer.beginOffset(), 28U);
    }
}

TEST(UmfPacket, DecodeFailures) {
    struct Row {
        unsigned length;
        unsigned order;
        int code;
        unsigned consumed;
    };
    constexpr Row rows[] = {{16, 3, 9, 0},  {17, 3, 9, 0},    {20, 3, 9, 0},   {21, 4, 10, 1},
                            {28, 5, 10, 1}, {28, 255, 10, 1}, {28, 128, 10, 1}};
    PacketPool pool;
    for (Row const& row : rows) {
        SCOPED_TRACE(testing::Message() << row.length << ", " << row.order);
        AutoRefPtr<UmfPacket> const packet = pool.alloc(packetTypeUmfFile)->getUmfPacket();
        packet->length = row.length;
        Bytes bytes{row.order, 0, 0, 0, 1, 7, 0, 0, 0, 0, 0, 0};
        GxfBuffer buffer = bytes.filledBuffer();
        MessageCapture const capture;
        expectError(packet->decode(buffer), row.code);
        EXPECT_EQ(capture.count(MessageKind::Trace), 1U);
        EXPECT_FALSE(packet->isValid());
        EXPECT_EQ(buffer.nOccupied(), 12 - row.consumed);
        EXPECT_EQ(packet->gatherBuffer.nOccupied(), 0U);
    }
}

TEST(UmfPacket, DecodeBelievesTheFragmentsLengthButTakesOnlyWhatIsThere) {
    struct Row {
        char const* name;
        std::uint32_t claimed;
        unsigned gatheredBytes;
        unsigned left;
    };
    // 8 bytes of the packet behind the preamble, 4 of the next one.
    constexpr Row rows[] = {
        {"nothing", 0, 0, 4},
        {"less", 3, 3, 4},
        {"all", 8, 8, 4},
        {"into the next packet", 10, 10, 0},
        {"all there is", 12, 12, 0},
        {"more than there is", 13, 0, 0},
        {"far more", 0x7FFFFFFF, 0, 0},
        {"most", 0xFFFFFFFF, 0, 3}, // the skip of the rest wraps to 9
    };
    PacketPool pool;
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        AutoRefPtr<UmfPacket> const packet = pool.alloc(packetTypeUmfFile)->getUmfPacket();
        packet->length = 16 + 5 + 8;
        Bytes bytes = Bytes().u8(2).u32(row.claimed).fill(12, 0x42);
        GxfBuffer buffer = bytes.filledBuffer();
        AllocationLimit const limit(4096);
        OpResult const result = packet->decode(buffer);
        EXPECT_EQ(result.getType(), OpResult::Info);
        EXPECT_EQ(result.getCode(), 1);
        EXPECT_TRUE(packet->isValid());
        EXPECT_EQ(Bytes::occupied(packet->gatherBuffer), Bytes().fill(row.gatheredBytes, 0x42));
        EXPECT_EQ(buffer.nOccupied(), row.left);
    }
}

TEST(UmfPacket, DecodeOfAHeaderThatIsTooShortStaysInsideTheBuffer) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const packet = pool.alloc(packetTypeUmfFile)->getUmfPacket();
    packet->length = 3; // the payload's length wraps
    Bytes bytes = Bytes().u8(3).u32(2).fill(4, 9);
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_EQ(packet->decode(buffer).getCode(), 1);
    EXPECT_TRUE(packet->valid);
    EXPECT_FALSE(packet->isValid());
    EXPECT_EQ(Bytes::occupied(packet->gatherBuffer), (Bytes{9, 9}));
    EXPECT_EQ(buffer.nOccupied(), 0U);
}

TEST(UmfPacket, DecodeOfEveryTruncation) {
    PacketPool pool;
    for (unsigned present = 0; present < 20; ++present) {
        AutoRefPtr<UmfPacket> const packet = pool.alloc(packetTypeUmfFile)->getUmfPacket();
        packet->length = 16 + 20;
        Bytes bytes = Bytes().u8(3).u32(13).fill(15, 9);
        GxfBuffer buffer(bytes.data(), present, GxfBuffer::DataState::filled, MediaAgent(nullptr));
        OpResult const result = packet->decode(buffer);
        EXPECT_EQ(result.getCode(), present < 5 ? 9 : 1) << present;
        EXPECT_EQ(packet->valid, present >= 5) << present;
        EXPECT_EQ(packet->gatherBuffer.nOccupied(), present < 18 ? 0U : 13U) << present;
    }
}

TEST(UmfPacket, PrependPayloadJoinsThePackets) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const first = gathered(pool, {umfPacket(1, {1, 2, 3})});
    first->fileOffset = 0x1234567890;
    AutoRefPtr<UmfPacket> const middle = gathered(pool, {umfPacket(0, {4, 5, 6, 7})});
    middle->fileOffset = 0x2234567890;
    AutoRefPtr<UmfPacket> const last = gathered(pool, {umfPacket(2, {8})});
    last->fileOffset = 0x3234567890;
    ASSERT_EQ(first->getCodedLength(), 24U);
    ASSERT_EQ(middle->getCodedLength(), 28U);
    ASSERT_EQ(last->getCodedLength(), 24U);

    middle->prependPayload(*first);
    EXPECT_EQ(Bytes::occupied(middle->gatherBuffer), (Bytes{1, 2, 3, 4, 5, 6, 7}));
    EXPECT_EQ(first->gatherBuffer.nOccupied(), 0U);
    EXPECT_EQ(middle->getFileOffset(), 0x1234567890U);
    EXPECT_EQ(middle->getCodedLength(), 52U);
    last->prependPayload(*middle);
    EXPECT_EQ(Bytes::occupied(last->gatherBuffer), (Bytes{1, 2, 3, 4, 5, 6, 7, 8}));
    EXPECT_EQ(middle->gatherBuffer.nOccupied(), 0U);
    EXPECT_EQ(last->getFileOffset(), 0x1234567890U);
    EXPECT_EQ(last->getCodedLength(), 76U);
    EXPECT_EQ(last->getPacketOrder(), umfPacketOrderLast);
    EXPECT_EQ(last->getPart2Length(), 1U);
    EXPECT_TRUE(last->isValid());
}

TEST(UmfPacket, PrependPayloadWithoutTheFragmentThatWasClaimed) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const first = gathered(pool, {umfPacket(1, {1, 2, 3})});
    AutoRefPtr<UmfPacket> const last = pool.alloc(packetTypeUmfFile)->getUmfPacket();
    last->length = 24;
    Bytes bytes = Bytes().u8(2).u32(0xFFFFFFF0).fill(3);
    GxfBuffer buffer = bytes.filledBuffer();
    last->decode(buffer);
    last->prependPayload(*first);
    EXPECT_EQ(Bytes::occupied(last->gatherBuffer), (Bytes{1, 2, 3}));
    EXPECT_EQ(last->getCodedLength(), 48U);
}

TEST(UmfPacket, FragmentsOfAnySizeAreJoined) {
    PacketPool pool;
    UmfContent const content = sampleContent();
    Bytes const payload = content.payload();
    for (std::size_t const size : {1U, 3U, 47U, 48U, 100U, 1000U, 5000U}) {
        SCOPED_TRACE(size);
        std::vector<Bytes> const packets = umfPackets(payload, size);
        AutoRefPtr<UmfPacket> const packet = gathered(pool, packets);
        EXPECT_EQ(Bytes::occupied(packet->gatherBuffer), payload);
        EXPECT_EQ(packet->getFileOffset(), 0U);
        EXPECT_EQ(packet->getCodedLength(), joined(packets).size());
        packet->decodeFinal();
        EXPECT_TRUE(packet->isValid());
        EXPECT_EQ(packet->decodedPayloadSize, payload.size());
        EXPECT_EQ(packet->calcPayloadSize(), payload.size());
    }
}

TEST(UmfPacket, UpdateOfOtherFragmentsThanTheWritersFails) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const packet = decoded(pool, umfPackets(sampleContent().payload(), 100));
    Bytes const rest = bytesOf(packet->preservedData[1]);
    expectError(packet->updateSize(), 12);
    expectError(packet->update(), 12);
    EXPECT_EQ(packet->fillerData.size(), 0U);
    EXPECT_EQ(bytesOf(packet->preservedData[1]), rest);
    EXPECT_EQ(rest, Bytes().fill(20, 0x77));
}

TEST(UmfPacket, UpdateWithoutAChangeChangesNothing) {
    PacketPool pool;
    UmfContent const content = sampleContent();
    AutoRefPtr<UmfPacket> const packet = decoded(pool, content);
    MessageCapture const capture;
    for (unsigned pass = 0; pass < 2; ++pass) {
        EXPECT_EQ(packet->update().getType(), OpResult::Ok);
        EXPECT_EQ(packet->fillerData.size(), 0U);
        EXPECT_EQ(bytesOf(packet->preservedData[0]), content.xml);
        EXPECT_EQ(bytesOf(packet->preservedData[1]), content.rest);
        EXPECT_EQ(encoded(*packet), joined(umfPackets(content.payload())));
    }
    EXPECT_THAT(capture.texts(), IsEmpty());
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(UmfPacket, UpdateThrowsAwayInOrderAndOnlyAsFarAsNeeded) {
    struct Row {
        unsigned excess;
        bool fits;
        unsigned filler;
        unsigned rest;
        unsigned xml;
        unsigned index;
    };
    // 10 bytes of filler, 20 behind the XML, 300 of it, 16 of the index.
    constexpr Row rows[] = {
        {0, true, 10, 20, 300, 16}, {1, true, 9, 20, 300, 16}, {10, true, 0, 20, 300, 16},
        {11, true, 19, 0, 300, 16}, {30, true, 0, 0, 300, 16}, {31, true, 299, 0, 0, 16},
        {330, true, 0, 0, 0, 16},   {331, true, 15, 0, 0, 0},  {346, true, 0, 0, 0, 0},
        {347, false, 0, 0, 0, 0},   {600, false, 0, 0, 0, 0},
    };
    PacketPool pool;
    for (Row const& row : rows) {
        SCOPED_TRACE(row.excess);
        UmfContent const content = sampleContent();
        unsigned const front = content.indexOffset();
        AutoRefPtr<UmfPacket> const packet = decoded(pool, content);
        packet->fillerData.fillBytes = 0;
        packet->addFillerBytes(10);
        packet->decodedPayloadSize = front + 346 - row.excess;
        packet->length = 16 + 5 + packet->decodedPayloadSize;
        packet->length += (4 - packet->length % 4) % 4;

        MessageCapture const capture;
        OpResult const result = packet->update();
        if (row.fits) {
            EXPECT_EQ(result.getType(), OpResult::Ok);
            EXPECT_EQ(packet->calcPayloadSize(), packet->decodedPayloadSize);
        } else {
            expectError(result, 12);
        }
        if (row.xml == 0) {
            EXPECT_THAT(capture.texts(), ElementsAre("discarding xml\n"));
            EXPECT_EQ(capture.count(MessageKind::Warning), 1U);
        } else {
            EXPECT_THAT(capture.texts(), IsEmpty());
        }
        EXPECT_EQ(packet->fillerData.size(), row.filler);
        EXPECT_EQ(bytesOf(packet->preservedData[1]), Bytes().fill(row.rest, 0x77));
        EXPECT_EQ(bytesOf(packet->preservedData[0]), Bytes().fill(row.xml, 0x5A));
        EXPECT_EQ(packet->umfIndex.size(), row.index);
        if (row.fits) {
            EXPECT_EQ(packet->umfIndex.words[2], row.xml != 0 ? front + 16 : 0);
            EXPECT_EQ(packet->umfIndex.words[4], row.xml);
            EXPECT_EQ(packet->payloadDesc.indexOffset, row.index != 0 ? front : 0);
            EXPECT_EQ(packet->payloadDesc.indexLength, row.index);
        } else {
            EXPECT_EQ(packet->payloadDesc.indexOffset, front);
            EXPECT_EQ(packet->payloadDesc.indexLength, 16U);
        }
    }
}

TEST(UmfPacket, UpdateChangesFiveWordsOnly) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const packet = decoded(pool, sampleContent());
    // What a stranger may have written into the words that nothing uses.
    packet->payloadDesc.totalLength = 0xFFFFFF01;
    packet->payloadDesc.trackDescOffset = 2;
    packet->payloadDesc.trackDescSize = 3;
    packet->payloadDesc.numSegments = 4;
    packet->payloadDesc.mediaDescOffset = 5;
    packet->payloadDesc.mediaDescSize = 6;
    packet->payloadDesc.userDataOffset = 7;
    packet->payloadDesc.userDataLength = 8;
    packet->payloadDesc.indexOffset = 9;
    packet->payloadDesc.indexLength = 10;
    packet->umfIndex.setXmlOffset(11);
    packet->umfIndex.setXmlLength(12);
    EXPECT_TRUE(packet->update());
    EXPECT_STREQ(packet->payloadDesc.toString().get(),
                 "totLen=-255,v3,nTrk=2(3b@2),nSeg=4,media=(6b@5),ud=321b@7,idx=16b@913");
    EXPECT_THAT(packet->umfIndex.words,
                ElementsAre(0x0102, 0x0304, 929, 0x0506, 300, 0x0708, 0x090A, 0x0B0C));
}

TEST(UmfPacket, UpdateAfterDiscardXml) {
    PacketPool pool;
    UmfContent content = sampleContent();
    AutoRefPtr<UmfPacket> const packet = decoded(pool, content);
    MessageCapture capture;
    packet->discardXml();
    EXPECT_THAT(capture.texts(MessageKind::Warning), ElementsAre("discarding xml\n"));
    EXPECT_EQ(packet->preservedData[0].size(), 0U);
    EXPECT_EQ(packet->umfIndex.words[2], 929);
    EXPECT_EQ(packet->umfIndex.words[4], 300);
    EXPECT_TRUE(packet->umfIndex.valid);
    capture.clear();
    packet->discardXml();
    EXPECT_THAT(capture.texts(), IsEmpty());

    EXPECT_EQ(packet->update().getType(), OpResult::Ok);
    EXPECT_THAT(capture.texts(), IsEmpty());
    EXPECT_EQ(packet->fillerData.size(), 300U);
    content.xml = {};
    content.rest.fill(300);
    EXPECT_EQ(encoded(*packet), joined(umfPackets(content.payload())));
}

TEST(UmfPacket, UpdateComplainsOfXmlWithoutAnIndexAndGoesOn) {
    PacketPool pool;
    UmfContent content = sampleContent();
    AutoRefPtr<UmfPacket> const packet = decoded(pool, content);
    packet->umfIndex.discard();
    MessageCapture const capture;
    EXPECT_EQ(packet->update().getType(), OpResult::Ok);
    EXPECT_THAT(capture.texts(),
                ElementsAre("UMF packet is missing contains XML but is missing index\n"));
    EXPECT_EQ(capture.count(MessageKind::Warning), 1U);
    EXPECT_EQ(packet->fillerData.size(), 16U);
    EXPECT_EQ(packet->umfIndex.words[2], 913);
    EXPECT_EQ(packet->umfIndex.words[4], 300);
    content.hasIndex = false;
    content.rest.fill(16);
    EXPECT_EQ(encoded(*packet), joined(umfPackets(content.payload())));
}

TEST(UmfPacket, UpdateCutsTheIndexToSixteenBits) {
    PacketPool pool;
    UmfContent content = sampleContent();
    content.userData = umfPair(0, "Big", Bytes().fill(70000, 1));
    AutoRefPtr<UmfPacket> const packet = decoded(pool, content);
    Bytes const before = encoded(*packet);
    EXPECT_TRUE(packet->update());
    // 592 + 316 + 70000 + 16 is 0x1150C.
    EXPECT_EQ(packet->umfIndex.words[2], 0x150C);
    EXPECT_EQ(packet->umfIndex.words[4], 300);
    EXPECT_EQ(encoded(*packet), before);

    keep(packet->preservedData[0], Bytes().fill(0x10003));
    packet->decodedPayloadSize = packet->calcPayloadSize();
    packet->length = packet->calcLength();
    EXPECT_TRUE(packet->update());
    EXPECT_EQ(packet->umfIndex.words[4], 3);
    EXPECT_EQ(packet->payloadDesc.indexOffset, 592U + 70316U);
}

TEST(UmfPacket, UpdateOfAPacketThatWasNeverDecodedDiscardsItsTailAndFails) {
    PacketPool pool;
    UmfPacket packet(pool);
    keep(packet.preservedData[0], {1});
    keep(packet.preservedData[1], {2});
    packet.umfIndex.valid = true;
    packet.addFillerBytes(3);
    MessageCapture const capture;
    expectError(packet.update(), 12);
    EXPECT_THAT(capture.texts(), ElementsAre("discarding xml\n"));
    EXPECT_EQ(packet.preservedData[0].size(), 0U);
    EXPECT_EQ(packet.preservedData[1].size(), 0U);
    EXPECT_FALSE(packet.umfIndex.valid);
    EXPECT_EQ(packet.fillerData.size(), 0U);
}

TEST(UmfPacket, EncodesPacketsOfFullFragments) {
    struct Row {
        unsigned size;
        std::vector<std::pair<unsigned, unsigned>> packets; ///< order and fragment
    };
    Row const rows[] = {
        {1249, {{3, 1249}}},
        {32767, {{3, 32767}}},
        {32768, {{3, 32768}}},
        {32769, {{1, 32768}, {2, 1}}},
        {65536, {{1, 32768}, {2, 32768}}},
        {65537, {{1, 32768}, {0, 32768}, {2, 1}}},
        {140000, {{1, 32768}, {0, 32768}, {0, 32768}, {0, 32768}, {2, 8928}}},
    };
    PacketPool pool;
    for (Row const& row : rows) {
        SCOPED_TRACE(row.size);
        UmfContent content = sampleContent();
        content.rest.fill(row.size - content.size(), 0x3C);
        AutoRefPtr<UmfPacket> const packet = decoded(pool, content);
        Bytes const wire = encoded(*packet);
        EXPECT_TRUE(wire == joined(umfPackets(content.payload())));
        std::size_t at = 0;
        for (auto const& [order, fragment] : row.packets) {
            ASSERT_LE(at + 21, wire.size());
            EXPECT_EQ(wire.vector()[at + 16], order);
            unsigned length = 0;
            for (unsigned i = 17; i < 21; ++i) {
                length = length << 8 | wire.vector()[at + i];
            }
            EXPECT_EQ(length, fragment);
            at += (21 + fragment + 3) / 4 * 4;
        }
        EXPECT_EQ(at, wire.size());
        EXPECT_EQ(packet->getPacketOrder(), static_cast<UmfPacketOrder>(row.packets.back().first));
    }
}

TEST(UmfPacket, EncodeNeedsRoomForTheCodedLength) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const packet = decoded(pool, sampleContent());
    ASSERT_EQ(packet->getCodedLength(), 1272U);
    Bytes storage = Bytes().fill(1272, 0xAA);
    GxfBuffer tooShort(storage.data(), 1271, GxfBuffer::DataState::empty, MediaAgent(nullptr));
    expectError(packet->encode(tooShort), 12);
    EXPECT_EQ(tooShort.nOccupied(), 0U);
    EXPECT_EQ(storage, Bytes().fill(1272, 0xAA));
    // Room that could be made doesn't count.
    GxfBuffer growing{MediaAgent(nullptr)};
    expectError(packet->encode(growing), 12);
    GxfBuffer out = storage.emptyBuffer();
    EXPECT_EQ(packet->encode(out).getType(), OpResult::Ok);
    EXPECT_EQ(out.nUnoccupied(), 0U);
}

TEST(UmfPacket, EncodeFailsWithTheSectionThatFails) {
    struct Row {
        char const* name;
        int code;
        void (*damage)(UmfPacket&);
    };
    constexpr Row rows[] = {
        {"media type without a layout", 13,
         [](UmfPacket& packet) { packet.mediaDescs[2].mediaType = mediaTypeMotionJPEG; }},
        {"key without its block", 12,
         [](UmfPacket& packet) { packet.userData.pairs[0].keyItem->data = nullptr; }},
        {"value without data", 13,
         [](UmfPacket& packet) { packet.userData.pairs[0].valueItem->data = nullptr; }},
        {"XML that was skipped", 14,
         [](UmfPacket& packet) {
             Bytes bytes = Bytes().fill(300);
             GxfBuffer buffer = bytes.filledBuffer();
             packet.preservedData[0].discard();
             packet.preservedData[0].decode(buffer, 300, GxfPreservedData::skip);
         }},
        {"tail that was skipped", 14,
         [](UmfPacket& packet) {
             Bytes bytes = Bytes().fill(20);
             GxfBuffer buffer = bytes.filledBuffer();
             packet.preservedData[1].discard();
             packet.preservedData[1].decode(buffer, 20, GxfPreservedData::skip);
         }},
        {"filler that makes the size wrap", 12,
         [](UmfPacket& packet) { packet.addFillerBytes(0U - packet.calcPayloadSize()); }},
    };
    PacketPool pool;
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        UmfContent const content = sampleContent();
        UmfPacket packet(pool);
        Bytes wire = umfPackets(content.payload())[0];
        GxfBuffer in(wire.data() + 16, static_cast<unsigned>(wire.size() - 16),
                     GxfBuffer::DataState::filled, MediaAgent(nullptr));
        packet.length = static_cast<unsigned>(wire.size());
        EXPECT_TRUE(packet.decode(in));
        packet.decodeFinal();
        row.damage(packet);
        Bytes storage = Bytes().fill(packet.getCodedLength());
        GxfBuffer out = storage.emptyBuffer();
        expectError(packet.encode(out), row.code);
        EXPECT_EQ(out.nOccupied(), 0U);
    }
}

TEST(UmfPacket, EncodeThatFailsHalfwayLeavesWhatItWrote) {
    PacketPool pool;
    UmfContent content = sampleContent();
    content.rest.fill(70000 - content.size());
    AutoRefPtr<UmfPacket> const packet = decoded(pool, content);
    packet->length = 40000;
    Bytes storage = Bytes().fill(40000);
    GxfBuffer out = storage.emptyBuffer();
    expectError(packet->encode(out), 12);
    EXPECT_TRUE(Bytes::occupied(out) == umfPackets(content.payload())[0]);
}

TEST(UmfPacket, EncodeOfANameThatLeavesNoPlaceForItsTerminator) {
    // 88 bytes of 1249 are missing, and each check of a length says so.
    PacketPool pool;
    UmfContent content = sampleContent();
    for (std::size_t i = 24; i < 112; ++i) {
        content.media[0][i] = 'z';
    }
    AutoRefPtr<UmfPacket> const packet = decoded(pool, content);
    ASSERT_EQ(packet->getCodedLength(), 1272U);
    Bytes storage = Bytes().fill(1272, 0xAA);
    GxfBuffer out = storage.emptyBuffer();
    MessageCapture const capture;
    EXPECT_EQ(packet->encode(out).getType(), OpResult::Ok);
    EXPECT_THAT(capture.texts(),
                ElementsAre("<<<<<<<\nEncoded 72b != dataLen of 160b (missing 88b)\n>>>>>>>\n",
                            "<<<<<<<\nEncoded 1161b != dataLen of 1249b (missing 88b)\n>>>>>>>\n",
                            "<<<<<<<\nEncoded 1184b != dataLen of 1272b (missing 88b)\n>>>>>>>\n"));
    Bytes const whole = content.payload();
    Bytes without;
    for (std::size_t i = 0; i < whole.size(); ++i) {
        // The first description begins at 112.
        if (i < 112 + 24 || i >= 112 + 112) {
            without.u8(whole.vector()[i]);
        }
    }
    EXPECT_EQ(Bytes::occupied(out), umfPacket(3, without));
}

TEST(UmfPacket, EncodeUsesOneChunkOfThePool) {
    PacketPool pool;
    Packet* const chunk = pool.alloc(packetTypeInternalUmfChunk).get();
    UmfContent content = sampleContent();
    content.rest.fill(100000);
    AutoRefPtr<UmfPacket> const packet = decoded(pool, content);
    EXPECT_NE(encoded(*packet).size(), 0U);
    AutoRefPtr<Packet> const again = pool.alloc(packetTypeInternalUmfChunk);
    EXPECT_EQ(again.get(), chunk);
    AutoRefPtr<Packet> const other = pool.alloc(packetTypeInternalUmfChunk);
    EXPECT_NE(other.get(), chunk);
}

TEST(UmfPacket, EncodeWithAPacketThatIsNoChunk) {
    class Stranger : public Packet {
      public:
        explicit Stranger(PacketPool& owner) : Packet(packetTypeInternalUmfChunk, owner) {}
        void reset(Packet const&) override {}
        void reset(PacketType) override {}
        OpResult decode(GxfBuffer&) override { return OpResult::Ok; }
        bool isEqual(Packet const&) const override { return false; }
    };
    PacketPool pool;
    AutoRefPtr<UmfPacket> const packet = decoded(pool, sampleContent());
    auto* const stranger = new Stranger(pool);
    stranger->preserve();
    stranger->release();
    Bytes storage = Bytes().fill(packet->getCodedLength());
    GxfBuffer out = storage.emptyBuffer();
    expectError(packet->encode(out), 7);
    EXPECT_EQ(out.nOccupied(), 0U);
}

TEST(UmfPacket, ResetsLeaveTheTailAndTheTimecodes) {
    PacketPool pool;
    AutoRefPtr<Packet> const source = pool.alloc(packetTypeHeader);
    source->fileOffset = 55;
    for (bool const byType : {false, true}) {
        SCOPED_TRACE(byType);
        UmfContent content = sampleContent();
        content.xml = utf16("<?xml version=\"1.0\"?><r><Track trackType=\"AudioTrack\"/></r>");
        // A packet that the pool hasn't seen: its tail is that of this document alone.
        UmfPacket packet(pool);
        Bytes wire = umfPackets(content.payload())[0];
        GxfBuffer in(wire.data() + 16, static_cast<unsigned>(wire.size() - 16),
                     GxfBuffer::DataState::filled, MediaAgent(nullptr));
        packet.length = static_cast<unsigned>(wire.size());
        EXPECT_TRUE(packet.decode(in));
        EXPECT_TRUE(packet.decodeFinal());
        packet.addFillerBytes(5);
        packet.gatherBuffer.addOutputZeros(9);
        Timecode const timecodeIn = packet.materialDesc.timecodeIn;
        Timecode const timecodeOut = packet.materialDesc.timecodeOut;
        EXPECT_FALSE(timecodeIn == Timecode());
        EXPECT_FALSE(timecodeOut == Timecode());
        if (byType) {
            packet.reset(packetTypeUmfFile);
        } else {
            packet.reset(*source);
        }
        EXPECT_EQ(packet.valid, byType);
        EXPECT_EQ(packet.getFileOffset(), byType ? 0U : 55U);
        EXPECT_STREQ(packet.preamble.toString().get(), "Uninit,payloadLen=0");
        EXPECT_FALSE(packet.preamble.valid);
        EXPECT_FALSE(packet.payloadDesc.isValid());
        EXPECT_TRUE(packet.payloadDesc.isEqual(UmfPacket::PayloadDesc()));
        EXPECT_FALSE(packet.materialDesc.valid);
        EXPECT_EQ(packet.materialDesc.maxLength, 0U);
        EXPECT_EQ(packet.trackDescs.size(), 0U);
        EXPECT_EQ(packet.mediaDescs.size(), 0U);
        EXPECT_EQ(packet.userData.nItems(), 0U);
        EXPECT_EQ(packet.userData.getNextKeyId(), 0U);
        EXPECT_EQ(packet.gatherBuffer.nOccupied(), 0U);
        EXPECT_EQ(packet.decodedPayloadSize, 0U);

        EXPECT_TRUE(packet.materialDesc.timecodeIn == timecodeIn);
        EXPECT_TRUE(packet.materialDesc.timecodeOut == timecodeOut);
        EXPECT_TRUE(packet.umfIndex.valid);
        EXPECT_EQ(packet.umfIndex.words[0], 0x0102);
        EXPECT_EQ(packet.umfIndex.getXmlLength(), content.xml.size());
        EXPECT_EQ(bytesOf(packet.preservedData[0]), content.xml);
        EXPECT_EQ(bytesOf(packet.preservedData[1]), content.rest);
        EXPECT_EQ(packet.fillerData.size(), 5U);
        EXPECT_TRUE(packet.xmlTree.isValid());
        EXPECT_EQ(packet.xmlTree.getXmlTracks().size(), 1U);
    }
}

TEST(UmfPacket, EqualByTheSectionsUpToTheIndex) {
    struct Row {
        char const* name;
        bool equal;
        void (*change)(UmfPacket&);
    };
    constexpr Row rows[] = {
        {"nothing", true, [](UmfPacket&) {}},
        {"payload", false, [](UmfPacket& p) { p.payloadDesc.mediaDescOffset ^= 1; }},
        {"payload's flag", true, [](UmfPacket& p) { p.payloadDesc.valid = false; }},
        {"material", false, [](UmfPacket& p) { p.materialDesc.reservedF ^= 1; }},
        {"track", false, [](UmfPacket& p) { p.trackDescs[1].numSegments ^= 1; }},
        {"track less", false, [](UmfPacket& p) { p.trackDescs.resize(1); }},
        {"track more", false, [](UmfPacket& p) { p.trackDescs.resize(3); }},
        {"media", false, [](UmfPacket& p) { p.mediaDescs[2].fieldOut ^= 1; }},
        {"media less", false, [](UmfPacket& p) { p.mediaDescs.resize(2); }},
        {"media more", false, [](UmfPacket& p) { p.mediaDescs.resize(4); }},
        {"user data", false, [](UmfPacket& p) { p.userData.pairs[0].valueItem->data[0] ^= 1; }},
        {"user data less", false, [](UmfPacket& p) { p.userData.removeUserData("Title"); }},
        {"index word", false, [](UmfPacket& p) { p.umfIndex.words[7] ^= 1; }},
        {"index flag", false, [](UmfPacket& p) { p.umfIndex.valid = false; }},
        {"preamble", true, [](UmfPacket& p) { p.preamble.reset(); }},
        {"XML", true, [](UmfPacket& p) { p.preservedData[0].discard(); }},
        {"tail", true, [](UmfPacket& p) { p.preservedData[1].discard(); }},
        {"filler", true, [](UmfPacket& p) { p.addFillerBytes(1); }},
        {"decoded size", true, [](UmfPacket& p) { p.decodedPayloadSize = 1; }},
        {"flag", true, [](UmfPacket& p) { p.valid = false; }},
        {"header", true, [](UmfPacket& p) { p.fileOffset = 1, p.length = 2, p.leader = 3; }},
        {"gathered", true, [](UmfPacket& p) { p.gatherBuffer.addOutputZeros(1); }},
    };
    PacketPool pool;
    AutoRefPtr<UmfPacket> const one = decoded(pool, sampleContent());
    for (Row const& row : rows) {
        AutoRefPtr<UmfPacket> const other = decoded(pool, sampleContent());
        row.change(*other);
        EXPECT_EQ(one->isEqual(*other), row.equal) << row.name;
        EXPECT_EQ(other->isEqual(*one), row.equal) << row.name;
    }
    AutoRefPtr<Packet> const map = pool.alloc(packetTypeMap);
    EXPECT_FALSE(one->isEqual(*map));
    AutoRefPtr<Packet> const bare = pool.alloc(packetTypeHeader);
    bare->type = packetTypeUmfFile;
    EXPECT_FALSE(one->isEqual(*bare));
}

TEST(UmfPacket, CloneIsADeepCopy) {
    PacketPool pool;
    UmfContent const content = sampleContent();
    AutoRefPtr<UmfPacket> const packet = decoded(pool, content);
    packet->fileOffset = 77;
    packet->addFillerBytes(5);
    packet->gatherBuffer.addOutputZeros(9);
    MessageCapture const capture;
    AutoRefPtr<UmfPacket> const copy = packet->clone();
    ASSERT_NE(copy.get(), nullptr);
    EXPECT_THAT(capture.texts(), ElementsAre("UmfPacket::clone() needs review\n"));
    EXPECT_EQ(capture.count(MessageKind::Debug), 1U);
    EXPECT_NE(copy.get(), packet.get());
    EXPECT_TRUE(packet->isEqual(*copy));
    EXPECT_TRUE(copy->isEqual(*packet));
    EXPECT_TRUE(copy->isValid());
    EXPECT_EQ(copy->getFileOffset(), 77U);
    EXPECT_EQ(copy->getCodedLength(), packet->getCodedLength());
    EXPECT_EQ(copy->getPacketOrder(), umfPacketOrderOnly);
    EXPECT_EQ(copy->getPart2Length(), content.size());
    EXPECT_EQ(copy->decodedPayloadSize, content.size());
    EXPECT_EQ(copy->fillerData.size(), 5U);
    EXPECT_EQ(bytesOf(copy->preservedData[0]), content.xml);
    EXPECT_EQ(bytesOf(copy->preservedData[1]), content.rest);
    EXPECT_EQ(copy->gatherBuffer.nOccupied(), 0U);
    EXPECT_STREQ(copy->toString().get(), packet->toString().get());

    // Each goes its own way.
    packet->fillerData.erase();
    copy->fillerData.erase();
    Bytes const before = encoded(*packet);
    packet->userData.removeUserData("Title");
    packet->preservedData[0].discard();
    packet->trackDescs[0].numSegments = 9;
    EXPECT_EQ(encoded(*copy), before);
    EXPECT_EQ(before, joined(umfPackets(content.payload())));
}

TEST(UmfPacket, CloneInARecycledPacketTakesAllButItsTree) {
    PacketPool pool;
    UmfContent old = sampleContent();
    old.userData = umfPair(9, "Old", Bytes().text("x"));
    old.xml = utf16("<?xml version=\"1.0\"?><r><Track trackType=\"AudioTrack\" "
                    "trackLabel=\"old\"/></r>");
    UmfContent content;
    content.addTrack({'3', 'A', 1});
    AutoRefPtr<UmfPacket> const packet = decoded(pool, content);
    UmfPacket const* recycled = nullptr;
    {
        AutoRefPtr<UmfPacket> const other = decoded(pool, old);
        other->addFillerBytes(7);
        recycled = other.get();
    }
    AutoRefPtr<UmfPacket> const copy = packet->clone();
    ASSERT_EQ(copy.get(), recycled);
    EXPECT_TRUE(copy->isEqual(*packet));
    EXPECT_EQ(copy->trackDescs.size(), 1U);
    EXPECT_EQ(copy->mediaDescs.size(), 1U);
    EXPECT_EQ(copy->userData.nItems(), 0U);
    EXPECT_EQ(copy->userData.getNextKeyId(), 0U);
    EXPECT_FALSE(copy->umfIndex.valid);
    EXPECT_EQ(copy->umfIndex.getXmlLength(), 0U);
    EXPECT_EQ(copy->preservedData[0].size(), 0U);
    EXPECT_EQ(copy->preservedData[1].size(), 0U);
    EXPECT_EQ(copy->fillerData.size(), 0U);
    EXPECT_EQ(encoded(*copy), joined(umfPackets(content.payload())));
    EXPECT_STREQ(copy->getXmlTrack({trackTypeEncodingAudio, static_cast<TrackNumberEncoding>('0')})
                     ->getLabel(),
                 "old");
    EXPECT_EQ(packet->xmlTree.getXmlTracks().size(), 0U);
}

TEST(UmfPacket, CloneOfAPacketThatIsNotValid) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const packet = decoded(pool, sampleContent());
    packet->valid = false;
    AutoRefPtr<UmfPacket> const copy = packet->clone();
    ASSERT_NE(copy.get(), nullptr);
    EXPECT_FALSE(copy->isValid());
}

TEST(UmfPacket, CloneThatIsNotEqualIsNone) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const packet = decoded(pool, sampleContent());
    packet->mediaDescs[0].mediaType = mediaTypeAudio;
    packet->mediaDescs[0].spec.audio.levelBegin = std::numeric_limits<double>::quiet_NaN();
    MessageCapture const capture;
    EXPECT_EQ(packet->clone().get(), nullptr);
    EXPECT_THAT(capture.texts(MessageKind::Debug),
                ElementsAre("UmfPacket::clone() needs review\n"));
    EXPECT_THAT(capture.texts(MessageKind::Error), ElementsAre("UMF Packet clone failed\n"));
}

TEST(UmfPacket, CloneOfAnotherTypeIsNone) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const packet = decoded(pool, sampleContent());
    MessageCapture const capture;
    for (PacketType const type : {packetTypeMap, packetTypeReserved}) {
        packet->type = type;
        EXPECT_EQ(packet->clone().get(), nullptr);
    }
    packet->type = packetTypeUmfFile;
    EXPECT_THAT(capture.texts(), ElementsAre("UmfPacket::clone() needs review\n",
                                             "UmfPacket::clone() needs review\n"));
}

TEST(UmfPacket, Text) {
    PacketPool pool;
    UmfContent content = sampleContent();
    AutoRefPtr<UmfPacket> const packet = decoded(pool, content);
    auto const expected = [&](unsigned indent) {
        std::string const two(indent + 2, ' ');
        std::string const four(indent + 4, ' ');
        std::string media;
        for (unsigned i = 0; i < 3; ++i) {
            media += "\n" + four + textOfSection(packet->mediaDescs[i], indent + 4);
        }
        return "umfFile:1272b@0\n" + two + "preamble={Only,payloadLen=1249}\n" + two +
               "payload={totLen=1249,v3,nTrk=2(8b@104),nSeg=3,media=(480b@112),ud=321b@592,"
               "idx=16b@913}\n" +
               two + "material={" + textOfSection(packet->materialDesc, indent + 4) + "}\n" + two +
               "track[2]={\n" + four + "Mpeg2Sd 0, 2 seg\n" + four + "Audio 1, 1 seg}\n" + two +
               "media[3]={" + media + "}\n" + two + "userdata[1]={\n" + four +
               textOfSection(packet->userData, indent + 6) + "}";
    };
    EXPECT_EQ(packet->toString().get(), expected(0));
    FormatStr text("before:");
    Packet const& base = *packet;
    EXPECT_EQ(&base.toString(3, text), &text);
    EXPECT_EQ(text.get(), "before:" + expected(3));
}

TEST(UmfPacket, TextWithoutContent) {
    PacketPool pool;
    UmfContent content;
    AutoRefPtr<UmfPacket> const packet = decoded(pool, content);
    EXPECT_EQ(packet->toString().get(),
              "umfFile:128b@0\n  preamble={Only,payloadLen=104}\n"
              "  payload={totLen=104,v3,nTrk=0(0b@104),nSeg=0,media=(0b@104),ud=0b@104,idx=0b@0}\n"
              "  material={" +
                  textOfSection(packet->materialDesc, 4) +
                  "}\n  track[0]={\n    }\n  media[0]={\n    }\n  userdata[0]={\n    }");
    packet->payloadDesc.valid = false;
    packet->valid = false;
    EXPECT_STREQ(packet->toString().get(),
                 "umfFile:128b@0,invalid\n  preamble={Only,payloadLen=104}");
    FormatStr text(128);
    EXPECT_STREQ(packet->toString(6, text).get(),
                 "umfFile:128b@0,invalid\n        preamble={Only,payloadLen=104}");
}

TEST(UmfPacket, DecodeAndEncodeMessages) {
    PacketPool pool;
    Bytes bytes = umfPackets(sampleContent().payload())[0];
    AutoRefPtr<UmfPacket> const packet = pool.alloc(packetTypeUmfFile)->getUmfPacket();
    packet->length = static_cast<unsigned>(bytes.size());
    Bytes storage = Bytes().fill(3 * bytes.size());
    GxfBuffer out = storage.emptyBuffer();
    auto const decodeAgain = [&] {
        GxfBuffer buffer = bytes.filledBuffer();
        buffer.reset(GxfBuffer::DataState::filled, 4096);
        buffer.removeInput(16);
        return packet->decode(buffer);
    };
    MessageCapture capture;
    {
        ChannelSetting const decodeLevel(gxfDecodeDetail, 1);
        ChannelSetting const encodeLevel(gxfEncodeDetail, 1);
        EXPECT_TRUE(decodeAgain());
        packet->decodeFinal();
        EXPECT_TRUE(packet->encode(out));
    }
    EXPECT_THAT(capture.texts(), IsEmpty());
    {
        ChannelSetting const decodeLevel(gxfDecodeDetail, 2);
        EXPECT_TRUE(decodeAgain());
    }
    EXPECT_THAT(capture.texts(), ElementsAre("start UmfPacket decode @4112\n"));
    EXPECT_EQ(capture.count(MessageKind::Info), 1U);
    capture.clear();

    ChannelSetting const encodeLevel(gxfEncodeDetail, 2);
    out.reset(GxfBuffer::DataState::empty, 0x123456789A);
    EXPECT_TRUE(packet->encode(out));
    EXPECT_THAT(capture.texts(), ElementsAre("start UmfPacket encode @78187493530\n",
                                             std::string("end UmfPacket encode: ") +
                                                 packet->toString().get() + "\n"));
    EXPECT_EQ(capture.count(MessageKind::Info), 2U);
    capture.clear();
    GxfBuffer none{MediaAgent(nullptr)};
    EXPECT_FALSE(packet->encode(none));
    EXPECT_THAT(capture.texts(), ElementsAre("start UmfPacket encode @0\n"));
}

TEST(UmfPacket, SamplesAreWrittenBackAsTheyCame) {
    struct Row {
        char const* file;
        unsigned umfs;
    };
    for (Row const& row :
         {Row{"news_pal.gxf", 1}, Row{"spot_ntsc.gxf", 1}, Row{"hd_short.gxf", 2}}) {
        SCOPED_TRACE(row.file);
        std::ifstream file(std::string(GXF_SAMPLES_DIR "/") + row.file, std::ios::binary);
        std::string const stream{std::istreambuf_iterator<char>(file), {}};
        ASSERT_FALSE(stream.empty());
        PacketPool pool;
        unsigned umfs = 0;
        for (std::size_t at = 0; at + 16 <= stream.size();) {
            auto const byte = [&](std::size_t i) {
                return static_cast<unsigned char>(stream[at + i]);
            };
            std::size_t const length = static_cast<std::size_t>(byte(6)) << 24 |
                                       static_cast<std::size_t>(byte(7)) << 16 |
                                       static_cast<std::size_t>(byte(8)) << 8 | byte(9);
            ASSERT_GE(length, 16U);
            if (byte(5) == 0xFD) {
                ASSERT_EQ(byte(16), 3);
                Bytes const wire = Bytes().text(stream.substr(at, length));
                AutoRefPtr<UmfPacket> const packet = gathered(pool, {wire});
                EXPECT_EQ(packet->decodeFinal().getType(), OpResult::Ok);
                EXPECT_TRUE(packet->isValid());
                EXPECT_EQ(packet->update().getType(), OpResult::Ok);
                EXPECT_EQ(encoded(*packet), wire);
                ++umfs;
            }
            at += length;
        }
        EXPECT_EQ(umfs, row.umfs);
    }
}
