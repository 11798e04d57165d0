// Where a server is.
#pragma once

#include <cstdint>

namespace TAVU::QTC {

struct Endpoint {
  const char* host;  // narrow, zero-terminated; not owned
  std::uint16_t port;
  std::uint32_t timeout_ms;  // to connect, and then for each piece of a reply
};

}  // namespace TAVU::QTC
