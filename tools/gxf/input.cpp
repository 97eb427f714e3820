#include "input.h"

#include <algorithm>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <fcntl.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

#include <gxfstream/in_place_file.h>

#include "text.h"

namespace Gxf {

using namespace GxfStream;

namespace {

[[noreturn]] void cantRead(std::string const& path, std::string const& why) {
    throw NotDone(path + ": can't be read, " + why + "; check the path");
}

} // namespace

bool isReadOnce(std::string const& path) {
    struct stat status {};
    return path == "-" ||
           (::stat(path.c_str(), &status) == 0 &&
            (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode) || S_ISSOCK(status.st_mode)));
}

Input::Input(StreamOptions const& options)
    : Input(options, options.file == "-" ? "standard input" : options.file) {}

Input::Input(StreamOptions const& options, std::string name)
    : m_name(std::move(name)), m_isStandard(options.file == "-") {
    open(options);
    m_reader = std::make_unique<PacketReader>(*m_source,
                                              [this](StreamFault const& fault) { onFault(fault); });
    m_progress.start(options.quiet, m_source->size());
}

Input::~Input() {
    m_progress.stop();
    m_reader.reset();
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

void Input::open(StreamOptions const& options) {
    if (m_isStandard) {
        if (::isatty(STDIN_FILENO) != 0) {
            throw NotDone("standard input is a terminal; give a file, or pipe a stream in");
        }
        m_source = std::make_unique<PipeSource>(STDIN_FILENO);
        return;
    }
    if (options.file.empty()) {
        throw NotDone("the stream has an empty name; give a path, or - for standard input");
    }
    if (isReadOnce(options.file)) {
        m_descriptor = ::open(options.file.c_str(), O_RDONLY | O_CLOEXEC);
        if (m_descriptor < 0) {
            cantRead(options.file, std::generic_category().message(errno));
        }
        m_source = std::make_unique<PipeSource>(m_descriptor);
        return;
    }
    std::string error;
    switch (undoInterrupted(options.file, error)) {
    case Undone::nothing:
        break;
    case Undone::done:
        tell("a change that was interrupted is undone");
        break;
    case Undone::failed:
        throw NotDone(m_name + ": can't be read, " + error);
    }
    m_source = FileSource::open(options.file, error);
    if (m_source == nullptr) {
        cantRead(options.file, error);
    }
}

StreamPacket const* Input::next() {
    StreamPacket const* const packet = m_reader->next();
    if (packet == nullptr) {
        m_progress.stop();
        if (!m_anyPacket) {
            hasNoPacket();
        }
        return nullptr;
    }
    m_anyPacket = true;
    m_lastType = packet->type;
    for (StreamFault const& fault : m_untold) {
        tell(fault);
    }
    m_untold.clear();
    m_progress.update(packet->offset);
    return packet;
}

void Input::hasNoPacket() const {
    if (m_readFailed) {
        throw NotDone(m_name + ": " + m_source->error() + "; give a GXF stream that can be read");
    }
    if (m_source->size() == std::uint64_t{0}) {
        throw NotDone(m_name + ": is empty; give a GXF stream");
    }
    if (m_from != 0) {
        throw NotDone(m_name + ": no GXF packet at or behind offset " + std::to_string(m_from) +
                      "; give a smaller offset");
    }
    throw NotDone(m_name + ": no GXF packet in it; give a GXF stream");
}

void Input::seek(std::uint64_t offset) {
    m_from = offset;
    m_reader->seek(offset);
}

bool Input::isSameFile(std::string const& path) const {
    struct stat mine {};
    struct stat other {};
    int const result = m_isStandard ? ::fstat(STDIN_FILENO, &mine) : ::stat(m_name.c_str(), &mine);
    return result == 0 && ::stat(path.c_str(), &other) == 0 && mine.st_dev == other.st_dev &&
           mine.st_ino == other.st_ino && S_ISREG(other.st_mode);
}

void Input::addFault(std::uint64_t offset, std::string const& text) {
    onFault({StreamFault::payload, offset, 0, text});
}

int Input::status() const {
    if (m_readFailed) {
        return notDone;
    }
    return m_faults != 0 ? withFaults : done;
}

void Input::tell(std::string const& what) {
    m_progress.clearLine();
    std::fprintf(stderr, "%s: %s\n", inOneLine(forPeople(m_name)).c_str(),
                 inOneLine(forPeople(what)).c_str());
}

int Input::notFound(std::string const& what) {
    tell(what);
    return std::max<int>(status(), withFaults);
}

void Input::onFault(StreamFault const& fault) {
    m_readFailed = m_readFailed || fault.kind == StreamFault::io;
    if (m_anyPacket) {
        tell(fault);
    } else {
        m_untold.push_back(fault);
    }
}

void Input::tell(StreamFault const& fault) {
    ++m_faults;
    m_progress.clearLine();
    std::fprintf(stderr, "%s: error at offset %" PRIu64 ": %s\n",
                 inOneLine(forPeople(m_name)).c_str(), fault.offset,
                 inOneLine(forPeople(fault.text)).c_str());
}

} // namespace Gxf
