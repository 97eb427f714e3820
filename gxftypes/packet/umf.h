#pragma once

#include <gxftypes/packet/packet.h>

namespace GxfTypes {

/// The description of the clip, one logical byte string spread over packets of type 253.
class UmfPacket : public Packet {
  public:
    class UmfPacketChunk;

    /// What the description says of one segment of a track.
    struct MediaDesc {
        enum ColorSampling : std::uint32_t { colorSampling420 = 1, colorSampling422 = 2 };
        enum GopStructure : std::uint32_t { gopStructureOpenGop = 0, gopStructureClosedGop = 1 };
        enum FrameFieldStructure : std::uint32_t {
            frameFieldStructureTopFF = 1,
            frameFieldStructureBottomFF = 2,
            frameFieldStructureFrame = 3,
        };
        enum MpegType : std::uint32_t {
            mpegTypeMpeg1 = 1,
            mpegTypeMpeg2 = 2,
            mpegTypeMpeg2Cbr = 4,
        };
        enum Aspect : std::uint32_t { aspect4x3 = 64, aspect16x9 = 128 };
        enum TimecodeType : std::uint32_t { timecodeTypeDrop = 0, timecodeTypeNonDrop = 1 };
    };

  protected:
    using Packet::Packet;
};

char const* getName(UmfPacket::MediaDesc::ColorSampling);
char const* getName(UmfPacket::MediaDesc::GopStructure);
char const* getName(UmfPacket::MediaDesc::FrameFieldStructure);
char const* getName(UmfPacket::MediaDesc::MpegType);
char const* getName(UmfPacket::MediaDesc::Aspect);
char const* getName(UmfPacket::MediaDesc::TimecodeType);

/// The writer's vehicle for one wire packet of a UMF; never stands for a decoded packet.
class UmfPacket::UmfPacketChunk : public Packet {
  public:
    explicit UmfPacketChunk(PacketPool& owner) : Packet(packetTypeInternalUmfChunk, owner) {}
    explicit UmfPacketChunk(Packet& source) : Packet(source) {}

    void reset(Packet const& source) override { resetPrivate(source); }
    void reset(PacketType newType) override { resetPrivate(newType); }
    /// Always code 14.
    OpResult decode(GxfBuffer&) override { return gxfError(GxfOpSubsystem::unimplemented); }
    /// Always false, after an error of code 14.
    bool isEqual(Packet const&) const override { return gxfError(GxfOpSubsystem::unimplemented); }
};

} // namespace GxfTypes
