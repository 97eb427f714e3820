#include <gxftypes/packet/map.h>

#include <gxftypes/packet/packet_pool.h>

namespace GxfTypes {

void MapPacket::Preamble::reset(bool valid) {
    versionByte = valid ? 0xE0 : 0xFF;
    reservedByte = 0;
    preambleValid = valid;
}

OpResult MapPacket::Preamble::decode(GxfBuffer& buffer, unsigned remaining) {
    if (gxfDecodeDetail.get() > 2) {
        infoMsg("start Preamble decode\n");
    }
    preambleValid = remaining >= wireSize;
    if (!preambleValid) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    versionByte = buffer.decodeUint8();
    reservedByte = buffer.decodeUint8();
    if (gxfDecodeDetail.get() > 2) {
        infoMsg("end Preamble decode: %s\n", toString().get());
    }
    return OpResult::Ok;
}

OpResult MapPacket::Preamble::encode(GxfBuffer& buffer) const {
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("start Preamble encode\n");
    }
    if (buffer.nUnoccupied() < wireSize) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    EncodeChecker const checker(buffer, wireSize);
    buffer.encode(static_cast<unsigned char>(versionByte));
    buffer.encode(reservedByte);
    checker.check();
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("end Preamble encode: %s\n", toString().get());
    }
    return OpResult::Ok;
}

FormatStr& MapPacket::Preamble::toString(unsigned, FormatStr& text) const {
    return text.format("version=%d", static_cast<int>(versionByte & 31U));
}

OpResult MapPacket::MaterialData::decode(GxfBuffer& buffer, unsigned remaining) {
    if (gxfDecodeDetail.get() > 2) {
        infoMsg("start MaterialData decode @%lld\n", static_cast<long long>(buffer.beginOffset()));
    }
    if (remaining < 2) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    sectionLength = buffer.decodeUint16();
    if (sectionLength > remaining - 2) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    // The list counts by the lengths that the tags claim.
    for (unsigned left = sectionLength; left != 0;) {
        AutoPtr<Tag<MapTagType>> tag(new Tag<MapTagType>);
        OpResult const result = tag->decode(buffer, left);
        if (!result) {
            return result;
        }
        left -= tag->getCodedLength();
        addTag(tag);
    }
    if (gxfDecodeDetail.get() > 2) {
        infoMsg("end MaterialData decode: {\n%s\n}\n", TagSet::toString().get());
    }
    return OpResult::Ok;
}

OpResult MapPacket::MaterialData::encode(GxfBuffer& buffer) const {
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("start MaterialData encode @%lld\n", static_cast<long long>(buffer.beginOffset()));
    }
    if (getCodedLength() > buffer.nUnoccupied()) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    EncodeChecker const checker(buffer, getCodedLength());
    buffer.encode(sectionLength);
    for (unsigned i = 0; i < size(); ++i) {
        OpResult const result = tags[i]->encode(buffer);
        if (!result) {
            return result;
        }
    }
    checker.check();
    if (gxfEncodeDetail.get() > 2) {
        infoMsg("end MaterialData encode: {\n%s\n}\n", TagSet::toString().get());
    }
    return OpResult::Ok;
}

void MapPacket::MaterialData::reset(bool isValid) {
    sectionLength = 0;
    TagSet::reset(isValid);
}

void MapPacket::MaterialData::copy(MaterialData const& other) {
    if (this == &other) {
        return;
    }
    sectionLength = other.sectionLength;
    // Valid whatever the source's flag is: intended.
    TagSet::reset(true);
    for (unsigned i = 0; i < other.size(); ++i) {
        addTag(AutoPtr<Tag<MapTagType>>(new Tag<MapTagType>(*other.tags[i])));
    }
}

MapPacket::MapPacket(PacketPool& owner)
    : Packet(packetTypeMap, owner), preamble(true), materialData(true), tracks(true),
      packetValid(true) {}

MapPacket::MapPacket(Packet& source)
    : Packet(source), preamble(false), materialData(false), tracks(false), packetValid(false) {}

void MapPacket::reset(Packet const& source) {
    Packet::resetPrivate(source);
    resetPrivate(false);
}

void MapPacket::reset(PacketType newType) {
    Packet::resetPrivate(newType);
    resetPrivate(true);
}

void MapPacket::resetPrivate(bool valid) {
    preamble.reset(valid);
    materialData.reset(valid);
    tracks.reset(valid);
    packetValid = valid;
}

OpResult MapPacket::encode(GxfBuffer& buffer) const {
    if (gxfEncodeDetail.get() > 1) {
        infoMsg("start MapPacket encode @%lld\n", static_cast<long long>(buffer.beginOffset()));
    }
    if (length > buffer.nUnoccupied()) {
        return gxfError(GxfOpSubsystem::badEncodeSize);
    }
    EncodeChecker const checker(buffer, length);
    OpResult const result = encodeSections(buffer);
    if (!result) {
        return result;
    }
    checker.check();
    if (gxfEncodeDetail.get() > 1) {
        infoMsg("end MapPacket encode: %s\n", toString().get());
    }
    return OpResult::Ok;
}

OpResult MapPacket::encodeSections(GxfBuffer& buffer) const {
    OpResult result = Packet::encode(buffer);
    if (result) {
        result = preamble.encode(buffer);
    }
    if (result) {
        result = materialData.encode(buffer);
    }
    if (result) {
        result = tracks.encode(buffer);
    }
    if (result) {
        result = preservedData.encode(buffer);
    }
    return result;
}

OpResult MapPacket::decode(GxfBuffer& buffer) {
    if (gxfDecodeDetail.get() > 1) {
        infoMsg("start MapPacket decode @%lld\n", static_cast<long long>(buffer.beginOffset()));
    }
    packetValid = false;
    unsigned remaining = getPayloadLength();
    if (!preamble.decode(buffer, remaining)) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    remaining -= Preamble::wireSize;
    // What failed in the material data goes no further: intended.
    if (!materialData.decode(buffer, remaining)) {
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    remaining -= materialData.getCodedLength();
    OpResult const tracksResult = tracks.decode(buffer, remaining);
    if (!tracksResult) {
        return tracksResult;
    }
    remaining -= tracks.getCodedLength();
    // A tail that isn't there is told by isValid() alone: intended.
    if (remaining != 0 && !preservedData.decode(buffer, remaining, GxfPreservedData::keep)) {
        return tracksResult;
    }
    packetValid = true;
    if (gxfDecodeDetail.get() > 1) {
        infoMsg("end MapPacket decode: %s\n", toString().get());
    }
    return OpResult::Ok;
}

bool MapPacket::isEqual(Packet const& other) const {
    auto const* const map = dynamic_cast<MapPacket const*>(&other);
    return map != nullptr && preamble.isEqual(map->preamble) &&
           materialData.isEqual(map->materialData) && tracks.isEqual(map->tracks);
}

AutoRefPtr<Packet> MapPacket::clone() const {
    AutoRefPtr<Packet> copy = pool.alloc(*this);
    AutoRefPtr<MapPacket> const map =
        copy.get() != nullptr ? copy->getMapPacket() : AutoRefPtr<MapPacket>();
    if (map.get() == nullptr) {
        return nullptr;
    }
    map->preamble.copy(preamble);
    map->materialData.copy(materialData);
    map->tracks.copy(tracks);
    map->preservedData.copy(preservedData);
    map->packetValid = packetValid;
    if (!isEqual(*map)) {
        errorMsg("MapPacket clone failed\n");
        return nullptr;
    }
    return copy;
}

MapPacket::Track const* MapPacket::getTimecodeTrack() const {
    for (unsigned i = 0; i < tracks.size(); ++i) {
        Track const* const track = tracks[i];
        if (getTrackType(track->mediaType) == trackTypeTimecode) {
            return track;
        }
    }
    return nullptr;
}

FormatStr& MapPacket::toString(unsigned indent, FormatStr& text) const {
    int const outer = static_cast<int>(indent);
    int const inner = outer + 2;
    Packet::toString(indent, text);
    text.format("\n%*spreamble={", outer, "");
    preamble.toString(indent + 2, text);
    text.format("}\n%*smaterialData={\n%*s", outer, "", inner, "");
    materialData.TagSet::toString(indent + 2, text);
    text.format("}\n%*strackDesc={\n%*s", outer, "", inner, "");
    tracks.toString(indent + 2, text);
    return text.cat("}");
}

} // namespace GxfTypes
