// The filter's installation and guard, and the sequence when memory runs out. The program is linked
// so low in memory that the guard's jump reaches from Wine's kernel32 to it.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>

#include "api/frame/api_lock.h"
#include "api/frame/instance_registry.h"
#include "api/frame/last_error.h"
#include "crash/crash_filter.h"
#include "crash/crash_handler.h"
#include "crash/filter_guard.h"
#include "crash/filter_installation.h"

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

constexpr std::uint32_t kNoCode = 7;  // stays when a function sets none

LONG WINAPI FilterOfHost(EXCEPTION_POINTERS*) {
  return EXCEPTION_CONTINUE_SEARCH;
}
LONG WINAPI FilterOfOther(EXCEPTION_POINTERS*) {
  return EXCEPTION_CONTINUE_EXECUTION;
}

struct Entry {
  unsigned char bytes[9];
  bool operator==(const Entry&) const = default;
};
Entry* EntryOfSystem() {
  return reinterpret_cast<Entry*>(
      ::GetProcAddress(::GetModuleHandleW(L"kernel32"), "SetUnhandledExceptionFilter"));
}

// Where the jump at the entry leads, or null when there is none.
const void* JumpTarget() {
  const unsigned char* const bytes = EntryOfSystem()->bytes;
  if (bytes[0] != 0xE9) return nullptr;
  std::int32_t displacement = 0;
  std::memcpy(&displacement, bytes + 1, sizeof displacement);
  return bytes + 5 + displacement;
}
const void* Dummy() {
  return reinterpret_cast<const void*>(&DummySetUnhandledExceptionFilter);
}

// Carries `step` out and tells its result together with the code that it left.
std::pair<bool, std::uint32_t> Result(bool (*step)(api::Handle), api::Handle handle) {
  api::SetLastErrorCode(kNoCode);
  const bool result = step(handle);
  return {result, api::GetLastErrorCode()};
}
bool Install(api::Handle handle) {
  return InstallCrashFilter(handle, &CrashFilter);
}
using Expected = std::pair<bool, std::uint32_t>;

TEST(Installation, IsGuardedOwnedAndUndone) {
  api::LastErrorSlot::AttachProcess();
  ::SetUnhandledExceptionFilter(&FilterOfHost);
  const Entry before = *EntryOfSystem();
  EXPECT_EQ(Result(&UninstallCrashFilter, 1), Expected(false, kNoCode)) << "nothing installed";
  EXPECT_EQ(Result(&UninstallCrashFilter, 0), Expected(false, kNoCode));
  EXPECT_EQ(RestoreSetUnhandledExceptionFilter(), 0) << "nothing patched";
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(Result(&Install, 1), Expected(true, kNoCode));
    EXPECT_EQ(JumpTarget(), Dummy());
    EXPECT_EQ(::SetUnhandledExceptionFilter(&FilterOfOther), nullptr) << "not turned away";
    EXPECT_EQ(Result(&Install, 1), Expected(false, 102u));
    EXPECT_EQ(Result(&Install, 2), Expected(false, 102u));
    EXPECT_EQ(Result(&UninstallCrashFilter, 2), Expected(false, kNoCode)) << "not the owner";
    EXPECT_EQ(JumpTarget(), Dummy());
    EXPECT_EQ(Result(&UninstallCrashFilter, 1), Expected(true, kNoCode));
    EXPECT_TRUE(*EntryOfSystem() == before);
    EXPECT_EQ(::SetUnhandledExceptionFilter(&FilterOfHost), &FilterOfHost) << "not put back";
  }
}

TEST(Installation, WithoutAFilterBeforeNobodyOwnsIt) {
  ::SetUnhandledExceptionFilter(nullptr);
  const Entry before = *EntryOfSystem();
  EXPECT_EQ(Result(&Install, 1), Expected(false, kNoCode));
  EXPECT_EQ(JumpTarget(), Dummy());
  EXPECT_EQ(Result(&UninstallCrashFilter, 1), Expected(false, kNoCode));
  EXPECT_EQ(JumpTarget(), Dummy());
  const Entry patch = *EntryOfSystem();
  EXPECT_EQ(Result(&Install, 2), Expected(false, kNoCode)) << "its call lands in the guard";
  EXPECT_EQ(std::memcmp(CrashHandler::Get().savedEntryBytes.data(), &patch, sizeof patch), 0);
  // Back to the beginning, past the library: the filter in place is still the one of the library.
  ASSERT_TRUE(::WriteProcessMemory(::GetCurrentProcess(), EntryOfSystem(), &before, sizeof before,
                                   nullptr));
  CrashHandler::Get().entryPatched = false;
  EXPECT_EQ(::SetUnhandledExceptionFilter(&FilterOfHost), &CrashFilter);
}

bool TakeAway(const wchar_t* pattern) {
  WIN32_FIND_DATAW found;
  const HANDLE search = ::FindFirstFileW(pattern, &found);
  if (search == INVALID_HANDLE_VALUE) return false;
  ::FindClose(search);
  return ::DeleteFileW(found.cFileName) != 0;
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

  constexpr long kEnoughForTheNames = 8;
  for (const long allocations : {0L, 8L, 64L, -1L}) {
    allocations_left = allocations;
    const LONG result = CrashFilter(&pointers);
    allocations_left = -1;
    EXPECT_EQ(result, EXCEPTION_EXECUTE_HANDLER);
    const api::ApiLock::Guard free_again;
    const bool has_names = allocations < 0 || allocations >= kEnoughForTheNames;
    EXPECT_EQ(TakeAway(L"exhausted_*_Crash.dmp"), has_names) << allocations;
    EXPECT_TRUE(TakeAway(L"exhausted_*_CrashInfo.xml") || allocations >= 0);
  }
}

}  // namespace
}  // namespace TAVU::crash
