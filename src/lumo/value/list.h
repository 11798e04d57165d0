// A growable array of values, which it owns.
#pragma once

#include <cstddef>
#include <memory>

#include "base/allocator.h"
#include "lumo/value/value.h"

namespace TAVU::lumo {

class List : public base::FromDefaultAllocator {
 public:
  List() noexcept = default;
  List(const List& other, CopyDepth depth);
  List(const List&) = delete;
  List& operator=(const List&) = delete;
  List(List&& other) noexcept;
  List& operator=(List&& other) noexcept;
  ~List() { Clear(); }

  void Append(Value value) {  // a copied argument is copied shallowly, a moved one is kept
    if (count_ == capacity_) Grow();
    std::construct_at(data_ + count_++, static_cast<Value&&>(value));
  }
  // Appends a null. The reference is valid until the list grows again.
  Value& AppendNull() {
    if (count_ == capacity_) Grow();
    return *std::construct_at(data_ + count_++);
  }
  void Clear() noexcept;
  void Reserve(std::size_t capacity);  // room for that many elements in all
  void ShrinkToFit();

  [[nodiscard]] std::size_t size() const noexcept { return count_; }
  [[nodiscard]] bool empty() const noexcept { return count_ == 0; }
  [[nodiscard]] const Value& operator[](std::size_t index) const noexcept { return data_[index]; }
  [[nodiscard]] Value& operator[](std::size_t index) noexcept { return data_[index]; }
  [[nodiscard]] const Value* begin() const noexcept { return data_; }
  [[nodiscard]] const Value* end() const noexcept { return data_ + count_; }

 private:
  friend class ContentRelease;

  void Grow();
  void SetCapacity(std::size_t capacity);

  Value* data_ = nullptr;
  std::size_t count_ = 0;
  union {
    std::size_t capacity_ = 0;
    List* next_released_;  // while the list waits to be freed
  };
};

}  // namespace TAVU::lumo
