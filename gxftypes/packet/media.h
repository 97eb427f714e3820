#pragma once

#include <gxftypes/packet/media_hdr.h>
#include <gxftypes/packet/packet.h>
#include <gxftypes/timecode/per_frame_tc_set.h>

namespace GxfTypes {

/// A field or frame of essence, which isn't touched: only the preamble, the headers of an MPEG
/// I-picture and a block of timecodes are read, and the rest is skipped, also where it isn't in the
/// buffer.
///
///     MediaPacketHdr 16 | essence
///
/// encode() writes the packet header alone, since the essence lies with the caller.
class MediaPacket : public Packet {
  public:
    explicit MediaPacket(PacketPool& owner) : Packet(packetTypeMedia, owner), valid(true) {}
    explicit MediaPacket(Packet& source) : Packet(source), valid(false) {}

    /// Not valid until it is decoded.
    void reset(Packet const& source) override;
    /// Valid at once: a packet to be written. Leaves the timecodes and the bit parser: intended.
    void reset(PacketType newType) override;
    /// Code 9, with nothing consumed, for a payload below 16 bytes. All else that is wrong passes
    /// as success. A block of timecodes is read only when the buffer holds 16 bytes more than the
    /// payload: intended.
    OpResult decode(GxfBuffer& buffer) override;
    /// A packet equals only itself, see MediaPacketHdr::isEqual().
    bool isEqual(Packet const& other) const override;
    /// True for timecode, by the payload's first byte. An empty buffer is an error of code 7.
    bool needsAllData(GxfBuffer& buffer) const override;
    /// The preamble, and 64 bytes for the headers of an I-picture.
    unsigned getPart1Length() const override { return 80; }
    unsigned getPart2Length() const override { return getPayloadLength() - 80; }
    AutoRefPtr<MediaPacket> getMediaPacket() override { return this; }
    bool isValid() const override { return valid && Packet::isValid(); }
    AutoPtr<char> toString() const override { return textOf(*this); }
    FormatStr& toString(unsigned indent, FormatStr& text) const override;

    bool isTimecode() const { return hdr.isTimecode(); }

    bool valid;
    MediaPacketHdr hdr;
    BitChunkParser bitParser;
    AutoPtr<PerFrameTcSet> perFrameTc; ///< of a timecode packet, else empty

  private:
    bool isIPicture() const { return hdr.isMpeg() && hdr.getMpegPicType() == mpegPicTypeI; }
    OpResult decodeRare(GxfBuffer& buffer);
    OpResult decodePayload(GxfBuffer& buffer);
    OpResult decodeEssence(GxfBuffer& buffer, unsigned long long start);
    void skipPayload(GxfBuffer& buffer, unsigned long long start) const;
    void scanIPicture(GxfBuffer& buffer);
    void decodeGopHeader();
    void decodeSequenceHeader();
    void decodeTimecodes(GxfBuffer& buffer);
    void keepTcSet();
    AutoPtr<PerFrameTcSet> makeTcSet();

    // Kept between uses, so that a stream's timecode packets don't allocate.
    AutoPtr<PerFrameTcSet> m_spareTcSet;
};

} // namespace GxfTypes
