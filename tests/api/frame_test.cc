// The parts of the frame that a host sees only through others.
#include <gtest/gtest.h>
#include <windows.h>

#include <stdexcept>

#include "api/frame/export_frame.h"
#include "api/frame/instance_registry.h"
#include "api/frame/text_conversion.h"
#include "base/allocator.h"
#include "support/threads.h"
#include "support/vectors.h"

namespace TAVU::api {
namespace {

TEST(PercentEncode, MatchesTheReference) {
  const test::Json cases = test::LoadVectors("texts.json")["percent_encode"];
  ASSERT_FALSE(cases.empty());
  for (const auto& c : cases) {
    EXPECT_EQ(PercentEncode(test::TextOf(c["text"])), c["encoded"].get<std::string>());
  }
}

TEST(InstanceRegistry, SpreadsHandlesAsTheReference) {
  const test::Json cases = test::LoadVectors("hashes.json")["handles"];
  ASSERT_FALSE(cases.empty());
  for (const auto& c : cases) {
    const Handle handle = std::stoull(c["handle"].get<std::string>(), nullptr, 16);
    EXPECT_EQ(InstanceRegistry::BucketOf(handle), c["bucket"].get<std::size_t>()) << c;
  }
}

TEST(RunExport, LetsNoExceptionOut) {
  const auto throwing = [](auto exception) {
    return [exception](const ApiLock::Guard&) -> bool { throw exception; };
  };
  ASSERT_TRUE(LastErrorSlot::AttachProcess());  // nobody else does in this program
  EXPECT_FALSE(RunExport(ErrorCode::kCallFailed, throwing(base::BadAllocation())));
  EXPECT_EQ(GetLastErrorCode(), static_cast<std::uint32_t>(TAVU_ERROR_CALL_FAILED));
  EXPECT_FALSE(RunExport(throwing(std::logic_error("gone"))));
  EXPECT_EQ(GetLastErrorCode(), static_cast<std::uint32_t>(TAVU_ERROR_INVALID_HANDLE));
  EXPECT_TRUE(RunExport([](const ApiLock::Guard&) { return true; })) << "the lock is free again";
}

// The last one, because the lock stays held, and the thread never ends.
TEST(ApiLock, AskedForAgainByItsHolderWaitsForEverAtNoCost) {
  const auto* holder = new test::Thread([] {
    const ApiLock::Guard first;
    const ApiLock::Guard second;
  });
  EXPECT_EQ(::WaitForSingleObject(holder->get(), 300), WAIT_TIMEOUT);
  ULARGE_INTEGER used = {};  // in units of 100 nanoseconds
  FILETIME created, ended, kernel;
  ASSERT_TRUE(::GetThreadTimes(holder->get(), &created, &ended, &kernel,
                               reinterpret_cast<FILETIME*>(&used)));
  EXPECT_LT(used.QuadPart, 100 * 10'000u);
}

}  // namespace
}  // namespace TAVU::api
