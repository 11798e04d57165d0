#include "lumo/codec/codec.h"

#include <algorithm>

#include "base/thread_error.h"
#include "lumo/codec/memory_reader.h"
#include "lumo/codec/memory_writer.h"
#include "lumo/reference.h"
#include "lumo/value/list.h"
#include "lumo/value/map.h"

namespace TAVU::lumo {
namespace {

using Bytes = std::vector<std::byte>;

// Takes bytes in pieces of `piece`, and after `limit` of them answers `refusal` for good.
struct SlowSink final : ByteSink {
  explicit SlowSink(std::size_t its_piece) : piece(its_piece) {}
  std::ptrdiff_t Accept(const std::byte* data, std::size_t size) override {
    const std::size_t count = std::min({size, piece, limit - taken.size()});
    if (count == 0) return refusal;
    taken.insert(taken.end(), data, data + count);
    return static_cast<std::ptrdiff_t>(count);
  }
  std::size_t piece;
  std::size_t limit = SIZE_MAX;
  std::ptrdiff_t refusal = 0;
  Bytes taken;
};

// Offers `rest` in pieces of `piece`, then answers `end`.
struct SlowSource final : ByteSource {
  SlowSource(std::span<const std::byte> bytes, std::size_t its_piece)
      : rest(bytes), piece(its_piece) {}
  std::ptrdiff_t Refill() override {
    if (rest.empty()) return end;
    // A fresh copy each time, so that a reader that looks past its window is caught.
    const auto offered = rest.first(std::min(piece, rest.size()));
    current = Bytes(offered.begin(), offered.end());
    rest = rest.subspan(offered.size());
    window_ = current.data();
    window_end_ = window_ + current.size();
    return static_cast<std::ptrdiff_t>(current.size());
  }
  std::span<const std::byte> rest;
  std::size_t piece;
  std::ptrdiff_t end = 0;
  Bytes current;
};

bool Reads(const Json& notation) {
  const Bytes bytes = BytesOf(notation);
  MemoryReader reader(bytes);
  Value value;
  return ReadValue(reader, value);
}

TEST(Codec, WritesAndReadsTheReferenceOverStreamsThatStopAnywhere) {
  for (const Json& vector : Vectors("codec.json", "encode")) {
    SCOPED_TRACE(vector["name"]);
    const Value value = ValueOf(vector["value"]);
    const Bytes bytes = BytesOf(vector["bytes"]);
    MemoryWriter writer;
    EXPECT_TRUE(WriteValue(writer, value));
    EXPECT_EQ(Hex(writer.data(), writer.size()), Hex(bytes.data(), bytes.size()));
    for (const std::size_t piece : {std::size_t{1}, std::size_t{3}, std::size_t{64}, SIZE_MAX}) {
      SlowSink sink(piece);
      EXPECT_TRUE(WriteValue(sink, value));
      EXPECT_EQ(sink.taken, bytes);
      SlowSource source(bytes, piece);
      Value read;
      ASSERT_TRUE(ReadValue(source, read));
      if (!vector.contains("one_way")) EXPECT_EQ(Compare(read, value), 0);
      EXPECT_TRUE(source.rest.empty() && source.at_hand().empty());
    }
    // A stream that takes or gives nothing leaves 109; one that failed in its own way keeps its
    // code.
    for (std::size_t length = 0; length < bytes.size(); length += 1 + bytes.size() / 60) {
      for (const auto& [answer, code] : {std::pair(0, 109u), std::pair(-1, 7u)}) {
        base::SetThreadError(7);
        SlowSink sink(100);
        sink.limit = length;
        sink.refusal = answer;
        EXPECT_FALSE(WriteValue(sink, value));
        EXPECT_EQ(base::GetThreadError(), code);
        EXPECT_TRUE(std::equal(sink.taken.begin(), sink.taken.end(), bytes.begin()));
        base::SetThreadError(7);
        SlowSource source(std::span(bytes).first(length), 100);
        source.end = answer;
        Value read;
        EXPECT_FALSE(ReadValue(source, read));
        EXPECT_EQ(base::GetThreadError(), code);
      }
    }
  }
}

TEST(Codec, AcceptsWhatOthersWrite) {
  MemoryReader nothing({});
  std::uint8_t byte = 0;
  base::SetThreadError(7);
  EXPECT_FALSE(nothing.PeekByte(byte));
  EXPECT_EQ(base::GetThreadError(), 7u) << "nothing to read is not the end of something";
  for (const Json& vector : Vectors("codec.json", "decode")) {
    SCOPED_TRACE(vector["name"]);
    const Bytes bytes = BytesOf(vector["bytes"]);
    MemoryReader reader(bytes);
    Value read;
    ASSERT_TRUE(ReadValue(reader, read));
    EXPECT_EQ(reader.position(), vector["used"].get<std::size_t>());
    EXPECT_EQ(Compare(read, ValueOf(vector["value"])), 0);
    if (read.type() != ValueType::kMap) continue;
    auto expected = vector["value"][1].begin();  // in the map's own order
    for (const Map::Node& entry : read.map()) {
      EXPECT_EQ(Compare(entry.key, ValueOf((*expected++)[0])), 0);
    }
  }
}

TEST(Codec, RefusesBrokenBytesAndTypesWithoutAnEncoding) {
  for (const Json& c : Vectors("codec.json", "refused")) EXPECT_FALSE(Reads(c["bytes"])) << c;
  MemoryWriter writer;
  for (const Json& notation : Vectors("codec.json", "unencodable"))
    EXPECT_FALSE(WriteValue(writer, ValueOf(notation))) << notation;
}

TEST(Codec, HoldsLengthsAgainstTheirBounds) {
  for (const Json& test : Cases(R"([
    // Only the final chunk may be longer than 32768 bytes.
    [false, "738001", ["repeat", "61", 32769], "530000"],
    [true, "7300016153ffff", ["repeat", "61", 65535]],
    // Names of columns and of their types stay below it.
    [true, "5a566c00000001537fff", ["repeat", "61", 32767], "740003696e747a567a7a"],
    [false, "5a566c00000001538000", ["repeat", "61", 32768], "740003696e747a567a7a"],
    [true, "5a566c00000001530000747fff", ["repeat", "61", 32767], "7a567a7a"],
    [false, "5a566c00000001530000748000", ["repeat", "61", 32768], "7a567a7a"],
    // Counts that announce far more than ever comes.
    [true, "566cffffffff4e7a"],
    [false, "566cffffffff"],
    [false, "5a566cffffffff"],
    [true, "5a566c000000007a566cffffffff7a7a"]
  ])")) {
    EXPECT_EQ(Reads(Json(test.begin() + 1, test.end())), test[0]) << test;
  }
}

TEST(Codec, BoundsNesting) {
  for (const Json& test : Cases(R"([
    ["56", "7a"], ["4d4e", "7a"], ["4d", "4e7a"], ["5a566c000000007a566c0000000156", "7a7a7a"]
  ])")) {
    SCOPED_TRACE(test);
    const Json deepest = {{"repeat", test[0], 1000}, "4e", {"repeat", test[1], 1000}};
    const Bytes bytes = BytesOf(deepest);
    SlowSource source(bytes, 1);
    SlowSink sink(1);
    auto list = std::make_unique<List>();
    ASSERT_TRUE(ReadValue(source, list->AppendNull()));
    EXPECT_TRUE(WriteValue(sink, (*list)[0]));
    // One level more, of whatever kind, and many.
    EXPECT_FALSE(Reads({"56", deepest, "7a"}));
    EXPECT_FALSE(WriteValue(sink, Value::AdoptList(std::move(list))));
    EXPECT_FALSE(Reads(Json{{"repeat", test[0], 100'000}}));
  }
}

}  // namespace
}  // namespace TAVU::lumo
