// Reads the texts of dates. Every text is refused at its first deviation from its form; no text is
// read beyond its length.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "lumo/dates/calendar.h"

namespace TAVU::lumo {

struct ParsedDate {
  // What a text does not name is the first of January, 09:00. The hour is deliberate: a day without
  // a time means that day's morning, not the midnight before it.
  CalendarFields fields = {.hour = 9};
  std::int32_t fraction = 0;  // billionths of a second
  std::int32_t offset = 0;    // seconds; UTC = the fields + offset
};

// ISO 8601, from the year alone ("2011") to "1994-11-06T08:49:37.5+09:00". `local_offset` stands in
// for a zone that is not named. Zones beyond 12:59 hours are refused.
[[nodiscard]] std::optional<ParsedDate> ParseIso8601(std::string_view text,
                                                     std::int32_t local_offset) noexcept;

// The three forms of HTTP, told apart by the fourth character:
// "Sun, 06 Nov 1994 08:49:37 GMT" (RFC 1123), "Sunday, 06-Nov-94 08:49:37 GMT" (RFC 850) and
// "Sun Nov  6 08:49:37 1994" (asctime). The weekday must be one, but not the date's. Offset 0.
[[nodiscard]] std::optional<ParsedDate> ParseHttpDate(std::string_view text) noexcept;

}  // namespace TAVU::lumo
