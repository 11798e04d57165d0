// The LuaDump senders, seen from the host and from the server.
#include <gtest/gtest.h>

#include <list>

#include "delivery/host.h"
#include "support/scripted_server.h"
#include "support/threads.h"

namespace TAVU::test {
namespace {

// The dump number of a request.
std::uint32_t NumberOf(const Bytes& request) {
  const std::string text(reinterpret_cast<const char*>(request.data()), request.size());
  const std::size_t key = text.find(std::string("I\0\0\x01\x92S\0", 7));
  return static_cast<std::uint32_t>(std::stoul(text.substr(key + 8)));
}

TEST(LuaDump, RefusesWhatIsNullAndLeavesNoCode) {
  static_cast<void>(TAVU_SetTimeout(nullptr, 1));
  EXPECT_EQ(TAVU_LUADUMP_Create(nullptr, 1, false), nullptr);
  EXPECT_EQ(TAVU_LUADUMP_Create("127.0.0.1", 0, true), nullptr);
  EXPECT_TRUE(TAVU_LUADUMP_Destroy(nullptr));
  const TAVU_LUADUMP_SENDER sender = TAVU_LUADUMP_Create("127.0.0.1", 1, true);
  EXPECT_EQ(AsForeign(&TAVU_LUADUMP_SendLuaDumpA)(nullptr, 1, 1, 1, "m", "d", "u", "e"), 0u);
  EXPECT_FALSE(TAVU_LUADUMP_SendLuaDumpA(sender, 1, 1, 1, nullptr, "d", "u", "e"));
  EXPECT_FALSE(TAVU_LUADUMP_SendLuaDumpW(sender, 1, 1, 1, L"m", nullptr, L"u", L"e"));
  EXPECT_FALSE(TAVU_LUADUMP_SendLuaDumpW(sender, 1, 1, 1, L"m", L"d", L"u", nullptr));
  EXPECT_TRUE(TAVU_LUADUMP_Destroy(sender));
  EXPECT_EQ(TAVU_GetLastError(), TAVU_ERROR_INVALID_HANDLE);
}

TEST(LuaDump, DestroyingDeliversAllOrDiscardsAllButTheOneInProgress) {
  for (const unsigned discard : {0u, 1u, 2u, 0x80u, 0xFFu}) {
    ScriptedServer server;
    server.Next({Act::kSilence});  // a post that waited for an answer would never return
    const auto create = reinterpret_cast<TAVU_LUADUMP_SENDER (*)(const char*, uint16_t, unsigned)>(
        reinterpret_cast<void*>(&TAVU_LUADUMP_Create));
    // The caller's register has more in it than the flag.
    const TAVU_LUADUMP_SENDER sender = create("127.0.0.1", server.port(), 0x5500u + discard);
    std::list<Thread> threads;
    for (std::uint32_t thread = 0; thread < 4; ++thread) {
      threads.emplace_back([sender, thread] {
        for (std::uint32_t i = thread * 40; i < thread * 40 + 40; ++i) {
          EXPECT_EQ(AsForeign(&TAVU_LUADUMP_SendLuaDumpA)(sender, i, 1, 2, "m", "d", "u", "e"), 1u);
        }
      });
    }
    threads.clear();
    EXPECT_EQ(server.WaitForRequests(1).size(), 1u);
    if (discard == 0) server.ResetAll();
    EXPECT_EQ(AsForeign(&TAVU_LUADUMP_Destroy)(sender), 1u);

    const auto requests = server.WaitForRequests(1);
    EXPECT_EQ(requests.size(), discard != 0 ? 1u : 160u);
    EXPECT_EQ(server.WaitForConnections(1), requests.size());
    std::uint32_t next[] = {0, 40, 80, 120};  // of each thread
    for (const Bytes& request : requests) {
      if (discard == 0) EXPECT_EQ(NumberOf(request), next[NumberOf(request) / 40]++);
    }
  }
}

}  // namespace
}  // namespace TAVU::test
