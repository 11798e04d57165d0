// The skipper takes exactly what the decoder takes and ends where it ends, whatever the pieces in
// which the bytes come. The last byte tells where they are cut.
#include "fuzz/fuzzer.h"
#include "lumo/codec/codec.h"
#include "lumo/codec/memory_reader.h"
#include "lumo/codec/value_skipper.h"

using namespace TAVU::lumo;

// Reports each part once, and the depth comes out even.
struct Counter final : SkipObserver {
  bool OnValue(ValueType type, Place place) override {
    Require((depth == 0) == (place == Place::kAlone));
    if (type == ValueType::kList || type == ValueType::kMap || type == ValueType::kTable) ++depth;
    last = type;
    return true;
  }
  void OnContent(Bytes piece) override {
    Require(!piece.empty() && (last == ValueType::kString || last == ValueType::kBinary));
  }
  void OnContainerEnd() override { Require(--depth >= 0); }
  int depth = 0;
  ValueType last = ValueType::kNull;
};

void Check(Bytes bytes) {
  auto cut = bytes.empty() ? 0u : static_cast<unsigned>(bytes.back());
  Counter counter;
  ValueSkipper skipper;
  std::size_t used = 0;
  while (used < bytes.size() && skipper.state() == ValueSkipper::State::kInside) {
    cut = cut * 75 + 74;
    const std::size_t piece = std::min<std::size_t>(1 + cut % 11, bytes.size() - used);
    const std::size_t taken = skipper.Feed(bytes.subspan(used, piece), &counter);
    Require(taken == piece || skipper.state() != ValueSkipper::State::kInside);
    used += taken;
  }
  const bool skipped = skipper.state() == ValueSkipper::State::kWhole;
  Require(!skipped || counter.depth == 0);

  MemoryReader source(bytes);
  Value value;
  Require(ReadValue(source, value) == skipped);
  if (!skipped) return;
  Require(used == source.position() && skipper.type() == value.type());
  MemoryReader again(bytes);
  ValueType type{};
  Require(SkipValue(again, type) && again.position() == used && type == value.type());
}
