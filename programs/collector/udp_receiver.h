// Receives requests as datagrams. A request longer than one datagram comes as several from the same
// address and port and is put together again; nothing is answered.
#pragma once

#include <array>
#include <asio/io_context.hpp>
#include <asio/ip/udp.hpp>
#include <asio/steady_timer.hpp>
#include <chrono>
#include <cstddef>
#include <list>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "byte_chain.h"
#include "intake.h"
#include "memory_budget.h"
#include "metrics.h"
#include "request_scanner.h"

namespace TAVU::collector {

// Anybody can send datagrams in anybody's name, so everything that they make grow has a bound: the
// bytes of one unfinished request and of all, the peers that are remembered, and for how long.
//
// Life: Start receives until Stop; destroyed after the io_context has run out of work. Used by the
// one thread that runs the io_context.
class UdpReceiver {
 public:
  static constexpr std::size_t kLargestRequest = 16 << 20;
  static constexpr std::size_t kMostBytesHeld = 64 << 20;
  static constexpr std::size_t kMostPeers = 16384;
  static constexpr std::chrono::seconds kLongestSilence{10};  // inside a request

  // Requests are bounded by `max_request` or kLargestRequest, whichever is less.
  UdpReceiver(asio::io_context& context, asio::ip::udp::socket socket, Intake& intake,
              Metrics& metrics, std::size_t max_request);

  void Start();
  void Stop();

  [[nodiscard]] std::size_t memory() const noexcept { return budget_.used(); }

 private:
  using Endpoint = asio::ip::udp::endpoint;
  using Clock = std::chrono::steady_clock;

  // An unfinished request, or the memory of a refused one, whose further datagrams need no further
  // explanation.
  struct Assembly {
    Assembly(const Endpoint& sender, std::size_t max_request, MemoryBudget& budget);
    Assembly(const Assembly&) = delete;
    Assembly& operator=(const Assembly&) = delete;
    ~Assembly();

    // Takes from the budget what the assembly holds besides the chain, if it has grown. False when
    // there is not so much.
    [[nodiscard]] bool ChargeItself();

    const Endpoint peer;
    Clock::time_point latest;
    RequestScanner scanner;
    std::shared_ptr<ByteChain> chain;  // null after a refusal

   private:
    MemoryBudget& budget_;
    std::size_t charged_ = 0;
  };
  using Assemblies = std::list<Assembly>;  // the one that has been silent longest first

  void Receive();
  void TakeDatagram(std::span<const std::byte> datagram);
  void Begin(std::span<const std::byte> datagram);
  void Continue(Assemblies::iterator assembly, std::span<const std::byte> datagram);
  [[nodiscard]] bool Hold(Assembly& assembly, std::span<const std::byte> bytes);
  // Gives up others, the one that has been silent longest first, until `take` has got its memory.
  // False when there is none left but `assembly`.
  template <typename Take>
  [[nodiscard]] bool MakeRoom(const Assembly& assembly, Take take);
  void Refuse(Assemblies::iterator assembly, std::string_view reason);
  void GiveUp(Assemblies::iterator assembly, std::string_view reason);
  void Forget(Assemblies::iterator assembly);
  void WatchSilence();

  asio::ip::udp::socket socket_;
  asio::steady_timer silence_;
  asio::steady_timer retry_;
  Intake& intake_;
  Metrics& metrics_;
  const std::size_t max_request_;
  MemoryBudget budget_{kMostBytesHeld};
  Assemblies assemblies_;
  std::map<Endpoint, Assemblies::iterator> by_peer_;
  Endpoint sender_;
  std::array<std::byte, 65536> datagram_;
  bool receive_fails_ = false;  // as explained already
  bool stopping_ = false;
};

}  // namespace TAVU::collector
