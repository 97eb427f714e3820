#include <gxftypes/packet/umf.h>

#include <algorithm>

namespace GxfTypes {

OpResult UmfPacket::decodeFinal() {
    if (gxfDecodeDetail.get() > 1) {
        infoMsg("start UmfPacket decodeFinal\n");
    }
    decodedPayloadSize = gatherBuffer.nOccupied();
    unsigned remaining = decodedPayloadSize;
    OpResult result = decodeSections(remaining);
    if (!result) {
        valid = false;
        return result;
    }
    if (remaining != 0) {
        result = decodeTail(remaining);
    }
    if (gxfDebug.on(gxfDebugXml) && preservedData[0].size() == 0) {
        result = OpResult(OpResult::Warning, GxfOpSubsystem::noXmlData, gxfOpSubsystem.getId(),
                          "no XML within UMF");
    }
    if (gxfDecodeDetail.get() > 1) {
        infoMsg("end UmfPacket decode: %s\n", toString().get());
    }
    gatherBuffer.reset(GxfBuffer::DataState::noData, 0);
    valid = true;
    return result;
}

/// All that must be good. `remaining` counts the bytes not yet parsed by the lengths that the wire
/// claims.
OpResult UmfPacket::decodeSections(unsigned& remaining) {
    if (remaining < PayloadDesc::wireSize) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    OpResult result = payloadDesc.decode(gatherBuffer, remaining);
    if (!result) {
        return result;
    }
    remaining -= PayloadDesc::wireSize;
    result = materialDesc.decode(gatherBuffer, remaining);
    if (!result) {
        return result;
    }
    remaining -= MaterialDesc::wireSize;
    if (payloadDesc.getNTracks() > PayloadDesc::maxTracks) {
        return gxfError(GxfOpSubsystem::badDecodeData);
    }
    result = decodeTracks(remaining);
    return result ? decodeUserData(remaining) : result;
}

OpResult UmfPacket::decodeTracks(unsigned& remaining) {
    unsigned segments = 0;
    trackDescs.resize(payloadDesc.getNTracks());
    for (unsigned i = 0; i < trackDescs.size(); ++i) {
        OpResult const result = trackDescs[i].decode(gatherBuffer, remaining);
        if (!result) {
            return result;
        }
        remaining -= TrackDesc::wireSize;
        segments += trackDescs[i].getNumSegments();
    }
    return decodeMedia(segments, remaining);
}

OpResult UmfPacket::decodeMedia(unsigned segments, unsigned& remaining) {
    if (segments == 0) {
        return OpResult::Ok;
    }
    // The first description that isn't there fails, so that there is no need for room behind it.
    unsigned const present = gatherBuffer.nOccupied() / MediaDesc::wireSize;
    mediaDescs.resize(std::min(segments, present + 1));
    for (unsigned i = 0; i < mediaDescs.size(); ++i) {
        OpResult const result = mediaDescs[i].decode(gatherBuffer, remaining);
        if (!result) {
            return result;
        }
        remaining -= mediaDescs[i].getLength();
    }
    return OpResult::Ok;
}

OpResult UmfPacket::decodeUserData(unsigned& remaining) {
    unsigned userDataLeft = payloadDesc.getUserDataLength();
    if (userDataLeft > remaining) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    UmfUserDataRun run(userData);
    while (userDataLeft != 0 && remaining != 0) {
        OpResult result;
        AutoPtr<UserData> const item = UserData::decode(gatherBuffer, remaining, result);
        if (!result || item.get() == nullptr) {
            return result;
        }
        unsigned const n = item->getLength();
        if (n == 0 || n > remaining || n > userDataLeft) {
            return gxfError(GxfOpSubsystem::badDecodeSize);
        }
        remaining -= n;
        userDataLeft -= n;
        result = run.add(item);
        if (!result) {
            return result;
        }
    }
    return OpResult::Ok;
}

/// What may be broken: the result tells, and the packet stays usable.
OpResult UmfPacket::decodeTail(unsigned remaining) {
    OpResult result;
    if (unsigned const indexLength = payloadDesc.getIndexLength()) {
        result = umfIndex.decode(gatherBuffer, indexLength);
        remaining -= indexLength;
        if (!gxfDebug.on(gxfDebugErrors)) {
            result.downgradeTo(OpResult::Warning);
        }
    }
    // Without an index in this payload a recycled packet counts by its old one: intended.
    if (unsigned const xmlLength = result ? umfIndex.getXmlLength() : 0) {
        result = xmlTree.decode(gatherBuffer, xmlLength);
        preservedData[0].decode(gatherBuffer, xmlLength, GxfPreservedData::keep);
        remaining -= xmlLength;
    }
    preservedData[1].decode(gatherBuffer, remaining, GxfPreservedData::keep);
    return result;
}

} // namespace GxfTypes
