#include <gxftypes/xml/xml_values.h>

#include <cstring>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>

namespace GxfTypes {

namespace {

OpResult textError(char const* text) {
    return {OpResult::Error, GxfOpSubsystem::internalError, gxfOpSubsystem.getId(), text};
}

char const* orNull(xmlChar const* text) {
    return text != nullptr ? reinterpret_cast<char const*>(text) : "null";
}

FormatStr describe(int type, xmlChar const* name, xmlChar const* content) {
    FormatStr text(128);
    switch (type) {
    case XML_ELEMENT_NODE:
        text.cat("Element:");
        break;
    case XML_ATTRIBUTE_NODE:
        text.cat("Attribute:");
        break;
    case XML_TEXT_NODE:
        text.cat("Text:");
        break;
    case XML_CDATA_SECTION_NODE:
        text.cat("CDATA:");
        break;
    default:
        text.format("Other(%d):", type);
        break;
    }
    text.format("name=%s", orNull(name));
    text.format(",content=%s", orNull(content));
    return text;
}

template <typename Value> struct Word {
    char const* word;
    Value value;
};

template <typename Value, std::size_t N>
Value findHeld(char const* text, Word<Value> const (&words)[N], Value none) {
    for (auto const& word : words) {
        if (hasSubString(text, word.word)) {
            return word.value;
        }
    }
    return none;
}

} // namespace

char const* getValue(_xmlAttr* attr, OpResult& result) {
    result = OpResult::Ok;
    if (attr == nullptr) {
        result = textError("bad attribute node");
        return "";
    }
    xmlNode const* const child = attr->children;
    // An empty value is held as no child, or as an empty text.
    bool const isText = child != nullptr && child->type == XML_TEXT_NODE;
    if (child == nullptr || child->content == nullptr || (isText && *child->content == '\0')) {
        result = textError("bad value node");
        return "";
    }
    if (!isText) {
        FormatStr const text("%s is not a Text Node", xmlNodeToString(attr).get());
        result = textError(text.get());
        return "";
    }
    return reinterpret_cast<char const*>(child->content);
}

char const* getValue(_xmlAttr* attr) {
    OpResult ignored;
    return getValue(attr, ignored);
}

unsigned long long getUint64(_xmlAttr* attr, OpResult& result) {
    char const* const text = getValue(attr, result);
    if (!result || *text == '\0') {
        return 0;
    }
    unsigned long long const value = strToUint64(text, nullptr, 0);
    if (unsigned const error = getLastError()) {
        clearLastError();
        FormatStr const note("%s (%d)", text, static_cast<int>(error));
        result = OpResult(OpResult::Warning, GxfOpSubsystem::xmlDataMayNotBeUsable,
                          gxfOpSubsystem.getId(), note.get());
        return 0;
    }
    return value;
}

FormatStr xmlNodeToString(_xmlNode* node) {
    if (node == nullptr) {
        return FormatStr(128U);
    }
    // Only these kinds have the content in their record.
    bool const hasContent = node->type == XML_ELEMENT_NODE || node->type == XML_TEXT_NODE ||
                            node->type == XML_CDATA_SECTION_NODE || node->type == XML_PI_NODE ||
                            node->type == XML_COMMENT_NODE || node->type == XML_ENTITY_REF_NODE;
    return describe(node->type, node->name, hasContent ? node->content : nullptr);
}

FormatStr xmlNodeToString(_xmlAttr* attr) {
    // An attribute's record ends in front of where a node has its content.
    return attr != nullptr ? describe(attr->type, attr->name, nullptr) : FormatStr(128U);
}

FormatStr xmlNodeToString(_xmlError* error) {
    FormatStr text(128U);
    if (error == nullptr) {
        return text;
    }
    std::string message = error->message != nullptr ? error->message : "null";
    if (!message.empty() && message.back() == '\n') {
        message.pop_back();
    }
    text.format("err=%d:", error->code);
    return text.format("(%s)", message.c_str());
}

MediaType getMediaType(char const* text) {
    static constexpr Word<MediaType> words[] = {
        {"AudioTrack", mediaTypeAudio},
        {"TimeCodeTrack", mediaTypeTimecode},
        {"AncillaryDataTrack", mediaTypeAncillaryData},
        {"AvciVideoTrack", mediaTypeAvcI},
        {"DvcproHdTrack", mediaTypeDV100},
        {"Dvcpro50Track", mediaTypeDV50},
        {"Dvcpro25Track", mediaTypeDV25},
        {"MpegHiDefVideoTrack", mediaTypeMpeg2HD},
        {"MpegStdDefVideoTrack", mediaTypeMpeg2SD},
    };
    return text != nullptr ? findHeld(text, words, mediaTypeUnknown) : mediaTypeUnknown;
}

TrackType getTrackType(char const* text) {
    static constexpr Word<TrackType> words[] = {
        {"TimeCodeTrack", trackTypeTimecode},
        {"AudioTrack", trackTypeAudio},
        {"VideoTrack", trackTypeVideo},
        {"AncillaryDataTrack", trackTypeAncillaryData},
    };
    if (text == nullptr) {
        gxfError(GxfOpSubsystem::internalError);
        return trackTypeUnknown;
    }
    return findHeld(text, words, trackTypeUnknown);
}

AspectRatioConversion getArc(char const* text) {
    static constexpr Word<AspectRatioConversion> words[] = {
        {"stretch", aspectRatioConversionStretch},
        {"halfbars", aspectRatioConversionHalfbars},
        {"crop", aspectRatioConversionCrop},
        {"bars", aspectRatioConversionBars},
    };
    for (auto const& word : words) {
        if (text != nullptr && striCmp(text, word.word) == 0) {
            return word.value;
        }
    }
    return aspectRatioConversionDefault;
}

} // namespace GxfTypes
