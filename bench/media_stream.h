#pragma once

#include <cstdint>
#include <vector>

#include <benchmark/benchmark.h>

#include <gxfstream/packet_reader.h>
#include <testing/stream_builder.h>

namespace GxfBench {

/// A stream of audio packets and MPEG P-pictures, in turn, of about `apart` bytes each. Their sizes
/// differ, since headers at equal distances would share a few lines of the cache.
inline std::vector<unsigned char> mediaStream(std::size_t packets, std::size_t apart) {
    GxfTesting::Bytes stream;
    std::uint32_t random = 1;
    for (std::size_t i = 0; i < packets; ++i) {
        random = random * 1664525 + 1013904223;
        GxfTesting::MediaPreamble preamble;
        bool const isAudio = i % 2 == 0;
        preamble.mediaType = isAudio ? 9 : 11;
        preamble.trackByte = isAudio ? 0xC1 : 0xC0;
        preamble.field = static_cast<std::uint32_t>(i);
        preamble.mediaBytes = isAudio ? 0x00007FFF : 0x0200F000;
        preamble.timeline = preamble.field;
        std::size_t const essence = apart - apart / 16 + (random >> 16) % (apart / 8);
        stream.add(GxfTesting::mediaPacket(preamble, GxfTesting::Bytes().fill(essence, 0x47)));
    }
    return stream.vector();
}

/// The library's road for each packet: header, packet, payload, and back to the pool. Returns the
/// packets.
[[gnu::noinline]] inline std::size_t readByLibrary(GxfTypes::PacketPool& pool,
                                                   std::vector<unsigned char> const& stream) {
    using namespace GxfTypes;
    // The decoders don't write into what they read from.
    GxfBuffer buffer(const_cast<unsigned char*>(stream.data()),
                     static_cast<unsigned>(stream.size()), GxfBuffer::DataState::filled,
                     MediaAgent(nullptr));
    AutoRefPtr<Packet> const header = pool.alloc(packetTypeHeader);
    std::size_t count = 0;
    while (header->decode(buffer) && header->isValid()) {
        AutoRefPtr<Packet> const packet = header->createActual();
        unsigned const wanted =
            packet->needsAllData(buffer) ? packet->getPayloadLength() : packet->getPart1Length();
        if (buffer.nOccupied() < wanted || !packet->decode(buffer)) {
            break;
        }
        benchmark::DoNotOptimize(packet.get());
        ++count;
        if (buffer.nOccupied() == 0) {
            break;
        }
    }
    return count;
}

/// The same through the stream reader, from the stream's start on.
[[gnu::noinline]] inline std::size_t readByReader(GxfStream::PacketReader& reader) {
    reader.seek(0);
    std::size_t count = 0;
    while (GxfStream::StreamPacket const* const packet = reader.next()) {
        benchmark::DoNotOptimize(packet->packet.get());
        ++count;
    }
    return count;
}

} // namespace GxfBench
