#include "output.h"

#include <cerrno>
#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include <gxfstream/in_place_file.h>

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

[[noreturn]] void cantWrite(std::string const& path, std::string const& why, char const* advice) {
    throw NotDone(path + ": can't be written, " + why + "; " + advice);
}

/// What was kept to undo a change of the file that is replaced would be put into the new one.
void refuseUndoFile(std::string const& path) {
    std::string why;
    if (GxfStream::undoInterrupted(path, why) == GxfStream::Undone::failed) {
        cantWrite(path, why, "choose another output name");
    }
    std::string const undoFile = GxfStream::undoFileOf(path);
    struct stat status {};
    if (::lstat(undoFile.c_str(), &status) == 0) {
        cantWrite(path, undoFile + " is in the way", "move it away");
    }
}

} // namespace

InterruptsHeld::InterruptsHeld() {
    sigset_t held;
    sigemptyset(&held);
    for (int const signal : interrupts) {
        sigaddset(&held, signal);
    }
    ::sigprocmask(SIG_BLOCK, &held, &m_before);
}

InterruptsHeld::~InterruptsHeld() { ::sigprocmask(SIG_SETMASK, &m_before, nullptr); }

Output::Output(std::FILE* stream, std::string path, std::unique_ptr<GxfStream::WholeFile> file)
    : m_stream(stream), m_path(std::move(path)), m_file(std::move(file)) {}

Output::Output(Output&& other) noexcept
    : m_stream(std::exchange(other.m_stream, nullptr)), m_path(std::move(other.m_path)),
      m_file(std::move(other.m_file)) {}

Output Output::standard() { return {stdout, "standard output", {}}; }

Output Output::file(std::string const& path) {
    if (path.empty()) {
        throw NotDone("the output has an empty name; give one");
    }
    if (isSpecial(path)) {
        std::FILE* const stream = std::fopen(path.c_str(), "wb");
        if (stream == nullptr) {
            cantWrite(path, reason(), "choose another output name");
        }
        return {stream, path, {}};
    }
    if (errno == ENAMETOOLONG || errno == ELOOP) {
        cantWrite(path, reason(), "choose another output name");
    }
    std::string error;
    refuseUndoFile(path);
    InterruptsHeld const held;
    std::unique_ptr<GxfStream::WholeFile> whole = GxfStream::WholeFile::create(path, error);
    if (whole == nullptr) {
        cantWrite(path, error, "choose a folder that exists and may be written to");
    }
    watchUnfinished(whole->temporary());
    int const descriptor = ::fcntl(whole->descriptor(), F_DUPFD_CLOEXEC, 0);
    std::FILE* const stream = descriptor >= 0 ? ::fdopen(descriptor, "wb") : nullptr;
    if (stream == nullptr) {
        cantWrite(path, reason(), "close some files");
    }
    return {stream, path, std::move(whole)};
}

Output::~Output() {
    if (m_stream != nullptr && m_stream != stdout) {
        std::fclose(m_stream);
    }
    if (m_file != nullptr) {
        m_file.reset();
        unfinishedPath[0] = '\0';
    }
}

void Output::write(std::span<unsigned char const> bytes) {
    if (!bytes.empty() && std::fwrite(bytes.data(), 1, bytes.size(), m_stream) != bytes.size()) {
        fail(reason());
    }
}

void Output::write(std::string_view text) {
    if (!text.empty() && std::fwrite(text.data(), 1, text.size(), m_stream) != text.size()) {
        fail(reason());
    }
}

void Output::rewrite(std::span<unsigned char const> bytes, std::uint64_t offset) {
    flush();
    if (!GxfStream::writeAll(m_file->descriptor(), bytes, offset)) {
        fail(reason());
    }
}

std::string const& Output::unfinished() {
    flush();
    return m_file->temporary();
}

bool Output::isTerminal() const { return ::isatty(::fileno(m_stream)) != 0; }

void Output::flush() {
    if (std::fflush(m_stream) != 0 || std::ferror(m_stream) != 0) {
        fail(reason());
    }
}

int Output::finish() {
    flush();
    if (m_file == nullptr) {
        return done;
    }
    if (std::fclose(std::exchange(m_stream, nullptr)) != 0) {
        fail(reason());
    }
    if (!m_file->finish()) {
        fail(m_file->error());
    }
    m_file.reset();
    unfinishedPath[0] = '\0';
    return done;
}

void Output::fail(std::string const& why) {
    throw NotDone(m_path + ": writing failed, " + why +
                  (m_file == nullptr ? "; what arrived there isn't whole"
                                     : "; nothing of it is kept, make room or choose another "
                                       "output name"));
}

} // namespace Gxf
