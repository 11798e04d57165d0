#include "net/wire/connection_buffers.h"

#include <algorithm>
#include <cstring>

#include "base/thread_error.h"

namespace TAVU::QTC {

namespace {

// Enough for the ends of texts and the packet lengths between as many borrowed pieces as one send
// has.
constexpr std::size_t kCopyCapacity = std::size_t{64} << 10;
// Of one send: 512 packets with a length before each. More is more than some systems take at once.
constexpr std::size_t kMostPieces = 1024;

}  // namespace

// --- ConnectionWriter ----------------------------------------------------------------------------

bool ConnectionWriter::Flush() {
  const std::ptrdiff_t sent = SendHeld();
  if (sent == 0) base::SetThreadError(base::kErrorBrokenPipe);
  return sent > 0;
}

std::ptrdiff_t ConnectionWriter::Accept(const std::byte* data, std::size_t size) {
  if (window_ == window_end_) {
    if (const std::ptrdiff_t sent = SendHeld(); sent <= 0) return sent;
  }
  const std::size_t taken = std::min(size, static_cast<std::size_t>(window_end_ - window_));
  std::memcpy(window_, data, taken);
  window_ += taken;
  return static_cast<std::ptrdiff_t>(taken);
}

std::ptrdiff_t ConnectionWriter::SendHeld() {
  if (broken_) return -1;
  const std::ptrdiff_t sent = Send();
  if (sent <= 0) {
    broken_ = true;
    window_ = window_end_;  // no room: every further write comes to Accept
  }
  return sent;
}

// --- BufferedWriter ------------------------------------------------------------------------------

BufferedWriter::BufferedWriter(Transport& transport) noexcept : ConnectionWriter(transport) {
  window_ = buffer_.data();
  window_end_ = window_ + buffer_.size();
}

std::ptrdiff_t BufferedWriter::Send() {
  const auto held = static_cast<std::size_t>(window_ - buffer_.data());
  window_ = buffer_.data();
  return held == 0 ? 1 : transport_.SendAll(buffer_.data(), held);
}

// --- GatheringWriter -----------------------------------------------------------------------------

GatheringWriter::GatheringWriter(Transport& transport)
    : ConnectionWriter(transport), buffer_(new std::byte[kCopyCapacity]), copied_(buffer_.get()) {
  window_ = buffer_.get();
  window_end_ = window_ + kCopyCapacity;
}

std::ptrdiff_t GatheringWriter::Send() {
  CloseCopied();
  const std::ptrdiff_t sent = pieces_.empty() ? 1 : transport_.SendPieces(pieces_);
  pieces_.clear();
  window_ = copied_ = buffer_.get();
  return sent;
}

bool GatheringWriter::AcceptBorrowed(const std::byte* data, std::size_t size) {
  if (broken()) return false;
  // Room for the copied bytes in front, this piece, and copied bytes behind it.
  if (pieces_.size() + 3 > kMostPieces && !Flush()) return false;
  CloseCopied();
  pieces_.emplace_back(data, size);
  return true;
}

void GatheringWriter::CloseCopied() {
  if (window_ == copied_) return;
  pieces_.emplace_back(copied_, window_);
  copied_ = window_;
}

// --- BufferedReader ------------------------------------------------------------------------------

BufferedReader::BufferedReader(Transport& transport, std::size_t most_bytes) noexcept
    : transport_(transport), bytes_left_(most_bytes) {}

std::ptrdiff_t BufferedReader::Refill() {
  if (bytes_left_ == 0) return -1;
  const std::size_t room = std::min(buffer_.size(), bytes_left_);
  const std::ptrdiff_t received = transport_.Receive(buffer_.data(), room);
  if (received > 0) {
    bytes_left_ -= static_cast<std::size_t>(received);
    window_ = buffer_.data();
    window_end_ = window_ + received;
  }
  return received;
}

}  // namespace TAVU::QTC
