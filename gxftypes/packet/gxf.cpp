#include <gxftypes/packet/gxf.h>

#include <new>

namespace GxfTypes {

Packet::Packet(PacketType packetType, PacketPool& owner) : pool(owner), refCount(0) {
    resetPrivate(packetType);
    ++pool.created;
}

Packet::Packet(Packet& source) : pool(source.pool), refCount(0) {
    resetPrivate(source);
    ++pool.created;
}

Packet::~Packet() {
    ++pool.destroyed;
    if (refCount.getCount() != 0) {
        gxfError(GxfOpSubsystem::internalError);
    }
}

void Packet::resetPrivate(PacketType packetType) {
    fileOffset = 0;
    leader = 0;
    leaderMark = 1;
    type = packetType;
    length = headerSize;
    reserved = 0;
    trailerE1 = 0xE1;
    trailerE2 = 0xE2;
}

AutoPtr<Packet> Packet::getAutoHdrPtr() { return AutoPtr<Packet>(); }

OpResult Packet::encode(GxfBuffer& buffer) const {
    if (gxfEncodeDetail.get() > 3) {
        infoMsg("start Packet Header encode\n");
    }
    if (buffer.nUnoccupied() < headerSize) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    // A chunk's type is known inside the pool only.
    PacketType const wireType = type == packetTypeInternalUmfChunk ? packetTypeUmfFile : type;
    EncodeChecker const checker(buffer, headerSize);
    buffer.encode(leader);
    buffer.encode(leaderMark);
    buffer.encode(static_cast<unsigned char>(wireType));
    buffer.encode(length);
    buffer.encode(reserved);
    buffer.encode(trailerE1);
    buffer.encode(trailerE2);
    checker.check();
    if (gxfEncodeDetail.get() > 3) {
        infoMsg("end Packet Header encode: %s\n", toString().get());
    }
    return OpResult::Ok;
}

bool Packet::needsAllData(GxfBuffer&) const { return false; }

AutoRefPtr<MapPacket> Packet::getMapPacket() { return nullptr; }
AutoRefPtr<MediaPacket> Packet::getMediaPacket() { return nullptr; }
AutoRefPtr<UmfPacket> Packet::getUmfPacket() { return nullptr; }
AutoRefPtr<FieldLocTblPacket> Packet::getFltPacket() { return nullptr; }
AutoRefPtr<EndOfStreamPacket> Packet::getEosPacket() { return nullptr; }

AutoPtr<char> Packet::toString() const { return textOf(*this); }

FormatStr& Packet::toString(unsigned, FormatStr& text) const {
    return text.format("%s:%db@%lld%s", getName(type), static_cast<int>(length),
                       static_cast<long long>(fileOffset), isValid() ? "" : ",invalid");
}

int Packet::preserve() {
    int const count = ++refCount;
    if (count < 2) {
        notifyBadCount(count);
    }
    return count;
}

int Packet::release() {
    int const count = refCount.dropReference();
    if (count == 0) {
        pool.recycle(*this);
    } else if (count < 0) {
        notifyBadCount(count);
    }
    return count;
}

void Packet::notifyBadCount(int) { gxfError(GxfOpSubsystem::internalError); }

AutoRefPtr<Packet> Packet::createActual() const {
    switch (type) {
    case packetTypeMap:
    case packetTypeMedia:
    case packetTypeEos:
    case packetTypeFieldLocTbl:
    case packetTypeUmfFile:
        return pool.alloc(*this);
    default:
        return nullptr;
    }
}

OpResult PacketHeader::decode(GxfBuffer& buffer) {
    if (gxfDecodeDetail.get() > 3) [[unlikely]] {
        return decodeAloud(buffer);
    }
    return decodeFields(buffer);
}

OpResult PacketHeader::decodeAloud(GxfBuffer& buffer) {
    infoMsg("start Packet Header decode\n");
    OpResult const result = decodeFields(buffer);
    if (result && gxfDecodeDetail.get() > 3) {
        infoMsg("end Packet Header decode: %s\n", toString().get());
    }
    return result;
}

inline OpResult PacketHeader::decodeFields(GxfBuffer& buffer) {
    if (buffer.nOccupied() < headerSize) {
        return gxfError(GxfOpSubsystem::badDecodeSize, nullptr,
                        OpCodeLocation::here(__FILE__, "decode"));
    }
    fileOffset = buffer.beginOffset();
    unsigned char spare[headerSize];
    unsigned char const* const bytes = buffer.takeBytes(spare);
    leader = loadMsbf<std::uint32_t>(bytes);
    leaderMark = bytes[4];
    type = static_cast<PacketType>(bytes[5]);
    length = loadMsbf<std::uint32_t>(bytes + 6);
    reserved = loadMsbf<std::uint32_t>(bytes + 10);
    trailerE1 = bytes[14];
    trailerE2 = bytes[15];
    // The next header, which is thus there by the time it is asked for. A hint, even of memory that
    // isn't there, which a pointer into these bytes may not tell of.
    __builtin_prefetch( // NOLINTNEXTLINE(performance-no-int-to-ptr)
        reinterpret_cast<void const*>(reinterpret_cast<std::uintptr_t>(bytes) + length));
    return OpResult::Ok;
}

OpResult EndOfStreamPacket::encode(GxfBuffer& buffer) const {
    if (gxfEncodeDetail.get() > 1) {
        infoMsg("start EndOfStream encode @%lld\n", static_cast<long long>(buffer.beginOffset()));
    }
    if (length > buffer.nUnoccupied()) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    OpResult const result = Packet::encode(buffer);
    if (!result) {
        return result;
    }
    if (gxfEncodeDetail.get() > 1) {
        infoMsg("end EndOfStream encode: %s\n", toString().get());
    }
    return OpResult::Ok;
}

AutoRefPtr<EndOfStreamPacket> EndOfStreamPacket::getEosPacket() { return this; }

PacketPool::PacketPool() : created(1), destroyed(1) {}

PacketPool::~PacketPool() {
    if (destroyed.getCount() + countFree() != created.getCount()) {
        auto const kept = [](AutoPtr<Packet> const& slot) { return slot.get() != nullptr ? 1 : 0; };
        debugMsg("PacketPool: %d created,%d destroyed,%d media,%d map,%d eos,%d flt,%d umf,%d hdr, "
                 "%d umfChunk\n",
                 created.getCount(), destroyed.getCount(), static_cast<int>(freeMedia.size()),
                 kept(freeMap), kept(freeEos), kept(freeFlt), kept(freeUmf), kept(freeHdr),
                 kept(freeUmfChunk));
    }
    // The slots' packets count themselves in `destroyed`, which lies behind the slots.
    freeHdr = nullptr;
    freeUmfChunk = nullptr;
    freeUmf = nullptr;
    freeFlt = nullptr;
    freeEos = nullptr;
    freeMedia.clear();
    freeMap = nullptr;
}

AutoRefPtr<Packet> PacketPool::alloc(PacketType type) { return allocReset(type, type); }

AutoRefPtr<Packet> PacketPool::alloc(Packet const& model) { return allocReset(model.type, model); }

template <typename ResetFrom>
AutoRefPtr<Packet> PacketPool::allocReset(PacketType type, ResetFrom const& from) {
    // Outlives the lock: when reset() throws, the reference that goes takes the lock itself.
    AutoRefPtr<Packet> packet;
    ScopeLock<JMutex> lock(mutex);
    packet = allocLokd(type);
    if (packet.get() == nullptr) {
        gxfError(GxfOpSubsystem::internalError, nullptr, OpCodeLocation::here(__FILE__, "alloc"));
        return nullptr;
    }
    packet->reset(from);
    return packet;
}

inline AutoRefPtr<Packet> PacketPool::allocLokd(PacketType type) {
    Packet* packet = takeFree(type);
    if (packet == nullptr) {
        packet = create(type);
    }
    if (packet == nullptr) {
        gxfError(GxfOpSubsystem::internalError);
        return nullptr;
    }
    if (packet->refCount.takeFirstReference() != 1) {
        gxfError(GxfOpSubsystem::internalError);
    }
    return {packet, preReferenced};
}

/// A free packet of that type, which the caller owns now, or null.
inline Packet* PacketPool::takeFree(PacketType type) {
    if (type == packetTypeMedia) {
        if (freeMedia.empty()) {
            return nullptr;
        }
        Packet* const last = freeMedia.back().forget();
        freeMedia.pop_back();
        return last;
    }
    AutoPtr<Packet>* const slot = slotOf(type);
    return slot != nullptr ? slot->forget() : nullptr;
}

Packet* PacketPool::create(PacketType type) {
    switch (type) {
    case packetTypeHeader:
        return new PacketHeader(*this);
    case packetTypeMap:
        return new MapPacket(*this);
    case packetTypeMedia:
        return new MediaPacket(*this);
    case packetTypeEos:
        return new EndOfStreamPacket(*this);
    case packetTypeFieldLocTbl:
        return new FieldLocTblPacket(*this);
    case packetTypeUmfFile:
        return new UmfPacket(*this);
    case packetTypeInternalUmfChunk:
        return new UmfPacket::UmfPacketChunk(*this);
    default:
        return nullptr;
    }
}

/// Where the one free packet of a kind is kept; null for media packets and for unknown kinds.
AutoPtr<Packet>* PacketPool::slotOf(PacketType type) {
    switch (type) {
    case packetTypeHeader:
        return &freeHdr;
    case packetTypeMap:
        return &freeMap;
    case packetTypeEos:
        return &freeEos;
    case packetTypeFieldLocTbl:
        return &freeFlt;
    case packetTypeUmfFile:
        return &freeUmf;
    case packetTypeInternalUmfChunk:
        return &freeUmfChunk;
    default:
        return nullptr;
    }
}

void PacketPool::recycle(Packet& packet) {
    ScopeLock<JMutex> lock(mutex);
    if (packet.refCount.getCount() != 0) {
        gxfError(GxfOpSubsystem::internalError);
    }
    // A header has its type from the wire, so its type can't tell where it belongs.
    AutoPtr<Packet> const header = packet.getAutoHdrPtr();
    if (header.get() != nullptr) {
        freeHdr = header;
        return;
    }
    if (packet.type == packetTypeMedia) {
        AutoPtr<Packet> const media(&packet);
        try {
            freeMedia.push_back(media);
        } catch (std::bad_alloc const&) {
            // No place to keep it: it goes with `media`. A release must not throw.
            return;
        }
    } else if (AutoPtr<Packet>* const slot = slotOf(packet.type)) {
        *slot = &packet;
    }
}

void PacketPool::reset() {
    ScopeLock<JMutex> lock(mutex);
    freeMap = nullptr;
    freeEos = nullptr;
    freeFlt = nullptr;
    freeUmf = nullptr;
    freeHdr = nullptr;
    freeUmfChunk = nullptr;
    freeMedia.clear();
}

int PacketPool::countFree() const {
    int count = static_cast<int>(freeMedia.size());
    for (AutoPtr<Packet> const* slot :
         {&freeMap, &freeEos, &freeFlt, &freeUmf, &freeUmfChunk, &freeHdr}) {
        count += slot->get() != nullptr ? 1 : 0;
    }
    return count;
}

} // namespace GxfTypes
