// Bytes received and not yet used, in a chain of blocks: it grows with what comes and shrinks with
// what is read, and copies nothing while it does.
#pragma once

#include <cstddef>
#include <deque>
#include <memory>
#include <span>

#include "lumo/codec/byte_stream.h"
#include "memory_budget.h"

namespace TAVU::collector {

class ByteChain {
 public:
  explicit ByteChain(MemoryBudget& budget) noexcept : budget_(budget) {}  // outlives the chain
  ByteChain(const ByteChain&) = delete;
  ByteChain& operator=(const ByteChain&) = delete;
  ~ByteChain();

  // Room after the last byte, for Commit to make part of the chain. Empty when the budget is used
  // up.
  [[nodiscard]] std::span<std::byte> Room();
  void Commit(std::size_t count) noexcept;
  // What Room takes from the budget when the last block is full.
  [[nodiscard]] std::size_t NextBlock() const noexcept;
  // Copies as many of `bytes` as the budget allows; returns how many.
  [[nodiscard]] std::size_t Append(std::span<const std::byte> bytes);

  [[nodiscard]] std::size_t size() const noexcept { return size_; }
  // The first bytes, as many as lie together; empty when the chain is.
  [[nodiscard]] std::span<const std::byte> Front() const noexcept;
  void Drop(std::size_t count) noexcept;  // the first `count` of size() bytes

 private:
  struct Block {
    std::unique_ptr<std::byte[]> bytes;
    std::size_t capacity;
    std::size_t begin = 0;
    std::size_t end = 0;
  };

  void DropFrontBlock() noexcept;

  MemoryBudget& budget_;
  std::deque<Block> blocks_;
  std::size_t size_ = 0;
};

// Reads the first `limit` bytes of a chain and drops them from it on the way.
class ByteChainReader final : public lumo::ByteSource {
 public:
  ByteChainReader(ByteChain& chain, std::size_t limit) noexcept : chain_(chain), rest_(limit) {}
  ~ByteChainReader() override { chain_.Drop(offered_ + rest_); }

 private:
  [[nodiscard]] std::ptrdiff_t Refill() override;

  ByteChain& chain_;
  std::size_t rest_;         // bytes not yet offered
  std::size_t offered_ = 0;  // bytes in the window; still in the chain
};

}  // namespace TAVU::collector
