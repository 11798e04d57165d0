#include "lumo/value.h"

#include <cstring>

#include "lumo/big_int.h"
#include "lumo/content_release.h"

namespace TAVU::lumo {

namespace {

// A copy of its own of some bytes, with the zero byte behind it.
void* Duplicate(const void* bytes, std::size_t size) {
  if (size == SIZE_MAX) throw BadAllocation();
  auto* block = static_cast<char*>(DefaultAllocator::Allocate(size + 1));
  std::memcpy(block, bytes, size);
  block[size] = 0;
  return block;
}

}  // namespace

Value::Value(const Value& other, CopyDepth depth) {
  if (depth == CopyDepth::kShallow || !IsOwningType(other.type_)) {
    *this = other;
    return;
  }
  switch (other.type_) {
    case ValueType::kString:
      *this = CopyString(other.text());
      return;
    case ValueType::kBinary:
      *this = CopyBinary(other.bytes());
      return;
    case ValueType::kList:
      *this = CopyList(other.list());
      return;
    case ValueType::kMap:
      *this = CopyMap(other.map());
      return;
    case ValueType::kTable:
      *this = CopyTable(other.table());
      return;
    default:
      // Required: a big integer does not survive a deep copy, the result is null.
      return;
  }
}

Value Value::Bool(bool value) noexcept {
  Value result(ValueType::kBool);
  result.payload_.byte = value ? 1 : 0;
  return result;
}

Value Value::Char(signed char value) noexcept {
  Value result(ValueType::kChar);
  result.payload_.byte = static_cast<std::uint8_t>(value);
  return result;
}

Value Value::Int(std::int32_t value) noexcept {
  Value result(ValueType::kInt);
  result.payload_.int_value = value;
  return result;
}

Value Value::Long(std::int64_t value) noexcept {
  Value result(ValueType::kLong);
  result.payload_.long_value = value;
  return result;
}

Value Value::Double(double value) noexcept {
  Value result(ValueType::kDouble);
  result.payload_.double_value = value;
  return result;
}

Value Value::Date(std::int64_t milliseconds_since_1970) noexcept {
  Value result(ValueType::kDate);
  result.payload_.long_value = milliseconds_since_1970;
  return result;
}

Value Value::BorrowString(std::string_view text) noexcept {
  return Borrow(ValueType::kString, text.data(), text.size());
}

Value Value::CopyString(std::string_view text) {
  if (text.data() == nullptr) return {};
  return AdoptBytes(ValueType::kString, Duplicate(text.data(), text.size()), text.size());
}

Value Value::BorrowBinary(std::span<const std::byte> bytes) noexcept {
  return Borrow(ValueType::kBinary, bytes.data(), bytes.size());
}

Value Value::CopyBinary(std::span<const std::byte> bytes) {
  if (bytes.data() == nullptr) return {};
  return AdoptBytes(ValueType::kBinary, Duplicate(bytes.data(), bytes.size()), bytes.size());
}

Value Value::AdoptBytes(ValueType type, void* block, std::size_t size) noexcept {
  return Adopt(type, block, size);
}

Value Value::BorrowList(const List& list) noexcept {
  return Borrow(ValueType::kList, &list, 0);
}
Value Value::BorrowMap(const Map& map) noexcept {
  return Borrow(ValueType::kMap, &map, 0);
}
Value Value::BorrowTable(const Table& table) noexcept {
  return Borrow(ValueType::kTable, &table, 0);
}

Value Value::CopyList(const List& list) {
  return AdoptList(std::make_unique<List>(list, CopyDepth::kDeep));
}
Value Value::CopyMap(const Map& map) {
  return AdoptMap(std::make_unique<Map>(map, CopyDepth::kDeep));
}
Value Value::CopyTable(const Table& table) {
  return AdoptTable(std::make_unique<Table>(table, CopyDepth::kDeep));
}

Value Value::AdoptList(std::unique_ptr<List> list) noexcept {
  return Adopt(ValueType::kList, list.release(), 0);
}
Value Value::AdoptMap(std::unique_ptr<Map> map) noexcept {
  return Adopt(ValueType::kMap, map.release(), 0);
}
Value Value::AdoptTable(std::unique_ptr<Table> table) noexcept {
  return Adopt(ValueType::kTable, table.release(), 0);
}
Value Value::AdoptBigInt(std::unique_ptr<BigInt> number) noexcept {
  return Adopt(ValueType::kBigInt, number.release(), 0);
}

void Value::Reset(ValueType type) noexcept {
  Clear();
  if (!IsOwningType(type)) type_ = type;
}

Value Value::Borrow(ValueType type, const void* content, std::size_t length) noexcept {
  if (content == nullptr) return {};
  Value result(type);
  result.payload_.content = {content, length};
  return result;
}

Value Value::Adopt(ValueType type, const void* content, std::size_t length) noexcept {
  Value result = Borrow(type, content, length);
  result.owns_ = content != nullptr;
  return result;
}

void Value::FreeContent() noexcept {
  ContentRelease release;
  release.Take(*this);
}

}  // namespace TAVU::lumo
