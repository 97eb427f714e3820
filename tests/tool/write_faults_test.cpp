// The tool is stopped at every step that changes a file, and meets disks without room.

#include <algorithm>
#include <gmock/gmock.h>
#include <unistd.h>

#include <testing/umf_builder.h>

#include "run_tool.h"
#include "tool_streams.h"

namespace {

using namespace GxfTesting;

/// Where the UMFs' packets lie, and the bytes of a clip with two UMFs, one of three packets with
/// others between them.
struct Clip {
    Bytes bytes;
    std::vector<std::pair<std::size_t, std::size_t>> umfPackets; ///< from, to

    Clip() {
        add(longUmf());
        bytes.add(mediaPacket({}, Bytes().fill(3000, 0x5A)));
        UmfContent content;
        content.addTrack({});
        content.userData = umfPair(7, "Title", Bytes().text("Evening news, opening"));
        add(content);
        bytes.add(endOfStream());
    }

    static UmfContent longUmf() {
        UmfContent content;
        content.addTrack({});
        content.userData = umfPair(1, "Title", Bytes().text("Evening news, opening"))
                               .add(umfPair(2, "Take", Bytes().text("3")));
        content.hasIndex = true;
        content.xml = utf16("<?xml version=\"1.0\"?><Asset/>").fill(2);
        while (content.rest.size() < std::size_t{2} * 32768) {
            content.rest.u32(static_cast<std::uint32_t>(content.rest.size() * 0x01010101) | 1);
        }
        return content;
    }

    void add(UmfContent content) {
        // The last item of user data wants as much behind it.
        content.rest.fill(40);
        for (Bytes const& packet : GxfTesting::umfPackets(content.payload())) {
            bytes.add(mediaPacket({}, Bytes().fill(1000, 0x5A)));
            umfPackets.emplace_back(bytes.size(), bytes.size() + packet.size());
            bytes.add(packet);
        }
    }

    bool isInUmf(std::size_t offset) const {
        return std::any_of(umfPackets.begin(), umfPackets.end(), [offset](auto const& packet) {
            return offset >= packet.first && offset < packet.second;
        });
    }
};

std::string const newTitle = "A title of another length";

class WriteFaults : public testing::Test {
  protected:
    WriteFaults() : old(asText(clip.bytes)) {
        folder.write("clip.gxf", old);
        EXPECT_EQ(runTool({"userdata", "set", "Title", newTitle, "--in-place", path()}).status, 0);
        changed = readFile(path());
        EXPECT_NE(changed, old);
    }

    std::string path() const { return folder / "clip.gxf"; }

    /// Changes the clip while a step goes wrong.
    ToolResult change(char const* fault, unsigned step, std::string const& how) {
        folder.write("clip.gxf", old);
        return runShell(
            "LD_PRELOAD=\"$1\" "
            "ASAN_OPTIONS=\"$ASAN_OPTIONS:verify_asan_link_order=0\" "
            "GXF_FAULT=\"$2\" GXF_FAULT_STEP=\"$3\" "
            "\"$GXF\" userdata set Title \"$4\" $5 \"$6\"",
            {GXF_WRITE_FAULTS_PATH, fault, std::to_string(step), newTitle, how, path()});
    }

    /// Every byte is an old or a new one, and outside the UMFs there is none but the old.
    void expectMixture(std::string const& now) const {
        ASSERT_EQ(now.size(), old.size());
        for (std::size_t i = 0; i < now.size(); ++i) {
            ASSERT_TRUE(now[i] == old[i] || (clip.isInUmf(i) && now[i] == changed[i])) << i;
        }
    }

    void expectOldOrNew() const {
        std::string const now = readFile(path());
        EXPECT_TRUE(now == old || now == changed);
    }

    TemporaryFolder folder;
    Clip const clip;
    std::string old;
    std::string changed;
};

TEST_F(WriteFaults, StoppedAtAnyStepInPlace) {
    for (char const* const fault : {"kill", "torn"}) {
        unsigned step = 1;
        bool wasUndone = false;
        for (;; ++step) {
            ToolResult const result = change(fault, step, "--in-place");
            if (result.status == 0) {
                break;
            }
            ASSERT_EQ(result.status, 128 + SIGKILL) << step << result.err;
            expectMixture(readFile(path()));
            // Whatever the next use is.
            ToolResult const next = runTool({"userdata", "get", "Title", path()});
            EXPECT_EQ(next.status, 0) << step << next.err;
            expectOldOrNew();
            EXPECT_EQ(folder.names(), std::vector<std::string>{"clip.gxf"}) << step;
            EXPECT_EQ(next.out, readFile(path()) == old ? "Evening news, opening" : newTitle);
            wasUndone =
                wasUndone || next.err == path() + ": a change that was interrupted is undone\n";
        }
        // Four for the undo file, four packets, a sync, two to remove the undo file.
        EXPECT_EQ(step, 12U) << fault;
        EXPECT_TRUE(wasUndone);
        EXPECT_EQ(readFile(path()), changed);
    }
}

TEST_F(WriteFaults, AnyFailingStepInPlace) {
    for (char const* const fault : {"once", "full"}) {
        unsigned failures = 0;
        for (unsigned step = 1; step <= 11; ++step) {
            ToolResult const result = change(fault, step, "--in-place");
            SCOPED_TRACE(std::string(fault) + std::to_string(step) + result.err);
            expectMixture(readFile(path()));
            if (result.status == 0) {
                EXPECT_EQ(readFile(path()), changed);
            } else {
                ++failures;
                EXPECT_EQ(result.status, 2);
                EXPECT_THAT(result.err,
                            testing::StartsWith("gxf: " + path() + ": can't be changed, "));
            }
            ToolResult const next = runTool({"userdata", "get", "Title", path()});
            EXPECT_EQ(next.status, 0);
            EXPECT_EQ(next.out, result.status == 0 ? newTitle : "Evening news, opening");
            EXPECT_TRUE(readFile(path()) == (result.status == 0 ? changed : old));
            EXPECT_EQ(folder.names(), std::vector<std::string>{"clip.gxf"});
        }
        EXPECT_GE(failures, 6U) << fault;
    }
}

TEST_F(WriteFaults, AnyLimitOnTheSizeOfFilesInPlace) {
    // In units of 512 bytes.
    for (std::size_t limit = 0; limit <= old.size() / 512 + 1; limit += 7) {
        folder.write("clip.gxf", old);
        ToolResult const result =
            runShell("ulimit -f \"$1\"; \"$GXF\" userdata set Title \"$2\" --in-place \"$3\"",
                     {std::to_string(limit), newTitle, path()});
        expectMixture(readFile(path()));
        EXPECT_EQ(runTool({"userdata", "get", "Title", path()}).status, 0);
        EXPECT_TRUE(readFile(path()) == (result.status == 0 ? changed : old)) << limit;
        EXPECT_EQ(folder.names(), std::vector<std::string>{"clip.gxf"});
    }
}

TEST_F(WriteFaults, ACopyAppearsWholeOrNotAtAll) {
    std::string const out = folder / "out.gxf";
    for (char const* const fault : {"kill", "torn", "once"}) {
        for (bool const exists : {false, true}) {
            unsigned step = 1;
            for (;; ++step) {
                if (exists) {
                    folder.write("out.gxf", "what was there");
                }
                ToolResult const result = change(fault, step, "-o " + out);
                SCOPED_TRACE(std::string(fault) + std::to_string(step) + result.err);
                EXPECT_TRUE(readFile(path()) == old);
                std::vector<std::string> const names = folder.names();
                bool const appeared =
                    std::find(names.begin(), names.end(), "out.gxf") != names.end();
                std::string const now = appeared ? readFile(out) : "";
                if (result.status == 0) {
                    EXPECT_TRUE(now == changed);
                    ::unlink(out.c_str());
                    break;
                }
                EXPECT_TRUE(appeared ? now == changed || (exists && now == "what was there")
                                     : !exists);
                EXPECT_EQ(result.status, std::string(fault) == "once" ? 2 : 128 + SIGKILL);
                ::unlink(out.c_str());
                for (std::string const& name : folder.names()) {
                    // A kill leaves the unfinished file.
                    if (name != "clip.gxf") {
                        EXPECT_NE(std::string(fault), "once") << name;
                        ::unlink((folder / name).c_str());
                    }
                }
            }
            EXPECT_GE(step, 3U) << fault;
        }
    }
}

TEST_F(WriteFaults, ACopyWithoutRoomLeavesNothing) {
    folder.write("clip.gxf", old);
    for (std::size_t limit = 1; limit < old.size() / 512; limit += 5) {
        ToolResult const result =
            runShell("ulimit -f \"$1\"; \"$GXF\" userdata set Title x -o \"$2\" \"$3\"",
                     {std::to_string(limit), folder / "out.gxf", path()});
        EXPECT_EQ(result.status, 2) << limit;
        EXPECT_EQ(folder.names(), std::vector<std::string>{"clip.gxf"});
    }
}

} // namespace
