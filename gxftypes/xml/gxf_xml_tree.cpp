#include <gxftypes/xml/gxf_xml_tree.h>

#include <libxml/xmlerror.h>
#include <mutex>

#include <gxftypes/xml/xml_parser.h>
#include <gxftypes/xml/xml_reader.h>

namespace GxfTypes {

namespace {

constexpr unsigned deepest = 5;

/// Memory that libxml2 fills.
class XmlBuffer {
  public:
    XmlBuffer(xmlChar* bytes, int count) : data(bytes), size(count) {}
    XmlBuffer(XmlBuffer const&) = delete;
    XmlBuffer& operator=(XmlBuffer const&) = delete;
    ~XmlBuffer() { xmlFree(data); }

    xmlChar* data;
    int size;
};

OpResult parserError() {
    FormatStr const text = xmlNodeToString(xmlGetLastError());
    return {OpResult::Error, GxfOpSubsystem::xmlDecodeFailed, gxfOpSubsystem.getId(), text.get()};
}

void initParserOnce() {
    static std::once_flag once;
    std::call_once(once, xmlInitParser);
}

} // namespace

GxfXmlTree::~GxfXmlTree() {
    if (xmlDoc != nullptr) {
        xmlFreeDoc(xmlDoc);
    }
}

OpResult GxfXmlTree::decodeXml(unsigned char const* text, unsigned length) {
    int const options = gxfDebug.on(gxfDebugXml) ? 0 : XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    initParserOnce();
    if (xmlDoc != nullptr) {
        xmlFreeDoc(xmlDoc);
        xmlDoc = nullptr;
        OpResult(OpResult::Warning, GxfOpSubsystem::internalWarning, gxfOpSubsystem.getId(),
                 "existing XML tree\n");
    }
    XmlParser parser;
    xmlDoc = parser.read(reinterpret_cast<char const*>(text), length, "GxfXmlTree", options);
    if (parser.isRefused()) {
        return {OpResult::Error, GxfOpSubsystem::xmlDecodeFailed, gxfOpSubsystem.getId(),
                "out of proportion to its size"};
    }
    if (xmlDoc == nullptr) {
        return parserError();
    }
    if (gxfDebug.on(gxfDebugDumpXmlTree)) {
        XmlBuffer dump(nullptr, 0);
        xmlDocDumpFormatMemoryEnc(xmlDoc, &dump.data, &dump.size, "UTF-8", 1);
        debugMsg("%s", dump.data != nullptr ? reinterpret_cast<char const*>(dump.data) : "");
    }
    xmlNode* const root = xmlDocGetRootElement(xmlDoc);
    if (root == nullptr) {
        return parserError();
    }
    return readSubTree(root->children, 0);
}

OpResult GxfXmlTree::readSubTree(_xmlNode* node, unsigned depth) {
    if (depth > deepest) {
        if (gxfDebug.on(gxfDebugXml)) {
            debugMsg("reached max xml depth with %s", xmlNodeToString(node).get());
        }
        return {OpResult::Warning, GxfOpSubsystem::xmlTreeTooLarge, gxfOpSubsystem.getId(),
                OpCodeLocation::here(), nullptr};
    }
    OpResult result;
    XmlReaderNotes notes;
    for (; node != nullptr && result; node = node->next) {
        bool descend = true;
        if (node->type == XML_ELEMENT_NODE) {
            result = readElement(node, descend, notes);
        }
        // Below a reference to an entity hangs its declaration, not the document.
        if (!descend || node->type == XML_ENTITY_REF_NODE) {
            continue;
        }
        result = readSubTree(node->children, depth + 1);
        if (result.getCode() == GxfOpSubsystem::xmlTreeTooLarge) {
            result = OpResult::Ok;
        }
    }
    notes.write();
    return result;
}

OpResult GxfXmlTree::readElement(_xmlNode* node, bool& descend, XmlReaderNotes& notes) {
    static constexpr char const* accepted[] = {"Data", "Extension", "DVParameters",
                                               "MpegParameters", "AvciParameters"};
    if (xmlStringCmp(node->name, "Track")) {
        descend = false;
        GxfXmlTrack track;
        OpResult const result = track.decode(node);
        if (result) {
            xmlTracks.push_back(track);
        }
        return result;
    }
    if (xmlStringCmp(node->name, "Header")) {
        return decodeHeader(node);
    }
    if (xmlStringCmp(node->name, "Movie")) {
        return decodeMovie(node);
    }
    if (xmlStringCmp(node->name, "TrackCount")) {
        return decodeTrackCount(node);
    }
    if (xmlStringCmp(node->name, "Attributes")) {
        return decodeMovieAttributes(node);
    }
    if (!isOneOf(node->name, accepted)) {
        notes.unknownElement(node);
    }
    return OpResult::Ok;
}

OpResult GxfXmlTree::decodeHeader(_xmlNode* node) {
    static constexpr char const* attributes[] = {"Version"};
    return passElement(node, "Header", "a header node", attributes);
}

OpResult GxfXmlTree::decodeMovie(_xmlNode* node) {
    static constexpr char const* attributes[] = {
        "uri",       "machineName", "movieName",         "groupName",        "datasetName",
        "movieId",   "groupId",     "minLength",         "maxLength",        "markIn",
        "markOut",   "created",     "modified",          "videoFormat",      "lengthStr",
        "markInStr", "markOutStr",  "firstTimecodeMask", "lastTimecodeMask", "startTimecodeMask",
        "openCount", "accessCount", "totalExtensions",   "numExtensions"};
    return passElement(node, "Movie", "a movie node", attributes);
}

OpResult GxfXmlTree::decodeTrackCount(_xmlNode* node) {
    static constexpr char const* attributes[] = {
        "NumJpeg",  "NumMpeg",  "NumMpegHiDef", "NumDVCPRO25", "NumDVCPRO50",
        "NumMpeg1", "NumAudio", "NumTimecode",  "NumAncData",  "NumVideo"};
    return passElement(node, "TrackCount", "a track count node", attributes);
}

OpResult GxfXmlTree::decodeMovieAttributes(_xmlNode* node) {
    static constexpr char const* attributes[] = {"AttributeMask1",  "AttributeMask2",
                                                 "OpenMode",        "Locked",
                                                 "ReadOnly",        "Structure",
                                                 "Extended",        "Construction",
                                                 "VideoSampleRate", "VideoCompressionType",
                                                 "AudioSampleSize", "DropFrame",
                                                 "Repeat"};
    return passElement(node, "Attributes", "a movie attribute node", attributes);
}

} // namespace GxfTypes
