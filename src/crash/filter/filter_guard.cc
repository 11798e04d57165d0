#include "crash/filter/filter_guard.h"

#include <cstdint>
#include <cstring>

#include "base/library_function.h"

namespace TAVU::crash {

namespace {

constexpr std::uint32_t kJumpSize = 5;  // opcode and displacement
constexpr std::byte kNearJump{0xE9};
constexpr std::byte kFiller{0xCC};  // never reached, the jump comes first

// Null when kernel32 or the function is not found.
void* FindEntry() noexcept {
  // Never freed: kernel32 stays for the life of the process anyway.
  const HMODULE kernel32 = ::LoadLibraryW(L"kernel32.dll");
  return reinterpret_cast<void*>(base::FindFunction<decltype(::SetUnhandledExceptionFilter)>(
      kernel32, "SetUnhandledExceptionFilter"));
}

std::uint32_t LowHalf(const void* address) noexcept {
  return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address));
}

}  // namespace

LPTOP_LEVEL_EXCEPTION_FILTER WINAPI
DummySetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER /*ignored*/) noexcept {
  return nullptr;
}

// The displacement has 32 bits and its range is not checked: system libraries and a relocated DLL
// lie close together on Windows. A library placed further away turns later callers astray instead
// of away.
FilterGuard::EntryBytes FilterGuard::JumpFrom(const void* entry) noexcept {
  const auto target = reinterpret_cast<const void*>(&DummySetUnhandledExceptionFilter);
  const std::uint32_t displacement = LowHalf(target) - (LowHalf(entry) + kJumpSize);
  EntryBytes patch;
  patch.fill(kFiller);
  patch[0] = kNearJump;
  std::memcpy(&patch[1], &displacement, sizeof displacement);  // little-endian, like the processor
  return patch;
}

// Neither the page's protection nor the instruction cache needs a hand: WriteProcessMemory sees to
// the first, the processor to the second.
BOOL FilterGuard::WriteEntry(void* entry, const EntryBytes& bytes) noexcept {
  SIZE_T written = 0;
  return ::WriteProcessMemory(::GetCurrentProcess(), entry, bytes.data(), bytes.size(), &written);
}

BOOL FilterGuard::Patch() noexcept {
  void* const entry = FindEntry();
  if (entry == nullptr) return 0;
  // Both stand even if the write then fails: writing back what was read does no harm.
  std::memcpy(saved_.data(), entry, saved_.size());
  patched_ = true;
  return WriteEntry(entry, JumpFrom(entry));
}

BOOL FilterGuard::Restore() noexcept {
  if (!patched_) return 0;
  void* const entry = FindEntry();
  if (entry == nullptr) return 0;
  const BOOL restored = WriteEntry(entry, saved_);
  patched_ = false;  // whatever came of the write: there is no second attempt
  return restored;
}

}  // namespace TAVU::crash
