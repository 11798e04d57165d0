// Network addresses as texts.
#pragma once

#include <string>

namespace TAVU::collector {

// ADDRESS:PORT, with an IPv6 address in brackets. For endpoints of TCP and UDP.
template <typename Endpoint>
[[nodiscard]] std::string EndpointText(const Endpoint& endpoint) {
  const std::string address = endpoint.address().to_string();
  const std::string port = std::to_string(endpoint.port());
  return endpoint.address().is_v6() ? '[' + address + "]:" + port : address + ':' + port;
}

}  // namespace TAVU::collector
