// Values, what they contain, and who frees it.
#include "lumo/value/value.h"

#include <set>

#include "lumo/codec/codec.h"
#include "lumo/codec/memory_reader.h"
#include "lumo/reference.h"
#include "lumo/value/big_int.h"
#include "lumo/value/hash.h"
#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "lumo/value/table.h"
#include "lumo/value/value_equality.h"

namespace TAVU::lumo {
namespace {

TEST(ValueType, NamesAndTagsMatchTheReference) {
  for (const Json& vector : Vectors("values.json", "type_names"))
    EXPECT_EQ(TypeName(ValueType{vector["tag"].get<std::uint8_t>()}), vector["name"]);
  for (const Json& vector : Vectors("values.json", "type_tags"))
    EXPECT_EQ(TypeFromName(vector["name"].get<std::string>()), ValueType{vector["tag"]}) << vector;
  const char* const no_text = nullptr;
  EXPECT_EQ(TypeFromName(no_text), ValueType::kNull);
  EXPECT_TRUE(Value::BorrowString(no_text).IsNull() && Value::CopyString(no_text).IsNull());
}

int SignOf(const Json& a, const Json& b) {
  const std::int32_t order = Compare(ValueOf(a), ValueOf(b));
  return (order > 0) - (order < 0);
}

TEST(Value, ComparesAsTheReferenceAndBeyondIt) {
  for (const Json& vector : Vectors("values.json", "compare"))
    EXPECT_EQ(SignOf(vector["a"], vector["b"]), vector["sign"]) << vector;
  const Json in_order = Cases(R"([
    // Fewer entries first, then the lowest key that differs, then its value.
    ["map", [[["int", 1], ["int", 7]]]], ["map", [[["int", 1], ["int", 8]]]],
    ["map", [[["int", 9], ["null"]]]],
    ["map", [[["int", 3], ["null"]], [["int", 1], ["null"]]]],
    ["map", [[["int", 1], ["null"]], [["int", 5], ["null"]]]]
  ])");
  const auto nulls = [](int count) {
    List list;
    while (count-- > 0) list.AppendNull();
    return Value::CopyList(list);
  };
  EXPECT_EQ(Compare(nulls(5), nulls(2)), 3) << "lists by the difference of their sizes";
  const Json without_order = Cases(R"([
    ["table", {"columns": [["a", "int"]], "rows": []}],
    ["table", {"columns": [["a", "long"]], "rows": []}],
    ["table", {"columns": [["b", "int"]], "rows": []}],
    ["table", {"columns": [["a", "int"]], "rows": [[]]}],
    ["table", {"columns": [["a", "int"]], "rows": [[["int", 1]]]}],
    ["table", {"columns": [["a", "int"]], "rows": [[["int", 2]]]}]
  ])");
  for (const Json& a : in_order) {
    for (const Json& b : in_order) EXPECT_EQ(SignOf(a, b), (&a > &b) - (&a < &b)) << a << b;
  }
  for (const Json& a : without_order) {
    for (const Json& b : without_order) EXPECT_EQ(SignOf(a, b), a == b ? 0 : -1) << a << b;
  }
  const Json xml = {"xml"};
  EXPECT_EQ(SignOf(xml, xml), -1) << "what has no content is not even equal to itself";
}

TEST(Value, CopiesStandAloneAndBorrowersPointAtTheirSource) {
  EXPECT_TRUE(Value::BorrowString({}).IsNull() && Value::CopyString({}).IsNull());
  EXPECT_TRUE(Value::BorrowBinary({}).IsNull() && Value::CopyBinary({}).IsNull());
  EXPECT_EQ(Value::CopyString("").type(), ValueType::kString);
  const std::string text("a\0b", 3);
  const Value borrowed = Value::BorrowString(text);
  EXPECT_EQ(borrowed.text().data(), text.data());
  const Value owned = Value::CopyString(text);
  EXPECT_EQ(owned.text(), text);
  EXPECT_EQ(owned.text().data()[3], '\0');  // after the content, not counted
  const Value shallow = owned;              // NOLINT: the copy is the test
  EXPECT_EQ(shallow.text().data(), owned.text().data());
  EXPECT_TRUE(owned.owns() && !borrowed.owns() && !shallow.owns());
}

// The source, and what a deep copy makes of it.
TEST(Value, DeepCopiesAreEqualButForBigIntegers) {
  for (const Json& test : Cases(R"([
    [["bigint", "5"], ["null"]],
    [["map", [[["bigint", "5"], ["int", 1]], [["list", [["bigint", "6"]]], ["int", 2]]]],
     ["map", [[["null"], ["int", 1]], [["list", [["null"]]], ["int", 2]]]]],
    [["int", -7]], [["string", "text"]], [["binary", "00ff"]],
    [["list", [["bigint", "5"], ["int", 1]]], ["list", [["null"], ["int", 1]]]],
    [["map", [[["string", "k"], ["list", [["string", "v"]]]]]]],
    [["table", {"columns": [["c", "map"]], "rows": [[["string", "x"]], []]}]]
  ])")) {
    Value original = ValueOf(test.front());
    const Value copy(Value(original), CopyDepth::kDeep);
    original.Clear();  // a copy that still borrowed would now refer to freed memory
    EXPECT_EQ(Compare(copy, ValueOf(test.back())), 0) << test;
    EXPECT_EQ(copy.owns(), IsOwningType(copy.type())) << test;
  }
}

TEST(Value, AssignmentSurvivesItsOwnContent) {
  Value value = ValueOf(Cases(R"(["list", [["string", "inner"], ["int", 4]]])"));
  Value& same = value;
  value = same;
  value = std::move(same);
  ASSERT_EQ(value.list().size(), 2u);
  value = std::move(const_cast<Value&>(value.list()[0]));
  const Value taken(std::move(value));
  EXPECT_TRUE(taken.owns() && taken.text() == "inner");
  EXPECT_TRUE(value.IsNull() && !value.owns());  // NOLINT: what a move leaves behind is the test
  for (const ValueType type : {ValueType::kLong, ValueType::kEnd, ValueType::kTable}) {
    value = Value::CopyString("before");
    value.Reset(type);  // needs no content, except for the table
    EXPECT_EQ(value.type(), type == ValueType::kTable ? ValueType::kNull : type);
    EXPECT_TRUE(value.long_value() == 0 && !value.owns());
  }
}

TEST(Value, DestroysDeepNestingOnAFlatStack) {
  Value value;
  for (int i = 0; i < 40'000; ++i) {
    auto list = std::make_unique<List>();
    list->Append(std::move(value));
    auto table = std::make_unique<Table>();
    table->AddRow().Append(Value::AdoptList(std::move(list)));
    auto map = std::make_unique<Map>();
    map->Insert(Value(), Value::AdoptTable(std::move(table)));
    value = Value::AdoptMap(std::move(map));
    // A level of keys hashes all levels below.
    if (i >= 300) continue;
    map = std::make_unique<Map>();
    map->Insert(std::move(value), Value());
    value = Value::AdoptMap(std::move(map));
  }
  EXPECT_TRUE(value.owns());
}

TEST(Table, AccessOutOfRangeGivesDefaults) {
  Table table;
  table.AddColumn("c", ValueType::kInt);
  table.AddRow().Append(Value::Int(7));
  for (const std::size_t index : {std::size_t{1}, SIZE_MAX}) {
    EXPECT_EQ(table.column(index).type, ValueType::kNull);
    EXPECT_TRUE(table.row(index).empty());
    EXPECT_TRUE(table.cell(index, 0).IsNull() && table.cell(0, index).IsNull());
  }
}

TEST(BigInt, ReadsWritesAndSubtracts) {
  for (const Json& vector : Vectors("texts.json", "bigint_text")) {
    const auto limbs = vector["limbs"].get<BigInt::Limbs>();
    EXPECT_EQ(BigInt(vector["sign"], limbs).ToDecimal(), vector["text"]);
    const auto parsed = BigInt::FromDecimal(vector["text"].get<std::string>());
    EXPECT_TRUE(parsed && parsed->limbs() == limbs && parsed->sign() == vector["sign"]) << vector;
  }
  for (const char* text : {"", "-", "+", " 1", "1 ", "--1", "0x1", "1.0"}) {
    EXPECT_FALSE(BigInt::FromDecimal(text)) << text;
  }
  const auto number = [](const Json& text) {
    return *BigInt::FromDecimal(text.get<std::string>());
  };
  for (const Json& test : Cases(R"([
    ["5", "5", "0"], ["+5", "-0", "5"], ["0", "5", "-5"], ["-5", "-7", "2"], ["7", "-5", "12"],
    ["-7", "5", "-12"], ["4294967296", "1", "4294967295"],
    ["1", "18446744073709551616", "-18446744073709551615"],
    ["18446744073709551615", "-1", "18446744073709551616"],
    ["-18446744073709551616", "-18446744073709551616", "0"]
  ])")) {
    EXPECT_EQ(number(test[0]).Minus(number(test[1])).ToDecimal(), test[2]) << test;
  }
}

TEST(Hash, GivesTheReferenceHashes) {
  for (const Json& vector : Vectors("hashes.json", "lookup2"))
    EXPECT_EQ(Lookup2(BytesOf(vector["key"]), vector["initial"]), vector["hash"]) << vector;
  for (const Json& vector : Vectors("hashes.json", "values"))
    EXPECT_EQ(Hash(ValueOf(vector["value"]), kInitialHash), vector["hash"]) << vector;
}

std::vector<int> OrderOf(const Map& map) {
  std::vector<int> order;
  for (const Map::Node& entry : map) order.push_back(entry.value.int_value());
  return order;
}

TEST(Map, IteratesInTheReferenceOrderAndCopiesKeepIt) {
  for (const Json& vector : Vectors("hashes.json", "map_order")) {
    auto owned = std::make_unique<Map>();
    int number = 0;
    for (const Json& key : vector["keys"]) owned->Insert(ValueOf(key), Value::Int(number++));
    EXPECT_EQ(owned->size(), vector["count"].get<std::size_t>());
    const Value original = Value::AdoptMap(std::move(owned));
    const auto order = vector["order"].get<std::vector<int>>();
    EXPECT_EQ(OrderOf(Map(original.map(), CopyDepth::kDeep)), order);
    EXPECT_EQ(OrderOf(Map(original.map(), CopyDepth::kShallow)), order);
    EXPECT_EQ(OrderOf(original.map()), order);  // what the copies borrowed is still there
  }
}

TEST(Map, SortsInAnewWhatADeepCopyOfItsKeysHasChanged) {
  const auto pair = [](int i, const Json& second) {
    return ValueOf(Json::array({"list", Json::array({Json::array({"int", i}), second})}));
  };
  const auto big = [](int i) { return Json::array({"bigint", std::to_string(i)}); };
  Map map;
  for (int i = 0; i < 100; ++i) {
    map.Insert(ValueOf(big(i)), Value::Int(i));
    map.Insert(pair(i, big(7)), Value::Int(i));
  }
  const Map copy(map, CopyDepth::kDeep);
  EXPECT_EQ(copy.size(), 101u) << "all big integers have become one null";
  EXPECT_NE(copy.Find(Value()), nullptr);
  for (int i = 0; i < 100; ++i) {
    const Map::Node* entry = copy.Find(pair(i, Json::array({"null"})));
    EXPECT_TRUE(entry != nullptr && entry->value.int_value() == i);
  }
}

// Each level could be compared twice with each of its own: 2^400 comparisons, or 3^400.
TEST(Value, ComparesNestedKeysAtOnce) {
  for (const auto& [open, close] : {std::pair("4d", "4e7a"), {"4d56", "7a4e7a"}}) {
    const auto nested = [open = open, close = close](const char* core) {
      const Json json = {{"repeat", open, 400}, core, {"repeat", close, 400}};
      const std::vector<std::byte> bytes = BytesOf(json);
      MemoryReader reader(bytes);
      Value value;
      EXPECT_TRUE(ReadValue(reader, value));
      return value;
    };
    EXPECT_TRUE(AreEqual(nested("54"), nested("54")) && !AreEqual(nested("54"), nested("46")));
    EXPECT_EQ(Compare(nested("54"), nested("54")), 0);
    EXPECT_LT(Compare(nested("46"), nested("54")), 0);
    EXPECT_GT(Compare(nested("54"), nested("46")), 0);
  }
  // The low key is compared with others in each map, and is the key in which the next ones differ.
  const auto low = [](int core) {
    Value value = Value::Int(core);
    for (int i = 0; i < 40; ++i) {
      auto other = std::make_unique<Map>();
      other->Insert(Value::Int(1), Value::Int(2));
      other->Insert(Value::Int(2), Value::Int(2));
      auto map = std::make_unique<Map>();
      map->Insert(std::move(value), Value::Int(0));
      map->Insert(Value::AdoptMap(std::move(other)), Value::Int(core));
      value = Value::AdoptMap(std::move(map));
    }
    return value;
  };
  EXPECT_LT(Compare(low(1), low(2)), 0);
}

TEST(Map, FindsEveryKeyOnBothSidesOfItsIndex) {
  Map map;
  for (int i = 0; i < 500; ++i) {
    ASSERT_TRUE(map.Insert(Value::Int(i), Value::Int(-i)));
    ASSERT_FALSE(map.Insert(Value::Int(i / 2), Value())) << "the first value of a key stays";
    for (int j = 0; j <= i; j += 7) ASSERT_EQ(map.Find(j)->value.int_value(), -j) << i;
    ASSERT_EQ(map.Find(i + 1), nullptr);
  }
  const Map copy(map, CopyDepth::kDeep);
  for (int i = 0; i < 500; ++i) EXPECT_EQ(copy.Find(i)->value.int_value(), -i);
  map.Clear();
  EXPECT_TRUE(map.size() == 0 && map.begin() == map.end() && map.Find(7) == nullptr);
  EXPECT_TRUE(map.Insert(Value::CopyString("key"), Value::Int(1)));
  EXPECT_NE(map.Find(Value::BorrowString("key")), nullptr);
  EXPECT_EQ(map.Find(Value::BorrowBinary(std::as_bytes(std::span("key", 3)))), nullptr);
}

// All tiny doubles are equal, but a key is looked for in its own bucket only: of each bucket the
// first one stays, whether the map has an index yet or not.
TEST(Map, HoldsEqualDoublesOncePerBucket) {
  Map map;
  std::set<std::uint32_t> buckets;
  for (int i = 1; i <= 1000; ++i) {
    const Value key = Value::Double(i * 1e-300);
    const bool is_first = buckets.insert(Hash(key, kInitialHash) % 101).second;
    EXPECT_EQ(map.Insert(key, Value::Int(i)), is_first) << i;
    EXPECT_NE(map.Find(key), nullptr);
  }
  EXPECT_EQ(map.size(), buckets.size());
  // Between maps such keys are different keys, though they compare equal.
  const auto tiny = [](double key, int five) {
    auto entries = std::make_unique<Map>();
    entries->Insert(Value::Double(key), Value::Int(1));
    entries->Insert(Value::Double(5.0), Value::Int(five));
    return Value::AdoptMap(std::move(entries));
  };
  EXPECT_NE(Compare(tiny(1e-300, 1), tiny(2e-300, 2)), 0);
  EXPECT_EQ(Compare(tiny(1e-300, 1), tiny(1e-300, 1)), 0);
}

}  // namespace
}  // namespace TAVU::lumo
