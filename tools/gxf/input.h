#pragma once

#include <memory>
#include <string>
#include <vector>

#include <gxfstream/packet_reader.h>

#include "command.h"
#include "progress.h"

namespace Gxf {

/// The stream that a command reads: names each fault on standard error, and shows progress.
class Input {
  public:
    /// Throws NotDone when the file can't be read.
    explicit Input(StreamOptions const& options);
    /// The same, under another name for people.
    Input(StreamOptions const& options, std::string name);
    ~Input();
    Input(Input const&) = delete;
    Input& operator=(Input const&) = delete;

    /// The next packet, null at the end. Throws NotDone when the stream has no packet at all.
    GxfStream::StreamPacket const* next();

    /// Nothing more is read: makes room for the results.
    void finish() { m_progress.stop(); }

    /// Starts at a position instead, at the first packet from there on.
    void seek(std::uint64_t offset);

    GxfStream::PacketReader& reader() { return *m_reader; }
    GxfStream::ByteSource& source() { return *m_source; }
    std::string const& name() const { return m_name; }
    /// Bytes of the stream; nothing for a pipe that isn't read to its end.
    std::optional<std::uint64_t> size() const { return m_source->size(); }
    /// True when the last packet was an end-of-stream packet.
    bool endsInEos() const { return m_lastType == GxfTypes::packetTypeEos; }
    /// True for a path that names the same file.
    bool isSameFile(std::string const& path) const;

    /// A fault that the command itself sees.
    void addFault(std::uint64_t offset, std::string const& text);
    unsigned long long faults() const { return m_faults; }
    /// 0, or 1 with faults, or 2 when the stream couldn't be read to its end.
    int status() const;
    /// Tells that the stream hasn't got what was asked for. Returns the status then, 1 or 2.
    int notFound(std::string const& what);
    /// One line for people on standard error, which is no fault.
    void tell(std::string const& what);

  private:
    void open(StreamOptions const& options);
    void onFault(GxfStream::StreamFault const& fault);
    void tell(GxfStream::StreamFault const& fault);
    [[noreturn]] void hasNoPacket() const;

    std::string m_name;
    bool m_isStandard;
    int m_descriptor = -1; ///< of a pipe that this object opened
    std::unique_ptr<GxfStream::ByteSource> m_source;
    std::unique_ptr<GxfStream::PacketReader> m_reader;
    Progress m_progress;
    std::vector<GxfStream::StreamFault> m_untold; ///< until a packet shows that this is GXF
    unsigned long long m_faults = 0;
    bool m_anyPacket = false;
    bool m_readFailed = false;
    std::uint64_t m_from = 0;
    GxfTypes::PacketType m_lastType{};
};

/// True for standard input, a named pipe and the like: what is read front to back, and once.
bool isReadOnce(std::string const& path);

} // namespace Gxf
