// A server's bytes, from the header to the result value: read or refused, in one piece or byte by
// byte, with the same answer.
#include "fuzz/fuzzer.h"
#include "net/memory_transport.h"
#include "net/wire/exchange.h"

using namespace TAVU;

void Check(Bytes input) {
  const std::vector<std::byte> bytes(input.begin(), input.end());
  test::MemoryTransport whole(bytes, bytes.size() + 1);
  test::MemoryTransport dribbled(bytes, 1);
  Require(QTC::ReadReply(whole) == QTC::ReadReply(dribbled));
}
