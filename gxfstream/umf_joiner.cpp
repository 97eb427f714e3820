#include <gxfstream/umf_joiner.h>

#include <gxfstream/decode_window.h>
#include <gxfstream/result_text.h>

namespace GxfStream {

using namespace GxfTypes;

namespace {

// To the next multiple of 4.
constexpr std::uint32_t largestPadding = 3;

} // namespace

StreamUmf const* UmfJoiner::add(Packet const& header, Span payload, Report const& report) {
    // A packet that came back would bring its index, its tail and its XML along.
    m_pool.reset();
    AutoRefPtr<UmfPacket> const packet = m_pool.alloc(header)->getUmfPacket();
    DecodeWindow buffer(payload, header.fileOffset + Packet::headerSize);
    if (!packet->decode(buffer)) {
        // The reader tells of the packet itself.
        finish(report);
        return nullptr;
    }
    if (!follows(packet->getPacketOrder(), header.fileOffset, header.length, report) ||
        !isWhole(*packet, header, payload.size(), report)) {
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
    if (m_umf.packets.size() > mostPackets) {
        report(m_umf.offset(), m_pending->gatherBuffer.nOccupied(),
               "the UMF that begins here has more than " + std::to_string(mostPackets) +
                   " packets; it is dropped");
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
        m_lacksBytes = false;
        m_passesOverRest = false;
        return true;
    }
    if (m_pending.get() != nullptr) {
        return true;
    }
    if (!m_passesOverRest) {
        report(offset, length,
               std::string("this umfFile packet is a \"") + getName(order) +
                   "\" one without a \"First\" one in front of it");
    }
    return false;
}

/// True when the packet holds the fragment that it claims. A claim that disagrees is told.
bool UmfJoiner::isWhole(UmfPacket const& packet, Packet const& header, std::size_t payloadSize,
                        Report const& report) {
    std::uint64_t const claimed = packet.preamble.getPayloadLength();
    std::uint64_t const held = payloadSize - UmfPacket::Preamble::wireSize;
    if (claimed <= held && held - claimed <= largestPadding) {
        return true;
    }
    report(header.fileOffset, header.length,
           "this umfFile packet claims a fragment of " + std::to_string(claimed) +
               (claimed == 1 ? " byte" : " bytes") + ", but holds " + std::to_string(held));
    if (claimed > held) {
        finish(report);
        m_passesOverRest = true;
        return false;
    }
    // A UMF of one packet shows by itself what it lacks.
    m_lacksBytes = m_lacksBytes || packet.getPacketOrder() != umfPacketOrderOnly;
    return true;
}

StreamUmf const* UmfJoiner::complete(Report const& report) {
    m_umf.packet = m_pending;
    m_pending = nullptr;
    // An error number that an earlier failure left would make a good number of the document fail.
    clearLastError();
    m_umf.result = m_umf.packet->decodeFinal();
    UmfPacket const& packet = *m_umf.packet;
    if (m_lacksBytes && packet.payloadDesc.totalLength != packet.decodedPayloadSize) {
        report(m_umf.offset(), packet.length,
               "bytes of the UMF that begins here are lost: it has " +
                   std::to_string(packet.payloadDesc.totalLength) +
                   " bytes, and its packets hold " + std::to_string(packet.decodedPayloadSize) +
                   "; it is dropped");
        m_umf = StreamUmf();
        return nullptr;
    }
    if (!m_umf.result) {
        report(m_umf.offset(), packet.length,
               (packet.isValid() ? "the tail of the UMF that begins here is refused, "
                                 : "the UMF that begins here is refused, ") +
                   reasonOf(m_umf.result));
    } else if (packet.umfIndex.size() != 0 &&
               packet.umfIndex.getXmlLength() > packet.preservedData[0].size()) {
        report(m_umf.offset(), packet.length,
               "the index of the UMF that begins here claims " +
                   std::to_string(packet.umfIndex.getXmlLength()) +
                   " bytes of XML, more than there are");
    }
    return &m_umf;
}

void UmfJoiner::finish(Report const& report) {
    if (m_pending.get() != nullptr) {
        report(m_umf.offset(), 0, "the UMF that begins here has no \"Last\" packet");
        drop();
    }
}

void UmfJoiner::goOnAt(std::uint64_t offset) {
    drop();
    m_passesOverRest = offset != 0;
}

void UmfJoiner::drop() {
    m_pending = nullptr;
    m_umf = StreamUmf();
    m_passesOverRest = true;
}

} // namespace GxfStream
