#include <gmock/gmock.h>

#include <testing/umf_builder.h>

#include "run_tool.h"
#include "tool_streams.h"

namespace {

using namespace GxfTesting;
using nlohmann::json;
using testing::ElementsAre;

ToolResult packetsResult(std::vector<std::string> arguments, std::string const& stream) {
    arguments.insert(arguments.begin(), "packets");
    arguments.push_back("-");
    return runTool(arguments, stream);
}

std::vector<json> jsonRows(ToolResult const& result) {
    std::vector<json> rows;
    for (std::string const& line : result.lines()) {
        rows.push_back(json::parse(line, nullptr, false));
        EXPECT_FALSE(rows.back().is_discarded()) << line;
    }
    return rows;
}

std::vector<std::string> typesOf(ToolResult const& result) {
    std::vector<std::string> types;
    for (json const& row : jsonRows(result)) {
        types.push_back(row["type"]);
    }
    return types;
}

TEST(Packets, OneLineEach) {
    ToolResult const result = packetsResult({}, asText(smallClip()));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(
        result.out,
        "           0  map                 116  preamble={version=0} materialData={media={SMALL}, "
        "1stField=0, lastField=5} trackDesc={track 0: "
        "Mpeg2_625,,media={SMALL_V1},frameRate=25hz,fields=interlaced}, track 1: "
        "AudioPCM_16,,media={SMALL_A1},frameRate=25hz,fields=interlaced}, track 2: "
        "Timecode_625,,aux=0x00.00.00.01.00.00.00.00,frameRate=25hz}}\n"
        "         116  fieldLocTbl          36  {2 flds/entry,entry[3]={f    0:           0, f    "
        "2:        1024, f    4:        2048...\n"
        "         152  media              4128  Timecode_625,trk=2,f=0,t=0,{in,out}={0,5}, tc "
        "f0={01:00:00:00, 01:00:00:00, 01:00:00:01, ..., inv}\n"
        "        4280  media             12032  AudioPCM_16,trk=1,f=0,t=0,{in,out}={0,5759}\n"
        "       16312  media                49  Mpeg2_625,trk=0,f=0,t=0,10b,P\n"
        "       16361  media                49  Mpeg2_625,trk=0,f=2,t=2,10b,P\n"
        "       16410  media                49  Mpeg2_625,trk=0,f=4,t=4,10b,P\n"
        "       16459  EOS                  16\n");
}

TEST(Packets, TellTheOrderOfUmfPackets) {
    Bytes const stream = joined(umfPackets(UmfContent().payload(), 50))
                             .add(packet(umfType, {9, 0, 0, 0, 0}))
                             .add(endOfStream());
    ToolResult const result = packetsResult({"--type", "umfFile"}, asText(stream));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out,
              "           0  umfFile              72  preamble={First,payloadLen=50}\n"
              "          72  umfFile              72  preamble={Middle,payloadLen=50}\n"
              "         144  umfFile              28  preamble={Last,payloadLen=4}\n"
              "         172  umfFile              21  preamble={Uninit,payloadLen=0} (invalid)\n");
    EXPECT_EQ(result.err, "standard input: error at offset 172: the payload of this umfFile packet "
                          "is refused, badDecodeData\n");
}

TEST(Packets, FromInTheMiddleOfAUmfIsNoFault) {
    TemporaryFolder const folder;
    Bytes const stream = joined(umfPackets(UmfContent().payload(), 50)).add(smallClip());
    std::string const path = folder.write("clip.gxf", asText(stream));
    for (ToolResult const& result : {runTool({"packets", "--json", "--from", "72", path}),
                                     packetsResult({"--json", "--from", "72"}, asText(stream))}) {
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.lines().size(), 10U);
    }
}

TEST(Packets, TileTheSamplesWithoutAGap) {
    for (char const* const name : {"news_pal.gxf", "spot_ntsc.gxf", "hd_short.gxf"}) {
        std::string const stream = readFile(sample(name));
        std::vector<RawPacket> const raw = packetsOf(stream);
        ToolResult const result = runTool({"packets", "--json", sample(name)});
        EXPECT_EQ(result.status, 0);
        std::vector<json> const rows = jsonRows(result);
        ASSERT_EQ(rows.size(), raw.size()) << name;
        for (std::size_t i = 0; i < rows.size(); ++i) {
            EXPECT_EQ(rows[i]["offset"], raw[i].offset);
            EXPECT_EQ(rows[i]["length"], raw[i].length);
            EXPECT_EQ(rows[i]["valid"], true);
            EXPECT_EQ(rows[i].contains("track"), raw[i].type == mediaType);
            if (raw[i].type == mediaType) {
                EXPECT_EQ(rows[i]["track"], raw[i].track());
                EXPECT_EQ(rows[i]["field"], raw[i].field());
            }
        }
        EXPECT_EQ(raw.back().offset + raw.back().length, stream.size());
    }
}

TEST(Packets, JsonIsOneObjectALine) {
    Bytes stream = picture(mpeg625, 3, 7, 5, Bytes().fill(5));
    // Without a valid timeline.
    stream.add(mediaPacket({.mediaType = pcm16, .trackByte = 1, .field = 9, .flags = 0}, {}));
    stream.add(packet(reservedType, {1, 2, 3})).add(endOfStream());
    ToolResult const result = packetsResult({"--json"}, asText(stream));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out,
              "{\"offset\":0,\"type\":\"media\",\"length\":37,\"valid\":true,"
              "\"text\":\"media:37b@0: Mpeg2_625,trk=3,f=7,t=7,5b,P\",\"track\":3,"
              "\"mediaType\":\"Mpeg2_625\",\"field\":7,\"timeline\":7}\n"
              "{\"offset\":37,\"type\":\"media\",\"length\":32,\"valid\":true,"
              "\"text\":\"media:32b@37: AudioPCM_16,trk=1,f=9,t=0(invalid),{in,out}={0,0}\","
              "\"track\":1,\"mediaType\":\"AudioPCM_16\",\"field\":9}\n"
              "{\"offset\":69,\"type\":\"reserved\",\"length\":19,\"valid\":true,"
              "\"text\":\"reserved:19b@69\"}\n"
              "{\"offset\":88,\"type\":\"EOS\",\"length\":16,\"valid\":true,"
              "\"text\":\"EOS:16b@88\"}\n");
}

TEST(Packets, TypesAreChosenInAnyCaseAndInSeveralWays) {
    std::string const stream = asText(smallClip());
    using Types = std::vector<std::string>;
    struct Row {
        Types arguments;
        Types types;
    };
    std::vector<Row> const rows = {
        {{"--type", "map"}, {"map"}},
        {{"--type", "MAP,eos"}, {"map", "EOS"}},
        {{"--type", "EOS,map"}, {"map", "EOS"}},
        {{"--type", "fieldloctbl", "--type", "Map"}, {"map", "fieldLocTbl"}},
        {{"--type=map,map,map"}, {"map"}},
        {{"--type", "media", "--limit", "2"}, {"media", "media"}},
        {{"--type", "umfFile"}, {}},
        {{"--type", "reserved"}, {}},
        {{"--type", "media", "--from", "16361"}, {"media", "media"}},
        {{"--limit", "1"}, {"map"}},
        {{"--limit", "18446744073709551615", "--type", "EOS"}, {"EOS"}},
    };
    for (Row const& row : rows) {
        Types arguments = row.arguments;
        arguments.push_back("--json");
        ToolResult const result = packetsResult(arguments, stream);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(typesOf(result), row.types);
    }
}

TEST(Packets, FromBeginsWithTheFirstPacketAtOrBehindAnOffset) {
    TemporaryFolder const folder;
    std::string const stream = asText(smallClip());
    std::string const path = folder.write("clip.gxf", stream);
    for (auto const& [from, first] : std::vector<std::pair<std::string, std::size_t>>{
             {"0", 0}, {"1", 116}, {"116", 116}, {"117", 152}, {"4281", 16312}, {"16459", 16459}}) {
        // As a file and as a pipe. What lies in front of the packet is no fault.
        for (ToolResult const& result :
             {runTool({"packets", "--json", "--limit", "1", "--from", from, path}),
              packetsResult({"--json", "--limit", "1", "--from", from}, stream)}) {
            EXPECT_EQ(result.status, 0) << from;
            EXPECT_EQ(result.err, "") << from;
            ASSERT_EQ(jsonRows(result).size(), 1U) << from;
            EXPECT_EQ(jsonRows(result)[0]["offset"], first);
        }
    }
}

TEST(Packets, FromBehindTheLastPacketSaysSo) {
    TemporaryFolder const folder;
    std::string const stream = asText(smallClip());
    std::string const path = folder.write("clip.gxf", stream);
    for (std::string const from : {"16460", "16475", "20000", "9223372036854775807",
                                   "18446744073709551600", "18446744073709551615"}) {
        std::string const line =
            ": no GXF packet at or behind offset " + from + "; give a smaller offset\n";
        ToolResult const result = runTool({"packets", "--from", from, path});
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "gxf: " + path + line);
        EXPECT_EQ(packetsResult({"--from", from}, stream).err, "gxf: standard input" + line);
    }
}

TEST(Packets, LimitLooksNoFurther) {
    std::string stream = asText(smallClip());
    stream.resize(stream.size() - 20);
    EXPECT_EQ(packetsResult({"--limit", "6"}, stream).status, 0);
    EXPECT_EQ(packetsResult({}, stream).status, 1);
}

TEST(Packets, OneThatIsNotValidIsMarked) {
    Bytes stream = packet(tableType, fltPayload(10, {5, 4}));
    stream.add(packet(mediaType, Bytes().fill(15))).add(endOfStream());
    ToolResult const result = packetsResult({}, asText(stream));
    EXPECT_EQ(result.status, 1);
    std::vector<std::string> const lines = result.lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_THAT(lines[0], testing::EndsWith(" (invalid)"));
    EXPECT_THAT(lines[1], testing::EndsWith("invalid)"));
    std::vector<json> const rows = jsonRows(packetsResult({"--json"}, asText(stream)));
    EXPECT_EQ(rows[0]["valid"], false);
    EXPECT_EQ(rows[1]["valid"], false);
    EXPECT_FALSE(rows[1].contains("track"));
    EXPECT_EQ(rows[2]["valid"], true);
}

} // namespace
