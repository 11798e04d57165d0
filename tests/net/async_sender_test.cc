// The asynchronous sender at its edges; tests/delivery/lua_dump_test.cc uses it as hosts do.
#include "net/client/async_sender.h"

#include <gtest/gtest.h>

#include "lumo/codec/memory_reader.h"
#include "net/wire/exchange.h"
#include "support/resources.h"
#include "support/scripted_server.h"
#include "support/threads.h"

extern "C" {
NTSTATUS NTAPI LdrLockLoaderLock(ULONG flags, ULONG* state, ULONG_PTR* cookie);
NTSTATUS NTAPI LdrUnlockLoaderLock(ULONG flags, ULONG_PTR cookie);
}

namespace TAVU::test {
namespace {

using lumo::Value;
using QTC::AsyncSender;
using QTC::ResultCode;

constexpr char kHost[] = "127.0.0.1";
constexpr std::uint32_t kTimeout = 60'000;  // never reached by a healthy test
constexpr std::uint32_t kShort = 100;       // to be waited for

std::unique_ptr<AsyncSender> NewSender(std::uint16_t port, std::uint32_t timeout = kTimeout) {
  return AsyncSender::Create({kHost, port, timeout}, QTC::PendingOnStop::kDeliver,
                             QTC::Protocol::kTcp);
}

// The number that a request of these tests carries.
int NumberOf(const Bytes& bytes) {
  lumo::MemoryReader reader(bytes);
  QTC::Message request;
  Value argument;
  if (!QTC::ReadRequest(reader, request, argument) || request.method != "LuaDump") return -1;
  return argument.int_value();
}

TEST(AsyncSender, LosesNothingThatItAcceptedWhileItWasStopped) {
  for (int round = 0; round < 5; ++round) {
    ScriptedServer server;
    const auto sender = NewSender(server.port());
    ASSERT_TRUE(sender);
    std::atomic<int> accepted = 0;
    {
      const Thread queueing([&] {
        while (accepted < 30 && sender->Enqueue("LuaDump", Value::Int(accepted))) ++accepted;
      });
      while (accepted <= round) ::Sleep(0);
      sender->Stop();
    }
    // Stopped, and all that was accepted has been answered already.
    const std::vector<Bytes> requests = server.WaitForRequests(0);
    ASSERT_EQ(requests.size(), static_cast<std::size_t>(accepted));
    EXPECT_EQ(NumberOf(requests.back()), accepted - 1);
  }
}

TEST(AsyncSender, GoesOnBehindCallsThatFail) {
  constexpr char kStreamText[] = "QTC_ERROR_STREAM_FAULT: send/recv failed. or broken message.";
  constexpr char kServerText[] = "QTC_ERROR_SERVER_REPLY: recieved reply, but ERROR.";
  const std::tuple<Script, std::uint32_t, ResultCode, const char*> cases[] = {
      {{Act::kClose}, kTimeout, ResultCode::kStreamFault, kStreamText},
      {{Act::kSilence}, kShort, ResultCode::kStreamFault, kStreamText},
      {{Act::kAnswer, FaultReply()}, kTimeout, ResultCode::kServerError, kServerText},
      {{Act::kAnswer}, kTimeout, ResultCode::kSuccess, ""},
  };
  for (const auto& [script, timeout, code, text] : cases) {
    SCOPED_TRACE(static_cast<int>(script.act));
    ScriptedServer server;
    const auto sender = NewSender(server.port(), timeout);
    ASSERT_TRUE(sender);
    EXPECT_TRUE(sender->LastCode() == ResultCode::kSuccess && sender->LastErrorText() == "");
    server.Next({Act::kReset});
    server.Next(script);
    for (int i = 0; i < 2; ++i) EXPECT_TRUE(sender->Enqueue("LuaDump", Value::Int(i)));
    sender->Stop();
    EXPECT_EQ(server.Connections().size(), 2u);
    EXPECT_EQ(sender->LastCode(), code);
    EXPECT_EQ(sender->LastErrorText(), text);
  }
}

TEST(AsyncSender, LeavesTwoHandlesBehind) {
  // The started event and the thread: required, and no more than these.
  static_cast<void>(NewSender(1));  // what the first one brings up for good
  const std::size_t before = CountHandles();
  ASSERT_GT(before, 0u);
  for (int i = 0; i < 50; ++i) ASSERT_TRUE(NewSender(1));
  EXPECT_EQ(CountHandles() - before, 100u);
}

TEST(AsyncSender, GivesUpOnAThreadThatDoesNotStart) {
  ULONG_PTR cookie = 0;  // no thread begins while another holds the loader's lock
  ASSERT_EQ(::LdrLockLoaderLock(0, nullptr, &cookie), 0);
  EXPECT_FALSE(NewSender(1));
  EXPECT_EQ(::LdrUnlockLoaderLock(0, cookie), 0);
  // The late worker finds its context and ends; the next sender is none the worse for it, and wakes
  // whenever there is something to do.
  ScriptedServer server;
  const auto sender = NewSender(server.port());
  ASSERT_TRUE(sender);
  for (std::size_t calls = 1; calls <= 10; ++calls) {
    EXPECT_TRUE(sender->Enqueue("LuaDump", Value::Int(1)));
    ASSERT_EQ(server.WaitForRequests(calls).size(), calls);
  }
}

}  // namespace
}  // namespace TAVU::test
