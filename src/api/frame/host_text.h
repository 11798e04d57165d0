// The host's texts as they come in, zero-terminated and in either form, and as the library keeps
// them. Overloaded by form, so that an ...A and a ...W export share one body.
#pragma once

#include <string>

#include "api/frame/text_conversion.h"

namespace TAVU::api {

template <typename Char>
[[nodiscard]] bool IsNullOrEmpty(const Char* text) noexcept {
  return text == nullptr || *text == 0;
}

// None takes null. A text that the system cannot convert becomes empty. May throw std::bad_alloc.
[[nodiscard]] std::string ToUtf8(const char* text, TextForm form);
[[nodiscard]] std::string ToUtf8(const wchar_t* text, TextForm form);
[[nodiscard]] std::string ToAnsi(const char* text);
[[nodiscard]] std::string ToAnsi(const wchar_t* text);
[[nodiscard]] std::wstring ToWide(const char* text);
[[nodiscard]] std::wstring ToWide(const wchar_t* text);

// The same for what may be null, which then counts as empty.
template <typename Char>
[[nodiscard]] std::string Utf8OrEmpty(const Char* text, TextForm form) {
  return text != nullptr ? ToUtf8(text, form) : std::string();
}
template <typename Char>
[[nodiscard]] std::wstring WideOrEmpty(const Char* text) {
  return text != nullptr ? ToWide(text) : std::wstring();
}

}  // namespace TAVU::api
