#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <climits>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <gxftypes/packet/gxf.h>

using namespace GxfTypes;
using testing::ElementsAre;

namespace {

/// Runs in a thread of its own, whose texts are new.
void inNewThread(std::function<void()> const& body) { std::thread(body).join(); }

TEST(GxfOpSubsystem, IsRegisteredUnderItsName) {
    EXPECT_STREQ(gxfOpSubsystem.name(), "gxf");
    EXPECT_STREQ(OpSubsystemDecl::errorNameOf(gxfOpSubsystem.getId(), 9), "badDecodeSize");
}

TEST(GxfOpSubsystem, NamesEveryCode) {
    char const* const names[] = {
        "umf partial",
        "umf final",
        "premature eof",
        "internalInfo",
        "unexpected packet",
        "no packet found",
        "eof (info)",
        "internalError",
        "internalWarning",
        "badDecodeSize",
        "badDecodeData",
        "umf userdata (error)",
        "badEncodeSize",
        "badEncodeData",
        "unimplemented",
        "scan vetoed",
        "can't converge",
        "eof (error)",
        "eof (warning)",
        "no xml data",
        "xml tree is too large",
        "xml data may not be usable",
        "xml decode failed",
        "GXF does not currently support modifications to existing clips",
        "unsupported",
    };
    static_assert(std::size(names) == 25);
    for (int code = 0; code < 25; ++code) {
        EXPECT_STREQ(GxfOpSubsystem::getErrorName(code), names[code]) << code;
    }
}

TEST(GxfOpSubsystem, NumbersTheCodesThatItRaises) {
    EXPECT_EQ(GxfOpSubsystem::umfPartial, 0);
    EXPECT_EQ(GxfOpSubsystem::umfFinal, 1);
    EXPECT_EQ(GxfOpSubsystem::internalError, 7);
    EXPECT_EQ(GxfOpSubsystem::internalWarning, 8);
    EXPECT_EQ(GxfOpSubsystem::badDecodeSize, 9);
    EXPECT_EQ(GxfOpSubsystem::badDecodeData, 10);
    EXPECT_EQ(GxfOpSubsystem::umfUserDataError, 11);
    EXPECT_EQ(GxfOpSubsystem::badEncodeSize, 12);
    EXPECT_EQ(GxfOpSubsystem::badEncodeData, 13);
    EXPECT_EQ(GxfOpSubsystem::unimplemented, 14);
    EXPECT_EQ(GxfOpSubsystem::noXmlData, 19);
    EXPECT_EQ(GxfOpSubsystem::xmlTreeTooLarge, 20);
    EXPECT_EQ(GxfOpSubsystem::xmlDataMayNotBeUsable, 21);
    EXPECT_EQ(GxfOpSubsystem::xmlDecodeFailed, 22);
}

TEST(GxfOpSubsystem, NamesEachUnknownCodeByItsNumber) {
    struct Row {
        int code;
        char const* name;
    };
    Row const rows[] = {
        {25, "error#25"},
        {-1, "error#-1"},
        {INT_MAX, "error#2147483647"},
        {INT_MIN, "error#-2147483648"},
    };
    for (Row const& row : rows) {
        inNewThread([&row] { EXPECT_STREQ(GxfOpSubsystem::getErrorName(row.code), row.name); });
    }
}

TEST(GxfOpSubsystem, RunsTheNamesOfUnknownCodesTogether) {
    inNewThread([] {
        EXPECT_STREQ(GxfOpSubsystem::getErrorName(25), "error#25");
        EXPECT_STREQ(GxfOpSubsystem::getErrorName(-1), "error#25error#-1");
        EXPECT_STREQ(GxfOpSubsystem::getErrorName(24), "unsupported");
        EXPECT_STREQ(GxfOpSubsystem::getErrorName(25), "error#25error#-1error#25");
    });
}

TEST(GxfOpSubsystem, RunsOnBeyondTheFirstAllocation) {
    inNewThread([] {
        std::string expected;
        for (int code = 100; code < 200; ++code) {
            expected += "error#" + std::to_string(code);
            ASSERT_EQ(GxfOpSubsystem::getErrorName(code), expected);
        }
    });
}

TEST(GxfOpSubsystem, KeepsUnknownCodesPerThread) {
    inNewThread([] {
        EXPECT_STREQ(GxfOpSubsystem::getErrorName(30), "error#30");
        inNewThread([] { EXPECT_STREQ(GxfOpSubsystem::getErrorName(31), "error#31"); });
        EXPECT_STREQ(GxfOpSubsystem::getErrorName(32), "error#30error#32");
    });
}

TEST(DebugChannels, StartAtZero) {
    EXPECT_EQ(gxfDecodeDetail.get(), 0U);
    EXPECT_EQ(gxfEncodeDetail.get(), 0U);
    EXPECT_EQ(gxfDebug.get(), 0U);
}

TEST(DebugChannels, HaveTheirNames) {
    EXPECT_STREQ(gxfDecodeDetail.name(), "gxfDecodeDetail");
    EXPECT_STREQ(gxfEncodeDetail.name(), "gxfEncodeDetail");
    EXPECT_STREQ(gxfDebug.name(), "gxfDebug");
}

std::vector<std::string> bitNames(DebuggerOn const& channel) {
    std::vector<std::string> names;
    for (unsigned bit = 0; bit < 32; ++bit) {
        if (channel.bitName(bit) != nullptr) {
            names.emplace_back(std::to_string(bit) + ' ' + channel.bitName(bit));
        }
    }
    return names;
}

TEST(DebugChannels, NameTheirBits) {
    EXPECT_THAT(bitNames(gxfDecodeDetail), ElementsAre());
    EXPECT_THAT(bitNames(gxfEncodeDetail), ElementsAre());
    EXPECT_THAT(bitNames(gxfDebug),
                ElementsAre("0 errors", "1 arrays", "2 decode", "3 duration", "4 find entry",
                            "5 index block", "6 add index", "7 scan", "8 packet use", "9 xml debug",
                            "10 dump xml tree (expensive)"));
}

TEST(DebugChannels, NumberTheBitsThatTheLibraryReads) {
    EXPECT_EQ(gxfDebugErrors, 0U);
    EXPECT_EQ(gxfDebugArrays, 1U);
    EXPECT_EQ(gxfDebugXml, 9U);
    EXPECT_EQ(gxfDebugDumpXmlTree, 10U);
}

TEST(GetStringOf, ShowsTheValueInHexadecimal) {
    EXPECT_STREQ(getStringOf("packet", 0xbb), "?(packet=0xbb)");
    EXPECT_STREQ(getStringOf("x", 0), "?(x=0x0)");
    EXPECT_STREQ(getStringOf("x", -1), "?(x=0xffffffff)");
    EXPECT_STREQ(getStringOf("x", INT_MIN), "?(x=0x80000000)");
    EXPECT_STREQ(getStringOf("", 10), "?(=0xa)");
    EXPECT_STREQ(getStringOf("50%s", 1), "?(50%s=0x1)");
}

TEST(GetStringOf, ReplacesItsText) {
    EXPECT_STREQ(getStringOf("a longer name", 0x1234567), "?(a longer name=0x1234567)");
    EXPECT_STREQ(getStringOf("b", 2), "?(b=0x2)");
}

TEST(GetStringOf, MayOutgrowItsFirstAllocation) {
    std::string const what(500, 'w');
    EXPECT_EQ(getStringOf(what.c_str(), 3), "?(" + what + "=0x3)");
}

TEST(GetStringOf, MayBeGivenItsOwnText) {
    EXPECT_STREQ(getStringOf(getStringOf("a", 1), 2), "?(?(a=0x1)=0x2)");
}

TEST(GetStringOf, KeepsATextPerThread) {
    char const* const text = getStringOf("mine", 1);
    inNewThread([] { EXPECT_STREQ(getStringOf("other", 2), "?(other=0x2)"); });
    EXPECT_STREQ(text, "?(mine=0x1)");
}

} // namespace
