#include <gxftypes/packet/umf_media_desc.h>

#include <cstring>

namespace GxfTypes {

namespace {

constexpr unsigned specificationSize = 32;

/// The layouts of a specification.
enum class Variant { none, audio, timecode, mpeg, dv, avcIntra };

Variant variantOf(MediaType mediaType) {
    switch (mediaType) {
    case mediaTypeAudio:
        return Variant::audio;
    case mediaTypeTimecode:
        return Variant::timecode;
    case mediaTypeMpeg2SD:
    case mediaTypeMpeg2HD:
    case mediaTypeMpeg1:
        return Variant::mpeg;
    case mediaTypeDV25:
    case mediaTypeDV50:
    case mediaTypeDV100:
        return Variant::dv;
    case mediaTypeAvcI:
        return Variant::avcIntra;
    default:
        return Variant::none;
    }
}

// Bytes that carry two fields: four bits each, and the DV flag among the upper ones.
constexpr unsigned lowBits = 0x0F;
constexpr unsigned highBits = 0xF0;
constexpr unsigned dvFlagBit = 0x20;

UmfMediaDesc::Aspect aspectOf(unsigned char bits) {
    return bits == UmfMediaDesc::aspect16x9 ? UmfMediaDesc::aspect16x9 : UmfMediaDesc::aspect4x3;
}

std::uint8_t afdOf(unsigned char byte) { return static_cast<std::uint8_t>(byte & lowBits); }

} // namespace

OpResult UmfTrackDesc::decode(GxfBuffer& buffer, unsigned available) {
    valid = false;
    if (available < wireSize || buffer.nOccupied() < wireSize) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    trackNumber = static_cast<TrackNumberEncoding>(buffer.decodeUint8());
    trackType = static_cast<TrackTypeEncoding>(buffer.decodeUint8());
    numSegments = buffer.decodeUint16Lsbf();
    valid = true;
    return OpResult::Ok;
}

OpResult UmfTrackDesc::encode(GxfBuffer& buffer) const {
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("start Track Desc encode @%lld\n", static_cast<long long>(buffer.beginOffset()));
    }
    if (buffer.nUnoccupied() < wireSize) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    EncodeChecker const checker(buffer, wireSize);
    buffer.encode(static_cast<unsigned char>(trackNumber));
    buffer.encode(static_cast<unsigned char>(trackType));
    buffer.encodeLsbf(numSegments);
    checker.check();
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("end Track Desc encode %s\n", toString().get());
    }
    return OpResult::Ok;
}

bool UmfTrackDesc::isEqual(UmfTrackDesc const& other) const {
    return trackNumber == other.trackNumber && trackType == other.trackType &&
           numSegments == other.numSegments;
}

FormatStr& UmfTrackDesc::toString(unsigned, FormatStr& text) const {
    return text.format("%s %d, %d seg", getName(trackType),
                       static_cast<int>(trackNumberOf(trackNumber)), numSegments);
}

unsigned UmfTrackDesc::trackNumberOf(TrackNumberEncoding encoding) {
    auto const c = static_cast<unsigned>(encoding);
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    return c >= 'A' && c <= 'V' ? c - 'A' + 10 : 0xFFFFFFFF;
}

bool UmfMediaDesc::AnyAudio::isEqual(AnyAudio const& other) const {
    return levelBegin == other.levelBegin && levelEnd == other.levelEnd &&
           rampUpFields == other.rampUpFields && rampDownFields == other.rampDownFields;
}

FormatStr& UmfMediaDesc::AnyAudio::toString(FormatStr& text) const {
    return text.format("lvlBegin=%f,lvlEnd=%f,rampUp=%uflds,rampDown=%uflds", levelBegin, levelEnd,
                       rampUpFields, rampDownFields);
}

bool UmfMediaDesc::AnyVideo::isEqual(AnyVideo const& other) const {
    return aspect == other.aspect && afd == other.afd;
}

FormatStr& UmfMediaDesc::AnyVideo::toString(FormatStr& text) const {
    return text.format("%s,afd=0x%x", getName(aspect), static_cast<unsigned>(afd));
}

bool UmfMediaDesc::MpegVideo::isEqual(MpegVideo const& other) const {
    return AnyVideo::isEqual(other) && colorSampling == other.colorSampling &&
           gopStructure == other.gopStructure && frameFieldStructure == other.frameFieldStructure &&
           iPictures == other.iPictures && pPictures == other.pPictures &&
           bPictures == other.bPictures && mpegType == other.mpegType;
}

FormatStr& UmfMediaDesc::MpegVideo::toString(FormatStr& text) const {
    AnyVideo::toString(text);
    int const pictures = static_cast<int>(iPictures);
    return text.format(",%s,%s,%s,I/P/B=%d/%d/%d,%s", getName(colorSampling), getName(gopStructure),
                       getName(frameFieldStructure), pictures, pictures, pictures,
                       getName(mpegType));
}

void UmfMediaDesc::MpegVideo::setAspect(unsigned char bits) { aspect = aspectOf(bits); }

bool UmfMediaDesc::DvVideo::isEqual(DvVideo const& other) const {
    return AnyVideo::isEqual(other) && dvFlag == other.dvFlag;
}

void UmfMediaDesc::DvVideo::setAspect(unsigned char bits) { aspect = aspectOf(bits); }

void UmfMediaDesc::AvcIntraVideo::setAspect(unsigned char) { aspect = aspect16x9; }

bool UmfMediaDesc::Specification::isEqual(Specification const& other, MediaType kind) const {
    if (kind == mediaTypeMotionJPEG || kind == mediaTypeAncillaryData) {
        return true;
    }
    switch (variantOf(kind)) {
    case Variant::timecode:
        return timecodeType == other.timecodeType;
    case Variant::mpeg:
        return mpeg.isEqual(other.mpeg);
    case Variant::dv:
        return dv.isEqual(other.dv);
    case Variant::avcIntra:
        return video.isEqual(other.video);
    case Variant::audio:
    case Variant::none:
        break;
    }
    return audio.isEqual(other.audio);
}

// All variants of a new description are zero.
UmfMediaDesc::UmfMediaDesc() { std::memset(static_cast<void*>(&spec), 0, sizeof(spec)); }

OpResult UmfMediaDesc::decode(GxfBuffer& buffer, unsigned available) {
    valid = false;
    if (available < wireSize || buffer.nOccupied() < wireSize) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    length = buffer.decodeUint16Lsbf();
    trackNum.decode(buffer);
    sequence = buffer.decodeUint16Lsbf();
    reservedA = buffer.decodeUint16Lsbf();
    numFields = buffer.decodeUint32Lsbf();
    reservedB = buffer.decodeUint32Lsbf();
    fieldIn = buffer.decodeUint32Lsbf();
    fieldOut = buffer.decodeUint32Lsbf();
    std::memcpy(mediaName, buffer.ptrBegin(), nameSize);
    buffer.removeInput(nameSize);
    mediaType = static_cast<MediaType>(buffer.decodeUint32Lsbf());
    sampleRate = buffer.decodeUint32Lsbf();
    sampleBits = buffer.decodeUint32Lsbf();
    reservedC = buffer.decodeUint32Lsbf();
    decodeSpecification(buffer);
    valid = true;
    return OpResult::Ok;
}

void UmfMediaDesc::decodeSpecification(GxfBuffer& buffer) {
    unsigned const before = buffer.nOccupied();
    switch (variantOf(mediaType)) {
    case Variant::audio:
        spec.audio.levelBegin = buffer.decodeFloat64Lsbf();
        spec.audio.levelEnd = buffer.decodeFloat64Lsbf();
        spec.audio.rampUpFields = buffer.decodeUint32Lsbf();
        spec.audio.rampDownFields = buffer.decodeUint32Lsbf();
        break;
    case Variant::timecode:
        spec.timecodeType = static_cast<TimecodeType>(buffer.decodeUint32Lsbf());
        break;
    case Variant::mpeg: {
        spec.mpeg.colorSampling = static_cast<ColorSampling>(buffer.decodeUint32Lsbf());
        spec.mpeg.gopStructure = static_cast<GopStructure>(buffer.decodeUint32Lsbf());
        spec.mpeg.frameFieldStructure = static_cast<FrameFieldStructure>(buffer.decodeUint32Lsbf());
        spec.mpeg.iPictures = buffer.decodeUint32Lsbf();
        spec.mpeg.pPictures = buffer.decodeUint32Lsbf();
        spec.mpeg.bPictures = buffer.decodeUint32Lsbf();
        unsigned char const shared = buffer.decodeUint8();
        spec.mpeg.mpegType = static_cast<MpegType>(shared & lowBits);
        spec.mpeg.setAspect(static_cast<unsigned char>(shared & highBits));
        spec.mpeg.afd = afdOf(buffer.decodeUint8());
        break;
    }
    case Variant::dv: {
        unsigned char const shared = buffer.decodeUint8();
        spec.dv.dvFlag = (shared & dvFlagBit) != 0;
        spec.dv.setAspect(static_cast<unsigned char>(shared & highBits));
        spec.dv.afd = afdOf(buffer.decodeUint8());
        break;
    }
    case Variant::avcIntra:
        spec.avcIntra.setAspect(static_cast<unsigned char>(buffer.decodeUint8() & highBits));
        spec.avcIntra.afd = afdOf(buffer.decodeUint8());
        break;
    case Variant::none:
        break;
    }
    buffer.removeInput(specificationSize - (before - buffer.nOccupied()));
}

OpResult UmfMediaDesc::encode(GxfBuffer& buffer) const {
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("start Media Desc encode @%llu\n", buffer.beginOffset());
    }
    if (buffer.nUnoccupied() < wireSize) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    EncodeChecker const checker(buffer, wireSize);
    buffer.encodeLsbf(length);
    trackNum.encode(buffer);
    buffer.encodeLsbf(sequence);
    buffer.encodeLsbf(reservedA);
    buffer.encodeLsbf(numFields);
    buffer.encodeLsbf(reservedB);
    buffer.encodeLsbf(fieldIn);
    buffer.encodeLsbf(fieldOut);
    // A name of 88 characters leaves no place for its terminator and so writes nothing: intended.
    buffer.encodePaddedString(mediaName, nameSize, 0);
    buffer.encodeLsbf(static_cast<unsigned>(mediaType));
    buffer.encodeLsbf(sampleRate);
    buffer.encodeLsbf(sampleBits);
    buffer.encodeLsbf(reservedC);
    OpResult const result = encodeSpecification(buffer);
    if (!result) {
        return result;
    }
    checker.check();
    if (gxfEncodeDetail.get() > 2) {
        // The words of another section: intended.
        infoMsg("end Material Desc encode %s\n", toString().get());
    }
    return OpResult::Ok;
}

OpResult UmfMediaDesc::encodeSpecification(GxfBuffer& buffer) const {
    unsigned const before = buffer.nOccupied();
    switch (variantOf(mediaType)) {
    case Variant::audio:
        buffer.encodeLsbf(spec.audio.levelBegin);
        buffer.encodeLsbf(spec.audio.levelEnd);
        buffer.encodeLsbf(spec.audio.rampUpFields);
        buffer.encodeLsbf(spec.audio.rampDownFields);
        break;
    case Variant::timecode:
        buffer.encodeLsbf(static_cast<unsigned>(spec.timecodeType));
        break;
    case Variant::mpeg:
        buffer.encodeLsbf(static_cast<unsigned>(spec.mpeg.colorSampling));
        buffer.encodeLsbf(static_cast<unsigned>(spec.mpeg.gopStructure));
        buffer.encodeLsbf(static_cast<unsigned>(spec.mpeg.frameFieldStructure));
        buffer.encodeLsbf(spec.mpeg.iPictures);
        buffer.encodeLsbf(spec.mpeg.pPictures);
        buffer.encodeLsbf(spec.mpeg.bPictures);
        buffer.encodeLsbf(static_cast<unsigned char>(static_cast<unsigned>(spec.mpeg.mpegType) |
                                                     static_cast<unsigned>(spec.mpeg.aspect)));
        buffer.encodeLsbf(afdOf(spec.mpeg.afd));
        break;
    case Variant::dv:
        buffer.encodeLsbf(static_cast<unsigned char>(static_cast<unsigned>(spec.dv.aspect) |
                                                     (spec.dv.dvFlag ? dvFlagBit : 0U)));
        buffer.encodeLsbf(afdOf(spec.dv.afd));
        break;
    case Variant::avcIntra:
        buffer.encodeLsbf(static_cast<unsigned char>(aspect16x9));
        buffer.encodeLsbf(afdOf(spec.avcIntra.afd));
        break;
    case Variant::none:
        if (mediaType != mediaTypeAncillaryData) {
            return gxfError(GxfOpSubsystem::badEncodeData);
        }
        break;
    }
    buffer.addOutputZeros(specificationSize - (buffer.nOccupied() - before));
    return OpResult::Ok;
}

bool UmfMediaDesc::isEqual(UmfMediaDesc const& other) const {
    return valid == other.valid && length == other.length && trackNum == other.trackNum &&
           sequence == other.sequence && numFields == other.numFields && fieldIn == other.fieldIn &&
           fieldOut == other.fieldOut && std::strcmp(mediaName, other.mediaName) == 0 &&
           sampleRate == other.sampleRate && sampleBits == other.sampleBits &&
           mediaType == other.mediaType && spec.isEqual(other.spec, mediaType);
}

void UmfMediaDesc::copy(UmfMediaDesc const& other) {
    valid = other.valid;
    length = other.length;
    trackNum = other.trackNum;
    sequence = other.sequence;
    numFields = other.numFields;
    fieldIn = other.fieldIn;
    fieldOut = other.fieldOut;
    std::memcpy(mediaName, other.mediaName, sizeof(mediaName));
    mediaType = other.mediaType;
    sampleRate = other.sampleRate;
    sampleBits = other.sampleBits;
    switch (variantOf(mediaType)) {
    case Variant::audio:
        spec.audio = other.spec.audio;
        break;
    case Variant::timecode:
        spec.timecodeType = other.spec.timecodeType;
        break;
    case Variant::mpeg:
        spec.mpeg = other.spec.mpeg;
        break;
    case Variant::dv:
        spec.dv = other.spec.dv;
        break;
    case Variant::avcIntra:
        spec.avcIntra = other.spec.avcIntra;
        break;
    case Variant::none:
        break;
    }
}

FormatStr& UmfMediaDesc::toString(unsigned indent, FormatStr& text) const {
    auto const number = [](std::uint32_t value) { return static_cast<int>(value); };
    int const inner = static_cast<int>(indent) + 2;
    text.format("seq%d:", sequence);
    text.format("%s,trk=%s", getName(mediaType), trackNum.toString().get());
    text.format(",nFields=%d", number(numFields));
    text.format(",in/out=%d/%d", number(fieldIn), number(fieldOut));
    text.format(",%dhz,%d bits", number(sampleRate), number(sampleBits));
    if (gxfDebug.on(gxfDebugArrays)) {
        text.format(",\"%s\"", mediaName);
    }
    switch (variantOf(mediaType)) {
    case Variant::audio:
        spec.audio.toString(text.format("\n%*s={", inner, ""));
        return text.cat("}");
    case Variant::timecode:
        return text.format("={%s}", getName(spec.timecodeType));
    case Variant::mpeg:
        spec.mpeg.toString(text.format("\n%*s{", inner, ""));
        return text.cat("}");
    case Variant::dv:
        spec.video.toString(text.format("\n%*s={", inner, ""));
        return text.cat("}");
    case Variant::avcIntra:
        spec.video.toString(text.format("\n%*s{", inner, ""));
        return text.cat("}");
    case Variant::none:
        break;
    }
    return text;
}

} // namespace GxfTypes
