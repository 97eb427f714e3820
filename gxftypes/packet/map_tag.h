#pragma once

#include <cstdint>
#include <cstring>

#include <gxftypes/packet/vocabulary.h>

namespace GxfTypes {

/// The material data of the whole clip.
enum MapTagType : std::uint32_t {
    mapTagMedia = 0x40,
    mapTagFirstField = 0x41,
    mapTagLastField = 0x42,
    mapTagMarkIn = 0x43,
    mapTagMarkOut = 0x44,
    mapTagSizeEst = 0x45,
    mapTagRsv46 = 0x46,
    mapTagRsv47 = 0x47,
    mapTagRsv48 = 0x48,
    mapTagRsv49 = 0x49,
    mapTagRsv4A = 0x4A,
    mapTagRsv4B = 0x4B,
};

/// The description of one track. The numbers go on where the material data ends.
enum TrackDescTagType : std::uint32_t {
    trackTagMedia = 0x4C,
    trackTagAux = 0x4D,
    trackTagFs = 0x4E,
    trackTagMpegAux = 0x4F,
    trackTagFrameRate = 0x50,
    trackTagLines = 0x51,
    trackTagFields = 0x52,
    trackTagAvcAux = 0x56,
};

/// How the value of a tag is coded.
enum TagDataType : std::uint32_t {
    tagUint8 = 0,
    tagUint16 = 1,
    tagUint32 = 2,
    tagInt32 = 3,
    tagUint64 = 4,
    tagAuxInfo = 5, ///< eight raw bytes
    tagString = 6,  ///< text and its terminating zero, `length` bytes
    tagUnknown = 7, ///< no value: the tag is refused
};

TagDataType getDataType(MapTagType);
TagDataType getDataType(TrackDescTagType);
/// The text of getStringOf() for a number without a name.
char const* getName(MapTagType);
char const* getName(TrackDescTagType);

/// Eight bytes in wire order, whose meaning depends on the track. Bit 0 is the lowest of byte 0.
struct AuxInfo {
    void reset() { std::memset(bytes, 0, sizeof(bytes)); }
    void set(AuxInfo const& other) { *this = other; }

    /// `count` bits from `bit` on, which all lie in one byte: bits of the next one don't come in.
    /// REQUIRES: bit below 64.
    unsigned getBits(unsigned bit, unsigned count) const;
    /// REQUIRES: bit below 64.
    void setBit(unsigned bit);
    void clearBit(unsigned bit);

    /// Takes eight bytes without a look at the tag's length.
    void decode(GxfBuffer& buffer);
    void encode(GxfBuffer& buffer) const;
    FormatStr& toString(FormatStr& text) const;

    std::uint8_t bytes[8];
};

/// A zero-terminated text in a tag's union: the tag calls init() and free().
class TaggedString {
  public:
    void init() { m_text = nullptr; }
    char const* get() const { return m_text; }
    void free() {
        delete[] m_text;
        m_text = nullptr;
    }
    TaggedString& operator=(AutoArrayPtr<char> const& text) {
        delete[] m_text;
        m_text = text.forget();
        return *this;
    }
    /// The lines of the text one below the other; nothing for null.
    FormatStr& toString(unsigned indent, FormatStr& text) const;

  private:
    char* m_text;
};

/// One self-describing item of a tag list.
///
///     number 1 | length 1 | value, coded as the number says
///
/// Comes into being by decode() or by copying; encode() writes back what was decoded.
template <typename T> class Tag {
  public:
    Tag() : m_type{}, m_length(0) { m_value.text.init(); }
    /// A text is taken over in the role of a format without arguments, so that two percent signs
    /// become one while the length stays: intended.
    Tag(Tag const& other);
    Tag& operator=(Tag const&) = delete;
    virtual ~Tag();

    virtual AutoPtr<char> toString() const;
    /// By type and value; the length takes no part. Tags without a data type and null texts are
    /// equal to nothing.
    virtual bool isEqual(Tag<T> const& other) const;
    virtual FormatStr& toString(unsigned indent, FormatStr& text) const;

    T getType() const { return m_type; }
    /// What a list subtracts for this tag, whatever decode() consumed.
    unsigned getCodedLength() const { return m_length + 2U; }

    /// The value as a number, a text that stays the tag's, or eight bytes; always true. None tests
    /// that the tag has such a value.
    bool getValue(int& value) const;
    bool getValue(char const*& value) const;
    bool getValue(AuxInfo& value) const;

    /// `remaining` is what is left of the list in bytes. Code 9 when the tag overruns it, code 10
    /// for a number without a data type. Integers and AuxInfo read their own width, whatever the
    /// length says.
    OpResult decode(GxfBuffer& buffer, unsigned remaining);
    /// Code 12 without room, code 13 for a number without a data type.
    OpResult encode(GxfBuffer& buffer) const;
    /// The low byte of a tag number.
    static void encode(T type, GxfBuffer& buffer) {
        buffer.encode(static_cast<unsigned char>(type));
    }

  private:
    void clear();
    OpResult unknown(int code) const;
    void decodeValue(GxfBuffer& buffer);
    void encodeValue(GxfBuffer& buffer) const;

    T m_type;
    std::uint8_t m_length;
    union {
        std::uint8_t uint8;
        std::uint16_t uint16;
        std::uint32_t uint32;
        std::int32_t int32;
        std::uint64_t uint64;
        AuxInfo aux;
        TaggedString text;
    } m_value;
};

/// An ordered list of tags, which it owns. N is the number that it holds without allocating, not a
/// limit.
template <typename T, unsigned N> class TagSet {
  public:
    explicit TagSet(bool isValid) : valid(isValid) {}
    TagSet(TagSet const&) = delete;
    TagSet& operator=(TagSet const&) = delete;
    virtual ~TagSet() = default;

    /// Code 14: a set is filled by its owner, or overrides this.
    virtual OpResult decode(GxfBuffer& buffer, unsigned remaining);
    virtual AutoPtr<char> toString() const;
    virtual FormatStr& toString(unsigned indent, FormatStr& text) const;

    void reset(bool isValid) {
        valid = isValid;
        tags.reset();
    }
    bool isValid() const { return valid; }
    unsigned size() const { return tags.size(); }
    void addTag(AutoPtr<Tag<T>> const& tag) { tags.push_back(tag); }

    /// The first tag of that type, or null; stays the set's.
    Tag<T>* getTag(T type) const;
    /// The tag at that place, or null behind the end.
    Tag<T>* getTag(unsigned index) const;

    /// The value of the first tag of that type. False when there is none: a number or a text stays
    /// as it was then, eight bytes become zero.
    bool getValue(T type, int& value) const { return getTagValue(type, value); }
    bool getValue(T type, char const*& value) const { return getTagValue(type, value); }
    bool getValue(T type, AuxInfo& value) const;

    /// The same tags in any order. Each tag is compared with the other set's first of its type.
    bool isEqual(TagSet const& other) const;

    FixedMinVector<AutoPtr<Tag<T>>, N> tags;
    bool valid;

  private:
    template <typename Value> bool getTagValue(T type, Value& value) const {
        Tag<T> const* const tag = getTag(type);
        return tag != nullptr && tag->getValue(value);
    }
};

extern template class Tag<MapTagType>;
extern template class Tag<TrackDescTagType>;
extern template class TagSet<MapTagType, 8U>;
extern template class TagSet<TrackDescTagType, 8U>;

} // namespace GxfTypes
