// The library loaded late, with threads running, unloaded and loaded again.
#include <gtest/gtest.h>
#include <windows.h>

#include "delivery/host.h"
#include "support/resources.h"
#include "support/threads.h"

namespace {

using namespace TAVU::test;

// First, while no other test has the library loaded.
TEST(Unloading, LeavesNothingBehind) {
  const auto round = [] {
    const HMODULE library = LoadLibraryW(L"TAVU.dll");
    TAVU_HANDLE handle = TAVU_FIND(library, TAVU_CreateA)("game", "1.0", "Game");
    ASSERT_TRUE(TAVU_FIND(library, TAVU_Destroy)(handle));
    ASSERT_FALSE(TAVU_FIND(library, TAVU_Destroy)(handle));
    FreeLibrary(library);
    ASSERT_EQ(GetModuleHandleW(L"TAVU.dll"), nullptr);
  };
  const auto next_free_tls_index = [] {
    const DWORD index = TlsAlloc();
    TlsFree(index);
    return index;
  };
  round();
  round();
  const Resources before = MeasureResources();
  ASSERT_GT(before.bytes * before.handles, 0u);
  const DWORD index = next_free_tls_index();
  constexpr std::size_t kRounds = 10;
  for (std::size_t i = 0; i < kRounds; ++i) round();
  EXPECT_EQ(next_free_tls_index(), index);
  EXPECT_EQ(MeasureResources().handles, before.handles);
  // Wine itself keeps a small block each time that ADVAPI32 comes and goes.
  EXPECT_LT(MeasureResources().bytes, before.bytes + kRounds * 1000);
}

TEST(LateLoading, ServesThreadsThatRanBefore) {
  Event loaded;
  HMODULE library = nullptr;
  {
    const Thread thread([&] {
      WaitForSingleObject(loaded.get(), INFINITE);
      EXPECT_EQ(TAVU_FIND(library, TAVU_GetLastError)(), 0u);
      TAVU_FIND(library, TAVU_CreateA)("game", "?", "Game");
      EXPECT_EQ(TAVU_FIND(library, TAVU_GetLastError)(), uint32_t{TAVU_ERROR_BAD_VERSION});
    });
    library = LoadLibraryW(L"TAVU.dll");
    loaded.Set();
  }
  // What an ended thread had is freed.
  const auto destroy = TAVU_FIND(library, TAVU_Destroy);
  const auto run_threads = [destroy](int count) {
    for (int i = 0; i < count; ++i) Thread([destroy] { destroy(nullptr); });
  };
  run_threads(10);
  const Resources before = MeasureResources();
  run_threads(100);
  EXPECT_LT(MeasureResources().blocks, before.blocks + 20) << "a block for each thread stayed";
}

}  // namespace
