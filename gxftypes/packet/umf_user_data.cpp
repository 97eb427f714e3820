#include <gxftypes/packet/umf_user_data.h>

#include <cstring>
#include <iterator>

namespace GxfTypes {

namespace {

// The value's two zero bytes, and the least data that an item can have: one byte and these.
constexpr unsigned padSize = 2;
constexpr unsigned smallestItem = UmfUserData::headerSize + 1 + padSize;

constexpr unsigned reservedSize = 16;

struct ValueTypeRow {
    UmfUserDataType type;
    char const* name;
    char const* text;
    char const* accepted[2];
};

constexpr ValueTypeRow valueTypes[] = {
    {userDataString, "string", "String", {"string", nullptr}},
    {userDataInt32, "int32", "Int", {"int", "i4"}},
    {userDataInt16, "int16", "Short", {"short", "i2"}},
    {userDataByte, "byte", "Byte", {"byte", nullptr}},
    {userDataFloat, "float", "Float", {"float", "r4"}},
    {userDataDouble, "double", "double", {"double", "r8"}}, // lower-case text: intended
    {userDataBool, "bool", "Boolean", {"bool", "boolean"}},
    {userDataDateTime, "dateTime", "Date", {"date", "datetime"}},
    {userDataBase64, "base64", "bin.base64", {"bin.base64", nullptr}},
    {userDataUint16, "uint16", "Uint16", {"uint16", nullptr}},
    {userDataUint32, "uint32", "Uint32", {"uint32", nullptr}},
    {userDataUint64, "uint64", "Uint64", {"uint64", nullptr}},
    {userDataInt8, "int8", "Int8", {"int8", nullptr}},
    {userDataInt64, "int64", "Int64", {"Int64", nullptr}},
    {userDataBinary, "binary", "Binary", {"binary", nullptr}},
};

constexpr ValueTypeRow unknownType{userDataUnknown, "unknown", "unknown", {nullptr, nullptr}};

ValueTypeRow const& rowOf(UmfUserDataType type) {
    return type < std::size(valueTypes) ? valueTypes[type] : unknownType;
}

/// A text in the role of a format without arguments.
AutoArrayPtr<char> expanded(char const* source) {
    FormatStr text(128);
    text.catAsFormat(source);
    return AutoArrayPtr<char>(text.releaseArrayString());
}

char const* orEmpty(AutoArrayPtr<char> const& text) {
    return text.get() != nullptr ? text.get() : "";
}

} // namespace

char const* getName(UmfKeyType type) {
    switch (type) {
    case umfKeyTypeKey:
        return "key";
    case umfKeyTypeValue:
        return "value";
    default:
        return "unknown";
    }
}

char const* getName(UmfUserDataType type) { return rowOf(type).name; }

UmfKeyType UmfKey::getType() const {
    unsigned const kind = m_word & 0xFFFF0000;
    return kind == umfKeyTypeKey || kind == umfKeyTypeValue ? static_cast<UmfKeyType>(kind)
                                                            : umfKeyTypeUnknown;
}

FormatStr UmfKey::toString() const { return FormatStr("0x%x type=%s", m_word, getName(getType())); }

UmfUserData::UmfUserData(UmfUserData const& other)
    : length(other.length), pos(other.pos), trackNum(other.trackNum), sequence(other.sequence),
      key(other.key), valid(other.valid) {
    if (other.data.get() != nullptr) {
        unsigned const n = other.getNumDataBytes();
        data = new unsigned char[n];
        std::memcpy(data.get(), other.data.get(), n);
    }
}

void UmfUserData::init(UmfKey itemKey, UmfTrackNum track, unsigned char const* bytes, unsigned n) {
    length = n + padSize + headerSize;
    pos = 0xFFFFFFFF;
    trackNum = track;
    sequence = 0;
    key = itemKey;
    data = new unsigned char[n + padSize]();
    if (bytes != nullptr && n != 0) {
        std::memcpy(data.get(), bytes, n);
    }
    valid = true;
}

OpResult UmfUserData::decode(GxfBuffer& buffer, unsigned available) {
    valid = false;
    if (available < headerSize || buffer.nOccupied() < headerSize) {
        return gxfError(GxfOpSubsystem::umfUserDataError);
    }
    length = buffer.decodeUint32Lsbf();
    pos = buffer.decodeUint32Lsbf();
    trackNum.decode(buffer);
    sequence = buffer.decodeUint16Lsbf();
    key = UmfKey(buffer.decodeUint32Lsbf());
    // The data of an earlier decode aren't those that this length counts.
    data = nullptr;
    available -= headerSize;
    // The whole item against what is left behind its header: intended.
    if (length < smallestItem || length > available) {
        return gxfError(GxfOpSubsystem::umfUserDataError);
    }
    unsigned const n = getNumDataBytes();
    if (n < 1 || n > buffer.nOccupied()) {
        return gxfError(GxfOpSubsystem::umfUserDataError);
    }
    data = buffer.decodeBlob(n);
    valid = true;
    return OpResult::Ok;
}

AutoPtr<UmfUserData> UmfUserData::decode(GxfBuffer& buffer, unsigned available, OpResult& result) {
    result = OpResult::Ok;
    AutoPtr<UmfUserData> item(new UmfUserData);
    result = item->decode(buffer, available);
    if (!result) {
        return AutoPtr<UmfUserData>();
    }
    if (!item->isKey()) {
        return item;
    }
    AutoPtr<UmfUserDataKey> keyItem(new UmfUserDataKey);
    result = keyItem->decode(item);
    if (!result) {
        return AutoPtr<UmfUserData>();
    }
    return AutoPtr<UmfUserData>(keyItem.forget());
}

OpResult UmfUserData::encode(GxfBuffer& buffer) const {
    if (gxfEncodeDetail.get() > 2) {
        // The words of another section: intended.
        infoMsg("start Media Desc encode @%llu\n", buffer.beginOffset());
    }
    if (length > buffer.nUnoccupied()) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    EncodeChecker const checker(buffer, length);
    buffer.encodeLsbf(length);
    buffer.encodeLsbf(pos);
    trackNum.encode(buffer);
    buffer.encodeLsbf(sequence);
    buffer.encodeLsbf(key.get());
    if (data.get() == nullptr) {
        return gxfError(GxfOpSubsystem::badEncodeData);
    }
    buffer.encodeBlob(data.get(), getNumDataBytes());
    checker.check();
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("end Userdata encode %s\n", toString().get());
    }
    return OpResult::Ok;
}

bool UmfUserData::isEqual(UmfUserData const& other) const {
    unsigned const n = getNumDataBytes();
    if (n != other.getNumDataBytes() || pos != other.pos || !(trackNum == other.trackNum) ||
        sequence != other.sequence || !(key == other.key)) {
        return false;
    }
    bool const hasData = data.get() != nullptr;
    if (n == 0 || (!hasData && other.data.get() == nullptr)) {
        return true;
    }
    return hasData && other.data.get() != nullptr &&
           std::memcmp(data.get(), other.data.get(), n) == 0;
}

/// 0 for a length that counts less than the header.
unsigned UmfUserData::getNumDataBytes() const {
    auto const n = static_cast<std::int32_t>(length - headerSize);
    return n < 0 ? 0 : static_cast<unsigned>(n);
}

void UmfUserData::move(UmfUserData& from) {
    valid = from.valid;
    length = from.length;
    pos = from.pos;
    trackNum = from.trackNum;
    sequence = from.sequence;
    key = from.key;
    data = from.data;
}

FormatStr& UmfUserData::toString(unsigned indent, FormatStr& text) const {
    int const width = static_cast<int>(indent);
    text.format("len=%ub", length);
    text.format("\n%*spos=%u", width, "", pos);
    text.format("\n%*strk=%s", width, "", trackNum.toString().get());
    text.format("\n%*sseq=%u", width, "", sequence);
    text.format("\n%*skey=%s", width, "", key.toString().get());
    text.format("\n%*spayload=%ub", width, "", getNumDataBytes());
    if (data.get() != nullptr && !isKey() && length > headerSize + 1) {
        dataToString(indent, text);
    }
    return text;
}

/// Two views of the data, each with a budget of characters.
void UmfUserData::dataToString(unsigned indent, FormatStr& text) const {
    constexpr int lineWidth = 80;
    int const width = static_cast<int>(indent);
    unsigned const n = getNumDataBytes();

    text.format(",\n%*sdata={0x", width, "");
    int budget = lineWidth - width;
    unsigned i = 0;
    for (; i < n && budget >= 1; ++i, budget -= 3) {
        text.format("%s%x", i == 0 ? "" : ".", static_cast<unsigned>(data[i]));
    }
    text.cat(i < n ? "...}" : "}");

    text.format(",\n%*sdata={", width, "");
    budget = lineWidth - width;
    for (i = 0; i < n && data[i] != 0 && budget >= 1; ++i) {
        if (data[i] >= 32 && data[i] <= 126) {
            text.format("%c", data[i]);
            budget -= 1;
        } else {
            text.format("<%02x>", static_cast<unsigned>(data[i]));
            budget -= 4;
        }
    }
    text.cat(i < n ? "...}" : "}");
}

UmfUserDataKey::Text const UmfUserDataKey::texts[5] = {
    {&UmfUserDataKey::vendor, 32},        {&UmfUserDataKey::className, 32},
    {&UmfUserDataKey::valueTypeName, 80}, {&UmfUserDataKey::pairName, 80},
    {&UmfUserDataKey::version, 32},
};

UmfUserDataKey::UmfUserDataKey(UmfUserDataKey const& other)
    : UmfUserData(other), keyPos(other.keyPos), valueSize(other.valueSize) {
    keyReserved.copy(other.keyReserved);
    for (Text const& text : texts) {
        if (char const* const source = (other.*text.field).get()) {
            this->*text.field = expanded(source);
        }
    }
}

void UmfUserDataKey::init(UmfKey itemKey, char const* name, UmfTrackNum track, UmfUserDataType type,
                          unsigned valueBytes) {
    unsigned char reserved[reservedSize] = {};
    GxfBuffer zeros(reserved, reservedSize, GxfBuffer::DataState::filled, MediaAgent(nullptr));
    keyReserved.decode(zeros, reservedSize, GxfPreservedData::keep);
    keyPos = 0xFFFFFFFF;
    vendor = expanded("Zorvan Media Subsystem");
    className = expanded("userdata");
    valueTypeName = expanded(getValueStr(type));
    pairName = expanded(name);
    version = expanded("1");
    valueSize = valueBytes;
    UmfUserData::init(itemKey, track, nullptr, blockSize - padSize);
}

OpResult UmfUserDataKey::decode(AutoPtr<UmfUserData> item) {
    valid = false;
    if (item.get() == nullptr || !item->isKey()) {
        return gxfError(GxfOpSubsystem::internalError);
    }
    GxfBuffer block(item->data.get(), item->data.get() != nullptr ? item->getNumDataBytes() : 0,
                    GxfBuffer::DataState::filled, MediaAgent(nullptr));
    if (block.nOccupied() != blockSize) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    move(*item);
    valid = false;
    OpResult const result = keyReserved.decode(block, reservedSize, GxfPreservedData::keep);
    if (!result) {
        return result;
    }
    keyPos = block.decodeUint32Lsbf();
    for (Text const& text : texts) {
        this->*text.field = block.decodeString(text.size);
    }
    valueSize = block.decodeUint32Lsbf();
    block.removeInput(padSize);
    valid = true;
    return OpResult::Ok;
}

OpResult UmfUserDataKey::encode(GxfBuffer& buffer) const {
    GxfBuffer block(data.get(), data.get() != nullptr ? getNumDataBytes() : 0,
                    GxfBuffer::DataState::empty, MediaAgent(nullptr));
    if (block.nUnoccupied() != blockSize) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    EncodeChecker const checker(block, blockSize);
    keyReserved.encode(block);
    block.encodeLsbf(keyPos);
    for (Text const& text : texts) {
        // A text without room for its terminator writes nothing: intended.
        block.encodePaddedString((this->*text.field).get(), text.size, 0);
    }
    block.encodeLsbf(valueSize);
    block.addOutputZeros(padSize);
    checker.check();
    return UmfUserData::encode(buffer);
}

char const* UmfUserDataKey::getValueStr(UmfUserDataType type) const { return rowOf(type).text; }

UmfUserDataType UmfUserDataKey::getValueType() const {
    if (valueTypeName.get() == nullptr) {
        return userDataUnknown;
    }
    for (ValueTypeRow const& row : valueTypes) {
        for (char const* const accepted : row.accepted) {
            if (accepted != nullptr && striCmp(valueTypeName.get(), accepted) == 0) {
                return row.type;
            }
        }
    }
    return userDataUnknown;
}

FormatStr& UmfUserDataKey::toString(unsigned indent, FormatStr& text) const {
    int const width = static_cast<int>(indent);
    UmfUserData::toString(indent, text);
    text.format("\n%*spos=%u", width, "", keyPos);
    text.format("\n%*svendor=%s", width, "", orEmpty(vendor));
    text.format("\n%*sclass=%s", width, "", orEmpty(className));
    text.format("\n%*svalueType=%s(%s)", width, "", GxfTypes::getName(getValueType()),
                orEmpty(valueTypeName));
    text.format("\n%*spairName=%s", width, "", orEmpty(pairName));
    text.format("\n%*sver=%s", width, "", orEmpty(version));
    return text.format("\n%*svalueSize=%ub", width, "", valueSize);
}

} // namespace GxfTypes
