// A client's bytes as a collector reads them: refused, or a call whose parts write out again to a
// request that reads the same.
#include <cstdint>
#include <cstring>
#include <vector>

#include "fuzz/property.h"
#include "lumo/memory_reader.h"
#include "net/exchange.h"

using namespace TAVU;

namespace {

class Recorder final : public QTC::Transport {
 public:
  std::ptrdiff_t SendAll(const std::byte* data, std::size_t size) override {
    bytes.insert(bytes.end(), data, data + size);
    return static_cast<std::ptrdiff_t>(size);
  }
  std::ptrdiff_t Receive(std::byte*, std::size_t) override { return 0; }

  std::vector<std::byte> bytes;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  lumo::MemoryReader source(std::as_bytes(std::span(data, size)));
  QTC::Message request;
  lumo::Value argument;
  if (!QTC::ReadRequest(source, request, argument)) return 0;
  TAVU_PROPERTY(request.kind == QTC::MessageKind::kCall && !request.is_fault);
  TAVU_PROPERTY(argument.type() != lumo::ValueType::kEnd);

  Recorder written;
  TAVU_PROPERTY(QTC::WriteRequest(written, request.method, argument, QTC::Carrier::kStream));
  lumo::MemoryReader again(written.bytes);
  QTC::Message same;
  lumo::Value same_argument;
  TAVU_PROPERTY(QTC::ReadRequest(again, same, same_argument));
  TAVU_PROPERTY(again.remaining() == 0);
  TAVU_PROPERTY(same.method == request.method);
  TAVU_PROPERTY(same_argument.type() == argument.type());
  return 0;
}
