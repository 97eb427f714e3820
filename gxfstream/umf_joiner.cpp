#include <gxfstream/umf_joiner.h>

namespace GxfStream {

using namespace GxfTypes;

namespace {

constexpr std::uint32_t largestPadding = 3;

} // namespace

StreamUmf const* UmfJoiner::add(Packet const& header, Span payload, Report const& report) {
    // A packet that came back would bring its index, its tail and its XML along.
    m_pool.reset();
    AutoRefPtr<UmfPacket> const packet = m_pool.alloc(header)->getUmfPacket();
    GxfBuffer buffer(const_cast<unsigned char*>(payload.data()),
                     static_cast<unsigned>(payload.size()), GxfBuffer::DataState::filled,
                     MediaAgent(nullptr));
    buffer.reset(GxfBuffer::DataState::filled, header.fileOffset + Packet::headerSize);
    if (!packet->decode(buffer)) {
        // The reader tells of the packet itself.
        finish(report);
        return nullptr;
    }
    if (!follows(packet->getPacketOrder(), header.fileOffset, header.length, report)) {
        return nullptr;
    }
    std::uint64_t const claimed = packet->preamble.getPayloadLength();
    std::uint64_t const held = payload.size() - UmfPacket::Preamble::wireSize;
    if (claimed > held || held - claimed > largestPadding) {
        report(header.fileOffset, header.length,
               "this umfFile packet claims a fragment of " + std::to_string(claimed) +
                   " bytes, but holds " + std::to_string(held));
    }
    if (claimed > held) {
        drop();
        return nullptr;
    }
    if (m_pending.get() != nullptr) {
        packet->prependPayload(*m_pending);
    }
    m_pending = packet;
    m_umf.packets.push_back({header.fileOffset, header.length});
    if (m_pending->gatherBuffer.nOccupied() > largestUmf) {
        report(m_umf.offset(), m_pending->gatherBuffer.nOccupied(),
               "the UMF that begins here has more than " + std::to_string(largestUmf) +
                   " bytes; it is dropped");
        drop();
        return nullptr;
    }
    UmfPacketOrder const order = packet->getPacketOrder();
    return order == umfPacketOrderLast || order == umfPacketOrderOnly ? complete(report) : nullptr;
}

/// True when a packet of that order may come now; what it may not follow is told and dropped.
bool UmfJoiner::follows(UmfPacketOrder order, std::uint64_t offset, std::uint32_t length,
                        Report const& report) {
    bool const begins = order == umfPacketOrderFirst || order == umfPacketOrderOnly;
    if (begins) {
        finish(report);
        m_umf = StreamUmf();
        return true;
    }
    if (m_pending.get() != nullptr) {
        return true;
    }
    report(offset, length,
           std::string("this umfFile packet is a \"") + getName(order) +
               "\" one without a \"First\" one in front of it");
    return false;
}

StreamUmf const* UmfJoiner::complete(Report const& report) {
    m_umf.packet = m_pending;
    m_pending = nullptr;
    m_umf.result = m_umf.packet->decodeFinal();
    if (!m_umf.result) {
        std::string reason = GxfOpSubsystem::getErrorName(m_umf.result.getCode());
        if (*m_umf.result.getText() != '\0') {
            reason += std::string(": ") + m_umf.result.getText();
        }
        report(m_umf.offset(), m_umf.packet->length,
               (m_umf.packet->isValid() ? "the tail of the UMF that begins here is refused, "
                                        : "the UMF that begins here is refused, ") +
                   reason);
    }
    return &m_umf;
}

void UmfJoiner::finish(Report const& report) {
    if (m_pending.get() != nullptr) {
        report(m_umf.offset(), 0, "the UMF that begins here has no \"Last\" packet");
        drop();
    }
}

void UmfJoiner::drop() {
    m_pending = nullptr;
    m_umf = StreamUmf();
}

} // namespace GxfStream
