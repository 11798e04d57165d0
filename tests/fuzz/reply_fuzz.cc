// A server's bytes, from the header to the result value: read or refused, in one piece or byte by
// byte, with the same outcome.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>

#include "fuzz/property.h"
#include "net/exchange.h"

using namespace TAVU;

namespace {

class Canned final : public QTC::Transport {
 public:
  Canned(std::span<const std::byte> bytes, std::size_t at_once) : rest_(bytes), at_once_(at_once) {}
  std::ptrdiff_t SendAll(const std::byte*, std::size_t size) override {
    return static_cast<std::ptrdiff_t>(size);
  }
  std::ptrdiff_t Receive(std::byte* out, std::size_t capacity) override {
    const std::size_t size = std::min({capacity, at_once_, rest_.size()});
    if (size != 0) std::memcpy(out, rest_.data(), size);
    rest_ = rest_.subspan(size);
    return static_cast<std::ptrdiff_t>(size);
  }

 private:
  std::span<const std::byte> rest_;
  std::size_t at_once_;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const auto bytes = std::as_bytes(std::span(data, size));
  Canned whole(bytes, size + 1);
  QTC::Message message;
  const bool read = QTC::ReadReply(whole, message);

  Canned dribbled(bytes, 1);
  QTC::Message same;
  TAVU_PROPERTY(QTC::ReadReply(dribbled, same) == read);
  if (!read) return 0;
  TAVU_PROPERTY(same.kind == message.kind && same.is_fault == message.is_fault);
  TAVU_PROPERTY(same.method == message.method && same.fault.code == message.fault.code);
  TAVU_PROPERTY(!message.is_fault || message.kind == QTC::MessageKind::kReply);
  return 0;
}
