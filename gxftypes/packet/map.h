#pragma once

#include <gxftypes/packet/map_track.h>
#include <gxftypes/packet/packet.h>

namespace GxfTypes {

/// What the clip is and which tracks it has.
///
///     Preamble 2 | MaterialData | Tracks | tail, kept as it came
///
/// The sections count by the lengths that the wire claims, not by the bytes that a decode consumes.
/// Lengths go out as they stand in the object: an encode needs a decoded or cloned packet. On a
/// recycled packet the tail and the striped timecode of an earlier clip stay until they are
/// replaced: intended.
class MapPacket : public Packet {
  public:
    using Track = MapTrack;
    using Tracks = MapTracks;
    using MpegAuxInfo = GxfTypes::MpegAuxInfo;
    using DvAuxInfo = GxfTypes::DvAuxInfo;
    using AvciAuxInfo = GxfTypes::AvciAuxInfo;
    using AncillaryDataAuxInfo = GxfTypes::AncillaryDataAuxInfo;

    /// The first two bytes of the payload, neither of which is tested.
    class Preamble {
      public:
        static constexpr unsigned wireSize = 2;

        explicit Preamble(bool valid) { reset(valid); }
        Preamble(Preamble const&) = default;
        Preamble& operator=(Preamble const&) = default;
        virtual ~Preamble() = default;

        /// Code 9, with nothing consumed, when `remaining` is below 2.
        virtual OpResult decode(GxfBuffer& buffer, unsigned remaining);
        /// Code 12 without room for 2 bytes.
        virtual OpResult encode(GxfBuffer& buffer) const;
        virtual AutoPtr<char> toString() const { return textOf(*this); }
        virtual FormatStr& toString(unsigned indent, FormatStr& text) const;

        void reset(bool valid);
        void copy(Preamble const& other) { *this = other; }
        /// By the version byte alone.
        bool isEqual(Preamble const& other) const { return versionByte == other.versionByte; }

        std::uint32_t versionByte; ///< the version in the low five bits
        std::uint8_t reservedByte;
        bool preambleValid;
    };

    /// The tags of the whole clip.
    ///
    ///     sectionLength 2 | tags
    class MaterialData : public TagSet<MapTagType, 8U> {
      public:
        explicit MaterialData(bool isValid) : TagSet(isValid), sectionLength(0) {}

        /// Appends the tags of the section. `remaining` is what is left of the payload in bytes.
        /// Code 9 when the section overruns it; else the failure of a tag.
        OpResult decode(GxfBuffer& buffer, unsigned remaining) override;
        /// Code 12 without room; else the failure of a tag.
        OpResult encode(GxfBuffer& buffer) const;
        void reset(bool isValid);
        /// Appends copies of the other's tags and counts as valid.
        void copy(MaterialData const& other);
        unsigned getCodedLength() const { return sectionLength + 2U; }

        std::uint16_t sectionLength;
    };

    explicit MapPacket(PacketPool& owner);
    explicit MapPacket(Packet& source);

    void reset(Packet const& source) override;
    void reset(PacketType newType) override;
    /// Code 12 when `length` bytes have no room; else the failure of a section, with the bytes
    /// written so far in the buffer.
    OpResult encode(GxfBuffer& buffer) const override;
    /// Appends to what is there. Code 9 for a short preamble or any failure in the material data;
    /// the track section's own failure; success with isValid() false when the tail isn't in the
    /// buffer.
    OpResult decode(GxfBuffer& buffer) override;
    /// By preamble, material data and tracks.
    bool isEqual(Packet const& other) const override;
    bool needsAllData(GxfBuffer&) const override { return true; }
    unsigned getPart1Length() const override { return Preamble::wireSize; }
    unsigned getPart2Length() const override { return getPayloadLength() - Preamble::wireSize; }
    AutoRefPtr<MapPacket> getMapPacket() override { return this; }
    bool isValid() const override { return packetValid && Packet::isValid(); }
    AutoPtr<char> toString() const override { return textOf(*this); }
    FormatStr& toString(unsigned indent, FormatStr& text) const override;

    /// A packet of the same pool with all of this one's content; null, after an error message, when
    /// the copy isn't equal to it, as with a percent sign doubled in a text.
    AutoRefPtr<Packet> clone() const;
    /// The first timecode track, which stays the packet's; null without one.
    Track const* getTimecodeTrack() const;

    Preamble preamble;
    MaterialData materialData;
    Tracks tracks;
    GxfPreservedData preservedData;
    bool packetValid;

  private:
    void resetPrivate(bool valid);
    OpResult encodeSections(GxfBuffer& buffer) const;
};

} // namespace GxfTypes
