// Runs a fuzzer's inputs once each, for builds without a fuzzing engine:
//     replay_NAME FILE|FOLDER...

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::vector<fs::path> filesIn(fs::path const& path) {
    if (!fs::is_directory(path)) {
        return {path};
    }
    std::vector<fs::path> files;
    for (fs::directory_entry const& entry : fs::recursive_directory_iterator(path)) {
        if (entry.is_regular_file()) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    return files;
}

void replay(fs::path const& path) {
    std::size_t const size = fs::file_size(path);
    // An array of exactly the input's size lets AddressSanitizer see a read behind its end.
    auto const data = std::make_unique<std::uint8_t[]>(size);
    std::ifstream file(path, std::ios::binary);
    file.read(reinterpret_cast<char*>(data.get()), static_cast<std::streamsize>(size));
    if (!file) {
        throw std::runtime_error(path.string() + ": can't be read");
    }
    LLVMFuzzerTestOneInput(data.get(), size);
}

std::size_t replayAll(std::vector<fs::path> const& paths) {
    std::size_t count = 0;
    for (fs::path const& path : paths) {
        for (fs::path const& file : filesIn(path)) {
            replay(file);
            ++count;
        }
    }
    return count;
}

} // namespace

int main(int argc, char** argv) {
    try {
        std::size_t const count = replayAll({argv + 1, argv + argc});
        std::printf("%zu inputs replayed\n", count);
        return count > 0 ? 0 : 1;
    } catch (std::exception const& error) {
        std::fprintf(stderr, "%s\n", error.what());
        return 1;
    }
}
