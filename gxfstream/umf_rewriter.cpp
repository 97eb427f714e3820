#include <gxfstream/umf_rewriter.h>

#include <algorithm>
#include <cstring>

#include <gxfstream/decode_window.h>
#include <gxfstream/result_text.h>

namespace GxfStream {

using namespace GxfTypes;

namespace {

constexpr unsigned headerSize = Packet::headerSize;
constexpr unsigned frontSize = headerSize + UmfPacket::Preamble::wireSize;

using Bytes = std::vector<unsigned char>;

/// The packets of one UMF as they lie in a stream, and what they say.
class WireUmf {
  public:
    /// Reads them; empty when they aren't all there.
    WireUmf(std::vector<StreamUmf::Place> const& places, ByteSource& source) {
        for (StreamUmf::Place const& place : places) {
            Span const bytes = source.read(place.offset, place.length);
            if (bytes.size() < place.length) {
                m_packets.clear();
                return;
            }
            m_packets.push_back({place.offset, {bytes.begin(), bytes.end()}, {}});
        }
    }

    /// The same places with other bytes, one packet behind the other.
    WireUmf(WireUmf const& places, Span bytes) : m_packets(places.m_packets) {
        for (Patch& packet : m_packets) {
            std::size_t const n = packet.before.size();
            packet.before.assign(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(n));
            bytes = bytes.subspan(n);
        }
    }

    /// Null unless they make one whole UMF. The joiner must outlive the packet.
    AutoRefPtr<UmfPacket> decoded(UmfJoiner& joiner) const {
        PacketPool pool;
        AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
        StreamUmf const* umf = nullptr;
        for (Patch const& packet : m_packets) {
            DecodeWindow buffer(packet.before, packet.offset);
            header->decode(buffer);
            umf = joiner.add(*header, Span(packet.before).subspan(headerSize),
                             [](std::uint64_t, std::uint64_t, std::string const&) {});
        }
        return umf != nullptr ? umf->packet : AutoRefPtr<UmfPacket>();
    }

    /// The fragments joined. REQUIRES: the packets make a whole UMF.
    Bytes payload() const {
        Bytes joined;
        for (Patch const& packet : m_packets) {
            DecodeWindow buffer(Span(packet.before).subspan(headerSize), 0);
            UmfPacket::Preamble preamble;
            preamble.decode(buffer, buffer.nOccupied());
            unsigned char const* const fragment = packet.before.data() + frontSize;
            joined.insert(joined.end(), fragment, fragment + preamble.getPayloadLength());
        }
        return joined;
    }

    /// True when a rewrite of so many bytes makes packets of the same lengths.
    bool isCutAsWritten(std::size_t payloadSize) const {
        for (Patch const& packet : m_packets) {
            std::size_t const n = std::min<std::size_t>(payloadSize, UmfPacket::fragmentSize);
            std::size_t const length = frontSize + n;
            if (packet.before.size() !=
                length + UmfPacket::calcPacketPad(static_cast<unsigned>(length))) {
                return false;
            }
            payloadSize -= n;
        }
        return payloadSize == 0;
    }

    bool empty() const { return m_packets.empty(); }
    /// `before` is the whole packet.
    std::vector<Patch> const& packets() const { return m_packets; }

  private:
    std::vector<Patch> m_packets;
};

Bytes encoded(UmfPacket const& umf, OpResult& result) {
    Bytes bytes(umf.getCodedLength());
    GxfBuffer buffer(bytes.data(), static_cast<unsigned>(bytes.size()), GxfBuffer::DataState::empty,
                     MediaAgent(nullptr));
    result = umf.encode(buffer);
    bytes.resize(buffer.nOccupied());
    return bytes;
}

Span bytesOf(GxfPreservedData const& data) { return {data.getData(), data.size()}; }

bool isSame(Span a, Span b) { return std::equal(a.begin(), a.end(), b.begin(), b.end()); }

/// Zero bytes at the end.
unsigned zerosAtEnd(Span bytes) {
    std::size_t n = 0;
    while (n < bytes.size() && bytes[bytes.size() - 1 - n] == 0) {
        ++n;
    }
    return static_cast<unsigned>(n);
}

unsigned tailSizeOf(UmfPacket const& umf) {
    return umf.umfIndex.size() + umf.preservedData[0].size() + umf.preservedData[1].size() +
           umf.fillerData.size();
}

/// The zeros that end a UMF become filler, as they were when it was written.
void takeZerosAsFiller(UmfPacket& umf) {
    Span const behind = bytesOf(umf.preservedData[1]);
    unsigned const zeros = zerosAtEnd(behind);
    Bytes kept(behind.begin(), behind.end() - zeros);
    DecodeWindow buffer(kept, 0);
    umf.preservedData[1].decode(buffer, buffer.nOccupied(), GxfPreservedData::keep);
    umf.addFillerBytes(zeros);
}

/// A text that fills its field without a zero byte isn't written, and all that follows moves.
bool holdsFullText(UmfPacket const& umf) {
    auto const isFull = [](AutoArrayPtr<char> const& text, std::size_t fieldSize) {
        return text.get() != nullptr && std::strlen(text.get()) >= fieldSize;
    };
    for (unsigned i = 0; i < umf.userData.pairs.size(); ++i) {
        UmfPacket::UserDataKey const* const key = umf.userData.pairs[i].keyItem.get();
        if (key != nullptr && (isFull(key->vendor, 32) || isFull(key->className, 32) ||
                               isFull(key->valueTypeName, 80) || isFull(key->pairName, 80) ||
                               isFull(key->version, 32))) {
            return true;
        }
    }
    return false;
}

/// Where what stands in front of the user data stays the same, so do the bytes that no field holds:
/// behind the end of a text, in reserved places. `same` is the old content as it
/// would be written.
void keepBytesInFront(Bytes& bytes, Bytes const& same, WireUmf const& before,
                      std::size_t payloadInFront) {
    std::size_t at = 0;
    for (Patch const& packet : before.packets()) {
        std::size_t const fragment = std::min<std::size_t>(payloadInFront, UmfPacket::fragmentSize);
        for (std::size_t i = 0; i < frontSize + fragment; ++i) {
            if (bytes[at + i] == same[at + i]) {
                bytes[at + i] = packet.before[i];
            }
        }
        payloadInFront -= fragment;
        at += packet.before.size();
    }
}

/// What is decoded again has every section of what was written.
bool saysTheSame(UmfPacket const& written, UmfPacket const& again) {
    Span const behind = bytesOf(written.preservedData[1]);
    Span const behindAgain = bytesOf(again.preservedData[1]);
    return again.isValid() && written.isEqual(again) &&
           isSame(bytesOf(written.preservedData[0]), bytesOf(again.preservedData[0])) &&
           behindAgain.size() == behind.size() + written.fillerData.size() &&
           isSame(behind, behindAgain.first(behind.size())) &&
           zerosAtEnd(behindAgain) >= written.fillerData.size() &&
           written.decodedPayloadSize == again.decodedPayloadSize;
}

} // namespace

bool UmfRewriter::refuse(RewriteRefusal::Kind kind, std::string const& what) {
    m_refusal.kind = kind;
    m_refusal.offset = m_offset;
    m_refusal.text = "the UMF at offset " + std::to_string(m_offset) + ' ' + what;
    return false;
}

bool UmfRewriter::take(StreamPacket const& packet, ByteSource& source) {
    // A length that turns out to be wrong: the UMF was taken from the bytes of other packets.
    if (packet.offset < m_last.offset + m_last.length) {
        m_offset = m_last.offset;
        return refuse(RewriteRefusal::broken,
                      "reaches over another packet at offset " + std::to_string(packet.offset));
    }
    if (packet.type == packetTypeUmfFile) {
        m_last = {packet.offset, packet.length};
        m_loose.push_back(m_last);
        if (m_loose.size() > UmfJoiner::mostPackets) {
            m_offset = m_loose.front().offset;
            return refuse(RewriteRefusal::broken, "isn't whole, so that it can't be changed");
        }
    }
    if (packet.umf == nullptr) {
        return true;
    }
    // What went before without being joined can't be changed alike.
    std::vector<StreamUmf::Place> const& joined = packet.umf->packets;
    m_offset = m_loose.front().offset;
    if (m_loose.size() != joined.size()) {
        return refuse(RewriteRefusal::broken, "isn't whole, so that it can't be changed");
    }
    m_loose.clear();
    return rewrite(*packet.umf, source);
}

bool UmfRewriter::finish(PacketReader const& reader) {
    std::optional<std::uint64_t> const lost = reader.lostUmf();
    if (m_loose.empty() && !lost) {
        return true;
    }
    m_offset = m_loose.empty() ? *lost : m_loose.front().offset;
    return refuse(RewriteRefusal::broken, "isn't whole, so that it can't be changed");
}

bool UmfRewriter::rewrite(StreamUmf const& umf, ByteSource& source) {
    ++m_umfs;
    if (!umf.packet->isValid()) {
        return refuse(RewriteRefusal::broken, "can't be decoded, " + reasonOf(umf.result));
    }
    WireUmf const before(umf.packets, source);
    if (before.empty()) {
        return refuse(RewriteRefusal::io, "can't be read again, " + source.error());
    }
    UmfJoiner joiners[3];
    AutoRefPtr<UmfPacket> const original = before.decoded(joiners[0]);
    AutoRefPtr<UmfPacket> const changed = before.decoded(joiners[1]);
    if (original.get() == nullptr || changed.get() == nullptr || !original->isValid()) {
        return refuse(RewriteRefusal::io, "reads differently the second time");
    }
    Bytes const payload = before.payload();
    if (!before.isCutAsWritten(payload.size())) {
        return refuse(RewriteRefusal::layout,
                      "lies in packets of other lengths than a rewrite makes for its " +
                          std::to_string(payload.size()) + " bytes");
    }

    if (holdsFullText(*original)) {
        return refuse(RewriteRefusal::inexact,
                      "has a text in its user data that fills its field, and would be lost");
    }

    OpResult result;
    Bytes const same = encoded(*original, result);
    if (!result) {
        return refuse(RewriteRefusal::inexact, "can't be written, " + reasonOf(result));
    }
    unsigned const tail = tailSizeOf(*original);
    if (same.size() != original->getCodedLength() ||
        original->calcPayloadSize() != payload.size() ||
        !isSame(Span(WireUmf(before, same).payload()).last(tail), Span(payload).last(tail))) {
        return refuse(RewriteRefusal::inexact, "has bytes that a rewrite would lose");
    }

    takeZerosAsFiller(*changed);
    std::string const why = m_change(*changed);
    if (!why.empty()) {
        return refuse(RewriteRefusal::change, "can't be changed: " + why);
    }
    if (!makeRoom(*changed)) {
        return false;
    }
    constexpr unsigned largestOffset = 0xFFFF;
    if (changed->calcXmlOffset() > largestOffset && original->calcXmlOffset() <= largestOffset) {
        return refuse(RewriteRefusal::room,
                      "would have its XML further in than its index can tell");
    }
    Bytes bytes = encoded(*changed, result);
    if (!result || bytes.size() != changed->getCodedLength()) {
        return refuse(RewriteRefusal::inexact, "can't be written, " + reasonOf(result));
    }
    keepBytesInFront(bytes, same, before,
                     original->calcPayloadSize() - original->calcUserDataSize() - tail);
    WireUmf const after(before, bytes);
    AutoRefPtr<UmfPacket> const again = after.decoded(joiners[2]);
    if (again.get() == nullptr || !saysTheSame(*changed, *again)) {
        return refuse(RewriteRefusal::inexact, "would not read as it is written");
    }
    for (std::size_t i = 0; i < before.packets().size(); ++i) {
        Patch const& old = before.packets()[i];
        Patch const& renewed = after.packets()[i];
        if (old.before != renewed.before) {
            m_patches.push_back({old.offset, old.before, renewed.before});
            m_patched += old.before.size();
        }
    }
    if (m_patched > mostPatched) {
        return refuse(RewriteRefusal::layout, "is one of more than can be changed at once");
    }
    return true;
}

/// Fits the changed content into the bytes that there are.
bool UmfRewriter::makeRoom(UmfPacket& umf) {
    // An item of user data is only read when as many bytes follow it.
    std::uint32_t const behindItems =
        umf.userData.nItems() != 0 ? UmfPacket::UserData::headerSize : 0;
    std::uint32_t const room = umf.decodedPayloadSize;
    std::uint32_t const content = umf.calcPayloadSize() - umf.fillerData.size();
    std::uint32_t const least = umf.calcPayloadSize() - tailSizeOf(umf) + behindItems;
    TailLoss loss;
    loss.missing = std::max(content, least) - std::min(room, std::max(content, least));
    if (loss.missing != 0) {
        std::uint32_t const left = content - std::min(content, room);
        loss.behind = left != 0 ? umf.preservedData[1].size() : 0;
        loss.xml = left > loss.behind ? umf.preservedData[0].size() : 0;
        std::string const lack = "has no room for " + std::to_string(loss.missing) +
                                 (loss.missing == 1 ? " byte more" : " bytes more");
        if (least > room) {
            m_loss = loss;
            return refuse(RewriteRefusal::room, lack + ", even without its tail");
        }
        if (m_rule == keepTail) {
            m_loss = loss;
            return refuse(RewriteRefusal::tail, lack);
        }
        m_loss.behind += loss.behind;
        m_loss.xml += loss.xml;
    }
    OpResult const result = umf.update();
    if (!result) {
        return refuse(RewriteRefusal::room, "has no room, " + reasonOf(result));
    }
    return true;
}

bool copyPatched(ByteSource& source, std::vector<Patch> const& patches,
                 std::function<bool(Span)> const& sink) {
    std::optional<std::uint64_t> const size = source.size();
    std::uint64_t position = 0;
    // Up to `end`, or to the source's end.
    auto const copyTo = [&](std::uint64_t end) {
        while (position < end) {
            std::size_t const chunk = static_cast<std::size_t>(
                std::min<std::uint64_t>(end - position, source.largestChunk()));
            Span const bytes = source.read(position, chunk);
            if (bytes.empty()) {
                break;
            }
            if (!sink(bytes)) {
                return false;
            }
            position += bytes.size();
        }
        return source.error().empty();
    };
    for (Patch const& patch : patches) {
        if (!copyTo(patch.offset) ||
            !isSame(source.read(patch.offset, patch.before.size()), patch.before) ||
            !sink(patch.after)) {
            return false;
        }
        position += patch.after.size();
    }
    return copyTo(UINT64_MAX) && (!size || position == *size);
}

} // namespace GxfStream
