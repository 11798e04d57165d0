// Conversions between the host's texts and those that the library keeps or sends.
#pragma once

#include <string>
#include <string_view>

namespace TAVU::api {

// A byte above 127 and a unit beyond ASCII are neither, whatever the locale says.
template <typename Char>
[[nodiscard]] constexpr bool IsAsciiLetterOrDigit(Char unit) noexcept {
  return (unit >= 'A' && unit <= 'Z') || (unit >= 'a' && unit <= 'z') ||
         (unit >= '0' && unit <= '9');
}

// kPercentEncoded keeps ASCII letters, digits and * - . _ as they are and writes every other byte
// as a percent sign and two upper-case hexadecimal digits.
enum class TextForm { kRaw, kPercentEncoded };

// Each replaces `out` and returns true, or returns false when the system cannot convert. Callers
// ignore the result on purpose: a text that cannot be converted is stored, or sent, empty.
// WideToAnsi and AnsiToWide use the system's ANSI code page and leave `out` as far as they came;
// the other two leave it untouched on failure. May throw std::bad_alloc.
bool WideToAnsi(std::wstring_view text, std::string& out);
bool AnsiToWide(std::string_view text, std::wstring& out);
bool WideToUtf8(std::wstring_view text, std::string& out, TextForm form);
bool AnsiToUtf8(std::string_view text, std::string& out, TextForm form);

// The encoding of kPercentEncoded by itself.
[[nodiscard]] std::string PercentEncode(std::string_view text);

}  // namespace TAVU::api
