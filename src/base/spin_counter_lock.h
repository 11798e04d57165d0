// A lock for the few instructions that make a process-wide object. Free from the moment the library
// is loaded: it needs no constructor to run.
#pragma once

#include <atomic>

namespace TAVU::base {

// Gives up the rest of the thread's time slice.
void YieldThread() noexcept;

// Not re-entrant. A thread that waits yields its time slice again and again, so this is for short,
// rare contention only; exports that wait for a slow server wait at the ApiLock of api.
class SpinCounterLock {
 public:
  class Guard {
   public:
    explicit Guard(SpinCounterLock& lock) noexcept : lock_(lock) { lock_.Acquire(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;
    ~Guard() { lock_.Release(); }

   private:
    SpinCounterLock& lock_;
  };

  void Acquire() noexcept {
    while (counter_.fetch_sub(1, std::memory_order_acquire) < 1) {
      counter_.fetch_add(1, std::memory_order_relaxed);
      YieldThread();
    }
  }
  void Release() noexcept { counter_.fetch_add(1, std::memory_order_release); }

 private:
  std::atomic<int> counter_ = 1;  // 1: free
};

}  // namespace TAVU::base
