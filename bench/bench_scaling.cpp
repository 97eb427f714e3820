// Whether a packet of a long stream costs more than one of a short stream. Times tell more of the
// machine's caches than of the library: see scripts/bench --scaling for instructions.

#include <bench/comparison.h>
#include <bench/media_stream.h>

using namespace GxfBench;

namespace {

void readPackets(benchmark::State& state, bool byReader) {
    auto const packets = static_cast<std::size_t>(state.range(0));
    std::vector<unsigned char> const stream = mediaStream(packets, 256);
    GxfTypes::PacketPool pool;
    GxfStream::MemorySource source(stream);
    GxfStream::PacketReader reader(source);
    for (auto _ : state) {
        std::size_t const read = byReader ? readByReader(reader) : readByLibrary(pool, stream);
        if (read != packets) {
            state.SkipWithError("the stream wasn't read to its end");
            break;
        }
    }
    state.counters["time/packet"] = benchmark::Counter(
        static_cast<double>(packets),
        benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void packetsByLibrary(benchmark::State& state) { readPackets(state, false); }
void packetsByReader(benchmark::State& state) { readPackets(state, true); }

} // namespace

BENCHMARK(packetsByLibrary)->Arg(1000)->Arg(100000);
BENCHMARK(packetsByReader)->Arg(1000)->Arg(100000);

int main(int argc, char** argv) { return runAndCompare(argc, argv, {}); }
