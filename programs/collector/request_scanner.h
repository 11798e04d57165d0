// Follows one request as its bytes come: transport header, then the body of a call, in packets or,
// when the header has field 0, without. It keeps nothing of the bytes and tells when the request is
// whole, and as early as can be known that it never will be.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "body_scanner.h"

namespace TAVU::collector {

class RequestScanner {
 public:
  // A request of more than `most_bytes` in all is refused as soon as it has grown past them.
  explicit RequestScanner(std::size_t most_bytes) noexcept : most_bytes_(most_bytes) {}

  // Looks at the next bytes; returns how many of them belong to the request. Fewer than all only
  // when the state is not kIncomplete any more.
  std::size_t Feed(std::span<const std::byte> bytes);

  [[nodiscard]] ScanState state() const noexcept { return state_; }
  [[nodiscard]] const std::string& reason() const noexcept { return reason_; }  // of kRefused
  [[nodiscard]] std::size_t size() const noexcept { return size_; }  // bytes of the request so far
  // Whether all the fixed bytes in front of the service's name have come.
  [[nodiscard]] bool call_begun() const noexcept { return body_.call_begun(); }
  // Bytes that it holds besides itself, but for the reason.
  [[nodiscard]] std::size_t memory() const noexcept { return body_.memory(); }

 private:
  enum class Expected : std::uint8_t {
    kHeader,      // its four fixed bytes
    kFirstMask,   // the four bytes after them, in a longer header
    kPacketHigh,  // of a packet's length, the first byte
    kPacketLow,
    kPacket,  // its content
    kBareBody,
  };

  void Look(std::uint8_t byte);
  void EndHeader() noexcept;
  void EndBody();
  std::size_t FeedBody(std::span<const std::byte> bytes);
  void Refuse(std::string reason);

  std::size_t most_bytes_;
  ScanState state_ = ScanState::kIncomplete;
  Expected expected_ = Expected::kHeader;
  bool body_in_packets_ = true;
  std::size_t position_ = 0;   // in the header
  std::size_t length_ = 0;     // of the header, then of a packet's rest
  std::size_t step_over_ = 0;  // bytes that need no look
  std::size_t size_ = 0;
  BodyScanner body_;
  std::string reason_;
};

// Whether a datagram that begins so begins a request: a header and the beginning of a call.
[[nodiscard]] bool BeginsRequest(std::span<const std::byte> datagram);

}  // namespace TAVU::collector
