#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <testing/stream_builder.h>

namespace GxfTesting {

// Numbers of the wire.
constexpr unsigned mapType = 0xBC;
constexpr unsigned mediaType = 0xBF;
constexpr unsigned reservedType = 0xFA;
constexpr unsigned tableType = 0xFC;
constexpr unsigned umfType = 0xFD;

constexpr unsigned timecode525 = 7;
constexpr unsigned timecode625 = 8;
constexpr unsigned pcm24 = 9;
constexpr unsigned pcm16 = 10;
constexpr unsigned mpeg525 = 11;
constexpr unsigned mpeg625 = 12;
constexpr unsigned dv25of625 = 14;
constexpr unsigned ancillary = 21;

constexpr std::uint32_t rate59 = 2;
constexpr std::uint32_t rate29 = 5;
constexpr std::uint32_t rate25 = 6;

/// Material tags: a name, the fields 0 to `lastField`, no marks.
Bytes material(std::string_view name, std::uint32_t lastField);
/// A track with a name, a frame rate and a number of fields per frame.
Bytes namedTrack(unsigned type, unsigned number, std::string_view name, std::uint32_t rate,
                 std::uint32_t fieldsPerFrame = 2);
/// A timecode track whose eight bytes of aux information are given.
Bytes timecodeTrack(unsigned type, unsigned number, std::uint32_t rate, Bytes const& aux);
Bytes map(Bytes const& materialTags, Bytes const& tracks);

/// A P picture, so that nothing of it is looked at, with its byte count.
Bytes picture(unsigned type, unsigned track, std::uint32_t field, std::uint32_t byteCount,
              Bytes const& payload);
/// Audio with the samples `first` to `last` valid.
Bytes audio(unsigned type, unsigned track, std::uint32_t field, unsigned first, unsigned last,
            Bytes const& payload);
Bytes timecodes(unsigned type, unsigned track, std::uint32_t field, unsigned first, unsigned last,
                Bytes const& block);
/// A block of which the entries `first` to `last` are valid; entry i counts frame i / 2 at
/// `framesPerSecond` from one hour on.
Bytes blockFromHour(unsigned hour, unsigned first, unsigned last, unsigned framesPerSecond);

/// 16-bit samples `from`, `from` + 1 and so on, in little-endian order, as far as 16 bits go.
Bytes ramp16(std::uint32_t from, std::size_t count);

/// MPEG (track 0, three pictures), 16-bit audio (track 1) and timecode (track 2) in PAL: the fields
/// 0 to 5, a locator table, and an end.
Bytes smallClip();

/// A packet as it lies in a stream.
struct RawPacket {
    std::size_t offset;
    unsigned type;
    std::size_t length;
    std::string payload;

    unsigned byte(std::size_t index) const { return static_cast<unsigned char>(payload[index]); }
    unsigned track() const { return byte(1) & 63; }
    std::uint32_t field() const { return byte(2) << 24 | byte(3) << 16 | byte(4) << 8 | byte(5); }
};

/// The packets of a sound stream, by its lengths alone.
std::vector<RawPacket> packetsOf(std::string const& stream);

} // namespace GxfTesting
