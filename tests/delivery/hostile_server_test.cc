// The library as a host has it, against servers that mean it ill. Whatever a server does, the call
// comes back with the right code, nothing of it stays behind, and the next call works.
#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <list>
#include <random>

#include "delivery/host.h"
#include "support/resources.h"
#include "support/scripted_server.h"
#include "support/threads.h"
#include "support/vectors.h"
// clang-format off
#include <psapi.h>
// clang-format on

namespace TAVU::test {
namespace {

constexpr std::size_t kUpload = 1 << 20;

enum class Outcome {
  kSent,
  kFailed,
  kEither,  // where it depends on which came first, or on what a mutation hit
};

struct Case {
  std::string name;
  Script script;
  Outcome outcome = Outcome::kFailed;
};

std::string Repeated(std::string_view piece, std::size_t count) {
  std::string all;
  for (; count != 0; --count) all += piece;
  return all;
}

// A reply without packets, so that `body` may be of any size or have no end at all.
Bytes Bare(std::string_view body) {
  return BytesOfText(std::string({"\xCF\x10\0\x09\x80\0\0\0\0r\1\0", 12}) + std::string(body));
}

std::vector<Case> CasesOfConnections() {
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

std::vector<Case> CasesOfEndlessReplies() {
  std::string keys = "M";
  for (std::uint32_t key = 0; keys.size() < std::size_t{2} << 20; ++key) {
    keys += 'I' + std::string(reinterpret_cast<const char*>(&key), sizeof key) + 'N';
  }
  const auto endless = [](std::string_view piece) {
    return BytesOfText(Repeated(piece, 0x10000 / piece.size() + 1));
  };
  return {
      {"list", {.reply = Bare("V"), .endless = endless("N")}},
      {"text",
       {.reply = Bare(""),
        .endless = endless("s" + std::string({"\x80\0", 2}) + Repeated("x", 0x8000))}},
      {"columns",
       {.reply = Bare("ZVl\xFF\xFF\xFF\xFF"), .endless = endless({"S\0\1xt\0\3int", 10})}},
      {"map of new keys", {.reply = Bare(keys)}},
  };
}

std::vector<Case> CasesOfBrokenReplies() {
  std::vector<Case> cases = {
      {"deep lists", {.reply = Bare(Repeated("V", 1'000'000))}},
      {"deep tables", {.reply = Bare(Repeated({"ZVl\0\0\0\0zVV", 11}, 100'000))}},
      {"huge list", {Act::kAnswerThenClose, Bare("Vl\xFF\xFF\xFF\xFFN")}},
      {"huge list that is small", {.reply = Bare("Vl\xFF\xFF\xFF\xFFNzz")}, Outcome::kSent},
      {"huge table", {Act::kAnswerThenClose, Bare({"ZVl\0\0\0\0zVl\xFF\xFF\xFF\xFFVz", 16})}},
      {"huge chunk", {Act::kAnswerThenClose, Bare("s\xFF\xFF")}},
      {"huge packet", {Act::kAnswerThenClose, BytesOfText({"\xCF\x10\0\4\xFF\xFFr\1\0S\0\1", 12})}},
  };
  const Json vectors = LoadVectors("replies.json")["replies"];
  for (const Json& vector : vectors) {
    const Outcome outcome = vector["code"] == 0 ? Outcome::kSent : Outcome::kFailed;
    cases.push_back({vector["name"], {Act::kAnswerThenClose, BytesOf(vector["bytes"])}, outcome});
  }
  // Cut at each byte, and byte by byte. The result tells, not what may stand behind it.
  const struct {
    std::string_view reply;
    std::size_t tail;  // bytes behind the result
  } kReplies[] = {
      {{"\xCF\x10\0\4\0\x07r\1\0S\0\3a\0\2bcz\0\0", 20}, 3},
      {{"\xCF\x10\0\4\0\x12r\1\0MI\0\0\0\1Vl\0\0\0\1Nzz\0\1z\0\0", 29}, 5},
      {{"\xCF\x10\0\x0C\xC0\0\0\0\0\2\1\2r\1\0D\x40\x09\x21\xFB\0\0\0\0z", 25}, 1},
  };
  for (const auto& [reply, tail] : kReplies) {
    const std::string name = Hex(reply.data(), reply.size());
    cases.push_back({"dribbled " + name, {Act::kAnswerByByte, BytesOfText(reply)}, Outcome::kSent});
    for (std::size_t cut = 0; cut < reply.size(); ++cut) {
      const Outcome outcome = cut + tail < reply.size() ? Outcome::kFailed : Outcome::kSent;
      cases.push_back({"cut at " + std::to_string(cut) + ' ' + name,
                       {Act::kAnswerThenClose, BytesOfText(reply.substr(0, cut))},
                       outcome});
    }
  }
  // Mutations of all these, the same in every run.
  std::mt19937 random(20111);
  for (int i = 0; i < 400; ++i) {
    Bytes bytes = BytesOfText(kReplies[random() % std::size(kReplies)].reply);
    for (unsigned left = random() % 3 + 1; left != 0; --left) {
      std::byte& byte = bytes[random() % bytes.size()];
      byte = random() % 2 ? std::byte(random()) : byte ^ std::byte(1 << random() % 8);
    }
    const std::string name = "mutated " + Hex(bytes.data(), bytes.size());
    cases.push_back({name, {Act::kAnswerThenClose, std::move(bytes)}, Outcome::kEither});
  }
  return cases;
}

// Makes each call against its server and an ordinary one behind it, exports in turn.
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
      if (outcome != Outcome::kEither) EXPECT_EQ(sent, outcome == Outcome::kSent);
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

TEST(Hostile, ServersLeaveNothingBehindInAThousandCalls) {
  std::vector<Case> cases = CasesOfConnections();
  CallEach(cases);  // what first calls bring up for good
  std::ranges::move(CasesOfBrokenReplies(), std::back_inserter(cases));
  const Resources before = MeasureResources();
  const int calls = CallEach(cases);
  EXPECT_GT(calls, 1000);
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

TEST(Hostile, EndlessRepliesEnd) {
  const auto peak = [] {
    PROCESS_MEMORY_COUNTERS counters = {};
    ::GetProcessMemoryInfo(::GetCurrentProcess(), &counters, sizeof counters);
    return counters.PeakWorkingSetSize;
  };
  const std::size_t before = peak();
  CallEach(CasesOfEndlessReplies());
  EXPECT_LT(peak() - before, std::size_t{200} << 20);
}

// Kept: no time limit for what the server does not take. It ends with the connection.
TEST(Hostile, AServerThatStopsReadingHoldsAnUpload) {
  ScriptedServer server;
  server.Next({Act::kStopReading});
  const Instance instance(server.port());
  TAVU_SetTimeout(instance, 50);
  const std::vector<char> block(64 << 20);
  {
    const Thread uploading([&] {
      ExpectFailure(TAVU_SendFileA(instance, block.size(), block.data(), "d", "m"),
                    TAVU_ERROR_CALL_FAILED);
    });
    EXPECT_EQ(server.WaitForConnections(1), 1u);
    EXPECT_EQ(::WaitForSingleObject(uploading.get(), 500), WAIT_TIMEOUT);
    server.ResetAll();
  }
  EXPECT_TRUE(TAVU_SendFileA(instance, 1, block.data(), "d", "m"));
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
