#pragma once

#include <cstdint>

#include <gxftypes/support/support.h>

namespace GxfTypes {

/// A time of day in frames, as the MAP and the UMF carry it. Binary digits, which aren't checked.
///
///     frames 8 | seconds 8 | minutes 8 | invalid 1, reserved 1, drop frame 1, unused 1, hours 4
struct Timecode {
    /// An invalid timecode of zero digits.
    Timecode()
        : frames(0), seconds(0), minutes(0), hours(0), dropFrame(0), reservedFlag(0), invalid(1) {}

    /// All seven fields: two invalid values with different digits differ.
    bool operator==(Timecode const& other) const;

    /// `size` is the number of bytes that may be read. Code 9, with nothing read, below 4.
    OpResult decode(GxfBuffer& buffer, unsigned size);
    /// Code 12 without room for 4 bytes. The unused bit is written as 0.
    OpResult encode(GxfBuffer& buffer) const;

    bool isDropFrame() const { return dropFrame != 0; }
    bool isInvalid() const { return invalid != 0; }

    /// Frames since midnight, in 32 bits; `frameRate` in whole hertz. 0 for drop frame at a rate
    /// that has none.
    unsigned long long getCounter(unsigned frameRate) const;

    FormatStr& toString(FormatStr& text) const;

    std::uint32_t frames : 8;
    std::uint32_t seconds : 8;
    std::uint32_t minutes : 8;
    std::uint32_t hours : 4;
    std::uint32_t dropFrame : 1;
    std::uint32_t reservedFlag : 1;
    std::uint32_t invalid : 1;
};

/// The timecode in the auxiliary information of a track.
///
///     Timecode 4 | userBytes 4
struct AuxTimecode : Timecode {
    /// Code 9, with nothing read, for a `size` below 8.
    OpResult decode(GxfBuffer& buffer, unsigned size);

    /// A track whose timecode is valid was striped with it.
    bool isStriped() const { return !isInvalid(); }

    std::uint8_t userBytes[4] = {};
};

/// Frames dropped of 29.97 hertz: two per minute but for every tenth.
namespace DropFrame {
constexpr unsigned framesPerMinute = 1798;
constexpr unsigned framesPerTenMinutes = 17982;
constexpr unsigned framesPerHour = 107892;
} // namespace DropFrame

} // namespace GxfTypes
