#include <array>
#include <cctype>
#include <climits>
#include <cmath>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <testing/bytes.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::MatchesRegex;

namespace {

constexpr unsigned errorsBit = 1U << 0;
constexpr char failedCheck[] = "check failed: init \\(map_aux_info\\.cpp:[1-9][0-9]*\\)\n";

/// All numbers of the aux info in the order of its fields.
using Numbers = std::array<double, 15>;

Numbers numbersOf(MpegAuxInfo const& aux) {
    return {static_cast<double>(aux.auxVersion),     aux.bitRate,
            static_cast<double>(aux.iPerGop),        static_cast<double>(aux.pPerI),
            static_cast<double>(aux.bPerIOrP),       static_cast<double>(aux.pixelFormat),
            static_cast<double>(aux.chromaFormat),   static_cast<double>(aux.closedGop),
            static_cast<double>(aux.slices),         static_cast<double>(aux.numLines),
            static_cast<double>(aux.numPixels),      static_cast<double>(aux.unused),
            static_cast<double>(aux.firstFieldFlag), static_cast<double>(aux.codedBytesPerGop),
            static_cast<double>(aux.aspectRatio)};
}

MpegAuxInfo parsed(std::string const& text) {
    MpegAuxInfo aux;
    aux.init(text.c_str());
    return aux;
}

struct KeyRow {
    char const* key;
    unsigned index; ///< in Numbers
    int factor;
};

constexpr KeyRow keyRows[] = {
    {"Ver", 0, 1},    {"Br", 1, 1},    {"Ipg", 2, 1}, {"Ppi", 3, 1},   {"Bpiop", 4, 1},
    {"Pix", 5, 1},    {"Cf", 6, 1},    {"Cg", 7, 1},  {"Sl", 8, 1},    {"nl16", 9, 16},
    {"np16", 10, 16}, {"bit", 10, 16}, {"f1", 12, 1}, {"cbpg", 13, 1}, {"ar", 14, 1},
};

std::string inCase(std::string text, int (*convert)(int)) {
    for (char& c : text) {
        c = static_cast<char>(convert(static_cast<unsigned char>(c)));
    }
    return text;
}

AuxInfo auxOf(std::array<unsigned, 8> const& values) {
    AuxInfo aux;
    for (unsigned i = 0; i < 8; ++i) {
        aux.bytes[i] = static_cast<std::uint8_t>(values[i]);
    }
    return aux;
}

AuxInfo auxWithBit(unsigned bit) {
    AuxInfo aux = auxOf({});
    aux.bytes[bit / 8] = static_cast<std::uint8_t>(1U << (bit % 8));
    return aux;
}

} // namespace

TEST(MpegAuxInfo, StartsEmpty) {
    MpegAuxInfo const aux;
    EXPECT_STREQ(aux.getRawStr(), "");
    EXPECT_FALSE(aux.isValid());
    EXPECT_EQ(numbersOf(aux), Numbers{});
    EXPECT_EQ(aux.getAspectRatio(), MpegAuxInfo::aspect4x3);
}

TEST(MpegAuxInfo, EachKeyWritesItsFieldAndNoOther) {
    for (KeyRow const& row : keyRows) {
        for (std::string const& key :
             {std::string(row.key), inCase(row.key, std::toupper), inCase(row.key, std::tolower)}) {
            MpegAuxInfo const aux = parsed(key + " 7");
            Numbers expected{};
            expected[row.index] = 7.0 * row.factor;
            EXPECT_EQ(numbersOf(aux), expected) << key;
            EXPECT_TRUE(aux.isValid()) << key;
            EXPECT_EQ(aux.getRawStr(), key + " 7");
        }
    }
}

TEST(MpegAuxInfo, EachKeyStoresZeroToo) {
    for (KeyRow const& row : keyRows) {
        MpegAuxInfo aux = parsed(std::string(row.key) + " 7");
        aux.init((std::string(row.key) + " 0").c_str());
        EXPECT_EQ(numbersOf(aux), Numbers{}) << row.key;
    }
}

TEST(MpegAuxInfo, TakesAKeyWholeOnly) {
    for (char const* key : {"Ve", "Vers", "B", "Bra", "nl1", "nl160", "np", "bits", "f", "f11", "a",
                            "arx", "Vii", "V", "cbp"}) {
        MpegAuxInfo const aux = parsed(std::string(key) + " 7");
        EXPECT_EQ(numbersOf(aux), Numbers{}) << key;
        EXPECT_TRUE(aux.isValid()) << key;
    }
}

TEST(MpegAuxInfo, ParsesTwoLinesAndALineFeedBehindTheLast) {
    MpegAuxInfo const aux = parsed("Ver 1\nBr 4000000.5\n");
    EXPECT_EQ(aux.auxVersion, 1);
    EXPECT_EQ(aux.bitRate, 4000000.5);
    EXPECT_TRUE(aux.isValid());
    EXPECT_STREQ(aux.getRawStr(), "Ver 1\nBr 4000000.5\n");
}

TEST(MpegAuxInfo, ParsesAWholeText) {
    MpegAuxInfo const aux = parsed("Ver 1\nBr 50000000\nIpg 1\nPpi 4\nBpiop 2\nPix 3\nCf 2\nCg 1\n"
                                   "Sl 36\nnl16 34\nnp16 45\nVi 1\nf1 1\ncbpg 900000\nar 1\n");
    EXPECT_EQ(numbersOf(aux),
              (Numbers{1, 50000000, 1, 4, 2, 3, 2, 1, 36, 544, 720, 0, 1, 900000, 1}));
    EXPECT_TRUE(aux.isValid());
    EXPECT_EQ(aux.getAspectRatio(), MpegAuxInfo::aspect16x9);
}

TEST(MpegAuxInfo, MultipliesLinesAndPixelsBySixteen) {
    EXPECT_EQ(parsed("nl16 36").numLines, 576);
    EXPECT_EQ(parsed("np16 45\nbit 8").numPixels, 128);
    EXPECT_EQ(parsed("bit 8\nnp16 45").numPixels, 720);
}

TEST(MpegAuxInfo, ReadsAspectRatioBehindABlankOnly) {
    EXPECT_EQ(parsed("ar 1").getAspectRatio(), MpegAuxInfo::aspect16x9);
    EXPECT_TRUE(parsed("ar 1").isValid());
    EXPECT_EQ(parsed("ar=1").getAspectRatio(), MpegAuxInfo::aspect4x3);
    EXPECT_FALSE(parsed("ar=1").isValid());
    EXPECT_EQ(static_cast<int>(parsed("ar -1").getAspectRatio()), -1);
    EXPECT_EQ(static_cast<unsigned>(parsed("ar 2").getAspectRatio()), 2U);
}

TEST(MpegAuxInfo, ValidityFollowsTheEndOfTheTextThenVi) {
    struct Row {
        char const* text;
        bool valid;
    };
    for (Row const& row : {Row{"Vi 0", true},
                           {"Vi 1", true},
                           {"Vi 1\nbad", true},
                           {"Vi 0\nbad", false},
                           {"Vi 2\nbad", false},
                           {"Vi -1\nbad", false},
                           {"Vi 1\nVi 0\nbad", false},
                           {"Vi 0\nVi 1\nbad", true},
                           {"bad", false},
                           {"VI 1x\nbad", true},
                           {"Vi 4294967297\nbad", true}}) {
        EXPECT_EQ(parsed(row.text).isValid(), row.valid) << row.text;
    }
}

TEST(MpegAuxInfo, ALineThatIsNotTwoPiecesStopsTheParse) {
    for (char const* line :
         {"", "Ipg", "Ipg ", "Ipg=5", "Ipg  5", "Ipg 5 6", " ", "  5", "Ipg\t5", "\r"}) {
        MessageCapture messages;
        MpegAuxInfo const aux = parsed(std::string("Ver 1\n") + line + "\nSl 3");
        EXPECT_EQ(numbersOf(aux), (Numbers{1})) << line;
        EXPECT_FALSE(aux.isValid()) << line;
        EXPECT_THAT(messages.texts(MessageKind::Trace), ElementsAre(MatchesRegex(failedCheck)))
            << line;
        EXPECT_THAT(messages.texts(), IsEmpty()) << line;
    }
}

TEST(MpegAuxInfo, TwoPiecesNeedNotBeFull) {
    // A blank at the very end adds no piece, one in front gives an empty key.
    for (char const* line : {"Ipg 5 ", "Ipg 5\r", " 5\nIpg 5"}) {
        MpegAuxInfo const aux = parsed(line);
        EXPECT_EQ(numbersOf(aux), (Numbers{0, 0, 5})) << line;
        EXPECT_TRUE(aux.isValid()) << line;
    }
}

TEST(MpegAuxInfo, NullAndEmptyKeepTextAndNumbers) {
    for (char const* text : {static_cast<char const*>(nullptr), ""}) {
        MessageCapture messages;
        MpegAuxInfo aux = parsed("Ver 3\nar 1");
        aux.init(text);
        EXPECT_FALSE(aux.isValid());
        EXPECT_STREQ(aux.getRawStr(), "Ver 3\nar 1");
        EXPECT_EQ(numbersOf(aux), (Numbers{3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 1}));
        EXPECT_THAT(messages.texts(MessageKind::Trace), IsEmpty());
    }
}

TEST(MpegAuxInfo, ASecondTextLeavesTheFieldsThatItDoesNotName) {
    MpegAuxInfo aux = parsed("Ver 3\nIpg 15\nbad");
    aux.init("Ver 4\nSl 2");
    EXPECT_EQ(numbersOf(aux), (Numbers{4, 0, 15, 0, 0, 0, 0, 0, 2}));
    EXPECT_STREQ(aux.getRawStr(), "Ver 4\nSl 2");
    EXPECT_TRUE(aux.isValid());
    aux.init("bad");
    EXPECT_FALSE(aux.isValid());
    EXPECT_STREQ(aux.getRawStr(), "bad");
}

TEST(MpegAuxInfo, ParsesItsOwnText) {
    MpegAuxInfo aux = parsed("Ver 3\nIpg 15");
    aux.auxVersion = 0;
    aux.init(aux.getRawStr());
    EXPECT_STREQ(aux.getRawStr(), "Ver 3\nIpg 15");
    EXPECT_EQ(aux.auxVersion, 3);
}

TEST(MpegAuxInfo, UnknownKeyIsReportedWithErrorsOnOnly) {
    char const* const text = "Ver 1\nfoo bar\n%s%n 50%\nSl 3";
    for (unsigned const bits : {0U, ~errorsBit}) {
        ChannelSetting const debug(gxfDebug, bits);
        MessageCapture messages;
        MpegAuxInfo const aux = parsed(text);
        EXPECT_TRUE(aux.isValid());
        EXPECT_EQ(aux.slices, 3);
        EXPECT_THAT(messages.texts(MessageKind::Trace), IsEmpty());
        EXPECT_THAT(messages.texts(), IsEmpty());
    }
    ChannelSetting const debug(gxfDebug, errorsBit);
    MessageCapture messages;
    MpegAuxInfo const aux = parsed(text);
    EXPECT_TRUE(aux.isValid());
    EXPECT_EQ(numbersOf(aux), (Numbers{1, 0, 0, 0, 0, 0, 0, 0, 3}));
    EXPECT_THAT(messages.texts(MessageKind::Trace),
                ElementsAre("error badDecodeData: MpegAuxInfo: \"foo=bar\" unknown\n",
                            "error badDecodeData: MpegAuxInfo: \"%s%n=50%\" unknown\n"));
    EXPECT_THAT(messages.texts(), IsEmpty());
}

TEST(MpegAuxInfo, KnownKeysAreNotReported) {
    ChannelSetting const debug(gxfDebug, errorsBit);
    for (KeyRow const& row : keyRows) {
        MessageCapture messages;
        parsed(std::string(row.key) + " 1\nVi 1");
        EXPECT_THAT(messages.texts(MessageKind::Trace), IsEmpty()) << row.key;
    }
}

TEST(MpegAuxInfo, NumbersOfAnySizeAndShape) {
    struct Row {
        char const* text;
        int value;
    };
    for (Row const& row : {Row{"7abc", 7},
                           {"abc", 0},
                           {"-5", -5},
                           {"+5", 5},
                           {"0x10", 0},
                           {"\t7", 7},
                           {"1.9", 1},
                           {"2147483647", INT_MAX},
                           {"-2147483648", INT_MIN},
                           {"2147483648", INT_MIN},
                           {"4294967297", 1},
                           {"99999999999", 1215752191},
                           {"99999999999999999999", -1},
                           {"-99999999999999999999", 0}}) {
        for (KeyRow const& key : keyRows) {
            if (key.index == 1 || key.index == 14) {
                continue;
            }
            MpegAuxInfo const aux = parsed(std::string(key.key) + " " + row.text);
            // The product keeps its low 32 bits.
            auto const expected = static_cast<std::int32_t>(
                static_cast<std::uint32_t>(static_cast<long long>(row.value) * key.factor));
            EXPECT_EQ(numbersOf(aux)[key.index], expected) << key.key << " " << row.text;
            EXPECT_TRUE(aux.isValid());
        }
    }
    EXPECT_EQ(parsed("nl16 99999999999").numLines, -2022801424);
    EXPECT_EQ(parsed("np16 134217728").numPixels, INT_MIN);
    EXPECT_EQ(parsed("bit 268435457").numPixels, 16);
    EXPECT_EQ(static_cast<unsigned>(parsed("ar 4294967297").getAspectRatio()), 1U);
}

TEST(MpegAuxInfo, BitRatesOfAnySizeAndShape) {
    EXPECT_EQ(parsed("Br 1e300").bitRate, 1e300);
    EXPECT_EQ(parsed("Br -1.5").bitRate, -1.5);
    EXPECT_EQ(parsed("Br 5e6x").bitRate, 5e6);
    EXPECT_EQ(parsed("Br x").bitRate, 0.0);
    EXPECT_TRUE(std::isnan(parsed("Br nan").bitRate));
    EXPECT_TRUE(std::isinf(parsed("Br inf").bitRate));
    EXPECT_TRUE(std::isinf(parsed("Br 1e999").bitRate));
}

TEST(MpegAuxInfo, CopiesMemberWise) {
    MpegAuxInfo source = parsed("Ver 3\nBr 5\nar 1\nbad");
    Numbers const numbers = numbersOf(source);
    MpegAuxInfo const copy(source);
    source.init("Ver 4");
    EXPECT_EQ(numbersOf(copy), numbers);
    EXPECT_STREQ(copy.getRawStr(), "Ver 3\nBr 5\nar 1\nbad");
    EXPECT_FALSE(copy.isValid());
}

TEST(MpegAuxInfo, SetAspectRatioWritesOverTheLetterR) {
    struct Row {
        char const* text;
        MpegAuxInfo::AspectRatio ratio;
        char const* edited;
    };
    auto const otherRatio = static_cast<MpegAuxInfo::AspectRatio>(2);
    for (Row const& row : {Row{"ar=0", MpegAuxInfo::aspect16x9, "a1=0"},
                           {"ar=1", MpegAuxInfo::aspect4x3, "a0=1"},
                           {"ar=1", otherRatio, "a0=1"},
                           {"Ver 1\nbar= 0\nar=0", MpegAuxInfo::aspect16x9, "Ver 1\nba1= 0\nar=0"},
                           {"Ver ar=", MpegAuxInfo::aspect16x9, "Ver a1="}}) {
        MpegAuxInfo aux = parsed(row.text);
        bool const validBefore = aux.isValid();
        Numbers const before = numbersOf(aux);
        MessageCapture messages;
        EXPECT_TRUE(aux.setAspectRatio(row.ratio).success()) << row.text;
        EXPECT_STREQ(aux.getRawStr(), row.edited);
        EXPECT_EQ(numbersOf(aux), before);
        EXPECT_EQ(aux.isValid(), validBefore);
        EXPECT_THAT(messages.texts(MessageKind::Trace), IsEmpty());
    }
}

TEST(MpegAuxInfo, SetAspectRatioKeepsTheRatioThatWasParsed) {
    MpegAuxInfo aux = parsed("ar 0\nar= 0");
    ASSERT_TRUE(aux.setAspectRatio(MpegAuxInfo::aspect16x9).success());
    EXPECT_STREQ(aux.getRawStr(), "ar 0\na1= 0");
    EXPECT_EQ(aux.getAspectRatio(), MpegAuxInfo::aspect4x3);
}

TEST(MpegAuxInfo, SetAspectRatioTwiceFindsItsKeyNoMore) {
    MpegAuxInfo aux = parsed("ar=0");
    ASSERT_TRUE(aux.setAspectRatio(MpegAuxInfo::aspect16x9).success());
    EXPECT_EQ(aux.setAspectRatio(MpegAuxInfo::aspect16x9).getCode(), 13);
    EXPECT_STREQ(aux.getRawStr(), "a1=0");
}

TEST(MpegAuxInfo, SetAspectRatioNeedsAText) {
    MpegAuxInfo aux;
    OpResult const result = aux.setAspectRatio(MpegAuxInfo::aspect16x9);
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), 7);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().file, "map_aux_info.cpp");
    EXPECT_STREQ(result.getLocation().function, "setAspectRatio");
    EXPECT_NE(result.getLocation().line, 0U);
}

TEST(MpegAuxInfo, SetAspectRatioNeedsItsKeyInTheText) {
    for (char const* text : {"ar 1", "AR=1", "a r=", "ar", "Ver 1\na", "a=r"}) {
        MpegAuxInfo aux = parsed(text);
        OpResult const result = aux.setAspectRatio(MpegAuxInfo::aspect16x9);
        EXPECT_EQ(result.getType(), OpResult::Error) << text;
        EXPECT_EQ(result.getCode(), 13) << text;
        EXPECT_STREQ(result.getText(), "aux info does not contain aspect ratio");
        EXPECT_STREQ(aux.getRawStr(), text);
    }
}

TEST(DvAuxInfo, IsValidByTheTopBitsOfByteThree) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        AuxInfo const aux = auxOf({0xFF, 0xFF, 0xFF, byte, 0xFF, 0xFF, 0xFF, 0xFF});
        EXPECT_EQ(DvAuxInfo(trackMediaDv25_525, aux).isValid(), byte / 64 == 1) << byte;
        EXPECT_EQ(DvAuxInfo(trackMediaAudioPCM_24, aux).isValid(), byte / 64 == 1) << byte;
    }
    EXPECT_FALSE(DvAuxInfo(trackMediaDv100, auxOf({})).isValid());
}

TEST(DvAuxInfo, AspectRatioOfEachMediaTypeAndBit) {
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        int aspectBit = -1;
        if (mediaType == 13 || mediaType == 14) {
            aspectBit = 4;
        }
        if (mediaType == 15 || mediaType == 16) {
            aspectBit = 1;
        }
        for (int bit = 0; bit < 64; ++bit) {
            DvAuxInfo const aux(static_cast<TrackMediaType>(mediaType),
                                auxWithBit(static_cast<unsigned>(bit)));
            bool const wide = mediaType == 25 || bit == aspectBit;
            EXPECT_EQ(aux.getAspectRatio(), wide ? DvAuxInfo::aspect16x9 : DvAuxInfo::aspect4x3)
                << "media type " << mediaType << " bit " << bit;
        }
    }
}

TEST(DvAuxInfo, SetAspectRatioOfEachMediaType) {
    for (unsigned mediaType = 0; mediaType < 128; ++mediaType) {
        AuxInfo const none = auxOf({0, 0, 0, 0x40, 0, 0, 0, 0});
        DvAuxInfo aux(static_cast<TrackMediaType>(mediaType), none);
        bool const hasBit = mediaType >= 13 && mediaType <= 16;
        bool const always = mediaType == 25;

        aux.setAspectRatio(DvAuxInfo::aspect16x9);
        EXPECT_EQ(static_cast<unsigned>(aux.getAspectRatio()), hasBit || always ? 1U : 0U)
            << mediaType;
        EXPECT_TRUE(aux.isValid());
        aux.setAspectRatio(DvAuxInfo::aspect4x3);
        EXPECT_EQ(static_cast<unsigned>(aux.getAspectRatio()), always ? 1U : 0U) << mediaType;
        EXPECT_TRUE(aux.isValid());
        aux.setAspectRatio(DvAuxInfo::aspect16x9);
        aux.setAspectRatio(static_cast<DvAuxInfo::AspectRatio>(2));
        EXPECT_EQ(static_cast<unsigned>(aux.getAspectRatio()), always ? 1U : 0U) << mediaType;
        EXPECT_EQ(none.bytes[0], 0U);
    }
}

TEST(AvciAuxInfo, ClassAndValidityOfEveryFirstByte) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        unsigned const low = byte % 16;
        unsigned const encoding = low == 1 || low == 2 ? low : 0;
        bool const valid = encoding != 0 && byte / 16 % 4 == 3;
        for (unsigned const others : {0x00U, 0xFFU}) {
            AvciAuxInfo const aux(
                auxOf({byte, others, others, others, others, others, others, others}));
            EXPECT_EQ(static_cast<unsigned>(aux.getClassEncoding()), encoding) << byte;
            EXPECT_EQ(aux.isValid(), valid) << byte;
        }
    }
}

TEST(AncillaryDataAuxInfo, FormatAndValidityOfEveryThirdByte) {
    for (unsigned byte = 0; byte < 256; ++byte) {
        unsigned const format = byte == 1 || byte == 2 ? byte : 0;
        for (unsigned const others : {0x00U, 0x01U, 0xFFU}) {
            AncillaryDataAuxInfo const aux(
                auxOf({others, others, byte, others, others, others, others, others}));
            EXPECT_EQ(static_cast<unsigned>(aux.getPresentationFormat()), format) << byte;
            EXPECT_EQ(aux.isValid(), format != 0) << byte;
        }
    }
}

TEST(AncillaryDataAuxInfo, FieldSizeIsLittleEndian) {
    EXPECT_EQ(AncillaryDataAuxInfo(auxOf({9, 9, 9, 9, 0x34, 0x12, 9, 9})).getFieldByteSize(),
              0x1234);
    EXPECT_EQ(AncillaryDataAuxInfo(auxOf({0, 0, 0, 0, 0xFF, 0xFF, 0, 0})).getFieldByteSize(),
              65535);
    EXPECT_EQ(AncillaryDataAuxInfo(auxOf({})).getFieldByteSize(), 0);
}
