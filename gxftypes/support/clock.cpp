#include <gxftypes/support/clock.h>

#include <chrono>

namespace Zorvan {

long long Clock::now() {
    using namespace std::chrono;
    return duration_cast<microseconds>(system_clock::now().time_since_epoch()).count();
}

GmtCalendar Clock::getGmtCal(long long microseconds) {
    constexpr long long perSecond = 1000000;
    constexpr long long perDay = 86400 * perSecond;

    long long days = microseconds / perDay;
    long long rest = microseconds % perDay;
    if (rest < 0) {
        rest += perDay;
        --days;
    }

    // Days to a civil date by eras of 400 years, each beginning on the first of March.
    long long const shifted = days + 719468;
    long long const era = (shifted >= 0 ? shifted : shifted - 146096) / 146097;
    long long const dayOfEra = shifted - era * 146097;
    long long const yearOfEra =
        (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    long long const dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    long long const marchMonth = (5 * dayOfYear + 2) / 153;
    long long const month = marchMonth < 10 ? marchMonth + 3 : marchMonth - 9;
    long long const year = yearOfEra + era * 400 + (month <= 2 ? 1 : 0);

    GmtCalendar calendar{};
    calendar.year = static_cast<std::uint16_t>(year);
    calendar.month = static_cast<std::uint8_t>(month);
    calendar.day = static_cast<std::uint8_t>(dayOfYear - (153 * marchMonth + 2) / 5 + 1);
    calendar.hour = static_cast<std::uint8_t>(rest / (3600 * perSecond));
    calendar.minute = static_cast<std::uint8_t>(rest / (60 * perSecond) % 60);
    calendar.second = static_cast<std::uint8_t>(rest / perSecond % 60);
    calendar.microsecond = static_cast<std::uint32_t>(rest % perSecond);
    return calendar;
}

} // namespace Zorvan
