#include <gxftypes/timecode/st12_timecode.h>

#include <algorithm>

#include <gxftypes/timecode/timecode.h>

namespace GxfTypes {

namespace {

// Digits without the flag bits that share their bytes.
constexpr unsigned framesMask = 0x3F;
constexpr unsigned secondsMask = 0x7F;
constexpr unsigned minutesMask = 0x7F;
constexpr unsigned hoursMask = 0x3F;

std::uint8_t toBcd(unsigned long long value, unsigned mask) {
    return static_cast<std::uint8_t>((((value / 10) << 4) | (value % 10)) & mask);
}

int fromBcd(unsigned digits) { return static_cast<int>((digits >> 4) * 10 + (digits & 0xF)); }

/// Puts back the frame numbers that drop-frame counting leaves out, two in each minute but the
/// tenth, so that the count can be split like any other.
unsigned long long withDroppedNumbers(unsigned long long frames) {
    unsigned long long const tens = frames / DropFrame::framesPerTenMinutes;
    unsigned long long const rest = frames % DropFrame::framesPerTenMinutes;
    unsigned long long const minutes = rest < 2 ? 0 : (rest - 2) / DropFrame::framesPerMinute;
    return frames + tens * 18 + minutes * 2;
}

} // namespace

ST12Timecode::ST12Timecode(unsigned long long counter, unsigned frameRate, bool dropFrame) {
    setCounter(counter, frameRate, dropFrame);
}

bool ST12Timecode::set(ST12Timecode const& other) {
    *this = other;
    return true;
}

void ST12Timecode::setCounter(unsigned long long counter, unsigned frameRate, bool dropFrame) {
    bool const dropping = dropFrame && isNtscRate(frameRate);
    unsigned const step = useHalfFrameCnt(frameRate) ? 2 : 1;

    unsigned long long seconds = 0;
    unsigned long long frames = 0;
    if (dropping) {
        unsigned long long const perDay = 24ULL * DropFrame::framesPerHour * step;
        unsigned long long const today = counter % perDay;
        unsigned long long const numbers = withDroppedNumbers(today / step);
        seconds = numbers / 30;
        frames = numbers % 30 * step + today % step;
    } else if (frameRate != 0) {
        seconds = counter / frameRate;
        frames = counter % frameRate;
    }

    timeBytes[0] = toBcd(frames / step, framesMask);
    timeBytes[1] = toBcd(seconds % 60, secondsMask);
    timeBytes[2] = toBcd(seconds / 60 % 60, minutesMask);
    timeBytes[3] = toBcd(seconds / 3600 % 24, hoursMask);
    if (dropping) {
        timeBytes[0] |= dropFrameBit;
    }
    if (frames % step != 0) {
        setField(frameRate, true);
    }
}

bool ST12Timecode::decode(unsigned char const* data, unsigned size) {
    if (size < wireSize) {
        return false;
    }
    for (unsigned i = 0; i < 4; ++i) {
        unsigned const low = data[2 * i];
        unsigned const high = data[2 * i + 1];
        timeBytes[i] = static_cast<std::uint8_t>(((high & 0xF) << 4) | (low & 0xF));
        userBytes[i] = static_cast<std::uint8_t>((high & 0xF0) | (low >> 4));
    }
    // The last byte's user bits are never read: intended.
    userBytes[3] = static_cast<std::uint8_t>((data[6] & 0xF0) | (data[6] >> 4));
    return true;
}

bool ST12Timecode::field(unsigned frameRate) const {
    return (timeBytes[usePalFormat(frameRate) ? 3 : 1] & fieldBit) != 0;
}

void ST12Timecode::setField(unsigned frameRate, bool) {
    timeBytes[usePalFormat(frameRate) ? 3 : 1] |= fieldBit;
}

FormatStr& ST12Timecode::toString(unsigned, FormatStr& text) const {
    return text.format("%02d:%02d:%02d%c%02d", fromBcd(timeBytes[3] & hoursMask),
                       fromBcd(timeBytes[2] & minutesMask), fromBcd(timeBytes[1] & secondsMask),
                       isDropFrame() ? ';' : ':', fromBcd(timeBytes[0] & framesMask));
}

bool PerFrameTimecode::decode(unsigned char const* data) {
    valid = true;
    return ST12Timecode::decode(data, wireSize);
}

FormatStr& PerFrameTimecode::toString(unsigned frameRate, FormatStr& text) const {
    return valid ? ST12Timecode::toString(frameRate, text) : text.cat("inv");
}

} // namespace GxfTypes
