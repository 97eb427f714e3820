#include <gxftypes/packet/map_tag.h>

namespace GxfTypes {

TagDataType getDataType(MapTagType type) {
    switch (type) {
    case mapTagFirstField:
    case mapTagLastField:
    case mapTagMarkIn:
    case mapTagMarkOut:
    case mapTagSizeEst:
    case mapTagRsv46:
        return tagUint32;
    case mapTagRsv47:
        return tagUint64;
    case mapTagMedia:
    case mapTagRsv48:
    case mapTagRsv49:
    case mapTagRsv4A:
    case mapTagRsv4B:
        return tagString;
    default:
        return tagUnknown;
    }
}

TagDataType getDataType(TrackDescTagType type) {
    switch (type) {
    case trackTagMedia:
    case trackTagMpegAux:
    case trackTagAvcAux:
        return tagString;
    case trackTagAux:
        return tagAuxInfo;
    case trackTagFs:
        return tagUint32;
    case trackTagFrameRate:
    case trackTagLines:
    case trackTagFields:
        return tagInt32;
    default:
        return tagUnknown;
    }
}

char const* getName(MapTagType type) {
    switch (type) {
    case mapTagMedia:
        return "media";
    case mapTagFirstField:
        return "1stField";
    case mapTagLastField:
        return "lastField";
    case mapTagMarkIn:
        return "markIn";
    case mapTagMarkOut:
        return "markOut";
    case mapTagSizeEst:
        return "sizeEst";
    case mapTagRsv46:
        return "rsv46";
    case mapTagRsv47:
        return "rsv47";
    case mapTagRsv48:
    case mapTagRsv4B: // prints under the name of 0x48: intended
        return "rsv48";
    case mapTagRsv49:
        return "rsv49";
    case mapTagRsv4A:
        return "rsv4A";
    default:
        return getStringOf("type", static_cast<int>(type));
    }
}

char const* getName(TrackDescTagType type) {
    switch (type) {
    case trackTagMedia:
        return "media";
    case trackTagAux:
        return "aux";
    case trackTagFs:
        return "fs";
    case trackTagMpegAux:
        return "mpegAux";
    case trackTagFrameRate:
        return "frameRate";
    case trackTagLines:
        return "lines";
    case trackTagFields:
        return "fields";
    case trackTagAvcAux:
        return "avcAux";
    default:
        return getStringOf("type", static_cast<int>(type));
    }
}

unsigned AuxInfo::getBits(unsigned bit, unsigned count) const {
    unsigned const mask = count < 8 ? (1U << count) - 1U : 0xFFU;
    return (static_cast<unsigned>(bytes[bit / 8]) >> (bit % 8)) & mask;
}

void AuxInfo::setBit(unsigned bit) {
    bytes[bit / 8] = static_cast<std::uint8_t>(bytes[bit / 8] | (1U << (bit % 8)));
}

void AuxInfo::clearBit(unsigned bit) {
    bytes[bit / 8] = static_cast<std::uint8_t>(bytes[bit / 8] & ~(1U << (bit % 8)));
}

void AuxInfo::decode(GxfBuffer& buffer) {
    for (std::uint8_t& byte : bytes) {
        byte = buffer.decodeUint8();
    }
}

void AuxInfo::encode(GxfBuffer& buffer) const {
    for (std::uint8_t const byte : bytes) {
        buffer.encode(byte);
    }
}

FormatStr& AuxInfo::toString(FormatStr& text) const {
    return text.format("0x%02x.%02x.%02x.%02x.%02x.%02x.%02x.%02x", bytes[0], bytes[1], bytes[2],
                       bytes[3], bytes[4], bytes[5], bytes[6], bytes[7]);
}

FormatStr& TaggedString::toString(unsigned indent, FormatStr& text) const {
    static constexpr char lineEnds[] = "\n\r";
    if (m_text == nullptr) {
        return text;
    }
    char const* line = m_text;
    do {
        if (line != m_text) {
            text.format(",\n%*s", static_cast<int>(indent), "");
        }
        int const length = static_cast<int>(std::strcspn(line, lineEnds));
        text.format("%*.*s", length, length, line);
        line += length;
        line += std::strspn(line, lineEnds);
    } while (*line != '\0');
    return text;
}

template <typename T>
Tag<T>::Tag(Tag const& other) : m_type(other.m_type), m_length(other.m_length) {
    if (getDataType(m_type) != tagString) {
        m_value = other.m_value;
        return;
    }
    m_value.text.init();
    if (char const* const source = other.m_value.text.get()) {
        FormatStr text(128);
        text.catAsFormat(source);
        m_value.text = AutoArrayPtr<char>(text.releaseArrayString());
    }
}

template <typename T> Tag<T>::~Tag() { clear(); }

template <typename T> void Tag<T>::clear() {
    if (getDataType(m_type) == tagString) {
        m_value.text.free();
    }
    m_value.text.init();
}

template <typename T> AutoPtr<char> Tag<T>::toString() const { return textOf(*this); }

template <typename T> bool Tag<T>::isEqual(Tag<T> const& other) const {
    if (m_type != other.m_type) {
        return false;
    }
    switch (getDataType(m_type)) {
    case tagUint8:
        return m_value.uint8 == other.m_value.uint8;
    case tagUint16:
        return m_value.uint16 == other.m_value.uint16;
    case tagUint32:
        return m_value.uint32 == other.m_value.uint32;
    case tagInt32:
        return m_value.int32 == other.m_value.int32;
    case tagUint64:
        return m_value.uint64 == other.m_value.uint64;
    case tagAuxInfo:
        return std::memcmp(m_value.aux.bytes, other.m_value.aux.bytes, sizeof(AuxInfo)) == 0;
    case tagString: {
        char const* const a = m_value.text.get();
        char const* const b = other.m_value.text.get();
        return a != nullptr && b != nullptr && std::strcmp(a, b) == 0;
    }
    default:
        return false;
    }
}

template <typename T> FormatStr& Tag<T>::toString(unsigned indent, FormatStr& text) const {
    text.format("%s=", getName(m_type));
    switch (getDataType(m_type)) {
    case tagUint8:
        return text.format("%u", m_value.uint8);
    case tagUint16:
        return text.format("%u", m_value.uint16);
    case tagUint32:
        return text.format("%u", m_value.uint32);
    case tagInt32:
        return text.format("%d", m_value.int32);
    case tagUint64:
        return text.format("%llu", static_cast<unsigned long long>(m_value.uint64));
    case tagAuxInfo:
        return m_value.aux.toString(text);
    case tagString:
        text.cat("{");
        if (indent != 0) {
            text.format("\n%*s", static_cast<int>(indent), "");
        }
        m_value.text.toString(indent, text);
        return text.cat("}");
    default:
        return text.cat("?");
    }
}

template <typename T> bool Tag<T>::getValue(int& value) const {
    value = m_value.int32;
    return true;
}

template <typename T> bool Tag<T>::getValue(char const*& value) const {
    value = m_value.text.get();
    return true;
}

template <typename T> bool Tag<T>::getValue(AuxInfo& value) const {
    value.set(m_value.aux);
    return true;
}

template <typename T> OpResult Tag<T>::decode(GxfBuffer& buffer, unsigned remaining) {
    if (gxfDecodeDetail.get() > 3) {
        infoMsg("start Tag decode @%lld\n", static_cast<long long>(buffer.beginOffset()));
    }
    if (remaining < 2) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    clear();
    m_type = static_cast<T>(buffer.decodeUint8());
    m_length = buffer.decodeUint8();
    remaining -= 2;
    if (m_length > remaining) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    if (getDataType(m_type) == tagUnknown) {
        return unknown(GxfOpSubsystem::badDecodeData);
    }
    decodeValue(buffer);
    if (gxfDecodeDetail.get() > 3) {
        infoMsg("end Tag decode: %s\n", toString().get());
    }
    return OpResult::Ok;
}

template <typename T> void Tag<T>::decodeValue(GxfBuffer& buffer) {
    switch (getDataType(m_type)) {
    case tagUint8:
        m_value.uint8 = buffer.decodeUint8();
        break;
    case tagUint16:
        m_value.uint16 = buffer.decodeUint16();
        break;
    case tagUint32:
    case tagInt32:
        m_value.uint32 = buffer.decodeUint32();
        break;
    case tagUint64:
        m_value.uint64 = buffer.decodeUint64();
        break;
    case tagAuxInfo:
        m_value.aux.decode(buffer);
        break;
    case tagString:
        m_value.text = buffer.decodeString(m_length);
        break;
    case tagUnknown:
        break;
    }
}

template <typename T> OpResult Tag<T>::encode(GxfBuffer& buffer) const {
    // The decoders' channel, not the encoders': intended.
    if (gxfDecodeDetail.get() > 3) {
        infoMsg("start Tag encode @%lld\n", static_cast<long long>(buffer.beginOffset()));
    }
    if (getCodedLength() > buffer.nUnoccupied()) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    encode(m_type, buffer);
    buffer.encode(m_length);
    if (getDataType(m_type) == tagUnknown) {
        return unknown(GxfOpSubsystem::badEncodeData);
    }
    encodeValue(buffer);
    if (gxfDecodeDetail.get() > 3) {
        infoMsg("end Tag encode: %s\n", toString().get());
    }
    return OpResult::Ok;
}

template <typename T> void Tag<T>::encodeValue(GxfBuffer& buffer) const {
    switch (getDataType(m_type)) {
    case tagUint8:
        buffer.encode(m_value.uint8);
        break;
    case tagUint16:
        buffer.encode(m_value.uint16);
        break;
    case tagUint32:
    case tagInt32:
        buffer.encode(m_value.uint32);
        break;
    case tagUint64:
        buffer.encode(static_cast<unsigned long long>(m_value.uint64));
        break;
    case tagAuxInfo:
        m_value.aux.encode(buffer);
        break;
    case tagString:
        // A text that came without its zero goes out a byte longer than its length: intended.
        buffer.encodeString(m_value.text.get());
        break;
    case tagUnknown:
        break;
    }
}

template <typename T> OpResult Tag<T>::unknown(int code) const {
    FormatStr const text("Tag type=%d,len=%d unknown", static_cast<int>(m_type), m_length);
    return {OpResult::Error, code, gxfOpSubsystem.getId(), text.get()};
}

template <typename T, unsigned N> OpResult TagSet<T, N>::decode(GxfBuffer&, unsigned) {
    return gxfError(GxfOpSubsystem::unimplemented);
}

template <typename T, unsigned N> AutoPtr<char> TagSet<T, N>::toString() const {
    return textOf(*this);
}

template <typename T, unsigned N>
FormatStr& TagSet<T, N>::toString(unsigned indent, FormatStr& text) const {
    for (unsigned i = 0; i < size(); ++i) {
        if (i != 0) {
            text.format(",\n%*s", static_cast<int>(indent), "");
        }
        tags[i]->toString(indent, text);
    }
    return text;
}

template <typename T, unsigned N> Tag<T>* TagSet<T, N>::getTag(T type) const {
    for (unsigned i = 0; i < size(); ++i) {
        if (tags[i]->getType() == type) {
            return tags[i].get();
        }
    }
    return nullptr;
}

template <typename T, unsigned N> Tag<T>* TagSet<T, N>::getTag(unsigned index) const {
    return index < size() ? tags[index].get() : nullptr;
}

template <typename T, unsigned N> bool TagSet<T, N>::getValue(T type, AuxInfo& value) const {
    if (getTagValue(type, value)) {
        return true;
    }
    value.reset();
    return false;
}

template <typename T, unsigned N> bool TagSet<T, N>::isEqual(TagSet const& other) const {
    if (size() != other.size()) {
        return false;
    }
    // Looked up once for each type, since a stranger's list may hold tens of thousands of tags.
    Tag<T> const* firstOfType[256] = {};
    for (unsigned i = other.size(); i-- > 0;) {
        Tag<T> const* const tag = other.tags[i].get();
        firstOfType[tag->getType() & 0xFFU] = tag;
    }
    for (unsigned i = 0; i < size(); ++i) {
        Tag<T> const* const match = firstOfType[tags[i]->getType() & 0xFFU];
        if (match == nullptr || !tags[i]->isEqual(*match)) {
            return false;
        }
    }
    return true;
}

template class Tag<MapTagType>;
template class Tag<TrackDescTagType>;
template class TagSet<MapTagType, 8U>;
template class TagSet<TrackDescTagType, 8U>;

} // namespace GxfTypes
