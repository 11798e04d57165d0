// The buffers between the framing and a connection.
#pragma once

#include <array>
#include <cstddef>
#include <memory>
#include <span>
#include <vector>

#include "lumo/codec/byte_stream.h"
#include "net/wire/transport.h"

namespace TAVU::QTC {

inline constexpr std::size_t kBufferSize = 2048;  // of a connection and of a packet

// A sink whose bytes go out when it is full and when it is flushed. After a failed send it takes
// and sends nothing more, because the peer would find a hole there.
class ConnectionWriter : public lumo::ByteSink {
 public:
  // Sends what is held. False when the transport refused; when it could not even begin, the thread
  // error is kErrorBrokenPipe then, else the transport's own.
  [[nodiscard]] bool Flush();

 protected:
  explicit ConnectionWriter(Transport& transport) noexcept : transport_(transport) {}

  // Makes room; result as of Transport::SendAll, and more than 0 when nothing is held.
  [[nodiscard]] std::ptrdiff_t SendHeld();
  [[nodiscard]] bool broken() const noexcept { return broken_; }

  Transport& transport_;  // not owned; outlives the writer

 private:
  [[nodiscard]] std::ptrdiff_t Accept(const std::byte* data, std::size_t size) final;
  // Hands what is held to the transport, if anything, and forgets it.
  [[nodiscard]] virtual std::ptrdiff_t Send() = 0;

  bool broken_ = false;
};

// Sends 2048 bytes at a time, so that over UDP each full buffer is one datagram.
class BufferedWriter final : public ConnectionWriter {
 public:
  explicit BufferedWriter(Transport& transport) noexcept;

 private:
  [[nodiscard]] std::ptrdiff_t Send() override;

  std::array<std::byte, kBufferSize> buffer_;
};

// Makes few and large sends of a stream, and sends borrowed bytes from where they lie: a block of
// any size costs no copy of it, and a system call for each MiB.
class GatheringWriter final : public ConnectionWriter {
 public:
  explicit GatheringWriter(Transport& transport);  // throws std::bad_alloc, as every write may

 private:
  using Piece = std::span<const std::byte>;

  [[nodiscard]] std::ptrdiff_t Send() override;
  [[nodiscard]] bool AcceptBorrowed(const std::byte* data, std::size_t size) override;
  // Notes the copied bytes that no piece covers yet.
  void CloseCopied();

  std::unique_ptr<std::byte[]> buffer_;  // of the bytes that are copied
  std::byte* copied_;                    // in buffer_: what lies in front is in pieces_
  std::vector<Piece> pieces_;            // in the order of sending, in buffer_ or borrowed
};

// Receives up to 2048 bytes at a time. When `most_bytes` have come, it receives no more and fails.
class BufferedReader final : public lumo::ByteSource {
 public:
  // The transport is not owned and outlives the reader.
  BufferedReader(Transport& transport, std::size_t most_bytes) noexcept;

 private:
  [[nodiscard]] std::ptrdiff_t Refill() override;

  Transport& transport_;
  std::size_t bytes_left_;
  std::array<std::byte, kBufferSize> buffer_;
};

}  // namespace TAVU::QTC
