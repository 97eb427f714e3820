#include <gxfstream/byte_source.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace GxfStream {

namespace {

// A jump reads a little more than a packet's header and preamble; reading on doubles the amount.
constexpr std::size_t smallestRead = 512;
constexpr std::size_t largestRead = std::size_t{256} << 10;
// What a pipe holds by default.
constexpr std::size_t pipeRead = std::size_t{64} << 10;

ssize_t retryingRead(int descriptor, unsigned char* to, std::size_t count) {
    ssize_t got = 0;
    do {
        got = ::read(descriptor, to, count);
    } while (got < 0 && errno == EINTR);
    return got;
}

ssize_t retryingRead(int descriptor, unsigned char* to, std::size_t count, std::uint64_t offset) {
    ssize_t got = 0;
    do {
        got = ::pread(descriptor, to, count, static_cast<off_t>(offset));
    } while (got < 0 && errno == EINTR);
    return got;
}

/// Bytes of a regular file or a block device; 0 when it doesn't tell.
std::uint64_t sizeOf(int descriptor) {
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        return 0;
    }
    off_t const size = S_ISBLK(status.st_mode) ? ::lseek(descriptor, 0, SEEK_END) : status.st_size;
    return size > 0 ? static_cast<std::uint64_t>(size) : 0;
}

} // namespace

void ByteSource::setError(char const* what, int errorNumber) {
    m_error = std::string(what) + ": " + std::generic_category().message(errorNumber);
}

Span MemorySource::read(std::uint64_t offset, std::size_t count) {
    if (offset >= m_bytes.size()) {
        return {};
    }
    auto const first = static_cast<std::size_t>(offset);
    return m_bytes.subspan(first, std::min(count, m_bytes.size() - first));
}

bool MemorySource::peek(std::uint64_t offset, std::span<unsigned char> to) {
    Span const bytes = read(offset, to.size());
    std::copy(bytes.begin(), bytes.end(), to.begin());
    return bytes.size() == to.size();
}

Span ByteWindow::view(std::uint64_t offset, std::size_t count) const {
    if (offset >= end()) {
        return {};
    }
    auto const skipped = static_cast<std::size_t>(offset - m_begin);
    return {m_bytes.get() + m_first + skipped, std::min(count, m_size - skipped)};
}

void ByteWindow::restart(std::uint64_t offset) {
    m_begin = offset;
    m_first = 0;
    m_size = 0;
}

void ByteWindow::dropBefore(std::uint64_t offset) {
    if (offset >= end()) {
        restart(offset);
        return;
    }
    if (offset > m_begin) {
        auto const dropped = static_cast<std::size_t>(offset - m_begin);
        m_first += dropped;
        m_size -= dropped;
        m_begin = offset;
    }
}

unsigned char* ByteWindow::room(std::size_t count) {
    if (m_first + m_size + count > m_capacity) {
        std::size_t const needed = m_size + count;
        if (needed > m_capacity || m_size > m_first) {
            std::size_t const capacity = std::max(needed, m_capacity * 2);
            auto grown = std::make_unique_for_overwrite<unsigned char[]>(capacity);
            if (m_size != 0) {
                std::memcpy(grown.get(), m_bytes.get() + m_first, m_size);
            }
            m_bytes = std::move(grown);
            m_capacity = capacity;
        } else if (m_size != 0) {
            std::memmove(m_bytes.get(), m_bytes.get() + m_first, m_size);
        }
        m_first = 0;
    }
    return m_bytes.get() + m_first + m_size;
}

std::unique_ptr<FileSource> FileSource::open(std::string const& path, std::string& error) {
    // A named pipe would wait for its writer.
    int const descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        error = std::generic_category().message(errno);
        return nullptr;
    }
    struct stat status {};
    if (::fstat(descriptor, &status) != 0) {
        error = std::generic_category().message(errno);
        ::close(descriptor);
        return nullptr;
    }
    if (!S_ISREG(status.st_mode) && !S_ISBLK(status.st_mode)) {
        error = S_ISDIR(status.st_mode) ? "it is a directory" : "it is not a regular file";
        ::close(descriptor);
        return nullptr;
    }
    return std::unique_ptr<FileSource>(new FileSource(descriptor, sizeOf(descriptor)));
}

FileSource::~FileSource() { ::close(m_descriptor); }

Span FileSource::read(std::uint64_t offset, std::size_t count) {
    if (m_window.holds(offset, count)) {
        return m_window.view(offset, count);
    }
    bool const readsOn = offset >= m_window.begin() && offset <= m_window.end() &&
                         m_window.end() != m_window.begin();
    m_readAhead = readsOn ? std::min(m_readAhead * 2, largestRead) : smallestRead;
    if (readsOn) {
        m_window.dropBefore(offset);
    } else {
        m_window.restart(offset);
    }
    // The file's own size bounds the window, whatever a packet claims.
    std::uint64_t const left = m_size > offset ? m_size - offset : 0;
    auto const wanted =
        static_cast<std::size_t>(std::min<std::uint64_t>(std::max(count, m_readAhead), left));
    while (m_window.end() - offset < wanted) {
        std::size_t const missing = wanted - static_cast<std::size_t>(m_window.end() - offset);
        ssize_t const got =
            retryingRead(m_descriptor, m_window.room(missing), missing, m_window.end());
        if (got < 0) {
            // What is only read ahead may never be asked for.
            if (m_window.end() - offset < std::min<std::uint64_t>(count, left)) {
                setError("reading failed", errno);
            }
            break;
        }
        if (got == 0) {
            m_size = std::min(m_size, sizeOf(m_descriptor));
            break;
        }
        m_window.added(static_cast<std::size_t>(got));
    }
    return m_window.view(offset, count);
}

bool FileSource::peek(std::uint64_t offset, std::span<unsigned char> to) {
    if (m_window.holds(offset, to.size())) {
        Span const bytes = m_window.view(offset, to.size());
        std::copy(bytes.begin(), bytes.end(), to.begin());
        return true;
    }
    if (offset > m_size || to.size() > m_size - offset) {
        return false;
    }
    ssize_t const got = retryingRead(m_descriptor, to.data(), to.size(), offset);
    if (got < 0) {
        setError("reading failed", errno);
    }
    return got >= 0 && static_cast<std::size_t>(got) == to.size();
}

Span PipeSource::read(std::uint64_t offset, std::size_t count) {
    auto const reachable =
        static_cast<std::size_t>(std::min<std::uint64_t>(count, reachableFrom(offset)));
    if (reachable == 0) {
        return {};
    }
    while (m_window.end() < offset + reachable) {
        m_window.dropBefore(std::min(m_released, m_window.end()));
        if (!readMore()) {
            break;
        }
    }
    return m_window.view(offset, reachable);
}

bool PipeSource::peek(std::uint64_t offset, std::span<unsigned char> to) {
    // Reading on may move what the window holds, but never drops what isn't released.
    Span const bytes = read(offset, to.size());
    std::copy(bytes.begin(), bytes.end(), to.begin());
    return bytes.size() == to.size();
}

bool PipeSource::readMore() {
    if (m_atEnd) {
        return false;
    }
    ssize_t const got = retryingRead(m_descriptor, m_window.room(pipeRead), pipeRead);
    if (got <= 0) {
        if (got < 0) {
            setError("reading failed", errno);
        }
        m_atEnd = true;
        return false;
    }
    m_window.added(static_cast<std::size_t>(got));
    return true;
}

void PipeSource::release(std::uint64_t offset) { m_released = std::max(m_released, offset); }

bool PipeSource::canReach(std::uint64_t offset, std::size_t count) const {
    return offset >= m_released && count <= reachableFrom(offset);
}

/// Bytes from a position on that can be looked at now. This depends on what was released alone, and
/// not on how much the writer has written yet, so that a stream always reads the same.
std::uint64_t PipeSource::reachableFrom(std::uint64_t offset) const {
    bool const isNear = offset >= m_released && offset - m_released < lookAhead;
    return isNear ? lookAhead - (offset - m_released) : 0;
}

std::optional<std::uint64_t> PipeSource::size() const {
    return m_atEnd ? std::optional(m_window.end()) : std::nullopt;
}

} // namespace GxfStream
