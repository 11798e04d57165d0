// Whether two values are equal: exactly when Compare gives 0, but without the order, which costs
// more. Equality costs at most the product of the two sizes, however the values are nested.
#pragma once

#include <cfloat>
#include <cmath>
#include <cstring>

#include "lumo/value/value.h"

namespace TAVU::lumo {

// The tolerance is absolute, so that all tiny numbers are equal. What has no difference (a NaN, two
// infinities) is not even equal to itself.
[[nodiscard]] inline bool AreEqual(double a, double b) noexcept {
  return std::fabs(a - b) < DBL_EPSILON;
}

[[nodiscard]] bool AreEqual(const Map& a, const Map& b) noexcept;
[[nodiscard]] bool AreEqual(const Table& a, const Table& b) noexcept;

// The same for values of one type.
[[nodiscard]] bool AreEqualOfOneType(const Value& a, const Value& b) noexcept;

// With a short way for the common types of a map's keys.
[[nodiscard]] inline bool AreEqual(const Value& a, const Value& b) noexcept {
  if (a.type() != b.type()) return false;
  if (a.type() == ValueType::kInt) return a.int_value() == b.int_value();
  if (a.type() == ValueType::kString) return a.text() == b.text();
  return AreEqualOfOneType(a, b);
}

}  // namespace TAVU::lumo
