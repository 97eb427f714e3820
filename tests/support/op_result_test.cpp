#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gxftypes/packet/gxf.h>
#include <testing/allocation_count.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

OpSubsystem gxf() { return gxfOpSubsystem.getId(); }

OpCodeLocation const place("umf.cpp", "decode", 12);

TEST(OpResult, TagsHaveTheValuesOfTheirKinds) {
    EXPECT_EQ(static_cast<int>(OpResult::Info), 0);
    EXPECT_EQ(static_cast<int>(OpResult::Ok), 2);
    EXPECT_EQ(static_cast<int>(OpResult::Warning), 3);
    EXPECT_EQ(static_cast<int>(OpResult::Error), 4);
    EXPECT_TRUE((std::is_same_v<decltype(OpResult::Info), OpResult::InfoType>));
    EXPECT_TRUE((std::is_same_v<decltype(OpResult::Ok), OpResult::OkType>));
    EXPECT_TRUE((std::is_same_v<decltype(OpResult::Warning), OpResult::WarningType>));
    EXPECT_TRUE((std::is_same_v<decltype(OpResult::Error), OpResult::ErrorType>));
    EXPECT_EQ(sizeof(OpResult::Type), 4U);
    EXPECT_TRUE(std::is_signed_v<OpResult::Type>);
}

TEST(OpResult, IsOnePointer) { EXPECT_EQ(sizeof(OpResult), sizeof(void*)); }

void expectPlainSuccess(OpResult const& result) {
    EXPECT_TRUE(result.success());
    EXPECT_TRUE(static_cast<bool>(result));
    EXPECT_FALSE(!result);
    EXPECT_EQ(result.getCode(), 0);
    EXPECT_EQ(result.getType(), 2);
    EXPECT_STREQ(result.getText(), "");
    EXPECT_STREQ(result.getLocation().file, "");
    EXPECT_STREQ(result.getLocation().function, "");
    EXPECT_EQ(result.getLocation().line, 0U);
    EXPECT_EQ(result.toString(), "ok");
}

TEST(OpResult, IsSuccessByDefault) { expectPlainSuccess(OpResult()); }

TEST(OpResult, IsSuccessFromOk) { expectPlainSuccess(OpResult(OpResult::Ok)); }

TEST(OpResult, PlainSuccessCannotBeAnnotated) {
    OpResult result;
    EXPECT_EQ(&result.appendNote("x"), &result);
    EXPECT_EQ(&result.prefixNote("y"), &result);
    EXPECT_EQ(&result.downgradeTo(OpResult::Info), &result);
    expectPlainSuccess(result);
}

TEST(OpResult, PlainSuccessTakesNoMemoryAndLeavesNoTrace) {
    MessageCapture const messages;
    auto const allocations = allocationCount();
    OpResult const ok = OpResult::Ok;
    OpResult copy = ok;
    copy.appendNote("x");
    EXPECT_EQ(allocationCount(), allocations);
    EXPECT_EQ(messages.count(MessageKind::Trace), 0U);
}

TEST(OpResult, AnErrorIsAFailure) {
    OpResult const result(OpResult::Error, 9, gxf(), place, "too short");
    EXPECT_FALSE(result.success());
    EXPECT_FALSE(static_cast<bool>(result));
    EXPECT_TRUE(!result);
    EXPECT_EQ(result.getCode(), 9);
    EXPECT_EQ(result.getType(), 4);
    EXPECT_STREQ(result.getText(), "too short");
    EXPECT_STREQ(result.getLocation().file, "umf.cpp");
    EXPECT_STREQ(result.getLocation().function, "decode");
    EXPECT_EQ(result.getLocation().line, 12U);
}

TEST(OpResult, AWarningIsAFailureToo) {
    OpResult const result(OpResult::Warning, 19, gxf(), place, nullptr);
    EXPECT_FALSE(result.success());
    EXPECT_FALSE(static_cast<bool>(result));
    EXPECT_TRUE(!result);
    EXPECT_EQ(result.getCode(), 19);
    EXPECT_EQ(result.getType(), 3);
    EXPECT_STREQ(result.getText(), "");
}

TEST(OpResult, AnInfoPassesAsSuccessWithItsCode) {
    OpResult const result(OpResult::Info, 1, gxf(), nullptr);
    EXPECT_TRUE(result.success());
    EXPECT_TRUE(static_cast<bool>(result));
    EXPECT_FALSE(!result);
    EXPECT_EQ(result.getCode(), 1);
    EXPECT_EQ(result.getType(), 0);
}

TEST(OpResult, ThePartialResultHasTheCodeOfPlainSuccess) {
    OpResult const result(OpResult::Info, 0, gxf(), nullptr);
    EXPECT_TRUE(result.success());
    EXPECT_EQ(result.getCode(), 0);
    EXPECT_EQ(result.getType(), 0);
}

TEST(OpResult, HasNoPlaceWhenNoneWasGiven) {
    OpResult const result(OpResult::Error, 9, gxf(), "text");
    EXPECT_STREQ(result.getLocation().file, "");
    EXPECT_STREQ(result.getLocation().function, "");
    EXPECT_EQ(result.getLocation().line, 0U);
}

TEST(OpResult, LeavesATraceForEachKindWhenItIsBuilt) {
    struct Row {
        OpResult (*raise)();
        char const* trace;
    };
    Row const rows[] = {
        {[] { return OpResult(OpResult::Error, 9, gxf(), place, "too short"); },
         "error badDecodeSize: too short (decode, umf.cpp:12)\n"},
        {[] { return OpResult(OpResult::Error, 12, gxf(), place, nullptr); },
         "error badEncodeSize (decode, umf.cpp:12)\n"},
        {[] { return OpResult(OpResult::Error, 22, gxf(), "built"); },
         "error xml decode failed: built\n"},
        {[] { return OpResult(OpResult::Warning, 8, gxf(), place, "again"); },
         "warning internalWarning: again (decode, umf.cpp:12)\n"},
        {[] { return OpResult(OpResult::Warning, 19, gxf(), nullptr); }, "warning no xml data\n"},
        {[] { return OpResult(OpResult::Info, 0, gxf(), nullptr); }, "info umf partial\n"},
        {[] { return OpResult(OpResult::Info, 1, gxf(), "last of 3"); },
         "info umf final: last of 3\n"},
        {[] { return OpResult(OpResult::Error, 7, gxf(), place, "100%s\nnext %n"); },
         "error internalError: 100%s next %n (decode, umf.cpp:12)\n"},
        {[] { return OpResult(OpResult::Error, 7, -1, ""); }, "error \n"},
    };
    for (Row const& row : rows) {
        MessageCapture const messages;
        OpResult const result = row.raise();
        EXPECT_THAT(messages.texts(MessageKind::Trace), ElementsAre(row.trace));
        EXPECT_THAT(messages.texts(), IsEmpty());
        EXPECT_EQ(result.toString() + '\n', row.trace);
    }
}

TEST(OpResult, LeavesItsTraceWhenItIsDroppedAtOnce) {
    MessageCapture const messages;
    OpResult(OpResult::Error, 14, gxf(), nullptr);
    EXPECT_THAT(messages.texts(MessageKind::Trace), ElementsAre("error unimplemented\n"));
}

TEST(OpResult, LeavesNoFurtherTraceWhenItIsPassedOn) {
    MessageCapture const messages;
    OpResult result(OpResult::Error, 14, gxf(), nullptr);
    OpResult copy = result;
    copy = result;
    copy.prefixNote("a").appendNote("b").downgradeTo(OpResult::Warning);
    EXPECT_EQ(messages.count(MessageKind::Trace), 1U);
}

TEST(OpResult, CopiesTheText) {
    char text[] = "before";
    OpResult const result(OpResult::Error, 9, gxf(), text);
    text[0] = 'X';
    EXPECT_STREQ(result.getText(), "before");
}

TEST(OpResult, JoinsNotesWithNothingBetween) {
    OpResult result(OpResult::Error, 9, gxf(), "middle");
    EXPECT_EQ(&result.prefixNote("front"), &result);
    EXPECT_EQ(&result.appendNote("back"), &result);
    result.prefixNote("a ").appendNote(" z");
    EXPECT_STREQ(result.getText(), "a frontmiddleback z");
    EXPECT_EQ(result.toString(), "error badDecodeSize: a frontmiddleback z");
}

TEST(OpResult, AnnotatesANoteWithoutText) {
    OpResult result(OpResult::Info, 1, gxf(), nullptr);
    result.appendNote("100%d");
    EXPECT_STREQ(result.getText(), "100%d");
}

TEST(OpResult, CopiesShareOneNote) {
    OpResult first(OpResult::Error, 9, gxf(), "text");
    OpResult second(first);
    OpResult third;
    third = second;
    second.appendNote(" more");
    third.prefixNote("the ");
    EXPECT_STREQ(first.getText(), "the text more");
    EXPECT_STREQ(second.getText(), "the text more");
    EXPECT_STREQ(third.getText(), "the text more");
}

TEST(OpResult, AssignmentReplacesAndKeepsTheSame) {
    OpResult first(OpResult::Error, 9, gxf(), "nine");
    OpResult const& same = first;
    first = same;
    EXPECT_EQ(first.getCode(), 9);
    first = OpResult(OpResult::Error, 10, gxf(), "ten");
    EXPECT_EQ(first.getCode(), 10);
    first = OpResult::Ok;
    expectPlainSuccess(first);
}

TEST(OpResult, DowngradesForAllCopies) {
    OpResult result(OpResult::Error, 9, gxf(), "text");
    OpResult const copy = result;
    EXPECT_EQ(&result.downgradeTo(OpResult::Warning), &result);
    EXPECT_EQ(copy.getType(), 3);
    EXPECT_FALSE(copy.success());
    EXPECT_EQ(copy.getCode(), 9);
    EXPECT_EQ(copy.toString(), "warning badDecodeSize: text");
    result.downgradeTo(OpResult::Ok);
    EXPECT_TRUE(copy.success());
    EXPECT_EQ(copy.getCode(), 9);
    EXPECT_EQ(copy.toString(), "ok badDecodeSize: text");
}

TEST(OpResult, NeverRaisesTheKind) {
    OpResult warning(OpResult::Warning, 8, gxf(), nullptr);
    warning.downgradeTo(OpResult::Error);
    EXPECT_EQ(warning.getType(), 3);
    OpResult info(OpResult::Info, 1, gxf(), nullptr);
    info.downgradeTo(OpResult::Warning);
    EXPECT_EQ(info.getType(), 0);
    EXPECT_TRUE(info.success());
}

TEST(OpResult, FreesItsNoteWithTheLastCopy) {
    MessageSink const sink = setMessageSink(nullptr);
    auto const objects = liveObjects();
    {
        OpResult const first(OpResult::Error, 9, gxf(), "a text that is too long to lie in place");
        OpResult second = first;
        second = OpResult(OpResult::Warning, 8, gxf(), nullptr);
    }
    EXPECT_EQ(liveObjects(), objects);
    setMessageSink(sink);
}

TEST(OpResult, LeaksNothingWhenTheTraceFindsNoMemory) {
    std::string const text(3000, 'x');
    MessageCapture const messages;
    auto const objects = liveObjects();
    auto const arrays = liveArrays();
    {
        // Enough for the note and its text, but not for the line that holds them.
        AllocationLimit const limit(text.size() + 1);
        EXPECT_THROW(OpResult(OpResult::Error, 9, gxf(), text.c_str()), std::bad_alloc);
    }
    EXPECT_EQ(liveObjects(), objects);
    EXPECT_EQ(liveArrays(), arrays);
}

TEST(OpResult, MayBeCopiedAcrossThreads) {
    OpResult const shared(OpResult::Error, 9, gxf(), "shared");
    auto const copy = [&shared] {
        for (int i = 0; i < 20000; ++i) {
            OpResult const own(shared);
            OpResult other;
            other = own;
            ASSERT_EQ(other.getCode(), 9);
        }
    };
    std::thread other(copy);
    copy();
    other.join();
    EXPECT_STREQ(shared.getText(), "shared");
}

TEST(OpResult, RaisedInTwoThreadsLeavesWholeTraces) {
    constexpr int rounds = 1000;
    MessageCapture const messages;
    auto const raise = [] {
        for (int i = 0; i < rounds; ++i) {
            OpResult(OpResult::Error, 10, gxf(), place, "both");
        }
    };
    std::thread other(raise);
    raise();
    other.join();
    EXPECT_EQ(
        messages.texts(MessageKind::Trace),
        std::vector<std::string>(2 * rounds, "error badDecodeData: both (decode, umf.cpp:12)\n"));
}

TEST(OpCodeLocation, KeepsWhatItIsGiven) {
    OpCodeLocation const location("a.cpp", "~Packet", 0xffffffff);
    EXPECT_STREQ(location.file, "a.cpp");
    EXPECT_STREQ(location.function, "~Packet");
    EXPECT_EQ(location.line, 0xffffffffU);
    EXPECT_EQ(sizeof location.line, 4U);
}

struct Raiser {
    explicit Raiser(OpResult& out) : result(out) {}
    Raiser(Raiser const&) = delete;
    Raiser& operator=(Raiser const&) = delete;
    ~Raiser() { result = gxfError(7); }
    OpResult& result;
};

TEST(OpCodeLocation, IsThePlaceOfTheCallWithBareNames) {
    unsigned const line = __LINE__ + 1;
    OpResult result = gxfError(GxfOpSubsystem::badDecodeSize, "here");
    EXPECT_STREQ(result.getLocation().file, "op_result_test.cpp");
    EXPECT_STREQ(result.getLocation().function, "TestBody");
    EXPECT_EQ(result.getLocation().line, line);
    EXPECT_EQ(result.getCode(), 9);
    EXPECT_EQ(result.getType(), 4);
    EXPECT_STREQ(result.getText(), "here");
    { Raiser const raiser(result); }
    EXPECT_STREQ(result.getLocation().function, "~Raiser");
}

TEST(OpCodeLocation, NamesAFileWithoutItsFolders) {
    EXPECT_STREQ(OpCodeLocation::here("a/b/c.cpp", "f", 1).file, "c.cpp");
    EXPECT_STREQ(OpCodeLocation::here("c.cpp", "f", 1).file, "c.cpp");
    EXPECT_STREQ(OpCodeLocation::here("a/", "f", 1).file, "");
}

} // namespace
