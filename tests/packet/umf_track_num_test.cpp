#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <testing/bytes.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::IsEmpty;

namespace {

UmfTrackNum trackNum(unsigned type, unsigned number) {
    return {static_cast<TrackTypeEncoding>(type), static_cast<TrackNumberEncoding>(number)};
}

std::string textOfNum(UmfTrackNum const& num) {
    FormatStr const text = num.toString();
    return {text.get(), text.size()};
}

} // namespace

TEST(UmfTrackNum, DefaultIsZero) {
    UmfTrackNum const num;
    EXPECT_EQ(num.trackType, 0U);
    EXPECT_EQ(num.trackNumber, 0U);
}

TEST(UmfTrackNum, TypeComesFirstInMemory) {
    UmfTrackNum const num(trackTypeEncodingAudio, static_cast<TrackNumberEncoding>('3'));
    EXPECT_EQ(num.trackType, 65U);
    EXPECT_EQ(num.trackNumber, 0x33U);
    UmfTrackNum copy(num);
    EXPECT_TRUE(copy == num);
    copy = UmfTrackNum();
    EXPECT_TRUE(copy == UmfTrackNum());
}

TEST(UmfTrackNum, EqualNeedsBothFields) {
    EXPECT_TRUE(trackNum('A', '3') == trackNum('A', '3'));
    EXPECT_FALSE(trackNum('A', '3') == trackNum('A', '4'));
    EXPECT_FALSE(trackNum('A', '3') == trackNum('D', '3'));
    EXPECT_FALSE(trackNum('A', '3') == trackNum('3', 'A'));
    // All 32 bits count, not the byte of the wire.
    EXPECT_FALSE(trackNum('A', '3') == trackNum('A', 0x100 + '3'));
    EXPECT_FALSE(trackNum('A', '3') == trackNum(0x80000000U + 'A', '3'));
}

TEST(UmfTrackNum, NumberIsFirstOnTheWire) {
    Bytes storage = Bytes().fill(2);
    GxfBuffer out = storage.emptyBuffer();
    EXPECT_TRUE(trackNum('A', '3').encode(out));
    EXPECT_EQ(Bytes::occupied(out), (Bytes{0x33, 0x41}));

    GxfBuffer in = storage.filledBuffer();
    UmfTrackNum num;
    EXPECT_TRUE(num.decode(in));
    EXPECT_TRUE(num == trackNum('A', '3'));
    EXPECT_EQ(in.nOccupied(), 0U);
}

TEST(UmfTrackNum, DecodesAnyBytes) {
    for (unsigned value = 0; value < 256; ++value) {
        Bytes bytes{value, 255 - value, 0x77};
        GxfBuffer buffer = bytes.filledBuffer();
        UmfTrackNum num;
        EXPECT_TRUE(num.decode(buffer));
        EXPECT_EQ(num.trackNumber, value);
        EXPECT_EQ(num.trackType, 255 - value);
        EXPECT_EQ(buffer.nOccupied(), 1U);
    }
}

TEST(UmfTrackNum, TruncatedDecodeChangesNothing) {
    Bytes bytes{0x33, 0x41};
    for (unsigned size = 0; size < 2; ++size) {
        GxfBuffer buffer(bytes.data(), size, GxfBuffer::DataState::filled, MediaAgent(nullptr));
        UmfTrackNum num = trackNum('T', '9');
        OpResult const result = num.decode(buffer);
        EXPECT_FALSE(result);
        EXPECT_EQ(result.getType(), OpResult::Error);
        EXPECT_EQ(result.getCode(), 9);
        EXPECT_STREQ(result.getText(), "");
        EXPECT_STREQ(result.getLocation().function, "decode");
        EXPECT_TRUE(num == trackNum('T', '9'));
        EXPECT_EQ(buffer.nOccupied(), size);
    }
}

TEST(UmfTrackNum, EncodeWithoutRoom) {
    for (unsigned room = 0; room < 2; ++room) {
        Bytes storage = Bytes().fill(2, 0xAA);
        GxfBuffer buffer(storage.data(), room, GxfBuffer::DataState::empty, MediaAgent(nullptr));
        OpResult const result = trackNum('A', '3').encode(buffer);
        EXPECT_FALSE(result);
        EXPECT_EQ(result.getType(), OpResult::Error);
        EXPECT_EQ(result.getCode(), 12);
        EXPECT_STREQ(result.getText(), "");
        EXPECT_STREQ(result.getLocation().function, "encode");
        EXPECT_EQ(buffer.nOccupied(), 0U);
        EXPECT_EQ(storage, Bytes().fill(2, 0xAA));
    }
}

TEST(UmfTrackNum, EncodesTheLowBytes) {
    Bytes storage = Bytes().fill(2);
    GxfBuffer buffer = storage.emptyBuffer();
    EXPECT_TRUE(trackNum(0x12345678, 0x9ABCDEF0).encode(buffer));
    EXPECT_EQ(Bytes::occupied(buffer), (Bytes{0xF0, 0x78}));
}

TEST(UmfTrackNum, CodersAreSilent) {
    ChannelSetting const decodeLevel(gxfDecodeDetail, 9);
    ChannelSetting const encodeLevel(gxfEncodeDetail, 9);
    MessageCapture const capture;
    Bytes storage = Bytes().fill(2);
    GxfBuffer out = storage.emptyBuffer();
    UmfTrackNum num;
    EXPECT_TRUE(num.encode(out));
    EXPECT_TRUE(num.decode(out));
    EXPECT_THAT(capture.texts(), IsEmpty());
    EXPECT_EQ(capture.count(MessageKind::Trace), 0U);
}

TEST(UmfTrackNum, Text) {
    EXPECT_EQ(textOfNum(trackNum('A', '3')), "Audio3");
    EXPECT_EQ(textOfNum(trackNum('D', '0')), "DV250");
    EXPECT_EQ(textOfNum(trackNum('E', '1')), "DV501");
    EXPECT_EQ(textOfNum(trackNum('F', '2')), "DV1002");
    EXPECT_EQ(textOfNum(trackNum('H', 'A')), "Mpeg2HdA");
    EXPECT_EQ(textOfNum(trackNum('I', 'V')), "AVCIV");
    EXPECT_EQ(textOfNum(trackNum('L', 'a')), "Mpeg1a");
    EXPECT_EQ(textOfNum(trackNum('M', '4')), "Mpeg2Sd4");
    EXPECT_EQ(textOfNum(trackNum('N', '5')), "AncData5");
    EXPECT_EQ(textOfNum(trackNum('T', '6')), "Timecode6");
    EXPECT_EQ(textOfNum(trackNum('V', '7')), "MotionJPEG7");
    EXPECT_EQ(textOfNum(trackNum('a', '%')), "?%");
    EXPECT_EQ(textOfNum(trackNum(0xFFFFFFFF, '3')), "?3");
    EXPECT_EQ(textOfNum(UmfTrackNum()), std::string("?\0", 2));
}

TEST(UmfTrackNum, CharacterOfANumber) {
    for (unsigned number = 0; number < 10; ++number) {
        EXPECT_EQ(UmfTrackNum::umfTrackNumToTrackNumEncoding(static_cast<unsigned char>(number)),
                  48 + number);
    }
    for (unsigned number = 10; number < 256; ++number) {
        EXPECT_EQ(UmfTrackNum::umfTrackNumToTrackNumEncoding(static_cast<unsigned char>(number)),
                  55 + number);
    }
    EXPECT_EQ(UmfTrackNum::umfTrackNumToTrackNumEncoding(9), 57U);
    EXPECT_EQ(UmfTrackNum::umfTrackNumToTrackNumEncoding(10), 65U);
    EXPECT_EQ(UmfTrackNum::umfTrackNumToTrackNumEncoding(31), 86U);
    EXPECT_EQ(UmfTrackNum::umfTrackNumToTrackNumEncoding(32), 87U);
    EXPECT_EQ(UmfTrackNum::umfTrackNumToTrackNumEncoding(255), 310U);
}
