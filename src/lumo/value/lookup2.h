// The working state of the lookup2 hash, for those who hash what is known while compiling.
// Everybody else calls Lookup2 of hash.h.
#pragma once

#include <cstdint>

namespace TAVU::lumo {

struct Lookup2State {
  static constexpr std::uint32_t kGoldenRatio = 0x9e3779b9;

  std::uint32_t a = kGoldenRatio;
  std::uint32_t b = kGoldenRatio;
  std::uint32_t c;

  constexpr void Mix() noexcept {
    a -= b, a -= c, a ^= c >> 13;
    b -= c, b -= a, b ^= a << 8;
    c -= a, c -= b, c ^= b >> 13;
    a -= b, a -= c, a ^= c >> 12;
    b -= c, b -= a, b ^= a << 16;
    c -= a, c -= b, c ^= b >> 5;
    a -= b, a -= c, a ^= c >> 3;
    b -= c, b -= a, b ^= a << 10;
    c -= a, c -= b, c ^= b >> 15;
  }
};

// The hash of one byte.
[[nodiscard]] constexpr std::uint32_t Lookup2(std::uint8_t byte, std::uint32_t initial) noexcept {
  Lookup2State state = {.c = initial};
  state.a += byte;
  state.c += 1;  // the length
  state.Mix();
  return state.c;
}

}  // namespace TAVU::lumo
