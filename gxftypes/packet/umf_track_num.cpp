#include <gxftypes/packet/umf_track_num.h>

namespace GxfTypes {

OpResult UmfTrackNum::decode(GxfBuffer& buffer) {
    if (buffer.nOccupied() < 2) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    trackNumber = static_cast<TrackNumberEncoding>(buffer.decodeUint8());
    trackType = static_cast<TrackTypeEncoding>(buffer.decodeUint8());
    return OpResult::Ok;
}

OpResult UmfTrackNum::encode(GxfBuffer& buffer) const {
    if (buffer.nUnoccupied() < 2) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    buffer.encode(static_cast<unsigned char>(trackNumber));
    buffer.encode(static_cast<unsigned char>(trackType));
    return OpResult::Ok;
}

FormatStr UmfTrackNum::toString() const {
    return FormatStr("%s%c", getName(trackType), static_cast<int>(trackNumber));
}

TrackNumberEncoding UmfTrackNum::umfTrackNumToTrackNumEncoding(unsigned char number) {
    return static_cast<TrackNumberEncoding>(number > 9 ? number + 55 : number + 48);
}

} // namespace GxfTypes
