// What decodes encodes again, to bytes that decode to the same value and encode to the same bytes.
#include "fuzz/fuzzer.h"
#include "lumo/codec.h"
#include "lumo/hash.h"
#include "lumo/memory_reader.h"
#include "lumo/memory_writer.h"

using namespace TAVU::lumo;

static std::vector<std::byte> Encoded(const Value& value) {
  MemoryWriter writer;
  Require(WriteValue(writer, value));
  return {writer.bytes().begin(), writer.bytes().end()};
}

static Value Decoded(Bytes bytes) {
  MemoryReader reader(bytes);
  Value value;
  Require(ReadValue(reader, value) && reader.remaining() == 0);
  return value;
}

void Check(Bytes input) {
  MemoryReader source(input);
  Value first;
  if (!ReadValue(source, first) || first.type() == ValueType::kEnd) return;
  const std::vector<std::byte> written = Encoded(first);
  // A decoded map puts a chain's entries in the order in which they come, each at the head: the
  // order turns around at every pass, so the third writing equals the first.
  const std::vector<std::byte> turned = Encoded(Decoded(written));
  Require(turned.size() == written.size() && Encoded(Decoded(turned)) == written);
  // Exercises order, hash and deep copy on the same input. (NaN compares unequal to itself.)
  const Value copy(first, CopyDepth::kDeep);
  Require(Encoded(copy) == written && Hash(copy, kInitialHash) == Hash(first, kInitialHash));
  static_cast<void>(Compare(copy, first));
}
