#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <gxftypes/packet/gxf.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;

namespace {

char const* nameOfFirst(int code) { return code == 5 ? "first five" : "first other"; }
char const* nameOfSecond(int) { return "second"; }

TEST(OpSubsystemDecl, HasANumberOfItsOwn) {
    OpSubsystemDecl const first("first", &nameOfFirst);
    OpSubsystemDecl const second("second", &nameOfSecond);
    EXPECT_NE(first.getId(), second.getId());
    EXPECT_NE(first.getId(), gxfOpSubsystem.getId());
    EXPECT_NE(second.getId(), gxfOpSubsystem.getId());
    EXPECT_STREQ(first.name(), "first");
    EXPECT_STREQ(second.name(), "second");
}

TEST(OpSubsystemDecl, NamesItsCodes) {
    OpSubsystemDecl const first("first", &nameOfFirst);
    OpSubsystemDecl const second("second", &nameOfSecond);
    EXPECT_STREQ(OpSubsystemDecl::errorNameOf(first.getId(), 5), "first five");
    EXPECT_STREQ(OpSubsystemDecl::errorNameOf(first.getId(), -5), "first other");
    EXPECT_STREQ(OpSubsystemDecl::errorNameOf(second.getId(), 5), "second");
    EXPECT_STREQ(OpSubsystemDecl::errorNameOf(gxfOpSubsystem.getId(), 5), "no packet found");
}

TEST(OpSubsystemDecl, NamesNothingAfterItsEnd) {
    OpSubsystem gone = 0;
    {
        OpSubsystemDecl const first("first", &nameOfFirst);
        OpSubsystemDecl const second("second", &nameOfSecond);
        gone = first.getId();
    }
    EXPECT_STREQ(OpSubsystemDecl::errorNameOf(gone, 5), "");
    OpSubsystemDecl const next("next", &nameOfFirst);
    EXPECT_NE(next.getId(), gone);
}

TEST(OpSubsystemDecl, NamesNothingForAnUnknownNumber) {
    EXPECT_STREQ(OpSubsystemDecl::errorNameOf(-1, 5), "");
}

TEST(OpSubsystemDecl, GivesTheNamesInTheTracesOfItsResults) {
    OpSubsystemDecl const first("first", &nameOfFirst);
    MessageCapture const messages;
    OpResult const result(OpResult::Error, 5, first.getId(), nullptr);
    EXPECT_THAT(messages.texts(MessageKind::Trace), ElementsAre("error first five\n"));
}

OpSubsystem raisingId = 0;

char const* raisingName(int code) {
    if (code == 1) {
        OpResult const inner(OpResult::Warning, 2, raisingId, "from inside");
    }
    return code == 1 ? "outer" : "inner";
}

TEST(OpSubsystemDecl, MayRaiseResultsWhileItNamesACode) {
    OpSubsystemDecl const raising("raising", &raisingName);
    raisingId = raising.getId();
    MessageCapture const messages;
    EXPECT_STREQ(OpSubsystemDecl::errorNameOf(raisingId, 1), "outer");
    EXPECT_THAT(messages.texts(MessageKind::Trace), ElementsAre("warning inner: from inside\n"));
}

} // namespace
