#include "fields.h"

#include <algorithm>
#include <cmath>

namespace Gxf {

using namespace GxfTypes;

void FieldRange::check() const {
    if (last < first) {
        throw NotDone("--last " + std::to_string(last) + " is in front of --first " +
                      std::to_string(first) + "; give a range of at least one field");
    }
}

void addFieldRange(CLI::App& app, FieldRange& fields) {
    app.add_option("--first", fields.first, "The first field");
    app.add_option("--last", fields.last, "The last field, itself included");
}

double samplesPerField(double fieldsPerSecond) { return 48000.0 / fieldsPerSecond; }

std::uint32_t lastFieldOf(MediaPacketHdr const& hdr, MapPacket::Track const* track,
                          double fieldsPerSecond) {
    std::uint32_t const field = hdr.getMediaField();
    std::uint32_t span = 1;
    std::uint32_t const units = hdr.getLastValid() >= hdr.getFirstValid()
                                    ? hdr.getLastValid() - hdr.getFirstValid() + 1U
                                    : 1;
    switch (getTrackType(hdr.getMediaType())) {
    case trackTypeAudio:
        span = static_cast<std::uint32_t>(std::ceil(units / samplesPerField(fieldsPerSecond)));
        break;
    case trackTypeTimecode:
    case trackTypeAncillaryData:
        span = units;
        break;
    default:
        span = static_cast<std::uint32_t>(
            std::clamp(track != nullptr ? track->getNumFields() : 2, 1, 2));
        break;
    }
    std::uint32_t const last = field + std::max(span, 1U) - 1;
    return last >= field ? last : std::numeric_limits<std::uint32_t>::max();
}

TimecodeBlock::TimecodeBlock(MediaPacket const& media) : m_set(*media.perFrameTc) {
    constexpr unsigned end = PerFrameTcSet::entries - 1;
    m_first = std::min<unsigned>(media.hdr.getFirstValid(), end);
    m_last = std::clamp<unsigned>(media.hdr.getLastValid(), m_first, end);
    for (unsigned i = 0; i <= end; ++i) {
        if (m_set.timecodes[i].valid) {
            m_first = std::min(m_first, i);
            m_last = std::max(m_last, i);
        }
    }
}

std::string TimecodeBlock::textOf(unsigned entry) const {
    PerFrameTimecode const& timecode = m_set.timecodes[entry];
    if (!timecode.valid) {
        return {};
    }
    FormatStr text(16);
    return timecode.toString(m_set.timecodeHz, text).get();
}

} // namespace Gxf
