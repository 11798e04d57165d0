// Values seen as text.
#pragma once

#include <string_view>

#include "lumo/value/value.h"

namespace TAVU::lumo {

enum class TextConversion { kNone, kConvert };

struct TextView {
  std::string_view text;
  bool cached = false;  // the text lies in the value's text cache
  bool raw = false;     // the text is not terminated: a char, or the digits of a big integer
};

// Sees `value` as text; false where it has none. With kNone that is every type but string, whose
// content is the text (zero-terminated only as far as its owner made it so). With kConvert null is
// the empty text; bool, char, int, long, double, date and bigint have texts too. The texts of int,
// long, double and date are cached in the value, so that asking again costs nothing.
//
// The text is valid until the value is cleared, moved or converted; of a big integer also until its
// text is asked for again. Only exhausted memory throws.
[[nodiscard]] bool AsText(Value& value, TextView& out, TextConversion conversion);

}  // namespace TAVU::lumo
