// What is left when memory runs out in the middle of things. This program is linked so that the
// allocations of the library pass through here.
#include <functional>

#include "lumo/codec/codec.h"
#include "lumo/codec/memory_reader.h"
#include "lumo/codec/memory_writer.h"
#include "lumo/codec/value_skipper.h"
#include "lumo/reference.h"
#include "lumo/value/big_int.h"
#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "lumo/value/table.h"

namespace {
long allocations_left = -1;  // -1: no end

// The one allocation that fails is the last of those left.
bool IsExhausted() {
  if (allocations_left < 0 || --allocations_left > 0) return false;
  allocations_left = -1;
  return true;
}
}  // namespace

extern "C" {
void* __real_malloc(std::size_t size);
void* __real_realloc(void* block, std::size_t size);
void* __wrap_malloc(std::size_t size) {
  return IsExhausted() ? nullptr : __real_malloc(size);
}
void* __wrap_realloc(void* block, std::size_t size) {
  return IsExhausted() ? nullptr : __real_realloc(block, size);
}
}

namespace TAVU::lumo {
namespace {

// Runs `work` with its n-th allocation failing, for every n until none fails. `check` looks at what
// each failure left. Returns the number of failures.
int FailEverywhere(const std::function<void()>& work, const std::function<void()>& check) {
  for (int n = 1;; ++n) {
    allocations_left = n;
    try {
      work();
      allocations_left = -1;
      return n - 1;
    } catch (const std::bad_alloc& failure) {
      allocations_left = -1;
      EXPECT_STREQ(failure.what(), "bad allocation");
      check();
    }
  }
}

TEST(Exhaustion, LeavesNothingBehindAndHalfDone) {
  int failures = 0;
  for (const Json& vector : Vectors("codec.json", "encode")) {
    SCOPED_TRACE(vector["name"]);
    const Value value = ValueOf(vector["value"]);
    const std::vector<std::byte> bytes = BytesOf(vector["bytes"]);
    failures += FailEverywhere(
        [&] {
          MemoryReader reader(bytes);
          MemoryWriter writer;
          Value read;
          EXPECT_TRUE(ReadValue(reader, read) && WriteValue(writer, read));
        },
        [] {});  // the sanitizers watch
    allocations_left = 1;
    MemoryReader reader(bytes);
    ValueType type{};
    EXPECT_TRUE(SkipValue(reader, type) && reader.remaining() == 0 && type == value.type());
    EXPECT_EQ(allocations_left, 1) << "skipping keeps nothing";
    allocations_left = -1;
    Value copy = Value::Int(1);
    failures += FailEverywhere([&] { copy = Value(value, CopyDepth::kDeep); },
                               [&] { EXPECT_EQ(copy.int_value(), 1); });
    if (!vector.contains("one_way")) EXPECT_EQ(Compare(copy, value), 0);
  }
  EXPECT_GT(failures, 100);
  // Big integers, and the columns and rows of tables, take theirs in containers of the language.
  EXPECT_GE(FailEverywhere(
                [] {
                  EXPECT_EQ(BigInt::FromDecimal(std::string_view("12345678901234567890"))->sign(),
                            1);
                  Table table;
                  table.AddColumn("a name too long to lie in its own object", ValueType::kInt);
                  table.AddRow();
                },
                [] {}),
            4);
}

TEST(Exhaustion, AFailedInsertOrAppendChangesNothing) {
  Map map;
  List list;
  int failures = 0;
  for (std::size_t i = 0; i < 200; ++i) {
    const Value key = Value::CopyString(std::to_string(i));
    const auto check = [&] {
      EXPECT_EQ(map.size(), i);
      EXPECT_EQ(map.Find(key), nullptr);
      std::size_t entries = 0;
      for (auto at = map.begin(); at != map.end(); ++at) ++entries;
      EXPECT_EQ(entries, i);
    };
    failures +=
        FailEverywhere([&] { EXPECT_TRUE(map.Insert(Value(key, CopyDepth::kDeep), {})); }, check);
    FailEverywhere([&] { list.Append(Value(key, CopyDepth::kDeep)); },
                   [&] { EXPECT_EQ(list.size(), i); });
    EXPECT_EQ(list[i].text(), key.text());
  }
  EXPECT_GT(failures, 210);  // a text each, then blocks and indexes
  EXPECT_NE(map.Find(Value::BorrowString("77")), nullptr);
}

}  // namespace
}  // namespace TAVU::lumo
