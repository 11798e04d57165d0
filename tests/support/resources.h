// What this process holds of the system's things, for tests that nothing is left behind.
#pragma once

#include <windows.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace TAVU::test {

struct Resources {
  std::size_t handles = 0;
  std::size_t blocks = 0;  // in use, in all heaps
  std::size_t bytes = 0;   // of these
};

// By the values of new handles: these are multiples of four, the lowest free one first, so that
// with enough of them no value up to the highest is left free. The system's own list of all handles
// is no way to count: under Wine, asking for it while another program starts or ends takes the
// server down, and every program with it.
inline std::size_t CountHandles() {
  constexpr std::size_t kProbes = 512;  // more than there are gaps
  HANDLE probes[kProbes];
  std::uintptr_t highest = 0;
  for (HANDLE& probe : probes) {
    probe = ::CreateEventW(nullptr, TRUE, FALSE, nullptr);
    highest = std::max(highest, reinterpret_cast<std::uintptr_t>(probe));
  }
  for (const HANDLE probe : probes) ::CloseHandle(probe);
  return highest / 4 - kProbes;
}

inline Resources MeasureResources() {
  Resources use = {.handles = CountHandles()};
  HANDLE heaps[64];
  const DWORD count = std::min<DWORD>(::GetProcessHeaps(64, heaps), 64);
  for (DWORD i = 0; i < count; ++i) {
    PROCESS_HEAP_ENTRY entry = {};
    while (::HeapWalk(heaps[i], &entry)) {
      if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) == 0) continue;
      ++use.blocks;
      use.bytes += entry.cbData;
    }
  }
  return use;
}

}  // namespace TAVU::test
