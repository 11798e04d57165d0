// lumo's growable string, with printf-style appending.
//
// The text is zero-terminated only when c_str() hands it out; there is always room for the zero.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

#include "lumo/allocator.h"

namespace TAVU::lumo {

// `Unit` is char for text, char16_t for its 16-bit twin. Capacity starts at `kFirstCapacity` units
// and doubles until a request, with its terminator, fits. Move-only; throws BadAllocation.
template <typename Unit, typename Allocator = DefaultAllocator, std::size_t kFirstCapacity = 64>
class BasicString {
 public:
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

  void Append(std::basic_string_view<Unit> text) {
    if (text.empty()) return;
    Reserve(text.size());
    std::memcpy(data_ + length_, text.data(), text.size() * sizeof(Unit));
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

  // Makes room for `more` units and the terminator behind the text; returns where they begin.
  // SetLength commits what was written there.
  Unit* Reserve(std::size_t more) {
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
  Unit* data_ = nullptr;
  std::size_t capacity_ = 0;
  std::size_t length_ = 0;
};

}  // namespace TAVU::lumo
