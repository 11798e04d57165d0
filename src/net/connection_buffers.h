// The buffers between the framing and a connection: each full buffer is one send, so that over UDP
// each is one datagram.
#pragma once

#include <array>
#include <cstddef>

#include "lumo/byte_stream.h"
#include "net/transport.h"

namespace TAVU::QTC {

inline constexpr std::size_t kBufferSize = 2048;  // of a connection and of a packet

// Gathers bytes and sends them 2048 at a time. What is held at the end must be flushed.
class BufferedWriter final : public lumo::ByteSink {
 public:
  explicit BufferedWriter(Transport& transport) noexcept;  // not owned; outlives the writer

  // Sends what is held. False when the transport refused.
  [[nodiscard]] bool Flush();

 private:
  [[nodiscard]] std::ptrdiff_t Accept(const std::byte* data, std::size_t size) override;

  Transport& transport_;
  std::array<std::byte, kBufferSize> buffer_;
};

// Receives up to 2048 bytes at a time.
class BufferedReader final : public lumo::ByteSource {
 public:
  explicit BufferedReader(Transport& transport) noexcept;  // not owned; outlives the reader

 private:
  [[nodiscard]] std::ptrdiff_t Refill() override;

  Transport& transport_;
  std::array<std::byte, kBufferSize> buffer_;
};

}  // namespace TAVU::QTC
