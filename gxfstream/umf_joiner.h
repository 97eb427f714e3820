#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include <gxfstream/byte_source.h>
#include <gxftypes/packet/gxf.h>

namespace GxfStream {

/// A whole UMF, joined from its packets and decoded.
struct StreamUmf {
    /// Where one of its packets stands in the stream.
    struct Place {
        std::uint64_t offset;
        std::uint32_t length;
    };

    GxfTypes::AutoRefPtr<GxfTypes::UmfPacket> packet;
    /// What the final decode came to; may be no success although the packet is valid.
    GxfTypes::OpResult result;
    std::vector<Place> packets;

    std::uint64_t offset() const { return packets.front().offset; }
};

/// Joins the packets of a stream's UMFs, each on packets that nobody used before, and decodes what
/// they gathered. A broken sequence is told once, at its beginning, and doesn't touch the UMFs
/// behind it: the packets that would have continued it are passed over.
class UmfJoiner {
  public:
    /// Takes the offset and the length of what is broken, and a line for people.
    using Report = std::function<void(std::uint64_t, std::uint64_t, std::string)>;

    /// More than any description of a clip: a UMF that gathers more is dropped.
    static constexpr std::uint32_t largestUmf = std::uint32_t{64} << 20;
    /// As many as it has at a kibibyte each.
    static constexpr std::size_t mostPackets = largestUmf / 1024;

    /// Takes in the next UMF packet of the stream, its header and its whole payload. Null unless it
    /// completes a UMF, which is good until the next call.
    StreamUmf const* add(GxfTypes::Packet const& header, Span payload, Report const& report);

    /// Bytes of the stream were passed over since the last packet. Whether the UMF at hand lacks
    /// some of them shows in its size.
    void noteLostBytes() { m_lacksBytes = m_pending.get() != nullptr; }

    /// The stream has no more packets.
    void finish(Report const& report);
    /// The stream goes on at another offset: what continues a UMF from in front of it is no fault.
    void goOnAt(std::uint64_t offset);

  private:
    void drop();
    bool follows(GxfTypes::UmfPacketOrder order, std::uint64_t offset, std::uint32_t length,
                 Report const& report);
    bool isWhole(GxfTypes::UmfPacket const& packet, GxfTypes::Packet const& header,
                 std::size_t payloadSize, Report const& report);
    StreamUmf const* complete(Report const& report);

    GxfTypes::PacketPool m_pool;
    StreamUmf m_umf;
    GxfTypes::AutoRefPtr<GxfTypes::UmfPacket> m_pending;
    bool m_lacksBytes = false;     ///< perhaps
    bool m_passesOverRest = false; ///< of a UMF that was dropped
};

} // namespace GxfStream
