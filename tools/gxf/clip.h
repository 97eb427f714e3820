#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "input.h"
#include "umf_facts.h"

namespace Gxf {

/// What a clip's stream tells of one track: the MAP's description, and what its packets come to.
struct TrackFacts {
    unsigned number = 0;
    GxfTypes::TrackMediaType mediaType{};
    /// The place in the MAP's list; nothing for a track that only has packets.
    std::optional<unsigned> mapIndex;
    std::uint64_t packets = 0;
    std::uint64_t bytes = 0; ///< of the payloads, without their preambles
    std::uint32_t firstField = 0;
    std::uint32_t lastField = 0;
};

/// What a clip is.
class Clip {
  public:
    /// Reads the stream's headers; `quick` no further than the first media packet.
    Clip(Input& input, bool quick);

    /// The last valid MAP of the stream; without one, what can be read of a broken one; else null.
    GxfTypes::MapPacket const* map() const { return m_map.get(); }
    /// Null without one; else the last one of the stream.
    GxfTypes::FieldLocTblPacket const* table() const { return m_table.get(); }
    /// Null without one; else the last valid one of the stream, or the last broken one.
    GxfStream::StreamUmf const* umf() const { return m_umf.get(); }
    std::vector<TrackFacts> const& tracks() const { return m_tracks; }
    GxfTypes::MapPacket::Track const* mapTrack(TrackFacts const& facts) const {
        return facts.mapIndex ? m_map->tracks[*facts.mapIndex] : nullptr;
    }
    /// Packets by the name of their type, in the order in which the types first came.
    std::vector<std::pair<std::string, std::uint64_t>> const& packets() const { return m_packets; }
    bool isComplete() const { return m_complete; }
    /// False when the rates of the MAP would be a guess, as all tracks of a broken one are lost.
    bool hasRates() const;

    /// A number of the MAP's material data.
    std::optional<std::uint32_t> number(GxfTypes::MapTagType type) const;
    /// A text of the MAP's material data as UTF-8.
    std::optional<std::string> text(GxfTypes::MapTagType type) const;
    /// "" without one.
    std::string stripedTimecode() const;

  private:
    void noteMap(GxfStream::StreamPacket const& packet);
    void count(GxfStream::StreamPacket const& packet);
    void countMedia(GxfStream::StreamPacket const& packet);
    void joinTracks();

    GxfTypes::AutoRefPtr<GxfTypes::MapPacket> m_map;
    GxfTypes::AutoRefPtr<GxfTypes::FieldLocTblPacket> m_table;
    ClipUmf m_umf;
    std::vector<std::pair<std::string, std::uint64_t>> m_packets;
    std::map<unsigned, TrackFacts> m_media;
    std::vector<TrackFacts> m_tracks;
    bool m_complete = false;
};

} // namespace Gxf
