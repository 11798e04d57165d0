#include "lumo/map.h"

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace TAVU::lumo
