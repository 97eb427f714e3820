#pragma once

#include <cstdint>
#include <cstring>
#include <memory>

#include <gxftypes/packet/vocabulary.h>

namespace GxfTypes {

/// What an index knows of a track.
struct TrackDetail {
    FormatStr& toString(unsigned indent, FormatStr& text) const;

    std::uint8_t trackNum = 0;
    TrackMediaType trackMediaType{};
    TrackType trackType{};
    std::uint8_t umfTrackIndex = 0;
    std::uint16_t fldStrideFlr = 0;
    std::uint16_t fldStrideCeiling = 0;
    double fldStride = 0;       ///< fields that one packet spans, for audio a fraction
    double fieldsPerSecond = 0; ///< the field rate
    std::uint32_t bytesPerPkt = 0;
    std::uint32_t samplesPerPkt = 0;
    std::uint32_t samplesPerFld = 0;
    SequenceCodingType seqCoding{};
};

namespace GxfIndexer {

/// The arithmetic of packet boundaries.
struct IndexBlock {
    /// The number of the packet in which a field lies.
    static unsigned getPacketNumber(unsigned field, TrackDetail const& detail);
    /// The first field of that packet, to the nearest whole field.
    static unsigned getPacketField(unsigned field, TrackDetail const& detail);
};

} // namespace GxfIndexer

/// The preamble of a media packet's payload.
///
///     media type 1 | track byte 1 | media field 4 | media bytes 4 | timeline field 4 | flags 1 |
///     reserved 1
///
/// The four media bytes mean, by the kind of media:
///
///     timecode, audio, ancillary data    first valid 2 | last valid 2
///     DV, Motion JPEG                    blocks of 4 KiB 1 | unused 3
///     MPEG                               picture type in bits 0-1, structure in bits 2-3 |
///                                        byte count of the picture 3
struct MediaPacketHdr {
    static constexpr unsigned wireSize = 16;

    static bool isTimecodeType(unsigned mediaType) {
        return mediaType == trackMediaTimecode_525 || mediaType == trackMediaTimecode_625 ||
               mediaType == trackMediaTimecodeHd;
    }
    static bool isMpegType(unsigned mediaType) {
        return mediaType == trackMediaMpeg2_525 || mediaType == trackMediaMpeg2_625 ||
               mediaType == trackMediaMpeg2Hd || mediaType == trackMediaMpeg1_525 ||
               mediaType == trackMediaMpeg1_625;
    }

    void reset() { std::construct_at(this); }

    /// Reads 15 bytes; the reserved one is left to the packet. The kind bits are only ever set, so
    /// that a decode over an old value needs a reset() before.
    void decode(GxfBuffer& buffer);

    bool isTimecode() const { return isTimecodeBit != 0; }
    bool isMpeg() const { return isMpegBit != 0; }
    void setClosedGop(bool closed) { closedGop = closed ? 1 : 0; }
    TrackMediaType getMediaType() const { return static_cast<TrackMediaType>(mediaType); }
    unsigned getTrackNum() const { return trackByte & 63U; }
    unsigned getMediaField() const { return mediaField; }
    /// The timeline field; the media field when the flags say that it isn't valid.
    unsigned getTimeline() const { return timelineValid != 0 ? timeline : mediaField; }
    unsigned getDvBlockCount() const { return mediaBytes[0]; }
    unsigned getMpegByteCount() const;
    MpegPicType getMpegPicType() const { return static_cast<MpegPicType>(mediaBytes[0] & 3U); }
    MpegPicStruct getMpegPicStruct() const {
        return static_cast<MpegPicStruct>((mediaBytes[0] >> 2) & 3U);
    }
    unsigned short getFirstValid() const;
    unsigned short getLastValid() const;
    void setFirstValid(unsigned short value);
    void setMpegPictureHeight(unsigned short lines) { mpegPictureHeight = lines; }
    void setMpegPictureWidth(unsigned short pixels) { mpegPictureWidth = pixels; }

    /// Works out the first field of the block to which the media belongs, and the first valid value
    /// that follows from it unless the packet has one. Returns mediaFieldZero. REQUIRES:
    /// samplesPerPkt, or fldStride and fieldsPerSecond, of the detail aren't 0; a value that would
    /// come from a division by 0 stays as it is.
    unsigned setMediaFieldZero(TrackDetail const& detail);

    /// A header equals only itself, however alike the values: intended.
    bool isEqual(MediaPacketHdr const& other) const;
    FormatStr& toString(unsigned indent, FormatStr& text) const;

    std::uint32_t mediaFieldZero = 0xFFFFFFFF;
    std::uint16_t anchor : 11 = 0; ///< distance back to an MPEG picture's anchor; the caller's
    std::uint16_t isTimecodeBit : 1 = 0;
    std::uint16_t isMpegBit : 1 = 0;
    std::uint16_t closedGop : 1 = 0;
    std::uint16_t mpegPlusBit : 1 = 0;
    std::uint16_t mpegPictureHeight = 0; ///< in lines
    std::uint16_t mpegPictureWidth = 0;  ///< in pixels
    std::uint8_t timelineValid : 1 = 0;
    std::uint8_t mediaType = 0;
    std::uint8_t trackByte = 0xFF;
    std::uint32_t mediaField = 0xFFFFFFFF;
    std::uint8_t mediaBytes[4] = {};
    std::uint32_t timeline = 0xFFFFFFFF;
};

inline void MediaPacketHdr::decode(GxfBuffer& buffer) {
    unsigned char spare[wireSize - 1];
    unsigned char const* const bytes = buffer.takeBytes(spare);
    mediaType = bytes[0];
    trackByte = bytes[1];
    mediaField = loadMsbf<std::uint32_t>(bytes + 2);
    mediaFieldZero = mediaField;
    std::memcpy(mediaBytes, bytes + 6, sizeof(mediaBytes));
    timeline = loadMsbf<std::uint32_t>(bytes + 10);
    timelineValid = bytes[14] & 1U;
    closedGop = 0;
    if (isMpegType(bytes[0])) {
        isMpegBit = 1;
        mpegPlusBit = 1;
    }
    if (isTimecodeType(bytes[0])) {
        isTimecodeBit = 1;
    }
}

} // namespace GxfTypes
