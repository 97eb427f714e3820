#pragma once

#include <gxftypes/packet/packet.h>

namespace GxfTypes {

/// What kind of bound a position is.
enum OffsetType : std::uint32_t {
    offsetEstimated = 0, ///< read from the table, not checked against the stream
};

/// A position in the stream that bounds a field.
struct OffsetBound {
    OffsetBound() = default;
    OffsetBound(unsigned fieldNumber, unsigned long long position, OffsetType kind, unsigned entry)
        : field(fieldNumber), offset(position), type(kind), index(entry) {}

    static OffsetBound estimate(unsigned field, unsigned long long offset, unsigned index) {
        return {field, offset, offsetEstimated, index};
    }

    std::uint32_t field = 0;  ///< the field that the position belongs to
    std::uint64_t offset = 0; ///< in bytes
    OffsetType type = offsetEstimated;
    std::uint32_t index = 0; ///< of the table entry that gave the position
};

/// The stretch of the stream in which to look for a field. The caller's.
struct OffsetBracket {
    OffsetBound lower;
    OffsetBound upper;
};

/// The field locator table: the stream's coarse index. Little-endian, unlike all else at this
/// level.
///
///     fieldsPerEntry 4 | count 4, at most 1000 | entries of 4, in units of 1024 bytes | padding
///
/// Entry i is the position of field fieldsPerEntry x i + firstField. The payload is never written:
/// encode() writes the header alone.
class FieldLocTblPacket : public Packet {
  public:
    static constexpr unsigned maxEntries = 1000;
    static constexpr unsigned bytesPerUnit = 1024;

    explicit FieldLocTblPacket(PacketPool& owner);
    explicit FieldLocTblPacket(Packet& source);

    void reset(Packet const& source) override;
    void reset(PacketType newType) override;
    /// Code 9, with nothing consumed, for a payload below 8 bytes; code 10 for a count that the
    /// payload or the limit can't hold. A table that isn't in order is a success: ask isValid().
    OpResult decode(GxfBuffer& buffer) override;
    /// A quick sample of the tables, not a full comparison: every fifth entry. Intended.
    bool isEqual(Packet const& other) const override;
    bool needsAllData(GxfBuffer&) const override { return true; }
    unsigned getPart1Length() const override { return 8; }
    unsigned getPart2Length() const override { return getPayloadLength() - 8; }
    AutoRefPtr<FieldLocTblPacket> getFltPacket() override { return this; }
    bool isValid() const override { return packetValid && Packet::isValid(); }
    AutoPtr<char> toString() const override { return textOf(*this); }
    FormatStr& toString(unsigned indent, FormatStr& text) const override;

    /// True when the positions never fall. Zeroed entries pass, and are told once per object.
    bool checkTableValidity() const;

    /// The stretch around `field`, widened by `margin` fields on both sides. False, with the
    /// bracket as it was, when the table can't tell. `upper` stays as the caller set it when the
    /// table doesn't reach that far. Looks at no validity.
    bool findBounds(unsigned field, unsigned margin, OffsetBracket& bracket);

    std::uint32_t fieldsPerEntry;
    FixedMinVector<unsigned, maxEntries> table;
    std::uint32_t firstField; ///< not on the wire
    bool packetValid;
    // Survives reset(), so that an object tells of zeroed entries once in its life.
    mutable GxfLocalMsgClamp msgClamp;

  private:
    void resetPrivate(bool valid);
    unsigned fieldOf(unsigned entry) const { return fieldsPerEntry * entry + firstField; }
    unsigned long long offsetOf(unsigned entry) const {
        return static_cast<unsigned long long>(table[entry]) * bytesPerUnit;
    }
    OffsetBound boundOf(unsigned entry) const {
        return OffsetBound::estimate(fieldOf(entry), offsetOf(entry), entry);
    }
    void entriesToString(unsigned indent, FormatStr& text) const;
};

} // namespace GxfTypes
