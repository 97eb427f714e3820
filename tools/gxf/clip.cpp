#include "clip.h"

#include <algorithm>

#include "text.h"

namespace Gxf {

using namespace GxfStream;
using namespace GxfTypes;

Clip::Clip(Input& input, bool quick) {
    while (StreamPacket const* const packet = input.next()) {
        noteMap(*packet);
        if (AutoRefPtr<FieldLocTblPacket> const table = packet->packet->getFltPacket();
            table.get() != nullptr && packet->result) {
            m_table = table;
        }
        m_umf.note(*packet);
        if (quick && packet->media() != nullptr) {
            break;
        }
        count(*packet);
    }
    m_complete = input.endsInEos();
    joinTracks();
}

void Clip::noteMap(StreamPacket const& packet) {
    AutoRefPtr<MapPacket> const map = packet.packet->getMapPacket();
    if (map.get() == nullptr) {
        return;
    }
    bool const tellsAnything = map->tracks.size() != 0 || map->materialData.size() != 0;
    bool const replaces = m_map.get() == nullptr || !m_map->isValid();
    if (map->isValid() || (tellsAnything && replaces)) {
        m_map = map;
    }
}

bool Clip::hasRates() const {
    return m_map.get() != nullptr &&
           (m_map->isValid() || m_map->tracks.getAnyTrackWithVideoRate() != nullptr);
}

void Clip::count(StreamPacket const& packet) {
    std::string const name = getName(packet.type);
    auto row = std::find_if(m_packets.begin(), m_packets.end(),
                            [&name](auto const& known) { return known.first == name; });
    if (row == m_packets.end()) {
        row = m_packets.insert(row, {name, 0});
    }
    ++row->second;
    if (packet.media() != nullptr && packet.media()->valid) {
        countMedia(packet);
    }
}

void Clip::countMedia(StreamPacket const& packet) {
    MediaPacketHdr const& hdr = packet.media()->hdr;
    auto const [place, isNew] = m_media.try_emplace(hdr.getTrackNum());
    TrackFacts& facts = place->second;
    if (isNew) {
        facts.number = hdr.getTrackNum();
        facts.mediaType = hdr.getMediaType();
        facts.firstField = hdr.getMediaField();
        facts.lastField = hdr.getMediaField();
    }
    ++facts.packets;
    facts.bytes += packet.length - Packet::headerSize - MediaPacketHdr::wireSize;
    facts.firstField = std::min(facts.firstField, hdr.getMediaField());
    facts.lastField = std::max(facts.lastField, hdr.getMediaField());
}

/// The MAP's tracks in their order, then those that only have packets.
void Clip::joinTracks() {
    for (unsigned i = 0; m_map.get() != nullptr && i < m_map->tracks.size(); ++i) {
        MapPacket::Track const& track = *m_map->tracks[i];
        TrackFacts facts;
        if (auto const media = m_media.extract(track.getTrackNum())) {
            facts = media.mapped();
        }
        facts.number = track.getTrackNum();
        facts.mediaType = track.getMediaType();
        facts.mapIndex = i;
        m_tracks.push_back(facts);
    }
    for (auto const& [number, facts] : m_media) {
        m_tracks.push_back(facts);
    }
}

std::optional<std::uint32_t> Clip::number(MapTagType type) const {
    int value = 0;
    if (m_map.get() == nullptr || !m_map->materialData.getValue(type, value)) {
        return std::nullopt;
    }
    return static_cast<std::uint32_t>(value);
}

std::optional<std::string> Clip::text(MapTagType type) const {
    char const* value = nullptr;
    if (m_map.get() == nullptr || !m_map->materialData.getValue(type, value) || value == nullptr) {
        return std::nullopt;
    }
    return toUtf8(value);
}

std::string Clip::stripedTimecode() const {
    if (m_map.get() == nullptr || !m_map->tracks.stripedTc.valid) {
        return {};
    }
    FormatStr text(16);
    return m_map->tracks.stripedTc.toString(0, text).get();
}

} // namespace Gxf
