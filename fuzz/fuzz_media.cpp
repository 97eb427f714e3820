// A media packet, by the road of a reader and by that of a writer.
//
//     channels 1 | packet length 4, 0 for the true one | bytes present 4, 0 for all |
//     track detail 30 | payload

#include <algorithm>
#include <memory>

#include <fuzz/fuzz_input.h>
#include <testing/stream_builder.h>

using namespace GxfTypes;
using namespace GxfFuzz;

namespace {

constexpr std::uint64_t position = (std::uint64_t{1} << 32) - 40;
constexpr unsigned preambleSize = 16;
constexpr unsigned blockSize = 4096;

TrackDetail detailFrom(Input& input) {
    TrackDetail detail;
    detail.trackNum = input.u8();
    detail.trackMediaType = static_cast<TrackMediaType>(input.u8());
    detail.trackType = static_cast<TrackType>(input.u8());
    detail.umfTrackIndex = input.u8();
    detail.fldStride = input.real();
    detail.fieldsPerSecond = input.real();
    detail.samplesPerPkt = input.u32();
    detail.bytesPerPkt = input.u32();
    detail.seqCoding = static_cast<SequenceCodingType>(input.u16());
    return detail;
}

bool isTimecode(unsigned mediaType) { return mediaType == 7 || mediaType == 8 || mediaType == 24; }

bool isMpeg(unsigned mediaType) {
    return mediaType == 11 || mediaType == 12 || mediaType == 20 || mediaType == 22 ||
           mediaType == 23;
}

/// A byte of the payload, zero where it is missing.
unsigned byteAt(ByteVector const& bytes, std::size_t at) {
    return at < bytes.size() ? bytes[at] : 0;
}

std::uint32_t number(ByteVector const& bytes, std::size_t at) {
    return byteAt(bytes, at) << 24 | byteAt(bytes, at + 1) << 16 | byteAt(bytes, at + 2) << 8 |
           byteAt(bytes, at + 3);
}

/// What a second, naive scan finds in front of an I-picture.
struct Scan {
    bool closedGop = false;
    unsigned width = 0;
    unsigned height = 0;
};

Scan scanOf(ByteVector const& payload) {
    Scan scan;
    bool metGop = false;
    bool metSequence = false;
    std::size_t at = preambleSize;
    while (!(metGop && metSequence) && at + 4 <= payload.size()) {
        if (number(payload, at) >> 8 != 1) {
            ++at;
            continue;
        }
        unsigned const code = payload[at + 3];
        at += 4;
        std::size_t const left = payload.size() - at;
        if (code == 0x00 || code == 0x01) {
            break;
        }
        if (code == 0xB8) {
            metGop = true;
            if (left >= 4) {
                scan.closedGop = (payload[at + 3] & 0x40) != 0;
                at += 4; // 27 bits, and the search goes on at a whole byte
            }
        } else if (code == 0xB3) {
            metSequence = true;
            if (left >= 8) {
                std::uint32_t const sizes = number(payload, at);
                scan.width = sizes >> 20;
                unsigned const lines = sizes >> 8 & 0xFFF;
                scan.height = lines == 1072 || lines == 1088 ? 1080 : lines;
                at += 8; // 63 bits
            }
        }
    }
    return scan;
}

void checkPreamble(MediaPacketHdr const& hdr, ByteVector const& payload) {
    unsigned const mediaType = byteAt(payload, 0);
    check(hdr.getMediaType() == mediaType);
    check(hdr.getTrackNum() == (byteAt(payload, 1) & 63));
    check(hdr.getMediaField() == number(payload, 2) && hdr.mediaFieldZero == hdr.mediaField);
    check(hdr.getFirstValid() == number(payload, 6) >> 16);
    check(hdr.getLastValid() == (number(payload, 6) & 0xFFFF));
    check(hdr.getDvBlockCount() == byteAt(payload, 6));
    check(hdr.getMpegByteCount() == (number(payload, 6) & 0xFFFFFF));
    check(hdr.timeline == number(payload, 10));
    check(hdr.getTimeline() ==
          ((byteAt(payload, 14) & 1) != 0 ? number(payload, 10) : number(payload, 2)));
    check(hdr.isMpeg() == isMpeg(mediaType) && hdr.isTimecode() == isTimecode(mediaType));

    bool const isIPicture = isMpeg(mediaType) && (byteAt(payload, 6) & 3) == 1;
    Scan const scan = isIPicture ? scanOf(payload) : Scan();
    check((hdr.closedGop != 0) == scan.closedGop);
    check(hdr.mpegPictureWidth == scan.width && hdr.mpegPictureHeight == scan.height);
}

void checkTimecodes(PerFrameTcSet const& set, ByteVector const& payload) {
    unsigned const mediaType = payload[0];
    check(set.timecodeHz == (mediaType == 7 ? 30U : mediaType == 8 ? 25U : 60U));
    for (unsigned i = 0; i < PerFrameTcSet::entries; ++i) {
        bool const valid = (payload[preambleSize + 4032 + i / 8] >> (i % 8) & 1) != 0;
        check(set.isValid(i) == valid && set.timecodes[i].valid == valid);
    }
}

/// The payload behind the preamble is the essence, whose end the buffer stands at in the end.
void decodeAndCheck(MediaPacket& media, ByteVector& payload) {
    ByteVector const original = payload;
    InputBuffer buffer(payload, position);
    bool const wantsAll = media.needsAllData(buffer);
    check(wantsAll == (!payload.empty() && isTimecode(payload[0])));

    bool const isShort = media.getPayloadLength() < preambleSize;
    OpResult const result = media.decode(buffer);
    check(payload == original);
    check(result.getCode() == (isShort ? GxfOpSubsystem::badDecodeSize : 0));
    check(media.valid == !isShort);
    if (isShort) {
        check(buffer.beginOffset() == position && buffer.nOccupied() == payload.size());
        return;
    }
    checkPreamble(media.hdr, payload);
    bool const hasBlock =
        media.isTimecode() && payload.size() >= preambleSize + blockSize + preambleSize;
    std::uint64_t const looked = preambleSize + (hasBlock ? blockSize : 0);
    // A length below 16 gives no payload that could be skipped.
    std::uint64_t const claimed =
        media.length < Packet::headerSize ? 0 : media.length - Packet::headerSize;
    check(buffer.beginOffset() == position + std::max(looked, claimed));
    if (hasBlock) {
        check(media.perFrameTc.get() != nullptr);
        checkTimecodes(*media.perFrameTc, payload);
    }
}

void checkFieldZero(MediaPacketHdr& hdr, TrackDetail const& detail) {
    unsigned const firstValid = hdr.getFirstValid();
    unsigned const field = hdr.mediaField;
    unsigned const zero = hdr.setMediaFieldZero(detail);
    check(zero == hdr.mediaFieldZero && hdr.mediaField == field);
    check(firstValid == 0 || hdr.getFirstValid() == firstValid);
    bool const inBlocks = hdr.isTimecode() || hdr.mediaType == 21;
    if (inBlocks && detail.samplesPerPkt != 0) {
        check(zero % detail.samplesPerPkt == 0 && field - zero < detail.samplesPerPkt);
    }
    FormatStr text(0U);
    detail.toString(0, text);
    check(std::strlen(text.get()) == text.size());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
    Input input(data, size);
    Surroundings const surroundings(input.u8());
    std::uint32_t const claimed = input.u32();
    std::uint32_t const present = input.u32();
    TrackDetail const detail = detailFrom(input);
    ByteVector const whole = input.rest();
    std::uint32_t const length =
        claimed != 0 ? claimed : static_cast<std::uint32_t>(whole.size() + Packet::headerSize);
    std::size_t const cut =
        present != 0 ? std::min<std::size_t>(present, whole.size()) : whole.size();
    ByteVector payload(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(cut));

    PacketPool pool;
    AutoRefPtr<Packet> packet = arrive(pool, packetTypeMedia, length, position);
    auto* media = static_cast<MediaPacket*>(packet.get());
    check(!media->isValid());
    decodeAndCheck(*media, payload);
    std::string const text = printed(*media);
    check(media->isEqual(*media));
    check(media->getPart1Length() + media->getPart2Length() == media->getPayloadLength());

    ByteVector room(Packet::headerSize);
    OutputBuffer out(room);
    check(media->encode(out));
    check(room == GxfTesting::header(0xBF, length).vector());
    checkFieldZero(media->hdr, detail);
    printed(*media);

    // The recycled packet shows nothing of its former life.
    packet = nullptr;
    packet = arrive(pool, packetTypeMedia, length, position);
    check(packet.get() == media);
    decodeAndCheck(*media, payload);
    check(printed(*media) == text);

    // The writer's road.
    packet = nullptr;
    packet = pool.alloc(packetTypeMedia);
    check(packet.get() == media && media->isValid());
    media->length = length;
    decodeAndCheck(*media, payload);
    printed(*media);
    return 0;
}
