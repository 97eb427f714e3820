#include <gxftypes/packet/media.h>

#include <memory>

namespace GxfTypes {

void MediaPacket::reset(Packet const& source) {
    hdr.reset();
    Packet::resetPrivate(source);
    keepTcSet();
    bitParser.setList(0, nullptr);
    valid = false;
}

void MediaPacket::reset(PacketType newType) {
    hdr.reset();
    Packet::resetPrivate(newType);
    valid = true;
}

OpResult MediaPacket::decode(GxfBuffer& buffer) {
    if (gxfDecodeDetail.get() > 1) {
        infoMsg("start MediaPacket decode\n");
    }
    if (getPayloadLength() < MediaPacketHdr::wireSize) {
        valid = false;
        return gxfError(GxfOpSubsystem::badDecodeSize);
    }
    unsigned long long const start = buffer.beginOffset();
    hdr.decode(buffer);
    buffer.removeInput(1);
    if (hdr.isMpeg() && hdr.getMpegPicType() == mpegPicTypeI) {
        scanIPicture(buffer);
    } else if (hdr.isTimecode()) {
        decodeTimecodes(buffer);
    }
    auto const consumed = static_cast<long long>(buffer.beginOffset() - start);
    long long const remaining = static_cast<long long>(length) - consumed - headerSize;
    if (remaining > 0) {
        buffer.removeInput(static_cast<unsigned long long>(remaining));
    }
    valid = true;
    return OpResult::Ok;
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
        OpResult(OpResult::Error, GxfOpSubsystem::internalError, gxfOpSubsystem.getId(),
                 text.get());
        return;
    }
    keepTcSet();
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
