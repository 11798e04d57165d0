// What is left when memory runs out in the middle of things. This program is linked so that the
// allocations of the library pass through here.

#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <utility>

#include "lumo/codec.h"
#include "lumo/list.h"
#include "lumo/map.h"
#include "lumo/memory_reader.h"
#include "lumo/memory_writer.h"
#include "lumo/release_pool.h"
#include "support/vectors.h"

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
    } catch (const std::bad_alloc& error) {
      allocations_left = -1;
      EXPECT_STRNE(error.what(), "");
      check();
    }
  }
}

Value Sample() {
  const test::Json vectors = test::LoadVectors("codec.json");
  for (const test::Json& vector : vectors["encode"]) {
    if (vector["name"] == "seeded 3") return test::ValueOf(vector["value"]);
  }
  throw std::runtime_error("codec.json has no such case");
}

TEST(Exhaustion, ReadingAndCopyingLeaveNothingBehind) {
  const Value sample = Sample();
  MemoryWriter writer;
  ASSERT_TRUE(WriteValue(writer, sample));
  Value read;
  EXPECT_GT(FailEverywhere(
                [&] {
                  MemoryReader reader(writer.bytes());
                  Value partly;
                  if (ReadValue(reader, partly)) read = std::move(partly);
                },
                [&] { EXPECT_TRUE(read.IsNull()); }),
            5);
  EXPECT_EQ(Compare(read, sample), 0);
  Value copy = Value::Int(1);
  EXPECT_GT(FailEverywhere([&] { copy = Value(sample, CopyDepth::kDeep); },
                           [&] { EXPECT_EQ(copy.int_value(), 1); }),
            5);
  EXPECT_EQ(Compare(copy, sample), 0);
}

TEST(Exhaustion, AFailedInsertChangesNothing) {
  Map map;
  int failures = 0;
  for (int i = 0; i < 200; ++i) {
    bool is_new = false;
    failures += FailEverywhere(
        [&] { is_new = map.Insert(Value::CopyString(std::to_string(i)), Value::Int(i)); },
        [&] {
          EXPECT_EQ(map.size(), static_cast<std::size_t>(i));
          EXPECT_EQ(map.Find(Value::BorrowString(std::to_string(i))), nullptr);
          int entries = 0;
          for (auto entry = map.begin(); entry != map.end(); ++entry) ++entries;
          EXPECT_EQ(entries, i);
        });
    EXPECT_TRUE(is_new);
  }
  EXPECT_GT(failures, 210);  // a text each, then blocks and indexes
  EXPECT_EQ(map.Find(Value::BorrowString("77"))->value.int_value(), 77);
}

TEST(Exhaustion, AFailedAppendChangesNothing) {
  List list;
  for (std::size_t i = 0; i < 40; ++i) {
    FailEverywhere([&] { list.Append(Value::CopyString("text")); },
                   [&] { EXPECT_EQ(list.size(), i); });
    EXPECT_EQ(list[i].text(), "text");
  }
}

TEST(Exhaustion, AWriterKeepsWhatItHas) {
  MemoryWriter writer;
  const std::string piece(1000, 'x');
  EXPECT_EQ(FailEverywhere([&] { EXPECT_TRUE(writer.Write(piece.data(), piece.size())); },
                           [&] { EXPECT_EQ(writer.size(), 0u); }),
            1);
  EXPECT_EQ(writer.size(), piece.size());
}

TEST(Exhaustion, APoolGivesNull) {
  ReleasePool pool;
  for (const long left : {1L, 2L}) {  // for the entries, for the block
    allocations_left = left;
    void* block = pool.Allocate(10);
    allocations_left = -1;
    EXPECT_EQ(block, nullptr);
    EXPECT_EQ(pool.count(), 0u);
  }
  EXPECT_NE(pool.Allocate(10), nullptr);
}

}  // namespace
}  // namespace TAVU::lumo
