// A first-in-first-out queue in one block of memory, which holds 64 elements at first and doubles
// when it is full. Elements are moved, never copied. Not thread-safe.
#pragma once

#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

namespace TAVU::base {

template <typename T>
class RingBuffer {
  // Growing must not fail half-way.
  static_assert(std::is_nothrow_move_assignable_v<T> && std::is_nothrow_default_constructible_v<T>);

 public:
  static constexpr std::size_t kFirstCapacity = 64;

  RingBuffer() noexcept = default;  // without a block: the first element brings it
  RingBuffer(RingBuffer&& other) noexcept { Swap(other); }
  RingBuffer& operator=(RingBuffer&& other) noexcept {
    RingBuffer taken(std::move(other));
    taken.Swap(*this);
    return *this;
  }

  [[nodiscard]] bool empty() const noexcept { return count_ == 0; }
  [[nodiscard]] std::size_t size() const noexcept { return count_; }

  // Makes sure of room for one more element. Throws std::bad_alloc, and nothing has changed then.
  void MakeRoom() {
    if (count_ < capacity_) return;
    const std::size_t capacity = capacity_ == 0 ? kFirstCapacity : capacity_ * 2;
    auto block = std::make_unique<T[]>(capacity);
    for (std::size_t i = 0; i < count_; ++i) block[i] = std::move(At(i));
    block_ = std::move(block);
    capacity_ = capacity;
    first_ = 0;
  }

  // Needs the room that MakeRoom() makes.
  void Push(T element) noexcept { At(count_++) = std::move(element); }

  // Takes the oldest element; needs one.
  [[nodiscard]] T Pop() noexcept {
    T element = std::exchange(At(0), T());
    first_ = Wrapped(first_ + 1);
    --count_;
    return element;
  }

 private:
  T& At(std::size_t index) noexcept { return block_[Wrapped(first_ + index)]; }
  // `place` is less than twice the capacity.
  [[nodiscard]] std::size_t Wrapped(std::size_t place) const noexcept {
    return place < capacity_ ? place : place - capacity_;
  }

  void Swap(RingBuffer& other) noexcept {
    std::swap(block_, other.block_);
    std::swap(capacity_, other.capacity_);
    std::swap(first_, other.first_);
    std::swap(count_, other.count_);
  }

  std::unique_ptr<T[]> block_;
  std::size_t capacity_ = 0;
  std::size_t first_ = 0;  // index of the oldest element
  std::size_t count_ = 0;
};

}  // namespace TAVU::base
