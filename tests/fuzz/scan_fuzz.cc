// A request as the collector follows it while it comes: the end that it finds is the one that the
// decoder finds, whatever the pieces in which the bytes come.
#include <algorithm>
#include <cstdint>
#include <span>

#include "collector/request_scanner.h"
#include "fuzz/property.h"
#include "lumo/memory_reader.h"
#include "net/exchange.h"

using namespace TAVU;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // Smaller than anything that the scanner refuses for what it would cost to decode.
  constexpr std::size_t kLargestInput = 1000;
  if (size < 1 || size > kLargestInput) return 0;
  const std::size_t piece = data[0] + std::size_t{1};
  const auto bytes = std::as_bytes(std::span(data, size)).subspan(1);

  collector::RequestScanner whole(kLargestInput);
  const std::size_t used = whole.Feed(bytes);
  TAVU_PROPERTY(used == whole.size() && used <= bytes.size());

  collector::RequestScanner in_pieces(kLargestInput);
  for (std::size_t at = 0;
       at < bytes.size() && in_pieces.state() == collector::ScanState::kIncomplete; at += piece) {
    in_pieces.Feed(bytes.subspan(at, std::min(piece, bytes.size() - at)));
  }
  TAVU_PROPERTY(in_pieces.state() == whole.state() && in_pieces.size() == used);
  TAVU_PROPERTY(in_pieces.reason() == whole.reason());

  lumo::MemoryReader source(bytes);
  QTC::Message request;
  lumo::Value argument;
  if (!QTC::ReadRequest(source, request, argument)) return 0;
  TAVU_PROPERTY(whole.state() == collector::ScanState::kComplete);
  TAVU_PROPERTY(used == source.position());
  return 0;
}
