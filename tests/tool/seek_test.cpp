#include <gmock/gmock.h>

#include "run_tool.h"
#include "tool_streams.h"

namespace {

using namespace GxfTesting;
using nlohmann::json;

using Arguments = std::vector<std::string>;

ToolResult seekIn(Arguments arguments, Bytes const& stream) {
    arguments.insert(arguments.begin(), "seek");
    arguments.push_back("-");
    return runTool(arguments, asText(stream));
}

json place(unsigned track, std::uint32_t field, std::size_t offset, std::size_t length) {
    return {{"track", track}, {"field", field}, {"offset", offset}, {"length", length}};
}

/// The packet of a track that has this field number.
json placeIn(std::string const& stream, unsigned track, std::uint32_t field) {
    for (RawPacket const& packet : packetsOf(stream)) {
        if (packet.type == mediaType && packet.track() == track && packet.field() == field) {
            return place(track, field, packet.offset, packet.length);
        }
    }
    ADD_FAILURE() << "no packet of track " << track << " with field " << field;
    return {};
}

/// An entry of the stream's locator table.
json entryIn(std::string const& stream, std::size_t entry) {
    for (RawPacket const& packet : packetsOf(stream)) {
        if (packet.type == tableType) {
            std::size_t const at = 8 + 4 * entry;
            std::uint64_t const unit = packet.byte(at) | packet.byte(at + 1) << 8 |
                                       packet.byte(at + 2) << 16 | packet.byte(at + 3) << 24;
            return {{"field", packet.byte(0) * entry}, {"offset", unit * 1024}, {"entry", entry}};
        }
    }
    ADD_FAILURE() << "no table";
    return {};
}

struct Sought {
    char const* name;
    unsigned field;
    int lower; ///< entry, negative for none
    int upper;
    std::vector<std::pair<unsigned, unsigned>> packets; ///< track and field
};

class SeekSamples : public testing::TestWithParam<Sought> {};

TEST_P(SeekSamples, FindsTheFieldInEveryTrack) {
    Sought const& row = GetParam();
    std::string const path = sample(row.name);
    std::string const stream = readFile(path);
    json expected = {{"field", row.field}, {"packets", json::array()}};
    if (row.lower >= 0) {
        expected["bracket"]["lower"] = entryIn(stream, static_cast<std::size_t>(row.lower));
    }
    if (row.upper >= 0) {
        expected["bracket"]["upper"] = entryIn(stream, static_cast<std::size_t>(row.upper));
    }
    for (auto const& [track, field] : row.packets) {
        expected["packets"].push_back(placeIn(stream, track, field));
    }
    std::string const field = std::to_string(row.field);
    for (ToolResult const& result : {runTool({"seek", "--json", "--field", field, path}),
                                     runTool({"seek", "--json", "--field", field, "-"}, stream)}) {
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.json(), expected);
    }
}

// Brackets span one field on each side: with 2 fields an entry, field 40 lies between the entry of
// field 39 and the first one behind field 41. With 1 field an entry the margin is 2.
INSTANTIATE_TEST_SUITE_P(
    All, SeekSamples,
    testing::Values(Sought{"news_pal.gxf", 0, -1, -1, {{0, 0}, {1, 0}, {2, 0}, {3, 0}}},
                    Sought{"news_pal.gxf", 1, 0, 2, {{0, 0}, {1, 0}, {2, 0}, {3, 0}}},
                    Sought{"news_pal.gxf", 33, 16, 18, {{0, 32}, {1, 0}, {2, 0}, {3, 0}}},
                    Sought{"news_pal.gxf", 40, 19, 21, {{0, 40}, {1, 34}, {2, 34}, {3, 0}}},
                    Sought{"news_pal.gxf", 99, 49, -1, {{0, 98}, {1, 68}, {2, 68}, {3, 0}}},
                    Sought{"spot_ntsc.gxf", 50, 4, 6, {{0, 50}, {1, 41}, {2, 0}}},
                    Sought{"spot_ntsc.gxf", 119, 11, -1, {{0, 118}, {1, 82}, {2, 0}}},
                    Sought{"hd_short.gxf", 5, 3, 8, {{0, 4}, {1, 0}, {2, 0}}},
                    Sought{"hd_short.gxf", 1, -1, -1, {{0, 0}, {1, 0}, {2, 0}}}));

TEST(Seek, PrintsForPeople) {
    EXPECT_EQ(seekIn({"--field", "3"}, smallClip()).out,
              "field 3\n"
              "between field 2 at offset 1024 and the end, by the field locator table\n"
              "track  0  field        2  offset        16361  length       49\n"
              "track  1  field        0  offset         4280  length    12032\n"
              "track  2  field        0  offset          152  length     4128\n");
    EXPECT_EQ(seekIn({"--field", "2"}, smallClip()).out,
              "field 2\n"
              "between field 0 at offset 0 and field 4 at offset 2048, by the field locator table\n"
              "track  0  field        2  offset        16361  length       49\n"
              "track  1  field        0  offset         4280  length    12032\n"
              "track  2  field        0  offset          152  length     4128\n");
    EXPECT_EQ(seekIn({"--field", "0"}, smallClip()).lines()[1].substr(0, 8), "track  0");
}

TEST(Seek, AFieldBehindTheEndIsNotFound) {
    for (char const* const field : {"6", "7", "4294967295"}) {
        ToolResult const result = seekIn({"--json", "--field", field}, smallClip());
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err,
                  std::string("standard input: has no packet that holds field ") + field + "\n");
        EXPECT_EQ(result.json()["packets"], json::array());
        // The table's last entry is field 4, which field 6 less the margin still belongs to.
        EXPECT_EQ(result.json().contains("bracket"), std::string(field) == "6");
    }
}

TEST(Seek, PicturesMayStandInTheOrderOfTheirCoding) {
    // A P picture in front of the B pictures that refer to it, in a clip of video alone.
    Bytes stream = map(material("IBBP", 9), namedTrack(mpeg625, 0, "V", rate25));
    for (unsigned const field : {0U, 6U, 2U, 4U, 8U}) {
        stream.add(picture(mpeg625, 0, field, 1, {1}));
    }
    for (unsigned const field : {0U, 2U, 4U, 6U, 8U}) {
        std::string const odd = std::to_string(field + 1);
        EXPECT_EQ(seekIn({"--json", "--field", odd}, stream).json()["packets"],
                  json::array({placeIn(asText(stream), 0, field)}))
            << odd;
    }
}

TEST(Seek, APacketThatIsGoneLeavesAGap) {
    Bytes stream = map(material("GAP", 5),
                       namedTrack(mpeg625, 0, "V", rate25).add(namedTrack(pcm16, 1, "A", rate25)));
    stream.add(audio(pcm16, 1, 0, 0, 5759, ramp16(0, 6000)));
    stream.add(picture(mpeg625, 0, 0, 1, {1})).add(picture(mpeg625, 0, 4, 1, {1}));
    stream.add(endOfStream());
    std::string const text = asText(stream);
    for (char const* const field : {"2", "3"}) {
        ToolResult const result = seekIn({"--json", "--field", field}, stream);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.json()["packets"], json::array({placeIn(text, 1, 0)}));
    }
    EXPECT_EQ(seekIn({"--json", "--field", "1"}, stream).json()["packets"],
              json::array({placeIn(text, 0, 0), placeIn(text, 1, 0)}));
    EXPECT_EQ(seekIn({"--json", "--field", "5"}, stream).json()["packets"],
              json::array({placeIn(text, 0, 4), placeIn(text, 1, 0)}));
}

TEST(Seek, WorksWithoutAMapAndATable) {
    Bytes stream = picture(mpeg625, 7, 10, 1, {1});
    stream.add(picture(mpeg625, 7, 12, 1, {1}));
    ToolResult const result = seekIn({"--json", "--field", "12"}, stream);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.json(), (json{{"field", 12}, {"packets", {place(7, 12, 33, 33)}}}));
    EXPECT_EQ(seekIn({"--field", "9"}, stream).status, 1);
}

TEST(Seek, PacketsMayStandInAnyOrder) {
    Bytes stream;
    for (unsigned const field : {4U, 0U, 2U}) {
        stream.add(picture(mpeg625, 0, field, 1, {1}));
    }
    EXPECT_EQ(seekIn({"--json", "--field", "2"}, stream).json()["packets"],
              json::array({place(0, 2, 66, 33)}));
}

TEST(Seek, ARefusedTableDoesNotHideAGoodOne) {
    Bytes stream = packet(tableType, fltPayload(2, {0, 1, 2}));
    stream.add(packet(tableType, Bytes().u32Lsbf(3).u32Lsbf(1001).fill(8)));
    stream.add(picture(mpeg625, 0, 2, 1, {1}));
    ToolResult const result = seekIn({"--json", "--field", "2"}, stream);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.json()["bracket"],
              (json{{"lower", {{"field", 0}, {"offset", 0}, {"entry", 0}}},
                    {"upper", {{"field", 4}, {"offset", 2048}, {"entry", 2}}}}));
}

struct SoughtTimecode {
    char const* name;
    char const* timecode;
    unsigned field;
};

class SeekTimecodes : public testing::TestWithParam<SoughtTimecode> {};

TEST_P(SeekTimecodes, GiveTheFirstFieldThatHasThem) {
    SoughtTimecode const& row = GetParam();
    std::string const path = sample(row.name);
    json const byField =
        runTool({"seek", "--json", "--field", std::to_string(row.field), path}).json();
    for (ToolResult const& result :
         {runTool({"seek", "--json", "--timecode", row.timecode, path}),
          runTool({"seek", "--json", "--timecode", row.timecode, "-"}, readFile(path))}) {
        EXPECT_EQ(result.status, 0) << result.err;
        EXPECT_EQ(result.json(), byField);
    }
}

INSTANTIATE_TEST_SUITE_P(All, SeekTimecodes,
                         testing::Values(SoughtTimecode{"news_pal.gxf", "10:00:00:00", 0},
                                         SoughtTimecode{"news_pal.gxf", "10:00:00:20", 40},
                                         SoughtTimecode{"news_pal.gxf", "10:00:01:24", 98},
                                         SoughtTimecode{"news_pal.gxf", "10:0:1:4", 58},
                                         SoughtTimecode{"spot_ntsc.gxf", "00:59:58;28", 0},
                                         SoughtTimecode{"spot_ntsc.gxf", "01:00:00;00", 64},
                                         SoughtTimecode{"spot_ntsc.gxf", "01:00:00:00", 64},
                                         SoughtTimecode{"spot_ntsc.gxf", "01:00:00.27", 118},
                                         SoughtTimecode{"hd_short.gxf", "01:00:00:05", 10}));

TEST(Seek, ATimecodeThatNoFieldHasIsNotFound) {
    for (char const* const timecode :
         {"10:00:02:00", "09:59:59:24", "10:00:00:25", "00:00:00:00"}) {
        std::string const clip = sample("news_pal.gxf");
        ToolResult const result = runTool({"seek", "--timecode", timecode, clip});
        EXPECT_EQ(result.status, 1) << timecode;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, clip + ": has no field with the timecode " + timecode + "\n");
    }
}

TEST(Seek, WithoutTimecodePacketsTheMapTells) {
    // 01:00:00:00 at 25 frames a second in the map alone.
    Bytes stream = map(material("STRIPE", 99),
                       namedTrack(mpeg625, 0, "V", rate25)
                           .add(timecodeTrack(timecode625, 1, rate25, {0, 0, 0, 1, 0, 0, 0, 0})));
    stream.add(picture(mpeg625, 0, 0, 1, {1})).add(picture(mpeg625, 0, 60, 1, {1}));
    EXPECT_EQ(seekIn({"--json", "--timecode", "01:00:01:05"}, stream).json()["field"], 60);
    EXPECT_EQ(seekIn({"--json", "--timecode", "01:00:00:00"}, stream).json()["field"], 0);
    ToolResult const before = seekIn({"--timecode", "00:59:59:24"}, stream);
    EXPECT_EQ(before.status, 1);
    EXPECT_EQ(before.err, "standard input: has no field with the timecode 00:59:59:24\n");
    EXPECT_EQ(seekIn({"--timecode", "01:00:02:00"}, stream).err,
              "standard input: has no packet that holds field 100\n");
    EXPECT_EQ(seekIn({"--timecode", "01:00:00:00"}, picture(mpeg625, 0, 0, 1, {1})).status, 1);
}

TEST(Seek, DropFrameOfTheMapSkipsTheDroppedFrames) {
    // 00:00:59;28 drop frame: two frames later it is 00:01:00;02, as ;00 and ;01 are dropped.
    Bytes stream =
        map(material("DROP", 99),
            namedTrack(mpeg525, 0, "V", rate29)
                .add(timecodeTrack(timecode525, 1, rate29, {28, 59, 0, 0x20, 0, 0, 0, 0})));
    stream.add(picture(mpeg525, 0, 4, 1, {1}));
    EXPECT_EQ(seekIn({"--json", "--timecode", "00:01:00;02"}, stream).json()["field"], 4);
}

TEST(Seek, WhatIsNoTimecodeIsToldInOneLine) {
    for (char const* const timecode :
         {"99", "10:00:00", "24:00:00:00", "10:60:00:00", "10:00:60:00", "10:00:00:-1",
          "10:00:00:+1", "10:00: 0:01", "10:00:00:00x", "10-00-00-00", "100:00:00:00",
          "10:00:00:000", " 10:00:00:00", "10:00:00,00"}) {
        ToolResult const result = runTool({"seek", "--timecode", timecode, sample("hd_short.gxf")});
        EXPECT_EQ(result.status, 2) << timecode;
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, std::string("gxf: --timecode: '") + timecode +
                                  "' is no timecode; give HH:MM:SS:FF\n");
    }
}

TEST(Seek, LooksNoFurtherThanItMust) {
    // All tracks of the map are behind the field: what follows isn't read.
    Bytes stream = map(material("C", 9), namedTrack(mpeg625, 0, "V", rate25));
    for (unsigned field = 0; field < 6; field += 2) {
        stream.add(picture(mpeg625, 0, field, 1, {1}));
    }
    std::string const broken = asText(stream) + std::string(500, 'x');
    EXPECT_EQ(runTool({"seek", "--field", "2", "-"}, broken).status, 0);
    EXPECT_EQ(runTool({"seek", "--field", "4", "-"}, broken).status, 1);
}

} // namespace
