#include <algorithm>
#include <bit>
#include <cstring>
#include <memory>
#include <utility>

#include "base/heap_allocator.h"
#include "lumo/codec/big_endian.h"
#include "lumo/codec/codec.h"
#include "lumo/codec/text_reader.h"
#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "lumo/value/table.h"

namespace TAVU::lumo {

namespace {

// Reads what follows `value_tag`. `depth` counts the containers around the value.
bool ReadBehindTag(ByteSource& source, std::uint8_t value_tag, Value& out, int depth);

template <typename Number>
bool ReadNumber(ByteSource& source, Number& out) {
  std::byte bytes[sizeof(Number)];
  if (!source.Read(bytes, sizeof bytes)) return false;
  out = LoadBigEndian<Number>(bytes);
  return true;
}

bool ReadTag(ByteSource& source, std::uint8_t expected) {
  std::uint8_t byte = 0;
  return source.ReadByte(byte) && byte == expected;
}

// --- Scalars -------------------------------------------------------------------------------------

// Makes the value in its place. Copying it there from a temporary, whole, right after its parts
// were stored would stall the processor for longer than all the rest takes.
template <typename Make>
void MakeInPlace(Value& out, Make make) noexcept {
  out.Clear();
  ::new (static_cast<void*>(&out)) Value(make());
}

// Reads the scalar that begins at `bytes` and returns its size; 0, with nothing read, for other
// values. Needs kLongestScalar bytes to look at.
std::size_t GetScalar(const std::byte* bytes, Value& out) noexcept {
  const auto value_tag = static_cast<std::uint8_t>(*bytes++);
  switch (value_tag) {
    case tag::kNull:
      out.Clear();
      return 1;
    case tag::kTrue:
    case tag::kFalse:
      MakeInPlace(out, [&] { return Value::Bool(value_tag == tag::kTrue); });
      return 1;
    case tag::kChar:
      MakeInPlace(out, [&] { return Value::Char(static_cast<signed char>(*bytes)); });
      return 2;
    case tag::kInt:
      MakeInPlace(out, [&] {
        return Value::Int(static_cast<std::int32_t>(LoadBigEndian<std::uint32_t>(bytes)));
      });
      return 5;
    case tag::kLong:
      MakeInPlace(out, [&] {
        return Value::Long(static_cast<std::int64_t>(LoadBigEndian<std::uint64_t>(bytes)));
      });
      return 9;
    case tag::kDouble:
      MakeInPlace(out, [&] {
        return Value::Double(std::bit_cast<double>(LoadBigEndian<std::uint64_t>(bytes)));
      });
      return 9;
    case tag::kDate:
      MakeInPlace(out, [&] {
        return Value::Date(static_cast<std::int64_t>(LoadBigEndian<std::uint64_t>(bytes)));
      });
      return 9;
    case tag::kEnd:
      out.Reset(ValueType::kEnd);
      return 1;
    default:
      return 0;
  }
}

// Texts up to this size share the memory of the map that they are decoded into.
constexpr std::size_t kShortText = 120;

// Reads the values of a container. Scalars and short texts come straight from the source's window,
// whose bounds are held here, where they can stay in registers.
class ValueRun {
 public:
  explicit ValueRun(ByteSource& source) noexcept : source_(source) { LookAtWindow(); }

  // The next tag, which stays. False at the end of the input.
  [[nodiscard]] bool Peek(std::uint8_t& next_tag) {
    if (next_ == end_) {
      source_.Commit(next_);
      if (!source_.PeekByte(next_tag)) return false;
      LookAtWindow();
    }
    next_tag = static_cast<std::uint8_t>(*next_);
    return true;
  }

  // Reads a scalar, if one comes next and lies well inside the window. Otherwise takes nothing.
  [[nodiscard]] bool ReadScalar(Value& out) noexcept {
    if (AtHand() < kLongestScalar) return false;
    const std::size_t size = GetScalar(next_, out);
    next_ += size;
    return size != 0;
  }

  // Reads a short text as a value that borrows from `map`, if one comes next and lies in the
  // window. Otherwise takes nothing.
  [[nodiscard]] bool ReadShortText(Value& out, Map& map) {
    if (AtHand() < kTextHead) return false;
    const bool is_string = *next_ == std::byte{tag::kString};
    if (!is_string && *next_ != std::byte{tag::kBinary}) return false;
    const std::size_t size = LoadBigEndian<std::uint16_t>(next_ + 1);
    if (size > kShortText || size > AtHand() - kTextHead) return false;
    std::byte* text = map.Room(size + 1);
    std::memcpy(text, next_ + kTextHead, size);
    text[size] = std::byte{0};
    next_ += kTextHead + size;
    if (is_string) {
      MakeInPlace(out, [&] { return Value::BorrowString({reinterpret_cast<char*>(text), size}); });
    } else {
      MakeInPlace(out, [&] { return Value::BorrowBinary({text, size}); });
    }
    return true;
  }

  // Reads any value. Inlined, because it would stand between any two levels.
  [[nodiscard, gnu::always_inline]] bool Read(Value& out, int depth) {
    std::uint8_t value_tag = 0;
    if (!Peek(value_tag)) return false;
    FinishBehindTag();
    if (!ReadBehindTag(source_, value_tag, out, depth)) return false;
    LookAtWindow();
    return true;
  }

  // Tells the source what was taken, the tag that was peeked at included. Not for a destructor:
  // after a failure the bounds are stale.
  void FinishBehindTag() noexcept { source_.Commit(next_ + 1); }

 private:
  static constexpr std::size_t kTextHead = 3;  // tag and count

  [[nodiscard]] std::size_t AtHand() const noexcept {
    return static_cast<std::size_t>(end_ - next_);
  }
  void LookAtWindow() noexcept {
    next_ = source_.at_hand().data();
    end_ = next_ + source_.at_hand().size();
  }

  ByteSource& source_;
  const std::byte* next_;
  const std::byte* end_;
};

// --- Containers ----------------------------------------------------------------------------------

// What these functions hold on the stack is held once a level, so that they leave what they can to
// others: a hostile peer's nesting must not exhaust the small stacks of a host's worker threads.

// Gives `out` an empty container to be filled.
template <typename Container, Value (*kAdopt)(std::unique_ptr<Container>) noexcept>
[[gnu::noinline]] Container& MakeContainer(Value& out) {
  auto owned = std::make_unique<Container>();
  Container& container = *owned;
  out = kAdopt(std::move(owned));
  return container;
}

// Values up to the end tag.
bool ReadElements(ByteSource& source, List& list, int depth) {
  ValueRun run(source);
  for (std::uint8_t next = 0;;) {
    if (!run.Peek(next)) return false;
    if (next == tag::kEnd) break;
    Value& element = list.AppendNull();
    if (!run.ReadScalar(element) && !run.Read(element, depth)) return false;
  }
  run.FinishBehindTag();
  return true;
}

// Elements that are made room for on a peer's word. The deeper a list lies the fewer, so that lists
// in lists do not add up to much more.
constexpr std::size_t kTrustedCount = 1024;

[[gnu::noinline]] bool ReadList(ByteSource& source, Value& out, int depth) {
  List& list = MakeContainer<List, Value::AdoptList>(out);
  std::uint8_t next = 0;
  if (!source.PeekByte(next)) return false;
  if (next != tag::kLength) return ReadElements(source, list, depth);
  // The announced count is a hint at most: the end tag counts.
  std::uint32_t count = 0;
  if (!source.ReadByte(next) || !ReadNumber(source, count)) return false;
  const std::size_t trusted =
      std::min(source.at_hand().size(), kTrustedCount / static_cast<std::size_t>(depth));
  list.Reserve(std::min(std::size_t{count}, trusted));
  if (!ReadElements(source, list, depth)) return false;
  if (list.size() < count) list.ShrinkToFit();
  return true;
}

[[gnu::noinline]] bool ReadMap(ByteSource& source, Value& out, int depth) {
  Map& map = MakeContainer<Map, Value::AdoptMap>(out);
  ValueRun run(source);
  const auto read = [&](Value& part) {
    return run.ReadScalar(part) || run.ReadShortText(part, map) || run.Read(part, depth);
  };
  for (std::uint8_t next = 0;;) {
    if (!run.Peek(next)) return false;
    if (next == tag::kEnd) break;
    Map::Node& entry = map.Spare();
    if (!read(entry.key) || !read(entry.value)) return false;
    if (entry.value.type() == ValueType::kEnd) return false;
    static_cast<void>(map.InsertSpare());  // of a key that comes twice the first value stays
  }
  run.FinishBehindTag();
  return true;
}

// A text of one chunk, as column names and their types are.
bool ReadName(ByteSource& source, std::uint8_t expected_tag, base::HeapText& out) {
  std::uint16_t size = 0;
  if (!ReadTag(source, expected_tag) || !ReadNumber(source, size)) return false;
  if (size >= kLongestChunk) return false;
  out.resize(size);
  return source.Read(out.data(), size);
}

[[gnu::noinline]] bool ReadColumns(ByteSource& source, Table& table) {
  std::uint32_t count = 0;
  if (!ReadTag(source, tag::kList) || !ReadTag(source, tag::kLength)) return false;
  if (!ReadNumber(source, count)) return false;
  base::HeapText name;
  base::HeapText type;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (!ReadName(source, tag::kString, name)) return false;
    if (!ReadName(source, tag::kColumnType, type)) return false;
    table.AddColumn(name, TypeFromName(type));
  }
  return ReadTag(source, tag::kEnd);
}

// The rows and, after them, the end of the table.
bool ReadRows(ByteSource& source, Table& table, int depth) {
  std::uint8_t next = 0;
  if (!ReadTag(source, tag::kList) || !source.ReadByte(next)) return false;
  if (next == tag::kLength) {
    std::uint32_t count = 0;  // not needed: the end tag counts
    if (!ReadNumber(source, count) || !source.ReadByte(next)) return false;
  }
  while (next != tag::kEnd) {
    if (next != tag::kList) return false;
    if (!ReadElements(source, table.AddRow(), depth)) return false;
    if (!source.ReadByte(next)) return false;
  }
  return ReadTag(source, tag::kEnd);
}

[[gnu::noinline]] bool ReadTable(ByteSource& source, Value& out, int depth) {
  Table& table = MakeContainer<Table, Value::AdoptTable>(out);
  return ReadColumns(source, table) && ReadRows(source, table, depth);
}

[[gnu::noinline]] bool ReadScalar(ByteSource& source, std::uint8_t value_tag, Value& out) {
  const std::size_t size = ScalarSize(value_tag);
  if (size == 0) return false;  // no value begins like this
  std::byte bytes[kLongestScalar] = {std::byte{value_tag}};
  if (!source.Read(bytes + 1, size - 1)) return false;
  static_cast<void>(GetScalar(bytes, out));  // the size, known already
  return true;
}

bool ReadBehindTag(ByteSource& source, std::uint8_t value_tag, Value& out, int depth) {
  switch (value_tag) {
    case tag::kStringChunk:
    case tag::kString:
    case tag::kBinaryChunk:
    case tag::kBinary:
      return ReadText(source, value_tag, out);
    case tag::kList:
      return depth < kDeepestNesting && ReadList(source, out, depth + 1);
    case tag::kMap:
      return depth < kDeepestNesting && ReadMap(source, out, depth + 1);
    case tag::kTable:
      return depth < kDeepestNesting && ReadTable(source, out, depth + 1);
    default:
      return ReadScalar(source, value_tag, out);
  }
}

}  // namespace

bool ReadValue(ByteSource& source, Value& out) {
  out.Clear();
  std::uint8_t value_tag = 0;
  return source.ReadByte(value_tag) && ReadBehindTag(source, value_tag, out, 0);
}

bool ReadUint16(ByteSource& source, std::uint16_t& out) {
  return ReadNumber(source, out);
}
bool ReadUint32(ByteSource& source, std::uint32_t& out) {
  return ReadNumber(source, out);
}

}  // namespace TAVU::lumo
