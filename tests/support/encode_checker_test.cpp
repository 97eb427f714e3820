#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <gxftypes/packet/gxf.h>
#include <testing/bytes.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

TEST(EncodeChecker, IsSilentWhenTheLengthIsRight) {
    Bytes room = Bytes().fill(8);
    GxfBuffer buffer = room.emptyBuffer();
    buffer.encode<unsigned short>(1);
    MessageCapture const messages;
    EncodeChecker const checker(buffer, 4);
    buffer.encode<unsigned int>(2);
    checker.check();
    EXPECT_THAT(messages.texts(), IsEmpty());
}

TEST(EncodeChecker, IsSilentWhenNothingWasAnnouncedOrWritten) {
    GxfBuffer buffer{MediaAgent(nullptr)};
    MessageCapture const messages;
    EncodeChecker const checker(buffer, 0);
    checker.check();
    EXPECT_THAT(messages.texts(), IsEmpty());
}

TEST(EncodeChecker, TellsWhatIsMissing) {
    Bytes room = Bytes().fill(8);
    GxfBuffer buffer = room.emptyBuffer();
    buffer.encode<unsigned char>(0);
    MessageCapture const messages;
    EncodeChecker const checker(buffer, 6);
    buffer.encode<unsigned int>(2);
    checker.check();
    EXPECT_THAT(messages.texts(MessageKind::Info),
                ElementsAre("<<<<<<<\nEncoded 4b != dataLen of 6b (missing 2b)\n>>>>>>>\n"));
    EXPECT_EQ(messages.texts().size(), 1U);
}

TEST(EncodeChecker, TellsWhatIsTooMuchAsANegativeNumber) {
    Bytes room = Bytes().fill(8);
    GxfBuffer buffer = room.emptyBuffer();
    MessageCapture const messages;
    EncodeChecker const checker(buffer, 1);
    buffer.encode<unsigned int>(2);
    checker.check();
    EXPECT_THAT(messages.texts(MessageKind::Info),
                ElementsAre("<<<<<<<\nEncoded 4b != dataLen of 1b (missing -3b)\n>>>>>>>\n"));
}

TEST(EncodeChecker, ReadsTheDifferenceAsASignedNumber) {
    GxfBuffer buffer{MediaAgent(nullptr)};
    MessageCapture const messages;
    EncodeChecker const checker(buffer, 0xffffffff);
    checker.check();
    EXPECT_THAT(
        messages.texts(MessageKind::Info),
        ElementsAre("<<<<<<<\nEncoded 0b != dataLen of 4294967295b (missing -1b)\n>>>>>>>\n"));
}

TEST(EncodeChecker, ChecksAgainWithEachCall) {
    Bytes room = Bytes().fill(4);
    GxfBuffer buffer = room.emptyBuffer();
    MessageCapture const messages;
    EncodeChecker const checker(buffer, 2);
    checker.check();
    buffer.encode<unsigned short>(7);
    checker.check();
    EXPECT_EQ(messages.count(MessageKind::Info), 1U);
    EXPECT_EQ(Bytes::occupied(buffer), (Bytes{0, 7}));
}

} // namespace
