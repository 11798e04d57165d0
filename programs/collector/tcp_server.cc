#include "tcp_server.h"

#include <algorithm>
#include <array>
#include <asio/buffer.hpp>
#include <asio/post.hpp>
#include <asio/write.hpp>
#include <utility>

#include "byte_chain.h"
#include "endpoint_text.h"
#include "explain.h"
#include "proxy_greeting.h"
#include "request_scanner.h"

namespace TAVU::collector {
namespace {

using namespace std::chrono_literals;
using asio::ip::tcp;

constexpr std::string_view kTcp = "tcp";

// When accepting fails for want of something, there is no use in trying again at once.
constexpr auto kAcceptPause = 100ms;

// How often the time of all peers is looked at.
constexpr auto kTick = 500ms;

// How long a peer may take to close after its last reply. Closing first, with bytes of the peer
// unread, could take the reply away from it.
constexpr auto kLeavingTime = 1000ms;

}  // namespace

// One connection. It keeps itself alive through the operations under way on it; closing the socket
// ends them all.
class TcpServer::Session : public std::enable_shared_from_this<Session> {
 public:
  Session(TcpServer& server, tcp::socket socket, std::string peer, std::shared_ptr<PeerShare> share)
      : server_(server),
        socket_(std::move(socket)),
        peer_(std::move(peer)),
        share_(std::move(share)),
        chain_(share_->memory),
        scanner_(server.settings_.max_request) {
    server_.sessions_.insert(this);
    ++share_->connections;
    ++server_.connections_;
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() {
    StopCounting();
    server_.sessions_.erase(this);
    if (server_.stopping_ && server_.sessions_.empty()) server_.clock_.cancel();
  }

  void Start() {
    alive_ = Clock::now();
    Read();
  }

  // Ends the session now, or after the reply to a request that is whole already.
  void Leave() {
    if (state_ == State::kReading) Close();
  }

  void MakeRoom(std::string_view reason) {
    const std::string begun = scanner_.size() == 0
                                  ? ", idle"
                                  : ", " + std::to_string(scanner_.size()) + " bytes of a request";
    ++server_.metrics_.given_up;
    ExplainPeer(Topic::kPressure, kTcp, peer_,
                "given up to make room" + begun + ": " + std::string(reason));
    Close();
  }

  // Looks whether the peer has taken more time than it has.
  void CheckTime(Clock::time_point now) {
    const auto idle_timeout = server_.settings_.idle_timeout;
    const bool idle = idle_timeout > Clock::duration::zero() && now > alive_ + idle_timeout;
    switch (state_) {
      case State::kReading:
        if (scanner_.size() == 0) return idle ? Close() : void();
        if (idle) return GiveUp("idle inside a request");
        if (now > RequestDeadline()) return GiveUp("too slow with a request");
        return;
      case State::kReplying:
        if (idle) Refuse(Topic::kUnfinished, "does not take its reply");
        return;
      case State::kLeaving:
        if (now > alive_ + kLeavingTime) Close();
        return;
      case State::kWorking:  // it waits for us
      case State::kClosed:
        return;
    }
  }

  [[nodiscard]] const PeerShare* share() const noexcept { return share_.get(); }

 private:
  enum class State { kReading, kWorking, kReplying, kLeaving, kClosed };

  void Read() {
    state_ = State::kReading;
    if (!waiting_) waiting_ = server_.waiting_.insert(server_.waiting_.end(), this);
    const std::span<std::byte> room = chain_.Room();
    if (room.empty()) return WaitForRoom();
    socket_.async_read_some(
        asio::buffer(room.data(), room.size()),
        [this, self = shared_from_this(), room](const std::error_code& error, std::size_t count) {
          if (state_ != State::kReading) return;
          if (error) return EndOfInput(error);
          alive_ = Clock::now();
          if (scanner_.size() == 0) begun_ = alive_;
          server_.metrics_.tcp_bytes += count;
          chain_.Commit(count);
          Scan(room.first(count));
        });
  }

  void WaitForRoom() {
    const bool own = !share_->memory.HasRoomFor(chain_.NextBlock());
    const std::string_view reason =
        own ? "the memory for unfinished requests of its address is used up"
            : "the memory for unfinished requests is used up";
    if (!server_.GiveUpOldest(own ? share_.get() : nullptr, this, reason)) {
      ++server_.metrics_.given_up;
      return Refuse(Topic::kPressure, reason);
    }
    // The memory of the one that has gone is free as soon as its operations have ended.
    asio::post(socket_.get_executor(), [this, self = shared_from_this()] {
      if (state_ == State::kReading) Read();
    });
  }

  // `bytes` are those of the chain that the scanner has not seen yet.
  void Scan(std::span<const std::byte> bytes) {
    scanner_.Feed(bytes);
    switch (scanner_.state()) {
      case ScanState::kIncomplete:
        return Read();
      case ScanState::kRefused:
        ++server_.metrics_.bad_requests;
        return Refuse(Topic::kBadRequest, scanner_.reason());
      case ScanState::kComplete:
        state_ = State::kWorking;
        StopWaiting();
        server_.intake_.Take(
            {&chain_, scanner_.size(), kTcp, peer_},
            [this, self = shared_from_this()](Outcome outcome) { Reply(outcome); });
    }
  }

  void Reply(Outcome outcome) {
    if (outcome == Outcome::kRefused || outcome == Outcome::kEnded) return Close();
    state_ = State::kReplying;
    alive_ = Clock::now();
    asio::async_write(socket_, asio::buffer(ReplyTo(outcome)),
                      [this, self = shared_from_this()](const std::error_code& error, std::size_t) {
                        if (state_ != State::kReplying) return;
                        if (error) return Close();  // gone without waiting; its record is kept
                        ReadNextRequest();
                      });
  }

  [[nodiscard]] const std::string& ReplyTo(Outcome outcome) const {
    const TcpSettings& settings = server_.settings_;
    if (outcome == Outcome::kKept) return settings.success_reply;
    return outcome == Outcome::kUnacknowledged ? settings.unacknowledged_reply
                                               : settings.failure_reply;
  }

  void ReadNextRequest() {
    if (server_.stopping_) return WaitForPeerToLeave();
    scanner_ = RequestScanner(server_.settings_.max_request);
    if (chain_.size() == 0) return Read();
    // What came along with the request that is done came in one read, so it lies together.
    state_ = State::kReading;
    begun_ = alive_;
    Scan(chain_.Front());
  }

  void WaitForPeerToLeave() {
    state_ = State::kLeaving;
    std::error_code ignored;  // a peer that is gone needs no farewell
    socket_.shutdown(tcp::socket::shutdown_send, ignored);
    alive_ = Clock::now();
    Discard();
  }

  void Discard() {
    static std::array<std::byte, 4096> discarded;  // nobody looks at what all sessions put there
    socket_.async_read_some(
        asio::buffer(discarded),
        [this, self = shared_from_this()](const std::error_code& error, std::size_t) {
          if (error || state_ != State::kLeaving) return Close();
          Discard();
        });
  }

  // Peers end a connection with a reset as well as in order, which is nothing to speak of unless it
  // happens inside a request.
  void EndOfInput(const std::error_code& error) {
    if (scanner_.size() == 0) return Close();
    ++server_.metrics_.given_up;
    Refuse(Topic::kUnfinished, "the connection ended inside a request, after " +
                                   std::to_string(scanner_.size()) + " bytes (" + error.message() +
                                   ")");
  }

  // A request has a time, and more of it the more it has sent.
  [[nodiscard]] Clock::time_point RequestDeadline() const {
    const std::size_t rate = server_.settings_.least_rate;
    if (rate == 0) return Clock::time_point::max();
    return begun_ + server_.settings_.request_time + std::chrono::seconds(scanner_.size() / rate);
  }

  void GiveUp(const std::string& reason) {
    ++server_.metrics_.given_up;
    Refuse(Topic::kUnfinished, reason + ", after " + std::to_string(scanner_.size()) + " bytes");
  }

  void Refuse(Topic topic, std::string_view reason) {
    ExplainPeer(topic, kTcp, peer_, reason);
    Close();
  }

  void Close() {
    state_ = State::kClosed;
    StopCounting();
    std::error_code ignored;  // the connection is given up in any case
    socket_.close(ignored);
  }

  // From now on it takes nobody's place, though its last operations may still be under way.
  void StopCounting() {
    StopWaiting();
    if (!std::exchange(counted_, false)) return;
    --share_->connections;
    --server_.connections_;
  }

  void StopWaiting() {
    if (waiting_) server_.waiting_.erase(*waiting_);
    waiting_.reset();
  }

  TcpServer& server_;
  tcp::socket socket_;
  Clock::time_point alive_;  // when the peer last did something
  Clock::time_point begun_;  // when the request's first bytes came
  const std::string peer_;
  State state_ = State::kReading;
  bool counted_ = true;
  const std::shared_ptr<PeerShare> share_;
  ByteChain chain_;
  RequestScanner scanner_;
  std::optional<std::list<Session*>::iterator> waiting_;  // where it stands in the server's list
};

TcpServer::TcpServer(asio::io_context& context, tcp::acceptor acceptor, Intake& intake,
                     MemoryBudget& budget, Metrics& metrics, TcpSettings settings)
    : acceptor_(std::move(acceptor)),
      retry_(context),
      clock_(context),
      intake_(intake),
      metrics_(metrics),
      settings_(std::move(settings)),
      shares_(settings_.most_memory_of_address, budget) {}

TcpServer::~TcpServer() = default;

void TcpServer::Start() {
  Accept();
  WatchTime();
}

void TcpServer::Stop() {
  stopping_ = true;
  std::error_code ignored;  // there is nothing to be done about it
  acceptor_.close(ignored);
  retry_.cancel();
  if (sessions_.empty()) clock_.cancel();
  for (Session* session : sessions_) session->Leave();  // they go later, through their operations
}

void TcpServer::Accept() {
  acceptor_.async_accept([this](const std::error_code& error, tcp::socket socket) {
    if (stopping_) return;
    if (error) return RecoverFrom(error);
    failed_accepts_ = 0;
    ++metrics_.accepted;
    Accept();  // first, so that whatever becomes of this peer does not keep the next ones out
    Greet(std::move(socket));
  });
}

void TcpServer::Greet(tcp::socket socket) {
  std::error_code gone;
  const tcp::endpoint peer = socket.remote_endpoint(gone);
  if (gone) return;  // and reset the connection before it was accepted
  if (!settings_.balancers.contains(peer.address())) return Admit(std::move(socket), peer);
  ReadProxyGreeting(std::move(socket), peer,
                    [this, peer](tcp::socket greeted, std::optional<tcp::endpoint> source) {
                      if (!stopping_) Admit(std::move(greeted), source.value_or(peer));
                    });
}

void TcpServer::Admit(tcp::socket socket, const tcp::endpoint& peer) {
  const std::shared_ptr<PeerShare> share = shares_.Of(peer.address());
  const bool own = share->connections >= settings_.most_connections_of_address;
  const bool all = connections_ >= settings_.most_connections;
  const std::string_view reason =
      own ? "its address has too many connections" : "there are too many connections";
  if ((own || all) && !GiveUpOldest(own ? share.get() : nullptr, nullptr, reason)) {
    return ExplainPeer(Topic::kPressure, kTcp, EndpointText(peer), reason);
  }
  std::make_shared<Session>(*this, std::move(socket), EndpointText(peer), share)->Start();
}

bool TcpServer::GiveUpOldest(const PeerShare* share, const Session* asking,
                             std::string_view reason) {
  const auto oldest = std::find_if(waiting_.begin(), waiting_.end(), [share](Session* session) {
    return share == nullptr || session->share() == share;
  });
  if (oldest == waiting_.end() || *oldest == asking) return false;
  (*oldest)->MakeRoom(reason);
  return true;
}

void TcpServer::RecoverFrom(const std::error_code& error) {
  // One failure may be that of a peer which reset its connection early. More of them in a row are
  // ours: the system has no more descriptors or memory to give.
  ++failed_accepts_;
  if (failed_accepts_ == 1) return Accept();
  if (failed_accepts_ == 2) {
    Explain(Topic::kConnections, "connections have to wait: " + error.message());
  }
  static_cast<void>(GiveUpOldest(nullptr, nullptr, error.message()));
  retry_.expires_after(kAcceptPause);
  retry_.async_wait([this](const std::error_code& cancelled) {
    if (!cancelled && !stopping_) Accept();
  });
}

void TcpServer::WatchTime() {
  clock_.expires_after(kTick);
  clock_.async_wait([this](const std::error_code& cancelled) {
    if (cancelled) return;
    const Clock::time_point now = Clock::now();
    for (Session* session : sessions_) session->CheckTime(now);
    ExplainLeftOut();
    if (!stopping_ || !sessions_.empty()) WatchTime();
  });
}

}  // namespace TAVU::collector
