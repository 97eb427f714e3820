#pragma once

#include <vector>

#include <gxftypes/packet/packet.h>

namespace GxfTypes {

/// Makes packets, takes them back when the last reference goes, and hands them out again, so that a
/// running stream doesn't allocate per packet.
///
/// Keeps any number of free media packets, last in first out, and of each other kind the one that
/// came back last. Free packets keep their contents until their next use. alloc(), recycle() and
/// reset() may be called from several threads.
class PacketPool {
  public:
    PacketPool();
    PacketPool(PacketPool const&) = delete;
    PacketPool& operator=(PacketPool const&) = delete;
    /// Tells by a debug message when packets are still out.
    ~PacketPool();

    /// A packet in the state of reset(type); null, after two errors of code 7, for a type that no
    /// packet has.
    AutoRefPtr<Packet> alloc(PacketType type);
    /// A packet of the model's type in the state of reset(model).
    AutoRefPtr<Packet> alloc(Packet const& model);
    /// Destroys all free packets.
    void reset();

  private:
    friend class Packet;

    AutoRefPtr<Packet> allocLokd(PacketType type);
    template <typename ResetFrom> AutoRefPtr<Packet> allocReset(PacketType type, ResetFrom const&);
    Packet* takeFree(PacketType type);
    Packet* create(PacketType type);
    AutoPtr<Packet>* slotOf(PacketType type);
    void recycle(Packet& packet);
    int countFree() const;

    JMutex mutex;
    AutoPtr<Packet> freeMap;
    std::vector<AutoPtr<Packet>> freeMedia;
    AutoPtr<Packet> freeEos;
    AutoPtr<Packet> freeFlt;
    AutoPtr<Packet> freeUmf;
    AutoPtr<Packet> freeUmfChunk;
    AutoPtr<Packet> freeHdr;
    // Only the difference of the two means anything; both start at 1.
    AtomicCounter created;
    AtomicCounter destroyed;
};

} // namespace GxfTypes
