#include "base/release_pool.h"

#include <cstdlib>

namespace TAVU::base {

namespace {

constexpr std::size_t kFirstCapacity = 4;

void FreeBlock(void* block) {
  std::free(block);
}

}  // namespace

ReleasePool::~ReleasePool() {
  for (std::size_t i = count_; i > 0; --i) static_cast<void>(Release(i - 1));  // false: released
  std::free(entries_);
}

void* ReleasePool::Allocate(std::size_t size) noexcept {
  if (size == 0) return nullptr;
  if (count_ == capacity_) {
    const std::size_t capacity = capacity_ == 0 ? kFirstCapacity : capacity_ * 2;
    void* entries = std::realloc(entries_, capacity * sizeof(Entry));
    if (entries == nullptr) return nullptr;
    entries_ = static_cast<Entry*>(entries);
    capacity_ = capacity;
  }
  void* block = std::malloc(size);
  if (block == nullptr) return nullptr;
  entries_[count_++] = {&FreeBlock, block};
  return block;
}

bool ReleasePool::Release(std::size_t index) noexcept {
  if (index >= count_ || entries_[index].release == nullptr) return false;
  entries_[index].release(entries_[index].pointer);
  entries_[index] = {nullptr, nullptr};
  return true;
}

}  // namespace TAVU::base
