#include <algorithm>
#include <gmock/gmock.h>

#include "run_tool.h"
#include "tool_streams.h"
#include "umf_clips.h"

// What `gxf userdata` reads of a UMF, and what it makes of it.

namespace {

using namespace GxfTesting;
using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

std::string const piped = "standard input: ";
std::string const noRoomAt = ": the UMF at offset 40 has no room for ";

Bytes text(std::string_view value) { return Bytes().text(value); }

// list

TEST(UserDataList, IsATableForPeople) {
    ToolResult const result = runTool({"userdata", "list", sample("news_pal.gxf")});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, R"(User data  Type    Track  Size  Value
Title      string  M0       21  Evening news, opening
Rights     string  M0       23  © 2009 — all regions
Take       int32   M0        4  7
Checksum   binary  A1       40  0x000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c...
)");
    // As at the end of info's text.
    ToolResult const info = runTool({"info", sample("news_pal.gxf")});
    EXPECT_THAT(info.out, testing::EndsWith("\n\n" + result.out));
}

TEST(UserDataList, AsJsonIsTheArrayOfInfo) {
    for (char const* const name : {"news_pal.gxf", "spot_ntsc.gxf", "hd_short.gxf"}) {
        ToolResult const result = runTool({"userdata", "list", "--json", sample(name)});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.json(),
                  runTool({"info", "--json", sample(name)}).json()["umf"]["userData"])
            << name;
        EXPECT_EQ(std::count(result.out.begin(), result.out.end(), '\n'), 1);
    }
    EXPECT_EQ(runTool({"userdata", "list", "--json", sample("spot_ntsc.gxf")}).out,
              "[{\"name\":\"Agency\",\"type\":\"string\",\"track\":\"M0\",\"size\":16,"
              "\"value\":\"ACME 100%% fresh\"}]\n");
}

TEST(UserDataList, OfAUmfWithoutAnyIsEmpty) {
    ToolResult const table = runTool({"userdata", "list", sample("hd_short.gxf")});
    EXPECT_EQ(table.status, 0);
    EXPECT_EQ(table.out, "");
    EXPECT_EQ(table.err, "");
    EXPECT_EQ(runTool({"userdata", "list", "--json", sample("hd_short.gxf")}).out, "[]\n");
}

TEST(UserDataList, WithoutAUmfIsEmptyWithStatus1) {
    for (char const* const option : {"--json", "--quiet"}) {
        ToolResult const result = runTool({"userdata", "list", option, "-"}, asText(smallClip()));
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, option == std::string("--json") ? "[]\n" : "");
        EXPECT_EQ(result.err, piped + "has no UMF\n");
    }
}

TEST(UserDataList, PrintsNothingThatCouldMoveACursor) {
    UmfContent content = roomyContent(0);
    content.userData = umfPair(0, "a\nb\x1B[2J",
                               text("1\r\n\x07"
                                    "2\xC2\x9B"
                                    "3"));
    ToolResult const result = runTool({"userdata", "list", "-"}, clipOf(content));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "User data  Type    Track  Size  Value\n"
                          "a b?[2J    string  M0        8  1? ?2?3\n");
}

TEST(UserDataList, OfSeveralUmfsIsThatOfTheLastValidOne) {
    UmfContent second = roomyContent(0);
    second.userData = umfPair(0, "Second", text("2"));
    Bytes broken = newsContent().payload();
    setWordAt(broken, 4, 9); // version
    ToolResult const result =
        runTool({"userdata", "list", "--json", "-"},
                clipAround({umfPacket(3, newsContent().payload()), umfPacket(3, second.payload()),
                            umfPacket(3, broken)}));
    EXPECT_EQ(result.status, 1);
    ASSERT_EQ(result.json().size(), 1U);
    EXPECT_EQ(result.json()[0]["name"], "Second");
}

// get

ToolResult valueOf(std::string const& name, UmfContent const& content) {
    return runTool({"userdata", "get", "--", name, "-"}, clipOf(content));
}

TEST(UserDataGet, IsTheBytesAsTheyStandWithNothingAdded) {
    std::string bytes;
    for (int i = 0; i < 40; ++i) {
        bytes += static_cast<char>(i);
    }
    struct Row {
        char const* file;
        char const* name;
        std::string value;
    };
    for (Row const& row : {Row{"news_pal.gxf", "Title", "Evening news, opening"},
                           Row{"news_pal.gxf", "Rights", "© 2009 — all regions"},
                           Row{"news_pal.gxf", "Take", std::string("\7\0\0\0", 4)},
                           Row{"news_pal.gxf", "Checksum", bytes},
                           Row{"spot_ntsc.gxf", "Agency", "ACME 100%% fresh"}}) {
        ToolResult const result = runTool({"userdata", "get", row.name, sample(row.file)});
        EXPECT_EQ(result.status, 0) << row.name;
        EXPECT_EQ(result.out, row.value) << row.name;
        EXPECT_EQ(result.err, "") << row.name;
    }
}

TEST(UserDataGet, WhatIsNotThereIsStatus1) {
    for (char const* const name : {"title", "Titl", "Title ", "", "%s", "T*"}) {
        ToolResult const result = valueOf(name, newsContent());
        EXPECT_EQ(result.status, 1) << name;
        EXPECT_EQ(result.out, "") << name;
        EXPECT_EQ(result.err, piped + "has no user data named '" + name + "'\n");
    }
    ToolResult const noUmf = runTool({"userdata", "get", "Title", "-"}, asText(smallClip()));
    EXPECT_EQ(noUmf.status, 1);
    EXPECT_EQ(noUmf.out, "");
    EXPECT_EQ(noUmf.err, piped + "has no UMF\n");
}

TEST(UserDataGet, NamesAreTakenByteForByte) {
    std::string const longest(79, 'n');
    for (std::string const& name :
         {std::string("100%"), std::string("%s%n"), std::string("50%% off"), std::string("-6"),
          std::string("--json"), std::string("two words"), std::string("a\nb"), longest,
          longest + 'n', std::string("€")}) {
        UmfContent content = roomyContent(0);
        content.userData = umfPair(0, "Other", text("no")).add(umfPair(1, name, text("yes")));
        ToolResult const result = valueOf(name, content);
        EXPECT_EQ(result.status, 0) << name;
        EXPECT_EQ(result.out, "yes") << name;
        EXPECT_EQ(result.err, "") << name;
    }
}

TEST(UserDataGet, ALatin1NameIsFoundAsItStandsAndAsItPrints) {
    UmfContent content = roomyContent(0);
    content.userData = umfPair(0,
                               "Gr\xF6\xDF"
                               "e",
                               text("Latin-1"));
    EXPECT_EQ(valueOf("Gr\xF6\xDF"
                      "e",
                      content)
                  .out,
              "Latin-1");
    EXPECT_EQ(valueOf("Größe", content).out, "Latin-1");
    // What stands so is preferred to what only prints so.
    content.userData.add(umfPair(1, "Größe", text("UTF-8")));
    EXPECT_EQ(valueOf("Gr\xF6\xDF"
                      "e",
                      content)
                  .out,
              "Latin-1");
    EXPECT_EQ(valueOf("Größe", content).out, "UTF-8");
}

TEST(UserDataGet, OfTwoPairsOfANameTheFirstIsTaken) {
    UmfContent content = roomyContent(0);
    content.userData = umfPair(0, "N", text("first")).add(umfPair(1, "N", text("second")));
    EXPECT_EQ(valueOf("N", content).out, "first");
}

TEST(UserDataGet, AValueInFrontOfItsKeyBelongsToIt) {
    UmfContent content = roomyContent(0);
    content.userData = umfValueItem(4, text("value")).add(umfKeyItem(4, "Late", 5));
    EXPECT_EQ(valueOf("Late", content).out, "value");
}

TEST(UserDataGet, AKeyWithoutItsValueIsNoPair) {
    UmfContent content = roomyContent(0);
    content.userData = umfKeyItem(4, "Alone", 5);
    EXPECT_EQ(valueOf("Alone", content).status, 1);
    EXPECT_EQ(runTool({"userdata", "list", "--json", "-"}, clipOf(content)).out, "[]\n");
}

TEST(UserDataGet, OfAStreamWithFaultsIsStatus1) {
    std::string const stream = "garbage that is no packet" + clipOf(newsContent());
    ToolResult const result =
        runTool({"userdata", "get", "Title", "-"}, stream.substr(0, stream.size() - 3));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "Evening news");
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 2) << result.err;
}

// set and remove

class UserDataChange : public testing::Test {
  protected:
    UserDataChange() { put(newsContent()); }

    void put(std::string const& stream) {
        m_stream = stream;
        m_path = m_folder.write("clip.gxf", stream);
    }
    void put(UmfContent const& content) { put(clipOf(content)); }

    /// Names and values come behind the end of the options.
    ToolResult run(char const* verb, Arguments options, Arguments const& names) {
        options.insert(options.begin(), {"userdata", verb, "--in-place"});
        options.push_back("--");
        options.insert(options.end(), names.begin(), names.end());
        options.push_back(m_path);
        return runTool(options);
    }
    ToolResult set(std::string const& name, std::string const& value, Arguments options = {}) {
        return run("set", std::move(options), {name, value});
    }
    ToolResult setFrom(std::string const& name, std::string const& file, Arguments options = {}) {
        options.insert(options.end(), {"--value-file", file});
        return run("set", std::move(options), {name});
    }
    ToolResult remove(std::string const& name) { return run("remove", {}, {name}); }
    std::string get(std::string const& name) {
        return runTool({"userdata", "get", "--", name, m_path}).out;
    }

    /// Done, with nothing to tell, and the file has that UMF now.
    void expectNow(ToolResult const& result, UmfContent const& content) {
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "");
        EXPECT_TRUE(readFile(m_path) == clipOf(content));
        EXPECT_EQ(m_folder.names(), Arguments{"clip.gxf"});
    }
    /// Not done, in one line, and the file is what it was.
    void expectRefused(ToolResult const& result, std::string const& line, int status = 2) {
        EXPECT_EQ(result.status, status);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, line + "\n");
        EXPECT_TRUE(readFile(m_path) == m_stream);
        EXPECT_EQ(m_folder.names(), Arguments{"clip.gxf"});
    }
    std::string here() const { return "gxf: " + m_path; }

    TemporaryFolder m_folder;
    std::string m_path;
    std::string m_stream;
};

Bytes const take = pairOf(1, "Take", {7, 0, 0, 0}, "Int", {'1', 'A', 1});

TEST_F(UserDataChange, SetReplacesTheValueWhereItStands) {
    UmfContent after = newsContent();
    after.userData = pairOf(0, "Title", text("X")).add(take);
    expectNow(set("Title", "X"), filledTo(after, newsContent().size()));
    EXPECT_EQ(get("Title"), "X");
    // Back into the filler, and nothing tells of the change.
    expectNow(set("Title", "Evening news"), newsContent());
}

TEST_F(UserDataChange, SetKeepsWhatElseThePairSays) {
    // The fields of another writer: pos and sequence of both items, vendor, class, version.
    UmfContent before = newsContent();
    Bytes pair = pairOf(0, "Title", text("Evening news"));
    auto const putText = [&pair](std::size_t at, std::string_view value) {
        std::copy(value.begin(), value.end(), pair.data() + at);
    };
    for (std::size_t const item : {std::size_t{0}, std::size_t{298}}) {
        setWordAt(pair, item + 4, 0x01020304);
        pair[item + 10] = 0x5A;
    }
    putText(16, "sixteen reserved");
    setWordAt(pair, 32, 0x0A0B0C0D);
    putText(36, "Somebody else's subsystem here ");
    putText(68, "otherdat");
    putText(260, "2");
    Bytes after = pair;
    before.userData = pair.add(take);
    put(before);
    // The value, its size, and the lengths that follow from it.
    Bytes shorter = text({reinterpret_cast<char const*>(after.data()), 314});
    shorter.text("X").fill(2);
    setWordAt(shorter, 292, 1);
    setWordAt(shorter, 298, 19);
    UmfContent expected = before;
    expected.userData = shorter.add(take);
    expectNow(set("Title", "X"), filledTo(expected, before.size()));
}

TEST_F(UserDataChange, SetOfTheSameValueChangesNotAByte) {
    expectNow(set("Title", "Evening news"), newsContent());
    expectNow(set("Take", "7", {"--type", "int32", "--track", "A1"}), newsContent());
}

TEST_F(UserDataChange, SetAddsAPairBehindTheOthers) {
    UmfContent const before = filledTo(newsContent(), newsContent().size() + 1000);
    put(before);
    UmfContent after = newsContent();
    after.userData.add(pairOf(2, "Desk", text("Foreign")));
    expectNow(set("Desk", "Foreign"), filledTo(after, before.size()));
    // Up to the last byte, and not one more: two pairs of 316 bytes and their values.
    std::string const rest(1000 - 316 - 7 - 316, 'x');
    expectNow(set("Rest", rest), [&] {
        after.userData.add(pairOf(3, "Rest", text(rest)));
        return filledTo(after, before.size());
    }());
    m_stream = readFile(m_path);
    expectRefused(set("Rest", rest + 'x'),
                  here() + noRoomAt +
                      "1 byte more: it would lose its XML document (92 bytes); allow that with "
                      "--discard-tail, or give a shorter value");
}

TEST_F(UserDataChange, SetGivesANewPairTheLowestFreeId) {
    UmfContent before = roomyContent(400);
    before.userData = pairOf(0, "A", text("a")).add(pairOf(2, "C", text("c")));
    put(before);
    UmfContent after = roomyContent(0);
    after.userData =
        pairOf(0, "A", text("a")).add(pairOf(2, "C", text("c"))).add(pairOf(1, "B", text("b")));
    expectNow(set("B", "b"), filledTo(after, before.size()));
}

TEST_F(UserDataChange, SetTakesTheTypeAndTheTrackAnew) {
    // Neither given: a text of the first track, whatever the pair was.
    UmfContent after = newsContent();
    after.userData =
        pairOf(0, "Title", text("Evening news")).add(pairOf(1, "Take", text("8"), "String"));
    expectNow(set("Take", "8"), filledTo(after, newsContent().size()));
    after.userData = pairOf(0, "Title", text("Evening news"))
                         .add(pairOf(1, "Take", {8, 0}, "Short", {'1', 'A', 1}));
    expectNow(set("Take", "8", {"--type", "int16", "--track", "A1"}),
              filledTo(after, newsContent().size()));
}

TEST_F(UserDataChange, SetOfAnUnknownTrackNamesThoseThatThereAre) {
    for (char const* const track : {"A0", "m0", "M", "M00", "", "%s"}) {
        expectRefused(set("Title", "X", {"--track", track}),
                      here() + ": the UMF at offset 40 can't be changed: it has no track '" +
                          track + "', choose from M0, A1; nothing is changed");
    }
}

struct TypedValue {
    char const* type;
    char const* text;
    char const* onWire;
    Bytes bytes;
};

TEST_F(UserDataChange, SetWritesEveryType) {
    std::vector<TypedValue> const rows = {
        {"string", "a b", "String", text("a b")},
        {"STRING", "100%", "String", text("100%")},
        {"int8", "-128", "Int8", {0x80}},
        {"int8", "127", "Int8", {0x7F}},
        {"int16", "-32768", "Short", {0x00, 0x80}},
        {"int16", "32767", "Short", {0xFF, 0x7F}},
        {"int32", "-2147483648", "Int", {0x00, 0x00, 0x00, 0x80}},
        {"int32", "2147483647", "Int", {0xFF, 0xFF, 0xFF, 0x7F}},
        {"int64", "-9223372036854775808", "Int64", {0, 0, 0, 0, 0, 0, 0, 0x80}},
        {"INT64", "9223372036854775807", "Int64", {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x7F}},
        {"byte", "255", "Byte", {0xFF}},
        {"byte", "007", "Byte", {7}},
        {"uint16", "65535", "Uint16", {0xFF, 0xFF}},
        {"uint32", "4294967295", "Uint32", {0xFF, 0xFF, 0xFF, 0xFF}},
        {"uint64",
         "18446744073709551615",
         "Uint64",
         {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
        {"float", "0.5", "Float", {0x00, 0x00, 0x00, 0x3F}},
        {"float", "-1e-3", "Float", {0x6F, 0x12, 0x83, 0xBA}},
        {"double", "0.5", "double", {0, 0, 0, 0, 0, 0, 0xE0, 0x3F}},
        {"double", "-2", "double", {0, 0, 0, 0, 0, 0, 0x00, 0xC0}},
        {"bool", "true", "Boolean", {1}},
        {"bool", "false", "Boolean", {0}},
        {"dateTime", "2009-11-04T10:12:13", "Date", text("2009-11-04T10:12:13")},
        {"base64", "QUJD", "bin.base64", text("QUJD")},
        {"binary", "0x41", "Binary", text("0x41")},
    };
    for (TypedValue const& row : rows) {
        SCOPED_TRACE(std::string(row.type) + ' ' + row.text);
        UmfContent const before = roomyContent(400);
        put(before);
        UmfContent after = roomyContent(0);
        after.userData = pairOf(0, "V", row.bytes, row.onWire);
        expectNow(set("V", row.text, {"--type", row.type}), filledTo(after, before.size()));
        EXPECT_EQ(get("V"), asText(row.bytes));
    }
}

TEST_F(UserDataChange, WhatANumberSaysIsReadBackByList) {
    put(roomyContent(400));
    struct Row {
        char const* type;
        char const* value;
        json read;
    };
    for (Row const& row :
         {Row{"int8", "-5", -5}, Row{"int64", "-9223372036854775808", INT64_MIN},
          Row{"uint64", "18446744073709551615", UINT64_MAX}, Row{"float", "0.25", 0.25},
          Row{"double", "1e300", 1e300}, Row{"bool", "true", true}}) {
        EXPECT_EQ(set("V", row.value, {"--type", row.type}).status, 0);
        json const list = runTool({"userdata", "list", "--json", m_path}).json();
        EXPECT_EQ(list[0]["type"], row.type);
        EXPECT_EQ(list[0]["value"], row.read) << row.type;
    }
}

TEST_F(UserDataChange, SetRefusesWhatATypeCanNotHold) {
    struct Row {
        char const* type;
        char const* value;
        char const* wanted;
    };
    std::vector<Row> rows = {
        {"int8", "128", "a whole number from -128 to 127"},
        {"int8", "-129", "a whole number from -128 to 127"},
        {"int16", "32768", "a whole number from -32768 to 32767"},
        {"int32", "2147483648", "a whole number from -2147483648 to 2147483647"},
        {"int64", "9223372036854775808",
         "a whole number from -9223372036854775808 to 9223372036854775807"},
        {"byte", "256", "a whole number from 0 to 255"},
        {"byte", "-1", "a whole number from 0 to 255"},
        {"uint16", "65536", "a whole number from 0 to 65535"},
        {"uint32", "4294967296", "a whole number from 0 to 4294967295"},
        {"uint64", "18446744073709551616", "a whole number from 0 to 18446744073709551615"},
        {"bool", "1", "true or false"},
        {"bool", "TRUE", "true or false"},
        {"float", "1e39", "a number such as 0.5"},
        {"double", "1e309", "a number such as 0.5"},
        {"double", "0,5", "a number such as 0.5"},
        {"double", "half", "a number such as 0.5"},
    };
    for (char const* const value : {"", " 5", "5 ", "+5", "0x10", "5.0", "1e3", "five", "%d"}) {
        rows.push_back({"byte", value, "a whole number from 0 to 255"});
    }
    for (Row const& row : rows) {
        expectRefused(set("Title", row.value, {"--type", row.type}),
                      std::string("gxf: '") + row.value + "' is no " + row.type + "; give " +
                          row.wanted);
    }
    expectRefused(set("Title", "5\n", {"--type", "byte"}),
                  "gxf: '5 ' is no byte; give a whole number from 0 to 255");
    for (char const* const type : {"text", "", "Int", "unknown", "i4"}) {
        expectRefused(set("Title", "1", {"--type", type}),
                      std::string("gxf: there is no type '") + type +
                          "'; choose from string, int32, int16, byte, float, double, bool, "
                          "dateTime, base64, uint16, uint32, uint64, int8, int64, binary");
    }
}

TEST_F(UserDataChange, AnEmptyValueIsRefused) {
    std::string const line =
        "gxf: the value is empty; give one of at least one byte, or remove the name";
    expectRefused(set("Title", ""), line);
    expectRefused(setFrom("Title", "/dev/null"), line);
}

TEST_F(UserDataChange, NamesOfEveryKindAreSetFoundAndRemoved) {
    UmfContent const before = roomyContent(400);
    for (std::string const& name :
         {std::string("100%"), std::string("%s%n"), std::string("50%% off"), std::string("%"),
          std::string("-6"), std::string("--in-place"), std::string("two words"),
          std::string("a\nb"), std::string(79, 'n'), std::string("€"), std::string("Gr\xF6\xDF")}) {
        SCOPED_TRACE(name);
        put(before);
        UmfContent after = roomyContent(0);
        after.userData = pairOf(0, name, text("v1"));
        expectNow(set(name, "v1"), filledTo(after, before.size()));
        after.userData = pairOf(0, name, text("v2%s"));
        expectNow(set(name, "v2%s"), filledTo(after, before.size()));
        EXPECT_EQ(get(name), "v2%s");
        expectNow(remove(name), before);
    }
}

TEST_F(UserDataChange, SetOfANameThatNoFieldHoldsIsRefused) {
    for (std::string const& name : {std::string(), std::string(80, 'n'), std::string(1000, 'n')}) {
        expectRefused(set(name, "v"),
                      "gxf: a name has 1 to 79 bytes; see 'gxf userdata set --help'");
    }
}

TEST_F(UserDataChange, ALatin1NameStaysAsItStands) {
    UmfContent before = roomyContent(0);
    before.userData = pairOf(0,
                             "Gr\xF6\xDF"
                             "e",
                             text("large"));
    put(before);
    UmfContent after = roomyContent(0);
    after.userData = pairOf(0,
                            "Gr\xF6\xDF"
                            "e",
                            text("tiny"));
    expectNow(set("Größe", "tiny"), filledTo(after, before.size()));
    expectNow(remove("Größe"), filledTo(roomyContent(0), before.size()));
}

TEST_F(UserDataChange, ValuesThatBeginWithADash) {
    put(roomyContent(400));
    EXPECT_EQ(set("Gain", "-6 dB").status, 0);
    EXPECT_EQ(get("Gain"), "-6 dB");
    // Numbers need no "--".
    EXPECT_EQ(
        runTool({"userdata", "set", "Gain", "-6", "--type", "int8", "--in-place", m_path}).status,
        0);
    EXPECT_EQ(get("Gain"), "\xFA");
    ToolResult const option = runTool({"userdata", "set", "Gain", "-six", "--in-place", m_path});
    EXPECT_EQ(option.status, 2);
    EXPECT_EQ(option.err, "gxf: there is no option '-six'; see 'gxf userdata set --help'\n");
    EXPECT_EQ(get("Gain"), "\xFA");
}

TEST_F(UserDataChange, AValueFromAFileIsItsBytes) {
    std::string bytes;
    for (int i = 0; i < 256; ++i) {
        bytes += static_cast<char>(i);
    }
    bytes += std::string("\0\n\0\0", 4);
    TemporaryFolder const other;
    std::string const file = other.write("value", bytes);
    UmfContent const before = roomyContent(600);
    put(before);
    UmfContent after = roomyContent(0);
    after.userData = pairOf(0, "Key", text(bytes), "Binary");
    expectNow(setFrom("Key", file, {"--type", "binary"}), filledTo(after, before.size()));
    EXPECT_EQ(get("Key"), bytes);
    // The type is a name alone then.
    after.userData = pairOf(0, "Key", text(bytes), "Int");
    expectNow(setFrom("Key", file, {"--type", "int32"}), filledTo(after, before.size()));
    // From standard input.
    ToolResult const fromPipe =
        runTool({"userdata", "set", "--in-place", "--value-file", "-", "Key", m_path},
                std::string("from a\n\0pipe", 12));
    EXPECT_EQ(fromPipe.status, 0) << fromPipe.err;
    EXPECT_EQ(get("Key"), std::string("from a\n\0pipe", 12));
}

TEST_F(UserDataChange, AValueFileThatCanNotBeReadIsTold) {
    expectRefused(setFrom("Title", "/none/value"),
                  "gxf: /none/value: can't be read, No such file or directory; check the path");
    expectRefused(setFrom("Title", "/"), "gxf: /: can't be read, Is a directory; check the path");
    expectRefused(setFrom("Title", ""), "gxf: --value-file has an empty name; give a path");
    expectRefused(setFrom("Title", "/dev/zero"),
                  "gxf: /dev/zero: is larger than a UMF can be; give a shorter value");
}

TEST_F(UserDataChange, AValueIsGivenOnce) {
    std::string const see = "; see 'gxf userdata set --help'";
    std::string const both = "gxf: give VALUE or --value-file, not both" + see;
    expectRefused(runTool({"userdata", "set", "--in-place", "Title", "X", "--value-file",
                           "/dev/null", m_path}),
                  both);
    expectRefused(runTool({"userdata", "set", "--in-place", "--value-file", "/dev/null", "Title"}),
                  "gxf: FILE is required" + see);
    expectRefused(runTool({"userdata", "set", "--in-place", "Title"}),
                  "gxf: VALUE is required" + see);
    expectRefused(runTool({"userdata", "set", "--in-place", "Title", m_path}),
                  "gxf: FILE is required" + see);
    expectRefused(
        runTool({"userdata", "set", "-o", m_folder / "out", "--value-file", "-", "Title", "-"}),
        "gxf: the value and the stream can't both be standard input" + see);
}

TEST_F(UserDataChange, WhereTheResultGoesIsGivenOnce) {
    for (Arguments const& words : {Arguments{"set", "Title", "X"}, Arguments{"remove", "Title"}}) {
        std::string const see = "; see 'gxf userdata " + words[0] + " --help'";
        Arguments command = {"userdata"};
        command.insert(command.end(), words.begin(), words.end());
        command.push_back(m_path);
        expectRefused(runTool(command), "gxf: give -o OUT for a changed copy, or --in-place" + see);
        for (std::string const& out : {m_folder / "out", std::string("-"), std::string()}) {
            Arguments both = command;
            both.insert(both.end(), {"--in-place", "-o", out});
            expectRefused(runTool(both), "gxf: give -o OUT or --in-place, not both" + see);
        }
        Arguments nothing = command;
        nothing.insert(nothing.end(), {"-o", ""});
        expectRefused(runTool(nothing), "gxf: the output has an empty name; give one");
    }
}

TEST_F(UserDataChange, RemoveTakesThePairOut) {
    UmfContent after = newsContent();
    after.userData = take;
    expectNow(remove("Title"), filledTo(after, newsContent().size()));
    after.userData = {};
    expectNow(remove("Take"), filledTo(after, newsContent().size()));
    EXPECT_EQ(runTool({"userdata", "list", "--json", m_path}).out, "[]\n");
    // And back in, into the room that it left.
    after.userData = pairOf(0, "Title", text("Evening news"));
    expectNow(set("Title", "Evening news"), filledTo(after, newsContent().size()));
}

TEST_F(UserDataChange, RemoveOfAnUnknownNameWritesNothing) {
    for (std::string const& name :
         {std::string("title"), std::string("None"), std::string(), std::string(80, 'n')}) {
        expectRefused(remove(name), m_path + ": has no user data named '" + name + "'", 1);
        ToolResult const copied =
            runTool({"userdata", "remove", "-o", m_folder / "out", "--", name, m_path});
        expectRefused(copied, m_path + ": has no user data named '" + name + "'", 1);
        ToolResult const pipe =
            runTool({"userdata", "remove", "-o", m_folder / "out", "--", name, "-"}, m_stream);
        expectRefused(pipe, piped + "has no user data named '" + name + "'", 1);
        ToolResult const out = runTool({"userdata", "remove", "-o", "-", "--", name, m_path});
        expectRefused(out, m_path + ": has no user data named '" + name + "'", 1);
    }
}

TEST_F(UserDataChange, RemoveOfANameThatTwoPairsShareTakesTheFirst) {
    UmfContent before = roomyContent(0);
    before.userData = pairOf(0, "N", text("first")).add(pairOf(1, "N", text("second")));
    put(before);
    UmfContent after = roomyContent(0);
    after.userData = pairOf(1, "N", text("second"));
    expectNow(remove("N"), filledTo(after, before.size()));
}

// Room

TEST_F(UserDataChange, WithoutRoomTheTailStays) {
    // 12 bytes are there, and a document of 92 bytes with an index of 16 behind them.
    expectRefused(set("Title", "Evening news!"),
                  here() + noRoomAt +
                      "1 byte more: it would lose its XML document (92 bytes); allow that with "
                      "--discard-tail, or give a shorter value");
    expectRefused(set("Title", std::string(12 + 93, 'x')),
                  here() + noRoomAt + "93 bytes more, even without its tail; give a shorter value");
    UmfContent before = newsContent();
    before.rest = text("behind!");
    put(before);
    expectRefused(set("Title", "Evening news!"),
                  here() + noRoomAt +
                      "1 byte more: it would lose other bytes at its end (7 bytes); allow that "
                      "with --discard-tail, or give a shorter value");
    expectRefused(set("Title", std::string(12 + 8, 'x')),
                  here() + noRoomAt +
                      "8 bytes more: it would lose its XML document (92 bytes) and other bytes at "
                      "its end (7 bytes); allow that with --discard-tail, or give a shorter value");
    ToolResult const copied =
        runTool({"userdata", "set", "-o", m_folder / "out", "Title", std::string(50, 'x'), m_path});
    EXPECT_EQ(copied.status, 2);
    EXPECT_EQ(m_folder.names(), Arguments{"clip.gxf"});
}

TEST_F(UserDataChange, ZerosAtTheEndAreRoom) {
    UmfContent before = newsContent();
    before.rest = text("behind").fill(5);
    put(before);
    UmfContent after = newsContent();
    after.userData = pairOf(0, "Title", text("Evening news, 5")).add(take);
    after.rest = text("behind").fill(2);
    expectNow(set("Title", "Evening news, 5"), after);
    after.userData = pairOf(0, "Title", text("Evening news, five")).add(take);
    after.rest = text("behind");
    m_stream = readFile(m_path);
    expectRefused(set("Title", "Evening news, five"),
                  here() + noRoomAt +
                      "1 byte more: it would lose other bytes at its end (6 bytes); allow that "
                      "with --discard-tail, or give a shorter value");
    expectNow(set("Title", "Evening news, fiv"), [&] {
        after.userData = pairOf(0, "Title", text("Evening news, fiv")).add(take);
        return after;
    }());
}

TEST_F(UserDataChange, DiscardTailThrowsAwayNoMoreThanTheChangeNeeds) {
    struct Row {
        std::size_t more; ///< bytes that the value grows by
        bool keepsXml;
        char const* lost;
    };
    for (Row const& row :
         {Row{0, true, nullptr}, Row{1, true, "other bytes at its end (7 bytes)"},
          Row{7, true, "other bytes at its end (7 bytes)"},
          Row{8, false, "its XML document (92 bytes) and other bytes at its end (7 bytes)"},
          Row{99, false, "its XML document (92 bytes) and other bytes at its end (7 bytes)"}}) {
        SCOPED_TRACE(row.more);
        UmfContent before = newsContent();
        before.rest = text("behind!");
        put(before);
        std::string const value = "Evening news" + std::string(row.more, 'x');
        ToolResult const result = set("Title", value, {"--discard-tail"});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err,
                  row.lost == nullptr ? "" : m_path + ": its UMF has lost " + row.lost + "\n");
        UmfContent after = newsContent();
        after.userData = pairOf(0, "Title", text(value)).add(take);
        if (row.lost == nullptr) {
            after.rest = before.rest;
        }
        if (!row.keepsXml) {
            after.xml = {};
        }
        EXPECT_TRUE(readFile(m_path) == clipOf(filledTo(after, before.size())));
        EXPECT_EQ(get("Title"), value);
        EXPECT_EQ(runTool({"xml", m_path}).status, row.keepsXml ? 0 : 1);
    }
}

TEST_F(UserDataChange, ACopyThatLosesItsTailIsToldOf) {
    ToolResult const result =
        runTool({"userdata", "set", "--discard-tail", "-o", "-", "Title", "Evening news!", m_path});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, m_path + ": its UMF has lost its XML document (92 bytes)\n");
    UmfContent after = newsContent();
    after.xml = {};
    after.userData = pairOf(0, "Title", text("Evening news!")).add(take);
    EXPECT_TRUE(result.out == clipOf(filledTo(after, newsContent().size())));
    EXPECT_TRUE(readFile(m_path) == m_stream);
}

TEST_F(UserDataChange, UserDataAtTheVeryEndOfAUmfCouldNotBeReadAgain) {
    // An item of user data is read when 16 bytes follow it, so that the index has to stay.
    expectRefused(set("Title", std::string(12 + 93, 'x'), {"--discard-tail"}),
                  here() + noRoomAt + "93 bytes more, even without its tail; give a shorter value");
}

// Several packets, several UMFs

TEST_F(UserDataChange, AUmfOfSeveralPacketsKeepsTheirPlaces) {
    UmfContent before = newsContent();
    before.userData.add(pairOf(2, "Long", Bytes().fill(10000, 'l')));
    before.userData.add(pairOf(3, "Last", Bytes().fill(70000, 'm')));
    put(before);
    ASSERT_EQ(packetsOf(m_stream).size(), 8U); // three of the UMF, with pictures between them
    UmfContent after = newsContent();
    after.userData.add(pairOf(2, "Long", Bytes().fill(3, 's')));
    after.userData.add(pairOf(3, "Last", Bytes().fill(70000, 'm')));
    after = filledTo(after, before.size());
    expectNow(set("Long", "sss"), after);
    EXPECT_EQ(get("Last"), std::string(70000, 'm'));
    expectNow(set("Long", std::string(10000, 'l')), before);
    // A change at the end leaves the packets in front of it as they are.
    after = before;
    after.userData = newsContent().userData;
    after.userData.add(pairOf(2, "Long", Bytes().fill(10000, 'l')));
    expectNow(remove("Last"), filledTo(after, before.size()));
}

TEST_F(UserDataChange, EveryUmfOfAStreamGetsTheSameChange) {
    UmfContent const plain = newsContent();
    UmfContent other = roomyContent(400);
    other.userData = pairOf(7, "Desk", text("Home"));
    put(clipAround({umfPacket(3, plain.payload()), umfPacket(3, other.payload()),
                    umfPacket(3, plain.payload())}));
    UmfContent plainAfter = newsContent();
    plainAfter.userData = pairOf(0, "Title", text("X")).add(take);
    plainAfter = filledTo(plainAfter, plain.size());
    UmfContent otherAfter = roomyContent(0);
    otherAfter.userData = pairOf(7, "Desk", text("Home")).add(pairOf(0, "Title", text("X")));
    otherAfter = filledTo(otherAfter, other.size());
    EXPECT_EQ(set("Title", "X").status, 0);
    EXPECT_TRUE(readFile(m_path) ==
                clipAround({umfPacket(3, plainAfter.payload()), umfPacket(3, otherAfter.payload()),
                            umfPacket(3, plainAfter.payload())}));
    // One of them has the name: it goes there, and the others stay.
    EXPECT_EQ(remove("Desk").status, 0);
    otherAfter = roomyContent(0);
    otherAfter.userData = pairOf(0, "Title", text("X"));
    otherAfter = filledTo(otherAfter, other.size());
    EXPECT_TRUE(readFile(m_path) ==
                clipAround({umfPacket(3, plainAfter.payload()), umfPacket(3, otherAfter.payload()),
                            umfPacket(3, plainAfter.payload())}));
}

TEST_F(UserDataChange, OneUmfWithoutRoomStopsAll) {
    Bytes const roomy = umfPacket(3, filledTo(newsContent(), newsContent().size() + 100).payload());
    Bytes const tight = umfPacket(3, newsContent().payload());
    put(clipAround({roomy, tight}));
    std::size_t const at = umfOffset + roomy.size() + 41;
    expectRefused(set("Title", "Evening news!"),
                  here() + ": the UMF at offset " + std::to_string(at) +
                      " has no room for 1 byte more: it would lose its XML document (92 bytes); "
                      "allow that with --discard-tail, or give a shorter value");
}

TEST_F(UserDataChange, OneBrokenUmfStopsAll) {
    Bytes const whole = umfPacket(3, newsContent().payload());
    Bytes version = newsContent().payload();
    setWordAt(version, 4, 9);
    Bytes item = newsContent().payload();
    setWordAt(item, newsContent().userDataOffset(), 0xFFFFFF);
    Bytes longer = umfPacket(3, newsContent().payload());
    longer[20] = static_cast<unsigned char>(longer[20] + 8); // the fragment's length
    std::size_t const behind = umfOffset + whole.size() + 41;
    struct Row {
        char const* what;
        std::vector<Bytes> packets;
        std::size_t offset;
        std::string why;
    };
    std::string const notWhole = " isn't whole, so that it can't be changed";
    for (Row const& row :
         {Row{"version", {whole, umfPacket(3, version)}, behind, " can't be decoded, "},
          Row{"item", {umfPacket(3, item), whole}, umfOffset, " can't be decoded, "},
          Row{"no last", {whole, umfPacket(1, newsContent().payload())}, behind, notWhole},
          Row{"no first", {umfPacket(2, newsContent().payload()), whole}, umfOffset, notWhole},
          Row{"no first", {whole, umfPacket(0, newsContent().payload())}, behind, notWhole},
          Row{"too long", {whole, longer}, behind, notWhole}}) {
        SCOPED_TRACE(row.what);
        put(clipAround(row.packets));
        for (ToolResult const& result :
             {set("Title", "X"), set("Title", "X", {"--discard-tail"}), remove("Title")}) {
            EXPECT_EQ(result.status, 2);
            EXPECT_EQ(result.out, "");
            // The fault, and what it means for the change.
            EXPECT_THAT(result.err, HasSubstr(m_path + ": error at offset "));
            EXPECT_THAT(result.err, HasSubstr("\n" + here() + ": the UMF at offset " +
                                              std::to_string(row.offset) + row.why));
            EXPECT_THAT(result.err, testing::EndsWith("; nothing is changed\n"));
            EXPECT_TRUE(readFile(m_path) == m_stream);
        }
        EXPECT_EQ(m_folder.names(), Arguments{"clip.gxf"});
    }
}

TEST_F(UserDataChange, AUmfThatIsCutInAnotherWayIsRefused) {
    put(clipAround(umfPackets(newsContent().payload(), 1000)));
    expectRefused(set("Title", "X"),
                  here() +
                      ": the UMF at offset 40 lies in packets of other lengths than a rewrite "
                      "makes for its " +
                      std::to_string(newsContent().size()) + " bytes; nothing is changed");
}

TEST_F(UserDataChange, AStreamWithoutUmfHasNothingToChange) {
    put(asText(smallClip()));
    for (ToolResult const& result : {set("Title", "X"), remove("Title")}) {
        expectRefused(result,
                      here() + ": has no UMF that could hold user data; nothing is changed");
    }
}

TEST_F(UserDataChange, FaultsElsewhereAreToldAndKeptByteForByte) {
    UmfContent after = newsContent();
    after.userData = pairOf(0, "Title", text("X")).add(take);
    std::string const changed = clipOf(filledTo(after, newsContent().size()));
    std::string const plain = clipOf(newsContent());
    std::string const garbage = "garbage that is no packet";
    auto const broken = [&garbage](std::string stream) {
        stream.insert(stream.size() - 57, garbage);            // in front of the last picture
        return garbage + stream.substr(0, stream.size() - 20); // which is cut off
    };
    std::string const faults =
        m_path +
        ": error at offset 0: 25 bytes passed over that are no packet; packets go on at "
        "offset 25\n" +
        m_path + ": error at offset " + std::to_string(25 + plain.size() - 57) +
        ": 25 bytes passed over that are no packet; packets go on at offset " +
        std::to_string(50 + plain.size() - 57) + "\n" + m_path + ": error at offset " +
        std::to_string(50 + plain.size() - 57) +
        ": the stream ends inside this media packet, 4 bytes of it are missing\n";
    put(broken(plain));
    ToolResult const copied =
        runTool({"userdata", "set", "-o", m_folder / "out", "Title", "X", m_path});
    EXPECT_EQ(copied.status, 1);
    EXPECT_EQ(copied.err, faults);
    EXPECT_TRUE(readFile(m_folder / "out") == broken(changed));
    ToolResult const result = set("Title", "X");
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, faults);
    EXPECT_TRUE(readFile(m_path) == broken(changed));
}

TEST_F(UserDataChange, AnXmlThatTheParserRefusesStaysAsItIs) {
    UmfContent before = newsContent();
    before.xml = utf16("<?xml version=\"1.0\"?><Asset><Data>");
    put(before);
    UmfContent after = before;
    after.userData = pairOf(0, "Title", text("X")).add(take);
    EXPECT_EQ(set("Title", "X").status, 1);
    EXPECT_TRUE(readFile(m_path) == clipOf(filledTo(after, before.size())));
}

// A sample

TEST_F(UserDataChange, OfASampleTouchesThePacketsOfTheUmfAlone) {
    std::string const original = readFile(sample("news_pal.gxf"));
    put(original);
    std::string const rawXml = runTool({"xml", "--raw", m_path}).out;
    ASSERT_EQ(rawXml.size(), 2282U);
    ToolResult const result = set("Title", "X");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out + result.err, "");
    std::string const changed = readFile(m_path);
    EXPECT_EQ(changed.size(), original.size());
    std::string expected = original;
    for (RawPacket const& packet : packetsOf(original)) {
        if (packet.type == umfType) {
            expected.replace(packet.offset, packet.length, changed, packet.offset, packet.length);
        }
    }
    EXPECT_TRUE(changed == expected);
    EXPECT_FALSE(changed == original);
    EXPECT_TRUE(runTool({"xml", "--raw", m_path}).out == rawXml);
    EXPECT_EQ(get("Title"), "X");
    json before = runTool({"info", "--json", sample("news_pal.gxf")}).json();
    before["umf"]["userData"][0]["value"] = "X";
    before["umf"]["userData"][0]["size"] = 1;
    before["file"] = m_path;
    EXPECT_EQ(runTool({"info", "--json", m_path}).json(), before);
    // And back, to the byte.
    EXPECT_EQ(set("Title", "Evening news, opening").status, 0);
    EXPECT_TRUE(readFile(m_path) == original);
}

// Mistakes

TEST(UserDataMistakes, AreToldInOneLine) {
    struct Row {
        Arguments arguments;
        char const* line;
    };
    std::string const clip = sample("news_pal.gxf");
    for (Row const& row :
         {Row{{}, "no command given; see 'gxf userdata --help'"},
          Row{{"lst", clip}, "there is no command 'lst'; see 'gxf userdata --help'"},
          Row{{clip}, nullptr},
          Row{{"--jsn"}, "there is no option '--jsn'; see 'gxf userdata --help'"},
          Row{{"list"}, "FILE is required; see 'gxf userdata list --help'"},
          Row{{"list", clip, "b"}, "'b' is one argument too many; see 'gxf userdata list --help'"},
          Row{{"list", "--raw", clip},
              "there is no option '--raw'; see 'gxf userdata list --help'"},
          Row{{"get", clip}, "FILE is required; see 'gxf userdata get --help'"},
          Row{{"get", "Title", ""},
              "the stream has an empty name; give a path, or - for standard input"},
          Row{{"set", "Title", "X", clip, "b", "--in-place"},
              "'b' is one argument too many; see 'gxf userdata set --help'"},
          Row{{"set", "Title", "X", "", "--in-place"}, "the stream has an empty name; give a path"},
          Row{{"remove", clip, "--in-place"}, "FILE is required; see 'gxf userdata remove --help'"},
          Row{{"remove", "Title", "X", clip, "--in-place"}, nullptr},
          Row{{"remove", "Title", clip, "--in-place", "--type", "int8"},
              "there is no option '--type'; see 'gxf userdata remove --help'"}}) {
        Arguments command = {"userdata"};
        command.insert(command.end(), row.arguments.begin(), row.arguments.end());
        ToolResult const result = runTool(command);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        if (row.line != nullptr) {
            EXPECT_EQ(result.err, std::string("gxf: ") + row.line + "\n");
        } else {
            EXPECT_THAT(result.err, StartsWith("gxf: "));
            EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
        }
    }
}

TEST(UserDataMistakes, HelpOfEveryCommandHasItsOptionsAndAnExample) {
    struct Row {
        char const* command;
        Arguments words;
    };
    for (Row const& row :
         {Row{"list", {"--json", "--quiet", "Example: gxf userdata list clip.gxf\n"}},
          Row{"get", {"NAME", "--quiet", "Example: gxf userdata get Title clip.gxf\n"}},
          Row{"set",
              {"NAME", "VALUE", "--type", "uint64", "--track", "--value-file", "-o,--output",
               "--in-place", "--discard-tail", "--quiet",
               "Example: gxf userdata set Title \"Late news\" --in-place clip.gxf\n"}},
          Row{"remove",
              {"NAME", "-o,--output", "--in-place", "--quiet",
               "Example: gxf userdata remove Title -o changed.gxf clip.gxf\n"}}}) {
        ToolResult const result = runTool({"userdata", row.command, "--help"});
        EXPECT_EQ(result.status, 0) << row.command;
        EXPECT_EQ(result.err, "") << row.command;
        EXPECT_THAT(result.out, HasSubstr(std::string("Usage: gxf userdata ") + row.command));
        for (std::string const& word : row.words) {
            EXPECT_THAT(result.out, HasSubstr(word));
        }
    }
}

} // namespace
