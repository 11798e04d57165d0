#include "lumo/codec.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "lumo/list.h"
#include "lumo/map.h"
#include "lumo/memory_reader.h"
#include "lumo/memory_writer.h"
#include "lumo/table.h"
#include "lumo/thread_error.h"
#include "support/vectors.h"

namespace TAVU::lumo {
namespace {

using test::BytesOf;
using test::Hex;
using test::Json;
using test::LoadVectors;
using test::ValueOf;

const Json& Vectors() {
  static const Json vectors = LoadVectors("codec.json");
  return vectors;
}

std::string NameOf(const Json& vector) {
  return vector["name"].get<std::string>();
}

bool Reads(const Json& notation) {
  const std::vector<std::byte> bytes = BytesOf(notation);
  MemoryReader reader(bytes);
  Value value;
  return ReadValue(reader, value);
}

// A value with every kind of content, and its bytes.
const Json& Sample() {
  for (const Json& vector : Vectors()["encode"]) {
    if (vector["name"] == "seeded 3") return vector;
  }
  throw std::runtime_error("codec.json has no such case");
}

TEST(Codec, WritesTheReferenceBytesAndReadsThemBack) {
  for (const Json& vector : Vectors()["encode"]) {
    SCOPED_TRACE(NameOf(vector));
    const Value value = ValueOf(vector["value"]);
    const std::vector<std::byte> bytes = BytesOf(vector["bytes"]);
    MemoryWriter writer;
    EXPECT_TRUE(WriteValue(writer, value));
    EXPECT_EQ(Hex(writer.data(), writer.size()), Hex(bytes.data(), bytes.size()));
    MemoryReader reader(bytes);
    Value read;
    ASSERT_TRUE(ReadValue(reader, read));
    EXPECT_EQ(reader.remaining(), 0u);
    if (!vector.contains("one_way")) EXPECT_EQ(Compare(read, value), 0);
  }
}

TEST(Codec, AcceptsWhatOthersWrite) {
  for (const Json& vector : Vectors()["decode"]) {
    SCOPED_TRACE(NameOf(vector));
    const std::vector<std::byte> bytes = BytesOf(vector["bytes"]);
    MemoryReader reader(bytes);
    Value read;
    ASSERT_TRUE(ReadValue(reader, read));
    EXPECT_EQ(reader.position(), vector["used"].get<std::size_t>());
    EXPECT_EQ(Compare(read, ValueOf(vector["value"])), 0);
    if (read.type() != ValueType::kMap) continue;
    // A decoded map gives its entries in the order of the case.
    auto expected = vector["value"][1].begin();
    for (const Map::Node& entry : read.map()) {
      EXPECT_EQ(Compare(entry.key, ValueOf((*expected++)[0])), 0);
    }
  }
}

TEST(Codec, RefusesBrokenBytes) {
  for (const Json& vector : Vectors()["refused"]) {
    EXPECT_FALSE(Reads(vector["bytes"])) << NameOf(vector);
  }
}

TEST(Codec, RefusesTypesWithoutAnEncoding) {
  for (const Json& notation : Vectors()["unencodable"]) {
    MemoryWriter writer;
    EXPECT_FALSE(WriteValue(writer, ValueOf(notation))) << notation;
  }
}

TEST(Codec, HoldsLengthsAgainstTheirBounds) {
  const std::string column_end = "740003696e747a567a7a";  // type "int", no rows
  const std::pair<Json, bool> kCases[] = {
      // Only the final chunk may be longer than 32768 bytes.
      {{"738000", {"repeat", "61", 32768}, "530000"}, true},
      {{"738001", {"repeat", "61", 32769}, "530000"}, false},
      {{"628001", {"repeat", "61", 32769}, "420000"}, false},
      {{"530000"}, true},
      {{"53ffff", {"repeat", "61", 65535}}, true},
      {{"7300016153ffff", {"repeat", "61", 65535}}, true},
      // Names of columns and of their types stay below it.
      {{"5a566c00000001537fff", {"repeat", "61", 32767}, column_end}, true},
      {{"5a566c00000001538000", {"repeat", "61", 32768}, column_end}, false},
      {{"5a566c00000001530000747fff", {"repeat", "61", 32767}, "7a567a7a"}, true},
      {{"5a566c00000001530000748000", {"repeat", "61", 32768}, "7a567a7a"}, false},
      // Counts that announce far more than ever comes.
      {"566cffffffff4e7a", true},
      {"566cffffffff", false},
      {"5a566cffffffff", false},
      {"5a566c000000007a566cffffffff7a7a", true},
  };
  for (const auto& [bytes, is_accepted] : kCases) EXPECT_EQ(Reads(bytes), is_accepted) << bytes;
}

TEST(Codec, BoundsNestingInBothDirections) {
  const struct {
    const char* open;
    const char* innermost;
    const char* close;
  } kCases[] = {
      {"56", "4e", "7a"},                                              // lists
      {"4d4e", "4e", "7a"},                                            // maps in maps' values
      {"4d", "4e", "4e7a"},                                            // maps in maps' keys
      {"5a566c000000007a566c0000000156", "4e", "7a7a7a"},              // tables in cells
      {"564e4d4e5a566c000000007a566c0000000156", "4e", "7a7a7a7a7a"},  // all three
  };
  for (const auto& [open, innermost, close] : kCases) {
    const int levels = open[0] == '5' && open[2] == '4' ? 3 : 1;  // containers in one repetition
    const auto nested = [&, open = open, innermost = innermost, close = close](int depth) {
      const int count = depth / levels;
      return Json{{"repeat", open, count}, innermost, {"repeat", close, count}};
    };
    EXPECT_TRUE(Reads(nested(kDeepestNesting - 1))) << open;
    EXPECT_FALSE(Reads(nested(kDeepestNesting + 2))) << open;
    EXPECT_FALSE(Reads(Json{{"repeat", open, 100'000}})) << open;
  }
  EXPECT_TRUE(Reads(Json{{"repeat", "56", 1000}, {"repeat", "7a", 1000}}));
  EXPECT_FALSE(Reads(Json{{"repeat", "56", 1001}, {"repeat", "7a", 1001}}));

  Value value;
  for (int depth = 1; depth <= 1001; ++depth) {
    auto list = std::make_unique<List>();
    list->Append(std::move(value));
    value = Value::AdoptList(std::move(list));
    MemoryWriter writer;
    if (depth >= 999) EXPECT_EQ(WriteValue(writer, value), depth <= 1000) << depth;
  }
}

// Takes bytes in pieces of `piece`, and after `limit` of them answers `refusal` for good.
class SlowSink : public ByteSink {
 public:
  SlowSink(std::size_t piece, std::size_t limit, std::ptrdiff_t refusal)
      : piece_(piece), limit_(limit), refusal_(refusal) {}
  std::vector<std::byte> taken;

 private:
  std::ptrdiff_t Accept(const std::byte* data, std::size_t size) override {
    const std::size_t count = std::min({size, piece_, limit_ - taken.size()});
    if (count == 0) return refusal_;
    taken.insert(taken.end(), data, data + count);
    return static_cast<std::ptrdiff_t>(count);
  }
  std::size_t piece_;
  std::size_t limit_;
  std::ptrdiff_t refusal_;
};

// Offers `bytes` in pieces of `piece`, then answers `end`.
class SlowSource : public ByteSource {
 public:
  SlowSource(std::span<const std::byte> bytes, std::size_t piece, std::ptrdiff_t end)
      : rest_(bytes), piece_(piece), end_(end) {}

 private:
  std::ptrdiff_t Refill() override {
    if (rest_.empty()) return end_;
    // A fresh copy each time, so that a reader that looks behind its window is caught.
    const auto offered = rest_.first(std::min(piece_, rest_.size()));
    current_ = std::vector<std::byte>(offered.begin(), offered.end());
    rest_ = rest_.subspan(offered.size());
    window_ = current_.data();
    window_end_ = window_ + current_.size();
    return static_cast<std::ptrdiff_t>(current_.size());
  }
  std::span<const std::byte> rest_;
  std::vector<std::byte> current_;
  std::size_t piece_;
  std::ptrdiff_t end_;
};

TEST(Codec, WorksOverStreamsOfAnyGrain) {
  const std::vector<std::byte> bytes = BytesOf(Sample()["bytes"]);
  const Value value = ValueOf(Sample()["value"]);
  for (const std::size_t piece : {1u, 2u, 3u, 7u, 64u, 1000u}) {
    SlowSink sink(piece, SIZE_MAX, 0);
    EXPECT_TRUE(WriteValue(sink, value));
    EXPECT_EQ(sink.taken, bytes);
    SlowSource source(bytes, piece, 0);
    Value read;
    EXPECT_TRUE(ReadValue(source, read));
    EXPECT_EQ(Compare(read, value), 0);
  }
}

// A stream that takes or gives nothing leaves 109; one that failed in its own way keeps its code.
TEST(Codec, StopsWhereverAStreamStops) {
  const std::vector<std::byte> bytes = BytesOf(Sample()["bytes"]);
  const Value value = ValueOf(Sample()["value"]);
  for (std::size_t length = 0; length < bytes.size(); ++length) {
    for (const auto& [answer, code] : {std::pair(0, 109u), std::pair(-1, 7u)}) {
      SetThreadError(7);
      SlowSink sink(100, length, answer);
      EXPECT_FALSE(WriteValue(sink, value));
      EXPECT_EQ(GetThreadError(), code);
      EXPECT_TRUE(std::equal(sink.taken.begin(), sink.taken.end(), bytes.begin()));

      SetThreadError(7);
      SlowSource source(std::span(bytes).first(length), 100, answer);
      Value read;
      EXPECT_FALSE(ReadValue(source, read));
      EXPECT_EQ(GetThreadError(), code);
    }
  }
}

TEST(MemoryWriter, GrowsAsTheReference) {
  const Json vectors = LoadVectors("strings.json");
  for (const Json& vector : vectors["writer_growth"]) {
    MemoryWriter writer;
    std::string expected;
    for (std::size_t i = 0; i < vector["appended"].size(); ++i) {
      const std::string piece(vector["appended"][i].get<std::size_t>(), static_cast<char>('a' + i));
      expected += piece;
      ASSERT_TRUE(writer.Write(piece.data(), piece.size()));
      EXPECT_EQ(writer.capacity(), vector["capacity"][i].get<std::size_t>()) << vector;
    }
    EXPECT_EQ(Hex(writer.data(), writer.size()), Hex(expected.data(), expected.size()));
  }
}

TEST(MemoryReader, TellsTheEndFromHavingNothing) {
  const std::byte bytes[3] = {};
  std::uint8_t byte = 0;
  MemoryReader reader(bytes);
  EXPECT_EQ(reader.Take(2).size(), 2u);
  EXPECT_EQ(reader.position(), 2u);
  EXPECT_EQ(reader.Take(9).size(), 1u);
  SetThreadError(0);
  EXPECT_FALSE(reader.PeekByte(byte));
  EXPECT_EQ(GetThreadError(), kErrorBrokenPipe);
  for (const auto nothing : {std::span<const std::byte>(), std::span(bytes).first(0)}) {
    MemoryReader empty(nothing);
    SetThreadError(0);
    EXPECT_FALSE(empty.ReadByte(byte));
    EXPECT_EQ(GetThreadError(), 0u);
  }
}

}  // namespace
}  // namespace TAVU::lumo
