// What decodes encodes again, to bytes that decode to the same value and encode to the same bytes.
#include <algorithm>

#include "fuzz/fuzzer.h"
#include "lumo/codec/codec.h"
#include "lumo/codec/memory_reader.h"
#include "lumo/codec/memory_writer.h"
#include "lumo/value/hash.h"
#include "lumo/value/list.h"
#include "lumo/value/map.h"
#include "lumo/value/table.h"
#include "lumo/value/value_equality.h"

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

// Whether a map, at any depth, has a container for a key. The key's hash goes by the order inside
// it; when that turns around, the entry changes its bucket, and the order outside is not regular.
static bool HasContainerKey(const Value& value) {
  const auto any_has = [](const List& list) {
    return std::any_of(list.begin(), list.end(), HasContainerKey);
  };
  const auto is_container = [](const Value& key) {
    return key.type() == ValueType::kList || key.type() == ValueType::kMap ||
           key.type() == ValueType::kTable;
  };
  bool has = false;
  if (value.type() == ValueType::kList) return any_has(value.list());
  if (value.type() == ValueType::kMap) {
    for (const Map::Node& entry : value.map()) {
      has = has || is_container(entry.key) || HasContainerKey(entry.value);
    }
  }
  if (value.type() == ValueType::kTable) {
    for (std::size_t row = 0; row < value.table().row_count(); ++row) {
      has = has || any_has(value.table().row(row));
    }
  }
  return has;
}

void Check(Bytes input) {
  MemoryReader source(input);
  Value first;
  if (!ReadValue(source, first) || first.type() == ValueType::kEnd) return;
  const std::vector<std::byte> written = Encoded(first);
  // A decoded map puts a chain's entries in the order in which they come, each at the head: the
  // order turns around at every pass, so the third writing equals the first.
  const std::vector<std::byte> turned = Encoded(Decoded(written));
  if (!HasContainerKey(first)) {
    Require(turned.size() == written.size() && Encoded(Decoded(turned)) == written);
  }
  // Exercises order, hash and deep copy on the same input. (NaN compares unequal to itself.)
  const Value copy(first, CopyDepth::kDeep);
  Require(Encoded(copy) == written && Hash(copy, kInitialHash) == Hash(first, kInitialHash));
  Require((Compare(copy, first) == 0) == AreEqual(copy, first));
}
