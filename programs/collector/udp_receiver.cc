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
constexpr std::string_view kNoMemory = "the memory for datagrams is used up";
constexpr auto kSilenceCheck = 1s;
constexpr auto kReceivePause = 100ms;

// What an assembly takes in the two containers, besides itself.
constexpr std::size_t kNodes = 192;

}  // namespace

UdpReceiver::Assembly::Assembly(const Endpoint& sender, std::size_t max_request,
                                MemoryBudget& budget)
    : peer(sender),
      latest(Clock::now()),
      scanner(max_request),
      chain(std::make_shared<ByteChain>(budget)),
      budget_(budget) {}

UdpReceiver::Assembly::~Assembly() {
  budget_.Return(charged_);
}

bool UdpReceiver::Assembly::ChargeItself() {
  const std::size_t now = sizeof(Assembly) + kNodes + sizeof(ByteChain) + scanner.memory();
  if (now > charged_) {
    if (!budget_.Take(now - charged_)) return false;
    charged_ = now;
  }
  return true;
}

UdpReceiver::UdpReceiver(asio::io_context& context, asio::ip::udp::socket socket, Intake& intake,
                         Metrics& metrics, std::size_t max_request)
    : socket_(std::move(socket)),
      silence_(context),
      retry_(context),
      intake_(intake),
      metrics_(metrics),
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
          if (!std::exchange(receive_fails_, true)) {
            Explain(Topic::kService, "receiving datagrams: " + error.message());
          }
          // Whatever it is, it must not keep the processor busy.
          retry_.expires_after(kReceivePause);
          retry_.async_wait([this](const std::error_code& cancelled) {
            if (!cancelled && !stopping_) Receive();
          });
          return;
        }
        receive_fails_ = false;
        metrics_.udp_bytes += size;
        const Endpoint sender = sender_;
        try {
          TakeDatagram({datagram_.data(), size});
        } catch (const std::bad_alloc&) {
          ExplainPeer(Topic::kNotKept, kUdp, EndpointText(sender),
                      "not enough memory for this datagram");
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
  assemblies_.emplace_back(sender_, max_request_, budget_);
  const auto assembly = std::prev(assemblies_.end());
  if (!MakeRoom(*assembly, [&] { return assembly->ChargeItself(); })) {
    ExplainPeer(Topic::kPressure, kUdp, EndpointText(sender_), kNoMemory);
    assemblies_.erase(assembly);
    return;
  }
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
      if (!Hold(*assembly, datagram)) Refuse(assembly, kNoMemory);
      return;
    case ScanState::kComplete:
      break;
  }
  if (used < datagram.size()) return Refuse(assembly, "bytes after the end of the request");
  if (!Hold(*assembly, datagram)) return Refuse(assembly, kNoMemory);
  const std::shared_ptr<ByteChain> chain = std::move(assembly->chain);
  const std::size_t size = assembly->scanner.size();
  Forget(assembly);
  intake_.Take({chain.get(), size, kUdp, EndpointText(sender_)}, [chain](Outcome) {});
}

bool UdpReceiver::Hold(Assembly& assembly, std::span<const std::byte> bytes) {
  return MakeRoom(assembly, [&] {
    bytes = bytes.subspan(assembly.chain->Append(bytes));
    return bytes.empty() && assembly.ChargeItself();
  });
}

template <typename Take>
bool UdpReceiver::MakeRoom(const Assembly& assembly, Take take) {
  while (!take()) {
    if (&assemblies_.front() == &assembly) return false;
    GiveUp(assemblies_.begin(), kNoMemory);
  }
  return true;
}

void UdpReceiver::Refuse(Assemblies::iterator assembly, std::string_view reason) {
  ++metrics_.bad_requests;
  ExplainPeer(Topic::kBadRequest, kUdp, EndpointText(assembly->peer), reason);
  assembly->chain.reset();
  assembly->scanner = RequestScanner(max_request_);  // without what the refused one held
}

void UdpReceiver::GiveUp(Assemblies::iterator assembly, std::string_view reason) {
  if (assembly->chain) {
    ++metrics_.given_up;
    ExplainPeer(Topic::kUnfinished, kUdp, EndpointText(assembly->peer),
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
