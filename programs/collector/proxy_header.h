// The PROXY protocol, by which a balancer tells first of all on a connection whose it is. Versions
// 1 (a line of text) and 2 (binary).
#pragma once

#include <asio/ip/tcp.hpp>
#include <cstddef>
#include <optional>
#include <string_view>

namespace TAVU::collector {

// The least bytes that either header has; reading so many never takes some of what follows.
inline constexpr std::size_t kShortestProxyHeader = 15;
// Of version 1, with its line feed. A header of version 2 may have extensions, which are passed
// over; longer ones than this nobody sends.
inline constexpr std::size_t kLongestProxyLine = 107;
inline constexpr std::size_t kLongestProxyHeader = 2048;

// How many bytes are still to be read, by those that are there (at least kShortestProxyHeader); 0
// when the header is whole, nothing when it is none.
[[nodiscard]] std::optional<std::size_t> MissingOfProxyHeader(std::string_view bytes);

// What a whole header says.
struct ProxyHeader {
  bool valid = false;
  // Nothing when the balancer speaks for itself, or does not know.
  std::optional<asio::ip::tcp::endpoint> source;
};
[[nodiscard]] ProxyHeader ParseProxyHeader(std::string_view bytes);

}  // namespace TAVU::collector
