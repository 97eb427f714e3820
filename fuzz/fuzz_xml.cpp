// The region of a UMF's tail that holds an XML document.
//
//     channels 1 | options 1 | length of the region 4, 0 for the true one | region or text
//
// options: form 2 (the region as it stands, a text of which each byte becomes a character of the
// region, a text for the parser alone) | XML channel 1 | dump channel 1

#include <algorithm>
#include <cerrno>
#include <malloc.h>
#include <optional>
#include <strings.h>

#include <fuzz/fuzz_input.h>
#include <fuzz/quiet_parser.h>

using namespace GxfTypes;
using namespace GxfFuzz;

namespace {

constexpr int parserOptions = XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
constexpr char const* refusal = "out of proportion to its size";

/// What the parser allocates, counted.
class ParserMemory {
  public:
    /// Before anything else of the parser. Its reports go nowhere.
    static void install() {
        static bool const isDone = [] {
            xmlMemSetup(&release, &allocate, &resize, &duplicate);
            xmlInitParser();
            silenceParser();
            return true;
        }();
        check(isDone);
    }
    static void begin() { peak = held; }
    static std::size_t peakSinceBegin(std::size_t before) { return peak - before; }

    static inline std::size_t held = 0;

  private:
    static void* counted(void* memory) {
        held += malloc_usable_size(memory);
        peak = std::max(peak, held);
        return memory;
    }
    static void release(void* memory) {
        held -= malloc_usable_size(memory);
        std::free(memory);
    }
    static void* allocate(std::size_t size) { return counted(std::malloc(size)); }
    static void* resize(void* memory, std::size_t size) {
        held -= malloc_usable_size(memory);
        return counted(std::realloc(memory, size));
    }
    static char* duplicate(char const* text) { return static_cast<char*>(counted(::strdup(text))); }

    static inline std::size_t peak = 0;
};

/// Where the document lies: the offsets of its first byte and of the one behind its last.
struct Bounds {
    std::size_t begin;
    std::size_t end;
};

bool standsAt(ByteVector const& bytes, std::size_t at, std::string_view text) {
    return at + text.size() <= bytes.size() &&
           std::memcmp(bytes.data() + at, text.data(), text.size()) == 0;
}

/// The warning's text when there is no document.
std::optional<Bounds> findNaively(ByteVector const& region, char const*& missing) {
    constexpr std::string_view opening("<\0?\0x\0m\0l\0", 10);
    constexpr std::string_view closing(">\0\r\0\n\0\0\0", 8);
    missing = "could not locate xml start";
    std::size_t begin = 0;
    while (begin < region.size() && !standsAt(region, begin, opening)) {
        ++begin;
    }
    if (begin >= region.size()) {
        return std::nullopt;
    }
    missing = "could not locate xml end";
    for (std::size_t end = region.size(); end > begin + 1; --end) {
        bool const isWhole =
            end >= closing.size() && standsAt(region, end - closing.size(), closing);
        if (isWhole || standsAt(region, end - 2, closing.substr(0, 2))) {
            return Bounds{begin, end};
        }
    }
    return std::nullopt;
}

/// The sanitiser byte by byte, and what it keeps from one document to the next.
class NaiveSanitiser {
  public:
    /// False when the array of an earlier document has no room.
    bool repair(ByteVector const& text) {
        std::size_t copied = 0;
        std::size_t mark = 0;
        std::size_t zeros = 0;
        m_repaired.clear();
        for (std::size_t i = 3; i < text.size(); ++i) {
            if (text[i] == 0) {
                mark = text[i - 1] == 0 && text[i - 2] != 0 ? i : mark;
                zeros += text[i - 1] == 0 ? 1 : 0;
                continue;
            }
            if (zeros > 1) {
                makeArray(text);
                if (!append(text, copied, std::max(mark, copied))) {
                    return false;
                }
                copied = i;
            }
            zeros = 0;
        }
        if (!m_hasArray && !endsInNul(text)) {
            makeArray(text);
        }
        if (m_hasArray) {
            if (!append(text, copied, text.size())) {
                return false;
            }
            if (!endsInNul(m_repaired) && !append({0, 0}, 0, 2)) {
                return false;
            }
        }
        m_capacity = m_repaired.size();
        return true;
    }

    bool hasArray() const { return m_hasArray; }
    ByteVector const& repaired() const { return m_repaired; }

  private:
    static bool endsInNul(ByteVector const& text) {
        return text.size() >= 2 && text.back() == 0 && text[text.size() - 2] == 0;
    }
    void makeArray(ByteVector const& text) {
        if (!m_hasArray) {
            m_hasArray = true;
            m_capacity = text.size() + 2;
        }
    }
    bool append(ByteVector const& from, std::size_t begin, std::size_t end) {
        if (m_repaired.size() + (end - begin) > m_capacity) {
            return false;
        }
        m_repaired.insert(m_repaired.end(), from.begin() + static_cast<std::ptrdiff_t>(begin),
                          from.begin() + static_cast<std::ptrdiff_t>(end));
        return true;
    }

    bool m_hasArray = false;
    std::size_t m_capacity = 0;
    ByteVector m_repaired;
};

void appendUtf8(std::string& text, std::uint32_t c) {
    auto const put = [&](std::uint32_t byte) { text += static_cast<char>(byte); };
    if (c < 0x80) {
        put(c);
    } else if (c < 0x800) {
        put(0xC0 | c >> 6);
        put(0x80 | (c & 0x3F));
    } else if (c < 0x10000) {
        put(0xE0 | c >> 12);
        put(0x80 | (c >> 6 & 0x3F));
        put(0x80 | (c & 0x3F));
    } else {
        put(0xF0 | c >> 18);
        put(0x80 | (c >> 12 & 0x3F));
        put(0x80 | (c >> 6 & 0x3F));
        put(0x80 | (c & 0x3F));
    }
}

/// UTF-16LE as UTF-8; nothing for what is broken or takes more bytes than before.
std::optional<std::string> toUtf8(ByteVector const& utf16) {
    auto const unitAt = [&](std::size_t i) {
        return static_cast<std::uint32_t>(utf16[i] | utf16[i + 1] << 8);
    };
    std::string text;
    std::size_t i = 0;
    for (; i + 2 <= utf16.size(); i += 2) {
        std::uint32_t c = unitAt(i);
        if (c >= 0xD800 && c < 0xE000) {
            i += 2;
            if (c >= 0xDC00 || i + 2 > utf16.size() || unitAt(i) < 0xDC00 || unitAt(i) >= 0xE000) {
                return std::nullopt;
            }
            c = 0x10000 + ((c - 0xD800) << 10) + (unitAt(i) - 0xDC00);
        }
        appendUtf8(text, c);
    }
    return i == utf16.size() && text.size() <= utf16.size() ? std::optional(text) : std::nullopt;
}

struct NaiveTrack {
    MediaType mediaType = mediaTypeUnknown;
    unsigned number = 0;
    std::optional<std::string> label;
    std::vector<std::pair<AspectRatio, AspectRatioConversion>> segments;
};

/// A second, naive walk over the document.
class NaiveWalk {
  public:
    explicit NaiveWalk(std::vector<NaiveTrack>& tracks) : m_tracks(tracks) {}

    void read(xmlNode const* parent, unsigned level) {
        for (xmlNode const* node = childrenOf(parent); node != nullptr; node = node->next) {
            if (node->type == XML_ELEMENT_NODE && isNamed(node, "track")) {
                m_tracks.push_back(trackOf(node));
            } else if (level < 6) {
                read(node, level + 1);
            }
        }
    }

  private:
    /// Below a reference hangs the entity's declaration.
    static xmlNode const* childrenOf(xmlNode const* node) {
        return node->type != XML_ENTITY_REF_NODE ? node->children : nullptr;
    }
    static bool isNamed(xmlNode const* node, char const* name) {
        return node->name != nullptr &&
               ::strcasecmp(reinterpret_cast<char const*>(node->name), name) == 0;
    }
    static bool isAnyOf(xmlNode const* node, std::initializer_list<char const*> names) {
        return std::any_of(names.begin(), names.end(),
                           [&](char const* name) { return isNamed(node, name); });
    }

    /// Each attribute of that name with a plain text that isn't empty; the last one counts.
    static std::optional<std::string> valueOf(xmlNode const* node, char const* name,
                                              bool (*isGood)(std::string const&) = nullptr) {
        std::optional<std::string> value;
        xmlAttr const* attr = node->type == XML_ELEMENT_NODE ? node->properties : nullptr;
        for (; attr != nullptr; attr = attr->next) {
            xmlNode const* const text = attr->children;
            if (::strcasecmp(reinterpret_cast<char const*>(attr->name), name) != 0 ||
                text == nullptr || text->type != XML_TEXT_NODE || *text->content == '\0') {
                continue;
            }
            std::string const found = reinterpret_cast<char const*>(text->content);
            if (isGood == nullptr || isGood(found)) {
                value = found;
            }
        }
        return value;
    }

    static bool isNumber(std::string const& text) {
        errno = 0;
        unsigned long long const number = std::strtoull(text.c_str(), nullptr, 0);
        bool const isGood = errno == 0 && number <= 255;
        errno = 0;
        return isGood;
    }

    static MediaType mediaTypeOf(std::string text) {
        std::transform(text.begin(), text.end(), text.begin(), [](char c) {
            return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
        });
        constexpr std::pair<char const*, MediaType> words[] = {
            {"AUDIOTRACK", mediaTypeAudio},
            {"TIMECODETRACK", mediaTypeTimecode},
            {"ANCILLARYDATATRACK", mediaTypeAncillaryData},
            {"AVCIVIDEOTRACK", mediaTypeAvcI},
            {"DVCPROHDTRACK", mediaTypeDV100},
            {"DVCPRO50TRACK", mediaTypeDV50},
            {"DVCPRO25TRACK", mediaTypeDV25},
            {"MPEGHIDEFVIDEOTRACK", mediaTypeMpeg2HD},
            {"MPEGSTDDEFVIDEOTRACK", mediaTypeMpeg2SD},
        };
        for (auto const& [word, mediaType] : words) {
            if (text.find(word) != std::string::npos) {
                return mediaType;
            }
        }
        return mediaTypeUnknown;
    }

    static std::string labelOf(std::string const& text) {
        std::string label;
        for (std::size_t i = 0; i < text.size(); ++i) {
            label += text[i];
            i += text.compare(i, 2, "%%") == 0 ? 1 : 0;
        }
        return label;
    }

    static NaiveTrack trackOf(xmlNode const* node) {
        NaiveTrack track;
        if (auto const text = valueOf(node, "trackType")) {
            track.mediaType = mediaTypeOf(*text);
        }
        if (auto const text = valueOf(node, "trackNumber", &isNumber)) {
            auto const number = static_cast<unsigned>(std::strtoull(text->c_str(), nullptr, 0));
            track.number = number != 0 ? number - 1 : 0;
        }
        if (auto const text = valueOf(node, "trackLabel")) {
            track.label = labelOf(*text);
        }
        for (xmlNode const* child = childrenOf(node); child != nullptr; child = child->next) {
            if (isNamed(child, "segment")) {
                track.segments.emplace_back(aspectRatioUnknown, aspectRatioConversionDefault);
                readSegment(child, track.segments.back());
            }
        }
        return track;
    }

    static void readSegment(xmlNode const* node,
                            std::pair<AspectRatio, AspectRatioConversion>& segment) {
        for (xmlNode const* media = childrenOf(node); media != nullptr; media = media->next) {
            if (!isNamed(media, "mediaSegment")) {
                continue;
            }
            for (xmlNode const* child = childrenOf(media); child != nullptr; child = child->next) {
                if (isAnyOf(child, {"AvciSegment", "DVCPRO25Segment", "DVCPRO50Segment",
                                    "DVCPROHDSegment", "MpegSegment", "MpegHiDefSegment"})) {
                    readPicture(child, segment);
                }
            }
        }
    }

    static void readPicture(xmlNode const* node,
                            std::pair<AspectRatio, AspectRatioConversion>& segment) {
        if (auto const text = valueOf(node, "AspectRatio")) {
            bool const isWide = ::strncasecmp(text->c_str(), "9x1", 3) == 0;
            segment.first = ::strncasecmp(text->c_str(), "3x4", 3) == 0 ? aspectRatio4x3
                            : isWide                                    ? aspectRatio16x9
                                                                        : aspectRatioUnknown;
        }
        if (auto const text = valueOf(node, "AspectRatioConversion")) {
            auto const is = [&](char const* word) {
                return ::strcasecmp(text->c_str(), word) == 0;
            };
            segment.second = is("stretch")    ? aspectRatioConversionStretch
                             : is("halfbars") ? aspectRatioConversionHalfbars
                             : is("crop")     ? aspectRatioConversionCrop
                             : is("bars")     ? aspectRatioConversionBars
                                              : aspectRatioConversionDefault;
        }
    }

    std::vector<NaiveTrack>& m_tracks;
};

void checkTrack(GxfXmlTrack const& track, NaiveTrack const& expected) {
    check(track.isValid());
    check(track.getType() == expected.mediaType && track.getTrackNum() == expected.number);
    check((track.getLabel() != nullptr) == expected.label.has_value());
    check(!expected.label || *expected.label == track.getLabel());
    check(track.getSegments().size() == expected.segments.size());
    for (unsigned i = 0; i < track.getSegments().size(); ++i) {
        GxfXmlSegment const& segment = track.getSegments()[i];
        check(segment.isValid() && segment.getAspectRatio() == expected.segments[i].first);
        check(segment.getAspectRatioConversion() == expected.segments[i].second);
    }
    UmfTrackNum const number = track.getUmfTrackNum();
    check(number.trackType == getTypeEncoding(expected.mediaType));
}

/// What the walk adds to the tracks of the tree, and whether the parser takes the text.
bool readNaively(std::string const& text, std::vector<NaiveTrack>& tracks) {
    xmlDoc* const document =
        xmlReadMemory(text.data(), static_cast<int>(text.size()), "naive", nullptr, parserOptions);
    if (document == nullptr) {
        return false;
    }
    // The root's own name doesn't matter.
    NaiveWalk(tracks).read(xmlDocGetRootElement(document), 1);
    xmlFreeDoc(document);
    return true;
}

/// One tree with all that it went through.
class Driver {
  public:
    Driver() { ParserMemory::install(); }

    void parse(ByteVector const& bytes) {
        begin();
        OpResult const result = m_tree.decodeXml(bytes.data(), static_cast<unsigned>(bytes.size()));
        checkParsed(result, {bytes.begin(), bytes.end()}, bytes.size());
        checkText();
    }

    void decode(ByteVector region, std::uint32_t length) {
        ByteVector const original = region;
        InputBuffer buffer(region, 0);
        begin();
        OpResult const result = m_tree.decode(buffer, length);
        check(region == original && buffer.nOccupied() == region.size());
        region.resize(std::min<std::size_t>(length, region.size()));
        checkDecoded(result, region);
        m_isValid = m_isValid || result;
        check(m_tree.isValid() == m_isValid);
        checkText();
    }

  private:
    void begin() {
        // What an earlier failure left there makes the first number of a document fail.
        clearLastError();
        ParserMemory::begin();
        m_heldBefore = ParserMemory::held;
    }

    void checkDecoded(OpResult const& result, ByteVector const& region) {
        char const* missing = nullptr;
        std::optional<Bounds> const bounds = findNaively(region, missing);
        if (!bounds) {
            check(result.getCode() == GxfOpSubsystem::noXmlData);
            check(std::strcmp(result.getText(), missing) == 0);
            return;
        }
        ByteVector text(region.begin() + static_cast<std::ptrdiff_t>(bounds->begin),
                        region.begin() + static_cast<std::ptrdiff_t>(bounds->end));
        bool const isRepaired = m_sanitiser.repair(text);
        check(m_tree.hasSantizedData() == m_sanitiser.hasArray());
        if (!isRepaired) {
            check(result.getCode() == GxfOpSubsystem::xmlDataMayNotBeUsable);
            return;
        }
        if (m_sanitiser.hasArray()) {
            text = m_sanitiser.repaired();
            check(std::equal(text.begin(), text.end(), m_tree.sanitizedXml.get()));
        }
        check(m_tree.sanitizedLength == m_sanitiser.repaired().size());
        std::optional<std::string> const utf8 = toUtf8(text);
        if (!utf8) {
            check(result.getCode() == GxfOpSubsystem::xmlDataMayNotBeUsable);
            check(m_tree.getUtf8Length() == 0);
            return;
        }
        check(m_tree.getUtf8Length() == utf8->size());
        check(std::memcmp(m_tree.getUtf8(), utf8->data(), utf8->size()) == 0);
        checkParsed(result, *utf8, region.size());
    }

    void checkParsed(OpResult const& result, std::string const& text, std::size_t size) {
        check(ParserMemory::peakSinceBegin(m_heldBefore) < 16'000'000 + 100 * size);
        bool const isTaken =
            std::strcmp(result.getText(), refusal) != 0 && readNaively(text, m_tracks);
        check((m_tree.xmlDoc != nullptr) == isTaken);
        check(isTaken ? result.getType() == OpResult::Ok
                      : result.getCode() == GxfOpSubsystem::xmlDecodeFailed);
        GxfXmlTree::Tracks const& tracks = m_tree.getXmlTracks();
        check(tracks.size() == m_tracks.size());
        for (unsigned i = 0; i < tracks.size(); ++i) {
            checkTrack(tracks[i], m_tracks[i]);
        }
    }

    void checkText() const {
        AutoArrayPtr<char> const text = m_tree.toString();
        std::string const begin = std::string("GxfXml:valid=") + (m_tree.isValid() ? "t" : "f") +
                                  ",sanitized=" + (m_tree.hasSantizedData() ? "t" : "f") + "\n";
        check(std::string_view(text.get()).starts_with(begin));
    }

    GxfXmlTree m_tree;
    NaiveSanitiser m_sanitiser;
    std::vector<NaiveTrack> m_tracks;
    std::size_t m_heldBefore = 0;
    bool m_isValid = false;
};

ByteVector widened(ByteVector const& text) {
    ByteVector bytes;
    for (unsigned char const c : text) {
        bytes.push_back(c);
        bytes.push_back(0);
    }
    return bytes;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    enum Form : unsigned { asRegion, asCharacters, asText };
    Input input(data, size);
    Surroundings const surroundings(input.u8());
    unsigned const options = input.u8();
    GxfTesting::ChannelSetting const debug(gxfDebug, gxfDebug.get() |
                                                         (options >> 2 & 1) << gxfDebugXml |
                                                         (options >> 3 & 1) << gxfDebugDumpXmlTree);
    std::uint32_t const claimed = input.u32();
    ByteVector const bytes = input.rest();
    unsigned const form = options & 3;

    Driver driver;
    if (form == asText) {
        driver.parse(bytes);
        driver.parse(bytes);
        return 0;
    }
    ByteVector const region = form == asCharacters ? widened(bytes) : bytes;
    auto const trueLength = static_cast<std::uint32_t>(region.size());
    // The second time the tree remembers the first.
    driver.decode(region, claimed != 0 ? claimed : trueLength);
    driver.decode(region, trueLength);
    return 0;
}
