#include "sha256.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "lumo/codec/big_endian.h"

namespace TAVU::collector {
namespace {

constexpr std::uint32_t kRoundConstants[64] = {
    0x428a2f98, 0x71374491, 0xb5c0fbcf, 0xe9b5dba5, 0x3956c25b, 0x59f111f1, 0x923f82a4, 0xab1c5ed5,
    0xd807aa98, 0x12835b01, 0x243185be, 0x550c7dc3, 0x72be5d74, 0x80deb1fe, 0x9bdc06a7, 0xc19bf174,
    0xe49b69c1, 0xefbe4786, 0x0fc19dc6, 0x240ca1cc, 0x2de92c6f, 0x4a7484aa, 0x5cb0a9dc, 0x76f988da,
    0x983e5152, 0xa831c66d, 0xb00327c8, 0xbf597fc7, 0xc6e00bf3, 0xd5a79147, 0x06ca6351, 0x14292967,
    0x27b70a85, 0x2e1b2138, 0x4d2c6dfc, 0x53380d13, 0x650a7354, 0x766a0abb, 0x81c2c92e, 0x92722c85,
    0xa2bfe8a1, 0xa81a664b, 0xc24b8b70, 0xc76c51a3, 0xd192e819, 0xd6990624, 0xf40e3585, 0x106aa070,
    0x19a4c116, 0x1e376c08, 0x2748774c, 0x34b0bcb5, 0x391c0cb3, 0x4ed8aa4a, 0x5b9cca4f, 0x682e6ff3,
    0x748f82ee, 0x78a5636f, 0x84c87814, 0x8cc70208, 0x90befffa, 0xa4506ceb, 0xbef9a3f7, 0xc67178f2};

}  // namespace

void Sha256::Compress(const std::byte* block) noexcept {
  using std::rotr;
  std::uint32_t w[64];
  for (std::size_t i = 0; i < 16; ++i) w[i] = lumo::LoadBigEndian<std::uint32_t>(block + 4 * i);
  for (std::size_t i = 16; i < 64; ++i) {
    const std::uint32_t s0 = rotr(w[i - 15], 7) ^ rotr(w[i - 15], 18) ^ (w[i - 15] >> 3);
    const std::uint32_t s1 = rotr(w[i - 2], 17) ^ rotr(w[i - 2], 19) ^ (w[i - 2] >> 10);
    w[i] = w[i - 16] + s0 + w[i - 7] + s1;
  }
  auto [a, b, c, d, e, f, g, h] = state_;
  for (std::size_t i = 0; i < 64; ++i) {
    const std::uint32_t sum1 = rotr(e, 6) ^ rotr(e, 11) ^ rotr(e, 25);
    const std::uint32_t choice = (e & f) ^ (~e & g);
    const std::uint32_t first = h + sum1 + choice + kRoundConstants[i] + w[i];
    const std::uint32_t sum0 = rotr(a, 2) ^ rotr(a, 13) ^ rotr(a, 22);
    const std::uint32_t majority = (a & b) ^ (a & c) ^ (b & c);
    h = g, g = f, f = e, e = d + first;
    d = c, c = b, b = a, a = first + sum0 + majority;
  }
  const std::uint32_t worked[8] = {a, b, c, d, e, f, g, h};
  for (std::size_t i = 0; i < 8; ++i) state_[i] += worked[i];
}

void Sha256::Update(std::span<const std::byte> bytes) noexcept {
  total_ += bytes.size();
  while (!bytes.empty()) {
    if (held_ == 0 && bytes.size() >= kBlockSize) {
      Compress(bytes.data());
      bytes = bytes.subspan(kBlockSize);
      continue;
    }
    const std::size_t taken = std::min(bytes.size(), kBlockSize - held_);
    std::memcpy(block_.data() + held_, bytes.data(), taken);
    held_ += taken;
    bytes = bytes.subspan(taken);
    if (held_ == kBlockSize) {
      Compress(block_.data());
      held_ = 0;
    }
  }
}

std::string Sha256::FinishHex() {
  const std::uint64_t bits = total_ * 8;
  constexpr std::byte kPadding[kBlockSize] = {std::byte{0x80}};
  const std::size_t before_length = kBlockSize - 8;
  const std::size_t padding =
      held_ < before_length ? before_length - held_ : kBlockSize + before_length - held_;
  Update({kPadding, padding});
  std::byte length[8];
  lumo::StoreBigEndian(length, bits);
  Update(length);

  constexpr char kDigits[] = "0123456789abcdef";
  std::string hex;
  for (const std::uint32_t word : state_) {
    for (int shift = 28; shift >= 0; shift -= 4) hex += kDigits[word >> shift & 0xF];
  }
  return hex;
}

}  // namespace TAVU::collector
