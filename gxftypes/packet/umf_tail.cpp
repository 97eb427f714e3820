#include <gxftypes/packet/umf_tail.h>

#include <algorithm>
#include <iterator>

namespace GxfTypes {

OpResult UmfIndex::decode(GxfBuffer& buffer, unsigned size) {
    if (buffer.nOccupied() < size) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    if (size != wireSize) {
        FormatStr const text("UMF index size %ub != %ub", size, wireSize);
        return {OpResult::Error, GxfOpSubsystem::badDecodeData, gxfOpSubsystem.getId(), text.get()};
    }
    for (std::uint16_t& word : words) {
        word = buffer.decodeUint16Lsbf();
    }
    valid = true;
    return OpResult::Ok;
}

OpResult UmfIndex::encode(GxfBuffer& buffer) const {
    if (!valid) {
        return OpResult::Ok;
    }
    if (size() > wireSize) {
        return gxfError(GxfOpSubsystem::badEncodeData);
    }
    if (buffer.nUnoccupied() < wireSize) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    for (std::uint16_t const word : words) {
        buffer.encodeLsbf(word);
    }
    return OpResult::Ok;
}

bool UmfIndex::isEqual(UmfIndex const& other) const {
    return valid == other.valid && std::equal(std::begin(words), std::end(words), other.words);
}

OpResult UmfFillerData::encode(GxfBuffer& buffer) const {
    if (fillBytes > buffer.nUnoccupied()) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    if (!buffer.addOutputZeros(fillBytes)) {
        return gxfError(GxfOpSubsystem::badEncodeData);
    }
    return OpResult::Ok;
}

} // namespace GxfTypes
