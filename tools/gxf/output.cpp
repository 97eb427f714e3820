#include "output.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include "command.h"

namespace Gxf {

namespace {

constexpr int interrupts[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGQUIT, SIGXCPU};

// The unfinished file, for the signal handler, which may only look at plain memory.
char unfinishedPath[4096];

extern "C" void removeUnfinished(int signal) {
    if (unfinishedPath[0] != '\0') {
        ::unlink(unfinishedPath);
    }
    std::signal(signal, SIG_DFL);
    std::raise(signal);
}

void watchUnfinished(std::string const& path) {
    if (path.size() >= sizeof(unfinishedPath)) {
        return;
    }
    std::memcpy(unfinishedPath, path.c_str(), path.size() + 1);
    for (int const signal : interrupts) {
        // One that the caller ignores stays ignored.
        if (std::signal(signal, &removeUnfinished) == SIG_IGN) {
            std::signal(signal, SIG_IGN);
        }
    }
}

std::string reason() { return std::generic_category().message(errno); }

/// `errno` tells why a path can't be looked at.
bool isSpecial(std::string const& path) {
    struct stat status {};
    errno = 0;
    return ::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

/// Through symbolic links, so that what they point to is replaced or made, and they stay.
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

[[noreturn]] void cantWrite(std::string const& path, char const* advice) {
    throw NotDone(path + ": can't be written, " + reason() + "; " + advice);
}

/// No interrupt comes while it lives.
class InterruptsHeld {
  public:
    InterruptsHeld() {
        sigset_t held;
        sigemptyset(&held);
        for (int const signal : interrupts) {
            sigaddset(&held, signal);
        }
        ::sigprocmask(SIG_BLOCK, &held, &m_before);
    }
    ~InterruptsHeld() { ::sigprocmask(SIG_SETMASK, &m_before, nullptr); }
    InterruptsHeld(InterruptsHeld const&) = delete;
    InterruptsHeld& operator=(InterruptsHeld const&) = delete;

  private:
    sigset_t m_before;
};

/// Makes the file of that pattern, which an interrupt removes again. Negative when it can't.
int openTemporary(std::string& pattern) {
    InterruptsHeld const held;
    int const descriptor = ::mkostemp(pattern.data(), O_CLOEXEC);
    if (descriptor >= 0) {
        watchUnfinished(pattern);
    }
    return descriptor;
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

void syncFolderOf(std::string const& path) {
    std::filesystem::path const folder = std::filesystem::path(path).parent_path();
    int const descriptor = ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY);
    if (descriptor >= 0) {
        ::fsync(descriptor);
        ::close(descriptor);
    }
}

} // namespace

Output::Output(std::FILE* stream, std::string path, std::string temporary)
    : m_stream(stream), m_path(std::move(path)), m_temporary(std::move(temporary)) {}

Output::Output(Output&& other) noexcept
    : m_stream(std::exchange(other.m_stream, nullptr)), m_path(std::move(other.m_path)),
      m_temporary(std::exchange(other.m_temporary, {})) {}

Output Output::standard() { return {stdout, "standard output", {}}; }

Output Output::file(std::string const& path) {
    if (path.empty()) {
        throw NotDone("the output has an empty name; give one");
    }
    if (isSpecial(path)) {
        std::FILE* const stream = std::fopen(path.c_str(), "wb");
        if (stream == nullptr) {
            cantWrite(path, "choose another output name");
        }
        return {stream, path, {}};
    }
    if (errno == ENAMETOOLONG || errno == ELOOP) {
        cantWrite(path, "choose another output name");
    }
    std::string const target = targetOf(path);
    std::string temporary = temporaryFor(target);
    int const descriptor = openTemporary(temporary);
    if (descriptor < 0) {
        cantWrite(path, "choose a folder that exists and may be written to");
    }
    ::fchmod(descriptor, modeFor(target));
    return {::fdopen(descriptor, "wb"), target, temporary};
}

Output::~Output() {
    if (m_stream != nullptr && m_stream != stdout) {
        std::fclose(m_stream);
    }
    if (!m_temporary.empty()) {
        ::unlink(m_temporary.c_str());
        unfinishedPath[0] = '\0';
    }
}

void Output::write(std::span<unsigned char const> bytes) {
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), m_stream) != bytes.size()) {
        fail();
    }
}

void Output::write(std::string_view text) {
    if (!text.empty() && std::fwrite(text.data(), 1, text.size(), m_stream) != text.size()) {
        fail();
    }
}

void Output::rewriteFront(std::span<unsigned char const> bytes) {
    if (std::fseek(m_stream, 0, SEEK_SET) != 0) {
        fail();
    }
    write(bytes);
}

bool Output::isTerminal() const { return ::isatty(::fileno(m_stream)) != 0; }

int Output::finish() {
    if (std::fflush(m_stream) != 0 || std::ferror(m_stream) != 0) {
        fail();
    }
    if (m_temporary.empty()) {
        return done;
    }
    if (::fsync(::fileno(m_stream)) != 0 && errno != EINVAL) {
        fail();
    }
    std::FILE* const stream = std::exchange(m_stream, nullptr);
    if (std::fclose(stream) != 0 || std::rename(m_temporary.c_str(), m_path.c_str()) != 0) {
        fail();
    }
    m_temporary.clear();
    unfinishedPath[0] = '\0';
    syncFolderOf(m_path);
    return done;
}

void Output::fail() {
    throw NotDone(m_path + ": writing failed, " + reason() +
                  (m_temporary.empty() ? "; what arrived there isn't whole"
                                       : "; nothing of it is kept, make room or choose another "
                                         "output name"));
}

} // namespace Gxf
