#include <gxftypes/support/strings.h>

#include <cerrno>
#include <limits>

#include <gtest/gtest.h>
#include <testing/bytes.h>

using namespace GxfTypes;

namespace {

using Texts = std::vector<std::string>;

TEST(Strings, LastErrorIsErrno) {
    errno = EILSEQ;
    EXPECT_EQ(getLastError(), static_cast<unsigned>(EILSEQ));
    errno = -1;
    EXPECT_EQ(getLastError(), 0xFFFFFFFFU);
    clearLastError();
    EXPECT_EQ(errno, 0);
    EXPECT_EQ(getLastError(), 0U);
}

struct Number {
    char const* text;
    int base;
    unsigned long long value;
    unsigned read;
};

TEST(Strings, StrToUint64) {
    constexpr unsigned long long largest = std::numeric_limits<unsigned long long>::max();
    static Number const numbers[] = {
        {"0", 10, 0, 1},
        {"1234", 10, 1234, 4},
        {"  12x", 10, 12, 4},
        {"ff", 16, 255, 2},
        {"0xFFg", 16, 255, 4},
        {"0x10", 0, 16, 4},
        {"010", 0, 8, 3},
        {"010", 10, 10, 3},
        {"18446744073709551615", 10, largest, 20},
        {"0123456789abcdef0", 16, 0x123456789ABCDEF0, 17},
        {"-1", 10, largest, 2},
        {"abc", 10, 0, 0},
        {"", 10, 0, 0},
    };
    for (Number const& row : numbers) {
        char* end = nullptr;
        errno = 0;
        EXPECT_EQ(strToUint64(row.text, &end, row.base), row.value) << row.text;
        EXPECT_EQ(end, row.text + row.read) << row.text;
        EXPECT_EQ(errno, 0) << row.text;
    }
}

TEST(Strings, StrToUint64SaysThatANumberIsTooLarge) {
    char const* const text = "18446744073709551616 ";
    char* end = nullptr;
    clearLastError();
    EXPECT_EQ(strToUint64(text, &end, 10), std::numeric_limits<unsigned long long>::max());
    EXPECT_EQ(end, text + 20);
    EXPECT_EQ(getLastError(), static_cast<unsigned>(ERANGE));
    EXPECT_EQ(strToUint64("7", nullptr, 10), 7U);
}

TEST(Strings, UpperCase) {
    EXPECT_EQ(upperCase(""), "");
    EXPECT_EQ(upperCase("MyAudioTrack 29.97hz"), "MYAUDIOTRACK 29.97HZ");
    EXPECT_EQ(upperCase("az@[`{AZ"), "AZ@[`{AZ");
    EXPECT_EQ(upperCase(std::string("a\0b", 3)), std::string("A\0B", 3));
    EXPECT_EQ(upperCase("\xE4\xFF\x80"), "\xE4\xFF\x80");
}

TEST(Strings, HasSubString) {
    EXPECT_TRUE(hasSubString("MyAudioTrackCopy", "audiotrack"));
    EXPECT_TRUE(hasSubString("myaudiotrackcopy", "AudioTrack"));
    EXPECT_TRUE(hasSubString("abc", "ABC"));
    EXPECT_TRUE(hasSubString("abc", "C"));
    EXPECT_TRUE(hasSubString("abc", ""));
    EXPECT_TRUE(hasSubString("", ""));
    EXPECT_FALSE(hasSubString("", "a"));
    EXPECT_FALSE(hasSubString("ab", "abc"));
    EXPECT_FALSE(hasSubString("acb", "ab"));
    EXPECT_TRUE(hasSubString(std::string("a\0bc", 4), std::string("BC")));
    EXPECT_TRUE(hasSubString(std::string(), std::string()));
    EXPECT_FALSE(hasSubString(std::string("a\0bc", 4), std::string("abc")));
}

int sign(int value) { return (value > 0) - (value < 0); }

TEST(Strings, StriCmp) {
    EXPECT_EQ(striCmp("", ""), 0);
    EXPECT_EQ(striCmp("Track", "tRACK"), 0);
    EXPECT_EQ(sign(striCmp("a", "B")), -1);
    EXPECT_EQ(sign(striCmp("B", "a")), 1);
    EXPECT_EQ(sign(striCmp("abc", "ABCD")), -1);
    EXPECT_EQ(sign(striCmp("ABCD", "abc")), 1);
    EXPECT_EQ(sign(striCmp("", "a")), -1);
}

TEST(Strings, StrniCmp) {
    EXPECT_EQ(strniCmp("abc", "xyz", 0), 0);
    EXPECT_EQ(strniCmp("TrackA", "tRACKb", 5), 0);
    EXPECT_EQ(sign(strniCmp("TrackA", "tRACKb", 6)), -1);
    EXPECT_EQ(sign(strniCmp("TrackB", "tRACKa", 6)), 1);
    EXPECT_EQ(strniCmp("ab", "AB", 100), 0);
    EXPECT_EQ(sign(strniCmp("ab", "ABC", 3)), -1);
    EXPECT_EQ(strniCmp("ab", "ABC", 2), 0);
}

struct Split {
    std::string text;
    std::string separator;
    Texts parts;
};

TEST(Strings, StrSplit) {
    static Split const splits[] = {
        {"a,b,", ",", {"a", "b"}},
        {",a", ",", {"", "a"}},
        {"a,,b", ",", {"a", "", "b"}},
        {"", ",", {}},
        {",", ",", {""}},
        {",,", ",", {"", ""}},
        {"abc", ",", {"abc"}},
        {"a,b,c", ",", {"a", "b", "c"}},
        {"one, two, three", ", ", {"one", "two", "three"}},
        {"one, ", ", ", {"one"}},
        {"one,", ", ", {"one,"}},
        {"a---b", "--", {"a", "-b"}},
        {"a----b", "--", {"a", "", "b"}},
        {"--", "--", {""}},
        {"-", "--", {"-"}},
        {"ab", "AB", {"ab"}},
        {"a\nb\n", "\n", {"a", "b"}},
        {"abc", "", {"abc"}},
        {"", "", {}},
    };
    for (Split const& row : splits) {
        Texts parts;
        strSplit(parts, row.text, row.separator);
        EXPECT_EQ(parts, row.parts) << row.text << " by " << row.separator;
    }
}

TEST(Strings, StrSplitAppends) {
    Texts parts = {"before"};
    strSplit(parts, "a,b", ",");
    strSplit(parts, "", ",");
    strSplit(parts, "c", ",");
    EXPECT_EQ(parts, Texts({"before", "a", "b", "c"}));
}

} // namespace
