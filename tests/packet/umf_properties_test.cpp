#include <algorithm>
#include <cstring>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include <testing/bytes.h>
#include <testing/capture.h>
#include <testing/umf_builder.h>

using namespace GxfTypes;
using namespace GxfTesting;

// What holds for any UMF, over UMFs that are generated from fixed seeds.

namespace {

class Random {
  public:
    explicit Random(unsigned seed) : m_engine(seed) {}
    unsigned below(unsigned n) { return static_cast<unsigned>(m_engine() % n); }
    bool oneIn(unsigned n) { return below(n) == 0; }
    Bytes bytes(unsigned n) {
        Bytes bytes;
        for (unsigned i = 0; i < n; ++i) {
            bytes.u8(below(256));
        }
        return bytes;
    }
    /// Letters and digits.
    std::string word(unsigned length) {
        std::string text;
        for (unsigned i = 0; i < length; ++i) {
            text += "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789"[below(62)];
        }
        return text;
    }

  private:
    std::mt19937 m_engine;
};

Bytes slice(Bytes const& bytes, std::size_t begin, std::size_t count) {
    return Bytes().text({reinterpret_cast<char const*>(bytes.data()) + begin, count});
}

void overwrite(Bytes& bytes, std::size_t at, Bytes const& with) {
    for (std::size_t i = 0; i < with.size(); ++i) {
        bytes[at + i] = with.vector()[i];
    }
}

std::string document(Random& random) {
    char const* const types[] = {"AudioTrack", "MpegStdDefVideoTrack", "TimeCodeTrack"};
    std::string text = "<?xml version=\"1.0\"?><Asset><Data>";
    for (unsigned i = random.below(5); i > 0; --i) {
        text += std::string("<Track trackType=\"") + types[random.below(3)] + "\" trackNumber=\"" +
                std::to_string(i) + "\" trackLabel=\"" + random.word(random.below(30)) + "\"/>";
    }
    return text + "</Data></Asset>";
}

struct Pair {
    unsigned id;
    std::string name;
    Bytes value;
};

/// A UMF that the library writes as it reads it, and the pairs in it.
struct Generated {
    UmfContent content;
    std::vector<Pair> pairs;
    Bytes material;

    void composePairs() {
        content.userData = {};
        for (Pair const& pair : pairs) {
            content.userData.add(umfPair(pair.id, pair.name, pair.value));
        }
    }
    unsigned nextId() const {
        for (unsigned id = 0;; ++id) {
            if (std::none_of(pairs.begin(), pairs.end(),
                             [&](Pair const& pair) { return pair.id == id; })) {
                return id;
            }
        }
    }
    void add(std::string name, Bytes value) {
        pairs.push_back({nextId(), std::move(name), std::move(value)});
        composePairs();
    }
    void remove(std::string const& name) {
        auto const found = std::find_if(pairs.begin(), pairs.end(),
                                        [&](Pair const& pair) { return pair.name == name; });
        if (found != pairs.end()) {
            pairs.erase(found);
        }
        composePairs();
    }
    Bytes payload() const { return withMaterial(content.payload()); }
    Bytes withMaterial(Bytes bytes) const {
        overwrite(bytes, 48, material);
        return bytes;
    }
};

Bytes randomMaterial(Random& random) {
    Bytes bytes = random.bytes(56);
    // One bit of each timecode has no meaning and isn't kept.
    bytes[23] &= 0xEF;
    bytes[27] &= 0xEF;
    return bytes;
}

/// A UMF that takes that many packets.
Generated generate(Random& random, unsigned packets) {
    Generated made;
    made.material = randomMaterial(random);
    for (unsigned i = random.below(8); i > 0; --i) {
        made.content.addTrack({0x30 + i, random.below(2) != 0 ? 0x4DU : 0x41U, random.below(4)});
    }
    for (unsigned i = random.below(9); i > 0; --i) {
        made.add("Pair" + std::to_string(i), random.bytes(1 + random.below(1500)));
    }
    if (!random.oneIn(5)) {
        made.content.hasIndex = true;
        for (unsigned& word : made.content.indexWords) {
            word = random.below(0x10000);
        }
        if (!random.oneIn(4)) {
            made.content.xml =
                random.oneIn(2) ? random.bytes(1 + random.below(2000)) : utf16(document(random));
        }
    }
    // Without an index, 16 bytes behind the user data: its last item asks for them.
    made.content.rest = Bytes().fill(16, 0xEE);
    unsigned const size = (packets - 1) * 32768 + 1 + random.below(32768);
    unsigned const now = made.content.size();
    if (size > now) {
        made.content.rest.add(random.bytes(size - now));
    }
    return made;
}

/// What a rewrite into the size of the old UMF makes of changed content.
struct Fitted {
    Generated made;
    unsigned target = 0;
    unsigned filler = 0;

    bool isTooBig() const { return made.content.size() + filler > target; }
    /// False when it doesn't fit without all that may go.
    bool fit() {
        filler = isTooBig() ? 0 : filler;
        if (isTooBig()) {
            made.content.rest = {};
        }
        if (isTooBig()) {
            made.content.xml = {};
        }
        if (isTooBig()) {
            made.content.hasIndex = false;
        }
        if (isTooBig()) {
            return false;
        }
        filler = target - made.content.size();
        return true;
    }
    Bytes payload() const {
        Bytes bytes = made.payload().fill(filler);
        setWordAt(bytes, 0, target);
        return bytes;
    }
    /// The last item of user data wants 16 bytes behind it.
    bool isReadable() const {
        return made.pairs.empty() ||
               target - made.content.userDataOffset() >= made.content.userData.size() + 16;
    }
};

AutoRefPtr<UmfPacket> decoded(PacketPool& pool, std::vector<Bytes> const& packets) {
    AutoRefPtr<UmfPacket> packet = gathered(pool, packets);
    packet->decodeFinal();
    return packet;
}

AutoRefPtr<UmfPacket> decoded(PacketPool& pool, Bytes const& payload) {
    return decoded(pool, umfPackets(payload));
}

/// Nothing when encode() fails.
Bytes encoded(UmfPacket const& packet) {
    Bytes storage = Bytes().fill(packet.getCodedLength());
    GxfBuffer out = storage.emptyBuffer();
    return packet.encode(out) ? Bytes::occupied(out) : Bytes();
}

/// One packet behind the other, taken apart by the lengths in their headers.
std::vector<Bytes> packetsOf(Bytes const& wire) {
    std::vector<Bytes> packets;
    for (std::size_t at = 0; at + 16 <= wire.size();) {
        std::size_t length = 0;
        for (std::size_t i = 6; i < 10; ++i) {
            length = length << 8 | wire.vector()[at + i];
        }
        if (length < 16 || length > wire.size() - at) {
            ADD_FAILURE() << "a packet of " << length << " bytes at " << at;
            break;
        }
        packets.push_back(slice(wire, at, length));
        at += length;
    }
    return packets;
}

Bytes bytesOf(GxfPreservedData const& data) {
    Bytes bytes;
    for (unsigned i = 0; i < data.size(); ++i) {
        bytes.u8(data.getData()[i]);
    }
    return bytes;
}

void expectPairs(UmfPacket const& packet, std::vector<Pair> const& pairs) {
    ASSERT_EQ(packet.userData.nItems(), pairs.size());
    for (unsigned i = 0; i < pairs.size(); ++i) {
        UmfPacket::UserDataPair const& pair = packet.userData.pairs[i];
        ASSERT_TRUE(pair.isComplete());
        EXPECT_EQ(pair.getKey(), pairs[i].name);
        EXPECT_EQ(pair.getPairKey().get(), 0x70000 + pairs[i].id);
        ASSERT_EQ(pair.valueItem->getNumDataBytes(), pairs[i].value.size() + 2);
        EXPECT_EQ(
            std::memcmp(pair.valueItem->getData(), pairs[i].value.data(), pairs[i].value.size()),
            0);
    }
}

bool addPair(UmfPacket& packet, std::string const& name, Bytes const& value) {
    UmfTrackNum const track(trackTypeEncodingMpeg2Sd, static_cast<TrackNumberEncoding>('0'));
    return packet.userData
        .addUserData(name.c_str(), track, userDataString, value.data(),
                     static_cast<unsigned>(value.size()))
        .success();
}

/// A section as the wire has it, and as the library writes it again.
struct Section {
    Bytes wire;
    Bytes written;
};

/// What the library keeps of the 32 bytes that describe a medium of that type.
Bytes keptOfSpecification(unsigned mediaType, Bytes const& wire) {
    unsigned const shared =
        wire.vector()[mediaType == 5 || mediaType == 6 || mediaType == 10 || mediaType == 11 ? 0
                                                                                             : 24];
    unsigned const aspect = shared / 16 == 8 ? 0x80 : 0x40;
    Bytes kept;
    switch (mediaType) {
    case 2:
        kept = slice(wire, 0, 24);
        break;
    case 3:
        kept = slice(wire, 0, 4);
        break;
    case 4:
    case 7:
    case 9:
        kept = slice(wire, 0, 24).u8(aspect + shared % 16).u8(wire.vector()[25] % 16U);
        break;
    case 5:
    case 6:
    case 10:
        kept.u8(aspect + (shared / 32 % 2 != 0 ? 0x20 : 0)).u8(wire.vector()[1] % 16U);
        break;
    case 11:
        kept.u8(0x80).u8(wire.vector()[1] % 16U);
        break;
    default:
        break;
    }
    return kept.fill(32 - kept.size());
}

/// A media description with all that a stranger may have put into it.
Section mediaSection(Random& random) {
    unsigned const mediaType = 2 + random.below(10);
    Bytes const front = Bytes{160, 0}.add(random.bytes(22));
    std::string const name = random.word(random.below(88));
    Bytes const behindName =
        Bytes{mediaType, 0, 0, 0}.add(random.bytes(12)); // rate, bits, a reserved word
    Bytes specification = random.bytes(32);
    // Levels that aren't numbers equal nothing.
    specification[6] &= 0x0F;
    specification[14] &= 0x0F;
    Section section;
    section.wire.add(front).text(name).u8(0).add(
        random.bytes(87 - static_cast<unsigned>(name.size())));
    section.wire.add(behindName).add(specification);
    section.written.add(front).text(name).fill(88 - name.size());
    section.written.add(behindName).add(keptOfSpecification(mediaType, specification));
    return section;
}

Bytes itemHeader(Random& random, std::uint32_t key, std::size_t dataSize) {
    return Bytes()
        .u32Lsbf(static_cast<std::uint32_t>(16 + dataSize))
        .add(random.bytes(8)) // position, track, sequence
        .u32Lsbf(key);
}

Section keyItem(Random& random, unsigned id) {
    Section section;
    Bytes const header = itemHeader(random, 0x70000 + id, 282);
    Bytes const front = random.bytes(20);
    Bytes const valueSize = random.bytes(4);
    section.wire.add(header).add(front);
    section.written.add(header).add(front);
    for (unsigned const size : {32U, 32U, 80U, 80U, 32U}) {
        std::string const text = random.word(random.below(size));
        auto const used = static_cast<unsigned>(text.size());
        section.wire.text(text).u8(0).add(random.bytes(size - used - 1));
        section.written.text(text).fill(size - used);
    }
    section.wire.add(valueSize).add(random.bytes(2));
    section.written.add(valueSize).fill(2);
    return section;
}

Section otherItem(Random& random, std::uint32_t key) {
    Bytes const data = random.bytes(3 + random.below(200));
    Bytes const bytes = itemHeader(random, key, data.size()).add(data);
    return {bytes, bytes};
}

/// Items in any order; each id occurs in one pair, which comes out with its key in front.
Section userDataSection(Random& random) {
    struct Slot {
        std::optional<Section> key;
        std::optional<Section> value;
        bool keyComesFirst;
    };
    std::vector<Slot> slots;
    std::vector<unsigned> order;
    for (unsigned i = random.below(12); i > 0; --i) {
        Slot slot{{}, {}, random.oneIn(2)};
        unsigned const id = i * 5000;
        unsigned const kind = random.below(5);
        if (kind != 1) {
            slot.value = otherItem(random, (kind == 2 ? 0x90000 : 0x80000) + id);
        }
        if (kind != 0 && kind != 2) {
            slot.key = keyItem(random, id);
        }
        unsigned const place = static_cast<unsigned>(slots.size());
        for (unsigned n = (slot.key ? 1U : 0U) + (slot.value ? 1U : 0U); n > 0; --n) {
            auto const at = random.below(static_cast<unsigned>(order.size()) + 1);
            order.insert(order.begin() + at, place);
        }
        slots.push_back(slot);
    }
    Section section;
    std::vector<bool> seen(slots.size());
    for (unsigned const place : order) {
        Slot const& slot = slots[place];
        bool const isKey = !slot.value || (slot.key && slot.keyComesFirst != seen[place]);
        section.wire.add(isKey ? slot.key->wire : slot.value->wire);
        if (!seen[place]) {
            section.written.add(slot.key ? slot.key->written : Bytes());
            section.written.add(slot.value ? slot.value->written : Bytes());
        }
        seen[place] = true;
    }
    return section;
}

/// Fragments of any size, also of none.
std::vector<Bytes> unevenPackets(Random& random, Bytes const& payload) {
    std::vector<std::size_t> cuts = {0, payload.size()};
    for (unsigned i = random.below(7); i > 0; --i) {
        cuts.push_back(random.below(static_cast<unsigned>(payload.size()) + 1));
    }
    std::sort(cuts.begin(), cuts.end());
    std::vector<Bytes> packets;
    for (std::size_t i = 0; i + 1 < cuts.size(); ++i) {
        bool const begins = i == 0;
        bool const ends = i + 2 == cuts.size();
        unsigned const order = begins ? (ends ? 3 : 1) : (ends ? 2 : 0);
        packets.push_back(umfPacket(order, slice(payload, cuts[i], cuts[i + 1] - cuts[i])));
    }
    return packets;
}

} // namespace

TEST(UmfProperties, WhatIsDecodedIsWrittenBackAsItCame) {
    Random random(1);
    for (unsigned packets = 1; packets <= 5; ++packets) {
        for (unsigned round = 0; round < 12; ++round) {
            SCOPED_TRACE(testing::Message() << packets << " packets, round " << round);
            PacketPool pool;
            Generated const made = generate(random, packets);
            std::vector<Bytes> const wire = umfPackets(made.payload());
            AutoRefPtr<UmfPacket> const packet = decoded(pool, wire);
            ASSERT_TRUE(packet->isValid());
            EXPECT_EQ(packet->getPacketOrder(),
                      wire.size() == 1 ? umfPacketOrderOnly : umfPacketOrderLast);
            EXPECT_EQ(packet->calcPayloadSize(), made.content.size());
            EXPECT_EQ(packet->calcLength(), joined(wire).size());
            EXPECT_EQ(packet->calcXmlOffset(), made.content.xmlOffset());
            EXPECT_EQ(packet->calcIndexOffset(), made.content.indexOffset());
            expectPairs(*packet, made.pairs);

            Bytes const written = encoded(*packet);
            ASSERT_TRUE(written == joined(wire));
            ASSERT_EQ(packet->update().getType(), OpResult::Ok);
            ASSERT_TRUE(encoded(*packet) == joined(wire));
            AutoRefPtr<UmfPacket> const again = decoded(pool, packetsOf(written));
            EXPECT_TRUE(packet->isEqual(*again));
            EXPECT_STREQ(packet->toString().get(), again->toString().get());
            EXPECT_STREQ(packet->xmlTree.toString().get(), again->xmlTree.toString().get());
            AutoRefPtr<UmfPacket> const copy = packet->clone();
            ASSERT_NE(copy.get(), nullptr);
            EXPECT_TRUE(encoded(*copy) == joined(wire));
        }
    }
}

TEST(UmfProperties, WhatHasNoMeaningIsWrittenAsZerosOnce) {
    Random random(2);
    MessageCapture const capture;
    for (unsigned round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        UmfContent wire;
        UmfContent written;
        for (unsigned i = random.below(6); i > 0; --i) {
            UmfTrack const track{random.below(256), random.below(256), random.below(5)};
            wire.tracks.push_back(track);
            written.tracks.push_back(track);
            for (unsigned segment = 0; segment < track.segments; ++segment) {
                Section const media = mediaSection(random);
                wire.media.push_back(media.wire);
                written.media.push_back(media.written);
            }
        }
        Section const userData = userDataSection(random);
        wire.userData = userData.wire;
        written.userData = userData.written;
        wire.hasIndex = true;
        wire.xml = utf16(document(random));
        wire.rest = random.bytes(random.below(50000));
        written.hasIndex = true;
        written.xml = wire.xml;
        written.rest = wire.rest;
        Bytes const material = random.bytes(56);
        Bytes writtenMaterial = material;
        writtenMaterial[23] &= 0xEF;
        writtenMaterial[27] &= 0xEF;
        Bytes wirePayload = wire.payload();
        Bytes writtenPayload = written.payload();
        overwrite(wirePayload, 48, material);
        overwrite(writtenPayload, 48, writtenMaterial);

        PacketPool pool;
        AutoRefPtr<UmfPacket> const packet = decoded(pool, wirePayload);
        ASSERT_TRUE(packet->isValid());
        ASSERT_TRUE(packet->update());
        ASSERT_TRUE(encoded(*packet) == joined(umfPackets(writtenPayload)));
        AutoRefPtr<UmfPacket> const again = decoded(pool, writtenPayload);
        ASSERT_TRUE(again->isValid());
        EXPECT_TRUE(packet->isEqual(*again));
        EXPECT_TRUE(again->isEqual(*packet));
        EXPECT_STREQ(packet->toString().get(), again->toString().get());
        ASSERT_TRUE(encoded(*again) == joined(umfPackets(writtenPayload)));
    }
}

TEST(UmfProperties, FragmentsOfAnySizeGiveTheSame) {
    Random random(3);
    for (unsigned round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        PacketPool pool;
        Generated const made = generate(random, 1 + round % 5);
        Bytes const payload = made.payload();
        std::vector<Bytes> const wire = unevenPackets(random, payload);
        AutoRefPtr<UmfPacket> const packet = decoded(pool, wire);
        AutoRefPtr<UmfPacket> const other = decoded(pool, payload);
        ASSERT_TRUE(packet->isValid());
        EXPECT_TRUE(packet->isEqual(*other));
        EXPECT_EQ(packet->getCodedLength(), joined(wire).size());
        EXPECT_EQ(packet->decodedPayloadSize, payload.size());
        EXPECT_TRUE(bytesOf(packet->preservedData[0]) == made.content.xml);
        EXPECT_TRUE(bytesOf(packet->preservedData[1]) == made.content.rest);

        // A rewrite takes the bytes of the writer's own fragments, or none.
        bool const isWritersLength = joined(wire).size() == joined(umfPackets(payload)).size();
        EXPECT_EQ(packet->update().getCode(), isWritersLength ? 0 : 12);
        packet->length = packet->calcLength();
        EXPECT_EQ(packet->update().getType(), OpResult::Ok);
        ASSERT_TRUE(encoded(*packet) == joined(umfPackets(payload)));
    }
}

TEST(UmfProperties, AValueOfTheSameSizeChangesItsBytesOnly) {
    Random random(4);
    for (unsigned round = 0; round < 60; ++round) {
        SCOPED_TRACE(round);
        PacketPool pool;
        Generated made = generate(random, 1 + round % 5);
        if (made.pairs.empty()) {
            made.add("Single", random.bytes(1 + random.below(40000)));
        }
        Bytes expected = made.payload();
        AutoRefPtr<UmfPacket> const packet = decoded(pool, expected);
        ASSERT_TRUE(packet->isValid());
        // The last pair's id is free again, and so is its place.
        Pair const& last = made.pairs.back();
        auto const size = static_cast<unsigned>(last.value.size());
        Bytes const value = random.bytes(size);
        overwrite(expected, made.content.userDataOffset() + made.content.userData.size() - 2 - size,
                  value);
        EXPECT_TRUE(packet->userData.removeUserData(last.name.c_str()));
        EXPECT_TRUE(addPair(*packet, last.name, value));
        EXPECT_EQ(packet->update().getType(), OpResult::Ok);
        EXPECT_EQ(packet->fillerData.size(), 0U);
        ASSERT_TRUE(encoded(*packet) == joined(umfPackets(expected)));
    }
}

TEST(UmfProperties, PairsThatGoAndComeAgainLeaveNoTrace) {
    Random random(5);
    for (unsigned round = 0; round < 40; ++round) {
        SCOPED_TRACE(round);
        PacketPool pool;
        Generated const made = generate(random, 1 + round % 5);
        Bytes const wire = joined(umfPackets(made.payload()));
        AutoRefPtr<UmfPacket> const packet = decoded(pool, made.payload());
        for (Pair const& pair : made.pairs) {
            EXPECT_TRUE(packet->userData.removeUserData(pair.name.c_str()));
        }
        EXPECT_EQ(packet->update().getType(), OpResult::Ok);
        EXPECT_EQ(packet->fillerData.size(), made.content.userData.size());
        EXPECT_EQ(encoded(*packet).size(), wire.size());
        for (Pair const& pair : made.pairs) {
            EXPECT_TRUE(addPair(*packet, pair.name, pair.value));
        }
        EXPECT_EQ(packet->update().getType(), OpResult::Ok);
        EXPECT_EQ(packet->fillerData.size(), 0U);
        ASSERT_TRUE(encoded(*packet) == wire);
    }
}

TEST(UmfProperties, ChangedUserDataIsFittedIntoTheOldSizeAgainAndAgain) {
    Random random(6);
    MessageCapture const capture;
    unsigned fits = 0;
    unsigned tooBig = 0;
    unsigned withoutXml = 0;
    for (unsigned round = 0; round < 80; ++round) {
        PacketPool pool;
        Generated made = generate(random, 1 + round % 5);
        if (round % 2 == 0) {
            made.content.rest = Bytes().fill(16 + random.below(500), 0xEE);
        }
        bool const hadIndex = made.content.hasIndex;
        std::size_t const wireSize = joined(umfPackets(made.payload())).size();
        AutoRefPtr<UmfPacket> const packet = decoded(pool, made.payload());
        Fitted model{made, made.content.size(), 0};
        for (unsigned step = 0; step < 6; ++step) {
            SCOPED_TRACE(testing::Message() << "round " << round << ", step " << step);
            for (unsigned i = random.below(4); i > 0 && !model.made.pairs.empty(); --i) {
                std::string const gone =
                    model.made.pairs[random.below(static_cast<unsigned>(model.made.pairs.size()))]
                        .name;
                EXPECT_TRUE(packet->userData.removeUserData(gone.c_str()));
                model.made.remove(gone);
            }
            for (unsigned i = random.below(4); i > 0; --i) {
                Bytes const value = random.bytes(1 + random.below(1000));
                std::string const name = "New" + std::to_string(random.below(20));
                EXPECT_TRUE(addPair(*packet, name, value));
                model.made.add(name, value);
            }
            if (random.oneIn(5)) {
                packet->discardXml();
                model.made.content.xml = {};
            }
            if (random.oneIn(5)) {
                unsigned const filler = random.below(100);
                packet->addFillerBytes(filler);
                model.filler += filler;
            }

            OpResult const result = packet->update();
            if (!model.fit()) {
                ++tooBig;
                EXPECT_EQ(result.getType(), OpResult::Error);
                EXPECT_EQ(result.getCode(), 12);
                EXPECT_EQ(packet->preservedData[0].size(), 0U);
                EXPECT_EQ(packet->preservedData[1].size(), 0U);
                EXPECT_EQ(packet->fillerData.size(), 0U);
                EXPECT_FALSE(packet->umfIndex.valid);
                continue;
            }
            ++fits;
            withoutXml +=
                !made.content.xml.vector().empty() && model.made.content.xml.vector().empty() ? 1
                                                                                              : 0;
            ASSERT_EQ(result.getType(), OpResult::Ok);
            EXPECT_EQ(packet->fillerData.size(), model.filler);
            Bytes const written = encoded(*packet);
            EXPECT_EQ(written.size(), wireSize);
            ASSERT_TRUE(written == joined(umfPackets(model.payload())));

            AutoRefPtr<UmfPacket> const again = decoded(pool, packetsOf(written));
            ASSERT_EQ(again->isValid(), model.isReadable());
            if (!model.isReadable()) {
                continue;
            }
            EXPECT_TRUE(again->userData.isEqual(packet->userData));
            expectPairs(*again, model.made.pairs);
            // An index that was thrown away keeps its words, which the wire doesn't have.
            EXPECT_EQ(again->isEqual(*packet), packet->umfIndex.valid || !hadIndex);
            EXPECT_EQ(again->getCodedLength(), packet->getCodedLength());
        }
    }
    EXPECT_GT(fits, 100U);
    EXPECT_GT(tooBig, 10U);
    EXPECT_GT(withoutXml, 10U);
}
