// The system's 64-bit numbers, which it gives in two halves.
#pragma once

#include <windows.h>

namespace crash_reporter {

[[nodiscard]] constexpr ULONGLONG Joined(DWORD high, DWORD low) noexcept {
  return (static_cast<ULONGLONG>(high) << 32) | low;
}

// In units of 100 ns.
[[nodiscard]] constexpr ULONGLONG Joined(const FILETIME& time) noexcept {
  return Joined(time.dwHighDateTime, time.dwLowDateTime);
}

}  // namespace crash_reporter
