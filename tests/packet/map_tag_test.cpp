#include <gxftypes/packet/gxf.h>

#include <cstring>
#include <limits>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include <testing/capture.h>
#include <testing/stream_builder.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

using MapTag = Tag<MapTagType>;
using TrackTag = Tag<TrackDescTagType>;
using MapTagSet = TagSet<MapTagType, 8U>;
using TrackTagSet = TagSet<TrackDescTagType, 8U>;

/// A tag that takes its value from these bytes, all of which its list may use.
template <typename T> AutoPtr<Tag<T>> decoded(Bytes bytes) {
    AutoPtr<Tag<T>> tag(new Tag<T>);
    GxfBuffer buffer = bytes.filledBuffer();
    OpResult const result = tag->decode(buffer, 257);
    EXPECT_TRUE(result) << result.toString();
    return tag;
}
AutoPtr<MapTag> mapTag(Bytes const& bytes) { return decoded<MapTagType>(bytes); }
AutoPtr<TrackTag> trackTag(Bytes const& bytes) { return decoded<TrackDescTagType>(bytes); }

template <typename T> Bytes encoded(Tag<T> const& tag) {
    Bytes room;
    room.fill(600);
    GxfBuffer buffer = room.emptyBuffer();
    OpResult const result = tag.encode(buffer);
    EXPECT_TRUE(result) << result.toString();
    return Bytes::occupied(buffer);
}

template <typename Object> std::string textAt(unsigned indent, Object const& object) {
    FormatStr text(128);
    EXPECT_EQ(&object.toString(indent, text), &text);
    return text.get();
}

template <typename Object> std::string plainText(Object const& object) {
    return object.toString().get();
}

std::string unnamed(unsigned number) {
    std::ostringstream text;
    text << "?(type=0x" << std::hex << number << ")";
    return text.str();
}

struct MapRow {
    MapTagType type;
    unsigned number;
    TagDataType dataType;
    char const* name;
};
constexpr MapRow mapRows[] = {
    {mapTagMedia, 0x40, tagString, "media"},
    {mapTagFirstField, 0x41, tagUint32, "1stField"},
    {mapTagLastField, 0x42, tagUint32, "lastField"},
    {mapTagMarkIn, 0x43, tagUint32, "markIn"},
    {mapTagMarkOut, 0x44, tagUint32, "markOut"},
    {mapTagSizeEst, 0x45, tagUint32, "sizeEst"},
    {mapTagRsv46, 0x46, tagUint32, "rsv46"},
    {mapTagRsv47, 0x47, tagUint64, "rsv47"},
    {mapTagRsv48, 0x48, tagString, "rsv48"},
    {mapTagRsv49, 0x49, tagString, "rsv49"},
    {mapTagRsv4A, 0x4A, tagString, "rsv4A"},
    {mapTagRsv4B, 0x4B, tagString, "rsv48"},
};

struct TrackRow {
    TrackDescTagType type;
    unsigned number;
    TagDataType dataType;
    char const* name;
};
constexpr TrackRow trackRows[] = {
    {trackTagMedia, 0x4C, tagString, "media"},
    {trackTagAux, 0x4D, tagAuxInfo, "aux"},
    {trackTagFs, 0x4E, tagUint32, "fs"},
    {trackTagMpegAux, 0x4F, tagString, "mpegAux"},
    {trackTagFrameRate, 0x50, tagInt32, "frameRate"},
    {trackTagLines, 0x51, tagInt32, "lines"},
    {trackTagFields, 0x52, tagInt32, "fields"},
    {trackTagAvcAux, 0x56, tagString, "avcAux"},
};

/// Types that no tag has, those next to the tables among them and some whose low byte is a tag's.
template <typename Row, std::size_t n> std::vector<unsigned> numbersOutside(Row const (&rows)[n]) {
    std::vector<unsigned> numbers;
    for (unsigned number = 0; number < 0x200; ++number) {
        bool known = false;
        for (Row const& row : rows) {
            known = known || row.number == number;
        }
        if (!known) {
            numbers.push_back(number);
        }
    }
    numbers.push_back(0x80000041U);
    numbers.push_back(0xFFFFFFFFU);
    return numbers;
}

} // namespace

TEST(TagTable, DataTypesHaveTheirNumbers) {
    EXPECT_EQ(tagUint8, 0U);
    EXPECT_EQ(tagUint16, 1U);
    EXPECT_EQ(tagUint32, 2U);
    EXPECT_EQ(tagInt32, 3U);
    EXPECT_EQ(tagUint64, 4U);
    EXPECT_EQ(tagAuxInfo, 5U);
    EXPECT_EQ(tagString, 6U);
    EXPECT_EQ(tagUnknown, 7U);
}

TEST(TagTable, EveryMaterialTag) {
    for (MapRow const& row : mapRows) {
        SCOPED_TRACE(row.number);
        EXPECT_EQ(row.type, row.number);
        EXPECT_EQ(getDataType(row.type), row.dataType);
        EXPECT_STREQ(getName(row.type), row.name);
    }
}

TEST(TagTable, EveryTrackTag) {
    for (TrackRow const& row : trackRows) {
        SCOPED_TRACE(row.number);
        EXPECT_EQ(row.type, row.number);
        EXPECT_EQ(getDataType(row.type), row.dataType);
        EXPECT_STREQ(getName(row.type), row.name);
    }
}

TEST(TagTable, NumbersWithoutADataType) {
    std::vector<unsigned> const outsideMap = numbersOutside(mapRows);
    EXPECT_EQ(outsideMap.size(), 0x200U - 12U + 2U);
    for (unsigned const number : outsideMap) {
        EXPECT_EQ(getDataType(static_cast<MapTagType>(number)), tagUnknown) << number;
        EXPECT_EQ(getName(static_cast<MapTagType>(number)), unnamed(number));
    }
    std::vector<unsigned> const outsideTrack = numbersOutside(trackRows);
    EXPECT_EQ(outsideTrack.size(), 0x200U - 8U + 2U);
    for (unsigned const number : outsideTrack) {
        EXPECT_EQ(getDataType(static_cast<TrackDescTagType>(number)), tagUnknown) << number;
        EXPECT_EQ(getName(static_cast<TrackDescTagType>(number)), unnamed(number));
    }
    EXPECT_STREQ(getName(static_cast<MapTagType>(0x4C)), "?(type=0x4c)");
    EXPECT_STREQ(getName(static_cast<MapTagType>(0x3F)), "?(type=0x3f)");
    EXPECT_STREQ(getName(static_cast<TrackDescTagType>(0x4B)), "?(type=0x4b)");
    EXPECT_STREQ(getName(static_cast<TrackDescTagType>(0x53)), "?(type=0x53)");
    EXPECT_STREQ(getName(static_cast<TrackDescTagType>(0x57)), "?(type=0x57)");
}

TEST(AuxInfo, ResetAndSet) {
    AuxInfo const source{{1, 2, 3, 4, 5, 6, 7, 8}};
    AuxInfo aux{{9, 9, 9, 9, 9, 9, 9, 9}};
    aux.set(source);
    for (unsigned i = 0; i < 8; ++i) {
        EXPECT_EQ(aux.bytes[i], i + 1);
    }
    aux.reset();
    for (std::uint8_t const byte : aux.bytes) {
        EXPECT_EQ(byte, 0U);
    }
}

TEST(AuxInfo, GetBitsStaysInOneByte) {
    AuxInfo const aux{{0xB5, 0xFF, 0x00, 0xC3, 0x3C, 0x0F, 0xF0, 0x81}};
    struct {
        unsigned bit, count, expected;
    } const rows[] = {
        {0, 8, 0xB5}, {0, 1, 1},    {1, 1, 0},     {2, 1, 1},     {4, 4, 0xB},
        {0, 4, 5},    {6, 2, 2},    {6, 4, 2},     {7, 8, 1},     {8, 8, 0xFF},
        {16, 8, 0},   {22, 8, 0},   {30, 2, 3},    {24, 2, 3},    {26, 3, 0},
        {30, 8, 3},   {34, 4, 0xF}, {40, 8, 0x0F}, {48, 4, 0},    {52, 4, 15},
        {56, 1, 1},   {57, 6, 0},   {63, 1, 1},    {63, 8, 1},    {0, 0, 0},
        {0, 7, 0x35}, {0, 9, 0xB5}, {0, 32, 0xB5}, {0, 64, 0xB5}, {3, 0xFFFFFFFF, 0x16},
    };
    for (auto const& row : rows) {
        EXPECT_EQ(aux.getBits(row.bit, row.count), row.expected) << row.bit << ", " << row.count;
    }
}

TEST(AuxInfo, EveryBitIsSetAndClearedAlone) {
    for (unsigned bit = 0; bit < 64; ++bit) {
        AuxInfo zeros{};
        AuxInfo ones{{255, 255, 255, 255, 255, 255, 255, 255}};
        zeros.setBit(bit);
        zeros.setBit(bit);
        ones.clearBit(bit);
        ones.clearBit(bit);
        for (unsigned byte = 0; byte < 8; ++byte) {
            unsigned const expected = byte == bit / 8 ? 1U << (bit % 8) : 0U;
            EXPECT_EQ(zeros.bytes[byte], expected) << bit;
            EXPECT_EQ(ones.bytes[byte], 255U - expected) << bit;
        }
        EXPECT_EQ(zeros.getBits(bit, 1), 1U);
        EXPECT_EQ(ones.getBits(bit, 1), 0U);
        zeros.clearBit(bit);
        EXPECT_EQ(zeros.bytes[bit / 8], 0U);
    }
}

TEST(AuxInfo, DecodesAndEncodesEightBytesInOrder) {
    Bytes input{0x10, 0x21, 0x32, 0x43, 0x54, 0x65, 0x76, 0x87, 0x98};
    GxfBuffer buffer = input.filledBuffer();
    AuxInfo aux;
    aux.decode(buffer);
    EXPECT_EQ(buffer.nOccupied(), 1U);
    EXPECT_EQ(buffer.beginOffset(), 8U);
    FormatStr text("aux ");
    EXPECT_EQ(&aux.toString(text), &text);
    EXPECT_STREQ(text.get(), "aux 0x10.21.32.43.54.65.76.87");
    Bytes room;
    room.fill(9);
    GxfBuffer out = room.emptyBuffer();
    aux.encode(out);
    EXPECT_EQ(Bytes::occupied(out), (Bytes{0x10, 0x21, 0x32, 0x43, 0x54, 0x65, 0x76, 0x87}));
}

TEST(AuxInfo, MissingBytesAreZero) {
    for (unsigned present = 0; present < 8; ++present) {
        Bytes input;
        input.fill(present, 0xEE);
        GxfBuffer buffer = input.filledBuffer();
        AuxInfo aux;
        aux.decode(buffer);
        for (unsigned i = 0; i < 8; ++i) {
            EXPECT_EQ(aux.bytes[i], i < present ? 0xEEU : 0U);
        }
        EXPECT_EQ(buffer.nOccupied(), 0U);
        EXPECT_EQ(buffer.beginOffset(), 8U);
    }
}

TEST(TaggedString, HoldsOneArray) {
    TaggedString text;
    text.init();
    EXPECT_EQ(text.get(), nullptr);
    text.free();
    EXPECT_EQ(text.get(), nullptr);
    char* const first = new char[2]{'a', 0};
    AutoArrayPtr<char> const source(first);
    text = source;
    EXPECT_EQ(text.get(), first);
    EXPECT_EQ(source.get(), nullptr);
    char* const second = new char[2]{'b', 0};
    text = AutoArrayPtr<char>(second);
    EXPECT_EQ(text.get(), second);
    text.init();
    EXPECT_EQ(text.get(), nullptr);
    text = AutoArrayPtr<char>(second);
    text.free();
    EXPECT_EQ(text.get(), nullptr);
}

TEST(TaggedString, PrintsLineByLine) {
    struct {
        char const* text;
        unsigned indent;
        char const* expected;
    } const rows[] = {
        {"", 4, ""},
        {"abc", 4, "abc"},
        {"a\nb", 0, "a,\nb"},
        {"a\nb", 2, "a,\n  b"},
        {"a\rb", 1, "a,\n b"},
        {"a\r\nb", 1, "a,\n b"},
        {"a\n\r\n\n\rb", 1, "a,\n b"},
        {"a\n", 2, "a"},
        {"a\r\n\r\n", 2, "a"},
        {"\n", 2, ""},
        {"\r", 2, ""},
        {"\n\n\n", 2, ""},
        {"\na", 2, ",\n  a"},
        {"\r\n\na\n", 3, ",\n   a"},
        {"one\ntwo\rthree\n\nfour\n", 4, "one,\n    two,\n    three,\n    four"},
        {" a \n b ", 0, " a ,\n b "},
        {"100%\n%n%s%x%%", 1, "100%,\n %n%s%x%%"},
        {"\t\v\x01\xff", 1, "\t\v\x01\xff"},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.expected);
        Bytes const bytes = Bytes().text(row.text).u8(0);
        TaggedString text;
        text.init();
        text = AutoArrayPtr<char>(new char[bytes.size()]);
        std::memcpy(const_cast<char*>(text.get()), bytes.data(), bytes.size());
        FormatStr out("<");
        EXPECT_EQ(&text.toString(row.indent, out), &out);
        EXPECT_EQ(std::string(out.get()), std::string("<") + row.expected);
        text.free();
    }
}

TEST(TaggedString, NullPrintsNothing) {
    TaggedString text;
    text.init();
    FormatStr out("x");
    EXPECT_EQ(&text.toString(3, out), &out);
    EXPECT_STREQ(out.get(), "x");
}

TEST(Tag, ADefaultTagIsUnknownAndEmpty) {
    MapTag const tag;
    TrackTag const trackTag;
    EXPECT_EQ(tag.getType(), 0U);
    EXPECT_EQ(trackTag.getType(), 0U);
    EXPECT_EQ(tag.getCodedLength(), 2U);
    char const* text = "unset";
    EXPECT_TRUE(tag.getValue(text));
    EXPECT_EQ(text, nullptr);
    EXPECT_FALSE(tag.isEqual(tag));
    EXPECT_FALSE(trackTag.isEqual(trackTag));
    EXPECT_FALSE(tag.isEqual(MapTag()));
    EXPECT_FALSE(tag.isEqual(*mapTag(tagU32(0x41, 0))));
    EXPECT_EQ(plainText(tag), "?(type=0x0)=?");
    EXPECT_EQ(textAt(5, trackTag), "?(type=0x0)=?");
}

TEST(Tag, ADefaultTagEncodesTwoZeroBytesAndFails) {
    Bytes room;
    room.fill(8, 0xAA);
    GxfBuffer buffer = room.emptyBuffer();
    OpResult const result = MapTag().encode(buffer);
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), 13);
    EXPECT_STREQ(result.getText(), "Tag type=0,len=0 unknown");
    EXPECT_EQ(Bytes::occupied(buffer), (Bytes{0, 0}));
}

TEST(Tag, PrintsEveryDataType) {
    struct {
        Bytes bytes;
        std::string text;
    } const mapTags[] = {
        {tagU32(0x41, 0), "1stField=0"},
        {tagU32(0x42, 0xFFFFFFFF), "lastField=4294967295"},
        {tagU32(0x43, 0x01020304), "markIn=16909060"},
        {tagU32(0x44, 0x80000000), "markOut=2147483648"},
        {tagU32(0x45, 771), "sizeEst=771"},
        {tagU32(0x46, 1), "rsv46=1"},
        {tag(0x47, Bytes().u64(0xFFFFFFFFFFFFFFFF)), "rsv47=18446744073709551615"},
        {tag(0x47, Bytes().u64(0x0102030405060708)), "rsv47=72623859790382856"},
        {tagText(0x40, "clip"), "media={clip}"},
        {tagText(0x48, ""), "rsv48={}"},
        {tagText(0x49, "a\nb"), "rsv49={a,\nb}"},
        {tagText(0x4A, "%s%n"), "rsv4A={%s%n}"},
        {tagText(0x4B, "x"), "rsv48={x}"},
    };
    for (auto const& row : mapTags) {
        AutoPtr<MapTag> const tag = mapTag(row.bytes);
        EXPECT_EQ(plainText(*tag), row.text);
        EXPECT_EQ(textAt(0, *tag), row.text);
    }
    struct {
        Bytes bytes;
        std::string text;
    } const trackTags[] = {
        {tagText(0x4C, "V1"), "media={V1}"},
        {Bytes{0x4D, 8, 0, 1, 0x7F, 0x80, 0xFF, 0x0A, 0xA0, 9}, "aux=0x00.01.7f.80.ff.0a.a0.09"},
        {tagU32(0x4E, 0xFFFFFFFE), "fs=4294967294"},
        {tagText(0x4F, "Ver 1\nBr 2\n"), "mpegAux={Ver 1,\nBr 2}"},
        {tagU32(0x50, 0xFFFFFFFE), "frameRate=-2"},
        {tagU32(0x51, 0x80000000), "lines=-2147483648"},
        {tagU32(0x52, 0x7FFFFFFF), "fields=2147483647"},
        {tagText(0x56, "ar 1"), "avcAux={ar 1}"},
    };
    for (auto const& row : trackTags) {
        EXPECT_EQ(plainText(*trackTag(row.bytes)), row.text);
    }
}

TEST(Tag, OnlyTextsAreIndented) {
    EXPECT_EQ(textAt(3, *mapTag(tagText(0x40, "a\nb"))), "media={\n   a,\n   b}");
    EXPECT_EQ(textAt(1, *mapTag(tagText(0x40, ""))), "media={\n }");
    EXPECT_EQ(textAt(3, *mapTag(tagU32(0x41, 7))), "1stField=7");
    EXPECT_EQ(textAt(3, *mapTag(tag(0x47, Bytes().u64(7)))), "rsv47=7");
    EXPECT_EQ(textAt(3, *trackTag(tagU32(0x50, 7))), "frameRate=7");
    EXPECT_EQ(textAt(3, *trackTag(Bytes{0x4D, 8, 1, 0, 0, 0, 0, 0, 0, 2})),
              "aux=0x01.00.00.00.00.00.00.02");
}

TEST(Tag, ToStringGoesThroughTheVirtualOperation) {
    class Loud : public MapTag {
      public:
        using MapTag::toString;
        FormatStr& toString(unsigned indent, FormatStr& text) const override {
            return text.format("loud at %u", indent);
        }
    };
    Loud const tag;
    MapTag const& asTag = tag;
    EXPECT_STREQ(asTag.toString().get(), "loud at 0");
    MapTagSet set(true);
    set.addTag(AutoPtr<MapTag>(new Loud));
    EXPECT_EQ(textAt(6, set), "loud at 6");
}

TEST(Tag, DecodesValues) {
    int number = 0;
    char const* text = nullptr;
    AuxInfo aux{};
    AutoPtr<MapTag> const unsignedTag = mapTag(tagU32(0x45, 0x01020304));
    EXPECT_EQ(unsignedTag->getType(), mapTagSizeEst);
    EXPECT_EQ(unsignedTag->getCodedLength(), 6U);
    EXPECT_TRUE(unsignedTag->getValue(number));
    EXPECT_EQ(number, 0x01020304);
    EXPECT_TRUE(trackTag(tagU32(0x52, 0xFFFFFFFF))->getValue(number));
    EXPECT_EQ(number, -1);
    EXPECT_TRUE(mapTag(tagU32(0x42, 0xFFFFFFF0))->getValue(number));
    EXPECT_EQ(number, -16);
    AutoPtr<MapTag> const textTag = mapTag(tagText(0x40, "SPOT"));
    EXPECT_EQ(textTag->getCodedLength(), 7U);
    EXPECT_TRUE(textTag->getValue(text));
    EXPECT_STREQ(text, "SPOT");
    EXPECT_TRUE(trackTag(Bytes{0x4D, 8, 1, 2, 3, 4, 5, 6, 7, 8})->getValue(aux));
    EXPECT_EQ(aux.bytes[0], 1U);
    EXPECT_EQ(aux.bytes[7], 8U);
}

TEST(Tag, DecodeConsumesTheWidthAndCountsTheLength) {
    struct {
        unsigned number, length, consumed;
    } const mapTags[] = {
        {0x41, 0, 6},  {0x41, 2, 6},     {0x41, 4, 6},     {0x41, 8, 6}, {0x46, 255, 6},
        {0x47, 0, 10}, {0x47, 8, 10},    {0x47, 200, 10},  {0x40, 0, 2}, {0x40, 1, 3},
        {0x49, 9, 11}, {0x4B, 100, 102}, {0x48, 255, 257},
    };
    for (auto const& row : mapTags) {
        SCOPED_TRACE(testing::Message() << row.number << ", " << row.length);
        Bytes bytes = Bytes().u8(row.number).u8(row.length).fill(400, 'x');
        GxfBuffer buffer = bytes.filledBuffer();
        MapTag tag;
        EXPECT_TRUE(tag.decode(buffer, row.length + 2));
        EXPECT_EQ(buffer.beginOffset(), row.consumed);
        EXPECT_EQ(tag.getCodedLength(), row.length + 2);
    }
    for (unsigned const length : {0U, 2U, 8U, 30U}) {
        Bytes bytes = Bytes().u8(0x4D).u8(length).fill(40, 1);
        GxfBuffer buffer = bytes.filledBuffer();
        TrackTag tag;
        EXPECT_TRUE(tag.decode(buffer, 32));
        EXPECT_EQ(buffer.beginOffset(), 10U);
        EXPECT_EQ(tag.getCodedLength(), length + 2);
    }
}

TEST(Tag, DecodeOfAShortListConsumesNothing) {
    for (unsigned const remaining : {0U, 1U}) {
        Bytes bytes = tagText(0x40, "new");
        GxfBuffer buffer = bytes.filledBuffer();
        AutoPtr<MapTag> const tag = mapTag(tagText(0x48, "old"));
        OpResult const result = tag->decode(buffer, remaining);
        EXPECT_EQ(result.getType(), OpResult::Error);
        EXPECT_EQ(result.getCode(), 9);
        EXPECT_STREQ(result.getText(), "");
        EXPECT_STREQ(result.getLocation().file, "map_tag.cpp");
        EXPECT_STREQ(result.getLocation().function, "decode");
        EXPECT_NE(result.getLocation().line, 0U);
        EXPECT_EQ(buffer.beginOffset(), 0U);
        EXPECT_EQ(tag->getType(), mapTagRsv48);
        EXPECT_EQ(tag->getCodedLength(), 6U);
    }
}

TEST(Tag, DecodeRefusesALengthThatOverrunsTheList) {
    struct {
        unsigned length, remaining;
        bool fits;
    } const rows[] = {{0, 2, true},     {1, 2, false},
                      {4, 5, false},    {4, 6, true},
                      {4, 7, true},     {255, 256, false},
                      {255, 257, true}, {255, std::numeric_limits<unsigned>::max(), true}};
    for (auto const& row : rows) {
        SCOPED_TRACE(testing::Message() << row.length << " of " << row.remaining);
        Bytes bytes = Bytes().u8(0x40).u8(row.length).fill(255, 'y');
        GxfBuffer buffer = bytes.filledBuffer();
        MapTag tag;
        OpResult const result = tag.decode(buffer, row.remaining);
        EXPECT_EQ(result.success(), row.fits);
        EXPECT_EQ(tag.getType(), mapTagMedia);
        EXPECT_EQ(tag.getCodedLength(), row.length + 2);
        EXPECT_EQ(buffer.beginOffset(), row.fits ? row.length + 2 : 2U);
        if (!row.fits) {
            EXPECT_EQ(result.getCode(), 9);
            EXPECT_STREQ(result.getText(), "");
            EXPECT_STREQ(result.getLocation().function, "decode");
            char const* text = "unset";
            EXPECT_TRUE(tag.getValue(text));
            EXPECT_EQ(text, nullptr);
        }
    }
}

TEST(Tag, DecodeRefusesUnknownNumbers) {
    for (unsigned number = 0; number < 256; ++number) {
        Bytes bytes = Bytes().u8(number).u8(4).fill(16, 0x31);
        std::string const text = "Tag type=" + std::to_string(number) + ",len=4 unknown";
        if (number < 0x40 || number > 0x4B) {
            GxfBuffer buffer = bytes.filledBuffer();
            MapTag tag;
            OpResult const result = tag.decode(buffer, 6);
            EXPECT_EQ(result.getType(), OpResult::Error);
            EXPECT_EQ(result.getCode(), 10);
            EXPECT_EQ(result.getText(), text);
            EXPECT_EQ(buffer.beginOffset(), 2U);
            EXPECT_EQ(tag.getType(), number);
            EXPECT_EQ(tag.getCodedLength(), 6U);
        }
        if (number < 0x4C || number > 0x56 || (number >= 0x53 && number <= 0x55)) {
            GxfBuffer buffer = bytes.filledBuffer();
            TrackTag tag;
            OpResult const result = tag.decode(buffer, 6);
            EXPECT_EQ(result.getCode(), 10);
            EXPECT_EQ(result.getText(), text);
            EXPECT_EQ(buffer.beginOffset(), 2U);
        }
    }
    Bytes bytes{0x53, 4, 1, 2, 3, 4};
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_STREQ(TrackTag().decode(buffer, 6).getText(), "Tag type=83,len=4 unknown");
}

TEST(Tag, AnUnknownNumberThatOverrunsTheListIsASizeFailure) {
    Bytes bytes{0x53, 5, 1, 2, 3, 4, 5};
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_EQ(TrackTag().decode(buffer, 6).getCode(), 9);
}

TEST(Tag, MissingBytesReadAsZeroInTheirPlaces) {
    char const* const numbers[] = {"1stField=0", "1stField=285212672", "1stField=287440896",
                                   "1stField=287453952"};
    for (unsigned present = 0; present < 4; ++present) {
        Bytes bytes = Bytes{0x41, 4};
        for (unsigned i = 0; i < present; ++i) {
            bytes.u8(0x11 * (i + 1));
        }
        GxfBuffer buffer = bytes.filledBuffer();
        MapTag tag;
        EXPECT_TRUE(tag.decode(buffer, 6));
        EXPECT_EQ(plainText(tag), numbers[present]);
        EXPECT_EQ(buffer.nOccupied(), 0U);
        EXPECT_EQ(buffer.beginOffset(), 6U);
    }
    Bytes longNumber{0x47, 8, 1, 2, 3, 4, 5};
    GxfBuffer longBuffer = longNumber.filledBuffer();
    MapTag longTag;
    EXPECT_TRUE(longTag.decode(longBuffer, 10));
    EXPECT_EQ(plainText(longTag), "rsv47=72623859789987840"); // 0x0102030405000000
    Bytes text = Bytes{0x40, 200}.text("AB");
    GxfBuffer textBuffer = text.filledBuffer();
    MapTag textTag;
    EXPECT_TRUE(textTag.decode(textBuffer, 202));
    EXPECT_EQ(plainText(textTag), "media={AB}");
    EXPECT_EQ(textTag.getCodedLength(), 202U);
    EXPECT_EQ(textBuffer.beginOffset(), 202U);
}

TEST(Tag, ATextOfLengthZeroIsEmptyAndNotNull) {
    AutoPtr<MapTag> const tag = mapTag(Bytes{0x40, 0});
    char const* text = nullptr;
    EXPECT_TRUE(tag->getValue(text));
    EXPECT_STREQ(text, "");
    EXPECT_TRUE(tag->isEqual(*mapTag(Bytes{0x40, 0})));
    EXPECT_TRUE(tag->isEqual(*tag));
}

TEST(Tag, ASecondDecodeReplacesTheFirst) {
    AutoPtr<MapTag> const tag = mapTag(tagText(0x40, "first"));
    struct {
        Bytes bytes;
        char const* text;
    } rows[] = {{tagText(0x48, "second"), "rsv48={second}"},
                {tagU32(0x41, 5), "1stField=5"},
                {tagText(0x40, "third"), "media={third}"}};
    for (auto& row : rows) {
        GxfBuffer buffer = row.bytes.filledBuffer();
        EXPECT_TRUE(tag->decode(buffer, 50));
        EXPECT_EQ(plainText(*tag), row.text);
    }
    Bytes unknown{0x60, 0};
    GxfBuffer buffer = unknown.filledBuffer();
    EXPECT_FALSE(tag->decode(buffer, 2));
    EXPECT_EQ(plainText(*tag), "?(type=0x60)=?");
}

TEST(Tag, EncodesTheBytesThatItCameFrom) {
    Bytes const mapTags[] = {
        tagText(0x40, "NEWS0417"), tagU32(0x41, 0x80000001),
        tagU32(0x42, 0xFFFFFFFF),  tagU32(0x43, 0),
        tagU32(0x44, 0x01020304),  tagU32(0x45, 5),
        tagU32(0x46, 6),           tag(0x47, Bytes().u64(0x8001020304050607)),
        tagText(0x48, ""),         tagText(0x49, "a\nb\r"),
        tagText(0x4A, "%n%%"),     tagText(0x4B, std::string(254, 'z')),
    };
    for (Bytes const& bytes : mapTags) {
        EXPECT_EQ(encoded(*mapTag(bytes)), bytes);
    }
    Bytes const trackTags[] = {
        tagText(0x4C, "V1"),      Bytes{0x4D, 8, 1, 2, 3, 4, 0xFF, 0xFE, 0x80, 0},
        tagU32(0x4E, 0xFFFFFFFF), tagText(0x4F, "Ver 1\n"),
        tagU32(0x50, 0xFFFFFFFE), tagU32(0x51, 0x10004),
        tagU32(0x52, 2),          tagText(0x56, "ar 1\n"),
    };
    for (Bytes const& bytes : trackTags) {
        EXPECT_EQ(encoded(*trackTag(bytes)), bytes);
    }
}

TEST(Tag, EncodesTheOwnWidthWhateverTheLengthSays) {
    EXPECT_EQ(encoded(*mapTag(Bytes{0x41, 2, 1, 2, 3, 4})), (Bytes{0x41, 2, 1, 2, 3, 4}));
    EXPECT_EQ(encoded(*mapTag(Bytes{0x41, 8, 1, 2, 3, 4, 5, 6, 7, 8})),
              (Bytes{0x41, 8, 1, 2, 3, 4}));
    EXPECT_EQ(encoded(*trackTag(Bytes{0x4D, 0, 1, 2, 3, 4, 5, 6, 7, 8})),
              (Bytes{0x4D, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
}

TEST(Tag, EncodesATextUpToItsFirstZero) {
    EXPECT_EQ(encoded(*mapTag(Bytes{0x40, 3, 'A', 'B', 'C'})), (Bytes{0x40, 3, 'A', 'B', 'C', 0}));
    EXPECT_EQ(encoded(*mapTag(Bytes{0x40, 0})), (Bytes{0x40, 0, 0}));
    EXPECT_EQ(encoded(*mapTag(Bytes{0x40, 4, 'A', 0, 'C', 0})), (Bytes{0x40, 4, 'A', 0}));
    EXPECT_EQ(encoded(*mapTag(Bytes{0x40, 3, 0, 'B', 'C'})), (Bytes{0x40, 3, 0}));
}

TEST(Tag, EncodeWithoutRoomWritesNothing) {
    AutoPtr<MapTag> const tag = mapTag(tagText(0x40, "AB"));
    for (unsigned size = 0; size < 8; ++size) {
        Bytes room;
        room.fill(size, 0xAA);
        GxfBuffer buffer = room.emptyBuffer();
        OpResult const result = tag->encode(buffer);
        if (size >= 5) {
            EXPECT_TRUE(result);
            EXPECT_EQ(Bytes::occupied(buffer), tagText(0x40, "AB"));
            continue;
        }
        EXPECT_EQ(result.getType(), OpResult::Error);
        EXPECT_EQ(result.getCode(), 12);
        EXPECT_STREQ(result.getText(), "");
        EXPECT_STREQ(result.getLocation().file, "map_tag.cpp");
        EXPECT_STREQ(result.getLocation().function, "encode");
        EXPECT_EQ(buffer.nOccupied(), 0U);
    }
}

TEST(Tag, EncodeLooksAtRoomForTheLengthOnly) {
    AutoPtr<MapTag> const number = mapTag(Bytes{0x41, 2, 1, 2, 3, 4});
    AutoPtr<MapTag> const text = mapTag(Bytes{0x40, 2, 'A', 'B'});
    Bytes room;
    room.fill(4);
    GxfBuffer numberBuffer = room.emptyBuffer();
    EXPECT_TRUE(number->encode(numberBuffer));
    EXPECT_EQ(Bytes::occupied(numberBuffer), (Bytes{0x41, 2}));
    GxfBuffer textBuffer = room.emptyBuffer();
    EXPECT_TRUE(text->encode(textBuffer));
    EXPECT_EQ(Bytes::occupied(textBuffer), (Bytes{0x40, 2}));
}

TEST(Tag, EncodesTheLowByteOfATagNumber) {
    Bytes room;
    room.fill(3);
    GxfBuffer buffer = room.emptyBuffer();
    MapTag::encode(mapTagRsv4B, buffer);
    TrackTag::encode(static_cast<TrackDescTagType>(0x12345678), buffer);
    EXPECT_EQ(Bytes::occupied(buffer), (Bytes{0x4B, 0x78}));
}

TEST(Tag, ComparesTypeAndValue) {
    struct {
        Bytes a, b;
        bool equal;
    } const mapTags[] = {
        {tagU32(0x41, 1), tagU32(0x41, 1), true},
        {tagU32(0x41, 1), tagU32(0x42, 1), false},
        {tagU32(0x41, 1), tagU32(0x41, 0x80000001), false},
        {tag(0x47, Bytes().u64(1)), tag(0x47, Bytes().u64(1)), true},
        {tag(0x47, Bytes().u64(1)), tag(0x47, Bytes().u64(0x8000000000000001)), false},
        {tag(0x47, Bytes().u64(1)), tag(0x47, Bytes().u64(0x100000001)), false},
        {tagText(0x40, "a"), tagText(0x40, "a"), true},
        {tagText(0x40, "a"), tagText(0x40, "A"), false},
        {tagText(0x40, "a"), tagText(0x40, "ab"), false},
        {tagText(0x40, "a"), tagText(0x48, "a"), false},
        {tagText(0x48, "a"), tagText(0x4B, "a"), false},
        // The length takes no part, nor what stands behind a text's first zero.
        {Bytes{0x41, 4, 0, 0, 0, 1}, Bytes{0x41, 2, 0, 0, 0, 1}, true},
        {Bytes{0x40, 2, 'a', 0}, Bytes{0x40, 1, 'a'}, true},
        {Bytes{0x40, 3, 'a', 0, 'b'}, Bytes{0x40, 3, 'a', 0, 'c'}, true},
    };
    for (auto const& row : mapTags) {
        AutoPtr<MapTag> const a = mapTag(row.a);
        AutoPtr<MapTag> const b = mapTag(row.b);
        EXPECT_EQ(a->isEqual(*b), row.equal) << row.a << " | " << row.b;
        EXPECT_EQ(b->isEqual(*a), row.equal) << row.a << " | " << row.b;
    }
    struct {
        Bytes a, b;
        bool equal;
    } const trackTags[] = {
        {tagU32(0x50, 0xFFFFFFFE), tagU32(0x50, 0xFFFFFFFE), true},
        {tagU32(0x50, 5), tagU32(0x50, 6), false},
        {tagU32(0x50, 5), tagU32(0x51, 5), false},
        {tagU32(0x4E, 5), tagU32(0x4E, 0x10005), false},
        {Bytes{0x4D, 8, 1, 2, 3, 4, 5, 6, 7, 8}, Bytes{0x4D, 0, 1, 2, 3, 4, 5, 6, 7, 8}, true},
        {Bytes{0x4D, 8, 1, 2, 3, 4, 5, 6, 7, 8}, Bytes{0x4D, 8, 1, 2, 3, 4, 5, 6, 7, 9}, false},
        {Bytes{0x4D, 8, 1, 2, 3, 4, 5, 6, 7, 8}, Bytes{0x4D, 8, 0, 2, 3, 4, 5, 6, 7, 8}, false},
        {tagText(0x4F, "x"), tagText(0x56, "x"), false},
        {tagText(0x56, "x"), tagText(0x56, "x"), true},
    };
    for (auto const& row : trackTags) {
        AutoPtr<TrackTag> const a = trackTag(row.a);
        EXPECT_EQ(a->isEqual(*trackTag(row.b)), row.equal) << row.a << " | " << row.b;
    }
}

TEST(Tag, NullTextsAreEqualToNothing) {
    auto const nullText = [] {
        Bytes bytes{0x40, 9};
        GxfBuffer buffer = bytes.filledBuffer();
        AutoPtr<MapTag> tag(new MapTag);
        EXPECT_FALSE(tag->decode(buffer, 2));
        return tag;
    };
    AutoPtr<MapTag> const a = nullText();
    EXPECT_FALSE(a->isEqual(*a));
    EXPECT_FALSE(a->isEqual(*nullText()));
    AutoPtr<MapTag> const empty = mapTag(Bytes{0x40, 0});
    EXPECT_FALSE(a->isEqual(*empty));
    EXPECT_FALSE(empty->isEqual(*a));
    EXPECT_EQ(plainText(*a), "media={}");
    MapTag const copy(*a);
    char const* text = "unset";
    EXPECT_TRUE(copy.getValue(text));
    EXPECT_EQ(text, nullptr);
    EXPECT_EQ(copy.getCodedLength(), 11U);
    EXPECT_EQ(encoded(copy), (Bytes{0x40, 9}));
}

TEST(Tag, CopiesEveryDataType) {
    for (Bytes const& bytes :
         {tagText(0x40, "clip\nname"), tagText(0x48, ""), tagU32(0x41, 0xFFFFFFFF),
          tag(0x47, Bytes().u64(0xF0F1F2F3F4F5F6F7)), Bytes{0x42, 2, 1, 2, 3, 4}}) {
        AutoPtr<MapTag> const source = mapTag(bytes);
        MapTag const copy(*source);
        EXPECT_TRUE(copy.isEqual(*source));
        EXPECT_EQ(copy.getCodedLength(), source->getCodedLength());
        EXPECT_EQ(encoded(copy), bytes);
    }
    for (Bytes const& bytes : {Bytes{0x4D, 8, 1, 2, 3, 4, 5, 6, 7, 8}, tagU32(0x50, 0xFFFFFFFE),
                               tagU32(0x4E, 7), tagText(0x4F, "Ver 1\n")}) {
        AutoPtr<TrackTag> const source = trackTag(bytes);
        TrackTag const copy(*source);
        EXPECT_TRUE(copy.isEqual(*source));
        EXPECT_EQ(encoded(copy), bytes);
    }
}

TEST(Tag, ACopiedTextIsItsOwn) {
    AutoPtr<MapTag> source = mapTag(tagText(0x40, std::string(254, 'q')));
    MapTag const copy(*source);
    char const* original = nullptr;
    char const* copied = nullptr;
    EXPECT_TRUE(source->getValue(original));
    EXPECT_TRUE(copy.getValue(copied));
    EXPECT_NE(original, copied);
    source = nullptr;
    EXPECT_EQ(copied, std::string(254, 'q'));
}

TEST(Tag, ACopiedTextLosesEachSecondPercentSign) {
    struct {
        char const* source;
        char const* copy;
    } const rows[] = {
        {"100%%", "100%"},
        {"%", "%"},
        {"%%", "%"},
        {"%%%", "%%"},
        {"%%%%", "%%"},
        {"%%%%%", "%%%"},
        {"%n%s%x", "%n%s%x"},
        {"%99999999d%*s%hhn", "%99999999d%*s%hhn"},
        {"%%n%%s", "%n%s"},
        {"a%", "a%"},
        {"% %", "% %"},
        {"%%a%%b%", "%a%b%"},
        {"plain\n", "plain\n"},
    };
    for (auto const& row : rows) {
        SCOPED_TRACE(row.source);
        AutoPtr<MapTag> const source = mapTag(tagText(0x40, row.source));
        MapTag const copy(*source);
        char const* text = nullptr;
        EXPECT_TRUE(copy.getValue(text));
        EXPECT_STREQ(text, row.copy);
        EXPECT_EQ(copy.getCodedLength(), std::string_view(row.source).size() + 3);
        EXPECT_EQ(copy.isEqual(*source), std::string_view(row.source) == row.copy);
        EXPECT_TRUE(source->getValue(text));
        EXPECT_STREQ(text, row.source);
    }
}

TEST(Tag, CopyOfAnUnknownTag) {
    Bytes bytes{0x53, 1, 0x77};
    GxfBuffer buffer = bytes.filledBuffer();
    TrackTag source;
    EXPECT_EQ(source.decode(buffer, 3).getCode(), 10);
    TrackTag const copy(source);
    EXPECT_EQ(copy.getType(), 0x53U);
    EXPECT_EQ(copy.getCodedLength(), 3U);
    EXPECT_FALSE(copy.isEqual(source));
}

TEST(Tag, LogsItsDecodeAboveLevelThree) {
    Bytes bytes = tagU32(0x41, 5).add(tagText(0x40, "%s")).add(Bytes{0x60, 0});
    for (unsigned const level : {3U, 4U}) {
        ChannelSetting const setting(gxfDecodeDetail, level);
        GxfBuffer buffer = bytes.filledBuffer();
        buffer.reset(GxfBuffer::DataState::filled, 0x100000000);
        MessageCapture const messages;
        MapTag first;
        MapTag second;
        MapTag third;
        EXPECT_TRUE(first.decode(buffer, 13));
        EXPECT_TRUE(second.decode(buffer, 7));
        EXPECT_FALSE(third.decode(buffer, 2));
        std::vector<std::string> const expected = {
            "start Tag decode @4294967296\n", "end Tag decode: 1stField=5\n",
            "start Tag decode @4294967302\n", "end Tag decode: media={%s}\n",
            "start Tag decode @4294967307\n"};
        EXPECT_EQ(messages.texts(), level == 3 ? std::vector<std::string>() : expected);
        EXPECT_EQ(messages.texts(MessageKind::Info), messages.texts());
    }
}

TEST(Tag, LogsItsEncodeOnTheDecodersChannel) {
    AutoPtr<MapTag> const tag = mapTag(tagText(0x40, "x"));
    for (unsigned const level : {3U, 4U}) {
        ChannelSetting const decoders(gxfDecodeDetail, level);
        ChannelSetting const encoders(gxfEncodeDetail, level == 3 ? 9 : 0);
        Bytes room;
        room.fill(6);
        GxfBuffer buffer = room.emptyBuffer();
        buffer.reset(GxfBuffer::DataState::empty, 777);
        MessageCapture const messages;
        EXPECT_TRUE(tag->encode(buffer));
        EXPECT_FALSE(tag->encode(buffer));
        EXPECT_FALSE(MapTag().encode(buffer));
        std::vector<std::string> const expected = {
            "start Tag encode @777\n", "end Tag encode: media={x}\n", "start Tag encode @777\n",
            "start Tag encode @777\n"};
        EXPECT_EQ(messages.texts(), level == 3 ? std::vector<std::string>() : expected);
        EXPECT_EQ(messages.texts(MessageKind::Info), messages.texts());
    }
}

TEST(Tag, EachFailureLeavesOneTrace) {
    Bytes bytes{0x60, 0};
    GxfBuffer buffer = bytes.filledBuffer();
    MapTag tag;
    MessageCapture const messages;
    EXPECT_FALSE(tag.decode(buffer, 2));
    EXPECT_FALSE(tag.decode(buffer, 1));
    EXPECT_EQ(messages.count(MessageKind::Trace), 2U);
    EXPECT_EQ(messages.texts(MessageKind::Trace)[0],
              "error badDecodeData: Tag type=96,len=0 unknown\n");
}

TEST(TagSet, FlagAndReset) {
    MapTagSet set(true);
    EXPECT_TRUE(set.isValid());
    EXPECT_EQ(set.size(), 0U);
    set.addTag(mapTag(tagU32(0x41, 1)));
    EXPECT_EQ(set.size(), 1U);
    set.reset(false);
    EXPECT_FALSE(set.isValid());
    EXPECT_EQ(set.size(), 0U);
    set.reset(true);
    EXPECT_TRUE(set.isValid());
    EXPECT_FALSE(TrackTagSet(false).isValid());
}

TEST(TagSet, KeepsTagsInOrderBeyondItsFirstCapacity) {
    MapTagSet set(true);
    for (unsigned i = 0; i < 100; ++i) {
        set.addTag(mapTag(tagU32(0x41 + i % 6, i)));
        ASSERT_EQ(set.size(), i + 1);
    }
    for (unsigned i = 0; i < 100; ++i) {
        MapTag const* const tag = set.getTag(i);
        ASSERT_NE(tag, nullptr);
        int value = -1;
        EXPECT_TRUE(tag->getValue(value));
        EXPECT_EQ(value, static_cast<int>(i));
    }
    EXPECT_EQ(set.getTag(100U), nullptr);
    EXPECT_EQ(set.getTag(std::numeric_limits<unsigned>::max()), nullptr);
    EXPECT_EQ(set.getTag(mapTagMarkIn), set.getTag(2U));
    EXPECT_EQ(set.getTag(mapTagMedia), nullptr);
    set.reset(true);
    EXPECT_EQ(set.getTag(0U), nullptr);
    EXPECT_EQ(set.getTag(mapTagMarkIn), nullptr);
}

TEST(TagSet, GetsTheValueOfTheFirstTagOfAType) {
    TrackTagSet set(true);
    set.addTag(trackTag(tagU32(0x50, 6)));
    set.addTag(trackTag(tagU32(0x50, 5)));
    set.addTag(trackTag(tagText(0x4C, "V1")));
    set.addTag(trackTag(tagText(0x4C, "V2")));
    set.addTag(trackTag(Bytes{0x4D, 8, 1, 2, 3, 4, 5, 6, 7, 8}));
    set.addTag(trackTag(Bytes{0x4D, 8, 9, 2, 3, 4, 5, 6, 7, 8}));
    int number = 0;
    char const* text = nullptr;
    AuxInfo aux{};
    EXPECT_TRUE(set.getValue(trackTagFrameRate, number));
    EXPECT_EQ(number, 6);
    EXPECT_TRUE(set.getValue(trackTagMedia, text));
    EXPECT_STREQ(text, "V1");
    EXPECT_TRUE(set.getValue(trackTagAux, aux));
    EXPECT_EQ(aux.bytes[0], 1U);
    EXPECT_EQ(aux.bytes[7], 8U);
}

TEST(TagSet, AMissingTagLeavesNumbersAndTextsButResetsAux) {
    TrackTagSet set(true);
    set.addTag(trackTag(tagU32(0x50, 6)));
    int number = 1234;
    char const* const before = "before";
    char const* text = before;
    AuxInfo aux{{1, 2, 3, 4, 5, 6, 7, 8}};
    EXPECT_FALSE(set.getValue(trackTagLines, number));
    EXPECT_EQ(number, 1234);
    EXPECT_FALSE(set.getValue(trackTagMedia, text));
    EXPECT_EQ(text, before);
    EXPECT_FALSE(set.getValue(trackTagAux, aux));
    for (std::uint8_t const byte : aux.bytes) {
        EXPECT_EQ(byte, 0U);
    }
}

TEST(TagSet, IsEqualWhateverTheOrder) {
    Bytes const first = tagU32(0x41, 1);
    Bytes const last = tagU32(0x42, 2);
    Bytes const media = tagText(0x40, "m");
    auto const equal = [](std::vector<Bytes> const& a, std::vector<Bytes> const& b) {
        MapTagSet setA(true);
        MapTagSet setB(false);
        for (Bytes const& bytes : a) {
            setA.addTag(mapTag(bytes));
        }
        for (Bytes const& bytes : b) {
            setB.addTag(mapTag(bytes));
        }
        return setA.isEqual(setB);
    };
    EXPECT_TRUE(equal({}, {}));
    EXPECT_TRUE(equal({first, last, media}, {first, last, media}));
    EXPECT_TRUE(equal({first, last, media}, {media, first, last}));
    EXPECT_FALSE(equal({first}, {}));
    EXPECT_FALSE(equal({}, {first}));
    EXPECT_FALSE(equal({first, last}, {first}));
    EXPECT_FALSE(equal({first, last}, {first, media}));
    EXPECT_FALSE(equal({first, last}, {first, tagU32(0x42, 3)}));
    // A tag that stands twice is compared with the first of the other set.
    Bytes const again = tagU32(0x41, 9);
    EXPECT_FALSE(equal({first, again}, {first, again}));
    EXPECT_TRUE(equal({first, first}, {first, again}));
    EXPECT_FALSE(equal({first, again}, {first, first}));
    EXPECT_TRUE(equal({first, first}, {first, last}));
    EXPECT_FALSE(equal({first, last}, {first, first}));
}

TEST(TagSet, ADefaultTagMakesASetUnequalToItself) {
    MapTagSet set(true);
    set.addTag(AutoPtr<MapTag>(new MapTag));
    EXPECT_FALSE(set.isEqual(set));
}

TEST(TagSet, DecodeIsNotItsOwn) {
    Bytes bytes = tagU32(0x41, 1);
    GxfBuffer buffer = bytes.filledBuffer();
    TrackTagSet set(true);
    OpResult const result = set.decode(buffer, 6);
    EXPECT_EQ(result.getType(), OpResult::Error);
    EXPECT_EQ(result.getCode(), 14);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().file, "map_tag.cpp");
    EXPECT_STREQ(result.getLocation().function, "decode");
    EXPECT_EQ(buffer.nOccupied(), 6U);
    EXPECT_EQ(set.size(), 0U);
}

TEST(TagSet, PrintsTagsBelowEachOther) {
    MapTagSet set(true);
    EXPECT_EQ(plainText(set), "");
    set.addTag(mapTag(tagU32(0x41, 1)));
    EXPECT_EQ(plainText(set), "1stField=1");
    set.addTag(mapTag(tagText(0x40, "a\nb")));
    set.addTag(mapTag(tagU32(0x42, 2)));
    EXPECT_EQ(plainText(set), "1stField=1,\nmedia={a,\nb},\nlastField=2");
    EXPECT_EQ(textAt(3, set), "1stField=1,\n   media={\n   a,\n   b},\n   lastField=2");
}
