#include "utc_time.h"

#include <cstdio>

namespace TAVU::collector {
namespace {

constexpr UtcTime kYear0 = std::chrono::sys_days(std::chrono::year(0) / 1 / 1);
constexpr UtcTime kYear10000 = std::chrono::sys_days(std::chrono::year(10000) / 1 / 1);

std::string Print(const char* format, UtcTime time) {
  const auto day = std::chrono::floor<std::chrono::days>(time);
  const std::chrono::year_month_day date(day);
  const std::chrono::hh_mm_ss clock(time - day);
  char text[64];
  const int length = std::snprintf(
      text, sizeof(text), format, static_cast<int>(date.year()),
      static_cast<unsigned>(date.month()), static_cast<unsigned>(date.day()),
      static_cast<int>(clock.hours().count()), static_cast<int>(clock.minutes().count()),
      static_cast<int>(clock.seconds().count()), static_cast<int>(clock.subseconds().count()));
  return std::string(text, static_cast<std::size_t>(length));
}

}  // namespace

UtcTime UtcNow() noexcept {
  return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
}

std::optional<std::string> FormatUtc(UtcTime time) {
  if (time < kYear0 || time >= kYear10000) return std::nullopt;
  return Print("%04d-%02u-%02uT%02d:%02d:%02d.%03dZ", time);
}

std::string FormatUtcForFileName(UtcTime time) {
  return Print("%04d%02u%02uT%02d%02d%02d%03dZ", time);
}

}  // namespace TAVU::collector
