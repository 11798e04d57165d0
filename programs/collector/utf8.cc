#include "utf8.h"

#include <algorithm>

namespace TAVU::collector {

Utf8Step FirstCharacter(std::string_view text) noexcept {
  struct Form {
    unsigned char first_low, first_high, second_low, second_high;
    std::size_t length;
  };
  constexpr Form kForms[] = {
      {0x00, 0x7F, 0x00, 0x00, 1}, {0xC2, 0xDF, 0x80, 0xBF, 2}, {0xE0, 0xE0, 0xA0, 0xBF, 3},
      {0xE1, 0xEC, 0x80, 0xBF, 3}, {0xED, 0xED, 0x80, 0x9F, 3}, {0xEE, 0xEF, 0x80, 0xBF, 3},
      {0xF0, 0xF0, 0x90, 0xBF, 4}, {0xF1, 0xF3, 0x80, 0xBF, 4}, {0xF4, 0xF4, 0x80, 0x8F, 4},
  };
  const auto at = [text](std::size_t i) { return static_cast<unsigned char>(text[i]); };
  for (const Form& form : kForms) {
    if (at(0) < form.first_low || at(0) > form.first_high) continue;
    const std::size_t end = std::min(form.length, text.size());
    std::size_t length = 1;
    if (length < end && at(1) >= form.second_low && at(1) <= form.second_high) ++length;
    while (length > 1 && length < end && (at(length) & 0xC0) == 0x80) ++length;
    return {length, length == form.length};
  }
  return {1, false};
}

bool IsUtf8(std::string_view text) noexcept {
  while (!text.empty()) {
    const Utf8Step step = FirstCharacter(text);
    if (!step.valid) return false;
    text.remove_prefix(step.length);
  }
  return true;
}

std::string_view CutText(std::string_view text, std::size_t size) noexcept {
  if (text.size() <= size) return text;
  // Back over the bytes that continue a character, at most three of which can belong to it.
  std::size_t cut = size;
  while (cut > 0 && size - cut < 3 && (static_cast<unsigned char>(text[cut]) & 0xC0) == 0x80) --cut;
  return text.substr(0, cut);
}

}  // namespace TAVU::collector
