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

std::string FieldRange::text() const {
    if (last == std::numeric_limits<std::uint32_t>::max()) {
        return "the fields from " + std::to_string(first) + " on";
    }
    return first == last ? "field " + std::to_string(first)
                         : "the fields " + std::to_string(first) + " to " + std::to_string(last);
}

void addFieldRange(CLI::App& app, FieldRange& fields) {
    constexpr NumberRange range{0, std::numeric_limits<std::uint32_t>::max()};
    addNumber(
        app, "--first", range,
        [&fields](std::uint64_t number) { fields.first = static_cast<std::uint32_t>(number); },
        "The first field");
    addNumber(
        app, "--last", range,
        [&fields](std::uint64_t number) { fields.last = static_cast<std::uint32_t>(number); },
        "The last field, itself included");
}

double samplesPerField(double fieldsPerSecond) {
    // A broken map can come to any rate.
    return 48000.0 / std::clamp(fieldsPerSecond, 1.0, 1000.0);
}

AutoRefPtr<MapPacket> mapOf(GxfStream::StreamPacket const& packet) {
    AutoRefPtr<MapPacket> map = packet.packet->getMapPacket();
    if (map.get() != nullptr && !map->isValid() && map->tracks.size() == 0) {
        map = nullptr;
    }
    return map;
}

std::uint32_t fieldsPerPicture(MapPacket::Track const* track) {
    return track != nullptr && track->getNumFields() == 1 ? 1 : 2;
}

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
        span = fieldsPerPicture(track);
        break;
    }
    std::uint32_t const last = field + std::max(span, 1U) - 1;
    return last >= field ? last : std::numeric_limits<std::uint32_t>::max();
}

TimecodeBlock::TimecodeBlock(MediaPacket const& media) : m_set(*media.perFrameTc) {
    constexpr unsigned end = PerFrameTcSet::entries - 1;
    // A packet that begins inside its block may leave it to its field to tell so.
    unsigned const first = media.hdr.getFirstValid() != 0
                               ? media.hdr.getFirstValid()
                               : media.hdr.getMediaField() - m_set.firstField();
    m_first = std::min(first, end);
    m_last = std::clamp<unsigned>(media.hdr.getLastValid(), m_first, end);
    for (unsigned i = 0; i <= end; ++i) {
        if (m_set.timecodes[i].valid) {
            m_first = std::min(m_first, i);
            m_last = std::max(m_last, i);
        }
    }
    unsigned const lastThereCanBe = std::numeric_limits<std::uint32_t>::max() - m_set.firstField();
    m_last = std::min(m_last, lastThereCanBe);
    m_first = std::min(m_first, m_last);
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
