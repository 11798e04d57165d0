#include "base/allocator.h"

#include <cstdlib>

namespace TAVU::base {

const char* BadAllocation::what() const noexcept {
  return "bad allocation";
}

void* DefaultAllocator::Allocate(std::size_t size) {
  // malloc(0) may give null, which here means failure only.
  void* block = std::malloc(size == 0 ? 1 : size);
  if (block == nullptr) throw BadAllocation();
  return block;
}

void* DefaultAllocator::Reallocate(void* block, std::size_t size) {
  void* moved = std::realloc(block, size == 0 ? 1 : size);
  if (moved == nullptr) throw BadAllocation();
  return moved;
}

void DefaultAllocator::Free(void* block) noexcept {
  std::free(block);
}

}  // namespace TAVU::base
