// What waiting for the lock costs and how long it may last. The lock stays held when the program
// ends, so this is a program of its own.
#include "api/frame/api_lock.h"

#include <gtest/gtest.h>

#include "support/threads.h"

namespace {

using TAVU::api::ApiLock;

// Of a thread so far, in units of 100 nanoseconds.
std::uint64_t ProcessorTime(HANDLE thread) {
  std::uint64_t created, ended, kernel, user;
  const auto as_time = [](std::uint64_t& number) { return reinterpret_cast<FILETIME*>(&number); };
  EXPECT_TRUE(
      ::GetThreadTimes(thread, as_time(created), as_time(ended), as_time(kernel), as_time(user)));
  return kernel + user;
}

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
    EXPECT_EQ(::WaitForSingleObject(thread->get(), 0), WAIT_TIMEOUT);
    EXPECT_LT(ProcessorTime(thread->get()), kBusy / 10);
  }
}

}  // namespace
