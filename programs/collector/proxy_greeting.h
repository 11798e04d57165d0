// Reads what a balancer says of a connection before anything else comes on it.
#pragma once

#include <asio/ip/tcp.hpp>
#include <functional>
#include <optional>

namespace TAVU::collector {

// `done` gets the socket, from which the header has been read and nothing else, and the peer that
// the header names, if it names one. When no header comes in time, or something else does, that is
// explained and the connection ended, and `done` is never called.
void ReadProxyGreeting(
    asio::ip::tcp::socket socket, const asio::ip::tcp::endpoint& balancer,
    std::function<void(asio::ip::tcp::socket, std::optional<asio::ip::tcp::endpoint>)> done);

}  // namespace TAVU::collector
