#include <chrono>
#include <cstdlib>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <thread>
#include <unistd.h>

#include "run_tool.h"
#include "tool_streams.h"
#include "umf_clips.h"

// Where `gxf userdata` reads a stream from, and where the changed one goes.

namespace {

using namespace GxfTesting;
using testing::HasSubstr;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

std::string plainClip() { return clipOf(newsContent()); }

/// The same with "X" as its title.
std::string changedClip() {
    UmfContent content = newsContent();
    content.userData = pairOf(0, "Title", Bytes().text("X"))
                           .add(pairOf(1, "Take", {7, 0, 0, 0}, "Int", {'1', 'A', 1}));
    return clipOf(filledTo(content, newsContent().size()));
}

struct stat statusOf(std::string const& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
    return status;
}

class UserDataFiles : public testing::Test {
  protected:
    UserDataFiles() : m_clip(m_folder.write("clip.gxf", plainClip())) {}

    static ToolResult copy(std::string const& from, std::string const& to,
                           std::string_view input = {}) {
        return runTool({"userdata", "set", "-o", to, "Title", "X", from}, input);
    }
    static ToolResult inPlace(std::string const& path) {
        return runTool({"userdata", "set", "--in-place", "Title", "X", path});
    }
    static void expectDone(ToolResult const& result, std::string const& out = {}) {
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(result.out == out);
        EXPECT_EQ(result.err, "");
    }
    static void expectRefused(ToolResult const& result, std::string const& line) {
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_EQ(result.err, "gxf: " + line + "\n");
    }
    void expectFolder(Arguments const& names) const { EXPECT_EQ(m_folder.names(), names); }
    void expectClip(std::string const& stream) const { EXPECT_TRUE(readFile(m_clip) == stream); }

    TemporaryFolder m_folder;
    std::string m_clip;
};

// -o

TEST_F(UserDataFiles, ACopyLeavesTheStreamAsItIs) {
    expectDone(copy(m_clip, m_folder / "out.gxf"));
    EXPECT_TRUE(readFile(m_folder / "out.gxf") == changedClip());
    expectClip(plainClip());
    expectFolder({"clip.gxf", "out.gxf"});
    // Of a stream that isn't changed by it too.
    expectDone(
        runTool({"userdata", "set", "-o", m_folder / "same.gxf", "Title", "Evening news", m_clip}));
    EXPECT_TRUE(readFile(m_folder / "same.gxf") == plainClip());
    expectDone(runTool({"userdata", "remove", "-o", m_folder / "less.gxf", "Title", m_clip}));
    EXPECT_EQ(runTool({"userdata", "get", "Title", m_folder / "less.gxf"}).status, 1);
}

TEST_F(UserDataFiles, ACopyReplacesAFileAndKeepsItsMode) {
    std::string const out = m_folder.write("out", "old");
    ASSERT_EQ(::chmod(out.c_str(), 0604), 0);
    expectDone(copy(m_clip, out));
    EXPECT_TRUE(readFile(out) == changedClip());
    EXPECT_EQ(statusOf(out).st_mode & 07777, 0604U);
    expectFolder({"clip.gxf", "out"});
}

TEST_F(UserDataFiles, ACopyGoesThroughASymbolicLink) {
    m_folder.write("target", "old");
    ASSERT_EQ(::symlink("target", (m_folder / "link").c_str()), 0);
    expectDone(copy(m_clip, m_folder / "link"));
    EXPECT_TRUE(S_ISLNK(statusOf(m_folder / "link").st_mode));
    EXPECT_TRUE(readFile(m_folder / "target") == changedClip());
    expectFolder({"clip.gxf", "link", "target"});
}

TEST_F(UserDataFiles, ACopyGoesToStandardOutput) {
    expectDone(copy(m_clip, "-"), changedClip());
    expectFolder({"clip.gxf"});
    ToolResult const full =
        runShell("\"$GXF\" userdata set -o - Title X \"$1\" > /dev/full", {m_clip});
    expectRefused(full, "standard output: writing failed, No space left on device; what arrived "
                        "there isn't whole");
    ToolResult const gone =
        runShell("{ \"$GXF\" userdata set -o - Title X \"$1\"; echo $? >&2; } | head -c 4",
                 {sample("news_pal.gxf")});
    EXPECT_EQ(gone.err, "141\n"); // as any tool that SIGPIPE ends
}

TEST_F(UserDataFiles, ACopyIsNeverTheStreamItself) {
    ASSERT_EQ(::symlink("clip.gxf", (m_folder / "symbolic").c_str()), 0);
    ASSERT_EQ(::link(m_clip.c_str(), (m_folder / "hard").c_str()), 0);
    std::string const advice =
        ": is the stream itself; give --in-place to change it, or choose another output name";
    for (std::string const& out :
         {m_clip, m_folder / "symbolic", m_folder / "hard", m_folder.path() + "/./clip.gxf"}) {
        expectRefused(copy(m_clip, out), out + advice);
        expectRefused(runShell("\"$GXF\" userdata set -o \"$1\" Title X - < \"$2\"", {out, m_clip}),
                      out + advice);
    }
    for (char const* const script : {"\"$GXF\" userdata set -o - Title X \"$1\" >> \"$1\"",
                                     "\"$GXF\" userdata set -o - Title X - < \"$1\" >> \"$1\"",
                                     "\"$GXF\" userdata set -o - Title X \"$1\" 1<> \"$1\""}) {
        expectRefused(runShell(script, {m_clip}), "standard output" + advice);
    }
    expectClip(plainClip());
    expectFolder({"clip.gxf", "hard", "symbolic"});
}

TEST_F(UserDataFiles, FilesThatAreNamedLikeStandardOnesAreOthers) {
    for (char const* const script :
         {"\"$GXF\" userdata set -o 'standard input' Title X - < clip.gxf",
          "\"$GXF\" userdata set -o 'standard input' Title X - < clip.gxf", // which is there now
          "cat clip.gxf | \"$GXF\" userdata set -o 'standard input' Title X -",
          "\"$GXF\" userdata set -o ./- Title X clip.gxf",
          "\"$GXF\" userdata set -o - Title Y ./- > other"}) {
        expectDone(runShell(std::string("cd \"$1\" && ") + script, {m_folder.path()}));
    }
    EXPECT_TRUE(readFile(m_folder / "standard input") == changedClip());
    EXPECT_TRUE(readFile(m_folder / "-") == changedClip());
    EXPECT_EQ(runTool({"userdata", "get", "Title", m_folder / "other"}).out, "Y");
    expectFolder({"-", "clip.gxf", "other", "standard input"});
}

TEST_F(UserDataFiles, ACopyThatCanNotBeWrittenLeavesNothing) {
    struct Row {
        std::string out;
        std::string why;
    };
    for (Row const& row :
         {Row{m_folder / "none/out", "can't be written, No such file or directory; choose a folder "
                                     "that exists and may be written to"},
          Row{m_folder.path(), "can't be written, Is a directory; choose another output name"},
          Row{"/dev/full",
              "writing failed, No space left on device; what arrived there isn't whole"}}) {
        expectRefused(copy(m_clip, row.out), row.out + ": " + row.why);
        expectRefused(copy("-", row.out, plainClip()), row.out + ": " + row.why);
    }
    std::string const out = m_folder.write("out", "old");
    std::string const script = "ulimit -f 8; \"$GXF\" userdata set -o \"$1\" Title X ";
    for (std::string const& from : {std::string("\"$2\""), std::string("- < \"$2\"")}) {
        expectRefused(runShell(script + from, {out, sample("news_pal.gxf")}),
                      out + ": writing failed, File too large; nothing of it is kept, make room or "
                            "choose another output name");
        EXPECT_EQ(readFile(out), "old");
    }
    expectFolder({"clip.gxf", "out"});
}

TEST_F(UserDataFiles, ANamedPipeAsTheOutputIsWritten) {
    for (char const* const from : {"\"$1/clip.gxf\"", "- < \"$1/clip.gxf\""}) {
        ToolResult const result =
            runShell(std::string("mkfifo \"$1/pipe\" && { cat \"$1/pipe\" > \"$1/copy\" & } &&"
                                 "\"$GXF\" userdata set -o \"$1/pipe\" Title X ") +
                         from + "; status=$?; wait; rm \"$1/pipe\"; exit $status",
                     {m_folder.path()});
        expectDone(result);
        EXPECT_TRUE(readFile(m_folder / "copy") == changedClip());
    }
}

// Pipes as the stream

TEST_F(UserDataFiles, AStreamFromAPipeIsChangedIntoAFile) {
    expectDone(copy("-", m_folder / "out", plainClip()));
    EXPECT_TRUE(readFile(m_folder / "out") == changedClip());
    expectFolder({"clip.gxf", "out"});
    expectDone(runShell("cd \"$1\" && mkfifo pipe && { cat clip.gxf > pipe & } && "
                        "\"$GXF\" userdata set -o named Title X pipe",
                        {m_folder.path()}));
    EXPECT_TRUE(readFile(m_folder / "named") == changedClip());
    ToolResult const get =
        runShell("cd \"$1\" && { cat clip.gxf > pipe & } && \"$GXF\" userdata get Title pipe",
                 {m_folder.path()});
    EXPECT_EQ(get.out, "Evening news");
    expectFolder({"clip.gxf", "named", "out", "pipe"});
}

TEST_F(UserDataFiles, AStreamFromAPipeIsChangedIntoAPipe) {
    TemporaryFolder const kept;
    std::string const script = "TMPDIR=\"$1\"; export TMPDIR; ";
    std::string const stream = sample("news_pal.gxf");
    ToolResult const result = runShell(script + "cat \"$2\" | \"$GXF\" userdata set -o - Title X -"
                                                " | \"$GXF\" userdata get Title -",
                                       {kept.path(), stream});
    expectDone(result, "X");
    EXPECT_EQ(kept.names(), Arguments{});
    // A pipe gives what the file gives.
    EXPECT_TRUE(copy("-", "-", readFile(stream)).out == copy(stream, "-").out);
    expectDone(copy("-", "-", plainClip()), changedClip());
}

TEST_F(UserDataFiles, WhereAPipeCanNotBeKeptSaysSo) {
    for (char const* const to : {"-", "/dev/null"}) {
        expectRefused(
            runShell("cat \"$1\" | TMPDIR=/none \"$GXF\" userdata set -o \"$2\" Title X -",
                     {m_clip, to}),
            "a stream from a pipe can't be kept in /none, No such file or directory; choose "
            "another folder with TMPDIR, or give -o and a file's name");
    }
    TemporaryFolder const kept;
    expectRefused(runShell("export TMPDIR=\"$2\"; ulimit -f 8; cat \"$1\" | "
                           "\"$GXF\" userdata set -o - Title X -",
                           {sample("news_pal.gxf"), kept.path()}),
                  "a stream from a pipe can't be kept in " + kept.path() +
                      ", File too large; choose another folder with TMPDIR, or give -o and a "
                      "file's name");
    EXPECT_EQ(kept.names(), Arguments{});
}

TEST_F(UserDataFiles, APipeWithoutAStreamLeavesNothing) {
    std::string const out = m_folder.write("out", "old");
    for (std::string const& to : {out, std::string("-")}) {
        expectRefused(copy("-", to, ""), "standard input: is empty; give a GXF stream");
        expectRefused(copy("-", to, std::string(1000, 'j')),
                      "standard input: no GXF packet in it; give a GXF stream");
        expectRefused(copy("-", to, asText(smallClip())),
                      "standard input: has no UMF that could hold user data; nothing is changed");
        expectRefused(
            runTool({"userdata", "set", "-o", to, "Title", "Evening news!", "-"}, plainClip()),
            "standard input: the UMF at offset 40 has no room for 1 byte more: it would "
            "lose its XML document (92 bytes); allow that with --discard-tail, or give a "
            "shorter value");
        ToolResult const folder = runShell("\"$GXF\" userdata set -o \"$1\" Title X - < /", {to});
        expectRefused(folder, "standard input: reading failed: Is a directory; nothing is written");
    }
    EXPECT_EQ(readFile(out), "old");
    expectFolder({"clip.gxf", "out"});
}

TEST_F(UserDataFiles, AnInterruptWhileAPipeIsReadLeavesNothing) {
    std::string const out = m_folder.write("out", "old");
    TemporaryFolder const kept;
    ::setenv("TMPDIR", kept.path().c_str(), 1);
    for (std::string const& to : {out, std::string("-")}) {
        ToolProcess process({GXF_TOOL_PATH, "userdata", "set", "-o", to, "Title", "X", "-"});
        // More than a pipe holds, so that the tool has begun.
        ASSERT_TRUE(process.write(readFile(sample("news_pal.gxf")).substr(0, 300000)));
        process.send(SIGTERM);
        EXPECT_EQ(process.waitWithOpenInput().signal, SIGTERM);
        EXPECT_EQ(kept.names(), Arguments{});
        expectFolder({"clip.gxf", "out"});
    }
    ::unsetenv("TMPDIR");
    EXPECT_EQ(readFile(out), "old");
}

// --in-place

TEST_F(UserDataFiles, InPlaceTheFileStaysTheSameOne) {
    ASSERT_EQ(::chmod(m_clip.c_str(), 0640), 0);
    struct stat const before = statusOf(m_clip);
    expectDone(inPlace(m_clip));
    struct stat const after = statusOf(m_clip);
    EXPECT_EQ(after.st_ino, before.st_ino);
    EXPECT_EQ(after.st_mode, before.st_mode);
    EXPECT_EQ(after.st_size, before.st_size);
    expectClip(changedClip());
    expectFolder({"clip.gxf"});
}

TEST_F(UserDataFiles, InPlaceLinksLeadToTheFile) {
    ASSERT_EQ(::mkdir((m_folder / "sub").c_str(), 0777), 0);
    ASSERT_EQ(::symlink("../clip.gxf", (m_folder / "sub/link").c_str()), 0);
    ASSERT_EQ(::link(m_clip.c_str(), (m_folder / "hard").c_str()), 0);
    expectDone(inPlace(m_folder / "sub/link"));
    EXPECT_TRUE(S_ISLNK(statusOf(m_folder / "sub/link").st_mode));
    expectClip(changedClip());
    EXPECT_TRUE(readFile(m_folder / "hard") == changedClip());
    expectDone(
        runTool({"userdata", "set", "--in-place", "Title", "Evening news", m_folder / "hard"}));
    expectClip(plainClip());
    expectFolder({"clip.gxf", "hard", "sub"});
}

TEST_F(UserDataFiles, InPlaceNeedsAFile) {
    std::string const pipe = "what is read from a pipe can't be changed in place; give -o OUT";
    ASSERT_EQ(::mkfifo((m_folder / "pipe").c_str(), 0600), 0);
    expectRefused(inPlace("-"), pipe);
    expectRefused(inPlace(m_folder / "pipe"), pipe);
    expectRefused(runShell("\"$GXF\" userdata set --in-place Title X - < \"$1\"", {m_clip}), pipe);
    expectRefused(inPlace(m_folder / "none"),
                  (m_folder / "none") + ": can't be changed in place, No such file or directory; "
                                        "check the path, or give -o OUT");
    expectRefused(inPlace(m_folder.path()),
                  m_folder.path() + ": can't be changed in place, Is a directory; check the path, "
                                    "or give -o OUT");
    expectClip(plainClip());
    std::string const junk = m_folder.write("junk", std::string(1000, 'j'));
    expectRefused(inPlace(junk), junk + ": no GXF packet in it; give a GXF stream");
    EXPECT_EQ(readFile(junk), std::string(1000, 'j'));
    std::string const empty = m_folder.write("empty", "");
    expectRefused(inPlace(empty), empty + ": is empty; give a GXF stream");
    expectFolder({"clip.gxf", "empty", "junk", "pipe"});
}

TEST_F(UserDataFiles, InPlaceInAReadOnlyFolder) {
    ASSERT_EQ(::chmod(m_folder.path().c_str(), 0555), 0);
    // As root the folder can be written all the same; the file then is the new one.
    bool const mayWrite = ::access(m_folder.path().c_str(), W_OK) == 0;
    ToolResult const result = inPlace(m_clip);
    ASSERT_EQ(::chmod(m_folder.path().c_str(), 0755), 0);
    EXPECT_EQ(result.status, mayWrite ? 0 : 2);
    expectClip(mayWrite ? changedClip() : plainClip());
    expectFolder({"clip.gxf"});
}

TEST_F(UserDataFiles, InPlaceWaitsForSomebodyElsesChange) {
    int const descriptor = ::open(m_clip.c_str(), O_RDWR | O_CLOEXEC);
    ASSERT_EQ(::flock(descriptor, LOCK_EX), 0);
    ToolProcess process({GXF_TOOL_PATH, "userdata", "set", "--in-place", "Title", "X", m_clip});
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    expectClip(plainClip());
    ::close(descriptor);
    expectDone(process.wait());
    expectClip(changedClip());
}

TEST_F(UserDataFiles, ChangesAtTheSameTimeGoOneAfterTheOther) {
    std::string const clip = m_folder.write("clip.gxf", clipOf(roomyContent(8 * 320)));
    ToolResult const result = runShell(
        "for i in 1 2 3 4 5 6 7 8; do \"$GXF\" userdata set --in-place N$i v$i \"$1\" & done; wait",
        {clip});
    EXPECT_EQ(result.err, "");
    for (char i = '1'; i <= '8'; ++i) {
        EXPECT_EQ(runTool({"userdata", "get", std::string("N") + i, clip}).out,
                  std::string("v") + i);
    }
    expectFolder({"clip.gxf"});
}

// Undo files

/// As an interrupted change of a file of that size leaves it, written by hand.
std::string undoFile(std::size_t fileSize, std::string const& before, std::string const& after,
                     std::vector<std::pair<std::size_t, std::size_t>> const& ranges) {
    auto const number = [](std::uint64_t value, unsigned count) {
        std::string bytes;
        for (unsigned i = 0; i < count; ++i) {
            bytes += static_cast<char>(value >> (8 * i));
        }
        return bytes;
    };
    std::string const head = "GXFUNDO1" + number(fileSize, 8) + number(ranges.size(), 4);
    std::string rest;
    for (auto const& [offset, length] : ranges) {
        rest += number(offset, 8) + number(length, 4) + before.substr(offset, length) +
                after.substr(offset, length);
    }
    // The 64-bit FNV-1a hash.
    std::uint64_t check = 0xCBF29CE484222325;
    for (char const c : head + rest) {
        check = (check ^ static_cast<unsigned char>(c)) * 0x100000001B3;
    }
    return head + number(check, 8) + rest;
}

std::size_t umfLength() { return packetsOf(plainClip())[1].length; }

/// The UMF's packet with its first half new and its second half old.
std::string tornClip() {
    std::size_t const middle = umfOffset + umfLength() / 2;
    return changedClip().substr(0, middle) + plainClip().substr(middle);
}

std::string undoOfClip() {
    return undoFile(plainClip().size(), plainClip(), changedClip(), {{umfOffset, umfLength()}});
}

class UserDataUndo : public UserDataFiles {
  protected:
    void interrupt(std::string const& stream, std::string const& undo) {
        m_folder.write("clip.gxf", stream);
        m_folder.write("clip.gxf.gxf-undo", undo);
    }
    std::string undone() const { return m_clip + ": a change that was interrupted is undone\n"; }
};

TEST_F(UserDataUndo, EveryCommandUndoesAnInterruptedChangeFirst) {
    for (Arguments const& command :
         {Arguments{"info"}, Arguments{"info", "--json", "--quick"}, Arguments{"packets"},
          Arguments{"dump"}, Arguments{"xml"}, Arguments{"userdata", "list"},
          Arguments{"userdata", "get", "Title"}, Arguments{"extract", "--track", "0"},
          Arguments{"seek", "--field", "0"},
          Arguments{"userdata", "set", "Title", "Y", "-o", m_folder / "out"},
          Arguments{"userdata", "remove", "None", "--in-place"}}) {
        SCOPED_TRACE(command.front() + ' ' + command.back());
        Arguments arguments = command;
        arguments.push_back(m_clip);
        ToolResult const expected = runTool(arguments);
        for (std::string const& stream : {tornClip(), plainClip(), changedClip()}) {
            interrupt(stream, undoOfClip());
            ToolResult const result = runTool(arguments);
            EXPECT_EQ(result.status, expected.status);
            EXPECT_EQ(result.out, expected.out);
            EXPECT_EQ(result.err, undone() + expected.err);
            expectClip(plainClip());
            EXPECT_FALSE(::access((m_clip + ".gxf-undo").c_str(), F_OK) == 0);
        }
    }
}

TEST_F(UserDataUndo, AChangeInPlaceBeginsWithTheOldBytes) {
    interrupt(tornClip(), undoOfClip());
    ToolResult const result = inPlace(m_clip);
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, undone());
    expectClip(changedClip());
    expectFolder({"clip.gxf"});
}

TEST_F(UserDataUndo, ALinkFindsTheUndoFileToo) {
    ASSERT_EQ(::symlink("clip.gxf", (m_folder / "link").c_str()), 0);
    interrupt(tornClip(), undoOfClip());
    ToolResult const result = runTool({"userdata", "get", "Title", m_folder / "link"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.out, "Evening news");
    EXPECT_EQ(result.err, (m_folder / "link") + ": a change that was interrupted is undone\n");
    expectFolder({"clip.gxf", "link"});
}

TEST_F(UserDataUndo, SeveralPiecesAreAllPutBack) {
    interrupt(tornClip(), undoFile(plainClip().size(), plainClip(), changedClip(),
                                   {{umfOffset, 100},
                                    {umfOffset + 100, umfLength() - 200},
                                    {umfOffset + umfLength() - 100, 100}}));
    EXPECT_EQ(runTool({"userdata", "get", "Title", m_clip}).err, undone());
    expectClip(plainClip());
    expectFolder({"clip.gxf"});
}

TEST_F(UserDataUndo, OneThatWasNeverWholeGoes) {
    std::string const whole = undoOfClip();
    std::string otherCheck = whole;
    otherCheck[20] ^= 1;
    for (std::string const& undo :
         {std::string(), std::string("GXF"), whole.substr(0, 8), whole.substr(0, 28),
          whole.substr(0, whole.size() - 1), otherCheck, std::string(4096, '\0')}) {
        interrupt(changedClip(), undo);
        expectDone(runTool({"userdata", "get", "Title", m_clip}), "X");
        expectClip(changedClip());
        expectFolder({"clip.gxf"});
    }
}

TEST_F(UserDataUndo, AForeignFileOfThatNameIsRefusedAndKept) {
    std::string const path = m_clip + ".gxf-undo";
    std::string const otherSize = plainClip() + "longer";
    std::string otherBytes = plainClip();
    otherBytes[umfOffset + 60] = '\x55';
    struct Row {
        char const* what;
        std::string undo;
        std::string why;
    };
    std::string const another = path + " keeps old bytes of another file";
    for (Row const& row :
         {Row{"a text", "notes of mine", path + " is in the way"},
          Row{"a clip", plainClip(), path + " is in the way"},
          Row{"another size",
              undoFile(otherSize.size(), otherSize, otherSize, {{umfOffset, umfLength()}}),
              another},
          Row{"other bytes",
              undoFile(otherBytes.size(), otherBytes, otherBytes, {{umfOffset, umfLength()}}),
              another},
          Row{"bytes behind the end",
              undoFile(plainClip().size(), otherSize, otherSize, {{plainClip().size() - 1, 3}}),
              another}}) {
        SCOPED_TRACE(row.what);
        interrupt(plainClip(), row.undo);
        for (ToolResult const& result :
             {runTool({"info", m_clip}), runTool({"userdata", "get", "Title", m_clip}),
              inPlace(m_clip), copy(m_clip, m_folder / "out")}) {
            EXPECT_EQ(result.status, 2);
            EXPECT_EQ(result.out, "");
            EXPECT_THAT(result.err, StartsWith("gxf: " + m_clip + ": "));
            EXPECT_THAT(result.err, HasSubstr(row.why));
            EXPECT_EQ(std::count(result.err.begin(), result.err.end(), '\n'), 1);
            expectClip(plainClip());
            EXPECT_TRUE(readFile(path) == row.undo);
        }
        expectFolder({"clip.gxf", "clip.gxf.gxf-undo"});
    }
}

TEST_F(UserDataUndo, AFolderOfThatNameIsRefusedAndKept) {
    ASSERT_EQ(::mkdir((m_clip + ".gxf-undo").c_str(), 0777), 0);
    for (ToolResult const& result : {runTool({"info", m_clip}), inPlace(m_clip)}) {
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.out, "");
        EXPECT_THAT(result.err, HasSubstr(m_clip + ".gxf-undo"));
    }
    expectClip(plainClip());
    expectFolder({"clip.gxf", "clip.gxf.gxf-undo"});
}

TEST_F(UserDataUndo, ACopyOverAnInterruptedFileIsTheNewOne) {
    // Else its undo file would put old bytes into the new file.
    std::string const other = m_folder.write("other.gxf", readFile(sample("news_pal.gxf")));
    interrupt(tornClip(), undoOfClip());
    expectDone(copy(other, m_clip));
    expectFolder({"clip.gxf", "other.gxf"});
    expectDone(runTool({"userdata", "get", "Title", m_clip}), "X");
}

TEST_F(UserDataUndo, ACopyOverAMissingFileIsNotUndone) {
    std::string const other = m_folder.write("other.gxf", readFile(sample("news_pal.gxf")));
    interrupt(tornClip(), undoOfClip());
    ASSERT_EQ(::unlink(m_clip.c_str()), 0);
    ToolResult const result = copy(other, m_clip);
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "gxf: " + m_clip + ": can't be written, " + m_clip +
                              ".gxf-undo is in the way; move it away\n");
    expectFolder({"clip.gxf.gxf-undo", "other.gxf"});
}

} // namespace
