// The asynchronous sender at its edges; tests/delivery/lua_dump_test.cc uses it as hosts do.
#include "net/client/async_sender.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

#include "lumo/codec/memory_reader.h"
#include "net/wire/exchange.h"
#include "support/scripted_server.h"
#include "support/threads.h"

namespace {

// What stands between the sender and the system. While `creator` makes a sender, its handles are
// noted: work, started and stopped event, and the thread. A `late` worker is suspended until the
// creator has looked twice: whether it started, and then, giving up, to stop it.
struct {
  std::atomic<DWORD> creator = 0;
  bool late = false;
  HANDLE late_thread = nullptr;
  int looks = 0;
  HANDLE work = nullptr;
  TAVU::test::Event waits, may_wait;  // of a late worker, for work
  TAVU::test::Monitor monitor;        // of what follows
  std::size_t waits_for_work = 0;
  std::vector<HANDLE> open;
} seam;

HANDLE Noted(HANDLE handle) {
  if (GetCurrentThreadId() != seam.creator) return handle;
  seam.monitor.Do([&] { seam.open.push_back(handle); });
  if (seam.work == nullptr) seam.work = handle;
  return handle;
}

template <typename Function>
Function Real(const char* name, const wchar_t* library = L"kernel32") {
  return reinterpret_cast<Function>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(library), name)));
}
#define REAL(name, ...) \
  static const auto real = Real<decltype(&name)>(#name __VA_OPT__(, ) __VA_ARGS__)

HANDLE WINAPI Create(SECURITY_ATTRIBUTES* security, BOOL manual, BOOL set, const wchar_t* name) {
  REAL(CreateEventW);
  return Noted(real(security, manual, set, name));
}

BOOL WINAPI Close(HANDLE handle) {
  REAL(CloseHandle);
  seam.monitor.Do([&] { std::erase(seam.open, handle); });
  return real(handle);
}

std::uintptr_t __cdecl Begin(void* security, unsigned stack, unsigned(__stdcall* entry)(void*),
                             void* argument, unsigned flags, unsigned* id) {
  REAL(_beginthreadex, L"msvcrt");
  const bool late = seam.late && GetCurrentThreadId() == seam.creator;
  const auto thread = real(security, stack, entry, argument,
                           flags | static_cast<unsigned>(late ? CREATE_SUSPENDED : 0), id);
  Noted(reinterpret_cast<HANDLE>(thread));
  if (late) seam.late_thread = reinterpret_cast<HANDLE>(thread);
  return thread;
}

DWORD WINAPI Wait(HANDLE handle, DWORD milliseconds) {
  REAL(WaitForSingleObject);
  if (handle == seam.work) {
    seam.monitor.Do([] { ++seam.waits_for_work; });
    if (seam.late) {
      seam.waits.Set();
      real(seam.may_wait.get(), INFINITE);
    }
  } else if (seam.late && GetCurrentThreadId() == seam.creator) {
    return WAIT_TIMEOUT;
  }
  return real(handle, milliseconds);
}

}  // namespace

// The pointers, and the one function, to which the linker sends calls of these.
extern "C" {
decltype(&CreateEventW) __imp_CreateEventW = &Create;
decltype(&CloseHandle) __imp_CloseHandle = &Close;
decltype(&_beginthreadex) __imp__beginthreadex = &Begin;
decltype(&WaitForSingleObject) __imp_WaitForSingleObject = &Wait;
}

extern "C" void WINAPI ReleaseSRWLockExclusive(SRWLOCK* lock) {
  REAL(ReleaseSRWLockExclusive);
  real(lock);
  if (seam.late_thread == nullptr || GetCurrentThreadId() != seam.creator) return;
  if (++seam.looks != 2) return;
  ResumeThread(seam.late_thread);
  Real<decltype(&WaitForSingleObject)>("WaitForSingleObject")(seam.waits.get(), INFINITE);
}

namespace TAVU::test {
namespace {

using lumo::Value;
using QTC::AsyncSender;
using QTC::Protocol;
using QTC::ResultCode;

constexpr char kHost[] = "127.0.0.1";
constexpr std::uint32_t kTimeout = 60'000;  // never reached by a healthy test
constexpr std::uint32_t kShort = 100;       // to be waited for

std::unique_ptr<AsyncSender> NewSender(std::uint16_t port, std::uint32_t timeout = kTimeout,
                                       Protocol protocol = Protocol::kTcp) {
  seam.open.clear();
  seam.work = nullptr;
  seam.waits_for_work = 0;
  seam.creator = ::GetCurrentThreadId();
  auto sender = AsyncSender::Create({kHost, port, timeout}, QTC::PendingOnStop::kDeliver, protocol);
  seam.creator = 0;
  return sender;
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
    EXPECT_FALSE(sender->Enqueue("LuaDump", Value::Int(-1)));
    // Stopped, and all that was accepted has been answered already.
    const std::vector<Bytes> requests = server.WaitForRequests(0);
    ASSERT_EQ(requests.size(), static_cast<std::size_t>(accepted));
    EXPECT_EQ(NumberOf(requests.back()), accepted - 1);
  }
}

TEST(AsyncSender, GoesOnAfterCallsThatFail) {
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

TEST(ResultText, OfTheCodesThatNoCallEndsWith) {
  EXPECT_STREQ(QTC::ResultText(static_cast<ResultCode>(12288)),
               "QTC_ERROR_CONNECT_FAIL: Cannot connet server. (maybe timeout?).");
  EXPECT_STREQ(QTC::ResultText(static_cast<ResultCode>(12290)),
               "QTC_ERROR_REPLY_TIMEOUT: Cannot recevie reply from server in timeout.");
  EXPECT_STREQ(QTC::ResultText(static_cast<ResultCode>(12292)),
               "QTC_ERROR_ALREADY_OPENED: send/recv on going...");
}

TEST(AsyncSender, SendsDatagramsWhenItWasMadeForThem) {
  ScriptedServer server;
  const auto sender = NewSender(server.port(), kTimeout, Protocol::kUdp);
  ASSERT_TRUE(sender);
  EXPECT_TRUE(sender->Enqueue("LuaDump", Value::Int(7)));
  sender->Stop();
  const std::vector<Bytes> datagrams = server.WaitForDatagrams(1);
  ASSERT_EQ(datagrams.size(), 1u);
  EXPECT_EQ(NumberOf(datagrams[0]), 7);
  EXPECT_TRUE(server.Connections().empty());
}

TEST(AsyncSender, SleepsBetweenCallsAndLeavesTwoHandlesBehind) {
  ScriptedServer server;
  auto sender = NewSender(server.port());
  ASSERT_TRUE(sender);
  const std::vector<HANDLE> made = seam.open;
  ASSERT_EQ(made.size(), 4u);
  const auto waits = [] { return seam.waits_for_work; };
  for (std::size_t calls = 1; calls <= 10; ++calls) {
    EXPECT_TRUE(sender->Enqueue("LuaDump", Value::Int(1)));
    ASSERT_EQ(server.WaitForRequests(calls).size(), calls);
    EXPECT_EQ(seam.monitor.When([&] { return waits() > calls; }, waits), calls + 1);
    EXPECT_EQ(::WaitForMultipleObjects(1, &seam.work, FALSE, 0), WAIT_TIMEOUT) << "it never sleeps";
  }
  sender.reset();
  const auto closed = [] { return seam.open.size() <= 2; };
  EXPECT_EQ(seam.monitor.When(closed, [] { return seam.open; }),
            (std::vector<HANDLE>{made[1], made[3]}))
      << "the started event and the thread stay";
}

TEST(AsyncSender, LeavesALateWorkerWhatItUses) {
  seam.late = true;
  EXPECT_FALSE(NewSender(1)) << "the worker came late, between the stop and the end";
  // The worker is held where it waits for work, and its sender is gone.
  EXPECT_EQ(seam.open.size(), 4u);
  const HANDLE worker = seam.late_thread;
  seam.may_wait.Set();
  EXPECT_EQ(::WaitForSingleObject(worker, 60'000), WAIT_OBJECT_0);
  EXPECT_EQ(seam.open.size(), 2u) << "it took its events with it";
  seam.late = false;
}

}  // namespace
}  // namespace TAVU::test
