#include "json_text.h"

#include <charconv>
#include <cmath>

#include "utf8.h"

namespace TAVU::collector {
namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

bool StandsForItself(char character) noexcept {
  const auto byte = static_cast<unsigned char>(character);
  return byte >= 0x20 && byte < 0x80 && character != '"' && character != '\\';
}

void AppendEscaped(std::string& out, char character) {
  constexpr std::string_view kShort = "\"\"\\\\\nn\tt\rr\bb\ff";
  for (std::size_t i = 0; i < kShort.size(); i += 2) {
    if (kShort[i] != character) continue;
    out += '\\';
    out += kShort[i + 1];
    return;
  }
  constexpr char kDigits[] = "0123456789abcdef";
  out += "\\u00";
  out += kDigits[character >> 4];
  out += kDigits[character & 15];
}

}  // namespace

void JsonText::Key(std::string_view name) {
  BeginItem();
  Quote(name);
  text_ += ':';
  comma_ = false;
}

void JsonText::Text(std::string_view text) {
  BeginItem();
  Quote(text);
}

void JsonText::Number(std::int64_t number) {
  char digits[24];
  const auto [end, error] = std::to_chars(digits, digits + sizeof digits, number);
  Word({digits, end});
}

void JsonText::Number(double number) {
  if (std::isnan(number)) return Text("nan");
  if (std::isinf(number)) return Text(number < 0 ? "-inf" : "inf");
  char digits[32];
  const auto [end, error] = std::to_chars(digits, digits + sizeof digits, number);
  Word({digits, end});
}

void JsonText::Begin(char bracket) {
  BeginItem();
  text_ += bracket;
  ++depth_;
  comma_ = false;
}

void JsonText::End(char bracket) {
  text_ += bracket;
  --depth_;
  comma_ = true;
}

void JsonText::Quote(std::string_view text) {
  text_ += '"';
  while (!text.empty()) {
    std::size_t plain = 0;
    while (plain < text.size() && StandsForItself(text[plain])) ++plain;
    text_ += text.substr(0, plain);
    text.remove_prefix(plain);
    if (text.empty()) break;
    const Utf8Step step = FirstCharacter(text);
    if (!step.valid) {
      text_ += kReplacement;
    } else if (step.length > 1) {
      text_ += text.substr(0, step.length);
    } else {
      AppendEscaped(text_, text.front());
    }
    text.remove_prefix(step.length);
  }
  text_ += '"';
}

}  // namespace TAVU::collector
