// The grammar of the formatting engine: any format, with arguments for whatever it asks, gives the
// same bytes through a string as through buffers of one byte, up to where these end.
#include <cstdarg>

#include "fuzz/fuzzer.h"
#include "lumo/text/formatter.h"

using namespace TAVU::lumo;

// Offers the engine one byte at a time, `left` times.
struct OneByteSink final : Formatter {
  bool begin() override {
    buffer_ = &byte;
    capacity_ = 1;
    return left-- > 0;
  }
  bool grow() override { return begin(); }
  void end(std::size_t written) override { text.append(&byte, written); }
  char byte = 0;
  std::ptrdiff_t left = 0;
  std::string text;
};

static std::size_t FormatToSink(OneByteSink& sink, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const std::size_t count = FormatInto(sink, format, arguments);
  va_end(arguments);
  return count;
}

// A format with a width or precision of at most three digits and only letters that these arguments
// serve: every argument is read as 64 bits or as a pointer to a text, and both are given.
static std::string Tamed(Bytes input) {
  std::string format;
  int digits = 0;
  for (const char letter : TextOf(input)) {
    if (letter == '\0' || letter == '*') continue;
    digits = letter >= '0' && letter <= '9' ? digits + 1 : 0;
    if (digits <= 3) format += letter;
  }
  return format;
}

void Check(Bytes input) {
  // Of at most twelve conversions.
  const std::string format = Tamed(input.first(std::min<std::size_t>(input.size(), 24)));
  const auto write = [&](auto* function, auto& target) {
    constexpr const char* t = "a text";
    return function(target, format.c_str(), t, t, t, t, t, t, t, t, t, t, t, t, t);
  };
  BasicString<char> target(std::string_view("before "));
  const std::size_t appended = write(&Format, target);
  Require(target.length() == 7 + appended && target.view().starts_with("before "));
  for (const std::size_t room : {appended + 1, appended, appended / 2}) {
    OneByteSink sink;
    sink.left = static_cast<std::ptrdiff_t>(room);
    Require(write(&FormatToSink, sink) == std::min(room, appended));
    Require(sink.text == target.view().substr(7, room));
  }
}
