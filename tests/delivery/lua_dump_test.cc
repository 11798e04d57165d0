// The queue of a LuaDump sender, seen from the host and from the server.
#include <gtest/gtest.h>

#include <list>
#include <numeric>

#include "delivery/host.h"
#include "support/scripted_server.h"
#include "support/threads.h"

namespace TAVU::test {
namespace {

using Numbers = std::vector<std::uint32_t>;

bool Post(TAVU_LUADUMP_SENDER sender, std::uint32_t number) {
  return TAVU_LUADUMP_SendLuaDumpW(sender, number, 1, 2, L"m", L"d", nullptr, L"e");
}

// The dump numbers of requests, in the order of the requests.
Numbers NumbersOf(const std::vector<Bytes>& requests) {
  Numbers numbers;
  for (const Bytes& request : requests) {
    const std::string text(reinterpret_cast<const char*>(request.data()), request.size());
    const std::size_t key = text.find(std::string("I\0\0\x01\x92S\0", 7));
    numbers.push_back(static_cast<std::uint32_t>(std::stoul(text.substr(key + 8))));
  }
  return numbers;
}

Numbers Ascending(std::size_t count) {
  Numbers numbers(count);
  std::iota(numbers.begin(), numbers.end(), 0u);
  return numbers;
}

TEST(LuaDump, RefusesWhatIsNullAndLeavesNoCode) {
  static_cast<void>(TAVU_SetTimeout(nullptr, 1));
  EXPECT_EQ(TAVU_LUADUMP_Create(nullptr, 1, false), nullptr);
  EXPECT_EQ(TAVU_LUADUMP_Create("127.0.0.1", 0, true), nullptr);
  EXPECT_TRUE(TAVU_LUADUMP_Destroy(nullptr));
  const TAVU_LUADUMP_SENDER sender = TAVU_LUADUMP_Create("127.0.0.1", 1, true);
  EXPECT_FALSE(Post(nullptr, 0));
  for (int missing = 0; missing < 3; ++missing) {
    const char* a[] = {"m", "d", "e"};
    const wchar_t* w[] = {L"m", L"d", L"e"};
    a[missing] = nullptr;
    w[missing] = nullptr;
    EXPECT_FALSE(TAVU_LUADUMP_SendLuaDumpA(sender, 1, 1, 1, a[0], a[1], "u", a[2]));
    EXPECT_FALSE(TAVU_LUADUMP_SendLuaDumpW(sender, 1, 1, 1, w[0], w[1], L"u", w[2]));
  }
  EXPECT_TRUE(TAVU_LUADUMP_Destroy(sender));
  EXPECT_EQ(TAVU_GetLastError(), TAVU_ERROR_INVALID_HANDLE);
}

TEST(LuaDump, DestroyingDeliversAllOrDiscardsAllButTheOneInProgress) {
  for (const bool discard : {false, true}) {
    ScriptedServer server;
    server.Hold();
    const TAVU_LUADUMP_SENDER sender = TAVU_LUADUMP_Create("127.0.0.1", server.port(), discard);
    // The server answers nobody yet: a post that waited for it would never return.
    for (std::uint32_t i = 0; i < 1000; ++i) EXPECT_TRUE(Post(sender, i));
    EXPECT_EQ(server.WaitForRequests(1).size(), 1u);
    if (!discard) server.Release();
    EXPECT_TRUE(TAVU_LUADUMP_Destroy(sender));
    EXPECT_EQ(NumbersOf(server.WaitForRequests(1)), Ascending(discard ? 1 : 1000));
    EXPECT_EQ(server.Connections().size(), discard ? 1u : 1000u);
  }
}

TEST(LuaDump, CanBeDestroyedInEveryState) {
  const RefusingPort refusing;
  ScriptedServer server;
  for (std::uint32_t state = 0; state < 16; ++state) {
    const TAVU_LUADUMP_SENDER sender = TAVU_LUADUMP_Create(
        "127.0.0.1", state & 1 ? server.port() : refusing.port(), (state & 2) != 0);
    for (std::uint32_t i = 0; i < state / 4; ++i) EXPECT_TRUE(Post(sender, i));
    EXPECT_TRUE(TAVU_LUADUMP_Destroy(sender));
  }
}

TEST(LuaDump, KeepsTheOrderOfEachThreadWhileTheServerComesAndGoes) {
  // Keeps WinSock up: Wine forgets a socket that one thread makes while another ends the last use.
  const RefusingPort unused;
  auto server = std::make_unique<ScriptedServer>();
  const std::uint16_t port = server->port();
  const TAVU_LUADUMP_SENDER sender = TAVU_LUADUMP_Create("127.0.0.1", port, false);
  Numbers delivered;
  std::uint32_t first = 0;
  for (const Act act : {Act::kReset, Act::kResetAtOnce, Act::kAnswerByByte, Act::kClose}) {
    server->Next({act});
    {
      std::list<Thread> threads;
      for (std::uint32_t thread = 0; thread < 8; ++thread) {
        threads.emplace_back([=] {
          for (std::uint32_t i = 0; i < 10; ++i)
            EXPECT_TRUE(Post(sender, thread * 100 + first + i));
        });
      }
    }
    first += 10;
    const Numbers arrived = NumbersOf(server->WaitForRequests(10));
    EXPECT_GE(arrived.size(), 10u);
    delivered.insert(delivered.end(), arrived.begin(), arrived.end());
    server.reset();
    server = std::make_unique<ScriptedServer>(Script{}, port);
  }
  EXPECT_TRUE(TAVU_LUADUMP_Destroy(sender));
  Numbers next(8, 0);
  for (const std::uint32_t number : delivered) {
    EXPECT_GE(number % 100, next[number / 100]) << "delivered twice or out of order";
    next[number / 100] = number % 100 + 1;
  }
}

}  // namespace
}  // namespace TAVU::test
