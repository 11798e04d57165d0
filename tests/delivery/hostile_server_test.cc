// The library as a host has it, against servers that mean it ill. Whatever a server does, the call
// comes back with the right code, nothing of it stays behind, and the next call works.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <list>

#include "delivery/host.h"
#include "support/resources.h"
#include "support/scripted_server.h"
#include "support/threads.h"

namespace TAVU::test {
namespace {

constexpr std::size_t kUpload = 1 << 20;

enum class Outcome { kSent, kFailed };

struct Case {
  std::string name;
  Script script;
  Outcome outcome = Outcome::kFailed;
};

// What readers of replies make of broken ones, their own tests have.
std::vector<Case> Cases() {
  return {
      {"answers before it reads", {Act::kAnswerEarly}, Outcome::kSent},
      {"sends an urgent byte", {Act::kAnswerUrgently}, Outcome::kSent},
      {"refuses", {.reply = FaultReply()}},
      {"says nothing", {Act::kSilence}},
      {"answers half", {Act::kAnswerHalf}},
      {"closes", {Act::kClose}},
      {"resets", {Act::kReset}},
      {"resets inside the request", {Act::kResetInside}},
  };
}

// Makes each call against its server and an ordinary one after it, exports in turn.
int CallEach(const std::vector<Case>& cases) {
  ScriptedServer server;
  const Instance instance(server.port());
  const std::vector<char> block(kUpload);
  const TempFile file((Bytes(kUpload)));
  const std::wstring path = file.path();
  const std::function<bool()> exports[] = {
      [&] { return TAVU_SendLog_TCPW(instance, 1, L"t", nullptr, L"m"); },
      [&] { return TAVU_SendFileA(instance, kUpload, block.data(), "d", "m"); },
      [&] { return TAVU_SendCrashInfoW(instance, L"m", L"d", path.c_str(), path.c_str()); },
  };
  int calls = 0;
  for (const auto& [name, script, outcome] : cases) {
    SCOPED_TRACE(name);
    // The uploads where it matters what becomes of a request that is under way.
    const bool all = script.act == Act::kResetInside || script.act == Act::kAnswerEarly;
    for (std::size_t i = 0; i < (all ? std::size(exports) : 1); ++i, calls += 2) {
      const bool is_silent = script.act == Act::kSilence || script.act == Act::kAnswerHalf;
      server.Next(script);
      TAVU_SetTimeout(instance, is_silent ? 100 : 60'000);
      const bool sent = exports[i]();
      EXPECT_EQ(sent, outcome == Outcome::kSent);
      if (!sent) ExpectFailure(sent, TAVU_ERROR_CALL_FAILED);
      TAVU_SetTimeout(instance, 60'000);
      EXPECT_TRUE(exports[i]()) << "the next call";
    }
  }
  return calls;
}

void ExpectTheSame(const Resources& before, const Resources& now) {
  ASSERT_GT(before.handles * before.blocks, 0u);
  EXPECT_EQ(now.handles, before.handles);
  // Less than a block in a hundred calls may come from the system itself.
  EXPECT_LT(now.blocks, before.blocks + 10);
  EXPECT_LT(now.bytes, before.bytes + 10'000);
}

TEST(Hostile, ServersLeaveNothingBehind) {
  const std::vector<Case> cases = Cases();
  CallEach(cases);  // what first calls bring up for good
  const Resources before = MeasureResources();
  int calls = 0;
  for (int round = 0; round < 10; ++round) calls += CallEach(cases);
  EXPECT_GT(calls, 200);
  ExpectTheSame(before, MeasureResources());
}

// They go away in the middle of it, at every moment between the first send and the last wait.
TEST(Hostile, ServersThatGoAwayHoldNoUpload) {
  ScriptedServer server;
  const Instance instance(server.port());
  TAVU_SetTimeout(instance, 60'000);
  const std::vector<char> block(8 << 20);
  const std::string dump(8 << 20, 'x');
  for (const Act act :
       {Act::kLeaveAtOnce, Act::kLeaveInside, Act::kResetInside, Act::kAnswerAndLeave}) {
    SCOPED_TRACE(static_cast<int>(act));
    server.SetScript({act});
    for (int i = 0; i < 25; ++i) {
      ExpectFailure(TAVU_SendFileA(instance, block.size(), block.data(), "d", "m"),
                    TAVU_ERROR_CALL_FAILED);
      // The system may take all of this one before it learns that nobody wants it.
      TAVU_SendFileA(instance, kUpload, block.data(), "d", "m");
    }
    const auto sender = TAVU_LUADUMP_Create("127.0.0.1", server.port(), true);
    TAVU_LUADUMP_SendLuaDumpA(sender, 1, 1, 2, "m", dump.c_str(), "u", "e");
    EXPECT_TRUE(TAVU_LUADUMP_Destroy(sender));
  }
  EXPECT_GE(server.WaitForConnections(200), 200u);
}

// One server for all, each with an instance of its own; no time-out ends one that waits its turn.
TEST(Hosts, CallFromHundredsOfThreads) {
  std::atomic<int> sent = 0;
  const auto call_from = [&](int count) {
    ScriptedServer server;
    std::list<Thread> threads;
    for (int i = 0; i < count; ++i) {
      threads.emplace_back([&] {
        const Instance instance(server.port());
        if (TAVU_SendLog_TCPA(instance, 1, "t", nullptr, "m") && TAVU_GetLastError() == 0) ++sent;
      });
    }
    threads.clear();
  };
  call_from(10);  // what first threads bring up for good
  const Resources before = MeasureResources();
  call_from(200);
  EXPECT_EQ(sent, 210);
  ExpectTheSame(before, MeasureResources());
}

}  // namespace
}  // namespace TAVU::test
