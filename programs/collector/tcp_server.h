// Serves peers over TCP: each sends a request, gets its reply, and may send further ones.
#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <memory>
#include <string>
#include <unordered_set>

#include "intake.h"
#include "memory_budget.h"

namespace TAVU::collector {

struct TcpSettings {
  std::size_t max_request;                 // bytes
  std::chrono::milliseconds idle_timeout;  // zero: peers may take all the time they want
  std::string success_reply;               // the bytes of whole replies
  std::string failure_reply;               // for a request that could not be kept
};

// Life: Start accepts peers until Stop, which lets those go that have a whole request under way as
// soon as they have their reply, and all others at once; destroyed after the io_context has run out
// of work. Used by the one thread that runs the io_context.
class TcpServer {
 public:
  // `acceptor` listens already.
  TcpServer(asio::io_context& context, asio::ip::tcp::acceptor acceptor, Intake& intake,
            MemoryBudget& budget, TcpSettings settings);
  ~TcpServer();

  void Start();
  void Stop();

 private:
  class Session;

  void Accept();
  void RecoverFrom(const std::error_code& error);

  asio::ip::tcp::acceptor acceptor_;
  asio::steady_timer retry_;
  Intake& intake_;
  MemoryBudget& budget_;
  const TcpSettings settings_;
  std::unordered_set<Session*> sessions_;  // each removes itself
  bool stopping_ = false;
  std::size_t failed_accepts_ = 0;  // in a row
};

}  // namespace TAVU::collector
