#pragma once

#include <cstring>

#include <gxftypes/packet/vocabulary.h>

struct _xmlAttr;
struct _xmlError;
struct _xmlNode;

namespace GxfTypes {

/// True when both are there and equal, whatever the case.
inline bool xmlStringCmp(unsigned char const* xmlName, char const* name) {
    if (xmlName == nullptr || name == nullptr) {
        return false;
    }
    // Most names differ in the first letter, of which one bit is the case, or are the same.
    constexpr unsigned caseBit = 0x20;
    unsigned const difference = *xmlName ^ static_cast<unsigned char>(*name);
    char const* const text = reinterpret_cast<char const*>(xmlName);
    return (difference & ~caseBit) == 0 &&
           (std::strcmp(text, name) == 0 || striCmp(text, name) == 0);
}

/// The text of an attribute, which stays the document's; "" and an error of code 7 without one.
char const* getValue(_xmlAttr* attr, OpResult& result);
char const* getValue(_xmlAttr* attr);

/// The number of an attribute: decimal, 0x for hexadecimal, a leading 0 for octal. 0 and a warning
/// of code 21 when errno isn't 0 behind the conversion, whoever set it: intended.
unsigned long long getUint64(_xmlAttr* attr, OpResult& result);

/// Empty for null.
FormatStr xmlNodeToString(_xmlNode* node);
FormatStr xmlNodeToString(_xmlAttr* attr);
FormatStr xmlNodeToString(_xmlError* error);

/// By what the text holds, whatever the case; 13 when it holds none of the known words.
MediaType getMediaType(char const* text);
TrackType getTrackType(char const* text);
/// By the whole word, whatever the case.
AspectRatioConversion getArc(char const* text);

} // namespace GxfTypes
