// What values are made into and from: strings, formatted text, numbers, dates.
#include <clocale>
#include <cmath>

#include "lumo/codec/memory_writer.h"
#include "lumo/dates/date_time.h"
#include "lumo/reference.h"
#include "lumo/text/basic_string.h"
#include "lumo/text/formatter.h"
#include "lumo/text/number_text.h"

namespace TAVU::lumo {
namespace {

TEST(Buffers, GrowAsTheVectorsSay) {
  for (const Json& test : Vectors("strings.json", "growth")) {
    BasicString<char> narrow;
    BasicString<char16_t> wide;
    for (std::size_t i = 0; i < test["appended"].size(); ++i) {
      const std::size_t count = test["appended"][i];
      narrow.Append(std::string(count, 'a'));
      wide.Append(std::u16string(count, u'a'));
      EXPECT_EQ(narrow.capacity(), test["capacity"][i]) << test;
      EXPECT_EQ(wide.capacity(), test["capacity"][i]) << test;
    }
  }
  BasicString<char> nothing;
  nothing.Append({});
  EXPECT_EQ(nothing.capacity(), 64u) << "for the terminator";
  for (const Json& test : Vectors("strings.json", "writer_growth")) {
    MemoryWriter writer;
    for (std::size_t i = 0; i < test["appended"].size(); ++i) {
      ASSERT_TRUE(writer.Write(std::vector<std::byte>(test["appended"][i].get<std::size_t>())));
      EXPECT_EQ(writer.capacity(), test["capacity"][i]) << test;
    }
  }
}

TEST(BasicString, TakesPartsOfItself) {
  BasicString<char> text(std::string(60, 'x') + "tail");
  text.Append(text.view());  // moves the buffer while it reads from it
  text.Append(text.view().substr(60, 4));
  EXPECT_EQ(text.view(), std::string(60, 'x') + "tail" + std::string(60, 'x') + "tail" + "tail");
  text.Assign(text.view().substr(59, 4));
  text.Assign(text.view().substr(1, 3));  // source and target overlap
  EXPECT_STREQ(text.c_str(), "tai");
  EXPECT_THROW(text.Reserve(SIZE_MAX), base::BadAllocation);
  EXPECT_THROW(text.Reserve(SIZE_MAX / 2), base::BadAllocation);
  const BasicString<char> moved = std::move(text);
  EXPECT_EQ(moved.view(), "tai");
  EXPECT_STREQ(text.c_str(), "");  // NOLINT(bugprone-use-after-move): it is empty and usable
}

// Numbers and texts; all are passed in 64 bits, and an int is read from their low half, as both
// systems pass arguments.
void CheckFormat(const std::string& format, const Json& arguments, const std::string& expected) {
  std::intptr_t passed[5] = {};
  for (std::size_t i = 0; i < arguments.size(); ++i) {
    const auto* const text = arguments[i].get_ptr<const std::string*>();
    if (text != nullptr) passed[i] = reinterpret_cast<std::intptr_t>(text->c_str());
    if (arguments[i].is_number()) passed[i] = arguments[i].get<std::intptr_t>();
  }
  BasicString<char> out(std::string_view("before "));
  EXPECT_EQ(Format(out, format.c_str(), passed[0], passed[1], passed[2], passed[3], passed[4]),
            expected.size());
  EXPECT_EQ(out.view(), "before " + expected) << format;
}

TEST(Format, WritesWhatTheVectorsSay) {
  for (const Json& test : Vectors("strings.json", "format")) {
    Json arguments;
    for (const Json& argument : test["arguments"]) {
      const bool is_long = argument[0] == "long";
      arguments.push_back(is_long ? Json(std::stoll(argument[1].get<std::string>())) : argument[1]);
    }
    CheckFormat(test["format"], arguments, test["text"]);
  }
}

TEST(Format, CombinesFlagsAsCDoes) {
  for (const Json& test : Cases(R"([
    // Grouping: of digits, not of padding.
    ["%'d %'d %'d", [999, 1000, -1234567], "999 1,000 -1,234,567"],
    ["%'lu|%'x", [-1, 1193046], "18,446,744,073,709,551,615|123456"],
    ["%'010d|%'-8d|%'.7u", [12345, 123456, 12], "000012,345|123,456 |0,000,012"],
    // Signs and their place before zeros; '+' beats ' '; neither on an unsigned number.
    ["%+05d|% 05d|%+ d|% +d", [42, 42, 1, 1], "+0042| 0042|+1|+1"], ["%+u|%+i", [1, 0], "1|+0"],
    // '-' and an integer's precision beat '0'.
    ["%-05d|%0-5d|%05.3d|%8.3d|%-8.3d|", [42, 42, 42, -42, 42],
     "42   |42   |  042|    -042|042     |"],
    ["%.0d|%.d|%3.0d|%.0d", [0, 0, 0, 7], "||   |7"], ["%.*d|%.*d", [-1, 0, 3, 5], "0|005"],
    // Prefixes.
    ["%#x %#X %#b %#o", [255, 255, 5, 8], "0xff 0XFF 0b101 010"],
    ["%#x %#b %#o %#.0o %#.4o", [0, 0, 0, 0, 8], "0 0 0 0 0010"],
    ["%#08x|%#-8x|%#8x", [255, 255, 255], "0x0000ff|0xff    |    0xff"],
    // Widths by argument, texts and characters.
    ["%*s|%-*s", [4, "a", 4, "b"], "   a|b   "], ["%*.*s|", [-4, 1, "cd"], "c   |"],
    ["%5.2s|%.0s|%.2s", ["abc", "abc", null], "   ab||(n"],
    ["%3c|%-3c|%c", [97, 98, 0], "  a|b  |\u0000"],
    ["%p %p %14p|", [737894400291, 0, 1], "0xabcdef0123 0x0            0x1|"],
    // 32-bit conversions see 32 bits; length modifiers make it 64.
    ["%x %lx %llx %zx", [-1, -1, -1, -1],
     "ffffffff ffffffffffffffff ffffffffffffffff ffffffffffffffff"],
    ["%lo", [-9223372036854775808], "1000000000000000000000"],
    // What is no conversion stands as it is and takes no argument.
    ["%y %5.2f %n %ls %hd %d", [7], "%y %5.2f %n %ls %hd 7"],
    ["%5%|100%", [], "%|100%"], ["%-", [], "%-"]
  ])")) {
    CheckFormat(test[0], test[1], test[2]);
  }
  const char unterminated[] = {'a', 'b', 'c'};
  BasicString<char> out;
  Format(out, "%.3s", unterminated);
  EXPECT_EQ(out.view(), "abc");
}

TEST(NumberText, ReadsIntegers) {
  // text, as int, as long
  for (const Json& test : Cases(R"([
    ["", 0, 0], [" \t\n\u000b\f\r", 0, 0],  // as the C library reads it
    ["08", null, 8], ["017", 15, 17], ["-0x1f ", -31, -31], ["0X1F", 31, 31],
    ["00000000000000000000000000001", 1, 1], ["-2147483648 ", null, -2147483648],
    // In range by their length only: what does not fit becomes the limit.
    ["0x80000000", 2147483647, 2147483648], ["-0xffffffff", -2147483648, -4294967295],
    ["0xfffffffffffffffff", null, 9223372036854775807],
    ["-0xfffffffffffffffff", null, -9223372036854775808],
    // Zeros are skipped at the very front only; one after the text is no white space.
    ["+000000000000000000000000001", null, null], ["12\u0000", null, null],
    ["0x", null, null], ["0xg", null, null], ["00x1", null, null], ["0b1", null, null],
    ["- 5", null, null], ["+-5", null, null], ["--5", null, null], ["1e3", null, null],
    ["0xffffffffffffffffff", null, null]
  ])")) {
    const std::string text = test[0];
    const std::optional<std::int32_t> as_int = ParseInt(text);
    const std::optional<std::int64_t> as_long = ParseLong(text);
    EXPECT_EQ(as_int ? Json(*as_int) : Json(), test[1]) << test;
    EXPECT_EQ(as_long ? Json(*as_long) : Json(), test[2]) << test;
  }
  EXPECT_EQ(ParseInt("\xA0"), std::nullopt) << "white space in some locales";
  EXPECT_EQ(ParseInt(std::string_view("12345", 2)), 12) << "read beyond the text";
}

TEST(NumberText, ReadsAndWritesDoublesInEveryLocale) {
  const Json texts = Cases(R"([
    ["", 0], [".5", 0.5], ["5.", 5], ["+1.5e+1\n", 15], ["-1E-1", -0.1], ["0e999", 0],
    ["4.9e-324", 4.9e-324], ["1.7976931348623157e308", 1.7976931348623157e308],
    ["1e309", null], ["-1e309", null], ["1e-400", null], [".", null], ["1e", null],
    ["1,5", null], ["1.5.", null], ["+-1", null], ["- 1", null], ["1.5\u0000", null],
    ["inf", null], ["-infinity", null], ["nan", null], ["0x1p3", null], ["1d2", null]
  ])");
  const std::pair<double, const char*> kNumbers[] = {
      {-1.5e-300, "-1.5e-300"}, {1234567, "1.23457e+06"}, {-0.0, "-0"},          {HUGE_VAL, "inf"},
      {-HUGE_VAL, "-inf"},      {std::nan(""), "nan"},    {-std::nan(""), "nan"}};
  // The last two have a decimal comma, where they are installed.
  for (const char* const locale : {"C", "German", "de_DE.UTF-8"}) {
    std::setlocale(LC_ALL, locale);
    for (const Json& test : texts) {
      const std::optional<double> number = ParseDouble(test[0].get<std::string>());
      EXPECT_EQ(number ? Json(*number) : Json(), test[1]) << test;
    }
    EXPECT_EQ(ParseDouble("1" + std::string(400, '0') + "e-400"), 1);
    EXPECT_EQ(ParseDouble(std::string_view("1.59", 3)), 1.5) << "read beyond the text";
    for (const auto& [number, expected] : kNumbers) {
      BasicString<char> text;
      AppendDouble(text, number);
      EXPECT_EQ(text.view(), expected) << locale;
    }
  }
  std::setlocale(LC_ALL, "C");
}

std::int64_t Number(const Json& digits) {
  return std::stoll(digits.get<std::string>());
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

std::string Text(DateTime moment, int kind, int precision) {
  return moment.Format(static_cast<DateFormat>(kind), static_cast<DatePrecision>(precision))
             ? std::string(moment.text())
             : "refused";
}

Json ResultOf(const std::string& text, int kind, std::int32_t given_offset) {
  DateTime moment;
  if (!moment.Parse(text, static_cast<DateFormat>(kind), given_offset)) return {};
  Json result = {{"seconds", std::to_string(moment.seconds())}, {"fraction", moment.fraction()}};
  if (kind == 1) result["offset"] = moment.zone_offset();
  return result;
}

TEST(DateTime, FormatsAndParsesAsTheVectorsSay) {
  for (const Json& test : Vectors("dates.json", "format")) {
    DateTime moment(Number(test["seconds"]), test["fraction"], test["offset"]);
    const std::string expected = test["text"].is_null() ? "refused" : test["text"];
    EXPECT_EQ(Text(std::move(moment), test["kind"], test["precision"]), expected) << test;
  }
  EXPECT_EQ(Text(DateTime(0, 0, 0), 1, -1), "1970-01-01");
  for (const Json& test : Vectors("dates.json", "date_text")) {
    DateTime moment = DateTime::FromDate(Number(test["milliseconds"]), test["offset"]);
    EXPECT_EQ(Text(std::move(moment), 1, 1), test["text"]) << test;
  }
  for (const Json& test : Vectors("dates.json", "parse")) {
    EXPECT_EQ(ResultOf(test["text"], test["kind"], test["given_offset"]), test["result"]) << test;
  }
}

TEST(DateTime, FormatsFarAndOddMoments) {
  const std::pair<std::string, const char*> kCases[] = {
      {Text(DateTime::FromDate(INT64_MAX, 0), 1, 1), "292278994-08-17T07:12:55Z"},
      {Text(DateTime::FromDate(INT64_MIN, 0), 2, 1), "Sun, 16 May -292275055 16:47:05 GMT"},
      {Text(DateTime::FromDate(INT64_MIN, 0), 4, 1), "Sunday, 16-May-55 16:47:05 GMT"},
      // Of the years -292277022657 and 292277026596 the low 32 bits are kept. The second moment is
      // the last of all, because a zone too much wraps around.
      {Text(DateTime(INT64_MIN, 0, 0), 5, 0), "Sun Jan 27 08:29:52 -219246529"},
      {Text(DateTime(INT64_MIN, 0, 1), 5, 0), "Sun Dec  4 15:30:07 219250468"},
      // The zone of asctime, and a zone of an odd width.
      {Text(DateTime(784111777, 0, -32400), 5, 0), "Sun Nov  6 17:49:37 1994"},
      {Text(DateTime(0, 0, INT32_MIN), 1, 1), "2038-01-19T03:14:08+596523:14"},
      // Fractions: of 0 the point stays; before 1970 they count from the second below.
      {Text(DateTime(5, 0, 0), 1, 2), "1970-01-01T00:00:05.Z"},
      {Text(DateTime::FromDate(-500, 0), 1, 2), "1969-12-31T23:59:59.5Z"},
  };
  for (const auto& [actual, expected] : kCases) EXPECT_EQ(actual, expected);
  for (const std::int64_t date : {INT64_MIN, INT64_MIN + 1, INT64_MAX / -1500, INT64_MAX})
    EXPECT_EQ(DateTime::FromDate(date, 3600).ToDate(), date);
}

TEST(DateTime, RefusesEveryCutAndEveryWrongByte) {
  // kind, text, where it may end too
  for (const Json& test : Cases(R"([
    [1, "1994-11-06T08:49:37.5+09:00", 4, 7, 10, 16, 19, 21],
    [1, "1994-11-06T08:49-03:30", 4, 7, 10, 16],
    [1, "2011-01-01", 4, 7],
    [2, "Sun, 06 Nov 1994 08:49:37 GMT"], [4, "Wednesday, 30-Apr-08 00:00:00 GMT"],
    [5, "Sat Dec 31 23:59:59 2011"]
  ])")) {
    const std::string text = test[1];
    EXPECT_NE(ResultOf(text, test[0], 0), nullptr) << text;
    EXPECT_EQ(ResultOf(text + "0", test[0], 0), nullptr) << text;
    for (std::size_t at = 0; at < text.size(); ++at) {
      const bool may_end = std::find(test.begin() + 2, test.end(), at) != test.end();
      EXPECT_EQ(ResultOf(text.substr(0, at), test[0], 0) != nullptr, may_end) << text << at;
      for (const char wrong : {'\0', '/', ';', '\xB0'}) {
        std::string changed = text;
        changed[at] = wrong;
        EXPECT_EQ(ResultOf(changed, test[0], 0), nullptr) << changed;
      }
    }
  }
  for (const char* none : {"2011-00", "2011-13", "2011-01-32"}) {
    EXPECT_EQ(ResultOf(none, 1, 0), nullptr) << none;
  }
}

}  // namespace
}  // namespace TAVU::lumo
