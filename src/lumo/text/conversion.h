// Conversions between the types of values.
//
// Each GetAs… returns whether `value` could be seen as the type. On failure `out` is left alone,
// except with kStrict, which always copies the payload out as it is, whatever its type; only the
// result tells whether that meant anything. (A big number is an object of its own and no part of
// the payload: of a value that is none, there is none to copy.) Only exhausted memory throws.
//
// Which type goes to which, with its rules and oddities, stands at each case in
// conversion.cc.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "lumo/value/value.h"

namespace TAVU::lumo {

class BigInt;

enum class ConversionMode {
  // No conversion: the value must have the type.
  kStrict = 0,
  // Numbers are cut to size: integers to their low bits; a double loses its fraction, and one that
  // does not fit, or is no number, becomes the smallest integer, as x86-64 processors have it.
  kUnchecked = 1,
  // As kUnchecked, but a number outside of the range fails.
  kRanged = 2,
  // As kRanged, but a double with a fraction, or that is no number, fails too.
  kExact = 3,
};

[[nodiscard]] bool GetAsBool(const Value& value, bool& out, ConversionMode mode) noexcept;
[[nodiscard]] bool GetAsChar(const Value& value, signed char& out, ConversionMode mode) noexcept;
[[nodiscard]] bool GetAsInt(const Value& value, std::int32_t& out, ConversionMode mode) noexcept;
[[nodiscard]] bool GetAsLong(const Value& value, std::int64_t& out, ConversionMode mode) noexcept;
[[nodiscard]] bool GetAsDouble(const Value& value, double& out, ConversionMode mode) noexcept;
// Milliseconds since 1970. A text without a zone is read in the local one.
[[nodiscard]] bool GetAsDate(const Value& value, std::int64_t& out, ConversionMode mode) noexcept;
// Borrowed from the value; null and 0 bytes for a null value.
[[nodiscard]] bool GetAsBinary(const Value& value, std::span<const std::byte>& out,
                               ConversionMode mode) noexcept;
[[nodiscard]] bool GetAsBigInt(const Value& value, BigInt& out, ConversionMode mode);

// Gives `value` the type `target`, which is one of the tags 1 to 10; true at once for the type that
// it has already. False, and the value stays as it was, where there is no conversion. Content that
// can stay the same does, with its ownership.
[[nodiscard]] bool ConvertInPlace(Value& value, ValueType target, ConversionMode mode);

}  // namespace TAVU::lumo
