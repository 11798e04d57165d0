// Numbers as text, appended. The printf family is not for these texts: what "%s" means to its wide
// form depends on the C runtime's mode, and it needs more stack than a crash may have left.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace TAVU::base {

enum class HexDigits { kLower, kUpper };

// At least `min_digits` digits, filled up with zeros.
void AppendUnsigned(std::wstring& text, std::uint32_t value, std::size_t min_digits = 1);
void AppendHex(std::wstring& text, std::uint32_t value, HexDigits digits,
               std::size_t min_digits = 1);

// "0x" and eight upper-case digits: the form of addresses, of which the low 32 bits are told.
void AppendAddress(std::wstring& text, std::uint64_t address);

// Exactly `count` digits of a number that has no more, at `to`, for texts that are made already.
// Returns the place after them.
wchar_t* WriteDigits(wchar_t* to, std::uint32_t value, std::size_t count) noexcept;

// The same 32 bits read as a signed number.
void AppendSigned(std::wstring& text, std::uint32_t value);

}  // namespace TAVU::base
