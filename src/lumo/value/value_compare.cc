// The total order of values. The oddities are part of the interface and marked where they stand.
#include <algorithm>
#include <bit>
#include <cfloat>
#include <cmath>
#include <compare>
#include <cstring>

#include "lumo/value/big_int.h"
#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "lumo/value/table.h"
#include "lumo/value/value.h"
#include "lumo/value/value_equality.h"

namespace TAVU::lumo {

namespace {

std::int32_t Sign(std::strong_ordering order) noexcept {
  return std::is_lt(order) ? -1 : std::is_gt(order) ? 1 : 0;
}

// Required: the difference wraps around, so that numbers far apart compare the wrong way.
std::int32_t CompareInts(std::int32_t a, std::int32_t b) noexcept {
  return std::bit_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

// Required: the tolerance is absolute, so that all tiny numbers are equal, and what is not ordered
// (a NaN, the difference of two infinities) counts as greater.
std::int32_t CompareDoubles(double a, double b) noexcept {
  const double difference = a - b;
  if (std::fabs(difference) < DBL_EPSILON) return 0;
  return difference < 0 ? -1 : 1;
}

std::int32_t CompareTexts(std::string_view a, std::string_view b) noexcept {
  const std::size_t common = std::min(a.size(), b.size());
  if (common != 0) {
    if (const int order = std::memcmp(a.data(), b.data(), common); order != 0) return order;
  }
  return Sign(a.size() <=> b.size());
}

std::int32_t CompareLists(const List& a, const List& b) {
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    if (const std::int32_t order = Compare(a[i], b[i]); order != 0) return order;
  }
  return Sign(a.size() <=> b.size());
}

// The entry with the lowest key among those that `other` lacks or has with another value.
const Map::Node* LowestDifference(const Map& map, const Map& other) {
  const Map::Node* lowest = nullptr;
  for (const Map::Node& entry : map) {
    const Map::Node* twin = other.Find(entry.key);
    if (twin != nullptr && AreEqual(twin->value, entry.value)) continue;
    if (lowest == nullptr || Compare(entry.key, lowest->key) < 0) lowest = &entry;
  }
  return lowest;
}

// Maps with the same entries are equal in whatever order they were filled. Otherwise the smaller
// map comes first, and of two as large the one whose lowest differing key is lower.
std::int32_t CompareMaps(const Map& a, const Map& b) {
  if (a.size() != b.size()) return Sign(a.size() <=> b.size());
  const Map::Node* in_a = LowestDifference(a, b);
  const Map::Node* in_b = LowestDifference(b, a);
  if (in_a == nullptr || in_b == nullptr) return in_a == in_b ? 0 : in_a == nullptr ? 1 : -1;
  const std::int32_t order = Compare(in_a->key, in_b->key);
  return order != 0 ? order : Compare(in_a->value, in_b->value);
}

bool AreEqualTables(const Table& a, const Table& b) {
  if (a.column_count() != b.column_count() || a.row_count() != b.row_count()) return false;
  for (std::size_t i = 0; i < a.column_count(); ++i) {
    if (a.column(i).name != b.column(i).name || a.column(i).type != b.column(i).type) return false;
  }
  for (std::size_t i = 0; i < a.row_count(); ++i) {
    if (CompareLists(a.row(i), b.row(i)) != 0) return false;
  }
  return true;
}

}  // namespace

std::int32_t Compare(const Value& a, const Value& b) {
  if (a.type() != b.type()) {
    return static_cast<std::int32_t>(a.type()) - static_cast<std::int32_t>(b.type());
  }
  switch (a.type()) {
    case ValueType::kNull:
      return 0;
    case ValueType::kBool:
      return a.byte() - b.byte();
    case ValueType::kChar:
      return a.character() - b.character();
    case ValueType::kInt:
      return CompareInts(a.int_value(), b.int_value());
    case ValueType::kLong:
    case ValueType::kDate:
      return Sign(a.long_value() <=> b.long_value());
    case ValueType::kDouble:
      return CompareDoubles(a.double_value(), b.double_value());
    case ValueType::kString:
    case ValueType::kBinary:
      return CompareTexts(a.text(), b.text());
    case ValueType::kBigInt:
      return a.big_int().Minus(b.big_int()).sign();
    case ValueType::kList:
      return CompareLists(a.list(), b.list());
    case ValueType::kMap:
      return CompareMaps(a.map(), b.map());
    case ValueType::kTable:
      // Required: tables are equal or not, they have no order.
      return AreEqualTables(a.table(), b.table()) ? 0 : -1;
    default:
      return -1;  // required: a type without content is not even equal to itself
  }
}

}  // namespace TAVU::lumo
