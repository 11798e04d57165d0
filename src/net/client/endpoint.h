// Where a server is, and how it is spoken to.
#pragma once

#include <cstdint>

namespace TAVU::QTC {

enum class Protocol : std::uint8_t { kUdp = 0, kTcp = 1 };

struct Endpoint {
  const char* host;  // narrow, zero-terminated; not owned
  std::uint16_t port;
  std::uint32_t timeout_ms;  // to connect, and then for each piece of a reply
};

}  // namespace TAVU::QTC
