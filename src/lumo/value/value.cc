#include "lumo/value/value.h"

#include <cstring>

#include "lumo/value/big_int.h"
#include "lumo/value/content_release.h"

namespace TAVU::lumo {

namespace {

// A copy of some bytes, followed by a zero byte.
void* Duplicate(const void* bytes, std::size_t size) {
  if (size == SIZE_MAX) throw base::BadAllocation();
  auto* block = static_cast<char*>(base::DefaultAllocator::Allocate(size + 1));
  std::memcpy(block, bytes, size);
  block[size] = 0;
  return block;
}

}  // namespace

Value::Value(const Value& other, CopyDepth depth) {
  // A null that was converted to a binary has no pointer, and nothing to copy.
  const bool has_content = IsOwningType(other.type_) && other.payload_.content.pointer != nullptr;
  if (depth == CopyDepth::kShallow || !has_content) {
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
      // A big integer does not survive a deep copy: the result is null. It has no encoding either,
      // so no message loses anything by that.
      return;
  }
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

void Value::FreeContent() noexcept {
  ContentRelease release;
  release.Take(*this);
}

}  // namespace TAVU::lumo
