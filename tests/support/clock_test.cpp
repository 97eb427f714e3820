#include <gxftypes/support/clock.h>

#include <chrono>
#include <cstdio>
#include <limits>
#include <string>

#include <gtest/gtest.h>
#include <testing/bytes.h>

using namespace GxfTypes;

namespace {

constexpr long long second = 1000000;
constexpr long long day = 86400 * second;

std::string text(long long time) {
    GmtCalendar const at = Clock::getGmtCal(time);
    char line[64];
    std::snprintf(line, sizeof(line), "%u-%02u-%02u %02u:%02u:%02u.%06u", at.year, at.month, at.day,
                  at.hour, at.minute, at.second, at.microsecond);
    return line;
}

struct Known {
    long long seconds;
    char const* text;
};

TEST(Clock, BreaksKnownTimesDown) {
    static Known const known[] = {
        {0, "1970-01-01 00:00:00.000000"},
        {59, "1970-01-01 00:00:59.000000"},
        {60, "1970-01-01 00:01:00.000000"},
        {3599, "1970-01-01 00:59:59.000000"},
        {3600, "1970-01-01 01:00:00.000000"},
        {86399, "1970-01-01 23:59:59.000000"},
        {86400, "1970-01-02 00:00:00.000000"},
        {951782399, "2000-02-28 23:59:59.000000"},
        {951782400, "2000-02-29 00:00:00.000000"},
        {951868799, "2000-02-29 23:59:59.000000"},
        {951868800, "2000-03-01 00:00:00.000000"},
        {978307199, "2000-12-31 23:59:59.000000"},
        {1000000000, "2001-09-09 01:46:40.000000"},
        {1078012800, "2004-02-29 00:00:00.000000"},
        {1109548800, "2005-02-28 00:00:00.000000"},
        {1109635200, "2005-03-01 00:00:00.000000"},
        {1234567890, "2009-02-13 23:31:30.000000"},
        {1709164800, "2024-02-29 00:00:00.000000"},
        {2147483647, "2038-01-19 03:14:07.000000"},
        {4107456000, "2100-02-28 00:00:00.000000"},
        {4107542400, "2100-03-01 00:00:00.000000"},
        {253402300799, "9999-12-31 23:59:59.000000"},
        {-1, "1969-12-31 23:59:59.000000"},
        {-86400, "1969-12-31 00:00:00.000000"},
        {-86401, "1969-12-30 23:59:59.000000"},
        {-58060800, "1968-02-29 00:00:00.000000"},
        {-2147483648, "1901-12-13 20:45:52.000000"},
        {-2208988800, "1900-01-01 00:00:00.000000"},
        {-2203977600, "1900-02-28 00:00:00.000000"},
        {-2203891200, "1900-03-01 00:00:00.000000"},
        {-11644473600, "1601-01-01 00:00:00.000000"},
        {-62135596800, "1-01-01 00:00:00.000000"},
        {-62167219200, "0-01-01 00:00:00.000000"},
        {-62162121600, "0-02-29 00:00:00.000000"},
        {-62167219201, "65535-12-31 23:59:59.000000"}, // year -1, cut to 16 bits
    };
    for (Known const& row : known) {
        EXPECT_EQ(text(row.seconds * second), row.text) << row.seconds;
    }
}

TEST(Clock, KeepsMicroseconds) {
    EXPECT_EQ(text(1), "1970-01-01 00:00:00.000001");
    EXPECT_EQ(text(999999), "1970-01-01 00:00:00.999999");
    EXPECT_EQ(text(1000000), "1970-01-01 00:00:01.000000");
    EXPECT_EQ(text(-1), "1969-12-31 23:59:59.999999");
    EXPECT_EQ(text(-999999), "1969-12-31 23:59:59.000001");
    EXPECT_EQ(text(-1000001), "1969-12-31 23:59:58.999999");
}

TEST(Clock, TakesAnyValue) {
    // The years are 294247 and -290308, cut to 16 bits.
    EXPECT_EQ(text(std::numeric_limits<long long>::max()), "32103-01-10 04:00:54.775807");
    EXPECT_EQ(text(std::numeric_limits<long long>::min()), "37372-12-21 19:59:05.224192");
}

TEST(Clock, TheYearWrapsBehind65535) {
    // The year 65600 lies 159 times 400 years of 146097 days behind 2000, and 65536 lies 64 years
    // before it, 16 of them leap years.
    constexpr long long days2000 = 10957;
    constexpr long long days65600 = days2000 + 159LL * 146097;
    constexpr long long days65536 = days65600 - (64 * 365 + 16);
    EXPECT_EQ(text(days65536 * day - 1), "65535-12-31 23:59:59.999999");
    EXPECT_EQ(text(days65536 * day), "0-01-01 00:00:00.000000");
}

bool isLeap(int year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

TEST(Clock, CountsEveryDayOfAThousandYears) {
    static constexpr int lengths[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    long long time = -11676096000 * second; // the first of January 1600
    for (int year = 1600; year < 2600; ++year) {
        for (int month = 1; month <= 12; ++month) {
            int const length = lengths[month - 1] + (month == 2 && isLeap(year) ? 1 : 0);
            for (int date = 1; date <= length; ++date, time += day) {
                for (long long const at : {time, time + day - 1}) {
                    GmtCalendar const calendar = Clock::getGmtCal(at);
                    ASSERT_EQ(calendar.year, year) << at;
                    ASSERT_EQ(calendar.month, month) << at;
                    ASSERT_EQ(calendar.day, date) << at;
                    ASSERT_EQ(calendar.hour, at == time ? 0 : 23) << at;
                }
            }
        }
    }
}

TEST(Clock, CountsEverySecondOfADay) {
    for (long long const start : {0LL, -day}) {
        long long time = start;
        for (unsigned hour = 0; hour < 24; ++hour) {
            for (unsigned minute = 0; minute < 60; ++minute) {
                for (unsigned secondOfMinute = 0; secondOfMinute < 60; ++secondOfMinute) {
                    GmtCalendar const calendar = Clock::getGmtCal(time);
                    ASSERT_EQ(calendar.hour, hour);
                    ASSERT_EQ(calendar.minute, minute);
                    ASSERT_EQ(calendar.second, secondOfMinute);
                    time += second;
                }
            }
        }
    }
}

TEST(Clock, NowIsThePresentInMicroseconds) {
    using namespace std::chrono;
    auto const system = [] {
        return static_cast<long long>(
            duration_cast<microseconds>(system_clock::now().time_since_epoch()).count());
    };
    long long const before = system();
    long long const now = Clock::now();
    long long const after = system();
    EXPECT_LE(before, now);
    EXPECT_LE(now, after);
    EXPECT_GE(Clock::getGmtCal(now).year, 2024);
}

} // namespace
