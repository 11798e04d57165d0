// The total order of values. The oddities are part of the interface and marked where they stand.
#include <algorithm>
#include <bit>
#include <compare>
#include <cstring>
#include <map>
#include <utility>

#include "base/heap_allocator.h"
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

// The difference wraps around, so that numbers more than 2^31 apart compare the wrong way round:
// the order of two ints is their difference in 32 bits, and callers may use it as such.
std::int32_t CompareInts(std::int32_t a, std::int32_t b) noexcept {
  return std::bit_cast<std::int32_t>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

// What is not ordered (a NaN, the difference of two infinities) counts as greater.
std::int32_t CompareDoubles(double a, double b) noexcept {
  if (AreEqual(a, b)) return 0;
  return a - b < 0 ? -1 : 1;
}

std::int32_t CompareTexts(std::string_view a, std::string_view b) noexcept {
  const std::size_t common = std::min(a.size(), b.size());
  if (common != 0) {
    if (const int order = std::memcmp(a.data(), b.data(), common); order != 0) return order;
  }
  return Sign(a.size() <=> b.size());
}

// One comparison. To order two maps it takes to order their keys, among themselves and with each
// other, so that maps deep in nested keys come up against each other time and again, twice as often
// with each level. Their order is therefore found once and remembered.
class Comparison {
 public:
  [[nodiscard]] std::int32_t Of(const Value& a, const Value& b);

 private:
  // Pairs of maps that one comparison remembers.
  static constexpr std::size_t kMostPairs = std::size_t{1} << 20;

  using Pair = std::pair<const Map*, const Map*>;

  [[nodiscard]] std::int32_t OfLists(const List& a, const List& b);
  [[nodiscard]] std::int32_t OfMaps(const Map& a, const Map& b);
  [[nodiscard]] std::int32_t FindOrder(const Map& a, const Map& b);
  [[nodiscard]] const Map::Node* LowestDifference(const Map& map, const Map& other);

  std::map<Pair, std::int32_t, std::less<>,
           base::HeapAllocator<std::pair<const Pair, std::int32_t>>>
      known_;
};

// Lists that agree as far as the shorter goes compare by the difference of their sizes.
std::int32_t Comparison::OfLists(const List& a, const List& b) {
  const std::size_t common = std::min(a.size(), b.size());
  for (std::size_t i = 0; i < common; ++i) {
    if (const std::int32_t order = Of(a[i], b[i]); order != 0) return order;
  }
  return static_cast<std::int32_t>(a.size() - b.size());
}

// The entry with the lowest key among those that `other` lacks or has with another value.
const Map::Node* Comparison::LowestDifference(const Map& map, const Map& other) {
  const Map::Node* lowest = nullptr;
  for (const Map::Node& entry : map) {
    const Map::Node* twin = other.FindTwin(entry);
    if (twin != nullptr && AreEqual(twin->value, entry.value)) continue;
    if (lowest == nullptr || Of(entry.key, lowest->key) < 0) lowest = &entry;
  }
  return lowest;
}

// Maps with the same entries are equal in whatever order they were filled. Otherwise the smaller
// map comes first, and of two as large the one whose lowest differing key is lower. Keys that
// differ and yet compare equal (doubles within the tolerance, in different buckets) give no order:
// such maps are unequal either way round, as tables are.
std::int32_t Comparison::OfMaps(const Map& a, const Map& b) {
  if (a.size() != b.size()) return Sign(a.size() <=> b.size());
  const Pair pair(&a, &b);
  if (const auto known = known_.find(pair); known != known_.end()) return known->second;
  const std::int32_t order = FindOrder(a, b);
  if (known_.size() == kMostPairs) throw base::BadAllocation();
  known_.emplace(pair, order);
  return order;
}

std::int32_t Comparison::FindOrder(const Map& a, const Map& b) {
  const Map::Node* in_a = LowestDifference(a, b);
  if (in_a == nullptr) return 0;
  const Map::Node* in_b = LowestDifference(b, a);
  if (in_b == nullptr) return -1;  // keys of `a` are equal to one of `b`, but not to each other
  if (const std::int32_t order = Of(in_a->key, in_b->key); order != 0) return order;
  const std::int32_t order = Of(in_a->value, in_b->value);
  return order != 0 ? order : -1;
}

std::int32_t Comparison::Of(const Value& a, const Value& b) {
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
      return OfLists(a.list(), b.list());
    case ValueType::kMap:
      return OfMaps(a.map(), b.map());
    case ValueType::kTable:
      return AreEqual(a.table(), b.table()) ? 0 : -1;  // equal or not: tables have no order
    default:
      return -1;  // a type without content is not even equal to itself
  }
}

}  // namespace

std::int32_t Compare(const Value& a, const Value& b) {
  return Comparison().Of(a, b);
}

}  // namespace TAVU::lumo
