#pragma once

#include <gxftypes/xml/gxf_xml_track.h>

struct _xmlDoc;

namespace GxfTypes {

class XmlReaderNotes;

/// The XML document in the tail of a UMF: found in its region, repaired, converted from UTF-16LE to
/// UTF-8, parsed, and walked for its tracks.
///
/// A second decode() on the same tree meets what the first one left: intended, since no reset of a
/// packet reaches the tree. The new tracks come behind the old ones, a repaired text has no more
/// room than the one before, and isValid() stays true.
class GxfXmlTree {
  public:
    using Tracks = FixedMinVector<GxfXmlTrack, 16U>;

    GxfXmlTree() = default;
    GxfXmlTree(GxfXmlTree const&) = delete;
    GxfXmlTree& operator=(GxfXmlTree const&) = delete;
    ~GxfXmlTree();

    /// Looks for the document in `length` bytes from the buffer's begin, as far as they are there;
    /// consumes nothing. Warnings of code 19 (no document), 21 (not usable), an error of code 22
    /// (the parser refuses it) or 7.
    OpResult decode(GxfBuffer const& buffer, unsigned length);

    /// `start` and `end` become the offsets of the document's first and last byte. A warning of
    /// code 19 without one.
    OpResult findXmlBounds(unsigned char const* data, unsigned length, unsigned& start,
                           unsigned& end) const;
    /// Takes runs of zero bytes out of a text and makes it end in a NUL character; keeps the result
    /// only when something had to change. Code 7 when there is no room.
    OpResult sanitizeXmlStream(unsigned char const* data, unsigned length);
    /// The bytes written; 0 on failure, which `result` tells.
    unsigned convertToUtf8(unsigned char const* src, unsigned srcBytes, unsigned char* dst,
                           unsigned dstCapacity, OpResult& result);

    OpResult decodeXml(unsigned char const* text, unsigned length);
    /// Walks a row of siblings, six levels deep.
    OpResult readSubTree(_xmlNode* node, unsigned depth);
    OpResult decodeHeader(_xmlNode* node);
    OpResult decodeMovie(_xmlNode* node);
    OpResult decodeTrackCount(_xmlNode* node);
    OpResult decodeMovieAttributes(_xmlNode* node);

    bool isValid() const { return valid; }
    bool hasSantizedData() const { return sanitizedXml.get() != nullptr; }
    Tracks const& getXmlTracks() const { return xmlTracks; }
    /// The document as UTF-8, a closing NUL included; stays the tree's.
    unsigned char const* getUtf8() const { return utf8Xml.get(); }
    unsigned getUtf8Length() const { return utf8Length; }

    /// Writes the document without its closing NUL, and yet answers false when it had one:
    /// intended.
    bool saveXmlToFile(char const* path) const;
    /// Writes the repaired UTF-16 text; false without one.
    bool saveUtf16ToFile(char const* path) const;
    AutoArrayPtr<char> toString() const;

    bool valid = false;
    _xmlDoc* xmlDoc = nullptr;
    AutoArrayPtr<unsigned char> utf8Xml;
    std::uint32_t utf8Length = 0;
    AutoArrayPtr<unsigned char> sanitizedXml;
    std::uint32_t sanitizedLength = 0;
    Tracks xmlTracks;

  private:
    void makeSanitizedXml(unsigned length);
    bool appendSanitized(unsigned char const* from, unsigned n, unsigned& written);
    OpResult readElement(_xmlNode* node, bool& descend, XmlReaderNotes& notes);
};

/// Converts UTF-16LE to UTF-8; all but the texts and their sizes is ignored. The bytes written, 0
/// for a failed conversion, -1 for bad arguments.
int wideCharToMultiByte(unsigned codePage, unsigned flags, char const* src, int srcBytes, char* dst,
                        int dstBytes, char const* defaultChar, bool* usedDefault);

} // namespace GxfTypes
