// A client's bytes as a collector reads them: refused, or a call whose parts write out again to a
// request that reads the same.
#include "fuzz/fuzzer.h"
#include "lumo/codec/memory_reader.h"
#include "net/memory_transport.h"
#include "net/wire/exchange.h"

using namespace TAVU;

void Check(Bytes input) {
  lumo::MemoryReader source(input);
  QTC::Message request;
  lumo::Value argument;
  if (!QTC::ReadRequest(source, request, argument)) return;
  Require(request.kind == QTC::MessageKind::kCall && !request.is_fault);
  Require(argument.type() != lumo::ValueType::kEnd);

  test::MemoryTransport written;
  Require(QTC::WriteRequest(written, request.method, argument, QTC::Protocol::kTcp));
  lumo::MemoryReader again(written.sent);
  QTC::Message same;
  lumo::Value same_argument;
  Require(QTC::ReadRequest(again, same, same_argument) && again.remaining() == 0);
  Require(same.method == request.method && same_argument.type() == argument.type());
}
