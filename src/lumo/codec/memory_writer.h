// A growable byte buffer to encode into: 256 bytes at first, doubled until an append fits.
#pragma once

#include <cstddef>
#include <span>

#include "lumo/codec/byte_stream.h"

namespace TAVU::lumo {

class MemoryWriter final : public ByteSink {
 public:
  static constexpr std::size_t kInitialCapacity = 256;

  MemoryWriter();  // throws BadAllocation, as every append may
  ~MemoryWriter() override;

  [[nodiscard]] const std::byte* data() const noexcept { return data_; }
  [[nodiscard]] std::size_t size() const noexcept {
    return static_cast<std::size_t>(window_ - data_);
  }
  [[nodiscard]] std::size_t capacity() const noexcept {
    return static_cast<std::size_t>(window_end_ - data_);
  }
  [[nodiscard]] std::span<const std::byte> bytes() const noexcept { return {data_, size()}; }

 private:
  [[nodiscard]] std::ptrdiff_t Accept(const std::byte* data, std::size_t size) override;

  // Doubles the capacity until `more` bytes fit after the content.
  void Grow(std::size_t more);

  std::byte* data_;
};

}  // namespace TAVU::lumo
