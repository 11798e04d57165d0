// Values converted to text and into each other: a conversion that fails changes nothing, one that
// succeeds gives the type asked for, and what it gives stands on its own.
#include "fuzz/fuzzer.h"
#include "lumo/codec/codec.h"
#include "lumo/codec/memory_reader.h"
#include "lumo/codec/memory_writer.h"
#include "lumo/text/conversion.h"
#include "lumo/text/text_view.h"

using namespace TAVU::lumo;

static std::string Encoded(const Value& value) {
  MemoryWriter writer;
  if (!WriteValue(writer, value)) return "none";  // a big integer has no encoding
  return std::string(TextOf(writer.bytes()));
}

void Check(Bytes input) {
  if (input.size() < 2) return;
  const auto how = static_cast<unsigned>(input[0]);
  const ValueType target{static_cast<std::uint8_t>(how % 12)};
  const ConversionMode mode{static_cast<int>(how / 12 % 4)};
  MemoryReader source(input.subspan(1));
  Value value = Value::CopyString(TextOf(input.subspan(1)));
  if (!(how & 0x80) && !ReadValue(source, value)) return;
  const ValueType before = value.type();
  const std::string bytes_before = Encoded(value);
  const bool converts = ConvertInPlace(value, target, mode);
  Require(value.type() == (converts ? target : before));
  Require(converts || Encoded(value) == bytes_before);
  TextView view;
  if (!AsText(value, view, TextConversion::kConvert)) return;
  const std::string text(view.text);
  Require(AsText(value, view, TextConversion::kConvert) && view.text == text);
  if (value.type() == ValueType::kBigInt) return;  // a deep copy loses those
  Value copy(value, CopyDepth::kDeep);
  Require(!ConvertInPlace(copy, ValueType::kString, ConversionMode::kUnchecked) ||
          copy.text() == text);
}
