// Exports when memory runs out, at each allocation that they make: they fail, say so, and leave
// everything as it was. The library is linked into the program, whose operator new can fail.
#include <gtest/gtest.h>
#include <windows.h>

#include <cstdlib>
#include <functional>
#include <new>
#include <string>

#include "api/frame/instance_record.h"
#include "api/frame/last_error.h"
#include "crash/crash_handler.h"
#include "tavu/tavu.h"

int allocations_until_failure = 0;  // 0: none fails

void* operator new(std::size_t size) {
  if (allocations_until_failure > 0 && --allocations_until_failure == 0) throw std::bad_alloc();
  if (void* block = std::malloc(size)) return block;
  throw std::bad_alloc();
}
void operator delete(void* block) noexcept {
  std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
  std::free(block);
}

namespace {

// Longer than what a string holds without an allocation.
constexpr const char* kLong = "0123456789012345678901234567890123456789";
constexpr const wchar_t* kLongWide = L"0123456789012345678901234567890123456789";

// All that exports change of an instance and of the crash handler.
std::wstring StateOf(TAVU_HANDLE handle) {
  const auto& record = *reinterpret_cast<const TAVU::api::InstanceRecord*>(handle);
  const auto& crash = TAVU::crash::CrashHandler::Get();
  const auto widened = [](const std::string& text) {
    return std::wstring(text.begin(), text.end()) + L'|';
  };
  return widened(record.serverHost) + widened(record.userIdEncoded) + record.userId + L'|' +
         record.appExecuteCmd + L'|' + crash.reporterPath + L'|' + crash.appExeFile + L'|' +
         crash.tempPath + L'|' +
         std::to_wstring(record.serverPort + 100000 * record.appRestart + crash.ownerHandle +
                         record.refCount);
}

TEST(ExhaustedMemory, ChangesNothing) {
  char narrow[64] = "before";
  wchar_t wide[64] = L"before";
  uint16_t port = 1;
  const std::function<bool(TAVU_HANDLE)> exports[] = {
      [](TAVU_HANDLE h) { return TAVU_SetReportServerA(h, kLong, 81); },
      [](TAVU_HANDLE h) { return TAVU_SetReportServerW(h, kLongWide, 82); },
      [&](TAVU_HANDLE h) { return TAVU_GetReportServerW(h, &port, wide, 64); },
      [](TAVU_HANDLE h) { return TAVU_SetUserIDA(h, kLong); },
      [](TAVU_HANDLE h) { return TAVU_SetUserIDW(h, kLongWide); },
      [&](TAVU_HANDLE h) { return TAVU_GetUserIDA(h, narrow, 64); },
      [](TAVU_HANDLE h) { return TAVU_SetAppRestartA(h, true, kLong); },
      [](TAVU_HANDLE h) { return TAVU_SetAppRestartW(h, true, kLongWide); },
      [](TAVU_HANDLE h) { return TAVU_SetCustumCrashReporterPathA(h, kLong); },
      [](TAVU_HANDLE h) { return TAVU_SetCustumCrashReporterPathW(h, kLongWide); },
      [](TAVU_HANDLE h) { return TAVU_StartCrashHandler(h); },
  };
  ASSERT_TRUE(TAVU::api::LastErrorSlot::AttachProcess());  // as the library's entry point does
  for (const auto& call : exports) {
    SCOPED_TRACE(&call - exports);
    TAVU_HANDLE handle = TAVU_CreateA("game", "1.0", "Game");
    TAVU_SetReportServerA(handle, std::string(40, 'h').c_str(), 80);
    TAVU_SetUserIDA(handle, std::string(40, 'u').c_str());
    const std::wstring before = StateOf(handle);
    int nth = 1;
    for (;; ++nth) {
      allocations_until_failure = nth;
      const bool done = call(handle);
      const bool failed = allocations_until_failure == 0;
      allocations_until_failure = 0;
      ASSERT_EQ(done, !failed);
      if (done) break;
      EXPECT_EQ(TAVU_GetLastError(), static_cast<uint32_t>(TAVU_ERROR_INVALID_ARGUMENT));
      EXPECT_EQ(StateOf(handle), before);
      EXPECT_STREQ(narrow, "before");
      EXPECT_STREQ(wide, L"before");
    }
    EXPECT_GT(nth, 1) << "nothing was allocated";
    EXPECT_TRUE(TAVU_Destroy(handle));
    EXPECT_FALSE(TAVU_Destroy(handle)) << "a pin stayed";
    strcpy(narrow, "before");
    wcscpy(wide, L"before");
  }
}

TEST(ExhaustedMemory, MakesNoInstance) {
  for (const bool in_wide_form : {false, true}) {
    TAVU_HANDLE handle = nullptr;
    for (int nth = 1; handle == nullptr; ++nth) {
      allocations_until_failure = nth;
      handle = in_wide_form ? TAVU_CreateW(kLongWide, L"1.0", kLongWide)
                            : TAVU_CreateA(kLong, "1.0", kLong);
      const bool failed = allocations_until_failure == 0;
      allocations_until_failure = 0;
      ASSERT_EQ(handle == nullptr, failed);
      if (failed) {
        EXPECT_EQ(TAVU_GetLastError(), static_cast<uint32_t>(TAVU_ERROR_INVALID_ARGUMENT));
      }
    }
    EXPECT_TRUE(TAVU_Destroy(handle));
  }
}

}  // namespace
