#include <gxftypes/packet/map_aux_info.h>

#include <cstdlib>
#include <vector>

namespace GxfTypes {

namespace {

/// atoi for any text: a number that doesn't fit is cut to 32 bits.
std::int32_t toInt(std::string const& text) {
    return static_cast<std::int32_t>(std::strtol(text.c_str(), nullptr, 10));
}

std::int32_t toIntTimes16(std::string const& text) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(toInt(text)) * 16U);
}

struct NumberKey {
    char const* key;
    std::int32_t MpegAuxInfo::*field;
    std::int32_t (*parse)(std::string const&);
};

constexpr NumberKey numberKeys[] = {
    {"Ver", &MpegAuxInfo::auxVersion, toInt},
    {"Ipg", &MpegAuxInfo::iPerGop, toInt},
    {"Ppi", &MpegAuxInfo::pPerI, toInt},
    {"Bpiop", &MpegAuxInfo::bPerIOrP, toInt},
    {"Pix", &MpegAuxInfo::pixelFormat, toInt},
    {"Cf", &MpegAuxInfo::chromaFormat, toInt},
    {"Cg", &MpegAuxInfo::closedGop, toInt},
    {"Sl", &MpegAuxInfo::slices, toInt},
    {"nl16", &MpegAuxInfo::numLines, toIntTimes16},
    {"np16", &MpegAuxInfo::numPixels, toIntTimes16},
    // The same field as np16: the key that comes last wins. Intended.
    {"bit", &MpegAuxInfo::numPixels, toIntTimes16},
    {"f1", &MpegAuxInfo::firstFieldFlag, toInt},
    {"cbpg", &MpegAuxInfo::codedBytesPerGop, toInt},
};

} // namespace

void MpegAuxInfo::init(char const* text) {
    auxValid = false;
    if (text == nullptr || *text == '\0') {
        return;
    }
    rawStr = text;

    std::vector<std::string> lines;
    strSplit(lines, rawStr, "\n");
    for (std::string const& line : lines) {
        std::vector<std::string> pieces;
        strSplit(pieces, line, " ");
        if (pieces.size() != 2) {
            logIfFalse(false, "init", Zorvan::baseName(__FILE__), __LINE__);
            return;
        }
        if (!setField(pieces[0], pieces[1]) && gxfDebug.on(gxfDebugErrors)) {
            FormatStr const unknown("MpegAuxInfo: \"%s=%s\" unknown", pieces[0].c_str(),
                                    pieces[1].c_str());
            OpResult(OpResult::Error, GxfOpSubsystem::badDecodeData, gxfOpSubsystem.getId(),
                     unknown.get());
        }
    }
    // Whatever "Vi" said: intended.
    auxValid = true;
}

/// False for an unknown key. Keys are compared case-blind.
bool MpegAuxInfo::setField(std::string const& key, std::string const& value) {
    for (NumberKey const& known : numberKeys) {
        if (striCmp(key.c_str(), known.key) == 0) {
            this->*known.field = known.parse(value);
            return true;
        }
    }
    if (striCmp(key.c_str(), "Br") == 0) {
        bitRate = std::atof(value.c_str());
        return true;
    }
    if (striCmp(key.c_str(), "Vi") == 0) {
        auxValid = toInt(value) == 1;
        return true;
    }
    if (striCmp(key.c_str(), "ar") == 0) {
        aspectRatio = static_cast<AspectRatio>(toInt(value));
        return true;
    }
    return false;
}

OpResult MpegAuxInfo::setAspectRatio(AspectRatio ratio) {
    if (rawStr.empty()) {
        return gxfError(GxfOpSubsystem::internalError);
    }
    std::size_t const position = rawStr.find("ar=");
    if (position == std::string::npos) {
        return {OpResult::Error, GxfOpSubsystem::badEncodeData, gxfOpSubsystem.getId(),
                "aux info does not contain aspect ratio"};
    }
    rawStr[position + 1] = ratio == aspect16x9 ? '1' : '0';
    return OpResult::Ok;
}

/// The bit that says 16:9; -1 for a media type without one.
int DvAuxInfo::aspectBit() const {
    switch (m_mediaType) {
    case trackMediaDv25_525:
    case trackMediaDv25_625:
        return 4;
    case trackMediaDv50_525:
    case trackMediaDv50_625:
        return 1;
    default:
        return -1;
    }
}

DvAuxInfo::AspectRatio DvAuxInfo::getAspectRatio() const {
    if (m_mediaType == trackMediaDv100) {
        return aspect16x9;
    }
    int const bit = aspectBit();
    return bit >= 0 && m_aux.getBits(static_cast<unsigned>(bit), 1) != 0 ? aspect16x9 : aspect4x3;
}

void DvAuxInfo::setAspectRatio(AspectRatio ratio) {
    int const bit = aspectBit();
    if (bit < 0) {
        return;
    }
    if (ratio == aspect16x9) {
        m_aux.setBit(static_cast<unsigned>(bit));
    } else {
        m_aux.clearBit(static_cast<unsigned>(bit));
    }
}

AvciAuxInfo::ClassEncoding AvciAuxInfo::getClassEncoding() const {
    unsigned const encoding = m_aux.getBits(0, 4);
    return encoding == 1 || encoding == 2 ? static_cast<ClassEncoding>(encoding)
                                          : classEncodingNone;
}

AncillaryDataAuxInfo::PresentationFormat AncillaryDataAuxInfo::getPresentationFormat() const {
    unsigned const format = m_aux.bytes[2];
    return format == 1 || format == 2 ? static_cast<PresentationFormat>(format)
                                      : presentationFormatNone;
}

unsigned short AncillaryDataAuxInfo::getFieldByteSize() const {
    return static_cast<unsigned short>(m_aux.bytes[4] | (m_aux.bytes[5] << 8));
}

} // namespace GxfTypes
