#include "lumo/text/formatter.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace TAVU::lumo {
namespace {

constexpr char kLowerDigits[] = "0123456789abcdef";
constexpr char kUpperDigits[] = "0123456789ABCDEF";
constexpr int kGroup = 3;  // decimal digits between two separators
constexpr char kGroupSeparator = ',';

struct IntegerStyle {
  char letter;
  bool is_signed;
  unsigned base;
  const char* digits;
  std::string_view prefix;  // of the '#' flag
};

constexpr IntegerStyle kIntegerStyles[] = {
    {'d', true, 10, kLowerDigits, ""},    {'i', true, 10, kLowerDigits, ""},
    {'u', false, 10, kLowerDigits, ""},   {'x', false, 16, kLowerDigits, "0x"},
    {'X', false, 16, kUpperDigits, "0X"}, {'o', false, 8, kLowerDigits, ""},
    {'b', false, 2, kLowerDigits, "0b"},
};
constexpr const IntegerStyle& kPointerStyle = kIntegerStyles[3];

// A va_list that functions can share: on some platforms it is an array, which does not pass by
// reference.
struct Arguments {
  explicit Arguments(std::va_list source) { va_copy(list, source); }
  Arguments(const Arguments&) = delete;
  Arguments& operator=(const Arguments&) = delete;
  ~Arguments() { va_end(list); }

  std::va_list list;
};

struct Conversion {
  bool left_justified = false;
  bool plus_sign = false;
  bool space_sign = false;
  bool zero_padded = false;
  bool alternate = false;
  bool grouped = false;
  int width = 0;
  int precision = -1;  // negative: none given
  bool is_64_bits = false;
  char letter = '\0';
};

// The text in front of an integer's digits, and how many of the digits there are.
struct IntegerLayout {
  std::string_view sign;
  std::string_view prefix;
  std::size_t digit_count = 0;  // those that the precision asks for included
  bool grouped = false;

  [[nodiscard]] std::size_t size() const noexcept {
    const std::size_t separators = grouped && digit_count != 0 ? (digit_count - 1) / kGroup : 0;
    return sign.size() + prefix.size() + digit_count + separators;
  }
};

class Writer {
 public:
  explicit Writer(Formatter& sink) : sink_(sink) { TakeBuffer(sink.begin()); }

  void Put(char character) {
    if (used_ == capacity_ && !NextBuffer()) return;
    buffer_[used_++] = character;
    ++written_;
  }
  void Put(std::string_view text) {
    while (!text.empty() && (used_ != capacity_ || NextBuffer())) {
      const std::size_t count = std::min(text.size(), capacity_ - used_);
      std::memcpy(buffer_ + used_, text.data(), count);
      used_ += count;
      written_ += count;
      text.remove_prefix(count);
    }
  }
  void Fill(char character, std::size_t count) {
    for (; count != 0; --count) Put(character);
  }
  std::size_t Finish() {
    sink_.end(used_);
    return written_;
  }

 private:
  bool NextBuffer() {
    if (capacity_ == 0) return false;  // the sink has refused before
    sink_.end(used_);
    TakeBuffer(sink_.grow());
    return capacity_ != 0;
  }
  void TakeBuffer(bool offered) {
    buffer_ = sink_.buffer();
    capacity_ = offered ? sink_.capacity() : 0;
    used_ = 0;
  }

  Formatter& sink_;
  char* buffer_ = nullptr;
  std::size_t capacity_ = 0;  // 0: no buffer
  std::size_t used_ = 0;
  std::size_t written_ = 0;
};

// --- Reading a conversion -----------------------------------------------------------------------

bool TakeFlag(char flag, Conversion& conversion) {
  switch (flag) {
    case '-':
      return conversion.left_justified = true;
    case '+':
      return conversion.plus_sign = true;
    case ' ':
      return conversion.space_sign = true;
    case '0':
      return conversion.zero_padded = true;
    case '#':
      return conversion.alternate = true;
    case '\'':
      return conversion.grouped = true;
    default:
      return false;
  }
}

// Digits, or '*' for an argument. The largest int stands for every larger number.
int TakeNumber(const char*& at, Arguments& arguments) {
  if (*at == '*') {
    ++at;
    return va_arg(arguments.list, int);
  }
  int number = 0;
  for (; *at >= '0' && *at <= '9'; ++at) {
    const int digit = *at - '0';
    number = number > (INT_MAX - digit) / 10 ? INT_MAX : number * 10 + digit;
  }
  return number;
}

bool TakeLength(const char*& at) {
  const char* const start = at;
  if (*at == 'z') {
    ++at;
  } else if (*at == 'l') {
    ++at;
    if (*at == 'l') ++at;
  }
  return at != start;
}

// Reads what follows a '%', up to the letter. `at` stops at the letter.
Conversion TakeConversion(const char*& at, Arguments& arguments) {
  Conversion conversion;
  while (TakeFlag(*at, conversion)) ++at;
  conversion.width = TakeNumber(at, arguments);
  if (conversion.width < 0) {
    conversion.left_justified = true;
    conversion.width = conversion.width == INT_MIN ? INT_MAX : -conversion.width;
  }
  if (*at == '.') conversion.precision = TakeNumber(++at, arguments);
  conversion.is_64_bits = TakeLength(at);
  conversion.letter = *at;
  return conversion;
}

// --- Writing one --------------------------------------------------------------------------------

std::string_view SignOf(const Conversion& conversion, bool negative) {
  if (negative) return "-";
  if (conversion.plus_sign) return "+";
  return conversion.space_sign ? " " : "";
}

void WriteDigits(Writer& out, std::string_view digits, const IntegerLayout& layout) {
  const std::size_t zeros = layout.digit_count - digits.size();
  if (!layout.grouped) {
    out.Fill('0', zeros);
    return out.Put(digits);
  }
  for (std::size_t i = 0; i < layout.digit_count; ++i) {
    const std::size_t left = layout.digit_count - i;
    if (i != 0 && left % kGroup == 0) out.Put(kGroupSeparator);
    out.Put(i < zeros ? '0' : digits[i - zeros]);
  }
}

// Writes the digits in front of `end`, none for zero, and returns where they begin. The base is
// known to the compiler, which then has cheaper ways than a division.
template <unsigned kBase>
char* PutDigits(char* end, std::uint64_t number, const char* digits) {
  for (; number != 0; number /= kBase) *--end = digits[number % kBase];
  return end;
}

char* PutDigits(char* end, std::uint64_t number, const IntegerStyle& style) {
  switch (style.base) {
    case 16:
      return PutDigits<16>(end, number, style.digits);
    case 8:
      return PutDigits<8>(end, number, style.digits);
    case 2:
      return PutDigits<2>(end, number, style.digits);
    default:
      return PutDigits<10>(end, number, style.digits);
  }
}

IntegerLayout LayOut(const Conversion& conversion, const IntegerStyle& style,
                     std::size_t own_digits, bool negative) {
  IntegerLayout layout;
  const bool is_zero = own_digits == 0;
  if (conversion.precision < 0) {
    layout.digit_count = is_zero ? 1 : own_digits;
  } else {
    layout.digit_count = std::max(own_digits, static_cast<std::size_t>(conversion.precision));
  }
  if (conversion.alternate && style.base == 8) {
    layout.digit_count = std::max(layout.digit_count, own_digits + 1);
  }
  layout.grouped = conversion.grouped && style.base == 10;
  if (style.is_signed) layout.sign = SignOf(conversion, negative);
  const bool is_pointer = conversion.letter == 'p';  // its prefix stands before a null one too
  if (conversion.alternate && (!is_zero || is_pointer)) layout.prefix = style.prefix;
  return layout;
}

void WriteInteger(Writer& out, const Conversion& conversion, const IntegerStyle& style,
                  std::uint64_t magnitude, bool negative) {
  char buffer[64];  // binary digits of the largest number
  char* const end = buffer + sizeof buffer;
  const char* const first = PutDigits(end, magnitude, style);
  const std::string_view digits(first, static_cast<std::size_t>(end - first));
  const IntegerLayout layout = LayOut(conversion, style, digits.size(), negative);

  const auto width = static_cast<std::size_t>(conversion.width);
  const std::size_t padding = width > layout.size() ? width - layout.size() : 0;
  const bool zero_padded =
      conversion.zero_padded && !conversion.left_justified && conversion.precision < 0;
  if (!zero_padded && !conversion.left_justified) out.Fill(' ', padding);
  out.Put(layout.sign);
  out.Put(layout.prefix);
  if (zero_padded) out.Fill('0', padding);
  WriteDigits(out, digits, layout);
  if (conversion.left_justified) out.Fill(' ', padding);
}

void WriteIntegerArgument(Writer& out, const Conversion& conversion, const IntegerStyle& style,
                          Arguments& arguments) {
  if (!style.is_signed) {
    const std::uint64_t value = conversion.is_64_bits ? va_arg(arguments.list, unsigned long long)
                                                      : va_arg(arguments.list, unsigned int);
    return WriteInteger(out, conversion, style, value, false);
  }
  const std::int64_t value =
      conversion.is_64_bits ? va_arg(arguments.list, long long) : va_arg(arguments.list, int);
  const auto bits = static_cast<std::uint64_t>(value);
  WriteInteger(out, conversion, style, value < 0 ? 0 - bits : bits, value < 0);
}

void WriteText(Writer& out, const Conversion& conversion, std::string_view text) {
  const auto width = static_cast<std::size_t>(conversion.width);
  const std::size_t padding = width > text.size() ? width - text.size() : 0;
  if (!conversion.left_justified) out.Fill(' ', padding);
  out.Put(text);
  if (conversion.left_justified) out.Fill(' ', padding);
}

// With a precision the text need not be terminated, so nothing after it may be read.
std::string_view BoundedText(const char* text, int precision) {
  if (precision < 0) return text;
  std::size_t size = 0;
  while (size < static_cast<std::size_t>(precision) && text[size] != '\0') ++size;
  return {text, size};
}

// Writes the conversion; false, with nothing written and no argument taken, when it is none.
bool WriteConversion(Writer& out, const Conversion& conversion, Arguments& arguments) {
  for (const IntegerStyle& style : kIntegerStyles) {
    if (style.letter != conversion.letter) continue;
    WriteIntegerArgument(out, conversion, style, arguments);
    return true;
  }
  if (conversion.is_64_bits) return false;
  switch (conversion.letter) {
    case 'c': {
      const char character = static_cast<char>(va_arg(arguments.list, int));
      WriteText(out, conversion, {&character, 1});
      return true;
    }
    case 's': {
      const char* const text = va_arg(arguments.list, const char*);
      WriteText(out, conversion,
                BoundedText(text != nullptr ? text : "(null)", conversion.precision));
      return true;
    }
    case 'p': {
      Conversion with_prefix = conversion;
      with_prefix.alternate = true;
      const auto address = reinterpret_cast<std::uintptr_t>(va_arg(arguments.list, const void*));
      WriteInteger(out, with_prefix, kPointerStyle, address, false);
      return true;
    }
    case '%':
      out.Put('%');
      return true;
    default:
      return false;
  }
}

}  // namespace

std::size_t FormatInto(Formatter& sink, const char* format, std::va_list arguments) {
  Arguments rest(arguments);
  Writer out(sink);
  while (*format != '\0') {
    const std::size_t plain = std::strcspn(format, "%");
    out.Put({format, plain});
    format += plain;
    if (*format == '\0') break;
    const char* at = format + 1;
    const Conversion conversion = TakeConversion(at, rest);
    const char* const end = *at == '\0' ? at : at + 1;
    if (!WriteConversion(out, conversion, rest)) {
      out.Put({format, static_cast<std::size_t>(end - format)});
    }
    format = end;
  }
  return out.Finish();
}

std::size_t FormatList(BasicString<char>& target, const char* format, std::va_list arguments) {
  BasicString<char>::_BasicStringFormatter sink(target);
  return FormatInto(sink, format, arguments);
}

std::size_t Format(BasicString<char>& target, const char* format, ...) {
  std::va_list arguments;  // NOLINT(cppcoreguidelines-init-variables): the next line does
  va_start(arguments, format);
  const std::size_t written = FormatList(target, format, arguments);
  va_end(arguments);
  return written;
}

}  // namespace TAVU::lumo
