// A connection whose far end is two byte vectors.
#pragma once

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "net/wire/transport.h"

namespace TAVU::test {

// Gives `incoming` in pieces of at most `piece` bytes, then an orderly end. Takes `good_bytes`; the
// send after that has the result `bad_send`. Takes what comes after it, too, for tests to see.
struct MemoryTransport final : QTC::Transport {
  explicit MemoryTransport(std::vector<std::byte> to_come = {}, std::size_t at_once = 2048)
      : incoming(std::move(to_come)), piece(at_once) {}

  std::ptrdiff_t Send(const std::byte* data, std::size_t size) override {
    if (sent.size() == good_bytes && bad_sends++ == 0) return bad_send;
    if (bad_sends == 0) size = std::min(size, good_bytes - sent.size());
    sends.push_back(size);
    sent.insert(sent.end(), data, data + size);
    return static_cast<std::ptrdiff_t>(size);
  }
  std::ptrdiff_t Receive(std::byte* out, std::size_t capacity) override {
    const std::size_t size = std::min({capacity, piece, incoming.size() - position});
    if (size != 0) std::memcpy(out, incoming.data() + position, size);
    position += size;
    return static_cast<std::ptrdiff_t>(size);
  }

  std::vector<std::byte> incoming;
  std::size_t piece;
  std::size_t position = 0;
  std::vector<std::byte> sent;
  std::vector<std::size_t> sends;  // their sizes
  std::size_t good_bytes = SIZE_MAX;
  std::ptrdiff_t bad_send = -1;
  std::size_t bad_sends = 0;
};

}  // namespace TAVU::test
