// Reads bytes that lie in memory; the caller keeps them alive.
#pragma once

#include <cstddef>
#include <span>

#include "lumo/codec/byte_stream.h"

namespace TAVU::lumo {

class MemoryReader final : public ByteSource {
 public:
  explicit MemoryReader(std::span<const std::byte> bytes) noexcept;

  [[nodiscard]] std::size_t position() const noexcept {
    return static_cast<std::size_t>(window_ - begin_);
  }
  [[nodiscard]] std::size_t remaining() const noexcept {
    return static_cast<std::size_t>(window_end_ - window_);
  }

 private:
  // Nothing more comes: -1 for a reader over nothing (null pointer or length 0), else 0, the end.
  [[nodiscard]] std::ptrdiff_t Refill() override;

  const std::byte* begin_;
};

}  // namespace TAVU::lumo
