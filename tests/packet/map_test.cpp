#include <gxftypes/packet/gxf.h>

#include <algorithm>
#include <fstream>
#include <iterator>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include <testing/capture.h>
#include <testing/stream_builder.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

using MapTag = Tag<MapTagType>;
using TrackTag = Tag<TrackDescTagType>;
using Preamble = MapPacket::Preamble;
using MaterialData = MapPacket::MaterialData;
using Texts = std::vector<std::string>;

AutoRefPtr<MapPacket> newMap(PacketPool& pool, std::size_t payloadSize) {
    AutoRefPtr<MapPacket> map = pool.alloc(packetTypeMap)->getMapPacket();
    map->length = static_cast<unsigned>(16 + payloadSize);
    return map;
}

OpResult decode(MapPacket& map, Bytes payload) {
    GxfBuffer buffer = payload.filledBuffer();
    return map.decode(buffer);
}

AutoRefPtr<MapPacket> decodedMap(PacketPool& pool, Bytes const& payload) {
    AutoRefPtr<MapPacket> map = newMap(pool, payload.size());
    OpResult const result = decode(*map, payload);
    EXPECT_TRUE(result) << result.toString();
    EXPECT_TRUE(map->isValid());
    return map;
}

/// What an encode leaves behind in `room` bytes.
struct Encoded {
    OpResult result;
    Bytes bytes;
};
template <typename Coder> Encoded encode(Coder const& coder, std::size_t room) {
    Bytes storage;
    storage.fill(room, 0xAA);
    GxfBuffer buffer = storage.emptyBuffer();
    OpResult const result = coder.encode(buffer);
    return {result, Bytes::occupied(buffer)};
}

Bytes encodedPacket(MapPacket const& map) {
    Encoded const encoded = encode(map, map.length);
    EXPECT_TRUE(encoded.result) << encoded.result.toString();
    return encoded.bytes;
}

Bytes prefix(Bytes const& bytes, std::size_t size) {
    return Bytes().text({reinterpret_cast<char const*>(bytes.data()), size});
}

std::string checkerText(unsigned written, unsigned announced) {
    return "<<<<<<<\nEncoded " + std::to_string(written) + "b != dataLen of " +
           std::to_string(announced) + "b (missing " +
           std::to_string(static_cast<int>(announced) - static_cast<int>(written)) +
           "b)\n>>>>>>>\n";
}

template <typename Object> std::string textAt(unsigned indent, Object const& object) {
    FormatStr text(128);
    EXPECT_EQ(&object.toString(indent, text), &text);
    return text.get();
}

void expectSizeFailure(OpResult const& result, int code, char const* file, char const* function) {
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), code);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().file, file);
    EXPECT_STREQ(result.getLocation().function, function);
    EXPECT_NE(result.getLocation().line, 0U);
}

AutoPtr<MapTag> mapTag(Bytes bytes) {
    AutoPtr<MapTag> tag(new MapTag);
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_TRUE(tag->decode(buffer, 257));
    return tag;
}

/// A text tag whose decode failed before its value.
AutoPtr<MapTag> nullTextTag() {
    AutoPtr<MapTag> tag(new MapTag);
    Bytes bytes{0x40, 9};
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_FALSE(tag->decode(buffer, 2));
    return tag;
}

// 28 bytes: preamble at 0, material data at 2 with tags at 4 and 9, track section at 15 with one
// track at 17 and its tag at 21, tail at 26.
Bytes const material = tagText(0x40, "AB").add(tagU32(0x41, 5));
Bytes const timecodeTrack = track(7, 0, tagText(0x4C, "V1"));
Bytes const smallPayload = mapPayload(material, timecodeTrack, Bytes().text("TL"));
char const smallText[] = "map:44b@0\n"
                         "preamble={version=0}\n"
                         "materialData={\n"
                         "  media={\n"
                         "  AB},\n"
                         "  1stField=5}\n"
                         "trackDesc={\n"
                         "  track 0: Timecode_525,,media={V1}}}";

} // namespace

// Preamble

TEST(MapPreamble, FreshAndReset) {
    Preamble preamble(true);
    EXPECT_EQ(preamble.versionByte, 0xE0U);
    EXPECT_EQ(preamble.reservedByte, 0U);
    EXPECT_TRUE(preamble.preambleValid);
    preamble.reservedByte = 9;
    preamble.reset(false);
    EXPECT_EQ(preamble.versionByte, 0xFFU);
    EXPECT_EQ(preamble.reservedByte, 0U);
    EXPECT_FALSE(preamble.preambleValid);
    Preamble const invalid(false);
    EXPECT_EQ(invalid.versionByte, 0xFFU);
    EXPECT_FALSE(invalid.preambleValid);
    preamble.reset(true);
    EXPECT_EQ(preamble.versionByte, 0xE0U);
    EXPECT_TRUE(preamble.preambleValid);
}

TEST(MapPreamble, TakesAnyTwoBytes) {
    for (unsigned const version : {0x00U, 0x1FU, 0x7FU, 0xE0U, 0xE1U, 0xFFU}) {
        Bytes bytes{version, 0xFF - version, 0x55};
        GxfBuffer buffer = bytes.filledBuffer();
        Preamble preamble(false);
        EXPECT_TRUE(preamble.decode(buffer, 2));
        EXPECT_EQ(preamble.versionByte, version);
        EXPECT_EQ(preamble.reservedByte, 0xFF - version);
        EXPECT_TRUE(preamble.preambleValid);
        EXPECT_EQ(buffer.nOccupied(), 1U);
        Encoded const encoded = encode(preamble, 2);
        EXPECT_TRUE(encoded.result);
        EXPECT_EQ(encoded.bytes, (Bytes{version, 0xFF - version}));
    }
}

TEST(MapPreamble, AShortPayloadConsumesNothing) {
    for (unsigned const remaining : {0U, 1U}) {
        Bytes bytes{0x12, 0x34};
        GxfBuffer buffer = bytes.filledBuffer();
        Preamble preamble(true);
        expectSizeFailure(preamble.decode(buffer, remaining), 9, "map.cpp", "decode");
        EXPECT_EQ(buffer.nOccupied(), 2U);
        EXPECT_EQ(preamble.versionByte, 0xE0U);
        EXPECT_FALSE(preamble.preambleValid);
    }
}

TEST(MapPreamble, EncodeNeedsTwoBytes) {
    for (unsigned const room : {0U, 1U}) {
        Encoded const encoded = encode(Preamble(true), room);
        expectSizeFailure(encoded.result, 12, "map.cpp", "encode");
        EXPECT_EQ(encoded.bytes, Bytes());
    }
    EXPECT_EQ(encode(Preamble(true), 7).bytes, (Bytes{0xE0, 0}));
}

TEST(MapPreamble, PrintsTheLowFiveBits) {
    Preamble preamble(true);
    EXPECT_STREQ(preamble.toString().get(), "version=0");
    preamble.versionByte = 0xFF;
    EXPECT_EQ(textAt(7, preamble), "version=31");
    preamble.versionByte = 0x61;
    EXPECT_EQ(textAt(0, preamble), "version=1");
}

TEST(MapPreamble, CopyTakesAllAndIsEqualComparesTheVersionByte) {
    Preamble source(true);
    source.versionByte = 0xE5;
    source.reservedByte = 3;
    Preamble copy(false);
    EXPECT_FALSE(copy.isEqual(source));
    copy.copy(source);
    EXPECT_EQ(copy.versionByte, 0xE5U);
    EXPECT_EQ(copy.reservedByte, 3U);
    EXPECT_TRUE(copy.preambleValid);
    copy.reservedByte = 4;
    copy.preambleValid = false;
    EXPECT_TRUE(copy.isEqual(source));
    copy.versionByte = 0x05;
    EXPECT_FALSE(copy.isEqual(source));
}

TEST(MapPreamble, LogsAboveLevelTwo) {
    for (unsigned const level : {2U, 3U}) {
        Bytes bytes{0xE3, 0};
        GxfBuffer buffer = bytes.filledBuffer();
        Preamble preamble(true);
        MessageCapture const messages;
        {
            ChannelSetting const setting(gxfDecodeDetail, level);
            EXPECT_TRUE(preamble.decode(buffer, 2));
            EXPECT_FALSE(preamble.decode(buffer, 1));
            EXPECT_TRUE(encode(preamble, 2).result);
        }
        {
            ChannelSetting const setting(gxfEncodeDetail, level);
            EXPECT_TRUE(encode(preamble, 2).result);
            EXPECT_FALSE(encode(preamble, 1).result);
        }
        Texts const expected = {
            "start Preamble decode\n",          "end Preamble decode: version=3\n",
            "start Preamble decode\n",          "start Preamble encode\n",
            "end Preamble encode: version=3\n", "start Preamble encode\n"};
        EXPECT_EQ(messages.texts(), level == 2 ? Texts() : expected);
        EXPECT_EQ(messages.texts(MessageKind::Info), messages.texts());
    }
}

// Material data

TEST(MapMaterialData, FreshAndReset) {
    MaterialData data(true);
    EXPECT_TRUE(data.isValid());
    EXPECT_EQ(data.sectionLength, 0U);
    EXPECT_EQ(data.getCodedLength(), 2U);
    data.sectionLength = 0xFFFF;
    EXPECT_EQ(data.getCodedLength(), 0x10001U);
    data.addTag(mapTag(tagU32(0x41, 1)));
    data.reset(false);
    EXPECT_FALSE(data.isValid());
    EXPECT_EQ(data.sectionLength, 0U);
    EXPECT_EQ(data.size(), 0U);
    EXPECT_FALSE(MaterialData(false).isValid());
}

TEST(MapMaterialData, DecodesEveryTag) {
    Bytes const tags = tagText(0x40, "SPOT")
                           .add(tagU32(0x41, 0))
                           .add(tagU32(0x42, 119))
                           .add(tagU32(0x43, 10))
                           .add(tagU32(0x44, 90))
                           .add(tagU32(0x45, 648))
                           .add(tagU32(0x46, 1))
                           .add(tag(0x47, Bytes().u64(2)))
                           .add(tagText(0x48, "a"))
                           .add(tagText(0x49, "b"))
                           .add(tagText(0x4A, "c"))
                           .add(tagText(0x4B, "d"));
    Bytes bytes = Bytes().u16(static_cast<unsigned>(tags.size())).add(tags);
    Bytes const section = bytes;
    bytes.u8(0x99);
    GxfBuffer buffer = bytes.filledBuffer();
    MaterialData data(true);
    EXPECT_TRUE(data.decode(buffer, static_cast<unsigned>(bytes.size())));
    EXPECT_EQ(buffer.nOccupied(), 1U);
    EXPECT_EQ(data.size(), 12U);
    EXPECT_EQ(data.sectionLength, tags.size());
    EXPECT_STREQ(data.toString().get(),
                 "media={SPOT},\n1stField=0,\nlastField=119,\nmarkIn=10,\nmarkOut=90,\nsizeEst=648,"
                 "\nrsv46=1,\nrsv47=2,\nrsv48={a},\nrsv49={b},\nrsv4A={c},\nrsv48={d}");
    Encoded const encoded = encode(data, section.size());
    EXPECT_TRUE(encoded.result);
    EXPECT_EQ(encoded.bytes, section);
}

TEST(MapMaterialData, AnEmptySection) {
    Bytes bytes{0, 0, 7};
    GxfBuffer buffer = bytes.filledBuffer();
    MaterialData data(true);
    EXPECT_TRUE(data.decode(buffer, 2));
    EXPECT_EQ(data.size(), 0U);
    EXPECT_EQ(buffer.nOccupied(), 1U);
    EXPECT_EQ(encode(data, 2).bytes, (Bytes{0, 0}));
}

TEST(MapMaterialData, ASectionThatOverrunsThePayload) {
    struct {
        unsigned sectionLength, remaining, consumed;
    } const rows[] = {{6, 0, 0}, {6, 1, 0}, {6, 2, 2}, {6, 7, 2}, {0xFFFF, 8, 2}, {1, 2, 2}};
    for (auto const& row : rows) {
        SCOPED_TRACE(testing::Message() << row.sectionLength << " of " << row.remaining);
        Bytes bytes = Bytes().u16(row.sectionLength).add(tagU32(0x41, 1));
        GxfBuffer buffer = bytes.filledBuffer();
        MaterialData data(true);
        data.sectionLength = 77;
        expectSizeFailure(data.decode(buffer, row.remaining), 9, "map.cpp", "decode");
        EXPECT_EQ(buffer.beginOffset(), row.consumed);
        EXPECT_EQ(data.size(), 0U);
        EXPECT_EQ(data.sectionLength, row.consumed == 0 ? 77U : row.sectionLength);
    }
}

TEST(MapMaterialData, ATagsFailureKeepsTheTagsBefore) {
    struct {
        Bytes bad;
        int code;
        char const* text;
    } const rows[] = {{Bytes{0x4C, 1, 9}, 10, "Tag type=76,len=1 unknown"},
                      {Bytes{0x41}, 9, ""},
                      {Bytes{0x40, 3, 'a', 'b'}, 9, ""},
                      {Bytes{0, 0}, 10, "Tag type=0,len=0 unknown"}};
    for (auto const& row : rows) {
        Bytes const tags = Bytes(tagU32(0x42, 7)).add(row.bad);
        Bytes bytes = Bytes().u16(static_cast<unsigned>(tags.size())).add(tags).fill(10, 0x41);
        GxfBuffer buffer = bytes.filledBuffer();
        MaterialData data(true);
        OpResult const result = data.decode(buffer, 100);
        EXPECT_EQ(result.getCode(), row.code);
        EXPECT_STREQ(result.getText(), row.text);
        ASSERT_EQ(data.size(), 1U);
        EXPECT_STREQ(data.toString().get(), "lastField=7");
    }
}

TEST(MapMaterialData, CountsTheLengthsThatTheTagsClaim) {
    // A length of 2 consumes six bytes and counts four; one of 8 consumes six and counts ten.
    Bytes bytes = Bytes().u16(4 + 10 + 5);
    bytes.add(Bytes{0x41, 2, 0, 0, 0, 1}).add(Bytes{0x42, 8, 0, 0, 0, 2}).add(tagText(0x40, "ab"));
    bytes.fill(20, 0x33);
    GxfBuffer buffer = bytes.filledBuffer();
    MaterialData data(true);
    EXPECT_TRUE(data.decode(buffer, 21));
    EXPECT_STREQ(data.toString().get(), "1stField=1,\nlastField=2,\nmedia={ab}");
    EXPECT_EQ(buffer.beginOffset(), 2U + 6 + 6 + 5);
}

TEST(MapMaterialData, ASecondDecodeAppends) {
    MaterialData data(true);
    for (unsigned const value : {1U, 2U}) {
        Bytes bytes = Bytes().u16(6).add(tagU32(0x41, value));
        GxfBuffer buffer = bytes.filledBuffer();
        EXPECT_TRUE(data.decode(buffer, 8));
    }
    EXPECT_STREQ(data.toString().get(), "1stField=1,\n1stField=2");
    EXPECT_EQ(data.sectionLength, 6U);
}

TEST(MapMaterialData, LengthsThatDisagreeAreTold) {
    struct {
        Bytes tags;
        unsigned sectionLength, room, written;
    } const rows[] = {
        {Bytes{0x41, 2, 0, 0, 0, 1}, 4, 20, 8},
        {Bytes{0x41, 2, 0, 0, 0, 1}, 4, 6, 4},
        {Bytes{0x41, 8, 0, 0, 0, 1, 9, 9}, 10, 20, 8},
        {Bytes{0x40, 3, 'a', 'b', 'c'}, 5, 20, 8},
        {Bytes{0x40, 3, 'a', 'b', 'c'}, 5, 7, 4},
        {Bytes{0x40, 4, 'a', 0, 'c', 0}, 6, 20, 6},
        {Bytes{0x40, 0}, 2, 20, 5},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(testing::Message() << row.tags << ", room " << row.room);
        Bytes bytes = Bytes().u16(row.sectionLength).add(row.tags);
        GxfBuffer buffer = bytes.filledBuffer();
        MaterialData data(true);
        EXPECT_TRUE(data.decode(buffer, row.sectionLength + 2));
        MessageCapture const messages;
        Encoded const encoded = encode(data, row.room);
        EXPECT_TRUE(encoded.result);
        EXPECT_EQ(encoded.bytes.size(), row.written);
        EXPECT_EQ(messages.texts(), Texts{checkerText(row.written, row.sectionLength + 2)});
        EXPECT_EQ(messages.texts(MessageKind::Info), messages.texts());
    }
    EXPECT_EQ(checkerText(8, 6), "<<<<<<<\nEncoded 8b != dataLen of 6b (missing -2b)\n>>>>>>>\n");
}

TEST(MapMaterialData, EncodeNeedsTheClaimedLength) {
    Bytes bytes = Bytes().u16(6).add(tagU32(0x41, 1));
    GxfBuffer buffer = bytes.filledBuffer();
    MaterialData data(true);
    EXPECT_TRUE(data.decode(buffer, 8));
    for (unsigned room = 0; room < 8; ++room) {
        Encoded const encoded = encode(data, room);
        expectSizeFailure(encoded.result, 12, "map.cpp", "encode");
        EXPECT_EQ(encoded.bytes, Bytes());
    }
    EXPECT_EQ(encode(data, 8).bytes, bytes);
    // A claim that is too small lets a tag run out of room behind the first one.
    data.sectionLength = 0;
    data.addTag(mapTag(tagU32(0x42, 2)));
    Encoded const encoded = encode(data, 10);
    expectSizeFailure(encoded.result, 12, "map_tag.cpp", "encode");
    EXPECT_EQ(encoded.bytes, Bytes().u16(0).add(tagU32(0x41, 1)));
}

TEST(MapMaterialData, EncodeStopsAtATagWithoutADataType) {
    MaterialData data(true);
    data.addTag(mapTag(tagU32(0x41, 1)));
    data.addTag(AutoPtr<MapTag>(new MapTag));
    data.addTag(mapTag(tagU32(0x42, 2)));
    Encoded const encoded = encode(data, 50);
    EXPECT_EQ(encoded.result.getCode(), 13);
    EXPECT_STREQ(encoded.result.getText(), "Tag type=0,len=0 unknown");
    EXPECT_EQ(encoded.bytes, Bytes().u16(0).add(tagU32(0x41, 1)).u16(0));
}

TEST(MapMaterialData, CopyIsValidAndKeepsTheLength) {
    MaterialData source(false);
    source.sectionLength = 12;
    source.addTag(mapTag(tagText(0x40, "ab")));
    source.addTag(mapTag(tagU32(0x41, 3)));
    MaterialData copy(false);
    copy.addTag(mapTag(tagU32(0x46, 9)));
    copy.copy(source);
    EXPECT_TRUE(copy.isValid());
    EXPECT_FALSE(source.isValid());
    EXPECT_EQ(copy.sectionLength, 12U);
    EXPECT_TRUE(copy.isEqual(source));
    EXPECT_EQ(source.size(), 2U);
    EXPECT_STREQ(copy.toString().get(), "media={ab},\n1stField=3");
    source.reset(true);
    EXPECT_STREQ(copy.toString().get(), "media={ab},\n1stField=3");
}

TEST(MapMaterialData, IsEqualWithoutItsLengthAndFlag) {
    MaterialData a(true);
    MaterialData b(false);
    a.sectionLength = 1;
    EXPECT_TRUE(a.isEqual(b));
    a.addTag(mapTag(tagU32(0x41, 3)));
    EXPECT_FALSE(a.isEqual(b));
}

TEST(MapMaterialData, LogsAboveLevelTwo) {
    for (unsigned const level : {2U, 3U}) {
        Bytes bytes = Bytes().u16(11).add(material);
        GxfBuffer buffer = bytes.filledBuffer();
        buffer.reset(GxfBuffer::DataState::filled, 5000000000);
        MaterialData data(true);
        MessageCapture const messages;
        {
            ChannelSetting const setting(gxfDecodeDetail, level);
            EXPECT_TRUE(data.decode(buffer, 13));
            EXPECT_FALSE(data.decode(buffer, 1));
        }
        {
            ChannelSetting const setting(gxfEncodeDetail, level);
            EXPECT_TRUE(encode(data, 13).result);
            EXPECT_FALSE(encode(data, 12).result);
        }
        Texts const expected = {"start MaterialData decode @5000000000\n",
                                "end MaterialData decode: {\nmedia={AB},\n1stField=5\n}\n",
                                "start MaterialData decode @5000000013\n",
                                "start MaterialData encode @0\n",
                                "end MaterialData encode: {\nmedia={AB},\n1stField=5\n}\n",
                                "start MaterialData encode @0\n"};
        EXPECT_EQ(messages.texts(), level == 2 ? Texts() : expected);
        EXPECT_EQ(messages.texts(MessageKind::Info), messages.texts());
    }
}

// The packet

TEST(MapPacket, FreshByType) {
    PacketPool pool;
    MapPacket const map(pool);
    EXPECT_EQ(map.getType(), packetTypeMap);
    EXPECT_EQ(map.length, 16U);
    EXPECT_EQ(map.preamble.versionByte, 0xE0U);
    EXPECT_TRUE(map.preamble.preambleValid);
    EXPECT_TRUE(map.materialData.isValid());
    EXPECT_TRUE(map.tracks.valid);
    EXPECT_EQ(map.preservedData.size(), 0U);
    EXPECT_TRUE(map.packetValid);
    EXPECT_TRUE(map.isValid());
    EXPECT_STREQ(map.toString().get(), "map:16b@0\npreamble={version=0}\n"
                                       "materialData={\n  }\ntrackDesc={\n  }");
}

TEST(MapPacket, FreshFromAHeader) {
    PacketPool pool;
    PacketHeader header(pool);
    header.type = packetTypeMap;
    header.length = 99;
    header.fileOffset = 12345;
    MapPacket const map(header);
    EXPECT_EQ(map.getType(), packetTypeMap);
    EXPECT_EQ(map.length, 99U);
    EXPECT_EQ(map.getFileOffset(), 12345U);
    EXPECT_EQ(map.preamble.versionByte, 0xFFU);
    EXPECT_FALSE(map.preamble.preambleValid);
    EXPECT_FALSE(map.materialData.isValid());
    EXPECT_FALSE(map.tracks.valid);
    EXPECT_EQ(map.preservedData.size(), 0U);
    EXPECT_FALSE(map.packetValid);
    EXPECT_FALSE(map.isValid());
    EXPECT_STREQ(map.toString().get(), "map:99b@12345,invalid\npreamble={version=31}\n"
                                       "materialData={\n  }\ntrackDesc={\n  }");
}

TEST(MapPacket, ResetEmptiesTheSections) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = decodedMap(pool, smallPayload);
    PacketHeader header(pool);
    header.type = packetTypeMap;
    header.length = 20;
    map->reset(header);
    EXPECT_EQ(map->length, 20U);
    EXPECT_EQ(map->preamble.versionByte, 0xFFU);
    EXPECT_FALSE(map->materialData.isValid());
    EXPECT_EQ(map->materialData.size(), 0U);
    EXPECT_EQ(map->materialData.sectionLength, 0U);
    EXPECT_FALSE(map->tracks.valid);
    EXPECT_EQ(map->tracks.size(), 0U);
    EXPECT_EQ(map->tracks.sectionLength, 0U);
    EXPECT_FALSE(map->isValid());
    map->reset(packetTypeMap);
    EXPECT_EQ(map->length, 16U);
    EXPECT_EQ(map->preamble.versionByte, 0xE0U);
    EXPECT_TRUE(map->preamble.preambleValid);
    EXPECT_TRUE(map->materialData.isValid());
    EXPECT_TRUE(map->tracks.valid);
    EXPECT_TRUE(map->isValid());
}

TEST(MapPacket, LengthsAndCasts) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = newMap(pool, 0);
    struct {
        unsigned length, payload, part2;
    } const rows[] = {{18, 2, 0},
                      {44, 28, 26},
                      {17, 1, 0xFFFFFFFF},
                      {16, 0, 0xFFFFFFFE},
                      {0, 0xFFFFFFF0, 0xFFFFFFEE}};
    for (auto const& row : rows) {
        map->length = row.length;
        EXPECT_EQ(map->getPayloadLength(), row.payload);
        EXPECT_EQ(map->getPart1Length(), 2U);
        EXPECT_EQ(map->getPart2Length(), row.part2);
        EXPECT_EQ(map->calcLength(), row.length);
    }
    GxfBuffer empty(MediaAgent(nullptr));
    EXPECT_TRUE(map->needsAllData(empty));
    EXPECT_EQ(map->getMapPacket().get(), map.get());
    EXPECT_EQ(map->getMediaPacket().get(), nullptr);
    EXPECT_EQ(map->getUmfPacket().get(), nullptr);
    EXPECT_EQ(map->getFltPacket().get(), nullptr);
    EXPECT_EQ(map->getEosPacket().get(), nullptr);
    EXPECT_EQ(map->getPacketOrder(), umfPacketOrderUninit);
}

TEST(MapPacket, IsValidNeedsHeaderAndPayload) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = decodedMap(pool, smallPayload);
    map->trailerE1 = 0;
    EXPECT_FALSE(map->isValid());
    map->trailerE1 = 0xE1;
    EXPECT_TRUE(map->isValid());
    map->packetValid = false;
    EXPECT_FALSE(map->isValid());
}

TEST(MapPacket, DecodesAllSections) {
    PacketPool pool;
    Bytes payload = smallPayload;
    AutoRefPtr<MapPacket> const map = newMap(pool, 28);
    Bytes more = Bytes(payload).u8(0x77);
    GxfBuffer buffer = more.filledBuffer();
    EXPECT_TRUE(map->decode(buffer));
    EXPECT_EQ(buffer.nOccupied(), 1U);
    EXPECT_TRUE(map->isValid());
    EXPECT_EQ(map->preamble.versionByte, 0xE0U);
    EXPECT_EQ(map->preamble.reservedByte, 0xFFU);
    EXPECT_EQ(map->materialData.size(), 2U);
    EXPECT_EQ(map->materialData.sectionLength, 11U);
    EXPECT_EQ(map->tracks.size(), 1U);
    EXPECT_EQ(map->tracks.sectionLength, 9U);
    EXPECT_EQ(map->tracks[0]->getMediaType(), trackMediaTimecode_525);
    ASSERT_EQ(map->preservedData.size(), 2U);
    EXPECT_EQ(map->preservedData.getData()[0], 'T');
    EXPECT_EQ(map->preservedData.getData()[1], 'L');
    EXPECT_EQ(map->preservedData.getFileOffset(), 26U);
    EXPECT_STREQ(map->toString().get(), smallText);
    EXPECT_EQ(encodedPacket(*map), packet(0xBC, smallPayload));
}

TEST(MapPacket, PrintsWithAnIndent) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map =
        decodedMap(pool, mapPayload(material, Bytes(timecodeTrack).add(track(9, 1, {}))));
    EXPECT_EQ(textAt(3, *map), "map:46b@0\n"
                               "   preamble={version=0}\n"
                               "   materialData={\n"
                               "     media={\n"
                               "     AB},\n"
                               "     1stField=5}\n"
                               "   trackDesc={\n"
                               "     track 0: Timecode_525,,media={V1}},\n"
                               "     track 1: AudioPCM_24,}}");
}

TEST(MapPacket, TheSmallestPayload) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = decodedMap(pool, Bytes{0x00, 0xFF, 0, 0, 0, 0});
    EXPECT_EQ(map->materialData.size(), 0U);
    EXPECT_EQ(map->tracks.size(), 0U);
    EXPECT_EQ(map->preservedData.size(), 0U);
    EXPECT_EQ(map->preservedData.getData(), nullptr);
    EXPECT_EQ(map->preservedData.getFileOffset(), 0U);
    EXPECT_EQ(encodedPacket(*map), packet(0xBC, Bytes{0x00, 0xFF, 0, 0, 0, 0}));
}

TEST(MapPacket, DecodesBehindItsHeader) {
    PacketPool pool;
    Bytes stream = packet(0xBC, smallPayload);
    GxfBuffer buffer = stream.filledBuffer();
    buffer.reset(GxfBuffer::DataState::filled, 1000);
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    EXPECT_TRUE(header->decode(buffer));
    AutoRefPtr<Packet> const actual = header->createActual();
    ASSERT_NE(actual.get(), nullptr);
    EXPECT_FALSE(actual->isValid());
    EXPECT_TRUE(actual->decode(buffer));
    EXPECT_TRUE(actual->isValid());
    EXPECT_EQ(actual->getMapPacket()->preservedData.getFileOffset(), 1042U);
    EXPECT_EQ(encodedPacket(*actual->getMapPacket()), packet(0xBC, smallPayload));
}

TEST(MapPacket, APayloadThatEndsAtAnyByte) {
    PacketPool pool;
    for (std::size_t size = 0; size <= 28; ++size) {
        SCOPED_TRACE(size);
        AutoRefPtr<MapPacket> const map = newMap(pool, size);
        Bytes payload = prefix(smallPayload, size);
        GxfBuffer buffer = payload.filledBuffer();
        OpResult const result = map->decode(buffer);
        EXPECT_EQ(map->isValid(), size >= 26);
        EXPECT_EQ(map->preamble.preambleValid, size >= 2);
        EXPECT_EQ(map->materialData.size(), size >= 15 ? 2U : 0U);
        EXPECT_EQ(map->tracks.size(), size >= 26 ? 1U : 0U);
        EXPECT_EQ(map->preservedData.size(), size >= 26 ? size - 26 : 0U);
        if (size >= 26) {
            EXPECT_TRUE(result);
            EXPECT_EQ(encodedPacket(*map), packet(0xBC, payload));
            continue;
        }
        // What is left of the payload ends in the preamble, the material data or the tracks.
        expectSizeFailure(result, 9, size < 15 ? "map.cpp" : "map_track.cpp", "decode");
        std::size_t const consumed = size < 2    ? 0
                                     : size < 4  ? 2
                                     : size < 15 ? 4
                                     : size < 17 ? 15
                                                 : 17;
        EXPECT_EQ(buffer.beginOffset(), consumed);
    }
}

TEST(MapPacket, ABufferThatEndsAtAnyByte) {
    // The header claims all of the payload: what is missing reads as zero.
    constexpr int ok = 0;
    char const* const noTag = "MapPkt:Timecode_525, Track 0:Tag type=0,len=0 unknown";
    struct {
        std::size_t first, last;
        int code;
        char const* text;
        unsigned tags, tracks;
        bool valid;
    } const rows[] = {
        {0, 3, ok, "", 0, 0, false},         // two empty sections, a tail that isn't there
        {4, 4, 9, "", 0, 0, false},          // tag 0 has no data type
        {5, 9, 9, "", 1, 0, false},          // a text of what is there, then tag 0
        {10, 10, 9, "", 2, 0, false},        // number 0 of length 0, then tag 0
        {11, 16, ok, "", 2, 0, false},       // an empty track section, a tail that isn't there
        {17, 20, 9, "MapPkt:", 2, 0, false}, // less than the four bytes of a track
        {21, 22, 10, noTag, 2, 0, false},    // tag 0 has no data type
        {23, 27, ok, "", 2, 1, false},       // a tail that isn't all there
        {28, 28, ok, "", 2, 1, true},
    };
    PacketPool pool;
    for (auto const& row : rows) {
        for (std::size_t size = row.first; size <= row.last; ++size) {
            SCOPED_TRACE(size);
            AutoRefPtr<MapPacket> const map = newMap(pool, 28);
            map->preservedData.discard();
            OpResult const result = decode(*map, prefix(smallPayload, size));
            EXPECT_EQ(result.success(), row.code == ok);
            EXPECT_EQ(result.getCode(), row.code);
            EXPECT_STREQ(result.getText(), row.text);
            EXPECT_EQ(map->materialData.size(), row.tags);
            EXPECT_EQ(map->tracks.size(), row.tracks);
            EXPECT_EQ(map->isValid(), row.valid);
            EXPECT_EQ(map->packetValid, row.valid);
            EXPECT_EQ(map->preservedData.size(), row.valid ? 2U : 0U);
        }
    }
}

TEST(MapPacket, AHeaderLengthBelowItsOwnSizeIsSafe) {
    PacketPool pool;
    for (unsigned const length : {0U, 1U, 15U}) {
        AutoRefPtr<MapPacket> const map = newMap(pool, 0);
        map->length = length;
        EXPECT_TRUE(decode(*map, smallPayload));
        EXPECT_FALSE(map->packetValid);
        EXPECT_EQ(map->materialData.size(), 2U);
        EXPECT_EQ(map->tracks.size(), 1U);
        EXPECT_EQ(map->preservedData.size(), 0U);
    }
}

TEST(MapPacket, AFailedPreambleTouchesNothingElse) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = decodedMap(pool, smallPayload);
    map->length = 17;
    expectSizeFailure(decode(*map, smallPayload), 9, "map.cpp", "decode");
    EXPECT_FALSE(map->packetValid);
    EXPECT_FALSE(map->preamble.preambleValid);
    EXPECT_EQ(map->preamble.versionByte, 0xE0U);
    EXPECT_EQ(map->materialData.size(), 2U);
    EXPECT_EQ(map->tracks.size(), 1U);
    EXPECT_EQ(map->preservedData.size(), 2U);
}

TEST(MapPacket, APayloadOfTwoBytesFailsAtTheMaterialData) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = newMap(pool, 2);
    expectSizeFailure(decode(*map, Bytes{0xE1, 0x22}), 9, "map.cpp", "decode");
    EXPECT_TRUE(map->preamble.preambleValid);
    EXPECT_EQ(map->preamble.versionByte, 0xE1U);
    EXPECT_EQ(map->preamble.reservedByte, 0x22U);
    EXPECT_FALSE(map->isValid());
}

TEST(MapPacket, AMaterialSectionThatClaimsOneByteTooMany) {
    PacketPool pool;
    for (unsigned const excess : {1U, 2U, 100U}) {
        Bytes payload = Bytes{0xE0, 0}.u16(6 + excess).add(tagU32(0x41, 1));
        AutoRefPtr<MapPacket> const map = newMap(pool, payload.size());
        expectSizeFailure(decode(*map, payload), 9, "map.cpp", "decode");
        EXPECT_EQ(map->materialData.size(), 0U);
        EXPECT_EQ(map->materialData.sectionLength, 6 + excess);
        EXPECT_FALSE(map->isValid());
    }
}

TEST(MapPacket, ATrackSectionThatClaimsOneByteTooMany) {
    PacketPool pool;
    Bytes const payload = mapPayload(material, {}).u16(0);
    Bytes bad = payload;
    bad[16] = 3;
    AutoRefPtr<MapPacket> const map = newMap(pool, bad.size());
    expectSizeFailure(decode(*map, bad), 9, "map_track.cpp", "decode");
    EXPECT_EQ(map->materialData.size(), 2U);
    EXPECT_EQ(map->tracks.size(), 0U);
    EXPECT_FALSE(map->isValid());
}

TEST(MapPacket, AnUnknownMaterialTagReachesTheCallerAsASizeFailure) {
    PacketPool pool;
    Bytes const payload = mapPayload(Bytes(material).add(Bytes{0x4C, 2, 'x', 0}), timecodeTrack);
    AutoRefPtr<MapPacket> const map = newMap(pool, payload.size());
    MessageCapture const messages;
    expectSizeFailure(decode(*map, payload), 9, "map.cpp", "decode");
    EXPECT_EQ(map->materialData.size(), 2U);
    EXPECT_EQ(map->tracks.size(), 0U);
    EXPECT_TRUE(map->preamble.preambleValid);
    EXPECT_FALSE(map->packetValid);
    // Both are raised: the tag's own failure and the one that hides it.
    Texts const traces = messages.texts(MessageKind::Trace);
    ASSERT_EQ(traces.size(), 2U);
    EXPECT_EQ(traces[0], "error badDecodeData: Tag type=76,len=2 unknown\n");
}

TEST(MapPacket, ATracksFailureComesWithItsNotes) {
    PacketPool pool;
    Bytes const tracks = Bytes(timecodeTrack).add(track(10, 5, Bytes{0x53, 2, 1, 2}));
    Bytes const payload = mapPayload(material, tracks, Bytes{1});
    AutoRefPtr<MapPacket> const map = newMap(pool, payload.size());
    OpResult const result = decode(*map, payload);
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), 10);
    EXPECT_STREQ(result.getText(), "MapPkt:AudioPCM_16, Track 5:Tag type=83,len=2 unknown");
    EXPECT_FALSE(map->isValid());
    EXPECT_EQ(map->materialData.size(), 2U);
    EXPECT_EQ(map->tracks.size(), 1U);
    EXPECT_EQ(map->preservedData.size(), 0U);
}

TEST(MapPacket, ATailThatIsNotInTheBufferIsToldByIsValidAlone) {
    PacketPool pool;
    for (unsigned const missing : {1U, 2U, 1000U}) {
        AutoRefPtr<MapPacket> const map = newMap(pool, 26 + missing);
        map->preservedData.discard();
        OpResult const result = decode(*map, prefix(smallPayload, 26));
        EXPECT_TRUE(result);
        EXPECT_EQ(result.getType(), OpResult::Ok);
        EXPECT_EQ(result.getCode(), 0);
        EXPECT_FALSE(map->isValid());
        EXPECT_EQ(map->tracks.size(), 1U);
        EXPECT_EQ(map->preservedData.size(), 0U);
    }
}

TEST(MapPacket, AFailureMakesAValidPacketInvalidAndASuccessValid) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = decodedMap(pool, smallPayload);
    EXPECT_TRUE(decode(*map, prefix(smallPayload, 26)));
    EXPECT_FALSE(map->isValid());
    EXPECT_EQ(map->preservedData.size(), 2U);
    EXPECT_TRUE(decode(*map, smallPayload));
    EXPECT_TRUE(map->isValid());
}

TEST(MapPacket, ASecondDecodeAppends) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = decodedMap(pool, smallPayload);
    EXPECT_TRUE(decode(*map, smallPayload));
    EXPECT_TRUE(map->isValid());
    EXPECT_EQ(map->materialData.size(), 4U);
    EXPECT_EQ(map->tracks.size(), 2U);
    EXPECT_EQ(map->preservedData.size(), 2U);
    MessageCapture const messages;
    Encoded const encoded = encode(*map, 100);
    EXPECT_TRUE(encoded.result);
    EXPECT_EQ(encoded.bytes, header(0xBC, 44)
                                 .add(Bytes{0xE0, 0xFF})
                                 .u16(11)
                                 .add(material)
                                 .add(material)
                                 .u16(9)
                                 .add(timecodeTrack)
                                 .add(timecodeTrack)
                                 .text("TL"));
    EXPECT_EQ(messages.texts(),
              (Texts{checkerText(24, 13), checkerText(20, 11), checkerText(64, 44)}));
}

TEST(MapPacket, ARecycledPacketKeepsItsTailUntilTheNextOne) {
    PacketPool pool;
    MapPacket const* first = nullptr;
    {
        AutoRefPtr<MapPacket> const map = decodedMap(pool, smallPayload);
        first = map.get();
    }
    Bytes const small{0xE0, 0, 0, 0, 0, 0};
    {
        AutoRefPtr<MapPacket> const map = decodedMap(pool, small);
        ASSERT_EQ(map.get(), first);
        EXPECT_EQ(map->preservedData.size(), 2U);
        MessageCapture const messages;
        Encoded const encoded = encode(*map, 24);
        EXPECT_TRUE(encoded.result);
        EXPECT_EQ(encoded.bytes, packet(0xBC, small).text("TL"));
        EXPECT_EQ(messages.texts(), Texts{checkerText(24, 22)});
        // A buffer of the packet's own length has no room for the old tail.
        Encoded const tight = encode(*map, 22);
        EXPECT_EQ(tight.result.getCode(), 12);
        EXPECT_EQ(tight.bytes, packet(0xBC, small));
    }
    {
        AutoRefPtr<MapPacket> const map = decodedMap(pool, Bytes(small).text("new"));
        ASSERT_EQ(map.get(), first);
        EXPECT_EQ(encodedPacket(*map), packet(0xBC, Bytes(small).text("new")));
    }
}

TEST(MapPacket, ResetKeepsTheStripedTimecode) {
    // 10:00:00:00 in frames, seconds, minutes, hours.
    Bytes const aux{0x4D, 8, 0, 0, 0, 10, 'N', 'E', 'W', 'S'};
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = decodedMap(pool, mapPayload({}, track(8, 0, aux)));
    FormatStr text(32);
    EXPECT_STREQ(map->tracks.stripedTc.toString(25, text).get(), "10:00:00:00");
    map->reset(packetTypeMap);
    EXPECT_TRUE(map->tracks.stripedTc.valid);
    Bytes const audio = mapPayload({}, track(9, 0, {}));
    map->length = static_cast<unsigned>(16 + audio.size());
    EXPECT_TRUE(decode(*map, audio));
    FormatStr again(32);
    EXPECT_STREQ(map->tracks.stripedTc.toString(25, again).get(), "10:00:00:00");
}

TEST(MapPacket, EncodeNeedsItsLength) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = decodedMap(pool, smallPayload);
    for (unsigned room = 0; room < 44; ++room) {
        Encoded const encoded = encode(*map, room);
        expectSizeFailure(encoded.result, 12, "map.cpp", "encode");
        EXPECT_EQ(encoded.bytes, Bytes());
    }
    EXPECT_EQ(encode(*map, 45).bytes, packet(0xBC, smallPayload));
}

TEST(MapPacket, EncodeKeepsTheBytesInFrontOfAFailure) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = decodedMap(pool, smallPayload);
    map->length = 0;
    Bytes const all = header(0xBC, 0).add(smallPayload);
    for (unsigned room = 0; room < 44; ++room) {
        SCOPED_TRACE(room);
        // The sections begin at 0, 16, 18, 31 and 42.
        unsigned const written = room < 16   ? 0
                                 : room < 18 ? 16
                                 : room < 31 ? 18
                                 : room < 42 ? 31
                                             : 42;
        Encoded const encoded = encode(*map, room);
        EXPECT_EQ(encoded.result.getCode(), 12);
        EXPECT_EQ(encoded.bytes, prefix(all, written));
    }
    MessageCapture const messages;
    EXPECT_EQ(encode(*map, 44).bytes, all);
    EXPECT_EQ(messages.texts(), Texts{checkerText(44, 0)});
}

TEST(MapPacket, EncodeReturnsATagsFailure) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = decodedMap(pool, smallPayload);
    map->materialData.addTag(AutoPtr<MapTag>(new MapTag));
    Encoded const encoded = encode(*map, 100);
    EXPECT_EQ(encoded.result.getCode(), 13);
    EXPECT_STREQ(encoded.result.getText(), "Tag type=0,len=0 unknown");
    EXPECT_EQ(encoded.bytes, prefix(packet(0xBC, smallPayload), 31).u16(0));
    map->tracks[0]->trackTags.addTag(AutoPtr<TrackTag>(new TrackTag));
    map->materialData.tags.erase(2);
    Encoded const inTrack = encode(*map, 100);
    EXPECT_EQ(inTrack.result.getCode(), 13);
    EXPECT_EQ(inTrack.bytes, prefix(packet(0xBC, smallPayload), 42).u16(0));
}

TEST(MapPacket, EncodeReturnsATailsFailure) {
    PacketPool pool;
    MapPacket map(pool);
    map.length = 22;
    Bytes skipped;
    skipped.fill(3);
    GxfBuffer buffer = skipped.filledBuffer();
    EXPECT_TRUE(map.preservedData.decode(buffer, 3, GxfPreservedData::skip));
    Encoded const encoded = encode(map, 100);
    EXPECT_EQ(encoded.result.getCode(), 14);
    EXPECT_EQ(encoded.bytes, packet(0xBC, Bytes{0xE0, 0, 0, 0, 0, 0}));
}

TEST(MapPacket, LengthsGoOutAsTheyStand) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = decodedMap(pool, smallPayload);
    map->length = 40;
    map->reserved = 0x01020304;
    map->materialData.sectionLength = 1;
    map->tracks.sectionLength = 2;
    MessageCapture const messages;
    Encoded const encoded = encode(*map, 100);
    EXPECT_TRUE(encoded.result);
    Bytes expected = packet(0xBC, smallPayload);
    expected[9] = 40;
    for (unsigned i = 0; i < 4; ++i) {
        expected[10 + i] = static_cast<unsigned char>(i + 1);
    }
    expected[19] = 1;
    expected[32] = 2;
    EXPECT_EQ(encoded.bytes, expected);
    EXPECT_EQ(messages.texts(),
              (Texts{checkerText(13, 3), checkerText(11, 4), checkerText(44, 40)}));
}

TEST(MapPacket, ATextWithoutTerminatorGoesOutOneByteLonger) {
    PacketPool pool;
    Bytes const tag{0x40, 2, 'A', 'B'};
    AutoRefPtr<MapPacket> const map = decodedMap(pool, mapPayload(tag, {}));
    MessageCapture const messages;
    Encoded const encoded = encode(*map, 100);
    EXPECT_TRUE(encoded.result);
    EXPECT_EQ(encoded.bytes,
              header(0xBC, 26).add(Bytes{0xE0, 0xFF, 0, 4, 0x40, 2, 'A', 'B', 0, 0, 0}));
    EXPECT_EQ(messages.texts(), (Texts{checkerText(7, 6), checkerText(27, 26)}));
    // With room for the length alone the section behind it fails.
    Encoded const tight = encode(*map, 26);
    EXPECT_EQ(tight.result.getCode(), 12);
    EXPECT_EQ(tight.bytes.size(), 25U);
}

TEST(MapPacket, SectionsCountByTheLengthsOnTheWire) {
    // The tag consumes two bytes of the track section: the next section begins behind them.
    Bytes const payload = Bytes{0xE0, 0, 0, 4, 0x41, 2, 0, 0}.u16(7).u16(0).u16(0x5A5B);
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = newMap(pool, 12);
    OpResult const result = decode(*map, payload);
    EXPECT_TRUE(result);
    EXPECT_STREQ(map->materialData.toString().get(), "1stField=7");
    EXPECT_EQ(map->tracks.size(), 0U);
    EXPECT_TRUE(map->isValid());
    ASSERT_EQ(map->preservedData.size(), 2U);
    EXPECT_EQ(map->preservedData.getData()[0], 0x5AU);
}

TEST(MapPacket, IsEqualByPreambleTagsAndTracks) {
    PacketPool pool;
    auto const equal = [&pool](Bytes const& a, Bytes const& b) {
        AutoRefPtr<MapPacket> const mapA = decodedMap(pool, a);
        AutoRefPtr<MapPacket> const mapB = decodedMap(pool, b);
        mapB->fileOffset = 4711;
        bool const result = mapA->isEqual(*mapB);
        EXPECT_EQ(mapB->isEqual(*mapA), result);
        return result;
    };
    Bytes const base = mapPayload(material, timecodeTrack);
    EXPECT_TRUE(equal(base, base));
    EXPECT_TRUE(equal(base, smallPayload));
    Bytes version = base;
    version[0] = 0xE1;
    EXPECT_FALSE(equal(base, version));
    Bytes reserved = base;
    reserved[1] = 0;
    EXPECT_TRUE(equal(base, reserved));
    EXPECT_FALSE(equal(base, mapPayload(tagText(0x40, "AB"), timecodeTrack)));
    EXPECT_FALSE(equal(base, mapPayload(tagText(0x40, "AC").add(tagU32(0x41, 5)), timecodeTrack)));
    EXPECT_TRUE(equal(base, mapPayload(tagU32(0x41, 5).add(tagText(0x40, "AB")), timecodeTrack)));
    EXPECT_FALSE(equal(base, mapPayload(material, {})));
    EXPECT_FALSE(equal(base, mapPayload(material, track(7, 1, tagText(0x4C, "V1")))));
    EXPECT_FALSE(equal(base, mapPayload(material, track(7, 0, tagText(0x4C, "V2")))));
}

TEST(MapPacket, ValidFlagsTakeNoPartInIsEqual) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const a = decodedMap(pool, smallPayload);
    AutoRefPtr<MapPacket> const b = decodedMap(pool, smallPayload);
    b->packetValid = false;
    b->preamble.preambleValid = false;
    b->materialData.valid = false;
    b->tracks.valid = false;
    EXPECT_TRUE(a->isEqual(*b));
    EXPECT_TRUE(b->isEqual(*a));
}

TEST(MapPacket, IsNotEqualToAnyOtherPacket) {
    PacketPool pool;
    MapPacket const map(pool);
    for (PacketType const type :
         {packetTypeMedia, packetTypeFieldLocTbl, packetTypeEos, packetTypeHeader}) {
        EXPECT_FALSE(map.isEqual(*pool.alloc(type))) << type;
    }
}

TEST(MapPacket, CloneHoldsAllContent) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = decodedMap(pool, smallPayload);
    map->fileOffset = 0x123456789;
    map->preamble.reservedByte = 0x42;
    MessageCapture const messages;
    AutoRefPtr<Packet> const copy = map->clone();
    ASSERT_NE(copy.get(), nullptr);
    ASSERT_NE(copy.get(), map.get());
    AutoRefPtr<MapPacket> const clone = copy->getMapPacket();
    EXPECT_TRUE(clone->isValid());
    EXPECT_EQ(clone->fileOffset, 0x123456789U);
    EXPECT_EQ(clone->length, 44U);
    EXPECT_EQ(clone->preamble.reservedByte, 0x42U);
    EXPECT_TRUE(clone->preamble.preambleValid);
    EXPECT_TRUE(clone->materialData.isValid());
    EXPECT_TRUE(clone->tracks.valid);
    EXPECT_TRUE(map->isEqual(*clone));
    EXPECT_EQ(encodedPacket(*clone), encodedPacket(*map));
    EXPECT_EQ(std::string(clone->toString().get()), map->toString().get());
    EXPECT_EQ(clone->preservedData.getFileOffset(), map->preservedData.getFileOffset());
    EXPECT_NE(clone->preservedData.getData(), map->preservedData.getData());
    EXPECT_EQ(messages.texts(), Texts());
    EXPECT_EQ(messages.count(MessageKind::Trace), 0U);
    map->reset(packetTypeMap);
    map->preservedData.discard();
    EXPECT_EQ(encodedPacket(*clone).size(), 44U);
}

TEST(MapPacket, CloneOfAnInvalidPacketIsInvalid) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = newMap(pool, 28);
    EXPECT_TRUE(decode(*map, prefix(smallPayload, 26)));
    AutoRefPtr<Packet> const copy = map->clone();
    ASSERT_NE(copy.get(), nullptr);
    EXPECT_FALSE(copy->getMapPacket()->packetValid);
}

TEST(MapPacket, CloneReplacesTheTailOfARecycledPacket) {
    PacketPool pool;
    Bytes const small{0xE0, 0, 0, 0, 0, 0};
    AutoRefPtr<MapPacket> const map = decodedMap(pool, small);
    MapPacket const* recycled = nullptr;
    {
        AutoRefPtr<MapPacket> const other = decodedMap(pool, smallPayload);
        recycled = other.get();
    }
    AutoRefPtr<Packet> const copy = map->clone();
    ASSERT_EQ(copy.get(), recycled);
    EXPECT_EQ(copy->getMapPacket()->preservedData.size(), 0U);
    EXPECT_EQ(encodedPacket(*copy->getMapPacket()), packet(0xBC, small));
}

TEST(MapPacket, CloneFailsWhenTheCopyIsNotEqual) {
    struct {
        Bytes payload;
        bool addNullText;
    } const rows[] = {
        {mapPayload(tagText(0x40, "100%%"), {}), false},
        {mapPayload({}, track(9, 0, tagText(0x4C, "%%"))), false},
        // The second 0x41 is compared with the first.
        {mapPayload(tagU32(0x41, 1).add(tagU32(0x41, 2)), {}), false},
        {mapPayload(material, {}), true},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.payload);
        MessageCapture const messages;
        {
            PacketPool pool;
            AutoRefPtr<MapPacket> const map = decodedMap(pool, row.payload);
            if (row.addNullText) {
                map->materialData.addTag(nullTextTag());
            }
            MapPacket const* free = nullptr;
            {
                AutoRefPtr<Packet> const other = pool.alloc(packetTypeMap);
                free = other->getMapPacket().get();
            }
            EXPECT_EQ(map->clone().get(), nullptr);
            // The copy is back in the pool, and the packet as it was.
            EXPECT_EQ(pool.alloc(packetTypeMap)->getMapPacket().get(), free);
            EXPECT_TRUE(map->isValid());
        }
        EXPECT_EQ(messages.texts(), Texts{"MapPacket clone failed\n"});
        EXPECT_EQ(messages.texts(MessageKind::Error), messages.texts());
    }
}

TEST(MapPacket, CloneExpandsNoFormat) {
    PacketPool pool;
    MessageCapture const messages;
    for (char const* const text : {"%", "%n%s%x", "100%", "%1000000000d", "% %"}) {
        Bytes const payload = mapPayload(
            tagText(0x40, text), track(11, 0, tagText(0x4C, text).add(tagText(0x4F, text))));
        AutoRefPtr<MapPacket> const map = decodedMap(pool, payload);
        AutoRefPtr<Packet> const copy = map->clone();
        ASSERT_NE(copy.get(), nullptr) << text;
        EXPECT_EQ(encodedPacket(*copy->getMapPacket()), packet(0xBC, payload));
    }
    EXPECT_EQ(messages.texts(), Texts());
}

TEST(MapPacket, CloneOfAnotherTypeIsNull) {
    PacketPool pool;
    MapPacket map(pool);
    MessageCapture const messages;
    map.type = packetTypeEos;
    EXPECT_EQ(map.clone().get(), nullptr);
    map.type = packetTypeReserved;
    EXPECT_EQ(map.clone().get(), nullptr);
    EXPECT_EQ(messages.texts(), Texts());
}

TEST(MapPacket, FindsTheFirstTimecodeTrack) {
    PacketPool pool;
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        AutoRefPtr<MapPacket> const map = decodedMap(pool, mapPayload({}, track(mediaType, 0, {})));
        bool const isTimecode = mediaType == 7 || mediaType == 8 || mediaType == 24;
        MapPacket::Track const* const expected = isTimecode ? map->tracks[0] : nullptr;
        EXPECT_EQ(map->getTimecodeTrack(), expected) << mediaType;
    }
    Bytes const audio = track(9, 0, {});
    AutoRefPtr<MapPacket> const map = decodedMap(
        pool, mapPayload({}, Bytes(audio).add(audio).add(track(24, 1, {})).add(track(7, 0, {}))));
    EXPECT_EQ(map->getTimecodeTrack(), map->tracks[2]);
    EXPECT_EQ(decodedMap(pool, mapPayload({}, {}))->getTimecodeTrack(), nullptr);
    EXPECT_EQ(decodedMap(pool, mapPayload({}, Bytes(audio).add(audio)))->getTimecodeTrack(),
              nullptr);
}

TEST(MapPacket, LogsItsDecode) {
    Bytes stream = packet(0xBC, smallPayload);
    std::string const text = std::string(smallText).replace(8, 1, "1000");
    Texts const packetTexts = {"start MapPacket decode @1016\n",
                               "end MapPacket decode: " + text + "\n"};
    std::string const trackText = "track 0: Timecode_525,,media={V1}}";
    Texts const sectionTexts = {
        packetTexts[0],
        "start Preamble decode\n",
        "end Preamble decode: version=0\n",
        "start MaterialData decode @1018\n",
        "end MaterialData decode: {\nmedia={AB},\n1stField=5\n}\n",
        "start Tracks decode @1031\n",
        "start Track decode@1033\n",
        "end Track decode: {\n" + trackText + "\n}\n",
        "end Tracks decode: {\n" + trackText + "\n}\n",
        packetTexts[1],
    };
    Texts tagTexts = sectionTexts;
    tagTexts.insert(tagTexts.begin() + 7,
                    {"start Tag decode @1037\n", "end Tag decode: media={V1}\n"});
    tagTexts.insert(tagTexts.begin() + 4,
                    {"start Tag decode @1020\n", "end Tag decode: media={AB}\n",
                     "start Tag decode @1025\n", "end Tag decode: 1stField=5\n"});
    struct {
        unsigned level;
        Texts texts;
    } const rows[] = {{0, {}}, {1, {}}, {2, packetTexts}, {3, sectionTexts}, {4, tagTexts}};
    PacketPool pool;
    for (auto const& row : rows) {
        SCOPED_TRACE(row.level);
        GxfBuffer buffer = stream.filledBuffer();
        buffer.reset(GxfBuffer::DataState::filled, 1000);
        PacketHeader header(pool);
        EXPECT_TRUE(header.decode(buffer));
        AutoRefPtr<Packet> const actual = header.createActual();
        ChannelSetting const decoders(gxfDecodeDetail, row.level);
        ChannelSetting const encoders(gxfEncodeDetail, 9 - row.level);
        MessageCapture const messages;
        EXPECT_TRUE(actual->decode(buffer));
        EXPECT_EQ(messages.texts(), row.texts);
        EXPECT_EQ(messages.texts(MessageKind::Info), messages.texts());
    }
}

TEST(MapPacket, LogsItsEncode) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = decodedMap(pool, smallPayload);
    Texts const packetTexts = {"start MapPacket encode @2000\n",
                               "end MapPacket encode: " + std::string(smallText) + "\n"};
    std::string const trackText = "track 0: Timecode_525,,media={V1}}";
    Texts const sectionTexts = {
        packetTexts[0],
        "start Preamble encode\n",
        "end Preamble encode: version=0\n",
        "start MaterialData encode @2000\n",
        "end MaterialData encode: {\nmedia={AB},\n1stField=5\n}\n",
        "start Tracks encode @2000\n",
        "start Track encode@2000\n",
        "end Track encode: {\n" + trackText + "\n}\n",
        "end Tracks encode: {\n" + trackText + "\n}\n",
        packetTexts[1],
    };
    Texts const tagTexts = {"start Tag encode @2000\n", "end Tag encode: media={AB}\n",
                            "start Tag encode @2000\n", "end Tag encode: 1stField=5\n",
                            "start Tag encode @2000\n", "end Tag encode: media={V1}\n"};
    struct {
        unsigned encodeLevel, decodeLevel;
        Texts texts;
    } const rows[] = {
        {0, 3, {}}, {1, 0, {}}, {2, 3, packetTexts}, {3, 3, sectionTexts}, {1, 4, tagTexts}};
    for (auto const& row : rows) {
        SCOPED_TRACE(testing::Message() << row.encodeLevel << ", " << row.decodeLevel);
        Bytes room;
        room.fill(44);
        GxfBuffer buffer = room.emptyBuffer();
        buffer.reset(GxfBuffer::DataState::empty, 2000);
        ChannelSetting const encoders(gxfEncodeDetail, row.encodeLevel);
        ChannelSetting const decoders(gxfDecodeDetail, row.decodeLevel);
        MessageCapture const messages;
        EXPECT_TRUE(map->encode(buffer));
        EXPECT_EQ(messages.texts(), row.texts);
        EXPECT_EQ(messages.texts(MessageKind::Info), messages.texts());
    }
}

TEST(MapPacket, AFailureLogsItsStartOnly) {
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = newMap(pool, 28);
    ChannelSetting const decoders(gxfDecodeDetail, 2);
    ChannelSetting const encoders(gxfEncodeDetail, 2);
    MessageCapture messages;
    for (std::size_t const size : {0U, 4U, 17U, 26U}) {
        decode(*map, prefix(smallPayload, size));
        EXPECT_EQ(messages.texts(), Texts{"start MapPacket decode @0\n"}) << size;
        messages.clear();
    }
    EXPECT_FALSE(encode(*map, 43).result);
    EXPECT_EQ(messages.texts(), Texts{"start MapPacket encode @0\n"});
}

// Whole packets

TEST(MapPacket, TheSamplesComeBackToTheByte) {
    struct {
        char const* name;
        unsigned maps;
        char const* materialText;
    } const rows[] = {
        {"hd_short.gxf", 1,
         "media={HD SHORT},\n1stField=0,\nlastField=11,\nmarkIn=0,\nmarkOut=11,\nsizeEst=418"},
        {"news_pal.gxf", 2,
         "media={NEWS0417},\n1stField=0,\nlastField=99,\nmarkIn=10,\nmarkOut=89,\nsizeEst=771"},
        {"spot_ntsc.gxf", 1,
         "media={SPOT},\n1stField=0,\nlastField=119,\nmarkIn=0,\nmarkOut=119,\nsizeEst=648"},
    };
    PacketPool pool;
    MessageCapture const messages;
    for (auto const& row : rows) {
        SCOPED_TRACE(row.name);
        std::ifstream file(std::string(GXF_SAMPLES_DIR "/") + row.name, std::ios::binary);
        std::string const bytes((std::istreambuf_iterator<char>(file)),
                                std::istreambuf_iterator<char>());
        Bytes stream = Bytes().text(bytes);
        unsigned maps = 0;
        GxfBuffer buffer = stream.filledBuffer();
        while (buffer.nOccupied() >= 16) {
            PacketHeader header(pool);
            ASSERT_TRUE(header.decode(buffer));
            ASSERT_TRUE(header.isValid());
            if (header.getType() != packetTypeMap) {
                buffer.removeInput(header.getPayloadLength());
                continue;
            }
            ++maps;
            Bytes const wire =
                Bytes().text(bytes.substr(header.getFileOffset(), header.getCodedLength()));
            AutoRefPtr<Packet> const actual = header.createActual();
            ASSERT_TRUE(actual->decode(buffer));
            AutoRefPtr<MapPacket> const map = actual->getMapPacket();
            EXPECT_TRUE(map->isValid());
            EXPECT_EQ(buffer.beginOffset(), header.getFileOffset() + header.getCodedLength());
            EXPECT_EQ(encodedPacket(*map), wire);
            EXPECT_STREQ(map->materialData.toString().get(), row.materialText);
            AutoRefPtr<Packet> const clone = map->clone();
            ASSERT_NE(clone.get(), nullptr);
            EXPECT_EQ(encodedPacket(*clone->getMapPacket()), wire);
        }
        EXPECT_EQ(maps, row.maps);
    }
    EXPECT_EQ(messages.texts(), Texts());
}

namespace {

/// Random MAP payloads whose lengths match their values.
class MapGenerator {
  public:
    explicit MapGenerator(unsigned seed) : m_random(seed) {}

    unsigned below(unsigned limit) {
        return std::uniform_int_distribution<unsigned>(0, limit - 1)(m_random);
    }

    Bytes bytes(unsigned size) {
        Bytes result;
        for (unsigned i = 0; i < size; ++i) {
            result.u8(below(256));
        }
        return result;
    }

    /// Any characters but zero, without two percent signs in a row.
    Bytes text(unsigned number) {
        std::string text;
        unsigned const size = below(4) == 0 ? below(255) : below(12);
        while (text.size() < size) {
            char const c = static_cast<char>(below(8) == 0 ? '%' : 1 + below(255));
            if (c != '%' || text.empty() || text.back() != '%') {
                text += c;
            }
        }
        return tagText(number, text);
    }

    Bytes materialTag(unsigned number) {
        return number == 0x40 || number >= 0x48 ? text(number)
                                                : tag(number, bytes(number == 0x47 ? 8 : 4));
    }

    Bytes trackTag(unsigned number) {
        return number == 0x4C || number == 0x4F || number == 0x56
                   ? text(number)
                   : tag(number, bytes(number == 0x4D ? 8 : 4));
    }

    std::vector<unsigned> some(std::vector<unsigned> numbers) {
        std::shuffle(numbers.begin(), numbers.end(), m_random);
        numbers.resize(below(static_cast<unsigned>(numbers.size()) + 1));
        return numbers;
    }

    Bytes materialTags() {
        Bytes tags;
        for (unsigned const number :
             some({0x40, 0x41, 0x42, 0x43, 0x44, 0x45, 0x46, 0x47, 0x48, 0x49, 0x4A, 0x4B})) {
            tags.add(materialTag(number));
        }
        return tags;
    }

    Bytes tracks() {
        Bytes tracks;
        for (unsigned count = below(24); count > 0; --count) {
            Bytes tags;
            for (unsigned const number : some({0x4C, 0x4D, 0x4E, 0x4F, 0x50, 0x51, 0x52, 0x56})) {
                tags.add(trackTag(number));
            }
            tracks.u8(0x80 | (below(4) == 0 ? below(128) : below(32)))
                .u8(below(256))
                .u16(static_cast<unsigned>(tags.size()))
                .add(tags);
        }
        return tracks;
    }

    Bytes payload() {
        Bytes result = mapPayload(materialTags(), tracks(), bytes(below(3) == 0 ? below(600) : 0));
        result[0] = static_cast<unsigned char>(below(256));
        result[1] = static_cast<unsigned char>(below(256));
        return result;
    }

  private:
    std::mt19937 m_random;
};

} // namespace

TEST(MapPacketProperty, DecodeEncodeAndCloneKeepEveryByte) {
    MapGenerator generator(20040612);
    MessageCapture const messages;
    for (unsigned round = 0; round < 1000; ++round) {
        SCOPED_TRACE(round);
        // A pool of its own, since a recycled packet would keep an old tail.
        PacketPool pool;
        Bytes const payload = generator.payload();
        Bytes const wire = packet(0xBC, payload);
        AutoRefPtr<MapPacket> const map = decodedMap(pool, payload);
        ASSERT_EQ(encodedPacket(*map), wire);
        ASSERT_TRUE(map->isEqual(*map));
        AutoRefPtr<Packet> const clone = map->clone();
        ASSERT_NE(clone.get(), nullptr);
        ASSERT_TRUE(clone->isEqual(*map));
        ASSERT_EQ(encodedPacket(*clone->getMapPacket()), wire);
        ASSERT_EQ(std::string(clone->toString().get()), map->toString().get());
        ASSERT_EQ(messages.texts(), Texts());
    }
}

TEST(MapPacketProperty, TagsThatRepeatKeepEveryByte) {
    MapGenerator generator(7);
    for (unsigned round = 0; round < 300; ++round) {
        Bytes tags;
        for (unsigned count = generator.below(60); count > 0; --count) {
            tags.add(generator.materialTag(0x40 + generator.below(12)));
        }
        Bytes const payload = mapPayload(tags, {});
        PacketPool pool;
        ASSERT_EQ(encodedPacket(*decodedMap(pool, payload)), packet(0xBC, payload));
    }
}

TEST(MapPacketProperty, AnyCutIsAFailureOrInvalid) {
    MapGenerator generator(99);
    for (unsigned round = 0; round < 25; ++round) {
        Bytes const payload = mapPayload(generator.materialTags(), generator.tracks());
        PacketPool pool;
        AutoRefPtr<MapPacket> const map = newMap(pool, 0);
        std::size_t const step = 1 + payload.size() / 300;
        for (std::size_t size = 0; size < payload.size(); size += step) {
            map->reset(packetTypeMap);
            map->length = static_cast<unsigned>(16 + size);
            OpResult const result = decode(*map, prefix(payload, size));
            ASSERT_EQ(result.getType(), OpResult::Error);
            ASSERT_EQ(result.getCode(), 9);
            ASSERT_FALSE(map->isValid());
        }
    }
}

TEST(MapPacketProperty, DamagedPayloadsAreSafe) {
    MapGenerator generator(4242);
    MessageCapture messages;
    unsigned decoded = 0;
    unsigned refused = 0;
    for (unsigned round = 0; round < 3000; ++round) {
        SCOPED_TRACE(round);
        Bytes payload =
            round % 4 == 0 ? generator.bytes(generator.below(200)) : generator.payload();
        for (unsigned damage = generator.below(6); damage > 0 && payload.size() != 0; --damage) {
            payload[generator.below(static_cast<unsigned>(payload.size()))] =
                static_cast<unsigned char>(generator.below(256));
        }
        PacketPool pool;
        AutoRefPtr<MapPacket> const map = newMap(pool, payload.size());
        if (generator.below(4) == 0) {
            map->length = generator.below(2000);
        }
        OpResult const result = decode(*map, payload);
        int const code = result.getCode();
        ASSERT_TRUE(result ? code == 0 : code == 9 || code == 10) << result.toString();
        ++(result ? decoded : refused);
        if (!result) {
            ASSERT_FALSE(map->isValid());
        }
        ASSERT_STRNE(map->toString().get(), "");
        // What was decoded can be written, given room, and copied: two bytes of the wire come out
        // as ten at the most. After a failure a section may claim more than the room.
        std::size_t const room = map->length + 5 * payload.size();
        Encoded const encoded = encode(*map, room);
        ASSERT_TRUE(encoded.result || !result) << encoded.result.toString();
        AutoRefPtr<Packet> const clone = map->clone();
        if (clone.get() != nullptr) {
            ASSERT_EQ(encode(*clone->getMapPacket(), room).bytes, encoded.bytes);
        }
        messages.clear();
    }
    EXPECT_GT(decoded, 500U);
    EXPECT_GT(refused, 500U);
}

TEST(MapPacketProperty, LongListsOfTheSmallestItems) {
    // As many tags and tracks as the section lengths allow, the types changing halfway.
    Bytes tags;
    for (unsigned i = 0; i < 32767; ++i) {
        tags.u8(i < 16384 ? 0x40 : 0x48).u8(0);
    }
    Bytes tracks;
    for (unsigned i = 0; i < 16383; ++i) {
        tracks.add(track(9, 0, {}));
    }
    PacketPool pool;
    AutoRefPtr<MapPacket> const map = decodedMap(pool, mapPayload(tags, tracks));
    EXPECT_EQ(map->materialData.size(), 32767U);
    EXPECT_EQ(map->tracks.size(), 16383U);
    EXPECT_NE(map->clone().get(), nullptr);
    MessageCapture const messages;
    // Each empty text goes out with its zero.
    Encoded const encoded = encode(*map, 300000);
    EXPECT_TRUE(encoded.result);
    EXPECT_EQ(encoded.bytes.size(), 163855U);
    EXPECT_EQ(messages.texts(), (Texts{checkerText(98303, 65536), checkerText(163855, 131088)}));
}
