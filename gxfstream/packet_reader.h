#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include <gxfstream/header_search.h>
#include <gxfstream/umf_joiner.h>
#include <gxftypes/packet/gxf.h>

namespace GxfStream {

/// What a stream has wrong, by where it was seen.
struct StreamFault {
    enum Kind {
        resync,    ///< bytes that are no packet were passed over
        truncated, ///< the stream ends inside a packet
        payload,   ///< a payload is refused or not valid
        oversize,  ///< a packet claims more than a packet of its kind can be; it is passed over
        io,        ///< reading failed
    };

    Kind kind;
    std::uint64_t offset; ///< where the broken bytes, or the broken packet, begin
    std::uint64_t bytes;  ///< passed over, or missing at the end
    std::string text;     ///< one line for people
};

/// The fixed word for a kind of fault, as scripts see it.
char const* getName(StreamFault::Kind kind);

/// A packet of a stream. `packet` holds nothing of an earlier packet, and outlives neither the
/// reader nor its source.
struct StreamPacket {
    std::uint64_t offset = 0; ///< of the header
    GxfTypes::PacketType type{};
    std::uint32_t length = 0; ///< of the whole packet, the header included
    /// Never null. The header alone for a kind whose payload the library doesn't read.
    GxfTypes::AutoRefPtr<GxfTypes::Packet> packet;
    /// What decoding the payload came to; success where none was tried.
    GxfTypes::OpResult result;
    /// The UMF that this packet completes; null for all other packets.
    StreamUmf const* umf = nullptr;

    /// The media packet, or null.
    GxfTypes::MediaPacket* media() const;
    std::uint64_t end() const { return offset + length; }
};

/// Reads a stream packet by packet, whatever its bytes are.
///
/// Reads the headers and what the packets look at of their payloads; essence is passed over without
/// being read, where the source allows that. Behind broken bytes it goes on with the next packet
/// and reports what it passed over. Its position comes from the headers alone, never from where a
/// decode left a buffer. Steady state allocates nothing per media packet.
class PacketReader {
  public:
    using FaultHandler = std::function<void(StreamFault const&)>;

    /// The source must outlive the reader. Faults go to `onFault`, which may be empty, during
    /// next().
    explicit PacketReader(ByteSource& source, FaultHandler onFault = {});
    PacketReader(PacketReader const&) = delete;
    PacketReader& operator=(PacketReader const&) = delete;

    /// Goes on at a position instead, at the first packet from there on. Bytes in front of that
    /// packet are no fault. A source that isn't seekable goes forward only.
    void seek(std::uint64_t offset);

    /// The next packet, which stays good until the next call; null at the end of the stream. A
    /// packet that the stream's end cuts off comes out when what its decode needs is there; the
    /// call behind it reports the rest as missing.
    StreamPacket const* next();

    /// Up to `count` bytes of the last packet's payload from `from` on, media preamble included;
    /// good until the next call. Memory isn't copied. A pipe gives them front to back, and once.
    Span payload(std::uint64_t from, std::size_t count);

    /// Where the next packet is expected.
    std::uint64_t position() const { return m_position; }
    /// The first UMF packet that didn't come out: too large, or cut off by the stream's end.
    std::optional<std::uint64_t> lostUmf() const { return m_lostUmf; }
    /// Bytes passed over so far by seek() and the search for a packet behind it.
    std::uint64_t passedOver() const { return m_passedOver; }

  private:
    bool endOfStream(Span rest);
    bool hasFailed() const { return !m_source.error().empty(); }
    bool reportFailure(std::uint64_t offset);
    bool resync();
    bool isPreviousLengthWrong();
    bool readHeader(Span bytes);
    bool readPacket();
    bool decodeMedia(GxfTypes::MediaPacket& media);
    bool decodePayload();
    bool lose();
    Span withBytesBehind(Span bytes, std::uint32_t payloadPart);
    void dropStaleState();
    void judgePayload(bool timecodes);
    UmfJoiner::Report umfReport();
    void report(StreamFault::Kind kind, std::uint64_t offset, std::uint64_t bytes,
                std::string text);

    ByteSource& m_source;
    bool const m_isSeekable;
    FaultHandler m_onFault;
    HeaderSearch m_search;
    GxfTypes::PacketPool m_pool;
    GxfTypes::PacketPool m_umfPool; ///< gives only new packets, see UmfJoiner
    UmfJoiner m_joiner;
    GxfTypes::AutoRefPtr<GxfTypes::Packet> m_header;
    StreamPacket m_current;
    std::uint64_t m_position = 0;
    std::uint64_t m_passedOver = 0;
    std::optional<std::uint64_t> m_lostUmf;
    bool m_hasCurrent = false;   ///< m_current is a packet of this stream, in front of m_position
    bool m_silentSearch = false; ///< the next search begins where a caller pointed
    bool m_ended = false;
    std::vector<unsigned char> m_padded; ///< a timecode block with zeros for what follows it
};

} // namespace GxfStream
