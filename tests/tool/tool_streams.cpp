#include "tool_streams.h"

namespace GxfTesting {

Bytes material(std::string_view name, std::uint32_t lastField) {
    return tagText(0x40, name).add(tagU32(0x41, 0)).add(tagU32(0x42, lastField));
}

Bytes namedTrack(unsigned type, unsigned number, std::string_view name, std::uint32_t rate,
                 std::uint32_t fieldsPerFrame) {
    return track(type, number,
                 tagText(0x4C, name).add(tagU32(0x50, rate)).add(tagU32(0x52, fieldsPerFrame)));
}

Bytes timecodeTrack(unsigned type, unsigned number, std::uint32_t rate, Bytes const& aux) {
    return track(type, number, tag(0x4D, aux).add(tagU32(0x50, rate)));
}

Bytes map(Bytes const& materialTags, Bytes const& tracks) {
    return packet(mapType, mapPayload(materialTags, tracks));
}

Bytes picture(unsigned type, unsigned track, std::uint32_t field, std::uint32_t byteCount,
              Bytes const& payload) {
    return mediaPacket({.mediaType = type,
                        .trackByte = 0xC0 | track,
                        .field = field,
                        .mediaBytes = 0x0E000000 | byteCount,
                        .timeline = field},
                       payload);
}

Bytes audio(unsigned type, unsigned track, std::uint32_t field, unsigned first, unsigned last,
            Bytes const& payload) {
    return mediaPacket({.mediaType = type,
                        .trackByte = 0xC0 | track,
                        .field = field,
                        .mediaBytes = first << 16 | last,
                        .timeline = field},
                       payload);
}

Bytes timecodes(unsigned type, unsigned track, std::uint32_t field, unsigned first, unsigned last,
                Bytes const& block) {
    return audio(type, track, field, first, last, block);
}

Bytes blockFromHour(unsigned hour, unsigned first, unsigned last, unsigned framesPerSecond) {
    Bytes block;
    for (unsigned i = 0; i < 504; ++i) {
        unsigned const frame = i / 2;
        block.add(i >= first && i <= last
                      ? st12(hour, 0, frame / framesPerSecond, frame % framesPerSecond)
                      : Bytes().fill(8));
    }
    for (unsigned byte = 0; byte < 63; ++byte) {
        unsigned flags = 0;
        for (unsigned bit = 0; bit < 8; ++bit) {
            unsigned const entry = byte * 8 + bit;
            flags |= entry >= first && entry <= last ? 1U << bit : 0U;
        }
        block.u8(flags);
    }
    return block.u8(0);
}

Bytes ramp16(std::uint32_t from, std::size_t count) {
    Bytes bytes;
    for (std::size_t i = 0; i < count; ++i, ++from) {
        bytes.u8(from & 0xFF).u8(from >> 8 & 0xFF);
    }
    return bytes;
}

Bytes smallClip() {
    Bytes stream = map(material("SMALL", 5),
                       namedTrack(mpeg625, 0, "SMALL_V1", rate25)
                           .add(namedTrack(pcm16, 1, "SMALL_A1", rate25))
                           .add(timecodeTrack(timecode625, 2, rate25, {0, 0, 0, 1, 0, 0, 0, 0})));
    stream.add(packet(tableType, fltPayload(2, {0, 1, 2})));
    stream.add(timecodes(timecode625, 2, 0, 0, 5, blockFromHour(1, 0, 5, 25)));
    stream.add(audio(pcm16, 1, 0, 0, 5759, ramp16(0, 6000)));
    for (unsigned field = 0; field < 6; field += 2) {
        stream.add(picture(mpeg625, 0, field, 10,
                           Bytes().text("picture-").u8('0' + field).text("!padding")));
    }
    return stream.add(endOfStream());
}

std::vector<RawPacket> packetsOf(std::string const& stream) {
    std::vector<RawPacket> packets;
    auto const byte = [&](std::size_t at) { return static_cast<unsigned char>(stream[at]); };
    for (std::size_t at = 0; at + 16 <= stream.size();) {
        std::size_t length = 0;
        for (std::size_t i = 6; i < 10; ++i) {
            length = length << 8 | byte(at + i);
        }
        packets.push_back({at, byte(at + 5), length, stream.substr(at + 16, length - 16)});
        at += length;
    }
    return packets;
}

} // namespace GxfTesting
