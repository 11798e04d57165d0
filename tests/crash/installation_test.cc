// The filter's installation and guard. The program is linked so low in memory that the guard's jump
// reaches from Wine's kernel32 to it.
#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <cstring>

#include "api/frame/api_lock.h"
#include "crash/filter/crash_filter.h"
#include "crash/filter/filter_guard.h"
#include "crash/filter/filter_installation.h"

namespace TAVU::crash {
namespace {

LONG WINAPI FilterOfHost(EXCEPTION_POINTERS*) {
  return EXCEPTION_CONTINUE_SEARCH;
}
LONG WINAPI FilterOfOther(EXCEPTION_POINTERS*) {
  return EXCEPTION_CONTINUE_EXECUTION;
}

using Entry = std::array<unsigned char, 9>;
auto* const entry = reinterpret_cast<Entry*>(
    ::GetProcAddress(::GetModuleHandleW(L"kernel32"), "SetUnhandledExceptionFilter"));

// A jump to the dummy, and filler.
Entry Patch() {
  const auto target = reinterpret_cast<const unsigned char*>(&DummySetUnhandledExceptionFilter);
  const auto displacement = static_cast<std::int32_t>(target - (entry->data() + 5));
  Entry patch = {0xE9, 0, 0, 0, 0, 0xCC, 0xCC, 0xCC, 0xCC};
  std::memcpy(&patch[1], &displacement, sizeof displacement);
  return patch;
}

void WriteEntry(const Entry& bytes) {
  ASSERT_TRUE(::WriteProcessMemory(::GetCurrentProcess(), entry, &bytes, sizeof bytes, nullptr));
}

TEST(Installation, IsGuardedOwnedAndUndone) {
  const api::ApiLock::Guard held;
  FilterInstallation installation;
  ::SetUnhandledExceptionFilter(&FilterOfHost);
  const Entry before = *entry;
  EXPECT_FALSE(installation.Uninstall(held, 0)) << "nothing installed";
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(installation.Install(held, 1, &CrashFilter), InstallResult::kInstalled);
    EXPECT_EQ(installation.owner(), 1u);
    EXPECT_EQ(*entry, Patch());
    EXPECT_EQ(::SetUnhandledExceptionFilter(&FilterOfOther), nullptr) << "not turned away";
    for (const api::Handle owner : {1u, 2u}) {
      EXPECT_EQ(installation.Install(held, owner, &CrashFilter), InstallResult::kOccupied);
    }
    EXPECT_FALSE(installation.Uninstall(held, 2)) << "not the owner";
    EXPECT_TRUE(installation.Uninstall(held, 1));
    EXPECT_EQ(*entry, before);
    EXPECT_EQ(::SetUnhandledExceptionFilter(&FilterOfHost), &FilterOfHost) << "not put back";
  }
}

TEST(Installation, WithoutAFilterBeforeNobodyOwnsIt) {
  const api::ApiLock::Guard held;
  FilterInstallation installation;
  ::SetUnhandledExceptionFilter(nullptr);
  const Entry before = *entry;
  EXPECT_EQ(installation.Install(held, 1, &CrashFilter), InstallResult::kOrphaned);
  EXPECT_EQ(installation.owner(), 0u);
  EXPECT_FALSE(installation.Uninstall(held, 1) || installation.Uninstall(held, 0));
  EXPECT_EQ(*entry, Patch());
  EXPECT_EQ(installation.Install(held, 2, &CrashFilter), InstallResult::kOrphaned)
      << "its call lands in the guard";
  // Back to the beginning, past the library: the filter in place is still the one of the library.
  WriteEntry(before);
  EXPECT_EQ(::SetUnhandledExceptionFilter(&FilterOfHost), &CrashFilter);
}

}  // namespace
}  // namespace TAVU::crash
