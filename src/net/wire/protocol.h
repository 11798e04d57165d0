// What carries a call.
#pragma once

#include <cstdint>

namespace TAVU::QTC {

enum class Protocol : std::uint8_t {
  kUdp = 0,  // 2048 bytes a send, which is a datagram, and a last shorter one; not answered
  kTcp = 1,  // few large sends, then a reply
};

}  // namespace TAVU::QTC
