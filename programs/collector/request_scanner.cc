#include "request_scanner.h"

#include <algorithm>
#include <utility>

#include "net/wire/transport_header.h"

namespace TAVU::collector {
namespace {

using Header = QTC::TransportHeader;

constexpr std::uint32_t kField0 = Header::BitOf(0) >> 24;  // in the first byte of the first mask

}  // namespace

std::size_t RequestScanner::Feed(std::span<const std::byte> bytes) {
  const std::span<const std::byte> allowed =
      bytes.first(std::min(bytes.size(), most_bytes_ - size_));
  std::size_t position = 0;
  while (state_ == ScanState::kIncomplete && position < allowed.size()) {
    const std::size_t over = std::min(step_over_, allowed.size() - position);
    position += over;
    step_over_ -= over;
    if (position == allowed.size()) break;
    if (expected_ == Expected::kPacket || expected_ == Expected::kBareBody) {
      position += FeedBody(allowed.subspan(position));
    } else {
      Look(std::to_integer<std::uint8_t>(allowed[position++]));
    }
  }
  size_ += position;
  if (state_ == ScanState::kIncomplete && position < bytes.size()) {
    Refuse("request larger than " + std::to_string(most_bytes_) + " bytes");
  }
  return position;
}

void RequestScanner::Look(std::uint8_t byte) {
  switch (expected_) {
    case Expected::kHeader:
      if (position_ == 0 && byte != Header::kFirstByte) return Refuse("not a request");
      if (position_ >= 2) length_ = length_ << 8 | byte;
      if (++position_ < Header::kFixedSize) return;
      if (length_ == Header::kFixedSize) return EndHeader();
      if (length_ < Header::kFixedSize + Header::kMaskSize) return Refuse("malformed header");
      expected_ = Expected::kFirstMask;
      return;
    case Expected::kFirstMask:
      body_in_packets_ = (byte & kField0) == 0;
      step_over_ = length_ - Header::kFixedSize - 1;  // fields are the decoder's business
      return EndHeader();
    case Expected::kPacketHigh:
      length_ = std::size_t{byte} << 8;
      expected_ = Expected::kPacketLow;
      return;
    case Expected::kPacketLow:
      length_ |= byte;
      if (length_ == 0) return EndBody();
      expected_ = Expected::kPacket;
      return;
    default:
      return;
  }
}

void RequestScanner::EndHeader() noexcept {
  expected_ = body_in_packets_ ? Expected::kPacketHigh : Expected::kBareBody;
}

void RequestScanner::EndBody() {
  if (body_.state() != ScanState::kComplete) return Refuse("the body ends inside the call");
  state_ = ScanState::kComplete;
}

std::size_t RequestScanner::FeedBody(std::span<const std::byte> bytes) {
  const std::size_t count = body_in_packets_ ? std::min(bytes.size(), length_) : bytes.size();
  const std::size_t used = body_.Feed(bytes.first(count));
  if (body_.state() == ScanState::kRefused) {
    Refuse(body_.reason());
  } else if (used < count && body_in_packets_) {
    Refuse("bytes after the end of the call");
  } else if (body_.state() == ScanState::kComplete && !body_in_packets_) {
    state_ = ScanState::kComplete;
  }
  length_ -= body_in_packets_ ? used : 0;
  if (body_in_packets_ && length_ == 0) expected_ = Expected::kPacketHigh;
  return used;
}

void RequestScanner::Refuse(std::string reason) {
  state_ = ScanState::kRefused;
  reason_ = std::move(reason);
}

bool BeginsRequest(std::span<const std::byte> datagram) {
  // A scanner refuses the first byte that is wrong. What continues an earlier request will hardly
  // get past the fixed bytes of header and call.
  RequestScanner scanner(datagram.size());
  scanner.Feed(datagram);
  return scanner.state() != ScanState::kRefused && scanner.call_begun();
}

}  // namespace TAVU::collector
