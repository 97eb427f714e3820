#pragma once

#include <gxftypes/packet/packet.h>
#include <gxftypes/packet/umf_layout.h>

namespace GxfTypes {

/// The writer's vehicle for one wire packet of a UMF; never stands for a decoded packet.
class UmfChunk : public Packet {
  public:
    explicit UmfChunk(PacketPool& owner) : Packet(packetTypeInternalUmfChunk, owner) {}
    explicit UmfChunk(Packet& source) : Packet(source) {}

    /// Both leave the preamble as it is: intended.
    void reset(Packet const& source) override;
    void reset(PacketType newType) override;
    /// Always code 14.
    OpResult decode(GxfBuffer&) override { return gxfError(GxfOpSubsystem::unimplemented); }
    /// Always false, after an error of code 14.
    bool isEqual(Packet const&) const override { return gxfError(GxfOpSubsystem::unimplemented); }

    /// Prepares a packet with a fragment of `n` bytes.
    void init(UmfPacketOrder order, unsigned n);
    using Packet::encode;
    /// Writes the packet and takes its fragment from the front of `payload`. Code 7 before init(),
    /// code 12 without room or with too short a payload, code 13 when the buffer refuses.
    OpResult encode(GxfBuffer& out, GxfBuffer& payload) const;

    UmfPreamble preamble;
    std::uint32_t payloadLength = 0;
    std::uint32_t padLength = 0;
    bool initialised = false;

  private:
    void clear();
};

} // namespace GxfTypes
