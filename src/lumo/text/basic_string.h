// lumo's growable string, with printf-style appending (see formatter.h).
//
// The text is zero-terminated only when c_str() hands it out; there is always room for the zero.
// Used by one thread at a time. Throws BadAllocation, and then keeps the text that it had.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "base/allocator.h"
#include "lumo/text/formatter_sink.h"

namespace TAVU::lumo {

// `Unit` is char for text, char16_t for its 16-bit twin. Capacity starts at `kFirstCapacity` units
// and doubles until a request, with its terminator, fits. Move-only.
template <typename Unit, typename Allocator = base::DefaultAllocator,
          std::size_t kFirstCapacity = 64>
class BasicString {
 public:
  class _BasicStringFormatter;

  BasicString() noexcept = default;
  explicit BasicString(std::basic_string_view<Unit> text) { Append(text); }
  BasicString(BasicString&& other) noexcept { *this = static_cast<BasicString&&>(other); }
  BasicString& operator=(BasicString&& other) noexcept {
    if (this != &other) {
      Allocator::Free(data_);
      data_ = other.data_, capacity_ = other.capacity_, length_ = other.length_;
      other.data_ = nullptr, other.capacity_ = 0, other.length_ = 0;
    }
    return *this;
  }
  BasicString(const BasicString&) = delete;
  BasicString& operator=(const BasicString&) = delete;
  ~BasicString() { Allocator::Free(data_); }

  // `text` may be a part of this very string, in both. An empty one takes room for its terminator.
  void Append(std::basic_string_view<Unit> text) {
    const std::size_t offset = OffsetInBuffer(text.data());
    Unit* const target = Reserve(text.size());
    const Unit* const source = offset < capacity_ ? data_ + offset : text.data();
    if (!text.empty()) std::memmove(target, source, text.size() * sizeof(Unit));
    length_ += text.size();
  }
  void Assign(std::basic_string_view<Unit> text) {
    Clear();
    Append(text);
  }
  void Clear() noexcept { length_ = 0; }  // keeps the buffer

  [[nodiscard]] std::size_t length() const noexcept { return length_; }
  [[nodiscard]] std::size_t capacity() const noexcept { return capacity_; }
  [[nodiscard]] bool empty() const noexcept { return length_ == 0; }
  [[nodiscard]] std::basic_string_view<Unit> view() const noexcept { return {data_, length_}; }
  // Zero-terminated; the shared empty text while the length is 0.
  [[nodiscard]] const Unit* c_str() const noexcept {
    static constexpr Unit kEmpty[1] = {};
    if (length_ == 0) return kEmpty;
    data_[length_] = Unit{};
    return data_;
  }

  // Makes room for `more` units and the terminator after the text; returns where they begin.
  // SetLength commits what was written there.
  Unit* Reserve(std::size_t more) {
    // Far above what memory can hold, and low enough that no sum or doubling below wraps.
    constexpr std::size_t kLargest = SIZE_MAX / 4 / sizeof(Unit);
    if (more > kLargest || length_ > kLargest - more) throw base::BadAllocation();
    const std::size_t needed = length_ + more + 1;
    if (data_ != nullptr && needed <= capacity_) return data_ + length_;
    std::size_t capacity = data_ == nullptr ? kFirstCapacity : capacity_ * 2;
    while (capacity < needed) capacity *= 2;
    data_ = static_cast<Unit*>(Allocator::Reallocate(data_, capacity * sizeof(Unit)));
    capacity_ = capacity;
    return data_ + length_;
  }
  void SetLength(std::size_t length) noexcept { length_ = length; }

 private:
  static constexpr std::size_t kElsewhere = SIZE_MAX;

  // How many units into the buffer `unit` points; kElsewhere for a pointer to other memory. It is
  // asked before the buffer moves, because afterwards its old address must not be used.
  [[nodiscard]] std::size_t OffsetInBuffer(const Unit* unit) const noexcept {
    const auto begin = reinterpret_cast<std::uintptr_t>(data_);
    const auto address = reinterpret_cast<std::uintptr_t>(unit);
    if (address < begin || address - begin >= capacity_ * sizeof(Unit)) return kElsewhere;
    return (address - begin) / sizeof(Unit);
  }

  Unit* data_ = nullptr;
  std::size_t capacity_ = 0;
  std::size_t length_ = 0;
};

// Lets the formatting engine write to the end of a string, 64 bytes at a time. The class's name is
// what the rest of the system knows it by.
// NOLINTNEXTLINE(bugprone-reserved-identifier)
template <typename Unit, typename Allocator, std::size_t kFirstCapacity>
class BasicString<Unit, Allocator, kFirstCapacity>::_BasicStringFormatter final : public Formatter {
 public:
  static_assert(sizeof(Unit) == 1, "the engine writes bytes");

  explicit _BasicStringFormatter(BasicString& target) noexcept : target_(target) {}

  bool begin() override {
    start_ = target_.length();
    buffer_ = target_.Reserve(kBufferSize);
    capacity_ = kBufferSize;
    return true;
  }
  bool grow() override { return begin(); }
  void end(std::size_t written) override { target_.SetLength(start_ + written); }

 private:
  static constexpr std::size_t kBufferSize = 64;

  BasicString& target_;    // not owned
  std::size_t start_ = 0;  // the target's length when the last buffer was offered
};

}  // namespace TAVU::lumo
