#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <vector>

#include <testing/bytes.h>

namespace GxfTesting {

/// The preamble of a media packet.
struct NaivePreamble {
    unsigned mediaType = 0;
    unsigned trackNumber = 0;
    std::uint32_t field = 0;
    std::uint32_t mediaBytes = 0; ///< in wire order, the first byte on top
    std::uint32_t timeline = 0;
    bool timelineValid = false;

    bool operator==(NaivePreamble const&) const = default;
};

struct NaivePacket {
    std::uint64_t offset = 0;
    unsigned type = 0;
    std::uint32_t length = 0;
    std::optional<NaivePreamble> preamble; ///< of a media packet that is long enough for one

    bool operator==(NaivePacket const&) const = default;
};

std::ostream& operator<<(std::ostream& out, NaivePacket const& packet);

/// A second reader of streams, which shares nothing with the library: a packet per header, each
/// byte looked at as often as it pleases. What it has instead of speed is that one can see that it
/// is right.
std::vector<NaivePacket> naiveRead(Bytes const& stream);

} // namespace GxfTesting
