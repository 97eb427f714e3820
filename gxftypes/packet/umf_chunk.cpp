#include <gxftypes/packet/umf_chunk.h>

#include <gxftypes/packet/umf.h>

namespace GxfTypes {

void UmfChunk::reset(Packet const& source) {
    clear();
    resetPrivate(source);
}

void UmfChunk::reset(PacketType newType) {
    clear();
    resetPrivate(newType);
}

void UmfChunk::clear() {
    payloadLength = 0;
    padLength = 0;
    initialised = false;
}

void UmfChunk::init(UmfPacketOrder order, unsigned n) {
    preamble = UmfPreamble(order, n);
    length = n + headerSize + UmfPreamble::wireSize;
    payloadLength = n;
    padLength = UmfPacket::calcPacketPad(length);
    length += padLength;
    initialised = true;
}

OpResult UmfChunk::encode(GxfBuffer& out, GxfBuffer& payload) const {
    if (!initialised) {
        return gxfError(GxfOpSubsystem::internalError);
    }
    if (getCodedLength() > out.nUnoccupied() || payload.nOccupied() < preamble.getPayloadLength()) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    OpResult result = Packet::encode(out);
    if (result) {
        result = preamble.encode(out);
    }
    if (!result) {
        return result;
    }
    if (!out.encodeBlob(payload.ptrBegin(), preamble.getPayloadLength()) ||
        !out.addOutputZeros(padLength)) {
        return gxfError(GxfOpSubsystem::badEncodeData);
    }
    payload.removeInput(preamble.getPayloadLength());
    return OpResult::Ok;
}

} // namespace GxfTypes
