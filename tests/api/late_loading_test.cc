// The library loaded late, with threads running, unloaded and loaded again.
#include <gtest/gtest.h>
#include <windows.h>

#include <memory>

#include "delivery/host.h"
#include "support/resources.h"
#include "support/threads.h"

namespace {

using TAVU::test::Event;
using TAVU::test::MeasureResources;
using TAVU::test::Resources;
using TAVU::test::Thread;

HMODULE Load() {
  return LoadLibraryW(L"TAVU.dll");
}

TEST(LateLoading, ServesThreadsThatRanBefore) {
  Event loaded;
  uint32_t before = 1, after = 1;
  HMODULE library = nullptr;
  auto thread = std::make_unique<Thread>([&] {
    WaitForSingleObject(loaded.get(), INFINITE);
    before = TAVU_FIND(library, TAVU_GetLastError)();
    TAVU_FIND(library, TAVU_CreateA)("game", "?", "Game");
    after = TAVU_FIND(library, TAVU_GetLastError)();
  });
  library = Load();
  loaded.Set();
  thread.reset();
  EXPECT_EQ(before, 0u);
  EXPECT_EQ(after, static_cast<uint32_t>(TAVU_ERROR_BAD_VERSION));
  EXPECT_EQ(TAVU_FIND(library, TAVU_GetLastError)(), 0u) << "of the thread that loaded it";
  FreeLibrary(library);
}

DWORD NextFreeTlsIndex() {
  const DWORD index = TlsAlloc();
  TlsFree(index);
  return index;
}

TEST(LateLoading, LeavesNothingBehindWhenUnloaded) {
  const auto round = [] {
    const HMODULE library = Load();
    TAVU_HANDLE handle = TAVU_FIND(library, TAVU_CreateA)("game", "1.0", "Game");
    ASSERT_TRUE(TAVU_FIND(library, TAVU_Destroy)(handle));
    ASSERT_FALSE(TAVU_FIND(library, TAVU_Destroy)(handle));
    FreeLibrary(library);
    ASSERT_EQ(GetModuleHandleW(L"TAVU.dll"), nullptr);
  };
  round();
  round();
  const Resources before = MeasureResources();
  ASSERT_GT(before.bytes * before.handles, 0u);
  const DWORD index = NextFreeTlsIndex();
  constexpr std::size_t kRounds = 10;
  for (std::size_t i = 0; i < kRounds; ++i) round();
  EXPECT_EQ(NextFreeTlsIndex(), index);
  EXPECT_EQ(MeasureResources().handles, before.handles);
  // Wine itself keeps a small block each time that ADVAPI32 comes and goes.
  EXPECT_LT(MeasureResources().bytes, before.bytes + kRounds * 1000);
}

TEST(LateLoading, FreesWhatAnEndedThreadHad) {
  const HMODULE library = Load();
  const auto destroy = TAVU_FIND(library, TAVU_Destroy);
  const auto run_threads = [destroy](int count) {
    for (int i = 0; i < count; ++i) Thread([destroy] { destroy(nullptr); });
  };
  run_threads(10);
  const Resources before = MeasureResources();
  ASSERT_GT(before.blocks, 0u);
  run_threads(100);
  EXPECT_LT(MeasureResources().blocks, before.blocks + 20) << "a block for each thread stayed";
  FreeLibrary(library);
}

}  // namespace
