#pragma once

#include <cstdint>

#include <gxftypes/timecode/st12_timecode.h>

namespace GxfTypes {

/// The timecodes of a block of 504 fields, decoded from the payload of a timecode media packet.
///
///     504 timecodes of 8 bytes | 63 bytes of validity bits, the lowest bit first | 1 byte not read
///
/// Entry i belongs to field (mediaField / 504) x 504 + i: a block begins on a multiple of 504.
class PerFrameTcSet {
  public:
    static constexpr unsigned entries = 504;
    static constexpr unsigned wireSize = 4096;

    PerFrameTcSet(unsigned mediaField, unsigned timeline);
    PerFrameTcSet(PerFrameTcSet const&) = delete;
    PerFrameTcSet& operator=(PerFrameTcSet const&) = delete;

    /// Consumes 4096 bytes. REQUIRES: they are in the buffer; missing ones read as zero.
    void decode(GxfBuffer& buffer);

    /// The validity bit of an entry. REQUIRES: index below 504.
    bool isValid(unsigned index) const {
        return (validFlags[flagIndex(index)] & flagMask(index)) != 0;
    }
    static unsigned flagIndex(unsigned index) { return index / 8; }
    static unsigned flagMask(unsigned index) { return 1U << (index % 8); }

    /// Field of entry 0.
    unsigned firstField() const { return mediaField / entries * entries; }
    void setTimecodeHz(unsigned hertz) { timecodeHz = hertz; }

    FormatStr& toString(unsigned indent, FormatStr& text) const;

    DLinkNode<PerFrameTcSet> link;
    std::uint32_t mediaField;
    std::uint32_t timeline;
    std::uint32_t timecodeHz = 1; ///< for the field mark and for printing
    std::uint8_t validFlags[entries / 8] = {};
    PerFrameTimecode timecodes[entries];
    bool fieldBitForced = false; ///< decode() set the field mark of at least one entry
};

} // namespace GxfTypes
