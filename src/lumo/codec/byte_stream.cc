#include "lumo/codec/byte_stream.h"

#include <algorithm>

#include "base/thread_error.h"

namespace TAVU::lumo {

bool ByteSink::WriteThrough(const std::byte* data, std::size_t size) {
  while (size != 0) {
    const std::ptrdiff_t taken = Accept(data, size);
    if (taken == 0) base::SetThreadError(base::kErrorBrokenPipe);
    if (taken <= 0) return false;
    data += taken;
    size -= static_cast<std::size_t>(taken);
  }
  return true;
}

bool ByteSource::FillWindow() {
  const std::ptrdiff_t offered = Refill();
  if (offered == 0) base::SetThreadError(base::kErrorBrokenPipe);
  return offered > 0;
}

std::span<const std::byte> ByteSource::Take(std::size_t limit) {
  if (window_ == window_end_ && !FillWindow()) return {};
  const std::size_t size = std::min(limit, static_cast<std::size_t>(window_end_ - window_));
  const std::span<const std::byte> taken(window_, size);
  window_ += size;
  return taken;
}

bool ByteSource::Skip(std::size_t size) {
  while (size != 0) {
    const std::span<const std::byte> piece = Take(size);
    if (piece.empty()) return false;
    size -= piece.size();
  }
  return true;
}

bool ByteSource::ReadThrough(std::byte* out, std::size_t size) {
  while (size != 0) {
    const std::span<const std::byte> piece = Take(size);
    if (piece.empty()) return false;
    std::memcpy(out, piece.data(), piece.size());
    out += piece.size();
    size -= piece.size();
  }
  return true;
}

}  // namespace TAVU::lumo
