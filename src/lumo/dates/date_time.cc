#include "lumo/dates/date_time.h"

#include <cstdlib>
#include <optional>

#include "lumo/dates/date_names.h"
#include "lumo/dates/date_parser.h"
#include "lumo/text/formatter.h"

namespace TAVU::lumo {
namespace {

constexpr std::int64_t kMillisecondsPerSecond = 1000;
constexpr std::int32_t kBillionthsPerMillisecond = 1'000'000;
constexpr std::int32_t kBillionthsPerSecond = 1'000'000'000;

// Sums and products of moments near the ends of 64 bits wrap around instead of being undefined.
constexpr std::int64_t WrappingDifference(std::int64_t a, std::int64_t b) noexcept {
  return static_cast<std::int64_t>(static_cast<std::uint64_t>(a) - static_cast<std::uint64_t>(b));
}

// The year as people count it; one beyond 32 bits keeps its low ones, as the field does.
constexpr std::int32_t FullYear(const CalendarFields& fields) noexcept {
  return static_cast<std::int32_t>(std::int64_t{fields.year} + 1900);
}

}  // namespace

DateTime DateTime::FromDate(std::int64_t milliseconds, std::int32_t zone_offset) noexcept {
  const auto rest = static_cast<std::int32_t>(milliseconds % kMillisecondsPerSecond);
  return {milliseconds / kMillisecondsPerSecond, rest * kBillionthsPerMillisecond, zone_offset};
}

std::int64_t DateTime::ToDate() const noexcept {
  const std::uint64_t whole = static_cast<std::uint64_t>(seconds_) * kMillisecondsPerSecond;
  return WrappingDifference(static_cast<std::int64_t>(whole),
                            -(fraction_ / kBillionthsPerMillisecond));
}

const CalendarFields& DateTime::fields() noexcept {
  if (!fields_valid_) fields_ = CalendarFromSeconds(WrappingDifference(seconds_, zone_offset_));
  fields_valid_ = true;
  return fields_;
}

bool DateTime::Parse(std::string_view text, DateFormat kind, std::int32_t zone_offset) {
  std::optional<ParsedDate> date;
  switch (kind) {
    case DateFormat::kIso8601:
      date = ParseIso8601(text, zone_offset);
      break;
    case DateFormat::kRfc1123:
    case DateFormat::kRfc1123Alias:
    case DateFormat::kRfc850:
    case DateFormat::kAsctime:
      date = ParseHttpDate(text);
      break;
  }
  if (!date) return false;
  seconds_ = SecondsFromCalendar(date->fields);
  if (kind == DateFormat::kIso8601) seconds_ += date->offset;
  if (kind == DateFormat::kAsctime) seconds_ += zone_offset;
  fraction_ = date->fraction;
  zone_offset_ = kind == DateFormat::kIso8601 ? date->offset : zone_offset;
  // The fields that were read lack the weekday, and may name the 30th of February.
  fields_valid_ = false;
  return true;
}

bool DateTime::Format(DateFormat kind, DatePrecision precision) {
  text_.Clear();
  switch (kind) {
    case DateFormat::kIso8601:
      FormatIso8601(precision);
      return true;
    case DateFormat::kRfc1123:
    case DateFormat::kRfc1123Alias: {
      const CalendarFields utc = CalendarFromSeconds(seconds_);
      lumo::Format(text_, "%s, %02d %s %04d %02d:%02d:%02d GMT", kShortDayNames[utc.weekday].data(),
                   utc.day, kMonthNames[utc.month].data(), FullYear(utc), utc.hour, utc.minute,
                   utc.second);
      return true;
    }
    case DateFormat::kRfc850: {
      const CalendarFields utc = CalendarFromSeconds(seconds_);
      lumo::Format(text_, "%s, %02d-%s-%02d %02d:%02d:%02d GMT", kFullDayNames[utc.weekday].data(),
                   utc.day, kMonthNames[utc.month].data(), std::abs(FullYear(utc) % 100), utc.hour,
                   utc.minute, utc.second);
      return true;
    }
    case DateFormat::kAsctime: {
      const CalendarFields& local = fields();
      lumo::Format(text_, "%s %s %2d %02d:%02d:%02d %04d", kShortDayNames[local.weekday].data(),
                   kMonthNames[local.month].data(), local.day, local.hour, local.minute,
                   local.second, FullYear(local));
      return true;
    }
  }
  return false;
}

void DateTime::FormatIso8601(DatePrecision precision) {
  CalendarFields local = fields();
  std::int32_t fraction = fraction_;
  if (precision == DatePrecision::kFraction && fraction < 0) {
    // The fraction that follows the seconds counts up from them.
    local = CalendarFromSeconds(WrappingDifference(WrappingDifference(seconds_, 1), zone_offset_));
    fraction += kBillionthsPerSecond;
  }
  lumo::Format(text_, "%d-%02d-%02d", FullYear(local), local.month + 1, local.day);
  if (precision < DatePrecision::kSecond) return;
  lumo::Format(text_, "T%02d:%02d:%02d", local.hour, local.minute, local.second);
  if (precision == DatePrecision::kFraction) {
    lumo::Format(text_, ".%09d", fraction);
    // The point stays even when the fraction is 0: it tells that this precision was asked for.
    while (text_.view().back() == '0') text_.SetLength(text_.length() - 1);
  }
  FormatZone();
}

void DateTime::FormatZone() {
  if (zone_offset_ == 0) return text_.Append("Z");
  const std::int64_t distance = std::llabs(std::int64_t{zone_offset_});
  lumo::Format(text_, "%c%02d:%02d", zone_offset_ > 0 ? '-' : '+',
               static_cast<int>(distance / kSecondsPerHour),
               static_cast<int>(distance % kSecondsPerHour / kSecondsPerMinute));
}

}  // namespace TAVU::lumo
