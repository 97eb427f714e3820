#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <poll.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "run_tool.h"
#include "tool_streams.h"

namespace {

using namespace GxfTesting;
using nlohmann::json;
using testing::HasSubstr;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

std::vector<Arguments> const everyCommand = {{"info"},
                                             {"info", "--json"},
                                             {"info", "--quick"},
                                             {"packets"},
                                             {"packets", "--json"},
                                             {"dump"},
                                             {"dump", "--arrays"},
                                             {"timecode"},
                                             {"timecode", "--json"},
                                             {"timecode", "--csv"},
                                             {"extract", "--track", "0"},
                                             {"seek", "--field", "1"},
                                             {"seek", "--timecode", "01:00:00:01"}};

ToolResult runOn(Arguments command, std::string const& file, std::string_view input = {}) {
    command.push_back(file);
    return runTool(command, input);
}

TEST(Input, APipeGivesWhatTheFileGives) {
    TemporaryFolder const folder;
    std::string const stream = asText(smallClip());
    folder.write("clip", stream);
    ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
    for (Arguments const& command : everyCommand) {
        SCOPED_TRACE(command[0] + ' ' + command.back());
        Arguments arguments = command;
        arguments.insert(arguments.begin(), folder.path());
        ToolResult const file = runShell("cd \"$1\"; shift; \"$GXF\" \"$@\" clip", arguments);
        EXPECT_EQ(file.status, 0) << file.err;
        ToolResult const named =
            runShell("cd \"$1\"; shift; cat clip > pipe & \"$GXF\" \"$@\" pipe; status=$?; "
                     "exec 3<>pipe; wait; exit $status",
                     arguments);
        EXPECT_EQ(named.status, 0) << named.err;
        ToolResult const standard = runOn(command, "-", stream);
        EXPECT_EQ(standard.status, 0);
        if (command[0] == "info") { // prints the name
            EXPECT_EQ(standard.lines().size(), named.lines().size());
        } else {
            EXPECT_EQ(standard.out, file.out);
            EXPECT_EQ(named.out, file.out);
        }
    }
}

TEST(Input, WhatCanNotBeReadIsToldInOneLineByEveryCommand) {
    TemporaryFolder const folder;
    std::string const empty = folder.write("empty", "");
    std::string const junk = folder.write("junk", std::string(100000, 'j'));
    std::string const text = folder.write("short", "GXF?");
    ASSERT_EQ(::symlink("loop", (folder / "loop").c_str()), 0);
    struct Row {
        std::string path;
        std::string line;
    };
    std::vector<Row> const rows = {
        {folder / "none.gxf", ": can't be read, No such file or directory; check the path\n"},
        {folder / "none/clip.gxf", ": can't be read, No such file or directory; check the path\n"},
        {empty + "/clip.gxf", ": can't be read, Not a directory; check the path\n"},
        {folder.path(), ": can't be read, it is a directory; check the path\n"},
        {folder / "loop", ": can't be read, Too many levels of symbolic links; check the path\n"},
        {empty, ": is empty; give a GXF stream\n"},
        {"/dev/null", ": is empty; give a GXF stream\n"},
        {junk, ": no GXF packet in it; give a GXF stream\n"},
        {text, ": no GXF packet in it; give a GXF stream\n"},
        {GXF_TOOL_PATH, ": no GXF packet in it; give a GXF stream\n"},
    };
    for (Arguments const& command : everyCommand) {
        for (Row const& row : rows) {
            ToolResult const result = runOn(command, row.path);
            EXPECT_EQ(result.status, 2) << row.path;
            EXPECT_EQ(result.out, "") << row.path;
            EXPECT_EQ(result.err, "gxf: " + row.path + row.line);
        }
    }
}

TEST(Input, StandardInputIsToldByItsName) {
    EXPECT_EQ(runTool({"info", "-"}).err, "gxf: standard input: is empty; give a GXF stream\n");
    EXPECT_EQ(runTool({"info", "-"}, "junk").err,
              "gxf: standard input: no GXF packet in it; give a GXF stream\n");
    for (char const* const redirection : {"< /", "<&-"}) {
        ToolResult const result = runShell(std::string("\"$GXF\" info - ") + redirection);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, StartsWith("gxf: standard input: reading failed: "));
        EXPECT_THAT(result.err, testing::EndsWith("; give a GXF stream that can be read\n"));
    }
    ToolResult const file =
        runShell("\"$GXF\" packets --limit 1 - < \"$1\"", {sample("hd_short.gxf")});
    EXPECT_EQ(file.status, 0);
    EXPECT_THAT(file.out, HasSubstr("  map "));
}

TEST(Input, AFileNamedLikeStandardInputNeedsItsFolder) {
    TemporaryFolder const folder;
    folder.write("-", asText(smallClip()));
    EXPECT_EQ(runShell("cd \"$1\" && \"$GXF\" info ./-", {folder.path()}).status, 0);
}

TEST(Input, ANameIsPrintedInOneLineWithoutControlCharacters) {
    TemporaryFolder const folder;
    std::string const stream = asText(smallClip());
    std::string const path = folder.write("a\nb\x1B[31m.gxf", stream.substr(0, stream.size() - 20));
    ToolResult const result = runTool({"info", path});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, StartsWith("Stream      " + folder.path() + "/a b?[31m.gxf\n"));
    EXPECT_THAT(result.err, StartsWith(folder.path() + "/a b?[31m.gxf: error at offset 16410: "));
    EXPECT_EQ(runTool({"info", "--json", path}).json()["file"], path);
    EXPECT_EQ(runTool({"info", folder / "\x1B\n"}).err,
              "gxf: " + folder.path() +
                  "/? : can't be read, No such file or directory; check the path\n");
}

// Faults. The packets of the small clip begin at 0, 116, 152, 4280, 16312, 16361, 16410 and 16459.

std::vector<std::size_t> offsetsOf(ToolResult const& result) {
    std::vector<std::size_t> offsets;
    for (std::string const& line : result.lines()) {
        offsets.push_back(json::parse(line)["offset"]);
    }
    return offsets;
}

std::string const faultAt = "standard input: error at offset ";

TEST(Faults, BytesInFrontOfAPacketArePassedOver) {
    std::string const clean = asText(smallClip());
    for (RawPacket const& packet : packetsOf(clean)) {
        for (std::size_t const count : {1U, 15U, 16U, 100U, 5000U}) {
            std::string stream = clean;
            stream.insert(packet.offset, count, 'U');
            ToolResult const result = runTool({"packets", "--json", "-"}, stream);
            EXPECT_EQ(result.status, 1);
            std::string const end = std::to_string(packet.offset + count);
            EXPECT_EQ(
                result.err,
                faultAt + std::to_string(packet.offset) + ": " + std::to_string(count) +
                    (count == 1 ? " byte passed over that is" : " bytes passed over that are") +
                    " no packet; packets go on at offset " + end + "\n");
            std::vector<std::size_t> expected;
            for (RawPacket const& other : packetsOf(clean)) {
                expected.push_back(other.offset + (other.offset >= packet.offset ? count : 0));
            }
            EXPECT_EQ(offsetsOf(result), expected);
        }
    }
}

TEST(Faults, BytesBehindTheEndAreNoPacket) {
    std::string const stream = asText(smallClip()) + "tail";
    ToolResult const result = runTool({"packets", "-"}, stream);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.lines().size(), 8U);
    EXPECT_EQ(result.err, faultAt + "16475: 4 bytes at the end are no packet\n");
    ToolResult const more = runTool({"packets", "-"}, stream + std::string(100, 'x'));
    EXPECT_EQ(more.err, faultAt +
                            "16475: 104 bytes passed over that are no packet, up to the end of the "
                            "stream\n");
}

TEST(Faults, ABrokenHeaderCostsItsPacketAlone) {
    std::string const clean = asText(smallClip());
    std::vector<RawPacket> const packets = packetsOf(clean);
    for (std::size_t i = 0; i < packets.size(); ++i) {
        std::string stream = clean;
        stream[packets[i].offset + 4] = 0;
        ToolResult const result = runTool({"packets", "--json", "-"}, stream);
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, StartsWith(faultAt + std::to_string(packets[i].offset) + ": " +
                                           std::to_string(packets[i].length) + " bytes "));
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
        std::vector<std::size_t> expected;
        for (std::size_t other = 0; other < packets.size(); ++other) {
            if (other != i) {
                expected.push_back(packets[other].offset);
            }
        }
        EXPECT_EQ(offsetsOf(result), expected) << i;
    }
}

TEST(Faults, ALengthThatReachesOverOtherPacketsDoesNotHideThem) {
    std::string stream = asText(smallClip());
    stream[16312 + 9] = 60; // in place of 49
    ToolResult const result = runTool({"packets", "--json", "-"}, stream);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, faultAt + "16312: this media packet claims 60 bytes, but packets go on "
                                    "inside it at offset 16361\n");
    EXPECT_EQ(offsetsOf(result),
              (std::vector<std::size_t>{0, 116, 152, 4280, 16312, 16361, 16410, 16459}));
}

TEST(Faults, PacketsThatAreGoneAreNoFault) {
    std::string const clean = asText(smallClip());
    for (RawPacket const& packet : packetsOf(clean)) {
        std::string stream = clean;
        stream.erase(packet.offset, packet.length);
        ToolResult const result = runTool({"packets", "--json", "-"}, stream);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(result.lines().size(), 7U);
    }
}

TEST(Faults, ATruncatedStreamGivesAllThatIsInFrontOfItsEnd) {
    std::string const clean = asText(smallClip());
    std::vector<RawPacket> const packets = packetsOf(clean);
    std::vector<std::size_t> lengths;
    for (RawPacket const& packet : packets) {
        for (std::size_t const into : {1U, 15U, 16U, 17U, 31U, 32U, 33U}) {
            if (into < packet.length) {
                lengths.push_back(packet.offset + into);
            }
        }
        lengths.push_back(packet.offset + packet.length - 1);
    }
    for (std::size_t const length : lengths) {
        SCOPED_TRACE(length);
        ToolResult const result = runTool({"packets", "--json", "-"}, clean.substr(0, length));
        std::size_t whole = 0;
        while (whole < packets.size() && packets[whole].offset + packets[whole].length <= length) {
            ++whole;
        }
        if (length < 16) {
            EXPECT_EQ(result.status, 2);
            continue;
        }
        if (whole == 0) {
            // A map that is cut off gives nothing, so that there is no packet at all.
            EXPECT_EQ(result.status, 2);
            continue;
        }
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1) << result.err;
        EXPECT_THAT(result.err, StartsWith(faultAt + std::to_string(packets[whole].offset) + ": "));
        std::vector<std::size_t> const offsets = offsetsOf(result);
        ASSERT_GE(offsets.size(), whole);
        for (std::size_t i = 0; i < whole; ++i) {
            EXPECT_EQ(offsets[i], packets[i].offset);
        }
    }
}

TEST(Faults, NoFlippedBitEndsAnyCommandOtherwiseThanByItsStatus) {
    std::string const clean = asText(smallClip());
    std::vector<std::size_t> places;
    for (RawPacket const& packet : packetsOf(clean)) {
        for (std::size_t i = 0; i < std::min<std::size_t>(packet.length, 40); i += 3) {
            places.push_back(packet.offset + i);
        }
    }
    unsigned turn = 0;
    for (std::size_t const place : places) {
        std::string stream = clean;
        stream[place] = static_cast<char>(stream[place] ^ (1 << (turn % 8)));
        Arguments const& command = everyCommand[turn++ % everyCommand.size()];
        ToolResult const result = runOn(command, "-", stream);
        EXPECT_EQ(result.signal, 0) << place;
        EXPECT_LE(result.status, 2) << place;
        EXPECT_GE(result.status, 0) << place;
        if (command.back() == "--json" && command[0] != "packets" && result.status != 2) {
            EXPECT_TRUE(result.json().is_object());
        }
    }
}

TEST(Faults, AreCountedInInfoAndTheGoodFactsComeOut) {
    std::string stream = asText(smallClip());
    stream.insert(16361, "garbage");
    stream.insert(152, "more");
    stream.resize(stream.size() - 1);
    ToolResult const result = runTool({"info", "--json", "-"}, stream);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.json()["faults"], 3);
    EXPECT_EQ(result.json()["complete"], false);
    EXPECT_EQ(result.json()["material"]["media"], "SMALL");
    EXPECT_EQ(result.json()["tracks"][0]["packets"], 3);
    EXPECT_EQ(result.json()["fieldLocatorTable"]["valid"], true);
    EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 3);
}

TEST(Faults, AMapThatClaimsTooMuchIsPassedOver) {
    Bytes stream = header(mapType, 5U << 20).add(Bytes().fill((5U << 20) - 16));
    ToolResult const result = runTool({"packets", "-"}, asText(stream.add(smallClip())));
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, faultAt + "0: this map packet claims 5242880 bytes, more than a map "
                                    "packet can need; it is passed over\n");
    EXPECT_EQ(result.lines().size(), 8U);
}

// Progress

/// Standard error of a slow `info` when that is a terminal.
std::string terminalOutput(Arguments const& options) {
    int const master = ::posix_openpt(O_RDWR | O_NOCTTY);
    EXPECT_EQ(::grantpt(master), 0);
    EXPECT_EQ(::unlockpt(master), 0);
    std::string const terminal = ::ptsname(master);
    int const keepsItOpen = ::open(terminal.c_str(), O_RDWR | O_NOCTTY);
    ::setenv("GXF", GXF_TOOL_PATH, 1);
    Arguments command = {"/bin/sh", "-c", "exec \"$GXF\" info \"$@\" - 2> \"$0\"", terminal};
    command.insert(command.end(), options.begin(), options.end());
    ToolProcess process(command);
    std::string const picture = asText(GxfTesting::picture(mpeg625, 0, 0, 1, {1}));
    for (int burst = 0; burst < 3; ++burst) {
        for (int i = 0; i < 200; ++i) {
            EXPECT_TRUE(process.write(picture));
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(700));
    }
    EXPECT_EQ(process.wait(asText(endOfStream())).status, 0);
    // What was written may come through the terminal in pieces, and a little later.
    std::string shown;
    pollfd waiting{master, POLLIN, 0};
    while (::poll(&waiting, 1, 1000) > 0) {
        char bytes[4096];
        ssize_t const got = ::read(master, bytes, sizeof(bytes));
        if (got <= 0) {
            break;
        }
        shown.append(bytes, static_cast<std::size_t>(got));
    }
    ::close(keepsItOpen);
    ::close(master);
    return shown;
}

TEST(Progress, IsShownOnATerminalAndRemovedAtTheEnd) {
    std::string const shown = terminalOutput({});
    EXPECT_THAT(shown, StartsWith("\r\x1B[K0 MB"));
    EXPECT_THAT(shown, testing::EndsWith("\r\x1B[K"));
}

TEST(Progress, IsSwitchedOffByQuiet) {
    EXPECT_EQ(terminalOutput({"--quiet"}), "");
    EXPECT_EQ(terminalOutput({"-q"}), "");
}

} // namespace
