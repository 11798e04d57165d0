// Included in front of everything that is built with GoogleTest for Windows. GoogleTest's own
// Notification is made of std::mutex and std::condition_variable, which the win32 thread model does
// not have; with this one in its place the rest of GoogleTest locks by Windows' own means.
#pragma once

#ifdef __cplusplus
#include <atomic>

#define GTEST_HAS_NOTIFICATION_ 1

namespace testing::internal {

class Notification {
 public:
  void Notify() { notified_.store(true, std::memory_order_release); }
  void WaitForNotification() {
    while (!notified_.load(std::memory_order_acquire)) __builtin_ia32_pause();
  }

 private:
  std::atomic<bool> notified_ = false;
};

}  // namespace testing::internal
#endif
