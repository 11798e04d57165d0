// The filter's installation and guard, and the sequence when memory runs out. The program is linked
// so low in memory that the guard's jump reaches from Wine's kernel32 to it.
#include <gtest/gtest.h>
#include <windows.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "api/frame/api_lock.h"
#include "api/frame/instance_registry.h"
#include "api/frame/last_error.h"
#include "crash/filter/crash_filter.h"
#include "crash/filter/crash_handler.h"
#include "crash/filter/filter_guard.h"
#include "crash/filter/filter_installation.h"

namespace {
long allocations_left = -1;  // negative: no limit
}

void* operator new(std::size_t size) {
  if (allocations_left == 0) throw std::bad_alloc();
  if (allocations_left > 0) --allocations_left;
  return std::malloc(size);
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

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

// The result of a step, and the code that it left: 7 when it set none.
using Result = std::pair<bool, std::uint32_t>;
constexpr Result kDone = {true, 7}, kNothing = {false, 7}, kRefused = {false, 102};
Result Take(bool (*step)(api::Handle), api::Handle handle) {
  api::SetLastErrorCode(7);
  const bool done = step(handle);
  return {done, api::GetLastErrorCode()};
}
Result Install(api::Handle handle) {
  return Take([](api::Handle owner) { return InstallCrashFilter(owner, &CrashFilter); }, handle);
}
Result Uninstall(api::Handle handle) {
  return Take(&UninstallCrashFilter, handle);
}

TEST(Installation, IsGuardedOwnedAndUndone) {
  api::LastErrorSlot::AttachProcess();
  ::SetUnhandledExceptionFilter(&FilterOfHost);
  const Entry before = *entry;
  EXPECT_EQ(Uninstall(0), kNothing) << "nothing installed";
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(RestoreSetUnhandledExceptionFilter(), 0) << "nothing patched";
    EXPECT_EQ(Install(1), kDone);
    EXPECT_EQ(*entry, Patch());
    EXPECT_EQ(::SetUnhandledExceptionFilter(&FilterOfOther), nullptr) << "not turned away";
    EXPECT_EQ(Install(1), kRefused);
    EXPECT_EQ(Install(2), kRefused);
    EXPECT_EQ(Uninstall(2), kNothing) << "not the owner";
    EXPECT_EQ(Uninstall(1), kDone);
    EXPECT_EQ(*entry, before);
    EXPECT_EQ(::SetUnhandledExceptionFilter(&FilterOfHost), &FilterOfHost) << "not put back";
  }
}

TEST(Installation, WithoutAFilterBeforeNobodyOwnsIt) {
  ::SetUnhandledExceptionFilter(nullptr);
  const Entry before = *entry;
  EXPECT_EQ(Install(1), kNothing);
  EXPECT_EQ(Uninstall(1), kNothing);
  EXPECT_EQ(*entry, Patch());
  EXPECT_EQ(Install(2), kNothing) << "its call lands in the guard";
  CrashHandler& handler = CrashHandler::Get();
  EXPECT_EQ(std::memcmp(handler.savedEntryBytes.data(), entry, sizeof before), 0) << "own patch";
  // Back to the beginning, past the library: the filter in place is still the one of the library.
  ASSERT_TRUE(::WriteProcessMemory(::GetCurrentProcess(), entry, &before, sizeof before, nullptr));
  handler.entryPatched = false;
  EXPECT_EQ(::SetUnhandledExceptionFilter(&FilterOfHost), &CrashFilter);
}

TEST(Sequence, ExhaustedMemoryCostsOnlyWhatNeedsIt) {
  CrashHandler& handler = CrashHandler::Get();
  handler.appExeFile = L"exhausted";
  handler.tempPath = L".\\";
  handler.reporterPath = L"no such folder";
  auto record = std::make_unique<api::InstanceRecord>();
  record->deleteLocalDumpFile = false;
  record->appRestart = true;
  handler.ownerHandle =
      api::InstanceRegistry::Get().RegisterInstance(api::ApiLock::Guard(), std::move(record));
  EXCEPTION_RECORD exception = {};
  CONTEXT context = {};
  ::RtlCaptureContext(&context);
  EXCEPTION_POINTERS pointers = {&exception, &context};

  for (const long allocations : {0L, 64L}) {  // not even the names; all but the document
    allocations_left = allocations;
    const LONG result = CrashFilter(&pointers);
    allocations_left = -1;
    EXPECT_EQ(result, EXCEPTION_EXECUTE_HANDLER);
    const api::ApiLock::Guard free_again;
    WIN32_FIND_DATAW found = {};
    ::FindClose(::FindFirstFileW(L"exhausted_*_Crash.dmp", &found));
    EXPECT_EQ(::DeleteFileW(found.cFileName), allocations > 0);
  }
}

}  // namespace
}  // namespace TAVU::crash
