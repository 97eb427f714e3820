// A UMF from its packets to its sections, and back.
//
//     channels 1 | options 1 | bytes of a fragment 2, 0 for 32768 | gathered payload or packets
//
// options: packets as they stand 1 | XML channel 1 | what a rewrite changes: a pair removed 1, a
// pair added 1, the XML discarded 1, filler added 1 | the end of the input is the new value 1

#include <algorithm>

#include <fuzz/fuzz_input.h>
#include <fuzz/quiet_parser.h>
#include <testing/allocation_count.h>
#include <testing/umf_builder.h>

using namespace GxfTypes;
using namespace GxfFuzz;
using GxfTesting::Bytes;

namespace {

constexpr unsigned preambleSize = 5;
constexpr unsigned largestFragment = 32768;

std::uint32_t number(ByteVector const& bytes, std::size_t at, unsigned size = 4) {
    std::uint32_t value = 0;
    for (unsigned i = 0; i < size && at + i < bytes.size(); ++i) {
        value |= static_cast<std::uint32_t>(bytes[at + i]) << (8 * i);
    }
    return value;
}

std::uint32_t bigEndian(unsigned char const* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
           static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
}

void setNumber(ByteVector& bytes, std::size_t at, std::uint32_t value, unsigned size = 4) {
    for (unsigned i = 0; i < size; ++i) {
        bytes[at + i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

void append(ByteVector& to, ByteVector const& bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

ByteVector part(ByteVector const& bytes, std::size_t at, std::size_t count) {
    auto const begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
    return {begin, begin + static_cast<std::ptrdiff_t>(count)};
}

/// A second, naive reading of a gathered payload, which finds out what must come of it.
class NaiveUmf {
  public:
    /// An item's bytes as they are written back.
    struct Item {
        std::uint32_t key;
        ByteVector bytes;

        bool isKey() const { return key >> 16 == 7; }
        bool isValue() const { return key >> 16 == 8; }
        unsigned id() const { return key & 0xFFFF; }
    };
    struct Pair {
        std::vector<Item> keyItem;
        std::vector<Item> valueItem;
    };

    explicit NaiveUmf(ByteVector const& payload) : m_bytes(payload), m_left(length()) {
        m_code = readSections();
        if (m_code == 0) {
            readTail();
        }
    }

    /// The code of the failure that makes the packet invalid; 0 for none.
    int code() const { return m_code; }
    /// The code of a broken index; 0 for none.
    int codeOfIndex() const { return m_codeOfIndex; }
    std::uint32_t length() const { return static_cast<std::uint32_t>(m_bytes.size()); }
    unsigned tracks() const { return m_tracks; }
    unsigned media() const { return m_media; }
    std::vector<Pair> const& pairs() const { return m_pairs; }
    bool hasIndex() const { return m_hasIndex; }
    ByteVector const& xml() const { return m_xml; }
    ByteVector const& rest() const { return m_rest; }

    /// Every text leaves room for its terminator: the sections are written back as sections().
    bool isPlain() const { return m_isPlain; }
    /// No media description without a layout.
    bool canBeWritten() const { return m_canBeWritten; }
    /// No text that a copy turns into something else.
    bool hasPercents() const { return m_hasPercents; }
    /// The lengths in front tell the truth.
    bool isConsistent() const { return m_isConsistent; }

    /// What the sections are written back as.
    ByteVector written() const {
        ByteVector bytes = m_sections;
        for (Pair const& pair : m_pairs) {
            for (auto const& items : {pair.keyItem, pair.valueItem}) {
                for (Item const& item : items) {
                    append(bytes, item.bytes);
                }
            }
        }
        append(bytes, m_index);
        append(bytes, m_xml);
        append(bytes, m_rest);
        return bytes;
    }

    /// The same behind an update() that found room for all of it.
    ByteVector updated() const {
        ByteVector bytes = written();
        auto const tail = static_cast<std::uint32_t>(m_xml.size() + m_rest.size());
        auto const size = static_cast<std::uint32_t>(bytes.size());
        auto const indexAt = size - tail - 16;
        if (m_hasIndex) {
            setNumber(bytes, indexAt + 4, m_xml.empty() ? 0 : size - tail, 2);
            setNumber(bytes, indexAt + 8, static_cast<std::uint32_t>(m_xml.size()), 2);
        }
        std::uint32_t const userData =
            size - tail - (m_hasIndex ? 16 : 0) - static_cast<std::uint32_t>(m_sections.size());
        setNumber(bytes, 36, userData);
        setNumber(bytes, 40, m_hasIndex ? indexAt : 0);
        setNumber(bytes, 44, m_hasIndex ? 16 : 0);
        bytes.resize(m_bytes.size());
        return bytes;
    }

  private:
    std::size_t present() const { return m_bytes.size() - m_at; }
    bool has(unsigned size) const { return m_left >= size && present() >= size; }

    int readSections() {
        if (!has(48)) {
            return GxfOpSubsystem::badDecodeSize;
        }
        std::uint32_t const sections =
            number(m_bytes, 16) + number(m_bytes, 28) + number(m_bytes, 36) + 48;
        m_tracks = number(m_bytes, 8);
        if (number(m_bytes, 4) != 3 || sections > number(m_bytes, 0) || m_tracks > 128) {
            return GxfOpSubsystem::badDecodeData;
        }
        m_sections = part(m_bytes, 0, 48);
        m_at = 48;
        m_left -= 48;
        if (!has(56)) {
            return GxfOpSubsystem::badDecodeSize;
        }
        ByteVector material = part(m_bytes, m_at, 56);
        // The last byte of a timecode has a bit without a meaning.
        material[23] &= 0xEF;
        material[27] &= 0xEF;
        append(m_sections, material);
        m_at += 56;
        m_left -= 56;
        m_isConsistent = number(m_bytes, 0) == length() && number(m_bytes, 16) == 4 * m_tracks;
        int const code = readTracks();
        return code == 0 ? readUserData() : code;
    }

    int readTracks() {
        unsigned segments = 0;
        for (unsigned i = 0; i < m_tracks; ++i) {
            if (!has(4)) {
                return GxfOpSubsystem::badDecodeSize;
            }
            segments += number(m_bytes, m_at + 2, 2);
            append(m_sections, part(m_bytes, m_at, 4));
            m_at += 4;
            m_left -= 4;
        }
        m_isConsistent = m_isConsistent && number(m_bytes, 28) == 160 * segments;
        for (; m_media < segments; ++m_media) {
            if (!has(160)) {
                return GxfOpSubsystem::badDecodeSize;
            }
            append(m_sections, mediaDescription(part(m_bytes, m_at, 160)));
            std::uint32_t const claimed = number(m_bytes, m_at, 2);
            m_isConsistent = m_isConsistent && claimed == 160;
            m_at += 160;
            m_left -= claimed;
        }
        return 0;
    }

    ByteVector mediaDescription(ByteVector bytes) {
        normalise(bytes, 24, 88);
        std::uint32_t const type = number(bytes, 112);
        std::size_t end = 128; // of the fields of its variant
        switch (type) {
        case 2:
            end += 24;
            break;
        case 3:
            end += 4;
            break;
        case 4:
        case 7:
        case 9:
            end += 26;
            bytes[152] = static_cast<unsigned char>((bytes[152] & 0x0F) |
                                                    ((bytes[152] & 0xF0) == 0x80 ? 0x80 : 0x40));
            bytes[153] &= 0x0F;
            break;
        case 5:
        case 6:
        case 10:
            end += 2;
            // 16:9 with the flag beside it comes out as 4:3.
            bytes[128] = static_cast<unsigned char>((bytes[128] & 0x20) |
                                                    ((bytes[128] & 0xF0) == 0x80 ? 0x80 : 0x40));
            bytes[129] &= 0x0F;
            break;
        case 11:
            end += 2;
            bytes[128] = 0x80;
            bytes[129] &= 0x0F;
            break;
        case 8:
            break;
        default:
            m_canBeWritten = false;
            break;
        }
        std::fill(bytes.begin() + static_cast<std::ptrdiff_t>(end), bytes.end(), 0);
        return bytes;
    }

    /// Zeros behind the end of a text, whose field must have one.
    void normalise(ByteVector& bytes, std::size_t at, std::size_t size) {
        auto const begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
        auto const end = begin + static_cast<std::ptrdiff_t>(size);
        auto const zero = std::find(begin, end, 0);
        m_isPlain = m_isPlain && zero != end;
        std::fill(zero, end, 0);
    }

    int readUserData() {
        std::uint32_t ofUserData = number(m_bytes, 36);
        if (ofUserData > m_left) {
            return GxfOpSubsystem::badDecodeSize;
        }
        while (ofUserData != 0 && m_left != 0) {
            if (!has(16)) {
                return GxfOpSubsystem::umfUserDataError;
            }
            std::uint32_t const size = number(m_bytes, m_at);
            Item item{number(m_bytes, m_at + 12), {}};
            if (size < 19 || size > m_left - 16 || size > 0x7FFFFFFF || size > present()) {
                return GxfOpSubsystem::umfUserDataError;
            }
            if (item.isKey() && size != 16 + 282) {
                return GxfOpSubsystem::badDecodeSize;
            }
            if (size > ofUserData) {
                return GxfOpSubsystem::badDecodeSize;
            }
            item.bytes = part(m_bytes, m_at, size);
            m_at += size;
            m_left -= size;
            ofUserData -= size;
            if (item.isKey()) {
                normaliseKey(item.bytes);
            }
            takeIn(item);
        }
        m_isConsistent = m_isConsistent && ofUserData == 0;
        return 0;
    }

    void normaliseKey(ByteVector& bytes) {
        constexpr std::pair<unsigned, unsigned> texts[] = {
            {36, 32}, {68, 32}, {100, 80}, {180, 80}, {260, 32}};
        for (auto const& [at, size] : texts) {
            normalise(bytes, at, size);
            std::string const text(reinterpret_cast<char const*>(bytes.data()) + at, size);
            m_hasPercents = m_hasPercents || text.find("%%") != std::string::npos;
        }
        bytes[296] = 0;
        bytes[297] = 0;
    }

    void takeIn(Item const& item) {
        for (Pair& pair : m_pairs) {
            bool const waitsForKey = pair.keyItem.empty() && item.isKey();
            bool const waitsForValue = pair.valueItem.empty() && item.isValue();
            if (waitsForKey && pair.valueItem[0].id() == item.id()) {
                pair.keyItem.push_back(item);
                return;
            }
            if (waitsForValue && pair.keyItem[0].id() == item.id()) {
                pair.valueItem.push_back(item);
                return;
            }
        }
        Pair pair;
        (item.isKey() ? pair.keyItem : pair.valueItem).push_back(item);
        m_pairs.push_back(pair);
    }

    void readTail() {
        if (m_left == 0) {
            return;
        }
        std::uint32_t xmlLength = 0;
        if (std::uint32_t const size = number(m_bytes, 44)) {
            m_codeOfIndex = present() < size ? GxfOpSubsystem::badDecodeSize
                            : size != 16     ? GxfOpSubsystem::badDecodeData
                                             : 0;
            m_hasIndex = m_codeOfIndex == 0;
            m_left -= size;
        }
        if (m_hasIndex) {
            m_index = part(m_bytes, m_at, 16);
            m_at += 16;
            xmlLength = number(m_index, 8, 2);
        }
        keep(m_xml, xmlLength);
        m_left -= xmlLength;
        keep(m_rest, m_left);
    }

    void keep(ByteVector& bytes, std::uint32_t size) {
        if (size <= present()) {
            bytes = part(m_bytes, m_at, size);
            m_at += size;
        }
    }

    ByteVector const& m_bytes;
    std::uint32_t m_left; ///< by the lengths that the payload claims
    std::size_t m_at = 0;
    int m_code = 0;
    int m_codeOfIndex = 0;
    unsigned m_tracks = 0;
    unsigned m_media = 0;
    ByteVector m_sections;
    std::vector<Pair> m_pairs;
    bool m_hasIndex = false;
    ByteVector m_index;
    ByteVector m_xml;
    ByteVector m_rest;
    bool m_isPlain = true;
    bool m_canBeWritten = true;
    bool m_hasPercents = false;
    bool m_isConsistent = false;
};

Bytes bytesOf(ByteVector const& bytes) {
    return Bytes().text({reinterpret_cast<char const*>(bytes.data()), bytes.size()});
}

bool isSame(GxfPreservedData const& data, ByteVector const& bytes) {
    return data.size() == bytes.size() && std::equal(bytes.begin(), bytes.end(), data.getData());
}

/// The packets of a payload, of which at least one exists.
std::vector<Bytes> packetsOf(ByteVector const& payload, std::size_t fragment = largestFragment) {
    return payload.empty() ? std::vector<Bytes>{GxfTesting::umfPacket(3, Bytes())}
                           : GxfTesting::umfPackets(bytesOf(payload), fragment);
}

ByteVector encoded(UmfPacket const& umf, std::size_t room, int& code) {
    ByteVector bytes(room);
    OutputBuffer out(bytes);
    code = umf.encode(out).getCode();
    check(code == 0 || code == GxfOpSubsystem::badEncodeSize ||
          code == GxfOpSubsystem::badEncodeData);
    return out.written();
}

void checkItem(UmfPacket::UserData const* item, std::vector<NaiveUmf::Item> const& expected) {
    check((item != nullptr) == !expected.empty());
    if (item != nullptr) {
        check(item->valid && item->getLength() == expected[0].bytes.size());
        check(item->getKey().get() == expected[0].key);
        check(item->isKey() || std::memcmp(item->getData(), expected[0].bytes.data() + 16,
                                           item->getNumDataBytes()) == 0);
    }
}

void checkSections(UmfPacket const& umf, NaiveUmf const& naive) {
    check(umf.payloadDesc.valid && umf.materialDesc.valid);
    check(umf.trackDescs.size() == naive.tracks() && umf.mediaDescs.size() == naive.media());
    check(umf.userData.nItems() == naive.pairs().size());
    for (unsigned i = 0; i < umf.userData.nItems(); ++i) {
        checkItem(umf.userData.pairs[i].keyItem.get(), naive.pairs()[i].keyItem);
        checkItem(umf.userData.pairs[i].valueItem.get(), naive.pairs()[i].valueItem);
    }
    check(umf.umfIndex.valid == naive.hasIndex());
    check(isSame(umf.preservedData[0], naive.xml()));
    check(isSame(umf.preservedData[1], naive.rest()));
    check(umf.fillerData.size() == 0 && umf.gatherBuffer.nOccupied() == 0);
}

void checkResult(UmfPacket const& umf, OpResult const& result, NaiveUmf const& naive) {
    check(umf.decodedPayloadSize == naive.length());
    if (naive.code() != 0) {
        check(result.getType() == OpResult::Error && result.getCode() == naive.code());
        check(!umf.isValid());
        return;
    }
    check(umf.isValid());
    int const code = result.getCode();
    if (gxfDebug.on(gxfDebugXml) && naive.xml().empty()) {
        check(code == GxfOpSubsystem::noXmlData);
    } else if (naive.codeOfIndex() != 0) {
        check(code == naive.codeOfIndex());
        check(result.getType() ==
              (gxfDebug.on(gxfDebugErrors) ? OpResult::Type{OpResult::Error} : OpResult::Warning));
    } else if (naive.xml().empty()) {
        // The region may be longer than what is there.
        check(code == 0 || code == GxfOpSubsystem::noXmlData || umf.umfIndex.getXmlLength() != 0);
    }
    check(isKnownCode(code) && (code == 0) == result.success());
    check(umf.xmlTree.isValid() == (umf.umfIndex.getXmlLength() != 0 && naive.hasIndex() &&
                                    (code == 0 || umf.xmlTree.xmlDoc != nullptr)));
}

void lookUp(UmfPacket& umf) {
    for (unsigned i = 0; i < umf.mediaDescs.size(); ++i) {
        UmfTrackNum const& track = umf.mediaDescs[i].getTrackNum();
        UmfPacket::MediaDesc const* const first = umf.getMediaDesc(track);
        check(first != nullptr && first <= &umf.mediaDescs[i] && first->getTrackNum() == track);
    }
    GxfXmlTree::Tracks const& tracks = umf.xmlTree.getXmlTracks();
    for (unsigned i = 0; i < tracks.size(); ++i) {
        GxfXmlTrack const* const first = umf.getXmlTrack(tracks[i].getUmfTrackNum());
        check(first != nullptr && first <= &tracks[i]);
    }
    check(umf.calcIndexOffset() == 0 || umf.umfIndex.valid);
    check(umf.calcXmlOffset() == 0 || umf.preservedData[0].size() != 0);
}

/// Levels of audio may be no numbers, which aren't equal even to themselves.
bool isEqualToItself(UmfPacket const& umf) { return umf.isEqual(umf); }

/// More than packets of one byte each take. What a header claims may be far more.
std::size_t largestRoom(NaiveUmf const& naive) { return 4096 + 64 * std::size_t{naive.length()}; }

void checkClone(UmfPacket const& umf, NaiveUmf const& naive, std::string const& text) {
    AutoRefPtr<UmfPacket> const clone = umf.clone();
    check((clone.get() != nullptr) == isEqualToItself(umf));
    if (clone.get() == nullptr) {
        return;
    }
    check(clone->isEqual(umf) && umf.isEqual(*clone));
    check(clone->isValid() == umf.isValid());
    check(clone->calcPayloadSize() == umf.calcPayloadSize());
    if (naive.hasPercents()) {
        return;
    }
    check(printed(*clone) == text);
    std::size_t const room = std::min<std::size_t>(umf.getCodedLength(), largestRoom(naive));
    int code = 0;
    int codeOfClone = 0;
    check(encoded(*clone, room, codeOfClone) == encoded(umf, room, code) && code == codeOfClone);
}

void checkWrittenBack(UmfPacket const& umf, NaiveUmf const& naive) {
    int code = 0;
    if (umf.getCodedLength() > largestRoom(naive)) {
        check(encoded(umf, largestRoom(naive), code).empty());
        check(code == GxfOpSubsystem::badEncodeSize);
        return;
    }
    ByteVector const bytes = encoded(umf, umf.getCodedLength(), code);
    if (!naive.canBeWritten()) {
        check(code == GxfOpSubsystem::badEncodeData && bytes.empty());
    } else if (umf.calcLength() > umf.getCodedLength()) {
        check(!naive.isPlain() || code == GxfOpSubsystem::badEncodeSize);
    } else {
        check(code == 0);
        check(!naive.isPlain() || bytes == GxfTesting::joined(packetsOf(naive.written())).vector());
    }
    check(encoded(umf, umf.getCodedLength() - 1, code).empty());
    check(code == GxfOpSubsystem::badEncodeSize);
}

/// A rewrite that changes nothing.
void checkUpdate(UmfPacket& umf, NaiveUmf const& naive) {
    std::uint32_t const size = umf.calcPayloadSize();
    OpResult const result = umf.update();
    ByteVector const whole(naive.length());
    bool const isWritersOwn = umf.getCodedLength() == GxfTesting::joined(packetsOf(whole)).size();
    check(result.success() == (umf.calcPayloadSize() == naive.length() && isWritersOwn));
    if (!result) {
        check(result.getCode() == GxfOpSubsystem::badEncodeSize);
        return;
    }
    if (size > naive.length() || !naive.isPlain() || !naive.canBeWritten()) {
        return;
    }
    int code = 0;
    ByteVector const bytes = encoded(umf, umf.getCodedLength(), code);
    check(code == 0 && bytes == GxfTesting::joined(packetsOf(naive.updated())).vector());
    // Another one finds nothing to do.
    check(umf.update() && encoded(umf, umf.getCodedLength(), code) == bytes);
}

struct Edits {
    bool removesPair;
    bool addsPair;
    bool discardsXml;
    bool addsFiller;
    ByteVector value;
};

void edit(UmfPacket& umf, Edits const& edits) {
    UmfPacket::UserDataSet& userData = umf.userData;
    unsigned const items = userData.nItems();
    unsigned const size = userData.size();
    if (edits.removesPair && items != 0) {
        std::string const name = userData.pairs[items / 2].getKey();
        check(userData.removeUserData(name.c_str()));
        check(userData.nItems() == items || userData.nItems() == items - 1);
        check(userData.nItems() == items - 1 || !userData.pairs[items / 2].isComplete());
    }
    if (edits.addsPair) {
        unsigned const before = userData.size();
        unsigned short const id = userData.getNextKeyId();
        auto const n = static_cast<unsigned>(edits.value.size());
        check(userData.addUserData("Added 100%%", UmfTrackNum(), userDataBinary, edits.value.data(),
                                   n));
        check(userData.size() == before + 298 + 18 + n);
        check(userData.keyIdsInUse.get(id) && userData.getNextKeyId() != id);
        check(userData.nItems() <= items + 2);
    }
    check(edits.addsPair || userData.size() <= size);
    if (edits.discardsXml) {
        umf.discardXml();
        check(umf.preservedData[0].size() == 0);
    }
    if (edits.addsFiller) {
        umf.addFillerBytes(7);
    }
}

/// Items that stand side by side come back as the pairs that they are.
bool comesBack(UmfPacket const& umf) {
    for (unsigned i = 0; i < umf.userData.nItems(); ++i) {
        UmfPacket::UserDataPair const& pair = umf.userData.pairs[i];
        if (!pair.isComplete() || !pair.valueItem->isValue() || pair.valueItem->getLength() < 19) {
            return false;
        }
    }
    // The last item is only taken when 16 bytes follow it.
    unsigned const tail = umf.umfIndex.size() + umf.preservedData[0].size() +
                          umf.preservedData[1].size() + umf.fillerData.size();
    UmfPacket::PayloadDesc const& desc = umf.payloadDesc;
    std::uint64_t const sections = std::uint64_t{desc.trackDescSize} + desc.mediaDescSize +
                                   desc.userDataLength + UmfPacket::PayloadDesc::wireSize;
    return tail >= 16 && sections <= desc.totalLength;
}

bool isSameContent(UmfPacket const& umf, UmfPacket const& again) {
    for (unsigned i = 0; i < umf.trackDescs.size(); ++i) {
        if (!umf.trackDescs[i].isEqual(again.trackDescs[i])) {
            return false;
        }
    }
    for (unsigned i = 0; i < umf.mediaDescs.size(); ++i) {
        if (!umf.mediaDescs[i].isEqual(again.mediaDescs[i])) {
            return false;
        }
    }
    return umf.payloadDesc.isEqual(again.payloadDesc) &&
           umf.materialDesc.isEqual(again.materialDesc) && umf.userData.isEqual(again.userData) &&
           (!umf.umfIndex.valid || umf.umfIndex.isEqual(again.umfIndex));
}

/// A rewrite with changes: what is written takes the bytes of the old UMF, and can be read.
void checkRewrite(UmfPacket& umf, NaiveUmf const& naive, Edits const& edits) {
    edit(umf, edits);
    if (!umf.update()) {
        return;
    }
    check(umf.calcPayloadSize() == naive.length());
    check(umf.calcLength() == umf.getCodedLength());
    check(umf.payloadDesc.userDataLength == umf.calcUserDataSize());
    check(umf.payloadDesc.indexOffset == umf.calcIndexOffset());
    check(umf.payloadDesc.indexLength == umf.umfIndex.size());
    int code = 0;
    ByteVector const bytes = encoded(umf, umf.getCodedLength(), code);
    check(code == (naive.canBeWritten() ? 0 : GxfOpSubsystem::badEncodeData));
    if (code != 0 || !naive.isPlain()) {
        return;
    }
    check(bytes.size() == umf.getCodedLength());
    PacketPool pool;
    std::vector<Bytes> packets;
    for (std::size_t at = 0; at < bytes.size();) {
        std::size_t const size = bigEndian(bytes.data() + at + 6);
        check(size >= Packet::headerSize && size % 4 == 0 && size <= bytes.size() - at);
        packets.push_back(bytesOf(part(bytes, at, size)));
        at += size;
    }
    AutoRefPtr<UmfPacket> const again = GxfTesting::gathered(pool, packets);
    check(again->gatherBuffer.nOccupied() == naive.length());
    check(again->getCodedLength() == umf.getCodedLength());
    again->decodeFinal();
    if (naive.isConsistent() && comesBack(umf)) {
        check(again->isValid());
        check(isSameContent(umf, *again) || !isEqualToItself(umf));
        check(again->preservedData[0].size() == umf.preservedData[0].size());
        check(again->preservedData[1].size() ==
              umf.preservedData[1].size() + umf.fillerData.size());
    }
}

constexpr char const* refused = "refused\n";

/// A gathered UMF from its final decode on; gives what it prints.
std::string examine(UmfPacket& umf, Edits const& edits) {
    unsigned char const* const gathered = umf.gatherBuffer.ptrBegin();
    ByteVector const payload(gathered, gathered + umf.gatherBuffer.nOccupied());
    NaiveUmf const naive(payload);
    // What an earlier failure left there makes the first number of the document fail.
    clearLastError();
    OpResult const result = umf.decodeFinal();
    checkResult(umf, result, naive);
    std::string const text = printed(umf);
    check(text.size() <= 4096 + 64 * payload.size());
    if (naive.code() != 0) {
        checkClone(umf, naive, text);
        return refused;
    }
    checkSections(umf, naive);
    check(printed(umf) == text);
    checkClone(umf, naive, text);
    checkWrittenBack(umf, naive);
    lookUp(umf);
    checkUpdate(umf, naive);
    checkRewrite(umf, naive, edits);
    return text;
}

/// Takes in one packet behind the one before it, if any.
AutoRefPtr<UmfPacket> takeIn(GxfBuffer& buffer, Packet const& header,
                             AutoRefPtr<UmfPacket> const& earlier, int& code) {
    AutoRefPtr<UmfPacket> const packet = header.createActual()->getUmfPacket();
    unsigned char const* const bytes = buffer.ptrBegin();
    unsigned const present = buffer.nOccupied();
    unsigned long long const position = buffer.beginOffset();
    check(packet->needsAllData(buffer) && packet->getPart1Length() == preambleSize);
    code = packet->decode(buffer).getCode();

    unsigned const length = header.length - Packet::headerSize;
    if (length < preambleSize || present < preambleSize || bytes[0] > 3) {
        check(code == (length < preambleSize || present < preambleSize
                           ? GxfOpSubsystem::badDecodeSize
                           : GxfOpSubsystem::badDecodeData));
        check(!packet->isValid() && packet->gatherBuffer.nOccupied() == 0);
        return packet;
    }
    check(code == (bytes[0] >= 2 ? GxfOpSubsystem::umfFinal : GxfOpSubsystem::umfPartial));
    check(packet->isValid() && packet->getPacketOrder() == bytes[0]);
    std::uint32_t const claimed = bigEndian(bytes + 1);
    bool const isThere = claimed <= present - preambleSize;
    check(packet->getPart2Length() == claimed);
    check(packet->gatherBuffer.nOccupied() == (isThere ? claimed : 0));
    check(!isThere || claimed > length - preambleSize || buffer.beginOffset() == position + length);
    if (earlier.get() != nullptr) {
        unsigned const before = earlier->gatherBuffer.nOccupied();
        std::uint32_t const coded = earlier->getCodedLength() + packet->getCodedLength();
        packet->prependPayload(*earlier);
        check(packet->gatherBuffer.nOccupied() == before + (isThere ? claimed : 0));
        check(packet->getFileOffset() == earlier->getFileOffset());
        check(packet->getCodedLength() == coded);
    }
    return packet;
}

/// The same on a packet that may have held another UMF.
std::string decodeAgain(UmfPacket& umf) {
    clearLastError();
    umf.decodeFinal();
    return umf.isValid() ? printed(umf) : refused;
}

/// Hands every UMF of a row of packets on, and joins what comes back.
template <typename Use>
std::string useAll(PacketPool& pool, ByteVector& bytes, bool recycles, Use use) {
    InputBuffer buffer(bytes, 0);
    std::string text;
    AutoRefPtr<UmfPacket> newest;
    while (buffer.nOccupied() >= Packet::headerSize) {
        AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
        header->decode(buffer);
        if (!header->isValid() || header->type != packetTypeUmfFile) {
            break;
        }
        int code = 0;
        newest = takeIn(buffer, *header, newest, code);
        if (!newest->isValid()) {
            newest = nullptr;
        } else if (code == GxfOpSubsystem::umfFinal) {
            text += use(*newest);
            newest = nullptr;
            if (!recycles) {
                // One that comes back would bring its index, its tail and its XML along.
                pool.reset();
            }
        }
    }
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    enum Option : unsigned {
        asPackets = 1,
        xmlChannel = 2,
        removesPair = 4,
        addsPair = 8,
        discardsXml = 16,
        addsFiller = 32,
        longValue = 64,
    };
    Input input(data, size);
    Surroundings const surroundings(input.u8());
    unsigned const options = input.u8();
    GxfTesting::ChannelSetting const debug(
        gxfDebug, gxfDebug.get() | ((options & xmlChannel) != 0 ? 1U << gxfDebugXml : 0U));
    std::size_t const fragment = input.u16();
    ByteVector bytes = input.rest();
    std::size_t const valueSize = std::min<std::size_t>(bytes.size(), 80);
    Edits const edits{(options & removesPair) != 0, (options & addsPair) != 0,
                      (options & discardsXml) != 0, (options & addsFiller) != 0,
                      (options & longValue) != 0 ? part(bytes, bytes.size() - valueSize, valueSize)
                                                 : ByteVector(1)};

    if ((options & asPackets) == 0) {
        // Thousands of packets would take the time of everything else.
        std::size_t const least = bytes.size() / 64 + 1;
        std::size_t const piece = fragment != 0 ? std::max(fragment, least) : largestFragment;
        bytes = GxfTesting::joined(packetsOf(bytes, piece)).vector();
    }
    // No length of the wire makes anything larger than the bytes that are there.
    GxfTesting::AllocationLimit const limit((std::size_t{1} << 20) + 128 * bytes.size());
    silenceParser();
    ByteVector const original = bytes;
    PacketPool pool;
    std::string const text =
        useAll(pool, bytes, false, [&](UmfPacket& umf) { return examine(umf, edits); });
    for (unsigned pass = 0; pass < 2; ++pass) {
        check(useAll(pool, bytes, true, &decodeAgain) == text);
    }
    check(bytes == original);
    return 0;
}
