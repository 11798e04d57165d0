// The code of a thread's last failed export (101 to 110), separate for each thread and never
// cleared by success. Not the thread's system error, which the network layer uses.
#pragma once

#include <cstdint>

namespace TAVU::api {

// One cell for each thread, found through one TLS index. The four notifications come from the
// library's entry point. A thread that ran before the library was loaded gets its cell, holding 0,
// when it first needs one.
class LastErrorSlot {
 public:
  static bool AttachProcess() noexcept;  // false when no TLS index is left
  static void AttachThread() noexcept;
  static void DetachThread() noexcept;
  static void DetachProcess() noexcept;
};

void SetLastErrorCode(std::uint32_t code) noexcept;
[[nodiscard]] std::uint32_t GetLastErrorCode() noexcept;

}  // namespace TAVU::api
