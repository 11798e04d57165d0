#include "lumo/hash.h"

namespace TAVU::lumo {

namespace {

constexpr std::uint32_t kGoldenRatio = 0x9e3779b9;

struct State {
  std::uint32_t a;
  std::uint32_t b;
  std::uint32_t c;

  void Mix() noexcept {
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

std::uint32_t LittleEndian(const std::byte* bytes) noexcept {
  return std::to_integer<std::uint32_t>(bytes[0]) | std::to_integer<std::uint32_t>(bytes[1]) << 8 |
         std::to_integer<std::uint32_t>(bytes[2]) << 16 |
         std::to_integer<std::uint32_t>(bytes[3]) << 24;
}

// Up to four bytes, the first one lowest.
std::uint32_t Partial(std::span<const std::byte> bytes) noexcept {
  std::uint32_t word = 0;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    word |= std::to_integer<std::uint32_t>(bytes[i]) << (8 * i);
  }
  return word;
}

}  // namespace

std::uint32_t Lookup2(std::span<const std::byte> key, std::uint32_t initial) noexcept {
  State state = {kGoldenRatio, kGoldenRatio, initial};
  std::span<const std::byte> rest = key;
  while (rest.size() >= 12) {
    state.a += LittleEndian(rest.data());
    state.b += LittleEndian(rest.data() + 4);
    state.c += LittleEndian(rest.data() + 8);
    state.Mix();
    rest = rest.subspan(12);
  }
  state.c += static_cast<std::uint32_t>(key.size());
  if (rest.size() <= 4) {
    state.a += Partial(rest);
  } else {
    state.a += LittleEndian(rest.data());
    if (rest.size() <= 8) {
      state.b += Partial(rest.subspan(4));
    } else {
      state.b += LittleEndian(rest.data() + 4);
      // The lowest byte of c belongs to the length.
      state.c += Partial(rest.subspan(8)) << 8;
    }
  }
  state.Mix();
  return state.c;
}

}  // namespace TAVU::lumo
