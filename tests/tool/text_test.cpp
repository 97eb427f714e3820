#include <gmock/gmock.h>

#include "run_tool.h"
#include "tool_streams.h"

namespace {

using namespace GxfTesting;
using nlohmann::json;
using testing::HasSubstr;

Bytes clipNamed(std::string_view name) {
    Bytes stream = map(material(name, 5), namedTrack(mpeg625, 0, name, rate25));
    return stream.add(picture(mpeg625, 0, 0, 1, {1})).add(endOfStream());
}

json infoOf(std::string_view name) {
    return runTool({"info", "--json", "-"}, asText(clipNamed(name))).json();
}

TEST(Text, NamesComeOutAsUtf8) {
    struct Row {
        char const* what;
        std::string name;
        std::string utf8;
    };
    std::vector<Row> const rows = {
        {"ASCII", "NEWS 0417", "NEWS 0417"},
        {"UTF-8", "Caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8E\xAC",
         "Caf\xC3\xA9 \xE2\x82\xAC \xF0\x9F\x8E\xAC"},
        {"Latin-1", "Caf\xE9", "Caf\xC3\xA9"},
        {"Latin-1 that begins like UTF-8", "\xC3\xA9 \xE9", "\xC3\x83\xC2\xA9 \xC3\xA9"},
        {"a sequence that is cut off", "x\xE2\x82", "x\xC3\xA2\xC2\x82"},
        {"an overlong form", "\xC0\xAF", "\xC3\x80\xC2\xAF"},
        {"an overlong form of three bytes", "\xE0\x80\xAF", "\xC3\xA0\xC2\x80\xC2\xAF"},
        {"half a surrogate pair", "\xED\xA0\x80", "\xC3\xAD\xC2\xA0\xC2\x80"},
        {"behind the last character", "\xF4\x90\x80\x80", "\xC3\xB4\xC2\x90\xC2\x80\xC2\x80"},
        {"a byte that is never UTF-8", "\xFF", "\xC3\xBF"},
        {"control characters", "a\tb\x1B[31m\x7F", "a\tb\x1B[31m\x7F"},
        {"quotes", "\"a\\b\"", "\"a\\b\""},
        {"percent signs", "100%% %s %n", "100%% %s %n"},
    };
    for (Row const& row : rows) {
        json const info = infoOf(row.name);
        EXPECT_EQ(info["material"]["media"], row.utf8) << row.what;
        EXPECT_EQ(info["tracks"][0]["media"], row.utf8) << row.what;
    }
}

TEST(Text, JsonOfEveryCommandStaysValid) {
    for (std::string const name : {"Caf\xE9", "\x1B]0;title\x07",
                                   "\xC2\x9B"
                                   "31m",
                                   "\"\n\r\\"}) {
        std::string const stream = asText(clipNamed(name));
        EXPECT_TRUE(runTool({"info", "--json", "-"}, stream).json().is_object());
        EXPECT_TRUE(runTool({"seek", "--json", "--field", "0", "-"}, stream).json().is_object());
        for (std::string const& line : runTool({"packets", "--json", "-"}, stream).lines()) {
            EXPECT_TRUE(json::accept(line)) << line;
        }
    }
}

bool hasControlCharacters(std::string const& text) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        auto const byte = static_cast<unsigned char>(text[i]);
        auto const next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
        if ((byte < 0x20 && byte != '\n') || byte == 0x7F ||
            (byte == 0xC2 && next >= 0x80 && next < 0xA0)) {
            return true;
        }
    }
    return false;
}

TEST(Text, NoControlCharacterReachesTheTerminal) {
    // Colours, a window's title, a bell, backspaces; as UTF-8 and as Latin-1.
    for (std::string const name : {"\x1B[31mred", "\x1B]0;title\x07", "a\b\b\bb",
                                   "\xC2\x9B"
                                   "31m",
                                   "\x9B"
                                   "31m\xE9",
                                   "del\x7F", "tab\tcr\rx"}) {
        std::string const stream = asText(clipNamed(name));
        for (std::vector<std::string> command :
             {std::vector<std::string>{"info"}, {"packets"}, {"dump"}, {"dump", "--arrays"}}) {
            command.push_back("-");
            ToolResult const result = runTool(command, stream);
            EXPECT_EQ(result.status, 0);
            EXPECT_FALSE(hasControlCharacters(result.out)) << command[0];
        }
    }
    EXPECT_THAT(runTool({"info", "-"}, asText(clipNamed("\x1B[31mred"))).out,
                HasSubstr("Clip        ?[31mred\n"));
}

TEST(Text, ANameOfSeveralLinesTakesOne) {
    std::string const stream = asText(clipNamed("first\nsecond"));
    EXPECT_THAT(runTool({"info", "-"}, stream).out, HasSubstr("Clip        first second\n"));
    EXPECT_EQ(runTool({"packets", "-"}, stream).lines().size(), 3U);
}

TEST(Text, ColumnsStayAlignedBehindLongCharacters) {
    Bytes stream = map(
        material("C", 5),
        namedTrack(pcm16, 0, "\xC3\xA9\xC3\xA9", rate25).add(namedTrack(pcm16, 1, "ee", rate25)));
    std::string const text = runTool({"info", "-"}, asText(stream)).out;
    EXPECT_THAT(text, HasSubstr("25hz  768.0 kb/s  \xC3\xA9\xC3\xA9\n"));
    EXPECT_THAT(text, HasSubstr("25hz  768.0 kb/s  ee\n"));
}

} // namespace
