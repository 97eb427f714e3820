#pragma once

#include <gxftypes/packet/packet.h>
#include <gxftypes/packet/umf_chunk.h>
#include <gxftypes/packet/umf_layout.h>
#include <gxftypes/packet/umf_material_desc.h>
#include <gxftypes/packet/umf_media_desc.h>
#include <gxftypes/packet/umf_tail.h>
#include <gxftypes/packet/umf_user_data_set.h>
#include <gxftypes/xml/gxf_xml_tree.h>

namespace GxfTypes {

/// The description of the clip: one logical byte string spread over packets of type 253.
///
///     PayloadDesc 48 | MaterialDesc 56 | TrackDesc 4 each | MediaDesc 160 each | user data |
///     UmfIndex 16, if any | XML document | bytes kept as they came | filler
///
/// Reading: decode() on each packet in stream order; from the second on, prependPayload() with the
/// packet before it; when decode() has answered "umf final", decodeFinal() on that newest packet.
/// Rewriting: change userData, then update(), then encode(); the new packets take exactly the bytes
/// of the old. The XML and the binary sections stay two separate views of the clip.
///
/// A recycled packet keeps its index, its tail and its XML tree until a decode replaces them:
/// intended.
class UmfPacket : public Packet {
  public:
    using Preamble = UmfPreamble;
    using PayloadDesc = UmfPayloadDesc;
    using MaterialDesc = UmfMaterialDesc;
    using TrackDesc = UmfTrackDesc;
    using MediaDesc = UmfMediaDesc;
    using GxfKey = UmfKey;
    using KeyType = UmfKeyType;
    using GxfUserDataType = UmfUserDataType;
    using UserData = UmfUserData;
    using UserDataKey = UmfUserDataKey;
    using UserDataPair = UmfUserDataPair;
    using UserDataSet = UmfUserDataSet;
    using UmfIndex = GxfTypes::UmfIndex;
    using UmfFillerData = GxfTypes::UmfFillerData;
    using UmfPacketChunk = UmfChunk;
    using TrackDescs = FixedMinVector<TrackDesc, 20U>;
    using MediaDescs = FixedMinVector<MediaDesc, 17U>;

    /// Bytes of the fragment in every packet of a UMF but the last.
    static constexpr unsigned fragmentSize = 32768;

    explicit UmfPacket(PacketPool& owner);
    explicit UmfPacket(Packet& source);

    void reset(Packet const& source) override;
    void reset(PacketType newType) override;
    /// Writes all packets of the UMF. Code 12 when getCodedLength() bytes have no room; else the
    /// failure of a section.
    OpResult encode(GxfBuffer& out) const override;
    /// Takes in one packet's fragment: an info result of code 1 when the UMF is complete, of code 0
    /// when more packets follow. Code 9 or 10, with valid false, for a preamble that isn't one.
    OpResult decode(GxfBuffer& in) override;
    /// By the sections up to the index.
    bool isEqual(Packet const& other) const override;
    bool needsAllData(GxfBuffer&) const override { return true; }
    unsigned getPart1Length() const override { return Preamble::wireSize; }
    unsigned getPart2Length() const override { return preamble.payloadLength; }
    unsigned calcLength() const override;
    UmfPacketOrder getPacketOrder() const override { return preamble.packetOrder; }
    AutoRefPtr<UmfPacket> getUmfPacket() override { return this; }
    bool isValid() const override { return valid && Packet::isValid(); }
    AutoPtr<char> toString() const override { return textOf(*this); }
    FormatStr& toString(unsigned indent, FormatStr& text) const override;

    /// Puts what the earlier packet gathered in front of this one's fragment, and takes over where
    /// the UMF begins and what its packets take.
    void prependPayload(UmfPacket& earlier);
    /// Parses the gathered payload. A failure up to the user data makes the packet invalid (codes
    /// 9, 10, 11); what is wrong behind it colours the result, and isValid() is true.
    OpResult decodeFinal();

    /// Fits the content into the size that was decoded: adds filler, or throws away filler, kept
    /// bytes, XML and index in that order. Code 12 when that isn't enough; what was thrown away
    /// stays lost.
    OpResult updateSize();
    /// updateSize(), and the index and the payload description made to agree.
    OpResult update();
    void discardXml();
    void addFillerBytes(unsigned n) { fillerData.addFillBytes(n); }
    /// A copy from the same pool without the XML tree; null on failure.
    AutoRefPtr<UmfPacket> clone() const;

    MediaDescs const& getMediaDesc() const { return mediaDescs; }
    /// The first description of a track's media, which stays the packet's; null without one.
    MediaDesc* getMediaDesc(UmfTrackNum const& trackNum);
    MediaDesc const* getMediaDesc(UmfTrackNum const& trackNum) const;
    /// The first track of the XML with that type and number, which stays the packet's; null without
    /// one.
    GxfXmlTrack const* getXmlTrack(UmfTrackNum const& trackNum) const;

    /// Zero bytes that make a length a multiple of 4.
    static unsigned calcPacketPad(unsigned length) { return (4 - length % 4) % 4; }
    static unsigned trackNumberOf(TrackNumberEncoding encoding) {
        return TrackDesc::trackNumberOf(encoding);
    }
    unsigned calcTrackDescSize() const { return TrackDesc::wireSize * trackDescs.size(); }
    unsigned calcMediaDescSize() const { return MediaDesc::wireSize * mediaDescs.size(); }
    unsigned calcUserDataSize() const { return userData.size(); }
    unsigned calcPayloadSize() const;
    /// 0 without a valid index.
    unsigned calcIndexOffset() const;
    /// 0 without XML.
    unsigned calcXmlOffset() const;

    Preamble preamble;
    PayloadDesc payloadDesc;
    MaterialDesc materialDesc;
    TrackDescs trackDescs;
    MediaDescs mediaDescs;
    UserDataSet userData;
    UmfIndex umfIndex;
    GxfPreservedData preservedData[2]; ///< the XML; all bytes behind it
    UmfFillerData fillerData;
    std::uint32_t decodedPayloadSize; ///< the target of a rewrite
    GxfXmlTree xmlTree;
    GxfBuffer gatherBuffer; ///< fragments that wait for decodeFinal()
    bool valid;

  private:
    void resetPrivate(bool isValid);
    OpResult decodeSections(unsigned& remaining);
    OpResult decodeTracks(unsigned& remaining);
    OpResult decodeMedia(unsigned segments, unsigned& remaining);
    OpResult decodeUserData(unsigned& remaining);
    OpResult decodeTail(unsigned remaining);
    unsigned tailSize() const;
    OpResult encodePayload(GxfBuffer& payload) const;
    OpResult encodePackets(GxfBuffer& out, GxfBuffer& payload) const;
};

} // namespace GxfTypes
