// A moment with a time zone: between date values, calendar fields and five forms of text.
#pragma once

#include <cstdint>
#include <string_view>

#include "lumo/dates/calendar.h"
#include "lumo/dates/local_zone.h"
#include "lumo/text/basic_string.h"

namespace TAVU::lumo {

enum class DateFormat {
  kIso8601 = 1,       // "1994-11-06T08:49:37Z", in the moment's own zone
  kRfc1123 = 2,       // "Sun, 06 Nov 1994 08:49:37 GMT"
  kRfc1123Alias = 3,  // the same
  kRfc850 = 4,        // "Sunday, 06-Nov-94 08:49:37 GMT"
  kAsctime = 5,  // "Sun Nov  6 08:49:37 1994", in the moment's own zone, which it does not name
};

// How much of the moment the ISO form writes; the others always write seconds. Less than kDay is
// kDay.
enum class DatePrecision { kDay = 0, kSecond = 1, kFraction = 2 };

// Offsets are seconds to add to local time to get UTC, negative east of Greenwich. Move-only; used
// by one thread at a time. Throws nothing but BadAllocation.
class DateTime {
 public:
  DateTime() noexcept = default;
  DateTime(std::int64_t seconds, std::int32_t fraction, std::int32_t zone_offset) noexcept
      : seconds_(seconds), fraction_(fraction), zone_offset_(zone_offset) {}

  // From and to a date value, a count of milliseconds since 1970. Before 1970 seconds and fraction
  // are both negative or zero: they are rounded towards zero, so that half a second before 1970 is
  // second 0 (and is written so, unless the fraction is written too). A moment too far off for a
  // date value wraps around.
  [[nodiscard]] static DateTime FromDate(std::int64_t milliseconds,
                                         std::int32_t zone_offset = LocalZoneOffset()) noexcept;
  [[nodiscard]] std::int64_t ToDate() const noexcept;

  [[nodiscard]] std::int64_t seconds() const noexcept { return seconds_; }    // since 1970, UTC
  [[nodiscard]] std::int32_t fraction() const noexcept { return fraction_; }  // billionths
  [[nodiscard]] std::int32_t zone_offset() const noexcept { return zone_offset_; }
  [[nodiscard]] const CalendarFields& fields() noexcept;  // in the moment's own zone

  // Reads `text`. With kIso8601, `zone_offset` is for texts that name no zone. The other four kinds
  // take each of the HTTP forms, whichever they name; `zone_offset` is stored, and with kAsctime
  // also added to the time that was read. False, and nothing is changed, for another text or kind.
  [[nodiscard]] bool Parse(std::string_view text, DateFormat kind, std::int32_t zone_offset);

  // Writes the moment into text(). False for a kind that is none.
  [[nodiscard]] bool Format(DateFormat kind, DatePrecision precision);
  // What the last Format wrote; valid until the next one.
  [[nodiscard]] std::string_view text() const noexcept { return text_.view(); }

 private:
  void FormatIso8601(DatePrecision precision);
  void FormatZone();

  std::int64_t seconds_ = 0;
  std::int32_t fraction_ = 0;
  std::int32_t zone_offset_ = 0;
  CalendarFields fields_;
  bool fields_valid_ = false;
  BasicString<char> text_;
};

}  // namespace TAVU::lumo
