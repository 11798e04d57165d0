// The guard that keeps the crash filter in place: the entry of kernel32's
// SetUnhandledExceptionFilter is overwritten with a jump to a function that does nothing, so that
// no later caller in the process (the C runtime, another library, the host) replaces the filter.
#pragma once

#include <array>
#include <cstddef>

#include <windows.h>

namespace TAVU::crash {

// Where the jump leads: ignores its argument and returns null.
LPTOP_LEVEL_EXCEPTION_FILTER WINAPI
DummySetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER ignored) noexcept;

// One at a time, under the ApiLock. Other threads are not suspended: one that calls the function in
// the moment of the write is not guarded against.
class FilterGuard {
 public:
  // Overwrites the entry, after saving its bytes, and writes them back. Both return what
  // WriteProcessMemory returned (nonzero for success), or 0 when they could not start. Patching
  // twice saves the patch itself.
  [[nodiscard]] BOOL Patch() noexcept;
  [[nodiscard]] BOOL Restore() noexcept;

 private:
  static constexpr std::size_t kPatchSize = 9;
  using EntryBytes = std::array<std::byte, kPatchSize>;

  [[nodiscard]] static EntryBytes JumpFrom(const void* entry) noexcept;
  [[nodiscard]] static BOOL WriteEntry(void* entry, const EntryBytes& bytes) noexcept;

  EntryBytes saved_ = {};
  bool patched_ = false;
};

}  // namespace TAVU::crash
