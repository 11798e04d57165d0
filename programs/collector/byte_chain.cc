#include "byte_chain.h"

#include <algorithm>
#include <cstring>

namespace TAVU::collector {
namespace {

// A log record fits into the first block; a large upload soon moves in large steps.
constexpr std::size_t kFirstBlock = 4096;
constexpr std::size_t kLargestBlock = std::size_t{256} * 1024;

}  // namespace

ByteChain::~ByteChain() {
  while (!blocks_.empty()) DropFrontBlock();
}

std::span<std::byte> ByteChain::Room() {
  if (blocks_.empty() || blocks_.back().end == blocks_.back().capacity) {
    const std::size_t capacity = NextBlock();
    if (!budget_.Take(capacity)) return {};
    try {
      blocks_.push_back({std::make_unique_for_overwrite<std::byte[]>(capacity), capacity});
    } catch (...) {
      budget_.Return(capacity);
      throw;
    }
  }
  Block& last = blocks_.back();  // cppcheck-suppress containerOutOfBounds  // made above
  return {last.bytes.get() + last.end, last.capacity - last.end};
}

std::size_t ByteChain::NextBlock() const noexcept {
  return blocks_.empty() ? kFirstBlock : std::min(blocks_.back().capacity * 2, kLargestBlock);
}

void ByteChain::Commit(std::size_t count) noexcept {
  blocks_.back().end += count;
  size_ += count;
}

std::size_t ByteChain::Append(std::span<const std::byte> bytes) {
  std::size_t taken = 0;
  while (taken < bytes.size()) {
    const std::span<std::byte> room = Room();
    if (room.empty()) break;
    const std::size_t count = std::min(room.size(), bytes.size() - taken);
    std::memcpy(room.data(), bytes.data() + taken, count);
    Commit(count);
    taken += count;
  }
  return taken;
}

std::span<const std::byte> ByteChain::Front() const noexcept {
  if (size_ == 0) return {};
  const Block& first = blocks_.front();
  return {first.bytes.get() + first.begin, first.end - first.begin};
}

void ByteChain::Drop(std::size_t count) noexcept {
  size_ -= count;
  while (!blocks_.empty()) {
    Block& first = blocks_.front();
    const std::size_t dropped = std::min(count, first.end - first.begin);
    first.begin += dropped;
    count -= dropped;
    if (first.begin != first.end) return;
    DropFrontBlock();  // an empty last block too: a peer that waits holds no memory
  }
}

void ByteChain::DropFrontBlock() noexcept {
  budget_.Return(blocks_.front().capacity);
  blocks_.pop_front();
}

std::ptrdiff_t ByteChainReader::Refill() {
  chain_.Drop(offered_);
  const std::span<const std::byte> front = chain_.Front();
  offered_ = std::min(front.size(), rest_);
  rest_ -= offered_;
  window_ = front.data();
  window_end_ = window_ + offered_;
  return static_cast<std::ptrdiff_t>(offered_);
}

}  // namespace TAVU::collector
