#include "lumo/value.h"

#include <gtest/gtest.h>

#include <string>
#include <utility>

#include "lumo/big_int.h"
#include "lumo/list.h"
#include "lumo/map.h"
#include "lumo/release_pool.h"
#include "lumo/table.h"
#include "support/vectors.h"

namespace TAVU::lumo {
namespace {

using test::Json;
using test::LoadVectors;
using test::ValueOf;

int SignOf(std::int32_t order) {
  return order < 0 ? -1 : order > 0 ? 1 : 0;
}

TEST(ValueType, NamesAndTagsMatchTheReference) {
  const Json vectors = LoadVectors("values.json");
  for (const Json& vector : vectors["type_names"]) {
    EXPECT_EQ(TypeName(static_cast<ValueType>(vector["tag"].get<int>())), vector["name"]);
  }
  for (const Json& vector : vectors["type_tags"]) {
    EXPECT_EQ(static_cast<int>(TypeFromName(vector["name"].get<std::string>())), vector["tag"])
        << vector;
  }
  EXPECT_EQ(TypeFromName({}), ValueType::kNull);
}

TEST(Value, ComparesAsTheReference) {
  const Json vectors = LoadVectors("values.json");
  for (const Json& vector : vectors["compare"]) {
    EXPECT_EQ(SignOf(Compare(ValueOf(vector["a"]), ValueOf(vector["b"]))), vector["sign"])
        << vector;
  }
}

TEST(Value, ComparesWhatTheReferenceLeavesOpen) {
  const struct {
    const char* a;
    const char* b;
    int forth;
    int back;
  } kCases[] = {
      // Types without content are not even equal to themselves.
      {R"(["xml"])", R"(["xml"])", -1, -1},
      {R"(["number"])", R"(["number"])", -1, -1},
      // Maps: fewer entries first, then the lowest key that differs, then its value.
      {R"(["map", [[["int", 9], ["null"]]]])",
       R"(["map", [[["int", 1], ["null"]], [["int", 2], ["null"]]]])", -1, 1},
      {R"(["map", [[["int", 1], ["null"]], [["int", 5], ["null"]]]])",
       R"(["map", [[["int", 3], ["null"]], [["int", 1], ["null"]]]])", 1, -1},
      {R"(["map", [[["int", 1], ["int", 7]]]])", R"(["map", [[["int", 1], ["int", 8]]]])", -1, 1},
      // Tables have no order.
      {R"(["table", {"columns": [["a", "int"]], "rows": [[["int", 1]]]}])",
       R"(["table", {"columns": [["a", "int"]], "rows": [[["int", 1]]]}])", 0, 0},
      {R"(["table", {"columns": [["a", "int"]], "rows": [[["int", 1]]]}])",
       R"(["table", {"columns": [["a", "int"]], "rows": [[["int", 2]]]}])", -1, -1},
      {R"(["table", {"columns": [["a", "int"]], "rows": []}])",
       R"(["table", {"columns": [["a", "long"]], "rows": []}])", -1, -1},
      {R"(["table", {"columns": [["a", "int"]], "rows": []}])",
       R"(["table", {"columns": [["b", "int"]], "rows": []}])", -1, -1},
      {R"(["table", {"columns": [], "rows": [[]]}])", R"(["table", {"columns": [], "rows": []}])",
       -1, -1},
  };
  for (const auto& [a, b, forth, back] : kCases) {
    const Value first = ValueOf(Json::parse(a));
    const Value second = ValueOf(Json::parse(b));
    EXPECT_EQ(SignOf(Compare(first, second)), forth) << a << b;
    EXPECT_EQ(SignOf(Compare(second, first)), back) << a << b;
  }
}

TEST(Value, NothingToPointToIsNull) {
  EXPECT_TRUE(Value::BorrowString({}).IsNull());
  EXPECT_TRUE(Value::CopyString({}).IsNull());
  EXPECT_TRUE(Value::BorrowBinary({}).IsNull());
  EXPECT_TRUE(Value::CopyBinary({}).IsNull());
  EXPECT_EQ(Value::CopyString("").type(), ValueType::kString);
}

TEST(Value, CopiesStandAloneAndBorrowersPointAtTheirSource) {
  const std::string text("a\0b", 3);
  const Value borrowed = Value::BorrowString(text);
  EXPECT_EQ(borrowed.text().data(), text.data());
  EXPECT_FALSE(borrowed.owns());

  const Value owned = Value::CopyString(text);
  EXPECT_EQ(owned.text(), text);
  EXPECT_NE(owned.text().data(), text.data());
  EXPECT_TRUE(owned.owns());
  EXPECT_EQ(owned.text().data()[3], '\0');  // behind the content, not counted

  const Value shallow = owned;  // NOLINT: the copy is the test
  EXPECT_EQ(shallow.text().data(), owned.text().data());
  EXPECT_FALSE(shallow.owns());
  const Value deep(shallow, CopyDepth::kDeep);
  EXPECT_NE(deep.text().data(), owned.text().data());
  EXPECT_TRUE(deep.owns());
  EXPECT_EQ(Compare(deep, owned), 0);
}

// What a deep copy makes of a value, and what it loses.
TEST(Value, DeepCopiesAreEqualButForBigIntegers) {
  const std::pair<const char*, const char*> kCases[] = {
      {R"(["bigint", "5"])", R"(["null"])"},
      {R"(["list", [["bigint", "5"], ["int", 1]]])", R"(["list", [["null"], ["int", 1]]])"},
      {R"(["int", -7])", R"(["int", -7])"},
      {R"(["binary", "00ff"])", R"(["binary", "00ff"])"},
      {R"(["map", [[["string", "k"], ["list", [["string", "v"]]]]]])",
       R"(["map", [[["string", "k"], ["list", [["string", "v"]]]]]])"},
      {R"(["table", {"columns": [["c", "map"]], "rows": [[["string", "x"]], []]}])",
       R"(["table", {"columns": [["c", "map"]], "rows": [[["string", "x"]], []]}])"},
  };
  for (const auto& [source, expected] : kCases) {
    Value copy;
    {
      const Value original = ValueOf(Json::parse(source));
      copy = Value(original, CopyDepth::kDeep);
    }  // a copy that still borrowed would now refer to freed memory
    EXPECT_EQ(Compare(copy, ValueOf(Json::parse(expected))), 0) << source;
    EXPECT_EQ(copy.owns(), IsOwningType(copy.type())) << source;
  }
}

TEST(Value, AssignmentSurvivesItsOwnContent) {
  auto list = std::make_unique<List>();
  list->Append(Value::CopyString("inner"));
  list->Append(Value::Int(4));
  List* elements = list.get();
  Value value = Value::AdoptList(std::move(list));

  Value& same = value;
  value = same;
  value = std::move(same);
  ASSERT_EQ(value.list().size(), 2u);
  EXPECT_TRUE(value.owns());

  value = std::move((*elements)[0]);
  EXPECT_EQ(value.text(), "inner");
  EXPECT_TRUE(value.owns());

  Value taken(std::move(value));
  EXPECT_EQ(taken.text(), "inner");
  EXPECT_TRUE(value.IsNull());  // NOLINT: what a move leaves behind is the test
  EXPECT_FALSE(value.owns());
}

TEST(Value, ResetGivesTheTypeUnlessItNeedsContent) {
  const std::pair<ValueType, ValueType> kCases[] = {
      {ValueType::kLong, ValueType::kLong},   {ValueType::kEnd, ValueType::kEnd},
      {ValueType::kXml, ValueType::kXml},     {ValueType::kString, ValueType::kNull},
      {ValueType::kBigInt, ValueType::kNull}, {ValueType::kTable, ValueType::kNull},
  };
  for (const auto& [requested, given] : kCases) {
    Value value = Value::CopyString("before");
    value.Reset(requested);
    EXPECT_EQ(value.type(), given);
    EXPECT_EQ(value.long_value(), 0);
    EXPECT_FALSE(value.owns());
  }
}

enum class Nest { kList, kMapKey, kMapValue, kCell };

Value Nested(Nest nest, int depth) {
  Value value;
  for (int i = 0; i < depth; ++i) {
    if (nest == Nest::kList) {
      auto list = std::make_unique<List>();
      list->Append(std::move(value));
      value = Value::AdoptList(std::move(list));
    } else if (nest == Nest::kCell) {
      auto table = std::make_unique<Table>();
      table->AddRow().Append(std::move(value));
      value = Value::AdoptTable(std::move(table));
    } else {
      auto map = std::make_unique<Map>();
      Value other;
      if (nest == Nest::kMapKey) std::swap(value, other);
      map->Insert(std::move(other), std::move(value));
      value = Value::AdoptMap(std::move(map));
    }
  }
  return value;
}

TEST(Value, DestroysDeepNestingOnAFlatStack) {
  // Destroyed recursively, so many levels would need far more than the stack of this thread.
  for (const Nest nest : {Nest::kList, Nest::kMapValue, Nest::kCell}) {
    EXPECT_TRUE(Nested(nest, 100'000).owns());
  }
  // Each level of keys hashes all levels below.
  EXPECT_TRUE(Nested(Nest::kMapKey, 2'000).owns());
}

TEST(List, GrowsAndGivesBackWhatItHolds) {
  List list;
  for (int i = 0; i < 100; ++i) list.Append(Value::CopyString(std::to_string(i)));
  list.RemoveLast();
  list.ShrinkToFit();
  ASSERT_EQ(list.size(), 99u);
  EXPECT_EQ(list[98].text(), "98");
  EXPECT_THROW(list.Reserve(SIZE_MAX / 2), BadAllocation);
  EXPECT_EQ(list[0].text(), "0");

  List other(std::move(list));
  EXPECT_TRUE(list.empty());  // NOLINT: what a move leaves behind is the test
  list = std::move(other);
  EXPECT_EQ(list.size(), 99u);
  list.Clear();
  EXPECT_TRUE(list.empty());
}

TEST(Table, AccessOutOfRangeGivesDefaults) {
  Table table;
  table.AddColumn("c", ValueType::kInt);
  table.AddRow().Append(Value::Int(7));
  EXPECT_EQ(table.column(0).name, "c");
  EXPECT_EQ(table.cell(0, 0).int_value(), 7);
  for (const std::size_t index : {std::size_t{1}, SIZE_MAX}) {
    EXPECT_EQ(table.column(index).name, "");
    EXPECT_EQ(table.column(index).type, ValueType::kNull);
    EXPECT_TRUE(table.row(index).empty());
    EXPECT_TRUE(table.cell(index, 0).IsNull());
    EXPECT_TRUE(table.cell(0, index).IsNull());
  }
}

TEST(BigInt, PrintsAsTheReferenceAndReadsItBack) {
  const Json vectors = LoadVectors("texts.json");
  for (const Json& vector : vectors["bigint_text"]) {
    const auto limbs = vector["limbs"].get<std::vector<std::uint32_t>>();
    const auto text = vector["text"].get<std::string>();
    BigInt number(vector["sign"].get<int>(), limbs);
    EXPECT_EQ(number.ToDecimal(), text);
    const std::optional<BigInt> parsed = BigInt::FromDecimal(text);
    ASSERT_TRUE(parsed) << text;
    EXPECT_EQ(parsed->limbs(), limbs);
    EXPECT_EQ(parsed->sign(), vector["sign"].get<int>());
  }
}

TEST(BigInt, ParsesConvertsAndSubtracts) {
  for (const char* text : {"", "-", "+", " 1", "1 ", "--1", "0x1", "1.0"}) {
    EXPECT_FALSE(BigInt::FromDecimal(text)) << text;
  }
  const struct {
    const char* a;
    const char* b;
    const char* difference;
  } kDifferences[] = {
      {"5", "5", "0"},
      {"+5", "-0", "5"},
      {"0", "5", "-5"},
      {"-5", "-7", "2"},
      {"7", "-5", "12"},
      {"-7", "5", "-12"},
      {"4294967296", "1", "4294967295"},
      {"1", "18446744073709551616", "-18446744073709551615"},
      {"18446744073709551615", "-1", "18446744073709551616"},
      {"-18446744073709551616", "-18446744073709551616", "0"},
  };
  for (const auto& [a, b, difference] : kDifferences) {
    BigInt result = BigInt::FromDecimal(a)->Minus(*BigInt::FromDecimal(b));
    EXPECT_EQ(result.ToDecimal(), difference) << a << " - " << b;
  }
  const struct {
    const char* text;
    std::optional<std::int64_t> as_long;
    std::optional<std::int32_t> as_int;
  } kConversions[] = {
      {"0", 0, 0},
      {"2147483647", INT32_MAX, INT32_MAX},
      {"2147483648", 2147483648, {}},
      {"-2147483648", INT32_MIN, INT32_MIN},
      {"9223372036854775807", INT64_MAX, {}},
      {"9223372036854775808", {}, {}},
      {"-9223372036854775808", INT64_MIN, {}},
      {"-9223372036854775809", {}, {}},
      {"18446744073709551616", {}, {}},
  };
  for (const auto& [text, as_long, as_int] : kConversions) {
    BigInt number = *BigInt::FromDecimal(text);
    EXPECT_EQ(number.ToInt64(), as_long) << text;
    EXPECT_EQ(number.ToInt32(), as_int) << text;
    if (as_long) EXPECT_EQ(BigInt(*as_long).ToDecimal(), text);
  }
}

TEST(ReleasePool, ReleasesEachBlockOnce) {
  ReleasePool pool;
  EXPECT_EQ(pool.Allocate(0), nullptr);
  EXPECT_EQ(pool.count(), 0u);
  EXPECT_FALSE(pool.Release(0));
  for (std::size_t i = 0; i < 20; ++i) {
    void* block = pool.Allocate(i + 1);
    ASSERT_NE(block, nullptr);
    std::memset(block, 0x5A, i + 1);
    EXPECT_EQ(pool.count(), i + 1);
  }
  EXPECT_TRUE(pool.Release(19));
  EXPECT_FALSE(pool.Release(19));
  EXPECT_FALSE(pool.Release(20));
  EXPECT_TRUE(pool.Release(0));  // the other 18 go with the pool
}

}  // namespace
}  // namespace TAVU::lumo
