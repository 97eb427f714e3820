#pragma once

#include <cstdint>
#include <limits>
#include <string>

#include <gxfstream/packet_reader.h>

#include "command.h"

namespace Gxf {

/// A range of fields, both ends included.
struct FieldRange {
    std::uint32_t first = 0;
    std::uint32_t last = std::numeric_limits<std::uint32_t>::max();

    bool holds(std::uint32_t field) const { return field >= first && field <= last; }
    bool isAll() const { return first == 0 && last == std::numeric_limits<std::uint32_t>::max(); }
    /// "the fields 10 to 19".
    std::string text() const;
    /// Throws NotDone for a range that holds nothing.
    void check() const;
};

/// --first and --last.
void addFieldRange(CLI::App& app, FieldRange& fields);

/// Samples of audio per field at 48 kHz.
double samplesPerField(double fieldsPerSecond);

/// The packet's map; null when it isn't one, or holds no track that can be read.
GxfTypes::AutoRefPtr<GxfTypes::MapPacket> mapOf(GxfStream::StreamPacket const& packet);

/// What a track numbers a picture with, 1 or 2. `track` is the MAP's, or null.
std::uint32_t fieldsPerPicture(GxfTypes::MapPacket::Track const* track);

/// The last field that a media packet holds something of, as far as the packet and its track tell.
/// `track` is the MAP's, or null.
std::uint32_t lastFieldOf(GxfTypes::MediaPacketHdr const& hdr,
                          GxfTypes::MapPacket::Track const* track, double fieldsPerSecond);

/// The entries of a block of timecodes that stand for fields of the clip: those that the packet
/// calls valid, and any other that holds a timecode. None of them lies behind the last field that
/// there can be.
class TimecodeBlock {
  public:
    /// REQUIRES: a timecode packet with a block.
    explicit TimecodeBlock(GxfTypes::MediaPacket const& media);

    unsigned firstEntry() const { return m_first; }
    unsigned lastEntry() const { return m_last; }
    unsigned fieldOf(unsigned entry) const { return m_set.firstField() + entry; }
    unsigned firstField() const { return fieldOf(m_first); }
    GxfTypes::PerFrameTimecode const& operator[](unsigned entry) const {
        return m_set.timecodes[entry];
    }
    /// Empty for an entry that isn't valid.
    std::string textOf(unsigned entry) const;

  private:
    GxfTypes::PerFrameTcSet const& m_set;
    unsigned m_first;
    unsigned m_last;
};

} // namespace Gxf
