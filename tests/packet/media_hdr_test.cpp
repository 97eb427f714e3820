#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

#include <gxftypes/packet/gxf.h>
#include <testing/capture.h>
#include <testing/stream_builder.h>

using namespace GxfTypes;
using namespace GxfTesting;
using GxfIndexer::IndexBlock;

namespace {

constexpr unsigned arraysBit = 1U << gxfDebugArrays;

enum class Kind { other, timecode, ancillaryData, audio, blocks, mpeg };

struct MediaRow {
    unsigned type;
    char const* name;
    Kind kind;
};

constexpr MediaRow mediaRows[] = {
    {3, "MotionJPEG_525", Kind::blocks},
    {4, "MotionJPEG_625", Kind::blocks},
    {7, "Timecode_525", Kind::timecode},
    {8, "Timecode_625", Kind::timecode},
    {9, "AudioPCM_24", Kind::audio},
    {10, "AudioPCM_16", Kind::audio},
    {11, "Mpeg2_525", Kind::mpeg},
    {12, "Mpeg2_625", Kind::mpeg},
    {13, "Dv25_525", Kind::blocks},
    {14, "Dv25_625", Kind::blocks},
    {15, "Dv50_525", Kind::blocks},
    {16, "Dv50_625", Kind::blocks},
    {17, "Ac3_16bit", Kind::audio},
    {18, "CompressedAudio", Kind::audio},
    {19, "Reserved1", Kind::other},
    {20, "Mpeg2Hd", Kind::mpeg},
    {21, "AncillaryData", Kind::ancillaryData},
    {22, "Mpeg1_525", Kind::mpeg},
    {23, "Mpeg1_625", Kind::mpeg},
    {24, "TimecodeHd", Kind::timecode},
    {25, "Dv100", Kind::blocks},
    {26, "Avci", Kind::other},
    {27, "Avc27", Kind::other},
    {28, "Avc28", Kind::other},
    {29, "AvcHd", Kind::other},
};

Kind kindOf(unsigned type) {
    for (MediaRow const& row : mediaRows) {
        if (row.type == type) {
            return row.kind;
        }
    }
    return Kind::other;
}

std::string nameOf(unsigned type) {
    for (MediaRow const& row : mediaRows) {
        if (row.type == type) {
            return row.name;
        }
    }
    constexpr char const* digits = "0123456789abcdef";
    std::string hex = type > 15 ? std::string(1, digits[type / 16]) : "";
    return "?(TrackMediaType=0x" + hex + digits[type % 16] + ")";
}

void decodeInto(MediaPacketHdr& hdr, MediaPreamble const& preamble) {
    Bytes bytes = mediaPreamble(preamble);
    GxfBuffer buffer = bytes.filledBuffer();
    hdr.decode(buffer);
    EXPECT_EQ(15U, buffer.beginOffset());
    EXPECT_EQ(1U, buffer.nOccupied());
}

MediaPacketHdr decoded(MediaPreamble const& preamble) {
    MediaPacketHdr hdr;
    decodeInto(hdr, preamble);
    return hdr;
}

std::string textOfHdr(MediaPacketHdr const& hdr, unsigned debug = 0, unsigned indent = 0) {
    ChannelSetting const channel(gxfDebug, debug);
    FormatStr text("<");
    EXPECT_EQ(&text, &hdr.toString(indent, text));
    return text.get();
}

void expectReset(MediaPacketHdr const& hdr) {
    EXPECT_EQ(0xFFFFFFFFU, hdr.mediaFieldZero);
    EXPECT_EQ(0U, hdr.anchor);
    EXPECT_EQ(0U, hdr.isTimecodeBit);
    EXPECT_EQ(0U, hdr.isMpegBit);
    EXPECT_EQ(0U, hdr.closedGop);
    EXPECT_EQ(0U, hdr.mpegPlusBit);
    EXPECT_EQ(0U, hdr.mpegPictureHeight);
    EXPECT_EQ(0U, hdr.mpegPictureWidth);
    EXPECT_EQ(0U, hdr.timelineValid);
    EXPECT_EQ(0U, hdr.mediaType);
    EXPECT_EQ(0xFFU, hdr.trackByte);
    EXPECT_EQ(0xFFFFFFFFU, hdr.mediaField);
    for (unsigned const byte : hdr.mediaBytes) {
        EXPECT_EQ(0U, byte);
    }
    EXPECT_EQ(0xFFFFFFFFU, hdr.timeline);
}

/// An audio track of 32768 samples at 48 kHz to a packet.
TrackDetail audioDetail(double fieldsPerSecond) {
    TrackDetail detail;
    detail.fieldsPerSecond = fieldsPerSecond;
    detail.fldStride = 32768.0 / 48000.0 * fieldsPerSecond;
    return detail;
}

TrackDetail blockDetail(unsigned samplesPerPkt) {
    TrackDetail detail;
    detail.samplesPerPkt = samplesPerPkt;
    return detail;
}

} // namespace

TEST(MediaPacketHdr, NewAndResetValues) {
    MediaPacketHdr hdr;
    expectReset(hdr);
    decodeInto(
        hdr,
        {.mediaType = 11, .trackByte = 0x12, .field = 3, .mediaBytes = 0x01020304, .timeline = 4});
    decodeInto(hdr, {.mediaType = 7});
    hdr.mediaFieldZero = 1;
    hdr.anchor = 5;
    hdr.setClosedGop(true);
    hdr.setMpegPictureHeight(6);
    hdr.setMpegPictureWidth(7);
    hdr.reset();
    expectReset(hdr);
}

TEST(MediaPacketHdr, ReadsFifteenBytesInWireOrder) {
    Bytes bytes{9,    0xC5, 0x01, 0x02, 0x03, 0x04, 0xA0, 0xA1,
                0xA2, 0xA3, 0x81, 0x12, 0x13, 0x14, 0x01, 0xEE};
    GxfBuffer buffer = bytes.filledBuffer();
    MediaPacketHdr hdr;
    hdr.decode(buffer);
    EXPECT_EQ((Bytes{0xEE}), Bytes::occupied(buffer));
    EXPECT_EQ(9U, hdr.mediaType);
    EXPECT_EQ(trackMediaAudioPCM_24, hdr.getMediaType());
    EXPECT_EQ(0xC5U, hdr.trackByte);
    EXPECT_EQ(5U, hdr.getTrackNum());
    EXPECT_EQ(0x01020304U, hdr.mediaField);
    EXPECT_EQ(0x01020304U, hdr.getMediaField());
    EXPECT_EQ(0x01020304U, hdr.mediaFieldZero);
    EXPECT_EQ(0xA0U, hdr.mediaBytes[0]);
    EXPECT_EQ(0xA1U, hdr.mediaBytes[1]);
    EXPECT_EQ(0xA2U, hdr.mediaBytes[2]);
    EXPECT_EQ(0xA3U, hdr.mediaBytes[3]);
    EXPECT_EQ(0x81121314U, hdr.timeline);
    EXPECT_EQ(0x81121314U, hdr.getTimeline());
    EXPECT_EQ(1U, hdr.timelineValid);
}

TEST(MediaPacketHdr, TrackNumberIsTheLowSixBits) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        MediaPacketHdr const hdr = decoded({.trackByte = byte});
        EXPECT_EQ(byte, hdr.trackByte);
        EXPECT_EQ(byte % 64, hdr.getTrackNum());
    }
}

TEST(MediaPacketHdr, OnlyBitZeroOfTheFlagsSaysThatTheTimelineIsValid) {
    for (unsigned flags = 0; flags < 256; ++flags) {
        MediaPacketHdr const hdr = decoded({.field = 7, .timeline = 1000, .flags = flags});
        EXPECT_EQ(flags % 2, hdr.timelineValid);
        EXPECT_EQ(1000U, hdr.timeline);
        EXPECT_EQ(flags % 2 != 0 ? 1000U : 7U, hdr.getTimeline());
    }
}

TEST(MediaPacketHdr, BytesThatAreNotPresentReadAsZero) {
    Bytes const whole = mediaPreamble({.mediaType = 12,
                                       .trackByte = 0xC7,
                                       .field = 0x01020304,
                                       .mediaBytes = 0x05060708,
                                       .timeline = 0x090A0B0C});
    for (unsigned n = 0; n <= 15; ++n) {
        SCOPED_TRACE(n);
        std::vector<unsigned char> present(whole.data(), whole.data() + n);
        GxfBuffer buffer(present.data(), n, GxfBuffer::DataState::filled, MediaAgent(nullptr));
        MediaPacketHdr hdr;
        hdr.decode(buffer);
        EXPECT_EQ(15U, buffer.beginOffset());
        EXPECT_EQ(0U, buffer.nOccupied());
        std::vector<unsigned char> padded = present;
        padded.resize(15);
        auto const wordAt = [&padded](std::size_t at) {
            return (static_cast<unsigned>(padded[at]) << 24) |
                   (static_cast<unsigned>(padded[at + 1]) << 16) |
                   (static_cast<unsigned>(padded[at + 2]) << 8) | padded[at + 3];
        };
        EXPECT_EQ(padded[0], hdr.mediaType);
        EXPECT_EQ(padded[1], hdr.trackByte);
        EXPECT_EQ(wordAt(2), hdr.mediaField);
        EXPECT_EQ(wordAt(2), hdr.mediaFieldZero);
        EXPECT_EQ(0, std::memcmp(hdr.mediaBytes, &padded[6], 4));
        EXPECT_EQ(wordAt(10), hdr.timeline);
        EXPECT_EQ(padded[14], hdr.timelineValid);
    }
}

TEST(MediaPacketHdr, KindBitsOfEveryMediaType) {
    for (unsigned type = 0; type < 256; ++type) {
        SCOPED_TRACE(type);
        MediaPacketHdr const hdr = decoded({.mediaType = type});
        EXPECT_EQ(type, static_cast<unsigned>(hdr.getMediaType()));
        EXPECT_EQ(kindOf(type) == Kind::mpeg, hdr.isMpeg());
        EXPECT_EQ(kindOf(type) == Kind::mpeg, hdr.isMpegBit != 0);
        EXPECT_EQ(kindOf(type) == Kind::mpeg, hdr.mpegPlusBit != 0);
        EXPECT_EQ(kindOf(type) == Kind::timecode, hdr.isTimecode());
        EXPECT_EQ(kindOf(type) == Kind::timecode, hdr.isTimecodeBit != 0);
    }
}

TEST(MediaPacketHdr, KindBitsAreOnlyEverSet) {
    MediaPacketHdr hdr = decoded({.mediaType = 11});
    decodeInto(hdr, {.mediaType = 24});
    decodeInto(hdr, {.mediaType = 9});
    EXPECT_TRUE(hdr.isMpeg());
    EXPECT_EQ(1U, hdr.mpegPlusBit);
    EXPECT_TRUE(hdr.isTimecode());
    hdr.reset();
    EXPECT_FALSE(hdr.isMpeg());
    EXPECT_FALSE(hdr.isTimecode());
}

TEST(MediaPacketHdr, DecodeClearsTheClosedGopAndLeavesWhatTheWireHasNot) {
    MediaPacketHdr hdr;
    hdr.anchor = 2047;
    hdr.setMpegPictureHeight(1080);
    hdr.setMpegPictureWidth(1920);
    hdr.setClosedGop(true);
    EXPECT_EQ(1U, hdr.closedGop);
    decodeInto(hdr, {.mediaType = 11});
    EXPECT_EQ(0U, hdr.closedGop);
    EXPECT_EQ(2047U, hdr.anchor);
    EXPECT_EQ(1080U, hdr.mpegPictureHeight);
    EXPECT_EQ(1920U, hdr.mpegPictureWidth);
    hdr.setClosedGop(true);
    hdr.setClosedGop(false);
    EXPECT_EQ(0U, hdr.closedGop);
}

TEST(MediaPacketHdr, MediaBytesAsFirstAndLastValid) {
    MediaPacketHdr hdr = decoded({.mediaType = 9, .mediaBytes = 0x00100020});
    EXPECT_EQ(16U, hdr.getFirstValid());
    EXPECT_EQ(32U, hdr.getLastValid());
    hdr = decoded({.mediaType = 9, .mediaBytes = 0xFEDCBA98});
    EXPECT_EQ(0xFEDCU, hdr.getFirstValid());
    EXPECT_EQ(0xBA98U, hdr.getLastValid());
    hdr.setFirstValid(0x1234);
    EXPECT_EQ(0x12U, hdr.mediaBytes[0]);
    EXPECT_EQ(0x34U, hdr.mediaBytes[1]);
    EXPECT_EQ(0xBAU, hdr.mediaBytes[2]);
    EXPECT_EQ(0x98U, hdr.mediaBytes[3]);
    EXPECT_EQ(0x1234U, hdr.getFirstValid());
}

TEST(MediaPacketHdr, MediaBytesAsBlocks) {
    EXPECT_EQ(0xF4U, decoded({.mediaType = 13, .mediaBytes = 0xF4010203}).getDvBlockCount());
}

TEST(MediaPacketHdr, MediaBytesAsAPicture) {
    MediaPacketHdr hdr = decoded({.mediaType = 11, .mediaBytes = 0x05010203});
    EXPECT_EQ(mpegPicTypeI, hdr.getMpegPicType());
    EXPECT_EQ(mpegPicStructTop, hdr.getMpegPicStruct());
    EXPECT_EQ(66051U, hdr.getMpegByteCount());
    for (unsigned byte = 0; byte < 256; ++byte) {
        hdr = decoded({.mediaType = 11, .mediaBytes = (byte << 24) | 0xFFFFFF});
        EXPECT_EQ(byte % 4, static_cast<unsigned>(hdr.getMpegPicType()));
        EXPECT_EQ(byte / 4 % 4, static_cast<unsigned>(hdr.getMpegPicStruct()));
        EXPECT_EQ(16777215U, hdr.getMpegByteCount());
    }
}

TEST(MediaPacketHdr, EqualsOnlyItself) {
    MediaPacketHdr hdr = decoded({.field = 3, .timeline = 4});
    MediaPacketHdr const copy = hdr;
    EXPECT_TRUE(hdr.isEqual(hdr));
    EXPECT_FALSE(hdr.isEqual(copy));
    EXPECT_FALSE(copy.isEqual(hdr));
    EXPECT_TRUE(copy.isEqual(copy));
}

TEST(MediaPacketHdr, SetMediaFieldZeroOfBlocks) {
    struct Row {
        unsigned field;
        unsigned samplesPerPkt;
        std::uint32_t mediaBytes;
        unsigned fieldZero;
        std::uint32_t bytesAfter;
    };
    Row const rows[] = {
        {1000, 504, 0x00000055, 504, 0x01F00055}, // 496
        {1000, 504, 0x00070055, 504, 0x00070055}, // the packet's own value wins
        {1000, 504, 0x01000055, 504, 0x01000055},
        {1008, 504, 0x00000055, 1008, 0x00000055},
        {503, 504, 0x00000000, 0, 0x01F70000},
        {0, 504, 0x00000001, 0, 0x00000001},
        {77, 1, 0x00000001, 77, 0x00000001},
        {4294967295, 504, 0x00000001, 4294967040, 0x00FF0001}, // 8521760 blocks and 255
        {170000, 100000, 0x00000001, 100000, 0x11700001},      // 70000 cut to 16 bits
        {165536, 100000, 0x00000001, 100000, 0x00000001},      // 65536 cut to 16 bits
        {4294967295, 4294967295, 0x00000001, 4294967295, 0x00000001},
    };
    for (unsigned const type : {7U, 8U, 21U, 24U}) {
        for (Row const& row : rows) {
            SCOPED_TRACE(testing::Message() << "type " << type << ", field " << row.field);
            MediaPacketHdr hdr =
                decoded({.mediaType = type, .field = row.field, .mediaBytes = row.mediaBytes});
            EXPECT_EQ(row.fieldZero, hdr.setMediaFieldZero(blockDetail(row.samplesPerPkt)));
            EXPECT_EQ(row.fieldZero, hdr.mediaFieldZero);
            EXPECT_EQ(row.field, hdr.mediaField);
            EXPECT_EQ(row.bytesAfter >> 16, hdr.getFirstValid());
            EXPECT_EQ(row.bytesAfter & 0xFFFF, hdr.getLastValid());
        }
    }
}

TEST(MediaPacketHdr, SetMediaFieldZeroOfAudio) {
    TrackDetail coarse;
    coarse.fldStride = 10;
    coarse.fieldsPerSecond = 1;
    struct Row {
        TrackDetail detail;
        unsigned field;
        std::uint32_t mediaBytes;
        unsigned fieldZero;
        std::uint32_t bytesAfter;
    };
    Row const rows[] = {
        // At 60000/1001 fields a second a packet spans 40.919 fields: the third begins at 81.838,
        // and the 18 fields from 82 are 14414.4 samples.
        {audioDetail(60000.0 / 1001.0), 100, 0x00000009, 82, 0x384E0009},
        {audioDetail(60000.0 / 1001.0), 100, 0x00010009, 82, 0x00010009},
        {audioDetail(60000.0 / 1001.0), 82, 0x00000009, 82, 0x00000009},
        // 81 lies in the second packet, which begins at 40.919: 40 fields are 32032 samples.
        {audioDetail(60000.0 / 1001.0), 81, 0x00000009, 41, 0x7D200009},
        {audioDetail(60000.0 / 1001.0), 40, 0x00000009, 0, 0x7D200009},
        {audioDetail(60000.0 / 1001.0), 0, 0x00000009, 0, 0x00000009},
        // At 50 fields a second it spans 34.133 fields: 32 fields from 68 are 30720 samples.
        {audioDetail(50), 100, 0x00000009, 68, 0x78000009},
        // 2 seconds are 96000 samples, cut to 16 bits.
        {coarse, 12, 0x00000009, 10, 0x77000009},
        {coarse, 10, 0x00000009, 10, 0x00000009},
    };
    for (unsigned const type : {9U, 10U, 17U, 18U}) {
        for (Row const& row : rows) {
            SCOPED_TRACE(testing::Message() << "type " << type << ", field " << row.field << ", "
                                            << row.detail.fieldsPerSecond << " fields/s");
            MediaPacketHdr hdr =
                decoded({.mediaType = type, .field = row.field, .mediaBytes = row.mediaBytes});
            EXPECT_EQ(row.fieldZero, hdr.setMediaFieldZero(row.detail));
            EXPECT_EQ(row.fieldZero, hdr.mediaFieldZero);
            EXPECT_EQ(row.field, hdr.mediaField);
            EXPECT_EQ(row.bytesAfter >> 16, hdr.getFirstValid());
            EXPECT_EQ(row.bytesAfter & 0xFFFF, hdr.getLastValid());
        }
    }
}

TEST(MediaPacketHdr, SetMediaFieldZeroLeavesOtherMedia) {
    TrackDetail detail = audioDetail(50);
    detail.samplesPerPkt = 504;
    for (unsigned type = 0; type < 256; ++type) {
        SCOPED_TRACE(type);
        MediaPacketHdr hdr = decoded({.mediaType = type, .field = 1000});
        unsigned const fieldZero = hdr.setMediaFieldZero(detail);
        EXPECT_EQ(fieldZero, hdr.mediaFieldZero);
        switch (kindOf(type)) {
        case Kind::timecode:
        case Kind::ancillaryData:
            EXPECT_EQ(504U, fieldZero);
            break;
        case Kind::audio:
            EXPECT_EQ(990U, fieldZero); // the 30th packet of 34.133 fields begins at 989.867
            break;
        default:
            EXPECT_EQ(1000U, fieldZero);
            EXPECT_EQ(0U, hdr.getFirstValid());
            hdr.mediaFieldZero = 17;
            EXPECT_EQ(17U, hdr.setMediaFieldZero(detail));
        }
    }
}

TEST(MediaPacketHdr, SetMediaFieldZeroWithoutSamplesOrStrideChangesNothing) {
    for (unsigned const type : {7U, 8U, 9U, 10U, 17U, 18U, 21U, 24U}) {
        SCOPED_TRACE(type);
        MediaPacketHdr hdr = decoded({.mediaType = type, .field = 1000});
        hdr.mediaFieldZero = 3;
        EXPECT_EQ(3U, hdr.setMediaFieldZero(TrackDetail()));
        EXPECT_EQ(3U, hdr.mediaFieldZero);
        EXPECT_EQ(0U, hdr.getFirstValid());
    }
}

TEST(MediaPacketHdr, SetMediaFieldZeroWithoutAFieldRateStillGivesTheFirstField) {
    TrackDetail detail;
    detail.fldStride = 10;
    MediaPacketHdr hdr = decoded({.mediaType = 9, .field = 12});
    EXPECT_EQ(10U, hdr.setMediaFieldZero(detail));
    EXPECT_EQ(10U, hdr.mediaFieldZero);
    EXPECT_EQ(0U, hdr.getFirstValid());
}

TEST(MediaPacketHdr, SetMediaFieldZeroWithAnyNumberStaysDefined) {
    using Limits = std::numeric_limits<double>;
    double const numbers[] = {
        0.0,   -0.0,   Limits::quiet_NaN(), Limits::infinity(),   -1.0, -1e300,
        1e300, 1e-300, Limits::min(),       Limits::denorm_min(), 0.5,  1e-9};
    for (double const stride : numbers) {
        for (double const rate : numbers) {
            for (unsigned const field : {0U, 1U, 1000U, 0x80000000U, 0xFFFFFFFFU}) {
                TrackDetail detail;
                detail.fldStride = stride;
                detail.fieldsPerSecond = rate;
                MediaPacketHdr hdr = decoded({.mediaType = 9, .field = field});
                EXPECT_EQ(hdr.mediaFieldZero, hdr.setMediaFieldZero(detail));
                EXPECT_EQ(field, hdr.mediaField);
                EXPECT_EQ(0U, hdr.getLastValid());
            }
        }
    }
}

TEST(MediaPacketHdr, TextOfEveryMediaType) {
    for (unsigned type = 0; type < 256; ++type) {
        MediaPacketHdr const hdr = decoded({.mediaType = type,
                                            .trackByte = 0xC5,
                                            .field = 1000,
                                            .mediaBytes = 0x05010203,
                                            .timeline = 2000});
        std::string meaning;
        std::string structure;
        switch (kindOf(type)) {
        case Kind::timecode:
        case Kind::ancillaryData:
        case Kind::audio:
            meaning = ",{in,out}={1281,515}";
            break;
        case Kind::blocks:
            meaning = ",5*4K blk";
            break;
        case Kind::mpeg:
            meaning = ",66051b,I";
            structure = ",top";
            break;
        case Kind::other:
            break;
        }
        std::string const front = "<" + nameOf(type) + ",trk=5,f=1000,t=2000" + meaning;
        EXPECT_EQ(front, textOfHdr(hdr));
        EXPECT_EQ(front, textOfHdr(hdr, ~arraysBit, 8));
        EXPECT_EQ(front + structure + ",0x05.01.02.03", textOfHdr(hdr, arraysBit));
        EXPECT_EQ(front + structure + ",0x05.01.02.03", textOfHdr(hdr, arraysBit, 8));
    }
}

TEST(MediaPacketHdr, TextOfANewHeader) {
    MediaPacketHdr const hdr;
    EXPECT_EQ("<?(TrackMediaType=0x0),trk=63,f=-1,t=-1(invalid)", textOfHdr(hdr));
    EXPECT_EQ("<?(TrackMediaType=0x0),trk=63,f=-1,t=-1(invalid),0x00.00.00.00",
              textOfHdr(hdr, arraysBit));
}

TEST(MediaPacketHdr, TextTellsAnInvalidTimelineAsTheWireHasIt) {
    MediaPacketHdr const hdr =
        decoded({.mediaType = 26, .field = 7, .timeline = 1000, .flags = 0xFE});
    EXPECT_EQ(7U, hdr.getTimeline());
    EXPECT_EQ("<Avci,trk=0,f=7,t=1000(invalid)", textOfHdr(hdr));
}

TEST(MediaPacketHdr, TextTellsTheDistanceToTheFirstField) {
    MediaPacketHdr hdr = decoded({.mediaType = 7, .field = 1000, .timeline = 5});
    hdr.setMediaFieldZero(blockDetail(504));
    EXPECT_EQ("<Timecode_525,trk=0,f=1000(-496),t=5,{in,out}={496,0}", textOfHdr(hdr));
    hdr.mediaFieldZero = 1004;
    EXPECT_EQ("<Timecode_525,trk=0,f=1000(+4),t=5,{in,out}={496,0}", textOfHdr(hdr));
    hdr.mediaFieldZero = 1000;
    EXPECT_EQ("<Timecode_525,trk=0,f=1000,t=5,{in,out}={496,0}", textOfHdr(hdr));
    // The comparison is unsigned, the print signed.
    hdr.mediaField = 0;
    hdr.mediaFieldZero = 0xFFFFFFFF;
    EXPECT_EQ("<Timecode_525,trk=0,f=0(+-1),t=5,{in,out}={496,0}", textOfHdr(hdr));
}

TEST(MediaPacketHdr, TextOfPictures) {
    struct Row {
        std::uint32_t mediaBytes;
        unsigned anchor;
        char const* brief;
        char const* structure;
    };
    Row const rows[] = {
        {0x00000000, 0, ",0b,?", ",?,0x00.00.00.00"},
        {0x0D000010, 0, ",16b,I", ",frame,0x0d.00.00.10"},
        {0x0A000100, 3, ",anchor=-3,256b,P", ",bottom,0x0a.00.01.00"},
        {0x07FFFFFF, 2047, ",anchor=-2047,16777215b,B", ",top,0x07.ff.ff.ff"},
        {0xF0010000, 1, ",anchor=-1,65536b,?", ",?,0xf0.01.00.00"},
    };
    for (Row const& row : rows) {
        MediaPacketHdr hdr = decoded({.mediaType = 20, .mediaBytes = row.mediaBytes});
        hdr.anchor = row.anchor & 0x7FFU;
        std::string const front = std::string("<Mpeg2Hd,trk=0,f=0,t=0") + row.brief;
        EXPECT_EQ(front, textOfHdr(hdr));
        EXPECT_EQ(front + row.structure, textOfHdr(hdr, arraysBit));
    }
}

TEST(MediaPacketHdr, AnchorIsPrintedForMpegAlone) {
    MediaPacketHdr hdr = decoded({.mediaType = 13, .mediaBytes = 0xFF000000});
    hdr.anchor = 9;
    EXPECT_EQ("<Dv25_525,trk=0,f=0,t=0,255*4K blk", textOfHdr(hdr));
}

TEST(IndexBlock, PacketOfAField) {
    TrackDetail detail;
    struct Row {
        double stride;
        unsigned field;
        unsigned packet;
        unsigned firstField;
    };
    Row const rows[] = {
        {40.919, 0, 0, 0},        {40.919, 40, 0, 0},  {40.919, 41, 1, 41},
        {40.919, 81, 1, 41},      {40.919, 82, 2, 82}, {40.919, 100, 2, 82},
        {2.5, 1, 0, 0},           {2.5, 2, 0, 0},      {2.5, 3, 1, 3}, // 2.5 is rounded up
        {2.5, 5, 2, 5},           {2.25, 3, 1, 2},     {1, 4294967295, 4294967295, 4294967295},
        {504, 503, 0, 0},         {504, 504, 1, 504},  {4294967295.0, 4294967295, 1, 4294967295},
        {1e10, 4294967295, 0, 0},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(testing::Message() << "field " << row.field << ", stride " << row.stride);
        detail.fldStride = row.stride;
        EXPECT_EQ(row.packet, IndexBlock::getPacketNumber(row.field, detail));
        EXPECT_EQ(row.firstField, IndexBlock::getPacketField(row.field, detail));
    }
}

TEST(IndexBlock, WhatIsNoNumberGivesZero) {
    using Limits = std::numeric_limits<double>;
    for (double const stride : {0.0, -0.0, Limits::quiet_NaN(), Limits::denorm_min()}) {
        TrackDetail detail;
        detail.fldStride = stride;
        for (unsigned const field : {1U, 1000U, 0xFFFFFFFFU}) {
            EXPECT_EQ(0U, IndexBlock::getPacketNumber(field, detail));
            EXPECT_EQ(0U, IndexBlock::getPacketField(field, detail));
        }
    }
    TrackDetail detail;
    EXPECT_EQ(0U, IndexBlock::getPacketNumber(0, detail));
    EXPECT_EQ(0U, IndexBlock::getPacketField(0, detail));
    detail.fldStride = Limits::infinity();
    EXPECT_EQ(0U, IndexBlock::getPacketNumber(1000, detail));
    EXPECT_EQ(0U, IndexBlock::getPacketField(1000, detail)); // 0 times infinity
}

TEST(TrackDetail, StartsAtZero) {
    TrackDetail const detail;
    FormatStr text("<");
    EXPECT_EQ(&text, &detail.toString(0, text));
    EXPECT_STREQ("<trackNum=0,trackMediaType=?(TrackMediaType=0x0),trackType=Unknown,"
                 "umfTrackIndex=0,fldStrideFlr=0,fldStrideCeiling=0,bytesPerPkt=0,samplesPerPkt=0,"
                 "samplesPerFld=0,SeqCoding=intra",
                 text.get());
    EXPECT_EQ(0.0, detail.fldStride);
    EXPECT_EQ(0.0, detail.fieldsPerSecond);
}

TEST(TrackDetail, TextOfAllWords) {
    TrackDetail detail;
    detail.trackNum = 255;
    detail.trackMediaType = trackMediaAudioPCM_16;
    detail.trackType = trackTypeAudio;
    detail.umfTrackIndex = 254;
    detail.fldStrideFlr = 65535;
    detail.fldStrideCeiling = 65534;
    detail.fldStride = 1.5;
    detail.fieldsPerSecond = 59.94;
    detail.bytesPerPkt = 4294967295;
    detail.samplesPerPkt = 4294967294;
    detail.samplesPerFld = 4294967293;
    detail.seqCoding = sequenceCodingNonIntra;
    char const* const expected =
        "trackNum=255,trackMediaType=AudioPCM_16,trackType=Audio,umfTrackIndex=254,"
        "fldStrideFlr=65535,fldStrideCeiling=65534,bytesPerPkt=4294967295,"
        "samplesPerPkt=4294967294,samplesPerFld=4294967293,SeqCoding=nonIntra";
    for (unsigned const indent : {0U, 9U}) {
        ChannelSetting const channel(gxfDebug, indent == 0 ? 0 : ~0U);
        FormatStr text(128);
        detail.toString(indent, text);
        EXPECT_STREQ(expected, text.get());
    }
    detail.trackType = static_cast<TrackType>(9);
    detail.seqCoding = static_cast<SequenceCodingType>(2);
    detail.trackMediaType = static_cast<TrackMediaType>(0x1234);
    FormatStr text(128);
    detail.toString(0, text);
    EXPECT_STREQ("trackNum=255,trackMediaType=?(TrackMediaType=0x1234),trackType=?,"
                 "umfTrackIndex=254,fldStrideFlr=65535,fldStrideCeiling=65534,"
                 "bytesPerPkt=4294967295,samplesPerPkt=4294967294,samplesPerFld=4294967293,"
                 "SeqCoding=?",
                 text.get());
}
