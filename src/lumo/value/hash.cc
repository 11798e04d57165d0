#include "lumo/value/hash.h"

#include <bit>
#include <cstring>

#include "lumo/value/lookup2.h"

namespace TAVU::lumo {

namespace {

static_assert(std::endian::native == std::endian::little, "words are loaded as they lie in memory");

std::uint32_t Word(const std::byte* bytes) noexcept {
  std::uint32_t word = 0;
  std::memcpy(&word, bytes, sizeof word);
  return word;
}

// A word of fewer than four bytes, the first one lowest; the missing ones are zero.
std::uint32_t ShortWord(const std::byte* bytes, std::size_t count) noexcept {
  if (count == 0) return 0;
  // Of one byte all three are the same, of two the middle is the last.
  const std::size_t middle = count / 2;
  const std::size_t last = count - 1;
  return std::to_integer<std::uint32_t>(bytes[0]) |
         std::to_integer<std::uint32_t>(bytes[middle]) << (8 * middle) |
         std::to_integer<std::uint32_t>(bytes[last]) << (8 * last);
}

}  // namespace

std::uint32_t Lookup2(std::span<const std::byte> key, std::uint32_t initial) noexcept {
  Lookup2State state = {.c = initial};
  const std::byte* bytes = key.data();
  std::size_t count = key.size();
  for (; count >= 12; bytes += 12, count -= 12) {
    state.a += Word(bytes);
    state.b += Word(bytes + 4);
    state.c += Word(bytes + 8);
    state.Mix();
  }
  state.c += static_cast<std::uint32_t>(key.size());
  if (count < 4) {
    state.a += ShortWord(bytes, count);
  } else if (count < 8) {
    state.a += Word(bytes);
    state.b += ShortWord(bytes + 4, count - 4);
  } else {
    state.a += Word(bytes);
    state.b += Word(bytes + 4);
    // The lowest byte of c belongs to the length.
    state.c += ShortWord(bytes + 8, count - 8) << 8;
  }
  state.Mix();
  return state.c;
}

}  // namespace TAVU::lumo
