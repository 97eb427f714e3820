// A stream, read from memory, in pieces, and from a descriptor.
//
//     channels 1 | options 1 | piece of payload 2 | bytes of a chunk 2 | packets before the seek 1
//     | position to seek 4 | stream
//
// Options: 1 seeks, 2 reads payloads, 4 doesn't tell the size in front, 8 fails to read behind the
// position to seek, 16 keeps every third packet.

#include <algorithm>
#include <cerrno>
#include <memory>
#include <sys/socket.h>
#include <unistd.h>

#include <fuzz/fuzz_input.h>
#include <gxfstream/packet_reader.h>

using namespace GxfTypes;
using namespace GxfFuzz;
using namespace GxfStream;

namespace {

enum Option : unsigned { seeks = 1, readsPayloads = 2, hidesSize = 4, breaks = 8, keeps = 16 };

struct Plan {
    unsigned options;
    std::size_t piece;
    std::size_t chunk;
    unsigned packetsBeforeSeek;
    std::uint64_t seekPosition;

    bool has(Option option) const { return (options & option) != 0; }
};

/// A file that gives each span in memory of its own, which is gone with the next call.
class ChunkySource : public ByteSource {
  public:
    ChunkySource(ByteVector const& bytes, Plan const& plan)
        : m_bytes(bytes), m_plan(plan),
          m_end(plan.has(breaks) ? std::min<std::uint64_t>(bytes.size(), plan.seekPosition)
                                 : bytes.size()) {}

    Span read(std::uint64_t offset, std::size_t count) override {
        ++m_calls;
        m_chunk.reset();
        if (offset >= m_end) {
            noteEnd();
            return {};
        }
        std::size_t const got = std::min<std::uint64_t>(count, m_end - offset);
        if (got < count) {
            noteEnd();
        }
        m_chunk = std::make_unique<unsigned char[]>(got);
        std::copy_n(m_bytes.begin() + static_cast<std::ptrdiff_t>(offset), got, m_chunk.get());
        return {m_chunk.get(), got};
    }

    bool peek(std::uint64_t offset, std::span<unsigned char> to) override {
        Span const bytes = read(offset, to.size());
        std::copy(bytes.begin(), bytes.end(), to.begin());
        return bytes.size() == to.size();
    }

    std::size_t largestChunk() const override { return m_plan.chunk; }

    std::optional<std::uint64_t> size() const override {
        return m_plan.has(hidesSize) && !m_sawEnd ? std::nullopt : std::optional(m_bytes.size());
    }

    std::size_t calls() const { return m_calls; }

  private:
    void noteEnd() {
        m_sawEnd = true;
        if (m_end != m_bytes.size()) {
            setError("reading failed", EIO);
        }
    }

    ByteVector const& m_bytes;
    Plan const& m_plan;
    std::uint64_t m_end;
    std::unique_ptr<unsigned char[]> m_chunk;
    std::size_t m_calls = 0;
    bool m_sawEnd = false;
};

/// A descriptor from which each read gives one chunk.
class ChunkyDescriptor {
  public:
    ChunkyDescriptor(ByteVector const& bytes, std::size_t chunk) {
        int ends[2];
        check(::socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) == 0);
        m_descriptor = ends[0];
        // More chunks than these would fill the socket, and nobody reads yet.
        chunk = std::max({chunk, bytes.size() / 64 + 1, std::size_t{1}});
        for (std::size_t at = 0; at < bytes.size(); at += chunk) {
            std::size_t const count = std::min(chunk, bytes.size() - at);
            check(::write(ends[1], bytes.data() + at, count) == static_cast<ssize_t>(count));
        }
        ::close(ends[1]);
    }
    ChunkyDescriptor(ChunkyDescriptor const&) = delete;
    ChunkyDescriptor& operator=(ChunkyDescriptor const&) = delete;
    ~ChunkyDescriptor() { ::close(m_descriptor); }

    int get() const { return m_descriptor; }

  private:
    int m_descriptor;
};

/// What reading a stream came to.
struct Reading {
    std::vector<std::string> packets;
    std::vector<std::string> faults;
    bool wentBack = false;      ///< the seek led back
    bool doubtedLength = false; ///< packets went on inside another one
};

bool isHeaderOf(StreamPacket const& packet, ByteVector const& bytes) {
    return packet.offset + Packet::headerSize <= bytes.size() &&
           isPlausibleHeader(bytes.data() + packet.offset) &&
           packet.length == lengthInHeader(bytes.data() + packet.offset) &&
           packet.type == bytes[packet.offset + 5];
}

/// Bytes of a payload without which a packet doesn't come out, of which `first` is the first one.
std::uint32_t neededOf(StreamPacket const& packet, unsigned first) {
    constexpr std::uint32_t all = 0xFFFFFFFF;
    bool const isTimecode = first == 7 || first == 8 || first == 24;
    std::uint32_t const looked = packet.type == packetTypeMedia         ? (isTimecode ? 4112 : 16)
                                 : packet.type == packetTypeFieldLocTbl ? 4008
                                 : packet.type == packetTypeMap         ? all
                                 : packet.type == packetTypeUmfFile     ? all
                                                                        : 0;
    return std::min(packet.length - Packet::headerSize, looked);
}

/// The block of timecodes holds what the stream has.
void checkTimecodes(PerFrameTcSet const& set, unsigned char const* payload) {
    for (unsigned i = 0; i < PerFrameTcSet::entries; ++i) {
        bool const valid = (payload[16 + 4032 + i / 8] >> (i % 8) & 1) != 0;
        check(set.isValid(i) == valid && set.timecodes[i].valid == valid);
    }
}

/// The packets of a UMF stand in the stream in order, and the last one completes it. One whose
/// length is wrong may reach over the next.
void checkUmf(StreamUmf const& umf, StreamPacket const& last, ByteVector const& bytes) {
    check(umf.packet.get() != nullptr && !umf.packets.empty());
    check(umf.packets.back().offset == last.offset && umf.packets.back().length == last.length);
    std::uint64_t begin = 0;
    std::uint64_t fragments = 0;
    for (StreamUmf::Place const& place : umf.packets) {
        check(place.offset >= begin && bytes[place.offset + 5] == packetTypeUmfFile);
        check(place.offset + place.length <= bytes.size());
        begin = place.offset + Packet::headerSize;
        fragments += place.length - Packet::headerSize - UmfPacket::Preamble::wireSize;
    }
    check(umf.packet->decodedPayloadSize <= fragments);
}

void checkPacket(StreamPacket const& packet, ByteVector const& bytes) {
    check(isHeaderOf(packet, bytes));
    std::size_t const begin = packet.offset + Packet::headerSize;
    std::size_t const there = bytes.size() - begin;
    check(there >= neededOf(packet, there != 0 ? bytes[begin] : 0));
    if (MediaPacket const* const media = packet.media()) {
        // A payload below the block's size gives a block of what follows it, and zeros.
        if (media->perFrameTc.get() != nullptr && there >= 4112) {
            checkTimecodes(*media->perFrameTc, bytes.data() + begin);
        }
    }
    if (packet.umf != nullptr) {
        checkUmf(*packet.umf, packet, bytes);
    }
    check(packet.packet.get() != nullptr);
    check(packet.packet->fileOffset == packet.offset && packet.packet->length == packet.length);
    check(packet.packet->type == packet.type);
    check(isKnownCode(packet.result.getCode()));
    check((packet.media() != nullptr) == (packet.type == packetTypeMedia));
}

/// The whole payload by pieces.
void checkPayload(PacketReader& reader, StreamPacket const& packet, ByteVector const& bytes,
                  std::size_t piece) {
    std::uint64_t const size = packet.length - Packet::headerSize;
    std::uint64_t from = 0;
    while (true) {
        Span const part = reader.payload(from, piece);
        if (part.empty()) {
            break;
        }
        std::uint64_t const at = packet.offset + Packet::headerSize + from;
        check(part.size() <= piece && at + part.size() <= bytes.size());
        check(std::memcmp(part.data(), bytes.data() + at, part.size()) == 0);
        from += part.size();
    }
    std::uint64_t const there = bytes.size() - packet.offset - Packet::headerSize;
    check(from <= size && (from == std::min(size, there) || piece == 0));
    check(reader.payload(size, piece).empty());
}

Reading readAll(ByteSource& source, ByteVector const& bytes, Plan const& plan) {
    Reading reading;
    PacketReader reader(source, [&](StreamFault const& fault) {
        check(fault.offset <= bytes.size() || plan.has(breaks));
        check(!fault.text.empty() && fault.text.find('\n') == std::string::npos);
        reading.faults.push_back(std::string(getName(fault.kind)) + ' ' +
                                 std::to_string(fault.offset) + ' ' + std::to_string(fault.bytes) +
                                 ' ' + fault.text);
        reading.doubtedLength |= fault.text.find("go on inside it") != std::string::npos;
    });
    std::vector<std::pair<AutoRefPtr<Packet>, std::string>> kept;
    std::uint64_t least = 0;
    std::size_t count = 0;
    bool sought = !plan.has(seeks);
    while (true) {
        if (!sought && count == plan.packetsBeforeSeek) {
            sought = true;
            reading.wentBack = plan.seekPosition < reader.position();
            reader.seek(plan.seekPosition);
            least = source.isSeekable() ? plan.seekPosition : least;
        }
        StreamPacket const* const packet = reader.next();
        if (packet == nullptr) {
            break;
        }
        ++count;
        check(packet->offset >= least && reader.position() == packet->end());
        least = packet->offset + Packet::headerSize;
        checkPacket(*packet, bytes);
        std::string const text = printed(*packet->packet);
        reading.packets.push_back(text + ' ' + packet->result.getText());
        if (plan.has(keeps) && count % 3 == 0) {
            kept.emplace_back(packet->packet, text);
        }
        if (plan.has(readsPayloads) && source.error().empty()) {
            if (!plan.has(breaks)) {
                checkPayload(reader, *packet, bytes, plan.piece);
            } else {
                reader.payload(0, plan.piece);
            }
        }
    }
    check(reader.next() == nullptr);
    for (auto const& [packet, text] : kept) {
        check(printed(*packet) == text);
    }
    check(count <= 2 * (bytes.size() / Packet::headerSize));
    return reading;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input input(data, size);
    Surroundings const surroundings(input.u8());
    Plan plan{};
    plan.options = input.u8();
    plan.piece = input.u16();
    plan.chunk = std::max<std::size_t>(1, input.u16());
    plan.packetsBeforeSeek = input.u8();
    plan.seekPosition = input.u32();
    ByteVector const bytes = input.rest();

    ChunkySource pieces(bytes, plan);
    Reading const fromPieces = readAll(pieces, bytes, plan);
    // A bounded number of looks at each of the headers that fit.
    std::size_t const headers = bytes.size() / Packet::headerSize + 4;
    check(plan.has(readsPayloads) || pieces.calls() <= 24 * headers);
    if (plan.has(breaks)) {
        return 0;
    }

    MemorySource memory(bytes);
    Reading const fromMemory = readAll(memory, bytes, plan);
    check(fromMemory.packets == fromPieces.packets && fromMemory.faults == fromPieces.faults);

    // A pipe can't go back, and remembers the inside of the last packet only by chance.
    if (bytes.size() > std::size_t{48} << 10 || fromMemory.wentBack || fromMemory.doubtedLength) {
        return 0;
    }
    ChunkyDescriptor const descriptor(bytes, plan.chunk);
    PipeSource pipe(descriptor.get());
    Reading const fromPipe = readAll(pipe, bytes, plan);
    check(fromMemory.packets == fromPipe.packets && fromMemory.faults == fromPipe.faults);
    return 0;
}
