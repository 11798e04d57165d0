// Answers GET /metrics over HTTP on a port of its own, for Prometheus and the like.
#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <cstddef>
#include <functional>
#include <string>

namespace TAVU::collector {

// Life: Start answers until Stop; destroyed after the io_context has run out of work. Used by the
// one thread that runs the io_context.
class MetricsServer {
 public:
  // `acceptor` listens already; `text` makes what is answered.
  MetricsServer(asio::ip::tcp::acceptor acceptor, std::function<std::string()> text);

  void Start();
  void Stop();

 private:
  class Session;

  void Accept();

  asio::ip::tcp::acceptor acceptor_;
  std::function<std::string()> text_;
  std::size_t sessions_ = 0;
};

}  // namespace TAVU::collector
