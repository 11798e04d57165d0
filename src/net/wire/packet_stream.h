// The body of a message travels in packets: a 16-bit big-endian length, then that many bytes; a
// packet of length 0 ends the body.
#pragma once

#include <array>
#include <cstddef>

#include "lumo/codec/byte_stream.h"
#include "net/wire/connection_buffers.h"

namespace TAVU::QTC {

// Cuts a body into packets of 2048 bytes and a last shorter one. Full packets of a large write go
// straight from the data.
class PacketWriter final : public lumo::ByteSink {
 public:
  explicit PacketWriter(lumo::ByteSink& connection) noexcept;  // not owned; outlives the writer

  // Writes the bytes held as one packet; nothing when none are held.
  [[nodiscard]] bool Flush();
  // Writes the end packet, once; bytes still held are dropped. The writer accepts nothing after
  // that.
  [[nodiscard]] bool Close();

 private:
  [[nodiscard]] std::ptrdiff_t Accept(const std::byte* data, std::size_t size) override;
  // Writes the bytes held and `size` more, kBufferSize at the most together, as one packet.
  [[nodiscard]] bool WritePacket(const std::byte* more, std::size_t size);
  [[nodiscard]] std::size_t held() const noexcept {
    return static_cast<std::size_t>(window_ - buffer_.data());
  }

  lumo::ByteSink& connection_;
  bool closed_ = false;
  std::array<std::byte, kBufferSize> buffer_;
};

// Gives the payload of packets of any size as one stream, up to the end packet.
class PacketReader final : public lumo::ByteSource {
 public:
  explicit PacketReader(lumo::ByteSource& connection) noexcept;  // not owned; outlives the reader

  // True when nothing but the end packet follows, which is then read.
  [[nodiscard]] bool ReadEnd();

 private:
  [[nodiscard]] std::ptrdiff_t Refill() override;

  lumo::ByteSource& connection_;
  std::size_t packet_rest_ = 0;  // payload bytes of the current packet not yet offered
  bool ended_ = false;
};

}  // namespace TAVU::QTC
