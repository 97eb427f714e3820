#include <climits>
#include <map>
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

namespace {

constexpr unsigned frameRateTag = 0x50;
constexpr unsigned linesTag = 0x51;
constexpr unsigned fieldsTag = 0x52;

constexpr unsigned mpegTypes[] = {11, 12, 20, 22, 23, 29};
constexpr unsigned timecodeTypes[] = {7, 8, 24};

/// Track 1, decoded from its wire form.
struct DecodedTrack {
    explicit DecodedTrack(unsigned mediaType, Bytes const& tags = {})
        : wire(GxfTesting::track(mediaType, 1, tags)) {
        GxfBuffer buffer = wire.filledBuffer();
        EXPECT_TRUE(track.decode(buffer, static_cast<unsigned>(wire.size())).success());
    }
    MapTrack* operator->() { return &track; }

    Bytes wire;
    MapTrack track{false};
};

Bytes signedTag(unsigned number, int value) {
    return tagU32(number, static_cast<std::uint32_t>(value));
}

Bytes auxTag(Bytes const& eightBytes) { return tag(0x4D, eightBytes); }

Bytes dvAux(unsigned firstByte) { return auxTag({firstByte, 0, 0, 0x40, 0, 0, 0, 0}); }

Bytes avciAux(unsigned classEncoding) {
    return auxTag({0x30U | classEncoding, 0, 0, 0, 0, 0, 0, 0});
}

Bytes ancillaryAux(unsigned fieldByteSize) {
    return auxTag({0, 0, 1, 0, fieldByteSize % 256, fieldByteSize / 256, 0, 0});
}

Bytes joined(std::vector<Bytes> const& parts) {
    Bytes bytes;
    for (Bytes const& part : parts) {
        bytes.add(part);
    }
    return bytes;
}

struct Rated {
    unsigned bitrate;
    std::vector<std::string> traces;
};

/// The bit rate with the traces that asking for it leaves.
Rated rated(unsigned mediaType, Bytes const& tags = {}) {
    DecodedTrack track(mediaType, tags);
    MessageCapture messages;
    unsigned const bitrate = track->getBitrate();
    EXPECT_THAT(messages.texts(), IsEmpty());
    return {bitrate, messages.texts(MessageKind::Trace)};
}

bool isDv(unsigned mediaType) { return (mediaType >= 13 && mediaType <= 16) || mediaType == 25; }

bool isMpeg2(unsigned mediaType) { return mediaType == 11 || mediaType == 12 || mediaType == 20; }

void expectFailure(OpResult const& result, int code) {
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), code);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().file, "map_track_rates.cpp");
    EXPECT_STREQ(result.getLocation().function, "setAspectRatio");
    EXPECT_NE(result.getLocation().line, 0U);
}

} // namespace

TEST(MapTrackBitrate, OfEachMediaTypeWithoutTags) {
    std::map<unsigned, unsigned> const rates = {{7, 3836},      {8, 3200},      {24, 128},
                                                {9, 1152000},   {18, 1152000},  {10, 768000},
                                                {17, 768000},   {13, 28771215}, {14, 28800000},
                                                {15, 57542431}, {16, 57600000}, {25, 115084863}};
    std::map<unsigned, std::string> const refusals = {
        {11, "error badDecodeData: invalid MPEG AUX info\n"},
        {12, "error badDecodeData: invalid MPEG AUX info\n"},
        {20, "error badDecodeData: invalid MPEG AUX info\n"},
        {22, "error badDecodeData: invalid MPEG AUX info\n"},
        {23, "error badDecodeData: invalid MPEG AUX info\n"},
        {29, "error badDecodeData: invalid MPEG AUX info\n"},
        {21, "error badDecodeData: invalid Ancillary Data AUX info\n"},
        {26, "error badDecodeData: invalid AVCI AUX info\n"},
        {3, "error internalError: bitrate=0 for track 1: MotionJPEG_525,}\n"},
        {4, "error internalError: bitrate=0 for track 1: MotionJPEG_625,}\n"},
        {19, "error internalError: bitrate=0 for track 1: Reserved1,}\n"},
        {27, "error internalError: bitrate=0 for track 1: Avc27,}\n"},
        {28, "error internalError: bitrate=0 for track 1: Avc28,}\n"},
        {0, "error internalError: bitrate=0 for track 1: ?(TrackMediaType=0x0),}\n"},
        {5, "error internalError: bitrate=0 for track 1: ?(TrackMediaType=0x5),}\n"},
        {127, "error internalError: bitrate=0 for track 1: ?(TrackMediaType=0x7f),}\n"}};
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        Rated const result = rated(mediaType);
        if (rates.count(mediaType) != 0) {
            EXPECT_EQ(result.bitrate, rates.at(mediaType)) << mediaType;
            EXPECT_THAT(result.traces, IsEmpty()) << mediaType;
            continue;
        }
        EXPECT_EQ(result.bitrate, 0U) << mediaType;
        ASSERT_EQ(result.traces.size(), 1U) << mediaType;
        if (refusals.count(mediaType) != 0) {
            EXPECT_EQ(result.traces[0], refusals.at(mediaType));
        } else {
            EXPECT_EQ(result.traces[0].rfind("error internalError: bitrate=0 for track 1: ?", 0),
                      0U)
                << mediaType;
        }
    }
}

TEST(MapTrackBitrate, FixedRatesIgnoreTheTags) {
    Bytes const tags = joined({signedTag(frameRateTag, 3), signedTag(fieldsTag, 1)});
    for (auto const& [mediaType, bitrate] : std::map<unsigned, unsigned>{{9, 1152000},
                                                                         {18, 1152000},
                                                                         {10, 768000},
                                                                         {17, 768000},
                                                                         {13, 28771215},
                                                                         {14, 28800000},
                                                                         {15, 57542431},
                                                                         {16, 57600000}}) {
        EXPECT_EQ(rated(mediaType, tags).bitrate, bitrate) << mediaType;
    }
}

TEST(MapTrackBitrate, OfATimecodeTrackAtEachRate) {
    struct Row {
        int frameRate;
        unsigned progressive;
        unsigned interlaced;
    };
    // frames per second x fields x 64 bits
    for (Row const& row : {Row{1, 3840, 7680},
                           {2, 3836, 7672},
                           {3, 3200, 6400},
                           {4, 1920, 3840},
                           {5, 1918, 3836},
                           {6, 1600, 3200},
                           {7, 1536, 3072},
                           {8, 1534, 3068},
                           {-1, 64, 128},
                           {-2, 64, 128},
                           {0, 64, 128},
                           {9, 64, 128},
                           {INT_MIN, 64, 128},
                           {INT_MAX, 64, 128}}) {
        Bytes const rate = signedTag(frameRateTag, row.frameRate);
        for (unsigned const mediaType : timecodeTypes) {
            EXPECT_EQ(rated(mediaType, rate).bitrate, row.interlaced) << row.frameRate;
            EXPECT_EQ(rated(mediaType, joined({rate, signedTag(fieldsTag, 1)})).bitrate,
                      row.progressive);
            EXPECT_EQ(rated(mediaType, joined({rate, signedTag(fieldsTag, 2)})).bitrate,
                      row.interlaced);
        }
    }
}

TEST(MapTrackBitrate, OfATimecodeTrackWithAnyNumberOfFields) {
    struct Row {
        int fields;
        unsigned bitrate;
    };
    // 25 hertz x fields x 64 = fields x 1600, the low 32 bits
    for (Row const& row : {Row{0, 0},
                           {-1, 4294965696U},
                           {-2, 4294964096U},
                           {3, 4800},
                           {INT_MAX, 4294965696U},
                           {INT_MIN, 0}}) {
        Rated const result = rated(8, signedTag(fieldsTag, row.fields));
        EXPECT_EQ(result.bitrate, row.bitrate) << row.fields;
        EXPECT_THAT(result.traces, IsEmpty());
    }
    // -1918.08 is cut toward zero.
    EXPECT_EQ(rated(7, signedTag(fieldsTag, -1)).bitrate, 4294965378U);
}

TEST(MapTrackBitrate, OfAnMpegTrackIsThatOfItsAuxInfo) {
    struct Row {
        char const* text;
        unsigned bitrate;
    };
    for (Row const& row : {Row{"Br 4000000.5", 4000000},
                           {"Br 0.9", 0},
                           {"Br -0.9", 0},
                           {"Br -1", 4294967295U},
                           {"Br 4294967295", 4294967295U},
                           {"Br 4294967296.0", 0},
                           {"Br 4294967297", 1},
                           {"Br 9223372036854774784", 4294966272U}, // the last double below 2^63
                           {"Br 9223372036854775808", 0},
                           {"Br -9223372036854775808", 0},
                           {"Br 18446744073709551615", 0},
                           {"Br 1e300", 0},
                           {"Br -1e300", 0},
                           {"Br 1e999", 0},
                           {"Br -inf", 0},
                           {"Br nan", 0},
                           {"Br -nan", 0},
                           {"Ver 1", 0},
                           {"Br 5000\nVi 0", 5000},
                           {"Vi 1\nBr 5000\nbad", 5000}}) {
        for (unsigned const mediaType : mpegTypes) {
            for (unsigned const number : {0x4FU, 0x56U}) {
                Rated const result = rated(mediaType, tagText(number, row.text));
                EXPECT_EQ(result.bitrate, row.bitrate) << mediaType << " " << row.text;
                EXPECT_THAT(result.traces, IsEmpty()) << mediaType << " " << row.text;
            }
        }
    }
}

TEST(MapTrackBitrate, OfAnMpegTrackWithoutValidAuxInfo) {
    for (char const* text : {"", "bad", "Br 5000\nbad", "Br 5000\n\nVer 1"}) {
        for (unsigned const mediaType : mpegTypes) {
            Rated const result = rated(mediaType, tagText(0x4F, text));
            EXPECT_EQ(result.bitrate, 0U) << text;
            EXPECT_THAT(result.traces, ElementsAre("error badDecodeData: invalid MPEG AUX info\n"));
        }
    }
}

TEST(MapTrackBitrate, OfAnMpegTrackLeavesItsAuxInfo) {
    DecodedTrack track(11, tagText(0x4F, "Br 5000"));
    EXPECT_EQ(track->getBitrate(), 5000U);
    EXPECT_EQ(track->getBitrate(), 5000U);
    EXPECT_STREQ(track->getMpegAuxInfo().getRawStr(), "Br 5000");
}

TEST(MapTrackBitrate, OfAncillaryDataCountsBytesAndFieldsTwice) {
    struct Row {
        int frameRate;
        int fields;
        unsigned fieldByteSize;
        unsigned bitrate;
    };
    for (Row const& row : {Row{6, 2, 100, 10000},   // 100 x 25 x 2 x 2
                           {6, 1, 100, 2500},       // 100 x 25
                           {5, 2, 100, 11988},      // 100 x 29.97002997 x 2 x 2 = 11988.01
                           {2, 1, 4096, 245514},    // 4096 x 59.94005994 = 245514.49
                           {3, 2, 65535, 13107000}, // 65535 x 50 x 2 x 2
                           {6, 2, 0, 0},
                           {6, 0, 100, 0},
                           {6, -3, 100, 22500},  // 100 x 25 x 9
                           {99, 2, 100, 400}}) { // what isn't a rate counts as 1
        Rated const result =
            rated(21, joined({signedTag(frameRateTag, row.frameRate),
                              signedTag(fieldsTag, row.fields), ancillaryAux(row.fieldByteSize)}));
        EXPECT_EQ(result.bitrate, row.bitrate) << row.frameRate << " " << row.fields;
        EXPECT_THAT(result.traces, IsEmpty());
    }
    // No rate counts as 1, two fields.
    EXPECT_EQ(rated(21, ancillaryAux(100)).bitrate, 400U);
}

TEST(MapTrackBitrate, OfAncillaryDataWithHugeFields) {
    for (int const fields : {INT_MIN, INT_MAX, INT_MIN + 1}) {
        for (unsigned const fieldByteSize : {1U, 2U, 65535U}) {
            // 2^62 and above, whose low 32 bits are zero as a double, or no 64-bit number at all.
            Rated const result =
                rated(21, joined({signedTag(fieldsTag, fields), ancillaryAux(fieldByteSize)}));
            EXPECT_EQ(result.bitrate, 0U) << fields << " " << fieldByteSize;
            EXPECT_THAT(result.traces, IsEmpty());
        }
    }
}

TEST(MapTrackBitrate, OfAncillaryDataByItsPresentationFormat) {
    for (unsigned format = 0; format < 256; ++format) {
        Rated const result = rated(21, auxTag({0, 0, format, 0, 100, 0, 0, 0}));
        if (format == 1 || format == 2) {
            EXPECT_EQ(result.bitrate, 400U) << format;
            EXPECT_THAT(result.traces, IsEmpty());
        } else {
            EXPECT_EQ(result.bitrate, 0U) << format;
            EXPECT_THAT(result.traces,
                        ElementsAre("error badDecodeData: invalid Ancillary Data AUX info\n"));
        }
    }
}

TEST(MapTrackBitrate, OfDv100AtEachRate) {
    std::map<int, unsigned> const rates = {{2, 230169785}, {5, 115084863}};
    for (int const rate : {-2, -1, 0, 1, 2, 3, 4, 5, 6, 7, 8, 9, INT_MIN, INT_MAX}) {
        unsigned const expected = rates.count(rate) != 0 ? rates.at(rate) : 115200000U;
        Rated const result = rated(25, signedTag(frameRateTag, rate));
        EXPECT_EQ(result.bitrate, expected) << rate;
        EXPECT_THAT(result.traces, IsEmpty());
    }
}

TEST(MapTrackBitrate, OfAvciAtEachClassLinesRateAndFields) {
    struct Row {
        unsigned classEncoding;
        unsigned lines;
        int frameRate;
        unsigned progressive;
        unsigned interlaced;
    };
    // Bits of a frame x frames per second x fields x fields, with 16 bits of fraction in the rate.
    constexpr Row rows[] = {
        {2, 720, 2, 110727011, 442908129},  {2, 720, 5, 55363491, 221454050},
        {2, 720, 3, 111616000, 446464000},  {2, 720, 6, 55808000, 223232000},
        {2, 1080, 2, 221945051, 887780375}, {2, 1080, 5, 110972497, 443890159},
        {2, 1080, 3, 223641600, 894566400}, {2, 1080, 6, 111820800, 447283200},
        {1, 720, 2, 53276632, 213106572},   {1, 720, 5, 26638309, 106553279},
        {1, 720, 3, 54067200, 216268800},   {1, 720, 6, 27033600, 108134400},
        {1, 1080, 2, 107044294, 428177260}, {1, 1080, 5, 53522133, 214088616},
        {1, 1080, 3, 108544000, 434176000}, {1, 1080, 6, 54272000, 217088000},
    };
    for (Row const& row : rows) {
        std::vector<int> const lineTags =
            row.lines == 720 ? std::vector<int>{6} : std::vector<int>{4, 0x10004};
        for (int const lines : lineTags) {
            Bytes const tags = joined({avciAux(row.classEncoding), signedTag(linesTag, lines),
                                       signedTag(frameRateTag, row.frameRate)});
            Rated const byDefault = rated(26, tags);
            EXPECT_EQ(byDefault.bitrate, row.interlaced)
                << row.classEncoding << " " << row.lines << " " << row.frameRate;
            EXPECT_THAT(byDefault.traces, IsEmpty());
            EXPECT_EQ(rated(26, joined({tags, signedTag(fieldsTag, 2)})).bitrate, row.interlaced);
            EXPECT_EQ(rated(26, joined({tags, signedTag(fieldsTag, 1)})).bitrate, row.progressive);
        }
    }
    // Without a rate: 29.97 hertz.
    EXPECT_EQ(rated(26, joined({avciAux(2), signedTag(linesTag, 4)})).bitrate, 443890159U);
}

TEST(MapTrackBitrate, OfAvciAtARateThatItDoesNotHave) {
    for (int const rate : {-2, -1, 0, 1, 4, 7, 8, 9, INT_MIN, INT_MAX}) {
        for (int const lines : {4, 6, 0x10004}) {
            for (unsigned const classEncoding : {1U, 2U}) {
                Rated const result =
                    rated(26, joined({avciAux(classEncoding), signedTag(linesTag, lines),
                                      signedTag(frameRateTag, rate)}));
                EXPECT_EQ(result.bitrate, 0U) << rate;
                EXPECT_THAT(result.traces, IsEmpty()) << rate;
            }
        }
    }
}

TEST(MapTrackBitrate, OfAvciWithLinesThatItDoesNotHave) {
    Rated const none = rated(26, avciAux(1));
    EXPECT_EQ(none.bitrate, 0U);
    EXPECT_THAT(none.traces, ElementsAre("error internalError: bitrate=0 for track 1: "
                                         "Avci,,aux=0x31.00.00.00.00.00.00.00}\n"));
    struct Row {
        int lines;
        char const* text;
    };
    for (Row const& row : {Row{1, "lines=525"},
                           {2, "lines=625"},
                           {5, "lines=reserved"},
                           {0, "lines=invalid"},
                           {-1, "lines=N/A"},
                           {7, "lines=invalid"}}) {
        Rated const result = rated(26, joined({avciAux(2), signedTag(linesTag, row.lines)}));
        EXPECT_EQ(result.bitrate, 0U);
        EXPECT_THAT(result.traces,
                    ElementsAre(std::string("error internalError: bitrate=0 for track 1: "
                                            "Avci,,aux=0x32.00.00.00.00.00.00.00,") +
                                row.text + "}\n"));
    }
}

TEST(MapTrackBitrate, OfAvciWithInvalidAuxInfo) {
    // Class 0, 3 and 15; the two bits above it 0, 1 and 2.
    for (unsigned const firstByte : {0x30U, 0x33U, 0x3FU, 0x01U, 0x12U, 0x21U}) {
        Rated const result =
            rated(26, joined({auxTag({firstByte, 0, 0, 0, 0, 0, 0, 0}), signedTag(linesTag, 4)}));
        EXPECT_EQ(result.bitrate, 0U);
        EXPECT_THAT(result.traces, ElementsAre("error badDecodeData: invalid AVCI AUX info\n"));
    }
}

TEST(MapTrackBitrate, OfAvciWithAnyNumberOfFields) {
    struct Row {
        int fields;
        unsigned bitrate;
    };
    // 1081344 bits x 25 hertz x fields squared, the low 32 bits; 0 when the rate overflows.
    for (Row const& row : {Row{0, 0},
                           {-1, 27033600},
                           {-2, 108134400},
                           {3, 243302400},
                           {100, 4048027648U},
                           {INT_MIN, 0},
                           {INT_MAX, 0}}) {
        Rated const result =
            rated(26, joined({avciAux(1), signedTag(linesTag, 6), signedTag(frameRateTag, 6),
                              signedTag(fieldsTag, row.fields)}));
        EXPECT_EQ(result.bitrate, row.bitrate) << row.fields;
        EXPECT_THAT(result.traces, IsEmpty());
    }
}

TEST(MapTrackBitrate, ReportsATrackOfSeveralLinesInOne) {
    Rated const result = rated(27, joined({tagText(0x4C, "a%sb"), tagText(0x56, "Ver 1\nBr 2")}));
    EXPECT_THAT(result.traces, ElementsAre("error internalError: bitrate=0 for track 1: "
                                           "Avc27,,media={a%sb},avcAux={   Ver 1,   Br 2}}\n"));
}

TEST(MapTrackAspectRatio, OfEachMediaTypeWithoutTags) {
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        unsigned expected = 2;
        if (isDv(mediaType) || isMpeg2(mediaType)) {
            expected = 0;
        }
        if (mediaType == 26) {
            expected = 1;
        }
        EXPECT_EQ(static_cast<unsigned>(DecodedTrack(mediaType)->getAspectRatio()), expected)
            << mediaType;
    }
}

TEST(MapTrackAspectRatio, OfADvTrackByItsAuxInfo) {
    struct Row {
        unsigned mediaType;
        unsigned wideBits;
    };
    for (Row const& row : {Row{13, 0x10}, {14, 0x10}, {15, 0x02}, {16, 0x02}}) {
        EXPECT_EQ(DecodedTrack(row.mediaType, dvAux(row.wideBits))->getAspectRatio(),
                  aspectRatio16x9);
        EXPECT_EQ(DecodedTrack(row.mediaType, dvAux(0xFF ^ row.wideBits))->getAspectRatio(),
                  aspectRatio4x3);
        for (unsigned const validity : {0x00U, 0x80U, 0xC0U}) {
            EXPECT_EQ(
                DecodedTrack(row.mediaType, auxTag({row.wideBits, 0, 0, validity, 0, 0, 0, 0}))
                    ->getAspectRatio(),
                aspectRatio4x3);
        }
    }
    EXPECT_EQ(DecodedTrack(25, dvAux(0))->getAspectRatio(), aspectRatio16x9);
    EXPECT_EQ(DecodedTrack(25, auxTag({0xFF, 0, 0, 0xC0, 0, 0, 0, 0}))->getAspectRatio(),
              aspectRatio4x3);
}

TEST(MapTrackAspectRatio, OfAnMpegTrackByItsAuxInfo) {
    struct Row {
        char const* text;
        AspectRatio ratio;
    };
    for (Row const& row : {Row{"ar 1", aspectRatio16x9},
                           {"ar 0", aspectRatio4x3},
                           {"ar 2", aspectRatio4x3},
                           {"ar -1", aspectRatio4x3},
                           {"Ver 1", aspectRatio4x3},
                           {"ar 1\nbad", aspectRatio4x3},
                           {"Vi 1\nar 1\nbad", aspectRatio16x9}}) {
        for (unsigned const mediaType : {11U, 12U, 20U}) {
            EXPECT_EQ(DecodedTrack(mediaType, tagText(0x4F, row.text))->getAspectRatio(), row.ratio)
                << row.text;
        }
        for (unsigned const mediaType : {22U, 23U, 29U}) {
            EXPECT_EQ(DecodedTrack(mediaType, tagText(0x4F, row.text))->getAspectRatio(),
                      aspectRatioUnknown);
        }
    }
}

TEST(MapTrackAspectRatio, CannotBeSetToUnknownOnAnyMediaType) {
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        Bytes const tags = joined({dvAux(0), tagText(0x4F, "bar= 1")});
        expectFailure(DecodedTrack(mediaType, tags)->setAspectRatio(aspectRatioUnknown), 7);
    }
}

TEST(MapTrackAspectRatio, SettingItOnEachMediaTypeWithoutTags) {
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        for (AspectRatio const ratio : {aspectRatio4x3, aspectRatio16x9}) {
            OpResult const result = DecodedTrack(mediaType)->setAspectRatio(ratio);
            if (mediaType != 26) {
                expectFailure(result, 7);
            } else if (ratio == aspectRatio16x9) {
                EXPECT_TRUE(result.success());
                EXPECT_EQ(result.getType(), OpResult::Ok);
            } else {
                expectFailure(result, 13);
            }
        }
    }
    expectFailure(DecodedTrack(26)->setAspectRatio(static_cast<AspectRatio>(7)), 13);
}

TEST(MapTrackAspectRatio, SettingItOnADvTrackSucceedsAndChangesNothing) {
    for (unsigned const mediaType : {13U, 14U, 15U, 16U, 25U}) {
        for (unsigned const firstByte : {0x00U, 0x12U}) {
            for (unsigned const ratio : {0U, 1U, 7U}) {
                DecodedTrack track(mediaType, dvAux(firstByte));
                AspectRatio const before = track->getAspectRatio();
                MessageCapture messages;
                EXPECT_TRUE(track->setAspectRatio(static_cast<AspectRatio>(ratio)).success());
                EXPECT_THAT(messages.texts(MessageKind::Trace), IsEmpty());
                EXPECT_EQ(track->getAspectRatio(), before);
                Bytes out = Bytes().fill(64);
                GxfBuffer buffer = out.emptyBuffer();
                ASSERT_TRUE(track->encode(buffer).success());
                EXPECT_EQ(Bytes::occupied(buffer), track.wire);
            }
        }
    }
}

TEST(MapTrackAspectRatio, SettingItOnADvTrackNeedsValidAuxInfo) {
    for (unsigned const mediaType : {13U, 14U, 15U, 16U, 25U}) {
        for (unsigned const validity : {0x00U, 0x80U, 0xC0U}) {
            DecodedTrack track(mediaType, auxTag({0, 0, 0, validity, 0, 0, 0, 0}));
            expectFailure(track->setAspectRatio(aspectRatio16x9), 7);
            expectFailure(track->setAspectRatio(aspectRatio4x3), 7);
        }
    }
}

TEST(MapTrackAspectRatio, SettingItOnAnMpegTrackEditsTheRawTextOnly) {
    struct Row {
        AspectRatio ratio;
        char const* edited;
    };
    for (unsigned const mediaType : {11U, 12U, 20U}) {
        for (Row const& row : {Row{aspectRatio16x9, "ar 0\nba1= 5"},
                               {aspectRatio4x3, "ar 0\nba0= 5"},
                               {static_cast<AspectRatio>(7), "ar 0\nba0= 5"}}) {
            DecodedTrack track(mediaType, tagText(0x4F, "ar 0\nbar= 5"));
            EXPECT_TRUE(track->setAspectRatio(row.ratio).success());
            EXPECT_STREQ(track->getMpegAuxInfo().getRawStr(), row.edited);
            EXPECT_EQ(track->getAspectRatio(), aspectRatio4x3);
            Bytes out = Bytes().fill(64);
            GxfBuffer buffer = out.emptyBuffer();
            ASSERT_TRUE(track->encode(buffer).success());
            EXPECT_EQ(Bytes::occupied(buffer), track.wire);
        }
    }
}

TEST(MapTrackAspectRatio, SettingItOnAnMpegTrackNeedsValidAuxInfoWithTheKey) {
    for (unsigned const mediaType : {11U, 12U, 20U}) {
        expectFailure(
            DecodedTrack(mediaType, tagText(0x4F, "ar=1"))->setAspectRatio(aspectRatio16x9), 7);
        OpResult const result =
            DecodedTrack(mediaType, tagText(0x4F, "ar 1"))->setAspectRatio(aspectRatio16x9);
        EXPECT_EQ(result.getType(), OpResult::Error);
        EXPECT_EQ(result.getCode(), 13);
        EXPECT_STREQ(result.getText(), "aux info does not contain aspect ratio");
    }
}

TEST(MapTrackAspectRatio, CannotBeSetOnMpeg1AndAvcHd) {
    for (unsigned const mediaType : {22U, 23U, 27U, 28U, 29U}) {
        DecodedTrack track(mediaType, tagText(0x4F, "bar= 5"));
        expectFailure(track->setAspectRatio(aspectRatio16x9), 7);
        EXPECT_STREQ(track->getMpegAuxInfo().getRawStr(), "bar= 5");
    }
}
