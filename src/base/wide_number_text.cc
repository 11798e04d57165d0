#include "base/wide_number_text.h"

namespace TAVU::base {

namespace {

constexpr std::size_t kMostDigits = 10;  // of 32 bits in base 10

void AppendInBase(std::wstring& text, std::uint32_t value, std::uint32_t base,
                  const wchar_t* digits, std::size_t min_digits) {
  wchar_t reversed[kMostDigits];
  std::size_t count = 0;
  do {
    reversed[count++] = digits[value % base];
    value /= base;
  } while (value != 0);
  if (count < min_digits) text.append(min_digits - count, L'0');
  while (count > 0) text.push_back(reversed[--count]);
}

}  // namespace

void AppendUnsigned(std::wstring& text, std::uint32_t value, std::size_t min_digits) {
  AppendInBase(text, value, 10, L"0123456789", min_digits);
}

void AppendHex(std::wstring& text, std::uint32_t value, HexDigits digits, std::size_t min_digits) {
  AppendInBase(text, value, 16,
               digits == HexDigits::kUpper ? L"0123456789ABCDEF" : L"0123456789abcdef", min_digits);
}

void AppendAddress(std::wstring& text, std::uint64_t address) {
  text.append(L"0x");
  AppendHex(text, static_cast<std::uint32_t>(address), HexDigits::kUpper, 8);
}

wchar_t* WriteDigits(wchar_t* to, std::uint32_t value, std::size_t count) noexcept {
  for (std::size_t i = count; i > 0; --i, value /= 10) {
    to[i - 1] = static_cast<wchar_t>(L'0' + value % 10);
  }
  return to + count;
}

void AppendSigned(std::wstring& text, std::uint32_t value) {
  if (static_cast<std::int32_t>(value) < 0) {
    text.push_back(L'-');
    value = 0 - value;
  }
  AppendUnsigned(text, value);
}

}  // namespace TAVU::base
