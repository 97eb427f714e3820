#include <gmock/gmock.h>

#include "run_tool.h"
#include "tool_streams.h"

namespace {

using namespace GxfTesting;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

std::string const clip = sample("hd_short.gxf");

TEST(Main, PrintsItsVersion) {
    ToolResult const result = runTool({"--version"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "gxf " GXF_VERSION "\n");
    EXPECT_EQ(result.err, "");
}

TEST(Main, HelpNamesEveryCommandAndTheExitStatuses) {
    for (char const* const option : {"--help", "-h"}) {
        ToolResult const result = runTool({option});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        for (char const* const word :
             {"info", "packets", "dump", "timecode", "xml", "userdata", "extract", "seek",
              "--version",
              "Exit status: 0 done and sound, 1 done but the stream has faults, 2 not done.",
              "Example: gxf info clip.gxf"}) {
            EXPECT_THAT(result.out, HasSubstr(word));
        }
    }
}

TEST(Main, HelpOfEveryCommandHasItsOptionsAndAnExample) {
    struct Row {
        char const* command;
        Arguments words;
    };
    std::vector<Row> const rows = {
        {"info", {"--json", "--quick", "--quiet", "Example: gxf info --json clip.gxf\n"}},
        {"packets",
         {"--json", "--type", "--limit N", "--from N", "--quiet",
          "Example: gxf packets --type map,umfFile --limit 5 clip.gxf\n"}},
        {"dump", {"--arrays", "--quiet", "Example: gxf dump --arrays clip.gxf | less\n"}},
        {"timecode",
         {"--csv", "--json", "--first N", "--last N", "--track N", "--quiet",
          "Example: gxf timecode --first 1000 --last 1049 --csv clip.gxf\n"}},
        {"xml", {"--raw", "--quiet", "Example: gxf xml clip.gxf > clip.xml\n"}},
        {"userdata", {"list", "get", "set", "remove", "Example: gxf userdata list clip.gxf\n"}},
        {"extract",
         {"--track N", "-o,--output", "--first N", "--last N", "--quiet",
          "Example: gxf extract --track 1 -o left.wav clip.gxf\n"}},
        {"seek",
         {"--field N", "--timecode", "--json", "--quiet",
          "Example: gxf seek --timecode 10:00:00:20 clip.gxf\n"}},
    };
    for (Row const& row : rows) {
        ToolResult const result = runTool({row.command, "--help"});
        EXPECT_EQ(result.status, 0) << row.command;
        EXPECT_EQ(result.err, "") << row.command;
        EXPECT_THAT(result.out, HasSubstr(std::string("Usage: gxf ") + row.command));
        for (std::string const& word : row.words) {
            EXPECT_THAT(result.out, HasSubstr(word));
        }
    }
}

struct Mistake {
    Arguments arguments;
    char const* line; ///< all of standard error
};

class Mistakes : public testing::TestWithParam<Mistake> {};

TEST_P(Mistakes, AreToldInOneLine) {
    ToolResult const result = runTool(GetParam().arguments);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(result.err, std::string("gxf: ") + GetParam().line + "\n");
}

#define NUMBER_64 "is no whole number from 0 to 18446744073709551615; see 'gxf packets --help'"
#define COUNT_64 "is no whole number from 1 to 18446744073709551615; see 'gxf packets --help'"
#define NUMBER_32 "is no whole number from 0 to 4294967295; see "

INSTANTIATE_TEST_SUITE_P(
    Usage, Mistakes,
    testing::Values(
        Mistake{{}, "no command given; see 'gxf --help'"},
        Mistake{{"inof", clip}, "there is no command 'inof'; see 'gxf --help'"},
        Mistake{{"INFO", clip}, "there is no command 'INFO'; see 'gxf --help'"},
        Mistake{{"--jsn"}, "there is no option '--jsn'; see 'gxf --help'"},
        Mistake{{"in\nfo\x1B[1m"}, "there is no command 'in fo?[1m'; see 'gxf --help'"},
        Mistake{{"info"}, "FILE is required; see 'gxf info --help'"},
        Mistake{{"info", ""}, "the stream has an empty name; give a path, or - for standard input"},
        Mistake{{"info", clip, "b.gxf"}, "'b.gxf' is one argument too many; see 'gxf info --help'"},
        Mistake{{"info", clip, "--jsn"}, "there is no option '--jsn'; see 'gxf info --help'"},
        Mistake{{"info", "--limit", "3", clip},
                "there is no option '--limit'; see 'gxf info --help'"},
        Mistake{{"extract", "--trakc", "1", clip},
                "there is no option '--trakc'; see 'gxf extract --help'"},
        Mistake{{"extract", clip}, "--track is required; see 'gxf extract --help'"},
        Mistake{{"info", "--", clip, "b.gxf"},
                "'b.gxf' is one argument too many; see 'gxf info --help'"},
        Mistake{{"extract", "--", clip}, "--track is required; see 'gxf extract --help'"},
        Mistake{{"info", "--version"}, "there is no option '--version'; see 'gxf info --help'"},
        Mistake{{"packets", "--limit", "-5", clip}, "--limit: '-5' " COUNT_64},
        Mistake{{"packets", "--limit=-5", clip}, "--limit: '-5' " COUNT_64},
        Mistake{{"packets", "--limit", "0", clip}, "--limit: '0' " COUNT_64},
        Mistake{{"packets", "--limit", "1.5", clip}, "--limit: '1.5' " COUNT_64},
        Mistake{{"packets", "--limit", "0x10", clip}, "--limit: '0x10' " COUNT_64},
        Mistake{{"packets", "--limit", "5x", clip}, "--limit: '5x' " COUNT_64},
        Mistake{{"packets", "--limit", " 5", clip}, "--limit: ' 5' " COUNT_64},
        Mistake{{"packets", "--limit", "18446744073709551616", clip},
                "--limit: '18446744073709551616' " COUNT_64},
        Mistake{{"packets", "--from", "ten", clip}, "--from: 'ten' " NUMBER_64},
        Mistake{{"packets", "--from", "-1", clip}, "--from: '-1' " NUMBER_64},
        Mistake{{"timecode", "--first", "4294967296", clip},
                "--first: '4294967296' " NUMBER_32 "'gxf timecode --help'"},
        Mistake{{"timecode", "--last", "-1", clip},
                "--last: '-1' " NUMBER_32 "'gxf timecode --help'"},
        Mistake{{"seek", "--field", "4294967296", clip},
                "--field: '4294967296' " NUMBER_32 "'gxf seek --help'"},
        Mistake{{"extract", "--track", "64", clip},
                "--track: '64' is no whole number from 0 to 63; see 'gxf extract --help'"},
        Mistake{{"timecode", "--track", "64", clip},
                "--track: '64' is no whole number from 0 to 63; see 'gxf timecode --help'"},
        Mistake{{"timecode", "--first", "5", "--last", "4", clip},
                "--last 4 is in front of --first 5; give a range of at least one field"},
        Mistake{{"extract", "--track", "0", "--first", "5", "--last", "4", clip},
                "--last 4 is in front of --first 5; give a range of at least one field"},
        Mistake{{"extract", "--track", "0", "-o", "", clip},
                "the output has an empty name; give one"},
        Mistake{{"timecode", "--csv", "--json", clip},
                "--csv excludes --json; see 'gxf timecode --help'"},
        Mistake{{"seek", "--field", "1", "--timecode", "10:00:00:00", clip},
                "--field excludes --timecode; see 'gxf seek --help'"},
        Mistake{{"seek", clip}, "seek needs --field N or --timecode HH:MM:SS:FF"},
        Mistake{{"packets", "--type", "map,foo", clip},
                "--type: there is no packet type 'foo'; choose from map, media, reserved, "
                "fieldLocTbl, umfFile, EOS"},
        Mistake{{"packets", "--type", "", clip},
                "--type: there is no packet type ''; choose from map, media, reserved, "
                "fieldLocTbl, umfFile, EOS"}));

TEST(Main, AnOptionWithoutItsValueOrGivenTwiceIsToldInOneLine) {
    for (Arguments const& arguments :
         {Arguments{"packets", clip, "--limit"},
          Arguments{"packets", clip, "--limit", "1", "--limit", "2"}}) {
        ToolResult const result = runTool(arguments);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, StartsWith("gxf: --limit"));
        EXPECT_THAT(result.err, EndsWith("; see 'gxf packets --help'\n"));
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
    }
}

TEST(Main, NumbersAreDecimalWithLeadingZerosToo) {
    EXPECT_EQ(runTool({"packets", "--limit", "010", clip}).lines().size(), 10U);
    EXPECT_EQ(runTool({"packets", "--limit=3", clip}).lines().size(), 3U);
}

TEST(Main, OptionsStandInFrontOfTheFileOrBehindIt) {
    ToolResult const front = runTool({"info", "--json", clip});
    ToolResult const behind = runTool({"info", clip, "--json"});
    EXPECT_EQ(front.status, 0);
    EXPECT_EQ(behind.out, front.out);
}

TEST(Main, TwoDashesEndTheOptions) {
    TemporaryFolder const folder;
    folder.write("--clip.gxf", asText(smallClip()));
    ToolResult const result =
        runShell("cd \"$1\" && \"$GXF\" packets --limit 1 -- --clip.gxf", {folder.path()});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.out, HasSubstr("  map "));
}

} // namespace
