#include "lumo/value/value_equality.h"

#include <algorithm>

#include "lumo/value/big_int.h"
#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "lumo/value/table.h"

namespace TAVU::lumo {

namespace {

bool AreEqual(const List& a, const List& b) noexcept {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (!lumo::AreEqual(a[i], b[i])) return false;
  }
  return true;
}

bool AreEqual(const BigInt& a, const BigInt& b) noexcept {
  return a.sign() == b.sign() && a.limbs() == b.limbs();
}

}  // namespace

// In whatever order they were filled. With as many entries it is enough to look from one side: to
// look from both at every level would double the work with each.
bool AreEqual(const Map& a, const Map& b) noexcept {
  if (a.size() != b.size()) return false;
  for (const Map::Node& entry : a) {
    const Map::Node* twin = b.FindTwin(entry);
    if (twin == nullptr || !AreEqual(entry.value, twin->value)) return false;
  }
  return true;
}

bool AreEqual(const Table& a, const Table& b) noexcept {
  if (a.column_count() != b.column_count() || a.row_count() != b.row_count()) return false;
  for (std::size_t i = 0; i < a.column_count(); ++i) {
    if (a.column(i).name != b.column(i).name || a.column(i).type != b.column(i).type) return false;
  }
  for (std::size_t i = 0; i < a.row_count(); ++i) {
    if (!AreEqual(a.row(i), b.row(i))) return false;
  }
  return true;
}

bool AreEqualOfOneType(const Value& a, const Value& b) noexcept {
  switch (a.type()) {
    case ValueType::kNull:
      return true;
    case ValueType::kBool:
    case ValueType::kChar:
      return a.byte() == b.byte();
    case ValueType::kInt:
      return a.int_value() == b.int_value();
    case ValueType::kLong:
    case ValueType::kDate:
      return a.long_value() == b.long_value();
    case ValueType::kDouble:
      return AreEqual(a.double_value(), b.double_value());
    case ValueType::kString:
    case ValueType::kBinary:
      return a.text() == b.text();
    case ValueType::kBigInt:
      return AreEqual(a.big_int(), b.big_int());
    case ValueType::kList:
      return AreEqual(a.list(), b.list());
    case ValueType::kMap:
      return AreEqual(a.map(), b.map());
    case ValueType::kTable:
      return AreEqual(a.table(), b.table());
    default:
      return false;  // a type without content is not even equal to itself
  }
}

}  // namespace TAVU::lumo
