// A dynamically typed value, the unit of everything that the library sends.
//
// A value of a string, a binary, a big integer, a list, a map or a table either owns its content
// (owns() is true: freed when the value is cleared) or borrows it (the content's owner keeps it
// alive while the value is in use). Plain copies are SHALLOW: they borrow from the source, whoever
// owns the content. This is how records refer to a caller's buffers without copying them. Ask for
// CopyDepth::kDeep to get a value that stands alone, or move.
//
// Not thread-safe. Throws nothing but BadAllocation. Clearing or destroying a value needs no more
// stack for a deeply nested one than for a flat one; copying deeply, comparing and hashing recurse.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string_view>

#include "lumo/value/value_type.h"

namespace TAVU::lumo {

class BigInt;
class List;
class Map;
class Table;

enum class CopyDepth { kShallow, kDeep };

class Value {
 public:
  // --- Construction ---------------------------------------------------------------------------
  Value() noexcept = default;         // null
  Value(const Value& other) noexcept  // shallow; the text cache is not copied
      : type_(other.type_), payload_(other.payload_) {}
  Value(const Value& other, CopyDepth depth);
  Value(Value&& other) noexcept { Take(other); }   // takes content, ownership and text cache
  Value& operator=(const Value& other) noexcept {  // clears, then as the shallow copy
    if (this != &other) *this = Value(other);
    return *this;
  }
  Value& operator=(Value&& other) noexcept {
    Value taken(static_cast<Value&&>(other));  // first: `other` may lie in what is cleared
    Clear();
    Take(taken);
    return *this;
  }
  ~Value() {
    if (HasContent()) FreeContent();
  }

  [[nodiscard]] static Value Bool(bool value) noexcept {
    Value result(ValueType::kBool);
    result.payload_.byte = value ? 1 : 0;
    return result;
  }
  [[nodiscard]] static Value Char(signed char value) noexcept {
    Value result(ValueType::kChar);
    result.payload_.byte = static_cast<std::uint8_t>(value);
    return result;
  }
  [[nodiscard]] static Value Int(std::int32_t value) noexcept {
    Value result(ValueType::kInt);
    result.payload_.int_value = value;
    return result;
  }
  [[nodiscard]] static Value Long(std::int64_t value) noexcept {
    Value result(ValueType::kLong);
    result.payload_.long_value = value;
    return result;
  }
  [[nodiscard]] static Value Double(double value) noexcept {
    Value result(ValueType::kDouble);
    result.payload_.double_value = value;
    return result;
  }
  [[nodiscard]] static Value Date(std::int64_t milliseconds_since_1970) noexcept {
    Value result(ValueType::kDate);
    result.payload_.long_value = milliseconds_since_1970;
    return result;
  }

  // Text and bytes. A null data pointer gives a null value, whatever the length. A copy carries a
  // zero byte after the content, which the length does not count.
  [[nodiscard]] static Value BorrowString(std::string_view text) noexcept;
  [[nodiscard]] static Value CopyString(std::string_view text);
  // The same for zero-terminated texts.
  [[nodiscard]] static Value BorrowString(const char* text) noexcept {
    return text == nullptr ? Value() : BorrowString(std::string_view(text));
  }
  [[nodiscard]] static Value CopyString(const char* text) {
    return text == nullptr ? Value() : CopyString(std::string_view(text));
  }
  [[nodiscard]] static Value BorrowBinary(std::span<const std::byte> bytes) noexcept;
  [[nodiscard]] static Value CopyBinary(std::span<const std::byte> bytes);
  // Takes over `block`, made by DefaultAllocator with at least `size` + 1 bytes, the zero byte at
  // `size` set. `type` is kString or kBinary.
  [[nodiscard]] static Value AdoptBytes(ValueType type, void* block, std::size_t size) noexcept {
    return Adopt(type, block, size);
  }

  // Containers: borrowed, deeply copied, or taken over.
  [[nodiscard]] static Value BorrowList(const List& list) noexcept;
  [[nodiscard]] static Value BorrowMap(const Map& map) noexcept;
  [[nodiscard]] static Value BorrowTable(const Table& table) noexcept;
  [[nodiscard]] static Value CopyList(const List& list);
  [[nodiscard]] static Value CopyMap(const Map& map);
  [[nodiscard]] static Value CopyTable(const Table& table);
  [[nodiscard]] static Value AdoptList(std::unique_ptr<List> list) noexcept;
  [[nodiscard]] static Value AdoptMap(std::unique_ptr<Map> map) noexcept;
  [[nodiscard]] static Value AdoptTable(std::unique_ptr<Table> table) noexcept;
  [[nodiscard]] static Value AdoptBigInt(std::unique_ptr<BigInt> number) noexcept;

  // Clears and takes `type` with a zero payload. An owning type cannot be without its content: a
  // request for one gives a null value instead.
  void Reset(ValueType type) noexcept;
  // Frees what the value owns, and the text cache; the value is null then.
  void Clear() noexcept {
    if (HasContent()) FreeContent();
    Forget();
  }

  // --- Access ---------------------------------------------------------------------------------
  // Each accessor is meaningful for its own type only and reads the payload as it is.
  [[nodiscard]] ValueType type() const noexcept { return type_; }
  [[nodiscard]] bool owns() const noexcept { return owns_; }
  [[nodiscard]] bool IsNull() const noexcept { return type_ == ValueType::kNull; }
  [[nodiscard]] std::uint8_t byte() const noexcept { return payload_.byte; }  // bool: true is 1
  [[nodiscard]] signed char character() const noexcept {
    return static_cast<signed char>(payload_.byte);
  }
  [[nodiscard]] std::int32_t int_value() const noexcept { return payload_.int_value; }
  [[nodiscard]] std::int64_t long_value() const noexcept { return payload_.long_value; }
  [[nodiscard]] std::int64_t date_value() const noexcept { return payload_.long_value; }
  [[nodiscard]] double double_value() const noexcept { return payload_.double_value; }
  [[nodiscard]] std::span<const std::byte> bytes() const noexcept {  // string or binary
    return {static_cast<const std::byte*>(payload_.content.pointer), payload_.content.length};
  }
  [[nodiscard]] std::string_view text() const noexcept {  // string or binary
    return {static_cast<const char*>(payload_.content.pointer), payload_.content.length};
  }
  [[nodiscard]] const List& list() const noexcept {
    return *static_cast<const List*>(payload_.content.pointer);
  }
  [[nodiscard]] const Map& map() const noexcept {
    return *static_cast<const Map*>(payload_.content.pointer);
  }
  [[nodiscard]] const Table& table() const noexcept {
    return *static_cast<const Table*>(payload_.content.pointer);
  }
  [[nodiscard]] const BigInt& big_int() const noexcept {
    return *static_cast<const BigInt*>(payload_.content.pointer);
  }

 private:
  friend class ValueTextAccess;  // text view and in-place conversion (value_text.h)
  friend class ContentRelease;   // frees nested content without recursion

  union Payload {
    std::uint8_t byte;
    std::int32_t int_value;
    std::int64_t long_value;
    double double_value;
    struct {
      const void* pointer;   // bytes, or the container or number object
      std::uint64_t length;  // of bytes
    } content;
  };

  explicit Value(ValueType type) noexcept : type_(type) {}
  [[nodiscard]] static Value Borrow(ValueType type, const void* content,
                                    std::size_t length) noexcept {
    if (content == nullptr) return {};
    Value result(type);
    result.payload_.content = {content, length};
    return result;
  }
  [[nodiscard]] static Value Adopt(ValueType type, const void* content,
                                   std::size_t length) noexcept {
    Value result = Borrow(type, content, length);
    result.owns_ = content != nullptr;
    return result;
  }

  [[nodiscard]] bool HasContent() const noexcept { return owns_ || text_cache_ != nullptr; }
  void FreeContent() noexcept;  // leaves the fields as they are
  void Forget() noexcept {
    type_ = ValueType::kNull;
    owns_ = false;
    payload_.content = {nullptr, 0};
    text_cache_ = nullptr;
  }
  void Take(Value& other) noexcept {
    type_ = other.type_;
    owns_ = other.owns_;
    payload_ = other.payload_;
    text_cache_ = other.text_cache_;
    other.Forget();
  }

  ValueType type_ = ValueType::kNull;
  bool owns_ = false;
  Payload payload_ = {.content = {nullptr, 0}};
  char* text_cache_ = nullptr;  // zero-terminated; always owned; null while not made
};

// The total order of values: negative, zero or positive. Values of different types compare by their
// type tags alone; see value_compare.cc for each type's rule and its oddities. Throws BadAllocation
// for maps so entangled in each other's keys that it would have to remember more than a million
// pairs of them. AreEqual (value_equality.h) is cheaper for callers that need no order.
[[nodiscard]] std::int32_t Compare(const Value& a, const Value& b);

// The lookup2 hash of tag and content, chained on `initial`.
[[nodiscard]] std::uint32_t Hash(const Value& value, std::uint32_t initial) noexcept;

}  // namespace TAVU::lumo
