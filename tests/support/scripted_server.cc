#include "support/scripted_server.h"

#include <asio.hpp>
#include <chrono>
#include <list>
#include <optional>
#include <span>

namespace TAVU::test {

namespace {

using asio::ip::tcp;
using asio::ip::udp;

template <typename Protocol>
typename Protocol::endpoint Loopback(std::uint16_t port) {
  return {asio::ip::address_v4::loopback(), port};
}

// What scripts are made of. After its last step the server reads on.
enum class Step {
  kReadOn,
  kReadPiece,
  kReadRequest,
  kSend,
  kSendHalf,
  kSendByByte,
  kSendUrgent,
  kShut,
  kLeave,
  kReset
};
using enum Step;

// In the order of Act.
constexpr Step kPlays[][4] = {
    {kReadRequest, kSend},
    {kReadRequest, kSendByByte},
    {kSend},
    {kReadRequest, kSendHalf},
    {kReadRequest},
    {kReadRequest, kShut},
    {kReadRequest, kReset},
    {kReadPiece, kReset},
    {kLeave},
    {kReadPiece, kLeave},
    {kSend, kLeave},
    {kSendUrgent, kReadRequest, kSend},
};

struct Session {
  // Whether all that came so far holds a whole request.
  bool Take(std::size_t count) {
    Bytes& bytes = connection.received;
    bytes.insert(bytes.end(), buffer.data(), buffer.data() + count);
    const auto number = [&](std::size_t at) {
      return std::to_integer<std::size_t>(bytes[at]) << 8 |
             std::to_integer<std::size_t>(bytes[at + 1]);
    };
    if (packet == 0 && bytes.size() >= 4) packet = number(2);
    while (packet != 0 && !connection.complete && bytes.size() >= packet + 2) {
      connection.complete = number(packet) == 0;
      packet += 2 + number(packet);
    }
    return connection.complete;
  }

  tcp::socket socket;
  Script script;
  Connection& connection;
  Bytes buffer = Bytes(64 * 1024);
  std::size_t packet = 0;  // where the next one begins; 0 while the header is not known
  std::size_t step = 0;
};

}  // namespace

Bytes BytesOfText(std::string_view text) {
  const auto bytes = std::as_bytes(std::span(text));
  return {bytes.begin(), bytes.end()};
}
Bytes SuccessReply() {
  return BytesOfText({"\xCF\x10\0\4\0\5r\1\0Nz\0\0", 13});
}
Bytes FaultReply() {
  return BytesOfText({"\xCF\x10\0\4\0\7r\1\0\x66zNz\0\0", 15});
}

// All of it runs on its one thread.
class ScriptedServer::Impl {
 public:
  explicit Impl(ScriptedServer& shared) : shared_(shared) {
    asio::error_code taken;
    do {  // until the system's choice is free for datagrams too
      acceptor_ = tcp::acceptor(io_, Loopback<tcp>(0));
      shared_.port_ = acceptor_.local_endpoint().port();
      datagrams_ = udp::socket(io_, udp::v4());
      datagrams_.set_option(asio::socket_base::receive_buffer_size(8 << 20));  // nothing is lost
      datagrams_.bind(Loopback<udp>(shared_.port_), taken);
    } while (taken);
    Accept();
    ReceiveDatagram();
    thread_.emplace([this] { io_.run(); });
  }
  ~Impl() {
    io_.stop();
    thread_.reset();
  }

  void ResetAll() {
    asio::post(io_, [this] {
      for (Session& session : sessions_) Finish(session, ConnectionEnd::kReset);
    });
  }

 private:
  void Accept() {
    acceptor_.async_accept([this](asio::error_code error, tcp::socket socket) {
      if (error) return Accept();
      socket.set_option(asio::socket_base::linger(true, 0));  // every close is a reset
      socket.set_option(tcp::no_delay(true));
      Play(shared_.monitor_.Do([&]() -> Session& {
        std::deque<Script>& next = shared_.next_;
        Script script = next.empty() ? shared_.script_ : std::move(next.front());
        if (!next.empty()) next.pop_front();
        return sessions_.emplace_back(
            Session{std::move(socket), std::move(script), shared_.connections_.emplace_back()});
      }));
      Accept();
    });
  }

  // Goes on with the script, up to the next wait.
  void Play(Session& session) {
    const auto& [act, reply] = session.script;
    if (act == Act::kStopReading) return;
    asio::error_code ignored;  // a client that is gone shows when the server reads
    const auto send = [&, &bytes = reply](std::size_t begin, std::size_t end) {
      asio::write(session.socket, asio::buffer(&bytes[begin], end - begin), ignored);
    };
    for (;;) {
      const Step step = kPlays[static_cast<std::size_t>(act)][session.step];
      if (step == kReadOn || step == kReadPiece || step == kReadRequest) return Read(session, step);
      ++session.step;
      if (step == kLeave) session.socket.set_option(asio::socket_base::linger(false, 0), ignored);
      if (step == kReset || step == kLeave) return Finish(session, ConnectionEnd::kReset);
      if (step == kSendUrgent) {
        session.socket.send(asio::buffer("!", 1), tcp::socket::message_out_of_band, ignored);
      }
      if (step == kShut) session.socket.shutdown(tcp::socket::shutdown_send, ignored);
      if (step == kSend && !reply.empty()) send(0, reply.size());
      if (step == kSendHalf) send(0, reply.size() / 2);
      for (std::size_t i = 0; step == kSendByByte && i < reply.size(); ++i) {
        send(i, i + 1);
        ::Sleep(1);  // or the system would hand several over in one receive
      }
    }
  }

  void Read(Session& session, Step until) {
    const std::size_t most = until == kReadPiece ? 1000 : session.buffer.size();
    session.socket.async_read_some(asio::buffer(session.buffer, most),
                                   [=, this, &session](asio::error_code error, std::size_t n) {
                                     if (error) return Finish(session, HowItEnded(session, error));
                                     const bool before = session.connection.complete;
                                     const bool complete = shared_.monitor_.Do([&] {
                                       if (session.Take(n) && !before) {
                                         shared_.requests_.push_back(session.connection.received);
                                       }
                                       return session.connection.complete;
                                     });
                                     if (until == kReadOn || (until == kReadRequest && !complete))
                                       return Read(session, until);
                                     ++session.step;
                                     Play(session);
                                   });
  }

  // Under Wine a reset reads as an orderly end when Wine's own server saw it first. A byte sent
  // tells the two apart: a connection that was reset takes none.
  static ConnectionEnd HowItEnded(Session& session, asio::error_code error) {
    if (error == asio::error::eof) asio::write(session.socket, asio::buffer("?", 1), error);
    return error ? ConnectionEnd::kReset : ConnectionEnd::kOrderly;
  }

  void Finish(Session& session, ConnectionEnd end) {
    asio::error_code ignored;
    session.socket.close(ignored);
    shared_.monitor_.Do([&] {
      if (session.connection.end == ConnectionEnd::kOpen) session.connection.end = end;
    });
  }

  void ReceiveDatagram() {
    datagrams_.async_receive(
        asio::buffer(datagram_), [this](asio::error_code error, std::size_t n) {
          const auto* data = datagram_.data();
          if (!error) shared_.monitor_.Do([&] { shared_.datagrams_.emplace_back(data, data + n); });
          ReceiveDatagram();
        });
  }

  asio::io_context io_{1};
  tcp::acceptor acceptor_{io_};
  udp::socket datagrams_{io_};
  Bytes datagram_ = Bytes(65'536);
  ScriptedServer& shared_;
  std::deque<Session> sessions_;  // never move
  std::optional<Thread> thread_;
};

ScriptedServer::ScriptedServer(Script script)
    : script_(std::move(script)), impl_(std::make_unique<Impl>(*this)) {}
ScriptedServer::~ScriptedServer() = default;
void ScriptedServer::ResetAll() {
  impl_->ResetAll();
}

RefusingPort::RefusingPort() {
  static asio::io_context io;
  const auto socket = std::make_shared<tcp::socket>(io, Loopback<tcp>(0));
  kept_ = socket;
  port_ = socket->local_endpoint().port();
}

HangingPort::HangingPort() {
  struct Sockets {
    asio::io_context io{1};
    tcp::acceptor acceptor{io};
    std::list<tcp::socket> waiting;
  };
  const auto sockets = std::make_shared<Sockets>();
  kept_ = sockets;
  sockets->acceptor.open(tcp::v4());
  sockets->acceptor.bind(Loopback<tcp>(0));
  sockets->acceptor.listen(1);
  port_ = sockets->acceptor.local_endpoint().port();
  // More than the queue takes: the last ones stay without an end.
  for (hanging_ = 16; sockets->waiting.size() < 16;) {
    sockets->waiting.emplace_back(sockets->io)
        .async_connect(Loopback<tcp>(port_), [this](asio::error_code) { --hanging_; });
  }
  sockets->io.run_for(std::chrono::milliseconds(200));
}

}  // namespace TAVU::test
