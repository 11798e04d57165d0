// The buffers between the framing and a connection.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "lumo/codec/byte_stream.h"
#include "net/wire/transport.h"

namespace TAVU::QTC {

inline constexpr std::size_t kBufferSize = 2048;  // of a connection and of a packet

// A sink whose bytes go out when its buffer is full and when it is flushed. After a failed send it
// takes and sends nothing more, because the peer would find a hole there.
class ConnectionWriter final : public lumo::ByteSink {
 public:
  // The buffer grows from kBufferSize to `most_held` bytes. Over UDP, where each full one is a
  // datagram, both are the same. The transport is not owned and outlives the writer.
  ConnectionWriter(Transport& transport, std::size_t most_held) noexcept;

  // Sends what is held. False when the transport refused, now or before; when it could not even
  // begin, the thread error is kErrorBrokenPipe then, else the transport's own.
  [[nodiscard]] bool Flush();

  // Bytes that the connection took, and those that were written here as long as no send failed.
  [[nodiscard]] std::uint64_t sent() const noexcept { return sent_; }
  [[nodiscard]] std::uint64_t written() const noexcept {
    return sent_ + static_cast<std::uint64_t>(window_ - buffer_.data());
  }

 private:
  [[nodiscard]] std::ptrdiff_t Accept(const std::byte* data, std::size_t size) override;
  void Grow();  // throws std::bad_alloc

  Transport& transport_;
  std::size_t most_held_;
  std::array<std::byte, kBufferSize> first_buffer_;  // all that most requests need
  std::unique_ptr<std::byte[]> grown_buffer_;
  std::span<std::byte> buffer_ = first_buffer_;  // the one in use
  std::uint64_t sent_ = 0;
  bool broken_ = false;
};

// Receives up to 2048 bytes at a time.
class BufferedReader final : public lumo::ByteSource {
 public:
  // The transport is not owned and outlives the reader.
  explicit BufferedReader(Transport& transport) noexcept : transport_(transport) {}

 private:
  [[nodiscard]] std::ptrdiff_t Refill() override;

  Transport& transport_;
  std::array<std::byte, kBufferSize> buffer_;
};

}  // namespace TAVU::QTC
