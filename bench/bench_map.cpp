// A MAP of 20 tracks, read and written. The count of heap allocations costs a few nanoseconds for
// each of them, which the times here contain.

#include <bench/comparison.h>
#include <gxftypes/packet/gxf.h>
#include <testing/allocation_count.h>
#include <testing/stream_builder.h>

using namespace GxfBench;
using namespace GxfTesting;
using namespace GxfTypes;

namespace {

constexpr unsigned materialTags = 6;
constexpr unsigned trackCount = 20;
constexpr unsigned tagsPerTrack = 6;
constexpr unsigned tags = materialTags + trackCount * tagsPerTrack;

Bytes trackTags(unsigned number, std::string const& name, Bytes const& aux) {
    return Bytes()
        .add(tagText(0x4C, name + std::to_string(number)))
        .add(aux)
        .add(tagU32(0x4E, 0))
        .add(tagU32(0x50, 5))
        .add(tagU32(0x51, 1))
        .add(tagU32(0x52, 2));
}

/// A picture, its timecode, and audio for the rest.
Bytes tracks() {
    Bytes const picture =
        tagText(0x4F, "Ver 1\nBr 15000000.000000\nIpg 1\nPpi 4\nBpiop 2\nPix 0\nCf 2\nCg 1\n"
                      "Sl 15\nnl16 32\nnp16 45\nVi 1\nf1 1\nar 1\n");
    Bytes bytes = track(11, 0, trackTags(0, "EXT:/clip/V", picture));
    bytes.add(track(7, 1, trackTags(1, "EXT:/clip/T", tag(0x4D, Bytes{0, 0, 0, 1, 0, 0, 0, 0}))));
    for (unsigned i = 2; i < trackCount; ++i) {
        bytes.add(track(9, i, trackTags(i, "EXT:/clip/A", tag(0x4D, Bytes().fill(8)))));
    }
    return bytes;
}

Bytes mapBytes() {
    Bytes const material = Bytes()
                               .add(tagText(0x40, "EXT:/clip"))
                               .add(tagU32(0x41, 0))
                               .add(tagU32(0x42, 599))
                               .add(tagU32(0x43, 0))
                               .add(tagU32(0x44, 600))
                               .add(tagU32(0x45, 12345));
    return packet(0xBC, mapPayload(material, tracks()));
}

/// Reads a header and the packet behind it; null when that fails.
AutoRefPtr<Packet> decodeFrom(PacketPool& pool, Bytes& bytes) {
    GxfBuffer buffer = bytes.filledBuffer();
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    if (!header->decode(buffer) || !header->isValid()) {
        return nullptr;
    }
    AutoRefPtr<Packet> packet = header->createActual();
    return packet->decode(buffer) && packet->isValid() ? packet : AutoRefPtr<Packet>();
}

void report(benchmark::State& state, std::uint64_t allocationsBefore) {
    state.counters["allocations"] = static_cast<double>(allocationCount() - allocationsBefore) /
                                    static_cast<double>(state.iterations());
    state.counters["time/tag"] = benchmark::Counter(
        tags, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void decodeMap(benchmark::State& state) {
    PacketPool pool;
    Bytes bytes = mapBytes();
    if (decodeFrom(pool, bytes).get() == nullptr) {
        state.SkipWithError("the MAP can't be read");
        return;
    }
    std::uint64_t const before = allocationCount();
    for (auto _ : state) {
        benchmark::DoNotOptimize(decodeFrom(pool, bytes).get());
    }
    report(state, before);
}

void encodeMap(benchmark::State& state) {
    PacketPool pool;
    Bytes bytes = mapBytes();
    AutoRefPtr<Packet> const map = decodeFrom(pool, bytes);
    Bytes out = Bytes().fill(bytes.size());
    std::uint64_t const before = allocationCount();
    for (auto _ : state) {
        GxfBuffer buffer = out.emptyBuffer();
        if (!map->encode(buffer)) {
            state.SkipWithError("the MAP can't be written");
            break;
        }
        benchmark::ClobberMemory();
    }
    report(state, before);
    if (out != bytes) {
        state.SkipWithError("the MAP isn't written as it was read");
    }
}

} // namespace

BENCHMARK(decodeMap);
BENCHMARK(encodeMap);

int main(int argc, char** argv) {
    return runAndCompare(argc, argv,
                         {{"MAP of 20 tracks: decode, ns per tag", Comparison::counterValue,
                           "decodeMap", "", "time/tag", -1, 1e9},
                          {"MAP of 20 tracks: encode, ns per tag", Comparison::counterValue,
                           "encodeMap", "", "time/tag", -1, 1e9},
                          {"MAP of 20 tracks: heap allocations per decode",
                           Comparison::counterValue, "decodeMap", "", "allocations", -1},
                          {"MAP of 20 tracks: heap allocations per encode",
                           Comparison::counterValue, "encodeMap", "", "allocations", -1}});
}
