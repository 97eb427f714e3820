#include <gxfstream/packet_reader.h>

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <limits>
#include <map>
#include <random>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include <testing/allocation_count.h>
#include <testing/capture.h>
#include <testing/naive_reader.h>
#include <testing/stream_builder.h>
#include <testing/stream_sources.h>
#include <testing/umf_builder.h>

using namespace GxfTypes;
using namespace GxfStream;
using namespace GxfTesting;

namespace {

constexpr unsigned mapType = 0xBC;
constexpr unsigned mediaType = 0xBF;
constexpr unsigned fltType = 0xFC;
constexpr unsigned umfType = 0xFD;
constexpr std::uint32_t largestMap = 4194304;
constexpr std::uint32_t largestUmfPacket = 4194304;

// What was read.

struct Seen {
    std::uint64_t offset;
    unsigned type;
    std::uint32_t length;
    int code;
    std::string text;

    bool operator==(Seen const&) const = default;
};

std::ostream& operator<<(std::ostream& out, Seen const& seen) {
    return out << seen.type << '@' << seen.offset << '+' << seen.length << ": " << seen.code << ' '
               << seen.text;
}

struct Fault {
    StreamFault::Kind kind;
    std::uint64_t offset;
    std::uint64_t bytes;
    std::string text;

    bool operator==(Fault const&) const = default;
};

std::ostream& operator<<(std::ostream& out, Fault const& fault) {
    return out << GxfStream::getName(fault.kind) << '@' << fault.offset << '+' << fault.bytes
               << ": " << fault.text;
}

using Offsets = std::vector<std::uint64_t>;
using Faults = std::vector<Fault>;

Offsets joined(Offsets first, Offsets const& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

struct Reading {
    std::vector<Seen> packets;
    Faults faults;

    Offsets offsets() const {
        Offsets result;
        for (Seen const& seen : packets) {
            result.push_back(seen.offset);
        }
        return result;
    }
};

/// A reader that keeps its faults.
class NotingReader {
  public:
    explicit NotingReader(ByteSource& source)
        : m_reader(source, [this](StreamFault const& fault) {
              faults.push_back({fault.kind, fault.offset, fault.bytes, fault.text});
          }) {}

    PacketReader* operator->() { return &m_reader; }
    PacketReader& operator*() { return m_reader; }

    Faults faults;

  private:
    PacketReader m_reader;
};

Seen seen(StreamPacket const& packet) {
    return {packet.offset, packet.type, packet.length, packet.result.getCode(),
            packet.packet->toString().get()};
}

Reading readAll(ByteSource& source) {
    Reading reading;
    NotingReader reader(source);
    while (StreamPacket const* const packet = reader->next()) {
        EXPECT_EQ(reader->position(), packet->offset + packet->length);
        EXPECT_EQ(packet->end(), packet->offset + packet->length);
        reading.packets.push_back(seen(*packet));
    }
    // The end stays the end, and is told once.
    reading.faults = reader.faults;
    EXPECT_EQ(reader->next(), nullptr);
    EXPECT_EQ(reader.faults, reading.faults);
    return reading;
}

Reading readAll(SourceKind kind, Bytes const& stream) {
    StreamSource const source(kind, stream);
    return readAll(*source);
}

// The faults, as people read them.

std::string bytesAre(std::uint64_t count, std::string const& between) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes") + between +
           (count == 1 ? "is" : "are");
}

Fault passedOver(std::uint64_t offset, std::uint64_t bytes) {
    return {StreamFault::resync, offset, bytes,
            bytesAre(bytes, " passed over that ") + " no packet; packets go on at offset " +
                std::to_string(offset + bytes)};
}

Fault passedOverToTheEnd(std::uint64_t offset, std::uint64_t bytes) {
    return {StreamFault::resync, offset, bytes,
            bytesAre(bytes, " passed over that ") + " no packet, up to the end of the stream"};
}

Fault restAtTheEnd(std::uint64_t offset, std::uint64_t bytes) {
    return {StreamFault::resync, offset, bytes, bytesAre(bytes, " at the end ") + " no packet"};
}

Fault wrongLength(std::uint64_t offset, char const* name, std::uint32_t claimed,
                  std::uint64_t found) {
    return {StreamFault::resync, offset, found - offset - 16,
            std::string("this ") + name + " packet claims " + std::to_string(claimed) +
                " bytes, but packets go on inside it at offset " + std::to_string(found)};
}

Fault cutOff(std::uint64_t offset, char const* name, std::uint64_t missing) {
    return {StreamFault::truncated, offset, missing,
            std::string("the stream ends inside this ") + name + " packet, " +
                bytesAre(missing, " of it ") + " missing"};
}

Fault unreadable(std::uint64_t offset) {
    return {StreamFault::io, offset, 0, "reading failed: Input/output error"};
}

// Streams.

Bytes noise(std::size_t count) { return Bytes().fill(count, 0x55); }

Bytes video(std::uint32_t field, std::size_t essence) {
    MediaPreamble preamble;
    preamble.mediaType = 12;
    preamble.field = field;
    preamble.timeline = field;
    preamble.mediaBytes = 0x02000000U + static_cast<std::uint32_t>(essence); // a P picture
    return mediaPacket(preamble, noise(essence));
}

Bytes audio(std::uint32_t field, std::size_t essence) {
    MediaPreamble preamble;
    preamble.mediaType = 10;
    preamble.trackByte = 0xC1;
    preamble.field = field;
    preamble.timeline = field;
    return mediaPacket(preamble, Bytes().fill(essence, 0xAA));
}

Bytes timecodes(std::uint32_t field, unsigned valid, std::size_t behindTheBlock = 0) {
    MediaPreamble preamble;
    preamble.mediaType = 8;
    preamble.trackByte = 0xC2;
    preamble.field = field;
    preamble.timeline = field;
    return mediaPacket(preamble, timecodeBlock(valid, 25).fill(behindTheBlock, 0x77));
}

Bytes videoTrack() { return track(12, 0, tagText(0x4C, "V1")); }
Bytes timecodeTrack() {
    // 10:20:30:05
    return track(8, 1, tag(0x4D, {5, 30, 20, 10, 0, 0, 0, 0}));
}
Bytes map(Bytes const& tail = {}) {
    return packet(mapType, mapPayload(tagText(0x40, "CLIP"), videoTrack(), tail));
}
Bytes flt() { return packet(fltType, fltPayload(2, {0, 1, 2})); }

/// A stream with the places of its packets.
struct Sketch {
    Bytes bytes;
    Offsets offsets;

    Sketch& add(Bytes const& packet) {
        offsets.push_back(bytes.size());
        bytes.add(packet);
        return *this;
    }
    Sketch& junk(Bytes const& junk) {
        bytes.add(junk);
        return *this;
    }
    std::uint64_t end(std::size_t index) const {
        return index + 1 < offsets.size() ? offsets[index + 1] : bytes.size();
    }
    std::uint32_t length(std::size_t index) const {
        return static_cast<std::uint32_t>(end(index) - offsets[index]);
    }
    Offsets first(std::ptrdiff_t count) const { return {offsets.begin(), offsets.begin() + count}; }
    Offsets without(std::size_t index) const {
        Offsets result = offsets;
        result.erase(result.begin() + static_cast<std::ptrdiff_t>(index));
        return result;
    }
    void claim(std::size_t index, std::uint32_t length) {
        for (unsigned i = 0; i < 4; ++i) {
            bytes[offsets[index] + 6 + i] = static_cast<unsigned char>(length >> (24 - 8 * i));
        }
    }
    void breakHeader(std::size_t index) { bytes[offsets[index]] = 0xFF; }
};

Sketch smallStream() {
    Sketch sketch;
    sketch.add(map()).add(flt()).add(video(0, 40)).add(audio(0, 100)).add(video(2, 24));
    return sketch.add(audio(2, 100)).add(video(4, 90)).add(endOfStream());
}

class PacketReaderTest : public testing::TestWithParam<SourceKind> {
  protected:
    Reading read(Bytes const& stream) const { return readAll(GetParam(), stream); }
    bool isPipe() const { return GetParam() == SourceKind::pipe; }
};

INSTANTIATE_TEST_SUITE_P(Sources, PacketReaderTest,
                         testing::Values(SourceKind::memory, SourceKind::file, SourceKind::pipe),
                         [](auto const& test) { return getName(test.param); });

TEST(StreamFault, kindsHaveFixedWords) {
    EXPECT_STREQ(GxfStream::getName(StreamFault::resync), "resync");
    EXPECT_STREQ(GxfStream::getName(StreamFault::truncated), "truncated");
    EXPECT_STREQ(GxfStream::getName(StreamFault::payload), "payload");
    EXPECT_STREQ(GxfStream::getName(StreamFault::oversize), "oversize");
    EXPECT_STREQ(GxfStream::getName(StreamFault::io), "io");
}

// Sound streams.

TEST_P(PacketReaderTest, aSoundStreamGivesEachPacketWithItsPlace) {
    Sketch const sketch = smallStream();
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.faults, Faults());
    ASSERT_EQ(reading.offsets(), sketch.offsets);
    std::vector<unsigned> const types{0xBC, 0xFC, 0xBF, 0xBF, 0xBF, 0xBF, 0xBF, 0xFB};
    for (std::size_t i = 0; i < types.size(); ++i) {
        EXPECT_EQ(reading.packets[i].type, types[i]);
        EXPECT_EQ(reading.packets[i].length, sketch.length(i));
        EXPECT_EQ(reading.packets[i].code, 0);
    }
    EXPECT_EQ(reading.packets[3].text, "media:132b@146: AudioPCM_16,trk=1,f=0,t=0,{in,out}={0,0}");
    EXPECT_EQ(reading.packets[7].text, "EOS:16b@588");
}

TEST_P(PacketReaderTest, aPacketThatSomebodyKeepsStaysAsItIs) {
    Sketch const sketch = smallStream();
    Reading const reading = read(sketch.bytes);
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    std::vector<AutoRefPtr<Packet>> kept;
    while (StreamPacket const* const packet = reader->next()) {
        kept.push_back(packet->packet);
    }
    ASSERT_EQ(kept.size(), reading.packets.size());
    for (std::size_t i = 0; i < kept.size(); ++i) {
        EXPECT_EQ(kept[i]->toString().get(), reading.packets[i].text);
        EXPECT_TRUE(kept[i]->isUnshared());
    }
}

TEST_P(PacketReaderTest, aMediaPacketThatNobodyKeepsComesOutAgain) {
    Sketch const sketch = Sketch().add(audio(0, 100)).add(audio(2, 100)).add(audio(4, 100));
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    ASSERT_NE(reader->next(), nullptr);
    Packet const* const first = reader->next()->packet.get();
    StreamPacket const* const packet = reader->next();
    EXPECT_EQ(packet->packet.get(), first);
    EXPECT_EQ(packet->media()->hdr.mediaField, 4U);
    EXPECT_TRUE(packet->packet->isUnshared());
}

TEST_P(PacketReaderTest, anEmptyStreamHasNoPackets) {
    Reading const reading = read({});
    EXPECT_EQ(reading.offsets(), Offsets());
    EXPECT_EQ(reading.faults, Faults());
}

TEST_P(PacketReaderTest, aStreamNeedsNoEndOfStreamPacket) {
    Sketch const sketch = Sketch().add(map()).add(video(0, 40));
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.offsets);
    EXPECT_EQ(reading.faults, Faults());
}

TEST_P(PacketReaderTest, streamsOneBehindTheOtherAreReadOn) {
    Sketch sketch = smallStream();
    sketch.add(map()).add(video(0, 33)).add(endOfStream());
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.offsets);
    EXPECT_EQ(reading.faults, Faults());
}

TEST_P(PacketReaderTest, packetsWithoutAPayloadAreRead) {
    Sketch const sketch = Sketch()
                              .add(header(mapType, 16))
                              .add(header(mediaType, 16))
                              .add(header(fltType, 16))
                              .add(header(umfType, 16))
                              .add(header(0xFA, 16))
                              .add(endOfStream());
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.offsets);
    auto const refused = [](std::uint64_t offset, std::string const& name) {
        return Fault{StreamFault::payload, offset, 16,
                     "the payload of this " + name + " packet is refused, badDecodeSize"};
    };
    EXPECT_EQ(reading.faults, Faults({refused(0, "map"), refused(16, "media"),
                                      refused(32, "fieldLocTbl"), refused(48, "umfFile")}));
}

TEST_P(PacketReaderTest, aPayloadOfEveryShortLengthIsJudged) {
    struct Kind {
        unsigned type;
        std::size_t least;
    };
    // An empty MAP has its preamble and the lengths of its two sections.
    for (Kind const kind : {Kind{mapType, 6}, Kind{mediaType, 16}, Kind{fltType, 8}}) {
        for (std::size_t size = 0; size < 100; ++size) {
            Bytes const stream =
                packet(kind.type, Bytes().fill(size)).add(video(0, 5)).add(endOfStream());
            Reading const reading = read(stream);
            ASSERT_EQ(reading.offsets(), Offsets({0, 16 + size, 53 + size}));
            ASSERT_EQ(reading.packets[0].code, size < kind.least ? 9 : 0) << size;
            ASSERT_EQ(reading.faults.size(), size < kind.least ? 1U : 0U) << size;
        }
    }
}

TEST_P(PacketReaderTest, packetsOfUnknownKindsComeAsTheirHeaders) {
    Sketch const sketch =
        Sketch().add(packet(250, noise(30))).add(packet(254, noise(5000))).add(packet(255, {}));
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    for (unsigned const type : {250U, 254U, 255U}) {
        StreamPacket const* const packet = reader->next();
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->type, type);
        ASSERT_NE(packet->packet.get(), nullptr);
        EXPECT_EQ(packet->packet->type, type);
        EXPECT_EQ(packet->packet->length, packet->length);
        EXPECT_EQ(packet->packet->fileOffset, packet->offset);
        EXPECT_TRUE(packet->packet->isValid());
        EXPECT_EQ(packet->media(), nullptr);
        EXPECT_EQ(packet->result.getCode(), 0);
    }
    EXPECT_EQ(reader->next(), nullptr);
    EXPECT_EQ(reader.faults, Faults());
}

TEST_P(PacketReaderTest, aUmfPacketComesWithItsFragment) {
    Bytes const fragment = UmfContent().payload();
    Sketch const sketch =
        Sketch().add(video(0, 3)).add(umfPacket(3, fragment)).add(video(2, 3)).add(endOfStream());
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    ASSERT_NE(reader->next(), nullptr);
    StreamPacket const* const packet = reader->next();
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->type, umfType);
    EXPECT_EQ(packet->result.getType(), OpResult::Info);
    EXPECT_EQ(packet->result.getCode(), 1); // "umf final"
    AutoRefPtr<UmfPacket> const umf = packet->packet->getUmfPacket();
    ASSERT_NE(umf.get(), nullptr);
    EXPECT_TRUE(umf->isValid());
    EXPECT_EQ(umf->getPacketOrder(), umfPacketOrderOnly);
    EXPECT_EQ(Bytes::occupied(umf->gatherBuffer), fragment);
    EXPECT_EQ(umf->getFileOffset(), 35U);
    EXPECT_EQ(reader->position(), 35U + 128);
    ASSERT_NE(reader->next(), nullptr);
    ASSERT_NE(reader->next(), nullptr);
    EXPECT_EQ(reader->next(), nullptr);
    EXPECT_EQ(reader.faults, Faults());
}

TEST_P(PacketReaderTest, aUmfPacketOfNoKnownOrderIsToldAndComes) {
    Sketch const sketch = Sketch().add(packet(umfType, noise(5000))).add(endOfStream());
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.offsets);
    EXPECT_EQ(reading.packets[0].code, 10);
    EXPECT_EQ(reading.packets[0].text.rfind("umfFile:5016b@0,invalid\n", 0), 0U);
    EXPECT_EQ(reading.faults,
              Faults({{StreamFault::payload, 0, 5016,
                       "the payload of this umfFile packet is refused, badDecodeData"}}));
}

TEST_P(PacketReaderTest, anEndOfStreamPacketMayHaveAPayload) {
    Sketch const sketch = Sketch().add(packet(0xFB, noise(300))).add(video(0, 3));
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.offsets);
    EXPECT_EQ(reading.faults, Faults());
}

TEST_P(PacketReaderTest, aFieldLocatorTableOutOfOrderIsToldAndComes) {
    Sketch const sketch = Sketch().add(packet(fltType, fltPayload(2, {0, 5, 4}))).add(video(0, 3));
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.offsets);
    EXPECT_EQ(reading.packets[0].code, 0);
    EXPECT_EQ(reading.faults,
              Faults({{StreamFault::payload, 0, 36,
                       "the positions of this field locator table are not in order"}}));
}

TEST_P(PacketReaderTest, aFieldLocatorTableOfTooManyEntriesIsRefused) {
    Sketch const sketch =
        Sketch()
            .add(packet(fltType, fltPayload(2, std::vector<std::uint32_t>(1001, 7))))
            .add(packet(fltType, fltPayload(2, std::vector<std::uint32_t>(1000, 7))))
            .add(video(0, 3));
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.offsets);
    EXPECT_EQ(reading.packets[0].code, 10);
    EXPECT_EQ(reading.packets[1].code, 0);
    EXPECT_EQ(reading.faults,
              Faults({{StreamFault::payload, 0, 4028,
                       "the payload of this fieldLocTbl packet is refused, badDecodeData"}}));
}

TEST_P(PacketReaderTest, thePaddingOfAFieldLocatorTableIsPassedOver) {
    Sketch const sketch = Sketch().add(packet(fltType, fltPayload(2, {3, 4}, 100000))).add(map());
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    StreamPacket const* const packet = reader->next();
    ASSERT_NE(packet, nullptr);
    AutoRefPtr<FieldLocTblPacket> const table = packet->packet->getFltPacket();
    EXPECT_TRUE(table->isValid());
    EXPECT_EQ(table->table.size(), 2U);
    EXPECT_EQ(reader->position(), 16U + 8 + 8 + 100000);
    ASSERT_NE(reader->next(), nullptr);
    EXPECT_EQ(reader->next(), nullptr);
    EXPECT_EQ(reader.faults, Faults());
}

TEST_P(PacketReaderTest, aMapWithBrokenTagsIsToldWithTheReason) {
    // Tag 0x4B of the last track claims more than the section has.
    Bytes const payload = mapPayload({}, track(12, 0, {0x4C, 9, 'V'}));
    Sketch const sketch = Sketch().add(packet(mapType, payload)).add(video(0, 3));
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.offsets);
    ASSERT_EQ(reading.faults.size(), 1U);
    EXPECT_EQ(reading.faults[0].kind, StreamFault::payload);
    EXPECT_EQ(reading.faults[0].offset, 0U);
    EXPECT_EQ(reading.faults[0].text.rfind("the payload of this map packet is refused, ", 0), 0U);
    EXPECT_NE(reading.faults[0].text.find("MapPkt:"), std::string::npos);
}

// The samples.

class SampleTest : public testing::TestWithParam<std::tuple<SourceKind, char const*>> {};

INSTANTIATE_TEST_SUITE_P(Samples, SampleTest,
                         testing::Combine(testing::Values(SourceKind::memory, SourceKind::file,
                                                          SourceKind::pipe),
                                          testing::Values("hd_short", "news_pal", "spot_ntsc")),
                         [](auto const& test) {
                             return getName(std::get<0>(test.param)) + std::string("_") +
                                    std::get<1>(test.param);
                         });

Bytes fileBytes(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    return Bytes().text(std::string(std::istreambuf_iterator<char>(file), {}));
}

struct TrackCount {
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0;
    std::uint32_t firstField = 0;
    std::uint32_t lastField = 0;
};

TEST_P(SampleTest, hasWhatIsKnownOfIt) {
    std::string const path = std::string(GXF_SAMPLES_DIR "/") + std::get<1>(GetParam());
    Bytes const stream = fileBytes(path + ".gxf");
    nlohmann::json const facts = nlohmann::json::parse(std::ifstream(path + ".json"));
    ASSERT_EQ(stream.size(), facts["bytes"].get<std::size_t>());

    StreamSource const source(std::get<0>(GetParam()), stream);
    NotingReader reader(*source);
    std::map<std::string, unsigned> counts;
    std::map<unsigned, TrackCount> tracks;
    unsigned blocks = 0;
    unsigned blockPackets = 0;
    std::uint64_t expectedAt = 0;
    unsigned lastType = 0;
    while (StreamPacket const* const packet = reader->next()) {
        EXPECT_EQ(packet->offset, expectedAt);
        expectedAt = packet->end();
        lastType = packet->type;
        ++counts[GxfTypes::getName(packet->type)];
        EXPECT_TRUE(packet->result);
        EXPECT_TRUE(packet->packet->isValid());
        if (MediaPacket const* const media = packet->media()) {
            TrackCount& track = tracks[media->hdr.getTrackNum()];
            track.firstField = track.packets == 0 ? media->hdr.getMediaField() : track.firstField;
            track.lastField = media->hdr.getMediaField();
            ++track.packets;
            track.bytes += packet->length - 32;
            blockPackets += media->isTimecode() ? 1 : 0;
            blocks += media->perFrameTc.get() != nullptr ? 1 : 0;
        }
        if (AutoRefPtr<FieldLocTblPacket> const table = packet->packet->getFltPacket();
            table.get() != nullptr) {
            nlohmann::json const& known = facts["fieldLocatorTable"];
            EXPECT_EQ(table->fieldsPerEntry, known["fieldsPerEntry"].get<unsigned>());
            EXPECT_EQ(table->table.size(), known["entries"].get<unsigned>());
        }
    }
    EXPECT_EQ(expectedAt, stream.size());
    EXPECT_EQ(lastType, 251U);
    EXPECT_EQ(reader.faults, Faults());
    EXPECT_EQ(blocks, blockPackets);
    EXPECT_GT(blocks, 0U);

    std::map<std::string, unsigned> knownCounts;
    for (auto const& [name, count] : facts["packets"].items()) {
        knownCounts[name] = count.get<unsigned>();
    }
    EXPECT_EQ(counts, knownCounts);
    EXPECT_EQ(tracks.size(), facts["tracks"].size());
    for (nlohmann::json const& known : facts["tracks"]) {
        TrackCount const& track = tracks[known["number"].get<unsigned>()];
        EXPECT_EQ(track.packets, known["packets"].get<std::uint64_t>());
        EXPECT_EQ(track.bytes, known["bytes"].get<std::uint64_t>());
        EXPECT_EQ(track.firstField, known["firstField"].get<std::uint32_t>());
        EXPECT_EQ(track.lastField, known["lastField"].get<std::uint32_t>());
    }
}

TEST_P(SampleTest, isWhatTheNaiveReaderSees) {
    Bytes const stream =
        fileBytes(std::string(GXF_SAMPLES_DIR "/") + std::get<1>(GetParam()) + ".gxf");
    Reading const reading = readAll(std::get<0>(GetParam()), stream);
    std::vector<NaivePacket> const naive = naiveRead(stream);
    ASSERT_EQ(reading.packets.size(), naive.size());
    for (std::size_t i = 0; i < naive.size(); ++i) {
        EXPECT_EQ(reading.packets[i].offset, naive[i].offset);
        EXPECT_EQ(reading.packets[i].type, naive[i].type);
        EXPECT_EQ(reading.packets[i].length, naive[i].length);
    }
}

// Cut streams.

TEST_P(PacketReaderTest, aStreamCutAtAnyByteEndsCleanly) {
    Sketch const sketch = smallStream();
    Reading const whole = read(sketch.bytes);
    for (std::size_t size = 0; size < sketch.bytes.size(); ++size) {
        auto const behind = std::upper_bound(sketch.offsets.begin(), sketch.offsets.end(), size);
        auto const cut = static_cast<std::size_t>(behind - sketch.offsets.begin()) - 1;
        std::uint64_t const offset = sketch.offsets[cut];
        std::uint64_t const present = size - offset;
        bool const isMedia = whole.packets[cut].type == mediaType;
        std::vector<Seen> expected(whole.packets.begin(),
                                   whole.packets.begin() + static_cast<std::ptrdiff_t>(cut));
        Faults faults;
        if (present >= 16) {
            faults.push_back(
                cutOff(offset, GxfTypes::getName(static_cast<PacketType>(whole.packets[cut].type)),
                       sketch.length(cut) - present));
            // The preamble tells what the packet is.
            if (isMedia && present >= 32) {
                expected.push_back(whole.packets[cut]);
            }
        } else if (present != 0) {
            faults.push_back(restAtTheEnd(offset, present));
        }
        Reading const reading =
            read(Bytes().text({reinterpret_cast<char const*>(sketch.bytes.data()), size}));
        ASSERT_EQ(reading.packets, expected) << "cut at " << size;
        ASSERT_EQ(reading.faults, faults) << "cut at " << size;
    }
}

Bytes prefix(Bytes const& bytes, std::size_t size) {
    return Bytes().text({reinterpret_cast<char const*>(bytes.data()), size});
}

TEST_P(PacketReaderTest, aCutFieldLocatorTableComesWhenOnlyPaddingIsMissing) {
    Bytes const table = packet(fltType, fltPayload(1, std::vector<std::uint32_t>(1000, 7), 5000));
    EXPECT_EQ(read(prefix(table, 16 + 4007)).offsets(), Offsets());
    Reading const reading = read(prefix(table, 16 + 4008));
    EXPECT_EQ(reading.offsets(), Offsets({0}));
    EXPECT_EQ(reading.faults, Faults({cutOff(0, "fieldLocTbl", 5000)}));
}

TEST_P(PacketReaderTest, aCutTimecodePacketComesWhenItsBlockIsThere) {
    Bytes const block = timecodes(0, 100, 300);
    Reading const without = read(prefix(block, 16 + 4111));
    EXPECT_EQ(without.offsets(), Offsets());
    EXPECT_EQ(without.faults, Faults({cutOff(0, "media", 301)}));
    Reading const with = read(prefix(block, 16 + 4112));
    EXPECT_EQ(with.offsets(), Offsets({0}));
    EXPECT_EQ(with.faults, Faults({cutOff(0, "media", 300)}));
    EXPECT_NE(with.packets[0].text.find("00:00:00"), std::string::npos);
}

TEST_P(PacketReaderTest, whatIsCutOffMayBeMoreThanAnyStreamHas) {
    Reading const reading = read(header(mediaType, 0xFFFFFFFF).add(noise(100)));
    EXPECT_EQ(reading.offsets(), Offsets({0}));
    EXPECT_EQ(reading.faults, Faults({cutOff(0, "media", 0xFFFFFFFFU - 116)}));
}

// Broken streams.

/// The packets but one, each as it was.
void expectAllBut(std::size_t lost, Reading const& reading, Reading const& whole,
                  std::string const& what) {
    std::vector<Seen> got = reading.packets;
    std::erase_if(got, [&](Seen const& seen) { return seen.offset == whole.packets[lost].offset; });
    std::vector<Seen> expected = whole.packets;
    expected.erase(expected.begin() + static_cast<std::ptrdiff_t>(lost));
    EXPECT_EQ(got, expected) << what;
}

TEST_P(PacketReaderTest, anyBrokenHeaderByteCostsItsPacketAlone) {
    Sketch const sketch = smallStream();
    Reading const whole = read(sketch.bytes);
    constexpr std::size_t broken = 3;
    std::uint64_t const offset = sketch.offsets[broken];
    std::uint64_t const next = sketch.offsets[broken + 1];
    for (std::size_t i = 0; i < 16; ++i) {
        for (unsigned const mask : {0x01U, 0x80U, 0xFFU}) {
            std::string const what = "byte " + std::to_string(i) + " ^ " + std::to_string(mask);
            Bytes bytes = sketch.bytes;
            bytes[offset + i] = static_cast<unsigned char>(bytes[offset + i] ^ mask);
            std::uint32_t const claimed = lengthInHeader(bytes.data() + offset);
            Reading const reading = read(bytes);
            if (isPipe() && claimed > PipeSource::lookAhead) {
                // It can't come back from there.
                std::uint64_t const missing = offset + claimed - bytes.size();
                EXPECT_EQ(reading.packets.size(), broken + 1);
                EXPECT_EQ(reading.faults, Faults({cutOff(offset, "media", missing)})) << what;
                continue;
            }
            expectAllBut(broken, reading, whole, what);
            Fault const expected =
                claimed > sketch.length(broken) ? wrongLength(offset, "media", claimed, next)
                : claimed >= 16 && claimed < sketch.length(broken)
                    ? passedOver(offset + claimed, sketch.length(broken) - claimed)
                    : passedOver(offset, sketch.length(broken));
            EXPECT_EQ(reading.faults, Faults({expected})) << what;
        }
    }
}

TEST_P(PacketReaderTest, theFirstPacketMayBeBroken) {
    Sketch sketch = smallStream();
    sketch.breakHeader(0);
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.without(0));
    EXPECT_EQ(reading.faults, Faults({passedOver(0, sketch.length(0))}));
}

TEST_P(PacketReaderTest, theLastPacketMayBeBroken) {
    Sketch sketch = smallStream();
    sketch.breakHeader(7);
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.without(7));
    EXPECT_EQ(reading.faults, Faults({passedOverToTheEnd(588, 16)}));
}

TEST_P(PacketReaderTest, everyWrongLengthOfAMiddlePacketCostsNoOther) {
    Sketch sketch = smallStream();
    Reading const whole = read(sketch.bytes);
    constexpr std::size_t broken = 4;
    std::uint64_t const offset = sketch.offsets[broken];
    std::uint32_t const right = sketch.length(broken);
    std::uint64_t const end = sketch.bytes.size();
    for (std::uint32_t claimed = 16; claimed < end - offset + 40; ++claimed) {
        std::uint64_t const at = offset + claimed;
        // Where another packet, or the end, lies by chance, nothing tells that the length is wrong.
        bool const isPlausible =
            at == end || std::count(sketch.offsets.begin(), sketch.offsets.end(), at) != 0;
        if (isPlausible) {
            continue;
        }
        sketch.claim(broken, claimed);
        Reading const reading = read(sketch.bytes);
        expectAllBut(broken, reading, whole, "claims " + std::to_string(claimed));
        Fault const expected = claimed < right
                                   ? passedOver(at, right - claimed)
                                   : wrongLength(offset, "media", claimed, offset + right);
        ASSERT_EQ(reading.faults.back(), expected);
        // What is left of a picture may be too short for its preamble.
        ASSERT_EQ(reading.faults.size(), claimed < 32 ? 2U : 1U) << claimed;
    }
}

TEST_P(PacketReaderTest, aLengthThatEndsAtALaterPacketCannotBeTold) {
    Sketch sketch = smallStream();
    sketch.claim(3, static_cast<std::uint32_t>(sketch.offsets[5] - sketch.offsets[3]));
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.without(4));
    EXPECT_EQ(reading.faults, Faults());
}

TEST_P(PacketReaderTest, aLengthThatEndsInsideTheLastHeaderLosesNothing) {
    for (std::uint32_t more = 1; more < 16; ++more) {
        Sketch sketch = smallStream();
        std::uint32_t const claimed = sketch.length(6) + more;
        sketch.claim(6, claimed);
        Reading const reading = read(sketch.bytes);
        EXPECT_EQ(reading.offsets(), sketch.offsets);
        EXPECT_EQ(reading.faults, Faults({wrongLength(sketch.offsets[6], "media", claimed, 588)}));
    }
}

TEST_P(PacketReaderTest, aWrongLengthOfALargePacketIsLookedIntoAsFarAsAPipeReaches) {
    for (std::uint32_t const claimed :
         {std::uint32_t{PipeSource::lookAhead} - 16, std::uint32_t{PipeSource::lookAhead} - 15}) {
        Sketch sketch = Sketch().add(map()).add(video(0, 40)).add(audio(0, 100));
        sketch.add(video(2, PipeSource::lookAhead * 2)).add(endOfStream());
        sketch.claim(1, claimed);
        Reading const reading = read(sketch.bytes);
        if (isPipe() && claimed == PipeSource::lookAhead - 15) {
            EXPECT_EQ(reading.offsets(),
                      Offsets({sketch.offsets[0], sketch.offsets[1], sketch.offsets[4]}));
            std::uint64_t const at = sketch.offsets[1] + claimed;
            EXPECT_EQ(reading.faults, Faults({passedOver(at, sketch.offsets[4] - at)}));
        } else {
            EXPECT_EQ(reading.offsets(), sketch.offsets);
            EXPECT_EQ(reading.faults, Faults({wrongLength(sketch.offsets[1], "media", claimed,
                                                          sketch.offsets[2])}));
        }
    }
}

TEST_P(PacketReaderTest, garbageMayLieAnywhere) {
    for (std::size_t const count : {std::size_t{1}, std::size_t{15}, std::size_t{16},
                                    std::size_t{5000}, std::size_t{300000}}) {
        Sketch sketch;
        sketch.junk(noise(count)).add(map()).add(video(0, 40));
        std::uint64_t const between = sketch.bytes.size();
        sketch.junk(noise(count)).add(video(2, 40)).add(endOfStream());
        std::uint64_t const behind = sketch.bytes.size();
        sketch.junk(noise(count));
        Reading const reading = read(sketch.bytes);
        EXPECT_EQ(reading.offsets(), sketch.offsets);
        EXPECT_EQ(reading.faults, Faults({passedOver(0, count), passedOver(between, count),
                                          count < 16 ? restAtTheEnd(behind, count)
                                                     : passedOverToTheEnd(behind, count)}));
    }
}

TEST_P(PacketReaderTest, zerosBehindTheEndAreToldOnce) {
    Sketch const sketch = Sketch().add(video(0, 40)).add(endOfStream()).junk(Bytes().fill(4096));
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.offsets);
    EXPECT_EQ(reading.faults, Faults({passedOverToTheEnd(88, 4096)}));
}

TEST_P(PacketReaderTest, aStreamWithoutPacketsIsToldOnce) {
    for (std::size_t const count : {std::size_t{1}, std::size_t{15}}) {
        Reading const reading = read(noise(count));
        EXPECT_EQ(reading.offsets(), Offsets());
        EXPECT_EQ(reading.faults, Faults({restAtTheEnd(0, count)}));
    }
    for (std::size_t const count : {std::size_t{16}, std::size_t{1000}, std::size_t{1000000}}) {
        Reading const reading = read(noise(count));
        EXPECT_EQ(reading.offsets(), Offsets());
        EXPECT_EQ(reading.faults, Faults({passedOverToTheEnd(0, count)}));
    }
}

TEST_P(PacketReaderTest, aFakeHeaderInGarbageGivesWayToARealOne) {
    for (std::uint32_t const claimed : {100U, 5000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        Sketch sketch;
        sketch.add(map()).junk(noise(20)).junk(header(mediaType, claimed)).junk(noise(60));
        sketch.add(video(0, 40)).add(video(2, 40)).add(endOfStream());
        Reading const reading = read(sketch.bytes);
        EXPECT_EQ(reading.offsets(), sketch.offsets) << claimed;
        EXPECT_EQ(reading.faults, Faults({passedOver(sketch.offsets[1] - 96, 96)})) << claimed;
    }
}

TEST_P(PacketReaderTest, aHeaderInGarbageThatNothingContradictsIsAPacket) {
    Sketch sketch;
    sketch.add(map()).junk(noise(20)).add(packet(250, noise(30))).junk(noise(50));
    std::uint64_t const behind = sketch.bytes.size() - 50;
    sketch.add(video(0, 40)).add(endOfStream());
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.offsets);
    EXPECT_EQ(reading.faults,
              Faults({passedOver(sketch.offsets[1] - 20, 20), passedOver(behind, 50)}));
}

TEST_P(PacketReaderTest, headersInsideTheEssenceOfASoundPacketAreEssence) {
    Bytes const nested = Bytes().add(video(0, 40)).add(video(2, 40)).add(endOfStream());
    Sketch const sketch =
        Sketch().add(map()).add(mediaPacket({}, nested)).add(video(4, 40)).add(endOfStream());
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.offsets);
    EXPECT_EQ(reading.faults, Faults());
}

TEST_P(PacketReaderTest, aFakeHeaderInTheEssenceOfABrokenPacketGivesWay) {
    Sketch sketch;
    sketch.add(map());
    sketch.add(mediaPacket({}, noise(10).add(header(mediaType, 3000)).add(noise(200))));
    sketch.add(video(4, 40)).add(endOfStream());
    sketch.breakHeader(1);
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.without(1));
    EXPECT_EQ(reading.faults, Faults({passedOver(sketch.offsets[1], sketch.length(1))}));
}

TEST_P(PacketReaderTest, aGoodPacketBetweenTwoBrokenOnesComes) {
    Sketch sketch = smallStream();
    sketch.breakHeader(2);
    sketch.breakHeader(4);
    Reading const reading = read(sketch.bytes);
    Offsets expected = sketch.without(4);
    expected.erase(expected.begin() + 2);
    EXPECT_EQ(reading.offsets(), expected);
    EXPECT_EQ(reading.faults, Faults({passedOver(sketch.offsets[2], sketch.length(2)),
                                      passedOver(sketch.offsets[4], sketch.length(4))}));
}

TEST_P(PacketReaderTest, aGoodPacketBetweenABrokenOneAndTheCutComes) {
    Sketch sketch = smallStream();
    sketch.breakHeader(5);
    Reading const reading = read(prefix(sketch.bytes, sketch.end(6) - 10));
    EXPECT_EQ(reading.offsets(), joined(sketch.first(5), {sketch.offsets[6]}));
    EXPECT_EQ(reading.faults, Faults({passedOver(sketch.offsets[5], sketch.length(5)),
                                      cutOff(sketch.offsets[6], "media", 10)}));
}

TEST_P(PacketReaderTest, aMapThatIsTooLargeIsPassedOver) {
    Sketch sketch = Sketch().add(video(0, 40));
    sketch.add(packet(mapType, mapPayload({}, {}, Bytes().fill(largestMap - 16 - 6 + 1))));
    sketch.add(video(2, 40)).add(endOfStream());
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.without(1));
    EXPECT_EQ(reading.faults,
              Faults({{StreamFault::oversize, 72, largestMap + 1,
                       "this map packet claims 4194305 bytes, more than a map packet can need; it "
                       "is passed over"}}));
}

TEST_P(PacketReaderTest, aUmfPacketThatIsTooLargeIsPassedOver) {
    constexpr std::uint32_t size = largestUmfPacket + 1 - 16;
    Sketch sketch = Sketch().add(video(0, 40));
    sketch.add(packet(umfType, Bytes().u8(3).u32(size - 5).fill(size - 5)));
    sketch.add(video(2, 40)).add(endOfStream());
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets(), sketch.without(1));
    EXPECT_EQ(reading.faults,
              Faults({{StreamFault::oversize, 72, largestUmfPacket + 1,
                       "this umfFile packet claims 4194305 bytes, more than a umfFile packet can "
                       "need; it is passed over"}}));
}

TEST_P(PacketReaderTest, theLargestUmfPacketComesWhole) {
    constexpr std::uint32_t size = largestUmfPacket - 16 - 5;
    Sketch sketch = Sketch().add(video(0, 40));
    sketch.add(packet(umfType, Bytes().u8(1).u32(size).fill(size, 0x42)));
    sketch.add(video(2, 40)).add(endOfStream());
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    ASSERT_NE(reader->next(), nullptr);
    StreamPacket const* const packet = reader->next();
    ASSERT_NE(packet, nullptr);
    ASSERT_EQ(packet->offset, sketch.offsets[1]);
    EXPECT_EQ(Bytes::occupied(packet->packet->getUmfPacket()->gatherBuffer),
              Bytes().fill(size, 0x42));
    ASSERT_NE(reader->next(), nullptr);
    ASSERT_NE(reader->next(), nullptr);
    EXPECT_EQ(reader->next(), nullptr);
    EXPECT_EQ(reader.faults, Faults({{StreamFault::payload, 72, 0,
                                      "the UMF that begins here has no \"Last\" packet"}}));
}

TEST_P(PacketReaderTest, theLargestMapComesWhole) {
    Sketch sketch = Sketch().add(video(0, 40));
    sketch.add(packet(mapType, mapPayload({}, {}, Bytes().fill(largestMap - 16 - 6, 0x42))));
    sketch.add(video(2, 40)).add(endOfStream());
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    ASSERT_NE(reader->next(), nullptr);
    StreamPacket const* const packet = reader->next();
    ASSERT_NE(packet, nullptr);
    ASSERT_EQ(packet->offset, sketch.offsets[1]);
    EXPECT_TRUE(packet->packet->isValid());
    EXPECT_EQ(packet->packet->getMapPacket()->preservedData.size(), largestMap - 16 - 6);
    ASSERT_NE(reader->next(), nullptr);
    ASSERT_NE(reader->next(), nullptr);
    EXPECT_EQ(reader->next(), nullptr);
    EXPECT_EQ(reader.faults, Faults());
}

TEST_P(PacketReaderTest, aPacketThatClaimsTooMuchHidesNothing) {
    for (bool const isMap : {true, false}) {
        Sketch sketch = Sketch().add(isMap ? map() : umfPacket(1, noise(50)));
        sketch.add(flt()).add(video(0, 40)).add(endOfStream());
        sketch.claim(0, 0xFFFFFFFF);
        Reading const reading = read(sketch.bytes);
        char const* const name = isMap ? "map" : "umfFile";
        Fault const tooLarge{StreamFault::oversize, 0, 0xFFFFFFFF,
                             std::string("this ") + name +
                                 " packet claims 4294967295 bytes, more than a " + name +
                                 " packet can need; it is passed over"};
        if (isPipe()) {
            EXPECT_EQ(reading.offsets(), Offsets());
            EXPECT_EQ(reading.faults,
                      Faults({tooLarge, cutOff(0, name, 0xFFFFFFFF - sketch.bytes.size())}));
            continue;
        }
        EXPECT_EQ(reading.offsets(), sketch.without(0));
        EXPECT_EQ(reading.faults,
                  Faults({tooLarge, wrongLength(0, name, 0xFFFFFFFF, sketch.offsets[1])}));
    }
}

// Timecodes.

std::string timecodeText(MediaPacket const& media, unsigned index) {
    FormatStr text(32);
    return media.perFrameTc->timecodes[index].toString(25, text).get();
}

TEST_P(PacketReaderTest, theLastBlockOfTimecodesComesWhateverFollows) {
    for (Bytes const& behind : {Bytes(), noise(1), noise(15), noise(16), noise(17), endOfStream(),
                                video(0, 100), timecodes(504, 7)}) {
        Bytes const stream = map().add(timecodes(0, 504)).add(behind);
        StreamSource const source(GetParam(), stream);
        PacketReader reader(*source);
        reader.next();
        StreamPacket const* const packet = reader.next();
        ASSERT_NE(packet, nullptr);
        MediaPacket const* const media = packet->media();
        ASSERT_NE(media->perFrameTc.get(), nullptr) << behind.size();
        EXPECT_TRUE(media->perFrameTc->isValid(503));
        EXPECT_EQ(timecodeText(*media, 502), "00:00:10:01") << behind.size();
    }
}

TEST_P(PacketReaderTest, everyBlockOfTimecodesComes) {
    Bytes stream;
    for (std::uint32_t i = 0; i < 20; ++i) {
        stream.add(timecodes(504 * i, i + 1, i));
    }
    StreamSource const source(GetParam(), stream);
    NotingReader reader(*source);
    for (std::uint32_t i = 0; i < 20; ++i) {
        StreamPacket const* const packet = reader->next();
        ASSERT_NE(packet, nullptr);
        ASSERT_NE(packet->media()->perFrameTc.get(), nullptr) << i;
        EXPECT_EQ(packet->media()->perFrameTc->firstField(), 504 * i);
        EXPECT_TRUE(packet->media()->perFrameTc->isValid(i));
        EXPECT_FALSE(packet->media()->perFrameTc->isValid(i + 1));
    }
    EXPECT_EQ(reader->next(), nullptr);
    EXPECT_EQ(reader.faults, Faults());
}

TEST_P(PacketReaderTest, eachKindOfTimecodeTrackIsDecoded) {
    for (auto const& [type, hertz] : {std::pair{7U, 30U}, {8U, 25U}, {24U, 60U}}) {
        MediaPreamble preamble;
        preamble.mediaType = type;
        Bytes const stream = mediaPacket(preamble, timecodeBlock(2, 25));
        StreamSource const source(GetParam(), stream);
        PacketReader reader(*source);
        StreamPacket const* const packet = reader.next();
        ASSERT_NE(packet, nullptr);
        ASSERT_NE(packet->media()->perFrameTc.get(), nullptr);
        EXPECT_EQ(packet->media()->perFrameTc->timecodeHz, hertz);
    }
}

TEST_P(PacketReaderTest, aTimecodePacketTooShortForItsBlockIsTold) {
    for (std::size_t const missing : {std::size_t{1}, std::size_t{16}, std::size_t{4096}}) {
        MediaPreamble preamble;
        preamble.mediaType = 8;
        Sketch const sketch = Sketch()
                                  .add(timecodes(0, 504))
                                  .add(mediaPacket(preamble, Bytes().fill(4096 - missing, 0xFF)))
                                  .add(video(0, 5000))
                                  .add(endOfStream());
        StreamSource const source(GetParam(), sketch.bytes);
        NotingReader reader(*source);
        StreamPacket const* const whole = reader->next();
        ASSERT_NE(whole, nullptr);
        MediaPacket const* const recycled = whole->media();
        ASSERT_NE(recycled->perFrameTc.get(), nullptr);
        StreamPacket const* const packet = reader->next();
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->media(), recycled);
        EXPECT_EQ(packet->media()->perFrameTc.get(), nullptr);
        EXPECT_EQ(packet->result.getCode(), 0);
        EXPECT_EQ(reader.faults,
                  Faults({{StreamFault::payload, sketch.offsets[1], 4128 - missing,
                           "this timecode packet is too short for its block of timecodes"}}));
        ASSERT_NE(reader->next(), nullptr);
        ASSERT_NE(reader->next(), nullptr);
        EXPECT_EQ(reader->next(), nullptr);
        EXPECT_EQ(reader.faults.size(), 1U);
    }
}

// Recycled packets.

TEST_P(PacketReaderTest, aMapHasNothingOfTheOneBefore) {
    Bytes const first = packet(
        mapType, mapPayload(tagText(0x40, "FIRST"), videoTrack().add(timecodeTrack()), noise(50)));
    Bytes const stream = Bytes().add(first).add(packet(mapType, mapPayload({}, videoTrack())));
    StreamSource const source(GetParam(), stream);
    NotingReader reader(*source);
    StreamPacket const* packet = reader->next();
    ASSERT_NE(packet, nullptr);
    Packet const* const recycled = packet->packet.get();
    {
        AutoRefPtr<MapPacket> const map = packet->packet->getMapPacket();
        EXPECT_EQ(map->preservedData.size(), 50U);
        EXPECT_TRUE(map->tracks.stripedTc.valid);
        EXPECT_EQ(map->materialData.size(), 1U);
        EXPECT_EQ(map->tracks.size(), 2U);
    }
    packet = reader->next();
    ASSERT_NE(packet, nullptr);
    ASSERT_EQ(packet->packet.get(), recycled);
    AutoRefPtr<MapPacket> const map = packet->packet->getMapPacket();
    EXPECT_EQ(map->preservedData.size(), 0U);
    EXPECT_EQ(map->preservedData.getData(), nullptr);
    EXPECT_FALSE(map->tracks.stripedTc.valid);
    EXPECT_EQ(map->materialData.size(), 0U);
    EXPECT_EQ(map->tracks.size(), 1U);
    EXPECT_EQ(reader.faults, Faults());
}

TEST_P(PacketReaderTest, aRefusedMapHasNothingOfTheOneBefore) {
    Bytes const first =
        packet(mapType, mapPayload(tagText(0x40, "FIRST"), timecodeTrack(), noise(50)));
    Bytes const stream = Bytes().add(first).add(packet(mapType, {0xE0}));
    StreamSource const source(GetParam(), stream);
    PacketReader reader(*source);
    ASSERT_NE(reader.next(), nullptr);
    StreamPacket const* const packet = reader.next();
    ASSERT_NE(packet, nullptr);
    AutoRefPtr<MapPacket> const map = packet->packet->getMapPacket();
    EXPECT_EQ(packet->result.getCode(), 9);
    EXPECT_FALSE(map->isValid());
    EXPECT_EQ(map->preservedData.size(), 0U);
    EXPECT_FALSE(map->tracks.stripedTc.valid);
    EXPECT_EQ(map->materialData.size(), 0U);
    EXPECT_EQ(map->tracks.size(), 0U);
}

TEST_P(PacketReaderTest, aFieldLocatorTableHasNothingOfTheOneBefore) {
    Bytes const stream = Bytes()
                             .add(packet(fltType, fltPayload(9, {1, 0, 3})))
                             .add(packet(fltType, fltPayload(8, {1, 0, 3, 4})))
                             .add(packet(fltType, Bytes().u32Lsbf(7).u32Lsbf(2000)));
    StreamSource const source(GetParam(), stream);
    PacketReader reader(*source);
    ChannelSetting const channel(gxfDebug, 1U << gxfDebugErrors);
    MessageCapture const capture;
    StreamPacket const* packet = reader.next();
    ASSERT_NE(packet, nullptr);
    Packet const* const recycled = packet->packet.get();
    packet = reader.next();
    ASSERT_NE(packet, nullptr);
    ASSERT_EQ(packet->packet.get(), recycled);
    EXPECT_EQ(packet->packet->getFltPacket()->table.size(), 4U);
    // A table tells of zeroed entries, whatever the one before had.
    EXPECT_EQ(capture.texts(MessageKind::Error),
              std::vector<std::string>(2, "FLT has zeroed offset @idx[1]\n"));
    packet = reader.next();
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->result.getCode(), 10);
    EXPECT_EQ(packet->packet->getFltPacket()->table.size(), 0U);
}

TEST_P(PacketReaderTest, aMediaPacketHasNothingOfTheOneBefore) {
    MediaPreamble picture;
    picture.mediaType = 12;
    picture.mediaBytes = 0x01000064; // an I picture
    Bytes const stream = Bytes()
                             .add(mediaPacket(picture, mpegIPicture(720, 576, true, 100)))
                             .add(timecodes(504, 504))
                             .add(timecodes(1008, 1))
                             .add(audio(7, 50))
                             .add(packet(mediaType, noise(10)));
    StreamSource const source(GetParam(), stream);
    PacketReader reader(*source);
    StreamPacket const* packet = reader.next();
    ASSERT_NE(packet, nullptr);
    MediaPacket const* const media = packet->media();
    EXPECT_EQ(media->hdr.mpegPictureHeight, 576);
    EXPECT_EQ(media->hdr.mpegPictureWidth, 720);
    EXPECT_EQ(media->hdr.closedGop, 1);

    packet = reader.next();
    ASSERT_EQ(packet->media(), media);
    EXPECT_EQ(media->hdr.mpegPictureHeight, 0);
    EXPECT_EQ(media->hdr.closedGop, 0);
    EXPECT_EQ(media->hdr.isMpegBit, 0);
    ASSERT_NE(media->perFrameTc.get(), nullptr);
    EXPECT_TRUE(media->perFrameTc->timecodes[500].valid);

    packet = reader.next();
    ASSERT_EQ(packet->media(), media);
    ASSERT_NE(media->perFrameTc.get(), nullptr);
    EXPECT_EQ(media->perFrameTc->firstField(), 1008U);
    EXPECT_TRUE(media->perFrameTc->timecodes[0].valid);
    EXPECT_FALSE(media->perFrameTc->timecodes[1].valid);
    EXPECT_FALSE(media->perFrameTc->timecodes[500].valid);

    packet = reader.next();
    ASSERT_EQ(packet->media(), media);
    EXPECT_EQ(media->perFrameTc.get(), nullptr);
    EXPECT_FALSE(media->isTimecode());

    packet = reader.next();
    ASSERT_EQ(packet->media(), media);
    EXPECT_FALSE(media->isValid());
    EXPECT_EQ(media->hdr.mediaType, 0);
    EXPECT_EQ(media->hdr.mediaField, 0xFFFFFFFFU);
}

TEST_P(PacketReaderTest, packetsAreKeptAsLongAsSomebodyHoldsThem) {
    Sketch sketch = smallStream();
    sketch.add(timecodes(0, 504)).add(map(noise(30))).add(timecodes(504, 1)).add(flt());
    sketch.add(packet(250, noise(3))).add(packet(254, noise(4)));
    sketch.add(umfPacket(1, noise(70))).add(umfPacket(2, noise(7))).add(umfPacket(3, noise(60)));
    Reading const reading = read(sketch.bytes);

    StreamSource const source(GetParam(), sketch.bytes);
    PacketReader reader(*source);
    std::vector<StreamPacket> held;
    while (StreamPacket const* const packet = reader.next()) {
        held.push_back(*packet);
    }
    ASSERT_EQ(held.size(), reading.packets.size());
    for (std::size_t i = 0; i < held.size(); ++i) {
        EXPECT_EQ(seen(held[i]), reading.packets[i]);
    }
}

// Seeking.

TEST_P(PacketReaderTest, seekGoesOnAtAPosition) {
    Sketch const sketch = smallStream();
    for (std::size_t target = 0; target < sketch.offsets.size(); ++target) {
        StreamSource const source(GetParam(), sketch.bytes);
        NotingReader reader(*source);
        reader->seek(sketch.offsets[target]);
        EXPECT_EQ(reader->position(), sketch.offsets[target]);
        for (std::size_t i = target; i < sketch.offsets.size(); ++i) {
            StreamPacket const* const packet = reader->next();
            ASSERT_NE(packet, nullptr);
            EXPECT_EQ(packet->offset, sketch.offsets[i]);
        }
        EXPECT_EQ(reader->next(), nullptr);
        EXPECT_EQ(reader.faults, Faults());
        EXPECT_EQ(reader->passedOver(), 0U);
    }
}

TEST_P(PacketReaderTest, whatSeekLandsInIsNoFault) {
    Sketch const sketch = smallStream();
    for (std::uint64_t at = sketch.offsets[3] + 1; at <= sketch.offsets[4]; ++at) {
        StreamSource const source(GetParam(), sketch.bytes);
        NotingReader reader(*source);
        reader->seek(at);
        StreamPacket const* const packet = reader->next();
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->offset, sketch.offsets[4]);
        EXPECT_EQ(reader->passedOver(), sketch.offsets[4] - at);
        EXPECT_EQ(reader.faults, Faults());
    }
}

TEST_P(PacketReaderTest, faultsAreToldAgainBehindTheFirstPacketOfASeek) {
    Sketch sketch = smallStream();
    sketch.breakHeader(5);
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    reader->seek(sketch.offsets[3] + 20);
    while (reader->next() != nullptr) {
    }
    EXPECT_EQ(reader.faults, Faults({passedOver(sketch.offsets[5], sketch.length(5))}));
    EXPECT_EQ(reader->passedOver(), sketch.length(3) - 20);
}

TEST_P(PacketReaderTest, faultsAreToldBehindAFirstPacketThatIsPassedOver) {
    Sketch sketch;
    sketch.add(packet(mapType, mapPayload({}, {}, Bytes().fill(largestMap))));
    sketch.junk(noise(100)).add(video(0, 40)).add(endOfStream());
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    reader->seek(0);
    ASSERT_NE(reader->next(), nullptr);
    ASSERT_EQ(reader.faults.size(), 2U);
    EXPECT_EQ(reader.faults[1], passedOver(sketch.offsets[1] - 100, 100));
}

TEST_P(PacketReaderTest, seekBehindTheLastPacketFindsTheEnd) {
    Sketch const sketch = smallStream();
    for (std::uint64_t const at :
         {std::uint64_t{589}, std::uint64_t{603}, std::uint64_t{604}, std::uint64_t{5000},
          std::uint64_t{1} << 40, std::numeric_limits<std::uint64_t>::max() - 16,
          std::numeric_limits<std::uint64_t>::max()}) {
        StreamSource const source(GetParam(), sketch.bytes);
        NotingReader reader(*source);
        reader->seek(at);
        EXPECT_EQ(reader->next(), nullptr);
        EXPECT_EQ(reader.faults, Faults());
        EXPECT_EQ(reader->passedOver(), at < 604 ? 604 - at : 0) << at;
    }
}

TEST_P(PacketReaderTest, seekBackIsForSourcesThatCan) {
    Sketch const sketch = smallStream();
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    for (int i = 0; i < 4; ++i) {
        ASSERT_NE(reader->next(), nullptr);
    }
    reader->seek(sketch.offsets[1]);
    EXPECT_TRUE(reader->payload(0, 10).empty());
    StreamPacket const* const packet = reader->next();
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->offset, sketch.offsets[isPipe() ? 4 : 1]);
    while (reader->next() != nullptr) {
    }
    reader->seek(0);
    EXPECT_EQ(reader->next() == nullptr, isPipe());
    EXPECT_EQ(reader.faults, Faults());
}

TEST_P(PacketReaderTest, seekForwardBehindAPacketWithAWrongLengthForgetsIt) {
    Sketch sketch = smallStream();
    sketch.claim(3, 400);
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    for (int i = 0; i < 4; ++i) {
        ASSERT_NE(reader->next(), nullptr);
    }
    // Bytes that are no packet, behind one that isn't to be looked into any more.
    reader->seek(sketch.offsets[6] + 20);
    StreamPacket const* const packet = reader->next();
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->offset, sketch.offsets[7]);
    EXPECT_EQ(reader.faults, Faults());
}

// Payloads.

Bytes copyOf(Span span) {
    return Bytes().text({reinterpret_cast<char const*>(span.data()), span.size()});
}

TEST_P(PacketReaderTest, payloadsComeInPieces) {
    Bytes essence;
    for (unsigned i = 0; i < 3000; ++i) {
        essence.u8(i * 7 + i / 100);
    }
    Bytes const payload = mediaPreamble({}).add(essence);
    Bytes const stream =
        Bytes().add(map()).add(packet(mediaType, payload)).add(video(0, 40)).add(endOfStream());
    for (std::size_t const piece :
         {std::size_t{1}, std::size_t{7}, std::size_t{1000}, std::size_t{3016}, std::size_t{9000},
          std::numeric_limits<std::size_t>::max()}) {
        StreamSource const source(GetParam(), stream);
        NotingReader reader(*source);
        EXPECT_TRUE(reader->payload(0, 10).empty());
        reader->next();
        ASSERT_NE(reader->next(), nullptr);
        Bytes got;
        while (true) {
            Span const part = reader->payload(got.size(), piece);
            if (part.empty()) {
                break;
            }
            ASSERT_LE(part.size(), piece);
            got.add(copyOf(part));
        }
        EXPECT_EQ(got, payload) << piece;
        EXPECT_TRUE(reader->payload(3016, 1).empty());
        EXPECT_TRUE(reader->payload(std::numeric_limits<std::uint64_t>::max(), 1).empty());
        StreamPacket const* const packet = reader->next();
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->offset, 16U + payload.size() + map().size());
        ASSERT_NE(reader->next(), nullptr);
        EXPECT_TRUE(reader->payload(0, 10).empty());
        EXPECT_EQ(reader->next(), nullptr);
        EXPECT_TRUE(reader->payload(0, 10).empty());
        EXPECT_EQ(reader.faults, Faults());
    }
}

TEST_P(PacketReaderTest, aPipeGivesAPayloadOnce) {
    Bytes const stream = Bytes().add(audio(0, 500)).add(video(0, 40));
    StreamSource const source(GetParam(), stream);
    NotingReader reader(*source);
    reader->next();
    EXPECT_EQ(copyOf(reader->payload(16, 5)), Bytes().fill(5, 0xAA));
    EXPECT_EQ(copyOf(reader->payload(100, 5)), Bytes().fill(5, 0xAA));
    EXPECT_EQ(reader->payload(99, 5).size(), isPipe() ? 0U : 5U);
    EXPECT_EQ(copyOf(reader->payload(510, 50)), Bytes().fill(6, 0xAA));
    StreamPacket const* const packet = reader->next();
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->offset, 532U);
    EXPECT_EQ(reader->next(), nullptr);
    EXPECT_EQ(reader.faults, Faults());
}

TEST_P(PacketReaderTest, aPipeCannotLookBackIntoAPayloadThatWasRead) {
    Sketch sketch = smallStream();
    sketch.claim(3, 400);
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    Offsets offsets;
    while (StreamPacket const* const packet = reader->next()) {
        offsets.push_back(packet->offset);
        reader->payload(packet->length - 17, 1);
    }
    std::uint64_t const at = sketch.offsets[3] + 400;
    if (isPipe()) {
        EXPECT_EQ(offsets, joined(sketch.first(4), {sketch.offsets[7]}));
        EXPECT_EQ(reader.faults, Faults({passedOver(at, sketch.offsets[7] - at)}));
    } else {
        EXPECT_EQ(offsets, sketch.offsets);
        EXPECT_EQ(reader.faults,
                  Faults({wrongLength(sketch.offsets[3], "media", 400, sketch.offsets[4])}));
    }
}

TEST_P(PacketReaderTest, aCutPayloadGivesWhatIsThere) {
    Bytes const stream = prefix(audio(0, 500), 300);
    StreamSource const source(GetParam(), stream);
    NotingReader reader(*source);
    ASSERT_NE(reader->next(), nullptr);
    EXPECT_EQ(reader->payload(16, 5000).size(), 300U - 32);
    EXPECT_TRUE(reader->payload(284, 1).empty());
    EXPECT_EQ(reader->next(), nullptr);
    EXPECT_EQ(reader.faults, Faults({cutOff(0, "media", 232)}));
}

TEST_P(PacketReaderTest, payloadsOfUnknownKindsCanBeRead) {
    Bytes const stream = Bytes().add(packet(254, noise(700))).add(packet(250, noise(30)));
    StreamSource const source(GetParam(), stream);
    PacketReader reader(*source);
    reader.next();
    EXPECT_EQ(copyOf(reader.payload(0, 9999)), noise(700));
    reader.next();
    EXPECT_EQ(copyOf(reader.payload(0, 9999)), noise(30));
    EXPECT_EQ(reader.next(), nullptr);
}

TEST_P(PacketReaderTest, payloadsThatWereDecodedCanBeRead) {
    Bytes const umfPayload = Bytes().u8(3).u32(600).add(noise(603));
    Bytes const mapPayload = GxfTesting::mapPayload({}, videoTrack(), noise(100));
    Bytes const stream =
        Bytes().add(packet(umfType, umfPayload)).add(packet(mapType, mapPayload)).add(video(0, 3));
    StreamSource const source(GetParam(), stream);
    PacketReader reader(*source);
    reader.next();
    EXPECT_EQ(copyOf(reader.payload(0, 9999)), umfPayload);
    reader.next();
    EXPECT_EQ(copyOf(reader.payload(0, 9999)), mapPayload);
    ASSERT_NE(reader.next(), nullptr);
    EXPECT_EQ(reader.next(), nullptr);
}

TEST(PacketReader, payloadInMemoryIsNotCopied) {
    Bytes const stream = Bytes().add(map()).add(video(0, 2000000)).add(endOfStream());
    MemorySource source(Span(stream.data(), stream.size()));
    PacketReader reader(source);
    reader.next();
    reader.next();
    Span const essence = reader.payload(16, std::numeric_limits<std::size_t>::max());
    EXPECT_EQ(essence.data(), stream.data() + map().size() + 32);
    EXPECT_EQ(essence.size(), 2000000U);
}

TEST(PacketReader, faultsNeedNoHandler) {
    Bytes const stream = noise(30).add(video(0, 5)).add(noise(3));
    MemorySource source(Span(stream.data(), stream.size()));
    PacketReader reader(source);
    EXPECT_NE(reader.next(), nullptr);
    EXPECT_EQ(reader.next(), nullptr);
}

TEST(PacketReader, leavesNoPacketBehind) {
    Sketch const sketch = smallStream();
    MessageCapture const capture;
    {
        MemorySource source(Span(sketch.bytes.data(), sketch.bytes.size()));
        PacketReader reader(source);
        StreamPacket const held = *reader.next();
        while (reader.next() != nullptr) {
        }
        reader.seek(0);
        reader.next();
    }
    EXPECT_EQ(capture.texts(MessageKind::Debug), std::vector<std::string>());
}

// Sources that fail.

/// Memory with a stretch that can't be read.
class BrokenSource : public ByteSource {
  public:
    BrokenSource(Bytes const& bytes, std::uint64_t from, std::uint64_t to)
        : m_bytes(bytes), m_from(from), m_to(to) {}

    Span read(std::uint64_t offset, std::size_t count) override {
        Span const bytes = Span(m_bytes.data(), m_bytes.size())
                               .subspan(std::min<std::size_t>(offset, m_bytes.size()));
        std::size_t const there = std::min(count, bytes.size());
        if (offset < m_to && offset + there > m_from) {
            setError("reading failed", EIO);
            return bytes.first(offset < m_from ? m_from - offset : 0);
        }
        return bytes.first(there);
    }
    bool peek(std::uint64_t offset, std::span<unsigned char> to) override {
        Span const bytes = read(offset, to.size());
        std::copy(bytes.begin(), bytes.end(), to.begin());
        return bytes.size() == to.size();
    }
    std::optional<std::uint64_t> size() const override { return m_bytes.size(); }

  private:
    Bytes const& m_bytes;
    std::uint64_t m_from;
    std::uint64_t m_to;
};

TEST(FailingSource, aHeaderThatCannotBeReadEndsTheStream) {
    Sketch const sketch = smallStream();
    for (std::uint64_t at = sketch.offsets[3]; at < sketch.offsets[3] + 16; ++at) {
        BrokenSource source(sketch.bytes, at, at + 1);
        Reading const reading = readAll(source);
        EXPECT_EQ(reading.offsets(), sketch.first(3));
        EXPECT_EQ(reading.faults, Faults({unreadable(at)}));
    }
}

TEST(FailingSource, aPayloadThatCannotBeReadEndsTheStream) {
    Sketch const sketch = smallStream();
    for (std::size_t i = 0; i < 7; ++i) {
        std::uint64_t const payload = sketch.offsets[i] + 16;
        for (std::uint64_t at = payload; at < sketch.end(i) && at < payload + 80; ++at) {
            BrokenSource source(sketch.bytes, at, at + 1);
            Reading const reading = readAll(source);
            // A media packet has told of itself before.
            bool const comes = i >= 2 && at >= payload + 16;
            EXPECT_EQ(reading.packets.size(), i + (comes ? 1 : 0)) << at;
            EXPECT_EQ(reading.faults, Faults({unreadable(sketch.offsets[i])})) << at;
        }
    }
}

TEST(FailingSource, aBlockOfTimecodesThatCannotBeReadEndsTheStream) {
    Sketch const sketch = Sketch().add(timecodes(0, 504)).add(endOfStream());
    for (std::uint64_t const at : {1000U, 4127U}) {
        BrokenSource source(sketch.bytes, at, at + 1);
        Reading const reading = readAll(source);
        EXPECT_EQ(reading.offsets(), Offsets());
        EXPECT_EQ(reading.faults, Faults({unreadable(0)}));
    }
}

TEST(FailingSource, essenceThatNobodyReadsMayBeUnreadable) {
    Sketch const sketch = smallStream();
    BrokenSource source(sketch.bytes, sketch.offsets[3] + 100, sketch.offsets[3] + 110);
    Reading const reading = readAll(source);
    EXPECT_EQ(reading.offsets(), sketch.offsets);
    EXPECT_EQ(reading.faults, Faults());
}

TEST(FailingSource, essenceThatCannotBeReadEndsTheStream) {
    Sketch const sketch = smallStream();
    BrokenSource source(sketch.bytes, sketch.offsets[3] + 100, sketch.offsets[3] + 110);
    NotingReader reader(source);
    for (int i = 0; i < 4; ++i) {
        ASSERT_NE(reader->next(), nullptr);
    }
    EXPECT_EQ(reader->payload(16, 100).size(), 68U);
    EXPECT_EQ(reader.faults, Faults());
    EXPECT_EQ(reader->next(), nullptr);
    EXPECT_EQ(reader->next(), nullptr);
    EXPECT_EQ(reader.faults, Faults({unreadable(sketch.offsets[3])}));
}

TEST(FailingSource, aSearchThatFailsEndsTheStream) {
    Sketch const sketch = Sketch()
                              .add(map())
                              .junk(noise(20000))
                              .add(video(0, 40))
                              .add(video(2, 40))
                              .add(endOfStream());
    std::uint64_t const garbage = map().size();
    BrokenSource source(sketch.bytes, garbage + 10000, garbage + 10010);
    Reading const reading = readAll(source);
    EXPECT_EQ(reading.offsets(), Offsets({0}));
    EXPECT_EQ(reading.faults, Faults({unreadable(garbage)}));
}

TEST(FailingSource, aDescriptorThatFailsEndsTheStream) {
    TemporaryFile const file(smallStream().bytes);
    int const unreadableDescriptor = ::open(file.path().c_str(), O_WRONLY | O_CLOEXEC);
    PipeSource source(unreadableDescriptor);
    Reading const reading = readAll(source);
    ::close(unreadableDescriptor);
    EXPECT_EQ(reading.offsets(), Offsets());
    EXPECT_EQ(reading.faults,
              Faults({{StreamFault::io, 0, 0, "reading failed: Bad file descriptor"}}));
}

TEST(FailingSource, aFileThatShrinksIsCut) {
    Sketch const sketch = Sketch().add(map()).add(video(0, 50000)).add(video(2, 50000));
    TemporaryFile const file(sketch.bytes);
    std::string error;
    auto const source = FileSource::open(file.path(), error);
    ASSERT_NE(source, nullptr) << error;
    NotingReader reader(*source);
    ASSERT_NE(reader->next(), nullptr);
    ASSERT_NE(reader->next(), nullptr);
    ASSERT_EQ(::ftruncate(file.descriptor(), static_cast<off_t>(sketch.offsets[2]) - 1000), 0);
    EXPECT_EQ(reader->next(), nullptr);
    EXPECT_EQ(reader.faults, Faults({cutOff(sketch.offsets[1], "media", 1000)}));
}

// Memory.

Bytes manyMediaPackets(unsigned rounds) {
    MediaPreamble picture;
    picture.mediaType = 12;
    picture.mediaBytes = 0x01001000; // an I picture
    Bytes stream;
    for (unsigned i = 0; i < rounds; ++i) {
        stream.add(mediaPacket(picture, mpegIPicture(720, 576, true, 7000 + i * 13 % 3000)));
        stream.add(video(i, 5000 + i * 7 % 900)).add(audio(i, 3000)).add(timecodes(i, 504));
        stream.add(packet(254, noise(i % 50)));
    }
    return stream;
}

void expectNoAllocations(ByteSource& source, unsigned packets, bool readsPayloads) {
    PacketReader reader(source);
    for (unsigned i = 0; i < packets / 4; ++i) {
        ASSERT_NE(reader.next(), nullptr);
        if (readsPayloads) {
            reader.payload(0, std::size_t{1} << 30);
        }
    }
    std::uint64_t const before = allocationCount();
    unsigned count = packets / 4;
    while (reader.next() != nullptr) {
        ++count;
        if (readsPayloads) {
            reader.payload(0, std::size_t{1} << 30);
        }
    }
    EXPECT_EQ(allocationCount() - before, 0U);
    EXPECT_EQ(count, packets);
}

TEST(SteadyState, allocatesNothingPerMediaPacketInMemory) {
    Bytes const stream = manyMediaPackets(100);
    for (bool const readsPayloads : {false, true}) {
        MemorySource source(Span(stream.data(), stream.size()));
        expectNoAllocations(source, 500, readsPayloads);
    }
}

TEST(SteadyState, allocatesNothingPerMediaPacketOfAFile) {
    TemporaryFile const file(manyMediaPackets(100));
    for (bool const readsPayloads : {false, true}) {
        std::string error;
        auto const source = FileSource::open(file.path(), error);
        ASSERT_NE(source, nullptr) << error;
        expectNoAllocations(*source, 500, readsPayloads);
    }
}

TEST(SteadyState, allocatesNothingPerMediaPacketOfADescriptor) {
    TemporaryFile const file(manyMediaPackets(100));
    for (bool const readsPayloads : {false, true}) {
        int const descriptor = ::open(file.path().c_str(), O_RDONLY | O_CLOEXEC);
        PipeSource source(descriptor);
        expectNoAllocations(source, 500, readsPayloads);
        ::close(descriptor);
    }
}

TEST(BoundedMemory, hugePacketsOfAFileAreNotLoaded) {
    TemporaryFile const file;
    constexpr std::uint64_t length = 0xFFFFFFFF;
    Bytes const start = header(mediaType, 0xFFFFFFFF).add(mediaPreamble({}));
    for (unsigned i = 0; i < 5; ++i) {
        ASSERT_EQ(
            ::pwrite(file.descriptor(), start.data(), start.size(), static_cast<off_t>(i * length)),
            32);
    }
    ASSERT_EQ(::ftruncate(file.descriptor(), static_cast<off_t>(5 * length)), 0);
    std::string error;
    auto const source = FileSource::open(file.path(), error);
    ASSERT_NE(source, nullptr) << error;
    NotingReader reader(*source);
    AllocationLimit const limit(std::size_t{64} << 10);
    for (unsigned i = 0; i < 5; ++i) {
        StreamPacket const* const packet = reader->next();
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->offset, i * length);
        EXPECT_EQ(packet->packet->fileOffset, i * length);
        EXPECT_EQ(packet->end(), (i + 1) * length);
        EXPECT_EQ(packet->media()->hdr.getTrackNum(), 0U);
    }
    EXPECT_EQ(reader->next(), nullptr);
    EXPECT_EQ(reader.faults, Faults());
}

TEST(BoundedMemory, aPayloadOfAFileIsReadByWindows) {
    TemporaryFile const file;
    Bytes const start = header(mediaType, 0x10000000).add(mediaPreamble({}));
    ASSERT_EQ(::pwrite(file.descriptor(), start.data(), start.size(), 0), 32);
    ASSERT_EQ(::ftruncate(file.descriptor(), 0x10000000), 0);
    std::string error;
    auto const source = FileSource::open(file.path(), error);
    ASSERT_NE(source, nullptr) << error;
    PacketReader reader(*source);
    AllocationLimit const limit(std::size_t{4} << 20);
    ASSERT_NE(reader.next(), nullptr);
    std::uint64_t count = 0;
    while (true) {
        Span const part = reader.payload(count, std::numeric_limits<std::size_t>::max());
        if (part.empty()) {
            break;
        }
        count += part.size();
    }
    EXPECT_EQ(count, 0x10000000U - 16);
}

TEST(BoundedMemory, claimsTakeNone) {
    for (unsigned const type : {mapType, mediaType, fltType, umfType, 254U}) {
        for (std::uint32_t const claimed : {largestMap, largestMap + 1, 0xFFFFFFFFU}) {
            TemporaryFile const file(header(type, claimed).add(noise(200)));
            std::string error;
            auto const source = FileSource::open(file.path(), error);
            ASSERT_NE(source, nullptr) << error;
            PacketReader reader(*source);
            AllocationLimit const limit(std::size_t{16} << 10);
            while (reader.next() != nullptr) {
            }
        }
    }
}

TEST(BoundedMemory, whatAPipePassesOverTakesNone) {
    for (bool const isPacket : {false, true}) {
        TemporaryFile const file;
        constexpr std::uint32_t size = std::uint32_t{80} << 20;
        Bytes const start = header(mediaType, size);
        Bytes const last = Bytes().add(video(0, 40)).add(endOfStream());
        if (isPacket) {
            ASSERT_EQ(::pwrite(file.descriptor(), start.data(), start.size(), 0), 16);
        }
        ASSERT_EQ(::pwrite(file.descriptor(), last.data(), last.size(), size), 88);
        ASSERT_EQ(::lseek(file.descriptor(), 0, SEEK_SET), 0);
        PipeSource source(file.descriptor());
        NotingReader reader(source);
        AllocationLimit const limit(std::size_t{2} << 20);
        for (int i = 0; i < (isPacket ? 3 : 2); ++i) {
            ASSERT_NE(reader->next(), nullptr);
        }
        EXPECT_EQ(reader->next(), nullptr);
        EXPECT_EQ(reader.faults, isPacket ? Faults() : Faults({passedOver(0, size)}));
    }
}

TEST(BoundedMemory, aPipeKeepsNoMoreThanItsLookAhead) {
    // Headers that nothing confirms make the search look as far ahead as it may.
    TemporaryFile const file;
    constexpr std::uint64_t size = std::uint64_t{40} << 20;
    for (std::uint64_t at = 1000; at < size; at += 1500000) {
        Bytes const fake = header(mediaType, PipeSource::lookAhead - 100);
        ASSERT_EQ(::pwrite(file.descriptor(), fake.data(), fake.size(), static_cast<off_t>(at)),
                  16);
    }
    ASSERT_EQ(::ftruncate(file.descriptor(), static_cast<off_t>(size)), 0);
    ASSERT_EQ(::lseek(file.descriptor(), 0, SEEK_SET), 0);
    PipeSource source(file.descriptor());
    PacketReader reader(source);
    AllocationLimit const limit(PipeSource::lookAhead * 4);
    unsigned count = 0;
    while (reader.next() != nullptr) {
        ++count;
    }
    EXPECT_GT(count, 5U);
}

// Time: what a hostile stream makes a source do.

/// Memory that counts what a source with one window of its stream would have to do.
class CountingSource : public ByteSource {
  public:
    explicit CountingSource(Bytes const& bytes) : m_memory(Span(bytes.data(), bytes.size())) {}

    Span read(std::uint64_t offset, std::size_t count) override {
        ++calls;
        Span const span = m_memory.read(offset, count);
        std::uint64_t const end = offset + span.size();
        if (offset < m_begin || end > m_end) {
            ++fetches;
            bool const readsOn = offset >= m_begin && offset <= m_end;
            fetched += readsOn ? end - m_end : span.size();
            m_begin = offset;
            m_end = end;
        }
        return span;
    }
    bool peek(std::uint64_t offset, std::span<unsigned char> to) override {
        ++calls;
        fetched += to.size();
        return m_memory.peek(offset, to);
    }
    std::optional<std::uint64_t> size() const override { return m_memory.size(); }

    std::uint64_t calls = 0;
    std::uint64_t fetches = 0;
    std::uint64_t fetched = 0;

  private:
    MemorySource m_memory;
    std::uint64_t m_begin = 0;
    std::uint64_t m_end = 0;
};

constexpr std::uint64_t mebibyte = 1048576;

struct Cost {
    std::uint64_t packets = 0;
    std::uint64_t faults = 0;
    std::uint64_t fetches = 0;
};

/// Reads to the end and holds the cost against the size: `bytesPerByte` fetched at most for each.
Cost expectLinear(Bytes const& stream, std::uint64_t bytesPerByte) {
    CountingSource source(stream);
    Cost cost;
    PacketReader reader(source, [&](StreamFault const&) { ++cost.faults; });
    while (reader.next() != nullptr) {
        ++cost.packets;
    }
    std::uint64_t const headers = stream.size() / 16 + 16;
    EXPECT_LE(source.calls, 16 * headers);
    EXPECT_LE(source.fetches, 8 * headers);
    EXPECT_LE(source.fetched, bytesPerByte * stream.size());
    EXPECT_LE(cost.packets, headers);
    EXPECT_LE(cost.faults, 2 * headers);
    cost.fetches = source.fetches;
    return cost;
}

TEST(HostileStream, oneByteOverAndOver) {
    for (unsigned const byte : {0x00U, 0xE1U, 0xE2U, 0x01U, 0xBFU, 0xFFU}) {
        Cost const cost = expectLinear(Bytes().fill(mebibyte, byte), 2);
        EXPECT_EQ(cost.packets, 0U);
        EXPECT_EQ(cost.faults, 1U);
    }
}

TEST(HostileStream, trailersWithoutHeaders) {
    Bytes stream;
    while (stream.size() < mebibyte) {
        stream.u32(0).u8(0xE1).u8(0xE2);
    }
    EXPECT_EQ(expectLinear(stream, 2).packets, 0U);
}

TEST(HostileStream, headersThatClaimToEndBehindTheStream) {
    for (std::uint32_t const claimed : {0xFFFFFFFFU, 0x7FFFFFFFU, 0x00200000U}) {
        for (unsigned const type : {mapType, mediaType, fltType, umfType, 254U}) {
            Bytes stream;
            while (stream.size() < mebibyte) {
                stream.add(header(type, claimed));
            }
            // The window moves with the search and not with each header.
            EXPECT_LE(expectLinear(stream, 8).fetches, 100U);
        }
    }
}

TEST(HostileStream, headersThatAllClaimToEndInTheSameGarbage) {
    for (unsigned const type : {mapType, mediaType, fltType, umfType, 250U}) {
        Bytes stream;
        while (stream.size() < mebibyte) {
            stream.add(header(type, static_cast<std::uint32_t>(mebibyte + 500 - stream.size())));
        }
        EXPECT_LE(expectLinear(stream.add(noise(1000)), 8).fetches, 100U);
    }
}

TEST(HostileStream, headersThatClaimToEndInTheMiddleOfTheNext) {
    for (std::uint32_t const claimed : {24U, 1000U, 5001U, 300001U}) {
        Bytes stream;
        while (stream.size() < mebibyte) {
            stream.add(header(mediaType, claimed));
        }
        expectLinear(stream, 16);
    }
}

TEST(HostileStream, headersThatBreakOffOneByteBehindThem) {
    Bytes stream;
    while (stream.size() < mebibyte) {
        stream.add(header(254, 16)).u8(0);
    }
    Cost const cost = expectLinear(stream, 16);
    EXPECT_EQ(cost.packets, stream.size() / 17);
}

TEST(HostileStream, wrongLengthsWithPacketsInsideOneBehindTheOther) {
    // Each second packet claims to reach into the garbage at the end: each makes the reader look
    // there, come back and search.
    Bytes stream;
    while (stream.size() < mebibyte) {
        stream.add(header(254, 16));
        stream.add(header(254, static_cast<std::uint32_t>(mebibyte + 500 - stream.size())));
    }
    stream.add(noise(1000));
    Cost const cost = expectLinear(stream, 200);
    EXPECT_EQ(cost.packets, mebibyte / 16);
}

TEST(HostileStream, garbageInFrontOfWrongLengths) {
    Bytes stream;
    while (stream.size() < mebibyte) {
        stream.add(noise(1)).add(header(254, 16)).add(header(254, 17)).add(noise(1));
        stream.add(header(254, static_cast<std::uint32_t>(mebibyte + 500 - stream.size())));
    }
    expectLinear(stream.add(noise(1000)), 300);
}

TEST_P(PacketReaderTest, hostileStreamsEndOnEverySource) {
    Bytes stream;
    while (stream.size() < mebibyte / 4) {
        stream.add(header(254, 16));
        stream.add(header(254, static_cast<std::uint32_t>(mebibyte / 4 + 500 - stream.size())));
    }
    stream.add(noise(1000));
    EXPECT_EQ(read(stream).packets.size(), mebibyte / 64);
    stream = {};
    while (stream.size() < mebibyte / 4) {
        stream.add(header(mediaType, 0xFFFFFFF0));
    }
    EXPECT_EQ(read(stream).packets.size(), 1U);
}

// Random streams, against a reader that is too simple to be wrong.

class StreamGenerator {
  public:
    explicit StreamGenerator(unsigned seed) : m_random(seed) {}

    Bytes stream() {
        unsigned const count = 1 + below(14);
        for (unsigned i = 0; i < count; ++i) {
            if (below(6) == 0) {
                add(garbage());
            }
            addPacket();
        }
        if (below(3) != 0) {
            add(endOfStream());
        }
        for (unsigned damages = below(2) * below(5); damages > 0; --damages) {
            damage();
        }
        if (below(4) == 0) {
            return prefix(m_bytes, below(m_bytes.size() + 1));
        }
        return m_bytes;
    }

  private:
    std::size_t below(std::size_t limit) { return m_random() % limit; }

    unsigned below(int limit) { return static_cast<unsigned>(below(std::size_t(limit))); }

    void add(Bytes const& bytes) { m_bytes.add(bytes); }

    Bytes anyBytes(std::size_t count) {
        Bytes bytes;
        while (bytes.size() < count) {
            bytes.u8(below(3) == 0 ? 0 : static_cast<unsigned>(m_random()));
        }
        return bytes;
    }

    unsigned anyType() {
        static constexpr unsigned types[] = {0xBC, 0xBF, 0xBF, 0xBF, 0xFA, 0xFB,
                                             0xFC, 0xFD, 0xFD, 0xFE, 0xFF};
        return types[below(std::size(types))];
    }

    Bytes garbage() {
        Bytes bytes = anyBytes(below(80));
        if (below(2) == 0) {
            bytes.add(header(anyType(), below(2) == 0 ? 16 + below(300) : below(0x1000000)));
            bytes.add(anyBytes(below(80)));
        }
        return bytes;
    }

    Bytes essence() {
        Bytes bytes = anyBytes(below(200));
        if (below(8) == 0) {
            bytes.add(garbage());
        }
        if (below(8) == 0) {
            bytes.add(packet(anyType(), anyBytes(below(20)))).add(endOfStream());
        }
        return bytes;
    }

    void addPacket() {
        m_headers.push_back(m_bytes.size());
        unsigned const type = anyType();
        if (type == umfType && below(4) != 0) {
            add(umfPacket(below(4), essence()));
            return;
        }
        if (type != 0xBF) {
            add(packet(type, essence()));
            return;
        }
        MediaPreamble preamble;
        preamble.mediaType = 3 + below(26);
        preamble.trackByte = below(256);
        preamble.field = static_cast<std::uint32_t>(m_random());
        preamble.mediaBytes = static_cast<std::uint32_t>(m_random());
        preamble.timeline = static_cast<std::uint32_t>(m_random());
        preamble.flags = below(256);
        bool const isBlock = preamble.mediaType == 8 || preamble.mediaType == 24;
        add(mediaPacket(preamble, isBlock ? anyBytes(4050 + below(100)) : essence()));
    }

    void damage() {
        bool const isInHeader = below(4) != 0;
        std::size_t const at =
            isInHeader ? m_headers[below(m_headers.size())] + below(16) : below(m_bytes.size());
        m_bytes[at] =
            static_cast<unsigned char>(below(2) == 0 ? m_bytes[at] + 1 + below(3) : m_random());
    }

    std::mt19937 m_random;
    Bytes m_bytes;
    std::vector<std::size_t> m_headers;
};

NaivePacket asNaive(StreamPacket const& packet) {
    NaivePacket naive;
    naive.offset = packet.offset;
    naive.type = packet.type;
    naive.length = packet.length;
    if (packet.length >= 32 && packet.media() != nullptr) {
        MediaPacketHdr const& hdr = packet.media()->hdr;
        naive.preamble = NaivePreamble{
            hdr.mediaType,
            hdr.getTrackNum(),
            hdr.mediaField,
            static_cast<std::uint32_t>(hdr.getFirstValid()) << 16 | hdr.getLastValid(),
            hdr.timeline,
            hdr.timelineValid != 0};
    }
    return naive;
}

/// Packets in order, no two at the same place, and faults for what lies between them.
void expectAccountedFor(std::vector<NaivePacket> const& packets, Faults const& faults,
                        std::uint64_t size) {
    std::uint64_t least = 0;
    for (NaivePacket const& packet : packets) {
        EXPECT_GE(packet.offset, least);
        if (packet.offset > least) {
            EXPECT_TRUE(
                std::any_of(faults.begin(), faults.end(),
                            [&](Fault const& fault) { return fault.offset < packet.offset; }))
                << "nothing tells what lies in front of " << packet.offset;
        }
        least = packet.offset + 16;
        bool const isFollowed =
            std::any_of(packets.begin(), packets.end(), [&](NaivePacket const& other) {
                return other.offset == packet.offset + packet.length;
            });
        least = isFollowed || packet.offset + packet.length == size ? packet.offset + packet.length
                                                                    : least;
    }
    for (Fault const& fault : faults) {
        EXPECT_LE(fault.offset, size) << fault;
        EXPECT_FALSE(fault.text.empty());
    }
}

/// Some header claims more than a pipe can look back over.
bool hasHugeClaim(Bytes const& stream) {
    for (std::size_t at = 0; at + 16 <= stream.size(); ++at) {
        unsigned char const* const bytes = stream.data() + at;
        if (isPlausibleHeader(bytes) && lengthInHeader(bytes) > PipeSource::lookAhead / 2) {
            return true;
        }
    }
    return false;
}

TEST_P(PacketReaderTest, randomStreamsAreReadAsTheNaiveReaderReadsThem) {
    unsigned const seeds = isPipe() ? 600 : 3000;
    unsigned compared = 0;
    unsigned resyncs = 0;
    for (unsigned seed = 0; seed < seeds; ++seed) {
        Bytes const stream = StreamGenerator(seed).stream();
        StreamSource const source(GetParam(), stream);
        NotingReader reader(*source);
        std::vector<NaivePacket> packets;
        while (StreamPacket const* const packet = reader->next()) {
            packets.push_back(asNaive(*packet));
        }
        if (isPipe() && hasHugeClaim(stream)) {
            continue;
        }
        ++compared;
        ASSERT_EQ(packets, naiveRead(stream)) << "seed " << seed;
        expectAccountedFor(packets, reader.faults, stream.size());
        if (GetParam() != SourceKind::memory) {
            ASSERT_EQ(reader.faults, readAll(SourceKind::memory, stream).faults) << "seed " << seed;
        }
        ASSERT_FALSE(testing::Test::HasFailure()) << "seed " << seed;
        for (Fault const& fault : reader.faults) {
            resyncs += fault.kind == StreamFault::resync ? 1 : 0;
        }
    }
    EXPECT_GT(compared, seeds / 2);
    EXPECT_GT(resyncs, seeds / 2);
}

} // namespace
