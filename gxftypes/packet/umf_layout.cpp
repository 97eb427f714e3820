#include <gxftypes/packet/umf_layout.h>

namespace GxfTypes {

void UmfPreamble::reset() {
    packetOrder = umfPacketOrderUninit;
    payloadLength = 0;
    valid = false;
}

OpResult UmfPreamble::decode(GxfBuffer& buffer, unsigned available) {
    valid = false;
    if (available < wireSize || buffer.nOccupied() < wireSize) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    packetOrder = static_cast<UmfPacketOrder>(buffer.decodeUint8());
    if (packetOrder > umfPacketOrderOnly) {
        return gxfError(GxfOpSubsystem::badDecodeData);
    }
    payloadLength = buffer.decodeUint32();
    valid = true;
    return OpResult::Ok;
}

OpResult UmfPreamble::encode(GxfBuffer& buffer) const {
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("start Preamble encode @%lld\n", static_cast<long long>(buffer.beginOffset()));
    }
    if (buffer.nUnoccupied() < wireSize) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    EncodeChecker const checker(buffer, wireSize);
    buffer.encode(static_cast<unsigned char>(packetOrder));
    buffer.encode(payloadLength);
    checker.check();
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("end Preamble encode %s\n", toString().get());
    }
    return OpResult::Ok;
}

FormatStr& UmfPreamble::toString(unsigned, FormatStr& text) const {
    return text.format("%s,payloadLen=%d", getName(packetOrder), static_cast<int>(payloadLength));
}

void UmfPayloadDesc::reset() {
    for (auto const word : words) {
        this->*word = 0;
    }
    valid = false;
}

OpResult UmfPayloadDesc::decode(GxfBuffer& buffer, unsigned available) {
    valid = false;
    if (available < wireSize || buffer.nOccupied() < wireSize) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    for (auto const word : words) {
        this->*word = buffer.decodeUint32Lsbf();
    }
    std::uint32_t const sections = trackDescSize + mediaDescSize + userDataLength + wireSize;
    if (version != 3 || sections > totalLength || numTracks > maxTracks) {
        return gxfError(GxfOpSubsystem::badDecodeData);
    }
    valid = true;
    return OpResult::Ok;
}

OpResult UmfPayloadDesc::encode(GxfBuffer& buffer) const {
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("start Payload Desc encode @%lld\n", static_cast<long long>(buffer.beginOffset()));
    }
    if (buffer.nUnoccupied() < wireSize) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    EncodeChecker const checker(buffer, wireSize);
    for (auto const word : words) {
        buffer.encodeLsbf(this->*word);
    }
    checker.check();
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("end Payload Desc encode %s\n", toString().get());
    }
    return OpResult::Ok;
}

bool UmfPayloadDesc::isEqual(UmfPayloadDesc const& other) const {
    for (auto const word : words) {
        if (this->*word != other.*word) {
            return false;
        }
    }
    return true;
}

FormatStr& UmfPayloadDesc::toString(unsigned, FormatStr& text) const {
    auto const number = [](std::uint32_t word) { return static_cast<int>(word); };
    return text.format("totLen=%d,v%d,nTrk=%d(%db@%d),nSeg=%d,media=(%db@%d),ud=%db@%d,idx=%ub@%u",
                       number(totalLength), number(version), number(numTracks),
                       number(trackDescSize), number(trackDescOffset), number(numSegments),
                       number(mediaDescSize), number(mediaDescOffset), number(userDataLength),
                       number(userDataOffset), indexLength, indexOffset);
}

} // namespace GxfTypes
