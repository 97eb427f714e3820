#include <gxftypes/support/fs_file_io.h>

#include <cerrno>
#include <fcntl.h>
#include <system_error>
#include <unistd.h>

namespace Zorvan {

char const* BasicFileIO::getErrorName(unsigned error) {
    thread_local std::string name;
    name = std::generic_category().message(static_cast<int>(error));
    return name.c_str(); // NOLINT(clang-analyzer-cplusplus.InnerPointer): the text stays
}

FsFileIO::FsFileIO(char const* name, char const* path, int) : m_name(name), m_path(path) {}

FsFileIO::~FsFileIO() { close(); }

bool FsFileIO::exists() const { return ::access(m_path.c_str(), F_OK) == 0; }

bool FsFileIO::remove() { return ::unlink(m_path.c_str()) == 0; }

bool FsFileIO::open() {
    close();
    m_descriptor = ::open(m_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
    return m_descriptor >= 0;
}

int FsFileIO::write(void const* data, int count) {
    auto const* const bytes = static_cast<char const*>(data);
    int written = 0;
    while (written < count) {
        ssize_t const n =
            ::write(m_descriptor, bytes + written, static_cast<std::size_t>(count - written));
        if (n < 0 && errno == EINTR) {
            continue;
        }
        if (n <= 0) {
            break;
        }
        written += static_cast<int>(n);
    }
    return written;
}

bool FsFileIO::close() {
    if (m_descriptor < 0) {
        return false;
    }
    bool const closed = ::close(m_descriptor) == 0;
    m_descriptor = -1;
    return closed;
}

} // namespace Zorvan
