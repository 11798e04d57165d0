// What waiting for the lock costs and how long it may last. The lock stays held when the program
// ends, so this is a program of its own.
#include "api/frame/api_lock.h"

#include <gtest/gtest.h>

#include "api/waiting.h"
#include "support/threads.h"

namespace {

using TAVU::api::ApiLock;
using TAVU::test::ProcessorTime;

TEST(ApiLock, AskedForAgainByItsHolderWaitsForEverAtNoCost) {
  TAVU::test::Event held;
  // Never destroyed: the two threads last as long as the process.
  auto* holder = new TAVU::test::Thread([&held] {
    const ApiLock::Guard first;
    held.Set();
    const ApiLock::Guard second;
  });
  ::WaitForSingleObject(held.get(), INFINITE);
  auto* waiter = new TAVU::test::Thread([] { const ApiLock::Guard guard; });

  constexpr std::uint64_t kBusy = 300 * 10'000;  // 300 ms of this thread's own processor time
  const std::uint64_t start = ProcessorTime(::GetCurrentThread());
  while (ProcessorTime(::GetCurrentThread()) - start < kBusy) {
  }
  for (const auto* thread : {holder, waiter}) {
    EXPECT_FALSE(TAVU::test::EndsWithin(thread->get(), 0));
    EXPECT_LT(ProcessorTime(thread->get()), kBusy / 10);
  }
}

}  // namespace
