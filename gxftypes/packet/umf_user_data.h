#pragma once

#include <gxftypes/packet/umf_track_num.h>

namespace GxfTypes {

/// What an item of user data is.
enum UmfKeyType : std::uint32_t {
    umfKeyTypeUnknown = 0,
    umfKeyTypeKey = 0x70000,
    umfKeyTypeValue = 0x80000,
};

/// The type of a value, which only says how somebody meant its bytes: nothing checks them.
enum UmfUserDataType : std::uint32_t {
    userDataString = 0,
    userDataInt32 = 1,
    userDataInt16 = 2,
    userDataByte = 3,
    userDataFloat = 4,
    userDataDouble = 5,
    userDataBool = 6,
    userDataDateTime = 7,
    userDataBase64 = 8,
    userDataUint16 = 9,
    userDataUint32 = 10,
    userDataUint64 = 11,
    userDataInt8 = 12,
    userDataInt64 = 13,
    userDataBinary = 14,
    userDataUnknown = 15,
};

char const* getName(UmfKeyType);
char const* getName(UmfUserDataType);

/// The word that says what an item is, and which pair it belongs to: the kind above, the id in the
/// low 16 bits.
class UmfKey {
  public:
    enum Type : std::uint32_t { key = 0, value = 1 };

    UmfKey() = default;
    explicit UmfKey(unsigned word) : m_word(word) {}
    UmfKey(Type type, unsigned short id)
        : m_word((type == key ? umfKeyTypeKey : umfKeyTypeValue) | id) {}

    unsigned get() const { return m_word; }
    unsigned short getId() const { return static_cast<unsigned short>(m_word); }
    UmfKeyType getType() const;
    bool isKeyValuePair() const { return isKey() || isValue(); }
    bool isKey() const { return getType() == umfKeyTypeKey; }
    bool isValue() const { return getType() == umfKeyTypeValue; }
    bool operator==(UmfKey const&) const = default;
    FormatStr toString() const;

  private:
    std::uint32_t m_word = 0;
};

/// One item of user data, least significant byte first.
///
///     length 4 = 16 + data | pos 4 | trackNum 2 | sequence 2 | key 4 | data
///
/// The data of a value are the value and two zero bytes.
class UmfUserData {
  public:
    static constexpr unsigned headerSize = 16;

    UmfUserData() = default;
    UmfUserData(UmfUserData const& other);
    UmfUserData& operator=(UmfUserData const&) = delete;
    UmfUserData(UmfKey itemKey, UmfTrackNum track, unsigned char const* bytes, unsigned n) {
        init(itemKey, track, bytes, n);
    }
    virtual ~UmfUserData() = default;

    /// Writes the item. Code 12 without room for it, code 13 without data.
    virtual OpResult encode(GxfBuffer& buffer) const;

    /// An item of `n` bytes and two zero bytes; all zeros without `bytes`, which are copied.
    void init(UmfKey itemKey, UmfTrackNum track, unsigned char const* bytes, unsigned n);
    /// `available` in bytes. Code 11 for an item that isn't whole, and for one that doesn't leave
    /// another 16 bytes behind it: intended.
    OpResult decode(GxfBuffer& buffer, unsigned available);
    /// A new item, a UmfUserDataKey for a key, which the caller owns; null on failure.
    static AutoPtr<UmfUserData> decode(GxfBuffer& buffer, unsigned available, OpResult& result);
    bool isEqual(UmfUserData const& other) const;

    unsigned getLength() const { return length; }
    UmfKey const& getKey() const { return key; }
    unsigned getNumDataBytes() const;
    bool isKey() const { return key.isKey(); }
    bool isValue() const { return key.isValue(); }
    unsigned short getId() const { return key.getId(); }
    unsigned char const* getData() const { return data.get(); }
    void setValidBit(bool isValid) { valid = isValid; }
    /// Takes over all fields and the data.
    void move(UmfUserData& from);

    /// Not virtual: a key that is printed as an item shows the item's fields only.
    AutoPtr<char> toString() const { return textOf(*this); }
    FormatStr& toString(unsigned indent, FormatStr& text) const;

    std::uint32_t length = 0;
    std::uint32_t pos = 0xFFFFFFFF;
    UmfTrackNum trackNum;
    std::uint16_t sequence = 0;
    UmfKey key;
    AutoArrayPtr<unsigned char> data;
    bool valid = false;

  private:
    void dataToString(unsigned indent, FormatStr& text) const;
};

/// The item that names a value and says its type: data of 282 bytes.
///
///     reserved 16 | keyPos 4 | vendor 32 | className 32 | valueTypeName 80 | pairName 80 |
///     version 32 | valueSize 4 | zero 2
class UmfUserDataKey : public UmfUserData {
  public:
    static constexpr unsigned blockSize = 282;

    UmfUserDataKey() = default;
    UmfUserDataKey(char const* name, UmfKey itemKey, UmfTrackNum track, UmfUserDataType type,
                   unsigned valueBytes) {
        init(itemKey, name, track, type, valueBytes);
    }
    /// The texts are taken over in the role of formats without arguments: intended.
    UmfUserDataKey(UmfUserDataKey const& other);
    UmfUserDataKey& operator=(UmfUserDataKey const&) = delete;

    void init(UmfKey itemKey, char const* name, UmfTrackNum track, UmfUserDataType type,
              unsigned valueBytes);
    /// Takes the item over. Code 7 when it is no key, code 9 for a block of another size.
    OpResult decode(AutoPtr<UmfUserData> item);
    /// Rebuilds the block in the item's data first. Code 12 when the data isn't of its size.
    OpResult encode(GxfBuffer& buffer) const override;

    char const* getName() const { return pairName.get() != nullptr ? pairName.get() : ""; }
    char const* getValueStr(UmfUserDataType type) const;
    UmfUserDataType getValueType() const;

    AutoPtr<char> toString() const { return textOf(*this); }
    FormatStr& toString(unsigned indent, FormatStr& text) const;

    GxfPreservedData keyReserved;
    std::uint32_t keyPos = 0xFFFFFFFF;
    AutoArrayPtr<char> vendor;
    AutoArrayPtr<char> className;
    AutoArrayPtr<char> valueTypeName;
    AutoArrayPtr<char> pairName;
    AutoArrayPtr<char> version;
    std::uint32_t valueSize = 0; ///< in bytes, as the caller gave it

  private:
    struct Text {
        AutoArrayPtr<char> UmfUserDataKey::*field;
        unsigned size;
    };
    static Text const texts[5];
};

} // namespace GxfTypes
