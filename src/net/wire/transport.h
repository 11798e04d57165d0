// What the buffers over a connection need of it. The socket is the one that ships; tests and
// fuzzers bring their own.
#pragma once

#include <cstddef>
#include <span>

namespace TAVU::QTC {

class Transport {
 public:
  virtual ~Transport() = default;

  // Sends all `size` bytes. Returns `size`, 0 when the sending could not even begin, -1 on an
  // error.
  [[nodiscard]] virtual std::ptrdiff_t SendAll(const std::byte* data, std::size_t size) = 0;

  // The same for pieces that lie in several places, in as few sends as the connection allows;
  // returns the number of all bytes.
  [[nodiscard]] virtual std::ptrdiff_t SendPieces(
      std::span<const std::span<const std::byte>> pieces) {
    std::ptrdiff_t all = 0;
    for (const std::span<const std::byte> piece : pieces) {
      const std::ptrdiff_t sent = SendAll(piece.data(), piece.size());
      if (sent <= 0) return sent;
      all += sent;
    }
    return all;
  }

  // Receives up to `capacity` bytes, waiting for the first. Returns how many came, 0 at an orderly
  // close, -1 on an error or a time-out.
  [[nodiscard]] virtual std::ptrdiff_t Receive(std::byte* out, std::size_t capacity) = 0;
};

}  // namespace TAVU::QTC
