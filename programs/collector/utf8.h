// UTF-8 as a peer may send it: with anything in it.
#pragma once

#include <cstddef>
#include <string_view>

namespace TAVU::collector {

struct Utf8Step {
  std::size_t length;  // bytes: of a character, or of as many as begin one that is not finished
  bool valid;
};

// The first character of `text`, which is not empty. Overlong forms, surrogates and what lies above
// U+10FFFF are no characters.
[[nodiscard]] Utf8Step FirstCharacter(std::string_view text) noexcept;

[[nodiscard]] bool IsUtf8(std::string_view text) noexcept;

// The text in as many whole characters as fit into `size` bytes.
[[nodiscard]] std::string_view CutText(std::string_view text, std::size_t size) noexcept;

}  // namespace TAVU::collector
