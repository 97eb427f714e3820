#include <gxftypes/xml/gxf_xml_track.h>

#include <gxftypes/xml/xml_reader.h>

namespace GxfTypes {

namespace {

char const* trueOrFalse(bool value) { return value ? "t" : "f"; }

} // namespace

OpResult GxfXmlSegment::decode(_xmlNode* node) {
    static constexpr char const* names[] = {"Segment"};
    static constexpr char const* attributes[] = {
        "segmentIndex", "segmentName",     "segmentCode",   "segmentId",    "editId",
        "duration",     "naturalDuration", "startPosition", "numExtensions"};
    OpResult result = checkNode(node, names, "a segment node");
    if (!result) {
        return result;
    }
    XmlReaderNotes notes;
    passAttributes(node, attributes, notes);
    for (xmlNode* child = childrenOf(node); child != nullptr && result; child = child->next) {
        if (xmlStringCmp(child->name, "MediaSegment")) {
            result = decodeMediaSegment(child);
        } else {
            notes.unknownChild(child);
        }
    }
    notes.write();
    if (result) {
        valid = true;
    }
    return result;
}

OpResult GxfXmlSegment::decodeMediaSegment(_xmlNode* node) {
    static constexpr char const* names[] = {"MediaSegment"};
    static constexpr char const* attributes[] = {
        "fileType", "mediaIn",       "mediaOut",   "minMediaIn", "maxMediaOut",
        "fileName", "indexFileName", "sampleRate", "sampleSize", "videoFormat"};
    static constexpr char const* passedBy[] = {"AudioSegment", "TimecodeSegment",
                                               "AncillaryDataSegment"};
    static constexpr char const* dv[] = {"DVCPRO25Segment", "DVCPRO50Segment", "DVCPROHDSegment"};
    static constexpr char const* mpeg[] = {"MpegSegment", "MpegHiDefSegment"};
    OpResult result = checkNode(node, names, "a media node");
    if (!result) {
        return result;
    }
    XmlReaderNotes notes;
    passAttributes(node, attributes, notes);
    for (xmlNode* child = childrenOf(node); child != nullptr && result; child = child->next) {
        if (isOneOf(child->name, passedBy)) {
            continue;
        }
        if (xmlStringCmp(child->name, "AvciSegment")) {
            result = decodeAvciSegment(child);
        } else if (isOneOf(child->name, dv)) {
            result = decodeDvSegment(child);
        } else if (isOneOf(child->name, mpeg)) {
            result = decodeMpegSegment(child);
        } else {
            notes.unknownChild(child);
        }
    }
    notes.write();
    return result;
}

/// False for an attribute that a picture's segment doesn't have.
bool GxfXmlSegment::decodePictureAttribute(_xmlAttr* attr) {
    static constexpr char const* passedOver[] = {"Lines", "Pixels", "Afd"};
    OpResult result;
    if (xmlStringCmp(attr->name, "AspectRatio")) {
        char const* const value = getValue(attr, result);
        if (result) {
            aspect = getAspect(value);
        }
        return true;
    }
    if (xmlStringCmp(attr->name, "AspectRatioConversion")) {
        char const* const value = getValue(attr, result);
        if (result) {
            arc = getArc(value);
        }
        return true;
    }
    return isOneOf(attr->name, passedOver);
}

/// The attributes of a picture's segment, and its one kind of child, of which nothing is kept.
OpResult GxfXmlSegment::decodePicture(_xmlNode* node, char const* parameters,
                                      OpResult (GxfXmlSegment::*decodeParameters)(_xmlNode*)) {
    OpResult result;
    XmlReaderNotes notes;
    for (xmlAttr* attr = attributesOf(node); attr != nullptr; attr = attr->next) {
        if (!decodePictureAttribute(attr)) {
            notes.unknownAttribute(attr);
        }
    }
    for (xmlNode* child = childrenOf(node); child != nullptr && result; child = child->next) {
        if (!xmlStringCmp(child->name, parameters)) {
            notes.unknownChild(child);
        } else if (decodeParameters != nullptr) {
            result = (this->*decodeParameters)(child);
        }
    }
    notes.write();
    return result;
}

OpResult GxfXmlSegment::decodeMpegSegment(_xmlNode* node) {
    static constexpr char const* names[] = {"MpegSegment", "MpegHiDefSegment"};
    OpResult const result = checkNode(node, names, "a mpeg node");
    return result ? decodePicture(node, "MpegParameters", &GxfXmlSegment::decodeMpegParams)
                  : result;
}

OpResult GxfXmlSegment::decodeDvSegment(_xmlNode* node) {
    static constexpr char const* names[] = {"DVCPROHDSegment", "DVCPRO25Segment",
                                            "DVCPRO50Segment"};
    OpResult const result = checkNode(node, names, "a dv node");
    return result ? decodePicture(node, "DvParameters") : result;
}

OpResult GxfXmlSegment::decodeAvciSegment(_xmlNode* node) {
    static constexpr char const* names[] = {"AvciSegment"};
    OpResult const result = checkNode(node, names, "an avci node");
    return result ? decodePicture(node, "AvciParameters") : result;
}

OpResult GxfXmlSegment::decodeMpegParams(_xmlNode* node) {
    static constexpr char const* attributes[] = {"Chroma",
                                                 "GOPEnd",
                                                 "PixType",
                                                 "IPixPerGop",
                                                 "PPixPerIPix",
                                                 "BPixPerIPPix",
                                                 "MpegCompressionType"};
    return passElement(node, "MpegParameters", "a mpeg params node", attributes);
}

OpResult GxfXmlSegment::decodeAudioSegment(_xmlNode* node) {
    static constexpr char const* attributes[] = {"inputGain", "inputGainDuration", "outputGain",
                                                 "outputGainDuration", "audioFormat"};
    return passElement(node, "AudioSegment", "an audio node", attributes);
}

OpResult GxfXmlSegment::decodeTimecodeSegment(_xmlNode* node) {
    static constexpr char const* attributes[] = {"FirstMediaTimecodeMask", "LastMediaTimecodeMask",
                                                 "MediaInStr", "MediaOutStr", "DropFrame"};
    return passElement(node, "TimecodeSegment", "a timecode node", attributes);
}

AspectRatio GxfXmlSegment::getAspect(char const* text) {
    if (text == nullptr) {
        return aspectRatioUnknown;
    }
    if (strniCmp(text, "3x4", 3) == 0) {
        return aspectRatio4x3;
    }
    return strniCmp(text, "9x16", 3) == 0 ? aspectRatio16x9 : aspectRatioUnknown;
}

FormatStr GxfXmlSegment::toString() const {
    FormatStr text(128U);
    text.format("valid=%s", trueOrFalse(valid));
    text.format(",arc=%s", getName(arc));
    return text.format(",aspect=%s", getName(aspect));
}

OpResult GxfXmlTrack::decode(_xmlNode* node) {
    static constexpr char const* names[] = {"Track"};
    OpResult result = checkNode(node, names, "a track node");
    if (!result) {
        return result;
    }
    XmlReaderNotes notes;
    for (xmlAttr* attr = attributesOf(node); attr != nullptr; attr = attr->next) {
        if (!decodeAttribute(attr)) {
            notes.unknownAttribute(attr);
        }
    }
    for (xmlNode* child = childrenOf(node); child != nullptr && result; child = child->next) {
        if (!xmlStringCmp(child->name, "Segment")) {
            notes.unknownChild(child);
            continue;
        }
        GxfXmlSegment segment;
        result = segment.decode(child);
        if (result) {
            segments.push_back(segment);
        }
    }
    notes.write();
    if (result) {
        valid = true;
    }
    return result;
}

/// False for an attribute that a track doesn't have.
bool GxfXmlTrack::decodeAttribute(_xmlAttr* attr) {
    static constexpr char const* passedOver[] = {"trackId", "trackLength", "numSegments",
                                                 "numExtensions"};
    OpResult result;
    if (xmlStringCmp(attr->name, "trackType")) {
        char const* const value = getValue(attr, result);
        if (result) {
            mediaType = GxfTypes::getMediaType(value);
        }
        return true;
    }
    if (xmlStringCmp(attr->name, "trackNumber")) {
        unsigned long long const number = getUint64(attr, result);
        if (result && number <= 255) {
            xmlTrackNum = static_cast<std::uint8_t>(number != 0 ? number - 1 : 0);
        }
        return true;
    }
    if (xmlStringCmp(attr->name, "trackLabel")) {
        char const* const value = getValue(attr, result);
        if (result && *value != '\0') {
            // In the role of a format without arguments: intended.
            FormatStr text(128U);
            text.catAsFormat(value);
            label = text.releaseArrayString();
        }
        return true;
    }
    return isOneOf(attr->name, passedOver);
}

UmfTrackNum GxfXmlTrack::getUmfTrackNum() const {
    return {getTypeEncoding(getType()), UmfTrackNum::umfTrackNumToTrackNumEncoding(getTrackNum())};
}

FormatStr GxfXmlTrack::toString() const {
    FormatStr text(128U);
    text.format("valid=%s", trueOrFalse(valid));
    text.format(",type=%s", getName(mediaType));
    text.format(",num=%d", xmlTrackNum);
    text.format(",label=%s\n", label.get() != nullptr ? label.get() : "null");
    for (unsigned i = 0; i < segments.size(); ++i) {
        text.format("  clip[%u]:%s", i, segments[i].toString().get());
    }
    return text;
}

} // namespace GxfTypes
