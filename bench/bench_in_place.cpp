// What a change in place costs in a long stream and in a short one: the tool's whole run, against
// the start of its process, and the bytes that it reads.

#include <algorithm>
#include <fcntl.h>
#include <fstream>
#include <spawn.h>
#include <string>
#include <sys/wait.h>

#include <bench/comparison.h>
#include <bench/sparse_file.h>
#include <testing/umf_builder.h>

extern char** environ;

using namespace GxfBench;
using namespace GxfTesting;

namespace {

constexpr std::uint32_t packetLength = std::uint32_t{1} << 20;

/// A UMF with one pair, in front of everything.
Bytes front() {
    UmfContent content;
    content.addTrack({});
    content.userData = umfPair(1, "Title", Bytes().text("Evening news"));
    content.rest = Bytes().fill(64);
    return joined(umfPackets(content.payload()));
}

/// Runs the tool; true when it ends with status 0.
bool runTool(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), GXF_TOOL_PATH);
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = -1;
    bool const isStarted =
        ::posix_spawn(&child, GXF_TOOL_PATH, &actions, nullptr, pointers.data(), environ) == 0;
    posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    return isStarted && ::waitpid(child, &status, 0) == child && WIFEXITED(status) &&
           WEXITSTATUS(status) == 0;
}

/// Bytes that this process and its finished children have read so far.
double bytesRead() {
    std::ifstream io("/proc/self/io");
    std::string name;
    double value = 0;
    while (io >> name >> value) {
        if (name == "rchar:") {
            return value;
        }
    }
    return 0;
}

void setInPlace(benchmark::State& state) {
    auto const mebibytes = static_cast<std::uint64_t>(state.range(0));
    SparseFile const file(mebibytes << 20, packetLength, front());
    if (!file.isGood()) {
        state.SkipWithError("the temporary file can't be written");
        return;
    }
    unsigned pass = 0;
    double const before = bytesRead();
    for (auto _ : state) {
        // Never the value that is there.
        std::string const title = "Late news " + std::to_string(pass++ % 10);
        if (!runTool({"userdata", "set", "Title", title, "--in-place", "-q", file.path()})) {
            state.SkipWithError("the file can't be changed");
            break;
        }
    }
    state.counters["read KiB"] = (bytesRead() - before) / 1024 / std::max(1U, pass);
}

void startTool(benchmark::State& state) {
    for (auto _ : state) {
        if (!runTool({"--version"})) {
            state.SkipWithError("the tool can't be run");
            break;
        }
    }
}

} // namespace

BENCHMARK(setInPlace)->Arg(4)->Arg(4096)->UseRealTime()->Unit(benchmark::kMillisecond);
BENCHMARK(startTool)->UseRealTime()->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
    return runAndCompare(argc, argv,
                         {{"userdata set --in-place: 4 GiB / 4 MiB, time", Comparison::timeRatio,
                           "setInPlace/4096", "setInPlace/4", "", -1},
                          {"userdata set --in-place, 4 MiB / start of the process, time",
                           Comparison::timeRatio, "setInPlace/4", "startTool", "", -1},
                          {"userdata set --in-place, 4 GiB: KiB read", Comparison::counterValue,
                           "setInPlace/4096", "", "read KiB", -1}});
}
