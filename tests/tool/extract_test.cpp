#include <gmock/gmock.h>

#include "run_tool.h"
#include "tool_streams.h"

namespace {

using namespace GxfTesting;
using testing::StartsWith;

using Arguments = std::vector<std::string>;

ToolResult extracted(Arguments arguments, Bytes const& stream) {
    arguments.insert(arguments.begin(), "extract");
    arguments.push_back("-");
    return runTool(arguments, asText(stream));
}

/// A track's essence, by the preambles of its packets.
std::string essenceOf(std::string const& stream, unsigned track) {
    std::string essence;
    for (RawPacket const& packet : packetsOf(stream)) {
        if (packet.type != mediaType || packet.track() != track) {
            continue;
        }
        unsigned const media = packet.byte(0);
        if (media == mpeg525 || media == mpeg625 || media == 20) {
            std::size_t const count = packet.byte(7) << 16 | packet.byte(8) << 8 | packet.byte(9);
            essence += packet.payload.substr(16, count);
        } else if (media == pcm16) {
            std::size_t const first = packet.byte(6) << 8 | packet.byte(7);
            std::size_t const last = packet.byte(8) << 8 | packet.byte(9);
            essence += packet.payload.substr(16 + 2 * first, 2 * (last - first + 1));
        } else {
            essence += packet.payload.substr(16);
        }
    }
    return essence;
}

TEST(Extract, EveryTrackOfTheSamplesToTheByte) {
    struct Row {
        char const* name;
        unsigned track;
        bool isMpeg;
        std::size_t size; ///< 0 where only the pictures tell
    };
    // Audio: 2 s of 48000 samples at 2 bytes; 120 fields of 59.94 Hz are 96096 samples.
    std::vector<Row> const rows = {
        {"news_pal.gxf", 0, true, 0},       {"news_pal.gxf", 1, false, 192000},
        {"news_pal.gxf", 2, false, 192000}, {"news_pal.gxf", 3, false, 4096},
        {"spot_ntsc.gxf", 0, true, 0},      {"spot_ntsc.gxf", 1, false, 192192},
        {"spot_ntsc.gxf", 2, false, 4096},  {"hd_short.gxf", 0, true, 0},
        {"hd_short.gxf", 1, false, 49152},  {"hd_short.gxf", 2, false, 4096},
    };
    for (Row const& row : rows) {
        std::string const track = std::to_string(row.track);
        SCOPED_TRACE(row.name + (" track " + track));
        std::string const stream = readFile(sample(row.name));
        std::string const expected = essenceOf(stream, row.track);
        ASSERT_FALSE(expected.empty());
        if (row.isMpeg) {
            EXPECT_EQ(expected.substr(0, 4), std::string("\0\0\1\xB3", 4));
        } else {
            EXPECT_EQ(expected.size(), row.size);
        }
        ToolResult const result = runTool({"extract", "--track", track, sample(row.name)});
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_TRUE(result.out == expected);

        TemporaryFolder const folder;
        ToolResult const piped =
            runTool({"extract", "--track", track, "-o", folder / "out", "-"}, stream);
        EXPECT_EQ(piped.status, 0);
        EXPECT_EQ(piped.out, "");
        EXPECT_TRUE(readFile(folder / "out") == expected);
        EXPECT_EQ(folder.names(), Arguments{"out"});
    }
}

TEST(Extract, TheMediaDecideWhatIsEssence) {
    struct Row {
        char const* what;
        Bytes packet;
        Bytes essence;
    };
    Bytes const payload = Bytes().text("0123456789abcdefghijklmnopqrstuvwxyz");
    std::vector<Row> rows = {
        {"a picture's byte count", picture(mpeg525, 1, 0, 5, payload), Bytes().text("01234")},
        {"MPEG-1", picture(22, 1, 0, 5, payload), Bytes().text("01234")},
        {"a picture of no bytes", picture(mpeg525, 1, 0, 0, payload), {}},
        {"16-bit samples", audio(pcm16, 1, 0, 2, 4, payload), Bytes().text("456789")},
        {"24-bit samples", audio(pcm24, 1, 0, 1, 2, payload), Bytes().text("345678")},
        {"one sample", audio(pcm24, 1, 0, 11, 11, payload), Bytes().text("xyz")},
        {"AC-3 in 16 bits", audio(17, 1, 0, 0, 1, payload), Bytes().text("0123")},
        {"ancillary data", audio(ancillary, 1, 0, 1, 1, payload), payload},
        {"timecodes", audio(timecode525, 1, 0, 1, 1, Bytes().fill(4096, 7)), Bytes().fill(4096, 7)},
    };
    for (unsigned const media : {3U, 4U, 13U, 14U, 15U, 16U, 25U, 26U}) {
        rows.push_back({"whole payload", picture(media, 1, 0, 5, payload), payload});
    }
    for (Row const& row : rows) {
        Bytes stream = picture(mpeg625, 0, 0, 3, {9, 9, 9});
        stream.add(row.packet).add(picture(mpeg625, 2, 0, 3, {8, 8, 8})).add(endOfStream());
        ToolResult const result = extracted({"--track", "1"}, stream);
        EXPECT_EQ(result.status, 0) << row.what;
        EXPECT_EQ(result.err, "") << row.what;
        EXPECT_EQ(result.out, asText(row.essence)) << row.what;
    }
}

TEST(Extract, AByteCountAboveThePayloadIsAFault) {
    Bytes stream = picture(mpeg625, 0, 0, 4, Bytes().text("pic1"));
    std::size_t const offset = stream.size();
    stream.add(picture(mpeg625, 0, 2, 0xFFFFFF, Bytes().text("pic2")));
    stream.add(picture(mpeg625, 0, 4, 4, Bytes().text("pic3"))).add(endOfStream());
    ToolResult const result = extracted({"--track", "0"}, stream);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "pic1pic2pic3");
    EXPECT_EQ(result.err, "standard input: error at offset " + std::to_string(offset) +
                              ": this picture claims 16777215 bytes, but its packet holds 4\n");
}

TEST(Extract, SamplesThatThePacketDoesNotHoldAreAFault) {
    struct Row {
        unsigned first;
        unsigned last;
        char const* out;
        char const* claim;
    };
    for (Row const& row : {Row{1, 5, "cdefgh", "1 to 5 of 4"}, Row{3, 1, "", "3 to 1 of 4"},
                           Row{9, 65535, "", "9 to 65535 of 4"}}) {
        Bytes stream = audio(pcm16, 0, 0, row.first, row.last, Bytes().text("abcdefgh"));
        ToolResult const result = extracted({"--track", "0"}, stream.add(endOfStream()));
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, row.out);
        EXPECT_EQ(
            result.err,
            std::string("standard input: error at offset 0: this packet claims the samples ") +
                row.claim + "\n");
    }
}

TEST(Extract, APacketOfAnotherKindIsLeftOut) {
    Bytes stream = audio(pcm16, 0, 0, 0, 1, Bytes().text("abcd"));
    stream.add(picture(mpeg625, 0, 0, 4, Bytes().text("XXXX")));
    stream.add(audio(pcm16, 0, 1, 0, 1, Bytes().text("efgh"))).add(endOfStream());
    ToolResult const result = extracted({"--track", "0"}, stream);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.out, "abcdefgh");
    EXPECT_EQ(result.err, "standard input: error at offset 36: this packet of track 0 is "
                          "Mpeg2_625, not AudioPCM_16; it is left out\n");
}

TEST(Extract, ATrackThatIsNotThereNamesThoseThatAre) {
    TemporaryFolder const folder;
    std::string const clip = sample("news_pal.gxf");
    ToolResult const result = runTool({"extract", "--track", "9", "-o", folder / "out", clip});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "gxf: " + clip + ": has no packets of track 9; choose from 0, 1, 2, 3\n");
    EXPECT_EQ(folder.names(), Arguments{});
    ToolResult const none = extracted({"--track", "0"}, endOfStream());
    EXPECT_EQ(none.status, 2);
    EXPECT_EQ(none.err,
              "gxf: standard input: has no packets of track 0; it has no media packets at all\n");
}

TEST(Extract, ATruncatedPacketGivesWhatIsThere) {
    Bytes stream = picture(mpeg625, 0, 0, 4, Bytes().text("pic1"));
    stream.add(picture(mpeg625, 0, 2, 8, Bytes().text("picture2")));
    for (std::size_t kept = 0; kept <= 7; ++kept) {
        std::string const cut = asText(stream).substr(0, stream.size() - 8 + kept);
        ToolResult const result = runTool({"extract", "--track", "0", "-"}, cut);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.out, "pic1" + std::string("picture2").substr(0, kept));
        std::string const missing = kept == 7
                                        ? "1 byte of it is missing\n"
                                        : std::to_string(8 - kept) + " bytes of it are missing\n";
        EXPECT_EQ(result.err, "standard input: error at offset 36: the stream ends inside this "
                              "media packet, " +
                                  missing);
    }
}

// WAV

std::string wavHeader(std::uint32_t dataSize, unsigned bytesPerSample) {
    Bytes header;
    header.text("RIFF").u32Lsbf(36 + dataSize + dataSize % 2).text("WAVE");
    header.text("fmt ").u32Lsbf(16).u8(1).u8(0).u8(1).u8(0);
    header.u32Lsbf(48000).u32Lsbf(48000 * bytesPerSample);
    header.u8(bytesPerSample).u8(0).u8(8 * bytesPerSample).u8(0);
    return asText(header.text("data").u32Lsbf(dataSize));
}

TEST(Extract, AWavFileHasItsHeaderInFrontOfThePcm) {
    TemporaryFolder const folder;
    std::string const clip = sample("news_pal.gxf");
    ASSERT_EQ(runTool({"extract", "--track", "1", "-o", folder / "left.wav", clip}).status, 0);
    std::string const wav = readFile(folder / "left.wav");
    EXPECT_EQ(wav.substr(0, 44), asText(Bytes()
                                            .text("RIFF")
                                            .u32Lsbf(192036)
                                            .text("WAVEfmt ")
                                            .u32Lsbf(16)
                                            .add({1, 0, 1, 0})
                                            .u32Lsbf(48000)
                                            .u32Lsbf(96000)
                                            .add({2, 0, 16, 0})
                                            .text("data")
                                            .u32Lsbf(192000)));
    EXPECT_TRUE(wav.substr(44) == essenceOf(readFile(clip), 1));
}

TEST(Extract, AWavFileOfOddSizeIsPadded) {
    TemporaryFolder const folder;
    Bytes const stream = audio(pcm24, 0, 0, 0, 2, Bytes().text("abcdefghijkl"));
    for (char const* const name : {"x.wav", "x.WAV", ".wav"}) {
        EXPECT_EQ(extracted({"--track", "0", "-o", folder / name}, stream).status, 0);
        EXPECT_EQ(readFile(folder / name), wavHeader(9, 3) + "abcdefghi" + std::string(1, '\0'));
    }
    EXPECT_EQ(extracted({"--track", "0", "-o", folder / "wav"}, stream).status, 0);
    EXPECT_EQ(readFile(folder / "wav"), "abcdefghi");
}

TEST(Extract, AWavFileOfNoSamplesIsWhole) {
    TemporaryFolder const folder;
    Bytes stream = map(material("C", 9), namedTrack(pcm16, 0, "A", rate25));
    stream.add(audio(pcm16, 0, 0, 0, 99, ramp16(0, 2000)));
    ToolResult const result =
        extracted({"--track", "0", "--first", "5", "-o", folder / "x.wav"}, stream);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "standard input: track 0 has nothing of the fields from 5 on\n");
    EXPECT_EQ(readFile(folder / "x.wav"), wavHeader(0, 2));
}

TEST(Extract, AWavFileHoldsPcmAlone) {
    TemporaryFolder const folder;
    struct Row {
        Bytes packet;
        char const* name;
    };
    for (Row const& row : {Row{picture(mpeg625, 0, 0, 4, Bytes().fill(4)), "Mpeg2_625"},
                           Row{audio(17, 0, 0, 0, 1, Bytes().fill(4)), "Ac3_16bit"},
                           Row{audio(18, 0, 0, 0, 0, Bytes().fill(4)), "CompressedAudio"}}) {
        ToolResult const result = extracted({"--track", "0", "-o", folder / "x.wav"}, row.packet);
        EXPECT_EQ(result.status, 2);
        EXPECT_EQ(result.err, std::string("gxf: track 0 is ") + row.name +
                                  ", which a .wav file can't hold; choose another output name\n");
        EXPECT_EQ(folder.names(), Arguments{});
    }
}

// Ranges of fields

/// The first and the last of the 16-bit samples that come out.
std::string rangeOf(ToolResult const& result) {
    std::string const& out = result.out;
    auto const sampleAt = [&out](std::size_t at) {
        return static_cast<unsigned char>(out[at]) | static_cast<unsigned char>(out[at + 1]) << 8;
    };
    for (std::size_t at = 2; at + 1 < out.size(); at += 2) {
        if (sampleAt(at) != ((sampleAt(at - 2) + 1) & 0xFFFF)) {
            return "a gap";
        }
    }
    return out.empty()
               ? "nothing"
               : std::to_string(sampleAt(0)) + " to " + std::to_string(sampleAt(out.size() - 2));
}

/// Two packets of 32768 samples, each sample its own number, behind a map of that rate. The second
/// one begins inside the field `second`.
Bytes rampClip(std::uint32_t rate, std::uint32_t second, std::size_t samplesOfLast = 32768) {
    Bytes stream = map(material("RAMP", 99),
                       namedTrack(mpeg625, 0, "V", rate).add(namedTrack(pcm16, 1, "A", rate)));
    stream.add(audio(pcm16, 1, 0, 0, 32767, ramp16(0, 32768)));
    stream.add(audio(pcm16, 1, second, 0, static_cast<unsigned>(samplesOfLast - 1),
                     ramp16(32768, samplesOfLast)));
    return stream.add(endOfStream());
}

struct FieldsOfAudio {
    char const* first;
    char const* last;
    char const* samples;
};

TEST(Extract, FieldsCutAudioToTheSampleAt50FieldsASecond) {
    // 960 samples a field; the second packet begins in field 34, at 32768 / 960.
    for (FieldsOfAudio const& row :
         {FieldsOfAudio{"0", "0", "0 to 959"}, FieldsOfAudio{"1", "1", "960 to 1919"},
          FieldsOfAudio{"10", "19", "9600 to 19199"}, FieldsOfAudio{"33", "33", "31680 to 32639"},
          FieldsOfAudio{"34", "34", "32640 to 33599"}, FieldsOfAudio{"35", "35", "33600 to 34559"},
          FieldsOfAudio{"68", "99", "65280 to 65535"},
          FieldsOfAudio{"0", "4294967295", "0 to 65535"}}) {
        ToolResult const result = extracted(
            {"--track", "1", "--first", row.first, "--last", row.last}, rampClip(rate25, 34));
        EXPECT_EQ(result.status, 0) << row.first;
        EXPECT_EQ(rangeOf(result), row.samples) << row.first;
    }
}

TEST(Extract, FieldsCutAudioToTheSampleAt5994FieldsASecond) {
    // 800.8 samples a field: field k begins with the first whole sample at or behind 800.8 k.
    for (FieldsOfAudio const& row :
         {FieldsOfAudio{"0", "0", "0 to 800"}, FieldsOfAudio{"1", "1", "801 to 1601"},
          FieldsOfAudio{"2", "2", "1602 to 2402"}, FieldsOfAudio{"3", "3", "2403 to 3203"},
          FieldsOfAudio{"4", "4", "3204 to 4003"}, FieldsOfAudio{"5", "5", "4004 to 4804"},
          FieldsOfAudio{"40", "40", "32032 to 32832"}, FieldsOfAudio{"41", "41", "32833 to 33633"},
          FieldsOfAudio{"40", "44", "32032 to 36035"}}) {
        ToolResult const result = extracted(
            {"--track", "1", "--first", row.first, "--last", row.last}, rampClip(rate29, 40));
        EXPECT_EQ(result.status, 0) << row.first;
        EXPECT_EQ(rangeOf(result), row.samples) << row.first;
    }
}

TEST(Extract, OneFieldAfterTheOtherGivesTheWholeTrack) {
    Bytes const stream = rampClip(rate29, 40);
    std::string pieces;
    for (unsigned field = 0; field <= 81; field += 9) {
        pieces += extracted({"--track", "1", "--first", std::to_string(field), "--last",
                             std::to_string(field + 8)},
                            stream)
                      .out;
    }
    EXPECT_TRUE(pieces == asText(ramp16(0, 65536)));
}

TEST(Extract, ALastPacketMayBeShorter) {
    for (FieldsOfAudio const& row :
         {FieldsOfAudio{"33", "34", "31680 to 33599"}, FieldsOfAudio{"35", "35", "33600 to 33767"},
          FieldsOfAudio{"34", "99", "32640 to 33767"}}) {
        EXPECT_EQ(rangeOf(extracted({"--track", "1", "--first", row.first, "--last", row.last},
                                    rampClip(rate25, 34, 1000))),
                  row.samples)
            << row.first;
    }
}

TEST(Extract, AClipMayBeginInsideAPacket) {
    // Field 10 at 960 samples a field.
    Bytes stream = map(material("IN", 99), namedTrack(pcm16, 1, "A", rate25));
    stream.add(audio(pcm16, 1, 10, 9600, 32767, ramp16(0, 32768))).add(endOfStream());
    EXPECT_EQ(rangeOf(extracted({"--track", "1"}, stream)), "9600 to 32767");
    EXPECT_EQ(rangeOf(extracted({"--track", "1", "--first", "10", "--last", "10"}, stream)),
              "9600 to 10559");
    EXPECT_EQ(rangeOf(extracted({"--track", "1", "--first", "0", "--last", "11"}, stream)),
              "9600 to 11519");
}

TEST(Extract, PacketsMayBeAsShortAsAField) {
    Bytes stream = map(material("SHORT", 9), namedTrack(pcm16, 1, "A", rate25));
    for (unsigned field = 0; field < 5; ++field) {
        stream.add(audio(pcm16, 1, field, 0, 959, ramp16(field * 960, 960)));
    }
    stream.add(endOfStream());
    EXPECT_EQ(rangeOf(extracted({"--track", "1", "--last", "0"}, stream)), "0 to 959");
    EXPECT_EQ(rangeOf(extracted({"--track", "1", "--first", "2", "--last", "3"}, stream)),
              "1920 to 3839");
}

TEST(Extract, FieldsCutPicturesToWholePackets) {
    Bytes const stream = smallClip();
    struct Row {
        char const* first;
        char const* last;
        char const* out;
    };
    for (Row const& row : {Row{"0", "0", "picture-0!"}, Row{"1", "1", "picture-0!"},
                           Row{"1", "2", "picture-0!picture-2!"}, Row{"3", "3", "picture-2!"},
                           Row{"5", "4294967295", "picture-4!"}}) {
        ToolResult const result =
            extracted({"--track", "0", "--first", row.first, "--last", row.last}, stream);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.out, row.out) << row.first;
    }
    ToolResult const behind = extracted({"--track", "0", "--first", "6"}, stream);
    EXPECT_EQ(behind.status, 1);
    EXPECT_EQ(behind.out, "");
    EXPECT_EQ(behind.err, "standard input: track 0 has nothing of the fields from 6 on\n");
}

TEST(Extract, AProgressivePictureIsOneField) {
    Bytes stream = map(material("P", 3), namedTrack(mpeg625, 0, "V", rate25, 1));
    stream.add(picture(mpeg625, 0, 0, 1, {'a'})).add(picture(mpeg625, 0, 1, 1, {'b'}));
    EXPECT_EQ(extracted({"--track", "0", "--first", "1"}, stream).out, "b");
}

TEST(Extract, APictureAtTheLastNumberThatAFieldCanHave) {
    Bytes const stream = picture(mpeg625, 0, 0xFFFFFFFF, 1, {'z'});
    EXPECT_EQ(extracted({"--track", "0", "--first", "4294967295"}, stream).out, "z");
}

TEST(Extract, FieldsChooseWholeBlocksOfTimecodesAndAncillaryData) {
    Bytes stream = audio(ancillary, 1, 0, 0, 11, Bytes().text("first"));
    stream.add(audio(ancillary, 1, 12, 0, 11, Bytes().text("second"))).add(endOfStream());
    EXPECT_EQ(extracted({"--track", "1", "--last", "11"}, stream).out, "first");
    EXPECT_EQ(extracted({"--track", "1", "--first", "11"}, stream).out, "firstsecond");
    EXPECT_EQ(extracted({"--track", "1", "--first", "12"}, stream).out, "second");
}

TEST(Extract, ABrokenMapStillTellsTheRate) {
    // The second track breaks it.
    Bytes stream = map(material("B", 99),
                       namedTrack(mpeg625, 0, "V", rate25).add(track(pcm16, 1, tag(0x54, {1, 2}))));
    stream.add(audio(pcm16, 1, 0, 0, 32767, ramp16(0, 32768))).add(endOfStream());
    ToolResult const result = extracted({"--track", "1", "--first", "1", "--last", "1"}, stream);
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(rangeOf(result), "960 to 1919");
}

} // namespace
