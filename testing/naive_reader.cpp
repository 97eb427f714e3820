#include <testing/naive_reader.h>

#include <algorithm>
#include <ostream>

namespace GxfTesting {

namespace {

using Offset = std::uint64_t;

constexpr std::uint64_t largestWhole = 4194304;

class NaiveReader {
  public:
    explicit NaiveReader(Bytes const& stream) : m_bytes(stream.vector()) {}

    std::vector<NaivePacket> read() {
        Offset at = 0;
        std::optional<Offset> previous;
        while (true) {
            if (isHeader(at)) {
                if (isToCome(at)) {
                    m_packets.push_back(packetAt(at));
                }
                previous = at;
                at += length(at);
                continue;
            }
            if (at == size()) {
                break;
            }
            std::optional<Offset> found;
            if (previous) {
                found = firstConfirmed(*previous + 16, at);
            }
            if (!found) {
                found = firstBehind(at);
            }
            if (!found) {
                break;
            }
            at = *found;
            previous.reset();
        }
        return m_packets;
    }

  private:
    Offset size() const { return m_bytes.size(); }
    unsigned byte(Offset at) const { return m_bytes[at]; }
    std::uint32_t word(Offset at) const {
        return byte(at) * 0x1000000U + byte(at + 1) * 0x10000U + byte(at + 2) * 0x100U +
               byte(at + 3);
    }
    unsigned type(Offset at) const { return byte(at + 5); }
    std::uint32_t length(Offset at) const { return word(at + 6); }

    bool isHeader(Offset at) const {
        return at + 16 <= size() && word(at) == 0 && byte(at + 4) == 1 &&
               (type(at) == 188 || type(at) == 191 || type(at) >= 250) && length(at) >= 16 &&
               word(at + 10) == 0 && byte(at + 14) == 0xE1 && byte(at + 15) == 0xE2;
    }

    bool isConfirmed(Offset at) const {
        Offset const end = at + length(at);
        return end == size() || isHeader(end);
    }

    /// A packet that the stream's end cuts off still comes when what is read of it is there.
    bool isToCome(Offset at) const {
        std::uint64_t const payload = length(at) - 16;
        std::uint64_t const present = size() - at - 16;
        switch (type(at)) {
        case 188:
        case 253:
            return length(at) <= largestWhole && present >= payload;
        case 252:
            return present >= std::min<std::uint64_t>(payload, 4008);
        case 191: {
            bool const isTimecode =
                payload != 0 && present != 0 &&
                (byte(at + 16) == 7 || byte(at + 16) == 8 || byte(at + 16) == 24);
            return present >= std::min<std::uint64_t>(payload, isTimecode ? 4112 : 16);
        }
        default:
            return true;
        }
    }

    std::optional<Offset> firstConfirmed(Offset from, Offset to) const {
        for (Offset at = from; at < to && at < size(); ++at) {
            if (isHeader(at) && isConfirmed(at)) {
                return at;
            }
        }
        return std::nullopt;
    }

    std::optional<Offset> firstBehind(Offset from) const {
        for (Offset at = from; at < size(); ++at) {
            if (isHeader(at)) {
                return isConfirmed(at) ? at : firstConfirmed(at + 1, at + length(at)).value_or(at);
            }
        }
        return std::nullopt;
    }

    NaivePacket packetAt(Offset at) const {
        NaivePacket packet;
        packet.offset = at;
        packet.type = type(at);
        packet.length = length(at);
        if (packet.type == 191 && packet.length >= 32) {
            Offset const payload = at + 16;
            packet.preamble = NaivePreamble{byte(payload),      byte(payload + 1) % 64,
                                            word(payload + 2),  word(payload + 6),
                                            word(payload + 10), byte(payload + 14) % 2 == 1};
        }
        return packet;
    }

    std::vector<unsigned char> const& m_bytes;
    std::vector<NaivePacket> m_packets;
};

} // namespace

std::vector<NaivePacket> naiveRead(Bytes const& stream) { return NaiveReader(stream).read(); }

std::ostream& operator<<(std::ostream& out, NaivePacket const& packet) {
    out << "type " << packet.type << " at " << packet.offset << ", " << packet.length << " bytes";
    if (packet.preamble) {
        NaivePreamble const& preamble = *packet.preamble;
        out << ", media type " << preamble.mediaType << ", track " << preamble.trackNumber
            << ", field " << preamble.field << ", bytes " << preamble.mediaBytes << ", timeline "
            << preamble.timeline << (preamble.timelineValid ? "" : " (invalid)");
    }
    return out;
}

} // namespace GxfTesting
