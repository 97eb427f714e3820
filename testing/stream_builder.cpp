#include <testing/stream_builder.h>

namespace GxfTesting {

Bytes header(unsigned type, std::uint32_t length) {
    return Bytes().u32(0).u8(1).u8(type).u32(length).u32(0).u8(0xE1).u8(0xE2);
}

Bytes packet(unsigned type, Bytes const& payload) {
    return header(type, static_cast<std::uint32_t>(16 + payload.size())).add(payload);
}

Bytes endOfStream() { return header(0xFB, 16); }

Bytes tag(unsigned number, Bytes const& value) {
    return Bytes().u8(number).u8(static_cast<unsigned>(value.size())).add(value);
}

Bytes tagU32(unsigned number, std::uint32_t value) { return tag(number, Bytes().u32(value)); }

Bytes tagText(unsigned number, std::string_view text) {
    return tag(number, Bytes().text(text).u8(0));
}

Bytes track(unsigned mediaType, unsigned number, Bytes const& tags) {
    return Bytes()
        .u8(mediaType | 0x80U)
        .u8(number | 0xC0U)
        .u16(static_cast<unsigned>(tags.size()))
        .add(tags);
}

Bytes mapPayload(Bytes const& materialTags, Bytes const& tracks, Bytes const& tail) {
    return Bytes()
        .u8(0xE0)
        .u8(0xFF)
        .u16(static_cast<unsigned>(materialTags.size()))
        .add(materialTags)
        .u16(static_cast<unsigned>(tracks.size()))
        .add(tracks)
        .add(tail);
}

Bytes fltPayload(std::uint32_t fieldsPerEntry, std::vector<std::uint32_t> const& entries,
                 std::size_t padding) {
    Bytes bytes;
    bytes.u32Lsbf(fieldsPerEntry).u32Lsbf(static_cast<std::uint32_t>(entries.size()));
    for (std::uint32_t const entry : entries) {
        bytes.u32Lsbf(entry);
    }
    return bytes.fill(padding);
}

Bytes mediaPreamble(MediaPreamble const& preamble) {
    return Bytes()
        .u8(preamble.mediaType)
        .u8(preamble.trackByte)
        .u32(preamble.field)
        .u32(preamble.mediaBytes)
        .u32(preamble.timeline)
        .u8(preamble.flags)
        .u8(preamble.reserved);
}

Bytes mediaPacket(MediaPreamble const& preamble, Bytes const& essence) {
    return packet(0xBF, mediaPreamble(preamble).add(essence));
}

Bytes st12(unsigned hours, unsigned minutes, unsigned seconds, unsigned frames) {
    Bytes bytes;
    for (unsigned const value : {frames, seconds, minutes, hours}) {
        bytes.u8(value % 10).u8(value / 10);
    }
    return bytes;
}

Bytes timecodeBlock(unsigned valid, unsigned framesPerSecond) {
    Bytes bytes;
    for (unsigned i = 0; i < 504; ++i) {
        unsigned const frame = i / 2;
        unsigned const second = frame / framesPerSecond;
        bytes.add(i < valid ? st12(0, second / 60, second % 60, frame % framesPerSecond)
                            : Bytes().fill(8));
    }
    for (unsigned byte = 0; byte < 63; ++byte) {
        unsigned flags = 0;
        for (unsigned bit = 0; bit < 8; ++bit) {
            flags |= byte * 8 + bit < valid ? 1U << bit : 0U;
        }
        bytes.u8(flags);
    }
    return bytes.u8(0);
}

Bytes mpegIPicture(unsigned width, unsigned height, bool closedGop, std::size_t size) {
    Bytes bytes;
    bytes.u32(0x1B3).u8(width >> 4).u8((width << 4) | (height >> 8)).u8(height);
    bytes.u8(0x23).u32(0x1869C3F8);
    bytes.u32(0x1B8).u32(closedGop ? 0x00080040U : 0x00080000U);
    bytes.u32(0x100);
    for (std::size_t i = bytes.size(); i < size; ++i) {
        bytes.u8(static_cast<unsigned>(0x40 + i % 64));
    }
    return bytes;
}

} // namespace GxfTesting
