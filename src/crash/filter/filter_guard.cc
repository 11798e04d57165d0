#include "crash/filter/filter_guard.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "crash/filter/crash_handler.h"

namespace TAVU::crash {

namespace {

constexpr std::size_t kPatchSize = 9;
constexpr std::uint32_t kJumpSize = 5;  // opcode and displacement
constexpr std::byte kNearJump{0xE9};
constexpr std::byte kFiller{0xCC};  // never reached, the jump comes first

using Patch = std::array<std::byte, kPatchSize>;

// Null when kernel32 or the function is not found.
void* FindEntry() noexcept {
  // Never freed: kernel32 stays for the life of the process anyway.
  const HMODULE kernel32 = ::LoadLibraryW(L"kernel32.dll");
  if (kernel32 == nullptr) return nullptr;
  return reinterpret_cast<void*>(::GetProcAddress(kernel32, "SetUnhandledExceptionFilter"));
}

std::uint32_t LowHalf(const void* address) noexcept {
  return static_cast<std::uint32_t>(reinterpret_cast<std::uintptr_t>(address));
}

// The displacement has 32 bits and its range is not checked: system libraries and a relocated DLL
// lie close together on Windows. A library placed further away turns later callers astray instead
// of away.
Patch JumpFrom(const void* entry) noexcept {
  const auto target = reinterpret_cast<const void*>(&DummySetUnhandledExceptionFilter);
  const std::uint32_t displacement = LowHalf(target) - (LowHalf(entry) + kJumpSize);
  Patch patch;
  patch.fill(kFiller);
  patch[0] = kNearJump;
  std::memcpy(&patch[1], &displacement, sizeof displacement);  // little-endian, like the processor
  return patch;
}

// Neither the page's protection nor the instruction cache needs a hand: WriteProcessMemory sees to
// the first, the processor to the second.
BOOL WriteEntry(void* entry, const std::byte* bytes) noexcept {
  SIZE_T written = 0;
  return ::WriteProcessMemory(::GetCurrentProcess(), entry, bytes, kPatchSize, &written);
}

}  // namespace

LPTOP_LEVEL_EXCEPTION_FILTER WINAPI
DummySetUnhandledExceptionFilter(LPTOP_LEVEL_EXCEPTION_FILTER /*ignored*/) noexcept {
  return nullptr;
}

BOOL PatchSetUnhandledExceptionFilter() {
  CrashHandler& handler = CrashHandler::Get();
  void* const entry = FindEntry();
  if (entry == nullptr) return 0;
  const Patch patch = JumpFrom(entry);
  // Both stand even if the write then fails: writing back what was read does no harm.
  std::memcpy(handler.savedEntryBytes.data(), entry, kPatchSize);
  handler.entryPatched = true;
  return WriteEntry(entry, patch.data());
}

BOOL RestoreSetUnhandledExceptionFilter() {
  CrashHandler& handler = CrashHandler::Get();
  if (!handler.entryPatched) return 0;
  void* const entry = FindEntry();
  if (entry == nullptr) return 0;
  const BOOL restored = WriteEntry(entry, handler.savedEntryBytes.data());
  handler.entryPatched = false;  // whatever came of the write: there is no second attempt
  return restored;
}

}  // namespace TAVU::crash
