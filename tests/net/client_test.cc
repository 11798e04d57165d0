// The client and its sockets against a server that misbehaves: real connections, under Wine.
#include "net/client/qtc_client.h"

#include <gtest/gtest.h>

#include "base/thread_error.h"
#include "net/client/call_once.h"
#include "net/client/socket.h"
#include "support/scripted_server.h"
#include "support/vectors.h"

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

TEST(Client, UnderstandsRepliesAsTheVectorsHaveThem) {
  ScriptedServer server;
  const QtcClientPtr client = CreateQtcClient();
  const Json replies = LoadVectors("replies.json")["replies"];
  for (const Json& c : replies) {
    server.Next({Act::kAnswerThenClose, BytesOf(c["bytes"])});
    ASSERT_EQ(client->OpenTcp(kHost, server.port(), kTimeout), ResultCode::kSuccess);
    EXPECT_EQ(static_cast<int>(client->Call("tavu_server", Value())), c["code"]) << c["name"];
    client->Close();
  }
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
      {{Act::kResetAtOnce}, kTimeout, ResultCode::kStreamFault, 0},
      // Each receive is bounded, not the reply as a whole.
      {{Act::kAnswerByByte, long_reply}, kShort, ResultCode::kSuccess, 0},
  };
  for (const auto& [script, timeout, code, thread_error] : cases) {
    SCOPED_TRACE(static_cast<int>(script.act));
    ScriptedServer server(script);
    const QtcClientPtr client = CreateQtcClient();
    ASSERT_EQ(client->OpenTcp(kHost, server.port(), timeout), ResultCode::kSuccess);
    const ULONGLONG begin = ::GetTickCount64();
    EXPECT_EQ(client->Call("tavu_server", Value::Int(1)), code);
    if (thread_error != 0) EXPECT_EQ(base::GetThreadError(), thread_error);
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
      {nullptr, refusing.port(), kTimeout, WSAHOST_NOT_FOUND},
  };
  for (const auto& [host, port, timeout, thread_error] : cases) {
    const QtcClientPtr client = CreateQtcClient();
    base::SetThreadError(0);
    const ULONGLONG begin = ::GetTickCount64();
    EXPECT_EQ(client->OpenTcp(host, port, timeout), ResultCode::kConnectFailed);
    EXPECT_EQ(base::GetThreadError(), thread_error);
    if (timeout == kShort) EXPECT_GE(::GetTickCount64() - begin + 16, kShort);
    EXPECT_EQ(client->GetSocket(), INVALID_SOCKET);
  }
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

TEST(Socket, IsInTheModeThatItsLastOperationLeaves) {
  const QTC::WinSock winsock;
  ScriptedServer server({Act::kStopReading});
  QTC::Socket socket;
  std::byte data[100] = {};
  EXPECT_EQ(socket.SendAll(data, 100), 0);  // not open
  EXPECT_TRUE(socket.Receive(data, 1) == -1 && !socket.Close());
  socket.Adopt(QTC::OpenTcpSocket(kHost, server.port(), kTimeout), 1);
  EXPECT_EQ(socket.SendAll(data, 100), 100);
  EXPECT_TRUE(IsBlocking(socket.handle())) << "after an open and a send";
  ::shutdown(socket.handle(), SD_SEND);
  EXPECT_EQ(socket.SendAll(data, 100), -1);
  EXPECT_EQ(base::GetThreadError(), static_cast<std::uint32_t>(WSAESHUTDOWN));
  EXPECT_FALSE(IsBlocking(socket.handle())) << "after a send that failed";
  EXPECT_EQ(socket.Receive(data, 1), -1);
  EXPECT_TRUE(IsBlocking(socket.handle())) << "after a receive that timed out behind it";
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
