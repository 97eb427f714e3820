#include <climits>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <vector>

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

constexpr unsigned errorsBit = 1U << 0;
constexpr unsigned arraysBit = 1U << 1;

constexpr unsigned mediaTag = 0x4C;
constexpr unsigned mpegAuxTag = 0x4F;
constexpr unsigned frameRateTag = 0x50;
constexpr unsigned linesTag = 0x51;
constexpr unsigned fieldsTag = 0x52;
constexpr unsigned avcAuxTag = 0x56;

constexpr double ntscRate = 29.97002997002997;

Bytes signedTag(unsigned number, int value) {
    return tagU32(number, static_cast<std::uint32_t>(value));
}

Bytes rateTag(int value) { return signedTag(frameRateTag, value); }

Bytes auxTag(Bytes const& eightBytes) { return tag(0x4D, eightBytes); }

/// Frames, seconds, minutes and a byte of hours and flags.
Bytes timecodeAux(unsigned frames, unsigned seconds, unsigned minutes, unsigned hoursAndFlags) {
    return auxTag({frames, seconds, minutes, hoursAndFlags, 0xA1, 0xA2, 0xA3, 0xA4});
}

Bytes joined(std::vector<Bytes> const& parts) {
    Bytes bytes;
    for (Bytes const& part : parts) {
        bytes.add(part);
    }
    return bytes;
}

Bytes section(std::vector<Bytes> const& tracks) {
    Bytes const list = joined(tracks);
    return Bytes().u16(static_cast<unsigned>(list.size())).add(list);
}

/// Every tag of the family, 0x50 to 0x52 last.
Bytes allTags() {
    return joined({tagText(mediaTag, "M1"), auxTag({1, 2, 3, 4, 5, 6, 7, 8}), tagU32(0x4E, 7),
                   tagText(mpegAuxTag, "Ver 1\nBr 5\n"), tagText(avcAuxTag, "Ver 2"), rateTag(5),
                   signedTag(linesTag, 2), signedTag(fieldsTag, 2)});
}

OpResult decodeInto(MapTrack& track, Bytes bytes) {
    GxfBuffer buffer = bytes.filledBuffer();
    return track.decode(buffer, static_cast<unsigned>(bytes.size()));
}

OpResult decodeInto(MapTracks& tracks, Bytes bytes) {
    GxfBuffer buffer = bytes.filledBuffer();
    return tracks.decode(buffer, static_cast<unsigned>(bytes.size()));
}

struct DecodedTrack {
    explicit DecodedTrack(unsigned mediaType, Bytes const& tags = {}, unsigned number = 3) {
        EXPECT_TRUE(decodeInto(track, GxfTesting::track(mediaType, number, tags)).success());
    }
    MapTrack* operator->() { return &track; }
    MapTrack& operator*() { return track; }

    MapTrack track{false};
};

struct DecodedTracks {
    explicit DecodedTracks(std::vector<Bytes> const& list) {
        EXPECT_TRUE(decodeInto(tracks, section(list)).success());
    }
    MapTracks* operator->() { return &tracks; }
    MapTracks& operator*() { return tracks; }

    MapTracks tracks{false};
};

template <typename Coded> Bytes encoded(Coded const& object) {
    Bytes out = Bytes().fill(1U << 18);
    GxfBuffer buffer = out.emptyBuffer();
    EXPECT_TRUE(object.encode(buffer).success());
    return Bytes::occupied(buffer);
}

template <typename Printed> std::string textOfObject(Printed const& object, unsigned indent) {
    FormatStr text(128);
    text.cat(">");
    EXPECT_EQ(&object.toString(indent, text), &text);
    return text.get();
}

void expectFailure(OpResult const& result, int code, char const* text) {
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), code);
    EXPECT_STREQ(result.getText(), text);
}

void expectPlace(OpResult const& result, char const* function) {
    EXPECT_STREQ(result.getLocation().file, "map_track.cpp");
    EXPECT_STREQ(result.getLocation().function, function);
    EXPECT_NE(result.getLocation().line, 0U);
}

std::string striped(PerFrameTimecode const& timecode) {
    FormatStr text(128);
    return timecode.toString(30, text).get();
}

/// Asks for everything that a track can tell.
void askAll(MapTrack& track) {
    track.getMediaName();
    track.getRealFieldRate();
    track.getNumLines();
    track.getWidth();
    track.getStripedTc();
    track.getBitrate();
    track.getAspectRatio();
    track.setAspectRatio(aspectRatio16x9);
    track.toString();
}

} // namespace

TEST(MapTrack, StartsAndResetsToNothing) {
    for (bool const valid : {false, true}) {
        MapTrack track(valid);
        EXPECT_EQ(static_cast<unsigned>(track.mediaType), 0U);
        EXPECT_EQ(track.trackByte, 0xFFU);
        EXPECT_EQ(track.getTrackNum(), 63U);
        EXPECT_EQ(track.tagsLength, 0U);
        EXPECT_EQ(track.getCodedLength(), 4U);
        EXPECT_EQ(track.valid, valid);
        EXPECT_EQ(track.trackTags.isValid(), valid);
        EXPECT_EQ(track.trackTags.size(), 0U);
        EXPECT_FALSE(track.getMpegAuxInfo().isValid());
        EXPECT_STREQ(track.getMpegAuxInfo().getRawStr(), "");

        DecodedTrack used(11, allTags());
        used->reset(valid);
        EXPECT_EQ(static_cast<unsigned>(used->mediaType), 0U);
        EXPECT_EQ(used->trackByte, 0xFFU);
        EXPECT_EQ(used->tagsLength, 0U);
        EXPECT_EQ(used->valid, valid);
        EXPECT_EQ(used->trackTags.isValid(), valid);
        EXPECT_EQ(used->trackTags.size(), 0U);
    }
}

TEST(MapTrack, ResetLeavesTheAuxInfo) {
    DecodedTrack track(11, tagText(mpegAuxTag, "Ver 9"));
    track->reset(false);
    EXPECT_STREQ(track->getMpegAuxInfo().getRawStr(), "Ver 9");
    EXPECT_EQ(track->getMpegAuxInfo().auxVersion, 9);
    EXPECT_TRUE(track->getMpegAuxInfo().isValid());
}

TEST(MapTrack, DropsTheTopBitOfTheMediaTypeAndWritesItSet) {
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        for (unsigned const topBit : {0x00U, 0x80U}) {
            MapTrack track(false);
            ASSERT_TRUE(decodeInto(track, {mediaType | topBit, 0xC3, 0, 0}).success());
            EXPECT_EQ(static_cast<unsigned>(track.getMediaType()), mediaType);
            EXPECT_TRUE(track.valid);
            EXPECT_EQ(encoded(track), (Bytes{mediaType | 0x80, 0xC3, 0, 0}));
        }
    }
}

TEST(MapTrack, KeepsTheTrackByteWhole) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        MapTrack track(false);
        ASSERT_TRUE(decodeInto(track, {0x89, byte, 0, 0}).success());
        EXPECT_EQ(track.trackByte, byte);
        EXPECT_EQ(track.getTrackNum(), byte % 64);
        EXPECT_EQ(encoded(track), (Bytes{0x89, byte, 0, 0}));
    }
}

TEST(MapTrack, RoundTripsEveryTag) {
    Bytes const wire = GxfTesting::track(11, 3, allTags());
    MapTrack track(false);
    ASSERT_TRUE(decodeInto(track, wire).success());
    EXPECT_TRUE(track.valid);
    EXPECT_EQ(track.tagsLength, wire.size() - 4);
    EXPECT_EQ(track.getCodedLength(), wire.size());
    EXPECT_EQ(track.trackTags.size(), 8U);
    EXPECT_STREQ(track.getMediaName(), "M1");
    EXPECT_EQ(encoded(track), wire);
}

TEST(MapTrack, ConsumesItsOwnBytesOnly) {
    Bytes bytes = joined({GxfTesting::track(25, 3, rateTag(6)), {0xAA, 0xBB}});
    GxfBuffer buffer = bytes.filledBuffer();
    MapTrack track(false);
    ASSERT_TRUE(track.decode(buffer, static_cast<unsigned>(bytes.size())).success());
    EXPECT_EQ(buffer.nOccupied(), 2U);
    EXPECT_EQ(buffer.beginOffset(), 10U);
}

TEST(MapTrack, CountsByTheLengthsThatTagsClaim) {
    // A length of 0 with four bytes of value behind it: the tag counts two bytes, and six are read.
    Bytes bytes{0x99, 0xC3, 0, 4, 0x50, 0, 0, 0, 0, 6, 0x52, 0, 0, 0, 0, 1, 0xEE};
    GxfBuffer buffer = bytes.filledBuffer();
    MapTrack track(false);
    ASSERT_TRUE(track.decode(buffer, 8).success());
    EXPECT_EQ(track.trackTags.size(), 2U);
    EXPECT_EQ(track.getFrameRate(), frameRate25hz);
    EXPECT_EQ(track.getNumFields(), 1);
    EXPECT_EQ(buffer.nOccupied(), 1U);
}

TEST(MapTrack, ASecondDecodeAppendsItsTags) {
    MapTrack track(false);
    ASSERT_TRUE(decodeInto(track, GxfTesting::track(25, 3, rateTag(6))).success());
    ASSERT_TRUE(decodeInto(track, GxfTesting::track(9, 4, rateTag(3))).success());
    EXPECT_EQ(track.getMediaType(), trackMediaAudioPCM_24);
    EXPECT_EQ(track.getTrackNum(), 4U);
    EXPECT_EQ(track.trackTags.size(), 2U);
    EXPECT_EQ(track.getFrameRate(), frameRate25hz);
}

TEST(MapTrack, TheLastAuxTextWins) {
    DecodedTrack first(11,
                       joined({tagText(mpegAuxTag, "Ver 1\nIpg 15"), tagText(avcAuxTag, "Ver 2")}));
    EXPECT_STREQ(first->getMpegAuxInfo().getRawStr(), "Ver 2");
    EXPECT_EQ(first->getMpegAuxInfo().auxVersion, 2);
    EXPECT_EQ(first->getMpegAuxInfo().iPerGop, 15);

    DecodedTrack second(11, joined({tagText(avcAuxTag, "Ver 2"), tagText(mpegAuxTag, "bad")}));
    EXPECT_STREQ(second->getMpegAuxInfo().getRawStr(), "bad");
    EXPECT_FALSE(second->getMpegAuxInfo().isValid());
    EXPECT_TRUE(second->valid);
}

TEST(MapTrack, DecodeNeedsFourBytesOfTheSection) {
    for (unsigned remaining = 0; remaining < 4; ++remaining) {
        Bytes bytes = GxfTesting::track(25, 3, {});
        GxfBuffer buffer = bytes.filledBuffer();
        MapTrack track(true);
        OpResult const result = track.decode(buffer, remaining);
        expectFailure(result, 9, "");
        expectPlace(result, "decode");
        EXPECT_FALSE(track.valid);
        EXPECT_EQ(buffer.nOccupied(), 4U);
    }
}

TEST(MapTrack, DecodeNeedsFourBytesInTheBuffer) {
    for (unsigned present = 0; present < 4; ++present) {
        Bytes bytes;
        bytes.fill(present, 0x99);
        GxfBuffer buffer = bytes.filledBuffer();
        MapTrack track(true);
        expectFailure(track.decode(buffer, 100), 9, "");
        EXPECT_FALSE(track.valid);
    }
}

TEST(MapTrack, TagsThatOverrunTheSectionFail) {
    Bytes bytes = joined({GxfTesting::track(25, 3, rateTag(6)), {0, 0, 0}});
    for (unsigned remaining = 4; remaining < 10; ++remaining) {
        GxfBuffer buffer = bytes.filledBuffer();
        MapTrack track(true);
        OpResult const result = track.decode(buffer, remaining);
        expectFailure(result, 9, "");
        expectPlace(result, "decode");
        EXPECT_FALSE(track.valid);
        EXPECT_EQ(track.tagsLength, 6U);
        EXPECT_EQ(track.trackTags.size(), 0U);
    }
}

TEST(MapTrack, ABadTagFailsWithTheTrackInFront) {
    struct Row {
        unsigned mediaType;
        Bytes tags;
        int code;
        char const* text;
    };
    Row const rows[] = {
        {25, tag(0x53, {1, 2, 3, 4}), 10, "Dv100, Track 3:Tag type=83,len=4 unknown"},
        {25, tag(0x54, {}), 10, "Dv100, Track 3:Tag type=84,len=0 unknown"},
        {9, tag(0x55, {}), 10, "AudioPCM_24, Track 3:Tag type=85,len=0 unknown"},
        {9, tag(0x57, {}), 10, "AudioPCM_24, Track 3:Tag type=87,len=0 unknown"},
        {9, tag(0x4B, {}), 10, "AudioPCM_24, Track 3:Tag type=75,len=0 unknown"},
        {5, tag(0xFF, {}), 10, "?(TrackMediaType=0x5), Track 3:Tag type=255,len=0 unknown"},
        {7, {0x50}, 9, "Timecode_525, Track 3:"},
        {7, {0x50, 4, 0, 0, 0}, 9, "Timecode_525, Track 3:"},
    };
    for (Row const& row : rows) {
        MapTrack track(true);
        Bytes const tags = joined({tagText(mediaTag, "x"), row.tags});
        expectFailure(decodeInto(track, GxfTesting::track(row.mediaType, 3, tags)), row.code,
                      row.text);
        EXPECT_FALSE(track.valid);
        EXPECT_EQ(track.trackTags.size(), 1U);
    }
}

TEST(MapTrack, TruncatedAtEveryByteWithTheSection) {
    Bytes const wire = GxfTesting::track(11, 3, allTags());
    for (std::size_t size = 0; size < wire.size(); ++size) {
        std::vector<unsigned char> part(wire.data(), wire.data() + size);
        part.shrink_to_fit();
        GxfBuffer buffer(part.data(), static_cast<unsigned>(size), GxfBuffer::DataState::filled,
                         MediaAgent(nullptr));
        MapTrack track(true);
        expectFailure(track.decode(buffer, static_cast<unsigned>(size)), 9, "");
        EXPECT_FALSE(track.valid);
        EXPECT_EQ(track.trackTags.size(), 0U);
    }
}

TEST(MapTrack, TruncatedAtEveryByteOfTheBuffer) {
    Bytes const wire = GxfTesting::track(11, 3, allTags());
    std::size_t const lastTag = wire.size() - 6;
    for (std::size_t size = 0; size <= wire.size(); ++size) {
        std::vector<unsigned char> part(wire.data(), wire.data() + size);
        part.shrink_to_fit();
        GxfBuffer buffer(part.data(), static_cast<unsigned>(size), GxfBuffer::DataState::filled,
                         MediaAgent(nullptr));
        MapTrack track(true);
        OpResult const result = track.decode(buffer, static_cast<unsigned>(wire.size()));
        // Missing bytes are zero; a tag of which nothing is present has number 0.
        bool const succeeds = size >= lastTag + 2;
        EXPECT_EQ(result.success(), succeeds) << size;
        EXPECT_EQ(track.valid, succeeds) << size;
        if (size < 4) {
            expectFailure(result, 9, "");
        } else if (!succeeds) {
            expectFailure(result, 10, "Mpeg2_525, Track 3:Tag type=0,len=0 unknown");
        }
        askAll(track);
    }
}

TEST(MapTrack, ALengthOfTheWireAloneHoldsNothing) {
    Bytes bytes{0x99, 0xC0, 0xFF, 0xFF};
    GxfBuffer buffer = bytes.filledBuffer();
    MapTrack track(true);
    expectFailure(track.decode(buffer, UINT_MAX), 10, "Dv100, Track 0:Tag type=0,len=0 unknown");
    EXPECT_EQ(track.trackTags.size(), 0U);
}

TEST(MapTrack, CopyParsesTheEditedTextAnew) {
    DecodedTrack source(11, tagText(mpegAuxTag, "Br 0xar=1"));
    EXPECT_EQ(source->getMpegAuxInfo().bitRate, 10.0);
    ASSERT_TRUE(source->setAspectRatio(aspectRatio16x9).success());
    EXPECT_EQ(source->getMpegAuxInfo().bitRate, 10.0);

    MapTrack const copy(*source);
    EXPECT_STREQ(copy.getMpegAuxInfo().getRawStr(), "Br 0xa1=1");
    EXPECT_EQ(copy.getMpegAuxInfo().bitRate, 161.0); // 0xa1
    EXPECT_TRUE(copy.isEqual(*source));
    EXPECT_EQ(encoded(copy), encoded(*source));
}

TEST(MapTrack, CopyComputesEveryFieldOfTheAuxInfoAnew) {
    DecodedTrack source(11, joined({tagText(mpegAuxTag, "Ipg 15"), tagText(mpegAuxTag, "Ver 2")}));
    source->getMpegAuxInfo().slices = 4;
    MapTrack const copy(*source);
    EXPECT_EQ(copy.getMpegAuxInfo().auxVersion, 2);
    EXPECT_EQ(copy.getMpegAuxInfo().iPerGop, 0);
    EXPECT_EQ(copy.getMpegAuxInfo().slices, 0);
    EXPECT_TRUE(copy.getMpegAuxInfo().isValid());
}

TEST(MapTrack, CopyReportsTheEditedKey) {
    ChannelSetting const debug(gxfDebug, errorsBit);
    DecodedTrack source(20, tagText(mpegAuxTag, "bar= 1"));
    ASSERT_TRUE(source->setAspectRatio(aspectRatio16x9).success());
    MessageCapture messages;
    MapTrack const copy(*source);
    EXPECT_THAT(messages.texts(MessageKind::Trace),
                ElementsAre("error badDecodeData: MpegAuxInfo: \"ba1==1\" unknown\n"));
    EXPECT_TRUE(copy.getMpegAuxInfo().isValid());
}

TEST(MapTrack, CopyTakesFieldsFlagsAndTags) {
    for (bool const valid : {false, true}) {
        DecodedTrack source(11, allTags());
        source->valid = valid;
        source->trackTags.valid = !valid;
        MapTrack const copy(*source);
        EXPECT_EQ(copy.mediaType, trackMediaMpeg2_525);
        EXPECT_EQ(copy.trackByte, 0xC3U);
        EXPECT_EQ(copy.tagsLength, source->tagsLength);
        EXPECT_EQ(copy.valid, valid);
        EXPECT_EQ(copy.trackTags.isValid(), !valid);
        EXPECT_NE(copy.trackTags.getTag(0U), source->trackTags.getTag(0U));
        EXPECT_TRUE(copy.isEqual(*source));
        EXPECT_EQ(encoded(copy), GxfTesting::track(11, 3, allTags()));
    }
}

TEST(MapTrack, CopyOutlivesItsSource) {
    auto source = std::make_unique<MapTrack>(false);
    ASSERT_TRUE(decodeInto(*source, GxfTesting::track(11, 3, allTags())).success());
    MapTrack const copy(*source);
    source.reset();
    EXPECT_STREQ(copy.getMediaName(), "M1");
    EXPECT_EQ(encoded(copy), GxfTesting::track(11, 3, allTags()));
}

TEST(MapTrack, CopyMakesOnePercentSignOfTwo) {
    DecodedTrack source(9, tagText(mediaTag, "50%% %s"));
    MapTrack const copy(*source);
    EXPECT_STREQ(copy.getMediaName(), "50% %s");
    EXPECT_FALSE(copy.isEqual(*source));
}

TEST(MapTrack, IsEqualByTypeByteLengthAndTags) {
    Bytes const tags = joined({rateTag(6), signedTag(fieldsTag, 1)});
    DecodedTrack const track(25, tags);
    MapTrack const& base = track.track;
    EXPECT_TRUE(base.isEqual(base));
    EXPECT_TRUE(base.isEqual(DecodedTrack(25, tags).track));
    EXPECT_TRUE(
        base.isEqual(DecodedTrack(25, joined({signedTag(fieldsTag, 1), rateTag(6)})).track));
    EXPECT_FALSE(base.isEqual(DecodedTrack(26, tags).track));
    EXPECT_FALSE(base.isEqual(DecodedTrack(25, tags, 4).track));
    EXPECT_FALSE(
        base.isEqual(DecodedTrack(25, joined({rateTag(6), signedTag(fieldsTag, 2)})).track));
    EXPECT_FALSE(base.isEqual(DecodedTrack(25, rateTag(6)).track));

    DecodedTrack other(25, tags);
    other->trackByte = 0x43; // the number is the same
    EXPECT_FALSE(base.isEqual(*other));
    other->trackByte = 0xC3;
    other->valid = false;
    other->getMpegAuxInfo().init("Ver 1");
    EXPECT_TRUE(base.isEqual(*other));
    other->tagsLength = 13;
    EXPECT_FALSE(base.isEqual(*other));
}

TEST(MapTrack, EncodeNeedsRoomForItsCodedLength) {
    Bytes const wire = GxfTesting::track(25, 3, rateTag(6));
    DecodedTrack track(25, rateTag(6));
    for (std::size_t room = 0; room <= wire.size(); ++room) {
        Bytes out;
        out.fill(room);
        GxfBuffer buffer = out.emptyBuffer();
        OpResult const result = track->encode(buffer);
        if (room == wire.size()) {
            EXPECT_TRUE(result.success());
            EXPECT_EQ(Bytes::occupied(buffer), wire);
        } else {
            expectFailure(result, 12, "");
            expectPlace(result, "encode");
            EXPECT_EQ(buffer.nOccupied(), 0U);
        }
    }
}

TEST(MapTrack, EncodeFailsWithItsTags) {
    Bytes out = Bytes().fill(64);
    DecodedTrack withNull(25, rateTag(6));
    withNull->trackTags.addTag(AutoPtr<Tag<TrackDescTagType>>());
    GxfBuffer first = out.emptyBuffer();
    OpResult const nullTag = withNull->encode(first);
    expectFailure(nullTag, 7, "");
    expectPlace(nullTag, "encode");
    EXPECT_EQ(Bytes::occupied(first), GxfTesting::track(25, 3, rateTag(6)));

    DecodedTrack withUnknown(25);
    withUnknown->trackTags.addTag(AutoPtr<Tag<TrackDescTagType>>(new Tag<TrackDescTagType>));
    GxfBuffer second = out.emptyBuffer();
    expectFailure(withUnknown->encode(second), 13, "Tag type=0,len=0 unknown");
    EXPECT_EQ(Bytes::occupied(second), (Bytes{0x99, 0xC3, 0, 0, 0, 0}));

    DecodedTrack longer(25, rateTag(6));
    longer->tagsLength = 0;
    Bytes small = Bytes().fill(9);
    GxfBuffer third = small.emptyBuffer();
    expectFailure(longer->encode(third), 12, "");
    EXPECT_EQ(Bytes::occupied(third), (Bytes{0x99, 0xC3, 0, 0}));
}

TEST(MapTrack, EncodeTellsALengthThatIsNotTheAnnouncedOne) {
    // A text that came without its terminating zero goes out with one.
    DecodedTrack track(9, tag(mediaTag, Bytes().text("AB")));
    Bytes out = Bytes().fill(64);
    GxfBuffer buffer = out.emptyBuffer();
    MessageCapture messages;
    EXPECT_TRUE(track->encode(buffer).success());
    EXPECT_EQ(Bytes::occupied(buffer), (Bytes{0x89, 0xC3, 0, 4, 0x4C, 2, 'A', 'B', 0}));
    EXPECT_THAT(messages.texts(),
                ElementsAre("<<<<<<<\nEncoded 9b != dataLen of 8b (missing -1b)\n>>>>>>>\n"));
    EXPECT_THAT(messages.texts(MessageKind::Trace), IsEmpty());

    Bytes exact = Bytes().fill(8);
    GxfBuffer full = exact.emptyBuffer();
    messages.clear();
    EXPECT_TRUE(track->encode(full).success());
    EXPECT_EQ(Bytes::occupied(full), (Bytes{0x89, 0xC3, 0, 4, 0x4C, 2}));
    EXPECT_THAT(messages.texts(),
                ElementsAre("<<<<<<<\nEncoded 6b != dataLen of 8b (missing 2b)\n>>>>>>>\n"));
}

TEST(MapTrack, EncodeIsSilentWhenTheLengthFits) {
    DecodedTrack track(11, allTags());
    MessageCapture messages;
    encoded(*track);
    EXPECT_THAT(messages.texts(), IsEmpty());
}

TEST(MapTrack, MpegAndDvMediaTypes) {
    std::set<unsigned> const mpeg = {11, 12, 20, 22, 23};
    std::set<unsigned> const dv = {13, 14, 15, 16, 25};
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        DecodedTrack track(mediaType);
        EXPECT_EQ(track->isMpegTrack(), mpeg.count(mediaType) != 0) << mediaType;
        EXPECT_EQ(track->isDvTrack(), dv.count(mediaType) != 0) << mediaType;
    }
}

TEST(MapTrack, FrameRateOfEachMediaType) {
    std::map<unsigned, int> const rates = {{3, 5},  {7, 5},  {11, 5}, {13, 5}, {15, 5},
                                           {22, 5}, {4, 6},  {8, 6},  {12, 6}, {14, 6},
                                           {16, 6}, {23, 6}, {20, 5}, {25, 5}, {26, 5}};
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        int const expected = rates.count(mediaType) != 0 ? rates.at(mediaType) : -1;
        DecodedTrack track(mediaType);
        EXPECT_EQ(track->getFrameRate(), expected) << mediaType;
        double const real = expected == 5 ? ntscRate : expected == 6 ? 25.0 : 1.0;
        EXPECT_EQ(track->getRealFrameRate(), real) << mediaType;
        EXPECT_EQ(track->getRealFieldRate(), 2 * real) << mediaType;
        for (int const rate : {-2, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, INT_MIN, INT_MAX}) {
            EXPECT_EQ(DecodedTrack(mediaType, rateTag(rate))->getFrameRate(), rate) << mediaType;
        }
    }
}

TEST(MapTrack, RealRatesOfEachFrameRateAndFields) {
    struct Row {
        int rate;
        double real;
    };
    for (Row const& row : {Row{-2, 1.0},
                           {-1, 1.0},
                           {0, 1.0},
                           {1, 60.0},
                           {2, 59.94005994005994},
                           {3, 50.0},
                           {4, 30.0},
                           {5, ntscRate},
                           {6, 25.0},
                           {7, 24.0},
                           {8, 23.976023976023978},
                           {9, 1.0},
                           {INT_MAX, 1.0}}) {
        EXPECT_EQ(DecodedTrack(9, rateTag(row.rate))->getRealFrameRate(), row.real) << row.rate;
        for (int const fields : {1, 2, 0, -1, -2, INT_MIN, INT_MAX}) {
            DecodedTrack track(9, joined({rateTag(row.rate), signedTag(fieldsTag, fields)}));
            EXPECT_EQ(track->getRealFieldRate(), row.real * fields) << row.rate << " " << fields;
        }
    }
}

TEST(MapTrack, FieldsAreThoseOfTheTagElseTwo) {
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        EXPECT_EQ(DecodedTrack(mediaType)->getNumFields(), 2) << mediaType;
        for (int const fields : {1, 2, 0, -1, -2, 77, INT_MIN, INT_MAX}) {
            EXPECT_EQ(DecodedTrack(mediaType, signedTag(fieldsTag, fields))->getNumFields(),
                      fields);
        }
    }
}

TEST(MapTrack, LinesAndWidthAreThoseOfTheTagElseZero) {
    struct Row {
        int lines;
        unsigned numLines;
        unsigned width;
    };
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        DecodedTrack without(mediaType);
        EXPECT_EQ(without->getNumLines(), 0U) << mediaType;
        EXPECT_EQ(without->getWidth(), 0U) << mediaType;
        for (Row const& row : {Row{1, 480, 720},
                               {2, 576, 720},
                               {4, 1080, 1920},
                               {6, 720, 1280},
                               {0x10004, 1080, 1440},
                               {0, 0, 0},
                               {3, 0, 0},
                               {5, 0, 0},
                               {7, 0, 0},
                               {-1, 0, 0},
                               {-2, 0, 0},
                               {0x10001, 0, 0},
                               {0x20004, 0, 0},
                               {0x10006, 0, 0},
                               {INT_MIN, 0, 0},
                               {INT_MAX, 0, 0}}) {
            DecodedTrack track(mediaType, signedTag(linesTag, row.lines));
            EXPECT_EQ(track->getNumLines(), row.numLines) << row.lines;
            EXPECT_EQ(track->getWidth(), row.width) << row.lines;
        }
    }
}

TEST(MapTrack, MediaNameAndAuxInfoOfTheTagElseNothing) {
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        DecodedTrack without(mediaType, rateTag(6));
        EXPECT_EQ(without->getMediaName(), nullptr);
        for (unsigned const byte : without->getAuxInfo().bytes) {
            EXPECT_EQ(byte, 0U);
        }
        DecodedTrack with(mediaType, allTags());
        EXPECT_STREQ(with->getMediaName(), "M1");
        AuxInfo const aux = with->getAuxInfo();
        for (unsigned i = 0; i < 8; ++i) {
            EXPECT_EQ(aux.bytes[i], i + 1);
        }
    }
    EXPECT_STREQ(DecodedTrack(9, tag(mediaTag, {}))->getMediaName(), "");
}

TEST(MapTrack, TheFirstOfTwoTagsIsAnswered) {
    DecodedTrack track(
        9, joined({rateTag(6), rateTag(3), signedTag(fieldsTag, 1), signedTag(fieldsTag, 2),
                   signedTag(linesTag, 1), signedTag(linesTag, 2), tagText(mediaTag, "a"),
                   tagText(mediaTag, "b"), auxTag({1, 0, 0, 0, 0, 0, 0, 0}),
                   auxTag({2, 0, 0, 0, 0, 0, 0, 0})}));
    EXPECT_EQ(track->getFrameRate(), frameRate25hz);
    EXPECT_EQ(track->getNumFields(), 1);
    EXPECT_EQ(track->getNumLines(), 480U);
    EXPECT_STREQ(track->getMediaName(), "a");
    EXPECT_EQ(track->getAuxInfo().bytes[0], 1U);
    EXPECT_EQ(track->trackTags.size(), 10U);
}

TEST(MapTrack, StripedTimecode) {
    struct Row {
        unsigned mediaType;
        Bytes tags;
        char const* text;
    };
    Row const rows[] = {
        {7, timecodeAux(10, 59, 59, 0x27), "07:59:59;10"},
        {7, timecodeAux(10, 59, 59, 0x37), "07:59:59;10"}, // a bit that isn't used
        {7, timecodeAux(10, 59, 59, 0x67), "07:59:59;10"}, // the reserved flag
        {7, timecodeAux(2, 0, 1, 0x20), "00:01:00;02"},
        {7, timecodeAux(2, 0, 1, 0x00), "00:01:00:02"},
        {8, timecodeAux(4, 3, 2, 0x01), "01:02:03:04"},
        {8, timecodeAux(24, 59, 59, 0x0F), "15:59:59:24"},
        {8, timecodeAux(4, 3, 2, 0x21), "00:00:00:00"}, // no drop frame at 25 hertz
        {24, joined({rateTag(1), timecodeAux(0, 0, 0, 0x21)}), "01:00:00;00"},
        {24, joined({rateTag(2), timecodeAux(5, 1, 0, 0x00)}), "00:00:01:05"},
        {24, joined({rateTag(3), timecodeAux(5, 1, 0, 0x00)}), "00:00:01:05"},
        {24, joined({rateTag(4), timecodeAux(29, 1, 0, 0x00)}), "00:00:01:29"},
        {24, joined({rateTag(5), timecodeAux(29, 1, 0, 0x00)}), "00:00:01:29"},
        {24, joined({rateTag(7), timecodeAux(23, 1, 0, 0x00)}), "00:00:01:23"},
        {24, joined({rateTag(8), timecodeAux(23, 1, 0, 0x00)}), "00:00:01:23"},
        // A frame more than 24 hertz have.
        {24, joined({rateTag(8), timecodeAux(24, 1, 0, 0x00)}), "00:00:02:00"},
        // No rate counts as one frame in a second.
        {24, timecodeAux(2, 10, 0, 0x00), "00:00:12:00"},
        {7, joined({rateTag(6), timecodeAux(24, 1, 0, 0x00)}), "00:00:01:24"},
        {7, joined({rateTag(6), timecodeAux(25, 1, 0, 0x00)}), "00:00:02:00"},
        // Without the tag all eight bytes are zero, which isn't marked as invalid.
        {7, {}, "00:00:00:00"},
        {24, {}, "00:00:00:00"},
        {7, timecodeAux(0, 0, 0, 0x80), "inv"},
        {8, timecodeAux(4, 3, 2, 0xE1), "inv"},
        {24, timecodeAux(4, 3, 2, 0x81), "inv"},
    };
    for (Row const& row : rows) {
        MessageCapture messages;
        PerFrameTimecode const timecode = DecodedTrack(row.mediaType, row.tags)->getStripedTc();
        EXPECT_EQ(striped(timecode), row.text);
        EXPECT_EQ(timecode.valid, std::string(row.text) != "inv") << row.text;
        for (unsigned i = 0; i < 4; ++i) {
            EXPECT_EQ(timecode.userBytes[i], 0U);
        }
        EXPECT_THAT(messages.texts(MessageKind::Trace), IsEmpty());
    }
}

TEST(MapTrack, StripedTimecodeHasTheDigitsOfItsRate) {
    PerFrameTimecode const timecode =
        DecodedTrack(24, joined({rateTag(2), timecodeAux(5, 1, 2, 0x23)}))->getStripedTc();
    EXPECT_EQ(timecode.timeBytes[0], 0x45U); // 5 frames and the mark of drop frame
    EXPECT_EQ(timecode.timeBytes[1], 0x01U);
    EXPECT_EQ(timecode.timeBytes[2], 0x02U);
    EXPECT_EQ(timecode.timeBytes[3], 0x03U);
}

TEST(MapTrack, OnlyTimecodeTracksAreStriped) {
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        bool const isTimecode = mediaType == 7 || mediaType == 8 || mediaType == 24;
        DecodedTrack track(mediaType, joined({rateTag(6), timecodeAux(4, 3, 2, 0x01)}));
        PerFrameTimecode const timecode = track->getStripedTc();
        EXPECT_EQ(timecode.valid, isTimecode) << mediaType;
        EXPECT_EQ(striped(timecode), isTimecode ? "01:02:03:04" : "inv") << mediaType;
        EXPECT_EQ(timecode.timeBytes[0], isTimecode ? 0x04U : 0U);
    }
}

TEST(MapTrack, PrintsEveryTag) {
    Bytes const tags =
        joined({tagText(mediaTag, "M1"), auxTag({1, 2, 3, 4, 5, 0xAB, 7, 8}),
                tagU32(0x4E, 0xFFFFFFFEU), tagText(mpegAuxTag, "Ver 1\nBr 5\n"), rateTag(5),
                signedTag(linesTag, 2), signedTag(fieldsTag, 2), tagText(avcAuxTag, "Ver 2")});
    DecodedTrack track(11, tags);
    auto const whole = [](std::string const& indent) {
        std::string text = "track 3: Mpeg2_525,,media={M1},aux=0x01.02.03.04.05.ab.07.08,"
                           "fs=4294967294,mpegAux={\n";
        text.append(indent).append("Ver 1,\n").append(indent).append("Br 5},frameRate=29.97hz,");
        text.append("lines=625,fields=interlaced,avcAux={\n").append(indent).append("Ver 2}}");
        return text;
    };
    for (unsigned const bits : {0U, arraysBit}) {
        ChannelSetting const debug(gxfDebug, bits);
        EXPECT_EQ(textOfObject(*track, 4), ">" + whole("      "));
        EXPECT_EQ(std::string(track->toString().get()), whole("  "));
    }
}

TEST(MapTrack, PrintsMissingValuesWithArraysOnOnly) {
    DecodedTrack missing(9, joined({rateTag(-2), signedTag(linesTag, -2), signedTag(fieldsTag, -2),
                                    signedTag(0x4E, -2)}));
    for (unsigned const bits : {0U, ~arraysBit}) {
        ChannelSetting const debug(gxfDebug, bits);
        EXPECT_EQ(textOfObject(*missing, 0), ">track 3: AudioPCM_24,,fs=4294967294}");
    }
    ChannelSetting const debug(gxfDebug, arraysBit);
    EXPECT_EQ(textOfObject(*missing, 0), ">track 3: AudioPCM_24,,frameRate=missing,lines=missing,"
                                         "fields=missing,fs=4294967294}");
}

TEST(MapTrack, PrintsNamesOfValues) {
    struct Row {
        unsigned number;
        int value;
        char const* text;
    };
    for (Row const& row : {Row{0x50, -1, "frameRate=N/A"},  {0x50, 0, "frameRate=invalid"},
                           {0x50, 1, "frameRate=60hz"},     {0x50, 2, "frameRate=59.94hz"},
                           {0x50, 3, "frameRate=50hz"},     {0x50, 4, "frameRate=30hz"},
                           {0x50, 6, "frameRate=25hz"},     {0x50, 7, "frameRate=24hz"},
                           {0x50, 8, "frameRate=23.98hz"},  {0x50, INT_MIN, "frameRate=invalid"},
                           {0x51, -1, "lines=N/A"},         {0x51, 1, "lines=525"},
                           {0x51, 4, "lines=1920x1080"},    {0x51, 5, "lines=reserved"},
                           {0x51, 6, "lines=720"},          {0x51, 0x10004, "lines=1440x1080"},
                           {0x51, 3, "lines=invalid"},      {0x52, -1, "fields=N/A"},
                           {0x52, 1, "fields=progressive"}, {0x52, 3, "fields=invalid"}}) {
        EXPECT_EQ(textOfObject(*DecodedTrack(9, signedTag(row.number, row.value)), 0),
                  std::string(">track 3: AudioPCM_24,,") + row.text + "}");
    }
}

TEST(MapTrack, PrintsATrackWithoutTagsOrName) {
    EXPECT_EQ(textOfObject(*DecodedTrack(25), 8), ">track 3: Dv100,}");
    EXPECT_EQ(textOfObject(*DecodedTrack(5, {}, 63), 0), ">track 63: ?(TrackMediaType=0x5),}");
    // Only auxiliary texts are indented.
    EXPECT_EQ(textOfObject(*DecodedTrack(9, tagText(mediaTag, "a\nb%s")), 8),
              ">track 3: AudioPCM_24,,media={a,\nb%s}}");
}

TEST(MapTrack, LogsItsDecode) {
    Bytes bytes = joined({{0, 0, 0, 0, 0},
                          GxfTesting::track(25, 3, rateTag(6)),
                          GxfTesting::track(25, 3, tag(0x53, {}))});
    for (unsigned const level : {0U, 1U, 2U, 3U}) {
        ChannelSetting const detail(gxfDecodeDetail, level);
        ChannelSetting const other(gxfEncodeDetail, 3 - level);
        GxfBuffer buffer = bytes.filledBuffer();
        buffer.removeInput(5);
        MessageCapture messages;
        MapTrack track(false);
        MapTrack failing(false);
        EXPECT_TRUE(track.decode(buffer, 10).success());
        EXPECT_FALSE(failing.decode(buffer, 6).success());
        EXPECT_FALSE(failing.decode(buffer, 3).success());
        if (level < 3) {
            EXPECT_THAT(messages.texts(), IsEmpty()) << level;
        } else {
            EXPECT_THAT(messages.texts(MessageKind::Info),
                        ElementsAre("start Track decode@5\n",
                                    "end Track decode: {\ntrack 3: Dv100,,frameRate=25hz}\n}\n",
                                    "start Track decode@15\n", "start Track decode@21\n"));
            EXPECT_EQ(messages.texts().size(), 4U);
        }
    }
}

TEST(MapTrack, LogsItsEncode) {
    DecodedTrack track(25, rateTag(6));
    for (unsigned const level : {0U, 1U, 2U, 3U}) {
        ChannelSetting const detail(gxfEncodeDetail, level);
        ChannelSetting const other(gxfDecodeDetail, 3 - level);
        Bytes out = Bytes().fill(10);
        GxfBuffer buffer = out.emptyBuffer();
        buffer.reset(GxfBuffer::DataState::empty, 4096);
        MessageCapture messages;
        EXPECT_TRUE(track->encode(buffer).success());
        EXPECT_FALSE(track->encode(buffer).success());
        if (level < 3) {
            EXPECT_THAT(messages.texts(), IsEmpty()) << level;
        } else {
            EXPECT_THAT(messages.texts(MessageKind::Info),
                        ElementsAre("start Track encode@4096\n",
                                    "end Track encode: {\ntrack 3: Dv100,,frameRate=25hz}\n}\n",
                                    "start Track encode@4096\n"));
            EXPECT_EQ(messages.texts().size(), 3U);
        }
    }
}

TEST(MapTracks, StartsAndResetsToNothing) {
    for (bool const valid : {false, true}) {
        MapTracks const fresh(valid);
        EXPECT_EQ(fresh.sectionLength, 0U);
        EXPECT_EQ(fresh.getCodedLength(), 2U);
        EXPECT_EQ(fresh.size(), 0U);
        EXPECT_EQ(fresh.valid, valid);
        EXPECT_FALSE(fresh.stripedTc.valid);

        DecodedTracks tracks({GxfTesting::track(8, 0, timecodeAux(4, 3, 2, 1))});
        tracks->reset(valid);
        EXPECT_EQ(tracks->sectionLength, 0U);
        EXPECT_EQ(tracks->size(), 0U);
        EXPECT_EQ(tracks->valid, valid);
        EXPECT_EQ(striped(tracks->stripedTc), "01:02:03:04");
    }
}

TEST(MapTracks, AnEmptySectionDecodesToAnEmptyList) {
    DecodedTracks tracks({});
    EXPECT_TRUE(tracks->valid);
    EXPECT_EQ(tracks->size(), 0U);
    EXPECT_EQ((*tracks)[0], nullptr);
    EXPECT_EQ(tracks->getAnyTrackWithVideoRate(), nullptr);
    EXPECT_EQ(tracks->getFrameRate(), frameRate29_97hz);
    EXPECT_EQ(tracks->getRealFrameRate(), 29.97002997002997);
    EXPECT_EQ(tracks->getRealFieldRate(), 59.94005994005994);
    EXPECT_EQ(tracks->getUmfTrackNum(0), UmfTrackNum());
    EXPECT_EQ(encoded(*tracks), (Bytes{0, 0}));
    EXPECT_EQ(textOfObject(*tracks, 4), ">");
}

TEST(MapTracks, RoundTrips) {
    Bytes const wire = section({GxfTesting::track(11, 0, allTags()), GxfTesting::track(9, 1, {}),
                                GxfTesting::track(7, 2, timecodeAux(2, 0, 1, 0x20))});
    MapTracks tracks(false);
    ASSERT_TRUE(decodeInto(tracks, wire).success());
    EXPECT_TRUE(tracks.valid);
    EXPECT_EQ(tracks.sectionLength, wire.size() - 2);
    EXPECT_EQ(tracks.getCodedLength(), wire.size());
    ASSERT_EQ(tracks.size(), 3U);
    EXPECT_EQ(tracks[0]->getMediaType(), trackMediaMpeg2_525);
    EXPECT_EQ(tracks[1]->getMediaType(), trackMediaAudioPCM_24);
    EXPECT_EQ(tracks[2]->getMediaType(), trackMediaTimecode_525);
    EXPECT_EQ(tracks[3], nullptr);
    EXPECT_EQ(tracks[UINT_MAX], nullptr);
    EXPECT_TRUE(tracks[0]->valid);
    EXPECT_EQ(encoded(tracks), wire);
}

TEST(MapTracks, ConsumesItsSectionOnly) {
    Bytes bytes = joined({section({GxfTesting::track(9, 0, {})}), {0xAA, 0xBB, 0xCC}});
    GxfBuffer buffer = bytes.filledBuffer();
    MapTracks tracks(false);
    ASSERT_TRUE(tracks.decode(buffer, static_cast<unsigned>(bytes.size())).success());
    EXPECT_EQ(buffer.nOccupied(), 3U);
}

TEST(MapTracks, AppendsToTheListThatIsThere) {
    MapTracks tracks(false);
    MessageCapture messages;
    ASSERT_TRUE(decodeInto(tracks, section({GxfTesting::track(9, 0, {})})).success());
    ASSERT_TRUE(decodeInto(tracks, section({GxfTesting::track(10, 1, {})})).success());
    ASSERT_EQ(tracks.size(), 2U);
    EXPECT_EQ(tracks[1]->getMediaType(), trackMediaAudioPCM_16);
    EXPECT_EQ(tracks.sectionLength, 4U);
    EXPECT_THAT(messages.texts(MessageKind::Trace), IsEmpty());
}

TEST(MapTracks, ANumberThatIsNotThePlaceIsTracedAndKept) {
    constexpr char mismatch[] =
        "error internalError \\([A-Za-z]+, map_track\\.cpp:[1-9][0-9]*\\)\n";
    MessageCapture messages;
    DecodedTracks tracks(
        {GxfTesting::track(9, 1, {}), GxfTesting::track(10, 0, {}), GxfTesting::track(9, 2, {})});
    EXPECT_THAT(messages.texts(MessageKind::Trace),
                ElementsAre(MatchesRegex(mismatch), MatchesRegex(mismatch)));
    EXPECT_THAT(messages.texts(), IsEmpty());
    ASSERT_EQ(tracks->size(), 3U);
    EXPECT_EQ((*tracks)[0]->getTrackNum(), 1U);
    EXPECT_EQ((*tracks)[1]->getTrackNum(), 0U);
    EXPECT_EQ((*tracks)[2]->getTrackNum(), 2U);
    EXPECT_TRUE(tracks->valid);
}

TEST(MapTracks, HoldsAsManyTracksAsTheLengthCanCount) {
    Bytes wire = Bytes().u16(65532);
    for (unsigned i = 0; i < 16383; ++i) {
        wire.add({0x89, i % 64, 0, 0});
    }
    MessageCapture messages;
    MapTracks tracks(false);
    ASSERT_TRUE(decodeInto(tracks, wire).success());
    EXPECT_EQ(tracks.size(), 16383U);
    EXPECT_EQ(tracks.getCodedLength(), 65534U);
    // Numbers have six bits.
    EXPECT_EQ(messages.count(MessageKind::Trace), 16383U - 64U);
    messages.clear();
    EXPECT_EQ(encoded(tracks), wire);
    EXPECT_EQ(tracks.getUmfTrackNum(255),
              UmfTrackNum(trackTypeEncodingAudio, static_cast<TrackNumberEncoding>(255 + 55)));
    tracks.reset(false);
    EXPECT_EQ(tracks.size(), 0U);
}

TEST(MapTracks, DecodeNeedsTwoBytes) {
    for (unsigned remaining = 0; remaining < 2; ++remaining) {
        Bytes bytes{0, 0};
        GxfBuffer buffer = bytes.filledBuffer();
        MapTracks tracks(true);
        OpResult const result = tracks.decode(buffer, remaining);
        expectFailure(result, 9, "");
        expectPlace(result, "decode");
        EXPECT_FALSE(tracks.valid);
        EXPECT_EQ(buffer.nOccupied(), 2U);
    }
}

TEST(MapTracks, ASectionThatOverrunsThePayloadFails) {
    Bytes const wire = section({GxfTesting::track(9, 0, rateTag(6))});
    for (unsigned remaining = 2; remaining < wire.size(); ++remaining) {
        Bytes bytes = wire;
        GxfBuffer buffer = bytes.filledBuffer();
        MapTracks tracks(true);
        OpResult const result = tracks.decode(buffer, remaining);
        expectFailure(result, 9, "");
        expectPlace(result, "decode");
        EXPECT_FALSE(tracks.valid);
        EXPECT_EQ(tracks.sectionLength, 10U);
        EXPECT_EQ(tracks.size(), 0U);
    }
}

TEST(MapTracks, AFailingTrackEndsTheListThatStands) {
    struct Row {
        Bytes failing;
        int code;
        char const* text;
    };
    Row const rows[] = {
        {{0x99}, 9, "MapPkt:"},
        {{0x99, 0xC1}, 9, "MapPkt:"},
        {{0x99, 0xC1, 0}, 9, "MapPkt:"},
        {{0x99, 0xC1, 0, 1}, 9, "MapPkt:"},
        {GxfTesting::track(25, 1, tag(0x53, {1, 2, 3, 4})), 10,
         "MapPkt:Dv100, Track 1:Tag type=83,len=4 unknown"},
        {GxfTesting::track(25, 1, {0x50}), 9, "MapPkt:Dv100, Track 1:"},
        {GxfTesting::track(2, 1, {0x50, 5, 0, 0, 0, 6}), 9,
         "MapPkt:?(TrackMediaType=0x2), Track 1:"},
    };
    for (Row const& row : rows) {
        MapTracks tracks(true);
        expectFailure(decodeInto(tracks, section({GxfTesting::track(9, 0, {}), row.failing})),
                      row.code, row.text);
        EXPECT_FALSE(tracks.valid);
        ASSERT_EQ(tracks.size(), 1U);
        EXPECT_TRUE(tracks[0]->valid);
        EXPECT_EQ(tracks[0]->getMediaType(), trackMediaAudioPCM_24);
    }
}

TEST(MapTracks, TruncatedAtEveryByte) {
    Bytes const wire = section({GxfTesting::track(11, 0, allTags()), GxfTesting::track(9, 1, {}),
                                GxfTesting::track(7, 2, rateTag(6))});
    std::size_t const firstEnd = 2 + 4 + allTags().size();
    for (std::size_t size = 0; size < wire.size(); ++size) {
        std::vector<unsigned char> part(wire.data(), wire.data() + size);
        part.shrink_to_fit();
        GxfBuffer counted(part.data(), static_cast<unsigned>(size), GxfBuffer::DataState::filled,
                          MediaAgent(nullptr));
        MapTracks tracks(true);
        expectFailure(tracks.decode(counted, static_cast<unsigned>(size)), 9, "");
        EXPECT_EQ(tracks.size(), 0U);
        if (size < 2) {
            continue;
        }
        // The payload claims all, and only a part of it is in the buffer.
        GxfBuffer claimed(part.data(), static_cast<unsigned>(size), GxfBuffer::DataState::filled,
                          MediaAgent(nullptr));
        MapTracks list(true);
        OpResult const result = list.decode(claimed, static_cast<unsigned>(wire.size()));
        bool const succeeds = size >= wire.size() - 4;
        EXPECT_EQ(result.success(), succeeds) << size;
        EXPECT_EQ(list.valid, succeeds) << size;
        if (size >= firstEnd) {
            EXPECT_GE(list.size(), 1U) << size;
        }
        for (unsigned i = 0; i < list.size(); ++i) {
            EXPECT_TRUE(list[i]->valid) << size;
            askAll(*list[i]);
        }
    }
}

TEST(MapTracks, TheLastTimecodeTrackDecidesTheStripedTimecode) {
    Bytes const early = timecodeAux(1, 0, 0, 0x01);
    Bytes const late = timecodeAux(2, 0, 0, 0x02);
    Bytes const invalid = timecodeAux(3, 0, 0, 0x83);
    struct Row {
        std::vector<Bytes> tracks;
        char const* text;
    };
    Row const rows[] = {
        {{}, "inv"},
        {{GxfTesting::track(9, 0, early)}, "inv"},
        {{GxfTesting::track(7, 0, early)}, "01:00:00:01"},
        {{GxfTesting::track(7, 0, early), GxfTesting::track(8, 1, late)}, "02:00:00:02"},
        {{GxfTesting::track(7, 0, early), GxfTesting::track(24, 1, invalid)}, "inv"},
        {{GxfTesting::track(7, 0, invalid), GxfTesting::track(8, 1, early)}, "01:00:00:01"},
        {{GxfTesting::track(7, 0, early), GxfTesting::track(9, 1, late)}, "01:00:00:01"},
    };
    for (Row const& row : rows) {
        EXPECT_EQ(striped(DecodedTracks(row.tracks)->stripedTc), row.text);
    }
}

TEST(MapTracks, TheStripedTimecodeSurvivesUntilAnotherTimecodeTrack) {
    DecodedTracks tracks({GxfTesting::track(8, 0, timecodeAux(4, 3, 2, 0x01))});
    tracks->reset(true);
    ASSERT_TRUE(decodeInto(*tracks, section({GxfTesting::track(9, 0, {})})).success());
    EXPECT_EQ(striped(tracks->stripedTc), "01:02:03:04");

    tracks->reset(true);
    Bytes const badTimecode =
        GxfTesting::track(8, 0, joined({timecodeAux(1, 1, 1, 1), tag(0x53, {})}));
    EXPECT_FALSE(decodeInto(*tracks, section({badTimecode})).success());
    EXPECT_EQ(striped(tracks->stripedTc), "01:02:03:04");

    tracks->reset(true);
    ASSERT_TRUE(decodeInto(*tracks, section({GxfTesting::track(8, 0, timecodeAux(0, 0, 0, 0x80))}))
                    .success());
    EXPECT_EQ(striped(tracks->stripedTc), "inv");
    EXPECT_FALSE(tracks->stripedTc.valid);
}

TEST(MapTracks, EncodeNeedsRoomForItsCodedLength) {
    Bytes const wire = section({GxfTesting::track(9, 0, rateTag(6))});
    DecodedTracks tracks({GxfTesting::track(9, 0, rateTag(6))});
    for (std::size_t room = 0; room <= wire.size(); ++room) {
        Bytes out;
        out.fill(room);
        GxfBuffer buffer = out.emptyBuffer();
        OpResult const result = tracks->encode(buffer);
        if (room == wire.size()) {
            EXPECT_TRUE(result.success());
            EXPECT_EQ(Bytes::occupied(buffer), wire);
        } else {
            expectFailure(result, 12, "");
            expectPlace(result, "encode");
            EXPECT_EQ(buffer.nOccupied(), 0U);
        }
    }
}

TEST(MapTracks, EncodeReturnsTheFailureOfATrackAtOnce) {
    DecodedTracks tracks(
        {GxfTesting::track(9, 0, {}), GxfTesting::track(9, 1, {}), GxfTesting::track(9, 2, {})});
    (*tracks)[1]->trackTags.addTag(AutoPtr<Tag<TrackDescTagType>>(new Tag<TrackDescTagType>));
    Bytes out = Bytes().fill(64);
    GxfBuffer buffer = out.emptyBuffer();
    expectFailure(tracks->encode(buffer), 13, "Tag type=0,len=0 unknown");
    EXPECT_EQ(Bytes::occupied(buffer), (Bytes{0, 12, 0x89, 0xC0, 0, 0, 0x89, 0xC1, 0, 0, 0, 0}));
}

TEST(MapTracks, EncodeTellsALengthThatIsNotTheAnnouncedOne) {
    DecodedTracks tracks({GxfTesting::track(9, 0, {})});
    tracks->sectionLength = 0x105;
    Bytes out = Bytes().fill(1024);
    GxfBuffer buffer = out.emptyBuffer();
    MessageCapture messages;
    EXPECT_TRUE(tracks->encode(buffer).success());
    EXPECT_EQ(Bytes::occupied(buffer), (Bytes{0x01, 0x05, 0x89, 0xC0, 0, 0}));
    EXPECT_THAT(messages.texts(),
                ElementsAre("<<<<<<<\nEncoded 6b != dataLen of 263b (missing 257b)\n>>>>>>>\n"));
}

TEST(MapTracks, IsEqualByTracksInOrder) {
    Bytes const audio = GxfTesting::track(9, 0, {});
    Bytes const video = GxfTesting::track(25, 1, {});
    DecodedTracks base({audio, video});
    EXPECT_TRUE(base->isEqual(*base));
    EXPECT_TRUE(base->isEqual(*DecodedTracks({audio, video})));
    EXPECT_FALSE(base->isEqual(*DecodedTracks({video, audio})));
    EXPECT_FALSE(base->isEqual(*DecodedTracks({audio})));
    EXPECT_FALSE(base->isEqual(*DecodedTracks({audio, video, video})));
    EXPECT_FALSE(base->isEqual(*DecodedTracks({audio, GxfTesting::track(26, 1, {})})));
    EXPECT_TRUE(DecodedTracks({})->isEqual(*DecodedTracks({})));

    DecodedTracks other({audio, video});
    other->valid = false;
    other->sectionLength = 1;
    other->stripedTc = PerFrameTimecode(ST12Timecode(1, 25, false));
    EXPECT_TRUE(base->isEqual(*other));
}

TEST(MapTracks, CopyTakesEverythingAndReplacesTheList) {
    DecodedTracks source(
        {GxfTesting::track(8, 0, timecodeAux(4, 3, 2, 1)), GxfTesting::track(11, 1, allTags())});
    for (bool const valid : {false, true}) {
        source->valid = valid;
        DecodedTracks target({GxfTesting::track(9, 0, {}), GxfTesting::track(9, 1, {}),
                              GxfTesting::track(9, 2, {})});
        target->copy(*source);
        EXPECT_EQ(target->valid, valid);
        EXPECT_EQ(target->sectionLength, source->sectionLength);
        EXPECT_EQ(striped(target->stripedTc), "01:02:03:04");
        ASSERT_EQ(target->size(), 2U);
        EXPECT_NE((*target)[0], (*source)[0]);
        EXPECT_TRUE(target->isEqual(*source));
        EXPECT_EQ(encoded(*target), encoded(*source));
    }
    MapTracks empty(false);
    source->copy(empty);
    EXPECT_EQ(source->size(), 0U);
    EXPECT_EQ(source->sectionLength, 0U);
    EXPECT_FALSE(source->stripedTc.valid);
}

TEST(MapTracks, CopyOfItselfKeepsItsTracks) {
    DecodedTracks tracks({GxfTesting::track(9, 0, {})});
    MapTracks const& same = *tracks;
    tracks->copy(same);
    EXPECT_EQ(tracks->size(), 1U);
    EXPECT_EQ(tracks->sectionLength, 4U);
}

TEST(MapTracks, AnyTrackWithVideoRate) {
    Bytes const audio25 = GxfTesting::track(9, 0, rateTag(6));
    Bytes const audio50 = GxfTesting::track(9, 1, rateTag(3));
    Bytes const silent = GxfTesting::track(9, 2, {});
    Bytes const dv = GxfTesting::track(13, 3, {});
    Bytes const dvWithoutRate = GxfTesting::track(13, 3, rateTag(-1));
    Bytes const dvMissing = GxfTesting::track(13, 3, rateTag(-2));
    Bytes const timecode625 = GxfTesting::track(8, 4, {});
    Bytes const mpeg625 = GxfTesting::track(12, 5, {});
    struct Row {
        std::vector<Bytes> tracks;
        int place; ///< -1 for none
        int rate;
        double real;
    };
    Row const rows[] = {
        {{}, -1, 5, ntscRate},
        {{silent}, -1, 5, ntscRate},
        {{audio25}, 0, 6, 25.0},
        {{audio25, audio50}, 1, 3, 50.0},
        {{audio25, audio50, silent}, 1, 3, 50.0},
        {{audio25, dv}, 1, 5, ntscRate},
        {{dv, audio25}, 0, 5, ntscRate},
        {{audio25, timecode625, silent}, 1, 6, 25.0},
        {{mpeg625, dv}, 0, 6, 25.0},
        {{audio25, dvWithoutRate, mpeg625}, 1, -1, 1.0},
        {{audio25, dvMissing}, 1, -2, 1.0},
        {{GxfTesting::track(9, 0, rateTag(-1))}, -1, 5, ntscRate},
        {{GxfTesting::track(9, 0, rateTag(-2))}, -1, 5, ntscRate},
        {{GxfTesting::track(9, 0, rateTag(0))}, 0, 0, 1.0},
        {{GxfTesting::track(9, 0, rateTag(-3))}, 0, -3, 1.0},
        {{GxfTesting::track(27, 0, rateTag(3)), GxfTesting::track(21, 1, {})}, 0, 3, 50.0},
    };
    for (Row const& row : rows) {
        DecodedTracks tracks(row.tracks);
        MapTrack const* const expected =
            row.place < 0 ? nullptr : (*tracks)[static_cast<unsigned>(row.place)];
        EXPECT_EQ(tracks->getAnyTrackWithVideoRate(), expected);
        EXPECT_EQ(tracks->getFrameRate(), row.rate);
        EXPECT_EQ(tracks->getRealFrameRate(), row.real);
        EXPECT_EQ(tracks->getRealFieldRate(), 2 * row.real);
    }
}

TEST(MapTracks, EachVideoMediaTypeEndsTheSearch) {
    std::set<unsigned> const video = {3, 4, 11, 12, 13, 14, 15, 16, 20, 22, 23, 25, 26};
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        DecodedTracks tracks(
            {GxfTesting::track(mediaType, 0, rateTag(7)), GxfTesting::track(9, 1, rateTag(8))});
        EXPECT_EQ(tracks->getFrameRate(),
                  video.count(mediaType) != 0 ? frameRate24hz : frameRate23_98hz)
            << mediaType;
    }
}

TEST(MapTracks, AFieldRateOfZeroIsReplaced) {
    struct Row {
        int rate;
        int fields;
        double fieldRate;
    };
    for (Row const& row : {Row{6, 0, 59.94005994005994},
                           {6, 1, 25.0},
                           {6, 2, 50.0},
                           {6, -1, -25.0},
                           {0, 0, 59.94005994005994},
                           {0, 3, 3.0}}) {
        DecodedTracks tracks({GxfTesting::track(
            25, 0, joined({rateTag(row.rate), signedTag(fieldsTag, row.fields)}))});
        EXPECT_EQ(tracks->getRealFieldRate(), row.fieldRate);
        EXPECT_EQ(tracks->getRealFrameRate(), row.rate == 6 ? 25.0 : 1.0);
    }
}

TEST(MapTracks, UmfNumberCountsTheTracksOfItsEncoding) {
    auto const number = [](char character) { return static_cast<TrackNumberEncoding>(character); };
    DecodedTracks tracks({GxfTesting::track(9, 7, {}), GxfTesting::track(7, 0, {}),
                          GxfTesting::track(17, 5, {}), GxfTesting::track(20, 1, {}),
                          GxfTesting::track(11, 1, {}), GxfTesting::track(24, 1, {}),
                          GxfTesting::track(27, 1, {}), GxfTesting::track(5, 1, {})});
    EXPECT_EQ(tracks->getUmfTrackNum(0), UmfTrackNum(trackTypeEncodingAudio, number('0')));
    EXPECT_EQ(tracks->getUmfTrackNum(1), UmfTrackNum(trackTypeEncodingTimecode, number('0')));
    EXPECT_EQ(tracks->getUmfTrackNum(2), UmfTrackNum(trackTypeEncodingAudio, number('1')));
    EXPECT_EQ(tracks->getUmfTrackNum(3), UmfTrackNum(trackTypeEncodingMpeg2Hd, number('0')));
    EXPECT_EQ(tracks->getUmfTrackNum(4), UmfTrackNum(trackTypeEncodingMpeg2Sd, number('0')));
    EXPECT_EQ(tracks->getUmfTrackNum(5), UmfTrackNum(trackTypeEncodingTimecode, number('1')));
    EXPECT_EQ(tracks->getUmfTrackNum(6), UmfTrackNum(trackTypeEncodingNone, number('0')));
    EXPECT_EQ(tracks->getUmfTrackNum(7), UmfTrackNum(trackTypeEncodingNone, number('1')));
    EXPECT_EQ(tracks->getUmfTrackNum(8), UmfTrackNum());
    EXPECT_EQ(tracks->getUmfTrackNum(255), UmfTrackNum());
}

TEST(MapTracks, UmfNumberGoesOnWithLetters) {
    DecodedTracks tracks(std::vector<Bytes>(40, GxfTesting::track(9, 0, {})));
    for (unsigned i = 0; i < 40; ++i) {
        unsigned const character = i < 10 ? '0' + i : 'A' + i - 10;
        EXPECT_EQ(tracks->getUmfTrackNum(static_cast<unsigned char>(i)),
                  UmfTrackNum(trackTypeEncodingAudio, static_cast<TrackNumberEncoding>(character)));
    }
}

TEST(MapTracks, UmfLetterOfEachMediaType) {
    std::map<unsigned, char> const letters = {
        {3, 'V'},  {4, 'V'},  {7, 'T'},  {8, 'T'},  {9, 'A'},  {10, 'A'}, {11, 'M'},
        {12, 'M'}, {13, 'D'}, {14, 'D'}, {15, 'E'}, {16, 'E'}, {17, 'A'}, {18, 'A'},
        {20, 'H'}, {21, 'N'}, {22, 'L'}, {23, 'L'}, {24, 'T'}, {25, 'F'}, {26, 'I'}};
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        UmfTrackNum const number =
            DecodedTracks({GxfTesting::track(mediaType, 0, {})})->getUmfTrackNum(0);
        char const letter = letters.count(mediaType) != 0 ? letters.at(mediaType) : '\0';
        EXPECT_EQ(static_cast<char>(number.trackType), letter) << mediaType;
        EXPECT_EQ(static_cast<char>(number.trackNumber), '0') << mediaType;
    }
}

TEST(MapTracks, PrintsItsTracksBelowOneAnother) {
    DecodedTracks tracks({GxfTesting::track(9, 0, {}),
                          GxfTesting::track(11, 1, tagText(mpegAuxTag, "Ver 1")),
                          GxfTesting::track(7, 2, rateTag(6))});
    EXPECT_EQ(textOfObject(*tracks, 3), ">track 0: AudioPCM_24,},\n"
                                        "   track 1: Mpeg2_525,,mpegAux={\n"
                                        "     Ver 1}},\n"
                                        "   track 2: Timecode_525,,frameRate=25hz}");
    EXPECT_EQ(std::string(tracks->toString().get()), "track 0: AudioPCM_24,},\n"
                                                     "track 1: Mpeg2_525,,mpegAux={\n"
                                                     "  Ver 1}},\n"
                                                     "track 2: Timecode_525,,frameRate=25hz}");
}

TEST(MapTracks, LogsItsDecode) {
    Bytes bytes = joined({{0, 0, 0}, section({GxfTesting::track(9, 0, {})}), {0, 1, 0x99}});
    for (unsigned const level : {0U, 1U, 2U, 3U}) {
        ChannelSetting const detail(gxfDecodeDetail, level);
        ChannelSetting const other(gxfEncodeDetail, 3 - level);
        GxfBuffer buffer = bytes.filledBuffer();
        buffer.removeInput(3);
        MessageCapture messages;
        MapTracks tracks(false);
        MapTracks failing(false);
        EXPECT_TRUE(tracks.decode(buffer, 6).success());
        EXPECT_FALSE(failing.decode(buffer, 3).success());
        if (level < 3) {
            EXPECT_THAT(messages.texts(), IsEmpty()) << level;
        } else {
            EXPECT_THAT(messages.texts(MessageKind::Info),
                        ElementsAre("start Tracks decode @3\n", "start Track decode@5\n",
                                    "end Track decode: {\ntrack 0: AudioPCM_24,}\n}\n",
                                    "end Tracks decode: {\ntrack 0: AudioPCM_24,}\n}\n",
                                    "start Tracks decode @9\n", "start Track decode@11\n"));
            EXPECT_EQ(messages.texts().size(), 6U);
        }
    }
}

TEST(MapTracks, LogsItsEncode) {
    DecodedTracks tracks({GxfTesting::track(9, 0, {})});
    for (unsigned const level : {0U, 1U, 2U, 3U}) {
        ChannelSetting const detail(gxfEncodeDetail, level);
        ChannelSetting const other(gxfDecodeDetail, 3 - level);
        Bytes out = Bytes().fill(6);
        GxfBuffer buffer = out.emptyBuffer();
        buffer.reset(GxfBuffer::DataState::empty, 4096);
        MessageCapture messages;
        EXPECT_TRUE(tracks->encode(buffer).success());
        EXPECT_FALSE(tracks->encode(buffer).success());
        if (level < 3) {
            EXPECT_THAT(messages.texts(), IsEmpty()) << level;
        } else {
            EXPECT_THAT(messages.texts(MessageKind::Info),
                        ElementsAre("start Tracks encode @4096\n", "start Track encode@4096\n",
                                    "end Track encode: {\ntrack 0: AudioPCM_24,}\n}\n",
                                    "end Tracks encode: {\ntrack 0: AudioPCM_24,}\n}\n",
                                    "start Tracks encode @4096\n"));
            EXPECT_EQ(messages.texts().size(), 5U);
        }
    }
}

TEST(MapTracks, BrokenSectionsAreSafe) {
    Bytes const wire =
        section({GxfTesting::track(11, 0, allTags()), GxfTesting::track(26, 1, allTags()),
                 GxfTesting::track(21, 2, allTags()), GxfTesting::track(7, 3, allTags()),
                 GxfTesting::track(25, 4, allTags())});
    std::mt19937 random(20);
    unsigned decoded = 0;
    for (unsigned round = 0; round < 3000; ++round) {
        Bytes bytes = wire;
        for (unsigned change = 0; change <= round % 4; ++change) {
            bytes[random() % bytes.size()] = static_cast<unsigned char>(random());
        }
        std::size_t const size = round % 3 == 0 ? random() % (bytes.size() + 1) : bytes.size();
        std::vector<unsigned char> part(bytes.data(), bytes.data() + size);
        part.shrink_to_fit();
        GxfBuffer buffer(part.data(), static_cast<unsigned>(size), GxfBuffer::DataState::filled,
                         MediaAgent(nullptr));
        MessageCapture messages;
        MapTracks tracks(true);
        OpResult const result = tracks.decode(buffer, static_cast<unsigned>(bytes.size()));
        ASSERT_EQ(tracks.valid, result.success());
        for (unsigned i = 0; i < tracks.size(); ++i) {
            ASSERT_TRUE(tracks[i]->valid);
            askAll(*tracks[i]);
            tracks.getUmfTrackNum(static_cast<unsigned char>(i));
        }
        tracks.getRealFieldRate();
        MapTracks copy(false);
        copy.copy(tracks);
        ASSERT_EQ(copy.size(), tracks.size());
        if (result.success()) {
            ++decoded;
            encoded(tracks);
        }
    }
    EXPECT_GT(decoded, 300U);
}
