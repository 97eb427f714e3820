#include <algorithm>
#include <gmock/gmock.h>

#include <testing/umf_builder.h>

#include "run_tool.h"
#include "tool_streams.h"

namespace {

using namespace GxfTesting;
using testing::HasSubstr;
using testing::Not;

TEST(Dump, PrintsThePacketsInTheLibrarysText) {
    Bytes stream = map(material("A", 3), namedTrack(pcm16, 1, "B", rate25));
    stream.add(packet(tableType, fltPayload(5, {1, 2})));
    stream.add(audio(pcm16, 1, 2, 16, 32, ramp16(0, 40))).add(endOfStream());
    ToolResult const result = runTool({"dump", "-"}, asText(stream));
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(result.out, R"(map:58b@0
preamble={version=0}
materialData={
  media={
  A},
  1stField=0,
  lastField=3}
trackDesc={
  track 1: AudioPCM_16,,media={B},frameRate=25hz,fields=interlaced}}
fieldLocTbl:32b@58={
5 flds/entry,entry[2]={f    0:        1024, f    5:        2048
media:112b@90: AudioPCM_16,trk=1,f=2,t=2,{in,out}={16,32}
EOS:16b@202
)");
}

TEST(Dump, PrintsAWholeUmfBehindItsLastPacket) {
    UmfContent content;
    content.addTrack({'0', 'M', 1});
    content.rest = Bytes().fill(4);
    Bytes payload = content.payload();
    // The epoch in 100 nanoseconds since 1601: 0x019DB1DED53E8000.
    for (std::size_t const time : {48U + 28, 48U + 36}) {
        setWordAt(payload, time, 0xD53E8000);
        setWordAt(payload, time + 4, 0x019DB1DE);
    }
    std::vector<Bytes> const packets = umfPackets(payload, 200);
    TemporaryFolder const folder;
    Bytes const stream = Bytes().add(packets[0]).add(endOfStream()).add(packets[1]);
    std::string const path = folder.write("umf.gxf", asText(stream));
    ToolResult const result = runShell("TZ=UTC0 \"$GXF\" dump \"$1\"", {path});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    // The pictures of a GOP are printed as the I-pictures, three times: intended.
    EXPECT_EQ(result.out, R"(umfFile:224b@0
  preamble={First,payloadLen=200}
EOS:16b@224
umfFile:96b@240
  preamble={Last,payloadLen=72}
umfFile:320b@0
  preamble={Last,payloadLen=72}
  payload={totLen=272,v3,nTrk=1(4b@104),nSeg=1,media=(160b@108),ud=0b@268,idx=0b@0}
  material={
    attr={0x1,ReadOnly},
    len{min,max}={2,100},
    mark{in,out}={10,90},
    tcmark{in,out}={01:02:03;04,01:03:04;05},
    modTime=Thu Jan  1 00:00:00 1970,createTime=Thu Jan  1 00:00:00 1970
    nAudio=2,nTc=1,nMpeg=1}
  track[1]={
    Mpeg2Sd 0, 1 seg}
  media[1]={
    seq0:Mpeg2SD,trk=Mpeg2Sd0,nFields=100,in/out=0/99,27000000hz,0 bits
      {4x3,afd=0x8,4:2:2,closedGop,frame,I/P/B=1/1/1,mpeg2}}
  userdata[0]={
    }
)");
}

TEST(Dump, PrintsAUmfOfOnePacketOnce) {
    ToolResult const result = runTool({"dump", sample("news_pal.gxf")});
    std::vector<std::string> const lines = result.lines();
    EXPECT_EQ(std::count(lines.begin(), lines.end(), "umfFile:4432b@597"), 1);
    EXPECT_THAT(result.out, HasSubstr("umfFile:4432b@597\n"
                                      "  preamble={Only,payloadLen=4410}\n"
                                      "  payload={totLen=4410,v3,nTrk=4(16b@104),"));
}

TEST(Dump, ArraysPrintsTheLongLists) {
    std::string const stream = asText(smallClip());
    std::string const brief = runTool({"dump", "-"}, stream).out;
    std::string const whole = runTool({"dump", "--arrays", "-"}, stream).out;
    EXPECT_THAT(brief, HasSubstr("tc f0={01:00:00:00, 01:00:00:00, 01:00:00:01, ..., inv}\n"));
    EXPECT_THAT(brief, Not(HasSubstr("0x0e.00.00.0a")));
    EXPECT_THAT(whole, HasSubstr("i=  4,f=4: 01:00:00:02, 01:00:00:02, inv, inv"));
    EXPECT_THAT(whole, HasSubstr("i=500,f=500: inv, inv, inv, inv}\n"));
    EXPECT_THAT(whole, HasSubstr("Mpeg2_625,trk=0,f=2,t=2,10b,P,frame,0x0e.00.00.0a\n"));
    EXPECT_THAT(whole,
                HasSubstr("  f    0:           0, f    2:        1024, f    4:        2048}}"));
}

TEST(Dump, PrintsEveryPacketOfTheSamples) {
    for (char const* const name : {"news_pal.gxf", "spot_ntsc.gxf", "hd_short.gxf"}) {
        ToolResult const result = runTool({"dump", sample(name)});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        for (RawPacket const& packet : packetsOf(readFile(sample(name)))) {
            EXPECT_THAT(result.out, HasSubstr(":" + std::to_string(packet.length) + "b@" +
                                              std::to_string(packet.offset)));
        }
    }
}

TEST(Dump, ABrokenPacketIsPrintedAsFarAsItGoes) {
    Bytes stream = map(material("A", 3), track(pcm16, 1, tag(0x54, {1, 2})));
    ToolResult const result = runTool({"dump", "-"}, asText(stream.add(endOfStream())));
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.out, HasSubstr("lastField=3"));
    EXPECT_THAT(result.out, HasSubstr("EOS:16b@"));
}

} // namespace
