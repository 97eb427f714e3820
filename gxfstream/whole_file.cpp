#include <gxfstream/whole_file.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace GxfStream {

namespace {

std::string reason() { return std::generic_category().message(errno); }

std::string targetOf(std::string const& path) {
    constexpr int mostLinks = 40; // as many as the system follows
    std::filesystem::path target = path;
    for (int i = 0; i < mostLinks; ++i) {
        std::error_code isNoLink;
        std::filesystem::path const next = std::filesystem::read_symlink(target, isNoLink);
        if (isNoLink) {
            break;
        }
        target = target.parent_path() / next;
    }
    return target.string();
}

/// A file beside the target, whose name fits wherever the target's does.
std::string temporaryFor(std::string const& target) {
    constexpr std::size_t longestPart = 200;
    std::filesystem::path const path(target);
    std::string const name = path.filename().string().substr(0, longestPart);
    return (path.parent_path() / ("." + name + ".XXXXXX")).string();
}

mode_t modeFor(std::string const& path) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) {
        return status.st_mode & 07777;
    }
    mode_t const mask = ::umask(0);
    ::umask(mask);
    return 0666 & ~mask;
}

} // namespace

bool writeAll(int descriptor, Span bytes, std::uint64_t offset) {
    while (!bytes.empty()) {
        ssize_t const put =
            ::pwrite(descriptor, bytes.data(), bytes.size(), static_cast<off_t>(offset));
        if (put < 0 && errno == EINTR) {
            continue;
        }
        if (put <= 0) {
            errno = put == 0 ? ENOSPC : errno;
            return false;
        }
        bytes = bytes.subspan(static_cast<std::size_t>(put));
        offset += static_cast<std::uint64_t>(put);
    }
    return true;
}

bool syncFolderOf(std::string const& path) {
    std::filesystem::path const folder = std::filesystem::path(path).parent_path();
    int const descriptor =
        ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    bool const synced = ::fsync(descriptor) == 0;
    int const error = errno;
    ::close(descriptor);
    errno = error;
    return synced;
}

WholeFile::WholeFile(int descriptor, std::string target, std::string temporary)
    : m_descriptor(descriptor), m_target(std::move(target)), m_temporary(std::move(temporary)) {}

std::unique_ptr<WholeFile> WholeFile::create(std::string const& path, std::string& error) {
    std::string const target = targetOf(path);
    std::string temporary = temporaryFor(target);
    int const descriptor = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (descriptor < 0) {
        error = reason();
        return nullptr;
    }
    ::fchmod(descriptor, modeFor(target));
    return std::unique_ptr<WholeFile>(new WholeFile(descriptor, target, temporary));
}

WholeFile::~WholeFile() {
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
    if (!m_temporary.empty()) {
        ::unlink(m_temporary.c_str());
    }
}

bool WholeFile::fail() {
    m_error = reason();
    return false;
}

bool WholeFile::write(Span bytes) {
    while (!bytes.empty()) {
        ssize_t const put = ::write(m_descriptor, bytes.data(), bytes.size());
        if (put < 0 && errno == EINTR) {
            continue;
        }
        if (put <= 0) {
            errno = put == 0 ? ENOSPC : errno;
            return fail();
        }
        bytes = bytes.subspan(static_cast<std::size_t>(put));
    }
    return true;
}

bool WholeFile::finish() {
    if (::fsync(m_descriptor) != 0 && errno != EINVAL) {
        return fail();
    }
    if (::close(std::exchange(m_descriptor, -1)) != 0 ||
        std::rename(m_temporary.c_str(), m_target.c_str()) != 0) {
        return fail();
    }
    m_temporary.clear();
    // Where this fails the file has appeared all the same.
    syncFolderOf(m_target);
    return true;
}

} // namespace GxfStream
