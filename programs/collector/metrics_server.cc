#include "metrics_server.h"

#include <asio/buffer.hpp>
#include <asio/read_until.hpp>
#include <asio/steady_timer.hpp>
#include <asio/write.hpp>
#include <chrono>
#include <memory>
#include <utility>

namespace TAVU::collector {
namespace {

using namespace std::chrono_literals;
using asio::ip::tcp;

// Whoever watches asks now and then; the port must not cost more than that.
constexpr std::size_t kMostSessions = 16;
constexpr std::size_t kLongestQuestion = 8192;
constexpr auto kLongestSession = 5s;

std::string Response(std::string_view status, std::string_view body) {
  return "HTTP/1.1 " + std::string(status) +
         "\r\nContent-Type: text/plain; version=0.0.4; charset=utf-8\r\nContent-Length: " +
         std::to_string(body.size()) + "\r\nConnection: close\r\n\r\n" + std::string(body);
}

}  // namespace

class MetricsServer::Session : public std::enable_shared_from_this<Session> {
 public:
  Session(MetricsServer& server, tcp::socket socket)
      : server_(server), socket_(std::move(socket)), deadline_(socket_.get_executor()) {
    ++server_.sessions_;
  }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;
  ~Session() { --server_.sessions_; }

  void Start() {
    deadline_.expires_after(kLongestSession);
    deadline_.async_wait([this, self = shared_from_this()](const std::error_code& over) {
      if (!over) Close();
    });
    asio::async_read_until(
        socket_, asio::dynamic_buffer(question_, kLongestQuestion), "\r\n\r\n",
        [this, self = shared_from_this()](const std::error_code& error, std::size_t) {
          if (error) return Close();
          Answer();
        });
  }

 private:
  void Answer() {
    const bool known = question_.starts_with("GET /metrics ");
    answer_ = known ? Response("200 OK", server_.text_())
                    : Response("404 Not Found", "only GET /metrics is answered\n");
    asio::async_write(
        socket_, asio::buffer(answer_),
        [this, self = shared_from_this()](const std::error_code&, std::size_t) { Close(); });
  }

  void Close() {
    deadline_.cancel();
    std::error_code ignored;  // the connection is given up in any case
    socket_.shutdown(tcp::socket::shutdown_both, ignored);
    socket_.close(ignored);
  }

  MetricsServer& server_;
  tcp::socket socket_;
  asio::steady_timer deadline_;
  std::string question_;
  std::string answer_;
};

MetricsServer::MetricsServer(tcp::acceptor acceptor, std::function<std::string()> text)
    : acceptor_(std::move(acceptor)), text_(std::move(text)) {}

void MetricsServer::Start() {
  Accept();
}

void MetricsServer::Stop() {
  std::error_code ignored;  // there is nothing to be done about it
  acceptor_.close(ignored);
}

void MetricsServer::Accept() {
  acceptor_.async_accept([this](const std::error_code& error, tcp::socket socket) {
    if (error == std::errc::operation_canceled || !acceptor_.is_open()) return;
    // One too many, and one that failed to come, is just let go.
    if (!error && sessions_ < kMostSessions) {
      std::make_shared<Session>(*this, std::move(socket))->Start();
    }
    Accept();
  });
}

}  // namespace TAVU::collector
