#include <gxftypes/packet/vocabulary.h>

#include <cstring>
#include <ctime>
#include <iterator>

#include <gxftypes/packet/umf.h>

namespace {

template <typename Enum> struct NameRow {
    Enum value;
    char const* name;
};

template <typename Enum, std::size_t Rows>
char const* findName(NameRow<Enum> const (&table)[Rows], Enum value, char const* fallback) {
    for (auto const& row : table) {
        if (row.value == value) {
            return row.name;
        }
    }
    return fallback;
}

} // namespace

char const* getName(SequenceCodingType value) {
    static constexpr NameRow<SequenceCodingType> table[] = {{sequenceCodingIntra, "intra"},
                                                            {sequenceCodingNonIntra, "nonIntra"}};
    return findName(table, value, "?");
}

namespace GxfTypes {

namespace {

struct FrameRateRow {
    FrameRate value;
    char const* name;
    double hertz;
};

constexpr FrameRateRow frameRates[] = {
    {frameRateMissing, "missing", 1.0},
    {frameRateNotApplicable, "N/A", 1.0},
    {frameRate60hz, "60hz", 60.0},
    {frameRate59_94hz, "59.94hz", 60000.0 / 1001.0},
    {frameRate50hz, "50hz", 50.0},
    {frameRate30hz, "30hz", 30.0},
    {frameRate29_97hz, "29.97hz", 30000.0 / 1001.0},
    {frameRate25hz, "25hz", 25.0},
    {frameRate24hz, "24hz", 24.0},
    {frameRate23_98hz, "23.98hz", 24000.0 / 1001.0},
};

FrameRateRow const& rowOf(FrameRate rate) {
    static constexpr FrameRateRow invalid{frameRateMissing, "invalid", 1.0};
    for (FrameRateRow const& row : frameRates) {
        if (row.value == rate) {
            return row;
        }
    }
    return invalid;
}

struct TrackMediaRow {
    TrackMediaType value;
    char const* name;
    TrackType trackType;
    TrackTypeEncoding encoding;
    MediaType mediaType;
};

constexpr TrackMediaRow trackMediaTypes[] = {
    {trackMediaMotionJPEG_525, "MotionJPEG_525", trackTypeVideo, trackTypeEncodingMotionJPEG,
     mediaTypeMotionJPEG},
    {trackMediaMotionJPEG_625, "MotionJPEG_625", trackTypeVideo, trackTypeEncodingMotionJPEG,
     mediaTypeMotionJPEG},
    {trackMediaTimecode_525, "Timecode_525", trackTypeTimecode, trackTypeEncodingTimecode,
     mediaTypeTimecode},
    {trackMediaTimecode_625, "Timecode_625", trackTypeTimecode, trackTypeEncodingTimecode,
     mediaTypeTimecode},
    {trackMediaAudioPCM_24, "AudioPCM_24", trackTypeAudio, trackTypeEncodingAudio, mediaTypeAudio},
    {trackMediaAudioPCM_16, "AudioPCM_16", trackTypeAudio, trackTypeEncodingAudio, mediaTypeAudio},
    {trackMediaMpeg2_525, "Mpeg2_525", trackTypeVideo, trackTypeEncodingMpeg2Sd, mediaTypeMpeg2SD},
    {trackMediaMpeg2_625, "Mpeg2_625", trackTypeVideo, trackTypeEncodingMpeg2Sd, mediaTypeMpeg2SD},
    {trackMediaDv25_525, "Dv25_525", trackTypeVideo, trackTypeEncodingDV25, mediaTypeDV25},
    {trackMediaDv25_625, "Dv25_625", trackTypeVideo, trackTypeEncodingDV25, mediaTypeDV25},
    {trackMediaDv50_525, "Dv50_525", trackTypeVideo, trackTypeEncodingDV50, mediaTypeDV50},
    {trackMediaDv50_625, "Dv50_625", trackTypeVideo, trackTypeEncodingDV50, mediaTypeDV50},
    {trackMediaAc3_16bit, "Ac3_16bit", trackTypeAudio, trackTypeEncodingAudio, mediaTypeAudio},
    {trackMediaCompressedAudio, "CompressedAudio", trackTypeAudio, trackTypeEncodingAudio,
     mediaTypeAudio},
    {trackMediaReserved1, "Reserved1", trackTypeUnknown, trackTypeEncodingNone, mediaTypeUnknown},
    {trackMediaMpeg2Hd, "Mpeg2Hd", trackTypeVideo, trackTypeEncodingMpeg2Hd, mediaTypeMpeg2HD},
    {trackMediaAncillaryData, "AncillaryData", trackTypeAncillaryData, trackTypeEncodingAncData,
     mediaTypeAncillaryData},
    {trackMediaMpeg1_525, "Mpeg1_525", trackTypeVideo, trackTypeEncodingMpeg1, mediaTypeMpeg1},
    {trackMediaMpeg1_625, "Mpeg1_625", trackTypeVideo, trackTypeEncodingMpeg1, mediaTypeMpeg1},
    {trackMediaTimecodeHd, "TimecodeHd", trackTypeTimecode, trackTypeEncodingTimecode,
     mediaTypeTimecode},
    {trackMediaDv100, "Dv100", trackTypeVideo, trackTypeEncodingDV100, mediaTypeDV100},
    {trackMediaAvci, "Avci", trackTypeVideo, trackTypeEncodingAVCI, mediaTypeAvcI},
    {trackMediaAvc27, "Avc27", trackTypeUnknown, trackTypeEncodingNone, mediaTypeAvc},
    {trackMediaAvc28, "Avc28", trackTypeUnknown, trackTypeEncodingNone, mediaTypeAvc},
    {trackMediaAvcHd, "AvcHd", trackTypeUnknown, trackTypeEncodingNone, mediaTypeAvc},
};

/// Null for a value outside the table.
TrackMediaRow const* rowOf(TrackMediaType type) {
    for (TrackMediaRow const& row : trackMediaTypes) {
        if (row.value == type) {
            return &row;
        }
    }
    return nullptr;
}

struct MediaRow {
    char const* name;
    TrackTypeEncoding encoding;
    TrackType trackType;
};

MediaRow const& rowOf(MediaType type) {
    static constexpr MediaRow table[] = {
        {"?", trackTypeEncodingNone, trackTypeUnknown},
        {"MotionJPEG", trackTypeEncodingMotionJPEG, trackTypeVideo},
        {"Audio", trackTypeEncodingAudio, trackTypeAudio},
        {"Timecode", trackTypeEncodingTimecode, trackTypeTimecode},
        {"Mpeg2SD", trackTypeEncodingMpeg2Sd, trackTypeVideo},
        {"DV25", trackTypeEncodingDV25, trackTypeVideo},
        {"DV50", trackTypeEncodingDV50, trackTypeVideo},
        {"Mpeg2HD", trackTypeEncodingMpeg2Hd, trackTypeVideo},
        {"AncillaryData", trackTypeEncodingAncData, trackTypeAncillaryData},
        {"Mpeg1", trackTypeEncodingMpeg1, trackTypeVideo},
        {"DV100", trackTypeEncodingDV100, trackTypeVideo},
        {"AvcI", trackTypeEncodingAVCI, trackTypeVideo},
    };
    auto const index = static_cast<std::size_t>(type);
    return table[index < std::size(table) ? index : 0];
}

} // namespace

char const* getName(PacketType value) {
    static constexpr NameRow<PacketType> table[] = {
        {packetTypeHeader, "packet header"},
        {packetTypeMap, "map"},
        {packetTypeMedia, "media"},
        {packetTypeReserved, "reserved"},
        {packetTypeEos, "EOS"},
        {packetTypeFieldLocTbl, "fieldLocTbl"},
        {packetTypeUmfFile, "umfFile"},
        {packetTypeInternalUmfChunk, "internalUmfChunk"},
    };
    char const* const name = findName(table, value, nullptr);
    return name != nullptr ? name : getStringOf("type", static_cast<int>(value));
}

char const* getName(UmfPacketOrder value) {
    static constexpr NameRow<UmfPacketOrder> table[] = {{umfPacketOrderMiddle, "Middle"},
                                                        {umfPacketOrderFirst, "First"},
                                                        {umfPacketOrderLast, "Last"},
                                                        {umfPacketOrderOnly, "Only"}};
    return findName(table, value, "Uninit");
}

char const* getName(FrameRate value) { return rowOf(value).name; }

char const* getName(LinesPerFrame value) {
    static constexpr NameRow<LinesPerFrame> table[] = {
        {linesPerFrameMissing, "missing"},
        {linesPerFrameNotApplicable, "N/A"},
        {linesPerFrame525, "525"},
        {linesPerFrame625, "625"},
        {linesPerFrame1920x1080, "1920x1080"},
        {linesPerFrameReserved, "reserved"},
        {linesPerFrame720, "720"},
        {linesPerFrame1440x1080, "1440x1080"},
    };
    return findName(table, value, "invalid");
}

char const* getName(FieldsPerFrame value) {
    static constexpr NameRow<FieldsPerFrame> table[] = {
        {fieldsPerFrameMissing, "missing"},
        {fieldsPerFrameNotApplicable, "N/A"},
        {fieldsPerFrameProgressive, "progressive"},
        {fieldsPerFrameInterlaced, "interlaced"},
    };
    return findName(table, value, "invalid");
}

char const* getName(TrackMediaType value) {
    TrackMediaRow const* const row = rowOf(value);
    return row != nullptr ? row->name : getStringOf("TrackMediaType", static_cast<int>(value));
}

char const* getName(TrackType value) {
    static constexpr NameRow<TrackType> table[] = {{trackTypeUnknown, "Unknown"},
                                                   {trackTypeTimecode, "Timecode"},
                                                   {trackTypeAncillaryData, "AncillaryData"},
                                                   {trackTypeAudio, "Audio"},
                                                   {trackTypeVideo, "Video"}};
    return findName(table, value, "?");
}

char const* getName(TrackTypeEncoding value) {
    static constexpr NameRow<TrackTypeEncoding> table[] = {
        {trackTypeEncodingAudio, "Audio"},
        {trackTypeEncodingDV25, "DV25"},
        {trackTypeEncodingDV50, "DV50"},
        {trackTypeEncodingDV100, "DV100"},
        {trackTypeEncodingMpeg2Hd, "Mpeg2Hd"},
        {trackTypeEncodingAVCI, "AVCI"},
        {trackTypeEncodingMpeg1, "Mpeg1"},
        {trackTypeEncodingMpeg2Sd, "Mpeg2Sd"},
        {trackTypeEncodingAncData, "AncData"},
        {trackTypeEncodingTimecode, "Timecode"},
        {trackTypeEncodingMotionJPEG, "MotionJPEG"},
    };
    return findName(table, value, "?");
}

char const* getName(MediaType value) { return rowOf(value).name; }

char const* getName(MpegPicType value) {
    static constexpr NameRow<MpegPicType> table[] = {
        {mpegPicTypeI, "I"}, {mpegPicTypeP, "P"}, {mpegPicTypeB, "B"}};
    return findName(table, value, "?");
}

char const* getName(MpegPicStruct value) {
    static constexpr NameRow<MpegPicStruct> table[] = {
        {mpegPicStructTop, "top"}, {mpegPicStructBottom, "bottom"}, {mpegPicStructFrame, "frame"}};
    return findName(table, value, "?");
}

char const* getName(AspectRatio value) {
    static constexpr NameRow<AspectRatio> table[] = {{aspectRatio4x3, "4x3"},
                                                     {aspectRatio16x9, "16x9"}};
    return findName(table, value, "unknown");
}

char const* getName(AspectRatioConversion value) {
    static constexpr NameRow<AspectRatioConversion> table[] = {
        {aspectRatioConversionStretch, "stretch"},
        {aspectRatioConversionHalfbars, "halfbars"},
        {aspectRatioConversionCrop, "crop"},
        {aspectRatioConversionBars, "bars"},
    };
    return findName(table, value, "default");
}

char const* getName(UmfPacket::MediaDesc::ColorSampling value) {
    static constexpr NameRow<UmfPacket::MediaDesc::ColorSampling> table[] = {
        {UmfPacket::MediaDesc::colorSampling420, "4:2:0"},
        {UmfPacket::MediaDesc::colorSampling422, "4:2:2"}};
    return findName(table, value, "4:?:?");
}

char const* getName(UmfPacket::MediaDesc::GopStructure value) {
    static constexpr NameRow<UmfPacket::MediaDesc::GopStructure> table[] = {
        {UmfPacket::MediaDesc::gopStructureOpenGop, "openGop"},
        {UmfPacket::MediaDesc::gopStructureClosedGop, "closedGop"}};
    return findName(table, value, "?gop");
}

char const* getName(UmfPacket::MediaDesc::FrameFieldStructure value) {
    static constexpr NameRow<UmfPacket::MediaDesc::FrameFieldStructure> table[] = {
        {UmfPacket::MediaDesc::frameFieldStructureTopFF, "topFF"},
        {UmfPacket::MediaDesc::frameFieldStructureBottomFF, "bottomFF"},
        {UmfPacket::MediaDesc::frameFieldStructureFrame, "frame"}};
    return findName(table, value, "frStruct?");
}

char const* getName(UmfPacket::MediaDesc::MpegType value) {
    static constexpr NameRow<UmfPacket::MediaDesc::MpegType> table[] = {
        {UmfPacket::MediaDesc::mpegTypeMpeg1, "mpeg1"},
        {UmfPacket::MediaDesc::mpegTypeMpeg2, "mpeg2"},
        {UmfPacket::MediaDesc::mpegTypeMpeg2Cbr, "mpeg2Cbr"}};
    return findName(table, value, "mpeg?");
}

char const* getName(UmfPacket::MediaDesc::Aspect value) {
    static constexpr NameRow<UmfPacket::MediaDesc::Aspect> table[] = {
        {UmfPacket::MediaDesc::aspect4x3, "4x3"}, {UmfPacket::MediaDesc::aspect16x9, "16x9"}};
    return findName(table, value, "?x?");
}

char const* getName(UmfPacket::MediaDesc::TimecodeType value) {
    static constexpr NameRow<UmfPacket::MediaDesc::TimecodeType> table[] = {
        {UmfPacket::MediaDesc::timecodeTypeDrop, "drop"},
        {UmfPacket::MediaDesc::timecodeTypeNonDrop, "nonDrop"}};
    return findName(table, value, "?drop");
}

FormatStr& toString(FormatStr& text, MaterialAttrBits bits) {
    static constexpr char const* names[] = {
        ",ReadOnly", ",Rsv1",      ",Locked",    ",Rsv2",       ",Rsv3",     ",Rsv4",    ",50hz",
        ",59.94hz",  ",23.98hz",   ",25hz",      ",29.97hz",    ",MpegHd",   ",Dv25",    ",Dv50",
        ",MJpeg",    ",MpegSd",    ",Open",      ",OpenShared", ",OpenExcl", ",Simple",  ",Rsv5",
        ",NonDrop",  ",DropFrame", ",Streaming", ",Dv100",      ",Avci",     ",Au16bit", ",Au24bit",
        ",Rsv6",     ",Recording", ",Copying",   ",Restoring",
    };
    static_assert(std::size(names) == 32);
    text.format("0x%x", static_cast<unsigned>(bits));
    for (unsigned bit = 0; bit < 32; ++bit) {
        if (((bits >> bit) & 1U) != 0) {
            text.cat(names[bit]);
        }
    }
    return text;
}

double getRealFrameRate(FrameRate rate) { return rowOf(rate).hertz; }

TrackType getTrackType(TrackMediaType type) {
    TrackMediaRow const* const row = rowOf(type);
    return row != nullptr ? row->trackType : trackTypeUnknown;
}

TrackType getTrackType(TrackTypeEncoding encoding) {
    switch (encoding) {
    case trackTypeEncodingAudio:
        return trackTypeAudio;
    case trackTypeEncodingDV25:
    case trackTypeEncodingDV50:
    case trackTypeEncodingMpeg2Hd:
    case trackTypeEncodingAVCI:
    case trackTypeEncodingMpeg1:
    case trackTypeEncodingMpeg2Sd:
    case trackTypeEncodingMotionJPEG:
        return trackTypeVideo;
    case trackTypeEncodingAncData:
        return trackTypeAncillaryData;
    case trackTypeEncodingTimecode:
        return trackTypeTimecode;
    case trackTypeEncodingDV100: // not known as video by its letter: intended
    default:
        return trackTypeUnknown;
    }
}

TrackType getTrackType(MediaType type) { return rowOf(type).trackType; }

TrackTypeEncoding getTypeEncoding(TrackMediaType type) {
    TrackMediaRow const* const row = rowOf(type);
    return row != nullptr ? row->encoding : trackTypeEncodingNone;
}

TrackTypeEncoding getTypeEncoding(MediaType type) { return rowOf(type).encoding; }

MediaType getMediaType(TrackMediaType type) {
    TrackMediaRow const* const row = rowOf(type);
    return row != nullptr ? row->mediaType : mediaTypeUnknown;
}

long long convertGxfTimeToPosixTime(long long gxfTime) {
    // From 1601 to 1970 there are 134774 days.
    constexpr long long epochDifference = 11644473600000000;
    return gxfTime / 10 - epochDifference;
}

AutoPtr<char> timeToString(unsigned long long gxfTime) {
    std::time_t const seconds = static_cast<std::time_t>(
        convertGxfTimeToPosixTime(static_cast<long long>(gxfTime)) / 1000000);
    // 26 bytes are what ctime_r asks for; it fails for a year of more than four digits.
    char buffer[32];
    char const* written = nullptr;
    {
        // ctime heeds a TZ that changed since the last call; ctime_r alone doesn't. What tzset
        // writes is the whole process's.
        static JMutex mutex;
        ScopeLock<JMutex> const lock(mutex);
        tzset();
        written = ctime_r(&seconds, buffer);
    }
    FormatStr text(128);
    text.cat(written != nullptr ? written : "null");
    AutoPtr<char> result(text.releaseArrayString());
    std::size_t const size = std::strlen(result.get());
    if (size != 0 && result.get()[size - 1] == '\n') {
        result.get()[size - 1] = '\0';
    }
    return result;
}

} // namespace GxfTypes
