// What the buffers over a connection need of it. The socket is the one that ships; tests and
// fuzzers bring their own.
#pragma once

#include <cstddef>

namespace TAVU::QTC {

class Transport {
 public:
  virtual ~Transport() = default;

  // Sends some of the `size` bytes, or all; a datagram always whole. Returns how many the system
  // took, after waiting for room for at least one; 0 when there is nothing to send on, -1 on an
  // error.
  [[nodiscard]] virtual std::ptrdiff_t Send(const std::byte* data, std::size_t size) = 0;

  // Receives up to `capacity` bytes, waiting for the first. Returns how many came, 0 at an orderly
  // close, -1 on an error or a time-out.
  [[nodiscard]] virtual std::ptrdiff_t Receive(std::byte* out, std::size_t capacity) = 0;
};

}  // namespace TAVU::QTC
