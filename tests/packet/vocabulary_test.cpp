#include <concepts>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>

#include <gtest/gtest.h>

#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

template <typename Result> using Table = std::map<std::int64_t, Result>;
using Names = Table<std::string>;
using Md = UmfPacket::MediaDesc;

template <typename Enum> Enum valueOf(std::int64_t number) {
    return static_cast<Enum>(static_cast<std::underlying_type_t<Enum>>(number));
}

/// What a wrong test of a range or a cut to fewer bits would mistake for a value of the table.
template <typename Result> std::set<std::int32_t> probes(Table<Result> const& table) {
    std::set<std::int32_t> result{0, -1, std::numeric_limits<std::int32_t>::max(),
                                  std::numeric_limits<std::int32_t>::min(),
                                  std::numeric_limits<std::int32_t>::min() + 1};
    for (std::int32_t value = -300; value <= 600; ++value) {
        result.insert(value);
    }
    for (auto const& [value, expected] : table) {
        for (std::int64_t const probe : {value, value - 1, value + 1, value + 0x100,
                                         value + 0x10000, value ^ 0x80000000, value ^ 0xFFFF0000}) {
            result.insert(static_cast<std::int32_t>(probe));
        }
    }
    return result;
}

template <typename Enum> void expectNames(Names const& table, std::string const& other) {
    for (std::int32_t const value : probes(table)) {
        auto const row = table.find(value);
        EXPECT_EQ(getName(valueOf<Enum>(value)), row != table.end() ? row->second : other) << value;
    }
}

/// As expectNames, for the enumerations whose other values print "?(WHAT=0xVALUE)".
template <typename Enum> void expectNamesOrNumber(Names const& table, std::string const& what) {
    for (std::int32_t const value : probes(table)) {
        char number[16];
        std::snprintf(number, sizeof number, "%x", static_cast<unsigned>(value));
        auto const row = table.find(value);
        EXPECT_EQ(getName(valueOf<Enum>(value)),
                  row != table.end() ? row->second : "?(" + what + "=0x" + number + ")")
            << value;
    }
}

template <typename Enum, typename Result>
void expectResults(Result (&convert)(Enum), Table<Result> const& table, Result other) {
    for (std::int32_t const value : probes(table)) {
        auto const row = table.find(value);
        EXPECT_EQ(convert(valueOf<Enum>(value)), row != table.end() ? row->second : other) << value;
    }
}

std::string maskText(std::uint32_t mask) {
    FormatStr text(128);
    toString(text, static_cast<MaterialAttrBits>(mask));
    return {text.get(), text.size()};
}

/// Runs a scope in another time zone. Leaves it to the library to notice.
class TimeZone {
  public:
    explicit TimeZone(char const* zone) {
        if (char const* const before = std::getenv("TZ")) {
            m_before = before;
        }
        setenv("TZ", zone, 1);
    }
    TimeZone(TimeZone const&) = delete;
    TimeZone& operator=(TimeZone const&) = delete;
    ~TimeZone() {
        if (m_before) {
            setenv("TZ", m_before->c_str(), 1);
        } else {
            unsetenv("TZ");
        }
    }

  private:
    std::optional<std::string> m_before;
};

template <std::integral Time> std::string timeText(Time gxfTime) {
    return timeToString(static_cast<unsigned long long>(gxfTime)).get();
}

struct TrackMediaRow {
    std::int64_t value;
    char const* name;
    unsigned trackType;
    unsigned typeEncoding;
    unsigned mediaType;
};

constexpr TrackMediaRow trackMediaRows[] = {
    {3, "MotionJPEG_525", 4, 86, 1}, {4, "MotionJPEG_625", 4, 86, 1},
    {7, "Timecode_525", 1, 84, 3},   {8, "Timecode_625", 1, 84, 3},
    {9, "AudioPCM_24", 3, 65, 2},    {10, "AudioPCM_16", 3, 65, 2},
    {11, "Mpeg2_525", 4, 77, 4},     {12, "Mpeg2_625", 4, 77, 4},
    {13, "Dv25_525", 4, 68, 5},      {14, "Dv25_625", 4, 68, 5},
    {15, "Dv50_525", 4, 69, 6},      {16, "Dv50_625", 4, 69, 6},
    {17, "Ac3_16bit", 3, 65, 2},     {18, "CompressedAudio", 3, 65, 2},
    {19, "Reserved1", 0, 0, 13},     {20, "Mpeg2Hd", 4, 72, 7},
    {21, "AncillaryData", 2, 78, 8}, {22, "Mpeg1_525", 4, 76, 9},
    {23, "Mpeg1_625", 4, 76, 9},     {24, "TimecodeHd", 1, 84, 3},
    {25, "Dv100", 4, 70, 10},        {26, "Avci", 4, 73, 11},
    {27, "Avc27", 0, 0, 12},         {28, "Avc28", 0, 0, 12},
    {29, "AvcHd", 0, 0, 12},
};

/// One column of the table above.
template <typename Result, typename Column> Table<Result> trackMediaTable(Column column) {
    Table<Result> table;
    for (TrackMediaRow const& row : trackMediaRows) {
        table[row.value] = static_cast<Result>(column(row));
    }
    return table;
}

} // namespace

TEST(PacketType, Names) {
    expectNamesOrNumber<PacketType>({{0, "packet header"},
                                     {188, "map"},
                                     {191, "media"},
                                     {250, "reserved"},
                                     {251, "EOS"},
                                     {252, "fieldLocTbl"},
                                     {253, "umfFile"},
                                     {256, "internalUmfChunk"}},
                                    "type");
    EXPECT_STREQ(getName(valueOf<PacketType>(254)), "?(type=0xfe)");
    EXPECT_STREQ(getName(valueOf<PacketType>(255)), "?(type=0xff)");
    EXPECT_STREQ(getName(valueOf<PacketType>(-1)), "?(type=0xffffffff)");
}

TEST(UmfPacketOrder, Names) {
    expectNames<UmfPacketOrder>({{0, "Middle"}, {1, "First"}, {2, "Last"}, {3, "Only"}}, "Uninit");
    EXPECT_EQ(static_cast<std::uint32_t>(umfPacketOrderUninit), 0xFFFFFFFFU);
}

TEST(FrameRate, Names) {
    expectNames<FrameRate>({{-2, "missing"},
                            {-1, "N/A"},
                            {1, "60hz"},
                            {2, "59.94hz"},
                            {3, "50hz"},
                            {4, "30hz"},
                            {5, "29.97hz"},
                            {6, "25hz"},
                            {7, "24hz"},
                            {8, "23.98hz"}},
                           "invalid");
    EXPECT_STREQ(getName(valueOf<FrameRate>(0)), "invalid");
}

TEST(FrameRate, FramesPerSecond) {
    expectResults<FrameRate, double>(getRealFrameRate,
                                     {{-2, 1.0},
                                      {-1, 1.0},
                                      {1, 60.0},
                                      {2, 59.94005994005994},
                                      {3, 50.0},
                                      {4, 30.0},
                                      {5, 29.97002997002997},
                                      {6, 25.0},
                                      {7, 24.0},
                                      {8, 23.976023976023978}},
                                     1.0);
    EXPECT_EQ(getRealFrameRate(valueOf<FrameRate>(0)), 1.0);
}

TEST(LinesPerFrame, Names) {
    expectNames<LinesPerFrame>({{-2, "missing"},
                                {-1, "N/A"},
                                {1, "525"},
                                {2, "625"},
                                {4, "1920x1080"},
                                {5, "reserved"},
                                {6, "720"},
                                {0x10004, "1440x1080"}},
                               "invalid");
    EXPECT_STREQ(getName(valueOf<LinesPerFrame>(3)), "invalid");
    EXPECT_STREQ(getName(valueOf<LinesPerFrame>(65540)), "1440x1080");
}

TEST(FieldsPerFrame, Names) {
    expectNames<FieldsPerFrame>(
        {{-2, "missing"}, {-1, "N/A"}, {1, "progressive"}, {2, "interlaced"}}, "invalid");
}

TEST(TrackMediaType, Names) {
    expectNamesOrNumber<TrackMediaType>(
        trackMediaTable<std::string>([](TrackMediaRow const& row) { return row.name; }),
        "TrackMediaType");
    EXPECT_STREQ(getName(valueOf<TrackMediaType>(5)), "?(TrackMediaType=0x5)");
}

TEST(TrackMediaType, TrackType) {
    expectResults<TrackMediaType, TrackType>(
        getTrackType,
        trackMediaTable<TrackType>([](TrackMediaRow const& row) { return row.trackType; }),
        valueOf<TrackType>(0));
    EXPECT_EQ(getTrackType(valueOf<TrackMediaType>(5)), 0U);
}

TEST(TrackMediaType, TypeEncoding) {
    expectResults<TrackMediaType, TrackTypeEncoding>(
        getTypeEncoding, trackMediaTable<TrackTypeEncoding>([](TrackMediaRow const& row) {
            return row.typeEncoding;
        }),
        valueOf<TrackTypeEncoding>(0));
}

TEST(TrackMediaType, MediaType) {
    expectResults<TrackMediaType, MediaType>(
        getMediaType,
        trackMediaTable<MediaType>([](TrackMediaRow const& row) { return row.mediaType; }),
        valueOf<MediaType>(13));
    EXPECT_EQ(getMediaType(valueOf<TrackMediaType>(5)), 13U);
}

TEST(TrackType, Names) {
    expectNames<TrackType>(
        {{0, "Unknown"}, {1, "Timecode"}, {2, "AncillaryData"}, {3, "Audio"}, {4, "Video"}}, "?");
}

TEST(TrackTypeEncoding, Names) {
    expectNames<TrackTypeEncoding>({{'A', "Audio"},
                                    {'D', "DV25"},
                                    {'E', "DV50"},
                                    {'F', "DV100"},
                                    {'H', "Mpeg2Hd"},
                                    {'I', "AVCI"},
                                    {'L', "Mpeg1"},
                                    {'M', "Mpeg2Sd"},
                                    {'N', "AncData"},
                                    {'T', "Timecode"},
                                    {'V', "MotionJPEG"}},
                                   "?");
}

TEST(TrackTypeEncoding, TrackType) {
    // 'F', DV100, stays unknown here: intended.
    expectResults<TrackTypeEncoding, TrackType>(getTrackType,
                                                {{65, trackTypeAudio},
                                                 {68, trackTypeVideo},
                                                 {69, trackTypeVideo},
                                                 {70, trackTypeUnknown},
                                                 {72, trackTypeVideo},
                                                 {73, trackTypeVideo},
                                                 {76, trackTypeVideo},
                                                 {77, trackTypeVideo},
                                                 {78, trackTypeAncillaryData},
                                                 {84, trackTypeTimecode},
                                                 {86, trackTypeVideo}},
                                                trackTypeUnknown);
    EXPECT_EQ(getTrackType(valueOf<TrackMediaType>(25)), trackTypeVideo);
    EXPECT_EQ(getTrackType(valueOf<MediaType>(10)), trackTypeVideo);
}

TEST(MediaType, Names) {
    expectNames<MediaType>({{1, "MotionJPEG"},
                            {2, "Audio"},
                            {3, "Timecode"},
                            {4, "Mpeg2SD"},
                            {5, "DV25"},
                            {6, "DV50"},
                            {7, "Mpeg2HD"},
                            {8, "AncillaryData"},
                            {9, "Mpeg1"},
                            {10, "DV100"},
                            {11, "AvcI"}},
                           "?");
    EXPECT_STREQ(getName(valueOf<MediaType>(12)), "?");
    EXPECT_STREQ(getName(valueOf<MediaType>(13)), "?");
}

TEST(MediaType, TypeEncoding) {
    Table<TrackTypeEncoding> table;
    char const letters[] = "VATMDEHNLFI";
    for (unsigned value = 1; value <= 11; ++value) {
        table[value] = static_cast<TrackTypeEncoding>(letters[value - 1]);
    }
    expectResults<MediaType, TrackTypeEncoding>(getTypeEncoding, table, trackTypeEncodingNone);
}

TEST(MediaType, TrackType) {
    expectResults<MediaType, TrackType>(getTrackType,
                                        {{1, trackTypeVideo},
                                         {2, trackTypeAudio},
                                         {3, trackTypeTimecode},
                                         {4, trackTypeVideo},
                                         {5, trackTypeVideo},
                                         {6, trackTypeVideo},
                                         {7, trackTypeVideo},
                                         {8, trackTypeAncillaryData},
                                         {9, trackTypeVideo},
                                         {10, trackTypeVideo},
                                         {11, trackTypeVideo}},
                                        trackTypeUnknown);
}

TEST(MpegPicType, Names) { expectNames<MpegPicType>({{1, "I"}, {2, "P"}, {3, "B"}}, "?"); }

TEST(MpegPicStruct, Names) {
    expectNames<MpegPicStruct>({{1, "top"}, {2, "bottom"}, {3, "frame"}}, "?");
}

TEST(SequenceCodingType, Names) {
    expectNames<::SequenceCodingType>({{0, "intra"}, {1, "nonIntra"}}, "?");
}

TEST(AspectRatio, Names) { expectNames<AspectRatio>({{0, "4x3"}, {1, "16x9"}}, "unknown"); }

TEST(AspectRatioConversion, Names) {
    expectNames<AspectRatioConversion>({{1, "stretch"}, {2, "halfbars"}, {3, "crop"}, {4, "bars"}},
                                       "default");
}

TEST(MediaDesc, NamesOfItsEnumerations) {
    expectNames<Md::ColorSampling>({{1, "4:2:0"}, {2, "4:2:2"}}, "4:?:?");
    expectNames<Md::GopStructure>({{0, "openGop"}, {1, "closedGop"}}, "?gop");
    expectNames<Md::FrameFieldStructure>({{1, "topFF"}, {2, "bottomFF"}, {3, "frame"}},
                                         "frStruct?");
    expectNames<Md::MpegType>({{1, "mpeg1"}, {2, "mpeg2"}, {4, "mpeg2Cbr"}}, "mpeg?");
    expectNames<Md::Aspect>({{64, "4x3"}, {128, "16x9"}}, "?x?");
    expectNames<Md::TimecodeType>({{0, "drop"}, {1, "nonDrop"}}, "?drop");
}

TEST(Names, StayValid) {
    char const* const rate = getName(frameRate59_94hz);
    char const* const type = getName(packetTypeMap);
    char const* const media = getName(trackMediaDv100);
    getName(valueOf<PacketType>(254));
    getName(valueOf<TrackMediaType>(254));
    EXPECT_STREQ(rate, "59.94hz");
    EXPECT_STREQ(type, "map");
    EXPECT_STREQ(media, "Dv100");
}

TEST(MaterialAttrBits, Texts) {
    constexpr char const* bits[] = {
        "0x1,ReadOnly",       "0x2,Rsv1",
        "0x4,Locked",         "0x8,Rsv2",
        "0x10,Rsv3",          "0x20,Rsv4",
        "0x40,50hz",          "0x80,59.94hz",
        "0x100,23.98hz",      "0x200,25hz",
        "0x400,29.97hz",      "0x800,MpegHd",
        "0x1000,Dv25",        "0x2000,Dv50",
        "0x4000,MJpeg",       "0x8000,MpegSd",
        "0x10000,Open",       "0x20000,OpenShared",
        "0x40000,OpenExcl",   "0x80000,Simple",
        "0x100000,Rsv5",      "0x200000,NonDrop",
        "0x400000,DropFrame", "0x800000,Streaming",
        "0x1000000,Dv100",    "0x2000000,Avci",
        "0x4000000,Au16bit",  "0x8000000,Au24bit",
        "0x10000000,Rsv6",    "0x20000000,Recording",
        "0x40000000,Copying", "0x80000000,Restoring",
    };
    for (unsigned bit = 0; bit < 32; ++bit) {
        EXPECT_EQ(maskText(std::uint32_t{1} << bit), bits[bit]);
    }
    EXPECT_EQ(maskText(0), "0x0");
    EXPECT_EQ(maskText(0x80400041), "0x80400041,ReadOnly,50hz,DropFrame,Restoring");
    EXPECT_EQ(maskText(0xFFFFFFFF),
              "0xffffffff,ReadOnly,Rsv1,Locked,Rsv2,Rsv3,Rsv4,50hz,59.94hz,23.98hz,25hz,29.97hz,"
              "MpegHd,Dv25,Dv50,MJpeg,MpegSd,Open,OpenShared,OpenExcl,Simple,Rsv5,NonDrop,"
              "DropFrame,Streaming,Dv100,Avci,Au16bit,Au24bit,Rsv6,Recording,Copying,Restoring");
}

TEST(MaterialAttrBits, TextIsAppended) {
    FormatStr text("attr=");
    EXPECT_EQ(&toString(text, static_cast<MaterialAttrBits>(4)), &text);
    toString(text, static_cast<MaterialAttrBits>(0));
    EXPECT_STREQ(text.get(), "attr=0x4,Locked0x0");
}

TEST(GxfTime, ToPosixTime) {
    struct Row {
        long long gxfTime;
        long long microseconds;
    };
    constexpr Row rows[] = {
        {116444736000000000, 0},
        {116444736000000009, 0},
        {116444736000000010, 1},
        {116444735999999999, -1},
        {116444735999999990, -1},
        {116444735999999989, -2},
        {0, -11644473600000000},
        {9, -11644473600000000},
        {10, -11644473599999999},
        // Divided toward zero, not down.
        {-1, -11644473600000000},
        {-9, -11644473600000000},
        {-10, -11644473600000001},
        {-19, -11644473600000001},
        {std::numeric_limits<long long>::max(), 910692730085477580},
        {std::numeric_limits<long long>::min(), -933981677285477580},
    };
    for (Row const& row : rows) {
        EXPECT_EQ(convertGxfTimeToPosixTime(row.gxfTime), row.microseconds) << row.gxfTime;
    }
}

TEST(GxfTime, Text) {
    TimeZone const zone("UTC0");
    EXPECT_EQ(timeText(116444736000000000), "Thu Jan  1 00:00:00 1970");
    EXPECT_EQ(timeText(126444736000000000), "Sun Sep  9 01:46:40 2001");
    EXPECT_EQ(timeText(133536836960000000), "Thu Feb 29 12:34:56 2024");
    EXPECT_EQ(timeText(0), "Mon Jan  1 00:00:00 1601");
}

TEST(GxfTime, TextRoundsTowardTheEpoch) {
    TimeZone const zone("UTC0");
    EXPECT_EQ(timeText(116444736009999999), "Thu Jan  1 00:00:00 1970");
    EXPECT_EQ(timeText(116444736010000000), "Thu Jan  1 00:00:01 1970");
    EXPECT_EQ(timeText(116444735999999999), "Thu Jan  1 00:00:00 1970");
    EXPECT_EQ(timeText(116444735990000010), "Thu Jan  1 00:00:00 1970");
    EXPECT_EQ(timeText(116444735990000009), "Wed Dec 31 23:59:59 1969");
}

TEST(GxfTime, TextTakesTheTopHalfAsNegative) {
    TimeZone const zone("UTC0");
    EXPECT_EQ(timeText(0xFFFFFFFFFFFFFFFFULL), "Mon Jan  1 00:00:00 1601");
    EXPECT_EQ(timeText(-189657504000000000), "Wed Jan  1 00:00:00 1000");
    EXPECT_EQ(timeText(-189657504010000000), "Tue Dec 31 23:59:59 999");
    EXPECT_EQ(timeText(-504911232000000000), "Mon Jan  1 00:00:00 1");
}

TEST(GxfTime, TextOfAYearAboveFourDigitsIsNull) {
    TimeZone const zone("UTC0");
    EXPECT_EQ(timeText(2650467743990000000), "Fri Dec 31 23:59:59 9999");
    EXPECT_EQ(timeText(2650467743999999999), "Fri Dec 31 23:59:59 9999");
    EXPECT_EQ(timeText(2650467744000000000), "null");
    EXPECT_EQ(timeText(0x7FFFFFFFFFFFFFFFULL), "null");
    // The year -27626.
    EXPECT_EQ(timeText(0x8000000000000000ULL), "null");
}

TEST(GxfTime, TextIsInTheProcessTimeZone) {
    {
        TimeZone const zone("EST5EDT,M4.1.0,M10.5.0");
        EXPECT_EQ(timeText(116444736000000000), "Wed Dec 31 19:00:00 1969");
        EXPECT_EQ(timeText(126444736000000000), "Sat Sep  8 21:46:40 2001");
    }
    {
        TimeZone const zone("XYZ-5:30");
        EXPECT_EQ(timeText(116444736000000000), "Thu Jan  1 05:30:00 1970");
    }
    {
        TimeZone const zone("XYZ-1");
        EXPECT_EQ(timeText(2650467743990000000), "null");
    }
    TimeZone const zone("XYZ1");
    EXPECT_EQ(timeText(2650467744000000000), "Fri Dec 31 23:00:00 9999");
}

TEST(GxfTime, TextIsTheCallers) {
    TimeZone const zone("UTC0");
    AutoPtr<char> const first = timeToString(116444736000000000);
    AutoPtr<char> const second = timeToString(126444736000000000);
    EXPECT_STREQ(first.get(), "Thu Jan  1 00:00:00 1970");
    EXPECT_STREQ(second.get(), "Sun Sep  9 01:46:40 2001");
}
