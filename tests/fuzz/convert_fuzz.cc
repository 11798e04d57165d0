// Values converted to text and into each other: a conversion that fails changes nothing, one that
// succeeds gives the type asked for, and what it gives stands on its own.
#include <cstdint>
#include <string>

#include "fuzz/property.h"
#include "lumo/codec.h"
#include "lumo/conversion.h"
#include "lumo/memory_reader.h"
#include "lumo/memory_writer.h"
#include "lumo/text_view.h"

using namespace TAVU::lumo;

namespace {

std::string Encoded(const Value& value) {
  MemoryWriter writer;
  if (!WriteValue(writer, value)) return "none";  // a big integer has no encoding
  return {reinterpret_cast<const char*>(writer.data()), writer.size()};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) return 0;
  const auto target = static_cast<ValueType>(data[0] % 12);
  const auto mode = static_cast<ConversionMode>(data[0] / 12 % 4);
  const auto rest = std::span(data + 1, size - 1);

  Value value;
  if (data[0] & 0x80) {
    value = Value::CopyString({reinterpret_cast<const char*>(rest.data()), rest.size()});
  } else {
    MemoryReader source(std::as_bytes(rest));
    if (!ReadValue(source, value)) return 0;
  }

  const ValueType before = value.type();
  const std::string bytes_before = Encoded(value);
  if (ConvertInPlace(value, target, mode)) {
    TAVU_PROPERTY(value.type() == target);
  } else {
    TAVU_PROPERTY(value.type() == before && Encoded(value) == bytes_before);
  }

  TextView view;
  if (AsText(value, view, TextConversion::kConvert)) {
    const std::string text(view.text);
    TextView again;
    TAVU_PROPERTY(AsText(value, again, TextConversion::kConvert));
    TAVU_PROPERTY(again.text == text);
    Value converted(value, CopyDepth::kDeep);
    if (ConvertInPlace(converted, ValueType::kString, ConversionMode::kUnchecked) &&
        value.type() != ValueType::kBigInt) {  // a deep copy loses those
      TAVU_PROPERTY(converted.text() == text);
    }
  }
  return 0;
}
