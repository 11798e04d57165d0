// What decodes encodes again, to bytes that decode to the same value and encode to the same bytes.
#include <algorithm>
#include <cstdint>

#include "fuzz/property.h"
#include "lumo/codec.h"
#include "lumo/hash.h"
#include "lumo/memory_reader.h"
#include "lumo/memory_writer.h"

using namespace TAVU::lumo;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  MemoryReader source(std::as_bytes(std::span(data, size)));
  Value first;
  if (!ReadValue(source, first) || first.type() == ValueType::kEnd) return 0;

  MemoryWriter written;
  TAVU_PROPERTY(WriteValue(written, first));
  MemoryReader again(written.bytes());
  Value second;
  TAVU_PROPERTY(ReadValue(again, second) && again.remaining() == 0);

  // A decoded map puts a chain's entries in the order in which they come, each at the head: the
  // order turns around at every pass, so the third writing equals the first.
  MemoryWriter written_again;
  TAVU_PROPERTY(WriteValue(written_again, second));
  TAVU_PROPERTY(written_again.size() == written.size());
  MemoryReader once_more(written_again.bytes());
  Value third;
  TAVU_PROPERTY(ReadValue(once_more, third));
  MemoryWriter third_writing;
  TAVU_PROPERTY(WriteValue(third_writing, third));
  TAVU_PROPERTY(std::ranges::equal(third_writing.bytes(), written.bytes()));

  // Exercises order, hash and deep copy on the same input. (NaN compares unequal to itself.)
  const Value copy(first, CopyDepth::kDeep);
  MemoryWriter of_copy;
  TAVU_PROPERTY(WriteValue(of_copy, copy));
  TAVU_PROPERTY(std::ranges::equal(of_copy.bytes(), written.bytes()));
  TAVU_PROPERTY(Hash(copy, kInitialHash) == Hash(first, kInitialHash));
  static_cast<void>(Compare(copy, first));
  return 0;
}
