#include "lumo/codec.h"

#include <bit>
#include <cstring>
#include <memory>
#include <string>
#include <utility>

#include "lumo/list.h"
#include "lumo/map.h"
#include "lumo/table.h"

namespace TAVU::lumo {

namespace {

// --- Numbers -------------------------------------------------------------------------------------

template <typename Number>
void StoreBigEndian(std::uint8_t* out, Number number) noexcept {
  for (std::size_t i = 0; i < sizeof(Number); ++i) {
    out[i] = static_cast<std::uint8_t>(number >> (8 * (sizeof(Number) - 1 - i)));
  }
}

template <typename Number>
Number LoadBigEndian(const std::uint8_t* bytes) noexcept {
  Number number = 0;
  for (std::size_t i = 0; i < sizeof(Number); ++i) {
    number = static_cast<Number>(number << 8 | bytes[i]);
  }
  return number;
}

template <typename Number>
bool WriteNumber(ByteSink& sink, Number number) {
  std::uint8_t bytes[sizeof(Number)];
  StoreBigEndian(bytes, number);
  return sink.Write(bytes, sizeof bytes);
}

// Tag and number in one go.
template <typename Number>
bool WriteTagged(ByteSink& sink, std::uint8_t number_tag, Number number) {
  std::uint8_t bytes[1 + sizeof(Number)] = {number_tag};
  StoreBigEndian(bytes + 1, number);
  return sink.Write(bytes, sizeof bytes);
}

template <typename Number>
bool ReadNumber(ByteSource& source, Number& out) {
  std::uint8_t bytes[sizeof(Number)];
  if (!source.Read(bytes, sizeof bytes)) return false;
  out = LoadBigEndian<Number>(bytes);
  return true;
}

bool ReadTag(ByteSource& source, std::uint8_t expected) {
  std::uint8_t byte = 0;
  return source.ReadByte(byte) && byte == expected;
}

// --- Writing -------------------------------------------------------------------------------------

bool WriteNested(ByteSink& sink, const Value& value, int depth);

bool WriteChunks(ByteSink& sink, std::uint8_t chunk_tag, std::uint8_t final_tag,
                 std::string_view text) {
  while (text.size() > kLongestChunk) {
    if (!WriteChunk(sink, chunk_tag, text.substr(0, kLongestChunk))) return false;
    text.remove_prefix(kLongestChunk);
  }
  return WriteChunk(sink, final_tag, text);
}

bool WriteElements(ByteSink& sink, const List& list, int depth) {
  for (const Value& element : list) {
    if (!WriteNested(sink, element, depth)) return false;
  }
  return EndContainer(sink);
}

// A count of more than 32 bits wraps around; readers go by the end tags.
bool WriteCount(ByteSink& sink, std::size_t count) {
  return sink.WriteByte(tag::kList) &&
         WriteTagged(sink, tag::kLength, static_cast<std::uint32_t>(count));
}

bool WriteList(ByteSink& sink, const List& list, int depth) {
  return WriteCount(sink, list.size()) && WriteElements(sink, list, depth);
}

bool WriteMap(ByteSink& sink, const Map& map, int depth) {
  if (!BeginMap(sink)) return false;
  for (const Map::Node& entry : map) {
    if (!WriteNested(sink, entry.key, depth)) return false;
    if (!WriteNested(sink, entry.value, depth)) return false;
  }
  return EndContainer(sink);
}

bool WriteTable(ByteSink& sink, const Table& table, int depth) {
  if (!sink.WriteByte(tag::kTable)) return false;
  if (!WriteCount(sink, table.column_count())) return false;
  for (std::size_t i = 0; i < table.column_count(); ++i) {
    const ColumnInfo& column = table.column(i);
    if (!WriteChunk(sink, tag::kString, column.name)) return false;
    if (!WriteChunk(sink, tag::kColumnType, TypeName(column.type))) return false;
  }
  if (!EndContainer(sink)) return false;
  if (!WriteCount(sink, table.row_count())) return false;
  for (std::size_t i = 0; i < table.row_count(); ++i) {
    if (!sink.WriteByte(tag::kList) || !WriteElements(sink, table.row(i), depth)) return false;
  }
  return EndContainer(sink) && EndContainer(sink);
}

// `depth` counts the containers around `value`.
bool WriteNested(ByteSink& sink, const Value& value, int depth) {
  switch (value.type()) {
    case ValueType::kNull:
      return sink.WriteByte(tag::kNull);
    case ValueType::kBool:
      return sink.WriteByte(value.byte() == 1 ? tag::kTrue : tag::kFalse);
    case ValueType::kChar:
      return WriteTagged(sink, tag::kChar, value.byte());
    case ValueType::kInt:
      return WriteTagged(sink, tag::kInt, static_cast<std::uint32_t>(value.int_value()));
    case ValueType::kLong:
      return WriteTagged(sink, tag::kLong, static_cast<std::uint64_t>(value.long_value()));
    case ValueType::kDouble:
      return WriteTagged(sink, tag::kDouble, std::bit_cast<std::uint64_t>(value.double_value()));
    case ValueType::kDate:
      return WriteTagged(sink, tag::kDate, static_cast<std::uint64_t>(value.date_value()));
    case ValueType::kString:
      return WriteChunks(sink, tag::kStringChunk, tag::kString, value.text());
    case ValueType::kBinary:
      return WriteChunks(sink, tag::kBinaryChunk, tag::kBinary, value.text());
    case ValueType::kList:
      return depth < kDeepestNesting && WriteList(sink, value.list(), depth + 1);
    case ValueType::kMap:
      return depth < kDeepestNesting && WriteMap(sink, value.map(), depth + 1);
    case ValueType::kTable:
      return depth < kDeepestNesting && WriteTable(sink, value.table(), depth + 1);
    default:
      return false;  // the type has no encoding
  }
}

// --- Reading -------------------------------------------------------------------------------------

bool ReadNested(ByteSource& source, Value& out, int depth);

// A block that is filled piece by piece and becomes a value's content. There is always room for the
// zero byte behind it.
class TextBlock {
 public:
  TextBlock() = default;
  TextBlock(const TextBlock&) = delete;
  TextBlock& operator=(const TextBlock&) = delete;
  ~TextBlock() { DefaultAllocator::Free(data_); }

  // Reads `count` more bytes behind those that are there.
  [[nodiscard]] bool Append(ByteSource& source, std::size_t count) {
    const std::size_t needed = size_ + count + 1;
    if (needed > capacity_) SetCapacity(std::max(needed, capacity_ * 2));
    if (!source.Read(data_ + size_, count)) return false;
    size_ += count;
    return true;
  }

  // Hands the block over. Nothing was read into it before: an empty content.
  void MoveInto(Value& out, ValueType type) {
    if (capacity_ != size_ + 1) SetCapacity(size_ + 1);
    data_[size_] = 0;
    out = Value::AdoptBytes(type, std::exchange(data_, nullptr), size_);
  }

 private:
  void SetCapacity(std::size_t capacity) {
    data_ = static_cast<char*>(DefaultAllocator::Reallocate(data_, capacity));
    capacity_ = capacity;
  }

  char* data_ = nullptr;
  std::size_t size_ = 0;
  std::size_t capacity_ = 0;
};

struct TextKind {
  ValueType type;
  std::uint8_t chunk_tag;
  std::uint8_t final_tag;
};
constexpr TextKind kStringKind = {ValueType::kString, tag::kStringChunk, tag::kString};
constexpr TextKind kBinaryKind = {ValueType::kBinary, tag::kBinaryChunk, tag::kBinary};

// The chunks of a string or a binary, of which `first_tag` has been read.
bool ReadChunks(ByteSource& source, const TextKind& kind, std::uint8_t first_tag, Value& out) {
  TextBlock block;
  for (std::uint8_t chunk_tag = first_tag;;) {
    std::uint16_t count = 0;
    if (!ReadNumber(source, count)) return false;
    const bool is_final = chunk_tag == kind.final_tag;
    if (!is_final && count > kLongestChunk) return false;
    if (!block.Append(source, count)) return false;
    if (is_final) break;
    if (!source.ReadByte(chunk_tag)) return false;
    if (chunk_tag != kind.chunk_tag && chunk_tag != kind.final_tag) return false;
  }
  block.MoveInto(out, kind.type);
  return true;
}

// Values up to the end tag.
bool ReadElements(ByteSource& source, List& list, int depth) {
  for (;;) {
    Value& element = list.AppendNull();
    if (!ReadNested(source, element, depth)) return false;
    if (element.type() == ValueType::kEnd) break;
  }
  list.RemoveLast();
  return true;
}

bool ReadList(ByteSource& source, Value& out, int depth) {
  auto owned = std::make_unique<List>();
  List& list = *owned;
  out = Value::AdoptList(std::move(owned));
  std::uint8_t next = 0;
  if (!source.PeekByte(next)) return false;
  if (next == tag::kLength) {
    // The announced count is not believed: the end tag counts.
    std::uint32_t count = 0;
    if (!source.ReadByte(next) || !ReadNumber(source, count)) return false;
  }
  return ReadElements(source, list, depth);
}

bool ReadMap(ByteSource& source, Value& out, int depth) {
  auto owned = std::make_unique<Map>();
  Map& map = *owned;
  out = Value::AdoptMap(std::move(owned));
  for (;;) {
    Value key;
    if (!ReadNested(source, key, depth)) return false;
    if (key.type() == ValueType::kEnd) return true;
    Value value;
    if (!ReadNested(source, value, depth)) return false;
    if (value.type() == ValueType::kEnd) return false;
    static_cast<void>(
        map.Insert(std::move(key), std::move(value)));  // of a key given twice, the first stays
  }
}

// A text of one chunk, as column names and their types are.
bool ReadShortText(ByteSource& source, std::uint8_t expected_tag, std::string& out) {
  std::uint16_t size = 0;
  if (!ReadTag(source, expected_tag) || !ReadNumber(source, size)) return false;
  if (size >= kLongestChunk) return false;
  out.resize(size);
  return source.Read(out.data(), size);
}

bool ReadColumns(ByteSource& source, Table& table) {
  std::uint32_t count = 0;
  if (!ReadTag(source, tag::kList) || !ReadTag(source, tag::kLength)) return false;
  if (!ReadNumber(source, count)) return false;
  std::string name;
  std::string type;
  for (std::uint32_t i = 0; i < count; ++i) {
    if (!ReadShortText(source, tag::kString, name)) return false;
    if (!ReadShortText(source, tag::kColumnType, type)) return false;
    table.AddColumn(name, TypeFromName(type));
  }
  return ReadTag(source, tag::kEnd);
}

bool ReadRows(ByteSource& source, Table& table, int depth) {
  std::uint8_t next = 0;
  if (!ReadTag(source, tag::kList) || !source.ReadByte(next)) return false;
  if (next == tag::kLength) {
    std::uint32_t count = 0;  // no more believed than that of a list
    if (!ReadNumber(source, count) || !source.ReadByte(next)) return false;
  }
  for (; next != tag::kEnd;) {
    if (next != tag::kList) return false;
    if (!ReadElements(source, table.AddRow(), depth)) return false;
    if (!source.ReadByte(next)) return false;
  }
  return true;
}

bool ReadTable(ByteSource& source, Value& out, int depth) {
  auto owned = std::make_unique<Table>();
  Table& table = *owned;
  out = Value::AdoptTable(std::move(owned));
  return ReadColumns(source, table) && ReadRows(source, table, depth) && ReadTag(source, tag::kEnd);
}

// `depth` counts the containers around the value.
bool ReadNested(ByteSource& source, Value& out, int depth) {
  std::uint8_t value_tag = 0;
  if (!source.ReadByte(value_tag)) return false;
  std::uint8_t byte = 0;
  std::uint32_t word = 0;
  std::uint64_t long_word = 0;
  switch (value_tag) {
    case tag::kNull:
      out.Clear();
      return true;
    case tag::kTrue:
    case tag::kFalse:
      out = Value::Bool(value_tag == tag::kTrue);
      return true;
    case tag::kChar:
      if (!source.ReadByte(byte)) return false;
      out = Value::Char(static_cast<signed char>(byte));
      return true;
    case tag::kInt:
      if (!ReadNumber(source, word)) return false;
      out = Value::Int(static_cast<std::int32_t>(word));
      return true;
    case tag::kLong:
      if (!ReadNumber(source, long_word)) return false;
      out = Value::Long(static_cast<std::int64_t>(long_word));
      return true;
    case tag::kDouble:
      if (!ReadNumber(source, long_word)) return false;
      out = Value::Double(std::bit_cast<double>(long_word));
      return true;
    case tag::kDate:
      if (!ReadNumber(source, long_word)) return false;
      out = Value::Date(static_cast<std::int64_t>(long_word));
      return true;
    case tag::kStringChunk:
    case tag::kString:
      return ReadChunks(source, kStringKind, value_tag, out);
    case tag::kBinaryChunk:
    case tag::kBinary:
      return ReadChunks(source, kBinaryKind, value_tag, out);
    case tag::kList:
      return depth < kDeepestNesting && ReadList(source, out, depth + 1);
    case tag::kMap:
      return depth < kDeepestNesting && ReadMap(source, out, depth + 1);
    case tag::kTable:
      return depth < kDeepestNesting && ReadTable(source, out, depth + 1);
    case tag::kEnd:
      out.Reset(ValueType::kEnd);
      return true;
    default:
      return false;
  }
}

}  // namespace

bool WriteValue(ByteSink& sink, const Value& value) {
  return WriteNested(sink, value, 0);
}

bool ReadValue(ByteSource& source, Value& out) {
  out.Clear();
  return ReadNested(source, out, 0);
}

bool WriteUint16(ByteSink& sink, std::uint16_t value) {
  return WriteNumber(sink, value);
}
bool WriteUint32(ByteSink& sink, std::uint32_t value) {
  return WriteNumber(sink, value);
}
bool WriteUint64(ByteSink& sink, std::uint64_t value) {
  return WriteNumber(sink, value);
}
bool WriteDouble(ByteSink& sink, double value) {
  return WriteNumber(sink, std::bit_cast<std::uint64_t>(value));
}

bool ReadUint16(ByteSource& source, std::uint16_t& out) {
  return ReadNumber(source, out);
}
bool ReadUint32(ByteSource& source, std::uint32_t& out) {
  return ReadNumber(source, out);
}
bool ReadUint64(ByteSource& source, std::uint64_t& out) {
  return ReadNumber(source, out);
}
bool ReadDouble(ByteSource& source, double& out) {
  std::uint64_t bits = 0;
  if (!ReadNumber(source, bits)) return false;
  out = std::bit_cast<double>(bits);
  return true;
}

bool WriteChunk(ByteSink& sink, std::uint8_t chunk_tag, std::string_view text) {
  return WriteTagged(sink, chunk_tag, static_cast<std::uint16_t>(text.size())) &&
         sink.Write(text.data(), text.size());
}

bool BeginList(ByteSink& sink, std::int32_t count) {
  if (count < 0) return sink.WriteByte(tag::kList);
  return WriteCount(sink, static_cast<std::size_t>(count));
}

bool BeginMap(ByteSink& sink) {
  return sink.WriteByte(tag::kMap);
}
bool EndContainer(ByteSink& sink) {
  return sink.WriteByte(tag::kEnd);
}

}  // namespace TAVU::lumo
