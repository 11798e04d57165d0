// Where lumo gets memory from: the C library's heap. (ReleasePool alone asks it directly, because
// it reports failure by null.)
#pragma once

#include <cstddef>
#include <new>

namespace TAVU::base {

// What lumo throws when memory is exhausted. what() is "bad allocation" on every toolchain.
class BadAllocation : public std::bad_alloc {
 public:
  [[nodiscard]] const char* what() const noexcept override;
};

// malloc/realloc/free with failure turned into BadAllocation.
struct DefaultAllocator {
  // `size` bytes, never null: 0 bytes give a block too. Throws BadAllocation.
  [[nodiscard]] static void* Allocate(std::size_t size);
  // Keeps the first min(old, new) bytes; `block` may be null. On failure throws BadAllocation and
  // leaves `block` as it was.
  [[nodiscard]] static void* Reallocate(void* block, std::size_t size);
  static void Free(void* block) noexcept;
};

// Base of the heap objects of this layer, so that `new` of them takes memory from the same place
// and fails in the same way.
struct FromDefaultAllocator {
  static void* operator new(std::size_t size) { return DefaultAllocator::Allocate(size); }
  static void operator delete(void* block) noexcept { DefaultAllocator::Free(block); }
};

}  // namespace TAVU::base
