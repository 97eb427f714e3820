#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <gxftypes/packet/gxf.h>
#include <testing/allocation_count.h>
#include <testing/capture.h>
#include <testing/stream_builder.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

constexpr unsigned arraysBit = 1U << gxfDebugArrays;
constexpr unsigned preambleSize = 16;
constexpr unsigned blockSize = 4096;

// Media bytes of a picture that is coded on its own, a predicted one and one between two.
constexpr std::uint32_t pictureI = 0x01000000;
constexpr std::uint32_t pictureP = 0x02000000;
constexpr std::uint32_t pictureB = 0x03000000;

using Texts = std::vector<std::string>;

AutoRefPtr<MediaPacket> arrive(PacketPool& pool, std::uint32_t payloadLength) {
    Bytes bytes = header(0xBF, 16 + payloadLength);
    GxfBuffer buffer = bytes.filledBuffer();
    AutoRefPtr<Packet> const packetHeader = pool.alloc(packetTypeHeader);
    EXPECT_TRUE(packetHeader->decode(buffer));
    return packetHeader->createActual()->getMediaPacket();
}

/// An array of exactly the bytes, so that a read behind its end is one behind the memory.
class Exactly {
  public:
    explicit Exactly(Bytes const& bytes, std::size_t count)
        : m_bytes(bytes.data(), bytes.data() + count) {}

    GxfBuffer buffer() {
        return {m_bytes.data(), static_cast<unsigned>(m_bytes.size()), GxfBuffer::DataState::filled,
                MediaAgent(nullptr)};
    }

  private:
    std::vector<unsigned char> m_bytes;
};

/// Decodes a payload that is all there and nothing behind it.
AutoRefPtr<MediaPacket> decoded(PacketPool& pool, Bytes const& payload) {
    AutoRefPtr<MediaPacket> const media = arrive(pool, static_cast<std::uint32_t>(payload.size()));
    Exactly bytes(payload, payload.size());
    GxfBuffer buffer = bytes.buffer();
    EXPECT_TRUE(media->decode(buffer));
    EXPECT_EQ(payload.size(), buffer.beginOffset());
    EXPECT_EQ(0U, buffer.nOccupied());
    EXPECT_TRUE(media->isValid());
    return media;
}

Bytes sequenceHeader(unsigned width, unsigned height) {
    return Bytes()
        .u32(0x1B3)
        .u8(width >> 4)
        .u8((width << 4) | (height >> 8))
        .u8(height)
        .u8(0x23)
        .u32(0x1869C3F8);
}

Bytes gopHeader(bool closed) { return Bytes().u32(0x1B8).u32(closed ? 0x00080040 : 0x00080000); }

Bytes pictureHeader() { return Bytes().u32(0x100).u32(0x000FFFF8); }
Bytes slice() { return Bytes().u32(0x101).u32(0x22334455); }

/// 10 bytes of an extension and of user data.
Bytes extension() { return Bytes().u32(0x1B5).u32(0x14820001).u16(0x0000); }
Bytes userData() { return Bytes().u32(0x1B2).text("GA94").u16(0x0341); }

Bytes operator+(Bytes left, Bytes const& right) { return left.add(right); }

void expectScan(MediaPacket const& media, unsigned width, unsigned height, bool closed) {
    EXPECT_EQ(width, media.hdr.mpegPictureWidth);
    EXPECT_EQ(height, media.hdr.mpegPictureHeight);
    EXPECT_EQ(closed ? 1U : 0U, media.hdr.closedGop);
}

Bytes timecodePayload(unsigned mediaType, Bytes const& block) {
    return mediaPreamble({.mediaType = mediaType, .field = 1000, .timeline = 2000}) + block;
}

/// Decodes a payload with 16 bytes of the packet that follows, which a block is not read without.
void decodeBlock(MediaPacket& media, Bytes const& payload) {
    media.length = static_cast<std::uint32_t>(16 + payload.size());
    Bytes const bytes = payload + header(0xBF, 16);
    Exactly exact(bytes, bytes.size());
    GxfBuffer buffer = exact.buffer();
    EXPECT_TRUE(media.decode(buffer));
    EXPECT_EQ(header(0xBF, 16), Bytes::occupied(buffer));
}

} // namespace

TEST(MediaPacket, FromThePoolIsValidAtOnce) {
    PacketPool pool;
    AutoRefPtr<Packet> const packet = pool.alloc(packetTypeMedia);
    AutoRefPtr<MediaPacket> const media = packet->getMediaPacket();
    ASSERT_EQ(packet.get(), media.get());
    EXPECT_EQ(191U, static_cast<unsigned>(media->getType()));
    EXPECT_TRUE(media->valid);
    EXPECT_TRUE(media->isValid());
    EXPECT_FALSE(media->isTimecode());
    EXPECT_EQ(nullptr, media->perFrameTc.get());
    EXPECT_EQ(0xFFU, media->hdr.trackByte);
    EXPECT_EQ(0xFFFFFFFFU, media->hdr.mediaField);
    EXPECT_EQ(nullptr, packet->getMapPacket().get());
    EXPECT_EQ(nullptr, packet->getUmfPacket().get());
    EXPECT_EQ(nullptr, packet->getFltPacket().get());
    EXPECT_EQ(nullptr, packet->getEosPacket().get());
    EXPECT_EQ(nullptr, packet->getAutoHdrPtr().get());
}

TEST(MediaPacket, FromAHeaderIsValidOnceDecoded) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 16);
    EXPECT_FALSE(media->valid);
    EXPECT_FALSE(media->isValid());
    Bytes payload = mediaPreamble({});
    GxfBuffer buffer = payload.filledBuffer();
    EXPECT_TRUE(media->decode(buffer));
    EXPECT_TRUE(media->valid);
    EXPECT_TRUE(media->isValid());
    media->reserved = 1;
    EXPECT_TRUE(media->valid);
    EXPECT_FALSE(media->isValid());
}

TEST(MediaPacket, BuiltOverAPoolIsValidAndOverAHeaderIsNot) {
    PacketPool pool;
    MediaPacket fresh(pool);
    EXPECT_EQ(packetTypeMedia, fresh.getType());
    EXPECT_TRUE(fresh.isValid());
    EXPECT_EQ(nullptr, fresh.perFrameTc.get());
    fresh.length = 4096;
    Packet& source = fresh;
    MediaPacket const copy(source);
    EXPECT_EQ(4096U, copy.length);
    EXPECT_FALSE(copy.valid);
    EXPECT_FALSE(copy.isValid());
    EXPECT_EQ(0xFFU, copy.hdr.trackByte);
    EXPECT_EQ(nullptr, copy.perFrameTc.get());
}

TEST(MediaPacket, ResetByAHeaderClearsAll) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const model = arrive(pool, 84);
    AutoRefPtr<MediaPacket> const media = pool.alloc(packetTypeMedia)->getMediaPacket();
    decodeBlock(*media, timecodePayload(7, timecodeBlock(4, 30)));
    unsigned char byte = 0xA5;
    initSgl_t list(&byte, 1);
    media->bitParser.setList(1, &list);

    media->reset(*model);
    EXPECT_FALSE(media->isValid());
    EXPECT_EQ(100U, media->length);
    EXPECT_EQ(nullptr, media->perFrameTc.get());
    EXPECT_FALSE(media->isTimecode());
    EXPECT_EQ(0xFFU, media->hdr.trackByte);
    EXPECT_EQ(0xFFFFFFFFU, media->hdr.mediaField);
    unsigned bits = 0;
    EXPECT_FALSE(media->bitParser.getBits(1, bits));
}

TEST(MediaPacket, ResetByATypeLeavesTimecodesAndParser) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 0);
    decodeBlock(*media, timecodePayload(7, timecodeBlock(4, 30)));
    PerFrameTcSet const* const set = media->perFrameTc.get();
    ASSERT_NE(nullptr, set);
    unsigned char byte = 0xA5;
    initSgl_t list(&byte, 1);
    media->bitParser.setList(1, &list);
    media->valid = false;

    media->reset(packetTypeMedia);
    EXPECT_TRUE(media->isValid());
    EXPECT_EQ(16U, media->length);
    EXPECT_EQ(set, media->perFrameTc.get());
    EXPECT_FALSE(media->isTimecode());
    EXPECT_EQ(0xFFU, media->hdr.trackByte);
    unsigned bits = 0;
    EXPECT_TRUE(media->bitParser.getBits(8, bits));
    EXPECT_EQ(0xA5U, bits);
    // Not a timecode packet now, so the set isn't printed.
    EXPECT_STREQ("media:16b@0: ?(TrackMediaType=0x0),trk=63,f=-1,t=-1(invalid)",
                 media->toString().get());
}

TEST(MediaPacket, PartsOfThePayload) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 100000);
    EXPECT_EQ(80U, media->getPart1Length());
    EXPECT_EQ(99920U, media->getPart2Length());
    media->length = 16 + 80;
    EXPECT_EQ(0U, media->getPart2Length());
    media->length = 16 + 79;
    EXPECT_EQ(80U, media->getPart1Length());
    EXPECT_EQ(0xFFFFFFFFU, media->getPart2Length());
    media->length = 16;
    EXPECT_EQ(0xFFFFFFB0U, media->getPart2Length());
}

TEST(MediaPacket, NeedsAllOfTimecodeAlone) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 16);
    MessageCapture const messages;
    for (unsigned type = 0; type < 256; ++type) {
        Bytes first{type};
        GxfBuffer buffer = first.filledBuffer();
        EXPECT_EQ(type == 7 || type == 8 || type == 24, media->needsAllData(buffer)) << type;
        EXPECT_EQ(1U, buffer.nOccupied());
    }
    EXPECT_EQ(0U, messages.count(MessageKind::Trace));
}

TEST(MediaPacket, NeedsTheFirstByteToTell) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 16);
    Bytes bytes{7};
    GxfBuffer window = bytes.emptyBuffer();
    GxfBuffer growing{MediaAgent(nullptr)};
    for (GxfBuffer* const buffer : {&window, &growing}) {
        MessageCapture const messages;
        EXPECT_FALSE(media->needsAllData(*buffer));
        Texts const traces = messages.texts(MessageKind::Trace);
        ASSERT_EQ(1U, traces.size());
        EXPECT_EQ(0U, traces[0].find("error internalError (needsAllData, "));
    }
}

TEST(MediaPacket, PayloadsFromNothingToHundredBytes) {
    for (unsigned const type : {0U, 3U, 7U, 9U, 11U, 21U, 24U, 26U, 255U}) {
        Bytes const all = mediaPreamble({.mediaType = type,
                                         .trackByte = 0xC5,
                                         .field = 1000,
                                         .mediaBytes = pictureI,
                                         .timeline = 2000}) +
                          sequenceHeader(720, 576) + gopHeader(true) + pictureHeader() +
                          Bytes().fill(100);
        for (unsigned payloadLength = 0; payloadLength <= 100; ++payloadLength) {
            SCOPED_TRACE(testing::Message() << "type " << type << ", payload " << payloadLength);
            PacketPool pool;
            AutoRefPtr<MediaPacket> const media = arrive(pool, payloadLength);
            Exactly bytes(all, payloadLength);
            GxfBuffer buffer = bytes.buffer();
            OpResult const result = media->decode(buffer);
            if (payloadLength < preambleSize) {
                EXPECT_FALSE(result);
                EXPECT_EQ(OpResult::Error, result.getType());
                EXPECT_EQ(GxfOpSubsystem::badDecodeSize, result.getCode());
                EXPECT_STREQ("", result.getText());
                EXPECT_STREQ("decode", result.getLocation().function);
                EXPECT_NE(0U, result.getLocation().line);
                EXPECT_FALSE(media->valid);
                EXPECT_FALSE(media->isValid());
                EXPECT_EQ(0U, buffer.beginOffset());
                EXPECT_EQ(payloadLength, buffer.nOccupied());
                EXPECT_EQ(0xFFU, media->hdr.trackByte);
                continue;
            }
            EXPECT_TRUE(result);
            EXPECT_EQ(OpResult::Ok, result.getType());
            EXPECT_TRUE(media->isValid());
            EXPECT_EQ(payloadLength, buffer.beginOffset());
            EXPECT_EQ(0U, buffer.nOccupied());
            EXPECT_EQ(5U, media->hdr.getTrackNum());
            EXPECT_EQ(1000U, media->hdr.getMediaField());
            bool const scanned = type == 11;
            expectScan(*media, scanned && payloadLength >= 28 ? 720 : 0,
                       scanned && payloadLength >= 28 ? 576 : 0, scanned && payloadLength >= 36);
        }
    }
}

TEST(MediaPacket, PositionIsThePacketsEndHoweverLittleIsPresent) {
    for (unsigned const type : {7U, 9U, 11U}) {
        Bytes const all =
            mediaPreamble({.mediaType = type, .trackByte = 5, .mediaBytes = pictureI}) +
            Bytes().fill(200);
        for (unsigned present = 0; present <= all.size(); ++present) {
            SCOPED_TRACE(testing::Message() << "type " << type << ", present " << present);
            PacketPool pool;
            AutoRefPtr<MediaPacket> const media = arrive(pool, 150);
            Exactly bytes(all, present);
            GxfBuffer buffer = bytes.buffer();
            EXPECT_TRUE(media->decode(buffer));
            EXPECT_EQ(150U, buffer.beginOffset());
            EXPECT_EQ(present > 150 ? present - 150 : 0, buffer.nOccupied());
            EXPECT_TRUE(media->isValid());
        }
    }
}

TEST(MediaPacket, SkipsWhatIsNotInTheBuffer) {
    PacketPool pool;
    Bytes const packet = mediaPacket({.mediaType = 9, .mediaBytes = 0x00100020}, Bytes().fill(64));
    Exactly bytes(packet, packet.size());
    GxfBuffer buffer = bytes.buffer();
    buffer.removeInput(16);
    AutoRefPtr<MediaPacket> const media = arrive(pool, 100000);
    EXPECT_EQ(80U, buffer.nOccupied());
    EXPECT_TRUE(media->decode(buffer));
    EXPECT_EQ(100016U, buffer.beginOffset());
    EXPECT_EQ(0U, buffer.nOccupied());
    EXPECT_EQ(16U, media->hdr.getFirstValid());
    EXPECT_EQ(32U, media->hdr.getLastValid());
}

TEST(MediaPacket, LeavesTheNextPacket) {
    PacketPool pool;
    Bytes const bytes = mediaPreamble({}) + Bytes().fill(30) + Bytes().text("next");
    Exactly exact(bytes, bytes.size());
    GxfBuffer buffer = exact.buffer();
    EXPECT_TRUE(arrive(pool, 46)->decode(buffer));
    EXPECT_EQ(Bytes().text("next"), Bytes::occupied(buffer));
}

TEST(MediaPacket, TheLongestPacketIsSkipped) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 0xFFFFFFEF);
    Bytes const payload = mediaPreamble({});
    Exactly bytes(payload, payload.size());
    GxfBuffer buffer = bytes.buffer();
    EXPECT_TRUE(media->decode(buffer));
    EXPECT_EQ(0xFFFFFFEFU, buffer.beginOffset());
    EXPECT_EQ(0xFFFFFF9FU, media->getPart2Length());
}

TEST(MediaPacket, ALengthBelowTheHeaderConsumesThePreambleAlone) {
    for (unsigned length = 0; length < 16; ++length) {
        SCOPED_TRACE(length);
        PacketPool pool;
        AutoRefPtr<MediaPacket> const media = arrive(pool, 0);
        media->length = length;
        Bytes const payload = mediaPreamble({}) + Bytes().fill(20);
        Exactly bytes(payload, payload.size());
        GxfBuffer buffer = bytes.buffer();
        EXPECT_TRUE(media->decode(buffer));
        EXPECT_EQ(16U, buffer.beginOffset());
        EXPECT_TRUE(media->valid);
        EXPECT_FALSE(media->isValid());
    }
}

TEST(MediaPacket, AFailedDecodeMakesAValidPacketInvalidAndKeepsItsHeader) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media =
        decoded(pool, mediaPreamble({.mediaType = 9, .field = 44}));
    media->length = 31;
    Bytes payload = mediaPreamble({.mediaType = 10, .field = 45});
    GxfBuffer buffer = payload.filledBuffer();
    MessageCapture const messages;
    EXPECT_EQ(GxfOpSubsystem::badDecodeSize, media->decode(buffer).getCode());
    EXPECT_EQ(1U, messages.count(MessageKind::Trace));
    EXPECT_FALSE(media->isValid());
    EXPECT_EQ(9U, media->hdr.mediaType);
    EXPECT_EQ(44U, media->hdr.mediaField);
    EXPECT_EQ(16U, buffer.nOccupied());
}

TEST(MediaPacket, ScanFindsSizeAndClosedGop) {
    struct Row {
        char const* what;
        Bytes essence;
        unsigned width;
        unsigned height;
        bool closed;
    };
    Bytes const sequence = sequenceHeader(720, 576);
    Bytes const big = sequenceHeader(1920, 1088);
    Bytes const closed = gopHeader(true);
    Bytes const open = gopHeader(false);
    Row const rows[] = {
        {"sequence, GOP", sequence + closed + pictureHeader(), 720, 576, true},
        {"sequence, open GOP", sequence + open + pictureHeader(), 720, 576, false},
        {"GOP first", closed + sequence + pictureHeader(), 720, 576, true},
        {"extensions between", sequence + extension() + userData() + closed, 720, 576, true},
        {"extensions in front", userData() + extension() + sequence + closed, 720, 576, true},
        {"bytes in front", Bytes{0xFF, 0x00, 0x00, 0x00, 0x00} + sequence + closed, 720, 576, true},
        {"nothing", {}, 0, 0, false},
        {"no start code", Bytes().fill(64), 0, 0, false},
        {"picture first", pictureHeader() + sequence + closed, 0, 0, false},
        {"slice first", slice() + sequence + closed, 0, 0, false},
        {"second slice doesn't end it", Bytes().u32(0x102).u32(9) + sequence + closed, 720, 576,
         true},
        {"sequence alone, then a picture", sequence + pictureHeader() + closed, 720, 576, false},
        {"sequence alone, then a slice", sequence + slice() + closed, 720, 576, false},
        {"sequence alone to the end", sequence + extension(), 720, 576, false},
        {"GOP alone, then a picture", closed + pictureHeader() + sequence, 0, 0, true},
        {"GOP alone, then a slice", closed + slice() + sequence, 0, 0, true},
        {"GOP alone to the end", closed + userData(), 0, 0, true},
        {"a second sequence in front of the GOP", sequence + big + closed, 1920, 1080, true},
        {"a second sequence behind the GOP", sequence + closed + big, 720, 576, true},
        {"a second GOP in front of the sequence", closed + open + sequence, 720, 576, false},
        {"a second GOP behind the sequence", open + sequence + closed, 720, 576, false},
    };
    for (unsigned const type : {11U, 12U, 20U, 22U, 23U}) {
        for (Row const& row : rows) {
            SCOPED_TRACE(testing::Message() << row.what << ", type " << type);
            PacketPool pool;
            AutoRefPtr<MediaPacket> const media = decoded(
                pool, mediaPreamble({.mediaType = type, .mediaBytes = pictureI}) + row.essence);
            expectScan(*media, row.width, row.height, row.closed);
        }
    }
}

TEST(MediaPacket, HeadersThatAreCutOffLeaveTheFields) {
    Bytes const sequence = sequenceHeader(720, 576);
    for (unsigned n = 0; n <= sequence.size(); ++n) {
        SCOPED_TRACE(n);
        PacketPool pool;
        Bytes const payload =
            mediaPreamble({.mediaType = 11, .mediaBytes = pictureI}) + gopHeader(true) + sequence;
        Exactly bytes(payload, preambleSize + 8 + n);
        GxfBuffer buffer = bytes.buffer();
        AutoRefPtr<MediaPacket> const media = arrive(pool, 1000);
        EXPECT_TRUE(media->decode(buffer));
        EXPECT_EQ(1000U, buffer.beginOffset());
        expectScan(*media, n == 12 ? 720 : 0, n == 12 ? 576 : 0, true);
    }
    Bytes const gop = gopHeader(true);
    for (unsigned n = 0; n <= gop.size(); ++n) {
        SCOPED_TRACE(n);
        PacketPool pool;
        Bytes const payload =
            mediaPreamble({.mediaType = 11, .mediaBytes = pictureI}) + sequence + gop;
        Exactly bytes(payload, preambleSize + 12 + n);
        GxfBuffer buffer = bytes.buffer();
        AutoRefPtr<MediaPacket> const media = arrive(pool, 1000);
        EXPECT_TRUE(media->decode(buffer));
        expectScan(*media, 720, 576, n == 8);
    }
}

TEST(MediaPacket, HeightsOf1080LinesAreMended) {
    struct Row {
        unsigned coded;
        unsigned height;
    };
    Row const rows[] = {
        {1072, 1080}, {1088, 1080}, {1080, 1080}, {1071, 1071}, {1073, 1073}, {1087, 1087},
        {1089, 1089}, {0, 0},       {480, 480},   {512, 512},   {720, 720},   {4095, 4095},
    };
    for (Row const& row : rows) {
        SCOPED_TRACE(row.coded);
        PacketPool pool;
        AutoRefPtr<MediaPacket> const media =
            decoded(pool, mediaPreamble({.mediaType = 20, .mediaBytes = pictureI}) +
                              sequenceHeader(1920, row.coded) + gopHeader(false));
        expectScan(*media, 1920, row.height, false);
    }
    PacketPool pool;
    expectScan(*decoded(pool, mediaPreamble({.mediaType = 20, .mediaBytes = pictureI}) +
                                  sequenceHeader(1088, 1072)),
               1088, 1080, false);
    expectScan(*decoded(pool, mediaPreamble({.mediaType = 20, .mediaBytes = pictureI}) +
                                  sequenceHeader(4095, 0)),
               4095, 0, false);
}

TEST(MediaPacket, OnlyIPicturesOfMpegAreScanned) {
    for (unsigned type = 0; type < 256; ++type) {
        for (std::uint32_t const picture : {0U, pictureI, pictureP, pictureB, 0xFD000000U}) {
            SCOPED_TRACE(testing::Message() << "type " << type << ", bytes " << picture);
            PacketPool pool;
            AutoRefPtr<MediaPacket> const media =
                decoded(pool, mediaPreamble({.mediaType = type, .mediaBytes = picture}) +
                                  mpegIPicture(1920, 1088, true, 64));
            bool const isMpeg = type == 11 || type == 12 || type == 20 || type == 22 || type == 23;
            bool const scanned = isMpeg && (picture >> 24) % 4 == 1;
            expectScan(*media, scanned ? 1920 : 0, scanned ? 1080 : 0, scanned);
        }
    }
}

TEST(MediaPacket, ScanReadsAllThatTheBufferHolds) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 16);
    Bytes const bytes =
        mediaPreamble({.mediaType = 11, .mediaBytes = pictureI}) + mpegIPicture(720, 512, true, 64);
    Exactly exact(bytes, bytes.size());
    GxfBuffer buffer = exact.buffer();
    EXPECT_TRUE(media->decode(buffer));
    EXPECT_EQ(16U, buffer.beginOffset());
    EXPECT_EQ(64U, buffer.nOccupied());
    expectScan(*media, 720, 512, true);
}

TEST(MediaPacket, ARecycledPacketForgetsThePictureBefore) {
    PacketPool pool;
    MediaPacket const* object = nullptr;
    {
        AutoRefPtr<MediaPacket> const media =
            decoded(pool, mediaPreamble({.mediaType = 11, .mediaBytes = pictureI}) +
                              mpegIPicture(720, 512, true, 64));
        expectScan(*media, 720, 512, true);
        object = media.get();
    }
    AutoRefPtr<MediaPacket> const media =
        decoded(pool, mediaPreamble({.mediaType = 9, .mediaBytes = pictureI}) +
                          mpegIPicture(720, 512, true, 64));
    ASSERT_EQ(object, media.get());
    expectScan(*media, 0, 0, false);
    EXPECT_FALSE(media->hdr.isMpeg());
}

TEST(MediaPacket, TheParserHoldsNoBytesBetweenDecodes) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media =
        decoded(pool, mediaPreamble({.mediaType = 11, .mediaBytes = pictureI}) + pictureHeader() +
                          Bytes().fill(64));
    unsigned bits = 0;
    EXPECT_FALSE(media->bitParser.getBits(1, bits));
}

TEST(MediaPacket, BlockOfTimecodesByTheBytesPresent) {
    struct Row {
        unsigned present; ///< bytes behind the preamble
        bool read;
    };
    Row const rows[] = {{0, false},    {1, false},   {4095, false}, {4096, false}, {4097, false},
                        {4111, false}, {4112, true}, {4113, true},  {9000, true}};
    Bytes const all = timecodePayload(7, timecodeBlock(504, 30)) + Bytes().fill(5000);
    for (Row const& row : rows) {
        SCOPED_TRACE(row.present);
        PacketPool pool;
        AutoRefPtr<MediaPacket> const media = arrive(pool, preambleSize + blockSize);
        Exactly bytes(all, preambleSize + row.present);
        GxfBuffer buffer = bytes.buffer();
        MessageCapture const messages;
        OpResult const result = media->decode(buffer);
        EXPECT_TRUE(result);
        EXPECT_EQ(OpResult::Ok, result.getType());
        EXPECT_TRUE(media->isValid());
        EXPECT_TRUE(media->isTimecode());
        EXPECT_EQ(4112U, buffer.beginOffset());
        EXPECT_EQ(row.present > blockSize ? row.present - blockSize : 0, buffer.nOccupied());
        EXPECT_EQ(row.read, media->perFrameTc.get() != nullptr);
        Texts const expected{"error internalError: Timecode::decode: expected 4112 bytes, found " +
                             std::to_string(row.present) + " \n"};
        EXPECT_EQ(row.read ? Texts() : expected, messages.texts(MessageKind::Trace));
        EXPECT_EQ(Texts(), messages.texts());
    }
}

TEST(MediaPacket, ABlockInAShortPacketIsReadAllTheSame) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 20);
    Bytes const all = timecodePayload(7, timecodeBlock(504, 30)) + Bytes().fill(16);
    Exactly bytes(all, all.size());
    GxfBuffer buffer = bytes.buffer();
    EXPECT_TRUE(media->decode(buffer));
    EXPECT_NE(nullptr, media->perFrameTc.get());
    EXPECT_EQ(4112U, buffer.beginOffset());
    EXPECT_EQ(16U, buffer.nOccupied());
    EXPECT_TRUE(media->isValid());
}

TEST(MediaPacket, ALongTimecodePacketIsSkippedToItsEnd) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 10000);
    Bytes const all = timecodePayload(7, timecodeBlock(504, 30)) + Bytes().fill(16);
    Exactly bytes(all, all.size());
    GxfBuffer buffer = bytes.buffer();
    EXPECT_TRUE(media->decode(buffer));
    EXPECT_NE(nullptr, media->perFrameTc.get());
    EXPECT_EQ(10000U, buffer.beginOffset());
}

TEST(MediaPacket, SetBearsFieldTimelineAndRate) {
    struct Row {
        unsigned mediaType;
        unsigned flags;
        unsigned timeline;
        unsigned hertz;
    };
    Row const rows[] = {{7, 1, 2000, 30}, {8, 1, 2000, 25}, {24, 1, 2000, 60}, {24, 0, 1000, 60}};
    for (Row const& row : rows) {
        SCOPED_TRACE(row.mediaType);
        PacketPool pool;
        AutoRefPtr<MediaPacket> const media = arrive(pool, 0);
        decodeBlock(
            *media,
            mediaPreamble(
                {.mediaType = row.mediaType, .field = 1000, .timeline = 2000, .flags = row.flags}) +
                timecodeBlock(4, 25));
        ASSERT_NE(nullptr, media->perFrameTc.get());
        PerFrameTcSet const& set = *media->perFrameTc;
        EXPECT_EQ(1000U, set.mediaField);
        EXPECT_EQ(row.timeline, set.timeline);
        EXPECT_EQ(row.hertz, set.timecodeHz);
        EXPECT_TRUE(set.isValid(3));
        EXPECT_FALSE(set.isValid(4));
        EXPECT_TRUE(set.timecodes[3].valid);
        EXPECT_FALSE(set.timecodes[4].valid);
        EXPECT_TRUE(set.fieldBitForced);
        // The mark stands where the NTSC form has it, also at 25 hertz.
        EXPECT_EQ(0x80U, set.timecodes[3].timeBytes[1]);
        EXPECT_EQ(0x00U, set.timecodes[3].timeBytes[3]);
        EXPECT_EQ(0x01U, set.timecodes[3].timeBytes[0]);
    }
}

TEST(MediaPacket, ANewBlockReplacesTheOldOne) {
    for (bool const resetBetween : {false, true}) {
        SCOPED_TRACE(resetBetween);
        PacketPool pool;
        AutoRefPtr<MediaPacket> const model = arrive(pool, 0);
        AutoRefPtr<MediaPacket> const media = arrive(pool, 0);
        decodeBlock(*media, timecodePayload(7, timecodeBlock(504, 30)));
        if (resetBetween) {
            media->reset(*model);
            EXPECT_EQ(nullptr, media->perFrameTc.get());
        }
        decodeBlock(*media, mediaPreamble({.mediaType = 7, .field = 504, .timeline = 9}) +
                                timecodeBlock(1, 30));
        ASSERT_NE(nullptr, media->perFrameTc.get());
        PerFrameTcSet const& set = *media->perFrameTc;
        EXPECT_EQ(504U, set.mediaField);
        EXPECT_EQ(9U, set.timeline);
        EXPECT_FALSE(set.fieldBitForced);
        EXPECT_TRUE(set.timecodes[0].valid);
        for (unsigned i = 1; i < 504; ++i) {
            EXPECT_FALSE(set.isValid(i));
            EXPECT_FALSE(set.timecodes[i].valid);
            EXPECT_EQ(0U, set.timecodes[i].timeBytes[0]);
            EXPECT_EQ(0U, set.timecodes[i].timeBytes[1]);
        }
    }
}

TEST(MediaPacket, AnUnreadBlockLeavesTheOldSet) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = pool.alloc(packetTypeMedia)->getMediaPacket();
    decodeBlock(*media, timecodePayload(7, timecodeBlock(2, 30)));
    PerFrameTcSet const* const set = media->perFrameTc.get();
    Bytes const next = mediaPreamble({.mediaType = 8, .field = 5040, .timeline = 3});
    Exactly bytes(next, next.size());
    GxfBuffer buffer = bytes.buffer();
    EXPECT_TRUE(media->decode(buffer));
    EXPECT_EQ(set, media->perFrameTc.get());
    EXPECT_EQ(1000U, set->mediaField);
    EXPECT_EQ(30U, set->timecodeHz);
    EXPECT_STREQ("media:4128b@0: Timecode_625,trk=0,f=5040,t=3,{in,out}={0,0},\n"
                 "tc f504={00:00:00:00, 00:00:00:00, inv, ..., inv}",
                 media->toString().get());
}

TEST(MediaPacket, OtherMediaLeaveTheOldSetUnprinted) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 0);
    decodeBlock(*media, timecodePayload(7, timecodeBlock(2, 30)));
    PerFrameTcSet const* const set = media->perFrameTc.get();
    media->reset(packetTypeMedia);
    media->length = 32;
    Bytes payload = mediaPreamble({.mediaType = 9});
    GxfBuffer buffer = payload.filledBuffer();
    EXPECT_TRUE(media->decode(buffer));
    EXPECT_EQ(set, media->perFrameTc.get());
    EXPECT_STREQ("media:32b@0: AudioPCM_24,trk=0,f=0,t=0,{in,out}={0,0}", media->toString().get());
}

TEST(MediaPacket, TheSetOutlivesRecyclingUntilAResetByAHeader) {
    PacketPool pool;
    MediaPacket const* object = nullptr;
    PerFrameTcSet const* set = nullptr;
    {
        AutoRefPtr<MediaPacket> const media = arrive(pool, 0);
        decodeBlock(*media, timecodePayload(7, timecodeBlock(2, 30)));
        object = media.get();
        set = media->perFrameTc.get();
    }
    {
        AutoRefPtr<MediaPacket> const media = pool.alloc(packetTypeMedia)->getMediaPacket();
        ASSERT_EQ(object, media.get());
        EXPECT_EQ(set, media->perFrameTc.get());
        EXPECT_TRUE(media->isValid());
    }
    AutoRefPtr<MediaPacket> const media = arrive(pool, 16);
    ASSERT_EQ(object, media.get());
    EXPECT_EQ(nullptr, media->perFrameTc.get());
    EXPECT_FALSE(media->isValid());
    // Timecode whose block isn't there has nothing left to show.
    Bytes const payload = mediaPreamble({.mediaType = 7});
    Exactly bytes(payload, payload.size());
    GxfBuffer buffer = bytes.buffer();
    EXPECT_TRUE(media->decode(buffer));
    EXPECT_EQ(nullptr, media->perFrameTc.get());
    EXPECT_STREQ("media:32b@0: Timecode_525,trk=0,f=0,t=0,{in,out}={0,0}", media->toString().get());
}

TEST(MediaPacket, ASetMayBeTakenAway) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 0);
    decodeBlock(*media, timecodePayload(7, timecodeBlock(2, 30)));
    AutoPtr<PerFrameTcSet> const taken = media->perFrameTc;
    EXPECT_EQ(nullptr, media->perFrameTc.get());
    decodeBlock(*media, mediaPreamble({.mediaType = 8, .field = 504}) + timecodeBlock(0, 25));
    EXPECT_NE(taken.get(), media->perFrameTc.get());
    EXPECT_EQ(1000U, taken->mediaField);
    EXPECT_TRUE(taken->timecodes[1].valid);
    EXPECT_EQ(504U, media->perFrameTc->mediaField);
}

TEST(MediaPacket, TextWithTimecodes) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 0);
    decodeBlock(*media, timecodePayload(24, timecodeBlock(504, 25)));
    EXPECT_STREQ("media:4128b@0: TimecodeHd,trk=0,f=1000,t=2000,{in,out}={0,0},\n"
                 "tc f504={00:00:00:00, 00:00:00:00, 00:00:00:01, ..., 00:00:10:01}",
                 media->toString().get());
    FormatStr text("<");
    EXPECT_EQ(&text, &media->toString(6, text));
    EXPECT_STREQ("<media:4128b@0: TimecodeHd,trk=0,f=1000,t=2000,{in,out}={0,0},\n"
                 "      tc f504={00:00:00:00, 00:00:00:00, 00:00:00:01, ..., 00:00:10:01}",
                 text.get());
}

TEST(MediaPacket, TextWithAllTimecodesIndentsThemByTwoMore) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 0);
    decodeBlock(*media, timecodePayload(7, timecodeBlock(0, 30)));
    std::string expected = "<media:4128b@0: Timecode_525,trk=0,f=1000,t=2000,{in,out}={0,0},"
                           "0x00.00.00.00,\n      tc f504={";
    for (unsigned i = 0; i < 504; i += 4) {
        std::string const number = std::to_string(i);
        expected += i == 0 ? "\n" : ",\n";
        expected += std::string(8, ' ') + "i=" + std::string(3 - number.size(), ' ') + number +
                    ",f=" + std::to_string(504 + i) + ": inv, inv, inv, inv";
    }
    ChannelSetting const channel(gxfDebug, arraysBit);
    FormatStr text("<");
    media->toString(6, text);
    EXPECT_EQ(expected + "}", text.get());
}

TEST(MediaPacket, TextOfAnInvalidPacket) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 84);
    media->fileOffset = 0x100000000;
    EXPECT_STREQ("media:100b@4294967296,invalid: ?(TrackMediaType=0x0),trk=63,f=-1,"
                 "t=-1(invalid)",
                 media->toString().get());
}

TEST(MediaPacket, TextOfAPicture) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = decoded(pool, mediaPreamble({.mediaType = 11,
                                                                       .trackByte = 0xC1,
                                                                       .field = 30,
                                                                       .mediaBytes = 0x0D000040,
                                                                       .timeline = 31}) +
                                                            mpegIPicture(720, 512, true, 64));
    EXPECT_STREQ("media:96b@0: Mpeg2_525,trk=1,f=30,t=31,64b,I", media->toString().get());
}

TEST(MediaPacket, EqualsOnlyItself) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = decoded(pool, mediaPreamble({.field = 3}));
    AutoRefPtr<MediaPacket> const alike = decoded(pool, mediaPreamble({.field = 3}));
    AutoRefPtr<Packet> const eos = pool.alloc(packetTypeEos);
    EXPECT_TRUE(media->isEqual(*media));
    EXPECT_FALSE(media->isEqual(*alike));
    EXPECT_FALSE(alike->isEqual(*media));
    EXPECT_FALSE(media->isEqual(*eos));
}

TEST(MediaPacket, EncodeWritesTheHeaderAlone) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media =
        decoded(pool, mediaPreamble({.field = 3}) + Bytes().fill(240));
    Bytes storage;
    storage.fill(64);
    GxfBuffer buffer = storage.emptyBuffer();
    EXPECT_TRUE(media->encode(buffer));
    EXPECT_EQ((Bytes{0, 0, 0, 0, 1, 0xBF, 0, 0, 1, 16, 0, 0, 0, 0, 0xE1, 0xE2}),
              Bytes::occupied(buffer));
}

TEST(MediaPacket, DecodeTellsItsStartAlone) {
    PacketPool pool;
    AutoRefPtr<MediaPacket> const media = arrive(pool, 16);
    Bytes bytes = mediaPreamble({}) + mediaPreamble({}) + mediaPreamble({});
    GxfBuffer buffer = bytes.filledBuffer();
    MessageCapture messages;
    {
        ChannelSetting const level(gxfDecodeDetail, 1);
        EXPECT_TRUE(media->decode(buffer));
        EXPECT_EQ(Texts(), messages.texts());
    }
    ChannelSetting const level(gxfDecodeDetail, 2);
    EXPECT_TRUE(media->decode(buffer));
    EXPECT_EQ((Texts{"start MediaPacket decode\n"}), messages.texts(MessageKind::Info));
    EXPECT_EQ(1U, messages.texts().size());
    messages.clear();
    media->length = 31;
    EXPECT_FALSE(media->decode(buffer));
    EXPECT_EQ((Texts{"start MediaPacket decode\n"}), messages.texts());
}

TEST(MediaPacket, SteadyStateAllocatesNothing) {
    Bytes payloads[] = {
        mediaPreamble({.mediaType = 9}) + Bytes().fill(64),
        mediaPreamble({.mediaType = 11, .mediaBytes = pictureI}) +
            mpegIPicture(720, 512, true, 4096),
        timecodePayload(7, timecodeBlock(504, 30)) + Bytes().fill(16),
        timecodePayload(24, timecodeBlock(0, 30)) + Bytes().fill(16),
    };
    PacketPool pool;
    Bytes headerBytes = header(0xBF, 16 + preambleSize + blockSize);
    GxfBuffer headerBuffer = headerBytes.filledBuffer();
    AutoRefPtr<Packet> const packetHeader = pool.alloc(packetTypeHeader);
    ASSERT_TRUE(packetHeader->decode(headerBuffer));
    // A packet that arrives with a header, and one that is made by its type.
    for (bool const hasHeader : {true, false}) {
        SCOPED_TRACE(hasHeader);
        packetHeader->createActual();
        bool good = true;
        std::uint64_t before = 0;
        for (unsigned round = 0; round < 6; ++round) {
            if (round == 2) {
                before = allocationCount();
            }
            for (Bytes& payload : payloads) {
                AutoRefPtr<Packet> const packet =
                    hasHeader ? packetHeader->createActual() : pool.alloc(packetTypeMedia);
                packet->length = 16 + preambleSize + blockSize;
                GxfBuffer buffer = payload.filledBuffer();
                good = good && packet->decode(buffer) && packet->isValid();
            }
        }
        EXPECT_EQ(before, allocationCount());
        EXPECT_TRUE(good);
    }
}
