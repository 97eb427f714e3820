#include <gxftypes/packet/media.h>

#include <algorithm>
#include <memory>

namespace GxfTypes {

void MediaPacket::reset(Packet const& source) {
    hdr.reset();
    Packet::resetPrivate(source);
    if (perFrameTc.get() != nullptr) {
        keepTcSet();
    }
    bitParser.setList(0, nullptr);
    valid = false;
}

void MediaPacket::reset(PacketType newType) {
    hdr.reset();
    Packet::resetPrivate(newType);
    valid = true;
}

OpResult MediaPacket::decode(GxfBuffer& buffer) {
    // Compiled apart, so that a stream's packets don't pay for what is rare.
    if (gxfDecodeDetail.get() > 1 || buffer.nOccupied() < MediaPacketHdr::wireSize) [[unlikely]] {
        return decodeRare(buffer);
    }
    return decodePayload(buffer);
}

OpResult MediaPacket::decodeRare(GxfBuffer& buffer) {
    if (gxfDecodeDetail.get() > 1) {
        infoMsg("start MediaPacket decode\n");
    }
    return decodePayload(buffer);
}

inline OpResult MediaPacket::decodePayload(GxfBuffer& buffer) {
    if (length - headerSize < MediaPacketHdr::wireSize) {
        valid = false;
        return gxfError(GxfOpSubsystem::badDecodeSize, nullptr,
                        OpCodeLocation::here(__FILE__, "decode"));
    }
    unsigned long long const start = buffer.beginOffset();
    hdr.decode(buffer);
    if (isIPicture() || hdr.isTimecode()) {
        return decodeEssence(buffer, start);
    }
    skipPayload(buffer, start);
    valid = true;
    return OpResult::Ok;
}

OpResult MediaPacket::decodeEssence(GxfBuffer& buffer, unsigned long long start) {
    buffer.removeInput(1); // the preamble's reserved byte
    if (isIPicture()) {
        scanIPicture(buffer);
    } else {
        decodeTimecodes(buffer);
    }
    skipPayload(buffer, start);
    valid = true;
    return OpResult::Ok;
}

/// Consumes what is left of a payload that began at `start`, of the preamble at least.
inline void MediaPacket::skipPayload(GxfBuffer& buffer, unsigned long long start) const {
    unsigned const size = length < headerSize ? 0 : length - headerSize;
    unsigned long long const end = start + std::max(size, MediaPacketHdr::wireSize);
    if (buffer.beginOffset() < end) {
        buffer.removeInput(end - buffer.beginOffset());
    }
}

/// Looks for the sequence and GOP headers in front of the picture. The buffer's position stays.
void MediaPacket::scanIPicture(GxfBuffer& buffer) {
    initSgl_t bytes(buffer.ptrBegin(), buffer.nOccupied());
    bitParser.setList(1, &bytes);
    bool metGop = false;
    bool metSequence = false;
    while (!metGop || !metSequence) {
        unsigned const code = nextMpegStartCode(bitParser);
        if (code == 0 || code == mpegPictureStartCode || code == mpegFirstSliceStartCode) {
            break;
        }
        if (code == mpegGroupStartCode) {
            metGop = true;
            decodeGopHeader();
        } else if (code == mpegSequenceHeaderCode) {
            metSequence = true;
            decodeSequenceHeader();
        }
    }
    // The list lives no longer than this function.
    bitParser.setList(0, nullptr);
}

void MediaPacket::decodeGopHeader() {
    MpegGopHeader gop;
    if (gop.decode(bitParser, nullptr)) {
        hdr.setClosedGop(gop.closedGop);
    }
}

void MediaPacket::decodeSequenceHeader() {
    MpegSeqHeader sequence;
    if (!sequence.decode(bitParser, nullptr)) {
        return;
    }
    // 1080 lines are coded in whole macroblocks of 16, or of 32 for interlaced pictures.
    bool const is1080 = sequence.verticalSize == 1072 || sequence.verticalSize == 1088;
    hdr.setMpegPictureHeight(is1080 ? 1080 : static_cast<unsigned short>(sequence.verticalSize));
    hdr.setMpegPictureWidth(static_cast<unsigned short>(sequence.horizontalSize));
}

void MediaPacket::decodeTimecodes(GxfBuffer& buffer) {
    // 16 bytes more than the block, though the preamble is consumed already: intended.
    constexpr unsigned wanted = PerFrameTcSet::wireSize + MediaPacketHdr::wireSize;
    if (buffer.nOccupied() < wanted) {
        FormatStr const text("Timecode::decode: expected %d bytes, found %d\n",
                             static_cast<int>(wanted), static_cast<int>(buffer.nOccupied()));
        OpResult const raised(OpResult::Error, GxfOpSubsystem::internalError,
                              gxfOpSubsystem.getId(), text.get());
        return;
    }
    if (perFrameTc.get() != nullptr) {
        keepTcSet();
    }
    perFrameTc = makeTcSet();
    perFrameTc->decode(buffer);
    switch (hdr.getMediaType()) {
    case trackMediaTimecode_525:
        perFrameTc->setTimecodeHz(30);
        break;
    case trackMediaTimecode_625:
        perFrameTc->setTimecodeHz(25);
        break;
    default:
        perFrameTc->setTimecodeHz(60);
        break;
    }
}

void MediaPacket::keepTcSet() { m_spareTcSet = perFrameTc; }

AutoPtr<PerFrameTcSet> MediaPacket::makeTcSet() {
    if (m_spareTcSet.get() == nullptr) {
        return AutoPtr<PerFrameTcSet>(new PerFrameTcSet(hdr.getMediaField(), hdr.getTimeline()));
    }
    std::destroy_at(m_spareTcSet.get());
    std::construct_at(m_spareTcSet.get(), hdr.getMediaField(), hdr.getTimeline());
    return m_spareTcSet;
}

bool MediaPacket::isEqual(Packet const& other) const {
    auto const* const media = dynamic_cast<MediaPacket const*>(&other);
    return media != nullptr && hdr.isEqual(media->hdr);
}

bool MediaPacket::needsAllData(GxfBuffer& buffer) const {
    if (buffer.nOccupied() == 0) {
        gxfError(GxfOpSubsystem::internalError);
        return false;
    }
    return MediaPacketHdr::isTimecodeType(*buffer.ptrBegin());
}

FormatStr& MediaPacket::toString(unsigned indent, FormatStr& text) const {
    Packet::toString(indent, text);
    hdr.toString(indent, text.cat(": "));
    if (isTimecode() && perFrameTc.get() != nullptr) {
        text.format(",\n%*s", static_cast<int>(indent), "");
        perFrameTc->toString(indent + 2, text);
    }
    return text;
}

} // namespace GxfTypes
