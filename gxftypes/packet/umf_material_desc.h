#pragma once

#include <gxftypes/packet/vocabulary.h>
#include <gxftypes/timecode/timecode.h>

namespace GxfTypes {

/// What the UMF says of the whole clip: 56 bytes, least significant byte first, in the order of the
/// fields.
struct UmfMaterialDesc {
    static constexpr unsigned wireSize = 56;

    /// A time of 64 bits, on the wire as two words whose order the object remembers.
    struct Timestamp {
        Timestamp() { reset(); }
        /// Sets the flag, which nothing ever clears: so every time is read as one little-endian
        /// number, and the test of plausibility doesn't bite. Intended.
        void reset();

        void decode(GxfBuffer& buffer);
        /// REQUIRES: room for 8 bytes.
        void encode(GxfBuffer& buffer) const;
        /// By the time alone.
        bool operator==(Timestamp const& other) const { return time == other.time; }

        std::uint64_t time; ///< a GXF time, see convertGxfTimeToPosixTime()
        bool lowWordFirst;
    };

    UmfMaterialDesc() { reset(); }
    /// Leaves both timecodes as they are: intended.
    void reset();

    /// `available` in bytes. Code 9, with nothing changed, below 56.
    OpResult decode(GxfBuffer& buffer, unsigned available);
    /// Code 12 without room for 56 bytes.
    OpResult encode(GxfBuffer& buffer) const;
    /// By all fields but `valid`.
    bool isEqual(UmfMaterialDesc const& other) const;
    AutoPtr<char> toString() const { return textOf(*this); }
    FormatStr& toString(unsigned indent, FormatStr& text) const;

    MaterialAttrBits attributes;
    std::uint32_t maxLength;
    std::uint32_t minLength;
    std::uint32_t markIn;
    std::uint32_t markOut;
    Timecode timecodeIn;
    Timecode timecodeOut;
    Timestamp modifiedTime;
    Timestamp createdTime;
    std::uint16_t reservedD;
    std::uint16_t reservedE;
    std::uint16_t nAudio;
    std::uint16_t nTc;
    std::uint16_t reservedF;
    std::uint16_t nMpeg;
    bool valid;
};

} // namespace GxfTypes
