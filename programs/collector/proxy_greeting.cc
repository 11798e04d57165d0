#include "proxy_greeting.h"

#include <asio/buffer.hpp>
#include <asio/read.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <memory>
#include <string>
#include <utility>

#include "endpoint_text.h"
#include "explain.h"
#include "proxy_header.h"

namespace TAVU::collector {
namespace {

using namespace std::chrono_literals;
using asio::ip::tcp;
using Done = std::function<void(tcp::socket, std::optional<tcp::endpoint>)>;

// Balancers send the header at once.
constexpr auto kGreetingTime = 5s;

class Greeting : public std::enable_shared_from_this<Greeting> {
 public:
  Greeting(tcp::socket socket, const tcp::endpoint& balancer, Done done)
      : socket_(std::move(socket)),
        deadline_(socket_.get_executor()),
        balancer_(EndpointText(balancer)),
        done_(std::move(done)) {}

  void Start() {
    deadline_.expires_after(kGreetingTime);
    deadline_.async_wait([this, self = shared_from_this()](const std::error_code& cancelled) {
      if (!cancelled) Close();
    });
    Read(kShortestProxyHeader);
  }

 private:
  void Read(std::size_t count) {
    const std::size_t size = header_.size();
    header_.resize(size + count);
    asio::async_read(
        socket_, asio::buffer(header_.data() + size, count),
        [this, self = shared_from_this()](const std::error_code& error, std::size_t) {
          if (error) return End();  // a balancer that only looks whether we are there says nothing
          const std::optional<std::size_t> missing = MissingOfProxyHeader(header_);
          if (!missing) return Refuse();
          if (*missing > 0) return Read(*missing);
          const ProxyHeader header = ParseProxyHeader(header_);
          if (!header.valid) return Refuse();
          deadline_.cancel();
          done_(std::move(socket_), header.source);
        });
  }

  void Refuse() {
    ExplainPeer(Topic::kBadRequest, "tcp", balancer_, "no PROXY header, as --proxy wants");
    End();
  }
  void End() {
    deadline_.cancel();
    Close();
  }
  void Close() {
    std::error_code ignored;  // the connection is given up in any case
    socket_.close(ignored);
  }

  tcp::socket socket_;
  asio::steady_timer deadline_;
  std::string balancer_;
  Done done_;
  std::string header_;
};

}  // namespace

void ReadProxyGreeting(tcp::socket socket, const tcp::endpoint& balancer, Done done) {
  std::make_shared<Greeting>(std::move(socket), balancer, std::move(done))->Start();
}

}  // namespace TAVU::collector
