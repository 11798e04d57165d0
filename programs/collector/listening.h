// The two sockets that the collector listens on.
#pragma once

#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/ip/udp.hpp>
#include <cstdint>
#include <optional>
#include <string>

namespace TAVU::collector {

struct ListeningSockets {
  asio::ip::tcp::acceptor acceptor;
  asio::ip::udp::socket datagrams;
};

// Both on `port`; for port 0 on a free one that is, if it can be, the same for both. Nothing, with
// an explanation, when a socket cannot be had.
[[nodiscard]] std::optional<ListeningSockets> Listen(asio::io_context& context,
                                                     const std::string& host, std::uint16_t port);

// One for TCP alone, likewise.
[[nodiscard]] std::optional<asio::ip::tcp::acceptor> ListenTcp(asio::io_context& context,
                                                               const std::string& host,
                                                               std::uint16_t port);

}  // namespace TAVU::collector
