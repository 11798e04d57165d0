// The client and its sockets against a server that misbehaves: real connections, under Wine.
#include "net/client/qtc_client.h"

#include <gtest/gtest.h>

#include <optional>

#include "base/thread_error.h"
#include "net/client/call_once.h"
#include "net/client/socket.h"
#include "support/scripted_server.h"
#include "support/vectors.h"

namespace {

// What the code under test asked of the system.
struct {
  int starts = 0;
  int cleanups = 0;
  WORD version = 0;       // the last one asked for
  WORD granted = 0;       // not 0: instead of what the system grants
  std::string looked_up;  // the last name
} winsock;

template <typename Function>
Function* Real(Function*, const char* name) {
  return reinterpret_cast<Function*>(
      reinterpret_cast<void*>(::GetProcAddress(::GetModuleHandleW(L"ws2_32"), name)));
}
int WSAAPI Start(WORD version, WSADATA* data) {
  const int result = Real(&::WSAStartup, "WSAStartup")(version, data);
  ++winsock.starts;
  winsock.version = version;
  if (winsock.granted != 0) data->wVersion = winsock.granted;
  return result;
}
int WSAAPI CleanUp() {
  ++winsock.cleanups;
  return Real(&::WSACleanup, "WSACleanup")();
}
hostent* WSAAPI LookUp(const char* name) {
  winsock.looked_up = name;
  return Real(&::gethostbyname, "gethostbyname")(name);
}

}  // namespace

// The pointers through which the linker sends calls of these functions.
extern "C" {
decltype(&WSAStartup) __imp_WSAStartup = &Start;
decltype(&WSACleanup) __imp_WSACleanup = &CleanUp;
decltype(&gethostbyname) __imp_gethostbyname = &LookUp;
}

namespace TAVU::test {
namespace {

using lumo::Value;
using QTC::CreateQtcClient;
using QTC::QtcClientPtr;
using QTC::ResultCode;

constexpr char kHost[] = "127.0.0.1";
constexpr std::uint32_t kTimeout = 60'000;  // never reached by a healthy test
constexpr std::uint32_t kShort = 150;       // to be waited for
constexpr std::uint32_t kNoLimit = 0xFFFFFFFF;

// A second clock of this very run, which is as slow as the run is.
class SecondClock {
 public:
  explicit SecondClock(DWORD limit_ms) {
    thread_.emplace([this, limit_ms] {
      in_time_ = ::WaitForSingleObject(stopped_.get(), limit_ms) == WAIT_OBJECT_0;
    });
  }
  // Stops it: whether that is before the limit.
  [[nodiscard]] bool InTime() {
    stopped_.Set();
    thread_.reset();
    return in_time_;
  }

 private:
  Event stopped_;
  bool in_time_ = false;
  std::optional<Thread> thread_;
};

// Queues an APC to the calling thread that counts its runs.
void QueueCount(ULONG_PTR* runs) {
  const auto count = [](ULONG_PTR counter) { ++*reinterpret_cast<ULONG_PTR*>(counter); };
  ::QueueUserAPC(count, ::GetCurrentThread(), reinterpret_cast<ULONG_PTR>(runs));
}

TEST(WinSock, IsStartedAndEndedByEachClient) {
  const struct {
    WORD granted;
    int cleanups_before_the_end;
  } kCases[] = {{0, 0}, {MAKEWORD(2, 2), 1}};
  for (const auto& [granted, cleanups] : kCases) {
    winsock = {};
    winsock.granted = granted;
    QtcClientPtr client = CreateQtcClient();
    EXPECT_TRUE(winsock.starts == 1 && winsock.version == MAKEWORD(2, 0));
    EXPECT_EQ(winsock.cleanups, cleanups);
    client.reset();
    EXPECT_TRUE(winsock.starts == 1 && winsock.cleanups == 1);
  }
  winsock = {};
}

TEST(Client, SaysWhatAServerDidToACall) {
  const Bytes long_reply =
      BytesOf(Json::parse(R"(["cf1000040197720100530190",["repeat","78",400],"7a0000"])"));
  // what it did, the time-out, the code, the thread error (0: whatever the network said)
  const std::tuple<Script, std::uint32_t, ResultCode, std::uint32_t> cases[] = {
      {{Act::kAnswer}, kNoLimit, ResultCode::kSuccess, 0},
      {{Act::kAnswerEarly}, kTimeout, ResultCode::kSuccess, 0},
      {{Act::kAnswer, FaultReply()}, kTimeout, ResultCode::kServerError, 0},
      {{Act::kSilence}, kShort, ResultCode::kStreamFault, 258},
      {{Act::kAnswerHalf}, kShort, ResultCode::kStreamFault, 258},
      {{Act::kStopReading}, kShort, ResultCode::kStreamFault, 258},
      {{Act::kClose}, kTimeout, ResultCode::kStreamFault, 109},
      {{Act::kReset}, kTimeout, ResultCode::kStreamFault, 0},
      {{Act::kLeaveAtOnce}, kTimeout, ResultCode::kStreamFault, 0},
      {{Act::kAnswerUrgently}, kTimeout, ResultCode::kSuccess, 0},
      // Each receive is bounded, not the reply as a whole.
      {{Act::kAnswerByByte, long_reply}, kShort, ResultCode::kSuccess, 0},
  };
  for (const auto& [script, timeout, code, thread_error] : cases) {
    SCOPED_TRACE(static_cast<int>(script.act));
    ScriptedServer server(script);
    const QtcClientPtr client = CreateQtcClient();
    ASSERT_EQ(client->OpenTcp(kHost, server.port(), timeout), ResultCode::kSuccess);
    const ULONGLONG begin = ::GetTickCount64();
    SecondClock clock(thread_error == 258 ? 4 * timeout : kTimeout);
    EXPECT_EQ(client->Call("tavu_server", Value::Int(1)), code);
    if (thread_error != 0) EXPECT_EQ(base::GetThreadError(), thread_error);
    EXPECT_TRUE(clock.InTime());
    if (timeout == kShort) EXPECT_GE(::GetTickCount64() - begin + 16, kShort);  // coarse ticks
  }
}

TEST(Client, SaysWhyItCouldNotConnect) {
  const RefusingPort refusing;
  const HangingPort hanging;
  ASSERT_TRUE(hanging.Hangs());
  const std::tuple<const char*, std::uint16_t, std::uint32_t, std::uint32_t> cases[] = {
      {kHost, refusing.port(), kTimeout, WSAECONNREFUSED},
      {kHost, refusing.port(), kNoLimit, WSAECONNREFUSED},
      {kHost, hanging.port(), kShort, 258},
      {kHost, hanging.port(), 0, 258},
      {"no-such-host.invalid", refusing.port(), kTimeout, WSAHOST_NOT_FOUND},
      {"255.255.255.255", refusing.port(), kTimeout, 0},
      {nullptr, refusing.port(), kTimeout, WSAHOST_NOT_FOUND},
  };
  for (const auto& [host, port, timeout, thread_error] : cases) {
    const QtcClientPtr client = CreateQtcClient();
    base::SetThreadError(0);
    ULONG_PTR apc_runs = 0;
    QueueCount(&apc_runs);
    const ULONGLONG begin = ::GetTickCount64();
    SecondClock clock(thread_error == 258 ? 4 * kShort : kTimeout);
    EXPECT_EQ(client->OpenTcp(host, port, timeout), ResultCode::kConnectFailed);
    if (thread_error != 0) EXPECT_EQ(base::GetThreadError(), thread_error);
    EXPECT_TRUE(clock.InTime());
    if (timeout == kShort) EXPECT_GE(::GetTickCount64() - begin + 16, kShort);
    EXPECT_EQ(client->GetSocket(), INVALID_SOCKET);
    EXPECT_TRUE(apc_runs == 0 || host != kHost) << "a call of the host's inside one of ours";
    ::SleepEx(0, TRUE);
    EXPECT_EQ(apc_runs, 1u);
  }
  // The one address whose value is that of no address.
  EXPECT_EQ(winsock.looked_up, "255.255.255.255");
}

// A blocked sender sleeps, runs nothing of the host's and comes back when the connection ends.
TEST(Client, WaitsForAServerThatTakesNothing) {
  ScriptedServer server({Act::kStopReading});
  const std::vector<std::byte> block(16 << 20);
  ULONG_PTR apc_runs = 0;
  const Thread sending([&] {
    const QtcClientPtr client = CreateQtcClient();
    ASSERT_EQ(client->OpenTcp(kHost, server.port(), kShort), ResultCode::kSuccess);
    QueueCount(&apc_runs);
    EXPECT_EQ(client->Call("m", Value::BorrowBinary(block)), ResultCode::kStreamFault);
    EXPECT_EQ(apc_runs, 0u);
    ::SleepEx(0, TRUE);
    EXPECT_EQ(apc_runs, 1u);
  });
  EXPECT_EQ(server.WaitForConnections(1), 1u);
  const auto processor_time = [] {
    FILETIME ignored[2], kernel, user;
    ::GetProcessTimes(::GetCurrentProcess(), &ignored[0], &ignored[1], &kernel, &user);
    return (kernel.dwLowDateTime + user.dwLowDateTime) / 10'000;  // milliseconds
  };
  EXPECT_EQ(::WaitForSingleObject(sending.get(), 300), WAIT_TIMEOUT);
  const DWORD before = processor_time();
  EXPECT_EQ(::WaitForSingleObject(sending.get(), 600), WAIT_TIMEOUT);
  EXPECT_LT(processor_time() - before, 60u);
  server.ResetAll();
}

// Datagrams draw refusals, which the next one gets to hear.
TEST(Client, TakesNoRefusalOfADatagramForAFailure) {
  const RefusingPort refusing;
  const std::string text(30'000, 'x');
  for (const std::size_t size : {10u, 2'000u, 4'000u, 8'000u, 15'000u, 30'000u}) {
    const QtcClientPtr client = CreateQtcClient();
    ASSERT_EQ(client->OpenUdp(kHost, refusing.port(), kTimeout), ResultCode::kSuccess);
    const Value argument = Value::BorrowString(std::string_view(text).substr(0, size));
    for (int i = 0; i < 2; ++i)
      EXPECT_EQ(client->Call("m", argument), ResultCode::kSuccess) << size;
  }
}

// Callers know the operations by their places in the table.
TEST(Client, HasItsOperationsInTheirSlots) {
  ScriptedServer server;
  const QtcClientPtr client = CreateQtcClient();
  ASSERT_EQ(client->OpenTcp(kHost, server.port(), kTimeout), ResultCode::kSuccess);
  void* const* const slots = *reinterpret_cast<void* const* const*>(client.get());
  const auto close = reinterpret_cast<ResultCode (*)(QTC::IQtcClient*)>(slots[3]);
  const auto get_socket = reinterpret_cast<SOCKET (*)(const QTC::IQtcClient*)>(slots[4]);
  sockaddr_in peer = {};
  int length = sizeof peer;
  EXPECT_EQ(::getpeername(get_socket(client.get()), reinterpret_cast<sockaddr*>(&peer), &length),
            0);
  EXPECT_EQ(::ntohs(peer.sin_port), server.port());
  EXPECT_EQ(close(client.get()), ResultCode::kSuccess);
  EXPECT_EQ(get_socket(client.get()), INVALID_SOCKET);
}

TEST(Client, IsOpenOnlyOnceAndEndsAConnectionWithAReset) {
  ScriptedServer server;
  ScriptedServer other;
  QtcClientPtr client = CreateQtcClient();
  ASSERT_EQ(client->OpenTcp("localhost", server.port(), kTimeout), ResultCode::kSuccess);
  EXPECT_EQ(client->OpenTcp(kHost, other.port(), kTimeout), ResultCode::kAlreadyOpen);
  EXPECT_EQ(client->OpenUdp(kHost, other.port(), kTimeout), ResultCode::kAlreadyOpen);
  EXPECT_EQ(client->Call("tavu_server", Value()), ResultCode::kSuccess);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(client->Close(), ResultCode::kSuccess);
  EXPECT_EQ(client->GetSocket(), INVALID_SOCKET);
  EXPECT_EQ(server.WaitForEnd(0).end, ConnectionEnd::kReset);
  EXPECT_EQ(client->Call("tavu_server", Value()), ResultCode::kStreamFault);  // no reply can come
  ASSERT_EQ(client->OpenTcp(kHost, server.port(), kTimeout), ResultCode::kSuccess);
  client.reset();
  EXPECT_EQ(server.WaitForEnd(1).end, ConnectionEnd::kReset);
  EXPECT_TRUE(other.Connections().empty());
}

// Whether a receive on `socket`, with nothing to receive, would wait.
bool IsBlocking(SOCKET socket) {
  const DWORD moment = 1;  // milliseconds
  ::setsockopt(socket, SOL_SOCKET, SO_RCVTIMEO, reinterpret_cast<const char*>(&moment),
               sizeof moment);
  char byte = 0;
  EXPECT_EQ(::recv(socket, &byte, 1, 0), SOCKET_ERROR);
  return ::WSAGetLastError() == WSAETIMEDOUT;
}

TEST(Socket, IsInTheModeThatItsLastRequestLeaves) {
  const QTC::WinSock winsock;
  ScriptedServer server({Act::kStopReading});
  QTC::Socket socket;
  std::byte data[100] = {};
  EXPECT_EQ(socket.Send(data, 100), 0);  // not open
  EXPECT_TRUE(socket.Receive(data, 1) == -1 && !socket.Close());
  socket.Adopt(QTC::OpenTcpSocket(kHost, server.port(), kTimeout), QTC::Protocol::kTcp, 1);
  EXPECT_TRUE(IsBlocking(socket.handle())) << "after an open";
  for (int sends = 1; sends <= 3; ++sends) {
    for (int i = 0; i < sends; ++i) EXPECT_EQ(socket.Send(data, 100), 100);
    socket.EndSends();
    EXPECT_TRUE(IsBlocking(socket.handle())) << "after a request of as many sends: " << sends;
  }
  ::shutdown(socket.handle(), SD_SEND);
  EXPECT_EQ(socket.Send(data, 100), -1);
  EXPECT_EQ(base::GetThreadError(), static_cast<std::uint32_t>(WSAESHUTDOWN));
  socket.EndSends();
  EXPECT_FALSE(IsBlocking(socket.handle())) << "after a send that failed";
  EXPECT_EQ(socket.Receive(data, 1), -1);
  EXPECT_TRUE(IsBlocking(socket.handle())) << "after a receive that timed out after it";
}

// Of a failed open nothing is told: the call is made all the same, and writes into its buffer.
TEST(CallOnce, FailsAtARefusingPortOnlyWithMoreThanABuffer) {
  const RefusingPort refusing;
  const std::string argument(3000, 'x');
  for (const std::size_t size : {10u, 3000u}) {
    lumo::BasicString<char> text(std::string_view("left from before"));
    ResultCode code = ResultCode::kReplyTimeout;
    const Value value = Value::BorrowString(std::string_view(argument).substr(0, size));
    EXPECT_TRUE(QTC::CallOnce({kHost, refusing.port(), kTimeout}, QTC::Protocol::kTcp, "m", value,
                              text, code));
    EXPECT_EQ(code, size == 10 ? ResultCode::kSuccess : ResultCode::kStreamFault);
    EXPECT_EQ(text.empty(), size == 10);
  }
}

}  // namespace
}  // namespace TAVU::test
