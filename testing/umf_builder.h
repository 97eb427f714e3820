#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include <testing/bytes.h>

namespace GxfTesting {

// The UMF composed byte by byte from the wire's layout, without the library: its sections, the
// gathered payload, and the packets that carry it.

/// ASCII as UTF-16LE, without a byte-order mark or an end.
Bytes utf16(std::string_view ascii);

/// A number in the gathered payload, least significant byte first.
std::uint32_t wordAt(Bytes const& bytes, std::size_t offset);
void setWordAt(Bytes& bytes, std::size_t offset, std::uint32_t value);

/// The 56 bytes of a clip of 100 fields.
Bytes umfMaterial();

struct UmfTrack {
    unsigned number = '0';
    unsigned type = 'M';
    unsigned segments = 1;
};
Bytes umfTrack(UmfTrack const& track);

/// The 160 bytes of an SD MPEG segment, with a name that tells it from others. `length` is what its
/// own length field says.
Bytes umfMedia(UmfTrack const& track, unsigned sequence, unsigned length = 160);

/// An item of user data as a whole: header and data.
Bytes umfItem(std::uint32_t key, Bytes const& data);
/// A key item with the values of a new one, type "String".
Bytes umfKeyItem(unsigned id, std::string_view name, std::uint32_t valueSize);
/// The value and two zero bytes behind it.
Bytes umfValueItem(unsigned id, Bytes const& value);
/// Both items of a pair: 316 bytes and the value.
Bytes umfPair(unsigned id, std::string_view name, Bytes const& value);

/// The sections of one gathered payload.
struct UmfContent {
    std::vector<UmfTrack> tracks;
    /// One for each segment of each track, in order, unless a test wants others.
    std::vector<Bytes> media;
    Bytes userData;
    bool hasIndex = false;
    std::array<unsigned, 8> indexWords{}; ///< payload() puts in where the XML is
    Bytes xml;
    Bytes rest;

    /// A track with its media.
    void addTrack(UmfTrack const& track);

    std::uint32_t userDataOffset() const;
    std::uint32_t indexOffset() const;
    std::uint32_t xmlOffset() const;
    std::uint32_t size() const;

    /// The gathered payload with the right words in front. A rewrite of this library changes
    /// nothing of it.
    Bytes payload() const;
};

/// One packet: header, order (0 middle, 1 first, 2 last, 3 only), length, fragment, padding.
Bytes umfPacket(unsigned order, Bytes const& fragment);
/// The packets of a payload, each but the last with a fragment of that size.
std::vector<Bytes> umfPackets(Bytes const& payload, std::size_t fragmentSize = 32768);
/// The packets one behind the other.
Bytes joined(std::vector<Bytes> const& packets);

/// Takes in the packets of one UMF, which begin at stream position 0, as a reader that uses the
/// library does. The newest packet holds the gathered payload, and the thread's error number is 0.
GxfTypes::AutoRefPtr<GxfTypes::UmfPacket> gathered(GxfTypes::PacketPool& pool,
                                                   std::vector<Bytes> packets);

} // namespace GxfTesting
