#include "crash/document/memory_probe.h"

#include <windows.h>

namespace TAVU::crash {

namespace {

bool IsReadableRegion(const MEMORY_BASIC_INFORMATION& region) noexcept {
  // On this processor what may be executed or written may be read too.
  constexpr DWORD kReadable = PAGE_READONLY | PAGE_READWRITE | PAGE_WRITECOPY | PAGE_EXECUTE |
                              PAGE_EXECUTE_READ | PAGE_EXECUTE_READWRITE | PAGE_EXECUTE_WRITECOPY;
  return region.State == MEM_COMMIT && (region.Protect & kReadable) != 0 &&
         (region.Protect & PAGE_GUARD) == 0;
}

// A function of its own: the compiler guards calls, not single instructions.
[[gnu::noinline]] void CopyBytes(volatile std::byte* to, const volatile std::byte* from,
                                 std::size_t size) {
  for (std::size_t i = 0; i < size; ++i) to[i] = from[i];
}

// Not noexcept, though nothing leaves it: where both stand, this compiler lets a fault run into
// std::terminate before the guard sees it.
bool CopyGuarded(std::byte* to, const std::byte* from, std::size_t size) {
  __try {
    CopyBytes(to, from, size);
  } __except (EXCEPTION_EXECUTE_HANDLER) {
    return false;
  }
  return true;
}

}  // namespace

bool IsReadable(std::uint64_t address, std::size_t size) noexcept {
  const std::uint64_t end = address + size;
  if (end < address) return false;  // wraps around
  while (address < end) {
    MEMORY_BASIC_INFORMATION region;
    // Fails for what lies outside the addresses of a process.
    if (::VirtualQuery(reinterpret_cast<const void*>(address), &region, sizeof region) == 0 ||
        !IsReadableRegion(region)) {
      return false;
    }
    address = reinterpret_cast<std::uint64_t>(region.BaseAddress) + region.RegionSize;
  }
  return true;
}

bool TryRead(std::uint64_t address, void* to, std::size_t size) noexcept {
  return IsReadable(address, size) &&
         CopyGuarded(static_cast<std::byte*>(to), reinterpret_cast<const std::byte*>(address),
                     size);
}

}  // namespace TAVU::crash
