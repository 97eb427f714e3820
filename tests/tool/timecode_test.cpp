#include <gmock/gmock.h>

#include "run_tool.h"
#include "tool_streams.h"

namespace {

using namespace GxfTesting;
using nlohmann::json;

using Arguments = std::vector<std::string>;

ToolResult timecodeResult(Arguments arguments, Bytes const& stream) {
    arguments.insert(arguments.begin(), "timecode");
    arguments.push_back("-");
    return runTool(arguments, asText(stream));
}

TEST(Timecode, EveryFieldOfTheSamples) {
    struct Row {
        char const* name;
        std::size_t count;
        std::vector<std::pair<std::size_t, char const*>> known;
    };
    std::vector<Row> const rows = {
        {"news_pal.gxf",
         100,
         {{0, "10:00:00:00"},
          {1, "10:00:00:00"},
          {2, "10:00:00:01"},
          {49, "10:00:00:24"},
          {50, "10:00:01:00"},
          {99, "10:00:01:24"}}},
        // Drop frame, over a minute of which none is dropped: it is a tenth one.
        {"spot_ntsc.gxf",
         120,
         {{0, "00:59:58;28"},
          {3, "00:59:58;29"},
          {4, "00:59:59;00"},
          {63, "00:59:59;29"},
          {64, "01:00:00;00"},
          {119, "01:00:00;27"}}},
        {"hd_short.gxf", 12, {{0, "01:00:00:00"}, {11, "01:00:00:05"}}},
    };
    for (Row const& row : rows) {
        ToolResult const result = runTool({"timecode", "--json", sample(row.name)});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        json const timecodes = result.json()["timecodes"];
        ASSERT_EQ(timecodes.size(), row.count) << row.name;
        for (std::size_t i = 0; i < timecodes.size(); ++i) {
            EXPECT_EQ(timecodes[i]["field"], i);
        }
        for (auto const& [field, timecode] : row.known) {
            EXPECT_EQ(timecodes[field]["timecode"], timecode) << row.name << field;
        }
        EXPECT_EQ(runTool({"timecode", sample(row.name)}).lines().size(), row.count);
        EXPECT_EQ(runTool({"timecode", "--csv", sample(row.name)}).lines().size(), row.count + 1);
    }
}

/// The fields 0 to 3, of which 1 and 2 have no valid timecode.
Bytes withHoles() {
    Bytes block = blockFromHour(1, 0, 3, 25);
    block[4032] = 0x09;
    return timecodes(timecode625, 2, 0, 0, 3, block).add(endOfStream());
}

TEST(Timecode, AFieldWithoutAValidTimecodeIsThereWithoutOne) {
    EXPECT_EQ(timecodeResult({}, withHoles()).out, "         0  01:00:00:00\n"
                                                   "         1  -\n"
                                                   "         2  -\n"
                                                   "         3  01:00:00:01\n");
    EXPECT_EQ(timecodeResult({"--csv"}, withHoles()).out, "field,timecode\n"
                                                          "0,01:00:00:00\n"
                                                          "1,\n"
                                                          "2,\n"
                                                          "3,01:00:00:01\n");
    ToolResult const result = timecodeResult({"--json"}, withHoles());
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.json(), (json{{"timecodes",
                                    {{{"field", 0}, {"timecode", "01:00:00:00"}},
                                     {{"field", 1}, {"timecode", nullptr}},
                                     {{"field", 2}, {"timecode", nullptr}},
                                     {{"field", 3}, {"timecode", "01:00:00:01"}}}}}));
}

TEST(Timecode, ARangeOfFields) {
    std::string const clip = sample("news_pal.gxf");
    EXPECT_EQ(runTool({"timecode", "--first", "49", "--last", "51", "--csv", clip}).out,
              "field,timecode\n49,10:00:00:24\n50,10:00:01:00\n51,10:00:01:00\n");
    EXPECT_EQ(runTool({"timecode", "--first", "99", "--csv", clip}).out,
              "field,timecode\n99,10:00:01:24\n");
    EXPECT_EQ(runTool({"timecode", "--last", "0", "--csv", clip}).out,
              "field,timecode\n0,10:00:00:00\n");
    EXPECT_EQ(runTool({"timecode", "--first", "98", "--last", "4294967295", "--csv", clip}).out,
              "field,timecode\n98,10:00:01:24\n99,10:00:01:24\n");
}

TEST(Timecode, ARangeBehindTheClipIsToldAndEmpty) {
    std::string const clip = sample("news_pal.gxf");
    ToolResult const result = runTool({"timecode", "--first", "100", "--json", clip});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.json(), (json{{"timecodes", json::array()}}));
    EXPECT_EQ(result.err, clip + ": has no timecodes of the fields from 100 on\n");
    EXPECT_EQ(runTool({"timecode", "--first", "100", "--last", "105", clip}).err,
              clip + ": has no timecodes of the fields 100 to 105\n");
    ToolResult const one =
        runTool({"timecode", "--first", "100", "--last", "100", "--track", "3", "--csv", clip});
    EXPECT_EQ(one.err, clip + ": has no timecodes of track 3 of field 100\n");
    EXPECT_EQ(one.out, "field,timecode\n");
}

Bytes twoTracks() {
    Bytes stream = timecodes(timecode625, 4, 0, 0, 1, blockFromHour(1, 0, 1, 25));
    stream.add(timecodes(timecode625, 2, 0, 0, 1, blockFromHour(2, 0, 1, 25)));
    stream.add(timecodes(timecode625, 4, 504, 0, 1, blockFromHour(3, 0, 1, 25)));
    return stream.add(endOfStream());
}

TEST(Timecode, OfTwoTracksTheFirstOneOfTheStreamOrTheOneAskedFor) {
    EXPECT_EQ(timecodeResult({"--csv"}, twoTracks()).out, "field,timecode\n"
                                                          "0,01:00:00:00\n"
                                                          "1,01:00:00:00\n"
                                                          "504,03:00:00:00\n"
                                                          "505,03:00:00:00\n");
    EXPECT_EQ(timecodeResult({"--csv", "--track", "2"}, twoTracks()).out, "field,timecode\n"
                                                                          "0,02:00:00:00\n"
                                                                          "1,02:00:00:00\n");
}

TEST(Timecode, AStreamOrATrackWithoutTimecodesIsTold) {
    ToolResult const result = timecodeResult({"--track", "3", "--json"}, twoTracks());
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "standard input: has no timecode packets of track 3\n");
    EXPECT_EQ(result.json(), (json{{"timecodes", json::array()}}));
    ToolResult const none = timecodeResult({}, picture(mpeg625, 0, 0, 3, {1, 2, 3}));
    EXPECT_EQ(none.status, 1);
    EXPECT_EQ(none.out, "");
    EXPECT_EQ(none.err, "standard input: has no timecode packets\n");
}

TEST(Timecode, ABlockBeginsOnAMultipleOf504) {
    // Only the entries 496 and 497 are valid: those of the fields 1000 and 1001.
    for (unsigned const firstValid : {0U, 496U}) {
        Bytes const stream =
            timecodes(timecode625, 2, 1000, firstValid, 497, blockFromHour(5, 496, 497, 25));
        EXPECT_EQ(timecodeResult({"--csv"}, stream).out,
                  "field,timecode\n1000,05:00:09:23\n1001,05:00:09:23\n")
            << firstValid;
    }
}

TEST(Timecode, ValidEntriesBehindTheLastValidOneOfThePreambleAreToldToo) {
    Bytes const stream = timecodes(timecode625, 2, 0, 0, 0, blockFromHour(1, 0, 2, 25));
    EXPECT_EQ(timecodeResult({"--csv"}, stream).lines().size(), 4U);
}

TEST(Timecode, FieldsEndWhereTheirNumbersDo) {
    // The block of the fields from 4294967040 on has 256 of them.
    Bytes const stream =
        timecodes(timecode625, 2, 0xFFFFFFFF, 0, 503, blockFromHour(1, 250, 503, 25));
    std::vector<std::string> const lines = timecodeResult({"--csv"}, stream).lines();
    ASSERT_FALSE(lines.empty());
    EXPECT_THAT(lines.back(), testing::StartsWith("4294967295,"));
    EXPECT_EQ(lines[1].substr(0, 11), "4294967290,");
    EXPECT_EQ(lines.size(), 7U);
}

TEST(Timecode, ABlockThatIsCutShortIsAFaultAndTheOthersComeOut) {
    Bytes block = blockFromHour(1, 0, 1, 25);
    Bytes const whole = timecodes(timecode625, 2, 0, 0, 1, block);
    Bytes stream =
        mediaPacket({.mediaType = timecode625, .trackByte = 2, .field = 504}, Bytes().fill(4000));
    ToolResult const result = timecodeResult({"--csv"}, stream.add(whole).add(endOfStream()));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "field,timecode\n0,01:00:00:00\n1,01:00:00:00\n");
    EXPECT_EQ(result.err, "standard input: error at offset 0: this timecode packet is too short "
                          "for its block of timecodes\n");
}

TEST(Timecode, NothingIsPrintedOfWhatIsNoStream) {
    for (char const* const form : {"--json", "--csv", "--quiet"}) {
        ToolResult const result = runTool({"timecode", form, "-"}, std::string(5000, 'x'));
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "gxf: standard input: no GXF packet in it; give a GXF stream\n");
    }
}

} // namespace
