// What this process holds of the system's things, for tests that nothing is left behind.
#pragma once

#include <windows.h>

#include <winternl.h>

#include <algorithm>
#include <cstddef>
#include <vector>

namespace TAVU::test {

struct Resources {
  std::size_t handles = 0;
  std::size_t blocks = 0;  // in use, in all heaps
  std::size_t bytes = 0;   // of these
};

inline std::size_t CountHandles() {
  std::vector<std::byte> buffer(1 << 22);
  const auto size = static_cast<ULONG>(buffer.size());
  if (::NtQuerySystemInformation(SystemHandleInformation, buffer.data(), size, nullptr) != 0) {
    return 0;
  }
  const auto* all = reinterpret_cast<const SYSTEM_HANDLE_INFORMATION*>(buffer.data());
  const auto is_ours = [](const auto& one) { return one.OwnerPid == ::GetCurrentProcessId(); };
  return static_cast<std::size_t>(std::count_if(all->Handle, all->Handle + all->Count, is_ours));
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
