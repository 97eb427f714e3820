#include <gxftypes/support/log_if_false.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

TEST(LogIfFalse, SaysNothingOfATrueCondition) {
    MessageCapture const messages;
    EXPECT_TRUE(logIfFalse(true, "readSubTree", "tree.cpp", 4711));
    EXPECT_EQ(messages.count(MessageKind::Trace), 0U);
    EXPECT_TRUE(messages.texts().empty());
}

TEST(LogIfFalse, TracesAFalseCondition) {
    using testing::AllOf;
    using testing::ElementsAre;
    using testing::HasSubstr;

    MessageCapture const messages;
    EXPECT_FALSE(logIfFalse(false, "readSubTree", "tree.cpp", 4711));
    EXPECT_THAT(
        messages.texts(MessageKind::Trace),
        ElementsAre(AllOf(HasSubstr("readSubTree"), HasSubstr("tree.cpp"), HasSubstr("4711"))));
    EXPECT_TRUE(messages.texts().empty());
}

TEST(LogIfFalse, NamesWithPercentSignsAreNoFormats) {
    MessageCapture const messages;
    EXPECT_FALSE(logIfFalse(false, "%s%n", "%d.cpp", 1));
    EXPECT_THAT(messages.texts(MessageKind::Trace),
                testing::ElementsAre(
                    testing::AllOf(testing::HasSubstr("%s%n"), testing::HasSubstr("%d.cpp"))));
}

} // namespace
