#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include <gxftypes/packet/gxf.h>
#include <testing/capture.h>

using namespace GxfTypes;
using namespace GxfTesting;
using testing::ElementsAre;
using testing::internal::CaptureStderr;
using testing::internal::GetCapturedStderr;

namespace {

/// The default sink for a scope.
class DefaultSink {
  public:
    DefaultSink() : m_before(setMessageSink(nullptr)) {}
    DefaultSink(DefaultSink const&) = delete;
    DefaultSink& operator=(DefaultSink const&) = delete;
    ~DefaultSink() { setMessageSink(m_before); }

  private:
    MessageSink m_before;
};

TEST(Messages, EachFunctionHasItsKind) {
    MessageCapture const messages;
    infoMsg("an info %d\n", 1);
    debugMsg("a debug %s\n", "two");
    warningMsg("a warning %u\n", 3U);
    errorMsg("an error %c\n", '4');
    EXPECT_THAT(messages.texts(MessageKind::Info), ElementsAre("an info 1\n"));
    EXPECT_THAT(messages.texts(MessageKind::Debug), ElementsAre("a debug two\n"));
    EXPECT_THAT(messages.texts(MessageKind::Warning), ElementsAre("a warning 3\n"));
    EXPECT_THAT(messages.texts(MessageKind::Error), ElementsAre("an error 4\n"));
    EXPECT_EQ(messages.count(MessageKind::Trace), 0U);
}

TEST(Messages, AddNoNewlineOfTheirOwn) {
    MessageCapture const messages;
    infoMsg("no newline");
    infoMsg("%s", "");
    EXPECT_THAT(messages.texts(), ElementsAre("no newline", ""));
}

TEST(Messages, PassForeignTextsAsTheyStand) {
    MessageCapture const messages;
    errorMsg("%s", "100%% %s %n");
    sendMessage(MessageKind::Info, "50% %d %s");
    EXPECT_THAT(messages.texts(), ElementsAre("100%% %s %n", "50% %d %s"));
}

TEST(Messages, MayBeLong) {
    std::string const text(100000, 'x');
    MessageCapture const messages;
    infoMsg("<%s>", text.c_str());
    EXPECT_THAT(messages.texts(), ElementsAre('<' + text + '>'));
}

TEST(Messages, AFailedCheckLeavesOneTrace) {
    MessageCapture const messages;
    logFalse("allocLokd", "gxf.cpp", 17);
    EXPECT_THAT(messages.texts(MessageKind::Trace),
                ElementsAre("check failed: allocLokd (gxf.cpp:17)\n"));
    EXPECT_EQ(messages.texts().size(), 0U);
}

TEST(Messages, TheDefaultSinkWritesWarningsAndErrorsAndDropsTheRest) {
    DefaultSink const sink;
    CaptureStderr();
    infoMsg("info\n");
    debugMsg("debug\n");
    warningMsg("warning\n");
    errorMsg("error\n");
    logFalse("check", "file", 1);
    sendMessage(MessageKind::Trace, "trace\n");
    sendMessage(MessageKind::Error, "50% %s\n");
    EXPECT_EQ(GetCapturedStderr(), "warning\nerror\n50% %s\n");
}

TEST(Messages, ADroppedKindIsNotWanted) {
    {
        DefaultSink const sink;
        EXPECT_FALSE(isMessageWanted(MessageKind::Info));
        EXPECT_FALSE(isMessageWanted(MessageKind::Debug));
        EXPECT_TRUE(isMessageWanted(MessageKind::Warning));
        EXPECT_TRUE(isMessageWanted(MessageKind::Error));
        EXPECT_FALSE(isMessageWanted(MessageKind::Trace));
    }
    MessageCapture const messages;
    EXPECT_TRUE(isMessageWanted(MessageKind::Info));
    EXPECT_TRUE(isMessageWanted(MessageKind::Debug));
    EXPECT_TRUE(isMessageWanted(MessageKind::Warning));
    EXPECT_TRUE(isMessageWanted(MessageKind::Error));
    EXPECT_TRUE(isMessageWanted(MessageKind::Trace));
}

std::atomic<unsigned> inFirst{0};
std::atomic<unsigned> inSecond{0};
std::atomic<unsigned> damaged{0};

void count(std::atomic<unsigned>& counter, MessageKind kind, char const* text) {
    ++counter;
    if (kind != MessageKind::Info || std::string(text) != "message of 7 bytes\n") {
        ++damaged;
    }
}

void firstSink(MessageKind kind, char const* text) { count(inFirst, kind, text); }
void secondSink(MessageKind kind, char const* text) { count(inSecond, kind, text); }

TEST(Messages, SettingASinkGivesTheOneBefore) {
    DefaultSink const sink;
    MessageSink const defaultSink = setMessageSink(&firstSink);
    EXPECT_NE(defaultSink, nullptr);
    EXPECT_EQ(setMessageSink(&secondSink), &firstSink);
    EXPECT_EQ(setMessageSink(nullptr), &secondSink);
    EXPECT_EQ(setMessageSink(nullptr), defaultSink);
}

TEST(Messages, EachReachesOneSinkWhileAnotherThreadChangesIt) {
    constexpr unsigned rounds = 20000;
    MessageSink const before = setMessageSink(&firstSink);
    inFirst = inSecond = damaged = 0;
    std::atomic<bool> done{false};
    std::thread changing([&done] {
        bool first = false;
        while (!done) {
            setMessageSink(first ? &firstSink : &secondSink);
            first = !first;
        }
    });
    for (unsigned i = 0; i < rounds; ++i) {
        infoMsg("message of %u bytes\n", 7U);
    }
    done = true;
    changing.join();
    setMessageSink(before);
    EXPECT_EQ(inFirst + inSecond, rounds);
    EXPECT_EQ(damaged, 0U);
}

TEST(Messages, MayComeFromTwoThreads) {
    constexpr unsigned rounds = 2000;
    MessageCapture const messages;
    auto const send = [] {
        for (unsigned i = 0; i < rounds; ++i) {
            warningMsg("%s\n", "same text");
        }
    };
    std::thread other(send);
    send();
    other.join();
    EXPECT_EQ(messages.texts(MessageKind::Warning),
              std::vector<std::string>(2 * rounds, "same text\n"));
}

TEST(Messages, TheDebuggerHookReturns) {
    MessageCapture const messages;
    debugBkpt();
    EXPECT_EQ(messages.texts().size() + messages.count(MessageKind::Trace), 0U);
}

} // namespace
