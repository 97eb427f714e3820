#pragma once

#include <cstdint>

#include <gxftypes/support/support.h>

namespace GxfTypes {

/// A timecode of SMPTE 12M as a timecode media packet holds it: BCD digits with flag bits above
/// them.
///
/// On the wire eight bytes, each with four bits of time in its low nibble and four user bits in its
/// high nibble; two bytes make one pair of digits, the units first.
class ST12Timecode {
  public:
    static constexpr unsigned wireSize = 8;

    ST12Timecode() = default;
    ST12Timecode(unsigned long long counter, unsigned frameRate, bool dropFrame);
    ST12Timecode(ST12Timecode const&) = default;
    ST12Timecode& operator=(ST12Timecode const&) = default;
    virtual ~ST12Timecode() = default;

    /// Copies all eight bytes; always true.
    bool set(ST12Timecode const& other);

    /// Fills the digits from a count of frames since midnight, taken modulo 24 hours; `frameRate`
    /// in whole hertz. Drop frame at a rate that has none counts as non-drop.
    void setCounter(unsigned long long counter, unsigned frameRate, bool dropFrame);

    /// False, with nothing changed, for a `size` below 8 bytes.
    bool decode(unsigned char const* data, unsigned size);

    bool isDropFrame() const { return (timeBytes[0] & dropFrameBit) != 0; }
    /// The field mark: tells the second field of a frame.
    bool field(unsigned frameRate) const;
    /// Sets the field mark whatever `value` says: intended.
    void setField(unsigned frameRate, bool value);

    /// Appends hours to frames, with ';' in front of the frames for drop frame.
    FormatStr& toString(unsigned frameRate, FormatStr& text) const;

    /// The frame digits count every second frame.
    static bool useHalfFrameCnt(unsigned frameRate) { return frameRate >= 31; }
    static bool usePalFormat(unsigned frameRate) { return frameRate == 25 || frameRate == 50; }
    static bool isNtscRate(unsigned frameRate) { return frameRate == 30 || frameRate == 60; }

    std::uint8_t timeBytes[4] = {}; ///< frames, seconds, minutes, hours
    std::uint8_t userBytes[4] = {};

  private:
    static constexpr std::uint8_t dropFrameBit = 0x40;
    static constexpr std::uint8_t fieldBit = 0x80;
};

/// One entry of a block of timecodes.
class PerFrameTimecode : public ST12Timecode {
  public:
    PerFrameTimecode() = default;
    PerFrameTimecode(ST12Timecode const& timecode) : ST12Timecode(timecode), valid(true) {}
    PerFrameTimecode(PerFrameTimecode const&) = default;
    PerFrameTimecode& operator=(PerFrameTimecode const&) = default;

    /// Reads 8 bytes; the entry is valid from then on.
    bool decode(unsigned char const* data);
    /// "inv" when the entry isn't valid.
    FormatStr& toString(unsigned frameRate, FormatStr& text) const;

    bool valid = false;
};

} // namespace GxfTypes
