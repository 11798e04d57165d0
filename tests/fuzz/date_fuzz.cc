// Dates in every form: a text that parses formats to a text that parses to the same moment.
#include "fuzz/fuzzer.h"
#include "lumo/codec/big_endian.h"
#include "lumo/dates/date_time.h"

using namespace TAVU::lumo;

static void CheckFormats(std::int64_t milliseconds, std::int32_t zone) {
  DateTime date = DateTime::FromDate(milliseconds, zone);
  Require(date.ToDate() == milliseconds);
  // What the text forms can carry there and back: four digits of year, which the ISO form does not
  // fill up with zeros. 1000-01-02 to 9999-12-30
  const bool has_year = date.seconds() >= -30610137600 && date.seconds() <= 253402214399;
  for (int kind = 0; kind <= 6; ++kind) {
    const bool formatted = date.Format(static_cast<DateFormat>(kind), DatePrecision::kSecond);
    Require(formatted == (kind >= 1 && kind <= 5));
    // The two digits of RFC 850 lose the century, and asctime names no zone.
    if (!formatted || kind == 4 || kind == 5 || !has_year) continue;
    DateTime parsed;
    Require(parsed.Parse(date.text(), static_cast<DateFormat>(kind), 12345) &&
            parsed.seconds() == date.seconds());
  }
}

void Check(Bytes input) {
  if (input.empty()) return;
  const auto how = static_cast<unsigned>(input[0]);
  constexpr std::int32_t kZones[] = {0, -28800, 18000, -34200};
  const std::int32_t zone = kZones[how >> 4 & 3];
  DateTime date(77, 5, zone);
  const bool reads = date.Parse(TextOf(input.subspan(1)), static_cast<DateFormat>(how & 7), zone);
  if (reads) CheckFormats(date.ToDate(), date.zone_offset());
  Require(reads || (date.seconds() == 77 && date.fraction() == 5));
  if (input.size() < 9) return;
  CheckFormats(static_cast<std::int64_t>(LoadBigEndian<std::uint64_t>(&input[1])), zone);
}
