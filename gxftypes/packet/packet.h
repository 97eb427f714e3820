#pragma once

#include <cstdint>

#include <gxftypes/packet/vocabulary.h>

namespace GxfTypes {

class EndOfStreamPacket;
class FieldLocTblPacket;
class MapPacket;
class MediaPacket;
class PacketPool;
class UmfPacket;

/// Base of all packets: the 16-byte header that each begins with, and the interface through which
/// a reader drives any of them.
///
///     leader 4 = 0 | leaderMark 1 = 1 | type 1 | length 4 | reserved 4 = 0 | E1 | E2
///
/// All big-endian; `length` is that of the whole packet, these 16 bytes included. A packet belongs
/// to its references and returns to its pool with the last one; it must not outlive the pool. It is
/// used by one thread at a time, but may be released on another one than it was allocated on.
class Packet {
  public:
    static constexpr unsigned headerSize = 16;

    Packet(PacketType packetType, PacketPool& owner);
    /// A packet for the pool of the source, with the source's header fields.
    explicit Packet(Packet& source);
    Packet& operator=(Packet const&) = delete;
    virtual ~Packet();

    /// The state of a packet that arrived with the given header.
    virtual void reset(Packet const& source) = 0;
    /// The state of a new packet of that type.
    virtual void reset(PacketType type) = 0;
    /// A PacketHeader gives itself, whatever its type field says; all others nothing.
    virtual AutoPtr<Packet> getAutoHdrPtr();
    /// Writes the header's fields as they stand. Code 12 without room for 16 bytes.
    virtual OpResult encode(GxfBuffer& buffer) const;
    /// Consumes the payload.
    virtual OpResult decode(GxfBuffer& buffer) = 0;
    virtual bool isEqual(Packet const& other) const = 0;
    /// True when decode() wants all of getPayloadLength() in the buffer; else getPart1Length() is
    /// enough. The buffer stands at the first payload byte, which must be there.
    virtual bool needsAllData(GxfBuffer& buffer) const;
    /// Bytes of the whole packet.
    virtual unsigned getCodedLength() const { return length; }
    /// Bytes behind the header; wraps for a length below 16.
    virtual unsigned getPayloadLength() const { return length - headerSize; }
    /// Bytes of the payload's fixed description.
    virtual unsigned getPart1Length() const { return length - headerSize; }
    /// Bytes of the rest of the payload.
    virtual unsigned getPart2Length() const { return 0; }
    virtual unsigned calcLength() const { return length; }
    virtual void recalcOffset(unsigned long long offset) { fileOffset = offset; }
    virtual UmfPacketOrder getPacketOrder() const { return umfPacketOrderUninit; }
    /// The packet itself as its own class, or null: a cast without a look at the run-time type.
    virtual AutoRefPtr<MapPacket> getMapPacket();
    virtual AutoRefPtr<MediaPacket> getMediaPacket();
    virtual AutoRefPtr<UmfPacket> getUmfPacket();
    virtual AutoRefPtr<FieldLocTblPacket> getFltPacket();
    virtual AutoRefPtr<EndOfStreamPacket> getEosPacket();
    /// The header is that of a packet, and the last decode of the payload worked.
    virtual bool isValid() const {
        unsigned const wrongBits =
            leader | (leaderMark ^ 1U) | reserved | (trailerE1 ^ 0xE1U) | (trailerE2 ^ 0xE2U);
        return wrongBits == 0 && length >= headerSize && isValid(type);
    }
    /// The text at indent 0; the caller owns it.
    virtual AutoPtr<char> toString() const;
    virtual FormatStr& toString(unsigned indent, FormatStr& text) const;

    static bool isValid(PacketType type) {
        return type == packetTypeMap || type == packetTypeMedia || (type >= 250 && type <= 255);
    }

    unsigned long long getFileOffset() const { return fileOffset; }
    PacketType getType() const { return type; }

    /// Takes a reference; returns the new count. The first one comes with the allocation.
    int preserve();
    /// Drops a reference; returns the new count. At 0 the packet is back in its pool.
    int release();
    /// Nobody but the caller has a reference.
    bool isUnshared() const { return refCount.isOnlyReference(); }

    /// A packet of this header's type, which holds this header's fields; null, without an error,
    /// for a type that the library doesn't make.
    AutoRefPtr<Packet> createActual() const;

  protected:
    friend class PacketPool;

    void resetPrivate(PacketType type);
    void resetPrivate(Packet const& source);
    static void notifyBadCount(int count);

    PacketPool& pool;
    AtomicCounter refCount;

  public:
    std::uint64_t fileOffset;
    std::uint32_t leader;
    std::uint8_t leaderMark;
    PacketType type;
    std::uint32_t length;
    std::uint32_t reserved;
    std::uint8_t trailerE1;
    std::uint8_t trailerE2;
};

inline void Packet::resetPrivate(Packet const& source) {
    // The source's fields were just written one by one. A compiler that fetches two neighbours at
    // once makes the processor wait for both; what is volatile is fetched by itself.
    auto const alone = []<typename T>(T const& field) {
        return static_cast<T const volatile&>(field);
    };
    fileOffset = source.fileOffset;
    leader = source.leader;
    leaderMark = source.leaderMark;
    type = source.type;
    length = alone(source.length);
    reserved = source.reserved;
    trailerE1 = source.trailerE1;
    trailerE2 = alone(source.trailerE2);
}

/// Reads the 16 bytes of a header before the real type of the packet is known.
class PacketHeader : public Packet {
  public:
    explicit PacketHeader(PacketPool& owner) : Packet(packetTypeHeader, owner) {}

    void reset(Packet const& source) override { resetPrivate(source); }
    void reset(PacketType newType) override { resetPrivate(newType); }
    AutoPtr<Packet> getAutoHdrPtr() override { return AutoPtr<Packet>(this); }
    /// Reads 16 bytes and doesn't judge them, see isValid(). Code 9, with nothing changed, when
    /// fewer are there.
    OpResult decode(GxfBuffer& buffer) override;
    bool isEqual(Packet const&) const override { return true; }

  private:
    OpResult decodeAloud(GxfBuffer& buffer);
    OpResult decodeFields(GxfBuffer& buffer);
};

/// The end of a stream: a header alone.
class EndOfStreamPacket : public Packet {
  public:
    explicit EndOfStreamPacket(PacketPool& owner) : Packet(packetTypeEos, owner) {}

    void reset(Packet const& source) override { resetPrivate(source); }
    void reset(PacketType newType) override { resetPrivate(newType); }
    /// Code 12 when `length` bytes have no room.
    OpResult encode(GxfBuffer& buffer) const override;
    /// Reads nothing.
    OpResult decode(GxfBuffer&) override { return OpResult::Ok; }
    bool isEqual(Packet const&) const override { return true; }
    bool needsAllData(GxfBuffer&) const override { return false; }
    unsigned getPayloadLength() const override { return 0; }
    unsigned getPart1Length() const override { return 0; }
    unsigned getPart2Length() const override { return 0; }
    AutoRefPtr<EndOfStreamPacket> getEosPacket() override;
};

} // namespace GxfTypes
