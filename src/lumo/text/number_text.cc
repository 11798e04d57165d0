#include "lumo/text/number_text.h"

#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <system_error>

namespace TAVU::lumo {
namespace {

enum class LeadingZero { kOctal, kDecimal };

template <typename Integer>
struct IntegerText;

template <>
struct IntegerText<std::int32_t> {
  static constexpr std::string_view kGreatest = "2147483647";
  static constexpr std::string_view kLeast = "2147483648";  // after its '-'
  static constexpr LeadingZero kLeadingZero = LeadingZero::kOctal;
};

template <>
struct IntegerText<std::int64_t> {
  static constexpr std::string_view kGreatest = "9223372036854775807";
  static constexpr std::string_view kLeast = "9223372036854775808";
  static constexpr LeadingZero kLeadingZero = LeadingZero::kDecimal;
};

// Those of the "C" locale, whatever the process's is.
constexpr bool IsSpace(char character) noexcept {
  return character == ' ' || (character >= '\t' && character <= '\r');
}

std::string_view WithoutLeadingSpace(std::string_view text) noexcept {
  while (!text.empty() && IsSpace(text.front())) text.remove_prefix(1);
  return text;
}

constexpr unsigned kNoDigit = 36;

constexpr unsigned DigitValue(char character) noexcept {
  if (character >= '0' && character <= '9') return static_cast<unsigned>(character - '0');
  if (character >= 'a' && character <= 'f') return static_cast<unsigned>(character - 'a') + 10;
  if (character >= 'A' && character <= 'F') return static_cast<unsigned>(character - 'A') + 10;
  return kNoDigit;
}

template <typename Integer>
bool IsInRangeAsText(std::string_view text) noexcept {
  const bool is_negative = text.starts_with('-');
  if (is_negative) text.remove_prefix(1);
  while (text.starts_with('0')) text.remove_prefix(1);
  const std::string_view limit =
      is_negative ? IntegerText<Integer>::kLeast : IntegerText<Integer>::kGreatest;
  return text.size() == limit.size() ? text <= limit : text.size() < limit.size();
}

// Consumes the base prefix. "0x" with no digit after it is a zero followed by an 'x'.
unsigned TakeBase(std::string_view& digits, LeadingZero leading_zero) noexcept {
  if (!digits.starts_with('0')) return 10;
  if (digits.size() > 2 && (digits[1] == 'x' || digits[1] == 'X') && DigitValue(digits[2]) < 16) {
    digits.remove_prefix(2);
    return 16;
  }
  return leading_zero == LeadingZero::kOctal ? 8 : 10;
}

// Works as strtol does where an integer has the bits of `Integer`.
template <typename Integer>
std::optional<Integer> ParseInteger(std::string_view text) noexcept {
  if (!IsInRangeAsText<Integer>(text)) return std::nullopt;
  text = WithoutLeadingSpace(text);
  if (text.empty()) return Integer{0};

  const bool is_negative = text.starts_with('-');
  if (is_negative || text.starts_with('+')) text.remove_prefix(1);
  const unsigned base = TakeBase(text, IntegerText<Integer>::kLeadingZero);
  if (text.empty() || DigitValue(text.front()) >= base) return std::nullopt;

  const std::uint64_t limit =
      std::uint64_t{std::numeric_limits<Integer>::max()} + (is_negative ? 1 : 0);
  std::uint64_t magnitude = 0;
  for (; !text.empty() && DigitValue(text.front()) < base; text.remove_prefix(1)) {
    const unsigned digit = DigitValue(text.front());
    magnitude = magnitude > (limit - digit) / base ? limit : magnitude * base + digit;
  }
  if (!WithoutLeadingSpace(text).empty()) return std::nullopt;
  return static_cast<Integer>(is_negative ? 0 - magnitude : magnitude);
}

}  // namespace

std::optional<std::int32_t> ParseInt(std::string_view text) noexcept {
  return ParseInteger<std::int32_t>(text);
}

std::optional<std::int64_t> ParseLong(std::string_view text) noexcept {
  return ParseInteger<std::int64_t>(text);
}

std::optional<double> ParseDouble(std::string_view text) noexcept {
  text = WithoutLeadingSpace(text);
  if (text.empty()) return 0.0;

  // from_chars knows no '+', and takes names too, which begin with a letter.
  const bool is_negative = text.starts_with('-');
  if (is_negative || text.starts_with('+')) text.remove_prefix(1);
  if (text.empty() || (DigitValue(text.front()) > 9 && text.front() != '.')) return std::nullopt;

  double magnitude = 0;
  const char* const end = text.data() + text.size();
  const std::from_chars_result result = std::from_chars(text.data(), end, magnitude);
  if (result.ec != std::errc()) return std::nullopt;
  text.remove_prefix(static_cast<std::size_t>(result.ptr - text.data()));
  if (!WithoutLeadingSpace(text).empty()) return std::nullopt;
  return is_negative ? -magnitude : magnitude;
}

void AppendDouble(BasicString<char>& target, double value) {
  if (std::isnan(value)) return target.Append("nan");  // the C libraries differ in its sign
  char text[24];
  const int size = std::snprintf(text, sizeof text, "%g", value);
  for (int i = 0; i < size; ++i) {
    // The one thing that "%g" takes from the locale, which is the host's to set.
    const bool is_point =
        DigitValue(text[i]) == kNoDigit && text[i] != '-' && text[i] != '+' && std::isfinite(value);
    target.Append({is_point ? "." : &text[i], 1});
  }
}

}  // namespace TAVU::lumo
