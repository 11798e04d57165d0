// How much memory the unfinished requests of all peers together may hold.
#pragma once

#include <cstddef>

namespace TAVU::collector {

// Used by one thread.
class MemoryBudget {
 public:
  explicit MemoryBudget(std::size_t limit) noexcept : limit_(limit) {}
  MemoryBudget(const MemoryBudget&) = delete;
  MemoryBudget& operator=(const MemoryBudget&) = delete;

  // False, and nothing is taken, when less than `bytes` are left.
  [[nodiscard]] bool Take(std::size_t bytes) noexcept {
    if (bytes > limit_ - used_) return false;
    used_ += bytes;
    return true;
  }
  void Return(std::size_t bytes) noexcept { used_ -= bytes; }

 private:
  std::size_t limit_;
  std::size_t used_ = 0;
};

}  // namespace TAVU::collector
