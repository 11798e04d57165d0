#include "udp_receiver.h"

#include <algorithm>
#include <asio/buffer.hpp>
#include <utility>

#include "endpoint_text.h"
#include "explain.h"

namespace TAVU::collector {
namespace {

using namespace std::chrono_literals;

constexpr std::string_view kUdp = "udp";
constexpr auto kSilenceCheck = 1s;
constexpr auto kReceivePause = 100ms;

}  // namespace

UdpReceiver::UdpReceiver(asio::io_context& context, asio::ip::udp::socket socket, Intake& intake,
                         std::size_t max_request)
    : socket_(std::move(socket)),
      silence_(context),
      retry_(context),
      intake_(intake),
      max_request_(std::min(max_request, kLargestRequest)) {}

void UdpReceiver::Start() {
  Receive();
  WatchSilence();
}

void UdpReceiver::Stop() {
  stopping_ = true;
  std::error_code ignored;  // there is nothing to be done about it
  socket_.close(ignored);
  silence_.cancel();
  retry_.cancel();
}

void UdpReceiver::Receive() {
  socket_.async_receive_from(
      asio::buffer(datagram_), sender_, [this](const std::error_code& error, std::size_t size) {
        if (stopping_) return;
        if (error) {
          if (!std::exchange(receive_fails_, true))
            Explain("receiving datagrams: " + error.message());
          // Whatever it is, it must not keep the processor busy.
          retry_.expires_after(kReceivePause);
          retry_.async_wait([this](const std::error_code& cancelled) {
            if (!cancelled && !stopping_) Receive();
          });
          return;
        }
        receive_fails_ = false;
        const Endpoint sender = sender_;
        try {
          TakeDatagram({datagram_.data(), size});
        } catch (const std::bad_alloc&) {
          ExplainPeer(kUdp, EndpointText(sender), "not enough memory for this datagram");
        }
        if (!stopping_) Receive();
      });
}

void UdpReceiver::TakeDatagram(std::span<const std::byte> datagram) {
  if (datagram.empty()) return;
  const auto known = by_peer_.find(sender_);
  if (known == by_peer_.end()) return Begin(datagram);
  const Assemblies::iterator assembly = known->second;
  // A library's client takes a new port for each record, so whoever begins anew has given up what
  // went before.
  if (BeginsRequest(datagram)) {
    GiveUp(assembly, "another one begins");
    return Begin(datagram);
  }
  Continue(assembly, datagram);
}

void UdpReceiver::Begin(std::span<const std::byte> datagram) {
  if (assemblies_.size() == kMostPeers) GiveUp(assemblies_.begin(), "too many peers at once");
  assemblies_.push_back(
      {sender_, Clock::now(), RequestScanner(max_request_), std::make_shared<ByteChain>(budget_)});
  const auto assembly = std::prev(assemblies_.end());
  by_peer_.emplace(sender_, assembly);
  Continue(assembly, datagram);
}

void UdpReceiver::Continue(Assemblies::iterator assembly, std::span<const std::byte> datagram) {
  if (!assembly->chain) return;
  assembly->latest = Clock::now();
  assemblies_.splice(assemblies_.end(), assemblies_, assembly);
  const std::size_t used = assembly->scanner.Feed(datagram);
  switch (assembly->scanner.state()) {
    case ScanState::kRefused:
      return Refuse(assembly, assembly->scanner.reason());
    case ScanState::kIncomplete:
      if (!Hold(*assembly, datagram)) Refuse(assembly, "the memory for datagrams is used up");
      return;
    case ScanState::kComplete:
      break;
  }
  if (used < datagram.size()) return Refuse(assembly, "bytes behind the end of the request");
  if (!Hold(*assembly, datagram)) return Refuse(assembly, "the memory for datagrams is used up");
  const std::shared_ptr<ByteChain> chain = std::move(assembly->chain);
  const std::size_t size = assembly->scanner.size();
  Forget(assembly);
  intake_.Take({chain.get(), size, kUdp, EndpointText(sender_)}, [chain](Outcome) {});
}

bool UdpReceiver::Hold(Assembly& assembly, std::span<const std::byte> bytes) {
  for (;;) {
    bytes = bytes.subspan(assembly.chain->Append(bytes));
    if (bytes.empty()) return true;
    if (&assemblies_.front() == &assembly) return false;
    GiveUp(assemblies_.begin(), "the memory for datagrams is used up");
  }
}

void UdpReceiver::Refuse(Assemblies::iterator assembly, std::string_view reason) {
  ExplainPeer(kUdp, EndpointText(assembly->peer), reason);
  assembly->chain.reset();
}

void UdpReceiver::GiveUp(Assemblies::iterator assembly, std::string_view reason) {
  if (assembly->chain) {
    ExplainPeer(kUdp, EndpointText(assembly->peer),
                "a request given up after " + std::to_string(assembly->scanner.size()) +
                    " bytes: " + std::string(reason));
  }
  Forget(assembly);
}

void UdpReceiver::Forget(Assemblies::iterator assembly) {
  by_peer_.erase(assembly->peer);
  assemblies_.erase(assembly);
}

void UdpReceiver::WatchSilence() {
  silence_.expires_after(kSilenceCheck);
  silence_.async_wait([this](const std::error_code& cancelled) {
    if (cancelled) return;
    const Clock::time_point oldest = Clock::now() - kLongestSilence;
    while (!assemblies_.empty() && assemblies_.front().latest < oldest) {
      GiveUp(assemblies_.begin(), "no more datagrams came");
    }
    WatchSilence();
  });
}

}  // namespace TAVU::collector
