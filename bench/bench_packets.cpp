// What a media packet costs on its way from memory to its user and back to the pool, against a loop
// that is written by hand.

#include <memory>
#include <mutex>

#include <bench/comparison.h>
#include <bench/media_stream.h>
#include <testing/allocation_count.h>

using namespace GxfBench;

namespace {

constexpr std::size_t packets = 1000;

std::vector<unsigned char> const& theStream() {
    static std::vector<unsigned char> const stream = mediaStream(packets, std::size_t{64} << 10);
    return stream;
}

/// What the loop by hand keeps of a packet: all of its header and of its preamble.
struct HandPacket {
    std::uint64_t offset;
    std::uint32_t length;
    std::uint8_t type;
    std::uint8_t mediaType;
    std::uint8_t trackByte;
    std::uint8_t mediaBytes[4];
    bool isMpeg;
    bool isTimecode;
    bool isTimelineValid;
    std::uint32_t field;
    std::uint32_t timeline;
};

/// A free list that several threads may use.
class HandPool {
  public:
    std::unique_ptr<HandPacket> take() {
        std::lock_guard const lock(m_mutex);
        if (m_free.empty()) {
            return std::make_unique<HandPacket>();
        }
        std::unique_ptr<HandPacket> packet = std::move(m_free.back());
        m_free.pop_back();
        return packet;
    }

    void give(std::unique_ptr<HandPacket> packet) {
        std::lock_guard const lock(m_mutex);
        m_free.push_back(std::move(packet));
    }

  private:
    std::mutex m_mutex;
    std::vector<std::unique_ptr<HandPacket>> m_free;
};

std::uint32_t number(unsigned char const* bytes) {
    return static_cast<std::uint32_t>(bytes[0]) << 24 | static_cast<std::uint32_t>(bytes[1]) << 16 |
           static_cast<std::uint32_t>(bytes[2]) << 8 | bytes[3];
}

bool isHeader(unsigned char const* bytes) {
    unsigned const type = bytes[5];
    return number(bytes) == 0 && bytes[4] == 1 && (type == 0xBC || type == 0xBF || type >= 0xFA) &&
           number(bytes + 6) >= 16 && number(bytes + 10) == 0 && bytes[14] == 0xE1 &&
           bytes[15] == 0xE2;
}

/// Reads the header and the preamble into the packet.
void fill(HandPacket& packet, unsigned char const* bytes, std::uint64_t offset) {
    packet.offset = offset;
    packet.type = bytes[5];
    packet.length = number(bytes + 6);
    packet.mediaType = bytes[16];
    packet.trackByte = bytes[17];
    packet.field = number(bytes + 18);
    for (unsigned i = 0; i < 4; ++i) {
        packet.mediaBytes[i] = bytes[22 + i];
    }
    packet.timeline = number(bytes + 26);
    packet.isTimelineValid = (bytes[30] & 1) != 0;
    packet.isMpeg = packet.mediaType == 11 || packet.mediaType == 12 || packet.mediaType == 20 ||
                    packet.mediaType == 22 || packet.mediaType == 23;
    packet.isTimecode = packet.mediaType == 7 || packet.mediaType == 8 || packet.mediaType == 24;
}

std::size_t readByHand(HandPool& pool, std::vector<unsigned char> const& stream) {
    std::size_t count = 0;
    std::size_t at = 0;
    while (stream.size() - at >= 32) {
        unsigned char const* const bytes = stream.data() + at;
        std::uint32_t const length = number(bytes + 6);
        if (!isHeader(bytes) || bytes[5] != 0xBF || length < 32 || length > stream.size() - at) {
            break;
        }
        std::unique_ptr<HandPacket> packet = pool.take();
        fill(*packet, bytes, at);
        bool const isIPicture = packet->isMpeg && (packet->mediaBytes[0] & 3) == 1;
        if (packet->isTimecode || isIPicture) {
            break;
        }
        benchmark::DoNotOptimize(packet.get());
        ++count;
        at += length;
        pool.give(std::move(packet));
    }
    return count;
}

/// Runs passes over the stream and counts what they allocate.
template <typename Pass> void measure(benchmark::State& state, Pass pass) {
    if (pass() != packets) {
        state.SkipWithError("the stream wasn't read to its end");
        return;
    }
    std::uint64_t const before = GxfTesting::allocationCount();
    for (auto _ : state) {
        benchmark::DoNotOptimize(pass());
    }
    auto const read = static_cast<double>(state.iterations()) * packets;
    state.counters["allocations/packet"] =
        static_cast<double>(GxfTesting::allocationCount() - before) / read;
    state.counters["time/packet"] = benchmark::Counter(
        packets, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void packetsByHand(benchmark::State& state) {
    HandPool pool;
    measure(state, [&] { return readByHand(pool, theStream()); });
}

void packetsByLibrary(benchmark::State& state) {
    GxfTypes::PacketPool pool;
    measure(state, [&] { return readByLibrary(pool, theStream()); });
}

void packetsByReader(benchmark::State& state) {
    GxfStream::MemorySource source(theStream());
    GxfStream::PacketReader reader(source);
    measure(state, [&] { return readByReader(reader); });
}

} // namespace

BENCHMARK(packetsByHand);
BENCHMARK(packetsByLibrary);
BENCHMARK(packetsByReader);

int main(int argc, char** argv) {
    return runAndCompare(
        argc, argv,
        {{"Media packet in memory: library / by hand, time", Comparison::timeRatio,
          "packetsByLibrary", "packetsByHand", "", 2.0},
         {"Media packet in memory: library, heap allocations per packet", Comparison::counterValue,
          "packetsByLibrary", "", "allocations/packet", 0},
         {"Media packet of a stream: reader / by hand, time", Comparison::timeRatio,
          "packetsByReader", "packetsByHand", "", 2.5},
         {"Media packet of a stream: reader, heap allocations per packet", Comparison::counterValue,
          "packetsByReader", "", "allocations/packet", 0}});
}
