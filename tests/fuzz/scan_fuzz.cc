// A request as the collector follows it while it comes: the end that it finds is the one that the
// decoder finds, whatever the pieces in which the bytes come.
#include "collector/request_scanner.h"
#include "fuzz/fuzzer.h"
#include "lumo/codec/memory_reader.h"
#include "net/wire/exchange.h"

using namespace TAVU;

void Check(Bytes input) {
  // Smaller than anything that the scanner refuses for what it would cost to decode.
  constexpr std::size_t kLargestInput = 1000;
  if (input.empty() || input.size() > kLargestInput) return;
  const std::size_t piece = static_cast<std::size_t>(input[0]) + 1;
  const Bytes bytes = input.subspan(1);
  collector::RequestScanner whole(kLargestInput);
  const std::size_t used = whole.Feed(bytes);
  Require(used == whole.size() && used <= bytes.size());
  collector::RequestScanner in_pieces(kLargestInput);
  for (std::size_t at = 0;
       at < bytes.size() && in_pieces.state() == collector::ScanState::kIncomplete; at += piece) {
    in_pieces.Feed(bytes.subspan(at, std::min(piece, bytes.size() - at)));
  }
  Require(in_pieces.state() == whole.state() && in_pieces.reason() == whole.reason());
  Require(in_pieces.size() == used);

  lumo::MemoryReader source(bytes);
  QTC::Message request;
  lumo::Value argument;
  if (!QTC::ReadRequest(source, request, argument)) return;
  Require(whole.state() == collector::ScanState::kComplete && used == source.position());
}
