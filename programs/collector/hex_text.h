// Bytes as hexadecimal digits.
#pragma once

#include <span>
#include <string>

namespace TAVU::collector {

[[nodiscard]] inline std::string HexText(std::span<const unsigned char> bytes) {
  constexpr char kDigits[] = "0123456789abcdef";
  std::string text;
  text.reserve(2 * bytes.size());
  for (const unsigned char byte : bytes) {
    text += kDigits[byte >> 4];
    text += kDigits[byte & 15];
  }
  return text;
}

}  // namespace TAVU::collector
