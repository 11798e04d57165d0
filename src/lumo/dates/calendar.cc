#include "lumo/dates/calendar.h"

namespace TAVU::lumo {
namespace {

constexpr int kYearsPerCycle = 400;  // after which the calendar repeats, weekdays included
constexpr int kDaysPerCycle = 146097;
constexpr int kWeekdayOfEpoch = 4;  // 1970-01-01 was a Thursday

constexpr int kDaysInMonth[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

// Days from the first of March to the first of the month. Counted like this, January and February
// belong to the year before, and a leap day is the last day of its year.
constexpr int kDaysSinceMarch[] = {306, 337, 0, 31, 61, 92, 122, 153, 184, 214, 245, 275};

// What the sum in SecondsFromCalendar gives for 1970-01-01.
constexpr std::int64_t kDayNumberOfEpoch = 719469;

// These two round down, so that moments before 1970 and years before 1 need no case of their own.
constexpr std::int64_t FloorDivide(std::int64_t dividend, std::int64_t divisor) noexcept {
  const std::int64_t quotient = dividend / divisor;
  return dividend % divisor < 0 ? quotient - 1 : quotient;
}

constexpr std::int32_t FloorRemainder(std::int64_t dividend, std::int32_t divisor) noexcept {
  const auto remainder = static_cast<std::int32_t>(dividend % divisor);
  return remainder < 0 ? remainder + divisor : remainder;
}

constexpr bool IsLeapYear(std::int64_t year) noexcept {
  return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

constexpr int DaysInYear(std::int64_t year) noexcept {
  return IsLeapYear(year) ? 366 : 365;
}

constexpr int DaysInMonth(std::int64_t year, std::int32_t month) noexcept {
  return month == 1 && IsLeapYear(year) ? 29 : kDaysInMonth[month];
}

}  // namespace

CalendarFields CalendarFromSeconds(std::int64_t seconds) noexcept {
  std::int64_t days = FloorDivide(seconds, kSecondsPerDay);
  const std::int32_t second_of_day = FloorRemainder(seconds, kSecondsPerDay);

  CalendarFields fields;
  fields.hour = second_of_day / kSecondsPerHour;
  fields.minute = second_of_day % kSecondsPerHour / kSecondsPerMinute;
  fields.second = second_of_day % kSecondsPerMinute;
  fields.weekday = FloorRemainder(days + kWeekdayOfEpoch, 7);

  // Whole cycles first: what is left to step through is less than one, however far the moment.
  const std::int64_t cycles = FloorDivide(days, kDaysPerCycle);
  days = FloorRemainder(days, kDaysPerCycle);
  std::int64_t year = 1970 + cycles * kYearsPerCycle;
  while (days >= DaysInYear(year)) days -= DaysInYear(year++);
  fields.year = static_cast<std::int32_t>(year - 1900);
  fields.year_day = static_cast<std::int32_t>(days);

  while (days >= DaysInMonth(year, fields.month)) days -= DaysInMonth(year, fields.month++);
  fields.day = static_cast<std::int32_t>(days) + 1;
  return fields;
}

std::int64_t SecondsFromCalendar(const CalendarFields& fields) noexcept {
  const std::int64_t year = std::int64_t{fields.year} + 1900 - (fields.month < 2 ? 1 : 0);
  const std::int64_t leap_days =
      FloorDivide(year, 4) - FloorDivide(year, 100) + FloorDivide(year, 400);
  const std::int64_t days =
      year * 365 + leap_days + kDaysSinceMarch[fields.month] + fields.day - kDayNumberOfEpoch;
  return days * kSecondsPerDay + std::int64_t{fields.hour} * kSecondsPerHour +
         std::int64_t{fields.minute} * kSecondsPerMinute + fields.second;
}

}  // namespace TAVU::lumo
