// The asynchronous sender in all its states, while the server is slow, dead, or comes and goes.
#include "net/async_sender.h"

#include <gtest/gtest.h>
#include <winternl.h>

#include <map>

#include "lumo/memory_reader.h"
#include "net/exchange.h"
#include "support/scripted_server.h"
#include "support/threads.h"

namespace TAVU::test {
namespace {

using lumo::Value;
using QTC::AsyncSender;
using QTC::PendingOnStop;
using QTC::Protocol;
using QTC::ResultCode;

constexpr char kHost[] = "127.0.0.1";
constexpr std::uint32_t kTimeout = 60'000;  // never reached by a healthy test
constexpr std::uint32_t kShort = 100;       // to be waited for

std::unique_ptr<AsyncSender> NewSender(std::uint16_t port,
                                       PendingOnStop pending = PendingOnStop::kDeliver,
                                       std::uint32_t timeout = kTimeout) {
  return AsyncSender::Create({kHost, port, timeout}, pending, Protocol::kTcp);
}

// The number that a request of these tests carries.
int NumberOf(const Bytes& bytes) {
  lumo::MemoryReader reader(bytes);
  QTC::Message request;
  Value argument;
  if (!QTC::ReadRequest(reader, request, argument) || request.method != "LuaDump") return -1;
  return argument.int_value();
}

TEST(AsyncSender, MakesTheCallsInOrderEachOverItsOwnConnection) {
  ScriptedServer server;
  const auto sender = NewSender(server.port());
  ASSERT_TRUE(sender);
  for (int i = 0; i < 70; ++i) EXPECT_TRUE(sender->Enqueue("LuaDump", Value::Int(i)));
  const std::vector<Bytes> requests = server.WaitForRequests(70);
  ASSERT_EQ(requests.size(), 70u);
  for (int i = 0; i < 70; ++i) EXPECT_EQ(NumberOf(requests[static_cast<std::size_t>(i)]), i);
  EXPECT_EQ(server.Connections().size(), 70u);
}

TEST(AsyncSender, DeliversAllThatThreadsQueuedWhileTheServerWasSilent) {
  constexpr int kThreads = 4;
  constexpr int kEach = 40;
  ScriptedServer server;
  server.Hold();
  auto sender = NewSender(server.port());
  ASSERT_TRUE(sender);
  std::atomic<int> refused = 0;
  {
    std::vector<std::unique_ptr<Thread>> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.push_back(std::make_unique<Thread>([&refused, &sender, t] {
        for (int i = 0; i < kEach; ++i) {
          if (!sender->Enqueue("LuaDump", Value::Int(t * 1000 + i))) ++refused;
        }
      }));
    }
  }
  // All are queued, and not one has been answered.
  EXPECT_EQ(refused, 0);
  EXPECT_LE(server.Connections().size(), 1u);
  server.Release();
  sender.reset();
  std::map<int, int> next;  // of each thread
  const std::vector<Bytes> requests = server.WaitForRequests(kThreads * kEach);
  ASSERT_EQ(requests.size(), std::size_t{kThreads * kEach});
  for (const Bytes& request : requests) {
    const int number = NumberOf(request);
    ASSERT_EQ(number % 1000, next[number / 1000]++) << "thread " << number / 1000;
  }
  EXPECT_EQ(server.Connections().size(), requests.size());  // nothing twice
}

TEST(AsyncSender, DropsWhatIsQueuedWhenToldSo) {
  ScriptedServer server;
  server.Hold();
  const auto sender = NewSender(server.port(), PendingOnStop::kDiscard);
  ASSERT_TRUE(sender);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(sender->Enqueue("LuaDump", Value::Int(i)));
  ASSERT_EQ(server.WaitForRequests(1).size(), 1u);
  Event stopped;
  {
    const Thread stopping([&] {
      if (sender->Stop()) stopped.Set();
    });
    while (sender->Enqueue("LuaDump", Value::Int(3))) ::Sleep(0);
    EXPECT_FALSE(stopped.IsSet());  // it waits for the call in progress
    server.Release();
  }
  EXPECT_TRUE(stopped.IsSet());
  EXPECT_EQ(server.Connections().size(), 1u);
  EXPECT_FALSE(sender->Enqueue("LuaDump", Value::Int(4)));
  EXPECT_TRUE(sender->Stop());
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
  struct Case {
    Act act;
    Bytes reply;
    std::uint32_t timeout;
    ResultCode code;
    const char* text;
  };
  constexpr char kStreamText[] = "QTC_ERROR_STREAM_FAULT: send/recv failed. or broken message.";
  const Case cases[] = {
      {Act::kReset, {}, kTimeout, ResultCode::kStreamFault, kStreamText},
      {Act::kResetAtOnce, {}, kTimeout, ResultCode::kStreamFault, kStreamText},
      {Act::kClose, {}, kTimeout, ResultCode::kStreamFault, kStreamText},
      {Act::kSilence, {}, kShort, ResultCode::kStreamFault, kStreamText},
      {Act::kAnswerHalf, SuccessReply(), kShort, ResultCode::kStreamFault, kStreamText},
      {Act::kAnswer, FaultReply(), kTimeout, ResultCode::kServerError,
       "QTC_ERROR_SERVER_REPLY: recieved reply, but ERROR."},
      {Act::kAnswer, SuccessReply(), kTimeout, ResultCode::kSuccess, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.act));
    ScriptedServer server;
    const auto sender = NewSender(server.port(), PendingOnStop::kDeliver, c.timeout);
    ASSERT_TRUE(sender);
    EXPECT_EQ(sender->LastCode(), ResultCode::kSuccess);
    EXPECT_EQ(sender->LastErrorText(), "");
    server.Next({Act::kReset});
    server.Next({c.act, c.reply});
    EXPECT_TRUE(sender->Enqueue("LuaDump", Value::Int(0)));
    EXPECT_TRUE(sender->Enqueue("LuaDump", Value::Int(1)));
    sender->Stop();
    EXPECT_EQ(server.Connections().size(), 2u);
    EXPECT_EQ(sender->LastCode(), c.code);
    EXPECT_EQ(sender->LastErrorText(), c.text);
  }
}

TEST(AsyncSender, OutlivesAServerThatComesAndGoes) {
  auto server = std::make_unique<ScriptedServer>();
  const std::uint16_t port = server->port();
  const auto sender = NewSender(port);
  ASSERT_TRUE(sender);
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(sender->Enqueue("LuaDump", Value::Int(i)));
    const std::vector<Bytes> requests = server->WaitForRequests(1);
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(NumberOf(requests[0]), i);
    EXPECT_EQ(server->WaitForEnd(0).end, ConnectionEnd::kReset);
    server.reset();
    server = std::make_unique<ScriptedServer>(Script{}, port);
  }
}

TEST(AsyncSender, MakesDatagramsWhenToldSo) {
  DatagramServer server;
  const auto sender = AsyncSender::Create({kHost, server.port(), kTimeout}, PendingOnStop::kDeliver,
                                          Protocol::kUdp);
  ASSERT_TRUE(sender);
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(sender->Enqueue("LuaDump", Value::Int(i)));
  const std::vector<Bytes> datagrams = server.WaitForDatagrams(5);
  ASSERT_EQ(datagrams.size(), 5u);
  for (int i = 0; i < 5; ++i) EXPECT_EQ(NumberOf(datagrams[static_cast<std::size_t>(i)]), i);
}

// Handles that this process has open.
std::size_t CountHandles() {
  struct Entry {
    ULONG pid;
    UCHAR type;
    UCHAR flags;
    USHORT handle;
    void* object;
    ACCESS_MASK access;
  };
  std::vector<std::byte> buffer(1 << 22);
  constexpr auto kSystemHandleInformation = static_cast<SYSTEM_INFORMATION_CLASS>(16);
  ULONG size = 0;
  if (::NtQuerySystemInformation(kSystemHandleInformation, buffer.data(),
                                 static_cast<ULONG>(buffer.size()), &size) != 0) {
    return 0;
  }
  ULONG count = 0;
  std::memcpy(&count, buffer.data(), sizeof count);
  const auto* entries = reinterpret_cast<const Entry*>(buffer.data() + alignof(Entry));
  return static_cast<std::size_t>(std::count_if(entries, entries + count, [](const Entry& entry) {
    return entry.pid == ::GetCurrentProcessId();
  }));
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
  // No thread begins while another holds the loader's lock.
  using LockLoader = LONG NTAPI(ULONG flags, ULONG * state, ULONG_PTR * cookie);
  using UnlockLoader = LONG NTAPI(ULONG flags, ULONG_PTR cookie);
  const HMODULE ntdll = ::GetModuleHandleW(L"ntdll.dll");
  const auto import = [&](const char* name) {
    return reinterpret_cast<void*>(::GetProcAddress(ntdll, name));
  };
  ULONG_PTR cookie = 0;
  ASSERT_EQ(reinterpret_cast<LockLoader*>(import("LdrLockLoaderLock"))(0, nullptr, &cookie), 0);
  EXPECT_FALSE(NewSender(1));
  EXPECT_EQ(reinterpret_cast<UnlockLoader*>(import("LdrUnlockLoaderLock"))(0, cookie), 0);
  // The late worker finds its context and ends; the next sender is none the worse for it.
  ScriptedServer server;
  const auto sender = NewSender(server.port());
  ASSERT_TRUE(sender);
  EXPECT_TRUE(sender->Enqueue("LuaDump", Value::Int(1)));
  EXPECT_EQ(server.WaitForRequests(1).size(), 1u);
}

TEST(AsyncSender, DoesNotExistWithoutAHost) {
  EXPECT_FALSE(AsyncSender::Create({nullptr, 1, 1}, PendingOnStop::kDeliver, Protocol::kTcp));
}

// A host that goes away in every way, with three calls queued: neither crash nor hang.
TEST(AsyncSender, LetsItsHostGo) {
  struct Case {
    const char* way;
    Act act;
    std::size_t delivered;  // at least
  };
  const Case cases[] = {
      {"exit", Act::kSilence, 0},         {"exit", Act::kAnswer, 0},
      {"exit-destroy", Act::kSilence, 0}, {"free", Act::kAnswer, 0},
      {"destroy-free", Act::kAnswer, 3},  {"destroy-free", Act::kSilence, 3},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.way << ", act " << static_cast<int>(c.act));
    ScriptedServer server({c.act});
    wchar_t command[MAX_PATH + 50];
    wchar_t folder[MAX_PATH];
    ::GetModuleFileNameW(nullptr, folder, MAX_PATH);
    *wcsrchr(folder, L'\\') = 0;
    ::swprintf(command, std::size(command), L"\"%ls\\sender_host.exe\" %u %hs", folder,
               server.port(), c.way);
    STARTUPINFOW startup = {};
    startup.cb = sizeof startup;
    PROCESS_INFORMATION process = {};
    ASSERT_TRUE(::CreateProcessW(nullptr, command, nullptr, nullptr, FALSE, 0, nullptr, nullptr,
                                 &startup, &process));
    EXPECT_EQ(::WaitForSingleObject(process.hProcess, kTimeout), WAIT_OBJECT_0);
    DWORD status = ~0U;
    ::GetExitCodeProcess(process.hProcess, &status);
    EXPECT_EQ(status, 0u);
    ::TerminateProcess(process.hProcess, 1);
    ::CloseHandle(process.hThread);
    ::CloseHandle(process.hProcess);
    if (c.delivered != 0) EXPECT_EQ(server.WaitForRequests(3).size(), c.delivered);
  }
}

}  // namespace
}  // namespace TAVU::test
