#include "tcp_server.h"

#include <array>
#include <asio/buffer.hpp>
#include <asio/write.hpp>
#include <utility>
#include <vector>

#include "byte_chain.h"
#include "endpoint_text.h"
#include "explain.h"
#include "request_scanner.h"

namespace TAVU::collector {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view kTcp = "tcp";

// When accepting fails for want of something, there is no use in trying again at once.
constexpr auto kAcceptPause = 100ms;

// How long a peer may take to close after its last reply. Closing first, with bytes of the peer
// unread, could take the reply away from it.
constexpr auto kLeavingTime = 1000ms;

}  // namespace

// One connection. It keeps itself alive through the operations under way on it; closing the socket
// ends them all.
class TcpServer::Session : public std::enable_shared_from_this<Session> {
 public:
  Session(TcpServer& server, asio::ip::tcp::socket socket, std::string peer)
      : server_(server),
        socket_(std::move(socket)),
        timer_(socket_.get_executor()),
        peer_(std::move(peer)),
        chain_(server.budget_),
        scanner_(server.settings_.max_request) {
    server_.sessions_.insert(this);
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() { server_.sessions_.erase(this); }

  void Start() {
    if (server_.settings_.idle_timeout > 0ms) {
      TellAlive();
      WatchTime();
    }
    Read();
  }

  // Ends the session now, or after the reply to a request that is whole already.
  void Leave() {
    if (state_ == State::kReading) Close();
  }

 private:
  enum class State { kReading, kWorking, kReplying, kLeaving, kClosed };

  void Read() {
    state_ = State::kReading;
    const std::span<std::byte> room = chain_.Room();
    if (room.empty()) return Refuse("the memory for unfinished requests is used up");
    socket_.async_read_some(
        asio::buffer(room.data(), room.size()),
        [this, self = shared_from_this(), room](const std::error_code& error, std::size_t count) {
          if (state_ != State::kReading) return;
          if (error) return EndOfInput(error);
          TellAlive();
          chain_.Commit(count);
          Scan(room.first(count));
        });
  }

  // `bytes` are those of the chain that the scanner has not seen yet.
  void Scan(std::span<const std::byte> bytes) {
    scanner_.Feed(bytes);
    switch (scanner_.state()) {
      case ScanState::kIncomplete:
        return Read();
      case ScanState::kRefused:
        return Refuse(scanner_.reason());
      case ScanState::kComplete:
        state_ = State::kWorking;
        server_.intake_.Take(
            {&chain_, scanner_.size(), kTcp, peer_},
            [this, self = shared_from_this()](Outcome outcome) { Reply(outcome); });
    }
  }

  void Reply(Outcome outcome) {
    if (outcome == Outcome::kRefused || outcome == Outcome::kEnded) return Close();
    state_ = State::kReplying;
    TellAlive();
    const std::string& reply = outcome == Outcome::kKept ? server_.settings_.success_reply
                                                         : server_.settings_.failure_reply;
    asio::async_write(socket_, asio::buffer(reply),
                      [this, self = shared_from_this()](const std::error_code& error, std::size_t) {
                        if (state_ != State::kReplying) return;
                        if (error) return Close();  // gone without waiting; its record is kept
                        ReadNextRequest();
                      });
  }

  void ReadNextRequest() {
    if (server_.stopping_) return WaitForPeerToLeave();
    scanner_ = RequestScanner(server_.settings_.max_request);
    if (chain_.size() == 0) return Read();
    // What came along with the request that is done came in one read, so it lies together.
    state_ = State::kReading;
    Scan(chain_.Front());
  }

  void WaitForPeerToLeave() {
    state_ = State::kLeaving;
    std::error_code ignored;  // a peer that is gone needs no farewell
    socket_.shutdown(asio::ip::tcp::socket::shutdown_send, ignored);
    deadline_ = std::chrono::steady_clock::now() + kLeavingTime;
    WatchTime();
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
    Refuse("the connection ended inside a request, after " + std::to_string(scanner_.size()) +
           " bytes (" + error.message() + ")");
  }

  void TellAlive() {
    deadline_ = std::chrono::steady_clock::now() + server_.settings_.idle_timeout;
  }

  // Looks again when the time that the peer has now is over, which may have moved on until then.
  void WatchTime() {
    timer_.expires_at(deadline_);
    timer_.async_wait([this, self = shared_from_this()](const std::error_code& error) {
      if (error || state_ == State::kClosed) return;
      if (state_ == State::kWorking) TellAlive();  // it waits for us
      if (std::chrono::steady_clock::now() < deadline_) return WatchTime();
      if (state_ == State::kReading && scanner_.size() > 0) {
        return Refuse("idle inside a request, after " + std::to_string(scanner_.size()) + " bytes");
      }
      if (state_ == State::kReplying) return Refuse("does not take its reply");
      Close();
    });
  }

  void Refuse(std::string_view reason) {
    ExplainPeer(kTcp, peer_, reason);
    Close();
  }

  void Close() {
    state_ = State::kClosed;
    timer_.cancel();
    std::error_code ignored;  // the connection is given up in any case
    socket_.close(ignored);
  }

  TcpServer& server_;
  asio::ip::tcp::socket socket_;
  asio::steady_timer timer_;
  std::chrono::steady_clock::time_point deadline_;
  const std::string peer_;
  State state_ = State::kReading;
  ByteChain chain_;
  RequestScanner scanner_;
};

TcpServer::TcpServer(asio::io_context& context, asio::ip::tcp::acceptor acceptor, Intake& intake,
                     MemoryBudget& budget, TcpSettings settings)
    : acceptor_(std::move(acceptor)),
      retry_(context),
      intake_(intake),
      budget_(budget),
      settings_(std::move(settings)) {}

TcpServer::~TcpServer() = default;

void TcpServer::Start() {
  Accept();
}

void TcpServer::Stop() {
  stopping_ = true;
  std::error_code ignored;  // there is nothing to be done about it
  acceptor_.close(ignored);
  retry_.cancel();
  for (Session* session : sessions_) session->Leave();  // they go later, through their operations
}

void TcpServer::Accept() {
  acceptor_.async_accept([this](const std::error_code& error, asio::ip::tcp::socket socket) {
    if (stopping_) return;
    if (error) return RecoverFrom(error);
    failed_accepts_ = 0;
    Accept();  // first, so that whatever becomes of this peer does not keep the next ones out
    std::error_code gone;
    const asio::ip::tcp::endpoint peer = socket.remote_endpoint(gone);
    if (gone) return;  // and reset the connection before it was accepted
    std::make_shared<Session>(*this, std::move(socket), EndpointText(peer))->Start();
  });
}

void TcpServer::RecoverFrom(const std::error_code& error) {
  // One failure may be that of a peer which reset its connection early. More of them in a row are
  // ours: the system has no more descriptors or memory to give.
  ++failed_accepts_;
  if (failed_accepts_ == 1) return Accept();
  if (failed_accepts_ == 2) Explain("connections have to wait: " + error.message());
  retry_.expires_after(kAcceptPause);
  retry_.async_wait([this](const std::error_code& cancelled) {
    if (!cancelled && !stopping_) Accept();
  });
}

}  // namespace TAVU::collector
