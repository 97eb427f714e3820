#pragma once

#include <gxftypes/packet/vocabulary.h>

namespace GxfTypes {

/// Names a track in the UMF and the XML by kind and number.
///
///     trackNumber 1 | trackType 1      number first, against the order of the fields
struct UmfTrackNum {
    UmfTrackNum() = default;
    UmfTrackNum(TrackTypeEncoding type, TrackNumberEncoding number)
        : trackType(type), trackNumber(number) {}

    bool operator==(UmfTrackNum const&) const = default;

    /// Code 9, with nothing changed, below 2 bytes.
    OpResult decode(GxfBuffer& buffer);
    /// Code 12 without room for 2 bytes.
    OpResult encode(GxfBuffer& buffer) const;
    FormatStr toString() const;

    /// The character for a number. There is no upper bound: intended.
    static TrackNumberEncoding umfTrackNumToTrackNumEncoding(unsigned char number);

    TrackTypeEncoding trackType{};
    TrackNumberEncoding trackNumber{};
};

} // namespace GxfTypes
