#include <gxfstream/packet_reader.h>

#include <algorithm>
#include <cstring>

#include <gxfstream/decode_window.h>
#include <gxfstream/result_text.h>

namespace GxfStream {

using namespace GxfTypes;

namespace {

constexpr unsigned headerSize = Packet::headerSize;

// What every source can hold at once. A MAP's sections fill 128 KiB at most, the rest is for the
// tail that it may carry; a UMF's packets take 32 KiB each.
constexpr std::uint32_t largestWhole = PipeSource::lookAhead;

// What a decode of these looks at, however long the packet is.
constexpr std::uint32_t fltPart = 8 + 4 * FieldLocTblPacket::maxEntries;
constexpr std::uint32_t timecodePart = MediaPacketHdr::wireSize + PerFrameTcSet::wireSize;

// A block of timecodes is decoded only with that many bytes behind the payload.
constexpr std::uint32_t behindTimecodes = 16;

std::string plural(std::uint64_t count, char const* noun) {
    return std::to_string(count) + ' ' + noun + (count == 1 ? "" : "s");
}

/// The verb for that many of a noun.
char const* isOrAre(std::uint64_t count) { return count == 1 ? "is" : "are"; }

} // namespace

char const* getName(StreamFault::Kind kind) {
    switch (kind) {
    case StreamFault::resync:
        return "resync";
    case StreamFault::truncated:
        return "truncated";
    case StreamFault::payload:
        return "payload";
    case StreamFault::oversize:
        return "oversize";
    case StreamFault::io:
        return "io";
    }
    return "?";
}

MediaPacket* StreamPacket::media() const {
    return type == packetTypeMedia ? static_cast<MediaPacket*>(packet.get()) : nullptr;
}

PacketReader::PacketReader(ByteSource& source, FaultHandler onFault)
    : m_source(source), m_isSeekable(source.isSeekable()), m_onFault(std::move(onFault)),
      m_search(source), m_header(m_pool.alloc(packetTypeHeader)) {}

void PacketReader::seek(std::uint64_t offset) {
    m_position = m_isSeekable ? offset : std::max(offset, m_position);
    m_current.packet = nullptr;
    m_current.umf = nullptr;
    m_joiner.goOnAt(m_position);
    m_hasCurrent = false;
    m_silentSearch = true;
    m_ended = false;
}

StreamPacket const* PacketReader::next() {
    m_current.umf = nullptr;
    while (!m_ended) {
        if (hasFailed() && reportFailure(m_hasCurrent ? m_current.offset : m_position)) {
            m_ended = true;
            break;
        }
        // What follows a packet tells whether its length was right: up to then it isn't released,
        // where the source can hold it.
        if (!m_isSeekable && (!m_hasCurrent || !m_source.canReach(m_position, headerSize))) {
            m_source.release(m_position);
        }
        Span const bytes = m_source.read(m_position, headerSize);
        if (bytes.size() < headerSize) {
            m_ended = endOfStream(bytes);
        } else if (!readHeader(bytes)) {
            m_ended = !resync();
        } else if (readPacket()) {
            return &m_current;
        }
    }
    m_current.packet = nullptr;
    m_joiner.finish(umfReport());
    return nullptr;
}

/// False when packets go on in front of the end.
bool PacketReader::endOfStream(Span rest) {
    if (reportFailure(m_position + rest.size())) {
        return true;
    }
    std::uint64_t const size = m_source.size().value_or(m_position + rest.size());
    if (m_position != size && isPreviousLengthWrong()) {
        return false;
    }
    if (reportFailure(m_position + rest.size())) {
        return true;
    }
    if (m_hasCurrent && m_position > size) {
        std::uint64_t const missing = m_position - size;
        report(StreamFault::truncated, m_current.offset, missing,
               "the stream ends inside this " + std::string(GxfTypes::getName(m_current.type)) +
                   " packet, " + plural(missing, "byte") + " of it " + isOrAre(missing) +
                   " missing");
    } else if (m_silentSearch) {
        m_passedOver += rest.size();
    } else if (!rest.empty()) {
        report(StreamFault::resync, m_position, rest.size(),
               plural(rest.size(), "byte") + " at the end " + isOrAre(rest.size()) + " no packet");
    }
    return true;
}

/// True, and told, when the source failed: that ends the stream.
bool PacketReader::reportFailure(std::uint64_t offset) {
    if (!hasFailed()) {
        return false;
    }
    // A pipe ends where it failed.
    report(StreamFault::io, std::min(offset, m_source.size().value_or(offset)), 0,
           m_source.error());
    return true;
}

/// Goes to the next packet behind broken bytes; false when there is none.
bool PacketReader::resync() {
    if (isPreviousLengthWrong()) {
        return true;
    }
    std::uint64_t const from = m_position;
    std::optional<std::uint64_t> const found = m_search.find(from);
    if (!found && reportFailure(from)) {
        return false;
    }
    std::uint64_t const passed = found.value_or(m_source.size().value_or(from)) - from;
    if (m_silentSearch) {
        m_passedOver += passed;
    } else {
        report(StreamFault::resync, from, passed,
               plural(passed, "byte") + " passed over that " + isOrAre(passed) + " no packet" +
                   (found ? "; packets go on at offset " + std::to_string(*found)
                          : ", up to the end of the stream"));
    }
    m_joiner.noteLostBytes();
    m_hasCurrent = false;
    m_position = from + passed;
    return found.has_value();
}

/// What follows the last packet is broken: so perhaps is its length, and packets go on inside it.
bool PacketReader::isPreviousLengthWrong() {
    std::uint64_t const inside = m_current.offset + headerSize;
    if (!m_hasCurrent || !m_source.canReach(inside, headerSize)) {
        return false;
    }
    m_hasCurrent = false;
    std::optional<std::uint64_t> const found = m_search.findConfirmed(inside, m_position);
    if (!found) {
        m_hasCurrent = true;
        return false;
    }
    report(StreamFault::resync, m_current.offset, *found - inside,
           "this " + std::string(GxfTypes::getName(m_current.type)) + " packet claims " +
               plural(m_current.length, "byte") + ", but packets go on inside it at offset " +
               std::to_string(*found));
    m_joiner.noteLostBytes();
    m_position = *found;
    return true;
}

/// False for bytes that are no header.
bool PacketReader::readHeader(Span bytes) {
    DecodeWindow buffer(bytes, m_position);
    auto& header = static_cast<PacketHeader&>(*m_header);
    header.PacketHeader::decode(buffer);
    return header.Packet::isValid();
}

/// The packet of the header that was read. False, with nothing to yield, for one that is passed
/// over or that the stream's end cuts off.
bool PacketReader::readPacket() {
    MediaPacket* const last = m_current.media();
    m_current.offset = m_position;
    m_current.type = m_header->type;
    m_current.length = m_header->length;
    m_current.result = OpResult::Ok;
    m_hasCurrent = true;
    m_silentSearch = false;
    m_position = m_current.end();
    if (!m_isSeekable) {
        m_source.release(m_current.offset);
    }
    bool const isWhole = m_current.type == packetTypeMap || m_current.type == packetTypeUmfFile;
    if (isWhole && m_current.length > largestWhole) {
        char const* const name = GxfTypes::getName(m_current.type);
        report(StreamFault::oversize, m_current.offset, m_current.length,
               std::string("this ") + name + " packet claims " + plural(m_current.length, "byte") +
                   ", more than a " + name + " packet can need; it is passed over");
        m_joiner.noteLostBytes();
        return lose();
    }
    if (m_current.type == packetTypeMedia && last != nullptr && last->isUnshared()) {
        // Nobody kept it: it comes out again, without the way through the pool.
        last->MediaPacket::reset(*m_header);
        return decodeMedia(*last);
    }
    m_current.packet = nullptr; // back to the pool, to be used again at once
    if (m_current.type == packetTypeUmfFile) {
        m_umfPool.reset();
        m_current.packet = m_umfPool.alloc(*m_header);
    } else {
        m_current.packet = m_header->createActual();
    }
    if (m_current.packet.get() == nullptr) {
        m_current.packet = m_pool.alloc(packetTypeHeader);
        m_current.packet->reset(*m_header);
        return true;
    }
    if (MediaPacket* const media = m_current.media()) {
        return decodeMedia(*media);
    }
    if (m_current.packet->getPayloadLength() == 0 && m_current.type == packetTypeEos) {
        return true;
    }
    return decodePayload();
}

/// As decodePayload(), for the packets of which a stream has so many. A media packet tells of
/// itself even when the stream ends behind its preamble.
bool PacketReader::decodeMedia(MediaPacket& media) {
    constexpr std::uint32_t preamble = MediaPacketHdr::wireSize;
    std::uint32_t const payloadLength = m_current.length - headerSize;
    std::uint64_t const offset = m_current.offset + headerSize;

    Span bytes =
        m_source.read(offset, std::min(payloadLength, media.MediaPacket::getPart1Length()));
    bool const timecodes = !bytes.empty() && MediaPacketHdr::isTimecodeType(bytes[0]);
    std::uint32_t const needed = std::min(payloadLength, timecodes ? timecodePart : preamble);
    if (timecodes) {
        bytes = m_source.read(offset, needed + behindTimecodes);
    }
    if (bytes.size() < needed) {
        m_current.packet = nullptr;
        return false;
    }
    if (timecodes) {
        bytes = withBytesBehind(bytes, needed);
    }
    DecodeWindow buffer(bytes, offset);
    m_current.result = media.MediaPacket::decode(buffer);
    if (!m_current.result || !media.valid || timecodes) {
        judgePayload(timecodes);
    }
    return true;
}

/// The packet doesn't come out.
bool PacketReader::lose() {
    m_current.packet = nullptr;
    if (m_current.type == packetTypeUmfFile && !m_lostUmf) {
        m_lostUmf = m_current.offset;
    }
    return false;
}

bool PacketReader::decodePayload() {
    Packet& packet = *m_current.packet;
    std::uint32_t const payloadLength = m_current.length - headerSize;
    std::uint64_t const offset = m_current.offset + headerSize;

    std::uint32_t wanted = std::min(payloadLength, packet.getPart1Length());
    Span bytes = m_source.read(offset, wanted);
    if (!bytes.empty()) {
        DecodeWindow first(bytes, offset);
        if (packet.needsAllData(first)) {
            wanted = m_current.type == packetTypeFieldLocTbl ? std::min(payloadLength, fltPart)
                                                             : payloadLength;
            bytes = m_source.read(offset, wanted);
        }
    }
    if (bytes.size() < wanted) {
        return lose();
    }
    dropStaleState();
    DecodeWindow buffer(bytes, offset);
    m_current.result = packet.decode(buffer);
    judgePayload(false);
    if (m_current.type == packetTypeUmfFile) {
        m_current.umf = m_joiner.add(*m_header, bytes, umfReport());
    }
    return true;
}

/// The block of timecodes with zeros for what the stream has no more of behind it.
Span PacketReader::withBytesBehind(Span bytes, std::uint32_t payloadPart) {
    std::size_t const wanted = std::size_t{payloadPart} + behindTimecodes;
    if (bytes.size() == wanted) {
        return bytes;
    }
    m_padded.assign(wanted, 0);
    std::copy(bytes.begin(), bytes.end(), m_padded.begin());
    return m_padded;
}

/// A recycled packet keeps some of what it held before: nobody is to see it.
void PacketReader::dropStaleState() {
    if (m_current.type == packetTypeMap) {
        auto& map = static_cast<MapPacket&>(*m_current.packet);
        map.preservedData.discard();
        map.tracks.stripedTc = PerFrameTimecode();
    } else if (m_current.type == packetTypeFieldLocTbl) {
        auto& table = static_cast<FieldLocTblPacket&>(*m_current.packet);
        table.msgClamp = GxfLocalMsgClamp(1);
    }
}

UmfJoiner::Report PacketReader::umfReport() {
    return [this](std::uint64_t offset, std::uint64_t bytes, std::string text) {
        report(StreamFault::payload, offset, bytes, std::move(text));
    };
}

void PacketReader::judgePayload(bool timecodes) {
    char const* const name = GxfTypes::getName(m_current.type);
    if (!m_current.result) {
        report(StreamFault::payload, m_current.offset, m_current.length,
               std::string("the payload of this ") + name + " packet is refused, " +
                   reasonOf(m_current.result));
    } else if (!m_current.packet->isValid()) {
        report(StreamFault::payload, m_current.offset, m_current.length,
               m_current.type == packetTypeFieldLocTbl
                   ? "the positions of this field locator table are not in order"
                   : std::string("the payload of this ") + name + " packet is not valid");
    } else if (timecodes && m_current.media()->perFrameTc.get() == nullptr) {
        report(StreamFault::payload, m_current.offset, m_current.length,
               "this timecode packet is too short for its block of timecodes");
    }
}

Span PacketReader::payload(std::uint64_t from, std::size_t count) {
    std::uint64_t const size = m_current.length - headerSize;
    if (m_current.packet.get() == nullptr || from >= size) {
        return {};
    }
    std::uint64_t const offset = m_current.offset + headerSize + from;
    m_source.release(offset);
    std::uint64_t const most = std::min<std::uint64_t>(size - from, m_source.largestChunk());
    return m_source.read(offset, static_cast<std::size_t>(std::min<std::uint64_t>(count, most)));
}

void PacketReader::report(StreamFault::Kind kind, std::uint64_t offset, std::uint64_t bytes,
                          std::string text) {
    if (m_onFault) {
        m_onFault({kind, offset, bytes, std::move(text)});
    }
}

} // namespace GxfStream
