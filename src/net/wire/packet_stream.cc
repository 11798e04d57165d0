#include "net/wire/packet_stream.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>

#include "lumo/codec/codec.h"

namespace TAVU::QTC {

PacketWriter::PacketWriter(lumo::ByteSink& connection) noexcept : connection_(connection) {
  window_ = buffer_.data();
  window_end_ = window_ + buffer_.size();
}

bool PacketWriter::Flush() {
  return held() == 0 || WritePacket(nullptr, 0);
}

bool PacketWriter::Close() {
  if (closed_) return true;
  closed_ = true;
  window_ = window_end_ = buffer_.data();
  return lumo::WriteUint16(connection_, 0);
}

std::ptrdiff_t PacketWriter::Accept(const std::byte* data, std::size_t size) {
  if (closed_) return 0;
  std::size_t rest = size;
  std::size_t packet = kBufferSize - held();  // of the data, after what is held
  do {
    if (!WritePacket(data, packet)) return -1;
    data += packet;
    rest -= packet;
    packet = kBufferSize;
  } while (rest >= packet);
  std::memcpy(window_, data, rest);
  window_ += rest;
  return static_cast<std::ptrdiff_t>(size);
}

bool PacketWriter::WritePacket(const std::byte* more, std::size_t size) {
  const std::size_t held_size = held();
  window_ = buffer_.data();
  return lumo::WriteUint16(connection_, static_cast<std::uint16_t>(held_size + size)) &&
         connection_.Write(buffer_.data(), held_size) && connection_.Write(more, size);
}

PacketReader::PacketReader(lumo::ByteSource& connection) noexcept : connection_(connection) {}

bool PacketReader::ReadEnd() {
  return window_ == window_end_ && Refill() == 0;
}

std::ptrdiff_t PacketReader::Refill() {
  if (packet_rest_ == 0 && !ended_) {
    std::uint16_t length = 0;
    if (!lumo::ReadUint16(connection_, length)) return -1;
    packet_rest_ = length;
    ended_ = length == 0;
  }
  if (ended_) return 0;
  const std::span<const std::byte> piece = connection_.Take(packet_rest_);
  if (piece.empty()) return -1;  // the connection has set the thread error
  packet_rest_ -= piece.size();
  window_ = piece.data();
  window_end_ = window_ + piece.size();
  return static_cast<std::ptrdiff_t>(piece.size());
}

}  // namespace TAVU::QTC
