// The Gregorian calendar in UTC, in both directions and as far back and ahead as seconds count.
#pragma once

#include <cstdint>

namespace TAVU::lumo {

inline constexpr int kSecondsPerMinute = 60;
inline constexpr int kSecondsPerHour = 3600;
inline constexpr int kSecondsPerDay = 86400;

// The layout of the C library's tm.
struct CalendarFields {
  std::int32_t second = 0;  // 60 for a leap second in parsed text
  std::int32_t minute = 0;
  std::int32_t hour = 0;
  std::int32_t day = 1;      // 1 to 31
  std::int32_t month = 0;    // 0 to 11
  std::int32_t year = 0;     // since 1900
  std::int32_t weekday = 0;  // 0 is Sunday
  std::int32_t year_day = 0;
  std::int32_t daylight = 0;  // always 0: standard time only
};

// `seconds` since 1970-01-01 00:00:00. A year that does not fit keeps its low 32 bits.
[[nodiscard]] CalendarFields CalendarFromSeconds(std::int64_t seconds) noexcept;

// The reverse. Of the date it reads year, month and day, of which only the month must be in range:
// the 30th of February is two days after the 28th.
[[nodiscard]] std::int64_t SecondsFromCalendar(const CalendarFields& fields) noexcept;

}  // namespace TAVU::lumo
