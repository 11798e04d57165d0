#include "api/frame/host_text.h"

namespace TAVU::api {

// The conversions' results are dropped throughout: a text that cannot be converted stays empty,
// which the public header documents. A record with one empty text is worth more than none.

std::string ToUtf8(const char* text, TextForm form) {
  std::string utf8;
  static_cast<void>(AnsiToUtf8(text, utf8, form));
  return utf8;
}

std::string ToUtf8(const wchar_t* text, TextForm form) {
  std::string utf8;
  static_cast<void>(WideToUtf8(text, utf8, form));
  return utf8;
}

std::string ToAnsi(const char* text) {
  return text;
}

std::string ToAnsi(const wchar_t* text) {
  std::string ansi;
  static_cast<void>(WideToAnsi(text, ansi));
  return ansi;
}

std::wstring ToWide(const char* text) {
  std::wstring wide;
  static_cast<void>(AnsiToWide(text, wide));
  return wide;
}

std::wstring ToWide(const wchar_t* text) {
  return text;
}

}  // namespace TAVU::api
