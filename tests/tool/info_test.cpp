#include <gmock/gmock.h>

#include "run_tool.h"
#include "tool_streams.h"

namespace {

using namespace GxfTesting;
using nlohmann::json;
using testing::HasSubstr;
using testing::Not;

ToolResult infoOf(Bytes const& stream) { return runTool({"info", "--json", "-"}, asText(stream)); }

/// What the descriptions of the samples leave out: the values of user data that are no text, and
/// the sizes of the documents.
void addWhatIsNotDescribed(std::string const& name, json& umf) {
    if (name == "news_pal") {
        umf["userData"][2]["value"] = 7;
        umf["userData"][3]["valueHex"] =
            "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f2021222324252627";
        umf["xml"]["bytes"] = 2282;
    } else {
        umf["xml"]["bytes"] = name == "spot_ntsc" ? 1718 : 1806;
    }
}

class InfoSamples : public testing::TestWithParam<char const*> {};

TEST_P(InfoSamples, AreWhatTheirDescriptionsSay) {
    std::string const name = GetParam();
    json expected = json::parse(readFile(sample(name + ".json")));
    addWhatIsNotDescribed(name, expected["umf"]);
    expected["file"] = sample(name + ".gxf");
    ToolResult const result = runTool({"info", "--json", sample(name + ".gxf")});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.json(), expected);

    // A pipe tells the same.
    expected["file"] = "standard input";
    ToolResult const piped = runTool({"info", "--json", "-"}, readFile(sample(name + ".gxf")));
    EXPECT_EQ(piped.status, 0);
    EXPECT_EQ(piped.json(), expected);
}

INSTANTIATE_TEST_SUITE_P(All, InfoSamples, testing::Values("news_pal", "spot_ntsc", "hd_short"));

TEST(Info, TellsAClipForPeople) {
    ToolResult const result = runTool({"info", "-"}, readFile(sample("news_pal.gxf")));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, R"(Stream      standard input
            789 138 bytes, complete

Clip        NEWS0417
Duration    00:00:02:00   2.000 s, 100 fields, 0 to 99
Mark in     field 10, 00:00:00:05 into the clip
Mark out    field 89, 00:00:01:19 into the clip
Timecode    10:00:00:00
Rates       25 frames/s, 50 fields/s

Track  UMF  Type      Media         Rate   Picture  Aspect    Bit rate  Packets    Bytes  Fields  Name
    0  M0   Video     Mpeg2_625     25hz  720x576i  4x3      1.50 Mb/s       50  384 584    0-98  NEWS0417_V1
    1  A0   Audio     AudioPCM_16   25hz                    768.0 kb/s        3  196 608    0-68  NEWS0417_A1
    2  A1   Audio     AudioPCM_16   25hz                    768.0 kb/s        3  196 608    0-68  NEWS0417_A2
    3  T0   Timecode  Timecode_625  25hz                      3.2 kb/s        1    4 096     0-0  NEWS0417_T1

Packets     2 map, 1 fieldLocTbl, 1 umfFile, 57 media, 1 EOS
Locator     50 entries, one for every 2 fields

UMF         4 410 bytes, modified 2008-11-28T11:34:38Z, XML of 2 282 bytes

User data  Type    Track  Size  Value
Title      string  M0       21  Evening news, opening
Rights     string  M0       23  © 2009 — all regions
Take       int32   M0        4  7
Checksum   binary  A1       40  0x000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c...
)");
}

json smallClipInfo() {
    return {{"file", "standard input"},
            {"bytes", smallClip().size()},
            {"complete", true},
            {"faults", 0},
            {"packets", {{"map", 1}, {"fieldLocTbl", 1}, {"media", 5}, {"EOS", 1}}},
            {"material", {{"media", "SMALL"}, {"1stField", 0}, {"lastField", 5}}},
            {"rates", {{"frame", 25.0}, {"field", 50.0}}},
            {"stripedTimecode", "01:00:00:00"},
            {"tracks",
             {{{"number", 0},
               {"mediaType", "Mpeg2_625"},
               {"code", 12},
               {"type", "Video"},
               {"umfTrack", "M0"},
               {"media", "SMALL_V1"},
               {"frameRate", "25hz"},
               {"fields", 2},
               {"aspectRatio", "4x3"},
               {"packets", 3},
               {"bytes", 51},
               {"firstField", 0},
               {"lastField", 4}},
              {{"number", 1},
               {"mediaType", "AudioPCM_16"},
               {"code", 10},
               {"type", "Audio"},
               {"umfTrack", "A0"},
               {"media", "SMALL_A1"},
               {"frameRate", "25hz"},
               {"fields", 2},
               {"bitrate", 768000},
               {"aspectRatio", "unknown"},
               {"packets", 1},
               {"bytes", 12000},
               {"firstField", 0},
               {"lastField", 0}},
              {{"number", 2},
               {"mediaType", "Timecode_625"},
               {"code", 8},
               {"type", "Timecode"},
               {"umfTrack", "T0"},
               {"frameRate", "25hz"},
               {"fields", 2},
               {"bitrate", 3200},
               {"aspectRatio", "unknown"},
               {"packets", 1},
               {"bytes", 4096},
               {"firstField", 0},
               {"lastField", 0}}}},
            {"fieldLocatorTable", {{"fieldsPerEntry", 2}, {"entries", 3}, {"valid", true}}}};
}

TEST(Info, LeavesOutWhatTheStreamDoesNotTell) {
    ToolResult const result = infoOf(smallClip());
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.json(), smallClipInfo());
}

TEST(Info, MembersStandInTheOrderOfTheManual) {
    std::string const text = infoOf(smallClip()).out;
    std::size_t before = 0;
    for (char const* const member :
         {"\"file\"", "\"bytes\"", "\"complete\"", "\"faults\"", "\"packets\"", "\"material\"",
          "\"rates\"", "\"stripedTimecode\"", "\"tracks\"", "\"fieldLocatorTable\""}) {
        std::size_t const at = text.find(member);
        ASSERT_NE(at, std::string::npos) << member;
        EXPECT_GE(at, before) << member;
        before = at;
    }
}

TEST(Info, AStreamWithoutItsEndIsIncompleteAndNoFault) {
    Bytes stream = smallClip();
    std::string const cut = asText(stream).substr(0, stream.size() - 16);
    ToolResult const result = runTool({"info", "--json", "-"}, cut);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    json expected = smallClipInfo();
    expected["complete"] = false;
    expected["bytes"] = cut.size();
    expected["packets"].erase("EOS");
    EXPECT_EQ(result.json(), expected);
    EXPECT_THAT(runTool({"info", "-"}, cut).out,
                HasSubstr("            16 459 bytes, INCOMPLETE: no end-of-stream packet\n"));
}

TEST(Info, AnEndInTheMiddleDoesNotMakeAStreamComplete) {
    ToolResult const result =
        infoOf(smallClip().add(map(material("NEXT", 1), namedTrack(pcm16, 0, "N", rate25))));
    EXPECT_EQ(result.json()["complete"], false);
    EXPECT_EQ(result.json()["material"]["media"], "NEXT");
}

TEST(Info, QuickReadsNoFurtherThanTheFirstMediaPacket) {
    std::string const stream = asText(smallClip());
    RawPacket const media = packetsOf(stream)[2];
    ToolProcess process({GXF_TOOL_PATH, "info", "--quick", "--json", "-"});
    // The pipe stays open: a tool that wants more than this would wait for ever.
    ASSERT_TRUE(process.write(stream.substr(0, media.offset + media.length + 16)));
    ToolResult const result = process.waitWithOpenInput();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    json expected = smallClipInfo();
    for (char const* const member : {"bytes", "complete", "packets"}) { // no end, no size
        expected.erase(member);
    }
    for (json& track : expected["tracks"]) {
        for (char const* const member : {"packets", "bytes", "firstField", "lastField"}) {
            track.erase(member);
        }
    }
    EXPECT_EQ(result.json(), expected);
}

TEST(Info, QuickDoesNotSeeFaultsBehindTheFirstMediaPacket) {
    std::string stream = asText(smallClip());
    stream.resize(stream.size() - 20);
    EXPECT_EQ(runTool({"info", "--quick", "-"}, stream).status, 0);
    EXPECT_EQ(runTool({"info", "-"}, stream).status, 1);
}

TEST(Info, ABrokenMapHidesNeitherItsMaterialNorTheTracksInFrontOfTheBreak) {
    // The second track's tag has a number that no tag has.
    Bytes stream =
        map(material("BROKEN", 5),
            namedTrack(mpeg625, 0, "V1", rate25).add(track(pcm16, 1, tag(0x54, {1, 2}))));
    stream.add(audio(pcm16, 1, 0, 0, 9, ramp16(0, 10))).add(endOfStream());
    ToolResult const result = infoOf(stream);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, testing::StartsWith(
                                "standard input: error at offset 0: the payload of this map packet "
                                "is refused, "));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
    json const info = result.json();
    EXPECT_EQ(info["faults"], 1);
    EXPECT_EQ(info["complete"], true);
    EXPECT_EQ(info["packets"], (json{{"map", 1}, {"media", 1}, {"EOS", 1}}));
    EXPECT_EQ(info["material"], (json{{"media", "BROKEN"}, {"1stField", 0}, {"lastField", 5}}));
    EXPECT_EQ(info["rates"], (json{{"frame", 25.0}, {"field", 50.0}}));
    ASSERT_EQ(info["tracks"].size(), 2U);
    EXPECT_EQ(info["tracks"][0]["media"], "V1");
    EXPECT_EQ(info["tracks"][1], (json{{"number", 1},
                                       {"mediaType", "AudioPCM_16"},
                                       {"code", 10},
                                       {"type", "Audio"},
                                       {"packets", 1},
                                       {"bytes", 20},
                                       {"firstField", 0},
                                       {"lastField", 0}}));
}

TEST(Info, AMapThatTellsNothingGivesNoRates) {
    Bytes const stream =
        packet(mapType, {0xE0, 0xFF, 0x40, 0}).add(picture(mpeg625, 0, 0, 3, {1, 2, 3}));
    ToolResult const result = infoOf(stream);
    EXPECT_EQ(result.status, 1);
    json const info = result.json();
    EXPECT_FALSE(info.contains("rates"));
    EXPECT_FALSE(info.contains("material"));
    EXPECT_EQ(info["tracks"].size(), 1U);
    EXPECT_THAT(runTool({"info", "-"}, asText(stream)).out,
                HasSubstr("Clip        unknown: the stream has no valid map packet\n"));
}

TEST(Info, AValidMapIsTakenInsteadOfABrokenOneBehindIt) {
    Bytes const good = map(material("GOOD", 5), namedTrack(mpeg625, 0, "V1", rate25));
    Bytes const broken = map(material("BAD", 5), track(mpeg625, 0, tag(0x54, {1, 2})));
    for (bool const goodFirst : {true, false}) {
        Bytes stream = goodFirst ? good : broken;
        stream.add(goodFirst ? broken : good).add(endOfStream());
        ToolResult const result = infoOf(stream);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.json()["material"]["media"], "GOOD");
        EXPECT_EQ(result.json()["packets"]["map"], 2);
    }
}

TEST(Info, OfSeveralMapsTheLastOneIsTold) {
    Bytes stream = map(material("FIRST", 5), namedTrack(mpeg625, 0, "V1", rate25));
    stream.add(map(material("SECOND", 7), namedTrack(mpeg525, 0, "V2", rate29))).add(endOfStream());
    json const info = infoOf(stream).json();
    EXPECT_EQ(info["material"]["media"], "SECOND");
    EXPECT_EQ(info["tracks"][0]["media"], "V2");
    EXPECT_EQ(info["rates"]["field"], 60000.0 / 1001.0);
}

TEST(Info, TracksThatAreOnlyInPacketsComeBehindThoseOfTheMap) {
    Bytes stream = map(material("C", 5), namedTrack(pcm16, 5, "A", rate25));
    stream.add(audio(pcm24, 9, 8, 0, 1, Bytes().fill(6)));
    stream.add(picture(mpeg625, 2, 4, 3, {1, 2, 3}));
    stream.add(picture(mpeg625, 2, 2, 3, {1, 2, 3}));
    json const tracks = infoOf(stream.add(endOfStream())).json()["tracks"];
    ASSERT_EQ(tracks.size(), 3U);
    EXPECT_EQ(tracks[0]["number"], 5);
    EXPECT_EQ(tracks[0]["packets"], 0);
    EXPECT_EQ(tracks[0]["bytes"], 0);
    EXPECT_FALSE(tracks[0].contains("firstField"));
    EXPECT_EQ(tracks[1], (json{{"number", 2},
                               {"mediaType", "Mpeg2_625"},
                               {"code", 12},
                               {"type", "Video"},
                               {"packets", 2},
                               {"bytes", 6},
                               {"firstField", 2},
                               {"lastField", 4}}));
    EXPECT_EQ(tracks[2]["number"], 9);
    EXPECT_EQ(tracks[2]["mediaType"], "AudioPCM_24");
    EXPECT_THAT(runTool({"info", "-"}, asText(stream)).out, HasSubstr("(not in the map)"));
}

TEST(Info, ALocatorTableOutOfOrderIsAFaultAndToldAsNotValid) {
    Bytes stream = map(material("C", 5), namedTrack(mpeg625, 0, "V", rate25));
    std::size_t const offset = stream.size();
    stream.add(packet(tableType, fltPayload(10, {5, 4}))).add(endOfStream());
    ToolResult const result = infoOf(stream);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "standard input: error at offset " + std::to_string(offset) +
                              ": the positions of this field locator table are not in order\n");
    EXPECT_EQ(result.json()["fieldLocatorTable"],
              (json{{"fieldsPerEntry", 10}, {"entries", 2}, {"valid", false}}));
    EXPECT_EQ(result.json()["faults"], 1);
    std::string const text = runTool({"info", "-"}, asText(stream)).out;
    EXPECT_THAT(text, HasSubstr("Locator     2 entries, one for every 10 fields; NOT VALID\n"));
    EXPECT_THAT(text, HasSubstr(" bytes, complete, 1 FAULT\n"));
}

TEST(Info, ARefusedLocatorTableDoesNotHideAGoodOne) {
    Bytes stream = packet(tableType, fltPayload(10, {4, 5}));
    stream.add(packet(tableType, Bytes().u32Lsbf(3).u32Lsbf(1001).fill(8))).add(endOfStream());
    ToolResult const result = infoOf(stream);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.json()["fieldLocatorTable"],
              (json{{"fieldsPerEntry", 10}, {"entries", 2}, {"valid", true}}));
}

TEST(Info, NumbersAreUnsigned) {
    Bytes const tags = tagU32(0x41, 0).add(tagU32(0x42, 0xFFFFFFFE)).add(tagU32(0x44, 0xFFFFFFFF));
    json const info = infoOf(map(tags, namedTrack(mpeg625, 0, "V", rate25))).json();
    EXPECT_EQ(info["material"],
              (json{{"1stField", 0}, {"lastField", 4294967294}, {"markOut", 4294967295}}));
}

TEST(Info, ProgressivePicturesHaveOneFieldAFrame) {
    Bytes const tags =
        tagText(0x4C, "V").add(tagU32(0x50, rate59)).add(tagU32(0x51, 6)).add(tagU32(0x52, 1));
    Bytes const stream = map(material("HD", 59), track(20, 0, tags));
    json const info = infoOf(stream).json();
    EXPECT_EQ(info["rates"], (json{{"frame", 60000.0 / 1001.0}, {"field", 60000.0 / 1001.0}}));
    EXPECT_EQ(info["tracks"][0]["lines"], 720);
    EXPECT_EQ(info["tracks"][0]["width"], 1280);
    EXPECT_EQ(info["tracks"][0]["fields"], 1);
    EXPECT_EQ(info["tracks"][0]["umfTrack"], "H0");
    EXPECT_THAT(runTool({"info", "-"}, asText(stream)).out, HasSubstr(" 1280x720p "));
}

TEST(Info, ManyTracksOfAKindStayValidJson) {
    Bytes tracks;
    for (unsigned i = 0; i < 300; ++i) {
        tracks.add(track(pcm16, i & 63, {}));
    }
    ToolResult const result = infoOf(map(material("MANY", 5), tracks));
    EXPECT_EQ(result.status, 0);
    json const info = result.json();
    ASSERT_EQ(info["tracks"].size(), 300U);
    EXPECT_EQ(info["tracks"][9]["umfTrack"], "A9");
    EXPECT_EQ(info["tracks"][10]["umfTrack"], "AA");
    EXPECT_EQ(info["tracks"][35]["umfTrack"], "AZ");
    // The character 155, which as Latin-1 is U+009B.
    EXPECT_EQ(info["tracks"][100]["umfTrack"], "A\xC2\x9B");
    EXPECT_FALSE(info["tracks"][256].contains("umfTrack"));
    EXPECT_THAT(runTool({"info", "-"}, asText(map(material("MANY", 5), tracks))).out,
                Not(HasSubstr("\xC2\x9B")));
}

TEST(Info, MediaTypesWithoutALetterHaveNoUmfTrack) {
    json const info = infoOf(map(material("C", 5), track(27, 0, {}).add(track(99, 1, {})))).json();
    EXPECT_EQ(info["tracks"][0]["mediaType"], "Avc27");
    EXPECT_EQ(info["tracks"][0]["type"], "Unknown");
    EXPECT_FALSE(info["tracks"][0].contains("umfTrack"));
    EXPECT_EQ(info["tracks"][1]["code"], 99);
    EXPECT_FALSE(info["tracks"][1].contains("bitrate"));
}

TEST(Info, AMediaPacketWithoutRoomForItsPreambleIsCountedAndAFault) {
    Bytes stream = packet(mediaType, Bytes().fill(15));
    ToolResult const result = infoOf(stream.add(smallClip()));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, testing::StartsWith("standard input: error at offset 0: the payload of "
                                                "this media packet is refused, "));
    EXPECT_EQ(result.json()["packets"]["media"], 6);
    EXPECT_EQ(result.json()["tracks"], smallClipInfo()["tracks"]);
}

TEST(Info, RatesOfABrokenMapDoNoHarm) {
    // A field count below zero, and one that makes a rate that no clip has.
    for (std::uint32_t const fields : {0xFFFFFF00U, 0x7FFFFFFFU, 0U, 0x80000000U}) {
        Bytes stream = map(material("ODD", 4000000000U), namedTrack(pcm16, 0, "A", rate25, fields));
        stream.add(audio(pcm16, 0, 0, 0, 65535, Bytes().fill(131072))).add(endOfStream());
        EXPECT_EQ(infoOf(stream).status, 0);
        EXPECT_EQ(runTool({"info", "-"}, asText(stream)).status, 0);
        EXPECT_EQ(runTool({"seek", "--field", "0", "-"}, asText(stream)).status, 0);
        EXPECT_EQ(runTool({"extract", "--track", "0", "--last", "0", "-"}, asText(stream)).status,
                  0);
    }
}

} // namespace
