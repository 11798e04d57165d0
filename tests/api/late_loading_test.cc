// The library loaded late, with threads running, unloaded and loaded again.
#include <gtest/gtest.h>
#include <windows.h>

#include <memory>
#include <vector>

#include "support/threads.h"
#include "tavu/tavu.h"

namespace {

using TAVU::test::Event;
using TAVU::test::Thread;

class Library {
 public:
  Library() : module_(LoadLibraryW(L"TAVU.dll")) {
    Find(lastError, "TAVU_GetLastError");
    Find(create, "TAVU_CreateA");
    Find(destroy, "TAVU_Destroy");
  }
  ~Library() { FreeLibrary(module_); }
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  decltype(&TAVU_GetLastError) lastError = nullptr;
  decltype(&TAVU_CreateA) create = nullptr;
  decltype(&TAVU_Destroy) destroy = nullptr;

 private:
  template <typename Function>
  void Find(Function& function, const char* name) const {
    function = reinterpret_cast<Function>(reinterpret_cast<void*>(GetProcAddress(module_, name)));
  }

  HMODULE module_;
};

TEST(LateLoading, ServesThreadsThatRanBefore) {
  Event loaded;
  uint32_t before = 1, after = 1;
  std::unique_ptr<Library> library;
  auto thread = std::make_unique<Thread>([&] {
    WaitForSingleObject(loaded.get(), INFINITE);
    before = library->lastError();
    library->create("game", "?", "Game");
    after = library->lastError();
  });
  library = std::make_unique<Library>();
  loaded.Set();
  thread.reset();
  EXPECT_EQ(before, 0u);
  EXPECT_EQ(after, static_cast<uint32_t>(TAVU_ERROR_BAD_VERSION));
  EXPECT_EQ(library->lastError(), 0u) << "of the thread that loaded the library";
}

struct HeapUse {
  std::size_t blocks = 0;
  std::size_t bytes = 0;
};

// What is in use in all heaps of the process.
HeapUse MeasureHeaps() {
  HANDLE heaps[64];
  const DWORD count = GetProcessHeaps(64, heaps);
  HeapUse use;
  for (DWORD i = 0; i < count && i < 64; ++i) {
    PROCESS_HEAP_ENTRY entry = {};
    while (HeapWalk(heaps[i], &entry)) {
      if ((entry.wFlags & PROCESS_HEAP_ENTRY_BUSY) == 0) continue;
      ++use.blocks;
      use.bytes += entry.cbData;
    }
  }
  return use;
}

DWORD NextFreeTlsIndex() {
  const DWORD index = TlsAlloc();
  TlsFree(index);
  return index;
}

TEST(LateLoading, LeavesNothingBehindWhenUnloaded) {
  const auto round = [] {
    {
      const Library library;
      ASSERT_NE(library.lastError, nullptr);
      ASSERT_EQ(library.lastError(), 0u);
      TAVU_HANDLE handle = library.create("game", "1.0", "Game");
      ASSERT_NE(handle, nullptr);
      ASSERT_TRUE(library.destroy(handle));
      ASSERT_FALSE(library.destroy(handle));
      ASSERT_EQ(library.lastError(), static_cast<uint32_t>(TAVU_ERROR_INVALID_HANDLE));
    }
    ASSERT_EQ(GetModuleHandleW(L"TAVU.dll"), nullptr);
  };
  round();
  round();
  const HeapUse before = MeasureHeaps();
  ASSERT_GT(before.bytes, 0u);
  const DWORD index = NextFreeTlsIndex();
  constexpr std::size_t kRounds = 10;
  for (std::size_t i = 0; i < kRounds; ++i) round();
  EXPECT_EQ(NextFreeTlsIndex(), index);
  // Wine itself keeps a small block each time that ADVAPI32 comes and goes.
  EXPECT_LT(MeasureHeaps().bytes, before.bytes + kRounds * 1000);
}

TEST(LateLoading, FreesWhatAnEndedThreadHad) {
  const Library library;
  const auto run_threads = [&library](int count) {
    for (int i = 0; i < count; ++i) Thread([&library] { library.destroy(nullptr); });
  };
  run_threads(10);
  const HeapUse before = MeasureHeaps();
  ASSERT_GT(before.blocks, 0u);
  run_threads(100);
  EXPECT_LT(MeasureHeaps().blocks, before.blocks + 20) << "a block for each thread stayed";
}

}  // namespace
