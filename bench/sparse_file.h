#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <sys/types.h>
#include <unistd.h>

#include <testing/stream_builder.h>

namespace GxfBench {

/// A file of large media packets, which takes hardly any room: the essence is holes.
class SparseFile {
  public:
    /// As many whole packets as `size` has room for, behind `front`.
    SparseFile(std::uint64_t size, std::uint32_t packetLength,
               GxfTesting::Bytes const& front = {}) {
        std::string path = (std::filesystem::temp_directory_path() / "gxf-bench-XXXXXX").string();
        int const descriptor = ::mkstemp(path.data());
        m_path = path;
        bool isWritten = descriptor >= 0 && write(descriptor, front, 0);
        GxfTesting::Bytes const packet =
            GxfTesting::header(0xBF, packetLength).add(GxfTesting::mediaPreamble({}));
        std::uint64_t end = front.size();
        for (; isWritten && end + packetLength <= size; end += packetLength) {
            isWritten = write(descriptor, packet, end);
        }
        m_isGood = isWritten && ::ftruncate(descriptor, static_cast<off_t>(end)) == 0 &&
                   ::fsync(descriptor) == 0; // so that nobody else has to wait for that
        ::close(descriptor);
    }
    SparseFile(SparseFile const&) = delete;
    SparseFile& operator=(SparseFile const&) = delete;
    ~SparseFile() { ::unlink(m_path.c_str()); }

    std::string const& path() const { return m_path; }
    bool isGood() const { return m_isGood; }

  private:
    static bool write(int descriptor, GxfTesting::Bytes const& bytes, std::uint64_t at) {
        return ::pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(at)) ==
               static_cast<ssize_t>(bytes.size());
    }

    std::string m_path;
    bool m_isGood = false;
};

} // namespace GxfBench
