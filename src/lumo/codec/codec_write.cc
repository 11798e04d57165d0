#include <bit>
#include <cstring>

#include "lumo/codec/big_endian.h"
#include "lumo/codec/codec.h"
#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "lumo/value/table.h"

namespace TAVU::lumo {

namespace {

// `depth` counts the containers around `value`.
bool WriteNested(ByteSink& sink, const Value& value, int depth);

// --- Flat values ---------------------------------------------------------------------------------

template <typename Number>
std::byte* PutTagged(std::byte* out, std::uint8_t value_tag, Number number) noexcept {
  *out = std::byte{value_tag};
  StoreBigEndian(out + 1, number);
  return out + 1 + sizeof(Number);
}

constexpr std::size_t kTextHead = 3;  // tag and count

// As memcpy, without its call for the many short texts: pieces of fixed size that overlap.
inline void CopyShort(std::byte* out, const char* from, std::size_t size) noexcept {
  if (size > 32) {
    std::memcpy(out, from, size);
  } else if (size >= 16) {
    std::memcpy(out, from, 16);
    std::memcpy(out + size - 16, from + size - 16, 16);
  } else if (size >= 8) {
    std::memcpy(out, from, 8);
    std::memcpy(out + size - 8, from + size - 8, 8);
  } else if (size >= 4) {
    std::memcpy(out, from, 4);
    std::memcpy(out + size - 4, from + size - 4, 4);
  } else {
    for (std::size_t i = 0; i < size; ++i) out[i] = static_cast<std::byte>(from[i]);
  }
}

std::byte* PutText(std::byte* out, const std::byte* end, std::uint8_t final_tag,
                   std::string_view text) noexcept {
  const auto room = static_cast<std::size_t>(end - out) - kTextHead;
  if (text.size() > room || text.size() > kLongestChunk) return nullptr;
  out = PutTagged(out, final_tag, static_cast<std::uint16_t>(text.size()));
  CopyShort(out, text.data(), text.size());
  return out + text.size();
}

// Writes a null, a scalar or a text of one chunk at `out` and returns where it ends. Null, with
// nothing written, for other values and when the room up to `end` might not do.
std::byte* PutFlat(std::byte* out, const std::byte* end, const Value& value) noexcept {
  if (static_cast<std::size_t>(end - out) < kLongestScalar) return nullptr;
  switch (value.type()) {
    case ValueType::kNull:
      *out = std::byte{tag::kNull};
      return out + 1;
    case ValueType::kBool:
      *out = std::byte{value.byte() == 1 ? tag::kTrue : tag::kFalse};
      return out + 1;
    case ValueType::kChar:
      return PutTagged(out, tag::kChar, value.byte());
    case ValueType::kInt:
      return PutTagged(out, tag::kInt, static_cast<std::uint32_t>(value.int_value()));
    case ValueType::kLong:
      return PutTagged(out, tag::kLong, static_cast<std::uint64_t>(value.long_value()));
    case ValueType::kDouble:
      return PutTagged(out, tag::kDouble, std::bit_cast<std::uint64_t>(value.double_value()));
    case ValueType::kDate:
      return PutTagged(out, tag::kDate, static_cast<std::uint64_t>(value.date_value()));
    case ValueType::kString:
      return PutText(out, end, tag::kString, value.text());
    case ValueType::kBinary:
      return PutText(out, end, tag::kBinary, value.text());
    default:
      return nullptr;
  }
}

// Writes the values of a container. Flat ones go straight into the sink's window, whose bounds are
// held here, where they can stay in registers.
class ValueRun {
 public:
  explicit ValueRun(ByteSink& sink) noexcept : sink_(sink) { LookAtWindow(); }

  // Inlined, because it would stand between any two levels.
  [[nodiscard, gnu::always_inline]] bool Write(const Value& value, int depth) {
    if (std::byte* next = PutFlat(next_, end_, value)) {
      next_ = next;
      return true;
    }
    Finish();
    if (!WriteNested(sink_, value, depth)) return false;
    LookAtWindow();
    return true;
  }

  // Tells the sink what was written. Not for a destructor: after a failure the bounds are stale.
  void Finish() noexcept { sink_.Commit(next_); }

 private:
  void LookAtWindow() noexcept {
    next_ = sink_.room().data();
    end_ = next_ + sink_.room().size();
  }

  ByteSink& sink_;
  std::byte* next_;
  std::byte* end_;
};

// --- One value -----------------------------------------------------------------------------------

// As in reading, what lies on the stack of these functions does so once a level.

// False for the types without an encoding.
[[gnu::noinline]] bool WriteScalar(ByteSink& sink, const Value& value) {
  std::byte bytes[kLongestScalar];
  const std::byte* end = PutFlat(bytes, bytes + sizeof bytes, value);
  return end != nullptr && sink.Write(bytes, static_cast<std::size_t>(end - bytes));
}

template <typename Number>
bool WriteTagged(ByteSink& sink, std::uint8_t value_tag, Number number) {
  std::byte bytes[1 + sizeof(Number)];
  PutTagged(bytes, value_tag, number);
  return sink.Write(bytes, sizeof bytes);
}

[[gnu::noinline]] bool WriteChunks(ByteSink& sink, std::uint8_t chunk_tag, std::uint8_t final_tag,
                                   std::string_view text) {
  while (text.size() > kLongestChunk) {
    if (!WriteChunk(sink, chunk_tag, text.substr(0, kLongestChunk))) return false;
    text.remove_prefix(kLongestChunk);
  }
  return WriteChunk(sink, final_tag, text);
}

bool WriteElements(ByteSink& sink, const List& list, int depth) {
  ValueRun run(sink);
  for (const Value& element : list) {
    if (!run.Write(element, depth)) return false;
  }
  run.Finish();
  return EndContainer(sink);
}

// A count of more than 32 bits wraps around; readers go by the end tags.
bool WriteCount(ByteSink& sink, std::size_t count) {
  return sink.WriteByte(tag::kList) &&
         WriteTagged(sink, tag::kLength, static_cast<std::uint32_t>(count));
}

[[gnu::noinline]] bool WriteList(ByteSink& sink, const List& list, int depth) {
  return WriteCount(sink, list.size()) && WriteElements(sink, list, depth);
}

[[gnu::noinline]] bool WriteMap(ByteSink& sink, const Map& map, int depth) {
  if (!sink.WriteByte(tag::kMap)) return false;
  ValueRun run(sink);
  for (const Map::Node& entry : map) {
    if (!run.Write(entry.key, depth) || !run.Write(entry.value, depth)) return false;
  }
  run.Finish();
  return EndContainer(sink);
}

[[gnu::noinline]] bool WriteColumns(ByteSink& sink, const Table& table) {
  if (!WriteCount(sink, table.column_count())) return false;
  for (std::size_t i = 0; i < table.column_count(); ++i) {
    const ColumnInfo& column = table.column(i);
    if (!WriteChunk(sink, tag::kString, column.name)) return false;
    if (!WriteChunk(sink, tag::kColumnType, TypeName(column.type))) return false;
  }
  return EndContainer(sink);
}

[[gnu::noinline]] bool WriteTable(ByteSink& sink, const Table& table, int depth) {
  if (!sink.WriteByte(tag::kTable) || !WriteColumns(sink, table)) return false;
  if (!WriteCount(sink, table.row_count())) return false;
  for (std::size_t i = 0; i < table.row_count(); ++i) {
    if (!sink.WriteByte(tag::kList) || !WriteElements(sink, table.row(i), depth)) return false;
  }
  if (!EndContainer(sink)) return false;  // the rows
  return EndContainer(sink);              // the table
}

bool WriteNested(ByteSink& sink, const Value& value, int depth) {
  switch (value.type()) {
    case ValueType::kList:
      return depth < kDeepestNesting && WriteList(sink, value.list(), depth + 1);
    case ValueType::kMap:
      return depth < kDeepestNesting && WriteMap(sink, value.map(), depth + 1);
    case ValueType::kTable:
      return depth < kDeepestNesting && WriteTable(sink, value.table(), depth + 1);
    case ValueType::kString:
      return WriteChunks(sink, tag::kStringChunk, tag::kString, value.text());
    case ValueType::kBinary:
      return WriteChunks(sink, tag::kBinaryChunk, tag::kBinary, value.text());
    default:
      return WriteScalar(sink, value);
  }
}

template <typename Number>
bool WriteNumber(ByteSink& sink, Number number) {
  std::byte bytes[sizeof(Number)];
  StoreBigEndian(bytes, number);
  return sink.Write(bytes, sizeof bytes);
}

}  // namespace

bool WriteValue(ByteSink& sink, const Value& value) {
  return WriteNested(sink, value, 0);
}

bool WriteUint16(ByteSink& sink, std::uint16_t value) {
  return WriteNumber(sink, value);
}
bool WriteUint32(ByteSink& sink, std::uint32_t value) {
  return WriteNumber(sink, value);
}

bool WriteChunk(ByteSink& sink, std::uint8_t chunk_tag, std::string_view text) {
  return WriteTagged(sink, chunk_tag, static_cast<std::uint16_t>(text.size())) &&
         sink.Write(text.data(), text.size());
}

bool EndContainer(ByteSink& sink) {
  return sink.WriteByte(tag::kEnd);
}

}  // namespace TAVU::lumo
