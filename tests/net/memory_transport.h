// A connection whose far end is two byte vectors.
#pragma once

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "net/transport.h"

namespace TAVU::test {

class MemoryTransport final : public QTC::Transport {
 public:
  // Gives `incoming` in pieces of at most `piece` bytes, then an orderly end. Takes `good_sends`
  // sends; every further one has the result `bad_send`.
  explicit MemoryTransport(std::vector<std::byte> incoming = {}, std::size_t piece = 2048)
      : incoming_(std::move(incoming)), piece_(piece) {}

  std::ptrdiff_t SendAll(const std::byte* data, std::size_t size) override {
    if (sends.size() == good_sends) return bad_send;
    sends.emplace_back(data, data + size);
    return static_cast<std::ptrdiff_t>(size);
  }
  std::ptrdiff_t SendPieces(std::span<const std::span<const std::byte>> pieces) override {
    most_pieces = std::max(most_pieces, pieces.size());
    std::vector<std::byte> joined;
    for (const auto& piece : pieces) joined.insert(joined.end(), piece.begin(), piece.end());
    return SendAll(joined.data(), joined.size());
  }
  std::ptrdiff_t Receive(std::byte* out, std::size_t capacity) override {
    const std::size_t size = std::min({capacity, piece_, incoming_.size() - position_});
    if (size != 0) std::memcpy(out, incoming_.data() + position_, size);
    position_ += size;
    return static_cast<std::ptrdiff_t>(size);
  }

  [[nodiscard]] std::vector<std::byte> Sent() const {
    std::vector<std::byte> all;
    for (const auto& send : sends) all.insert(all.end(), send.begin(), send.end());
    return all;
  }

  std::size_t good_sends = static_cast<std::size_t>(-1);
  std::ptrdiff_t bad_send = -1;
  std::vector<std::vector<std::byte>> sends;
  std::size_t most_pieces = 0;

 private:
  std::vector<std::byte> incoming_;
  std::size_t piece_;
  std::size_t position_ = 0;
};

}  // namespace TAVU::test
