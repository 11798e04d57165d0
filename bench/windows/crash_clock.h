// What the crashing host and the reporter that it leads to tell each other: when it began. In
// memory that the measuring process has named, on a clock that is one for all processes.
#pragma once

#include <windows.h>

#include <cstdint>

namespace TAVU::bench {

struct CrashClock {
  std::int64_t crashed;
  std::int64_t reported;
};

// Null when there is none. Stays mapped until the process ends.
inline volatile CrashClock* OpenCrashClock() {
  const HANDLE mapping = ::CreateFileMappingW(INVALID_HANDLE_VALUE, nullptr, PAGE_READWRITE, 0,
                                              sizeof(CrashClock), L"tavu_bench_crash_clock");
  if (mapping == nullptr) return nullptr;
  return static_cast<volatile CrashClock*>(
      ::MapViewOfFile(mapping, FILE_MAP_WRITE, 0, 0, sizeof(CrashClock)));
}

inline std::int64_t Ticks() {
  LARGE_INTEGER ticks;
  ::QueryPerformanceCounter(&ticks);
  return ticks.QuadPart;
}

}  // namespace TAVU::bench
