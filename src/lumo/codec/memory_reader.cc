#include "lumo/codec/memory_reader.h"

namespace TAVU::lumo {

MemoryReader::MemoryReader(std::span<const std::byte> bytes) noexcept : begin_(bytes.data()) {
  window_ = bytes.data();
  window_end_ = bytes.data() + bytes.size();
}

std::ptrdiff_t MemoryReader::Refill() {
  return begin_ == window_end_ ? -1 : 0;
}

}  // namespace TAVU::lumo
