// Serves peers over TCP: each sends a request, gets its reply, and may send further ones.
#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_set>

#include "intake.h"
#include "memory_budget.h"
#include "metrics.h"
#include "peer_shares.h"

namespace TAVU::collector {

struct TcpSettings {
  std::size_t max_request;                 // bytes
  std::chrono::milliseconds idle_timeout;  // zero: peers may be silent as long as they want
  std::chrono::milliseconds request_time;  // in which a request comes, or faster than...
  std::size_t least_rate;                  // ... so many bytes a second; zero: as slow as they want
  std::size_t most_connections;            // of all peers
  std::size_t most_connections_of_address;  // of one
  std::size_t most_memory_of_address;       // bytes of unfinished requests
  std::set<asio::ip::address> balancers;    // whose connections begin with a PROXY header
  std::string success_reply;                // the bytes of whole replies
  std::string failure_reply;                // for a request that could not be kept
  std::string unacknowledged_reply;         // for one that perhaps was
};

// No peer keeps the others out. One that sends nothing, or a request too slowly, is let go. When a
// peer needs what is used up, connections or memory, of its address or of all, then the one that
// has been waited for longest goes, with a line.
//
// Life: Start accepts peers until Stop, which lets those go that have a whole request under way as
// soon as they have their reply, and all others at once; destroyed after the io_context has run out
// of work. Used by the one thread that runs the io_context.
class TcpServer {
 public:
  // `acceptor` listens already; `budget` is for the unfinished requests of all peers.
  TcpServer(asio::io_context& context, asio::ip::tcp::acceptor acceptor, Intake& intake,
            MemoryBudget& budget, Metrics& metrics, TcpSettings settings);
  ~TcpServer();

  void Start();
  void Stop();

  [[nodiscard]] std::size_t connections() const noexcept { return connections_; }

 private:
  class Session;
  using Clock = std::chrono::steady_clock;

  void Accept();
  void Greet(asio::ip::tcp::socket socket);
  void Admit(asio::ip::tcp::socket socket, const asio::ip::tcp::endpoint& peer);
  void RecoverFrom(const std::error_code& error);
  void WatchTime();
  // Lets the session go that has been waited for longest, of those with that share if one is given.
  // False when that is `asking`, or there is none.
  [[nodiscard]] bool GiveUpOldest(const PeerShare* share, const Session* asking,
                                  std::string_view reason);

  asio::ip::tcp::acceptor acceptor_;
  asio::steady_timer retry_;
  asio::steady_timer clock_;
  Intake& intake_;
  Metrics& metrics_;
  const TcpSettings settings_;
  PeerShares shares_;
  std::unordered_set<Session*> sessions_;  // each removes itself
  std::list<Session*> waiting_;            // for bytes of a request, the longest time first
  std::size_t connections_ = 0;            // open
  bool stopping_ = false;
  std::size_t failed_accepts_ = 0;  // in a row
};

}  // namespace TAVU::collector
