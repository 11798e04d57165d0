// Values as text and as values of other types.
#include "lumo/text/conversion.h"

#include <cstdlib>

#include "lumo/dates/local_zone.h"
#include "lumo/reference.h"
#include "lumo/text/text_view.h"
#include "lumo/value/big_int.h"

namespace TAVU::lumo {
namespace {

// Equal to the last bit. A value of type xml is not even equal to itself.
bool IsSame(const Value& a, const Value& b) {
  if (a.type() != b.type()) return false;
  if (a.type() == ValueType::kDouble) return a.long_value() == b.long_value();
  return a.type() == ValueType::kXml || Compare(a, b) == 0;
}

void CheckConversion(const Json& value, const std::string& target, int mode, const Json& result) {
  SCOPED_TRACE(testing::Message() << value << " to " << target << " in mode " << mode);
  Value converted = ValueOf(value);
  EXPECT_EQ(ConvertInPlace(converted, TypeFromName(target), static_cast<ConversionMode>(mode)),
            !result.is_null());
  EXPECT_TRUE(IsSame(converted, ValueOf(result.is_null() ? value : result)));
}

void CheckTextView(const Json& test) {
  Value value = ValueOf(test["value"]);
  for (int repetition = 0; repetition < 2; ++repetition) {
    TextView view;
    const bool has_text = AsText(value, view, TextConversion::kConvert);
    ASSERT_EQ(has_text, !test["bytes"].is_null()) << test;
    if (!has_text) return;
    EXPECT_EQ(Hex(view.text.data(), view.text.size()), test["bytes"]) << test;
    const ValueType type = value.type();
    EXPECT_EQ(view.cached, type >= ValueType::kInt && type <= ValueType::kDate) << test;
    EXPECT_EQ(view.raw, type == ValueType::kChar || type == ValueType::kBigInt) << test;
    if (!view.raw) EXPECT_EQ(view.text.data()[view.text.size()], '\0') << test;
    EXPECT_EQ(AsText(value, view, TextConversion::kNone), type == ValueType::kString) << test;
  }
}

TEST(Vectors, HoldInThisZone) {
  const char* const offset = std::getenv("TAVU_ZONE_OFFSET");
  if (offset == nullptr) GTEST_SKIP() << "not told which zone this is; ctest runs it in three";
  ASSERT_EQ(LocalZoneOffset(), std::atoi(offset));
  const auto is_here = [](const Json& test) {
    return !test.contains("zone_offset") || test["zone_offset"] == LocalZoneOffset();
  };
  for (const Json& test : Vectors("values.json", "convert")) {
    if (is_here(test)) CheckConversion(test["value"], test["target"], test["mode"], test["result"]);
  }
  for (const Json& test : Vectors("values.json", "text_view")) {
    if (is_here(test)) CheckTextView(test);
  }
}

TEST(Conversion, KnowsTheLessUsualPairs) {
  // value, target, the modes in which it succeeds (1 unchecked, 2 ranged, 3 exact), result
  for (const Json& test : Cases(R"([
    [["long", "4294967301"], "int", "1", ["int", 5]],
    [["date", "-7"], "int", "123", ["int", -7]],
    [["null"], "double", "123", ["double", "0000000000000000"]],
    [["bool", true], "double", "123", ["double", "3ff0000000000000"]],
    [["long", "-9223372036854775808"], "double", "123", ["double", "c3e0000000000000"]],
    [["long", "9007199254740993"], "double", "12", ["double", "4340000000000000"]],
    [["bigint", "9007199254740993"], "double", "12", ["double", "4340000000000000"]],
    [["string", ""], "char", "", null],
    [["date", "5"], "char", "", null],
    [["double", "7ff8000000000000"], "char", "", null],
    [["date", "-9223372036854775808"], "bool", "12", ["bool", true]],
    [["table", {"columns": [["a", "int"]], "rows": []}], "bool", "12", ["bool", false]],
    [["xml"], "bool", "", null],
    [["bigint", "0"], "binary", "123", ["binary", ""]],
    [["bigint", "-9223372036854775808"], "long", "123", ["long", "-9223372036854775808"]],
    [["bigint", "-9223372036854775809"], "long", "", null],
    [["bigint", "18446744073709551616"], "long", "", null],
    // 2^63: not above the limit, which is a double too. Then -2^63, 2^64, NaN, -infinity, -0.9
    [["double", "43e0000000000000"], "long", "123", ["long", "-9223372036854775808"]],
    [["double", "c3e0000000000000"], "long", "123", ["long", "-9223372036854775808"]],
    [["double", "43f0000000000000"], "long", "1", ["long", "-9223372036854775808"]],
    [["double", "7ff8000000000000"], "long", "12", ["long", "-9223372036854775808"]],
    [["double", "fff0000000000000"], "long", "1", ["long", "-9223372036854775808"]],
    [["double", "bfeccccccccccccd"], "long", "12", ["long", "0"]],
    // 2147483647.5, 2147483648, -2147483648.5, NaN, -2147483647.5
    [["double", "41dfffffffe00000"], "int", "1", ["int", 2147483647]],
    [["double", "41e0000000000000"], "int", "1", ["int", -2147483648]],
    [["double", "c1e0000000100000"], "int", "1", ["int", -2147483648]],
    [["double", "7ff8000000000000"], "int", "12", ["int", -2147483648]],
    [["double", "c1dfffffffe00000"], "int", "12", ["int", -2147483647]]
  ])")) {
    const auto modes = test[2].get<std::string>();
    for (const char mode : {'0', '1', '2', '3'}) {
      CheckConversion(test[0], test[1], mode - '0',
                      modes.find(mode) != std::string::npos ? test[3] : Json());
    }
  }
}

TEST(Conversion, CopiesThePayloadOutIfStrictAndNothingIfItFailsOtherwise) {
  std::int32_t number = 0;
  EXPECT_FALSE(GetAsInt(Value::Long(0x1'0000'0007), number, ConversionMode::kStrict));
  EXPECT_EQ(number, 7);
  EXPECT_FALSE(GetAsInt(Value::Double(3e9), number, ConversionMode::kRanged));
  EXPECT_EQ(number, 7);
  bool truth = false;
  EXPECT_FALSE(GetAsBool(Value::Char(1), truth, ConversionMode::kStrict));
  EXPECT_TRUE(truth);
  std::span<const std::byte> bytes;
  EXPECT_FALSE(GetAsBinary(Value::Long(0x1234), bytes, ConversionMode::kStrict));
  EXPECT_TRUE(reinterpret_cast<std::uintptr_t>(bytes.data()) == 0x1234 && bytes.empty());
}

TEST(Conversion, KeepsContentWithItsOwner) {
  const auto convert = [](Value& value, ValueType target) {
    EXPECT_TRUE(ConvertInPlace(value, target, ConversionMode::kUnchecked));
  };
  for (const bool is_owned : {false, true}) {
    Value text = is_owned ? Value::CopyString("abc") : Value::BorrowString("abc");
    const std::byte* const block = text.bytes().data();
    convert(text, ValueType::kBinary);
    EXPECT_EQ(text.bytes().data(), block);
    EXPECT_EQ(text.owns(), is_owned);
  }
  Value number = Value::Int(-12);
  TextView view;
  EXPECT_TRUE(AsText(number, view, TextConversion::kConvert));
  convert(number, ValueType::kString);
  EXPECT_EQ(number.text().data(), view.text.data()) << "the cached text was not handed over";
  EXPECT_TRUE(number.owns());
  Value nothing;
  convert(nothing, ValueType::kBinary);
  EXPECT_TRUE(!nothing.owns() && nothing.bytes().data() == nullptr);
  EXPECT_EQ(Value(nothing, CopyDepth::kDeep).type(), ValueType::kBinary);
  Value big = ValueOf({"bigint", "4294967298"});
  Value sharing = big;
  convert(sharing, ValueType::kBinary);
  EXPECT_EQ(static_cast<const void*>(sharing.bytes().data()), big.big_int().limbs().data());
  Value digits = big;
  convert(digits, ValueType::kString);
  convert(big, ValueType::kBinary);
  EXPECT_TRUE(big.owns());
  big.Clear();
  EXPECT_EQ(digits.text(), "4294967298") << "a text of its own outlives the number";
}

}  // namespace
}  // namespace TAVU::lumo
