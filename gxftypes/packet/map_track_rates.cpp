#include <gxftypes/packet/map_track.h>

namespace GxfTypes {

namespace {

using Fixed = FixedPoint<16U>;

/// The low 32 bits of the double cut to a whole number.
unsigned truncated(double value) { return static_cast<unsigned>(truncateToInt64(value)); }

unsigned perNtscFrame(int bitsPerFrame, int framesPer1001Seconds) {
    return (bitsPerFrame * (Fixed(framesPer1001Seconds) / Fixed(1001))).uint32Value();
}

/// Builds a failure and answers 0, as its conversion to bool does.
unsigned untold(int code, char const* text) {
    return OpResult(OpResult::Error, code, gxfOpSubsystem.getId(), text) ? 1 : 0;
}

unsigned untold(MapTrack const& track) {
    FormatStr const text("bitrate=0 for %s", track.toString().get());
    return untold(GxfOpSubsystem::internalError, text.get());
}

unsigned mpegBitrate(MapTrack const& track) {
    MpegAuxInfo const& aux = track.getMpegAuxInfo();
    return aux.isValid() ? truncated(aux.bitRate)
                         : untold(GxfOpSubsystem::badDecodeData, "invalid MPEG AUX info");
}

unsigned ancillaryDataBitrate(MapTrack const& track) {
    AncillaryDataAuxInfo const aux(track.getAuxInfo());
    if (!aux.isValid()) {
        return untold(GxfOpSubsystem::badDecodeData, "invalid Ancillary Data AUX info");
    }
    // Bytes, not bits, and the fields twice: intended.
    return truncated(aux.getFieldByteSize() * track.getRealFieldRate() *
                     static_cast<double>(track.getNumFields()));
}

unsigned dv100Bitrate(FrameRate rate) {
    switch (rate) {
    case frameRate59_94hz:
        return perNtscFrame(3840000, 60000);
    case frameRate29_97hz:
        return perNtscFrame(3840000, 30000);
    default:
        return 115200000;
    }
}

struct AvciFrameBits {
    AvciAuxInfo::ClassEncoding classEncoding;
    unsigned lines;
    int atNtscRates;
    int atPalRates;
};

constexpr AvciFrameBits avciFrameBits[] = {
    {AvciAuxInfo::classEncoding2, 720, 1847296, 2232320},
    {AvciAuxInfo::classEncoding2, 1080, 3702784, 4472832},
    {AvciAuxInfo::classEncoding1, 720, 888832, 1081344},
    {AvciAuxInfo::classEncoding1, 1080, 1785856, 2170880},
};

/// Bits of a frame; 0 at a rate that the format doesn't have.
int bitsPerFrame(AvciFrameBits const& row, FrameRate rate) {
    switch (rate) {
    case frameRate59_94hz:
    case frameRate29_97hz:
        return row.atNtscRates;
    case frameRate50hz:
    case frameRate25hz:
        return row.atPalRates;
    default:
        return 0;
    }
}

} // namespace

unsigned MapTrack::getBitrate() const {
    switch (mediaType) {
    case trackMediaTimecode_525:
    case trackMediaTimecode_625:
    case trackMediaTimecodeHd:
        return truncated(getRealFieldRate() * 8 * 8);
    case trackMediaAudioPCM_24:
    case trackMediaCompressedAudio:
        return 1152000; // 48000 samples of 24 bits
    case trackMediaAudioPCM_16:
    case trackMediaAc3_16bit:
        return 768000; // 48000 samples of 16 bits
    case trackMediaMpeg2_525:
    case trackMediaMpeg2_625:
    case trackMediaMpeg2Hd:
    case trackMediaMpeg1_525:
    case trackMediaMpeg1_625:
    case trackMediaAvcHd:
        return mpegBitrate(*this);
    case trackMediaDv25_525:
        return perNtscFrame(960000, 30000);
    case trackMediaDv25_625:
        return 28800000;
    case trackMediaDv50_525:
        return perNtscFrame(1920000, 30000);
    case trackMediaDv50_625:
        return 57600000;
    case trackMediaAncillaryData:
        return ancillaryDataBitrate(*this);
    case trackMediaDv100:
        return dv100Bitrate(getFrameRate());
    case trackMediaAvci:
        return getAvciBitrate();
    default:
        return untold(*this);
    }
}

unsigned MapTrack::getAvciBitrate() const {
    AvciAuxInfo const aux(getAuxInfo());
    if (!aux.isValid()) {
        return untold(GxfOpSubsystem::badDecodeData, "invalid AVCI AUX info");
    }
    for (AvciFrameBits const& row : avciFrameBits) {
        if (row.classEncoding == aux.getClassEncoding() && row.lines == getNumLines()) {
            // The field rate times the fields once more: intended.
            Fixed const rate(getRealFieldRate() * static_cast<double>(getNumFields()));
            return (bitsPerFrame(row, getFrameRate()) * rate).uint32Value();
        }
    }
    return untold(*this);
}

AspectRatio MapTrack::getAspectRatio() const {
    switch (GxfTypes::getMediaType(mediaType)) {
    case mediaTypeDV25:
    case mediaTypeDV50:
    case mediaTypeDV100: {
        DvAuxInfo const aux(mediaType, getAuxInfo());
        return aux.isValid() && aux.getAspectRatio() == DvAuxInfo::aspect16x9 ? aspectRatio16x9
                                                                              : aspectRatio4x3;
    }
    case mediaTypeMpeg2SD:
    case mediaTypeMpeg2HD:
        return mpegAuxInfo.isValid() && mpegAuxInfo.getAspectRatio() == MpegAuxInfo::aspect16x9
                   ? aspectRatio16x9
                   : aspectRatio4x3;
    case mediaTypeAvcI:
        return aspectRatio16x9;
    default:
        return aspectRatioUnknown;
    }
}

OpResult MapTrack::setAspectRatio(AspectRatio ratio) {
    if (ratio == aspectRatioUnknown) {
        return gxfError(GxfOpSubsystem::internalError);
    }
    bool const wide = ratio == aspectRatio16x9;
    switch (GxfTypes::getMediaType(mediaType)) {
    case mediaTypeDV25:
    case mediaTypeDV50:
    case mediaTypeDV100: {
        // A copy that isn't written back: intended.
        DvAuxInfo aux(mediaType, getAuxInfo());
        if (!aux.isValid()) {
            return gxfError(GxfOpSubsystem::internalError);
        }
        aux.setAspectRatio(wide ? DvAuxInfo::aspect16x9 : DvAuxInfo::aspect4x3);
        return OpResult::Ok;
    }
    case mediaTypeMpeg2SD:
    case mediaTypeMpeg2HD:
        if (!mpegAuxInfo.isValid()) {
            return gxfError(GxfOpSubsystem::internalError);
        }
        return mpegAuxInfo.setAspectRatio(wide ? MpegAuxInfo::aspect16x9 : MpegAuxInfo::aspect4x3);
    case mediaTypeAvcI:
        if (wide) {
            return OpResult::Ok;
        }
        return gxfError(GxfOpSubsystem::badEncodeData);
    default:
        return gxfError(GxfOpSubsystem::internalError);
    }
}

} // namespace GxfTypes
