#include <gtest/gtest.h>

#include <cstring>
#include <thread>

#include <gxftypes/packet/gxf.h>

using namespace GxfTypes;

namespace {

TEST(DebuggerOn, StartsAtZero) {
    DebuggerOn const channel("test channel", 0);
    EXPECT_EQ(channel.get(), 0U);
    EXPECT_STREQ(channel.name(), "test channel");
    for (unsigned bit = 0; bit < 32; ++bit) {
        EXPECT_FALSE(channel.on(bit)) << bit;
        EXPECT_EQ(channel.bitName(bit), nullptr) << bit;
    }
}

TEST(DebuggerOn, HoldsALevel) {
    DebuggerOn channel("test channel", 0);
    channel.set(3);
    EXPECT_EQ(channel.get(), 3U);
    channel.set(0xffffffff);
    EXPECT_EQ(channel.get(), 0xffffffffU);
    channel.set(0);
    EXPECT_EQ(channel.get(), 0U);
}

TEST(DebuggerOn, TestsTheBitModulo32) {
    DebuggerOn channel("test channel", 0);
    for (unsigned bit = 0; bit < 32; ++bit) {
        channel.set(1U << bit);
        for (unsigned asked = 0; asked < 32; ++asked) {
            EXPECT_EQ(channel.on(asked), asked == bit) << bit << ' ' << asked;
            EXPECT_EQ(channel.on(asked + 32), asked == bit) << bit << ' ' << asked;
            EXPECT_EQ(channel.on(asked | 0xffffffe0U), asked == bit) << bit << ' ' << asked;
        }
    }
}

TEST(DebuggerOn, HasItsValueAsTheFirstMember) {
    DebuggerOn channel("test channel", 0);
    channel.set(0x01020304);
    unsigned first = 0;
    std::memcpy(&first, static_cast<void const*>(&channel), sizeof first);
    EXPECT_EQ(first, 0x01020304U);
}

TEST(DebuggerOn, NamesItsBits) {
    DebuggerOn const channel("test channel", 2, "one", "two");
    EXPECT_STREQ(channel.bitName(0), "one");
    EXPECT_STREQ(channel.bitName(1), "two");
    EXPECT_EQ(channel.bitName(2), nullptr);
    EXPECT_EQ(channel.bitName(32), nullptr);
    EXPECT_EQ(channel.bitName(0xffffffff), nullptr);
}

TEST(DebuggerOn, LeavesOutNamesBehindThe32nd) {
    DebuggerOn const channel("test channel", 33, "0", "1", "2", "3", "4", "5", "6", "7", "8", "9",
                             "10", "11", "12", "13", "14", "15", "16", "17", "18", "19", "20", "21",
                             "22", "23", "24", "25", "26", "27", "28", "29", "30", "31", "32");
    EXPECT_STREQ(channel.bitName(31), "31");
    EXPECT_EQ(channel.bitName(32), nullptr);
}

TEST(DebuggerOn, IsFoundByItsNameWhileItLives) {
    EXPECT_EQ(DebuggerOn::find("test channel"), nullptr);
    {
        DebuggerOn const first("test channel", 0);
        {
            DebuggerOn const second("test channel 2", 0);
            EXPECT_EQ(DebuggerOn::find("test channel"), &first);
            EXPECT_EQ(DebuggerOn::find("test channel 2"), &second);
        }
        EXPECT_EQ(DebuggerOn::find("test channel 2"), nullptr);
        EXPECT_EQ(DebuggerOn::find("test channel"), &first);
    }
    EXPECT_EQ(DebuggerOn::find("test channel"), nullptr);
}

TEST(DebuggerOn, FindsTheChannelsOfTheLibrary) {
    EXPECT_EQ(DebuggerOn::find("gxfDecodeDetail"), &gxfDecodeDetail);
    EXPECT_EQ(DebuggerOn::find("gxfEncodeDetail"), &gxfEncodeDetail);
    EXPECT_EQ(DebuggerOn::find("gxfDebug"), &gxfDebug);
    EXPECT_EQ(DebuggerOn::find("gxfdebug"), nullptr);
    EXPECT_EQ(DebuggerOn::find(""), nullptr);
}

TEST(DebuggerOn, ShowsAChangeOfAnotherThread) {
    DebuggerOn channel("test channel", 0);
    std::thread other([&channel] { channel.set(2); });
    while (channel.get() == 0) {
        std::this_thread::yield();
    }
    other.join();
    EXPECT_TRUE(channel.on(1));
}

TEST(DebuggerOn, MayComeAndGoInSeveralThreads) {
    auto const comeAndGo = [](char const* name) {
        for (int i = 0; i < 500; ++i) {
            DebuggerOn const channel(name, 0);
            ASSERT_EQ(DebuggerOn::find(name), &channel);
        }
    };
    std::thread other(comeAndGo, "channel a");
    comeAndGo("channel b");
    other.join();
    EXPECT_EQ(DebuggerOn::find("channel a"), nullptr);
    EXPECT_EQ(DebuggerOn::find("channel b"), nullptr);
}

} // namespace
