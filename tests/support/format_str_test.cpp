#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <new>
#include <string>
#include <utility>

#include <gxftypes/packet/gxf.h>
#include <testing/allocation_count.h>

using namespace GxfTypes;
using namespace GxfTesting;

namespace {

std::string contents(FormatStr const& text) {
    EXPECT_EQ(std::strlen(text.get()), text.size());
    return {text.get(), text.size()};
}

TEST(FormatStr, IsEmptyAtFirst) {
    FormatStr const text(128);
    EXPECT_STREQ(text.get(), "");
    EXPECT_EQ(text.size(), 0U);
}

TEST(FormatStr, IsBuiltPrintfStyle) {
    FormatStr const text("%s has %u tracks", "clip", 3U);
    EXPECT_EQ(contents(text), "clip has 3 tracks");
}

TEST(FormatStr, Appends) {
    FormatStr text(128);
    EXPECT_EQ(&text.format("%d", 1), &text);
    EXPECT_EQ(&text.cat(" %s "), &text);
    text.format("%02x", 0xfU).cat("");
    EXPECT_EQ(contents(text), "1 %s 0f");
}

TEST(FormatStr, WritesAnIndentFromAnEmptyText) {
    FormatStr text(128);
    text.format("%*sname\n", 0, "").format("%*svalue\n", 4, "");
    EXPECT_EQ(contents(text), "name\n    value\n");
}

TEST(FormatStr, ReformatReplaces) {
    FormatStr text("%s", "a long text to begin with");
    EXPECT_EQ(&text.reformat("%c", 'x'), &text);
    EXPECT_EQ(contents(text), "x");
}

TEST(FormatStr, ReformatMayTakeItsOwnText) {
    FormatStr text("%s", "core");
    text.reformat("<%s|%s>", text.get(), text.get());
    EXPECT_EQ(contents(text), "<core|core>");
}

TEST(FormatStr, GrowsAtEveryLengthAroundItsAllocation) {
    for (unsigned const first : {0U, 1U, 2U, 128U}) {
        for (unsigned const length :
             {0U, 1U, 2U, 3U, 126U, 127U, 128U, 129U, 255U, 256U, 257U, 5000U}) {
            std::string const expected(length, 'y');
            FormatStr formatted(first);
            formatted.format("%s", expected.c_str());
            EXPECT_EQ(contents(formatted), expected) << first;
            FormatStr appended(first);
            appended.cat(expected.c_str());
            EXPECT_EQ(contents(appended), expected) << first;
            appended.format("%s", expected.c_str()).cat("z");
            EXPECT_EQ(contents(appended), expected + expected + 'z') << first;
        }
    }
}

TEST(FormatStr, GrowsByteForByte) {
    std::string expected;
    FormatStr text(1);
    auto const allocations = allocationCount();
    for (int i = 0; i < 10000; ++i) {
        text.format("%c", 'a' + i % 26);
    }
    EXPECT_LE(allocationCount() - allocations, 20U);
    for (int i = 0; i < 10000; ++i) {
        expected += static_cast<char>('a' + i % 26);
    }
    EXPECT_EQ(contents(text), expected);
}

TEST(FormatStr, StaysInItsFirstAllocation) {
    FormatStr text(128);
    text.cat("x");
    auto const allocations = allocationCount();
    text.format("%126s", "y");
    EXPECT_EQ(allocationCount(), allocations);
    EXPECT_EQ(text.size(), 127U);
    text.cat("z");
    EXPECT_EQ(allocationCount(), allocations + 1);
}

TEST(FormatStr, CountsZerosThatAFormatWrites) {
    FormatStr text("a%cb", 0);
    EXPECT_EQ(text.size(), 3U);
    EXPECT_EQ(std::string(text.get(), text.size()), std::string("a\0b", 3));
    text.cat("c");
    EXPECT_EQ(std::string(text.get(), text.size()), std::string("a\0bc", 4));
}

TEST(FormatStr, StaysAsItWasWhenAFormatFails) {
    FormatStr text("%s", "kept");
    // In the C locale this has no multibyte form.
    text.format("lost%lc", static_cast<wint_t>(0xd800));
    EXPECT_EQ(contents(text), "kept");
    FormatStr empty("lost%lc", static_cast<wint_t>(0xd800));
    EXPECT_EQ(contents(empty), "");
}

TEST(FormatStr, CopiesAForeignTextInTheRoleOfAFormat) {
    struct Row {
        char const* text;
        char const* expected;
    };
    Row const rows[] = {
        {"", ""},       {"plain", "plain"}, {"%", "%"},           {"%%", "%"},   {"%%%", "%%"},
        {"%%%%", "%%"}, {"a%%b", "a%b"},    {"%s%n%d", "%s%n%d"}, {"%%s", "%s"}, {"50% %", "50% %"},
        {"x%", "x%"},   {"%%a%%", "%a%"},   {"\xff%%", "\xff%"},
    };
    for (Row const& row : rows) {
        FormatStr text("%s", "<");
        EXPECT_EQ(&text.catAsFormat(row.text), &text);
        EXPECT_EQ(contents(text), std::string("<") + row.expected) << row.text;
    }
}

TEST(FormatStr, GivesACopyToItsCaller) {
    FormatStr text("%s", "text");
    AutoPtr<char> const copy = text;
    text.cat(" goes on");
    EXPECT_STREQ(copy.get(), "text");
    EXPECT_EQ(contents(text), "text goes on");
    AutoPtr<char> const empty = FormatStr(128);
    EXPECT_STREQ(empty.get(), "");
}

TEST(FormatStr, HandsOverItsOwnArray) {
    FormatStr text("%s", "text");
    char const* const own = text.get();
    AutoArrayPtr<char> const array(text.releaseArrayString());
    EXPECT_EQ(array.get(), own);
    EXPECT_STREQ(array.get(), "text");
    EXPECT_EQ(contents(text), "");
    text.cat("again");
    EXPECT_EQ(contents(text), "again");
    EXPECT_STREQ(array.get(), "text");
}

TEST(FormatStr, HandsOverAnEmptyText) {
    FormatStr text(128);
    AutoArrayPtr<char> const array(text.releaseArrayString());
    ASSERT_NE(array.get(), nullptr);
    EXPECT_STREQ(array.get(), "");
    AutoArrayPtr<char> const another(text.releaseArrayString());
    ASSERT_NE(another.get(), nullptr);
    EXPECT_STREQ(another.get(), "");
}

TEST(FormatStr, Clears) {
    FormatStr never(128);
    never.clear();
    EXPECT_EQ(contents(never), "");
    FormatStr text("%s", "text");
    text.clear();
    EXPECT_EQ(contents(text), "");
    text.cat("new");
    EXPECT_EQ(contents(text), "new");
}

TEST(FormatStr, CopiesAreIndependent) {
    FormatStr first("%s", "first");
    FormatStr copy(first);
    copy.cat(" copy");
    EXPECT_EQ(contents(first), "first");
    EXPECT_EQ(contents(copy), "first copy");
    first = copy;
    copy.reformat("%s", "other");
    EXPECT_EQ(contents(first), "first copy");
    FormatStr const& same = first;
    first = same;
    EXPECT_EQ(contents(first), "first copy");
    first = FormatStr(128);
    EXPECT_EQ(contents(first), "");
}

TEST(FormatStr, Moves) {
    FormatStr first("%s", "first");
    FormatStr second(std::move(first));
    EXPECT_EQ(contents(second), "first");
    FormatStr third("%s", "third");
    third = std::move(second);
    EXPECT_EQ(contents(third), "first");
}

TEST(FormatStr, LeaksNothingWhenMemoryEnds) {
    std::string const large(1000, 'x');
    auto const arrays = liveArrays();
    {
        FormatStr text("%s", "kept");
        AllocationLimit const limit(500);
        EXPECT_THROW(FormatStr("%s", large.c_str()), std::bad_alloc);
        EXPECT_THROW(text.format("%s", large.c_str()), std::bad_alloc);
        EXPECT_THROW(text.cat(large.c_str()), std::bad_alloc);
        EXPECT_THROW(text.reformat("%s", large.c_str()), std::bad_alloc);
    }
    EXPECT_EQ(liveArrays(), arrays);
}

TEST(FormatStr, KeepsItsTextWhenMemoryEnds) {
    std::string const large(1000, 'x');
    FormatStr text("%s", "kept");
    {
        AllocationLimit const limit(500);
        EXPECT_THROW(text.format("%s", large.c_str()), std::bad_alloc);
        EXPECT_THROW(text.cat(large.c_str()), std::bad_alloc);
        EXPECT_THROW(text.reformat("%s", large.c_str()), std::bad_alloc);
    }
    EXPECT_EQ(contents(text), "kept");
    text.cat(" still");
    EXPECT_EQ(contents(text), "kept still");
}

} // namespace
