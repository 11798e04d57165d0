// DefaultAllocator for the containers of the standard library, so that they fail as lumo does.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/allocator.h"

namespace TAVU::base {

template <typename T>
struct HeapAllocator {
  using value_type = T;

  HeapAllocator() noexcept = default;
  template <typename Other>
  HeapAllocator(const HeapAllocator<Other>& /*other*/) noexcept {}  // NOLINT: implicit by contract

  [[nodiscard]] T* allocate(std::size_t count) {
    if (count > static_cast<std::size_t>(PTRDIFF_MAX) / sizeof(T)) throw BadAllocation();
    return static_cast<T*>(DefaultAllocator::Allocate(count * sizeof(T)));
  }
  void deallocate(T* block, std::size_t /*count*/) noexcept { DefaultAllocator::Free(block); }

  bool operator==(const HeapAllocator& /*other*/) const noexcept { return true; }
};

template <typename T>
using HeapVector = std::vector<T, HeapAllocator<T>>;
using HeapText = std::basic_string<char, std::char_traits<char>, HeapAllocator<char>>;

}  // namespace TAVU::base
