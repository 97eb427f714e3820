#include <gxftypes/packet/umf.h>

#include <algorithm>
#include <memory>

#include <gxftypes/packet/packet_pool.h>

namespace GxfTypes {

UmfPacket::UmfPacket(PacketPool& owner)
    : Packet(packetTypeUmfFile, owner), gatherBuffer(MediaAgent(nullptr)) {
    resetPrivate(true);
}

UmfPacket::UmfPacket(Packet& source) : Packet(source), gatherBuffer(MediaAgent(nullptr)) {
    resetPrivate(false);
}

void UmfPacket::reset(Packet const& source) {
    Packet::resetPrivate(source);
    resetPrivate(false);
}

void UmfPacket::reset(PacketType newType) {
    Packet::resetPrivate(newType);
    resetPrivate(true);
}

void UmfPacket::resetPrivate(bool isValid) {
    preamble.reset();
    payloadDesc.reset();
    materialDesc.reset();
    trackDescs.reset();
    mediaDescs.reset();
    userData.reset();
    gatherBuffer.reset(GxfBuffer::DataState::noData, 0);
    decodedPayloadSize = 0;
    valid = isValid;
}

OpResult UmfPacket::decode(GxfBuffer& in) {
    if (gxfDecodeDetail.get() > 1) {
        infoMsg("start UmfPacket decode @%lld\n", static_cast<long long>(in.beginOffset()));
    }
    valid = false;
    unsigned n = getPayloadLength();
    if (n < Preamble::wireSize) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    OpResult const result = preamble.decode(in, n);
    if (!result) {
        return result;
    }
    n -= Preamble::wireSize;
    if (preamble.packetOrder > umfPacketOrderOnly) {
        FormatStr const text("invalid packet order: %d", static_cast<int>(preamble.packetOrder));
        return {OpResult::Error, GxfOpSubsystem::badDecodeData, gxfOpSubsystem.getId(), text.get()};
    }
    valid = true;
    gatherBuffer.moveFrom(in, getPart2Length());
    // In 32 bits, whatever the preamble claims: intended.
    n -= getPart2Length();
    in.removeInput(n);
    bool const isFinal =
        preamble.packetOrder == umfPacketOrderLast || preamble.packetOrder == umfPacketOrderOnly;
    return {OpResult::Info, isFinal ? GxfOpSubsystem::umfFinal : GxfOpSubsystem::umfPartial,
            gxfOpSubsystem.getId(), nullptr};
}

void UmfPacket::prependPayload(UmfPacket& earlier) {
    earlier.gatherBuffer.moveFrom(gatherBuffer, getPart2Length());
    gatherBuffer.replaceWith(earlier.gatherBuffer);
    fileOffset = earlier.getFileOffset();
    length += earlier.getCodedLength();
}

unsigned UmfPacket::tailSize() const {
    return preservedData[0].size() + preservedData[1].size() + fillerData.size();
}

unsigned UmfPacket::calcPayloadSize() const {
    return PayloadDesc::wireSize + MaterialDesc::wireSize + calcTrackDescSize() +
           calcMediaDescSize() + calcUserDataSize() + umfIndex.size() + tailSize();
}

unsigned UmfPacket::calcIndexOffset() const {
    return umfIndex.valid ? calcPayloadSize() - umfIndex.size() - tailSize() : 0;
}

unsigned UmfPacket::calcXmlOffset() const {
    return preservedData[0].size() != 0 ? calcPayloadSize() - tailSize() : 0;
}

unsigned UmfPacket::calcLength() const {
    constexpr unsigned frontSize = headerSize + Preamble::wireSize;
    unsigned const payload = calcPayloadSize();
    unsigned const whole = payload / fragmentSize;
    unsigned const rest = payload % fragmentSize;
    unsigned bytes = whole * (frontSize + fragmentSize + calcPacketPad(frontSize + fragmentSize));
    if (rest != 0) {
        bytes += frontSize + rest + calcPacketPad(frontSize + rest);
    }
    return bytes;
}

OpResult UmfPacket::updateSize() {
    unsigned const target = decodedPayloadSize;
    if (calcPayloadSize() > target) {
        fillerData.erase();
    }
    if (calcPayloadSize() > target) {
        preservedData[1].discard();
    }
    if (calcPayloadSize() > target) {
        discardXml();
    }
    if (calcPayloadSize() > target) {
        umfIndex.discard();
    }
    if (calcPayloadSize() > target) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    addFillerBytes(target - calcPayloadSize());
    if (getCodedLength() != calcLength()) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    return OpResult::Ok;
}

OpResult UmfPacket::update() {
    OpResult const result = updateSize();
    if (!result) {
        return result;
    }
    if (preservedData[0].size() != 0 && !umfIndex.valid) {
        warningMsg("UMF packet is missing contains XML but is missing index\n");
    }
    umfIndex.setXmlOffset(static_cast<unsigned short>(calcXmlOffset()));
    umfIndex.setXmlLength(static_cast<unsigned short>(preservedData[0].size()));
    payloadDesc.setIndexOffset(calcIndexOffset());
    payloadDesc.setIndexSize(umfIndex.size());
    payloadDesc.setUserDataLength(calcUserDataSize());
    return OpResult::Ok;
}

void UmfPacket::discardXml() {
    if (preservedData[0].size() != 0) {
        warningMsg("discarding xml\n");
    }
    preservedData[0].discard();
}

OpResult UmfPacket::encode(GxfBuffer& out) const {
    if (gxfEncodeDetail.get() > 1) {
        infoMsg("start UmfPacket encode @%llu\n", out.beginOffset());
    }
    if (getCodedLength() > out.nUnoccupied()) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    unsigned const payloadSize = calcPayloadSize();
    auto const storage = std::make_unique_for_overwrite<unsigned char[]>(payloadSize);
    GxfBuffer payload(storage.get(), payloadSize, GxfBuffer::DataState::empty, MediaAgent(nullptr));
    EncodeChecker const payloadChecker(payload, payloadSize);
    OpResult result = encodePayload(payload);
    if (!result) {
        return result;
    }
    payloadChecker.check();

    EncodeChecker const checker(out, getCodedLength());
    result = encodePackets(out, payload);
    if (!result) {
        return result;
    }
    checker.check();
    if (gxfEncodeDetail.get() > 1) {
        infoMsg("end UmfPacket encode: %s\n", toString().get());
    }
    return OpResult::Ok;
}

OpResult UmfPacket::encodePayload(GxfBuffer& payload) const {
    OpResult result = payloadDesc.encode(payload);
    if (result) {
        result = materialDesc.encode(payload);
    }
    for (unsigned i = 0; result && i < trackDescs.size(); ++i) {
        result = trackDescs[i].encode(payload);
    }
    for (unsigned i = 0; result && i < mediaDescs.size(); ++i) {
        result = mediaDescs[i].encode(payload);
    }
    if (result) {
        result = userData.encode(payload);
    }
    if (result) {
        result = umfIndex.encode(payload);
    }
    for (unsigned i = 0; result && i < 2; ++i) {
        result = preservedData[i].encode(payload);
    }
    if (result) {
        result = fillerData.encode(payload);
    }
    return result;
}

OpResult UmfPacket::encodePackets(GxfBuffer& out, GxfBuffer& payload) const {
    AutoRefPtr<Packet> const packet = pool.alloc(packetTypeInternalUmfChunk);
    auto* const chunk = dynamic_cast<UmfPacketChunk*>(packet.get());
    if (chunk == nullptr) {
        return gxfError(GxfOpSubsystem::internalError);
    }
    UmfPacketOrder order = umfPacketOrderFirst;
    while (payload.nOccupied() != 0) {
        unsigned const left = payload.nOccupied();
        if (left <= fragmentSize) {
            order = order == umfPacketOrderFirst ? umfPacketOrderOnly : umfPacketOrderLast;
        }
        chunk->init(order, std::min(left, fragmentSize));
        OpResult const result = chunk->encode(out, payload);
        if (!result) {
            return result;
        }
        order = umfPacketOrderMiddle;
    }
    return OpResult::Ok;
}

bool UmfPacket::isEqual(Packet const& other) const {
    auto const* const umf = dynamic_cast<UmfPacket const*>(&other);
    if (umf == nullptr || !payloadDesc.isEqual(umf->payloadDesc) ||
        !materialDesc.isEqual(umf->materialDesc)) {
        return false;
    }
    auto const equalLists = [](auto const& a, auto const& b) {
        for (unsigned i = 0; i < a.size() && i < b.size(); ++i) {
            if (!a[i].isEqual(b[i])) {
                return false;
            }
        }
        return a.size() == b.size();
    };
    return equalLists(trackDescs, umf->trackDescs) && equalLists(mediaDescs, umf->mediaDescs) &&
           userData.isEqual(umf->userData) && umfIndex.isEqual(umf->umfIndex);
}

AutoRefPtr<UmfPacket> UmfPacket::clone() const {
    debugMsg("UmfPacket::clone() needs review\n");
    AutoRefPtr<Packet> const packet = pool.alloc(*this);
    AutoRefPtr<UmfPacket> copy =
        packet.get() != nullptr ? packet->getUmfPacket() : AutoRefPtr<UmfPacket>();
    if (copy.get() == nullptr) {
        return nullptr;
    }
    copy->preamble = preamble;
    copy->payloadDesc = payloadDesc;
    copy->materialDesc = materialDesc;
    for (unsigned i = 0; i < trackDescs.size(); ++i) {
        copy->trackDescs.push_back(trackDescs[i]);
    }
    for (unsigned i = 0; i < mediaDescs.size(); ++i) {
        copy->mediaDescs.push_back(mediaDescs[i]);
    }
    if (!copy->userData.copy(userData)) {
        return nullptr;
    }
    copy->umfIndex = umfIndex;
    copy->preservedData[0].copy(preservedData[0]);
    copy->preservedData[1].copy(preservedData[1]);
    copy->fillerData = fillerData;
    copy->decodedPayloadSize = decodedPayloadSize;
    copy->valid = valid;
    if (!isEqual(*copy)) {
        errorMsg("UMF Packet clone failed\n");
        return nullptr;
    }
    return copy;
}

UmfPacket::MediaDesc* UmfPacket::getMediaDesc(UmfTrackNum const& trackNum) {
    for (unsigned i = 0; i < mediaDescs.size(); ++i) {
        if (mediaDescs[i].getTrackNum() == trackNum) {
            return &mediaDescs[i];
        }
    }
    return nullptr;
}

UmfPacket::MediaDesc const* UmfPacket::getMediaDesc(UmfTrackNum const& trackNum) const {
    return const_cast<UmfPacket*>(this)->getMediaDesc(trackNum);
}

GxfXmlTrack const* UmfPacket::getXmlTrack(UmfTrackNum const& trackNum) const {
    auto const& tracks = xmlTree.getXmlTracks();
    for (unsigned i = 0; i < tracks.size(); ++i) {
        if (tracks[i].getUmfTrackNum() == trackNum) {
            return &tracks[i];
        }
    }
    return nullptr;
}

FormatStr& UmfPacket::toString(unsigned indent, FormatStr& text) const {
    int const middle = static_cast<int>(indent) + 2;
    int const inner = static_cast<int>(indent) + 4;
    Packet::toString(indent, text);
    text.format("\n%*spreamble={", middle, "");
    preamble.toString(indent, text);
    if (payloadDesc.isValid()) {
        text.format("}\n%*spayload={", middle, "");
        payloadDesc.toString(indent, text);
        text.format("}\n%*smaterial={", middle, "");
        materialDesc.toString(indent + 4, text);
        auto const list = [&](auto const& descs) {
            for (unsigned i = 0; i < descs.size(); ++i) {
                if (i != 0) {
                    text.format("\n%*s", inner, "");
                }
                descs[i].toString(indent + 4, text);
            }
        };
        text.format("}\n%*strack[%d]={\n%*s", middle, "", static_cast<int>(trackDescs.size()),
                    inner, "");
        list(trackDescs);
        text.format("}\n%*smedia[%d]={\n%*s", middle, "", static_cast<int>(mediaDescs.size()),
                    inner, "");
        list(mediaDescs);
        text.format("}\n%*suserdata[%d]={\n%*s", middle, "", static_cast<int>(userData.nItems()),
                    inner, "");
        userData.toString(indent + 6, text);
    }
    return text.cat("}");
}

} // namespace GxfTypes
