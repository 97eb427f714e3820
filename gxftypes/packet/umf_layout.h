#pragma once

#include <gxftypes/packet/vocabulary.h>

namespace GxfTypes {

/// What stands in front of each fragment of a UMF.
///
///     packetOrder 1 | payloadLength 4, big-endian
struct UmfPreamble {
    static constexpr unsigned wireSize = 5;

    UmfPreamble() { reset(); }
    UmfPreamble(UmfPacketOrder order, unsigned length)
        : packetOrder(order), payloadLength(length), valid(true) {}
    void reset();

    UmfPacketOrder getPacketOrder() const { return packetOrder; }
    unsigned getPayloadLength() const { return payloadLength; }

    /// `available` in bytes. Code 9, with nothing read, below 5; code 10, with the length unread,
    /// for an order above 3.
    OpResult decode(GxfBuffer& buffer, unsigned available);
    /// Code 12 without room for 5 bytes.
    OpResult encode(GxfBuffer& buffer) const;
    AutoPtr<char> toString() const { return textOf(*this); }
    FormatStr& toString(unsigned indent, FormatStr& text) const;

    UmfPacketOrder packetOrder;
    std::uint32_t payloadLength; ///< bytes of the fragment, without padding
    bool valid;
};

/// What stands at the head of the gathered payload: twelve words, least significant byte first.
/// Offsets count from its own first byte and are never used to find a section.
struct UmfPayloadDesc {
    static constexpr unsigned wireSize = 48;
    static constexpr unsigned maxTracks = 128;

    UmfPayloadDesc() { reset(); }
    void reset();

    bool isValid() const { return valid; }
    unsigned getNTracks() const { return numTracks; }
    unsigned getUserDataLength() const { return userDataLength; }
    unsigned getIndexLength() const { return indexLength; }
    void setUserDataLength(unsigned length) { userDataLength = length; }
    void setIndexOffset(unsigned offset) { indexOffset = offset; }
    void setIndexSize(unsigned size) { indexLength = size; }

    /// `available` in bytes. Code 9, with nothing read, below 48; code 10, with the words as read,
    /// for another version than 3, sections longer than the whole, or more than 128 tracks.
    OpResult decode(GxfBuffer& buffer, unsigned available);
    /// Code 12 without room for 48 bytes. Computes nothing.
    OpResult encode(GxfBuffer& buffer) const;
    /// By the twelve words.
    bool isEqual(UmfPayloadDesc const& other) const;
    AutoPtr<char> toString() const { return textOf(*this); }
    FormatStr& toString(unsigned indent, FormatStr& text) const;

    std::uint32_t totalLength;
    std::uint32_t version;
    std::uint32_t numTracks;
    std::uint32_t trackDescOffset;
    std::uint32_t trackDescSize;
    std::uint32_t numSegments; ///< carried only: the tracks tell the number of media descriptions
    std::uint32_t mediaDescOffset;
    std::uint32_t mediaDescSize;
    std::uint32_t userDataOffset;
    std::uint32_t userDataLength;
    std::uint32_t indexOffset;
    std::uint32_t indexLength;
    bool valid;

  private:
    static constexpr std::uint32_t UmfPayloadDesc::*words[] = {
        &UmfPayloadDesc::totalLength,     &UmfPayloadDesc::version,
        &UmfPayloadDesc::numTracks,       &UmfPayloadDesc::trackDescOffset,
        &UmfPayloadDesc::trackDescSize,   &UmfPayloadDesc::numSegments,
        &UmfPayloadDesc::mediaDescOffset, &UmfPayloadDesc::mediaDescSize,
        &UmfPayloadDesc::userDataOffset,  &UmfPayloadDesc::userDataLength,
        &UmfPayloadDesc::indexOffset,     &UmfPayloadDesc::indexLength,
    };
};

} // namespace GxfTypes
