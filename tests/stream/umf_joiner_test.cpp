#include <gxfstream/umf_joiner.h>

#include <algorithm>
#include <cerrno>
#include <fstream>
#include <iterator>
#include <random>
#include <unistd.h>

#include <gtest/gtest.h>
#include <libxml/xmlerror.h>
#include <nlohmann/json.hpp>

#include <gxfstream/packet_reader.h>
#include <testing/allocation_count.h>
#include <testing/naive_reader.h>
#include <testing/stream_builder.h>
#include <testing/stream_sources.h>
#include <testing/umf_builder.h>
#include <testing/xml_document.h>

using namespace GxfTypes;
using namespace GxfStream;
using namespace GxfTesting;

namespace {

constexpr unsigned middle = 0;
constexpr unsigned first = 1;
constexpr unsigned last = 2;
constexpr unsigned only = 3;

constexpr unsigned mapType = 0xBC;
constexpr unsigned umfType = 0xFD;
constexpr std::uint32_t largestPacket = 4194304;
constexpr std::uint32_t largestUmf = 67108864;

// What was read.

struct Place {
    std::uint64_t offset;
    std::uint32_t length;

    bool operator==(Place const&) const = default;
};

std::ostream& operator<<(std::ostream& out, Place const& place) {
    return out << place.length << '@' << place.offset;
}

using Places = std::vector<Place>;

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

using Faults = std::vector<Fault>;

/// A UMF, and the place of the packet with which it came.
struct Umf {
    std::uint64_t cameWith;
    Places packets;
    bool valid;
    int code;
    /// The bytes behind the material, for a UMF without tracks, user data and index.
    Bytes rest;

    bool operator==(Umf const&) const = default;
};

std::ostream& operator<<(std::ostream& out, Umf const& umf) {
    out << "with " << umf.cameWith << ':';
    for (Place const& place : umf.packets) {
        out << ' ' << place;
    }
    return out << (umf.valid ? ", valid, " : ", not valid, ") << umf.code << ", " << umf.rest.size()
               << " bytes";
}

using Umfs = std::vector<Umf>;

struct Reading {
    std::vector<std::uint64_t> offsets;
    Umfs umfs;
    Faults faults;
};

Bytes bytesOf(GxfPreservedData const& data) {
    return Bytes().text({reinterpret_cast<char const*>(data.getData()), data.size()});
}

Places placesOf(StreamUmf const& umf) {
    Places places;
    for (StreamUmf::Place const& place : umf.packets) {
        places.push_back({place.offset, place.length});
    }
    return places;
}

Umf umfOf(StreamPacket const& packet) {
    StreamUmf const& umf = *packet.umf;
    return {packet.offset, placesOf(umf), umf.packet->isValid(), umf.result.getCode(),
            bytesOf(umf.packet->preservedData[1])};
}

/// A reader that keeps its faults.
class NotingReader {
  public:
    explicit NotingReader(ByteSource& source)
        : m_reader(source, [this](StreamFault const& fault) {
              faults.push_back({fault.kind, fault.offset, fault.bytes, fault.text});
          }) {}

    PacketReader* operator->() { return &m_reader; }

    /// The next UMF; null at the end of the stream.
    StreamUmf const* nextUmf() {
        while (StreamPacket const* const packet = m_reader.next()) {
            if (packet->umf != nullptr) {
                return packet->umf;
            }
        }
        return nullptr;
    }

    Reading readOn() {
        Reading reading;
        while (StreamPacket const* const packet = m_reader.next()) {
            EXPECT_EQ(m_reader.position(), packet->end());
            reading.offsets.push_back(packet->offset);
            if (packet->umf != nullptr) {
                EXPECT_EQ(packet->umf->offset(), packet->umf->packets.front().offset);
                reading.umfs.push_back(umfOf(*packet));
            }
        }
        reading.faults = faults;
        // The end is told once.
        EXPECT_EQ(m_reader.next(), nullptr);
        EXPECT_EQ(faults, reading.faults);
        return reading;
    }

    Faults faults;

  private:
    PacketReader m_reader;
};

Reading readAll(SourceKind kind, Bytes const& stream) {
    StreamSource const source(kind, stream);
    return NotingReader(*source).readOn();
}

// The faults, as people read them.

std::string packetText(std::uint64_t count) {
    return std::to_string(count) + (count == 1 ? " byte" : " bytes");
}

Fault withoutFirst(Place const& place, std::string const& order) {
    return {StreamFault::payload, place.offset, place.length,
            "this umfFile packet is a \"" + order +
                "\" one without a \"First\" one in front of it"};
}

Fault withoutLast(std::uint64_t offset) {
    return {StreamFault::payload, offset, 0, "the UMF that begins here has no \"Last\" packet"};
}

Fault refusedPacket(Place const& place, std::string const& code) {
    return {StreamFault::payload, place.offset, place.length,
            "the payload of this umfFile packet is refused, " + code};
}

Fault wrongClaim(Place const& place, std::uint64_t claimed, std::uint64_t held) {
    return {StreamFault::payload, place.offset, place.length,
            "this umfFile packet claims a fragment of " + packetText(claimed) + ", but holds " +
                std::to_string(held)};
}

Fault lostBytes(Place const& umf, std::uint64_t total, std::uint64_t held) {
    return {StreamFault::payload, umf.offset, umf.length,
            "bytes of the UMF that begins here are lost: it has " + std::to_string(total) +
                " bytes, and its packets hold " + std::to_string(held) + "; it is dropped"};
}

Fault passedOver(std::uint64_t offset, std::uint64_t bytes) {
    return {StreamFault::resync, offset, bytes,
            std::to_string(bytes) +
                " bytes passed over that are no packet; packets go on at offset " +
                std::to_string(offset + bytes)};
}

Fault cutOff(std::uint64_t offset, std::uint64_t missing) {
    return {StreamFault::truncated, offset, missing,
            "the stream ends inside this umfFile packet, " + packetText(missing) + " of it " +
                (missing == 1 ? "is" : "are") + " missing"};
}

// Streams.

/// Bytes that tell where they stand.
Bytes pattern(std::size_t count, unsigned seed = 0) {
    Bytes bytes;
    for (std::size_t i = 0; i < count; ++i) {
        bytes.u8(static_cast<unsigned>(seed + i + (i >> 8) * 3 + (i >> 16) * 5));
    }
    return bytes;
}

/// The gathered payload of a UMF with nothing but a material and bytes behind it.
constexpr std::size_t frontSize = 104;
Bytes plainPayload(std::size_t size, unsigned seed = 0) {
    UmfContent content;
    content.rest = pattern(size - frontSize, seed);
    return content.payload();
}

Bytes prefix(Bytes const& bytes, std::size_t size) {
    return Bytes().text({reinterpret_cast<char const*>(bytes.data()), size});
}

Bytes fileBytes(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    return Bytes().text(std::string(std::istreambuf_iterator<char>(file), {}));
}

/// A packet whose preamble claims another fragment than the one behind it.
Bytes claiming(unsigned order, std::uint32_t claimed, Bytes const& held) {
    return packet(umfType, Bytes().u8(order).u32(claimed).add(held));
}

Bytes video() { return mediaPacket({.mediaType = 12}, Bytes().fill(40, 0x55)); }

/// A stream with the places of its packets.
struct Sketch {
    Bytes bytes;
    Places places;

    Sketch& add(Bytes const& packet) {
        places.push_back({bytes.size(), static_cast<std::uint32_t>(packet.size())});
        bytes.add(packet);
        return *this;
    }
    Sketch& add(std::vector<Bytes> const& packets) {
        for (Bytes const& one : packets) {
            add(one);
        }
        return *this;
    }
    Sketch& junk(Bytes const& junk) {
        bytes.add(junk);
        return *this;
    }
    std::vector<std::uint64_t> offsets() const {
        std::vector<std::uint64_t> result;
        for (Place const& place : places) {
            result.push_back(place.offset);
        }
        return result;
    }
    Places some(std::vector<std::size_t> const& indices) const {
        Places result;
        for (std::size_t const index : indices) {
            result.push_back(places[index]);
        }
        return result;
    }
    /// What the packets of a UMF come to: its offset, and all their lengths.
    Place whole(std::vector<std::size_t> const& indices) const {
        Place result{places[indices.front()].offset, 0};
        for (std::size_t const index : indices) {
            result.length += places[index].length;
        }
        return result;
    }
    void claimLength(std::size_t index, std::uint32_t length) {
        for (unsigned i = 0; i < 4; ++i) {
            bytes[places[index].offset + 6 + i] =
                static_cast<unsigned char>(length >> (24 - 8 * i));
        }
    }
    /// The plain UMF of these packets.
    Umf umf(std::vector<std::size_t> const& indices, Bytes const& payload) const {
        return {places[indices.back()].offset, some(indices), true, 0,
                Bytes().text({reinterpret_cast<char const*>(payload.data()) + frontSize,
                              payload.size() - frontSize})};
    }
};

class UmfJoinerTest : public testing::TestWithParam<SourceKind> {
  protected:
    Reading read(Bytes const& stream) const { return readAll(GetParam(), stream); }
};

INSTANTIATE_TEST_SUITE_P(Sources, UmfJoinerTest,
                         testing::Values(SourceKind::memory, SourceKind::file, SourceKind::pipe),
                         [](auto const& test) { return getName(test.param); });

// A broken UMF is followed by this one, which must come whole.
Bytes const nextPayload = plainPayload(150, 77);
Bytes nextUmf() { return umfPacket(only, nextPayload); }

/// The packets of a UMF, each but the last one with 100 bytes.
Bytes const payload = plainPayload(480, 5);
std::vector<Bytes> fivePackets() { return umfPackets(payload, 100); }

// Sound sequences.

TEST_P(UmfJoinerTest, joinsOneToFivePackets) {
    struct Case {
        std::size_t size;
        Places places;
    };
    for (Case const& testCase :
         {Case{104, {{0, 128}}}, Case{32768, {{0, 32792}}}, Case{32769, {{0, 32792}, {32792, 24}}},
          Case{65536, {{0, 32792}, {32792, 32792}}},
          Case{65537, {{0, 32792}, {32792, 32792}, {65584, 24}}},
          Case{98307, {{0, 32792}, {32792, 32792}, {65584, 32792}, {98376, 24}}},
          Case{131076,
               {{0, 32792}, {32792, 32792}, {65584, 32792}, {98376, 32792}, {131168, 28}}}}) {
        Bytes const whole = plainPayload(testCase.size);
        Bytes const stream = joined(umfPackets(whole)).add(endOfStream());
        StreamSource const source(GetParam(), stream);
        NotingReader reader(*source);
        for (Place const& place : testCase.places) {
            StreamPacket const* const packet = reader->next();
            ASSERT_NE(packet, nullptr);
            EXPECT_EQ((Place{packet->offset, packet->length}), place);
            EXPECT_EQ(packet->umf != nullptr, place == testCase.places.back());
            if (packet->umf == nullptr) {
                continue;
            }
            StreamUmf const& umf = *packet->umf;
            EXPECT_EQ(placesOf(umf), testCase.places);
            EXPECT_EQ(umf.offset(), 0U);
            EXPECT_EQ(umf.result.getType(), OpResult::Ok);
            EXPECT_TRUE(umf.packet->isValid());
            EXPECT_EQ(umf.packet->getFileOffset(), 0U);
            EXPECT_EQ(umf.packet->getCodedLength(), place.offset + place.length);
            EXPECT_EQ(umf.packet->decodedPayloadSize, testCase.size);
            EXPECT_EQ(umf.packet->materialDesc.markOut, 90U);
            EXPECT_EQ(umf.packet->gatherBuffer.nOccupied(), 0U);
            EXPECT_EQ(bytesOf(umf.packet->preservedData[1]), pattern(testCase.size - 104));
        }
        StreamPacket const* const end = reader->next();
        ASSERT_NE(end, nullptr);
        EXPECT_EQ(end->type, packetTypeEos);
        EXPECT_EQ(end->umf, nullptr);
        EXPECT_EQ(reader->next(), nullptr);
        EXPECT_EQ(reader.faults, Faults());
    }
}

TEST_P(UmfJoinerTest, joinsFragmentsOfEverySize) {
    Bytes const whole = plainPayload(3000);
    for (std::size_t const fragment : {1U, 2U, 3U, 7U, 999U, 1000U, 1001U, 2999U}) {
        Sketch sketch;
        sketch.add(umfPackets(whole, fragment));
        std::vector<std::size_t> all(sketch.places.size());
        std::generate(all.begin(), all.end(), [i = 0U]() mutable { return i++; });
        Reading const reading = read(sketch.bytes);
        EXPECT_EQ(reading.umfs, Umfs({sketch.umf(all, whole)}));
        EXPECT_EQ(reading.faults, Faults());
    }
    Bytes const large = plainPayload(300000);
    Sketch sketch;
    sketch.add(umfPackets(large, 100001));
    EXPECT_EQ(read(sketch.bytes).umfs, Umfs({sketch.umf({0, 1, 2}, large)}));
}

TEST_P(UmfJoinerTest, fragmentsMayBeEmpty) {
    Sketch sketch;
    sketch.add(umfPacket(first, {})).add(umfPacket(middle, payload)).add(umfPacket(middle, {}));
    sketch.add(umfPacket(last, {}));
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.umfs, Umfs({sketch.umf({0, 1, 2, 3}, payload)}));
    EXPECT_EQ(reading.faults, Faults());
}

TEST_P(UmfJoinerTest, eachPacketComesOnItsOwnToo) {
    Sketch sketch;
    sketch.add(umfPackets(plainPayload(250), 100)).add(nextUmf());
    struct Expected {
        int code;
        char const* text;
    };
    // "umf partial" is 0, "umf final" is 1.
    std::vector<Expected> const expected{
        {0, "umfFile:124b@0\n  preamble={First,payloadLen=100}"},
        {0, "umfFile:124b@124\n  preamble={Middle,payloadLen=100}"},
        {1, "umfFile:72b@248\n  preamble={Last,payloadLen=50}"},
        {1, "umfFile:172b@320\n  preamble={Only,payloadLen=150}"}};
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    std::vector<unsigned> const fragments{100, 100, 50, 150};
    for (std::size_t i = 0; i < expected.size(); ++i) {
        StreamPacket const* const packet = reader->next();
        ASSERT_NE(packet, nullptr);
        EXPECT_EQ(packet->type, packetTypeUmfFile);
        EXPECT_TRUE(packet->packet->isValid());
        EXPECT_TRUE(packet->result);
        EXPECT_EQ(packet->result.getType(), OpResult::Info);
        EXPECT_EQ(packet->result.getCode(), expected[i].code);
        EXPECT_STREQ(packet->packet->toString().get(), expected[i].text);
        // Its own fragment, and nothing of the packets in front of it.
        EXPECT_EQ(packet->packet->getUmfPacket()->gatherBuffer.nOccupied(), fragments[i]);
        EXPECT_EQ(packet->packet->getFileOffset(), packet->offset);
    }
    EXPECT_EQ(reader->next(), nullptr);
    EXPECT_EQ(reader.faults, Faults());
}

TEST_P(UmfJoinerTest, readsSeveralUmfsOfAStream) {
    Bytes const second = plainPayload(104);
    Bytes const third = plainPayload(40000, 9);
    Sketch sketch;
    sketch.add(fivePackets()).add(umfPackets(second)).add(umfPackets(third)).add(fivePackets());
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets, sketch.offsets());
    EXPECT_EQ(reading.umfs,
              Umfs({sketch.umf({0, 1, 2, 3, 4}, payload), sketch.umf({5}, second),
                    sketch.umf({6, 7}, third), sketch.umf({8, 9, 10, 11, 12}, payload)}));
    EXPECT_EQ(reading.faults, Faults());
}

TEST_P(UmfJoinerTest, packetsOfOtherKindsMayStandBetween) {
    std::vector<Bytes> const five = fivePackets();
    Sketch sketch;
    sketch.add(video()).add(five[0]).add(packet(mapType, mapPayload({}, {}))).add(five[1]);
    sketch.add(packet(0xFC, fltPayload(2, {0, 1}))).add(five[2]).add(video()).add(video());
    sketch.add(five[3]).add(packet(0xFA, Bytes().fill(9))).add(packet(0xFE, {})).add(five[4]);
    sketch.add(endOfStream());
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets, sketch.offsets());
    EXPECT_EQ(reading.umfs, Umfs({sketch.umf({1, 3, 5, 8, 11}, payload)}));
    EXPECT_EQ(reading.faults, Faults());
}

TEST_P(UmfJoinerTest, theUmfOfACallIsGoneWithTheNext) {
    Sketch sketch;
    sketch.add(nextUmf()).add(video());
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    ASSERT_NE(reader->next(), nullptr);
    StreamPacket const* const packet = reader->next();
    ASSERT_NE(packet, nullptr);
    EXPECT_EQ(packet->umf, nullptr);
}

/// A packet of a UMF as somebody may send it.
struct SentPacket {
    unsigned order;
    std::uint32_t held;
    std::uint32_t claimed;
};

/// The joining in the plainest words: the numbers of the packets of each UMF.
std::vector<std::vector<std::size_t>> naivelyJoined(std::vector<SentPacket> const& packets) {
    std::vector<std::vector<std::size_t>> umfs;
    std::vector<std::size_t> open;
    for (std::size_t i = 0; i < packets.size(); ++i) {
        SentPacket const& packet = packets[i];
        bool const begins = packet.order == first || packet.order == only;
        bool const isBroken = packet.order > only || packet.claimed > packet.held;
        if (begins || isBroken) {
            open.clear();
        }
        if (isBroken || (!begins && open.empty())) {
            continue;
        }
        open.push_back(i);
        if (packet.order == last || packet.order == only) {
            umfs.push_back(open);
            open.clear();
        }
    }
    return umfs;
}

TEST_P(UmfJoinerTest, joinsAnySequenceAsTheNaiveJoinerDoes) {
    unsigned const seeds = GetParam() == SourceKind::pipe ? 200 : 1000;
    std::size_t count = 0;
    for (unsigned seed = 0; seed < seeds; ++seed) {
        std::mt19937 random(seed);
        std::vector<SentPacket> sent(1 + random() % 20);
        Sketch sketch;
        for (SentPacket& one : sent) {
            static constexpr unsigned orders[] = {middle, middle, first, first,
                                                  last,   last,   only,  4};
            one.order = orders[random() % std::size(orders)];
            one.held = static_cast<std::uint32_t>(random() % 300);
            std::uint32_t const padding = std::min<std::uint32_t>(one.held, random() % 4);
            one.claimed = random() % 8 == 0 ? one.held + 1 + random() % 4 : one.held - padding;
            sketch.add(claiming(one.order, one.claimed, pattern(one.held, seed)));
        }
        std::vector<std::vector<std::size_t>> const expected = naivelyJoined(sent);
        StreamSource const source(GetParam(), sketch.bytes);
        NotingReader reader(*source);
        for (std::vector<std::size_t> const& indices : expected) {
            StreamUmf const* const umf = reader.nextUmf();
            ASSERT_NE(umf, nullptr) << seed;
            EXPECT_EQ(placesOf(*umf), sketch.some(indices)) << seed;
            std::uint32_t size = 0;
            for (std::size_t const index : indices) {
                size += sent[index].claimed;
            }
            EXPECT_EQ(umf->packet->decodedPayloadSize, size) << seed;
        }
        EXPECT_EQ(reader.nextUmf(), nullptr) << seed;
        count += expected.size();
    }
    EXPECT_GT(count, seeds);
}

class SampleUmfTest : public testing::TestWithParam<char const*> {};

INSTANTIATE_TEST_SUITE_P(Samples, SampleUmfTest,
                         testing::Values("hd_short", "news_pal", "spot_ntsc"),
                         [](auto const& test) { return std::string(test.param); });

TEST_P(SampleUmfTest, hasWhatIsKnownOfIt) {
    std::string const path = std::string(GXF_SAMPLES_DIR "/") + GetParam();
    Bytes const stream = fileBytes(path + ".gxf");
    nlohmann::json const facts = nlohmann::json::parse(std::ifstream(path + ".json"));
    Places known;
    for (NaivePacket const& packet : naiveRead(stream)) {
        if (packet.type == umfType) {
            known.push_back({packet.offset, packet.length});
        }
    }
    for (SourceKind const kind : {SourceKind::memory, SourceKind::file, SourceKind::pipe}) {
        StreamSource const source(kind, stream);
        NotingReader reader(*source);
        Places places;
        while (StreamUmf const* const umf = reader.nextUmf()) {
            EXPECT_EQ(umf->result.getType(), OpResult::Ok);
            EXPECT_TRUE(umf->packet->isValid());
            EXPECT_EQ(umf->packet->decodedPayloadSize, facts["umf"]["payloadBytes"]);
            EXPECT_EQ(umf->packet->xmlTree.isValid(), facts["umf"]["xml"]["valid"]);
            EXPECT_EQ(umf->packet->xmlTree.getXmlTracks().size(),
                      facts["umf"]["xml"]["tracks"].size());
            // Each in a single packet.
            EXPECT_EQ(umf->packets.size(), 1U);
            places.push_back(placesOf(*umf).front());
        }
        EXPECT_EQ(places, known);
        EXPECT_EQ(places.size(), facts["packets"]["umfFile"]);
        EXPECT_EQ(reader.faults, Faults());
    }
}

// Broken sequences.

TEST_P(UmfJoinerTest, aMiddleWithoutAFirstIsTold) {
    Sketch sketch;
    sketch.add(umfPacket(middle, pattern(30))).add(video()).add(umfPacket(middle, pattern(9)));
    sketch.add(nextUmf());
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets, sketch.offsets());
    EXPECT_EQ(reading.umfs, Umfs({sketch.umf({3}, nextPayload)}));
    EXPECT_EQ(reading.faults,
              Faults({withoutFirst({0, 52}, "Middle"), withoutFirst({52 + 72, 32}, "Middle")}));
}

TEST_P(UmfJoinerTest, aLastWithoutAFirstIsTold) {
    Sketch sketch;
    sketch.add(umfPacket(last, payload)).add(nextUmf()).add(umfPacket(last, payload));
    sketch.add(fivePackets()).add(umfPacket(last, payload));
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets, sketch.offsets());
    EXPECT_EQ(reading.umfs,
              Umfs({sketch.umf({1}, nextPayload), sketch.umf({3, 4, 5, 6, 7}, payload)}));
    EXPECT_EQ(reading.faults, Faults({withoutFirst(sketch.places[0], "Last"),
                                      withoutFirst(sketch.places[2], "Last"),
                                      withoutFirst(sketch.places[8], "Last")}));
}

TEST_P(UmfJoinerTest, aSecondFirstBeginsAnew) {
    std::vector<Bytes> const five = fivePackets();
    for (std::size_t count = 1; count < five.size(); ++count) {
        Sketch sketch;
        for (std::size_t i = 0; i < count; ++i) {
            sketch.add(five[i]);
        }
        sketch.add(five);
        Reading const reading = read(sketch.bytes);
        EXPECT_EQ(reading.umfs,
                  Umfs({sketch.umf({count, count + 1, count + 2, count + 3, count + 4}, payload)}));
        EXPECT_EQ(reading.faults, Faults({withoutLast(0)}));
    }
}

TEST_P(UmfJoinerTest, anOnlyInsideASequenceIsAUmfOfItsOwn) {
    std::vector<Bytes> const five = fivePackets();
    for (std::size_t count = 1; count < five.size(); ++count) {
        Sketch sketch;
        sketch.add(video());
        for (std::size_t i = 0; i < count; ++i) {
            sketch.add(five[i]);
        }
        sketch.add(nextUmf());
        std::size_t const inside = count + 1;
        for (std::size_t i = count; i < five.size(); ++i) {
            sketch.add(five[i]);
        }
        Faults faults{withoutLast(72)};
        for (std::size_t i = inside + 1; i < sketch.places.size(); ++i) {
            faults.push_back(
                withoutFirst(sketch.places[i], i + 1 < sketch.places.size() ? "Middle" : "Last"));
        }
        Reading const reading = read(sketch.bytes);
        EXPECT_EQ(reading.offsets, sketch.offsets());
        EXPECT_EQ(reading.umfs, Umfs({sketch.umf({inside}, nextPayload)}));
        EXPECT_EQ(reading.faults, faults);
    }
}

TEST_P(UmfJoinerTest, anEndWithoutLastIsTold) {
    std::vector<Bytes> const five = fivePackets();
    for (std::size_t count = 1; count < five.size(); ++count) {
        Sketch sketch;
        sketch.add(nextUmf());
        for (std::size_t i = 0; i < count; ++i) {
            sketch.add(five[i]);
        }
        sketch.add(endOfStream());
        Reading const reading = read(sketch.bytes);
        EXPECT_EQ(reading.offsets, sketch.offsets());
        EXPECT_EQ(reading.umfs, Umfs({sketch.umf({0}, nextPayload)}));
        EXPECT_EQ(reading.faults, Faults({withoutLast(172)}));
    }
}

TEST_P(UmfJoinerTest, aPacketOrderThatThereIsNotEndsASequence) {
    for (unsigned const order : {4U, 5U, 128U, 255U}) {
        std::vector<Bytes> const five = fivePackets();
        Sketch sketch;
        sketch.add(five[0]).add(five[1]).add(umfPacket(order, pattern(100))).add(five[3]);
        sketch.add(five[4]).add(nextUmf());
        Reading const reading = read(sketch.bytes);
        EXPECT_EQ(reading.offsets, sketch.offsets());
        EXPECT_EQ(reading.umfs, Umfs({sketch.umf({5}, nextPayload)}));
        // What would have continued the UMF isn't told once more.
        EXPECT_EQ(reading.faults,
                  Faults({refusedPacket({248, 124}, "badDecodeData"), withoutLast(0)}));
    }
}

TEST_P(UmfJoinerTest, aPacketWithoutRoomForItsPreambleEndsASequence) {
    for (std::uint32_t size = 0; size < 5; ++size) {
        std::vector<Bytes> const five = fivePackets();
        Sketch sketch;
        sketch.add(five[0]).add(packet(umfType, Bytes().fill(size))).add(five[1]).add(five[4]);
        sketch.add(nextUmf());
        Reading const reading = read(sketch.bytes);
        EXPECT_EQ(reading.offsets, sketch.offsets());
        EXPECT_EQ(reading.umfs, Umfs({sketch.umf({4}, nextPayload)}));
        EXPECT_EQ(reading.faults,
                  Faults({refusedPacket({124, 16 + size}, "badDecodeSize"), withoutLast(0)}));
    }
}

TEST_P(UmfJoinerTest, aRefusedPacketOutsideASequenceEndsNone) {
    Sketch sketch;
    sketch.add(umfPacket(9, pattern(11))).add(nextUmf()).add(packet(umfType, Bytes().fill(4)));
    sketch.add(fivePackets());
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.umfs,
              Umfs({sketch.umf({1}, nextPayload), sketch.umf({3, 4, 5, 6, 7}, payload)}));
    EXPECT_EQ(reading.faults, Faults({refusedPacket({0, 32}, "badDecodeData"),
                                      refusedPacket(sketch.places[2], "badDecodeSize")}));
}

TEST_P(UmfJoinerTest, whatAnEarlierBreakPassedOverIsNoExcuseForTheNext) {
    std::vector<Bytes> const five = fivePackets();
    Sketch sketch;
    sketch.add(five[0]).add(umfPacket(7, {})).add(five[1]).add(nextUmf()).add(five[2]);
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.umfs, Umfs({sketch.umf({3}, nextPayload)}));
    EXPECT_EQ(reading.faults, Faults({refusedPacket(sketch.places[1], "badDecodeData"),
                                      withoutLast(0), withoutFirst(sketch.places[4], "Middle")}));
}

// Lengths that disagree.

TEST_P(UmfJoinerTest, aClaimOfMoreThanThePacketHoldsDropsTheUmf) {
    std::vector<Bytes> const five = fivePackets();
    for (std::uint32_t const claimed : {104U, 5000U, 0x7FFFFFFFU, 0x80000000U, 0xFFFFFFFFU}) {
        for (std::size_t broken = 0; broken < five.size(); ++broken) {
            // 100 bytes and 3 of padding.
            unsigned const order = broken == 0 ? first : broken == 4 ? last : middle;
            Sketch sketch;
            sketch.add(video());
            for (std::size_t i = 0; i < five.size(); ++i) {
                sketch.add(i == broken ? claiming(order, claimed, pattern(103)) : five[i]);
            }
            sketch.add(nextUmf());
            Faults faults{wrongClaim(sketch.places[broken + 1], claimed, 103)};
            if (broken != 0) {
                faults.push_back(withoutLast(72));
            }
            Reading const reading = read(sketch.bytes);
            EXPECT_EQ(reading.offsets, sketch.offsets());
            EXPECT_EQ(reading.umfs, Umfs({sketch.umf({6}, nextPayload)}));
            EXPECT_EQ(reading.faults, faults) << broken;
        }
    }
}

TEST_P(UmfJoinerTest, aClaimOfMoreThanTheOnlyPacketHoldsLosesNothingBehindIt) {
    for (std::uint32_t const claimed : {1U, 600U, 0xFFFFFFFFU}) {
        Sketch sketch;
        sketch.add(claiming(only, claimed, claimed == 1 ? Bytes() : payload)).add(video());
        sketch.add(nextUmf());
        Reading const reading = read(sketch.bytes);
        EXPECT_EQ(reading.offsets, sketch.offsets());
        EXPECT_EQ(reading.umfs, Umfs({sketch.umf({2}, nextPayload)}));
        EXPECT_EQ(reading.faults, Faults({wrongClaim(sketch.places[0], claimed,
                                                     claimed == 1 ? 0 : payload.size())}));
    }
}

TEST_P(UmfJoinerTest, upToThreeBytesBehindTheFragmentArePadding) {
    for (std::size_t padding = 0; padding <= 3; ++padding) {
        Sketch sketch;
        sketch.add(claiming(only, 480, prefix(payload, 480).fill(padding, 0xEE))).add(nextUmf());
        Reading const reading = read(sketch.bytes);
        EXPECT_EQ(reading.offsets, sketch.offsets());
        EXPECT_EQ(reading.umfs, Umfs({sketch.umf({0}, payload), sketch.umf({1}, nextPayload)}));
        EXPECT_EQ(reading.faults, Faults());
    }
}

TEST_P(UmfJoinerTest, morePaddingIsToldAndTheUmfComes) {
    std::vector<Bytes> const five = fivePackets();
    for (std::size_t const padding : {4U, 5U, 400U, 40000U}) {
        for (std::size_t padded = 0; padded < five.size(); ++padded) {
            unsigned const order = padded == 0 ? first : padded == 4 ? last : middle;
            std::uint32_t const size = padded == 4 ? 80 : 100;
            Bytes const fragment =
                Bytes().text({reinterpret_cast<char const*>(payload.data()) + 100 * padded, size});
            Sketch sketch;
            for (std::size_t i = 0; i < five.size(); ++i) {
                sketch.add(i == padded ? claiming(order, size, Bytes(fragment).fill(padding, 0xEE))
                                       : five[i]);
            }
            sketch.add(nextUmf());
            Reading const reading = read(sketch.bytes);
            EXPECT_EQ(reading.offsets, sketch.offsets());
            EXPECT_EQ(reading.umfs,
                      Umfs({sketch.umf({0, 1, 2, 3, 4}, payload), sketch.umf({5}, nextPayload)}));
            EXPECT_EQ(reading.faults,
                      Faults({wrongClaim(sketch.places[padded], size, size + padding)}));
        }
    }
}

TEST_P(UmfJoinerTest, aClaimOfLessThanTheFragmentDropsTheUmf) {
    std::vector<Bytes> const five = fivePackets();
    for (std::uint32_t const claimed : {0U, 1U, 99U}) {
        Sketch sketch;
        sketch.add(five[0]).add(claiming(middle, claimed, pattern(103))).add(five[2]).add(five[3]);
        sketch.add(five[4]).add(video()).add(nextUmf());
        Reading const reading = read(sketch.bytes);
        EXPECT_EQ(reading.offsets, sketch.offsets());
        EXPECT_EQ(reading.umfs, Umfs({sketch.umf({6}, nextPayload)}));
        EXPECT_EQ(reading.faults,
                  Faults({wrongClaim({124, 124}, claimed, 103),
                          lostBytes(sketch.whole({0, 1, 2, 3, 4}), 480, 380 + claimed)}));
    }
}

TEST(UmfJoiner, aClaimTakesNoMemory) {
    for (std::uint32_t const claimed : {0x00400000U, 0x7FFFFFFFU, 0xFFFFFFFFU}) {
        for (unsigned const order : {middle, first, last, only}) {
            Bytes const stream = umfPacket(first, payload)
                                     .add(claiming(order, claimed, pattern(100)))
                                     .add(nextUmf());
            MemorySource source(Span(stream.data(), stream.size()));
            PacketReader reader(source);
            AllocationLimit const limit(std::size_t{16} << 10);
            unsigned umfs = 0;
            while (StreamPacket const* const packet = reader.next()) {
                umfs += packet->umf != nullptr ? 1 : 0;
            }
            EXPECT_EQ(umfs, 1U);
        }
    }
}

// Bytes that are lost between the packets.

TEST_P(UmfJoinerTest, aUmfThatLacksAPacketIsDropped) {
    for (std::size_t broken = 1; broken < 4; ++broken) {
        Sketch sketch;
        sketch.add(fivePackets()).add(nextUmf());
        sketch.bytes[sketch.places[broken].offset] = 0xFF;
        std::vector<std::size_t> rest{0, 1, 2, 3, 4};
        rest.erase(rest.begin() + static_cast<std::ptrdiff_t>(broken));
        Reading const reading = read(sketch.bytes);
        EXPECT_EQ(reading.umfs, Umfs({sketch.umf({5}, nextPayload)}));
        EXPECT_EQ(reading.faults, Faults({passedOver(sketch.places[broken].offset, 124),
                                          lostBytes(sketch.whole(rest), 480, 380)}));
    }
}

TEST_P(UmfJoinerTest, aUmfThatLacksItsEndsIsTold) {
    Sketch withoutBegin;
    withoutBegin.add(fivePackets()).add(nextUmf());
    withoutBegin.bytes[0] = 0xFF;
    Reading reading = read(withoutBegin.bytes);
    EXPECT_EQ(reading.umfs, Umfs({withoutBegin.umf({5}, nextPayload)}));
    EXPECT_EQ(reading.faults,
              Faults({passedOver(0, 124), withoutFirst({124, 124}, "Middle"),
                      withoutFirst({248, 124}, "Middle"), withoutFirst({372, 124}, "Middle"),
                      withoutFirst({496, 104}, "Last")}));

    Sketch withoutEnd;
    withoutEnd.add(fivePackets()).add(nextUmf());
    withoutEnd.bytes[496] = 0xFF;
    reading = read(withoutEnd.bytes);
    EXPECT_EQ(reading.umfs, Umfs({withoutEnd.umf({5}, nextPayload)}));
    EXPECT_EQ(reading.faults, Faults({passedOver(496, 104), withoutLast(0)}));
}

TEST_P(UmfJoinerTest, aUmfThatLosesAFirstAndALastIsNotJoinedAcrossThem) {
    // The Last of one UMF and the First of the next: what is left would look like one UMF.
    Bytes const other = plainPayload(700, 50);
    Sketch sketch;
    sketch.add(umfPackets(payload, 300)).add(umfPackets(other, 300)).add(nextUmf());
    sketch.bytes[sketch.places[1].offset] = 0xFF;
    sketch.bytes[sketch.places[2].offset] = 0xFF;
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.umfs, Umfs({sketch.umf({5}, nextPayload)}));
    // 180 bytes of the first are gone, 400 of the second came.
    EXPECT_EQ(reading.faults,
              Faults({passedOver(324, 204 + 324), lostBytes(sketch.whole({0, 3, 4}), 480, 700)}));
}

TEST_P(UmfJoinerTest, garbageBetweenItsPacketsCostsAUmfNothing) {
    std::vector<Bytes> const five = fivePackets();
    Sketch sketch;
    sketch.add(five[0]).add(five[1]).junk(Bytes().fill(33, 0x55)).add(five[2]).add(five[3]);
    sketch.add(five[4]).junk(Bytes().fill(20, 0x55)).add(nextUmf());
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.umfs,
              Umfs({sketch.umf({0, 1, 2, 3, 4}, payload), sketch.umf({5}, nextPayload)}));
    EXPECT_EQ(reading.faults,
              Faults({passedOver(248, 33), passedOver(sketch.places[4].offset + 104, 20)}));
}

TEST_P(UmfJoinerTest, garbageInFrontOfAUmfIsNotHeldAgainstIt) {
    // The total length of its own words is nobody's business as long as nothing is lost.
    Bytes odd = nextPayload;
    setWordAt(odd, 0, 5000);
    Sketch sketch;
    sketch.junk(Bytes().fill(21, 0x55)).add(umfPackets(odd, 100));
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.umfs, Umfs({sketch.umf({0, 1}, odd)}));
    EXPECT_EQ(reading.faults, Faults({passedOver(0, 21)}));
}

TEST_P(UmfJoinerTest, aHeaderThatClaimsTheNextPacketsCostsTheUmfNothing) {
    Sketch sketch;
    sketch.add(fivePackets()).add(nextUmf());
    sketch.claimLength(1, 124 + 60); // ends in the middle of the next packet
    Reading const reading = read(sketch.bytes);
    Umf expected = sketch.umf({0, 1, 2, 3, 4}, payload);
    expected.packets[1].length = 184;
    EXPECT_EQ(reading.umfs, Umfs({expected, sketch.umf({5}, nextPayload)}));
    EXPECT_EQ(reading.faults,
              Faults({wrongClaim({124, 184}, 100, 163),
                      {StreamFault::resync, 124, 108,
                       "this umfFile packet claims 184 bytes, but packets go on inside it at "
                       "offset 248"}}));
}

TEST_P(UmfJoinerTest, aHeaderThatHidesAPacketOfTheUmfDropsIt) {
    Sketch sketch;
    sketch.add(fivePackets()).add(nextUmf());
    sketch.claimLength(1, 248); // the third packet is inside it
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.umfs, Umfs({sketch.umf({5}, nextPayload)}));
    EXPECT_EQ(reading.faults,
              Faults({wrongClaim({124, 248}, 100, 227), lostBytes({0, 600}, 480, 380)}));
}

TEST_P(UmfJoinerTest, aPacketThatIsTooLargeIsPassedOverAndTheUmfDropped) {
    std::vector<Bytes> const five = fivePackets();
    Sketch sketch;
    sketch.add(five[0]).add(five[1]);
    sketch.add(claiming(middle, largestPacket + 1 - 21, Bytes().fill(largestPacket + 1 - 21)));
    sketch.add(five[3]).add(five[4]).add(nextUmf());
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.offsets,
              (std::vector<std::uint64_t>{0, 124, sketch.places[3].offset, sketch.places[4].offset,
                                          sketch.places[5].offset}));
    EXPECT_EQ(reading.umfs, Umfs({sketch.umf({5}, nextPayload)}));
    EXPECT_EQ(reading.faults,
              Faults({{StreamFault::oversize, 248, 4194305,
                       "this umfFile packet claims 4194305 bytes, more than a umfFile packet can "
                       "need; it is passed over"},
                      lostBytes(sketch.whole({0, 1, 3, 4}), 480, 380)}));
}

// Nothing of an earlier UMF.

/// A UMF with everything: 424 bytes in front of the user data, 321 of it, index, XML, 20 bytes.
UmfContent fullContent(char const* label = "Programme") {
    UmfContent content;
    content.addTrack({'0', 'M', 1});
    content.addTrack({'1', 'A', 1});
    content.userData = umfPair(0, "Title", Bytes().text("abcde"));
    content.hasIndex = true;
    content.xml = GxfTesting::utf16(
        std::string("<?xml version=\"1.0\"?><Asset><Data><Track trackType=\"AudioTrack\" "
                    "trackNumber=\"2\" trackLabel=\"") +
        label + "\"/></Data></Asset>");
    content.rest = pattern(20);
    return content;
}

void expectNoTail(UmfPacket const& packet) {
    EXPECT_FALSE(packet.umfIndex.valid);
    EXPECT_EQ(packet.umfIndex.getXmlLength(), 0U);
    EXPECT_EQ(packet.preservedData[0].size(), 0U);
    EXPECT_EQ(packet.preservedData[1].size(), 0U);
    EXPECT_EQ(packet.fillerData.size(), 0U);
    EXPECT_FALSE(packet.xmlTree.isValid());
    EXPECT_EQ(packet.xmlTree.getXmlTracks().size(), 0U);
}

void expectFull(UmfPacket const& packet, char const* label) {
    UmfContent const content = fullContent(label);
    EXPECT_TRUE(packet.isValid());
    EXPECT_EQ(packet.decodedPayloadSize, content.size());
    EXPECT_EQ(packet.trackDescs.size(), 2U);
    EXPECT_EQ(packet.userData.nItems(), 1U);
    EXPECT_TRUE(packet.umfIndex.valid);
    EXPECT_EQ(bytesOf(packet.preservedData[0]), content.xml);
    EXPECT_EQ(bytesOf(packet.preservedData[1]), content.rest);
    ASSERT_EQ(packet.xmlTree.getXmlTracks().size(), 1U);
    EXPECT_STREQ(packet.xmlTree.getXmlTracks()[0].getLabel(), label);
}

/// A UMF that has tracks, and ends behind them.
Bytes bareUmf() {
    UmfContent content;
    content.addTrack({'0', 'M', 1});
    return content.payload();
}

TEST_P(UmfJoinerTest, aUmfHasNothingOfTheOneBefore) {
    for (bool const keeps : {false, true}) {
        for (std::size_t const fragment : {32768U, 200U}) {
            Sketch sketch;
            sketch.add(umfPackets(fullContent("A").payload(), fragment));
            sketch.add(umfPackets(bareUmf(), fragment));
            sketch.add(umfPackets(fullContent("B").payload(), fragment));
            sketch.add(umfPackets(bareUmf(), fragment));
            StreamSource const source(GetParam(), sketch.bytes);
            NotingReader reader(*source);
            std::vector<StreamUmf> kept;
            std::vector<AutoRefPtr<Packet>> keptPackets;
            unsigned count = 0;
            while (StreamPacket const* const packet = reader->next()) {
                AutoRefPtr<UmfPacket> const single = packet->packet->getUmfPacket();
                ASSERT_NE(single.get(), nullptr);
                expectNoTail(*single);
                EXPECT_EQ(single->trackDescs.size(), 0U);
                EXPECT_EQ(single->userData.nItems(), 0U);
                if (packet->umf == nullptr) {
                    continue;
                }
                UmfPacket const& umf = *packet->umf->packet;
                ++count;
                if (count % 2 == 1) {
                    expectFull(umf, count == 1 ? "A" : "B");
                } else {
                    EXPECT_TRUE(umf.isValid());
                    EXPECT_EQ(umf.trackDescs.size(), 1U);
                    EXPECT_EQ(umf.mediaDescs.size(), 1U);
                    EXPECT_EQ(umf.userData.nItems(), 0U);
                    expectNoTail(umf);
                }
                if (keeps) {
                    kept.push_back(*packet->umf);
                    keptPackets.push_back(packet->packet);
                }
            }
            EXPECT_EQ(count, 4U);
            EXPECT_EQ(reader.faults, Faults());
            if (keeps) {
                ASSERT_EQ(kept.size(), 4U);
                expectFull(*kept[0].packet, "A");
                expectNoTail(*kept[1].packet);
                expectFull(*kept[2].packet, "B");
                expectNoTail(*kept[3].packet);
                EXPECT_LT(kept[0].offset(), kept[1].offset());
            }
        }
    }
}

TEST_P(UmfJoinerTest, aRefusedUmfHasNothingOfTheOneBefore) {
    Bytes broken = fullContent().payload();
    setWordAt(broken, 4, 4); // a version that there isn't
    Sketch sketch;
    sketch.add(umfPackets(fullContent().payload())).add(umfPackets(broken));
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    ASSERT_NE(reader.nextUmf(), nullptr);
    StreamUmf const* const umf = reader.nextUmf();
    ASSERT_NE(umf, nullptr);
    EXPECT_FALSE(umf->packet->isValid());
    EXPECT_EQ(umf->packet->trackDescs.size(), 0U);
    EXPECT_EQ(umf->packet->userData.nItems(), 0U);
    expectNoTail(*umf->packet);
}

// What the final decode comes to.

TEST_P(UmfJoinerTest, aRefusedUmfComesAsNotValid) {
    Bytes broken = payload;
    setWordAt(broken, 4, 4); // a version that there isn't
    Sketch sketch;
    sketch.add(video()).add(umfPackets(broken, 200)).add(nextUmf());
    Reading const reading = read(sketch.bytes);
    EXPECT_EQ(reading.umfs, Umfs({{sketch.places[3].offset, sketch.some({1, 2, 3}), false, 10, {}},
                                  sketch.umf({4}, nextPayload)}));
    EXPECT_EQ(reading.faults, Faults({{StreamFault::payload, 72, sketch.whole({1, 2, 3}).length,
                                       "the UMF that begins here is refused, badDecodeData"}}));
}

TEST_P(UmfJoinerTest, aUmfOfEveryShortLengthIsRefused) {
    for (std::uint32_t size = 0; size < 104; ++size) {
        Bytes const cut = prefix(plainPayload(104), size);
        Sketch sketch;
        sketch.add(umfPacket(only, cut)).add(nextUmf());
        Reading const reading = read(sketch.bytes);
        ASSERT_EQ(reading.umfs,
                  Umfs({{0, sketch.some({0}), false, 9, {}}, sketch.umf({1}, nextPayload)}))
            << size;
        ASSERT_EQ(reading.faults, Faults({{StreamFault::payload, 0, sketch.places[0].length,
                                           "the UMF that begins here is refused, badDecodeSize"}}))
            << size;
    }
}

TEST_P(UmfJoinerTest, aUmfWithABadIndexIsToldAndComes) {
    UmfContent content = fullContent();
    Bytes broken = content.payload();
    setWordAt(broken, 44, 15); // the length of the index
    Sketch sketch;
    sketch.add(umfPackets(broken)).add(nextUmf());
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    StreamUmf const* const umf = reader.nextUmf();
    ASSERT_NE(umf, nullptr);
    EXPECT_TRUE(umf->packet->isValid());
    EXPECT_EQ(umf->result.getType(), OpResult::Warning);
    EXPECT_EQ(umf->result.getCode(), 10);
    EXPECT_EQ(umf->packet->userData.nItems(), 1U);
    EXPECT_EQ(umf->packet->preservedData[0].size(), 0U);
    ASSERT_NE(reader.nextUmf(), nullptr);
    EXPECT_EQ(reader.nextUmf(), nullptr);
    EXPECT_EQ(reader.faults,
              Faults({{StreamFault::payload, 0, sketch.places[0].length,
                       "the tail of the UMF that begins here is refused, badDecodeData: UMF index "
                       "size 15b != 16b"}}));
}

TEST_P(UmfJoinerTest, aUmfWithoutADocumentInItsXmlIsToldAndComes) {
    UmfContent content = fullContent();
    content.xml = pattern(200);
    Sketch sketch;
    sketch.add(umfPackets(content.payload()));
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    StreamUmf const* const umf = reader.nextUmf();
    ASSERT_NE(umf, nullptr);
    EXPECT_TRUE(umf->packet->isValid());
    EXPECT_EQ(umf->result.getCode(), 19);
    EXPECT_EQ(bytesOf(umf->packet->preservedData[0]), pattern(200));
    EXPECT_EQ(reader.faults, Faults({{StreamFault::payload, 0, sketch.places[0].length,
                                      "the tail of the UMF that begins here is refused, no xml "
                                      "data: could not locate xml start"}}));
}

TEST_P(UmfJoinerTest, xmlThatTheParserRefusesIsToldInOneLine) {
    std::string const document = "<?xml version=\"1.0\"?><Asset><Data></Asset>";
    // The parser's own words and its number of the failure.
    XmlDocument const parsed(document);
    std::string words = xmlGetLastError()->message;
    words.erase(words.find_last_not_of('\n') + 1);
    words = "err=" + std::to_string(xmlGetLastError()->code) + ":(" + words + ")";

    UmfContent content = fullContent();
    content.xml = GxfTesting::utf16(document);
    Sketch sketch;
    sketch.add(umfPackets(content.payload(), 300)).add(nextUmf());
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    StreamUmf const* const umf = reader.nextUmf();
    ASSERT_NE(umf, nullptr);
    EXPECT_TRUE(umf->packet->isValid());
    EXPECT_EQ(umf->result.getCode(), 22);
    EXPECT_EQ(umf->packet->preservedData[0].size(), content.xml.size());
    EXPECT_EQ(bytesOf(umf->packet->preservedData[1]), content.rest);
    ASSERT_NE(reader.nextUmf(), nullptr);
    EXPECT_EQ(
        reader.faults,
        Faults({{StreamFault::payload, 0, sketch.bytes.size() - nextUmf().size(),
                 "the tail of the UMF that begins here is refused, xml decode failed: " + words}}));
}

TEST(UmfJoiner, aFailureOfSomebodyElseDoesNotSpoilTheXml) {
    Bytes const stream = joined(umfPackets(fullContent().payload()));
    MemorySource source(Span(stream.data(), stream.size()));
    NotingReader reader(source);
    errno = ENOTTY;
    StreamUmf const* const umf = reader.nextUmf();
    ASSERT_NE(umf, nullptr);
    EXPECT_EQ(umf->result.getType(), OpResult::Ok);
    // Number 2 of the document is the track A1.
    UmfTrackNum const number(trackTypeEncodingAudio, static_cast<TrackNumberEncoding>('1'));
    EXPECT_NE(umf->packet->getXmlTrack(number), nullptr);
    EXPECT_EQ(reader.faults, Faults());
}

// Cut streams.

TEST_P(UmfJoinerTest, aUmfCutAtAnyByteIsTold) {
    Sketch sketch;
    sketch.add(nextUmf()).add(umfPackets(plainPayload(120), 50));
    ASSERT_EQ(sketch.places, Places({{0, 172}, {172, 72}, {244, 72}, {316, 44}}));
    for (std::uint64_t size = 172; size <= 360; ++size) {
        std::size_t const packets = size < 244 ? 1 : size < 316 ? 2 : size < 360 ? 3 : 4;
        std::uint64_t const begin = sketch.places[packets - 1].offset +
                                    sketch.places[packets - 1].length; // of the packet that is cut
        std::uint64_t const present = size - begin;
        Faults faults;
        if (present >= 16) {
            faults.push_back(cutOff(begin, sketch.places[packets].length - present));
        } else if (present != 0) {
            faults.push_back({StreamFault::resync, begin, present,
                              packetText(present) + " at the end " + (present == 1 ? "is" : "are") +
                                  " no packet"});
        }
        if (packets == 2 || packets == 3) {
            faults.push_back(withoutLast(172));
        }
        Reading const reading = read(prefix(sketch.bytes, size));
        ASSERT_EQ(reading.offsets.size(), packets) << size;
        ASSERT_EQ(reading.umfs.size(), packets == 4 ? 2U : 1U) << size;
        ASSERT_EQ(reading.umfs[0], sketch.umf({0}, nextPayload)) << size;
        ASSERT_EQ(reading.faults, faults) << size;
    }
}

// Seeking.

TEST_P(UmfJoinerTest, whatContinuesAUmfFromInFrontOfASeekIsNoFault) {
    Sketch sketch;
    sketch.add(fivePackets()).add(video()).add(nextUmf()).add(umfPacket(last, pattern(9)));
    for (std::size_t to = 1; to < 6; ++to) {
        StreamSource const source(GetParam(), sketch.bytes);
        NotingReader reader(*source);
        reader->seek(sketch.places[to].offset);
        Reading const reading = reader.readOn();
        EXPECT_EQ(reading.offsets.size(), 8 - to);
        EXPECT_EQ(reading.umfs, Umfs({sketch.umf({6}, nextPayload)}));
        EXPECT_EQ(reading.faults, Faults({withoutFirst(sketch.places[7], "Last")}));
    }
}

TEST_P(UmfJoinerTest, seekLeavesAUmfInTheMiddleWithoutAFault) {
    Sketch sketch;
    sketch.add(fivePackets()).add(video()).add(nextUmf());
    for (std::size_t read = 1; read < 5; ++read) {
        StreamSource const source(GetParam(), sketch.bytes);
        NotingReader reader(*source);
        for (std::size_t i = 0; i < read; ++i) {
            ASSERT_NE(reader->next(), nullptr);
        }
        // The Last of the same UMF doesn't complete what was left behind.
        reader->seek(sketch.places[4].offset);
        Reading const reading = reader.readOn();
        EXPECT_EQ(reading.umfs, Umfs({sketch.umf({6}, nextPayload)}));
        EXPECT_EQ(reading.faults, Faults());
    }
}

TEST_P(UmfJoinerTest, aUmfBehindASeekIsJoined) {
    Sketch sketch;
    sketch.add(fivePackets()).add(fivePackets());
    StreamSource const source(GetParam(), sketch.bytes);
    NotingReader reader(*source);
    ASSERT_NE(reader->next(), nullptr);
    reader->seek(sketch.places[5].offset);
    Reading const reading = reader.readOn();
    EXPECT_EQ(reading.umfs, Umfs({sketch.umf({5, 6, 7, 8, 9}, payload)}));
    EXPECT_EQ(reading.faults, Faults());
}

TEST(UmfJoiner, seekBackToTheBeginningReadsAUmfAgain) {
    Sketch sketch;
    sketch.add(fivePackets());
    MemorySource source(Span(sketch.bytes.data(), sketch.bytes.size()));
    NotingReader reader(source);
    for (unsigned i = 0; i < 3; ++i) {
        ASSERT_NE(reader->next(), nullptr);
    }
    reader->seek(0);
    for (unsigned i = 0; i < 2; ++i) {
        Reading const reading = reader.readOn();
        EXPECT_EQ(reading.umfs, Umfs({sketch.umf({0, 1, 2, 3, 4}, payload)}));
        EXPECT_EQ(reading.faults, Faults());
        reader->seek(0);
    }
}

TEST(UmfJoiner, inFrontOfTheBeginningThereIsNoUmf) {
    Bytes const stream = umfPacket(last, pattern(9));
    MemorySource source(Span(stream.data(), stream.size()));
    NotingReader reader(source);
    reader->seek(0);
    EXPECT_EQ(reader.readOn().faults, Faults({withoutFirst({0, 32}, "Last")}));
}

// Bounds.

/// A file of UMF packets of the largest size, which hold `size` bytes in all and are zero behind
/// the UMF's front, and of one more UMF.
class LargeUmf {
  public:
    explicit LargeUmf(std::uint32_t size) {
        constexpr std::uint32_t fragment = largestPacket - 21;
        Bytes front = plainPayload(frontSize);
        setWordAt(front, 0, size);
        for (std::uint32_t at = 0; at < size; at += fragment) {
            std::uint32_t const count = std::min(fragment, size - at);
            std::uint32_t const padding = (4 - (21 + count) % 4) % 4;
            unsigned const order = at == 0 ? first : at + count == size ? last : middle;
            Bytes start = header(umfType, 21 + count + padding).u8(order).u32(count);
            put(at == 0 ? start.add(front) : start);
            m_end += 21 + count + padding;
            ++packets;
        }
        put(nextUmf());
    }

    std::string const& path() const { return m_file.path(); }
    std::uint64_t end() const { return m_end; }

    unsigned packets = 0;

  private:
    void put(Bytes const& bytes) {
        EXPECT_EQ(
            ::pwrite(m_file.descriptor(), bytes.data(), bytes.size(), static_cast<off_t>(m_end)),
            static_cast<ssize_t>(bytes.size()));
    }

    TemporaryFile m_file;
    std::uint64_t m_end = 0;
};

TEST(LargestUmf, comesWhole) {
    LargeUmf const large(largestUmf);
    std::string error;
    auto const source = FileSource::open(large.path(), error);
    ASSERT_NE(source, nullptr) << error;
    NotingReader reader(*source);
    StreamUmf const* umf = reader.nextUmf();
    ASSERT_NE(umf, nullptr);
    EXPECT_TRUE(umf->packet->isValid());
    EXPECT_EQ(umf->packet->decodedPayloadSize, largestUmf);
    EXPECT_EQ(umf->packet->preservedData[1].size(), largestUmf - 104);
    EXPECT_EQ(umf->packets.size(), 17U);
    EXPECT_EQ(umf->packet->getCodedLength(), large.end());
    umf = reader.nextUmf();
    ASSERT_NE(umf, nullptr);
    EXPECT_EQ(umf->offset(), large.end());
    EXPECT_EQ(reader.nextUmf(), nullptr);
    EXPECT_EQ(reader.faults, Faults());
}

TEST(LargestUmf, isDroppedWithOneByteMore) {
    // What follows the packet that is one too many is passed over without a word.
    for (std::uint32_t const size : {largestUmf + 1, largestUmf + 3 * largestPacket}) {
        LargeUmf const large(size);
        std::string error;
        auto const source = FileSource::open(large.path(), error);
        ASSERT_NE(source, nullptr) << error;
        NotingReader reader(*source);
        // Twice the largest one, for a buffer that doubles.
        AllocationLimit const limit(std::size_t{2} * largestUmf);
        StreamUmf const* const umf = reader.nextUmf();
        ASSERT_NE(umf, nullptr);
        EXPECT_EQ(umf->offset(), large.end());
        EXPECT_EQ(reader.nextUmf(), nullptr);
        std::uint64_t const gathered = std::min<std::uint64_t>(size, 17ULL * (largestPacket - 21));
        EXPECT_EQ(reader.faults,
                  Faults({{StreamFault::payload, 0, gathered,
                           "the UMF that begins here has more than 67108864 bytes; it is "
                           "dropped"}}));
    }
}

TEST(UmfJoiner, faultsNeedNoHandler) {
    Sketch sketch;
    sketch.add(umfPacket(last, payload)).add(umfPacket(first, payload)).add(nextUmf());
    sketch.add(claiming(only, 900, payload)).add(umfPacket(only, pattern(60)));
    sketch.add(umfPacket(first, payload));
    MemorySource source(Span(sketch.bytes.data(), sketch.bytes.size()));
    PacketReader reader(source);
    unsigned umfs = 0;
    while (StreamPacket const* const packet = reader.next()) {
        umfs += packet->umf != nullptr ? 1 : 0;
    }
    EXPECT_EQ(umfs, 2U);
}

TEST(UmfJoiner, leavesNothingBehind) {
    Sketch sketch;
    sketch.add(fivePackets()).add(umfPackets(fullContent().payload(), 100));
    sketch.add(umfPacket(first, payload)).add(umfPacket(8, {}));
    std::int64_t const before = liveObjects();
    std::int64_t const arraysBefore = liveArrays();
    {
        MemorySource source(Span(sketch.bytes.data(), sketch.bytes.size()));
        PacketReader reader(source);
        std::vector<StreamUmf> kept;
        while (StreamPacket const* const packet = reader.next()) {
            if (packet->umf != nullptr) {
                kept.push_back(*packet->umf);
            }
        }
        EXPECT_EQ(kept.size(), 2U);
    }
    EXPECT_EQ(liveObjects(), before);
    EXPECT_EQ(liveArrays(), arraysBefore);
}

} // namespace
