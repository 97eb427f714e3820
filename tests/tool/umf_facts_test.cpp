#include <algorithm>

#include <gmock/gmock.h>

#include <testing/umf_builder.h>

#include "run_tool.h"
#include "tool_streams.h"

// What info tells of a clip's UMF.

namespace {

using namespace GxfTesting;
using nlohmann::json;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

constexpr unsigned only = 3;

// 100 nanoseconds since 1601: 2009-11-04 10:12:13 and 2008-02-29 23:59:59, less 100 nanoseconds of
// the next second.
constexpr std::uint64_t modifiedAt = 129018031330000000 + 9999999;
constexpr std::uint64_t createdAt = 128488031990000000 + 9999999;

// Places in the gathered payload.
constexpr std::size_t version = 4;
constexpr std::size_t indexLength = 44;
constexpr std::size_t timecodeIn = 48 + 20;
constexpr std::size_t timecodeOut = 48 + 24;
constexpr std::size_t modifiedTime = 48 + 28;
constexpr std::size_t createdTime = 48 + 36;

void setTime(Bytes& payload, std::size_t offset, std::uint64_t time) {
    setWordAt(payload, offset, static_cast<std::uint32_t>(time));
    setWordAt(payload, offset + 4, static_cast<std::uint32_t>(time >> 32));
}

/// A pair whose value is of another type than text.
Bytes typedPair(unsigned id, std::string_view name, std::string_view type, Bytes const& value) {
    Bytes pair = umfPair(id, name, value);
    constexpr std::size_t typeName = 16 + 84;
    for (std::size_t i = 0; i < 80; ++i) {
        pair[typeName + i] = i < type.size() ? static_cast<unsigned char>(type[i]) : '\0';
    }
    return pair;
}

Bytes trackXml() {
    return utf16(
        "<?xml version=\"1.0\"?><Asset><Data>"
        "<Track trackType=\"MpegStdDefVideoTrack\" trackNumber=\"1\" trackLabel=\"Programme\">"
        "<Segment><MediaSegment><MpegSegment AspectRatio=\"3x4\" "
        "AspectRatioConversion=\"bars\"/></MediaSegment></Segment></Track>"
        "<Track trackType=\"AudioTrack\" trackNumber=\"2\"/></Data></Asset>");
}

/// A video track of two segments, an audio track, two pairs of user data, an index and XML.
Bytes fullPayload() {
    UmfContent content;
    content.addTrack({'0', 'M', 2});
    content.addTrack({'1', 'A', 1});
    content.userData = umfPair(0, "Title", Bytes().text("Evening news"))
                           .add(typedPair(1, "Key", "Binary", {0xDE, 0xAD, 0x00, 0xEF}));
    content.hasIndex = true;
    content.xml = trackXml();
    Bytes payload = content.payload();
    setTime(payload, modifiedTime, modifiedAt);
    setTime(payload, createdTime, createdAt);
    return payload;
}

json mediaFacts(char const* track, unsigned sequence) {
    return {
        {"track", track},
        {"mediaType", "Mpeg2SD"},
        {"name", std::string("EXT:/PDR/default/CLIP_") + track + "_" + std::to_string(sequence)},
        {"sequence", sequence},
        {"fields", 100},
        {"in", sequence * 100},
        {"out", sequence * 100 + 99},
        {"sampleRate", 27000000},
        {"sampleBits", 0}};
}

json fullFacts() {
    return {{"valid", true},
            {"packets", 1},
            {"payloadBytes", fullPayload().size()},
            {"attributes", 1},
            {"minLength", 2},
            {"maxLength", 100},
            {"markIn", 10},
            {"markOut", 90},
            {"timecodeIn", "01:02:03;04"},
            {"timecodeOut", "01:03:04;05"},
            {"modified", "2009-11-04T10:12:13Z"},
            {"created", "2008-02-29T23:59:59Z"},
            {"audioTracks", 2},
            {"timecodeTracks", 1},
            {"mpegTracks", 1},
            {"tracks", {{{"track", "M0"}, {"segments", 2}}, {{"track", "A1"}, {"segments", 1}}}},
            {"media",
             {mediaFacts("M0", 0),
              mediaFacts("M0", 1),
              {{"track", "A1"},
               {"mediaType", "Mpeg2SD"},
               {"name", "EXT:/PDR/default/CLIP_A1_0"},
               {"sequence", 0},
               {"fields", 100},
               {"in", 0},
               {"out", 99},
               {"sampleRate", 27000000},
               {"sampleBits", 0}}}},
            {"userData",
             {{{"name", "Title"},
               {"type", "string"},
               {"track", "M0"},
               {"size", 12},
               {"value", "Evening news"}},
              {{"name", "Key"},
               {"type", "binary"},
               {"track", "M0"},
               {"size", 4},
               {"valueHex", "dead00ef"}}}},
            {"xml",
             {{"valid", true},
              {"bytes", trackXml().size()},
              {"tracks",
               {{{"track", "M0"},
                 {"mediaType", "Mpeg2SD"},
                 {"label", "Programme"},
                 {"segments", {{{"aspectRatio", "4x3"}, {"conversion", "bars"}}}}},
                {{"track", "A1"}, {"mediaType", "Audio"}, {"segments", json::array()}}}}}}};
}

/// The UMF in one packet, and an end.
Bytes streamOf(Bytes const& payload) { return umfPacket(only, payload).add(endOfStream()); }

ToolResult infoOf(Bytes const& stream) { return runTool({"info", "--json", "-"}, asText(stream)); }
std::string textOf(Bytes const& stream) { return runTool({"info", "-"}, asText(stream)).out; }

json factsOf(Bytes const& stream) {
    ToolResult const result = infoOf(stream);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    return result.json()["umf"];
}

json userDataOf(Bytes const& items) {
    UmfContent content;
    content.userData = items;
    content.hasIndex = true;
    return factsOf(streamOf(content.payload()))["userData"];
}

/// The value of the only pair, as info has it: "value" or "valueHex".
json valueOf(std::string_view type, Bytes const& value) {
    json pair = userDataOf(typedPair(0, "N", type, value))[0];
    EXPECT_EQ(pair["size"], value.size()) << type;
    for (char const* const member : {"name", "type", "track", "size"}) {
        pair.erase(member);
    }
    return pair;
}

TEST(UmfFacts, TellEverythingOfAUmf) { EXPECT_EQ(factsOf(streamOf(fullPayload())), fullFacts()); }

TEST(UmfFacts, TellAUmfOfSeveralPackets) {
    json expected = fullFacts();
    expected["packets"] = 4;
    std::size_t const size = fullPayload().size();
    std::vector<Bytes> const packets = umfPackets(fullPayload(), size / 4 + 1);
    EXPECT_EQ(factsOf(joined(packets).add(endOfStream())), expected);
    // With other packets between.
    Bytes stream = map(material("C", 5), namedTrack(mpeg625, 0, "V", rate25));
    for (Bytes const& packet : packets) {
        stream.add(packet).add(picture(mpeg625, 0, 0, 3, {1, 2, 3}));
    }
    ToolResult const result = infoOf(stream.add(endOfStream()));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.json()["umf"], expected);
    EXPECT_EQ(result.json()["packets"],
              (json{{"map", 1}, {"umfFile", 4}, {"media", 4}, {"EOS", 1}}));
}

TEST(UmfFacts, StandInTheOrderOfTheManual) {
    std::string const text = infoOf(streamOf(fullPayload())).out;
    std::size_t before = text.find("\"umf\"");
    ASSERT_NE(before, std::string::npos);
    for (char const* const member :
         {"\"valid\"",       "\"packets\"",        "\"payloadBytes\"", "\"attributes\"",
          "\"minLength\"",   "\"maxLength\"",      "\"markIn\"",       "\"markOut\"",
          "\"timecodeIn\"",  "\"timecodeOut\"",    "\"modified\"",     "\"created\"",
          "\"audioTracks\"", "\"timecodeTracks\"", "\"mpegTracks\"",   "\"tracks\"",
          "\"media\"",       "\"userData\"",       "\"xml\"",          "\"label\"",
          "\"aspectRatio\"", "\"conversion\""}) {
        before = text.find(member, before + 1);
        ASSERT_NE(before, std::string::npos) << member;
    }
}

TEST(UmfFacts, LeaveOutWhatTheUmfDoesNotTell) {
    Bytes payload = UmfContent().payload();
    setTime(payload, modifiedTime, 0);
    setTime(payload, createdTime, 0);
    setWordAt(payload, timecodeIn, 0x80000000);
    setWordAt(payload, timecodeOut, 0x80000000);
    json expected = fullFacts();
    for (char const* const member : {"modified", "created", "timecodeIn", "timecodeOut", "xml"}) {
        expected.erase(member);
    }
    for (char const* const member : {"tracks", "media", "userData"}) {
        expected[member] = json::array();
    }
    expected["payloadBytes"] = 104;
    EXPECT_EQ(factsOf(streamOf(payload)), expected);
    EXPECT_THAT(textOf(streamOf(payload)), EndsWith("\n\nUMF         104 bytes\n"));
}

TEST(UmfFacts, AreLeftOutWithoutAUmf) {
    EXPECT_FALSE(infoOf(smallClip()).json().contains("umf"));
    EXPECT_THAT(textOf(smallClip()), Not(HasSubstr("\nUMF  ")));
}

TEST(UmfFacts, DropFrameTimecodesSayIt) {
    Bytes payload = UmfContent().payload();
    setWordAt(payload, timecodeIn, 0x21020304);
    json const facts = factsOf(streamOf(payload));
    EXPECT_EQ(facts["timecodeIn"], "01:02:03;04,drop");
    EXPECT_EQ(facts["timecodeOut"], "01:03:04;05");
}

TEST(UmfFacts, AnyTimeAndNumberIsValidJson) {
    Bytes payload = fullPayload();
    for (std::size_t at = 48; at < 104; at += 4) {
        setWordAt(payload, at, 0xFFFFFFFF);
    }
    json const facts = factsOf(streamOf(payload));
    EXPECT_EQ(facts["attributes"], 4294967295);
    EXPECT_EQ(facts["minLength"], 4294967295);
    EXPECT_EQ(facts["markOut"], 4294967295);
    EXPECT_EQ(facts["audioTracks"], 65535);
}

TEST(UmfFacts, TracksWithoutALetterStayValidJson) {
    UmfContent content;
    content.addTrack({0xFF, 0xE4, 1});
    content.rest = Bytes().fill(4);
    json const facts = factsOf(streamOf(content.payload()));
    // Latin-1.
    EXPECT_EQ(facts["tracks"], (json{{{"track", "\xC3\xA4\xC3\xBF"}, {"segments", 1}}}));
    EXPECT_EQ(facts["media"][0]["track"], "\xC3\xA4\xC3\xBF");
    EXPECT_EQ(facts["media"][0]["name"], "EXT:/PDR/default/CLIP_\xC3\xA4\xC3\xBF_0");
}

// User data.

TEST(UmfFacts, NumbersHaveTheSizeOfTheirType) {
    struct Row {
        char const* type;
        Bytes value;
        json expected;
    };
    Bytes const ones = Bytes().fill(8, 0xFF);
    for (Row const& row :
         std::vector<Row>{{"Int", {0xFE, 0xFF, 0xFF, 0xFF}, -2},
                          {"i4", {0x04, 0x03, 0x02, 0x01}, 0x01020304},
                          {"Short", {0x00, 0x80}, -32768},
                          {"Byte", {200}, 200},
                          {"Int8", {0xFF}, -1},
                          {"Int64", ones, -1},
                          {"Uint16", {0xFE, 0xFF}, 65534},
                          {"Uint32", {0xFF, 0xFF, 0xFF, 0xFF}, 4294967295},
                          {"Uint64", ones, 18446744073709551615U},
                          {"Float", {0x00, 0x00, 0xC0, 0xBF}, -1.5},
                          {"double", {0x9A, 0x99, 0x99, 0x99, 0x99, 0x99, 0xB9, 0x3F}, 0.1},
                          {"Boolean", {1}, true},
                          {"Boolean", {0}, false}}) {
        EXPECT_EQ(valueOf(row.type, row.value), (json{{"value", row.expected}})) << row.type;
    }
}

TEST(UmfFacts, ValuesThatAreNotOfTheirTypeAreHex) {
    struct Row {
        char const* type;
        Bytes value;
        char const* hex;
    };
    for (Row const& row : std::vector<Row>{
             {"Int", {1, 2, 3}, "010203"},
             {"Int", {1, 2, 3, 4, 5}, "0102030405"},
             {"Short", {0xAB}, "ab"},
             {"Byte", {1, 2}, "0102"},
             {"Int64", {7, 0, 0, 0}, "07000000"},
             {"Float", Bytes().fill(8), "0000000000000000"},
             {"Float", {0, 0, 0xC0, 0x7F}, "0000c07f"},                      // not a number
             {"double", {0, 0, 0, 0, 0, 0, 0xF0, 0x7F}, "000000000000f07f"}, // infinite
             {"Boolean", {2}, "02"},
             {"Boolean", {1, 0, 0, 0}, "01000000"},
             {"Binary", {0x41, 0x42}, "4142"},
             {"Whatever", {0x41}, "41"},
             {"", {0x41}, "41"}}) {
        EXPECT_EQ(valueOf(row.type, row.value), (json{{"valueHex", row.hex}})) << row.type;
    }
    EXPECT_EQ(userDataOf(typedPair(0, "N", "Whatever", {0x41}))[0]["type"], "unknown");
}

TEST(UmfFacts, TextsAreTexts) {
    for (char const* const type : {"String", "string", "Date", "dateTime", "bin.base64"}) {
        EXPECT_EQ(valueOf(type, Bytes().text("2009-11-04")), (json{{"value", "2009-11-04"}}));
    }
    // A zero byte is a byte like any other.
    EXPECT_EQ(valueOf("String", Bytes().text("a").u8(0).text("b")),
              (json{{"value", std::string("a\0b", 3)}}));
}

TEST(UmfFacts, TextsAreUtf8OrLatin1) {
    EXPECT_EQ(valueOf("String", Bytes().text("K\xC3\xB6ln \xE2\x80\x94")),
              (json{{"value", "K\xC3\xB6ln \xE2\x80\x94"}}));
    EXPECT_EQ(valueOf("String", Bytes().text("K\xF6ln \xA9")),
              (json{{"value", "K\xC3\xB6ln \xC2\xA9"}}));
    EXPECT_EQ(userDataOf(umfPair(0,
                                 "St\xFC"
                                 "ck",
                                 Bytes().text("1")))[0]["name"],
              "St\xC3\xBC"
              "ck");
}

TEST(UmfFacts, ItemsWithoutTheirPartnerAreLeftOut) {
    Bytes const items = umfKeyItem(5, "Alone", 1)
                            .add(umfPair(0, "Pair", Bytes().text("x")))
                            .add(umfValueItem(6, Bytes().text("y")))
                            .add(umfItem(0x90007, Bytes().text("zzz")));
    json const list = userDataOf(items);
    ASSERT_EQ(list.size(), 1U);
    EXPECT_EQ(list[0]["name"], "Pair");
}

TEST(UmfFacts, ManyPairsKeepTheirOrder) {
    Bytes items;
    for (unsigned i = 0; i < 100; ++i) {
        items.add(umfPair(99 - i, "Name " + std::to_string(i), Bytes().text(std::to_string(i))));
    }
    json const list = userDataOf(items);
    ASSERT_EQ(list.size(), 100U);
    for (unsigned i = 0; i < 100; ++i) {
        EXPECT_EQ(list[i]["name"], "Name " + std::to_string(i));
        EXPECT_EQ(list[i]["value"], std::to_string(i));
    }
}

TEST(UmfFacts, AreATableForPeople) {
    UmfContent content;
    content.userData = umfPair(0, "Title", Bytes().text("Evening\nnews \x1B[31m"))
                           .add(umfPair(1, "K\xF6ln",
                                        Bytes().text("Gr\xFC\xDF"
                                                     "e")))
                           .add(typedPair(2, "Take", "Int", {7, 0, 0, 0}))
                           .add(typedPair(3, "Live", "Boolean", {1}))
                           .add(typedPair(4, "Gain", "Float", {0, 0, 0xC0, 0xBF}))
                           .add(typedPair(5, "Checksum", "Binary", Bytes().fill(29, 0xAB)))
                           .add(typedPair(6, "Picture", "Binary", Bytes().fill(1234, 0xCD)));
    content.hasIndex = true;
    content.xml = trackXml();
    Bytes payload = content.payload();
    setTime(payload, modifiedTime, modifiedAt);
    // Seven pairs of 316 bytes and their values of 1 295, 120 bytes in front and of the index.
    EXPECT_THAT(
        textOf(streamOf(payload)),
        EndsWith("\n\nUMF         4 211 bytes, modified 2009-11-04T10:12:13Z, XML of 584 bytes\n"
                 "\n"
                 "User data  Type    Track   Size  Value\n"
                 "Title      string  M0        18  Evening news ?[31m\n"
                 "K\xC3\xB6ln       string  M0         5  Gr\xC3\xBC\xC3\x9F"
                 "e\n"
                 "Take       int32   M0         4  7\n"
                 "Live       bool    M0         1  true\n"
                 "Gain       float   M0         4  -1.5\n"
                 "Checksum   binary  M0        29  "
                 "0xababababababababababababababababababababababababababababab\n"
                 "Picture    binary  M0     1 234  "
                 "0xcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcdcd...\n"));
}

// Broken UMFs.

TEST(UmfFacts, AUmfThatIsRefusedIsToldAsNotValid) {
    Bytes payload = fullPayload();
    setWordAt(payload, version, 4);
    Bytes stream = map(material("C", 5), namedTrack(mpeg625, 0, "V", rate25));
    std::size_t const offset = stream.size();
    stream.add(streamOf(payload));
    ToolResult const result = infoOf(stream);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "standard input: error at offset " + std::to_string(offset) +
                              ": the UMF that begins here is refused, badDecodeData\n");
    EXPECT_EQ(result.json()["faults"], 1);
    EXPECT_EQ(result.json()["umf"],
              (json{{"valid", false}, {"packets", 1}, {"payloadBytes", payload.size()}}));
    EXPECT_EQ(result.json()["material"]["media"], "C");
    EXPECT_THAT(textOf(stream), EndsWith("\n\nUMF         NOT VALID\n"));
}

TEST(UmfFacts, AUmfWithABadIndexKeepsTheRest) {
    Bytes payload = fullPayload();
    setWordAt(payload, indexLength, 17);
    ToolResult const result = infoOf(streamOf(payload));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "standard input: error at offset 0: the tail of the UMF that begins here "
                          "is refused, badDecodeData: UMF index size 17b != 16b\n");
    json expected = fullFacts();
    expected.erase("xml");
    EXPECT_EQ(result.json()["umf"], expected);
}

TEST(UmfFacts, XmlThatTheParserRefusesIsToldAsNotValid) {
    UmfContent content;
    content.hasIndex = true;
    content.xml = utf16("<?xml version=\"1.0\"?><Asset><Data></Asset>");
    Bytes const stream = streamOf(content.payload());
    ToolResult const result = infoOf(stream);
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err,
                StartsWith("standard input: error at offset 0: the tail of the UMF that "
                           "begins here is refused, xml decode failed: err="));
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
    json const facts = result.json()["umf"];
    EXPECT_EQ(facts["valid"], true);
    EXPECT_EQ(facts["xml"], (json{{"valid", false}, {"bytes", 84}, {"tracks", json::array()}}));
    EXPECT_THAT(textOf(stream), HasSubstr(", UNUSABLE XML of 84 bytes\n"));
}

TEST(UmfFacts, AUmfWithoutItsEndIsAFaultAndNoUmf) {
    std::vector<Bytes> packets = umfPackets(fullPayload(), 500);
    packets.pop_back();
    ToolResult const result = infoOf(joined(packets).add(endOfStream()));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "standard input: error at offset 0: the UMF that begins here has no "
                          "\"Last\" packet\n");
    EXPECT_FALSE(result.json().contains("umf"));
}

TEST(UmfFacts, AUmfThatLostAPacketIsAFaultAndNoUmf) {
    std::vector<Bytes> packets = umfPackets(fullPayload(), 500);
    ASSERT_GT(packets.size(), 2U);
    packets[1][0] = 0xFF;
    ToolResult const result = infoOf(joined(packets).add(endOfStream()));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err,
              "standard input: error at offset 524: 524 bytes passed over that are no packet; "
              "packets go on at offset 1048\n"
              "standard input: error at offset 0: bytes of the UMF that begins here are lost: it "
              "has " +
                  std::to_string(fullPayload().size()) + " bytes, and its packets hold " +
                  std::to_string(fullPayload().size() - 500) + "; it is dropped\n");
    EXPECT_FALSE(result.json().contains("umf"));
}

// Several UMFs.

Bytes titled(char const* title) {
    UmfContent content;
    content.userData = umfPair(0, "Title", Bytes().text(title));
    content.hasIndex = true;
    return content.payload();
}

json titleIn(Bytes const& stream) { return infoOf(stream).json()["umf"]["userData"][0]["value"]; }

TEST(UmfFacts, OfSeveralUmfsTheLastOneIsTold) {
    Bytes const stream = umfPacket(only, titled("first"))
                             .add(picture(mpeg625, 0, 0, 3, {1, 2, 3}))
                             .add(joined(umfPackets(titled("second"), 200)))
                             .add(endOfStream());
    EXPECT_EQ(titleIn(stream), "second");
    EXPECT_EQ(infoOf(stream).status, 0);
}

TEST(UmfFacts, AValidUmfIsToldInsteadOfABrokenOneBehindIt) {
    Bytes broken = titled("broken");
    setWordAt(broken, version, 2);
    for (bool const goodFirst : {true, false}) {
        Bytes stream = umfPacket(only, goodFirst ? titled("good") : broken);
        stream.add(umfPacket(only, goodFirst ? broken : titled("good"))).add(endOfStream());
        EXPECT_EQ(titleIn(stream), "good");
        EXPECT_EQ(infoOf(stream).status, 1);
    }
}

TEST(UmfFacts, AUmfHasNothingOfTheOneBefore) {
    Bytes const stream = umfPacket(only, fullPayload()).add(streamOf(UmfContent().payload()));
    json const facts = factsOf(stream);
    EXPECT_FALSE(facts.contains("xml"));
    EXPECT_EQ(facts["userData"], json::array());
    EXPECT_EQ(facts["tracks"], json::array());
}

TEST(UmfFacts, QuickTellsTheUmfInFrontOfTheFirstMediaPacket) {
    Bytes const media = picture(mpeg625, 0, 0, 3, {1, 2, 3});
    Bytes const stream =
        umfPacket(only, titled("first")).add(media).add(streamOf(titled("second")));
    ToolResult const result = runTool({"info", "--quick", "--json", "-"}, asText(stream));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.json()["umf"]["userData"][0]["value"], "first");
    Bytes const behind = Bytes(media).add(streamOf(titled("second")));
    EXPECT_FALSE(
        runTool({"info", "--quick", "--json", "-"}, asText(behind)).json().contains("umf"));
}

} // namespace
