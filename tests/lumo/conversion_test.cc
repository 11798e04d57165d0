// Values as text and as values of other types.
#include "lumo/conversion.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "lumo/big_int.h"
#include "lumo/local_zone.h"
#include "lumo/number_text.h"
#include "lumo/text_view.h"
#include "support/vectors.h"

namespace TAVU::lumo {
namespace {

using test::Json;
using test::ValueOf;

constexpr ConversionMode kAllModes[] = {ConversionMode::kStrict, ConversionMode::kUnchecked,
                                        ConversionMode::kRanged, ConversionMode::kExact};

// Equal to the last bit, except that a zero has no sign.
void ExpectSame(const Value& actual, const Value& expected, const Json& test) {
  ASSERT_EQ(actual.type(), expected.type()) << test;
  if (actual.type() == ValueType::kDouble && std::isnan(expected.double_value())) {
    EXPECT_TRUE(std::isnan(actual.double_value())) << test;
  } else if (actual.type() == ValueType::kDouble) {
    EXPECT_EQ(actual.double_value(), expected.double_value()) << test;
  } else if (actual.type() != ValueType::kXml) {  // which is not even equal to itself
    EXPECT_EQ(Compare(actual, expected), 0) << test;
  }
}

void CheckConversion(const Json& test) {
  Value value = ValueOf(test.at("value"));
  const bool converted = ConvertInPlace(value, TypeFromName(test.at("target").get<std::string>()),
                                        static_cast<ConversionMode>(test.at("mode").get<int>()));
  EXPECT_EQ(converted, !test.at("result").is_null()) << test;
  ExpectSame(value, ValueOf(test.at(converted ? "result" : "value")), test);
}

void CheckTextView(const Json& test) {
  Value value = ValueOf(test.at("value"));
  for (const bool is_repetition : {false, true}) {
    TextView view;
    const bool has_text = AsText(value, view, TextConversion::kConvert);
    ASSERT_EQ(has_text, !test.at("bytes").is_null()) << test;
    if (!has_text) return;
    EXPECT_EQ(test::Hex(view.text.data(), view.text.size()), test.at("bytes")) << test;
    const ValueType type = value.type();
    const bool is_kept = (type >= ValueType::kInt && type <= ValueType::kDate);
    EXPECT_EQ(view.cached, is_kept) << test << is_repetition;
    EXPECT_EQ(view.raw, type == ValueType::kChar || type == ValueType::kBigInt) << test;
    if (!view.raw) EXPECT_EQ(view.text.data()[view.text.size()], '\0') << test;
    EXPECT_EQ(AsText(value, view, TextConversion::kNone), type == ValueType::kString) << test;
  }
}

// Runs the cases of values.json that hold in this process's zone; returns how many name a zone.
int CheckVectors(const char* member, void (*check)(const Json&)) {
  const Json vectors = test::LoadVectors("values.json");
  int of_this_zone = 0;
  for (const Json& test : vectors.at(member)) {
    const bool names_zone = test.contains("zone_offset");
    if (names_zone && test.at("zone_offset") != LocalZoneOffset()) continue;
    of_this_zone += names_zone ? 1 : 0;
    check(test);
  }
  return of_this_zone;
}

TEST(Vectors, HoldInThisZone) {
  const char* const offset = std::getenv("TAVU_ZONE_OFFSET");
  const int conversions = CheckVectors("convert", CheckConversion);
  const int views = CheckVectors("text_view", CheckTextView);
  if (offset == nullptr) GTEST_SKIP() << "not told which zone this is; ctest runs it in three";
  EXPECT_EQ(LocalZoneOffset(), std::atoi(offset));
  EXPECT_GT(conversions, 0) << "no vector is for this zone";
  EXPECT_GT(views, 0) << "no vector is for this zone";
}

TEST(NumberText, ReadsIntegers) {
  struct Case {
    const char* text;
    std::optional<std::int32_t> as_int;
    std::optional<std::int64_t> as_long;
  };
  const Case kCases[] = {
      {"", 0, 0},  // as the C library reads it
      {" \t\n\v\f\r", 0, 0},
      {"08", {}, 8},
      {"017", 15, 17},
      {"-0x1f ", -31, -31},
      {"0X1F", 31, 31},
      {"0x80000000", INT32_MAX, 0x80000000},  // in range by its length only
      {"-0xffffffff", INT32_MIN, -0xffffffffLL},
      {"0xfffffffffffffffff", {}, INT64_MAX},
      {"-0xfffffffffffffffff", {}, INT64_MIN},
      {"00000000000000000000000000001", 1, 1},
      {"-2147483648 ", {}, -2147483648LL},
  };
  for (const Case& test : kCases) {
    EXPECT_EQ(ParseInt(test.text), test.as_int) << test.text;
    EXPECT_EQ(ParseLong(test.text), test.as_long) << test.text;
  }
  // \xA0 is white space in some locales; zeros are skipped at the very front only.
  for (const char* const text : {"\xA0", "0x", "0xg", "00x1", "0b1", "- 5", "+-5", "--5", "1e3",
                                 "0xffffffffffffffffff", "+000000000000000000000000001"}) {
    EXPECT_EQ(ParseInt(text), std::nullopt) << text;
    EXPECT_EQ(ParseLong(text), std::nullopt) << text;
  }
  EXPECT_EQ(ParseInt(std::string_view("12345", 2)), 12) << "read beyond the text";
  EXPECT_EQ(ParseInt(std::string_view("12\0", 3)), std::nullopt) << "a zero is no white space";
}

TEST(NumberText, ReadsDoubles) {
  const std::pair<std::string, double> kCases[] = {
      {"", 0},
      {".5", 0.5},
      {"5.", 5},
      {"+1.5e+1\n", 15},
      {"-1E-1", -0.1},
      {"0e999", 0},
      {"4.9e-324", std::numeric_limits<double>::denorm_min()},
      {"1.7976931348623157e308", std::numeric_limits<double>::max()},
      {"1" + std::string(400, '0') + "e-400", 1},
  };
  for (const auto& [text, expected] : kCases) EXPECT_EQ(ParseDouble(text), expected) << text;
  for (const char* const text : {"1e309", "-1e309", "1e-400", ".", "1e", "1,5", "1.5.", "+-1",
                                 "- 1", "inf", "-infinity", "nan", "0x1p3", "1d2"}) {
    EXPECT_EQ(ParseDouble(text), std::nullopt) << text;
  }
  EXPECT_EQ(ParseDouble(std::string_view("1.59", 3)), 1.5) << "read beyond the text";
}

TEST(NumberText, DoesNotFollowTheLocale) {
  const bool has_comma = std::setlocale(LC_ALL, "German") != nullptr ||
                         std::setlocale(LC_ALL, "de_DE.UTF-8") != nullptr;
  if (!has_comma) GTEST_SKIP() << "no locale with a decimal comma is installed";
  Value value = Value::Double(-1.5e-7);
  TextView view;
  EXPECT_TRUE(AsText(value, view, TextConversion::kConvert));
  EXPECT_EQ(view.text, "-1.5e-07");
  EXPECT_EQ(ParseDouble("1.5"), 1.5);
  EXPECT_EQ(ParseDouble("1,5"), std::nullopt);
  std::setlocale(LC_ALL, "C");
}

TEST(TextView, WritesDoublesAlikeEverywhere) {
  const std::pair<double, const char*> kCases[] = {
      {1e10, "1e+10"},     {-1e-300, "-1e-300"},  {1234567, "1.23457e+06"},
      {-0.0, "-0"},        {0.00001, "1e-05"},    {std::numeric_limits<double>::infinity(), "inf"},
      {-HUGE_VAL, "-inf"}, {std::nan(""), "nan"}, {-std::nan(""), "nan"},
  };
  for (const auto& [number, expected] : kCases) {
    Value value = Value::Double(number);
    TextView view;
    EXPECT_TRUE(AsText(value, view, TextConversion::kConvert));
    EXPECT_EQ(view.text, expected);
  }
}

TEST(Conversion, CutsDoublesAsTheProcessorDoes) {
  constexpr double kNoNumber = std::numeric_limits<double>::quiet_NaN();
  constexpr double kTwo63 = 9223372036854775808.0;
  struct Case {
    double number;
    std::optional<std::int64_t> results[3];  // unchecked, ranged, exact
  };
  const Case kLongs[] = {
      {kTwo63, {INT64_MIN, INT64_MIN, INT64_MIN}},  // not above the limit, which is a double too
      {-kTwo63, {INT64_MIN, INT64_MIN, INT64_MIN}},
      {kTwo63 * 2, {INT64_MIN, {}, {}}},
      {kNoNumber, {INT64_MIN, INT64_MIN, {}}},
      {-HUGE_VAL, {INT64_MIN, {}, {}}},
      {-0.9, {0, 0, {}}},
  };
  const Case kInts[] = {
      {2147483647.5, {INT32_MAX, {}, {}}},           {2147483648.0, {INT32_MIN, {}, {}}},
      {-2147483648.5, {INT32_MIN, {}, {}}},          {kNoNumber, {INT32_MIN, INT32_MIN, {}}},
      {-2147483647.5, {-INT32_MAX, -INT32_MAX, {}}},
  };
  const auto check = [](const Case& test, auto get, auto out) {
    for (int mode = 1; mode <= 3; ++mode) {
      out = 77;
      const bool ok = get(Value::Double(test.number), out, static_cast<ConversionMode>(mode));
      EXPECT_EQ(ok, test.results[mode - 1].has_value()) << test.number << ' ' << mode;
      EXPECT_EQ(out, test.results[mode - 1].value_or(77)) << test.number << ' ' << mode;
    }
  };
  for (const Case& test : kLongs) check(test, GetAsLong, std::int64_t{});
  for (const Case& test : kInts) check(test, GetAsInt, std::int32_t{});
}

TEST(Conversion, KnowsTheLessUsualPairs) {
  struct Case {
    const char* value;
    ValueType target;
    std::string modes;  // in which it succeeds
    const char* result;
  };
  const Case kCases[] = {
      {R"(["long", "4294967301"])", ValueType::kInt, "1", R"(["int", 5])"},
      {R"(["date", "-7"])", ValueType::kInt, "123", R"(["int", -7])"},
      {R"(["null"])", ValueType::kDouble, "123", R"(["double", "0000000000000000"])"},
      {R"(["bool", true])", ValueType::kDouble, "123", R"(["double", "3ff0000000000000"])"},
      {R"(["long", "-1"])", ValueType::kDouble, "123", R"(["double", "bff0000000000000"])"},
      {R"(["long", "-9223372036854775808"])", ValueType::kDouble, "123",
       R"(["double", "c3e0000000000000"])"},
      {R"(["long", "9007199254740993"])", ValueType::kDouble, "12",
       R"(["double", "4340000000000000"])"},
      {R"(["bigint", "9007199254740993"])", ValueType::kDouble, "12",
       R"(["double", "4340000000000000"])"},
      {R"(["string", ""])", ValueType::kChar, "", ""},
      {R"(["date", "5"])", ValueType::kChar, "", ""},
      {R"(["double", "7ff8000000000000"])", ValueType::kChar, "", ""},
      {R"(["bool", true])", ValueType::kBool, "0123", R"(["bool", true])"},
      {R"(["date", "-9223372036854775808"])", ValueType::kBool, "12", R"(["bool", true])"},
      {R"(["table", {"columns": [["a", "int"]], "rows": []}])", ValueType::kBool, "12",
       R"(["bool", false])"},
      {R"(["xml"])", ValueType::kBool, "", ""},
      {R"(["xml"])", ValueType::kString, "", ""},
      {R"(["bigint", "0"])", ValueType::kBinary, "123", R"(["binary", ""])"},
      {R"(["bool", true])", ValueType::kBigInt, "", ""},
      {R"(["int", 3])", ValueType::kXml, "", ""},
  };
  for (const Case& test : kCases) {
    const Json input = Json::parse(test.value);
    for (const ConversionMode mode : kAllModes) {
      Value value = ValueOf(input);
      const auto digit = static_cast<char>('0' + static_cast<int>(mode));
      const bool succeeds = test.modes.find(digit) != std::string::npos;
      EXPECT_EQ(ConvertInPlace(value, test.target, mode), succeeds) << input << digit;
      ExpectSame(value, ValueOf(succeeds ? Json::parse(test.result) : input), input);
    }
  }
}

TEST(Conversion, StrictGettersCopyThePayloadOut) {
  std::int32_t number = 0;
  EXPECT_FALSE(GetAsInt(Value::Long(0x1'0000'0007), number, ConversionMode::kStrict));
  EXPECT_EQ(number, 7);
  std::int64_t bits = 0;
  EXPECT_FALSE(GetAsLong(Value::Double(1.0), bits, ConversionMode::kStrict));
  EXPECT_EQ(bits, 0x3FF0000000000000);
  bool truth = false;
  EXPECT_FALSE(GetAsBool(Value::Char(1), truth, ConversionMode::kStrict));
  EXPECT_TRUE(truth);
  EXPECT_TRUE(GetAsDate(Value::Date(9), bits, ConversionMode::kStrict));
  EXPECT_EQ(bits, 9);
  std::span<const std::byte> bytes;
  EXPECT_FALSE(GetAsBinary(Value::Long(0x1234), bytes, ConversionMode::kStrict));
  EXPECT_EQ(bytes.data(), nullptr) << "a number became an address";
}

TEST(Conversion, KeepsContentWithItsOwner) {
  const std::string text = "not terminated";
  Value borrowed = Value::BorrowString(std::string_view(text).substr(0, 3));
  EXPECT_TRUE(ConvertInPlace(borrowed, ValueType::kBinary, ConversionMode::kExact));
  EXPECT_EQ(borrowed.bytes().data(), reinterpret_cast<const std::byte*>(text.data()));
  EXPECT_FALSE(borrowed.owns());

  Value owned = Value::CopyString("abc");
  const std::byte* const block = owned.bytes().data();
  EXPECT_TRUE(ConvertInPlace(owned, ValueType::kBinary, ConversionMode::kExact));
  EXPECT_EQ(owned.bytes().data(), block);
  EXPECT_TRUE(owned.owns());

  Value number = Value::Int(-12);
  TextView view;
  EXPECT_TRUE(AsText(number, view, TextConversion::kConvert));
  EXPECT_TRUE(ConvertInPlace(number, ValueType::kString, ConversionMode::kRanged));
  EXPECT_EQ(number.text().data(), view.text.data()) << "the cached text was not handed over";
  EXPECT_TRUE(number.owns());

  Value nothing;
  EXPECT_TRUE(ConvertInPlace(nothing, ValueType::kString, ConversionMode::kUnchecked));
  EXPECT_FALSE(nothing.owns());
  Value none;
  EXPECT_TRUE(ConvertInPlace(none, ValueType::kBinary, ConversionMode::kUnchecked));
  EXPECT_EQ(Value(none, CopyDepth::kDeep).type(), ValueType::kBinary);

  Value big = ValueOf(Json::parse(R"(["bigint", "4294967298"])"));
  Value sharing = big;
  EXPECT_TRUE(ConvertInPlace(sharing, ValueType::kBinary, ConversionMode::kUnchecked));
  EXPECT_EQ(static_cast<const void*>(sharing.bytes().data()), big.big_int().limbs().data());
  sharing.Clear();
  Value digits = big;
  EXPECT_TRUE(ConvertInPlace(digits, ValueType::kString, ConversionMode::kUnchecked));
  EXPECT_TRUE(ConvertInPlace(big, ValueType::kBinary, ConversionMode::kUnchecked));
  EXPECT_TRUE(big.owns());
  EXPECT_EQ(digits.text(), "4294967298") << "a text of its own outlives the number";
}

}  // namespace
}  // namespace TAVU::lumo
