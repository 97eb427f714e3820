#pragma once

#include <cstdint>

namespace Zorvan {

/// A point in time in Greenwich Mean Time.
struct GmtCalendar {
    std::uint16_t year; ///< cut to 16 bits
    std::uint8_t month; ///< 1 to 12
    std::uint8_t day;   ///< 1 to 31
    std::uint8_t hour;
    std::uint8_t minute;
    std::uint8_t second;
    std::uint32_t microsecond;
};

class Clock {
  public:
    /// Microseconds since the first of January 1970.
    static long long now();
    /// Breaks a time in microseconds since the first of January 1970 down; any value will do.
    static GmtCalendar getGmtCal(long long microseconds);
};

} // namespace Zorvan
