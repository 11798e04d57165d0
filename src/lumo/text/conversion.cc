#include "lumo/text/conversion.h"

#include <bit>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <type_traits>
#include <utility>

#include "lumo/dates/date_time.h"
#include "lumo/text/number_text.h"
#include "lumo/text/text_view.h"
#include "lumo/text/value_text.h"
#include "lumo/value/big_int.h"
#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "lumo/value/table.h"

namespace TAVU::lumo {
namespace {

constexpr int kDoubleBits = 53;  // of a double's significand

// --- Pieces -------------------------------------------------------------------------------------

template <typename T>
bool Assign(std::optional<T> result, T& out) {
  if (result) out = std::move(*result);
  return result.has_value();
}

// A character counts as a number only when it is a decimal digit. The number is then the
// character's code, not the digit's value: '7' gives 55, as a char converted by C does.
std::optional<std::int32_t> CodeOfDigit(signed char character) noexcept {
  if (character < '0' || character > '9') return std::nullopt;
  return character;
}

std::optional<signed char> DigitOfNumber(std::int64_t number) noexcept {
  if (number < 0 || number > 9) return std::nullopt;
  return static_cast<signed char>('0' + number);
}

// Out of range and not-a-number are undefined in the language; here they are what the processor's
// own conversion gives.
template <typename Integer>
Integer Truncated(double number) noexcept {
  using Limits = std::numeric_limits<Integer>;
  const double below_first = std::ldexp(1.0, Limits::digits);  // one more than the largest
  const double whole = std::trunc(number);
  if (!(whole >= -below_first && whole < below_first)) return Limits::min();
  return static_cast<Integer>(whole);
}

// The limits are compared as doubles. The largest long is 2^63 there, one more than it is, so this
// one number passes and becomes the smallest long. So does NaN (except in kExact), because no
// comparison with it holds.
template <typename Integer>
std::optional<Integer> IntegerOfDouble(double number, ConversionMode mode) noexcept {
  using Limits = std::numeric_limits<Integer>;
  const bool is_outside =
      number < static_cast<double>(Limits::min()) || number > static_cast<double>(Limits::max());
  if (mode != ConversionMode::kUnchecked && is_outside) return std::nullopt;
  if (mode == ConversionMode::kExact && !(number == std::trunc(number))) return std::nullopt;
  return Truncated<Integer>(number);
}

template <typename Integer>
std::optional<Integer> IntegerOfLong(std::int64_t number, ConversionMode mode) noexcept {
  const auto cut = static_cast<Integer>(number);
  if (mode != ConversionMode::kUnchecked && cut != number) return std::nullopt;
  return cut;
}

std::optional<double> DoubleOfLong(std::int64_t number, ConversionMode mode) noexcept {
  const auto bits = static_cast<std::uint64_t>(number);
  const std::uint64_t magnitude = number < 0 ? 0 - bits : bits;
  // From the highest to the lowest bit that is set.
  const int span = 64 - std::countl_zero(magnitude) - std::countr_zero(magnitude);
  const bool is_exact = magnitude == 0 || span <= kDoubleBits;
  if (mode == ConversionMode::kExact && !is_exact) return std::nullopt;
  return static_cast<double>(number);
}

// What the types int and long have in common.
template <typename Integer>
std::optional<Integer> IntegerOf(const Value& value, ConversionMode mode) noexcept {
  constexpr bool kIsLong = std::is_same_v<Integer, std::int64_t>;
  switch (value.type()) {
    case ValueType::kNull:
      return 0;
    case ValueType::kBool:
      return value.byte() == 1 ? 1 : 0;
    case ValueType::kChar:
      return CodeOfDigit(value.character());
    case ValueType::kInt:
      return value.int_value();
    case ValueType::kLong:
      return IntegerOfLong<Integer>(value.long_value(), mode);
    case ValueType::kDouble:
      return IntegerOfDouble<Integer>(value.double_value(), mode);
    case ValueType::kDate:
      return IntegerOfLong<Integer>(value.date_value(), mode);
    case ValueType::kString:
      if constexpr (kIsLong) {
        return ParseLong(value.text());
      } else {
        return ParseInt(value.text());
      }
    case ValueType::kBigInt:
      if constexpr (kIsLong) {
        return value.big_int().ToInt64();
      } else {
        return value.big_int().ToInt32();
      }
    default:
      return std::nullopt;
  }
}

std::optional<double> DoubleOf(const Value& value, ConversionMode mode) noexcept {
  switch (value.type()) {
    case ValueType::kNull:
      return 0.0;
    case ValueType::kBool:
      return value.byte() == 1 ? 1.0 : 0.0;
    case ValueType::kChar:
      return CodeOfDigit(value.character());
    case ValueType::kInt:
      return value.int_value();
    case ValueType::kLong:
      return DoubleOfLong(value.long_value(), mode);
    case ValueType::kString:
      return ParseDouble(value.text());
    case ValueType::kBigInt: {
      const std::optional<std::int64_t> number = value.big_int().ToInt64();
      return number ? DoubleOfLong(*number, mode) : std::nullopt;
    }
    default:  // a date is no number of anything
      return std::nullopt;
  }
}

std::optional<signed char> CharOf(const Value& value, ConversionMode mode) noexcept {
  const bool must_be_exact = mode == ConversionMode::kExact;
  switch (value.type()) {
    case ValueType::kNull:
      return 0;
    case ValueType::kBool:
      if (must_be_exact) return std::nullopt;
      return value.byte() == 1 ? 'T' : 0;
    case ValueType::kInt:
      return DigitOfNumber(value.int_value());
    case ValueType::kLong:
      return DigitOfNumber(value.long_value());
    case ValueType::kDouble: {
      const double number = value.double_value();
      if (!(number >= 0 && number < 10)) return std::nullopt;
      if (must_be_exact && number != std::trunc(number)) return std::nullopt;
      return DigitOfNumber(static_cast<std::int64_t>(number));
    }
    case ValueType::kString:
      if (value.text().empty() || (must_be_exact && value.text().size() != 1)) return std::nullopt;
      return static_cast<signed char>(value.text().front());
    case ValueType::kBigInt: {
      const std::optional<std::int64_t> number = value.big_int().ToInt64();
      return number ? DigitOfNumber(*number) : std::nullopt;
    }
    default:
      return std::nullopt;
  }
}

std::optional<bool> BoolOf(const Value& value, ConversionMode mode) noexcept {
  const bool is_null = value.IsNull();
  if (mode == ConversionMode::kExact) return is_null ? std::optional(false) : std::nullopt;
  switch (value.type()) {
    case ValueType::kChar:
      return value.character() != 0;
    case ValueType::kInt:
      return value.int_value() != 0;
    case ValueType::kLong:
      return value.long_value() != 0;
    case ValueType::kDouble:
      return value.double_value() != 0;  // true of a number that is none
    case ValueType::kDate:
      return value.date_value() != 0;
    case ValueType::kString:
    case ValueType::kBinary:
      return !value.bytes().empty();  // any text is true, even "false": only emptiness counts
    case ValueType::kBigInt:
      return value.big_int().sign() != 0;
    case ValueType::kList:
      return value.list().size() != 0;
    case ValueType::kMap:
      return value.map().size() != 0;
    case ValueType::kTable:
      return value.table().row_count() != 0;
    default:  // null too: only kExact takes it
      return std::nullopt;
  }
}

std::optional<std::int64_t> DateOf(const Value& value) noexcept {
  if (value.type() == ValueType::kLong) return value.long_value();
  if (value.type() != ValueType::kString) return std::nullopt;
  DateTime moment;
  if (!moment.Parse(value.text(), DateFormat::kIso8601, LocalZoneOffset())) return std::nullopt;
  return moment.ToDate();
}

// The rule of kStrict, and of a value that has the type already.
template <typename T>
std::optional<bool> Unconverted(const Value& value, ValueType type, T& out,
                                ConversionMode mode) noexcept {
  const bool has_type = value.type() == type;
  if (!has_type && mode != ConversionMode::kStrict) return std::nullopt;
  out = ValueTextAccess::Payload<T>(value);
  return has_type;
}

// --- In place -----------------------------------------------------------------------------------

template <typename T>
bool Replace(Value& value, bool (*get)(const Value&, T&, ConversionMode) noexcept,
             Value (*make)(T) noexcept, ConversionMode mode) noexcept {
  T result{};
  if (!get(value, result, mode)) return false;
  value = make(result);
  return true;
}

bool ConvertToNull(Value& value, ConversionMode mode) noexcept {
  if (mode == ConversionMode::kExact) return false;
  value.Clear();
  return true;
}

bool ConvertToString(Value& value, ConversionMode mode) {
  const bool may_convert = mode != ConversionMode::kStrict;
  TextView view;
  if (!AsText(value, view, may_convert ? TextConversion::kConvert : TextConversion::kNone)) {
    return false;
  }
  if (view.cached) {
    value = Value::AdoptBytes(ValueType::kString, ValueTextAccess::DetachCache(value),
                              view.text.size());
  } else if (view.raw) {
    value = Value::CopyString(view.text);
  } else {
    value = Value::BorrowString(view.text);  // of null and bool: static texts
  }
  return true;
}

bool ConvertToBinary(Value& value, ConversionMode mode) {
  std::span<const std::byte> bytes;
  if (!GetAsBinary(value, bytes, mode)) return false;
  if (value.type() == ValueType::kString || value.IsNull()) {
    if (value.IsNull()) value.Clear();  // of a text cache, which would be taken for a binary's
    ValueTextAccess::MakeBinary(value);
    return true;
  }
  // That of a big integer which is zero has a pointer all the same: without, it would be null.
  static constexpr std::byte kNothing[1] = {};
  if (bytes.empty()) bytes = {kNothing, 0};
  // The bytes of a number that the value owns are copied, because they go with the number.
  value = value.owns() ? Value::CopyBinary(bytes) : Value::BorrowBinary(bytes);
  return true;
}

bool ConvertToBigInt(Value& value, ConversionMode mode) {
  auto number = std::make_unique<BigInt>();
  if (!GetAsBigInt(value, *number, mode)) return false;
  value = Value::AdoptBigInt(std::move(number));
  return true;
}

}  // namespace

bool GetAsBool(const Value& value, bool& out, ConversionMode mode) noexcept {
  std::uint8_t byte = 0;
  if (const auto result = Unconverted(value, ValueType::kBool, byte, mode)) {
    out = byte == 1;
    return *result;
  }
  return Assign(BoolOf(value, mode), out);
}

bool GetAsChar(const Value& value, signed char& out, ConversionMode mode) noexcept {
  if (const auto result = Unconverted(value, ValueType::kChar, out, mode)) return *result;
  return Assign(CharOf(value, mode), out);
}

bool GetAsInt(const Value& value, std::int32_t& out, ConversionMode mode) noexcept {
  if (const auto result = Unconverted(value, ValueType::kInt, out, mode)) return *result;
  return Assign(IntegerOf<std::int32_t>(value, mode), out);
}

bool GetAsLong(const Value& value, std::int64_t& out, ConversionMode mode) noexcept {
  if (const auto result = Unconverted(value, ValueType::kLong, out, mode)) return *result;
  return Assign(IntegerOf<std::int64_t>(value, mode), out);
}

bool GetAsDouble(const Value& value, double& out, ConversionMode mode) noexcept {
  if (const auto result = Unconverted(value, ValueType::kDouble, out, mode)) return *result;
  return Assign(DoubleOf(value, mode), out);
}

bool GetAsDate(const Value& value, std::int64_t& out, ConversionMode mode) noexcept {
  if (const auto result = Unconverted(value, ValueType::kDate, out, mode)) return *result;
  return Assign(DateOf(value), out);
}

bool GetAsBinary(const Value& value, std::span<const std::byte>& out,
                 ConversionMode mode) noexcept {
  const ValueType type = value.type();
  if (type == ValueType::kBinary || mode == ConversionMode::kStrict) {
    out = value.bytes();  // a pointer and a length, of whatever
    return type == ValueType::kBinary;
  }
  if (type == ValueType::kNull) {
    out = {};
  } else if (type == ValueType::kString) {
    out = value.bytes();
  } else if (type == ValueType::kBigInt) {
    out = std::as_bytes(std::span(value.big_int().limbs()));
  } else {
    return false;
  }
  return true;
}

bool GetAsBigInt(const Value& value, BigInt& out, ConversionMode mode) {
  const ValueType type = value.type();
  if (type == ValueType::kBigInt) {
    out = value.big_int();
    return true;
  }
  if (mode == ConversionMode::kStrict) return false;
  if (type == ValueType::kInt) {
    out = BigInt(value.int_value());
  } else if (type == ValueType::kLong) {
    out = BigInt(value.long_value());
  } else if (type == ValueType::kString) {
    return Assign(BigInt::FromDecimal(value.text()), out);
  } else {
    return false;
  }
  return true;
}

bool ConvertInPlace(Value& value, ValueType target, ConversionMode mode) {
  if (value.type() == target) return true;
  switch (target) {
    case ValueType::kNull:
      return ConvertToNull(value, mode);
    case ValueType::kBool:
      return Replace(value, GetAsBool, Value::Bool, mode);
    case ValueType::kChar:
      return Replace(value, GetAsChar, Value::Char, mode);
    case ValueType::kInt:
      return Replace(value, GetAsInt, Value::Int, mode);
    case ValueType::kLong:
      return Replace(value, GetAsLong, Value::Long, mode);
    case ValueType::kDouble:
      return Replace(value, GetAsDouble, Value::Double, mode);
    case ValueType::kDate:
      return Replace(value, GetAsDate, Value::Date, mode);
    case ValueType::kString:
      return ConvertToString(value, mode);
    case ValueType::kBinary:
      return ConvertToBinary(value, mode);
    case ValueType::kBigInt:
      return ConvertToBigInt(value, mode);
    default:  // containers and the types without content are not converted to
      return false;
  }
}

}  // namespace TAVU::lumo
