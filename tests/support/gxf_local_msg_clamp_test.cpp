#include <gxftypes/support/gxf_local_msg_clamp.h>

#include <gtest/gtest.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

using Texts = std::vector<std::string>;

TEST(GxfLocalMsgClamp, SendsUpToItsLimit) {
    for (unsigned limit = 0; limit < 4; ++limit) {
        MessageCapture const messages;
        GxfLocalMsgClamp clamp(limit);
        Texts expected;
        for (unsigned i = 0; i < 6; ++i) {
            clamp.sendMessage(FormatStr("message %u\n", i));
            if (i < limit) {
                expected.push_back("message " + std::to_string(i) + "\n");
            }
        }
        EXPECT_EQ(messages.texts(MessageKind::Error), expected);
        EXPECT_EQ(messages.texts(), expected);
    }
}

TEST(GxfLocalMsgClamp, EachOneCountsForItself) {
    MessageCapture const messages;
    GxfLocalMsgClamp first(1);
    GxfLocalMsgClamp second(1);
    first.sendMessage(FormatStr("a\n"));
    second.sendMessage(FormatStr("b\n"));
    first.sendMessage(FormatStr("c\n"));
    EXPECT_EQ(messages.texts(), Texts({"a\n", "b\n"}));
}

TEST(GxfLocalMsgClamp, AnEmptyTextCounts) {
    MessageCapture const messages;
    GxfLocalMsgClamp clamp(1);
    clamp.sendMessage(FormatStr(128U));
    clamp.sendMessage(FormatStr("too late\n"));
    EXPECT_EQ(messages.texts(MessageKind::Error), Texts({""}));
}

TEST(GxfLocalMsgClamp, TakesTheTextAsAFormatWithoutArguments) {
    MessageCapture const messages;
    GxfLocalMsgClamp clamp(3);
    FormatStr text(128U);
    clamp.sendMessage(text.cat("50%% of %s %n %d\n"));
    text.clear();
    clamp.sendMessage(text.cat("%%%%%"));
    text.clear();
    clamp.sendMessage(text.cat("100%"));
    EXPECT_EQ(messages.texts(MessageKind::Error), Texts({"50% of %s %n %d\n", "%%%", "100%"}));
}

} // namespace
