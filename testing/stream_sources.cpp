#include <testing/stream_sources.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <stdexcept>
#include <system_error>
#include <unistd.h>

namespace GxfTesting {

namespace {

void check(bool succeeded, char const* what) {
    if (!succeeded) {
        throw std::system_error(errno, std::generic_category(), what);
    }
}

} // namespace

TemporaryFile::TemporaryFile(Bytes const& bytes)
    : m_path(std::filesystem::temp_directory_path() / "gxf_test_XXXXXX"),
      m_descriptor(::mkstemp(m_path.data())) {
    check(m_descriptor >= 0, "mkstemp");
    for (std::size_t written = 0; written < bytes.size();) {
        ssize_t const count = ::write(m_descriptor, bytes.data() + written, bytes.size() - written);
        check(count > 0, "write");
        written += static_cast<std::size_t>(count);
    }
}

TemporaryFile::~TemporaryFile() {
    ::close(m_descriptor);
    ::unlink(m_path.c_str());
}

FedPipe::FedPipe(Bytes const& bytes) : m_readingEnd(-1) {
    int ends[2];
    check(::pipe2(ends, O_CLOEXEC) == 0, "pipe2");
    m_readingEnd = ends[0];
    m_writer = std::thread(&FedPipe::feed, ends[1], std::cref(bytes));
}

FedPipe::~FedPipe() {
    // The writer stops when nobody can read any more.
    ::close(m_readingEnd);
    m_writer.join();
}

void FedPipe::feed(int writingEnd, Bytes const& bytes) {
    // Nobody reading isn't to end the program.
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);

    static constexpr std::array<std::size_t, 7> pieces{1, 13, 4099, 7, 65537, 333, 17};
    std::size_t written = 0;
    for (std::size_t i = 0; written < bytes.size(); ++i) {
        std::size_t const wanted = std::min(pieces[i % pieces.size()], bytes.size() - written);
        ssize_t const count = ::write(writingEnd, bytes.data() + written, wanted);
        if (count <= 0) {
            break;
        }
        written += static_cast<std::size_t>(count);
    }
    ::close(writingEnd);
}

char const* getName(SourceKind kind) {
    switch (kind) {
    case SourceKind::memory:
        return "memory";
    case SourceKind::file:
        return "file";
    case SourceKind::pipe:
        return "pipe";
    }
    return "?";
}

StreamSource::StreamSource(SourceKind kind, Bytes const& bytes) {
    switch (kind) {
    case SourceKind::memory:
        m_source =
            std::make_unique<GxfStream::MemorySource>(GxfStream::Span(bytes.data(), bytes.size()));
        break;
    case SourceKind::file: {
        m_file = std::make_unique<TemporaryFile>(bytes);
        std::string error;
        m_source = GxfStream::FileSource::open(m_file->path(), error);
        if (m_source == nullptr) {
            throw std::runtime_error(error);
        }
        break;
    }
    case SourceKind::pipe:
        m_pipe = std::make_unique<FedPipe>(bytes);
        m_source = std::make_unique<GxfStream::PipeSource>(m_pipe->descriptor());
        break;
    }
}

} // namespace GxfTesting
