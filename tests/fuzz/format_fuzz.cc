// The grammar of the formatting engine: any format, with arguments for whatever it asks, gives the
// same bytes through a string as through buffers of one byte, and never touches what lies beyond.
#include <cstdarg>
#include <cstdint>
#include <string>

#include "fuzz/property.h"
#include "lumo/formatter.h"

using namespace TAVU::lumo;

namespace {

// Offers the engine one byte at a time.
class OneByteSink final : public Formatter {
 public:
  bool begin() override { return grow(); }
  bool grow() override {
    Commit(1);
    buffer_ = &byte_;
    capacity_ = 1;
    offered_ = true;
    return true;
  }
  void end(std::size_t written) override { Commit(written); }

  std::string text;

 private:
  void Commit(std::size_t written) {
    if (offered_ && written == 1) text += byte_;
    offered_ = false;
  }

  char byte_ = 0;
  bool offered_ = false;
};

// A format with a width or precision of at most three digits and only letters that these arguments
// serve: every argument is read as 64 bits or as a pointer to a text, and both are given.
std::string Tamed(const std::uint8_t* data, std::size_t size) {
  std::string format;
  int digits = 0;
  for (std::size_t i = 0; i < size; ++i) {
    const char letter = static_cast<char>(data[i]);
    if (letter == '\0' || letter == '*') continue;
    digits = letter >= '0' && letter <= '9' ? digits + 1 : 0;
    if (digits > 3) continue;
    format += letter;
  }
  return format;
}

std::size_t FormatToOneByteSink(OneByteSink& sink, const char* format, ...) {
  std::va_list arguments;
  va_start(arguments, format);
  const std::size_t count = FormatInto(sink, format, arguments);
  va_end(arguments);
  return count;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > 24) size = 24;  // at most twelve conversions
  const std::string format = Tamed(data, size);
  static constexpr const char* kText = "a text";
  BasicString<char> target(std::string_view("before "));
  const std::size_t appended =
      Format(target, format.c_str(), kText, kText, kText, kText, kText, kText, kText, kText, kText,
             kText, kText, kText, kText);
  TAVU_PROPERTY(target.length() == 7 + appended);
  TAVU_PROPERTY(target.view().starts_with("before "));

  OneByteSink sink;
  const std::size_t count =
      FormatToOneByteSink(sink, format.c_str(), kText, kText, kText, kText, kText, kText, kText,
                          kText, kText, kText, kText, kText, kText);
  TAVU_PROPERTY(count == appended);
  TAVU_PROPERTY(sink.text == target.view().substr(7));
  return 0;
}
