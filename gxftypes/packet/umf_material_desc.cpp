#include <gxftypes/packet/umf_material_desc.h>

namespace GxfTypes {

void UmfMaterialDesc::Timestamp::reset() {
    time = 0;
    lowWordFirst = true;
}

void UmfMaterialDesc::Timestamp::decode(GxfBuffer& buffer) {
    constexpr int plausibleYears = 50;

    std::uint64_t const first = buffer.decodeUint32Lsbf();
    std::uint64_t const second = buffer.decodeUint32Lsbf();
    auto const highFirst = static_cast<long long>((first << 32) | second);
    auto const lowFirst = static_cast<long long>((second << 32) | first);
    if (highFirst < 0 && lowFirst > 0) {
        lowWordFirst = true;
    }
    int const year = Clock::getGmtCal(convertGxfTimeToPosixTime(highFirst)).year;
    int const thisYear = Clock::getGmtCal(Clock::now()).year;
    if (year > thisYear || year < thisYear - plausibleYears) {
        lowWordFirst = true;
    }
    time = static_cast<std::uint64_t>(lowWordFirst ? lowFirst : highFirst);
}

void UmfMaterialDesc::Timestamp::encode(GxfBuffer& buffer) const {
    auto const high = static_cast<unsigned>(time >> 32);
    auto const low = static_cast<unsigned>(time);
    buffer.encodeLsbf(lowWordFirst ? low : high);
    buffer.encodeLsbf(lowWordFirst ? high : low);
}

void UmfMaterialDesc::reset() {
    attributes = static_cast<MaterialAttrBits>(0);
    maxLength = 0;
    minLength = 0;
    markIn = 0;
    markOut = 0;
    modifiedTime.reset();
    createdTime.reset();
    reservedD = 0;
    reservedE = 0;
    nAudio = 0;
    nTc = 0;
    reservedF = 0;
    nMpeg = 0;
    valid = false;
}

OpResult UmfMaterialDesc::decode(GxfBuffer& buffer, unsigned available) {
    valid = false;
    if (available < wireSize || buffer.nOccupied() < wireSize) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    attributes = static_cast<MaterialAttrBits>(buffer.decodeUint32Lsbf());
    maxLength = buffer.decodeUint32Lsbf();
    minLength = buffer.decodeUint32Lsbf();
    markIn = buffer.decodeUint32Lsbf();
    markOut = buffer.decodeUint32Lsbf();
    OpResult result = timecodeIn.decode(buffer, 4);
    if (result) {
        result = timecodeOut.decode(buffer, 4);
    }
    if (!result) {
        return result;
    }
    modifiedTime.decode(buffer);
    createdTime.decode(buffer);
    reservedD = buffer.decodeUint16Lsbf();
    reservedE = buffer.decodeUint16Lsbf();
    nAudio = buffer.decodeUint16Lsbf();
    nTc = buffer.decodeUint16Lsbf();
    reservedF = buffer.decodeUint16Lsbf();
    nMpeg = buffer.decodeUint16Lsbf();
    valid = true;
    return OpResult::Ok;
}

OpResult UmfMaterialDesc::encode(GxfBuffer& buffer) const {
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("start Material Desc encode @%llu\n", buffer.beginOffset());
    }
    if (buffer.nUnoccupied() < wireSize) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    EncodeChecker const checker(buffer, wireSize);
    buffer.encodeLsbf(static_cast<unsigned>(attributes));
    buffer.encodeLsbf(maxLength);
    buffer.encodeLsbf(minLength);
    buffer.encodeLsbf(markIn);
    buffer.encodeLsbf(markOut);
    timecodeIn.encode(buffer);
    timecodeOut.encode(buffer);
    modifiedTime.encode(buffer);
    createdTime.encode(buffer);
    buffer.encodeLsbf(reservedD);
    buffer.encodeLsbf(reservedE);
    buffer.encodeLsbf(nAudio);
    buffer.encodeLsbf(nTc);
    buffer.encodeLsbf(reservedF);
    buffer.encodeLsbf(nMpeg);
    checker.check();
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("end Material Desc encode %s\n", toString().get());
    }
    return OpResult::Ok;
}

bool UmfMaterialDesc::isEqual(UmfMaterialDesc const& other) const {
    return attributes == other.attributes && maxLength == other.maxLength &&
           minLength == other.minLength && markIn == other.markIn && markOut == other.markOut &&
           timecodeIn == other.timecodeIn && timecodeOut == other.timecodeOut &&
           modifiedTime == other.modifiedTime && createdTime == other.createdTime &&
           reservedD == other.reservedD && reservedE == other.reservedE && nAudio == other.nAudio &&
           nTc == other.nTc && reservedF == other.reservedF && nMpeg == other.nMpeg;
}

FormatStr& UmfMaterialDesc::toString(unsigned indent, FormatStr& text) const {
    int const width = static_cast<int>(indent);
    text.format("\n%*sattr={", width, "");
    GxfTypes::toString(text, attributes);
    text.cat("},");
    text.format("\n%*slen{min,max}={%u,%u},", width, "", minLength, maxLength);
    text.format("\n%*smark{in,out}={%u,%u},", width, "", markIn, markOut);
    text.format("\n%*stcmark{in,out}={", width, "");
    timecodeIn.toString(text);
    text.cat(",");
    timecodeOut.toString(text);
    text.format("},\n%*smodTime=%s,createTime=%s", width, "", timeToString(modifiedTime.time).get(),
                timeToString(createdTime.time).get());
    return text.format("\n%*snAudio=%d,nTc=%d,nMpeg=%d", width, "", nAudio, nTc, nMpeg);
}

} // namespace GxfTypes
