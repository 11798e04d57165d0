#include "lumo/dates/date_parser.h"

#include <span>

#include "lumo/dates/date_names.h"

namespace TAVU::lumo {
namespace {

constexpr int kLatestMonth = 12;
constexpr int kLatestDay = 31;
constexpr int kLatestHour = 23;
constexpr int kLatestMinute = 59;
constexpr int kLatestSecond = 60;  // a leap second
constexpr int kLargestZoneHours = 12;
constexpr std::int32_t kTenthOfSecond = 100'000'000;  // in billionths

constexpr bool IsDigit(char character) noexcept {
  return character >= '0' && character <= '9';
}

// Takes a text apart from its front. A piece that is not there is not taken.
class Scanner {
 public:
  explicit Scanner(std::string_view text) noexcept : rest_(text) {}

  [[nodiscard]] bool AtEnd() const noexcept { return rest_.empty(); }

  bool Take(std::string_view piece) noexcept {
    if (!rest_.starts_with(piece)) return false;
    rest_.remove_prefix(piece.size());
    return true;
  }
  bool TakeDigit(int& out) noexcept {
    if (rest_.empty() || !IsDigit(rest_.front())) return false;
    out = rest_.front() - '0';
    rest_.remove_prefix(1);
    return true;
  }
  // Exactly two digits.
  bool TakeNumber(int most, std::int32_t& out) noexcept {
    int tens = 0;
    int ones = 0;
    if (!TakeDigit(tens) || !TakeDigit(ones)) return false;
    out = tens * 10 + ones;
    return out <= most;
  }
  // Four digits; `out` counts from 1900.
  bool TakeYear(std::int32_t& out) noexcept {
    std::int32_t century = 0;
    std::int32_t year = 0;
    if (!TakeNumber(99, century) || !TakeNumber(99, year)) return false;
    out = century * 100 + year - 1900;
    return true;
  }
  // One of `names`; `out` is its index.
  bool TakeName(std::span<const std::string_view> names, std::int32_t& out) noexcept {
    for (std::size_t i = 0; i < names.size(); ++i) {
      if (!Take(names[i])) continue;
      out = static_cast<std::int32_t>(i);
      return true;
    }
    return false;
  }
  // "08:49:37"
  bool TakeTime(CalendarFields& out) noexcept {
    return TakeNumber(kLatestHour, out.hour) && Take(":") &&
           TakeNumber(kLatestMinute, out.minute) && Take(":") &&
           TakeNumber(kLatestSecond, out.second);
  }

 private:
  std::string_view rest_;
};

bool TakeMonth(Scanner& text, std::int32_t& out) noexcept {
  std::int32_t month = 0;
  if (!text.TakeNumber(kLatestMonth, month) || month == 0) return false;
  out = month - 1;
  return true;
}

// The digits after the point. Those that weigh less than a billionth are read and add nothing.
bool TakeFraction(Scanner& text, std::int32_t& out) noexcept {
  int digit = 0;
  if (!text.TakeDigit(digit)) return false;
  std::int32_t weight = kTenthOfSecond;
  do {
    out += digit * weight;
    weight /= 10;
  } while (text.TakeDigit(digit));
  return true;
}

// "Z", "+09:00", "-03:30"
bool TakeZone(Scanner& text, std::int32_t& out) noexcept {
  if (text.Take("Z")) {
    out = 0;
    return true;
  }
  const bool is_east = text.Take("+");
  if (!is_east && !text.Take("-")) return false;
  std::int32_t hours = 0;
  std::int32_t minutes = 0;
  if (!text.TakeNumber(kLargestZoneHours, hours) || !text.Take(":") ||
      !text.TakeNumber(kLatestMinute, minutes)) {
    return false;
  }
  const std::int32_t distance = hours * kSecondsPerHour + minutes * kSecondsPerMinute;
  out = is_east ? -distance : distance;
  return true;
}

std::optional<ParsedDate> ParseRfc1123(std::string_view text) noexcept {
  ParsedDate date;
  CalendarFields& fields = date.fields;
  Scanner scanner(text);
  const bool is_date = scanner.TakeName(kShortDayNames, fields.weekday) && scanner.Take(", ") &&
                       scanner.TakeNumber(kLatestDay, fields.day) && scanner.Take(" ") &&
                       scanner.TakeName(kMonthNames, fields.month) && scanner.Take(" ") &&
                       scanner.TakeYear(fields.year) && scanner.Take(" ") &&
                       scanner.TakeTime(fields) && scanner.Take(" GMT") && scanner.AtEnd();
  return is_date ? std::optional(date) : std::nullopt;
}

std::optional<ParsedDate> ParseRfc850(std::string_view text) noexcept {
  ParsedDate date;
  CalendarFields& fields = date.fields;
  Scanner scanner(text);
  const bool is_date = scanner.TakeName(kFullDayNames, fields.weekday) && scanner.Take(", ") &&
                       scanner.TakeNumber(kLatestDay, fields.day) && scanner.Take("-") &&
                       scanner.TakeName(kMonthNames, fields.month) && scanner.Take("-") &&
                       // Two digits are years since 1900: 05 is 1905. With a sliding century the
                       // same text would mean another date later.
                       scanner.TakeNumber(99, fields.year) && scanner.Take(" ") &&
                       scanner.TakeTime(fields) && scanner.Take(" GMT") && scanner.AtEnd();
  return is_date ? std::optional(date) : std::nullopt;
}

std::optional<ParsedDate> ParseAsctime(std::string_view text) noexcept {
  ParsedDate date;
  CalendarFields& fields = date.fields;
  Scanner scanner(text);
  const bool is_date = scanner.TakeName(kShortDayNames, fields.weekday) && scanner.Take(" ") &&
                       scanner.TakeName(kMonthNames, fields.month) && scanner.Take(" ") &&
                       (scanner.Take(" ") ? scanner.TakeDigit(fields.day)
                                          : scanner.TakeNumber(kLatestDay, fields.day)) &&
                       scanner.Take(" ") && scanner.TakeTime(fields) && scanner.Take(" ") &&
                       scanner.TakeYear(fields.year) && scanner.AtEnd();
  return is_date ? std::optional(date) : std::nullopt;
}

}  // namespace

std::optional<ParsedDate> ParseIso8601(std::string_view text, std::int32_t local_offset) noexcept {
  ParsedDate date;
  date.offset = local_offset;
  CalendarFields& fields = date.fields;
  Scanner scanner(text);
  if (!scanner.TakeYear(fields.year)) return std::nullopt;
  if (scanner.AtEnd()) return date;
  if (!scanner.Take("-") || !TakeMonth(scanner, fields.month)) return std::nullopt;
  if (scanner.AtEnd()) return date;
  if (!scanner.Take("-") || !scanner.TakeNumber(kLatestDay, fields.day)) return std::nullopt;
  if (scanner.AtEnd()) return date;
  if (!scanner.Take("T") || !scanner.TakeNumber(kLatestHour, fields.hour) || !scanner.Take(":") ||
      !scanner.TakeNumber(kLatestMinute, fields.minute)) {
    return std::nullopt;
  }
  if (scanner.Take(":")) {
    if (!scanner.TakeNumber(kLatestSecond, fields.second)) return std::nullopt;
    if (scanner.Take(".") && !TakeFraction(scanner, date.fraction)) return std::nullopt;
  }
  if (scanner.AtEnd()) return date;
  if (!TakeZone(scanner, date.offset) || !scanner.AtEnd()) return std::nullopt;
  return date;
}

std::optional<ParsedDate> ParseHttpDate(std::string_view text) noexcept {
  if (text.size() < 4) return std::nullopt;
  switch (text[3]) {
    case ' ':
      return ParseAsctime(text);
    case ',':
      return ParseRfc1123(text);
    default:
      return ParseRfc850(text);
  }
}

}  // namespace TAVU::lumo
