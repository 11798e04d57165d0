// How much memory the unfinished requests of peers may hold.
#pragma once

#include <atomic>
#include <cstddef>

namespace TAVU::collector {

// What is taken from a budget with a parent, the share of one peer, is taken from the parent, too.
// From any thread: what one has received, another gives back when it has decoded it.
class MemoryBudget {
 public:
  // `parent`, not owned, outlives this one.
  explicit MemoryBudget(std::size_t limit, MemoryBudget* parent = nullptr) noexcept
      : limit_(limit), parent_(parent) {}
  MemoryBudget(const MemoryBudget&) = delete;
  MemoryBudget& operator=(const MemoryBudget&) = delete;

  // False, and nothing is taken, when less than `bytes` are left.
  [[nodiscard]] bool Take(std::size_t bytes) noexcept {
    if (used_.fetch_add(bytes) + bytes > limit_ || (parent_ != nullptr && !parent_->Take(bytes))) {
      used_ -= bytes;
      return false;
    }
    return true;
  }
  void Return(std::size_t bytes) noexcept {
    used_ -= bytes;
    if (parent_ != nullptr) parent_->Return(bytes);
  }

  [[nodiscard]] std::size_t used() const noexcept { return used_; }
  [[nodiscard]] bool HasRoomFor(std::size_t bytes) const noexcept {
    return bytes <= limit_ && used_ <= limit_ - bytes;
  }

 private:
  const std::size_t limit_;
  MemoryBudget* const parent_;
  std::atomic<std::size_t> used_ = 0;
};

}  // namespace TAVU::collector
