// What a process holds of the system's things, for tests that nothing is left behind.
#pragma once

#include <windows.h>

#include <winternl.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <vector>

namespace TAVU::test {

struct Resources {
  std::size_t handles = 0;
  std::size_t blocks = 0;  // in use, in all heaps
  std::size_t bytes = 0;   // of these
};

inline std::size_t CountHandles() {
  struct Entry {
    ULONG pid;
    UCHAR type;
    UCHAR flags;
    USHORT handle;
    void* object;
    ACCESS_MASK access;
  };
  std::vector<std::byte> buffer(1 << 22);
  constexpr auto kSystemHandleInformation = static_cast<SYSTEM_INFORMATION_CLASS>(16);
  ULONG size = 0;
  if (::NtQuerySystemInformation(kSystemHandleInformation, buffer.data(),
                                 static_cast<ULONG>(buffer.size()), &size) != 0) {
    return 0;
  }
  ULONG count = 0;
  std::memcpy(&count, buffer.data(), sizeof count);
  const auto* entries = reinterpret_cast<const Entry*>(buffer.data() + alignof(Entry));
  return static_cast<std::size_t>(std::count_if(entries, entries + count, [](const Entry& entry) {
    return entry.pid == ::GetCurrentProcessId();
  }));
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
