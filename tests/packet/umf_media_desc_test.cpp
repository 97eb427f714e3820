#include <cfloat>
#include <cstdint>
#include <cstring>
#include <functional>
#include <random>
#include <string>
#include <type_traits>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <testing/bytes.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

using TrackDesc = UmfPacket::TrackDesc;
using MediaDesc = UmfPacket::MediaDesc;
using Specification = UmfPacket::MediaDesc::Specification;

static_assert(!std::is_polymorphic_v<TrackDesc> && !std::is_polymorphic_v<MediaDesc>);
static_assert(std::is_union_v<Specification>);
static_assert(sizeof(MediaDesc::mediaName) == 89);
static_assert(std::is_base_of_v<MediaDesc::AnyVideo, MediaDesc::MpegVideo>);
static_assert(std::is_base_of_v<MediaDesc::AnyVideo, MediaDesc::DvVideo>);
static_assert(std::is_base_of_v<MediaDesc::AnyVideo, MediaDesc::AvcIntraVideo>);
static_assert(sizeof(MediaDesc::AvcIntraVideo) == sizeof(MediaDesc::AnyVideo));

constexpr unsigned arraysBit = 1U << 1;

void expectFailure(OpResult const& result, int code, char const* function) {
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), code);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().file, "umf_media_desc.cpp");
    EXPECT_STREQ(result.getLocation().function, function);
}

/// The 72 bytes around the name, and the name in its 88.
Bytes fixedPart(std::uint32_t mediaType, Bytes const& name) {
    return Bytes{0xA1, 0xA0, '3', 'A', 0x02, 0x01, 0x04, 0x83}
        .u32Lsbf(0x15161718)
        .u32Lsbf(0xB1B2B3B4)
        .u32Lsbf(0x191A1B1C)
        .u32Lsbf(0x1D1E1F20)
        .add(name)
        .fill(88 - name.size())
        .u32Lsbf(mediaType)
        .u32Lsbf(48000)
        .u32Lsbf(24)
        .u32Lsbf(0xC1C2C3C4);
}

Bytes fixedPart(std::uint32_t mediaType) { return fixedPart(mediaType, Bytes().text("clip/one")); }

Bytes mediaBytes(std::uint32_t mediaType, Bytes const& specification) {
    return fixedPart(mediaType).add(specification);
}

MediaDesc decodedFrom(Bytes bytes) {
    MediaDesc media;
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_EQ(bytes.size(), 160U);
    EXPECT_EQ(media.decode(buffer, 160).getType(), OpResult::Ok);
    EXPECT_EQ(buffer.nOccupied(), 0U);
    EXPECT_TRUE(media.valid);
    return media;
}

Bytes encoded(MediaDesc const& media) {
    Bytes storage = Bytes().fill(160, 0xAA);
    GxfBuffer out = storage.emptyBuffer();
    EXPECT_EQ(media.encode(out).getType(), OpResult::Ok);
    return Bytes::occupied(out);
}

template <typename Section> std::string textAt(Section const& section, unsigned indent) {
    FormatStr text(128);
    text.cat(">");
    EXPECT_EQ(&section.toString(indent, text), &text);
    return text.get();
}

template <typename Part> std::string textOfPart(Part const& part) {
    FormatStr text(128);
    text.cat(">");
    EXPECT_EQ(&part.toString(text), &text);
    return text.get();
}

Bytes audioFields() {
    return {0,    0,    0,    0,    0,    0,    0xF0, 0x3F, // 1.0
            0,    0,    0,    0,    0,    0,    0xE0, 0xBF, // -0.5
            0x04, 0x03, 0x02, 0x01, 0xFF, 0xFF, 0xFF, 0xFF};
}

Bytes mpegFields(unsigned shared, unsigned afd) {
    return Bytes()
        .u32Lsbf(2)
        .u32Lsbf(1)
        .u32Lsbf(3)
        .u32Lsbf(9)
        .u32Lsbf(0x80000008)
        .u32Lsbf(0x01020307)
        .u8(shared)
        .u8(afd);
}

/// What stands in a variant, what is written again, and how it prints.
struct VariantRow {
    std::uint32_t mediaType;
    char const* name;
    Bytes wire;
    Bytes written;
    char const* text; ///< at indent 0
};

std::vector<VariantRow> variantRows() {
    std::vector<VariantRow> rows;
    rows.push_back({2, "Audio", audioFields(), audioFields(),
                    "\n  ={lvlBegin=1.000000,lvlEnd=-0.500000,rampUp=16909060flds,"
                    "rampDown=4294967295flds}"});
    rows.push_back({3, "Timecode", {0, 0, 0, 0}, {0, 0, 0, 0}, "={drop}"});
    rows.push_back({3, "Timecode", {1, 0, 0, 0}, {1, 0, 0, 0}, "={nonDrop}"});
    rows.push_back({3, "Timecode", {1, 0, 0, 0x80}, {1, 0, 0, 0x80}, "={?drop}"});
    for (auto const& [type, name] :
         {std::pair{4U, "Mpeg2SD"}, std::pair{7U, "Mpeg2HD"}, std::pair{9U, "Mpeg1"}}) {
        rows.push_back({type, name, mpegFields(0x82, 0xAB), mpegFields(0x82, 0x0B),
                        "\n  {16x9,afd=0xb,4:2:2,closedGop,frame,I/P/B=9/9/9,mpeg2}"});
        rows.push_back({type, name, mpegFields(0x42, 0x00), mpegFields(0x42, 0x00),
                        "\n  {4x3,afd=0x0,4:2:2,closedGop,frame,I/P/B=9/9/9,mpeg2}"});
        rows.push_back({type, name, mpegFields(0x12, 0xF0), mpegFields(0x42, 0x00),
                        "\n  {4x3,afd=0x0,4:2:2,closedGop,frame,I/P/B=9/9/9,mpeg2}"});
    }
    for (auto const& [type, name] :
         {std::pair{5U, "DV25"}, std::pair{6U, "DV50"}, std::pair{10U, "DV100"}}) {
        rows.push_back({type, name, {0x80, 0x9C}, {0x80, 0x0C}, "\n  ={16x9,afd=0xc}"});
        rows.push_back({type, name, {0x40, 0x01}, {0x40, 0x01}, "\n  ={4x3,afd=0x1}"});
        rows.push_back({type, name, {0x60, 0x0F}, {0x60, 0x0F}, "\n  ={4x3,afd=0xf}"});
        rows.push_back({type, name, {0xA0, 0x00}, {0x60, 0x00}, "\n  ={4x3,afd=0x0}"});
    }
    rows.push_back({8, "AncillaryData", {}, {}, ""});
    rows.push_back({11, "AvcI", {0x40, 0xA5}, {0x80, 0x05}, "\n  {16x9,afd=0x5}"});
    rows.push_back({11, "AvcI", {0x00, 0x00}, {0x80, 0x00}, "\n  {16x9,afd=0x0}"});
    return rows;
}

/// A specification behind whose fields the wire isn't zero.
Bytes dirty(Bytes fields) { return fields.fill(32 - fields.size(), 0xEE); }
Bytes clean(Bytes fields) { return fields.fill(32 - fields.size()); }

/// The text of the fixed part.
std::string fixedText(std::string const& name) {
    return "seq258:" + name +
           ",trk=Audio3,nFields=353769240,in/out=421141276/488513312,48000hz,24 bits";
}

std::vector<unsigned char> rawBytes(Specification const& specification) {
    std::vector<unsigned char> bytes(sizeof specification);
    std::memcpy(bytes.data(), &specification, sizeof specification);
    return bytes;
}

using Change = std::function<void(MediaDesc&)>;

void expectDifferent(MediaDesc const& media, std::vector<Change> const& changes) {
    for (std::size_t i = 0; i < changes.size(); ++i) {
        MediaDesc other = media;
        changes[i](other);
        EXPECT_FALSE(media.isEqual(other)) << media.mediaType << ", " << i;
        EXPECT_FALSE(other.isEqual(media)) << media.mediaType << ", " << i;
    }
}

void expectSame(MediaDesc const& media, std::vector<Change> const& changes) {
    for (std::size_t i = 0; i < changes.size(); ++i) {
        MediaDesc other = media;
        changes[i](other);
        EXPECT_TRUE(media.isEqual(other)) << media.mediaType << ", " << i;
        EXPECT_TRUE(other.isEqual(media)) << media.mediaType << ", " << i;
    }
}

/// A valid description whose specification is all zero.
MediaDesc zeroMedia(unsigned mediaType) { return decodedFrom(mediaBytes(mediaType, clean({}))); }

} // namespace

TEST(UmfTrackDesc, New) {
    TrackDesc const track;
    EXPECT_EQ(track.trackNumber, 0U);
    EXPECT_EQ(track.trackType, 0U);
    EXPECT_EQ(track.getNumSegments(), 0U);
    EXPECT_FALSE(track.valid);
}

TEST(UmfTrackDesc, Codes) {
    Bytes bytes{'B', 'A', 0x34, 0x92, 0x77};
    GxfBuffer in = bytes.filledBuffer();
    TrackDesc track;
    EXPECT_EQ(track.decode(in, 5).getType(), OpResult::Ok);
    EXPECT_EQ(in.nOccupied(), 1U);
    EXPECT_EQ(track.trackNumber, 66U);
    EXPECT_EQ(track.trackType, 65U);
    EXPECT_EQ(track.numSegments, 0x9234U);
    EXPECT_EQ(track.getNumSegments(), 0x9234U);
    EXPECT_TRUE(track.valid);

    track.valid = false;
    track.trackNumber = static_cast<TrackNumberEncoding>(0x12345642);
    track.trackType = static_cast<TrackTypeEncoding>(0x12345641);
    Bytes storage = Bytes().fill(4);
    GxfBuffer out = storage.emptyBuffer();
    EXPECT_EQ(track.encode(out).getType(), OpResult::Ok);
    EXPECT_EQ(Bytes::occupied(out), (Bytes{'B', 'A', 0x34, 0x92}));
}

TEST(UmfTrackDesc, AnyBytesComeBack) {
    for (unsigned value = 0; value < 256; ++value) {
        Bytes bytes{value, 255 - value, value ^ 0x55, value ^ 0xAA};
        GxfBuffer in = bytes.filledBuffer();
        TrackDesc track;
        EXPECT_TRUE(track.decode(in, 4));
        EXPECT_EQ(track.trackNumber, value);
        EXPECT_EQ(track.trackType, 255 - value);
        Bytes storage = Bytes().fill(4);
        GxfBuffer out = storage.emptyBuffer();
        EXPECT_TRUE(track.encode(out));
        EXPECT_EQ(storage, bytes);
    }
}

TEST(UmfTrackDesc, ShortDecodeReadsNothing) {
    for (unsigned size = 0; size < 4; ++size) {
        Bytes bytes{'1', 'M', 5, 0};
        GxfBuffer whole = bytes.filledBuffer();
        TrackDesc track;
        track.valid = true;
        track.numSegments = 7;
        expectFailure(track.decode(whole, size), 9, "decode");
        EXPECT_FALSE(track.valid);
        EXPECT_EQ(track.trackNumber, 0U);
        EXPECT_EQ(track.numSegments, 7U);
        EXPECT_EQ(whole.nOccupied(), 4U);

        track.valid = true;
        GxfBuffer cut(bytes.data(), size, GxfBuffer::DataState::filled, MediaAgent(nullptr));
        expectFailure(track.decode(cut, 4), 9, "decode");
        EXPECT_FALSE(track.valid);
        EXPECT_EQ(cut.nOccupied(), size);
    }
}

TEST(UmfTrackDesc, EncodeWithoutRoom) {
    for (unsigned room = 0; room < 4; ++room) {
        Bytes storage = Bytes().fill(4, 0xAA);
        GxfBuffer out(storage.data(), room, GxfBuffer::DataState::empty, MediaAgent(nullptr));
        expectFailure(TrackDesc().encode(out), 12, "encode");
        EXPECT_EQ(out.nOccupied(), 0U);
        EXPECT_EQ(storage, Bytes().fill(4, 0xAA));
    }
}

TEST(UmfTrackDesc, EqualByItsThreeFields) {
    TrackDesc const track;
    TrackDesc other;
    other.valid = true;
    EXPECT_TRUE(track.isEqual(other));
    other.trackNumber = static_cast<TrackNumberEncoding>(0x100);
    EXPECT_FALSE(track.isEqual(other));
    other = TrackDesc();
    other.trackType = static_cast<TrackTypeEncoding>(0x100);
    EXPECT_FALSE(track.isEqual(other));
    other = TrackDesc();
    other.numSegments = 0x8000;
    EXPECT_FALSE(track.isEqual(other));
}

TEST(UmfTrackDesc, Text) {
    TrackDesc track;
    EXPECT_STREQ(track.toString().get(), "? -1, 0 seg");
    track.trackNumber = static_cast<TrackNumberEncoding>('V');
    track.trackType = trackTypeEncodingMpeg2Hd;
    track.numSegments = 65535;
    EXPECT_STREQ(track.toString().get(), "Mpeg2Hd 31, 65535 seg");
    EXPECT_EQ(textAt(track, 6), ">Mpeg2Hd 31, 65535 seg");
    track.trackNumber = static_cast<TrackNumberEncoding>('W');
    EXPECT_STREQ(track.toString().get(), "Mpeg2Hd -1, 65535 seg");
}

TEST(UmfTrackDesc, Messages) {
    TrackDesc const track;
    Bytes storage = Bytes().fill(4);
    MessageCapture capture;
    {
        ChannelSetting const level(gxfEncodeDetail, 2);
        GxfBuffer out = storage.emptyBuffer();
        EXPECT_TRUE(track.encode(out));
        EXPECT_THAT(capture.texts(), IsEmpty());
    }
    ChannelSetting const level(gxfEncodeDetail, 3);
    ChannelSetting const decodeLevel(gxfDecodeDetail, 9);
    GxfBuffer out = storage.emptyBuffer();
    out.reset(GxfBuffer::DataState::empty, 7000000000);
    EXPECT_TRUE(track.encode(out));
    EXPECT_THAT(capture.texts(MessageKind::Info),
                ElementsAre("start Track Desc encode @7000000000\n",
                            "end Track Desc encode ? -1, 0 seg\n"));
    EXPECT_EQ(capture.texts().size(), 2U);
    capture.clear();
    EXPECT_FALSE(track.encode(out));
    EXPECT_THAT(capture.texts(), ElementsAre("start Track Desc encode @7000000000\n"));
    capture.clear();
    TrackDesc read;
    EXPECT_TRUE(read.decode(out, 4));
    EXPECT_THAT(capture.texts(), IsEmpty());
}

TEST(UmfMediaDesc, New) {
    MediaDesc const media;
    EXPECT_FALSE(media.valid);
    EXPECT_EQ(media.getLength(), 0U);
    EXPECT_TRUE(media.getTrackNum() == UmfTrackNum());
    EXPECT_STREQ(media.mediaName, "");
    EXPECT_EQ(media.mediaType, 0U);
    EXPECT_TRUE(media.isEqual(MediaDesc()));
    EXPECT_STREQ(media.toString().get(), "seq0:?,trk=?,nFields=0,in/out=0/0,0hz,0 bits");
}

TEST(UmfMediaDesc, DecodesTheFixedPart) {
    Bytes bytes = mediaBytes(8, clean({})).u8(0x77);
    GxfBuffer buffer = bytes.filledBuffer();
    MediaDesc media;
    EXPECT_EQ(media.decode(buffer, 161).getType(), OpResult::Ok);
    EXPECT_EQ(buffer.nOccupied(), 1U);
    EXPECT_TRUE(media.valid);
    EXPECT_EQ(media.length, 0xA0A1U);
    EXPECT_EQ(media.getLength(), 0xA0A1U);
    EXPECT_EQ(media.getTrackNum().trackNumber, 0x33U);
    EXPECT_EQ(media.getTrackNum().trackType, 0x41U);
    EXPECT_TRUE(media.trackNum == media.getTrackNum());
    EXPECT_EQ(media.sequence, 0x0102U);
    EXPECT_EQ(media.reservedA, 0x8304U);
    EXPECT_EQ(media.numFields, 0x15161718U);
    EXPECT_EQ(media.reservedB, 0xB1B2B3B4U);
    EXPECT_EQ(media.fieldIn, 0x191A1B1CU);
    EXPECT_EQ(media.fieldOut, 0x1D1E1F20U);
    EXPECT_STREQ(media.mediaName, "clip/one");
    EXPECT_EQ(media.mediaType, 8U);
    EXPECT_EQ(media.sampleRate, 48000U);
    EXPECT_EQ(media.sampleBits, 24U);
    EXPECT_EQ(media.reservedC, 0xC1C2C3C4U);
}

TEST(UmfMediaDesc, EachVariant) {
    for (VariantRow const& row : variantRows()) {
        MediaDesc const media = decodedFrom(mediaBytes(row.mediaType, dirty(row.wire)));
        EXPECT_EQ(media.mediaType, row.mediaType);
        EXPECT_EQ(encoded(media), mediaBytes(row.mediaType, clean(row.written)));
        std::string const text = fixedText(row.name);
        EXPECT_EQ(media.toString().get(), text + row.text);
        std::string indented = row.text;
        if (!indented.empty() && indented[0] == '\n') {
            indented.insert(1, 5, ' ');
        }
        EXPECT_EQ(textAt(media, 5), ">" + text + indented);
        // What is written reads as the same.
        EXPECT_TRUE(media.isEqual(decodedFrom(encoded(media))));
    }
}

TEST(UmfMediaDesc, DecodesAudio) {
    MediaDesc const media = decodedFrom(mediaBytes(2, clean(audioFields())));
    EXPECT_EQ(media.spec.audio.levelBegin, 1.0);
    EXPECT_EQ(media.spec.audio.levelEnd, -0.5);
    EXPECT_EQ(media.spec.audio.rampUpFields, 0x01020304U);
    EXPECT_EQ(media.spec.audio.rampDownFields, 0xFFFFFFFFU);
    EXPECT_EQ(textOfPart(media.spec.audio),
              ">lvlBegin=1.000000,lvlEnd=-0.500000,rampUp=16909060flds,rampDown=4294967295flds");
}

TEST(UmfMediaDesc, TextOfHugeLevels) {
    MediaDesc media = zeroMedia(2);
    media.spec.audio.levelBegin = DBL_MAX;
    media.spec.audio.levelEnd = -DBL_MAX;
    std::string const digits = std::to_string(DBL_MAX);
    EXPECT_EQ(textOfPart(media.spec.audio),
              ">lvlBegin=" + digits + ",lvlEnd=-" + digits + ",rampUp=0flds,rampDown=0flds");
}

TEST(UmfMediaDesc, DecodesMpeg) {
    for (unsigned const mediaType : {4U, 7U, 9U}) {
        for (unsigned shared = 0; shared < 256; ++shared) {
            MediaDesc const media =
                decodedFrom(mediaBytes(mediaType, dirty(mpegFields(shared, shared))));
            MediaDesc::MpegVideo const& mpeg = media.spec.mpeg;
            bool const isWide = shared >= 0x80 && shared <= 0x8F;
            EXPECT_EQ(mpeg.colorSampling, 2U);
            EXPECT_EQ(mpeg.gopStructure, 1U);
            EXPECT_EQ(mpeg.frameFieldStructure, 3U);
            EXPECT_EQ(mpeg.iPictures, 9U);
            EXPECT_EQ(mpeg.pPictures, 0x80000008U);
            EXPECT_EQ(mpeg.bPictures, 0x01020307U);
            EXPECT_EQ(mpeg.mpegType, shared % 16);
            EXPECT_EQ(mpeg.aspect, isWide ? 128U : 64U);
            EXPECT_EQ(mpeg.afd, shared % 16);
            unsigned const written = (isWide ? 0x80 : 0x40) + shared % 16;
            EXPECT_EQ(encoded(media),
                      mediaBytes(mediaType, clean(mpegFields(written, shared % 16))));
        }
    }
}

TEST(UmfMediaDesc, DecodesDv) {
    for (unsigned const mediaType : {5U, 6U, 10U}) {
        for (unsigned shared = 0; shared < 256; ++shared) {
            MediaDesc const media =
                decodedFrom(mediaBytes(mediaType, dirty({shared, 255 - shared})));
            // The flag's bit hides a 16:9: intended.
            bool const isWide = shared >= 0x80 && shared <= 0x8F;
            bool const flag = (shared / 32) % 2 == 1;
            EXPECT_EQ(media.spec.dv.aspect, isWide ? 128U : 64U);
            EXPECT_EQ(media.spec.dv.dvFlag, flag);
            EXPECT_EQ(media.spec.dv.afd, 15 - shared % 16);
            unsigned const written = (isWide ? 0x80U : 0x40U) + (flag ? 0x20U : 0U);
            EXPECT_EQ(encoded(media), mediaBytes(mediaType, clean({written, 15 - shared % 16})));
        }
    }
}

TEST(UmfMediaDesc, EncodesTheFlagBesideEitherAspect) {
    MediaDesc media = zeroMedia(5);
    media.spec.dv.aspect = MediaDesc::aspect16x9;
    media.spec.dv.dvFlag = true;
    EXPECT_EQ(encoded(media), mediaBytes(5, clean({0xA0, 0})));
    media.spec.dv.aspect = static_cast<MediaDesc::Aspect>(0);
    EXPECT_EQ(encoded(media), mediaBytes(5, clean({0x20, 0})));
    EXPECT_EQ(media.toString().get(), fixedText("DV25") + "\n  ={?x?,afd=0x0}");
}

TEST(UmfMediaDesc, DecodesAvcIntra) {
    for (unsigned shared = 0; shared < 256; ++shared) {
        MediaDesc media = decodedFrom(mediaBytes(11, dirty({shared, 255 - shared})));
        EXPECT_EQ(media.spec.avcIntra.aspect, 128U);
        EXPECT_EQ(media.spec.avcIntra.afd, 15 - shared % 16);
        // Whatever the aspect.
        media.spec.avcIntra.aspect = MediaDesc::aspect4x3;
        EXPECT_EQ(encoded(media), mediaBytes(11, clean({0x80, 15 - shared % 16})));
    }
}

TEST(UmfMediaDesc, WritesFourBitsOfTheAfd) {
    MediaDesc media = zeroMedia(4);
    media.spec.mpeg.afd = 0xF7;
    EXPECT_EQ(encoded(media)[128 + 25], 0x07U);
}

TEST(UmfMediaDesc, SetAspect) {
    for (unsigned bits = 0; bits < 256; ++bits) {
        auto const byte = static_cast<unsigned char>(bits);
        MediaDesc::MpegVideo mpeg{};
        MediaDesc::DvVideo dv{};
        MediaDesc::AvcIntraVideo avcIntra{};
        mpeg.setAspect(byte);
        dv.setAspect(byte);
        avcIntra.setAspect(byte);
        EXPECT_EQ(mpeg.aspect, bits == 128 ? 128U : 64U);
        EXPECT_EQ(dv.aspect, bits == 128 ? 128U : 64U);
        EXPECT_EQ(avcIntra.aspect, 128U);
    }
}

TEST(UmfMediaDesc, TextOfVideo) {
    MediaDesc::MpegVideo mpeg{};
    mpeg.aspect = MediaDesc::aspect16x9;
    mpeg.afd = 10;
    EXPECT_EQ(textOfPart(static_cast<MediaDesc::AnyVideo const&>(mpeg)), ">16x9,afd=0xa");
    // The count of I pictures stands for all three: intended.
    mpeg.iPictures = 0xFFFFFFFF;
    mpeg.pPictures = 2;
    mpeg.bPictures = 3;
    EXPECT_EQ(textOfPart(mpeg), ">16x9,afd=0xa,4:?:?,openGop,frStruct?,I/P/B=-1/-1/-1,mpeg?");
    mpeg.aspect = MediaDesc::aspect4x3;
    mpeg.colorSampling = MediaDesc::colorSampling420;
    mpeg.gopStructure = static_cast<MediaDesc::GopStructure>(2);
    mpeg.frameFieldStructure = MediaDesc::frameFieldStructureTopFF;
    mpeg.mpegType = MediaDesc::mpegTypeMpeg2Cbr;
    EXPECT_EQ(textOfPart(mpeg), ">4x3,afd=0xa,4:2:0,?gop,topFF,I/P/B=-1/-1/-1,mpeg2Cbr");
    mpeg.frameFieldStructure = MediaDesc::frameFieldStructureBottomFF;
    mpeg.mpegType = MediaDesc::mpegTypeMpeg1;
    EXPECT_EQ(textOfPart(mpeg), ">4x3,afd=0xa,4:2:0,?gop,bottomFF,I/P/B=-1/-1/-1,mpeg1");
}

TEST(UmfMediaDesc, TypesThatDontEncode) {
    struct Row {
        std::uint32_t mediaType;
        char const* name;
    };
    constexpr Row rows[] = {{1, "MotionJPEG"}, {0, "?"},      {12, "?"},
                            {13, "?"},         {0x102, "?"},  {0x80000003, "?"},
                            {0xFFFFFFFF, "?"}, {0x10008, "?"}};
    for (Row const& row : rows) {
        MediaDesc const media = decodedFrom(mediaBytes(row.mediaType, dirty({})));
        EXPECT_EQ(media.mediaType, row.mediaType);
        EXPECT_EQ(media.toString().get(), fixedText(row.name));
        Bytes storage = Bytes().fill(160, 0xAA);
        GxfBuffer out = storage.emptyBuffer();
        OpResult const result = media.encode(out);
        EXPECT_EQ(result.getType(), OpResult::Error);
        EXPECT_EQ(result.getCode(), 13);
        EXPECT_STREQ(result.getText(), "");
        EXPECT_STREQ(result.getLocation().file, "umf_media_desc.cpp");
        EXPECT_EQ(Bytes::occupied(out), fixedPart(row.mediaType));
    }
}

TEST(UmfMediaDesc, ShortDecodeReadsNothing) {
    for (unsigned size = 0; size < 160; ++size) {
        Bytes bytes = mediaBytes(2, clean(audioFields()));
        GxfBuffer whole = bytes.filledBuffer();
        MediaDesc media;
        media.valid = true;
        expectFailure(media.decode(whole, size), 9, "decode");
        EXPECT_FALSE(media.valid);
        EXPECT_TRUE(media.isEqual(MediaDesc()));
        EXPECT_EQ(whole.nOccupied(), 160U);

        media.valid = true;
        GxfBuffer cut(bytes.data(), size, GxfBuffer::DataState::filled, MediaAgent(nullptr));
        expectFailure(media.decode(cut, 160), 9, "decode");
        EXPECT_FALSE(media.valid);
        EXPECT_TRUE(media.isEqual(MediaDesc()));
        EXPECT_EQ(cut.nOccupied(), size);
    }
}

TEST(UmfMediaDesc, EncodeWithoutRoom) {
    MediaDesc const media = decodedFrom(mediaBytes(2, clean(audioFields())));
    for (unsigned room = 0; room < 160; ++room) {
        Bytes storage = Bytes().fill(160, 0xAA);
        GxfBuffer out(storage.data(), room, GxfBuffer::DataState::empty, MediaAgent(nullptr));
        expectFailure(media.encode(out), 12, "encode");
        EXPECT_EQ(out.nOccupied(), 0U);
        EXPECT_EQ(storage, Bytes().fill(160, 0xAA));
    }
}

TEST(UmfMediaDesc, NameBehindItsZeroIsNotWrittenBack) {
    Bytes const name = Bytes().text("ab").u8(0).fill(85, 'x');
    MediaDesc const media = decodedFrom(fixedPart(8, name).fill(32));
    EXPECT_STREQ(media.mediaName, "ab");
    EXPECT_EQ(media.mediaName[3], 'x');
    EXPECT_EQ(media.mediaName[87], 'x');
    EXPECT_EQ(media.mediaName[88], '\0');
    EXPECT_EQ(encoded(media), fixedPart(8, Bytes().text("ab")).fill(32));
}

TEST(UmfMediaDesc, LongestNames) {
    MediaDesc const longest = decodedFrom(fixedPart(8, Bytes().fill(87, 'y')).fill(32));
    EXPECT_EQ(longest.mediaName, std::string(87, 'y'));
    MessageCapture const capture;
    EXPECT_EQ(encoded(longest), fixedPart(8, Bytes().fill(87, 'y')).fill(32));
    EXPECT_THAT(capture.texts(), IsEmpty());

    // Without a place for its terminator the name writes nothing: intended.
    MediaDesc const tooLong = decodedFrom(fixedPart(8, Bytes().fill(88, 'z')).fill(32));
    EXPECT_EQ(tooLong.mediaName, std::string(88, 'z'));
    Bytes const whole = fixedPart(8);
    Bytes expected;
    for (unsigned i = 0; i < 128; ++i) {
        if (i < 24 || i >= 112) {
            expected.u8(Bytes(whole)[i]);
        }
    }
    EXPECT_EQ(encoded(tooLong), expected.fill(32));
    EXPECT_THAT(capture.texts(),
                ElementsAre("<<<<<<<\nEncoded 72b != dataLen of 160b (missing 88b)\n>>>>>>>\n"));
    EXPECT_EQ(capture.count(MessageKind::Info), 1U);
}

TEST(UmfMediaDesc, DecodesOverAnEarlierDescription) {
    MediaDesc media = decodedFrom(fixedPart(4, Bytes().fill(88, 'z')).fill(32, 0xFF));
    Bytes bytes = mediaBytes(5, clean({0x60, 0x03}));
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_TRUE(media.decode(buffer, 160));
    EXPECT_STREQ(media.mediaName, "clip/one");
    EXPECT_TRUE(media.isEqual(decodedFrom(bytes)));
    EXPECT_EQ(encoded(media), bytes);
}

TEST(UmfMediaDesc, TextHasTheNameWhenArraysArePrinted) {
    MediaDesc const media = decodedFrom(fixedPart(3, Bytes().text("100%s %n")).u32Lsbf(1).fill(28));
    std::string const front = fixedText("Timecode");
    for (unsigned const bits : {0U, 1U, ~arraysBit}) {
        ChannelSetting const setting(gxfDebug, bits);
        EXPECT_EQ(media.toString().get(), front + "={nonDrop}");
    }
    for (unsigned const bits : {arraysBit, ~0U}) {
        ChannelSetting const setting(gxfDebug, bits);
        EXPECT_EQ(media.toString().get(), front + ",\"100%s %n\"={nonDrop}");
    }
    ChannelSetting const setting(gxfDebug, arraysBit);
    MediaDesc const longest = decodedFrom(fixedPart(8, Bytes().fill(88, 'z')).fill(32));
    EXPECT_EQ(longest.toString().get(),
              fixedText("AncillaryData") + ",\"" + std::string(88, 'z') + "\"");
}

TEST(UmfMediaDesc, TextOfNumbersBeyondTheSignedOnes) {
    MediaDesc media;
    media.sequence = 0xFFFF;
    media.numFields = 0xFFFFFFFF;
    media.fieldIn = 0xFFFFFFFE;
    media.fieldOut = 0xFFFFFFFD;
    media.sampleRate = 0xFFFFFFFC;
    media.sampleBits = 0x80000000;
    media.mediaType = mediaTypeAncillaryData;
    media.trackNum = {trackTypeEncodingAncData, static_cast<TrackNumberEncoding>('1')};
    EXPECT_STREQ(media.toString().get(), "seq65535:AncillaryData,trk=AncData1,nFields=-1,"
                                         "in/out=-2/-3,-4hz,-2147483648 bits");
}

TEST(UmfMediaDesc, EqualByTheFixedPart) {
    for (unsigned const mediaType : {1U, 2U, 3U, 4U, 5U, 8U, 11U, 12U}) {
        MediaDesc const media = zeroMedia(mediaType);
        expectDifferent(media,
                        {
                            [](MediaDesc& m) { m.valid = false; },
                            [](MediaDesc& m) { m.length ^= 0x8000; },
                            [](MediaDesc& m) { m.trackNum.trackType = trackTypeEncodingDV25; },
                            [](MediaDesc& m) { m.trackNum.trackNumber = TrackNumberEncoding{}; },
                            [](MediaDesc& m) { m.sequence ^= 0x8000; },
                            [](MediaDesc& m) { m.numFields ^= 0x80000000; },
                            [](MediaDesc& m) { m.fieldIn ^= 0x80000000; },
                            [](MediaDesc& m) { m.fieldOut ^= 0x80000000; },
                            [](MediaDesc& m) { m.mediaName[7] = 'E'; },
                            [](MediaDesc& m) { m.mediaName[8] = '2'; },
                            [](MediaDesc& m) { m.mediaName[0] = '\0'; },
                            [](MediaDesc& m) { m.sampleRate ^= 0x80000000; },
                            [](MediaDesc& m) { m.sampleBits ^= 0x80000000; },
                            [](MediaDesc& m) { m.mediaType = static_cast<MediaType>(14); },
                        });
        expectSame(media, {
                              [](MediaDesc&) {},
                              [](MediaDesc& m) { m.reservedA ^= 1; },
                              [](MediaDesc& m) { m.reservedB ^= 1; },
                              [](MediaDesc& m) { m.reservedC ^= 1; },
                              [](MediaDesc& m) { m.mediaName[9] = 'x'; },
                          });
    }
}

TEST(UmfMediaDesc, EqualByTheVariant) {
    std::vector<Change> const audio = {
        [](MediaDesc& m) { m.spec.audio.levelBegin = 0.5; },
        [](MediaDesc& m) { m.spec.audio.levelEnd = 0.5; },
        [](MediaDesc& m) { m.spec.audio.rampUpFields = 0x80000000; },
        [](MediaDesc& m) { m.spec.audio.rampDownFields = 0x80000000; },
    };
    std::vector<Change> const timecode = {
        [](MediaDesc& m) { m.spec.timecodeType = MediaDesc::timecodeTypeNonDrop; },
    };
    std::vector<Change> const behindTheTimecode = {
        [](MediaDesc& m) { m.spec.audio.levelEnd = 0.5; },
        [](MediaDesc& m) { m.spec.video.afd = 1; },
    };
    std::vector<Change> const video = {
        [](MediaDesc& m) { m.spec.video.aspect = MediaDesc::aspect16x9; },
        [](MediaDesc& m) { m.spec.video.aspect = MediaDesc::aspect4x3; },
        [](MediaDesc& m) { m.spec.video.afd = 1; },
    };
    std::vector<Change> mpeg = {
        [](MediaDesc& m) { m.spec.mpeg.colorSampling = MediaDesc::colorSampling420; },
        [](MediaDesc& m) { m.spec.mpeg.gopStructure = MediaDesc::gopStructureClosedGop; },
        [](MediaDesc& m) { m.spec.mpeg.frameFieldStructure = MediaDesc::frameFieldStructureFrame; },
        [](MediaDesc& m) { m.spec.mpeg.iPictures = 0x80000000; },
        [](MediaDesc& m) { m.spec.mpeg.pPictures = 0x80000000; },
        [](MediaDesc& m) { m.spec.mpeg.bPictures = 0x80000000; },
        [](MediaDesc& m) { m.spec.mpeg.mpegType = MediaDesc::mpegTypeMpeg2; },
    };
    mpeg.insert(mpeg.end(), video.begin(), video.end());
    std::vector<Change> const flag = {[](MediaDesc& m) { m.spec.dv.dvFlag = true; }};

    for (unsigned const type : {2U, 0U, 12U, 13U, 0x104U, 0xFFFFFFFFU}) {
        expectDifferent(zeroMedia(type), audio);
    }
    expectDifferent(zeroMedia(3), timecode);
    expectSame(zeroMedia(3), behindTheTimecode);
    for (unsigned const type : {4U, 7U, 9U}) {
        // Else the aspect of a decoded zero would be the one of a change.
        MediaDesc media = zeroMedia(type);
        media.spec.mpeg.aspect = static_cast<MediaDesc::Aspect>(0);
        expectDifferent(media, mpeg);
    }
    for (unsigned const type : {5U, 6U, 10U}) {
        MediaDesc media = zeroMedia(type);
        media.spec.dv.aspect = static_cast<MediaDesc::Aspect>(0);
        expectDifferent(media, video);
        expectDifferent(media, flag);
    }
    MediaDesc avcIntra = zeroMedia(11);
    avcIntra.spec.avcIntra.aspect = static_cast<MediaDesc::Aspect>(0);
    expectDifferent(avcIntra, video);
    expectSame(avcIntra, flag);
    for (unsigned const type : {1U, 8U}) {
        expectSame(zeroMedia(type), audio);
        expectSame(zeroMedia(type), mpeg);
    }
}

TEST(UmfMediaDesc, SpecificationsCompareByTheGivenType) {
    MediaDesc const a = zeroMedia(3);
    MediaDesc b = a;
    b.spec.timecodeType = MediaDesc::timecodeTypeNonDrop;
    EXPECT_FALSE(a.spec.isEqual(b.spec, mediaTypeTimecode));
    EXPECT_TRUE(a.spec.isEqual(a.spec, mediaTypeTimecode));
    EXPECT_TRUE(a.spec.isEqual(b.spec, mediaTypeMotionJPEG));
    EXPECT_TRUE(a.spec.isEqual(b.spec, mediaTypeAncillaryData));
    EXPECT_FALSE(a.spec.isEqual(b.spec, mediaTypeAudio));
    EXPECT_FALSE(a.spec.isEqual(b.spec, static_cast<MediaType>(0)));
}

TEST(UmfMediaDesc, VariantsCompare) {
    MediaDesc::AnyAudio audio{1.0, 2.0, 3, 4};
    MediaDesc::AnyAudio otherAudio = audio;
    EXPECT_TRUE(audio.isEqual(otherAudio));
    otherAudio.rampDownFields = 5;
    EXPECT_FALSE(audio.isEqual(otherAudio));
    MediaDesc::MpegVideo mpeg{};
    MediaDesc::MpegVideo otherMpeg{};
    EXPECT_TRUE(mpeg.isEqual(otherMpeg));
    otherMpeg.mpegType = MediaDesc::mpegTypeMpeg1;
    EXPECT_FALSE(mpeg.isEqual(otherMpeg));
    EXPECT_TRUE(mpeg.AnyVideo::isEqual(otherMpeg));
    MediaDesc::DvVideo dv{};
    MediaDesc::DvVideo otherDv{};
    EXPECT_TRUE(dv.isEqual(otherDv));
    otherDv.dvFlag = true;
    EXPECT_FALSE(dv.isEqual(otherDv));
    EXPECT_TRUE(dv.AnyVideo::isEqual(otherDv));
}

TEST(UmfMediaDesc, AssignmentCopiesEverything) {
    MediaDesc const source = decodedFrom(mediaBytes(4, clean(mpegFields(0x82, 0x0B))));
    MediaDesc target = zeroMedia(2);
    target = source;
    EXPECT_TRUE(target.isEqual(source));
    EXPECT_EQ(target.reservedA, 0x8304U);
    EXPECT_EQ(target.reservedB, 0xB1B2B3B4U);
    EXPECT_EQ(target.reservedC, 0xC1C2C3C4U);
    EXPECT_EQ(rawBytes(target.spec), rawBytes(source.spec));
    EXPECT_EQ(encoded(target), encoded(source));
}

TEST(UmfMediaDesc, CopyLeavesTheReservedFields) {
    for (unsigned const type : {0U, 1U, 2U, 3U, 4U, 5U, 6U, 7U, 8U, 9U, 10U, 11U, 12U, 0x104U}) {
        MediaDesc const source = decodedFrom(mediaBytes(type, clean(mpegFields(0x82, 0x0B))));
        MediaDesc target;
        target.reservedA = 1;
        target.reservedB = 2;
        target.reservedC = 3;
        target.copy(source);
        EXPECT_TRUE(target.valid);
        EXPECT_EQ(target.length, 0xA0A1U);
        EXPECT_TRUE(target.trackNum == source.trackNum);
        EXPECT_EQ(target.sequence, 0x0102U);
        EXPECT_EQ(target.numFields, 0x15161718U);
        EXPECT_EQ(target.fieldIn, 0x191A1B1CU);
        EXPECT_EQ(target.fieldOut, 0x1D1E1F20U);
        EXPECT_STREQ(target.mediaName, "clip/one");
        EXPECT_EQ(target.mediaType, type);
        EXPECT_EQ(target.sampleRate, 48000U);
        EXPECT_EQ(target.sampleBits, 24U);
        EXPECT_TRUE(target.isEqual(source)) << type;
        EXPECT_EQ(target.reservedA, 1U);
        EXPECT_EQ(target.reservedB, 2U);
        EXPECT_EQ(target.reservedC, 3U);
    }
}

TEST(UmfMediaDesc, CopyTakesTheFieldsOfTheVariant) {
    struct Row {
        unsigned mediaType;
        std::size_t size; ///< of the variant in memory
    };
    constexpr Row rows[] = {
        {1, 0},
        {2, sizeof(MediaDesc::AnyAudio)},
        {3, sizeof(MediaDesc::TimecodeType)},
        {4, sizeof(MediaDesc::MpegVideo)},
        {5, sizeof(MediaDesc::DvVideo)},
        {6, sizeof(MediaDesc::DvVideo)},
        {7, sizeof(MediaDesc::MpegVideo)},
        {8, 0},
        {9, sizeof(MediaDesc::MpegVideo)},
        {10, sizeof(MediaDesc::DvVideo)},
        {11, sizeof(MediaDesc::AnyVideo)},
        {0, 0},
        {12, 0},
        {0xFFFFFFFF, 0},
    };
    for (Row const& row : rows) {
        MediaDesc source;
        source.mediaType = static_cast<MediaType>(row.mediaType);
        std::memset(static_cast<void*>(&source.spec), 1, sizeof source.spec);
        MediaDesc target;
        target.mediaType = mediaTypeAudio;
        target.copy(source);
        std::vector<unsigned char> const bytes = rawBytes(target.spec);
        for (std::size_t i = row.size; i < bytes.size(); ++i) {
            EXPECT_EQ(bytes[i], 0U) << row.mediaType << ", " << i;
        }
        if (row.size != 0) {
            EXPECT_TRUE(target.spec.isEqual(source.spec, source.mediaType)) << row.mediaType;
            EXPECT_EQ(bytes[0], 1U);
        }
    }
}

TEST(UmfMediaDesc, FoundByItsTrack) {
    PacketPool pool;
    AutoRefPtr<UmfPacket> const umf = pool.alloc(packetTypeUmfFile)->getUmfPacket();
    UmfPacket const& packet = *umf;
    UmfTrackNum const audio(trackTypeEncodingAudio, static_cast<TrackNumberEncoding>('1'));
    EXPECT_EQ(packet.getMediaDesc(audio), nullptr);
    for (char const number : {'0', '1', '1', '2'}) {
        MediaDesc media;
        media.trackNum = {trackTypeEncodingAudio, static_cast<TrackNumberEncoding>(number)};
        umf->mediaDescs.push_back(media);
    }
    EXPECT_EQ(packet.getMediaDesc(audio), &umf->mediaDescs[1]);
    EXPECT_EQ(umf->getMediaDesc(audio), &umf->mediaDescs[1]);
    EXPECT_EQ(packet.getMediaDesc({trackTypeEncodingAudio, static_cast<TrackNumberEncoding>('2')}),
              &umf->mediaDescs[3]);
    EXPECT_EQ(packet.getMediaDesc({trackTypeEncodingAudio, static_cast<TrackNumberEncoding>('3')}),
              nullptr);
    EXPECT_EQ(
        packet.getMediaDesc({trackTypeEncodingTimecode, static_cast<TrackNumberEncoding>('1')}),
        nullptr);
    EXPECT_EQ(
        packet.getMediaDesc({trackTypeEncodingAudio, static_cast<TrackNumberEncoding>(0x131)}),
        nullptr);
    EXPECT_EQ(umf->getMediaDesc(UmfTrackNum()), nullptr);
}

TEST(UmfMediaDesc, Messages) {
    MediaDesc media;
    media.mediaType = mediaTypeAncillaryData;
    Bytes storage = Bytes().fill(160);
    MessageCapture capture;
    {
        ChannelSetting const level(gxfEncodeDetail, 2);
        GxfBuffer out = storage.emptyBuffer();
        EXPECT_TRUE(media.encode(out));
        EXPECT_THAT(capture.texts(), IsEmpty());
    }
    ChannelSetting const level(gxfEncodeDetail, 3);
    ChannelSetting const decodeLevel(gxfDecodeDetail, 9);
    GxfBuffer out = storage.emptyBuffer();
    out.reset(GxfBuffer::DataState::empty, 0xFFFFFFFFFFFFFFFF);
    EXPECT_TRUE(media.encode(out));
    // The end names another section: intended.
    EXPECT_THAT(capture.texts(MessageKind::Info),
                ElementsAre("start Media Desc encode @18446744073709551615\n",
                            "end Material Desc encode seq0:AncillaryData,trk=?,nFields=0,"
                            "in/out=0/0,0hz,0 bits\n"));
    EXPECT_EQ(capture.texts().size(), 2U);
    capture.clear();
    EXPECT_FALSE(media.encode(out));
    EXPECT_THAT(capture.texts(), ElementsAre("start Media Desc encode @18446744073709551615\n"));
    capture.clear();
    MediaDesc read;
    EXPECT_TRUE(read.decode(out, 160));
    EXPECT_THAT(capture.texts(), IsEmpty());
    GxfBuffer again = storage.emptyBuffer();
    media.mediaType = mediaTypeMotionJPEG;
    EXPECT_FALSE(media.encode(again));
    EXPECT_THAT(capture.texts(), ElementsAre("start Media Desc encode @0\n"));
}

TEST(UmfMediaDesc, AnyBytesDecodeAndSettle) {
    std::mt19937 random(160);
    for (unsigned i = 0; i < 2000; ++i) {
        Bytes bytes;
        for (unsigned n = 0; n < 160; ++n) {
            bytes.u8(static_cast<unsigned>(random()));
        }
        bytes[111] = 0;
        // Levels that aren't numbers equal nothing.
        bytes[134] &= 0x0F;
        bytes[142] &= 0x0F;
        bytes[112] = static_cast<unsigned char>(2 + random() % 10);
        bytes[113] = 0;
        bytes[114] = 0;
        bytes[115] = 0;
        MediaDesc const media = decodedFrom(bytes);
        Bytes const first = encoded(media);
        EXPECT_EQ(first.size(), 160U);
        MediaDesc const again = decodedFrom(first);
        EXPECT_TRUE(again.isEqual(media));
        EXPECT_EQ(encoded(again), first);
    }
}
