// A server's bytes, from the header to the result value: read or refused, in one piece or byte by
// byte, with the same outcome.
#include "fuzz/fuzzer.h"
#include "net/memory_transport.h"
#include "net/wire/exchange.h"

using namespace TAVU;

void Check(Bytes input) {
  const std::vector<std::byte> bytes(input.begin(), input.end());
  test::MemoryTransport whole(bytes, bytes.size() + 1);
  QTC::Message message;
  const bool read = QTC::ReadReply(whole, message);

  test::MemoryTransport dribbled(bytes, 1);
  QTC::Message same;
  Require(QTC::ReadReply(dribbled, same) == read);
  if (!read) return;
  Require(same.kind == message.kind && same.is_fault == message.is_fault);
  Require(same.method == message.method && same.fault.code == message.fault.code);
  Require(!message.is_fault || message.kind == QTC::MessageKind::kReply);
}
