// Dates in every form: a text that parses formats to a text that parses to the same moment.
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/property.h"
#include "lumo/date_time.h"

using namespace TAVU::lumo;

namespace {

constexpr std::int32_t kZones[] = {0, -28800, 18000, -34200};

// What the text forms can carry there and back: four digits of year, which the ISO form does not
// fill up with zeros.
bool HasFourDigitYear(std::int64_t seconds) {
  return seconds >= -30610137600 && seconds <= 253402214399;  // 1000-01-02 to 9999-12-30
}

void CheckFormats(std::int64_t milliseconds, std::int32_t zone) {
  DateTime date = DateTime::FromDate(milliseconds, zone);
  TAVU_PROPERTY(date.ToDate() == milliseconds);
  for (int kind = 0; kind <= 6; ++kind) {
    const bool formatted = date.Format(static_cast<DateFormat>(kind), DatePrecision::kSecond);
    TAVU_PROPERTY(formatted == (kind >= 1 && kind <= 5));
    // The two digits of RFC 850 lose the century, and asctime names no zone.
    if (!formatted || kind == 4 || kind == 5 || !HasFourDigitYear(date.seconds())) continue;
    DateTime parsed;
    TAVU_PROPERTY(parsed.Parse(date.text(), static_cast<DateFormat>(kind), 12345));
    TAVU_PROPERTY(parsed.seconds() == date.seconds());
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::int32_t zone = kZones[data[0] >> 4 & 3];
  const auto kind = static_cast<DateFormat>(data[0] & 7);
  const std::string_view text(reinterpret_cast<const char*>(data + 1), size - 1);
  DateTime date(77, 5, zone);
  if (date.Parse(text, kind, zone)) {
    CheckFormats(date.ToDate(), date.zone_offset());
  } else {
    TAVU_PROPERTY(date.seconds() == 77 && date.fraction() == 5);
  }
  if (size >= 9) {
    std::int64_t milliseconds = 0;
    for (int i = 1; i <= 8; ++i) milliseconds = static_cast<std::int64_t>(
        static_cast<std::uint64_t>(milliseconds) << 8 | data[i]);
    CheckFormats(milliseconds, zone);
  }
  return 0;
}
