// Numbers as they stand on the wire: most significant byte first.
#pragma once

#include <cstddef>
#include <cstdint>

namespace TAVU::lumo {

// `Number` is unsigned. Compilers make one load or store and a byte swap of these loops.
template <typename Number>
void StoreBigEndian(std::byte* out, Number number) noexcept {
  for (std::size_t i = 0; i < sizeof(Number); ++i) {
    out[i] = static_cast<std::byte>(number >> (8 * (sizeof(Number) - 1 - i)));
  }
}

template <typename Number>
[[nodiscard]] Number LoadBigEndian(const std::byte* bytes) noexcept {
  Number number = 0;
  for (std::size_t i = 0; i < sizeof(Number); ++i) {
    number = static_cast<Number>(number << 8 | static_cast<Number>(bytes[i]));
  }
  return number;
}

}  // namespace TAVU::lumo
