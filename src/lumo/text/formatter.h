// lumo's printf.
//
// A conversion is %[flags][width][.precision][length]letter:
//
//   flags      '-' left-justify, '+' and ' ' a sign for positive numbers, '0' pad with zeros,
//              '#' the base's prefix (0x, 0X, 0b, a leading 0 for octal), '\'' a comma between
//              groups of three decimal digits; in any order, repetition allowed
//   width      digits, or '*' for an int argument; negative: left-justify
//   precision  digits, or '*' for an int argument (negative: none): the least number of digits of
//              an integer, the most bytes of a text
//   length     l, ll or z: the integer argument has 64 bits, on every platform; otherwise 32
//   letter     d i u x X o b: integers; and without a length, c: a character, s: a zero-terminated
//              text ("(null)" for a null pointer), p: a pointer (0x and lower-case digits)
//
// "%%" writes one '%'. Where the C library leaves the outcome open: anything else after a '%' is
// written as it stands and takes no argument but those of its '*'s; so is a '%' at the end.
// Floating point has no conversion here, and %n does not exist. Where flags meet, C decides: '-'
// beats '0', '+' beats a space, an integer's precision beats '0'; zeros of a '0' flag are not
// grouped, those of a precision are.
#pragma once

#include <cstdarg>
#include <cstddef>

#include "lumo/text/basic_string.h"
#include "lumo/text/formatter_sink.h"

namespace TAVU::lumo {

// Writes `format` with its arguments; returns the number of bytes written.
std::size_t FormatInto(Formatter& sink, const char* format, std::va_list arguments);

// Appends to `target`; returns the number of bytes appended. Throws BadAllocation. No text argument
// may lie in `target`. The compiler's check of printf arguments is not asked for: here "l" means 64
// bits on every platform.
std::size_t Format(BasicString<char>& target, const char* format, ...);
std::size_t FormatList(BasicString<char>& target, const char* format, std::va_list arguments);

}  // namespace TAVU::lumo
