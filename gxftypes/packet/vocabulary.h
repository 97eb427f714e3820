#pragma once

#include <cstdint>

#include <gxftypes/support/support.h>

/// Whether the pictures of a sequence are coded on their own.
enum SequenceCodingType : std::uint32_t {
    sequenceCodingIntra = 0,
    sequenceCodingNonIntra = 1,
};

/// "?" for a value without a name.
char const* getName(SequenceCodingType);

/// The enumerations that several packets share. The number of an enumerator is its wire value. Each
/// enumeration holds any 32-bit number; getName() answers with a text that stays valid, but for
/// getName(PacketType) and getName(TrackMediaType) of a value without a name, which is the text of
/// getStringOf().
namespace GxfTypes {

enum PacketType : std::uint32_t {
    packetTypeHeader = 0, ///< in memory only
    packetTypeMap = 188,
    packetTypeMedia = 191,
    packetTypeReserved = 250,
    packetTypeEos = 251,
    packetTypeFieldLocTbl = 252,
    packetTypeUmfFile = 253,
    packetTypeInternalUmfChunk = 256, ///< in memory only; 253 on the wire
};

/// Where a packet stands in its UMF.
enum UmfPacketOrder : std::int32_t {
    umfPacketOrderUninit = -1,
    umfPacketOrderMiddle = 0,
    umfPacketOrderFirst = 1,
    umfPacketOrderLast = 2,
    umfPacketOrderOnly = 3,
};

enum FrameRate : std::int32_t {
    frameRateMissing = -2,
    frameRateNotApplicable = -1,
    frameRate60hz = 1,
    frameRate59_94hz = 2,
    frameRate50hz = 3,
    frameRate30hz = 4,
    frameRate29_97hz = 5,
    frameRate25hz = 6,
    frameRate24hz = 7,
    frameRate23_98hz = 8,
};

enum LinesPerFrame : std::int32_t {
    linesPerFrameMissing = -2,
    linesPerFrameNotApplicable = -1,
    linesPerFrame525 = 1,
    linesPerFrame625 = 2,
    linesPerFrame1920x1080 = 4,
    linesPerFrameReserved = 5,
    linesPerFrame720 = 6,
    linesPerFrame1440x1080 = 0x10004, ///< the 1080 lines of 4 with bit 16 set
};

enum FieldsPerFrame : std::int32_t {
    fieldsPerFrameMissing = -2,
    fieldsPerFrameNotApplicable = -1,
    fieldsPerFrameProgressive = 1,
    fieldsPerFrameInterlaced = 2,
};

/// The media type of a track in the MAP and of a media packet.
enum TrackMediaType : std::uint32_t {
    trackMediaMotionJPEG_525 = 3,
    trackMediaMotionJPEG_625 = 4,
    trackMediaTimecode_525 = 7,
    trackMediaTimecode_625 = 8,
    trackMediaAudioPCM_24 = 9,
    trackMediaAudioPCM_16 = 10,
    trackMediaMpeg2_525 = 11,
    trackMediaMpeg2_625 = 12,
    trackMediaDv25_525 = 13,
    trackMediaDv25_625 = 14,
    trackMediaDv50_525 = 15,
    trackMediaDv50_625 = 16,
    trackMediaAc3_16bit = 17,
    trackMediaCompressedAudio = 18,
    trackMediaReserved1 = 19,
    trackMediaMpeg2Hd = 20,
    trackMediaAncillaryData = 21,
    trackMediaMpeg1_525 = 22,
    trackMediaMpeg1_625 = 23,
    trackMediaTimecodeHd = 24,
    trackMediaDv100 = 25,
    trackMediaAvci = 26,
    trackMediaAvc27 = 27,
    trackMediaAvc28 = 28,
    trackMediaAvcHd = 29,
};

/// The coarse class of a track.
enum TrackType : std::uint32_t {
    trackTypeUnknown = 0,
    trackTypeTimecode = 1,
    trackTypeAncillaryData = 2,
    trackTypeAudio = 3,
    trackTypeVideo = 4,
};

/// The letter of a track kind in a UmfTrackNum.
enum TrackTypeEncoding : std::uint32_t {
    trackTypeEncodingNone = 0,
    trackTypeEncodingAudio = 'A',
    trackTypeEncodingDV25 = 'D',
    trackTypeEncodingDV50 = 'E',
    trackTypeEncodingDV100 = 'F',
    trackTypeEncodingMpeg2Hd = 'H',
    trackTypeEncodingAVCI = 'I',
    trackTypeEncodingMpeg1 = 'L',
    trackTypeEncodingMpeg2Sd = 'M',
    trackTypeEncodingAncData = 'N',
    trackTypeEncodingTimecode = 'T',
    trackTypeEncodingMotionJPEG = 'V',
};

/// A track number as one ASCII character: '0' to '9', then 'A' for 10 upward.
enum TrackNumberEncoding : std::uint32_t {};

/// The kind of a media stream in the UMF and the XML.
enum MediaType : std::uint32_t {
    mediaTypeMotionJPEG = 1,
    mediaTypeAudio = 2,
    mediaTypeTimecode = 3,
    mediaTypeMpeg2SD = 4,
    mediaTypeDV25 = 5,
    mediaTypeDV50 = 6,
    mediaTypeMpeg2HD = 7,
    mediaTypeAncillaryData = 8,
    mediaTypeMpeg1 = 9,
    mediaTypeDV100 = 10,
    mediaTypeAvcI = 11,
    mediaTypeAvc = 12,     ///< without a name of its own
    mediaTypeUnknown = 13, ///< without a name of its own
};

enum MpegPicType : std::uint32_t { mpegPicTypeI = 1, mpegPicTypeP = 2, mpegPicTypeB = 3 };

enum MpegPicStruct : std::uint32_t {
    mpegPicStructTop = 1,
    mpegPicStructBottom = 2,
    mpegPicStructFrame = 3,
};

enum AspectRatio : std::uint32_t {
    aspectRatio4x3 = 0,
    aspectRatio16x9 = 1,
    aspectRatioUnknown = 2,
};

enum AspectRatioConversion : std::uint32_t {
    aspectRatioConversionDefault = 0,
    aspectRatioConversionStretch = 1,
    aspectRatioConversionHalfbars = 2,
    aspectRatioConversionCrop = 3,
    aspectRatioConversionBars = 4,
};

/// What a clip is, a mask of 32 bits.
enum MaterialAttrBits : std::uint32_t {};

char const* getName(PacketType);
char const* getName(UmfPacketOrder);
char const* getName(FrameRate);
char const* getName(LinesPerFrame);
char const* getName(FieldsPerFrame);
char const* getName(TrackMediaType);
char const* getName(TrackType);
char const* getName(TrackTypeEncoding);
char const* getName(MediaType);
char const* getName(MpegPicType);
char const* getName(MpegPicStruct);
char const* getName(AspectRatio);
char const* getName(AspectRatioConversion);
using ::getName;

/// Appends the mask as a hexadecimal number and ",NAME" for each bit that is set, from the lowest.
FormatStr& toString(FormatStr& text, MaterialAttrBits bits);

/// Frames per second; 1.0 for what isn't a rate, since callers divide by it.
double getRealFrameRate(FrameRate);

TrackType getTrackType(TrackMediaType);
/// DV100 is Unknown by its letter alone, though the other two forms know it as video: intended.
TrackType getTrackType(TrackTypeEncoding);
TrackType getTrackType(MediaType);
/// 0 for what has no letter.
TrackTypeEncoding getTypeEncoding(TrackMediaType);
TrackTypeEncoding getTypeEncoding(MediaType);
MediaType getMediaType(TrackMediaType);

/// Microseconds since the first of January 1970, for a count of 100 nanoseconds since the first of
/// January 1601.
long long convertGxfTimeToPosixTime(long long gxfTime);

/// The time in the process's time zone as ctime has it, without a newline; "null" for a time that
/// it can't write.
AutoPtr<char> timeToString(unsigned long long gxfTime);

} // namespace GxfTypes
