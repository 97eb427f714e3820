#pragma once

#include <gxftypes/packet/vocabulary.h>

namespace GxfTypes {

/// The index at the head of a UMF's tail: eight words, least significant byte first, of which two
/// have a meaning here.
///
///     word 2 | word 2 | xmlOffset 2 | word 2 | xmlLength 2 | word 2 | word 2 | word 2
struct UmfIndex {
    static constexpr unsigned wireSize = 16;

    /// `size` is that of the section in bytes. Code 9 when the buffer holds fewer, code 10 for
    /// another size than 16: nothing is changed then, nothing consumed.
    OpResult decode(GxfBuffer& buffer, unsigned size);
    /// Writes nothing when the index isn't valid. Code 12 without room.
    OpResult encode(GxfBuffer& buffer) const;
    bool isEqual(UmfIndex const& other) const;
    unsigned size() const { return valid ? wireSize : 0; }
    unsigned short getXmlLength() const { return words[xmlLengthWord]; }
    void setXmlOffset(unsigned short offset) { words[xmlOffsetWord] = offset; }
    void setXmlLength(unsigned short length) { words[xmlLengthWord] = length; }
    /// Leaves the words: intended.
    void discard() { valid = false; }

    std::uint16_t words[8] = {};
    bool valid = false;

  private:
    static constexpr unsigned xmlOffsetWord = 2;
    static constexpr unsigned xmlLengthWord = 4;
};

/// Zero bytes at the very end of a rewritten UMF.
struct UmfFillerData {
    void addFillBytes(unsigned n) { fillBytes += n; }
    void erase() { fillBytes = 0; }
    unsigned size() const { return fillBytes; }
    /// Code 12 without room.
    OpResult encode(GxfBuffer& buffer) const;

    std::uint32_t fillBytes = 0;
};

} // namespace GxfTypes
