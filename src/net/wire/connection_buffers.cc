#include "net/wire/connection_buffers.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "base/thread_error.h"

namespace TAVU::QTC {

// --- ConnectionWriter ----------------------------------------------------------------------------

ConnectionWriter::ConnectionWriter(Transport& transport, std::size_t most_held) noexcept
    : transport_(transport), most_held_(most_held) {
  window_ = buffer_.data();
  window_end_ = window_ + buffer_.size();
}

bool ConnectionWriter::Flush() {
  if (broken_) return false;
  for (const std::byte* next = buffer_.data(); next != window_;) {
    const std::ptrdiff_t sent = transport_.Send(next, static_cast<std::size_t>(window_ - next));
    if (sent <= 0) {
      if (sent == 0) base::SetThreadError(base::kErrorBrokenPipe);
      broken_ = true;
      window_ = window_end_;  // no room: every further write comes to Accept
      return false;
    }
    next += sent;
    sent_ += static_cast<std::uint64_t>(sent);
  }
  window_ = buffer_.data();
  return true;
}

std::ptrdiff_t ConnectionWriter::Accept(const std::byte* data, std::size_t size) {
  if (window_ == window_end_) {
    if (!broken_ && buffer_.size() < most_held_) {
      Grow();
    } else if (!Flush()) {
      return -1;
    }
  }
  const std::size_t taken = std::min(size, static_cast<std::size_t>(window_end_ - window_));
  std::memcpy(window_, data, taken);
  window_ += taken;
  return static_cast<std::ptrdiff_t>(taken);
}

// Few steps, and small ones before the last: while its content is moved, two buffers are held.
void ConnectionWriter::Grow() {
  const std::size_t held = buffer_.size();
  const std::size_t size = std::min(held * 32, most_held_);
  auto larger = std::make_unique_for_overwrite<std::byte[]>(size);
  std::memcpy(larger.get(), buffer_.data(), held);
  grown_buffer_ = std::move(larger);
  buffer_ = {grown_buffer_.get(), size};
  window_ = buffer_.data() + held;
  window_end_ = buffer_.data() + size;
}

// --- BufferedReader ------------------------------------------------------------------------------

std::ptrdiff_t BufferedReader::Refill() {
  const std::ptrdiff_t received = transport_.Receive(buffer_.data(), buffer_.size());
  if (received > 0) {
    window_ = buffer_.data();
    window_end_ = window_ + received;
  }
  return received;
}

}  // namespace TAVU::QTC
