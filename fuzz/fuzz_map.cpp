// A MAP.
//
//     channels 1 | packet length 4, 0 for the true one | room for the encoder 2 | payload

#include <algorithm>
#include <set>

#include <fuzz/fuzz_input.h>
#include <testing/stream_builder.h>

using namespace GxfTypes;
using namespace GxfFuzz;

namespace {

constexpr std::uint64_t position = 512;

/// A second, naive reading of a payload, which finds out what must come of it.
class NaiveMap {
  public:
    explicit NaiveMap(ByteVector const& payload) : m_bytes(payload), m_expected(payload) {
        m_isWhole = readSections();
    }

    /// Every length is that of what it counts: the packet decodes, and is written back.
    bool isWhole() const { return m_isWhole; }
    /// Nothing that a copy turns into something else, or that isn't equal even to itself.
    bool isPlain() const { return m_isPlain; }
    /// The payload as it is written back: the top bit of each media type set.
    ByteVector const& expected() const { return m_expected; }
    unsigned trackCount() const { return m_trackCount; }

  private:
    bool readSections() {
        std::size_t end = 0;
        m_at = 2;
        if (!readSectionLength(end) || !readTags(end, false) || !readSectionLength(end)) {
            return false;
        }
        while (m_at < end) {
            std::size_t trackEnd = 0;
            if (end - m_at < 4) {
                return false;
            }
            m_expected[m_at] |= 0x80;
            m_at += 2;
            ++m_trackCount;
            if (!readSectionLength(trackEnd) || trackEnd > end || !readTags(trackEnd, true)) {
                return false;
            }
        }
        return true;
    }

    bool readSectionLength(std::size_t& end) {
        if (m_at + 2 > m_bytes.size()) {
            return false;
        }
        end = m_at + 2 + (static_cast<std::size_t>(m_bytes[m_at]) << 8 | m_bytes[m_at + 1]);
        m_at += 2;
        return end <= m_bytes.size();
    }

    bool readTags(std::size_t end, bool ofTrack) {
        std::set<unsigned> met;
        while (m_at < end) {
            if (end - m_at < 2) {
                return false;
            }
            unsigned const number = m_bytes[m_at];
            std::size_t const length = m_bytes[m_at + 1];
            m_at += 2;
            if (length > end - m_at || !isValueOf(number, ofTrack, length)) {
                return false;
            }
            m_isPlain = m_isPlain && met.insert(number).second;
            m_at += length;
        }
        return true;
    }

    bool isValueOf(unsigned number, bool ofTrack, std::size_t length) {
        bool const hasText = ofTrack ? number == 0x4C || number == 0x4F || number == 0x56
                                     : number == 0x40 || (number >= 0x48 && number <= 0x4B);
        if (hasText) {
            return isText(length);
        }
        bool const isNumber = ofTrack ? number == 0x4E || (number >= 0x50 && number <= 0x52)
                                      : number >= 0x41 && number <= 0x46;
        bool const isEight = number == (ofTrack ? 0x4DU : 0x47U);
        return (isNumber && length == 4) || (isEight && length == 8);
    }

    /// A text whose one zero is its last byte.
    bool isText(std::size_t length) {
        auto const begin = m_bytes.begin() + static_cast<std::ptrdiff_t>(m_at);
        auto const end = begin + static_cast<std::ptrdiff_t>(length);
        auto const zero = std::find(begin, end, 0);
        for (auto at = begin; at != end && at + 1 != end; ++at) {
            m_isPlain = m_isPlain && !(at[0] == '%' && at[1] == '%');
        }
        return zero != end && zero + 1 == end;
    }

    ByteVector const& m_bytes;
    ByteVector m_expected;
    std::size_t m_at = 0;
    unsigned m_trackCount = 0;
    bool m_isWhole = false;
    bool m_isPlain = true;
};

void lookUp(MapTrack& track) {
    check(track.getTrackNum() < 64);
    check(track.getCodedLength() == track.tagsLength + 4U);
    if (char const* const name = track.getMediaName()) {
        check(std::strlen(name) <= 255);
    }
    check(!(track.isMpegTrack() && track.isDvTrack()));
    track.getNumFields();
    check(track.getNumLines() <= 1080 && track.getWidth() <= 1920);
    check(getRealFrameRate(track.getFrameRate()) == track.getRealFrameRate());
    track.getRealFieldRate();
    track.getAuxInfo();
    PerFrameTimecode const striped = track.getStripedTc();
    check(!striped.valid || getTrackType(track.mediaType) == trackTypeTimecode);
    track.getBitrate();
    printed(track);

    check(track.setAspectRatio(aspectRatioUnknown).getCode() == GxfOpSubsystem::internalError);
    AspectRatio const ratio = track.getAspectRatio();
    for (AspectRatio const wanted : {aspectRatio4x3, aspectRatio16x9}) {
        int const code = track.setAspectRatio(wanted).getCode();
        check(code == 0 || code == GxfOpSubsystem::internalError ||
              code == GxfOpSubsystem::badEncodeData);
    }
    // Only the raw text is edited.
    check(track.getAspectRatio() == ratio);
}

void lookUp(MapPacket& map) {
    if (MapPacket::Track const* const timecode = map.getTimecodeTrack()) {
        check(getTrackType(timecode->mediaType) == trackTypeTimecode);
    }
    for (unsigned number = 0; number < 256; ++number) {
        auto const type = static_cast<MapTagType>(number);
        int value = 0;
        check(map.materialData.getValue(type, value) == (map.materialData.getTag(type) != nullptr));
    }
    check(map.materialData.getTag(map.materialData.size()) == nullptr);
    map.tracks.getAnyTrackWithVideoRate();
    check(map.tracks.getRealFieldRate() != 0);
    check(getRealFrameRate(map.tracks.getFrameRate()) == map.tracks.getRealFrameRate());
    check(map.tracks[map.tracks.size()] == nullptr);
    for (unsigned i = 0; i < map.tracks.size(); ++i) {
        lookUp(*map.tracks[i]);
    }
    std::set<std::string> names;
    for (unsigned i = 0; i < map.tracks.size() && i < 10; ++i) {
        UmfTrackNum const number = map.tracks.getUmfTrackNum(static_cast<unsigned char>(i));
        check(names.insert(number.toString().get()).second);
    }
    for (unsigned i = 0; i < 256; ++i) {
        map.tracks.getUmfTrackNum(static_cast<unsigned char>(i));
    }
}

ByteVector encoded(Packet const& packet, std::size_t room, int& code) {
    ByteVector bytes(room);
    OutputBuffer out(bytes);
    OpResult const result = packet.encode(out);
    code = result.getCode();
    check(code == 0 || code == GxfOpSubsystem::badEncodeSize ||
          code == GxfOpSubsystem::badEncodeData || code == GxfOpSubsystem::unimplemented);
    return out.written();
}

void checkWrittenBack(MapPacket const& map, NaiveMap const& naive, PacketPool& pool) {
    int code = 0;
    ByteVector bytes = encoded(map, map.length, code);
    ByteVector expected = GxfTesting::header(0xBC, map.length).vector();
    expected.insert(expected.end(), naive.expected().begin(), naive.expected().end());
    check(code == 0 && bytes == expected);

    InputBuffer buffer(bytes, position);
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    check(header->decode(buffer) && header->isValid());
    AutoRefPtr<Packet> const again = header->createActual();
    check(again->decode(buffer) && again->isValid());
    check(buffer.nOccupied() == 0);
    check(printed(*again) == printed(map));
    check(again->isEqual(map) == map.isEqual(map) && map.isEqual(*again) == map.isEqual(map));
    check(encoded(*again, map.length, code) == expected && code == 0);
}

void checkClone(MapPacket const& map, bool mustWork, std::size_t room) {
    AutoRefPtr<Packet> const clone = map.clone();
    if (clone.get() == nullptr) {
        check(!mustWork);
        return;
    }
    check(clone->isEqual(map) && map.isEqual(*clone));
    check(clone->isValid() == map.isValid());
    int code = 0;
    int codeOfClone = 0;
    check(encoded(map, room, code) == encoded(*clone, room, codeOfClone));
    check(code == codeOfClone);
    check(printed(*clone) == printed(map));
}

bool isDecodeCode(int code) {
    return code == 0 || code == GxfOpSubsystem::badDecodeSize ||
           code == GxfOpSubsystem::badDecodeData;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input input(data, size);
    Surroundings const surroundings(input.u8());
    std::uint32_t const claimed = input.u32();
    std::size_t const room = input.u16();
    ByteVector payload = input.rest();
    ByteVector const original = payload;
    auto const trueLength = static_cast<std::uint32_t>(payload.size() + Packet::headerSize);
    std::uint32_t const length = claimed != 0 ? claimed : trueLength;
    NaiveMap const naive(payload);
    bool const isWhole = naive.isWhole() && length == trueLength;

    PacketPool pool;
    AutoRefPtr<Packet> packet = arrive(pool, packetTypeMap, length, position);
    auto* map = static_cast<MapPacket*>(packet.get());
    InputBuffer buffer(payload, position + Packet::headerSize);
    check(map->needsAllData(buffer));
    OpResult const result = map->decode(buffer);
    check(payload == original);
    check(isDecodeCode(result.getCode()));
    check(buffer.beginOffset() >= position + Packet::headerSize);
    check(!map->isValid() || result);
    std::string const text = printed(*map);
    if (isWhole) {
        check(result && map->isValid() && buffer.nOccupied() == 0);
        check(map->tracks.size() == naive.trackCount());
    }
    // First the clone, in a packet that never held this content.
    checkClone(*map, isWhole && naive.isPlain(), room);
    if (isWhole) {
        checkWrittenBack(*map, naive, pool);
    }
    lookUp(*map);
    check(printed(*map) == text);

    // The recycled packet shows nothing of its former life.
    packet = nullptr;
    packet = arrive(pool, packetTypeMap, length, position);
    InputBuffer again(payload, position + Packet::headerSize);
    check(packet->decode(again).getCode() == result.getCode());
    check(printed(*packet) == text);
    return 0;
}
