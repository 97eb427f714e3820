#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <string>
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
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

constexpr unsigned errorsBit = 1U << 0;
constexpr unsigned xmlBit = 1U << 9;

/// A document with these Track elements.
Bytes document(std::string const& tracks) {
    return utf16("<?xml version=\"1.0\"?><Asset><Data>" + tracks + "</Data></Asset>");
}

std::string trackElement(char const* type, unsigned number, char const* label) {
    return std::string("<Track trackType=\"") + type + "\" trackNumber=\"" +
           std::to_string(number) + "\" trackLabel=\"" + label + "\"/>";
}

UmfTrackNum trackNum(TrackTypeEncoding type, char number) {
    return {type, static_cast<TrackNumberEncoding>(number)};
}

constexpr TrackTypeEncoding video = trackTypeEncodingMpeg2Sd;

/// 592 bytes up to the user data, 321 of it, the index, the XML, 20 bytes behind.
UmfContent sampleContent() {
    UmfContent content;
    content.addTrack({'0', 'M', 2});
    content.addTrack({'0', 'A', 1});
    content.userData = umfPair(0, "Title", Bytes().text("abcde"));
    content.hasIndex = true;
    content.xml = document(trackElement("MpegStdDefVideoTrack", 1, "Programme"));
    content.rest = Bytes().fill(20, 0x77);
    return content;
}

AutoRefPtr<UmfPacket> gathered(PacketPool& pool, Bytes const& payload) {
    return GxfTesting::gathered(pool, payload.size() != 0
                                          ? umfPackets(payload)
                                          : std::vector<Bytes>{umfPacket(3, payload)});
}

Bytes cut(Bytes const& bytes, std::size_t size) {
    return Bytes().text({reinterpret_cast<char const*>(bytes.data()), size});
}

Bytes bytesOf(GxfPreservedData const& data) {
    Bytes bytes;
    for (unsigned i = 0; i < data.size(); ++i) {
        bytes.u8(data.getData()[i]);
    }
    return bytes;
}

void expectTailUntouched(UmfPacket const& packet) {
    EXPECT_FALSE(packet.umfIndex.valid);
    EXPECT_THAT(packet.umfIndex.words, ElementsAre(0, 0, 0, 0, 0, 0, 0, 0));
    EXPECT_EQ(packet.preservedData[0].size(), 0U);
    EXPECT_EQ(packet.preservedData[1].size(), 0U);
    EXPECT_FALSE(packet.xmlTree.isValid());
    EXPECT_EQ(packet.xmlTree.getXmlTracks().size(), 0U);
}

constexpr unsigned totalLengthWord = 0;
constexpr unsigned versionWord = 4;
constexpr unsigned numTracksWord = 8;
constexpr unsigned trackDescSizeWord = 16;
constexpr unsigned userDataLengthWord = 36;
constexpr unsigned indexLengthWord = 44;

} // namespace

TEST(UmfPacketDecodeFinal, GoodUmf) {
    PacketPool pool;
    UmfContent const content = sampleContent();
    AutoRefPtr<UmfPacket> const packet = gathered(pool, content.payload());
    MessageCapture const capture;
    OpResult const result = packet->decodeFinal();
    EXPECT_EQ(result.getType(), OpResult::Ok);
    EXPECT_EQ(result.getCode(), 0);
    EXPECT_THAT(capture.texts(), IsEmpty());
    EXPECT_THAT(capture.texts(MessageKind::Trace), IsEmpty());
    EXPECT_TRUE(packet->isValid());
    EXPECT_EQ(packet->decodedPayloadSize, content.size());
    EXPECT_EQ(packet->gatherBuffer.nOccupied(), 0U);
    EXPECT_EQ(packet->gatherBuffer.beginOffset(), 0U);

    EXPECT_TRUE(packet->payloadDesc.isValid());
    EXPECT_EQ(packet->payloadDesc.totalLength, content.size());
    EXPECT_TRUE(packet->materialDesc.valid);
    EXPECT_EQ(packet->materialDesc.maxLength, 100U);
    EXPECT_EQ(packet->materialDesc.nMpeg, 1U);
    ASSERT_EQ(packet->trackDescs.size(), 2U);
    EXPECT_STREQ(packet->trackDescs[0].toString().get(), "Mpeg2Sd 0, 2 seg");
    EXPECT_STREQ(packet->trackDescs[1].toString().get(), "Audio 0, 1 seg");
    ASSERT_EQ(packet->mediaDescs.size(), 3U);
    char const* const names[] = {"EXT:/PDR/default/CLIP_M0_0", "EXT:/PDR/default/CLIP_M0_1",
                                 "EXT:/PDR/default/CLIP_A0_0"};
    for (unsigned i = 0; i < 3; ++i) {
        EXPECT_TRUE(packet->mediaDescs[i].valid);
        EXPECT_STREQ(packet->mediaDescs[i].mediaName, names[i]);
    }
    ASSERT_EQ(packet->userData.nItems(), 1U);
    EXPECT_STREQ(packet->userData.pairs[0].getKey(), "Title");
    EXPECT_TRUE(packet->umfIndex.valid);
    EXPECT_EQ(packet->umfIndex.getXmlLength(), content.xml.size());
    EXPECT_EQ(bytesOf(packet->preservedData[0]), content.xml);
    EXPECT_EQ(bytesOf(packet->preservedData[1]), content.rest);
    EXPECT_EQ(packet->fillerData.size(), 0U);
    EXPECT_TRUE(packet->xmlTree.isValid());
    EXPECT_EQ(packet->xmlTree.getXmlTracks().size(), 1U);
    GxfXmlTrack const* const track = packet->getXmlTrack(trackNum(video, '0'));
    ASSERT_NE(track, nullptr);
    EXPECT_STREQ(track->getLabel(), "Programme");
    EXPECT_EQ(packet->getMediaDesc(trackNum(video, '0')), &packet->mediaDescs[0]);
    EXPECT_EQ(packet->getMediaDesc(trackNum(trackTypeEncodingAudio, '0')), &packet->mediaDescs[2]);
    EXPECT_EQ(packet->getMediaDesc(trackNum(video, '1')), nullptr);
}

TEST(UmfPacketDecodeFinal, TheDocumentChangesNothingOfTheBinarySections) {
    PacketPool pool;
    UmfContent content = sampleContent();
    content.xml =
        document("<Movie minLength=\"7\" maxLength=\"9\"/>" +
                 trackElement("AudioTrack", 5, "Title") + "<UserData name=\"Title\" value=\"x\"/>");
    UmfContent without = sampleContent();
    without.xml = Bytes().fill(content.xml.size());
    AutoRefPtr<UmfPacket> const packet = gathered(pool, content.payload());
    AutoRefPtr<UmfPacket> const other = gathered(pool, without.payload());
    EXPECT_TRUE(packet->decodeFinal());
    EXPECT_FALSE(other->decodeFinal());
    EXPECT_TRUE(packet->isEqual(*other));
}

TEST(UmfPacketDecodeFinal, FailuresUpToTheUserData) {
    struct Row {
        char const* name;
        int code;
        unsigned left; ///< bytes that stay in the gather buffer
        void (*damage)(Bytes&);
    };
    // 1000 bytes in all; sections at 48, 104, 112, 592, 913.
    constexpr Row rows[] = {
        {"nothing", 9, 0, [](Bytes& b) { b = {}; }},
        {"47 bytes", 9, 47, [](Bytes& b) { b = cut(b, 47); }},
        {"48 bytes", 9, 0, [](Bytes& b) { b = cut(b, 48); }},
        {"version 2", 10, 952, [](Bytes& b) { setWordAt(b, versionWord, 2); }},
        {"version 4", 10, 952, [](Bytes& b) { setWordAt(b, versionWord, 4); }},
        {"sections beyond the whole", 10, 952,
         [](Bytes& b) { setWordAt(b, totalLengthWord, 48 + 8 + 480 + 321 - 1); }},
        {"129 tracks", 10, 952, [](Bytes& b) { setWordAt(b, numTracksWord, 129); }},
        {"most tracks", 10, 952, [](Bytes& b) { setWordAt(b, numTracksWord, 0xFFFFFFFF); }},
        {"material one byte short", 9, 55, [](Bytes& b) { b = cut(b, 103); }},
        {"no track", 9, 0, [](Bytes& b) { b = cut(b, 104); }},
        {"second track one byte short", 9, 3, [](Bytes& b) { b = cut(b, 111); }},
        {"no media", 9, 0, [](Bytes& b) { b = cut(b, 112); }},
        {"third media one byte short", 9, 159, [](Bytes& b) { b = cut(b, 591); }},
        {"user data one byte short", 9, 320, [](Bytes& b) { b = cut(b, 912); }},
        {"user data beyond the whole", 9, 408,
         [](Bytes& b) {
             setWordAt(b, totalLengthWord, 0xFFFFFFFF);
             setWordAt(b, userDataLengthWord, 409);
         }},
        {"most user data", 9, 408,
         [](Bytes& b) {
             setWordAt(b, trackDescSizeWord, 1);
             setWordAt(b, userDataLengthWord, 0xFFFFFFFF);
         }},
        {"no item behind the items", 11, 7,
         [](Bytes& b) {
             setWordAt(b, totalLengthWord, 0xFFFFFFFF);
             setWordAt(b, userDataLengthWord, 408);
             setWordAt(b, 592 + 298, 87); // the value takes what is in front of the last 23 bytes
         }},
        {"item of length 0", 11, 392, [](Bytes& b) { setWordAt(b, 592, 0); }},
        {"item without data", 11, 392, [](Bytes& b) { setWordAt(b, 592, 16); }},
        {"item of two bytes", 11, 392, [](Bytes& b) { setWordAt(b, 592, 18); }},
        {"item that leaves 15 bytes", 11, 392, [](Bytes& b) { setWordAt(b, 592, 408 - 15); }},
        {"longest item", 11, 392, [](Bytes& b) { setWordAt(b, 592, 0xFFFFFFFF); }},
        {"key block one byte short", 9, 111, [](Bytes& b) { setWordAt(b, 592, 297); }},
        {"item beyond the user data", 9, 110,
         [](Bytes& b) { setWordAt(b, userDataLengthWord, 297); }},
        {"second item beyond the user data", 9, 87,
         [](Bytes& b) { setWordAt(b, userDataLengthWord, 320); }},
        {"rest of the user data is no item", 11, 71,
         [](Bytes& b) {
             setWordAt(b, totalLengthWord, 2000);
             setWordAt(b, userDataLengthWord, 322);
         }},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        UmfContent content = sampleContent();
        content.xml = {};
        content.rest = Bytes().fill(71, 0x01);
        Bytes payload = content.payload();
        ASSERT_EQ(payload.size(), 1000U);
        row.damage(payload);
        PacketPool pool;
        AutoRefPtr<UmfPacket> const packet = gathered(pool, payload);
        EXPECT_TRUE(packet->isValid());
        MessageCapture const capture;
        ChannelSetting const debug(gxfDebug, 0xFFFFFFFF);
        AllocationLimit const limit(65536);
        OpResult const result = packet->decodeFinal();
        EXPECT_EQ(result.getType(), OpResult::Error);
        EXPECT_EQ(result.getCode(), row.code);
        EXPECT_STREQ(result.getText(), "");
        EXPECT_GT(result.getLocation().line, 0U);
        EXPECT_EQ(capture.count(MessageKind::Trace), 1U);
        EXPECT_FALSE(packet->isValid());
        EXPECT_EQ(packet->decodedPayloadSize, payload.size());
        EXPECT_EQ(packet->gatherBuffer.nOccupied(), row.left);
        expectTailUntouched(*packet);
    }
}

TEST(UmfPacketDecodeFinal, FailureLeavesWhatWasDecoded) {
    PacketPool pool;
    Bytes payload = sampleContent().payload();
    setWordAt(payload, 592 + 298, 0); // the value item
    AutoRefPtr<UmfPacket> const packet = gathered(pool, payload);
    EXPECT_EQ(packet->decodeFinal().getCode(), 11);
    EXPECT_TRUE(packet->payloadDesc.isValid());
    EXPECT_TRUE(packet->materialDesc.valid);
    EXPECT_EQ(packet->trackDescs.size(), 2U);
    EXPECT_EQ(packet->mediaDescs.size(), 3U);
    EXPECT_TRUE(packet->mediaDescs[2].valid);
    ASSERT_EQ(packet->userData.nItems(), 1U);
    EXPECT_FALSE(packet->userData.pairs[0].isComplete());
    EXPECT_THAT(packet->toString().get(), HasSubstr(",invalid\n"));
}

TEST(UmfPacketDecodeFinal, SecondTimeThereIsNothingLeft) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const packet = gathered(pool, sampleContent().payload());
    EXPECT_TRUE(packet->decodeFinal());
    EXPECT_EQ(packet->decodeFinal().getCode(), 9);
    EXPECT_FALSE(packet->isValid());
    EXPECT_EQ(packet->decodedPayloadSize, 0U);
    packet->reset(packetTypeUmfFile);
    EXPECT_TRUE(packet->isValid());
}

TEST(UmfPacketDecodeFinal, MostTracks) {
    PacketPool pool;
    UmfContent content;
    for (unsigned i = 0; i < 128; ++i) {
        content.addTrack({0x30 + i % 10, 'A', i % 3});
    }
    AutoRefPtr<UmfPacket> const packet = gathered(pool, content.payload());
    EXPECT_EQ(packet->decodeFinal().getType(), OpResult::Ok);
    EXPECT_EQ(packet->trackDescs.size(), 128U);
    EXPECT_EQ(packet->mediaDescs.size(), 127U);
    EXPECT_EQ(packet->mediaDescs[126].sequence, 0U);
}

TEST(UmfPacketDecodeFinal, SegmentsAreCountedByTheTracks) {
    PacketPool pool;
    Bytes payload = sampleContent().payload();
    setWordAt(payload, 20, 0xFFFFFFFF); // numSegments
    AutoRefPtr<UmfPacket> const packet = gathered(pool, payload);
    EXPECT_EQ(packet->decodeFinal().getType(), OpResult::Ok);
    EXPECT_EQ(packet->mediaDescs.size(), 3U);
    EXPECT_EQ(packet->payloadDesc.numSegments, 0xFFFFFFFFU);
}

TEST(UmfPacketDecodeFinal, OffsetsAreNotUsed) {
    PacketPool pool;
    UmfContent const content = sampleContent();
    Bytes payload = content.payload();
    for (unsigned const word : {12U, 24U, 32U, 40U}) {
        setWordAt(payload, word, 0xFFFFFFF0 + word);
    }
    payload[913 + 4] ^= 0xFF; // the index's offset of the XML
    AutoRefPtr<UmfPacket> const packet = gathered(pool, payload);
    EXPECT_EQ(packet->decodeFinal().getType(), OpResult::Ok);
    EXPECT_EQ(bytesOf(packet->preservedData[0]), content.xml);
    EXPECT_EQ(bytesOf(packet->preservedData[1]), content.rest);
}

TEST(UmfPacketDecodeFinal, ResultsOfTheTail) {
    struct Row {
        char const* name;
        unsigned debug;
        OpResult::Type type;
        int code;
        char const* text;
        void (*prepare)(UmfContent&);
        void (*damage)(Bytes&);
    };
    constexpr auto same = [](UmfContent&) {};
    constexpr auto whole = [](Bytes&) {};
    constexpr auto noXml = [](UmfContent& c) { c.xml = {}; };
    constexpr auto index15 = [](Bytes& b) { setWordAt(b, indexLengthWord, 15); };
    constexpr auto index17 = [](Bytes& b) { setWordAt(b, indexLengthWord, 17); };
    constexpr auto longIndex = [](Bytes& b) { setWordAt(b, indexLengthWord, 100000); };
    constexpr char const* start = "could not locate xml start";
    Row const rows[] = {
        {"good", 0, OpResult::Ok, 0, "", same, whole},
        {"good, all channels", errorsBit | xmlBit, OpResult::Ok, 0, "", same, whole},
        {"index of 15 bytes", 0, OpResult::Warning, 10, "UMF index size 15b != 16b", same, index15},
        {"index of 15 bytes, bit 0", errorsBit, OpResult::Error, 10, "UMF index size 15b != 16b",
         same, index15},
        {"index of 17 bytes", ~errorsBit & ~xmlBit, OpResult::Warning, 10,
         "UMF index size 17b != 16b", same, index17},
        {"index that isn't there", 0, OpResult::Warning, 9, "", same, longIndex},
        {"index that isn't there, bit 0", errorsBit, OpResult::Error, 9, "", same, longIndex},
        {"no start", 0, OpResult::Warning, 19, start,
         [](UmfContent& c) { c.xml = utf16("<xml/>"); }, whole},
        {"too short for a start", errorsBit, OpResult::Warning, 19, start,
         [](UmfContent& c) { c.xml = {0x3C}; }, whole},
        {"8-bit document", 0, OpResult::Warning, 19, start,
         [](UmfContent& c) { c.xml = Bytes().text("<?xml version=\"1.0\"?><a/>"); }, whole},
        {"no end", 0, OpResult::Warning, 19, "could not locate xml end",
         [](UmfContent& c) { c.xml = utf16("<?xml version"); }, whole},
        {"refused", 0, OpResult::Error, 22, nullptr,
         [](UmfContent& c) { c.xml = utf16("<?xml version=\"1.0\"?><a></b>"); }, whole},
        {"no XML", errorsBit, OpResult::Ok, 0, "", noXml, whole},
        {"no XML, bit 9", xmlBit, OpResult::Warning, 19, "no XML within UMF", noXml, whole},
        {"no index, bit 9", xmlBit, OpResult::Warning, 19, "no XML within UMF",
         [](UmfContent& c) { c.xml = {}, c.hasIndex = false; }, whole},
        {"bad index, bit 9 replaces it", xmlBit | errorsBit, OpResult::Warning, 19,
         "no XML within UMF", same, index15},
        {"no start, bit 9", xmlBit, OpResult::Warning, 19, start,
         [](UmfContent& c) { c.xml = utf16("<xml/>"); }, whole},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        UmfContent content = sampleContent();
        row.prepare(content);
        Bytes payload = content.payload();
        row.damage(payload);
        PacketPool pool;
        AutoRefPtr<UmfPacket> const packet = gathered(pool, payload);
        MessageCapture const capture;
        ChannelSetting const debug(gxfDebug, row.debug);
        OpResult const result = packet->decodeFinal();
        EXPECT_EQ(result.getType(), row.type);
        EXPECT_EQ(result.getCode(), row.code);
        if (row.text != nullptr) {
            EXPECT_STREQ(result.getText(), row.text);
        } else {
            EXPECT_THAT(result.getText(), HasSubstr("mismatch"));
        }
        EXPECT_TRUE(packet->isValid());
        EXPECT_EQ(packet->gatherBuffer.nOccupied(), 0U);
        EXPECT_EQ(packet->userData.nItems(), 1U);
        EXPECT_EQ(packet->xmlTree.isValid(), row.type == OpResult::Ok && content.xml.size() != 0);
    }
}

TEST(UmfPacketDecodeFinal, DocumentThatIsNoText) {
    struct Row {
        char const* name;
        Bytes middle;
        int error;
    };
    Bytes wide;
    for (unsigned i = 0; i < 200; ++i) {
        wide.u8(0x01).u8(0x4E);
    }
    // Half a pair; three bytes for each two.
    Row const rows[] = {{"lone surrogate", {0x00, 0xD8}, EILSEQ}, {"too wide", wide, E2BIG}};
    for (Row const& row : rows) {
        SCOPED_TRACE(row.name);
        UmfContent content = sampleContent();
        content.xml = utf16("<?xml ").add(row.middle).add(utf16("a>"));
        PacketPool pool;
        AutoRefPtr<UmfPacket> const packet = gathered(pool, content.payload());
        MessageCapture const capture;
        OpResult const result = packet->decodeFinal();
        EXPECT_EQ(result.getType(), OpResult::Warning);
        EXPECT_EQ(result.getCode(), 21);
        EXPECT_EQ(result.getText(),
                  std::string("conversion to utf8 failed [") + BasicFileIO::getErrorName(0) + "]");
        EXPECT_THAT(capture.texts(),
                    ElementsAre("character conversion WC->MB failed [" + std::to_string(row.error) +
                                "->" + BasicFileIO::getErrorName(static_cast<unsigned>(row.error)) +
                                "]\n"));
        EXPECT_TRUE(packet->isValid());
        EXPECT_FALSE(packet->xmlTree.isValid());
        EXPECT_EQ(bytesOf(packet->preservedData[0]), content.xml);
        EXPECT_EQ(bytesOf(packet->preservedData[1]), content.rest);
    }
}

TEST(UmfPacketDecodeFinal, DocumentThatIsRefusedIsKept) {
    PacketPool pool;
    UmfContent content = sampleContent();
    content.xml = utf16("<?xml version=\"1.0\"?><Asset><Data>" +
                        trackElement("AudioTrack", 1, "Left") + "</Asset>");
    AutoRefPtr<UmfPacket> const packet = gathered(pool, content.payload());
    EXPECT_EQ(packet->decodeFinal().getCode(), 22);
    EXPECT_TRUE(packet->isValid());
    EXPECT_FALSE(packet->xmlTree.isValid());
    EXPECT_EQ(packet->getXmlTrack(trackNum(trackTypeEncodingAudio, '0')), nullptr);
    EXPECT_EQ(bytesOf(packet->preservedData[0]), content.xml);
    EXPECT_EQ(bytesOf(packet->preservedData[1]), content.rest);
    // It goes out as it came in.
    EXPECT_TRUE(packet->update());
    Bytes storage = Bytes().fill(packet->getCodedLength());
    GxfBuffer out = storage.emptyBuffer();
    EXPECT_TRUE(packet->encode(out));
    EXPECT_EQ(Bytes::occupied(out), joined(umfPackets(content.payload())));
}

TEST(UmfPacketDecodeFinal, BadIndexStaysInFrontOfWhatIsKept) {
    struct Row {
        unsigned indexLength;
        unsigned kept;
    };
    // 16 bytes of index, the XML, 20 bytes; the count goes down by the index, the position doesn't.
    unsigned const tail = 16 + static_cast<unsigned>(sampleContent().xml.size()) + 20;
    Row const rows[] = {{15, tail - 15}, {17, tail - 17}, {1, tail - 1},  {tail, 0},
                        {tail + 1, 0},   {0xFFFFFFFF, 0}, {0x80000000, 0}};
    for (Row const& row : rows) {
        SCOPED_TRACE(row.indexLength);
        UmfContent const content = sampleContent();
        Bytes payload = content.payload();
        setWordAt(payload, indexLengthWord, row.indexLength);
        PacketPool pool;
        AutoRefPtr<UmfPacket> const packet = gathered(pool, payload);
        AllocationLimit const limit(65536);
        OpResult const result = packet->decodeFinal();
        EXPECT_EQ(result.getType(), OpResult::Warning);
        EXPECT_EQ(result.getCode(), row.indexLength <= tail ? 10 : 9);
        EXPECT_TRUE(packet->isValid());
        EXPECT_FALSE(packet->umfIndex.valid);
        EXPECT_EQ(packet->umfIndex.getXmlLength(), 0U);
        EXPECT_EQ(packet->preservedData[0].size(), 0U);
        EXPECT_EQ(packet->xmlTree.getXmlTracks().size(), 0U);
        Bytes expected;
        for (unsigned i = 0; i < row.kept; ++i) {
            expected.u8(payload.vector()[913 + i]);
        }
        EXPECT_EQ(bytesOf(packet->preservedData[1]), expected);
    }
}

TEST(UmfPacketDecodeFinal, NothingBehindTheUserData) {
    PacketPool pool;
    UmfContent content;
    content.addTrack({'0', 'M', 1});
    Bytes payload = content.payload();
    setWordAt(payload, indexLengthWord, 16);
    AutoRefPtr<UmfPacket> const packet = gathered(pool, payload);
    EXPECT_EQ(packet->decodeFinal().getType(), OpResult::Ok);
    EXPECT_TRUE(packet->isValid());
    EXPECT_EQ(packet->payloadDesc.getIndexLength(), 16U);
    EXPECT_EQ(packet->mediaDescs.size(), 1U);
    EXPECT_EQ(packet->gatherBuffer.nOccupied(), 0U);
    expectTailUntouched(*packet);

    AutoRefPtr<UmfPacket> const other = gathered(pool, payload);
    ChannelSetting const debug(gxfDebug, xmlBit);
    EXPECT_STREQ(other->decodeFinal().getText(), "no XML within UMF");
    EXPECT_TRUE(other->isValid());
}

TEST(UmfPacketDecodeFinal, IndexWithoutXml) {
    PacketPool pool;
    UmfContent content = sampleContent();
    content.xml = {};
    content.rest = document(trackElement("AudioTrack", 1, "Left"));
    AutoRefPtr<UmfPacket> const packet = gathered(pool, content.payload());
    EXPECT_EQ(packet->decodeFinal().getType(), OpResult::Ok);
    EXPECT_TRUE(packet->umfIndex.valid);
    EXPECT_EQ(packet->preservedData[0].size(), 0U);
    EXPECT_EQ(bytesOf(packet->preservedData[1]), content.rest);
    EXPECT_FALSE(packet->xmlTree.isValid());
    EXPECT_EQ(packet->getXmlTrack(trackNum(trackTypeEncodingAudio, '0')), nullptr);
}

TEST(UmfPacketDecodeFinal, MediaLengthsOfTheWireAreCountedNotUsed) {
    struct Row {
        unsigned length;
        unsigned kept; ///< of the 220 bytes behind the XML
    };
    // Three descriptions: less counted than present leaves a claim that isn't there.
    constexpr Row rows[] = {{160, 220},           {170, 190}, {233, 1},
                            {234, 0 /* wraps */}, {159, 0},   {0, 0},
                            {65535, 0},           {1000, 0},  {1200, 0}};
    for (Row const& row : rows) {
        SCOPED_TRACE(row.length);
        UmfContent content = sampleContent();
        content.rest = Bytes().fill(220, 0x31);
        for (unsigned i = 0; i < 3; ++i) {
            content.media[i][0] = static_cast<unsigned char>(row.length);
            content.media[i][1] = static_cast<unsigned char>(row.length >> 8);
        }
        PacketPool pool;
        AutoRefPtr<UmfPacket> const packet = gathered(pool, content.payload());
        AllocationLimit const limit(65536);
        OpResult const result = packet->decodeFinal();
        if (row.length == 1200) {
            // The second description isn't there by count.
            EXPECT_EQ(result.getCode(), 9);
            EXPECT_FALSE(packet->isValid());
            continue;
        }
        EXPECT_EQ(result.getType(), OpResult::Ok);
        EXPECT_TRUE(packet->isValid());
        EXPECT_EQ(packet->userData.nItems(), 1U);
        EXPECT_EQ(bytesOf(packet->preservedData[0]), content.xml);
        EXPECT_EQ(bytesOf(packet->preservedData[1]), Bytes().fill(row.kept, 0x31));
        EXPECT_EQ(packet->gatherBuffer.nOccupied(), 0U);
    }
}

TEST(UmfPacketDecodeFinal, XmlLengthBeyondTheBytes) {
    for (unsigned const claimed : {1U, 21U, 65535U}) {
        UmfContent const content = sampleContent();
        bool const isThere = claimed == 1;
        unsigned const length =
            isThere ? static_cast<unsigned>(content.xml.size()) + 20
                    : std::min(65535U, static_cast<unsigned>(content.xml.size()) + claimed);
        SCOPED_TRACE(length);
        Bytes payload = content.payload();
        payload[913 + 8] = static_cast<unsigned char>(length);
        payload[913 + 9] = static_cast<unsigned char>(length >> 8);
        PacketPool pool;
        AutoRefPtr<UmfPacket> const packet = gathered(pool, payload);
        // The document is found in the bytes that are there.
        EXPECT_EQ(packet->decodeFinal().getType(), OpResult::Ok);
        EXPECT_TRUE(packet->isValid());
        EXPECT_NE(packet->getXmlTrack(trackNum(video, '0')), nullptr);
        EXPECT_EQ(packet->preservedData[0].size(), isThere ? length : 0U);
        EXPECT_EQ(packet->preservedData[1].size(), 0U);
        EXPECT_EQ(packet->gatherBuffer.nOccupied(), 0U);
    }
}

TEST(UmfPacketDecodeFinal, ClaimsOfMillionsOfSegmentsTakeNoMemory) {
    for (unsigned const present : {0U, 1U, 3U, 40U}) {
        SCOPED_TRACE(present);
        UmfContent content;
        for (unsigned i = 0; i < 128; ++i) {
            content.tracks.push_back({'0', 'M', 0xFFFF});
        }
        for (unsigned i = 0; i < present; ++i) {
            // Of no length, so that the count never runs out.
            content.media.push_back(umfMedia({}, i, 0));
        }
        content.rest = Bytes().fill(100);
        PacketPool pool;
        AutoRefPtr<UmfPacket> const packet = gathered(pool, content.payload());
        AllocationLimit const limit(65536);
        EXPECT_EQ(packet->decodeFinal().getCode(), 9);
        EXPECT_FALSE(packet->isValid());
        EXPECT_LE(packet->mediaDescs.size(), present + 1);
        EXPECT_EQ(packet->gatherBuffer.nOccupied(), 100U);
    }
}

TEST(UmfPacketDecodeFinal, ItemsOfAWrappedCountTakeNoMemory) {
    for (std::uint32_t const claimed :
         {0x40000000U, 0x7FFFFFFFU, 0x80000000U, 0xEFFFFFFFU, 100U, 60U}) {
        SCOPED_TRACE(claimed);
        UmfContent content;
        content.addTrack({'0', 'M', 1});
        content.media[0] = umfMedia({}, 0, 0xFFFF);
        content.userData = umfValueItem(0, Bytes().fill(50)).add(umfValueItem(1, {1}));
        content.rest = Bytes().fill(20);
        Bytes payload = content.payload();
        setWordAt(payload, totalLengthWord, 0xFFFFFFFF);
        setWordAt(payload, userDataLengthWord, 0xF0000000);
        setWordAt(payload, 268 + 68, claimed);
        PacketPool pool;
        AutoRefPtr<UmfPacket> const packet = gathered(pool, payload);
        AllocationLimit const limit(65536);
        EXPECT_EQ(packet->decodeFinal().getCode(), 11);
        EXPECT_FALSE(packet->isValid());
        EXPECT_EQ(packet->userData.nItems(), 1U);
    }
}

TEST(UmfPacketDecodeFinal, ManyItemsOfOneIdAreTakenInQuickly) {
    // None fits to another: values, and items of no known kind.
    constexpr unsigned count = 40000;
    UmfContent content;
    Bytes const value = umfValueItem(7, {1});
    Bytes const unknown = umfItem(0x90007, {1, 0, 0});
    for (unsigned i = 0; i < count; ++i) {
        content.userData.add(i % 2 == 0 ? value : unknown);
    }
    content.rest = Bytes().fill(16);
    PacketPool pool;
    AutoRefPtr<UmfPacket> const packet = gathered(pool, content.payload());
    MessageCapture const capture;
    EXPECT_EQ(packet->decodeFinal().getType(), OpResult::Ok);
    EXPECT_EQ(packet->userData.nItems(), count);
    EXPECT_EQ(capture.count(MessageKind::Warning), count / 2 - 1);
    EXPECT_EQ(packet->calcUserDataSize(), 19 * count);
}

TEST(UmfPacketDecodeFinal, EveryTruncation) {
    UmfContent const content = sampleContent();
    Bytes const payload = content.payload();
    MessageCapture const capture;
    for (unsigned size = 0; size <= payload.size(); ++size) {
        SCOPED_TRACE(size);
        PacketPool pool;
        AutoRefPtr<UmfPacket> const packet = gathered(pool, cut(payload, size));
        OpResult const result = packet->decodeFinal();
        // The last item of user data asks for 16 bytes behind it.
        if (size < 913 + 16) {
            ASSERT_EQ(result.getType(), OpResult::Error);
            ASSERT_EQ(result.getCode(), size < 913 ? 9 : 11);
            ASSERT_FALSE(packet->isValid());
            continue;
        }
        ASSERT_TRUE(packet->isValid());
        ASSERT_TRUE(packet->umfIndex.valid);
        unsigned const xmlBytes = size - 929;
        bool const hasXml = xmlBytes >= content.xml.size();
        // 10 bytes of "<?xml", 42 up to the first '>'.
        if (hasXml) {
            ASSERT_EQ(result.getType(), OpResult::Ok);
        } else if (xmlBytes < 42) {
            ASSERT_EQ(result.getType(), OpResult::Warning);
            ASSERT_EQ(result.getCode(), 19);
            ASSERT_STREQ(result.getText(),
                         xmlBytes < 10 ? "could not locate xml start" : "could not locate xml end");
        } else {
            ASSERT_EQ(result.getType(), OpResult::Error);
            ASSERT_EQ(result.getCode(), 22);
        }
        ASSERT_EQ(packet->preservedData[0].size(), hasXml ? content.xml.size() : 0);
        ASSERT_EQ(packet->preservedData[1].size(), hasXml ? size - 929 - content.xml.size() : 0);
    }
}

TEST(UmfPacketDecodeFinal, EveryByteDamaged) {
    // No value is expected but that whatever comes out can be printed, updated and written.
    UmfContent content = sampleContent();
    Bytes const payload = content.payload();
    MessageCapture capture;
    unsigned usable = 0;
    for (unsigned at = 0; at < payload.size(); ++at) {
        for (unsigned const value : {0x00U, 0xFFU, 0x80U}) {
            Bytes damaged = payload;
            damaged[at] = static_cast<unsigned char>(value);
            PacketPool pool;
            AutoRefPtr<UmfPacket> const packet = gathered(pool, damaged);
            AllocationLimit const limit(1U << 20);
            OpResult const result = packet->decodeFinal();
            EXPECT_TRUE(packet->isValid() || result.getType() == OpResult::Error);
            EXPECT_NE(packet->toString().get(), nullptr);
            if (packet->isValid() && packet->update()) {
                Bytes storage = Bytes().fill(packet->getCodedLength());
                GxfBuffer out = storage.emptyBuffer();
                packet->encode(out);
                ++usable;
            }
        }
        capture.clear();
    }
    EXPECT_GT(usable, payload.size());
}

TEST(UmfPacketDecodeFinal, RecycledPacketKeepsItsTailWhenTheNextOneHasNone) {
    PacketPool pool;
    UmfContent const old = sampleContent();
    UmfPacket const* first = nullptr;
    {
        AutoRefPtr<UmfPacket> const packet = gathered(pool, old.payload());
        EXPECT_TRUE(packet->decodeFinal());
        packet->addFillerBytes(5);
        first = packet.get();
    }
    UmfContent next;
    next.addTrack({'0', 'M', 1});
    AutoRefPtr<UmfPacket> const packet = gathered(pool, next.payload());
    ASSERT_EQ(packet.get(), first);
    EXPECT_EQ(packet->userData.nItems(), 0U);
    EXPECT_FALSE(packet->payloadDesc.isValid());
    EXPECT_FALSE(packet->materialDesc.valid);
    EXPECT_EQ(packet->trackDescs.size(), 0U);
    EXPECT_EQ(packet->mediaDescs.size(), 0U);
    EXPECT_EQ(packet->decodedPayloadSize, 0U);
    EXPECT_EQ(packet->decodeFinal().getType(), OpResult::Ok);
    EXPECT_TRUE(packet->isValid());
    EXPECT_TRUE(packet->umfIndex.valid);
    EXPECT_EQ(packet->umfIndex.getXmlLength(), old.xml.size());
    EXPECT_EQ(bytesOf(packet->preservedData[0]), old.xml);
    EXPECT_EQ(bytesOf(packet->preservedData[1]), old.rest);
    EXPECT_EQ(packet->fillerData.size(), 5U);
    EXPECT_STREQ(packet->getXmlTrack(trackNum(video, '0'))->getLabel(), "Programme");

    // The rewrite has no room for what is stale.
    MessageCapture const capture;
    EXPECT_EQ(packet->update().getType(), OpResult::Ok);
    EXPECT_THAT(capture.texts(), ElementsAre("discarding xml\n"));
    Bytes storage = Bytes().fill(packet->getCodedLength());
    GxfBuffer out = storage.emptyBuffer();
    EXPECT_TRUE(packet->encode(out));
    EXPECT_EQ(Bytes::occupied(out), joined(umfPackets(next.payload())));
    // The tree isn't of the rewrite.
    EXPECT_STREQ(packet->getXmlTrack(trackNum(video, '0'))->getLabel(), "Programme");
}

TEST(UmfPacketDecodeFinal, RecycledPacketCountsByItsOldIndex) {
    PacketPool pool;
    UmfContent const old = sampleContent();
    unsigned const xmlLength = static_cast<unsigned>(old.xml.size());
    struct Row {
        unsigned behind;
        unsigned xml;
        Bytes rest;
    };
    Row const rows[] = {
        {xmlLength + 9, xmlLength, Bytes().fill(9, 0x41)},
        {xmlLength, xmlLength, {}},
        // Too few: both keep what they held.
        {xmlLength - 1, xmlLength, old.rest},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.behind);
        pool.reset();
        { EXPECT_TRUE(gathered(pool, old.payload())->decodeFinal()); }
        UmfContent next;
        next.rest = Bytes().fill(row.behind, 0x41);
        AutoRefPtr<UmfPacket> const packet = gathered(pool, next.payload());
        OpResult const result = packet->decodeFinal();
        EXPECT_EQ(result.getType(), OpResult::Warning);
        EXPECT_EQ(result.getCode(), 19);
        EXPECT_STREQ(result.getText(), "could not locate xml start");
        EXPECT_TRUE(packet->isValid());
        EXPECT_EQ(bytesOf(packet->preservedData[0]),
                  row.behind >= row.xml ? Bytes().fill(row.xml, 0x41) : old.xml);
        EXPECT_EQ(bytesOf(packet->preservedData[1]), row.rest);
        EXPECT_TRUE(packet->xmlTree.isValid());
    }
}

TEST(UmfPacketDecodeFinal, RecycledPacketWithABadIndexKeepsItsOldIndex) {
    PacketPool pool;
    UmfContent const old = sampleContent();
    { EXPECT_TRUE(gathered(pool, old.payload())->decodeFinal()); }
    UmfContent next = sampleContent();
    next.indexWords = {1, 2, 0, 3, 0, 4, 5, 6};
    next.xml = document(trackElement("AudioTrack", 1, "L"));
    next.rest = Bytes().fill(4, 0x55);
    Bytes payload = next.payload();
    setWordAt(payload, indexLengthWord, 17);
    AutoRefPtr<UmfPacket> const packet = gathered(pool, payload);
    OpResult const result = packet->decodeFinal();
    EXPECT_EQ(result.getType(), OpResult::Warning);
    EXPECT_EQ(result.getCode(), 10);
    EXPECT_STREQ(result.getText(), "UMF index size 17b != 16b");
    EXPECT_TRUE(packet->isValid());
    EXPECT_TRUE(packet->umfIndex.valid);
    EXPECT_THAT(packet->umfIndex.words, ElementsAre(0, 0, 929, 0, old.xml.size(), 0, 0, 0));
    // No XML is looked for behind it, whatever the old one says.
    EXPECT_EQ(bytesOf(packet->preservedData[0]), old.xml);
    Bytes expected;
    // The count went down by 17, the position didn't.
    for (std::size_t i = 913; i < payload.size() - 17; ++i) {
        expected.u8(payload.vector()[i]);
    }
    EXPECT_EQ(bytesOf(packet->preservedData[1]), expected);
    EXPECT_TRUE(packet->xmlTree.isValid());
    EXPECT_EQ(packet->xmlTree.getXmlTracks().size(), 1U);
    EXPECT_EQ(packet->getXmlTrack(trackNum(trackTypeEncodingAudio, '0')), nullptr);
}

TEST(UmfPacketDecodeFinal, RecycledPacketHasXmlAsLongAsItsOldBytesAreThere) {
    PacketPool pool;
    { EXPECT_TRUE(gathered(pool, sampleContent().payload())->decodeFinal()); }
    UmfContent next;
    next.addTrack({'0', 'M', 1});
    ChannelSetting const debug(gxfDebug, xmlBit);
    {
        AutoRefPtr<UmfPacket> const packet = gathered(pool, next.payload());
        EXPECT_EQ(packet->decodeFinal().getType(), OpResult::Ok);
        packet->preservedData[0].discard();
    }
    EXPECT_STREQ(gathered(pool, next.payload())->decodeFinal().getText(), "no XML within UMF");
}

TEST(UmfPacketDecodeFinal, RecycledPacketTakesALongerDocumentForUnusable) {
    PacketPool pool;
    UmfContent const old = sampleContent();
    { EXPECT_TRUE(gathered(pool, old.payload())->decodeFinal()); }
    UmfContent next = sampleContent();
    next.xml = document(trackElement("MpegStdDefVideoTrack", 1, "A label that is much longer"));
    AutoRefPtr<UmfPacket> const packet = gathered(pool, next.payload());
    OpResult const result = packet->decodeFinal();
    EXPECT_EQ(result.getType(), OpResult::Warning);
    EXPECT_EQ(result.getCode(), 21);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_GT(result.getLocation().line, 0U);
    EXPECT_TRUE(packet->isValid());
    EXPECT_EQ(bytesOf(packet->preservedData[0]), next.xml);
    EXPECT_EQ(bytesOf(packet->preservedData[1]), next.rest);
    EXPECT_STREQ(packet->getXmlTrack(trackNum(video, '0'))->getLabel(), "Programme");
}

TEST(UmfPacketDecodeFinal, RecycledPacketFindsTheOldTracksFirst) {
    PacketPool pool;
    { EXPECT_TRUE(gathered(pool, sampleContent().payload())->decodeFinal()); }
    UmfContent next = sampleContent();
    next.xml = document(trackElement("AudioTrack", 1, "L"));
    AutoRefPtr<UmfPacket> const packet = gathered(pool, next.payload());
    EXPECT_EQ(packet->decodeFinal().getType(), OpResult::Ok);
    EXPECT_EQ(packet->xmlTree.getXmlTracks().size(), 2U);
    EXPECT_STREQ(packet->getXmlTrack(trackNum(video, '0'))->getLabel(), "Programme");
    EXPECT_STREQ(packet->getXmlTrack(trackNum(trackTypeEncodingAudio, '0'))->getLabel(), "L");
}

TEST(UmfPacketDecodeFinal, XmlTracksByTypeAndNumber) {
    PacketPool pool;
    UmfContent content = sampleContent();
    content.xml = document(trackElement("MpegStdDefVideoTrack", 1, "first") +
                           trackElement("MpegStdDefVideoTrack", 1, "second") +
                           trackElement("AudioTrack", 11, "eleventh") +
                           trackElement("AudioTrack", 2, "other"));
    AutoRefPtr<UmfPacket> const packet = gathered(pool, content.payload());
    EXPECT_EQ(packet->decodeFinal().getType(), OpResult::Ok);
    auto const& tracks = packet->xmlTree.getXmlTracks();
    ASSERT_EQ(tracks.size(), 4U);
    EXPECT_EQ(packet->getXmlTrack(trackNum(video, '0')), &tracks[0]);
    EXPECT_STREQ(tracks[0].getLabel(), "first");
    EXPECT_EQ(packet->getXmlTrack(trackNum(trackTypeEncodingAudio, 'A')), &tracks[2]);
    EXPECT_EQ(packet->getXmlTrack(trackNum(trackTypeEncodingAudio, '1')), &tracks[3]);
    EXPECT_EQ(packet->getXmlTrack(trackNum(trackTypeEncodingAudio, '0')), nullptr);
    EXPECT_EQ(packet->getXmlTrack(trackNum(video, '1')), nullptr);
    EXPECT_EQ(packet->getXmlTrack(trackNum(trackTypeEncodingMpeg2Hd, '0')), nullptr);

    // Answers go on after the bytes of the document went.
    packet->discardXml();
    EXPECT_EQ(packet->getXmlTrack(trackNum(video, '0')), &tracks[0]);
}

TEST(UmfPacketDecodeFinal, Messages) {
    PacketPool pool;
    Bytes const payload = sampleContent().payload();
    MessageCapture capture;
    {
        AutoRefPtr<UmfPacket> const packet = gathered(pool, payload);
        ChannelSetting const level(gxfDecodeDetail, 1);
        ChannelSetting const other(gxfEncodeDetail, 9);
        EXPECT_TRUE(packet->decodeFinal());
    }
    EXPECT_THAT(capture.texts(), IsEmpty());
    pool.reset();
    {
        AutoRefPtr<UmfPacket> const packet = gathered(pool, payload);
        ChannelSetting const level(gxfDecodeDetail, 2);
        EXPECT_TRUE(packet->decodeFinal());
        EXPECT_THAT(capture.texts(), ElementsAre("start UmfPacket decodeFinal\n",
                                                 std::string("end UmfPacket decode: ") +
                                                     packet->toString().get() + "\n"));
        EXPECT_EQ(capture.count(MessageKind::Info), 2U);
    }
    capture.clear();
    pool.reset();
    AutoRefPtr<UmfPacket> const broken = gathered(pool, cut(payload, 500));
    ChannelSetting const level(gxfDecodeDetail, 2);
    EXPECT_FALSE(broken->decodeFinal());
    EXPECT_THAT(capture.texts(), ElementsAre("start UmfPacket decodeFinal\n"));
}

TEST(UmfPacketDecodeFinal, Samples) {
    struct Row {
        char const* file;
        std::size_t offset; ///< of the UMF packet
        std::size_t length;
        std::vector<std::string> tracks; ///< track and label
        unsigned userData;
        unsigned rest;
    };
    Row const rows[] = {
        {"news_pal.gxf", 597, 4432, {"M0=Programme", "A0=Left", "A1=Right", "T0=Time code"}, 4, 0},
        {"spot_ntsc.gxf", 377, 2748, {"M0=Spot", "A0=", "T0="}, 1, 64},
        {"hd_short.gxf", 375, 2440, {"H0=HD", "N0=Captions", "T0="}, 0, 0},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.file);
        std::ifstream file(std::string(GXF_SAMPLES_DIR "/") + row.file, std::ios::binary);
        std::string const stream{std::istreambuf_iterator<char>(file), {}};
        ASSERT_GE(stream.size(), row.offset + row.length);
        PacketPool pool;
        AutoRefPtr<UmfPacket> const packet =
            GxfTesting::gathered(pool, {Bytes().text(stream.substr(row.offset, row.length))});
        EXPECT_EQ(packet->decodeFinal().getType(), OpResult::Ok);
        EXPECT_TRUE(packet->isValid());
        EXPECT_EQ(packet->userData.nItems(), row.userData);
        EXPECT_EQ(packet->preservedData[1].size(), row.rest);
        std::vector<std::string> tracks;
        for (unsigned i = 0; i < packet->trackDescs.size(); ++i) {
            auto const& desc = packet->trackDescs[i];
            GxfXmlTrack const* const track =
                packet->getXmlTrack({desc.trackType, desc.trackNumber});
            ASSERT_NE(track, nullptr);
            tracks.push_back(std::string(1, static_cast<char>(desc.trackType)) +
                             static_cast<char>(desc.trackNumber) + "=" +
                             (track->getLabel() != nullptr ? track->getLabel() : ""));
        }
        EXPECT_EQ(tracks, row.tracks);
    }
}
