// What reading a long stream takes of memory.

#include <array>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <string>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <bench/comparison.h>
#include <bench/media_stream.h>
#include <bench/sparse_file.h>

using namespace GxfBench;

namespace {

/// The most memory of this process that was resident at a time, in KiB.
double peakMemory() {
    std::ifstream status("/proc/self/status");
    for (std::string line; std::getline(status, line);) {
        if (line.starts_with("VmHWM:")) {
            return std::strtod(line.c_str() + sizeof("VmHWM:") - 1, nullptr);
        }
    }
    return 0;
}

struct FileReading {
    std::size_t packets;
    double peak; ///< in KiB
};

FileReading readFile(std::string const& path) {
    std::string error;
    std::unique_ptr<GxfStream::FileSource> const source = GxfStream::FileSource::open(path, error);
    GxfStream::PacketReader reader(*source);
    std::size_t const packets = readByReader(reader);
    return {packets, peakMemory()};
}

/// The same in a process of its own, whose peak begins with what this one has now.
FileReading readFileApart(std::string const& path) {
    FileReading reading{};
    std::array<int, 2> ends{};
    if (::pipe(ends.data()) != 0) {
        return reading;
    }
    pid_t const child = ::fork();
    if (child == 0) {
        reading = readFile(path);
        ssize_t const written = ::write(ends[1], &reading, sizeof reading);
        ::_exit(written == sizeof reading ? 0 : 1);
    }
    ::close(ends[1]);
    if (child < 0 || ::read(ends[0], &reading, sizeof reading) != sizeof reading) {
        reading = {};
    }
    ::close(ends[0]);
    if (child > 0) {
        ::waitpid(child, nullptr, 0);
    }
    return reading;
}

void memoryOfFile(benchmark::State& state) {
    constexpr std::uint32_t packetLength = std::uint32_t{1} << 20;
    auto const mebibytes = static_cast<std::uint64_t>(state.range(0));
    SparseFile const file(mebibytes << 20, packetLength);
    if (!file.isGood()) {
        state.SkipWithError("the temporary file can't be written");
        return;
    }
    for (auto _ : state) {
        FileReading const reading = readFileApart(file.path());
        if (reading.packets != mebibytes) {
            state.SkipWithError("the file wasn't read to its end");
            break;
        }
        state.counters["peak KiB"] = reading.peak;
    }
}

} // namespace

BENCHMARK(memoryOfFile)->Arg(4)->Arg(4096)->Iterations(1);

int main(int argc, char** argv) {
    return runAndCompare(
        argc, argv,
        {{"Peak memory in KiB: a stream of 4 GiB, less that of one of 4 MiB",
          Comparison::counterDifference, "memoryOfFile/4096", "memoryOfFile/4", "peak KiB", 2048}});
}
