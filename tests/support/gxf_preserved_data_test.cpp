#include <gxftypes/support/gxf_preserved_data.h>

#include <gtest/gtest.h>
#include <testing/bytes.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

constexpr auto keep = GxfPreservedData::keep;
constexpr auto skip = GxfPreservedData::skip;

class GxfPreservedDataTest : public testing::Test {
  protected:
    /// Decodes `n` of bytes that count up from `first` and lie at `offset` in the stream.
    OpResult decode(unsigned n, unsigned first, unsigned long long offset,
                    GxfPreservedData::DecodeMode mode) {
        Bytes bytes;
        for (unsigned i = 0; i < n; ++i) {
            bytes.u8(first + i);
        }
        GxfBuffer buffer = bytes.filledBuffer();
        buffer.reset(GxfBuffer::DataState::filled, offset);
        return data.decode(buffer, n, mode);
    }

    /// What the data encode to, in exactly their size.
    static Bytes encoded(GxfPreservedData const& source) {
        Bytes room;
        room.fill(source.size());
        GxfBuffer out = room.emptyBuffer();
        EXPECT_TRUE(source.encode(out));
        return Bytes::occupied(out);
    }

    static int encodeFailure(GxfPreservedData const& source, unsigned room) {
        Bytes bytes;
        bytes.fill(room, 0x55);
        GxfBuffer out = bytes.emptyBuffer();
        OpResult const result = source.encode(out);
        EXPECT_FALSE(result);
        EXPECT_EQ(out.nOccupied(), 0U);
        EXPECT_EQ(bytes, Bytes().fill(room, 0x55));
        EXPECT_EQ(result.getType(), OpResult::Error);
        EXPECT_STREQ(result.getText(), "");
        EXPECT_STREQ(result.getLocation().function, "encode");
        EXPECT_STREQ(result.getLocation().file, "gxf_preserved_data.cpp");
        EXPECT_NE(result.getLocation().line, 0U);
        return result.getCode();
    }

    GxfPreservedData data;
};

TEST_F(GxfPreservedDataTest, IsEmptyAtFirst) {
    EXPECT_EQ(data.size(), 0U);
    EXPECT_EQ(data.getData(), nullptr);
    EXPECT_EQ(data.getFileOffset(), 0U);
}

TEST_F(GxfPreservedDataTest, EmptyEncodesToNothing) {
    Bytes room;
    GxfBuffer out = room.emptyBuffer();
    EXPECT_TRUE(data.encode(out));
    EXPECT_EQ(out.nOccupied(), 0U);
    GxfBuffer growing{MediaAgent(nullptr)};
    EXPECT_TRUE(data.encode(growing));
    EXPECT_EQ(growing.nOccupied(), 0U);
}

TEST_F(GxfPreservedDataTest, KeepsBytesSizeAndPosition) {
    Bytes bytes{0xA1, 0x00, 0xA3, 0xA4, 0xA5};
    GxfBuffer buffer = bytes.filledBuffer();
    buffer.reset(GxfBuffer::DataState::filled, 0x1234567890ULL);
    buffer.removeInput(1);
    EXPECT_TRUE(data.decode(buffer, 3, keep));
    EXPECT_EQ(data.size(), 3U);
    EXPECT_EQ(data.getFileOffset(), 0x1234567891ULL);
    EXPECT_EQ(buffer.beginOffset(), 0x1234567894ULL);
    EXPECT_EQ(Bytes::occupied(buffer), Bytes({0xA5}));
    bytes[2] = 0;
    EXPECT_EQ(encoded(data), Bytes({0x00, 0xA3, 0xA4}));
}

TEST_F(GxfPreservedDataTest, EncodesBehindWhatIsThere) {
    ASSERT_TRUE(decode(2, 0x10, 0, keep));
    Bytes room;
    room.fill(4, 0x55);
    GxfBuffer out = room.emptyBuffer();
    out.encode<unsigned char>(0x77);
    EXPECT_TRUE(data.encode(out));
    EXPECT_EQ(Bytes::occupied(out), Bytes({0x77, 0x10, 0x11}));
    EXPECT_EQ(room, Bytes({0x77, 0x10, 0x11, 0x55}));
}

TEST_F(GxfPreservedDataTest, KeepsNoBytes) {
    ASSERT_TRUE(decode(0, 0, 99, keep));
    EXPECT_EQ(data.size(), 0U);
    EXPECT_EQ(data.getFileOffset(), 99U);
    EXPECT_EQ(encoded(data), Bytes());
}

TEST_F(GxfPreservedDataTest, SkipsInAnyOtherMode) {
    for (unsigned const value : {0U, 2U, 0xFFFFFFFFU}) {
        Bytes bytes{1, 2, 3, 4};
        GxfBuffer buffer = bytes.filledBuffer();
        GxfPreservedData skipped;
        auto const mode = static_cast<GxfPreservedData::DecodeMode>(value);
        buffer.removeInput(1);
        EXPECT_TRUE(skipped.decode(buffer, 2, mode));
        EXPECT_EQ(skipped.size(), 2U);
        EXPECT_EQ(skipped.getFileOffset(), 1U);
        EXPECT_EQ(skipped.getData(), nullptr);
        EXPECT_EQ(Bytes::occupied(buffer), Bytes({4}));
        EXPECT_EQ(encodeFailure(skipped, 2), 14);
    }
    EXPECT_EQ(static_cast<unsigned>(keep), 1U);
}

TEST_F(GxfPreservedDataTest, FailsWithoutTheBytesAndStaysAsItWas) {
    ASSERT_TRUE(decode(2, 0x10, 7, keep));
    for (GxfPreservedData::DecodeMode const mode : {keep, skip}) {
        for (unsigned present = 0; present < 5; ++present) {
            Bytes bytes;
            bytes.fill(present, 0x99);
            GxfBuffer buffer = bytes.filledBuffer();
            MessageCapture const messages;
            OpResult const result = data.decode(buffer, 5, mode);
            EXPECT_FALSE(result);
            EXPECT_EQ(result.getCode(), 9);
            EXPECT_EQ(result.getType(), OpResult::Error);
            EXPECT_STREQ(result.getText(), "");
            EXPECT_STREQ(result.getLocation().function, "decode");
            EXPECT_STREQ(result.getLocation().file, "gxf_preserved_data.cpp");
            EXPECT_NE(result.getLocation().line, 0U);
            EXPECT_EQ(messages.count(MessageKind::Trace), 1U);
            EXPECT_TRUE(messages.texts().empty());
            EXPECT_EQ(buffer.nOccupied(), present);
            EXPECT_EQ(buffer.beginOffset(), 0U);
            EXPECT_EQ(data.getFileOffset(), 7U);
            EXPECT_EQ(encoded(data), Bytes({0x10, 0x11}));
        }
    }
}

TEST_F(GxfPreservedDataTest, AClaimOfFourGigabytesAllocatesNothing) {
    Bytes bytes{1, 2, 3};
    GxfBuffer buffer = bytes.filledBuffer();
    EXPECT_EQ(data.decode(buffer, 0xFFFFFFFFU, keep).getCode(), 9);
    EXPECT_EQ(data.getData(), nullptr);
}

TEST_F(GxfPreservedDataTest, NeedsRoomToEncode) {
    ASSERT_TRUE(decode(3, 0x10, 0, keep));
    for (unsigned room = 0; room < 3; ++room) {
        EXPECT_EQ(encodeFailure(data, room), 12);
    }
    EXPECT_EQ(encoded(data), Bytes({0x10, 0x11, 0x12}));
}

TEST_F(GxfPreservedDataTest, RoomIsTestedBeforeTheBytes) {
    ASSERT_TRUE(decode(3, 0x10, 0, skip));
    EXPECT_EQ(encodeFailure(data, 2), 12);
    EXPECT_EQ(encodeFailure(data, 3), 14);
}

TEST_F(GxfPreservedDataTest, ASkipOfNothingEncodesToNothing) {
    ASSERT_TRUE(decode(0, 0, 3, skip));
    EXPECT_EQ(encoded(data), Bytes());
}

TEST_F(GxfPreservedDataTest, ASecondDecodeReplacesTheBytes) {
    ASSERT_TRUE(decode(2, 0x10, 1, keep));
    ASSERT_TRUE(decode(4, 0x20, 2, keep));
    EXPECT_EQ(data.size(), 4U);
    EXPECT_EQ(data.getFileOffset(), 2U);
    EXPECT_EQ(encoded(data), Bytes({0x20, 0x21, 0x22, 0x23}));
    ASSERT_TRUE(decode(1, 0x30, 3, keep));
    EXPECT_EQ(encoded(data), Bytes({0x30}));
}

TEST_F(GxfPreservedDataTest, ASkipLeavesTheBytesThatAreKept) {
    ASSERT_TRUE(decode(3, 0x10, 1, keep));
    ASSERT_TRUE(decode(2, 0x20, 50, skip));
    EXPECT_EQ(data.size(), 2U);
    EXPECT_EQ(data.getFileOffset(), 50U);
    EXPECT_EQ(encoded(data), Bytes({0x10, 0x11}));
    ASSERT_TRUE(decode(3, 0x20, 60, skip));
    EXPECT_EQ(encoded(data), Bytes({0x10, 0x11, 0x12}));
}

TEST_F(GxfPreservedDataTest, ASkipOfMoreThanIsKeptCantBeEncoded) {
    ASSERT_TRUE(decode(3, 0x10, 1, keep));
    ASSERT_TRUE(decode(4, 0x20, 50, skip));
    EXPECT_EQ(data.size(), 4U);
    EXPECT_EQ(encodeFailure(data, 4), 14);

    GxfPreservedData copied;
    copied.copy(data);
    EXPECT_EQ(copied.size(), 4U);
    EXPECT_EQ(encodeFailure(copied, 4), 14);
    ASSERT_TRUE(decode(1, 0x30, 51, keep));
    EXPECT_EQ(encoded(data), Bytes({0x30}));
}

TEST_F(GxfPreservedDataTest, CopiesBytesSizeAndPosition) {
    ASSERT_TRUE(decode(3, 0x10, 1000, keep));
    GxfPreservedData copied;
    copied.copy(data);
    EXPECT_EQ(copied.size(), 3U);
    EXPECT_EQ(copied.getFileOffset(), 1000U);
    EXPECT_NE(copied.getData(), data.getData());
    EXPECT_EQ(encoded(data), Bytes({0x10, 0x11, 0x12}));
    data.discard();
    EXPECT_EQ(encoded(copied), Bytes({0x10, 0x11, 0x12}));
}

TEST_F(GxfPreservedDataTest, ACopyDropsWhatWasThere) {
    GxfPreservedData other;
    Bytes bytes{1, 2, 3, 4, 5};
    GxfBuffer buffer = bytes.filledBuffer();
    ASSERT_TRUE(other.decode(buffer, 5, keep));
    ASSERT_TRUE(decode(2, 0x10, 8, keep));
    other.copy(data);
    EXPECT_EQ(encoded(other), Bytes({0x10, 0x11}));

    GxfPreservedData const empty;
    other.copy(empty);
    EXPECT_EQ(other.size(), 0U);
    EXPECT_EQ(other.getData(), nullptr);
    EXPECT_EQ(other.getFileOffset(), 0U);
    EXPECT_EQ(encoded(other), Bytes());
}

TEST_F(GxfPreservedDataTest, ACopyOfAnEmptyHolderTakesItsPosition) {
    ASSERT_TRUE(decode(0, 0, 4242, skip));
    GxfPreservedData copied;
    copied.copy(data);
    EXPECT_EQ(copied.size(), 0U);
    EXPECT_EQ(copied.getData(), nullptr);
    EXPECT_EQ(copied.getFileOffset(), 4242U);
}

TEST_F(GxfPreservedDataTest, ACopyOfSkippedBytesKnowsTheirNumber) {
    ASSERT_TRUE(decode(6, 0, 11, skip));
    GxfPreservedData copied;
    copied.copy(data);
    EXPECT_EQ(copied.size(), 6U);
    EXPECT_EQ(copied.getFileOffset(), 11U);
    EXPECT_EQ(encodeFailure(copied, 6), 14);
}

TEST_F(GxfPreservedDataTest, ACopyTakesOnlyTheBytesThatCount) {
    ASSERT_TRUE(decode(5, 0x10, 0, keep));
    ASSERT_TRUE(decode(2, 0, 0, skip));
    GxfPreservedData copied;
    copied.copy(data);
    EXPECT_EQ(encoded(copied), Bytes({0x10, 0x11}));
}

TEST_F(GxfPreservedDataTest, ACopyOfItselfChangesNothing) {
    ASSERT_TRUE(decode(2, 0x10, 9, keep));
    data.copy(data);
    EXPECT_EQ(data.getFileOffset(), 9U);
    EXPECT_EQ(encoded(data), Bytes({0x10, 0x11}));
}

TEST_F(GxfPreservedDataTest, DiscardEmpties) {
    ASSERT_TRUE(decode(2, 0x10, 9, keep));
    data.discard();
    EXPECT_EQ(data.size(), 0U);
    EXPECT_EQ(data.getData(), nullptr);
    EXPECT_EQ(data.getFileOffset(), 0U);
    EXPECT_EQ(encoded(data), Bytes());
    ASSERT_TRUE(decode(1, 0x20, 3, skip));
    EXPECT_EQ(encodeFailure(data, 1), 14);
}

} // namespace
