// Equality as Compare has it, with a short way for the common types of a map's keys.
#pragma once

#include <cstring>

#include "lumo/value/value.h"

namespace TAVU::lumo {

[[nodiscard]] inline bool AreEqual(const Value& a, const Value& b) {
  if (a.type() != b.type()) return false;
  if (a.type() == ValueType::kInt) return a.int_value() == b.int_value();
  if (a.type() == ValueType::kString) return a.text() == b.text();
  return Compare(a, b) == 0;
}

}  // namespace TAVU::lumo
