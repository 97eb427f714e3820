#include <testing/umf_builder.h>

#include <algorithm>
#include <string>

#include <testing/stream_builder.h>

namespace GxfTesting {

namespace {

Bytes u16Lsbf(unsigned value) { return Bytes().u8(value).u8(value >> 8); }

/// A text in a field of that size.
Bytes padded(std::string_view text, std::size_t size) {
    return Bytes().text(text).fill(size - text.size());
}

Bytes slice(Bytes const& bytes, std::size_t begin, std::size_t count) {
    return Bytes().text({reinterpret_cast<char const*>(bytes.data()) + begin, count});
}

} // namespace

Bytes utf16(std::string_view ascii) {
    Bytes bytes;
    for (char const c : ascii) {
        bytes.u8(static_cast<unsigned char>(c)).u8(0);
    }
    return bytes;
}

std::uint32_t wordAt(Bytes const& bytes, std::size_t offset) {
    std::uint32_t value = 0;
    for (std::size_t i = 4; i > 0; --i) {
        value = value << 8 | bytes.vector().at(offset + i - 1);
    }
    return value;
}

void setWordAt(Bytes& bytes, std::size_t offset, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[offset + i] = static_cast<unsigned char>(value >> (8 * i));
    }
}

Bytes umfMaterial() {
    Bytes bytes;
    bytes.u32Lsbf(1);                                      // attributes
    bytes.u32Lsbf(100).u32Lsbf(2).u32Lsbf(10).u32Lsbf(90); // lengths, marks
    bytes.u32Lsbf(0x01020304).u32Lsbf(0x01030405);         // timecodes
    bytes.u32Lsbf(0x11111111).u32Lsbf(0x00112233);         // modified
    bytes.u32Lsbf(0x22222222).u32Lsbf(0x00112234);         // created
    for (unsigned const value : {0xD1U, 0xE2U, 2U, 1U, 0xF3U, 1U}) {
        bytes.add(u16Lsbf(value));
    }
    return bytes;
}

Bytes umfTrack(UmfTrack const& track) {
    return Bytes().u8(track.number).u8(track.type).add(u16Lsbf(track.segments));
}

Bytes umfMedia(UmfTrack const& track, unsigned sequence, unsigned length) {
    std::string const name =
        "EXT:/PDR/default/CLIP_" + std::string(1, static_cast<char>(track.type)) +
        std::string(1, static_cast<char>(track.number)) + "_" + std::to_string(sequence);
    return u16Lsbf(length)
        .u8(track.number)
        .u8(track.type)
        .add(u16Lsbf(sequence))
        .add(u16Lsbf(0xA1A2))
        .u32Lsbf(100)
        .u32Lsbf(0xB1B2B3B4)
        .u32Lsbf(sequence * 100)
        .u32Lsbf(sequence * 100 + 99)
        .add(padded(name, 88))
        .u32Lsbf(4)
        .u32Lsbf(27000000)
        .u32Lsbf(0)
        .u32Lsbf(0xC1C2C3C4)
        // 4:2:2, closed GOP, frames, pictures, MPEG-2 in 4:3, format description.
        .u32Lsbf(2)
        .u32Lsbf(1)
        .u32Lsbf(3)
        .u32Lsbf(1)
        .u32Lsbf(4)
        .u32Lsbf(2)
        .u8(0x42)
        .u8(0x08)
        .fill(6);
}

Bytes umfItem(std::uint32_t key, Bytes const& data) {
    return Bytes()
        .u32Lsbf(static_cast<std::uint32_t>(16 + data.size()))
        .u32Lsbf(0xFFFFFFFF)
        .u8('0')
        .u8('M')
        .add(u16Lsbf(0))
        .u32Lsbf(key)
        .add(data);
}

Bytes umfKeyItem(unsigned id, std::string_view name, std::uint32_t valueSize) {
    return umfItem(0x70000 | id, Bytes()
                                     .fill(16)
                                     .u32Lsbf(0xFFFFFFFF)
                                     .add(padded("Zorvan Media Subsystem", 32))
                                     .add(padded("userdata", 32))
                                     .add(padded("String", 80))
                                     .add(padded(name, 80))
                                     .add(padded("1", 32))
                                     .u32Lsbf(valueSize)
                                     .fill(2));
}

Bytes umfValueItem(unsigned id, Bytes const& value) {
    return umfItem(0x80000 | id, Bytes().add(value).fill(2));
}

Bytes umfPair(unsigned id, std::string_view name, Bytes const& value) {
    return umfKeyItem(id, name, static_cast<std::uint32_t>(value.size()))
        .add(umfValueItem(id, value));
}

void UmfContent::addTrack(UmfTrack const& track) {
    tracks.push_back(track);
    for (unsigned i = 0; i < track.segments; ++i) {
        media.push_back(umfMedia(track, i));
    }
}

std::uint32_t UmfContent::userDataOffset() const {
    return static_cast<std::uint32_t>(104 + 4 * tracks.size() + 160 * media.size());
}

std::uint32_t UmfContent::indexOffset() const {
    return hasIndex ? static_cast<std::uint32_t>(userDataOffset() + userData.size()) : 0;
}

std::uint32_t UmfContent::xmlOffset() const {
    return xml.size() != 0 ? size() - static_cast<std::uint32_t>(xml.size() + rest.size()) : 0;
}

std::uint32_t UmfContent::size() const {
    return static_cast<std::uint32_t>(userDataOffset() + userData.size() + (hasIndex ? 16U : 0U) +
                                      xml.size() + rest.size());
}

Bytes UmfContent::payload() const {
    auto const nTracks = static_cast<std::uint32_t>(tracks.size());
    auto const nMedia = static_cast<std::uint32_t>(media.size());
    Bytes bytes;
    bytes.u32Lsbf(size()).u32Lsbf(3);
    bytes.u32Lsbf(nTracks).u32Lsbf(104).u32Lsbf(4 * nTracks);
    bytes.u32Lsbf(nMedia).u32Lsbf(104 + 4 * nTracks).u32Lsbf(160 * nMedia);
    bytes.u32Lsbf(userDataOffset()).u32Lsbf(static_cast<std::uint32_t>(userData.size()));
    bytes.u32Lsbf(indexOffset()).u32Lsbf(hasIndex ? 16 : 0);
    bytes.add(umfMaterial());
    for (UmfTrack const& track : tracks) {
        bytes.add(umfTrack(track));
    }
    for (Bytes const& description : media) {
        bytes.add(description);
    }
    bytes.add(userData);
    if (hasIndex) {
        std::array<unsigned, 8> words = indexWords;
        words[2] = xmlOffset();
        words[4] = static_cast<unsigned>(xml.size());
        for (unsigned const word : words) {
            bytes.add(u16Lsbf(word));
        }
    }
    return bytes.add(xml).add(rest);
}

Bytes umfPacket(unsigned order, Bytes const& fragment) {
    Bytes payload;
    payload.u8(order).u32(static_cast<std::uint32_t>(fragment.size())).add(fragment);
    while ((16 + payload.size()) % 4 != 0) {
        payload.u8(0);
    }
    return packet(0xFD, payload);
}

std::vector<Bytes> umfPackets(Bytes const& payload, std::size_t fragmentSize) {
    constexpr unsigned middle = 0;
    constexpr unsigned first = 1;
    constexpr unsigned last = 2;
    constexpr unsigned only = 3;
    std::vector<Bytes> packets;
    for (std::size_t at = 0; at < payload.size(); at += fragmentSize) {
        std::size_t const count = std::min(fragmentSize, payload.size() - at);
        bool const begins = at == 0;
        bool const ends = at + count == payload.size();
        unsigned const order = begins ? (ends ? only : first) : (ends ? last : middle);
        packets.push_back(umfPacket(order, slice(payload, at, count)));
    }
    return packets;
}

Bytes joined(std::vector<Bytes> const& packets) {
    Bytes bytes;
    for (Bytes const& one : packets) {
        bytes.add(one);
    }
    return bytes;
}

GxfTypes::AutoRefPtr<GxfTypes::UmfPacket> gathered(GxfTypes::PacketPool& pool,
                                                   std::vector<Bytes> packets) {
    using namespace GxfTypes;
    AutoRefPtr<UmfPacket> newest;
    unsigned long long offset = 0;
    for (Bytes& bytes : packets) {
        GxfBuffer buffer = bytes.filledBuffer();
        buffer.reset(GxfBuffer::DataState::filled, offset);
        offset += bytes.size();
        AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
        header->decode(buffer);
        AutoRefPtr<UmfPacket> const packet = header->createActual()->getUmfPacket();
        packet->decode(buffer);
        if (newest.get() != nullptr) {
            packet->prependPayload(*newest);
        }
        newest = packet;
    }
    // What an earlier failure left there makes the first number of the document fail.
    clearLastError();
    return newest;
}

} // namespace GxfTesting
