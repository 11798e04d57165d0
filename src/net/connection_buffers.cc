#include "net/connection_buffers.h"

#include <algorithm>
#include <cstring>

#include "lumo/thread_error.h"

namespace TAVU::QTC {

BufferedWriter::BufferedWriter(Transport& transport, std::size_t capacity)
    : transport_(transport), buffer_(new std::byte[capacity]) {
  window_ = buffer_.get();
  window_end_ = window_ + capacity;
}

bool BufferedWriter::Flush() {
  const std::ptrdiff_t sent = SendHeld();
  if (sent == 0) lumo::SetThreadError(lumo::kErrorBrokenPipe);
  return sent > 0;
}

std::ptrdiff_t BufferedWriter::Accept(const std::byte* data, std::size_t size) {
  if (window_ == window_end_) {
    if (const std::ptrdiff_t sent = SendHeld(); sent <= 0) return sent;
  }
  const std::size_t taken = std::min(size, static_cast<std::size_t>(window_end_ - window_));
  std::memcpy(window_, data, taken);
  window_ += taken;
  return static_cast<std::ptrdiff_t>(taken);
}

std::ptrdiff_t BufferedWriter::SendHeld() {
  if (broken_) return -1;
  const auto held = static_cast<std::size_t>(window_ - buffer_.get());
  if (held == 0) return 1;
  const std::ptrdiff_t sent = transport_.SendAll(buffer_.get(), held);
  if (sent > 0) {
    window_ = buffer_.get();
  } else {
    broken_ = true;
    window_ = window_end_;  // no room: every further write comes to Accept
  }
  return sent;
}

BufferedReader::BufferedReader(Transport& transport) noexcept : transport_(transport) {}

std::ptrdiff_t BufferedReader::Refill() {
  const std::ptrdiff_t received = transport_.Receive(buffer_.data(), buffer_.size());
  if (received > 0) {
    window_ = buffer_.data();
    window_end_ = window_ + received;
  }
  return received;
}

}  // namespace TAVU::QTC
