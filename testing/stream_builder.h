#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <testing/bytes.h>

namespace GxfTesting {

// Packets and streams composed byte by byte from the wire's layout, without the library.

/// The 16 header bytes. `length` is that of the whole packet.
Bytes header(unsigned type, std::uint32_t length);
/// Header and payload.
Bytes packet(unsigned type, Bytes const& payload);
Bytes endOfStream();

/// A tag: number, length, value.
Bytes tag(unsigned number, Bytes const& value);
Bytes tagU32(unsigned number, std::uint32_t value);
/// The text goes out with its terminating zero inside the tag's length.
Bytes tagText(unsigned number, std::string_view text);

/// A track: media type with the top bit set, track byte with 0xC0 above the number, tags.
Bytes track(unsigned mediaType, unsigned number, Bytes const& tags);
/// The payload of a MAP: preamble E0 FF, the two sections, a tail.
Bytes mapPayload(Bytes const& materialTags, Bytes const& tracks, Bytes const& tail = {});

Bytes fltPayload(std::uint32_t fieldsPerEntry, std::vector<std::uint32_t> const& entries,
                 std::size_t padding = 0);

/// The preamble of a media packet.
struct MediaPreamble {
    unsigned mediaType = 9;
    unsigned trackByte = 0xC0;
    std::uint32_t field = 0;
    std::uint32_t mediaBytes = 0; ///< in wire order, the first byte on top
    std::uint32_t timeline = 0;
    unsigned flags = 1;
    unsigned reserved = 0;
};
Bytes mediaPreamble(MediaPreamble const& preamble);
Bytes mediaPacket(MediaPreamble const& preamble, Bytes const& essence);

/// 8 bytes of a timecode in BCD digits with zero user bits.
Bytes st12(unsigned hours, unsigned minutes, unsigned seconds, unsigned frames);
/// A block of 504 timecodes; `valid` entries from the first on, which count frames, two fields
/// each, from zero at `framesPerSecond`.
Bytes timecodeBlock(unsigned valid, unsigned framesPerSecond);

/// The start of an MPEG picture of pattern bytes, behind a sequence header of that size and a GOP
/// header.
Bytes mpegIPicture(unsigned width, unsigned height, bool closedGop, std::size_t size);

} // namespace GxfTesting
