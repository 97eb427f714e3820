#include <gxftypes/xml/gxf_xml_tree.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <iconv.h>

namespace GxfTypes {

namespace {

OpResult noXml(char const* text) {
    return {OpResult::Warning, GxfOpSubsystem::noXmlData, gxfOpSubsystem.getId(), text};
}

bool endsInNul(unsigned char const* text, unsigned length) {
    return length >= 2 && text[length - 1] == 0 && text[length - 2] == 0;
}

/// True when one of 16 characters is NUL.
bool holdsNul(unsigned char const* text) {
    constexpr std::uint64_t ones = 0x0001000100010001;
    std::uint64_t borrows = 0;
    for (unsigned i = 0; i < 4; ++i) {
        std::uint64_t four = 0;
        std::memcpy(&four, text + i * sizeof(four), sizeof(four));
        borrows |= (four - ones) & ~four;
    }
    return (borrows & ones << 15) != 0;
}

/// The offset of the first NUL character; `length` without one.
unsigned findNul(unsigned char const* text, unsigned length) {
    constexpr unsigned block = 32;
    unsigned i = 0;
    while (length - i >= block && !holdsNul(text + i)) {
        i += block;
    }
    for (; length - i >= 2; i += 2) {
        if (text[i] == 0 && text[i + 1] == 0) {
            return i;
        }
    }
    return length;
}

/// Writes a new file; -1 when it can't be opened, which is logged as a failure of `function`.
int writeFile(char const* function, char const* path, unsigned char const* bytes, unsigned count) {
    FsFileIO file("GxfXmlTree", path, 0);
    if (file.exists() && !file.remove()) {
        logIfFalse(false, function, Zorvan::baseName(__FILE__), __LINE__);
        return -1;
    }
    if (!file.open()) {
        logIfFalse(false, function, Zorvan::baseName(__FILE__), __LINE__);
        return -1;
    }
    int const written = file.write(bytes, static_cast<int>(count));
    file.close();
    return written;
}

} // namespace

OpResult GxfXmlTree::decode(GxfBuffer const& buffer, unsigned length) {
    length = std::min(length, buffer.nOccupied());
    unsigned char const* text = buffer.ptrBegin();
    unsigned start = 0;
    unsigned end = 0;
    OpResult result = findXmlBounds(text, length, start, end);
    if (!result) {
        return result;
    }
    if (start >= end) {
        return gxfError(GxfOpSubsystem::internalError);
    }
    text += start;
    unsigned textLength = end - start + 1;
    if (!sanitizeXmlStream(text, textLength)) {
        return {OpResult::Warning, GxfOpSubsystem::xmlDataMayNotBeUsable, gxfOpSubsystem.getId(),
                OpCodeLocation::here(), nullptr};
    }
    if (hasSantizedData()) {
        text = sanitizedXml.get();
        textLength = sanitizedLength;
        if (gxfDebug.on(gxfDebugXml)) {
            debugMsg("xml needed sanitation\n");
        }
    }
    utf8Xml = new unsigned char[textLength];
    utf8Length = textLength;
    utf8Length = convertToUtf8(text, textLength, utf8Xml.get(), textLength, result);
    if (!result) {
        return result;
    }
    result = decodeXml(utf8Xml.get(), utf8Length);
    if (result) {
        valid = true;
    }
    return result;
}

OpResult GxfXmlTree::findXmlBounds(unsigned char const* data, unsigned length, unsigned& start,
                                   unsigned& end) const {
    static constexpr unsigned char opening[] = {'<', 0, '?', 0, 'x', 0, 'm', 0, 'l', 0};
    static constexpr unsigned char closing[] = {'>', 0, '\r', 0, '\n', 0, 0, 0};
    constexpr unsigned bare = 2; // of these, the '>' alone

    start = 0;
    end = 0;
    unsigned char const* const behind = data + length;
    unsigned char const* const found =
        std::search(data, behind, std::begin(opening), std::end(opening));
    if (found == behind) {
        return noXml("could not locate xml start");
    }
    start = static_cast<unsigned>(found - data);
    for (unsigned j = length - 1; j > start && j != 0; --j) {
        bool const isWhole = j + 1 >= sizeof(closing) && std::memcmp(data + j + 1 - sizeof(closing),
                                                                     closing, sizeof(closing)) == 0;
        if (isWhole || std::memcmp(data + j + 1 - bare, closing, bare) == 0) {
            end = j;
            return OpResult::Ok;
        }
    }
    return noXml("could not locate xml end");
}

/// Room for the text and a NUL character. An array that is there already is kept, and its
/// sanitizedLength is its capacity.
void GxfXmlTree::makeSanitizedXml(unsigned length) {
    if (!hasSantizedData()) {
        sanitizedXml = new unsigned char[length + 2U];
        sanitizedLength = length + 2;
    }
}

bool GxfXmlTree::appendSanitized(unsigned char const* from, unsigned n, unsigned& written) {
    if (n > sanitizedLength || written > sanitizedLength - n) {
        return false;
    }
    std::copy_n(from, n, sanitizedXml.get() + written);
    written += n;
    return true;
}

OpResult GxfXmlTree::sanitizeXmlStream(unsigned char const* data, unsigned length) {
    static constexpr unsigned char nul[2] = {0, 0};
    unsigned copiedFrom = 0;
    unsigned written = 0;
    unsigned runMark = 0;
    unsigned zeroCount = 0;
    // Every run that counts holds a NUL character, and begins in it or one byte earlier.
    for (unsigned i = std::max(findNul(data, length), 4U) - 1; i < length; ++i) {
        if (data[i] == 0) {
            if (data[i - 1] == 0) {
                if (data[i - 2] != 0) {
                    runMark = i;
                }
                ++zeroCount;
            }
            continue;
        }
        if (zeroCount > 1) {
            makeSanitizedXml(length);
            // A run at the very start has no mark.
            unsigned const n = runMark > copiedFrom ? runMark - copiedFrom : 0;
            if (!appendSanitized(data + copiedFrom, n, written)) {
                return gxfError(GxfOpSubsystem::internalError);
            }
            copiedFrom = i;
        }
        zeroCount = 0;
    }
    if (!hasSantizedData() && !endsInNul(data, length)) {
        makeSanitizedXml(length);
    }
    if (hasSantizedData()) {
        if (!appendSanitized(data + copiedFrom, length - copiedFrom, written)) {
            return gxfError(GxfOpSubsystem::internalError);
        }
        if (!endsInNul(sanitizedXml.get(), written) && !appendSanitized(nul, 2, written)) {
            return gxfError(GxfOpSubsystem::internalError);
        }
    }
    sanitizedLength = written;
    return OpResult::Ok;
}

unsigned GxfXmlTree::convertToUtf8(unsigned char const* src, unsigned srcBytes, unsigned char* dst,
                                   unsigned dstCapacity, OpResult& result) {
    result = OpResult::Ok;
    if (srcBytes / 2 > dstCapacity) {
        result = gxfError(GxfOpSubsystem::internalError);
        return 0;
    }
    int const written = wideCharToMultiByte(
        1, 0, reinterpret_cast<char const*>(src), static_cast<int>(srcBytes),
        reinterpret_cast<char*>(dst), static_cast<int>(dstCapacity), nullptr, nullptr);
    if (written == 0) {
        FormatStr const text("conversion to utf8 failed [%s]",
                             BasicFileIO::getErrorName(getLastError()));
        result = OpResult(OpResult::Warning, GxfOpSubsystem::xmlDataMayNotBeUsable,
                          gxfOpSubsystem.getId(), text.get());
        return 0;
    }
    if (gxfDebug.on(gxfDebugXml)) {
        debugMsg("Converted %u UTF-16 chars to %u UTF-8 characters\n", srcBytes / 2,
                 static_cast<unsigned>(written));
    }
    return static_cast<unsigned>(written);
}

int wideCharToMultiByte(unsigned, unsigned, char const* src, int srcBytes, char* dst, int dstBytes,
                        char const*, bool*) {
    if (src == nullptr || dst == nullptr) {
        gxfError(GxfOpSubsystem::internalError);
        return -1;
    }
    if (srcBytes < 1 || dstBytes < 1) {
        gxfError(GxfOpSubsystem::internalError);
        return -1;
    }
    if (srcBytes % 2 != 0) {
        // Goes on: the conversion meets the stray byte at the end.
        FormatStr const text("UTF-16 input is an odd length of %u",
                             static_cast<unsigned>(srcBytes));
        OpResult const raised(OpResult::Error, GxfOpSubsystem::internalError,
                              gxfOpSubsystem.getId(), text.get());
    }
    iconv_t const converter = iconv_open("UTF-8", "UTF-16LE");
    if (reinterpret_cast<std::intptr_t>(converter) == -1) {
        static std::atomic<bool> iconvErrorLogged{false};
        if (!iconvErrorLogged.exchange(true)) {
            errorMsg("iconv_open(unicode => utf8) failure, are iconv libraries installed?\n");
        }
        return 0;
    }
    char* from = const_cast<char*>(src);
    auto fromLeft = static_cast<std::size_t>(srcBytes);
    char* to = dst;
    auto toLeft = static_cast<std::size_t>(dstBytes);
    auto const converted = static_cast<int>(iconv(converter, &from, &fromLeft, &to, &toLeft));
    int written = dstBytes - static_cast<int>(toLeft);
    if (converted < 0) {
        errorMsg("character conversion WC->MB failed [%d->%s]\n", errno,
                 BasicFileIO::getErrorName(getLastError()));
        clearLastError();
        written = 0;
    }
    iconv_close(converter);
    return written;
}

bool GxfXmlTree::saveXmlToFile(char const* path) const {
    if (path == nullptr) {
        return false;
    }
    if (utf8Xml.get() == nullptr || utf8Length == 0) {
        debugMsg("no xml data was not saved\n");
        return false;
    }
    unsigned const count = utf8Xml[utf8Length - 1] == 0 ? utf8Length - 1 : utf8Length;
    // Compared with the length that counts the NUL: intended.
    return writeFile(__func__, path, utf8Xml.get(), count) == static_cast<int>(utf8Length);
}

bool GxfXmlTree::saveUtf16ToFile(char const* path) const {
    if (path == nullptr) {
        return false;
    }
    if (!hasSantizedData()) {
        debugMsg("UTF16 data was not saved\n");
        return false;
    }
    return writeFile(__func__, path, sanitizedXml.get(), sanitizedLength) ==
           static_cast<int>(sanitizedLength);
}

AutoArrayPtr<char> GxfXmlTree::toString() const {
    FormatStr text("GxfXml:");
    text.format("valid=%s", valid ? "t" : "f");
    text.format(",sanitized=%s\n", hasSantizedData() ? "t" : "f");
    for (unsigned i = 0; i < xmlTracks.size(); ++i) {
        text.format(" track[%u]:%s\n", i, xmlTracks[i].toString().get());
    }
    return AutoArrayPtr<char>(text.releaseArrayString());
}

} // namespace GxfTypes
