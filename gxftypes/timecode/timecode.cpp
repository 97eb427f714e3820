#include <gxftypes/timecode/timecode.h>

#include <gxftypes/timecode/st12_timecode.h>

namespace GxfTypes {

bool Timecode::operator==(Timecode const& other) const {
    return frames == other.frames && seconds == other.seconds && minutes == other.minutes &&
           hours == other.hours && dropFrame == other.dropFrame &&
           reservedFlag == other.reservedFlag && invalid == other.invalid;
}

OpResult Timecode::decode(GxfBuffer& buffer, unsigned size) {
    if (size < 4) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    frames = buffer.decodeUint8();
    seconds = buffer.decodeUint8();
    minutes = buffer.decodeUint8();
    unsigned const last = buffer.decodeUint8();
    hours = last & 0xFU;
    dropFrame = (last >> 5) & 1U;
    reservedFlag = (last >> 6) & 1U;
    invalid = (last >> 7) & 1U;
    return OpResult::Ok;
}

OpResult Timecode::encode(GxfBuffer& buffer) const {
    if (buffer.nUnoccupied() < 4) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    unsigned const last = hours | (isDropFrame() ? 0x20U : 0U) | (reservedFlag != 0 ? 0x40U : 0U) |
                          (isInvalid() ? 0x80U : 0U);
    buffer.encode(static_cast<unsigned char>(frames));
    buffer.encode(static_cast<unsigned char>(seconds));
    buffer.encode(static_cast<unsigned char>(minutes));
    buffer.encode(static_cast<unsigned char>(last));
    return OpResult::Ok;
}

unsigned long long Timecode::getCounter(unsigned frameRate) const {
    std::uint32_t const step = ST12Timecode::useHalfFrameCnt(frameRate) ? 2 : 1;
    if (!isDropFrame()) {
        return ((hours * 60U + minutes) * 60U + seconds) * frameRate + frames * step;
    }
    if (!ST12Timecode::isNtscRate(frameRate)) {
        return 0;
    }
    std::uint32_t const k = frameRate / 30;
    return hours * k * DropFrame::framesPerHour +
           (minutes / 10U) * k * DropFrame::framesPerTenMinutes +
           (minutes % 10U) * k * DropFrame::framesPerMinute + seconds * frameRate + frames * step;
}

FormatStr& Timecode::toString(FormatStr& text) const {
    if (isInvalid()) {
        return text.cat("inv");
    }
    return text.format("%02d:%02d:%02d;%02d%s", static_cast<int>(hours), static_cast<int>(minutes),
                       static_cast<int>(seconds), static_cast<int>(frames),
                       isDropFrame() ? ",drop" : "");
}

OpResult AuxTimecode::decode(GxfBuffer& buffer, unsigned size) {
    if (size < 8) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    Timecode::decode(buffer, size);
    for (std::uint8_t& byte : userBytes) {
        byte = buffer.decodeUint8();
    }
    return OpResult::Ok;
}

} // namespace GxfTypes
