#include <gxftypes/packet/media_hdr.h>

#include <cstring>

namespace GxfTypes {

namespace {

/// What the four media bytes are.
enum class MediaBytes { none, validRange, blockCount, picture };

MediaBytes mediaBytesOf(unsigned mediaType) {
    if (MediaPacketHdr::isMpegType(mediaType)) {
        return MediaBytes::picture;
    }
    switch (mediaType) {
    case trackMediaTimecode_525:
    case trackMediaTimecode_625:
    case trackMediaTimecodeHd:
    case trackMediaAudioPCM_24:
    case trackMediaAudioPCM_16:
    case trackMediaAc3_16bit:
    case trackMediaCompressedAudio:
    case trackMediaAncillaryData:
        return MediaBytes::validRange;
    case trackMediaMotionJPEG_525:
    case trackMediaMotionJPEG_625:
    case trackMediaDv25_525:
    case trackMediaDv25_625:
    case trackMediaDv50_525:
    case trackMediaDv50_625:
    case trackMediaDv100:
        return MediaBytes::blockCount;
    default:
        return MediaBytes::none;
    }
}

unsigned truncated(double value) { return static_cast<unsigned>(truncateToInt64(value)); }

} // namespace

FormatStr& TrackDetail::toString(unsigned, FormatStr& text) const {
    return text.format("trackNum=%u,trackMediaType=%s", trackNum, getName(trackMediaType))
        .format(",trackType=%s,umfTrackIndex=%u", getName(trackType), umfTrackIndex)
        .format(",fldStrideFlr=%u,fldStrideCeiling=%u", fldStrideFlr, fldStrideCeiling)
        .format(",bytesPerPkt=%u,samplesPerPkt=%u", bytesPerPkt, samplesPerPkt)
        .format(",samplesPerFld=%u,SeqCoding=%s", samplesPerFld, getName(seqCoding));
}

unsigned GxfIndexer::IndexBlock::getPacketNumber(unsigned field, TrackDetail const& detail) {
    return truncated(field / detail.fldStride);
}

unsigned GxfIndexer::IndexBlock::getPacketField(unsigned field, TrackDetail const& detail) {
    return truncated(getPacketNumber(field, detail) * detail.fldStride + 0.5);
}

unsigned MediaPacketHdr::getMpegByteCount() const {
    return (static_cast<unsigned>(mediaBytes[1]) << 16) |
           (static_cast<unsigned>(mediaBytes[2]) << 8) | mediaBytes[3];
}

unsigned short MediaPacketHdr::getFirstValid() const {
    return static_cast<unsigned short>((mediaBytes[0] << 8) | mediaBytes[1]);
}

unsigned short MediaPacketHdr::getLastValid() const {
    return static_cast<unsigned short>((mediaBytes[2] << 8) | mediaBytes[3]);
}

void MediaPacketHdr::setFirstValid(unsigned short value) {
    mediaBytes[0] = static_cast<std::uint8_t>(value >> 8);
    mediaBytes[1] = static_cast<std::uint8_t>(value);
}

unsigned MediaPacketHdr::setMediaFieldZero(TrackDetail const& detail) {
    // Samples are counted at 48 kHz, whatever the track's sample rate: intended.
    constexpr double samplesPerSecond = 48000.0;

    unsigned firstValid = 0;
    switch (getTrackType(getMediaType())) {
    case trackTypeTimecode:
    case trackTypeAncillaryData:
        if (detail.samplesPerPkt == 0) {
            return mediaFieldZero;
        }
        mediaFieldZero = mediaField / detail.samplesPerPkt * detail.samplesPerPkt;
        firstValid = mediaField - mediaFieldZero;
        break;
    case trackTypeAudio:
        if (detail.fldStride == 0) {
            return mediaFieldZero;
        }
        mediaFieldZero = GxfIndexer::IndexBlock::getPacketField(mediaField, detail);
        if (detail.fieldsPerSecond == 0) {
            return mediaFieldZero;
        }
        firstValid =
            truncated((mediaField - mediaFieldZero) / detail.fieldsPerSecond * samplesPerSecond);
        break;
    default:
        return mediaFieldZero;
    }
    if (mediaFieldZero != mediaField && getFirstValid() == 0) {
        setFirstValid(static_cast<unsigned short>(firstValid));
    }
    return mediaFieldZero;
}

bool MediaPacketHdr::isEqual(MediaPacketHdr const& other) const {
    return mediaType == other.mediaType && trackByte == other.trackByte &&
           mediaField == other.mediaField && this == &other && timeline == other.timeline &&
           timelineValid == other.timelineValid;
}

FormatStr& MediaPacketHdr::toString(unsigned, FormatStr& text) const {
    bool const arrays = gxfDebug.on(gxfDebugArrays);
    text.format("%s,trk=%d,f=%d", getName(getMediaType()), static_cast<int>(getTrackNum()),
                static_cast<int>(mediaField));
    if (mediaFieldZero != mediaField) {
        text.format("(%s%d)", mediaFieldZero > mediaField ? "+" : "",
                    static_cast<int>(mediaFieldZero - mediaField));
    }
    text.format(",t=%d%s", static_cast<int>(timeline), timelineValid != 0 ? "" : "(invalid)");
    switch (mediaBytesOf(mediaType)) {
    case MediaBytes::validRange:
        text.format(",{in,out}={%d,%d}", getFirstValid(), getLastValid());
        break;
    case MediaBytes::blockCount:
        text.format(",%d*4K blk", static_cast<int>(getDvBlockCount()));
        break;
    case MediaBytes::picture:
        if (anchor != 0) {
            text.format(",anchor=-%d", anchor);
        }
        text.format(",%db,%s", static_cast<int>(getMpegByteCount()), getName(getMpegPicType()));
        if (arrays) {
            text.format(",%s", getName(getMpegPicStruct()));
        }
        break;
    case MediaBytes::none:
        break;
    }
    if (arrays) {
        text.format(",0x%02x.%02x.%02x.%02x", mediaBytes[0], mediaBytes[1], mediaBytes[2],
                    mediaBytes[3]);
    }
    return text;
}

} // namespace GxfTypes
