#pragma once

#include <gxftypes/packet/umf_track_num.h>

namespace GxfTypes {

/// A track of the UMF.
///
///     trackNumber 1 | trackType 1 | numSegments 2
struct UmfTrackDesc {
    static constexpr unsigned wireSize = 4;

    unsigned short getNumSegments() const { return numSegments; }

    /// `available` in bytes. Code 9, with nothing consumed, below 4.
    OpResult decode(GxfBuffer& buffer, unsigned available);
    /// Code 12 without room for 4 bytes.
    OpResult encode(GxfBuffer& buffer) const;
    bool isEqual(UmfTrackDesc const& other) const;
    AutoPtr<char> toString() const { return textOf(*this); }
    FormatStr& toString(unsigned indent, FormatStr& text) const;

    /// The number that a character stands for; 0xFFFFFFFF for one that stands for none.
    static unsigned trackNumberOf(TrackNumberEncoding encoding);

    TrackNumberEncoding trackNumber{};
    TrackTypeEncoding trackType{};
    std::uint16_t numSegments = 0;
    bool valid = false;
};

/// The media of one segment of a track: 160 bytes, least significant byte first.
///
///     length 2 | trackNum 2 | sequence 2 | reservedA 2 | numFields 4 | reservedB 4 | fieldIn 4 |
///     fieldOut 4 | mediaName 88 | mediaType 4 | sampleRate 4 | sampleBits 4 | reservedC 4 |
///     Specification 32, whose layout the media type chooses
struct UmfMediaDesc {
    static constexpr unsigned wireSize = 160;
    static constexpr unsigned nameSize = 88;

    enum ColorSampling : std::uint32_t { colorSampling420 = 1, colorSampling422 = 2 };
    enum GopStructure : std::uint32_t { gopStructureOpenGop = 0, gopStructureClosedGop = 1 };
    enum FrameFieldStructure : std::uint32_t {
        frameFieldStructureTopFF = 1,
        frameFieldStructureBottomFF = 2,
        frameFieldStructureFrame = 3,
    };
    enum MpegType : std::uint32_t { mpegTypeMpeg1 = 1, mpegTypeMpeg2 = 2, mpegTypeMpeg2Cbr = 4 };
    enum Aspect : std::uint32_t { aspect4x3 = 64, aspect16x9 = 128 };
    enum TimecodeType : std::uint32_t { timecodeTypeDrop = 0, timecodeTypeNonDrop = 1 };

    struct AnyAudio {
        bool isEqual(AnyAudio const& other) const;
        FormatStr& toString(FormatStr& text) const;

        double levelBegin;
        double levelEnd;
        std::uint32_t rampUpFields;
        std::uint32_t rampDownFields;
    };

    struct AnyVideo {
        bool isEqual(AnyVideo const& other) const;
        FormatStr& toString(FormatStr& text) const;

        Aspect aspect;
        std::uint8_t afd; ///< 4 bits
    };

    struct MpegVideo : AnyVideo {
        bool isEqual(MpegVideo const& other) const;
        /// Prints iPictures for all three counts of pictures: intended.
        FormatStr& toString(FormatStr& text) const;
        /// 128 is 16:9, all else 4:3.
        void setAspect(unsigned char bits);

        ColorSampling colorSampling;
        GopStructure gopStructure;
        FrameFieldStructure frameFieldStructure;
        std::uint32_t iPictures;
        std::uint32_t pPictures;
        std::uint32_t bPictures;
        MpegType mpegType;
    };

    struct DvVideo : AnyVideo {
        bool isEqual(DvVideo const& other) const;
        /// 128 is 16:9, all else 4:3, also 128 with the flag's bit beside it: intended.
        void setAspect(unsigned char bits);

        bool dvFlag;
    };

    struct AvcIntraVideo : AnyVideo {
        /// Always 16:9.
        void setAspect(unsigned char bits);
    };

    /// All variants start at the same place.
    union Specification {
        /// By the variant of the media type.
        bool isEqual(Specification const& other, MediaType kind) const;

        AnyAudio audio;
        TimecodeType timecodeType;
        AnyVideo video;
        MpegVideo mpeg;
        DvVideo dv;
        AvcIntraVideo avcIntra;
    };

    UmfMediaDesc();
    UmfMediaDesc(UmfMediaDesc const&) = default;
    UmfMediaDesc& operator=(UmfMediaDesc const&) = default;

    unsigned short getLength() const { return length; }
    UmfTrackNum const& getTrackNum() const { return trackNum; }

    /// `available` in bytes. Code 9, with nothing consumed, below 160. Any media type will do.
    OpResult decode(GxfBuffer& buffer, unsigned available);
    /// Code 12 without room for 160 bytes; code 13, with the fixed part written, for a media type
    /// without a layout and for Motion JPEG, which decodes: intended.
    OpResult encode(GxfBuffer& buffer) const;
    /// The reserved fields take no part.
    bool isEqual(UmfMediaDesc const& other) const;
    /// All but the reserved fields, and of its variant the fields that it has.
    void copy(UmfMediaDesc const& other);
    AutoPtr<char> toString() const { return textOf(*this); }
    FormatStr& toString(unsigned indent, FormatStr& text) const;

    bool valid = false;
    std::uint16_t length = 0; ///< as it came from the wire
    UmfTrackNum trackNum;
    std::uint16_t sequence = 0;
    std::uint16_t reservedA = 0;
    std::uint32_t numFields = 0;
    std::uint32_t reservedB = 0;
    std::uint32_t fieldIn = 0;
    std::uint32_t fieldOut = 0;
    char mediaName[nameSize + 1] = {}; ///< no decode overwrites the last byte
    MediaType mediaType{};
    std::uint32_t sampleRate = 0; ///< in hertz
    std::uint32_t sampleBits = 0;
    std::uint32_t reservedC = 0;
    Specification spec;

  private:
    void decodeSpecification(GxfBuffer& buffer);
    OpResult encodeSpecification(GxfBuffer& buffer) const;
};

char const* getName(UmfMediaDesc::ColorSampling);
char const* getName(UmfMediaDesc::GopStructure);
char const* getName(UmfMediaDesc::FrameFieldStructure);
char const* getName(UmfMediaDesc::MpegType);
char const* getName(UmfMediaDesc::Aspect);
char const* getName(UmfMediaDesc::TimecodeType);

} // namespace GxfTypes
