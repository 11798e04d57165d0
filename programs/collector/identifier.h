// Identifiers that nobody else has made.
#pragma once

#include <openssl/rand.h>

#include <array>
#include <new>
#include <string>

#include "hex_text.h"

namespace TAVU::collector {

[[nodiscard]] inline std::string NewIdentifier() {
  std::array<unsigned char, 16> bytes;
  // Fails when the system has no random numbers: nothing to go on with.
  if (RAND_bytes(bytes.data(), static_cast<int>(bytes.size())) != 1) throw std::bad_alloc();
  return HexText(bytes);
}

}  // namespace TAVU::collector
