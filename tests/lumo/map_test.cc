#include "lumo/map.h"

#include <gtest/gtest.h>

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "lumo/hash.h"
#include "support/vectors.h"

namespace TAVU::lumo {
namespace {

using test::Json;
using test::ValueOf;

const Json& Vectors() {
  static const Json vectors = test::LoadVectors("hashes.json");
  return vectors;
}

TEST(Hash, Lookup2GivesTheReferenceHashes) {
  for (const Json& vector : Vectors()["lookup2"]) {
    EXPECT_EQ(Lookup2(test::BytesOf(vector["key"]), vector["initial"].get<std::uint32_t>()),
              vector["hash"].get<std::uint32_t>())
        << vector;
  }
}

TEST(Hash, ValuesHaveTheReferenceHashes) {
  for (const Json& vector : Vectors()["values"]) {
    EXPECT_EQ(Hash(ValueOf(vector["value"]), kInitialHash), vector["hash"].get<std::uint32_t>())
        << vector;
  }
}

std::vector<int> OrderOf(const Map& map) {
  std::vector<int> order;
  for (const Map::Node& entry : map) order.push_back(entry.value.int_value());
  return order;
}

TEST(Map, IteratesInTheReferenceOrderAndCopiesKeepIt) {
  for (const Json& vector : Vectors()["map_order"]) {
    Map map;
    int number = 0;
    for (const Json& key : vector["keys"]) map.Insert(ValueOf(key), Value::Int(number++));
    const auto order = vector["order"].get<std::vector<int>>();
    EXPECT_EQ(map.size(), vector["count"].get<std::size_t>());
    EXPECT_EQ(OrderOf(map), order);
    EXPECT_EQ(OrderOf(Map(map, CopyDepth::kDeep)), order);
    EXPECT_EQ(OrderOf(Map(map, CopyDepth::kShallow)), order);
  }
}

TEST(Map, KeepsTheFirstValueOfAKey) {
  Map map;
  EXPECT_TRUE(map.Insert(Value::CopyString("key"), Value::Int(1)));
  EXPECT_FALSE(map.Insert(Value::CopyString("key"), Value::Int(2)));
  // Equal within the tolerance of doubles, yet another key unless both fall into one bucket.
  EXPECT_TRUE(map.Insert(Value::Double(0.0), Value::Int(3)));
  EXPECT_TRUE(map.Insert(Value::Double(-0.0), Value::Int(4)));
  EXPECT_EQ(map.size(), 3u);
  ASSERT_NE(map.Find(Value::BorrowString("key")), nullptr);
  EXPECT_EQ(map.Find(Value::BorrowString("key"))->value.int_value(), 1);
  EXPECT_EQ(map.Find(Value::BorrowBinary(std::as_bytes(std::span("key", 3)))), nullptr);
  map.Clear();
  EXPECT_EQ(map.size(), 0u);
  EXPECT_EQ(map.Find(Value::BorrowString("key")), nullptr);
  EXPECT_TRUE(map.begin() == map.end());
}

TEST(Map, FindsEveryKeyOnBothSidesOfItsIndex) {
  Map map;
  for (int i = 0; i < 500; ++i) {
    ASSERT_TRUE(map.Insert(Value::Int(i), Value::Int(-i)));
    for (int j = 0; j <= i; j += 7) ASSERT_NE(map.Find(j), nullptr) << j << " of " << i;
    ASSERT_EQ(map.Find(i)->value.int_value(), -i);
    ASSERT_EQ(map.Find(i + 1), nullptr);
  }
  const Map copy(map, CopyDepth::kDeep);
  for (int i = 0; i < 500; ++i) EXPECT_EQ(copy.Find(i)->value.int_value(), -i);
}

// All tiny doubles are equal, but a key is looked for in its own bucket only: of each bucket the
// first one stays, however large the map is.
TEST(Map, HoldsEqualDoublesOncePerBucket) {
  Map map;
  std::set<std::uint32_t> buckets;
  for (int i = 0; i < 300; ++i) map.Insert(Value::Int(i), Value());
  for (int i = 1; i <= 1000; ++i) {
    const Value key = Value::Double(i * 1e-300);
    const bool is_first = buckets.insert(Hash(key, kInitialHash) % 101).second;
    EXPECT_EQ(map.Insert(key, Value::Int(i)), is_first) << i;
    EXPECT_NE(map.Find(key), nullptr);
  }
  EXPECT_EQ(map.size(), 300 + buckets.size());
}

TEST(Map, AShallowCopyOfItsValueLeavesItAlone) {
  auto owned = std::make_unique<Map>();
  for (int i = 0; i < 300; ++i) owned->Insert(Value::CopyString(std::to_string(i)), Value::Int(i));
  const std::vector<int> order = OrderOf(*owned);
  const Value original = Value::AdoptMap(std::move(owned));
  {
    const Value copy = original;  // NOLINT: the copy is the test
    EXPECT_EQ(&copy.map(), &original.map());
    const Map entries(copy.map(), CopyDepth::kShallow);
    EXPECT_EQ(entries.begin()->key.text().data(), original.map().begin()->key.text().data());
  }
  EXPECT_EQ(OrderOf(original.map()), order);
  EXPECT_EQ(original.map().Find(Value::BorrowString("299"))->value.int_value(), 299);
}

}  // namespace
}  // namespace TAVU::lumo
