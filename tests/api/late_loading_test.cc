// The library loaded late, with threads running, unloaded and loaded again.
#include <gtest/gtest.h>
#include <windows.h>

#include <memory>

#include "support/resources.h"
#include "support/threads.h"
#include "tavu/tavu.h"

namespace {

using TAVU::test::Event;
using TAVU::test::MeasureResources;
using TAVU::test::Resources;
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

DWORD NextFreeTlsIndex() {
  const DWORD index = TlsAlloc();
  TlsFree(index);
  return index;
}

TEST(LateLoading, LeavesNothingBehindWhenUnloaded) {
  const auto round = [] {
    {
      const Library library;
      TAVU_HANDLE handle = library.create("game", "1.0", "Game");
      ASSERT_TRUE(library.destroy(handle));
      ASSERT_FALSE(library.destroy(handle));
    }
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
  const Library library;
  const auto run_threads = [&library](int count) {
    for (int i = 0; i < count; ++i) Thread([&library] { library.destroy(nullptr); });
  };
  run_threads(10);
  const Resources before = MeasureResources();
  ASSERT_GT(before.blocks, 0u);
  run_threads(100);
  EXPECT_LT(MeasureResources().blocks, before.blocks + 20) << "a block for each thread stayed";
}

}  // namespace
