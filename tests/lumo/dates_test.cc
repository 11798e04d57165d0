// Calendar and date texts. What depends on the local zone is in zones_test.cc.
#include <gtest/gtest.h>

#include <cstdint>
#include <set>
#include <string>
#include <utility>

#include "lumo/date_time.h"
#include "support/vectors.h"

namespace TAVU::lumo {
namespace {

using test::Json;

std::int64_t SecondsOf(const Json& test) {
  return std::stoll(test.at("seconds").get<std::string>());
}

TEST(Calendar, ConvertsAsTheVectorsSay) {
  const Json vectors = test::LoadVectors("dates.json");
  for (const Json& test : vectors.at("fields")) {
    const CalendarFields fields = CalendarFromSeconds(SecondsOf(test));
    EXPECT_EQ(Json({fields.year, fields.month, fields.day, fields.hour, fields.minute,
                    fields.second, fields.weekday}),
              test.at("fields"))
        << test;
    EXPECT_EQ(SecondsFromCalendar(fields), SecondsOf(test)) << test;
  }
}

TEST(Calendar, CountsEveryDayOfACycleOnce) {
  // From before the year 0 to beyond 2400, every leap year rule included.
  CalendarFields last = CalendarFromSeconds(-800'000LL * kSecondsPerDay);
  for (std::int64_t day = -799'999; day < 200'000; ++day) {
    const CalendarFields next = CalendarFromSeconds(day * kSecondsPerDay);
    ASSERT_EQ(SecondsFromCalendar(next), day * kSecondsPerDay) << day;
    ASSERT_EQ(next.weekday, (last.weekday + 1) % 7) << day;
    const bool is_new_year = next.month == 0 && next.day == 1;
    ASSERT_EQ(next.year_day, is_new_year ? 0 : last.year_day + 1) << day;
    ASSERT_EQ(next.year, last.year + (is_new_year ? 1 : 0)) << day;
    last = next;
  }
}

TEST(Calendar, TakesAnySeconds) {
  // 292,277,026,596 and -292,277,022,657 are the years; of both the low 32 bits are kept.
  const CalendarFields last = CalendarFromSeconds(INT64_MAX);
  EXPECT_EQ(last.year, static_cast<std::int32_t>(292'277'026'596 - 1900));
  EXPECT_EQ(Json({last.month, last.day, last.hour, last.minute, last.second, last.weekday}),
            Json({11, 4, 15, 30, 7, 0}));
  const CalendarFields first = CalendarFromSeconds(INT64_MIN);
  EXPECT_EQ(first.year, static_cast<std::int32_t>(-292'277'022'657 - 1900));
  EXPECT_EQ(Json({first.month, first.day, first.hour, first.minute, first.second, first.weekday}),
            Json({0, 27, 8, 29, 52, 0}));
}

std::string TextOf(DateTime moment, DateFormat kind, DatePrecision precision) {
  return moment.Format(kind, precision) ? std::string(moment.text()) : "refused";
}

TEST(DateTime, FormatsAsTheVectorsSay) {
  const Json vectors = test::LoadVectors("dates.json");
  for (const Json& test : vectors.at("format")) {
    const std::string text =
        TextOf(DateTime(SecondsOf(test), test.at("fraction").get<std::int32_t>(),
                        test.at("offset").get<std::int32_t>()),
               static_cast<DateFormat>(test.at("kind").get<int>()),
               static_cast<DatePrecision>(test.at("precision").get<int>()));
    EXPECT_EQ(text, test.at("text").is_null() ? "refused" : test.at("text")) << test;
  }
  for (const Json& test : vectors.at("date_text")) {
    const std::int64_t date = std::stoll(test.at("milliseconds").get<std::string>());
    EXPECT_EQ(TextOf(DateTime::FromDate(date, test.at("offset").get<std::int32_t>()),
                     DateFormat::kIso8601, DatePrecision::kSecond),
              test.at("text"))
        << test;
  }
}

TEST(DateTime, FormatsFarAndOddMoments) {
  constexpr DateFormat kIso = DateFormat::kIso8601;
  const std::pair<std::string, const char*> kCases[] = {
      {TextOf(DateTime::FromDate(INT64_MAX, 0), kIso, DatePrecision::kSecond),
       "292278994-08-17T07:12:55Z"},
      {TextOf(DateTime::FromDate(INT64_MIN, 0), DateFormat::kRfc1123, DatePrecision::kSecond),
       "Sun, 16 May -292275055 16:47:05 GMT"},
      {TextOf(DateTime::FromDate(INT64_MIN, 0), DateFormat::kRfc850, DatePrecision::kSecond),
       "Sunday, 16-May-55 16:47:05 GMT"},
      {TextOf(DateTime(INT64_MIN, 0, 1), DateFormat::kAsctime, DatePrecision::kDay),
       "Sun Dec  4 15:30:07 219250468"},  // wraps to the last second of all; the year's low 32 bits
      // The zone of asctime, and a zone of an odd width.
      {TextOf(DateTime(784111777, 0, -32400), DateFormat::kAsctime, DatePrecision::kDay),
       "Sun Nov  6 17:49:37 1994"},
      {TextOf(DateTime(0, 0, INT32_MIN), kIso, DatePrecision::kSecond),
       "2038-01-19T03:14:08+596523:14"},
      // Fractions: of 0 the point stays; before 1970 they count from the second below.
      {TextOf(DateTime(5, 0, 0), kIso, DatePrecision::kFraction), "1970-01-01T00:00:05.Z"},
      {TextOf(DateTime::FromDate(-500, 0), kIso, DatePrecision::kFraction),
       "1969-12-31T23:59:59.5Z"},
  };
  for (const auto& [actual, expected] : kCases) EXPECT_EQ(actual, expected);
}

TEST(DateTime, KeepsDateValues) {
  const std::int64_t kDates[] = {INT64_MIN, -1500, -1, 0, 1322730303123, INT64_MAX};
  for (const std::int64_t date : kDates) {
    EXPECT_EQ(DateTime::FromDate(date, -3600).ToDate(), date);
  }
}

Json ResultOf(const Json& text, int kind, std::int32_t given_offset) {
  DateTime moment;
  if (!moment.Parse(text.get<std::string>(), static_cast<DateFormat>(kind), given_offset))
    return {};
  Json result = {{"seconds", std::to_string(moment.seconds())}, {"fraction", moment.fraction()}};
  if (kind == 1) result["offset"] = moment.zone_offset();
  return result;
}

TEST(DateTime, ParsesAsTheVectorsSay) {
  const Json vectors = test::LoadVectors("dates.json");
  for (const Json& test : vectors.at("parse")) {
    EXPECT_EQ(ResultOf(test.at("text"), test.at("kind"), test.at("given_offset")),
              test.at("result"))
        << test;
  }
}

TEST(DateTime, RefusesEveryCutAndEveryWrongByte) {
  struct Case {
    int kind;
    std::string text;
    std::set<std::size_t> ends;  // where it may end too
  };
  const Case kCases[] = {
      {1, "1994-11-06T08:49:37.5+09:00", {4, 7, 10, 16, 19, 21}},
      {1, "1994-11-06T08:49-03:30", {4, 7, 10, 16}},
      {2, "Sun, 06 Nov 1994 08:49:37 GMT", {}},
      {4, "Wednesday, 30-Apr-08 00:00:00 GMT", {}},
      {5, "Sat Dec 31 23:59:59 2011", {}},
  };
  for (const auto& [kind, text, ends] : kCases) {
    EXPECT_NE(ResultOf(text, kind, 0), nullptr) << text;
    EXPECT_EQ(ResultOf(text + "0", kind, 0), nullptr) << text;
    for (std::size_t at = 0; at < text.size(); ++at) {
      EXPECT_EQ(ResultOf(text.substr(0, at), kind, 0) != nullptr, ends.contains(at)) << text << at;
      for (const char wrong : {'\0', '/', ';', '\xB0'}) {
        std::string changed = text;
        changed[at] = wrong;
        EXPECT_EQ(ResultOf(changed, kind, 0), nullptr) << changed;
      }
    }
  }
}

}  // namespace
}  // namespace TAVU::lumo
