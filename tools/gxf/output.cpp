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

constexpr int interrupts[] = {SIGINT, SIGTERM, SIGHUP, SIGPIPE};

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

bool isSpecial(std::string const& path) {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && !S_ISREG(status.st_mode);
}

/// Through symbolic links, so that what they point to is replaced and they stay.
std::string targetOf(std::string const& path) {
    std::error_code ignored;
    std::filesystem::path const target = std::filesystem::canonical(path, ignored);
    return ignored ? path : target.string();
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
    if (isSpecial(path)) {
        std::FILE* const stream = std::fopen(path.c_str(), "wb");
        if (stream == nullptr) {
            throw NotDone(path + ": can't be written, " + reason());
        }
        return {stream, path, {}};
    }
    std::string const target = targetOf(path);
    std::filesystem::path const name(target);
    std::string temporary =
        (name.parent_path() / ("." + name.filename().string() + ".XXXXXX")).string();
    int const descriptor = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (descriptor < 0) {
        throw NotDone(path + ": can't be written, " + reason() +
                      "; choose a folder that exists and may be written to");
    }
    watchUnfinished(temporary);
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
    if (std::fflush(m_stream) != 0) {
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
    throw NotDone(m_path + ": writing failed, " + reason() + "; nothing of it is kept");
}

} // namespace Gxf
