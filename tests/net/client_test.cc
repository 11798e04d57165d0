// The client and its sockets against a server that misbehaves: real connections, under Wine.
#include "net/qtc_client.h"

#include <gtest/gtest.h>

#include <numeric>

#include "lumo/memory_reader.h"
#include "lumo/thread_error.h"
#include "net/call_once.h"
#include "net/exchange.h"
#include "net/socket.h"
#include "support/scripted_server.h"
#include "support/threads.h"
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

int Number(ResultCode code) {
  return static_cast<int>(code);
}
std::string HexOf(const Bytes& bytes) {
  return Hex(bytes.data(), bytes.size());
}
Json VectorsOf(const char* file, const char* member) {
  return LoadVectors(file)[member];
}

TEST(Client, SendsRequestsAsTheVectorsHaveThem) {
  ScriptedServer server;
  DatagramServer datagrams;
  const QtcClientPtr client = CreateQtcClient();
  std::size_t calls = 0;
  std::size_t packets = 0;
  for (const Json& c : VectorsOf("framing.json", "requests")) {
    SCOPED_TRACE(c["name"].get<std::string>());
    const auto method = c["method"].get<std::string>();
    const Value argument = ValueOf(c["argument"]);
    const std::string expected = HexOf(BytesOf(c["bytes"]));

    ASSERT_EQ(client->OpenTcp(kHost, server.port(), kTimeout), ResultCode::kSuccess);
    EXPECT_EQ(client->Call(method.c_str(), argument), ResultCode::kSuccess);
    client->Close();
    const std::vector<Bytes> requests = server.WaitForRequests(++calls);
    ASSERT_EQ(requests.size(), calls);
    EXPECT_EQ(HexOf(requests.back()), expected);

    ASSERT_EQ(client->OpenUdp(kHost, datagrams.port(), kTimeout), ResultCode::kSuccess);
    EXPECT_EQ(client->Call(method.c_str(), argument), ResultCode::kSuccess);
    client->Close();
    const std::vector<Bytes> came = datagrams.WaitForDatagrams(packets + c["datagrams"].size());
    Bytes joined;
    Json sizes = Json::array();
    for (; packets < came.size(); ++packets) {
      joined.insert(joined.end(), came[packets].begin(), came[packets].end());
      sizes.push_back(came[packets].size());
    }
    EXPECT_EQ(sizes, c["datagrams"]);
    EXPECT_EQ(HexOf(joined), expected);
  }
}

TEST(Client, UnderstandsRepliesAsTheVectorsHaveThem) {
  ScriptedServer server;
  const QtcClientPtr client = CreateQtcClient();
  for (const Json& c : VectorsOf("replies.json", "replies")) {
    server.Next({Act::kAnswerThenClose, BytesOf(c["bytes"])});
    ASSERT_EQ(client->OpenTcp(kHost, server.port(), kTimeout), ResultCode::kSuccess);
    EXPECT_EQ(Number(client->Call("tavu_server", Value())), c["code"]) << c["name"];
    client->Close();
  }
}

TEST(Client, SaysWhatAServerDidToACall) {
  struct Case {
    const char* what;
    Act act;
    Bytes reply;
    std::uint32_t timeout;
    ResultCode code;
    std::uint32_t thread_error;  // 0: whatever the network said
  };
  const std::uint32_t no_limit = 0xFFFFFFFF;
  const Case cases[] = {
      {"byte by byte", Act::kAnswerByByte, SuccessReply(), kTimeout, ResultCode::kSuccess, 0},
      {"without a limit", Act::kAnswer, SuccessReply(), no_limit, ResultCode::kSuccess, 0},
      {"before the request", Act::kAnswerEarly, SuccessReply(), kTimeout, ResultCode::kSuccess, 0},
      {"fault", Act::kAnswer, FaultReply(), kTimeout, ResultCode::kServerError, 0},
      {"silence", Act::kSilence, {}, kShort, ResultCode::kStreamFault, 258},
      {"half a reply", Act::kAnswerHalf, SuccessReply(), kShort, ResultCode::kStreamFault, 258},
      {"nothing read", Act::kStopReading, {}, kShort, ResultCode::kStreamFault, 258},
      {"close", Act::kClose, {}, kTimeout, ResultCode::kStreamFault, 109},
      {"reset", Act::kReset, {}, kTimeout, ResultCode::kStreamFault, 0},
      {"reset at once", Act::kResetAtOnce, {}, kTimeout, ResultCode::kStreamFault, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    ScriptedServer server({c.act, c.reply});
    const QtcClientPtr client = CreateQtcClient();
    ASSERT_EQ(client->OpenTcp(kHost, server.port(), c.timeout), ResultCode::kSuccess);
    const ULONGLONG begin = ::GetTickCount64();
    EXPECT_EQ(client->Call("tavu_server", Value::Int(1)), c.code);
    if (c.thread_error != 0) EXPECT_EQ(lumo::GetThreadError(), c.thread_error);
    // The tick count is coarse: 16 ms.
    if (c.thread_error == 258) EXPECT_GE(::GetTickCount64() - begin + 16, kShort);
  }
}

TEST(Client, WaitsForAReplyThatKeepsComing) {
  // Each receive is bounded, not the reply as a whole.
  const Bytes reply =
      BytesOf(Json::parse(R"(["cf1000040197720100530190",["repeat","78",400],"7a0000"])"));
  ScriptedServer server({Act::kAnswerByByte, reply});
  const QtcClientPtr client = CreateQtcClient();
  ASSERT_EQ(client->OpenTcp(kHost, server.port(), kShort), ResultCode::kSuccess);
  const ULONGLONG begin = ::GetTickCount64();
  EXPECT_EQ(client->Call("tavu_server", Value()), ResultCode::kSuccess);
  EXPECT_GT(::GetTickCount64() - begin, kShort);
}

TEST(Client, SaysWhyItCouldNotConnect) {
  const RefusingPort refusing;
  const HangingPort hanging;
  ASSERT_TRUE(hanging.Hangs());
  struct Case {
    const char* what;
    const char* host;
    std::uint16_t port;
    std::uint32_t timeout;
    std::uint32_t thread_error;
    ULONGLONG at_least;
  };
  const Case cases[] = {
      {"refused", kHost, refusing.port(), kTimeout, WSAECONNREFUSED, 0},
      {"refused, no limit", kHost, refusing.port(), 0xFFFFFFFF, WSAECONNREFUSED, 0},
      {"hanging", kHost, hanging.port(), kShort, 258, kShort},
      {"hanging, no time at all", kHost, hanging.port(), 0, 258, 0},
      {"no such name", "no-such-host.invalid", refusing.port(), kTimeout, WSAHOST_NOT_FOUND, 0},
      {"no name", nullptr, refusing.port(), kTimeout, WSAHOST_NOT_FOUND, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const QtcClientPtr client = CreateQtcClient();
    lumo::SetThreadError(0);
    const ULONGLONG begin = ::GetTickCount64();
    EXPECT_EQ(client->OpenTcp(c.host, c.port, c.timeout), ResultCode::kConnectFailed);
    EXPECT_EQ(lumo::GetThreadError(), c.thread_error);
    EXPECT_GE(::GetTickCount64() - begin + 16, c.at_least);
    EXPECT_EQ(client->GetSocket(), INVALID_SOCKET);
  }
}

TEST(Client, IsOpenOnlyOnce) {
  ScriptedServer server;
  ScriptedServer other;
  const QtcClientPtr client = CreateQtcClient();
  EXPECT_EQ(client->GetSocket(), INVALID_SOCKET);
  ASSERT_EQ(client->OpenTcp("localhost", server.port(), kTimeout), ResultCode::kSuccess);
  const SOCKET socket = client->GetSocket();
  EXPECT_EQ(client->OpenTcp(kHost, other.port(), kTimeout), ResultCode::kAlreadyOpen);
  EXPECT_EQ(client->OpenUdp(kHost, other.port(), kTimeout), ResultCode::kAlreadyOpen);
  EXPECT_EQ(client->GetSocket(), socket);
  EXPECT_EQ(client->Call("tavu_server", Value()), ResultCode::kSuccess);
  EXPECT_EQ(server.WaitForRequests(1).size(), 1u);

  EXPECT_EQ(client->Close(), ResultCode::kSuccess);
  EXPECT_EQ(client->Close(), ResultCode::kSuccess);
  EXPECT_EQ(client->GetSocket(), INVALID_SOCKET);
  EXPECT_EQ(client->Call("tavu_server", Value()), ResultCode::kStreamFault);  // no reply can come
  EXPECT_EQ(client->OpenTcp(kHost, server.port(), kTimeout), ResultCode::kSuccess);
  EXPECT_TRUE(other.Connections().empty());
}

TEST(Client, EndsAConnectionWithAReset) {
  ScriptedServer server;
  QtcClientPtr client = CreateQtcClient();
  ASSERT_EQ(client->OpenTcp(kHost, server.port(), kTimeout), ResultCode::kSuccess);
  EXPECT_EQ(client->Call("tavu_server", Value()), ResultCode::kSuccess);
  client->Close();
  EXPECT_EQ(server.WaitForEnd(0).end, ConnectionEnd::kReset);
  ASSERT_EQ(client->OpenTcp(kHost, server.port(), kTimeout), ResultCode::kSuccess);
  client.reset();
  EXPECT_EQ(server.WaitForEnd(1).end, ConnectionEnd::kReset);
}

TEST(Client, TakesNoNoticeOfAnAbsentDatagramServer) {
  const RefusingPort nobody;
  const QtcClientPtr client = CreateQtcClient();
  ASSERT_EQ(client->OpenUdp(kHost, nobody.port(), kTimeout), ResultCode::kSuccess);
  EXPECT_EQ(client->Call("tavu_server", Value()), ResultCode::kSuccess);
}

TEST(Client, CarriesALargeBlock) {
  std::vector<std::byte> block(5'000'001);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::byte>(i * 7 / 3);
  ScriptedServer server;
  const QtcClientPtr client = CreateQtcClient();
  ASSERT_EQ(client->OpenTcp(kHost, server.port(), kTimeout), ResultCode::kSuccess);
  EXPECT_EQ(client->Call("tavu_server", Value::BorrowBinary(block)), ResultCode::kSuccess);
  const std::vector<Bytes> requests = server.WaitForRequests(1);
  ASSERT_EQ(requests.size(), 1u);
  lumo::MemoryReader reader(requests[0]);
  QTC::Message request;
  Value argument;
  ASSERT_TRUE(QTC::ReadRequest(reader, request, argument));
  EXPECT_EQ(lumo::Compare(argument, Value::BorrowBinary(block)), 0);
}

TEST(Client, IsHeldByAServerThatStopsReadingUntilTheConnectionEnds) {
  const std::vector<std::byte> block(64 << 20);
  ScriptedServer server({Act::kStopReading});
  Event ended;
  const Thread caller([&] {
    const QtcClientPtr client = CreateQtcClient();
    const bool opened = client->OpenTcp(kHost, server.port(), kShort) == ResultCode::kSuccess;
    const ResultCode code = client->Call("tavu_server", Value::BorrowBinary(block));
    if (opened && code == ResultCode::kStreamFault) ended.Set();
  });
  ASSERT_EQ(server.WaitForConnections(1), 1u);
  EXPECT_FALSE(ended.IsSet());
  server.ResetAll();
  EXPECT_EQ(::WaitForSingleObject(ended.get(), kTimeout), WAIT_OBJECT_0);
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
  const std::byte data[100] = {};
  std::byte out[1];
  EXPECT_EQ(socket.SendAll(data, sizeof data), 0);  // not open
  EXPECT_EQ(socket.Receive(out, 1), -1);
  EXPECT_FALSE(socket.Close());

  socket.Adopt(QTC::OpenTcpSocket(kHost, server.port(), kTimeout), 1);
  ASSERT_TRUE(socket.is_open());
  EXPECT_TRUE(IsBlocking(socket.handle())) << "after the open";
  EXPECT_EQ(socket.SendAll(data, sizeof data), 100);
  EXPECT_TRUE(IsBlocking(socket.handle())) << "after a send";
  EXPECT_EQ(socket.Receive(out, 1), -1);
  EXPECT_EQ(lumo::GetThreadError(), 258u);
  EXPECT_TRUE(IsBlocking(socket.handle())) << "after a receive that timed out";
  ::shutdown(socket.handle(), SD_SEND);
  EXPECT_EQ(socket.SendAll(data, sizeof data), -1);
  EXPECT_EQ(lumo::GetThreadError(), static_cast<std::uint32_t>(WSAESHUTDOWN));
  EXPECT_FALSE(IsBlocking(socket.handle())) << "after a send that failed";
  EXPECT_EQ(socket.Receive(out, 1), -1);
  EXPECT_TRUE(IsBlocking(socket.handle())) << "after a receive that timed out behind it";
  EXPECT_TRUE(socket.Close());
}

TEST(CallOnce, GivesCodeAndText) {
  constexpr char kServerText[] = "QTC_ERROR_SERVER_REPLY: recieved reply, but ERROR.";
  constexpr char kStreamText[] = "QTC_ERROR_STREAM_FAULT: send/recv failed. or broken message.";
  const RefusingPort refusing;
  ScriptedServer good;
  ScriptedServer faulty({Act::kAnswer, FaultReply()});
  ScriptedServer closing({Act::kClose});
  const std::string large(3000, 'x');
  struct Case {
    const char* what;
    std::uint16_t port;
    QTC::Protocol protocol;
    std::string_view argument;
    ResultCode code;
    const char* text;
  };
  const Case cases[] = {
      {"success", good.port(), QTC::Protocol::kTcp, "small", ResultCode::kSuccess, ""},
      {"fault", faulty.port(), QTC::Protocol::kTcp, "small", ResultCode::kServerError, kServerText},
      {"close", closing.port(), QTC::Protocol::kTcp, "small", ResultCode::kStreamFault,
       kStreamText},
      {"UDP", refusing.port(), QTC::Protocol::kUdp, "small", ResultCode::kSuccess, ""},
      // The call is made after a failed open, too, and writes into its buffer.
      {"refused", refusing.port(), QTC::Protocol::kTcp, "small", ResultCode::kSuccess, ""},
      {"refused, more than a buffer", refusing.port(), QTC::Protocol::kTcp, large,
       ResultCode::kStreamFault, kStreamText},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    lumo::BasicString<char> text{std::string_view("left from before")};
    ResultCode code = ResultCode::kReplyTimeout;
    EXPECT_TRUE(QTC::CallOnce({kHost, c.port, kTimeout}, c.protocol, "tavu_server",
                              Value::BorrowString(c.argument), text, code));
    EXPECT_EQ(code, c.code);
    EXPECT_EQ(text.view(), c.text);
  }
}

}  // namespace
}  // namespace TAVU::test
