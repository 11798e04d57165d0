// The buffers between the framing and a connection: each full buffer is one send, so that over UDP
// each is one datagram.
#pragma once

#include <array>
#include <cstddef>
#include <memory>

#include "lumo/byte_stream.h"
#include "net/transport.h"

namespace TAVU::QTC {

inline constexpr std::size_t kBufferSize = 2048;  // of a connection and of a packet

// Gathers bytes and sends them `capacity` at a time. A full buffer is sent when more comes, and what
// is held at the end must be flushed: nothing is sent otherwise. After a failed send the writer takes
// and sends nothing more, because the peer would find a hole there.
class BufferedWriter final : public lumo::ByteSink {
 public:
  // `transport` is not owned and outlives the writer. Throws std::bad_alloc.
  explicit BufferedWriter(Transport& transport, std::size_t capacity = kBufferSize);

  // Sends what is held. False when the transport refused; when it could not even begin, the thread
  // error is kErrorBrokenPipe then, else the transport's own.
  [[nodiscard]] bool Flush();

 private:
  [[nodiscard]] std::ptrdiff_t Accept(const std::byte* data, std::size_t size) override;
  [[nodiscard]] std::ptrdiff_t SendHeld();  // as Transport::SendAll; more than 0 with nothing held

  Transport& transport_;
  std::unique_ptr<std::byte[]> buffer_;
  bool broken_ = false;
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
