// Numbers in the texts of values. Neither direction depends on the process's locale, on the system
// or on a terminator.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include "lumo/text/basic_string.h"

namespace TAVU::lumo {

// Read a whole text as one number; nothing for a text that is none. White space may stand around
// the number; a text of nothing else is 0, as the C library reads it.
//
// Integers have an optional sign; "0x" makes them hexadecimal. A leading 0 makes an int octal, but
// is of no meaning in a long. The check of the range comes first and goes by the text: after a '-'
// and zeros, what is left must be shorter than the limit's digits, or as long and not above them,
// white space counted like digits. It lets some numbers in base 16 through that do not fit; those
// become the limit.
[[nodiscard]] std::optional<std::int32_t> ParseInt(std::string_view text) noexcept;
[[nodiscard]] std::optional<std::int64_t> ParseLong(std::string_view text) noexcept;

// Decimal digits with an optional sign, point and exponent; not the names of infinity and of no
// number. A number too large or too small for a double is refused.
[[nodiscard]] std::optional<double> ParseDouble(std::string_view text) noexcept;

// Appends what "%g" gives: six significant digits, "inf", "-inf" or "nan".
void AppendDouble(BasicString<char>& target, double value);

}  // namespace TAVU::lumo
