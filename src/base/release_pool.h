// Owns memory that values only borrow, for the length of a call.
#pragma once

#include <cstddef>

namespace TAVU::base {

// Blocks are released newest first when the pool goes. Not thread-safe.
class ReleasePool {
 public:
  using ReleaseFunction = void (*)(void* pointer);

  ReleasePool() noexcept = default;
  ReleasePool(const ReleasePool&) = delete;
  ReleasePool& operator=(const ReleasePool&) = delete;
  ~ReleasePool();

  // `size` bytes that the pool frees; null for 0 bytes and when memory is exhausted (a caller
  // reports a file that is too large like one that cannot be read).
  [[nodiscard]] void* Allocate(std::size_t size) noexcept;
  // Number of entries made so far; the newest has the index count() - 1.
  [[nodiscard]] std::size_t count() const noexcept { return count_; }
  // Releases one entry now. False for an index that was never given or is released already.
  bool Release(std::size_t index) noexcept;

 private:
  struct Entry {
    ReleaseFunction release;  // null once released
    void* pointer;
  };

  Entry* entries_ = nullptr;
  std::size_t count_ = 0;
  std::size_t capacity_ = 0;
};

}  // namespace TAVU::base
