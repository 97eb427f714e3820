// Prints the tracks of a clip and how much essence each carries: list_tracks CLIP.gxf

#include <cstdio>
#include <map>

#include <gxfstream/packet_reader.h>

using namespace GxfTypes;

int main(int argc, char** argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: list_tracks CLIP.gxf\n");
        return 2;
    }
    std::string error;
    auto const file = GxfStream::FileSource::open(argv[1], error);
    if (file == nullptr) {
        std::fprintf(stderr, "%s: %s\n", argv[1], error.c_str());
        return 2;
    }

    GxfStream::PacketReader reader(*file, [](GxfStream::StreamFault const& fault) {
        std::fprintf(stderr, "offset %llu: %s\n", static_cast<unsigned long long>(fault.offset),
                     fault.text.c_str());
    });
    AutoRefPtr<MapPacket> map;
    std::map<unsigned, unsigned long long> bytesOfTrack;
    while (GxfStream::StreamPacket const* const packet = reader.next()) {
        if (AutoRefPtr<MapPacket> const found = packet->packet->getMapPacket(); found.get()) {
            map = found;
        }
        if (MediaPacket const* const media = packet->media()) {
            bytesOfTrack[media->hdr.getTrackNum()] += packet->length;
        }
    }
    for (unsigned i = 0; map.get() != nullptr && i < map->tracks.size(); ++i) {
        MapPacket::Track const& track = *map->tracks[i];
        std::printf("%2u  %-14s  %llu bytes\n", track.getTrackNum(), getName(track.getMediaType()),
                    bytesOfTrack[track.getTrackNum()]);
    }
}
