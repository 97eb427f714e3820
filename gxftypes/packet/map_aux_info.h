#pragma once

#include <cstdint>
#include <string>

#include <gxftypes/packet/map_tag.h>

namespace GxfTypes {

/// The codec parameters of an MPEG track: lines of a key, a blank and a value.
struct MpegAuxInfo {
    enum AspectRatio : std::uint32_t { aspect4x3 = 0, aspect16x9 = 1 };

    /// Parses a text. Null or empty leaves all but the valid flag as it was. A line that isn't two
    /// pieces ends the parse; what stands before it stays in force. Keys that the text doesn't name
    /// keep their values.
    void init(char const* text);

    bool isValid() const { return auxValid; }
    AspectRatio getAspectRatio() const { return aspectRatio; }
    char const* getRawStr() const { return rawStr.c_str(); }

    /// Edits the raw text and nothing else; the character that it replaces is the r of "ar=", not
    /// the value: intended. Code 7 without a text, code 13 for a text without "ar=".
    OpResult setAspectRatio(AspectRatio ratio);

    std::string rawStr;
    bool auxValid = false;
    std::int32_t auxVersion = 0;
    double bitRate = 0; ///< bits per second
    std::int32_t iPerGop = 0;
    std::int32_t pPerI = 0;
    std::int32_t bPerIOrP = 0;
    std::int32_t pixelFormat = 0;
    std::int32_t chromaFormat = 0;
    std::int32_t closedGop = 0;
    std::int32_t slices = 0;
    std::int32_t numLines = 0;
    std::int32_t numPixels = 0;
    std::int32_t unused = 0; ///< no key writes it
    std::int32_t firstFieldFlag = 0;
    std::int32_t codedBytesPerGop = 0;
    AspectRatio aspectRatio = aspect4x3;

  private:
    bool setField(std::string const& key, std::string const& value);
};

/// The auxiliary bits of a DV track: a copy, which knows nothing of the tag it came from.
class DvAuxInfo {
  public:
    enum AspectRatio : std::uint32_t { aspect4x3 = 0, aspect16x9 = 1 };

    DvAuxInfo(TrackMediaType mediaType, AuxInfo const& aux) : m_aux(aux), m_mediaType(mediaType) {}

    bool isValid() const { return m_aux.getBits(30, 2) == 1; }
    /// DV100 is always 16:9; a media type that isn't DV is 4:3.
    AspectRatio getAspectRatio() const;
    /// Changes this copy alone, and only for DV25 and DV50.
    void setAspectRatio(AspectRatio ratio);

  private:
    int aspectBit() const;

    AuxInfo m_aux;
    TrackMediaType m_mediaType;
};

/// The auxiliary bits of an AVC-Intra track.
class AvciAuxInfo {
  public:
    enum ClassEncoding : std::uint32_t {
        classEncodingNone = 0,
        classEncoding1 = 1,
        classEncoding2 = 2,
    };

    explicit AvciAuxInfo(AuxInfo const& aux) : m_aux(aux) {}

    bool isValid() const {
        return getClassEncoding() != classEncodingNone && m_aux.getBits(4, 2) == 3;
    }
    ClassEncoding getClassEncoding() const;

  private:
    AuxInfo m_aux;
};

/// The auxiliary bytes of an ancillary data track.
class AncillaryDataAuxInfo {
  public:
    enum PresentationFormat : std::uint32_t {
        presentationFormatNone = 0,
        presentationFormat1 = 1,
        presentationFormat2 = 2,
    };

    explicit AncillaryDataAuxInfo(AuxInfo const& aux) : m_aux(aux) {}

    bool isValid() const { return getPresentationFormat() != presentationFormatNone; }
    PresentationFormat getPresentationFormat() const;
    /// Bytes of one field.
    unsigned short getFieldByteSize() const;

  private:
    AuxInfo m_aux;
};

} // namespace GxfTypes
