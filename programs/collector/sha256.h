// SHA-256, computed piece by piece.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace TAVU::collector {

class Sha256 {
 public:
  void Update(std::span<const std::byte> bytes) noexcept;
  // The digest of all bytes as 64 hexadecimal digits. The object is used up then.
  [[nodiscard]] std::string FinishHex();

 private:
  static constexpr std::size_t kBlockSize = 64;

  void Compress(const std::byte* block) noexcept;

  std::array<std::uint32_t, 8> state_ = {0x6a09e667, 0xbb67ae85, 0x3c6ef372, 0xa54ff53a,
                                         0x510e527f, 0x9b05688c, 0x1f83d9ab, 0x5be0cd19};
  std::array<std::byte, kBlockSize> block_ = {};
  std::size_t held_ = 0;     // bytes in block_
  std::uint64_t total_ = 0;  // bytes seen
};

}  // namespace TAVU::collector
