#include <chrono>
#include <gmock/gmock.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "run_tool.h"
#include "tool_streams.h"

namespace {

using namespace GxfTesting;
using testing::HasSubstr;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

std::string const clip = sample("hd_short.gxf");

std::string videoOfClip() {
    static std::string const video = runTool({"extract", "--track", "0", clip}).out;
    return video;
}

mode_t modeOf(std::string const& path) {
    struct stat status {};
    EXPECT_EQ(::stat(path.c_str(), &status), 0) << path;
    return status.st_mode & 07777;
}

bool isLink(std::string const& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

TEST(Output, AppearsUnderItsNameAlone) {
    TemporaryFolder const folder;
    ToolResult const result = runTool({"extract", "--track", "0", "-o", folder / "v.m2v", clip});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(folder.names(), Arguments{"v.m2v"});
    EXPECT_TRUE(readFile(folder / "v.m2v") == videoOfClip());
}

TEST(Output, ANewFileHasTheModeOfTheUmask) {
    TemporaryFolder const folder;
    runShell("umask 027; \"$GXF\" extract --track 0 -o \"$1\" \"$2\"", {folder / "a", clip});
    EXPECT_EQ(modeOf(folder / "a"), 0640U);
    runShell("umask 002; \"$GXF\" extract --track 0 -o \"$1\" \"$2\"", {folder / "b", clip});
    EXPECT_EQ(modeOf(folder / "b"), 0664U);
}

TEST(Output, AnExistingFileIsReplacedAndKeepsItsMode) {
    TemporaryFolder const folder;
    std::string const out = folder.write("out", "old");
    ASSERT_EQ(::chmod(out.c_str(), 0604), 0);
    EXPECT_EQ(runTool({"extract", "--track", "0", "-o", out, clip}).status, 0);
    EXPECT_TRUE(readFile(out) == videoOfClip());
    EXPECT_EQ(modeOf(out), 0604U);
    EXPECT_EQ(folder.names(), Arguments{"out"});
}

TEST(Output, AnExistingFileStaysWhenTheJobIsNotDone) {
    TemporaryFolder const folder;
    std::string const out = folder.write("out.wav", "old");
    std::string const junk = folder.write("junk", std::string(1000, 'x'));
    std::string const empty = folder.write("empty", "");
    for (Arguments const& arguments :
         {Arguments{"--track", "9", clip}, Arguments{"--track", "0", clip}, // MPEG in a .wav
          Arguments{"--track", "0", junk}, Arguments{"--track", "0", empty},
          Arguments{"--track", "0", folder / "none"}, Arguments{"--track", "0", folder.path()}}) {
        Arguments command = {"extract", "-o", out};
        command.insert(command.end(), arguments.begin(), arguments.end());
        EXPECT_EQ(runTool(command).status, 2);
        EXPECT_EQ(readFile(out), "old");
        EXPECT_EQ(folder.names(), (Arguments{"empty", "junk", "out.wav"}));
    }
}

TEST(Output, OfAFaultyStreamIsWrittenAllTheSame) {
    TemporaryFolder const folder;
    std::string const half = readFile(clip).substr(0, 200000);
    ToolResult const result = runTool({"extract", "--track", "0", "-o", folder / "out", "-"}, half);
    EXPECT_EQ(result.status, 1);
    std::string const out = readFile(folder / "out");
    EXPECT_GT(out.size(), 100000U);
    EXPECT_TRUE(videoOfClip().substr(0, out.size()) == out);
    EXPECT_EQ(folder.names(), Arguments{"out"});
}

TEST(Output, IsNeverTheStreamItself) {
    TemporaryFolder const folder;
    std::string const original = asText(smallClip());
    std::string const stream = folder.write("clip.gxf", original);
    ASSERT_EQ(::symlink("clip.gxf", (folder / "symbolic").c_str()), 0);
    ASSERT_EQ(::link(stream.c_str(), (folder / "hard").c_str()), 0);
    for (std::string const& out :
         {stream, folder / "symbolic", folder / "hard",
          folder.path() + "/../" + folder.path().substr(5) + "/clip.gxf"}) {
        std::string const line =
            "gxf: " + out + ": is the stream itself; choose another output name\n";
        ToolResult const result = runTool({"extract", "--track", "0", "-o", out, stream});
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.err, line);
        ToolResult const standard =
            runShell("\"$GXF\" extract --track 0 -o \"$1\" - < \"$2\"", {out, stream});
        EXPECT_EQ(standard.status, 2);
        EXPECT_EQ(standard.err, line);
        EXPECT_EQ(readFile(stream), original);
    }
    EXPECT_TRUE(isLink(folder / "symbolic"));
    EXPECT_EQ(folder.names(), (Arguments{"clip.gxf", "hard", "symbolic"}));
}

TEST(Output, AStreamNamedLikeStandardInputIsStillItself) {
    TemporaryFolder const folder;
    folder.write("standard input", asText(smallClip()));
    ToolResult const result =
        runShell("cd \"$1\" && \"$GXF\" extract --track 0 -o 'standard input' 'standard input'",
                 {folder.path()});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(readFile(folder / "standard input"), asText(smallClip()));
}

TEST(Output, GoesThroughSymbolicLinks) {
    TemporaryFolder const folder;
    folder.write("target", "old");
    ASSERT_EQ(::mkdir((folder / "sub").c_str(), 0777), 0);
    ASSERT_EQ(::symlink("target", (folder / "link").c_str()), 0);
    ASSERT_EQ(::symlink("sub/new", (folder / "dangling").c_str()), 0);
    EXPECT_EQ(runTool({"extract", "--track", "0", "-o", folder / "link", clip}).status, 0);
    EXPECT_TRUE(isLink(folder / "link"));
    EXPECT_FALSE(isLink(folder / "target"));
    EXPECT_TRUE(readFile(folder / "target") == videoOfClip());
    EXPECT_EQ(runTool({"extract", "--track", "0", "-o", folder / "dangling", clip}).status, 0);
    EXPECT_TRUE(isLink(folder / "dangling"));
    EXPECT_TRUE(readFile(folder / "sub/new") == videoOfClip());
    EXPECT_EQ(folder.names(), (Arguments{"dangling", "link", "sub", "target"}));
}

TEST(Output, WhereNothingCanBeWrittenSaysSoInOneLine) {
    TemporaryFolder const folder;
    ASSERT_EQ(::symlink("loop", (folder / "loop").c_str()), 0);
    std::string const file = folder.write("file", "");
    std::string const newFolder = "; choose a folder that exists and may be written to\n";
    std::string const newName = "; choose another output name\n";
    struct Row {
        std::string path;
        std::string why;
    };
    std::vector<Row> rows = {
        {folder / "none/out", "No such file or directory" + newFolder},
        {folder / "none/", "No such file or directory" + newFolder},
        {file + "/out", "Not a directory" + newFolder},
        {folder.path(), "Is a directory" + newName},
        {folder / "loop", "Too many levels of symbolic links" + newName},
        {folder / std::string(256, 'a'), "File name too long" + newName},
    };
    for (Row const& row : rows) {
        ToolResult const result = runTool({"extract", "--track", "0", "-o", row.path, clip});
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "gxf: " + row.path + ": can't be written, " + row.why);
    }
    EXPECT_EQ(folder.names(), (Arguments{"file", "loop"}));
    EXPECT_TRUE(isLink(folder / "loop"));
    EXPECT_EQ(readFile(file), "");
}

TEST(Output, AFolderThatTakesNoFilesIsTold) {
    // Nobody can make a file there, root neither.
    ToolResult const result = runTool({"extract", "--track", "0", "-o", "/proc/out", clip});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, StartsWith("gxf: /proc/out: can't be written, "));
    EXPECT_THAT(result.err, HasSubstr("; choose a folder that exists and may be written to\n"));
}

TEST(Output, AReadOnlyFolderStaysAsItIs) {
    TemporaryFolder const folder;
    folder.write("out", "old");
    ASSERT_EQ(::chmod(folder.path().c_str(), 0555), 0);
    // As root the folder can be written all the same; the file then is the new one.
    int const expected = ::access(folder.path().c_str(), W_OK) == 0 ? 0 : 2;
    ToolResult const result = runTool({"extract", "--track", "0", "-o", folder / "out", clip});
    EXPECT_EQ(result.status, expected);
    EXPECT_EQ(readFile(folder / "out"), expected == 0 ? videoOfClip() : "old");
    ASSERT_EQ(::chmod(folder.path().c_str(), 0755), 0);
    EXPECT_EQ(folder.names(), Arguments{"out"});
}

TEST(Output, ANameMayBeAsLongAsNamesGet) {
    TemporaryFolder const folder;
    std::string const name(255, 'a');
    EXPECT_EQ(runTool({"extract", "--track", "0", "-o", folder / name, clip}).status, 0);
    EXPECT_EQ(folder.names(), Arguments{name});
}

TEST(Output, ADeviceIsWrittenAsItIs) {
    EXPECT_EQ(runTool({"extract", "--track", "0", "-o", "/dev/null", clip}).status, 0);
    ToolResult const result = runTool({"extract", "--track", "0", "-o", "/dev/full", clip});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "gxf: /dev/full: writing failed, No space left on device; what arrived "
                          "there isn't whole\n");
}

TEST(Output, ANamedPipeIsWrittenAsItIs) {
    TemporaryFolder const folder;
    ToolResult const result = runShell(
        "mkfifo \"$1/pipe.wav\" && { cat \"$1/pipe.wav\" > \"$1/copy\" & } &&"
        "\"$GXF\" extract --track 0 -o \"$1/pipe.wav\" \"$2\"; status=$?; wait; exit $status",
        {folder.path(), clip});
    EXPECT_EQ(result.status, 2);
    EXPECT_THAT(result.err, HasSubstr("which a .wav file can't hold"));
    EXPECT_EQ(readFile(folder / "copy"), "");
    ToolResult const plain =
        runShell("mkfifo \"$1/pipe\" && { cat \"$1/pipe\" > \"$1/copy\" & } &&"
                 "\"$GXF\" extract --track 0 -o \"$1/pipe\" \"$2\"; status=$?; wait; exit $status",
                 {folder.path(), clip});
    EXPECT_EQ(plain.status, 0);
    EXPECT_TRUE(readFile(folder / "copy") == videoOfClip());
}

TEST(Output, AWavFileNeedsARegularFile) {
    TemporaryFolder const folder;
    ASSERT_EQ(::symlink("/dev/null", (folder / "null.wav").c_str()), 0);
    ToolResult const result =
        runTool({"extract", "--track", "1", "-o", folder / "null.wav", sample("news_pal.gxf")});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "gxf: " + (folder / "null.wav") + ": a .wav file needs a regular file\n");
}

TEST(Output, AFullDeviceIsToldByEveryCommand) {
    for (char const* const command :
         {"info", "info --json", "packets", "packets --json", "dump", "timecode", "timecode --json",
          "timecode --csv", "extract --track 0", "seek --field 3"}) {
        ToolResult const result =
            runShell(std::string("\"$GXF\" ") + command + " \"$1\" > /dev/full", {clip});
        EXPECT_EQ(result.status, 2) << command;
        EXPECT_EQ(result.err, "gxf: standard output: writing failed, No space left on device; what "
                              "arrived there isn't whole\n")
            << command;
    }
    for (char const* const option : {"--help", "--version", "info --help"}) {
        EXPECT_EQ(runShell(std::string("\"$GXF\" ") + option + " > /dev/full").status, 2) << option;
    }
}

TEST(Output, ALimitOnTheSizeOfFilesIsAFullDisk) {
    TemporaryFolder const folder;
    std::string const out = folder.write("out", "old");
    ToolResult const result =
        runShell("ulimit -f 8; \"$GXF\" extract --track 0 -o \"$1\" \"$2\"", {out, clip});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "gxf: " + out +
                              ": writing failed, File too large; nothing of it is kept, make room "
                              "or choose another output name\n");
    EXPECT_EQ(readFile(out), "old");
    EXPECT_EQ(folder.names(), Arguments{"out"});
}

TEST(Output, AClosedDescriptorIsNotTakenForAnother) {
    TemporaryFolder const folder;
    std::string const half = folder.write("half.gxf", readFile(clip).substr(0, 200000));
    ToolResult const closed = runShell("\"$GXF\" extract --track 0 -o \"$1\" \"$2\" <&- >&- 2>&-",
                                       {folder / "out", half});
    EXPECT_EQ(closed.status, 1);
    std::string const out = readFile(folder / "out");
    EXPECT_GT(out.size(), 100000U);
    EXPECT_TRUE(videoOfClip().substr(0, out.size()) == out);
    ToolResult const info = runShell("\"$GXF\" info \"$1\" >&-", {clip});
    EXPECT_EQ(info.status, 2);
    EXPECT_THAT(info.err, StartsWith("gxf: standard output: writing failed, "));
}

TEST(Output, AReaderThatGoesAwayEndsTheToolQuietly) {
    ToolResult const result =
        runShell("{ \"$GXF\" extract --track 0 \"$1\"; echo $? >&2; } | head -c 4", {clip});
    EXPECT_EQ(result.out, std::string("\0\0\1\xB3", 4));
    EXPECT_EQ(result.err, "141\n"); // as any tool that SIGPIPE ends
}

// Interrupts

class Interrupt : public testing::TestWithParam<int> {
  protected:
    /// Waits until there is a file besides "out".
    static bool waitForUnfinished(TemporaryFolder const& folder, std::size_t before) {
        for (int i = 0; i < 6000; ++i) {
            if (folder.names().size() > before) {
                return true;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        return false;
    }
};

TEST_P(Interrupt, LeavesNothingBehind) {
    rlimit const noCore{0, 0};
    ::setrlimit(RLIMIT_CORE, &noCore);
    TemporaryFolder const folder;
    ToolProcess process({GXF_TOOL_PATH, "extract", "--track", "0", "-o", folder / "out", "-"});
    ASSERT_TRUE(process.write(readFile(clip).substr(0, 300000)));
    ASSERT_TRUE(waitForUnfinished(folder, 0));
    process.send(GetParam());
    ToolResult const result = process.waitWithOpenInput();
    EXPECT_EQ(result.signal, GetParam());
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(folder.names(), Arguments{});
}

TEST_P(Interrupt, KeepsWhatWasThere) {
    TemporaryFolder const folder;
    folder.write("out", "old");
    ToolProcess process({GXF_TOOL_PATH, "extract", "--track", "0", "-o", folder / "out", "-"});
    ASSERT_TRUE(process.write(readFile(clip).substr(0, 300000)));
    ASSERT_TRUE(waitForUnfinished(folder, 1));
    process.send(GetParam());
    EXPECT_EQ(process.waitWithOpenInput().signal, GetParam());
    EXPECT_EQ(folder.names(), Arguments{"out"});
    EXPECT_EQ(readFile(folder / "out"), "old");
}

INSTANTIATE_TEST_SUITE_P(All, Interrupt, testing::Values(SIGINT, SIGTERM, SIGHUP, SIGQUIT));

TEST_F(Interrupt, ThatTheCallerIgnoresStaysIgnored) {
    TemporaryFolder const folder;
    ::setenv("GXF", GXF_TOOL_PATH, 1);
    ToolProcess process({"/bin/sh", "-c",
                         "trap '' HUP; exec \"$GXF\" extract --track 0 -o \"$1\" -", "sh",
                         folder / "out"});
    std::string const stream = readFile(clip);
    ASSERT_TRUE(process.write(stream.substr(0, 300000)));
    ASSERT_TRUE(waitForUnfinished(folder, 0));
    process.send(SIGHUP);
    ToolResult const result = process.wait(std::string_view(stream).substr(300000));
    EXPECT_EQ(result.status, 0);
    EXPECT_TRUE(readFile(folder / "out") == videoOfClip());
}

} // namespace
