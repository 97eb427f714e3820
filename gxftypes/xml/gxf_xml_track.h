#pragma once

#include <gxftypes/packet/umf_track_num.h>
#include <gxftypes/xml/xml_values.h>

namespace GxfTypes {

/// What the XML says of one segment of a track. Values are copied out of the document.
class GxfXmlSegment {
  public:
    /// Each reads a node of its name: an error of code 7 for null or another name. A bad value is
    /// no failure and leaves its field.
    OpResult decode(_xmlNode* node);
    OpResult decodeMediaSegment(_xmlNode* node);
    OpResult decodeMpegSegment(_xmlNode* node);
    OpResult decodeDvSegment(_xmlNode* node);
    OpResult decodeAvciSegment(_xmlNode* node);
    OpResult decodeMpegParams(_xmlNode* node);
    // Nothing calls these two: intended.
    OpResult decodeAudioSegment(_xmlNode* node);
    OpResult decodeTimecodeSegment(_xmlNode* node);

    /// The document has the numbers in the reverse order: "3x4", "9x16". Any text that begins with
    /// "9x1" counts as the second: intended.
    AspectRatio getAspect(char const* text);
    FormatStr toString() const;

    bool isValid() const { return valid; }
    AspectRatio getAspectRatio() const { return aspect; }
    AspectRatioConversion getAspectRatioConversion() const { return arc; }

    bool valid = false;
    AspectRatioConversion arc = aspectRatioConversionDefault;
    AspectRatio aspect = aspectRatioUnknown;

  private:
    bool decodePictureAttribute(_xmlAttr* attr);
    OpResult decodePicture(_xmlNode* node, char const* parameters,
                           OpResult (GxfXmlSegment::*decodeParameters)(_xmlNode*) = nullptr);
};

/// What the XML says of a track. A copy takes the label away from the source: intended.
class GxfXmlTrack {
  public:
    using Segments = FixedMinVector<GxfXmlSegment, 1U>;

    /// Code 7 for null or another name, or the failure of a segment. A bad value is no failure.
    OpResult decode(_xmlNode* node);

    bool isValid() const { return valid; }
    MediaType getType() const { return mediaType; }
    /// Counts from 0, where the document counts from 1.
    unsigned char getTrackNum() const { return xmlTrackNum; }
    UmfTrackNum getUmfTrackNum() const;
    /// Stays the track's; null without one.
    char const* getLabel() const { return label.get(); }
    Segments const& getSegments() const { return segments; }
    FormatStr toString() const;

    bool valid = false;
    MediaType mediaType = mediaTypeUnknown;
    std::uint8_t xmlTrackNum = 0;
    AutoArrayPtr<char> label;
    Segments segments;

  private:
    bool decodeAttribute(_xmlAttr* attr);
};

} // namespace GxfTypes
