#include "lumo/text/text_view.h"

#include <cstring>

#include "base/allocator.h"
#include "lumo/dates/date_time.h"
#include "lumo/text/basic_string.h"
#include "lumo/text/formatter.h"
#include "lumo/text/number_text.h"
#include "lumo/text/value_text.h"
#include "lumo/value/big_int.h"

namespace TAVU::lumo {
namespace {

void FillCache(Value& value, std::string_view text) {
  auto* const cache = static_cast<char*>(base::DefaultAllocator::Allocate(text.size() + 1));
  std::memcpy(cache, text.data(), text.size());
  cache[text.size()] = '\0';
  ValueTextAccess::SetCache(value, cache);
}

// False for a type whose text is not one to keep.
bool MakeCache(Value& value) {
  BasicString<char> text;
  switch (value.type()) {
    case ValueType::kInt:
      Format(text, "%d", value.int_value());
      break;
    case ValueType::kLong:
      // Only the low 32 bits are written: 4294967297 reads "1". A wider text would no longer equal
      // the texts that were stored before.
      Format(text, "%d", static_cast<std::int32_t>(value.long_value()));
      break;
    case ValueType::kDouble:
      AppendDouble(text, value.double_value());
      break;
    case ValueType::kDate: {
      DateTime moment = DateTime::FromDate(value.date_value());
      if (!moment.Format(DateFormat::kIso8601, DatePrecision::kSecond)) return false;
      FillCache(value, moment.text());
      return true;
    }
    default:
      return false;
  }
  FillCache(value, text.view());
  return true;
}

}  // namespace

bool AsText(Value& value, TextView& out, TextConversion conversion) {
  out = {};
  const ValueType type = value.type();
  if (type == ValueType::kString || type == ValueType::kBinary) out.text = value.text();
  if (type == ValueType::kString) return true;
  if (conversion == TextConversion::kNone) return false;

  if (ValueTextAccess::Cache(value) != nullptr || MakeCache(value)) {
    out = {.text = ValueTextAccess::Cache(value), .cached = true};
    return true;
  }
  switch (type) {
    case ValueType::kNull:
      out.text = "";
      return true;
    case ValueType::kBool:
      out.text = value.byte() == 1 ? "true" : "false";
      return true;
    case ValueType::kChar:
      out = {.text = {ValueTextAccess::Character(value), 1}, .raw = true};
      return true;
    case ValueType::kBigInt:
      // The number keeps the text in itself; nothing else of it changes.
      out = {.text = const_cast<BigInt&>(value.big_int()).ToDecimal(), .raw = true};
      return true;
    default:
      return false;
  }
}

}  // namespace TAVU::lumo
