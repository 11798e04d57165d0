#include "listening.h"

#include <asio/ip/address.hpp>
#include <system_error>
#include <utility>

#include "explain.h"
#include "platform.h"

namespace TAVU::collector {
namespace {

using asio::ip::tcp;
using asio::ip::udp;

// A port that is free for TCP may be taken for UDP; then another one is tried, this often.
constexpr int kPortAttempts = 32;

// Room for datagrams that come while the collector is busy; the system may give less.
constexpr int kDatagramBuffer = 4 << 20;

std::optional<tcp::acceptor> ListenTcp(asio::io_context& context, const tcp::endpoint& endpoint,
                                       std::error_code& error) {
  tcp::acceptor acceptor(context);
  acceptor.open(endpoint.protocol(), error);
  if (error) return std::nullopt;
  if (AddressReuseIsSafe()) acceptor.set_option(tcp::acceptor::reuse_address(true), error);
  if (!error) acceptor.bind(endpoint, error);
  if (!error) acceptor.listen(asio::socket_base::max_listen_connections, error);
  if (error) return std::nullopt;
  return acceptor;
}

std::optional<udp::socket> ListenUdp(asio::io_context& context, const udp::endpoint& endpoint,
                                     std::error_code& error) {
  udp::socket socket(context);
  socket.open(endpoint.protocol(), error);
  if (error) return std::nullopt;
  std::error_code ignored;  // the system's own size does too
  socket.set_option(udp::socket::receive_buffer_size(kDatagramBuffer), ignored);
  socket.bind(endpoint, error);
  if (error) return std::nullopt;
  return socket;
}

std::optional<asio::ip::address> AddressFrom(const std::string& host) {
  std::error_code error;
  const asio::ip::address address = asio::ip::make_address(host, error);
  if (!error) return address;
  Explain(Topic::kService, host + " is no address");
  return std::nullopt;
}

void ExplainFailure(const std::string& host, std::uint16_t port, const std::error_code& error) {
  Explain(Topic::kService,
          "cannot listen on " + host + " port " + std::to_string(port) + ": " + error.message());
}

}  // namespace

std::optional<ListeningSockets> Listen(asio::io_context& context, const std::string& host,
                                       std::uint16_t port) {
  const std::optional<asio::ip::address> address = AddressFrom(host);
  if (!address) return std::nullopt;
  std::error_code error;
  for (int attempt = 0; attempt < kPortAttempts; ++attempt) {
    auto acceptor = ListenTcp(context, tcp::endpoint(*address, port), error);
    if (!acceptor) break;
    const std::uint16_t tcp_port = acceptor->local_endpoint().port();
    auto datagrams = ListenUdp(context, udp::endpoint(*address, tcp_port), error);
    if (datagrams) return ListeningSockets{std::move(*acceptor), std::move(*datagrams)};
    if (port != 0) break;
  }
  ExplainFailure(host, port, error);
  return std::nullopt;
}

std::optional<tcp::acceptor> ListenTcp(asio::io_context& context, const std::string& host,
                                       std::uint16_t port) {
  const std::optional<asio::ip::address> address = AddressFrom(host);
  if (!address) return std::nullopt;
  std::error_code error;
  auto acceptor = ListenTcp(context, tcp::endpoint(*address, port), error);
  if (!acceptor) ExplainFailure(host, port, error);
  return acceptor;
}

}  // namespace TAVU::collector
